//===- tests/integration/RollingProcessesTest.cpp - Processes sharing a log -===//
//
// Four processes of four threads each write numbered lines through one
// rolling file with a small size limit. Afterwards every line is present
// exactly once across the file and its backups, none is torn, and no roll
// happened twice (which would leave a near-empty backup behind).
//
//===----------------------------------------------------------------------===//
#include <gtest/gtest.h>

#include <cstdlib>
#include <dirent.h>
#include <fstream>
#include <set>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

TEST(RollingProcesses, EveryLineOnceAcrossBackups) {
    char pattern[] = "/tmp/qzrollXXXXXX";
    const std::string dir = ::mkdtemp(pattern);
    const std::string file = dir + "/shared.log";
    const int processes = 4, threads = 4, lines = 2500;
    const int maxSize = 64 * 1024;

    std::vector<pid_t> children;
    for (int p = 0; p < processes; ++p) {
        pid_t pid = ::fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            std::string ps = std::to_string(p), ts = std::to_string(threads), ls = std::to_string(lines),
                        ms = std::to_string(maxSize);
            ::execl(QZ_ROLLING_WRITER, "rolling_writer", file.c_str(), ps.c_str(), ts.c_str(), ls.c_str(),
                    ms.c_str(), static_cast<char*>(nullptr));
            ::_exit(127);
        }
        children.push_back(pid);
    }
    for (pid_t pid : children) {
        int status = 0;
        ASSERT_EQ(pid, ::waitpid(pid, &status, 0));
        ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "writer failed: " << status;
    }

    std::set<std::string> seen;
    size_t total = 0, torn = 0, smallBackups = 0, files = 0;
    DIR* d = ::opendir(dir.c_str());
    ASSERT_NE(nullptr, d);
    while (dirent* entry = ::readdir(d)) {
        std::string name = entry->d_name;
        if (name.rfind("shared.log", 0) != 0)
            continue;
        ++files;
        std::ifstream in(dir + "/" + name);
        std::string line;
        size_t bytes = 0;
        while (std::getline(in, line)) {
            bytes += line.size() + 1;
            ++total;
            // "P%d T%d S%06d " and 60 dots: 74 characters.
            if (line.size() != 74 || line[0] != 'P' || line.compare(14, 60, std::string(60, '.')) != 0) {
                ++torn;
                continue;
            }
            EXPECT_TRUE(seen.insert(line.substr(0, 13)).second) << "duplicate " << line;
        }
        if (name != "shared.log" && bytes < static_cast<size_t>(maxSize) / 2)
            ++smallBackups;
    }
    ::closedir(d);

    EXPECT_EQ(0u, torn);
    EXPECT_EQ(static_cast<size_t>(processes * threads * lines), total);
    EXPECT_EQ(static_cast<size_t>(processes * threads * lines), seen.size());
    EXPECT_GT(files, 10u) << "the file rolled many times";
    EXPECT_EQ(0u, smallBackups) << "a roll happened twice";
    std::string command = "rm -rf '" + dir + "'";
    EXPECT_EQ(0, std::system(command.c_str()));
}

} // namespace
