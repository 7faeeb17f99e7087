//===- qzstd/ThreadLocalStorage.h - Once and thread-local slots -*- C++ -*-===//
//
// One-time initialisation, POSIX thread-local keys, and the compiler-backed
// per-thread wrapper that the Unicode and conversion caches live in.
//
//===----------------------------------------------------------------------===//
#ifndef QZSTD_THREADLOCALSTORAGE_H
#define QZSTD_THREADLOCALSTORAGE_H

#include "qzstd/Export.h"

#include <pthread.h>

namespace qzs {
namespace qzlib {
namespace MultiThreading {

/// Runs `routine` exactly once for the control word `control`, which must be
/// zero-initialised (a static int). Safe from any thread, before main too.
class QZ_API Once {
public:
    Once(int& control, void (*routine)());
};

/// A POSIX thread-local key. Copies share the key. The key is never deleted.
/// REQUIRES: created before the threads that use it read it.
class QZ_API _ThreadLocalStorage {
public:
    explicit _ThreadLocalStorage(void (*destructor)(void*) = nullptr);
    ~_ThreadLocalStorage() {}

    /// The calling thread's value; null until set.
    void* get() const { return pthread_getspecific(m_key); }
    void set(void* value);

private:
    pthread_key_t m_key;
};

/// Creates the process-wide slot returned by processTLS(); for use through Once.
QZ_API void allocateTLS();
/// The process-wide slot made by allocateTLS, or null before it ran.
QZ_API _ThreadLocalStorage* processTLS();

} // namespace MultiThreading

namespace ThreadLocal {

/// Holds one T per thread in compiler-supported thread-local storage.
/// `get()` constructs the calling thread's T on first use; the T is destroyed
/// at that thread's exit, which is where a T frees what it owns.
/// N tells instances of one T apart; every user passes the all-ones value.
template <typename T, unsigned int N = ~0u>
class ThreadLocalWrapper {
public:
    static T& get() {
        static thread_local T value;
        return value;
    }
};

} // namespace ThreadLocal
} // namespace qzlib
} // namespace qzs

#endif // QZSTD_THREADLOCALSTORAGE_H
