//===- qzlog/FileAppender.h - Appenders that write files -------*- C++ -*-===//
//
// FileAppender writes one file, whose name may carry run-time variables;
// RollingFileAppender keeps a numbered chain of backups by size and rolls
// under an exclusive record lock, so that several processes can share one
// file; DailyRollingFileAppender starts a new file when a date pattern
// renders differently.
//
// File name variables: %D the process log directory (prefixed to a bare
// name), %P the process id, %A the executable's name, %I the application
// instance (resolved at each open, as it is known late).
//
//===----------------------------------------------------------------------===//
#ifndef QZLOG_FILEAPPENDER_H
#define QZLOG_FILEAPPENDER_H

#include "qzstd/Export.h"

#include "qzlog/WriterAppender.h"

#include <cstdio>
#include <string>

namespace qzs {
namespace qzlib {
namespace qzlog {

/// A POSIX record lock on an open stream. Type 1 locks one byte at the
/// process id's offset (shared among processes), type 2 the whole file.
class QZ_API FileLock {
public:
    enum FileLockType { None = 0, Shared = 1, Exclusive = 2 };

    explicit FileLock(FILE* stream) : file(stream), held(None) {}
    ~FileLock() { release(); }
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;

    /// Waits for the lock. True when held, or when there is nothing to lock
    /// (no file); false when fcntl fails.
    bool obtain(FileLockType type);
    void release();

    FILE* file;
    FileLockType held;
};

/// An appender on one file, opened at the first write.
///
/// A file that cannot be opened is reported once per name (message 1525)
/// and its events are dropped until a later open succeeds. All file state is
/// guarded by the appender's lock.
class QZ_API FileAppender : public WriterAppender {
public:
    explicit FileAppender(const char* name);

    /// Truncates the file, opening it first if needed.
    void reset() override;
    /// Opens the file named by getFile(), creating its directory.
    void activateOptions() override;
    /// The name to open: the stored name with %I resolved now.
    virtual const std::string& getFile() const;

    /// Stores `name` with %D, %P and %A resolved (a bare name goes to the
    /// log directory); %I stays until getFile().
    void setFile(const char* name);
    void setAppend(bool value) { append = value; }
    bool getAppend() const { return append; }
    void setBufferedIO(bool value) { bufferedIO = value; }
    void setBufferSize(unsigned long value) { bufferSize = value; }

    /// Bytes in the open file by fstat (the stream buffer not included);
    /// 0 with no file; LONG_MAX when fstat fails.
    long getCurrentFileSize() const;

    static void ensureDirectoryExists(const std::string& path);
    /// Resolves the name variables into `out`.
    static void makeFileName(const std::string& name, bool expandInstance, std::string& out);

    unsigned long bufferSize;
    bool bufferedIO;
    bool append;
    std::string failedFile;
    std::string fileName;
    mutable std::string expandedFileName;
    bool hasVariables;
};

/// A file with numbered backups by size: name.1 is the newest backup.
///
/// Several processes may write one file: a roll takes an exclusive fcntl
/// lock on the open file, and a process that finds the name now on another
/// inode reopens instead of rolling again. Open it with setAppend(true) when
/// processes share it. The file's size is read by fstat every 16 writes, and
/// at every write once within 64 KiB of the limit.
class QZ_API RollingFileAppender : public FileAppender {
public:
    explicit RollingFileAppender(const char* name);

    void reset() override;
    /// Rolls first when it would truncate, and after opening a file that is
    /// already over the limit.
    void activateOptions() override;
    /// Writes, rolling when this write would pass the limit.
    void write(const void* bytes, unsigned long size) override;

    /// "10MB", "512kb", "3GB" or a plain number of bytes. A bad suffix
    /// (message 1531) or a size of 4 GB or more (message 1530) keeps the old
    /// size.
    void setMaxFileSize(const char* text);
    void setMaxFileSize(unsigned int bytes) { maxFileSize = bytes; }
    unsigned int getMaxFileSize() const { return maxFileSize; }
    void setMaxBackupIndex(unsigned int value) { maxBackupIndex = value; }
    unsigned int getMaxBackupIndex() const { return maxBackupIndex; }

    /// Shifts the backups up by one and reopens the file.
    void rollOver();
    /// Whether `name` no longer names the file open as `file` (inode or
    /// device differ, or it cannot be stat'ed).
    static bool isFileChanged(const char* name, FILE* file);

    unsigned int maxBackupIndex;
    unsigned int maxFileSize;
    bool rolling;

    /// Most writes between two size reads, however far the limit is.
    static constexpr unsigned int StatInterval = 1024;
    /// Writes before the first size read after an open, while the pace of
    /// other writers is not known yet.
    static constexpr unsigned int FirstStatInterval = 16;
    /// Within this many bytes of the limit, every write reads the size.
    static constexpr long StatMargin = 64 * 1024;

private:
    long sizeForWrite(unsigned long size);
    long estimatedSize;
    unsigned int statCountdown;
    /// The size at the last read, and this appender's bytes since then: how
    /// fast the file grows against this appender's own share.
    long statSize;
    long ownSinceStat;
};

/// A file whose name is the base name plus a date pattern, rendered in local
/// time: "-%Y%m%d" starts a new file at midnight. Appends by default.
class QZ_API DailyRollingFileAppender : public FileAppender {
public:
    explicit DailyRollingFileAppender(const char* name);

    void write(const void* bytes, unsigned long size) override;
    const std::string& getFile() const override;

    void setDatePattern(const char* pattern) { datePattern = pattern ? pattern : ""; }
    /// The base name plus `datePattern` rendered for `seconds`.
    void generateFile(std::string& out, long seconds) const;

    std::string datePattern;
    long lastSecond;
    mutable std::string currentFile;
};

} // namespace qzlog
} // namespace qzlib
} // namespace qzs

#endif // QZLOG_FILEAPPENDER_H
