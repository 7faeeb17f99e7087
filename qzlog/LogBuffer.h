//===- qzlog/LogBuffer.h - The per-thread event buffer ---------*- C++ -*-===//
//
// Each thread stores its events' arguments raw in a buffer of its own, so the
// log path takes no lock for them and formats nothing.
//
// This is the in-memory form of the buffer: it keeps each event's details in
// a per-thread scratch area that is reused from one event to the next, counts
// events and bytes, and owns the table of thread contexts. Writing the
// details as an activity token stream and delivering full buffers to raw-data
// appenders plug in behind the same interface.
//
//===----------------------------------------------------------------------===//
#ifndef QZLOG_LOGBUFFER_H
#define QZLOG_LOGBUFFER_H

#include "qzlog/LoggingEvent.h"

#include <atomic>
#include <cstdint>
#include <vector>

namespace qzs {
namespace qzlib {
namespace qzlog {

class LogThreadContext;

/// The buffer of one thread. Only its own thread writes it.
class LogBufferImpl : public LogBuffer {
public:
    LogBufferImpl();
    ~LogBufferImpl() override;

    void addEvent(LoggingEvent* event) override;
    const void* addDetail(LogDataType type, const void* bytes, unsigned long size) override;

    /// Where the current event's bytes begin, and how far they reach.
    uintptr_t currentBlock() const { return reinterpret_cast<uintptr_t>(m_block); }
    const unsigned char* eventStart() const { return m_block ? m_block->data : nullptr; }
    uint64_t writtenLength() const { return m_block ? m_block->used : 0; }

    /// Events and detail bytes this buffer has taken.
    void counts(unsigned long& events, unsigned long& bytes) const;

    /// The finished block ready for raw-data appenders: its event count, data
    /// and size. False when there is none (this in-memory form keeps none).
    bool getBlock(unsigned int& count, const void*& data, unsigned int& size) const;

    /// Life cycle: 0 before start-up, 1 initialised, 2 started, 3 shut down.
    static std::atomic<uint32_t> m_state;
    /// The largest payload of one detail.
    static constexpr uint32_t m_maxDetailSize = 0x10000;

    static void Initialize();
    static void Start();
    /// Final flush; the state becomes 3, which also ends the time thread.
    static void shutdown();
    /// Delivers every thread's pending events to the raw-data appenders.
    static void flushBuffers();
    /// The context of the calling thread for any id below 0x10000000 (made
    /// on first use); ids with a top-four bit set name reader-side contexts,
    /// kept in a table and made on first use too.
    static LogThreadContext* getThreadContext(unsigned int id);
    /// Destroys the context `id` (0: the calling thread's).
    static void freeThreadContext(unsigned int id);
    static void getTotals(unsigned long& events, unsigned long& bytes);
    static void saveAllToFile();
    /// The contexts that exist now, for reports and tests.
    static unsigned long contextCount();

private:
    struct Block {
        Block* next;
        uint64_t used;
        uint64_t capacity;
        unsigned char data[1];
    };
    Block* m_block;   // the block the current event writes to
    Block* m_blocks;  // every block this buffer owns, reused from event to event
    std::atomic<uint64_t> m_events;
    std::atomic<uint64_t> m_bytes;

    unsigned char* reserve(uint64_t size);
};

} // namespace qzlog
} // namespace qzlib
} // namespace qzs

#endif // QZLOG_LOGBUFFER_H
