//===- qzstd/FileStatus.cpp - Sizes, existence and stat -------------------===//
//
// Thin wrappers over stat, fstat and access; the one with more to it is the
// parameter file test, which may change the name it was given.
//
//===----------------------------------------------------------------------===//
#include "qzstd/FileStatus.h"

#include "qzstd/detail/FileSupport.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <unistd.h>

using namespace qzs::qzlib::detail::file;

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
