//===- qzstd/FileList.h - File lists ----------------------------*- C++ -*-===//
//
// Listing the files that match a wildcard pattern, sorted by the caller, and
// finding a file along PATH. Lists are handed over as one qzMalloc'd array of
// file_info_def entries.
//
//===----------------------------------------------------------------------===//
#ifndef QZSTD_FILELIST_H
#define QZSTD_FILELIST_H

#include "qzstd/Export.h"

#include "qzstd/Path.h"

#include <sys/stat.h>

/// One entry of a file list: the entry's path as the list built it (the
/// pattern's directory part followed by the entry name, cut at 251 bytes)
/// and its stat data.
struct QZ_API file_info_def {
    char name[QZ_FILENAME_SIZE];
    struct stat info;
};

/// Lists the files matching `pattern`, a path whose last component may hold
/// "*" and "?"; "." and ".." are never listed, and only entries that stat
/// can read, under a path that fits 251 bytes, count. `*list` gets a
/// qzMalloc'd array of `*count` entries (null when none; release with
/// qzFree), sorted by `compare` when given.
/// `maxEntries` above 0 keeps only the first so many after sorting;
/// `regularOnly` not 0 skips everything that is not a regular file.
/// Gives 0, or -1 with errno when the directory cannot be read (logged at
/// ERROR).
QZ_API int qzGetFileList(char const* pattern, file_info_def** list, int* count,
                  int (*compare)(void const*, void const*), int maxEntries, int regularOnly);

/// As qzGetFileList over the trail `pattern`: the files of `pattern`
/// followed by 6 or by 9 characters, in one list.
QZ_API int qzGetAllFileList(char const* pattern, file_info_def** list, int* count,
                     int (*compare)(void const*, void const*), int maxEntries, int regularOnly);

/// The number of files qzGetFileList would list with no limit. Gives 0, or
/// -1 with `*error` (when not null) set to errno.
QZ_API int qzGetFileListCount(char const* pattern, int* count, int* error);

/// Looks for the regular file `name` in each directory of PATH (an empty
/// entry is the working directory). Gives 1 when found, and then, when
/// `found` is not null, a qzMalloc'd entry for the first hit; 0 otherwise.
QZ_API int qzSearchPath(char const* name, file_info_def** found);

#endif // QZSTD_FILELIST_H
