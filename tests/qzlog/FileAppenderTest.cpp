//===- tests/qzlog/FileAppenderTest.cpp - Files, rolls and dates ----------===//
#include "FaultCollector.h"
#include "LogTestUtil.h"
#include "TempDir.h"

#include "qzlog/FileAppender.h"
#include "qzlog/LogMacros.h"
#include "qzmsg/CAppContext.h"
#include "qzstd/FilesysHierarchy.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>
#include <unistd.h>
#include <vector>

using namespace qzs::qzlib::qzlog;
using qztest::readFile;
namespace fs = std::filesystem;

namespace {

class FileAppenderTest : public qztest::LoggingTest {
protected:
    FileAppenderTest() { logger->setLevel(Level::Info); }
    ~FileAppenderTest() override { logger->removeAllAppenders(); }
    std::string path(const std::string& name) const { return temp.path(name); }
    /// Attaching alone does not refold the effective level: do it here.
    void attach(Appender& a) {
        logger->addAppender(a);
        Logger::getRepository().recalculateEffectiveLevels();
    }

    qztest::TempDir temp{"qzfile"};
    Logger* logger = Logger::getRepository().getLogger("files.test");
    qztest::FaultCollector faults;
};

// Name variables from the application context: a bare name goes to the log
// directory of the directory map, a path with "/" is left alone, %P, %A and
// %I expand, %I stays until the file is opened and is the instance once the
// host names one.
TEST_F(FileAppenderTest, NameVariables) {
    const std::string logDir = qzs::qzlib::sca::FilesysHierarchy::getInstance().get("Log");
    ASSERT_FALSE(logDir.empty());
    FileAppender a("names");
    a.setFile("plain.log");
    EXPECT_EQ(logDir + "plain.log", a.getFile());
    a.setFile("rel/dir.log");
    EXPECT_EQ("rel/dir.log", a.getFile());
    a.setFile("%A_%I.log");
    EXPECT_TRUE(a.hasVariables);
    EXPECT_EQ(logDir + "FileAppenderTest_%I.log", a.fileName);
    EXPECT_EQ(logDir + "FileAppenderTest_FileAppenderTest.log", a.getFile());
    a.setFile(path("p%P.log").c_str());
    EXPECT_EQ(path("p") + std::to_string(::getpid()) + ".log", a.getFile());

    const qzs::qzlib::ContextItemID instance = qzs::qzlib::CContext::GetContextItemID("AppInstance");
    qzs::qzlib::getAppContext()->SetItem(instance, "EXT1");
    a.setFile("%I.log");
    EXPECT_EQ(logDir + "EXT1.log", a.getFile());
    qzs::qzlib::getAppContext()->SetItem(instance, "");
}

// Rolling renames app.log.1 to app.log.2 and app.log to app.log.1, then
// starts a new app.log; an open file already over the limit rolls at once.
TEST_F(FileAppenderTest, RollingKeepsNumberedBackups) {
    RollingFileAppender a("roll");
    a.setFile(path("app.log").c_str());
    a.setAppend(true);
    a.setMaxBackupIndex(2);
    a.setBufferedIO(false); // sizes exact: fstat cannot see a stream buffer
    a.setMaxFileSize(static_cast<unsigned int>(3000));
    a.setLayout(new PatternLayout("%m%n"));
    attach(a);
    const std::string line(99, 'x'); // 100 bytes a line
    for (int i = 0; i < 100; ++i)
        QZ_INFO(logger, "%s", line.c_str());
    a.close();
    EXPECT_TRUE(fs::exists(path("app.log")));
    EXPECT_FALSE(fs::exists(path("app.log.3")));
    for (const char* name : {"app.log.1", "app.log.2"}) {
        size_t size = readFile(path(name)).size();
        EXPECT_LE(size, 3000u) << name;
        EXPECT_GE(size, 2000u) << name;
    }

    // A file already over the limit at start is rolled by activateOptions.
    qztest::writeFile(path("big.log"), std::string(5000, 'b'));
    RollingFileAppender b("big");
    b.setFile(path("big.log").c_str());
    b.setAppend(true);
    b.setMaxFileSize(static_cast<unsigned int>(4000));
    b.activateOptions();
    EXPECT_EQ(5000u, readFile(path("big.log.1")).size());
    EXPECT_EQ(0u, readFile(path("big.log")).size());
    b.close();
    EXPECT_EQ(0u, faults.count());
}

// Two writers on one file, as two processes would be: the second finds the
// file already rolled by the first and reopens it instead of rolling again.
TEST_F(FileAppenderTest, LoserOfTheRaceReopens) {
    RollingFileAppender first("first"), second("second");
    for (RollingFileAppender* a : {&first, &second}) {
        a->setFile(path("shared.log").c_str());
        a->setAppend(true);
        a->setBufferedIO(false);
        a->setMaxBackupIndex(5);
        a->setMaxFileSize(static_cast<unsigned int>(4096));
    }
    const std::string chunk(1000, 'c');
    for (int i = 0; i < 3; ++i) {
        first.write(chunk.data(), chunk.size());
        second.write(chunk.data(), chunk.size());
    }
    // 6000 bytes written together; first rolls at its next write.
    first.write(chunk.data(), chunk.size());
    EXPECT_TRUE(fs::exists(path("shared.log.1")));
    // second still holds the old inode, now shared.log.1: it must reopen.
    second.write(chunk.data(), chunk.size());
    EXPECT_FALSE(fs::exists(path("shared.log.2"))) << "the file was rolled twice";
    first.close();
    second.close();
    EXPECT_EQ(readFile(path("shared.log.1")).size() + readFile(path("shared.log")).size(), 8000u);
}

// Six writers on one file, as six processes would be, each far from the
// limit by its own writes: the size each one estimates between reads must
// still count the others', so no file ends over the limit and no line is
// lost.
TEST_F(FileAppenderTest, SharedFileStopsAtTheLimitForEveryWriter) {
    constexpr int Writers = 6, LinesEach = 1500;
    constexpr unsigned int Limit = 256 * 1024;
    std::vector<std::unique_ptr<RollingFileAppender>> writers;
    for (int w = 0; w < Writers; ++w) {
        writers.emplace_back(new RollingFileAppender("shared"));
        writers.back()->setFile(path("busy.log").c_str());
        writers.back()->setAppend(true);
        writers.back()->setBufferedIO(false);
        writers.back()->setMaxBackupIndex(20);
        writers.back()->setMaxFileSize(Limit);
    }
    const std::string line(99, 'l');
    const std::string text = line + "\n";
    for (int i = 0; i < LinesEach; ++i)
        for (auto& w : writers)
            w->write(text.data(), text.size());
    for (auto& w : writers)
        w->close();
    size_t total = 0;
    for (const auto& entry : fs::directory_iterator(temp.path(""))) {
        const size_t size = fs::file_size(entry.path());
        total += size;
        EXPECT_LE(size, Limit) << entry.path();
    }
    EXPECT_EQ(total, static_cast<size_t>(Writers) * LinesEach * text.size());
}

// Size texts: suffixes need a "B", 3GB is the largest, anything else keeps
// the old size and is reported.
TEST_F(FileAppenderTest, MaxFileSizeTexts) {
    struct Row {
        const char* text;
        unsigned int size;  // what getMaxFileSize() answers afterwards
        unsigned int fault; // the message reported, 0 for none
    };
    const Row rows[] = {
        {"1MB", 1048576u, 0}, {"10kb", 10240u, 0}, {"3GB", 3221225472u, 0}, {"0", 0u, 0}, {"2048", 2048u, 0},
        {"10M", 2048u, 1531}, {"10MBx", 2048u, 1531}, {"7TB", 2048u, 1531}, // bad suffix: size kept
        {"4GB", 2048u, 1530}, {"4194304KB", 2048u, 1530},                   // too large: size kept
    };
    RollingFileAppender a("sizes");
    for (const Row& r : rows) {
        SCOPED_TRACE(r.text);
        const size_t before = faults.count();
        a.setMaxFileSize(r.text);
        EXPECT_EQ(r.size, a.getMaxFileSize());
        ASSERT_EQ(before + (r.fault ? 1 : 0), faults.count());
        EXPECT_EQ(r.fault, faults.count() > before ? faults.faults().back().number : 0u);
    }
}

// A file that cannot be opened is reported once, and the process goes on.
TEST_F(FileAppenderTest, UnopenableFileIsReportedOnce) {
    FileAppender a("nowhere");
    qztest::writeFile(path("blocker"), "");
    a.setFile(path("blocker/sub/x.log").c_str()); // a file stands where a directory must
    a.setLayout(new PatternLayout("%m%n"));
    attach(a);
    for (int i = 0; i < 5; ++i)
        QZ_INFO(logger, "dropped %d", i);
    // Once per cause, not per event: the directory that cannot be made, then
    // the file, each with the system's reason and the caller's line.
    std::vector<std::string> reports;
    for (const auto& f : faults.faults())
        reports.push_back(std::to_string(f.number) + " " + f.site.function + ": " + f.arguments);
    ASSERT_EQ(2u, reports.size());
    EXPECT_EQ("25119 qzAutoCreateMissingDir: " + path("blocker/sub") + ", Not a directory", reports[0]);
    EXPECT_EQ("1525 FileAppender::activateOptions: " + path("blocker/sub/x.log") + ", Not a directory", reports[1]);
    EXPECT_EQ("qzlog/FileAppender", faults.faults()[1].site.file);
}

// The date appender names its file by the pattern and appends; with no
// pattern it is a plain appending file.
TEST_F(FileAppenderTest, DailyFileNames) {
    DailyRollingFileAppender a("daily");
    a.setFile(path("day").c_str());
    a.setDatePattern("-%Y%m%d");
    std::string name;
    a.generateFile(name, 1700000000); // 2023-11-14 in UTC
    EXPECT_EQ(path("day") + "-20231114", name);

    DailyRollingFileAppender plain("plain");
    plain.setFile(path("plain.log").c_str());
    qztest::writeFile(path("plain.log"), "kept\n");
    plain.setLayout(new PatternLayout("%m%n"));
    attach(plain);
    QZ_INFO(logger, "added");
    plain.close();
    EXPECT_EQ("kept\nadded\n", readFile(path("plain.log")));
}

} // namespace
