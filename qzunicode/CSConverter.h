//===- qzunicode/CSConverter.h - Converter front end -----------*- C++ -*-===//
//
// CSConverter picks the implementation for a character set: ICU for every set
// ICU can open, and the thread's own ISO-8859-1 table converter when ICU cannot
// open it. It also keeps the per-thread conversion settings (behaviour on a
// bad character, fallback mappings, substitution string) and the process
// default set. The set lookups themselves live in CharSetTable.
//
//===----------------------------------------------------------------------===//
#ifndef QZUNICODE_CSCONVERTER_H
#define QZUNICODE_CSCONVERTER_H

#include "qzstd/Export.h"

#include "qzunicode/ULibTypes.h"
#include "qzunicode/CharSetTable.h"

namespace qzs {
namespace qzlib {
namespace qzunicode {

class CSConverterImpl;
class CSConverterSBCS;

/// A converter for one set, made for one conversion or a short run of them.
/// A number with ULIB_CS_ESCAPE_FLAG gets the escape reader over the plain
/// set's converter.
///
/// Ownership: owns its implementation, except the thread's last-resort
/// converter (oDefConverter), which lives as long as the thread.
/// Thread safety: an object belongs to the thread that made it.
///
/// Kept on purpose: a set number in no block has no converter name, so ICU is
/// asked for its default converter and the object works as that. Nothing here
/// reports an unknown set; isSupported of such a number is true.
class QZ_API CSConverter {
public:
    /// A converter with the thread's behaviour and fallback flag.
    explicit CSConverter(ULibCharSet cs);
    CSConverter(ULibCharSet cs, ULibCnvErrBehavior behaviour, bool fallback);
    virtual ~CSConverter();
    CSConverter(const CSConverter&) = delete;
    CSConverter& operator=(const CSConverter&) = delete;

    CSConverterImpl* impl() const { return m_poImpl; }
    /// True when ICU could not open the set and the thread's ISO-8859-1
    /// converter stands in.
    bool isDefaultConverter() const;

    /// The implementation's answers (see detail/CSConverterImpl.h).
    CSConverterType getType() const;
    bool getLeadByteMap(unsigned char* map) const;
    const char* getCharSetName() const;
    int getNumBytes(const char* s) const;
    int toUTF16(unsigned short* dst, int dstUnits, const char* src, int srcBytes, ULibError* err);
    int fromUTF16(char* dst, int dstBytes, const unsigned short* src, int srcUnits, ULibError* err);

    /// The set lookups, by number and by name, answered from the character
    /// set table (CharSetTable has the rules: rows, block order, what
    /// ULIB_CS_DEFAULT and a number in no block give). The top bit of a set
    /// number is masked off.
    static const char* toConverterName(ULibCharSet cs) { return CharSetTable::toConverterName(cs); }
    static const char* toMIMEName(ULibCharSet cs) { return CharSetTable::toMIMEName(cs); }
    static std::int32_t toCCSID(ULibCharSet cs) { return CharSetTable::toCCSID(cs); }
    static bool isUSASCIICompatible(ULibCharSet cs) { return CharSetTable::isUSASCIICompatible(cs); }
    static bool isEBCDIC(ULibCharSet cs) { return CharSetTable::isEBCDIC(cs); }
    static int getMinCharSize(ULibCharSet cs) { return CharSetTable::getMinCharSize(cs); }
    static int getMaxCharSize(ULibCharSet cs) { return CharSetTable::getMaxCharSize(cs); }
    static int getNullCharSize(ULibCharSet cs) { return CharSetTable::getNullCharSize(cs); }
    static ULibCharSet toCharSet(const char* name) { return CharSetTable::toCharSet(name); }
    static ULibCharSet fromMIMEName(const char* name) { return CharSetTable::fromMIMEName(name); }
    static ULibCharSet fromCCSID(std::int32_t ccsid) { return CharSetTable::fromCCSID(ccsid); }

    /// True unless ICU cannot open cs with the thread's settings.
    static bool isSupported(ULibCharSet cs);
    /// Units up to a zero unit, characters up to a zero 32-bit value. Null: 0.
    /// The pointer may be unaligned.
    static int getNumUTF16Units(const unsigned short* p);
    static int getNumUTF32Chars(const unsigned int* p);

    /// Sets the thread's substitution string: at most 4 units; 0 units leaves
    /// an empty string. Null p or n above 4: ULIB_ERR_ILLEGAL_ARGUMENT and
    /// nothing changes.
    static ULibError setSubstString(const unsigned short* p, int n);
    /// Copies the thread's substitution string into buf and sets n to its
    /// length. Null buf or n below the length: ULIB_ERR_ILLEGAL_ARGUMENT.
    static ULibError getSubstString(unsigned short* buf, int& n);

    /// Makes cs ICU's default converter (when it has a converter name) and
    /// answers the set a converter for ULIB_CS_DEFAULT now reports, which may
    /// differ from cs when ICU normalises the name. Does not store it.
    static ULibCharSet setDefaultCharSet(ULibCharSet cs);

    /// The thread's settings, each made on first use with its default:
    /// behaviour ULIB_CNV_STOP, fallback false, substitution string U+001A.
    static ULibCnvErrBehavior& converterErrorBehavior();
    static bool& fallback();
    /// The thread's substitution string, 4 units of room, and its length.
    static unsigned short* goSubstString();
    static int& nSubstLen();
    /// The thread's ISO-8859-1 table converter, the last resort when ICU
    /// cannot open a set. Lives until the thread ends.
    static CSConverterSBCS& oDefConverter();

private:
    CSConverterImpl* m_poImpl;
};

} // namespace qzunicode
} // namespace qzlib
} // namespace qzs

#endif // QZUNICODE_CSCONVERTER_H
