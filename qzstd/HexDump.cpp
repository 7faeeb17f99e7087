//===- qzstd/HexDump.cpp - Hexadecimal text and dumps ---------------------===//
//
// The memory dump writes straight into the caller's buffer, whose size
// qzHexDumpSize gives, and allocates nothing; the stream dump goes through
// stdio line by line.
//
//===----------------------------------------------------------------------===//
#include "qzstd/HexDump.h"

#include "qzstd/NumberString.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstring>

namespace {

char* dumpLine(char* out, const unsigned char* line, unsigned long count,
               unsigned long bytesPerLine, unsigned long address, bool relative) {
    static const char digits[] = "0123456789abcdef";
    out += HexString(address, out, relative ? 6 : 8, false);
    *out++ = ':';
    for (unsigned long i = 0; i < bytesPerLine; ++i) {
        *out++ = ' ';
        if (i < count) {
            *out++ = digits[line[i] >> 4];
            *out++ = digits[line[i] & 15];
        } else {
            *out++ = ' ';
            *out++ = ' ';
        }
    }
    *out++ = ' ';
    *out++ = '|';
    for (unsigned long i = 0; i < bytesPerLine; ++i)
        *out++ = i < count ? (std::isprint(line[i]) ? static_cast<char>(line[i]) : '.') : ' ';
    *out++ = '|';
    *out++ = '\n';
    return out;
}

} // namespace

unsigned long qzHexString(char* target, unsigned long value, unsigned long width, bool upperCase) {
    unsigned long needed = 1;
    for (unsigned long v = value >> 4; v; v >>= 4)
        ++needed;
    return HexString(value, target, width > needed ? width : needed, upperCase);
}

unsigned long qzHexDumpSize(unsigned long length, unsigned long bytesPerLine) {
    unsigned long lines = length / bytesPerLine + (length % bytesPerLine ? 1 : 0);
    return lines * (bytesPerLine * 4 + 13) + 1;
}

unsigned long qzHexDump(char* target, void const* data, unsigned long length,
                        unsigned long bytesPerLine, bool relative) {
    const unsigned char* bytes = static_cast<const unsigned char*>(data);
    char* out = target;
    unsigned long offset = 0;
    while (offset < length) {
        unsigned long count = length - offset < bytesPerLine ? length - offset : bytesPerLine;
        unsigned long address =
            relative ? offset
                     : static_cast<unsigned long>(reinterpret_cast<uintptr_t>(bytes + offset));
        out = dumpLine(out, bytes + offset, count, bytesPerLine, address, relative);
        offset += count;
        if (count != bytesPerLine)
            break;

        // Count the whole lines that repeat this one. Kept on purpose: a
        // candidate must end before the data does, so the final line of the
        // data is never counted; a dump of 16 equal lines therefore reads
        // first line, "(repeats 13 times)", and two real lines.
        unsigned long repeats = 0;
        while (offset + (repeats + 1) * bytesPerLine < length &&
               std::memcmp(bytes + offset + repeats * bytesPerLine, bytes + offset - bytesPerLine,
                           bytesPerLine) == 0)
            ++repeats;
        if (repeats > 2) {
            unsigned long width = relative ? 6 : 8;
            std::memset(out, ' ', width);
            out += width;
            static const char head[] = ": (repeats ";
            std::memcpy(out, head, sizeof head - 1);
            out += sizeof head - 1;
            out += u64ToString(repeats - 1, out);
            static const char tail[] = " times)\n";
            std::memcpy(out, tail, sizeof tail - 1);
            out += sizeof tail - 1;
            // The last repeated line is printed normally by the next round.
            offset += (repeats - 1) * bytesPerLine;
        }
    }
    *out = '\0';
    return static_cast<unsigned long>(out - target);
}

bool qzOutputHexToFile(FILE* stream, char* data, int length, int offset) {
    const unsigned char* bytes = reinterpret_cast<const unsigned char*>(data);
    for (int line = 0; line < length; line += 16) {
        char hex[48];
        char text[17];
        int h = 0;
        int count = std::min(16, length - line);
        for (int i = 0; i < count; ++i) {
            if (i > 0 && i % 4 == 0)
                hex[h++] = ' ';
            h += std::snprintf(hex + h, sizeof hex - static_cast<size_t>(h), "%02X",
                               bytes[line + i]);
            text[i] = std::isprint(bytes[line + i]) ? static_cast<char>(bytes[line + i]) : '.';
        }
        hex[h] = '\0';
        text[count] = '\0';
        std::fprintf(stream, "%9ld: %-45s  %s\n", static_cast<long>(offset) + line, hex, text);
    }
    return std::ferror(stream) == 0;
}
