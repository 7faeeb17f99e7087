//===- tests/qzstd/HashTest.cpp - kqzhash2, CRC32 and CRC64 ---------------===//
//
// Each function is checked against values worked out by hand or published,
// and against a deliberately naive reference written here from the algorithm
// (bit by bit for the CRCs, byte by byte for the hash), over lengths and
// alignments that cross every block and tail boundary.
//
//===----------------------------------------------------------------------===//
#include "qzstd/Hash.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <vector>

namespace {

std::uint32_t rotl(std::uint32_t v, int k) {
    return (v << k) | (v >> (32 - k));
}

// clang-format off
// The hash as the algorithm text reads: every byte is added on its own into
// a, b or c by its position within the current 12-byte group.
unsigned long referenceHash(const unsigned char* p, unsigned long n, unsigned long seed) {
    std::uint32_t v[3];
    v[0] = v[1] = 0xDEADBEEFu + std::uint32_t(n) + std::uint32_t(seed);
    v[2] = v[0] + std::uint32_t(seed >> 32);
    std::uint32_t &a = v[0], &b = v[1], &c = v[2];
    unsigned long pos = 0;
    while (n - pos > 12) {
        for (int i = 0; i < 12; ++i)
            v[i / 4] += std::uint32_t(p[pos + i]) << (8 * (i % 4));
        pos += 12;
        a -= c; a ^= rotl(c, 4);  c += b;
        b -= a; b ^= rotl(a, 6);  a += c;
        c -= b; c ^= rotl(b, 8);  b += a;
        a -= c; a ^= rotl(c, 16); c += b;
        b -= a; b ^= rotl(a, 19); a += c;
        c -= b; c ^= rotl(b, 4);  b += a;
    }
    if (n != pos) {
        for (unsigned long i = 0; pos + i < n; ++i)
            v[i / 4] += std::uint32_t(p[pos + i]) << (8 * (i % 4));
        c -= b; c ^= rotl(b, 12);
        a -= c; a ^= rotl(c, 14);
        b -= a; b ^= rotl(a, 25);
        c -= b; c ^= rotl(b, 16);
        a -= c; a ^= rotl(c, 4);
        b -= a; b ^= rotl(a, 14);
        c -= b; c ^= rotl(b, 24);
    }
    return (static_cast<unsigned long>(b) << 32) | c;
}
// clang-format on

// Bit-serial reflected CRC: shift out one bit at a time, no table.
template <typename Word> Word bitwiseCrc(Word crc, Word polynomial, const unsigned char* p, int n) {
    for (int i = 0; i < n; ++i) {
        crc ^= p[i];
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc & 1) ? (crc >> 1) ^ polynomial : crc >> 1;
    }
    return crc;
}

std::vector<unsigned char> pattern(size_t n) {
    std::vector<unsigned char> bytes(n);
    std::uint32_t x = 0x12345678;
    for (auto& b : bytes) {
        x = x * 1103515245u + 12345u;
        b = static_cast<unsigned char>(x >> 23);
    }
    return bytes;
}

} // namespace

// The values that follow from the algorithm by hand: an empty input skips all
// mixing, leaving b = low seed + 0xDEADBEEF and c = b + high seed.
TEST(HashTest, EmptyInputIsTheInitialState) {
    EXPECT_EQ(kqzhash2(nullptr, 0, 0), 0xDEADBEEFDEADBEEFul);
    EXPECT_EQ(kqzhash2("ignored", 0, 0), 0xDEADBEEFDEADBEEFul);
    EXPECT_EQ(kqzhash2(nullptr, 0, 0xDEADBEEF00000000ul), 0xDEADBEEFBD5B7DDEul);
    EXPECT_EQ(kqzhash2(nullptr, 0, 1), 0xDEADBEF0DEADBEF0ul);
}

// Every length from 0 to 40 (no mix, one, two, three blocks, each tail size)
// at eight alignments and three seeds agrees with the byte-wise reference.
// The pinned value guards against the reference and the code drifting together.
TEST(HashTest, MatchesReferenceAtEveryLengthAndAlignment) {
    const std::vector<unsigned char> input = pattern(40);
    std::vector<unsigned char> buffer(48 + 8);
    for (unsigned long seed : {0ul, 0x0123456789ABCDEFul, 0xFFFFFFFF00000000ul}) {
        for (unsigned long length = 0; length <= 40; ++length) {
            const unsigned long expected = referenceHash(input.data(), length, seed);
            for (size_t offset = 0; offset < 8; ++offset) {
                std::memcpy(buffer.data() + offset, input.data(), length);
                ASSERT_EQ(kqzhash2(buffer.data() + offset, length, seed), expected)
                    << "length " << length << " offset " << offset << " seed " << seed;
            }
        }
    }
    EXPECT_EQ(kqzhash2("Four score and seven years ago", 30, 0), 0x1A5F2176B65F938Bul);
}

// The standard CRC-32 is this function wrapped in inversions; context item
// IDs are its low 28 bits over the item name.
TEST(HashTest, Crc32KnownValues) {
    EXPECT_EQ(CRC32(0, "", 0), 0u);
    EXPECT_EQ(CRC32(0x1234, "abc", 0), 0x1234u);
    EXPECT_EQ(CRC32(0xFFFFFFFFu, "123456789", 9) ^ 0xFFFFFFFFu, 0xCBF43926u);
    EXPECT_EQ((CRC32(~0u, "AppInstance", 11) ^ ~0u) & 0x0FFFFFFF, 80690543u);
    EXPECT_EQ((CRC32(~0u, "ThreadBacktrace", 15) ^ ~0u) & 0x0FFFFFFF, 210513013u);
}

// The 64-bit CRC with zero start and no inversion; 0xE9C6D914C4B8D9CA is the
// published check value of this polynomial in that form.
TEST(HashTest, Crc64KnownValues) {
    const auto* digits = reinterpret_cast<const unsigned char*>("123456789");
    EXPECT_EQ(CRC64(0, digits, 0), 0ul);
    EXPECT_EQ(CRC64(0, digits, 9), 0xE9C6D914C4B8D9CAul);
    EXPECT_EQ(CRC64(0, digits, 9), bitwiseCrc<std::uint64_t>(0, 0x95AC9329AC4BC9B5ul, digits, 9));
}

// Both CRCs equal the bit-serial reference from any running value, and
// continuing over a split buffer equals one pass over the whole.
TEST(HashTest, CrcsMatchBitwiseReferenceAndChain) {
    const std::vector<unsigned char> data = pattern(1000);
    const char* chars = reinterpret_cast<const char*>(data.data());
    for (unsigned int start : {0u, 0xFFFFFFFFu, 0x5A5A1234u}) {
        const unsigned int whole = CRC32(start, chars, 1000);
        EXPECT_EQ(whole, bitwiseCrc<std::uint32_t>(start, 0xEDB88320u, data.data(), 1000));
        EXPECT_EQ(CRC32(CRC32(start, chars, 333), chars + 333, 667), whole);
    }
    for (unsigned long start : {0ul, ~0ul}) {
        const unsigned long whole = CRC64(start, data.data(), 1000);
        EXPECT_EQ(whole, bitwiseCrc<std::uint64_t>(start, 0x95AC9329AC4BC9B5ul, data.data(), 1000));
        EXPECT_EQ(CRC64(CRC64(start, data.data(), 1), data.data() + 1, 999), whole);
    }
}
