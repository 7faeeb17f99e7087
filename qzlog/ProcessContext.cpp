//===- qzlog/ProcessContext.cpp - What logging reads of its process -------===//
#include "qzlog/detail/ProcessContext.h"

#include <climits>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <unistd.h>

namespace qzs {
namespace qzlib {
namespace qzlog {
namespace ProcessContext {

namespace {

std::string readExecutableBase() {
    char path[PATH_MAX];
    ssize_t n = ::readlink("/proc/self/exe", path, sizeof path - 1);
    if (n <= 0)
        return "unknown";
    path[n] = '\0';
    const char* slash = std::strrchr(path, '/');
    return slash ? slash + 1 : path;
}

std::string readWorkingDirectory() {
    char path[PATH_MAX];
    if (!::getcwd(path, sizeof path))
        return "./";
    std::string dir = path;
    if (dir.empty() || dir.back() != '/')
        dir += '/';
    return dir;
}

} // namespace

std::string executableBase() {
    static const std::string base = readExecutableBase();
    return base;
}

std::string processId() {
    // Not cached: a forked child has its own.
    return std::to_string(::getpid());
}

std::string logDirectory() {
    static const std::string dir = readWorkingDirectory();
    return dir;
}

std::string dumpDirectory() {
    return logDirectory();
}

std::string appInstance() {
    return std::string();
}

} // namespace ProcessContext
} // namespace qzlog
} // namespace qzlib
} // namespace qzs
