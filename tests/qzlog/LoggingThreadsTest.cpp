//===- tests/qzlog/LoggingThreadsTest.cpp - Many threads through one appender ===//
//
// Threads log at once through their own child loggers into one appender,
// while others make loggers and move levels. Every event carries its thread
// and sequence, so the test can account for each one exactly once. Meant to
// run clean under ThreadSanitizer as well.
//
//===----------------------------------------------------------------------===//
#include "LogTestUtil.h"

#include "qzlog/detail/LogBuffer.h"
#include "qzlog/LogMacros.h"
#include "qzlog/detail/LogThreadContext.h"
#include "qzlog/LoggingTime.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using namespace qzs::qzlib::qzlog;

constexpr int Threads = 8;
constexpr int EventsPerThread = 5000;

class LoggingThreadsTest : public qztest::LoggingTest {};

TEST_F(LoggingThreadsTest, EveryEventExactlyOnce) {
    // 8 threads x 5000 events through one appender: none lost, none doubled, counters agree.
    qztest::CapturedLogger log("mt", "%m");
    LoggerRepository& repo = Logger::getRepository();
    unsigned long eventsBefore = 0, bytesBefore = 0;
    LogBuffer::getTotals(eventsBefore, bytesBefore);

    std::atomic<bool> stop{false};
    std::atomic<int> started{0};
    std::vector<Logger*> children(Threads);
    std::vector<std::thread> workers;
    for (int t = 0; t < Threads; ++t) {
        workers.emplace_back([&, t] {
            char name[32];
            std::snprintf(name, sizeof name, "mt.worker%d", t);
            Logger* mine = repo.getLogger(name);
            children[t] = mine;
            repo.setThreadName(name);
            started.fetch_add(1);
            while (started.load() < Threads) {
            }
            for (int i = 0; i < EventsPerThread; ++i)
                QZ_INFO(mine, "t%d s%d", t, i);
            repo.threadComplete();
        });
    }
    // Meanwhile loggers come into being and levels move elsewhere in the tree.
    std::thread churn([&] {
        Logger* elsewhere = repo.getLogger("churn");
        for (int i = 0; !stop.load(); ++i) {
            char name[32];
            std::snprintf(name, sizeof name, "churn.n%d", i % 64);
            repo.getLogger(name)->setLevel(i % 2 ? Level::Debug : Level::Error);
            elsewhere->setLevel(i % 3 ? Level::Info : Level::Inherit);
        }
        repo.threadComplete();
    });
    std::thread grow([&] {
        for (int i = 0; i < 400 && !stop.load(); ++i) {
            char name[32];
            std::snprintf(name, sizeof name, "churn.grown%d", i);
            repo.getLogger(name);
        }
    });
    for (std::thread& w : workers)
        w.join();
    stop.store(true);
    churn.join();
    grow.join();

    std::vector<std::vector<int>> seen(Threads, std::vector<int>(EventsPerThread, 0));
    size_t malformed = 0;
    for (const std::string& line : log.capture->lines()) {
        int t = -1, i = -1;
        if (std::sscanf(line.c_str(), "t%d s%d", &t, &i) != 2 || t < 0 || t >= Threads || i < 0 ||
            i >= EventsPerThread) {
            ++malformed;
            continue;
        }
        ++seen[t][i];
    }
    EXPECT_EQ(malformed, 0u);
    size_t wrong = 0;
    for (const auto& thread : seen)
        for (int n : thread)
            wrong += n != 1;
    EXPECT_EQ(wrong, 0u);

    // Which logger counts what is AppenderTest's; here no count is lost to a race.
    for (Logger* child : children)
        EXPECT_EQ(child->getEventsLogged(), static_cast<uint64_t>(EventsPerThread));
    EXPECT_EQ(log.logger->getEventsIssued(), static_cast<uint64_t>(Threads * EventsPerThread));
    EXPECT_EQ(log.capture->eventsIssued, static_cast<uint64_t>(Threads * EventsPerThread));

    // The totals keep the events of threads whose contexts are gone.
    unsigned long events = 0, bytes = 0;
    LogBuffer::getTotals(events, bytes);
    EXPECT_EQ(events - eventsBefore, static_cast<unsigned long>(Threads * EventsPerThread));
    EXPECT_GT(bytes, bytesBefore);
}

TEST_F(LoggingThreadsTest, ThreadsGetTheirOwnContexts) {
    // Each thread has its own number and default name; threadComplete frees the context.
    LoggerRepository& repo = Logger::getRepository();
    const unsigned long before = LogBufferImpl::contextCount();
    std::vector<std::string> names(4);
    std::vector<unsigned int> numbers(4), renumbered(4);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            names[t] = repo.getThreadName();
            numbers[t] = LogBufferImpl::getThreadContext(0)->threadContextNumber;
            repo.setThreadName("renamed");
            repo.setThreadName(nullptr);
            EXPECT_EQ(names[t], repo.getThreadName());
            repo.threadComplete();
            renumbered[t] = LogBufferImpl::getThreadContext(0)->threadContextNumber;
            repo.threadComplete();
            repo.threadComplete();
        });
    for (std::thread& t : threads)
        t.join();
    // The clock thread may have made its own context meanwhile, and no more.
    EXPECT_LE(LogBufferImpl::contextCount(), before + 1);
    for (int t = 0; t < 4; ++t) {
        EXPECT_EQ(names[t], "Thread " + std::to_string(numbers[t]));
        EXPECT_NE(renumbered[t], numbers[t]);
        for (int u = 0; u < t; ++u)
            EXPECT_NE(numbers[t], numbers[u]);
    }
}

} // namespace

namespace {

// A forked child has no clock thread; its events must still carry the time
// they were logged at, not the time of the fork.
TEST(LoggingTimeFork, ChildKeepsAFreshClock) {
    timeval32_t before;
    qzs::qzlib::qzlog::LoggingTime::getCurrentTime(&before);
    pid_t pid = ::fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
        ::usleep(1200 * 1000);
        timeval32_t later;
        qzs::qzlib::qzlog::LoggingTime::getCurrentTime(&later);
        ::_exit(later.tv_sec > before.tv_sec ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(pid, ::waitpid(pid, &status, 0));
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(0, WEXITSTATUS(status)) << "the child's clock stood still";
}

} // namespace
