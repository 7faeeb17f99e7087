//===- tests/qzlog/LogBufferTest.cpp - The binary buffer, byte by byte ----===//
//
// Events are built on contexts of their own, with times and locations the
// test controls, so the exact bytes of the token stream can be checked.
//
//===----------------------------------------------------------------------===//
#include "CaptureAppender.h"
#include "LogTestUtil.h"

#include "qzlog/Layout.h"
#include "qzlog/detail/LogBuffer.h"
#include "qzlog/detail/LogThreadContext.h"
#include "qzmsg/CAppContext.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <sys/stat.h>

using namespace qzs::qzlib::qzlog;

namespace {

class LogBufferTest : public qztest::LoggingTest {
protected:
    LogBufferTest() : binary("buffer-binary", new BinaryLayout()) {
        logger = Logger::getRepository().getLogger("buffer.bytes");
        logger->addAppender(binary);
        static unsigned int next = 0x30000001;
        contextId = next++;
        context = LogBufferImpl::getThreadContext(contextId);
        buffer = static_cast<LogBufferImpl*>(context->buffer);
        context->setName("bytes");
    }
    ~LogBufferTest() override {
        LogBufferImpl::freeThreadContext(contextId);
        logger->removeAllAppenders();
    }

    /// One event of `location` at `time`, with the given string details.
    void event(LocationDependentAttributes& location, unsigned int id, timeval32_t time,
               std::initializer_list<std::string> details = {}) {
        LoggingEvent e(context, &location, id, time, logger->id, Level::Info);
        for (const std::string& d : details)
            e.addDetail(LogString, d.c_str(), d.size() + 1);
        e.setBufferLocation(buffer);
    }

    Logger* logger;
    qztest::CaptureAppender binary;
    unsigned int contextId;
    LogThreadContext* context;
    LogBufferImpl* buffer;
};

LocationDependentAttributes g_here = {"at %s", "src/here.cpp", "fn", 12, 1};
const timeval32_t g_t0 = {1700000000u, 1000u};

// A thread's first event opens its first buffer with the marker, the full
// thread record, then 'a', 'd', 'c', 'e' in that order; a second event from
// the same place, logger, level and time costs 9 bytes plus its details.
TEST_F(LogBufferTest, FirstBufferLayoutAndRepeatedEvent) {
    event(g_here, 12, g_t0, {"x"});
    const unsigned char* start = reinterpret_cast<const unsigned char*>(buffer->getCurrentBuffer()) + 8;
    ASSERT_EQ(0, std::memcmp(start, LogBufferImpl::m_LogStartData, 16));
    const unsigned char* p = start + 16;
    EXPECT_EQ('b', p[0]);
    uint32_t id;
    std::memcpy(&id, p + 1, 4);
    EXPECT_EQ(contextId, id);
    EXPECT_STREQ("bytes", reinterpret_cast<const char*>(p + 13));
    p += 13 + 6;
    EXPECT_EQ('a', p[0]);
    p += 11;
    for (const char* s : {"src/here.cpp", "fn", "at %s"}) {
        EXPECT_EQ('s', p[0]);
        EXPECT_STREQ(s, reinterpret_cast<const char*>(p + 1));
        p += std::strlen(s) + 2;
    }
    EXPECT_EQ('d', p[0]);
    p += 3;
    EXPECT_EQ('c', p[0]); // the logger's own level, inside its record
    p += 2 + std::strlen(reinterpret_cast<const char*>(p + 2)) + 1;
    p += std::strlen("buffer.bytes") + 1;
    EXPECT_EQ('c', p[0]); // the event's level
    EXPECT_EQ(Level::Info, p[1]);
    p += 2 + std::strlen("INFO") + 1;
    EXPECT_EQ('e', p[0]);
    p += 9;
    EXPECT_EQ('s', p[0]);
    EXPECT_EQ(p + 3, buffer->getCursor());

    const unsigned char* before = buffer->getCursor();
    event(g_here, 12, g_t0, {"yz"});
    EXPECT_EQ(9 + 4, buffer->getCursor() - before) << "'A' with id and sequence, then the detail";
    EXPECT_EQ('A', before[0]);
    EXPECT_EQ(2u, buffer->getCurrentBuffer()->eventCount);
}

// An event whose detail does not fit moves whole into the next buffer, its
// earlier details with it, and the pointers the event holds follow; the
// closed buffer ends with '>' right behind the previous event.
TEST_F(LogBufferTest, OverflowMovesTheEventWhole) {
    LocationDependentAttributes big = {"%s", "src/big.cpp", "fill", 7, 1};
    LocationDependentAttributes two = {"%s %s", "src/two.cpp", "pair", 8, 2};
    const std::string chunk(60000, 'f');
    while (buffer->getRemaining() > 70000 || !buffer->getCurrentBuffer())
        event(big, 7, g_t0, {chunk});
    const unsigned char* previousEnd = buffer->getCursor();
    const void* closed = buffer->getCurrentBuffer();
    binary.clear();

    LoggingEvent e(context, &two, 8, g_t0, logger->id, Level::Info);
    const std::string first = "first detail";
    e.addDetail(LogString, first.c_str(), first.size() + 1);
    e.addDetail(LogString, chunk.c_str(), chunk.size() + 1); // does not fit
    e.setBufferLocation(buffer);

    ASSERT_EQ(1u, binary.count()) << "the full buffer was delivered";
    const std::string delivered = binary.last();
    EXPECT_EQ('>', delivered.back());
    EXPECT_EQ(static_cast<size_t>(previousEnd - (reinterpret_cast<const unsigned char*>(closed) + 8)) + 1,
              delivered.size());
    ASSERT_EQ(2u, e.count);
    EXPECT_STREQ(first.c_str(), reinterpret_cast<const char*>(e.details[0]));
    EXPECT_EQ(chunk, reinterpret_cast<const char*>(e.details[1]));
    const unsigned char* area = reinterpret_cast<const unsigned char*>(buffer->getCurrentBuffer()) + 8;
    EXPECT_TRUE(e.details[0] > area && e.details[0] < buffer->getCursor()) << "moved into the new buffer";
    EXPECT_EQ(0u, buffer->getCurrentBuffer()->eventCount) << "the moved event is counted in the closed buffer";
}

// Details over 64 KiB are cut: texts keep their terminators, raw data keeps
// a length word of 65,536; with no open event nothing is written.
TEST_F(LogBufferTest, OversizedDetailsAndNoOpenEvent) {
    LocationDependentAttributes three = {"%s %s %s", "src/large.cpp", "large", 9, 3};
    const std::string text(70000, 't');
    const std::u16string wide(70000, u'w');
    LoggingEvent e(context, &three, 9, g_t0, logger->id, Level::Info);
    const unsigned char* s = static_cast<const unsigned char*>(buffer->addDetail(LogString, text.c_str(), 70001));
    const unsigned char* u =
        static_cast<const unsigned char*>(buffer->addDetail(LogUTF16, wide.c_str(), 2 * 70001));
    const unsigned char* r = static_cast<const unsigned char*>(buffer->addDetail(LogRaw, text.c_str(), 70000));
    EXPECT_EQ(0xFFFFu, std::strlen(reinterpret_cast<const char*>(s)));
    EXPECT_EQ(0, u[0xFFFE] | u[0xFFFF]);
    EXPECT_EQ('w', u[0xFFFC]);
    uint32_t length;
    std::memcpy(&length, r, 4);
    EXPECT_EQ(0x10000u, length);

    const unsigned char* cursor = buffer->getCursor();
    EXPECT_EQ(cursor, buffer->addDetail(LogString, "late", 5)) << "no event is open";
    EXPECT_EQ(cursor, buffer->getCursor());
}

// Flushing delivers and leaves no current buffer; the next event starts a
// new session. Freeing a context delivers its buffer.
TEST_F(LogBufferTest, FlushAndFreeDeliver) {
    event(g_here, 12, g_t0, {"a"});
    LogBufferImpl::flushBuffers();
    EXPECT_EQ(nullptr, buffer->getCurrentBuffer());
    EXPECT_GE(binary.count(), 1u);
    binary.clear();

    event(g_here, 12, g_t0, {"b"});
    const unsigned char* start = reinterpret_cast<const unsigned char*>(buffer->getCurrentBuffer()) + 8;
    EXPECT_EQ(0, std::memcmp(start, LogBufferImpl::m_LogStartData, 16)) << "a new session";
    unsigned int other = contextId | 0x01000000;
    LogThreadContext* second = LogBufferImpl::getThreadContext(other);
    LoggingEvent e(second, &g_here, 12, g_t0, logger->id, Level::Info);
    e.addDetail(LogString, "c", 2);
    LogBufferImpl::freeThreadContext(other);
    ASSERT_EQ(1u, binary.count());
    EXPECT_NE(std::string::npos, binary.last().find("c"));
}

// The emergency dump writes what the open buffers hold and leaves them as
// they were, so logging carries on.
TEST_F(LogBufferTest, SaveAllToFileLeavesBuffersAlone) {
    event(g_here, 12, g_t0, {"dumped"});
    const unsigned char* cursor = buffer->getCursor();
    const uint32_t remaining = buffer->getRemaining();
    const std::string name =
        qzs::qzlib::getAppContextText("DirProcessDmp") + "qzlog-LogBufferTest.dmp";
    // The dump goes to the process's dump directory, which an installation has.
    ::mkdir(qzs::qzlib::getAppContextText("DirProcessDmp").c_str(), 0755);
    std::remove(name.c_str());
    LogBufferImpl::saveAllToFile();
    EXPECT_EQ(cursor, buffer->getCursor());
    EXPECT_EQ(remaining, buffer->getRemaining());
    struct stat info;
    ASSERT_EQ(0, ::stat(name.c_str(), &info)) << name;
    EXPECT_GT(info.st_size, 16);
    std::remove(name.c_str());
}

} // namespace
