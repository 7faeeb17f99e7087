//===- qzstd/FileStatus.h - Sizes, existence and stat -----------*- C++ -*-===//
//
// Questions about what is on the disk under a name or a descriptor: its size,
// whether it exists and as what, and its stat data. None of them reports a
// fault; a refusal is the answer, with errno or the caller's error.
//
//===----------------------------------------------------------------------===//
#ifndef QZSTD_FILESTATUS_H
#define QZSTD_FILESTATUS_H

#include "qzstd/Export.h"

#include "qzstd/Path.h"

#include <sys/stat.h>

/// The size by fstat, or all ones (~0UL) on failure.
QZ_API unsigned long qzGetFileSize(int descriptor);

/// True when `name` can be stated and is not empty.
QZ_API bool qzNonEmptyFile(char const* name);
/// True when anything exists under `name` (access F_OK).
QZ_API bool qzDoesFileExist(char const* name);
/// True when `name` exists and is not a directory.
QZ_API bool qzCheckFileExists(char const* name);
/// True when `name` is a directory.
QZ_API bool qzCheckDirExists(char const* name);
/// True when the parameter file `name` exists. A name without an extension
/// that is not found is tried again with ".prm"; when that is found the
/// buffer is changed to the name found.
QZ_API bool qzCheckParamFileExists(char (&name)[QZ_FILENAME_SIZE]);

/// stat; on failure `*error` (when not null) gets errno.
QZ_API bool qzStat(char const* name, struct stat* info, int* error);
/// fstat; on failure `*error` (when not null) gets errno.
QZ_API bool qzStat(int descriptor, struct stat* info, int* error);

#endif // QZSTD_FILESTATUS_H
