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
// The eight decimal digits of v (below 10^8) as ASCII, the first in the
// lowest byte: the digits come out of a register in a few multiplications,
// four lanes at a time, and leave it in one store. A text read back right
// after it is written (the logging path copies each number into its line)
// then finds it in that one store instead of waiting on many narrow ones.
inline uint64_t eightDigits(uint32_t v) {
    const uint64_t x = v;
    const uint64_t high = x / 10000;
    const uint64_t merged = high | ((x - high * 10000) << 32);           // two lanes below 10^4
    const uint64_t top = ((merged * 10486) >> 20) & 0x0000007F0000007FULL; // each lane / 100
    const uint64_t hundreds = ((merged - 100 * top) << 16) | top;          // four lanes below 100
    const uint64_t tens = ((hundreds * 103) >> 10) & 0x000F000F000F000FULL; // each lane / 10
    return (((hundreds - 10 * tens) << 8) | tens) + 0x3030303030303030ULL;
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
