//===- qzunicode/detail/CSConverterICU.h - ICU-backed converter -------*- C++ -*-===//
//
// The converter for every set of the table: a thin layer over one ICU
// converter that maps the thread's error behaviour onto ICU callbacks and ICU's
// status codes onto ULibError, and that keeps whole characters on overflow.
//
//===----------------------------------------------------------------------===//
#ifndef QZUNICODE_DETAIL_CSCONVERTERICU_H
#define QZUNICODE_DETAIL_CSCONVERTERICU_H

#include "qzunicode/detail/CSConverterImpl.h"
#include "qzunicode/CharSetTable.h"

struct UConverter;

namespace qzs {
namespace qzlib {
namespace qzunicode {

/// Wraps one ICU converter. When ICU cannot open the set the object is of no
/// use (isOpen false) and CSConverter replaces it.
/// Thread safety: an object belongs to one thread.
class CSConverterICU final : public CSConverterImpl {
public:
    /// Opens the set's converter name, or ICU's default for ULIB_CS_DEFAULT
    /// and for numbers in no block. Behaviour 0 keeps ICU's callbacks; an
    /// unknown behaviour acts as ULIB_CNV_STOP.
    CSConverterICU(ULibCharSet cs, ULibCnvErrBehavior behaviour, bool fallback);
    ~CSConverterICU() override;
    CSConverterICU(const CSConverterICU&) = delete;
    CSConverterICU& operator=(const CSConverterICU&) = delete;

    bool isOpen() const { return m_poConverter != nullptr; }
    /// The ICU converter, for callers in this module that must ask ICU
    /// directly (how many bytes one character takes). Owned by this object.
    UConverter* handle() const { return m_poConverter; }

    CSConverterType getType() const override { return m_eType; }
    bool getLeadByteMap(unsigned char* map) const override;
    const char* getCharSetName() const override;
    /// By the converter's minimum character size: 1 strlen, 2 up to a zero
    /// unit. Kept on purpose for size 4: it measures a run of zero groups from
    /// the start (0 unless the first 4 bytes are zero), not a string.
    int getNumBytes(const char* s) const override;
    /// On overflow: the longest prefix of whole characters that fits, and
    /// ULIB_ERR_BUFFER_OVERFLOW.
    int toUTF16(unsigned short* dst, int dstUnits, const char* src, int srcBytes,
                ULibError* err) override;
    int fromUTF16(char* dst, int dstBytes, const unsigned short* src, int srcUnits,
                  ULibError* err) override;

    /// ICU status (a UErrorCode, kept as int so that ICU's headers stay out of
    /// ours) to ULibError: success and warnings 0, illegal argument 1002,
    /// invalid or illegal character 1004, overflow 100 when overflowIsWarning
    /// else 1003, anything else 1005.
    static int translateICUError(int code, bool overflowIsWarning);
    /// Makes cs ICU's default converter, when cs has a converter name.
    static void setDefaultCharSet(ULibCharSet cs);

private:
    UConverter* m_poConverter = nullptr;
    std::int8_t m_nMinCharSize = 1;
    CSConverterType m_eType = CNV_TYPE_OTHER;
};

} // namespace qzunicode
} // namespace qzlib
} // namespace qzs

#endif // QZUNICODE_DETAIL_CSCONVERTERICU_H
