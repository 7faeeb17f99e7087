//===- tests/qzlog/config/WatchTest.cpp - Logging files watched -----------===//
//
// A watched list of logging files, changed while the watch thread runs:
// each test waits for the effect with a deadline rather than for a time.
//
//===----------------------------------------------------------------------===//
#include "../LogTestUtil.h"
#include "TempDir.h"

#include "qzlog/LoggerRepository.h"
#include "qzlog/config/DOMConfigurator.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <string>
#include <sys/stat.h>
#include <thread>

using namespace qzs::qzlib::qzlog;

namespace {

constexpr unsigned int Period = 50; // milliseconds between looks

class WatchTest : public qztest::LoggingTest {
protected:
    // Replaces `path` whole, as an editor does: a new file renamed over it.
    static void replace(const std::string& path, const std::string& body) {
        qztest::writeFile(path + ".new", body);
        ASSERT_EQ(0, std::rename((path + ".new").c_str(), path.c_str()));
    }
    static std::string levelOf(const char* logger, const char* level) {
        return std::string("<c><logger name='") + logger + "'><level value='" + level +
               "'/></logger></c>";
    }
    static Logger* logger(const char* name) { return Logger::getRepository().getLogger(name); }
    // Polls `done` until it holds or ten seconds pass.
    static bool waitFor(const std::function<bool()>& done) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (!done()) {
            if (std::chrono::steady_clock::now() > deadline)
                return false;
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        return true;
    }
    static size_t threads() {
        size_t n = 0;
        for (const auto& entry : std::filesystem::directory_iterator("/proc/self/task")) {
            (void)entry;
            ++n;
        }
        return n;
    }

    qztest::TempDir temp{"qzwatch"};
};

// A file replaced while watched is applied again; so is one whose time
// alone moved (same size, same inode).
TEST_F(WatchTest, ChangedFileIsAppliedAgain) {
    const std::string file = temp.path("w.xml");
    qztest::writeFile(file, levelOf("w.changed", "DEBUG"));
    DOMConfigurator configurator;
    configurator.configureAndWatch(file.c_str(), Period);
    // The first load is done when the call returns.
    EXPECT_EQ(Level::Debug, logger("w.changed")->getLevel());

    replace(file, levelOf("w.changed", "ERROR"));
    EXPECT_TRUE(waitFor([] { return logger("w.changed")->getLevel() == Level::Error; }));

    logger("w.changed")->setLevel(Level::Off);
    struct stat info;
    ASSERT_EQ(0, ::stat(file.c_str(), &info));
    const timespec times[2] = {{info.st_mtime + 5, 0}, {info.st_mtime + 5, 0}};
    ASSERT_EQ(0, ::utimensat(AT_FDCWD, file.c_str(), times, 0));
    EXPECT_TRUE(waitFor([] { return logger("w.changed")->getLevel() == Level::Error; }));
}

// A watched file that goes returns the process to its defaults.
TEST_F(WatchTest, DeletedFileReturnsToDefaults) {
    const std::string file = temp.path("gone.xml");
    qztest::writeFile(
        file, "<c><appender name='w.gone' class='FileAppender'><param name='File' value='" +
                  temp.path("gone.log") +
                  "'/></appender><logger name='w.gone'><level value='DEBUG'/>"
                  "<appender-ref name='w.gone'/></logger><root><level value='ERROR'/></root></c>");
    DOMConfigurator configurator;
    configurator.configureAndWatch(file.c_str(), Period);
    ASSERT_EQ(Level::Debug, logger("w.gone")->getLevel());
    ASSERT_EQ(1u, logger("w.gone")->getAllAppenders().size());

    ASSERT_EQ(0, std::remove(file.c_str()));
    EXPECT_TRUE(waitFor([] { return logger("w.gone")->getLevel() == Level::Inherit; }));
    EXPECT_TRUE(logger("w.gone")->getAllAppenders().empty());
    EXPECT_EQ(Level::Warn, Logger::getRepository().getRootLogger()->getLevel());
}

// An earlier name of the list that appears takes over from a later one.
TEST_F(WatchTest, EarlierNameTakesOver) {
    const std::string first = temp.path("instance.xml"), second = temp.path("general.xml");
    qztest::writeFile(second, levelOf("w.list", "INFO"));
    const char* names[] = {first.c_str(), second.c_str()};
    DOMConfigurator configurator;
    configurator.configureAndWatch(names, 2, Period);
    ASSERT_EQ(Level::Info, logger("w.list")->getLevel());

    replace(first, levelOf("w.list", "FATAL"));
    EXPECT_TRUE(waitFor([] { return logger("w.list")->getLevel() == Level::Fatal; }));
}

// A file in a directory that is made only after the watch began.
TEST_F(WatchTest, FileInALaterDirectory) {
    const std::string dir = temp.path("later"), file = dir + "/late.xml";
    DOMConfigurator configurator;
    configurator.configureAndWatch(file.c_str(), Period);
    EXPECT_EQ(Level::Inherit, logger("w.late")->getLevel());

    ASSERT_TRUE(std::filesystem::create_directory(dir));
    replace(file, levelOf("w.late", "WARN"));
    EXPECT_TRUE(waitFor([] { return logger("w.late")->getLevel() == Level::Warn; }));
}

// Destroying the configurator ends its watch thread (and a new watch on
// the same object replaces the old thread rather than adding one).
TEST_F(WatchTest, DestroyingTheConfiguratorStopsTheWatch) {
    const std::string file = temp.path("stop.xml");
    qztest::writeFile(file, levelOf("w.stop", "INFO"));
    const size_t before = threads();
    {
        DOMConfigurator configurator;
        configurator.configureAndWatch(file.c_str(), Period);
        EXPECT_EQ(before + 1, threads());
        configurator.configureAndWatch(file.c_str(), Period);
        EXPECT_EQ(before + 1, threads());
    }
    EXPECT_EQ(before, threads());
    // What the watch applied stays.
    EXPECT_EQ(Level::Info, logger("w.stop")->getLevel());
}

} // namespace
