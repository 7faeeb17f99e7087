//===- fuzz/fuzz_format.cpp - UString format and scan on random formats ---===//
//
// A libFuzzer target for the format and scan engines. The input steers a
// generator rather than being the format itself, because the harness must
// know every argument a format reads: a pointer conversion handed an
// integer would be the harness's crash, not the engine's. Each directive is
// built from four control bytes (flags, width, precision, size and letter),
// literal text from the input goes between them, and a last byte may end
// the format on something malformed (a lone '%', an unknown letter). The
// arguments are then passed with exactly the types the directives name.
//
// Checked: format gives -1 and an empty string, or the string's length; the
// count of a 'n' directive never passes that length. scan gets random text
// against a random scan format, every target being a buffer large enough
// for anything the text could put there.
//
//===----------------------------------------------------------------------===//
#include "qzunicode/UString.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

using qzs::qzlib::qzunicode::ULibCharSet;
using qzs::qzlib::qzunicode::UString;

namespace {

void check(bool condition) {
    if (!condition)
        std::abort();
}

class Input {
public:
    Input(const std::uint8_t* data, std::size_t size) : m_p(data), m_n(size) {}
    std::uint8_t byte() {
        if (m_n == 0)
            return 0;
        --m_n;
        return *m_p++;
    }
    std::uint64_t word() {
        std::uint64_t v = 0;
        for (int i = 0; i < 8; ++i)
            v = (v << 8) | byte();
        return v;
    }
    std::string text(std::size_t max) {
        std::string s;
        const std::size_t n = byte() % (max + 1);
        for (std::size_t i = 0; i < n && m_n != 0; ++i) {
            const char c = static_cast<char>(byte());
            if (c != 0)
                s += c;
        }
        return s;
    }

private:
    const std::uint8_t* m_p;
    std::size_t m_n;
};

const ULibCharSet kSets[] = {ULibCharSet(0), ULibCharSet(1), ULibCharSet(1032),
                             qzs::qzlib::qzunicode::ULIB_CS_DEFAULT};

// Literal text with no '%' of its own.
std::string literal(Input& in, std::size_t max) {
    std::string s = in.text(max);
    for (char& ch : s)
        if (ch == '%')
            ch = '=';
    return s;
}

enum Kind { kInt, kLong, kDouble, kLongDouble, kPointer };

// One argument as the format will read it.
struct Arg {
    Kind kind = kInt;
    long long i = 0;
    double d = 0;
    long double ld = 0;
    const void* p = nullptr;
};

constexpr int kMaxArgs = 4;

// Storage that pointer arguments point at, alive for the call.
struct Pool {
    std::string narrow;
    std::u16string wide;
    UString ustring;
    alignas(8) long long counts[kMaxArgs] = {};
};

struct Call {
    std::string format;
    Arg args[kMaxArgs];
    int count = 0;
};

// Calls format with the arguments at their own types.
template <typename... A> int invoke(UString& out, ULibCharSet cs, const Call& c, A... a) {
    return out.format(64, cs, c.format.c_str(), ULibCharSet(0), a...);
}

template <typename... A> int dispatch(UString& out, ULibCharSet cs, const Call& c, int i, A... a) {
    if constexpr (sizeof...(A) >= kMaxArgs) {
        return invoke(out, cs, c, a...);
    } else {
        if (i == c.count)
            return invoke(out, cs, c, a...);
        const Arg& x = c.args[i];
        switch (x.kind) {
        case kInt:
            return dispatch(out, cs, c, i + 1, a..., static_cast<int>(x.i));
        case kLong:
            return dispatch(out, cs, c, i + 1, a..., x.i);
        case kDouble:
            return dispatch(out, cs, c, i + 1, a..., x.d);
        case kLongDouble:
            return dispatch(out, cs, c, i + 1, a..., x.ld);
        default:
            return dispatch(out, cs, c, i + 1, a..., x.p);
        }
    }
}

void addNumber(Call& c, Input& in, std::string& f) {
    const std::uint8_t w = in.byte();
    if (w < 40) {
        f += std::to_string(w % 30);
    } else if (w < 44) {
        // Widths far beyond what fits: refused before anything is written.
        f += w & 1 ? "2147483648" : "99999999999999999999";
    } else if (w < 46) {
        f += "70000";
    } else if (w < 60 && c.count < kMaxArgs) {
        f += '*';
        Arg& a = c.args[c.count++];
        a.kind = kInt;
        a.i = static_cast<int>(in.word() % 4001) - 2000;
    }
}

void formatOne(const std::uint8_t* data, std::size_t size) {
    Input in(data, size);
    const std::uint8_t mode = in.byte();
    const ULibCharSet cs = kSets[mode & 3];
    const bool positional = (mode & 4) != 0;
    Pool pool;
    pool.narrow = in.text(40);
    for (char ch : in.text(20))
        pool.wide += static_cast<char16_t>(static_cast<unsigned char>(ch) * 0x101);
    pool.ustring = UString(pool.narrow.c_str(), ULibCharSet(1032));

    Call c;
    std::string& f = c.format;
    const int directives = in.byte() % 4;
    for (int k = 0; k < directives && c.count < kMaxArgs; ++k) {
        for (char ch : in.text(6))
            f += ch == '%' ? std::string("%%") : std::string(1, ch);
        const int argsBefore = c.count;
        f += '%';
        if (positional)
            f += std::to_string(c.count + 1) + "$";
        const std::uint8_t flags = in.byte();
        for (int b = 0; b < 5; ++b)
            if (flags & (1 << b))
                f += "-+ #0"[b];
        if (!positional)
            addNumber(c, in, f);
        else if (in.byte() < 100)
            f += std::to_string(in.byte() % 40);
        if (in.byte() & 1) {
            f += '.';
            if (!positional)
                addNumber(c, in, f);
            else
                f += std::to_string(in.byte() % 40);
        }
        if (c.count >= kMaxArgs) {
            // No room left for the value: drop the unfinished directive.
            f.resize(f.rfind('%'));
            c.count = argsBefore;
            break;
        }
        static const char* const sizes[] = {"", "", "hh", "h", "l", "ll", "L", ""};
        static const char letters[] = "diouxXcpeEfgGsUn%";
        const std::uint8_t sl = in.byte();
        const std::string sz = sizes[sl & 7];
        const char type = letters[(sl >> 3) % (sizeof letters - 1)];
        const bool isFloat = std::strchr("eEfgG", type) != nullptr;
        if (type == '%') {
            // Written as "%%", which reads nothing: drop its '*' arguments.
            f.resize(f.rfind('%'));
            f += "%%";
            c.count = argsBefore;
            continue;
        }
        // 'L' only on the floating letters, so each argument has one type.
        f += (sz == "L") != isFloat ? "" : sz;
        f += type;
        Arg& a = c.args[c.count++];
        if (isFloat) {
            const bool longDouble = sz == "L";
            a.kind = longDouble ? kLongDouble : kDouble;
            std::uint64_t bits = in.word();
            std::memcpy(&a.d, &bits, sizeof a.d);
            a.ld = static_cast<long double>(a.d) * (bits & 1 ? 1e300L : 1);
        } else if (std::strchr("sUnp", type) != nullptr) {
            a.kind = kPointer;
            const std::uint8_t which = in.byte();
            if (type == 'U')
                a.p = which & 1 ? &pool.ustring : nullptr;
            else if (type == 'n')
                a.p = &pool.counts[c.count - 1]; // 8 bytes: any size fits
            else if (type == 's')
                a.p = which & 1 ? (cs == 1 ? static_cast<const void*>(pool.wide.c_str())
                                           : pool.narrow.c_str())
                                : nullptr;
            else
                a.p = reinterpret_cast<const void*>(static_cast<std::uintptr_t>(in.word()));
        } else {
            a.kind = (sz == "l" || sz == "ll") ? kLong : kInt;
            a.i = static_cast<long long>(in.word());
        }
    }
    f += literal(in, 6);
    // Possibly a malformed end: one that reads no argument.
    static const char* const endings[] = {"", "", "%", "%5", "%q", "%-#", "%.", "%l"};
    f += endings[in.byte() & 7];

    UString out(pool.narrow.c_str(), ULibCharSet(1032));
    const int n = dispatch(out, cs, c, 0);
    if (n < 0) {
        check(n == -1 && out.empty());
    } else {
        check(static_cast<std::size_t>(n) == out.length());
        for (int i = 0; i < c.count; ++i)
            check(pool.counts[i] >= 0 && pool.counts[i] <= n);
    }
}

void scanOne(const std::uint8_t* data, std::size_t size) {
    Input in(data, size);
    const std::uint8_t mode = in.byte();
    const ULibCharSet cs = kSets[(mode >> 4) & 3];
    std::string f;
    const int directives = 1 + in.byte() % 8;
    for (int k = 0; k < directives; ++k) {
        f += literal(in, 3);
        f += '%';
        const std::uint8_t b = in.byte();
        if (b & 1)
            f += '*';
        if (b & 2)
            f += std::to_string(in.byte());
        static const char* const sizes[] = {"", "hh", "h", "l", "ll", "L"};
        f += sizes[(b >> 2) % 6];
        static const char letters[] = "diouxXeEfgGcsU[n%";
        const char type = letters[in.byte() % (sizeof letters - 1)];
        f += type;
        if (type == '[')
            f += literal(in, 5) + (b & 0x80 ? "]" : "");
    }
    const std::string text = in.text(255) + in.text(255);
    UString subject(text.c_str(), ULibCharSet(1032));
    // Every target can take what the whole text could give: ten bytes a unit
    // and a terminator, or a UString.
    std::vector<std::vector<char>> buffers;
    UString strings[8];
    void* targets[8];
    for (int i = 0; i < 8; ++i) {
        buffers.emplace_back((text.size() + 2) * 10 + 16, '\0');
        targets[i] = buffers.back().data();
    }
    // 'U' directives take the UStrings: count them in the format's order, as
    // the engine reads it (up to a NUL, and a set whose first member is ']'
    // runs on to the next ']', over any '%' on the way).
    f.resize(std::strlen(f.c_str()));
    int slot = 0;
    for (std::size_t i = 0; i + 1 < f.size() && slot < 8; ++i) {
        if (f[i] != '%')
            continue;
        std::size_t j = i + 1;
        const bool assigns = f[j] != '*';
        while (j < f.size() && std::strchr("*0123456789hlL", f[j]) != nullptr)
            ++j;
        if (j >= f.size())
            break;
        if (assigns && f[j] != '%') {
            if (f[j] == 'U')
                targets[slot] = &strings[slot];
            ++slot;
        }
        if (f[j] == '[') {
            std::size_t k = j + 1;
            if (k < f.size() && f[k] == '^')
                ++k;
            if (k < f.size() && f[k] == ']')
                ++k;
            while (k < f.size() && f[k] != ']')
                ++k;
            j = k;
        }
        i = j;
    }
    const int n = subject.scan(cs, f.c_str(), ULibCharSet(0), targets[0], targets[1], targets[2],
                               targets[3], targets[4], targets[5], targets[6], targets[7]);
    check(n >= 0 && n <= 8);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    formatOne(data, size);
    scanOne(data, size);
    return 0;
}
