//===- qzlog/LoggerName.cpp - Interned dotted logger names ----------------===//
#include "qzlog/detail/LoggerName.h"

#include "qzmsg/Messages.h"

#include <cstdlib>
#include <string>

namespace qzs {
namespace qzlib {
namespace qzlog {

std::set<const char*, NameCompare>* LoggerName::LoggerNames = nullptr;

LoggerName::LoggerName(const char* text) {
    const char* dot = std::strrchr(text, '.');
    if (!dot) {
        parent = getName("");
    } else {
        size_t n = static_cast<size_t>(dot - text);
        if (n <= MaxParentLength) {
            char work[128];
            std::memcpy(work, text, n);
            work[n] = '\0';
            parent = getName(work);
        } else {
            // Decision: a logger whose parent text is too long for the work
            // area is reported and hung directly under the root, so that it
            // still logs and inherits the root's level.
            const std::string what =
                "logger parent name longer than 126 characters: " + std::string(text, n);
            _MSG_String(QZ_SOURCE("qzlog", "qzlog/LoggerName", "LoggerName::LoggerName"), 1112,
                        what.c_str());
            parent = getName("");
        }
    }
    name = getName(text);
}

const char* LoggerName::getName(const char* text) {
    if (!LoggerNames)
        LoggerNames = new std::set<const char*, NameCompare>();
    auto it = LoggerNames->find(text);
    if (it != LoggerNames->end())
        return *it;
    const char* copy = ::strdup(text);
    LoggerNames->insert(copy);
    return copy;
}

void LoggerName::Initialize() {
    if (!LoggerNames)
        LoggerNames = new std::set<const char*, NameCompare>();
}

void LoggerName::Terminate() {
    std::set<const char*, NameCompare>* names = LoggerNames;
    LoggerNames = nullptr;
    if (!names)
        return;
    for (const char* s : *names)
        std::free(const_cast<char*>(s));
    delete names;
}

} // namespace qzlog
} // namespace qzlib
} // namespace qzs
