//===- qzstd/fileutl.cpp - File utilities ---------------------------------===//
//
// Every refusal that the caller cannot see from the result alone is reported
// through the fault seam with its catalogue number; texts that the caller
// receives (copy errors, read and write errors) are built here. Name buffers
// are fixed at 251 bytes and filled with snprintf, which cuts and terminates.
//
//===----------------------------------------------------------------------===//
#include "qzstd/fileutl.h"

#include "qzlog/Level.h"
#include "qzlog/LogMacros.h"
#include "qzlog/Logger.h"
#include "qzlog/LoggerRepository.h"
#include "qzstd/FaultReport.h"
#include "qzstd/memutl.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <string>
#include <unistd.h>
#include <vector>

using qzs::qzlib::qzlog::Level;
using qzs::qzlib::qzlog::Logger;

namespace {

const char kFileComponent[] = "qzstd.util.file";

constexpr unsigned int kMsgOpenFailed = 1091;
// A file call refused by the system: the call's name, the file or
// descriptor, the error number and its text.
constexpr unsigned int kMsgFileCallFailed = 1092;
constexpr unsigned int kMsgDeleteFailed = 1093;
// Also belongs in the thread's error context once error contexts exist.
constexpr unsigned int kMsgRenameFailed = 1800;
constexpr unsigned int kMsgDirectoryMissing = 25119;

// Up to 10 tries in all for the sync calls.
constexpr int kSyncTries = 10;

Logger* fileLogger() {
    static Logger* const logger = Logger::getRepository().getLogger("qzstd.util.file");
    return logger;
}

Logger* deleteLogger() {
    static Logger* const logger = Logger::getRepository().getLogger("fileutl.delete");
    return logger;
}

// Callers read errno after a failed call, so a report leaves it as it was,
// the building of the argument text included.
void report(const char* function, unsigned int number, const std::string& arguments) {
    int saved = errno;
    qzs::qzlib::detail::reportFault(QZ_FAULT_SITE(kFileComponent, function), number, arguments);
    errno = saved;
}

std::string systemText(int error) {
    char buffer[256];
    return ::strerror_r(error, buffer, sizeof buffer);
}

// Message 1092. errno is left as the failed call set it.
void reportCall(const char* function, const char* call, const std::string& target, int error) {
    std::string arguments =
        std::string(call) + ", " + target + ", " + std::to_string(error) + ", " + systemText(error);
    report(function, kMsgFileCallFailed, arguments);
    errno = error;
}

std::string descriptorText(int descriptor) {
    return "descriptor " + std::to_string(descriptor);
}

// Copies `text` into a 251-byte name buffer, cutting it there.
void copyName(char* target, const char* text, size_t length) {
    size_t n = std::min(length, static_cast<size_t>(QZ_FILENAME_SIZE - 1));
    std::memcpy(target, text, n);
    target[n] = '\0';
}

// A pause of `msecs` milliseconds that signals do not shorten.
void delayMsecs(unsigned int msecs) {
    timespec left{static_cast<time_t>(msecs / 1000), static_cast<long>(msecs % 1000) * 1000000L};
    while (::nanosleep(&left, &left) == -1 && errno == EINTR) {
    }
}

// The random pause between tries, so that processes interrupted together do
// not retry together. The seed is the caller's: no shared state.
void retryPause(unsigned int& seed) {
    delayMsecs((static_cast<unsigned int>(::rand_r(&seed)) & 992u) | 16u);
}

// "*" matches any run, "?" any one character; nothing else is special. The
// same rule as the string utilities' wildcard match, kept here so that the
// file utilities do not depend on the parameter scanner.
bool wildcardMatch(const char* pattern, const char* text) {
    const char* star = nullptr;
    const char* resume = nullptr;
    while (*text) {
        if (*pattern == '*') {
            star = pattern++;
            resume = text;
        } else if (*pattern == '?' || *pattern == *text) {
            ++pattern;
            ++text;
        } else if (star) {
            pattern = star + 1;
            text = ++resume;
        } else {
            return false;
        }
    }
    while (*pattern == '*')
        ++pattern;
    return *pattern == '\0';
}

// The start of the last path component.
const char* lastComponent(const char* path) {
    const char* slash = std::strrchr(path, '/');
    return slash ? slash + 1 : path;
}

// Trailing digits of the last component.
size_t trailingDigits(const char* fileName) {
    const char* base = lastComponent(fileName);
    const char* end = base + std::strlen(base);
    const char* p = end;
    while (p > base && p[-1] >= '0' && p[-1] <= '9')
        --p;
    return static_cast<size_t>(end - p);
}

// The body of the list functions: entries of the directory of `pattern`
// whose names match its last component, appended to `out` (when not null)
// and counted. Gives 0, or -1 with errno set.
int listFiles(const char* pattern, std::vector<file_info_def>* out, int* count, bool regularOnly) {
    char dir[QZ_FILENAME_SIZE];
    char name[QZ_FILENAME_SIZE];
    char ext[QZ_FILENAME_SIZE];
    qzGetFileParts(pattern, dir, name, ext);
    char match[QZ_FILENAME_SIZE * 2];
    if (ext[0])
        std::snprintf(match, sizeof match, "%s.%s", name, ext);
    else
        std::snprintf(match, sizeof match, "%s", name);

    const char* opened = dir[0] ? dir : ".";
    DIR* directory = ::opendir(opened);
    if (!directory) {
        int error = errno;
        QZ_LOG(fileLogger(), Level::Error,
               "ERROR: cannot open directory: opendir: %s  errno: %d (%s)", opened, error,
               systemText(error));
        errno = error;
        return -1;
    }
    int found = 0;
    for (;;) {
        errno = 0;
        dirent* entry = ::readdir(directory);
        if (!entry) {
            if (errno != 0) {
                int error = errno;
                // Kept on purpose: "readir" is the text that log searches
                // look for.
                QZ_LOG(fileLogger(), Level::Error, "ERROR: readir: errno: %d (%s)", error,
                       systemText(error));
            }
            break;
        }
        if (std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0)
            continue;
        if (!wildcardMatch(match, entry->d_name))
            continue;
        // A path that does not fit the name buffer could only be stated
        // under a wrong, cut name: such an entry is left out.
        file_info_def info;
        int length = std::snprintf(info.name, sizeof info.name, "%s%s", dir, entry->d_name);
        if (length < 0 || length >= QZ_FILENAME_SIZE || ::stat(info.name, &info.info) != 0)
            continue;
        if (regularOnly && !S_ISREG(info.info.st_mode))
            continue;
        ++found;
        if (out)
            out->push_back(info);
    }
    ::closedir(directory);
    *count = found;
    return 0;
}

// Sorts, cuts and hands over `entries` as a qzMalloc'd array.
int deliverList(std::vector<file_info_def>& entries, file_info_def** list, int* count,
                int (*compare)(void const*, void const*), int maxEntries) {
    if (compare && !entries.empty())
        std::qsort(entries.data(), entries.size(), sizeof(file_info_def), compare);
    if (maxEntries > 0 && entries.size() > static_cast<size_t>(maxEntries))
        entries.resize(static_cast<size_t>(maxEntries));
    *count = static_cast<int>(entries.size());
    *list = nullptr;
    if (entries.empty())
        return 0;
    if (entries.size() > static_cast<size_t>(INT_MAX) / sizeof(file_info_def)) {
        *count = 0;
        errno = ENOMEM;
        return -1;
    }
    void* block = qzMalloc(static_cast<int>(entries.size() * sizeof(file_info_def)));
    if (!block) {
        *count = 0;
        errno = ENOMEM;
        return -1;
    }
    std::memcpy(block, entries.data(), entries.size() * sizeof(file_info_def));
    *list = static_cast<file_info_def*>(block);
    return 0;
}

// Stands in for the process context's ProcessExecutableDir item until
// contexts exist, computed the way that item is: the link /proc/self/exe,
// up to its last "/" or "\\"; "" when there is none.
std::string processExecutableDir() {
    char path[PATH_MAX];
    ssize_t n = ::readlink("/proc/self/exe", path, sizeof path - 1);
    if (n < 1)
        return std::string();
    path[n] = '\0';
    const char* slash = std::strrchr(path, '/');
    const char* backslash = std::strrchr(path, '\\');
    const char* last = slash;
    if (backslash && (!last || backslash > last))
        last = backslash;
    return last ? std::string(path, static_cast<size_t>(last - path)) : std::string();
}

std::string computeInstallationDir() {
    std::string executableDir = processExecutableDir();
    QZ_LOG(fileLogger(), Level::Debug, "ProcessExecutableDir: \"%s\"", executableDir);
    std::string result;
    if (executableDir.empty()) {
        char cwd[PATH_MAX];
        if (::getcwd(cwd, sizeof cwd)) {
            result = cwd;
            std::printf("Missing path prefix in cmd line, use cwd: %s\n", cwd);
        }
    } else {
        char resolved[PATH_MAX];
        if (qzGetRealPath(executableDir.c_str(), resolved, nullptr)) {
            result = resolved;
        } else {
            result = executableDir;
            std::printf("Best guess executable path: %s\n", executableDir.c_str());
        }
    }
    QZ_LOG(fileLogger(), Level::Info, "XQZ installation path: \"%s\"", result);
    return result;
}

// Removes everything inside `path`, depth first. Links are unlinked, never
// followed, so a link to a directory elsewhere cannot empty it.
bool removeContents(const std::string& path, int& error) {
    DIR* directory = ::opendir(path.c_str());
    if (!directory) {
        error = errno;
        return false;
    }
    bool ok = true;
    while (dirent* entry = ::readdir(directory)) {
        if (std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0)
            continue;
        std::string child = path + "/" + entry->d_name;
        struct stat info;
        if (::lstat(child.c_str(), &info) != 0) {
            if (ok)
                error = errno;
            ok = false;
            continue;
        }
        int childError = 0;
        bool removed = S_ISDIR(info.st_mode) ? qzDeleteDirectory(child.c_str(), true, &childError)
                                             : qzDeleteFile(child.c_str(), &childError);
        if (!removed && ok) {
            error = childError;
            ok = false;
        }
    }
    ::closedir(directory);
    return ok;
}

} // namespace

// ---- Opening, locking, closing --------------------------------------------

FILE* qzOpenFile(char const* name, char const* mode) {
    FILE* stream = std::fopen(name, mode);
    if (!stream) {
        report("qzOpenFile", kMsgOpenFailed, name ? name : "");
        return nullptr;
    }
    int descriptor = ::fileno(stream);
    int flags = ::fcntl(descriptor, F_GETFD);
    if (flags != -1)
        ::fcntl(descriptor, F_SETFD, flags | FD_CLOEXEC);
    return stream;
}

FILE* qzOpenReportFile(char const* name, char const* mode, bool redirectStdout) {
    FILE* stream = qzOpenFile(name, mode);
    if (!stream)
        return nullptr;
    // What the process already buffered for the old targets goes there first.
    std::fflush(stderr);
    if (::dup2(::fileno(stream), 2) == -1)
        reportCall("qzOpenReportFile", "dup2()", name, errno);
    if (redirectStdout) {
        std::fflush(stdout);
        if (::dup2(::fileno(stream), 1) == -1)
            reportCall("qzOpenReportFile", "dup2()", name, errno);
    }
    return stream;
}

int qzOpenProtected(char const* name) {
    int descriptor = ::open(name, O_RDWR | O_CLOEXEC);
    if (descriptor == -1)
        return -1;
    if (qzProtectFile(descriptor, nullptr, 0) != 0) {
        int error = errno;
        ::close(descriptor);
        errno = error;
        return -1;
    }
    return descriptor;
}

int qzCreateFile(char const* name, int flags, int mode, int* error) {
    int descriptor = ::open(name, flags | O_CREAT | O_CLOEXEC, static_cast<mode_t>(mode));
    if (descriptor == -1 && error)
        *error = errno;
    return descriptor;
}

int qzProtectFile(int descriptor, long* holder, int wait) {
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    lock.l_start = 0;
    lock.l_len = 0; // to the end, however far the file grows
    const int command = wait ? F_SETLKW : F_SETLK;
    while (::fcntl(descriptor, command, &lock) == -1) {
        if (errno == EINTR)
            continue;
        int error = errno;
        if (holder && (error == EACCES || error == EAGAIN)) {
            struct flock probe {};
            probe.l_type = F_WRLCK;
            probe.l_whence = SEEK_SET;
            if (::fcntl(descriptor, F_GETLK, &probe) == 0 && probe.l_type != F_UNLCK)
                *holder = probe.l_pid;
        }
        errno = error;
        return -1;
    }
    return 0;
}

int qzClose(int descriptor) {
    if (::close(descriptor) == 0)
        return 0;
    reportCall("qzClose", "close()", descriptorText(descriptor), errno);
    return -1;
}

int qzCloseHandle(int descriptor) {
    return descriptor < 0 ? 0 : qzClose(descriptor);
}

int qzCloseHandle(int* descriptor) {
    int rc = qzCloseHandle(*descriptor);
    *descriptor = -1;
    return rc;
}

int qzFclose(FILE* stream) {
    if (!stream)
        return 0;
    // Only an interrupted flush is worth repeating; a full disk or a bad
    // descriptor would fail the same way for ever.
    bool flushed = false;
    for (int attempt = 0; attempt < kSyncTries; ++attempt) {
        if (std::fflush(stream) == 0) {
            flushed = true;
            break;
        }
        int error = errno;
        reportCall("qzFclose", "fflush()", descriptorText(::fileno(stream)), error);
        if (error != EINTR && error != EAGAIN && error != EWOULDBLOCK)
            break;
    }
    int rc = std::fclose(stream);
    return flushed ? rc : EOF;
}

bool qzFflush(FILE* stream) {
    if (std::fflush(stream) == 0)
        return true;
    int error = errno;
    reportCall("qzFflush", "fflush()", stream ? descriptorText(::fileno(stream)) : "all streams",
               error);
    return false;
}

size_t qzFwrite(void const* data, size_t size, size_t count, FILE* stream) {
    size_t written = std::fwrite(data, size, count, stream);
    if (written < count)
        reportCall("qzFwrite", "fwrite()", descriptorText(::fileno(stream)), errno);
    return written;
}

char* qzFgets(char* buffer, int size, FILE* stream) {
    char* line = std::fgets(buffer, size, stream);
    if (!line && std::ferror(stream))
        reportCall("qzFgets", "fgets()", descriptorText(::fileno(stream)), errno);
    return line;
}

bool qzRead(int descriptor, char* buffer, unsigned long size, unsigned long* bytesRead,
            char* errorText) {
    unsigned long done = 0;
    bool ok = true;
    while (done < size) {
        ssize_t n = ::read(descriptor, buffer + done, size - done);
        if (n > 0) {
            done += static_cast<unsigned long>(n);
        } else if (n == 0) {
            break;
        } else if (errno != EINTR) {
            int error = errno;
            if (errorText)
                std::snprintf(errorText, 256, "read() error %d (%s)", error,
                              systemText(error).c_str());
            errno = error;
            ok = false;
            break;
        }
    }
    if (bytesRead)
        *bytesRead = done;
    return ok;
}

bool qzWrite(int descriptor, char const* buffer, unsigned long size, unsigned long* bytesWritten,
             char* errorText) {
    unsigned long done = 0;
    bool ok = true;
    while (done < size) {
        ssize_t n = ::write(descriptor, buffer + done, size - done);
        if (n >= 0) {
            done += static_cast<unsigned long>(n);
        } else if (errno != EINTR) {
            int error = errno;
            if (errorText)
                std::snprintf(errorText, 256, "write() error %d (%s)", error,
                              systemText(error).c_str());
            errno = error;
            ok = false;
            break;
        }
    }
    if (bytesWritten)
        *bytesWritten = done;
    return ok;
}

bool qzLseek(int descriptor, unsigned long offset, int whence, unsigned long* position) {
    off_t result = ::lseek(descriptor, static_cast<off_t>(offset), whence);
    if (result == static_cast<off_t>(-1)) {
        reportCall("qzLseek", "seek()", descriptorText(descriptor), errno);
        return false;
    }
    if (position)
        *position = static_cast<unsigned long>(result);
    return true;
}

// ---- Durable flushing -----------------------------------------------------

bool qzFsync(int descriptor) {
    unsigned int seed = static_cast<unsigned int>(std::time(nullptr));
    for (int retries = 0;; ++retries) {
        if (::fsync(descriptor) == 0)
            return true;
        if (errno != EINTR || retries == kSyncTries)
            return false;
        retryPause(seed);
    }
}

bool qzFsync(FILE* stream) {
    if (std::fflush(stream) != 0)
        return false;
    return qzFsync(::fileno(stream));
}

bool qzFsyncData(int descriptor, bool report) {
    unsigned int seed = static_cast<unsigned int>(std::time(nullptr));
    bool wholeFile = false;
    int error = 0;
    for (int tries = 1;; ++tries) {
        if ((wholeFile ? ::fsync(descriptor) : ::fdatasync(descriptor)) == 0)
            return true;
        error = errno;
        if (tries == kSyncTries)
            break;
        if (error == EINTR) {
            retryPause(seed);
        } else if (!wholeFile && (error == EINVAL || error == EROFS || error == ENOSYS)) {
            // Some file systems know only the full sync.
            wholeFile = true;
        } else {
            break;
        }
    }
    if (report)
        reportCall("qzFsyncData", wholeFile ? "fsync()" : "fdatasync()", descriptorText(descriptor),
                   error);
    errno = error;
    return false;
}

bool qzFsyncData(FILE* stream, bool report) {
    if (std::fflush(stream) != 0)
        return false;
    return qzFsyncData(::fileno(stream), report);
}

bool qzFsyncDir(char const* directory, int* error) {
    int descriptor = ::open(directory, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor == -1) {
        if (error)
            *error = errno;
        return false;
    }
    bool ok = qzFsync(descriptor);
    int syncError = ok ? 0 : errno;
    ::close(descriptor);
    if (!ok && (syncError == EBADF || syncError == EINVAL))
        ok = true;
    if (!ok) {
        if (error)
            *error = syncError;
        errno = syncError;
    }
    return ok;
}

// ---- Sizes, existence, stat -----------------------------------------------

unsigned long qzGetFileSize(int descriptor) {
    struct stat info;
    if (::fstat(descriptor, &info) != 0)
        return ~0UL;
    return static_cast<unsigned long>(info.st_size);
}

bool qzNonEmptyFile(char const* name) {
    struct stat info;
    return ::stat(name, &info) == 0 && info.st_size > 0;
}

bool qzDoesFileExist(char const* name) {
    return ::access(name, F_OK) == 0;
}

bool qzCheckFileExists(char const* name) {
    struct stat info;
    return ::stat(name, &info) == 0 && !S_ISDIR(info.st_mode);
}

bool qzCheckDirExists(char const* name) {
    struct stat info;
    return ::stat(name, &info) == 0 && S_ISDIR(info.st_mode);
}

bool qzCheckParamFileExists(char (&name)[QZ_FILENAME_SIZE]) {
    if (qzCheckFileExists(name))
        return true;
    if (std::strchr(lastComponent(name), '.'))
        return false;
    char withExtension[QZ_FILENAME_SIZE];
    int n = std::snprintf(withExtension, sizeof withExtension, "%s.prm", name);
    if (n < 0 || n >= QZ_FILENAME_SIZE || !qzCheckFileExists(withExtension))
        return false;
    std::memcpy(name, withExtension, static_cast<size_t>(n) + 1);
    return true;
}

bool qzStat(char const* name, struct stat* info, int* error) {
    if (::stat(name, info) == 0)
        return true;
    if (error)
        *error = errno;
    return false;
}

bool qzStat(int descriptor, struct stat* info, int* error) {
    if (::fstat(descriptor, info) == 0)
        return true;
    if (error)
        *error = errno;
    return false;
}

bool qzFtruncate(char const* name, unsigned long size, int* error) {
    if (::truncate(name, static_cast<off_t>(size)) == 0)
        return true;
    if (error)
        *error = errno;
    return false;
}

bool qzTruncateFile(FILE*& stream, char* name) {
    if (stream)
        std::fclose(stream);
    stream = qzOpenFile(name, "wb+");
    return stream != nullptr;
}

bool qzCopyFile(char const* source, char const* destination, char (&message)[QZ_COPY_MESSAGE_SIZE],
                int* error) {
    message[0] = '\0';
    auto fail = [&](const char* format, const char* name, int code) {
        std::snprintf(message, sizeof message, format, name, code, systemText(code).c_str());
        if (error)
            *error = code;
        errno = code;
        return false;
    };

    FILE* in = std::fopen(source, "r");
    if (!in)
        return fail("Error copying files: could not open input file %s, error %d (%s)\n", source,
                    errno);
    FILE* out = std::fopen(destination, "w+");
    if (!out) {
        int code = errno;
        std::fclose(in);
        return fail("Error copying files: could not open output file %s, error %d (%s)\n",
                    destination, code);
    }
    char block[16384];
    for (;;) {
        size_t n = std::fread(block, 1, sizeof block, in);
        if (n > 0 && std::fwrite(block, 1, n, out) != n) {
            int code = errno;
            std::fclose(in);
            std::fclose(out);
            return fail("Error copying files: could not write output file %s, error %d (%s)\n",
                        destination, code);
        }
        if (n < sizeof block) {
            if (std::ferror(in)) {
                int code = errno;
                std::fclose(in);
                std::fclose(out);
                return fail("Error copying files: could not read input file %s, error %d (%s)\n",
                            source, code);
            }
            break;
        }
    }
    std::fclose(in);
    // The last block may only reach the disk at the close.
    if (std::fclose(out) != 0)
        return fail("Error copying files: could not write output file %s, error %d (%s)\n",
                    destination, errno);
    return true;
}

bool qzAgeFiles(char const* name, short versions, bool dotted) {
    char file[QZ_FILENAME_SIZE];
    copyName(file, name, std::strlen(name));

    // Only a "." of the last component starts the extension: "run.d/a"
    // has none.
    char stem[QZ_FILENAME_SIZE];
    char extension[QZ_FILENAME_SIZE + 1];
    const char* dot = std::strrchr(lastComponent(file), '.');
    if (dot) {
        copyName(stem, file, static_cast<size_t>(dot - file));
        std::snprintf(extension, sizeof extension, ".%s", dot + 1);
    } else {
        copyName(stem, file, std::strlen(file));
        extension[0] = '\0';
    }
    // A generation's name may be longer than the cut name: its buffer is not
    // the 251 bytes of the name.
    auto generation = [&](char* out, size_t size, short number) {
        std::snprintf(out, size, dotted ? "%s.%hd%s" : "%s%hd%s", stem, number, extension);
    };

    bool ok = true;
    char from[QZ_FILENAME_SIZE * 2 + 16];
    char to[QZ_FILENAME_SIZE * 2 + 16];

    generation(to, sizeof to, versions);
    if (::unlink(to) != 0 && errno != ENOENT) {
        ok = false;
        QZ_LOG(fileLogger(), Level::Info, "qzAgeFiles: Error deleting file '%s'", to);
        report("qzAgeFiles", kMsgDeleteFailed, to);
    }

    auto move = [&](const char* source, const char* target) {
        if (::rename(source, target) == 0 || errno == ENOENT)
            return;
        ok = false;
        QZ_LOG(fileLogger(), Level::Info, "qzAgeFiles: Error renaming file '%s' to '%s'", source,
               target);
        report("qzAgeFiles", kMsgRenameFailed, std::string(source) + ", " + target);
    };
    for (int number = versions - 1; number >= 0; --number) {
        generation(from, sizeof from, static_cast<short>(number));
        generation(to, sizeof to, static_cast<short>(number + 1));
        move(from, to);
    }
    generation(to, sizeof to, 0);
    move(file, to);
    return ok;
}

// ---- Directories ------------------------------------------------------------

bool qzCreateDir(char const* path, int* error) {
    if (::mkdir(path, 0777) == 0)
        return true;
    if (error)
        *error = errno;
    return false;
}

bool qzCreateDir(char const* path, char* errorText) {
    int error = 0;
    if (qzCreateDir(path, &error))
        return true;
    std::snprintf(errorText, 256, "error %d (%s)", error, systemText(error).c_str());
    errno = error;
    return false;
}

bool qzAutoCreateMissingDir(char const* path) {
    std::string work(path);
    std::string built = !work.empty() && (work[0] == '/' || work[0] == '\\') ? "/" : "";
    char* save = nullptr;
    for (char* part = ::strtok_r(&work[0], "/\\", &save); part;
         part = ::strtok_r(nullptr, "/\\", &save)) {
        built += part;
        // Existing components fail with EEXIST; whether the whole path now
        // exists is the one test that counts.
        ::mkdir(built.c_str(), 0777);
        built += '/';
    }
    // The test is on the path as built, with "/" between the components: a
    // "\\" in `path` is a separator here, not part of a name.
    if (built.size() > 1)
        built.pop_back();
    if (qzCheckDirExists(built.c_str()))
        return true;
    report("qzAutoCreateMissingDir", kMsgDirectoryMissing, path);
    return false;
}

bool qzDeleteFile(char const* name, int* error) {
    if (::unlink(name) == 0)
        return true;
    if (error)
        *error = errno;
    return false;
}

bool qzDeleteDirectory(char const* path, bool withContents, int* error) {
    QZ_LOG(deleteLogger(), Level::Info, "Deleting directory '%s', %s", path,
           withContents ? "with its contents" : "if empty");
    int failure = 0;
    if (withContents && !removeContents(path, failure)) {
        if (error)
            *error = failure;
        errno = failure;
        return false;
    }
    if (::rmdir(path) == 0)
        return true;
    if (error)
        *error = errno;
    return false;
}

bool qzDirIsWritable(char const* path) {
    return ::access(path, W_OK) == 0;
}

// ---- Paths ------------------------------------------------------------------

bool qzIsAbsoluteFileName(char const* name) {
    return name && name[0] == '/';
}

bool qzGetRealPath(char const* path, char* resolved, int* error) {
    char buffer[PATH_MAX];
    if (!::realpath(path, buffer)) {
        if (error)
            *error = errno;
        return false;
    }
    std::memcpy(resolved, buffer, std::strlen(buffer) + 1);
    QZ_LOG(fileLogger(), Level::Debug, "\"%s\" is resolved as \"%s\"", path, resolved);
    // Kept on purpose: realpath may leave errno set from a step it recovered
    // from, and callers test errno after a success.
    errno = 0;
    if (error)
        *error = 0;
    return true;
}

bool qzGetLocalPath(char const* path, char* resolved) {
    struct stat info;
    if (::stat(path, &info) != 0) {
        int error = errno;
        QZ_LOG(fileLogger(), Level::Info, "error (%d), unable to stat path \"%s\"", error, path);
        std::snprintf(resolved, PATH_MAX, "%s", path);
        errno = error;
        return false;
    }
    return qzGetRealPath(path, resolved, nullptr);
}

bool qzGetFileParts(char const* path, char* dir, char* name, char* ext) {
    const char* file = lastComponent(path);
    copyName(dir, path, static_cast<size_t>(file - path));
    const char* dot = std::strrchr(file, '.');
    if (dot) {
        copyName(name, file, static_cast<size_t>(dot - file));
        copyName(ext, dot + 1, std::strlen(dot + 1));
    } else {
        copyName(name, file, std::strlen(file));
        ext[0] = '\0';
    }
    return std::strpbrk(file, "*?") != nullptr;
}

bool qzGetFileNameParts(char const* path, char* dir, char* fileName) {
    const char* file = lastComponent(path);
    copyName(dir, path, static_cast<size_t>(file - path));
    copyName(fileName, file, std::strlen(file));
    return std::strpbrk(file, "*?") != nullptr;
}

int qzGetFullPathName(char const* path, int size, char* fullPath, char** filePart) {
    if (!path || !path[0] || size <= 0) {
        errno = EINVAL;
        return 0;
    }
    std::string input;
    if (path[0] != '/') {
        char cwd[PATH_MAX];
        if (!::getcwd(cwd, sizeof cwd))
            return 0;
        input = cwd;
        input += '/';
    }
    input += path;

    // Components by text: "" and "." vanish, ".." drops the one before it
    // and stops at the root.
    std::vector<std::string> parts;
    size_t start = 0;
    while (start <= input.size()) {
        size_t end = input.find('/', start);
        if (end == std::string::npos)
            end = input.size();
        std::string part = input.substr(start, end - start);
        if (part == "..") {
            if (!parts.empty())
                parts.pop_back();
        } else if (!part.empty() && part != ".") {
            parts.push_back(part);
        }
        start = end + 1;
    }
    std::string result;
    for (const std::string& part : parts)
        result += "/" + part;
    const char last = input.back();
    const bool dirOnly = last == '/' ||
                         (input.size() >= 2 && input.compare(input.size() - 2, 2, "/.") == 0) ||
                         (input.size() >= 3 && input.compare(input.size() - 3, 3, "/..") == 0);
    if (result.empty() || dirOnly)
        result += '/';

    if (result.size() + 1 > static_cast<size_t>(size)) {
        errno = ERANGE;
        return 0;
    }
    std::memcpy(fullPath, result.c_str(), result.size() + 1);
    size_t filePos = result.rfind('/') + 1;
    if (filePart)
        *filePart = fullPath + filePos;
    QZ_LOG(fileLogger(), Level::Debug, "path name \"%s\" has dir \"%s\" and file name \"%s\"", path,
           result.substr(0, filePos), fullPath + filePos);
    return static_cast<int>(result.size());
}

// ---- Trail file names -------------------------------------------------------

int qzSeqLenFromFileName(char const* fileName) {
    size_t digits = trailingDigits(fileName);
    return digits >= 9 ? 9 : digits >= 6 ? 6 : 0;
}

long qzSeqnoFromFileName(char const* fileName) {
    int length = qzSeqLenFromFileName(fileName);
    if (length == 0)
        return -1;
    return std::strtol(fileName + std::strlen(fileName) - length, nullptr, 10);
}

bool qzTrailNameFromFileName(char const* fileName, char* trailName) {
    int length = qzSeqLenFromFileName(fileName);
    if (length == 0)
        return false;
    copyName(trailName, fileName, std::strlen(fileName) - static_cast<size_t>(length));
    return true;
}

int TrailSeqLen(char const* trailName) {
    char pattern[QZ_FILENAME_SIZE + 16];
    std::snprintf(pattern, sizeof pattern, "%s?????????", trailName);
    int count = 0;
    return qzGetFileListCount(pattern, &count, nullptr) == 0 && count > 0 ? 9 : 6;
}

// ---- Installation directory -------------------------------------------------

char const* qzGetRealInstallationDir() {
    static const std::string directory = computeInstallationDir();
    return directory.c_str();
}

char const* qzGetInstallationDir() {
    return qzGetRealInstallationDir();
}

// ---- File lists -------------------------------------------------------------

int qzGetFileList(char const* pattern, file_info_def** list, int* count,
                  int (*compare)(void const*, void const*), int maxEntries, int regularOnly) {
    std::vector<file_info_def> entries;
    int found = 0;
    *list = nullptr;
    *count = 0;
    if (listFiles(pattern, &entries, &found, regularOnly != 0) != 0)
        return -1;
    return deliverList(entries, list, count, compare, maxEntries);
}

int qzGetAllFileList(char const* pattern, file_info_def** list, int* count,
                     int (*compare)(void const*, void const*), int maxEntries, int regularOnly) {
    std::vector<file_info_def> entries;
    *list = nullptr;
    *count = 0;
    // "?" stands for exactly one character, so the two lists never overlap.
    for (const char* suffix : {"??????", "?????????"}) {
        char withSequence[QZ_FILENAME_SIZE + 16];
        std::snprintf(withSequence, sizeof withSequence, "%s%s", pattern, suffix);
        int found = 0;
        if (listFiles(withSequence, &entries, &found, regularOnly != 0) != 0)
            return -1;
    }
    return deliverList(entries, list, count, compare, maxEntries);
}

int qzGetFileListCount(char const* pattern, int* count, int* error) {
    *count = 0;
    if (listFiles(pattern, nullptr, count, false) == 0)
        return 0;
    if (error)
        *error = errno;
    return -1;
}

int qzSearchPath(char const* name, file_info_def** found) {
    const char* path = std::getenv("PATH");
    if (!path || !name || !name[0])
        return 0;
    std::string directories(path);
    size_t start = 0;
    while (start <= directories.size()) {
        size_t end = directories.find(':', start);
        if (end == std::string::npos)
            end = directories.size();
        std::string dir = directories.substr(start, end - start);
        if (dir.empty())
            dir = ".";
        file_info_def entry;
        int n = std::snprintf(entry.name, sizeof entry.name, "%s/%s", dir.c_str(), name);
        if (n > 0 && n < QZ_FILENAME_SIZE && ::stat(entry.name, &entry.info) == 0 &&
            S_ISREG(entry.info.st_mode)) {
            if (found) {
                void* block = qzMalloc(static_cast<int>(sizeof entry));
                if (block)
                    std::memcpy(block, &entry, sizeof entry);
                *found = static_cast<file_info_def*>(block);
            }
            return 1;
        }
        start = end + 1;
    }
    return 0;
}

bool qzOutputHexToFile(FILE* stream, char* data, int length, int offset) {
    const unsigned char* bytes = reinterpret_cast<const unsigned char*>(data);
    for (int line = 0; line < length; line += 16) {
        char hex[48];
        char text[17];
        int h = 0;
        int count = std::min(16, length - line);
        for (int i = 0; i < count; ++i) {
            if (i > 0 && i % 4 == 0)
                hex[h++] = ' ';
            h += std::snprintf(hex + h, sizeof hex - static_cast<size_t>(h), "%02X",
                               bytes[line + i]);
            text[i] = std::isprint(bytes[line + i]) ? static_cast<char>(bytes[line + i]) : '.';
        }
        hex[h] = '\0';
        text[count] = '\0';
        std::fprintf(stream, "%9ld: %-45s  %s\n", static_cast<long>(offset) + line, hex, text);
    }
    return std::ferror(stream) == 0;
}
