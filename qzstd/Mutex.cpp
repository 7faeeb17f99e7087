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
#include <climits>
#include <linux/futex.h>
#include <linux/membarrier.h>
#include <sched.h>
#include <sys/mman.h>
#include <time.h>
#include <sys/syscall.h>
#include <unistd.h>

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

namespace {
long futex(std::atomic<int>* word, int op, int value) {
    return ::syscall(SYS_futex, reinterpret_cast<int*>(word), op | FUTEX_PRIVATE_FLAG, value,
                     nullptr, nullptr, 0);
}
} // namespace

bool FastMutex::TryLock() {
    const pthread_t self = pthread_self();
    if (m_owner.load(std::memory_order_relaxed) == self) {
        ++m_depth;
        return true;
    }
    QZ_TSAN_MUTEX(pre_lock(this, __tsan_mutex_try_lock));
    int expected = 0;
    if (!m_state.compare_exchange_strong(expected, 1, std::memory_order_acquire,
                                         std::memory_order_relaxed)) {
        QZ_TSAN_MUTEX(post_lock(this, __tsan_mutex_try_lock | __tsan_mutex_try_lock_failed, 0));
        return false;
    }
    m_owner.store(self, std::memory_order_relaxed);
    m_depth = 1;
    QZ_TSAN_MUTEX(post_lock(this, __tsan_mutex_try_lock, 0));
    return true;
}

void FastMutex::lockContended() {
    // Holders keep this lock for a short while: spin a little before paying
    // for a sleep and a wake-up.
    for (int spin = 0; spin < 100; ++spin) {
        int expected = 0;
        if (m_state.load(std::memory_order_relaxed) == 0 &&
            m_state.compare_exchange_weak(expected, 1, std::memory_order_acquire,
                                          std::memory_order_relaxed))
            return;
#if defined(__x86_64__) || defined(__i386__)
        __builtin_ia32_pause();
#endif
    }
    // Mark the lock as having a sleeper before each sleep, so that the
    // holder's release wakes one. A spurious or interrupted wake-up only
    // loops.
    while (m_state.exchange(2, std::memory_order_acquire) != 0)
        futex(&m_state, FUTEX_WAIT, 2);
}

void FastMutex::wakeWaiter() {
    m_state.store(0, std::memory_order_release);
    futex(&m_state, FUTEX_WAKE, 1);
}

//===-- BiasedLock ----------------------------------------------------------===//

bool BiasedLock::s_asymmetric = false;

namespace {

// Registers the process for expedited barriers, once. Owners enter on plain
// stores only after the registration worked, and from then on every holder
// from outside issues the barrier.
bool registerBarrier() {
#ifdef QZ_TSAN_FAST_MUTEX
    // ThreadSanitizer knows nothing of the kernel barrier: owners keep to
    // sequentially consistent stores, which it does understand.
    return false;
#else
    const long supported = ::syscall(SYS_membarrier, MEMBARRIER_CMD_QUERY, 0, 0);
    if (supported < 0 || !(supported & MEMBARRIER_CMD_PRIVATE_EXPEDITED))
        return false;
    return ::syscall(SYS_membarrier, MEMBARRIER_CMD_REGISTER_PRIVATE_EXPEDITED, 0, 0) == 0;
#endif
}

bool barrierRegistered() {
    static const bool registered = registerBarrier();
    return registered;
}

// The barrier for holders from outside, once registered. It cannot fail
// quietly: owners rely on it. Should the kernel refuse it after all, the
// process registers again; failing that, lowering the protection of a page
// this thread has just written makes the kernel interrupt every processor
// that runs the process to flush its TLB, which orders their stores as a
// barrier does.
void expeditedBarrier() {
    if (::syscall(SYS_membarrier, MEMBARRIER_CMD_PRIVATE_EXPEDITED, 0, 0) == 0)
        return;
    if (::syscall(SYS_membarrier, MEMBARRIER_CMD_REGISTER_PRIVATE_EXPEDITED, 0, 0) == 0 &&
        ::syscall(SYS_membarrier, MEMBARRIER_CMD_PRIVATE_EXPEDITED, 0, 0) == 0)
        return;
    static FastMutex pageLock;
    static void* page = ::mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ScopedLock guard(pageLock);
    if (page == MAP_FAILED || ::mprotect(page, 4096, PROT_READ | PROT_WRITE) != 0) {
        // Nothing left that orders other processors' stores: wait long
        // enough for any store buffer to drain.
        const timespec nap{0, 1000 * 1000};
        nanosleep(&nap, nullptr);
        return;
    }
    *static_cast<volatile char*>(page) = 1;
    ::mprotect(page, 4096, PROT_NONE);
}

} // namespace

BiasedLock::BiasedLock() {
    // Decided before any owner enters: the first lock made registers.
    if (barrierRegistered() && !__atomic_load_n(&s_asymmetric, __ATOMIC_RELAXED))
        __atomic_store_n(&s_asymmetric, true, __ATOMIC_RELEASE);
}

void BiasedLock::ownerLockSlow() {
    // A holder from outside is at work, or about to be: step out of the way
    // and queue on the mutex it holds; the section then runs under it.
    m_busy.store(0, std::memory_order_release);
    m_mutex.Lock();
    m_ownerHolds = true;
}

void BiasedLock::ownerUnlockSlow() {
    m_ownerHolds = false;
    m_mutex.Unlock();
}

void BiasedLock::processBarrier() {
    if (barrierRegistered())
        expeditedBarrier();
    else
        std::atomic_thread_fence(std::memory_order_seq_cst);
}

namespace {
// Sections are short but may write to a slow file: back off from spinning
// to yielding to sleeping.
void backOff(unsigned int round) {
    if (round < 64) {
#if defined(__x86_64__) || defined(__i386__)
        __builtin_ia32_pause();
#endif
    } else if (round < 1024) {
        sched_yield();
    } else {
        const timespec nap{0, 100 * 1000};
        nanosleep(&nap, nullptr);
    }
}
} // namespace

void BiasedLock::waitForOwnerSection() const {
    if (m_busy.load(std::memory_order_seq_cst) == 0)
        return;
    // An owner that logs without pause may be inside a section at every
    // look: the count of ended sections tells that the one seen has ended.
    const unsigned int seen = m_exits.load(std::memory_order_acquire);
    for (unsigned int round = 0;
         m_busy.load(std::memory_order_acquire) != 0 && m_exits.load(std::memory_order_acquire) == seen; ++round)
        backOff(round);
}

void BiasedLock::Lock() {
    m_mutex.Lock();
    if (++m_depth != 1)
        return;
    // The owner itself: its section, if one is open, is this very caller's,
    // and other threads are kept out by the mutex. With no owner (a replay's
    // context) there is no section to wait for: the mutex alone serves.
    if (m_owner == pthread_t() || m_retired.load(std::memory_order_relaxed) ||
        pthread_equal(m_owner, pthread_self())) {
        m_raised = false;
        return;
    }
    m_request.store(1, std::memory_order_seq_cst);
    if (barrierRegistered())
        expeditedBarrier();
    // Either the owner's next entry sees the request, or its store of busy is
    // visible here now; wait for the section in progress to end.
    for (unsigned int round = 0; m_busy.load(std::memory_order_seq_cst) != 0; ++round)
        backOff(round);
    m_raised = true;
}

bool BiasedLock::adopt() {
    // Under the mutex: a thread taking the lock from outside meanwhile either
    // finishes first or finds the owner named and waits for its sections.
    m_mutex.Lock();
    if (m_owner == pthread_t() && !m_retired.load(std::memory_order_relaxed))
        m_owner = pthread_self();
    const bool owner = pthread_equal(m_owner, pthread_self()) && !m_retired.load(std::memory_order_relaxed);
    m_mutex.Unlock();
    return owner;
}

void AdaptiveLock::lockOftenSlow() {
    if (m_owner.load(std::memory_order_relaxed) == pthread_t() && !m_lock.isRetired() && m_lock.adopt()) {
        // Published after adoption; only this thread reads its own id here.
        m_owner.store(detail::currentThread(), std::memory_order_relaxed);
        m_depth = 1;
        m_lock.ownerLock();
        return;
    }
    // Another thread owns it, or it is shared already. The first such taking
    // waits the owner out once and ends the bias: two threads taking it
    // often would otherwise pay a process barrier each time.
    m_lock.Lock();
    if (!m_lock.isRetired())
        m_lock.retire();
}

void AdaptiveLock::Lock() {
    if (m_owner.load(std::memory_order_relaxed) == detail::currentThread() && m_depth != 0) {
        ++m_depth; // inside its own section already
        return;
    }
    m_lock.Lock();
}

void BiasedLock::Unlock() {
    if (m_depth == 0)
        return; // not held: misuse, ignored as FastMutex ignores it
    if (--m_depth == 0 && m_raised) {
        m_raised = false;
        m_request.store(0, std::memory_order_release);
    }
    m_mutex.Unlock();
}

} // namespace MultiThreading
} // namespace qzlib
} // namespace qzs
