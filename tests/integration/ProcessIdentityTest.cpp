//===- tests/integration/ProcessIdentityTest.cpp - A process's identity ---===//
//
// A real program started under chosen environments: its build symbols, its
// directories in both layouts and its service identifiers, as the
// application context gives them at start-up.
//
//===----------------------------------------------------------------------===//
#include "ChildProcess.h"
#include "TempDir.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <map>
#include <string>
#include <sys/wait.h>

namespace {

// Runs the printer (or a copy of it under another name) with `environment`
// (NAME=value words put before it by env -i, so nothing else leaks in) and
// returns its items.
std::map<std::string, std::string> identity(const std::string& environment,
                                            const std::string& program = QZ_IDENTITY_PRINTER) {
    const std::string command = "env -i " + environment + " " + program +
                                " BuildApplication BuildProgramString ProcessExecutableBase"
                                " DirProcessHome DirProcessLog DirProcessDmp DirStructureIsLegacy"
                                " ScaDeploymentName ScaServiceId";
    return qztest::runForItems(command);
}

// The same program in the two layouts the environment selects, and its
// service identity from the environment or made up.
TEST(ProcessIdentity, LayoutsAndServiceFromTheStartingEnvironment) {
    qztest::TempDir temp("qzidentity");
    const std::string home = temp.path("home"), var = temp.path("var");

    auto legacy = identity("XQZ_HOME=" + home + " XQZ_FILESYSTEM_ISLEGACY=");
    EXPECT_EQ("identity_printer", legacy["BuildApplication"]);
    EXPECT_EQ("Zorvex Quartzgate Unknown Application - please modify qzlog/msgContext",
              legacy["BuildProgramString"]);
    EXPECT_EQ("identity_printer", legacy["ProcessExecutableBase"]);
    EXPECT_EQ(home + "/", legacy["DirProcessHome"]);
    EXPECT_EQ(home + "/dirdmp/", legacy["DirProcessDmp"]);
    EXPECT_EQ("Unknown", legacy["ScaDeploymentName"]);

    // A home with bin and lib beside each other is an installation of the
    // standard layout.
    std::filesystem::create_directories(home + "/bin");
    std::filesystem::create_directories(home + "/lib");
    auto standard = identity("XQZ_HOME=" + home + " XQZ_VAR_HOME=" + var +
                             " XQZ_DEPLOYMENT_NAME=east XQZ_SERVICE_ID=svc-7");
    EXPECT_EQ(home + "/", standard["DirProcessHome"]);
    EXPECT_EQ(var + "/log/", standard["DirProcessLog"]);
    EXPECT_EQ(var + "/log/", standard["DirProcessDmp"]);
    EXPECT_EQ("east", standard["ScaDeploymentName"]);
    EXPECT_EQ("svc-7", standard["ScaServiceId"]);
    EXPECT_EQ("true", legacy["DirStructureIsLegacy"]);
    EXPECT_EQ("false", standard["DirStructureIsLegacy"]);
}

// A service process (known by its executable's name) makes every directory
// of the standard layout; any other process only the log tree.
TEST(ProcessIdentity, AServiceMakesItsDirectories) {
    qztest::TempDir temp("qzservice");
    const std::string home = temp.path("home"), var = temp.path("var");
    std::filesystem::create_directories(home + "/bin");
    std::filesystem::create_directories(home + "/lib");
    const std::string service = home + "/bin/adminsrvr";
    std::filesystem::copy_file(QZ_IDENTITY_PRINTER, service);

    auto items = identity("XQZ_HOME=" + home + " XQZ_VAR_HOME=" + var, service);
    EXPECT_EQ("adminsrvr", items["ProcessExecutableBase"]);
    for (const char* made : {"var/run", "var/lock", "var/temp", "var/lib/checkpt", "var/lib/report", "var/log"})
        EXPECT_TRUE(std::filesystem::is_directory(temp.path(made))) << made;
}

} // namespace
