//===- tests/qzunicode/ConverterTest.cpp - Converters and ULIB entry points ===//
//
// Round trips through sets of each kind ICU opens, the copy paths of
// ULIB_CStoCS (whole characters on overflow, surrogate pairs kept together),
// bad input under each error behaviour, the table converter that stands in
// when ICU cannot open a set, and the per-thread and process settings.
//
//===----------------------------------------------------------------------===//
#include "qzunicode/CSConverter.h"
#include "qzunicode/detail/CSConverterSBCS.h"
#include "qzunicode/ULib.h"

#include <gtest/gtest.h>

#include <unicode/ucnv.h>

#include <cstring>
#include <string>
#include <thread>
#include <vector>

using namespace qzs::qzlib::qzunicode;

namespace {

ULibCharSet cs(std::int32_t n) {
    return ULibCharSet(n);
}

using U16 = std::u16string;

const unsigned short* us(const U16& s) {
    return reinterpret_cast<const unsigned short*>(s.data());
}

std::string bytes(const void* p, int n) {
    return std::string(static_cast<const char*>(p), n);
}

// Restores the thread's settings a test changed.
class ThreadSettingsGuard {
public:
    ~ThreadSettingsGuard() {
        ULIB_setConverterErrorBehavior(ULIB_CNV_STOP);
        ULIB_setFallback(false);
        const unsigned short sub = 0x1A;
        ULIB_setSubstString(&sub, 1);
    }
};

// Each set with a text it can hold whole.
struct RoundTrip {
    std::int32_t set;
    U16 text;
};

// Scenario: every kind of ICU converter takes native UTF-16 out and back
// unchanged, and sets 1 and 4 come out native with no byte order mark.
TEST(ConverterTest, RoundTripsThroughEachKindOfSet) {
    const U16 latin = u"Caf\u00e9 na\u00efve \u00c5ngstr\u00f6m";
    const U16 japanese = u"\u65e5\u672c\u8a9e\u30c6\u30ad\u30b9\u30c8 abc";
    const U16 astral = u"a\U0001F600b\u00e9\u4e2d";
    const std::vector<RoundTrip> cases = {
        {0, astral},   {1032, latin},    {1003, latin + u"\u20ac"},
        {1047, latin}, {5000, japanese}, {5040, japanese},
        {2, astral},   {3, astral},      {1, astral},
        {4, astral},   {5, astral},      {6, astral},
    };
    for (const RoundTrip& c : cases) {
        SCOPED_TRACE(c.set);
        char encoded[256];
        ULibError err = ULIB_ERR_UNKNOWN;
        const int n = ULIB_fromUTF16(cs(c.set), encoded, sizeof encoded, us(c.text),
                                     int(c.text.size()), &err);
        ASSERT_EQ(ULIB_OK, err);
        ASSERT_GT(n, 0);
        unsigned short back[128];
        const int m = ULIB_toUTF16(cs(c.set), back, 128, encoded, n, &err);
        ASSERT_EQ(ULIB_OK, err);
        EXPECT_EQ(c.text, U16(reinterpret_cast<char16_t*>(back), m));
        if (c.set == 1 || c.set == 3) {
            EXPECT_EQ(bytes(c.text.data(), n), bytes(encoded, n));
        }
    }

    // Known bytes, so a round trip through the wrong table cannot pass.
    char out[16];
    EXPECT_EQ(2, ULIB_fromUTF16(cs(1047), out, 16, us(u"A1"), 2, nullptr));
    EXPECT_EQ("\xC1\xF1", bytes(out, 2));
    EXPECT_EQ(4, ULIB_fromUTF16(cs(5000), out, 16, us(u"\u65e5\u672c"), 2, nullptr));
    EXPECT_EQ("\x93\xFA\x96\x7B", bytes(out, 4));

    // The two-step path between two byte sets: UTF-8 to Shift_JIS and EUC-JP.
    const std::string utf8 = "\xE6\x97\xA5\xE6\x9C\xAC x";
    ULibError err = ULIB_ERR_UNKNOWN;
    int n = ULIB_CStoCS(cs(5000), out, 16, 0, cs(0), utf8.data(), int(utf8.size()), false, false,
                        &err, nullptr);
    EXPECT_EQ(ULIB_OK, err);
    EXPECT_EQ("\x93\xFA\x96\x7B x", bytes(out, n));
    n = ULIB_fromUTF8(cs(5040), out, 16, utf8.c_str(), -1, &err);
    EXPECT_EQ(ULIB_OK, err);
    EXPECT_EQ("\xC6\xFC\xCB\xDC x", bytes(out, n));
}

// Scenario: UTF-16 copies stop before a pair that does not fit, count a pair
// as one character, swap between byte orders, and work at odd addresses.
TEST(ConverterTest, UTF16CopyNeverSplitsASurrogatePair) {
    const U16 abPair = u"ab\U0001F600";
    unsigned char out[16];
    ULibError err = ULIB_OK;
    EXPECT_EQ(4,
              ULIB_CStoCS(cs(1), out, 6, 0, cs(1), abPair.data(), 8, false, false, &err, nullptr));
    EXPECT_EQ(ULIB_ERR_BUFFER_OVERFLOW, err);
    // A 7-byte target has the same room as a 6-byte one.
    EXPECT_EQ(4,
              ULIB_CStoCS(cs(1), out, 7, 0, cs(3), abPair.data(), 8, false, false, &err, nullptr));

    const U16 pairAb = u"\U0001F600ab";
    EXPECT_EQ(6,
              ULIB_CStoCS(cs(1), out, 16, 2, cs(1), pairAb.data(), 8, false, false, &err, nullptr));
    EXPECT_EQ(ULIB_ERR_MAX_CHARS, err);
    EXPECT_EQ(8,
              ULIB_CStoCS(cs(1), out, 16, 3, cs(1), pairAb.data(), 8, false, false, &err, nullptr));
    EXPECT_EQ(ULIB_OK, err);

    // Native to big-endian, at an odd target address, and back from an odd
    // source address, with the length measured from the terminator.
    unsigned char buf[20] = {};
    EXPECT_EQ(8, ULIB_CStoCS(cs(2), buf + 1, 19, 0, cs(1), pairAb.c_str(), -1, false, false, &err,
                             nullptr));
    EXPECT_EQ(ULIB_OK, err);
    EXPECT_EQ(bytes("\xD8\x3D\xDE\x00\x00\x61\x00\x62", 8), bytes(buf + 1, 8));
    char16_t native[4];
    EXPECT_EQ(8, ULIB_CStoCS(cs(1), native, 8, 0, cs(2), buf + 1, -1, false, false, &err, nullptr));
    EXPECT_EQ(pairAb, U16(native, 4));
    // An empty source at an odd address converts to nothing, as at an even one.
    EXPECT_EQ(0, ULIB_CStoCS(cs(0), buf, 8, 0, cs(1), buf + 1, 0, false, false, &err, nullptr));
    EXPECT_EQ(ULIB_OK, err);

    // UTF-32: whole characters by the room and by maxChars, reversed between
    // orders.
    const std::u32string wide = U"ab\U0001F600";
    unsigned char w[12];
    EXPECT_EQ(8, ULIB_CStoCS(cs(5), w, 11, 0, cs(6), wide.data(), 12, false, false, &err, nullptr));
    EXPECT_EQ(ULIB_ERR_BUFFER_OVERFLOW, err);
    EXPECT_EQ(bytes("\0\0\0a\0\0\0b", 8), bytes(w, 8));
    EXPECT_EQ(4, ULIB_CStoCS(cs(4), w, 12, 1, cs(4), wide.data(), 12, false, false, &err, nullptr));
}

// Scenario: a full target keeps whole characters on every path, except the
// single-byte copy to itself, which is cut at the room.
TEST(ConverterTest, OverflowKeepsWholeCharacters) {
    char out[16];
    ULibError err = ULIB_OK;
    const std::string sjis = "\x93\xFA\x96\x7B\x8C\xEA"; // three double-byte characters
    EXPECT_EQ(
        4, ULIB_CStoCS(cs(5000), out, 5, 0, cs(5000), sjis.data(), 6, false, false, &err, nullptr));
    EXPECT_EQ(ULIB_ERR_BUFFER_OVERFLOW, err);
    EXPECT_EQ(sjis.substr(0, 4), bytes(out, 4));

    EXPECT_EQ(3,
              ULIB_CStoCS(cs(1032), out, 3, 0, cs(1032), "abcdef", 6, false, false, &err, nullptr));
    EXPECT_EQ(ULIB_ERR_BUFFER_OVERFLOW, err);
    EXPECT_EQ(4, ULIB_CStoCS(cs(0), out, 4, 0, cs(1000), "abcdef", 6, false, false, &err, nullptr));

    // UTF-8 "a" + 3-byte euro + 4-byte emoji into UTF-16 and into UTF-8 again
    // by force, with room for less than all of it.
    const std::string utf8 = "a\xE2\x82\xAC\xF0\x9F\x98\x80";
    unsigned short units[4];
    EXPECT_EQ(2, ULIB_toUTF16(cs(0), units, 3, utf8.data(), int(utf8.size()), &err));
    EXPECT_EQ(ULIB_ERR_BUFFER_OVERFLOW, err);
    EXPECT_EQ(4, ULIB_CStoCS(cs(0), out, 7, 0, cs(0), utf8.data(), 8, true, false, &err, nullptr));
    EXPECT_EQ(ULIB_ERR_BUFFER_OVERFLOW, err);
    EXPECT_EQ(utf8.substr(0, 4), bytes(out, 4));

    // A bad character past the room: ICU counts on past a full target and
    // reports the bad character instead of the overflow. The target must still
    // end on a whole character (it used to hold half of the next one).
    const U16 fullThenBad = u"\u65e5\u672c\xD800";
    EXPECT_EQ(3, ULIB_fromUTF16(cs(0), out, 4, us(fullThenBad), 3, &err));
    EXPECT_EQ(ULIB_ERR_BUFFER_OVERFLOW, err);
    EXPECT_EQ(1, ULIB_toUTF16(cs(0), units, 2, "a\xF0\x9F\x98\x80\xFF", 6, &err));
    EXPECT_EQ(ULIB_ERR_BUFFER_OVERFLOW, err);

    // A long source into a tiny target still finds the fitting prefix.
    const std::string longText(100000, 'x');
    EXPECT_EQ(3, ULIB_CStoCS(cs(1047), out, 3, 0, cs(0), longText.data(), int(longText.size()),
                             false, false, &err, nullptr));
    EXPECT_EQ(ULIB_ERR_BUFFER_OVERFLOW, err);
}

// Scenario: malformed and unmappable input under stop, skip and substitute,
// the thread's substitution string, and the substitute argument.
TEST(ConverterTest, BadCharactersFollowTheThreadBehaviour) {
    ThreadSettingsGuard guard;
    const std::string badUtf8 = "a\xFF"
                                "b";
    unsigned short units[8];
    ULibError err = ULIB_OK;
    ULIB_toUTF16(cs(0), units, 8, badUtf8.data(), 3, &err);
    EXPECT_EQ(ULIB_ERR_INVALID_CHAR, err);

    ULIB_setConverterErrorBehavior(ULIB_CNV_SKIP);
    EXPECT_EQ(2, ULIB_toUTF16(cs(0), units, 8, badUtf8.data(), 3, &err));
    EXPECT_EQ(ULIB_OK, err);
    EXPECT_EQ(u"ab", U16(reinterpret_cast<char16_t*>(units), 2));

    ULIB_setConverterErrorBehavior(ULIB_CNV_SUBSTITUTE);
    const unsigned short sub[] = {'?', '!'};
    ASSERT_EQ(ULIB_OK, ULIB_setSubstString(sub, 2));
    char out[16];
    const std::string euro = "x\xE2\x82\xACy";
    int n = ULIB_CStoCS(cs(1032), out, 16, 0, cs(0), euro.data(), 5, false, false, &err, nullptr);
    EXPECT_EQ("x?!y", bytes(out, n));

    ULIB_setConverterErrorBehavior(ULIB_CNV_STOP);
    n = ULIB_CStoCS(cs(1032), out, 16, 0, cs(0), euro.data(), 5, false, false, &err, nullptr);
    EXPECT_EQ(ULIB_ERR_INVALID_CHAR, err);
    // substitute overrides the thread's stop, on the two-step path and on the
    // paths to and from UTF-16 alike.
    n = ULIB_CStoCS(cs(1032), out, 16, 0, cs(0), euro.data(), 5, false, true, &err, nullptr);
    EXPECT_EQ(ULIB_OK, err);
    EXPECT_EQ("x?!y", bytes(out, n));
    n = ULIB_CStoCS(cs(1), units, 16, 0, cs(0), badUtf8.data(), 3, false, true, &err, nullptr);
    // (reading bytes, ICU writes U+FFFD; the thread's string is for writing a set)
    EXPECT_EQ(u"a\uFFFDb", U16(reinterpret_cast<char16_t*>(units), n / 2));
    const char16_t euro16[] = u"x\u20ACy";
    n = ULIB_CStoCS(cs(1032), out, 16, 0, cs(1), euro16, 6, false, true, &err, nullptr);
    EXPECT_EQ("x?!y", bytes(out, n));
    EXPECT_EQ(ULIB_CNV_STOP, ULIB_getConverterErrorBehavior()); // and the thread's is back

    // ICU's escapes, in C form both ways.
    ULIB_setConverterErrorBehavior(ULIB_CNV_ESCAPE);
    n = ULIB_CStoCS(cs(1032), out, 16, 0, cs(0), euro.data(), 5, false, false, &err, nullptr);
    EXPECT_EQ("x\\u20ACy", bytes(out, n));
    n = ULIB_toUTF16(cs(0), units, 8, badUtf8.data(), 3, &err);
    EXPECT_EQ(u"a\\xFFb", U16(reinterpret_cast<char16_t*>(units), n));
}

// Scenario: a bad character in the first of two steps through UTF-16 used to
// give the prefix with no error, as the second step met nothing wrong: a row
// silently cut short. The first step's error must stand, on every path.
TEST(ConverterTest, FirstStepErrorIsNeverLost) {
    ThreadSettingsGuard guard;
    struct Case {
        std::int32_t source, target;
        std::string in, out;
        ULibError err;
    };
    const Case cases[] = {
        {0, 1032, "hello \xFF\xFE world", "hello ", ULIB_ERR_INVALID_CHAR},
        {1017, 0, "AB\xAA" "CD", "AB", ULIB_ERR_INVALID_CHAR},
        {1017, 2, "AB\xAA" "CD", std::string("\0A\0B", 4), ULIB_ERR_INVALID_CHAR},
        {1017, 1, "AB\xAA" "CD", std::string("A\0B\0", 4), ULIB_ERR_INVALID_CHAR},
        {1017, 1032, "AB\xAA" "CD", "AB", ULIB_ERR_INVALID_CHAR},
        // a character cut by the end: the prefix now comes out, with ICU's code
        {0, 1032, "abc\xE4\xB8", "abc", ULIB_ERR_UNKNOWN},
        // the second step's own error still wins
        {0, 1032, "ab\xE2\x82\xAC\xFF", "ab", ULIB_ERR_INVALID_CHAR},
    };
    for (const Case& c : cases) {
        char out[64];
        ULibError err = ULIB_OK;
        const int n = ULIB_CStoCS(cs(c.target), out, sizeof out, 0, cs(c.source), c.in.data(),
                                  int(c.in.size()), true, false, &err, nullptr);
        EXPECT_EQ(c.out, bytes(out, n)) << c.source << " to " << c.target;
        EXPECT_EQ(c.err, err) << c.source << " to " << c.target;
    }
    // The narrow form the report came from.
    char out[32];
    ULibError err = ULIB_OK;
    EXPECT_EQ(6, ULIB_fromUTF8(cs(1032), out, 32, "hello \xFF\xFE world", 14, &err));
    EXPECT_EQ(ULIB_ERR_INVALID_CHAR, err);
}

// Scenario: each documented argument error gives 1002 and 0, and a null
// error pointer is allowed.
TEST(ConverterTest, BadArgumentsAreRejected) {
    char out[8];
    const char16_t odd[] = u"abc";
    ULibError err = ULIB_OK;
    auto rejected = [&](int result) {
        const bool ok = result == 0 && err == ULIB_ERR_ILLEGAL_ARGUMENT;
        err = ULIB_OK;
        return ok;
    };
    EXPECT_TRUE(
        rejected(ULIB_CStoCS(cs(0), nullptr, 8, 0, cs(0), "a", 1, false, false, &err, nullptr)));
    EXPECT_TRUE(
        rejected(ULIB_CStoCS(cs(0), out, 0, 0, cs(0), "a", 1, false, false, &err, nullptr)));
    EXPECT_TRUE(
        rejected(ULIB_CStoCS(cs(0), out, 8, 0, cs(0), nullptr, 1, false, false, &err, nullptr)));
    EXPECT_TRUE(
        rejected(ULIB_CStoCS(cs(0), out, 8, 0, cs(0), "a", -2, false, false, &err, nullptr)));
    EXPECT_TRUE(rejected(
        ULIB_CStoCS(cs(0), out, 8, 0x80000000u, cs(0), "a", 1, false, false, &err, nullptr)));
    EXPECT_TRUE(
        rejected(ULIB_CStoCS(cs(0), out, 8, 0, cs(1), odd, 3, false, false, &err, nullptr)));
    EXPECT_TRUE(
        rejected(ULIB_CStoCS(cs(4), out, 8, 0, cs(5), odd, 6, false, false, &err, nullptr)));
    unsigned short units[4];
    EXPECT_TRUE(rejected(ULIB_toUTF16(cs(0), units, 0, "a", 1, &err)));
    EXPECT_TRUE(rejected(ULIB_fromUTF16(cs(0), out, 8, nullptr, 1, &err)));
    EXPECT_TRUE(rejected(ULIB_fromUTF16(cs(0), out, 8, units, -3, &err)));
    EXPECT_EQ(0, ULIB_CStoCS(cs(0), nullptr, 8, 0, cs(0), "a", 1, false, false, nullptr, nullptr));

    EXPECT_EQ(0, ULIB_getNumUTF16Units(nullptr));
    EXPECT_EQ(3, ULIB_getNumUTF16Units(reinterpret_cast<const unsigned short*>(odd)));
    unsigned char fill[7] = {};
    ULIB_fillChars(reinterpret_cast<unsigned short*>(fill + 1), 0x4142, 3);
    EXPECT_EQ(bytes("\0\x42\x41\x42\x41\x42\x41", 7), bytes(fill, 7));
}

// Scenario: a number in no block opens ICU's default; a set ICU has no data
// for falls back on the thread's ISO-8859-1 table converter; a pair with no
// optimised converter has nothing to override.
TEST(ConverterTest, UnknownAndUnopenableSetsStillConvert) {
    EXPECT_EQ(ULIB_ERR_NO_CONVERTER, ULIB_charMapOverride(cs(4), 0x41, cs(1047), 0xC2));
    EXPECT_TRUE(ULIB_isSupported(cs(123456)));
    EXPECT_TRUE(ULIB_isSupported(cs(5000)));
    EXPECT_FALSE(ULIB_isSupported(cs(10000))); // a database name ICU does not ship
    CSConverter fallback(cs(10000));
    EXPECT_TRUE(fallback.isDefaultConverter());
    EXPECT_STREQ("ISO-8859-1", fallback.getCharSetName());
    EXPECT_EQ(CNV_TYPE_SBCS, fallback.getType());

    char out[8];
    ULibError err = ULIB_ERR_UNKNOWN;
    const std::string e = "\xC3\xA9";
    EXPECT_EQ(1,
              ULIB_CStoCS(cs(10000), out, 8, 0, cs(0), e.data(), 2, false, false, &err, nullptr));
    EXPECT_EQ(ULIB_OK, err);
    EXPECT_EQ("\xE9", bytes(out, 1));
}

// Scenario: the table converter's escape, substitute and stop forms, and a run
// of zero bytes that must not carry the output past the target.
TEST(ConverterTest, TableConverterHandlesUnmappedCharacters) {
    ThreadSettingsGuard guard;
    const unsigned short pairs[] = {'A', 'A', '{', '{', '}', '}', 'U', 'U', '+',  '+',    '0', '0',
                                    '2', '2', '3', '3', '6', '6', 'A', 'A', 0x80, 0x20AC, 0,   0};
    CSConverterSBCS conv(pairs, "test");
    unsigned short units[8];
    ULibError err = ULIB_OK;

    ULIB_setConverterErrorBehavior(ULIB_CNV_ESCAPE);
    EXPECT_EQ(5, conv.toUTF16(units, 8, "A\x9C", 2, &err));
    EXPECT_EQ(ULIB_ERR_INVALID_CHAR, err);
    EXPECT_EQ(u"A\\x9C", U16(reinterpret_cast<char16_t*>(units), 5));
    char out[16];
    const unsigned short euroAndX[] = {0x20AC, 0x263A};
    EXPECT_EQ(9, conv.fromUTF16(out, 16, euroAndX, 2, &err));
    EXPECT_EQ("\x80{U+263A}", bytes(out, 9));
    // Not enough room for the escape: stop.
    EXPECT_EQ(1, conv.fromUTF16(out, 8, euroAndX, 2, &err));
    EXPECT_EQ(ULIB_ERR_INVALID_CHAR, err);

    ULIB_setConverterErrorBehavior(ULIB_CNV_SUBSTITUTE);
    EXPECT_EQ(2, conv.toUTF16(units, 8,
                              "\x9C"
                              "A",
                              2, &err));
    EXPECT_EQ(0x1A, units[0]);
    EXPECT_EQ(ULIB_ERR_INVALID_CHAR, err);

    ULIB_setConverterErrorBehavior(ULIB_CNV_STOP);
    EXPECT_EQ(1, conv.toUTF16(units, 8,
                              "A\x9C"
                              "A",
                              3, &err));
    EXPECT_EQ(ULIB_ERR_INVALID_CHAR, err);

    unsigned short guarded[4] = {0xBEEF, 0xBEEF, 0xBEEF, 0xBEEF};
    EXPECT_EQ(2, conv.toUTF16(guarded, 2, "\0\0\0\0", 4, &err));
    EXPECT_EQ(ULIB_ERR_BUFFER_OVERFLOW, err);
    EXPECT_EQ(0xBEEF, guarded[2]);

    CSConverterSBCS copy(conv);
    EXPECT_EQ(1, copy.fromUTF16(out, 4, euroAndX, 1, &err));
    EXPECT_EQ('\x80', out[0]);
}

// Scenario: escapes in a flagged set's text become characters, in the
// plain set's bytes; short or malformed forms stay as text.
TEST(ConverterTest, EscapeFlagReadsEscapeSequences) {
    const ULibCharSet latin1Esc = ULibCharSet(1032 | ULIB_CS_ESCAPE_FLAG);
    auto read = [](ULibCharSet set, const std::string& text, ULibError* err = nullptr) {
        unsigned short units[32];
        const int n = ULIB_toUTF16(set, units, 32, text.data(), int(text.size()), err);
        return U16(reinterpret_cast<char16_t*>(units), n);
    };
    EXPECT_EQ(u"abAcd", read(latin1Esc, "ab\\x41cd"));
    EXPECT_EQ(u"\u00e9", read(latin1Esc, "\\u00e9"));
    EXPECT_EQ(u"x\u20ac!", read(latin1Esc, "x\\u20AC!"));
    EXPECT_EQ(u"\\x4", read(latin1Esc, "\\x4"));
    EXPECT_EQ(u"abc\\u12", read(latin1Esc, "abc\\u12"));
    EXPECT_EQ(u"a\\\\b", read(latin1Esc, "a\\\\b"));
    // The octal form reads the unit after its three and leaves it in place.
    EXPECT_EQ(u"\t1", read(latin1Esc, "\\1011"));
    // EBCDIC: \xC1 is the set's byte for 'A'.
    EXPECT_EQ(u"zA", read(ULibCharSet(1047 | ULIB_CS_ESCAPE_FLAG), "\xA9\xE0\xA7\xC3\xF1"));
    // Writing to a flagged set never produces escapes.
    char out[8];
    EXPECT_EQ(2, ULIB_fromUTF16(latin1Esc, out, 8, us(u"\u00e9!"), 2, nullptr));
    EXPECT_EQ("\xE9!", bytes(out, 2));
    EXPECT_TRUE(ULIB_isSupported(latin1Esc));
}

// Scenario: one thread's settings never reach another, and a bad substitution
// string changes nothing.
TEST(ConverterTest, SettingsArePerThread) {
    ThreadSettingsGuard guard;
    ULIB_setConverterErrorBehavior(ULIB_CNV_SKIP);
    ULIB_setFallback(true);
    const unsigned short five[] = {1, 2, 3, 4, 5};
    EXPECT_EQ(ULIB_ERR_ILLEGAL_ARGUMENT, ULIB_setSubstString(five, 5));
    unsigned short buf[4];
    int n = 4;
    ASSERT_EQ(ULIB_OK, ULIB_getSubstString(buf, &n));
    EXPECT_EQ(1, n);
    EXPECT_EQ(0x1A, buf[0]);
    EXPECT_EQ(ULIB_OK, ULIB_setSubstString(five, 0));
    n = 0;
    EXPECT_EQ(ULIB_OK, ULIB_getSubstString(buf, &n));
    EXPECT_EQ(0, n);

    std::thread([] {
        EXPECT_EQ(ULIB_CNV_STOP, ULIB_getConverterErrorBehavior());
        EXPECT_FALSE(ULIB_getFallback());
        unsigned short b[1];
        int len = 0;
        EXPECT_EQ(ULIB_ERR_ILLEGAL_ARGUMENT, ULIB_getSubstString(b, &len));
    }).join();
    EXPECT_EQ(ULIB_CNV_SKIP, ULIB_getConverterErrorBehavior());
}

// Scenario: the process default is what a converter opened for it reports
// (ICU built for UTF-8 everywhere ignores a new default name), and
// ULIB_CS_DEFAULT converts as the stored set.
TEST(ConverterTest, DefaultSetIsWhatICUOpens) {
    const std::string before = ucnv_getDefaultName();
    const ULibCharSet opened = CharSetTable::toCharSet(ULIB_getDefaultCharSetName());
    EXPECT_NE(ULIB_CS_INVALID, opened);
    EXPECT_EQ(opened, ULIB_getDefaultCharSet());
    const ULibCharSet set = ULIB_setDefaultCharSet(cs(1047));
    EXPECT_EQ(CharSetTable::toCharSet(ULIB_getDefaultCharSetName()), set);
    EXPECT_EQ(set, ULIB_getDefaultCharSet());

    CharSetTable::storeDefaultCharSet(cs(1047));
    char out[4];
    ULibError err = ULIB_ERR_UNKNOWN;
    EXPECT_EQ(1,
              ULIB_CStoCS(ULIB_CS_DEFAULT, out, 4, 0, cs(0), "A", 1, false, false, &err, nullptr));
    EXPECT_EQ('\xC1', out[0]);

    ucnv_setDefaultName(before.c_str());
    CharSetTable::storeDefaultCharSet(ULIB_CS_INVALID);
}

} // namespace

// The front end's set lookups answer as the table does, including for the
// process default and a number in no block (hosts call them on CSConverter).
TEST(ConverterFrontEnd, LookupsAnswerAsTheTable) {
    for (std::int32_t n : {0, 2, 1000, 1003, 5000, 10000, 10229, 999, std::int32_t(ULIB_CS_DEFAULT)}) {
        SCOPED_TRACE(n);
        ULibCharSet c = cs(n);
        EXPECT_EQ(CSConverter::toConverterName(c), CharSetTable::toConverterName(c));
        EXPECT_EQ(CSConverter::toMIMEName(c), CharSetTable::toMIMEName(c));
        EXPECT_EQ(CSConverter::toCCSID(c), CharSetTable::toCCSID(c));
        EXPECT_EQ(CSConverter::isUSASCIICompatible(c), CharSetTable::isUSASCIICompatible(c));
        EXPECT_EQ(CSConverter::isEBCDIC(c), CharSetTable::isEBCDIC(c));
        EXPECT_EQ(CSConverter::getMinCharSize(c), CharSetTable::getMinCharSize(c));
        EXPECT_EQ(CSConverter::getMaxCharSize(c), CharSetTable::getMaxCharSize(c));
        EXPECT_EQ(CSConverter::getNullCharSize(c), CharSetTable::getNullCharSize(c));
        if (const char* name = CharSetTable::toConverterName(c)) {
            EXPECT_EQ(CSConverter::toCharSet(name), CharSetTable::toCharSet(name));
        }
        if (const char* mime = CharSetTable::toMIMEName(c)) {
            EXPECT_EQ(CSConverter::fromMIMEName(mime), CharSetTable::fromMIMEName(mime));
        }
        EXPECT_EQ(CSConverter::fromCCSID(CharSetTable::toCCSID(c)), CharSetTable::fromCCSID(CharSetTable::toCCSID(c)));
    }
    EXPECT_EQ(ULIB_CS_INVALID, CSConverter::toCharSet(nullptr));
}
