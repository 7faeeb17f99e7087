//===- qzlog/LoggingPause.cpp - Holding all output still ------------------===//
#include "qzlog/LoggingPause.h"

#include "qzlog/Logger.h"
#include "qzlog/LoggerRepository.h"

#include <cstdlib>
#include <cstring>
#include <execinfo.h>

namespace qzs {
namespace qzlib {
namespace qzlog {

LoggingPause::LoggingPause() {
    m_loggers = Logger::getRepository().getCurrentLoggers();
    for (Logger* l : m_loggers)
        l->lock.Lock();
}

LoggingPause::~LoggingPause() {
    for (Logger* l : m_loggers)
        l->lock.Unlock();
}

namespace {

// The frames of the calling thread, symbolised where the dynamic symbol table
// allows. This is where a thread context's backtrace item plugs in.
bool captureFrames(std::vector<std::string>& frames) {
    void* addresses[64];
    int n = ::backtrace(addresses, 64);
    if (n <= 0)
        return false;
    char** symbols = ::backtrace_symbols(addresses, n);
    if (!symbols)
        return false;
    for (int i = 0; i < n; ++i)
        frames.emplace_back(symbols[i] ? symbols[i] : "");
    std::free(symbols);
    return true;
}

} // namespace

LoggingCallStack::LoggingCallStack() : m_text("<Unavailable>") {
    std::vector<std::string> frames;
    if (captureFrames(frames) && frames.size() > 1) {
        std::string text;
        // The first frame is this constructor itself.
        for (size_t i = 1; i < frames.size(); ++i) {
            text += frames[i].empty() ? "<Unknown>" : frames[i];
            text += '\n';
        }
        m_text = text;
    }
    m_data = m_text.c_str();
    m_size = m_text.size() + 1;
}

} // namespace qzlog
} // namespace qzlib
} // namespace qzs
