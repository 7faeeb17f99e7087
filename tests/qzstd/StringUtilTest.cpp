//===- tests/qzstd/StringUtilTest.cpp - Small utilities on C strings ------===//
//
// Tables per family. In-place functions run in a buffer fenced with '#', so
// that a byte written past the text's end or past a given size shows.
//
//===----------------------------------------------------------------------===//
#include "qzstd/StringUtil.h"
#include "qzstd/Memory.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>

namespace {

// Runs `f` on a copy of `in` in a 64-byte buffer fenced with '#', and gives
// the text, with "|FENCE" when a byte beyond the terminator was touched.
std::string inPlace(const std::function<void(char*)>& f, const std::string& in) {
    char buffer[64];
    std::memset(buffer, '#', sizeof buffer);
    std::memcpy(buffer, in.c_str(), in.size() + 1);
    f(buffer);
    std::string out = buffer;
    for (std::size_t i = in.size() + 1; i < sizeof buffer; ++i)
        if (buffer[i] != '#')
            return out + "|FENCE";
    return out;
}

TEST(StringUtilTest, HeapCopies) {
    char* s = nullptr;
    EXPECT_STREQ(qzAllocStrcpy(&s, "first"), "first");
    // A copy of itself, and of its own tail: the old string goes only after the copy.
    EXPECT_STREQ(qzAllocStrcpy(&s, s), "first");
    EXPECT_STREQ(qzAllocStrcpy(&s, s + 2), "rst");
    EXPECT_STREQ(qzAllocStrncpy(&s, "abcdef", 3), "abc");
    EXPECT_STREQ(qzAllocStrncpy(&s, "ab", 10), "ab");
    EXPECT_EQ(qzAllocStrcpy(&s, nullptr), nullptr);
    EXPECT_EQ(s, nullptr);
}

TEST(StringUtilTest, CaseAndTrimmingInPlace) {
    struct Row {
        const char* name;
        std::function<void(char*)> f;
        const char* in;
        const char* out;
    } rows[] = {
        {"upshift", qzUpshift, "abc xyZ 1\xc3\xa9", "ABC XYZ 1\xc3\xa9"},
        {"downshift", qzDownshift, "ABC xyZ", "abc xyz"},
        {"not quoted", qzUpshiftNotQuoted, "map 'a b' x \"c\"d", "MAP 'a b' X \"c\"D"},
        {"unterminated quote protects the rest", qzUpshiftNotQuoted, "a 'b c", "A 'b c"},
        {"paths stay", qzUpshiftNotQuotedNotDir, "outfile trails/aa, table x(y/z)",
         "OUTFILE trails/aa, TABLE X(y/z)"},
        {"a quote ends a path word", qzUpshiftNotQuotedNotDir, "a/b'c'd e", "a/b'c'D E"},
        {"trim", qzTrim, " \t a b \t ", "a b"},
        {"trim all blank", qzTrim, "   ", ""},
        {"ltrim", qzLTrim, "\t a ", "a "},
        {"rtrim", qzRTrim, " a \t", " a"},
        {"rtrim keeps newline", qzRTrim, "a \n", "a \n"},
        {"trim all", qzTrimAll, " a b\tc ", "abc"},
        {"full trim", qzFullTrim, "\r\n\t a b \v\f\r\n", "a b"},
        {"trim LFs", qzTrimLFs, "a \r\n\n", "a "},
        {"trunc splits no UTF-8 character", [](char* t) { qzTruncStr(t, 3); }, "a\xc3\xa9z",
         "a\xc3\xa9"},
        {"trunc backs off", [](char* t) { qzTruncStr(t, 2); }, "a\xc3\xa9z", "a"},
        {"trunc shorter", [](char* t) { qzTruncStr(t, 9); }, "abc", "abc"},
        {"last char in set", [](char* t) { qzRTrimLastChar(t, ";,"); }, "TABLE x;", "TABLE x"},
        {"last char not in set", [](char* t) { qzRTrimLastChar(t, ";"); }, "TABLE x; ",
         "TABLE x; "},
        {"sub", [](char* t) { qzSub(t, ',', ' '); }, "a,b,,c", "a b  c"},
        {"comment", qzTrimComment, "TABLE x -- note", "TABLE x "},
        {"leftmost comment wins", qzTrimComment, "a -- b -- c", "a "},
        {"comment keeps a newline", qzTrimComment, "a--b\n", "a\n"},
        {"dashes in quotes", qzTrimComment, "MAP 'a--b', \"c--\" x", "MAP 'a--b', \"c--\" x"},
        {"comment after quotes", qzTrimComment, "x = 'a--b' -- c\n", "x = 'a--b' \n"},
        {"apostrophe before a comment", qzTrimComment, "it's -- note", "it's "},
        {"single dash", qzTrimComment, "a - b -", "a - b -"},
    };
    for (const Row& r : rows)
        EXPECT_EQ(inPlace(r.f, r.in), r.out) << r.name;
    for (char* (*f)(char*) :
         {qzUpshift, qzUpshiftNotQuotedNotDir, qzTrim, qzTrimAll, qzTrimComment})
        EXPECT_EQ(f(nullptr), nullptr);
}

TEST(StringUtilTest, FixedWidthFields) {
    // A field that fills its buffer exactly: nothing may be written at [length].
    char field[8] = {'a', 'b', ' ', ' ', ' ', ' ', ' ', ' '};
    EXPECT_EQ(qzRTrimByLength(field, sizeof field), 2u);
    EXPECT_STREQ(field, "ab");
    char full[5] = {'a', 'b', 'c', 'd', '#'};
    EXPECT_EQ(qzRTrimByLength(full, 4), 4u);
    EXPECT_EQ(full[4], '#');
    char early[6] = {'a', ' ', '\0', 'x', 'y', 'z'};
    EXPECT_EQ(qzRTrimByLength(early, sizeof early), 1u);
    unsigned short wide[5] = {0x41, 0xD83D, 0xDE00, 0x20, 0x20};
    EXPECT_EQ(qzRTrimUTF16ByLength(wide, 5), 3u);
    EXPECT_EQ(wide[3], 0);
    unsigned short blank[3] = {0x20, 0x20, 0x20};
    EXPECT_EQ(qzRTrimUTF16ByLength(blank, 3), 0u);
}

TEST(StringUtilTest, SubstringReplacement) {
    // Results in a 16-byte buffer; "-1"/"false" rows must leave the text as it was.
    struct Row {
        const char* text;
        const char* find;
        const char* replace;
        int all;         // qzSubStrAll's result
        const char* out; // after qzSubStrAll
        bool first;      // qzSubStr's result
        const char* one; // after qzSubStr
    } rows[] = {
        {"a.b.c", ".", "::", 2, "a::b::c", true, "a::b.c"},
        {"xxabxxab", "xx", "", 2, "abab", true, "abxxab"},
        {"aaaa", "aa", "b", 2, "bb", true, "baa"},
        {"aaa", "a", "aa", 3, "aaaaaa", true, "aaaa"},
        {"abc", "z", "y", 0, "abc", false, "abc"},
        {"abc", "", "y", 0, "abc", false, "abc"},
        {"a.b.c.d.e.f", ".", "-->", -1, "a.b.c.d.e.f", true, "a-->b.c.d.e.f"},
        {"abcdefghijklmn", "a", "123", -1, "abcdefghijklmn", false, "abcdefghijklmn"},
    };
    for (const Row& r : rows) {
        char buffer[16];
        std::strcpy(buffer, r.text);
        EXPECT_EQ(qzSubStrAll(buffer, sizeof buffer, r.find, r.replace), r.all) << r.text;
        EXPECT_STREQ(buffer, r.out) << r.text;
        std::strcpy(buffer, r.text);
        EXPECT_EQ(qzSubStr(buffer, sizeof buffer, r.find, r.replace), r.first) << r.text;
        EXPECT_STREQ(buffer, r.one) << r.text;
    }
}

TEST(StringUtilTest, ComparingAndFinding) {
    EXPECT_EQ(qzUcasencmp("Table", "TABLE", 5), 0);
    EXPECT_EQ(qzUcasencmp("TABLEX", "table", 5), 0);
    EXPECT_LT(qzUcasencmp("abc", "ABD", 9), 0);
    EXPECT_LT(qzUcasencmp("ab", "abc", 9), 0);
    EXPECT_GT(qzUcasencmp("\xc3", "a", 1), 0); // bytes compare unsigned
    EXPECT_LT(qzUcasencmp(nullptr, "a", 1), 0);

    const char* text = "map Src, Target tgt";
    EXPECT_EQ(qzUcaseStr(text, "TARGET"), text + 9);
    EXPECT_EQ(qzUcaseStr(text, "targets"), nullptr);
    EXPECT_EQ(qzUcaseStr(text, ""), text);
    const char* ab = "abab";
    EXPECT_EQ(qzStrRFind(ab, "ab"), ab + 2);
    EXPECT_EQ(qzStrRFind(ab, "abc"), nullptr);
    EXPECT_EQ(qzStrRFind(ab, ""), ab + 4);
    const char* spaced = " \t\r\n x";
    EXPECT_EQ(qzStrSkipSpace(spaced), spaced + 5);
    EXPECT_TRUE(qzIsPrint("Hello, ~!"));
    EXPECT_TRUE(qzIsPrint(""));
    EXPECT_FALSE(qzIsPrint("tab\there"));
    EXPECT_FALSE(qzIsPrint("\xc3\xa9"));
    EXPECT_FALSE(qzIsPrint(nullptr));
}

TEST(StringUtilTest, WildcardMatching) {
    struct Row {
        const char* pattern;
        const char* text;
        bool match;
    } rows[] = {
        {"*", "", true},
        {"", "", true},
        {"", "a", false},
        {"a*", "abc", true},
        {"*c", "abc", true},
        {"a?c", "abc", true},
        {"a?c", "ac", false},
        {"*b*", "abc", true},
        {"a*b*c", "axxbyyc", true},
        {"a*b", "ab_", false},
        {"*.dat", "x.dat.dat", true},
        {"a*bc", "abcbc", true}, // the first "bc" is not the one that ends the text
        {"SCHEMA.*", "schema.t", false},
        {"?", "", false},
        {"**a", "ba", true},
    };
    for (const Row& r : rows)
        EXPECT_EQ(qzIsWildcardMatch(r.pattern, r.text), r.match) << r.pattern << " ~ " << r.text;
    // Many stars against a long text that never matches: quadratic at worst,
    // never exponential, never recursive.
    const std::string stars = std::string(50, '*') + "b";
    const std::string as(20000, 'a');
    EXPECT_FALSE(qzIsWildcardMatch(stars.c_str(), as.c_str()));
}

TEST(StringUtilTest, FormattingIntoBuffers) {
    char out[8];
    EXPECT_EQ(qzEscapePercents("100%", out, sizeof out), 5u);
    EXPECT_STREQ(out, "100%%");
    // Cut: never between the two '%' of a pair, and the needed length comes back.
    EXPECT_EQ(qzEscapePercents("abcdef%x", out, sizeof out), 9u);
    EXPECT_STREQ(out, "abcdef");
    EXPECT_EQ(qzEscapePercents("%%%%", out, sizeof out), 8u);
    EXPECT_STREQ(out, "%%%%%%");
    EXPECT_EQ(qzEscapePercents("abc", out, 0), 3u);

    EXPECT_EQ(qzSnprintf(out, sizeof out, "%d-%s", 42, "xy"), 5);
    EXPECT_STREQ(out, "42-xy");
    EXPECT_EQ(qzSnprintf(out, sizeof out, "%s", "longer than eight"), 7);
    EXPECT_STREQ(out, "longer ");
    EXPECT_EQ(qzSnprintf(out, 0, "%s", "x"), 0);
}

} // namespace
