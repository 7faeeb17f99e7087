//===- qzstd/Directory.h - Directories and file generations -----*- C++ -*-===//
//
// Creating and removing directories and files, testing a directory for
// writing, and keeping numbered generations of a file beside it (ageing).
//
//===----------------------------------------------------------------------===//
#ifndef QZSTD_DIRECTORY_H
#define QZSTD_DIRECTORY_H

#include "qzstd/Export.h"

// ---- Directories ------------------------------------------------------------

/// mkdir(path, 0777) (less the umask); EEXIST is a failure like any other.
/// On failure `*error` (when not null) gets errno.
QZ_API bool qzCreateDir(char const* path, int* error);
/// As above; on failure writes "error <errno> (<text>)" to `errorText`.
/// REQUIRES: `errorText` holds 256 bytes.
QZ_API bool qzCreateDir(char const* path, char* errorText);

/// Creates each missing component of `path` in turn ("/" and "\\" both
/// separate). If the directory still does not exist, reports message 25119
/// with the path and gives false.
QZ_API bool qzAutoCreateMissingDir(char const* path);

/// unlink; on failure `*error` (when not null) gets errno.
QZ_API bool qzDeleteFile(char const* name, int* error);

/// Removes directory `path`, first everything in it when `withContents`
/// (symbolic links are removed, never followed). Logs "Deleting directory"
/// at INFO to logger "fileutl.delete". On failure `*error` (when not null)
/// gets the errno of the first step that failed.
QZ_API bool qzDeleteDirectory(char const* path, bool withContents, int* error);

/// access(path, W_OK).
QZ_API bool qzDirIsWritable(char const* path);

// ---- Ageing -----------------------------------------------------------------

/// Keeps `versions` numbered generations of `name`: generation `versions` is
/// removed, each generation moves up one, and `name` becomes generation 0.
/// Generation n of "a.log" is "a.n.log" when `dotted`, else "an.log"; the
/// extension is what follows the last "." of the last path component. The
/// name is cut at 251 bytes first. Missing generations are not errors. A
/// failed removal logs at INFO (191) and reports message 1093 with the name;
/// a failed rename logs at INFO and reports message 1800 with both names.
/// Both go on with the next step. Gives true when nothing failed.
/// Not safe against another process ageing the same file at once.
QZ_API bool qzAgeFiles(char const* name, short versions, bool dotted);

#endif // QZSTD_DIRECTORY_H
