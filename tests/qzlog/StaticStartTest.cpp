//===- tests/qzlog/StaticStartTest.cpp - Start-up before main -------------===//
//
// The framework comes up on the first touch, which in a host is a static
// initialiser, possibly one that starts threads. This binary touches it from
// two threads that a static initialiser starts together (the library's own
// static loggers may have been first; either way nothing runs on main).
//
//===----------------------------------------------------------------------===//
#include "qzlog/Appender.h"
#include "qzlog/Level.h"
#include "qzlog/Logger.h"
#include "qzlog/LoggerRepository.h"

#include <gtest/gtest.h>

#include <cstring>

#include <atomic>
#include <string>
#include <thread>

namespace {

using namespace qzs::qzlib::qzlog;

struct EarlyTouch {
    Logger* fromFirst = nullptr;
    Logger* fromSecond = nullptr;
    std::string firstName, secondName;

    EarlyTouch() {
        std::atomic<int> ready{0};
        auto touch = [&ready](const char* name, Logger*& out, std::string& threadName) {
            ready.fetch_add(1);
            while (ready.load() < 2) {
            }
            out = Logger::getRepository().getLogger(name);
            threadName = Logger::getRepository().getThreadName();
        };
        std::thread first(touch, "x.y", std::ref(fromFirst), std::ref(firstName));
        std::thread second(touch, "x.z", std::ref(fromSecond), std::ref(secondName));
        first.join();
        second.join();
    }
} g_early;

TEST(StaticStartTest, StartsFromStaticInitialiserThreads) {
    // Two threads racing to start the framework before main leave one whole repository.
    EXPECT_TRUE(qzlogInitialized());
    EXPECT_FALSE(qzlogIsSingleThreaded());

    LoggerRepository& repo = Logger::getRepository();
    Logger* root = repo.getRootLogger();
    ASSERT_NE(g_early.fromFirst, nullptr);
    ASSERT_NE(g_early.fromSecond, nullptr);
    EXPECT_EQ(repo.exists("x.y"), g_early.fromFirst);
    EXPECT_EQ(repo.exists("x.z"), g_early.fromSecond);
    Logger* x = repo.exists("x");
    ASSERT_NE(x, nullptr);
    EXPECT_EQ(g_early.fromFirst->parent, x);
    EXPECT_EQ(g_early.fromSecond->parent, x);
    EXPECT_EQ(x->parent, root);
    // Only "x" was made on the way to x.y and x.z: no duplicate nodes. The
    // library's own loggers (threads, start-up) may stand beside them.
    int underX = 0;
    for (Logger* l : repo.getCurrentLoggers())
        underX += std::strncmp(l->getName(), "x", 1) == 0;
    EXPECT_EQ(underX, 3);
    EXPECT_NE(Appender::getAllAppenders(), nullptr);
}

TEST(StaticStartTest, MainThreadIsNamedMain) {
    // The main thread is "main" even when another thread started the framework.
    EXPECT_STREQ(Logger::getRepository().getThreadName(), "main");
    EXPECT_NE(g_early.firstName, "main");
    EXPECT_NE(g_early.secondName, "main");
    EXPECT_NE(g_early.firstName, g_early.secondName);
}

TEST(StaticStartTest, RootStartsAtWarn) {
    // The root's configured and effective levels both start at WARN; loggers made early inherit it.
    Logger* root = Logger::getRepository().getRootLogger();
    EXPECT_EQ(root->getLevel(), Level::Warn);
    EXPECT_EQ(root->getEffectiveLevel(), Level::Warn);
    EXPECT_EQ(g_early.fromFirst->getLevel(), Level::Inherit);
    EXPECT_EQ(g_early.fromFirst->getEffectiveLevel(), Level::Warn);
    EXPECT_EQ(g_early.fromSecond->getEffectiveLevel(), Level::Warn);
}

} // namespace
