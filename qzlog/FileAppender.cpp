//===- qzlog/FileAppender.cpp - Appenders that write files ----------------===//
#include "qzlog/FileAppender.h"

#include "qzlog/Layout.h"
#include "qzlog/LoggingTime.h"
#include "qzlog/detail/Token.h"
#include "qzmsg/CAppContext.h"
#include "qzmsg/Messages.h"
#include "qzstd/fileutl.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace qzs {
namespace qzlib {
namespace qzlog {

namespace {

void replaceAll(std::string& text, const char* variable, const std::string& value) {
    for (size_t at = text.find(variable); at != std::string::npos;
         at = text.find(variable, at + value.size()))
        text.replace(at, 2, value);
}

template <typename... Args>
void fault(const char* function, unsigned int number, unsigned int line, const Args&... args) {
    raiseMessage(new CSourceContext("qzlog", "qzlog/FileAppender", function, line),
                 static_cast<int>(number), IssueAndDispose, args...);
}

} // namespace

//===-- FileLock -----------------------------------------------------------===//

bool FileLock::obtain(FileLockType type) {
    release();
    if (!file || held != None)
        return true;
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    if (type == Exclusive) {
        lock.l_start = 0;
        lock.l_len = 0;
    } else {
        lock.l_start = ::getpid();
        lock.l_len = 1;
    }
    int rc;
    do {
        rc = ::fcntl(fileno(file), F_SETLKW, &lock);
    } while (rc == -1 && errno == EINTR);
    if (rc == -1)
        return false;
    held = type;
    return true;
}

void FileLock::release() {
    if (file && held != None) {
        struct flock lock = {};
        lock.l_type = F_UNLCK;
        lock.l_whence = SEEK_SET;
        ::fcntl(fileno(file), F_SETLK, &lock);
    }
    held = None;
}

//===-- FileAppender -------------------------------------------------------===//

FileAppender::FileAppender(const char* name)
    : WriterAppender(name), bufferSize(4096), bufferedIO(true), append(false), hasVariables(false) {
    privateStream = true;
}

void FileAppender::makeFileName(const std::string& name, bool expandInstance, std::string& out) {
    std::string result;
    if (name.find("%D") == std::string::npos && name.find('/') == std::string::npos &&
        name.find('\\') == std::string::npos)
        result = "%D";
    result += name;
    const std::string base = getAppContextText("ProcessExecutableBase");
    replaceAll(result, "%P", getAppContextText("ProcessID"));
    replaceAll(result, "%A", base);
    replaceAll(result, "%D", getAppContextText("DirProcessLog"));
    if (expandInstance) {
        const std::string instance = getAppContextText("AppInstance");
        replaceAll(result, "%I", instance.empty() ? base : instance);
    }
    out.swap(result);
}

void FileAppender::setFile(const char* name) {
    makeFileName(name ? name : "", false, fileName);
    hasVariables = fileName.find('%') != std::string::npos;
}

const std::string& FileAppender::getFile() const {
    if (!hasVariables)
        return fileName;
    makeFileName(fileName, true, expandedFileName);
    return expandedFileName;
}

void FileAppender::ensureDirectoryExists(const std::string& path) {
    // The directory part only: the file itself is made by fopen.
    size_t slash = path.find_last_of('/');
    if (slash == std::string::npos || slash == 0)
        return;
    qzAutoCreateMissingDir(path.substr(0, slash).c_str());
}

void FileAppender::activateOptions() {
    const std::string name = getFile();
    if (name.empty())
        return;
    // A file that cannot be opened is retried at each event; its directory
    // is made, and the failure reported, once per cause rather than per
    // event.
    if (failedFile != name)
        ensureDirectoryExists(name);
    file = std::fopen(name.c_str(), append ? "ab" : "wb");
    if (!file) {
        if (failedFile != name) {
            failedFile = name;
            fault("FileAppender::activateOptions", 1525, __LINE__, name.c_str());
        }
        return;
    }
    failedFile.clear();
    if (bufferedIO && bufferSize != 0)
        std::setvbuf(file, nullptr, _IOFBF, bufferSize);
    else
        std::setvbuf(file, nullptr, _IONBF, 0);
    writeHeader();
}

void FileAppender::reset() {
    if (!file)
        activateOptions();
    WriterAppender::reset();
}

long FileAppender::getCurrentFileSize() const {
    if (!file)
        return 0;
    struct stat info;
    if (::fstat(fileno(file), &info) != 0)
        return LONG_MAX;
    return static_cast<long>(info.st_size);
}

//===-- RollingFileAppender ------------------------------------------------===//

RollingFileAppender::RollingFileAppender(const char* name)
    : FileAppender(name), maxBackupIndex(1), maxFileSize(0x7D000000u), rolling(false),
      estimatedSize(0), statCountdown(0), statSize(0), ownSinceStat(0) {}

void RollingFileAppender::reset() {
    FileAppender::reset();
}

void RollingFileAppender::setMaxFileSize(const char* text) {
    if (!text)
        return;
    const char* cursor = text;
    uint64_t value = Token::parseInt(cursor, nullptr);
    static const char suffixes[] = "GgMmKk";
    const char c = *cursor;
    if (c == '\0') {
        maxFileSize = static_cast<unsigned int>(value);
        return;
    }
    const char* at = std::strchr(suffixes, c);
    if (!at || (cursor[1] != 'B' && cursor[1] != 'b') || cursor[2] != '\0') {
        fault("RollingFileAppender::setMaxFileSize", 1531, __LINE__, text);
        return;
    }
    const int multiplications = 3 - static_cast<int>(at - suffixes) / 2;
    for (int i = 0; i < multiplications; ++i) {
        if (value >= 0x400000) {
            fault("RollingFileAppender::setMaxFileSize", 1530, __LINE__, text);
            return;
        }
        value *= 1024;
    }
    maxFileSize = static_cast<unsigned int>(value);
}

void RollingFileAppender::activateOptions() {
    if (!file && !append)
        rollOver();
    FileAppender::activateOptions();
    if (maxFileSize != 0 && file && getCurrentFileSize() >= static_cast<long>(maxFileSize))
        rollOver();
}

long RollingFileAppender::sizeForWrite(unsigned long size) {
    // Decision: the size is read by fstat only when it can matter. Between
    // two reads it is estimated from the last read plus this appender's own
    // writes since. The next read is due after as many writes as could fill
    // a quarter of the room left before the limit at the pace the file grew
    // since the last read: when other processes write the file too, it grows
    // faster than this appender writes, and the reads come sooner. Right
    // after an open the pace is unknown and the reads come every
    // FirstStatInterval writes. Within StatMargin of the limit every write
    // reads it, so each process still stops at the limit; the roll itself
    // is guarded by the file lock.
    const long near =
        static_cast<long>(maxFileSize) - 2 * static_cast<long>(size) - 2048 - StatMargin;
    if (statCountdown == 0 || estimatedSize >= near) {
        // No write since the last read: this is the first after an open.
        const bool known = ownSinceStat > 0;
        const long measured = getCurrentFileSize();
        const long growth = measured - statSize;
        long pace = 1;
        if (ownSinceStat > 0 && growth > ownSinceStat)
            pace = std::min(growth / ownSinceStat + 1, 1L << 20);
        estimatedSize = measured;
        statSize = measured;
        ownSinceStat = 0;
        const long room = near - measured;
        const long perWrite = 4 * pace * static_cast<long>(size > 0 ? size : 1);
        const long cap =
            known ? static_cast<long>(StatInterval) : static_cast<long>(FirstStatInterval);
        const long writes = room > 0 ? room / perWrite : 0;
        statCountdown = static_cast<unsigned int>(std::min(writes, cap));
    } else {
        --statCountdown;
    }
    ownSinceStat += static_cast<long>(size);
    return estimatedSize;
}

void RollingFileAppender::write(const void* bytes, unsigned long size) {
    if (!file) {
        activateOptions();
        statCountdown = 0;
        ownSinceStat = 0;
    }
    if (maxFileSize == 0) {
        WriterAppender::write(bytes, size);
        return;
    }
    const long current = sizeForWrite(size);
    estimatedSize += static_cast<long>(size);
    if (static_cast<long>(maxFileSize) > current + 2 * static_cast<long>(size) + 2048) {
        WriterAppender::write(bytes, size);
        return;
    }
    uint32_t total = static_cast<uint32_t>(current + static_cast<long>(size));
    const unsigned long footer = layout ? layout->getFooterLength() : 0;
    if (footer != 0) {
        // The footer must still fit in the old file: write, then roll.
        total += static_cast<uint32_t>(footer);
        WriterAppender::write(bytes, size);
        if (total > maxFileSize)
            rollOver();
        return;
    }
    if (total > maxFileSize)
        rollOver();
    WriterAppender::write(bytes, size);
}

bool RollingFileAppender::isFileChanged(const char* name, FILE* stream) {
    if (!stream && !name)
        return true;
    if (!name || !*name)
        return true;
    struct stat byName;
    if (::stat(name, &byName) != 0)
        return true;
    if (!stream)
        return true;
    struct stat open;
    if (::fstat(fileno(stream), &open) != 0)
        return true;
    return open.st_ino != byName.st_ino || open.st_dev != byName.st_dev;
}

void RollingFileAppender::rollOver() {
    if (rolling)
        return;
    const std::string name = getFile();
    if (name.empty())
        return;
    rolling = true;

    FileLock lock(file);
    if (!lock.obtain(FileLock::Exclusive)) {
        rolling = false;
        return;
    }
    if (file && isFileChanged(name.c_str(), file)) {
        // Another process rolled it while we waited: reopen, do not roll again.
        lock.held = FileLock::None; // the lock dies with the closed file
        close();
        activateOptions();
        statCountdown = 0;
        ownSinceStat = 0;
        rolling = false;
        return;
    }

    const std::string oldest = name + "." + std::to_string(maxBackupIndex);
    if (::unlink(oldest.c_str()) != 0 && errno != ENOENT)
        fault("RollingFileAppender::rollOver", 1093, __LINE__, oldest.c_str());
    for (unsigned int i = maxBackupIndex; i >= 1; --i) {
        const std::string from = i == 1 ? name : name + "." + std::to_string(i - 1);
        const std::string to = name + "." + std::to_string(i);
        if (::rename(from.c_str(), to.c_str()) != 0 && errno != ENOENT) {
            KeepInErrorContext(raiseMessage(
                QZ_SOURCE("qzlog", "qzlog/FileAppender", "RollingFileAppender::rollOver"), 1800,
                ReturnToCaller, from.c_str(), to.c_str()));
        }
    }
    if (file) {
        lock.held = FileLock::None; // closing the file drops the lock
        close();
        activateOptions();
    }
    statCountdown = 0;
    ownSinceStat = 0;
    rolling = false;
}

//===-- DailyRollingFileAppender -------------------------------------------===//

DailyRollingFileAppender::DailyRollingFileAppender(const char* name)
    : FileAppender(name), lastSecond(0) {
    append = true;
}

void DailyRollingFileAppender::generateFile(std::string& out, long seconds) const {
    out = FileAppender::getFile();
    if (datePattern.empty())
        return;
    time_t t = static_cast<time_t>(seconds);
    struct tm local;
    localtime_r(&t, &local);
    char text[251];
    size_t n = std::strftime(text, sizeof text, datePattern.c_str(), &local);
    out.append(text, n);
}

const std::string& DailyRollingFileAppender::getFile() const {
    if (currentFile.empty())
        generateFile(currentFile, LoggingTime::getCurrentTime());
    return currentFile;
}

void DailyRollingFileAppender::write(const void* bytes, unsigned long size) {
    timeval now;
    LoggingTime::getCurrentTime(&now);
    if (now.tv_sec != lastSecond) {
        lastSecond = now.tv_sec;
        std::string name;
        generateFile(name, lastSecond);
        if (name != currentFile) {
            currentFile = name;
            close();
        }
    }
    WriterAppender::write(bytes, size);
}

} // namespace qzlog
} // namespace qzlib
} // namespace qzs
