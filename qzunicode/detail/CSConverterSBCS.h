//===- qzunicode/detail/CSConverterSBCS.h - Table single-byte converter -*- C++ -*-===//
//
// A single-byte converter built from a list of (byte, unit) pairs, with no ICU
// in its path: one array read per byte to UTF-16, a two-level page read per
// unit back. The thread's ISO-8859-1 last resort is one of these.
//
//===----------------------------------------------------------------------===//
#ifndef QZUNICODE_DETAIL_CSCONVERTERSBCS_H
#define QZUNICODE_DETAIL_CSCONVERTERSBCS_H

#include "qzunicode/detail/CSConverterImpl.h"

namespace qzs {
namespace qzlib {
namespace qzunicode {

/// Thread safety: reads the thread's error behaviour at each bad character, so
/// one instance must not be shared between threads with other behaviours.
/// Kept on purpose: unlike ICU, it reports ULIB_ERR_INVALID_CHAR even after
/// substituting, skipping or escaping, so the caller learns text was lost.
class CSConverterSBCS final : public CSConverterImpl {
public:
    /// pairs: (byte, unit) pairs ended by a pair with byte 0; name is kept,
    /// not copied. The substitution string is the thread's, mapped through
    /// this set (an unmapped unit becomes byte 0).
    CSConverterSBCS(const unsigned short* pairs, const char* name);
    CSConverterSBCS(const CSConverterSBCS& other);
    CSConverterSBCS& operator=(const CSConverterSBCS&) = delete;
    ~CSConverterSBCS() override;

    /// Builds the reverse map; does nothing when it exists. Where two bytes
    /// map to one unit, the higher byte wins.
    void load();

    CSConverterType getType() const override { return CNV_TYPE_SBCS; }
    bool getLeadByteMap(unsigned char*) const override { return false; }
    const char* getCharSetName() const override { return m_pszName; }
    int getNumBytes(const char* s) const override;
    /// Unmapped bytes by the thread's behaviour: substitute U+001A, skip,
    /// escape as \xHH, otherwise stop; 1004 in every case.
    int toUTF16(unsigned short* dst, int dstUnits, const char* src, int srcBytes,
                ULibError* err) override;
    /// Unmapped units by the thread's behaviour: the substitution bytes, skip,
    /// {U+HHHH} in this set's bytes, otherwise stop; 1004 in every case.
    int fromUTF16(char* dst, int dstBytes, const unsigned short* src, int srcUnits,
                  ULibError* err) override;

private:
    unsigned short m_aToUnicode[256];
    unsigned char** m_paFromUnicode = nullptr;
    unsigned char m_acSubst[4] = {0, 0, 0, 0};
    int m_nSubstLen = 0;
    const char* m_pszName;
};

} // namespace qzunicode
} // namespace qzlib
} // namespace qzs

#endif // QZUNICODE_DETAIL_CSCONVERTERSBCS_H
