//===- qzstd/Mutex.h - Mutexes, spin locks and the scoped guard -*- C++ -*-===//
//
// Thin wrappers over the POSIX lock primitives that every subsystem locks
// through. Their one decision that matters everywhere: a failing call is not
// returned to the caller but reported (catalogue message 542 or 543), and the
// caller carries on as if the call had worked. Only TryLock returns a result.
//
//===----------------------------------------------------------------------===//
#ifndef QZSTD_MUTEX_H
#define QZSTD_MUTEX_H

#include "qzstd/Export.h"

#include <pthread.h>

#include <atomic>

// Under ThreadSanitizer a FastMutex tells it when it is taken and released,
// so that it checks lock order on these locks as on the others.
#if defined(__SANITIZE_THREAD__)
#define QZ_TSAN_FAST_MUTEX 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define QZ_TSAN_FAST_MUTEX 1
#endif
#endif
#ifdef QZ_TSAN_FAST_MUTEX
#include <sanitizer/tsan_interface.h>
#define QZ_TSAN_MUTEX(call) __tsan_mutex_##call
#else
#define QZ_TSAN_MUTEX(call) ((void)0)
#endif

namespace qzs {
namespace qzlib {
namespace MultiThreading {

namespace detail {
/// pthread_self() without the call: on x86-64 with glibc a thread's pthread_t
/// is its thread control block, whose first word points at itself.
inline pthread_t currentThread() {
#if defined(__x86_64__) && defined(__GLIBC__)
    pthread_t self;
    __asm__("mov %%fs:0, %0" : "=r"(self));
    return self;
#else
    return pthread_self();
#endif
}
} // namespace detail

/// A POSIX mutex, recursive by default.
///
/// | Type | Kind | Re-lock by the owner |
/// |---|---|---|
/// | Recursive (0) | PTHREAD_MUTEX_RECURSIVE | counts; needs as many Unlock calls |
/// | ErrorCheck (1) | PTHREAD_MUTEX_ERRORCHECK | Lock reports EDEADLK; TryLock answers false |
///
/// Kept a base class on purpose: the thread-context table derives from it.
/// The destructor takes and releases the lock once, so it waits for a holder.
class QZ_API Mutex {
public:
    enum Type { Recursive = 0, ErrorCheck = 1 };

    explicit Mutex(Type type = Recursive);
    virtual ~Mutex();
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    /// Blocks until held. A failure is reported and the caller proceeds.
    void Lock();
    /// True if taken. EBUSY and EDEADLK answer false silently.
    bool TryLock();
    void Unlock();

    pthread_mutex_t* native() { return &m_mutex; }

private:
    pthread_mutex_t m_mutex;
};

/// A process-private POSIX spin lock; spinning and fairness are the platform's.
class QZ_API Spinlock {
public:
    Spinlock();
    ~Spinlock();
    Spinlock(const Spinlock&) = delete;
    Spinlock& operator=(const Spinlock&) = delete;

    void Lock();
    bool TryLock();
    void Unlock();

private:
    pthread_spinlock_t m_lock;
};

/// A recursive lock for short sections on hot paths, such as the log call.
/// Taking and releasing it when no other thread holds it is one atomic
/// operation each, inline; a thread that finds it taken spins briefly and
/// then sleeps on a futex. Same contract as a Recursive Mutex: the owner may
/// take it again and releases it as often; Unlock by another thread than the
/// owner is misuse and is ignored. It cannot be waited on with a condition
/// variable (no native handle). Not shared between processes.
class QZ_API FastMutex {
public:
    FastMutex() { QZ_TSAN_MUTEX(create(this, 0)); }
    ~FastMutex() { QZ_TSAN_MUTEX(destroy(this, 0)); }
    FastMutex(const FastMutex&) = delete;
    FastMutex& operator=(const FastMutex&) = delete;

    void Lock() {
        const pthread_t self = detail::currentThread();
        // Only this thread ever stores its own id, so reading it back means
        // this thread holds the lock.
        if (m_owner.load(std::memory_order_relaxed) == self) {
            ++m_depth;
            return;
        }
        QZ_TSAN_MUTEX(pre_lock(this, 0));
        int expected = 0;
        if (!m_state.compare_exchange_strong(expected, 1, std::memory_order_acquire,
                                             std::memory_order_relaxed))
            lockContended();
        m_owner.store(self, std::memory_order_relaxed);
        m_depth = 1;
        QZ_TSAN_MUTEX(post_lock(this, 0, 0));
    }
    /// True if taken (or already held by this thread).
    bool TryLock();
    void Unlock() {
        if (m_owner.load(std::memory_order_relaxed) != detail::currentThread())
            return;
        if (--m_depth != 0)
            return;
        QZ_TSAN_MUTEX(pre_unlock(this, 0));
        m_owner.store(pthread_t(), std::memory_order_relaxed);
        if (m_state.fetch_sub(1, std::memory_order_release) != 1)
            wakeWaiter();
        QZ_TSAN_MUTEX(post_unlock(this, 0));
    }

private:
    void lockContended();
    void wakeWaiter();

    // 0 free, 1 held, 2 held and a thread may sleep on it.
    std::atomic<int> m_state{0};
    std::atomic<pthread_t> m_owner{pthread_t()};
    unsigned int m_depth = 0;
};

/// A lock for state that one thread, its owner, enters all the time and other
/// threads seldom: a thread's log buffer, which a flush or a dump from another
/// thread may take away. The owner enters and leaves its section with plain
/// stores, no atomic read-modify-write and no fence. The rare other thread
/// pays instead: it takes an inner FastMutex, raises a request, has the
/// kernel put a memory barrier on every running thread of the process
/// (membarrier, private expedited) and waits until the owner is out. An owner
/// that finds the request raised goes round by the inner mutex, and so waits
/// until the other thread is done.
///
/// | Caller | Takes it by | Cost when nobody else holds it |
/// |---|---|---|
/// | the owner, for its section | ownerLock / ownerUnlock | two plain stores and a load |
/// | any other thread | Lock / Unlock | a FastMutex, one system call, a wait for the owner |
/// | the owner, outside its section or inside it | Lock / Unlock | a FastMutex only |
///
/// Where the kernel refuses the barrier (an old kernel, a sandbox that filters
/// it, valgrind) and under ThreadSanitizer, the owner's entry is a
/// sequentially consistent store instead: dearer, still no read-modify-write.
///
/// REQUIRES: ownerLock is called by the owner named in setOwner, never nested.
/// Lock is recursive. A section must not wait for something that a thread
/// holding the lock from outside may hold while it waits for the section.
class QZ_API BiasedLock {
public:
    BiasedLock();
    ~BiasedLock() = default;
    BiasedLock(const BiasedLock&) = delete;
    BiasedLock& operator=(const BiasedLock&) = delete;

    /// The thread whose sections are cheap; set before it first enters and
    /// before other threads see the lock. Without an owner the lock is a
    /// plain FastMutex.
    void setOwner(pthread_t owner) { m_owner = owner; }

    void ownerLock() {
        if (s_asymmetric) {
            m_busy.store(1, std::memory_order_relaxed);
            // The other side's barrier orders this store before the load below.
            std::atomic_signal_fence(std::memory_order_seq_cst);
        } else {
            m_busy.store(1, std::memory_order_seq_cst);
        }
        // A retired owner (see retire) goes round by the mutex too; the flag
        // is set before the request falls, so it is seen here after it.
        if (__builtin_expect(m_request.load(std::memory_order_seq_cst) != 0 ||
                                 m_retired.load(std::memory_order_relaxed),
                             0))
            ownerLockSlow();
    }
    void ownerUnlock() {
        if (__builtin_expect(m_ownerHolds, 0)) {
            ownerUnlockSlow();
        } else {
            m_busy.store(0, std::memory_order_release);
            m_exits.store(m_exits.load(std::memory_order_relaxed) + 1, std::memory_order_release);
        }
    }
    /// The owner: whether it is inside a section it entered with plain stores.
    bool ownerInside() const { return m_busy.load(std::memory_order_relaxed) != 0; }

    /// Another thread, after processBarrier(): returns once the owner's
    /// section under way, if any, has ended. A section begun after the
    /// barrier is not waited for: it sees whatever the caller stored before.
    void waitForOwnerSection() const;
    /// Makes this thread's earlier stores visible to every running thread
    /// before its later loads, as the other side of owners' plain stores:
    /// the kernel barrier where owners use them, else a fence.
    static void processBarrier();

    /// Waits until the owner is outside its section and keeps it out until
    /// Unlock. Recursive.
    void Lock();
    void Unlock();

    /// True when owners enter with plain stores (the kernel barrier works).
    static bool isAsymmetric() { return s_asymmetric; }

    /// Names the calling thread the owner if there is none yet and the lock
    /// was never retired; true if it is the owner now.
    bool adopt();
    /// Ends the bias for good: from now on the owner's sections take the
    /// mutex like everyone, and Lock is the mutex alone. REQUIRES: held by
    /// Lock from another thread than the owner.
    void retire() { m_retired.store(true, std::memory_order_relaxed); }
    bool isRetired() const { return m_retired.load(std::memory_order_relaxed); }

private:
    void ownerLockSlow();
    void ownerUnlockSlow();

    std::atomic<unsigned int> m_busy{0};    // the owner is inside its section
    std::atomic<unsigned int> m_request{0}; // a holder from outside waits or works
    std::atomic<unsigned int> m_exits{0};   // sections the owner ended with plain stores
    std::atomic<bool> m_retired{false};     // the bias has ended (see retire)
    bool m_ownerHolds = false;              // the owner's section holds m_mutex
    bool m_raised = false;                  // the outermost Lock raised the request
    unsigned int m_depth = 0;               // Lock depth, under m_mutex
    pthread_t m_owner{};
    FastMutex m_mutex;

    static bool s_asymmetric;
};

/// A lock that one thread takes far more often than any other for as long as
/// that holds: an appender that one thread logs to. The first thread to take
/// it by LockOften becomes its owner and takes it with plain stores (the
/// section of a BiasedLock); other threads take it by Lock, at the cost of a
/// process barrier. The first time another thread takes it by LockOften, the
/// bias ends for good, and it is a FastMutex for everyone from then on.
/// Recursive. Unlock matches either kind of taking.
class QZ_API AdaptiveLock {
public:
    AdaptiveLock() = default;
    AdaptiveLock(const AdaptiveLock&) = delete;
    AdaptiveLock& operator=(const AdaptiveLock&) = delete;

    void LockOften() {
        if (m_owner.load(std::memory_order_relaxed) == detail::currentThread()) {
            if (m_depth++ == 0)
                m_lock.ownerLock();
            return;
        }
        lockOftenSlow();
    }
    void Lock();
    void Unlock() {
        if (m_owner.load(std::memory_order_relaxed) == detail::currentThread() && m_depth != 0) {
            if (--m_depth == 0)
                m_lock.ownerUnlock();
            return;
        }
        m_lock.Unlock();
    }
    /// Whether the lock still favours one thread.
    bool isBiased() const { return m_owner.load(std::memory_order_relaxed) != pthread_t() && !m_lock.isRetired(); }

private:
    void lockOftenSlow();

    BiasedLock m_lock;
    std::atomic<pthread_t> m_owner{pthread_t()}; // set once, by adoption
    unsigned int m_depth = 0;                    // the owner's nested sections; owner only
};

/// Scoped guard over a lock pointer and its kind (1 Mutex, 2 Spinlock,
/// 3 FastMutex, 4 BiasedLock taken from outside, 5 AdaptiveLock by Lock).
/// Locks in the constructor; unlocks the right kind in the destructor unless
/// the pointer is null or release() was called.
class QZ_API ScopedLock {
public:
    enum Kind { KindMutex = 1, KindSpinlock = 2, KindFast = 3, KindBiased = 4, KindAdaptive = 5 };

    explicit ScopedLock(Mutex* m) : m_lock(m), m_kind(KindMutex) {
        if (m)
            m->Lock();
    }
    explicit ScopedLock(Mutex& m) : ScopedLock(&m) {}
    explicit ScopedLock(Spinlock* s) : m_lock(s), m_kind(KindSpinlock) {
        if (s)
            s->Lock();
    }
    explicit ScopedLock(Spinlock& s) : ScopedLock(&s) {}
    explicit ScopedLock(FastMutex& f) : m_lock(&f), m_kind(KindFast) { f.Lock(); }
    explicit ScopedLock(BiasedLock& b) : m_lock(&b), m_kind(KindBiased) { b.Lock(); }
    explicit ScopedLock(AdaptiveLock& a) : m_lock(&a), m_kind(KindAdaptive) { a.Lock(); }
    ~ScopedLock() { unlock(); }
    ScopedLock(const ScopedLock&) = delete;
    ScopedLock& operator=(const ScopedLock&) = delete;

    /// Unlocks now; the destructor then does nothing.
    void unlock() {
        if (!m_lock)
            return;
        if (m_kind == KindMutex)
            static_cast<Mutex*>(m_lock)->Unlock();
        else if (m_kind == KindFast)
            static_cast<FastMutex*>(m_lock)->Unlock();
        else if (m_kind == KindBiased)
            static_cast<BiasedLock*>(m_lock)->Unlock();
        else if (m_kind == KindAdaptive)
            static_cast<AdaptiveLock*>(m_lock)->Unlock();
        else
            static_cast<Spinlock*>(m_lock)->Unlock();
        m_lock = nullptr;
    }

private:
    void* m_lock;
    int m_kind;
};

} // namespace MultiThreading
} // namespace qzlib
} // namespace qzs

#endif // QZSTD_MUTEX_H
