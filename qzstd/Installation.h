//===- qzstd/Installation.h - Installation directory ------------*- C++ -*-===//
//
// Where the running program is installed: the resolved directory of its
// executable, found once per process.
//
//===----------------------------------------------------------------------===//
#ifndef QZSTD_INSTALLATION_H
#define QZSTD_INSTALLATION_H

#include "qzstd/Export.h"

/// The resolved directory of the running executable. Computed once, on the
/// first call from any thread, then fixed; logs the steps, and prints a line
/// to standard output when it falls back to the working directory or to an
/// unresolved guess.
QZ_API char const* qzGetRealInstallationDir();
/// The same text as qzGetRealInstallationDir.
QZ_API char const* qzGetInstallationDir();

#endif // QZSTD_INSTALLATION_H
