//===- tests/qzmsg/ErrorHandlingTest.cpp - Console line, error log, error context -===//
//
// The console line and the error log record of the QZ severities, the end
// of a process on a fatal error (in child processes), and how a thread's
// error context issues and hands over its messages.
//
//===----------------------------------------------------------------------===//
#include "CaptureAppender.h"
#include "TestHost.h"

#include "qzlog/LogMacros.h"
#include "qzlog/ReportAppender.h"
#include "qzmsg/CAction.h"
#include "qzmsg/CAppContext.h"
#include "qzmsg/CErrorContext.h"
#include "qzmsg/CMessage.h"
#include "qzmsg/CMessageContext.h"
#include "qzmsg/CMessageFactory.h"
#include "qzmsg/CSourceContext.h"
#include "qzmsg/LegacyErrorHandling.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <future>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace qzs::qzlib;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::MatchesRegex;

CMessage* makeMessage(char const* fileName) {
    const CDataItem items[] = {CDataItem(fileName)};
    return CMessageFactory::GetDefaultFactory()->CreateMessageFromItems(
        new CSourceContext("qztest", "qztest/ErrorHandling", "makeMessage", 1), 1091, items, 1);
}

std::string fileOf(CMessage const* message) {
    return static_cast<char const*>(message->context->details().at(0));
}

const char kTime[] = "[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}";

// The label by level, the object name from either kind of path, and the
// format without one.
TEST(IssueMessage, ConsoleLineAndErrorLogRecord) {
    qztest::CapturedLogger log("qzserr.log");
    const std::string program = getAppContextText("BuildProgramString");
    const struct {
        unsigned char level;
        char const* parameterFile;
        char const* console;
        std::string logged;
    } cases[] = {
        {239, "/opt/qz/dirprm/extract.prm", "ERROR   XQZ-00042  Failed.",
         "ERROR   XQZ-00042  " + program + ", extract.prm:  Failed."},
        {223, "C:\\qz\\dirprm\\apply.prm", "WARNING XQZ-00042  Failed.",
         "WARNING XQZ-00042  " + program + ", apply.prm:  Failed."},
        {222, nullptr, "INFO    XQZ-00042  Failed.",
         "INFO    XQZ-00042  " + program + ":  Failed."},
    };
    for (const auto& c : cases) {
        qztest::ReportCapture report;
        qztest::hostConfig().parameterFile = c.parameterFile;
        log.capture->clear();
        // Closing blanks, periods and newlines give way to one period.
        issueMessage(42, "XQZ-00042", "Failed.\n ", c.level);
        EXPECT_THAT(report.text(),
                    MatchesRegex(std::string("\n") + kTime + "  " + c.console + "\n"));
        EXPECT_EQ(c.logged, log.capture->last());
    }
    qztest::hostConfig().parameterFile = nullptr;

    qztest::ReportCapture report;
    issueMessageNoReport(42, "XQZ-00042", "Quiet..", 191);
    EXPECT_EQ("", report.text());
    EXPECT_EQ("INFO    XQZ-00042  " + program + ":  Quiet.", log.capture->last());
}

// A long text is cut at 2048 characters in the log, not on the console.
TEST(IssueMessage, LongTextIsCutInTheLogOnly) {
    qztest::CapturedLogger log("qzserr.log");
    qztest::ReportCapture report;
    const std::string text = std::string(2040, 'a') + "  ....  " + std::string(900, 'b');
    issueMessage(42, "XQZ-00042", text.c_str(), 239);
    EXPECT_THAT(report.text(), HasSubstr("  " + text + ".\n"));
    // The cut falls right after "  ....  ", which goes before the period.
    EXPECT_THAT(log.capture->last(), testing::EndsWith(":  " + std::string(2040, 'a') + "."));
}

// Log lines go where the console lines go, under the appender's name, and
// closing the appender leaves the host's stream open.
TEST(ReportAppender, WritesToTheReportStream) {
    using namespace qzs::qzlib::qzlog;
    qztest::ReportCapture report;
    ReportAppender appender("extract", "%m%n");
    Logger* logger = Logger::getRepository().getLogger("qztest.report");
    logger->addAppender(appender);
    logger->setLevel(Level::Info);
    QZ_INFO(logger, "rows %d", 3);
    appender.close();
    QZ_INFO(logger, "again");
    logger->removeAppender(appender);
    Logger::getRepository().recalculateEffectiveLevels();
    EXPECT_EQ("extract: rows 3\nextract: again\n", report.text());
    EXPECT_EQ("%m", ReportAppender::patternFor("", "%m"));
}

void fatalCallback(unsigned int id, char const* text) {
    std::fprintf(stderr, "fatal %u %s\n", id, text);
}
void idlCallback(char const* text) {
    std::fprintf(stderr, "idl %s\n", text);
}
void vamCallback() {
    std::fprintf(stderr, "vam\n");
}
void exitFunction(int code) {
    std::fprintf(stderr, "exit %d flag %u\n", code, qztest::hostConfig().fatalError);
}

void setCallbacks(FATALERROR_ACTION action) {
    qzSetFatalErrorAction(action);
    qzSetFatalErrorCallback(&fatalCallback);
    qzSetIDLFatalErrorCallback(&idlCallback);
    qzSetVAMFatalErrorCallback(&vamCallback);
    qzSetExitFunction(&exitFunction);
    qztest::hostConfig().reportStream = stderr;
}

// Action 1 aborts before any callback; 2 tells every callback (the IDL and
// VAM ones only the first time), reports 1668 and exits with 1; 3 does not
// report. An action outside 1 to 3 returns.
TEST(ProcessFatalError, EachActionInAChild) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            setCallbacks(FatalAbort);
            processFatalError(5, "boom");
        },
        testing::KilledBySignal(SIGABRT), testing::Not(HasSubstr("boom")));
    EXPECT_EXIT(
        {
            setCallbacks(static_cast<FATALERROR_ACTION>(4));
            processFatalError(5, "one");
            processFatalError(6, "two");
            qzSetFatalErrorAction(FatalReportAndExit);
            processFatalError(7, nullptr);
        },
        testing::ExitedWithCode(1),
        ContainsRegex(
            "idl one\nvam\nfatal 5 one\n.*fatal 6 two\n.*fatal 7 \n.*"
            "ERROR   XQZ-01668  The process is stopping because of the fatal error reported "
            "above\\.\nexit 1 flag 1\n"));
    EXPECT_EXIT(
        {
            setCallbacks(FatalExitQuietly);
            processFatalError(5, "quiet");
        },
        testing::ExitedWithCode(1),
        testing::AllOf(ContainsRegex("fatal 5 quiet\nexit 1 flag 1\n"),
                       testing::Not(HasSubstr("XQZ-01668"))));
}

// A factory-wide step that records which message it saw in which pass, fails
// where it is told, and can try to feed the list being issued.
struct Recorder {
    std::vector<std::string> steps;
    std::string failOn;
    CActionAttribute failPass = 0;
    CMessage* feed = nullptr;
};

class RecordingAction : public CAction {
public:
    RecordingAction(char const* loadAs, Recorder& recorder) : recorder(recorder) {
        Load(loadAs, nullptr);
        CMessageFactory::GetDefaultFactory()->AddAction(this);
    }
    ~RecordingAction() override { CMessageFactory::GetDefaultFactory()->DeleteAction(this); }
    bool Execute(CMessage const* message) const override {
        const std::string file = fileOf(message);
        recorder.steps.push_back(std::to_string(GetAttribute()) + file);
        if (recorder.feed)
            *CErrorContext::GetContext() += recorder.feed;
        return !(file == recorder.failOn && GetAttribute() == recorder.failPass);
    }

private:
    Recorder& recorder;
};

// Passes 4, 2, 1 each walk the list newest first; a failure ends the passes
// and keeps the list, and a message added while issuing is ignored.
TEST(ErrorContextIssue, PassesFailuresAndFeeding) {
    qztest::ReportCapture report; // the messages' own QZError lines
    Recorder recorder;
    RecordingAction normal("Report", recorder), look("Pause", recorder), terminal("End", recorder);
    CErrorContext* context = CErrorContext::GetContext();
    const struct {
        char const* failOn;
        CActionAttribute failPass;
        bool issued;
        std::vector<std::string> steps;
    } cases[] = {
        {"", 0, true, {"4c", "4b", "4a", "2c", "2b", "2a", "1c", "1b", "1a"}},
        {"b", 4, false, {"4c", "4b", "4a"}},
        {"a", 4, false, {"4c", "4b", "4a"}},
        {"c", 2, false, {"4c", "4b", "4a", "2c", "2b", "2a"}},
    };
    for (const auto& c : cases) {
        for (char const* file : {"a", "b", "c"})
            *context += makeMessage(file);
        recorder.steps.clear();
        recorder.failOn = c.failOn;
        recorder.failPass = c.failPass;
        EXPECT_EQ(c.issued, context->Issue()) << c.failOn;
        EXPECT_EQ(c.steps, recorder.steps) << c.failOn;
        EXPECT_EQ(c.issued ? 0u : 3u, context->messages.size()) << c.failOn;
        EXPECT_FALSE(context->issuing);
        context->Clear();
    }

    // Failing keeps the list, so a fed message would show in it.
    recorder.failOn = "a";
    recorder.failPass = 4;
    recorder.feed = makeMessage("fed");
    *context += makeMessage("a");
    EXPECT_FALSE(context->Issue());
    EXPECT_EQ(1u, context->messages.size());
    EXPECT_FALSE(context->Exists(recorder.feed));
    context->Clear();
    delete recorder.feed;
}

// Another thread's pending and stored messages move here, in order, and
// chain to this thread's error context, which outlives the other thread's.
TEST(ErrorContextTransfer, MessagesFollowTheirNewContext) {
    const ContextItemID codeId = CContext::GetContextItemID("ErrOSErrorCode");
    CErrorContext* here = CErrorContext::GetContext();
    here->SetItem(codeId, CDataItem(7u));
    const size_t storedBefore = here->storedMessages.size();

    std::promise<CErrorContext*> filled;
    std::promise<void> transferred;
    std::thread other([&] {
        CErrorContext* there = CErrorContext::GetContext();
        there->SetItem(codeId, CDataItem(5u));
        *there += makeMessage("first");
        *there += makeMessage("second");
        CAction store;
        store.Load("StoreMessage", nullptr);
        std::unique_ptr<CMessage> kept(makeMessage("stored"));
        store.Execute(kept.get());
        filled.set_value(there);
        transferred.get_future().wait();
    });
    CErrorContext* there = filled.get_future().get();
    here->Transfer(*there);
    here->Transfer(*here);
    EXPECT_TRUE(there->messages.empty());
    EXPECT_TRUE(there->storedMessages.empty());
    transferred.set_value();
    other.join();

    ASSERT_EQ(2u, here->messages.size());
    EXPECT_EQ("first", fileOf(here->messages[0]));
    EXPECT_EQ("second", fileOf(here->messages[1]));
    ASSERT_EQ(storedBefore + 1, here->storedMessages.size());
    CMessage* stored = here->storedMessages.back();
    EXPECT_EQ("stored", fileOf(stored));
    for (CMessage* m : {here->messages[0], here->messages[1], stored}) {
        EXPECT_EQ(7u, m->context->GetItem(codeId)->Read<unsigned int>());
        EXPECT_THAT(m->Format(FactoryCharSet), HasSubstr("Unable to open the file"));
    }
    here->Clear();
    here->storedMessages.pop_back();
    delete stored;
}

} // namespace
