//===- qzstd/Event.h - A settable event over a condition -------*- C++ -*-===//
//
// An event a thread can wait on, with a timeout, in manual-reset or
// auto-reset form.
//
//===----------------------------------------------------------------------===//
#ifndef QZSTD_EVENT_H
#define QZSTD_EVENT_H

#include "qzstd/Export.h"

#include "qzstd/Mutex.h"

#include <pthread.h>

namespace qzs {
namespace qzlib {
namespace MultiThreading {

/// A flag with a waiter queue.
///
/// | Type | After Fire | After a Wait that saw it fired |
/// |---|---|---|
/// | ManualReset (0) | fired | still fired, until Reset |
/// | AutoReset (any other; 1 by convention) | fired | cleared |
///
/// Kept on purpose: Fire wakes one waiter, not all. On a manual event with
/// several waiters the others wake by their own timeouts or a later Fire.
/// Thread-safe; failures of the underlying calls are reported, not returned.
class QZ_API Event {
public:
    enum Type { ManualReset = 0, AutoReset = 1 };

    explicit Event(Type type = ManualReset);
    ~Event();
    Event(const Event&) = delete;
    Event& operator=(const Event&) = delete;

    void Fire();
    bool IsFired();
    void Reset();

    /// Waits until fired, or for `milliseconds` (0 waits without limit).
    /// True if the event was fired; false on timeout or error. A timeout
    /// leaves the flag untouched.
    bool Wait(unsigned int milliseconds);

private:
    int m_type;
    bool m_fired;
    Mutex m_mutex;
    pthread_cond_t m_cond;
};

} // namespace MultiThreading
} // namespace qzlib
} // namespace qzs

#endif // QZSTD_EVENT_H
