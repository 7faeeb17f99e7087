//===- qzunicode/ULib.cpp - Plain conversion entry points -----------------===//
//
// ULIB_CStoCS first tries the copies that need no converter, then an
// optimised pair converter, then source to UTF-16 to target through ICU.
// Callers hand in byte buffers at any address, so UTF-16 is read and swapped
// by bytes here and only aligned buffers reach the converters.
//
//===----------------------------------------------------------------------===//
#include "qzunicode/ULib.h"

#include "qzunicode/COptimizedConverter.h"
#include "qzunicode/CSConverter.h"
#include "qzunicode/detail/ICUPath.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <utility>
#include <vector>

using namespace qzs::qzlib::qzunicode;

namespace {

constexpr ULibCharSet kUTF8 = ULibCharSet(0);
constexpr ULibCharSet kUTF16 = ULibCharSet(1);
constexpr ULibCharSet kUTF16BE = ULibCharSet(2);
constexpr ULibCharSet kUTF16LE = ULibCharSet(3);
constexpr ULibCharSet kUTF32 = ULibCharSet(4);
constexpr ULibCharSet kUTF32BE = ULibCharSet(5);
constexpr ULibCharSet kUTF32LE = ULibCharSet(6);
constexpr ULibCharSet kUSASCII = ULibCharSet(1000);

void setError(ULibError* err, ULibError code) {
    if (err != nullptr)
        *err = code;
}

// The system runs little-endian: 3 is 1 and 6 is 4.
ULibCharSet normalise(ULibCharSet cs) {
    if (cs == ULIB_CS_DEFAULT)
        cs = CharSetTable::defaultCharSet();
    if (cs == kUTF16LE)
        return kUTF16;
    if (cs == kUTF32LE)
        return kUTF32;
    return cs;
}

bool isUTF16(ULibCharSet cs) {
    return cs == kUTF16 || cs == kUTF16BE;
}

bool isUTF32(ULibCharSet cs) {
    return cs == kUTF32 || cs == kUTF32BE;
}

bool misaligned(const void* p, std::size_t align) {
    return reinterpret_cast<std::uintptr_t>(p) % align != 0;
}

void reverseGroups(unsigned char* p, int bytes, int width) {
    for (int i = 0; i + width <= bytes; i += width)
        std::reverse(p + i, p + i + width);
}

// Makes the calling thread's behaviour ULIB_CNV_SUBSTITUTE while it lives,
// when `on`.
class SubstituteScope {
public:
    explicit SubstituteScope(bool on) : m_on(on) {
        if (on) {
            m_saved = CSConverter::converterErrorBehavior();
            CSConverter::converterErrorBehavior() = ULIB_CNV_SUBSTITUTE;
        }
    }
    ~SubstituteScope() {
        if (m_on)
            CSConverter::converterErrorBehavior() = m_saved;
    }
    SubstituteScope(const SubstituteScope&) = delete;
    SubstituteScope& operator=(const SubstituteScope&) = delete;

private:
    bool m_on;
    ULibCnvErrBehavior m_saved = ULIB_CNV_DEFAULT;
};

// The UTF-16 copy: whole characters up to the room and the character limit.
int copyUTF16(ULibCharSet target, unsigned char* dst, int dstBytes, unsigned int maxChars,
              ULibCharSet source, const unsigned char* src, int srcBytes, ULibError* err) {
    const int limit = dstBytes & ~1;
    setError(err, ULIB_OK);
    int n = 0;
    if (srcBytes <= limit && maxChars == 0) {
        n = srcBytes;
    } else {
        const bool bigEndian = source == kUTF16BE;
        unsigned int chars = 0;
        while (n < srcBytes) {
            if (maxChars != 0 && chars == maxChars) {
                setError(err, ULIB_ERR_MAX_CHARS);
                break;
            }
            const unsigned unit =
                bigEndian ? (src[n] << 8 | src[n + 1]) : (src[n + 1] << 8 | src[n]);
            int size = (unit >= 0xD800 && unit <= 0xDBFF) ? 4 : 2;
            size = std::min(size, srcBytes - n); // a high surrogate last in the source
            if (n + size > limit) {
                setError(err, ULIB_ERR_BUFFER_OVERFLOW);
                break;
            }
            n += size;
            ++chars;
        }
    }
    std::memcpy(dst, src, n);
    if (target != source)
        reverseGroups(dst, n, 2);
    return n;
}

int copyUTF32(ULibCharSet target, unsigned char* dst, int dstBytes, unsigned int maxChars,
              ULibCharSet source, const unsigned char* src, int srcBytes, ULibError* err) {
    long long limit = dstBytes & ~3;
    if (maxChars != 0)
        limit = std::min<long long>(limit, 4LL * maxChars);
    setError(err, srcBytes > limit ? ULIB_ERR_BUFFER_OVERFLOW : ULIB_OK);
    const int n = static_cast<int>(std::min<long long>(srcBytes, limit));
    std::memcpy(dst, src, n);
    if (target != source)
        reverseGroups(dst, n, 4);
    return n;
}

// Source to UTF-16 to target. Each source byte gives at most two units (SCSU
// and BOCU-1 write a supplementary character in one byte once a window or the
// previous character is near it), and up to four under substitution (the
// thread's string) and escapes (\xHH): the pivot is sized for that so that the
// first step never overflows and the target's room alone decides what fits.
int twoStep(ULibCharSet target, char* dst, int dstBytes, ULibCharSet source, const char* src,
            int srcBytes, bool substitute, ULibError* err) {
    const ULibCnvErrBehavior behaviour =
        substitute ? ULIB_CNV_SUBSTITUTE : CSConverter::converterErrorBehavior();
    const int perByte = (behaviour == ULIB_CNV_SUBSTITUTE || behaviour == ULIB_CNV_ESCAPE) ? 4 : 2;
    // Counts are ints: a source of more than 512 MiB gets a pivot of INT_MAX
    // units, and the first step then reports what fit.
    const int pivotUnits =
        static_cast<int>(std::min<long long>(static_cast<long long>(srcBytes) * perByte + 4, INT_MAX));
    unsigned short stackPivot[1024];
    std::unique_ptr<unsigned short[]> heapPivot;
    unsigned short* pivot = stackPivot;
    if (pivotUnits > 1024) {
        heapPivot.reset(new (std::nothrow) unsigned short[pivotUnits]);
        if (!heapPivot) {
            setError(err, ULIB_ERR_UNKNOWN); // no memory for the pivot; nothing is thrown
            return 0;
        }
        pivot = heapPivot.get();
    }
    ULibError first = ULIB_OK;
    const int units =
        CSConverter(source, behaviour, true).toUTF16(pivot, pivotUnits, src, srcBytes, &first);
    if (units < 1) {
        setError(err, first);
        return 0;
    }
    // A first step that stopped early (a bad or cut character) has converted
    // what came before it. The second step converts that prefix and, having
    // met nothing wrong, would report success: the caller would take a cut
    // row for a whole one. So the first step's error stands whenever the
    // second has none; the optimised converters answer the same.
    ULibError second = ULIB_OK;
    const int written =
        CSConverter(target, behaviour, true).fromUTF16(dst, dstBytes, pivot, units, &second);
    setError(err, second != ULIB_OK ? second : first);
    return written;
}

} // namespace

namespace qzs {
namespace qzlib {
namespace qzunicode {
namespace detail {

int convertThroughICU(ULibCharSet target, char* dst, int dstBytes, ULibCharSet source,
                      const char* src, int srcBytes, bool substitute, ULibError* err) {
    // The two UTF-16 paths convert with the thread's behaviour; substitute
    // must hold on them as it does on the two-step path and in the optimised
    // converters, so the thread's behaviour is substitute for the call.
    const SubstituteScope scope(substitute);
    if (source == kUTF16)
        return ULIB_fromUTF16(target, dst, dstBytes, reinterpret_cast<const unsigned short*>(src),
                              srcBytes / 2, err);
    // (A target of one byte has room for no unit: ULIB_toUTF16 would call
    // that an argument error, where it is a full target. Two steps tell
    // which character did not fit.)
    if (target == kUTF16 && dstBytes >= 2)
        return 2 * ULIB_toUTF16(source, reinterpret_cast<unsigned short*>(dst), dstBytes / 2, src,
                                srcBytes, err);
    return twoStep(target, dst, dstBytes, source, src, srcBytes, substitute, err);
}

} // namespace detail
} // namespace qzunicode
} // namespace qzlib
} // namespace qzs

extern "C" {

int ULIB_CStoCS(ULibCharSet target, void* dst, int dstBytes, unsigned int maxChars,
                ULibCharSet source, const void* src, int srcBytes, bool forceConversion,
                bool substitute, ULibError* err, ULibBadCharDetail* detail) {
    if (dst == nullptr || dstBytes < 1 || src == nullptr || maxChars > 0x7fffffffu ||
        srcBytes < -1) {
        setError(err, ULIB_ERR_ILLEGAL_ARGUMENT);
        return 0;
    }
    target = normalise(target);
    source = normalise(source);
    unsigned char* out = static_cast<unsigned char*>(dst);
    const unsigned char* in = static_cast<const unsigned char*>(src);

    if (isUTF16(source)) {
        if (srcBytes == -1)
            srcBytes = 2 * CSConverter::getNumUTF16Units(static_cast<const unsigned short*>(src));
        if (srcBytes % 2 != 0) {
            setError(err, ULIB_ERR_ILLEGAL_ARGUMENT);
            return 0;
        }
        if (!forceConversion && isUTF16(target))
            return copyUTF16(target, out, dstBytes, maxChars, source, in, srcBytes, err);
    } else if (isUTF32(source)) {
        if (srcBytes == -1)
            srcBytes = 4 * CSConverter::getNumUTF32Chars(static_cast<const unsigned int*>(src));
        if (srcBytes % 4 != 0) {
            setError(err, ULIB_ERR_ILLEGAL_ARGUMENT);
            return 0;
        }
        if (!forceConversion && isUTF32(target))
            return copyUTF32(target, out, dstBytes, maxChars, source, in, srcBytes, err);
    } else {
        if (srcBytes == -1)
            srcBytes = CSConverter(source).getNumBytes(static_cast<const char*>(src));
        if (!forceConversion && maxChars == 0 &&
            (target == source ||
             (source == kUSASCII && CharSetTable::isUSASCIICompatible(target)))) {
            if (srcBytes <= dstBytes) {
                std::memcpy(out, in, srcBytes);
                setError(err, ULIB_OK);
                return srcBytes;
            }
            setError(err, ULIB_ERR_BUFFER_OVERFLOW);
            // Kept on purpose: a single-byte copy is cut at the room, where a
            // multi-byte one goes through the converter to keep whole
            // characters.
            if (source == kUSASCII || CSConverter(source).getType() == CNV_TYPE_SBCS) {
                std::memcpy(out, in, dstBytes);
                return dstBytes;
            }
        }
    }

    if (const COptimizedConverter* opt = COptimizedConverter::getConverter(source, target))
        return opt->convert(static_cast<char*>(dst), dstBytes, static_cast<int>(maxChars),
                            static_cast<const char*>(src), srcBytes, substitute, err, detail);

    if (detail != nullptr)
        detail->nBytes = 0;
    return qzs::qzlib::qzunicode::detail::convertThroughICU(
        target, static_cast<char*>(dst), dstBytes, source, static_cast<const char*>(src), srcBytes,
        substitute, err);
}

int ULIB_charMapOverride(ULibCharSet source, unsigned long sourceChar, ULibCharSet target,
                         unsigned long targetChar) {
    auto fold = [](ULibCharSet cs) {
        if (cs >= kUTF16 && cs <= kUTF16LE)
            return kUTF16;
        if (cs >= kUTF32 && cs <= kUTF32LE)
            return kUTF32;
        return cs;
    };
    auto sibling = [](ULibCharSet cs) {
        return cs == kUTF16 ? kUTF16BE : cs == kUTF32 ? kUTF32BE : ULIB_CS_INVALID;
    };
    const ULibCharSet s = fold(source);
    const ULibCharSet t = fold(target);
    const COptimizedConverter* first = COptimizedConverter::getConverter(s, t);
    if (first == nullptr)
        return ULIB_ERR_NO_CONVERTER;
    if (int rc = first->charMapOverride(sourceChar, targetChar))
        return rc;
    const ULibCharSet sSib = sibling(s);
    const ULibCharSet tSib = sibling(t);
    const std::pair<ULibCharSet, ULibCharSet> others[] = {{sSib, t}, {s, tSib}, {sSib, tSib}};
    for (const auto& pair : others) {
        if (pair.first == ULIB_CS_INVALID || pair.second == ULIB_CS_INVALID)
            continue;
        const COptimizedConverter* c = COptimizedConverter::getConverter(pair.first, pair.second);
        if (c == nullptr)
            continue;
        if (int rc = c->charMapOverride(sourceChar, targetChar))
            return rc;
    }
    return ULIB_OK;
}

int ULIB_toUTF16(ULibCharSet cs, unsigned short* dst, int dstUnits, const char* src, int srcBytes,
                 ULibError* err) {
    if (dst == nullptr || dstUnits <= 0 || src == nullptr || srcBytes < -1) {
        setError(err, ULIB_ERR_ILLEGAL_ARGUMENT);
        return 0;
    }
    CSConverter c(cs);
    if (srcBytes == -1)
        srcBytes = c.getNumBytes(src);
    if (!misaligned(dst, alignof(unsigned short)))
        return c.toUTF16(dst, dstUnits, src, srcBytes, err);
    std::vector<unsigned short> tmp(dstUnits);
    const int n = c.toUTF16(tmp.data(), dstUnits, src, srcBytes, err);
    std::memcpy(dst, tmp.data(), n * sizeof(unsigned short));
    return n;
}

int ULIB_fromUTF16(ULibCharSet cs, char* dst, int dstBytes, const unsigned short* src, int srcUnits,
                   ULibError* err) {
    if (dst == nullptr || dstBytes <= 0 || src == nullptr || srcUnits < -1) {
        setError(err, ULIB_ERR_ILLEGAL_ARGUMENT);
        return 0;
    }
    CSConverter c(cs);
    if (srcUnits == -1)
        srcUnits = CSConverter::getNumUTF16Units(src);
    if (!misaligned(src, alignof(unsigned short)))
        return c.fromUTF16(dst, dstBytes, src, srcUnits, err);
    // At least one unit: an empty vector has no data pointer, and the
    // converters reject a null source where an empty one at an even address
    // converts to nothing.
    std::vector<unsigned short> tmp(std::max(srcUnits, 1));
    std::memcpy(tmp.data(), src, srcUnits * sizeof(unsigned short));
    return c.fromUTF16(dst, dstBytes, tmp.data(), srcUnits, err);
}

int ULIB_toUTF8(ULibCharSet cs, char* dst, int dstBytes, const char* src, int srcBytes,
                ULibError* err) {
    return ULIB_CStoCS(kUTF8, dst, dstBytes, 0, cs, src, srcBytes, false, false, err, nullptr);
}

int ULIB_fromUTF8(ULibCharSet cs, char* dst, int dstBytes, const char* src, int srcBytes,
                  ULibError* err) {
    return ULIB_CStoCS(cs, dst, dstBytes, 0, kUTF8, src, srcBytes, false, false, err, nullptr);
}

int ULIB_getNumUTF16Units(const unsigned short* p) {
    return CSConverter::getNumUTF16Units(p);
}

int ULIB_getNumUTF32Chars(const unsigned int* p) {
    return CSConverter::getNumUTF32Chars(p);
}

void ULIB_fillChars(unsigned short* dst, unsigned short c, std::size_t n) {
    if (dst == nullptr)
        return;
    unsigned char* out = reinterpret_cast<unsigned char*>(dst);
    for (std::size_t i = 0; i < n; ++i)
        std::memcpy(out + 2 * i, &c, 2);
}

bool ULIB_isSupported(ULibCharSet cs) {
    return CSConverter::isSupported(cs);
}

ULibCnvErrBehavior ULIB_getConverterErrorBehavior() {
    return CSConverter::converterErrorBehavior();
}

void ULIB_setConverterErrorBehavior(ULibCnvErrBehavior behaviour) {
    CSConverter::converterErrorBehavior() = behaviour;
}

bool ULIB_getFallback() {
    return CSConverter::fallback();
}

void ULIB_setFallback(bool fallback) {
    CSConverter::fallback() = fallback;
}

ULibError ULIB_setSubstString(const unsigned short* p, int n) {
    const ULibError rc = CSConverter::setSubstString(p, n);
    if (rc == ULIB_OK)
        COptimizedConverter::updateSubstString();
    return rc;
}

ULibError ULIB_getSubstString(unsigned short* buf, int* n) {
    if (n == nullptr)
        return ULIB_ERR_ILLEGAL_ARGUMENT;
    return CSConverter::getSubstString(buf, *n);
}

const char* ULIB_getDefaultCharSetName() {
    // The name lives in ICU's shared converter data, which outlives the
    // converter opened here.
    return CSConverter(ULIB_CS_DEFAULT).getCharSetName();
}

ULibCharSet ULIB_setDefaultCharSet(ULibCharSet cs) {
    const ULibCharSet result = CSConverter::setDefaultCharSet(cs);
    CharSetTable::storeDefaultCharSet(result);
    return result;
}

} // extern "C"
