//===- tests/qzunicode/UStringFormatTest.cpp - UString's printf and scanf -===//
//
// format against snprintf wherever the two languages agree (a table, then a
// seeded random sweep), the deliberate differences on their own, malformed
// formats, positional arguments, and scan reading back what format wrote.
//
//===----------------------------------------------------------------------===//
#include "qzunicode/UString.h"

#include "qzunicode/ULib.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>

using namespace qzs::qzlib::qzunicode;

namespace {

constexpr ULibCharSet kUTF8 = ULibCharSet(0);
constexpr ULibCharSet kUTF16 = ULibCharSet(1);
const ULibCharSet kLatin1 = ULIB_toCharSet("ISO-8859-1");

std::string text(const UString& s) {
    return s.c_str(kUTF8);
}

const unsigned short* units(const char16_t* s) {
    return reinterpret_cast<const unsigned short*>(s);
}

// "<result>:<text>" of format with a UTF-8 format and UTF-8 narrow arguments.
std::string fmt(const char* f, ...) {
    UString s;
    va_list args;
    va_start(args, f);
    const int n = s.formatV(256, kUTF8, f, kUTF8, args);
    va_end(args);
    return std::to_string(n) + ":" + s.c_str(kUTF8);
}

std::string ref(const char* f, ...) {
    static char buf[1 << 16];
    va_list args;
    va_start(args, f);
    const int n = std::vsnprintf(buf, sizeof buf, f, args);
    va_end(args);
    return std::to_string(n) + ":" + buf;
}

} // namespace

// Where the two languages agree, every flag, width, precision and size must
// give printf's bytes.
TEST(UStringFormatTest, AgreesWithSnprintfOnATable) {
    const char* const ints[] = {"%d",   "%5d",   "%-5d|",    "%05d",   "%+d",   "% d",
                                "%.3d", "%8.3d", "%-+8.3d|", "%.0d",   "%hhd",  "%hd",
                                "%i",   "%u",    "%o",       "%#o",    "%#.0o", "%x",
                                "%#x",  "%#X",   "%#08x",    "%08.3x", "%hhu",  "%hx"};
    for (const char* f : ints)
        for (int v : {0, 1, -1, 42, -42, 255, 256, 65535, 70000, INT_MAX, INT_MIN}) {
            SCOPED_TRACE(std::string(f) + " " + std::to_string(v));
            EXPECT_EQ(fmt(f, v), ref(f, v));
        }
    const char* const longs[] = {"%ld", "%lld", "%lu", "%llx", "%#llo", "%+20lld", "%-22llu|"};
    for (const char* f : longs)
        for (long long v : {0LL, -1LL, LLONG_MIN, LLONG_MAX, 1234567890123LL}) {
            SCOPED_TRACE(std::string(f) + " " + std::to_string(v));
            EXPECT_EQ(fmt(f, v), ref(f, v));
        }
    const char* const floats[] = {"%f",   "%e",      "%g",       "%E",    "%G",    "%.0f",  "%#.0f",
                                  "%.0e", "%#.0e",   "%.3g",     "%#g",   "%#.3g", "%g",    "%+.2f",
                                  "% e",  "%012.4f", "%-12.2e|", "%.10g", "%.17g", "%.25f", "%.0g"};
    for (const char* f : floats)
        for (double v : std::initializer_list<double>{
                 0.0, -0.0, 1.0, -1.5, 0.1, 2.5, 1e-5, 123456789.0, 1e21, 9.9999e-5, 0.00001234,
                 DBL_MAX, DBL_MIN, 5e-324, HUGE_VAL, -HUGE_VAL, NAN}) {
            SCOPED_TRACE(std::string(f) + " " + std::to_string(v));
            EXPECT_EQ(fmt(f, v), ref(f, v));
        }
    EXPECT_EQ(fmt("%Lf %Le %Lg", 1.5L, 1e300L * 1e300L, LDBL_MIN),
              ref("%Lf %Le %Lg", 1.5L, 1e300L * 1e300L, LDBL_MIN));
    EXPECT_EQ(fmt("%c|%5c|%-3c|", 'a', 'b', 'c'), ref("%c|%5c|%-3c|", 'a', 'b', 'c'));
    EXPECT_EQ(fmt("%s|%8s|%-8s|%.2s|%5.1s|", "abc", "abc", "abc", "abc", "abc"),
              ref("%s|%8s|%-8s|%.2s|%5.1s|", "abc", "abc", "abc", "abc", "abc"));
    EXPECT_EQ(fmt("%*d|%-*d|%.*f|%*.*s|", 6, 1, 6, 2, 3, 1.0, 5, 2, "xyz"),
              ref("%*d|%-*d|%.*f|%*.*s|", 6, 1, 6, 2, 3, 1.0, 5, 2, "xyz"));
    EXPECT_EQ(fmt("%*d|", -6, 1), ref("%*d|", -6, 1));   // a negative width left-aligns
    EXPECT_EQ(fmt("%.*d|", -3, 7), ref("%.*d|", -3, 7)); // a negative precision is none
    EXPECT_EQ(fmt("100%% %d%%", 5), ref("100%% %d%%", 5));
    EXPECT_EQ(fmt("abc"), "3:abc");
    EXPECT_EQ(fmt("%.600f", 1.0), ref("%.600f", 1.0)); // past the small digit buffer
    // Precisions past the exact digits of any value are made up with zeros.
    EXPECT_EQ(fmt("%.20000f", 0.1), ref("%.20000f", 0.1));
    EXPECT_EQ(fmt("%#.20000e", 1e-300), ref("%#.20000e", 1e-300));
    EXPECT_EQ(fmt("%#.20000g", 3.0), ref("%#.20000g", 3.0));
}

// A seeded sweep over random flags, widths, precisions and values.
TEST(UStringFormatTest, AgreesWithSnprintfOnARandomSweep) {
    std::mt19937_64 rng(20261125);
    const char flags[] = "-+ #0";
    const char* const intTypes[] = {"d", "i", "u", "o", "x", "X", "ld", "lld", "llx", "hd", "hhu"};
    const char floatTypes[] = "efgEG";
    for (int i = 0; i < 20000; ++i) {
        std::string f = "[%";
        for (int k = 0; k < 5; ++k)
            if (rng() % 3 == 0)
                f += flags[k];
        if (rng() % 2)
            f += std::to_string(rng() % 30);
        if (rng() % 2)
            f += "." + std::to_string(rng() % 25);
        SCOPED_TRACE(f);
        if (rng() % 2) {
            const char* type = intTypes[rng() % std::size(intTypes)];
            f += type;
            f += "]";
            const long long v = static_cast<long long>(rng()) >> (rng() % 64);
            if (std::strchr(type, 'l') != nullptr)
                ASSERT_EQ(fmt(f.c_str(), v), ref(f.c_str(), v));
            else
                ASSERT_EQ(fmt(f.c_str(), static_cast<int>(v)), ref(f.c_str(), static_cast<int>(v)));
        } else {
            f += floatTypes[rng() % 5];
            f += "]";
            std::uint64_t bits = rng();
            double v;
            std::memcpy(&v, &bits, sizeof v);
            if (rng() % 2)
                v = std::ldexp(static_cast<double>(static_cast<long long>(rng() >> 20)),
                               static_cast<int>(rng() % 80) - 60);
            ASSERT_EQ(fmt(f.c_str(), v), ref(f.c_str(), v));
        }
    }
}

// The differences from printf that callers rely on.
TEST(UStringFormatTest, DeliberateDifferencesFromPrintf) {
    EXPECT_EQ(fmt("%p", reinterpret_cast<void*>(0xbeef)), "4:beef");    // no 0x ...
    EXPECT_EQ(fmt("%#p", reinterpret_cast<void*>(0xbeef)), "6:0xbeef"); // ... unless '#'
    EXPECT_EQ(fmt("%p", static_cast<void*>(nullptr)), "1:0");
    EXPECT_EQ(fmt("%5s|", static_cast<const char*>(nullptr)), "8:NULLPTR|");
    EXPECT_EQ(fmt("%.3s|", static_cast<const char*>(nullptr)), "4:NUL|");
    EXPECT_EQ(fmt("%U|", static_cast<const UString*>(nullptr)), "8:NULLPTR|");

    UString arg(units(u"h\u00e9llo"));
    EXPECT_EQ(fmt("[%U] [%-7.3U]", &arg, &arg), "17:[h\u00e9llo] [h\u00e9l    ]");

    // Narrow text in a set other than UTF-16 is cut at 512 units; UTF-16
    // text is not.
    const std::string long600(600, 'q');
    EXPECT_EQ(fmt("%s", long600.c_str()), "512:" + std::string(512, 'q'));
    const std::u16string wide600(600, u'q');
    UString s;
    EXPECT_EQ(s.format(0, kUTF16, units(u"%s"), wide600.c_str()), 600);

    // 'c' and 's' read in the argument set: Latin-1 and UTF-16.
    EXPECT_EQ(s.format(0, kLatin1, "%c%s", 0xE9, "\xE0\xE8"), 3);
    EXPECT_EQ(s, UString(units(u"\u00e9\u00e0\u00e8")));
    EXPECT_EQ(s.format(0, kUTF16, units(u"%c%s"), 0x263A, units(u"\u00e9x")), 3);
    EXPECT_EQ(s, UString(units(u"\u263a\u00e9x")));

    // 'n' stores the units so far, at the size named, and skips null.
    int n = -1;
    long long ln = -1;
    signed char hn = -1;
    EXPECT_EQ(fmt("ab%nc%lln%hhn%n", &n, &ln, &hn, static_cast<int*>(nullptr)), "3:abc");
    EXPECT_EQ(n, 2);
    EXPECT_EQ(ln, 3);
    EXPECT_EQ(hn, 3);
}

// Malformed formats give -1 and an empty string, never a crash; a null
// format leaves the string alone.
TEST(UStringFormatTest, MalformedFormatsFail) {
    for (const char* f : {"%", "abc%", "%5", "%-", "%.", "%l", "%q", "%-#5.3k", "%5%", "% %",
                          "%2147483648d", "%.2147483648d", "%2147483647d", "%.16777217f",
                          "%1$d %d", "%101$d", "%2$d", "%1$s %1$d",
                          "%1$p %1$s", "%1$f %1$Lf", "%*1$d"}) {
        SCOPED_TRACE(f);
        UString s("previous", kUTF8);
        EXPECT_EQ(s.format(f, 1, 2, 3), -1);
        EXPECT_TRUE(s.empty());
    }
    UString s("kept", kUTF8);
    EXPECT_EQ(s.format(static_cast<const char*>(nullptr)), -1);
    EXPECT_EQ(s.format(static_cast<const UString*>(nullptr)), -1);
    EXPECT_EQ(text(s), "kept");
    // Units outside the table are plain text outside a directive, and end
    // one inside it.
    EXPECT_EQ(s.format(units(u"\xd800%d\xdfff"), 7), 3);
    EXPECT_EQ(s.format(units(u"%\xd800"), 7), -1);
}

// The first directive decides the mode; each use of a number reads the same
// argument, and the kinds must agree.
TEST(UStringFormatTest, PositionalArguments) {
    EXPECT_EQ(fmt("%2$s %1$d", 7, "seven"), "7:seven 7");
    EXPECT_EQ(fmt("%1$d %1$x %1$#o %2$.1f", 8, 2.25), ref("%1$d %1$x %1$#o %2$.1f", 8, 2.25));
    EXPECT_EQ(fmt("%3$*1$.*2$f|", 8, 2, 3.14159), ref("%3$*1$.*2$f|", 8, 2, 3.14159));
    EXPECT_EQ(fmt("%2$-6.2s|%1$12d|", 42, "abc"), ref("%2$-6.2s|%1$12d|", 42, "abc"));
    EXPECT_EQ(fmt("%1$lld %2$Lg %3$s", 1LL << 40, 0.5L, "x"), "19:1099511627776 0.5 x");
    EXPECT_EQ(fmt("%%%1$d%%", 3), "3:%3%");
}

TEST(UStringFormatTest, GrowsPastTheInitialCapacity) {
    UString s;
    const std::string big(3000, 'z');
    EXPECT_EQ(s.format(4, kUTF8, "%s-%s-%0700d", "ab", big.c_str(), 5), 2 + 1 + 512 + 1 + 700);
    EXPECT_EQ(s.length(), 1216u);
    EXPECT_EQ(s[s.length() - 1], '5');
    // A format held by the string itself reads the old text.
    UString self("<%d>", kUTF8);
    EXPECT_EQ(self.format(&self, 12), 4);
    EXPECT_EQ(text(self), "<12>");
}

namespace {

// scan with a UTF-8 format over UTF-8 text.
int scan(const char* textIn, const char* f, ...) {
    const UString s(textIn, kUTF8);
    va_list args;
    va_start(args, f);
    const int n = s.scanV(kUTF8, f, kUTF8, args);
    va_end(args);
    return n;
}

} // namespace

// scan reads back what format wrote, conversion by conversion.
TEST(UStringFormatTest, ScanReadsBackWhatFormatWrote) {
    std::mt19937_64 rng(7);
    for (int i = 0; i < 2000; ++i) {
        const int d = static_cast<int>(rng());
        const unsigned u = static_cast<unsigned>(rng());
        const long long ll = static_cast<long long>(rng());
        const double g = std::ldexp(static_cast<double>(static_cast<long long>(rng() >> 11)),
                                    static_cast<int>(rng() % 200) - 100);
        const long double L = static_cast<long double>(g) / 3;
        const short h = static_cast<short>(rng());
        const signed char hh = static_cast<signed char>(rng());
        UString s;
        ASSERT_GT(s.format("%d %u %o %x %X %lld %.17g %.21Le %hd %hhd %c %s", d, u, u, u, u, ll, g,
                           L, h, hh, 'Q', "word"),
                  0);
        int d2 = 0;
        unsigned u2 = 0, o2 = 0, x2 = 0, X2 = 0;
        long long ll2 = 0;
        double g2 = 0;
        long double L2 = 0;
        short h2 = 0;
        signed char hh2 = 0;
        char c2 = 0;
        char s2[8] = {};
        ASSERT_EQ(s.scan("%d %u %o %x %X %lld %lg %Le %hd %hhd %c %s", &d2, &u2, &o2, &x2, &X2,
                         &ll2, &g2, &L2, &h2, &hh2, &c2, s2),
                  12)
            << text(s);
        EXPECT_EQ(d2, d);
        EXPECT_EQ(u2, u);
        EXPECT_EQ(o2, u);
        EXPECT_EQ(x2, u);
        EXPECT_EQ(X2, u);
        EXPECT_EQ(ll2, ll);
        EXPECT_EQ(g2, g);
        EXPECT_EQ(L2, L);
        EXPECT_EQ(h2, h);
        EXPECT_EQ(hh2, hh);
        EXPECT_EQ(c2, 'Q');
        EXPECT_STREQ(s2, "word");
    }
    UString written;
    const UString arg(units(u"caf\u00e9"));
    written.format("[%U] %e", &arg, 0.25);
    UString back;
    float f = 0;
    char latin[8] = {};
    EXPECT_EQ(written.scan(kLatin1, "[%[^]]] %f", latin, &f), 2);
    EXPECT_STREQ(latin, "caf\xE9");
    EXPECT_EQ(f, 0.25f);
    f = 0;
    EXPECT_EQ(written.scan("[%U %f", &back, &f), 2); // 'U' stops at white space only
    EXPECT_EQ(text(back), "caf\u00e9]");
    EXPECT_EQ(f, 0.25f);
}

// Partial input: the count says how far the scan came.
TEST(UStringFormatTest, ScanStopsWhereTheTextStops) {
    int a = 0, b = 0;
    EXPECT_EQ(scan("12 x", "%d %d", &a, &b), 1);
    EXPECT_EQ(a, 12);
    EXPECT_EQ(scan("1 2", "%*d %d", &b), 1);
    EXPECT_EQ(b, 2);
    char buf[16] = {};
    EXPECT_EQ(scan("ab,c", "%[^,]", buf), 1);
    EXPECT_STREQ(buf, "ab");
    EXPECT_EQ(scan("", "%d", &a), 0);
    EXPECT_EQ(scan("   ", "%s", buf), 0);
    EXPECT_EQ(scan("7", "%d %d", &a, &b), 1);
    EXPECT_EQ(scan("7,", "%d,%d", &a, &b), 1);
    EXPECT_EQ(scan("-", "%d", &a), 0);
    EXPECT_EQ(scan("0x", "%x", &a), 1); // "0x" with no digit behind reads 0
    EXPECT_EQ(a, 0);
    EXPECT_EQ(scan("1e", "%lg", reinterpret_cast<double*>(buf)), 1);
    EXPECT_EQ(scan("abc", "%5c", buf), 1); // short text: what is there
    EXPECT_EQ(scan("x", "%[", buf), 0);    // a set with no end
    EXPECT_EQ(scan("5", "%", &a), 0);
    EXPECT_EQ(scan("5", "%k", &a), 0);
}

TEST(UStringFormatTest, ScanWidthsSetsAndCounts) {
    int a = 0, b = 0, n = 0;
    EXPECT_EQ(scan("-12345", "%3d%d", &a, &b), 2); // the sign counts in the width
    EXPECT_EQ(a, -12);
    EXPECT_EQ(b, 345);
    EXPECT_EQ(scan("1789", "%o%d", &a, &b), 2); // octal stops at 8
    EXPECT_EQ(a, 017);
    EXPECT_EQ(b, 89);
    EXPECT_EQ(scan("0XfF-0x10", "%x%x", &a, &b), 2);
    EXPECT_EQ(a, 255);
    EXPECT_EQ(b, -16);
    EXPECT_EQ(scan("  ab  cd", "%*s%n %s", &n, reinterpret_cast<char*>(&b)), 1);
    EXPECT_EQ(n, 4);
    char buf[16] = {};
    EXPECT_EQ(scan("]a-b^z", "%[]a-]", buf), 1); // ']' first and '-' last are members
    EXPECT_STREQ(buf, "]a-");
    EXPECT_EQ(scan("mzqa", "%[z-m]", buf), 1); // a reversed range
    EXPECT_STREQ(buf, "mzq");
    EXPECT_EQ(scan("a%b", "a%%b"), 0); // a literal percent, nothing assigned
    EXPECT_EQ(scan("a%b7", "a%%b%d", &a), 1);
    std::int64_t big = 0;
    EXPECT_EQ(scan("-9223372036854775808", "%lld", &big), 1);
    EXPECT_EQ(big, INT64_MIN);
    // 'l' stores 32 bits (kept on purpose): the upper half of a 64-bit
    // target stays as it was.
    std::int64_t wide = -1;
    EXPECT_EQ(scan("5", "%ld", &wide), 1);
    EXPECT_EQ(wide, static_cast<std::int64_t>(0xFFFFFFFF00000005ULL));

    // UTF-16 results: units, terminated.
    const UString s(units(u"\u263a\u00e9 z"));
    unsigned short w[4] = {1, 1, 1, 1};
    EXPECT_EQ(s.scan(kUTF16, "%s", w), 1);
    EXPECT_EQ(w[0], 0x263A);
    EXPECT_EQ(w[1], 0xE9);
    EXPECT_EQ(w[2], 0);
}
