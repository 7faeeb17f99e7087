//===- tests/integration/ConfigDiscoveryTest.cpp - Logging files by convention -===//
//
// A real program in a made-up installation finds its logging files: which
// prefixes apply in which layout, in what order, and the file QZLOG_Enable
// picks. Each case is a new process, since the directories are read once.
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

// A home directory, in the standard layout (bin and lib beside each other)
// or the legacy one, and the logging directories its processes use.
class Installation {
public:
    explicit Installation(bool standard) : home(temp.path("home")) {
        std::filesystem::create_directories(home);
        if (standard) {
            std::filesystem::create_directories(home + "/bin");
            std::filesystem::create_directories(home + "/lib");
        }
        environment = "XQZ_HOME=" + home + (standard ? "" : " XQZ_FILESYSTEM_ISLEGACY=1");
        auto dirs = run("dirs");
        lib = dirs["DirProcessLib"] + "/utl/logging/";
        confLogging = dirs["DirProcessConfLogging"];
        conf = dirs["DirProcessConf"];
        for (const std::string* dir : {&lib, &confLogging, &conf})
            std::filesystem::create_directories(*dir);
    }

    // Runs the program with `arguments` under this installation alone, and
    // returns its "name=value" lines.
    std::map<std::string, std::string> run(const std::string& arguments) {
        const std::string command =
            "env -i " + environment + " timeout 60 " QZ_CONFIG_DISCOVERY " " + arguments;
        return qztest::runForItems(command);
    }

    // A file in `dir` that sets `logger` to `level`.
    static void level(const std::string& dir, const std::string& name, const std::string& logger,
                      const char* level, const char* rootAttributes = "") {
        qztest::writeFile(dir + name, std::string("<c ") + rootAttributes + "><logger name='" +
                                          logger + "'><level value='" + level + "'/></logger></c>");
    }

    qztest::TempDir temp{"qzdiscovery"};
    const std::string home;
    std::string environment, lib, confLogging, conf;
};

// Files apply by name within a directory, and the configuration directory
// after the library's: the later level wins.
TEST(ConfigDiscovery, OrderOfFilesAndDirectories) {
    Installation install(true);
    Installation::level(install.lib, "xqz-a.xml", "d.order", "DEBUG");
    Installation::level(install.lib, "xqz-b.xml", "d.order", "WARN");
    Installation::level(install.lib, "xqz-c.xml", "d.dir", "INFO");
    Installation::level(install.confLogging, "xqz-a.xml", "d.dir", "ERROR");
    auto levels = install.run("load d.order d.dir");
    EXPECT_EQ("WARN", levels["d.order"]);
    EXPECT_EQ("ERROR", levels["d.dir"]);
}

// Which prefixes apply: "sca-" and this application's "app-" files only in
// the standard layout or with SCALoggingMode; another application's never.
TEST(ConfigDiscovery, PrefixesByLayout) {
    const struct {
        bool standard;
        const char* mode;
        const char* scaAndApp;
    } cases[] = {{true, "", "INFO"}, {false, "", "INHERIT"}, {false, "sca", "INFO"}};
    for (const auto& c : cases) {
        Installation install(c.standard);
        Installation::level(install.confLogging, "xqz-all.xml", "d.xqz", "INFO");
        Installation::level(install.confLogging, "sca-all.xml", "d.sca", "INFO");
        Installation::level(install.lib, "app-config_discovery.xml", "d.app", "INFO");
        Installation::level(install.confLogging, "app-other.xml", "d.other", "INFO");
        auto levels = install.run(std::string("load ") + c.mode + " d.xqz d.sca d.app d.other");
        const std::string label = std::string(c.standard ? "standard" : "legacy") + " " + c.mode;
        EXPECT_EQ("INFO", levels["d.xqz"]) << label;
        EXPECT_EQ(c.scaAndApp, levels["d.sca"]) << label;
        EXPECT_EQ(c.scaAndApp, levels["d.app"]) << label;
        EXPECT_EQ("INHERIT", levels["d.other"]) << label;
    }
}

// A found file with reset="true" resets once and the search goes on; it
// does not search again from inside itself for ever.
TEST(ConfigDiscovery, ResetInAFoundFileDoesNotRecurse) {
    Installation install(true);
    Installation::level(install.confLogging, "xqz-a.xml", "d.before", "DEBUG");
    Installation::level(install.confLogging, "xqz-r.xml", "d.reset", "INFO", "reset='true'");
    Installation::level(install.confLogging, "xqz-z.xml", "d.after", "WARN");
    auto levels = install.run("load d.before d.reset d.after");
    EXPECT_EQ("INHERIT", levels["d.before"]);
    EXPECT_EQ("INFO", levels["d.reset"]);
    EXPECT_EQ("WARN", levels["d.after"]);
}

// QZLOG_Enable applies the conventional files, then the application's own
// file in the configuration directory ahead of the general one.
TEST(ConfigDiscovery, EnablePicksTheApplicationFile) {
    Installation install(true);
    Installation::level(install.confLogging, "xqz-e.xml", "d.conventional", "WARN");
    Installation::level(install.conf, "qzlog.xml", "d.enable", "INFO");
    Installation::level(install.conf, "qzlog-config_discovery.xml", "d.enable", "ERROR");
    auto levels = install.run("enable d.enable d.conventional");
    EXPECT_EQ("ERROR", levels["d.enable"]);
    EXPECT_EQ("WARN", levels["d.conventional"]);

    std::filesystem::remove(install.conf + "qzlog-config_discovery.xml");
    EXPECT_EQ("INFO", install.run("enable d.enable")["d.enable"]);
}

} // namespace
