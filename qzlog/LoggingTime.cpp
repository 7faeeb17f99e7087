//===- qzlog/LoggingTime.cpp - The cached clock ---------------------------===//
#include "qzlog/LoggingTime.h"

#include "qzlog/detail/LogBuffer.h"
#include "qzlog/detail/LogThreadContext.h"
#include "qzlog/Logger.h"
#include "qzstd/Event.h"
#include "qzstd/Thread.h"

#include <pthread.h>

namespace qzs {
namespace qzlib {
namespace qzlog {

using MultiThreading::Event;

std::atomic<uint64_t>* LoggingTime::m_timeStamp = nullptr;
uint64_t (*LoggingTime::m_getTimeStamp)() = nullptr;
uint64_t LoggingTime::m_startTime = 0;
Event* LoggingTime::m_timerIdleEvent = nullptr;
std::atomic<uint32_t> LoggingTime::m_timerResolution{1};
std::atomic<uint32_t> LoggingTime::m_timerUnused{0};
std::atomic<bool> LoggingTime::m_timerUsed{false};
std::atomic<bool> LoggingTime::m_timerIdle{false};

namespace {
constexpr auto relaxed = std::memory_order_relaxed;

uint64_t stampNow() {
    // Until start-up has made the stamp, every reader takes the time itself.
    timeval now;
    gettimeofday(&now, nullptr);
    return (static_cast<uint64_t>(now.tv_sec) << 32) + static_cast<uint64_t>(now.tv_usec);
}

uint64_t currentStamp() {
    uint64_t (*get)() = LoggingTime::m_getTimeStamp;
    return get ? get() : stampNow();
}
} // namespace

uint64_t LoggingTime::setTimeStamp() {
    uint64_t stamp = stampNow();
    if (m_timeStamp) {
        uint64_t seen = m_timeStamp->load(relaxed);
        // Never move the stamp backwards past a fresher one stored meanwhile.
        while (seen < stamp && !m_timeStamp->compare_exchange_weak(seen, stamp, relaxed))
            ;
    }
    return stamp;
}

void LoggingTime::Initialize() {
    m_getTimeStamp = qzlogIsSingleThreaded() ? &LoggingTime::setTimeStamp : &LoggingTime::wakeUpTimeThread;
    m_timeStamp = new std::atomic<uint64_t>(0);
    uint64_t first = setTimeStamp();
    m_startTime = (first >> 32) * 1000000ull + (first & 0xFFFFFFFFull);
    if (!qzlogIsSingleThreaded())
        m_timerIdleEvent = new Event(Event::AutoReset);
    // A child made by fork has no clock thread: its readers take the time
    // themselves, or every event of the child would carry the fork's time.
    pthread_atfork(nullptr, nullptr, [] { m_getTimeStamp = &LoggingTime::setTimeStamp; });
}

void LoggingTime::Start() {
    if (qzlogIsSingleThreaded())
        return;
    // The clock thread runs detached to the end of the process; nothing
    // joins it, and its Thread object is kept for ever.
    static MultiThreading::Thread* const thread =
        new MultiThreading::Thread(&LoggingTime::TimeThread, "TimeThread", MultiThreading::Detached);
    thread->Start(nullptr);
}

uint64_t LoggingTime::wakeUpTimeThread() {
    if (m_timerIdle.load(relaxed)) {
        m_timerIdleEvent->Fire();
        uint64_t stamp = setTimeStamp();
        m_timerUsed.store(true, relaxed);
        return stamp;
    }
    uint64_t stamp = m_timeStamp->load(relaxed);
    // Only write the shared flag when it changes, so that busy threads do not
    // keep pulling its cache line away from each other.
    if (!m_timerUsed.load(relaxed))
        m_timerUsed.store(true, relaxed);
    return stamp;
}

unsigned int LoggingTime::TimeThread(void*) {
    pthread_setname_np(pthread_self(), "TimeThread");
    while (LogBufferImpl::m_state.load(std::memory_order_acquire) < 3) {
        unsigned int wait = m_timerIdle.load(relaxed) ? 0 : m_timerResolution.load(relaxed);
        if (m_timerIdleEvent->Wait(wait)) {
            m_timerIdle.store(false, relaxed);
            m_timerUnused.store(0, relaxed);
            m_timerResolution.store(1, relaxed);
        }
        setTimeStamp();
        if (m_timerUsed.load(relaxed)) {
            m_timerUsed.store(false, relaxed);
            m_timerUnused.store(0, relaxed);
            m_timerResolution.store(1, relaxed);
            continue;
        }
        uint32_t unused = m_timerUnused.load(relaxed) + 1;
        m_timerUnused.store(unused, relaxed);
        if (unused < 8)
            continue;
        uint32_t resolution = m_timerResolution.load(relaxed);
        if (resolution > 63) {
            m_timerIdle.store(true, relaxed);
        } else {
            m_timerUnused.store(0, relaxed);
            m_timerResolution.store(resolution * 8, relaxed);
        }
    }
    return 0;
}

void LoggingTime::getCurrentTime(timeval32_t* out) {
    fromStamp(currentStamp(), out);
}

void LoggingTime::getCurrentTime(timeval* out) {
    timeval32_t t;
    getCurrentTime(&t);
    out->tv_sec = t.tv_sec;
    out->tv_usec = t.tv_usec;
}

void LoggingTime::getCurrentTime(timespec* out) {
    timeval32_t t;
    getCurrentTime(&t);
    out->tv_sec = t.tv_sec;
    out->tv_nsec = static_cast<long>(t.tv_usec) * 1000;
}

long LoggingTime::getCurrentTime() {
    timeval32_t t;
    getCurrentTime(&t);
    return t.tv_sec;
}

long LoggingTime::time(long* out) {
    long now = getCurrentTime();
    if (out)
        *out = now;
    return now;
}

long LoggingTime::getElapsedTime() {
    timeval32_t t;
    getCurrentTime(&t);
    return static_cast<long>(static_cast<uint64_t>(t.tv_sec) * 1000000ull + t.tv_usec - m_startTime);
}

} // namespace qzlog
} // namespace qzlib
} // namespace qzs
