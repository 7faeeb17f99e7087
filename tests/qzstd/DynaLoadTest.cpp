//===- tests/qzstd/DynaLoadTest.cpp - Modules and symbols by name ---------===//
//
// Real libraries of the system (libm), a file that is not a library, and a
// symbol this test exports itself (it is linked with -rdynamic). Records of
// logger "dynaload" are captured; faults are collected.
//
//===----------------------------------------------------------------------===//
#include "qzstd/DynaLoad.h"

#include "CaptureAppender.h"
#include "FaultCollector.h"
#include "TempDir.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>

extern "C" int qzDynaLoadTestExported(int x) {
    return x + 1;
}

namespace {

using qzs::qzlib::DynaModule;
using qzs::qzlib::DynaSymbol;

class DynaLoadTest : public ::testing::Test {
protected:
    std::vector<std::string> lines() const { return log.capture->lines(); }

    qztest::FaultCollector faults;
    qztest::CapturedLogger log{"dynaload"};
};

// The name rule: what is added, what is left alone.
TEST(DynaLoadName, FileNameRule) {
    const struct {
        const char* name;
        const char* file;
    } rows[] = {
        {nullptr, "<main>"},
        {"main", "<main>"},
        {"qzrepo", "libqzrepo.so"},
        {"libqzrepo", "libqzrepo.so"},
        {"qzrepo.so", "libqzrepo.so"},
        {"libqzrepo.so", "libqzrepo.so"},
        {"m.so.6", "libm.so.6"},
        {"/opt/x/qzrepo", "/opt/x/libqzrepo.so"},
        {"/opt/lib/qzrepo", "/opt/lib/libqzrepo.so"}, // "lib" in a directory does not count
        {"mainframe", "libmainframe.so"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(row.file, DynaModule::libraryFileName(row.name))
            << (row.name ? row.name : "null");
}

// Two objects for one file name, asked under different names, share the
// handle; a symbol in it is the real function.
TEST_F(DynaLoadTest, OneHandlePerLibrary) {
    DynaModule first("m.so.6", true), second("libm.so.6", false);
    ASSERT_TRUE(first.isLoaded());
    EXPECT_EQ(first.getHandle(), second.getHandle());
    EXPECT_EQ("m.so.6", first.getName());
    EXPECT_EQ("libm.so.6", first.getFileName());
    DynaSymbol cosine("cos", &second);
    ASSERT_TRUE(cosine.isFound());
    EXPECT_EQ(1.0, cosine.as<double (*)(double)>()(0.0));
    EXPECT_EQ(3u, lines().size()) << ::testing::PrintToString(lines());
    EXPECT_EQ(0u, faults.count());
}

// A missing symbol: null, exactly one record, no fault.
TEST_F(DynaLoadTest, MissingSymbolIsNullWithOneRecord) {
    DynaModule m("m.so.6", false);
    log.capture->clear();
    qztest::CapturedLogger located("dynaload", "%l");
    DynaSymbol missing("qz_no_such_symbol", &m);
    EXPECT_EQ(0u, located.capture->last().rfind("DynaSymbol::DynaSymbol qzstd/DynaLoad(", 0))
        << "records name the module's source: " << located.capture->last();
    EXPECT_EQ(nullptr, missing.getAddress());
    ASSERT_EQ(1u, lines().size());
    EXPECT_EQ(0u, lines()[0].rfind("Symbol 'qz_no_such_symbol' from module 0x0x", 0)) << lines()[0];
    EXPECT_NE(std::string::npos, lines()[0].find("cannot be loaded. Error")) << lines()[0];
    EXPECT_EQ(0u, faults.count());
}

// Modules that do not load: absent, present but not a library, a name no
// file can have. Only a
// required one is a fault; neither leaves a handle, and a symbol asked of
// one is null without searching the process (where the symbol exists).
TEST_F(DynaLoadTest, ModuleThatDoesNotLoad) {
    qztest::TempDir dir("qzdyna");
    qztest::writeFile(dir.path("libbad.so"), "not a shared object\n");
    const std::string bad = dir.path("libbad.so"), huge(70000, 'x');
    const struct {
        const char* name;
        bool required;
        const char* loaderSays;
    } rows[] = {
        {"qz_no_such_module", false, "libqz_no_such_module.so"},
        {"qz_no_such_module", true, "libqz_no_such_module.so"},
        {bad.c_str(), true, "libbad.so"},
        {huge.c_str(), true, "Error 36 (file name too long)"}, // past PATH_MAX and a cache key
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.name).substr(0, 80));
        log.capture->clear();
        qztest::FaultCollector collected;
        DynaModule module(row.name, row.required);
        EXPECT_FALSE(module.isLoaded());
        ASSERT_EQ(1u, lines().size());
        EXPECT_NE(std::string::npos, lines()[0].find("cannot be loaded. Error")) << lines()[0];
        EXPECT_NE(std::string::npos, lines()[0].find(row.loaderSays)) << lines()[0];
        ASSERT_EQ(row.required ? 1u : 0u, collected.count());
        if (row.required) {
            EXPECT_EQ(1094u, collected.faults()[0].number);
            EXPECT_EQ(0u, collected.faults()[0].arguments.rfind(std::string(row.name) + ", ", 0));
        }
        EXPECT_EQ(nullptr, DynaSymbol("qzDynaLoadTestExported", &module).getAddress());
    }
}

// The process: a symbol this executable exports is found, by DynaSymbol with
// no module and by the host-symbol convenience; an absent host symbol is
// null and not a fault.
TEST_F(DynaLoadTest, SymbolsOfTheProcess) {
    DynaSymbol own("qzDynaLoadTestExported", nullptr);
    ASSERT_TRUE(own.isFound());
    EXPECT_EQ(reinterpret_cast<void*>(&qzDynaLoadTestExported), own.getAddress());
    EXPECT_EQ(42, qzFindHostFunction<int (*)(int)>("qzDynaLoadTestExported")(41));
    EXPECT_EQ(DynaModule("main", false).getHandle(), DynaModule(nullptr, true).getHandle());
    EXPECT_EQ(nullptr, qzFindHostSymbol("_qzTryDebugHook"));
    EXPECT_EQ(0u, faults.count());
}

} // namespace
