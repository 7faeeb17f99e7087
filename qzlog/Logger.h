//===- qzlog/Logger.h - A named node of the logger tree --------*- C++ -*-===//
//
// A Logger is one named node of the dotted logger tree, with its configured
// level, the one effective-level byte that every log call tests, its
// appenders and its additivity. The repository owns every logger.
//
// The road of a statement: the caller's inline guard tests the effective byte
// and m_retraceEventMask before any argument is evaluated (see LogMacros.h);
// log() tests again, guards against recursion, builds the event on the stack
// with its arguments stored raw, and doAppend() walks towards the root. A
// statement of plain arguments (LogArg) does all of that in one call,
// logPacked().
//
//===----------------------------------------------------------------------===//
#ifndef QZLOG_LOGGER_H
#define QZLOG_LOGGER_H

#include "qzstd/Export.h"

#include "qzlog/Level.h"
#include "qzlog/LoggingEvent.h"
#include "qzstd/Mutex.h"

#include <atomic>
#include <cstdint>
#include <vector>

namespace qzs {
namespace qzlib {
namespace qzlog {

class Appender;
class LogThreadContext;
class LoggerRepository;

/// Brings the framework up once; safe from any thread and before main.
QZ_API void qzlogInitialize();
QZ_API void _qzlogInitialize();
QZ_API void _qzlogStart();
QZ_API void _qzlogTerminate();
/// True once the framework's start-up has run.
QZ_API bool qzlogInitialized();
/// Always false in this library; both branches stay in the code that tests it.
QZ_API bool qzlogIsSingleThreaded();

/// A node of the logger tree.
///
/// Thread safety: log() may run on every thread at once. The effective byte
/// is read without a lock; a stale read costs one event more or less.
/// `lock` guards the appender list. A change to any logger's list (attach,
/// detach, replace, a reload) first waits for the log calls under way on
/// other threads; a log call offers its event to the appenders without
/// `lock` while no change is under way, and under it otherwise. A
/// LoggingPause counts as a change, so no event gets past a paused logger.
/// REQUIRES: the thread that changes a list holds no logging lock. Lock order: logger lock, then an
/// appender's lock; ancestors' locks are taken one at a time, never nested.
class QZ_API Logger {
public:
    /// A logger whose effective byte is its own `ownLevelByte`.
    Logger(unsigned short id, const char* name);
    /// A logger whose effective byte is the caller's `level`, which the
    /// caller may then test inline without touching the logger.
    Logger(unsigned short id, const char* name, unsigned char& level);
    virtual ~Logger();
    Logger(const Logger&) = delete;
    Logger& operator=(const Logger&) = delete;

    /// The repository; starts the framework when it is not yet up.
    static LoggerRepository& getRepository();

    /// The interned full name; "" for the root.
    const char* getName() const;
    /// getName() + "." + leaf, from the repository. Kept on purpose: on the
    /// root this gives a name with a leading dot (".x"), a child of the root.
    Logger* getChild(const char* leaf) const;

    /// Attaches `appender` (no duplicate check). The logger does not own it.
    /// Kept on purpose: levels are not recalculated. The effective level folds
    /// in the thresholds of the appenders in reach, so after setLevel on a
    /// logger with no appender in reach yet, events below WARN stay off until
    /// getRepository().recalculateEffectiveLevels() runs: call it after
    /// adding appenders, or add them before setLevel.
    void addAppender(Appender& appender);
    /// First attached appender whose name equals `name`, else null.
    Appender* getAppender(const char* name);
    bool isAttached() const;
    bool isAttached(Appender& appender);
    /// Removes every occurrence; true if at least one went. Closes nothing.
    bool removeAppender(Appender& appender);
    bool removeAppender(const char* name);
    /// Empties the list; closes and deletes nothing.
    void removeAllAppenders();
    /// A copy of the attached list, taken under `lock`.
    std::vector<Appender*> getAllAppenders();
    /// Gives a finished buffer to each attached appender that takes raw data.
    void deliverBuffer(unsigned int eventCount, const void* data, unsigned int size);
    /// Replaces each occurrence of `from` by `to`.
    void replaceAppender(Appender* from, Appender* to);

    void setAdditivity(bool additive);
    bool getAdditivity() const;

    /// The lowest threshold of the enabled appenders in reach (this logger
    /// and, while additivity holds, its ancestors). Kept on purpose: starts
    /// from WARN (223), so with no appender in reach the answer is 223 and a
    /// threshold above 223 never raises it.
    unsigned char getAppenderThreshold() const;

    /// Stores the configured level, writes it straight into the effective
    /// byte, then has the repository recalculate every effective byte.
    void setLevel(unsigned char level);
    unsigned char getLevel() const { return __atomic_load_n(&level, __ATOMIC_RELAXED); }
    unsigned char getEffectiveLevel() const { return __atomic_load_n(effectiveLevel, __ATOMIC_RELAXED); }

    /// The inline test of the macros: at or above the effective byte, and no
    /// retrace mask set.
    bool isEnabledFor(unsigned char lvl) const {
        return lvl >= __atomic_load_n(effectiveLevel, __ATOMIC_RELAXED) &&
               __atomic_load_n(&m_retraceEventMask, __ATOMIC_RELAXED) == 0;
    }

    /// Logs one event. `file`, `function` and `format` must be string
    /// literals: their pointers are kept for ever, and the source file is
    /// keyed by its pointer. Up to 16 arguments of the types LoggingEvent
    /// stores. errno is left as it was. A call from inside another log call
    /// on the same thread (an appender or a layout logging) is dropped.
    template <typename... Args>
    void log(const char* const& file, const char* const& function, unsigned short line,
             unsigned char lvl, const char* const& format, const Args&... args) {
        static_assert(sizeof...(Args) <= LoggingEvent::MaxDetails, "at most 16 log arguments");
        if (!isEnabledFor(lvl))
            return;
        if constexpr ((LogArg::Packs<Args>::value && ...)) {
            // The usual statement: its arguments packed on the stack, and the
            // whole event made in one call.
            const LogArg packed[sizeof...(Args) ? sizeof...(Args) : 1] = {LogArg::of(args)...};
            logPacked(file, function, line, lvl, format, packed, static_cast<unsigned short>(sizeof...(Args)));
        } else {
            LoggingRecursionCheck guard;
            if (!guard.buffer)
                return;
            LoggingEvent event(guard.buffer, format, file, function, line,
                               static_cast<unsigned short>(sizeof...(Args)), id, lvl);
            (event.addArg(args), ...);
            event.setBufferLocation(guard.buffer);
            doAppend(&event);
        }
    }

    /// log() with its arguments packed: the same event, stored the same way.
    void logPacked(const char* file, const char* function, unsigned short line, unsigned char lvl,
                   const char* format, const LogArg* args, unsigned short count);

    /// Offers `event` to this logger's appenders and, while additivity holds,
    /// to its ancestors'; counts it once in eventsLogged.
    void doAppend(const LoggingEvent* event);

    /// Drops a log call made while this thread is already inside one, and
    /// keeps errno as it was across the call.
    class LoggingRecursionCheck {
    public:
        LoggingRecursionCheck();
        ~LoggingRecursionCheck();
        LoggingRecursionCheck(const LoggingRecursionCheck&) = delete;
        LoggingRecursionCheck& operator=(const LoggingRecursionCheck&) = delete;
        LogBuffer* buffer;
        LogThreadContext* context;
    };

    /// Makes the repository singleton.
    static void Initialize();

    static LoggerRepository* m_repository;
    /// While not 0, no event is logged at all. Read by the inline guards with
    /// relaxed atomic loads: a plain load on this platform.
    static uint32_t m_retraceEventMask;

    struct Impl;

    Logger* parent;
    Impl* impl;
    /// Guards the appender list. A FastMutex: every event that meets an
    /// appender of this logger takes it.
    MultiThreading::FastMutex lock;
    unsigned short id;
    unsigned char ownLevelByte;
    unsigned char* effectiveLevel;
    unsigned char level;
    /// The counts of threads that have ended (see getEventsLogged): a live
    /// thread counts in its own context, with no shared write per event.
    std::atomic<uint64_t> eventsLogged;
    uint64_t eventsIssued;

    /// Events that began at this logger, over the life of the process.
    uint64_t getEventsLogged() const;
    /// Events offered to this logger's appenders, one per appender attached
    /// at the time, whether or not the appender took the event.
    uint64_t getEventsIssued() const;
    /// Has every logger count again which of its appenders take text; an
    /// appender whose layout changed between text and raw data calls it.
    static void appenderKindsChanged();
};

} // namespace qzlog
} // namespace qzlib
} // namespace qzs

#endif // QZLOG_LOGGER_H
