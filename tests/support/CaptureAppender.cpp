//===- tests/support/CaptureAppender.cpp - In-memory test appender --------===//
#include "CaptureAppender.h"

#include "qzlog/Level.h"
#include "qzlog/Logger.h"
#include "qzlog/LoggerRepository.h"

namespace qztest {

using namespace qzs::qzlib::qzlog;

CaptureAppender::CaptureAppender(const char* name, Layout* layout) : WriterAppender(name) {
    setLayout(layout);
}

void CaptureAppender::write(const void* bytes, unsigned long size) {
    std::lock_guard<std::mutex> guard(m_mutex);
    m_lines.emplace_back(static_cast<const char*>(bytes), size);
}

std::vector<std::string> CaptureAppender::lines() const {
    std::lock_guard<std::mutex> guard(m_mutex);
    return m_lines;
}

size_t CaptureAppender::count() const {
    std::lock_guard<std::mutex> guard(m_mutex);
    return m_lines.size();
}

std::string CaptureAppender::last() const {
    std::lock_guard<std::mutex> guard(m_mutex);
    return m_lines.empty() ? std::string() : m_lines.back();
}

void CaptureAppender::clear() {
    std::lock_guard<std::mutex> guard(m_mutex);
    m_lines.clear();
}

void resetLogging() {
    LoggerRepository& repository = Logger::getRepository();
    for (unsigned short id = 0;; ++id) {
        Logger* l = repository.getLogger(id);
        if (!l) {
            if (id > repository.getLoggerCount() + 16)
                break;
            continue;
        }
        l->removeAllAppenders();
        l->setAdditivity(true);
        l->level = id == 0 ? Level::Warn : Level::Inherit;
    }
    repository.setThreshold(Level::All);
    repository.recalculateEffectiveLevels();
}

} // namespace qztest
