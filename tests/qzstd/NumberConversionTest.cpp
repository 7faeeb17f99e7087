//===- tests/qzstd/NumberConversionTest.cpp - Database numbers ------------===//
#include "qzstd/NumberConversion.h"

#include "FaultCollector.h"

#include <gtest/gtest.h>

#include <charconv>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <thread>
#include <vector>

using qztest::Fault;

namespace {

// A target buffer with guard bytes on both sides: a write outside the
// `size` bytes handed out shows in intact().
struct Fenced {
    explicit Fenced(size_t size) : bytes(size + 32, '#'), size(size) {}
    char* data() { return &bytes[16]; }
    bool intact() const {
        for (size_t i = 0; i < 16; ++i)
            if (bytes[i] != '#' || bytes[16 + size + i] != '#')
                return false;
        return true;
    }
    std::string text() { return std::string(data()); }
    std::vector<char> bytes;
    size_t size;
};

// The text of value / 10^scale as a person writes it, built from
// std::to_chars independently of the library ("-0.05", "123").
std::string referenceText(long value, int scale) {
    char digits[32];
    const unsigned long magnitude = value < 0 ? 0UL - static_cast<unsigned long>(value) : value;
    std::string d(digits, std::to_chars(digits, digits + sizeof digits, magnitude).ptr);
    if (scale > 0) {
        if (d.size() <= static_cast<size_t>(scale))
            d.insert(0, scale + 1 - d.size(), '0');
        d.insert(d.size() - scale, ".");
    }
    return (value < 0 ? "-" : "") + d;
}

// Packed decimal written digit by digit: precision digits (at least the
// value's), padded with zeros, then the sign nibble.
std::string referencePacked(long value, size_t precision) {
    std::string digits =
        std::to_string(value < 0 ? 0UL - static_cast<unsigned long>(value) : value);
    if (digits.size() < precision)
        digits.insert(0, precision - digits.size(), '0');
    if (digits.size() % 2 == 0)
        digits.insert(0, "0");
    std::string out;
    for (size_t i = 0; i + 1 < digits.size(); i += 2)
        out += static_cast<char>((digits[i] - '0') << 4 | (digits[i + 1] - '0'));
    out += static_cast<char>((digits.back() - '0') << 4 | (value < 0 ? 0xD : 0xC));
    return out;
}

long randomValue(std::mt19937_64& rng) {
    const unsigned long bits = rng() >> (rng() % 64);
    return rng() % 2 ? -static_cast<long>(bits >> 1) : static_cast<long>(bits >> 1);
}

std::vector<unsigned> numbers(const std::vector<Fault>& faults) {
    std::vector<unsigned> out;
    for (const Fault& f : faults)
        out.push_back(f.number);
    return out;
}

} // namespace

// The number syntax: sign only first, one point, the size suffix only last
// or before a B, and the suffix ignored without honourSuffix.
TEST(NumberConversionTest, GetNumericSyntax) {
    const struct {
        const char* text;
        int honour;
        int result;
        long value;
        short scale;
    } rows[] = {
        {"10K", 1, 1, 10240, 0},
        {"10K", 0, 1, 10, 0},
        {"10KB", 1, 1, 10240, 0},
        {"10Kx", 1, 0, 0, 0},
        {"10KBx", 1, 1, 10240, 0},
        {"3g", 1, 1, 3L << 30, 0},
        {"1.5M", 1, 1, 15L << 20, 1},
        {"1k5", 1, 0, 0, 0},
        {"+5", 0, 1, 5, 0},
        {"-5", 0, 1, -5, 0},
        {"5-", 0, 0, 0, 0},
        {".5", 0, 1, 5, 1},
        {"1.2.3", 0, 0, 0, 0},
        {"-12.340", 0, 1, -12340, 3},
        {"", 0, 1, 0, 0},
        {"1 2", 0, 0, 0, 0},
        {"-9223372036854775808", 0, 1, LONG_MIN, 0},
    };
    for (const auto& row : rows) {
        long value = 0;
        short scale = 0;
        ASSERT_EQ(row.result,
                  NUMCNV_getNumeric(row.text, std::strlen(row.text), &value, &scale, row.honour))
            << row.text;
        if (row.result) {
            EXPECT_EQ(row.value, value) << row.text;
            EXPECT_EQ(row.scale, scale) << row.text;
        }
    }
}

// Range problems go on with the wrapped value after their messages; a
// published table switches to the table variants, per thread.
TEST(NumberConversionTest, RangeMessagesAndTheTableContext) {
    qztest::FaultCollector capture;
    const struct {
        const char* text;
        bool table;
        std::vector<unsigned> messages;
        long value;
    } rows[] = {
        {"9223372036854775808", false, {2772}, LONG_MIN},
        {"92233720368547758080", false, {2772, 1072}, 0}, // 2^63 * 10 wraps to 0
        {"-9223372036854775809", false, {2773}, LONG_MAX},
        {"00000000000000000000001", false, {1072}, 1},
        {"9007199254740992K", false, {1160}, LONG_MIN},
        {"-9007199254740992K", false, {1159}, LONG_MIN},
        {"9007199254740991K", false, {}, 9007199254740991L << 10},
        {"00000000000000000000001", true, {1736}, 1},
        {"9007199254740992K", true, {1507}, LONG_MIN},
        {"-9007199254740992K", true, {1506}, LONG_MIN},
    };
    for (const auto& row : rows) {
        if (row.table)
            NUMCNV_SetTableContext("SALES.ORDERS", "AMOUNT");
        const size_t before = capture.count();
        long value = 0;
        short scale = 0;
        EXPECT_EQ(1, NUMCNV_getNumeric(row.text, std::strlen(row.text), &value, &scale, 1))
            << row.text;
        NUMCNV_ClearTableContext();
        EXPECT_EQ(row.value, value) << row.text;
        std::vector<Fault> all = capture.faults();
        std::vector<Fault> raised(all.begin() + before, all.end());
        EXPECT_EQ(row.messages, numbers(raised)) << row.text;
        for (const Fault& f : raised) {
            EXPECT_EQ("qzstd.conv.number", f.site.component);
            EXPECT_EQ("qzstd/numcnv", f.site.file);
            EXPECT_EQ("NUMCNV_getNumeric", f.site.function);
            EXPECT_EQ(row.table, f.text.find("SALES.ORDERS") != std::string::npos) << f.text;
            EXPECT_EQ(row.table, f.text.find("AMOUNT") != std::string::npos) << f.text;
        }
        if (row.messages == std::vector<unsigned>{2772}) {
            EXPECT_EQ(row.text, raised[0].arguments);
        }
        if (!row.messages.empty() && (row.messages.back() == 1072 || row.messages.back() == 1736)) {
            EXPECT_EQ("19, " + std::to_string(std::strlen(row.text)),
                      raised.back().arguments.substr(0, 6));
        }
    }

    // Another thread's publication is not this one's.
    std::thread([] { NUMCNV_SetTableContext("OTHER.T", "C"); }).join();
    unsigned long u = 0;
    EXPECT_EQ(1, NUMCNV_getUnsignedNumFromStr("123456789012345678901", 21, &u));
    EXPECT_EQ(1072u, capture.faults().back().number);
    EXPECT_EQ("20, 21", capture.faults().back().arguments);
    EXPECT_EQ(0, NUMCNV_getUnsignedNumFromStr("12a", 3, &u));
    EXPECT_EQ(1, NUMCNV_getUnsignedNumFromStr("x", 0, &u));
    EXPECT_EQ(0u, u);

    // Rescaling past the range reports the limit and wraps.
    const size_t before = capture.count();
    long big = LONG_MAX / 5;
    adjust_scale(&big, 1, 0);
    long small = LONG_MIN / 5;
    adjust_scale(&small, 2, 0);
    ASSERT_EQ(before + 2, capture.count());
    EXPECT_EQ(2775u, capture.faults()[before].number);
    EXPECT_EQ(std::to_string(LONG_MAX / 5) + ", 1, 0, " + std::to_string(LONG_MAX / 10),
              capture.faults()[before].arguments);
    EXPECT_EQ(2774u, capture.faults()[before + 1].number);
    EXPECT_EQ(static_cast<long>(static_cast<unsigned long>(LONG_MAX / 5) * 10), big);
}

TEST(NumberConversionTest, ConvertTo64Bit) {
    const std::string longExponent = "1E" + std::string(300, '0');
    const struct {
        std::string text;
        int result;
        long value;
        short scale;
    } rows[] = {
        {"1.500", 0, 15, 1},
        {"1500", 0, 15, -2},
        {"-0.00", 0, 0, 0},
        {"E5", 0, 0, 0},
        {"0.05", 0, 5, 2},
        {"-1.5E3", 0, -15, -2},
        {"1e-3", 0, 1, 3},
        {"9223372036854775807", 0, LONG_MAX, 0},
        {"-9223372036854775808", 0, LONG_MIN, 0},
        // A 19th digit that does not fit only rounds; the old bound let
        // ...588 and a last 9 through and wrapped.
        {"9223372036854775808", 0, 922337203685477581, -1},
        {"9223372036854775889", 0, 922337203685477589, -1},
        {"12345678901234567891", 0, 123456789012345679, -2},
        {"1.2.3", -1, 0, 0},
        {"1E", -1, 0, 0},
        {"1E5x", -1, 0, 0},
        {"+-1", -1, 0, 0},
        {"1x", -1, 0, 0},
        {"1E99990", -1, 0, 0}, // a scale past 16 bits
        {longExponent, -1, 0, 0},
    };
    for (const auto& row : rows) {
        long value = 7;
        short scale = 7;
        ASSERT_EQ(row.result,
                  NUMCNV_convertTo64Bit(row.text.data(), static_cast<int>(row.text.size()), &value,
                                        &scale))
            << row.text;
        if (row.result == 0) {
            EXPECT_EQ(row.value, value) << row.text;
            EXPECT_EQ(row.scale, scale) << row.text;
        }
    }
    long value = 0;
    short scale = 0;
    EXPECT_EQ(-1, NUMCNV_convertTo64Bit("1", 0, &value, &scale));
}

// Text forms against references built from std::to_chars, strtoll and
// std::from_chars over random values and scales.
TEST(NumberConversionTest, TextFormsAgainstReferences) {
    std::mt19937_64 rng(20240613);
    std::vector<long> values{0, 1, -1, LONG_MAX, LONG_MIN, 999999999999999999, -100};
    for (int i = 0; i < 4000; ++i)
        values.push_back(randomValue(rng));
    for (long v : values) {
        const int sc = static_cast<int>(rng() % 19);
        const std::string text = referenceText(v, sc);
        const int n = static_cast<int>(text.size());

        long value = 0;
        short scale = 0;
        ASSERT_EQ(1, NUMCNV_getNumeric(text.data(), text.size(), &value, &scale, 0)) << text;
        EXPECT_EQ(v, value) << text;
        EXPECT_EQ(sc, scale) << text;
        if (sc == 0) {
            long parsed = 0;
            std::from_chars(text.data(), text.data() + n, parsed);
            EXPECT_EQ(parsed, value);
            EXPECT_EQ(std::strtoll(text.c_str(), nullptr, 10), value);
        }

        // convertTo64Bit keeps all 19 digits here and moves trailing zeros.
        long expected = v;
        int expectedScale = sc;
        while (expected != 0 && expected % 10 == 0) {
            expected /= 10;
            --expectedScale;
        }
        ASSERT_EQ(0, NUMCNV_convertTo64Bit(text.data(), n, &value, &scale)) << text;
        EXPECT_EQ(expected, value) << text;
        EXPECT_EQ(expected == 0 ? 0 : expectedScale, scale) << text;

        char out[64];
        EXPECT_EQ(static_cast<int>(text.size()),
                  output_binary_int(out, &v, static_cast<short>(sc), 8, 1));
        EXPECT_EQ(text, out);

        // Fixed precision at the text's own scale gives the text back (zero
        // as "0"); scientific form reads back as the same number.
        Fenced fixed(64);
        ASSERT_LT(0, NUMCNV_convertToFixedPrec(text.data(), n, fixed.data(), sc, fixed.size))
            << text;
        EXPECT_EQ(v == 0 ? "0" : text, fixed.text());
        Fenced sci(40);
        const int sciLength = NUMCNV_convertToScientific(text.data(), n, sci.data(), sci.size);
        ASSERT_LT(0, sciLength) << text;
        // Behind 19 digits now stands the exponent: the 19th only rounds.
        if ((expected >= 1000000000000000000 || expected <= -1000000000000000000) &&
            sci.text().find('E') != std::string::npos) {
            const long rest = expected % 10;
            expected = expected / 10 + (rest >= 5 ? 1 : rest <= -5 ? -1 : 0);
            --expectedScale;
            while (expected % 10 == 0) {
                expected /= 10;
                --expectedScale;
            }
        }
        long back = 0;
        short backScale = 0;
        ASSERT_EQ(0, NUMCNV_convertTo64Bit(sci.data(), sciLength, &back, &backScale)) << sci.text();
        EXPECT_EQ(expected, back) << text << " " << sci.text();
        EXPECT_EQ(expected == 0 ? 0 : expectedScale, backScale) << text << " " << sci.text();
        EXPECT_TRUE(fixed.intact() && sci.intact());
    }
}

TEST(NumberConversionTest, ScientificAndFixedForms) {
    const struct {
        const char* text;
        bool fixedForm;
        int scale;
        size_t size;
        const char* expected; // null: -1
    } rows[] = {
        {"-0.00", false, 0, 11, "0"},
        {"9.999", false, 0, 11, "1E1"},
        {"12345678", false, 0, 11, "1.23E7"},
        {"-12365678", false, 0, 11, "-1.2E7"},
        {"-12565678", false, 0, 11, "-1.3E7"},
        {"0.00123", false, 0, 20, "1.23E-3"},
        {"1.5e-3", false, 0, 20, "1.5E-3"},
        {"+500", false, 0, 20, "5E2"},
        {"-5", false, 0, 20, "-5"},
        {"1", false, 0, 10, nullptr},
        {"1x", false, 0, 20, nullptr},
        {"1E9999", false, 0, 20, "1E9999"},
        {"10E9999", false, 0, 20, nullptr},
        {"2.5", true, 0, 20, "3"},
        {"2.5", true, -1, 20, "0"},
        {"4.5", true, -1, 20, "0"}, // rounded once, not first to 5
        {"-0.4", true, 0, 20, "0"},
        {"-1.5", true, 0, 20, "-2"},
        {"1250", true, -2, 20, "1300"},
        {"1249", true, -2, 20, "1200"},
        {"9950", true, -2, 20, "10000"},
        {"750", true, -3, 20, "1000"},
        {"123", true, -5, 20, "0"},
        {"9.99", true, 1, 20, "10.0"},
        {"123.456", true, 2, 20, "123.46"},
        {"123.456", true, 2, 6, "123.5"}, // fewer digits where there is no room
        {"0.004", true, 2, 20, "0"},
        {"1.5E-2", true, 3, 20, "0.015"},
        {"1.5E2", true, 0, 20, "150"},
        {"12345", true, 0, 5, nullptr},
        {"-1234", true, 0, 5, nullptr},
        {"-0.4", true, 0, 2, "0"},
        {"-0.6", true, 0, 2, nullptr},
        {"9.9", true, 0, 2, nullptr},
        {"1.2.3", true, 0, 20, nullptr},
        {"x", true, 0, 20, nullptr},
    };
    for (const auto& row : rows) {
        Fenced dst(row.size);
        const int n = static_cast<int>(std::strlen(row.text));
        const int length =
            row.fixedForm ? NUMCNV_convertToFixedPrec(row.text, n, dst.data(), row.scale, row.size)
                          : NUMCNV_convertToScientific(row.text, n, dst.data(), row.size);
        EXPECT_TRUE(dst.intact()) << row.text;
        if (!row.expected) {
            EXPECT_EQ(-1, length) << row.text;
            continue;
        }
        EXPECT_EQ(row.expected, dst.text()) << row.text << " scale " << row.scale;
        EXPECT_EQ(static_cast<int>(std::strlen(row.expected)), length) << row.text;
    }
}

TEST(NumberConversionTest, CopyNumberString) {
    col_def fixed;
    fixed.sub_data_type = 3;
    fixed.scale = 2;
    const struct {
        const char* text;
        const col_def* col;
        int size;
        const char* expected;
    } rows[] = {
        {"007", nullptr, 20, "7"},
        {"0.5", nullptr, 20, ".5"},
        {"-0.5", nullptr, 20, "-.5"},
        {"+00", nullptr, 20, "0"},
        {"0E5", nullptr, 20, "0"},
        {"0.", nullptr, 20, "0"},
        {"", nullptr, 20, "0"},
        {"1.005", &fixed, 20, "1.01"},
        {"0.25", &fixed, 20, ".25"},
        {"123456789012", nullptr, 12, "1.235E11"}, // too long to copy: scientific
        {"123456789012", &fixed, 12, "1.235E11"},  // no room at the scale either
    };
    for (const auto& row : rows) {
        Fenced dst(static_cast<size_t>(row.size));
        const int length = NUMCNV_copyNumberString(
            row.text, static_cast<int>(std::strlen(row.text)), dst.data(), row.size, row.col);
        EXPECT_EQ(row.expected, dst.text()) << row.text;
        EXPECT_EQ(static_cast<int>(std::strlen(row.expected)), length) << row.text;
        EXPECT_TRUE(dst.intact()) << row.text;
    }
    // No room for "0" and its NUL in one byte.
    Fenced one(1);
    EXPECT_EQ(-1, NUMCNV_copyNumberString("", 0, one.data(), 1, nullptr));
    EXPECT_EQ(-1, NUMCNV_copyNumberString("1", 1, one.data(), 0, nullptr));
    EXPECT_TRUE(one.intact());
}

TEST(NumberConversionTest, TextChecks) {
    const struct {
        const char* text;
        bool numeric; // validate_numeric_string
        bool integer; // NUMCNV_string_is_integer
        int end[3];   // NUMCNV_getEndOfNumberToken: plain, point, point and exponent
    } rows[] = {
        {"-12", true, true, {3, 3, 3}},     {"+", true, false, {0, 0, 0}},
        {"1.5e+3", true, false, {1, 3, 6}}, {"1.5e", true, false, {1, 3, 3}},
        {"1.5e+", true, false, {1, 3, 3}},  {".5", true, false, {0, 2, 2}},
        {"1.", true, false, {1, 2, 2}},     {"1.2.3", false, false, {1, 3, 3}},
        {"1e5.0", false, false, {3, 1, 3}}, {"1e5e6", false, false, {3, 1, 3}},
        {"1-2", false, false, {1, 1, 1}},   {"e5", false, false, {0, 0, 0}},
        {"12a", false, false, {2, 2, 2}},   {"", false, false, {0, 0, 0}},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.numeric, validate_numeric_string(row.text, std::strlen(row.text)))
            << row.text;
        EXPECT_EQ(row.integer, NUMCNV_string_is_integer(row.text)) << row.text;
        const std::string copy(row.text);
        EXPECT_EQ(row.end[0], NUMCNV_getEndOfNumberToken(copy.c_str(), 0, 1) - copy.c_str())
            << row.text;
        EXPECT_EQ(row.end[1], NUMCNV_getEndOfNumberToken(copy.c_str(), 1, 0) - copy.c_str())
            << row.text;
        EXPECT_EQ(row.end[2], NUMCNV_getEndOfNumberToken(copy.c_str(), 1, 1) - copy.c_str())
            << row.text;
    }
    EXPECT_FALSE(NUMCNV_string_is_integer(nullptr));
    EXPECT_FALSE(validate_numeric_string(nullptr, 3));
}

TEST(NumberConversionTest, LimitedIntegerReaders) {
    const struct {
        const char* text;
        long min, max;
        int asInt, asLong, asUshort; // results
    } rows[] = {
        {"42", 0, 100, 1, 1, 1},
        {" 42", 0, 100, 1, 1, 1},
        {"42x", 0, 100, 0, 0, 0},
        {"", 0, 100, 0, 0, 0},
        {"42", 100, 0, 0, 0, 0},
        {"101", 0, 100, 0, 0, 0},
        {"-1", -5, 5, 1, 1, 0},
        {"4294967296", 0, LONG_MAX, 0, 1, 0},
        {"99999999999999999999", LONG_MIN, LONG_MAX, 0, 0, 0},
    };
    for (const auto& row : rows) {
        int i = 0;
        long l = 0;
        unsigned short u = 0;
        char errBuf[2048] = "";
        const int imin = static_cast<int>(std::max<long>(row.min, INT_MIN));
        const int imax = static_cast<int>(std::min<long>(row.max, INT_MAX));
        EXPECT_EQ(row.asInt, qzGetInt(row.text, &i, imin, imax, errBuf)) << row.text;
        EXPECT_EQ(row.asInt == 0, std::strstr(errBuf, row.text) != nullptr) << errBuf;
        EXPECT_EQ(row.asLong, qzGetLong(row.text, &l, row.min, row.max, errBuf)) << row.text;
        const auto umin = static_cast<unsigned short>(std::max<long>(row.min, 0));
        const auto umax = static_cast<unsigned short>(std::min<long>(row.max, USHRT_MAX));
        EXPECT_EQ(row.asUshort, qzGetUshort(row.text, &u, umin, umax, nullptr)) << row.text;
    }
    // The text is copied whole up to 2047 characters and a NUL.
    const std::string huge(3000, '7');
    std::vector<char> fenced(2048 + 16, '#');
    int i = 0;
    EXPECT_EQ(0, qzGetInt(huge.c_str(), &i, 0, 1, fenced.data()));
    EXPECT_EQ(2047u, std::strlen(fenced.data()));
    EXPECT_EQ(std::string(16, '#'), std::string(fenced.end() - 16, fenced.end()));

    const struct {
        const char* text;
        size_t n;
        int result;
        long value;
    } atols[] = {
        {"", 0, 0, 0},       {"-12", 3, 0, -12}, {"+", 1, 1, 0},   {"-", 0, 0, 0},
        {"12345", 2, 0, 12}, {"1x", 2, 1, 0},    {"+7x", 2, 0, 7}, {"x-1", 3, 1, 0},
    };
    for (const auto& row : atols) {
        long v = -99;
        EXPECT_EQ(row.result, qz_atol(row.text, row.n, &v)) << row.text << " " << row.n;
        EXPECT_EQ(row.result ? -99 : row.value, v) << row.text;
    }
    long v = 0;
    EXPECT_EQ(1, qz_atol("-", &v));
    EXPECT_EQ(1, qz_atol("5 ", &v));
    EXPECT_EQ(0, qz_atol("-77", &v));
    EXPECT_EQ(-77, v);
    EXPECT_EQ(1, qz_atol(nullptr, &v));
}

TEST(NumberConversionTest, HexToBinaryReadsOnlyItsCharacters) {
    const struct {
        const char* hex;
        int n;
        std::vector<unsigned char> bytes;
    } rows[] = {
        {"0aFf10", 6, {0x0A, 0xFF, 0x10}},
        {"0aF", 3, {0x0A, 0x0F}},
        {"12zz34", 6, {0x12}},
        {"", 0, {}},
        {" F-1", 4, {0x0F, 0xFF}},
    };
    for (const auto& row : rows) {
        // No NUL behind the n characters: a digit there must not be read.
        std::vector<unsigned char> hex(row.hex, row.hex + row.n);
        hex.push_back('7');
        unsigned char out[8] = {};
        int count = -1;
        NUMCNV_hex_to_bin(hex.data(), row.n, out, &count);
        EXPECT_EQ(row.bytes, std::vector<unsigned char>(out, out + count)) << row.hex;
    }
}

// Every data type through ll_to_num and back through num_to_ll, over random
// values that fit the form.
TEST(NumberConversionTest, DataTypeRoundTrips) {
    std::mt19937_64 rng(7);
    const struct {
        short type;
        size_t length;
        long min, max;
    } types[] = {
        {130, 2, INT16_MIN, INT16_MAX},
        {131, 2, 0, UINT16_MAX},
        {132, 4, INT32_MIN, INT32_MAX},
        {133, 4, 0, UINT32_MAX},
        {134, 8, LONG_MIN, LONG_MAX},
        {135, 8, LONG_MIN, LONG_MAX},
        {150, 19, 0, LONG_MAX},
        {151, 20, LONG_MIN + 1, LONG_MAX},
        {152, 19, LONG_MIN + 1, LONG_MAX},
        {154, 19, LONG_MIN + 1, LONG_MAX},
        {189, 10, LONG_MIN, LONG_MAX},
    };
    for (const auto& t : types) {
        for (int i = 0; i < 500; ++i) {
            long v = randomValue(rng);
            if (v < t.min || v > t.max)
                v = t.min + static_cast<long>(static_cast<unsigned long>(v) %
                                              (static_cast<unsigned long>(t.max) -
                                               static_cast<unsigned long>(t.min) + 1));
            Fenced field(t.length);
            const int written = ll_to_num(v, field.data(), t.length, t.type, 19);
            ASSERT_LT(0, written) << t.type << " " << v;
            EXPECT_TRUE(field.intact()) << t.type;
            if (t.type == 189) {
                EXPECT_EQ(referencePacked(v, 19), std::string(field.data(), t.length)) << v;
            }
            long back = 0;
            ASSERT_EQ(1, num_to_ll(&back, field.data(), t.length, 19, t.type)) << t.type;
            EXPECT_EQ(v, back) << t.type;
        }
    }
}

TEST(NumberConversionTest, DecimalFieldsAndShortLengths) {
    const struct {
        long value;
        short type;
        size_t length;
        const char* expected; // null: failure, nothing written
    } rows[] = {
        {123, 150, 5, "00123"},
        {-1, 150, 5, nullptr},
        {12345, 150, 3, nullptr},
        {-123, 151, 5, "-0123"},
        {5, 151, 1, nullptr},
        {-123, 152, 4,
         "\xB0"
         "123"},
        {-123, 154, 4, "012\xB3"},
        {123, 154, 4, "0123"},
        {123, 153, 5, "012+"},
        {-7, 153, 2, "-"}, // the sign over the last digit, kept
        {5, 153, 1, nullptr},
        {5, 153, 0, nullptr},
        {5, 64, 8, nullptr},
    };
    for (const auto& row : rows) {
        Fenced dst(row.length + 1);
        size_t outLen = 99;
        const int failed = ll_to_dec(row.value, dst.data(), row.length, row.type, 0, &outLen);
        EXPECT_TRUE(dst.intact()) << row.type << " " << row.length;
        EXPECT_EQ(row.expected == nullptr, failed != 0) << row.type << " " << row.length;
        if (row.expected) {
            EXPECT_EQ(row.expected, dst.text());
            EXPECT_EQ(std::strlen(row.expected), outLen);
        }
        Fenced field(row.length);
        EXPECT_EQ(row.expected ? static_cast<int>(std::strlen(row.expected)) : 0,
                  ll_to_num(row.value, field.data(), row.length, row.type, 0));
        EXPECT_TRUE(field.intact()) << "ll_to_num writes no terminator into the field";
    }
    // Binary: only the upper limit is tested (kept), and the field must hold the size.
    char b[8];
    EXPECT_EQ(2, ll_to_num(-1, b, 2, 131, 0));
    EXPECT_EQ(0, ll_to_num(65536, b, 2, 131, 0));
    EXPECT_EQ(0, ll_to_num(1, b, 3, 132, 0));

    const struct {
        std::string data;
        short type;
        size_t precision;
        int result;
        long value;
    } reads[] = {
        {"123-", 153, 0, 1, -123},
        {"1", 153, 0, 0, 0},
        {"", 154, 0, 0, 0},
        {std::string("\x0a\x00", 2) + "12345", 64, 0, 1, 12345}, // length field past the data
        {std::string("\x00\x00", 2) + "1", 64, 0, 0, 0},
        {"1", 64, 0, 0, 0},
        {"\x01", 130, 0, 0, 0},
        {"\x12\x3D", 189, 3, 1, -123},
        {"\x12\x3D", 189, 2, 1, -23},
        {"\x1A\x3C", 189, 3, 0, 0},
        {"\xF2\x3C", 189, 2, 1, 23}, // an even precision never reads that nibble
        {"\xF2\x3C", 189, 3, 0, 0},
        {"\x3F", 189, 1, 1, 3}, // any sign but D is positive
        {"", 189, 1, 0, 0},
        {"77", 999, 0, 1, 42}, // unknown type: value as passed
    };
    for (const auto& row : reads) {
        std::vector<char> exact(row.data.begin(), row.data.end()); // nothing readable behind it
        long value = 42;
        EXPECT_EQ(row.result,
                  num_to_ll(&value, exact.data(), exact.size(), row.precision, row.type))
            << row.type << " " << row.precision;
        if (row.result) {
            EXPECT_EQ(row.value, value) << row.type;
        }
    }

    // Packed output needs nDigits / 2 + 1 bytes and digits only.
    Fenced packed(2);
    EXPECT_EQ(0, output_packed_decimal("123", 3, packed.data(), 1, 0));
    EXPECT_EQ(0, output_packed_decimal("1x3", 3, packed.data(), 2, 0));
    EXPECT_EQ(1, output_packed_decimal("123", 3, packed.data(), 2, 1));
    EXPECT_EQ(std::string("\x12\x3D"), std::string(packed.data(), 2));
    EXPECT_TRUE(packed.intact());
}

TEST(NumberConversionTest, ScaleAndIntegerText) {
    const struct {
        long value;
        short scale, target;
        long expected;
    } scales[] = {
        {15, 0, 1, 2},
        {14, 0, 1, 1},
        {-15, 0, 1, -2},
        {149, 0, 2, 1},
        {95, 0, 2, 1},
        {5, 1, 0, 50},
        {0, 5, 0, 0},
        {7, 3, 3, 7},
        {LONG_MAX, 0, 1, LONG_MAX / 10 + 1},
        {LONG_MIN, 0, 1, LONG_MIN / 10 - 1},
        {123, 0, 400, 0},
    };
    for (const auto& row : scales) {
        long v = row.value;
        adjust_scale(&v, row.scale, row.target);
        EXPECT_EQ(row.expected, v) << row.value << " " << row.scale << "->" << row.target;
    }
    EXPECT_EQ(1, qzs_pow10(-3));
    EXPECT_EQ(1, qzs_pow10(0));
    EXPECT_EQ(1000000000000000000, qzs_pow10(18));
    EXPECT_EQ(static_cast<long>(10000000000000000000UL), qzs_pow10(19));

    const struct {
        long value;
        size_t size;
        short isSigned, scale;
        const char* expected;
    } texts[] = {
        {5, 8, 1, 3, "0.005"},    {-5, 8, 1, 3, "-0.005"},
        {123, 4, 1, 2, "1.23"},   {123, 2, 1, 3, "0.123"},
        {0, 8, 1, 2, "0.00"},     {0, 8, 1, -3, "0000"},
        {-1, 1, 0, 0, "255"},     {-1, 8, 0, 0, "18446744073709551615"},
        {-12, 1, 1, -2, "-1200"}, {5, 3, 1, 0, ""},
    };
    for (const auto& row : texts) {
        char out[64];
        const int length = output_binary_int(out, &row.value, row.scale, row.size, row.isSigned);
        EXPECT_EQ(row.expected, std::string(out)) << row.value << " size " << row.size;
        EXPECT_EQ(static_cast<int>(std::strlen(row.expected)), length);
    }
    char out[64];
    EXPECT_EQ(7, output_decimal(out, "-12345", 151, 2, 6, 0));
    EXPECT_STREQ("-123.45", out);
    EXPECT_EQ(0, output_decimal(out, "12a", 150, 0, 3, 0));
    EXPECT_STREQ("", out);
    short s16 = 0;
    EXPECT_EQ(1, convert_num_to_binary(reinterpret_cast<char*>(&s16), "-300", 4, 151, 2, 0));
    EXPECT_EQ(-300, s16);
    EXPECT_EQ(0, convert_num_to_binary(reinterpret_cast<char*>(&s16), "99999", 5, 150, 2, 0));
    EXPECT_EQ(-300, s16);
}

TEST(NumberConversionTest, FloatingPointForms) {
    // The older single: e 256 is 2^0, the fraction's top bit a half.
    const struct {
        uint32_t word;
        float expected;
    } tdm[] = {
        {256, 1.0f}, {(1u << 30) | 256, 1.5f}, {0x80000000u | 257, -2.0f},
        {0, 0.0f},   {511, INFINITY},          {0x80000000u | 511, -INFINITY},
    };
    for (const auto& row : tdm) {
        uint32_t v = row.word;
        convert_from_tdm_float(&v, 4);
        float f;
        std::memcpy(&f, &v, 4);
        EXPECT_EQ(row.expected, f) << std::hex << row.word;
    }
    uint32_t untouched = 256;
    convert_from_tdm_float(&untouched, 8);
    EXPECT_EQ(256u, untouched);

    // The byte-comparable forms order in memory as the numbers do.
    std::vector<double> ds{-INFINITY, -1e300, -2.5, -1.0, -1e-300, 0.0,
                           1e-300,    0.5,    1.0,  3e10, INFINITY};
    for (size_t i = 1; i < ds.size(); ++i) {
        const double a = NUMCNV_nativeToZorvexDouble(ds[i - 1]),
                     b = NUMCNV_nativeToZorvexDouble(ds[i]);
        EXPECT_LT(std::memcmp(&a, &b, 8), 0) << ds[i - 1] << " " << ds[i];
        const float fa = NUMCNV_nativeToZorvexFloat(static_cast<float>(ds[i - 1]));
        const float fb = NUMCNV_nativeToZorvexFloat(static_cast<float>(ds[i]));
        EXPECT_LE(std::memcmp(&fa, &fb, 4), 0) << ds[i - 1] << " " << ds[i];
    }
    const double pz = NUMCNV_nativeToZorvexDouble(0.0), nz = NUMCNV_nativeToZorvexDouble(-0.0);
    EXPECT_EQ(0, std::memcmp(&pz, &nz, 8));

    char text[32];
    const float f = 0.1f;
    const double d = 0.1;
    EXPECT_EQ(16, output_float(text, &f, 4));
    EXPECT_STREQ("0.10000000149012", text);
    output_float(text, &d, 8);
    EXPECT_STREQ("0.10000000000000001", text);

    double g = 0;
    const std::string longText = "0." + std::string(200, '0') + "15";
    EXPECT_EQ(1, get_double(longText.c_str(), longText.size(), &g));
    EXPECT_DOUBLE_EQ(1.5e-201, g);
    EXPECT_EQ(1, get_double("2.5xyz", 3, &g));
    EXPECT_EQ(2.5, g);

    long v = 0;
    short s = 0;
    // Doubles read as their shortest exact decimal: 0.1 is not 22 digits that wrap.
    const struct {
        double in;
        int result;
        long value;
        short scale;
    } doubles[] = {{2.5, 1, 25, 1},          {0.1, 1, 1, 1},    {-1234.5678, 1, -12345678, 4},
                   {1e15, 1, 1000000000000000, 0}, {1e30, 0, 0, 0}, {-1e19, 0, 0, 0}};
    for (const auto& c : doubles) {
        v = 0;
        s = 0;
        EXPECT_EQ(c.result, get_ll_from_double(&c.in, &v, &s)) << c.in;
        if (c.result == 1) {
            EXPECT_EQ(c.value, v) << c.in;
            EXPECT_EQ(c.scale, s) << c.in;
        }
    }

    const struct {
        std::vector<unsigned char> bytes;
        const char* text;
        int result;
    } bins[] = {
        {{0x20, 0x20}, "8224", 0},
        {{0x01, 0x00}, "256", 1},
        {{}, "0", 0},
        {{0x80, 0, 0, 0, 0, 0, 0, 0}, "-9223372036854775808", 1},
        {std::vector<unsigned char>(9, 1), "", 0},
    };
    for (const auto& row : bins) {
        char out[24] = "junk";
        EXPECT_EQ(row.result, convert_bin_to_dec(row.bytes.data(), out, row.bytes.size()));
        EXPECT_STREQ(row.text, out);
    }
}

TEST(NumberConversionTest, ColumnValues) {
    col_def col;
    std::strcpy(col.name, "AMOUNT");
    col.io.val_is_null = 1;
    const struct {
        short type, sub, scale;
        int length;
        std::string data;
        int result;
        long value;
        short outScale;
    } rows[] = {
        {64, 3, 0, 8, std::string("\x05\x00", 2) + "1.500", 0, 15, 1},
        {64, 3, 0, 5, std::string("\x05\x00", 2) + "1.5", 0, 15, 1}, // field bounded by int_len
        {64, 3, 0, 1, "\x05", -1, 0, 0},
        {1, 0, 0, 4, "-2.5", 0, -25, 1},
        {150, 0, 2, 4, "1234", 0, 1234, 2},
        {189, 0, 1, 2, "\x12\x3C", 0, 123, 1},
        {150, 0, 0, 2, "1x", -1, 0, 0},
    };
    for (const auto& row : rows) {
        col.data_type = row.type;
        col.sub_data_type = row.sub;
        col.scale = row.scale;
        col.int_len = row.length;
        col.precision = 3;
        std::vector<char> data(row.data.begin(),
                               row.data.begin() + std::min<size_t>(row.data.size(), row.length));
        long value = 0;
        short scale = 0;
        EXPECT_EQ(row.result, NUMCNV_getColNumDataAs64Bit(&col, data.data(), &value, &scale))
            << row.type;
        if (row.result == 0) {
            EXPECT_EQ(row.value, value) << row.type;
            EXPECT_EQ(row.outScale, scale) << row.type;
        }
    }
    col.data_type = 140;
    const float single = 0.5f;
    long value = 0;
    short scale = 0;
    EXPECT_EQ(0, NUMCNV_getColNumDataAs64Bit(&col, reinterpret_cast<const char*>(&single), &value,
                                             &scale));
    EXPECT_EQ(5, value);

    // partial_copy takes the description and leaves the target's io alone.
    col_def target;
    char buffer[4];
    target.io.data_ptr = buffer;
    target.partial_copy(col);
    EXPECT_STREQ("AMOUNT", target.name);
    EXPECT_EQ(140, target.data_type);
    EXPECT_EQ(buffer, target.io.data_ptr);
    EXPECT_EQ(0, target.io.val_is_null);
    col_def copy(col);
    EXPECT_EQ(1, copy.io.val_is_null);
    copy.clear();
    EXPECT_EQ(0, copy.data_type);
    EXPECT_STREQ("", copy.name);
}
