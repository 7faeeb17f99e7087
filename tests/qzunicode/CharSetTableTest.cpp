//===- tests/qzunicode/CharSetTableTest.cpp - The character set table -----===//
//
// The table is data that stored set numbers and other processes depend on, so
// the tests check its shape (blocks, flags, CCSID rules) over every row, pin
// sample rows of each block, and run the lookups through their search orders,
// the rows shared by two names or CCSIDs, and inputs that must fall back.
//
//===----------------------------------------------------------------------===//
#include "qzunicode/CharSetTable.h"

#include <gtest/gtest.h>

#include <unicode/ucnv.h>

#include <cstdlib>
#include <cstring>
#include <set>
#include <string>
#include <thread>
#include <vector>

using namespace qzs::qzlib::qzunicode;

namespace {

ULibCharSet cs(std::int32_t n) {
    return ULibCharSet(n);
}

ULibCharSet escaped(std::int32_t n) {
    return ULibCharSet(n | ULIB_CS_ESCAPE_FLAG);
}

std::string str(const char* s) {
    return s ? s : "(null)";
}

// Restores the process default after a test that moves it.
class DefaultCharSetGuard {
public:
    ~DefaultCharSetGuard() { CharSetTable::storeDefaultCharSet(ULIB_CS_INVALID); }
};

// The rows where the single-byte block's CCSID is not the number in ICU's
// full name.
const std::set<std::int32_t> kSingleByteCCSIDExceptions = {
    1000, 1001, 1002, 1003, 1004, 1005, 1009, 1010, 1032, 1041, 1042, 1044, 1046, 1073};

} // namespace

// Each block starts where stored numbers expect it and has no gap or extra
// row; a row lost from the middle would shift every later number.
TEST(CharSetTableTest, BlocksCoverTheirNumbersExactly) {
    const std::int32_t first[] = {0, 1000, 5000, 10000};
    const std::int32_t rows[] = {12, 125, 42, 230};
    for (int b = 0; b < CharSetTable::numBlocks; ++b) {
        const ULibCharSetBlock& block = CharSetTable::block(b);
        EXPECT_EQ(first[b], block.nFirst);
        EXPECT_EQ(rows[b], block.nRows);
        EXPECT_EQ(&block.pRows[0], CharSetTable::getInfo(cs(first[b])));
        EXPECT_EQ(&block.pRows[rows[b] - 1], CharSetTable::getInfo(cs(first[b] + rows[b] - 1)));
        EXPECT_EQ(nullptr, CharSetTable::getInfo(cs(first[b] - 1))) << first[b];
        EXPECT_EQ(nullptr, CharSetTable::getInfo(cs(first[b] + rows[b]))) << first[b];
    }
}

// Every row is reachable by its own converter name: no earlier row in the
// search order shadows it, and no converter name is null.
TEST(CharSetTableTest, EveryConverterNameFindsItsOwnRow) {
    for (int b = 0; b < CharSetTable::numBlocks; ++b) {
        const ULibCharSetBlock& block = CharSetTable::block(b);
        for (std::int32_t i = 0; i < block.nRows; ++i) {
            const ULibCharSetInfo& row = block.pRows[i];
            ASSERT_NE(nullptr, row.pszConverterName) << block.nFirst + i;
            EXPECT_EQ(block.nFirst + i, CharSetTable::toCharSet(row.pszConverterName))
                << row.pszConverterName;
            EXPECT_LE(row.nMinCharSize, row.nMaxCharSize) << row.pszConverterName;
        }
    }
}

// The single-byte block: EBCDIC exactly on 1047..1100 and 1122..1124, sizes
// 1/1/1 throughout, and CCSID the number in ICU's full name outside the
// documented exceptions.
TEST(CharSetTableTest, SingleByteBlockFollowsItsRules) {
    const ULibCharSetBlock& block = CharSetTable::block(1);
    for (std::int32_t i = 0; i < block.nRows; ++i) {
        const std::int32_t n = block.nFirst + i;
        const ULibCharSetInfo& row = block.pRows[i];
        const bool ebcdic = (n >= 1047 && n <= 1100) || n >= 1122;
        EXPECT_EQ(ebcdic, bool(row.bEBCDIC)) << n;
        EXPECT_EQ(!ebcdic, bool(row.bUSASCIICompatible)) << n;
        EXPECT_EQ(1, row.nMinCharSize) << n;
        EXPECT_EQ(1, row.nMaxCharSize) << n;
        EXPECT_EQ(1, row.nNullCharSize) << n;
        ASSERT_NE(nullptr, row.pszAlias1) << n;
        if (kSingleByteCCSIDExceptions.count(n))
            continue;
        const char* digits = std::strstr(row.pszAlias1, "bm-");
        ASSERT_NE(nullptr, digits) << n << " " << row.pszAlias1;
        EXPECT_EQ(std::atoi(digits + 3), row.nCCSID) << n << " " << row.pszAlias1;
        if (std::strncmp(row.pszConverterName, "ibm-", 4) == 0 && n != 1075 && n != 1084) {
            EXPECT_EQ(nullptr, row.pszMIMEName) << n;
        }
    }
    const std::pair<std::int32_t, std::int32_t> exceptions[] = {
        {1000, 367}, {1001, 5346}, {1005, 5350}, {1009, 5354}, {1010, -1}, {1032, 819},
        {1041, -1},  {1042, -1},   {1044, -1},   {1046, -1},   {1073, 807}};
    for (auto [n, ccsid] : exceptions)
        EXPECT_EQ(ccsid, CharSetTable::toCCSID(cs(n))) << n;
}

// Whole rows from each block, the data oddities that must stay among them.
TEST(CharSetTableTest, SampleRowsKeepTheirExactValues) {
    struct Row {
        std::int32_t n;
        const char *name, *alias1, *alias2, *mime;
        std::int32_t ccsid;
        int ascii, ebcdic, min, max, nul;
    };
    // clang-format off
    const Row rows[] = {
        {0, "UTF-8", "AL32UTF8", nullptr, "UTF-8", 1208, 1, 0, 1, 3, 1},
        {1, "UTF-16", nullptr, nullptr, "UTF-16", 1204, 0, 0, 2, 2, 2},
        {7, "UTF-EBCDIC", nullptr, nullptr, nullptr, 1210, 0, 1, 1, 1, 1},
        {9, "UTF-7", nullptr, nullptr, nullptr, -1, 0, 0, 1, 4, 1},
        {11, "BOCU-1", nullptr, nullptr, nullptr, 1214, 0, 0, 1, 4, 1},
        {1001, "windows-1250", "ibm-1250_P100-1995", "ibm-5346_P100-1998", "windows-1250", 5346, 1, 0, 1, 1, 1},
        {1011, "cp437", "ibm-437_P100-1995", nullptr, "IBM437", 437, 1, 0, 1, 1, 1},
        {1047, "IBM037", "ibm-37_P100-1995,swaplfnl", "ibm-37_P100-1995", "IBM037", 37, 0, 1, 1, 1, 1},
        {1050, "IBM01141", "ibm-1141_P100-1997,swaplfnl", "ibm-1141_P100-1997", "IBM01142", 1141, 0, 1, 1, 1, 1},
        {1084, "ibm-1018", "ibm-1018_P100-1995", nullptr, "SEN_850200_B", 1018, 0, 1, 1, 1, 1},
        {1103, "eucTH", "ibm-874_P100-1995", nullptr, "TIS-620", 874, 1, 0, 1, 1, 1},
        {1124, "ibm-5233", "bm-5233_P100-2011", nullptr, nullptr, 5233, 0, 1, 1, 1, 1},
        {5003, "windows-949", "ibm-1363_P11B-1998", "windows-949-2000", "KSC_5601", 1363, 1, 0, 1, 2, 1},
        {5023, "ibm-16684", "ibm-16684_P110-2003", nullptr, nullptr, 16884, 1, 0, 2, 2, 2},
        {5025, "gb18030", nullptr, nullptr, "GB18030", 1392, 1, 0, 1, 4, 1},
        {5039, "ibm-837", "ibm-837_P100-2011", nullptr, nullptr, 837, 1, 0, 2, 2, 1},
        {5041, "EUC-TW", "euc-tw-2014", nullptr, nullptr, -1, 1, 0, 1, 4, 1},
        {10000, "ar8ados710t", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1},
        {10229, "zht32tris", nullptr, nullptr, nullptr, -1, 1, 0, 1, 4, 1},
    };
    // clang-format on
    for (const Row& r : rows) {
        const ULibCharSetInfo* info = CharSetTable::getInfo(cs(r.n));
        ASSERT_NE(nullptr, info) << r.n;
        EXPECT_EQ(str(r.name), str(info->pszConverterName)) << r.n;
        EXPECT_EQ(str(r.alias1), str(info->pszAlias1)) << r.n;
        EXPECT_EQ(str(r.alias2), str(info->pszAlias2)) << r.n;
        EXPECT_EQ(str(r.mime), str(info->pszMIMEName)) << r.n;
        EXPECT_EQ(r.ccsid, info->nCCSID) << r.n;
        EXPECT_EQ(r.ascii, info->bUSASCIICompatible) << r.n;
        EXPECT_EQ(r.ebcdic, info->bEBCDIC) << r.n;
        EXPECT_EQ(r.min, info->nMinCharSize) << r.n;
        EXPECT_EQ(r.max, info->nMaxCharSize) << r.n;
        EXPECT_EQ(r.nul, info->nNullCharSize) << r.n;
    }
}

// The database block's rows outside the 1/0, 1/1/1 rule, by name: a row
// placed one number off would give the wrong facts to its neighbour.
TEST(CharSetTableTest, DatabaseBlockExceptionsSitOnTheirNames) {
    struct Expect {
        const char* name;
        bool ebcdic;
        int max;
    };
    const Expect rows[] = {
        {"we8ebcdic37", true, 1}, {"ar8ebcdic420s", true, 1}, {"we8icl", true, 1},
        {"ja16dbcs", true, 4},    {"zht16dbcs", true, 4},     {"ja16euc", false, 3},
        {"ja16sjis", false, 2},   {"zht32sops", false, 2},    {"zht32euc", false, 4},
        {"us7ascii", false, 1},   {"we8iso8859p1", false, 1}, {"zht16dbt", false, 1}};
    for (const Expect& e : rows) {
        const ULibCharSet n = CharSetTable::toCharSet(e.name);
        ASSERT_GE(n, 10000) << e.name;
        EXPECT_EQ(e.ebcdic, CharSetTable::isEBCDIC(n)) << e.name;
        EXPECT_EQ(!e.ebcdic, CharSetTable::isUSASCIICompatible(n)) << e.name;
        EXPECT_EQ(e.max, CharSetTable::getMaxCharSize(n)) << e.name;
        EXPECT_EQ(1, CharSetTable::getMinCharSize(n)) << e.name;
        EXPECT_EQ(-1, CharSetTable::toCCSID(n)) << e.name;
    }
    int ebcdic = 0, wide = 0;
    const ULibCharSetBlock& block = CharSetTable::block(3);
    for (std::int32_t i = 0; i < block.nRows; ++i) {
        ebcdic += block.pRows[i].bEBCDIC;
        wide += block.pRows[i].nMaxCharSize > 1;
    }
    EXPECT_EQ(73, ebcdic);
    EXPECT_EQ(27, wide);
}

// Names match any ASCII case and by each of the three columns; the first row
// in the search order wins where two rows share a name.
TEST(CharSetTableTest, ToCharSetSearchesAllNameColumnsInOrder) {
    EXPECT_EQ(0, CharSetTable::toCharSet("al32utf8"));
    EXPECT_EQ(0, CharSetTable::toCharSet("Utf-8"));
    EXPECT_EQ(1047, CharSetTable::toCharSet("ibm-37_P100-1995"));
    EXPECT_EQ(1047, CharSetTable::toCharSet("IBM-37_p100-1995,SWAPLFNL"));
    EXPECT_EQ(1003, CharSetTable::toCharSet("ibm-5348_P100-1997"));
    EXPECT_EQ(1124, CharSetTable::toCharSet("bm-5233_P100-2011"));
    EXPECT_EQ(5004, CharSetTable::toCharSet("windows-950-2000")) << "5030 has it too, later";
    EXPECT_EQ(5027, CharSetTable::toCharSet("gbk"));
    EXPECT_EQ(10229, CharSetTable::toCharSet("ZHT32TRIS"));
    for (const char* unknown : {"", " UTF-8", "UTF-8 ", "UTF8x", "ibm-5233_P100-2011", "Shift_JIS"})
        EXPECT_EQ(ULIB_CS_INVALID, CharSetTable::toCharSet(unknown)) << '"' << unknown << '"';
    EXPECT_EQ(ULIB_CS_INVALID, CharSetTable::toCharSet(nullptr));
}

// MIME names are searched in the same order; the IBM01142 oddity makes the
// name give 1050 before its own row 1052.
TEST(CharSetTableTest, FromMIMENameTakesTheFirstRowWithThatName) {
    EXPECT_EQ(5000, CharSetTable::fromMIMEName("shift_jis"));
    EXPECT_EQ(5001, CharSetTable::fromMIMEName("GBK"));
    EXPECT_EQ(5005, CharSetTable::fromMIMEName("EUC-JP"));
    EXPECT_EQ(1050, CharSetTable::fromMIMEName("IBM01142"));
    EXPECT_EQ(1103, CharSetTable::fromMIMEName("tis-620"));
    EXPECT_EQ(1, CharSetTable::fromMIMEName("UTF-16"));
    EXPECT_EQ(ULIB_CS_INVALID, CharSetTable::fromMIMEName("UTF-16BE"));
    EXPECT_EQ(ULIB_CS_INVALID, CharSetTable::fromMIMEName("windows-932"));
    EXPECT_EQ(ULIB_CS_INVALID, CharSetTable::fromMIMEName(nullptr));
}

// CCSIDs scan in number order, then the fixed list; shared CCSIDs give the
// first row, and a second call (from the cache) gives the same answer.
TEST(CharSetTableTest, FromCCSIDScansTableThenFixedList) {
    const std::pair<std::int32_t, std::int32_t> cases[] = {
        {1208, 0},    {1200, 2},    {13488, 2},    {37, 1047},   {819, 1032},
        {367, 1000},  {5348, 1003}, {1252, 1003},  {1250, 1001}, {1255, 1006},
        {1258, 1009}, {943, 5000},  {1363, 5003},  {949, 5034},  {932, 5000},
        {5026, 5010}, {5035, 5014}, {16884, 5023}, {807, 1073},  {1392, 5025}};
    for (int pass = 0; pass < 2; ++pass) {
        for (auto [ccsid, expected] : cases)
            EXPECT_EQ(expected, CharSetTable::fromCCSID(ccsid)) << ccsid << " pass " << pass;
    }
    for (std::int32_t bad : {0, -1, -5, INT32_MIN, 16684, 803, 99999, INT32_MAX})
        EXPECT_EQ(ULIB_CS_INVALID, CharSetTable::fromCCSID(bad)) << bad;
}

// Each thread fills its own cache; concurrent first lookups agree.
TEST(CharSetTableTest, FromCCSIDAgreesAcrossThreads) {
    std::vector<std::thread> threads;
    std::vector<int> wrong(4, 0);
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t, &wrong] {
            for (int i = 0; i < 200; ++i) {
                wrong[t] += CharSetTable::fromCCSID(943) != 5000;
                wrong[t] += CharSetTable::fromCCSID(1252) != 1003;
                wrong[t] += CharSetTable::fromCCSID(1140 + i % 10) !=
                            CharSetTable::fromCCSID(1140 + i % 10);
            }
        });
    }
    for (std::thread& th : threads)
        th.join();
    EXPECT_EQ(std::vector<int>(4, 0), wrong);
}

// The escape flag is masked before every lookup; the flag alone is set 0.
TEST(CharSetTableTest, EscapeFlagIsMaskedOff) {
    EXPECT_EQ(std::string("US-ASCII"), str(CharSetTable::toConverterName(escaped(1000))));
    EXPECT_EQ(std::string("Shift_JIS"), str(CharSetTable::toMIMEName(escaped(5024))));
    EXPECT_EQ(4, CharSetTable::getMaxCharSize(escaped(5009)));
    EXPECT_EQ(2, CharSetTable::getNullCharSize(escaped(1)));
    EXPECT_TRUE(CharSetTable::isEBCDIC(escaped(10011)));
    EXPECT_EQ(1208, CharSetTable::toCCSID(ULIB_CS_ESCAPE_FLAG));
    EXPECT_EQ(CharSetTable::getInfo(cs(0)), CharSetTable::getInfo(ULIB_CS_ESCAPE_FLAG));
}

// Numbers in no block, negative ones and the two special values give the
// documented fallbacks.
TEST(CharSetTableTest, NumbersOutsideTheBlocksFallBack) {
    for (std::int32_t n : {-1, -1000, 12, 999, 1125, 4999, 5042, 9999, 10230, int(ULIB_CS_INVALID),
                           INT32_MAX, INT32_MIN + 20000}) {
        const ULibCharSet c = cs(n);
        EXPECT_EQ(nullptr, CharSetTable::getInfo(c)) << n;
        EXPECT_EQ(nullptr, CharSetTable::toConverterName(c)) << n;
        EXPECT_EQ(nullptr, CharSetTable::toMIMEName(c)) << n;
        EXPECT_EQ(-1, CharSetTable::toCCSID(c)) << n;
        EXPECT_FALSE(CharSetTable::isUSASCIICompatible(c)) << n;
        EXPECT_FALSE(CharSetTable::isEBCDIC(c)) << n;
        EXPECT_EQ(1, CharSetTable::getMinCharSize(c)) << n;
        EXPECT_EQ(1, CharSetTable::getMaxCharSize(c)) << n;
        EXPECT_EQ(1, CharSetTable::getNullCharSize(c)) << n;
    }
    // INT32_MIN + 20000 masks to 20000, still in no block; INT32_MIN + 10000
    // masks into the database block.
    EXPECT_EQ(std::string("ar8ados710t"),
              str(CharSetTable::toConverterName(cs(INT32_MIN + 10000))));
}

// ULIB_CS_DEFAULT has no name of its own, but its sizes, flags and CCSID are
// those of the set it stands for, found from ICU's default converter.
TEST(CharSetTableTest, DefaultStandsForTheProcessDefault) {
    DefaultCharSetGuard guard;
    EXPECT_EQ(nullptr, CharSetTable::toConverterName(ULIB_CS_DEFAULT));
    EXPECT_EQ(nullptr, CharSetTable::toMIMEName(ULIB_CS_DEFAULT));
    EXPECT_EQ(nullptr, CharSetTable::getInfo(ULIB_CS_DEFAULT));

    CharSetTable::storeDefaultCharSet(cs(5009));
    EXPECT_EQ(5009, ULIB_getDefaultCharSet());
    EXPECT_EQ(4, CharSetTable::getMaxCharSize(ULIB_CS_DEFAULT));
    EXPECT_EQ(964, CharSetTable::toCCSID(ULIB_CS_DEFAULT));
    EXPECT_TRUE(CharSetTable::isUSASCIICompatible(ULIB_CS_DEFAULT));

    CharSetTable::storeDefaultCharSet(escaped(1047));
    EXPECT_EQ(1047, CharSetTable::defaultCharSet());
    EXPECT_TRUE(CharSetTable::isEBCDIC(ULIB_CS_DEFAULT));
    EXPECT_TRUE(CharSetTable::isEBCDIC(escaped(ULIB_CS_DEFAULT)));

    // Unset, the value is looked up again from ICU's default converter name.
    CharSetTable::storeDefaultCharSet(ULIB_CS_INVALID);
    const ULibCharSet fromICU = CharSetTable::toCharSet(ucnv_getDefaultName());
    EXPECT_NE(ULIB_CS_INVALID, fromICU) << ucnv_getDefaultName();
    EXPECT_EQ(fromICU, CharSetTable::defaultCharSet());
    EXPECT_EQ(CharSetTable::getMaxCharSize(fromICU), CharSetTable::getMaxCharSize(ULIB_CS_DEFAULT));
}

// The unmangled entry points answer as the table does.
TEST(CharSetTableTest, PlainEntryPointsForwardToTheTable) {
    EXPECT_EQ(0, ULIB_toCharSet("AL32UTF8"));
    EXPECT_EQ(5000, ULIB_fromMIMEName("Shift_JIS"));
    EXPECT_EQ(5000, ULIB_fromCCSID(943));
    EXPECT_EQ(std::string("IBM037"), str(ULIB_toConverterName(cs(1047))));
    EXPECT_EQ(std::string("IBM00858"), str(ULIB_toMIMEName(cs(1021))));
    EXPECT_EQ(1234, ULIB_toCCSID(cs(6)));
    EXPECT_TRUE(ULIB_isUSASCIICompatible(cs(10))); // SCSU
    EXPECT_TRUE(ULIB_isEBCDIC(cs(7)));
    EXPECT_EQ(2, ULIB_getMinCharSize(cs(5036)));
    EXPECT_EQ(3, ULIB_getMaxCharSize(cs(8)));
    EXPECT_EQ(1, ULIB_getNullCharSize(cs(5039)));
    EXPECT_EQ(ULIB_CS_INVALID, ULIB_toCharSet(nullptr));
}
