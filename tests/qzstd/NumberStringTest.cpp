//===- tests/qzstd/NumberStringTest.cpp - Integers to text ----------------===//
#include "qzstd/NumberString.h"
#include "qzstd/memutl.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <string>

namespace {

// Runs a *ToBuffer writer into a buffer fenced with '#', so that a byte
// written beyond `width` shows.
template <typename Writer> std::string fenced(Writer write, size_t width) {
    char buffer[32];
    std::fill(std::begin(buffer), std::end(buffer), '#');
    write(buffer, width);
    return std::string(buffer, width + 1);
}

TEST(NumberStringTest, ToStringExtremes) {
    // Every width at its limits, the most negative values included; the result is the length.
    char out[24];
    EXPECT_EQ(i64ToString(INT64_MIN, out), 20u);
    EXPECT_STREQ(out, "-9223372036854775808");
    EXPECT_EQ(i64ToString(INT64_MAX, out), 19u);
    EXPECT_STREQ(out, "9223372036854775807");
    EXPECT_EQ(u64ToString(UINT64_MAX, out), 20u);
    EXPECT_STREQ(out, "18446744073709551615");
    EXPECT_EQ(i32ToString(INT32_MIN, out), 11u);
    EXPECT_STREQ(out, "-2147483648");
    EXPECT_EQ(u32ToString(UINT32_MAX, out), 10u);
    EXPECT_STREQ(out, "4294967295");
    EXPECT_EQ(i16ToString(INT16_MIN, out), 6u);
    EXPECT_STREQ(out, "-32768");
    EXPECT_EQ(u16ToString(UINT16_MAX, out), 5u);
    EXPECT_STREQ(out, "65535");
    EXPECT_EQ(i8ToString(INT8_MIN, out), 4u);
    EXPECT_STREQ(out, "-128");
    EXPECT_EQ(u8ToString(UINT8_MAX, out), 3u);
    EXPECT_STREQ(out, "255");
    EXPECT_EQ(i32ToString(0, out), 1u);
    EXPECT_STREQ(out, "0");
    EXPECT_EQ(i8ToString(-1, out), 2u);
    EXPECT_STREQ(out, "-1");
}

TEST(NumberStringTest, ToBufferPadsAndDropsHighDigits) {
    // Exactly `width` bytes, no terminator: zero padding, a leading '-', high digits dropped.
    EXPECT_EQ(fenced([](char* d, size_t w) { u32ToBuffer(7, d, w); }, 5), "00007#");
    EXPECT_EQ(fenced([](char* d, size_t w) { u32ToBuffer(12345, d, w); }, 3), "345#");
    EXPECT_EQ(fenced([](char* d, size_t w) { i32ToBuffer(-42, d, w); }, 5), "-0042#");
    EXPECT_EQ(fenced([](char* d, size_t w) { i32ToBuffer(-12345, d, w); }, 4), "-345#");
    EXPECT_EQ(fenced([](char* d, size_t w) { i64ToBuffer(INT64_MIN, d, w); }, 20),
              "-9223372036854775808#");
    EXPECT_EQ(fenced([](char* d, size_t w) { i64ToBuffer(INT64_MIN, d, w); }, 4), "-808#");
    EXPECT_EQ(fenced([](char* d, size_t w) { u64ToBuffer(UINT64_MAX, d, w); }, 2), "15#");
    EXPECT_EQ(fenced([](char* d, size_t w) { i16ToBuffer(-5, d, w); }, 1), "-#");
    EXPECT_EQ(fenced([](char* d, size_t w) { u8ToBuffer(9, d, w); }, 0), "#");
    EXPECT_EQ(fenced([](char* d, size_t w) { i8ToBuffer(-3, d, w); }, 0), "#");
}

TEST(NumberStringTest, HexAndOctal) {
    // Fixed-width hex drops high digits; qzHexString widens to fit; octal has no padding.
    char out[32];
    EXPECT_EQ(HexString(0xABC, out, 2, false), 2u);
    EXPECT_STREQ(out, "bc");
    HexString(0xABC, out, 6, true);
    EXPECT_STREQ(out, "000ABC");
    HexString(UINT64_MAX, out, 16, false);
    EXPECT_STREQ(out, "ffffffffffffffff");
    EXPECT_EQ(qzHexString(out, 0xabc, 2, false), 3u);
    EXPECT_STREQ(out, "abc");
    EXPECT_EQ(qzHexString(out, 0, 0, false), 1u);
    EXPECT_STREQ(out, "0");
    EXPECT_EQ(qzHexString(out, 0x1f, 4, true), 4u);
    EXPECT_STREQ(out, "001F");
    EXPECT_EQ(OctalString(8, out), 2u);
    EXPECT_STREQ(out, "10");
    EXPECT_EQ(OctalString(0, out), 1u);
    EXPECT_STREQ(out, "0");
    EXPECT_EQ(OctalString(UINT64_MAX, out), 22u);
    EXPECT_STREQ(out, "1777777777777777777777");
}

} // namespace
