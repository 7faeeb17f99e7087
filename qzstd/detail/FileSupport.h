//===- qzstd/detail/FileSupport.h - What the file utilities share -*- C++ -*-===//
//
// Internal to the file utilities: their component and catalogue numbers, the
// two loggers they write to, the report helpers that leave errno as the
// failed call set it, and the two name-buffer helpers every splitter uses.
// The loggers are fetched here and nowhere else, so that how the file
// utilities log can change in this one place. Not installed.
//
//===----------------------------------------------------------------------===//
#ifndef QZSTD_DETAIL_FILESUPPORT_H
#define QZSTD_DETAIL_FILESUPPORT_H

#include "qzstd/LoggingSeam.h"
#include "qzstd/MessageSeam.h"
#include "qzstd/Path.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>

namespace qzs {
namespace qzlib {
namespace detail {
namespace file {

inline constexpr char kFileComponent[] = "qzstd.util.file";

inline constexpr unsigned int kMsgOpenFailed = 1091;
// A file call refused by the system: the call's name, the file or
// descriptor, the error number and its text.
inline constexpr unsigned int kMsgFileCallFailed = 1092;
inline constexpr unsigned int kMsgDeleteFailed = 1093;
// Kept in the thread's error context as well as issued.
inline constexpr unsigned int kMsgRenameFailed = 1800;
inline constexpr unsigned int kMsgDirectoryMissing = 25119;

// The bound on repeating an interrupted call: qzFsyncData and the flush of
// qzFclose make up to 10 tries in all, qzFsync up to 10 more after its first.
inline constexpr int kSyncTries = 10;

/// The file utilities' logger, "qzstd.util.file".
inline LazyLogger fileLog("qzstd.util.file");

/// The logger of directory deletion, "fileutl.delete".
inline LazyLogger deleteLog("fileutl.delete");

namespace Level = qzlib::detail::LogLevel;

// Callers read errno after a failed call, so a report leaves it as it was.
// The site's line is that of the call, not of this header; its file is the
// file utilities' own name.
template <typename... Args>
inline void report(const char* function, unsigned int number, unsigned int line,
                   const Args&... args) {
    int saved = errno;
    raiseFault(MessageSite{kFileComponent, "qzstd/fileutl", function, line}, number, args...);
    errno = saved;
}

inline std::string systemText(int error) {
    char buffer[256];
    return ::strerror_r(error, buffer, sizeof buffer);
}

// Message 1092: the call's name, the file or descriptor, the error number
// and its text. errno is left as the failed call set it.
inline void reportCall(const char* function, const char* call, const std::string& target, int error,
                       unsigned int line = __builtin_LINE()) {
    const std::string reason = systemText(error);
    errno = error;
    report(function, kMsgFileCallFailed, line, call, target.c_str(), error, reason.c_str());
    errno = error;
}

inline std::string descriptorText(int descriptor) {
    return "descriptor " + std::to_string(descriptor);
}

// Copies `text` into a 251-byte name buffer, cutting it there.
inline void copyName(char* target, const char* text, size_t length) {
    size_t n = std::min(length, static_cast<size_t>(QZ_FILENAME_SIZE - 1));
    std::memcpy(target, text, n);
    target[n] = '\0';
}

// The start of the last path component.
inline const char* lastComponent(const char* path) {
    const char* slash = std::strrchr(path, '/');
    return slash ? slash + 1 : path;
}

} // namespace file
} // namespace detail
} // namespace qzlib
} // namespace qzs

/// A record of the calling function to one of the loggers above.
#define QZ_FILE_LOG(lazy, level, ...) QZ_SEAM_LOG(lazy, __FILE__, __func__, level, __VA_ARGS__)

#endif // QZSTD_DETAIL_FILESUPPORT_H
