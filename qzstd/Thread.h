//===- qzstd/Thread.h - Thread objects and the thread list -----*- C++ -*-===//
//
// Thread wraps a POSIX thread with a name, an exit code that doubles as its
// state, and the misuse checks of the library. ThreadList maps kernel thread
// ids to what started them, so that any thread can be named in a report.
//
//===----------------------------------------------------------------------===//
#ifndef QZSTD_THREAD_H
#define QZSTD_THREAD_H

#include "qzstd/Export.h"

#include "qzstd/Mutex.h"

#include <cstdint>
#include <pthread.h>
#include <set>
#include <string>

namespace qzs {
namespace qzlib {
namespace MultiThreading {

class _ThreadLocalStorage;

/// 1 is detached; every other value is joinable.
enum ThreadMode { Joinable = 0, Detached = 1 };
/// 1 is process scope; every other value is system scope.
enum Scope { SystemScope = 0, ProcessScope = 1 };

/// A POSIX thread.
///
/// `exitCode` holds a state mark until the thread's function returns:
///
/// | exitCode | State |
/// |---|---|
/// | 0xbad00102 | constructed, not started |
/// | 0xbad00103 | running |
/// | 0xbad00104 | cancelled (Kill, or a join that saw a cancelled thread) |
/// | other | the function's return value |
///
/// Misuse (starting twice, joining before a start, changing attributes after
/// it) is reported (message 1112) and the operation still proceeds. A Thread
/// deleted while its thread runs is safe: the exit code is then not written.
/// The destructor does not join.
class QZ_API Thread {
public:
    static constexpr uint32_t NotStarted = 0xbad00102;
    static constexpr uint32_t Running = 0xbad00103;
    static constexpr uint32_t Cancelled = 0xbad00104;

    /// Thrown by a thread function to end its thread with exit code 0.
    class TerminateException {};

    /// What Start hands to the new thread; RunThread deletes it.
    struct ThreadArgs {
        Thread* thread;
        unsigned int (*function)(void*);
        std::string name;
        void* argument;
    };

    /// `name` may be null (an empty name).
    Thread(unsigned int (*function)(void*), const char* name, ThreadMode mode = Joinable);
    virtual ~Thread();
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;

    /// Creates the thread running function(argument).
    void Start(void* argument);
    /// Joins and returns the exit code. REQUIRES: a joinable, started thread.
    unsigned int WaitForExit();
    /// Cancels the thread; true if the cancel call succeeded.
    bool Kill();

    unsigned int GetExitCode() const { return __atomic_load_n(&exitCode, __ATOMIC_ACQUIRE); }
    pthread_t GetThreadID() const { return threadID; }
    uint64_t GetOSThreadID() const { return __atomic_load_n(&osThreadID, __ATOMIC_ACQUIRE); }
    const std::string& GetName() const { return name; }
    /// Logs the change and stores the name.
    void SetName(const char* name);

    void SetStackSize(unsigned int bytes);
    unsigned int GetStackSize() const;
    void SetScope(Scope scope);
    Scope GetScope() const;

    /// The calling thread's Thread, null for a thread this class did not make.
    static Thread* GetCurrentThread();
    static pthread_t GetCurrentThreadID() { return pthread_self(); }
    static uint64_t GetCurrentOSThreadID();
    /// The cached clock as nanoseconds since the epoch.
    static uint64_t GetTime();
    static void SetDefaultStackSizeInBytes(unsigned int bytes) { m_defaultStackSizeInBytes = bytes; }

    /// A failed threads call: logs it at DEBUG and reports message 542 with
    /// the code and the system's text for it. The caller carries on.
    static void IssueError(int rc);
    /// As IssueError, with message 543.
    static void IssueWarning(int rc);

    /// The entry of every thread this class starts, and of MainThread::Run.
    static unsigned int RunThread(ThreadArgs* args);
    static void Initialize();

    static _ThreadLocalStorage* m_pThread;
    static unsigned int m_defaultStackSizeInBytes;

protected:
    unsigned int (*function)(void*);
    std::string name;
    uint32_t exitCode;
    pthread_attr_t attributes;
    pthread_t threadID;
    uint64_t osThreadID;
    ThreadMode mode;

    friend class ActiveThreads;
};

/// The live Thread objects, so that a thread ending after its object was
/// deleted does not write into freed memory.
class QZ_API ActiveThreads {
public:
    static void Register(Thread* thread);
    static void Unregister(Thread* thread);
    /// Writes the exit code only while `thread` is still registered.
    static void SetExitCode(Thread* thread, unsigned int code);
};

/// Kernel thread id to the function and name that started the thread.
/// Thread-safe: every call takes the list's mutex.
class QZ_API ThreadList {
public:
    struct ThreadProperties {
        unsigned int (*function)(void*);
        std::string name;
    };

    static ThreadList& getInstance();
    /// Records the thread unless its id is there already. An empty name
    /// becomes "XQZ-Thread-N"; a name over 254 characters is cut to 251
    /// and "...".
    void add(unsigned long id, Thread::ThreadArgs* args);
    void remove(unsigned long id);
    /// The properties of `id`, or null. The pointer stays valid until the
    /// thread is removed.
    const ThreadProperties* get(unsigned long id) const;

    struct Impl;

private:
    ThreadList();
    Impl* impl;
};

} // namespace MultiThreading
} // namespace qzlib
} // namespace qzs

#endif // QZSTD_THREAD_H
