//===- qzunicode/CSConverterImpl.h - Converter interface -------*- C++ -*-===//
//
// The interface every converter implementation offers to the front end
// (CSConverter), and the small value types the conversion entry points share:
// error codes, the behaviour on a bad character and the bad-character detail.
// An implementation converts between one character set and native UTF-16.
//
//===----------------------------------------------------------------------===//
#ifndef QZUNICODE_CSCONVERTERIMPL_H
#define QZUNICODE_CSCONVERTERIMPL_H

#include <cstdint>

namespace qzs {
namespace qzlib {
namespace qzunicode {

/// Result of every conversion entry point, reported through a ULibError*
/// that may be null.
enum ULibError : std::int32_t {
    ULIB_OK = 0,
    /// No optimised converter serves the pair (character map overrides).
    ULIB_ERR_NO_CONVERTER = 1001,
    /// Null pointer, a size below the allowed range, an odd UTF-16 length, a
    /// UTF-32 length not divisible by 4, a substitution string too long.
    ULIB_ERR_ILLEGAL_ARGUMENT = 1002,
    /// The target is full; what fit, in whole characters, is in it.
    ULIB_ERR_BUFFER_OVERFLOW = 1003,
    /// A character could not be converted or is malformed. Also reported next
    /// to a full result after substituting, skipping or escaping.
    ULIB_ERR_INVALID_CHAR = 1004,
    /// Any other ICU failure.
    ULIB_ERR_UNKNOWN = 1005,
    /// The character limit was reached before the source ended.
    ULIB_ERR_MAX_CHARS = 1008,
};

/// What a converter does with a character it cannot convert.
enum ULibCnvErrBehavior : std::int32_t {
    /// ICU's callbacks stay as opened (substitute, with ICU's own string).
    ULIB_CNV_DEFAULT = 0,
    ULIB_CNV_STOP = 1,
    ULIB_CNV_SKIP = 2,
    /// Write the thread's substitution string.
    ULIB_CNV_SUBSTITUTE = 3,
    /// Write an escape sequence in the set's own form.
    ULIB_CNV_ESCAPE = 4,
};

/// Filled by the optimised converters when a conversion stops at a bad
/// character. uOffset is added to, not set: the caller zeroes it.
struct ULibBadCharDetail {
    std::uint64_t uOffset;
    std::int32_t nBytes;
    unsigned char acBytes[8];
};

/// The kind of converter behind a set; the optimised converters choose their
/// families by it.
enum CSConverterType : std::int32_t {
    CNV_TYPE_UTF8 = 0,
    CNV_TYPE_UTF16 = 1,
    CNV_TYPE_UTF32 = 2,
    CNV_TYPE_SBCS = 3,
    CNV_TYPE_MBCS = 4,
    CNV_TYPE_DBCS = 5,
    CNV_TYPE_EBCDIC_STATEFUL = 6,
    CNV_TYPE_ISO2022 = 7,
    CNV_TYPE_OTHER = 8,
};

/// A converter between one character set and UTF-16 in native byte order.
/// Instances belong to one thread. No operation throws; bad arguments give
/// ULIB_ERR_ILLEGAL_ARGUMENT and a result of 0, and no operation writes past
/// the room it is given.
class CSConverterImpl {
public:
    virtual ~CSConverterImpl() = default;

    virtual CSConverterType getType() const = 0;
    /// Fills a 256-entry map with 1 for each byte that starts a multi-byte
    /// character. False when the converter has no such map.
    virtual bool getLeadByteMap(unsigned char* map) const = 0;
    /// The converter's own name of its set; not owned by the caller.
    virtual const char* getCharSetName() const = 0;
    /// Length of s in bytes, up to a terminator of the set. Null: 0.
    virtual int getNumBytes(const char* s) const = 0;
    /// Converts srcBytes bytes (-1: measured by getNumBytes) into at most
    /// dstUnits units. Result: units written. REQUIRES: dst aligned.
    virtual int toUTF16(unsigned short* dst, int dstUnits, const char* src, int srcBytes,
                        ULibError* err) = 0;
    /// Converts srcUnits units (-1: up to a zero unit) into at most dstBytes
    /// bytes. Result: bytes written. REQUIRES: src aligned.
    virtual int fromUTF16(char* dst, int dstBytes, const unsigned short* src, int srcUnits,
                          ULibError* err) = 0;
};

} // namespace qzunicode
} // namespace qzlib
} // namespace qzs

#endif // QZUNICODE_CSCONVERTERIMPL_H
