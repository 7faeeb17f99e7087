//===- tests/qzadmin/TaskTimeTest.cpp - Moments and spans -----------------===//
//
// The size rule between spans and moments, carry and borrow, the text forms
// and the readers, and what a bad text leaves and logs. The process runs in
// a POSIX zone with daylight saving, set before any test, so no result
// depends on the machine's zone.
//
//===----------------------------------------------------------------------===//
#include "app/qzadmin/TaskTime.h"

#include "CaptureAppender.h"
#include "qzlog/Level.h"
#include "qzsca/JsonValue.h"
#include "TestZone.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <string>

namespace {

using qzs::qzAdmin::TaskTime;

using qztest::ZoneScope;

::testing::AssertionResult holds(const TaskTime& t, long seconds, unsigned int micros) {
    if (t.seconds == seconds && t.microseconds == micros)
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "holds " << t.seconds << "." << t.microseconds
                                         << ", expected " << seconds << "." << micros;
}

// Every constructor normalises, and the size alone tells a span from a
// moment, at exactly 1000 days.
TEST(TaskTimeTest, ConstructionNormalisesAndSizeDecidesTheKind) {
    const struct {
        const char* what;
        TaskTime value;
        long seconds;
        unsigned int micros;
        bool interval;
    } rows[] = {
        {"last span", TaskTime(86399999u), 86399999, 0, true},
        {"first moment", TaskTime(86400000u), 86400000, 0, false},
        {"carried micros", TaskTime(5L, 2500000u), 7, 500000, true},
        {"exact second", TaskTime(0L, 1000000u), 1, 0, true},
        {"timeval carry", TaskTime(timeval{1700000000, 1999999}), 1700000001, 999999, false},
        {"timeval borrow", TaskTime(timeval{10, -1}), 9, 999999, true},
        {"timespec cut", TaskTime(timespec{3, 1999999999}), 4, 999999, true},
        {"timespec borrow", TaskTime(timespec{3, -1}), 2, 999999, true},
        {"local fields", TaskTime(time_elt_def{2023, 11, 14, 17, 13, 20, 123, 456}), 1700000000,
         123456, false},
    };
    for (const auto& r : rows) {
        EXPECT_TRUE(holds(r.value, r.seconds, r.micros)) << r.what;
        EXPECT_EQ(r.interval, r.value.isInterval()) << r.what;
    }
    TaskTime t(5L, 1u);
    t = 42u;
    EXPECT_TRUE(holds(t, 42, 0));
    EXPECT_FALSE(!TaskTime(0L, 1u));
    EXPECT_TRUE(!TaskTime(0u));
    EXPECT_EQ(7500000, TaskTime(5L, 2500000u).asMicroseconds());
}

// Sums carry a second out of the microseconds, differences borrow one, and
// a difference taken the wrong way round is a negative span.
TEST(TaskTimeTest, ArithmeticCarriesAndBorrows) {
    const struct {
        TaskTime a;
        char op;
        TaskTime b;
        long seconds;
        unsigned int micros;
    } rows[] = {
        {TaskTime(1L, 600000u), '+', TaskTime(2L, 500000u), 4, 100000},
        {TaskTime(1L, 999999u), '+', TaskTime(0L, 1u), 2, 0},
        {TaskTime(5L, 200000u), '-', TaskTime(1L, 500000u), 3, 700000},
        {TaskTime(5L, 500000u), '-', TaskTime(5L, 500000u), 0, 0},
        {TaskTime(1L, 0u), '-', TaskTime(2L, 500000u), -2, 500000},
        {TaskTime(1700000000L, 999999u), '-', TaskTime(86400u), 1699913600, 999999},
    };
    for (const auto& r : rows) {
        TaskTime sum = r.op == '+' ? r.a + r.b : r.a - r.b;
        EXPECT_TRUE(holds(sum, r.seconds, r.micros)) << r.a.seconds << r.op << r.b.seconds;
        TaskTime compound = r.a;
        if (r.op == '+')
            compound += r.b;
        else
            compound -= r.b;
        EXPECT_TRUE(holds(compound, r.seconds, r.micros));
    }
    EXPECT_TRUE(holds(TaskTime(1L, 700000u) + 2u, 3, 700000));
    EXPECT_TRUE(holds(TaskTime(1L, 700000u) - 2u, -1, 700000));
    const TaskTime bigger(10L, 2u), smaller(10L, 1u);
    EXPECT_TRUE(smaller < bigger && bigger > smaller && smaller <= bigger && bigger >= smaller);
    EXPECT_FALSE(bigger < smaller || smaller > bigger || bigger <= smaller || smaller >= bigger);
    EXPECT_TRUE(smaller <= smaller && smaller >= smaller && !(smaller < smaller));
    EXPECT_TRUE(TaskTime(9L, 999999u) < TaskTime(10u));
}

// The text forms, moments in GMT and in two local zones, spans with and
// without days, and the rounding that does not carry.
TEST(TaskTimeTest, TextForms) {
    const struct {
        TaskTime value;
        const char* gmt;
        const char* local; // in qztest::kTestZone
    } rows[] = {
        {TaskTime(90061u), "001:01:01:01.000", "001:01:01:01.000"},
        {TaskTime(3661L, 2000u), "01:01:01.002", "01:01:01.002"},
        {TaskTime(59L, 999500u), "00:00:59.1000", "00:00:59.1000"},
        {TaskTime(86399999L, 499u), "999:23:59:59.000", "999:23:59:59.000"},
        {TaskTime(0u) - TaskTime(1L, 500000u), "-00:00:01.500", "-00:00:01.500"},
        {TaskTime(1700000000L, 123456u), "2023-11-14T22:13:20.123Z",
         "2023-11-14T17:13:20.123-05:00"},
        {TaskTime(1700000000L, 999500u), "2023-11-14T22:13:20.1000Z",
         "2023-11-14T17:13:20.1000-05:00"},
        // Summer: the offset in force, so the text names the same moment.
        {TaskTime(1688212800u), "2023-07-01T12:00:00.000Z", "2023-07-01T08:00:00.000-04:00"},
    };
    for (const auto& r : rows) {
        EXPECT_EQ(r.gmt, r.value.asGMTString());
        EXPECT_EQ(r.local, r.value.asLocalString());
        EXPECT_EQ(r.local, r.value.asString());
        // Every form reads back, to the millisecond it shows.
        const long ms = (static_cast<long>(r.value.microseconds) + 500) / 1000;
        const long s = r.value.seconds + ms / 1000;
        const unsigned int us = static_cast<unsigned int>(ms % 1000 * 1000);
        TaskTime gmt(1u), local(1u);
        gmt.assignGMTString(r.gmt);
        local.assignLocalString(r.local);
        if (r.value.seconds >= 0) {
            EXPECT_TRUE(holds(gmt, s, us)) << r.gmt;
            EXPECT_TRUE(holds(local, s, us)) << r.local;
        }
    }
    ZoneScope india("IST-5:30");
    EXPECT_EQ("2023-11-15T03:43:20.000+05:30", TaskTime(1700000000u).asLocalString());
    tm fields;
    TaskTime(1700000000u).localtime(fields);
    EXPECT_EQ(3, fields.tm_hour);
    EXPECT_EQ(43, fields.tm_min);
}

// Midnight of the standard local day; the wait until a later moment.
TEST(TaskTimeTest, TruncationAndWaiting) {
    const struct {
        long moment;
        long midnight;
    } rows[] = {
        {1700000000, 1699938000}, // 17:13 EST -> 05:00 GMT the same day
        {1699938000, 1699938000}, // already midnight
        {1699937999, 1699851600}, // one second before: the day before
        {1688212800, 1688187600}, // summer: the standard midnight, 01:00 EDT
    };
    for (const auto& r : rows) {
        TaskTime t(r.moment, 654321u);
        t.truncateTime();
        EXPECT_TRUE(holds(t, r.midnight, 0)) << r.moment;
    }
    const long wait = (TaskTime() + 10u).untilNanoSeconds();
    EXPECT_GT(wait, 0);
    EXPECT_LE(wait, 10000000000L);
    EXPECT_EQ(0, (TaskTime() - 10u).untilNanoSeconds());
    EXPECT_EQ(0, TaskTime(5u).untilNanoSeconds());
}

// What the readers take: dates in the entry form, in GMT or local time, and
// for the GMT reader also plain seconds.
TEST(TaskTimeTest, ReadersTakeDatesAndPlainSeconds) {
    const struct {
        const char* text;
        bool local;
        long seconds;
        unsigned int micros;
    } rows[] = {
        {"2023-11-14 22:13:20.123456", false, 1700000000, 123456},
        {"2023-11-14 17:13:20.123456", true, 1700000000, 123456},
        {"2023-07-01 08:00:00.5", true, 1688212800, 500000}, // daylight saving applies
        {"90061", false, 90061, 0},
        {" 12.5\t", false, 12, 500000},
        {"1700000000.000001", false, 1700000000, 1},
        {"999999999999999999", false, 999999999999999999L, 0},
    };
    for (const auto& r : rows) {
        TaskTime t(1u);
        if (r.local)
            t.assignLocalString(r.text);
        else
            t.assignGMTString(r.text);
        EXPECT_TRUE(holds(t, r.seconds, r.micros)) << r.text;
    }
    TaskTime back(1u);
    back.assignGMTJulian(JTS_UNIX_EPOCH + 1700000000123456L);
    EXPECT_TRUE(holds(back, 1700000000, 123456));
    EXPECT_EQ("2023-11-14T22:13:20.123Z", back.asGMTString());
}

// Empty and bad texts and timestamps leave 0 and say so, byte for byte, at
// their levels, naming the class's source.
// The JSON form holds its members in order and reads back, microseconds carried.
TEST(TaskTimeTest, JsonForm) {
    JsonValue json;
    TaskTime(1700000000L, 123456u).toJson(json);
    EXPECT_EQ("{\"sec\":1700000000,\"usec\":123456,\"gmt\":\"2023-11-14T22:13:20.123Z\"}",
              json.toString());
    TaskTime back(0u);
    back = json;
    EXPECT_TRUE(holds(back, 1700000000L, 123456u));
    JsonValue carried;
    ASSERT_TRUE(carried.fromString("{\"sec\":5,\"usec\":2500000}"));
    back = carried;
    EXPECT_TRUE(holds(back, 7L, 500000u));
}

TEST(TaskTimeTest, BadInputAssignsZeroAndLogs) {
    qztest::resetLogging();
    qztest::CapturedLogger captured("qzadmin.TaskTime", "%p|%l|%m");
    const struct {
        const char* what;
        void (*assign)(TaskTime&);
        const char* line; // level, function, message
    } rows[] = {
        {"empty GMT", [](TaskTime& t) { t.assignGMTString(""); },
         "DEBUG|assignGMTString|Empty GMT timestamp string received"},
        {"empty local", [](TaskTime& t) { t.assignLocalString(""); },
         "DEBUG|assignLocalString|Empty local timestamp string received"},
        {"bad GMT", [](TaskTime& t) { t.assignGMTString("yesterday"); },
         "ERROR|assignGMTString|Invalid GMT timestamp string received: yesterday"},
        {"bad offset", [](TaskTime& t) { t.assignGMTString("2023-11-14T22:13:20.123+5"); },
         "ERROR|assignGMTString|Invalid GMT timestamp string received: 2023-11-14T22:13:20.123+5"},
        {"signed number", [](TaskTime& t) { t.assignGMTString("-5"); },
         "ERROR|assignGMTString|Invalid GMT timestamp string received: -5"},
        {"19 digits", [](TaskTime& t) { t.assignGMTString("1234567890123456789"); },
         "ERROR|assignGMTString|Invalid GMT timestamp string received: 1234567890123456789"},
        {"7 fraction digits", [](TaskTime& t) { t.assignGMTString("1.1234567"); },
         "ERROR|assignGMTString|Invalid GMT timestamp string received: 1.1234567"},
        {"bare point", [](TaskTime& t) { t.assignGMTString("12."); },
         "ERROR|assignGMTString|Invalid GMT timestamp string received: 12."},
        {"bad local", [](TaskTime& t) { t.assignLocalString("2023-02-30 00:00:00.0"); },
         "ERROR|assignLocalString|Invalid local timestamp string received: 2023-02-30 00:00:00.0"},
        {"before the epoch", [](TaskTime& t) { t.assignGMTJulian(JTS_UNIX_EPOCH - 1); },
         "ERROR|assignGMTJulian|Invalid julian timestamp received: 210866759999999999"},
        {"JSON not an object", [](TaskTime& t) { t = JsonValue("[5]"); },
         "ERROR|operator=|Invalid JSON time received: \"[5]\""},
    };
    for (const auto& r : rows) {
        captured.capture->clear();
        TaskTime t(1700000000L, 5u);
        r.assign(t);
        EXPECT_TRUE(holds(t, 0, 0)) << r.what;
        ASSERT_EQ(1u, captured.capture->count()) << r.what;
        const std::string line = captured.capture->last();
        const std::string expected = r.line;
        const size_t bar = expected.find('|', expected.find('|') + 1);
        // %l reads "function qzadmin/TaskTime(line)": the class's own source.
        EXPECT_EQ(expected.substr(0, bar), line.substr(0, bar)) << r.what;
        EXPECT_NE(std::string::npos, line.find(" qzadmin/TaskTime(")) << line;
        EXPECT_EQ(expected.substr(bar), line.substr(line.find('|', bar))) << r.what;
    }
    captured.capture->clear();
    TaskTime t;
    t.assignGMTString("2023-11-14 22:13:20.123456");
    EXPECT_NE(std::string::npos, captured.capture->last().find(
                                     "|Converted 2023-11-14 22:13:20.123456 to 212566760000123456"))
        << captured.capture->last();
}

} // namespace
