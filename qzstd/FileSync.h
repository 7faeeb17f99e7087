//===- qzstd/FileSync.h - Durable flushing ----------------------*- C++ -*-===//
//
// Getting data and names to the disk: fsync and fdatasync of files and of
// directories, retried while the system interrupts them, with a change-over
// to the full sync where a file system knows no other.
//
//===----------------------------------------------------------------------===//
#ifndef QZSTD_FILESYNC_H
#define QZSTD_FILESYNC_H

#include "qzstd/Export.h"

#include <cstdio>

/// fsync, retried on EINTR up to 10 more times after a random pause of 16
/// to 1008 ms each. Any other error, or running out of tries, gives false
/// with errno set.
QZ_API bool qzFsync(int descriptor);

/// fflush, then qzFsync of the stream's descriptor.
QZ_API bool qzFsync(FILE* stream);

/// fdatasync, retried on EINTR like qzFsync; on EINVAL, EROFS or ENOSYS it
/// changes over to fsync, up to 10 tries in all. A failure gives false and,
/// when `report`, reports message 1092 with the last call's name.
QZ_API bool qzFsyncData(int descriptor, bool report);

/// fflush, then qzFsyncData of the stream's descriptor.
QZ_API bool qzFsyncData(FILE* stream, bool report);

/// Syncs the directory itself, so that names created or renamed in it
/// survive a crash. EBADF and EINVAL count as success: not every file
/// system syncs directories. On failure `*error` (when not null) gets errno.
QZ_API bool qzFsyncDir(char const* directory, int* error);

#endif // QZSTD_FILESYNC_H
