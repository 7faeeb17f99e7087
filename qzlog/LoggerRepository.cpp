//===- qzlog/LoggerRepository.cpp - The tree of loggers -------------------===//
#include "qzlog/LoggerRepository.h"

#include "qzlog/Appender.h"
#include "qzlog/Level.h"
#include "qzlog/Logger.h"
#include "qzlog/detail/ConfigurationPause.h"
#include "qzlog/detail/ConfigurationSeam.h"
#include "qzlog/detail/LogBuffer.h"
#include "qzlog/detail/LogThreadContext.h"
#include "qzlog/detail/LoggerName.h"
#include "qzmsg/CAppContext.h"
#include "qzstd/Event.h"
#include "qzstd/Mutex.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <sys/syscall.h>
#include <unistd.h>
#include <vector>

namespace qzs {
namespace qzlib {
namespace qzlog {

using MultiThreading::Event;
using MultiThreading::Mutex;
using MultiThreading::ScopedLock;

struct LoggerRepository::Impl {
    Mutex mutex;
    // Keyed by the interned name's address: iteration order is not
    // alphabetical, and an interned pointer finds its logger without any
    // string compare.
    std::map<const char*, Logger*> tree;
    Logger* root = nullptr;
    std::atomic<uint32_t> eventSequence{0};
    std::atomic<uint32_t> loggerIds{0};
    // Logger id to name and logger: two levels of 256, pages made on demand
    // under nameMutex and never freed. Readers (the layouts, the log buffer)
    // take no lock: an entry is published with a release store.
    struct NameEntry {
        std::atomic<const char*> name{nullptr};
        std::atomic<Logger*> logger{nullptr};
    };
    Mutex nameMutex;
    std::atomic<NameEntry*> namePages[256] = {};

    NameEntry* entry(unsigned short id) const {
        NameEntry* page = namePages[id >> 8].load(std::memory_order_acquire);
        return page ? &page[id & 0xFF] : nullptr;
    }
    Mutex configurationLock;
    Event configurationEvent{Event::ManualReset};
    std::vector<void (*)(LoggerRepository*)> configurations;
};

namespace {

// Pauses held by this thread: only the outermost takes the locks.
thread_local unsigned int t_pauseDepth = 0;
// A refold asked for while this thread held a pause, done when it ends.
thread_local bool t_recalculatePending = false;

// Every logger, oldest first. Locks taken over several loggers are taken in
// this order: a logger made while they are held comes last, as it will in
// the next such walk.
std::vector<Logger*> byAge(const std::map<const char*, Logger*>& tree) {
    std::vector<Logger*> loggers;
    loggers.reserve(tree.size());
    for (auto& entry : tree)
        loggers.push_back(entry.second);
    std::sort(loggers.begin(), loggers.end(),
              [](const Logger* a, const Logger* b) { return a->id < b->id; });
    return loggers;
}

} // namespace

LoggerRepository::LoggerRepository() : impl(new Impl), threshold(Level::All) {
    // Start-up runs on whichever thread touched the framework first, which
    // need not be the main thread; only the main thread is named "main".
    if (::syscall(SYS_gettid) == ::getpid())
        setThreadName("main");
}

LoggerRepository::~LoggerRepository() {
    // Before the mutex: a watch thread may be waiting for it.
    detail::stopConfigurationWatches();
    ScopedLock guard(impl->mutex);
    shutdown();
    for (auto& entry : impl->tree)
        delete entry.second;
    impl->tree.clear();
    guard.unlock();
    delete impl;
}

void LoggerRepository::Initialize() {
    LoggerRepository& repository = *Logger::m_repository;
    ScopedLock guard(repository.impl->mutex);
    repository.impl->root = repository.getLogger("", nullptr);
    for (auto& entry : repository.impl->tree) {
        Logger* l = entry.second;
        if (!l->parent && l != repository.impl->root)
            l->parent = repository.impl->root;
    }
}

Logger* LoggerRepository::getLogger(const char* name, unsigned char* level) {
    if (!name)
        name = "";
    ScopedLock guard(impl->mutex);
    auto found = impl->tree.find(name);
    if (found != impl->tree.end())
        return found->second;

    const char* interned = LoggerName::getName(name);
    found = impl->tree.find(interned);
    if (found != impl->tree.end())
        return found->second;

    LoggerName split(interned);
    Logger* parent = nullptr;
    if (split.parent[0] != '\0')
        parent = getLogger(split.parent, nullptr);
    else if (interned[0] != '\0')
        parent = impl->root ? impl->root : getLogger("", nullptr);

    // Kept on purpose: the id is cut to 16 bits with no check.
    unsigned short id =
        interned[0] == '\0' ? 0 : static_cast<unsigned short>(impl->loggerIds.fetch_add(1) + 1);
    Logger* logger = level ? new Logger(id, interned, *level) : new Logger(id, interned);
    logger->parent = parent;
    impl->tree[interned] = logger;
    {
        ScopedLock names(impl->nameMutex);
        std::atomic<Impl::NameEntry*>& page = impl->namePages[id >> 8];
        if (!page.load(std::memory_order_relaxed))
            page.store(new Impl::NameEntry[256], std::memory_order_release);
        Impl::NameEntry& e = page.load(std::memory_order_relaxed)[id & 0xFF];
        e.logger.store(logger, std::memory_order_release);
        e.name.store(interned, std::memory_order_release);
    }
    recalculateEffectiveLevels();
    if (id == 0)
        impl->root = logger;
    return logger;
}

Logger* LoggerRepository::getLogger(unsigned short id) {
    ScopedLock guard(impl->mutex);
    for (auto& entry : impl->tree)
        if (entry.second->id == id)
            return entry.second;
    return nullptr;
}

const char* LoggerRepository::getLoggerName(unsigned short id) {
    Impl::NameEntry* e = impl->entry(id);
    return e ? e->name.load(std::memory_order_acquire) : nullptr;
}

Logger* LoggerRepository::findLogger(unsigned short id) {
    Impl::NameEntry* e = impl->entry(id);
    return e ? e->logger.load(std::memory_order_acquire) : nullptr;
}

Logger* LoggerRepository::exists(const char* name) {
    auto found = impl->tree.find(LoggerName::getName(name ? name : ""));
    return found == impl->tree.end() ? nullptr : found->second;
}

Logger* LoggerRepository::getRootLogger() {
    return impl->root;
}

std::vector<Logger*> LoggerRepository::getCurrentLoggers() {
    ScopedLock guard(impl->mutex);
    return byAge(impl->tree);
}

unsigned long LoggerRepository::getLoggerCount() const {
    ScopedLock guard(impl->mutex);
    return impl->tree.size();
}

unsigned int LoggerRepository::getEventSequence() {
    return impl->eventSequence.fetch_add(1, std::memory_order_relaxed) + 1;
}

void LoggerRepository::setThreshold(unsigned char value) {
    threshold = value;
    recalculateEffectiveLevels();
}

void LoggerRepository::recalculateEffectiveLevels() {
    if (!qzlogInitialized())
        return;
    // A load sets many levels and thresholds; no event passes the loggers
    // while it runs, so one refold at its end serves them all.
    if (t_pauseDepth != 0) {
        t_recalculatePending = true;
        return;
    }
    ScopedLock guard(impl->mutex);
    const unsigned char floor = threshold;
    for (auto& entry : impl->tree) {
        Logger* l = entry.second;
        const Logger* node = l;
        unsigned char value = __atomic_load_n(&node->level, __ATOMIC_RELAXED);
        while (value == Level::Inherit && node->parent) {
            node = node->parent;
            value = __atomic_load_n(&node->level, __ATOMIC_RELAXED);
        }
        value = std::max(value, l->getAppenderThreshold());
        value = std::max(value, floor);
        __atomic_store_n(l->effectiveLevel, value, __ATOMIC_RELAXED);
    }
}

void LoggerRepository::addConfiguration(void (*callback)(LoggerRepository*)) {
    ScopedLock guard(impl->configurationLock);
    auto& list = impl->configurations;
    if (std::find(list.begin(), list.end(), callback) != list.end())
        return;
    list.push_back(callback);
    impl->configurationEvent.Fire();
}

void LoggerRepository::clearConfiguration(void (*callback)(LoggerRepository*)) {
    ScopedLock guard(impl->configurationLock);
    auto& list = impl->configurations;
    auto found = std::find(list.begin(), list.end(), callback);
    if (found == list.end())
        return;
    list.erase(found);
    impl->configurationEvent.Fire();
}

bool LoggerRepository::configurationChanged() const {
    bool fired = impl->configurationEvent.IsFired();
    impl->configurationEvent.Reset();
    return fired;
}

void LoggerRepository::replaceAppender(Appender* from, Appender* to) {
    AppenderListChange change; // before the mutex: it waits for log calls
    ScopedLock guard(impl->mutex);
    for (auto& entry : impl->tree)
        entry.second->replaceAppender(from, to);
}

void LoggerRepository::removeAllAppenders() {
    AppenderListChange change; // before the mutex: it waits for log calls
    ScopedLock guard(impl->mutex);
    for (auto& entry : impl->tree) {
        Logger* l = entry.second;
        for (Appender* a : l->getAllAppenders())
            a->close();
        l->removeAllAppenders();
    }
}

void LoggerRepository::appendBuffer(const LogBufferImpl* buffer) {
    unsigned int count = 0;
    const void* data = nullptr;
    unsigned int size = 0;
    if (!buffer || !buffer->getBlock(count, data, size) || count == 0)
        return;
    ScopedLock guard(impl->mutex);
    for (auto& entry : impl->tree)
        entry.second->deliverBuffer(count, data, size);
}

namespace {

struct LoggerRecord {
    const char* name;
    unsigned char level;
    unsigned long logged;
    unsigned long issued;
    Logger* logger;
};

int byName(const void* a, const void* b) {
    return std::strcmp(static_cast<const LoggerRecord*>(a)->name,
                       static_cast<const LoggerRecord*>(b)->name);
}

} // namespace

void LoggerRepository::getSummaryReport(std::string& out) {
    std::vector<LoggerRecord> records;
    {
        ScopedLock guard(impl->mutex);
        records.reserve(impl->tree.size());
        for (auto& entry : impl->tree) {
            Logger* l = entry.second;
            const char* name = l->getName();
            records.push_back(
                {name[0] ? name : "root", l->getEffectiveLevel(), 0, 0, l});
        }
    }
    // The live threads' counts are summed under the context storage mutex,
    // taken here after the repository mutex is released: the two have no
    // order between them.
    for (LoggerRecord& r : records) {
        r.logged = static_cast<unsigned long>(r.logger->getEventsLogged());
        r.issued = static_cast<unsigned long>(r.logger->getEventsIssued());
    }
    if (!records.empty())
        std::qsort(records.data(), records.size(), sizeof(LoggerRecord), byName);

    unsigned long events = 0, bytes = 0;
    LogBuffer::getTotals(events, bytes);

    char line[256];
    bool header = false;
    for (const LoggerRecord& r : records) {
        if (r.logged == 0 && r.issued == 0)
            continue;
        if (!header) {
            out += "\nActive loggers:\n";
            header = true;
        }
        std::snprintf(line, sizeof line, "  %s (%s)\n", r.name, Level::getName(r.level));
        out += line;
        std::snprintf(line, sizeof line, "    Events logged: %lu\n", r.logged);
        out += line;
        std::snprintf(line, sizeof line, "    Events issued: %lu\n", r.issued);
        out += line;
        out += "\n";
    }
    std::snprintf(line, sizeof line, "Total events:  %lu\n", events);
    out += line;
    std::snprintf(line, sizeof line, "Total bytes:   %lu\n", bytes);
    out += line;
    header = false;
    for (const LoggerRecord& r : records) {
        if (r.logged != 0 || r.issued != 0)
            continue;
        if (!header) {
            out += "\nIdle loggers:\n";
            header = true;
        }
        std::snprintf(line, sizeof line, "  %s (%s)\n", r.name, Level::getName(r.level));
        out += line;
    }
    Appender::getSummaryReport(out);
}

void LoggerRepository::shutdown() {
    // No watch may apply a file again once the appenders are closed.
    detail::stopConfigurationWatches();
    {
        ScopedLock guard(impl->mutex);
        for (auto& entry : impl->tree)
            entry.second->setLevel(Level::Off);
    }
    // Decision: the buffers are flushed outside the repository mutex. The
    // flush delivers through appendBuffer, which takes that mutex after the
    // buffer locks; holding it here would invert the order.
    LogBufferImpl::shutdown();
    removeAllAppenders();
}

namespace {

// A search of the logging directories is under way (see loadConfiguration).
std::atomic<bool> g_loadingConfiguration{false};

} // namespace

std::atomic<unsigned int> AppenderListChange::s_changes{0};

namespace {
thread_local unsigned int t_listChangeDepth = 0;
} // namespace

void AppenderListChange::begin() {
    if (t_listChangeDepth++ != 0)
        return;
    s_changes.fetch_add(1, std::memory_order_seq_cst);
    LogBufferImpl::waitForLogCalls();
}

void AppenderListChange::end() {
    if (--t_listChangeDepth == 0)
        s_changes.fetch_sub(1, std::memory_order_release);
}

ConfigurationPause::ConfigurationPause() : m_outermost(t_pauseDepth++ == 0), m_context(nullptr) {
    if (!m_outermost)
        return;
    LoggerRepository& repository = Logger::getRepository();
    m_context = LogBufferImpl::getThreadContext(0);
    if (m_context)
        m_context->mutex.Lock();
    LogBufferImpl::deliveryMutex().Lock();
    repository.impl->mutex.Lock();
    m_loggers = byAge(repository.impl->tree);
    for (Logger* l : m_loggers)
        l->lock.Lock();
}

ConfigurationPause::~ConfigurationPause() {
    --t_pauseDepth;
    if (!m_outermost)
        return;
    if (t_recalculatePending) {
        t_recalculatePending = false;
        Logger::getRepository().recalculateEffectiveLevels();
    }
    for (auto it = m_loggers.rbegin(); it != m_loggers.rend(); ++it)
        (*it)->lock.Unlock();
    Logger::getRepository().impl->mutex.Unlock();
    LogBufferImpl::deliveryMutex().Unlock();
    if (m_context)
        m_context->mutex.Unlock();
}

bool ConfigurationPause::insidePause() {
    return t_pauseDepth != 0;
}

void LoggerRepository::loadConfiguration() {
    // Never destroyed: a watch thread may still reset while the process exits.
    static const std::string& appPrefix =
        *new std::string("app-" + getAppContextText("BuildApplication"));
    // Ends the recursion of a file with "reset" in it, which comes back here
    // through resetConfiguration.
    if (g_loadingConfiguration.exchange(true))
        return;
    detail::applyConfigurationFiles("xqz-");
    CAppContext* context = getAppContext();
    const CContextItem* legacy =
        context->GetItem(CContext::GetContextItemID("DirStructureIsLegacy"));
    const bool isLegacy = legacy && legacy->Read<bool>();
    if (!isLegacy || context->GetItem(CContext::GetContextItemID("SCALoggingMode"))) {
        detail::applyConfigurationFiles("sca-");
        detail::applyConfigurationFiles(appPrefix.c_str());
    }
    g_loadingConfiguration.store(false);
}

void LoggerRepository::resetConfiguration() {
    // The buffers go out to the appenders that are about to close. Flushing
    // takes every thread's context mutex, so it cannot run inside a pause: a
    // load that resets flushes before it takes its own.
    if (!ConfigurationPause::insidePause())
        LogBufferImpl::flushBuffers();
    ConfigurationPause pause;
    removeAllAppenders();
    for (auto& entry : impl->tree) {
        Logger* l = entry.second;
        __atomic_store_n(&l->level, l == impl->root ? Level::Warn : Level::Inherit,
                         __ATOMIC_RELAXED);
        l->setAdditivity(true);
    }
    recalculateEffectiveLevels();
    loadConfiguration();
    ScopedLock guard(impl->configurationLock);
    for (auto callback : impl->configurations)
        callback(this);
    impl->configurationEvent.Reset();
}

const char* LoggerRepository::getThreadName() {
    return LogBufferImpl::getThreadContext(0)->getName();
}

void LoggerRepository::setThreadName(const char* name) {
    LogBufferImpl::getThreadContext(0)->setName(name);
}

void LoggerRepository::threadComplete() {
    LogBufferImpl::freeThreadContext(0);
}

} // namespace qzlog
} // namespace qzlib
} // namespace qzs
