//===- qzstd/FilesysHierarchy.h - The map of standard directories -*- C++ -*-===//
//
// The one place a process learns where its directories are: a map from keys
// ("Bin", "Log", "Dmp", ...) to absolute directory paths, built once from
// the environment and the executable's location, in one of two layouts. And
// ScaFS, which stores and copies files with their records.
//
//===----------------------------------------------------------------------===//
#ifndef QZSTD_FILESYSHIERARCHY_H
#define QZSTD_FILESYSHIERARCHY_H

#include "qzstd/Export.h"

#include <map>
#include <string>

namespace qzs {
namespace qzlib {
namespace qzlog {
class Logger;
}
namespace sca {

/// The directory map.
///
/// Layouts:
/// - standard (service): a read-only home with `bin/`, `lib/` and `etc/`,
///   and a writable tree `Var` (default `<home>/var/`). "XQZ_ETC_HOME",
///   "XQZ_CONF_HOME", "XQZ_SSL_HOME", "XQZ_VAR_HOME" and "XQZ_DATA_HOME"
///   override `Etc`, `Conf`, `SSL`, `Var` and `Data`, and keys below them
///   follow.
/// - legacy: everything under the home, in `dir...` folders (`dirprm/`,
///   `dirdmp/`, ...), and keys without a folder of their own are the home.
///   Chosen when "XQZ_FILESYSTEM_ISLEGACY" is set (to anything, even
///   empty), or when the home has no `bin` or no `lib` beside each other.
///
/// The home is "XQZ_HOME" when set and not empty; otherwise the directory
/// given to the constructor, or else the executable's directory, where a
/// directory ending in "/bin/" stands for its parent unless the message
/// catalogue "qzMessage.dat" lies in it. `UserHome` is "$HOME/.quartzgate/"
/// ("" when HOME is unset or empty).
///
/// Paths are held as the system's bytes (std::string, since this map sits
/// below the string classes that the contexts publish them in), each ending
/// in '/'. Relative
/// variables are anchored at the working directory when the map is built,
/// so that a later chdir cannot move the map.
///
/// Building creates directories only where it may: a service process
/// (isSCAServer) creates every standard directory; any other process only the
/// log tree under "XQZ_VAR_HOME"; a legacy process nothing. A directory that
/// cannot be made reports catalogue message 1090 and building goes on; a home
/// of 230 characters or more, or a key of more than 249, reports 12420 and is
/// kept.
///
/// Thread safety: getInstance() is safe from any thread. get() inserts a
/// missing key, so it is safe concurrently only for the keys the map holds
/// from construction on (all keys of the layout, "Home" and "UserHome").
class QZ_API FilesysHierarchy {
public:
    /// Builds a map: runs the host's "FilesysInitializationHook" if the
    /// process exports one (`extern "C" void FilesysInitializationHook()`;
    /// it may set the variables, and what it throws is swallowed), reads the legacy flag,
    /// finds the home from `path` (null: the executable's directory) and
    /// fills every key. Most code wants getInstance() instead.
    explicit FilesysHierarchy(char const* path = nullptr);

    /// The process's map, built by the first call from its `path`; later
    /// calls ignore their argument. Lives until the process exits and is
    /// never destroyed, so static destructors may still read it.
    static FilesysHierarchy& getInstance(char const* path = nullptr);

    /// The path of `key`; a missing key is added with the empty path. The
    /// reference stays valid for the life of the map.
    const std::string& get(const std::string& key);
    /// Stores `path` under `key`, adding the key if needed.
    void set(const std::string& key, const std::string& path);
    /// Every key and its path, in key order.
    const std::map<std::string, std::string>& entries() const { return paths; }

    bool isLegacy() const { return legacy; }
    bool isSCA() const { return !legacy; }
    /// True if this process is one of the services, by its executable's base
    /// name (read once per process); see isSCAServerName.
    bool isSCAServer() const;
    /// Whether the process exports "FilesysInitializationHook".
    bool wasHookFound() const { return hookFound; }

    /// Kept on purpose: true when `baseName` occurs anywhere in
    /// "ServiceManager,adminsrvr,distsrvr,recvsrvr,pmsrvr", so "srvr" and
    /// "Manager" count as services too. An empty name does not.
    static bool isSCAServerName(const std::string& baseName);
    /// True if the variable exists at all, whatever its value (empty too).
    static bool getBoolFromEnv(char const* name);
    /// The variable's value, anchored at the working directory when
    /// relative, ending in '/'; "" when it is unset or empty.
    static std::string getPathFromEnv(char const* name);

    /// Makes directory `path` and, when missing, its parents. Gives whether
    /// it exists now; when not, logs to "FileSystem" and reports message 1090
    /// (the path, the system's text, the error number).
    static bool makeSubdir(const std::string& path);
    /// makeSubdir where this process may create `path` (see above); logs
    /// the skip when legacy.
    void createSubdir(const std::string& path);
    /// Logs the whole map to logger "FileSystem", one record per key.
    void toLog() const;

private:
    // The building steps, kept out of the exported surface.
    struct Builder;
    friend struct Builder;

    bool hookFound;
    bool legacy;
    std::map<std::string, std::string> paths;
};

/// File operations with their records, for service processes.
class QZ_API ScaFS {
public:
    /// The executable's directory, as the process context item
    /// ProcessExecutableDir gives it (qzGetProcessExecutableDir).
    static std::string locateExecutable();
    /// Writes `data` to `file`, replacing it ("-": standard output). Records
    /// go to `logger` when not null. Gives whether every byte was written.
    static bool store(std::string data, std::string file, qzlog::Logger* logger);
    /// Copies `source` over `destination`. On failure the destination is
    /// deleted and the failure logged to `logger` when not null; nothing is
    /// thrown. Gives whether the copy held.
    static bool copy(const std::string& source, const std::string& destination,
                     qzlog::Logger* logger);
};

} // namespace sca
} // namespace qzlib
} // namespace qzs

#endif // QZSTD_FILESYSHIERARCHY_H
