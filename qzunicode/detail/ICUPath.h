//===- qzunicode/detail/ICUPath.h - The conversion through ICU -*- C++ -*-===//
//
// The general path of ULIB_CStoCS, with no optimised converter: source to
// UTF-16 to target through ICU. The optimised converters send each character
// their tables do not hold through it, so that they answer as it does.
//
//===----------------------------------------------------------------------===//
#ifndef QZUNICODE_DETAIL_ICUPATH_H
#define QZUNICODE_DETAIL_ICUPATH_H

#include "qzunicode/CharSetTable.h"
#include "qzunicode/ULibTypes.h"

namespace qzs {
namespace qzlib {
namespace qzunicode {
namespace detail {

/// Converts srcBytes of source (sets already normalised: 3 is 1, 6 is 4, no
/// ULIB_CS_DEFAULT) into at most dstBytes of target through ICU, with the
/// thread's behaviour, or substitution when substitute is set. A UTF-16
/// source has an even srcBytes. Result: bytes written.
int convertThroughICU(ULibCharSet target, char* dst, int dstBytes, ULibCharSet source,
                      const char* src, int srcBytes, bool substitute, ULibError* err);

} // namespace detail
} // namespace qzunicode
} // namespace qzlib
} // namespace qzs

#endif // QZUNICODE_DETAIL_ICUPATH_H
