//===- tests/qzlog/LogTestUtil.h - Shared set-up of the logging tests -*- C++ -*-===//
//
// A logger with a capturing appender attached, detached again at the end of
// the test, and the statement macro the tests log through: each use is its
// own source line, so each gets its own location record.
//
//===----------------------------------------------------------------------===//
#ifndef TESTS_QZLOG_LOGTESTUTIL_H
#define TESTS_QZLOG_LOGTESTUTIL_H

#include "CaptureAppender.h"
#include "qzlog/Level.h"
#include "qzlog/Logger.h"
#include "qzlog/LoggerRepository.h"
#include "qzlog/PatternLayout.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

/// Logs straight through Logger::log, with this line as the location.
#define QZT_LOG(logger, level, ...) (logger)->log(__FILE__, __func__, __LINE__, (level), __VA_ARGS__)

namespace qztest {

/// `name` at `level`, with a CaptureAppender laid out by `pattern` (null for
/// no layout) attached to it.
struct CapturedLogger {
    explicit CapturedLogger(const char* name, const char* pattern = "%m",
                            unsigned char level = qzs::qzlib::qzlog::Level::All)
        : logger(qzs::qzlib::qzlog::Logger::getRepository().getLogger(name)),
          capture(new CaptureAppender(name, pattern ? new qzs::qzlib::qzlog::PatternLayout(pattern)
                                                    : nullptr)) {
        logger->addAppender(*capture);
        logger->setLevel(level);
    }
    ~CapturedLogger() {
        logger->removeAppender(*capture);
        qzs::qzlib::qzlog::Logger::getRepository().recalculateEffectiveLevels();
    }
    CapturedLogger(const CapturedLogger&) = delete;
    CapturedLogger& operator=(const CapturedLogger&) = delete;

    qzs::qzlib::qzlog::Logger* logger;
    std::unique_ptr<CaptureAppender> capture;
};

/// A test that starts and ends on a quiet logger tree: no appenders, root
/// at WARN, every other logger inheriting.
class LoggingTest : public ::testing::Test {
protected:
    LoggingTest() { resetLogging(); }
    ~LoggingTest() override { resetLogging(); }
};

} // namespace qztest

#endif // TESTS_QZLOG_LOGTESTUTIL_H
