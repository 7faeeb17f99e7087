//===- qzlog/LogThreadContext.cpp - Per-thread logging record -------------===//
#include "qzlog/detail/LogThreadContext.h"

#include "qzstd/Thread.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <unistd.h>

namespace qzs {
namespace qzlib {
namespace qzlog {

unsigned int LogThreadContext::m_threadContextNumber = 0;

LogThreadContext::LogThreadContext(LogBuffer* buffer, uint64_t threadId, unsigned int number)
    : buffer(buffer), threadId(threadId), name(nullptr), threadContextNumber(number), recursion(0),
      savedErrno(0), locationCache(), timeCache(nullptr), freeTimeCache(nullptr) {
    for (auto& page : countPages)
        page.store(nullptr, std::memory_order_relaxed);
}

LogThreadContext::~LogThreadContext() {
    for (auto& page : countPages)
        delete[] page.load(std::memory_order_relaxed);
    std::free(name);
    if (timeCache && freeTimeCache)
        freeTimeCache(timeCache);
}

LogThreadContext::LoggerCounts* LogThreadContext::newCountPage(unsigned page) {
    // Once per 256 loggers a thread logs to; a failure leaves the counts
    // uncounted rather than the event unlogged.
    LoggerCounts* made = new (std::nothrow) LoggerCounts[1u << CountPageBits];
    if (made)
        countPages[page].store(made, std::memory_order_release);
    return made;
}

void LogThreadContext::sumCounts(unsigned short loggerId, uint64_t& logged, uint64_t& issued) const {
    if (const LoggerCounts* page = countPages[loggerId >> CountPageBits].load(std::memory_order_acquire)) {
        const LoggerCounts& c = page[loggerId & ((1u << CountPageBits) - 1)];
        logged += c.logged.load(std::memory_order_relaxed);
        issued += c.issued.load(std::memory_order_relaxed);
    }
}

const char* LogThreadContext::getName() const {
    if (name)
        return name;
    // Kept as it is: the thread asked is the calling one, which for a
    // thread's own context is the thread itself.
    if (!isReaderSide())
        if (MultiThreading::Thread* thread = MultiThreading::Thread::GetCurrentThread())
            if (!thread->GetName().empty())
                return thread->GetName().c_str();
    {
        char text[32];
        std::snprintf(text, sizeof text, "Thread %u", threadContextNumber);
        // The main thread is "main" even when another thread brought the
        // framework up and its own context was made later.
        name = ::strdup(threadId == static_cast<uint64_t>(::getpid()) ? "main" : text);
    }
    return name;
}

void LogThreadContext::setName(const char* newName) {
    std::free(name);
    name = nullptr;
    MultiThreading::Thread* thread = isReaderSide() ? nullptr : MultiThreading::Thread::GetCurrentThread();
    if (thread)
        thread->SetName(newName);
    else if (newName)
        name = ::strdup(newName);
}

size_t LogThreadContext::threadDataSize() const {
    return 13 + std::strlen(getName()) + 1;
}

size_t LogThreadContext::writeThreadData(unsigned char* out) const {
    const char* n = getName();
    const size_t nameSize = std::strlen(n) + 1;
    out[0] = 'b';
    std::memcpy(out + 1, &threadContextNumber, 4);
    std::memcpy(out + 5, &threadId, 8);
    std::memcpy(out + 13, n, nameSize);
    return 13 + nameSize;
}

void LogThreadContext::getThreadData(std::string& out) const {
    out.assign(threadDataSize(), '\0');
    writeThreadData(reinterpret_cast<unsigned char*>(&out[0]));
}

} // namespace qzlog
} // namespace qzlib
} // namespace qzs
