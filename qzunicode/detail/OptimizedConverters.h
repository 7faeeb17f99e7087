//===- qzunicode/detail/OptimizedConverters.h - The pair converters -*- C++ -*-===//
//
// The families of optimised converter, by the kind of source: UTF, single
// byte, multi-byte (double byte and EUC), and their classes by the kind of
// target. A target's character is either one byte (single-byte targets) or
// the 8-byte image of up to 7 bytes in output order (every other target: a
// multi-byte set, UTF-8, UTF-16 and UTF-32 in either order, and EBCDIC
// stateful sets, whose values are one byte or a double byte pair and whose
// loop writes the shifts), so each source kind has two classes, and the
// target names of the matrix are their aliases.
//
//===----------------------------------------------------------------------===//
#ifndef QZUNICODE_DETAIL_OPTIMIZEDCONVERTERS_H
#define QZUNICODE_DETAIL_OPTIMIZEDCONVERTERS_H

#include "qzunicode/COptimizedConverter.h"
#include "qzunicode/detail/LookupTable.h"

#include "qzstd/SparseArray.h"

namespace qzs {
namespace qzlib {
namespace qzunicode {

class CSConverter;

/// A target character as its 8-byte MBCSCvtInfo image: the low byte is the
/// length, the next seven the bytes in output order. 0 is no mapping.
using CvtImage = unsigned long;

/// Reads one whole, well-formed character of a UTF source. Result false for
/// anything else (malformed, a surrogate out of its pair, cut by the end):
/// the converter then asks ICU what the bytes are.
class utfReader {
public:
    explicit utfReader(bool flag) : m_bFlag(flag) {}
    virtual ~utfReader() = default;
    virtual bool getNextUTFChar(const unsigned char* p, int bytesLeft, unsigned int& codePoint,
                                int& consumed) const = 0;

protected:
    bool m_bFlag;
};

/// UTF-8, strictly: no overlong forms, no surrogates, nothing above
/// U+10FFFF, as ICU reads it. m_bFlag is unused (CESU-8 is not served).
class utf8Reader final : public utfReader {
public:
    utf8Reader() : utfReader(false) {}
    bool getNextUTFChar(const unsigned char* p, int bytesLeft, unsigned int& codePoint,
                        int& consumed) const override;
};

/// UTF-16; m_bFlag set: little-endian (set 1), else big-endian (set 2).
class utf16Reader final : public utfReader {
public:
    explicit utf16Reader(bool littleEndian) : utfReader(littleEndian) {}
    bool getNextUTFChar(const unsigned char* p, int bytesLeft, unsigned int& codePoint,
                        int& consumed) const override;
};

/// UTF-32; m_bFlag set: little-endian (set 4), else big-endian. Strict as
/// the others: a surrogate or a value above U+10FFFF is false. No set
/// reaches it through getConverter (a UTF-32 source goes through ICU); it is
/// here for callers that read UTF-32 character by character.
class utf32Reader final : public utfReader {
public:
    explicit utf32Reader(bool littleEndian) : utfReader(littleEndian) {}
    bool getNextUTFChar(const unsigned char* p, int bytesLeft, unsigned int& codePoint,
                        int& consumed) const override;
};

/// Sources UTF-8 (0), UTF-16 (1, 2). Overrides live apart from the table,
/// keyed by unit, or by (high << 16) + low for a character beyond the BMP.
class CUTFOptimizedConverter : public COptimizedConverter {
public:
    ~CUTFOptimizedConverter() override;

    /// A UTF-8 or UTF-16 source; null for any other source or target.
    static COptimizedConverter* getConverter(ULibCharSet source, CSConverter& sourceConverter,
                                             ULibCharSet target, CSConverter& targetConverter,
                                             bool fallbackSource, bool fallbackTarget);

protected:
    CUTFOptimizedConverter(ULibCharSet source, ULibCharSet target, utfReader* reader);
    int setOverride(unsigned long sourceChar, unsigned long targetChar, bool oneByte) const;
    std::size_t overrideBytes() const;

    utfReader* m_poReader;
    mutable SparseArray<MBCSCvtInfo, unsigned long>* m_poOverrides = nullptr;
};

/// V is unsigned char for a single-byte target, CvtImage otherwise.
template <typename V> class CUTF2Converter final : public CUTFOptimizedConverter {
public:
    /// Takes the table; nul is the value of the character 0.
    CUTF2Converter(ULibCharSet source, ULibCharSet target, utfReader* reader, LookupTable<V>* table,
                   V nul, int supplementaryForm);
    ~CUTF2Converter() override;
    using COptimizedConverter::convert;
    int convert(char** dst, const char* dstEnd, int maxChars, const char** src, const char* srcEnd,
                bool substitute, bool flush, ULibError* err,
                ULibBadCharDetail* detail) const override;
    int charMapOverride(unsigned long sourceChar, unsigned long targetChar) const override;
    std::size_t memoryBytes() const override;

private:
    template <typename Reader>
    int run(const Reader& reader, char** dst, const char* dstEnd, int maxChars, const char** src,
            const char* srcEnd, bool substitute, bool flush, ULibError* err,
            ULibBadCharDetail* detail) const;

    LookupTable<V>* m_poTable;
    V m_vNul;
    /// The table's values for U+0000 to U+007F, read with one load.
    V m_aAscii[0x80];
    /// A single-byte target's values for U+0000 to U+00FF, for the wide loop
    /// over UTF-8 (unused for other targets).
    unsigned char m_aLatin[0x100];
    /// For a UTF-16 source into a target of table values, with the wide
    /// loops: every unit's one- or two-byte code (see simd::utf16Double);
    /// else null.
    unsigned short* m_pFlat = nullptr;
    void makeFlat();
    /// The target writes U+0001 to U+007F as those bytes (so runs of ASCII
    /// UTF-8 are copied); false once an override touches them.
    mutable bool m_bAsciiSame;
    /// For a Unicode target (UTF-8, UTF-16, UTF-32), its form: every
    /// character is then computed and the table is empty. 0 for any other
    /// target, whose characters beyond the BMP go through ICU.
    int m_nSupplementaryForm;
};

/// Single-byte sources.
class CSBCSOptimizedConverter : public COptimizedConverter {
public:
    static COptimizedConverter* getConverter(ULibCharSet source, CSConverter& sourceConverter,
                                             ULibCharSet target, CSConverter& targetConverter,
                                             bool fallbackSource, bool fallbackTarget);

protected:
    using COptimizedConverter::COptimizedConverter;
};

template <typename V> class CSBCS2Converter final : public CSBCSOptimizedConverter {
public:
    /// Copies the 256 values.
    CSBCS2Converter(ULibCharSet source, ULibCharSet target, const V* table);
    using COptimizedConverter::convert;
    int convert(char** dst, const char* dstEnd, int maxChars, const char** src, const char* srcEnd,
                bool substitute, bool flush, ULibError* err,
                ULibBadCharDetail* detail) const override;
    int charMapOverride(unsigned long sourceChar, unsigned long targetChar) const override;
    std::size_t memoryBytes() const override { return sizeof(*this); }

private:
    mutable V m_aTable[256];
    /// An image table as planes for the wide loop: each byte's first and
    /// second target byte, and its length when that is 1 or 2 (else 0).
    mutable unsigned char m_aFirst[256], m_aSecond[256], m_aLength[256];
    void setPlanes(int b) const;
    /// Bytes 1 to 127 come out unchanged (runs of them are copied); false
    /// once an override touches them.
    mutable bool m_bAsciiSame;
    /// Every byte 1 to 255 maps: a single-byte target needs no test.
    bool m_bAllMapped;
};

/// Multi-byte sources of three layouts: double byte (a lead byte map from
/// ICU decides one or two bytes), EUC-JP (SS2 and SS3) and EUC-TW (SS2 with
/// 16 planes).
class CMBCSOptimizedConverter : public COptimizedConverter {
public:
    enum Layout { DBCS, EUCJP, EUCTW };
    static COptimizedConverter* getConverter(ULibCharSet source, CSConverter& sourceConverter,
                                             ULibCharSet target, CSConverter& targetConverter,
                                             bool fallbackSource, bool fallbackTarget);

protected:
    using COptimizedConverter::COptimizedConverter;
    static constexpr unsigned char m_ss2 = 0x8E;
    static constexpr unsigned char m_ss3 = 0x8F;
};

/// m_oMain holds the one-byte codes (and EUC-JP's SS2 codes at their second
/// byte) and the two-byte codes; m_apExtra the EUC-JP SS3 codes (entry 0) or
/// the EUC-TW planes (entry = plane), each made when first needed.
template <int L, typename V> class CMBCS2Converter final : public CMBCSOptimizedConverter {
public:
    CMBCS2Converter(ULibCharSet source, ULibCharSet target, const unsigned char* leadMap);
    ~CMBCS2Converter() override;
    using COptimizedConverter::convert;
    int convert(char** dst, const char* dstEnd, int maxChars, const char** src, const char* srcEnd,
                bool substitute, bool flush, ULibError* err,
                ULibBadCharDetail* detail) const override;
    int charMapOverride(unsigned long sourceChar, unsigned long targetChar) const override;
    std::size_t memoryBytes() const override;

    /// The table for a code read at p (see read); made when create is set.
    LookupTable<V>* tableFor(int extra, bool create) const;
    /// Reads one character's code at p. extra: -1 main table, else the index
    /// in m_apExtra. Result false when the bytes there are no whole character
    /// of the layout.
    bool read(const unsigned char* p, int left, int& extra, unsigned int& code,
              int& consumed) const;

    V m_vNul;
    /// Copies the one-byte codes' values out of the main table, once it is
    /// filled.
    void setSingle() const;

private:
    unsigned char m_acLead[256];
    /// The main table's one-byte codes, read with one load.
    mutable V m_aSingle[256] = {};
    mutable LookupTable<V> m_oMain;
    mutable LookupTable<V>* m_apExtra[16] = {};
};

/// EBCDIC stateful sources: single bytes, and double byte pairs between the
/// shifts 0x0E and 0x0F. Kept on purpose: the shifts keep their names the
/// wrong way round, m_cSI (0x0E) opening a double byte run and m_cSO (0x0F)
/// closing it, as the code that reads these sets has always called them.
class CEBCDICSFOptimizedConverter : public COptimizedConverter {
public:
    static COptimizedConverter* getConverter(ULibCharSet source, CSConverter& sourceConverter,
                                             ULibCharSet target, CSConverter& targetConverter,
                                             bool fallbackSource, bool fallbackTarget);
    static constexpr unsigned char m_cSO = 0x0F;
    static constexpr unsigned char m_cSI = 0x0E;

protected:
    using COptimizedConverter::COptimizedConverter;
};

/// The source's state (in a double byte run or not) is
/// sourceInDoubleByte(), kept between cursor calls like a target's.
template <typename V> class CEBCDICSF2Converter final : public CEBCDICSFOptimizedConverter {
public:
    CEBCDICSF2Converter(ULibCharSet source, ULibCharSet target);
    using COptimizedConverter::convert;
    int convert(char** dst, const char* dstEnd, int maxChars, const char** src, const char* srcEnd,
                bool substitute, bool flush, ULibError* err,
                ULibBadCharDetail* detail) const override;
    int charMapOverride(unsigned long sourceChar, unsigned long targetChar) const override;
    std::size_t memoryBytes() const override;

    mutable V m_aSingle[256];
    mutable LookupTable<V> m_oDouble;
};

// The names of the matrix.
using CUTF2SBCSConverter = CUTF2Converter<unsigned char>;
using CUTF2MBCSConverter = CUTF2Converter<CvtImage>;
using CUTF2UTF16Converter = CUTF2Converter<CvtImage>;
using CUTF2UTF32Converter = CUTF2Converter<CvtImage>;
using CUTF2EBCDICSFConverter = CUTF2Converter<CvtImage>;
using CSBCS2SBCSConverter = CSBCS2Converter<unsigned char>;
using CSBCS2MBCSConverter = CSBCS2Converter<CvtImage>;
using CSBCS2UTF16Converter = CSBCS2Converter<CvtImage>;
using CSBCS2UTF32Converter = CSBCS2Converter<CvtImage>;
using CSBCS2EBCDICSFConverter = CSBCS2Converter<CvtImage>;
using CDBCS2SBCSConverter = CMBCS2Converter<CMBCSOptimizedConverter::DBCS, unsigned char>;
using CDBCS2MBCSConverter = CMBCS2Converter<CMBCSOptimizedConverter::DBCS, CvtImage>;
using CDBCS2UTF16Converter = CMBCS2Converter<CMBCSOptimizedConverter::DBCS, CvtImage>;
using CDBCS2UTF32Converter = CMBCS2Converter<CMBCSOptimizedConverter::DBCS, CvtImage>;
using CDBCS2EBCDICSFConverter = CMBCS2Converter<CMBCSOptimizedConverter::DBCS, CvtImage>;
using CEUCJP2SBCSConverter = CMBCS2Converter<CMBCSOptimizedConverter::EUCJP, unsigned char>;
using CEUCJP2MBCSConverter = CMBCS2Converter<CMBCSOptimizedConverter::EUCJP, CvtImage>;
using CEUCJP2UTF16Converter = CMBCS2Converter<CMBCSOptimizedConverter::EUCJP, CvtImage>;
using CEUCJP2UTF32Converter = CMBCS2Converter<CMBCSOptimizedConverter::EUCJP, CvtImage>;
using CEUCJP2EBCDICSFConverter = CMBCS2Converter<CMBCSOptimizedConverter::EUCJP, CvtImage>;
using CEUCTW2SBCSConverter = CMBCS2Converter<CMBCSOptimizedConverter::EUCTW, unsigned char>;
using CEUCTW2MBCSConverter = CMBCS2Converter<CMBCSOptimizedConverter::EUCTW, CvtImage>;
using CEUCTW2UTF16Converter = CMBCS2Converter<CMBCSOptimizedConverter::EUCTW, CvtImage>;
using CEUCTW2UTF32Converter = CMBCS2Converter<CMBCSOptimizedConverter::EUCTW, CvtImage>;
using CEUCTW2EBCDICSFConverter = CMBCS2Converter<CMBCSOptimizedConverter::EUCTW, CvtImage>;
using CEBCDICSF2SBCSConverter = CEBCDICSF2Converter<unsigned char>;
using CEBCDICSF2MBCSConverter = CEBCDICSF2Converter<CvtImage>;
using CEBCDICSF2UTF16Converter = CEBCDICSF2Converter<CvtImage>;
using CEBCDICSF2UTF32Converter = CEBCDICSF2Converter<CvtImage>;
using CEBCDICSF2EBCDICSFConverter = CEBCDICSF2Converter<CvtImage>;

} // namespace qzunicode
} // namespace qzlib
} // namespace qzs

#endif // QZUNICODE_DETAIL_OPTIMIZEDCONVERTERS_H
