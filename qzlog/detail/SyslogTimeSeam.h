//===- qzlog/detail/SyslogTimeSeam.h - The time text of a datagram -*- C++ -*-===//
//
// A syslog datagram carries its event's time in the task-time text form, but
// TaskTime lives on the top floor, above the logging core. The appender
// reaches it through the one call declared here, which app/qzadmin defines:
// the library links as one unit, so the call is always bound.
//
//===----------------------------------------------------------------------===//
#ifndef QZLOG_DETAIL_SYSLOGTIMESEAM_H
#define QZLOG_DETAIL_SYSLOGTIMESEAM_H

#include <ctime>
#include <string>

namespace qzs {
namespace qzlib {
namespace qzlog {
namespace detail {

/// Appends the local-time text of `eventTime` (TaskTime::asLocalString) to
/// `out`. Reads the process's zone as set by tzset; allocates nothing once
/// `out` has room.
void syslogTimeText(const timespec& eventTime, std::string& out);

} // namespace detail
} // namespace qzlog
} // namespace qzlib
} // namespace qzs

#endif // QZLOG_DETAIL_SYSLOGTIMESEAM_H
