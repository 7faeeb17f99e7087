//===- qzstd/Path.cpp - Path parsing and resolution -----------------------===//
//
// The splitters and the full path work on text alone, so that they are safe
// on any input (the path fuzz target holds them to that); the resolvers go
// through realpath and stat and log what they found.
//
//===----------------------------------------------------------------------===//
#include "qzstd/Path.h"

#include "qzstd/FileList.h"
#include "qzstd/detail/FileSupport.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

using namespace qzs::qzlib::detail::file;

namespace {

// Trailing digits of the last component.
size_t trailingDigits(const char* fileName) {
    const char* base = lastComponent(fileName);
    const char* end = base + std::strlen(base);
    const char* p = end;
    while (p > base && p[-1] >= '0' && p[-1] <= '9')
        --p;
    return static_cast<size_t>(end - p);
}

} // namespace

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
    QZ_FILE_LOG(fileLog, Level::Debug, "\"%s\" is resolved as \"%s\"", path, resolved);
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
        QZ_FILE_LOG(fileLog, Level::Info, "error (%d), unable to stat path \"%s\"", error, path);
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
    QZ_FILE_LOG(fileLog, Level::Debug, "path name \"%s\" has dir \"%s\" and file name \"%s\"", path,
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
