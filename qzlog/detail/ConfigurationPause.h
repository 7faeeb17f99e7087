//===- qzlog/detail/ConfigurationPause.h - Holding logging still for a load -*- C++ -*-===//
//
// A configuration load changes appenders, levels and loggers while other
// threads log. It holds every lock those threads could be waiting in, in the
// order they take them, so that a load and a log call never wait on each
// other crosswise. Not installed.
//
//===----------------------------------------------------------------------===//
#ifndef QZLOG_DETAIL_CONFIGURATIONPAUSE_H
#define QZLOG_DETAIL_CONFIGURATIONPAUSE_H

#include <atomic>
#include <vector>

namespace qzs {
namespace qzlib {
namespace qzlog {

class Logger;
class LogThreadContext;

/// Loggers' appender lists change only inside such a scope. A thread inside
/// its own log call reads them without the loggers' locks while no change is
/// under way; the outermost scope on a thread counts itself in, then waits
/// until the log calls of other threads under way have ended (later ones see
/// the count and take the locks). Nests on a thread.
///
/// REQUIRES: the outermost scope starts with no logging lock held (context,
/// delivery, repository, logger or appender): the calls it waits for may
/// need any of them.
class AppenderListChange {
public:
    AppenderListChange() { begin(); }
    ~AppenderListChange() { end(); }
    /// The same without a scope, for guards that keep no state of their own.
    static void begin();
    static void end();
    AppenderListChange(const AppenderListChange&) = delete;
    AppenderListChange& operator=(const AppenderListChange&) = delete;

    /// True while no change is under way anywhere. Read by a log call
    /// inside its section; see Logger::doAppend.
    static bool listsSteady() { return s_changes.load(std::memory_order_seq_cst) == 0; }

private:
    static std::atomic<unsigned int> s_changes;
};

/// Scope guard for a configuration load. Takes, in this order: an AppenderListChange,
/// the calling thread's own log context mutex, the buffer delivery mutex, the
/// repository mutex, then every logger's lock in tree order; releases them in reverse.
///
/// Why not LoggingPause alone: a load makes loggers and refolds levels,
/// which take the repository mutex, and a thread whose buffer fills holds
/// its context and the delivery mutex and then wants the repository mutex
/// and its loggers' locks. Taking the logger locks first would deadlock with
/// it. All the locks are recursive, so the loading thread may log (a
/// message about the file it reads) and make loggers while it holds them.
///
/// REQUIRES: the thread holds no other logging lock when the outermost one
/// starts. Pauses nest on a thread; only the outermost takes the locks.
/// Buffers must be flushed before the outermost pause, never inside one
/// (flushing takes other threads' context mutexes): see insidePause().
class ConfigurationPause {
public:
    ConfigurationPause();
    ~ConfigurationPause();
    ConfigurationPause(const ConfigurationPause&) = delete;
    ConfigurationPause& operator=(const ConfigurationPause&) = delete;

    /// Whether the calling thread holds a pause now.
    static bool insidePause();

private:
    AppenderListChange m_change;
    bool m_outermost;
    LogThreadContext* m_context;
    std::vector<Logger*> m_loggers;
};

} // namespace qzlog
} // namespace qzlib
} // namespace qzs

#endif // QZLOG_DETAIL_CONFIGURATIONPAUSE_H
