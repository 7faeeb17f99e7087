//===- qzlog/Filter.h - Accept or deny events on an appender ---*- C++ -*-===//
//
// Filters form a chain on an appender. Each answers deny, neutral or accept;
// the first non-neutral answer ends the walk, and neutral at the end of the
// chain passes the event.
//
//===----------------------------------------------------------------------===//
#ifndef QZLOG_FILTER_H
#define QZLOG_FILTER_H

#include "qzstd/Export.h"

#include <string>

namespace qzs {
namespace qzlib {
namespace qzlog {

class LoggingEvent;

/// Base of the filters. decide() runs outside the appender's lock and must
/// change nothing, so filters need no lock.
class QZ_API Filter {
public:
    typedef int Action;
    static constexpr Action Deny = -1;
    static constexpr Action Neutral = 0;
    static constexpr Action Accept = 1;

    Filter() : next(nullptr) {}
    virtual ~Filter() {}
    virtual Action decide(const LoggingEvent* event) const = 0;
    /// Puts `f` right behind this filter, ahead of the former next.
    void setNext(Filter* f);

    Filter* next;
};

/// Denies everything.
class QZ_API DenyAllFilter : public Filter {
public:
    Action decide(const LoggingEvent*) const override { return Deny; }
};

/// `action` when the event's level equals `level`, else neutral.
class QZ_API LevelMatchFilter : public Filter {
public:
    LevelMatchFilter(unsigned char toMatch, Action onMatch) : level(toMatch), action(onMatch) {}
    Action decide(const LoggingEvent* event) const override;
    unsigned char level;
    Action action;
};

/// `action` when the level lies in [levelMin, levelMax], else deny. Kept on
/// purpose: outside the range is denied outright, where the other filters
/// stay neutral on a mismatch.
class QZ_API LevelRangeFilter : public Filter {
public:
    LevelRangeFilter(unsigned char lowest, unsigned char highest, Action onMatch)
        : levelMin(lowest), levelMax(highest), action(onMatch) {}
    Action decide(const LoggingEvent* event) const override;
    unsigned char levelMin;
    unsigned char levelMax;
    Action action;
};

/// `action` when `text` occurs (case-sensitive) in the trimmed message, else
/// neutral. Renders the message each time it is asked: put level filters
/// first in a chain.
class QZ_API StringMatchFilter : public Filter {
public:
    StringMatchFilter(const char* needle, Action onMatch) : text(needle ? needle : ""), action(onMatch) {}
    Action decide(const LoggingEvent* event) const override;
    std::string text;
    Action action;
};

/// `action` when `text` occurs in the name of the calling thread, at the time
/// of the call, else neutral.
class QZ_API ThreadNameMatchFilter : public StringMatchFilter {
public:
    ThreadNameMatchFilter(const char* needle, Action onMatch) : StringMatchFilter(needle, onMatch) {}
    Action decide(const LoggingEvent* event) const override;
};

} // namespace qzlog
} // namespace qzlib
} // namespace qzs

#endif // QZLOG_FILTER_H
