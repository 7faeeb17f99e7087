//===- qzstd/Installation.h - Installation directory ------------*- C++ -*-===//
//
// Where the running program is installed: the directory of its executable as
// the system names it, and that directory resolved, each found once per
// process.
//
//===----------------------------------------------------------------------===//
#ifndef QZSTD_INSTALLATION_H
#define QZSTD_INSTALLATION_H

#include "qzstd/Export.h"

/// The running executable as the link /proc/self/exe names it, unresolved;
/// "" when the link cannot be read. Computed once, on the first call from any
/// thread, then fixed: the one source of the executable's path, its
/// directory and its base name (the process context items ProcessExecutable,
/// ProcessExecutableDir and ProcessExecutableBase publish it).
QZ_API char const* qzGetProcessExecutable();

/// The directory of the running executable as the link /proc/self/exe names
/// it, up to its last "/" (or "\\"), unresolved; "" when the link cannot be
/// read. Computed once, on the first call from any thread, then fixed. This
/// is the one source of the process context item ProcessExecutableDir, which
/// publishes this text; the directory map starts from it too.
QZ_API char const* qzGetProcessExecutableDir();
/// The resolved directory of the running executable. Computed once, on the
/// first call from any thread, then fixed; logs the steps, and prints a line
/// to standard output when it falls back to the working directory or to an
/// unresolved guess.
QZ_API char const* qzGetRealInstallationDir();
/// The same text as qzGetRealInstallationDir.
QZ_API char const* qzGetInstallationDir();

#endif // QZSTD_INSTALLATION_H
