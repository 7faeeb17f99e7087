//===- qzstd/FilesysHierarchy.cpp - The map of standard directories -------===//
//
// The two layouts are one table of suffixes; every key is its parent's path
// plus the suffix of the layout in force, and a legacy key hangs from the
// home instead of its parent. Faults are reported and building carries on:
// a process with an odd directory still starts.
//
//===----------------------------------------------------------------------===//
#include "qzstd/FilesysHierarchy.h"

#include "qzstd/Directory.h"
#include "qzstd/DynaLoad.h"
#include "qzstd/FileStatus.h"
#include "qzstd/Installation.h"
#include "qzstd/LoggingSeam.h"
#include "qzstd/MessageSeam.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <unistd.h>

namespace qzs {
namespace qzlib {
namespace sca {

namespace {

namespace Level = detail::LogLevel;

detail::LazyLogger fsLog("FileSystem");

constexpr char kComponent[] = "qzstd/FilesysHierarchy";

// A directory that cannot be made: the path, the system's text, the number.
constexpr unsigned int kMsgCannotCreateDir = 1090;
// A path too long: whether it is the home (1) or a key (0), the variable or
// key, and the limit.
constexpr unsigned int kMsgPathTooLong = 12420;
constexpr size_t kHomeLimit = 230;
constexpr size_t kKeyLimit = 250;

// Both faults are kept in the thread's error context (disposition 1) for the
// caller to issue; the site is the caller's.
template <typename... Args>
void report(const char* function, unsigned int line, unsigned int number, const Args&... args) {
    detail::storeFault(detail::MessageSite{"qzsca.fs", kComponent, function, line}, number,
                       args...);
}

void ensureSlash(std::string& path) {
    if (!path.empty() && path.back() != '/')
        path += '/';
}

std::string systemText(int error) {
    char buffer[256];
    return ::strerror_r(error, buffer, sizeof buffer);
}

// The base name of the executable; "" when its path cannot be read.
std::string executableBaseName() {
    const char* path = qzGetProcessExecutable();
    const char* slash = std::strrchr(path, '/');
    return slash ? slash + 1 : path;
}

struct Row {
    const char* key;
    const char* parent;
    const char* standard;
    const char* legacy;
    // Both homeWhenLegacy and create: the two are equal in every row.
    bool flags;
};

// In dependency order: each parent comes before its children.
constexpr Row kRows[] = {
    {"Bin", "Home", "/bin/", "", false},
    {"Lib", "Home", "/lib/", "", false},
    {"Etc", "Home", "/etc/", "/diretc/", false},
    {"HtDocs", "Lib", "/htdocs", "/dirsca/", true},
    {"Conf", "Etc", "/conf", "", true},
    {"ConfXqz", "Conf", "/xqz", "/dirprm/", true},
    {"ConfLogging", "Conf", "/logging", "/diretc/logging/", true},
    {"Globals", "Conf", "/xqz", "", true},
    {"SSL", "Etc", "/ssl", "/diretc/", true},
    {"Var", "Home", "/var", "", false},
    {"LibConf", "Var", "/lib/conf/", "/dirprm/", true},
    {"Data", "Var", "/lib/data/", "", true},
    {"Db", "Var", "/lib/db/", "/dirprm/", true},
    {"Sql", "Var", "/lib/sql/", "/dirsql/", true},
    {"CheckPt", "Var", "/lib/checkpt/", "/dirchk/", true},
    {"Report", "Var", "/lib/report/", "/dirrpt/", true},
    {"Run", "Var", "/run", "/dirpcs/", true},
    {"Log", "Var", "/log", "", true},
    {"Lock", "Var", "/lock", "/dirpcs/", true},
    {"Temp", "Var", "/temp", "/dirtmp/", true},
    {"Def", "Var", "/lib/def/", "", true},
    {"Dmp", "Var", "/log", "/dirdmp/", true},
    {"Wlt", "Var", "/lib/wallet/", "/dirwlt/", true},
    {"Crd", "Var", "/lib/credential/", "/dircrd/", true},
    {"DistPaths", "Var", "/lib/distpaths/", "", true},
};

// The keys that start empty, in the order they are made.
constexpr const char* kEmptyKeys[] = {
    "Bin",     "Lib",  "HtDocs", "Etc", "Conf", "ConfXqz",   "ConfLogging", "SSL",     "Var",
    "LibConf", "Data", "Db",     "Sql", "Run",  "Log",       "Lock",        "CheckPt", "Report",
    "Temp",    "Def",  "Dmp",    "Wlt", "Crd",  "DistPaths", "Globals"};

struct Override {
    const char* key;
    const char* variable;
};
constexpr Override kOverrides[] = {{"Etc", "XQZ_ETC_HOME"},
                                   {"Conf", "XQZ_CONF_HOME"},
                                   {"SSL", "XQZ_SSL_HOME"},
                                   {"Var", "XQZ_VAR_HOME"},
                                   {"Data", "XQZ_DATA_HOME"}};

} // namespace

struct __attribute__((visibility("hidden"))) FilesysHierarchy::Builder {
    static void callInitializationHook(FilesysHierarchy& map);
    static void initialize(FilesysHierarchy& map, char const* path);
    static void detectFilesysHierarchy(FilesysHierarchy& map, char const* path);
    static void checkForBinLibPeerDirs(FilesysHierarchy& map);
    static void setupRelative(FilesysHierarchy& map, const char* parentKey, const char* key,
                              const char* legacySuffix, const char* standardSuffix,
                              bool homeWhenLegacy);
    static void configure(FilesysHierarchy& map);
};

// ---- Building ----------------------------------------------------------------

FilesysHierarchy::FilesysHierarchy(char const* path) : hookFound(false), legacy(false) {
    Builder::callInitializationHook(*this);
    legacy = getBoolFromEnv("XQZ_FILESYSTEM_ISLEGACY");
    Builder::initialize(*this, path);
    Builder::configure(*this);
}

FilesysHierarchy& FilesysHierarchy::getInstance(char const* path) {
    static FilesysHierarchy* const instance = new FilesysHierarchy(path);
    return *instance;
}

// First, because the hook may set the variables everything else reads.
void FilesysHierarchy::Builder::callInitializationHook(FilesysHierarchy& map) {
    using Hook = void (*)();
    Hook hook = qzFindHostFunction<Hook>("FilesysInitializationHook");
    map.hookFound = hook != nullptr;
    if (!hook)
        return;
    try {
        hook();
    } catch (...) {
        // The host's failure is its own; the map is built from what it set.
    }
}

void FilesysHierarchy::Builder::initialize(FilesysHierarchy& map, char const* path) {
    auto& paths = map.paths;
    paths["Home"] = getPathFromEnv("XQZ_HOME");
    std::string userHome = getPathFromEnv("HOME");
    paths["UserHome"] = userHome.empty() ? userHome : userHome + ".quartzgate/";
    for (const char* key : kEmptyKeys)
        paths[key].clear();
    detectFilesysHierarchy(map, path);
    if (!map.legacy)
        for (const Override& o : kOverrides)
            paths[o.key] = getPathFromEnv(o.variable);
}

void FilesysHierarchy::Builder::detectFilesysHierarchy(FilesysHierarchy& map, char const* path) {
    auto& paths = map.paths;
    std::string home = paths["Home"];
    if (!home.empty()) {
        if (home.size() >= kHomeLimit)
            report("FilesysHierarchy::detectFilesysHierarchy", __LINE__, kMsgPathTooLong, 1,
                   "XQZ_HOME", static_cast<int>(kHomeLimit));
    } else {
        home = path && *path ? std::string(path) : ScaFS::locateExecutable();
        ensureSlash(home);
        // Programs usually sit in <home>/bin/; a catalogue beside them says
        // that bin itself is the home.
        size_t bin = home.rfind("/bin/");
        if (bin != std::string::npos && bin + 5 == home.size() &&
            !qzCheckFileExists((home + "qzMessage.dat").c_str()))
            home.erase(bin + 1);
    }
    ensureSlash(home);
    paths["Home"] = home;
    checkForBinLibPeerDirs(map);
}

void FilesysHierarchy::Builder::checkForBinLibPeerDirs(FilesysHierarchy& map) {
    if (map.legacy)
        return;
    const std::string& home = map.paths["Home"];
    map.legacy =
        !qzCheckDirExists((home + "bin").c_str()) || !qzCheckDirExists((home + "lib").c_str());
}

void FilesysHierarchy::Builder::setupRelative(FilesysHierarchy& map, const char* parentKey,
                                              const char* key, const char* legacySuffix,
                                              const char* standardSuffix, bool homeWhenLegacy) {
    auto& paths = map.paths;
    const bool legacy = map.legacy;
    std::string& path = paths[key];
    if (!path.empty())
        return; // set from the environment: it stands
    path = legacy && homeWhenLegacy ? paths["Home"] : paths[parentKey];
    const char* suffix = legacy ? legacySuffix : standardSuffix;
    if (!*suffix)
        return;
    std::string result = path;
    if (!result.empty() && result.back() == '/')
        result.pop_back();
    result += suffix;
    ensureSlash(result);
    if (result.size() >= kKeyLimit)
        report("FilesysHierarchy::setupRelative", __LINE__, kMsgPathTooLong, 0, key,
               static_cast<int>(kKeyLimit));
    if (homeWhenLegacy)
        map.createSubdir(result);
    path = result;
}

void FilesysHierarchy::Builder::configure(FilesysHierarchy& map) {
    for (const Row& row : kRows)
        setupRelative(map, row.parent, row.key, row.legacy, row.standard, row.flags);
    map.toLog();
}

// ---- Queries -------------------------------------------------------------------

const std::string& FilesysHierarchy::get(const std::string& key) {
    return paths[key];
}

void FilesysHierarchy::set(const std::string& key, const std::string& path) {
    paths[key] = path;
}

bool FilesysHierarchy::isSCAServerName(const std::string& baseName) {
    return !baseName.empty() && std::strstr("ServiceManager,adminsrvr,distsrvr,recvsrvr,pmsrvr",
                                            baseName.c_str()) != nullptr;
}

bool FilesysHierarchy::isSCAServer() const {
    static const bool server = isSCAServerName(executableBaseName());
    return server;
}

bool FilesysHierarchy::getBoolFromEnv(char const* name) {
    return std::getenv(name) != nullptr;
}

std::string FilesysHierarchy::getPathFromEnv(char const* name) {
    const char* value = std::getenv(name);
    if (!value || !*value)
        return std::string();
    std::string path;
    if (*value != '/') {
        char cwd[PATH_MAX];
        if (::getcwd(cwd, sizeof cwd)) {
            path = cwd;
            ensureSlash(path);
        }
    }
    path += value;
    ensureSlash(path);
    return path;
}

// ---- Directories -----------------------------------------------------------------

bool FilesysHierarchy::makeSubdir(const std::string& path) {
    int error = 0;
    if (qzCreateDir(path.c_str(), &error))
        return true;
    if (error == ENOENT) {
        // The parent is what lies before the last separator that is not
        // trailing; "/" and "\\" both separate.
        size_t end = path.find_last_not_of("/\\");
        size_t cut = end == std::string::npos ? std::string::npos : path.find_last_of("/\\", end);
        if (cut != std::string::npos && cut > 0) {
            makeSubdir(path.substr(0, cut));
            error = 0;
            qzCreateDir(path.c_str(), &error);
        }
    }
    if (error == 0 || error == EEXIST)
        return true;
    const std::string text = systemText(error);
    QZ_SEAM_LOG(fsLog, __FILE__, "FilesysHierarchy::makeSubdir", Level::Error,
                "Unable to auto create directory '%s': %s (%d).", path, text, error);
    const std::string message = "Unable to auto create directory '" + path + "': " + text + " (" +
                                std::to_string(error) + ").";
    report("FilesysHierarchy::makeSubdir", __LINE__, kMsgCannotCreateDir, message.c_str());
    return false;
}

void FilesysHierarchy::createSubdir(const std::string& path) {
    if (legacy) {
        QZ_SEAM_LOG(fsLog, __FILE__, "FilesysHierarchy::createSubdir", Level::Debug,
                    "Skipping subdirectory creation for standard deployments.");
        return;
    }
    if (isSCAServer()) {
        makeSubdir(path);
        return;
    }
    // Any other process makes the log tree only, and only when the writable
    // tree was named for it.
    std::string var = getPathFromEnv("XQZ_VAR_HOME");
    if (!var.empty() && path.find(var + "log") != std::string::npos)
        makeSubdir(path);
}

void FilesysHierarchy::toLog() const {
    if (!fsLog.isEnabledFor(Level::Debug))
        return;
    QZ_SEAM_LOG(fsLog, __FILE__, "FilesysHierarchy::toLog", Level::Debug,
                "Logging Filesystem Standard Hierarchy %s mapping of %d entries:",
                legacy ? "Legacy" : "Microservices", static_cast<int>(paths.size()));
    for (const auto& entry : paths)
        QZ_SEAM_LOG(fsLog, __FILE__, "FilesysHierarchy::toLog", Level::Debug, "%-15s -> '%s'",
                    entry.first, entry.second);
    QZ_SEAM_LOG(fsLog, __FILE__, "FilesysHierarchy::toLog", Level::Debug,
                "End logging Filesystem Standard Hierarchy mapping.");
}

// ---- ScaFS -------------------------------------------------------------------------

std::string ScaFS::locateExecutable() {
    return qzGetProcessExecutableDir();
}

bool ScaFS::store(std::string data, std::string file, qzlog::Logger* logger) {
    bool held;
    if (file == "-") {
        std::cout.write(data.data(), static_cast<std::streamsize>(data.size()));
        std::cout.flush();
        held = static_cast<bool>(std::cout);
    } else {
        std::ofstream out(file, std::ios::out | std::ios::trunc | std::ios::binary);
        if (!out)
            detail::logTo(logger, __FILE__, "ScaFS::store", __LINE__, Level::Error,
                          "Failure opening %s", file);
        out.write(data.data(), static_cast<std::streamsize>(data.size()));
        out.flush();
        held = static_cast<bool>(out);
    }
    detail::logTo(logger, __FILE__, "ScaFS::store", __LINE__, Level::Debug,
                  "String data stored in %s", file);
    return held;
}

bool ScaFS::copy(const std::string& source, const std::string& destination, qzlog::Logger* logger) {
    try {
        std::ifstream in(source, std::ios::in | std::ios::binary);
        std::ofstream out(destination, std::ios::out | std::ios::trunc | std::ios::binary);
        // A stream of an empty file inserts nothing and sets failbit on the
        // target; only a source that could not be read is a failure.
        if (in && out && in.peek() != std::ifstream::traits_type::eof())
            out << in.rdbuf();
        out.flush();
        bool held = in.good() || in.eof();
        held = held && static_cast<bool>(out);
        in.close();
        out.close();
        held = held && !out.fail();
        if (held)
            return true;
        detail::logTo(logger, __FILE__, "ScaFS::copy", __LINE__, Level::Error,
                      "File copy failed with destination '%s'.", destination);
        int error = 0;
        if (!qzDeleteFile(destination.c_str(), &error))
            detail::logTo(logger, __FILE__, "ScaFS::copy", __LINE__, Level::Error,
                          "File deletion failed with destination '%s' (%d)", destination, error);
        return false;
    } catch (const std::exception& e) {
        detail::logTo(logger, __FILE__, "ScaFS::copy", __LINE__, Level::Error,
                      "File copy exception with destination '%s': %s.", destination, e.what());
        return false;
    }
}

} // namespace sca
} // namespace qzlib
} // namespace qzs
