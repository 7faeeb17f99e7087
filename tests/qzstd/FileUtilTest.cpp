//===- tests/qzstd/FileUtilTest.cpp - File utilities ----------------------===//
//
// Real files in a fresh directory per test: first one table of every refusal
// and every call that logs, then the families in turn. Failures are provoked
// by what the system itself refuses (a directory where a file should go,
// /dev/full, a pipe that cannot be synced or sought), never by permissions,
// so the tests hold for any user, root included.
//
//===----------------------------------------------------------------------===//
#include "qzstd/fileutl.h"

#include "CaptureAppender.h"
#include "FaultCollector.h"
#include "TempDir.h"
#include "qzlog/Level.h"
#include "qzlog/Logger.h"
#include "qzlog/LoggerRepository.h"
#include "qzlog/PatternLayout.h"
#include "qzstd/memutl.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

namespace fs = std::filesystem;
using qzs::qzlib::qzlog::Level;
using qzs::qzlib::qzlog::Logger;
using qzs::qzlib::qzlog::PatternLayout;
using qztest::Fault;
using qztest::readFile;
using qztest::writeFile;

// A fresh directory, the faults reported and the records of both file
// loggers ("qzstd.util.file" and "fileutl.delete"), for the life of each test.
class FileUtilTest : public ::testing::Test {
protected:
    void SetUp() override {
        qztest::resetLogging();
        for (const char* name : {"qzstd.util.file", "fileutl.delete"}) {
            Logger::getRepository().getLogger(name)->addAppender(log);
            Logger::getRepository().getLogger(name)->setLevel(Level::All);
        }
    }
    void TearDown() override { qztest::resetLogging(); }

    std::string path(const std::string& name) const { return temp.path(name); }
    // The same as a C string that lives as long as the test.
    const char* c(const std::string& name) { return held.emplace_back(path(name)).c_str(); }
    std::vector<Fault> faults() const { return collector.faults(); }

    // The regular files under `sub`, by relative path, with their contents.
    std::map<std::string, std::string> files(const std::string& sub) const {
        std::map<std::string, std::string> out;
        for (const auto& entry : fs::recursive_directory_iterator(path(sub)))
            if (entry.is_regular_file())
                out[fs::relative(entry.path(), path(sub)).string()] = readFile(entry.path());
        return out;
    }

    qztest::TempDir temp{"qzfileutl"};
    const std::string& dir = temp.dir;
    std::deque<std::string> held;
    qztest::FaultCollector collector;
    qztest::CaptureAppender log{"fileutl", new PatternLayout("%m")};
};

int byName(const void* a, const void* b) {
    return std::strcmp(static_cast<const file_info_def*>(a)->name,
                       static_cast<const file_info_def*>(b)->name);
}

// ---- What the caller sees, what is reported, what is logged ---------------

// Every refusal, and each call that logs, in one table: the result as the
// caller sees it (return value, errno, error out-argument or text), the
// faults reported with their catalogue numbers, and the records of the two
// file loggers, exactly. Rows run in order on one prepared directory.
TEST_F(FileUtilTest, OutcomesReportsAndRecords) {
    // The tree to delete holds a link to a directory outside it: the link
    // goes, what it points at stays.
    ASSERT_TRUE(qzAutoCreateMissingDir(path("a/b\\c").c_str())) << "both separators";
    EXPECT_TRUE(qzCheckDirExists(path("a/b/c").c_str()));
    fs::create_directory(path("outside"));
    writeFile(path("outside/keep"), "x");
    writeFile(path("a/b/c/f"), "x");
    fs::create_directory_symlink(path("outside"), path("a/b/link"));
    for (const char* name : {"plain", "small", "d", "target", "e.log"})
        writeFile(path(name), name);
    std::string large;
    for (int i = 0; i < 50000; ++i) // several copy blocks
        large += static_cast<char>('a' + i % 26);
    writeFile(path("large"), large);
    fs::create_symlink(path("target"), path("link"));
    // Generation 0 is a directory: it can be neither deleted as a file nor
    // replaced by one, and ageing goes on after each failure.
    fs::create_directory(path("e.0.log"));
    writeFile(path("e.0.log/inside"), "x");
    char resolved[PATH_MAX];
    ASSERT_NE(nullptr, ::realpath(dir.c_str(), resolved));
    const std::string real = resolved;
    int ends[2];
    ASSERT_EQ(0, ::pipe(ends));
    const std::string reader = std::to_string(ends[0]), writer = std::to_string(ends[1]);
    const int writeOnly = ::open(path("d").c_str(), O_WRONLY);

    char text[PATH_MAX];
    char message[QZ_COPY_MESSAGE_SIZE];
    int error = 0, count = 0;
    unsigned long done = 0;
    file_info_def stale{}, *list = nullptr;
    auto is = [](const char* got, const std::string& expected) { return expected == got; };
    auto copyFails = [&](const char* from, const std::string& to, const std::string& why,
                         int code) {
        return !qzCopyFile(c(from), to.c_str(), message, &error) && error == code &&
               is(message, "Error copying files: could not " + why + ", error " +
                               std::to_string(code) + " (" + std::strerror(code) + ")\n");
    };
    const std::string noDirectory = "ERROR: cannot open directory: opendir: " + path("none/") +
                                    "  errno: 2 (No such file or directory)";
    using Faults = std::vector<std::pair<unsigned int, std::string>>;
    struct Row {
        const char* scenario;
        std::function<bool()> outcome;
        Faults faults = {};
        std::vector<std::string> lines = {};
    };
    std::vector<Row> rows = {
        {"open of a missing file; the report leaves errno alone",
         [&] { return !qzOpenFile(c("none/o"), "r") && errno == ENOENT; },
         {{1091, path("none/o") + ", No such file or directory"}}},
        {"a pipe refuses fdatasync; quiet when not asked to report",
         [&] { return !qzFsyncData(ends[1], false); }},
        {"the change-over to fsync shows in the call named",
         [&] { return !qzFsyncData(ends[1], true); },
         {{1092, "fsync(), descriptor " + writer + ", 22, Invalid argument"}}},
        {"a pipe cannot seek",
         [&] { return !qzLseek(ends[0], 0, SEEK_SET, nullptr); },
         {{1092, "seek(), descriptor " + reader + ", 29, Illegal seek"}}},
        {"no such descriptor to close",
         [] { return qzClose(-5) == -1; },
         {{1092, "close(), descriptor -5, 9, Bad file descriptor"}}},
        {"fsync of no descriptor: EBADF is not retried",
         [] { return (errno = 0, !qzFsync(-1)) && errno == EBADF; }},
        {"size of no descriptor", [] { return qzGetFileSize(-1) == ~0UL; }},
        {"read of a write-only descriptor",
         [&] {
             return !qzRead(writeOnly, text, 16, &done, message) &&
                    is(message, "read() error 9 (Bad file descriptor)");
         }},
        {"sync of a missing directory",
         [&] { return !qzFsyncDir(c("missing"), &error) && error == ENOENT; }},
        {"a copy of several blocks; the message is empty after success",
         [&] {
             return qzCopyFile(c("large"), c("dst"), message, &error) && is(message, "") &&
                    readFile(path("dst")) == large;
         }},
        {"copy from a missing file",
         [&] {
             return copyFails("nothing", path("dst"), "open input file " + path("nothing"), ENOENT);
         }},
        {"copy into a missing directory",
         [&] {
             return copyFails("small", path("no/dst"), "open output file " + path("no/dst"),
                              ENOENT);
         }},
        {"a path under a file cannot be created",
         [&] { return !qzAutoCreateMissingDir(c("plain/sub")); },
         {{25119, path("plain/sub") + ", Not a directory"}}},
        {"a directory that exists already",
         [&] { return !qzCreateDir(c("a"), text) && is(text, "error 17 (File exists)"); }},
        {"a directory not empty",
         [&] { return !qzDeleteDirectory(c("a"), false, &error) && error == ENOTEMPTY; },
         {},
         {"Deleting directory '" + path("a") + "', if empty"}},
        {"ageing onto a directory",
         [&] { return !qzAgeFiles(c("e.log"), 0, true); },
         {{1093, path("e.0.log") + ", Is a directory"},
          {1800, path("e.log") + ", " + path("e.0.log") + ", Is a directory"}},
         {"qzAgeFiles: Error deleting file '" + path("e.0.log") + "'",
          "qzAgeFiles: Error renaming file '" + path("e.log") + "' to '" + path("e.0.log") + "'"}},
        {"a link resolved; errno is cleared after success",
         [&] {
             errno = EINVAL;
             return qzGetRealPath(c("link"), text, nullptr) && errno == 0 &&
                    is(text, real + "/target");
         },
         {},
         {"\"" + path("link") + "\" is resolved as \"" + real + "/target\""}},
        {"a local path that cannot be stated is given back unchanged",
         [&] { return !qzGetLocalPath(c("gone"), text) && is(text, path("gone")); },
         {},
         {"error (2), unable to stat path \"" + path("gone") + "\""}},
        {"a full path name is logged split",
         [&] { return qzGetFullPathName("/a/./b/../c//d.txt", 64, text, nullptr) == 10; },
         {},
         {"path name \"/a/./b/../c//d.txt\" has dir \"/a/c/\" and file name \"d.txt\""}},
        {"a list of a missing directory; the list pointer is reset",
         [&] {
             list = &stale;
             return qzGetFileList(c("none/*"), &list, &count, byName, 0, 0) == -1 &&
                    errno == ENOENT && !list;
         },
         {},
         {noDirectory}},
        {"a count of a missing directory",
         [&] { return qzGetFileListCount(c("none/*"), &count, &error) == -1 && error == ENOENT; },
         {},
         {noDirectory}},
        {"a tree deleted with its contents; links are not followed",
         [&] {
             return qzDeleteDirectory(c("a"), true, &error) && !fs::exists(path("a")) &&
                    fs::exists(path("outside/keep"));
         },
         {},
         {"Deleting directory '" + path("a") + "', with its contents",
          "Deleting directory '" + path("a/b") + "', with its contents",
          "Deleting directory '" + path("a/b/c") + "', with its contents"}},
    };
    // A small copy fails only at the close, a large one in the loop; a flush
    // that fails for good is reported once, and the stream is still closed.
    if (FILE* full = std::fopen("/dev/full", "w")) {
        const int fd = ::fileno(full);
        for (const char* from : {"small", "large"})
            rows.push_back({"copy onto a full device", [&, from] {
                                return copyFails(from, "/dev/full", "write output file /dev/full",
                                                 ENOSPC);
                            }});
        rows.push_back({"close of a stream that cannot be flushed",
                        [=] {
                            return std::fputs("x", full) >= 0 && qzFclose(full) == EOF &&
                                   ::fcntl(fd, F_GETFD) == -1;
                        },
                        {{1092, "fflush(), descriptor " + std::to_string(fd) +
                                    ", 28, No space left on device"}}});
    }
    for (const Row& row : rows) {
        const size_t before = faults().size();
        log.clear();
        EXPECT_TRUE(row.outcome()) << row.scenario;
        std::vector<Fault> all = faults();
        Faults reported;
        // Issued messages, then those kept in the error context (1800).
        for (const Fault& kept : qztest::FaultCollector::takePending())
            all.push_back(kept);
        for (size_t i = before; i < all.size(); ++i) {
            reported.emplace_back(all[i].number, all[i].arguments);
            EXPECT_EQ("qzstd.util.file", all[i].site.component) << row.scenario;
            EXPECT_EQ("qzstd/fileutl", all[i].site.file) << row.scenario;
        }
        EXPECT_EQ(row.faults, reported) << row.scenario;
        EXPECT_EQ(row.lines, log.lines()) << row.scenario;
    }
    ::close(writeOnly);
    ::close(ends[0]);
    ::close(ends[1]);
}

// ---- Files by descriptor and by name ----------------------------------------

TEST_F(FileUtilTest, DescriptorCallsRoundTrip) {
    int fd = qzCreateFile(path("d").c_str(), O_RDWR, 0600, nullptr);
    ASSERT_GE(fd, 0);
    unsigned long done = 0;
    char errorText[256] = "";
    EXPECT_TRUE(qzWrite(fd, "0123456789", 10, &done, errorText));
    EXPECT_EQ(10u, done);
    EXPECT_TRUE(qzFsyncData(fd, true));
    EXPECT_EQ(10u, qzGetFileSize(fd));
    unsigned long position = 99;
    EXPECT_TRUE(qzLseek(fd, 4, SEEK_SET, &position));
    EXPECT_EQ(4u, position);
    char buffer[32] = {};
    EXPECT_TRUE(qzRead(fd, buffer, sizeof buffer, &done, errorText));
    EXPECT_EQ(6u, done) << "the end of the file ends the read";
    EXPECT_STREQ("456789", buffer);
    EXPECT_EQ(0, qzCloseHandle(&fd));
    EXPECT_EQ(0, qzCloseHandle(fd)) << "no handle (-1), nothing to close or report";
    EXPECT_TRUE(qzFsyncDir(dir.c_str(), nullptr));
    EXPECT_EQ(0, qzFclose(nullptr));

    FILE* stream = qzOpenFile(path("d").c_str(), "r");
    ASSERT_NE(nullptr, stream);
    EXPECT_NE(0, ::fcntl(::fileno(stream), F_GETFD) & FD_CLOEXEC);
    std::fclose(stream);
    EXPECT_TRUE(faults().empty());
}

// Record locks are per process, so the refusal is seen from a child.
TEST_F(FileUtilTest, ProtectedFileRefusesASecondProcess) {
    writeFile(path("lock"), "x");
    const std::string name = path("lock");
    int fd = qzOpenProtected(name.c_str());
    ASSERT_GE(fd, 0);
    const pid_t parent = ::getpid();
    pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        int refused = qzOpenProtected(name.c_str());
        bool ok = refused == -1 && (errno == EACCES || errno == EAGAIN);
        long holder = 0;
        ok =
            ok && qzProtectFile(::open(name.c_str(), O_RDWR), &holder, 0) == -1 && holder == parent;
        ::_exit(ok ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(child, ::waitpid(child, &status, 0));
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    qzClose(fd);
}

// A parameter file may be named without its ".prm"; the buffer then says
// which file was meant.
TEST_F(FileUtilTest, TruncateAndParameterFiles) {
    writeFile(path("dst"), "old content");
    FILE* stream = std::fopen(path("dst").c_str(), "r");
    std::string name = path("dst");
    EXPECT_TRUE(qzTruncateFile(stream, &name[0]));
    ASSERT_NE(nullptr, stream);
    std::fputs("new", stream);
    std::fclose(stream);
    EXPECT_EQ("new", readFile(path("dst")));

    writeFile(path("extract.prm"), "x");
    char param[QZ_FILENAME_SIZE];
    std::snprintf(param, sizeof param, "%s", path("extract").c_str());
    EXPECT_TRUE(qzCheckParamFileExists(param));
    EXPECT_EQ(path("extract.prm"), param);
    std::snprintf(param, sizeof param, "%s", path("extract.txt").c_str());
    EXPECT_FALSE(qzCheckParamFileExists(param)) << "an extension is never replaced";
}

// ---- Directories and ageing -------------------------------------------------

// Each row ages one file in a directory of its own; the directory's whole
// content before and after shows what moved, what went and what was never
// made. Missing generations are not errors.
TEST_F(FileUtilTest, AgeFilesShiftsEveryGenerationUp) {
    using Files = std::map<std::string, std::string>;
    const struct {
        Files before;
        const char* name;
        short versions;
        bool dotted;
        Files after;
    } rows[] = {
        {{{"a.log", "current"}, {"a.0.log", "gen0"}, {"a.1.log", "gen1"}, {"a.2.log", "gen2"}},
         "a.log",
         2,
         true,
         {{"a.0.log", "current"}, {"a.1.log", "gen0"}, {"a.2.log", "gen1"}}},
        {{{"b.log", "current"}, {"b1.log", "gen1"}},
         "b.log",
         3,
         false,
         {{"b0.log", "current"}, {"b2.log", "gen1"}}},
        {{{"c", "plain"}}, "c", 1, true, {{"c.0", "plain"}}},
        // A "." in a directory name is no extension.
        {{{"run.d/trace", "x"}}, "run.d/trace", 1, true, {{"run.d/trace.0", "x"}}},
    };
    int n = 0;
    for (const auto& row : rows) {
        const std::string sub = "row" + std::to_string(n++);
        for (const auto& [name, content] : row.before) {
            fs::create_directories(fs::path(path(sub + "/" + name)).parent_path());
            writeFile(path(sub + "/" + name), content);
        }
        EXPECT_TRUE(qzAgeFiles(path(sub + "/" + row.name).c_str(), row.versions, row.dotted));
        EXPECT_EQ(row.after, files(sub)) << row.name;
    }
    EXPECT_TRUE(faults().empty());
}

TEST_F(FileUtilTest, AgeFilesCutsTheNameAt251Bytes) {
    std::string prefix = dir + "/";
    if (prefix.size() > 200)
        GTEST_SKIP() << "temporary directory path too long for this case";
    std::string longName = prefix + std::string(300 - prefix.size(), 'x');
    std::string cut = longName.substr(0, QZ_FILENAME_SIZE - 1);
    writeFile(cut, "kept");
    EXPECT_TRUE(qzAgeFiles(longName.c_str(), 1, true));
    EXPECT_EQ("kept", readFile(cut + ".0"));
}

// ---- File lists -------------------------------------------------------------

TEST_F(FileUtilTest, FileListsMatchSortAndCount) {
    for (const char* name : {"tr000001", "tr000003", "tr000000002", "tr.txt", "other", "tr0001"})
        writeFile(path(name), "x");
    fs::create_directory(path("tr000009"));

    int count = -1;
    EXPECT_EQ(0, qzGetFileListCount(path("tr*").c_str(), &count, nullptr));
    EXPECT_EQ(6, count);
    EXPECT_EQ(9, TrailSeqLen(path("tr").c_str()));
    EXPECT_EQ(6, TrailSeqLen(path("other").c_str()));

    using Lister =
        int (*)(char const*, file_info_def**, int*, int (*)(void const*, void const*), int, int);
    const struct {
        Lister list;
        const char* pattern;
        int maxEntries, regularOnly;
        std::vector<std::string> expected;
    } rows[] = {
        {qzGetFileList, "tr??????", 0, 1, {"tr000001", "tr000003"}},
        {qzGetFileList, "*.txt", 0, 0, {"tr.txt"}},
        // Both sequence lengths in one sorted list; the limit applies after
        // sorting.
        {qzGetAllFileList, "tr", 0, 0, {"tr000000002", "tr000001", "tr000003", "tr000009"}},
        {qzGetAllFileList, "tr", 2, 1, {"tr000000002", "tr000001"}},
        {qzGetFileList, "zz*", 0, 0, {}},
    };
    file_info_def stale;
    for (const auto& row : rows) {
        file_info_def* list = &stale;
        EXPECT_EQ(0, row.list(path(row.pattern).c_str(), &list, &count, byName, row.maxEntries,
                              row.regularOnly));
        std::vector<std::string> names;
        for (int i = 0; i < count; ++i)
            names.push_back(fs::path(list[i].name).filename().string());
        EXPECT_EQ(row.expected, names) << row.pattern;
        EXPECT_EQ(row.expected.empty(), list == nullptr) << "an empty list is null";
        if (list != &stale)
            qzFree(list);
    }
}

TEST_F(FileUtilTest, SearchPathFindsTheFirstRegularFile) {
    fs::create_directories(path("bin1/tool"));
    fs::create_directories(path("bin2"));
    writeFile(path("bin2/tool"), "#!");
    const char* saved = std::getenv("PATH");
    std::string savedPath = saved ? saved : "";
    ::setenv("PATH", (path("bin1") + ":" + path("bin2")).c_str(), 1);
    file_info_def* found = nullptr;
    int hit = qzSearchPath("tool", &found);
    int miss = qzSearchPath("nothing", nullptr);
    ::setenv("PATH", savedPath.c_str(), 1);
    EXPECT_EQ(1, hit);
    ASSERT_NE(nullptr, found);
    EXPECT_EQ(path("bin2/tool"), found->name) << "a directory of the same name is no hit";
    qzFree(found);
    EXPECT_EQ(0, miss);
}

// ---- Paths ------------------------------------------------------------------

TEST(FilePathTest, SplittingPaths) {
    const struct {
        const char *path, *dir, *name, *ext;
        bool wildcard;
    } rows[] = {
        {"dir/sub/name.ext", "dir/sub/", "name", "ext", false},
        {"name", "", "name", "", false},
        {"/a.b/c", "/a.b/", "c", "", false},
        {"d/*.log", "d/", "*", "log", true},
        {"d/x?", "d/", "x?", "", true},
        {"*/x", "*/", "x", "", false},
        {"d/", "d/", "", "", false},
        {"a.tar.gz", "", "a.tar", "gz", false},
    };
    for (const auto& row : rows) {
        char dir[QZ_FILENAME_SIZE], name[QZ_FILENAME_SIZE], ext[QZ_FILENAME_SIZE];
        EXPECT_EQ(row.wildcard, qzGetFileParts(row.path, dir, name, ext)) << row.path;
        EXPECT_STREQ(row.dir, dir) << row.path;
        EXPECT_STREQ(row.name, name) << row.path;
        EXPECT_STREQ(row.ext, ext) << row.path;
    }
    std::string longDir = std::string(300, 'd') + "/f.x";
    char dir[QZ_FILENAME_SIZE], file[QZ_FILENAME_SIZE];
    qzGetFileNameParts(longDir.c_str(), dir, file);
    EXPECT_EQ(std::string(QZ_FILENAME_SIZE - 1, 'd'), dir);
    EXPECT_STREQ("f.x", file);
    EXPECT_TRUE(qzIsAbsoluteFileName("/x"));
    EXPECT_FALSE(qzIsAbsoluteFileName("x/"));
}

// By text alone: ".", ".." and repeated "/" resolve, ".." stops at the
// root, and a relative path hangs on the working directory.
TEST(FilePathTest, FullPathNames) {
    char cwd[PATH_MAX];
    ASSERT_NE(nullptr, ::getcwd(cwd, sizeof cwd));
    const std::string base = cwd == std::string("/") ? "" : cwd;
    const struct {
        std::string path;
        int size;
        std::string full, file; // an empty `full`: the call gives 0 and sets `error`
        int error = 0;
    } rows[] = {
        {"/a/./b/../c//d.txt", 64, "/a/c/d.txt", "d.txt"},
        {"/../x", 64, "/x", "x"},
        {"/a/b/", 64, "/a/b/", ""},
        {"/a/b/..", 64, "/a/", ""},
        {"/", 64, "/", ""},
        {"x/y", PATH_MAX + 16, base + "/x/y", "y"},
        {"/abc", 4, "", "", ERANGE}, // room for the NUL is needed
        {"", 64, "", "", EINVAL},
    };
    for (const auto& row : rows) {
        std::vector<char> full(static_cast<size_t>(row.size));
        char* filePart = nullptr;
        errno = 0;
        EXPECT_EQ(static_cast<int>(row.full.size()),
                  qzGetFullPathName(row.path.c_str(), row.size, full.data(), &filePart))
            << row.path;
        if (row.full.empty()) {
            EXPECT_EQ(row.error, errno) << row.path;
            continue;
        }
        EXPECT_EQ(row.full, full.data()) << row.path;
        EXPECT_STREQ(row.file.c_str(), filePart) << row.path;
    }
}

// The trailing digits of the last component decide: 9 or more mean 9, 6 to
// 8 mean 6, fewer mean none, and the trail name is left alone.
TEST(FilePathTest, TrailFileNames) {
    const struct {
        const char* file;
        int length;
        long seqno;
        const char* trail;
    } rows[] = {
        {"trails/aa000000123", 9, 123, "trails/aa"},
        {"trails/aa000123", 6, 123, "trails/aa"},
        // A prefix may end in a digit: seven digits are a one-digit tail of
        // the prefix and a six-digit sequence.
        {"a1000123", 6, 123, "a1"},
        {"dir123456/ab", 0, -1, nullptr}, // digits of the directory do not count
        {"x12345", 0, -1, nullptr},
    };
    for (const auto& row : rows) {
        char trail[QZ_FILENAME_SIZE] = "untouched";
        EXPECT_EQ(row.length, qzSeqLenFromFileName(row.file)) << row.file;
        EXPECT_EQ(row.seqno, qzSeqnoFromFileName(row.file)) << row.file;
        EXPECT_EQ(row.trail != nullptr, qzTrailNameFromFileName(row.file, trail)) << row.file;
        EXPECT_STREQ(row.trail ? row.trail : "untouched", trail) << row.file;
    }
}

} // namespace
