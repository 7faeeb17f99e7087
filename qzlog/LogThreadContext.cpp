//===- qzlog/LogThreadContext.cpp - Per-thread logging record -------------===//
#include "qzlog/LogThreadContext.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace qzs {
namespace qzlib {
namespace qzlog {

unsigned int LogThreadContext::m_threadContextNumber = 0;

LogThreadContext::LogThreadContext(LogBuffer* buffer, uint64_t threadId, unsigned int number)
    : buffer(buffer), threadId(threadId), name(nullptr), threadContextNumber(number), recursion(0),
      savedErrno(0) {}

LogThreadContext::~LogThreadContext() {
    std::free(name);
}

const char* LogThreadContext::getName() const {
    // A thread object's own name takes precedence once threads carry names;
    // until then the context's name, or "Thread N" made once, is the answer.
    if (!name) {
        char text[32];
        std::snprintf(text, sizeof text, "Thread %u", threadContextNumber);
        name = ::strdup(text);
    }
    return name;
}

void LogThreadContext::setName(const char* newName) {
    std::free(name);
    name = newName ? ::strdup(newName) : nullptr;
}

void LogThreadContext::getThreadData(std::string& out) const {
    out.assign(1, 'b');
    out.append(reinterpret_cast<const char*>(&threadContextNumber), 4);
    out.append(reinterpret_cast<const char*>(&threadId), 8);
    const char* n = getName();
    out.append(n, std::strlen(n) + 1);
}

} // namespace qzlog
} // namespace qzlib
} // namespace qzs
