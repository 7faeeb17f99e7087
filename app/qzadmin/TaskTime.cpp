//===- app/qzadmin/TaskTime.cpp - A moment or a span for scheduling -------===//
//
// Arithmetic, comparisons, text forms and the readers of TaskTime, and the
// time text of the syslog appender's datagrams, which the logging core reaches
// through its seam.
//
//===----------------------------------------------------------------------===//
#include "app/qzadmin/TaskTime.h"

#include "qzlog/Level.h"
#include "qzlog/Logger.h"
#include "qzlog/LoggerRepository.h"
#include "qzlog/LoggingTime.h"
#include "qzlog/detail/SyslogTimeSeam.h"
#include "qzsca/JsonValue.h"

#include <climits>
#include <cstdio>
#include <cstring>

namespace qzs {
namespace qzAdmin {

using qzlib::qzlog::Level;
using qzlib::qzlog::Logger;

namespace {

constexpr long MicrosPerSecond = 1000000L;
constexpr long SecondsPerDay = 86400L;

// The file every diagnostic of this class names, whatever the build's path.
const char* const SourceName = "../app/qzadmin/TaskTime";

Logger* taskLogger() {
    static Logger* const logger = Logger::getRepository().getLogger("qzadmin.TaskTime");
    return logger;
}

#define QZ_TASKTIME_LOG(level, ...)                                                                \
    do {                                                                                           \
        Logger* logger_ = taskLogger();                                                            \
        if (logger_->isEnabledFor(level))                                                          \
            logger_->log(SourceName, __func__, __LINE__, (level), __VA_ARGS__);                    \
    } while (0)

// Sums wrap at 64 bits instead of overflowing: a value read from a bad
// configuration must not be undefined behaviour.
long wrapAdd(long a, long b) {
    return static_cast<long>(static_cast<unsigned long>(a) + static_cast<unsigned long>(b));
}
long wrapSub(long a, long b) {
    return static_cast<long>(static_cast<unsigned long>(a) - static_cast<unsigned long>(b));
}

// Floor division, so that moments before the epoch round down too.
long floorDiv(long a, long b) {
    long q = a / b;
    if ((a % b != 0) && ((a < 0) != (b < 0)))
        --q;
    return q;
}

// "SECONDS" or "SECONDS.FRACTION" with blanks around: the non-date form of
// assignGMTString. 18 digits at most, so the value always fits.
bool readPlainSeconds(const std::string& text, long& seconds, unsigned int& micros) {
    size_t i = 0, n = text.size();
    while (i < n && (text[i] == ' ' || text[i] == '\t'))
        ++i;
    while (n > i && (text[n - 1] == ' ' || text[n - 1] == '\t'))
        --n;
    long whole = 0;
    size_t digits = 0;
    for (; i < n && text[i] >= '0' && text[i] <= '9'; ++i, ++digits) {
        if (digits == 18)
            return false;
        whole = whole * 10 + (text[i] - '0');
    }
    if (digits == 0)
        return false;
    unsigned int fraction = 0;
    if (i < n && text[i] == '.') {
        ++i;
        unsigned int scale = 100000;
        size_t fractionDigits = 0;
        for (; i < n && text[i] >= '0' && text[i] <= '9'; ++i, ++fractionDigits, scale /= 10) {
            if (fractionDigits == 6)
                return false;
            fraction += static_cast<unsigned int>(text[i] - '0') * scale;
        }
        if (fractionDigits == 0)
            return false;
    }
    if (i != n)
        return false;
    seconds = whole;
    micros = fraction;
    return true;
}

// Brings any microsecond count, of either sign, into 0 to 999,999 by
// carrying or borrowing whole seconds.
void normalise(long seconds, long micros, long& outSeconds, unsigned int& outMicros) {
    long carry = floorDiv(micros, MicrosPerSecond);
    outSeconds = wrapAdd(seconds, carry);
    outMicros = static_cast<unsigned int>(micros - carry * MicrosPerSecond);
}

// Digits at fixed places of `t`, which holds at least `count` more bytes.
bool fixedNumber(const char* t, int count, long& value) {
    value = 0;
    for (int i = 0; i < count; ++i) {
        if (t[i] < '0' || t[i] > '9')
            return false;
        value = value * 10 + (t[i] - '0');
    }
    return true;
}

// ".f" with 1 to 6 digits, as microseconds; `t` at the '.'. Returns the
// length read, 0 when there is no fraction, -1 for a bad one.
int fractionText(const char* t, const char* end, unsigned int& micros) {
    micros = 0;
    if (t == end || *t != '.')
        return 0;
    unsigned int scale = 100000;
    int n = 1;
    for (; t + n < end && t[n] >= '0' && t[n] <= '9'; ++n, scale /= 10) {
        if (n > 6)
            return -1;
        micros += static_cast<unsigned int>(t[n] - '0') * scale;
    }
    if (n == 5 && std::strncmp(t + 1, "1000", 4) == 0)
        micros = 1000000; // the writers' "1000" milliseconds: a whole second
    return n > 1 ? n : -1;
}

// The class's own forms, so that each text it writes reads back:
// "YYYY-MM-DDTHH:MM:SS[.f](Z|+HH:MM|-HH:MM)" as the moment it names, and a
// span "[-][DDD:]HH:MM:SS[.f]". The milliseconds written as "1000" (kept
// on purpose by the writers) read back as a carried second.
bool readOwnForm(const std::string& text, long& seconds, unsigned int& micros) {
    const char* t = text.c_str();
    const char* end = t + text.size();
    long v[6];
    if (text.size() >= 20 && fixedNumber(t, 4, v[0]) && t[4] == '-' && fixedNumber(t + 5, 2, v[1]) &&
        t[7] == '-' && fixedNumber(t + 8, 2, v[2]) && t[10] == 'T' && fixedNumber(t + 11, 2, v[3]) &&
        t[13] == ':' && fixedNumber(t + 14, 2, v[4]) && t[16] == ':' && fixedNumber(t + 17, 2, v[5])) {
        const int f = fractionText(t + 19, end, micros);
        if (f < 0)
            return false;
        const char* zone = t + 19 + f;
        long offset = 0;
        if (end - zone == 1 && *zone == 'Z') {
            offset = 0;
        } else if (end - zone == 6 && (*zone == '+' || *zone == '-') && zone[3] == ':') {
            long h, m;
            if (!fixedNumber(zone + 1, 2, h) || !fixedNumber(zone + 4, 2, m) || h > 23 || m > 59)
                return false;
            offset = (*zone == '-' ? -1 : 1) * (h * 3600 + m * 60);
        } else {
            return false;
        }
        short fields[8] = {static_cast<short>(v[0]), static_cast<short>(v[1]), static_cast<short>(v[2]),
                           static_cast<short>(v[3]), static_cast<short>(v[4]), static_cast<short>(v[5]), 0, 0};
        short err = 0;
        const long jts = COMPUTETIMESTAMP(fields, &err);
        if (err || jts < JTS_UNIX_EPOCH)
            return false;
        long whole = 0;
        jul_to_caltime(jts, &whole);
        normalise(whole - offset, micros, seconds, micros);
        return true;
    }
    // A span.
    const bool negative = t < end && *t == '-';
    const char* p = t + (negative ? 1 : 0);
    long days = 0, h, m, sec;
    if (end - p >= 12 && p[3] == ':' && fixedNumber(p, 3, days))
        p += 4;
    if (end - p < 8 || !fixedNumber(p, 2, h) || p[2] != ':' || !fixedNumber(p + 3, 2, m) || p[5] != ':' ||
        !fixedNumber(p + 6, 2, sec) || h > 23 || m > 59 || sec > 59)
        return false;
    const int f = fractionText(p + 8, end, micros);
    if (f < 0 || p + 8 + f != end)
        return false;
    const long total = ((days * 24 + h) * 60 + m) * 60 + sec;
    const long totalMicros = total * MicrosPerSecond + micros;
    normalise(0, negative ? -totalMicros : totalMicros, seconds, micros);
    return true;
}


} // namespace

TaskTime::TaskTime() : seconds(0), microseconds(0) {
    refresh();
}

TaskTime::TaskTime(unsigned int s) : seconds(s), microseconds(0) {}

TaskTime::TaskTime(long s, unsigned int us) : seconds(0), microseconds(0) {
    normalise(s, static_cast<long>(us), seconds, microseconds);
}

TaskTime::TaskTime(timeval const& time) : seconds(0), microseconds(0) {
    normalise(time.tv_sec, time.tv_usec, seconds, microseconds);
}

TaskTime::TaskTime(timespec const& time) : seconds(0), microseconds(0) {
    // Nanoseconds are cut towards minus infinity, so a negative count
    // borrows like a positive one carries.
    normalise(time.tv_sec, floorDiv(time.tv_nsec, 1000), seconds, microseconds);
}

TaskTime::TaskTime(time_elt_def const& fields) : seconds(0), microseconds(0) {
    // Decision: the fields are local time, as every date entry reader of the
    // system gives them.
    assignGMTJulian(loc_tm_to_gmt_jts(&fields));
}

TaskTime& TaskTime::operator=(unsigned int s) {
    seconds = s;
    microseconds = 0;
    return *this;
}

void TaskTime::refresh() {
    timeval now;
    qzlib::qzlog::LoggingTime::getCurrentTime(&now);
    // The cached clock may hand out exactly 1,000,000 microseconds.
    normalise(now.tv_sec, now.tv_usec, seconds, microseconds);
}

TaskTime& TaskTime::operator+=(TaskTime const& other) {
    normalise(wrapAdd(seconds, other.seconds),
              static_cast<long>(microseconds) + static_cast<long>(other.microseconds), seconds,
              microseconds);
    return *this;
}

TaskTime& TaskTime::operator+=(unsigned int s) {
    seconds = wrapAdd(seconds, static_cast<long>(s));
    return *this;
}

TaskTime& TaskTime::operator-=(TaskTime const& other) {
    normalise(wrapSub(seconds, other.seconds),
              static_cast<long>(microseconds) - static_cast<long>(other.microseconds), seconds,
              microseconds);
    return *this;
}

TaskTime& TaskTime::operator-=(unsigned int s) {
    seconds = wrapSub(seconds, static_cast<long>(s));
    return *this;
}

TaskTime TaskTime::operator+(TaskTime const& other) const {
    TaskTime result(*this);
    return result += other;
}

TaskTime TaskTime::operator+(unsigned int s) const {
    TaskTime result(*this);
    return result += s;
}

TaskTime TaskTime::operator-(TaskTime const& other) const {
    TaskTime result(*this);
    return result -= other;
}

TaskTime TaskTime::operator-(unsigned int s) const {
    TaskTime result(*this);
    return result -= s;
}

bool TaskTime::operator<(TaskTime const& other) const {
    return seconds < other.seconds ||
           (seconds == other.seconds && microseconds < other.microseconds);
}

long TaskTime::untilNanoSeconds() const {
    const TaskTime now;
    if (!(*this > now))
        return 0;
    const TaskTime wait = *this - now;
    // Past some 292 years the count no longer fits: the wait is as good as
    // for ever.
    if (wait.seconds >= LONG_MAX / 1000000000L)
        return LONG_MAX;
    return wait.seconds * 1000000000L + static_cast<long>(wait.microseconds) * 1000L;
}

void TaskTime::truncateTime() {
    microseconds = 0;
    const long zone = ::timezone;
    seconds = wrapAdd(floorDiv(wrapSub(seconds, zone), SecondsPerDay) * SecondsPerDay, zone);
}

void TaskTime::localtime(tm& out) const {
    const time_t t = seconds;
    if (!::localtime_r(&t, &out))
        std::memset(&out, 0, sizeof out);
}

size_t TaskTime::writeText(char* out, bool local) const {
    int n;
    if (isInterval()) {
        // Decision: a negative span (a difference taken the wrong way round)
        // prints as "-" and the form of its size.
        __int128 total = static_cast<__int128>(seconds) * MicrosPerSecond + microseconds;
        const bool negative = total < 0;
        if (negative)
            total = -total;
        const long s = static_cast<long>(total / MicrosPerSecond);
        const unsigned int ms = static_cast<unsigned int>(total % MicrosPerSecond + 500) / 1000;
        const long rest = s % SecondsPerDay;
        if (s >= SecondsPerDay)
            n = std::snprintf(out, TextSize, "%s%03ld:%02ld:%02ld:%02ld.%03u", negative ? "-" : "",
                              s / SecondsPerDay, rest / 3600, rest / 60 % 60, rest % 60, ms);
        else
            n = std::snprintf(out, TextSize, "%s%02ld:%02ld:%02ld.%03u", negative ? "-" : "",
                              rest / 3600, rest / 60 % 60, rest % 60, ms);
    } else {
        const time_t t = seconds;
        tm fields;
        if (!(local ? ::localtime_r(&t, &fields) : ::gmtime_r(&t, &fields))) {
            // Beyond the C library's years: zero fields, as the Julian
            // writers give for a time out of range.
            std::memset(&fields, 0, sizeof fields);
            fields.tm_year = -1900;
            fields.tm_mon = -1;
        }
        // Kept on purpose: 999,500 microseconds and up give 1000 here, four
        // digits in the three-digit field, and the seconds are not carried.
        const unsigned int ms = (microseconds + 500) / 1000;
        n = std::snprintf(out, TextSize, "%04ld-%02d-%02dT%02d:%02d:%02d.%03u",
                          static_cast<long>(fields.tm_year) + 1900, fields.tm_mon + 1,
                          fields.tm_mday, fields.tm_hour, fields.tm_min, fields.tm_sec, ms);
        if (n > 0 && static_cast<size_t>(n) < TextSize) {
            if (local) {
                // The offset in force at that moment (tm_gmtoff), not the
                // standard zone's `timezone`: with that, a summer time read
                // "12:00-05:00" for 16:00Z, an hour off for every collector
                // and reader of the text.
                const long east = fields.tm_gmtoff;
                const long size = east < 0 ? -east : east;
                n += std::snprintf(out + n, TextSize - static_cast<size_t>(n), "%c%02ld:%02ld",
                                   east < 0 ? '-' : '+', size / 3600, size % 3600 / 60);
            } else {
                n += std::snprintf(out + n, TextSize - static_cast<size_t>(n), "Z");
            }
        }
    }
    if (n < 0)
        n = 0;
    if (static_cast<size_t>(n) >= TextSize)
        n = static_cast<int>(TextSize - 1);
    return static_cast<size_t>(n);
}

size_t TaskTime::writeLocalString(char* out) const {
    return writeText(out, true);
}

std::string TaskTime::asString() const {
    return asLocalString();
}

std::string TaskTime::asGMTString() const {
    char text[TextSize];
    return std::string(text, writeText(text, false));
}

std::string TaskTime::asLocalString() const {
    char text[TextSize];
    return std::string(text, writeText(text, true));
}

long TaskTime::asMicroseconds() const {
    return static_cast<long>(static_cast<unsigned long>(seconds) * MicrosPerSecond + microseconds);
}

void TaskTime::assignGMTJulian(long jts) {
    seconds = 0;
    microseconds = 0;
    if (jts < JTS_UNIX_EPOCH) {
        QZ_TASKTIME_LOG(Level::Error, "Invalid julian timestamp received: %d", jts);
        return;
    }
    const long sinceEpoch = jts - JTS_UNIX_EPOCH;
    seconds = sinceEpoch / MicrosPerSecond;
    microseconds = static_cast<unsigned int>(sinceEpoch % MicrosPerSecond);
}

void TaskTime::assignLocalString(std::string const& text) {
    seconds = 0;
    microseconds = 0;
    if (text.empty()) {
        QZ_TASKTIME_LOG(Level::Debug, "Empty local timestamp string received");
        return;
    }
    long s = 0;
    unsigned int us = 0;
    if (readOwnForm(text, s, us)) {
        seconds = s;
        microseconds = us;
        return;
    }
    const long jts = loc_str_to_gmt_jts(text.c_str());
    if (jts == 0) {
        QZ_TASKTIME_LOG(Level::Error, "Invalid local timestamp string received: %s", text.c_str());
        return;
    }
    assignGMTJulian(jts);
}

void TaskTime::assignGMTString(std::string const& text) {
    seconds = 0;
    microseconds = 0;
    if (text.empty()) {
        QZ_TASKTIME_LOG(Level::Debug, "Empty GMT timestamp string received");
        return;
    }
    const long jts = loc_str_to_loc_jts(text.c_str());
    if (jts == 0) {
        // A plain number cannot be a date entry, so trying it second
        // changes nothing for a date; "Converted" then shows the seconds.
        long s = 0;
        unsigned int us = 0;
        if (readPlainSeconds(text, s, us) || readOwnForm(text, s, us)) {
            seconds = s;
            microseconds = us;
            QZ_TASKTIME_LOG(Level::Debug, "Converted %s to %d", text.c_str(), s);
            return;
        }
        QZ_TASKTIME_LOG(Level::Error, "Invalid GMT timestamp string received: %s", text.c_str());
        return;
    }
    assignGMTJulian(jts);
    QZ_TASKTIME_LOG(Level::Debug, "Converted %s to %d", text.c_str(), jts);
}

void TaskTime::toJson(JsonValue& out) const {
    out = JsonValue(JsonValue::Object);
    out["sec"] = JsonValue(seconds);
    out["usec"] = JsonValue(microseconds);
    out["gmt"] = JsonValue(asGMTString());
}

TaskTime& TaskTime::operator=(JsonValue const& json) {
    if (json.type() != JsonValue::Object) {
        QZ_TASKTIME_LOG(Level::Error, "Invalid JSON time received: %s", json.toString().c_str());
        return *this = TaskTime(0L, 0u);
    }
    return *this = TaskTime(static_cast<long>(json["sec"].asUInt()), json["usec"].asUInt());
}

} // namespace qzAdmin

namespace qzlib {
namespace qzlog {
namespace detail {

void syslogTimeText(const timespec& eventTime, std::string& out) {
    char text[qzAdmin::TaskTime::TextSize];
    out.append(text, qzAdmin::TaskTime(eventTime).writeLocalString(text));
}

} // namespace detail
} // namespace qzlog
} // namespace qzlib
} // namespace qzs
