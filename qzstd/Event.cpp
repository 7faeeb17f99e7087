//===- qzstd/Event.cpp - A settable event over a condition ----------------===//
#include "qzstd/Event.h"

#include "qzstd/Thread.h"

#include <cerrno>
#include <sys/time.h>
#include <time.h>

namespace qzs {
namespace qzlib {
namespace MultiThreading {

Event::Event(Type type) : m_type(type), m_fired(false), m_mutex(Mutex::ErrorCheck) {
    if (int rc = pthread_cond_init(&m_cond, nullptr))
        Thread::IssueError(rc);
}

Event::~Event() {
    pthread_cond_destroy(&m_cond);
}

void Event::Fire() {
    m_mutex.Lock();
    int rc = pthread_cond_signal(&m_cond);
    if (rc == 0)
        m_fired = true;
    m_mutex.Unlock();
    if (rc)
        Thread::IssueError(rc);
}

bool Event::IsFired() {
    m_mutex.Lock();
    bool fired = m_fired;
    m_mutex.Unlock();
    return fired;
}

void Event::Reset() {
    m_mutex.Lock();
    m_fired = false;
    m_mutex.Unlock();
}

bool Event::Wait(unsigned int milliseconds) {
    m_mutex.Lock();
    if (m_fired) {
        if (m_type != ManualReset)
            m_fired = false;
        m_mutex.Unlock();
        return true;
    }

    bool woken = false;
    int error = 0;
    if (milliseconds == 0) {
        while (!m_fired) {
            int rc = pthread_cond_wait(&m_cond, m_mutex.native());
            if (rc == 0) {
                woken = true;
            } else if (rc != EINTR) {
                error = rc;
                break;
            }
        }
    } else {
        // Absolute deadline on the condition's clock (the wall clock), built
        // from gettimeofday with the carry done by hand.
        timeval now;
        gettimeofday(&now, nullptr);
        timespec deadline;
        deadline.tv_sec = now.tv_sec + milliseconds / 1000;
        deadline.tv_nsec = now.tv_usec * 1000L + (milliseconds % 1000) * 1000000L;
        if (deadline.tv_nsec > 999999999L) {
            deadline.tv_sec += 1;
            deadline.tv_nsec -= 1000000000L;
        }
        while (!m_fired) {
            int rc = pthread_cond_timedwait(&m_cond, m_mutex.native(), &deadline);
            if (rc == 0) {
                woken = true;
            } else if (rc == ETIMEDOUT) {
                break;
            } else if (rc != EINTR) {
                error = rc;
                break;
            }
        }
    }
    // A wake-up only counts when the flag is really set: a spurious return of
    // the condition with the flag clear is not a Fire.
    woken = woken && m_fired && error == 0;
    if (woken && m_type != ManualReset)
        m_fired = false;
    m_mutex.Unlock();
    if (error)
        Thread::IssueError(error);
    return woken;
}

} // namespace MultiThreading
} // namespace qzlib
} // namespace qzs
