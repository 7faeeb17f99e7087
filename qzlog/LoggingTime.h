//===- qzlog/LoggingTime.h - The cached clock ------------------*- C++ -*-===//
//
// Events read the time from a stamp that a background thread keeps fresh,
// so that logging takes no system call per event. The thread backs off when
// nobody reads the stamp and sleeps until the next reader wakes it.
//
//===----------------------------------------------------------------------===//
#ifndef QZLOG_LOGGINGTIME_H
#define QZLOG_LOGGINGTIME_H

#include "qzstd/Export.h"

#include "qzlog/LoggingEvent.h"

#include <atomic>
#include <cstdint>
#include <sys/time.h>
#include <time.h>

namespace qzs {
namespace qzlib {
namespace MultiThreading {
class Event;
}
namespace qzlog {

/// The clock of the logging path. All static.
///
/// A busy process sees a stamp at most about 1 ms old. A process that stops
/// logging backs off over 1, 8 and 64 ms and, after 8 unused ticks at 64 ms,
/// sleeps with no timer until a reader wakes it with a fresh stamp.
/// The back-off fields are relaxed atomics: a lost update only costs a late
/// back-off or one extra wake-up.
class QZ_API LoggingTime {
public:
    static void Initialize();
    /// Starts the "TimeThread" (not in single-threaded mode).
    static void Start();

    static void getCurrentTime(timeval32_t* out);
    static void getCurrentTime(timeval* out);
    static void getCurrentTime(timespec* out);
    /// Seconds since the epoch.
    static long getCurrentTime();
    static long time(long* out);
    /// Microseconds since start-up.
    static long getElapsedTime();

    /// A stamp as seconds and microseconds. Kept as it is: exactly 1,000,000
    /// microseconds is not carried.
    static void fromStamp(uint64_t stamp, timeval32_t* out) {
        uint32_t sec = static_cast<uint32_t>(stamp >> 32);
        uint32_t usec = static_cast<uint32_t>(stamp);
        while (usec > 1000000) {
            usec -= 1000000;
            sec += 1;
        }
        out->tv_sec = sec;
        out->tv_usec = usec;
    }

    /// Takes a fresh stamp from the system and stores it.
    static uint64_t setTimeStamp();
    /// The reader's path: the cached stamp, or a fresh one that wakes the
    /// sleeping time thread.
    static uint64_t wakeUpTimeThread();
    static unsigned int TimeThread(void*);

    /// Seconds in the upper 32 bits, microseconds in the lower.
    static std::atomic<uint64_t>* m_timeStamp;
    static uint64_t (*m_getTimeStamp)();
    static uint64_t m_startTime;
    static MultiThreading::Event* m_timerIdleEvent;
    static std::atomic<uint32_t> m_timerResolution;
    static std::atomic<uint32_t> m_timerUnused;
    static std::atomic<bool> m_timerUsed;
    static std::atomic<bool> m_timerIdle;
};

} // namespace qzlog
} // namespace qzlib
} // namespace qzs

#endif // QZLOG_LOGGINGTIME_H
