//===- tests/qzlog/LockStressTest.cpp - Logging against flush, dump, reload ===//
//
// Four threads log through one text appender while other threads flush the
// buffers, dump them, count them and reconfigure the tree. Nothing may
// deadlock, and every event reaches the appender exactly once. Short on
// purpose; meant to run clean under ThreadSanitizer.
//
//===----------------------------------------------------------------------===//
#include "LogTestUtil.h"

#include "qzlog/Appender.h"
#include "qzlog/LogMacros.h"
#include "qzlog/LoggingPause.h"
#include "qzlog/detail/ConfigurationPause.h"
#include "qzlog/detail/LogBuffer.h"
#include "qzmsg/CAppContext.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <set>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <vector>

namespace {

using namespace qzs::qzlib::qzlog;

constexpr int Loggers = 4;
constexpr int EventsPerThread = 3000;

class LockStressTest : public qztest::LoggingTest {};

TEST_F(LockStressTest, LoggingSurvivesFlushDumpAndReconfiguration) {
    qztest::CapturedLogger log("stress", "%t %m");
    qztest::CaptureAppender binary("stress.binary", new BinaryLayout());
    log.logger->addAppender(binary);
    Logger* sibling = Logger::getRepository().getLogger("stress.sibling");
    const std::string dumpDir = qzs::qzlib::getAppContextText("DirProcessDmp");
    ::mkdir(dumpDir.c_str(), 0755);

    const uint64_t loggedBefore = log.logger->getEventsLogged();
    std::atomic<int> running{Loggers};
    std::vector<std::thread> threads;
    for (int t = 0; t < Loggers; ++t)
        threads.emplace_back([&, t] {
            char name[16];
            std::snprintf(name, sizeof name, "w%d", t);
            Logger::getRepository().setThreadName(name);
            for (int i = 0; i < EventsPerThread; ++i)
                QZ_INFO(log.logger, "e%d", i);
            Logger::getRepository().threadComplete();
            running.fetch_sub(1);
        });
    // Each side thread works until the loggers are done.
    auto whileLogging = [&](auto work) {
        threads.emplace_back([&running, work] {
            while (running.load() > 0)
                work();
        });
    };
    whileLogging([] { Appender::flushOutput(); });
    whileLogging([] { LogBufferImpl::saveAllToFile(); });
    whileLogging([] {
        unsigned long events = 0, bytes = 0;
        LogBuffer::getTotals(events, bytes);
    });
    qztest::CaptureAppender extra("stress.extra", nullptr);
    // A reload holds the tree the way the loader does; a LoggingPause only
    // holds the loggers, so it must not refold levels inside.
    whileLogging([&] {
        {
            ConfigurationPause reload;
            log.logger->addAppender(extra);
            sibling->setLevel(Level::Debug);
            log.logger->removeAppender(extra);
            sibling->setLevel(Level::Inherit);
        }
        {
            LoggingPause pause;
            log.logger->addAppender(extra);
            log.logger->removeAppender(extra);
        }
        // Outside any pause: each change waits for the log calls under way.
        log.logger->addAppender(extra);
        log.logger->removeAppender(extra);
    });
    for (auto& t : threads)
        t.join();
    log.logger->removeAppender(binary);

    const std::vector<std::string> lines = log.capture->lines();
    EXPECT_EQ(lines.size(), static_cast<size_t>(Loggers * EventsPerThread));
    const std::set<std::string> distinct(lines.begin(), lines.end());
    EXPECT_EQ(distinct.size(), lines.size()) << "an event reached the appender twice";
    EXPECT_GT(binary.count(), 0u) << "the flushes delivered no buffer";
    // Counted in each thread's context and folded in as the thread ended.
    EXPECT_EQ(log.logger->getEventsLogged() - loggedBefore, static_cast<uint64_t>(Loggers * EventsPerThread));
    std::string instance = qzs::qzlib::getAppContextText("AppInstance");
    if (instance.empty())
        instance = qzs::qzlib::getAppContextText("ProcessExecutableBase");
    std::remove((dumpDir + "qzlog-" + instance + ".dmp").c_str());
}

} // namespace
