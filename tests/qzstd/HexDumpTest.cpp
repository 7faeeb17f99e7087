//===- tests/qzstd/HexDumpTest.cpp - Hex dumps to memory and to a stream --===//
#include "qzstd/HexDump.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

// The dump, checked against its size: NUL-terminated, shorter than the
// size, and nothing written past it.
std::string dump(const void* data, unsigned long length, unsigned long perLine = 16,
                 bool relative = true) {
    std::string out(qzHexDumpSize(length, perLine) + 8, '@');
    unsigned long n = qzHexDump(&out[0], data, length, perLine, relative);
    EXPECT_EQ(out[n], '\0');
    EXPECT_LT(n, qzHexDumpSize(length, perLine));
    EXPECT_EQ(out.substr(qzHexDumpSize(length, perLine)), "@@@@@@@@");
    out.resize(n);
    return out;
}

std::string line(unsigned offset, const std::string& hex, const std::string& text) {
    char address[8];
    std::snprintf(address, sizeof address, "%06x", offset);
    return std::string(address) + ":" + hex + " |" + text + "|\n";
}

TEST(HexDumpTest, LinesPaddingAndFolding) {
    const std::string a(4, 'A');
    const std::string hexA = " 41 41 41 41";
    const std::string zeros = " 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00";
    const std::string dots(16, '.');
    std::vector<unsigned char> mixed(16 * 4 + 3, 'B');
    std::memset(mixed.data() + 16 * 4, 'c', 3);
    const struct {
        const char* scenario;
        std::vector<unsigned char> data;
        unsigned long perLine;
        std::string expected;
    } rows[] = {
        {"nothing", {}, 16, ""},
        {"a short last line is padded in both columns; unprintable bytes show as '.'",
         {'0', '1', '2', '3', '4', '5', '6', '7', '8', '9', 'a', 'b', 'c', 'd', 'e', 'f', 1},
         16,
         "000000: 30 31 32 33 34 35 36 37 38 39 61 62 63 64 65 66 |0123456789abcdef|\n"
         "000010: 01                                              |.               |\n"},
        {"three equal lines stay whole", std::vector<unsigned char>(12, 'A'), 4,
         line(0, hexA, a) + line(4, hexA, a) + line(8, hexA, a)},
        // The final line of the data is never counted as a repeat.
        {"four equal lines stay whole", std::vector<unsigned char>(16, 'A'), 4,
         line(0, hexA, a) + line(4, hexA, a) + line(8, hexA, a) + line(12, hexA, a)},
        {"five equal lines fold", std::vector<unsigned char>(20, 'A'), 4,
         line(0, hexA, a) + "      : (repeats 2 times)\n" + line(12, hexA, a) + line(16, hexA, a)},
        {"sixteen lines of sixteen: the first, 13 repeats, the last two",
         std::vector<unsigned char>(256, 0), 16,
         line(0, zeros, dots) + "      : (repeats 13 times)\n" + line(0xe0, zeros, dots) +
             line(0xf0, zeros, dots)},
        {"a run that ends before different data, and a short tail", mixed, 4,
         line(0, " 42 42 42 42", "BBBB") + "      : (repeats 14 times)\n" +
             line(60, " 42 42 42 42", "BBBB") + line(64, " 63 63 63   ", "ccc ")},
    };
    for (const auto& row : rows)
        EXPECT_EQ(row.expected, dump(row.data.data(), row.data.size(), row.perLine))
            << row.scenario;
}

TEST(HexDumpTest, AbsoluteAddresses) {
    // Without `relative` the address column is the byte's own address, 8 digits.
    unsigned char data[20] = {};
    std::string text = dump(data, 20, 16, false);
    char first[16], second[16];
    std::snprintf(first, sizeof first, "%08lx:",
                  static_cast<unsigned long>(reinterpret_cast<uintptr_t>(data)) & 0xffffffffUL);
    std::snprintf(second, sizeof second, "%08lx:",
                  static_cast<unsigned long>(reinterpret_cast<uintptr_t>(data + 16)) &
                      0xffffffffUL);
    EXPECT_EQ(text.substr(0, 9), first);
    EXPECT_EQ(text.substr(text.find('\n') + 1, 9), second);
}

TEST(HexDumpTest, StreamLinesOfSixteen) {
    char data[] = "ABCDEFGHIJKLMNOP\x01\x02\x03\x7f";
    char* text = nullptr;
    size_t size = 0;
    FILE* stream = ::open_memstream(&text, &size);
    ASSERT_NE(nullptr, stream);
    EXPECT_TRUE(qzOutputHexToFile(stream, data, 20, 100));
    std::fclose(stream);
    EXPECT_EQ("      100: 41424344 45464748 494A4B4C 4D4E4F50" + std::string(10, ' ') +
                  "  ABCDEFGHIJKLMNOP\n"
                  "      116: 0102037F" +
                  std::string(37, ' ') + "  ....\n",
              std::string(text, size));
    std::free(text);
}

} // namespace
