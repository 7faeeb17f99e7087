//===- tests/qzmsg/ActionTest.cpp - What a severity does ------------------===//
//
// The item report in every form, the resource report, the exception a
// message throws and the end of the process.
//
//===----------------------------------------------------------------------===//
#include "CaptureAppender.h"
#include "TestHost.h"

#include "qzmsg/CAction.h"
#include "qzmsg/CErrorContext.h"
#include "qzmsg/CMessage.h"
#include "qzmsg/CMessageFactory.h"
#include "qzmsg/CSourceContext.h"
#include "qzmsg/QZException.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace {

using namespace qzs::qzlib;
using testing::HasSubstr;
using testing::StartsWith;

// Message 1091, "Unable to open the file '{0}': {1}.", raised from here.
CMessage* makeMessage(char const* fileName = "orders.dat") {
    const CDataItem items[] = {CDataItem(fileName)};
    return CMessageFactory::GetDefaultFactory()->CreateMessageFromItems(
        new CSourceContext("qztest", "qztest/Action", "makeMessage", 77), 1091, items, 1);
}

class ActionTest : public testing::Test {
protected:
    void SetUp() override {
        ::setenv("TZ", "UTC", 1);
        ::tzset();
        message.reset(makeMessage());
    }

    // The report of `item` as ReportItem prints it.
    std::string reported(const CDataItem& value, bool showType, bool showName = true) {
        static char const itemName[] = "TestReportedItem";
        const CContextItem item(CContext::GetContextItemID(itemName), value);
        qztest::ReportCapture capture;
        action.ReportItem(message.get(), &item, showType, showName);
        return capture.text();
    }

    CAction action;
    std::unique_ptr<CMessage> message;
};

// Each tag's format and type label; a time is a date only above 1189622117.
TEST_F(ActionTest, ReportItemFormatsEveryTag) {
    const std::string name = "  TestReportedItem        : ";
    const timespec elapsed{100, 5};
    const timespec lastElapsed{1189622117, 0};
    const timespec date{1700000000, 250};
    const struct {
        CDataItem value;
        bool showType;
        std::string expected;
    } cases[] = {
        {CDataItem("abc"), true, name + "string      : [abc]\n"},
        {CDataItem(-5), true, name + "int32_t     : [-5]\n"},
        {CDataItem(4000000000u), true, name + "uint32_t    : [4000000000]\n"},
        {CDataItem(-6000000000L), true, name + "int64_t     : [-6000000000]\n"},
        {CDataItem(18000000000000000000UL), true, name + "uint64_t    : [18000000000000000000]\n"},
        {CDataItem(true), true, name + "Boolean     : [true]\n"},
        {CDataItem(false), false, name + "[false]\n"},
        {CDataItem(elapsed), true, name + "DateTime    : [100.000000005]\n"},
        {CDataItem(lastElapsed), false, name + "[1189622117.000000000]\n"},
        {CDataItem(date), false, name + "[1700000000.000000250][ Tue Nov 14 22:13:20 2023]\n"},
        {CDataItem(reinterpret_cast<void const*>(0x1234)), true,
         name + "Pointer     : [0x0x1234]\n"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.expected, reported(c.value, c.showType)) << c.expected;
    EXPECT_EQ("                          : [7]\n", reported(CDataItem(7), false, false));
}

// An array prints its count, then each element under a blank name column.
TEST_F(ActionTest, ReportItemArrayElementByElement) {
    std::vector<CDataItem> elements{CDataItem(1), CDataItem("two")};
    EXPECT_EQ("  TestReportedItem        : array       : [2] elements\n"
              "                          : int32_t     : [1]\n"
              "                          : string      : [two]\n",
              reported(CDataItem(&elements), true));
    std::vector<CDataItem> none;
    EXPECT_EQ("  TestReportedItem        : [0] elements\n", reported(CDataItem(&none), false));
}

// Every resource line has a non-zero value; fields Linux leaves at zero
// (swaps, IPC messages, signals, shared memory) print nothing.
TEST_F(ActionTest, ReportMemorySkipsZeroResourceFields) {
    qztest::ReportCapture capture;
    EXPECT_TRUE(action.ReportMemory(message.get()));
    const std::string text = capture.text();
    ASSERT_THAT(text, StartsWith("\nProcess Overview :\n"));
    const std::string header = "\nProcess Resource Details :\n";
    const size_t details = text.find(header);
    ASSERT_NE(std::string::npos, details);
    EXPECT_THAT(text.substr(0, details), HasSubstr("  ProcessID               : ["));

    std::istringstream lines(text.substr(details + header.size()));
    std::vector<std::string> names;
    for (std::string line; std::getline(lines, line);) {
        EXPECT_THAT(line, testing::MatchesRegex("  ru_[a-z]+ +: \\[[1-9][0-9]*\\]")) << line;
        names.push_back(line.substr(2, line.find(' ', 2) - 2));
    }
    EXPECT_THAT(names, testing::Contains("ru_maxrss"));
    for (char const* zero : {"ru_nswap", "ru_msgsnd", "ru_msgrcv", "ru_ixrss"})
        EXPECT_THAT(names, testing::Not(testing::Contains(zero)));
}

// Report prints "<code>: <text>" on stdout, Log records it on "qzmsg.action".
TEST_F(ActionTest, ReportAndLogLines) {
    qztest::CapturedLogger log("qzmsg.action");
    const std::string line = std::string("XQZ-01091: ") + message->Format(FactoryCharSet);
    testing::internal::CaptureStdout();
    EXPECT_TRUE(action.Report(message.get()));
    EXPECT_EQ(line + "\n", testing::internal::GetCapturedStdout());
    EXPECT_TRUE(action.Log(message.get()));
    EXPECT_EQ(line, log.capture->last());
}

// The exception carries text, number and code, is logged with its source,
// and a message the thread's error context holds survives the throw.
TEST_F(ActionTest, ThrowExceptionLogsAndKeepsAPendingMessage) {
    qztest::CapturedLogger log("QZException");
    CErrorContext* context = CErrorContext::GetContext();
    CMessage* pending = makeMessage("pending.dat");
    context->AddMessage(pending);
    const std::string text = pending->Format(FactoryCharSet);
    try {
        action.ThrowException(pending);
        FAIL() << "no exception";
    } catch (const qzlog::QZException& e) {
        EXPECT_EQ(text, e.what());
        EXPECT_EQ(1091u, e.GetMessageID());
        EXPECT_STREQ("XQZ-01091", e.GetMessageCode());
    }
    ASSERT_TRUE(context->Exists(pending));
    EXPECT_EQ(text, context->Format(-1, FactoryCharSet));
    context->Clear();
    ASSERT_EQ(1u, log.capture->count());
    EXPECT_THAT(log.capture->last(),
                StartsWith("QZException: qztest/Action:77  [XQZ-01091] " + text + "\n"));

    // Not pending: the action deletes it (a leak or double free shows under ASan).
    EXPECT_THROW(action.ThrowException(makeMessage()), qzlog::QZException);
}

// End leaves the process with status 12.
TEST_F(ActionTest, EndExitsWith12) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    CAction end;
    ASSERT_TRUE(end.Load("End", nullptr));
    EXPECT_EXIT(end.Execute(message.get()), testing::ExitedWithCode(12), "");
}

} // namespace
