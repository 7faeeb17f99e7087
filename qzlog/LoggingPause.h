//===- qzlog/LoggingPause.h - Holding all output still ---------*- C++ -*-===//
//
// LoggingPause holds every logger's lock for its lifetime, so that no event
// gets past the loggers while a configuration is torn down and rebuilt.
// LoggingCallStack is a snapshot of the calling thread's stack as a log
// argument.
//
//===----------------------------------------------------------------------===//
#ifndef QZLOG_LOGGINGPAUSE_H
#define QZLOG_LOGGINGPAUSE_H

#include "qzstd/Export.h"

#include <string>
#include <vector>

namespace qzs {
namespace qzlib {
namespace qzlog {

class Logger;

/// Scope guard that takes every logger's lock, oldest first, and releases
/// them in the same order. Loggers made while it lives are not held. Log
/// calls read appender lists without those locks while nothing changes them,
/// so a pause first waits for the log calls under way on other threads.
/// REQUIRES: the thread holds no logger or appender lock when it starts
/// one (lock order: repository mutex, then logger locks), and neither logs
/// nor sets a level while the pause lives: a log call may deliver a full
/// buffer, and Logger::setLevel refolds the levels, and both take the
/// repository mutex, out of order behind the logger locks held here (a
/// concurrent flush would deadlock against it).
class QZ_API LoggingPause {
public:
    LoggingPause();
    ~LoggingPause();
    LoggingPause(const LoggingPause&) = delete;
    LoggingPause& operator=(const LoggingPause&) = delete;

private:
    std::vector<Logger*> m_loggers;
};

/// The calling thread's stack as text, one frame per line from the caller
/// of the constructor on; "<Unavailable>" when it cannot be read. Log it as
/// an argument: it stores as text.
class QZ_API LoggingCallStack {
public:
    LoggingCallStack();
    const char* data() const { return m_data; }
    /// The text's length plus its NUL.
    unsigned long size() const { return m_size; }

private:
    std::string m_text;
    const char* m_data;
    unsigned long m_size;
};

} // namespace qzlog
} // namespace qzlib
} // namespace qzs

#endif // QZLOG_LOGGINGPAUSE_H
