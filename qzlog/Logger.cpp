//===- qzlog/Logger.cpp - A named node of the logger tree -----------------===//
#include "qzlog/Logger.h"

#include "qzlog/Appender.h"
#include "qzlog/detail/ConfigurationPause.h"
#include "qzlog/detail/LogBuffer.h"
#include "qzlog/detail/LogThreadContext.h"
#include "qzlog/detail/LoggerName.h"
#include "qzlog/LoggerRepository.h"
#include "qzlog/LoggingTime.h"

#include <algorithm>
#include <cerrno>
#include <string>
#include <vector>

namespace qzs {
namespace qzlib {
namespace qzlog {

using MultiThreading::ScopedLock;

struct Logger::Impl {
    LoggerName* name;
    std::vector<Appender*> appenders;
    // Mirrors appenders.size(), written under `lock`: lets the log path pass
    // a logger with no appenders without taking its lock. A reader racing
    // with an attach may miss that appender for one event, as a stale
    // effective byte may.
    std::atomic<size_t> appenderCount{0};
    // How many of them take text, written under `lock` as well: a logger
    // whose appenders all take raw buffers is passed without its lock, as
    // one with no appenders is.
    std::atomic<size_t> textAppenderCount{0};
    std::atomic<bool> additivity{true};

    void counted() {
        size_t text = 0;
        for (const Appender* a : appenders)
            text += a->isWantsBuffers() ? 0 : 1;
        textAppenderCount.store(text, std::memory_order_release);
        appenderCount.store(appenders.size(), std::memory_order_release);
    }
};

LoggerRepository* Logger::m_repository = nullptr;
uint32_t Logger::m_retraceEventMask = 0;

Logger::Logger(unsigned short id, const char* name)
    : parent(nullptr), impl(new Impl), id(id), ownLevelByte(0), effectiveLevel(&ownLevelByte),
      level(Level::Inherit), eventsLogged(0), eventsIssued(0) {
    impl->name = new LoggerName(name);
    if (impl->name->name[0] == '\0') {
        // The root starts at WARN, configured and effective.
        level = Level::Warn;
        ownLevelByte = Level::Warn;
    }
}

Logger::Logger(unsigned short id, const char* name, unsigned char& levelByte) : Logger(id, name) {
    effectiveLevel = &levelByte;
    // A caller's byte starts out as the effective level of a new logger.
    __atomic_store_n(effectiveLevel, ownLevelByte, __ATOMIC_RELAXED);
}

Logger::~Logger() {
    delete impl->name;
    delete impl;
}

LoggerRepository& Logger::getRepository() {
    // Acquire pairs with the release in Initialize: a thread that finds the
    // pointer while another is still starting the framework finds it built.
    if (!__atomic_load_n(&m_repository, __ATOMIC_ACQUIRE))
        qzlogInitialize();
    return *m_repository;
}

void Logger::Initialize() {
    __atomic_store_n(&m_repository, new LoggerRepository(), __ATOMIC_RELEASE);
}

const char* Logger::getName() const {
    return impl->name->name;
}

Logger* Logger::getChild(const char* leaf) const {
    std::string full = getName();
    full += '.';
    full += leaf;
    return getRepository().getLogger(full.c_str(), nullptr);
}

void Logger::addAppender(Appender& appender) {
    AppenderListChange change;
    ScopedLock guard(lock);
    impl->appenders.push_back(&appender);
    impl->counted();
}

Appender* Logger::getAppender(const char* name) {
    ScopedLock guard(lock);
    for (Appender* a : impl->appenders)
        if (a->getName() == name)
            return a;
    return nullptr;
}

bool Logger::isAttached() const {
    ScopedLock guard(const_cast<Logger*>(this)->lock);
    return !impl->appenders.empty();
}

bool Logger::isAttached(Appender& appender) {
    ScopedLock guard(lock);
    return std::find(impl->appenders.begin(), impl->appenders.end(), &appender) != impl->appenders.end();
}

bool Logger::removeAppender(Appender& appender) {
    AppenderListChange change;
    ScopedLock guard(lock);
    auto& list = impl->appenders;
    auto end = std::remove(list.begin(), list.end(), &appender);
    bool removed = end != list.end();
    list.erase(end, list.end());
    impl->counted();
    return removed;
}

bool Logger::removeAppender(const char* name) {
    AppenderListChange change;
    ScopedLock guard(lock);
    auto& list = impl->appenders;
    auto end = std::remove_if(list.begin(), list.end(), [name](Appender* a) { return a->getName() == name; });
    bool removed = end != list.end();
    list.erase(end, list.end());
    impl->counted();
    return removed;
}

void Logger::removeAllAppenders() {
    AppenderListChange change;
    ScopedLock guard(lock);
    impl->appenders.clear();
    impl->counted();
}

std::vector<Appender*> Logger::getAllAppenders() {
    ScopedLock guard(lock);
    return impl->appenders;
}

void Logger::deliverBuffer(unsigned int eventCount, const void* data, unsigned int size) {
    if (impl->appenderCount.load(std::memory_order_acquire) == 0)
        return;
    ScopedLock guard(lock);
    for (Appender* a : impl->appenders)
        if (a->wantsBuffers && a->enabled)
            a->doAppend(eventCount, data, size);
}

void Logger::replaceAppender(Appender* from, Appender* to) {
    AppenderListChange change;
    ScopedLock guard(lock);
    std::replace(impl->appenders.begin(), impl->appenders.end(), from, to);
    impl->counted();
}

void Logger::appenderKindsChanged() {
    AppenderListChange change;
    for (Logger* l : getRepository().getCurrentLoggers()) {
        ScopedLock guard(l->lock);
        l->impl->counted();
    }
}

uint64_t Logger::getEventsLogged() const {
    uint64_t logged = eventsLogged.load(std::memory_order_relaxed);
    uint64_t issued = 0;
    LogBufferImpl::sumLoggerCounts(id, logged, issued);
    return logged;
}

uint64_t Logger::getEventsIssued() const {
    uint64_t logged = 0;
    uint64_t issued = __atomic_load_n(&eventsIssued, __ATOMIC_RELAXED);
    LogBufferImpl::sumLoggerCounts(id, logged, issued);
    return issued;
}

void Logger::setAdditivity(bool additive) {
    impl->additivity.store(additive, std::memory_order_relaxed);
}

bool Logger::getAdditivity() const {
    return impl->additivity.load(std::memory_order_relaxed);
}

unsigned char Logger::getAppenderThreshold() const {
    unsigned char result = Level::Warn;
    for (const Logger* l = this; l; l = l->parent) {
        {
            ScopedLock guard(const_cast<Logger*>(l)->lock);
            for (Appender* a : l->impl->appenders)
                if (a->isEnabled() && a->getThreshold() < result)
                    result = a->getThreshold();
        }
        if (!l->getAdditivity())
            break;
    }
    return result;
}

void Logger::setLevel(unsigned char newLevel) {
    // Relaxed atomic: a recalculation on another thread may read it at any time.
    __atomic_store_n(&level, newLevel, __ATOMIC_RELAXED);
    __atomic_store_n(effectiveLevel, newLevel, __ATOMIC_RELAXED);
    getRepository().recalculateEffectiveLevels();
}

namespace {
// The event's time: the clock thread's stamp read inline while that thread
// runs and is being read, as LoggingTime::getCurrentTime would read it;
// otherwise getCurrentTime itself, which wakes the thread or asks the system.
inline void eventTime(timeval32_t* out) {
    constexpr auto relaxed = std::memory_order_relaxed;
    if (LoggingTime::m_getTimeStamp != &LoggingTime::wakeUpTimeThread ||
        LoggingTime::m_timerIdle.load(relaxed) || !LoggingTime::m_timerUsed.load(relaxed)) {
        LoggingTime::getCurrentTime(out);
        return;
    }
    LoggingTime::fromStamp(LoggingTime::m_timeStamp->load(relaxed), out);
}

// Enters a log call on the calling thread: its context, or null when the
// thread is inside a log call already (or has no context to be had). errno
// is as it was on return, and is kept in the context for leaveLogCall.
inline LogThreadContext* enterLogCall(int* errnoAt) {
    const int saved = *errnoAt;
    LogThreadContext* own = t_ownContext;
    if (__builtin_expect(!own, 0)) {
        own = LogBufferImpl::getThreadContext(0);
        *errnoAt = saved;
        if (!own)
            return nullptr;
    }
    if (own->recursion != 0)
        return nullptr;
    own->recursion = 1;
    own->savedErrno = saved;
    // Held for the whole call, so that a flush from another thread cannot
    // take the buffer away between the event and its details.
    own->mutex.ownerLock();
    *errnoAt = saved;
    return own;
}

inline void leaveLogCall(LogThreadContext* own, int* errnoAt) {
    own->mutex.ownerUnlock();
    own->recursion -= 1;
    *errnoAt = own->savedErrno;
}
} // namespace

void Logger::logPacked(const char* file, const char* function, unsigned short line, unsigned char lvl,
                       const char* format, const LogArg* args, unsigned short count) {
    // The guard, the event, its details and the walk to the root, as the
    // unpacked log() does them through LoggingRecursionCheck, LoggingEvent and
    // LogBuffer, in one frame.
    int* const errnoAt = &errno;
    LogThreadContext* const own = enterLogCall(errnoAt);
    if (!own)
        return;
    if (LogBufferImpl* const buffer = static_cast<LogBufferImpl*>(own->buffer)) {
        LoggingEvent event(LoggingEvent::Blank{}, buffer);
        LocationIndependentAttributes& a = event.attributes.attributes;
        LoggerRepository* repository = __atomic_load_n(&m_repository, __ATOMIC_ACQUIRE);
        a.sequence = (repository ? repository : &getRepository())->getEventSequence();
        a.threadNumber = own->threadContextNumber;
        eventTime(&a.time);
        a.loggerId = id;
        a.level = lvl;
        event.attributes.constructorInit(file, line, format, function, count);
        buffer->openEvent(&event);
        for (unsigned short i = 0; i < count && i < LoggingEvent::MaxDetails; ++i) {
            const LogArg& arg = args[i];
            // Typed before it is stored: a detail that starts a new buffer
            // moves the details already stored, by the event's count.
            event.types[i] = arg.type;
            event.details[i] = static_cast<const unsigned char*>(
                arg.byAddress() ? buffer->addDetail(arg.type, arg.bytes(), arg.length)
                                : buffer->addValueDetail(arg.type, arg.value, arg.length));
            event.count = i + 1u;
        }
        buffer->locate(event);
        doAppend(&event);
    }
    leaveLogCall(own, errnoAt);
}

void Logger::doAppend(const LoggingEvent* event) {
    const unsigned char eventLevel = event->attributes.attributes.level;
    // Counted in the calling thread's own context: no shared write per event.
    LogThreadContext* own = LogBufferImpl::ownContext();
    LogThreadContext::LoggerCounts* const mine = own->counts(id);
    // Inside its own log call, and with no change of appender lists under
    // way, this thread reads the lists without the loggers' locks: a change
    // (or a pause) first waits for the log calls under way to end, and the
    // calls after it see it counted and take the locks. Read once: a change
    // that starts later waits for this call.
    const bool unlocked = own->mutex.ownerInside() && AppenderListChange::listsSteady();
    for (Logger* l = this; l; l = l->parent) {
        bool additive;
        const size_t attached = l->impl->appenderCount.load(std::memory_order_acquire);
        if (attached != 0 && l->impl->textAppenderCount.load(std::memory_order_acquire) != 0) {
            uint64_t offered = 0;
            auto offer = [&] {
                for (Appender* a : l->impl->appenders) {
                    if (a->enabled && eventLevel >= a->threshold && !a->wantsBuffers)
                        a->doAppendImpl(event);
                    ++offered;
                }
                // Read with the appenders: read after them, a reload in
                // between could send the event to this logger's old
                // appenders and then, by its new additivity, to the parent's.
                additive = l->getAdditivity();
            };
            if (unlocked) {
                offer();
            } else {
                ScopedLock guard(l->lock);
                offer();
            }
            if (LogThreadContext::LoggerCounts* c = l == this ? mine : own->counts(l->id))
                LogThreadContext::bump(c->issued, offered);
        } else {
            // No appender here takes text: nothing to hand over, no lock.
            if (attached != 0)
                if (LogThreadContext::LoggerCounts* c = l == this ? mine : own->counts(l->id))
                    LogThreadContext::bump(c->issued, attached);
            additive = l->getAdditivity();
        }
        if (!additive || !l->parent)
            break;
    }
    if (mine)
        LogThreadContext::bump(mine->logged, 1);
}

Logger::LoggingRecursionCheck::LoggingRecursionCheck() : buffer(nullptr), context(enterLogCall(&errno)) {
    if (context)
        buffer = context->buffer;
}

Logger::LoggingRecursionCheck::~LoggingRecursionCheck() {
    // By the context, not the buffer: a context without a buffer was still
    // entered, and must be left.
    if (context)
        leaveLogCall(context, &errno);
}

} // namespace qzlog
} // namespace qzlib
} // namespace qzs
