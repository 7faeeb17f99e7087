//===- tests/qzstd/HexDumpTest.cpp - Folded hex dumps ---------------------===//
#include "qzstd/memutl.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace {

std::string dump(const void* data, unsigned long length, unsigned long perLine = 16,
                 bool relative = true) {
    std::string out(qzHexDumpSize(length, perLine) + 8, '@');
    unsigned long n = qzHexDump(&out[0], data, length, perLine, relative);
    EXPECT_EQ(out[n], '\0');
    EXPECT_LT(n, qzHexDumpSize(length, perLine));
    EXPECT_EQ(out.substr(qzHexDumpSize(length, perLine)), "@@@@@@@@"); // nothing past the size
    out.resize(n);
    return out;
}

std::string line(unsigned offset, const std::string& hex, const std::string& text) {
    char address[8];
    std::snprintf(address, sizeof address, "%06x", offset);
    return std::string(address) + ":" + hex + " |" + text + "|\n";
}

TEST(HexDumpTest, SizeOfTheDump) {
    // Whole lines of 4 x bytesPerLine + 13 characters, one more for a remainder, and the NUL.
    EXPECT_EQ(qzHexDumpSize(17, 16), 155u);
    EXPECT_EQ(qzHexDumpSize(16, 16), 78u);
    EXPECT_EQ(qzHexDumpSize(0, 16), 1u);
    EXPECT_EQ(qzHexDumpSize(5, 4), 59u);
}

TEST(HexDumpTest, SeventeenBytes) {
    // A short last line is padded in both columns; unprintable bytes show as '.'.
    const char data[] = "0123456789abcdef\x01";
    EXPECT_EQ(dump(data, 17),
              "000000: 30 31 32 33 34 35 36 37 38 39 61 62 63 64 65 66 |0123456789abcdef|\n"
              "000010: 01                                              |.               |\n");
    EXPECT_EQ(dump(data, 0), "");
}

TEST(HexDumpTest, AbsoluteAddresses) {
    // Without `relative` the address column is the byte's own address, 8 digits.
    unsigned char data[20] = {};
    std::string text = dump(data, 20, 16, false);
    char first[16], second[16];
    std::snprintf(first, sizeof first, "%08lx:",
                  static_cast<unsigned long>(reinterpret_cast<uintptr_t>(data)) & 0xffffffffUL);
    std::snprintf(second, sizeof second, "%08lx:",
                  static_cast<unsigned long>(reinterpret_cast<uintptr_t>(data + 16)) & 0xffffffffUL);
    EXPECT_EQ(text.substr(0, 9), first);
    EXPECT_EQ(text.substr(text.find('\n') + 1, 9), second);
}

TEST(HexDumpTest, RepeatedLinesFold) {
    // Runs of equal lines fold into a "(repeats" line; the run still ends in real lines.
    const std::string a(4, 'A');
    const std::string hexA = " 41 41 41 41";
    std::vector<unsigned char> data(16 * 4, 'A');
    EXPECT_EQ(dump(data.data(), 12, 4), line(0, hexA, a) + line(4, hexA, a) + line(8, hexA, a));
    // The final line of the data is never counted as a repeat, so four equal lines stay whole.
    EXPECT_EQ(dump(data.data(), 16, 4),
              line(0, hexA, a) + line(4, hexA, a) + line(8, hexA, a) + line(12, hexA, a));
    EXPECT_EQ(dump(data.data(), 20, 4),
              line(0, hexA, a) + "      : (repeats 2 times)\n" + line(12, hexA, a) + line(16, hexA, a));

    // Sixteen equal lines of sixteen: the first, "(repeats 13 times)", then the last two.
    std::vector<unsigned char> big(256, 0);
    std::string text = dump(big.data(), big.size());
    const std::string zeros = " 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00";
    EXPECT_EQ(text, line(0, zeros, std::string(16, '.')) + "      : (repeats 13 times)\n" +
                        line(0xe0, zeros, std::string(16, '.')) + line(0xf0, zeros, std::string(16, '.')));

    // A run that ends before different data, and a short tail after it.
    std::vector<unsigned char> mixed(16 * 4 + 3, 'B');
    std::memset(mixed.data() + 16 * 4, 'c', 3);
    const std::string hexB = " 42 42 42 42";
    EXPECT_EQ(dump(mixed.data(), mixed.size(), 4),
              line(0, hexB, "BBBB") + "      : (repeats 14 times)\n" + line(60, hexB, "BBBB") +
                  line(64, " 63 63 63   ", "ccc "));
}

} // namespace
