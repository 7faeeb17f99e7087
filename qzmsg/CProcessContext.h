//===- qzmsg/CProcessContext.h - The running process -----------*- C++ -*-===//
//
// The operating system, the executable, its command line and working
// directory, and the figures that change while the process runs (times,
// memory), which are recomputed each time they are asked for.
//
//===----------------------------------------------------------------------===//
#ifndef QZMSG_CPROCESSCONTEXT_H
#define QZMSG_CPROCESSCONTEXT_H

#include "qzmsg/CContext.h"

#include <ctime>

namespace qzs {
namespace qzlib {

/// Items: ProcessOSName, ProcessOSArch, ProcessOSVersion, ProcessOSUnixRelease,
/// ProcessHostName (from uname; "Unix" and empty texts when it fails),
/// ProcessOSUptime, ProcessID, ProcessExecutable, ProcessExecutableBase,
/// ProcessExecutableDir, ProcessCommandLine, ProcessWorkingDir,
/// ProcessUserTime, ProcessSystemTime, ProcessClockTime, ProcessMemoryVirtual,
/// ProcessMemoryPhysical.
///
/// The texts of the executable, command line and working directory borrow
/// process-wide buffers of 4096 bytes, so two threads computing one of them
/// write the same bytes (the working directory may tear if it changes).
class QZ_API CProcessContext : public CContext {
public:
    CProcessContext();

    /// The seven changing items are recomputed and assigned under their lock
    /// before being returned; every other ID is looked up as usual.
    CContextItem* GetItem(ContextItemID id) const override;

    /// The executable's path (qzGetProcessExecutable); "" when unknown.
    static char const* getExecutable();
    /// The executable's name after its last '/' or '\\' (the whole path when
    /// it has neither), cut at its last '.'.
    static char const* getExecutableBase();
    /// The executable's path before that separator; "" when there is none
    /// (qzGetProcessExecutableDir, fixed at its first call).
    static char const* getExecutableDir();
    /// /proc/self/cmdline (at most 4096 bytes), every NUL but the last byte
    /// read turned into a blank; "" when it cannot be read.
    static char const* getCommandLine();
    /// getcwd; "" when it fails.
    static char const* getWorkingDir();

    /// Kept on purpose: the tick counts of times() are read as microseconds.
    /// Seconds are ticks / 1000000 and nanoseconds the remainder times
    /// 1000000000000.
    static timespec ticksAsTime(unsigned long ticks);
    /// Virtual size >> 10 and resident pages * 4 (a 4 KB page, not asked of
    /// the system) from /proc/self/stat; both 0 when it cannot be read.
    static bool readMemory(unsigned int& virtualKb, unsigned int& physicalKb);

private:
    CContextItem* osUptime;
    CContextItem* workingDir;
    CContextItem* userTime;
    CContextItem* systemTime;
    CContextItem* clockTime;
    CContextItem* memoryVirtual;
    CContextItem* memoryPhysical;
};

} // namespace qzlib
} // namespace qzs

#endif // QZMSG_CPROCESSCONTEXT_H
