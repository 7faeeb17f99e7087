//===- qzlog/LogBuffer.cpp - The per-thread event buffer ------------------===//
//
// Each thread's buffer keeps the details of the event at hand in blocks that
// it owns and reuses: after the first events of a thread nothing is
// allocated. A block is never moved while an event uses it, so the detail
// pointers handed out stay valid until the event is done.
//
//===----------------------------------------------------------------------===//
#include "qzlog/LogBuffer.h"

#include "qzlog/LogThreadContext.h"
#include "qzlog/LoggingTime.h"
#include "qzstd/Event.h"
#include "qzlog/Logger.h"
#include "qzlog/LoggerRepository.h"
#include "qzstd/Mutex.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <map>
#include <new>
#include <sys/syscall.h>
#include <unistd.h>
#include <vector>

namespace qzs {
namespace qzlib {
namespace qzlog {

using MultiThreading::Mutex;
using MultiThreading::ScopedLock;

std::atomic<uint32_t> LogBufferImpl::m_state{0};

namespace {

// The contexts and the totals of the threads whose contexts were freed.
// Heap-allocated by Initialize and never destroyed, so they outlive every
// thread that may still log while the process exits.
struct ContextTable {
    Mutex mutex;
    std::vector<LogThreadContext*> contexts;
    std::map<unsigned int, LogThreadContext*> readers;
    unsigned long retiredEvents = 0;
    unsigned long retiredBytes = 0;
};
ContextTable* g_table = nullptr;

// The calling thread's context. initial-exec keeps the lookup a single load
// from the thread pointer on the hot path.
__attribute__((tls_model("initial-exec"))) thread_local LogThreadContext* t_context = nullptr;

constexpr unsigned int ReaderContextMask = 0xF0000000u;
constexpr uint64_t FirstBlockSize = 16 * 1024;

LogThreadContext* makeContext(uint64_t threadId) {
    // REQUIRES: g_table->mutex held.
    unsigned int number = ++LogThreadContext::m_threadContextNumber;
    LogThreadContext* context = new LogThreadContext(new LogBufferImpl(), threadId, number);
    g_table->contexts.push_back(context);
    return context;
}

void retire(LogThreadContext* context) {
    // REQUIRES: g_table->mutex held.
    unsigned long events = 0, bytes = 0;
    if (auto* buffer = static_cast<LogBufferImpl*>(context->buffer))
        buffer->counts(events, bytes);
    g_table->retiredEvents += events;
    g_table->retiredBytes += bytes;
    auto& list = g_table->contexts;
    list.erase(std::remove(list.begin(), list.end(), context), list.end());
    delete context->buffer;
    delete context;
}

} // namespace

LogBufferImpl::LogBufferImpl() : m_block(nullptr), m_blocks(nullptr), m_events(0), m_bytes(0) {
    if (m_state.load(std::memory_order_acquire) == 0)
        qzlogInitialize();
}

LogBufferImpl::~LogBufferImpl() {
    while (m_blocks) {
        Block* next = m_blocks->next;
        std::free(m_blocks);
        m_blocks = next;
    }
}

void LogBufferImpl::counts(unsigned long& events, unsigned long& bytes) const {
    events = m_events.load(std::memory_order_relaxed);
    bytes = m_bytes.load(std::memory_order_relaxed);
}

void LogBufferImpl::addEvent(LoggingEvent*) {
    m_block = m_blocks;
    for (Block* b = m_blocks; b; b = b->next)
        b->used = 0;
    m_events.store(m_events.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
}

unsigned char* LogBufferImpl::reserve(uint64_t size) {
    // Keep every detail 8-byte aligned so that typed reads of it are safe.
    size = (size + 7) & ~uint64_t(7);
    while (m_block && m_block->capacity - m_block->used < size)
        m_block = m_block->next;
    if (!m_block) {
        uint64_t capacity = std::max<uint64_t>(FirstBlockSize, size);
        Block* block = static_cast<Block*>(std::malloc(sizeof(Block) + capacity));
        if (!block)
            return nullptr;
        block->used = 0;
        block->capacity = capacity;
        // New blocks go to the end of the chain so that a scan from the head
        // visits the older, already warm blocks first.
        block->next = nullptr;
        Block** tail = &m_blocks;
        while (*tail)
            tail = &(*tail)->next;
        *tail = block;
        m_block = block;
    }
    unsigned char* at = m_block->data + m_block->used;
    m_block->used += size;
    return at;
}

const void* LogBufferImpl::addDetail(LogDataType type, const void* bytes, unsigned long size) {
    static const unsigned char empty[8] = {};
    if (type == LogRaw) {
        // The raw form keeps its 32-bit length in front of the bytes.
        uint32_t length = static_cast<uint32_t>(std::min<unsigned long>(size, m_maxDetailSize - 4));
        unsigned char* at = reserve(4 + length);
        if (!at)
            return empty;
        std::memcpy(at, &length, 4);
        if (length)
            std::memcpy(at + 4, bytes, length);
        m_bytes.store(m_bytes.load(std::memory_order_relaxed) + 4 + length, std::memory_order_relaxed);
        return at;
    }
    unsigned long stored = std::min<unsigned long>(size, m_maxDetailSize);
    unsigned char* at = reserve(stored ? stored : 1);
    if (!at)
        return empty;
    if (stored)
        std::memcpy(at, bytes, stored);
    // A text cut at the detail limit keeps its terminator.
    if (stored < size && type == LogString)
        at[stored - 1] = '\0';
    if (stored < size && type == LogUTF16 && stored >= 2) {
        at[(stored & ~1ul) - 1] = 0;
        at[(stored & ~1ul) - 2] = 0;
    }
    m_bytes.store(m_bytes.load(std::memory_order_relaxed) + stored, std::memory_order_relaxed);
    return at;
}

bool LogBufferImpl::getBlock(unsigned int& count, const void*& data, unsigned int& size) const {
    count = 0;
    data = nullptr;
    size = 0;
    return false;
}

void LogBufferImpl::Initialize() {
    if (!g_table)
        g_table = new ContextTable();
    m_state.store(1, std::memory_order_release);
}

void LogBufferImpl::Start() {
    m_state.store(2, std::memory_order_release);
}

void LogBufferImpl::shutdown() {
    flushBuffers();
    m_state.store(3, std::memory_order_release);
    // Wake the clock thread so that it sees the state and ends.
    if (LoggingTime::m_timerIdleEvent)
        LoggingTime::m_timerIdleEvent->Fire();
}

void LogBufferImpl::flushBuffers() {
    // Nothing is held back in this form of the buffer: every event's details
    // live only for the event itself.
}

LogThreadContext* LogBufferImpl::getThreadContext(unsigned int id) {
    if ((id & ReaderContextMask) == 0) {
        if (LogThreadContext* context = t_context)
            return context;
        if (m_state.load(std::memory_order_acquire) == 0)
            qzlogInitialize();
        ScopedLock guard(g_table->mutex);
        t_context = makeContext(static_cast<uint64_t>(::syscall(SYS_gettid)));
        return t_context;
    }
    if (m_state.load(std::memory_order_acquire) == 0)
        qzlogInitialize();
    ScopedLock guard(g_table->mutex);
    LogThreadContext*& context = g_table->readers[id];
    if (!context) {
        context = new LogThreadContext(new LogBufferImpl(), 0, id);
    }
    return context;
}

void LogBufferImpl::freeThreadContext(unsigned int id) {
    if (!g_table)
        return;
    if ((id & ReaderContextMask) == 0) {
        LogThreadContext* context = t_context;
        if (!context)
            return;
        t_context = nullptr;
        ScopedLock guard(g_table->mutex);
        retire(context);
        return;
    }
    ScopedLock guard(g_table->mutex);
    auto found = g_table->readers.find(id);
    if (found == g_table->readers.end())
        return;
    LogThreadContext* context = found->second;
    g_table->readers.erase(found);
    delete context->buffer;
    delete context;
}

void LogBufferImpl::getTotals(unsigned long& events, unsigned long& bytes) {
    events = 0;
    bytes = 0;
    if (!g_table)
        return;
    ScopedLock guard(g_table->mutex);
    events = g_table->retiredEvents;
    bytes = g_table->retiredBytes;
    for (LogThreadContext* context : g_table->contexts) {
        unsigned long e = 0, b = 0;
        static_cast<LogBufferImpl*>(context->buffer)->counts(e, b);
        events += e;
        bytes += b;
    }
}

void LogBufferImpl::saveAllToFile() {
    // Nothing to save: this form of the buffer keeps no history.
}

unsigned long LogBufferImpl::contextCount() {
    if (!g_table)
        return 0;
    ScopedLock guard(g_table->mutex);
    return g_table->contexts.size();
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
