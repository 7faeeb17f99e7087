//===- qzstd/FileIO.cpp - Checked file and descriptor calls ---------------===//
//
// Every refusal that the caller cannot see from the result alone is reported
// through the fault seam with its catalogue number; texts that the caller
// receives (copy errors, read and write errors) are built here.
//
//===----------------------------------------------------------------------===//
#include "qzstd/FileIO.h"

#include "qzstd/detail/FileSupport.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <string>
#include <unistd.h>

using namespace qzs::qzlib::detail::file;

// ---- Opening, locking, closing --------------------------------------------

FILE* qzOpenFile(char const* name, char const* mode) {
    FILE* stream = std::fopen(name, mode);
    if (!stream) {
        report("qzOpenFile", kMsgOpenFailed, __LINE__, name ? name : "");
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

// ---- Truncating and copying -------------------------------------------------

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
