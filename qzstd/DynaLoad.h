//===- qzstd/DynaLoad.h - Shared objects and symbols by name ----*- C++ -*-===//
//
// Opens shared objects and finds symbols in them, or in the running process,
// by name. A process-wide cache opens each library once. A failed lookup is an
// answer, never an exception: the object holds null and the caller tests it.
// Records go to logger "dynaload" once logging is up.
//
//===----------------------------------------------------------------------===//
#ifndef QZSTD_DYNALOAD_H
#define QZSTD_DYNALOAD_H

#include "qzstd/Export.h"

#include <string>

namespace qzs {
namespace qzlib {

/// A shared object opened by name, or the running process.
///
/// Names: "main" or null is the process itself (shown as "<main>"). Any other
/// name becomes a library file name by this rule, applied to the part after
/// the last '/' (a directory in front is kept, and dlopen then takes the name
/// as a path instead of searching):
/// - "lib" goes in front unless that part already begins with "lib";
/// - ".so" goes behind unless the name ends in ".so" or holds ".so." (a
///   versioned name such as "libm.so.6").
/// So "qzrepo", "libqzrepo" and "qzrepo.so" all open "libqzrepo.so".
///
/// Handles: the first object for a file name opens it with
/// dlopen(RTLD_NOW | RTLD_LOCAL) and caches the handle; later objects for the
/// same file name reuse it. A library, once opened, stays loaded for the life
/// of the process: destroying the object closes nothing. A failed open is not
/// cached, so a later object tries again.
///
/// Failure: getHandle() is null. One record is logged either way. With
/// `required`, a failure also reports catalogue message 1094 (name, file
/// name, the loader's text); without it, absence is an answer and nothing
/// more is said.
///
/// Thread-safe: the cache is guarded by its own lock, which is never held
/// while logging or reporting.
class QZ_API DynaModule {
public:
    DynaModule(const char* name, bool required);

    /// The handle from dlopen, or null when the module could not be opened.
    void* getHandle() const { return handle; }
    bool isLoaded() const { return handle != nullptr; }
    /// The name asked for; "main" for the process (a null name included).
    const std::string& getName() const { return name; }
    /// The file name opened, or "<main>" for the process.
    const std::string& getFileName() const { return fileName; }

    /// The file name that `name` is opened under, by the rule above.
    static std::string libraryFileName(const char* name);

private:
    void* handle;
    std::string name;
    std::string fileName;
};

/// A symbol looked up in a module, or with a null module in the running
/// process. The process only exports what its executable was linked to
/// export (-rdynamic) and what its libraries make global.
///
/// Failure: getAddress() is null and one record is logged; nothing is thrown
/// and no fault is reported. A module that did not open yields null without
/// a lookup (dlsym on a null handle would search the whole process).
class QZ_API DynaSymbol {
public:
    DynaSymbol(const char* name, DynaModule* module);

    /// The symbol's address, or null.
    void* getAddress() const { return address; }
    bool isFound() const { return address != nullptr; }
    /// The address as a function or object pointer of type `T`, or null.
    template <typename T> T as() const { return reinterpret_cast<T>(address); }

private:
    void* address;
};

} // namespace qzlib
} // namespace qzs

/// The address of `name` in the running process, or null. For the symbols a
/// host may define or not (_qzGetConfig, _qzTryDebugHook,
/// FilesysInitializationHook): absence is an answer, not a fault. The process
/// module is opened once for all such lookups.
QZ_API void* qzFindHostSymbol(const char* name);

/// As qzFindHostSymbol, typed: e.g. qzFindHostFunction<void (*)()>("Hook").
template <typename Function> Function qzFindHostFunction(const char* name) {
    return reinterpret_cast<Function>(qzFindHostSymbol(name));
}

#endif // QZSTD_DYNALOAD_H
