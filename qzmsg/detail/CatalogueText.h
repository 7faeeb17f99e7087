//===- qzmsg/detail/CatalogueText.h - Catalogue text in a character set -*- C++ -*-===//
//
// The one conversion every text of the message layer takes on its way out
// (catalogue strings, formatted messages). Not installed.
//
//===----------------------------------------------------------------------===//
#ifndef QZMSG_DETAIL_CATALOGUETEXT_H
#define QZMSG_DETAIL_CATALOGUETEXT_H

#include "qzunicode/CharSetTable.h"

#include <string>

#include <unicode/unistr.h>

namespace qzs {
namespace qzlib {
namespace detail {

/// `text` in `cs` by one ICU conversion; ICU's own default converter serves
/// the default-set value. A failed conversion gives "".
std::string catalogueText(const icu::UnicodeString& text, qzunicode::ULibCharSet cs);

} // namespace detail
} // namespace qzlib
} // namespace qzs

#endif // QZMSG_DETAIL_CATALOGUETEXT_H
