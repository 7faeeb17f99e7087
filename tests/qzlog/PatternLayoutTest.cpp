//===- tests/qzlog/PatternLayoutTest.cpp - Conversion patterns ------------===//
//
// Events are built at a known time on the calling thread, so that dates come
// out exactly (the tests run with TZ=UTC), and laid out by one pattern each.
//
//===----------------------------------------------------------------------===//
#include "LogTestUtil.h"

#include "qzlog/BasicConfigurator.h"
#include "qzlog/detail/LogBuffer.h"
#include "qzlog/LoggingEvent.h"
#include "qzlog/PatternLayout.h"
#include "qzlog/detail/Token.h"

#include <gtest/gtest.h>

#include <cctype>
#include <string>
#include <thread>

namespace {

using namespace qzs::qzlib::qzlog;

// 2024-03-01 Fri 10:15:30.250 UTC.
constexpr timeval32_t March1st{1709288130, 250000};

// An event on `logger` at `time`, its location this source line.
#define EVENT_AT(name, logger, level, time, format, argCount)                                      \
    LoggingEvent name(LogBufferImpl::getThreadContext(0), format, __FILE__, "testFunction",        \
                      __LINE__, argCount, time, (logger)->id, level)

std::string render(const char* pattern, const LoggingEvent& event) {
    PatternLayout layout(pattern);
    std::string out;
    layout.format(&event, out);
    return out;
}

std::string when(const timeval32_t& time, const char* pattern) {
    char out[300];
    makeTime(time, pattern, out);
    return out;
}

class PatternLayoutTest : public qztest::LoggingTest {
protected:
    LoggerRepository& repo = Logger::getRepository();
    Logger* abc = repo.getLogger("a.b.c");
};

TEST_F(PatternLayoutTest, StockPattern) {
    // The stock console pattern gives "<ms> [thread] LEVEL logger - message" and a newline.
    Logger* ab = repo.getLogger("a.b");
    EVENT_AT(event, ab, Level::Info, March1st, "hi", 0);
    std::string line = render("%r [%t] %p %c - %m%n", event);
    size_t digits = 0;
    while (digits < line.size() && std::isdigit(static_cast<unsigned char>(line[digits])))
        ++digits;
    EXPECT_GT(digits, 0u) << line;
    EXPECT_EQ(line.substr(digits), " [main] INFO a.b - hi\n");
}

TEST_F(PatternLayoutTest, LoggerNameAndLevel) {
    // Component counts, the reversed precision cut, padding, and the root shown as "root".
    EVENT_AT(event, abc, Level::Info, March1st, "m", 0);
    EXPECT_EQ(render("%c{1}", event), "c");
    EXPECT_EQ(render("%c{2}", event), "b.c");
    EXPECT_EQ(render("%c{9}", event), "a.b.c");
    EXPECT_EQ(render("%c{x}", event), "a.b.c");
    EXPECT_EQ(render("%.2c", event), ".c");
    EXPECT_EQ(render("%-.2c", event), "a.");
    EXPECT_EQ(render("[%7c]", event), "[  a.b.c]");
    EXPECT_EQ(render("%-5p|", event), "INFO |");
    EXPECT_EQ(render("%c{abc", event), "a.b.c{abc"); // no "}": the rest stays literal

    EVENT_AT(onRoot, repo.getRootLogger(), Level::Error, March1st, "m", 0);
    EXPECT_EQ(render("%c|%c{1}|%p", onRoot), "root|root|ERROR");
    Level::setName(100, "CUSTOM");
    EVENT_AT(custom, abc, 100, March1st, "m", 0);
    EXPECT_EQ(render("%p", custom), "CUSTOM");
    Level::setName(100, nullptr);
    EXPECT_EQ(render("%p", custom), "<undefined>");
}

TEST_F(PatternLayoutTest, DatesAndIntervals) {
    // Milliseconds always follow "%S"; a pattern without it gets none; small values are intervals.
    EVENT_AT(event, abc, Level::Info, March1st, "m", 0);
    EXPECT_EQ(render("%d", event), "2024-03-01 Fri UTC 10:15:30.250");
    EXPECT_EQ(render("%d{%H:%M}", event), "10:15");
    EXPECT_EQ(render("[%d{%M:%S %Y}]", event), "[15:30.250 2024]");

    EXPECT_EQ(when(March1st, nullptr), "2024-03-01 Fri UTC 10:15:30.250");
    EXPECT_EQ(when(March1st, ""), "2024-03-01 Fri UTC 10:15:30.250");
    EXPECT_EQ(when({1189622117, 0}, "%Y-%m-%d %H:%M:%S"), "2007-09-12 18:35:17.000");
    EXPECT_EQ(when({1189622116, 999999}, "%Y"), "1189622116.999");
    EXPECT_EQ(when({5, 7000}, nullptr), "5.007");
    EXPECT_EQ(when({0, 0}, nullptr), "0.000");
}

TEST_F(PatternLayoutTest, DateCacheFollowsTimeAndPattern) {
    // The per-thread cache must notice a new millisecond, a new second and a new pattern.
    EXPECT_EQ(when(March1st, "%H:%M:%S"), "10:15:30.250");
    EXPECT_EQ(when({1709288130, 7000}, "%H:%M:%S"), "10:15:30.007");
    EXPECT_EQ(when({1709288131, 7000}, "%H:%M:%S"), "10:15:31.007");
    EXPECT_EQ(when({1709288131, 7000}, "%Y"), "2024");
    EXPECT_EQ(when({1709288131, 7999}, "%H:%M:%S"), "10:15:31.007");
    EXPECT_EQ(when({1709288131, 8000}, "%S|%M"), "31.008|15");
    EXPECT_EQ(when({1709374531, 8000}, "%S|%d"), "31.008|02");

    // Each thread has its own cache.
    std::string other;
    std::thread([&other] { other = when({1709288190, 1000}, "%H:%M:%S"); }).join();
    EXPECT_EQ(other, "10:16:30.001");
    EXPECT_EQ(when({1709374531, 8000}, "%S|%d"), "31.008|02");
}

TEST_F(PatternLayoutTest, LiteralsAndOddTokens) {
    // "%%", "%n", unknown letters and a "%" at the very end of the pattern.
    EVENT_AT(event, abc, Level::Warn, March1st, "m", 0);
    EXPECT_EQ(render("100%% %m%n", event), "100% m\n");
    EXPECT_EQ(render("%q|%m", event), "%?q?|m");
    EXPECT_EQ(render("%5n{1}", event), "\n{1}"); // a justified "%n" takes no option
    EXPECT_EQ(render("abc%", event), "abc%?");
    EXPECT_EQ(render("", event), "");
}

TEST_F(PatternLayoutTest, MultiLineMessageLinesUp) {
    // Later lines of a message start under its first character.
    EVENT_AT(event, abc, Level::Info, March1st, "one\ntwo\nthree", 0);
    EXPECT_EQ(render("[%p] %m", event), "[INFO] one\n       two\n       three");
    EXPECT_EQ(render("%m|", event), "one\ntwo\nthree|");
    EXPECT_EQ(render("%n%p %m", event), "\nINFO one\n     two\n     three");
}

TEST_F(PatternLayoutTest, MessageIsTrimmedWhereverItStands) {
    // "%m" is the trimmed message, and only it: blanks around it in the
    // pattern stay, and a message too long for one piece of the line, with
    // blanks at its ends, is trimmed the same way.
    const std::string longText = " \t" + std::string(3000, 'x') + " \r";
    const struct {
        const char* message;
        const char* pattern;
        std::string expected;
    } cases[] = {
        {"  hi \t", "[%m]", "[hi]"},
        {"\r \t", "<%m>", "<>"},
        {"hi  \n", " %m ", " hi "},
        {"\n  a\nb ", "%p %m", "INFO a\n     b"},
        {"%s", "[%m]", "[" + std::string(3000, 'x') + "]"},
        {"  x", "%3m|%-3m|", "  x|x  |"},
    };
    unsigned short line = 1000; // a line of its own for each format
    for (const auto& c : cases) {
        LoggingEvent event(LogBufferImpl::getThreadContext(0), c.message, __FILE__, "testFunction",
                           ++line, 1, March1st, abc->id, Level::Info);
        event.addDetail(LogString, longText.c_str(), longText.size() + 1);
        EXPECT_EQ(render(c.pattern, event), c.expected) << c.message << " under " << c.pattern;
    }
}

TEST_F(PatternLayoutTest, SourceLocation) {
    // %C, %l, %L and %M come from the statement's location record; %S from the event.
    LoggingEvent event(LogBufferImpl::getThreadContext(0), "m", "src/qzlog/Worker.cpp", "doWork", 42,
                       0, March1st, abc->id, Level::Info);
    EXPECT_EQ(render("%C", event), "src/qzlog/Worker.cpp");
    EXPECT_EQ(render("%C{1}", event), "Worker.cpp");
    EXPECT_EQ(render("%C{2}", event), "qzlog/Worker.cpp");
    EXPECT_EQ(render("%l", event), "doWork qzlog/Worker.cpp(42)");
    EXPECT_EQ(render("%L|%M", event), "42|doWork");
    EXPECT_EQ(render("%S", event), std::to_string(event.attributes.attributes.sequence));

    LoggingEvent keyword(LogBufferImpl::getThreadContext(0), "m", "$Id: lib/Keyword.cpp $", "f", 7,
                         0, March1st, abc->id, Level::Info);
    EXPECT_EQ(render("%C", keyword), "lib/Keyword.cpp");
    EXPECT_EQ(render("%C{1}", keyword), "Keyword.cpp");
}

TEST_F(PatternLayoutTest, NodeAndKeywordNames) {
    // The helpers behind %c and %C, on the inputs no layout test gives them.
    char out[64];
    EXPECT_STREQ(makeNode("a.b.c", ".", 0, out), "a.b.c");
    EXPECT_STREQ(makeNode("a.b.c", ".", 3, out), "a.b.c");
    EXPECT_STREQ(makeNode("a.b.", ".", 1, out), "");
    EXPECT_STREQ(makeNode("x/y\\z.cpp", "/\\", 1, out), "z.cpp");
    EXPECT_STREQ(makeNode("x/y\\z.cpp", "/\\", 2, out), "y\\z.cpp");

    auto rcs = [&out](const char* name) {
        makeRCSName(name, out);
        return std::string(out);
    };
    EXPECT_EQ(rcs("$Source: /r/file.cpp,v $"), "/r/file.cpp,v");
    EXPECT_EQ(rcs("$Id:file.cpp$"), "$Id:file.cpp$");
    EXPECT_EQ(rcs("$Id: file.cpp"), "$Id: file.cpp");
}

TEST_F(PatternLayoutTest, ThreadIsTheEventsThread) {
    // %t names the thread the event belongs to, wherever it is laid out, so
    // that a replayed event shows its recorded thread.
    EVENT_AT(event, abc, Level::Info, March1st, "m", 0);
    std::string seen;
    std::thread([&] {
        repo.setThreadName("layout-worker");
        seen = render("%t", event);
        repo.threadComplete();
    }).join();
    EXPECT_EQ(seen, "main");
}

TEST_F(PatternLayoutTest, BasicConfiguratorAttachesToRoot) {
    // configure(appender) attaches to the root and refolds the bytes at once.
    qztest::CaptureAppender capture("basic", new PatternLayout("%p %c - %m"));
    Logger* l = repo.getLogger("basic.child");
    l->setLevel(Level::Info);
    EXPECT_EQ(l->getEffectiveLevel(), Level::Warn);
    EXPECT_TRUE(BasicConfigurator::configure(capture));
    EXPECT_TRUE(repo.getRootLogger()->isAttached(capture));
    EXPECT_EQ(l->getEffectiveLevel(), Level::Info);
    QZT_LOG(l, Level::Info, "through the root");
    EXPECT_EQ(capture.last(), "INFO basic.child - through the root");
    repo.getRootLogger()->removeAppender(capture);
}

} // namespace

namespace {

// Found by fuzzing: a width in the millions padded every line to that many
// characters. Fields pad to at most 64 KiB; the text itself is never cut.
TEST_F(PatternLayoutTest, HugeWidthsAreCapped) {
    EVENT_AT(event, abc, Level::Info, March1st, "m", 0);
    EXPECT_EQ(render("%999999999p", event).size(), static_cast<size_t>(Token::MaxWidth));
    EXPECT_EQ(render("%-99999999999p|", event), "INFO|") << "a width past 32 bits reads as none";
}

} // namespace
