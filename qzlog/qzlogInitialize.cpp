//===- qzlog/qzlogInitialize.cpp - Start and stop of the framework --------===//
//
// The framework comes up on first touch: the first static initialiser that
// asks for a logger, an appender's constructor or a thread's first log call,
// on whatever thread, before main or after. Everything it makes lives on the
// heap and is never destroyed, so that threads still logging while the
// process exits find it intact.
//
//===----------------------------------------------------------------------===//
#include "qzlog/Logger.h"

#include "qzlog/Appender.h"
#include "qzlog/detail/FloorSeam.h"
#include "qzmsg/CAppContext.h"
#include "qzlog/detail/LogBuffer.h"
#include "qzlog/detail/LoggerName.h"
#include "qzlog/LoggerRepository.h"
#include "qzlog/LoggingTime.h"
#include "qzstd/ThreadLocalStorage.h"

#include <atomic>

namespace qzs {
namespace qzlib {
namespace qzlog {

namespace {
// Zero-initialised control words and flags: usable before any constructor
// of this library has run.
int g_threadingOnce = 0;
int g_startOnce = 0;
std::atomic<bool> g_singleThreaded{true};
std::atomic<bool> g_initialized{false};

void decideThreading() {
    // Nothing in the library asks for single-threaded mode; the branches
    // that test it stay for hosts built that way.
    g_singleThreaded.store(false, std::memory_order_release);
}

void bringUpApplicationContext() {
    // Made now, while the floor below cannot log yet: building it loads the
    // process's symbols and maps its directories, which log through the seam,
    // and would otherwise do so from inside the first file name or dump.
    getAppContext();
}

void startOnce() {
    _qzlogInitialize();
    // The floor below logs from the moment the core counts as up.
    installFloorSeam();
    g_initialized.store(true, std::memory_order_release);
    // Another thread may have made loggers while start-up ran, when nothing
    // was recalculated; give them their levels now.
    Logger::m_repository->recalculateEffectiveLevels();
    _qzlogStart();
}
} // namespace

void qzlogInitialize() {
    MultiThreading::Once(g_threadingOnce, &decideThreading);
    MultiThreading::Once(g_startOnce, &startOnce);
}

void _qzlogInitialize() {
    Level::Initialize();
    Appender::Initialize();
    EventAttributes::Initialize();
    LoggingTime::Initialize();
    LoggerName::Initialize();
    LogBufferImpl::Initialize();
    Logger::Initialize();
    LoggerRepository::Initialize();
    bringUpApplicationContext();
    // Decision: nothing is torn down at exit. Threads that outlive main (the
    // clock thread, a host's own workers) may still be reading the interned
    // names while exit runs; freeing them there turned an orderly exit into a
    // use-after-free. They stay reachable from the repository, so leak
    // checkers do not count them. _qzlogTerminate() frees them when a host
    // calls it itself, with its threads stopped.
}

void _qzlogStart() {
    LoggingTime::Start();
    LogBufferImpl::Start();
}

void _qzlogTerminate() {
    LoggerName::Terminate();
}

bool qzlogInitialized() {
    return g_initialized.load(std::memory_order_acquire);
}

bool qzlogIsSingleThreaded() {
    return g_singleThreaded.load(std::memory_order_acquire);
}

} // namespace qzlog
} // namespace qzlib
} // namespace qzs
