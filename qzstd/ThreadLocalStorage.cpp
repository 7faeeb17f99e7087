//===- qzstd/ThreadLocalStorage.cpp - Once and thread-local slots ---------===//
#include "qzstd/ThreadLocalStorage.h"

#include "qzstd/Thread.h"

static_assert(sizeof(pthread_once_t) == sizeof(int) && PTHREAD_ONCE_INIT == 0,
              "Once relies on an int control word that starts at zero");

namespace qzs {
namespace qzlib {
namespace MultiThreading {

Once::Once(int& control, void (*routine)()) {
    pthread_once(reinterpret_cast<pthread_once_t*>(&control), routine);
}

_ThreadLocalStorage::_ThreadLocalStorage(void (*destructor)(void*)) : m_key() {
    if (int rc = pthread_key_create(&m_key, destructor))
        Thread::IssueError(rc);
}

void _ThreadLocalStorage::set(void* value) {
    if (int rc = pthread_setspecific(m_key, value))
        Thread::IssueError(rc);
}

namespace {
_ThreadLocalStorage* g_processTLS = nullptr;
}

void allocateTLS() {
    g_processTLS = new _ThreadLocalStorage(nullptr);
}

_ThreadLocalStorage* processTLS() {
    return g_processTLS;
}

} // namespace MultiThreading
} // namespace qzlib
} // namespace qzs
