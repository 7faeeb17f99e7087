//===- tests/qzstd/CDataItemTest.cpp - Tagged values and their strings ----===//
//
// The conversion table with its saturate-to-zero rules and its two deliberate
// oddities, assignment into a fixed tag, which string overload borrows,
// adopts or copies (ASan checks the frees), and the "<NIL>" substitute with
// its log record.
//
//===----------------------------------------------------------------------===//
#include "CaptureAppender.h"
#include "qzlog/Level.h"

#include "qzstd/CDataItem.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

using qzs::qzlib::CDataItem;
using qzs::qzlib::SafeStrdup;
using namespace qzs::qzlib::qzlog;

// The item read as `T`, through its conversion operator.
template <typename T> T as(const CDataItem& d) { return static_cast<T>(d); }

// One item read in all four widths.
struct Reading {
    const char* what;
    CDataItem item;
    int i;
    unsigned int u;
    long l;
    unsigned long ul;
};

// Each row sits on a boundary of the table: a value one step inside or
// outside a narrower width, or a sign that must not wrap.
TEST(CDataItemTest, NumbersReadInEveryWidthSaturateToZero) {
    const unsigned long all = ~0ul;
    int stack = 0;
    std::vector<CDataItem> vec;
    const Reading rows[] = {
        {"int -1", CDataItem(-1), -1, 0u, -1L, 0ul},
        {"int min", CDataItem(INT_MIN), INT_MIN, 0u, long(INT_MIN), 0ul},
        {"int max", CDataItem(INT_MAX), INT_MAX, unsigned(INT_MAX), long(INT_MAX),
         static_cast<unsigned long>(INT_MAX)},
        {"unsigned 2^31-1", CDataItem(0x7FFFFFFFu), INT_MAX, 0x7FFFFFFFu, 0x7FFFFFFFL,
         0x7FFFFFFFul},
        {"unsigned 2^31", CDataItem(0x80000000u), 0, 0x80000000u, 0x80000000L, 0x80000000ul},
        {"unsigned max", CDataItem(0xFFFFFFFFu), 0, 0xFFFFFFFFu, 0xFFFFFFFFL, 0xFFFFFFFFul},
        {"long -1", CDataItem(-1L), -1, 0u, -1L, 0ul},
        {"long int min", CDataItem(long(INT_MIN)), INT_MIN, 0u, long(INT_MIN), 0ul},
        {"long below int", CDataItem(long(INT_MIN) - 1), 0, 0u, long(INT_MIN) - 1, 0ul},
        {"long 2^31", CDataItem(0x80000000L), 0, 0x80000000u, 0x80000000L, 0x80000000ul},
        {"long 2^32-1", CDataItem(0xFFFFFFFFL), 0, 0xFFFFFFFFu, 0xFFFFFFFFL, 0xFFFFFFFFul},
        {"long 2^32", CDataItem(0x100000000L), 0, 0u, 0x100000000L, 0x100000000ul},
        {"ulong 2^31-1", CDataItem(0x7FFFFFFFul), INT_MAX, 0x7FFFFFFFu, 0x7FFFFFFFL, 0x7FFFFFFFul},
        {"ulong 2^31", CDataItem(0x80000000ul), 0, 0x80000000u, 0x80000000L, 0x80000000ul},
        {"ulong 2^32", CDataItem(0x100000000ul), 0, 0u, 0x100000000L, 0x100000000ul},
        // Only all ones is guarded when read as long; 2^63 passes as negative.
        {"ulong 2^63", CDataItem(0x8000000000000000ul), 0, 0u, LONG_MIN, 0x8000000000000000ul},
        {"ulong all ones", CDataItem(all), 0, 0u, 0L, all},
        {"ulong all ones - 1", CDataItem(all - 1), 0, 0u, -2L, all - 1},
        // A true bool is all ones in every width, not 1.
        {"bool true", CDataItem(true), -1, 0xFFFFFFFFu, -1L, all},
        {"bool false", CDataItem(false), 0, 0u, 0L, 0ul},
        // Tags that are not numbers read as 0 whatever they hold.
        {"string", CDataItem("12"), 0, 0u, 0L, 0ul},
        {"time", CDataItem(timespec{7, 8}), 0, 0u, 0L, 0ul},
        {"pointer", CDataItem(static_cast<const void*>(&stack)), 0, 0u, 0L, 0ul},
        {"vector", CDataItem(&vec), 0, 0u, 0L, 0ul},
    };
    for (const Reading& r : rows) {
        SCOPED_TRACE(r.what);
        EXPECT_EQ(r.i, as<int>(r.item));
        EXPECT_EQ(r.u, as<unsigned>(r.item));
        EXPECT_EQ(r.l, as<long>(r.item));
        EXPECT_EQ(r.ul, as<unsigned long>(r.item));
    }
}

// The tag never changes on a number assignment: the value is cut or widened
// into the item's own type, and items that are not numbers ignore it.
TEST(CDataItemTest, NumberAssignmentKeepsTheTag) {
    CDataItem i(0);
    i = 0x1FFFFFFFFL; // low 32 bits only
    EXPECT_EQ(uint32_t(CDataItem::Int), i.getType());
    EXPECT_EQ(-1, as<int>(i));

    CDataItem u(0u);
    u = -2; // low 32 bits of an int
    EXPECT_EQ(0xFFFFFFFEu, as<unsigned>(u));

    CDataItem l(0L);
    l = -1; // an int is sign-extended
    EXPECT_EQ(-1L, as<long>(l));
    l = 0xFFFFFFFFu; // an unsigned is zero-extended
    EXPECT_EQ(0xFFFFFFFFL, as<long>(l));

    CDataItem ul(0ul);
    ul = -1;
    EXPECT_EQ(~0ul, as<unsigned long>(ul));

    // A bool item stores n != 0, not the low byte of n.
    CDataItem b(false);
    b = 256;
    EXPECT_EQ(-1, as<int>(b)); // a true bool, so the tag stayed
    b = 0ul;
    EXPECT_FALSE(static_cast<bool>(b));

    // A bool into a number item stores minus the bool: all ones in its width.
    CDataItem i2(5), u2(5u), l2(5L);
    i2 = true;
    u2 = true;
    l2 = true;
    EXPECT_EQ(-1, as<int>(i2));
    EXPECT_EQ(0xFFFFFFFFu, as<unsigned>(u2));
    EXPECT_EQ(-1L, as<long>(l2));
    l2 = false;
    EXPECT_EQ(0L, as<long>(l2));

    // Non-number items are left alone.
    CDataItem s("text");
    s = 5;
    EXPECT_EQ(uint32_t(CDataItem::String), s.getType());
    EXPECT_STREQ("text", static_cast<const char*>(s));
    CDataItem t(timespec{3, 4});
    t = 9L;
    EXPECT_TRUE(t == (timespec{3, 4}));
}

// Which overload the compiler picks decides ownership; ASan turns a wrong
// choice into a leak, a double free or a use after free.
TEST(CDataItemTest, StringOverloadsBorrowAdoptOrCopy) {
    const char* literal = "borrowed";
    CDataItem borrowed(literal);
    EXPECT_FALSE(borrowed.isOwned());
    EXPECT_EQ(literal, static_cast<const char*>(borrowed));

    char* heap = ::strdup("adopted");
    CDataItem adopted(heap, true); // freed by the item
    EXPECT_TRUE(adopted.isOwned());
    EXPECT_EQ(heap, static_cast<const char*>(adopted));

    char buffer[] = "copied";
    char* mutableText = buffer;
    CDataItem copied(mutableText);
    CDataItem copiedConst(static_cast<char* const&>(mutableText));
    buffer[0] = 'X';
    EXPECT_TRUE(copied.isOwned());
    EXPECT_STREQ("copied", static_cast<const char*>(copied));
    EXPECT_STREQ("copied", static_cast<const char*>(copiedConst));

    // Copies: an owned text is duplicated, a borrowed one shared.
    CDataItem copyOfOwned(copied);
    EXPECT_NE(static_cast<const char*>(copied), static_cast<const char*>(copyOfOwned));
    EXPECT_STREQ("copied", static_cast<const char*>(copyOfOwned));
    CDataItem copyOfBorrowed(borrowed);
    EXPECT_FALSE(copyOfBorrowed.isOwned());
    EXPECT_EQ(literal, static_cast<const char*>(copyOfBorrowed));

    // Assignment: an rvalue pointer is borrowed, a named char const* copied.
    CDataItem s(mutableText);
    s = "literal";
    EXPECT_FALSE(s.isOwned());
    s = literal;
    EXPECT_TRUE(s.isOwned());
    EXPECT_NE(literal, static_cast<const char*>(s));
    EXPECT_STREQ("borrowed", static_cast<const char*>(s));

    // Assigning an item its own text copies before the old text is freed.
    char* own = const_cast<char*>(static_cast<const char*>(s));
    s = own;
    EXPECT_STREQ("borrowed", static_cast<const char*>(s));

    // SetStringValue neither frees nor copies nor touches the flag.
    CDataItem b(literal);
    b.SetStringValue("other");
    EXPECT_FALSE(b.isOwned());
    EXPECT_STREQ("other", static_cast<const char*>(b));

    // A string into a non-string item does nothing, and nothing leaks.
    CDataItem n(7);
    n = mutableText;
    EXPECT_EQ(7, as<int>(n));
    EXPECT_FALSE(n.isOwned());
}

// Copy assignment is the one assignment that takes the source's tag; it
// frees the old owned text first and leaves itself alone.
TEST(CDataItemTest, CopyAssignmentTakesTagAndOwnership) {
    char* text = ::strdup("old");
    CDataItem target(text, true);
    target = target;
    EXPECT_STREQ("old", static_cast<const char*>(target));

    target = CDataItem(42L); // the old text is freed; ASan reports a leak otherwise
    EXPECT_EQ(uint32_t(CDataItem::Long), target.getType());
    EXPECT_FALSE(target.isOwned());
    EXPECT_EQ(42L, as<long>(target));

    char* other = ::strdup("new");
    CDataItem source(other, true);
    target = source;
    EXPECT_TRUE(target.isOwned());
    EXPECT_NE(other, static_cast<const char*>(target));
    EXPECT_TRUE(target == source);

    // A vector pointer is shared by copies and freed by neither.
    std::vector<CDataItem> vec{CDataItem(1)};
    CDataItem holder(&vec);
    CDataItem second(holder);
    target = holder;
    EXPECT_EQ(&vec, static_cast<std::vector<CDataItem>*>(second));
    EXPECT_EQ(&vec, static_cast<std::vector<CDataItem>*>(target));
}

// A null char* becomes "<NIL>", never a null pointer, and the substitution
// is logged at ERROR with the caller's stack.
TEST(CDataItemTest, NullTextBecomesNilAndIsLogged) {
    qztest::resetLogging();
    {
        qztest::CapturedLogger log("qzlog.CDataItem", "%C|%M|%m");
        char* nothing = nullptr;
        CDataItem item(nothing);
        EXPECT_STREQ("<NIL>", static_cast<const char*>(item));
        ASSERT_EQ(1u, log.capture->count());
        const std::string prefix = "qzlog/CDataItem|SafeStrdup|NULL pointer encountered - using "
                                   "substitute value of '<NIL>'\n";
        std::string line = log.capture->last();
        EXPECT_EQ(prefix, line.substr(0, prefix.size()));
        EXPECT_GT(line.size(), prefix.size()); // the stack follows

        // A copy of an owned item whose text was freed goes the same way.
        item.FreeValue();
        EXPECT_EQ(nullptr, static_cast<const char*>(item));
        CDataItem copy(item);
        EXPECT_STREQ("<NIL>", static_cast<const char*>(copy));
        EXPECT_EQ(2u, log.capture->count());
    }
    {
        // Above ERROR nothing is logged, but the substitute still comes.
        qztest::CapturedLogger log("qzlog.CDataItem", "%m", Level::Fatal);
        char* text = SafeStrdup(nullptr);
        EXPECT_STREQ("<NIL>", text);
        std::free(text);
        EXPECT_EQ(0u, log.capture->count());
    }
    qztest::resetLogging();
}

// Times keep nanoseconds, lose sub-microseconds through timeval, and the
// item-to-item comparison ignores nanoseconds while the timespec one does not.
TEST(CDataItemTest, TimesAndTheirComparisons) {
    CDataItem fromTimeval(timeval{10, 5});
    EXPECT_EQ(uint32_t(CDataItem::Time), fromTimeval.getType());
    timespec ts = fromTimeval;
    EXPECT_EQ(10, ts.tv_sec);
    EXPECT_EQ(5000, ts.tv_nsec);
    EXPECT_TRUE(fromTimeval == (timeval{10, 5}));

    CDataItem fine(timespec{10, 999});
    timeval tv = fine;
    EXPECT_EQ(10, tv.tv_sec);
    EXPECT_EQ(0, tv.tv_usec);

    CDataItem other(timespec{10, 1});
    EXPECT_TRUE(fine == other);
    EXPECT_FALSE(fine == (timespec{10, 1}));
    EXPECT_TRUE(fine == (timespec{10, 999}));

    // Truth reads both words, whatever the tag.
    EXPECT_TRUE(static_cast<bool>(CDataItem(timespec{0, 1})));
    EXPECT_FALSE(static_cast<bool>(CDataItem(timespec{0, 0})));
    EXPECT_FALSE(static_cast<bool>(CDataItem(static_cast<const char*>(nullptr))));

    // Storage writes change neither tag nor flag, on any item.
    CDataItem i(3);
    i = timeval{1, 2};
    EXPECT_EQ(uint32_t(CDataItem::Int), i.getType());
    EXPECT_TRUE(i == (timespec{1, 2000}));
}

// Equality needs equal tags; strings compare by text and vectors by their
// elements, recursively.
TEST(CDataItemTest, EqualityByTagThenValue) {
    EXPECT_FALSE(CDataItem(5) == CDataItem(5L));
    EXPECT_TRUE(CDataItem(5L) == CDataItem(5L));

    char a[] = "same";
    char b[] = "same";
    EXPECT_TRUE(CDataItem(static_cast<const char*>(a)) == CDataItem(static_cast<const char*>(b)));
    EXPECT_FALSE(CDataItem("same") == CDataItem("Same"));
    EXPECT_FALSE(CDataItem("x") == CDataItem(static_cast<const char*>(nullptr)));

    std::vector<CDataItem> empty1, empty2;
    EXPECT_TRUE(CDataItem(&empty1) == CDataItem(&empty2));

    std::vector<CDataItem> inner1{CDataItem("a"), CDataItem(1)};
    std::vector<CDataItem> inner2{CDataItem("a"), CDataItem(1)};
    std::vector<CDataItem> outer1{CDataItem(&inner1), CDataItem(2u)};
    std::vector<CDataItem> outer2{CDataItem(&inner2), CDataItem(2u)};
    EXPECT_TRUE(CDataItem(&outer1) == CDataItem(&outer2));
    inner2[1] = 9;
    EXPECT_FALSE(CDataItem(&outer1) == CDataItem(&outer2));
    outer2.pop_back();
    EXPECT_FALSE(CDataItem(&outer1) == CDataItem(&outer2));
}

} // namespace
