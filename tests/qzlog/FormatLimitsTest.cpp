//===- tests/qzlog/FormatLimitsTest.cpp - Widths and precisions out of range ===//
//
// Formats and patterns with precisions near 1e9, as a fuzzer found them: a
// float handed such a precision to snprintf, which asked for a 4 GB buffer.
// Every conversion takes a precision above Token::MaxWidth as that cap, on
// the live path and on replay of an activity file that carries the format.
//
//===----------------------------------------------------------------------===//
#include "CaptureAppender.h"
#include "LogTestUtil.h"

#include "qzlog/ActivityFile.h"
#include "qzlog/Layout.h"
#include "qzlog/detail/LogBuffer.h"
#include "qzlog/detail/Token.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <unistd.h>

namespace {

using namespace qzs::qzlib::qzlog;

const size_t Cap = Token::MaxWidth;
// 1.5 at the largest precision honoured.
const std::string CappedOneAndAHalf = "1.5" + std::string(Cap - 1, '0');

class FormatLimitsTest : public qztest::LoggingTest {};

// One statement per row, each on its own line; the rendered text must be
// what the same conversion gives at a sane precision, or at the cap.
TEST_F(FormatLimitsTest, HugePrecisionsAreCappedOnEveryConversion) {
    struct Case {
        const char* pattern;
        std::function<void(Logger*)> log;
        std::string expected;
    };
    static const unsigned char raw[3] = {0xde, 0xad, 0x01};
    const Case cases[] = {
        // The fuzz finding: the precision went straight to snprintf.
        {"%m", [](Logger* l) { QZT_LOG(l, Level::Info, "%.1000000000f", 1.5f); }, CappedOneAndAHalf},
        // A capped width does not fit the scratch buffer either; the number stays.
        {"%m", [](Logger* l) { QZT_LOG(l, Level::Info, "[%1000000000.1f]", -1.5f); },
         "[" + std::string(Cap - 4, ' ') + "-1.5]"},
        {"%m", [](Logger* l) { QZT_LOG(l, Level::Info, "%.1000000000s|%-.1000000000s", "abcdef", "ab"); },
         "abcdef|ab"},
        {"%m",
         [](Logger* l) {
             QZT_LOG(l, Level::Info, "%.1000000000d %.1000000000u %.1000000000ld %.1000000000hd", -42, 42u, -42L,
                     static_cast<short>(-7));
         },
         "-42 42 -42 -7"},
        {"%m",
         [](Logger* l) {
             QZT_LOG(l, Level::Info, "%.1000000000x %.1000000000X %.1000000000o %.1000000000c %.1000000000p", 255, 255,
                     8, 'Q', reinterpret_cast<void*>(0x1234));
         },
         "000000ff 000000FF 10 Q 0x0000000000001234"},
        {"%m", [](Logger* l) { QZT_LOG(l, Level::Info, "%.1000000000s", LoggingRawData(raw, sizeof raw)); },
         "000000: de ad 01" + std::string(40, ' ') + "|..." + std::string(13, ' ') + "|"},
        // The layout's own conversions.
        {"%.1000000000c %-.1000000000p %.4000000000m|",
         [](Logger* l) { QZT_LOG(l, Level::Info, "hi"); }, "limits INFO hi|"},
    };
    for (const Case& c : cases) {
        qztest::CapturedLogger captured("limits", c.pattern);
        c.log(captured.logger);
        const std::string text = captured.capture->last();
        EXPECT_EQ(c.expected.size(), text.size()) << c.pattern;
        EXPECT_TRUE(c.expected == text) << c.pattern << " gave " << text.substr(0, 80);
    }
}

// A text longer than the cap is cut to the cap under a larger precision: the
// last characters right-aligned, the first ones left-aligned.
TEST_F(FormatLimitsTest, TextLongerThanTheCapIsCutToIt) {
    const std::string a(40000, 'a'), b(40000, 'b');
    qztest::CapturedLogger right("limits.cut", "%.1000000000m");
    QZT_LOG(right.logger, Level::Info, "%s%s", a.c_str(), b.c_str());
    EXPECT_TRUE(std::string(Cap - b.size(), 'a') + b == right.capture->last());
    qztest::CapturedLogger left("limits.cut.left", "%-.1000000000m");
    QZT_LOG(left.logger, Level::Info, "%s%s", a.c_str(), b.c_str());
    EXPECT_TRUE(a + std::string(Cap - a.size(), 'b') == left.capture->last());
}

// An activity file carries its own formats: a replayed event with a huge
// precision renders as the live one did.
TEST_F(FormatLimitsTest, ReplayedFormatIsCappedToo) {
    Logger* logger = Logger::getRepository().getLogger("limits.replay");
    logger->setLevel(Level::Info);
    qztest::CaptureAppender live("limits-live", new PatternLayout("%m"));
    qztest::CaptureAppender binary("limits-binary", new BinaryLayout());
    logger->addAppender(live);
    logger->addAppender(binary);
    Logger::getRepository().recalculateEffectiveLevels();
    std::thread([logger] {
        QZT_LOG(logger, Level::Info, "%.1000000000f|%.1000000000s", 1.5f, "text");
        Logger::getRepository().threadComplete();
    }).join();
    logger->removeAllAppenders();
    ASSERT_TRUE(CappedOneAndAHalf + "|text" == live.last());

    char name[] = "/tmp/qzlimitsXXXXXX";
    ::close(::mkstemp(name));
    {
        std::ofstream out(name, std::ios::binary);
        for (const std::string& block : binary.lines())
            out << block;
    }
    qztest::CaptureAppender replayed("limits-replayed", new PatternLayout("%m"));
    logger->addAppender(replayed);
    ActivityFile file(name);
    ASSERT_TRUE(file.Open());
    while (file.getOffset() < file.getSize())
        ASSERT_TRUE(file.ProcessSession()) << file.lastError();
    logger->removeAllAppenders();
    std::remove(name);
    EXPECT_TRUE(live.last() == replayed.last()) << replayed.last().substr(0, 80);
}

} // namespace
