//===- qzmsg/detail/CatalogueCheck.h - A compiled catalogue, checked whole -*- C++ -*-===//
//
// ICU reads a compiled bundle by trusting its offsets, and is given the
// catalogue's bytes without their length. So the factory checks the bytes
// first: every offset of the package and of each bundle in it must stay
// inside the data. Not installed.
//
//===----------------------------------------------------------------------===//
#ifndef QZMSG_DETAIL_CATALOGUECHECK_H
#define QZMSG_DETAIL_CATALOGUECHECK_H

#include <cstddef>

namespace qzs {
namespace qzlib {
namespace detail {

/// Whether `data` is a compiled bundle ("ResB", format 2 or 3, in this
/// machine's byte order, without a pool bundle) or a common data package
/// ("CmnD") whose bundles are, with every table, array, string and key
/// inside its bounds. Anything else, aliases included, is refused.
bool checkCatalogueBytes(const void* data, std::size_t size);

} // namespace detail
} // namespace qzlib
} // namespace qzs

#endif // QZMSG_DETAIL_CATALOGUECHECK_H
