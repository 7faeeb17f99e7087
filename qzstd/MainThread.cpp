//===- qzstd/MainThread.cpp - main as a thread of the library -------------===//
#include "qzstd/MainThread.h"

#include "qzstd/MessageSeam.h"
#include "qzstd/detail/ThreadLog.h"

#include <atomic>
#include <cstdlib>

namespace qzs {
namespace qzlib {
namespace MultiThreading {

namespace Level = qzlib::detail::LogLevel;

MainThread* MainThread::m_instance = nullptr;

MainThread::MainThread(int (*main)(int, char**))
    : Thread(&MainThread::MainDispatcher, nullptr, Joinable), mainFunction(main), argc(0),
      argv(nullptr), exitLock(Mutex::Recursive) {
    if (m_instance)
        qzlib::detail::raiseFault(
            QZ_MESSAGE_SITE("qzstd", "qzstd/MultiThreading", "MainThread::MainThread"), 1112,
            "a MainThread instance exists already");
    QZ_THREAD_LOG(Level::Debug, "MainThread", "MainThread instance=%p",
                  static_cast<const void*>(this));
    // A fatal error then ends the process through the exit functions.
    qzlib::detail::setProcessExitFunction(&MainThread::Exit);
    m_instance = this;
}

MainThread::~MainThread() {
    DispatchExitFunctions();
    if (m_instance == this)
        m_instance = nullptr;
    exitFunctions.clear();
}

int MainThread::Run(int count, char** arguments) {
    if (GetExitCode() != NotStarted) {
        QZ_THREAD_LOG(Level::Debug, "Run", "Thread already started");
        qzlib::detail::raiseFault(
            QZ_MESSAGE_SITE("qzstd", "qzstd/MultiThreading", "MainThread::Run"), 1112,
            "Thread already started");
    }
    argc = count;
    argv = arguments;
    ThreadArgs* args = new ThreadArgs{this, &MainThread::MainDispatcher, std::string(), this};
    QZ_THREAD_LOG(Level::Debug, "Run", "Starting main thread for function %p",
                  reinterpret_cast<const void*>(mainFunction));
    __atomic_store_n(&exitCode, Running, __ATOMIC_RELEASE);
    return static_cast<int>(RunThread(args));
}

int MainThread::ExecMain() {
    QZ_THREAD_LOG(Level::Debug, "ExecMain", "Entering main function");
    int result = mainFunction(argc, argv);
    QZ_THREAD_LOG(Level::Debug, "ExecMain", "Exit from main function ret=%u",
                  static_cast<unsigned int>(result));
    return result;
}

unsigned int MainThread::MainDispatcher(void* self) {
    return static_cast<unsigned int>(static_cast<MainThread*>(self)->ExecMain());
}

void MainThread::RegisterExitFunction(void (*fn)()) {
    ScopedLock guard(exitLock);
    QZ_THREAD_LOG(Level::Debug, "RegisterExitFunction", "Registering exit function %p",
                  reinterpret_cast<const void*>(fn));
    exitFunctions.push_back(fn);
}

void MainThread::AtExit(void (*fn)()) {
    if (m_instance)
        m_instance->RegisterExitFunction(fn);
}

void MainThread::DispatchExitFunctions() {
    ScopedLock guard(exitLock);
    // The most recent is at the back. It is removed after its call, so that
    // functions it registers (appended behind it) run next.
    while (!exitFunctions.empty()) {
        const size_t at = exitFunctions.size() - 1;
        void (*fn)() = exitFunctions[at];
        if (fn) {
            QZ_THREAD_LOG(Level::Debug, "DispatchExitFunctions", "Dispatching exit function %p",
                          reinterpret_cast<const void*>(fn));
            fn();
        }
        if (at < exitFunctions.size())
            exitFunctions.erase(exitFunctions.begin() + static_cast<long>(at));
    }
}

void MainThread::Exit(int code) {
    if (m_instance)
        m_instance->DispatchExitFunctions();
    std::exit(code);
}

} // namespace MultiThreading
} // namespace qzlib
} // namespace qzs
