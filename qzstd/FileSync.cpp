//===- qzstd/FileSync.cpp - Durable flushing ------------------------------===//
//
// Retries wait a random pause so that processes interrupted together do not
// retry together; each call keeps its own seed, so there is no shared state.
//
//===----------------------------------------------------------------------===//
#include "qzstd/FileSync.h"

#include "qzstd/detail/FileSupport.h"

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <unistd.h>

using namespace qzs::qzlib::detail::file;

namespace {

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

} // namespace

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
