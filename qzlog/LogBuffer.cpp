//===- qzlog/LogBuffer.cpp - The per-thread binary event buffer -----------===//
//
// Every store checks the exact room it needs before it writes, so a token
// never stands half written; when an event does not fit, the event moves
// whole into a new buffer. The first event of a thread finds no buffer at all
// and takes the same path, which is why every buffer opens with its tokens in
// full form.
//
//===----------------------------------------------------------------------===//
#include "qzlog/detail/LogBuffer.h"

#include "qzlog/FileAppender.h"
#include "qzlog/Level.h"
#include "qzlog/Logger.h"
#include "qzlog/LoggerRepository.h"
#include "qzlog/LoggingTime.h"
#include "qzlog/detail/LogThreadContext.h"
#include "qzmsg/CAppContext.h"
#include "qzmsg/Messages.h"
#include "qzstd/Event.h"
#include "qzstd/Mutex.h"
#include "qzstd/Thread.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <unistd.h>

namespace qzs {
namespace qzlib {
namespace qzlog {

using MultiThreading::Mutex;
using MultiThreading::ScopedLock;

std::atomic<uint32_t> LogBufferImpl::m_state{0};

const unsigned char LogBufferImpl::m_LogStartData[16] = {'<', 2, 0x10, 8, 4, 1, 0, 0,
                                                         0,   0, 0,    0, 0, 0, 0, 0};

__thread LogThreadContext* t_ownContext __attribute__((tls_model("initial-exec"))) = nullptr;

namespace {

constexpr uint32_t TokenArea = 0xFFFF0;
constexpr unsigned int ReaderContextMask = 0xF0000000u;

// Process-wide state, made by Initialize and never destroyed, so that
// threads still logging while the process exits find it intact.
struct BufferGlobals {
    Mutex bufferMutex;  // delivery and the pool
    Mutex storageMutex; // the context table
    ItemPool<LogBufferImpl::LogBufferPoolItem> pool{1, "LogBufferImpl::LogBufferPool"};
    std::vector<LogThreadContext*> contexts; // calling-thread contexts, in creation order
    std::map<unsigned int, LogThreadContext*> readers;
    std::atomic<uint64_t> totalEvents{0};
    std::atomic<uint64_t> totalBytes{0};
};
BufferGlobals* g = nullptr;

void reportFault(const char* function, unsigned int number, const std::string& text,
                 unsigned int line = __builtin_LINE()) {
    _MSG_String(new CSourceContext("qzlog.std", "qzlog/LogBufferImpl", function, line),
                static_cast<int>(number), text.c_str());
}

LogThreadContext* makeContext(unsigned int number, uint64_t threadId) {
    // REQUIRES: g->storageMutex held.
    LogBufferImpl* buffer = new LogBufferImpl();
    LogThreadContext* context = new LogThreadContext(buffer, threadId, number);
    buffer->context = context;
    return context;
}

} // namespace

//===-- Token writers -------------------------------------------------------===//

LogBufferImpl::LogBufferImpl()
    : currentBuffer(nullptr), cursor(nullptr), remaining(0), currentEvent(nullptr),
      eventStart(nullptr), detailStart(nullptr), openDetails(0), context(nullptr) {
    if (m_state.load(std::memory_order_acquire) == 0)
        qzlogInitialize();
    resetEventAttributes();
}

LogBufferImpl::~LogBufferImpl() {
    cycleBuffer(false);
}

void LogBufferImpl::resetEventAttributes() {
    std::memset(&eventAttributes, 0, sizeof eventAttributes);
}

bool LogBufferImpl::addDetail(const void* data, unsigned long length) {
    if (remaining <= length)
        return false;
    writeBytes(data, length);
    remaining -= static_cast<uint32_t>(length);
    return true;
}

unsigned long LogBufferImpl::storeString(const char* text) {
    const unsigned long key = reinterpret_cast<unsigned long>(text);
    if (const unsigned short* number = stringIds.find(key)) {
        if (remaining < 3)
            return 0;
        write8('S');
        write16(*number);
        remaining -= 3;
        return 3;
    }
    const char* value = text ? text : "";
    const size_t n = std::strlen(value);
    if (remaining < n + 2)
        return 0;
    const unsigned short number = static_cast<unsigned short>(stringIds.size());
    write8('s');
    writeBytes(value, n + 1);
    remaining -= static_cast<uint32_t>(n + 2);
    stringIds[key] = number;
    return n + 2;
}

bool LogBufferImpl::storeEvent(const EventAttributes& ea) {
    if (eventIds.find(ea.eventId)) {
        if (remaining < 9)
            return false;
        write8('A');
        write32(ea.eventId);
        write32(ea.attributes.sequence);
        remaining -= 9;
        return true;
    }
    if (remaining < 20)
        return false;
    unsigned char* savedCursor = cursor;
    const uint32_t savedRemaining = remaining;
    write8('a');
    write32(ea.eventId);
    write32(ea.attributes.sequence);
    write16(ea.location ? ea.location->argCount : 0);
    remaining -= 11;
    const LocationDependentAttributes* l = ea.location;
    if (!storeString(l ? l->file : nullptr) || !storeString(l ? l->function : nullptr) ||
        !storeString(l ? l->format : nullptr)) {
        cursor = savedCursor;
        remaining = savedRemaining;
        return false;
    }
    eventIds[ea.eventId] = ea.eventId;
    return true;
}

bool LogBufferImpl::storeLevel(unsigned char level) {
    if (levelIds.find(level)) {
        if (remaining < 2)
            return false;
        write8('C');
        write8(level);
        remaining -= 2;
        return true;
    }
    const char* name = Level::getName(level);
    const size_t n = std::strlen(name);
    if (remaining < n + 3)
        return false;
    write8('c');
    write8(level);
    writeBytes(name, n + 1);
    remaining -= static_cast<uint32_t>(n + 3);
    levelIds[level] = level;
    return true;
}

bool LogBufferImpl::storeLogger(unsigned short loggerId) {
    if (loggerIds.find(loggerId)) {
        if (remaining < 3)
            return false;
        write8('D');
        write16(loggerId);
        remaining -= 3;
        return true;
    }
    // Looked up through the id map, not the tree: this runs inside log calls
    // that may hold logger locks, which rank below the repository mutex.
    Logger* logger = Logger::getRepository().findLogger(loggerId);
    const char* name = logger ? logger->getName() : "";
    const size_t n = std::strlen(name);
    if (remaining < n + 5)
        return false;
    write8('d');
    write16(loggerId);
    remaining -= 3;
    // The caller rolls back to the event's start if the level does not fit.
    if (!storeLevel(logger ? logger->getLevel() : Level::Inherit))
        return false;
    writeBytes(name, n + 1);
    remaining -= static_cast<uint32_t>(n + 1);
    loggerIds[loggerId] = loggerId;
    return true;
}

LogBufferImpl::ControlData* LogBufferImpl::setBufferControlData() {
    if (!currentBuffer)
        return nullptr;
    currentBuffer->size = static_cast<uint32_t>(
        cursor - reinterpret_cast<unsigned char*>(currentBuffer) - sizeof(ControlData));
    return currentBuffer;
}

bool LogBufferImpl::getBlock(unsigned int& count, const void*& data, unsigned int& size) const {
    if (!currentBuffer)
        return false;
    count = currentBuffer->eventCount;
    data = reinterpret_cast<const unsigned char*>(currentBuffer) + sizeof(ControlData);
    size = currentBuffer->size;
    return true;
}

//===-- The event path -----------------------------------------------------===//

void LogBufferImpl::addEvent(LoggingEvent* event) {
    if (openDetails != 0) {
        reportFault("LogBufferImpl::addEvent", 1112,
                    "the previous event did not receive all its details");
        // That event is gone from the caller's stack: forget it, so that a
        // cycle below cannot try to move it.
        openDetails = 0;
        currentEvent = nullptr;
    }

    const LocationIndependentAttributes& now = event->attributes.attributes;
    const LocationIndependentAttributes& before = eventAttributes.attributes;
    bool loggerChanged = now.loggerId != before.loggerId;
    bool levelChanged = now.level != before.level;
    bool timeChanged =
        now.time.tv_sec != before.time.tv_sec || now.time.tv_usec != before.time.tv_usec;
    eventAttributes = event->attributes;

    for (int attempt = 0;; ++attempt) {
        const uint32_t savedRemaining = remaining;
        eventStart = cursor;
        bool ok = storeEvent(eventAttributes);
        if (ok && loggerChanged)
            ok = storeLogger(eventAttributes.attributes.loggerId);
        if (ok && levelChanged)
            ok = storeLevel(eventAttributes.attributes.level);
        if (ok && timeChanged) {
            unsigned char timeToken[9];
            timeToken[0] = 'e';
            std::memcpy(timeToken + 1, &eventAttributes.attributes.time, 8);
            ok = addDetail(timeToken, 9);
        }
        if (ok || attempt == 1)
            break;
        // No room, or no buffer at all: start a new one, where every token
        // comes out in full.
        cursor = eventStart;
        remaining = savedRemaining;
        eventStart = nullptr;
        loggerChanged = levelChanged = timeChanged = true;
        cycleBuffer(true);
        eventAttributes = event->attributes;
    }

    if (currentBuffer)
        currentBuffer->eventCount += 1;
    currentEvent = event;
    detailStart = cursor;
    const LocationDependentAttributes* location = event->attributes.location;
    openDetails = location ? location->argCount : 0;
}

const void* LogBufferImpl::addDetail(LogDataType type, const void* data, unsigned long length) {
    if (openDetails == 0)
        return cursor;
    // The usual detail: small, fits, no length word.
    if (__builtin_expect(type != LogRaw && length <= m_maxDetailSize && remaining > length + 5,
                         1)) {
        unsigned char* at = cursor + 1;
        *cursor = static_cast<unsigned char>(type);
        if (length == 8)
            std::memcpy(at, data, 8);
        else if (length == 4)
            std::memcpy(at, data, 4);
        else
            std::memcpy(at, data, length);
        cursor = at + length;
        remaining -= static_cast<uint32_t>(length + 1);
        --openDetails;
        return at;
    }
    return addDetailSlow(type, data, length);
}

const void* LogBufferImpl::addDetailSlow(LogDataType type, const void* data, unsigned long length) {
    // Payloads over 64 KiB are cut; texts keep their terminators.
    unsigned long copy = length;
    unsigned int terminators = 0;
    if (static_cast<long>(length) < 0) {
        copy = 0;
        terminators = type == LogString ? 1 : type == LogUTF16 ? 2 : 0;
    } else if (length > m_maxDetailSize) {
        if (type == LogString) {
            copy = 0xFFFF;
            terminators = 1;
        } else if (type == LogUTF16) {
            copy = 0xFFFE;
            terminators = 2;
        } else {
            copy = m_maxDetailSize;
        }
    }
    const unsigned long payload = copy + terminators;
    if (remaining <= payload + 5)
        cycleBuffer(true);
    if (!cursor) {
        // No buffer could be had; the detail is dropped.
        --openDetails;
        static const unsigned char nothing[8] = {};
        return nothing;
    }

    write8(static_cast<unsigned char>(type));
    unsigned char* at = cursor;
    uint32_t used = 1;
    if (type == LogRaw) {
        write32(static_cast<uint32_t>(payload));
        used += 4;
    }
    writeBytes(data, copy);
    for (unsigned int i = 0; i < terminators; ++i)
        write8(0);
    remaining -= static_cast<uint32_t>(used + payload);
    --openDetails;
    return at;
}

void LogBufferImpl::cycleBuffer(bool renew) {
    ScopedLock guard(g->bufferMutex);

    const bool eventOpen = openDetails != 0;
    unsigned char* oldDetailStart = detailStart;
    unsigned long partial = 0;
    if (eventOpen && eventStart) {
        partial = static_cast<unsigned long>(cursor - detailStart);
        remaining += static_cast<uint32_t>(cursor - eventStart);
        cursor = eventStart;
    }

    if (currentBuffer) {
        *cursor++ = '>';
        setBufferControlData();
        Logger::getRepository().appendBuffer(this);
        g->totalEvents.fetch_add(currentBuffer->eventCount);
        g->totalBytes.fetch_add(currentBuffer->size);
        g->pool.returnItem(reinterpret_cast<LogBufferPoolItem*>(currentBuffer));
        currentBuffer = nullptr;
    }
    stringIds.clear();
    eventIds.clear();
    loggerIds.clear();
    levelIds.clear();

    if (!renew) {
        cursor = nullptr;
        remaining = 0;
        eventStart = nullptr;
        detailStart = nullptr;
        openDetails = 0;
        currentEvent = nullptr;
        resetEventAttributes();
        return;
    }

    LogBufferPoolItem* item = g->pool.takeItem();
    currentBuffer = reinterpret_cast<ControlData*>(item);
    currentBuffer->size = 0;
    currentBuffer->eventCount = 0;
    cursor = reinterpret_cast<unsigned char*>(item) + sizeof(ControlData);
    eventStart = cursor;
    remaining = TokenArea;

    writeBytes(m_LogStartData, sizeof m_LogStartData);
    remaining -= sizeof m_LogStartData;
    // The thread record, written in place.
    const size_t recordSize = context ? context->writeThreadData(cursor) : 0;
    cursor += recordSize;
    // Kept as it is: one byte more than is written, which is the room the
    // closing '>' needs.
    remaining -= static_cast<uint32_t>(recordSize + 1);

    if (eventOpen && currentEvent) {
        const uint32_t pending = openDetails;
        openDetails = 0;
        eventStart = cursor;
        storeEvent(eventAttributes);
        storeLogger(eventAttributes.attributes.loggerId);
        storeLevel(eventAttributes.attributes.level);
        unsigned char timeToken[9];
        timeToken[0] = 'e';
        std::memcpy(timeToken + 1, &eventAttributes.attributes.time, 8);
        addDetail(timeToken, 9);
        openDetails = pending;
        if (partial == 0) {
            detailStart = cursor;
        } else {
            // The details written so far move with the event. The source lies
            // in the buffer just returned to the pool, which is usually this
            // very one, so the ranges may overlap.
            const ptrdiff_t delta = cursor - oldDetailStart;
            for (unsigned int i = 0; i < currentEvent->count && i < LoggingEvent::MaxDetails; ++i)
                currentEvent->details[i] += delta;
            std::memmove(cursor, oldDetailStart, partial);
            remaining -= static_cast<uint32_t>(partial);
            detailStart = cursor;
            cursor += partial;
        }
        // Decision: the moved event's attributes stay as the buffer's last
        // ones, matching the tokens just written, so the next event of the
        // thread compares against what the new session really says.
        return;
    }
    resetEventAttributes();
}

//===-- Contexts, delivery and totals --------------------------------------===//

void LogBufferImpl::Initialize() {
    if (!g)
        g = new BufferGlobals();
    m_state.store(1, std::memory_order_release);
}

void LogBufferImpl::Start() {
    // The pool's logger is made now, not when the pool first grows inside a
    // log call, where making a logger would take the repository mutex under
    // the buffer locks.
    g->pool.getLogger();
    m_state.store(2, std::memory_order_release);
}

void LogBufferImpl::flushBuffers() {
    const uint32_t state = m_state.load(std::memory_order_acquire);
    if (state < 2 || state == 4)
        return;
    ScopedLock storage(g->storageMutex);
    for (LogThreadContext* context : g->contexts) {
        ScopedLock guard(context->mutex);
        static_cast<LogBufferImpl*>(context->buffer)->cycleBuffer(false);
    }
}

void LogBufferImpl::shutdown() {
    const uint32_t state = m_state.load(std::memory_order_acquire);
    if (state < 2 || state == 4)
        return;
    flushBuffers();
    m_state.store(3, std::memory_order_release);
    if (!qzlogIsSingleThreaded() && LoggingTime::m_timerIdleEvent)
        LoggingTime::m_timerIdleEvent->Fire();
    m_state.store(4, std::memory_order_release);
}

LogThreadContext* LogBufferImpl::getThreadContext(unsigned int id) {
    if ((id & ReaderContextMask) == 0) {
        if (LogThreadContext* context = t_ownContext)
            return context;
        if (m_state.load(std::memory_order_acquire) == 0)
            qzlogInitialize();
        ScopedLock guard(g->storageMutex);
        unsigned int number = ++LogThreadContext::m_threadContextNumber;
        LogThreadContext* context =
            makeContext(number, MultiThreading::Thread::GetCurrentOSThreadID());
        context->mutex.setOwner(pthread_self());
        g->contexts.push_back(context);
        t_ownContext = context;
        return context;
    }
    if (m_state.load(std::memory_order_acquire) == 0)
        qzlogInitialize();
    ScopedLock guard(g->storageMutex);
    LogThreadContext*& context = g->readers[id];
    if (!context) {
        context = makeContext(id, 0);
        g->contexts.push_back(context);
    }
    return context;
}

void LogBufferImpl::freeThreadContext(unsigned int id) {
    if (!g)
        return;
    LogThreadContext* context = nullptr;
    {
        ScopedLock guard(g->storageMutex);
        if ((id & ReaderContextMask) == 0) {
            context = t_ownContext;
            if (!context)
                return;
            t_ownContext = nullptr;
        } else {
            auto found = g->readers.find(id);
            if (found == g->readers.end())
                return;
            context = found->second;
            g->readers.erase(found);
        }
        auto& list = g->contexts;
        list.erase(std::remove(list.begin(), list.end(), context), list.end());
        // Under the storage mutex, as sumLoggerCounts reads: the thread's
        // counts move to its loggers and are seen once, before or after.
        LoggerRepository& repository = Logger::getRepository();
        context->forEachCount([&repository](unsigned short id, uint64_t logged, uint64_t issued) {
            if (Logger* logger = repository.findLogger(id)) {
                logger->eventsLogged.fetch_add(logged, std::memory_order_relaxed);
                __atomic_fetch_add(&logger->eventsIssued, issued, __ATOMIC_RELAXED);
            }
        });
    }
    // Out of every table now, so nothing else reaches it; delivery runs
    // outside the storage mutex, which layouts may need under appender locks.
    {
        ScopedLock contextGuard(context->mutex);
        delete context->buffer; // delivers what the thread logged
        context->buffer = nullptr;
    }
    delete context;
}

void LogBufferImpl::waitForLogCalls() {
    MultiThreading::BiasedLock::processBarrier();
    if (!g)
        return;
    const LogThreadContext* own = t_ownContext;
    ScopedLock storage(g->storageMutex);
    for (const LogThreadContext* context : g->contexts)
        if (context != own)
            context->mutex.waitForOwnerSection();
}

void LogBufferImpl::sumLoggerCounts(unsigned short id, uint64_t& logged, uint64_t& issued) {
    if (!g)
        return;
    ScopedLock storage(g->storageMutex);
    for (const LogThreadContext* context : g->contexts)
        context->sumCounts(id, logged, issued);
}

void LogBufferImpl::getTotals(unsigned long& events, unsigned long& bytes) {
    events = 0;
    bytes = 0;
    if (!g)
        return;
    events = g->totalEvents.load();
    bytes = g->totalBytes.load();
    ScopedLock storage(g->storageMutex);
    for (LogThreadContext* context : g->contexts) {
        ScopedLock guard(context->mutex);
        auto* buffer = static_cast<LogBufferImpl*>(context->buffer);
        if (buffer && buffer->cursor && buffer->currentBuffer) {
            bytes += static_cast<unsigned long>(
                buffer->cursor - reinterpret_cast<unsigned char*>(buffer->currentBuffer) -
                sizeof(ControlData));
            events += buffer->currentBuffer->eventCount;
        }
    }
}

void LogBufferImpl::saveAllToFile() {
    const uint32_t state = m_state.load(std::memory_order_acquire);
    if (state < 2 || state == 4)
        return;
    const std::string dir = getAppContextText("DirProcessDmp");
    std::string names[2];
    FileAppender::makeFileName(dir + "qzlog-%I.dmp", true, names[0]);
    FileAppender::makeFileName(dir + "qzlog-%I-%P.dmp", true, names[1]);
    int fd = -1;
    std::string used;
    for (const std::string& name : names) {
        fd = ::open(name.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0640);
        if (fd > 0) {
            used = name;
            break;
        }
    }
    if (fd <= 0) {
        reportFault("LogBufferImpl::saveAllToFile", 1525, names[0]);
        return;
    }
    ScopedLock storage(g->storageMutex);
    for (LogThreadContext* context : g->contexts) {
        ScopedLock guard(context->mutex);
        auto* buffer = static_cast<LogBufferImpl*>(context->buffer);
        if (!buffer || !buffer->currentBuffer)
            continue;
        *buffer->cursor++ = '>';
        ControlData* control = buffer->setBufferControlData();
        const ssize_t wrote = ::write(
            fd, reinterpret_cast<unsigned char*>(control) + sizeof(ControlData), control->size);
        buffer->cursor -= 1;
        if (wrote < static_cast<ssize_t>(control->size)) {
            char text[512];
            std::snprintf(text, sizeof text, "Failed to save data to '%s', error %d - %s\n",
                          used.c_str(), errno, std::strerror(errno));
            ssize_t ignored = ::write(2, text, std::strlen(text));
            (void)ignored;
            break;
        }
    }
    ::close(fd);
}

unsigned long LogBufferImpl::contextCount() {
    if (!g)
        return 0;
    ScopedLock guard(g->storageMutex);
    return g->contexts.size();
}

Mutex& LogBufferImpl::deliveryMutex() {
    return g->bufferMutex;
}

void LogBuffer::getTotals(unsigned long& events, unsigned long& bytes) {
    LogBufferImpl::getTotals(events, bytes);
}

void LogBuffer::saveAllToFile() {
    LogBufferImpl::saveAllToFile();
}

} // namespace qzlog
} // namespace qzlib
} // namespace qzs
