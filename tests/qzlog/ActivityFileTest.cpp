//===- tests/qzlog/ActivityFileTest.cpp - Activity files written and replayed -===//
//
// The round trip at the heart of binary logging: threads log, a BinaryLayout
// appender keeps the buffers, ActivityFile replays them, and the text equals
// what the text path wrote. Then hand-built files for the reader's edges:
// byte order, truncation, sessions without an end, malformed streams.
//
//===----------------------------------------------------------------------===//
#include "CaptureAppender.h"
#include "FaultCollector.h"
#include "LogTestUtil.h"
#include "TempDir.h"

#include "qzlog/ActivityFile.h"
#include "qzlog/Filter.h"
#include "qzlog/Layout.h"
#include "qzlog/LogMacros.h"
#include "qzlog/detail/LogBuffer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

using namespace qzs::qzlib::qzlog;
using qztest::writeFile;

namespace {

std::string joined(const std::vector<std::string>& parts) {
    std::string all;
    for (const std::string& p : parts)
        all += p;
    return all;
}

/// Replays `path` into `capture` (attached to `logger`); returns whether every
/// session replayed.
bool replay(const std::string& path, std::string* error = nullptr) {
    ActivityFile file(path.c_str());
    if (!file.Open()) {
        if (error)
            *error = file.lastError();
        return false;
    }
    while (file.getOffset() < file.getSize())
        if (!file.ProcessSession()) {
            if (error)
                *error = file.lastError();
            return false;
        }
    return true;
}

/// Detaches everything from `logger`, writes what `binary` captured to a file,
/// replays it into a capture laid out by `pattern` and answers its lines; a
/// replay failure fails the test.
std::vector<std::string> replayCaptured(Logger* logger, const qztest::CaptureAppender& binary,
                                        const char* pattern) {
    logger->removeAllAppenders();
    qztest::TempDir temp("qzact");
    const std::string path = temp.path("replay");
    qztest::writeFile(path, joined(binary.lines()));
    qztest::CaptureAppender replayed("replayed", pattern ? new PatternLayout(pattern) : nullptr);
    logger->addAppender(replayed);
    std::string error;
    EXPECT_TRUE(replay(path, &error)) << error;
    logger->removeAllAppenders();
    return replayed.lines();
}

enum class Colour { Red = 3, Green = 7 };

class ActivityFileTest : public qztest::LoggingTest {};

// Several threads log every argument type; the replayed text equals the text
// the live path produced, line for line (order aside: buffers arrive per
// thread).
TEST_F(ActivityFileTest, RoundTripMatchesTheTextPath) {
    const char* pattern = "%p %c [%t] seq=%S line=%L %M: %m%n";
    Logger* logger = Logger::getRepository().getLogger("activity.roundtrip");
    logger->setLevel(Level::Debug);
    qztest::CaptureAppender live("rt-live", new PatternLayout(pattern));
    qztest::CaptureAppender binary("rt-binary", new BinaryLayout());
    logger->addAppender(live);
    logger->addAppender(binary);
    Logger::getRepository().recalculateEffectiveLevels();

    auto work = [logger](int n) {
        std::string name = "rt-" + std::to_string(n);
        Logger::getRepository().setThreadName(name.c_str());
        const unsigned char raw[40] = {1, 2, 3, 'a', 'b', 'c', 0, 255};
        for (int i = 0; i < 200; ++i) {
            QZ_DEBUG(logger, "ints %d %u %hd %hu %ld %lu", -i, static_cast<unsigned>(i),
                     static_cast<short>(-7), static_cast<unsigned short>(65535), -1234567890123L,
                     18446744073709551615UL);
            QZ_INFO(logger, "text %s %s %s|%-6s|%.2s", "plain", static_cast<const char*>(nullptr),
                    std::string("std::string"), "ab", "xyz");
            QZ_WARN(logger, "misc %c %d %p %x %X %o %5.1f %d", 'Q', true,
                    reinterpret_cast<void*>(0x1234), 255, 255, 8, 2.5f, Colour::Green);
            if (i % 50 == 0)
                QZ_ERROR(logger, "raw %s", LoggingRawData(raw, sizeof raw));
        }
        Logger::getRepository().threadComplete();
    };
    std::vector<std::thread> threads;
    for (int n = 0; n < 4; ++n)
        threads.emplace_back(work, n);
    for (auto& t : threads)
        t.join();
    QZ_INFO(logger, "from the main thread %d", 42);
    Appender::flushOutput();

    std::vector<std::string> expected = live.lines(),
                             actual = replayCaptured(logger, binary, pattern);
    EXPECT_EQ(4u * (200 * 3 + 4) + 1, expected.size());
    std::sort(expected.begin(), expected.end());
    std::sort(actual.begin(), actual.end());
    EXPECT_EQ(expected, actual);
}

// Time and UTF-16 details come back differently on purpose: a time reads its
// first word into both halves, and a wide text comes back as its address.
TEST_F(ActivityFileTest, TimeAndWideTextComeBackAsDocumented) {
    Logger* logger = Logger::getRepository().getLogger("activity.kinds");
    logger->setLevel(Level::Info);
    qztest::CaptureAppender binary("kinds-binary", new BinaryLayout());
    logger->addAppender(binary);
    Logger::getRepository().recalculateEffectiveLevels();
    std::thread([logger] {
        timeval32_t when = {1700000000u, 123456u};
        QZ_INFO(logger, "at %s wide %s", when, u"wide");
        Logger::getRepository().threadComplete();
    }).join();

    const std::vector<std::string> lines = replayCaptured(logger, binary, nullptr);
    ASSERT_EQ(1u, lines.size());
    const std::string& line = lines[0];
    // The microseconds half equals the seconds: 1700000000 us reads as .000.
    EXPECT_EQ(0u, line.find("at 2023-11-14 Tue UTC 22:13:20.000 wide 0x")) << line;
    EXPECT_EQ(std::string("at 2023-11-14 Tue UTC 22:13:20.000 wide 0x").size() + 16 + 1,
              line.size())
        << line;
}

/// Builds sessions byte by byte, in either byte order.
struct SessionBuilder {
    std::string bytes;
    bool swap = false;

    template <typename T> void put(T v) {
        unsigned char b[sizeof(T)];
        std::memcpy(b, &v, sizeof v);
        if (swap)
            std::reverse(b, b + sizeof v);
        bytes.append(reinterpret_cast<const char*>(b), sizeof v);
    }
    void text(const char* s) { bytes.append(s, std::strlen(s) + 1); }
    void marker() {
        const unsigned char m[16] = {'<', 2, static_cast<unsigned char>(swap ? 0x01 : 0x10),
                                     8,   4, 1};
        bytes.append(reinterpret_cast<const char*>(m), 16);
    }
    void thread(uint32_t id, const char* name) {
        bytes += 'b';
        put<uint32_t>(id);
        put<uint64_t>(77);
        text(name);
    }
    void event(uint32_t id, uint32_t seq, uint16_t count, const char* fmt) {
        bytes += 'a';
        put<uint32_t>(id);
        put<uint32_t>(seq);
        put<uint16_t>(count);
        bytes += 's';
        text("src/file.cpp");
        bytes += 's';
        text("function");
        bytes += 's';
        text(fmt);
    }
    void logger(uint16_t id, const char* name) {
        bytes += 'd';
        put<uint16_t>(id);
        bytes += 'c';
        bytes += static_cast<char>(Level::Info);
        text("INFO");
        text(name);
    }
    /// The event's level, by reference to the name a logger record defined.
    void level(unsigned char value) {
        bytes += 'C';
        bytes += static_cast<char>(value);
    }
    void time(uint32_t sec, uint32_t usec) {
        bytes += 'e';
        put<uint32_t>(sec);
        put<uint32_t>(usec);
    }
    void end() { bytes += '>'; }

    /// A detail: its token, then its value.
    template <typename T> void detail(char token, T v) {
        bytes += token;
        put<T>(v);
    }
    void detail(const char* s) {
        bytes += 's';
        text(s);
    }
    /// The usual opening: marker, thread, a full event record, its logger,
    /// level INFO and time; the details follow.
    void head(uint32_t threadId, const char* threadName, uint32_t eventId, uint32_t seq,
              uint16_t count, const char* fmt, const char* loggerName, uint16_t loggerId = 1,
              uint32_t usec = 0) {
        marker();
        thread(threadId, threadName);
        event(eventId, seq, count, fmt);
        logger(loggerId, loggerName);
        level(Level::Info);
        time(1700000000, usec);
    }
};

/// Passes replayed events only: this process's own records (the clock
/// thread, the buffer pool growing) also reach a root appender at ALL.
class ReplayedOnly : public Filter {
public:
    Action decide(const LoggingEvent* event) const override {
        return (event->attributes.attributes.threadNumber & 0xF0000000u) ? Neutral : Deny;
    }
};

class ActivityReaderTest : public qztest::LoggingTest {
protected:
    ActivityReaderTest()
        : capture(new qztest::CaptureAppender("reader-capture", new PatternLayout("%c|%t|%m"))) {
        capture->addFilter(new ReplayedOnly());
        Logger* root = Logger::getRepository().getRootLogger();
        root->addAppender(*capture);
        root->setLevel(Level::All);
    }

    // Detached before it is freed: a thread starting meanwhile (the clock)
    // may log through the root.
    ~ActivityReaderTest() override { Logger::getRepository().getRootLogger()->removeAppender(*capture); }

    bool run(const std::string& bytes, std::string* error = nullptr) {
        writeFile(path, bytes);
        return replay(path, error);
    }

    std::unique_ptr<qztest::CaptureAppender> capture;
    qztest::TempDir temp{"qzact"};
    const std::string path = temp.path("reader");
    qztest::FaultCollector faults;
};

// 16 bytes are refused; 17 bytes of marker and '>' replay nothing and end at 17.
TEST_F(ActivityReaderTest, SmallestFiles) {
    SessionBuilder b;
    b.marker();
    std::string error;
    EXPECT_FALSE(run(b.bytes, &error));
    EXPECT_NE(std::string::npos,
              error.find("is not large enough to be an Activity Logging data file"))
        << error;

    b.end();
    writeFile(path, b.bytes);
    ActivityFile file(path.c_str());
    ASSERT_TRUE(file.Open());
    EXPECT_TRUE(file.ProcessSession());
    EXPECT_EQ(17u, file.getOffset());
    EXPECT_EQ(0u, capture->count());
}

// A file from the other byte order replays with its integers corrected; the
// float detail is never swapped.
TEST_F(ActivityReaderTest, OtherByteOrder) {
    for (bool swap : {false, true}) {
        capture->clear();
        SessionBuilder b;
        b.swap = swap;
        b.head(5, "writer", (3u << 16) | 42, 9, 4, "n=%d u=%u h=%hd f=%.1f", "other.order", 12, 5);
        b.detail<int32_t>('j', -5);
        b.detail<uint32_t>('k', 4000000000u);
        b.detail<int16_t>('g', -2);
        b.bytes += 'f';
        float f = 1.5f;
        b.bytes.append(reinterpret_cast<const char*>(&f), 4); // floats stay as written
        b.end();
        std::string error;
        ASSERT_TRUE(run(b.bytes, &error)) << error;
        ASSERT_EQ(1u, capture->count()) << "swap=" << swap;
        EXPECT_EQ("other.order|writer|n=-5 u=4000000000 h=-2 f=1.5", capture->last())
            << "swap=" << swap;
    }
}

// A session cut off by a crash replays what stands and ends at the end of
// the map; one that runs into the next '<' ends there, and the next call
// reads the next session. Nothing past the map is read.
TEST_F(ActivityReaderTest, CutAndUnterminatedSessions) {
    SessionBuilder b;
    b.head(1, "first", 1, 1, 1, "one %s", "cut.a");
    b.detail("done");
    // no '>': the next session follows at once
    b.head(2, "second", 1, 2, 1, "two %s", "cut.a");
    b.bytes += 's';
    b.bytes += "trunc"; // string with no terminator: the file ends here

    writeFile(path, b.bytes);
    ActivityFile file(path.c_str());
    ASSERT_TRUE(file.Open());
    ASSERT_TRUE(file.ProcessSession());
    EXPECT_LT(file.getOffset(), file.getSize());
    EXPECT_FALSE(file.endedEarly()) << "running into the next marker is no cut";
    ASSERT_TRUE(file.ProcessSession());
    EXPECT_EQ(file.getSize(), file.getOffset());
    EXPECT_TRUE(file.endedEarly());
    std::vector<std::string> lines = capture->lines();
    ASSERT_EQ(2u, lines.size());
    EXPECT_EQ("cut.a|first|one done", lines[0]);
    EXPECT_EQ("cut.a|second|two ???", lines[1]) << "the detail cut off is missing, not invented";

    // The event cut off is closed, so replaying again on the same contexts
    // does not complain about a previous event left open.
    ActivityFile again(path.c_str());
    ASSERT_TRUE(again.Open());
    while (again.getOffset() < again.getSize() && again.ProcessSession()) {
    }
    for (const auto& f : faults.faults())
        EXPECT_NE(1112u, f.number) << f.arguments;
}

// Malformed streams fail with the documented texts, and the offset stays.
TEST_F(ActivityReaderTest, MalformedStreams) {
    struct Case {
        const char* what;
        std::string bytes;
        const char* text;
    };
    // Each session opens with a marker and a thread record unless `bare`.
    auto session = [](void (*fill)(SessionBuilder&), bool bare = false) {
        SessionBuilder b;
        b.marker();
        if (!bare)
            b.thread(1, "t");
        fill(b);
        b.end();
        return b.bytes;
    };
    const std::vector<Case> cases = {
        // An event must follow a thread record.
        {"end after thread", session([](SessionBuilder&) {}),
         "Expecting LogEvent token but found invalid token 0x3e"},
        // The short form of an event never defined: no parameters.
        {"undefined short event", session([](SessionBuilder& b) {
             b.detail<uint32_t>('A', 99);
             b.put<uint32_t>(1);
             b.logger(1, "m.a");
             b.level(Level::Info);
             b.detail<int32_t>('j', 1);
         }),
         "Expecting LogEvent token but found invalid token 0x6a"},
        {"no logger", session([](SessionBuilder& b) { b.event(1, 1, 0, "no logger"); }),
         "Missing logger token for event stream"},
        {"bad detail", session([](SessionBuilder& b) {
             b.event(1, 1, 1, "%d");
             b.logger(1, "m.b");
             b.level(Level::Info);
             b.bytes += 'q';
         }),
         "Invalid token 0x71 in data at offset"},
        {"newer", session([](SessionBuilder& b) { b.bytes[1] = 3; }, true),
         "has a newer version in file header at position 0"},
        {"endian", session([](SessionBuilder& b) { b.bytes[2] = 0x22; }, true),
         "has an undefined endian notation in file header at position 0"},
    };
    for (const Case& c : cases) {
        writeFile(path, c.bytes);
        ActivityFile file(path.c_str());
        ASSERT_TRUE(file.Open()) << c.what;
        EXPECT_FALSE(file.ProcessSession()) << c.what;
        EXPECT_EQ(0u, file.getOffset()) << c.what;
        EXPECT_NE(std::string::npos, file.lastError().find(c.text))
            << c.what << ": " << file.lastError();
        // Kept in the thread's error context for the caller, not issued.
        const auto kept = qztest::FaultCollector::takePending();
        ASSERT_FALSE(kept.empty()) << c.what;
        EXPECT_EQ(1239u, kept.back().number) << c.what;
        EXPECT_EQ(file.lastError(), kept.back().arguments) << c.what;
    }
}

// Two sessions of one thread resolve their string numbers separately: a 'S'
// reference means the string of its own session.
TEST_F(ActivityReaderTest, StringNumbersAreSessionLocal) {
    std::string all;
    for (const char* word : {"alpha", "beta"}) {
        SessionBuilder b;
        b.head(4, "same", 1, 1, 1, "%s", "strings.local");
        b.detail(word);
        b.detail<uint32_t>('A', 1); // second event: same location, its detail by reference
        b.put<uint32_t>(2);
        b.detail<uint16_t>('S', 0); // string 0 of this session: the file name
        b.end();
        all += b.bytes;
    }
    std::string error;
    ASSERT_TRUE(run(all, &error)) << error;
    std::vector<std::string> lines = capture->lines();
    ASSERT_EQ(4u, lines.size());
    EXPECT_EQ("strings.local|same|alpha", lines[0]);
    EXPECT_EQ("strings.local|same|beta", lines[2]);
    // A string reference detail comes back as the address of the text, an
    // unsigned 64-bit number; it is the same text in both sessions.
    EXPECT_EQ(lines[1].substr(0, 19), "strings.local|same|");
}

// Random bytes behind a valid marker never crash the reader or read past the
// file; each run either replays or fails with a text.
TEST_F(ActivityReaderTest, GarbageIsRejectedNotFollowed) {
    std::srand(7);
    for (int round = 0; round < 300; ++round) {
        SessionBuilder b;
        b.marker();
        int n = 1 + std::rand() % 200;
        for (int i = 0; i < n; ++i)
            b.bytes += static_cast<char>(std::rand() & 0xFF);
        std::string error;
        bool ok = run(b.bytes, &error);
        if (!ok) {
            EXPECT_FALSE(error.empty());
        }
    }
}

} // namespace
