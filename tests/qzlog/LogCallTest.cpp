//===- tests/qzlog/LogCallTest.cpp - The log call and message formatting --===//
//
// What one log statement turns into: the message text built from the format
// and the stored arguments, the guards around the call (level, retrace mask,
// recursion, errno), and the location record and event id of a statement.
//
//===----------------------------------------------------------------------===//
#include "LogTestUtil.h"

#include "qzlog/LogMacros.h"
#include "qzlog/LoggingEvent.h"
#include "qzstd/memutl.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

namespace {

using namespace qzs::qzlib::qzlog;
using qztest::CaptureAppender;
using qztest::CapturedLogger;

class LogCallTest : public qztest::LoggingTest {
protected:
    CapturedLogger log{"test.logcall"};
};

// Logs one statement and answers the message it produced.
#define MESSAGE(...) (QZT_LOG(log.logger, Level::Info, __VA_ARGS__), log.capture->last())

TEST_F(LogCallTest, PercentAndMissingArguments) {
    // "%%" is a literal and uses no argument; conversions beyond the arguments show "???".
    EXPECT_EQ(MESSAGE("100%% of %d", 7), "100% of 7");
    EXPECT_EQ(MESSAGE("%d %d", 1), "1 ???");
    EXPECT_EQ(MESSAGE("no args %s"), "no args ???");
    EXPECT_EQ(MESSAGE("%q %d", 1, 2), "%?q? 2");
    EXPECT_EQ(MESSAGE("end %"), "end ???");
}

TEST_F(LogCallTest, WidthPrecisionAndZeroPad) {
    // Justification pads and never cuts; precision cuts from the end unless left-aligned.
    EXPECT_EQ(MESSAGE("[%5d]", 42), "[   42]");
    EXPECT_EQ(MESSAGE("%5d", 42), "42"); // the leading blanks go with the trim
    EXPECT_EQ(MESSAGE("%-5d|", 42), "42   |");
    EXPECT_EQ(MESSAGE("%05d", 42), "00042");
    EXPECT_EQ(MESSAGE("%-05d", 42), "00042");
    EXPECT_EQ(MESSAGE("%2d", 12345), "12345");
    EXPECT_EQ(MESSAGE("%.3s", "abcdef"), "def");
    EXPECT_EQ(MESSAGE("%-.3s", "abcdef"), "abc");
    EXPECT_EQ(MESSAGE("%.10s", "abc"), "abc");
    EXPECT_EQ(MESSAGE("[%-6s|%6s]", "ab", "cd"), "[ab    |    cd]");
    EXPECT_EQ(MESSAGE("%99999999999d", 42), "42"); // a width beyond 32 bits reads as none
}

TEST_F(LogCallTest, TypeComesFromTheStoredArgument) {
    // Length modifiers are skipped: the stored type decides the rendering.
    EXPECT_EQ(MESSAGE("%ld %lld %hd %Lu", 5, 6L, -7L, 8UL), "5 6 -7 8");
    EXPECT_EQ(MESSAGE("%d %d", static_cast<short>(-3), static_cast<unsigned short>(65535)), "-3 65535");
    EXPECT_EQ(MESSAGE("%d", static_cast<long>(INT64_MIN)), "-9223372036854775808");
    EXPECT_EQ(MESSAGE("%u", static_cast<unsigned long>(UINT64_MAX)), "18446744073709551615");
    EXPECT_EQ(MESSAGE("%s", 12), "12");
    EXPECT_EQ(MESSAGE("%d", "text"), "text");
}

TEST_F(LogCallTest, HexOctalCharAndPointer) {
    // %x and %X print an integer at its natural width; a pointer takes its own "0x" branch.
    EXPECT_EQ(MESSAGE("%x %X", 255, 255), "000000ff 000000FF");
    EXPECT_EQ(MESSAGE("%x", static_cast<short>(-1)), "ffff");
    EXPECT_EQ(MESSAGE("%x", 0x123456789aL), "000000123456789a");
    EXPECT_EQ(MESSAGE("%o %o", 8, 0), "10 0");
    EXPECT_EQ(MESSAGE("%c%c", 'Z', 'y'), "Zy");
    const void* p = reinterpret_cast<const void*>(0x1234);
    EXPECT_EQ(MESSAGE("%x", p), "0x0000000000001234");
    EXPECT_EQ(MESSAGE("%p", p), "0x0000000000001234");
    EXPECT_EQ(MESSAGE("%p", nullptr), "0x0000000000000000");
}

TEST_F(LogCallTest, TextArguments) {
    // Null text, std::string, and the widening of bool and char to int.
    const char* none = nullptr;
    char* mutableNone = nullptr;
    EXPECT_EQ(MESSAGE("[%s] [%s]", none, mutableNone), "[<nul>] [<nul>]");
    EXPECT_EQ(MESSAGE("%s/%s", std::string("left"), std::string()), "left/");
    EXPECT_EQ(MESSAGE("%d %d %d", true, false, 'A'), "1 0 65");
    enum Colour { Red, Green };
    EXPECT_EQ(MESSAGE("%d", Green), "1");
    EXPECT_EQ(MESSAGE("%s", u"caf\u00e9 \U0001F600"), "caf\xc3\xa9 \xf0\x9f\x98\x80");
}

TEST_F(LogCallTest, FloatWithWidthAndPrecision) {
    // Floats go through printf with the token's width and precision, applied once.
    EXPECT_EQ(MESSAGE("%f", 0.5f), "0.500000");
    EXPECT_EQ(MESSAGE("%.2f", 1.5f), "1.50");
    EXPECT_EQ(MESSAGE("[%8.3f]", 3.14159f), "[   3.142]");
    EXPECT_EQ(MESSAGE("%f", 0.25), "0.250000"); // a double is stored as a float
    EXPECT_EQ(MESSAGE("%.1f|%d", 2.5f, 3), "2.5|3");
}

TEST_F(LogCallTest, NineMixedArguments) {
    // Each argument keeps its own slot and type, however many there are.
    EXPECT_EQ(MESSAGE("%d %u %s %s %p %ld %lu %d %d", -1, 2u, "three", std::string("four"),
                      reinterpret_cast<void*>(5), 6L, 7UL, static_cast<short>(8),
                      static_cast<unsigned short>(9)),
              "-1 2 three four 0x0000000000000005 6 7 8 9");
}

TEST_F(LogCallTest, MessageIsTrimmed) {
    // Blanks, tabs and line ends are trimmed from both ends of the whole message.
    EXPECT_EQ(MESSAGE("  hello\n"), "hello");
    EXPECT_EQ(MESSAGE("\t\r\n x \n"), "x");
    EXPECT_EQ(MESSAGE("%s|", "  padded"), "padded|");
    EXPECT_EQ(MESSAGE("%s", " \n\t"), "");
    EXPECT_EQ(MESSAGE("a \n b"), "a \n b");
}

TEST_F(LogCallTest, RawDumpIsIndentedUnderItsStart) {
    // Every later line of a dump, and the text after it, lines up under the dump's start.
    const char bytes[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
    EXPECT_EQ(MESSAGE("raw=%s end", LoggingRawData(bytes, 36)),
              "raw=000000: 41 42 43 44 45 46 47 48 49 4a 4b 4c 4d 4e 4f 50 |ABCDEFGHIJKLMNOP|\n"
              "    000010: 51 52 53 54 55 56 57 58 59 5a 30 31 32 33 34 35 |QRSTUVWXYZ012345|\n"
              "    000020: 36 37 38 39                                     |6789            |\n"
              "     end");
    EXPECT_EQ(MESSAGE("%s", LoggingRawData(nullptr, 10)), "");
}

TEST_F(LogCallTest, LevelAndRetraceMaskGateTheCall) {
    // Below the effective byte, or with the retrace mask set, nothing is logged,
    // whether called directly or through a macro, which tests before it evaluates.
    int evaluated = 0;
    log.logger->setLevel(Level::Info);
    QZT_LOG(log.logger, Level::Debug, "dropped");
    QZ_DEBUG(log.logger, "%d", ++evaluated);
    QZ_DATA(log.logger, "%d", ++evaluated);
    EXPECT_EQ(evaluated, 0);
    QZ_INFO(log.logger, "%d", ++evaluated);
    QZ_ERROR(log.logger, "%d", ++evaluated);
    EXPECT_TRUE(QZ_LOG_ENABLED(log.logger, Level::Info));
    EXPECT_FALSE(QZ_LOG_ENABLED(log.logger, Level::Debug));

    Logger::m_retraceEventMask = 4;
    QZT_LOG(log.logger, Level::Fatal, "masked");
    QZ_FATAL(log.logger, "%d", ++evaluated);
    EXPECT_FALSE(log.logger->isEnabledFor(Level::Fatal));
    Logger::m_retraceEventMask = 0;
    EXPECT_EQ(evaluated, 2);
    EXPECT_EQ(log.capture->lines(), (std::vector<std::string>{"1", "2"}));
}

// Spoils errno on every write, as a failing output would.
class ErrnoSpoiler : public CaptureAppender {
public:
    using CaptureAppender::CaptureAppender;
    void write(const void* bytes, unsigned long size) override {
        CaptureAppender::write(bytes, size);
        errno = EIO;
    }
};

TEST_F(LogCallTest, ErrnoSurvivesTheCall) {
    // A log call leaves errno as it found it, even when an appender changes it.
    ErrnoSpoiler spoiler("errno.spoiler");
    log.logger->addAppender(spoiler);
    errno = EDOM;
    QZT_LOG(log.logger, Level::Info, "value %d", 1);
    EXPECT_EQ(errno, EDOM);
    EXPECT_EQ(spoiler.count(), 1u);
    log.logger->removeAppender(spoiler);
}

// Logs again from inside its own append(), as an appender that reports its
// own trouble through logging would.
class ReentrantAppender : public CaptureAppender {
public:
    ReentrantAppender(const char* name, Logger* target) : CaptureAppender(name), target(target) {}
    void append(const LoggingEvent* event) override {
        CaptureAppender::append(event);
        errno = EBADF;
        QZT_LOG(target, Level::Fatal, "from inside append %d", 1);
    }
    Logger* target;
};

TEST_F(LogCallTest, LoggingFromAnAppenderIsDropped) {
    // A log call made inside a log call on the same thread produces no event and no deadlock.
    Logger* other = Logger::getRepository().getLogger("test.reentrant.other");
    ReentrantAppender inner("reentrant", log.logger);
    log.logger->addAppender(inner);
    other->addAppender(inner);
    other->setLevel(Level::All);
    const uint64_t before = log.logger->getEventsLogged();

    errno = 0;
    QZT_LOG(log.logger, Level::Info, "outer");
    QZT_LOG(other, Level::Info, "outer other");
    EXPECT_EQ(errno, 0);
    EXPECT_EQ(inner.lines(), (std::vector<std::string>{"outer\n", "outer other\n"}));
    EXPECT_EQ(log.capture->lines(), (std::vector<std::string>{"outer"}));
    EXPECT_EQ(log.logger->getEventsLogged() - before, 1u);

    // The guard is released afterwards: the next call logs normally.
    log.logger->removeAppender(inner);
    QZT_LOG(log.logger, Level::Info, "after");
    EXPECT_EQ(log.capture->last(), "after");
    other->removeAppender(inner);
}

// Records the location record and event id of each event.
class LocationSpy : public CaptureAppender {
public:
    using CaptureAppender::CaptureAppender;
    void append(const LoggingEvent* event) override {
        locations.push_back(event->attributes.location);
        ids.push_back(event->attributes.eventId);
        CaptureAppender::append(event);
    }
    std::vector<const LocationDependentAttributes*> locations;
    std::vector<unsigned int> ids;
};

// Two sources whose paths read the same but are held in different arrays.
const char g_sourceA[] = "same/path.cpp";
const char g_sourceB[] = "same/path.cpp";

TEST_F(LogCallTest, EventIdsAndLocationRecords) {
    // A statement keeps one location record; sources are told apart by pointer, not text.
    LocationSpy spy("location.spy");
    log.logger->addAppender(spy);

    for (int i = 0; i < 3; ++i)
        QZT_LOG(log.logger, Level::Info, "loop %d", i);
    ASSERT_EQ(spy.locations.size(), 3u);
    EXPECT_EQ(spy.locations[0], spy.locations[1]);
    EXPECT_EQ(spy.locations[0], spy.locations[2]);
    EXPECT_EQ(spy.ids[0], spy.ids[2]);
    EXPECT_STREQ(spy.locations[0]->format, "loop %d");
    EXPECT_STREQ(spy.locations[0]->function, "TestBody");
    EXPECT_EQ(spy.locations[0]->argCount, 1u);

    const unsigned short lineA = spy.locations[0]->line;
    QZT_LOG(log.logger, Level::Info, "next line");
    const unsigned short lineB = spy.locations[3]->line;
    EXPECT_NE(spy.locations[3], spy.locations[0]);
    EXPECT_EQ(spy.ids[3] - spy.ids[0], static_cast<unsigned>(lineB - lineA));

    log.logger->log(g_sourceA, "f", 500, Level::Info, "from A");
    log.logger->log(g_sourceB, "f", 500, Level::Info, "from B");
    ASSERT_EQ(spy.ids.size(), 6u);
    EXPECT_NE(spy.ids[4] >> 16, spy.ids[5] >> 16);
    EXPECT_EQ(spy.ids[4] & 0xFFFF, 500u);
    EXPECT_EQ(spy.ids[5] & 0xFFFF, 500u);
    EXPECT_EQ(spy.locations[4]->file, g_sourceA);
    EXPECT_EQ(spy.locations[5]->file, g_sourceB);

    // Kept on purpose: a second statement on the same file and line shares the
    // first one's record, format included.
    log.logger->log(g_sourceA, "f", 500, Level::Info, "other format %d", 2);
    EXPECT_EQ(spy.locations[6], spy.locations[4]);
    EXPECT_EQ(spy.last(), "from A\n");
    log.logger->removeAppender(spy);
}

// Records each event's stored details: type letter, then the bytes.
class DetailSpy : public CaptureAppender {
public:
    using CaptureAppender::CaptureAppender;
    void append(const LoggingEvent* event) override {
        std::string stored;
        for (unsigned i = 0; i < event->count; ++i) {
            const unsigned char* d = event->details[i];
            size_t n = 0;
            switch (event->types[i]) {
            case LogShort: case LogUnsignedShort: n = 2; break;
            case LogFloat: case LogInt: case LogUnsignedInt: n = 4; break;
            case LogString: n = std::strlen(reinterpret_cast<const char*>(d)) + 1; break;
            case LogUTF16: while (d[n] || d[n + 1]) n += 2; n += 2; break;
            case LogRaw: { uint32_t len; std::memcpy(&len, d, 4); n = 4 + len; break; }
            default: n = 8;
            }
            if (d < event->bufferStart || d + n > event->bufferStart + event->bufferLength)
                ++outside;
            stored += static_cast<char>(event->types[i]);
            stored.append(reinterpret_cast<const char*>(d), n);
        }
        events.push_back(stored);
        CaptureAppender::append(event);
    }
    std::vector<std::string> events;
    int outside = 0; ///< details lying outside the event's own bytes
};

// A statement as log() makes it when an argument cannot be packed: the
// event first, then each argument added to it.
template <typename... A>
void logOneByOne(Logger* logger, const char* format, const A&... args) {
    Logger::LoggingRecursionCheck guard;
    ASSERT_NE(guard.buffer, nullptr);
    LoggingEvent event(guard.buffer, format, __FILE__, __func__, __LINE__,
                       static_cast<unsigned short>(sizeof...(A)), logger->id, Level::Info);
    (event.addArg(args), ...);
    event.setBufferLocation(guard.buffer);
    logger->doAppend(&event);
}

TEST_F(LogCallTest, PackedArgumentsAreStoredAsTheEventStoresThem) {
    // Every argument kind, packed in one call and added one by one: the same
    // types and bytes, the conversions (char to int, double to float, a
    // non-const char16_t* as a pointer) included.
    DetailSpy spy("detail.spy");
    log.logger->addAppender(spy);
    enum Colour { Red, Green };
    const char* none = nullptr;
    char text[] = "mutable";
    char16_t wide[] = u"wide";
    const unsigned char raw[] = {1, 2, 0, 3};
    const timeval32_t when = {1700000000u, 42u};
    auto both = [&](auto... args) {
        const size_t before = spy.events.size();
        QZT_LOG(log.logger, Level::Info, "kinds", args...);
        logOneByOne(log.logger, "kinds", args...);
        ASSERT_EQ(spy.events.size(), before + 2);
        EXPECT_EQ(spy.events[before], spy.events[before + 1]);
        EXPECT_GT(spy.events[before].size(), sizeof...(args));
    };
    both(static_cast<short>(-2), static_cast<unsigned short>(3), -4, 'c', static_cast<signed char>(-5),
         static_cast<unsigned char>(250), true, 6u, -7L, -8LL, 9UL, 10ULL, 1.5f, 2.25, Green);
    both("literal", none, text, std::string("string"), LoggingRawData(raw, sizeof raw),
         LoggingRawData(nullptr, 9), when, u"const wide", static_cast<const char16_t*>(nullptr), wide,
         nullptr, static_cast<void*>(text), &when);
    log.logger->removeAppender(spy);
}

TEST_F(LogCallTest, PackedEventMovesWholeWhenADetailDoesNotFit) {
    // A text that does not fit starts a new buffer in the middle of the
    // event; the number stored before it moves along, into the event's new
    // bytes.
    DetailSpy spy("move.spy");
    log.logger->addAppender(spy);
    const std::string chunk(60000, 'f');
    for (int i = 0; i < 40; ++i) {
        QZT_LOG(log.logger, Level::Info, "%d %s %ld", i, chunk, 100L + i);
        const std::string& line = log.capture->last();
        ASSERT_EQ(line, std::to_string(i) + " " + chunk + " " + std::to_string(100 + i)) << "event " << i;
    }
    EXPECT_EQ(spy.outside, 0);
    log.logger->removeAppender(spy);
}

} // namespace
