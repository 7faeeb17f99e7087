//===- qzstd/TimeConversion.cpp - Julian timestamps and their forms -------===//
//
// The calendar arithmetic is integer only, with 64-bit intermediates so that
// no input, however wild, overflows a signed type. Local time goes through
// the C library's zone (localtime_r, mktime). The text writers put digits
// straight into the caller's buffer, and the entry reader walks its forms
// itself: both sit on paths that convert every row of a trail.
//
//===----------------------------------------------------------------------===//
#include "qzstd/TimeConversion.h"

#include "qzstd/LoggingSeam.h"
#include "qzstd/MessageSeam.h"
#include "qzstd/detail/DateEntryScan.h"

#include <sys/time.h>

#include <climits>
#include <cstdint>
#include <cstring>
#include <ctime>

namespace {

// The C locale's white space, which is what scanf skips there.
bool isScanSpace(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

} // namespace

namespace qzs {
namespace qzlib {
namespace detail {

const char* const DateEntryForms[DateEntryFormCount] = {
    "%hd-%hd-%hd %hd:%hd:%hd.%s%n",
    "%hd-%hd-%hd:%hd:%hd:%hd.%s%n",
    "%hd-%hd-%hd %hd:%hd:%hd%n",
    "%hd-%hd-%hd:%hd:%hd:%hd%n",
    "%hd-%hd-%hd %hd:%hd%n",
    "%hd-%hd-%hd:%hd:%hd%n",
    "%hd:%hd:%hd.%s%n",
    "%hd-%hd-%hd%n",
    "%hd:%hd:%hd%n",
    "%hd:%hd%n",
};

namespace {

// One "%hd": white space, an optional sign, at least one digit. glibc reads
// the digits with strtol, which saturates at LONG_MIN and LONG_MAX, and
// stores the long cut to a short; so do we.
const char* scanShort(const char* p, short* value) {
    while (isScanSpace(*p))
        ++p;
    bool negative = false;
    if (*p == '+' || *p == '-')
        negative = *p++ == '-';
    if (!isDigit(*p))
        return nullptr;
    const uint64_t limit = negative ? uint64_t(1) << 63 : (uint64_t(1) << 63) - 1;
    uint64_t magnitude = 0;
    bool saturated = false;
    for (; isDigit(*p); ++p) {
        const unsigned digit = static_cast<unsigned>(*p - '0');
        if (saturated || magnitude > (limit - digit) / 10)
            saturated = true;
        else
            magnitude = magnitude * 10 + digit;
    }
    if (saturated)
        magnitude = limit;
    const uint64_t bits = negative ? 0 - magnitude : magnitude;
    *value = static_cast<short>(static_cast<uint16_t>(bits));
    return p;
}

} // namespace

bool scanDateEntryForm(const char* text, const char* form, DateEntryScan* out) {
    const char* p = text;
    out->count = 0;
    out->fraction[0] = '\0';
    for (const char* f = form; *f;) {
        if (*f == '%') {
            if (f[1] == 'h') {
                if (out->count == 6 || !(p = scanShort(p, &out->values[out->count])))
                    return false;
                ++out->count;
                f += 3;
            } else if (f[1] == 's') {
                while (isScanSpace(*p))
                    ++p;
                if (!*p)
                    return false;
                std::size_t n = 0;
                while (*p && !isScanSpace(*p) && n < DateFractionMax)
                    out->fraction[n++] = *p++;
                out->fraction[n] = '\0';
                f += 2;
            } else {
                f += 2; // "%n": the end test below stands for it
            }
        } else if (isScanSpace(*f)) {
            while (isScanSpace(*p))
                ++p;
            ++f;
        } else {
            if (*p != *f)
                return false;
            ++p;
            ++f;
        }
    }
    return *p == '\0';
}

} // namespace detail
} // namespace qzlib
} // namespace qzs

using namespace qzs::qzlib;

namespace {

constexpr long kDay = JTS_MICROSECONDS_PER_DAY;
constexpr long kHalfDay = JTS_HALF_DAY;
constexpr long kHour = 3600000000L;
constexpr long kMinute = 60000000L;
constexpr long kSecond = 1000000L;

enum Field { Year, Month, Day, Hour, Minute, Second, Millisecond, Microsecond, FieldCount };

// February always allows 29: kept on purpose, see COMPUTEJULIANDAYNO.
constexpr short kMonthDays[12] = {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};

// Signed arithmetic that wraps as the machine does instead of being undefined,
// for sums the callers' values can push past 64 bits.
long wrapAdd(long a, long b) {
    return static_cast<long>(static_cast<uint64_t>(a) + static_cast<uint64_t>(b));
}
long wrapMul(long a, long b) {
    return static_cast<long>(static_cast<uint64_t>(a) * static_cast<uint64_t>(b));
}

bool isValid(long jts) {
    return jts >= JTS_LOWEST_VALID && jts < JTS_FIRST_INVALID;
}

long floorDiv(long a, long b) {
    long q = a / b;
    return (a % b != 0 && (a < 0) != (b < 0)) ? q - 1 : q;
}

short dateErrors(short year, short month, short day) {
    short err = 0;
    if (year < 1 || year > 9999)
        err |= JTS_ERR_YEAR;
    short days = 31;
    if (month < 1 || month > 12)
        err |= JTS_ERR_MONTH;
    else
        days = kMonthDays[month - 1];
    if (day < 1 || day > days)
        err |= JTS_ERR_DAY;
    return err;
}

// Upper bounds only: a negative time field counts back from the day's start.
short timeErrors(const short* f) {
    short err = 0;
    if (f[Hour] > 23)
        err |= JTS_ERR_HOUR;
    if (f[Minute] > 59)
        err |= JTS_ERR_MINUTE;
    if (f[Second] > 59)
        err |= JTS_ERR_SECOND;
    if (f[Millisecond] > 999)
        err |= JTS_ERR_MILLISECOND;
    if (f[Microsecond] > 999)
        err |= JTS_ERR_MICROSECOND;
    return err;
}

void toArray(const time_elt_def& tm, short* f) {
    f[Year] = tm.year;
    f[Month] = tm.month;
    f[Day] = tm.day;
    f[Hour] = tm.hour;
    f[Minute] = tm.minute;
    f[Second] = tm.second;
    f[Millisecond] = tm.millisecond;
    f[Microsecond] = tm.microsecond;
}

time_elt_def fromArray(const short* f) {
    return time_elt_def{f[Year],   f[Month],  f[Day],         f[Hour],
                        f[Minute], f[Second], f[Millisecond], f[Microsecond]};
}

// The zone's offset east of GMT, in seconds, at the moment `jts`.
long zoneOffsetAt(long jts) {
    const time_t seconds = floorDiv(jts - JTS_UNIX_EPOCH, kSecond);
    struct tm local;
    if (!localtime_r(&seconds, &local))
        return 0;
    return local.tm_gmtoff;
}

// The fields of the local time at the GMT moment `jts`, with the daylight
// saving then in force; zeros when either side is outside the valid range.
// The shifted timestamp is interpreted by our own calendar, not taken from
// localtime_r, which would give the proleptic Gregorian date before 1582.
void localFields(long jts, short* f) {
    std::memset(f, 0, FieldCount * sizeof(short));
    if (isValid(jts))
        INTERPRETTIMESTAMP(jts + zoneOffsetAt(jts) * kSecond, f);
}

void gmtFields(long jts, short* f) {
    std::memset(f, 0, FieldCount * sizeof(short));
    INTERPRETTIMESTAMP(jts, f);
}

//===-- Writers ---------------------------------------------------------===//
//
// The fields come from INTERPRETTIMESTAMP or are zeros, so each fits its
// width; the modulo keeps the buffer bounded even if that ever changed.

char* put2(char* p, int v) {
    v %= 100;
    p[0] = static_cast<char>('0' + v / 10);
    p[1] = static_cast<char>('0' + v % 10);
    return p + 2;
}

char* put3(char* p, int v) {
    v %= 1000;
    p[0] = static_cast<char>('0' + v / 100);
    return put2(p + 1, v % 100);
}

char* put4(char* p, int v) {
    v %= 10000;
    return put2(put2(p, v / 100), v % 100);
}

// "%4hd": the year padded with spaces.
char* putSpacedYear(char* p, int v) {
    put4(p, v);
    for (int i = 0; i < 3 && p[i] == '0'; ++i)
        p[i] = ' ';
    return p + 4;
}

// Date, time and optional fraction with the given separators; returns the end.
char* putFields(char* p, const short* f, char afterDay, char timeSeparator, bool fraction) {
    p = put4(p, f[Year]);
    *p++ = '-';
    p = put2(p, f[Month]);
    *p++ = '-';
    p = put2(p, f[Day]);
    *p++ = afterDay;
    p = put2(p, f[Hour]);
    *p++ = timeSeparator;
    p = put2(p, f[Minute]);
    *p++ = timeSeparator;
    p = put2(p, f[Second]);
    if (fraction) {
        *p++ = '.';
        p = put3(p, f[Millisecond]);
        p = put3(p, f[Microsecond]);
    }
    return p;
}

//===-- Entry reading ---------------------------------------------------===//

// The fraction text as microseconds: digits only, the first six used.
bool fractionMicroseconds(const char* text, long* micros) {
    long value = 0;
    int used = 0;
    for (const char* p = text; *p; ++p) {
        if (!isDigit(*p))
            return false;
        if (used < 6) {
            value = value * 10 + (*p - '0');
            ++used;
        }
    }
    for (; used < 6; ++used)
        value *= 10;
    *micros = value;
    return true;
}

// An entry holds a date and time only with every field in its range; unlike
// COMPUTETIMESTAMP, negative time fields are not taken here.
bool validEntry(const short* f) {
    return dateErrors(f[Year], f[Month], f[Day]) == 0 && timeErrors(f) == 0 && f[Hour] >= 0 &&
           f[Minute] >= 0 && f[Second] >= 0;
}

// Fills `f` from one scanned form; false when its fraction is not digits.
bool entryFields(std::size_t form, const detail::DateEntryScan& scan, short* f) {
    const short* v = scan.values;
    std::memset(f, 0, FieldCount * sizeof(short));
    const bool hasDate = form < 6 || form == 7;
    if (hasDate) {
        f[Year] = v[0];
        f[Month] = v[1];
        f[Day] = v[2];
        v += 3;
    } else {
        const time_t now = time(nullptr);
        struct tm today;
        if (!localtime_r(&now, &today))
            return false;
        f[Year] = static_cast<short>(today.tm_year + 1900);
        f[Month] = static_cast<short>(today.tm_mon + 1);
        f[Day] = static_cast<short>(today.tm_mday);
    }
    const int timeCount = scan.count - (hasDate ? 3 : 0);
    for (int i = 0; i < timeCount; ++i)
        f[Hour + i] = v[i];
    if (form == 0 || form == 1 || form == 6) {
        long micros = 0;
        if (!fractionMicroseconds(scan.fraction, &micros))
            return false;
        f[Millisecond] = static_cast<short>(micros / 1000);
        f[Microsecond] = static_cast<short>(micros % 1000);
    }
    return true;
}

// Digits at fixed places, as the writers put them; never reads past a NUL.
template <typename T> bool fixedDigits(const char* p, int count, T* value) {
    int v = 0;
    for (int i = 0; i < count; ++i) {
        if (!isDigit(p[i]))
            return false;
        v = v * 10 + (p[i] - '0');
    }
    *value = static_cast<T>(v);
    return true;
}

// The text exactly as gmt_jts_to_string writes it, "YYYY-MM-DD
// HH:MM:SS.ffffff", which the first form takes with these values. Any other
// text goes the general way.
bool canonicalFields(const char* t, short* f) {
    short micros[2];
    return fixedDigits(t, 4, &f[Year]) && t[4] == '-' && fixedDigits(t + 5, 2, &f[Month]) &&
           t[7] == '-' && fixedDigits(t + 8, 2, &f[Day]) && t[10] == ' ' &&
           fixedDigits(t + 11, 2, &f[Hour]) && t[13] == ':' && fixedDigits(t + 14, 2, &f[Minute]) &&
           t[16] == ':' && fixedDigits(t + 17, 2, &f[Second]) && t[19] == '.' &&
           fixedDigits(t + 20, 3, &micros[0]) && fixedDigits(t + 23, 3, &micros[1]) &&
           t[26] == '\0' && (f[Millisecond] = micros[0], f[Microsecond] = micros[1], true);
}

// The first entry form only, validated.
bool firstFormFields(const char* text, short* f) {
    if (text && canonicalFields(text, f))
        return validEntry(f);
    detail::DateEntryScan scan;
    return text && detail::scanDateEntryForm(text, detail::DateEntryForms[0], &scan) &&
           entryFields(0, scan, f) && validEntry(f);
}

} // namespace

//===-- Clock and Unix time -----------------------------------------------===//

long JULIANTIMESTAMP() {
    timespec now;
    detail::currentTime(&now);
    return caltime_to_jul(now.tv_sec) + now.tv_nsec / 1000;
}

long EXPENSIVEACCURATEJULIANTIMESTAMP() {
    timeval now;
    gettimeofday(&now, nullptr);
    return caltime_to_jul(now.tv_sec) + now.tv_usec;
}

long caltime_to_jul(long seconds) {
    return wrapAdd(wrapMul(seconds, kSecond), JTS_UNIX_EPOCH);
}

long jul_to_caltime(long jts, long* seconds) {
    // Split before subtracting the epoch, so that no timestamp overflows.
    const long result = floorDiv(jts, kSecond) - JTS_UNIX_EPOCH / kSecond;
    if (seconds)
        *seconds = result;
    return result;
}

//===-- Days and fields ---------------------------------------------------===//

int calc_julianday(long jts) {
    // (jts + half) / day, split so that the sum cannot overflow near LONG_MAX.
    if (jts >= JTS_LOWEST_VALID)
        return static_cast<int>(jts / kDay + (jts % kDay + kHalfDay) / kDay);
    // Kept on purpose: no shift below the valid range.
    return static_cast<int>(jts / kDay);
}

int leap_year(short year) {
    return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

int date_to_julian(short year, short month, short day) {
    const long date = long(year) * 10000 + long(month) * 100 + day;
    long y = year;
    long m = month;
    if (m < 3) {
        m += 12;
        y -= 1;
    }
    long result = day + (306001 * (m + 1)) / 10000 + 1720995 + (1461 * y + (y < 0 ? -3 : 0)) / 4;
    if (date >= JTS_GREGORIAN_START_DATE)
        result += 2 + y / 400 - y / 100;
    return static_cast<int>(result);
}

void julian_to_date(int day, short* year, short* month, short* dayOfMonth) {
    long d = day;
    if (d > JTS_GREGORIAN_START_DAY) {
        const long a = (4 * d - 7468865) / 146097;
        d = d + 1 + a - a / 4;
    }
    const long b = (20 * d + 28038) / 7305;
    const long c = d - (1461 * b) / 4 + 1524;
    const long e = (10000 * c) / 306001;
    const long m = e < 14 ? e - 1 : e - 13;
    if (dayOfMonth)
        *dayOfMonth = static_cast<short>(c - (306001 * e) / 10000);
    if (month)
        *month = static_cast<short>(m);
    if (year)
        *year = static_cast<short>(b - 4716 + (m < 3 ? 1 : 0));
}

void julian_to_time(long timeOfDay, short* hour, short* minute, short* second, short* millisecond,
                    short* microsecond) {
    if (hour)
        *hour = static_cast<short>(timeOfDay / kHour);
    if (minute)
        *minute = static_cast<short>(timeOfDay / kMinute % 60);
    if (second)
        *second = static_cast<short>(timeOfDay / kSecond % 60);
    if (millisecond)
        *millisecond = static_cast<short>(timeOfDay / 1000 % 1000);
    if (microsecond)
        *microsecond = static_cast<short>(timeOfDay % 1000);
}

void INTERPRETJULIANDAYNO(int day, short* year, short* month, short* dayOfMonth) {
    if (static_cast<unsigned>(day) - 1721120u > 11943428u)
        return;
    julian_to_date(day, year, month, dayOfMonth);
}

int INTERPRETTIMESTAMP(long jts, short* fields) {
    if (!fields || !isValid(jts))
        return 0;
    const long shifted = jts + kHalfDay;
    const int day = static_cast<int>(shifted / kDay);
    julian_to_date(day, &fields[Year], &fields[Month], &fields[Day]);
    julian_to_time(shifted % kDay, &fields[Hour], &fields[Minute], &fields[Second],
                   &fields[Millisecond], &fields[Microsecond]);
    return day;
}

long INTERPRETINTERVAL(long duration, short* hours, short* minutes, short* seconds,
                       short* milliseconds, short* microseconds) {
    julian_to_time(duration % kDay, hours, minutes, seconds, milliseconds, microseconds);
    return duration / kDay;
}

int COMPUTEJULIANDAYNO(short year, short month, short day, short* err) {
    const short errors = dateErrors(year, month, day);
    if (errors) {
        if (err)
            *err = errors;
        return 0;
    }
    return date_to_julian(year, month, day);
}

long COMPUTETIMESTAMP(short* fields, short* err) {
    if (!fields)
        return 0;
    const short errors = static_cast<short>(dateErrors(fields[Year], fields[Month], fields[Day]) |
                                            timeErrors(fields));
    if (err)
        *err = errors;
    if (errors)
        return 0;
    return long(date_to_julian(fields[Year], fields[Month], fields[Day])) * kDay - kHalfDay +
           fields[Hour] * kHour + fields[Minute] * kMinute + fields[Second] * kSecond +
           fields[Millisecond] * 1000L + fields[Microsecond];
}

//===-- Local time --------------------------------------------------------===//

long DST_getoffset(long jts, short* fields) {
    short own[FieldCount] = {};
    if (!fields) {
        INTERPRETTIMESTAMP(jts, own);
        fields = own;
    }
    struct tm local = {};
    local.tm_mon = fields[Month] - 1;
    local.tm_mday = fields[Day];
    local.tm_hour = fields[Hour];
    local.tm_min = fields[Minute];
    local.tm_sec = fields[Second];
    local.tm_isdst = -1;
    // mktime is not asked about years before 1966: they take the offset at
    // the epoch; 1966 to 1969 take the rules of 1970.
    time_t moment = 0;
    if (fields[Year] >= 1966) {
        local.tm_year = fields[Year] >= 1970 ? fields[Year] - 1900 : 70;
        moment = mktime(&local);
    }
    struct tm gmt;
    if (!gmtime_r(&moment, &gmt))
        return 0;
    gmt.tm_isdst = local.tm_isdst;
    return wrapMul(static_cast<long>(mktime(&gmt)) - moment, kSecond);
}

long CONVERTTIMESTAMP(long jts, short direction) {
    if (direction < 0 || direction > 3)
        return jts;
    short fields[FieldCount] = {};
    INTERPRETTIMESTAMP(jts, fields);
    const long offset = DST_getoffset(jts, fields);
    return direction <= 1 ? wrapAdd(jts, -offset) : wrapAdd(jts, offset);
}

long gmt_to_local_offset() {
    const time_t now = time(nullptr);
    struct tm gmt;
    if (!gmtime_r(&now, &gmt))
        return 0;
    return (static_cast<long>(now) - static_cast<long>(mktime(&gmt))) * kSecond;
}

void jts_to_tm_ext(long jts, time_elt_def* tm, short toLocal) {
    if (!tm)
        return;
    const long value = toLocal ? wrapAdd(jts, gmt_to_local_offset()) : jts;
    if (!isValid(value))
        detail::raiseFault(
            detail::MessageSite{"qzstd.conv.time", "qzstd/timecnv_basic", "jts_to_tm_ext", 1071},
            1158, static_cast<long>(jts));
    // Kept on purpose: an invalid value is converted all the same. Its day
    // follows calc_julianday, unshifted below the range, so the time within
    // the day there runs from -12 to +36 hours; the negative part counts as 0.
    const int day = calc_julianday(value);
    long timeOfDay = value % kDay + kHalfDay;
    if (value >= JTS_LOWEST_VALID)
        timeOfDay %= kDay;
    if (timeOfDay < 0)
        timeOfDay = 0;
    julian_to_date(day, &tm->year, &tm->month, &tm->day);
    julian_to_time(timeOfDay, &tm->hour, &tm->minute, &tm->second, &tm->millisecond,
                   &tm->microsecond);
}

long loc_tm_to_gmt_jts(time_elt_def const* tm) {
    if (!tm || tm->year == -1)
        return 0;
    short f[FieldCount];
    toArray(*tm, f);
    for (int i = Hour; i < FieldCount; ++i)
        if (f[i] < 0)
            f[i] = 0;
    if (f[Year] < 1970)
        return CONVERTTIMESTAMP(COMPUTETIMESTAMP(f, nullptr), 2);
    struct tm local = {};
    local.tm_year = f[Year] - 1900;
    local.tm_mon = f[Month] - 1;
    local.tm_mday = f[Day];
    local.tm_hour = f[Hour];
    local.tm_min = f[Minute];
    local.tm_sec = f[Second];
    local.tm_isdst = -1;
    return caltime_to_jul(mktime(&local)) + f[Millisecond] * 1000L + f[Microsecond];
}

//===-- ISO 8601 ----------------------------------------------------------===//

namespace {

detail::LazyLogger isoLog("qzISO8601ToLocalTime");
constexpr char kIsoSource[] = "qzstd/TimeConversion";
namespace Level = detail::LogLevel;

// "YYYY-MM-DDTHH:MM:SS", a space allowed for the 'T'. Stops at the first
// character that does not fit, so it never reads past the terminator.
bool isoDateTime(const char* t, int* v) {
    return fixedDigits(t, 4, &v[0]) && t[4] == '-' && fixedDigits(t + 5, 2, &v[1]) && t[7] == '-' &&
           fixedDigits(t + 8, 2, &v[2]) && (t[10] == 'T' || t[10] == ' ') &&
           fixedDigits(t + 11, 2, &v[3]) && t[13] == ':' && fixedDigits(t + 14, 2, &v[4]) &&
           t[16] == ':' && fixedDigits(t + 17, 2, &v[5]);
}

// "Z", or a sign, two digits, ':' and two digits, ending the text.
bool isoOffset(const char* p, int* hours, int* minutes) {
    if (*p == 'Z') {
        *hours = *minutes = 0;
        return p[1] == '\0';
    }
    const int sign = *p == '-' ? -1 : 1;
    if (!fixedDigits(p + 1, 2, hours) || p[3] != ':' || !fixedDigits(p + 4, 2, minutes) ||
        p[6] != '\0' || *hours > 23 || *minutes > 59)
        return false;
    *hours *= sign;
    *minutes *= sign;
    return true;
}

// ".digits" between the seconds and the offset, or nothing.
bool isoFraction(const char* p, const char* end, int* micros) {
    *micros = 0;
    if (p == end)
        return true;
    if (*p != '.' || end - p < 2)
        return false;
    int used = 0;
    for (++p; p < end; ++p) {
        if (!isDigit(*p))
            return false;
        if (used < 6) {
            *micros = *micros * 10 + (*p - '0');
            ++used;
        }
    }
    for (; used < 6; ++used)
        *micros *= 10;
    return true;
}

} // namespace

// The reasons a text is refused are logged at error level, since the caller
// gets only a 0; the trace of a conversion, "Adjusting" included, at debug,
// since it comes with every converted value.
int qzISO8601ToLocalTime(char const* text, time_elt_def* tm) {
    static const char kFunction[] = "qzISO8601ToLocalTime";
    if (!text)
        text = "";
    int v[6];
    if (!isoDateTime(text, v)) {
        QZ_SEAM_LOG(isoLog, kIsoSource, kFunction, Level::Error,
                    "Failed to convert '%s' to local time - non-numeric data or missing separators",
                    text);
        return 0;
    }
    const char* offset = std::strpbrk(text + 19, "+-Z");
    if (!offset) {
        QZ_SEAM_LOG(isoLog, kIsoSource, kFunction, Level::Error,
                    "Failed to convert '%s' to local time - missing time offset, which is required",
                    text);
        return 0;
    }
    int offsetHours, offsetMinutes;
    if (!isoOffset(offset, &offsetHours, &offsetMinutes)) {
        QZ_SEAM_LOG(isoLog, kIsoSource, kFunction, Level::Error,
                    "Failed to convert '%s' to local time - non-numeric time offset, or missing "
                    "separator",
                    text);
        return 0;
    }
    int micros;
    if (!isoFraction(text + 19, offset, &micros)) {
        QZ_SEAM_LOG(isoLog, kIsoSource, kFunction, Level::Error,
                    "Failed to convert '%s' to local time - non-numeric fractional seconds", text);
        return 0;
    }
    short in[FieldCount] = {static_cast<short>(v[0]),          static_cast<short>(v[1]),
                            static_cast<short>(v[2]),          static_cast<short>(v[3]),
                            static_cast<short>(v[4]),          static_cast<short>(v[5]),
                            static_cast<short>(micros / 1000), static_cast<short>(micros % 1000)};
    if (dateErrors(in[Year], in[Month], in[Day])) {
        QZ_SEAM_LOG(isoLog, kIsoSource, kFunction, Level::Error,
                    "Failed to convert '%s' to local time - date validation failed for Y:%d M:%d "
                    "D:%d",
                    text, v[0], v[1], v[2]);
        return 0;
    }
    if (timeErrors(in)) {
        QZ_SEAM_LOG(isoLog, kIsoSource, kFunction, Level::Error,
                    "Failed to convert '%s' to local time - time validation failed for H:%d M:%d "
                    "S:%d",
                    text, v[3], v[4], v[5]);
        return 0;
    }
    QZ_SEAM_LOG(isoLog, kIsoSource, kFunction, Level::Debug,
                "time in: %04d-%02d-%02d %02d:%02d %02d.%03d%03d", v[0], v[1], v[2], v[3], v[4],
                v[5], micros / 1000, micros % 1000);
    const int zoneSeconds = offsetHours * 3600 + offsetMinutes * 60;
    const long gmt = COMPUTETIMESTAMP(in, nullptr) - zoneSeconds * kSecond;
    const int localOffset = isValid(gmt) ? static_cast<int>(zoneOffsetAt(gmt)) : 0;
    QZ_SEAM_LOG(isoLog, kIsoSource, kFunction, Level::Debug,
                "Adjusting ISO8601 to local time: local offset=%d (offset hour=%d: offset "
                "minutes=%d: timezone seconds=%d)",
                localOffset, offsetHours, offsetMinutes, zoneSeconds);
    short out[FieldCount];
    if (!INTERPRETTIMESTAMP(gmt + localOffset * kSecond, out)) {
        // 0001-01-01 or 9999-12-31 moved out of the calendar by the shift.
        QZ_SEAM_LOG(isoLog, kIsoSource, kFunction, Level::Error,
                    "Failed to convert '%s' to local time - date validation failed for Y:%d M:%d "
                    "D:%d",
                    text, v[0], v[1], v[2]);
        return 0;
    }
    const int o[FieldCount] = {out[0], out[1], out[2], out[3], out[4], out[5], out[6], out[7]};
    QZ_SEAM_LOG(isoLog, kIsoSource, kFunction, Level::Debug,
                "time out: %04d-%02d-%02d %02d:%02d %02d.%03d%03d", o[0], o[1], o[2], o[3], o[4],
                o[5], o[6], o[7]);
    QZ_SEAM_LOG(isoLog, kIsoSource, kFunction, Level::Debug,
                "Converted ISO8601 timestamp '%s' to local time %04d-%02d-%02d "
                "%02d:%02d:%02d.%03d%03d",
                text, o[0], o[1], o[2], o[3], o[4], o[5], o[6], o[7]);
    if (tm)
        *tm = fromArray(out);
    return 1;
}

//===-- Text forms --------------------------------------------------------===//

char* qzTimeToString(long jts, char* buffer) {
    short f[FieldCount];
    gmtFields(jts, f);
    putFields(buffer, f, ' ', ':', true)[0] = '\0';
    putSpacedYear(buffer, f[Year]);
    return buffer;
}

char* gmt_jts_to_string(long jts, char* buffer, std::size_t size) {
    if (!buffer || size == 0)
        return buffer;
    short f[FieldCount];
    gmtFields(jts, f);
    char text[JTS_STRING_BUFFER_SIZE];
    const std::size_t length = static_cast<std::size_t>(putFields(text, f, ' ', ':', true) - text);
    const std::size_t n = length < size ? length : size - 1;
    std::memcpy(buffer, text, n);
    buffer[n] = '\0';
    return buffer;
}

char* gmt_jts_to_loc_str(long jts, char* buffer, int withFraction) {
    short f[FieldCount];
    localFields(jts, f);
    putFields(buffer, f, ' ', ':', withFraction != 0)[0] = '\0';
    return buffer;
}

char* TIMECNV_jts_to_utc_string(long jts, char* buffer) {
    short f[FieldCount];
    gmtFields(jts, f);
    std::memcpy(putFields(buffer, f, ' ', ':', true), "000", 4);
    return buffer;
}

char* gmt_jts_to_loc_str_db2(long jts, char* buffer) {
    short f[FieldCount];
    localFields(jts, f);
    putFields(buffer, f, '-', '.', true)[0] = '\0';
    return buffer;
}

char* gmt_jts_to_loc_sql_str(long jts, char* buffer) {
    short f[FieldCount];
    localFields(jts, f);
    putFields(buffer, f, ':', ':', true)[0] = '\0';
    return buffer;
}

int valid_date_entry(const char* text, time_elt_def* tm) {
    if (!text)
        return 0;
    detail::DateEntryScan scan;
    for (std::size_t form = 0; form < detail::DateEntryFormCount; ++form) {
        if (!detail::scanDateEntryForm(text, detail::DateEntryForms[form], &scan))
            continue;
        // The first form that takes the text decides.
        short f[FieldCount];
        if (!entryFields(form, scan, f) || !validEntry(f))
            return 0;
        if (tm)
            *tm = fromArray(f);
        return 1;
    }
    return 0;
}

long loc_str_to_loc_jts(const char* text) {
    short f[FieldCount];
    return firstFormFields(text, f) ? COMPUTETIMESTAMP(f, nullptr) : 0;
}

long loc_str_to_gmt_jts(const char* text) {
    short f[FieldCount];
    if (!firstFormFields(text, f))
        return 0;
    const time_elt_def tm = fromArray(f);
    return loc_tm_to_gmt_jts(&tm);
}
