//===- tests/qzunicode/UStringTest.cpp - The reference-counted string -----===//
//
// The lazy forms and what they cost, copy-on-write, the edits whose zero-unit
// and position rules differ from std::basic_string, searches, find and
// replace, comparisons, case, the pool, and shared bodies across threads.
//
//===----------------------------------------------------------------------===//
#include "qzunicode/UString.h"

#include "qzunicode/ULib.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

using namespace qzs::qzlib::qzunicode;

namespace {

constexpr ULibCharSet kUTF8 = ULibCharSet(0);
constexpr ULibCharSet kUTF16 = ULibCharSet(1);
constexpr ULibCharSet kUTF32 = ULibCharSet(4);
constexpr std::size_t npos = UString::npos;
const ULibCharSet kLatin1 = ULIB_toCharSet("ISO-8859-1");
const ULibCharSet kSJIS = ULIB_toCharSet("windows-932");

UString u8(const char* s) {
    return UString(s, kUTF8);
}

std::string text(const UString& s) {
    return s.c_str(kUTF8);
}

const unsigned short* units(const char16_t* s) {
    return reinterpret_cast<const unsigned short*>(s);
}

} // namespace

// The whole point of the secondary form: bytes in, same bytes out, no
// conversion until a unit is read.
TEST(UStringTest, BytesComeBackUnconvertedUntilAUnitIsRead) {
    const char sjis[] = "\x93\xfa\x96\x7b\x8c\xea"; // three kanji in windows-932
    for (ULibCharSet cs : {kUTF8, kSJIS, ULIB_CS_DEFAULT}) {
        UString s(sjis, cs);
        const char* out = s.c_str(cs);
        EXPECT_EQ(out, s.impl()->m_pSecondary);
        EXPECT_STREQ(out, sjis);
        EXPECT_EQ(s.impl()->m_uPrimaryLen, 0u);
    }
    UString s(sjis, kSJIS);
    EXPECT_EQ(s.length(), 3u);
    EXPECT_EQ(s[0], 0x65E5);
    EXPECT_EQ(s.c_str(kSJIS), s.impl()->m_pSecondary); // the secondary form stays
    EXPECT_EQ(s.at(3), 0xFFFE);

    // An empty string answers the shared zero block in every set.
    const UString empty;
    EXPECT_EQ(empty.c_str(kUTF32), empty.c_str(kSJIS));
    EXPECT_EQ(std::memcmp(empty.c_str(kUTF32), "\0\0\0\0\0\0\0", 8), 0);
    EXPECT_EQ(empty.byteSize(kUTF8), 0u);
    EXPECT_EQ(UString("", kUTF8).impl()->m_pSecondary, empty.impl()->m_pSecondary);
}

TEST(UStringTest, OneSecondaryFormAtATime) {
    UString s = u8("caf\xc3\xa9 \xf0\x9f\x98\x80"); // a supplementary character at the end
    EXPECT_STREQ(s.c_str(kLatin1), "caf\xe9 \x1a");
    EXPECT_EQ(s.impl()->m_eSecondaryCS, kLatin1);
    EXPECT_EQ(s.byteSize(kUTF8), 10u); // converts again: the UTF-8 form went
    EXPECT_EQ(s.impl()->m_eSecondaryCS, kUTF8);
    EXPECT_EQ(s.length(), 7u);
    EXPECT_EQ(s.numChars(), 6u);
    EXPECT_EQ(s.byteSize(kUTF16), 14u);

    // ULIB_CS_DEFAULT is compared as a number: the default set's own number
    // converts even when the bytes are the same.
    UString d("abc", ULIB_CS_DEFAULT);
    EXPECT_STREQ(d.c_str(ULIB_getDefaultCharSet()), "abc");
    EXPECT_NE(d.impl()->m_uPrimaryLen, 0u); // went through UTF-16

    // Escaped bytes cannot stay as bytes: they are read at construction.
    UString e("A\\u00e9\\x42", ULibCharSet(kUTF8 | ULIB_CS_ESCAPE_FLAG));
    EXPECT_EQ(e.impl()->m_uSecondaryLen, 0u);
    EXPECT_EQ(text(e), "A\xc3\xa9" "B");

    // A UTF-32 secondary form of supplementary characters needs two units each.
    const char32_t faces[] = U"\U0001F600\U0001F601\U0001F602";
    UString w(reinterpret_cast<const char*>(faces), 12, kUTF32);
    EXPECT_EQ(w.length(), 6u);
    EXPECT_EQ(w.numChars(), 3u);
}

TEST(UStringTest, CopiesShareUntilOneChanges) {
    UString a = u8("hello");
    UString b(a);
    EXPECT_EQ(a.impl(), b.impl());
    b.append(u8("!"));
    EXPECT_NE(a.impl(), b.impl());
    EXPECT_EQ(text(a), "hello");
    EXPECT_EQ(text(b), "hello!");

    EXPECT_EQ(a.substring(0).impl(), a.impl());
    EXPECT_EQ(a.substring(0, a.length()).impl(), a.impl());
    EXPECT_NE(a.substring(0, a.length() - 1).impl(), a.impl());
    EXPECT_EQ(a.right(99).impl(), a.impl());
    EXPECT_EQ(text(a.right(2)), "lo");
    UString t(a);
    t.trim(); // no blanks at the ends: nothing to do, still shared
    EXPECT_EQ(t.impl(), a.impl());

    // c_str in another set unshares: the other sharer keeps its own form.
    UString c(a);
    c.c_str(kLatin1);
    EXPECT_NE(c.impl(), a.impl());
    EXPECT_EQ(a.impl()->m_eSecondaryCS, kUTF8);

    // Editing with the string's own text as the argument.
    UString self = u8("ab");
    self.append(self);
    self.replace(1, 1, self);
    EXPECT_EQ(text(self), "aababab");
    self.append(self.c_wstr() + 1, 2);
    EXPECT_EQ(text(self), "aabababab");
}

TEST(UStringTest, ZeroUnitsTruncateAndPositionsPastTheEndDoNothing) {
    UString s = u8("abc");
    s.setAt(1, 0);
    EXPECT_EQ(text(s), "a");

    UString r = u8("abcd");
    r.replace(1, 1, static_cast<unsigned short>(0), 5); // cuts the whole tail
    EXPECT_EQ(text(r), "a");
    r = u8("abcd");
    r.replace(1, 2, static_cast<unsigned short>('x'), 0); // count 0 erases
    EXPECT_EQ(text(r), "ad");
    r.replace(9, 1, static_cast<unsigned short>('x'), 1);
    EXPECT_EQ(text(r), "ad");
    r.replace(2, 0, u8("ef"));
    EXPECT_EQ(text(r), "adef");
    r.replace(1, npos, 'z', 2, kUTF8);
    EXPECT_EQ(text(r), "azz");

    UString e = u8("hello world");
    e.erase(5, 100);
    EXPECT_EQ(text(e), "hello");
    e.erase(5);
    e.erase(0, 0);
    EXPECT_EQ(text(e), "hello");
    e.erase();
    EXPECT_TRUE(e.empty());

    UString a;
    a.append(static_cast<unsigned short>(0), 3).append(nullptr, 3).append(u8(""));
    EXPECT_TRUE(a.empty());
    a.append('\x82', 1, kSJIS); // a lead byte alone is not one character
    EXPECT_TRUE(a.empty());
    a.append("x", kUTF8).append('y', 2, kUTF8) += u8("z");
    EXPECT_EQ(text(a), "xyyz");
    EXPECT_EQ(text(u8("ab") + "cd" + 'e'), "abcde");
}

TEST(UStringTest, SearchesKeepTheirOwnEdges) {
    const UString b = u8("banana");
    EXPECT_EQ(b.rfind('a', 99, kUTF8), npos); // past the end is a miss
    EXPECT_EQ(b.rfind('a', 5, kUTF8), 5u);
    EXPECT_EQ(b.rfind("an", 5, kUTF8), 3u);
    EXPECT_EQ(b.find("na", 0, kUTF8), 2u);
    EXPECT_EQ(b.find("na", 5, kUTF8), npos); // no room for the needle
    EXPECT_EQ(b.find(u8(""), 0), npos);
    EXPECT_EQ(b.find(u8("bananas"), 0), npos);

    EXPECT_EQ(b.find_first_not_of(units(u""), 2), 2u);
    EXPECT_EQ(b.find_first_not_of(UString(), 2), npos);
    EXPECT_EQ(b.find_first_of(units(u""), 2), npos);
    EXPECT_EQ(b.find_first_of(u8("n")), 2u);
    EXPECT_EQ(b.find_last_of(u8("b")), 0u);
    EXPECT_EQ(b.find_last_not_of(u8("a")), 4u);
    EXPECT_EQ(b.find_last_of("bn", 3, kUTF8), 2u);
    EXPECT_EQ(b.find_first_of(units(u"n"), 6), npos);

    // Caseless means ASCII letters only.
    const UString e = u8("Caf\xc3\xa9 CAF\xc3\x89");
    EXPECT_EQ(e.findNoCase("CAF", 1, kUTF8), 5u);
    EXPECT_EQ(e.findNoCase("\xc3\x89", 0, kUTF8), 8u); // not 3: é and É differ
    EXPECT_EQ(e.rfindNoCase(u8("caf"), 4), 0u);
    EXPECT_EQ(e.find_first_of_no_case(units(u"F"), 0), 2u);
    EXPECT_EQ(e.find_last_not_of_no_case(u8("\xc3\x89" "caf ")), 3u);

    // A lead byte of a multi-byte set is no character: it finds nothing.
    const UString j("\x93\xfa\x82\xa0", kSJIS);
    EXPECT_EQ(j.find('\x93', 0, kSJIS), npos);
    EXPECT_EQ(j.find('\0', 0, kUTF8), npos);
}

TEST(UStringTest, FindAndReplaceNeverRescansAReplacement) {
    UString a = u8("aaa");
    EXPECT_EQ(a.findAndReplaceAll("a", "aa", kUTF8), 3u);
    EXPECT_EQ(text(a), "aaaaaa");

    UString d = u8("a-b-c");
    EXPECT_EQ(d.findAndReplaceAll(u8("-"), UString()), 2u);
    EXPECT_EQ(text(d), "abc");

    UString n = u8("Abc abc ABC");
    EXPECT_EQ(n.findAndReplaceAllNoCase("abc", "x", kUTF8), 3u);
    EXPECT_EQ(text(n), "x x x");

    // The unit form with a replacement of 0 cuts at the first hit only.
    UString z = u8("a,b,c");
    EXPECT_EQ(z.findAndReplaceAll(static_cast<unsigned short>(','), static_cast<unsigned short>(0)),
              1u);
    EXPECT_EQ(text(z), "a");

    UString r = u8("one two one");
    EXPECT_EQ(r.rfindAndReplace(u8("one"), 10, u8("1")), 8u);
    EXPECT_EQ(r.findAndReplace("one", 0, "uno", kUTF8), 0u);
    EXPECT_EQ(r.findAndReplaceNoCase('T', 0, 'X', kUTF8), 4u);
    EXPECT_EQ(text(r), "uno Xwo 1");
    EXPECT_EQ(r.findAndReplace(static_cast<unsigned short>('o'), 0, static_cast<unsigned short>('o')),
              npos);
}

TEST(UStringTest, ComparisonsStopWhereTheyAreTold) {
    const UString abd = u8("abd");
    EXPECT_EQ(abd.compare(0, "abc", 2, kUTF8), 0);
    EXPECT_EQ(abd.compare(0, "abc", kUTF8), 1);
    EXPECT_EQ(abd.compare(0, u8("abdx")), -1);
    EXPECT_EQ(abd.compare(1, u8("bd")), 0);
    EXPECT_EQ(abd.compare(5, u8("")), 0);
    EXPECT_EQ(abd.compare(5, u8("x")), -1);
    EXPECT_EQ(abd.compare(0, static_cast<const unsigned short*>(nullptr)), 1);
    EXPECT_EQ(abd.compare(0, abd, 0), 0);
    const UString shared(abd);
    EXPECT_EQ(abd.compare(0, shared, 5), 0); // same body: equal without reading
    EXPECT_TRUE(u8("abc") < u8("abd"));
    EXPECT_TRUE(u8("abc") == UString(units(u"abc")));

    EXPECT_EQ(UString::canonicalCompare(units(u"ab"), units(u"abc"), 3), -1);
    EXPECT_EQ(UString::canonicalCompare(units(u"abc"), units(u"ab"), 3), 1);
    EXPECT_EQ(u8("HELLO").compareNoCase(0, "hello", kUTF8), 0);
    EXPECT_NE(u8("\xc3\x89").compareNoCase(0, "\xc3\xa9", kUTF8), 0);

    const ULocale en("en");
    EXPECT_EQ(u8("\xc3\x89t\xc3\xa9").compareNoCaseEx(0, "\xc3\xa9T\xc3\x89", kUTF8, &en), 0);
    EXPECT_EQ(u8("a").compareNoCaseEx(0, "B", kUTF8, &en), -1);
}

TEST(UStringTest, CaseMappingPlainAndByLocale) {
    UString s = u8("stra\xc3\x9f" "e");
    UString plain(s);
    plain.toUpper();
    EXPECT_EQ(text(plain), "STRA\xc3\x9f" "E");
    UString full(s);
    full.toUpperEx();
    EXPECT_EQ(text(full), "STRASSE");
    EXPECT_EQ(text(s), "stra\xc3\x9f" "e");

    const ULocale tr("tr");
    UString i = u8("TITLE");
    i.toLowerEx(&tr);
    EXPECT_EQ(text(i), "t\xc4\xb1tle"); // dotless i
    UString f = u8("MASSE Stra\xc3\x9f" "e");
    f.toFoldCase();
    EXPECT_EQ(text(f), "masse strasse");
    EXPECT_EQ(text(u8("Hello").toLower()), "hello");

    UString t = u8("\t a b \n");
    UString blanks(t);
    blanks.trim();
    EXPECT_EQ(text(blanks), "\t a b \n"); // trim knows U+0020 only
    t.trimEx(UString::TRIM_FRONT);
    EXPECT_EQ(text(t), "a b \n");
    t.trimEx();
    EXPECT_EQ(text(t), "a b");
    UString all = u8("   ");
    all.trim();
    EXPECT_TRUE(all.empty());
}

TEST(UStringTest, CopiesOutNeverPassTheirTarget) {
    const UString s = u8("h\xc3\xa9llo");
    unsigned short buf[8] = {};
    EXPECT_EQ(s.copy(buf, 3, 1), 3u);
    EXPECT_EQ(buf[0], 0xE9);
    EXPECT_EQ(buf[3], 0);
    EXPECT_EQ(s.copy(buf, 3, 5), 0u);

    char out[16];
    std::memset(out, '#', sizeof out);
    EXPECT_EQ(s.copy(out, 3, 0, kUTF8), 3u); // the secondary form does not fit: converted whole
    EXPECT_EQ(std::string(out, 4), "h\xc3\xa9#");
    std::memset(out, '#', sizeof out);
    EXPECT_EQ(s.copy(out + 1, 5, 0, kUTF16), 4u); // odd address, two whole units
    EXPECT_EQ(out[5], '#');
    EXPECT_EQ(s.copy(out, 16, 0, kUTF8), 6u);
    EXPECT_EQ(std::string(out, 6), "h\xc3\xa9llo");
}

// Counts that wrap a length used to write past the buffer; a throwing
// constructor used to leak its body (ASan checks the leak).
TEST(UStringTest, ImpossibleLengthsThrowAndChangeNothing) {
    UString s = u8("xaa");
    EXPECT_THROW(s.append(static_cast<unsigned short>('x'), npos), std::bad_alloc);
    EXPECT_THROW(s.append('x', npos, kUTF8), std::bad_alloc);
    EXPECT_THROW(s.replace(1, 1, static_cast<unsigned short>('x'), npos), std::bad_alloc);
    EXPECT_EQ(text(s), "xaa");
    EXPECT_THROW(UString(static_cast<unsigned short>('x'), npos), std::bad_alloc);
    EXPECT_THROW(UString('x', npos, kUTF8), std::bad_alloc);
    EXPECT_THROW(UString('x', std::size_t(1) << 62, kUTF8), std::bad_alloc); // before any allocator
}

// Bytes that convert to nothing used to be converted again at every read,
// freeing the buffer that begin() had handed out.
TEST(UStringTest, BytesWithNoWholeCharacterReadAsEmpty) {
    UString odd("abc", 3, ULibCharSet(2)); // three bytes of UTF-16BE
    EXPECT_FALSE(odd.empty());
    EXPECT_STREQ(odd.c_str(ULibCharSet(2)), "abc"); // not read yet: the bytes as given
    const unsigned short* first = odd.begin();
    EXPECT_EQ(odd.end(), first);
    EXPECT_EQ(odd.begin(), first);
    EXPECT_TRUE(odd.empty());
    EXPECT_EQ(odd.c_str(kUTF8), UString().c_str(kUTF8));
}

TEST(UStringTest, PooledBodiesGoBackToThePool) {
    const UString before = u8("made before the pool");
    UString::initPool(4);
    UString::initPool(100); // the first call wins
    ASSERT_NE(UString::uStrImpl::m_poPool, nullptr);
    EXPECT_EQ(before.impl()->m_poOwnerPool, nullptr);
    const int freeAtStart = UString::uStrImpl::m_poPool->getFreeItems();
    // A thread keeps some bodies it gave back for its next strings, and
    // gives them to the pool when it ends: 40 outgrow what it keeps.
    std::thread([] {
        for (int round = 0; round < 2; ++round) {
            std::vector<UString> many;
            for (int i = 0; i < 40; ++i)
                many.push_back(u8("pooled"));
            EXPECT_EQ(many[0].impl()->m_poOwnerPool, UString::uStrImpl::m_poPool);
            EXPECT_EQ(text(many[39]), "pooled");
        }
    }).join();
    EXPECT_GE(UString::uStrImpl::m_poPool->getFreeItems(), freeAtStart);
    // No pooled string lives now, on any thread.
    EXPECT_EQ(UString::uStrImpl::m_poPool->getFreeItems(),
              UString::uStrImpl::m_poPool->getTotalItems());
    EXPECT_EQ(text(before), "made before the pool");
}

// Byte buffers of dropped strings are kept for the thread's next strings: a
// kept buffer is reused only when it is large enough, and comes back clean.
TEST(UStringTest, KeptByteBuffersFitTheirNextString) {
    for (const std::size_t n : {10u, 4000u, 20u, 5000u, 3u, 4096u, 64u, 1u}) {
        const std::string bytes(n, char('a' + n % 26));
        const UString s(bytes.data(), n, kUTF8);
        EXPECT_EQ(std::string(s.c_str(kUTF8)), bytes) << n;
        EXPECT_EQ(s.length(), n);
    }
    UString grown("x", kUTF8);
    grown = UString(std::string(3000, 'y').c_str(), kUTF8);
    EXPECT_EQ(std::strlen(grown.c_str(kUTF8)), 3000u);
}

// Copies of one lazily converted string on several threads: the first unit
// read converts once under the body's lock, the others read the result, and
// a copy that changes gets its own body. Run under TSan.
TEST(UStringTest, SharedBodiesAcrossThreads) {
    const UString source("shared text \xc3\xa9\xc3\xa9", kUTF8);
    std::atomic<int> bad{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&source, &bad, t] {
            for (int i = 0; i < 2000; ++i) {
                UString mine(source);
                if (mine.length() != 14 || mine[12] != 0xE9 || mine.c_wstr()[14] != 0)
                    ++bad;
                if (i % 3 == t % 3) {
                    mine.setAt(0, 'S');
                    if (source[0] != 's' || mine.impl() == source.impl())
                        ++bad;
                }
                UString other = mine;
                other.append(static_cast<unsigned short>('!'));
            }
        });
    }
    for (auto& th : threads)
        th.join();
    EXPECT_EQ(bad.load(), 0);
    EXPECT_EQ(source.impl()->m_nRefCount.load(), 1);
    EXPECT_EQ(text(source), "shared text \xc3\xa9\xc3\xa9");
}
