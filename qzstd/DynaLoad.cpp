//===- qzstd/DynaLoad.cpp - Shared objects and symbols by name ------------===//
//
// dlopen and dlsym behind the module cache. The cache lock covers the table
// only: the loader runs outside it (a library's constructors may load more),
// and records and faults go out after it is released.
//
//===----------------------------------------------------------------------===//
#include "qzstd/DynaLoad.h"

#include "qzstd/HashArray.h"
#include "qzstd/LoggingSeam.h"
#include "qzstd/MessageSeam.h"

#include <cerrno>
#include <climits>
#include <cstring>
#include <dlfcn.h>
#include <mutex>

namespace qzs {
namespace qzlib {

namespace {

namespace Level = detail::LogLevel;

detail::LazyLogger dynaLog("dynaload");

// The source the records and faults name: one object, so its address is as
// lasting as a literal's.
constexpr char kSource[] = "qzstd/DynaLoad";
constexpr char kMain[] = "<main>";

// A required module that cannot be opened: the name asked for, the file name
// and the loader's text. Numbered beside the other refusals of a system call
// on a file (1088 to 1093), since that is what it is.
constexpr unsigned int kMsgRequiredModuleMissing = 1094;

// File name to handle. Kept on purpose: made on first use and never
// destroyed, so a module can still be opened from a static destructor at
// exit (the error handling of the last message may load its plug-in then).
struct ModuleCache {
    std::mutex lock;
    HashArray<void*> handles;
};

ModuleCache& cache() {
    static ModuleCache* const instance = new ModuleCache;
    return *instance;
}

bool endsWith(const std::string& text, const char* tail) {
    size_t n = std::strlen(tail);
    return text.size() >= n && text.compare(text.size() - n, n, tail) == 0;
}

const char* orNul(const char* text) {
    return text ? text : "<nul>";
}

// Opened once, at the first lookup in the process, and kept like the cache.
DynaModule& processModule() {
    static DynaModule* const process = new DynaModule(nullptr, false);
    return *process;
}

// The cached handle, or a new one from dlopen (null, with errno and
// dlerror set, when that fails).
void* openModule(const std::string& fileName) {
    HashArrayBinaryKey key(fileName.data(), fileName.size());
    ModuleCache& modules = cache();
    {
        std::lock_guard<std::mutex> guard(modules.lock);
        if (void** cached = modules.handles.find(key))
            return *cached;
    }
    ::dlerror(); // clear any text left by an earlier call
    errno = 0;
    void* handle = ::dlopen(fileName == kMain ? nullptr : fileName.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle) {
        std::lock_guard<std::mutex> guard(modules.lock);
        // Two first opens may race; dlopen gives both the same handle, so
        // whichever stores last stores the same value.
        modules.handles[key] = handle;
    }
    return handle;
}

} // namespace

std::string DynaModule::libraryFileName(const char* name) {
    if (!name || std::strcmp(name, "main") == 0)
        return kMain;
    std::string file(name);
    size_t base = file.rfind('/');
    base = base == std::string::npos ? 0 : base + 1;
    if (file.compare(base, 3, "lib") != 0)
        file.insert(base, "lib");
    if (!endsWith(file, ".so") && file.find(".so.", base) == std::string::npos)
        file += ".so";
    return file;
}

DynaModule::DynaModule(const char* moduleName, bool required)
    : handle(nullptr), name(moduleName ? moduleName : "main"),
      fileName(libraryFileName(moduleName)) {
    int error = 0;
    const char* loaderText = nullptr;
    // No file name that long can exist, and the cache's keys stop at 64 KiB.
    if (fileName.size() >= PATH_MAX) {
        error = ENAMETOOLONG;
        loaderText = "file name too long";
    } else {
        handle = openModule(fileName);
        if (!handle) {
            error = errno;
            loaderText = ::dlerror();
        }
    }
    // Kept on purpose: "0x" stands before a %p that renders its own "0x".
    if (handle) {
        QZ_SEAM_LOG(dynaLog, kSource, "DynaModule::DynaModule", Level::Debug,
                    "Module handle for '%s' (%s) is 0x%p", name, fileName,
                    static_cast<const void*>(handle));
        return;
    }
    // The loader has only a text; the number is errno as dlopen left it,
    // which names the cause (ENOENT, ENOEXEC) when a file was the problem.
    const std::string text = orNul(loaderText);
    QZ_SEAM_LOG(dynaLog, kSource, "DynaModule::DynaModule", required ? Level::Error : Level::Debug,
                "Module handle for '%s' (%s) cannot be loaded. Error %d (%s)", name, fileName,
                error, text);
    if (required)
        detail::raiseFault(QZ_MESSAGE_SITE("qzstd.dynaload", kSource, "DynaModule::DynaModule"),
                           kMsgRequiredModuleMissing, name.c_str(), fileName.c_str(), text.c_str());
}

DynaSymbol::DynaSymbol(const char* name, DynaModule* module) : address(nullptr) {
    void* handle = module ? module->getHandle() : processModule().getHandle();
    const char* symbol = name ? name : "";
    int error = 0;
    const char* loaderText = "module not loaded";
    if (handle) {
        ::dlerror();
        errno = 0;
        address = ::dlsym(handle, symbol);
        error = errno;
        loaderText = address ? nullptr : ::dlerror();
    }
    if (address) {
        QZ_SEAM_LOG(dynaLog, kSource, "DynaSymbol::DynaSymbol", Level::Debug,
                    "Symbol '%s' from module 0x%p is 0x%p", symbol,
                    static_cast<const void*>(handle), static_cast<const void*>(address));
        return;
    }
    // A symbol whose value is null also lands here: to every caller it is
    // as good as absent.
    const std::string text = orNul(loaderText);
    QZ_SEAM_LOG(dynaLog, kSource, "DynaSymbol::DynaSymbol", Level::Debug,
                "Symbol '%s' from module 0x%p cannot be loaded. Error %d (%s)", symbol,
                static_cast<const void*>(handle), error, text);
}

} // namespace qzlib
} // namespace qzs

void* qzFindHostSymbol(const char* name) {
    return qzs::qzlib::DynaSymbol(name, nullptr).getAddress();
}
