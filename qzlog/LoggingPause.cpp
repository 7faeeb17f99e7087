//===- qzlog/LoggingPause.cpp - Holding all output still ------------------===//
#include "qzlog/LoggingPause.h"

#include "qzlog/Logger.h"
#include "qzlog/LoggerRepository.h"
#include "qzlog/detail/ConfigurationPause.h"

#include "qzmsg/CThreadContext.h"

#include <string>
#include <vector>

namespace qzs {
namespace qzlib {
namespace qzlog {

LoggingPause::LoggingPause() {
    // Log calls read appender lists without the loggers' locks while no
    // change is under way: counted as one, a pause makes them take the locks
    // it holds, once those under way have ended.
    AppenderListChange::begin();
    m_loggers = Logger::getRepository().getCurrentLoggers();
    for (Logger* l : m_loggers)
        l->lock.Lock();
}

LoggingPause::~LoggingPause() {
    for (Logger* l : m_loggers)
        l->lock.Unlock();
    AppenderListChange::end();
}

LoggingCallStack::LoggingCallStack() : m_text("<Unavailable>") {
    // The frames come from a thread context, which leaves out its own
    // constructor; the first of them is this constructor, left out too.
    CThreadContext thread;
    const CContextItem* item = thread.GetItem(CContext::GetContextItemID("ThreadBacktrace"));
    auto* frames = item ? static_cast<std::vector<CDataItem>*>(*item) : nullptr;
    std::vector<CDataItem> names;
    if (frames && !frames->empty() && CThreadContext::GetSymbolNames(frames, &names)) {
        std::string text;
        for (size_t i = 1; i < names.size(); ++i) {
            const char* name = static_cast<const char*>(names[i]);
            text += name ? name : "<Unknown>";
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
