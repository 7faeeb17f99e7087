//===- tests/qzstd/TimeConversionTest.cpp - Julian timestamps -------------===//
//
// Calendar arithmetic against known days and against the C library's UTC
// functions, the local conversions across daylight-saving changes, the text
// forms read back, and the entry reader held to sscanf. The process runs in
// a POSIX zone string with daylight saving, set before any test, so no result
// depends on the machine's zone or on zone files.
//
//===----------------------------------------------------------------------===//
#include "qzstd/TimeConversion.h"

#include "CaptureAppender.h"
#include "FaultCollector.h"
#include "qzlog/Level.h"
#include "qzstd/detail/DateEntryScan.h"
#include "TestZone.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <random>
#include <string>
#include <vector>

namespace {

using qzs::qzlib::detail::DateEntryForms;
using qzs::qzlib::detail::DateEntryScan;

constexpr long kHour = 3600000000L;
using qztest::ZoneScope;

long jts(short y, short mo, short d, short h = 0, short mi = 0, short s = 0, long micros = 0) {
    short f[8] = {y, mo, d, h, mi, s, short(micros / 1000), short(micros % 1000)};
    short err = -1;
    long result = COMPUTETIMESTAMP(f, &err);
    EXPECT_EQ(0, err) << y << "-" << mo << "-" << d;
    return result;
}

std::string fieldsText(const short* f) {
    char text[64];
    std::snprintf(text, sizeof text, "%d-%d-%d %d:%d:%d.%d.%d", f[0], f[1], f[2], f[3], f[4], f[5],
                  f[6], f[7]);
    return text;
}

std::string fieldsText(const time_elt_def& t) {
    const short f[8] = {t.year,   t.month,  t.day,         t.hour,
                        t.minute, t.second, t.millisecond, t.microsecond};
    return fieldsText(f);
}

// Known days at the ends of the range, the epoch and both sides of the
// Gregorian switch; the day and its timestamp agree both ways.
TEST(TimeConversionTest, KnownDaysAndTheGregorianSwitch) {
    const struct {
        short y, m, d;
        int day;
        bool inverse; // false: a Julian-calendar date past the switch
    } rows[] = {
        {1, 1, 3, 1721426, true},     {9999, 12, 31, 5373484, true},  {1, 1, 1, 1721424, true},
        {1970, 1, 1, 2440588, true},  {2000, 1, 1, 2451545, true},    {1582, 10, 15, 2299161, true},
        {1582, 10, 4, 2299160, true}, {1582, 10, 14, 2299170, false}, {1600, 2, 29, 2305507, true},
        {1500, 2, 29, 2268992, true}, {4, 3, 1, 1722579, true},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(r.y * 10000 + r.m * 100 + r.d);
        EXPECT_EQ(r.day, date_to_julian(r.y, r.m, r.d));
        EXPECT_EQ(r.day, COMPUTEJULIANDAYNO(r.y, r.m, r.d, nullptr));
        short f[8] = {};
        const long midnight = long(r.day) * JTS_MICROSECONDS_PER_DAY - JTS_HALF_DAY;
        // 0001-01-01 and 02 lie below the lowest valid timestamp.
        const bool valid = r.day >= 1721426;
        EXPECT_EQ(valid ? r.day : 0, INTERPRETTIMESTAMP(midnight, f));
        if (r.inverse && valid) {
            EXPECT_EQ(fieldsText(f), fieldsText(time_elt_def{r.y, r.m, r.d, 0, 0, 0, 0, 0}));
        }
    }
    EXPECT_EQ(JTS_UNIX_EPOCH, jts(1970, 1, 1));
    EXPECT_EQ(caltime_to_jul(0), jts(1970, 1, 1));
    EXPECT_EQ(JTS_LOWEST_VALID, jts(1, 1, 3));
    EXPECT_EQ(JTS_FIRST_INVALID - 1, jts(9999, 12, 31, 23, 59, 59, 999999));

    short f[8] = {7, 7, 7, 7, 7, 7, 7, 7};
    EXPECT_EQ(0, INTERPRETTIMESTAMP(JTS_FIRST_INVALID, f));
    EXPECT_EQ(0, INTERPRETTIMESTAMP(JTS_LOWEST_VALID - 1, f));
    EXPECT_EQ(0, INTERPRETTIMESTAMP(JTS_UNIX_EPOCH, nullptr));
    EXPECT_EQ("7-7-7 7:7:7.7.7", fieldsText(f)) << "untouched when refused";

    for (short y : {1600, 2000, 2024, 4})
        EXPECT_TRUE(leap_year(y)) << y;
    for (short y : {1700, 1900, 2023, 1})
        EXPECT_FALSE(leap_year(y)) << y;
}

// Every day of the range goes to a date and back to the same day, and the
// dates run on without a gap or a repeat: Julian leap days up to 1582,
// Gregorian after.
TEST(TimeConversionTest, EveryDayRoundTrips) {
    long previous = 0;
    for (int day = 1721424; day <= 5373484; ++day) {
        short y, m, d;
        julian_to_date(day, &y, &m, &d);
        const long date = y * 10000L + m * 100 + d;
        const bool leap = y < 1583 ? y % 4 == 0 : leap_year(y) != 0;
        short err = 0;
        if (COMPUTEJULIANDAYNO(y, m, d, &err) != day || date <= previous ||
            (m == 2 && d == 29 && !leap)) {
            ADD_FAILURE() << "day " << day << " gives " << date << " after " << previous;
            return;
        }
        previous = date;
    }
    EXPECT_EQ(99991231, previous);
}

// Against glibc's proleptic Gregorian UTC over the Gregorian part of the
// range: fields, timestamp and Unix seconds agree both ways.
TEST(TimeConversionTest, MatchesGmtimeAndTimegm) {
    std::mt19937_64 random(20240613);
    std::uniform_int_distribution<long> seconds(-12219292800L, 253402300799L);
    std::uniform_int_distribution<long> micros(0, 999999);
    for (int i = 0; i < 200000; ++i) {
        const time_t s = seconds(random);
        const long us = micros(random);
        const long t = caltime_to_jul(s) + us;
        struct tm g;
        ASSERT_NE(nullptr, gmtime_r(&s, &g));
        short f[8];
        ASSERT_NE(0, INTERPRETTIMESTAMP(t, f)) << s;
        const short expected[8] = {short(g.tm_year + 1900), short(g.tm_mon + 1), short(g.tm_mday),
                                   short(g.tm_hour),        short(g.tm_min),     short(g.tm_sec),
                                   short(us / 1000),        short(us % 1000)};
        ASSERT_EQ(fieldsText(expected), fieldsText(f)) << s;
        ASSERT_EQ(t, COMPUTETIMESTAMP(f, nullptr));
        long stored = 0;
        ASSERT_EQ(s, jul_to_caltime(t, &stored));
        ASSERT_EQ(s, stored);
        ASSERT_EQ(s, timegm(&g));
    }
    EXPECT_EQ(-1, jul_to_caltime(JTS_UNIX_EPOCH - 1, nullptr)) << "rounds towards the past";
}

// The error bits, singly and together; a 29 February always passes; err is
// written by COMPUTEJULIANDAYNO only on failure.
TEST(TimeConversionTest, FieldErrors) {
    const struct {
        short f[8];
        short err;
    } rows[] = {
        {{0, 13, 1, 0, 0, 0, 0, 0}, short(0xC000)},
        {{10000, 1, 1, 0, 0, 0, 0, 0}, short(0x8000)},
        {{2023, 4, 31, 0, 0, 0, 0, 0}, 0x2000},
        {{2023, 0, 0, 0, 0, 0, 0, 0}, 0x6000},
        {{2023, 13, 32, 0, 0, 0, 0, 0}, 0x6000},
        {{2023, 1, 1, 24, 60, 60, 1000, 1000}, 0x1F00},
        {{2023, 1, 1, 23, 59, 59, 999, 1000}, 0x0100},
        {{-1, 1, 1, 0, 0, 60, 0, 0}, short(0x8400)},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(fieldsText(r.f));
        short err = 0, dateErr = 0x55;
        short f[8];
        std::memcpy(f, r.f, sizeof f);
        EXPECT_EQ(0, COMPUTETIMESTAMP(f, &err));
        EXPECT_EQ(r.err, err);
        const short dateBits = short(r.err & 0xE000);
        EXPECT_EQ(dateBits ? 0 : date_to_julian(f[0], f[1], f[2]),
                  COMPUTEJULIANDAYNO(f[0], f[1], f[2], &dateErr));
        EXPECT_EQ(dateBits ? dateBits : 0x55, dateErr);
    }
    short err = 0;
    EXPECT_EQ(COMPUTEJULIANDAYNO(2023, 3, 1, &err), COMPUTEJULIANDAYNO(2023, 2, 29, &err));
    EXPECT_EQ(0, err);
    short f[8] = {2023, 2, 29, 0, 0, 0, 0, 0};
    err = 0x55;
    EXPECT_EQ(jts(2023, 3, 1), COMPUTETIMESTAMP(f, &err));
    EXPECT_EQ(0, err);
    err = 0x55;
    EXPECT_EQ(0, COMPUTETIMESTAMP(nullptr, &err));
    EXPECT_EQ(0x55, err);
    f[3] = -1; // a negative time field counts back
    EXPECT_EQ(jts(2023, 3, 1) - kHour, COMPUTETIMESTAMP(f, &err));
}

// The unshifted days below the range, days and times near the 64-bit ends
// without overflow, interval splitting, and the day-number guard.
TEST(TimeConversionTest, DaysTimesAndIntervalsAtTheEdges) {
    const struct {
        long t;
        int day;
    } days[] = {
        {JTS_LOWEST_VALID, 1721426}, {JTS_LOWEST_VALID - 1, 1721425}, {-86400000000L, -1}, {-1, 0},
        {LONG_MAX, 106751991},       {LONG_MIN, -106751991},
    };
    for (const auto& r : days)
        EXPECT_EQ(r.day, calc_julianday(r.t)) << r.t;

    const struct {
        long duration, days;
        const char* parts;
    } intervals[] = {
        {0, 0, "0:0:0.0.0"},
        {86400000000L + 3723004005L, 1, "1:2:3.4.5"},
        {-(86400000000L + 3723004005L), -1, "-1:-2:-3.-4.-5"},
        {LONG_MIN, -106751991, "-4:0:-54.-775.-808"},
    };
    for (const auto& r : intervals) {
        short h, m, s, ms, us;
        EXPECT_EQ(r.days, INTERPRETINTERVAL(r.duration, &h, &m, &s, &ms, &us));
        char text[64];
        std::snprintf(text, sizeof text, "%d:%d:%d.%d.%d", h, m, s, ms, us);
        EXPECT_STREQ(r.parts, text) << r.duration;
    }
    EXPECT_EQ(0, INTERPRETINTERVAL(5, nullptr, nullptr, nullptr, nullptr, nullptr));
    // Arithmetic at the extremes stays defined (the sanitizer builds watch it).
    for (long t : {LONG_MIN, LONG_MAX}) {
        CONVERTTIMESTAMP(t, 0);
        jul_to_caltime(t, nullptr);
        caltime_to_jul(t);
    }
    short s;
    for (int d : {INT_MIN, INT_MAX})
        julian_to_date(d, &s, &s, &s);
    date_to_julian(SHRT_MIN, SHRT_MIN, SHRT_MIN);

    const struct {
        int day;
        bool filled;
    } guard[] = {{1721119, false},  {1721120, true},  {13664548, true},
                 {13664549, false}, {INT_MIN, false}, {2451545, true}};
    for (const auto& r : guard) {
        short y = -7, m = -7, d = -7;
        INTERPRETJULIANDAYNO(r.day, &y, &m, &d);
        EXPECT_EQ(r.filled, y != -7) << r.day;
    }
}

// Out of range: message 1158 from its documented site with the value as
// passed, and fields all the same; a negative time within the day is 0.
TEST(TimeConversionTest, OutOfRangeFieldsAreReportedAndFilled) {
    qztest::FaultCollector capture;
    time_elt_def tm;
    jts_to_tm_ext(jts(2023, 7, 4, 9, 5, 3, 12345), &tm, 0);
    EXPECT_EQ("2023-7-4 9:5:3.12.345", fieldsText(tm));
    EXPECT_EQ(0u, capture.count());

    jts_to_tm_ext(-50000000000L, &tm, 0);
    EXPECT_EQ("-4712-1-1 0:0:0.0.0", fieldsText(tm));
    jts_to_tm_ext(LONG_MAX, &tm, 0);
    jts_to_tm_ext(JTS_FIRST_INVALID, &tm, 0);
    EXPECT_EQ("10000-1-1 0:0:0.0.0", fieldsText(tm));
    const std::vector<qztest::Fault> faults = capture.faults();
    ASSERT_EQ(3u, faults.size());
    EXPECT_EQ(1158u, faults[0].number);
    EXPECT_EQ("-50000000000", faults[0].arguments);
    EXPECT_EQ(std::to_string(LONG_MAX), faults[1].arguments);
    EXPECT_EQ("qzstd.conv.time", faults[0].site.component);
    EXPECT_EQ("qzstd/timecnv_basic", faults[0].site.file);
    EXPECT_EQ("jts_to_tm_ext", faults[0].site.function);
    EXPECT_EQ(1071u, faults[0].site.line);
    jts_to_tm_ext(0, nullptr, 1);
}

// The zone's rules at dates in and out of daylight saving, the years that
// borrow 1970's rules or the epoch's offset, and the directions.
TEST(TimeConversionTest, DaylightSavingOffsets) {
    const struct {
        short y, m, d, h;
        long hours; // west of GMT
    } rows[] = {
        {2023, 1, 15, 12, 5}, {2023, 7, 1, 12, 4}, {1968, 7, 1, 12, 4},
        {1950, 7, 1, 12, 5},  {9999, 7, 1, 0, 4},  {2023, 3, 12, 3, 4},
    };
    for (const auto& r : rows) {
        short f[8] = {r.y, r.m, r.d, r.h, 0, 0, 0, 0};
        const long t = jts(r.y, r.m, r.d, r.h);
        EXPECT_EQ(r.hours * kHour, DST_getoffset(0, f)) << r.y << "-" << r.m;
        EXPECT_EQ(r.hours * kHour, DST_getoffset(t, nullptr)) << r.y << "-" << r.m;
        for (short direction = -1; direction <= 4; ++direction)
            EXPECT_EQ(direction < 0 || direction > 3 ? t
                      : direction < 2                ? t - r.hours * kHour
                                                     : t + r.hours * kHour,
                      CONVERTTIMESTAMP(t, direction));
    }
    // The standard offset in any season (kept as it stands).
    EXPECT_EQ(-5 * kHour, gmt_to_local_offset());
    time_elt_def tm;
    jts_to_tm_ext(jts(2023, 7, 4, 12), &tm, 1);
    EXPECT_EQ("2023-7-4 7:0:0.0.0", fieldsText(tm));
}

// Local fields to GMT on both sides of both changes, and the local text
// forms around them, which follow the offset in force at each moment.
TEST(TimeConversionTest, LocalTimeAcrossTheChanges) {
    const struct {
        time_elt_def local;
        long gmt;
    } toGmt[] = {
        {{2023, 3, 12, 1, 30, 0, 0, 0}, jts(2023, 3, 12, 6, 30)},
        {{2023, 3, 12, 3, 30, 0, 0, 0}, jts(2023, 3, 12, 7, 30)},
        {{2023, 11, 5, 0, 30, 0, 0, 0}, jts(2023, 11, 5, 4, 30)},
        {{2023, 11, 5, 2, 30, 0, 0, 0}, jts(2023, 11, 5, 7, 30)},
        {{2023, 7, 4, -3, -1, -1, 5, 6}, jts(2023, 7, 4, 4, 0, 0, 5006)},
        {{1968, 7, 1, 12, 0, 0, 0, 0}, jts(1968, 7, 1, 16)},
        {{1950, 7, 1, 12, 0, 0, 0, 0}, jts(1950, 7, 1, 17)},
        {{-1, 7, 1, 12, 0, 0, 0, 0}, 0},
        {{1950, 2, 30, 12, 0, 0, 0, 0}, 5 * kHour}, // invalid before 1970: the offset alone
    };
    for (const auto& r : toGmt)
        EXPECT_EQ(r.gmt, loc_tm_to_gmt_jts(&r.local)) << fieldsText(r.local);
    EXPECT_EQ(0, loc_tm_to_gmt_jts(nullptr));

    const struct {
        long gmt;
        const char* local;
    } toLocal[] = {
        {jts(2023, 3, 12, 6, 59, 59), "2023-03-12 01:59:59"},
        {jts(2023, 3, 12, 7), "2023-03-12 03:00:00"},
        {jts(2023, 11, 5, 5, 59, 59), "2023-11-05 01:59:59"},
        {jts(2023, 11, 5, 6), "2023-11-05 01:00:00"},
        {jts(1, 1, 3, 4, 59, 59), "0000-00-00 00:00:00"},
        {jts(1, 1, 3, 5), "0001-01-03 00:00:00"},
    };
    char text[JTS_STRING_BUFFER_SIZE];
    for (const auto& r : toLocal)
        EXPECT_STREQ(r.local, gmt_jts_to_loc_str(r.gmt, text, 0));
}

// Each writer's exact text, zero fields for an invalid moment, and the
// sized writer cut to its buffer.
TEST(TimeConversionTest, TextForms) {
    const long t = jts(2023, 7, 4, 9, 5, 3, 12345); // 05:05:03 EDT
    const long early = jts(12, 3, 4, 5, 6, 7, 8);
    char b[JTS_STRING_BUFFER_SIZE];
    const struct {
        std::string text;
        const char* expected;
    } rows[] = {
        {qzTimeToString(t, b), "2023-07-04 09:05:03.012345"},
        {qzTimeToString(early, b), "  12-03-04 05:06:07.000008"},
        {gmt_jts_to_string(early, b, sizeof b), "0012-03-04 05:06:07.000008"},
        {gmt_jts_to_loc_str(t, b, 1), "2023-07-04 05:05:03.012345"},
        {gmt_jts_to_loc_str(t, b, 0), "2023-07-04 05:05:03"},
        {TIMECNV_jts_to_utc_string(t, b), "2023-07-04 09:05:03.012345000"},
        {gmt_jts_to_loc_str_db2(t, b), "2023-07-04-05.05.03.012345"},
        {gmt_jts_to_loc_sql_str(t, b), "2023-07-04:05:05:03.012345"},
        {TIMECNV_jts_to_utc_string(JTS_FIRST_INVALID, b), "0000-00-00 00:00:00.000000000"},
        {qzTimeToString(-1, b), "   0-00-00 00:00:00.000000"},
        {gmt_jts_to_loc_sql_str(LONG_MIN, b), "0000-00-00:00:00:00.000000"},
        {gmt_jts_to_string(t, b, 11), "2023-07-04"},
    };
    for (const auto& r : rows)
        EXPECT_EQ(r.expected, r.text);
    b[0] = 'x';
    gmt_jts_to_string(t, b, 0);
    EXPECT_EQ('x', b[0]);
}

// Random moments through every form a reader takes back, in a zone without
// daylight saving so that each local time has one meaning. A form without
// a fraction comes back to the second.
TEST(TimeConversionTest, TextFormsReadBack) {
    ZoneScope zone("<+0530>-5:30");
    std::mt19937_64 random(7);
    std::uniform_int_distribution<long> moments(JTS_LOWEST_VALID + JTS_MICROSECONDS_PER_DAY,
                                                JTS_FIRST_INVALID - JTS_MICROSECONDS_PER_DAY);
    const auto fromEntry = [](const char* text, bool gmt) {
        time_elt_def tm;
        if (!valid_date_entry(text, &tm))
            return long(-1);
        short f[8] = {tm.year,   tm.month,  tm.day,         tm.hour,
                      tm.minute, tm.second, tm.millisecond, tm.microsecond};
        return gmt ? COMPUTETIMESTAMP(f, nullptr) : loc_tm_to_gmt_jts(&tm);
    };
    char b[JTS_STRING_BUFFER_SIZE];
    for (int i = 0; i < 20000; ++i) {
        const long t = moments(random);
        const long second = t - (t - JTS_LOWEST_VALID) % 1000000;
        ASSERT_EQ(t, fromEntry(qzTimeToString(t, b), true)) << b;
        ASSERT_EQ(t, loc_str_to_loc_jts(gmt_jts_to_string(t, b, sizeof b))) << b;
        ASSERT_EQ(t, loc_str_to_loc_jts(TIMECNV_jts_to_utc_string(t, b))) << b;
        ASSERT_EQ(t, loc_str_to_gmt_jts(gmt_jts_to_loc_str(t, b, 1))) << b;
        ASSERT_EQ(t, fromEntry(gmt_jts_to_loc_sql_str(t, b), false)) << b;
        ASSERT_EQ(second, fromEntry(gmt_jts_to_loc_str(t, b, 0), false)) << b;
    }
}

// Entries: each form, fraction and range rules, and texts no form takes.
TEST(TimeConversionTest, DateEntries) {
    const struct {
        const char* text;
        const char* fields; // null: refused
    } rows[] = {
        {"2023-07-04 09:05:03.5", "2023-7-4 9:5:3.500.0"},
        {"2023-07-04:09:05:03.123456789", "2023-7-4 9:5:3.123.456"},
        {" 2023-7-4\t9:5:3", "2023-7-4 9:5:3.0.0"},
        {"2023-07-04:09:05:03", "2023-7-4 9:5:3.0.0"},
        {"2023-07-04 09:05", "2023-7-4 9:5:0.0.0"},
        {"2023-02-29", "2023-2-29 0:0:0.0.0"},
        {"2023-07-04 09:05:03. 7", "2023-7-4 9:5:3.700.0"},
        {"+2023-07-04", "2023-7-4 0:0:0.0.0"},
        {"2023-07-04 09:05:03.12a", nullptr},
        {"2023-07-04 09:05:03.", nullptr},
        {"2023-07-04 09:05:03.123456789012345678901234567890", nullptr},
        {"2023-13-01", nullptr},
        {"0-01-01", nullptr},
        {"2023-07-04 24:00", nullptr},
        {"2023-07-04 -1:00", nullptr},
        {"2023-07-04-09.05.03.000000", nullptr},
        {"2023-07-04T09:05:03", nullptr},
        {"99999-01-01", nullptr}, // cut to a short as by sscanf: -31073
        {"2023-07-04 09:05:03.5 x", nullptr},
        {"10:60", nullptr},
    };
    for (const auto& r : rows) {
        time_elt_def tm = {1, 2, 3, 4, 5, 6, 7, 8};
        EXPECT_EQ(r.fields != nullptr, valid_date_entry(r.text, &tm) == 1) << r.text;
        EXPECT_EQ(r.fields ? r.fields : "1-2-3 4:5:6.7.8", fieldsText(tm)) << r.text;
    }
    // A time alone is today's.
    const time_t now = time(nullptr);
    struct tm today;
    localtime_r(&now, &today);
    time_elt_def tm;
    ASSERT_EQ(1, valid_date_entry("23:59:58.25", &tm));
    EXPECT_EQ(today.tm_mday, tm.day);
    EXPECT_EQ("23:59:58.250.0", fieldsText(tm).substr(fieldsText(tm).find(' ') + 1));
    EXPECT_EQ(1, valid_date_entry("1:2", nullptr));
    EXPECT_EQ(0, valid_date_entry(nullptr, nullptr));
    // The reading functions take the first form only.
    EXPECT_EQ(jts(2023, 7, 4, 9, 5, 3, 500000), loc_str_to_loc_jts("2023-07-04 09:05:03.5"));
    EXPECT_EQ(jts(2023, 7, 4, 13, 5, 3, 500000), loc_str_to_gmt_jts("2023-07-04 09:05:03.5"));
    for (const char* refused : {"2023-07-04 09:05:03", "2023-07-04:09:05:03.5",
                                "2023-02-30 "
                                "00:00:00.0"}) {
        EXPECT_EQ(0, loc_str_to_loc_jts(refused)) << refused;
        EXPECT_EQ(0, loc_str_to_gmt_jts(refused)) << refused;
    }
    EXPECT_EQ(0, loc_str_to_gmt_jts(nullptr));
}

// The entry reader takes exactly what sscanf takes, with the same values,
// over near-valid texts with random edits and random texts of the entry
// alphabet, for every form.
TEST(TimeConversionTest, EntryReaderMatchesSscanf) {
    std::mt19937 random(99);
    const std::string alphabet = "0123456789-:. \t+x";
    const char* seeds[] = {"2023-07-04 09:05:03.123456", "2023-07-04:09:05:03.5",   "10:20:30.25",
                           "99999999999999999999-1-1",   "-99999999999999999999:5", "70000:-70000"};
    for (int i = 0; i < 60000; ++i) {
        std::string text = seeds[random() % (sizeof seeds / sizeof *seeds)];
        if (i % 2)
            text.clear();
        for (int n = i % 2 ? random() % 40 : random() % 4; n > 0; --n)
            text.insert(random() % (text.size() + 1), 1, alphabet[random() % alphabet.size()]);
        if (random() % 2 && !text.empty())
            text.erase(random() % text.size(), 1);
        for (const char* form : DateEntryForms) {
            // sscanf with the form's "%s" bounded as ours is, its pointers
            // in the order of the form's directives.
            std::string bounded(form);
            const size_t at = bounded.find("%s");
            if (at != std::string::npos)
                bounded.replace(at, 2, "%29s");
            short v[6] = {};
            char fraction[32] = "";
            int end = -1, count = 0, hd = 0;
            void* args[8] = {};
            int slot = 0;
            for (const char* p = form; (p = std::strchr(p, '%')); ++p) {
                if (p[1] == 'h')
                    args[slot++] = &v[hd++];
                else if (p[1] == 's')
                    args[slot++] = fraction;
                else
                    args[slot++] = &end;
                count += p[1] != 'n';
            }
            const int matched = std::sscanf(text.c_str(), bounded.c_str(), args[0], args[1],
                                            args[2], args[3], args[4], args[5], args[6], args[7]);
            const bool theirs = matched == count && end == static_cast<int>(text.size());
            DateEntryScan scan;
            const bool ours = qzs::qzlib::detail::scanDateEntryForm(text.c_str(), form, &scan);
            ASSERT_EQ(theirs, ours) << "'" << text << "' by " << form;
            if (!ours)
                continue;
            for (int k = 0; k < scan.count; ++k)
                ASSERT_EQ(v[k], scan.values[k]) << "'" << text << "' by " << form;
            ASSERT_STREQ(fraction, scan.fraction) << "'" << text << "' by " << form;
        }
    }
}

// ISO 8601 texts to local time, with the trace and each refusal's line.
TEST(TimeConversionTest, Iso8601ToLocalTime) {
    qztest::resetLogging();
    qztest::CapturedLogger log("qzISO8601ToLocalTime", "%m", qzs::qzlib::qzlog::Level::All);
    time_elt_def tm = {};
    ASSERT_EQ(1, qzISO8601ToLocalTime("2023-07-04T12:00:00.5+02:00", &tm));
    EXPECT_EQ("2023-7-4 6:0:0.500.0", fieldsText(tm));
    const std::vector<std::string> trace = {
        "time in: 2023-07-04 12:00 00.500000",
        "Adjusting ISO8601 to local time: local offset=-14400 (offset hour=2: offset minutes=0: "
        "timezone seconds=7200)",
        "time out: 2023-07-04 06:00 00.500000",
        "Converted ISO8601 timestamp '2023-07-04T12:00:00.5+02:00' to local time 2023-07-04 "
        "06:00:00.500000"};
    EXPECT_EQ(trace, log.capture->lines());

    const struct {
        const char* text;
        const char* result; // fields, or the line logged
    } rows[] = {
        {"2023-01-15 12:00:00Z", "2023-1-15 7:0:0.0.0"},
        {"2023-03-12T06:59:59.1234567-00:00", "2023-3-12 1:59:59.123.456"},
        {"2023-03-12T09:00:00+02:00", "2023-3-12 3:0:0.0.0"},
        {"0001-01-04T10:00:00+05:30", "1-1-3 23:30:0.0.0"},
        {"2023-07-04X12:00:00Z", "non-numeric data or missing separators"},
        {"2023-07-04T12:00", "non-numeric data or missing separators"},
        {"2023-07-04T12:00:00", "missing time offset, which is required"},
        {"2023-07-04T12:00:00.5z", "missing time offset, which is required"},
        {"2023-07-04T12:00:00+0200", "non-numeric time offset, or missing separator"},
        {"2023-07-04T12:00:00Zjunk", "non-numeric time offset, or missing separator"},
        {"2023-07-04T12:00:00+24:00", "non-numeric time offset, or missing separator"},
        {"2023-07-04T12:00:00.+01:00", "non-numeric fractional seconds"},
        {"2023-07-04T12:00:00,5Z", "non-numeric fractional seconds"},
        {"2023-02-30T12:00:00Z", "date validation failed for Y:2023 M:2 D:30"},
        {"0001-01-03T00:00:00Z", "date validation failed for Y:1 M:1 D:3"},
        {"2023-07-04T24:00:60Z", "time validation failed for H:24 M:0 S:60"},
    };
    for (const auto& r : rows) {
        log.capture->clear();
        tm = {9, 9, 9, 9, 9, 9, 9, 9};
        const int ok = qzISO8601ToLocalTime(r.text, &tm);
        if (ok) {
            EXPECT_EQ(r.result, fieldsText(tm)) << r.text;
            continue;
        }
        EXPECT_EQ("9-9-9 9:9:9.9.9", fieldsText(tm)) << r.text;
        EXPECT_EQ(std::string("Failed to convert '") + r.text + "' to local time - " + r.result,
                  log.capture->last());
    }
    EXPECT_EQ(0, qzISO8601ToLocalTime(nullptr, nullptr));
}

} // namespace
