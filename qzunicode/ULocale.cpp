//===- qzunicode/ULocale.cpp - A locale named by a string -----------------===//
//
// Every getter hands the name to one of ICU's uloc_ functions, first with a
// buffer on the stack and then, when ICU says the answer is longer, with one
// of the length it asked for.
//
//===----------------------------------------------------------------------===//
#include "qzunicode/ULocale.h"

#include <unicode/uloc.h>

#include <string>
#include <vector>

namespace qzs {
namespace qzlib {
namespace qzunicode {

namespace {

using LocaleGetter = int32_t (*)(const char*, char*, int32_t, UErrorCode*);

UString askICU(const UString& name, LocaleGetter getter) {
    if (name.empty())
        return UString();
    const char* id = name.c_str(ULIB_CS_DEFAULT);
    char small[128];
    UErrorCode status = U_ZERO_ERROR;
    int32_t n = getter(id, small, sizeof small, &status);
    if (status == U_BUFFER_OVERFLOW_ERROR || status == U_STRING_NOT_TERMINATED_WARNING) {
        if (n < 0)
            return UString();
        std::vector<char> big(static_cast<std::size_t>(n) + 1);
        status = U_ZERO_ERROR;
        n = getter(id, big.data(), n + 1, &status);
        if (U_FAILURE(status) || n < 0)
            return UString();
        return UString(big.data(), static_cast<std::size_t>(n), ULIB_CS_DEFAULT);
    }
    if (U_FAILURE(status) || n <= 0)
        return UString();
    return UString(small, static_cast<std::size_t>(n), ULIB_CS_DEFAULT);
}

UString joinParts(const std::string& language, const std::string& country,
                  const std::string& variant) {
    std::string name = language;
    if (!country.empty() || !variant.empty())
        name.append("_").append(country);
    if (!variant.empty())
        name.append("_").append(variant);
    return UString(name, ULIB_CS_DEFAULT);
}

std::string narrow(const char* s) {
    return s != nullptr ? std::string(s) : std::string();
}

std::string narrow(const UString* s) {
    return s != nullptr ? std::string(s->c_str(ULIB_CS_DEFAULT)) : std::string();
}

} // namespace

ULocale::ULocale(unsigned int lcid) {
    assign(lcid);
}

ULocale::ULocale(const char* language, const char* country, const char* variant) {
    assign(language, country, variant);
}

ULocale::ULocale(const UString* language, const UString* country, const UString* variant) {
    assign(language, country, variant);
}

ULocale& ULocale::assign(const ULocale& other) {
    m_oName = other.m_oName;
    return *this;
}

ULocale& ULocale::assign(unsigned int lcid) {
    m_oName.clear();
    char small[128];
    UErrorCode status = U_ZERO_ERROR;
    int32_t n = uloc_getLocaleForLCID(lcid, small, sizeof small, &status);
    if (status == U_BUFFER_OVERFLOW_ERROR || status == U_STRING_NOT_TERMINATED_WARNING) {
        if (n <= 0)
            return *this;
        std::vector<char> big(static_cast<std::size_t>(n) + 1);
        status = U_ZERO_ERROR;
        n = uloc_getLocaleForLCID(lcid, big.data(), n + 1, &status);
        if (U_SUCCESS(status) && n > 0)
            m_oName = UString(big.data(), static_cast<std::size_t>(n), ULIB_CS_DEFAULT);
        return *this;
    }
    if (U_SUCCESS(status) && n > 0)
        m_oName = UString(small, static_cast<std::size_t>(n), ULIB_CS_DEFAULT);
    return *this;
}

ULocale& ULocale::assign(const char* language, const char* country, const char* variant) {
    m_oName = joinParts(narrow(language), narrow(country), narrow(variant));
    return *this;
}

ULocale& ULocale::assign(const UString* language, const UString* country, const UString* variant) {
    m_oName = joinParts(narrow(language), narrow(country), narrow(variant));
    return *this;
}

UString ULocale::getLanguage() const {
    return askICU(m_oName, uloc_getLanguage);
}

UString ULocale::getCountry() const {
    return askICU(m_oName, uloc_getCountry);
}

UString ULocale::getVariant() const {
    return askICU(m_oName, uloc_getVariant);
}

UString ULocale::getName() const {
    return askICU(m_oName, uloc_getName);
}

// uloc_getISO3Language and uloc_getISO3Country answer pointers into ICU's
// static tables, valid for the life of the process, so the UString copy is
// only for the caller's convenience.
UString ULocale::getISO3Language() const {
    if (m_oName.empty())
        return UString();
    return UString(uloc_getISO3Language(m_oName.c_str(ULIB_CS_DEFAULT)), ULIB_CS_DEFAULT);
}

UString ULocale::getISO3Country() const {
    if (m_oName.empty())
        return UString();
    return UString(uloc_getISO3Country(m_oName.c_str(ULIB_CS_DEFAULT)), ULIB_CS_DEFAULT);
}

unsigned int ULocale::getWinLCID() const {
    return m_oName.empty() ? 0u : uloc_getLCID(m_oName.c_str(ULIB_CS_DEFAULT));
}

} // namespace qzunicode
} // namespace qzlib
} // namespace qzs
