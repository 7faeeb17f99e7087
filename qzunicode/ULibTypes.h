//===- qzunicode/ULibTypes.h - Values of the conversion calls --*- C++ -*-===//
//
// The small value types every conversion entry point shares: error codes, the
// behaviour on a bad character, the bad-character detail and the kinds of
// converter.
//
//===----------------------------------------------------------------------===//
#ifndef QZUNICODE_ULIBTYPES_H
#define QZUNICODE_ULIBTYPES_H

#include "qzstd/Export.h"

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
struct QZ_API ULibBadCharDetail {
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

} // namespace qzunicode
} // namespace qzlib
} // namespace qzs

#endif // QZUNICODE_ULIBTYPES_H
