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
#include <vector>

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
    logger->removeAppender(*out); // later buffers must not reach this file
    delete out;

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

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    size_t start = 0;
    for (size_t nl; (nl = text.find('\n', start)) != std::string::npos; start = nl + 1)
        lines.push_back(text.substr(start, nl - start));
    return lines;
}

// A file cut at an arbitrary byte (a crash, a copy taken mid-write) replays
// up to the cut, and the tool says so with its own exit status instead of
// passing the file off as whole. The file holds two sessions, so a cut can
// also fall inside the second one's start marker.
TEST(Retrace, ACutFileReplaysWhatStandsAndSaysSo) {
    char dirName[] = "/tmp/qzretraceXXXXXX";
    const std::string dir = ::mkdtemp(dirName);
    const std::string whole = dir + "/whole.act", cut = dir + "/cut.act";

    FileAppender* out = new FileAppender("retrace-cut-writer");
    out->setFile(whole.c_str());
    out->setBufferedIO(false); // the first session is on disk before the second is written
    out->setLayout(new BinaryLayout());
    Logger* logger = Logger::getRepository().getLogger("tool.cut");
    logger->addAppender(*out);
    logger->setLevel(Level::Info);
    Logger::getRepository().setThreadName("cutter");
    QZ_INFO(logger, "first %d", 1);
    QZ_WARN(logger, "second %s", "two");
    Appender::flushOutput();
    std::string bytes;
    {
        std::ifstream in(whole, std::ios::binary);
        bytes.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }
    const size_t firstSession = bytes.size();
    ASSERT_GT(firstSession, 17u) << "the first buffer reached the file";
    QZ_INFO(logger, "third %d", 3);
    Appender::flushOutput();
    out->close();
    logger->removeAppender(*out);
    delete out;
    {
        std::ifstream in(whole, std::ios::binary);
        bytes.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }
    ASSERT_GT(bytes.size(), firstSession + 17);

    const std::string pattern = "--pattern '%c [%t] %m%n' ";
    ToolRun full = retrace(pattern + whole);
    ASSERT_EQ(0, full.status) << full.err;
    const std::vector<std::string> expected = linesOf(full.out);
    ASSERT_EQ(3u, expected.size()) << full.out;
    EXPECT_EQ("tool.cut [cutter] first 1", expected[0]);

    struct Case {
        const char* what;
        size_t length;
        int status;
        size_t lines;
    };
    const Case cases[] = {
        {"inside the second start marker", firstSession + 5, 3, 2},
        {"inside the first session's last detail", firstSession - 3, 3, 2},
        {"just behind the first marker", 20, 3, 0},
        // Undetectable, kept as such: the file looks like one whole session.
        {"on the boundary between sessions", firstSession, 0, 2},
        {"too short to hold anything", 12, 1, 0},
        {"only the last end token lost", bytes.size() - 1, 3, 3}, // the cut copy used below
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        {
            std::ofstream copy(cut, std::ios::binary | std::ios::trunc);
            copy.write(bytes.data(), static_cast<std::streamsize>(c.length));
        }
        ToolRun run = retrace(pattern + cut);
        EXPECT_EQ(c.status, run.status) << run.err;
        const std::vector<std::string> lines = linesOf(run.out);
        ASSERT_EQ(c.lines, lines.size()) << run.out;
        // Lines before the cut come out whole; the event the cut falls in
        // may lack its details, never gain any.
        for (size_t i = 0; i + 1 < lines.size(); ++i)
            EXPECT_EQ(expected[i], lines[i]);
        if (c.status == 3) {
            const std::string said = cut + ": the file ends early, inside a session; " +
                                     std::to_string(c.lines) + (c.lines == 1 ? " event" : " events") +
                                     " replayed from it\n";
            EXPECT_NE(std::string::npos, run.err.find(said)) << run.err;
        }
    }
    // A malformed file outranks a cut one in the exit status.
    {
        std::ofstream junk(dir + "/bad.act", std::ios::binary);
        junk << "<" << '\x07' << std::string(30, 'x');
    }
    EXPECT_EQ(1, retrace(pattern + cut + " " + dir + "/bad.act").status);
    EXPECT_EQ(3, retrace(pattern + cut + " " + whole).status) << "a later whole file does not clear it";

    std::remove(whole.c_str());
    std::remove(cut.c_str());
    std::remove((dir + "/bad.act").c_str());
    ::rmdir(dir.c_str());
}

} // namespace
