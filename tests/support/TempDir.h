//===- tests/support/TempDir.h - A scratch directory per test -*- C++ -*-===//
//
// A fresh directory under the system's temporary directory, removed with all
// it holds when the object goes, and the whole-file reads and writes the file
// tests share.
//
//===----------------------------------------------------------------------===//
#ifndef TESTS_SUPPORT_TEMPDIR_H
#define TESTS_SUPPORT_TEMPDIR_H

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

namespace qztest {

/// Replaces `name` with exactly `content`, NULs included.
inline void writeFile(const std::string& name, const std::string& content) {
    std::ofstream(name, std::ios::binary) << content;
}

/// The bytes of `name`; empty when it cannot be read.
inline std::string readFile(const std::string& name) {
    std::stringstream text;
    text << std::ifstream(name, std::ios::binary).rdbuf();
    return text.str();
}

/// Owns a directory made by mkdtemp; links inside are removed, not followed.
class TempDir {
public:
    explicit TempDir(const char* prefix = "qztest") : dir(make(prefix)) {}
    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(dir, ignored);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    std::string path(const std::string& name) const { return dir + "/" + name; }

    const std::string dir;

private:
    static std::string make(const char* prefix) {
        std::string pattern =
            (std::filesystem::temp_directory_path() / (std::string(prefix) + "XXXXXX")).string();
        if (!::mkdtemp(&pattern[0]))
            throw std::runtime_error("cannot make a directory from " + pattern);
        return pattern;
    }
};

} // namespace qztest

#endif // TESTS_SUPPORT_TEMPDIR_H
