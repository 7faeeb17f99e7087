//===- tests/qzstd/HashTest.cpp - kqzhash2, CRC32 and CRC64 ---------------===//
//
// Known values only, no second implementation: the CRCs against published
// check values and values from independent CRC libraries, the hash against
// its hand-worked empty state and values pinned once across every block and
// tail boundary, then the properties that need no expected value (alignment,
// chaining).
//
//===----------------------------------------------------------------------===//
#include "qzstd/Hash.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

namespace {

const char kText[] = "Four score and seven years ago our fathers brought forth";
const char kFox[] = "The quick brown fox jumps over the lazy dog";

const unsigned char* bytes(const char* text) {
    return reinterpret_cast<const unsigned char*>(text);
}

// Hand-worked: an empty input skips all mixing, leaving b = low seed + 0xDEADBEEF
// and c = b + high seed.
TEST(HashTest, EmptyInputIsTheInitialState) {
    EXPECT_EQ(kqzhash2(nullptr, 0, 0), 0xDEADBEEFDEADBEEFul);
    EXPECT_EQ(kqzhash2("ignored", 0, 0), 0xDEADBEEFDEADBEEFul);
    EXPECT_EQ(kqzhash2(nullptr, 0, 0xDEADBEEF00000000ul), 0xDEADBEEFBD5B7DDEul);
    EXPECT_EQ(kqzhash2(nullptr, 0, 1), 0xDEADBEF0DEADBEF0ul);
}

// Pinned values over prefixes of kText: one word, one block exactly (12 goes
// through the tail stage), one block and a byte, two blocks, and so on, under
// three seeds. They keep the table keys of written files stable.
TEST(HashTest, PinnedValuesAcrossBlockAndTailBoundaries) {
    struct Row {
        unsigned long length, seed, hash;
    };
    const Row rows[] = {
        {1, 0, 0xC720AEB424552F84ul},
        {4, 0, 0x0B76A46F37FE0F1Dul},
        {11, 0, 0xDFB5C572D8B9B255ul},
        {12, 0, 0x5304EB1261956AB4ul},
        {13, 0, 0x3584B67C90D8B3EEul},
        {24, 0, 0xC59D762FC66278D9ul},
        {25, 0, 0xBD0A742165E6530Eul},
        {30, 0, 0x1A5F2176B65F938Bul},
        {40, 0, 0x254ECADBAD3FE345ul},
        {1, 0x0123456789ABCDEFul, 0x04B9C1DCD4F8846Eul},
        {13, 0x0123456789ABCDEFul, 0x87ADBA04367FE1EFul},
        {40, 0x0123456789ABCDEFul, 0x9BF03FDEBB3DBCB7ul},
        {1, 0xFFFFFFFF00000000ul, 0x968B6931B2A619F0ul},
        {13, 0xFFFFFFFF00000000ul, 0x8C5094101BF4D5E1ul},
        {40, 0xFFFFFFFF00000000ul, 0x6D9A12489A99DD8Ful},
    };
    for (const Row& r : rows)
        EXPECT_EQ(kqzhash2(kText, r.length, r.seed), r.hash)
            << "length " << r.length << " seed " << r.seed;
}

// Every length from 0 to 40 (no mix, one, two, three blocks, each tail size)
// hashes the same at eight alignments and three seeds: the word reads and the
// padded tail must not depend on where the bytes sit.
TEST(HashTest, ResultIsIndependentOfAlignment) {
    std::vector<unsigned char> buffer(48 + 8);
    for (unsigned long seed : {0ul, 0x0123456789ABCDEFul, 0xFFFFFFFF00000000ul}) {
        for (unsigned long length = 0; length <= 40; ++length) {
            const unsigned long aligned = kqzhash2(kText, length, seed);
            for (size_t offset = 0; offset < 8; ++offset) {
                std::memcpy(buffer.data() + offset, kText, length);
                ASSERT_EQ(kqzhash2(buffer.data() + offset, length, seed), aligned)
                    << "length " << length << " offset " << offset << " seed " << seed;
            }
        }
    }
}

// CRC32 is the running value with no inversion: the standard CRC-32 is
// ~CRC32(~0, ...). Expected values are the published check value, zlib's, and
// for other start values zlib's with the inversions undone. Context item IDs
// are the low 28 bits of the standard CRC-32 over the item name.
TEST(HashTest, Crc32KnownValues) {
    struct Row {
        unsigned int start;
        const char* text;
        int length;
        unsigned int crc;
    };
    const Row rows[] = {
        {0, "123456789", 9, 0x2DFD2D88u},
        {0x5A5A1234u, "123456789", 9, 0x4A0E1768u},
        {~0u, "123456789", 9, ~0xCBF43926u},
        {~0u, kFox, 43, ~0x414FA339u},
    };
    for (const Row& r : rows)
        EXPECT_EQ(CRC32(r.start, r.text, r.length), r.crc) << r.text << " from " << r.start;
    EXPECT_EQ((CRC32(~0u, "AppInstance", 11) ^ ~0u) & 0x0FFFFFFF, 80690543u);
    EXPECT_EQ((CRC32(~0u, "ThreadBacktrace", 15) ^ ~0u) & 0x0FFFFFFF, 210513013u);
}

// CRC64 is the reflected 0xAD93D23594C935A9 polynomial with no inversion:
// from 0 it is CRC-64/REDIS (published check 0xE9C6D914C4B8D9CA), from ~0 the
// Jones form (check 0xCAA717168609F281); the other values come from an
// independent CRC library with the same parameters.
TEST(HashTest, Crc64KnownValues) {
    struct Row {
        unsigned long start;
        const char* text;
        int length;
        unsigned long crc;
    };
    const Row rows[] = {
        {0, "123456789", 9, 0xE9C6D914C4B8D9CAul},
        {~0ul, "123456789", 9, 0xCAA717168609F281ul},
        {0, kFox, 43, 0xBF7EE596C3AA372Bul},
        {~0ul, kFox, 43, 0x13350A9130D11E97ul},
    };
    for (const Row& r : rows)
        EXPECT_EQ(CRC64(r.start, bytes(r.text), r.length), r.crc) << r.text << " from " << r.start;
}

// Continuing over a split buffer equals one pass over the whole, wherever the
// split falls; the empty pieces at 0 and 43 must give back their start value.
TEST(HashTest, CrcsChainAcrossSplits) {
    for (int split : {0, 1, 20, 42, 43}) {
        for (unsigned int start : {0u, 0xFFFFFFFFu, 0x5A5A1234u})
            EXPECT_EQ(CRC32(CRC32(start, kFox, split), kFox + split, 43 - split),
                      CRC32(start, kFox, 43))
                << split;
        for (unsigned long start : {0ul, ~0ul})
            EXPECT_EQ(CRC64(CRC64(start, bytes(kFox), split), bytes(kFox) + split, 43 - split),
                      CRC64(start, bytes(kFox), 43))
                << split;
    }
}

} // namespace
