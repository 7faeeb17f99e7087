//===- qzunicode/UStringScan.cpp - UString's own scanf --------------------===//
//
// The scan engine reads the primary form of the string against a UTF-16
// format. It never fails: the count of assigned items says how far it came,
// and there is no end-of-file value.
//
//===----------------------------------------------------------------------===//
#include "qzunicode/UString.h"

#include "qzunicode/ULib.h"

#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>

namespace qzs {
namespace qzlib {
namespace qzunicode {

namespace {

// Size modifiers of a scan directive.
enum ScanSize { kDefault, kByte, kShort, kLong, kLongLong, kLongDouble };

bool isSpace(unsigned short u) {
    return (u >= 0x09 && u <= 0x0D) || u == 0x20;
}

int digitValue(unsigned short u) {
    if (u >= '0' && u <= '9')
        return u - '0';
    if (u >= 'a' && u <= 'f')
        return u - 'a' + 10;
    if (u >= 'A' && u <= 'F')
        return u - 'A' + 10;
    return 99;
}

void storeInteger(void* target, ScanSize size, std::uint64_t v) {
    switch (size) {
    case kByte:
        *static_cast<std::uint8_t*>(target) = static_cast<std::uint8_t>(v);
        break;
    case kShort:
        *static_cast<std::uint16_t*>(target) = static_cast<std::uint16_t>(v);
        break;
    case kLongLong:
        *static_cast<std::uint64_t*>(target) = v;
        break;
    default:
        *static_cast<std::uint32_t*>(target) = static_cast<std::uint32_t>(v);
        break;
    }
}

// The units of a '[' set, one bit each.
class UnitSet {
public:
    UnitSet() : m_aBits(new std::uint64_t[1024]) {}
    // Reads the set after '['; p ends on the closing ']'. False when the
    // format ends first.
    bool parse(const unsigned short*& p) {
        std::memset(m_aBits.get(), 0, 1024 * sizeof(std::uint64_t));
        bool invert = false;
        if (*p == '^') {
            invert = true;
            ++p;
        }
        const unsigned short* first = p;
        for (; *p != 0; ++p) {
            if (*p == ']' && p != first)
                break;
            if (*p == '-' && p != first && p[1] != ']' && p[1] != 0) {
                unsigned lo = p[-1];
                unsigned hi = p[1];
                if (lo > hi)
                    std::swap(lo, hi);
                for (unsigned u = lo; u <= hi; ++u)
                    add(u);
                ++p;
                continue;
            }
            add(*p);
        }
        if (*p != ']')
            return false;
        if (invert)
            for (int i = 0; i < 1024; ++i)
                m_aBits[i] = ~m_aBits[i];
        return true;
    }
    bool has(unsigned short u) const { return (m_aBits[u >> 6] >> (u & 63)) & 1; }

private:
    void add(unsigned u) { m_aBits[u >> 6] |= std::uint64_t(1) << (u & 63); }
    std::unique_ptr<std::uint64_t[]> m_aBits;
};

class Scanner {
public:
    Scanner(const unsigned short* text, std::size_t len, ULibCharSet cs)
        : m_pText(text), m_uLen(len), m_uPos(0), m_eCS(cs),
          m_bAsciiAsIs(cs != 1 && CharSetTable::isUSASCIICompatible(cs)) {}

    int run(const unsigned short* fmt, va_list& args) {
        int count = 0;
        for (const unsigned short* p = fmt; *p != 0; ++p) {
            if (isSpace(*p)) {
                skipSpace();
                continue;
            }
            if (*p != '%') {
                if (m_uPos >= m_uLen || m_pText[m_uPos] != *p)
                    return count;
                ++m_uPos;
                continue;
            }
            ++p;
            bool assign = true;
            if (*p == '*') {
                assign = false;
                ++p;
            }
            std::size_t width = 0;
            while (*p >= '0' && *p <= '9') {
                if (width < 0x7FFFFFFF)
                    width = width * 10 + (*p - '0');
                ++p;
            }
            ScanSize size = kDefault;
            if (*p == 'h') {
                size = p[1] == 'h' ? kByte : kShort;
                p += size == kByte ? 2 : 1;
            } else if (*p == 'l') {
                size = p[1] == 'l' ? kLongLong : kLong;
                p += size == kLongLong ? 2 : 1;
            } else if (*p == 'L') {
                size = kLongDouble;
                ++p;
            }
            const unsigned short type = *p;
            if (type == 0)
                return count;
            if (type != '[' && type != 'c' && type != 'n') {
                skipSpace();
                if (m_uPos >= m_uLen)
                    return count;
            }
            int assigned = 0;
            if (!convert(type, size, width, assign, p, args, assigned))
                return count + assigned;
            count += assigned;
        }
        return count;
    }

private:
    void skipSpace() {
        while (m_uPos < m_uLen && isSpace(m_pText[m_uPos]))
            ++m_uPos;
    }

    // The units left for a field of the given width (0: no limit).
    std::size_t limit(std::size_t width) const {
        const std::size_t left = m_uLen - m_uPos;
        return width == 0 || width > left ? left : width;
    }

    bool convert(unsigned short type, ScanSize size, std::size_t width, bool assign,
                 const unsigned short*& p, va_list& args, int& assigned) {
        switch (type) {
        case 'd':
        case 'i': // kept on purpose: decimal only, no 0 or 0x prefixes
        case 'u':
            return integer(10, size, width, assign, args, assigned);
        case 'o':
            return integer(8, size, width, assign, args, assigned);
        case 'x':
        case 'X':
            return integer(16, size, width, assign, args, assigned);
        case 'e':
        case 'f':
        case 'g':
        case 'E':
        case 'G':
            return floating(size, width, assign, args, assigned);
        case 'c':
            return characters(width == 0 ? 1 : width, assign, args, assigned);
        case 's':
        case 'U':
            return text(type, width, nullptr, assign, args, assigned);
        case '[': {
            ++p;
            if (!m_oSet)
                m_oSet.reset(new UnitSet);
            if (!m_oSet->parse(p))
                return false;
            return text('[', width, m_oSet.get(), assign, args, assigned);
        }
        case 'n':
            if (assign)
                storeInteger(va_arg(args, void*), size, m_uPos);
            return true;
        case '%':
            skipSpace();
            if (m_uPos >= m_uLen || m_pText[m_uPos] != '%')
                return false;
            ++m_uPos;
            return true;
        default:
            return false;
        }
    }

    bool integer(int base, ScanSize size, std::size_t width, bool assign, va_list& args,
                 int& assigned) {
        const std::size_t n = limit(width);
        const unsigned short* s = m_pText + m_uPos;
        std::size_t i = 0;
        bool negative = false;
        if (i < n && (s[i] == '+' || s[i] == '-')) {
            negative = s[i] == '-';
            ++i;
        }
        // 0x before hexadecimal digits; "0x" with no digit behind reads as 0.
        if (base == 16 && i + 1 < n && s[i] == '0' && (s[i + 1] == 'x' || s[i + 1] == 'X') &&
            (i + 2 >= n || digitValue(s[i + 2]) < 16)) {
            if (i + 2 < n)
                i += 2;
        }
        const std::size_t start = i;
        std::uint64_t v = 0;
        while (i < n && digitValue(s[i]) < base) {
            v = v * static_cast<unsigned>(base) + static_cast<unsigned>(digitValue(s[i]));
            ++i;
        }
        if (i == start)
            return false;
        m_uPos += i;
        if (negative)
            v = 0 - v;
        if (assign) {
            storeInteger(va_arg(args, void*), size, v);
            assigned = 1;
        }
        return true;
    }

    bool floating(ScanSize size, std::size_t width, bool assign, va_list& args, int& assigned) {
        const std::size_t n = limit(width);
        const unsigned short* s = m_pText + m_uPos;
        // Gathered as ASCII: only signs, digits, '.', 'e' and 'E' get in.
        char buf[128];
        std::size_t b = 0;
        std::size_t i = 0;
        bool negative = false;
        auto put = [&](unsigned short u) {
            if (b < sizeof buf - 1)
                buf[b++] = static_cast<char>(u);
        };
        if (i < n && (s[i] == '+' || s[i] == '-'))
            negative = s[i++] == '-';
        std::size_t mantissa = 0;
        std::size_t dropped = 0; // digits past the buffer shift the exponent
        bool point = false;
        for (; i < n; ++i) {
            if (s[i] >= '0' && s[i] <= '9') {
                ++mantissa;
                if (b < 100)
                    put(s[i]);
                else if (!point)
                    ++dropped;
            } else if (s[i] == '.' && !point) {
                point = true;
                put('.');
            } else {
                break;
            }
        }
        if (mantissa == 0)
            return false;
        long long exponent = static_cast<long long>(dropped);
        if (i + 1 < n && (s[i] == 'e' || s[i] == 'E')) {
            std::size_t j = i + 1;
            bool expNegative = false;
            if (j < n && (s[j] == '+' || s[j] == '-'))
                expNegative = s[j++] == '-';
            if (j < n && s[j] >= '0' && s[j] <= '9') {
                long long e = 0;
                for (; j < n && s[j] >= '0' && s[j] <= '9'; ++j)
                    if (e < 100000)
                        e = e * 10 + (s[j] - '0');
                exponent += expNegative ? -e : e;
                i = j;
            }
        }
        m_uPos += i;
        if (exponent != 0) {
            const int w = std::snprintf(buf + b, sizeof buf - b, "e%lld", exponent);
            b += static_cast<std::size_t>(w);
        }
        buf[b] = 0;
        if (!assign)
            return true;
        void* target = va_arg(args, void*);
        if (size == kLongDouble) {
            long double v = 0;
            std::from_chars(buf, buf + b, v);
            *static_cast<long double*>(target) = negative ? -v : v;
        } else if (size == kLong) {
            double v = 0;
            std::from_chars(buf, buf + b, v);
            *static_cast<double*>(target) = negative ? -v : v;
        } else {
            float v = 0;
            std::from_chars(buf, buf + b, v);
            *static_cast<float*>(target) = negative ? -v : v;
        }
        assigned = 1;
        return true;
    }

    // Converts units to the result set and stores the bytes at out; a unit
    // that gives no bytes is dropped. A surrogate pair goes as one (one unit
    // of it alone would only convert to a substitute). ASCII in a set that
    // keeps ASCII as it is needs no converter.
    std::size_t narrow(const unsigned short* s, std::size_t n, char* out) const {
        std::size_t written = 0;
        for (std::size_t i = 0; i < n;) {
            if (m_bAsciiAsIs && s[i] < 0x80 && s[i] != 0) {
                out[written++] = static_cast<char>(s[i++]);
                continue;
            }
            const std::size_t units = (i + 1 < n && s[i] >= 0xD800 && s[i] <= 0xDBFF &&
                                       s[i + 1] >= 0xDC00 && s[i + 1] <= 0xDFFF)
                                          ? 2
                                          : 1;
            char bytes[20];
            ULibError err = ULIB_OK;
            const int w = ULIB_CStoCS(m_eCS, bytes, static_cast<int>(10 * units), 0,
                                      static_cast<ULibCharSet>(1), s + i,
                                      static_cast<int>(2 * units), false, true, &err, nullptr);
            if (w > 0) {
                std::memcpy(out + written, bytes, static_cast<std::size_t>(w));
                written += static_cast<std::size_t>(w);
            }
            i += units;
        }
        return written;
    }

    void terminate(char* out) const {
        const int nul = CharSetTable::getNullCharSize(m_eCS);
        std::memset(out, 0, static_cast<std::size_t>(nul > 0 ? nul : 1));
    }

    bool characters(std::size_t width, bool assign, va_list& args, int& assigned) {
        const std::size_t n = limit(width);
        if (n == 0)
            return false;
        const unsigned short* s = m_pText + m_uPos;
        m_uPos += n;
        if (!assign)
            return true;
        void* target = va_arg(args, void*);
        if (m_eCS == 1)
            std::memcpy(target, s, n * sizeof(unsigned short));
        else
            narrow(s, n, static_cast<char*>(target));
        assigned = 1;
        return true;
    }

    // 's' and 'U' stop at white space, '[' at a unit not in its set.
    bool text(unsigned short type, std::size_t width, const UnitSet* set, bool assign,
              va_list& args, int& assigned) {
        const std::size_t n = limit(width);
        const unsigned short* s = m_pText + m_uPos;
        std::size_t i = 0;
        while (i < n && (set != nullptr ? set->has(s[i]) : !isSpace(s[i])))
            ++i;
        if (i == 0)
            return false;
        m_uPos += i;
        if (!assign)
            return true;
        void* target = va_arg(args, void*);
        if (type == 'U') {
            UString* out = static_cast<UString*>(target);
            if (out != nullptr) {
                out->erase();
                out->append(s, i);
            }
        } else if (m_eCS == 1) {
            unsigned short* out = static_cast<unsigned short*>(target);
            std::memcpy(out, s, i * sizeof(unsigned short));
            out[i] = 0;
        } else {
            char* out = static_cast<char*>(target);
            terminate(out + narrow(s, i, out));
        }
        assigned = 1;
        return true;
    }

    const unsigned short* m_pText;
    std::size_t m_uLen;
    std::size_t m_uPos;
    ULibCharSet m_eCS;
    bool m_bAsciiAsIs;
    std::unique_ptr<UnitSet> m_oSet; // made at the first '[', kept for the scan
};

} // namespace

int UString::__scan(ULibCharSet cs, const unsigned short* fmt, va_list args) const {
    if (fmt == nullptr)
        return 0;
    const std::size_t len = m_poImpl->makePrimary();
    Scanner scanner(m_poImpl->m_pPrimary, len, cs);
    va_list ap;
    va_copy(ap, args);
    const int n = scanner.run(fmt, ap);
    va_end(ap);
    return n;
}

// --- the public forms --------------------------------------------------------

// Some forms end their named parameters on a ULibCharSet. Its underlying
// type is fixed at 32 bits, so it is passed exactly as the int it promotes
// to, and va_start on it is sound on every ABI we build for.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wvarargs"

int UString::scanV(ULibCharSet cs, const unsigned short* fmt, va_list args) const {
    return __scan(cs, fmt, args);
}

int UString::scanV(ULibCharSet cs, const UString* fmt, va_list args) const {
    if (fmt == nullptr)
        return 0;
    const UString text(*fmt);
    return __scan(cs, text.c_wstr(), args);
}

int UString::scanV(ULibCharSet cs, const char* fmt, ULibCharSet fmtCS, va_list args) const {
    if (fmt == nullptr)
        return 0;
    if (fmtCS == 1)
        return __scan(cs, reinterpret_cast<const unsigned short*>(fmt), args);
    const UString text(fmt, fmtCS);
    return __scan(cs, text.c_wstr(), args);
}

int UString::scanV(ULibCharSet cs, const char* fmt, va_list args) const {
    return scanV(cs, fmt, ULIB_CS_DEFAULT, args);
}

int UString::scan(const unsigned short* fmt, ...) const {
    va_list args;
    va_start(args, fmt);
    const int n = __scan(ULIB_CS_DEFAULT, fmt, args);
    va_end(args);
    return n;
}

int UString::scan(const UString* fmt, ...) const {
    va_list args;
    va_start(args, fmt);
    const int n = scanV(ULIB_CS_DEFAULT, fmt, args);
    va_end(args);
    return n;
}

int UString::scan(ULibCharSet cs, const unsigned short* fmt, ...) const {
    va_list args;
    va_start(args, fmt);
    const int n = __scan(cs, fmt, args);
    va_end(args);
    return n;
}

int UString::scan(ULibCharSet cs, const UString* fmt, ...) const {
    va_list args;
    va_start(args, fmt);
    const int n = scanV(cs, fmt, args);
    va_end(args);
    return n;
}

int UString::scan(const char* fmt, ...) const {
    va_list args;
    va_start(args, fmt);
    const int n = scanV(ULIB_CS_DEFAULT, fmt, ULIB_CS_DEFAULT, args);
    va_end(args);
    return n;
}

int UString::scan(const char* fmt, ULibCharSet fmtCS, ...) const {
    va_list args;
    va_start(args, fmtCS);
    const int n = scanV(ULIB_CS_DEFAULT, fmt, fmtCS, args);
    va_end(args);
    return n;
}

int UString::scan(ULibCharSet cs, const char* fmt, ...) const {
    va_list args;
    va_start(args, fmt);
    const int n = scanV(cs, fmt, ULIB_CS_DEFAULT, args);
    va_end(args);
    return n;
}

int UString::scan(ULibCharSet cs, const char* fmt, ULibCharSet fmtCS, ...) const {
    va_list args;
    va_start(args, fmtCS);
    const int n = scanV(cs, fmt, fmtCS, args);
    va_end(args);
    return n;
}

#pragma GCC diagnostic pop

} // namespace qzunicode
} // namespace qzlib
} // namespace qzs
