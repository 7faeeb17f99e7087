//===- tests/qzstd/FileUtilTest.cpp - File utilities ----------------------===//
//
// Real files in a fresh directory per test. Failures are provoked by what
// the system itself refuses (a directory where a file should go, /dev/full,
// a pipe that cannot be synced or sought), never by permissions, so the
// tests hold for any user, root included.
//
//===----------------------------------------------------------------------===//
#include "qzstd/fileutl.h"

#include "CaptureAppender.h"
#include "FaultCollector.h"
#include "qzlog/Level.h"
#include "qzlog/Logger.h"
#include "qzlog/LoggerRepository.h"
#include "qzlog/PatternLayout.h"
#include "qzstd/FaultReport.h"
#include "qzstd/memutl.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

namespace fs = std::filesystem;
using qzs::qzlib::detail::Fault;
using qzs::qzlib::qzlog::Level;
using qzs::qzlib::qzlog::Logger;
using qzs::qzlib::qzlog::PatternLayout;

// A fresh directory, the faults reported and a capture of one logger, for
// the life of each test.
class FileUtilTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::string pattern = (fs::temp_directory_path() / "qzfileutlXXXXXX").string();
        ASSERT_NE(nullptr, ::mkdtemp(&pattern[0]));
        dir = pattern;
        collector.reset(new qztest::FaultCollector());
        qztest::resetLogging();
    }
    void TearDown() override {
        for (auto& [logger, appender] : captured)
            logger->removeAppender(*appender);
        qztest::resetLogging();
        collector.reset();
        std::error_code ignored;
        fs::remove_all(dir, ignored);
    }

    std::string path(const std::string& name) const { return dir + "/" + name; }

    std::vector<Fault> faults() const { return collector->faults(); }

    // Every record of logger `name` from now on, at any level.
    qztest::CaptureAppender& capture(const char* name) {
        Logger* logger = Logger::getRepository().getLogger(name);
        appenders.emplace_back(new qztest::CaptureAppender(name, new PatternLayout("%m")));
        logger->addAppender(*appenders.back());
        logger->setLevel(Level::All);
        captured.emplace_back(logger, appenders.back().get());
        return *appenders.back();
    }

    std::string dir;
    std::unique_ptr<qztest::FaultCollector> collector;
    std::vector<std::unique_ptr<qztest::CaptureAppender>> appenders;
    std::vector<std::pair<Logger*, qztest::CaptureAppender*>> captured;
};

void writeFile(const std::string& name, const std::string& content) {
    std::ofstream(name, std::ios::binary) << content;
}

std::string readFile(const std::string& name) {
    std::ifstream in(name, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

int byName(const void* a, const void* b) {
    return std::strcmp(static_cast<const file_info_def*>(a)->name,
                       static_cast<const file_info_def*>(b)->name);
}

std::vector<std::string> names(file_info_def* list, int count) {
    std::vector<std::string> out;
    for (int i = 0; i < count; ++i)
        out.push_back(fs::path(list[i].name).filename().string());
    qzFree(list);
    return out;
}

// ---- Ageing -----------------------------------------------------------------

TEST_F(FileUtilTest, AgeFilesShiftsEveryGenerationUp) {
    writeFile(path("a.log"), "current");
    writeFile(path("a.0.log"), "gen0");
    writeFile(path("a.1.log"), "gen1");
    writeFile(path("a.2.log"), "gen2");
    EXPECT_TRUE(qzAgeFiles(path("a.log").c_str(), 2, true));
    EXPECT_FALSE(fs::exists(path("a.log")));
    EXPECT_EQ("current", readFile(path("a.0.log")));
    EXPECT_EQ("gen0", readFile(path("a.1.log")));
    EXPECT_EQ("gen1", readFile(path("a.2.log")));
    EXPECT_FALSE(fs::exists(path("a.3.log")));

    // Undotted numbering, a missing generation in the middle, and a name
    // with no extension: none of them is an error.
    writeFile(path("b.log"), "current");
    writeFile(path("b1.log"), "gen1");
    EXPECT_TRUE(qzAgeFiles(path("b.log").c_str(), 3, false));
    EXPECT_EQ("current", readFile(path("b0.log")));
    EXPECT_EQ("gen1", readFile(path("b2.log")));
    writeFile(path("c"), "plain");
    EXPECT_TRUE(qzAgeFiles(path("c").c_str(), 1, true));
    EXPECT_EQ("plain", readFile(path("c.0")));
    // A "." in a directory name is no extension.
    fs::create_directory(path("run.d"));
    writeFile(path("run.d/trace"), "x");
    EXPECT_TRUE(qzAgeFiles(path("run.d/trace").c_str(), 1, true));
    EXPECT_EQ("x", readFile(path("run.d/trace.0")));
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

// Generation 0 is a directory: it can be neither deleted as a file nor
// replaced by one. Both failures are logged and reported, and ageing goes on.
TEST_F(FileUtilTest, AgeFilesReportsWhatTheSystemRefuses) {
    qztest::CaptureAppender& log = capture("qzstd.util.file");
    writeFile(path("e.log"), "current");
    fs::create_directory(path("e.0.log"));
    writeFile(path("e.0.log/inside"), "x");
    EXPECT_FALSE(qzAgeFiles(path("e.log").c_str(), 0, true));

    std::vector<std::string> expected = {
        "qzAgeFiles: Error deleting file '" + path("e.0.log") + "'",
        "qzAgeFiles: Error renaming file '" + path("e.log") + "' to '" + path("e.0.log") + "'"};
    EXPECT_EQ(expected, log.lines());
    std::vector<Fault> reported = faults();
    ASSERT_EQ(2u, reported.size());
    EXPECT_EQ(1093u, reported[0].number);
    EXPECT_EQ(path("e.0.log"), reported[0].arguments);
    EXPECT_EQ(1800u, reported[1].number);
    EXPECT_EQ(path("e.log") + ", " + path("e.0.log"), reported[1].arguments);
    EXPECT_STREQ("qzstd.util.file", reported[1].site.component);
}

// ---- Flushing, closing, sizes -----------------------------------------------

TEST_F(FileUtilTest, SyncCallsOnFilesDirectoriesAndPipes) {
    int fd = ::open(path("s").c_str(), O_CREAT | O_RDWR, 0600);
    ASSERT_EQ(5, ::write(fd, "hello", 5));
    EXPECT_TRUE(qzFsyncData(fd, true));
    EXPECT_EQ(5u, qzGetFileSize(fd));
    ::close(fd);
    errno = 0;
    EXPECT_FALSE(qzFsync(-1)) << "EBADF is not retried";
    EXPECT_EQ(EBADF, errno);
    EXPECT_EQ(~0UL, qzGetFileSize(-1));

    int error = 0;
    EXPECT_TRUE(qzFsyncDir(dir.c_str(), &error));
    EXPECT_FALSE(qzFsyncDir(path("missing").c_str(), &error));
    EXPECT_EQ(ENOENT, error);

    // A pipe refuses fdatasync with EINVAL; the change-over to fsync is seen
    // in the name of the call that is reported last.
    int pipeEnds[2];
    ASSERT_EQ(0, ::pipe(pipeEnds));
    EXPECT_FALSE(qzFsyncData(pipeEnds[1], false));
    EXPECT_TRUE(faults().empty());
    EXPECT_FALSE(qzFsyncData(pipeEnds[1], true));
    std::vector<Fault> reported = faults();
    ASSERT_EQ(1u, reported.size());
    EXPECT_EQ(1092u, reported[0].number);
    EXPECT_EQ("fsync(), descriptor " + std::to_string(pipeEnds[1]) + ", 22, Invalid argument",
              reported[0].arguments);
    ::close(pipeEnds[0]);
    ::close(pipeEnds[1]);
}

// A flush that fails for good (no space) is reported once, not repeated for
// ever, and the stream is still closed.
TEST_F(FileUtilTest, FcloseGivesUpOnAFlushThatCannotSucceed) {
    EXPECT_EQ(0, qzFclose(nullptr));
    FILE* full = std::fopen("/dev/full", "w");
    if (!full)
        GTEST_SKIP() << "no /dev/full";
    std::fputs("x", full);
    int descriptor = ::fileno(full);
    EXPECT_EQ(EOF, qzFclose(full));
    std::vector<Fault> reported = faults();
    ASSERT_EQ(1u, reported.size());
    EXPECT_EQ("fflush(), descriptor " + std::to_string(descriptor) +
                  ", 28, No space left on device",
              reported[0].arguments);
    EXPECT_EQ(-1, ::fcntl(descriptor, F_GETFD)) << "the descriptor must be closed";
}

TEST_F(FileUtilTest, DescriptorCallsReadWriteAndSeek) {
    int fd = qzCreateFile(path("d").c_str(), O_RDWR, 0600, nullptr);
    ASSERT_GE(fd, 0);
    unsigned long done = 0;
    char errorText[256] = "";
    EXPECT_TRUE(qzWrite(fd, "0123456789", 10, &done, errorText));
    EXPECT_EQ(10u, done);
    unsigned long position = 99;
    EXPECT_TRUE(qzLseek(fd, 4, SEEK_SET, &position));
    EXPECT_EQ(4u, position);
    char buffer[32] = {};
    EXPECT_TRUE(qzRead(fd, buffer, sizeof buffer, &done, errorText));
    EXPECT_EQ(6u, done) << "the end of the file ends the read";
    EXPECT_STREQ("456789", buffer);
    EXPECT_EQ(0, qzCloseHandle(&fd));
    EXPECT_EQ(0, qzCloseHandle(fd)) << "no handle (-1), nothing to close or report";
    EXPECT_TRUE(faults().empty());

    int writeOnly = ::open(path("d").c_str(), O_WRONLY);
    EXPECT_FALSE(qzRead(writeOnly, buffer, sizeof buffer, &done, errorText));
    EXPECT_STREQ("read() error 9 (Bad file descriptor)", errorText);
    ::close(writeOnly);

    int pipeEnds[2];
    ASSERT_EQ(0, ::pipe(pipeEnds));
    EXPECT_FALSE(qzLseek(pipeEnds[0], 0, SEEK_SET, nullptr));
    EXPECT_EQ(-1, qzClose(-5));
    std::vector<Fault> reported = faults();
    ASSERT_EQ(2u, reported.size());
    EXPECT_EQ("seek(), descriptor " + std::to_string(pipeEnds[0]) + ", 29, Illegal seek",
              reported[0].arguments);
    EXPECT_EQ("close(), descriptor -5, 9, Bad file descriptor", reported[1].arguments);
    ::close(pipeEnds[0]);
    ::close(pipeEnds[1]);
}

// ---- Opening and locking ----------------------------------------------------

TEST_F(FileUtilTest, OpenFileMarksCloseOnExecAndReportsFailure) {
    writeFile(path("o"), "x");
    FILE* stream = qzOpenFile(path("o").c_str(), "r");
    ASSERT_NE(nullptr, stream);
    EXPECT_NE(0, ::fcntl(::fileno(stream), F_GETFD) & FD_CLOEXEC);
    std::fclose(stream);

    EXPECT_EQ(nullptr, qzOpenFile(path("none/o").c_str(), "r"));
    EXPECT_EQ(ENOENT, errno) << "the report must leave errno alone";
    std::vector<Fault> reported = faults();
    ASSERT_EQ(1u, reported.size());
    EXPECT_EQ(1091u, reported[0].number);
    EXPECT_EQ(path("none/o"), reported[0].arguments);
}

// Record locks are per process, so the refusal is seen from a child.
TEST_F(FileUtilTest, ProtectedFileRefusesASecondProcess) {
    writeFile(path("lock"), "x");
    int fd = qzOpenProtected(path("lock").c_str());
    ASSERT_GE(fd, 0);
    const std::string name = path("lock");
    const pid_t parent = ::getpid();
    pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        int refused = qzOpenProtected(name.c_str());
        bool ok = refused == -1 && (errno == EACCES || errno == EAGAIN);
        int other = ::open(name.c_str(), O_RDWR);
        long holder = 0;
        ok = ok && qzProtectFile(other, &holder, 0) == -1 && holder == parent;
        ::_exit(ok ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(child, ::waitpid(child, &status, 0));
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    qzClose(fd);
}

// ---- Copying, truncating, existence -----------------------------------------

TEST_F(FileUtilTest, CopyFileCopiesOrSaysWhy) {
    std::string content;
    for (int i = 0; i < 50000; ++i)
        content += static_cast<char>('a' + i % 26);
    writeFile(path("src"), content);
    char message[QZ_COPY_MESSAGE_SIZE];
    int error = 0;
    EXPECT_TRUE(qzCopyFile(path("src").c_str(), path("dst").c_str(), message, &error));
    EXPECT_EQ(content, readFile(path("dst")));
    EXPECT_STREQ("", message);

    EXPECT_FALSE(qzCopyFile(path("nothing").c_str(), path("dst").c_str(), message, &error));
    EXPECT_EQ("Error copying files: could not open input file " + path("nothing") +
                  ", error 2 (No such file or directory)\n",
              message);
    EXPECT_FALSE(qzCopyFile(path("src").c_str(), path("no/dst").c_str(), message, &error));
    EXPECT_EQ("Error copying files: could not open output file " + path("no/dst") +
                  ", error 2 (No such file or directory)\n",
              message);
    if (::access("/dev/full", W_OK) == 0) {
        writeFile(path("small"), "small");
        EXPECT_FALSE(qzCopyFile(path("small").c_str(), "/dev/full", message, &error));
        EXPECT_STREQ("Error copying files: could not write output file /dev/full, error 28 (No "
                     "space left on device)\n",
                     message);
        EXPECT_EQ(ENOSPC, error);
    }
}

// A parameter file may be named without its ".prm"; the buffer then says
// which file was meant.
TEST_F(FileUtilTest, ParameterFilesAndTruncation) {
    writeFile(path("full"), "data");
    writeFile(path("extract.prm"), "x");
    char param[QZ_FILENAME_SIZE];
    std::snprintf(param, sizeof param, "%s", path("extract").c_str());
    EXPECT_TRUE(qzCheckParamFileExists(param));
    EXPECT_EQ(path("extract.prm"), param);
    std::snprintf(param, sizeof param, "%s", path("extract.txt").c_str());
    EXPECT_FALSE(qzCheckParamFileExists(param)) << "an extension is never replaced";

    FILE* stream = std::fopen(path("full").c_str(), "r");
    std::string name = path("full");
    EXPECT_TRUE(qzTruncateFile(stream, &name[0]));
    ASSERT_NE(nullptr, stream);
    std::fputs("new", stream);
    std::fclose(stream);
    EXPECT_EQ("new", readFile(path("full")));
}

// ---- Directories --------------------------------------------------------------

TEST_F(FileUtilTest, CreateAndDeleteDirectories) {
    EXPECT_TRUE(qzAutoCreateMissingDir(path("a/b\\c").c_str()));
    EXPECT_TRUE(qzCheckDirExists(path("a/b/c").c_str()));
    writeFile(path("plain"), "x");
    EXPECT_FALSE(qzAutoCreateMissingDir(path("plain/sub").c_str()));
    std::vector<Fault> reported = faults();
    ASSERT_EQ(1u, reported.size());
    EXPECT_EQ(25119u, reported[0].number);
    EXPECT_EQ(path("plain/sub"), reported[0].arguments);

    char errorText[256];
    EXPECT_FALSE(qzCreateDir(path("a").c_str(), errorText));
    EXPECT_STREQ("error 17 (File exists)", errorText);

    // The tree holds a link to a directory outside it: the link goes, what
    // it points at stays.
    fs::create_directory(path("outside"));
    writeFile(path("outside/keep"), "x");
    writeFile(path("a/b/c/f"), "x");
    fs::create_directory_symlink(path("outside"), path("a/b/link"));
    int error = 0;
    EXPECT_FALSE(qzDeleteDirectory(path("a").c_str(), false, &error));
    EXPECT_EQ(ENOTEMPTY, error);
    qztest::CaptureAppender& log = capture("fileutl.delete");
    EXPECT_TRUE(qzDeleteDirectory(path("a").c_str(), true, &error));
    EXPECT_FALSE(fs::exists(path("a")));
    EXPECT_TRUE(fs::exists(path("outside/keep")));
    ASSERT_FALSE(log.lines().empty());
    EXPECT_EQ("Deleting directory '" + path("a") + "', with its contents", log.lines().front());
}

// ---- Paths --------------------------------------------------------------------

TEST_F(FileUtilTest, RealAndLocalPaths) {
    char real[PATH_MAX];
    ASSERT_NE(nullptr, ::realpath(dir.c_str(), real));
    writeFile(path("target"), "x");
    fs::create_symlink(path("target"), path("link"));
    qztest::CaptureAppender& log = capture("qzstd.util.file");

    char resolved[PATH_MAX];
    errno = EINVAL;
    EXPECT_TRUE(qzGetRealPath(path("link").c_str(), resolved, nullptr));
    EXPECT_EQ(std::string(real) + "/target", resolved);
    EXPECT_EQ(0, errno);
    EXPECT_EQ("\"" + path("link") + "\" is resolved as \"" + resolved + "\"", log.last());

    EXPECT_FALSE(qzGetLocalPath(path("gone").c_str(), resolved));
    EXPECT_EQ(path("gone"), resolved);
    EXPECT_EQ("error (2), unable to stat path \"" + path("gone") + "\"", log.last());
}

TEST(FilePathTest, SplittingPaths) {
    struct Case {
        const char* path;
        const char* dir;
        const char* name;
        const char* ext;
        bool wildcard;
    };
    const Case cases[] = {
        {"dir/sub/name.ext", "dir/sub/", "name", "ext", false},
        {"name", "", "name", "", false},
        {"/a.b/c", "/a.b/", "c", "", false},
        {"d/*.log", "d/", "*", "log", true},
        {"d/x?", "d/", "x?", "", true},
        {"*/x", "*/", "x", "", false},
        {"d/", "d/", "", "", false},
        {"a.tar.gz", "", "a.tar", "gz", false},
    };
    for (const Case& c : cases) {
        char dir[QZ_FILENAME_SIZE], name[QZ_FILENAME_SIZE], ext[QZ_FILENAME_SIZE];
        EXPECT_EQ(c.wildcard, qzGetFileParts(c.path, dir, name, ext)) << c.path;
        EXPECT_STREQ(c.dir, dir) << c.path;
        EXPECT_STREQ(c.name, name) << c.path;
        EXPECT_STREQ(c.ext, ext) << c.path;
    }
    std::string longDir = std::string(300, 'd') + "/f.x";
    char dir[QZ_FILENAME_SIZE], file[QZ_FILENAME_SIZE];
    qzGetFileNameParts(longDir.c_str(), dir, file);
    EXPECT_EQ(std::string(QZ_FILENAME_SIZE - 1, 'd'), dir);
    EXPECT_STREQ("f.x", file);
    EXPECT_TRUE(qzIsAbsoluteFileName("/x"));
    EXPECT_FALSE(qzIsAbsoluteFileName("x/"));
}

TEST(FilePathTest, FullPathNames) {
    qztest::resetLogging();
    Logger* logger = Logger::getRepository().getLogger("qzstd.util.file");
    qztest::CaptureAppender log("fullpath", new PatternLayout("%m"));
    logger->addAppender(log);
    logger->setLevel(Level::All);

    struct Case {
        const char* path;
        const char* full;
        const char* file;
    };
    const Case cases[] = {
        {"/a/./b/../c//d.txt", "/a/c/d.txt", "d.txt"},
        {"/../x", "/x", "x"},
        {"/a/b/", "/a/b/", ""},
        {"/a/b/..", "/a/", ""},
        {"/", "/", ""},
    };
    char full[64];
    char* filePart = nullptr;
    for (const Case& c : cases) {
        EXPECT_EQ(static_cast<int>(std::strlen(c.full)),
                  qzGetFullPathName(c.path, sizeof full, full, &filePart))
            << c.path;
        EXPECT_STREQ(c.full, full) << c.path;
        EXPECT_STREQ(c.file, filePart) << c.path;
    }
    EXPECT_EQ("path name \"/a/./b/../c//d.txt\" has dir \"/a/c/\" and file name \"d.txt\"",
              log.lines().front());

    char cwd[PATH_MAX];
    ASSERT_NE(nullptr, ::getcwd(cwd, sizeof cwd));
    char relative[PATH_MAX + 16];
    EXPECT_GT(qzGetFullPathName("x/y", sizeof relative, relative, nullptr), 0);
    EXPECT_EQ(std::string(cwd == std::string("/") ? "" : cwd) + "/x/y", relative);

    errno = 0;
    EXPECT_EQ(0, qzGetFullPathName("/abc", 4, full, nullptr)) << "room for the NUL is needed";
    EXPECT_EQ(ERANGE, errno);
    EXPECT_EQ(0, qzGetFullPathName("", sizeof full, full, nullptr));

    logger->removeAppender(log);
    qztest::resetLogging();
}

TEST(FilePathTest, TrailFileNames) {
    char trail[QZ_FILENAME_SIZE] = "untouched";
    EXPECT_EQ(9, qzSeqLenFromFileName("dirdat/aa000000123"));
    EXPECT_EQ(123, qzSeqnoFromFileName("dirdat/aa000000123"));
    EXPECT_TRUE(qzTrailNameFromFileName("dirdat/aa000000123", trail));
    EXPECT_STREQ("dirdat/aa", trail);

    EXPECT_EQ(6, qzSeqLenFromFileName("dirdat/aa000123"));
    EXPECT_EQ(123, qzSeqnoFromFileName("dirdat/aa000123"));
    // A prefix may end in a digit: seven digits are a one-digit tail of the
    // prefix and a six-digit sequence.
    EXPECT_TRUE(qzTrailNameFromFileName("a1000123", trail));
    EXPECT_STREQ("a1", trail);

    // Digits of the directory do not count.
    EXPECT_EQ(0, qzSeqLenFromFileName("dir123456/ab"));
    EXPECT_EQ(-1, qzSeqnoFromFileName("x12345"));
    std::strcpy(trail, "untouched");
    EXPECT_FALSE(qzTrailNameFromFileName("x12345", trail));
    EXPECT_STREQ("untouched", trail);
}

// ---- File lists -------------------------------------------------------------

TEST_F(FileUtilTest, FileListsMatchSortAndCount) {
    for (const char* name : {"tr000001", "tr000003", "tr000000002", "tr.txt", "other", "tr0001"})
        writeFile(path(name), "x");
    fs::create_directory(path("tr000009"));

    int count = -1;
    EXPECT_EQ(0, qzGetFileListCount(path("tr*").c_str(), &count, nullptr));
    EXPECT_EQ(6, count);

    file_info_def* list = nullptr;
    EXPECT_EQ(0, qzGetFileList(path("tr??????").c_str(), &list, &count, byName, 0, 1));
    EXPECT_EQ((std::vector<std::string>{"tr000001", "tr000003"}), names(list, count));
    EXPECT_EQ(0, qzGetFileList(path("*.txt").c_str(), &list, &count, byName, 0, 0));
    EXPECT_EQ((std::vector<std::string>{"tr.txt"}), names(list, count));

    // Both sequence lengths in one sorted list; the limit applies after
    // sorting.
    EXPECT_EQ(0, qzGetAllFileList(path("tr").c_str(), &list, &count, byName, 0, 0));
    EXPECT_EQ((std::vector<std::string>{"tr000000002", "tr000001", "tr000003", "tr000009"}),
              names(list, count));
    EXPECT_EQ(0, qzGetAllFileList(path("tr").c_str(), &list, &count, byName, 2, 1));
    EXPECT_EQ((std::vector<std::string>{"tr000000002", "tr000001"}), names(list, count));

    EXPECT_EQ(9, TrailSeqLen(path("tr").c_str()));
    EXPECT_EQ(6, TrailSeqLen(path("other").c_str()));

    EXPECT_EQ(0, qzGetFileList(path("zz*").c_str(), &list, &count, byName, 0, 0));
    EXPECT_EQ(0, count);
    EXPECT_EQ(nullptr, list);
}

TEST_F(FileUtilTest, FileListOfAMissingDirectoryFailsAndLogs) {
    qztest::CaptureAppender& log = capture("qzstd.util.file");
    file_info_def* list = nullptr;
    int count = 0;
    errno = 0;
    EXPECT_EQ(-1, qzGetFileList(path("none/*").c_str(), &list, &count, byName, 0, 0));
    EXPECT_EQ(ENOENT, errno);
    EXPECT_EQ(nullptr, list);
    int error = 0;
    EXPECT_EQ(-1, qzGetFileListCount(path("none/*").c_str(), &count, &error));
    EXPECT_EQ(ENOENT, error);
    ASSERT_EQ(2u, log.count());
    EXPECT_EQ("ERROR: cannot open directory: opendir: " + path("none/") +
                  "  errno: 2 (No such file or directory)",
              log.last());
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

// ---- Hex output ---------------------------------------------------------------

TEST(FileUtilMiscTest, HexOutputLines) {
    char data[] = "ABCDEFGHIJKLMNOP\x01\x02\x03\x7f";
    char* text = nullptr;
    size_t size = 0;
    FILE* stream = ::open_memstream(&text, &size);
    ASSERT_NE(nullptr, stream);
    EXPECT_TRUE(qzOutputHexToFile(stream, data, 20, 100));
    std::fclose(stream);
    std::string expected = "      100: 41424344 45464748 494A4B4C 4D4E4F50" + std::string(10, ' ') +
                           "  ABCDEFGHIJKLMNOP\n"
                           "      116: 0102037F" +
                           std::string(37, ' ') + "  ....\n";
    EXPECT_EQ(expected, std::string(text, size));
    std::free(text);
}

} // namespace
