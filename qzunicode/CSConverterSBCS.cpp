//===- qzunicode/CSConverterSBCS.cpp - Table single-byte converter --------===//
//
// The reverse map is 256 pages of 256 bytes, allocated only for the pages a
// set uses; every absent page points at one shared zero page, so a lookup is
// two reads with no test for absence.
//
//===----------------------------------------------------------------------===//
#include "qzunicode/detail/CSConverterSBCS.h"

#include "qzunicode/CSConverter.h"
#include "qzunicode/detail/LookupTable.h"

#include <cstring>

namespace qzs {
namespace qzlib {
namespace qzunicode {

namespace {

// The shared page for units whose high byte no mapping uses, the one every
// two-level table of the module shares. Never written.
unsigned char* const g_nullPage = LookupTable<unsigned char>::m_gNullTable;

void setError(ULibError* err, int code) {
    if (err != nullptr)
        *err = ULibError(code);
}

char hexDigit(unsigned v) {
    return "0123456789ABCDEF"[v & 0xF];
}

} // namespace

CSConverterSBCS::CSConverterSBCS(const unsigned short* pairs, const char* name) : m_pszName(name) {
    std::memset(m_aToUnicode, 0, sizeof m_aToUnicode);
    for (const unsigned short* p = pairs; p != nullptr && p[0] != 0; p += 2)
        m_aToUnicode[p[0] & 0xFF] = p[1];
    load();
    unsigned short subst[4];
    int n = 4;
    if (CSConverter::getSubstString(subst, n) == ULIB_OK) {
        for (int i = 0; i < n; ++i)
            m_acSubst[i] = m_paFromUnicode[subst[i] >> 8][subst[i] & 0xFF];
        m_nSubstLen = n;
    }
}

CSConverterSBCS::CSConverterSBCS(const CSConverterSBCS& other)
    : m_nSubstLen(other.m_nSubstLen), m_pszName(other.m_pszName) {
    std::memcpy(m_aToUnicode, other.m_aToUnicode, sizeof m_aToUnicode);
    std::memcpy(m_acSubst, other.m_acSubst, sizeof m_acSubst);
    load();
}

CSConverterSBCS::~CSConverterSBCS() {
    if (m_paFromUnicode == nullptr)
        return;
    for (int i = 0; i < 256; ++i) {
        if (m_paFromUnicode[i] != g_nullPage)
            delete[] m_paFromUnicode[i];
    }
    delete[] m_paFromUnicode;
}

void CSConverterSBCS::load() {
    if (m_paFromUnicode != nullptr)
        return;
    m_paFromUnicode = new unsigned char*[256];
    for (int i = 0; i < 256; ++i)
        m_paFromUnicode[i] = g_nullPage;
    for (int b = 0; b < 256; ++b) {
        const unsigned short u = m_aToUnicode[b];
        if (u == 0)
            continue;
        unsigned char*& page = m_paFromUnicode[u >> 8];
        if (page == g_nullPage)
            page = new unsigned char[256]();
        page[u & 0xFF] = static_cast<unsigned char>(b);
    }
}

int CSConverterSBCS::getNumBytes(const char* s) const {
    return s == nullptr ? 0 : static_cast<int>(std::strlen(s));
}

// Kept on purpose: the behaviour is the thread's at each bad character, not
// the one this object was made with, and 1004 is noted even when the
// character was substituted, skipped or escaped.
//
// A zero byte (or unit) takes room like any other character: a run of zeros
// must never carry the output past the target.
int CSConverterSBCS::toUTF16(unsigned short* dst, int dstUnits, const char* src, int srcBytes,
                             ULibError* err) {
    if (dst == nullptr || dstUnits <= 0 || src == nullptr || srcBytes < -1) {
        setError(err, ULIB_ERR_ILLEGAL_ARGUMENT);
        return 0;
    }
    if (srcBytes == -1)
        srcBytes = static_cast<int>(std::strlen(src));
    const unsigned char* in = reinterpret_cast<const unsigned char*>(src);
    int noted = ULIB_OK;
    int out = 0;
    int i = 0;
    for (; i < srcBytes && out < dstUnits; ++i) {
        const unsigned char b = in[i];
        const unsigned short u = m_aToUnicode[b];
        if (b == 0 || u != 0) {
            dst[out++] = u;
            continue;
        }
        const ULibCnvErrBehavior behaviour = CSConverter::converterErrorBehavior();
        if (behaviour == ULIB_CNV_SUBSTITUTE) {
            dst[out++] = 0x1A;
        } else if (behaviour == ULIB_CNV_SKIP) {
        } else if (behaviour == ULIB_CNV_ESCAPE && dstUnits - out >= 4) {
            dst[out++] = '\\';
            dst[out++] = 'x';
            dst[out++] = static_cast<unsigned short>(hexDigit(b >> 4));
            dst[out++] = static_cast<unsigned short>(hexDigit(b));
        } else {
            setError(err, ULIB_ERR_INVALID_CHAR);
            return out;
        }
        noted = ULIB_ERR_INVALID_CHAR;
    }
    setError(err, i < srcBytes ? ULIB_ERR_BUFFER_OVERFLOW : noted);
    return out;
}

int CSConverterSBCS::fromUTF16(char* dst, int dstBytes, const unsigned short* src, int srcUnits,
                               ULibError* err) {
    if (dst == nullptr || dstBytes <= 0 || src == nullptr || srcUnits < -1) {
        setError(err, ULIB_ERR_ILLEGAL_ARGUMENT);
        return 0;
    }
    if (srcUnits == -1)
        srcUnits = CSConverter::getNumUTF16Units(src);
    int noted = ULIB_OK;
    int out = 0;
    int i = 0;
    for (; i < srcUnits && out < dstBytes; ++i) {
        const unsigned short u = src[i];
        const unsigned char b = m_paFromUnicode[u >> 8][u & 0xFF];
        if (u == 0 || b != 0) {
            dst[out++] = static_cast<char>(b);
            continue;
        }
        const ULibCnvErrBehavior behaviour = CSConverter::converterErrorBehavior();
        if (behaviour == ULIB_CNV_SUBSTITUTE && dstBytes - out >= m_nSubstLen) {
            std::memcpy(dst + out, m_acSubst, m_nSubstLen);
            out += m_nSubstLen;
        } else if (behaviour == ULIB_CNV_SKIP) {
        } else if (behaviour == ULIB_CNV_ESCAPE && dstBytes - out >= 8) {
            const char text[8] = {
                '{',         'U', '+', hexDigit(u >> 12), hexDigit(u >> 8), hexDigit(u >> 4),
                hexDigit(u), '}'};
            for (char c : text)
                dst[out++] = static_cast<char>(m_paFromUnicode[0][static_cast<unsigned char>(c)]);
        } else {
            setError(err, ULIB_ERR_INVALID_CHAR);
            return out;
        }
        noted = ULIB_ERR_INVALID_CHAR;
    }
    setError(err, i < srcUnits ? ULIB_ERR_BUFFER_OVERFLOW : noted);
    return out;
}

} // namespace qzunicode
} // namespace qzlib
} // namespace qzs
