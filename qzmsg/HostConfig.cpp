//===- qzmsg/HostConfig.cpp - What a host tells the message layer ---------===//
#include "qzmsg/HostConfig.h"

#include "qzstd/DynaLoad.h"
#include "qzstd/Mutex.h"

#include <atomic>

namespace qzs {
namespace qzlib {

namespace {
std::atomic<bool> g_looked{false};
QzHostConfig* g_config = nullptr;
MultiThreading::Mutex* lookupLock() {
    static auto* lock = new MultiThreading::Mutex(MultiThreading::Mutex::Recursive);
    return lock;
}
} // namespace

QzHostConfig* getHostConfig() {
    if (g_looked.load(std::memory_order_acquire))
        return g_config;
    MultiThreading::ScopedLock guard(lookupLock());
    if (!g_looked.load(std::memory_order_relaxed)) {
        if (auto get = qzFindHostFunction<QzHostConfig* (*)()>("_qzGetConfig"))
            g_config = get();
        g_looked.store(true, std::memory_order_release);
    }
    return g_config;
}

FILE* getReportStream() {
    QzHostConfig* config = getHostConfig();
    return config && config->reportStream ? config->reportStream : stdout;
}

} // namespace qzlib
} // namespace qzs
