//===- qzunicode/CharSetPackage.cpp - The database sets' package ----------===//
//
// How the database sets reach ICU. ICU offers two ways to add converters:
// u_setDataDirectory (or ICU_DATA), which changes where the whole process
// looks for ICU data and must be set before ICU's first use, and a named
// package: udata_setAppData registers a package's bytes under its own name
// (once per process, under a lock of ICU's), and ucnv_openPackage opens one
// converter from it. A library cannot know whether its host has used ICU
// already, and must not redirect the host's ICU data, so the sets open from
// the named package. Nothing is registered at start-up: the package is
// located, mapped, checked and registered on the first open of a database
// set, so a process that never names one never reads it.
//
// The file is mapped and checked here, and the checked bytes are what ICU
// reads: ICU trusts the offsets inside a package, and a truncated or damaged
// file would send it reading past the mapping. A file whose size and CRC-32
// are not those of the package built with this library is refused, and every
// database set then takes the stand-in.
//
// ICU does not cache converters opened from a package, and parsing one for
// every conversion would cost each call; the first converter of each set is
// kept as a template for the life of the process and every later open is a
// clone of it (ucnv_clone is ICU's thread-safe copy, and the copies share the
// template's mapping data).
//
//===----------------------------------------------------------------------===//
#include "qzunicode/detail/CharSetPackage.h"

#include "qzstd/Hash.h"
#include "qzstd/Installation.h"
#include "qzunicode/CharSetPackageDigest.h"

#include <unicode/ucnv.h>
#include <unicode/udata.h>
#include <unicode/uvernum.h>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <mutex>
#include <string>

namespace qzs {
namespace qzlib {
namespace qzunicode {
namespace detail {

namespace {

constexpr int kFirst = 10000;
constexpr int kRows = 230;

// Per database set: null until its first open; then its template, or
// failedMark() when the package could not give it. A failure is final for the
// process: the stand-in is taken without a look at the file system each time.
struct Templates {
    std::array<std::atomic<UConverter*>, kRows> slots{};
    std::mutex loadLock;
    std::string path;
    bool pathFound = false;
    bool loaded = false;     // the package was looked at
    bool usable = false;     // ... and ICU holds it
    bool registered = false; // ICU holds a package under our name
};

Templates& templates() {
    // Never destroyed: clones may be closed by threads that outlive statics.
    static Templates* t = new Templates;
    return *t;
}

UConverter* failedMark() {
    static char mark;
    return reinterpret_cast<UConverter*>(&mark);
}

std::string directoryOf(const std::string& file) {
    std::string::size_type slash = file.rfind('/');
    return slash == std::string::npos ? std::string(".") : file.substr(0, slash);
}

bool packageIn(const std::string& dir) {
    return ::access((dir + "/" + kCharSetPackageName + ".dat").c_str(), R_OK) == 0;
}

std::string searchPackage() {
    // Beside the library first (an installed host finds the package it was
    // installed with), then beside the program (a program of the build tree,
    // or one linked statically).
    std::string libraryDir;
    Dl_info info;
    if (::dladdr(reinterpret_cast<void*>(&charSetPackagePath), &info) != 0 &&
        info.dli_fname != nullptr)
        libraryDir = directoryOf(info.dli_fname);
    const std::string programDir = qzGetProcessExecutableDir();
    std::string dir = libraryDir;
    if (!packageIn(libraryDir) && !programDir.empty() && packageIn(programDir))
        dir = programDir;
    return dir + "/" + kCharSetPackageName;
}

// Maps the file at path and checks it against the package of this build.
// Result: the mapped bytes, or null. The mapping is kept for the process: ICU
// holds on to the bytes once they are registered.
const char* mapCheckedPackage(const std::string& path) {
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return nullptr;
    struct stat st;
    void* data = MAP_FAILED;
    if (::fstat(fd, &st) == 0 && st.st_size == QZ_CHARSETS_PACKAGE_SIZE)
        data = ::mmap(nullptr, QZ_CHARSETS_PACKAGE_SIZE, PROT_READ, MAP_PRIVATE, fd, 0);
    ::close(fd);
    if (data == MAP_FAILED)
        return nullptr;
    const char* bytes = static_cast<const char*>(data);
    const unsigned int crc =
        CRC32(0xFFFFFFFFu, bytes, static_cast<int>(QZ_CHARSETS_PACKAGE_SIZE)) ^ 0xFFFFFFFFu;
    if (crc != QZ_CHARSETS_PACKAGE_CRC32) {
        ::munmap(data, QZ_CHARSETS_PACKAGE_SIZE);
        return nullptr;
    }
    return bytes;
}

// Under loadLock: finds, checks and registers the package, once.
bool packageUsable(Templates& t) {
    if (t.loaded)
        return t.usable;
    t.loaded = true;
    if (!t.pathFound) {
        t.path = searchPackage();
        t.pathFound = true;
    }
    // ICU keeps the first package registered under a name; a later one (a
    // test's) is only checked, and ICU reads the bytes it holds.
    if (t.registered) {
        const char* bytes = mapCheckedPackage(t.path + ".dat");
        if (bytes != nullptr)
            ::munmap(const_cast<char*>(bytes), QZ_CHARSETS_PACKAGE_SIZE);
        return t.usable = bytes != nullptr;
    }
    const char* bytes = mapCheckedPackage(t.path + ".dat");
    if (bytes == nullptr)
        return t.usable = false;
    UErrorCode ec = U_ZERO_ERROR;
    udata_setAppData(kCharSetPackageName, bytes, &ec);
    t.registered = U_SUCCESS(ec);
    return t.usable = t.registered;
}

UConverter* cloneOf(const UConverter* cnv, UErrorCode* status) {
#if U_ICU_VERSION_MAJOR_NUM >= 71
    return ucnv_clone(cnv, status);
#else
    return ucnv_safeClone(cnv, nullptr, nullptr, status);
#endif
}

} // namespace

bool isPackagedCharSet(ULibCharSet cs) {
    const int n = static_cast<int>(cs & ~ULIB_CS_ESCAPE_FLAG);
    return n >= kFirst && n < kFirst + kRows;
}

const char* charSetPackagePath() {
    Templates& t = templates();
    std::lock_guard<std::mutex> hold(t.loadLock);
    if (!t.pathFound) {
        t.path = searchPackage();
        t.pathFound = true;
    }
    return t.path.c_str();
}

UConverter* openPackagedConverter(ULibCharSet cs, int* status) {
    UErrorCode ec = U_ZERO_ERROR;
    const int n = static_cast<int>(cs & ~ULIB_CS_ESCAPE_FLAG);
    const char* name = CharSetTable::toConverterName(ULibCharSet(n));
    if (!isPackagedCharSet(ULibCharSet(n)) || name == nullptr) {
        *status = U_ILLEGAL_ARGUMENT_ERROR;
        return nullptr;
    }
    Templates& t = templates();
    std::atomic<UConverter*>& slot = t.slots[n - kFirst];
    UConverter* model = slot.load(std::memory_order_acquire);
    if (model == nullptr) {
        std::lock_guard<std::mutex> hold(t.loadLock);
        model = slot.load(std::memory_order_relaxed);
        if (model == nullptr) {
            if (packageUsable(t))
                model = ucnv_openPackage(kCharSetPackageName, name, &ec);
            if (U_FAILURE(ec) || model == nullptr) {
                if (model != nullptr)
                    ucnv_close(model);
                model = failedMark();
            }
            slot.store(model, std::memory_order_release);
        }
    }
    if (model == failedMark()) {
        *status = U_FILE_ACCESS_ERROR;
        return nullptr;
    }
    ec = U_ZERO_ERROR;
    UConverter* cnv = cloneOf(model, &ec);
    *status = ec;
    if (U_FAILURE(ec) && cnv != nullptr) {
        ucnv_close(cnv);
        cnv = nullptr;
    }
    return cnv;
}

void resetCharSetPackageForTest(const char* path) {
    Templates& t = templates();
    std::lock_guard<std::mutex> hold(t.loadLock);
    for (std::atomic<UConverter*>& slot : t.slots) {
        UConverter* model = slot.exchange(nullptr);
        if (model != nullptr && model != failedMark())
            ucnv_close(model);
    }
    t.path = path != nullptr ? path : "";
    t.pathFound = path != nullptr;
    t.loaded = false;
    t.usable = false;
}

} // namespace detail
} // namespace qzunicode
} // namespace qzlib
} // namespace qzs
