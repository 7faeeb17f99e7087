//===- tests/qzlog/FilterTest.cpp - Filter chains on an appender ----------===//
//
// Each chain is put on a capturing appender and fed one event per level, so
// the test reads which events got through and how many were counted as
// filtered.
//
//===----------------------------------------------------------------------===//
#include "LogTestUtil.h"

#include "qzlog/Filter.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

namespace {

using namespace qzs::qzlib::qzlog;
using Lines = std::vector<std::string>;

class FilterTest : public qztest::LoggingTest {
protected:
    qztest::CapturedLogger log{"test.filter", "%p %m"};

    // One event at each level from DEBUG to FATAL; answers what got through.
    Lines logEachLevel() {
        log.capture->clear();
        QZT_LOG(log.logger, Level::Debug, "d");
        QZT_LOG(log.logger, Level::Info, "i");
        QZT_LOG(log.logger, Level::Warn, "w");
        QZT_LOG(log.logger, Level::Error, "e");
        QZT_LOG(log.logger, Level::Fatal, "f");
        return log.capture->lines();
    }
};

TEST_F(FilterTest, NeutralAtTheEndPasses) {
    // A level match that denies ERROR passes everything else: neutral at the end lets through.
    log.capture->addFilter(new LevelMatchFilter(Level::Error, Filter::Deny));
    EXPECT_EQ(logEachLevel(), (Lines{"DEBUG d", "INFO i", "WARN w", "FATAL f"}));
    EXPECT_EQ(log.capture->eventsFiltered, 1u);
    EXPECT_EQ(log.capture->eventsIssued, 4u);
}

TEST_F(FilterTest, AcceptEndsTheWalk) {
    // A match that accepts INFO ahead of deny-all passes only INFO.
    log.capture->addFilter(new LevelMatchFilter(Level::Info, Filter::Accept));
    log.capture->addFilter(new DenyAllFilter());
    EXPECT_EQ(logEachLevel(), (Lines{"INFO i"}));
    EXPECT_EQ(log.capture->eventsFiltered, 4u);
}

TEST_F(FilterTest, RangeDeniesOutsideAndDefersInside) {
    // A range with a neutral action hands in-range events on and denies the rest outright.
    log.capture->addFilter(new LevelRangeFilter(Level::Info, Level::Warn, Filter::Neutral));
    log.capture->addFilter(new LevelMatchFilter(Level::Warn, Filter::Deny));
    EXPECT_EQ(logEachLevel(), (Lines{"INFO i"}));

    log.capture->clearFilters();
    log.capture->addFilter(new LevelRangeFilter(Level::Error, Level::Off, Filter::Accept));
    log.capture->addFilter(new DenyAllFilter());
    EXPECT_EQ(logEachLevel(), (Lines{"ERROR e", "FATAL f"}));
}

TEST_F(FilterTest, StringMatchOnTheTrimmedMessage) {
    // Case-sensitive substring match on the formatted, trimmed message; "" matches everything.
    log.capture->addFilter(new StringMatchFilter("needle", Filter::Deny));
    QZT_LOG(log.logger, Level::Info, "a %s in hay", "needle");
    QZT_LOG(log.logger, Level::Info, "a NEEDLE in hay");
    QZT_LOG(log.logger, Level::Info, "need %s", "le");
    EXPECT_EQ(log.capture->lines(), (Lines{"INFO a NEEDLE in hay", "INFO need le"}));

    log.capture->clearFilters();
    log.capture->addFilter(new StringMatchFilter("end ", Filter::Deny));
    QZT_LOG(log.logger, Level::Info, "the end ");
    EXPECT_EQ(log.capture->last(), "INFO the end");

    log.capture->clearFilters();
    log.capture->addFilter(new StringMatchFilter("", Filter::Deny));
    EXPECT_TRUE(logEachLevel().empty());
    log.capture->clearFilters();
    log.capture->addFilter(new StringMatchFilter(nullptr, Filter::Deny));
    EXPECT_TRUE(logEachLevel().empty());
}

TEST_F(FilterTest, ThreadNameOfTheLoggingThread) {
    // The thread-name filter looks at the thread making the call.
    log.capture->addFilter(new ThreadNameMatchFilter("Work", Filter::Accept));
    log.capture->addFilter(new DenyAllFilter());
    std::thread([this] {
        Logger::getRepository().setThreadName("Worker-1");
        QZT_LOG(log.logger, Level::Info, "from worker");
        Logger::getRepository().setThreadName("Idle");
        QZT_LOG(log.logger, Level::Info, "renamed");
        Logger::getRepository().threadComplete();
    }).join();
    QZT_LOG(log.logger, Level::Info, "from main");
    EXPECT_EQ(log.capture->lines(), (Lines{"INFO from worker"}));
}

TEST_F(FilterTest, SetNextSplicesBehind) {
    // setNext puts a filter right behind this one, ahead of the former next.
    DenyAllFilter a, b, c;
    a.setNext(&c);
    a.setNext(&b);
    EXPECT_EQ(a.next, &b);
    EXPECT_EQ(b.next, &c);
    EXPECT_EQ(c.next, nullptr);
    a.next = b.next = nullptr;
}

} // namespace
