//===- qzstd/LoggingSeam.cpp - How the bottom floor logs ------------------===//
//
// One pointer, set by the logging core when it is up. Readers load it with
// acquire, so a seam seen is a seam fully built.
//
//===----------------------------------------------------------------------===//
#include "qzstd/LoggingSeam.h"

namespace qzs {
namespace qzlib {
namespace detail {

namespace {
// Constant-initialised: readable by static initialisers of any order.
std::atomic<const LoggingSeam*> g_seam{nullptr};
} // namespace

void setLoggingSeam(const LoggingSeam* seam) noexcept {
    g_seam.store(seam, std::memory_order_release);
}

const LoggingSeam* loggingSeam() noexcept {
    return g_seam.load(std::memory_order_acquire);
}

void currentTime(timespec* now) noexcept {
    const LoggingSeam* seam = loggingSeam();
    if (seam)
        seam->currentTime(now);
    else
        ::clock_gettime(CLOCK_REALTIME, now);
}

} // namespace detail
} // namespace qzlib
} // namespace qzs
