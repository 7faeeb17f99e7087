//===- qzstd/Thread.cpp - Thread objects and the thread list --------------===//
//
// Records go to the logger "qzstd.multithreading" through the logging seam,
// which drops them until the framework is up. Threads run while the logging
// framework starts, so nothing here may need logging to work.
//
//===----------------------------------------------------------------------===//
#include "qzstd/Thread.h"

#include "qzstd/MessageSeam.h"
#include "qzstd/SparseArray.h"
#include "qzstd/ThreadLocalStorage.h"
#include "qzstd/detail/ThreadLog.h"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <string>
#include <sys/syscall.h>
#include <unistd.h>

namespace qzs {
namespace qzlib {
namespace MultiThreading {

namespace Level = qzlib::detail::LogLevel;

_ThreadLocalStorage* Thread::m_pThread = nullptr;
unsigned int Thread::m_defaultStackSizeInBytes = 0;

const char detail::ThreadSourceFile[] = "qzstd/MultiThreading";

qzlib::detail::LazyLogger detail::threadLog("qzstd.multithreading");

namespace {

void misuse(const char* function, const char* what, unsigned int line = __builtin_LINE()) {
    qzlib::detail::raiseFault(
        qzlib::detail::MessageSite{"qzstd", detail::ThreadSourceFile, function, line}, 1112, what);
}

const void* asPointer(unsigned int (*function)(void*)) {
    return reinterpret_cast<const void*>(function);
}

int g_initializeOnce = 0;

// The live Thread objects. Made at the first Register and never destroyed.
Mutex* g_activeMutex = nullptr;
std::set<Thread*>* g_active = nullptr;
int g_activeOnce = 0;
void makeActiveSet() {
    g_activeMutex = new Mutex(Mutex::ErrorCheck);
    g_active = new std::set<Thread*>();
}

} // namespace

void Thread::Initialize() {
    // Release pairs with the acquire in GetCurrentThread, which threads not
    // started through Thread call at any time.
    __atomic_store_n(&m_pThread, new _ThreadLocalStorage(nullptr), __ATOMIC_RELEASE);
}

Thread::Thread(unsigned int (*fn)(void*), const char* threadName, ThreadMode threadMode)
    : function(fn), name(threadName ? threadName : ""), exitCode(NotStarted), threadID(0),
      osThreadID(0), mode(threadMode) {
    ActiveThreads::Register(this);
    if (int rc = pthread_attr_init(&attributes))
        IssueError(rc);
}

Thread::~Thread() {
    ActiveThreads::Unregister(this);
    // A MainThread dies on the thread it wrapped: leave no dangling pointer
    // in that thread's slot.
    if (GetCurrentThread() == this)
        m_pThread->set(nullptr);
    pthread_attr_destroy(&attributes);
}

void Thread::Start(void* argument) {
    if (GetExitCode() != NotStarted) {
        QZ_THREAD_LOG(Level::Debug, "Start", "Thread already started");
        misuse("Thread::Start", "Thread already started");
    }
    QZ_THREAD_LOG(Level::Debug, "Start", "Starting thread for function %p", asPointer(function));
    ThreadArgs* args = new ThreadArgs{this, function, name, argument};
    if (m_defaultStackSizeInBytes != 0)
        SetStackSize(m_defaultStackSizeInBytes);
    if (mode == Detached)
        pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    // The running mark goes in before the thread exists, so that a thread
    // that ends at once cannot have its exit code overwritten by the mark.
    __atomic_store_n(&exitCode, Running, __ATOMIC_RELEASE);
    int rc = pthread_create(
        &threadID, &attributes,
        [](void* a) -> void* {
            unsigned int result = RunThread(static_cast<ThreadArgs*>(a));
            return reinterpret_cast<void*>(static_cast<uintptr_t>(result));
        },
        args);
    if (rc) {
        delete args;
        IssueError(rc);
        return;
    }
    QZ_THREAD_LOG(Level::Debug, "Start", "Thread started with id %d",
                  static_cast<unsigned long>(threadID));
}

unsigned int Thread::RunThread(ThreadArgs* args) {
    Once(g_initializeOnce, &Thread::Initialize);
    Thread* thread = args->thread;
    m_pThread->set(thread);
    const uint64_t id = GetCurrentOSThreadID();
    ThreadList::getInstance().add(id, args);
    if (thread)
        __atomic_store_n(&thread->osThreadID, id, __ATOMIC_RELEASE);
    unsigned int (*fn)(void*) = args->function;
    void* argument = args->argument;
    delete args;

    int old = 0;
    int rc = pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, &old);
    QZ_THREAD_LOG(Level::Debug, "RunThread", "Changing cancel state from %d to %d returned %d", old,
                  static_cast<int>(PTHREAD_CANCEL_ENABLE), rc);
    rc = pthread_setcanceltype(PTHREAD_CANCEL_DEFERRED, &old);
    QZ_THREAD_LOG(Level::Debug, "RunThread", "Changing cancel type  from %d to %d returned %d", old,
                  static_cast<int>(PTHREAD_CANCEL_DEFERRED), rc);

    unsigned int result = 0;
    try {
        result = fn(argument);
    } catch (const TerminateException&) {
        QZ_THREAD_LOG(Level::Debug, "RunThread",
                      "Thread with id %d is exiting due to TerminateException",
                      static_cast<unsigned long>(id));
        result = 0;
    }
    ThreadList::getInstance().remove(id);
    ActiveThreads::SetExitCode(thread, result);
    return result;
}

unsigned int Thread::WaitForExit() {
    if (GetExitCode() == NotStarted) {
        QZ_THREAD_LOG(Level::Debug, "WaitForExit", "Thread not started yet");
        misuse("Thread::WaitForExit", "Thread not started yet");
    }
    QZ_THREAD_LOG(Level::Debug, "WaitForExit", "Waiting for thread with id %d",
                  static_cast<unsigned long>(threadID));
    if (mode == Detached) {
        QZ_THREAD_LOG(Level::Debug, "WaitForExit",
                      "Cannot call pthread_join on a Thread in detached mode");
        IssueError(EINVAL);
    }
    void* result = nullptr;
    if (int rc = pthread_join(threadID, &result)) {
        IssueError(rc);
    } else if (result == PTHREAD_CANCELED) {
        __atomic_store_n(&exitCode, Cancelled, __ATOMIC_RELEASE);
    } else {
        __atomic_store_n(&exitCode, static_cast<uint32_t>(reinterpret_cast<uintptr_t>(result)),
                         __ATOMIC_RELEASE);
    }
    QZ_THREAD_LOG(Level::Debug, "WaitForExit", "Thread with id %d exited with code %u",
                  static_cast<unsigned long>(threadID), GetExitCode());
    return GetExitCode();
}

bool Thread::Kill() {
    int rc = pthread_cancel(threadID);
    __atomic_store_n(&exitCode, Cancelled, __ATOMIC_RELEASE);
    return rc == 0;
}

void Thread::SetName(const char* newName) {
    QZ_THREAD_LOG(Level::Info, "SetName", "Setting Name for Thread Function[%p] to [%s]",
                  asPointer(function), newName);
    name = newName ? newName : "";
}

void Thread::SetStackSize(unsigned int bytes) {
    if (GetExitCode() != NotStarted) {
        QZ_THREAD_LOG(Level::Debug, "SetStackSize",
                      "Cannot set the stack size after starting the thread");
        misuse("Thread::SetStackSize", "Cannot set the stack size after starting the thread");
    }
    if (int rc = pthread_attr_setstacksize(&attributes, bytes))
        IssueWarning(rc);
}

unsigned int Thread::GetStackSize() const {
    size_t size = 0;
    if (int rc = pthread_attr_getstacksize(&attributes, &size))
        IssueWarning(rc);
    return static_cast<unsigned int>(size);
}

void Thread::SetScope(Scope scope) {
    if (GetExitCode() != NotStarted) {
        QZ_THREAD_LOG(Level::Debug, "SetScope", "Cannot set the scope after starting the thread");
        misuse("Thread::SetScope", "Cannot set the scope after starting the thread");
    }
    int value = scope == ProcessScope ? PTHREAD_SCOPE_PROCESS : PTHREAD_SCOPE_SYSTEM;
    if (int rc = pthread_attr_setscope(&attributes, value))
        IssueWarning(rc);
}

Scope Thread::GetScope() const {
    int value = PTHREAD_SCOPE_SYSTEM;
    if (int rc = pthread_attr_getscope(&attributes, &value))
        IssueWarning(rc);
    return value == PTHREAD_SCOPE_PROCESS ? ProcessScope : SystemScope;
}

Thread* Thread::GetCurrentThread() {
    _ThreadLocalStorage* slot = __atomic_load_n(&m_pThread, __ATOMIC_ACQUIRE);
    return slot ? static_cast<Thread*>(slot->get()) : nullptr;
}

uint64_t Thread::GetCurrentOSThreadID() {
    return static_cast<uint64_t>(::syscall(SYS_gettid));
}

uint64_t Thread::GetTime() {
    timespec now;
    qzlib::detail::currentTime(&now);
    return static_cast<uint64_t>(now.tv_sec) * 1000000000ull + static_cast<uint64_t>(now.tv_nsec);
}

void Thread::IssueError(int rc) {
    QZ_THREAD_LOG(Level::Debug, "IssueError", "ERROR: Unexpected error encountered, rc %d", rc);
    qzlib::detail::raiseThreadFault(
        QZ_MESSAGE_SITE("qzstd", detail::ThreadSourceFile, "Thread::IssueError"), 542, rc);
}

void Thread::IssueWarning(int rc) {
    QZ_THREAD_LOG(Level::Debug, "IssueWarning", "WARNING: Unexpected error encountered, rc %d", rc);
    qzlib::detail::raiseThreadFault(
        QZ_MESSAGE_SITE("qzstd", detail::ThreadSourceFile, "Thread::IssueWarning"), 543, rc);
}

void ActiveThreads::Register(Thread* thread) {
    Once(g_activeOnce, &makeActiveSet);
    ScopedLock guard(g_activeMutex);
    g_active->insert(thread);
}

void ActiveThreads::Unregister(Thread* thread) {
    Once(g_activeOnce, &makeActiveSet);
    ScopedLock guard(g_activeMutex);
    g_active->erase(thread);
}

void ActiveThreads::SetExitCode(Thread* thread, unsigned int code) {
    if (!thread)
        return;
    Once(g_activeOnce, &makeActiveSet);
    ScopedLock guard(g_activeMutex);
    if (g_active->count(thread))
        __atomic_store_n(&thread->exitCode, code, __ATOMIC_RELEASE);
}

struct ThreadList::Impl {
    mutable Mutex mutex;
    int64_t nextId = 0;
    // A removed thread leaves a null value behind: kernel ids are reused, and
    // the table has no erase.
    SparseArray<ThreadProperties*, unsigned long> byTIDMap;
};

namespace {
ThreadList* g_threadList = nullptr;
int g_threadListOnce = 0;
} // namespace

ThreadList::ThreadList() : impl(new Impl) {}

ThreadList& ThreadList::getInstance() {
    Once(g_threadListOnce, [] { g_threadList = new ThreadList(); });
    return *g_threadList;
}

void ThreadList::add(unsigned long id, Thread::ThreadArgs* args) {
    ScopedLock guard(impl->mutex);
    ThreadProperties*& entry = impl->byTIDMap[id];
    if (entry)
        return;
    entry =
        new ThreadProperties{args ? args->function : nullptr, args ? args->name : std::string()};
    if (entry->name.empty()) {
        char text[32];
        std::snprintf(text, sizeof text, "XQZ-Thread-%ld", static_cast<long>(impl->nextId++));
        entry->name = text;
    }
    if (entry->name.size() > 254) {
        entry->name.resize(251);
        entry->name += "...";
    }
}

void ThreadList::remove(unsigned long id) {
    ScopedLock guard(impl->mutex);
    if (ThreadProperties** entry = impl->byTIDMap.find(id)) {
        delete *entry;
        *entry = nullptr;
    }
}

const ThreadList::ThreadProperties* ThreadList::get(unsigned long id) const {
    ScopedLock guard(impl->mutex);
    ThreadProperties* const* entry = impl->byTIDMap.find(id);
    return entry ? *entry : nullptr;
}

} // namespace MultiThreading
} // namespace qzlib
} // namespace qzs
