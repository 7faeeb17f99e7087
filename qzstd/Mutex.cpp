//===- qzstd/Mutex.cpp - Mutexes and spin locks ---------------------------===//
//
// The two attribute objects are process-wide and made by the first Mutex.
// That first construction happens during single-threaded start-up, which is
// why the flag needs no guard of its own.
//
//===----------------------------------------------------------------------===//
#include "qzstd/Mutex.h"

#include "qzstd/Thread.h"

#include <cerrno>

namespace qzs {
namespace qzlib {
namespace MultiThreading {

namespace {
pthread_mutexattr_t g_attributes[2];
bool g_attributesMade = false;

void makeAttributes() {
    // Kept on purpose: the flag is set even when an attribute could not be
    // made; later mutexes then use the attribute as it stands.
    g_attributesMade = true;
    if (pthread_mutexattr_init(&g_attributes[Mutex::Recursive]) == 0)
        pthread_mutexattr_settype(&g_attributes[Mutex::Recursive], PTHREAD_MUTEX_RECURSIVE);
    if (pthread_mutexattr_init(&g_attributes[Mutex::ErrorCheck]) == 0)
        pthread_mutexattr_settype(&g_attributes[Mutex::ErrorCheck], PTHREAD_MUTEX_ERRORCHECK);
}
} // namespace

Mutex::Mutex(Type type) {
    if (!g_attributesMade)
        makeAttributes();
    // An init failure is not reported: the first use will be.
    pthread_mutex_init(&m_mutex, &g_attributes[type == ErrorCheck ? ErrorCheck : Recursive]);
}

Mutex::~Mutex() {
    // Wait for a holder that may still be on its way out.
    if (pthread_mutex_lock(&m_mutex) == 0)
        pthread_mutex_unlock(&m_mutex);
    if (int rc = pthread_mutex_destroy(&m_mutex))
        Thread::IssueWarning(rc);
}

void Mutex::Lock() {
    if (int rc = pthread_mutex_lock(&m_mutex))
        Thread::IssueError(rc);
}

bool Mutex::TryLock() {
    int rc = pthread_mutex_trylock(&m_mutex);
    if (rc == 0)
        return true;
    if (rc != EBUSY && rc != EDEADLK)
        Thread::IssueError(rc);
    return false;
}

void Mutex::Unlock() {
    if (int rc = pthread_mutex_unlock(&m_mutex))
        Thread::IssueError(rc);
}

Spinlock::Spinlock() {
    if (int rc = pthread_spin_init(&m_lock, PTHREAD_PROCESS_PRIVATE))
        Thread::IssueError(rc);
}

Spinlock::~Spinlock() {
    if (pthread_spin_lock(&m_lock) == 0)
        pthread_spin_unlock(&m_lock);
    if (int rc = pthread_spin_destroy(&m_lock))
        Thread::IssueWarning(rc);
}

void Spinlock::Lock() {
    if (int rc = pthread_spin_lock(&m_lock))
        Thread::IssueError(rc);
}

bool Spinlock::TryLock() {
    int rc = pthread_spin_trylock(&m_lock);
    if (rc == 0)
        return true;
    if (rc != EBUSY && rc != EDEADLK)
        Thread::IssueError(rc);
    return false;
}

void Spinlock::Unlock() {
    if (int rc = pthread_spin_unlock(&m_lock))
        Thread::IssueError(rc);
}

} // namespace MultiThreading
} // namespace qzlib
} // namespace qzs
