//===- qzlog/detail/LoggerName.h - Interned dotted logger names -------*- C++ -*-===//
//
// Every logger name is interned once, so that equal texts share one pointer
// and the logger tree can be keyed by pointer.
//
//===----------------------------------------------------------------------===//
#ifndef QZLOG_DETAIL_LOGGERNAME_H
#define QZLOG_DETAIL_LOGGERNAME_H

#include <cstring>
#include <set>

namespace qzs {
namespace qzlib {
namespace qzlog {

/// Orders interned names by text; identical pointers compare equal at once.
struct NameCompare {
    bool operator()(const char* a, const char* b) const {
        return a != b && std::strcmp(a, b) < 0;
    }
};

/// A name split into itself and its parent text, both interned.
///
/// `parent` is the text before the last "." ("" with no dot). Thread safety:
/// none of its own; the repository calls it under its mutex.
class LoggerName {
public:
    /// The longest parent text accepted; a longer one is reported (message
    /// 1112) and the logger hangs under the root instead.
    static constexpr size_t MaxParentLength = 126;

    explicit LoggerName(const char* name);

    const char* name;
    const char* parent;

    /// The canonical copy of `text`, made on first sight. Lives until Terminate.
    static const char* getName(const char* text);
    static void Initialize();
    /// Frees every interned string and the set itself.
    static void Terminate();

    static std::set<const char*, NameCompare>* LoggerNames;
};

} // namespace qzlog
} // namespace qzlib
} // namespace qzs

#endif // QZLOG_DETAIL_LOGGERNAME_H
