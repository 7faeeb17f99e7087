//===- qzstd/fileutl.h - File utilities ------------------------*- C++ -*-===//
//
// Plain functions around files: opening and locking, checked stream and
// descriptor calls, durable flushing, ageing of numbered generations,
// copying, directories, file lists and path resolution. They retry what the
// system may interrupt and report what it refuses as catalogue messages;
// state lives in the caller's buffers, so every function is as thread-safe
// as the system calls under it, unless its comment says otherwise.
//
// File names are held in buffers of QZ_FILENAME_SIZE (251) bytes; a longer
// name is cut there, never overrun.
//
//===----------------------------------------------------------------------===//
#ifndef QZSTD_FILEUTL_H
#define QZSTD_FILEUTL_H

#include <cstddef>
#include <cstdio>
#include <sys/stat.h>

/// Bytes of a file name buffer, NUL included.
constexpr int QZ_FILENAME_SIZE = 251;

/// Bytes of the message buffer of qzCopyFile.
constexpr int QZ_COPY_MESSAGE_SIZE = 2048;

/// One entry of a file list: the entry's path as the list built it (the
/// pattern's directory part followed by the entry name, cut at 251 bytes)
/// and its stat data.
struct file_info_def {
    char name[QZ_FILENAME_SIZE];
    struct stat info;
};

// ---- Opening, locking, closing --------------------------------------------

/// fopen(name, mode), with the descriptor marked close-on-exec. On failure
/// reports message 1091 with the name and gives null with errno set.
FILE* qzOpenFile(char const* name, char const* mode);

/// qzOpenFile, then the file takes over descriptor 2 and, when
/// `redirectStdout`, descriptor 1 as well. Those two stay open across exec.
FILE* qzOpenReportFile(char const* name, char const* mode, bool redirectStdout);

/// Opens `name` for read and write and takes the whole-file write lock
/// (qzProtectFile, not waiting). Returns the descriptor, or -1 when the file
/// cannot be opened or another process holds the lock (errno tells which).
int qzOpenProtected(char const* name);

/// open(name, flags | O_CREAT | O_CLOEXEC, mode). Returns the descriptor,
/// or -1 with `*error` (when not null) set to errno.
int qzCreateFile(char const* name, int flags, int mode, int* error);

/// Takes an fcntl write lock on the whole of `descriptor`'s file; waits for
/// it when `wait` is not 0. Returns 0, or -1 with errno when refused; on a
/// refusal `*holder` (when not null) receives the pid that holds the lock.
/// Record locks belong to the process: a second lock from the same process
/// always succeeds, and closing any descriptor of the file drops the lock.
/// REQUIRES: `descriptor` is open for writing.
int qzProtectFile(int descriptor, long* holder, int wait);

/// close(descriptor); a failure reports message 1092 with "close()" and
/// gives -1. Never retried: on Linux the descriptor is gone even after EINTR.
int qzClose(int descriptor);

/// As qzClose, but a negative descriptor ("no handle") is 0 and silent.
int qzCloseHandle(int descriptor);

/// As qzCloseHandle(*descriptor), then sets *descriptor to -1.
int qzCloseHandle(int* descriptor);

/// Flushes and closes `stream`; null gives 0. A flush interrupted (EINTR,
/// EAGAIN) is repeated up to 10 times; each failed flush reports message
/// 1092 with "fflush()" and its errno. Returns fclose's result, or EOF when
/// the flush never held. The stream is closed in every case.
int qzFclose(FILE* stream);

/// fflush; a failure reports message 1092 with "fflush()" and gives false.
bool qzFflush(FILE* stream);

/// fwrite; a short write reports message 1092 with "fwrite()". Returns the
/// items written.
size_t qzFwrite(void const* data, size_t size, size_t count, FILE* stream);

/// fgets; a read error (not the end of the file) reports message 1092 with
/// "fgets()". Returns `buffer`, or null at the end or on error.
char* qzFgets(char* buffer, int size, FILE* stream);

/// Reads until `size` bytes or the end of the file, retrying EINTR.
/// `*bytesRead` gets what was read. On error gives false and, when
/// `errorText` is not null, writes "read() error <errno> (<text>)" there.
/// REQUIRES: `errorText`, when given, holds 256 bytes.
bool qzRead(int descriptor, char* buffer, unsigned long size, unsigned long* bytesRead,
            char* errorText);

/// Writes all `size` bytes, retrying EINTR and short writes; otherwise as
/// qzRead, with "write()".
bool qzWrite(int descriptor, char const* buffer, unsigned long size, unsigned long* bytesWritten,
             char* errorText);

/// lseek(descriptor, offset, whence); the new position goes to `*position`
/// when not null. A failure reports message 1092 with "seek()".
bool qzLseek(int descriptor, unsigned long offset, int whence, unsigned long* position);

// ---- Durable flushing -----------------------------------------------------

/// fsync, retried on EINTR up to 10 more times after a random pause of 16
/// to 1008 ms each. Any other error, or running out of tries, gives false
/// with errno set.
bool qzFsync(int descriptor);

/// fflush, then qzFsync of the stream's descriptor.
bool qzFsync(FILE* stream);

/// fdatasync, retried on EINTR like qzFsync; on EINVAL, EROFS or ENOSYS it
/// changes over to fsync, up to 10 tries in all. A failure gives false and,
/// when `report`, reports message 1092 with the last call's name.
bool qzFsyncData(int descriptor, bool report);

/// fflush, then qzFsyncData of the stream's descriptor.
bool qzFsyncData(FILE* stream, bool report);

/// Syncs the directory itself, so that names created or renamed in it
/// survive a crash. EBADF and EINVAL count as success: not every file
/// system syncs directories. On failure `*error` (when not null) gets errno.
bool qzFsyncDir(char const* directory, int* error);

// ---- Sizes, existence, stat -----------------------------------------------

/// The size by fstat, or all ones (~0UL) on failure.
unsigned long qzGetFileSize(int descriptor);

/// True when `name` can be stated and is not empty.
bool qzNonEmptyFile(char const* name);
/// True when anything exists under `name` (access F_OK).
bool qzDoesFileExist(char const* name);
/// True when `name` exists and is not a directory.
bool qzCheckFileExists(char const* name);
/// True when `name` is a directory.
bool qzCheckDirExists(char const* name);
/// True when the parameter file `name` exists. A name without an extension
/// that is not found is tried again with ".prm"; when that is found the
/// buffer is changed to the name found.
bool qzCheckParamFileExists(char (&name)[QZ_FILENAME_SIZE]);

/// stat; on failure `*error` (when not null) gets errno.
bool qzStat(char const* name, struct stat* info, int* error);
/// fstat; on failure `*error` (when not null) gets errno.
bool qzStat(int descriptor, struct stat* info, int* error);

/// truncate(name, size); on failure `*error` (when not null) gets errno.
bool qzFtruncate(char const* name, unsigned long size, int* error);

/// Closes `stream` (when not null) and reopens `name` with "wb+" through
/// qzOpenFile, which empties it. `stream` is the new stream, or null.
bool qzTruncateFile(FILE*& stream, char* name);

/// Copies `source` to `destination` (created or emptied). On failure gives
/// false, sets `*error` (when not null) to errno, and writes one line into
/// `message`: "Error copying files: could not open input file ...", "...
/// could not open output file ...", "... could not read input file ..." or
/// "... could not write output file ...", each with the name, the error
/// number and its text. `message` is empty after success.
bool qzCopyFile(char const* source, char const* destination, char (&message)[QZ_COPY_MESSAGE_SIZE],
                int* error);

/// Keeps `versions` numbered generations of `name`: generation `versions` is
/// removed, each generation moves up one, and `name` becomes generation 0.
/// Generation n of "a.log" is "a.n.log" when `dotted`, else "an.log"; the
/// extension is what follows the last "." of the last path component. The
/// name is cut at 251 bytes first. Missing generations are not errors. A
/// failed removal logs at INFO (191) and reports message 1093 with the name;
/// a failed rename logs at INFO and reports message 1800 with both names.
/// Both go on with the next step. Gives true when nothing failed.
/// Not safe against another process ageing the same file at once.
bool qzAgeFiles(char const* name, short versions, bool dotted);

// ---- Directories ------------------------------------------------------------

/// mkdir(path, 0777) (less the umask); EEXIST is a failure like any other.
/// On failure `*error` (when not null) gets errno.
bool qzCreateDir(char const* path, int* error);
/// As above; on failure writes "error <errno> (<text>)" to `errorText`.
/// REQUIRES: `errorText` holds 256 bytes.
bool qzCreateDir(char const* path, char* errorText);

/// Creates each missing component of `path` in turn ("/" and "\\" both
/// separate). If the directory still does not exist, reports message 25119
/// with the path and gives false.
bool qzAutoCreateMissingDir(char const* path);

/// unlink; on failure `*error` (when not null) gets errno.
bool qzDeleteFile(char const* name, int* error);

/// Removes directory `path`, first everything in it when `withContents`
/// (symbolic links are removed, never followed). Logs "Deleting directory"
/// at INFO to logger "fileutl.delete". On failure `*error` (when not null)
/// gets the errno of the first step that failed.
bool qzDeleteDirectory(char const* path, bool withContents, int* error);

/// access(path, W_OK).
bool qzDirIsWritable(char const* path);

// ---- Paths ------------------------------------------------------------------

/// True when `name` starts with "/".
bool qzIsAbsoluteFileName(char const* name);

/// realpath into `resolved`. On success logs the resolution at DEBUG (143)
/// and leaves errno 0; on failure `*error` (when not null) gets errno.
/// REQUIRES: `resolved` holds PATH_MAX bytes.
bool qzGetRealPath(char const* path, char* resolved, int* error);

/// As qzGetRealPath, but a path that cannot be stated logs the error at
/// INFO, copies `path` to `resolved` unchanged and gives false.
/// REQUIRES: `resolved` holds PATH_MAX bytes.
bool qzGetLocalPath(char const* path, char* resolved);

/// Splits `path` at its last "/": `dir` gets the part up to and including
/// it ("" when none), `name` the file name up to its last ".", `ext` what
/// follows that "." ("" when none). Each part is cut to fit 251 bytes.
/// Gives true when the file name holds a wildcard ("*" or "?").
/// REQUIRES: `dir`, `name` and `ext` hold QZ_FILENAME_SIZE bytes each.
bool qzGetFileParts(char const* path, char* dir, char* name, char* ext);

/// As qzGetFileParts, with the file name whole in `fileName`.
bool qzGetFileNameParts(char const* path, char* dir, char* fileName);

/// The absolute form of `path` in `fullPath` (`size` bytes): relative to
/// the working directory, with ".", ".." and repeated "/" resolved by text
/// alone (no link is followed). `*filePart` (when not null) points at the
/// file name within it. Logs the split at DEBUG. Gives the length, or 0 when
/// `path` is null or empty, the working directory is unknown, or the result
/// does not fit (errno ERANGE).
int qzGetFullPathName(char const* path, int size, char* fullPath, char** filePart);

// ---- Trail file names -------------------------------------------------------
//
// A trail file is named by a prefix and a sequence number of 6 or 9 digits:
// "dirdat/aa000123" or "dirdat/aa000000123". The trailing digits of the last
// path component decide: 9 or more mean 9, 6 to 8 mean 6 (so a prefix may
// end in a digit), fewer mean no sequence.

/// Digits of the sequence number of `fileName`: 9, 6, or 0 when none.
int qzSeqLenFromFileName(char const* fileName);
/// The sequence number of `fileName`, or -1 when it has none.
long qzSeqnoFromFileName(char const* fileName);
/// `fileName` without its sequence number, cut at 251 bytes; false (and
/// `trailName` untouched) when it has none.
/// REQUIRES: `trailName` holds QZ_FILENAME_SIZE bytes.
bool qzTrailNameFromFileName(char const* fileName, char* trailName);
/// The sequence length the trail `trailName` uses on disk: 9 when a file of
/// it with nine more characters exists, else 6.
int TrailSeqLen(char const* trailName);

// ---- Installation directory -------------------------------------------------

/// The resolved directory of the running executable. Computed once, on the
/// first call from any thread, then fixed; logs the steps, and prints a line
/// to standard output when it falls back to the working directory or to an
/// unresolved guess.
char const* qzGetRealInstallationDir();
/// The same text as qzGetRealInstallationDir.
char const* qzGetInstallationDir();

// ---- File lists -------------------------------------------------------------

/// Lists the files matching `pattern`, a path whose last component may hold
/// "*" and "?"; "." and ".." are never listed, and only entries that stat
/// can read, under a path that fits 251 bytes, count. `*list` gets a
/// qzMalloc'd array of `*count` entries (null when none; release with
/// qzFree), sorted by `compare` when given.
/// `maxEntries` above 0 keeps only the first so many after sorting;
/// `regularOnly` not 0 skips everything that is not a regular file.
/// Gives 0, or -1 with errno when the directory cannot be read (logged at
/// ERROR).
int qzGetFileList(char const* pattern, file_info_def** list, int* count,
                  int (*compare)(void const*, void const*), int maxEntries, int regularOnly);

/// As qzGetFileList over the trail `pattern`: the files of `pattern`
/// followed by 6 or by 9 characters, in one list.
int qzGetAllFileList(char const* pattern, file_info_def** list, int* count,
                     int (*compare)(void const*, void const*), int maxEntries, int regularOnly);

/// The number of files qzGetFileList would list with no limit. Gives 0, or
/// -1 with `*error` (when not null) set to errno.
int qzGetFileListCount(char const* pattern, int* count, int* error);

/// Looks for the regular file `name` in each directory of PATH (an empty
/// entry is the working directory). Gives 1 when found, and then, when
/// `found` is not null, a qzMalloc'd entry for the first hit; 0 otherwise.
int qzSearchPath(char const* name, file_info_def** found);

/// Writes `length` bytes of `data` as lines of 16: the offset (counted from
/// `offset`) as "%9ld", the bytes as "%02X" in groups of four, and the bytes
/// as printable characters or ".". Gives false when the stream failed.
bool qzOutputHexToFile(FILE* stream, char* data, int length, int offset);

#endif // QZSTD_FILEUTL_H
