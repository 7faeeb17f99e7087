//===- qzstd/Directory.cpp - Directories and file generations -------------===//
//
// A removal with contents goes depth first and never follows a link. Ageing
// logs and reports each failed step and goes on with the next, so that one
// stuck generation does not stop the file from being aged.
//
//===----------------------------------------------------------------------===//
#include "qzstd/Directory.h"

#include "qzstd/FileStatus.h"
#include "qzstd/detail/FileSupport.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

using namespace qzs::qzlib::detail::file;

namespace {

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
    report("qzAutoCreateMissingDir", kMsgDirectoryMissing, __LINE__, path);
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
    QZ_FILE_LOG(deleteLog, Level::Info, "Deleting directory '%s', %s", path,
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

// ---- Ageing -----------------------------------------------------------------

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
        QZ_FILE_LOG(fileLog, Level::Info, "qzAgeFiles: Error deleting file '%s'", to);
        report("qzAgeFiles", kMsgDeleteFailed, __LINE__, to);
    }

    auto move = [&](const char* source, const char* target) {
        if (::rename(source, target) == 0 || errno == ENOENT)
            return;
        ok = false;
        QZ_FILE_LOG(fileLog, Level::Info, "qzAgeFiles: Error renaming file '%s' to '%s'", source,
                    target);
        {
            const int saved = errno;
            qzs::qzlib::detail::storeFault(qzs::qzlib::detail::MessageSite{kFileComponent,
                                                                           "qzstd/fileutl",
                                                                           "qzAgeFiles", __LINE__},
                                           kMsgRenameFailed, source, target);
            errno = saved;
        }
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
