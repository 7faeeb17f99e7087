//===- qzmsg/CBuildContext.cpp - What the host says it is -----------------===//
//
// The host's symbols are found with dlsym on the running process. An
// executable exports only what a shared library in its link refers to (or
// everything, with -rdynamic), so this library refers to each of them weakly:
// a host that defines one then exports it without any linker option, and a
// host that does not still loads.
//
//===----------------------------------------------------------------------===//
#include "qzmsg/CBuildContext.h"

#include "qzstd/DynaLoad.h"

#include <cstring>

#define QZ_HOST_SYMBOL __attribute__((weak, visibility("default")))
extern "C" {
extern char* BuildContext_BuildApplication QZ_HOST_SYMBOL;
extern char* BuildContext_BuildVersion QZ_HOST_SYMBOL;
extern char* BuildContext_BuildConfig QZ_HOST_SYMBOL;
extern char BuildContext_BuildDateTime[] QZ_HOST_SYMBOL;
extern char* BuildContext_BuildHostName QZ_HOST_SYMBOL;
extern char* BuildContext_BuildDBMS QZ_HOST_SYMBOL;
extern char* BuildContext_BuildDBMSVersion QZ_HOST_SYMBOL;
extern char* BuildContext_BuildOS QZ_HOST_SYMBOL;
extern char* BuildContext_BuildOSArch QZ_HOST_SYMBOL;
}

namespace qzs {
namespace qzlib {

namespace {

// Kept in the library only so that the references above stay in it.
[[gnu::used]] const void* const g_hostSymbolReferences[] = {
    &BuildContext_BuildApplication, &BuildContext_BuildVersion,  &BuildContext_BuildConfig,
    BuildContext_BuildDateTime,     &BuildContext_BuildHostName, &BuildContext_BuildDBMS,
    &BuildContext_BuildDBMSVersion, &BuildContext_BuildOS,       &BuildContext_BuildOSArch,
};

struct HostSymbol {
    char const* symbol;
    ContextItemID id;
    int kind; // 0: a char* variable, copied; 6: the address itself
};

const HostSymbol kHostSymbols[] = {
    {"BuildContext_BuildApplication", 73948074, 0},
    {"BuildContext_BuildVersion", 103929819, 0},
    {"BuildContext_BuildConfig", 257572362, 0},
    {"BuildContext_BuildDateTime", 0, 6}, // by the rule, at run time
    {"BuildContext_BuildHostName", 112646781, 0},
    {"BuildContext_BuildDBMS", 262803587, 0},
    {"BuildContext_BuildDBMSVersion", 139403508, 0},
    {"BuildContext_BuildOS", 177752739, 0},
    {"BuildContext_BuildOSArch", 90696233, 0},
};

struct Program {
    char const* key;
    char const* description;
    unsigned int type;
};

const Program kPrograms[] = {
    {"cachefiledump", "Cache File Dump Utility", 0},
    {"checkprm", "Parameter File validation utility", 0},
    {"convchk", "Checkpoint Conversion Utility", 0},
    {"convprm", "Parameter File Conversion Utility", 0},
    {"defmake", "Table Definition Generator", 8},
    {"emsclnt", "EMS Client", 0},
    {"extract", "Capture", 1},
    {"qzcmd", "Command Tool", 5},
    {"qzsci", "Command Interpreter", 5},
    {"heartbeat", "SQL/MX Heartbeat Generation Utility", 0},
    {"install", "Service Installation Utility for Windows", 0},
    {"keygen", "Key Generation Utility", 0},
    {"logpeek", "Log File Dump Utility", 0},
    {"mgr", "Manager", 3},
    {"xqzerr", "Message Code Utility", 0},
    {"delivrat", "Delivery", 2},
    {"retrace", "Activity Logging Binary File Processing Utility", 0},
    {"reverse", "Dynamic Rollback", 0},
    {"server", "Collector", 4},
    {"syblogreader", "Transaction Log Reader", 0},
    {"verilagt", "Verilume Agent", 0},
    {"verilcom", "Verilume Command Line Interface", 0},
    {"verilume", "Verilume Server", 0},
    {"adminclient", "Administration Client", 0},
    {"adminsrvr", "Administration Server", 10},
    {"recvsrvr", "Receiver Server", 11},
    {"distsrvr", "Distribution Server", 12},
    {"pmsrvr", "Performance Metrics Server", 13},
    {"unittest", "Unittest Application", 0},
    {"ServiceManager", "Service Manager", 0},
    {"bigsort", "bigsortdll", 0},
};

// In search order: DB2400 must be tried before DB2.
const std::pair<char const*, char const*> kDatabases[] = {
    {"ctree", "c-tree"},      {"DB2400", "DB2 for i"},
    {"DB2", "DB2"},           {"UDB", "DB2"},
    {"Ingres", "Ingres"},     {"MSSQL", "SQL Server"},
    {"ODBC", "ODBC"},         {"MySQL", "MySQL"},
    {"Zorvex", "Zorvex"},     {"PostgreSQL", "PostgreSQL"},
    {"SQLMX", "SQL/MX"},      {"Sybase", "Sybase"},
    {"Teradata", "Teradata"}, {"TimeWeft", "TimeWeft"},
    {"Vertica", "Vertica"},   {"VSAM", "VSAM"},
    {"Informix", "Informix"},
};

} // namespace

CBuildContext::CBuildContext() {
    DynaModule process("main", false);
    if (process.isLoaded()) {
        for (const HostSymbol& host : kHostSymbols) {
            DynaSymbol symbol(host.symbol, &process);
            if (!symbol.isFound())
                continue;
            if (host.kind == 0) {
                char const* text = *symbol.as<char const* const*>();
                AddItem(new CContextItem(host.id, ::strdup(text ? text : ""), true));
            } else {
                AddItem(new CContextItem(GetContextItemID("BuildDateTime"),
                                         static_cast<void const*>(symbol.getAddress())));
            }
        }
    }
    SetProgramItems();
}

void CBuildContext::SetProgramItems() {
    const CContextItem* application = GetItem(73948074);
    const CContextItem* dbms = GetItem(262803587);
    const std::string applicationText = application ? application->GetText() : std::string();
    const std::string dbmsText = dbms ? dbms->GetText() : std::string();
    unsigned int type = 0;
    const std::string text = programString(application ? applicationText.c_str() : nullptr,
                                           dbms ? dbmsText.c_str() : nullptr, type);
    AddItem(new CContextItem(GetContextItemID("BuildProgramString"), ::strdup(text.c_str()), true));
    AddItem(new CContextItem(BuildProgramTypeID, type));
}

std::string CBuildContext::programString(char const* application, char const* dbms,
                                         unsigned int& type) {
    std::string text = "Zorvex Quartzgate ";
    type = 0;
    const Program* found = nullptr;
    if (application)
        for (const Program& program : kPrograms)
            if (!std::strcmp(application, program.key)) {
                found = &program;
                break;
            }
    if (found) {
        text += found->description;
        type = found->type;
    } else {
        text += "Unknown Application - please modify qzlog/msgContext";
    }
    if (!dbms || !std::strcmp(dbms, "None"))
        return text;
    for (const auto& database : kDatabases)
        if (!std::strncmp(dbms, database.first, std::strlen(database.first))) {
            text += " for ";
            text += database.second;
            break;
        }
    return text;
}

} // namespace qzlib
} // namespace qzs
