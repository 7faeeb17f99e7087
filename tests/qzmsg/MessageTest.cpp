//===- tests/qzmsg/MessageTest.cpp - The factory and its messages ---------===//
//
// Runs as the application "msgtest": the library finds msgtest.dat (its own
// catalogue and the test entries 9000x) beside the program. The bad
// catalogues are found in the working directory of a child process.
//
//===----------------------------------------------------------------------===//
#include "FaultCollector.h"

#include "qzapp/DBObjName.h"
#include "qzapp/ObjectNameMessages.h"
#include "qzlog/LogMacros.h"
#include "qzlog/Logger.h"
#include "qzlog/LoggerRepository.h"
#include "qzmsg/CAction.h"
#include "qzmsg/CAppContext.h"
#include "qzmsg/CMessageTemplate.h"
#include "qzmsg/Messages.h"
#include "qzmsg/QZException.h"
#include "qzstd/Event.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <mutex>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace qzs::qzlib;
using qztest::FaultCollector;

namespace {

CMessageFactory* factory() {
    return CMessageFactory::GetDefaultFactory();
}

// Raises test message `id` (the generated functions follow the library's
// catalogue, not the test entries).
template <typename... Args> void raise(int id, const Args&... args) {
    raiseMessage(QZ_SOURCE("test", "tests/MessageTest", "raise"), id, IssueAndDispose, args...);
}

// The text of a message made and handed back, then deleted.
template <typename... Args> std::string textOf(int id, const Args&... args) {
    CMessage* m =
        raiseMessage(QZ_SOURCE("test", "tests/MessageTest", "textOf"), id, ReturnToCaller, args...);
    if (!m)
        return "<no message>";
    char const* t = m->Format(FactoryCharSet);
    std::string text = t ? t : "<null>";
    delete m;
    return text;
}

// Severities by class and code, the first class assignment winning, issue
// limits, codes and plain texts: the catalogue as loaded.
TEST(MessageCatalogue, SeveritiesLimitsCodesAndTexts) {
    CMessageFactory* f = factory();
    ASSERT_NE(nullptr, f);
    ASSERT_NE(nullptr, static_cast<icu::ResourceBundle*>(*f));
    EXPECT_STREQ("QZError", f->GetSeverity("ER", "FIL")->name);
    EXPECT_EQ(nullptr, f->GetSeverity("QQ", nullptr)) << "unknown class";
    EXPECT_TRUE(f->SetSeverity("WA", "XYZ", "QZError"));
    EXPECT_STREQ("QZError", f->GetSeverity("WA", "XYZ")->name) << "the code's own";
    EXPECT_STREQ("QZWarn", f->GetSeverity("WA", "ABC")->name) << "the class default";
    EXPECT_TRUE(f->SetSeverity("WA", nullptr, "QZError"));
    EXPECT_STREQ("QZWarn", f->GetSeverity("WA", nullptr)->name) << "the first assignment wins";
    EXPECT_FALSE(f->SetSeverity("WA", nullptr, "NoSuchSeverity"));

    EXPECT_TRUE(f->SetMaxIssue(90007, 1));
    EXPECT_FALSE(f->SetMaxIssue(90007, 5)) << "a second limit is refused";
    EXPECT_TRUE(f->CanIssue(90007, true));
    EXPECT_FALSE(f->CanIssue(90007, true));
    EXPECT_TRUE(f->CanIssue(1112, false)) << "no limit";

    char code[10];
    CMessage::GetMessageCode(5, code);
    EXPECT_STREQ("XQZ-00005", code);
    CMessage::GetMessageCode(1971, code);
    EXPECT_STREQ("XQZ-01971", code);

    EXPECT_STREQ("capture process", _TSTR(10000476));
    CMessage* text =
        raiseMessage(QZ_SOURCE("test", "tests/MessageTest", "t"), 10000476, ReturnToCaller);
    ASSERT_NE(nullptr, text);
    EXPECT_EQ(nullptr, text->GetSeverityName()) << "plain texts have no severity";
    delete text;
    // The application's terms come from the catalogue once messages exist.
    EXPECT_STREQ("capture process", static_cast<char const*>(*getAppContext()->GetItem(173406691)));
}

// What each kind of detail looks like in the text, and how a call with too
// few or too many arguments is taken.
TEST(MessageFormat, DetailsByKindAndCount) {
    FaultCollector collected;
    EXPECT_EQ("flag 1", textOf(90001, true));
    EXPECT_EQ("flag 0", textOf(90001, 0));
    EXPECT_EQ("ab abcd deadbeef 1122334455667788 0000000000000010 <Unknown>",
              textOf(90002, 0xABu, 0xABCDu, 0xDEADBEEFu, 0x1122334455667788ul,
                     reinterpret_cast<void const*>(16), 7u));
    EXPECT_EQ("x, 0, <Missing>", textOf(90004, "x")) << "too few: placeholders";
    EXPECT_EQ("x, 2, y", textOf(90004, "x", 2, "y", 99, "extra")) << "too many: ignored";
    EXPECT_EQ("<NIL>, 2, y", textOf(90004, static_cast<char const*>(nullptr), 2, "y"));
    EXPECT_EQ("The library was used in a way it does not support: a test. It goes on with a safe "
              "default.",
              textOf(1112, "a test"));

    // A context item that is not there shows <Missing>, after message 1425.
    EXPECT_EQ("value <Missing> and z", textOf(90003, "z"));
    ASSERT_EQ(1u, collected.count());
    const auto fault = collected.faults()[0];
    EXPECT_EQ(1425u, fault.number);
    EXPECT_EQ(0u, fault.arguments.rfind("1, 0x0001e240, tests/MessageTest, ", 0))
        << fault.arguments;

    // ThreadID brings the thread's context in before it is looked up.
    const std::string thread = textOf(90006);
    EXPECT_EQ(std::string::npos, thread.find("<Missing>")) << thread;

    // Object names, with quotes and a non-ASCII letter, as arguments.
    qzapp::CTableName table("O'Brien \"T\"");
    qzapp::CSchemaName schema(qzunicode::UString(u"Sch\u00e9ma"));
    CMessage* m = _MSG_TableName_SchemaName(QZ_SOURCE("test", "tests/MessageTest", "names"), 4201,
                                            table, schema, ReturnToCaller);
    ASSERT_NE(nullptr, m);
    EXPECT_STREQ("Table O'Brien \"T\" was not found in schema Sch\xC3\xA9ma.",
                 m->Format(FactoryCharSet));
    delete m;
}

// Two equal messages in a row: the second is counted, not issued; the count
// is reported when another message comes.
TEST(MessageRepeats, DuplicatesAreCountedAndReported) {
    FaultCollector collected;
    for (int i = 0; i < 3; ++i)
        raise(90004, "same", 1, "x");
    ASSERT_EQ(1u, collected.count());
    raise(90004, "other", 1, "x");
    const auto all = collected.faults();
    ASSERT_EQ(3u, all.size());
    EXPECT_EQ(1971u, all[1].number);
    EXPECT_NE(std::string::npos, all[1].text.find("XQZ-90004 was repeated 2 times")) << all[1].text;
    EXPECT_EQ(90004u, all[2].number);
}

// The repetition thread's clock, stepped by the test: it reports after 30 s,
// then 2 minutes, then every 10 minutes.
struct SteppedClock {
    static inline std::mutex mutex;
    static inline std::condition_variable changed;
    static inline std::vector<unsigned int> waits;
    static inline int released = 0;
    static inline bool fire = false;

    static bool wait(void*, unsigned int milliseconds) {
        std::unique_lock<std::mutex> lock(mutex);
        waits.push_back(milliseconds);
        changed.notify_all();
        const size_t mine = waits.size();
        changed.wait(lock, [&] { return released >= static_cast<int>(mine) || fire; });
        return fire;
    }
    static void step(size_t calls) {
        std::unique_lock<std::mutex> lock(mutex);
        ++released;
        changed.notify_all();
        changed.wait(lock, [&] { return waits.size() >= calls; });
    }
};

TEST(MessageRepeats, ReportScheduleWithAnInjectedClock) {
    FaultCollector collected;
    CMessageFactory::SetRepetitionWait(&SteppedClock::wait);
    auto again = [] { raise(90004, "c", 1, "x"); };
    again(); // kept: the thread starts and waits 30 s
    {
        std::unique_lock<std::mutex> lock(SteppedClock::mutex);
        SteppedClock::changed.wait(lock, [] { return !SteppedClock::waits.empty(); });
    }
    again();
    again();
    SteppedClock::step(2); // the 30 s pass: a report of 2
    again();
    SteppedClock::step(3); // the 2 minutes pass: a report of 1
    SteppedClock::step(4); // 10 minutes with no repeat: no report
    EXPECT_EQ((std::vector<unsigned int>{30000, 120000, 600000, 600000}), SteppedClock::waits);
    std::vector<std::string> reports;
    for (const auto& f : collected.faults())
        if (f.number == 1971)
            reports.push_back(f.text.substr(f.text.find("was repeated")));
    EXPECT_EQ((std::vector<std::string>{"was repeated 2 times since it was last reported.",
                                        "was repeated 1 times since it was last reported."}),
              reports);
    // Hand the thread back to the real clock, so that it ends at exit.
    CMessageFactory::SetRepetitionWait(nullptr);
    std::lock_guard<std::mutex> lock(SteppedClock::mutex);
    SteppedClock::fire = true;
    SteppedClock::changed.notify_all();
}

// A _TSTR text stays valid for 15 more texts on its thread.
TEST(MessageText, CacheKeepsSixteenTexts) {
    char const* first = factory()->CacheString("first");
    std::vector<char const*> later;
    for (int i = 0; i < 15; ++i)
        later.push_back(factory()->CacheString(std::to_string(i).c_str()));
    EXPECT_STREQ("first", first);
    EXPECT_STREQ("14", later.back());
    char const* plain = _TSTR(10000479);
    for (int i = 0; i < 15; ++i)
        _TSTR(10000478);
    EXPECT_STREQ("table", plain);
}

// Messages raised from many threads at once, some repeated, some not.
TEST(MessageThreads, ManyThreadsRaiseAtOnce) {
    FaultCollector collected;
    std::vector<std::thread> threads;
    for (int t = 0; t < 6; ++t)
        threads.emplace_back([t] {
            for (int i = 0; i < 200; ++i) {
                raise(90004, "thread", t, i % 3 ? "same" : "other");
                CMessage* m = raiseMessage(QZ_SOURCE("test", "tests/MessageTest", "threads"), 90004,
                                           ReturnToCaller, "kept", i, "x");
                EXPECT_EQ("kept, " + std::to_string(i) + ", x",
                          std::string(m->Format(FactoryCharSet)));
                delete m;
            }
        });
    for (auto& t : threads)
        t.join();
    EXPECT_GE(collected.count(), 6u);
}

// A message of a class no severity names runs only the factory's actions,
// and a plain-parallel-kind message is not reported by a non-parallel process.
TEST(MessageIssue, NoSeverityAndReportKinds) {
    FaultCollector collected;
    CMessage* m =
        textOf(90005, "a") == "no severity a"
            ? raiseMessage(QZ_SOURCE("test", "tests/MessageTest", "k"), 90005, ReturnToCaller, "a")
            : nullptr;
    ASSERT_NE(nullptr, m);
    EXPECT_EQ(nullptr, m->GetSeverityName());
    EXPECT_FALSE(m->ShouldReport()) << "ParallelWorker only";
    EXPECT_TRUE(m->Issue(AllActionAttributes));
    EXPECT_EQ(1u, collected.count());
    delete m;
}

// A message whose severity throws is not kept for repeats; the next one is,
// on the repetition thread already started (once, not twice).
TEST(MessageIssue, AThrownMessageIsNotKept) {
    FaultCollector collected;
    raise(90004, "first", 1, "x");
    EXPECT_THROW(raise(90008, "thrown"), qzlog::QZException);
    raise(90004, "after", 2, "x");
    std::vector<unsigned int> numbers;
    for (const auto& f : collected.faults())
        numbers.push_back(f.number);
    EXPECT_EQ((std::vector<unsigned int>{90004, 90008, 90004}), numbers);
}

// A host's own step receives one block: class, code, severity, time, text,
// instance and description, freed with one delete[].
TEST(MessageIssue, CustomActionBlock) {
    static std::string seen;
    CAction custom("Collect", [](char const* block) {
        auto* m = reinterpret_cast<const CustomActionMessage*>(block);
        seen = std::string(m->messageClass, 2) + "|" + std::string(m->code, 3) + "|" +
               m->severityName + "|" + m->text + "|" + m->instance + "|" +
               (m->messageTime > 0 ? "timed" : "untimed");
        return true;
    });
    getAppContext()->SetItem(CContext::GetContextItemID("AppInstance"), "EXT9");
    factory()->AddAction(&custom);
    raise(90004, "custom", 3, "z");
    factory()->DeleteAction(&custom);
    EXPECT_EQ("IN|TST|QZInfo|custom, 3, z|EXT9|timed", seen);
}

// A service stores what a command prints; while FatalErrorAsException
// lives, a fatal message throws instead of ending the process.
TEST(MessageIssue, ServiceAndFatalAsException) {
    CMessageFactory::RunningAsService();
    CErrorContext* errors = CErrorContext::GetContext();
    const size_t before = errors->storedMessages.size();
    raise(90004, "service", 1, "x");
    ASSERT_EQ(before + 1, errors->storedMessages.size()) << "QZInfo runs QZStore instead";
    EXPECT_STREQ("service, 1, x", errors->storedMessages.back()->Format(FactoryCharSet));
    {
        CMessageFactory::FatalErrorAsException asException(false);
        EXPECT_THROW(raise(90009, "caught"), qzlog::QZException);
    }
    EXPECT_EQ(nullptr, factory()->GetSeverity("QZFatal")->alternate)
        << "restored on leaving the scope";
}

// A fatal message saves every thread's activity buffer before the process
// ends: the dump is there for the post-mortem.
TEST(MessageIssue, FatalMessageDumpsTheActivityFirst) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const std::string dir = getAppContextText("DirProcessDmp");
    ::mkdir(dir.c_str(), 0755);
    const std::string dump = dir + "qzlog-FatalDump.dmp";
    std::remove(dump.c_str());
    EXPECT_EXIT(
        {
            getAppContext()->SetItem(CContext::GetContextItemID("AppInstance"), "FatalDump");
            qzlog::Logger* log = qzlog::Logger::getRepository().getLogger("test.fatal");
            QZ_ERROR(log, "the last words %d", 1);
            raise(90009, "now");
        },
        ::testing::ExitedWithCode(1), "");

    struct stat info;
    ASSERT_EQ(0, ::stat(dump.c_str(), &info)) << dump;
    EXPECT_GT(info.st_size, 16);
    std::remove(dump.c_str());
}

// Catalogues that cannot serve end the process with the reason on stderr.
class BadCatalogueDeathTest : public ::testing::Test {
protected:
    void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
    static void useBundle(const char* name) {
        const std::string dir = std::string(QZ_TEST_BUNDLES) + "/" + name;
        ASSERT_EQ(0, ::chdir(dir.c_str())) << dir;
    }
};

TEST_F(BadCatalogueDeathTest, WrongVersionGarbageAndMissingEntries) {
    EXPECT_EXIT(
        {
            useBundle("wronguuid");
            CMessageFactory::GetDefaultFactory();
        },
        ::testing::KilledBySignal(SIGABRT),
        "The ICU resource bundle, 'qzMessage', is the wrong version.  Expecting "
        "'6d9e5ef3-8344-3c90-9a3f-70e5c519ed3e' but received "
        "'00000000-0000-0000-0000-000000000000'.\n");
    EXPECT_EXIT(
        {
            useBundle("garbage");
            CMessageFactory::GetDefaultFactory();
        },
        ::testing::KilledBySignal(SIGABRT),
        "Cannot load ICU resource bundle '.*garbage/msgtest.dat', error code [0-9]+ - U_");
    EXPECT_EXIT(
        {
            useBundle("sparse");
            _MSG_String(QZ_SOURCE("test", "tests/MessageTest", "missing"), 1112, "x");
        },
        ::testing::KilledBySignal(SIGABRT),
        "The ICU resource bundle, 'qzMessage', is missing message number 1112. Please ensure the "
        "bundle is the "
        "correct version.\n");
    EXPECT_EXIT(
        {
            useBundle("sparse");
            _MSG_String(QZ_SOURCE("test", "tests/MessageTest", "unreadable"), 1525, "x");
        },
        ::testing::KilledBySignal(SIGABRT), "is missing message number 1525");
    EXPECT_EXIT(_MSG_ContextItem(QZ_SOURCE("test", "tests/MessageTest", "unknown"), 77777),
                ::testing::KilledBySignal(SIGABRT), "is missing message number 77777");
}

} // namespace
