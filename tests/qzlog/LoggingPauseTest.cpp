//===- tests/qzlog/LoggingPauseTest.cpp - Pausing output and call stacks --===//
#include "LogTestUtil.h"

#include "qzlog/LogMacros.h"
#include "qzlog/LoggerRepository.h"
#include "qzlog/LoggingPause.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <future>
#include <thread>

using namespace qzs::qzlib::qzlog;

namespace {

class LoggingPauseTest : public qztest::LoggingTest {};

// An event logged on another thread while a pause lives is held at the
// logger and delivered once the pause ends, not lost and not early.
TEST_F(LoggingPauseTest, HoldsEventsUntilReleased) {
    qztest::CapturedLogger log("pause.held", nullptr, Level::Info);
    Logger* logger = log.logger;
    qztest::CaptureAppender& capture = *log.capture;

    std::atomic<bool> done{false};
    std::promise<void> started;
    std::thread writer;
    {
        LoggingPause pause;
        writer = std::thread([&] {
            started.set_value();
            QZ_INFO(logger, "written during the pause");
            done = true;
        });
        started.get_future().wait();
        // The writer cannot get past the held logger lock while we hold it.
        EXPECT_FALSE(done.load());
        EXPECT_EQ(0u, capture.count());
    }
    writer.join();
    ASSERT_EQ(1u, capture.count());
    EXPECT_EQ("written during the pause\n", capture.last());
}

// A call stack logged as an argument comes out as text lines, never as a
// hex dump, and the snapshot names more than one frame.
TEST_F(LoggingPauseTest, CallStackLogsAsText) {
    qztest::CapturedLogger log("pause.stack", nullptr, Level::Info);
    qztest::CaptureAppender& capture = *log.capture;
    LoggingCallStack stack;
    EXPECT_EQ(std::strlen(stack.data()) + 1, stack.size());
    QZ_INFO(log.logger, "stack:\n%s", stack);
    ASSERT_EQ(1u, capture.count());
    std::string text = capture.last();
    EXPECT_EQ(0u, text.find("stack:\n"));
    EXPECT_EQ(std::string::npos, text.find("000000:"));
    EXPECT_GT(std::count(text.begin(), text.end(), '\n'), 2);
}

} // namespace
