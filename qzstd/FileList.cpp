//===- qzstd/FileList.cpp - File lists ------------------------------------===//
//
// One directory walk serves the list, the count and the trail list: it
// matches, states and collects, and the list forms then sort, cut and copy
// the entries into the block the caller releases.
//
//===----------------------------------------------------------------------===//
#include "qzstd/FileList.h"

#include "qzstd/Memory.h"
#include "qzstd/StringUtil.h"
#include "qzstd/detail/FileSupport.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <string>
#include <vector>

using namespace qzs::qzlib::detail::file;

namespace {

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
        QZ_FILE_LOG(fileLog, Level::Error,
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
                QZ_FILE_LOG(fileLog, Level::Error, "ERROR: readir: errno: %d (%s)", error,
                            systemText(error));
            }
            break;
        }
        if (std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0)
            continue;
        if (!qzIsWildcardMatch(match, entry->d_name))
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

} // namespace

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
