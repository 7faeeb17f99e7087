//===- qzunicode/CSConverterICU.cpp - ICU-backed converter ----------------===//
//
// ICU does the conversion; this file picks the callbacks, maps the status, and
// on overflow retries on a shorter source so that the target never ends in
// half a character.
//
//===----------------------------------------------------------------------===//
#include "qzunicode/detail/CSConverterICU.h"

#include "qzunicode/CSConverter.h"
#include "qzunicode/detail/CharSetPackage.h"

#include <unicode/ucnv.h>
#include <unicode/ucnv_err.h>

#include <algorithm>
#include <cstring>

namespace qzs {
namespace qzlib {
namespace qzunicode {

namespace {

CSConverterType typeOf(UConverterType t) {
    switch (t) {
    case UCNV_SBCS:
    case UCNV_LATIN_1:
    case UCNV_US_ASCII:
        return CNV_TYPE_SBCS;
    case UCNV_DBCS:
        return CNV_TYPE_DBCS;
    case UCNV_MBCS:
        return CNV_TYPE_MBCS;
    case UCNV_UTF8:
    case UCNV_CESU8:
        return CNV_TYPE_UTF8;
    case UCNV_UTF16_BigEndian:
    case UCNV_UTF16_LittleEndian:
    case UCNV_UTF16:
        return CNV_TYPE_UTF16;
    case UCNV_UTF32_BigEndian:
    case UCNV_UTF32_LittleEndian:
    case UCNV_UTF32:
        return CNV_TYPE_UTF32;
    case UCNV_EBCDIC_STATEFUL:
        return CNV_TYPE_EBCDIC_STATEFUL;
    case UCNV_ISO_2022:
        return CNV_TYPE_ISO2022;
    default:
        return CNV_TYPE_OTHER;
    }
}

void setError(ULibError* err, int code) {
    if (err != nullptr)
        *err = ULibError(code);
}

// ICU's "UTF-16" and "UTF-32" read big-endian unless a byte order mark says
// otherwise, and write a mark; sets 1 and 4 are native order with no mark, so
// they open under the name of the native order.
const char* icuName(ULibCharSet cs) {
    switch (cs & ~ULIB_CS_ESCAPE_FLAG) {
    case 1:
        return U_IS_BIG_ENDIAN ? "UTF-16BE" : "UTF-16LE";
    case 4:
        return U_IS_BIG_ENDIAN ? "UTF-32BE" : "UTF-32LE";
    default:
        return CharSetTable::toConverterName(cs);
    }
}

// ICU's escape callbacks take their form from a context string; "C" gives
// \xHH to Unicode and \uHHHH from it.
const char g_escapeContext[] = "C";

} // namespace

CSConverterICU::CSConverterICU(ULibCharSet cs, ULibCnvErrBehavior behaviour, bool fallback) {
    UErrorCode status = U_ZERO_ERROR;
    // The database sets are not in ICU's data but in the library's package.
    if (detail::isPackagedCharSet(cs)) {
        int packageStatus = U_ZERO_ERROR;
        m_poConverter = detail::openPackagedConverter(cs, &packageStatus);
        status = static_cast<UErrorCode>(packageStatus);
    } else {
        m_poConverter = ucnv_open(icuName(cs), &status);
    }
    if (U_FAILURE(status)) {
        if (m_poConverter != nullptr)
            ucnv_close(m_poConverter);
        m_poConverter = nullptr;
        return;
    }
    m_nMinCharSize = ucnv_getMinCharSize(m_poConverter);
    m_eType = typeOf(ucnv_getType(m_poConverter));

    if (behaviour != ULIB_CNV_DEFAULT) {
        UConverterFromUCallback fromU = UCNV_FROM_U_CALLBACK_STOP;
        UConverterToUCallback toU = UCNV_TO_U_CALLBACK_STOP;
        const void* context = nullptr;
        switch (behaviour) {
        case ULIB_CNV_SKIP:
            fromU = UCNV_FROM_U_CALLBACK_SKIP;
            toU = UCNV_TO_U_CALLBACK_SKIP;
            break;
        case ULIB_CNV_SUBSTITUTE:
            fromU = UCNV_FROM_U_CALLBACK_SUBSTITUTE;
            toU = UCNV_TO_U_CALLBACK_SUBSTITUTE;
            break;
        case ULIB_CNV_ESCAPE:
            fromU = UCNV_FROM_U_CALLBACK_ESCAPE;
            toU = UCNV_TO_U_CALLBACK_ESCAPE;
            context = g_escapeContext;
            break;
        default:
            break;
        }
        status = U_ZERO_ERROR;
        ucnv_setFromUCallBack(m_poConverter, fromU, context, nullptr, nullptr, &status);
        status = U_ZERO_ERROR;
        ucnv_setToUCallBack(m_poConverter, toU, context, nullptr, nullptr, &status);
        if (behaviour == ULIB_CNV_SUBSTITUTE) {
            unsigned short subst[4];
            int n = 4;
            CSConverter::getSubstString(subst, n);
            // A string this set cannot hold leaves ICU's own in place.
            status = U_ZERO_ERROR;
            ucnv_setSubstString(m_poConverter, reinterpret_cast<const UChar*>(subst), n, &status);
        }
    }
    ucnv_setFallback(m_poConverter, fallback);
}

CSConverterICU::~CSConverterICU() {
    if (m_poConverter != nullptr)
        ucnv_close(m_poConverter);
}

bool CSConverterICU::getLeadByteMap(unsigned char* map) const {
    if (m_poConverter == nullptr || map == nullptr)
        return false;
    UBool starters[256];
    UErrorCode status = U_ZERO_ERROR;
    ucnv_getStarters(m_poConverter, starters, &status);
    if (U_FAILURE(status))
        return false;
    for (int i = 0; i < 256; ++i)
        map[i] = starters[i] == 1 ? 1 : 0;
    return true;
}

const char* CSConverterICU::getCharSetName() const {
    if (m_poConverter == nullptr)
        return nullptr;
    UErrorCode status = U_ZERO_ERROR;
    return ucnv_getName(m_poConverter, &status);
}

int CSConverterICU::getNumBytes(const char* s) const {
    if (s == nullptr)
        return 0;
    switch (m_nMinCharSize) {
    case 1:
        return static_cast<int>(std::strlen(s));
    case 2:
        return 2 * CSConverter::getNumUTF16Units(reinterpret_cast<const unsigned short*>(s));
    case 4: {
        // Kept on purpose: measures the run of zero groups at the start, as
        // stored lengths were computed this way.
        auto zeroGroup = [s](int off) {
            return s[off] == 0 && s[off + 1] == 0 && s[off + 2] == 0 && s[off + 3] == 0;
        };
        if (!zeroGroup(0))
            return 0;
        int off = 4;
        while (zeroGroup(off))
            off += 4;
        return off;
    }
    default:
        return 0;
    }
}

namespace {

// Whether a conversion into `room` ran out of room. Once the target is full,
// ucnv_toUChars and ucnv_fromUChars count on past it to report the length
// needed; a bad character met while counting replaces the overflow status with
// its own, and only the count, above the room, still tells that the target
// ends in a cut character.
bool ranOutOfRoom(UErrorCode status, int n, int room) {
    return status == U_BUFFER_OVERFLOW_ERROR || n > room;
}

// After an overflow: converts ever shorter source prefixes, from `len` down,
// until one fits whole, and answers what it wrote (0 when none fits).
// `convert(len, status)` converts the first `len` source units.
template <typename Convert> int longestPrefixThatFits(int len, int room, Convert convert) {
    int n = 0;
    UErrorCode status;
    bool cut;
    do {
        status = U_ZERO_ERROR;
        n = convert(len, &status);
        --len;
        cut = ranOutOfRoom(status, n, room) || status == U_TRUNCATED_CHAR_FOUND;
    } while (cut && len >= 1);
    return cut ? 0 : n;
}

} // namespace

int CSConverterICU::toUTF16(unsigned short* dst, int dstUnits, const char* src, int srcBytes,
                            ULibError* err) {
    if (dst == nullptr || dstUnits <= 0 || src == nullptr || srcBytes < -1) {
        setError(err, ULIB_ERR_ILLEGAL_ARGUMENT);
        return 0;
    }
    if (m_poConverter == nullptr) {
        setError(err, ULIB_ERR_UNKNOWN);
        return 0;
    }
    if (srcBytes == -1)
        srcBytes = getNumBytes(src);
    UChar* out = reinterpret_cast<UChar*>(dst);
    UErrorCode status = U_ZERO_ERROR;
    int n = ucnv_toUChars(m_poConverter, out, dstUnits, src, srcBytes, &status);
    if (ranOutOfRoom(status, n, dstUnits)) {
        // Retry on ever shorter sources for the longest prefix that fits
        // whole. A byte gives at least one unit unless it is skipped or a
        // shift, so the search starts near the room rather than at the end of
        // a long source.
        const int maxChar = ucnv_getMaxCharSize(m_poConverter);
        n = longestPrefixThatFits(std::min(srcBytes - 1, (dstUnits + 2) * std::max(maxChar, 4)),
                                  dstUnits, [&](int len, UErrorCode* st) {
                                      return ucnv_toUChars(m_poConverter, out, dstUnits, src, len,
                                                           st);
                                  });
        status = U_BUFFER_OVERFLOW_ERROR;
    }
    setError(err, translateICUError(status, false));
    return std::max(0, std::min(n, dstUnits));
}

int CSConverterICU::fromUTF16(char* dst, int dstBytes, const unsigned short* src, int srcUnits,
                              ULibError* err) {
    if (dst == nullptr || dstBytes <= 0 || src == nullptr || srcUnits < -1) {
        setError(err, ULIB_ERR_ILLEGAL_ARGUMENT);
        return 0;
    }
    if (m_poConverter == nullptr) {
        setError(err, ULIB_ERR_UNKNOWN);
        return 0;
    }
    if (srcUnits == -1)
        srcUnits = CSConverter::getNumUTF16Units(src);
    const UChar* in = reinterpret_cast<const UChar*>(src);
    UErrorCode status = U_ZERO_ERROR;
    int n = ucnv_fromUChars(m_poConverter, dst, dstBytes, in, srcUnits, &status);
    if (ranOutOfRoom(status, n, dstBytes)) {
        // As in toUTF16; a unit that is not skipped gives at least one byte.
        n = longestPrefixThatFits(
            std::min(srcUnits - 1, 2 * dstBytes + 4), dstBytes, [&](int len, UErrorCode* st) {
                return ucnv_fromUChars(m_poConverter, dst, dstBytes, in, len, st);
            });
        status = U_BUFFER_OVERFLOW_ERROR;
    }
    setError(err, translateICUError(status, false));
    return std::max(0, std::min(n, dstBytes));
}

int CSConverterICU::translateICUError(int code, bool overflowIsWarning) {
    if (code <= U_ZERO_ERROR)
        return ULIB_OK;
    switch (code) {
    case U_ILLEGAL_ARGUMENT_ERROR:
        return ULIB_ERR_ILLEGAL_ARGUMENT;
    case U_INVALID_CHAR_FOUND:
    case U_ILLEGAL_CHAR_FOUND:
        return ULIB_ERR_INVALID_CHAR;
    case U_BUFFER_OVERFLOW_ERROR:
        return overflowIsWarning ? 100 : ULIB_ERR_BUFFER_OVERFLOW;
    default:
        return ULIB_ERR_UNKNOWN;
    }
}

void CSConverterICU::setDefaultCharSet(ULibCharSet cs) {
    const char* name = CharSetTable::toConverterName(cs);
    if (name != nullptr)
        ucnv_setDefaultName(name);
}

} // namespace qzunicode
} // namespace qzlib
} // namespace qzs
