//===- qzlog/detail/LogBuffer.h - The per-thread binary event buffer --*- C++ -*-===//
//
// Each thread writes its events as compact activity tokens into a 1 MiB
// buffer of its own, at the cost of a few stores and no formatting. When the
// buffer fills, the same thread closes it and hands it to every appender
// that takes raw data (a BinaryLayout appender); the bytes form the activity
// file that ActivityFile replays. There is no background writer: an idle
// thread's events stay in memory until flushBuffers, freeThreadContext or
// shutdown.
//
// Tokens are written in full the first time a value appears in a buffer and
// as short references afterwards (per-buffer identity tables), so each buffer
// is a self-contained session.
//
//===----------------------------------------------------------------------===//
#ifndef QZLOG_DETAIL_LOGBUFFER_H
#define QZLOG_DETAIL_LOGBUFFER_H

#include "qzstd/ItemPool.h"
#include "qzstd/Mutex.h"
#include "qzlog/LoggingEvent.h"
#include "qzstd/SparseArray.h"

#include <atomic>
#include <cstdint>
#include <cstring>
#include <vector>

namespace qzs {
namespace qzlib {
namespace qzlog {

class LogThreadContext;

/// The calling thread's own context, null until its first log call. Static
/// TLS (initial-exec): the library keeps to this one pointer of it.
extern __thread LogThreadContext* t_ownContext __attribute__((tls_model("initial-exec")));

/// The binary buffer of one thread context.
///
/// Thread safety: only the owning thread writes a buffer, holding its
/// context's mutex for the whole of a log call (Logger::log takes it), so
/// addEvent and addDetail take no lock of their own: REQUIRES the context's
/// mutex held. flushBuffers, saveAllToFile and getTotals reach other threads'
/// buffers under that mutex.
/// Lock order: context storage mutex, then a context mutex, then the buffer
/// mutex (m_bufferMutex), then whatever appenders take.
class LogBufferImpl : public LogBuffer {
public:
    /// The 8-byte head of a pool buffer; never written to a file.
    struct ControlData {
        uint32_t size;       ///< token bytes behind the head
        uint32_t eventCount; ///< events counted in this buffer
    };

    /// One pool item: the link word (the control data once taken) and the
    /// token area, 1 MiB in all.
    struct LogBufferPoolItem : LinkedItem<LogBufferPoolItem> {
        unsigned char bytes[0xFFFF8];
    };

    LogBufferImpl();
    /// Delivers what the buffer holds (cycleBuffer(false)).
    ~LogBufferImpl() override;
    LogBufferImpl(const LogBufferImpl&) = delete;
    LogBufferImpl& operator=(const LogBufferImpl&) = delete;

    /// Opens `event` in the buffer: its event token and whichever of logger,
    /// level and time changed since the previous event.
    void addEvent(LoggingEvent* event) override;
    /// Appends one detail of the open event; writes nothing and returns the
    /// cursor when no event is open. Payloads over 64 KiB are cut.
    const void* addDetail(LogDataType type, const void* data, unsigned long length) override;

    /// addEvent for the usual event: nothing open, room left, and the same
    /// logger, level and time as the previous event of a statement already
    /// written in full here, so only the short event token is due. Anything
    /// else goes to addEvent.
    void openEvent(LoggingEvent* event) {
        const EventAttributes& ea = event->attributes;
        const LocationIndependentAttributes& now = ea.attributes;
        const LocationIndependentAttributes& before = eventAttributes.attributes;
        if (__builtin_expect(openDetails != 0 || remaining < 9 || !currentBuffer ||
                                 now.loggerId != before.loggerId || now.level != before.level ||
                                 now.time.tv_sec != before.time.tv_sec ||
                                 now.time.tv_usec != before.time.tv_usec || !eventIds.find(ea.eventId),
                             0)) {
            addEvent(event);
            return;
        }
        eventAttributes = ea;
        eventStart = cursor;
        write8('A');
        write32(ea.eventId);
        write32(ea.attributes.sequence);
        remaining -= 9;
        currentBuffer->eventCount += 1;
        currentEvent = event;
        detailStart = cursor;
        openDetails = ea.location ? ea.location->argCount : 0;
    }
    /// addDetail for a value of at most 8 bytes held in `bits`: one 8-byte
    /// store, the bytes past `length` overwritten by what follows. Returns
    /// where the value lies.
    const void* addValueDetail(LogDataType type, uint64_t bits, uint32_t length) {
        if (__builtin_expect(openDetails == 0 || remaining <= 13, 0))
            return addDetail(type, &bits, length);
        unsigned char* at = cursor + 1;
        *cursor = static_cast<unsigned char>(type);
        std::memcpy(at, &bits, 8);
        cursor = at + length;
        remaining -= length + 1;
        --openDetails;
        return at;
    }

    /// Records in `event` where it lies in this buffer, once it is complete
    /// (LoggingEvent::setBufferLocation).
    void locate(LoggingEvent& event) const {
        event.bufferBlock = reinterpret_cast<uintptr_t>(currentBuffer);
        event.bufferStart = eventStart;
        event.bufferLength = eventStart && cursor ? static_cast<uint64_t>(cursor - eventStart) : 0;
    }

    /// Raw copy with no type byte; false (nothing written) unless it fits.
    bool addDetail(const void* data, unsigned long length);
    /// Token writers; each checks its room first and writes nothing when the
    /// token does not fit.
    unsigned long storeString(const char* text);
    bool storeEvent(const EventAttributes& attributes);
    bool storeLogger(unsigned short loggerId);
    bool storeLevel(unsigned char level);
    /// Closes the open event although details are missing (a replayed event
    /// cut off by the end of its file); what was written stays.
    void closeEvent() {
        openDetails = 0;
        currentEvent = nullptr;
    }
    /// Records the token bytes in the control data; null with no buffer.
    ControlData* setBufferControlData();
    /// Closes and delivers the current buffer; with `renew`, starts a new one
    /// and moves a half-written event into it whole.
    void cycleBuffer(bool renew);

    /// For LoggingEvent::setBufferLocation and the raw-data appenders.
    const ControlData* getCurrentBuffer() const { return currentBuffer; }
    const unsigned char* getEventStart() const { return eventStart; }
    const unsigned char* getCursor() const { return cursor; }
    uint32_t getRemaining() const { return remaining; }

    /// The closed buffer being delivered: its event count, token data and size.
    bool getBlock(unsigned int& count, const void*& data, unsigned int& size) const;

    /// Life cycle: 0 before start-up, 1 initialised, 2 started, 3 shutting
    /// down, 4 stopped.
    static std::atomic<uint32_t> m_state;
    /// The largest payload of one detail.
    static constexpr uint32_t m_maxDetailSize = 0x10000;
    /// The 16-byte session start marker.
    static const unsigned char m_LogStartData[16];

    static void Initialize();
    static void Start();
    /// Final flush; the state goes to 3 (ending the clock thread), then 4.
    static void shutdown();
    /// Delivers every thread's buffer now and leaves none current.
    static void flushBuffers();
    /// The context of the calling thread for any id below 0x10000000 (made
    /// on first use); ids with a top-four bit set name reader-side contexts,
    /// also made on first use.
    static LogThreadContext* getThreadContext(unsigned int id);
    /// getThreadContext(0) with its usual answer inline: one load from the
    /// thread pointer.
    static LogThreadContext* ownContext() {
        LogThreadContext* own = t_ownContext;
        return own ? own : getThreadContext(0);
    }
    /// Returns once every other thread's log call under way has ended.
    /// REQUIRES: no logging lock held; see AppenderListChange.
    static void waitForLogCalls();
    /// What the live threads counted for logger `id`, added to the totals;
    /// ended threads' counts are in the logger's own fields.
    static void sumLoggerCounts(unsigned short id, uint64_t& logged, uint64_t& issued);
    /// Destroys the context `id` (0: the calling thread's), delivering its
    /// buffer first.
    static void freeThreadContext(unsigned int id);
    /// Delivered totals plus what the open buffers hold.
    static void getTotals(unsigned long& events, unsigned long& bytes);
    /// Emergency dump of every open buffer to "qzlog-%I.dmp" (or
    /// "qzlog-%I-%P.dmp") in the dump directory; the buffers carry on.
    static void saveAllToFile();
    /// The contexts that exist now, reader-side ones included.
    static unsigned long contextCount();
    /// The mutex that every delivery of a full buffer holds: taken before
    /// the repository mutex (see ConfigurationPause).
    static MultiThreading::Mutex& deliveryMutex();

    ControlData* currentBuffer;
    unsigned char* cursor;
    uint32_t remaining;
    EventAttributes eventAttributes;
    LoggingEvent* currentEvent;
    unsigned char* eventStart;
    unsigned char* detailStart;
    /// Details the open event still expects; 0: no event open. Guarded by
    /// the context's mutex like the rest of the buffer.
    uint32_t openDetails;
    SparseArray<unsigned short, unsigned long> stringIds;
    SparseArray<unsigned int, unsigned int> eventIds;
    SparseArray<unsigned short, unsigned short> loggerIds;
    SparseArray<unsigned char, unsigned char> levelIds;
    /// The context this buffer belongs to; set when the two are linked.
    LogThreadContext* context;

private:
    const void* addDetailSlow(LogDataType type, const void* data, unsigned long length);
    void write8(unsigned char v) { *cursor++ = v; }
    void write16(uint16_t v) {
        std::memcpy(cursor, &v, 2);
        cursor += 2;
    }
    void write32(uint32_t v) {
        std::memcpy(cursor, &v, 4);
        cursor += 4;
    }
    void writeBytes(const void* data, size_t n) {
        if (n)
            std::memcpy(cursor, data, n);
        cursor += n;
    }
    void resetEventAttributes();
};

} // namespace qzlog
} // namespace qzlib
} // namespace qzs

#endif // QZLOG_DETAIL_LOGBUFFER_H
