//===- qzstd/FileIO.h - Checked file and descriptor calls -------*- C++ -*-===//
//
// Opening, locking and closing files, the checked stream and descriptor
// calls, truncation and copying. What the system refuses is reported as a
// catalogue message or handed back in the caller's buffer, and errno is left
// as the failed call set it.
//
//===----------------------------------------------------------------------===//
#ifndef QZSTD_FILEIO_H
#define QZSTD_FILEIO_H

#include "qzstd/Export.h"

#include <cstddef>
#include <cstdio>

/// Bytes of the message buffer of qzCopyFile.
constexpr int QZ_COPY_MESSAGE_SIZE = 2048;

// ---- Opening, locking, closing --------------------------------------------

/// fopen(name, mode), with the descriptor marked close-on-exec. On failure
/// reports message 1091 with the name and gives null with errno set.
QZ_API FILE* qzOpenFile(char const* name, char const* mode);

/// qzOpenFile, then the file takes over descriptor 2 and, when
/// `redirectStdout`, descriptor 1 as well. Those two stay open across exec.
QZ_API FILE* qzOpenReportFile(char const* name, char const* mode, bool redirectStdout);

/// Opens `name` for read and write and takes the whole-file write lock
/// (qzProtectFile, not waiting). Returns the descriptor, or -1 when the file
/// cannot be opened or another process holds the lock (errno tells which).
QZ_API int qzOpenProtected(char const* name);

/// open(name, flags | O_CREAT | O_CLOEXEC, mode). Returns the descriptor,
/// or -1 with `*error` (when not null) set to errno.
QZ_API int qzCreateFile(char const* name, int flags, int mode, int* error);

/// Takes an fcntl write lock on the whole of `descriptor`'s file; waits for
/// it when `wait` is not 0. Returns 0, or -1 with errno when refused; on a
/// refusal `*holder` (when not null) receives the pid that holds the lock.
/// Record locks belong to the process: a second lock from the same process
/// always succeeds, and closing any descriptor of the file drops the lock.
/// REQUIRES: `descriptor` is open for writing.
QZ_API int qzProtectFile(int descriptor, long* holder, int wait);

/// close(descriptor); a failure reports message 1092 with "close()" and
/// gives -1. Never retried: on Linux the descriptor is gone even after EINTR.
QZ_API int qzClose(int descriptor);

/// As qzClose, but a negative descriptor ("no handle") is 0 and silent.
QZ_API int qzCloseHandle(int descriptor);

/// As qzCloseHandle(*descriptor), then sets *descriptor to -1.
QZ_API int qzCloseHandle(int* descriptor);

/// Flushes and closes `stream`; null gives 0. A flush interrupted (EINTR,
/// EAGAIN) is repeated up to 10 times; each failed flush reports message
/// 1092 with "fflush()" and its errno. Returns fclose's result, or EOF when
/// the flush never held. The stream is closed in every case.
QZ_API int qzFclose(FILE* stream);

/// fflush; a failure reports message 1092 with "fflush()" and gives false.
QZ_API bool qzFflush(FILE* stream);

/// fwrite; a short write reports message 1092 with "fwrite()". Returns the
/// items written.
QZ_API size_t qzFwrite(void const* data, size_t size, size_t count, FILE* stream);

/// fgets; a read error (not the end of the file) reports message 1092 with
/// "fgets()". Returns `buffer`, or null at the end or on error.
QZ_API char* qzFgets(char* buffer, int size, FILE* stream);

/// Reads until `size` bytes or the end of the file, retrying EINTR.
/// `*bytesRead` gets what was read. On error gives false and, when
/// `errorText` is not null, writes "read() error <errno> (<text>)" there.
/// REQUIRES: `errorText`, when given, holds 256 bytes.
QZ_API bool qzRead(int descriptor, char* buffer, unsigned long size, unsigned long* bytesRead,
            char* errorText);

/// Writes all `size` bytes, retrying EINTR and short writes; otherwise as
/// qzRead, with "write()".
QZ_API bool qzWrite(int descriptor, char const* buffer, unsigned long size, unsigned long* bytesWritten,
             char* errorText);

/// lseek(descriptor, offset, whence); the new position goes to `*position`
/// when not null. A failure reports message 1092 with "seek()".
QZ_API bool qzLseek(int descriptor, unsigned long offset, int whence, unsigned long* position);

// ---- Truncating and copying -------------------------------------------------

/// truncate(name, size); on failure `*error` (when not null) gets errno.
QZ_API bool qzFtruncate(char const* name, unsigned long size, int* error);

/// Closes `stream` (when not null) and reopens `name` with "wb+" through
/// qzOpenFile, which empties it. `stream` is the new stream, or null.
QZ_API bool qzTruncateFile(FILE*& stream, char* name);

/// Copies `source` to `destination` (created or emptied). On failure gives
/// false, sets `*error` (when not null) to errno, and writes one line into
/// `message`: "Error copying files: could not open input file ...", "...
/// could not open output file ...", "... could not read input file ..." or
/// "... could not write output file ...", each with the name, the error
/// number and its text. `message` is empty after success.
QZ_API bool qzCopyFile(char const* source, char const* destination, char (&message)[QZ_COPY_MESSAGE_SIZE],
                int* error);

#endif // QZSTD_FILEIO_H
