//===- tests/qzunicode/UStringArrayTest.cpp - Split, join and grow --------===//
#include "qzunicode/UStringArray.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace qzs::qzlib::qzunicode;

namespace {

constexpr ULibCharSet kUTF8 = ULibCharSet(0);

UString u8(const char* s) {
    return UString(s, kUTF8);
}

// The items joined by '|' so that empty ones show.
std::string items(const UStringArray& a) {
    std::string out;
    for (std::size_t i = 0; i < a.size(); ++i)
        out += (i ? "|" : "") + std::string(a[i].c_str(kUTF8));
    return std::to_string(a.size()) + ":" + out;
}

} // namespace

// Empty items are kept wherever they fall; a zero or empty separator takes
// the whole string.
TEST(UStringArrayTest, SplitKeepsEmptyItems) {
    struct Case {
        const char* text;
        const char* sep;
        const char* expected;
    } const cases[] = {
        {"a,,b", ",", "3:a||b"},   {"a,", ",", "2:a|"},   {"", ",", "1:"},
        {",", ",", "2:|"},         {"abc", ",", "1:abc"}, {"a::b::", "::", "3:a|b|"},
        {"a:::b", "::", "2:a|:b"}, {"a,b", "", "1:a,b"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.text) + " / " + c.sep);
        if (std::string(c.sep).size() == 1) {
            EXPECT_EQ(items(UStringArray(u8(c.text), static_cast<unsigned short>(c.sep[0]))),
                      c.expected);
        }
        EXPECT_EQ(items(UStringArray(u8(c.text), u8(c.sep))), c.expected);
    }
    EXPECT_EQ(items(UStringArray(u8("a,b"), static_cast<unsigned short>(0))), "1:a,b");
    // A single whole-string item shares the body.
    const UString whole = u8("no separator");
    EXPECT_EQ(UStringArray(whole, static_cast<unsigned short>(','))[0].impl(), whole.impl());
}

TEST(UStringArrayTest, CombineJoinsWithOrWithoutSeparator) {
    const UStringArray a(u8("x,,yz"), static_cast<unsigned short>(','));
    EXPECT_STREQ(a.combine().c_str(kUTF8), "xyz");
    EXPECT_STREQ(a.combine(static_cast<unsigned short>('-')).c_str(kUTF8), "x--yz");
    EXPECT_STREQ(a.combine(u8("<>")).c_str(kUTF8), "x<><>yz");
    EXPECT_STREQ(a.combine(static_cast<unsigned short>(0)).c_str(kUTF8), "xyz");
    EXPECT_STREQ(a.combine(UString()).c_str(kUTF8), "xyz");
    const UStringArray none(u8(""), static_cast<unsigned short>(','));
    UStringArray empty(none);
    empty.erase();
    EXPECT_TRUE(empty.combine(static_cast<unsigned short>(',')).empty());
}

// Growth is by ten slots, and items keep their order through inserts and
// erases at every position, including the array inserted into itself.
TEST(UStringArrayTest, EditsAndGrowth) {
    UStringArray a(u8("0"));
    EXPECT_EQ(a.capacity(), 10u);
    for (int i = 1; i < 25; ++i)
        a += u8(std::to_string(i).c_str());
    EXPECT_EQ(a.size(), 25u);
    EXPECT_EQ(a.capacity(), 30u);
    a.erase(0);
    a.erase(23);
    a.erase(99); // past the end: nothing
    EXPECT_EQ(items(a), "23:1|2|3|4|5|6|7|8|9|10|11|12|13|14|15|16|17|18|19|20|21|22|23");

    UStringArray b(u8("b"));
    b.insert(0, u8("a"));
    b.insert(99, u8("d"));
    b.insert(2, u8("c"));
    EXPECT_EQ(items(b), "4:a|b|c|d");
    b.insert(1, b);
    EXPECT_EQ(items(b), "8:a|a|b|c|d|b|c|d");
    b = u8("only");
    EXPECT_EQ(items(b), "1:only");
    b += b;
    EXPECT_EQ(items(b + u8("x") + UStringArray(u8("y"))), "4:only|only|x|y");
    EXPECT_EQ(items(u8("first") + b), "3:first|only|only");

    // Copies share bodies, and a change to one leaves the other alone.
    UStringArray c(b);
    EXPECT_EQ(c[0].impl(), b[0].impl());
    c[0].append(static_cast<unsigned short>('!'));
    EXPECT_EQ(items(b), "2:only|only");
    EXPECT_EQ(items(c), "2:only!|only");
    c = c;
    EXPECT_EQ(items(c), "2:only!|only");
}
