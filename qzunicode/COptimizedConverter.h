//===- qzunicode/COptimizedConverter.h - Optimised pair converters -*- C++ -*-===//
//
// The entry to the one-pass converters for pairs of sets, which ULIB_CStoCS
// tries before the two ICU conversions through UTF-16. No pair is served yet:
// getConverter answers null and every conversion takes the ICU path.
//
//===----------------------------------------------------------------------===//
#ifndef QZUNICODE_COPTIMIZEDCONVERTER_H
#define QZUNICODE_COPTIMIZEDCONVERTER_H

#include "qzstd/Export.h"

#include "qzunicode/ULibTypes.h"
#include "qzunicode/CharSetTable.h"

namespace qzs {
namespace qzlib {
namespace qzunicode {

/// A converter from one set straight to another. Instances are cached per
/// thread and owned by that cache.
class QZ_API COptimizedConverter {
public:
    virtual ~COptimizedConverter() = default;
    /// The whole-buffer conversion. Result: bytes written.
    virtual int convert(char* dst, int dstBytes, int maxChars, const char* src, int srcBytes,
                        bool substitute, ULibError* err, ULibBadCharDetail* detail) const = 0;
    /// Maps sourceChar (the source character's bytes, most significant first)
    /// to targetChar in this thread's converter. Result: 0 or a ULibError.
    virtual int charMapOverride(unsigned long sourceChar, unsigned long targetChar) const = 0;

    /// The thread's converter for the pair, or null when none serves it.
    static const COptimizedConverter* getConverter(ULibCharSet source, ULibCharSet target);
    /// Makes the thread's cached converters take up its substitution string.
    static void updateSubstString();
};

} // namespace qzunicode
} // namespace qzlib
} // namespace qzs

#endif // QZUNICODE_COPTIMIZEDCONVERTER_H
