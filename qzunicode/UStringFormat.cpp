//===- qzunicode/UStringFormat.cpp - UString's own printf -----------------===//
//
// The format engine writes UTF-16 straight into the string's body. The
// directive parser is a state machine whose classes and transitions share one
// per-thread 256-entry table, so each format unit costs one lookup for its
// class and one for the next state. Numbers are built in local buffers;
// floating point digits come from std::to_chars, never from the C library's
// formatter.
//
//===----------------------------------------------------------------------===//
#include "qzunicode/UString.h"

#include "qzstd/ThreadLocalStorage.h"
#include "qzunicode/ULib.h"
#include "qzunicode/detail/LookupTable.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace qzs {
namespace qzlib {
namespace qzunicode {

namespace {

using Impl = UString::uStrImpl;

// Parser classes and states. The class of a unit sits in the low nibble of
// its table byte; the next state for (class, state) sits in the high nibble
// of the byte at kStateBase + class * 9 + state. Both share bytes 0x20 to
// 0x70, which is why the table holds nibbles rather than two arrays.
enum CharClass : unsigned char {
    kOther,
    kPercent,
    kDot,
    kStar,
    kZero,
    kDigit,
    kFlag,
    kSize,
    kType,
};
enum State : unsigned char {
    kNormal,
    kInPercent,
    kInFlag,
    kInWidth,
    kInDot,
    kInPrecision,
    kInSize,
    kInType,
    kInvalid,
};
constexpr unsigned kStateBase = 0x20;
constexpr unsigned kStates = 9;

constexpr unsigned char kNext[kStates][kStates] = {
    //   0  1  2  3  4  5  6  7  8   (state)
    {0, 8, 8, 8, 8, 8, 8, 0, 0}, // other
    {1, 0, 8, 8, 8, 8, 8, 1, 0}, // percent
    {0, 4, 4, 4, 8, 8, 8, 0, 0}, // dot
    {0, 3, 3, 8, 5, 8, 8, 0, 0}, // star
    {0, 2, 2, 3, 5, 5, 8, 0, 0}, // zero
    {0, 3, 3, 3, 5, 5, 8, 0, 0}, // digit
    {0, 2, 2, 8, 8, 8, 8, 0, 0}, // flag
    {0, 6, 6, 6, 6, 6, 6, 0, 0}, // size
    {0, 7, 7, 7, 7, 7, 7, 0, 0}, // type
};

struct CharClassTable {
    LookupTable<unsigned char> table;
    CharClassTable() {
        auto mark = [this](const char* units, CharClass c) {
            for (; *units != 0; ++units)
                table.set(static_cast<unsigned char>(*units), c);
        };
        mark("%", kPercent);
        mark(".", kDot);
        mark("*", kStar);
        mark("0", kZero);
        mark("123456789", kDigit);
        mark(" #+-", kFlag);
        mark("hlL", kSize);
        mark("EGUXcdefginopsux", kType);
        for (unsigned c = 0; c < kStates; ++c)
            for (unsigned s = 0; s < kStates; ++s) {
                const unsigned key = kStateBase + c * kStates + s;
                table.set(key,
                          static_cast<unsigned char>((table.get(key) & 0x0F) | (kNext[c][s] << 4)));
            }
    }
};

// Made on a thread's first format, so that format takes no lock.
using _CharClass = ThreadLocal::ThreadLocalWrapper<CharClassTable>;

// Flag bits of one directive.
enum : unsigned {
    kPlus = 0x1,
    kSpace = 0x2,
    kMinus = 0x4,
    kZeroPad = 0x8,
    kSigned = 0x10,
    kAlt = 0x20,
    kOctalZero = 0x80,
    kHH = 0x100,
    kH = 0x200,
    kL = 0x400,
    kLL = 0x800,
    kLongDouble = 0x1000,
    k64 = 0x2000,
};

constexpr int kMaxArgs = 100;
constexpr std::size_t kDefaultCapacity = 256;
// A narrow 's' argument goes through a scratch buffer of this many bytes.
constexpr int kNarrowScratchBytes = 1024;

// Argument kinds of the positional slots: 1 to 5 take one general register
// word, 6 a long double, 7 a double.
enum ArgKind : unsigned char {
    kUnused = 0,
    kInt = 1,
    kInt64 = 2,
    kPointer = 3,
    kLongDoubleArg = 6,
    kDoubleArg = 7,
};

struct Slot {
    ArgKind kind;
    unsigned short letter;
    unsigned flags;
    va_list saved; // positioned at this argument
};

bool isIntegerLetter(unsigned short t) {
    return t == 'd' || t == 'i' || t == 'o' || t == 'u' || t == 'x' || t == 'X' || t == '*';
}

bool isFloatLetter(unsigned short t) {
    return t == 'e' || t == 'f' || t == 'g' || t == 'E' || t == 'G';
}

ArgKind kindOf(unsigned short type, unsigned flags) {
    if (isFloatLetter(type))
        return (flags & kLongDouble) ? kLongDoubleArg : kDoubleArg;
    if (type == 'p' || type == 's' || type == 'U' || type == 'n')
        return kPointer;
    if (type == 'c')
        return kInt;
    return (flags & (kL | kLL)) ? kInt64 : kInt;
}

// Two uses of one positional number must take the same argument. The
// integer letters (and '*') agree with each other whatever their size, and
// the wider size wins the stepping; every other letter agrees only with
// itself, and the floating letters only at the same size.
bool compatible(const Slot& slot, unsigned short type, ArgKind kind) {
    if (isIntegerLetter(slot.letter) && isIntegerLetter(type))
        return true;
    if (isFloatLetter(slot.letter) && isFloatLetter(type))
        return slot.kind == kind;
    return slot.letter == type;
}

// The output side: the body written in place, with its length kept in a
// local and published before any reallocation.
class Writer {
public:
    Writer(Impl*& body) : m_rBody(body), m_uLen(0) {
        m_pOut = body->m_pPrimary;
        m_uCap = body->m_uPrimaryCap;
    }

    std::size_t length() const { return m_uLen; }

    void unit(unsigned short u) {
        if (m_uLen >= m_uCap)
            grow(1);
        m_pOut[m_uLen++] = u;
    }
    void units(const unsigned short* s, std::size_t n) {
        reserve(n);
        std::memcpy(m_pOut + m_uLen, s, n * sizeof(unsigned short));
        m_uLen += n;
    }
    void bytes(const char* s, std::size_t n) {
        reserve(n);
        for (std::size_t i = 0; i < n; ++i)
            m_pOut[m_uLen + i] = static_cast<unsigned char>(s[i]);
        m_uLen += n;
    }
    void fill(unsigned short u, std::size_t n) {
        reserve(n);
        for (std::size_t i = 0; i < n; ++i)
            m_pOut[m_uLen + i] = u;
        m_uLen += n;
    }
    void reserve(std::size_t n) {
        if (m_uLen + n > m_uCap)
            grow(n);
    }
    void finish() {
        m_rBody->m_uPrimaryLen = m_uLen;
        m_pOut[m_uLen] = 0;
    }

private:
    void grow(std::size_t n) {
        m_rBody->m_uPrimaryLen = m_uLen;
        m_pOut[m_uLen] = 0;
        m_rBody = m_rBody->alterable(m_uLen + n + 128);
        m_pOut = m_rBody->m_pPrimary;
        m_uCap = m_rBody->m_uPrimaryCap;
    }

    Impl*& m_rBody;
    unsigned short* m_pOut;
    std::size_t m_uLen;
    std::size_t m_uCap;
};

struct Directive {
    unsigned flags = 0;
    long long width = -1;
    long long precision = -1;
    unsigned short type = 0;
};

// Results over INT_MAX units cannot be counted in the int the caller gets.
constexpr long long kMaxField = INT_MAX;
// A width or precision past this fails the format rather than ask for
// gigabytes of padding over a bad format (16 M units, 32 MiB).
constexpr long long kMaxWidth = 1LL << 24;

// The digits of a number: a, then a '.' when dot, then zeros made up, then b.
struct Digits {
    const char* a;
    std::size_t an;
    bool dot;
    std::size_t zeros;
    const char* b;
    std::size_t bn;
    std::size_t size() const { return an + (dot ? 1 : 0) + zeros + bn; }
};

// Lays out prefix (sign or 0x), leading zeros, digits and padding as printf
// does: '-' pads on the right, '0' pads with zeros behind the prefix,
// otherwise spaces go on the left. False when the result could not be
// counted in an int.
bool putField(Writer& out, const Directive& d, const char* prefix, std::size_t prefixLen,
              std::size_t zeros, const Digits& digits, bool zeroPadOk) {
    const long long content = static_cast<long long>(prefixLen + zeros + digits.size());
    const long long pad = d.width > content ? d.width - content : 0;
    if (static_cast<long long>(out.length()) + content + pad > kMaxField)
        return false;
    out.reserve(static_cast<std::size_t>(content + pad));
    const bool left = (d.flags & kMinus) != 0;
    const bool zeroPad = !left && (d.flags & kZeroPad) && zeroPadOk;
    if (!left && !zeroPad)
        out.fill(' ', static_cast<std::size_t>(pad));
    out.bytes(prefix, prefixLen);
    if (zeroPad)
        out.fill('0', static_cast<std::size_t>(pad));
    out.fill('0', zeros);
    out.bytes(digits.a, digits.an);
    if (digits.dot)
        out.unit('.');
    out.fill('0', digits.zeros);
    out.bytes(digits.b, digits.bn);
    if (left)
        out.fill(' ', static_cast<std::size_t>(pad));
    return true;
}

bool putUnits(Writer& out, const Directive& d, const unsigned short* s, std::size_t n) {
    long long pad = d.width > static_cast<long long>(n) ? d.width - static_cast<long long>(n) : 0;
    if (static_cast<long long>(out.length()) + static_cast<long long>(n) + pad > kMaxField)
        return false;
    out.reserve(n + static_cast<std::size_t>(pad));
    if (!(d.flags & kMinus))
        out.fill(' ', static_cast<std::size_t>(pad));
    out.units(s, n);
    if (d.flags & kMinus)
        out.fill(' ', static_cast<std::size_t>(pad));
    return true;
}

bool putInteger(Writer& out, const Directive& d, std::uint64_t magnitude, bool negative) {
    char digits[24];
    char* end = digits + sizeof digits;
    char* p = end;
    const unsigned short t = d.type;
    if (t == 'o') {
        for (std::uint64_t v = magnitude; v != 0; v >>= 3)
            *--p = static_cast<char>('0' + (v & 7));
    } else if (t == 'x' || t == 'X' || t == 'p') {
        const char* hex = t == 'X' ? "0123456789ABCDEF" : "0123456789abcdef";
        for (std::uint64_t v = magnitude; v != 0; v >>= 4)
            *--p = hex[v & 15];
    } else {
        for (std::uint64_t v = magnitude; v != 0; v /= 10)
            *--p = static_cast<char>('0' + v % 10);
    }
    std::size_t len = static_cast<std::size_t>(end - p);
    // A missing precision means at least one digit; precision 0 with the
    // value 0 prints no digits, as printf does.
    const std::size_t minDigits = d.precision < 0 ? 1 : static_cast<std::size_t>(d.precision);
    std::size_t zeros = minDigits > len ? minDigits - len : 0;

    char prefix[2];
    std::size_t prefixLen = 0;
    if (d.flags & kSigned) {
        if (negative)
            prefix[prefixLen++] = '-';
        else if (d.flags & kPlus)
            prefix[prefixLen++] = '+';
        else if (d.flags & kSpace)
            prefix[prefixLen++] = ' ';
    } else if ((d.flags & kAlt) && t == 'o') {
        if (zeros == 0 && (len == 0 || *p != '0'))
            zeros = 1;
    } else if ((d.flags & kAlt) && magnitude != 0 && (t == 'x' || t == 'X' || t == 'p')) {
        prefix[prefixLen++] = '0';
        prefix[prefixLen++] = t == 'X' ? 'X' : 'x';
    }
    return putField(out, d, prefix, prefixLen, zeros, Digits{p, len, false, 0, nullptr, 0},
                    d.precision < 0);
}

// Floating point through std::to_chars, which gives the exactly rounded
// digits printf gives (left to us: the digits need not come from our own
// long double arithmetic, only match printf's forms). Precisions beyond what
// any value needs are cut for the conversion and made up with zeros, which
// is what the exact expansion holds there.
constexpr int kMaxExactDigits = 16500;
constexpr std::size_t kBigDigits = 64 * 1024;

std::size_t trimZeros(const char* buf, std::size_t len) {
    if (std::memchr(buf, '.', len) == nullptr)
        return len;
    while (len > 0 && buf[len - 1] == '0')
        --len;
    if (len > 0 && buf[len - 1] == '.')
        --len;
    return len;
}

template <typename F> bool putFloat(Writer& out, const Directive& d, F value) {
    const unsigned short t = d.type;
    const bool upper = t == 'E' || t == 'G';
    const bool alt = (d.flags & kAlt) != 0;
    char prefix[1];
    std::size_t prefixLen = 0;
    if (std::signbit(value))
        prefix[prefixLen++] = '-';
    else if (d.flags & kPlus)
        prefix[prefixLen++] = '+';
    else if (d.flags & kSpace)
        prefix[prefixLen++] = ' ';
    const F magnitude = std::fabs(value);

    if (!std::isfinite(value)) {
        const char* text = std::isnan(value) ? (upper ? "NAN" : "nan") : (upper ? "INF" : "inf");
        return putField(out, d, prefix, prefixLen, 0, Digits{text, 3, false, 0, nullptr, 0}, false);
    }

    const long long precision = d.precision < 0 ? 6 : d.precision;
    char small[512];
    std::vector<char> big;
    char* buf = small;
    std::size_t bufSize = sizeof small;
    std::size_t len = 0;
    auto digits = [&](std::chars_format fmt, long long prec) -> bool {
        const int p = static_cast<int>(std::min<long long>(prec, kMaxExactDigits));
        for (;;) {
            const std::to_chars_result r = std::to_chars(buf, buf + bufSize, magnitude, fmt, p);
            if (r.ec == std::errc()) {
                len = static_cast<std::size_t>(r.ptr - buf);
                return true;
            }
            if (bufSize >= kBigDigits)
                return false;
            big.resize(kBigDigits);
            buf = big.data();
            bufSize = big.size();
        }
    };
    auto madeUp = [](long long prec) {
        return static_cast<std::size_t>(prec > kMaxExactDigits ? prec - kMaxExactDigits : 0);
    };

    Digits out_{};
    if (t == 'f') {
        if (!digits(std::chars_format::fixed, precision))
            return false;
        out_ = Digits{buf, len, precision == 0 && alt, madeUp(precision), nullptr, 0};
    } else {
        // e: one digit, the point, precision digits, the exponent. g: P
        // significant digits (P = precision, 1 for 0); the exponent X of the
        // e form picks fixed with P - 1 - X decimals when -4 <= X < P, else
        // the e form with P - 1; trailing zeros go unless '#'.
        const bool g = t == 'g' || t == 'G';
        const long long P = precision == 0 ? 1 : precision;
        const long long ePrec = g ? P - 1 : precision;
        if (!digits(std::chars_format::scientific, ePrec))
            return false;
        std::size_t e = static_cast<std::size_t>(std::find(buf, buf + len, 'e') - buf);
        // The digits are not terminated: read the exponent within len.
        int X = 0;
        for (std::size_t i = e + 2; i < len; ++i)
            X = X * 10 + (buf[i] - '0');
        if (buf[e + 1] == '-')
            X = -X;
        if (g && X >= -4 && X < P) {
            const long long fPrec = P - 1 - X;
            if (!digits(std::chars_format::fixed, fPrec))
                return false;
            if (alt)
                out_ = Digits{buf, len, fPrec == 0, madeUp(fPrec), nullptr, 0};
            else
                out_ = Digits{buf, trimZeros(buf, len), false, 0, nullptr, 0};
        } else {
            if (upper)
                buf[e] = 'E';
            if (alt || !g)
                out_ = Digits{buf, e, ePrec == 0 && alt, madeUp(ePrec), buf + e, len - e};
            else
                out_ = Digits{buf, trimZeros(buf, e), false, 0, buf + e, len - e};
        }
    }
    return putField(out, d, prefix, prefixLen, 0, out_, true);
}

const unsigned short kNullText[] = {'N', 'U', 'L', 'L', 'P', 'T', 'R'};

std::size_t unitLength(const unsigned short* s, long long limit) {
    std::size_t n = 0;
    while ((limit < 0 || static_cast<long long>(n) < limit) && s[n] != 0)
        ++n;
    return n;
}

// Kept on purpose: a null 's' or 'U' reads "NULLPTR", cut by the precision
// like any text; and narrow text in a set other than UTF-16 goes through a
// 1,024-byte scratch buffer, so it is cut at 512 units.
bool putText(Writer& out, const Directive& d, ULibCharSet cs, const void* arg) {
    if (arg == nullptr) {
        const std::size_t n = d.precision >= 0 && d.precision < 7
                                  ? static_cast<std::size_t>(d.precision)
                                  : sizeof kNullText / sizeof kNullText[0];
        return putUnits(out, d, kNullText, n);
    }
    if (d.type == 'U') {
        const UString* s = static_cast<const UString*>(arg);
        std::size_t n = s->length();
        if (d.precision >= 0 && static_cast<long long>(n) > d.precision)
            n = static_cast<std::size_t>(d.precision);
        return putUnits(out, d, s->c_wstr(), n);
    }
    if (cs == 1)
        return putUnits(out, d, static_cast<const unsigned short*>(arg),
                        unitLength(static_cast<const unsigned short*>(arg), d.precision));
    // Narrow text: ASCII in a set that keeps ASCII as it is widens directly;
    // anything else is converted, at most 512 units of it.
    const char* s = static_cast<const char*>(arg);
    unsigned short units[kNarrowScratchBytes / 2 + 2];
    std::size_t n = 0;
    bool ascii = CharSetTable::isUSASCIICompatible(cs);
    if (ascii) {
        while (n < kNarrowScratchBytes / 2 && s[n] != 0 &&
               static_cast<unsigned char>(s[n]) < 0x80) {
            units[n] = static_cast<unsigned char>(s[n]);
            ++n;
        }
        ascii = s[n] == 0 || n == kNarrowScratchBytes / 2;
    }
    if (!ascii) {
        ULibError err = ULIB_OK;
        const int bytes = ULIB_CStoCS(static_cast<ULibCharSet>(1), units, kNarrowScratchBytes, 0,
                                      cs, s, -1, false, true, &err, nullptr);
        n = bytes > 0 ? static_cast<std::size_t>(bytes) / 2 : 0;
    }
    if (d.precision >= 0 && static_cast<long long>(n) > d.precision)
        n = static_cast<std::size_t>(d.precision);
    return putUnits(out, d, units, n);
}

bool putChar(Writer& out, const Directive& d, ULibCharSet cs, int arg) {
    unsigned short u = static_cast<unsigned short>(arg);
    if (cs != 1) {
        char bytes[2];
        int n = 0;
        if (u < 0x100) {
            bytes[n++] = static_cast<char>(u);
        } else {
            bytes[n++] = static_cast<char>(u >> 8);
            bytes[n++] = static_cast<char>(u & 0xFF);
        }
        if (u < 0x80 && CharSetTable::isUSASCIICompatible(cs)) {
            // as it is
        } else {
            unsigned short unit[2] = {0, 0};
            ULibError err = ULIB_OK;
            const int w = ULIB_CStoCS(static_cast<ULibCharSet>(1), unit, sizeof unit, 1, cs, bytes,
                                      n, false, true, &err, nullptr);
            u = w >= 2 ? unit[0] : 0;
        }
    }
    return putUnits(out, d, &u, 1);
}

// Stores the count for 'n' at the size the directive names, so a narrower
// target is never overrun.
void storeCount(void* target, unsigned flags, std::size_t count) {
    if (target == nullptr)
        return;
    if (flags & kHH)
        *static_cast<signed char*>(target) = static_cast<signed char>(count);
    else if (flags & kH)
        *static_cast<short*>(target) = static_cast<short>(count);
    else if (flags & (kL | kLL))
        *static_cast<long long*>(target) = static_cast<long long>(count);
    else
        *static_cast<int*>(target) = static_cast<int>(count);
}

// Reads the directive's argument from args and writes it.
bool convert(Writer& out, Directive& d, ULibCharSet cs, va_list& args) {
    switch (d.type) {
    case 'd':
    case 'i': {
        d.flags |= kSigned;
        long long v;
        if (d.flags & (kL | kLL))
            v = va_arg(args, long long);
        else
            v = va_arg(args, int);
        if (d.flags & kHH)
            v = static_cast<signed char>(v);
        else if (d.flags & kH)
            v = static_cast<short>(v);
        const bool negative = v < 0;
        const std::uint64_t m =
            negative ? 0 - static_cast<std::uint64_t>(v) : static_cast<std::uint64_t>(v);
        return putInteger(out, d, m, negative);
    }
    case 'u':
    case 'o':
    case 'x':
    case 'X': {
        std::uint64_t v;
        if (d.flags & (kL | kLL)) {
            v = va_arg(args, unsigned long long);
        } else {
            v = va_arg(args, unsigned int);
            if (d.flags & kHH)
                v = static_cast<unsigned char>(v);
            else if (d.flags & kH)
                v = static_cast<unsigned short>(v);
        }
        return putInteger(out, d, v, false);
    }
    case 'p': {
        // Kept on purpose: 'x' on the 64-bit value, so "0x" only with '#'.
        d.flags |= k64;
        const void* v = va_arg(args, const void*);
        return putInteger(out, d, reinterpret_cast<std::uintptr_t>(v), false);
    }
    case 'e':
    case 'f':
    case 'g':
    case 'E':
    case 'G':
        if (d.flags & kLongDouble)
            return putFloat(out, d, va_arg(args, long double));
        return putFloat(out, d, va_arg(args, double));
    case 'c':
        return putChar(out, d, cs, va_arg(args, int));
    case 's':
    case 'U':
        return putText(out, d, cs, va_arg(args, const void*));
    case 'n':
        storeCount(va_arg(args, void*), d.flags, out.length());
        return true;
    default:
        return false;
    }
}

bool isDigit(unsigned short u) {
    return u >= '0' && u <= '9';
}

// Reads "digits$" at p; on success moves p behind the '$' and gives the
// number, otherwise leaves p and gives 0.
int argumentNumber(const unsigned short*& p) {
    const unsigned short* q = p;
    long long n = 0;
    while (isDigit(*q)) {
        if (n <= kMaxArgs)
            n = n * 10 + (*q - '0');
        ++q;
    }
    if (q == p || *q != '$')
        return 0;
    p = q + 1;
    return n > kMaxArgs ? kMaxArgs + 1 : static_cast<int>(n);
}

// The first directive decides the mode: positional when it opens with
// digits and '$'.
bool isPositional(const unsigned short* p) {
    for (; *p != 0; ++p) {
        if (*p != '%')
            continue;
        if (p[1] == '%') {
            ++p;
            continue;
        }
        const unsigned short* q = p + 1;
        return argumentNumber(q) != 0;
    }
    return false;
}

// One walk over the format. In the collecting pass (slots given, out null)
// it records what each positional argument is; otherwise it formats,
// reading sequential arguments from args or positional ones from the slots.
class Engine {
public:
    Engine(const CharClassTable& classes, ULibCharSet cs, bool positional, Slot* slots)
        : m_roTable(classes.table), m_eCS(cs), m_bPositional(positional), m_poSlots(slots),
          m_nHighest(0) {}

    int highest() const { return m_nHighest; }

    bool run(const unsigned short* fmt, Writer* out, va_list* args) {
        unsigned state = kNormal;
        Directive d;
        int argNumber = 0;
        const unsigned short* p = fmt;
        for (; *p != 0; ++p) {
            const unsigned short u = *p;
            const unsigned cls = u < 0x100 ? (m_roTable.get(u) & 0x0F) : kOther;
            unsigned next = m_roTable.get(kStateBase + cls * kStates + state) >> 4;
            if (next == kInWidth && state == kInPercent && m_bPositional && cls != kStar &&
                argNumber == 0) {
                // "%n$": the argument number, after which flags may follow.
                argNumber = argumentNumber(p);
                if (argNumber == 0 || argNumber > kMaxArgs)
                    return false;
                --p;
                state = kInPercent;
                continue;
            }
            switch (next) {
            case kNormal:
                if (out != nullptr)
                    out->unit(u); // text, or the second '%' of "%%"
                break;
            case kInPercent:
                d = Directive();
                argNumber = 0;
                break;
            case kInFlag:
                d.flags |= u == '-'   ? kMinus
                           : u == '+' ? kPlus
                           : u == ' ' ? kSpace
                           : u == '#' ? kAlt
                                      : kZeroPad;
                break;
            case kInWidth:
                if (cls == kStar) {
                    long long w;
                    if (!starValue(p, out, args, w))
                        return false;
                    if (w < 0) {
                        d.flags |= kMinus;
                        w = -w;
                    }
                    d.width = w;
                } else {
                    d.width = accumulate(d.width, u);
                }
                break;
            case kInDot:
                d.precision = 0;
                break;
            case kInPrecision:
                if (cls == kStar) {
                    long long w;
                    if (!starValue(p, out, args, w))
                        return false;
                    d.precision = w < 0 ? -1 : w; // a negative precision is none
                } else {
                    d.precision = accumulate(d.precision, u);
                }
                break;
            case kInSize:
                if (u == 'h')
                    d.flags = (d.flags & kH) ? ((d.flags & ~kH) | kHH) : (d.flags | kH);
                else if (u == 'l')
                    d.flags = (d.flags & kL) ? ((d.flags & ~kL) | kLL | k64) : (d.flags | kL | k64);
                else
                    d.flags |= kLongDouble;
                break;
            case kInType:
                d.type = u;
                if (d.width > kMaxWidth || d.precision > kMaxWidth)
                    return false;
                if (!directive(d, argNumber, out, args))
                    return false;
                break;
            default:
                return false;
            }
            state = next;
        }
        return state == kNormal || state == kInType;
    }

private:
    static long long accumulate(long long v, unsigned short digit) {
        if (v < 0)
            v = 0;
        // Saturates above INT_MAX; the type check then refuses the field.
        return v > kMaxField ? v : v * 10 + (digit - '0');
    }

    // '*' takes an int argument, in positional mode the one named by m$.
    bool starValue(const unsigned short*& p, Writer* out, va_list* args, long long& value) {
        if (!m_bPositional) {
            value = out != nullptr ? va_arg(*args, int) : 0;
            return true;
        }
        const unsigned short* q = p + 1;
        const int n = argumentNumber(q);
        if (n == 0 || n > kMaxArgs)
            return false;
        p = q - 1;
        value = 0;
        if (out == nullptr)
            return record(n, '*', 0);
        va_list here;
        va_copy(here, m_poSlots[n - 1].saved);
        value = va_arg(here, int);
        va_end(here);
        return true;
    }

    bool record(int n, unsigned short type, unsigned flags) {
        Slot& slot = m_poSlots[n - 1];
        const ArgKind kind = kindOf(type, flags);
        if (slot.kind == kUnused) {
            slot.kind = kind;
            slot.letter = type;
            slot.flags = flags;
        } else if (!compatible(slot, type, kind)) {
            return false;
        } else if (kind > slot.kind && kind <= kPointer) {
            slot.kind = kind;
        }
        if (n > m_nHighest)
            m_nHighest = n;
        return true;
    }

    bool directive(Directive& d, int argNumber, Writer* out, va_list* args) {
        if (!m_bPositional)
            return out == nullptr || convert(*out, d, m_eCS, *args);
        if (argNumber == 0)
            return false;
        if (out == nullptr)
            return record(argNumber, d.type, d.flags);
        // Each use reads from a fresh copy of the argument's position.
        Slot& slot = m_poSlots[argNumber - 1];
        va_list here;
        va_copy(here, slot.saved);
        const bool ok = convert(*out, d, m_eCS, here);
        va_end(here);
        return ok;
    }

    const LookupTable<unsigned char>& m_roTable;
    ULibCharSet m_eCS;
    bool m_bPositional;
    Slot* m_poSlots;
    int m_nHighest;
};

} // namespace

int UString::__format(std::size_t size, ULibCharSet cs, const unsigned short* fmt, va_list args) {
    if (fmt == nullptr)
        return -1;
    const CharClassTable& classes = _CharClass::get();
    m_poImpl = m_poImpl->resize(size == 0 ? 1 : size, true);
    Writer out(m_poImpl);
    bool ok;
    if (!isPositional(fmt)) {
        va_list ap;
        va_copy(ap, args);
        Engine engine(classes, cs, false, nullptr);
        ok = engine.run(fmt, &out, &ap);
        va_end(ap);
    } else {
        // Positional: a first pass learns the kind of every argument, then
        // the argument list is walked once to save where each one starts.
        // An unused number below the highest leaves the arguments behind it
        // out of reach, so it fails the format.
        Slot slots[kMaxArgs];
        for (Slot& slot : slots) {
            slot.kind = kUnused;
            slot.letter = 0;
            slot.flags = 0;
        }
        Engine collect(classes, cs, true, slots);
        ok = collect.run(fmt, nullptr, nullptr);
        int saved = 0;
        if (ok) {
            va_list ap;
            va_copy(ap, args);
            for (; saved < collect.highest(); ++saved) {
                Slot& slot = slots[saved];
                if (slot.kind == kUnused) {
                    ok = false;
                    break;
                }
                va_copy(slot.saved, ap);
                switch (slot.kind) {
                case kInt:
                    (void)va_arg(ap, int);
                    break;
                case kLongDoubleArg:
                    (void)va_arg(ap, long double);
                    break;
                case kDoubleArg:
                    (void)va_arg(ap, double);
                    break;
                default:
                    (void)va_arg(ap, long long);
                    break;
                }
            }
            va_end(ap);
        }
        if (ok) {
            Engine engine(classes, cs, true, slots);
            ok = engine.run(fmt, &out, nullptr);
        }
        for (int i = 0; i < saved; ++i)
            va_end(slots[i].saved);
    }
    if (!ok) {
        m_poImpl->m_uPrimaryLen = 0;
        m_poImpl->m_pPrimary[0] = 0;
        return -1;
    }
    out.finish();
    return static_cast<int>(out.length());
}

// --- the public forms --------------------------------------------------------

// Some forms end their named parameters on a ULibCharSet. Its underlying
// type is fixed at 32 bits, so it is passed exactly as the int it promotes
// to, and va_start on it is sound on every ABI we build for.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wvarargs"

int UString::formatV(const unsigned short* fmt, va_list args) {
    return __format(kDefaultCapacity, ULIB_CS_DEFAULT, fmt, args);
}

int UString::format(const unsigned short* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    const int n = __format(kDefaultCapacity, ULIB_CS_DEFAULT, fmt, args);
    va_end(args);
    return n;
}

int UString::formatV(std::size_t size, ULibCharSet cs, const unsigned short* fmt, va_list args) {
    return __format(size, cs, fmt, args);
}

int UString::format(std::size_t size, ULibCharSet cs, const unsigned short* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    const int n = __format(size, cs, fmt, args);
    va_end(args);
    return n;
}

// A format held by a UString is read through a copy, so that formatting a
// string with itself as the format works on the old text.
int UString::formatV(std::size_t size, ULibCharSet cs, const UString* fmt, va_list args) {
    if (fmt == nullptr)
        return -1;
    const UString text(*fmt);
    return __format(size, cs, text.c_wstr(), args);
}

int UString::formatV(const UString* fmt, va_list args) {
    return formatV(kDefaultCapacity, ULIB_CS_DEFAULT, fmt, args);
}

int UString::format(const UString* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    const int n = formatV(kDefaultCapacity, ULIB_CS_DEFAULT, fmt, args);
    va_end(args);
    return n;
}

int UString::format(std::size_t size, ULibCharSet cs, const UString* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    const int n = formatV(size, cs, fmt, args);
    va_end(args);
    return n;
}

// A narrow format is converted by a temporary UString first; fmtCS 1 says
// the pointer holds units after all.
int UString::formatV(std::size_t size, ULibCharSet cs, const char* fmt, ULibCharSet fmtCS,
                     va_list args) {
    if (fmt == nullptr)
        return -1;
    if (fmtCS == 1)
        return __format(size, cs, reinterpret_cast<const unsigned short*>(fmt), args);
    const UString text(fmt, fmtCS);
    return __format(size, cs, text.c_wstr(), args);
}

int UString::formatV(std::size_t size, ULibCharSet cs, const char* fmt, va_list args) {
    return formatV(size, cs, fmt, ULIB_CS_DEFAULT, args);
}

int UString::formatV(const char* fmt, va_list args) {
    return formatV(kDefaultCapacity, ULIB_CS_DEFAULT, fmt, ULIB_CS_DEFAULT, args);
}

int UString::formatV(const char* fmt, ULibCharSet fmtCS, va_list args) {
    return formatV(kDefaultCapacity, ULIB_CS_DEFAULT, fmt, fmtCS, args);
}

int UString::format(const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    const int n = formatV(kDefaultCapacity, ULIB_CS_DEFAULT, fmt, ULIB_CS_DEFAULT, args);
    va_end(args);
    return n;
}

int UString::format(const char* fmt, ULibCharSet fmtCS, ...) {
    va_list args;
    va_start(args, fmtCS);
    const int n = formatV(kDefaultCapacity, ULIB_CS_DEFAULT, fmt, fmtCS, args);
    va_end(args);
    return n;
}

int UString::format(std::size_t size, ULibCharSet cs, const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    const int n = formatV(size, cs, fmt, ULIB_CS_DEFAULT, args);
    va_end(args);
    return n;
}

int UString::format(std::size_t size, ULibCharSet cs, const char* fmt, ULibCharSet fmtCS, ...) {
    va_list args;
    va_start(args, fmtCS);
    const int n = formatV(size, cs, fmt, fmtCS, args);
    va_end(args);
    return n;
}

#pragma GCC diagnostic pop

} // namespace qzunicode
} // namespace qzlib
} // namespace qzs
