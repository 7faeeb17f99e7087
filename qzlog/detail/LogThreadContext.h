//===- qzlog/detail/LogThreadContext.h - Per-thread logging record ----*- C++ -*-===//
//
// What the logging path keeps per thread: its buffer, its number, its name
// and the recursion mark of the log call.
//
//===----------------------------------------------------------------------===//
#ifndef QZLOG_DETAIL_LOGTHREADCONTEXT_H
#define QZLOG_DETAIL_LOGTHREADCONTEXT_H

#include "qzstd/Mutex.h"

#include <cstdint>
#include <string>

namespace qzs {
namespace qzlib {
namespace qzlog {

class LogBuffer;

/// One thread's logging record. Only its own thread touches `recursion` and
/// `savedErrno`; `mutex` guards the buffer against a flushing thread.
class LogThreadContext {
public:
    LogThreadContext(LogBuffer* buffer, uint64_t threadId, unsigned int number);
    ~LogThreadContext();
    LogThreadContext(const LogThreadContext&) = delete;
    LogThreadContext& operator=(const LogThreadContext&) = delete;

    /// The thread's own name if set; otherwise "main" for the process's main
    /// thread and "Thread N" for any other, made once.
    const char* getName() const;
    /// Replaces the name; null clears it.
    void setName(const char* name);
    /// Replaces `out` by the binary thread record: "b", the 4-byte number,
    /// the 8-byte thread id, the name with its NUL.
    void getThreadData(std::string& out) const;
    /// The same record written at `out`, which must hold threadDataSize()
    /// bytes; returns the bytes written. Allocates nothing.
    size_t writeThreadData(unsigned char* out) const;
    size_t threadDataSize() const;

    /// A context that replays another process's thread: its number has one
    /// of the top four bits set, and its name is never the calling thread's.
    bool isReaderSide() const { return (threadContextNumber & 0xF0000000u) != 0; }

    /// One slot of the thread's cache of statement locations.
    struct LocationSlot {
        const char* file;
        unsigned short line;
        unsigned int eventId;
        void* location;
    };
    static constexpr unsigned LocationSlots = 64;

    LogBuffer* buffer;
    uint64_t threadId;
    mutable char* name;
    /// Held by the owning thread for the whole of each log call, and by a
    /// flush, a dump or a count from another thread. A FastMutex: the owner
    /// takes it at every event and almost never finds it taken.
    MultiThreading::FastMutex mutex;
    unsigned int threadContextNumber;
    unsigned int recursion;
    int savedErrno;

    /// Per-thread caches of the logging path, kept here rather than in
    /// thread-local variables of their own so that the library needs only one
    /// pointer of static TLS (it may be loaded with dlopen). Owned.
    LocationSlot locationCache[LocationSlots];
    void* timeCache;
    void (*freeTimeCache)(void*);

    /// The last number handed out; numbers start at 1.
    static unsigned int m_threadContextNumber;
};

} // namespace qzlog
} // namespace qzlib
} // namespace qzs

#endif // QZLOG_DETAIL_LOGTHREADCONTEXT_H
