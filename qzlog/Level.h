//===- qzlog/Level.h - The level scale -------------------------*- C++ -*-===//
//
// Levels are plain bytes: higher is more severe, and the scale leaves gaps so
// that a deployment can name levels of its own between the standard ones.
//
//===----------------------------------------------------------------------===//
#ifndef QZLOG_LEVEL_H
#define QZLOG_LEVEL_H

#include "qzstd/Export.h"

namespace qzs {
namespace qzlib {
namespace qzlog {

/// The level scale and the process-wide table of level names.
/// Inherit is only ever a configured level, never the level of an event.
class QZ_API Level {
public:
    static constexpr unsigned char Inherit = 0;
    static constexpr unsigned char All = 1;
    static constexpr unsigned char Data = 95;
    static constexpr unsigned char Debug = 143;
    static constexpr unsigned char Info = 191;
    static constexpr unsigned char Warn = 223;
    static constexpr unsigned char Error = 239;
    static constexpr unsigned char Fatal = 254;
    static constexpr unsigned char Off = 255;

    /// Names by level value. Named levels hold heap copies; every other
    /// entry points at Undefined.
    static char* LevelNames[256];
    /// "<undefined>", shared by every unnamed level.
    static char Undefined[];

    /// Fills LevelNames with the nine standard names.
    static void Initialize();
    /// Names `level`; a null name makes it undefined again. Not thread-safe
    /// against readers of the same entry: name levels at start-up.
    static void setName(unsigned char level, const char* name);
    /// The name of `level`, "<undefined>" when it has none.
    static const char* getName(unsigned char level) {
        return LevelNames[level] ? LevelNames[level] : Undefined;
    }
};

} // namespace qzlog
} // namespace qzlib
} // namespace qzs

#endif // QZLOG_LEVEL_H
