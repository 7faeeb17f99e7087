//===- qzstd/NumberString.cpp - Integers to text --------------------------===//
#include "qzstd/NumberString.h"

#include <cstring>

namespace {

// "00" to "99": two digits a step halves the divisions.
const char TwoDigits[] = "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
                         "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
                         "8081828384858687888990919293949596979899";

unsigned digitCount(uint64_t v) {
    unsigned n = 1;
    for (;;) {
        if (v < 10) return n;
        if (v < 100) return n + 1;
        if (v < 1000) return n + 2;
        if (v < 10000) return n + 3;
        v /= 10000;
        n += 4;
    }
}

#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
// Two digits of v (below 100) as two ASCII bytes, the first in the low one.
inline uint32_t pairOf(uint32_t v) {
    uint16_t pair;
    std::memcpy(&pair, TwoDigits + 2 * v, 2);
    return pair;
}

// Four digits of v (below 10^4), the first in the lowest byte.
inline uint32_t fourDigits(uint32_t v) {
    const uint32_t high = (v * 5243) >> 19; // v / 100, exact below 10^4
    return pairOf(high) | (pairOf(v - high * 100) << 16);
}

// The eight decimal digits of v (below 10^8) as ASCII, the first in the
// lowest byte: built in a register from four table pairs and left in one
// store. A text read back right after it is written (the logging path
// copies each number into its line) then finds it in that one store instead
// of waiting on many narrow ones.
inline uint64_t eightDigits(uint32_t v) {
    if (v < 10000)
        return (uint64_t(fourDigits(v)) << 32) | 0x30303030u;
    const uint32_t high = static_cast<uint32_t>((uint64_t(v) * 109951163) >> 40); // v / 10^4, exact below 10^8
    return fourDigits(high) | (uint64_t(fourDigits(v - high * 10000)) << 32);
}

inline unsigned digitsBelow1e8(uint32_t v) {
    return 1u + (v >= 10) + (v >= 100) + (v >= 1000) + (v >= 10000) + (v >= 100000) + (v >= 1000000) +
           (v >= 10'000'000);
}

// The digits of v (below 10^8) at dst, 8 bytes written; the length.
inline unsigned shortDecimal(uint32_t v, char* dst) {
    const unsigned n = digitsBelow1e8(v);
    // Shifted to the first digit; the bytes behind it are zeros, so a text
    // of fewer than eight digits is terminated by the same store.
    const uint64_t digits = eightDigits(v) >> (8 * (8 - n));
    std::memcpy(dst, &digits, 8);
    return n;
}
#endif

size_t unsignedToString(uint64_t value, char* dst) {
    const unsigned len = digitCount(value);
    char* p = dst + len;
    *p = '\0';
    while (value >= 100) {
        const unsigned pair = static_cast<unsigned>(value % 100) * 2;
        value /= 100;
        *--p = TwoDigits[pair + 1];
        *--p = TwoDigits[pair];
    }
    if (value >= 10) {
        const unsigned pair = static_cast<unsigned>(value) * 2;
        *--p = TwoDigits[pair + 1];
        *--p = TwoDigits[pair];
    } else {
        *--p = static_cast<char>('0' + value);
    }
    return len;
}

size_t signedToString(int64_t value, char* dst) {
    if (value >= 0)
        return unsignedToString(static_cast<uint64_t>(value), dst);
    *dst = '-';
    // Negate in unsigned arithmetic so that the most negative value works.
    return 1 + unsignedToString(0 - static_cast<uint64_t>(value), dst + 1);
}

void unsignedToBuffer(uint64_t value, char* dst, size_t width) {
    for (size_t i = width; i-- > 0;) {
        dst[i] = static_cast<char>('0' + value % 10);
        value /= 10;
    }
}

void signedToBuffer(int64_t value, char* dst, size_t width) {
    if (value >= 0 || width == 0) {
        unsignedToBuffer(value >= 0 ? static_cast<uint64_t>(value) : 0 - static_cast<uint64_t>(value),
                         dst, width);
        return;
    }
    *dst = '-';
    unsignedToBuffer(0 - static_cast<uint64_t>(value), dst + 1, width - 1);
}

} // namespace

size_t i8ToString(int8_t v, char* d) { return signedToString(v, d); }
size_t i16ToString(int16_t v, char* d) { return signedToString(v, d); }
size_t i32ToString(int32_t v, char* d) { return signedToString(v, d); }
size_t i64ToString(int64_t v, char* d) { return signedToString(v, d); }
size_t u8ToString(uint8_t v, char* d) { return unsignedToString(v, d); }
size_t u16ToString(uint16_t v, char* d) { return unsignedToString(v, d); }
size_t u32ToString(uint32_t v, char* d) { return unsignedToString(v, d); }
size_t u64ToString(uint64_t v, char* d) { return unsignedToString(v, d); }

void i8ToBuffer(int8_t v, char* d, size_t w) { signedToBuffer(v, d, w); }
void i16ToBuffer(int16_t v, char* d, size_t w) { signedToBuffer(v, d, w); }
void i32ToBuffer(int32_t v, char* d, size_t w) { signedToBuffer(v, d, w); }
void i64ToBuffer(int64_t v, char* d, size_t w) { signedToBuffer(v, d, w); }
void u8ToBuffer(uint8_t v, char* d, size_t w) { unsignedToBuffer(v, d, w); }
void u16ToBuffer(uint16_t v, char* d, size_t w) { unsignedToBuffer(v, d, w); }
void u32ToBuffer(uint32_t v, char* d, size_t w) { unsignedToBuffer(v, d, w); }
void u64ToBuffer(uint64_t v, char* d, size_t w) { unsignedToBuffer(v, d, w); }

size_t HexString(uint64_t value, char* dst, size_t digits, bool upperCase) {
    const char* set = upperCase ? "0123456789ABCDEF" : "0123456789abcdef";
    for (size_t i = digits; i-- > 0;) {
        dst[i] = set[value & 15];
        value >>= 4;
    }
    dst[digits] = '\0';
    return digits;
}

size_t OctalString(uint64_t value, char* dst) {
    char work[24];
    char* end = work + sizeof work;
    char* p = end;
    do {
        *--p = static_cast<char>('0' + (value & 7));
        value >>= 3;
    } while (value);
    size_t len = static_cast<size_t>(end - p);
    std::memcpy(dst, p, len);
    dst[len] = '\0';
    return len;
}

size_t u64ToStringPadded(uint64_t value, char* dst) {
    // Small values are the usual ones: a table look-up, no multiplications.
    if (value < 100) {
        if (value < 10) {
            dst[0] = static_cast<char>('0' + value);
            dst[1] = '\0';
            return 1;
        }
        std::memcpy(dst, TwoDigits + 2 * value, 2);
        dst[2] = '\0';
        return 2;
    }
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    if (value < 100000000u) {
        const unsigned n = shortDecimal(static_cast<uint32_t>(value), dst);
        dst[n] = '\0';
        return n;
    }
    if (value < 10000000000000000ULL) {
        const uint64_t high = value / 100000000u;
        const unsigned n = shortDecimal(static_cast<uint32_t>(high), dst);
        const uint64_t low = eightDigits(static_cast<uint32_t>(value - high * 100000000u));
        std::memcpy(dst + n, &low, 8);
        dst[n + 8] = '\0';
        return n + 8;
    }
#endif
    return unsignedToString(value, dst);
}

size_t i64ToStringPadded(int64_t value, char* dst) {
    if (value >= 0)
        return u64ToStringPadded(static_cast<uint64_t>(value), dst);
    *dst = '-';
    return 1 + u64ToStringPadded(0 - static_cast<uint64_t>(value), dst + 1);
}
