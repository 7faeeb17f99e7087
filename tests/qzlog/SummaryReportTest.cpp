//===- tests/qzlog/SummaryReportTest.cpp - The repository's summary report ===//
//
// A binary of its own, so that the repository holds only what these tests
// make and the report can be read byte for byte. The tests run in order: the
// first sees the repository as start-up left it.
//
//===----------------------------------------------------------------------===//
#include "LogTestUtil.h"

#include "qzlog/Appender.h"
#include "qzlog/detail/LogBuffer.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using namespace qzs::qzlib::qzlog;

TEST(SummaryReportTest, FreshRepository) {
    // Nothing logged yet: no active section, zero totals, the root listed as idle.
    std::string report;
    Logger::getRepository().getSummaryReport(report);
    const std::string head = "Total events:  0\n"
                             "Total bytes:   0\n"
                             "\nIdle loggers:\n";
    EXPECT_EQ(report.substr(0, head.size()), head) << report;
    EXPECT_NE(report.find("\n  root (WARN)\n"), std::string::npos) << report;
    EXPECT_EQ(report.find("Active"), std::string::npos) << report;
}

TEST(SummaryReportTest, ActiveIdleAndAppenderSections) {
    // Loggers sorted by name with their counters and levels, then the appenders' section.
    LoggerRepository& repo = Logger::getRepository();
    Logger* z = repo.getLogger("sr.z"); // made first, so tree order is not name order
    Logger* a = repo.getLogger("sr.a");
    repo.getLogger("sr.idle");
    qztest::CaptureAppender cap("sr.cap");
    repo.getLogger("sr")->addAppender(cap);
    a->setLevel(Level::Info);
    z->setLevel(Level::Debug);

    QZT_LOG(z, Level::Debug, "keep %d", 1);
    QZT_LOG(a, Level::Info, "two %d", 2);
    QZT_LOG(a, Level::Info, "keep");

    unsigned long events = 0, bytes = 0;
    LogBuffer::getTotals(events, bytes);
    EXPECT_EQ(events, 3u);

    std::string report;
    repo.getSummaryReport(report);
    const std::string active = "\nActive loggers:\n"
                               "  sr (WARN)\n"
                               "    Events logged: 0\n"
                               "    Events issued: 3\n"
                               "\n"
                               "  sr.a (INFO)\n"
                               "    Events logged: 2\n"
                               "    Events issued: 0\n"
                               "\n"
                               "  sr.z (DEBUG)\n"
                               "    Events logged: 1\n"
                               "    Events issued: 0\n"
                               "\n"
                               "Total events:  3\n"
                               "Total bytes:   " +
                               std::to_string(bytes) + "\n\nIdle loggers:\n";
    EXPECT_EQ(report.substr(0, active.size()), active) << report;
    const size_t root = report.find("\n  root (WARN)\n");
    const size_t idle = report.find("\n  sr.idle (WARN)\n");
    EXPECT_NE(root, std::string::npos) << report;
    EXPECT_NE(idle, std::string::npos) << report;
    EXPECT_LT(root, idle);

    // The appender section's own layout is AppenderTest's; here it closes the report.
    std::string appenders;
    Appender::getSummaryReport(appenders);
    ASSERT_NE(appenders, "");
    EXPECT_EQ(report.substr(report.size() - appenders.size()), appenders) << report;
    repo.getLogger("sr")->removeAppender(cap);
}

} // namespace
