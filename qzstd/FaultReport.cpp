//===- qzstd/FaultReport.cpp - Internal fault reporting -------------------===//
//
// Until catalogue messages exist, a fault is one line on standard error. The
// line is built first and written with one call so that lines from several
// threads do not interleave.
//
//===----------------------------------------------------------------------===//
#include "qzstd/FaultReport.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <unistd.h>

namespace qzs {
namespace qzlib {
namespace detail {

namespace {

void writeToStderr(const Fault& fault) {
    char line[1024];
    int n = std::snprintf(line, sizeof line, "qzlib message %u [%s %s:%d]: %s\n", fault.number,
                          fault.site.component ? fault.site.component : "",
                          fault.site.function ? fault.site.function : "", fault.site.line,
                          fault.arguments.c_str());
    if (n < 0)
        return;
    size_t len = static_cast<size_t>(n) < sizeof line ? static_cast<size_t>(n) : sizeof line - 1;
    ssize_t ignored = ::write(2, line, len);
    (void)ignored;
}

std::atomic<FaultSink> g_sink{&writeToStderr};

} // namespace

void reportFault(const FaultSite& site, unsigned int number, const std::string& arguments) noexcept {
    int savedErrno = errno;
    try {
        g_sink.load(std::memory_order_acquire)(Fault{site, number, arguments});
    } catch (...) {
        // A fault report must never become a second fault.
    }
    errno = savedErrno;
}

namespace {
void reportThreadFault(unsigned int number, int rc, const FaultSite& site) noexcept {
    try {
        char text[256];
        const char* msg = ::strerror_r(rc, text, sizeof text);
        reportFault(site, number, std::to_string(rc) + ", " + msg);
    } catch (...) {
    }
}
} // namespace

void reportThreadError(int rc, const FaultSite& site) noexcept {
    reportThreadFault(542, rc, site);
}

void reportThreadWarning(int rc, const FaultSite& site) noexcept {
    reportThreadFault(543, rc, site);
}

FaultSink setFaultSink(FaultSink sink) noexcept {
    return g_sink.exchange(sink ? sink : &writeToStderr, std::memory_order_acq_rel);
}

} // namespace detail
} // namespace qzlib
} // namespace qzs
