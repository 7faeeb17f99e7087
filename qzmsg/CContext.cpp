//===- qzmsg/CContext.cpp - Context items and contexts --------------------===//
//
// The item table of a context is a SparseArray of item pointers: it has no
// erase, so a removed item leaves an entry holding null behind, which every
// walk skips and a later AddItem of the same ID reuses.
//
//===----------------------------------------------------------------------===//
#include "qzmsg/CContext.h"

#include "qzstd/Hash.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <unordered_map>

namespace qzs {
namespace qzlib {

namespace {

// Every name the contexts of this library create, and five more that no
// context here creates (the SQL error items an application may set, and the
// Windows version items).
const char* const kItemNames[] = {
    "AppInstance",
    "AppInstanceDescription",
    "AppStartTime",
    "AppOperatingNormally",
    "BuildApplication",
    "BuildVersion",
    "BuildConfig",
    "BuildDateTime",
    "BuildHostName",
    "BuildDBMS",
    "BuildDBMSVersion",
    "BuildOS",
    "BuildOSArch",
    "BuildProgramString",
    "BuildProgramType",
    "ProcessOSName",
    "ProcessOSArch",
    "ProcessOSVersion",
    "ProcessOSUnixRelease",
    "ProcessHostName",
    "ProcessExecutable",
    "ProcessExecutableBase",
    "ProcessExecutableDir",
    "ProcessCommandLine",
    "ProcessWorkingDir",
    "ProcessOSUptime",
    "ProcessUserTime",
    "ProcessSystemTime",
    "ProcessClockTime",
    "ProcessID",
    "ProcessMemoryVirtual",
    "ProcessMemoryPhysical",
    "DirProcessHome",
    "DirProcessBin",
    "DirProcessLib",
    "DirProcessHtDocs",
    "DirProcessConf",
    "DirProcessConfXqz",
    "DirProcessConfLogging",
    "DirProcessSSL",
    "DirProcessLibConf",
    "DirProcessData",
    "DirProcessDb",
    "DirProcessSql",
    "DirProcessRun",
    "DirProcessLog",
    "DirProcessLock",
    "DirProcessUserHome",
    "DirProcessCheckPt",
    "DirProcessReport",
    "DirProcessTemp",
    "DirProcessDef",
    "DirProcessDmp",
    "DirProcessWlt",
    "DirProcessCrd",
    "DirProcessDistPaths",
    "DirProcessGlobals",
    "DirStructureIsLegacy",
    "ScaDeploymentName",
    "ScaDeploymentId",
    "ScaServiceId",
    "ScaServiceManagerId",
    "SourceModule",
    "SourceID",
    "SourceMethod",
    "SourceLine",
    "ThreadID",
    "ThreadBacktrace",
    "MessageTime",
    "MessageDetails",
    "ErrAppErrorMessage",
    "ErrAppErrorText",
    "ErrOSErrorCode",
    "ErrOSErrorText",
    "ErrSQLErrorCode",
    "ErrSQLErrorText",
    "ProcessOSWinVersionMajor",
    "ProcessOSWinVersionMinor",
    "ProcessOSWinBuildNumber",
};

ContextItemID idByRule(char const* name) {
    const unsigned int crc =
        CRC32(0xFFFFFFFFu, name, static_cast<int>(std::strlen(name))) ^ 0xFFFFFFFFu;
    return crc & 0x0FFFFFFFu;
}

// The ID of a name as the table registers it: by the rule, but for the two
// fixed IDs.
ContextItemID registeredId(char const* name) {
    if (!std::strcmp(name, "BuildProgramType"))
        return BuildProgramTypeID;
    if (!std::strcmp(name, "SourceMethod"))
        return SourceMethodID;
    return idByRule(name);
}

// Departure, for a race: the table is shared by every thread and
// GetContextItemID may register from any of them, so it takes a lock.
struct NameTable {
    std::mutex lock;
    std::unordered_map<ContextItemID, char const*> names;
    NameTable() {
        for (char const* name : kItemNames)
            names.emplace(registeredId(name), name);
    }
};

NameTable& nameTable() {
    // Made on first use and never destroyed: contexts outlive static teardown.
    static NameTable* table = new NameTable();
    return *table;
}

} // namespace

CContextItem::~CContextItem() = default;

std::string CContextItem::GetText() const {
    MultiThreading::ScopedLock guard(lock);
    switch (getType()) {
    case CDataItem::String: {
        char const* text = *this;
        return text ? text : "";
    }
    case CDataItem::Int:
        return std::to_string(static_cast<int>(*this));
    case CDataItem::UnsignedInt:
        return std::to_string(static_cast<unsigned int>(*this));
    case CDataItem::Long:
        return std::to_string(static_cast<long>(*this));
    case CDataItem::UnsignedLong:
        return std::to_string(static_cast<unsigned long>(*this));
    case CDataItem::Bool:
        return static_cast<bool>(*this) ? "true" : "false";
    default:
        return std::string();
    }
}

CContext::CContext() : deleteWithParent(true), ownCount(0) {
    nameTable();
}

CContext::~CContext() {
    items.forEach([](const ContextItemID&, CContextItem*& item) { delete item; });
    for (CContext* chained : contexts)
        if (chained->deleteWithParent)
            delete chained;
}

CContextItem* CContext::findOwn(ContextItemID id) const {
    CContextItem* const* found = items.find(id);
    return found ? *found : nullptr;
}

unsigned int CContext::GetItemCount(bool withChained) const {
    unsigned int n = ownCount;
    if (withChained)
        for (const CContext* chained : contexts)
            n += chained->GetItemCount(false);
    return n;
}

ContextItemID CContext::GetItemID(unsigned int index) const {
    if (index < ownCount) {
        ContextItemID found = 0;
        unsigned int seen = 0;
        items.forEach([&](const ContextItemID& id, CContextItem*& item) {
            if (item && seen++ == index)
                found = id;
        });
        return found;
    }
    index -= ownCount;
    for (const CContext* chained : contexts) {
        const unsigned int n = chained->GetItemCount(false);
        if (index < n)
            return chained->GetItemID(index);
        index -= n;
    }
    return 0;
}

CContextItem* CContext::GetItem(ContextItemID id) const {
    if (CContextItem* own = findOwn(id))
        return own;
    for (const CContext* chained : contexts)
        if (CContextItem* item = chained->GetItem(id))
            return item;
    return nullptr;
}

void CContext::AddItem(CContextItem* item) {
    if (!item)
        return;
    CContextItem*& slot = items[item->id];
    if (!slot)
        ++ownCount;
    slot = item;
}

bool CContext::RemoveItem(ContextItemID id) {
    CContextItem** slot = items.find(id);
    if (!slot || !*slot)
        return false;
    delete *slot;
    *slot = nullptr;
    --ownCount;
    return true;
}

void CContext::AddContext(CContext* context) {
    contexts.push_back(context);
}

bool CContext::RemoveContext(CContext const* context) {
    auto it = std::find(contexts.begin(), contexts.end(), context);
    if (it == contexts.end())
        return false;
    contexts.erase(it);
    return true;
}

char const* CContext::GetContextItemName(ContextItemID id) {
    NameTable& table = nameTable();
    std::lock_guard<std::mutex> guard(table.lock);
    auto found = table.names.find(id);
    return found == table.names.end() ? nullptr : found->second;
}

ContextItemID CContext::GetContextItemID(char const* name) {
    const ContextItemID id = idByRule(name);
    NameTable& table = nameTable();
    std::lock_guard<std::mutex> guard(table.lock);
    table.names.emplace(id, name); // keeps a registered name as it is
    return id;
}

} // namespace qzlib
} // namespace qzs
