//===- qzunicode/ULocale.h - A locale named by a string ------------*- C++ -*-===//
//
// ULocale holds a locale as its name in a UString and asks ICU for the parts
// of it. The string's locale-aware members (case mapping, collation) and the
// time zone display names take one.
//
//===----------------------------------------------------------------------===//
#ifndef QZUNICODE_ULOCALE_H
#define QZUNICODE_ULOCALE_H

#include "qzstd/Export.h"

#include "qzunicode/UString.h"

namespace qzs {
namespace qzlib {
namespace qzunicode {

/// A locale named by a string; an empty name stands for ICU's default.
///
/// No lock: an object belongs to one thread. The getters convert the name to
/// the default set (c_str), which counts as a write on it. A getter that ICU
/// refuses answers an empty string.
class QZ_API ULocale {
public:
    ULocale() = default;
    /// Shares the name.
    ULocale(const ULocale& other) = default;
    ULocale& operator=(const ULocale& other) = default;
    /// The locale ICU maps the Windows LCID to; empty when it knows none.
    explicit ULocale(unsigned int lcid);
    /// language, country and variant joined by "_"; null or empty parts are
    /// left out, but a variant keeps its place after an empty country
    /// ("en__POSIX").
    explicit ULocale(const char* language, const char* country = nullptr,
                     const char* variant = nullptr);
    ULocale(const UString* language, const UString* country, const UString* variant);

    ULocale& assign(const ULocale& other);
    ULocale& assign(unsigned int lcid);
    ULocale& assign(const char* language, const char* country = nullptr,
                    const char* variant = nullptr);
    ULocale& assign(const UString* language, const UString* country, const UString* variant);

    UString getLanguage() const;
    UString getCountry() const;
    UString getVariant() const;
    /// ICU's canonical form of the name.
    UString getName() const;
    /// Three-letter ISO codes; empty when ICU has none.
    UString getISO3Language() const;
    UString getISO3Country() const;
    /// The Windows LCID, 0 when ICU knows none.
    unsigned int getWinLCID() const;

private:
    UString m_oName;
};

} // namespace qzunicode
} // namespace qzlib
} // namespace qzs

#endif // QZUNICODE_ULOCALE_H
