//===- qzunicode/CSConverterEscape.cpp - Escape-reading converter ---------===//
//
// Escapes are read after conversion, in the UTF-16 result, so that they work
// the same in every set whose backslash, 'x', 'u' and digits are ASCII-like
// after conversion, EBCDIC included.
//
//===----------------------------------------------------------------------===//
#include "qzunicode/detail/CSConverterEscape.h"

#include "qzunicode/CSConverter.h"

#include <cstring>

namespace qzs {
namespace qzlib {
namespace qzunicode {

namespace {

int hexValue(unsigned short u) {
    if (u >= '0' && u <= '9')
        return u - '0';
    if (u >= 'a' && u <= 'f')
        return u - 'a' + 10;
    if (u >= 'A' && u <= 'F')
        return u - 'A' + 10;
    return -1;
}

bool isOctal(unsigned short u) {
    return u >= '0' && u <= '7';
}

// Drops `count` units at `at` from the first n units of p.
void removeUnits(unsigned short* p, int& n, int at, int count) {
    std::memmove(p + at, p + at + count, (n - at - count) * sizeof(unsigned short));
    n -= count;
}

} // namespace

CSConverterEscape::CSConverterEscape(ULibCharSet cs, ULibCnvErrBehavior behaviour, bool fallback)
    : m_poInner(new CSConverter(ULibCharSet(cs & ~ULIB_CS_ESCAPE_FLAG), behaviour, fallback)) {}

CSConverterEscape::~CSConverterEscape() = default;

CSConverterType CSConverterEscape::getType() const {
    return m_poInner ? m_poInner->getType() : CNV_TYPE_OTHER;
}

const char* CSConverterEscape::getCharSetName() const {
    return m_poInner ? m_poInner->getCharSetName() : nullptr;
}

int CSConverterEscape::getNumBytes(const char* s) const {
    return s == nullptr ? 0 : static_cast<int>(std::strlen(s));
}

int CSConverterEscape::toUTF16(unsigned short* dst, int dstUnits, const char* src, int srcBytes,
                               ULibError* err) {
    if (!m_poInner)
        return 0;
    int n = m_poInner->toUTF16(dst, dstUnits, src, srcBytes, err);
    if (n < 4)
        return n;

    // One byte of the set to one unit, in place of the backslash at i.
    auto putByte = [&](int i, int value) {
        const char b = static_cast<char>(value & 0xFF);
        unsigned short unit = 0;
        if (m_poInner->toUTF16(&unit, 1, &b, 1, nullptr) > 0) {
            dst[i] = unit;
        } else {
            dst[i] = 0xFFFD;
            if (err != nullptr && *err == ULIB_OK)
                *err = ULIB_ERR_INVALID_CHAR;
        }
    };

    for (int i = 0; i < n - 3; ++i) {
        if (dst[i] != '\\')
            continue;
        const unsigned short kind = dst[i + 1];
        if (kind == 'x') {
            const int hi = hexValue(dst[i + 2]);
            const int lo = hexValue(dst[i + 3]);
            if (hi >= 0 && lo >= 0) {
                putByte(i, hi * 16 + lo);
                removeUnits(dst, n, i + 1, 3);
            }
        } else if (kind >= '0' && kind <= '3') {
            if (isOctal(dst[i + 2]) && isOctal(dst[i + 3])) {
                // The third digit is the unit after the ones removed; past
                // the end of the text it counts as 0 rather than being read.
                const int last = i + 4 < n ? dst[i + 4] - '0' : 0;
                putByte(i, (dst[i + 2] - '0') * 64 + (dst[i + 3] - '0') * 8 + last);
                removeUnits(dst, n, i + 1, 3);
            }
        } else if (kind == 'u' && i < n - 5) {
            int value = 0;
            bool ok = true;
            for (int k = 2; k < 6 && ok; ++k) {
                const int d = hexValue(dst[i + k]);
                ok = d >= 0;
                value = value * 16 + d;
            }
            if (ok) {
                dst[i] = static_cast<unsigned short>(value);
                removeUnits(dst, n, i + 1, 5);
            }
        }
    }
    return n;
}

int CSConverterEscape::fromUTF16(char* dst, int dstBytes, const unsigned short* src, int srcUnits,
                                 ULibError* err) {
    return m_poInner ? m_poInner->fromUTF16(dst, dstBytes, src, srcUnits, err) : 0;
}

} // namespace qzunicode
} // namespace qzlib
} // namespace qzs
