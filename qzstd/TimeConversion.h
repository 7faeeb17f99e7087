//===- qzstd/TimeConversion.h - Julian timestamps and their forms -*- C++ -*-===//
//
// Every time in the system is a Julian timestamp (jts): a signed 64-bit count
// of microseconds since Julian date 0, which is noon. This file holds their
// arithmetic, their calendar fields, their text forms and the conversion
// between GMT and local time. A Julian day number N starts at midnight, at
// N * 86400000000 - 43200000000.
//
// All functions are C-style and take no lock of their own; the local-time
// functions read the process's zone through the C library (TZ, tzset), so
// they are as thread-safe as localtime_r and mktime. Dates before 1582-10-15
// are in the Julian calendar, later ones in the Gregorian.
//
//===----------------------------------------------------------------------===//
#ifndef QZSTD_TIMECONVERSION_H
#define QZSTD_TIMECONVERSION_H

#include "qzstd/Export.h"

#include <cstddef>

/// Microseconds in a day, and half of it: the shift between noon and midnight.
constexpr long JTS_MICROSECONDS_PER_DAY = 86400000000L;
constexpr long JTS_HALF_DAY = 43200000000L;
/// The timestamp of 1970-01-01 00:00:00 GMT.
constexpr long JTS_UNIX_EPOCH = 210866760000000000L;
/// The lowest valid timestamp, the start of day 1721426, and the first
/// invalid one, day 5373485, after 9999-12-31. Day 1721426 is 0001-01-01 of
/// the Gregorian calendar run backwards, but this calendar is Julian there and
/// calls it 0001-01-03: kept as it stands, 0001-01-01 and 02 compute (day
/// 1721424 and 1721425) but their timestamps do not interpret.
constexpr long JTS_LOWEST_VALID = 148731163200000000L;
constexpr long JTS_FIRST_INVALID = 464269060800000000L;
/// The Gregorian calendar starts at this date (year*10000 + month*100 + day)
/// and at the day above this day number.
constexpr long JTS_GREGORIAN_START_DATE = 15821015L;
constexpr int JTS_GREGORIAN_START_DAY = 2299160;

/// Field error bits, as COMPUTEJULIANDAYNO and COMPUTETIMESTAMP report them.
constexpr short JTS_ERR_YEAR = static_cast<short>(0x8000); ///< outside 1 to 9999
constexpr short JTS_ERR_MONTH = 0x4000;                    ///< outside 1 to 12
constexpr short JTS_ERR_DAY = 0x2000;                      ///< outside the month
constexpr short JTS_ERR_HOUR = 0x1000;                     ///< above 23
constexpr short JTS_ERR_MINUTE = 0x0800;                   ///< above 59
constexpr short JTS_ERR_SECOND = 0x0400;                   ///< above 59
constexpr short JTS_ERR_MILLISECOND = 0x0200;              ///< above 999
constexpr short JTS_ERR_MICROSECOND = 0x0100;              ///< above 999

/// The calendar fields of a timestamp, in the order of the `short[8]` arrays
/// that INTERPRETTIMESTAMP and COMPUTETIMESTAMP take.
struct time_elt_def {
    short year;
    short month; ///< 1 to 12
    short day;
    short hour;
    short minute;
    short second;
    short millisecond;
    short microsecond;
};

/// Size of the buffer the fixed-size string forms write: 29 characters and a NUL.
constexpr std::size_t JTS_STRING_BUFFER_SIZE = 30;

//===-- Clock and Unix time ----------------------------------------------===//

/// Now, from the logging core's cached clock (the system's real-time clock
/// before the core is up): cheap, and as fresh as that clock.
QZ_API long JULIANTIMESTAMP();
/// Now, from gettimeofday: exact, and a system call each time.
QZ_API long EXPENSIVEACCURATEJULIANTIMESTAMP();
/// Seconds since the Unix epoch to a timestamp.
QZ_API long caltime_to_jul(long seconds);
/// A timestamp to whole seconds since the Unix epoch, rounded down (towards
/// the past, so a moment before 1970 lies in the second returned). Stores
/// the result through `seconds` too when it is not null, as time() does.
QZ_API long jul_to_caltime(long jts, long* seconds);

//===-- Days and fields --------------------------------------------------===//

/// The day number of a timestamp: (jts + half a day) / a day from the lowest
/// valid value on. Below it the result is jts / a day, truncated to 32 bits,
/// with no shift: kept on purpose, an asymmetry callers of old rely on.
QZ_API int calc_julianday(long jts);
/// Non-zero for a leap year of the Gregorian rule.
QZ_API int leap_year(short year);
/// The day number of a date (Julian calendar before 1582-10-15). Does not
/// validate; any input gives a defined number.
QZ_API int date_to_julian(short year, short month, short day);
/// The date of a day number; each output may be null.
QZ_API void julian_to_date(int day, short* year, short* month, short* dayOfMonth);
/// Hour, minute, second, millisecond and microsecond of a time within the
/// day, in microseconds; each output may be null.
QZ_API void julian_to_time(long timeOfDay, short* hour, short* minute, short* second,
                           short* millisecond, short* microsecond);
/// julian_to_date, except that it does nothing when day - 1721120 is above
/// 11943428 taken as unsigned.
QZ_API void INTERPRETJULIANDAYNO(int day, short* year, short* month, short* dayOfMonth);
/// Fills `fields` (year, month, day, hour, minute, second, millisecond,
/// microsecond) and returns the day number; returns 0 and leaves `fields`
/// alone for a null array or a timestamp outside [JTS_LOWEST_VALID,
/// JTS_FIRST_INVALID).
QZ_API int INTERPRETTIMESTAMP(long jts, short* fields);
/// Splits a duration in microseconds: returns the whole days and stores the
/// hours, minutes, seconds, milliseconds and microseconds left (each output
/// may be null). Division truncates, so every part of a negative duration
/// carries its sign.
QZ_API long INTERPRETINTERVAL(long duration, short* hours, short* minutes, short* seconds,
                              short* milliseconds, short* microseconds);
/// The day number of a valid date. On an invalid one returns 0 and stores the
/// year, month and day error bits through `err` (when not null); `err` is
/// written only on failure. With an invalid month the day is held to 1..31.
/// February always allows 29 days: kept on purpose, a 29 February of a
/// common year passes (and is the day after 28 February).
QZ_API int COMPUTEJULIANDAYNO(short year, short month, short day, short* err);
/// The timestamp of eight fields. 0 for null fields (`err` untouched). Every
/// field is tested and on any error the result is 0 with all the bits found
/// in `err`; otherwise `err` is set to 0. The time fields are held to their
/// upper bounds only: a negative one counts back from the day's start.
/// `err` may be null.
QZ_API long COMPUTETIMESTAMP(short* fields, short* err);

//===-- Local time -------------------------------------------------------===//

/// The offset of the zone's rules, in microseconds, positive west of GMT, for
/// the local date and time in `fields` (when null, `jts`'s own GMT fields).
/// Years 1966 to 1969 take 1970's rules; earlier years take the offset at
/// 1970-01-01 00:00 GMT.
QZ_API long DST_getoffset(long jts, short* fields);
/// Direction 0 and 1: GMT to local (subtracts DST_getoffset of the
/// timestamp's fields); 2 and 3: local to GMT (adds it); any other returns
/// `jts` unchanged. An invalid timestamp takes the offset of zeroed fields.
QZ_API long CONVERTTIMESTAMP(long jts, short direction);
/// The zone's offset now in microseconds, positive east of GMT (the opposite
/// sign to DST_getoffset). It is the standard offset: gmtime's fields carry
/// no daylight saving, so mktime reads them as standard time. Kept as it
/// stands; use CONVERTTIMESTAMP or the string forms for the offset that
/// holds at a given moment.
QZ_API long gmt_to_local_offset();
/// Fills `tm` (when not null) from `jts`, shifted first by
/// gmt_to_local_offset() when `toLocal` is not 0. A shifted value outside the
/// valid range raises message 1158 with `jts` as passed, and the conversion
/// goes on regardless; a negative time within the day counts as 0.
QZ_API void jts_to_tm_ext(long jts, time_elt_def* tm, short toLocal);
/// The GMT timestamp of local fields; 0 for null or a year of -1. Negative
/// time fields count as 0. Before 1970: CONVERTTIMESTAMP(COMPUTETIMESTAMP,
/// 2), so invalid fields give the offset alone (kept as it stands); from
/// 1970: mktime, which normalises fields out of range.
QZ_API long loc_tm_to_gmt_jts(time_elt_def const* tm);
/// Reads "YYYY-MM-DDTHH:MM:SS[.fraction](Z|+HH:MM|-HH:MM)" (a space may stand
/// for the 'T'; the offset is required; fraction digits past the sixth are
/// dropped) and stores the moment as local time in `tm`. Returns 1, or 0 with
/// `tm` untouched and the reason logged at error level to the logger
/// "qzISO8601ToLocalTime". The trace of a conversion is logged at debug level.
QZ_API int qzISO8601ToLocalTime(char const* text, time_elt_def* tm);

//===-- Text forms -------------------------------------------------------===//
//
// The writers format the GMT fields of the timestamp, or for the local
// forms the fields of the local time at that moment (with the daylight
// saving then in force). A timestamp that is, or whose local time is, outside
// the valid range writes zero fields. Each returns `buffer`.

/// "%4hd-%02hd-%02hd %02hd:%02hd:%02hd.%03hd%03hd" of the GMT fields (the
/// year padded with spaces). `buffer` holds JTS_STRING_BUFFER_SIZE.
QZ_API char* qzTimeToString(long jts, char* buffer);
/// "%04hd-%02hd-%02hd %02hd:%02hd:%02hd.%03hd%03hd" of the GMT fields into a
/// buffer of `size` bytes, cut to fit and always terminated when size > 0.
QZ_API char* gmt_jts_to_string(long jts, char* buffer, std::size_t size);
/// The local time as "%04hd-%02hd-%02hd %02hd:%02hd:%02hd.%03hd%03hd" with a
/// fraction (`withFraction` not 0), else "%04hd-%02hd-%02hd %02hd:%02hd:%02hd".
/// `buffer` holds JTS_STRING_BUFFER_SIZE.
QZ_API char* gmt_jts_to_loc_str(long jts, char* buffer, int withFraction);
/// "%04hd-%02hd-%02hd %02hd:%02hd:%02hd.%03hd%03hd000" of the GMT fields.
/// `buffer` holds JTS_STRING_BUFFER_SIZE.
QZ_API char* TIMECNV_jts_to_utc_string(long jts, char* buffer);
/// The local time as "%04hd-%02hd-%02hd-%02hd.%02hd.%02hd.%03hd%03hd".
/// `buffer` holds JTS_STRING_BUFFER_SIZE.
QZ_API char* gmt_jts_to_loc_str_db2(long jts, char* buffer);
/// The local time as "%04hd-%02hd-%02hd:%02hd:%02hd:%02hd.%03hd%03hd".
/// `buffer` holds JTS_STRING_BUFFER_SIZE.
QZ_API char* gmt_jts_to_loc_sql_str(long jts, char* buffer);

/// Reads a date entry in the first of these forms, tried in this order, that
/// takes the whole text (scanf rules: "%hd" skips white space and takes a
/// sign, a space takes any white space, none included, and "%s" any run of
/// up to 29 non-white characters):
///   "%hd-%hd-%hd %hd:%hd:%hd.%s"   "%hd-%hd-%hd:%hd:%hd:%hd.%s"
///   "%hd-%hd-%hd %hd:%hd:%hd"      "%hd-%hd-%hd:%hd:%hd:%hd"
///   "%hd-%hd-%hd %hd:%hd"          "%hd-%hd-%hd:%hd:%hd"
///   "%hd:%hd:%hd.%s"   "%hd-%hd-%hd"   "%hd:%hd:%hd"   "%hd:%hd"
/// A number too large for a short is cut to 16 bits as sscanf cuts it
/// ("70000" reads as 4464): kept as it stands, for entries read before.
/// The "%s" is the fraction of the second: digits only, the first six used,
/// padded on the right ("5" is half a second). A form without a date takes
/// today's local date, a form without seconds 0. Returns 1 when the fields are
/// a valid date and time (year 1 to 9999, the month's days, hour 0 to 23,
/// minute and second 0 to 59) and stores them through `tm` when not null;
/// otherwise 0 and `tm` untouched.
QZ_API int valid_date_entry(const char* text, time_elt_def* tm);
/// The timestamp of text in the first entry form only ("%hd-%hd-%hd
/// %hd:%hd:%hd.%s", so a fraction is required), without zone conversion: a
/// local text gives a local timestamp. 0 when not that form or not valid as
/// valid_date_entry holds it.
QZ_API long loc_str_to_loc_jts(const char* text);
/// As loc_str_to_loc_jts, with the local fields converted to GMT by
/// loc_tm_to_gmt_jts.
QZ_API long loc_str_to_gmt_jts(const char* text);

#endif // QZSTD_TIMECONVERSION_H
