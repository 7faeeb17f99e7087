//===- qzlog/Appender.h - One named output ---------------------*- C++ -*-===//
//
// An appender is one named output with a level threshold, an enable switch,
// a chain of filters, a layout and counters. Text appenders receive events
// one at a time through the loggers; appenders with a BinaryLayout receive
// whole filled log buffers through the repository.
//
//===----------------------------------------------------------------------===//
#ifndef QZLOG_APPENDER_H
#define QZLOG_APPENDER_H

#include "qzstd/Export.h"

#include "qzstd/Mutex.h"

#include <cstdint>
#include <string>
#include <vector>

namespace qzs {
namespace qzlib {
namespace qzlog {

class Filter;
class Layout;
class PatternLayout;
class LoggingEvent;

/// Base of every output.
///
/// Ownership: whoever made an appender owns it; loggers only point at it,
/// and the registry only lists it. The appender owns its layout from
/// setLayout on, and its filters from addFilter on.
/// Thread safety: `lock` serialises output, so append(), write() and the
/// subclass's file state need no lock of their own. Filters run outside it.
/// The registry has no lock: make and destroy appenders at start-up or while
/// loading a configuration.
class QZ_API Appender {
public:
    /// Enters the registry (starting the framework if needed).
    explicit Appender(const char* name);
    /// Deletes the layout, frees the filters and leaves the registry.
    virtual ~Appender();
    Appender(const Appender&) = delete;
    Appender& operator=(const Appender&) = delete;

    virtual void reset() {}
    virtual void close() {}
    virtual bool requiresLayout() const { return true; }
    /// Writes one event. Called under `lock`.
    virtual void append(const LoggingEvent* event) = 0;
    /// Writes raw bytes. Called under `lock`.
    virtual void append(const void* bytes, unsigned int size) = 0;

    /// Puts `filter` at the end of the chain; the appender owns it.
    void addFilter(Filter* filter);
    /// Deletes every filter and empties the chain.
    void clearFilters();
    Filter* getFilter() const { return filters; }

    /// Stores `layout` without freeing the previous one; the appender takes
    /// raw buffers when the layout cannot lay out events.
    void setLayout(Layout* layout);
    Layout* getLayout() const { return layout; }

    /// Store, then recalculate every logger's effective byte.
    void setThreshold(unsigned char threshold);
    void setEnabled(bool enabled);
    unsigned char getThreshold() const { return threshold; }
    bool isEnabled() const { return enabled; }
    bool isWantsBuffers() const { return wantsBuffers; }
    const std::string& getName() const { return name; }

    /// The filtered text path: runs the filters (outside `lock`), then
    /// append() under `lock`.
    void doAppendImpl(const LoggingEvent* event);
    /// The binary path: a whole buffer of `eventCount` events.
    void doAppend(unsigned int eventCount, const void* bytes, unsigned int size);

    static std::vector<Appender*>* getAllAppenders();
    /// First registered appender named `name` (the oldest), else null.
    static Appender* findAppender(const char* name);
    /// Delivers every thread's pending buffer to the raw-data appenders.
    static void flushOutput();
    /// Appends the report of active and idle appenders, sorted by name.
    static void getSummaryReport(std::string& out);
    static void Initialize();

    Filter* filters;
    Layout* layout;
    /// `layout` when setLayout was given a PatternLayout, else null: writers
    /// lay such events out straight into a buffer of their own. Kept in step
    /// by setLayout only (assigning `layout` directly leaves the two apart,
    /// and writers then take the general way).
    PatternLayout* patternLayout;
    /// Serialises output. Taken once for every event: while one thread is
    /// the only one to log through this appender, it takes the lock with
    /// plain stores; once a second thread logs through it, it is a FastMutex.
    MultiThreading::AdaptiveLock lock;
    std::string name;
    unsigned char threshold;
    bool enabled;
    bool wantsBuffers;
    uint64_t eventsIssued;
    uint64_t eventsFiltered;
};

} // namespace qzlog
} // namespace qzlib
} // namespace qzs

#endif // QZLOG_APPENDER_H
