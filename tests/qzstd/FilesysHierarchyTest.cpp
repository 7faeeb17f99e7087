//===- tests/qzstd/FilesysHierarchyTest.cpp - The directory map -----------===//
//
// Each scenario builds its own map (the constructor takes the same inputs
// as the process's instance) in a fresh tree, with the variables it names
// set and every other one of the map's variables unset, restored after. The
// test exports "FilesysInitializationHook" (-rdynamic), which does nothing
// unless a test gives it work.
//
//===----------------------------------------------------------------------===//
#include "qzstd/FilesysHierarchy.h"

#include "CaptureAppender.h"
#include "FaultCollector.h"
#include "TempDir.h"
#include "qzstd/Installation.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <unistd.h>
#include <vector>

namespace {
std::function<void()> g_hookWork;
}

extern "C" void FilesysInitializationHook() {
    if (g_hookWork)
        g_hookWork();
}

namespace {

namespace fs = std::filesystem;
using qzs::qzlib::sca::FilesysHierarchy;
using qzs::qzlib::sca::ScaFS;
using Env = std::map<std::string, const char*>; // null: unset

const char* const kVariables[] = {"XQZ_HOME",
                                  "XQZ_VAR_HOME",
                                  "XQZ_ETC_HOME",
                                  "XQZ_CONF_HOME",
                                  "XQZ_SSL_HOME",
                                  "XQZ_DATA_HOME",
                                  "XQZ_FILESYSTEM_ISLEGACY",
                                  "HOME"};

class FilesysHierarchyTest : public ::testing::Test {
protected:
    void SetUp() override {
        qztest::resetLogging();
        for (const char* name : kVariables)
            if (const char* value = std::getenv(name))
                saved[name] = value;
        for (const char* dir : {"home/bin", "home/lib", "nolib/bin", "bare", "inst/bin", "cat/bin"})
            fs::create_directories(path(dir));
        fs::create_directories(path("inst/lib"));
        qztest::writeFile(path("cat/bin/qzMessage.dat"), "");
        qztest::writeFile(path("file"), "a file where a directory is wanted");
    }
    void TearDown() override {
        g_hookWork = nullptr;
        for (const char* name : kVariables)
            if (saved.count(name))
                ::setenv(name, saved[name].c_str(), 1);
            else
                ::unsetenv(name);
        qztest::resetLogging();
    }

    std::string path(const std::string& name) const { return temp.path(name); }

    // A map built under exactly `env`, from the directory `from` (may be null).
    std::unique_ptr<FilesysHierarchy> build(const Env& env, const char* from = nullptr) {
        for (const char* name : kVariables)
            ::unsetenv(name);
        for (const auto& [name, value] : env)
            if (value)
                ::setenv(name.c_str(), value, 1);
        return std::make_unique<FilesysHierarchy>(from);
    }

    // The messages kept in the thread's error context since the last call,
    // as "number: arguments"; none is issued.
    std::vector<std::string> takeFaults() {
        std::vector<std::string> out;
        EXPECT_EQ(0u, faults.count()) << "kept for the caller, not issued";
        for (const auto& fault : qztest::FaultCollector::takePending())
            out.push_back(std::to_string(fault.number) + ": " + fault.arguments);
        return out;
    }

    qztest::TempDir temp{"qzfshier"};
    std::map<std::string, std::string> saved;
    qztest::FaultCollector faults;
};

// Every key in both layouts from one home with bin and lib, and a Var tree
// named by XQZ_VAR_HOME. The legacy layout is selected by the flag even when
// empty, and ignores XQZ_VAR_HOME. H is the home, V the Var tree.
TEST_F(FilesysHierarchyTest, EveryKeyInBothLayouts) {
    const struct {
        const char* key;
        const char* standard;
        const char* legacy;
    } rows[] = {
        {"Home", "H/", "H/"},
        {"UserHome", "U/.quartzgate/", "U/.quartzgate/"},
        {"Bin", "H/bin/", "H/"},
        {"Lib", "H/lib/", "H/"},
        {"Etc", "H/etc/", "H/diretc/"},
        {"HtDocs", "H/lib/htdocs/", "H/dirsca/"},
        {"Conf", "H/etc/conf/", "H/"},
        {"ConfXqz", "H/etc/conf/xqz/", "H/dirprm/"},
        {"ConfLogging", "H/etc/conf/logging/", "H/diretc/logging/"},
        {"Globals", "H/etc/conf/xqz/", "H/"},
        {"SSL", "H/etc/ssl/", "H/diretc/"},
        {"Var", "V/", "H/"},
        {"LibConf", "V/lib/conf/", "H/dirprm/"},
        {"Data", "V/lib/data/", "H/"},
        {"Db", "V/lib/db/", "H/dirprm/"},
        {"Sql", "V/lib/sql/", "H/dirsql/"},
        {"CheckPt", "V/lib/checkpt/", "H/dirchk/"},
        {"Report", "V/lib/report/", "H/dirrpt/"},
        {"Run", "V/run/", "H/dirpcs/"},
        {"Log", "V/log/", "H/"},
        {"Lock", "V/lock/", "H/dirpcs/"},
        {"Temp", "V/temp/", "H/dirtmp/"},
        {"Def", "V/lib/def/", "H/"},
        {"Dmp", "V/log/", "H/dirdmp/"},
        {"Wlt", "V/lib/wallet/", "H/dirwlt/"},
        {"Crd", "V/lib/credential/", "H/dircrd/"},
        {"DistPaths", "V/lib/distpaths/", "H/"},
    };
    const std::string home = path("home"), var = path("var"), user = path("user");
    Env env{{"XQZ_HOME", home.c_str()}, {"XQZ_VAR_HOME", var.c_str()}, {"HOME", user.c_str()}};
    Env legacyEnv = env;
    legacyEnv["XQZ_FILESYSTEM_ISLEGACY"] = "";
    // Legacy first: it must create nothing, where the standard map then
    // creates the log tree (this process is no service).
    for (bool legacy : {true, false}) {
        SCOPED_TRACE(legacy ? "legacy" : "standard");
        auto map = build(legacy ? legacyEnv : env);
        EXPECT_EQ(legacy, map->isLegacy());
        EXPECT_EQ(!legacy, map->isSCA());
        EXPECT_FALSE(map->isSCAServer());
        EXPECT_EQ(std::size(rows), map->entries().size());
        for (const auto& row : rows) {
            // The letter in front names the base; only it is replaced, since
            // a temporary directory's name may hold "H/", "V/" or "U/" itself.
            const std::string raw = legacy ? row.legacy : row.standard;
            const std::string& base = raw[0] == 'H' ? home : raw[0] == 'V' ? var : user;
            const std::string expected = base + raw.substr(1);
            EXPECT_EQ(expected, map->get(row.key)) << row.key;
        }
        EXPECT_EQ(!legacy, fs::is_directory(path("var/log")));
        EXPECT_FALSE(fs::exists(path("var/lib")));
        EXPECT_FALSE(fs::exists(path("home/etc")));
    }
    EXPECT_EQ(0u, faults.count());
}

// Where the home comes from and when it is legacy without the flag.
TEST_F(FilesysHierarchyTest, HomeDetection) {
    const std::string exeDir = std::string(qzGetProcessExecutableDir()) + "/";
    const std::string t = temp.dir;
    const std::string none = path("none"), bare = path("bare"), nolib = path("nolib"),
                      home = path("home");
    const std::string inst = path("inst/bin"), cat = path("cat/bin");
    const struct {
        const char* scenario;
        const char* xqzHome;
        const char* from;
        std::string home;
        bool legacy;
    } rows[] = {
        {"a home with bin and lib", home.c_str(), nullptr, t + "/home/", false},
        {"XQZ_HOME wins over the directory given", home.c_str(), inst.c_str(), t + "/home/", false},
        {"no bin beside the home", bare.c_str(), nullptr, t + "/bare/", true},
        {"bin but no lib", nolib.c_str(), nullptr, t + "/nolib/", true},
        {"a home that does not exist", none.c_str(), nullptr, t + "/none/", true},
        {"relative: anchored at the working directory", "home", nullptr, t + "/home/", false},
        {"bin/ without the catalogue stands for its parent", nullptr, inst.c_str(), t + "/inst/",
         false},
        {"empty XQZ_HOME is no XQZ_HOME", "", inst.c_str(), t + "/inst/", false},
        {"bin/ holding the catalogue is the home", nullptr, cat.c_str(), t + "/cat/bin/", true},
        {"nothing given: the executable's directory", nullptr, nullptr, exeDir, true},
    };
    char cwd[PATH_MAX];
    ASSERT_NE(nullptr, ::getcwd(cwd, sizeof cwd));
    ASSERT_EQ(0, ::chdir(t.c_str()));
    for (const auto& row : rows) {
        auto map = build({{"XQZ_HOME", row.xqzHome}}, row.from);
        EXPECT_EQ(row.home, map->get("Home")) << row.scenario;
        EXPECT_EQ(row.legacy, map->isLegacy()) << row.scenario;
    }
    ASSERT_EQ(0, ::chdir(cwd));
    EXPECT_EQ(0u, faults.count());
    EXPECT_FALSE(fs::exists(none));
}

// The five overrides apply in the standard layout, with the keys below them
// following, and not at all in the legacy one.
TEST_F(FilesysHierarchyTest, EnvironmentOverrides) {
    const std::string home = path("home"), e = path("e"), c = path("c"), s = path("s"),
                      d = path("d");
    Env env{{"XQZ_HOME", home.c_str()},
            {"XQZ_ETC_HOME", e.c_str()},
            {"XQZ_CONF_HOME", c.c_str()},
            {"XQZ_SSL_HOME", s.c_str()},
            {"XQZ_DATA_HOME", d.c_str()}};
    auto map = build(env);
    EXPECT_EQ(e + "/", map->get("Etc"));
    EXPECT_EQ(c + "/", map->get("Conf"));
    EXPECT_EQ(c + "/xqz/", map->get("ConfXqz"));
    EXPECT_EQ(s + "/", map->get("SSL"));
    EXPECT_EQ(d + "/", map->get("Data"));
    EXPECT_EQ(home + "/var/lib/db/", map->get("Db")) << "no XQZ_VAR_HOME: Var under the home";
    env["XQZ_FILESYSTEM_ISLEGACY"] = "no";
    map = build(env);
    EXPECT_EQ(home + "/diretc/", map->get("Etc"));
    EXPECT_EQ(home + "/", map->get("Data"));
}

// The hook runs before the variables are read, and what it throws stays
// with it.
TEST_F(FilesysHierarchyTest, InitializationHook) {
    const std::string home = path("home"), hooked = path("hooked");
    g_hookWork = [&] { ::setenv("XQZ_VAR_HOME", hooked.c_str(), 1); };
    auto map = build({{"XQZ_HOME", home.c_str()}});
    EXPECT_TRUE(map->wasHookFound());
    EXPECT_EQ(hooked + "/log/", map->get("Log"));
    EXPECT_TRUE(fs::is_directory(hooked + "/log"));
    g_hookWork = [] { throw std::runtime_error("hook failed"); };
    map = build({{"XQZ_HOME", home.c_str()}});
    EXPECT_EQ(home + "/var/log/", map->get("Log"));
}

// Directories that cannot be made, and a HOME that is not one: reported,
// and the map is whole all the same. The refusals come from the system
// (a file in the way), so they hold for root too.
TEST_F(FilesysHierarchyTest, DirectoriesThatCannotBeMade) {
    const std::string home = path("home"), var = path("file/var"), file = path("file");
    qztest::CapturedLogger log("FileSystem", "%m", 239);
    auto map =
        build({{"XQZ_HOME", home.c_str()}, {"XQZ_VAR_HOME", var.c_str()}, {"HOME", file.c_str()}});
    EXPECT_EQ(var + "/log/", map->get("Log"));
    EXPECT_EQ(file + "/.quartzgate/", map->get("UserHome"));
    // Log and Dmp are the same directory and both try it.
    const std::string refused =
        "1090: Unable to auto create directory '" + var + "/log/': Not a directory (20).";
    EXPECT_EQ((std::vector<std::string>{refused, refused}), takeFaults());
    ASSERT_EQ(2u, log.capture->count());
    EXPECT_EQ("Unable to auto create directory '" + var + "/log/': Not a directory (20).",
              log.capture->lines()[0]);

    map = build({{"XQZ_HOME", home.c_str()}});
    EXPECT_EQ("", map->get("UserHome")) << "HOME unset";
    EXPECT_TRUE(FilesysHierarchy::makeSubdir(path("a/b\\c/d/")));
    EXPECT_TRUE(fs::is_directory(path("a/b\\c/d"))) << "the parents were made";
    EXPECT_TRUE(FilesysHierarchy::makeSubdir(path("a"))) << "one that exists";
    EXPECT_FALSE(FilesysHierarchy::makeSubdir("")) << "missing, with no parent to make";
}

// Long paths: a home from 230 characters on is reported and kept; a key
// path is reported from 250 characters; far beyond PATH_MAX everything is
// still refused cleanly, with the system's own error.
TEST_F(FilesysHierarchyTest, LongPaths) {
    const std::string home = path("home");
    auto homeOf = [](size_t length) { return "/" + std::string(length - 2, 'h'); }; // + its '/'
    // Crd is the longest key under Var: Var, its '/', then "lib/credential/".
    auto varFor = [&](size_t crd) {
        return temp.dir + "/" + std::string(crd - 15 - temp.dir.size() - 2, 'v');
    };
    const struct {
        std::string xqzHome, var;
        std::vector<std::string> faults;
    } rows[] = {
        {homeOf(229), "", {}},
        {homeOf(230), "", {"12420: 1, XQZ_HOME, 230"}},
        {home, varFor(249), {}},
        {home, varFor(250), {"12420: 0, Crd, 250"}},
    };
    for (const auto& row : rows) {
        auto map = build({{"XQZ_HOME", row.xqzHome.c_str()}, {"XQZ_VAR_HOME", row.var.c_str()}});
        EXPECT_EQ(row.xqzHome + "/", map->get("Home")) << "kept";
        EXPECT_EQ(row.faults, takeFaults()) << row.xqzHome.size() << " " << map->get("Crd").size();
    }
    std::string huge = temp.dir;
    while (huge.size() <= PATH_MAX)
        huge += "/" + std::string(200, 'p');
    auto map = build({{"XQZ_HOME", home.c_str()}, {"XQZ_VAR_HOME", huge.c_str()}});
    EXPECT_EQ(huge + "/log/", map->get("Log"));
    size_t tooLong = 0;
    std::vector<std::string> refused;
    for (const std::string& f : takeFaults()) {
        if (f.rfind("12420: 0, ", 0) == 0)
            ++tooLong;
        else if (f.rfind("1090: ", 0) == 0)
            refused.push_back(f.substr(f.rfind(" (")));
        else
            ADD_FAILURE() << f;
    }
    EXPECT_EQ(15u, tooLong) << "the keys below Var (Var itself stands as given)";
    EXPECT_EQ((std::vector<std::string>{" (36).", " (36)."}), refused)
        << "ENAMETOOLONG for Log and Dmp";
}

// The substring rule of the service names, and the variable readers.
TEST_F(FilesysHierarchyTest, NamesAndVariables) {
    const struct {
        const char* name;
        bool server;
    } names[] = {
        {"pmsrvr", true}, {"ServiceManager", true}, {"srvr", true},     {"Manager,admin", true},
        {"", false},      {"applier", false},      {"pmsrvr2", false}, {"PMSRVR", false}};
    for (const auto& row : names)
        EXPECT_EQ(row.server, FilesysHierarchy::isSCAServerName(row.name)) << row.name;

    char cwd[PATH_MAX];
    ASSERT_NE(nullptr, ::getcwd(cwd, sizeof cwd));
    const struct {
        const char* value;
        bool set;
        std::string path;
    } variables[] = {{nullptr, false, ""},
                     {"", true, ""},
                     {"/a", true, "/a/"},
                     {"/a/", true, "/a/"},
                     {"rel/x", true, std::string(cwd) + "/rel/x/"}};
    for (const auto& row : variables) {
        build({{"XQZ_DATA_HOME", row.value}});
        EXPECT_EQ(row.set, FilesysHierarchy::getBoolFromEnv("XQZ_DATA_HOME"))
            << (row.value ? row.value : "unset");
        EXPECT_EQ(row.path, FilesysHierarchy::getPathFromEnv("XQZ_DATA_HOME"))
            << (row.value ? row.value : "unset");
    }
}

// The map as logged, and the records of a legacy build.
TEST_F(FilesysHierarchyTest, ToLog) {
    const std::string home = path("home");
    qztest::CapturedLogger log("FileSystem");
    auto map = build({{"XQZ_HOME", home.c_str()}});
    auto lines = log.capture->lines();
    ASSERT_EQ(29u, lines.size());
    EXPECT_EQ("Logging Filesystem Standard Hierarchy Microservices mapping of 27 entries:",
              lines[0]);
    EXPECT_EQ("Bin             -> '" + home + "/bin/'", lines[1]);
    EXPECT_EQ("UserHome        -> ''", lines[25]);
    EXPECT_EQ("End logging Filesystem Standard Hierarchy mapping.", lines[28]);

    log.capture->clear();
    build({{"XQZ_HOME", home.c_str()}, {"XQZ_FILESYSTEM_ISLEGACY", "1"}});
    lines = log.capture->lines();
    EXPECT_EQ("Skipping subdirectory creation for standard deployments.", lines.at(0));
    EXPECT_EQ("Logging Filesystem Standard Hierarchy Legacy mapping of 27 entries:", lines.at(15))
        << "one skip for each of the 15 keys with a folder of their own below the home";
}

// One instance per process, built from the first call's argument.
TEST_F(FilesysHierarchyTest, InstanceIsBuiltOnce) {
    const std::string first = path("home/bin");
    FilesysHierarchy& instance = FilesysHierarchy::getInstance(first.c_str());
    EXPECT_EQ(&instance, &FilesysHierarchy::getInstance(path("other").c_str()));
    instance.set("Custom", "/c/");
    EXPECT_EQ("/c/", FilesysHierarchy::getInstance().get("Custom"));
    EXPECT_EQ("", instance.get("NotAKey"));
    EXPECT_EQ(std::string(qzGetProcessExecutableDir()), ScaFS::locateExecutable());
}

// store and copy: what the caller gets, what is left on disk, what is logged.
TEST_F(FilesysHierarchyTest, StoreAndCopy) {
    qztest::CapturedLogger log("qztest.scafs");
    auto lines = [&] {
        auto captured = log.capture->lines();
        log.capture->clear();
        return captured;
    };
    const std::string stored = path("stored"), missing = path("missing/f"), copied = path("copied");
    EXPECT_TRUE(ScaFS::store("data\n", stored, log.logger));
    EXPECT_EQ("data\n", qztest::readFile(stored));
    EXPECT_EQ(std::vector<std::string>{"String data stored in " + stored}, lines());
    EXPECT_FALSE(ScaFS::store("data", missing, log.logger));
    EXPECT_EQ((std::vector<std::string>{"Failure opening " + missing,
                                        "String data stored in " + missing}),
              lines());
    ::testing::internal::CaptureStdout();
    EXPECT_TRUE(ScaFS::store("to stdout", "-", nullptr));
    EXPECT_EQ("to stdout", ::testing::internal::GetCapturedStdout());

    EXPECT_TRUE(ScaFS::copy(stored, copied, log.logger));
    EXPECT_EQ("data\n", qztest::readFile(copied));
    qztest::writeFile(path("empty"), "");
    EXPECT_TRUE(ScaFS::copy(path("empty"), copied, log.logger));
    EXPECT_EQ("", qztest::readFile(copied));
    EXPECT_EQ(0u, lines().size());

    EXPECT_FALSE(ScaFS::copy(path("no-source"), copied, log.logger));
    EXPECT_FALSE(fs::exists(copied)) << "a failed copy leaves no destination";
    EXPECT_EQ(std::vector<std::string>{"File copy failed with destination '" + copied + "'."},
              lines());
    EXPECT_FALSE(ScaFS::copy(stored, missing, log.logger));
    EXPECT_EQ(
        (std::vector<std::string>{"File copy failed with destination '" + missing + "'.",
                                  "File deletion failed with destination '" + missing + "' (2)"}),
        lines());
}

} // namespace
