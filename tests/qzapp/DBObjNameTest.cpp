//===- tests/qzapp/DBObjNameTest.cpp - Typed database object names --------===//
//
// Shared texts and copy on change, the qualified forms and their cache, the
// IBM i native name rules, and the bytes the messages get from enquote.
//
//===----------------------------------------------------------------------===//
#include "qzapp/DBObjName.h"

#include "qzunicode/ULib.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <thread>
#include <vector>

using namespace qzs::qzlib::qzapp;
using qzs::qzlib::qzunicode::CharSetTable;
using qzs::qzlib::qzunicode::ULibCharSet;
using qzs::qzlib::qzunicode::UString;

namespace {

constexpr ULibCharSet kUTF8 = ULibCharSet(0);

UString u8(const char* s) {
    return UString(s, kUTF8);
}

std::string text(const UString& s) {
    return UString(s).c_str(kUTF8);
}

// Makes ULIB_CS_DEFAULT convert as the named set, then lets it be looked up
// again. (ICU built for UTF-8 only ignores a new default converter name.)
struct DefaultCharSet {
    explicit DefaultCharSet(const char* name) {
        CharSetTable::storeDefaultCharSet(ULIB_toCharSet(name));
    }
    ~DefaultCharSet() { CharSetTable::storeDefaultCharSet(qzs::qzlib::qzunicode::ULIB_CS_INVALID); }
};

} // namespace

// Copies share one text and its converted bytes; assignment and moves keep
// every count right (the asan preset sees a leak or a double release).
TEST(DBObjNameTest, CopiesShareOneTextAndItsBytes) {
    CTableName a("ORDERS"), b(a), c;
    EXPECT_EQ(a.c_str(kUTF8), b.c_str(kUTF8));
    c = b;
    c = c;
    b = CTableName(u8("LINES"));
    EXPECT_STREQ("ORDERS", c.c_str(kUTF8));
    EXPECT_STREQ("LINES", b.c_str(kUTF8));
    CTableName d(std::move(c));
    EXPECT_TRUE(c.empty());
    EXPECT_EQ(a.c_str(kUTF8), d.c_str(kUTF8));
    EXPECT_TRUE(CTableName("").empty());
    EXPECT_TRUE(CTableName(static_cast<const char*>(nullptr)).empty());
    EXPECT_STREQ("", CTableName().c_str(ULibCharSet(1)));
}

// Texts compare by units whatever their bodies; the empty name sorts first.
TEST(DBObjNameTest, ComparesByText) {
    CSchemaName a("HR"), b(u8("HR")), c("IT"), none;
    EXPECT_TRUE(a == b);
    EXPECT_FALSE(a != b);
    EXPECT_TRUE(a < c);
    EXPECT_FALSE(c < a);
    EXPECT_TRUE(none < a);
    EXPECT_FALSE(a < none);
    EXPECT_FALSE(none < CSchemaName());
    EXPECT_TRUE(none == CSchemaName());
    EXPECT_FALSE(CSchemaName("hr") == a);
}

// Sharers on several threads converting one name, and building one qualified
// text, at once all get the same bytes; the text itself is never disturbed
// (the tsan preset sees a race).
TEST(DBObjNameTest, SharersConvertOnThreadsAtOnce) {
    const CColumnName name(u8("pr\xc3\xa9nom"));
    const CQualDBObjName<DBOBJ_COLUMN> qual(CObjectName("S"), CObjectName("T"), CObjectName(),
                                            name);
    const ULibCharSet latin1 = ULIB_toCharSet("ISO-8859-1");
    std::vector<const char*> seen(8);
    std::vector<std::string> qualified(8);
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i)
        threads.emplace_back([&, i] {
            CColumnName mine(name);
            seen[i] = mine.c_str(i % 2 ? latin1 : kUTF8);
            qualified[i] = text(CQualDBObjName<DBOBJ_COLUMN>(qual).getQualName());
        });
    for (std::thread& t : threads)
        t.join();
    EXPECT_EQ(std::set<const char*>(seen.begin(), seen.end()).size(), 2u);
    EXPECT_STREQ("pr\xe9nom", name.c_str(latin1));
    EXPECT_EQ("pr\xc3\xa9nom", text(name.getName()));
    EXPECT_EQ(std::vector<std::string>(8, "S.T.pr\xc3\xa9nom"), qualified);
}

// Each form, empty parts closing up, and an empty object emptying the lot.
TEST(DBObjNameTest, QualifiedNameForms) {
    using Q = CQualTableName::Qualifier;
    struct Case {
        const char *q0, *q1, *q2, *object;
        int form;
        const char* expected;
    } cases[] = {
        {"CAT", "SCH", "", "T", QUALNAME_SQL, "CAT.SCH.T"},
        {"CAT", "", "", "T", QUALNAME_SQL, "CAT.T"},
        {"", "", "", "T", QUALNAME_SQL, "T"},
        {"SRV", "DB", "dbo", "T", QUALNAME_SQL, "SRV.DB.dbo.T"},
        {"", "LIB", "FILE", "MBR", QUALNAME_NATIVE_MEMBER, "LIB/FILE(MBR)"},
        {"", "", "", "MBR", QUALNAME_NATIVE_MEMBER, "(MBR)"},
        {"", "", "LIB", "FILE", QUALNAME_NATIVE, "LIB/FILE"},
        {"123456", "USER", "", "JOB", 7, "123456/USER/JOB"},
        {"CAT", "SCH", "X", "", QUALNAME_NATIVE_MEMBER, ""},
    };
    for (const Case& c : cases) {
        CQualTableName name(Q(c.q0), Q(c.q1), Q(c.q2), CTableName(c.object), c.form);
        EXPECT_EQ(c.expected, text(name.getQualName())) << c.q0 << "|" << c.q1 << "|" << c.q2;
        EXPECT_EQ(c.expected, text(name.getQualName())) << "from the cache";
    }
    EXPECT_EQ("", text(CQualTableName().getQualName()));
}

// A change unshares the body and drops the cached text; the other copy keeps
// both.
TEST(DBObjNameTest, ChangeCopiesTheBodyAndClearsTheCache) {
    CQualTableName a(CTableName("T"));
    a.setQualifier(1, CObjectName("S"));
    EXPECT_EQ("S.T", text(a.getQualName()));
    CQualTableName b(a);
    b.setForm(QUALNAME_NATIVE);
    EXPECT_EQ("S/T", text(b.getQualName()));
    EXPECT_EQ("S.T", text(a.getQualName()));
    a.setObject(CTableName("U"));
    EXPECT_EQ("S.U", text(a.getQualName()));
    a.setQualifier(1, CObjectName());
    EXPECT_EQ("U", text(a.getQualName()));
    EXPECT_EQ("S", text(b.getQualifier(1).getName()));
    CQualTableName c;
    c.setObject(CTableName("V"));
    EXPECT_EQ("V", text(c.getQualName()));
    EXPECT_TRUE(CQualTableName().empty());
}

TEST(DBObjNameTest, NativeNameValidity) {
    struct Case {
        const char* name;
        bool valid;
    } cases[] = {
        {"ABCDEFGHIJ", true}, {"ABCDEFGHIJK", false}, {"ABC?", false},  {"?", false},
        {"ABC*", true},       {"A*C", false},         {"A**", false},   {"*ALL", true},
        {"*all", true},       {"*AlL", true},         {"*ALLX", false}, {"*", false},
        {"*LIBL", false},     {"ABCDEFGHI*", true},   {"", true},       {"\xc3\xa9t\xc3\xa9", true},
    };
    for (const Case& c : cases)
        EXPECT_EQ(c.valid, CI5NativeName::isValidName(u8(c.name), DBOBJ_TABLE)) << c.name;
}

TEST(DBObjNameTest, NativeToSQL) {
    EXPECT_EQ("*", text(CI5NativeName::toSQLWCName(u8("*aLl"))));
    EXPECT_EQ("AB*", text(CI5NativeName::toSQLWCName(u8("AB*"))));
    EXPECT_EQ("*ALL", text(CI5NativeName::fromSQLWCName(u8("*"))));
    EXPECT_EQ("*A", text(CI5NativeName::fromSQLWCName(u8("*A"))));
    EXPECT_EQ("QGPL.ORDERS", text(CI5NativeName::toSQLName(u8("QGPL"), u8("ORDERS"), u8(""))));
    EXPECT_EQ("*.ORDERS(*)", text(CI5NativeName::toSQLName(u8("*ALL"), u8("ORDERS"), u8("*all"))));
    EXPECT_EQ("ORDERS(M1)", text(CI5NativeName::toSQLName(u8(""), u8("ORDERS"), u8("M1"))));
}

// The messages' bytes are in the process default set: quotes pass through,
// a character the set lacks becomes its substitution, and bytes given in the
// default set come back as given.
TEST(DBObjNameTest, EnquoteGivesDefaultSetBytes) {
    const char* raw = "O'Neil \"x\" caf\xc3\xa9";
    {
        DefaultCharSet ascii("US-ASCII");
        EXPECT_EQ("O'Neil \"x\" caf\x1a", enquote(CLoginName(u8(raw))));
        CQualObjectName q(CObjectName("L"), CObjectName(), CObjectName(), CObjectName(u8(raw)));
        EXPECT_EQ("L.O'Neil \"x\" caf\x1a", enquote(q));
        EXPECT_EQ(raw, enquote(CLoginName(raw)));
        EXPECT_EQ("", enquote(CLoginName()));
    }
    DefaultCharSet utf8("UTF-8");
    EXPECT_EQ(raw, enquote(CLoginName(u8(raw))));
}
