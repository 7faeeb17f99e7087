//===- tests/qzmsg/ContextTest.cpp - Context items and contexts -----------===//
//
// The ID rule and its two fixed exceptions, chains and what each lookup
// reaches, the lazy source context, the process and service items, and
// lookups racing an assignment.
//
//===----------------------------------------------------------------------===//
#include "qzmsg/CAppContext.h"
#include "qzmsg/CBuildContext.h"
#include "qzmsg/CContext.h"
#include "qzmsg/CErrorContext.h"
#include "qzmsg/CMessageContext.h"
#include "qzmsg/CProcessContext.h"
#include "qzmsg/CScaContext.h"
#include "qzmsg/CSourceContext.h"
#include "qzmsg/CThreadContext.h"

#include <exception>
#include <pthread.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <regex>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using namespace qzs::qzlib;

ContextItemID idOf(char const* name) {
    return CContext::GetContextItemID(name);
}

std::string text(const CContextItem* item) {
    return item ? static_cast<char const*>(*item) : "<none>";
}

// Known IDs by the CRC rule, the two fixed IDs, and the kept mismatch: the
// name "BuildProgramType" computes another ID than the item has.
TEST(ContextItemIDs, RuleFixedIdsAndTheKeptMismatch) {
    EXPECT_EQ(80690543u, idOf("AppInstance"));
    EXPECT_EQ(210513013u, idOf("ThreadBacktrace"));
    EXPECT_EQ(180362113u, idOf("DirStructureIsLegacy"));
    EXPECT_STREQ("BuildProgramType", CContext::GetContextItemName(BuildProgramTypeID));
    EXPECT_STREQ("SourceMethod", CContext::GetContextItemName(SourceMethodID));
    EXPECT_EQ(176905740u, idOf("BuildProgramType"));
    EXPECT_STREQ("AppInstance", CContext::GetContextItemName(80690543));
    EXPECT_EQ(nullptr, CContext::GetContextItemName(1));
    // A new name is registered with the caller's pointer, not a copy.
    static const char fresh[] = "TestOnlyContextItem";
    EXPECT_EQ(fresh, CContext::GetContextItemName(idOf(fresh)));
}

// Three contexts chained: lookups go down the chain, counts one level only,
// indices run through own items then the chained ones', and the parent
// deletes only the children that ask for it.
TEST(ContextChain, LookupsCountsIndicesAndOwnership) {
    const ContextItemID a = idOf("AppInstance"), b = idOf("ProcessID"), c = idOf("ThreadID");
    CContext* top = new CContext();
    CContext* middle = new CContext();
    CContext* bottom = new CContext();
    CContext survivor;
    survivor.deleteWithParent = false;
    CContextItem* first = new CContextItem(a, "top", false);
    top->AddItem(first);
    middle->AddItem(new CContextItem(b, 7u));
    bottom->AddItem(new CContextItem(c, 9ul));
    bottom->AddItem(new CContextItem(a, "bottom", false));
    top->AddContext(middle);
    middle->AddContext(bottom);
    top->AddContext(&survivor);

    EXPECT_EQ("top", text(top->GetItem(a))) << "own item first";
    EXPECT_EQ(7u, static_cast<unsigned int>(*top->GetItem(b)));
    EXPECT_EQ(9ul, static_cast<unsigned long>(*top->GetItem(c))) << "two levels down";
    EXPECT_EQ(nullptr, top->GetItem(idOf("BuildOS")));
    EXPECT_EQ(1u, top->GetItemCount(false));
    EXPECT_EQ(2u, top->GetItemCount(true)) << "grandchildren are not counted";
    EXPECT_EQ(a, top->GetItemID(0));
    EXPECT_EQ(b, top->GetItemID(1));
    EXPECT_EQ(0u, top->GetItemID(2));

    // A second item under one ID replaces the visible value and leaves the
    // first to its maker (kept on purpose); removal deletes.
    top->AddItem(new CContextItem(a, "again", false));
    EXPECT_EQ("again", text(top->GetItem(a)));
    delete first;
    EXPECT_EQ(1u, top->GetItemCount(false));
    EXPECT_TRUE(top->RemoveItem(a));
    EXPECT_FALSE(top->RemoveItem(a));
    EXPECT_FALSE(top->RemoveItem(b)) << "the chain is not searched";
    EXPECT_EQ(0u, top->GetItemCount(false));
    EXPECT_EQ("bottom", text(top->GetItem(a))) << "the chain answers once the own item is gone";
    EXPECT_EQ(b, top->GetItemID(0));
    top->AddItem(new CContextItem(a, "back", false));
    EXPECT_EQ("back", text(top->GetItem(a)));

    EXPECT_TRUE(top->RemoveContext(middle));
    EXPECT_FALSE(top->RemoveContext(middle));
    EXPECT_EQ(nullptr, top->GetItem(c));
    top->AddContext(middle);
    delete top; // deletes middle and bottom, not survivor (ASan would tell)
    survivor.AddItem(new CContextItem(c, 1u));
    EXPECT_NE(nullptr, survivor.GetItem(c));
}

// A source context costs nothing until looked up, yet always counts four
// items in the fixed order.
TEST(SourceContext, ItemsAreMadeAtTheFirstLookup) {
    CSourceContext source("qzmsg", "ContextTest", "method", 42);
    EXPECT_EQ(4u, source.GetItemCount(false));
    EXPECT_EQ(idOf("SourceModule"), source.GetItemID(0));
    EXPECT_EQ(SourceMethodID, source.GetItemID(2));
    EXPECT_EQ(idOf("SourceLine"), source.GetItemID(3));
    EXPECT_EQ("qzmsg", text(source.GetItem(idOf("SourceModule"))));
    EXPECT_EQ("ContextTest", text(source.GetItem(idOf("SourceID"))));
    EXPECT_EQ("method", text(source.GetItem(SourceMethodID)));
    EXPECT_EQ(42u, static_cast<unsigned int>(*source.GetItem(idOf("SourceLine"))));
    EXPECT_EQ(4u, source.GetItemCount(false));
}

// The process items against what the system says, and the kept scale of
// the tick counts.
TEST(ProcessContext, ItemsAndComputedValues) {
    CProcessContext process;
    EXPECT_EQ(static_cast<unsigned int>(::getpid()),
              static_cast<unsigned int>(*process.GetItem(idOf("ProcessID"))));
    const std::string exe = text(process.GetItem(idOf("ProcessExecutable")));
    EXPECT_EQ("ContextTest", text(process.GetItem(idOf("ProcessExecutableBase"))));
    EXPECT_EQ(exe.substr(0, exe.rfind('/')), text(process.GetItem(idOf("ProcessExecutableDir"))));
    EXPECT_NE(std::string::npos,
              text(process.GetItem(idOf("ProcessCommandLine"))).find("ContextTest"));
    char cwd[4096];
    ASSERT_NE(nullptr, ::getcwd(cwd, sizeof cwd));
    EXPECT_EQ(cwd, text(process.GetItem(idOf("ProcessWorkingDir"))));
    EXPECT_GT(static_cast<unsigned int>(*process.GetItem(idOf("ProcessMemoryVirtual"))), 0u);
    EXPECT_GT(static_cast<unsigned int>(*process.GetItem(idOf("ProcessMemoryPhysical"))), 0u);
    EXPECT_GT(static_cast<timespec>(*process.GetItem(idOf("ProcessOSUptime"))).tv_sec, 0);
    EXPECT_FALSE(text(process.GetItem(idOf("ProcessOSName"))).empty());

    const timespec t = CProcessContext::ticksAsTime(2500001);
    EXPECT_EQ(2, t.tv_sec);
    EXPECT_EQ(500001L * 1000000000000L, t.tv_nsec);
}

// Service identifiers come from the environment, or are fresh random UUIDs
// that differ from one context to the next.
TEST(ScaContext, EnvironmentOrRandomIdentifiers) {
    ::unsetenv("XQZ_DEPLOYMENT_NAME");
    ::unsetenv("XQZ_DEPLOYMENT_ID");
    ::unsetenv("XQZ_SERVICE_ID");
    ::unsetenv("XQZ_SERVICEMANAGER_ID");
    CScaContext first, second;
    const std::regex uuid("[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}");
    EXPECT_EQ("Unknown", text(first.GetItem(idOf("ScaDeploymentName"))));
    for (char const* name : {"ScaDeploymentId", "ScaServiceId", "ScaServiceManagerId"}) {
        SCOPED_TRACE(name);
        const std::string one = text(first.GetItem(idOf(name)));
        EXPECT_TRUE(std::regex_match(one, uuid)) << one;
        EXPECT_NE(one, text(second.GetItem(idOf(name))));
    }
    ::setenv("XQZ_DEPLOYMENT_NAME", "east", 1);
    ::setenv("XQZ_SERVICE_ID", "", 1);
    CScaContext set;
    EXPECT_EQ("east", text(set.GetItem(idOf("ScaDeploymentName"))));
    EXPECT_EQ("", text(set.GetItem(idOf("ScaServiceId")))) << "set but empty is still set";
    ::unsetenv("XQZ_DEPLOYMENT_NAME");
    ::unsetenv("XQZ_SERVICE_ID");
}

// The thread context names its thread and keeps the caller's frames; symbol
// names come back demangled, with the address and the offset cut off.
TEST(ThreadContext, IdentifierBacktraceAndSymbolNames) {
    CThreadContext thread;
    EXPECT_EQ(static_cast<unsigned long>(::pthread_self()),
              static_cast<unsigned long>(*thread.GetItem(idOf("ThreadID"))));
    auto* frames = static_cast<std::vector<CDataItem>*>(*thread.GetItem(idOf("ThreadBacktrace")));
    ASSERT_NE(nullptr, frames);
    EXPECT_GT(frames->size(), 2u);

    std::vector<CDataItem> in, out;
    in.emplace_back(reinterpret_cast<void const*>(&::getpid));
    in.emplace_back(reinterpret_cast<void const*>(&std::terminate));
    ASSERT_TRUE(CThreadContext::GetSymbolNames(&in, &out));
    ASSERT_EQ(2u, out.size());
    const std::string c = static_cast<char const*>(out[0]), cxx = static_cast<char const*>(out[1]);
    EXPECT_TRUE(std::regex_match(c, std::regex(".*\\(\\w*getpid\\)"))) << c;
    EXPECT_TRUE(
        std::regex_match(cxx, std::regex(".*libstdc\\+\\+\\.so\\.6\\(std::terminate\\(\\)\\)")))
        << cxx;
    out.clear();
    ASSERT_TRUE(CThreadContext::GetSymbolNames(&in, &out)) << "from the cache";
    EXPECT_STREQ(c.c_str(), static_cast<char const*>(out[0]));
}

// The program string: the exact application name, then the first database
// key the DBMS begins with (DB2400 before DB2), none for "None".
TEST(BuildContext, ProgramStringAndType) {
    struct Row {
        char const* application;
        char const* dbms;
        std::string expected;
        unsigned int type;
    } rows[] = {
        {"mgr", "DB2400 V7", "Zorvex Quartzgate Manager for DB2 for i", 3},
        {"mgr", "DB2 LUW", "Zorvex Quartzgate Manager for DB2", 3},
        {"extract", "None", "Zorvex Quartzgate Capture", 1},
        {"pmsrvr", "PostgreSQL 15", "Zorvex Quartzgate Performance Metrics Server for PostgreSQL",
         13},
        {"delivrat", "Oracle", "Zorvex Quartzgate Delivery", 2},
        {"Mgr", "MSSQL",
         "Zorvex Quartzgate Unknown Application - please modify qzlog/msgContext for SQL Server",
         0},
        {nullptr, nullptr, "Zorvex Quartzgate Unknown Application - please modify qzlog/msgContext",
         0},
    };
    for (const Row& row : rows) {
        unsigned int type = 99;
        EXPECT_EQ(row.expected, CBuildContext::programString(row.application, row.dbms, type));
        EXPECT_EQ(row.type, type) << row.expected;
    }
}

// The application context of a test program: the build items its
// BuildContext_ symbols give, and lookups through the application context
// down to its process and file system children, counted one level only.
TEST(AppContext, BuildItemsAndTheChainBelow) {
    CAppContext* app = getAppContext();
    ASSERT_EQ(app, getAppContext());
    EXPECT_FALSE(app->deleteWithParent);
    EXPECT_EQ("unittest", text(app->GetItem(idOf("BuildApplication"))));
    EXPECT_EQ("Zorvex Quartzgate Unittest Application",
              text(app->GetItem(idOf("BuildProgramString"))));
    EXPECT_EQ(0u, static_cast<unsigned int>(*app->GetItem(BuildProgramTypeID)));
    EXPECT_NE(nullptr, app->GetItem(idOf("BuildDateTime")));
    EXPECT_EQ(static_cast<unsigned int>(::getpid()),
              static_cast<unsigned int>(*app->GetItem(idOf("ProcessID"))));
    EXPECT_NE(nullptr, app->GetItem(idOf("DirProcessLog")));
    EXPECT_NE(nullptr, app->GetItem(idOf("DirStructureIsLegacy")));
    EXPECT_NE(nullptr, app->GetItem(idOf("ScaServiceId")));
    EXPECT_GE(static_cast<timespec>(*app->GetItem(idOf("ProcessClockTime"))).tv_sec, 0);
    EXPECT_EQ(4u, app->GetItemCount(false));
    EXPECT_GT(app->GetItemCount(true), 4u + 17u + 26u);

    EXPECT_TRUE(app->SetItem(idOf("AppInstance"), "EXT1"));
    EXPECT_EQ("EXT1", text(app->GetItem(idOf("AppInstance"))));
    EXPECT_STREQ("ContextTest", getProcessExecutableBase());
}

// A message context answers for the process through the application context
// two levels down, counts only one level, pads its details, and leaves the
// error and application contexts standing when it goes.
TEST(MessageContext, ChainDetailsAndWhatItDeletes) {
    auto* source = new CSourceContext("qzmsg", "ContextTest", "message", 7);
    {
        CMessageContext message(source);
        EXPECT_EQ(static_cast<unsigned int>(::getpid()),
                  static_cast<unsigned int>(*message.GetItem(idOf("ProcessID"))));
        EXPECT_EQ(7u, static_cast<unsigned int>(*message.GetItem(idOf("SourceLine"))));
        EXPECT_NE(nullptr, message.GetItem(idOf("ErrOSErrorCode")));
        const unsigned int oneLevel = 2 + 4 + 4 + getAppContext()->GetItemCount(false);
        EXPECT_EQ(oneLevel, message.GetItemCount(true)) << "the process items lie two levels down";

        message.SetDetail(2, CDataItem("third"));
        message.AddDetail(CDataItem(4u));
        ASSERT_EQ(4u, message.details().size());
        EXPECT_EQ(0, static_cast<int>(message.details()[0])) << "padding";
        EXPECT_STREQ("third", static_cast<char const*>(message.details()[2]));
        auto* details =
            static_cast<std::vector<CDataItem>*>(*message.GetItem(idOf("MessageDetails")));
        EXPECT_EQ(&message.details(), details);
        message.SetDetails({CDataItem(1), CDataItem(2)});
        EXPECT_EQ(2u, message.details().size());
        message.AddThreadContext();
        EXPECT_NE(nullptr, message.GetItem(idOf("ThreadBacktrace")));
    } // deletes the source and thread contexts (ASan would tell otherwise)
    EXPECT_NE(nullptr, CErrorContext::GetContext()->GetItem(idOf("ErrOSErrorCode")));
    EXPECT_NE(nullptr, getAppContext()->GetItem(idOf("ProcessID")));
}

// Each thread has its own error context; fetching it keeps errno, and the
// saved OS error reads back as the system's text.
TEST(ErrorContext, PerThreadAndTheSavedOSError) {
    CErrorContext* mine = CErrorContext::GetContext();
    EXPECT_FALSE(mine->deleteWithParent);
    EXPECT_EQ(mine, CErrorContext::GetContext());
    CErrorContext* other = nullptr;
    std::thread([&] { other = CErrorContext::GetContext(); }).join();
    EXPECT_NE(mine, other);

    errno = ENOENT;
    SaveOSErrorContext();
    EXPECT_EQ(ENOENT, errno);
    EXPECT_EQ(unsigned(ENOENT), static_cast<unsigned int>(*mine->GetItem(idOf("ErrOSErrorCode"))));
    EXPECT_EQ(std::string(std::strerror(ENOENT)), text(mine->GetItem(idOf("ErrOSErrorText"))));
    EXPECT_EQ("", text(mine->GetItem(idOf("ErrAppErrorText"))));
    EXPECT_TRUE(mine->SetItem(idOf("ErrSQLErrorCode"), CDataItem(1403u)));
    EXPECT_EQ(1403u, static_cast<unsigned int>(*mine->GetItem(idOf("ErrSQLErrorCode"))));
    mine->SetItem(idOf("ErrOSErrorCode"), CDataItem(0u));
}

// Threads look up through a chain while one item is reassigned under its
// lock, and the process context recomputes its changing items (TSan).
TEST(ContextThreads, LookupsWhileAnItemIsReassigned) {
    CContext top;
    CProcessContext* process = new CProcessContext();
    top.AddContext(process);
    const ContextItemID counter = idOf("AppOperatingNormally");
    top.AddItem(new CContextItem(counter, 0u));
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            for (int i = 0; i < 2000; ++i) {
                CContextItem* item = top.GetItem(counter);
                MultiThreading::ScopedLock guard(item->lock);
                if (t == 0)
                    *item = static_cast<unsigned int>(i);
                else
                    (void)static_cast<unsigned int>(*item);
                if (i % 200 == 0)
                    top.GetItem(idOf("ProcessMemoryVirtual"));
            }
        });
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(1999u, static_cast<unsigned int>(*top.GetItem(counter)));
}

} // namespace
