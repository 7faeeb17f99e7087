//===- qzstd/Path.h - Path parsing and resolution ---------------*- C++ -*-===//
//
// Taking paths apart and putting them together: the parts of a path, its
// absolute form by text, its resolution through the file system, and the
// prefix and sequence number of a trail file's name. Everything writes into
// the caller's buffers; only the resolvers and TrailSeqLen look at the disk.
//
// File names are held in buffers of QZ_FILENAME_SIZE (251) bytes; a longer
// name is cut there, never overrun.
//
//===----------------------------------------------------------------------===//
#ifndef QZSTD_PATH_H
#define QZSTD_PATH_H

#include "qzstd/Export.h"

/// Bytes of a file name buffer, NUL included.
constexpr int QZ_FILENAME_SIZE = 251;

// ---- Paths ------------------------------------------------------------------

/// True when `name` starts with "/".
QZ_API bool qzIsAbsoluteFileName(char const* name);

/// realpath into `resolved`. On success logs the resolution at DEBUG (143)
/// and leaves errno 0; on failure `*error` (when not null) gets errno.
/// REQUIRES: `resolved` holds PATH_MAX bytes.
QZ_API bool qzGetRealPath(char const* path, char* resolved, int* error);

/// As qzGetRealPath, but a path that cannot be stated logs the error at
/// INFO, copies `path` to `resolved` unchanged and gives false.
/// REQUIRES: `resolved` holds PATH_MAX bytes.
QZ_API bool qzGetLocalPath(char const* path, char* resolved);

/// Splits `path` at its last "/": `dir` gets the part up to and including
/// it ("" when none), `name` the file name up to its last ".", `ext` what
/// follows that "." ("" when none). Each part is cut to fit 251 bytes.
/// Gives true when the file name holds a wildcard ("*" or "?").
/// REQUIRES: `dir`, `name` and `ext` hold QZ_FILENAME_SIZE bytes each.
QZ_API bool qzGetFileParts(char const* path, char* dir, char* name, char* ext);

/// As qzGetFileParts, with the file name whole in `fileName`.
QZ_API bool qzGetFileNameParts(char const* path, char* dir, char* fileName);

/// The absolute form of `path` in `fullPath` (`size` bytes): relative to
/// the working directory, with ".", ".." and repeated "/" resolved by text
/// alone (no link is followed). `*filePart` (when not null) points at the
/// file name within it. Logs the split at DEBUG. Gives the length, or 0 when
/// `path` is null or empty, the working directory is unknown, or the result
/// does not fit (errno ERANGE).
QZ_API int qzGetFullPathName(char const* path, int size, char* fullPath, char** filePart);

// ---- Trail file names -------------------------------------------------------
//
// A trail file is named by a prefix and a sequence number of 6 or 9 digits:
// "trails/aa000123" or "trails/aa000000123". The trailing digits of the last
// path component decide: 9 or more mean 9, 6 to 8 mean 6 (so a prefix may
// end in a digit), fewer mean no sequence.

/// Digits of the sequence number of `fileName`: 9, 6, or 0 when none.
QZ_API int qzSeqLenFromFileName(char const* fileName);
/// The sequence number of `fileName`, or -1 when it has none.
QZ_API long qzSeqnoFromFileName(char const* fileName);
/// `fileName` without its sequence number, cut at 251 bytes; false (and
/// `trailName` untouched) when it has none.
/// REQUIRES: `trailName` holds QZ_FILENAME_SIZE bytes.
QZ_API bool qzTrailNameFromFileName(char const* fileName, char* trailName);
/// The sequence length the trail `trailName` uses on disk: 9 when a file of
/// it with nine more characters exists, else 6.
QZ_API int TrailSeqLen(char const* trailName);

#endif // QZSTD_PATH_H
