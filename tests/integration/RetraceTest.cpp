//===- tests/integration/RetraceTest.cpp - The replay tool as a user runs it -===//
#include "qzlog/FileAppender.h"
#include "qzlog/Layout.h"
#include "qzlog/LogMacros.h"
#include "qzlog/LoggerRepository.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

using namespace qzs::qzlib::qzlog;

namespace {

struct ToolRun {
    int status;
    std::string out;
    std::string err;
};

ToolRun retrace(const std::string& arguments) {
    char errName[] = "/tmp/qzretraceerrXXXXXX";
    int fd = ::mkstemp(errName);
    ::close(fd);
    std::string command = std::string(QZ_RETRACE) + " " + arguments + " 2>" + errName;
    ToolRun run;
    FILE* pipe = ::popen(command.c_str(), "r");
    std::array<char, 4096> chunk;
    size_t n;
    while ((n = std::fread(chunk.data(), 1, chunk.size(), pipe)) > 0)
        run.out.append(chunk.data(), n);
    int status = ::pclose(pipe);
    run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    std::ifstream err(errName);
    run.err.assign(std::istreambuf_iterator<char>(err), std::istreambuf_iterator<char>());
    std::remove(errName);
    return run;
}

// A file written here replays through the tool with the chosen pattern, and
// the exit status tells good files, bad files and bad usage apart.
TEST(Retrace, ReplaysAndReportsByExitStatus) {
    char dirName[] = "/tmp/qzretraceXXXXXX";
    const std::string dir = ::mkdtemp(dirName);
    const std::string good = dir + "/good.act", bad = dir + "/bad.act";

    FileAppender* out = new FileAppender("retrace-writer");
    out->setFile(good.c_str());
    out->setLayout(new BinaryLayout());
    Logger* logger = Logger::getRepository().getLogger("tool.check");
    logger->addAppender(*out);
    logger->setLevel(Level::Info);
    Logger::getRepository().setThreadName("writer");
    QZ_INFO(logger, "first %d", 1);
    QZ_WARN(logger, "second %s", "two");
    Appender::flushOutput();
    out->close();

    ToolRun ok = retrace("--pattern '%p %c [%t] %m%n' " + good);
    EXPECT_EQ(0, ok.status) << ok.err;
    EXPECT_EQ("INFO tool.check [writer] first 1\nWARN tool.check [writer] second two\n", ok.out);
    EXPECT_EQ("", ok.err);

    {
        std::ofstream junk(bad, std::ios::binary);
        junk << "<" << '\x07' << std::string(30, 'x');
    }
    ToolRun malformed = retrace(bad + " " + good);
    EXPECT_EQ(1, malformed.status);
    const std::string text = "has a newer version in file header at position 0";
    ASSERT_NE(std::string::npos, malformed.err.find(text)) << malformed.err;
    EXPECT_EQ(malformed.err.find(text), malformed.err.rfind(text)) << "reported once";
    EXPECT_NE(std::string::npos, malformed.out.find("second two")) << "the good file still replays";

    ToolRun missing = retrace(dir + "/absent.act");
    EXPECT_EQ(1, missing.status);
    EXPECT_NE(std::string::npos, missing.err.find("absent.act"));

    EXPECT_EQ(2, retrace("").status);
    EXPECT_EQ(2, retrace("--bogus " + good).status);
    EXPECT_EQ(0, retrace("--help").status);
    ToolRun version = retrace("--version");
    EXPECT_EQ(0, version.status);
    EXPECT_EQ(std::string("retrace ") + QZ_VERSION + "\n", version.out);
    std::remove(good.c_str());
    std::remove(bad.c_str());
    ::rmdir(dir.c_str());
}

} // namespace
