//===- fuzz/fuzz_ustring.cpp - UString edits and searches against a model -===//
//
// A libFuzzer target for UString. The input is a small program of operations
// on three string slots. Each slot pairs a UString with a std::u16string that
// holds the text the string must read as. Strings are built from bytes in
// several sets (kept unconverted, or read at once when the set carries the
// escape flag), from units, by sharing and by substring; then they are edited,
// searched, case-mapped, compared, read back in other sets and copied into
// guarded buffers. Where a member's rule is plain, its result and the new text
// are checked against the model; after every operation all three slots are
// checked, so a change that leaks into a string sharing the body shows up too.
// A body is also held to its own rules: the UTF-16 form terminated at its
// length, a secondary form terminated for its set and saying the same text,
// and a string built from bytes left unconverted until something reads it.
//
// Input, so that seeds can be written by hand (bytes past the end read as 0):
//
//   per operation
//   byte        the operation, modulo kOps (see Op)
//   byte        bits 0-1 the slot worked on, bits 2-3 the other slot (3 is
//               slot 0), bits 4-7 the form of the operation
//   operands    read by the operation, in order, each as follows
//     position  one byte: 0xFF npos, 0xFE the length, 0xFD one past it, 0xFC
//               SIZE_MAX / 2, otherwise the byte modulo (length + 1)
//     amount    one byte: 0xFF npos, 0xFE SIZE_MAX / 2, 0xFD 2^62, otherwise
//               the byte modulo 64
//     units     a count byte (low 6 bits; bit 6 multiplies by 4), then a byte
//               a unit: below 0xF8 an index into kAlphabet, otherwise a raw
//               little-endian unit in the next two bytes
//     bytes     a count byte (low 6 bits; bit 6 multiplies by 4), then the
//               bytes as they stand
//     set       one byte, an index into the table of fillSets
//     flag      one byte, used bit by bit
//
// The slots start empty. Set QZ_FUZZ_USTRING_POOL=1 to run with the body pool,
// which AddressSanitizer cannot see through: pooled bodies are never freed.
//
//===----------------------------------------------------------------------===//
#include "qzunicode/CSConverter.h"
#include "qzunicode/CharSetTable.h"
#include "qzunicode/ULib.h"
#include "qzunicode/UString.h"

#include <unicode/locid.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <utility>
#include <vector>

using namespace qzs::qzlib::qzunicode;

namespace {

using Units = std::u16string;
constexpr std::size_t npos = UString::npos;
constexpr ULibCharSet kUTF16 = ULibCharSet(1);
constexpr ULibCharSet kUTF32 = ULibCharSet(4);
constexpr std::size_t kMaxModel = 4096;
constexpr std::size_t kGuard = 16;

[[noreturn]] void fail(int line, const char* what) {
    std::fprintf(stderr, "fuzz_ustring: check failed at line %d: %s\n", line, what);
    std::abort();
}

#define CHECK(condition)                                                                          \
    do {                                                                                          \
        if (!(condition))                                                                         \
            fail(__LINE__, #condition);                                                           \
    } while (0)

// Letters of both cases, blanks of several kinds, characters whose case maps
// grow or depend on the locale, both halves of a surrogate pair, the
// substitution character, a backslash for the escape reader, and 0.
const char16_t kAlphabet[] = {u'a',   u'b',   u'c',   u'A',   u'B',   u'C',   u'x',
                              u'z',   u'Z',   u' ',   u'\t',  0x3000, 0x00A0, 0x00DF,
                              0x00E9, 0x00C9, 0x0130, 0x0131, 0xD83D, 0xDE00, 0xD800,
                              0xDC00, 0x001A, u'\\',  0};
constexpr std::size_t kAlphabetSize = sizeof kAlphabet / sizeof kAlphabet[0];

std::vector<ULibCharSet>& sets() {
    static std::vector<ULibCharSet> table;
    return table;
}

void fillSets() {
    const ULibCharSet utf8 = ULibCharSet(0);
    const ULibCharSet latin1 = ULIB_toCharSet("ISO-8859-1");
    const ULibCharSet sjis = ULIB_toCharSet("windows-932");
    const auto escaped = [](ULibCharSet cs) { return ULibCharSet(cs | ULIB_CS_ESCAPE_FLAG); };
    sets() = {utf8,
              kUTF16,
              latin1,
              sjis,
              escaped(utf8),
              escaped(latin1),
              ULIB_toCharSet("windows-1250"),
              ULIB_CS_DEFAULT,
              ULibCharSet(2), // UTF-16 big-endian: an odd count reads as nothing
              kUTF32,
              escaped(sjis)};
}

bool isEscaped(ULibCharSet cs) {
    return (cs & ULIB_CS_ESCAPE_FLAG) != 0;
}

ULibCharSet plain(ULibCharSet cs) {
    return ULibCharSet(cs & ~ULIB_CS_ESCAPE_FLAG);
}

const char* nullBlock() {
    return reinterpret_cast<const char*>(&UString::uStrImpl::m_gNull);
}

// --- the reader of the program ----------------------------------------------

class Program {
public:
    Program(const std::uint8_t* data, std::size_t size) : m_p(data), m_end(data + size) {}

    bool done() const { return m_p >= m_end; }
    std::uint8_t byte() { return m_p < m_end ? *m_p++ : 0; }
    std::uint16_t word() {
        const std::uint16_t lo = byte();
        return static_cast<std::uint16_t>(lo | (byte() << 8));
    }

    std::size_t position(std::size_t len) {
        const std::uint8_t b = byte();
        switch (b) {
        case 0xFF:
            return npos;
        case 0xFE:
            return len;
        case 0xFD:
            return len + 1;
        case 0xFC:
            return SIZE_MAX / 2;
        default:
            return b % (len + 1);
        }
    }

    std::size_t amount() {
        const std::uint8_t b = byte();
        switch (b) {
        case 0xFF:
            return npos;
        case 0xFE:
            return SIZE_MAX / 2;
        case 0xFD:
            return std::size_t(1) << 62;
        default:
            return b % 64;
        }
    }

    std::size_t count() {
        const std::uint8_t b = byte();
        return (b & 0x3F) * ((b & 0x40) ? 4 : 1);
    }

    Units units() {
        Units u;
        for (std::size_t n = count(); n > 0; --n) {
            const std::uint8_t b = byte();
            u.push_back(b >= 0xF8 ? char16_t(word()) : kAlphabet[b % kAlphabetSize]);
        }
        return u;
    }

    char16_t unit() {
        const std::uint8_t b = byte();
        return b >= 0xF8 ? char16_t(word()) : kAlphabet[b % kAlphabetSize];
    }

    std::string bytes() {
        std::string s;
        for (std::size_t n = count(); n > 0; --n)
            s.push_back(static_cast<char>(byte()));
        return s;
    }

    ULibCharSet set() { return sets()[byte() % sets().size()]; }

private:
    const std::uint8_t* m_p;
    const std::uint8_t* m_end;
};

// --- the model's conversions -------------------------------------------------
//
// The model reads bytes through ULIB_CStoCS with substitution on, as the
// string promises to; escape-flagged bytes through the set's converter with
// the thread's behaviour, as the string reads them. Rooms are generous, so
// that a string's own estimate of the room is what gets tested.

Units toUnits(const char* p, std::size_t bytes, ULibCharSet cs) {
    if (bytes == 0)
        return {};
    std::vector<unsigned short> out(bytes * 4 + 16);
    int n;
    if (isEscaped(cs)) {
        CSConverter converter(cs, ULibCnvErrBehavior(0), true);
        n = std::max(converter.toUTF16(out.data(), int(out.size()), p, int(bytes), nullptr), 0);
    } else {
        n = ULIB_CStoCS(kUTF16, out.data(), int(out.size() * 2), 0, cs, p, int(bytes), false,
                        true, nullptr, nullptr) /
            2;
    }
    return Units(reinterpret_cast<const char16_t*>(out.data()), std::size_t(n));
}

std::string fromUnits(const char16_t* p, std::size_t n, ULibCharSet cs) {
    if (n == 0)
        return {};
    std::vector<char> out(n * 8 + 64);
    for (;;) {
        ULibError err = ULIB_OK;
        const int bytes = ULIB_CStoCS(cs, out.data(), int(out.size()), 0, kUTF16, p, int(n * 2),
                                      false, true, &err, nullptr);
        if (err != ULIB_ERR_BUFFER_OVERFLOW)
            return std::string(out.data(), std::size_t(std::max(bytes, 0)));
        out.resize(out.size() * 2);
    }
}

std::string fromUnits(const Units& u, ULibCharSet cs) {
    return fromUnits(u.data(), u.size(), cs);
}

// The char rule: one byte of the set that is a whole character by itself,
// as its one unit; anything else (a lead byte, a byte the set lacks) is no
// unit, so it is converted without substitution.
bool charUnit(char c, ULibCharSet cs, char16_t& unit) {
    if (c == 0)
        return false;
    unsigned short out = 0;
    ULibError err = ULIB_OK;
    if (ULIB_CStoCS(kUTF16, &out, 2, 0, plain(cs), &c, 1, false, false, &err, nullptr) != 2 ||
        err != ULIB_OK)
        return false;
    unit = out;
    return true;
}

Units upToZero(const Units& u) {
    return u.substr(0, std::min(u.find(char16_t(0)), u.size()));
}

// Bytes as a caller holds them: 8-byte aligned and followed by 8 zero bytes,
// so that the zero-terminated forms find an end whatever the set, then by a
// word of 0xFF at which a measure of four-byte sets stops.
struct Narrow {
    Narrow(const std::string& b, ULibCharSet set)
        : bytes(b.size()), cs(set), store(b.size() / 8 + 3, 0) {
        std::memcpy(store.data(), b.data(), b.size());
        store.back() = ~std::uint64_t(0);
    }
    const char* data() const { return reinterpret_cast<const char*>(store.data()); }

    // Bytes up to the set's terminator: the first zero byte, or zero unit
    // for two-byte sets. Four-byte sets measure the run of zero characters
    // at the start instead (kept on purpose by their converter).
    std::size_t terminated() const {
        const char* p = data();
        if (isEscaped(cs) || CharSetTable::getMinCharSize(cs) == 1)
            return std::strlen(p);
        std::size_t i = 0;
        if (CharSetTable::getMinCharSize(cs) == 2) {
            while (p[i] != 0 || p[i + 1] != 0)
                i += 2;
            return i;
        }
        while (std::all_of(p + i, p + i + 4, [](char c) { return c == 0; }))
            i += 4;
        return i;
    }
    // The text of UString(data(), bytes, cs).
    Units counted() const {
        if (cs == kUTF16)
            return Units(reinterpret_cast<const char16_t*>(data()), bytes / 2);
        return toUnits(data(), bytes, cs);
    }
    // The text of UString(data(), cs).
    Units zeroTerminated() const {
        const std::size_t n = terminated();
        if (cs == kUTF16)
            return Units(reinterpret_cast<const char16_t*>(data()), n / 2);
        return toUnits(data(), n, cs);
    }

    std::size_t bytes;
    ULibCharSet cs;
    std::vector<std::uint64_t> store;
};

// --- the model's rules -------------------------------------------------------

char16_t fold(char16_t u) {
    return (u >= u'a' && u <= u'z') ? char16_t(u - 32) : u;
}

// The canonical comparison: a zero unit in a ends it.
int canonical(const char16_t* a, const char16_t* b, std::size_t n, bool noCase) {
    for (std::size_t i = 0; i < n; ++i) {
        if (a[i] == 0)
            return b[i] == 0 ? 0 : -1;
        const char16_t x = noCase ? fold(a[i]) : a[i];
        const char16_t y = noCase ? fold(b[i]) : b[i];
        if (x != y)
            return x < y ? -1 : 1;
    }
    return 0;
}

bool hitAt(const Units& t, std::size_t i, const char16_t* s, std::size_t n, bool noCase) {
    if ((noCase ? fold(t[i]) : t[i]) != (noCase ? fold(s[0]) : s[0]))
        return false;
    if (noCase)
        return canonical(t.c_str() + i + 1, s + 1, n - 1, true) == 0;
    return std::equal(s + 1, s + n, t.begin() + std::ptrdiff_t(i) + 1);
}

std::size_t search(const Units& t, const char16_t* s, std::size_t n, std::size_t pos, bool back,
                   bool noCase) {
    const std::size_t len = t.size();
    if (s == nullptr || n == 0 || n > len || pos >= len)
        return npos;
    if (!back) {
        for (std::size_t i = pos; i + n <= len; ++i)
            if (hitAt(t, i, s, n, noCase))
                return i;
        return npos;
    }
    for (std::size_t i = std::min(pos, len - n) + 1; i-- > 0;)
        if (hitAt(t, i, s, n, noCase))
            return i;
    return npos;
}

std::size_t search(const Units& t, const Units& s, std::size_t pos, bool back, bool noCase) {
    return search(t, s.empty() ? nullptr : s.data(), s.size(), pos, back, noCase);
}

// set: the units before the first zero, or null.
std::size_t searchSet(const Units& t, const Units* set, std::size_t pos, bool back, bool negate,
                      bool noCase) {
    const std::size_t len = t.size();
    if (set == nullptr || pos >= len)
        return npos;
    const Units members = upToZero(*set);
    if (members.empty())
        return negate ? pos : npos;
    const auto member = [&](char16_t u) {
        return std::any_of(members.begin(), members.end(), [&](char16_t m) {
            return noCase ? fold(m) == fold(u) : m == u;
        });
    };
    if (!back) {
        for (std::size_t i = pos; i < len; ++i)
            if (member(t[i]) != negate)
                return i;
        return npos;
    }
    for (std::size_t i = pos + 1; i-- > 0;)
        if (member(t[i]) != negate)
            return i;
    return npos;
}

// A UString as the set: an empty one finds nothing in every form.
std::size_t searchSetString(const Units& t, const Units& set, std::size_t pos, bool back,
                            bool negate, bool noCase) {
    return set.empty() ? npos : searchSet(t, &set, pos, back, negate, noCase);
}

void erase(Units& t, std::size_t pos, std::size_t n) {
    if (n == 0 || pos >= t.size())
        return;
    t.erase(pos, std::min(n, t.size() - pos));
}

// REQUIRES: r is not empty.
void replace(Units& t, std::size_t pos, std::size_t n, const Units& r) {
    if (pos > t.size())
        return;
    t.replace(pos, std::min(n, t.size() - pos), r);
}

// The pointer form of replace: no units erase.
void replaceOrErase(Units& t, std::size_t pos, std::size_t n, const Units* r) {
    if (r == nullptr || r->empty())
        erase(t, pos, n);
    else
        replace(t, pos, n, *r);
}

std::size_t findReplace(Units& t, const Units* f, std::size_t pos, const Units* r, bool back,
                        bool noCase) {
    const std::size_t at =
        f == nullptr ? npos : search(t, f->empty() ? nullptr : f->data(), f->size(), pos, back,
                                     noCase);
    if (at != npos)
        replaceOrErase(t, at, f->size(), r);
    return at;
}

std::size_t findReplaceUnit(Units& t, char16_t f, std::size_t pos, char16_t r, bool back,
                            bool noCase) {
    if (t.empty() || f == 0 || f == r)
        return npos;
    const std::size_t at = search(t, &f, 1, pos, back, noCase);
    if (at == npos)
        return npos;
    if (r == 0)
        erase(t, at, npos);
    else
        t[at] = r;
    return at;
}

std::size_t replaceAll(Units& t, const Units* f, const Units* r, bool noCase) {
    if (f == nullptr || f->empty() || t.empty())
        return 0;
    const Units repl = r == nullptr ? Units() : *r;
    const std::size_t n = f->size();
    std::size_t count = 0;
    for (std::size_t i = 0; t.size() >= n && i <= t.size() - n;) {
        if (!hitAt(t, i, f->data(), n, noCase)) {
            ++i;
            continue;
        }
        t.replace(i, n, repl);
        i += repl.size();
        ++count;
    }
    return count;
}

std::size_t replaceAllUnit(Units& t, char16_t f, char16_t r, bool noCase) {
    if (r == 0)
        return findReplaceUnit(t, f, 0, 0, false, noCase) == npos ? 0 : 1;
    if (f == 0 || f == r)
        return 0;
    const Units fu(1, f), ru(1, r);
    return replaceAll(t, &fu, &ru, noCase);
}

// The unit comparison; s is zero-terminated or null.
int compareUnits(const Units& t, std::size_t pos, const char16_t* s, std::size_t n, bool noCase) {
    if (n == 0)
        return 0;
    const bool otherEmpty = s == nullptr || s[0] == 0;
    if (t.empty() || pos >= t.size())
        return otherEmpty ? 0 : -1;
    if (otherEmpty)
        return 1;
    return canonical(t.c_str() + pos, s, n, noCase);
}

bool hasLoneSurrogate(const Units& t) {
    for (std::size_t i = 0; i < t.size(); ++i) {
        const char16_t u = t[i];
        if (u >= 0xD800 && u <= 0xDBFF && i + 1 < t.size() && t[i + 1] >= 0xDC00 &&
            t[i + 1] <= 0xDFFF) {
            ++i;
            continue;
        }
        if (u >= 0xD800 && u <= 0xDFFF)
            return true;
    }
    return false;
}

std::size_t codePoints(const Units& t) {
    std::size_t n = 0;
    for (std::size_t i = 0; i < t.size(); ++i, ++n)
        if (t[i] >= 0xD800 && t[i] <= 0xDBFF && i + 1 < t.size() && t[i + 1] >= 0xDC00 &&
            t[i + 1] <= 0xDFFF)
            ++i;
    return n;
}

const unsigned short* raw(const Units& u) {
    return reinterpret_cast<const unsigned short*>(u.c_str());
}

// --- the slots and their invariants --------------------------------------------

struct Slot {
    UString s;
    Units model;
};

// The secondary form says the model's text, either as the bytes it was built
// from or as what c_str made of the model.
bool secondaryAgrees(const UString::uStrImpl* b, const Units& model) {
    const ULibCharSet cs = b->m_eSecondaryCS;
    if (toUnits(b->m_pSecondary, b->m_uSecondaryLen, cs) == model)
        return true;
    const std::string want = fromUnits(model, cs);
    return want.size() == b->m_uSecondaryLen &&
           std::memcmp(want.data(), b->m_pSecondary, want.size()) == 0;
}

void verify(const Slot& slot) {
    const UString& s = slot.s;
    const UString::uStrImpl* b = s.impl();
    CHECK(b != nullptr && b->m_nRefCount.load() >= 1);
    if (b->m_uSecondaryLen != 0) {
        CHECK(b->m_pSecondary != nullBlock() && b->m_eSecondaryCS != ULIB_CS_INVALID);
        const int z = CharSetTable::getNullCharSize(b->m_eSecondaryCS);
        for (int i = 0; i < z; ++i)
            CHECK(b->m_pSecondary[b->m_uSecondaryLen + std::size_t(i)] == 0);
    }
    if (b->m_uPrimaryLen == 0 && b->m_uSecondaryLen != 0) {
        // Still unconverted: read the bytes beside it, so that the string
        // stays lazy for the operations that follow.
        CHECK(toUnits(b->m_pSecondary, b->m_uSecondaryLen, b->m_eSecondaryCS) == slot.model);
        return;
    }
    const std::size_t len = s.length();
    CHECK(s.impl() == b);
    CHECK(len == slot.model.size());
    const unsigned short* w = s.c_wstr();
    CHECK(w == b->m_pPrimary);
    CHECK(w[len] == 0);
    CHECK(std::memcmp(w, slot.model.data(), len * 2) == 0);
    CHECK(len == 0 || len <= b->m_uPrimaryCap);
    CHECK(s.begin() == w && s.end() == w + len);
    CHECK(s.at(len) == 0xFFFE);
    CHECK(s.empty() == (len == 0));
    if (len != 0 && b->m_uSecondaryLen != 0)
        CHECK(secondaryAgrees(b, slot.model));
}

// --- the operations ------------------------------------------------------------

enum Op {
    kFromBytes,
    kFromUnits,
    kShare,
    kAppend,
    kErase,
    kReplace,
    kSetAt,
    kSubstring,
    kTrim,
    kCase,
    kFind,
    kFindSet,
    kFindReplace,
    kReplaceAll,
    kCompare,
    kCStr,
    kCopy,
    kRead,
    kOps
};

struct Context {
    Program& prog;
    Slot& a;
    Slot& b;
    unsigned form;
};

// A repetition count that no buffer can hold must throw, and leave the text
// as it was; an operation that has nothing to do may return without trying.
template <typename F> void hugeAmount(bool noWork, F op) {
    bool threw = false;
    try {
        op();
    } catch (const std::bad_alloc&) {
        threw = true;
    }
    CHECK(threw || noWork);
}

bool isHuge(std::size_t n) {
    return n > (std::size_t(1) << 40);
}

void buildFromBytes(Context& c) {
    const ULibCharSet cs = c.prog.set();
    const std::string text = c.prog.bytes();
    const Narrow in(text, cs);
    Units& model = c.a.model;
    UString& s = c.a.s;
    std::size_t kept = 0; // bytes that must stay unconverted in cs
    ULibCharSet keptCS = cs;
    switch (c.form % 8) {
    case 0:
        s = UString(in.data(), in.bytes, cs);
        model = in.counted();
        kept = in.bytes;
        break;
    case 1:
        s = UString(text, cs);
        model = in.counted();
        kept = in.bytes;
        break;
    case 2:
        s = UString(in.data(), cs);
        model = in.zeroTerminated();
        kept = in.terminated();
        break;
    case 3:
        s.assign(in.data(), in.bytes, cs);
        model = in.counted();
        kept = in.bytes;
        break;
    case 4:
        s.assign(in.data(), cs);
        model = in.zeroTerminated();
        kept = in.terminated();
        break;
    default: {
        // One byte repeated: the set loses its escape flag.
        const char ch = text.empty() ? 0 : text[0];
        const std::size_t n = c.form % 8 == 5 ? 1 : c.prog.amount();
        if (isHuge(n)) {
            if (c.form % 8 == 7)
                hugeAmount(ch == 0, [&] { s.assign(ch, n, cs); });
            else
                hugeAmount(ch == 0, [&] { s = UString(ch, n, cs); });
            if (ch == 0)
                model.clear();
            return;
        }
        if (c.form % 8 == 5)
            s = UString(ch, cs);
        else if (c.form % 8 == 6)
            s = UString(ch, n, cs);
        else
            s.assign(ch, n, cs);
        keptCS = plain(cs);
        kept = (ch == 0 || n == 0) ? 0 : n;
        model = kept == 0 ? Units() : toUnits(std::string(n, ch).c_str(), n, keptCS);
        if (kept != 0) {
            const UString::uStrImpl* b = s.impl();
            CHECK(b->m_uPrimaryLen == 0 && b->m_eSecondaryCS == keptCS &&
                  b->m_uSecondaryLen == n);
            CHECK(std::all_of(b->m_pSecondary, b->m_pSecondary + n,
                              [&](char x) { return x == ch; }));
        }
        return;
    }
    }
    if (kept == 0 || cs == kUTF16 || isEscaped(cs)) {
        // Units and escaped bytes are in UTF-16 at once; nothing is kept.
        // (Erasing a string whose bytes read as no units leaves the bytes.)
        if (!model.empty())
            CHECK(s.impl()->m_uSecondaryLen == 0);
        return;
    }
    // Bytes in a set are kept as they came: no conversion, and c_str in the
    // same set gives them back unchanged.
    const UString::uStrImpl* b = s.impl();
    CHECK(b->m_uPrimaryLen == 0);
    CHECK(b->m_eSecondaryCS == keptCS && b->m_uSecondaryLen == kept);
    const char* back = s.c_str(keptCS);
    CHECK(back == b->m_pSecondary && s.impl() == b);
    CHECK(std::memcmp(back, in.data(), kept) == 0);
    CHECK(b->m_uPrimaryLen == 0);
}

void buildFromUnits(Context& c) {
    const Units u = c.prog.units();
    const std::uint8_t flags = c.prog.byte();
    const unsigned short* p = (flags & 1) ? nullptr : raw(u);
    UString& s = c.a.s;
    Units& model = c.a.model;
    const char16_t first = u.empty() ? 0 : u[0];
    switch (c.form % 12) {
    case 0:
        s = UString(p, u.size());
        model = p ? u : Units();
        break;
    case 1:
        s = UString(p);
        model = p ? upToZero(u) : Units();
        break;
    case 2: {
        // A range, and a reversed one that gives nothing.
        const std::size_t k = c.prog.position(u.size()) % (u.size() + 1);
        if (flags & 2) {
            s = UString(raw(u) + k, raw(u));
            model.clear();
        } else {
            s = UString(raw(u), raw(u) + k);
            model = u.substr(0, k);
        }
        break;
    }
    case 3:
        s = UString(static_cast<unsigned short>(first));
        model = first == 0 ? Units() : Units(1, first);
        break;
    case 4:
    case 5: {
        const std::size_t n = c.prog.amount();
        if (isHuge(n)) {
            if (c.form % 12 == 4)
                hugeAmount(first == 0,
                           [&] { s = UString(static_cast<unsigned short>(first), n); });
            else
                hugeAmount(first == 0, [&] { s.assign(static_cast<unsigned short>(first), n); });
            if (first == 0)
                model.clear();
            return;
        }
        if (c.form % 12 == 4)
            s = UString(static_cast<unsigned short>(first), n);
        else
            s.assign(static_cast<unsigned short>(first), n);
        model = (first == 0 || n == 0) ? Units() : Units(n, first);
        break;
    }
    case 6:
        s.assign(p, u.size());
        model = p ? u : Units();
        break;
    case 7:
        s = p;
        model = p ? upToZero(u) : Units();
        break;
    case 8:
        s = UString(icu::UnicodeString(u.data(), int32_t(u.size())));
        model = u;
        break;
    case 9:
        s.assign(icu::UnicodeString(u.data(), int32_t(u.size())));
        model = u;
        break;
    case 10: {
        // From the string's own units, which the change may move or free.
        const std::size_t len = c.a.model.size();
        const std::size_t k = c.prog.position(len) % (len + 1);
        const std::size_t n = std::min(c.prog.position(len), len - k);
        const unsigned short* own = s.c_wstr() + k;
        const Units want = model.substr(k, n);
        s.assign(own, n);
        model = want;
        break;
    }
    default:
        if (flags & 2)
            s.clear();
        else
            s = UString();
        model.clear();
        break;
    }
}

void share(Context& c) {
    switch (c.form % 4) {
    case 0:
        c.a.s = c.b.s;
        c.a.model = c.b.model;
        CHECK(c.a.s.impl() == c.b.s.impl());
        break;
    case 1:
        c.a.s.swap(c.b.s);
        std::swap(c.a.model, c.b.model);
        break;
    case 2: {
        // The substring constructor shares the body when it takes all of it.
        const Units src = c.b.model;
        const std::size_t len = src.size();
        const std::size_t pos = c.prog.position(len);
        std::size_t n = c.prog.position(len);
        const UString::uStrImpl* before = c.b.s.impl();
        const bool sameSlot = &c.a == &c.b;
        c.a.s = UString(c.b.s, pos, n);
        if (n == 0 || pos >= len) {
            c.a.model.clear();
            break;
        }
        n = std::min(n, len - pos);
        c.a.model = src.substr(pos, n);
        if (n == len)
            CHECK(c.a.s.impl() == before);
        else if (!sameSlot)
            CHECK(c.a.s.impl() != before);
        break;
    }
    default:
        c.a.s = c.a.s;
        break;
    }
}

void append(Context& c) {
    UString& s = c.a.s;
    Units& model = c.a.model;
    switch (c.form % 9) {
    case 0: {
        const char16_t u = c.prog.unit();
        const std::size_t n = c.prog.amount();
        if (isHuge(n)) {
            hugeAmount(u == 0, [&] { s.append(static_cast<unsigned short>(u), n); });
            return;
        }
        s.append(static_cast<unsigned short>(u), n);
        if (u != 0)
            model.append(n, u);
        break;
    }
    case 1: {
        const Units u = c.prog.units();
        const bool null = c.prog.byte() & 1;
        s.append(null ? nullptr : raw(u), u.size());
        if (!null)
            model += u;
        break;
    }
    case 2: {
        // Units of the other slot, or of this one, which may share a body.
        const std::size_t len = c.b.model.size();
        const std::size_t k = c.prog.position(len) % (len + 1);
        const std::size_t n = std::min(c.prog.position(len), len - k);
        const Units want = c.b.model.substr(k, n);
        s.append(c.b.s.c_wstr() + k, n);
        model += want;
        break;
    }
    case 3: {
        const Units want = c.b.model;
        s.append(c.b.s);
        model += want;
        break;
    }
    case 4: {
        const ULibCharSet cs = c.prog.set();
        const char ch = static_cast<char>(c.prog.byte());
        const std::size_t n = c.prog.amount() % 64;
        char16_t u;
        s.append(ch, n, cs);
        if (n != 0 && charUnit(ch, cs, u))
            model.append(n, u);
        break;
    }
    case 5:
    case 6: {
        const ULibCharSet cs = c.prog.set();
        const Narrow in(c.prog.bytes(), cs);
        if (c.form % 9 == 5) {
            s.append(in.data(), cs);
            model += in.zeroTerminated();
        } else {
            s.append(in.data(), in.bytes, cs);
            model += in.counted();
        }
        break;
    }
    case 7: {
        const Units u = c.prog.units();
        const Units left = c.b.model;
        c.a.s = c.b.s + raw(u);
        c.a.model = left + upToZero(u);
        break;
    }
    default: {
        const char16_t u = c.prog.unit();
        s += static_cast<unsigned short>(u);
        if (u != 0)
            model += u;
        break;
    }
    }
}

void eraseOp(Context& c) {
    UString& s = c.a.s;
    Units& model = c.a.model;
    switch (c.form % 4) {
    case 0: {
        const std::size_t pos = c.prog.position(model.size());
        const std::size_t n = c.prog.position(model.size());
        s.erase(pos, n);
        erase(model, pos, n);
        break;
    }
    case 1:
        s.clear();
        model.clear();
        break;
    case 2:
        s.reserve(c.prog.byte());
        break;
    default: {
        // Beyond what an allocation may ask: a standard exception, the lock
        // of the body released (the next operations would hang otherwise).
        const std::size_t n = 0x3ffffffffffffffdULL + c.prog.byte();
        hugeAmount(false, [&] { s.reserve(n); });
        break;
    }
    }
}

void replaceOp(Context& c) {
    UString& s = c.a.s;
    Units& model = c.a.model;
    const std::size_t len = model.size();
    const std::size_t pos = c.prog.position(len);
    const std::size_t n = c.prog.position(len);
    switch (c.form % 6) {
    case 0:
    case 5: {
        // Form 5 writes the zero unit, which cuts the whole tail at pos.
        const char16_t u = c.form % 6 == 5 ? 0 : c.prog.unit();
        const std::size_t count = c.prog.amount();
        if (isHuge(count)) {
            const bool noWork = u == 0 || pos > len;
            hugeAmount(noWork, [&] { s.replace(pos, n, static_cast<unsigned short>(u), count); });
            if (u == 0)
                erase(model, pos, npos);
            return;
        }
        s.replace(pos, n, static_cast<unsigned short>(u), count);
        if (u == 0)
            erase(model, pos, npos);
        else if (count == 0)
            erase(model, pos, n);
        else
            replace(model, pos, n, Units(count, u));
        break;
    }
    case 1: {
        const Units u = c.prog.units();
        const bool null = c.prog.byte() & 1;
        s.replace(pos, n, null ? nullptr : raw(u), u.size());
        replaceOrErase(model, pos, n, null ? nullptr : &u);
        break;
    }
    case 2: {
        const std::size_t blen = c.b.model.size();
        const std::size_t k = c.prog.position(blen) % (blen + 1);
        const std::size_t m = std::min(c.prog.position(blen), blen - k);
        const Units want = c.b.model.substr(k, m);
        s.replace(pos, n, c.b.s.c_wstr() + k, m);
        replaceOrErase(model, pos, n, &want);
        break;
    }
    case 3: {
        const ULibCharSet cs = c.prog.set();
        const char ch = static_cast<char>(c.prog.byte());
        const std::size_t count = c.prog.amount() % 64;
        char16_t u;
        s.replace(pos, n, ch, count, cs);
        if (ch == 0)
            erase(model, pos, npos);
        else if (count == 0)
            erase(model, pos, n);
        else if (charUnit(ch, cs, u))
            replace(model, pos, n, Units(count, u));
        break;
    }
    default: {
        const Units want = c.b.model;
        s.replace(pos, n, c.b.s);
        replaceOrErase(model, pos, n, &want);
        break;
    }
    }
}

void setAt(Context& c) {
    const std::size_t pos = c.prog.position(c.a.model.size());
    const char16_t u = c.prog.unit();
    c.a.s.setAt(pos, static_cast<unsigned short>(u));
    if (u == 0)
        erase(c.a.model, pos, npos);
    else if (pos < c.a.model.size())
        c.a.model[pos] = u;
}

void substring(Context& c) {
    const Units src = c.b.model;
    const std::size_t len = src.size();
    const UString::uStrImpl* before = c.b.s.impl();
    const bool sameSlot = &c.a == &c.b;
    bool whole;
    if (c.form % 2 == 0) {
        const std::size_t pos = c.prog.position(len);
        const std::size_t n = c.prog.position(len);
        c.a.s = c.b.s.substring(pos, n);
        c.a.model = pos >= len ? Units() : src.substr(pos, n);
        whole = pos == 0 && n >= len && len != 0;
    } else {
        const std::size_t n = c.prog.position(len);
        c.a.s = c.b.s.right(n);
        c.a.model = n < len ? src.substr(len - n) : src;
        whole = n >= len && len != 0;
    }
    if (whole)
        CHECK(c.a.s.impl() == before);
    else if (!sameSlot && !c.a.model.empty())
        CHECK(c.a.s.impl() != before);
}

void trim(Context& c) {
    const UString::TrimOp op = UString::TrimOp(c.form & 3);
    const bool ex = c.form & 4;
    const auto blank = [ex](char16_t u) { return ex ? bool(u_isUWhiteSpace(u)) : u == 0x20; };
    Units& t = c.a.model;
    const UString::uStrImpl* before = c.a.s.impl();
    if (ex)
        c.a.s.trimEx(op);
    else
        c.a.s.trim(op);
    if (t.empty())
        return;
    const bool front = (op & UString::TRIM_FRONT) && blank(t.front());
    const bool back = (op & UString::TRIM_BACK) && blank(t.back());
    if (!front && !back) {
        // Nothing to cut: the body is left alone, shared or not.
        CHECK(c.a.s.impl() == before);
        return;
    }
    std::size_t first = 0, last = t.size();
    if (op & UString::TRIM_FRONT)
        while (first < last && blank(t[first]))
            ++first;
    if (op & UString::TRIM_BACK)
        while (last > first && blank(t[last - 1]))
            --last;
    t = t.substr(first, last - first);
}

const ULocale* pickLocale(std::uint8_t b, const char*& name) {
    static const ULocale turkish("tr");
    static const ULocale german("de", "DE");
    static const ULocale greek("el");
    switch (b % 4) {
    case 1:
        name = "tr";
        return &turkish;
    case 2:
        name = "de_DE";
        return &german;
    case 3:
        name = "el";
        return &greek;
    default:
        name = nullptr;
        return nullptr;
    }
}

void caseOp(Context& c) {
    UString& s = c.a.s;
    Units& t = c.a.model;
    const unsigned which = c.form % 6;
    if (which < 2) {
        // ASCII letters only.
        if (which == 0)
            s.toUpper();
        else
            s.toLower();
        for (char16_t& u : t) {
            if (which == 0 && u >= u'a' && u <= u'z')
                u = char16_t(u - 32);
            else if (which == 1 && u >= u'A' && u <= u'Z')
                u = char16_t(u + 32);
        }
        return;
    }
    const char* name = nullptr;
    const ULocale* locale = pickLocale(c.prog.byte(), name);
    icu::UnicodeString m(t.data(), int32_t(t.size()));
    const icu::Locale loc = name ? icu::Locale(name) : icu::Locale::getDefault();
    switch (which) {
    case 2:
        s.toUpperEx(locale);
        m.toUpper(loc);
        break;
    case 3:
        s.toLowerEx(locale);
        m.toLower(loc);
        break;
    case 4:
        s.toFoldCase(false);
        m.foldCase(U_FOLD_CASE_DEFAULT);
        break;
    default:
        s.toFoldCase(true);
        m.foldCase(U_FOLD_CASE_EXCLUDE_SPECIAL_I);
        break;
    }
    if (!t.empty())
        t = Units(reinterpret_cast<const char16_t*>(m.getBuffer()), std::size_t(m.length()));
}

// One search member by direction and case, in the five argument forms.
std::size_t callFind(const UString& s, unsigned fn, unsigned form, char ch, char16_t unit,
                     const unsigned short* p, std::size_t n, const UString& other,
                     const char* narrow, std::size_t pos, ULibCharSet cs) {
#define QZ_FIND_FORMS(NAME)                                                                       \
    switch (form) {                                                                               \
    case 0:                                                                                       \
        return s.NAME(ch, pos, cs);                                                               \
    case 1:                                                                                       \
        return s.NAME(static_cast<unsigned short>(unit), pos);                                    \
    case 2:                                                                                       \
        return s.NAME(p, n, pos);                                                                 \
    case 3:                                                                                       \
        return s.NAME(other, pos);                                                                \
    default:                                                                                      \
        return s.NAME(narrow, pos, cs);                                                           \
    }
    switch (fn) {
    case 0:
        QZ_FIND_FORMS(find)
    case 1:
        QZ_FIND_FORMS(rfind)
    case 2:
        QZ_FIND_FORMS(findNoCase)
    default:
        QZ_FIND_FORMS(rfindNoCase)
    }
#undef QZ_FIND_FORMS
}

void find(Context& c) {
    const unsigned form = c.form % 5;
    const unsigned fn = c.prog.byte() % 4;
    const bool back = fn & 1, noCase = fn & 2;
    const ULibCharSet cs = c.prog.set();
    const char ch = static_cast<char>(c.prog.byte());
    const char16_t unit = c.prog.unit();
    const Units u = c.prog.units();
    const Narrow narrow(c.prog.bytes(), cs);
    const std::uint8_t flags = c.prog.byte();
    const bool null = flags & 1;
    const Units& t = c.a.model;
    const std::size_t pos = c.prog.position(t.size());

    std::size_t want;
    switch (form) {
    case 0: {
        char16_t v;
        want = charUnit(ch, cs, v) ? search(t, &v, 1, pos, back, noCase) : npos;
        break;
    }
    case 1:
        want = search(t, &unit, 1, pos, back, noCase);
        break;
    case 2:
        want = null ? npos : search(t, u, pos, back, noCase);
        break;
    case 3:
        want = search(t, c.b.model, pos, back, noCase);
        break;
    default:
        want = null ? npos : search(t, narrow.zeroTerminated(), pos, back, noCase);
        break;
    }
    const std::size_t got = callFind(c.a.s, fn, form, ch, unit, null ? nullptr : raw(u), u.size(),
                                     c.b.s, null ? nullptr : narrow.data(), pos, cs);
    CHECK(got == npos || got < t.size());
    CHECK(got == want);
}

std::size_t callFindSet(const UString& s, unsigned fn, unsigned form, const unsigned short* set,
                        const UString& other, const char* narrow, std::size_t pos,
                        ULibCharSet cs) {
#define QZ_SET_FORMS(NAME)                                                                        \
    switch (form) {                                                                               \
    case 0:                                                                                       \
        return s.NAME(set, pos);                                                                  \
    case 1:                                                                                       \
        return s.NAME(other);                                                                     \
    case 2:                                                                                       \
        return s.NAME(other, pos);                                                                \
    default:                                                                                      \
        return s.NAME(narrow, pos, cs);                                                           \
    }
    switch (fn) {
    case 0:
        QZ_SET_FORMS(find_first_of)
    case 1:
        QZ_SET_FORMS(find_first_not_of)
    case 2:
        QZ_SET_FORMS(find_last_of)
    case 3:
        QZ_SET_FORMS(find_last_not_of)
    case 4:
        QZ_SET_FORMS(find_first_of_no_case)
    case 5:
        QZ_SET_FORMS(find_first_not_of_no_case)
    case 6:
        QZ_SET_FORMS(find_last_of_no_case)
    default:
        QZ_SET_FORMS(find_last_not_of_no_case)
    }
#undef QZ_SET_FORMS
}

void findSet(Context& c) {
    const unsigned fn = c.form % 8;
    const bool negate = fn & 1, back = fn & 2, noCase = fn & 4;
    const unsigned form = c.prog.byte() % 4;
    const ULibCharSet cs = c.prog.set();
    const Units u = c.prog.units();
    const Narrow narrow(c.prog.bytes(), cs);
    const bool null = c.prog.byte() & 1;
    const Units& t = c.a.model;
    const std::size_t pos = c.prog.position(t.size());

    std::size_t want;
    switch (form) {
    case 0:
        want = searchSet(t, null ? nullptr : &u, pos, back, negate, noCase);
        break;
    case 1:
        want = t.empty() ? npos
                         : searchSetString(t, c.b.model, back ? t.size() - 1 : 0, back, negate,
                                           noCase);
        break;
    case 2:
        want = searchSetString(t, c.b.model, pos, back, negate, noCase);
        break;
    default: {
        // Units go to the pointer form, other sets to the UString form.
        const Units set = narrow.zeroTerminated();
        if (null)
            want = npos;
        else if (cs == kUTF16)
            want = searchSet(t, &set, pos, back, negate, noCase);
        else
            want = searchSetString(t, set, pos, back, negate, noCase);
        break;
    }
    }
    const std::size_t got = callFindSet(c.a.s, fn, form, null ? nullptr : raw(u), c.b.s,
                                        null ? nullptr : narrow.data(), pos, cs);
    CHECK(got == npos || got < t.size());
    CHECK(got == want);
}

std::size_t callFindReplace(UString& s, unsigned fn, unsigned form, char fc, char rc,
                            char16_t fu, char16_t ru, const unsigned short* fp, std::size_t n,
                            const unsigned short* rp, std::size_t m, const UString& fs,
                            const UString& rs, const char* fnarrow, const char* rnarrow,
                            std::size_t pos, ULibCharSet cs) {
#define QZ_FIND_REPLACE_FORMS(NAME)                                                               \
    switch (form) {                                                                               \
    case 0:                                                                                       \
        return s.NAME(fc, pos, rc, cs);                                                           \
    case 1:                                                                                       \
        return s.NAME(static_cast<unsigned short>(fu), pos, static_cast<unsigned short>(ru));     \
    case 2:                                                                                       \
        return s.NAME(fs, pos, rs);                                                               \
    case 3:                                                                                       \
        return s.NAME(fp, n, pos, rp, m);                                                         \
    case 4:                                                                                       \
        return s.NAME(fp, pos, rp);                                                               \
    default:                                                                                      \
        return s.NAME(fnarrow, pos, rnarrow, cs);                                                 \
    }
    switch (fn) {
    case 0:
        QZ_FIND_REPLACE_FORMS(findAndReplace)
    case 1:
        QZ_FIND_REPLACE_FORMS(rfindAndReplace)
    case 2:
        QZ_FIND_REPLACE_FORMS(findAndReplaceNoCase)
    default:
        QZ_FIND_REPLACE_FORMS(rfindAndReplaceNoCase)
    }
#undef QZ_FIND_REPLACE_FORMS
}

std::size_t callReplaceAll(UString& s, bool noCase, unsigned form, char fc, char rc, char16_t fu,
                           char16_t ru, const unsigned short* fp, std::size_t n,
                           const unsigned short* rp, std::size_t m, const UString& fs,
                           const UString& rs, const char* fnarrow, const char* rnarrow,
                           ULibCharSet cs) {
#define QZ_REPLACE_ALL_FORMS(NAME)                                                                \
    switch (form) {                                                                               \
    case 0:                                                                                       \
        return s.NAME(fc, rc, cs);                                                                \
    case 1:                                                                                       \
        return s.NAME(static_cast<unsigned short>(fu), static_cast<unsigned short>(ru));          \
    case 2:                                                                                       \
        return s.NAME(fs, rs);                                                                    \
    case 3:                                                                                       \
        return s.NAME(fp, n, rp, m);                                                              \
    case 4:                                                                                       \
        return s.NAME(fp, rp);                                                                    \
    default:                                                                                      \
        return s.NAME(fnarrow, rnarrow, cs);                                                      \
    }
    if (noCase) {
        QZ_REPLACE_ALL_FORMS(findAndReplaceAllNoCase)
    }
    QZ_REPLACE_ALL_FORMS(findAndReplaceAll)
#undef QZ_REPLACE_ALL_FORMS
}

// The operands of the find-and-replace members, and their model texts.
struct Replacement {
    explicit Replacement(Context& c)
        : cs(c.prog.set()), fc(static_cast<char>(c.prog.byte())),
          rc(static_cast<char>(c.prog.byte())), fu(c.prog.unit()), ru(c.prog.unit()),
          find(c.prog.units()), repl(c.prog.units()), fnarrow(c.prog.bytes(), plain(cs)),
          rnarrow(c.prog.bytes(), plain(cs)), flags(c.prog.byte()) {
        // Bit 2: the find text is a run of the string's own units, so that the
        // change may move it; bits 3-4: a slot gives the find or the
        // replacement text as a UString.
        if (flags & 4) {
            const Units& own = c.a.model;
            const std::size_t k = c.prog.position(own.size()) % (own.size() + 1);
            const std::size_t len = std::min<std::size_t>(c.prog.byte() % 4 + 1, own.size() - k);
            find = own.substr(k, len);
            ownTail = own.substr(k);
            ownFind = c.a.s.c_wstr() + k;
        }
        fs = &((flags & 8) ? c.a.s : c.b.s);
        rs = &((flags & 16) ? c.a.s : c.b.s);
        fsModel = (flags & 8) ? c.a.model : c.b.model;
        rsModel = (flags & 16) ? c.a.model : c.b.model;
    }
    bool nullFind() const { return flags & 1; }
    bool nullRepl() const { return flags & 2; }
    const unsigned short* fp() const {
        return nullFind() ? nullptr : ownFind ? ownFind : raw(find);
    }
    const unsigned short* rp() const { return nullRepl() ? nullptr : raw(repl); }

    ULibCharSet cs;
    char fc, rc;
    char16_t fu, ru;
    Units find, repl;
    Narrow fnarrow, rnarrow;
    std::uint8_t flags;
    const unsigned short* ownFind = nullptr;
    Units ownTail; // what the zero-terminated form reads from ownFind
    const UString* fs = nullptr;
    const UString* rs = nullptr;
    Units fsModel, rsModel;
};

// The model texts of the forms but the unit and char ones, as null or units.
struct ReplaceTexts {
    ReplaceTexts(const Replacement& r, unsigned form) {
        switch (form) {
        case 2:
            f = r.fsModel;
            g = r.rsModel;
            fnull = f.empty();
            gnull = g.empty();
            break;
        case 3:
            f = r.find;
            g = r.repl;
            fnull = r.nullFind();
            gnull = r.nullRepl();
            break;
        case 4:
            f = upToZero(r.ownFind ? r.ownTail : r.find);
            g = upToZero(r.repl);
            fnull = r.nullFind();
            gnull = r.nullRepl() || g.empty();
            break;
        default:
            f = r.fnarrow.zeroTerminated();
            g = r.rnarrow.zeroTerminated();
            fnull = r.nullFind() || f.empty();
            gnull = r.nullRepl() || g.empty();
            break;
        }
    }
    Units f, g;
    bool fnull = false, gnull = false;
};

void findReplace(Context& c) {
    const unsigned form = c.form % 6;
    const unsigned fn = c.prog.byte() % 4;
    const bool back = fn & 1, noCase = fn & 2;
    const Replacement r(c);
    Units& t = c.a.model;
    const std::size_t pos = c.prog.position(t.size());
    std::size_t want;
    if (form == 0) {
        char16_t f, g;
        want = charUnit(r.fc, r.cs, f) && charUnit(r.rc, r.cs, g)
                   ? findReplaceUnit(t, f, pos, g, back, noCase)
                   : npos;
    } else if (form == 1) {
        want = findReplaceUnit(t, r.fu, pos, r.ru, back, noCase);
    } else {
        const ReplaceTexts x(r, form);
        // The zero-terminated and narrow forms miss at once without a find text.
        if ((form == 4 || form == 5) && r.nullFind())
            want = npos;
        else
            want = findReplace(t, x.fnull ? nullptr : &x.f, pos, x.gnull ? nullptr : &x.g, back,
                               noCase);
    }
    const std::size_t got = callFindReplace(
        c.a.s, fn, form, r.fc, r.rc, r.fu, r.ru, r.fp(), r.find.size(), r.rp(), r.repl.size(),
        *r.fs, *r.rs, r.nullFind() ? nullptr : r.fnarrow.data(),
        r.nullRepl() ? nullptr : r.rnarrow.data(), pos, r.cs);
    CHECK(got == want);
}

void replaceAllOp(Context& c) {
    const unsigned form = c.form % 6;
    const bool noCase = c.prog.byte() & 1;
    const Replacement r(c);
    Units& t = c.a.model;
    std::size_t want;
    if (form == 0) {
        char16_t f, g;
        want = charUnit(r.fc, r.cs, f) && charUnit(r.rc, r.cs, g)
                   ? replaceAllUnit(t, f, g, noCase)
                   : 0;
    } else if (form == 1) {
        want = replaceAllUnit(t, r.fu, r.ru, noCase);
    } else {
        const ReplaceTexts x(r, form);
        if ((form == 4 || form == 5) && r.nullFind())
            want = 0;
        else
            want = replaceAll(t, x.fnull ? nullptr : &x.f, x.gnull ? nullptr : &x.g, noCase);
    }
    const std::size_t got = callReplaceAll(
        c.a.s, noCase, form, r.fc, r.rc, r.fu, r.ru, r.fp(), r.find.size(), r.rp(),
        r.repl.size(), *r.fs, *r.rs, r.nullFind() ? nullptr : r.fnarrow.data(),
        r.nullRepl() ? nullptr : r.rnarrow.data(), r.cs);
    CHECK(got == want);
}

void compare(Context& c) {
    const unsigned form = c.form % 4;
    const unsigned mode = c.prog.byte() % 3;
    const ULibCharSet cs = c.prog.set();
    const Units u = c.prog.units();
    const Narrow narrow(c.prog.bytes(), cs);
    const bool null = c.prog.byte() & 1;
    const std::uint8_t lb = c.prog.byte();
    const Units& t = c.a.model;
    const std::size_t pos = c.prog.position(t.size());
    const std::size_t n = c.prog.position(t.size());
    const UString& s = c.a.s;
    const char* name = nullptr;
    const ULocale* locale = pickLocale(lb, name);

    // A string sharing this body is equal from 0 without a look at the text,
    // even where the rules would call the text greater (a leading zero unit
    // makes the other side count as empty).
    const bool sameBody = form == 1 && pos == 0 && s.impl() == c.b.s.impl();
    int got;
    const char16_t* other; // zero-terminated, or null
    Units otherText;
    switch (form) {
    case 0:
        got = mode == 0   ? s.compare(pos, null ? nullptr : raw(u), n)
              : mode == 1 ? s.compareNoCase(pos, null ? nullptr : raw(u), n)
                          : s.compareNoCaseEx(pos, null ? nullptr : raw(u), n, locale);
        otherText = u;
        other = null ? nullptr : otherText.c_str();
        break;
    case 1:
        got = mode == 0   ? s.compare(pos, c.b.s, n)
              : mode == 1 ? s.compareNoCase(pos, c.b.s, n)
                          : s.compareNoCaseEx(pos, c.b.s, n, locale);
        otherText = c.b.model;
        other = otherText.c_str();
        break;
    case 2:
        got = mode == 0   ? s.compare(pos, null ? nullptr : narrow.data(), cs)
              : mode == 1 ? s.compareNoCase(pos, null ? nullptr : narrow.data(), cs)
                          : s.compareNoCaseEx(pos, null ? nullptr : narrow.data(), cs, locale);
        otherText = narrow.zeroTerminated();
        other = null ? nullptr : otherText.c_str();
        break;
    default:
        got = mode == 0   ? s.compare(pos, null ? nullptr : narrow.data(), n, cs)
              : mode == 1 ? s.compareNoCase(pos, null ? nullptr : narrow.data(), n, cs)
                          : s.compareNoCaseEx(pos, null ? nullptr : narrow.data(), n, cs, locale);
        otherText = narrow.zeroTerminated();
        other = null ? nullptr : otherText.c_str();
        break;
    }
    const std::size_t count = form == 2 ? npos : n;
    CHECK(got >= -1 && got <= 1);
    const int plainOrder = sameBody ? 0 : compareUnits(t, pos, other, count, false);
    if (sameBody) {
        CHECK(got == 0);
    } else if (mode < 2) {
        CHECK(got == compareUnits(t, pos, other, count, mode == 1));
    } else {
        // The rules for empty sides hold for the collated form too, and
        // texts equal unit for unit are equal whatever the collator.
        const bool ruleDecides = count == 0 || other == nullptr || other[0] == 0 || t.empty() ||
                                 pos >= t.size();
        if (ruleDecides || plainOrder == 0)
            CHECK(got == plainOrder);
    }
    if (form == 1 && pos == 0 && n == npos) {
        // The operators are compare from 0.
        CHECK((s == c.b.s) == (plainOrder == 0));
        CHECK((s != c.b.s) == (plainOrder != 0));
        CHECK((s < c.b.s) == (plainOrder < 0));
        // The collated order turns round with its operands, unless a text
        // starts with a zero unit: it then counts as empty on one side only.
        const bool leadingZero =
            (!t.empty() && t[0] == 0) || (!otherText.empty() && otherText[0] == 0);
        if (!leadingZero)
            CHECK(s.compareNoCaseEx(0, c.b.s, npos, locale) ==
                  -c.b.s.compareNoCaseEx(0, s, npos, locale));
    }
}

// c_str, byteSize and numChars: the text in a set, converted once and kept.
void cstr(Context& c) {
    const ULibCharSet cs = c.prog.set();
    const UString& s = c.a.s;
    const Units& t = c.a.model;
    const UString::uStrImpl* b0 = s.impl();
    const bool wasEmpty = b0->empty();
    const bool wasUnconverted = b0->m_uPrimaryLen == 0;
    const ULibCharSet oldCS = b0->m_eSecondaryCS;
    const char* oldBytes = b0->m_pSecondary;
    const std::size_t oldLen = b0->m_uSecondaryLen;

    switch (c.form % 3) {
    case 0: {
        const char* p = s.c_str(cs);
        if (wasEmpty) {
            CHECK(p == nullBlock());
        } else if (cs == kUTF16) {
            CHECK(p == reinterpret_cast<const char*>(s.c_wstr()));
        } else if (oldCS == cs) {
            CHECK(p == oldBytes && s.impl() == b0);
        } else if (s.impl()->empty()) {
            // The bytes held no whole character: reading them emptied the string.
            CHECK(p == nullBlock() && t.empty());
        } else {
            const UString::uStrImpl* b = s.impl();
            const std::string want = fromUnits(t, cs);
            CHECK(p == b->m_pSecondary && b->m_eSecondaryCS == cs);
            CHECK(b->m_uSecondaryLen == want.size());
            CHECK(std::memcmp(p, want.data(), want.size()) == 0);
            CHECK(b->m_nRefCount.load() == 1);
        }
        break;
    }
    case 1: {
        const std::size_t got = s.byteSize(cs);
        std::size_t want;
        if (cs == kUTF16)
            want = t.size() * 2;
        else if (cs == ULibCharSet(2) || cs == ULibCharSet(3))
            want = wasUnconverted && oldCS == cs ? oldLen : t.size() * 2;
        else if (wasEmpty)
            want = 0;
        else if (oldCS == cs)
            want = oldLen;
        else
            want = fromUnits(t, cs).size();
        CHECK(got == want);
        break;
    }
    default: {
        const std::size_t got = s.numChars();
        if (wasEmpty)
            CHECK(got == 0);
        else if (oldCS == kUTF32)
            CHECK(got == oldLen / 4);
        else
            CHECK(got == fromUnits(t, kUTF32).size() / 4);
        if (!wasEmpty && oldCS != kUTF32 && !hasLoneSurrogate(t))
            CHECK(got == codePoints(t));
        break;
    }
    }
}

void copy(Context& c) {
    const UString& s = c.a.s;
    const Units& t = c.a.model;
    const std::size_t pos = c.prog.position(t.size());
    const std::uint8_t flags = c.prog.byte();
    const bool null = flags & 1;
    const bool wasEmpty = s.impl()->empty();
    if (c.form % 2 == 0) {
        const std::size_t room = c.prog.byte() % 70;
        std::vector<unsigned short> buf(room + 2 * kGuard, 0xA5A5);
        unsigned short* dst = null ? nullptr : buf.data() + kGuard;
        const std::size_t got = s.copy(dst, room, pos);
        const std::size_t want =
            (wasEmpty || null || room == 0 || pos >= t.size()) ? 0 : std::min(t.size() - pos, room);
        CHECK(got == want);
        if (got != 0)
            CHECK(std::memcmp(dst, t.data() + pos, got * 2) == 0);
        for (std::size_t i = kGuard + got; i < buf.size(); ++i)
            CHECK(buf[i] == 0xA5A5); // no terminator, nothing past the room
        for (std::size_t i = 0; i < kGuard; ++i)
            CHECK(buf[i] == 0xA5A5);
        return;
    }
    const ULibCharSet cs = c.prog.set();
    const std::size_t room = c.prog.byte() % 200;
    const std::size_t offset = (flags & 2) ? 1 : 0; // an odd address
    std::vector<unsigned char> buf(room + 2 * kGuard + 1, 0xA5);
    char* dst = null ? nullptr : reinterpret_cast<char*>(buf.data() + kGuard + offset);
    const UString::uStrImpl* b0 = s.impl();
    const ULibCharSet oldCS = b0->m_eSecondaryCS;
    const std::string oldBytes(b0->m_pSecondary, b0->m_uSecondaryLen);
    const std::size_t got = s.copy(dst, room, pos, cs);
    for (std::size_t i = 0; i < buf.size(); ++i)
        if (i < kGuard + offset || i >= kGuard + offset + room)
            CHECK(buf[i] == 0xA5);
    CHECK(got <= room);
    if (wasEmpty || null || room == 0) {
        CHECK(got == 0);
    } else if (cs == kUTF16) {
        const std::size_t n =
            (pos >= t.size() || room < 2) ? 0 : std::min(t.size() - pos, room / 2);
        CHECK(got == n * 2);
        CHECK(std::memcmp(dst, t.data() + std::min(pos, t.size()), got) == 0);
    } else if (pos == 0 && oldCS == cs && oldBytes.size() <= room) {
        CHECK(got == oldBytes.size() && std::memcmp(dst, oldBytes.data(), got) == 0);
    } else if (pos >= t.size()) {
        CHECK(got == 0);
    } else {
        // Whole characters of the text from pos, as far as they fit.
        const std::string full = fromUnits(t.data() + pos, t.size() - pos, cs);
        CHECK(got <= full.size() && std::memcmp(dst, full.data(), got) == 0);
        if (full.size() <= room)
            CHECK(got == full.size());
    }
}

void read(Context& c) {
    const UString& s = c.a.s;
    const Units& t = c.a.model;
    const std::size_t pos = c.prog.position(t.size());
    switch (c.form % 3) {
    case 0:
        CHECK(s.at(pos) == (pos < t.size() ? t[pos] : 0xFFFE));
        if (pos < t.size())
            CHECK(s[pos] == t[pos]);
        break;
    case 1:
        CHECK(s.size() == t.size() && s.end() - s.begin() == std::ptrdiff_t(t.size()));
        CHECK(s.rbegin() == s.end() - 1 && s.rend() == s.begin() - 1);
        break;
    default: {
        const icu::UnicodeString u = s;
        CHECK(Units(reinterpret_cast<const char16_t*>(u.getBuffer()), std::size_t(u.length())) ==
              t);
        break;
    }
    }
}

void run(Program& prog, Slot* slots) {
    const std::uint8_t op = prog.byte() % kOps;
    const std::uint8_t which = prog.byte();
    Context c{prog, slots[(which & 3) % 3], slots[((which >> 2) & 3) % 3],
              unsigned(which >> 4)};
    switch (op) {
    case kFromBytes:
        buildFromBytes(c);
        break;
    case kFromUnits:
        buildFromUnits(c);
        break;
    case kShare:
        share(c);
        break;
    case kAppend:
        append(c);
        break;
    case kErase:
        eraseOp(c);
        break;
    case kReplace:
        replaceOp(c);
        break;
    case kSetAt:
        setAt(c);
        break;
    case kSubstring:
        substring(c);
        break;
    case kTrim:
        trim(c);
        break;
    case kCase:
        caseOp(c);
        break;
    case kFind:
        find(c);
        break;
    case kFindSet:
        findSet(c);
        break;
    case kFindReplace:
        findReplace(c);
        break;
    case kReplaceAll:
        replaceAllOp(c);
        break;
    case kCompare:
        compare(c);
        break;
    case kCStr:
        cstr(c);
        break;
    case kCopy:
        copy(c);
        break;
    default:
        read(c);
        break;
    }
    for (int i = 0; i < 3; ++i) {
        verify(slots[i]);
        if (slots[i].model.size() > kMaxModel) {
            slots[i].s.clear();
            slots[i].model.clear();
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    const char* pool = std::getenv("QZ_FUZZ_USTRING_POOL");
    if (pool != nullptr && std::strcmp(pool, "1") == 0)
        UString::initPool();
    fillSets();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Program prog(data, size);
    Slot slots[3];
    while (!prog.done())
        run(prog, slots);
    return 0;
}
