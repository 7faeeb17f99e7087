//===- qzunicode/COptimizedConverter.cpp - Optimised pair converters ------===//
//
// No pair has a one-pass converter yet, so the thread holds no cache and the
// substitution string has nothing to refresh.
//
//===----------------------------------------------------------------------===//
#include "qzunicode/COptimizedConverter.h"

namespace qzs {
namespace qzlib {
namespace qzunicode {

const COptimizedConverter* COptimizedConverter::getConverter(ULibCharSet, ULibCharSet) {
    return nullptr;
}

void COptimizedConverter::updateSubstString() {}

} // namespace qzunicode
} // namespace qzlib
} // namespace qzs
