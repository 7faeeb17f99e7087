//===- tests/qzstd/NumberStringTest.cpp - Integers to text ----------------===//
#include "qzstd/NumberString.h"
#include "qzstd/memutl.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace {

// Runs a *ToBuffer writer into a buffer fenced with '#', so that a byte
// written beyond `width` shows.
template <typename Writer> std::string fenced(Writer write, size_t width) {
    char buffer[32];
    std::fill(std::begin(buffer), std::end(buffer), '#');
    write(buffer, width);
    return std::string(buffer, width + 1);
}

// Answers "<returned length>:<text>" of a *ToString writer.
template <typename Writer> std::string counted(Writer write) {
    char out[32];
    const size_t n = write(out);
    return std::to_string(n) + ":" + out;
}

TEST(NumberStringTest, ToStringExtremes) {
    // Every width at its limits, the most negative values included; the result is the length.
    EXPECT_EQ(counted([](char* o) { return i64ToString(INT64_MIN, o); }),
              "20:-9223372036854775808");
    EXPECT_EQ(counted([](char* o) { return i64ToString(INT64_MAX, o); }), "19:9223372036854775807");
    EXPECT_EQ(counted([](char* o) { return u64ToString(UINT64_MAX, o); }),
              "20:18446744073709551615");
    EXPECT_EQ(counted([](char* o) { return i32ToString(INT32_MIN, o); }), "11:-2147483648");
    EXPECT_EQ(counted([](char* o) { return u32ToString(UINT32_MAX, o); }), "10:4294967295");
    EXPECT_EQ(counted([](char* o) { return i16ToString(INT16_MIN, o); }), "6:-32768");
    EXPECT_EQ(counted([](char* o) { return u16ToString(UINT16_MAX, o); }), "5:65535");
    EXPECT_EQ(counted([](char* o) { return i8ToString(INT8_MIN, o); }), "4:-128");
    EXPECT_EQ(counted([](char* o) { return u8ToString(UINT8_MAX, o); }), "3:255");
    EXPECT_EQ(counted([](char* o) { return i32ToString(0, o); }), "1:0");
    EXPECT_EQ(counted([](char* o) { return i8ToString(-1, o); }), "2:-1");
}

TEST(NumberStringTest, ToStringAgreesWithPrintfAtEveryLength) {
    // Each digit count, its edges (10^k - 1, 10^k) and random values, both
    // signs: the short and the split forms of the decimal writer meet here.
    std::mt19937_64 random(20261125);
    std::vector<uint64_t> values = {0};
    for (uint64_t p = 1, k = 0; k < 20; ++k, p *= 10) {
        values.push_back(p - 1);
        values.push_back(p);
        for (int i = 0; i < 200; ++i)
            values.push_back(p + random() % (k < 19 ? p * 9 : UINT64_MAX - p));
    }
    char text[32], expected[32];
    for (uint64_t v : values) {
        std::snprintf(expected, sizeof expected, "%llu", static_cast<unsigned long long>(v));
        for (auto write : {u64ToString, u64ToStringPadded}) {
            std::memset(text, '#', sizeof text);
            ASSERT_EQ(write(v, text), std::strlen(expected));
            ASSERT_STREQ(text, expected);
        }
        const int64_t negative = -static_cast<int64_t>(v >> 1);
        std::snprintf(expected, sizeof expected, "%lld", static_cast<long long>(negative));
        for (auto write : {i64ToString, i64ToStringPadded}) {
            std::memset(text, '#', sizeof text);
            ASSERT_EQ(write(negative, text), std::strlen(expected));
            ASSERT_STREQ(text, expected);
        }
    }
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
    EXPECT_EQ(counted([](char* o) { return HexString(0xABC, o, 2, false); }), "2:bc");
    EXPECT_EQ(counted([](char* o) { return HexString(0xABC, o, 6, true); }), "6:000ABC");
    EXPECT_EQ(counted([](char* o) { return HexString(UINT64_MAX, o, 16, false); }),
              "16:ffffffffffffffff");
    EXPECT_EQ(counted([](char* o) { return qzHexString(o, 0xabc, 2, false); }), "3:abc");
    EXPECT_EQ(counted([](char* o) { return qzHexString(o, 0, 0, false); }), "1:0");
    EXPECT_EQ(counted([](char* o) { return qzHexString(o, 0x1f, 4, true); }), "4:001F");
    EXPECT_EQ(counted([](char* o) { return OctalString(8, o); }), "2:10");
    EXPECT_EQ(counted([](char* o) { return OctalString(0, o); }), "1:0");
    EXPECT_EQ(counted([](char* o) { return OctalString(UINT64_MAX, o); }),
              "22:1777777777777777777777");
}

} // namespace
