//===- tests/qzstd/ThreadTest.cpp - Threads, the thread list, main ---------===//
#include "FaultCollector.h"

#include "qzlog/LoggerRepository.h"
#include "qzlog/Logger.h"
#include "qzstd/MainThread.h"
#include "qzstd/Thread.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace qzs::qzlib;
using namespace qzs::qzlib::MultiThreading;

namespace {

class ThreadTest : public ::testing::Test {
protected:
    qztest::FaultCollector faults;
};

struct Seen {
    std::string listName;
    std::string logName;
    bool sawItself = false;
};

unsigned int recordSelf(void* arg) {
    Seen* seen = static_cast<Seen*>(arg);
    const ThreadList::ThreadProperties* p = ThreadList::getInstance().get(Thread::GetCurrentOSThreadID());
    seen->listName = p ? p->name : "<none>";
    seen->logName = qzlog::Logger::getRepository().getThreadName();
    seen->sawItself = Thread::GetCurrentThread() != nullptr;
    return 41;
}

unsigned int terminate(void*) {
    throw Thread::TerminateException();
}

// The exit code is the function's result; a thread ending by
// TerminateException leaves 0, and the states are the documented marks.
TEST_F(ThreadTest, ExitCodesAndStates) {
    Seen seen;
    Thread worker(&recordSelf, "worker-a");
    EXPECT_EQ(Thread::NotStarted, worker.GetExitCode());
    worker.Start(&seen);
    EXPECT_EQ(41u, worker.WaitForExit());
    EXPECT_TRUE(seen.sawItself);
    EXPECT_EQ("worker-a", seen.listName);
    EXPECT_EQ("worker-a", seen.logName) << "a named thread logs under its own name";

    Thread quitter(&terminate, "quitter");
    quitter.Start(nullptr);
    EXPECT_EQ(0u, quitter.WaitForExit());
    EXPECT_EQ(0u, faults.count());
}

// Unnamed threads get consecutive generated names, and an overlong name is
// cut to 251 characters and "...".
TEST_F(ThreadTest, GeneratedAndCutNames) {
    Seen first, second, longOne;
    Thread a(&recordSelf, nullptr), b(&recordSelf, nullptr);
    a.Start(&first);
    a.WaitForExit();
    b.Start(&second);
    b.WaitForExit();
    ASSERT_EQ(0u, first.listName.rfind("XQZ-Thread-", 0));
    long n1 = std::stol(first.listName.substr(11));
    EXPECT_EQ("XQZ-Thread-" + std::to_string(n1 + 1), second.listName);

    std::string name(300, 'n');
    Thread c(&recordSelf, name.c_str());
    c.Start(&longOne);
    c.WaitForExit();
    EXPECT_EQ(std::string(251, 'n') + "...", longOne.listName);
}

// Misuse is reported and still carried out: a second Start makes a second
// thread; joining a detached thread reports EINVAL and the join fails too.
TEST_F(ThreadTest, MisuseIsReportedAndProceeds) {
    Seen s1, s2;
    Thread twice(&recordSelf, "twice");
    twice.Start(&s1);
    twice.WaitForExit();
    twice.Start(&s2);
    twice.WaitForExit();
    EXPECT_EQ("twice", s2.listName);
    const size_t reported = faults.count();
    ASSERT_GT(reported, 0u);
    EXPECT_EQ(1112u, faults.faults()[0].number);

    Thread unstarted(&recordSelf, "never");
    unstarted.SetStackSize(1 << 20);
    EXPECT_EQ(reported, faults.count()) << "attributes may change before a start";
}

std::vector<std::string> g_order;
void exitA() { g_order.push_back("a"); }
void exitB() { g_order.push_back("b"); }
void exitLate() { g_order.push_back("late"); }
void exitC() {
    g_order.push_back("c");
    MainThread::AtExit(&exitLate); // registered while dispatching: runs next
}

int fakeMain(int argc, char** argv) {
    MainThread::AtExit(&exitA);
    MainThread::AtExit(&exitB);
    MainThread::AtExit(&exitC);
    return argc == 2 && std::string(argv[1]) == "go" ? 7 : 1;
}

// main runs on the calling thread with a Thread of its own; exit functions
// run last in, first out when the MainThread goes, and one registered while
// they run runs next.
TEST_F(ThreadTest, MainThreadRunsMainAndExitFunctions) {
    g_order.clear();
    MainThread::AtExit(&exitA); // no instance yet: nothing happens
    {
        MainThread m(&fakeMain);
        char prog[] = "prog", go[] = "go";
        char* argv[] = {prog, go, nullptr};
        EXPECT_EQ(7, m.Run(2, argv));
        EXPECT_TRUE(g_order.empty());
    }
    EXPECT_EQ((std::vector<std::string>{"c", "late", "b", "a"}), g_order);
    EXPECT_EQ(nullptr, MainThread::m_instance);
}

} // namespace
