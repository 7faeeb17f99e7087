//===- qzunicode/CSConverter.cpp - Converter front end --------------------===//
//
// Choice of implementation, the thread's conversion settings and the process
// default set. Settings are per thread so that one thread's choice of
// behaviour or substitution string never leaks into another's conversions.
//
//===----------------------------------------------------------------------===//
#include "qzunicode/CSConverter.h"

#include "qzstd/MessageSeam.h"
#include "qzstd/ThreadLocalStorage.h"
#include "qzunicode/detail/CSConverterEscape.h"
#include "qzunicode/detail/CSConverterICU.h"
#include "qzunicode/detail/CSConverterSBCS.h"

#include <atomic>
#include <cstring>
#include <memory>

namespace qzs {
namespace qzlib {
namespace qzunicode {

namespace {

struct ThreadSettings {
    ULibCnvErrBehavior eBehavior = ULIB_CNV_STOP;
    bool bFallback = false;
    unsigned short aSubst[4] = {0x001A, 0, 0, 0};
    int nSubstLen = 1;
};

ThreadSettings& settings() {
    return ThreadLocal::ThreadLocalWrapper<ThreadSettings>::get();
}

// ISO-8859-1: every byte 1 to 255 is the unit of the same value.
struct Latin1Pairs {
    unsigned short a[2 * 256];
    Latin1Pairs() {
        for (int b = 1; b < 256; ++b) {
            a[2 * (b - 1)] = static_cast<unsigned short>(b);
            a[2 * (b - 1) + 1] = static_cast<unsigned short>(b);
        }
        a[2 * 255] = 0;
        a[2 * 255 + 1] = 0;
    }
};

// A set of the table that neither ICU nor the library's package can open is
// read and written through the ISO-8859-1 stand-in. That is said once per set
// and process (one flag per row of the table), the first time the set is
// opened, so that a process reading such a set knows why its text looks as
// it does, without a message per conversion.
constexpr int kTableRows = 12 + 125 + 42 + 230;

void tellFallbackOnce(ULibCharSet cs) {
    static std::atomic<bool> told[kTableRows];
    int index = 0;
    for (int b = 0; b < CharSetTable::numBlocks; ++b) {
        const ULibCharSetBlock& block = CharSetTable::block(b);
        if (cs >= block.nFirst && cs < block.nFirst + block.nRows) {
            index += cs - block.nFirst;
            if (index < kTableRows && !told[index].exchange(true))
                qzlib::detail::raiseFault(QZ_MESSAGE_SITE("qzunicode", "qzunicode/CSConverter",
                                                          "CSConverter::CSConverter"),
                                          1161, block.pRows[cs - block.nFirst].pszConverterName);
            return;
        }
        index += block.nRows;
    }
}

struct DefConverterHolder {
    std::unique_ptr<CSConverterSBCS> poConverter;
};

} // namespace

CSConverter::CSConverter(ULibCharSet cs) : CSConverter(cs, converterErrorBehavior(), fallback()) {}

CSConverter::CSConverter(ULibCharSet cs, ULibCnvErrBehavior behaviour, bool fallback) {
    if (cs & ULIB_CS_ESCAPE_FLAG) {
        m_poImpl = new CSConverterEscape(cs, behaviour, fallback);
        return;
    }
    CSConverterICU* icu = new CSConverterICU(cs, behaviour, fallback);
    if (icu->isOpen()) {
        m_poImpl = icu;
    } else {
        delete icu;
        m_poImpl = &oDefConverter();
        tellFallbackOnce(cs);
    }
}

CSConverter::~CSConverter() {
    if (!isDefaultConverter())
        delete m_poImpl;
}

bool CSConverter::isDefaultConverter() const {
    // The stand-in is the one converter of its class. Asked by class, not by
    // the thread's stand-in, so that a converter destroyed at the thread's
    // exit after the stand-in's holder does not make a new stand-in there,
    // which nothing would free.
    return dynamic_cast<const CSConverterSBCS*>(m_poImpl) != nullptr;
}

CSConverterType CSConverter::getType() const {
    return m_poImpl->getType();
}

bool CSConverter::getLeadByteMap(unsigned char* map) const {
    return m_poImpl->getLeadByteMap(map);
}

const char* CSConverter::getCharSetName() const {
    return m_poImpl->getCharSetName();
}

int CSConverter::getNumBytes(const char* s) const {
    return m_poImpl->getNumBytes(s);
}

int CSConverter::toUTF16(unsigned short* dst, int dstUnits, const char* src, int srcBytes, ULibError* err) {
    return m_poImpl->toUTF16(dst, dstUnits, src, srcBytes, err);
}

int CSConverter::fromUTF16(char* dst, int dstBytes, const unsigned short* src, int srcUnits, ULibError* err) {
    return m_poImpl->fromUTF16(dst, dstBytes, src, srcUnits, err);
}

bool CSConverter::isSupported(ULibCharSet cs) {
    CSConverter c(cs);
    return !c.isDefaultConverter();
}

int CSConverter::getNumUTF16Units(const unsigned short* p) {
    if (p == nullptr)
        return 0;
    // Read by bytes: callers hand in byte buffers at any address.
    const unsigned char* b = reinterpret_cast<const unsigned char*>(p);
    int n = 0;
    while (b[0] != 0 || b[1] != 0) {
        b += 2;
        ++n;
    }
    return n;
}

int CSConverter::getNumUTF32Chars(const unsigned int* p) {
    if (p == nullptr)
        return 0;
    const unsigned char* b = reinterpret_cast<const unsigned char*>(p);
    int n = 0;
    while (b[0] != 0 || b[1] != 0 || b[2] != 0 || b[3] != 0) {
        b += 4;
        ++n;
    }
    return n;
}

ULibError CSConverter::setSubstString(const unsigned short* p, int n) {
    if (p == nullptr || n < 0 || n > 4)
        return ULIB_ERR_ILLEGAL_ARGUMENT;
    ThreadSettings& s = settings();
    s.nSubstLen = n;
    if (n != 0)
        std::memcpy(s.aSubst, p, n * sizeof(unsigned short));
    return ULIB_OK;
}

ULibError CSConverter::getSubstString(unsigned short* buf, int& n) {
    ThreadSettings& s = settings();
    if (buf == nullptr || n < s.nSubstLen)
        return ULIB_ERR_ILLEGAL_ARGUMENT;
    n = s.nSubstLen;
    if (n > 0)
        std::memcpy(buf, s.aSubst, n * sizeof(unsigned short));
    return ULIB_OK;
}

ULibCharSet CSConverter::setDefaultCharSet(ULibCharSet cs) {
    CSConverterICU::setDefaultCharSet(cs);
    CSConverter c(ULIB_CS_DEFAULT);
    return CharSetTable::toCharSet(c.getCharSetName());
}

ULibCnvErrBehavior& CSConverter::converterErrorBehavior() {
    return settings().eBehavior;
}

bool& CSConverter::fallback() {
    return settings().bFallback;
}

unsigned short* CSConverter::goSubstString() {
    return settings().aSubst;
}

int& CSConverter::nSubstLen() {
    return settings().nSubstLen;
}

CSConverterSBCS& CSConverter::oDefConverter() {
    std::unique_ptr<CSConverterSBCS>& p =
        ThreadLocal::ThreadLocalWrapper<DefConverterHolder>::get().poConverter;
    if (!p) {
        static const Latin1Pairs pairs;
        p.reset(new CSConverterSBCS(pairs.a, "ISO-8859-1"));
    }
    return *p;
}

} // namespace qzunicode
} // namespace qzlib
} // namespace qzs
