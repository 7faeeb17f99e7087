//===- tests/qzunicode/RoundTripTest.cpp - Every set there and back -------===//
//
// For each row of the Unicode, single-byte and multi-byte blocks that ICU can
// open, a text of that set's own repertoire goes from the set's bytes to a
// pivot and back through ULIB_CStoCS, and must come back byte for byte. The
// UTF-16 pivot takes the one-step converter paths; the UTF-8 pivot takes the
// two-step path through a UTF-16 buffer of the library's own sizing.
//
//===----------------------------------------------------------------------===//
#include "qzunicode/CharSetTable.h"
#include "qzunicode/ULib.h"

#include <gtest/gtest.h>

#include <unicode/ucnv.h>
#include <unicode/uniset.h>
#include <unicode/unistr.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

using namespace qzs::qzlib::qzunicode;

namespace {

struct ConverterCloser {
    void operator()(UConverter* c) const { ucnv_close(c); }
};
using Converter = std::unique_ptr<UConverter, ConverterCloser>;

// The name ICU opens for a row. Sets 1 and 4 are native order with no byte
// order mark, which ICU's plain "UTF-16" and "UTF-32" are not.
const char* icuName(std::int32_t set, const char* rowName) {
    if (set == 1)
        return U_IS_BIG_ENDIAN ? "UTF-16BE" : "UTF-16LE";
    if (set == 4)
        return U_IS_BIG_ENDIAN ? "UTF-32BE" : "UTF-32LE";
    return rowName;
}

// All of a small repertoire. Of a large one, a spread over all of it plus
// runs of neighbours, since real text stays within a script and the stateful
// sets (windows, deltas, shifts) behave differently on runs than on jumps.
icu::UnicodeString sampleText(const icu::UnicodeSet& set) {
    constexpr std::int32_t kAll = 512, kSpread = 512, kRuns = 8, kRunLength = 48;
    const std::int32_t size = set.size();
    icu::UnicodeString text;
    if (size <= kAll) {
        for (std::int32_t i = 0; i < size; ++i)
            text.append(set.charAt(i));
        return text;
    }
    for (std::int32_t i = 0; i < kSpread; ++i)
        text.append(set.charAt(std::int32_t(std::int64_t(i) * size / kSpread)));
    for (std::int32_t r = 0; r < kRuns; ++r) {
        const std::int32_t start = std::int32_t(std::int64_t(r) * (size - kRunLength) / kRuns);
        for (std::int32_t i = start; i < start + kRunLength; ++i)
            text.append(set.charAt(i));
    }
    return text;
}

std::string encode(UConverter* cnv, const icu::UnicodeString& text) {
    UErrorCode status = U_ZERO_ERROR;
    const int32_t n = ucnv_fromUChars(cnv, nullptr, 0, text.getBuffer(), text.length(), &status);
    std::string out(n, '\0');
    status = U_ZERO_ERROR;
    ucnv_fromUChars(cnv, out.data(), n, text.getBuffer(), text.length(), &status);
    return U_SUCCESS(status) ? out : std::string();
}

std::string mismatch(const std::string& want, const std::string& got) {
    std::size_t i = 0;
    while (i < want.size() && i < got.size() && want[i] == got[i])
        ++i;
    return std::to_string(got.size()) + " of " + std::to_string(want.size()) +
           " bytes, first difference at " + std::to_string(i);
}

// Converts `from` (set `source`) into exactly `want.size()` bytes of set
// `target`; empty when the result is as wanted, otherwise what went wrong.
std::string convertExpecting(std::int32_t target, std::int32_t source, const std::string& from,
                             const std::string& want) {
    std::string got(want.size(), '\0');
    ULibError err = ULIB_ERR_UNKNOWN;
    const int n =
        ULIB_CStoCS(ULibCharSet(target), got.data(), int(got.size()), 0, ULibCharSet(source),
                    from.data(), int(from.size()), false, false, &err, nullptr);
    got.resize(n < 0 ? 0 : n);
    if (err != ULIB_OK)
        return "error " + std::to_string(err) + ", " + mismatch(want, got);
    return got == want ? std::string() : mismatch(want, got);
}

// Scenario: every set ICU opens takes a text of its own repertoire to UTF-16
// and to UTF-8 and back unchanged, and ULIB_isSupported agrees that it opens.
TEST(RoundTripTest, EverySetICUOpensComesBackByteForByte) {
    std::vector<std::string> failures;
    int tested = 0;
    for (int b = 0; b < 3; ++b) {
        const ULibCharSetBlock& block = CharSetTable::block(b);
        for (std::int32_t row = 0; row < block.nRows; ++row) {
            const std::int32_t set = block.nFirst + row;
            const char* name = block.pRows[row].pszConverterName;
            const std::string label = std::to_string(set) + " " + name + ": ";
            UErrorCode status = U_ZERO_ERROR;
            Converter cnv(ucnv_open(icuName(set, name), &status));
            if (U_FAILURE(status))
                continue;
            if (!ULIB_isSupported(ULibCharSet(set))) {
                failures.push_back(label + "ICU opens it, ULIB_isSupported says no");
                continue;
            }
            icu::UnicodeSet repertoire;
            status = U_ZERO_ERROR;
            ucnv_getUnicodeSet(cnv.get(), repertoire.toUSet(), UCNV_ROUNDTRIP_SET, &status);
            repertoire.remove(0xD800, 0xDFFF); // lone surrogates are no text, and UTF-8 has none
            const icu::UnicodeString text = sampleText(repertoire);
            const std::string bytes = encode(cnv.get(), text);
            if (U_FAILURE(status) || bytes.empty()) {
                failures.push_back(label + "no sample text");
                continue;
            }
            ++tested;

            const std::string utf16(reinterpret_cast<const char*>(text.getBuffer()),
                                    2 * text.length());
            std::string utf8;
            text.toUTF8String(utf8);
            const struct {
                std::int32_t set;
                const std::string& bytes;
            } pivots[] = {{1, utf16}, {0, utf8}};
            for (const auto& pivot : pivots) {
                const std::string via = " via " + std::to_string(pivot.set) + ", ";
                std::string problem = convertExpecting(pivot.set, set, bytes, pivot.bytes);
                if (!problem.empty()) {
                    failures.push_back(label + "to" + via + problem);
                    continue;
                }
                problem = convertExpecting(set, pivot.set, pivot.bytes, bytes);
                if (!problem.empty())
                    failures.push_back(label + "back" + via + problem);
            }
        }
    }
    std::string list;
    for (const std::string& f : failures)
        list += "\n  " + f;
    EXPECT_TRUE(failures.empty()) << failures.size() << " failures:" << list;
    // The sets of a stock ICU: a shrinking count means sets stopped opening.
    EXPECT_GE(tested, 150);
}

} // namespace
