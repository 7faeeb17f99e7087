//===- tests/qzunicode/UTimeZoneTest.cpp - Zones, local time, locales -----===//
//
// Every zone is named: nothing here depends on the machine's zone.
//
//===----------------------------------------------------------------------===//
#include "qzunicode/UTimeZone.h"

#include "qzunicode/ULocale.h"

#include "TestZone.h"

#include <gtest/gtest.h>

#include <unicode/timezone.h>

#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

using namespace qzs::qzlib::qzunicode;

namespace {

constexpr ULibCharSet kUTF8 = ULibCharSet(0);

UString u8(const char* s) {
    return UString(s, kUTF8);
}

std::string text(const UString& s) {
    return s.c_str(kUTF8);
}

std::string local(const UTimeZone& zone, short y, short mo, short d, short h, short mi, short s,
                  unsigned nanos, bool zoneName = false) {
    char out[64];
    const int n = zone.utcToLocalTime(y, mo, d, h, mi, s, nanos, out, sizeof out, zoneName);
    EXPECT_EQ(n, static_cast<int>(std::strlen(out)));
    return out;
}

// ICU's default zone, set for the whole suite so that "the default" is known.
const bool defaultZoneSet = [] {
    icu::TimeZone::adoptDefault(icu::TimeZone::createTimeZone("America/Chicago"));
    return true;
}();

} // namespace

// A fixed UTC moment in several zones, on both sides of their daylight
// saving changes (Europe and America change on different dates in March).
TEST(UTimeZoneTest, LocalTimeAcrossDaylightSavingChanges) {
    struct Case {
        const char* zone;
        short month, day, hour;
        const char* expected;
    } const cases[] = {
        {"UTC", 1, 2, 3, "2026-01-02 03:04:05.123456789 +00:00"},
        {"Europe/Paris", 3, 29, 0, "2026-03-29 01:04:05.123456789 +01:00"},
        {"Europe/Paris", 3, 29, 1, "2026-03-29 03:04:05.123456789 +02:00"},
        {"America/New_York", 3, 8, 6, "2026-03-08 01:04:05.123456789 -05:00"},
        {"America/New_York", 3, 8, 7, "2026-03-08 03:04:05.123456789 -04:00"},
        {"America/New_York", 11, 1, 5, "2026-11-01 01:04:05.123456789 -04:00"},
        {"America/New_York", 11, 1, 6, "2026-11-01 01:04:05.123456789 -05:00"},
        {"Asia/Kolkata", 2, 28, 20, "2026-03-01 01:34:05.123456789 +05:30"},
        {"Australia/Sydney", 4, 4, 15, "2026-04-05 02:04:05.123456789 +11:00"},
        {"Australia/Sydney", 4, 4, 16, "2026-04-05 02:04:05.123456789 +10:00"},
        {"America/St_Johns", 12, 31, 23, "2026-12-31 19:34:05.123456789 -03:30"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.zone);
        const UTimeZone zone(u8(c.zone));
        EXPECT_EQ(local(zone, 2026, c.month, c.day, c.hour, 4, 5, 123456789), c.expected);
    }
    EXPECT_EQ(local(UTimeZone(u8("Europe/Paris")), 2024, 2, 29, 23, 0, 0, 5, true),
              "2024-03-01 00:00:00.000000005 Europe/Paris");
}

// The buffer is never overrun: the text is cut to the room given.
TEST(UTimeZoneTest, LocalTimeFitsTheBuffer) {
    const UTimeZone zone(u8("America/Argentina/ComodRivadavia"));
    char out[40];
    std::memset(out, '#', sizeof out);
    EXPECT_EQ(zone.utcToLocalTime(2026, 6, 1, 0, 0, 0, 0, out, 36, true), 35);
    EXPECT_EQ(std::string(out), "2026-05-31 21:00:00.000000000 Ameri");
    EXPECT_EQ(out[36], '#');
    EXPECT_EQ(zone.utcToLocalTime(2026, 6, 1, 0, 0, 0, 0, out, 5, false), 4);
    EXPECT_STREQ(out, "2026");
    EXPECT_EQ(zone.utcToLocalTime(2026, 6, 1, 0, 0, 0, 0, out, 0, false), 0);
}

TEST(UTimeZoneTest, IdsOffsetsAndUnknownZones) {
    struct Case {
        const char* id;
        const char* expected;
    } const cases[] = {
        {"+05:30", "+05:30"},
        {"  -8", "-08:00"},
        {"- 0 8 : 0 0", "-08:00"},
        {"5", "+05:00"},
        {"Europe/Paris", "Europe/Paris"},
        {" Asia/Tokyo ", "Asia/Tokyo"},
        {"Nowhere/Land", "America/Chicago"},
        {"", "America/Chicago"},
        {"+99", "America/Chicago"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.id);
        const UTimeZone zone(u8(c.id));
        EXPECT_EQ(text(zone.getID()), c.expected);
        EXPECT_TRUE(zone.isValid());
    }
    EXPECT_EQ(UTimeZone(u8("+05:30")).getOffset(0, false), 19800000);
    const UTimeZone paris(u8("Europe/Paris"));
    EXPECT_EQ(paris.getOffset(1782864000000UL, false), 7200000); // 2026-07-01
    EXPECT_EQ(paris.getOffset(1767225600000UL, false), 3600000); // 2026-01-01
    {
        qztest::ZoneScope utc("UTC0");
        EXPECT_EQ(paris.getOffset(2026, 7, 1, 12, 0, 0, false), 7200000);
    }
    UTimeZone copy(paris);
    EXPECT_TRUE(copy == paris);
    copy = UTimeZone(u8("Asia/Tokyo"));
    EXPECT_TRUE(copy != paris);
    copy = copy;
    EXPECT_EQ(text(copy.getID()), "Asia/Tokyo");
    const ULocale french("fr", "FR");
    EXPECT_EQ(text(paris.getDisplayName(&french)), "heure normale d\u2019Europe centrale");
}

// Each thread formats through its own calendars; run under the thread
// sanitizer this is the race check.
TEST(UTimeZoneTest, CalendarsFromSeveralThreads) {
    const UTimeZone zones[] = {UTimeZone(u8("UTC")), UTimeZone(u8("Europe/Paris")),
                               UTimeZone(u8("America/New_York"))};
    const char* const expected[] = {"2026-07-01 12:00:00.000000000 +00:00",
                                    "2026-07-01 14:00:00.000000000 +02:00",
                                    "2026-07-01 08:00:00.000000000 -04:00"};
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            char out[64];
            for (int i = 0; i < 500; ++i) {
                const int z = i % 3;
                zones[z].utcToLocalTime(2026, 7, 1, 12, 0, 0, 0, out, sizeof out, false);
                if (std::string(out) != expected[z])
                    ++wrong;
            }
        });
    for (std::thread& t : threads)
        t.join();
    EXPECT_EQ(wrong.load(), 0);
}

TEST(ULocaleTest, PartsThroughICU) {
    const ULocale de("de", "DE", "PREEURO");
    EXPECT_EQ(text(de.getLanguage()), "de");
    EXPECT_EQ(text(de.getCountry()), "DE");
    EXPECT_EQ(text(de.getVariant()), "PREEURO");
    EXPECT_EQ(text(de.getName()), "de_DE_PREEURO");
    EXPECT_EQ(text(de.getISO3Language()), "deu");
    EXPECT_EQ(text(de.getISO3Country()), "DEU");
    const UString fr = u8("fr"), ca = u8("CA");
    const ULocale frCA(&fr, &ca, nullptr);
    EXPECT_EQ(text(frCA.getName()), "fr_CA");
    EXPECT_EQ(frCA.getWinLCID(), 0x0c0cu);
    EXPECT_EQ(text(ULocale(0x0407u).getName()), "de_DE");
    EXPECT_TRUE(ULocale(0xFFFFFFu).getName().empty());
    ULocale copy;
    EXPECT_TRUE(copy.getName().empty());
    copy.assign(de);
    EXPECT_EQ(text(copy.getCountry()), "DE");
    // A name longer than the first buffer takes the second.
    const std::string longVariant(200, 'X');
    EXPECT_EQ(text(ULocale("en", "US", longVariant.c_str()).getVariant()), longVariant);
}
