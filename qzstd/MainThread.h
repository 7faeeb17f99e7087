//===- qzstd/MainThread.h - main as a thread of the library ----*- C++ -*-===//
//
// MainThread runs a process's main as if it were a Thread: it gets a Thread
// object, a generated name, and an ordered list of exit functions that run
// last in, first out when main ends or the process exits through Exit.
//
//===----------------------------------------------------------------------===//
#ifndef QZSTD_MAINTHREAD_H
#define QZSTD_MAINTHREAD_H

#include "qzstd/Export.h"

#include "qzstd/Mutex.h"
#include "qzstd/Thread.h"

#include <deque>

namespace qzs {
namespace qzlib {
namespace MultiThreading {

/// The wrapped main. Use it as:
///
///   int realMain(int argc, char** argv);
///   int main(int argc, char** argv) { MainThread m(realMain); return m.Run(argc, argv); }
///
/// Kept on purpose: an exit function that calls Exit re-enters the dispatch
/// and runs itself again; an exit function may register further functions,
/// which run next.
class QZ_API MainThread : public Thread {
public:
    explicit MainThread(int (*mainFunction)(int, char**));
    /// Runs the exit functions, then clears the instance.
    ~MainThread() override;

    /// Runs main on the calling thread and returns its result.
    int Run(int argc, char** argv);
    int ExecMain();
    static unsigned int MainDispatcher(void* self);

    void RegisterExitFunction(void (*function)());
    /// Registers on the instance; does nothing when there is none.
    static void AtExit(void (*function)());
    /// Runs the exit functions, most recent first, removing each after it ran.
    void DispatchExitFunctions();
    /// Runs the exit functions, then exit(code).
    [[noreturn]] static void Exit(int code);

    static MainThread* m_instance;

private:
    int (*mainFunction)(int, char**);
    int argc;
    char** argv;
    Mutex exitLock;
    std::deque<void (*)()> exitFunctions;
};

} // namespace MultiThreading
} // namespace qzlib
} // namespace qzs

#endif // QZSTD_MAINTHREAD_H
