//===- tests/support/CaptureAppender.h - In-memory test appender -*- C++ -*-===//
//
// An appender that keeps each event's text in memory and counts events, so
// logging tests read what was written without files, and the logger with one
// attached that most of those tests log through.
//
//===----------------------------------------------------------------------===//
#ifndef TESTS_SUPPORT_CAPTUREAPPENDER_H
#define TESTS_SUPPORT_CAPTUREAPPENDER_H

#include "qzlog/Level.h"
#include "qzlog/Logger.h"
#include "qzlog/LoggerRepository.h"
#include "qzlog/PatternLayout.h"
#include "qzlog/WriterAppender.h"

#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace qztest {

/// Captures the text of every event (laid out by its layout, or the bare
/// message when it has none) and every raw buffer it is given.
class CaptureAppender : public qzs::qzlib::qzlog::WriterAppender {
public:
    explicit CaptureAppender(const char* name = "capture", qzs::qzlib::qzlog::Layout* layout = nullptr);

    void write(const void* bytes, unsigned long size) override;

    /// The captured texts, one per write, and their count.
    std::vector<std::string> lines() const;
    size_t count() const;
    std::string last() const;
    void clear();

private:
    mutable std::mutex m_mutex;
    std::vector<std::string> m_lines;
};

/// `name` at `level`, with a CaptureAppender laid out by `pattern` (null for
/// no layout) attached to it until the object goes.
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

/// Detaches every appender from every logger and resets levels, so each test
/// starts from a quiet tree. Loggers themselves persist across tests.
void resetLogging();

} // namespace qztest

#endif
