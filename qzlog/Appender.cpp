//===- qzlog/Appender.cpp - One named output ------------------------------===//
#include "qzlog/Appender.h"

#include "qzlog/PatternLayout.h"

#include "qzlog/Filter.h"
#include "qzlog/Layout.h"
#include "qzlog/Level.h"
#include "qzlog/detail/LogBuffer.h"
#include "qzlog/Logger.h"
#include "qzlog/LoggerRepository.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace qzs {
namespace qzlib {
namespace qzlog {

using MultiThreading::ScopedLock;

namespace {
// The registry. Made by Initialize during start-up and never destroyed, so
// appenders that outlive static destruction can still leave it.
std::vector<Appender*>* g_registry = nullptr;
} // namespace

void Appender::Initialize() {
    if (!g_registry)
        g_registry = new std::vector<Appender*>();
}

Appender::Appender(const char* appenderName)
    : filters(nullptr), layout(nullptr), patternLayout(nullptr), name(appenderName ? appenderName : ""),
      threshold(Level::All),
      enabled(true), wantsBuffers(false), eventsIssued(0), eventsFiltered(0) {
    if (!g_registry)
        qzlogInitialize();
    g_registry->push_back(this);
}

Appender::~Appender() {
    delete layout;
    clearFilters();
    if (g_registry) {
        auto found = std::find(g_registry->begin(), g_registry->end(), this);
        if (found != g_registry->end())
            g_registry->erase(found);
    }
}

void Appender::addFilter(Filter* filter) {
    if (!filter)
        return;
    if (!filters) {
        filters = filter;
        return;
    }
    Filter* last = filters;
    while (last->next)
        last = last->next;
    last->next = filter;
}

void Appender::clearFilters() {
    // Decision: filters are deleted with their destructors run, so that a
    // filter's own state (a match text) is released with it.
    while (filters) {
        Filter* next = filters->next;
        delete filters;
        filters = next;
    }
}

void Appender::setLayout(Layout* newLayout) {
    layout = newLayout;
    patternLayout = dynamic_cast<PatternLayout*>(newLayout);
    const bool raw = layout != nullptr && !layout->canLayoutEvents();
    if (raw != wantsBuffers) {
        wantsBuffers = raw;
        // Loggers pass those of their appenders that all take raw buffers
        // without their lock; they must know of the change.
        Logger::appenderKindsChanged();
    }
}

void Appender::setThreshold(unsigned char value) {
    threshold = value;
    Logger::getRepository().recalculateEffectiveLevels();
}

void Appender::setEnabled(bool value) {
    enabled = value;
    Logger::getRepository().recalculateEffectiveLevels();
}

void Appender::doAppendImpl(const LoggingEvent* event) {
    for (const Filter* f = filters; f; f = f->next) {
        Filter::Action action = f->decide(event);
        if (action == Filter::Deny) {
            // Counted outside the lock: a lost count is accepted.
            __atomic_fetch_add(&eventsFiltered, 1, __ATOMIC_RELAXED);
            return;
        }
        if (action == Filter::Accept)
            break;
    }
    // Taken as the lock's frequent user: see Appender::lock.
    struct Often {
        explicit Often(MultiThreading::AdaptiveLock& l) : lock(l) { lock.LockOften(); }
        ~Often() { lock.Unlock(); }
        MultiThreading::AdaptiveLock& lock;
    } guard(lock);
    append(event);
    // Every writer holds the lock: a load and a store, no read-modify-write.
    __atomic_store_n(&eventsIssued, __atomic_load_n(&eventsIssued, __ATOMIC_RELAXED) + 1, __ATOMIC_RELAXED);
}

void Appender::doAppend(unsigned int eventCount, const void* bytes, unsigned int size) {
    ScopedLock guard(lock);
    append(bytes, size);
    __atomic_store_n(&eventsIssued, __atomic_load_n(&eventsIssued, __ATOMIC_RELAXED) + eventCount,
                     __ATOMIC_RELAXED);
}

std::vector<Appender*>* Appender::getAllAppenders() {
    if (!g_registry)
        qzlogInitialize();
    return g_registry;
}

Appender* Appender::findAppender(const char* appenderName) {
    for (Appender* a : *getAllAppenders())
        if (a->name == appenderName)
            return a;
    return nullptr;
}

void Appender::flushOutput() {
    LogBufferImpl::flushBuffers();
}

namespace {

struct AppenderRecord {
    const char* name;
    unsigned char threshold;
    bool enabled;
    unsigned long issued;
    unsigned long filtered;
};

int byName(const void* a, const void* b) {
    return std::strcmp(static_cast<const AppenderRecord*>(a)->name,
                       static_cast<const AppenderRecord*>(b)->name);
}

} // namespace

void Appender::getSummaryReport(std::string& out) {
    if (!g_registry || g_registry->empty())
        return;
    std::vector<AppenderRecord> records;
    for (Appender* a : *g_registry)
        records.push_back({a->name.c_str(), a->threshold, a->enabled,
                           static_cast<unsigned long>(__atomic_load_n(&a->eventsIssued, __ATOMIC_RELAXED)),
                           static_cast<unsigned long>(__atomic_load_n(&a->eventsFiltered, __ATOMIC_RELAXED))});
    std::qsort(records.data(), records.size(), sizeof(AppenderRecord), byName);

    char line[256];
    bool header = false;
    for (const AppenderRecord& r : records) {
        if (r.issued == 0 && r.filtered == 0)
            continue;
        if (!header) {
            out += "\nActive appenders:\n";
            header = true;
        }
        std::snprintf(line, sizeof line, "  %s (%s)%s\n", r.name, Level::getName(r.threshold),
                      r.enabled ? "" : " - Disabled");
        out += line;
        std::snprintf(line, sizeof line, "    Events issued:   %lu\n", r.issued);
        out += line;
        std::snprintf(line, sizeof line, "    Events filtered: %lu\n", r.filtered);
        out += line;
        out += "\n";
    }
    header = false;
    for (const AppenderRecord& r : records) {
        if (r.issued != 0 || r.filtered != 0)
            continue;
        if (!header) {
            out += "\nIdle appenders:\n";
            header = true;
        }
        std::snprintf(line, sizeof line, "  %s (%s)%s\n", r.name, Level::getName(r.threshold),
                      r.enabled ? "" : " - Disabled");
        out += line;
    }
}

} // namespace qzlog
} // namespace qzlib
} // namespace qzs
