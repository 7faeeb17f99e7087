//===- qzlog/detail/LogThreadContext.h - Per-thread logging record ----*- C++ -*-===//
//
// What the logging path keeps per thread: its buffer, its number, its name
// and the recursion mark of the log call.
//
//===----------------------------------------------------------------------===//
#ifndef QZLOG_DETAIL_LOGTHREADCONTEXT_H
#define QZLOG_DETAIL_LOGTHREADCONTEXT_H

#include "qzstd/Mutex.h"

#include <atomic>
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
    /// Held by the owning thread for the whole of each log call (ownerLock),
    /// and by a flush, a dump or a count from another thread (Lock). Biased
    /// to the owner, which enters at every event with plain stores and almost
    /// never meets another holder.
    MultiThreading::BiasedLock mutex;
    unsigned int threadContextNumber;
    unsigned int recursion;
    int savedErrno;

    /// What this thread counted for one logger: events that began there, and
    /// events offered to its appenders (one per appender).
    struct LoggerCounts {
        std::atomic<uint64_t> logged{0};
        std::atomic<uint64_t> issued{0};
    };
    static constexpr unsigned CountPageBits = 8;
    static constexpr unsigned CountPages = 0x10000u >> CountPageBits;

    /// This thread's counts for logger `loggerId`, made on first use; null
    /// only when memory ran out. REQUIRES: the owning thread. The owner is
    /// the only writer, so a count goes up by a load and a store, no
    /// read-modify-write; others read them (sumCounts) and the thread's end
    /// folds them into the logger's own.
    LoggerCounts* counts(unsigned short loggerId) {
        LoggerCounts* page = countPages[loggerId >> CountPageBits].load(std::memory_order_relaxed);
        if (__builtin_expect(!page, 0))
            page = newCountPage(loggerId >> CountPageBits);
        return page ? page + (loggerId & ((1u << CountPageBits) - 1)) : nullptr;
    }
    static void bump(std::atomic<uint64_t>& count, uint64_t by) {
        count.store(count.load(std::memory_order_relaxed) + by, std::memory_order_relaxed);
    }
    /// Adds this thread's counts for `loggerId` to the two totals.
    void sumCounts(unsigned short loggerId, uint64_t& logged, uint64_t& issued) const;
    /// Calls `fold(id, logged, issued)` for each logger this thread counted.
    template <typename Fold> void forEachCount(Fold fold) const {
        for (unsigned p = 0; p < CountPages; ++p)
            if (const LoggerCounts* page = countPages[p].load(std::memory_order_acquire))
                for (unsigned i = 0; i < (1u << CountPageBits); ++i) {
                    const uint64_t logged = page[i].logged.load(std::memory_order_relaxed);
                    const uint64_t issued = page[i].issued.load(std::memory_order_relaxed);
                    if (logged || issued)
                        fold(static_cast<unsigned short>((p << CountPageBits) | i), logged, issued);
                }
    }

    /// Per-thread caches of the logging path, kept here rather than in
    /// thread-local variables of their own so that the library needs only one
    /// pointer of static TLS (it may be loaded with dlopen). Owned.
    LocationSlot locationCache[LocationSlots];
    void* timeCache;
    void (*freeTimeCache)(void*);

    /// Pages of LoggerCounts, 256 loggers each, published with release.
    std::atomic<LoggerCounts*> countPages[CountPages];

    /// The last number handed out; numbers start at 1.
    static unsigned int m_threadContextNumber;

private:
    LoggerCounts* newCountPage(unsigned page);
};

} // namespace qzlog
} // namespace qzlib
} // namespace qzs

#endif // QZLOG_DETAIL_LOGTHREADCONTEXT_H
