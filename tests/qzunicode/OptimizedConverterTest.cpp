//===- tests/qzunicode/OptimizedConverterTest.cpp - Pair converters vs ICU ===//
//
// The optimised converters must answer as the ICU path does: for each pair in
// the table below, random valid text, random bytes and text with bad bytes
// in it go through both under every error behaviour, into roomy and small
// targets, whole and in cursor pieces, and must come out byte for byte the
// same with the same error. A failure names the pair, the seed and the input.
//
//===----------------------------------------------------------------------===//
#include "qzunicode/COptimizedConverter.h"
#include "qzunicode/CSConverter.h"
#include "qzunicode/ULib.h"
#include "qzunicode/detail/ICUPath.h"
#include "qzunicode/detail/OptimizedConverters.h"
#include "qzunicode/detail/SimdKernels.h"

#include <gtest/gtest.h>

#include <unicode/ucnv.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <thread>
#include <vector>

using namespace qzs::qzlib::qzunicode;

namespace {

ULibCharSet cs(int n) {
    return ULibCharSet(n);
}

struct Result {
    std::string bytes;
    ULibError err;
    bool operator==(const Result& o) const { return bytes == o.bytes && err == o.err; }
};

std::string hex(const std::string& s) {
    std::string out;
    char buf[4];
    for (unsigned char c : s) {
        std::snprintf(buf, sizeof buf, "%02X ", c);
        out += buf;
    }
    return out;
}

std::ostream& operator<<(std::ostream& os, const Result& r) {
    return os << "[" << hex(r.bytes) << "] err " << r.err;
}

Result viaICU(int source, int target, const std::string& in, int room, bool substitute) {
    std::string out(room, '\0');
    ULibError err = ULIB_OK;
    const int n = detail::convertThroughICU(cs(target), out.data(), room, cs(source), in.data(),
                                            int(in.size()), substitute, &err);
    return {out.substr(0, n), err};
}

Result viaOptimised(const COptimizedConverter& c, const std::string& in, int room, bool substitute,
                    int maxChars = 0) {
    std::string out(room, '\0');
    ULibError err = ULIB_OK;
    const int n =
        c.convert(out.data(), room, maxChars, in.data(), int(in.size()), substitute, &err, nullptr);
    return {out.substr(0, n), err};
}

// Restores the thread's settings a test changed.
struct SettingsGuard {
    ~SettingsGuard() {
        ULIB_setConverterErrorBehavior(ULIB_CNV_STOP);
        const unsigned short sub = 0x1A;
        ULIB_setSubstString(&sub, 1);
    }
};

// Text in a set: random UTF-16 of the set's repertoire, found by reading
// random bytes (or code points, for a UTF set) through ICU and dropping what
// does not convert.
std::string validText(int set, std::mt19937& rng, int chars) {
    std::u16string units;
    std::uniform_int_distribution<int> pick(0, 99);
    if (set <= 2) {
        for (int i = 0; i < chars; ++i) {
            const int k = pick(rng);
            char32_t cp = k < 40   ? 0x20 + rng() % 0x5F
                          : k < 90 ? 0xA0 + rng() % 0xD700
                                   : 0x10000 + rng() % 0xFFFFF;
            if (cp >= 0xD800 && cp <= 0xDFFF)
                cp = 'x';
            if (cp > 0xFFFF) {
                units += char16_t(0xD7C0 + (cp >> 10));
                units += char16_t(0xDC00 + (cp & 0x3FF));
            } else {
                units += char16_t(cp);
            }
        }
    } else {
        std::string raw;
        for (int i = 0; i < 3 * chars; ++i)
            raw += char(pick(rng) < 50 ? 0x20 + rng() % 0x5F : rng() % 256);
        std::vector<unsigned short> buf(raw.size() * 2 + 4);
        CSConverter c(cs(set), ULIB_CNV_SKIP, true);
        ULibError e;
        const int n = c.toUTF16(buf.data(), int(buf.size()), raw.data(), int(raw.size()), &e);
        units.assign(reinterpret_cast<const char16_t*>(buf.data()), n);
    }
    std::string out(units.size() * 4 + 8, '\0');
    CSConverter back(cs(set), ULIB_CNV_SKIP, true);
    ULibError e;
    int n;
    if (set == 1)
        return std::string(reinterpret_cast<const char*>(units.data()), units.size() * 2);
    n = back.fromUTF16(out.data(), int(out.size()),
                       reinterpret_cast<const unsigned short*>(units.data()), int(units.size()),
                       &e);
    return out.substr(0, n);
}

std::string randomBytes(std::mt19937& rng, int n) {
    std::string s;
    for (int i = 0; i < n; ++i)
        s += char(rng() % 256);
    return s;
}

// Valid text with a few random bytes dropped in.
std::string mixedText(int set, std::mt19937& rng, int chars) {
    std::string s = validText(set, rng, chars);
    for (int i = 0; i < 4 && !s.empty(); ++i)
        s.insert(rng() % s.size(), 1, char(0x80 + rng() % 128));
    if (set == 1 || set == 2)
        s.resize(s.size() & ~std::size_t(1));
    return s;
}

struct Pair {
    int source, target;
};

// Sources of each kind served (single byte, double byte, EUC-JP, EUC-TW, the
// UTFs) into targets of each kind (single byte, multi-byte, UTF-8, UTF-16 and
// UTF-32 in both orders).
const Pair kPairs[] = {
    {1047, 1032}, {1032, 0}, {1032, 1},    {1017, 1047}, {1003, 2},    {1032, 5},    {1017, 5000},
    {1000, 1032}, {5000, 1}, {5000, 0},    {5000, 1032}, {5001, 5000}, {5004, 4},    {5008, 2},
    {5024, 5005}, {5005, 0}, {5005, 1},    {5005, 1032}, {5006, 5000}, {5009, 0},    {5009, 2},
    {0, 1047},    {0, 1032}, {0, 5000},    {0, 1},       {0, 5},       {1, 5000},    {1, 1032},
    {2, 0},       {1, 5005}, {1032, 5010}, {0, 5014},    {5000, 5010}, {5005, 5014}, {1, 5011},
    {5009, 5013}, {5010, 0}, {5014, 1},    {5010, 1032}, {5012, 5001}, {5014, 5010}, {5011, 2},
};

const ULibCnvErrBehavior kBehaviours[] = {ULIB_CNV_STOP, ULIB_CNV_SKIP, ULIB_CNV_SUBSTITUTE,
                                          ULIB_CNV_ESCAPE, ULIB_CNV_DEFAULT};

std::string describe(const Pair& p, unsigned seed, int behaviour, const std::string& in) {
    return std::to_string(p.source) + " to " + std::to_string(p.target) + ", seed " +
           std::to_string(seed) + ", behaviour " + std::to_string(behaviour) + ", input [" +
           hex(in) + "]";
}

// Scenario: the heart of it. Whole-buffer conversions of valid, random and
// mixed input, under every behaviour and with substitute, into roomy and
// small targets, equal the ICU path.
TEST(OptimizedConverterTest, WholeBuffersMatchTheICUPath) {
    SettingsGuard guard;
    const unsigned short sub[] = {'?', '!'};
    for (const Pair& p : kPairs) {
        const COptimizedConverter* c =
            COptimizedConverter::getConverter(cs(p.source), cs(p.target));
        ASSERT_NE(nullptr, c) << p.source << " to " << p.target;
        for (unsigned seed = 1; seed <= 6; ++seed) {
            std::mt19937 rng(seed * 7919 + p.source * 31 + p.target);
            const std::string inputs[] = {validText(p.source, rng, 40), randomBytes(rng, 24),
                                          mixedText(p.source, rng, 30)};
            for (const ULibCnvErrBehavior b : kBehaviours) {
                ULIB_setConverterErrorBehavior(b);
                ULIB_setSubstString(sub, seed % 2 + 1);
                for (std::string in : inputs) {
                    if (p.source == 1 || p.source == 2)
                        in.resize(in.size() & ~std::size_t(1));
                    const int roomy = int(in.size()) * 12 + 16;
                    const int small = 1 + int(rng() % (in.size() + 2));
                    for (const int room : {roomy, small})
                        for (const bool substitute : {false, true}) {
                            const Result icu = viaICU(p.source, p.target, in, room, substitute);
                            const Result opt = viaOptimised(*c, in, room, substitute);
                            // On overflow with bad characters handled, the
                            // ICU path's search for what fits may keep less
                            // (it starts too short when characters are
                            // skipped) or more (half an escape, or a last
                            // character cut and substituted), which we never
                            // write. Either is the start of the other.
                            if ((b != ULIB_CNV_STOP || substitute) &&
                                icu.err == ULIB_ERR_BUFFER_OVERFLOW && opt.err == icu.err &&
                                (opt.bytes.compare(0, icu.bytes.size(), icu.bytes) == 0 ||
                                 icu.bytes.compare(0, opt.bytes.size(), opt.bytes) == 0))
                                continue;
                            ASSERT_EQ(icu, opt) << describe(p, seed, b, in) << " room " << room
                                                << (substitute ? " substitute" : "");
                        }
                }
            }
        }
    }
}

// Scenario: a stream converted in cursor pieces, cut anywhere (inside a
// character too), comes out as the whole buffer does through ICU.
TEST(OptimizedConverterTest, CursorPiecesMatchTheWholeConversion) {
    SettingsGuard guard;
    for (const Pair& p : kPairs) {
        const COptimizedConverter* c =
            COptimizedConverter::getConverter(cs(p.source), cs(p.target));
        for (unsigned seed = 1; seed <= 4; ++seed) {
            std::mt19937 rng(seed + p.source + p.target * 3);
            for (const ULibCnvErrBehavior b : {ULIB_CNV_SKIP, ULIB_CNV_SUBSTITUTE, ULIB_CNV_STOP}) {
                ULIB_setConverterErrorBehavior(b);
                const std::string in =
                    seed % 2 ? validText(p.source, rng, 40) : mixedText(p.source, rng, 40);
                std::string out(in.size() * 12 + 16, '\0');
                c->convert(out.data(), 1, 0, in.data(), 0, false, nullptr, nullptr); // afresh
                char* d = out.data();
                const char* s = in.data();
                ULibError err = ULIB_OK;
                for (std::size_t cut = rng() % 5; cut < in.size(); cut += 1 + rng() % 6) {
                    c->convert(&d, out.data() + out.size(), 0, &s, in.data() + cut, false, false,
                               &err, nullptr);
                    if (err != ULIB_OK)
                        break;
                }
                if (err == ULIB_OK)
                    c->convert(&d, out.data() + out.size(), 0, &s, in.data() + in.size(), false,
                               true, &err, nullptr);
                const Result pieces{out.substr(0, d - out.data()), err};
                EXPECT_EQ(viaICU(p.source, p.target, in, int(out.size()), false), pieces)
                    << describe(p, seed, b, in);
            }
        }
    }
}

// Scenario: a character limit stops after that many source characters, with
// ULIB_ERR_MAX_CHARS while input remains, and what came out is the ICU
// conversion of exactly the characters read.
TEST(OptimizedConverterTest, CharacterLimitCountsSourceCharacters) {
    SettingsGuard guard;
    ULIB_setConverterErrorBehavior(ULIB_CNV_SUBSTITUTE); // every character writes
    for (const Pair& p : kPairs) {
        const COptimizedConverter* c =
            COptimizedConverter::getConverter(cs(p.source), cs(p.target));
        std::mt19937 rng(p.source ^ p.target);
        const std::string in = validText(p.source, rng, 20);
        for (const int limit : {1, 2, 7, 1000}) {
            std::string out(in.size() * 12 + 16, '\0');
            c->convert(out.data(), 1, 0, in.data(), 0, false, nullptr, nullptr); // afresh
            char* d = out.data();
            const char* s = in.data();
            ULibError err = ULIB_OK;
            c->convert(&d, out.data() + out.size(), limit, &s, in.data() + in.size(), false, true,
                       &err, nullptr);
            const std::string read(in.data(), s);
            // Count what was read, as ICU reads it.
            UErrorCode st = U_ZERO_ERROR;
            UConverter* u = ucnv_open(
                p.source == 1 ? "UTF-16LE" : CSConverter::toConverterName(cs(p.source)), &st);
            int chars = 0;
            for (const char* q = read.data(); q < read.data() + read.size(); ++chars)
                ucnv_getNextUChar(u, &q, read.data() + read.size(), &st);
            ucnv_close(u);
            // A character that writes nothing is not counted, so as many or
            // more may be read than the limit.
            if (err == ULIB_ERR_MAX_CHARS) {
                EXPECT_GE(chars, limit) << p.source << " to " << p.target;
            }
            EXPECT_EQ(read.size() < in.size() ? ULIB_ERR_MAX_CHARS : ULIB_OK, err);
            EXPECT_EQ(viaICU(p.source, p.target, read, int(out.size()), false).bytes,
                      out.substr(0, d - out.data()))
                << p.source << " to " << p.target << " limit " << limit;
        }
    }
}

// Western text as UTF-8: mostly ASCII and Latin-1, now and then a character
// beyond U+00FF (which the 64-byte loop hands back to the per-character one).
std::string westernUTF8(std::mt19937& rng, int chars) {
    std::string s;
    for (int i = 0; i < chars; ++i) {
        const unsigned k = rng() % 100;
        const char32_t cp = k < 75 ? 0x20 + rng() % 0x5F
                            : k < 96 ? 0xA0 + rng() % 0x60
                            : k < 98 ? 0x20AC
                                     : 0x100 + rng() % 0x80;
        if (cp < 0x80) {
            s += char(cp);
        } else if (cp < 0x800) {
            s += char(0xC0 | (cp >> 6));
            s += char(0x80 | (cp & 0x3F));
        } else {
            s += char(0xE0 | (cp >> 12));
            s += char(0x80 | ((cp >> 6) & 0x3F));
            s += char(0x80 | (cp & 0x3F));
        }
    }
    return s;
}

// Scenario: texts of several 64-byte blocks, where the wide loops run: a bad
// byte or a character cut at a block's edge, ASCII blocks, and targets that
// end inside a block all come out as through the ICU path, with the wide
// loops and (on a fresh thread, whose converters are built anew) without.
void longTextsMatchTheICUPath();
TEST(OptimizedConverterTest, LongTextsMatchTheICUPath) {
    longTextsMatchTheICUPath();
    simd::setEnabled(false);
    std::thread(longTextsMatchTheICUPath).join();
    simd::setEnabled(true);
}

void longTextsMatchTheICUPath() {
    SettingsGuard guard;
    const Pair pairs[] = {{1047, 1032}, {1000, 1032}, {1017, 1047}, {1032, 0},   {1032, 1},
                          {1003, 2},    {1017, 5000}, {1032, 5},    {0, 1047},   {0, 1032},
                          {1, 5000},    {2, 5000},    {1, 5005},    {5000, 1},   {5005, 0}};
    for (const Pair& p : pairs) {
        const COptimizedConverter* c =
            COptimizedConverter::getConverter(cs(p.source), cs(p.target));
        ASSERT_NE(nullptr, c);
        for (unsigned seed = 1; seed <= 13; ++seed) {
            std::mt19937 rng(seed * 104729 + p.source * 7 + p.target);
            if (seed == 13 && p.source != 0)
                continue;
            const int chars = 60 + int(rng() % 400);
            std::string in = p.source == 0   ? westernUTF8(rng, chars)
                             : p.source <= 2 ? viaICU(5000, p.source, validText(5000, rng, chars),
                                                      chars * 8, false)
                                                   .bytes
                                             : validText(p.source, rng, chars);
            if (seed % 4 == 1)
                in = std::string(130 + rng() % 70, 'a') + in; // ASCII blocks first
            if (seed % 3 == 0 && in.size() > 70) // a bad byte at or near a block's edge
                in[64 * (rng() % (in.size() / 64)) + 63 + rng() % 3 - 1] = char(0xFF);
            if (seed % 6 == 2)
                in = randomBytes(rng, 64 + int(rng() % 300));
            if (seed == 13) // a block ending on a lead, then one the wide loop refuses
                in = std::string(62, 'a') + "\xC3\xA9" + std::string(10, 'b') + "\xE2\x82\xAC" +
                     std::string(100, 'c');
            if (p.source == 1 || p.source == 2)
                in.resize(in.size() & ~std::size_t(1));
            const int roomy = int(in.size()) * 4 + 16;
            const int exact = int(viaICU(p.source, p.target, in, roomy, false).bytes.size());
            for (const int room : {roomy, exact, exact - 1, 64, 127, 129})
                for (const ULibCnvErrBehavior b : {ULIB_CNV_STOP, ULIB_CNV_SUBSTITUTE}) {
                    if (room < 1)
                        continue;
                    ULIB_setConverterErrorBehavior(b);
                    EXPECT_EQ(viaICU(p.source, p.target, in, room, false),
                              viaOptimised(*c, in, room, false))
                        << describe(p, seed, b, in) << " room " << room;
                }
        }
    }
}

// Scenario: the pointed cases of bad input, each against the ICU path: cut
// characters at the end and at a cursor split, bad lead and trail bytes,
// lone surrogates, targets of 1 byte.
TEST(OptimizedConverterTest, BadInputMatchesTheICUPath) {
    SettingsGuard guard;
    struct Case {
        int source, target;
        std::string in;
        int room;
    };
    const Case cases[] = {
        {0, 1032, "ab\xE4\xB8", 16},                     // cut at the end: ICU's 1005
        {0, 1032, "a\xED\xA0\x80z", 16},                 // an encoded surrogate is bad
        {0, 1032, "a\xC0\xAFz", 16},                     // overlong
        {0, 1, "a\xF0\x9F\x98\x80z", 16},                // beyond the BMP
        {0, 5000, "a\xF0\x9F\x98", 16},                  // cut 4-byte form
        {5000, 0, "a\x81", 16},                          // lead byte last
        {5000, 0, "a\x81\x20z", 16},                     // bad trail
        {5000, 1, "\x82\xA0\x82\xA2", 1},                // a 1-byte UTF-16 target
        {5005, 0, "\x8F\xA1", 16},                       // SS3 cut
        {5005, 0, "\x8E\x20z", 16},                      // SS2 with a bad byte
        {1, 1032, std::string("a\0\x00\xD8z\0", 6), 16}, // lone high surrogate
        {1, 1032, std::string("a\0\x00\xDC", 4), 16},    // lone low surrogate last
        {1, 0, std::string("a\0\x77\xDF", 4), 16},       // the same, to UTF-8: ICU's 1005
        {1032, 1047, "\xE9\xFF", 1},
        {1033, 5015, "\xB4\xF1", 3},      // a run left open at a character the target lacks
        {0, 5014, "\xE4\xB8\x80\xFF", 3}, // and closed at one bad in the source
    };
    for (const ULibCnvErrBehavior b : kBehaviours) {
        ULIB_setConverterErrorBehavior(b);
        for (const Case& k : cases) {
            const COptimizedConverter* c =
                COptimizedConverter::getConverter(cs(k.source), cs(k.target));
            ASSERT_NE(nullptr, c);
            EXPECT_EQ(viaICU(k.source, k.target, k.in, k.room, false),
                      viaOptimised(*c, k.in, k.room, false))
                << describe({k.source, k.target}, 0, b, k.in);
        }
    }
    // A character cut by the end of a piece that is not the last is no error:
    // it waits for the next piece, and the cursor stays on it.
    const COptimizedConverter* c = COptimizedConverter::getConverter(cs(0), cs(1032));
    const std::string in = "ab\xC3";
    char out[8];
    char* d = out;
    const char* s = in.data();
    ULibError err = ULIB_ERR_UNKNOWN;
    EXPECT_EQ(2, c->convert(&d, out + 8, 0, &s, in.data() + 3, false, false, &err, nullptr));
    EXPECT_EQ(ULIB_OK, err);
    EXPECT_EQ(2, s - in.data());
}

// Scenario: into an EBCDIC stateful set, double byte characters come out in
// runs between shifts; a flushed conversion always ends outside a run, even
// when it stops, and a stream cut with flush false keeps its run open into
// the next call rather than closing and reopening it.
TEST(OptimizedConverterTest, ShiftedTargetsKeepTheirRuns) {
    const COptimizedConverter* c = COptimizedConverter::getConverter(cs(5005), cs(5010));
    ASSERT_NE(nullptr, c);
    const std::string kanji = "\xC6\xFC\xCB\xDC"; // two characters of EUC-JP
    const std::string text = kanji + "A" + kanji;
    const Result whole = viaOptimised(*c, text, 64, false);
    ASSERT_EQ(ULIB_OK, whole.err);
    ASSERT_EQ(13u, whole.bytes.size()); // 0E k k k k 0F A 0E k k k k 0F
    EXPECT_EQ('\x0E', whole.bytes[0]);
    EXPECT_EQ('\x0F', whole.bytes[5]);
    EXPECT_EQ('\x0E', whole.bytes[7]);
    EXPECT_EQ('\x0F', whole.bytes[12]);
    // Room for the shift and one character, and no more: no half character
    // and the run closed.
    for (int room = 1; room <= 13; ++room)
        EXPECT_EQ(viaICU(5005, 5010, text, room, false), viaOptimised(*c, text, room, false))
            << "room " << room;
    // In two pieces cut between the kanji: one run.
    std::string out(64, '\0');
    c->convert(out.data(), 64, 0, kanji.data(), 0, false, nullptr, nullptr); // afresh
    char* d = out.data();
    const char* s = kanji.data();
    ULibError err = ULIB_OK;
    c->convert(&d, out.data() + 64, 0, &s, kanji.data() + 2, false, false, &err, nullptr);
    EXPECT_TRUE(c->targetInDoubleByte());
    c->convert(&d, out.data() + 64, 0, &s, kanji.data() + 4, false, true, &err, nullptr);
    EXPECT_EQ(viaICU(5005, 5010, kanji, 64, false).bytes, out.substr(0, d - out.data()));
    EXPECT_FALSE(c->targetInDoubleByte());
}

// Scenario: UTF-16 and UTF-32 at odd addresses, source and target, through
// the public call: the same bytes and error as at even ones (the loops and the
// wide loops read and write bytes, never aligned units).
TEST(OptimizedConverterTest, OddAddressesConvertAlike) {
    const Pair pairs[] = {{1, 5000}, {2, 1032}, {5000, 1}, {0, 4}, {1032, 5}, {1, 0}};
    for (const Pair& p : pairs) {
        std::mt19937 rng(p.source * 13 + p.target);
        std::string in = p.source <= 2 ? viaICU(5000, p.source, validText(5000, rng, 200), 4096,
                                                false).bytes
                                       : validText(p.source, rng, 200);
        if (p.source <= 2)
            in.resize(in.size() & ~std::size_t(1));
        std::vector<char> src(in.size() + 1), dst(in.size() * 4 + 17), even(dst.size());
        std::memcpy(src.data() + 1, in.data(), in.size());
        ULibError oddErr = ULIB_OK, evenErr = ULIB_OK;
        const int odd = ULIB_CStoCS(cs(p.target), dst.data() + 1, int(dst.size()) - 1, 0,
                                    cs(p.source), src.data() + 1, int(in.size()), false, false,
                                    &oddErr, nullptr);
        const int n = ULIB_CStoCS(cs(p.target), even.data(), int(even.size()) - 1, 0,
                                  cs(p.source), in.data(), int(in.size()), false, false, &evenErr,
                                  nullptr);
        ASSERT_EQ(n, odd) << p.source << " to " << p.target;
        EXPECT_EQ(evenErr, oddErr);
        EXPECT_EQ(0, std::memcmp(dst.data() + 1, even.data(), std::size_t(n)));
    }
}

// Scenario: the UTF-32 reader, which no pair uses: either order, and the
// values a strict reader refuses.
TEST(OptimizedConverterTest, Utf32ReaderIsStrict) {
    struct Case {
        const char* bytes;
        bool little, ok;
        unsigned int cp;
    } const cases[] = {
        {"\x41\0\0\0", true, true, 0x41},          {"\0\0\0\x41", false, true, 0x41},
        {"\0\xF6\x01\0", true, true, 0x1F600},     {"\0\x01\xF6\0", false, true, 0x1F600},
        {"\0\xD8\0\0", true, false, 0},            {"\0\0\x11\0", true, false, 0},
        {"\xFF\xFF\xFF\xFF", false, false, 0},
    };
    for (const Case& c : cases) {
        unsigned int cp = 0;
        int consumed = 0;
        const bool ok = utf32Reader(c.little).getNextUTFChar(
            reinterpret_cast<const unsigned char*>(c.bytes), 4, cp, consumed);
        EXPECT_EQ(c.ok, ok) << std::hex << c.cp;
        if (ok) {
            EXPECT_EQ(c.cp, cp);
        }
        EXPECT_FALSE(utf32Reader(c.little).getNextUTFChar(
            reinterpret_cast<const unsigned char*>(c.bytes), 3, cp, consumed));
    }
}

// Scenario: a stop reports where, and which bytes, in the detail.
TEST(OptimizedConverterTest, StopFillsTheDetail) {
    const COptimizedConverter* c = COptimizedConverter::getConverter(cs(0), cs(1032));
    ULibBadCharDetail detail{99, 0, {}};
    ULibError err = ULIB_OK;
    char out[16];
    const std::string in = "hello \xE2\x82\xAC!";
    EXPECT_EQ(6, c->convert(out, 16, 0, in.data(), int(in.size()), false, &err, &detail));
    EXPECT_EQ(ULIB_ERR_INVALID_CHAR, err);
    EXPECT_EQ(6u, detail.uOffset);
    ASSERT_EQ(3, detail.nBytes);
    EXPECT_EQ(0, std::memcmp(detail.acBytes, "\xE2\x82\xAC", 3));
}

// Scenario: the cache answers per pair and per thread: the same object for a
// pair asked twice and for 3 as 1, null for pairs no converter serves, and
// tables are counted.
TEST(OptimizedConverterTest, CacheKeepsOneConverterPerPair) {
    const COptimizedConverter* a = COptimizedConverter::getConverter(cs(5000), cs(0));
    EXPECT_EQ(a, COptimizedConverter::getConverter(cs(5000), cs(0)));
    EXPECT_EQ(COptimizedConverter::getConverter(cs(1), cs(1032)),
              COptimizedConverter::getConverter(cs(3), cs(1032)));
    EXPECT_EQ(nullptr, COptimizedConverter::getConverter(cs(6), cs(1032))); // a UTF-32 source
    EXPECT_EQ(nullptr, COptimizedConverter::getConverter(cs(4), cs(1032)));
    EXPECT_EQ(nullptr, COptimizedConverter::getConverter(cs(5025), cs(0)));    // gb18030
    EXPECT_EQ(nullptr, COptimizedConverter::getConverter(cs(1032), cs(9)));    // UTF-7
    EXPECT_EQ(nullptr, COptimizedConverter::getConverter(cs(1032), cs(1124))); // no ICU data
    EXPECT_GT(a->memoryBytes(), 64u * 1024); // a double-byte table
    EXPECT_GE(COptimizedConverter::threadMemoryBytes(), a->memoryBytes());
    const COptimizedConverter* other = nullptr;
    std::thread([&other] { other = COptimizedConverter::getConverter(cs(5000), cs(0)); }).join();
    EXPECT_NE(a, other); // (deleted with its thread; only the address is compared)
}

// Scenario: an override changes one mapping of the pair on this thread, an
// override with the original mapping undoes it, and values that are not one
// character are refused.
TEST(OptimizedConverterTest, OverridesChangeOneMapping) {
    struct Case {
        int source, target;
        unsigned long from, to;
        std::string in, before, after;
    };
    const Case cases[] = {
        {1032, 1047, 0x41, 0x5B, "AB", "\xC1\xC2", "\x5B\xC2"},
        {1032, 0, 0xA4, 0xE282AC, "\xA4", "\xC2\xA4", "\xE2\x82\xAC"},
        {0, 1032, 0x20AC, 0xA4, "\xE2\x82\xAC", "", "\xA4"},
        {0, 1, 0x1F600, 0xD83DDE03, "\xF0\x9F\x98\x80", std::string("\x3D\xD8\0\xDE", 4),
         "\x3D\xD8\x03\xDE"},
        {5000, 0, 0x82A0, 0x41, "\x82\xA0", "\xE3\x81\x82", "A"},
        {5005, 0, 0x8FA2AF, 0x42, "\x8F\xA2\xAF", "\xCB\x98", "B"},
    };
    for (const Case& k : cases) {
        const COptimizedConverter* c =
            COptimizedConverter::getConverter(cs(k.source), cs(k.target));
        ASSERT_NE(nullptr, c);
        EXPECT_EQ(k.before, viaOptimised(*c, k.in, 16, false).bytes)
            << k.source << " to " << k.target;
        ASSERT_EQ(ULIB_OK, ULIB_charMapOverride(cs(k.source), k.from, cs(k.target), k.to));
        EXPECT_EQ(k.after, viaOptimised(*c, k.in, 16, false).bytes)
            << k.source << " to " << k.target;
    }
    // Back to the original mapping.
    ASSERT_EQ(ULIB_OK, ULIB_charMapOverride(cs(1032), 0x41, cs(1047), 0xC1));
    EXPECT_EQ("\xC1\xC2",
              viaOptimised(*COptimizedConverter::getConverter(cs(1032), cs(1047)), "AB", 16, false)
                  .bytes);
    // Refused: a zero target, a source that is no character, a wide byte.
    EXPECT_EQ(ULIB_ERR_INVALID_CHAR, ULIB_charMapOverride(cs(1032), 0x41, cs(1047), 0));
    EXPECT_EQ(ULIB_ERR_INVALID_CHAR, ULIB_charMapOverride(cs(1032), 0x141, cs(1047), 0x41));
    EXPECT_EQ(ULIB_ERR_INVALID_CHAR, ULIB_charMapOverride(cs(1032), 0x41, cs(1047), 0x4142));
    EXPECT_EQ(ULIB_ERR_INVALID_CHAR, ULIB_charMapOverride(cs(5000), 0x82, cs(0), 0x41));
    EXPECT_EQ(ULIB_ERR_INVALID_CHAR, ULIB_charMapOverride(cs(0), 0xD800, cs(1032), 0x41));
    EXPECT_EQ(ULIB_ERR_NO_CONVERTER, ULIB_charMapOverride(cs(5025), 0x41, cs(0), 0x41));
}

// Scenario: many threads convert through their own converters of the same
// pairs at once, each with its own override; no thread sees another's.
TEST(OptimizedConverterTest, ThreadsKeepTheirOwnConverters) {
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 6; ++t)
        threads.emplace_back([t, &failures] {
            const unsigned char mine = static_cast<unsigned char>(0xC1 + t);
            if (ULIB_charMapOverride(cs(1032), 0x41, cs(1047), mine) != ULIB_OK)
                ++failures;
            for (int i = 0; i < 200; ++i) {
                char out[8];
                ULibError err;
                const int n = ULIB_CStoCS(cs(1047), out, 8, 0, cs(1032), "AB", 2, false, false,
                                          &err, nullptr);
                if (n != 2 || static_cast<unsigned char>(out[0]) != mine)
                    ++failures;
                unsigned short units[4];
                if (ULIB_CStoCS(cs(1), units, 8, 0, cs(5000), "\x82\xA0", 2, false, false, &err,
                                nullptr) != 2 ||
                    units[0] != 0x3042)
                    ++failures;
            }
        });
    for (std::thread& th : threads)
        th.join();
    EXPECT_EQ(0, failures.load());
}

} // namespace
