//===- tests/qzmsg/CatalogueTest.cpp - Every raised number is catalogued --===//
//
// Scans the library's sources for the message numbers they raise and looks
// each up in the catalogue the library loads, so that a fault added without
// its text fails here rather than ending a host process.
//
//===----------------------------------------------------------------------===//
#include "qzmsg/CMessageFactory.h"
#include "qzmsg/detail/CatalogueCheck.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <set>
#include <sstream>
#include <string>

#include <unicode/resbund.h>

namespace fs = std::filesystem;

namespace {

// The top-level arguments of the call whose "(" is at `open`.
std::vector<std::string> argumentsAt(const std::string& text, size_t open) {
    std::vector<std::string> args(1);
    int depth = 0;
    char quote = 0;
    for (size_t i = open; i < text.size(); ++i) {
        const char c = text[i];
        if (quote) {
            if (c == '\\')
                ++i;
            else if (c == quote)
                quote = 0;
            if (depth == 1)
                args.back() += c;
            continue;
        }
        if (c == '"' || c == '\'')
            quote = c;
        if (c == '(' && ++depth == 1)
            continue;
        if (c == ')' && --depth == 0)
            break;
        if (c == ',' && depth == 1) {
            args.emplace_back();
            continue;
        }
        if (depth >= 1)
            args.back() += c;
    }
    return args;
}

std::set<unsigned long> raisedNumbers(const fs::path& root) {
    // The raising calls, with the position of their number argument.
    static const std::regex call(
        R"(\b(_MSG_\w+|_TSTR_\w+|raiseMessage|raiseFault|storeFault|raiseThreadFault|textOf|fault|reportFault|_TSTR)\s*\()");
    static const std::regex constant(R"(kMsg\w*\s*=\s*(\d+))");
    static const std::regex number(R"(^\s*(\d{3,8})u?\s*$)");
    static const std::regex term(R"(\b(1000\d{4})u?\b)");
    std::set<unsigned long> found;
    for (const char* floor : {"qzstd", "qzunicode", "qzmsg", "qzlog", "qzsca", "qzapp", "tools"}) {
        for (const auto& entry : fs::recursive_directory_iterator(root / floor)) {
            const std::string ext = entry.path().extension();
            if (ext != ".cpp" && ext != ".h")
                continue;
            std::ifstream in(entry.path());
            std::stringstream buffer;
            buffer << in.rdbuf();
            const std::string text = buffer.str();
            for (std::sregex_iterator it(text.begin(), text.end(), call), end; it != end; ++it) {
                const auto args =
                    argumentsAt(text, static_cast<size_t>(it->position(0) + it->length(0) - 1));
                std::smatch m;
                const size_t at = (*it)[1] == "_TSTR" ? 0 : 1;
                if (args.size() > at && std::regex_match(args[at], m, number))
                    found.insert(std::stoul(m[1]));
            }
            for (std::sregex_iterator it(text.begin(), text.end(), constant), end; it != end; ++it)
                found.insert(std::stoul((*it)[1]));
            for (std::sregex_iterator it(text.begin(), text.end(), term), end; it != end; ++it)
                found.insert(std::stoul((*it)[1]));
        }
    }
    return found;
}

TEST(Catalogue, EveryRaisedNumberHasAnEntry) {
    const std::set<unsigned long> numbers = raisedNumbers(QZ_SOURCE_ROOT);
    for (unsigned long known : {542ul, 1112ul, 1525ul, 1800ul, 1425ul, 1971ul, 10000476ul})
        EXPECT_EQ(1u, numbers.count(known)) << known << " should be found by the scan";

    icu::ResourceBundle* bundle = *qzs::qzlib::CMessageFactory::GetDefaultFactory();
    ASSERT_NE(nullptr, bundle);
    for (unsigned long n : numbers) {
        UErrorCode ec = U_ZERO_ERROR;
        bundle->get(std::to_string(n).c_str(), ec);
        EXPECT_TRUE(U_SUCCESS(ec))
            << "message " << n << " is raised but not in catalogue/qzMessage.txt";
    }
}

// The check the factory makes of a catalogue file before ICU reads it (ICU
// trusts every offset, and gets the bytes without their length): the real
// catalogue passes; no prefix of it, and none of the damage the fuzzer found,
// does.
TEST(Catalogue, DamagedFilesAreRefusedBeforeICUReadsThem) {
    const fs::path dat = fs::read_symlink("/proc/self/exe").parent_path() / "qzMessage.dat";
    std::ifstream in(dat, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    ASSERT_GT(bytes.size(), 1000u) << dat;
    EXPECT_TRUE(qzs::qzlib::detail::checkCatalogueBytes(bytes.data(), bytes.size()));
    // A cut into the data is refused; the package's few bytes of padding
    // after the bundle are not read by anyone.
    for (size_t cut = 0; cut + 16 < bytes.size(); cut += 7)
        ASSERT_FALSE(qzs::qzlib::detail::checkCatalogueBytes(bytes.data(), cut))
            << "cut at " << cut;
    // The bundle inside the package, with the bits that point at a pool
    // bundle set (found by fuzzing: ICU followed them out of the data).
    const size_t bundle = bytes.find("ResB") - 12;
    std::string pooled = bytes;
    pooled[bundle + 0x20 + 4 * 6 + 1] = '\xff';
    EXPECT_FALSE(qzs::qzlib::detail::checkCatalogueBytes(pooled.data(), pooled.size()));
    const std::string other = "not a catalogue at all, only text that goes on for a while";
    EXPECT_FALSE(qzs::qzlib::detail::checkCatalogueBytes(other.data(), other.size()));
}

} // namespace
