//===- qzlog/Filter.cpp - Accept or deny events on an appender ------------===//
#include "qzlog/Filter.h"

#include "qzlog/Logger.h"
#include "qzlog/LoggerRepository.h"
#include "qzlog/LoggingEvent.h"

#include <cstring>

namespace qzs {
namespace qzlib {
namespace qzlog {

void Filter::setNext(Filter* f) {
    if (f)
        f->next = next;
    next = f;
}

Filter::Action LevelMatchFilter::decide(const LoggingEvent* event) const {
    return event->attributes.attributes.level == level ? action : Neutral;
}

Filter::Action LevelRangeFilter::decide(const LoggingEvent* event) const {
    unsigned char l = event->attributes.attributes.level;
    return l >= levelMin && l <= levelMax ? action : Deny;
}

Filter::Action StringMatchFilter::decide(const LoggingEvent* event) const {
    std::string message;
    event->format(message);
    return message.find(text) != std::string::npos ? action : Neutral;
}

Filter::Action ThreadNameMatchFilter::decide(const LoggingEvent*) const {
    const char* name = Logger::getRepository().getThreadName();
    return name && std::strstr(name, text.c_str()) ? action : Neutral;
}

} // namespace qzlog
} // namespace qzlib
} // namespace qzs
