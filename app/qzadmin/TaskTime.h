//===- app/qzadmin/TaskTime.h - A moment or a span for scheduling -*- C++ -*-===//
//
// TaskTime is the one time value of task scheduling: a count of seconds and
// microseconds that is a span while it is below 1000 days and a moment (since
// the epoch) from there on. The same arithmetic, comparisons and text forms
// serve both, so a schedule adds a span to a moment without asking which is
// which.
//
//===----------------------------------------------------------------------===//
#ifndef APP_QZADMIN_TASKTIME_H
#define APP_QZADMIN_TASKTIME_H

#include "qzstd/Export.h"
#include "qzstd/TimeConversion.h"

#include <ctime>
#include <string>
#include <sys/time.h>

class JsonValue;

namespace qzs {
namespace qzAdmin {

/// A moment or a span, told apart by its size alone.
///
/// Invariant: `microseconds` is below 1,000,000 after every constructor and
/// operator. A value with `seconds` at most 86,399,999 is a span (kept on
/// purpose: so no moment before 1972-09-04 can be held as a moment). Sums
/// and differences wrap at 64 bits rather than trap; a difference that goes
/// below zero is a negative span.
///
/// Thread safety: a plain value. The local forms (asLocalString,
/// truncateTime, localtime) read the process's zone, which tzset must have
/// set. Bad texts and timestamps never throw: they log to "qzadmin.TaskTime"
/// and leave the value 0, an empty span.
class QZ_API TaskTime {
public:
    /// The largest span, in seconds: just under 1000 days.
    static constexpr long MaxIntervalSeconds = 86399999L;

    /// Now, from the logging core's cached clock.
    TaskTime();
    /// Whole seconds.
    TaskTime(unsigned int seconds);
    /// Whole seconds of the smaller unit are carried into `seconds`.
    TaskTime(long seconds, unsigned int microseconds);
    TaskTime(timeval const& time);
    /// Nanoseconds are cut to microseconds.
    TaskTime(timespec const& time);
    /// From local calendar fields (as the date entry readers produce them);
    /// fields that give no valid moment give 0, logged as a bad timestamp.
    TaskTime(time_elt_def const& fields);

    TaskTime& operator=(unsigned int seconds);

    /// Sets the value to now, from the logging core's cached clock.
    void refresh();

    bool isInterval() const { return seconds <= MaxIntervalSeconds; }
    explicit operator bool() const { return seconds != 0 || microseconds != 0; }
    bool operator!() const { return seconds == 0 && microseconds == 0; }

    TaskTime& operator+=(TaskTime const& other);
    TaskTime& operator+=(unsigned int seconds);
    TaskTime& operator-=(TaskTime const& other);
    TaskTime& operator-=(unsigned int seconds);
    TaskTime operator+(TaskTime const& other) const;
    TaskTime operator+(unsigned int seconds) const;
    TaskTime operator-(TaskTime const& other) const;
    TaskTime operator-(unsigned int seconds) const;

    bool operator<(TaskTime const& other) const;
    bool operator>(TaskTime const& other) const { return other < *this; }
    bool operator<=(TaskTime const& other) const { return !(other < *this); }
    bool operator>=(TaskTime const& other) const { return !(*this < other); }

    /// Nanoseconds from now until this value; 0 when it is not later than
    /// now (every span is).
    long untilNanoSeconds() const;
    /// Drops the microseconds and rounds down to the local midnight of the
    /// standard zone (`timezone`): daylight saving is not looked at.
    void truncateTime();
    /// localtime_r of `seconds`; `out` is zeroed when that fails.
    void localtime(tm& out) const;

    /// Same as asLocalString.
    std::string asString() const;
    /// A moment: "YYYY-MM-DDTHH:MM:SS.mmmZ" in GMT. A span: "DDD:" when it
    /// is a day or more, then "HH:MM:SS.mmm"; a negative span starts with
    /// "-". The milliseconds are (microseconds + 500) / 1000, and kept on
    /// purpose: 999,500 and up give "1000" in the field, with no carry into
    /// the seconds.
    std::string asGMTString() const;
    /// A moment: the same in local time, with the offset then in force,
    /// daylight saving included, as "+HH:MM" or "-HH:MM" in place of "Z". A
    /// span: as asGMTString.
    std::string asLocalString() const;
    /// asLocalString written at `out`, which holds at least TextSize bytes;
    /// returns the length. Allocates nothing.
    size_t writeLocalString(char* out) const;
    static constexpr size_t TextSize = 64;

    long asMicroseconds() const;

    /// From a GMT Julian timestamp: below the epoch logs "Invalid julian
    /// timestamp received" at error level and assigns 0.
    void assignGMTJulian(long jts);
    /// Reads "YYYY-MM-DD HH:MM:SS.ffffff" (the first date entry form) as GMT,
    /// and the forms this class writes: "YYYY-MM-DDTHH:MM:SS.mmm" with "Z" or
    /// an offset, as the moment it names, and a span "[-][DDD:]HH:MM:SS.mmm".
    /// A text with no date that is a plain decimal number, "SECONDS" or
    /// "SECONDS.FRACTION" (1 to 18 digits, 1 to 6 fraction digits, blanks
    /// around allowed, no sign), is taken as that many seconds, a span or a
    /// moment by its size. Empty or unreadable text logs and assigns 0.
    void assignGMTString(std::string const& text);
    /// Reads "YYYY-MM-DD HH:MM:SS.ffffff" as local time, and the forms this
    /// class writes as assignGMTString does. Empty or unreadable text logs
    /// and assigns 0.
    void assignLocalString(std::string const& text);

    /// Makes `out` an object with the members "sec", "usec" and "gmt"
    /// (asGMTString), in that order.
    void toJson(JsonValue& out) const;
    /// Reads the members "sec" and "usec" of an object through asUInt (so
    /// seconds past 2106 do not come back), carrying whole seconds of the
    /// microseconds. A value that is not an object logs "Invalid JSON time
    /// received" at error level and assigns 0.
    TaskTime& operator=(JsonValue const& json);

    long seconds;
    unsigned int microseconds;

private:
    size_t writeText(char* out, bool local) const;
};

} // namespace qzAdmin
} // namespace qzs

#endif // APP_QZADMIN_TASKTIME_H
