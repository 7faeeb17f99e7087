//===- tests/qzlog/LogTestUtil.h - Shared set-up of the logging tests -*- C++ -*-===//
//
// The fixture that starts each logging test on a quiet tree, and the statement
// macro the tests log through: each use is its own source line, so each gets
// its own location record.
//
//===----------------------------------------------------------------------===//
#ifndef TESTS_QZLOG_LOGTESTUTIL_H
#define TESTS_QZLOG_LOGTESTUTIL_H

#include "CaptureAppender.h"

#include <gtest/gtest.h>

/// Logs straight through Logger::log, with this line as the location.
#define QZT_LOG(logger, level, ...) (logger)->log(__FILE__, __func__, __LINE__, (level), __VA_ARGS__)

namespace qztest {

/// A test that starts and ends on a quiet logger tree: no appenders, root
/// at WARN, every other logger inheriting.
class LoggingTest : public ::testing::Test {
protected:
    LoggingTest() { resetLogging(); }
    ~LoggingTest() override { resetLogging(); }
};

} // namespace qztest

#endif // TESTS_QZLOG_LOGTESTUTIL_H
