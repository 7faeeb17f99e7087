//===- tests/support/ChildProcess.h - Items a child program prints -*- C++ -*-===//
//
// The integration tests start real programs and read back what they print as
// "name=value" lines.
//
//===----------------------------------------------------------------------===//
#ifndef TESTS_SUPPORT_CHILDPROCESS_H
#define TESTS_SUPPORT_CHILDPROCESS_H

#include <gtest/gtest.h>

#include <cstdio>
#include <map>
#include <string>
#include <sys/wait.h>

namespace qztest {

/// Runs `command` through the shell and returns its "name=value" lines;
/// other lines are ignored. A command that does not exit with 0 fails the
/// calling test.
inline std::map<std::string, std::string> runForItems(const std::string& command) {
    std::map<std::string, std::string> items;
    FILE* pipe = ::popen(command.c_str(), "r");
    if (!pipe) {
        ADD_FAILURE() << command << ": cannot start";
        return items;
    }
    char line[4096];
    while (std::fgets(line, sizeof line, pipe)) {
        std::string text(line);
        if (!text.empty() && text.back() == '\n')
            text.pop_back();
        const size_t eq = text.find('=');
        if (eq != std::string::npos)
            items[text.substr(0, eq)] = text.substr(eq + 1);
    }
    const int status = ::pclose(pipe);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << command << ": " << status;
    return items;
}

} // namespace qztest

#endif // TESTS_SUPPORT_CHILDPROCESS_H
