//===- fuzz/fuzz_paths.cpp - Path splitting and resolution by text --------===//
//
// A libFuzzer target for the file utilities that take a path apart without
// touching the disk: the part splitters, the full path by text, and the trail
// name functions. The input, cut at its first NUL, is the path; an absolute
// form of it is also tried so that the result does not hang on the working
// directory. Besides the sanitizers' watch on the fixed buffers, each result
// is held to what its contract promises.
//
//===----------------------------------------------------------------------===//
#include "qzstd/fileutl.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

void check(bool condition) {
    if (!condition)
        std::abort();
}

bool hasWildcard(const char* text) {
    return std::strpbrk(text, "*?") != nullptr;
}

void splitParts(const char* path) {
    char dir[QZ_FILENAME_SIZE], name[QZ_FILENAME_SIZE], ext[QZ_FILENAME_SIZE];
    bool wild = qzGetFileParts(path, dir, name, ext);
    check(std::strlen(dir) < QZ_FILENAME_SIZE && std::strlen(name) < QZ_FILENAME_SIZE &&
          std::strlen(ext) < QZ_FILENAME_SIZE);
    check(std::strchr(name, '/') == nullptr && std::strchr(ext, '/') == nullptr);
    check(std::strchr(ext, '.') == nullptr);
    const char* slash = std::strrchr(path, '/');
    check(wild == hasWildcard(slash ? slash + 1 : path));

    char file[QZ_FILENAME_SIZE];
    check(qzGetFileNameParts(path, dir, file) == wild);
    // When nothing was cut, the parts put back together are the path.
    if (std::strlen(path) < QZ_FILENAME_SIZE)
        check(std::string(dir) + file == path);
}

void fullPath(const char* path) {
    char full[512];
    char* filePart = nullptr;
    int length = qzGetFullPathName(path, static_cast<int>(sizeof full), full, &filePart);
    if (length == 0)
        return;
    check(static_cast<size_t>(length) == std::strlen(full));
    check(full[0] == '/');
    check(filePart >= full && filePart <= full + length && filePart[-1] == '/');
    check(std::strchr(filePart, '/') == nullptr);
    // Resolved by text: no empty, "." or ".." component is left.
    const std::string result(full);
    check(result.find("//") == std::string::npos);
    check(result.find("/./") == std::string::npos && result.find("/../") == std::string::npos);
    check(result != "/." && result != "/..");
    // Resolving again changes nothing.
    char again[512];
    check(qzGetFullPathName(full, static_cast<int>(sizeof again), again, nullptr) == length);
    check(std::strcmp(full, again) == 0);
}

void trailName(const char* path) {
    int length = qzSeqLenFromFileName(path);
    check(length == 0 || length == 6 || length == 9);
    long sequence = qzSeqnoFromFileName(path);
    char trail[QZ_FILENAME_SIZE];
    bool split = qzTrailNameFromFileName(path, trail);
    check(split == (length != 0));
    check((sequence == -1) == (length == 0));
    if (!split)
        return;
    check(sequence >= 0 && sequence <= 999999999);
    size_t pathLength = std::strlen(path);
    if (pathLength - static_cast<size_t>(length) < QZ_FILENAME_SIZE)
        check(std::string(trail) + (path + pathLength - length) == path);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string path(reinterpret_cast<const char*>(data), size);
    path.resize(std::strlen(path.c_str()));

    splitParts(path.c_str());
    trailName(path.c_str());
    (void)qzIsAbsoluteFileName(path.c_str());
    fullPath(("/" + path).c_str());
    return 0;
}
