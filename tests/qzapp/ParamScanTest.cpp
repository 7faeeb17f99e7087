//===- tests/qzapp/ParamScanTest.cpp - Parameter files and their tokens ---===//
//
// The tokeniser in both forms against one table, the quote, interval and
// password helpers as tables, and the file reader over real files in a fresh
// directory: every kind of line, OBEY nesting and cycles, both continuation
// modes, substitution and echo, and hostile files (directories, devices,
// FIFOs, binary bytes, runaway continuation) that must end in a message.
//
//===----------------------------------------------------------------------===//
#include "qzapp/ParamScan.h"

#include "FaultCollector.h"
#include "TempDir.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace {

using qzs::qzlib::qzunicode::UString;
using qztest::writeFile;

// "text" for a plain token, "(text)" for a list, then "=" or "," for the
// separator after it and "q" when it was quoted, tokens joined by " | ".
std::string describe(short type, short flags, const std::string& text) {
    std::string d = type == PARAM_TKN_LIST ? "(" + text + ")" : text;
    if (flags & PARAM_TKN_QUOTED)
        d += "q";
    if (flags & PARAM_TKN_EQUALS)
        d += "=";
    if (flags & PARAM_TKN_COMMA)
        d += ",";
    return d;
}

std::string tokensOf(const char* text, bool keepQuotes) {
    param_tkn_group_def* groups = nullptr;
    short count = -1;
    char error[QZ_PARAM_ERROR_SIZE];
    if (!parse_tkns(text, &groups, &count, error, keepQuotes)) {
        EXPECT_EQ(groups, nullptr);
        EXPECT_EQ(count, 0);
        return std::string("error: ") + error;
    }
    EXPECT_EQ(count, 1);
    EXPECT_EQ(groups[0].type, 'd');
    EXPECT_EQ(groups[0].length, static_cast<int>(std::strlen(text)));
    std::string out;
    for (short i = 0; i < groups[0].count; ++i)
        out += (i ? " | " : "") + describe(groups[0].tokens[i].type, groups[0].tokens[i].flags,
                                           groups[0].tokens[i].text);
    free_tkns(groups, &count);
    EXPECT_EQ(count, 0);
    return out;
}

std::string tokensOfUString(const char* text, bool keepQuotes) {
    std::vector<paramTknGroupDef> groups;
    UString error;
    if (!parse_tkns(UString(text), groups, error, keepQuotes)) {
        EXPECT_TRUE(groups.empty());
        return std::string("error: ") + error.c_str();
    }
    std::string out;
    for (std::size_t i = 0; i < groups[0].tokens.size(); ++i)
        out += (i ? " | " : "") + describe(groups[0].tokens[i].type, groups[0].tokens[i].flags,
                                           groups[0].tokens[i].text.c_str());
    return out;
}

TEST(ParamScanTest, TokensInBothForms) {
    struct Row {
        const char* text;
        bool keepQuotes;
        const char* tokens;
    } rows[] = {
        {"TABLE a.b, TARGET c.d;", false, "TABLE | a.b, | TARGET | c.d;"},
        {"x = 'it''s'", true, "x= | 'it''s'q"},
        {"x = 'it''s'", false, "x= | it''sq"},
        {"\"a\".\"b\" next", true, "\"a\".\"b\"q | next"},
        {"\"a\".b c", true, "\"a\".bq | c"},
        {"\"a\".b c", false, "a\".bq | c"},
        {"'a' 'b'", false, "aq | bq"},
        {"COLUMNS (a = b, c = \"x)\")", true, "COLUMNS | (a = b, c = \"x)\")"},
        {"NAME(a, (b)) next", true, "NAME(a, (b)) | next"},
        {"k=v,k2 = (1,2) ,\tlast", true, "k= | v, | k2= | (1,2), | last"},
        {"\t a\r\n", true, "a"},
        {"", true, ""},
        {"   ", true, ""},
        {"a )b", true, "a | )b"},
        {"'abc", true, "error: unterminated quote"},
        {"x 'a''", true, "error: unterminated quote"},
        {"COLUMNS (a = ')'", true, "error: unterminated parenthesis"},
        {"f(a", true, "error: unterminated parenthesis"},
        {"a =", true, "error: missing item"},
        {"a, ", true, "error: missing item"},
        {", a", true, "error: missing item"},
        {"a,,b", true, "error: missing item"},
        {"a = ,b", true, "error: missing item"},
    };
    for (const Row& r : rows) {
        EXPECT_EQ(tokensOf(r.text, r.keepQuotes), r.tokens) << r.text;
        EXPECT_EQ(tokensOfUString(r.text, r.keepQuotes), r.tokens) << r.text;
    }
}

TEST(ParamScanTest, ManyTokensOutgrowTheFirstBlock) {
    // The first token block holds 100 tokens; a long column list must grow it.
    std::string text;
    for (int i = 0; i < 5000; ++i)
        text += "c" + std::to_string(i) + ", ";
    text += "end";
    param_tkn_group_def* groups = nullptr;
    short count = 0;
    char error[QZ_PARAM_ERROR_SIZE];
    ASSERT_TRUE(parse_tkns(text.c_str(), &groups, &count, error, true));
    ASSERT_EQ(groups[0].count, 5001);
    EXPECT_STREQ(groups[0].tokens[4999].text, "c4999");
    EXPECT_STREQ(groups[0].tokens[5000].text, "end");
    free_tkns(groups, &count);

    std::string tooMany;
    for (int i = 0; i < 33000; ++i)
        tooMany += "x ";
    EXPECT_EQ(tokensOf(tooMany.c_str(), true), "error: too many items");
}

TEST(ParamScanTest, CloseQuote) {
    // Offset of the close returned, or -1 for none.
    struct Row {
        const char* text;
        long close;
    } rows[] = {
        {"'abc' x", 4}, {"'it''s' x", 6}, {"\"a\".\"b\" x", 6}, {"\"a\".b x", 5}, {"\"a\".b\tx", 5},
        {"\"a\".b", 5}, {"'a\"b' x", 4},  {"'abc", -1},         {"'a''", -1},     {"'a'.'b", -1},
        {"''", 1},
    };
    for (const Row& r : rows) {
        const char* close = PARMSCN_get_close_quote(r.text);
        EXPECT_EQ(close ? close - r.text : -1, r.close) << r.text;
    }
    EXPECT_EQ(PARMSCN_get_close_quote("abc"), nullptr);
}

TEST(ParamScanTest, PasswordsMasked) {
    struct Row {
        const char* in;
        const char* out;
    } rows[] = {
        {"LOGIN USER a, PASSWORD secret", "LOGIN USER a, PASSWORD ***"},
        {"LOGINID u, password secret, KEYNAME default",
         "LOGINID u, password ***, KEYNAME default"},
        {"PASSWORD\t'se cret' x", "PASSWORD\t*** x"},
        {"PASSWORD = secret", "PASSWORD = ***"},
        {"PASSWORDS x", "PASSWORDS x"},
        {"PASSWORD=x", "PASSWORD=x"},
        {"PASSWORD ", "PASSWORD "},
        {"PASSWORD 'open", "PASSWORD 'open"},
        {"PASSWORD a PASSWORD b", "PASSWORD *** PASSWORD b"},
        {"no secret here", "no secret here"},
    };
    for (const Row& r : rows) {
        UString text(r.in);
        EXPECT_EQ(qzReplacePassword(text), std::string(r.in) != r.out) << r.in;
        EXPECT_STREQ(text.c_str(), r.out);
    }
}

TEST(ParamScanTest, TimeIntervals) {
    struct Row {
        const char* text;
        int seconds;
        const char* error;
    } rows[] = {
        {"10 SECS", 10, ""},
        {"10SECS", 10, ""},
        {" 2\t minutes ", 120, ""},
        {"3 h", 10800, ""},
        {"1 Day", 86400, ""},
        {"20000000 S", 20000000, ""},
        {"10", 0, "LAG Time qualifier must be either DAYS, HOURS, MINUTES or SECONDS"},
        {"10 WEEKS", 0, "LAG Time qualifier must be either DAYS, HOURS, MINUTES or SECONDS"},
        {"10 SECS x", 0, "LAG Time qualifier must be either DAYS, HOURS, MINUTES or SECONDS"},
        {"0 SEC", 0, "LAG Invalid number in interval"},
        {"20000001 S", 0, "LAG Invalid number in interval"},
        {"99999999999999999999 S", 0, "LAG Invalid number in interval"},
        {"SECS", 0, "LAG Invalid number in interval"},
        {"", 0, "LAG specification.  Interval not specified"},
    };
    for (const Row& r : rows) {
        std::string text = r.text;
        char error[QZ_PARAM_ERROR_SIZE] = "stale";
        EXPECT_EQ(qzGetTimeInterval(&text[0], error, "LAG "), r.seconds) << r.text;
        EXPECT_STREQ(error, r.error) << r.text;
    }
    char error[QZ_PARAM_ERROR_SIZE];
    EXPECT_EQ(qzGetTimeInterval(nullptr, error, ""), 0);
    EXPECT_STREQ(error, "specification.  Interval not specified");
    // Kept: taken in 32 bits.
    char most[] = "20000000 DAYS";
    EXPECT_EQ(qzGetTimeInterval(most, nullptr, nullptr), static_cast<int>(20000000u * 86400u));
    // A long prefix is cut to the error buffer, never past it.
    const std::string prefix(1000, 'p');
    char bounded[QZ_PARAM_ERROR_SIZE + 8];
    std::memset(bounded, '#', sizeof bounded);
    EXPECT_EQ(qzGetTimeInterval(nullptr, bounded, prefix.c_str()), 0);
    EXPECT_EQ(std::strlen(bounded), QZ_PARAM_ERROR_SIZE - 1);
    EXPECT_EQ(bounded[QZ_PARAM_ERROR_SIZE], '#');
}

TEST(ParamScanTest, QuotedParamsParenthesesAndClauses) {
    struct Quoted {
        const char* text;
        unsigned long size;
        int result;
        const char* out;
    } quoted[] = {
        {"  'a b' rest", 16, 1, "a b"},
        {"\"x\"", 16, 1, "x"},
        {"plain words ", 16, -1, "plain words "},
        {"'it''s'", 16, 1, "it"},
        {"'open", 16, 0, ""},
        {"abcdef", 6, 0, ""},
        {"'abcdef'", 6, 0, ""},
        {"   ", 16, 0, ""},
        {"abcde", 6, -1, "abcde"},
    };
    for (const Quoted& q : quoted) {
        char out[16] = "stale";
        EXPECT_EQ(qzGetQuotedParam(q.text, out, q.size), q.result) << q.text;
        EXPECT_STREQ(out, q.out) << q.text;
    }

    const char* columns = "(a = f(b), c = ')')) x";
    EXPECT_EQ(qzFindCloseParen(columns), columns + 18);
    EXPECT_EQ(qzFindCloseParen("(a (b)"), nullptr);
    EXPECT_EQ(qzFindCloseParen("a"), nullptr);
    EXPECT_EQ(get_close_paren("f(x(y)) z", 1), 6);
    EXPECT_EQ(get_close_paren("f(x", 1), -1);
    EXPECT_EQ(get_close_paren("f", 5), -1);

    const char* map = "MAP a, TARGETS t, COLUMNS (x = 'TARGET', TARGET), target b";
    EXPECT_EQ(findClause(map, "TARGET"), map + 50);
    EXPECT_EQ(findClause(map, "columns"), map + 18);
    EXPECT_EQ(findClause(map, "WHERE"), nullptr);
    EXPECT_EQ(findClause("'TARGET' x", "TARGET"), nullptr);
}

TEST(ParamScanTest, DelimitedLists) {
    str_tkns_def* list = PARMSCN_strTknsNew();
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(PARMSCN_str_get_tkns(",a,,'b,c' d,", ", ", list), 3);
    EXPECT_STREQ(PARMSCN_getTokenAt(list, 0), "a");
    EXPECT_STREQ(PARMSCN_getTokenAt(list, 1), "'b,c'");
    EXPECT_STREQ(PARMSCN_getTokenAt(list, 2), "d");
    EXPECT_EQ(PARMSCN_getTokenAt(list, 3), nullptr);
    EXPECT_EQ(PARMSCN_getTokenAt(list, -1), nullptr);
    // A second split replaces the first, and grows past the first allocation.
    std::string many;
    for (int i = 0; i < 100; ++i)
        many += std::to_string(i) + ";";
    EXPECT_EQ(PARMSCN_str_get_tkns(many.c_str(), ";", list), 100);
    EXPECT_STREQ(PARMSCN_getTokenAt(list, 99), "99");
    EXPECT_EQ(PARMSCN_str_get_tkns("'a;b", ";", list), 1);
    EXPECT_EQ(PARMSCN_str_get_tkns(nullptr, ";", list), 0);
    PARMSCN_strTknsDestroy(list);
    PARMSCN_strTknsDestroy(nullptr);
}

TEST(ParamScanTest, CursorOverACommandLine) {
    const char* line = "LAG 10 MINUTES, 'x y' = (a, b) last";
    parse_cursor_def cursor{line};
    char a[32], b[32], error[QZ_PARAM_ERROR_SIZE];
    ASSERT_TRUE(getParseNext(&cursor, a, sizeof a));
    EXPECT_STREQ(a, "LAG");
    EXPECT_EQ(getParseTimeInterval(&cursor, error, "LAG "), 600);
    EXPECT_EQ(getParseNextQuoted(&cursor, a, sizeof a), 1);
    EXPECT_STREQ(a, "x y");
    qzUngetParseNext(&cursor);
    ASSERT_TRUE(getParseNext(&cursor, a, sizeof a));
    EXPECT_STREQ(a, "'x y'");
    // Too small: nothing taken, the cursor stays.
    EXPECT_FALSE(getParseNext(&cursor, b, 3));
    EXPECT_STREQ(b, "");
    ASSERT_TRUE(getParseNextTwo(&cursor, a, b, sizeof a));
    EXPECT_STREQ(a, "(a, b)");
    EXPECT_STREQ(b, "last");
    EXPECT_FALSE(getParseNext(&cursor, a, sizeof a));

    // Two or nothing; an interval that fails leaves the cursor for another reader.
    parse_cursor_def single{"only"};
    EXPECT_FALSE(getParseNextTwo(&single, a, b, sizeof a));
    EXPECT_EQ(getParseNextQuoted(&single, a, sizeof a), -1);
    parse_cursor_def bad{"10 FORTNIGHTS next"};
    EXPECT_EQ(getParseTimeInterval(&bad, error, ""), 0);
    EXPECT_STREQ(error, "Time qualifier must be either DAYS, HOURS, MINUTES or SECONDS");
    ASSERT_TRUE(getParseNext(&bad, a, sizeof a));
    EXPECT_STREQ(a, "10");
    parse_cursor_def open{"'abc"};
    EXPECT_FALSE(getParseNext(&open, a, sizeof a));
}

TEST(ParamScanTest, UStringHelpers) {
    UString text("  \t a b \r\n");
    EXPECT_STREQ(qzTrimL(qzTrimR(text)).c_str(), "a b");
    UString blank(" \n");
    EXPECT_TRUE(qzTrimR(blank).empty());

    UString value;
    const UString params("LOGINID u1, PASSWORD = 'p w', KEYNAME");
    EXPECT_TRUE(qzGetValueForParam(params, UString("password"), value));
    EXPECT_STREQ(value.c_str(), "'p w'");
    EXPECT_TRUE(qzGetValueForParam(params, UString("LOGINID"), value));
    EXPECT_STREQ(value.c_str(), "u1");
    EXPECT_FALSE(qzGetValueForParam(params, UString("KEYNAME"), value));
    EXPECT_FALSE(qzGetValueForParam(params, UString("USER"), value));

    UString out;
    const UString sub("MAP a, TARGET b, COLUMNS (x)");
    EXPECT_TRUE(qzGetSubstring(sub, UString("TARGET "), UString(","), out));
    EXPECT_STREQ(out.c_str(), "b");
    EXPECT_TRUE(qzGetSubstring(sub, UString("COLUMNS "), UString(), out));
    EXPECT_STREQ(out.c_str(), "(x)");
    EXPECT_FALSE(qzGetSubstring(sub, UString("WHERE"), UString(), out));
    EXPECT_FALSE(qzGetSubstring(sub, UString("COLUMNS"), UString(";"), out));

    // Every token in turn, separators consumed; an unclosed one stops at its start.
    UString token, error;
    std::string seen;
    for (unsigned long at = 0; getNextToken(UString("a = 'q''s', (x)"), at, token, false);)
        seen += std::string(token.c_str()) + "|";
    EXPECT_EQ(seen, "a|q''s|x|");
    unsigned long pos = 2;
    EXPECT_FALSE(getNextToken(UString("x  \"open"), pos, token, true, &error));
    EXPECT_STREQ(error.c_str(), "unterminated quote");
    EXPECT_EQ(pos, 3u);
}

// Repeated messages are not suppressed while one lives, so that a test sees
// each message it provokes.
struct EveryMessage {
    EveryMessage() {
        qzs::qzlib::CMessageFactory::GetDefaultFactory()->SuppressDuplicateMessages(false);
    }
    ~EveryMessage() {
        qzs::qzlib::CMessageFactory::GetDefaultFactory()->SuppressDuplicateMessages(true);
    }
};

TEST(ParamScanTest, RangeAndErrorHelpers) {
    EveryMessage every;
    qztest::FaultCollector collector;
    EXPECT_EQ(qzValidateParamRange("MAXFILES", "5", 1, 10), 5);
    EXPECT_EQ(collector.count(), 0u);
    EXPECT_EQ(qzValidateParamRange("MAXFILES", "11", 1, 10), 11);
    EXPECT_EQ(qzValidateParamRange("MAXFILES", "7x", 1, 10), 7);
    EXPECT_EQ(qzValidateParamRange("MAXFILES", "99999999999", 1, 10), INT_MAX);
    const auto faults = collector.faults();
    ASSERT_EQ(faults.size(), 3u);
    for (const qztest::Fault& f : faults) {
        EXPECT_EQ(f.number, 218u);
        EXPECT_EQ(f.arguments, "MAXFILES");
        EXPECT_EQ(f.site.component, "qzapp.parmutl");
        EXPECT_EQ(f.site.function, "qzValidateParamRange");
    }

    char out[QZ_PARAM_ERROR_SIZE + 8];
    std::memset(out, '#', sizeof out);
    EXPECT_EQ(qzReturnParamError(out, -7, "bad %s at %d", "x", 3), -7);
    EXPECT_STREQ(out, "bad x at 3");
    EXPECT_EQ(qzReturnParamError(out, 2, "%s", std::string(1000, 'z').c_str()), 2);
    EXPECT_EQ(std::strlen(out), QZ_PARAM_ERROR_SIZE - 1);
    EXPECT_EQ(out[QZ_PARAM_ERROR_SIZE], '#');
}

// ---- Reading parameter files ------------------------------------------------

// Reads every command of `name`; the faults raised and standard output are
// kept for the test to look at.
class ParamFileTest : public ::testing::Test {
protected:
    std::string path(const std::string& name) const { return temp.path(name); }

    std::vector<std::string> readAll(const std::string& name, int flags = 0,
                                     unsigned long size = 256) {
        FILE* f = std::fopen(path(name).c_str(), "r");
        EXPECT_NE(f, nullptr) << name;
        if (!f)
            return {};
        std::vector<std::string> commands = readStream(f, flags, size);
        std::fclose(f);
        return commands;
    }

    std::vector<std::string> readStream(FILE* f, int flags, unsigned long size) {
        std::vector<std::string> commands;
        std::vector<char> buffer(size + 1, '#');
        testing::internal::CaptureStdout();
        int n;
        while ((n = qzGetNextCommand(buffer.data(), size, f, flags)) > 0) {
            EXPECT_EQ(static_cast<std::size_t>(n), std::strlen(buffer.data()));
            commands.push_back(buffer.data());
            if (commands.size() > 1000)
                break; // a reader that loops
        }
        EXPECT_EQ(buffer[size], '#') << "written past the buffer";
        EXPECT_STREQ(buffer.data(), "");
        printed = testing::internal::GetCapturedStdout();
        return commands;
    }

    // "number:first argument" of each fault, the reason text appended for 220.
    std::vector<std::string> faults() const {
        std::vector<std::string> out;
        for (const qztest::Fault& f : collector.faults()) {
            EXPECT_EQ(f.site.component, "qzapp.parmutl");
            EXPECT_EQ(f.site.function, "qzGetNextCommand");
            std::string args = f.arguments;
            const std::string dir = temp.dir + "/";
            for (std::size_t at; (at = args.find(dir)) != std::string::npos;)
                args.erase(at, dir.size());
            out.push_back(std::to_string(f.number) + ":" + args);
        }
        return out;
    }

    EveryMessage every;
    qztest::TempDir temp{"qzparam"};
    qztest::FaultCollector collector;
    std::string printed;
};

TEST_F(ParamFileTest, EveryKindOfLine) {
    setenv("QZT_SCHEMA", "sales", 1);
    unsetenv("QZT_UNSET");
    writeFile(path("main.prm"), "-- a whole-line comment\n"
                                "\n"
                                "   CAPTURE cap1   \r\n"
                                "COMMENT this line is skipped -- entirely\n"
                                "Comments is a command\n"
                                "LOGINID u, PASSWORD secret -- trailing comment\n"
                                "TABLE ?QZT_SCHEMA.items;\n"
                                "MAP ?QZT_UNSET.a, TARGET b.a ;   \n"
                                "FILE  x.dat;\n"
                                "GETENV x;\n"
                                "TABLE a, \\\n"
                                "   COLS (c1, \\   -- note\n"
                                "   c2);\n"
                                "MAP s.t, COLUMNS (x = '--not a comment', y = \"it's\");\n"
                                "\\\n"
                                "last line without newline");
    EXPECT_EQ(
        readAll("main.prm"),
        (std::vector<std::string>{
            "CAPTURE cap1", "Comments is a command", "LOGINID u, PASSWORD secret", "TABLE sales.items",
            "MAP ?QZT_UNSET.a, TARGET b.a", "FILE  x.dat", "GETENV x;", "TABLE a, COLS (c1, c2)",
            "MAP s.t, COLUMNS (x = '--not a comment', y = \"it's\")", "last line without newline"}));
    EXPECT_EQ(printed, "?QZT_SCHEMA = sales\n");
    EXPECT_TRUE(faults().empty());
}

TEST_F(ParamFileTest, SemicolonModeJoinsLinesPerFile) {
    writeFile(path("inc.prm"), "INNER one\nINNER two\n");
    writeFile(path("main.prm"), "FIRST line\n"
                                "semicolonterminate\n"
                                "MAP a,   -- first part\n"
                                "  TARGET b\n"
                                "  ;\n"
                                "GETENV x;\n"
                                "OBEY " +
                                    path("inc.prm") +
                                    ";\n"
                                    "TABLE t; \n"
                                    "DANGLING part\n");
    EXPECT_EQ(readAll("main.prm"),
              (std::vector<std::string>{"FIRST line", "MAP a, TARGET b", "GETENV x;", "INNER one",
                                        "INNER two", "TABLE t", "DANGLING part"}));
    EXPECT_TRUE(faults().empty());
}

TEST_F(ParamFileTest, ObeyNestsAndReturns) {
    writeFile(path("level2.prm"), "L2 a\nL2 b");
    writeFile(path("level 1.prm"), "L1 a\nOBEY " + path("level2.prm") + "\nL1 b \\\n");
    writeFile(path("main.prm"), "M a\nobey '" + path("level 1.prm") + "'\nM b\nOBEY\n");
    EXPECT_EQ(readAll("main.prm", QZ_CMD_ECHO),
              (std::vector<std::string>{"M a", "L1 a", "L2 a", "L2 b", "L1 b", "M b", "OBEY"}));
    EXPECT_EQ(printed, "M a\nobey '" + path("level 1.prm") + "'\nL1 a\nOBEY " + path("level2.prm") +
                           "\nL2 a\nL2 b\nL1 b\nM b\nOBEY\n");
    // With OBEY turned off it is a command like any other.
    EXPECT_EQ(readAll("level 1.prm", QZ_CMD_NO_OBEY),
              (std::vector<std::string>{"L1 a", "OBEY " + path("level2.prm"), "L1 b"}));
    EXPECT_TRUE(faults().empty());
}

TEST_F(ParamFileTest, ObeyFaultsSkipTheObeyOnly) {
    // Each refusal raises one message and reading goes on with the next command.
    ASSERT_EQ(mkdir(path("dir.prm").c_str(), 0700), 0);
    ASSERT_EQ(mkfifo(path("fifo.prm").c_str(), 0600), 0);
    writeFile(path("a.prm"), "A1\nOBEY b.prm\nA2\n");
    writeFile(path("b.prm"), "B1\nOBEY a.prm\nOBEY b.prm\nB2\n");
    writeFile(path("main.prm"), "M1\nOBEY missing.prm\nOBEY dir.prm\nOBEY /dev/zero\n"
                                "OBEY fifo.prm\nOBEY a.prm\nM2\n");
    const std::string cwd = std::filesystem::current_path();
    std::filesystem::current_path(temp.dir);
    const auto commands = readAll("main.prm");
    std::filesystem::current_path(cwd);
    EXPECT_EQ(commands, (std::vector<std::string>{"M1", "A1", "B1", "B2", "A2", "M2"}));
    const char* cycle = "it is already being read, so this OBEY would include it in itself";
    EXPECT_EQ(faults(), (std::vector<std::string>{
                            "1091:missing.prm, No such file or directory",
                            "220:dir.prm, it is a directory",
                            "220:/dev/zero, it is not a regular file",
                            "220:fifo.prm, it is not a regular file",
                            std::string("220:a.prm, ") + cycle,
                            std::string("220:b.prm, ") + cycle,
                        }));
}

TEST_F(ParamFileTest, ObeyDepthIsLimited) {
    for (int i = 0; i < 20; ++i)
        writeFile(path("n" + std::to_string(i) + ".prm"),
                  "AT " + std::to_string(i) + "\nOBEY " +
                      path("n" + std::to_string(i + 1) + ".prm") + "\n");
    const auto commands = readAll("n0.prm");
    ASSERT_EQ(commands.size(), 17u);
    EXPECT_EQ(commands.back(), "AT 16");
    EXPECT_EQ(faults(),
              (std::vector<std::string>{"220:n17.prm, OBEY files nest more than 16 deep"}));
}

TEST_F(ParamFileTest, OverlongCommandsAreSkippedWhole) {
    // Both continuation modes; a runaway continuation to the end of the file;
    // a physical line longer than the scratch buffer; a substitution that
    // makes a command too long.
    setenv("QZT_LONG", std::string(100, 'v').c_str(), 1);
    std::string text = "FIRST\nLONG ";
    for (int i = 0; i < 50; ++i)
        text += "part" + std::to_string(i) + ", \\\n";
    text += "end\nAFTER continued\n" + std::string(6000, 'x') + " \\\n more\nAFTER line\n" +
            "SUBST ?QZT_LONG\nSEMICOLONTERMINATE\nSHORT;\nRUNAWAY\n";
    for (int i = 0; i < 100; ++i)
        text += "  item" + std::to_string(i) + ",\n";
    writeFile(path("long.prm"), text);
    EXPECT_EQ(readAll("long.prm", QZ_CMD_QUIET_SUBSTITUTE, 64),
              (std::vector<std::string>{"FIRST", "AFTER continued", "AFTER line", "SHORT;"}));
    EXPECT_EQ(faults(), (std::vector<std::string>{"219:long.prm, 63", "219:long.prm, 63",
                                                  "219:long.prm, 63", "219:long.prm, 63"}));
}

TEST_F(ParamFileTest, HostileFilesEndInAMessage) {
    // Binary bytes: the text before the NUL is read, the rest skipped.
    const char binary[] = "GOOD one\nBAD\0\x01\x02\nNEVER\n";
    writeFile(path("binary.prm"), std::string(binary, sizeof binary - 1));
    EXPECT_EQ(readAll("binary.prm"), std::vector<std::string>{"GOOD one"});
    // A NUL inside a continued command: nothing of it is left in the buffer.
    writeFile(path("cut.prm"), std::string("TABLE a, \\\n b,\0", 15));
    EXPECT_TRUE(readAll("cut.prm").empty());
    // A directory given as the stream itself.
    ASSERT_EQ(mkdir(path("d").c_str(), 0700), 0);
    EXPECT_TRUE(readAll("d").empty());
    // Unterminated quotes are text like any other.
    writeFile(path("quote.prm"), "TABLE 'abc -- x\nMAP \"a\n");
    EXPECT_EQ(readAll("quote.prm"), (std::vector<std::string>{"TABLE 'abc", "MAP \"a"}));
    EXPECT_EQ(faults(),
              (std::vector<std::string>{
                  "220:binary.prm, line 2 holds a NUL byte, so it is not text; the rest of the "
                  "file is skipped",
                  "220:cut.prm, line 2 holds a NUL byte, so it is not text; the rest of the file "
                  "is skipped",
                  "220:d, it is a directory"}));
    // /dev/zero as the stream: its first line is binary, so it ends.
    FILE* zero = std::fopen("/dev/zero", "r");
    ASSERT_NE(zero, nullptr);
    EXPECT_TRUE(readStream(zero, 0, 64).empty());
    std::fclose(zero);
}

TEST_F(ParamFileTest, EchoMasksPasswordsAndSubstitutions) {
    setenv("QZT_PW", "s3cr3t", 1);
    setenv("QZT_USER", "ann", 1);
    setenv("PW", "direct", 1);
    writeFile(path("echo.prm"),
              "LOGINID ?QZT_USER, PASSWORD ?QZT_PW\nCONNECT LOGINID x, PASSWORD ?PW\n"
              "LOGINID x, PASSWORD plain\n");
    EXPECT_EQ(readAll("echo.prm", QZ_CMD_ECHO),
              (std::vector<std::string>{"LOGINID ann, PASSWORD s3cr3t",
                                        "CONNECT LOGINID x, PASSWORD direct",
                                        "LOGINID x, PASSWORD plain"}));
    EXPECT_EQ(printed, "?QZT_USER = ann\n?QZT_PW = ***\nLOGINID ann, PASSWORD ***\n"
                       "?PW = ***\nCONNECT LOGINID x, PASSWORD ***\nLOGINID x, PASSWORD ***\n");
    EXPECT_TRUE(readAll("echo.prm", QZ_CMD_NO_SUBSTITUTE).at(1) ==
                "CONNECT LOGINID x, PASSWORD ?PW");
    EXPECT_EQ(printed, "");
    unsetenv("PW");
}

TEST_F(ParamFileTest, MemoryStreamsAndEndingEarly) {
    // A stream with no descriptor reads the same; state ends with the stream.
    char text[] = "SEMICOLONTERMINATE\nA\n;\nOBEY inc.prm;\nB;\n";
    writeFile(path("inc.prm"), "I1\nI2\n");
    const std::string cwd = std::filesystem::current_path();
    std::filesystem::current_path(temp.dir);
    FILE* memory = fmemopen(text, std::strlen(text), "r");
    EXPECT_EQ(readStream(memory, 0, 64), (std::vector<std::string>{"A ;", "I1", "I2", "B;"}));
    std::fclose(memory);

    // Stopping inside an OBEY file: qzEndCommands closes it, so that the
    // stream read again from its start opens it afresh.
    writeFile(path("outer.prm"), "OBEY inc.prm\n");
    FILE* outer = std::fopen("outer.prm", "r");
    char buffer[64];
    ASSERT_GT(qzGetNextCommand(buffer, sizeof buffer, outer, 0), 0);
    EXPECT_STREQ(buffer, "I1");
    qzEndCommands(outer);
    std::rewind(outer);
    EXPECT_EQ(readStream(outer, 0, 64), (std::vector<std::string>{"I1", "I2"}));
    // A stream closed early without it, whose FILE* comes back for another
    // file, does not inherit the old OBEY stack.
    std::rewind(outer);
    ASSERT_GT(qzGetNextCommand(buffer, sizeof buffer, outer, 0), 0);
    writeFile(path("plain.prm"), "X\nY\n");
    ASSERT_EQ(std::freopen("plain.prm", "r", outer), outer);
    EXPECT_EQ(readStream(outer, 0, 64), (std::vector<std::string>{"X", "Y"}));
    std::fclose(outer);
    std::filesystem::current_path(cwd);
    EXPECT_TRUE(faults().empty());
}

} // namespace
