//===- qzunicode/COptimizedConverter.cpp - Optimised pair converters ------===//
//
// The thread's cache of converters, the choice of family by the source's
// kind, and the slow path: a character the tables do not hold goes through
// the ICU path on its own, after ICU has said how many bytes it takes, so
// that bad input comes out exactly as the ICU path would have it.
//
//===----------------------------------------------------------------------===//
#include "qzunicode/COptimizedConverter.h"

#include "qzunicode/CSConverter.h"
#include "qzunicode/detail/CSConverterICU.h"
#include "qzunicode/detail/ICUPath.h"
#include "qzunicode/detail/OptimizedConverters.h"

#include "qzstd/SparseArray.h"
#include "qzstd/ThreadLocalStorage.h"

#include <unicode/ucnv.h>

#include <algorithm>
#include <cstring>

namespace qzs {
namespace qzlib {
namespace qzunicode {

namespace {

// The thread's converters by pair; a null entry is a pair no converter
// serves, so it is not tried again. Deleted with the thread.
struct ConverterCache {
    SparseArray<const COptimizedConverter*, unsigned int> map;
    ~ConverterCache() {
        map.forEach([](unsigned int, const COptimizedConverter*& c) { delete c; });
    }
};

ConverterCache& cache() {
    return ThreadLocal::ThreadLocalWrapper<ConverterCache>::get();
}

COptimizedConverter* build(ULibCharSet source, ULibCharSet target, bool fallbackSource,
                           bool fallbackTarget) {
    CSConverter s(source, ULIB_CNV_STOP, fallbackSource);
    CSConverter t(target, ULIB_CNV_STOP, fallbackTarget);
    // The ICU path's stand-in for a set ICU cannot open is no ICU converter,
    // and the slow path needs ICU: such pairs stay on the ICU path.
    if (s.isDefaultConverter() || t.isDefaultConverter())
        return nullptr;
    switch (s.getType()) {
    case CNV_TYPE_UTF8:
    case CNV_TYPE_UTF16:
        return CUTFOptimizedConverter::getConverter(source, s, target, t, fallbackSource,
                                                    fallbackTarget);
    case CNV_TYPE_SBCS:
        return CSBCSOptimizedConverter::getConverter(source, s, target, t, fallbackSource,
                                                     fallbackTarget);
    case CNV_TYPE_MBCS:
        return CMBCSOptimizedConverter::getConverter(source, s, target, t, fallbackSource,
                                                     fallbackTarget);
    case CNV_TYPE_EBCDIC_STATEFUL:
        return CEBCDICSFOptimizedConverter::getConverter(source, s, target, t, fallbackSource,
                                                         fallbackTarget);
    default:
        // UTF-32 sources, pure double-byte sets, ISO-2022 and the rest.
        return nullptr;
    }
}

} // namespace

COptimizedConverter::COptimizedConverter(ULibCharSet source, ULibCharSet target)
    : m_eSource(source), m_eTarget(target),
      m_bShiftTarget(CSConverter(target, ULIB_CNV_STOP, true).getType() ==
                     CNV_TYPE_EBCDIC_STATEFUL),
      m_bShiftSource(CSConverter(source, ULIB_CNV_STOP, true).getType() ==
                     CNV_TYPE_EBCDIC_STATEFUL) {}

COptimizedConverter::~COptimizedConverter() {
    delete m_poSourceICU;
}

const COptimizedConverter* COptimizedConverter::getConverter(ULibCharSet source,
                                                             ULibCharSet target) {
    if (source == 3)
        source = ULibCharSet(1);
    if (target == 3)
        target = ULibCharSet(1);
    // Set numbers end below 0x8000; flags, ULIB_CS_DEFAULT and ULIB_CS_INVALID
    // are no pair.
    if (source < 0 || source > 0x7FFF || target < 0 || target > 0x7FFF)
        return nullptr;
    // Where a side is native UTF-16 the ICU path converts once, with the
    // thread's fallback flag; two steps always use fallbacks. The tables
    // follow, and a pair with the flag set is cached apart.
    const bool threadFallback = CSConverter::fallback();
    const bool fallbackSource = target == 1 ? threadFallback : true;
    const bool fallbackTarget = source == 1 ? threadFallback : true;
    const unsigned int key = (unsigned(source) << 16 | unsigned(target)) |
                             ((source == 1 || target == 1) && threadFallback ? 0x80000000u : 0u);
    ConverterCache& c = cache();
    if (const COptimizedConverter* const* hit = c.map.find(key))
        return *hit;
    const COptimizedConverter* made = build(source, target, fallbackSource, fallbackTarget);
    c.map[key] = made;
    return made;
}

void COptimizedConverter::updateSubstString() {}

std::size_t COptimizedConverter::threadMemoryBytes() {
    std::size_t bytes = 0;
    cache().map.forEach([&bytes](unsigned int, const COptimizedConverter*& c) {
        if (c != nullptr)
            bytes += c->memoryBytes();
    });
    return bytes;
}

int COptimizedConverter::convert(char* dst, int dstBytes, int maxChars, const char* src,
                                 int srcBytes, bool substitute, ULibError* err,
                                 ULibBadCharDetail* detail) const {
    if (detail != nullptr)
        detail->uOffset = 0;
    // A whole buffer is a text of its own: it starts in single byte state,
    // whatever a stream left behind (as the ICU path does).
    m_bTargetInDoubleByte = false;
    m_bSourceInDoubleByte = false;
    char* d = dst;
    const char* s = src;
    return convert(&d, dst + std::max(dstBytes, 0), maxChars, &s, src + std::max(srcBytes, 0),
                   substitute, true, err, detail);
}

int COptimizedConverter::toMBCSCvtInfo(unsigned long value, MBCSCvtInfo& info,
                                       bool isSource) const {
    std::memset(&info, 0, sizeof info);
    const int set = isSource ? m_eSource : m_eTarget;
    if (set >= 1 && set <= 3) {
        unsigned int units[2];
        int n = 0;
        if (value > 0xFFFF)
            units[n++] = (value >> 16) & 0xFFFF;
        units[n++] = value & 0xFFFF;
        for (int i = 0; i < n; ++i) {
            const bool big = set == 2;
            info.acBytes[2 * i] = big ? units[i] >> 8 : units[i] & 0xFF;
            info.acBytes[2 * i + 1] = big ? units[i] & 0xFF : units[i] >> 8;
        }
        info.uLength = 2 * n;
    } else if (set >= 4 && set <= 6) {
        // In the set's own order: a big-endian set (5) written in memory
        // order would be another character.
        for (int i = 0; i < 4; ++i) {
            const int shift = set == 5 ? 8 * (3 - i) : 8 * i;
            info.acBytes[i] = (value >> shift) & 0xFF;
        }
        info.uLength = 4;
    } else {
        int n = 0;
        for (int shift = 8 * (int(sizeof(unsigned long)) - 1); shift >= 0; shift -= 8) {
            const unsigned char b = (value >> shift) & 0xFF;
            if (b == 0 && n == 0 && shift != 0)
                continue;
            if (n == 7)
                return info.uLength = 0; // longer than a character can be
            info.acBytes[n++] = b;
        }
        info.uLength = n;
    }
    return info.uLength;
}

bool COptimizedConverter::fitsTarget(MBCSCvtInfo& info) const {
    if (info.uLength == 0)
        return false;
    if (!m_bShiftTarget)
        return true;
    if (info.uLength == 4 && info.acBytes[0] == 0x0E && info.acBytes[3] == 0x0F) {
        info.acBytes[0] = info.acBytes[1];
        info.acBytes[1] = info.acBytes[2];
        info.acBytes[2] = info.acBytes[3] = 0;
        info.uLength = 2;
    }
    return info.uLength <= 2;
}

COptimizedConverter::BadOutcome COptimizedConverter::handleBad(const unsigned char* p, int left,
                                                               bool flush, unsigned char* out,
                                                               int room, bool substitute) const {
    // How many bytes ICU takes as this character: a malformed sequence is
    // as long as ICU says, and a cut one is left for the next piece.
    if (m_poSourceICU == nullptr)
        m_poSourceICU = new CSConverter(m_eSource, ULIB_CNV_STOP, true);
    int len = 1;
    bool illegalInPlace = false;
    bool badInSource = false;
    const int window = std::min(left, 16);
    // ICU reads from a fresh state: inside a double byte run of an EBCDIC
    // stateful source, the bytes go to it behind the shift that opened it.
    const int lead = m_bShiftSource && m_bSourceInDoubleByte ? 1 : 0;
    unsigned char bytes[1 + 16];
    bytes[0] = 0x0E;
    std::memcpy(bytes + 1, p, window);
    const char* const piece = reinterpret_cast<const char*>(bytes + 1 - lead);
    if (auto* icu = dynamic_cast<CSConverterICU*>(m_poSourceICU->impl());
        icu != nullptr && icu->handle() != nullptr) {
        UConverter* cnv = icu->handle();
        ucnv_resetToUnicode(cnv);
        const char* s = piece;
        UErrorCode status = U_ZERO_ERROR;
        ucnv_getNextUChar(cnv, &s, piece + lead + window, &status);
        if (status == U_TRUNCATED_CHAR_FOUND && window == left && !flush)
            return {BadOutcome::Partial, 0, 0, ULIB_OK, false};
        len = std::max(1, static_cast<int>(s - piece) - lead);
        illegalInPlace = status == U_ILLEGAL_CHAR_FOUND || status == U_INVALID_CHAR_FOUND;
        badInSource = U_FAILURE(status);
        ucnv_resetToUnicode(cnv);
    }
    if (len > left)
        len = left;

    // The character alone through the ICU path, under the same behaviour. A
    // few bytes give at most a few dozen of output, escapes included.
    unsigned char tmp[512];
    ULibError e = ULIB_OK;
    const int n = detail::convertThroughICU(m_eTarget, reinterpret_cast<char*>(tmp), sizeof tmp,
                                            m_eSource, piece, lead + len, substitute, &e);
    // Alone, a lead byte whose next byte ICU gave back reads as cut short;
    // in its place, with bytes behind it, it is a bad character, and that is
    // what the whole conversion reports. (Last in the source it is cut short
    // in both.)
    if (e == ULIB_ERR_UNKNOWN && illegalInPlace && len < left)
        e = ULIB_ERR_INVALID_CHAR;
    // A character bad in the source stops the first of two steps, and the
    // second converts what came before it whole; a native UTF-16 source has
    // one step only, and so has a character the target lacks.
    const bool closesRun = badInSource && m_eSource != 1;
    if (e != ULIB_OK)
        return {BadOutcome::Stop, len, 0, e, closesRun};
    if (n > room)
        return {BadOutcome::Overflow, len, 0, ULIB_ERR_BUFFER_OVERFLOW, false};
    std::memcpy(out, tmp, n);
    return {BadOutcome::Written, len, n, ULIB_OK, false};
}

int COptimizedConverter::finish(char** dst, const char** src, int written, int pos, ULibError e,
                                ULibError* err) {
    *dst += written;
    *src += pos;
    if (err != nullptr)
        *err = e;
    return written;
}

void COptimizedConverter::reportBad(ULibBadCharDetail* detail, const unsigned char* p, int len,
                                    int pos) {
    if (detail == nullptr)
        return;
    detail->uOffset += pos;
    detail->nBytes = std::min(len, 8);
    std::memcpy(detail->acBytes, p, detail->nBytes);
}

} // namespace qzunicode
} // namespace qzlib
} // namespace qzs
