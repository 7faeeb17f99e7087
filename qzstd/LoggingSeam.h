//===- qzstd/LoggingSeam.h - How the bottom floor logs ---------*- C++ -*-===//
//
// The threads, pools and utilities of this floor log their own records, but
// the logging core sits above them and is built on them. They reach it through
// this seam: the core installs its entry points once it is up, and until then
// every record is dropped and the clock is read from the system. Nothing here
// includes a logging header. Hosts have no use for it; it is installed only
// because the pool templates log through it.
//
//===----------------------------------------------------------------------===//
#ifndef QZSTD_LOGGINGSEAM_H
#define QZSTD_LOGGINGSEAM_H

#include "qzstd/Export.h"

#include <atomic>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <string>

namespace qzs {
namespace qzlib {
namespace qzlog {
class Logger;
}
namespace detail {

/// The level bytes this floor logs at, on the logging core's scale (which
/// checks at start-up that they still agree).
namespace LogLevel {
constexpr unsigned char Debug = 143;
constexpr unsigned char Info = 191;
constexpr unsigned char Error = 239;
constexpr unsigned char Fatal = 254;
} // namespace LogLevel

/// As an argument: the calling thread's call stack, rendered by the logging
/// core as its call stack text.
struct LogCallStack {};

/// One argument of a record, typed by the letter the logging core stores it
/// under: 'j' int, 'k' unsigned int, 'm' long, 'n' unsigned long, 'f' float,
/// 'p' pointer, 's' text with its NUL; or CallStack, which the core renders.
/// Scalars are held by value, text is borrowed and must outlive the call.
class LogArg {
public:
    static constexpr uint32_t CallStack = 0;

    LogArg(int v) : type('j'), size(4), text(nullptr) { value.i = v; }
    LogArg(unsigned int v) : type('k'), size(4), text(nullptr) { value.u = v; }
    LogArg(long v) : type('m'), size(8), text(nullptr) { value.l = v; }
    LogArg(unsigned long v) : type('n'), size(8), text(nullptr) { value.ul = v; }
    LogArg(double v) : type('f'), size(4), text(nullptr) { value.f = static_cast<float>(v); }
    LogArg(const char* v) : type('s'), size(v ? std::strlen(v) + 1 : 6), text(v ? v : "<nul>") {}
    LogArg(const std::string& v) : type('s'), size(v.size() + 1), text(v.c_str()) {}
    LogArg(const void* v) : type('p'), size(8), text(nullptr) {
        value.p = reinterpret_cast<uintptr_t>(v);
    }
    LogArg(LogCallStack) : type(CallStack), size(0), text(nullptr) { value.p = 0; }
    LogArg(const LogArg&) = delete;
    LogArg& operator=(const LogArg&) = delete;

    uint32_t getType() const { return type; }
    unsigned long getSize() const { return size; }
    /// The stored bytes: the text, or the held scalar.
    const void* getBytes() const { return text ? static_cast<const void*>(text) : &value; }

private:
    uint32_t type;
    unsigned long size;
    const char* text;
    union {
        int32_t i;
        uint32_t u;
        int64_t l;
        uint64_t ul;
        float f;
        uint64_t p;
    } value;
};

/// What the logging core gives this floor. Every entry is set.
struct LoggingSeam {
    /// The logger of that dotted name, made if new; the name is copied. Null
    /// when asked from inside a log call, where the record would be dropped
    /// and making a logger would break the lock order: ask again later.
    qzlog::Logger* (*getLogger)(const char* name);
    /// The logger's inline test: at or above its effective level.
    bool (*isEnabledFor)(const qzlog::Logger* logger, unsigned char level);
    /// Logs one record. `file`, `function` and `format` must be string
    /// literals: the core keeps their pointers for ever.
    void (*log)(qzlog::Logger* logger, const char* file, const char* function, unsigned short line,
                unsigned char level, const char* format, const LogArg* const* args,
                unsigned int count);
    /// The core's cached clock.
    void (*currentTime)(timespec* now);
    /// Writes every thread's activity buffer to its dump file (a fatal
    /// error is about to end the process).
    void (*saveAllBuffers)();
    /// Shuts the logger repository down: every logger off, the buffers
    /// flushed, the appenders closed.
    void (*shutdownRepository)();
};

/// Installs the core's entry points, or with null removes them. The seam
/// must stay valid for the rest of the process.
QZ_API void setLoggingSeam(const LoggingSeam* seam) noexcept;
/// The installed seam, or null while the logging core is not up.
QZ_API const LoggingSeam* loggingSeam() noexcept;
/// The core's cached clock once it is up, the system's real-time clock before.
QZ_API void currentTime(timespec* now) noexcept;

// Points at the held arguments and hands them to the core.
template <typename... Held>
void logHeld(const LoggingSeam* seam, qzlog::Logger* logger, const char* file, const char* function,
             unsigned short line, unsigned char level, const char* format, const Held&... held) {
    const LogArg* args[sizeof...(Held) + 1] = {&held..., nullptr};
    seam->log(logger, file, function, line, level, format, args, sizeof...(Held));
}

/// Logs a record to `logger`, one the caller was handed, when the core is up
/// and the logger is enabled for `level`; a null logger drops it. Arguments
/// of the types LogArg takes; `file`, `function` and `format` must be string
/// literals, as for the seam's `log`.
template <typename... Args>
void logTo(qzlog::Logger* logger, const char* file, const char* function, unsigned short line,
           unsigned char level, const char* format, const Args&... args) {
    const LoggingSeam* seam = loggingSeam();
    if (!logger || !seam || !seam->isEnabledFor(logger, level))
        return;
    logHeld(seam, logger, file, function, line, level, format, LogArg(args)...);
}

/// A logger looked up by name the first time it is wanted after the logging
/// core is up, and kept from then on. Before that it is null and its records
/// are dropped, so it is safe in static storage, in pools made before start-up
/// and in threads that run while the core comes up. Thread-safe: two first
/// calls look up the same logger.
class LazyLogger {
public:
    /// `name` must outlive the object (a literal, in practice).
    constexpr explicit LazyLogger(const char* loggerName) : name(loggerName), logger(nullptr) {}
    LazyLogger(const LazyLogger&) = delete;
    LazyLogger& operator=(const LazyLogger&) = delete;

    /// The logger, or null while the logging core is not up.
    qzlog::Logger* get() const {
        qzlog::Logger* l = logger.load(std::memory_order_acquire);
        if (l)
            return l;
        const LoggingSeam* seam = loggingSeam();
        if (!seam)
            return nullptr;
        l = seam->getLogger(name);
        logger.store(l, std::memory_order_release);
        return l;
    }

    /// False while the logging core is not up.
    bool isEnabledFor(unsigned char level) const {
        qzlog::Logger* l = get();
        return l && loggingSeam()->isEnabledFor(l, level);
    }

    /// Logs a record when enabled. Arguments of the types LogArg takes.
    template <typename... Args>
    void log(const char* file, const char* function, unsigned short line, unsigned char level,
             const char* format, const Args&... args) const {
        logTo(get(), file, function, line, level, format, args...);
    }

private:
    const char* name;
    mutable std::atomic<qzlog::Logger*> logger;
};

} // namespace detail
} // namespace qzlib
} // namespace qzs

/// Logs through a LazyLogger from this floor, naming `file` as the source.
#define QZ_SEAM_LOG(lazy, file, function, level, ...)                                              \
    do {                                                                                           \
        if ((lazy).isEnabledFor(level))                                                            \
            (lazy).log(file, function, __LINE__, level, __VA_ARGS__);                              \
    } while (0)

#endif // QZSTD_LOGGINGSEAM_H
