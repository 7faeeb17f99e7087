//===- qzstd/NumberConversion.cpp - Database numbers and 64-bit values ----===//
//
// The readers run in unsigned 64-bit arithmetic so that a value past the
// range wraps as the messages say instead of being undefined. The hot paths
// (text and packed decimal to a scaled value, and back to text) allocate
// nothing and format nothing; the message paths may do both.
//
//===----------------------------------------------------------------------===//
#include "qzstd/NumberConversion.h"

#include "qzstd/MessageSeam.h"
#include "qzstd/NumberString.h"

#include <cerrno>
#include <charconv>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace detail = qzs::qzlib::detail;

const char* const NUMCNV_TableContextName = "NUMCNV_TableContext";

namespace {

const char* const Module = "qzstd.conv.number";
const char* const TextId = "qzstd/numcnv";
const char* const IntId = "qzstd/numcnv_int";

// Who raises: the source file's id and the public function's name.
struct Caller {
    const char* id;
    const char* method;
};

struct TableContext {
    bool published = false;
    std::string table;
    std::string column;
};

// Per thread, as each thread converts its own table's data.
thread_local TableContext t_tableContext;

// Raises `plain`, or, when this thread has published a table, sets the two
// error context items that its text reads and raises `withTable`.
template <typename... Args>
void raiseRange(const detail::MessageSite& site, unsigned plain, unsigned withTable,
                const Args&... args) {
    const TableContext& context = t_tableContext;
    if (!context.published) {
        detail::raiseFault(site, plain, args...);
        return;
    }
    detail::setErrorContextText("ErrQualifiedTableName", context.table.c_str());
    detail::setErrorContextText("ErrColumnName", context.column.c_str());
    detail::raiseFault(site, withTable, args...);
}

inline unsigned digitOf(char c) {
    return static_cast<unsigned>(static_cast<unsigned char>(c)) - '0';
}

inline bool isDigit(char c) {
    return digitOf(c) <= 9;
}

inline bool isExponentLetter(char c) {
    return c == 'E' || c == 'e';
}

// The n characters at s, with the high bit of the byte at maskAt cleared,
// for a message's argument.
std::string messageText(const char* s, size_t n, size_t maskAt) {
    std::string text(s, n);
    if (maskAt < n)
        text[maskAt] = static_cast<char>(text[maskAt] & 0x7F);
    return text;
}

// The common text in one tight pass: a sign, at most 18 digits and one
// point, nothing else. False sends the text to the full walk below, which
// has the suffixes, the limits and the messages; nothing is stored then.
inline bool quickNumeric(const char* s, size_t n, long* value, short* scale) {
    const size_t start = (n != 0 && (s[0] == '-' || s[0] == '+')) ? 1 : 0;
    if (n - start > 19)
        return false;
    size_t i = start;
    uint64_t v = 0;
    size_t point = SIZE_MAX;
    for (; i < n; ++i) {
        const unsigned d = digitOf(s[i]);
        if (d <= 9) {
            v = v * 10 + d;
            continue;
        }
        if (s[i] != '.' || point != SIZE_MAX)
            return false;
        point = i;
    }
    if (n - start - (point == SIZE_MAX ? 0 : 1) > 18)
        return false;
    const bool negative = start != 0 && s[0] == '-';
    *value = static_cast<long>(negative ? 0 - v : v);
    *scale = static_cast<short>(point == SIZE_MAX ? 0 : n - 1 - point);
    return true;
}

// The number walk behind NUMCNV_getNumeric and the zoned decimal readers.
// The byte at maskAt (if any) is read with its high bit cleared, which is
// how the forms with the sign in that bit are read without copying them.
int parseNumeric(const char* s, size_t n, size_t maskAt, long* value, short* scale,
                 int honourSuffix, const Caller& caller) {
    if (maskAt == SIZE_MAX && quickNumeric(s, n, value, scale))
        return 1;
    uint64_t v = 0;
    bool negative = false;
    bool point = false;
    size_t digits = 0;
    size_t digitsBeforePoint = 0;
    unsigned shift = 0;
    for (size_t i = 0; i < n; ++i) {
        char c = s[i];
        if (i == maskAt)
            c = static_cast<char>(c & 0x7F);
        const unsigned d = digitOf(c);
        if (d <= 9) {
            ++digits;
            if (digits < 19) {
                v = v * 10 + d;
                continue;
            }
            const uint64_t next = v * 10 + d;
            // Only the 19th digit is tested: past it the count itself is
            // reported below. Either way the value goes on wrapped.
            if (digits == 19) {
                if (!negative && next > static_cast<uint64_t>(INT64_MAX)) {
                    const std::string text = messageText(s, n, maskAt);
                    detail::raiseFault(
                        detail::MessageSite{Module, caller.id, caller.method, __LINE__}, 2772,
                        text.c_str());
                } else if (negative && next > (static_cast<uint64_t>(1) << 63)) {
                    const std::string text = messageText(s, n, maskAt);
                    detail::raiseFault(
                        detail::MessageSite{Module, caller.id, caller.method, __LINE__}, 2773,
                        text.c_str());
                }
            }
            v = next;
            continue;
        }
        switch (c) {
        case '+':
        case '-':
            if (i != 0)
                return 0;
            negative = c == '-';
            continue;
        case '.':
            if (point)
                return 0;
            point = true;
            digitsBeforePoint = digits;
            continue;
        case 'K':
        case 'k':
            shift = 10;
            break;
        case 'M':
        case 'm':
            shift = 20;
            break;
        case 'G':
        case 'g':
            shift = 30;
            break;
        default:
            return 0;
        }
        // A size suffix ends the number: as its last character, or before a
        // 'B', after which nothing is looked at ("10KBx" is accepted).
        if (i + 1 < n) {
            char next = s[i + 1];
            if (i + 1 == maskAt)
                next = static_cast<char>(next & 0x7F);
            if (next != 'B' && next != 'b')
                return 0;
        }
        break;
    }

    if (digits > 19)
        raiseRange(detail::MessageSite{Module, caller.id, caller.method, __LINE__}, 1072, 1736,
                   19UL, static_cast<unsigned long>(digits));
    else if (!honourSuffix)
        shift = 0; // kept on purpose: a longer text has its suffix applied regardless

    uint64_t result = negative ? 0 - v : v;
    if (shift != 0) {
        const uint64_t limit = static_cast<uint64_t>(INT64_MAX) >> shift;
        if (v > limit) {
            const std::string text = messageText(s, n, maskAt);
            raiseRange(detail::MessageSite{Module, caller.id, caller.method, __LINE__},
                       negative ? 1159 : 1160, negative ? 1506 : 1507, text.c_str());
        }
        result <<= shift; // kept on purpose: shifted even when it wraps
    }
    *value = static_cast<long>(result);
    *scale = static_cast<short>(point ? digits - digitsBeforePoint : 0);
    return 1;
}

// The exponent text behind an 'E', read by qzGetInt. Longer texts than the
// local copy holds are a syntax error here; they once ended the process
// through the checked copy, which bad input must never do.
bool readExponent(const char* p, const char* end, int* exponent) {
    const size_t length = static_cast<size_t>(end - p);
    char text[256];
    if (length >= sizeof text)
        return false;
    std::memcpy(text, p, length);
    text[length] = '\0';
    return qzGetInt(text, exponent, -99990, 99990, nullptr) == 1;
}

// A number text taken apart for the two writers: its sign, where its
// significant digits are, and the decimal exponent of the first of them.
struct Scanned {
    bool negative = false;
    const char* first = nullptr; // the first significant digit, 1 to 9
    const char* point = nullptr; // a '.' behind first, or null
    const char* end = nullptr;   // the end of the digits: an 'E' or the text's end
    long exponent = 0;           // the first digit stands for d * 10^exponent
    long count = 0;              // significant digits, trailing zeros included

    // The k-th significant digit, '0' past the last.
    char digit(long k) const {
        if (k < 0 || k >= count)
            return '0';
        const char* p = first + k;
        if (point && p >= point)
            ++p;
        return *p;
    }
    // The digit that stands for 10^power.
    char at(long power) const { return digit(exponent - power); }
};

// What comes before the first significant digit of a number text: a sign,
// zeros and at most one point. Returns where the walk stopped: the first other
// character, or `end`.
struct LeadIn {
    bool negative = false;
    bool point = false;
    long zerosBehindPoint = 0;
};
const char* skipLeadIn(const char* p, const char* end, LeadIn& lead) {
    if (p < end && (*p == '+' || *p == '-')) {
        lead.negative = *p == '-';
        ++p;
    }
    for (; p < end; ++p) {
        if (*p == '0') {
            if (lead.point)
                ++lead.zerosBehindPoint;
        } else if (*p == '.' && !lead.point) {
            lead.point = true;
        } else {
            break;
        }
    }
    return p;
}

// 1: a number; 0: nothing significant, or an exponent letter where the
// first significant digit would be (the rest is not looked at); -1: a
// character out of place or a bad exponent.
int scanNumber(const char* s, int n, Scanned& out) {
    const char* end = s + n;
    LeadIn lead;
    const char* p = skipLeadIn(s, end, lead);
    out.negative = lead.negative;
    bool point = lead.point;
    const long zerosBehindPoint = lead.zerosBehindPoint;
    if (p == end || isExponentLetter(*p))
        return 0;
    if (*p < '1' || *p > '9')
        return -1;
    const bool pointBeforeFirst = point;
    out.first = p;
    long integerDigits = 0;
    int explicitExponent = 0;
    const char* q = p;
    for (; q < end; ++q) {
        if (isDigit(*q)) {
            if (!point)
                ++integerDigits;
            continue;
        }
        if (*q == '.') {
            if (point)
                return -1;
            point = true;
            out.point = q;
            continue;
        }
        if (isExponentLetter(*q)) {
            if (!readExponent(q + 1, end, &explicitExponent))
                return -1;
            break;
        }
        return -1;
    }
    out.end = q;
    out.count = static_cast<long>(q - p) - (out.point ? 1 : 0);
    out.exponent =
        (pointBeforeFirst ? -(zerosBehindPoint + 1) : integerDigits - 1) + explicitExponent;
    return 1;
}

// NUMCNV_convertTo64Bit's common text in one pass: a sign, a first digit of
// 1 to 9, at most 18 digits and one point. False leaves it to the full walk.
inline bool quickTo64Bit(const char* s, int n, long* value, short* scale) {
    const char* p = s;
    const char* const end = s + n;
    bool negative = false;
    if (*p == '-' || *p == '+') {
        negative = *p == '-';
        ++p;
    }
    if (p == end || end - p > 19 || digitOf(*p) - 1 > 8)
        return false;
    const char* const first = p;
    uint64_t v = 0;
    int sc = 0;
    bool point = false;
    for (; p < end; ++p) {
        const unsigned d = digitOf(*p);
        if (d <= 9) {
            v = v * 10 + d;
            sc += point;
            continue;
        }
        if (*p != '.' || point)
            return false;
        point = true;
    }
    if ((end - first) - (point ? 1 : 0) > 18)
        return false;
    while (v % 10 == 0) {
        v /= 10;
        --sc;
    }
    *value = static_cast<long>(negative ? 0 - v : v);
    *scale = static_cast<short>(sc);
    return true;
}

void writeZero(char* dst) {
    dst[0] = '0';
    dst[1] = '\0';
}

// Adds one to the digits in [begin, end), stepping over a '.'. False when
// every digit was 9 (they are all '0' then).
bool carry(char* begin, char* end) {
    for (char* p = end; p-- > begin;) {
        if (*p == '.')
            continue;
        if (*p != '9') {
            ++*p;
            return true;
        }
        *p = '0';
    }
    return false;
}

// Room for one more character at the front of [begin, *end) within
// dst..dst+limit (the terminator's byte excluded); then '1' goes there.
bool growWithOne(char* begin, char** end, char* dst, size_t limit) {
    if (static_cast<size_t>(*end - dst) + 1 > limit)
        return false;
    std::memmove(begin + 1, begin, static_cast<size_t>(*end - begin));
    *begin = '1';
    ++*end;
    return true;
}

// Packs the digit characters, behind `zeros` leading zero digits, into dst
// as output_packed_decimal describes.
int packDigits(const char* digits, size_t nDigits, size_t zeros, char* dst, size_t dstLen,
               bool negative) {
    const size_t total = zeros + nDigits;
    const size_t needed = total / 2 + 1;
    if (dstLen < needed)
        return 0;
    std::memset(dst, 0, dstLen);
    unsigned char* out = reinterpret_cast<unsigned char*>(dst);
    // Nibbles run from the high one of byte 0; the sign takes the last.
    const size_t start = 2 * needed - 1 - total + zeros;
    for (size_t j = 0; j < nDigits; ++j) {
        const unsigned d = digitOf(digits[j]);
        if (d > 9)
            return 0;
        const size_t nibble = start + j;
        out[nibble / 2] =
            static_cast<unsigned char>(out[nibble / 2] | ((nibble % 2 == 0) ? d << 4 : d));
    }
    out[needed - 1] = static_cast<unsigned char>(out[needed - 1] | (negative ? 0xD : 0xC));
    return 1;
}

// The text forms of ll_to_dec; `terminate` adds the NUL behind the field.
int writeDecimal(long value, char* dst, size_t length, short type, size_t precision, size_t* outLen,
                 bool terminate) {
    const bool negative = value < 0;
    const uint64_t magnitude =
        negative ? 0 - static_cast<uint64_t>(value) : static_cast<uint64_t>(value);
    char digits[24];
    const size_t nDigits = u64ToString(magnitude, digits);
    size_t written = 0;
    // Every text form pads its digits to a width and fails when they are
    // longer: written unpadded, they used to run past the caller's field.
    auto pad = [&](char* at, size_t width) {
        std::memset(at, '0', width - nDigits);
        std::memcpy(at + width - nDigits, digits, nDigits);
    };
    switch (type) {
    case QZ_DT_UNSIGNED:
        if (negative || nDigits > length)
            return 1;
        pad(dst, length);
        written = length;
        break;
    case QZ_DT_SIGN_FIRST:
        if (length < 1 || nDigits > length - 1)
            return 1;
        dst[0] = negative ? '-' : '+';
        pad(dst + 1, length - 1);
        written = length;
        break;
    case QZ_DT_SIGN_HIGH:
    case QZ_DT_SIGN_LOW:
        if (nDigits > length)
            return 1;
        pad(dst, length);
        if (negative) {
            char& signByte = type == QZ_DT_SIGN_HIGH ? dst[0] : dst[length - 1];
            signByte = static_cast<char>(signByte | 0x80);
        }
        written = length;
        break;
    case QZ_DT_SIGN_LAST:
        // A field of 1 would put the sign before dst.
        if (length < 2 || nDigits > length - 1)
            return 1;
        pad(dst, length - 1);
        // Kept on purpose: the sign goes over the last digit, at length - 2,
        // and the field's last byte is left alone.
        dst[length - 2] = negative ? '-' : '+';
        written = length - 1;
        break;
    case QZ_DT_PACKED:
        if (!packDigits(digits, nDigits, precision > nDigits ? precision - nDigits : 0, dst, length,
                        negative))
            return 1;
        if (outLen)
            *outLen = length;
        return 0;
    default:
        return 1;
    }
    if (terminate)
        dst[written] = '\0';
    if (outLen)
        *outLen = written;
    return 0;
}

// A packed byte's two digits as 0 to 99; 0x80 marks a nibble above 9.
struct PackedPairTable {
    unsigned char value[256];
    constexpr PackedPairTable() : value() {
        for (unsigned b = 0; b < 256; ++b)
            value[b] = static_cast<unsigned char>(
                (b >> 4) > 9 || (b & 0x0F) > 9 ? 0x80 : (b >> 4) * 10 + (b & 0x0F));
    }
    constexpr unsigned char operator[](unsigned b) const { return value[b]; }
};
constexpr PackedPairTable PackedPairs;

template <typename T> T load(const void* src) {
    T v;
    std::memcpy(&v, src, sizeof v);
    return v;
}

template <typename T> void store(void* dst, T v) {
    std::memcpy(dst, &v, sizeof v);
}

// The digits of magnitude with the '.' before the last `scale` of them, or
// -scale zeros behind them; the result's length.
int writeScaled(char* dst, bool negative, uint64_t magnitude, short scale) {
    char* o = dst;
    if (negative)
        *o++ = '-';
    if (scale <= 0) {
        o += u64ToString(magnitude, o);
        const size_t zeros = static_cast<size_t>(-static_cast<int>(scale));
        if (zeros) {
            std::memset(o, '0', zeros);
            o += zeros;
            *o = '\0';
        }
        return static_cast<int>(o - dst);
    }
    // Written in place, then moved to make room for the '.' (and for "0."
    // and zeros when the digits are no more than the scale).
    const size_t fraction = static_cast<size_t>(scale);
    const size_t nDigits = u64ToString(magnitude, o);
    if (nDigits > fraction) {
        const size_t whole = nDigits - fraction;
        std::memmove(o + whole + 1, o + whole, fraction + 1);
        o[whole] = '.';
        return static_cast<int>(o - dst) + static_cast<int>(nDigits) + 1;
    }
    const size_t shift = 2 + fraction - nDigits;
    std::memmove(o + shift, o, nDigits + 1);
    o[0] = '0';
    o[1] = '.';
    std::memset(o + 2, '0', fraction - nDigits);
    return static_cast<int>(o - dst) + static_cast<int>(shift + nDigits);
}

// Reads a two-byte length (host order) and the text behind it, bounded by
// the `length` bytes of the field.
bool varcharText(const char* data, size_t length, const char** text, size_t* textLength) {
    if (length < 2)
        return false;
    const size_t declared = load<uint16_t>(data);
    *text = data + 2;
    *textLength = declared < length - 2 ? declared : length - 2;
    return true;
}

bool readLong(const char* s, long* out) {
    if (!s)
        return false;
    char* end = nullptr;
    errno = 0;
    const long v = std::strtol(s, &end, 10);
    if (errno == ERANGE || end == s || *end != '\0')
        return false;
    *out = v;
    return true;
}

void copyText(char* errBuf, const char* text) {
    const size_t length = strnlen(text, 2047);
    std::memcpy(errBuf, text, length);
    errBuf[length] = '\0';
}

bool atolShape(const char* s, size_t n) {
    size_t i = 0;
    if (n > 0 && (s[0] == '+' || s[0] == '-')) {
        if (n == 1)
            return false;
        i = 1;
    }
    for (; i < n; ++i)
        if (!isDigit(s[i]))
            return false;
    return true;
}

} // namespace

//===-- Table context -----------------------------------------------------===//

void NUMCNV_SetTableContext(const char* qualifiedTable, const char* column) {
    TableContext& context = t_tableContext;
    if (!qualifiedTable || !*qualifiedTable) {
        NUMCNV_ClearTableContext();
        return;
    }
    context.table = qualifiedTable;
    context.column = column ? column : "";
    context.published = true;
}

void NUMCNV_ClearTableContext() {
    TableContext& context = t_tableContext;
    context.published = false;
    context.table.clear();
    context.column.clear();
}

//===-- Text to integer with limits --------------------------------------===//

int qzGetInt(const char* s, int* out, int min, int max, char* errBuf) {
    long v = 0;
    if (readLong(s, &v) && min <= max && v >= min && v <= max) {
        *out = static_cast<int>(v);
        return 1;
    }
    if (errBuf) {
        const char* text = s ? s : "";
        copyText(errBuf, detail::faultText(QZ_MESSAGE_SITE(Module, TextId, "qzGetInt"), 10001965,
                                           text, min, max));
    }
    return 0;
}

int qzGetLong(const char* s, long* out, long min, long max, char (&errBuf)[2048]) {
    long v = 0;
    if (readLong(s, &v) && min <= max && v >= min && v <= max) {
        *out = v;
        return 1;
    }
    const char* text = s ? s : "";
    copyText(errBuf, detail::faultText(QZ_MESSAGE_SITE(Module, TextId, "qzGetLong"), 10001966, text,
                                       min, max));
    return 0;
}

int qzGetUshort(const char* s, unsigned short* out, unsigned short min, unsigned short max,
                char* errBuf) {
    long v = 0;
    if (readLong(s, &v) && min <= max && v >= min && v <= max) {
        *out = static_cast<unsigned short>(v);
        return 1;
    }
    if (errBuf) {
        const char* text = s ? s : "";
        copyText(errBuf,
                 detail::faultText(QZ_MESSAGE_SITE(Module, TextId, "qzGetUshort"), 10001967, text,
                                   static_cast<unsigned int>(min), static_cast<unsigned int>(max)));
    }
    return 0;
}

int qz_atol(const char* s, long* out) {
    if (!s || !atolShape(s, std::strlen(s)))
        return 1;
    *out = std::strtol(s, nullptr, 10);
    return 0;
}

int qz_atol(const char* s, size_t n, long* out) {
    if (!s)
        return 1;
    if (n == 0) {
        *out = std::strtol(s, nullptr, 10);
        return 0;
    }
    if (!atolShape(s, n))
        return 1;
    // Only the n characters are read: strtol over s itself ran on into
    // whatever followed them, past the caller's text when it had no NUL.
    char local[64];
    if (n < sizeof local) {
        std::memcpy(local, s, n);
        local[n] = '\0';
        *out = std::strtol(local, nullptr, 10);
    } else {
        *out = std::strtol(std::string(s, n).c_str(), nullptr, 10);
    }
    return 0;
}

//===-- Text checks ------------------------------------------------------===//

bool NUMCNV_string_is_integer(const char* s) {
    if (!s)
        return false;
    if (*s == '+' || *s == '-')
        ++s;
    if (!isDigit(*s))
        return false;
    while (isDigit(*s))
        ++s;
    return *s == '\0';
}

bool validate_numeric_string(const char* s, size_t n) {
    if (!s || n == 0)
        return false;
    if (!isDigit(s[0]) && s[0] != '+' && s[0] != '-' && s[0] != '.')
        return false;
    bool point = s[0] == '.';
    bool exponent = false;
    for (size_t i = 1; i < n; ++i) {
        const char c = s[i];
        if (isDigit(c))
            continue;
        if (c == '.') {
            if (point || exponent)
                return false;
            point = true;
        } else if (isExponentLetter(c)) {
            if (exponent)
                return false;
            exponent = true;
        } else if (c == '+' || c == '-') {
            if (!isExponentLetter(s[i - 1]))
                return false;
        } else {
            return false;
        }
    }
    return true;
}

const char* NUMCNV_getEndOfNumberToken(const char* p, int allowPoint, int allowExponent) {
    const char* q = p;
    if (*q == '+' || *q == '-')
        ++q;
    bool digit = false;
    for (; isDigit(*q); ++q)
        digit = true;
    if (allowPoint && *q == '.')
        for (++q; isDigit(*q); ++q)
            digit = true;
    if (!digit)
        return p;
    if (allowExponent && isExponentLetter(*q)) {
        const char* e = q + 1;
        if (*e == '+' || *e == '-')
            ++e;
        if (isDigit(*e)) {
            while (isDigit(*e))
                ++e;
            q = e;
        }
    }
    return q;
}

void NUMCNV_hex_to_bin(unsigned char* hex, int n, unsigned char* out, int* outLen) {
    int count = 0;
    // Each pair is copied out with its own NUL: sscanf over the caller's
    // text read on past its n characters (an odd n, or no NUL behind them).
    for (int i = 0; hex && i < n; i += 2) {
        char pair[3] = {static_cast<char>(hex[i]), i + 1 < n ? static_cast<char>(hex[i + 1]) : '\0',
                        '\0'};
        unsigned int byte = 0;
        if (std::sscanf(pair, "%2X", &byte) != 1)
            break;
        out[count++] = static_cast<unsigned char>(byte);
    }
    if (outLen)
        *outLen = count;
}

//===-- Text to scaled 64-bit --------------------------------------------===//

int NUMCNV_getNumeric(const char* s, size_t n, long* value, short* scale, int honourSuffix) {
    if (quickNumeric(s, n, value, scale))
        return 1;
    return parseNumeric(s, n, SIZE_MAX, value, scale, honourSuffix,
                        Caller{TextId, "NUMCNV_getNumeric"});
}

int NUMCNV_getUnsignedNumFromStr(const char* s, size_t n, unsigned long* value) {
    uint64_t v = 0;
    for (size_t i = 0; i < n; ++i) {
        const unsigned d = digitOf(s[i]);
        if (d > 9)
            return 0;
        v = v * 10 + d; // kept on purpose: no overflow test
    }
    if (n > 20)
        raiseRange(QZ_MESSAGE_SITE(Module, TextId, "NUMCNV_getUnsignedNumFromStr"), 1072, 1736,
                   20UL, static_cast<unsigned long>(n));
    *value = v;
    return 1;
}

int NUMCNV_convertTo64Bit(const char* s, int n, long* value, short* scale) {
    if (n < 1)
        return -1;
    if (quickTo64Bit(s, n, value, scale))
        return 0;
    const char* const end = s + n;
    LeadIn lead;
    const char* p = skipLeadIn(s, end, lead);
    const bool negative = lead.negative;
    bool point = lead.point;
    long sc = lead.zerosBehindPoint;
    if (p == end || isExponentLetter(*p)) {
        *value = 0;
        *scale = 0;
        return 0;
    }
    unsigned d = digitOf(*p);
    if (d > 9)
        return -1;
    uint64_t v = d;
    if (point)
        ++sc;
    int taken = 1;
    for (++p; p < end; ++p) {
        d = digitOf(*p);
        if (d <= 9) {
            if (taken < 18) {
                v = v * 10 + d;
                ++taken;
                if (point)
                    ++sc;
            } else if (taken == 18) {
                // The 19th digit is taken only as the last character and
                // when the value still fits; the bound used to be written so
                // that 922337203685477588 and a last 9 slipped through and
                // wrapped. Otherwise it only rounds.
                const uint64_t limit = negative ? static_cast<uint64_t>(1) << 63 : INT64_MAX;
                if (p + 1 == end && v <= (limit - d) / 10) {
                    v = v * 10 + d;
                    if (point)
                        ++sc;
                } else {
                    if (d >= 5)
                        ++v;
                    if (!point)
                        --sc;
                }
                taken = 19;
            } else if (!point) {
                --sc;
            }
            continue;
        }
        if (*p == '.' && !point) {
            point = true;
            continue;
        }
        if (isExponentLetter(*p)) {
            int exponent = 0;
            if (!readExponent(p + 1, end, &exponent))
                return -1;
            sc -= exponent;
            break;
        }
        return -1;
    }
    while (v != 0 && v % 10 == 0) {
        v /= 10;
        --sc;
    }
    // A scale past 16 bits used to be stored truncated, a value off by a
    // power of ten with no word; it is out of range for the caller's pair.
    if (sc < SHRT_MIN || sc > SHRT_MAX)
        return -1;
    *value = static_cast<long>(negative ? 0 - v : v);
    *scale = static_cast<short>(sc);
    return 0;
}

int NUMCNV_convertToScientific(const char* s, int n, char* dst, size_t dstSize) {
    if (n < 1 || dstSize < 11)
        return -1;
    Scanned number;
    const int found = scanNumber(s, n, number);
    if (found < 0)
        return -1;
    if (found == 0) {
        writeZero(dst);
        return 1;
    }
    char* o = dst;
    if (number.negative)
        *o++ = '-';
    char* const digitsBegin = o;
    *o++ = number.digit(0);
    *o++ = '.';
    // Mantissa and sign get dstSize - 7 bytes: "E-9999" and the NUL fit behind.
    const size_t mantissa = dstSize - 7;
    long k = 1;
    while (static_cast<size_t>(o - dst) < mantissa && k < number.count)
        *o++ = number.digit(k++);
    long exponent = number.exponent;
    if (k < number.count && number.digit(k) >= '5' && !carry(digitsBegin, o)) {
        // All nines: the mantissa becomes "1", a power of ten higher.
        o = digitsBegin;
        *o++ = '1';
        ++exponent;
    }
    while (o > digitsBegin + 1 && o[-1] == '0')
        --o;
    if (o[-1] == '.')
        --o;
    if (exponent < -9999 || exponent > 9999)
        return -1;
    if (exponent != 0) {
        *o++ = 'E';
        o += i32ToString(static_cast<int32_t>(exponent), o);
    } else {
        *o = '\0';
    }
    return static_cast<int>(o - dst);
}

int NUMCNV_convertToFixedPrec(const char* s, int n, char* dst, int scale, size_t dstSize) {
    // dstSize 0 leaves no room even for "0" and its NUL.
    if (n < 1 || dstSize < 2)
        return -1;
    Scanned number;
    const int found = scanNumber(s, n, number);
    if (found < 0)
        return -1;
    if (found == 0) {
        writeZero(dst);
        return 1;
    }
    const size_t room = dstSize - 1 - (number.negative ? 1 : 0); // for sign and NUL
    const long integerDigits = number.exponent + 1 > 1 ? number.exponent + 1 : 1;
    if (static_cast<unsigned long>(integerDigits) > room) {
        if (number.negative && dstSize == 2) {
            // One byte: no room for the '-'; what rounds to zero is "0".
            const bool belowHalf =
                number.exponent < -1 || (number.exponent == -1 && number.digit(0) < '5');
            if (belowHalf) {
                writeZero(dst);
                return 1;
            }
        }
        return -1;
    }
    char* o = dst;
    if (number.negative)
        *o++ = '-';
    char* const digitsBegin = o;
    for (long power = integerDigits - 1; power >= 0; --power)
        *o++ = number.at(power);
    char* const integerEnd = o;
    const long spare = static_cast<long>(room) - integerDigits - 1; // behind the '.'
    const long fraction = scale > 0 ? (scale < spare ? scale : spare) : 0;
    if (fraction > 0) {
        *o++ = '.';
        for (long power = -1; power >= -fraction; --power)
            *o++ = number.at(power);
    }
    const size_t limit = dstSize - 1;
    if (scale >= 0) {
        if (number.at(-fraction - 1) >= '5' && !carry(digitsBegin, o) &&
            !growWithOne(digitsBegin, &o, dst, limit))
            return -1;
    } else {
        // Rounded once, at the digit the scale names: rounding first to the
        // units as well would turn 4.5 into 10 at scale -1.
        const long zeros = -static_cast<long>(scale);
        if (zeros > integerDigits) {
            writeZero(dst);
            return 1;
        }
        const bool up = number.at(zeros - 1) >= '5';
        std::memset(integerEnd - zeros, '0', static_cast<size_t>(zeros));
        if (up) {
            if (zeros == integerDigits) {
                // Every digit was replaced: the result is 1 and the zeros.
                if (!growWithOne(digitsBegin, &o, dst, limit))
                    return -1;
            } else if (!carry(digitsBegin, integerEnd - zeros) &&
                       !growWithOne(digitsBegin, &o, dst, limit)) {
                return -1;
            }
        }
    }
    // Nothing but zeros: "0", so that "-0" never comes out.
    bool allZero = true;
    for (const char* p = digitsBegin; p < o && allZero; ++p)
        allZero = *p == '0' || *p == '.';
    if (allZero) {
        writeZero(dst);
        return 1;
    }
    *o = '\0';
    return static_cast<int>(o - dst);
}

int NUMCNV_copyNumberString(const char* s, int n, char* dst, int dstSize, const col_def* col) {
    if (n < 0 || dstSize < 1)
        return -1;
    const size_t size = static_cast<size_t>(dstSize);
    int length;
    if (col && (col->sub_data_type == 3 || col->sub_data_type == 37)) {
        length = NUMCNV_convertToFixedPrec(s, n, dst, col->scale, size);
        if (length == -1)
            length = NUMCNV_convertToScientific(s, n, dst, size);
    } else if (n < dstSize) {
        std::memcpy(dst, s, static_cast<size_t>(n));
        dst[n] = '\0';
        length = n;
    } else {
        length = NUMCNV_convertToScientific(s, n, dst, size);
    }
    if (length < 0)
        return length;
    const int sign = (dst[0] == '+' || dst[0] == '-') ? 1 : 0;
    int zeros = 0;
    while (sign + zeros < length && dst[sign + zeros] == '0')
        ++zeros;
    if (zeros > 0) {
        std::memmove(dst + sign, dst + sign + zeros,
                     static_cast<size_t>(length - sign - zeros) + 1);
        length -= zeros;
    }
    const char* rest = dst + sign;
    if (*rest == '\0' || isExponentLetter(*rest) ||
        (*rest == '.' && (rest[1] == '\0' || isExponentLetter(rest[1])))) {
        // A one-byte target held the empty copy but has no room for "0".
        if (dstSize < 2)
            return -1;
        writeZero(dst);
        return 1;
    }
    return length;
}

int NUMCNV_getColNumDataAs64Bit(col_def* col, const char* data, long* value, short* scale) {
    if (!col || !data)
        return -1;
    const size_t length = col->int_len > 0 ? static_cast<size_t>(col->int_len) : 0;
    switch (col->data_type) {
    case QZ_DT_VARCHAR: {
        const short sub = col->sub_data_type;
        if (sub == 2 || sub == 3 || sub == 35 || sub == 37) {
            // The length field is trusted only up to the column's length.
            const char* text = nullptr;
            size_t textLength = 0;
            if (!varcharText(data, length, &text, &textLength))
                return -1;
            return NUMCNV_convertTo64Bit(text, static_cast<int>(textLength), value, scale);
        }
        break;
    }
    case 0:
    case 1:
        return NUMCNV_getNumeric(data, length, value, scale, 0) == 1 ? 0 : -1;
    case QZ_DT_FLOAT: {
        // A single is widened first: read as a double it was 8 bytes from 4.
        const double widened = load<float>(data);
        return get_ll_from_double(&widened, value, scale) == 1 ? 0 : -1;
    }
    case QZ_DT_DOUBLE:
        return get_ll_from_double(data, value, scale) == 1 ? 0 : -1;
    default:
        break;
    }
    if (!num_to_ll(value, data, length,
                   static_cast<size_t>(col->precision > 0 ? col->precision : 0), col->data_type))
        return -1;
    *scale = col->scale;
    return 0;
}

//===-- Scale and 64-bit arithmetic --------------------------------------===//

void adjust_scale(long* value, short scale, short targetScale) {
    if (*value == 0 || scale == targetScale)
        return;
    if (scale < targetScale) {
        long v = *value;
        for (int step = targetScale - scale; step > 0 && v != 0; --step) {
            const long remainder = v % 10;
            v /= 10;
            // Half away from zero on the last step, without the overflow
            // that adding 5 first would risk at the ends of the range.
            if (step == 1) {
                if (remainder >= 5)
                    ++v;
                else if (remainder <= -5)
                    --v;
            }
        }
        *value = v;
        return;
    }
    const int steps = scale - targetScale;
    const long original = *value;
    long limit = original > 0 ? LONG_MAX : LONG_MIN;
    for (int step = 0; step < steps && limit != 0; ++step)
        limit /= 10;
    if (original > 0 && original > limit)
        detail::raiseFault(QZ_MESSAGE_SITE(Module, TextId, "adjust_scale"), 2775, original,
                           static_cast<int>(scale), static_cast<int>(targetScale), limit);
    else if (original < 0 && original < limit)
        detail::raiseFault(QZ_MESSAGE_SITE(Module, TextId, "adjust_scale"), 2774, original,
                           static_cast<int>(scale), static_cast<int>(targetScale), limit);
    // Kept on purpose: multiplied regardless, wrapping (64 steps reach 0).
    uint64_t v = static_cast<uint64_t>(original);
    for (int step = 0; step < steps && v != 0; ++step)
        v *= 10;
    *value = static_cast<long>(v);
}

long qzs_pow10(short n) {
    if (n < 0)
        return 1;
    uint64_t v = 1;
    for (short i = 0; i < n && v != 0; ++i)
        v *= 10; // kept on purpose: wraps past 10^18
    return static_cast<long>(v);
}

//===-- Database forms and 64-bit values ---------------------------------===//

int num_to_ll(long* value, const char* data, size_t length, size_t precision, short type) {
    const Caller caller{IntId, "num_to_ll"};
    short scale = 0;
    switch (type) {
    // Binary forms: the field's length bounds the read.
    case QZ_DT_INT16:
        if (length < 2)
            return 0;
        *value = load<int16_t>(data);
        return 1;
    case QZ_DT_UINT16:
        if (length < 2)
            return 0;
        *value = load<uint16_t>(data);
        return 1;
    case QZ_DT_INT32:
        if (length < 4)
            return 0;
        *value = load<int32_t>(data);
        return 1;
    case QZ_DT_UINT32:
        if (length < 4)
            return 0;
        *value = load<uint32_t>(data);
        return 1;
    case QZ_DT_INT64:
    case QZ_DT_UINT64:
        if (length < 8)
            return 0;
        *value = load<int64_t>(data);
        return 1;
    case QZ_DT_UNSIGNED:
    case QZ_DT_SIGN_FIRST:
        return parseNumeric(data, length, SIZE_MAX, value, &scale, 0, caller);
    case QZ_DT_SIGN_HIGH:
    case QZ_DT_SIGN_LOW: {
        // No byte to hold the sign: reading it was a read before the data.
        if (length == 0)
            return 0;
        const size_t signAt = type == QZ_DT_SIGN_HIGH ? 0 : length - 1;
        long v = 0;
        if (!parseNumeric(data, length, signAt, &v, &scale, 0, caller))
            return 0;
        if (static_cast<unsigned char>(data[signAt]) & 0x80)
            v = static_cast<long>(0 - static_cast<uint64_t>(v));
        *value = v;
        return 1;
    }
    case QZ_DT_SIGN_LAST: {
        if (length < 2)
            return 0;
        long v = 0;
        if (!parseNumeric(data, length - 1, SIZE_MAX, &v, &scale, 0, caller))
            return 0;
        if (data[length - 1] == '-')
            v = static_cast<long>(0 - static_cast<uint64_t>(v));
        *value = v;
        return 1;
    }
    case QZ_DT_VARCHAR: {
        const char* text = nullptr;
        size_t textLength = 0;
        if (!varcharText(data, length, &text, &textLength) || textLength == 0)
            return 0;
        return parseNumeric(text, textLength, SIZE_MAX, value, &scale, 0, caller);
    }
    case QZ_DT_PACKED:
        return get_packed_decimal(data, length, precision, value);
    default:
        return 1;
    }
}

int ll_to_num(long value, char* dst, size_t length, short type, size_t precision) {
    // Only the upper limits are tested (kept on purpose: a negative value
    // goes into 131 and 133 as its low bits). The field's length must hold
    // the size.
    switch (type) {
    case QZ_DT_INT16:
    case QZ_DT_UINT16:
        if (value > (type == QZ_DT_INT16 ? INT16_MAX : UINT16_MAX) || length < 2)
            return 0;
        store(dst, static_cast<uint16_t>(value));
        return 2;
    case QZ_DT_INT32:
    case QZ_DT_UINT32:
        if (value > (type == QZ_DT_INT32 ? static_cast<long>(INT32_MAX)
                                         : static_cast<long>(UINT32_MAX)) ||
            length < 4)
            return 0;
        store(dst, static_cast<uint32_t>(value));
        return 4;
    case QZ_DT_INT64:
    case QZ_DT_UINT64:
        if (length < 8)
            return 0;
        store(dst, static_cast<int64_t>(value));
        return 8;
    default:
        break;
    }
    // Straight into the field without the terminator, which is what the
    // scratch copy was for.
    size_t written = 0;
    if (writeDecimal(value, dst, length, type, precision, &written, false) != 0)
        return 0;
    return static_cast<int>(written);
}

int ll_to_dec(long value, char* dst, size_t length, short type, size_t precision, size_t* outLen) {
    return writeDecimal(value, dst, length, type, precision, outLen, true);
}

int convert_num_to_binary(char* dst, const char* data, size_t length, short type, size_t size,
                          size_t precision) {
    long value = 0;
    if (!num_to_ll(&value, data, length, precision, type))
        return 0;
    switch (size) {
    case 1:
        if (value < INT8_MIN || value > INT8_MAX)
            return 0;
        store(dst, static_cast<int8_t>(value));
        return 1;
    case 2:
        if (value < INT16_MIN || value > INT16_MAX)
            return 0;
        store(dst, static_cast<int16_t>(value));
        return 1;
    case 4:
        if (value < INT32_MIN || value > INT32_MAX)
            return 0;
        store(dst, static_cast<int32_t>(value));
        return 1;
    case 8:
        store(dst, static_cast<int64_t>(value));
        return 1;
    default:
        return 0;
    }
}

int output_decimal(char* dst, const char* data, short type, short scale, size_t length,
                   size_t precision) {
    long value = 0;
    if (!num_to_ll(&value, data, length, precision, type)) {
        dst[0] = '\0';
        return 0;
    }
    return output_binary_int(dst, &value, scale, 8, type != QZ_DT_UNSIGNED);
}

int output_binary_int(char* dst, const void* src, short scale, size_t size, short isSigned) {
    // The sign and the magnitude, so that the digits go straight into dst.
    int64_t v;
    switch (size) {
    case 1:
        v = isSigned ? load<int8_t>(src) : load<uint8_t>(src);
        break;
    case 2:
        v = isSigned ? load<int16_t>(src) : load<uint16_t>(src);
        break;
    case 4:
        v = isSigned ? load<int32_t>(src) : load<uint32_t>(src);
        break;
    case 8:
        if (!isSigned)
            return writeScaled(dst, false, load<uint64_t>(src), scale);
        v = load<int64_t>(src);
        break;
    default:
        dst[0] = '\0';
        return 0;
    }
    const bool negative = v < 0;
    return writeScaled(dst, negative,
                       negative ? 0 - static_cast<uint64_t>(v) : static_cast<uint64_t>(v), scale);
}

//===-- Floating point ---------------------------------------------------===//

int get_double(const char* s, size_t n, double* out) {
    const size_t length = s ? strnlen(s, n) : 0;
    // The copy is bounded by its buffer: a long text used to be copied into
    // the fixed one whatever its length. Longer texts take the heap.
    char local[128];
    if (length < sizeof local) {
        if (length)
            std::memcpy(local, s, length);
        local[length] = '\0';
        *out = std::strtod(local, nullptr);
    } else {
        *out = std::strtod(std::string(s, length).c_str(), nullptr);
    }
    return 1;
}

int get_ll_from_double(const void* d, long* value, short* scale) {
    const double v = load<double>(d);
    if (!std::isfinite(v) || std::fabs(v) >= 9223372036854775808.0)
        return 0;
    // The shortest fixed form of a double below 2^63 has at most 19 digits
    // before the point and, for the smallest subnormal, 1074 behind it.
    char text[1200];
    const std::to_chars_result r =
        std::to_chars(text, text + sizeof text, v, std::chars_format::fixed);
    if (r.ec != std::errc())
        return 0;
    const size_t length = static_cast<size_t>(r.ptr - text);
    return parseNumeric(text, length, SIZE_MAX, value, scale, 0,
                        Caller{IntId, "get_ll_from_double"});
}

int output_float(char* dst, const void* src, size_t size) {
    if (size == 4)
        return std::snprintf(dst, 32, "%.14g", static_cast<double>(load<float>(src)));
    return std::snprintf(dst, 32, "%.17g", load<double>(src));
}

void convert_from_tdm_float(void* v, size_t size) {
    if (size != 4)
        return;
    const uint32_t word = load<uint32_t>(v);
    const uint32_t fraction = (word >> 9) & 0x3FFFFF;
    const int exponent = static_cast<int>(word & 0x1FF) - 256;
    // 1 + m / 2^22 is exact in a single; ldexp saturates to infinity or 0
    // where a conversion from double would be undefined.
    float result = std::ldexp(1.0f + static_cast<float>(fraction) / 4194304.0f, exponent);
    if (word & 0x80000000u)
        result = -result;
    store(v, result);
}

int convert_bin_to_dec(const void* src, char* dst, size_t size) {
    if (size >= 9) {
        dst[0] = '\0';
        return 0;
    }
    const unsigned char* bytes = static_cast<const unsigned char*>(src);
    uint64_t v = 0;
    bool significant = false;
    for (size_t i = 0; i < size; ++i) {
        v = v << 8 | bytes[i];
        significant = significant || (bytes[i] & ~0x20u) != 0;
    }
    i64ToString(static_cast<int64_t>(v), dst);
    return significant ? 1 : 0;
}

double NUMCNV_nativeToZorvexDouble(double value) {
    uint64_t bits = load<uint64_t>(&value);
    bits = value < 0 ? ~bits : bits | (static_cast<uint64_t>(1) << 63);
    bits = __builtin_bswap64(bits);
    return load<double>(&bits);
}

float NUMCNV_nativeToZorvexFloat(float value) {
    uint32_t bits = load<uint32_t>(&value);
    bits = value < 0 ? ~bits : bits | 0x80000000u;
    bits = __builtin_bswap32(bits);
    return load<float>(&bits);
}

//===-- Packed decimal ---------------------------------------------------===//

int get_packed_decimal(const char* src, size_t bytes, size_t precision, long* value) {
    if (bytes == 0)
        return 0;
    const unsigned char* p = reinterpret_cast<const unsigned char*>(src);
    const bool skipFirstHigh = precision % 2 == 0;
    uint64_t v = 0;
    // Two digits a byte up to the last, whose low nibble is the sign, two
    // bytes a step; past 19 digits the value wraps.
    const size_t last = bytes - 1;
    if (last > 0) {
        const unsigned first = PackedPairs[skipFirstHigh ? p[0] & 0x0F : p[0]];
        if (first & 0x80)
            return 0;
        size_t i = 1;
        v = first;
        if (v == 0)
            while (i < last && p[i] == 0)
                ++i;
        for (; i + 1 < last; i += 2) {
            const unsigned a = PackedPairs[p[i]];
            const unsigned b = PackedPairs[p[i + 1]];
            if ((a | b) & 0x80)
                return 0;
            v = v * 10000 + a * 100 + b;
        }
        if (i < last) {
            const unsigned a = PackedPairs[p[i]];
            if (a & 0x80)
                return 0;
            v = v * 100 + a;
        }
    }
    const unsigned signByte = p[last];
    const unsigned high = (last == 0 && skipFirstHigh) ? 0 : signByte >> 4;
    if (high > 9)
        return 0;
    v = v * 10 + high;
    *value = static_cast<long>((signByte & 0x0F) == 0x0D ? 0 - v : v);
    return 1;
}

int output_packed_decimal(const char* digits, size_t nDigits, char* dst, size_t dstLen,
                          short negative) {
    return packDigits(digits, nDigits, 0, dst, dstLen, negative != 0);
}
