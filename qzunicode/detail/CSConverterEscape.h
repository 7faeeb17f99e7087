//===- qzunicode/detail/CSConverterEscape.h - Escape-reading converter -*- C++ -*-===//
//
// Serves a set number carrying ULIB_CS_ESCAPE_FLAG: converts with the plain
// set's converter, then turns the escape sequences \xHH, \ooo and \uHHHH in
// the result into the characters they stand for. Output to the set never
// carries escapes.
//
//===----------------------------------------------------------------------===//
#ifndef QZUNICODE_DETAIL_CSCONVERTERESCAPE_H
#define QZUNICODE_DETAIL_CSCONVERTERESCAPE_H

#include "qzunicode/detail/CSConverterImpl.h"
#include "qzunicode/CharSetTable.h"

#include <memory>

namespace qzs {
namespace qzlib {
namespace qzunicode {

class CSConverter;

/// Owns its inner converter for the plain set.
/// Thread safety: an object belongs to one thread.
class CSConverterEscape final : public CSConverterImpl {
public:
    /// cs without the flag; with it, the flag is dropped.
    CSConverterEscape(ULibCharSet cs, ULibCnvErrBehavior behaviour, bool fallback);
    ~CSConverterEscape() override;

    CSConverterType getType() const override;
    bool getLeadByteMap(unsigned char*) const override { return false; }
    const char* getCharSetName() const override;
    int getNumBytes(const char* s) const override;
    /// Converts, then reads escapes in the units written: \xHH (one byte of
    /// the set, either case of hex), \[0-3]oo (octal byte), \uHHHH (the unit
    /// itself). A byte that converts to nothing becomes U+FFFD with
    /// ULIB_ERR_INVALID_CHAR. Results under 4 units are not scanned; there is
    /// no escape for a backslash itself.
    ///
    /// Kept on purpose: an octal escape takes its last digit from the unit
    /// after the three it removes and leaves that unit in the text, as stored
    /// texts were written against this reading.
    int toUTF16(unsigned short* dst, int dstUnits, const char* src, int srcBytes,
                ULibError* err) override;
    /// Forwards to the inner converter.
    int fromUTF16(char* dst, int dstBytes, const unsigned short* src, int srcUnits,
                  ULibError* err) override;

private:
    std::unique_ptr<CSConverter> m_poInner;
};

} // namespace qzunicode
} // namespace qzlib
} // namespace qzs

#endif // QZUNICODE_DETAIL_CSCONVERTERESCAPE_H
