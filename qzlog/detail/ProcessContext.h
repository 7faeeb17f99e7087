//===- qzlog/detail/ProcessContext.h - What logging reads of its process -*- C++ -*-===//
//
// The few application context items that file names and activity files are
// built from. Until the application context publishes them, each is derived
// from the process itself; this file is the one place that changes when the
// context takes over.
//
//===----------------------------------------------------------------------===//
#ifndef QZLOG_DETAIL_PROCESSCONTEXT_H
#define QZLOG_DETAIL_PROCESSCONTEXT_H

#include <string>

namespace qzs {
namespace qzlib {
namespace qzlog {
namespace ProcessContext {

/// The executable's file name without its directory ("ProcessExecutableBase").
std::string executableBase();
/// The process id in decimal ("ProcessID").
std::string processId();
/// The directory for log files, with a trailing '/' ("DirProcessLog"):
/// the working directory at the first call.
std::string logDirectory();
/// The directory for dumps and activity files, with a trailing '/'
/// ("DirProcessDmp"): the same as the log directory.
std::string dumpDirectory();
/// The application instance name ("AppInstance"); empty when none is known.
std::string appInstance();

} // namespace ProcessContext
} // namespace qzlog
} // namespace qzlib
} // namespace qzs

#endif // QZLOG_DETAIL_PROCESSCONTEXT_H
