//===- qzstd/Installation.cpp - Installation directory --------------------===//
//
// The directory comes from the link /proc/self/exe and is resolved through
// realpath. When the link cannot be read the working directory stands in,
// and when it cannot be resolved its unresolved text does; either way the
// program is told so on standard output.
//
//===----------------------------------------------------------------------===//
#include "qzstd/Installation.h"

#include "qzstd/Path.h"
#include "qzstd/detail/FileSupport.h"

#include <climits>
#include <cstdio>
#include <cstring>
#include <string>
#include <unistd.h>

using namespace qzs::qzlib::detail::file;

namespace {

std::string computeProcessExecutable() {
    char path[PATH_MAX];
    ssize_t n = ::readlink("/proc/self/exe", path, sizeof path - 1);
    if (n < 1)
        return std::string();
    return std::string(path, static_cast<size_t>(n));
}

std::string computeProcessExecutableDir() {
    const char* path = qzGetProcessExecutable();
    const char* slash = std::strrchr(path, '/');
    const char* backslash = std::strrchr(path, '\\');
    const char* last = slash;
    if (backslash && (!last || backslash > last))
        last = backslash;
    return last ? std::string(path, static_cast<size_t>(last - path)) : std::string();
}

std::string computeInstallationDir() {
    std::string executableDir = qzGetProcessExecutableDir();
    QZ_FILE_LOG(fileLog, Level::Debug, "ProcessExecutableDir: \"%s\"", executableDir);
    std::string result;
    if (executableDir.empty()) {
        char cwd[PATH_MAX];
        if (::getcwd(cwd, sizeof cwd)) {
            result = cwd;
            std::printf("Missing path prefix in cmd line, use cwd: %s\n", cwd);
        }
    } else {
        char resolved[PATH_MAX];
        if (qzGetRealPath(executableDir.c_str(), resolved, nullptr)) {
            result = resolved;
        } else {
            result = executableDir;
            std::printf("Best guess executable path: %s\n", executableDir.c_str());
        }
    }
    QZ_FILE_LOG(fileLog, Level::Info, "XQZ installation path: \"%s\"", result);
    return result;
}

} // namespace

char const* qzGetProcessExecutable() {
    static const std::string executable = computeProcessExecutable();
    return executable.c_str();
}

char const* qzGetProcessExecutableDir() {
    static const std::string directory = computeProcessExecutableDir();
    return directory.c_str();
}

char const* qzGetRealInstallationDir() {
    static const std::string directory = computeInstallationDir();
    return directory.c_str();
}

char const* qzGetInstallationDir() {
    return qzGetRealInstallationDir();
}
