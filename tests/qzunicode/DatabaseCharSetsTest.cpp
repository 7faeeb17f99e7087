//===- tests/qzunicode/DatabaseCharSetsTest.cpp - The database sets -------===//
//
// The database block's sets as the converter package gives them: each name
// either opens and converts as its ICU counterpart does, or is listed without
// a mapping and says so once; a damaged or missing package leaves the
// stand-in; the package is read only by a process that opens such a set.
//
//===----------------------------------------------------------------------===//
#include "FaultCollector.h"
#include "qzunicode/COptimizedConverter.h"
#include "qzunicode/CSConverter.h"
#include "qzunicode/ULib.h"
#include "qzunicode/detail/CharSetPackage.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <unicode/ucnv.h>
#include <unicode/uset.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

using namespace qzs::qzlib::qzunicode;
namespace fs = std::filesystem;

namespace {

constexpr unsigned int kFallbackMessage = 1161;
constexpr int kFirst = 10000;
constexpr int kRows = 230;

struct Row {
    std::string name;
    std::string counterpart; // "-": no mapping
};

std::vector<Row> nameTable() {
    std::ifstream in(QZ_CHARSETS_TABLE);
    std::vector<Row> rows;
    std::string line;
    while (std::getline(in, line)) {
        if (line.empty() || line[0] == '#')
            continue;
        std::istringstream fields(line);
        Row row;
        fields >> row.name >> row.counterpart;
        rows.push_back(row);
    }
    return rows;
}

std::string packageText() {
    std::ifstream in(std::string(detail::charSetPackagePath()) + ".dat", std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

std::vector<qztest::Fault> fallbackMessages(const qztest::FaultCollector& faults) {
    std::vector<qztest::Fault> out;
    for (const qztest::Fault& f : faults.faults())
        if (f.number == kFallbackMessage)
            out.push_back(f);
    return out;
}

bool packageMapped() {
    std::ifstream maps("/proc/self/maps");
    std::string text((std::istreambuf_iterator<char>(maps)), std::istreambuf_iterator<char>());
    return text.find(std::string(detail::kCharSetPackageName) + ".dat") != std::string::npos;
}

// Sends the package elsewhere for one test, and back to the search after it.
struct PackageAt {
    explicit PackageAt(const std::string& path) {
        detail::resetCharSetPackageForTest(path.c_str());
    }
    ~PackageAt() { detail::resetCharSetPackageForTest(nullptr); }
};

} // namespace

TEST(DatabaseCharSetsTest, EveryNameOpensOrIsListedWithoutMapping) {
    const std::vector<Row> rows = nameTable();
    ASSERT_EQ(static_cast<size_t>(kRows), rows.size()) << "one row per name of the block";
    qztest::FaultCollector faults;
    for (int i = 0; i < kRows; ++i) {
        const ULibCharSet cs = ULibCharSet(kFirst + i);
        const Row& row = rows[i];
        ASSERT_EQ(row.name, CharSetTable::toConverterName(cs))
            << "the name table follows the block";
        CSConverter cnv(cs);
        if (row.counterpart == "-") {
            EXPECT_TRUE(cnv.isDefaultConverter()) << row.name << " opens: give it its counterpart";
            EXPECT_FALSE(ULIB_isSupported(cs)) << row.name;
            continue;
        }
        EXPECT_FALSE(cnv.isDefaultConverter()) << row.name << " falls back to the stand-in";
        EXPECT_TRUE(ULIB_isSupported(cs)) << row.name;
        EXPECT_STREQ(row.name.c_str(), cnv.getCharSetName());
    }
    // Only the sets without a mapping said that they fall back.
    for (const qztest::Fault& f : fallbackMessages(faults)) {
        const std::string name = f.text.substr(f.text.find("set ") + 4);
        const std::string setName = name.substr(0, name.find(' '));
        const ULibCharSet cs = CharSetTable::toCharSet(setName.c_str());
        ASSERT_GE(cs, kFirst) << f.text;
        EXPECT_EQ("-", rows[cs - kFirst].counterpart) << f.text;
    }
}

// The counterpart's round-trip repertoire, as the counterpart writes it, must
// read to the same text through the library and write back to the same bytes.
TEST(DatabaseCharSetsTest, GeneratedSetsMatchTheirCounterparts) {
    int checked = 0;
    UErrorCode openStatus = U_ZERO_ERROR;
    UConverter* utf8cnv = ucnv_open("UTF-8", &openStatus);
    for (const Row& row : nameTable()) {
        if (row.counterpart == "-")
            continue;
        SCOPED_TRACE(row.name + " from " + row.counterpart);
        UErrorCode status = U_ZERO_ERROR;
        UConverter* model = ucnv_open(row.counterpart.c_str(), &status);
        ASSERT_TRUE(U_SUCCESS(status));
        USet* set = uset_openEmpty();
        ucnv_getUnicodeSet(model, set, UCNV_ROUNDTRIP_SET, &status);
        std::u16string text;
        for (int i = 0; i < uset_getItemCount(set); ++i) {
            UChar32 start, end;
            UChar str[16];
            int len = uset_getItem(set, i, &start, &end, str, 16, &status);
            if (len > 0)
                continue; // sequences: their code points are items of their own
            for (UChar32 c = start; c <= end; ++c) {
                UChar u[2];
                int n = 0;
                U16_APPEND_UNSAFE(u, n, c);
                text.append(reinterpret_cast<const char16_t*>(u), n);
            }
        }
        uset_close(set);
        const UChar* in = reinterpret_cast<const UChar*>(text.data());
        std::string bytes(text.size() * 4 + 8, '\0');
        bytes.resize(ucnv_fromUChars(model, &bytes[0], static_cast<int>(bytes.size()), in,
                                     static_cast<int>(text.size()), &status));
        std::u16string expected(text.size() + 8, u'\0');
        expected.resize(ucnv_toUChars(model, reinterpret_cast<UChar*>(&expected[0]),
                                      static_cast<int>(expected.size()), bytes.data(),
                                      static_cast<int>(bytes.size()), &status));
        ucnv_close(model);
        ASSERT_TRUE(U_SUCCESS(status)) << u_errorName(status);

        const ULibCharSet cs = CharSetTable::toCharSet(row.name.c_str());
        std::u16string read(expected.size() + 8, u'\0');
        ULibError err = ULIB_OK;
        read.resize(ULIB_toUTF16(cs, reinterpret_cast<unsigned short*>(&read[0]),
                                 static_cast<int>(read.size()), bytes.data(),
                                 static_cast<int>(bytes.size()), &err));
        ASSERT_EQ(ULIB_OK, err);
        ASSERT_TRUE(read == expected) << "reads differ from the counterpart's";
        std::string written(bytes.size() + 8, '\0');
        written.resize(ULIB_fromUTF16(cs, &written[0], static_cast<int>(written.size()),
                                      reinterpret_cast<const unsigned short*>(read.data()),
                                      static_cast<int>(read.size()), &err));
        ASSERT_EQ(ULIB_OK, err);
        ASSERT_TRUE(written == bytes) << "the round trip changes the bytes";

        // The same through the pair's direct converter, to UTF-8 and back.
        std::string utf8(expected.size() * 4, '\0');
        UErrorCode st = U_ZERO_ERROR;
        utf8.resize(ucnv_fromUChars(utf8cnv, &utf8[0], static_cast<int>(utf8.size()),
                                    reinterpret_cast<const UChar*>(expected.data()),
                                    static_cast<int>(expected.size()), &st));
        std::string viaUtf8(utf8.size() + 8, '\0');
        viaUtf8.resize(ULIB_CStoCS(ULibCharSet(0), &viaUtf8[0], static_cast<int>(viaUtf8.size()), 0,
                                   cs, bytes.data(), static_cast<int>(bytes.size()), false, false,
                                   &err, nullptr));
        ASSERT_EQ(ULIB_OK, err);
        ASSERT_TRUE(viaUtf8 == utf8) << "the direct reading differs from the counterpart's";
        written.assign(bytes.size() + 8, '\0');
        written.resize(ULIB_CStoCS(cs, &written[0], static_cast<int>(written.size()), 0,
                                   ULibCharSet(0), utf8.data(), static_cast<int>(utf8.size()),
                                   false, false, &err, nullptr));
        ASSERT_EQ(ULIB_OK, err);
        ASSERT_TRUE(written == bytes) << "the direct round trip changes the bytes";
        ++checked;
    }
    ucnv_close(utf8cnv);
    EXPECT_GT(checked, 0);
}

// Under ICU's own callbacks (behaviour 0) text a set cannot hold, and bytes
// that are no character, come out as the counterpart's do: the same
// substitutes, the one-byte one included, and the same byte structure.
TEST(DatabaseCharSetsTest, UnmappableTextSubstitutesAsTheCounterpartDoes) {
    const std::u16string text = u"A\u0100\u00A6\u4E00\uFFE4\u0E01\u05D0\u0627\u0416\u03A9"
                                u"\uE000\U00020021\u20AC\u00E9\u3000z";
    std::string junk;
    for (int b = 0x7E; b < 0x100; b += 3)
        junk += {static_cast<char>(b), static_cast<char>(0x100 - b / 2), 'x'};
    for (const Row& row : nameTable()) {
        if (row.counterpart == "-")
            continue;
        SCOPED_TRACE(row.name);
        UErrorCode status = U_ZERO_ERROR;
        UConverter* model = ucnv_open(row.counterpart.c_str(), &status);
        ASSERT_TRUE(U_SUCCESS(status));
        char expected[128];
        int n = ucnv_fromUChars(model, expected, sizeof expected,
                                reinterpret_cast<const UChar*>(text.data()),
                                static_cast<int>(text.size()), &status);
        UChar expectedUnits[512];
        status = U_ZERO_ERROR;
        int units = ucnv_toUChars(model, expectedUnits, 512, junk.data(),
                                  static_cast<int>(junk.size()), &status);
        ucnv_close(model);

        CSConverter cnv(CharSetTable::toCharSet(row.name.c_str()), ULIB_CNV_DEFAULT, false);
        char written[128];
        ULibError err;
        EXPECT_EQ(
            std::string(expected, n),
            std::string(written, cnv.fromUTF16(written, sizeof written,
                                               reinterpret_cast<const unsigned short*>(text.data()),
                                               static_cast<int>(text.size()), &err)));
        unsigned short read[512];
        const int got = cnv.toUTF16(read, 512, junk.data(), static_cast<int>(junk.size()), &err);
        EXPECT_TRUE(std::u16string(reinterpret_cast<const char16_t*>(expectedUnits), units) ==
                    std::u16string(reinterpret_cast<const char16_t*>(read), got))
            << "bad bytes read differently";
    }
}

// A generated set opens as the kind its counterpart is, so the optimised
// converters build a direct converter for it.
TEST(DatabaseCharSetsTest, GeneratedSetsGetDirectConverters) {
    const struct {
        const char* name;
        std::string bytes;
        std::string utf8;
    } cases[] = {
        {"we8ebcdic37", "\xC1\xC2\x81\x40\x9F", "ABa \xC2\xA4"},        // single byte, EBCDIC
        {"ja16sjis", "A\x82\xA0\x88\x9F", "A\xE3\x81\x82\xE4\xBA\x9C"}, // multi-byte
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const ULibCharSet cs = CharSetTable::toCharSet(c.name);
        ASSERT_NE(nullptr, COptimizedConverter::getConverter(cs, ULibCharSet(0)));
        char out[32];
        ULibError err = ULIB_ERR_UNKNOWN;
        int n = ULIB_CStoCS(ULibCharSet(0), out, sizeof out, 0, cs, c.bytes.data(),
                            static_cast<int>(c.bytes.size()), false, false, &err, nullptr);
        EXPECT_EQ(ULIB_OK, err);
        EXPECT_EQ(c.utf8, std::string(out, n));
        n = ULIB_CStoCS(cs, out, sizeof out, 0, ULibCharSet(0), c.utf8.data(),
                        static_cast<int>(c.utf8.size()), false, false, &err, nullptr);
        EXPECT_EQ(ULIB_OK, err);
        EXPECT_EQ(c.bytes, std::string(out, n));
    }
}

// Threads that open the same sets for the first time at once all get them
// (the first open loads the package and a set's template under a lock).
TEST(DatabaseCharSetsTest, FirstOpensRaceSafely) {
    std::vector<ULibCharSet> sets;
    for (const Row& row : nameTable())
        if (row.counterpart != "-")
            sets.push_back(CharSetTable::toCharSet(row.name.c_str()));
    std::atomic<int> standIns{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 6; ++t) {
        threads.emplace_back([&sets, &standIns, t] {
            for (size_t i = 0; i < sets.size(); ++i) {
                const ULibCharSet cs = sets[(i * (t + 1)) % sets.size()];
                CSConverter cnv(cs);
                unsigned short out[4];
                ULibError err = ULIB_ERR_UNKNOWN;
                if (cnv.isDefaultConverter() || cnv.toUTF16(out, 4, "\x40", 1, &err) != 1)
                    ++standIns;
            }
        });
    }
    for (std::thread& t : threads)
        t.join();
    EXPECT_EQ(0, standIns.load());
}

TEST(DatabaseCharSetsTest, NamesAreFoundInAnyCaseButNotWithBlanks) {
    const struct {
        const char* name;
        int expected;
    } cases[] = {
        {"WE8ISO8859P1", 10203},
        {"We8MsWin1252", 10208},
        {"ZHT16BIG5", 10220},
        {" we8iso8859p1", ULIB_CS_INVALID},
        {"we8iso8859p1 ", ULIB_CS_INVALID},
        {"we8 iso8859p1", ULIB_CS_INVALID},
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.expected, CharSetTable::toCharSet(c.name)) << '"' << c.name << '"';
}

// A set of the table that ICU lacks too reads as ISO-8859-1 and says so once
// per process. (The database sets say it in the test of a damaged package.)
TEST(DatabaseCharSetsTest, SetWithoutConverterSaysSoOnce) {
    qztest::FaultCollector faults;
    const char* names[] = {"DEC-MCS", "ISO-8859-16"};
    for (const char* name : names) {
        const ULibCharSet cs = CharSetTable::toCharSet(name);
        for (int i = 0; i < 3; ++i) {
            CSConverter cnv(cs);
            ASSERT_TRUE(cnv.isDefaultConverter()) << name;
            unsigned short out[2];
            ULibError err = ULIB_ERR_UNKNOWN;
            EXPECT_EQ(1, cnv.toUTF16(out, 2, "\xE9", 1, &err));
            EXPECT_EQ(0xE9, out[0]);
        }
        EXPECT_FALSE(ULIB_isSupported(cs));
    }
    const std::vector<qztest::Fault> told = fallbackMessages(faults);
    ASSERT_EQ(2u, told.size());
    EXPECT_NE(std::string::npos, told[0].text.find("DEC-MCS")) << told[0].text;
    EXPECT_NE(std::string::npos, told[0].text.find("ISO-8859-1")) << told[0].text;
    EXPECT_NE(std::string::npos, told[1].text.find("ISO-8859-16")) << told[1].text;
}

// A package that is not the one built with the library is never given to
// ICU: each set it should hold takes the stand-in, with one message.
TEST(DatabaseCharSetsTest, DamagedOrMissingPackageLeavesTheStandIn) {
    const std::string good = packageText();
    ASSERT_FALSE(good.empty());
    std::string flipped = good;
    flipped[flipped.size() / 2] ^= 0x40;
    const struct {
        const char* what;
        const char* set;
        bool present;
        std::string content;
    } cases[] = {
        {"garbage", "we8mswin1252", true, std::string(100, '\xA5')},
        {"truncated", "we8pc850", true, good.substr(0, good.size() / 2)},
        {"one byte changed", "ee8mswin1250", true, flipped},
        {"empty", "cl8koi8r", true, std::string()},
        {"missing", "el8mswin1253", false, std::string()},
    };
    const fs::path dir = fs::temp_directory_path() / ("qzcharsets-" + std::to_string(::getpid()));
    qztest::FaultCollector faults;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        fs::remove_all(dir);
        fs::create_directories(dir);
        if (c.present)
            std::ofstream(dir / "qzCharsets.dat", std::ios::binary) << c.content;
        PackageAt at((dir / "qzCharsets").string());
        const ULibCharSet cs = CharSetTable::toCharSet(c.set);
        CSConverter first(cs), second(cs);
        EXPECT_TRUE(first.isDefaultConverter());
        EXPECT_TRUE(second.isDefaultConverter());
    }
    fs::remove_all(dir);
    EXPECT_EQ(sizeof cases / sizeof cases[0], fallbackMessages(faults).size());
    // With the search restored the real package serves again.
    EXPECT_FALSE(CSConverter(CharSetTable::toCharSet("tr8mswin1254")).isDefaultConverter());
}

// Run in a process of its own (see the next test): nothing that converts
// outside the database block maps the package.
TEST(DatabaseCharSetsChild, DISABLED_PackageMappedOnlyByADatabaseSet) {
    ASSERT_FALSE(packageMapped());
    char out[16];
    ULibError err;
    ULIB_CStoCS(ULibCharSet(0), out, sizeof out, 0, CharSetTable::toCharSet("windows-1252"),
                "ab\x80", 3, false, false, &err, nullptr);
    CSConverter(CharSetTable::toCharSet("ISO-8859-16")); // ICU lacks it: the stand-in
    EXPECT_FALSE(packageMapped());
    ULIB_CStoCS(ULibCharSet(0), out, sizeof out, 0, CharSetTable::toCharSet("we8mswin1252"),
                "ab\x80", 3, false, false, &err, nullptr);
    EXPECT_TRUE(packageMapped());
}

TEST(DatabaseCharSetsTest, PackageIsReadOnlyWhenADatabaseSetOpens) {
    const std::string command =
        "'" + fs::read_symlink("/proc/self/exe").string() +
        "' --gtest_also_run_disabled_tests"
        " --gtest_filter=DatabaseCharSetsChild.DISABLED_PackageMappedOnlyByADatabaseSet 2>&1";
    FILE* child = ::popen(command.c_str(), "r");
    ASSERT_NE(nullptr, child);
    std::string output;
    char buf[512];
    while (std::fgets(buf, sizeof buf, child) != nullptr)
        output += buf;
    EXPECT_EQ(0, ::pclose(child)) << output;
    EXPECT_NE(std::string::npos, output.find("[  PASSED  ] 1 test")) << output;
}
