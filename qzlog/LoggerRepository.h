//===- qzlog/LoggerRepository.h - The tree of loggers ----------*- C++ -*-===//
//
// The process-wide repository that owns every logger, keyed by interned name
// pointer, and that folds the configured levels and the appenders'
// thresholds into each logger's effective byte. It is made on first touch,
// from any thread, and never destroyed.
//
//===----------------------------------------------------------------------===//
#ifndef QZLOG_LOGGERREPOSITORY_H
#define QZLOG_LOGGERREPOSITORY_H

#include "qzstd/Export.h"

#include <string>
#include <vector>

namespace qzs {
namespace qzlib {
namespace qzlog {

class Appender;
class Logger;
class LogBufferImpl;

/// Owner of the logger tree.
///
/// Lock order: repository mutex, then the name mutex; repository mutex, then
/// a logger's lock. The configuration lock is taken alone.
class QZ_API LoggerRepository {
public:
    LoggerRepository();
    ~LoggerRepository();
    LoggerRepository(const LoggerRepository&) = delete;
    LoggerRepository& operator=(const LoggerRepository&) = delete;

    /// Finds or makes the logger `name`, making every missing ancestor first.
    /// `level`, when given, becomes the new logger's effective byte; it is
    /// ignored for a logger that exists.
    Logger* getLogger(const char* name, unsigned char* level = nullptr);
    /// Linear walk under the repository mutex; null if absent.
    Logger* getLogger(unsigned short id);
    /// Logger `id` through the id map, with no lock; null if absent. Safe
    /// while holding logger locks.
    Logger* findLogger(unsigned short id);
    /// The interned name of logger `id`, with no lock; null if absent.
    const char* getLoggerName(unsigned short id);
    /// The logger or null. Takes no lock and interns `name` as a side effect:
    /// for use when loggers are not being made concurrently.
    Logger* exists(const char* name);
    Logger* getRootLogger();
    /// A snapshot of every logger, oldest first: the order in which locks
    /// over several loggers are taken.
    std::vector<Logger*> getCurrentLoggers();
    unsigned long getLoggerCount() const;
    /// The next event sequence number; the first is 1.
    unsigned int getEventSequence();

    /// A floor under every effective byte; initially ALL.
    void setThreshold(unsigned char threshold);
    unsigned char getThreshold() const { return threshold; }
    /// Recomputes every logger's effective byte: the largest of its inherited
    /// level, its appender threshold and the repository threshold. Does
    /// nothing until start-up is done.
    void recalculateEffectiveLevels();

    /// Registers a configuration callback once; fires the change event when
    /// it was not yet there.
    void addConfiguration(void (*callback)(LoggerRepository*));
    /// Removes the first occurrence; fires the change event if one went.
    void clearConfiguration(void (*callback)(LoggerRepository*));
    /// Whether the callback list changed since the last call; resets it.
    bool configurationChanged() const;

    /// The conventional search: applies the "xqz-" files of the logging
    /// directories, then (unless the directory layout is the legacy one and
    /// the application context has no "SCALoggingMode" item) the "sca-" files
    /// and the "app-<BuildApplication>" files. A call made while a search is
    /// under way (a file with "reset" in it) returns at once.
    void loadConfiguration();
    /// Back to the defaults, then the conventional search: flushes the
    /// buffers, closes and detaches every appender, sets the root to WARN and
    /// every other logger to INHERIT with additivity, runs loadConfiguration,
    /// then each configuration callback in order. The change event is reset
    /// after, so that this round is not itself seen as a change.
    void resetConfiguration();

    /// Replaces each occurrence of `from` by `to` in every logger.
    void replaceAppender(Appender* from, Appender* to);
    /// Closes each attached appender and empties every logger's list.
    void removeAllAppenders();

    /// Gives a finished buffer to every enabled appender that takes raw data,
    /// once for each logger it is attached to.
    void appendBuffer(const LogBufferImpl* buffer);

    /// Appends the report of loggers, totals and appenders.
    void getSummaryReport(std::string& out);

    /// Stops the configuration watch threads, turns every logger OFF, shuts
    /// the log buffer down, then closes and detaches every appender.
    /// REQUIRES: no logging lock held.
    void shutdown();

    /// The calling thread's name.
    const char* getThreadName();
    void setThreadName(const char* name);
    /// Frees the calling thread's logging context.
    void threadComplete();

    /// Creates the root and adopts any parentless logger.
    static void Initialize();

    struct Impl;
    Impl* impl;
    unsigned char threshold;
};

} // namespace qzlog
} // namespace qzlib
} // namespace qzs

#endif // QZLOG_LOGGERREPOSITORY_H
