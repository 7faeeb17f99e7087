//===- tests/qzlog/AppenderTest.cpp - Appenders, writers and their counters ===//
//
// The appender registry, the counters the loggers and appenders keep along
// the additive chain, the layout switch between text and raw buffers, and the
// stdio writer, which writes here to an in-memory stream.
//
//===----------------------------------------------------------------------===//
#include "LogTestUtil.h"

#include "qzlog/Appender.h"
#include "qzlog/Filter.h"
#include "qzlog/Layout.h"
#include "qzlog/WriterAppender.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

namespace {

using namespace qzs::qzlib::qzlog;
using qztest::CaptureAppender;
using Lines = std::vector<std::string>;

class AppenderTest : public qztest::LoggingTest {
protected:
    LoggerRepository& repo = Logger::getRepository();
};

// A stdio stream over memory; the text so far is read after a flush.
class MemoryStream {
public:
    MemoryStream() : stream(open_memstream(&data, &size)) {}
    ~MemoryStream() {
        if (stream)
            fclose(stream);
        std::free(data);
    }
    std::string text() {
        if (stream)
            fflush(stream);
        return std::string(data ? data : "", size);
    }
    char* data = nullptr;
    size_t size = 0;
    FILE* stream;
};

// A layout with a header and a footer around the bare message.
class FramedLayout : public Layout {
public:
    void format(const LoggingEvent* event, std::string& out) override {
        std::string message;
        event->format(message);
        out += "<" + message + ">\n";
    }
    void getHeader(std::string& out) override { out = "HEAD\n"; }
    void getFooter(std::string& out) override { out = "FOOT\n"; }
};

TEST_F(AppenderTest, RegistryKeepsDuplicateNames) {
    // Equal names both stand in the registry; findAppender finds the older.
    auto older = std::make_unique<CaptureAppender>("dup");
    auto newer = std::make_unique<CaptureAppender>("dup");
    std::vector<Appender*>& all = *Appender::getAllAppenders();
    EXPECT_EQ(std::count(all.begin(), all.end(), older.get()), 1);
    EXPECT_EQ(std::count(all.begin(), all.end(), newer.get()), 1);
    EXPECT_EQ(Appender::findAppender("dup"), older.get());
    older.reset();
    EXPECT_EQ(Appender::findAppender("dup"), newer.get());
    newer.reset();
    EXPECT_EQ(Appender::findAppender("dup"), nullptr);
}

TEST_F(AppenderTest, CountersAlongTheAdditiveChain) {
    // Loggers count each appender visited; appenders count what they wrote or filtered.
    Logger* parent = repo.getLogger("cnt");
    Logger* child = repo.getLogger("cnt.child");
    CaptureAppender kept("cnt.kept"), refused("cnt.refused"), high("cnt.high"), off("cnt.off");
    refused.addFilter(new DenyAllFilter());
    high.setThreshold(Level::Error);
    off.setEnabled(false);
    for (Appender* a : std::vector<Appender*>{&kept, &refused, &high, &off})
        parent->addAppender(*a);
    child->setLevel(Level::Info);

    for (int i = 0; i < 3; ++i)
        QZT_LOG(child, Level::Info, "event %d", i);
    EXPECT_EQ(child->getEventsLogged(), 3u);
    EXPECT_EQ(child->getEventsIssued(), 0u);
    EXPECT_EQ(parent->getEventsLogged(), 0u);
    EXPECT_EQ(parent->getEventsIssued(), 12u);
    EXPECT_EQ(kept.lines(), (Lines{"event 0\n", "event 1\n", "event 2\n"}));
    EXPECT_EQ(kept.eventsIssued, 3u);
    EXPECT_EQ(refused.eventsIssued, 0u);
    EXPECT_EQ(refused.eventsFiltered, 3u);
    EXPECT_EQ(refused.count(), 0u);
    EXPECT_EQ(high.eventsIssued + high.eventsFiltered, 0u);
    EXPECT_EQ(off.eventsIssued + off.eventsFiltered, 0u);

    QZT_LOG(child, Level::Error, "severe");
    EXPECT_EQ(high.lines(), (Lines{"severe\n"}));

    child->setAdditivity(false);
    QZT_LOG(child, Level::Error, "stays below");
    EXPECT_EQ(child->getEventsLogged(), 5u);
    EXPECT_EQ(parent->getEventsIssued(), 16u);
    EXPECT_EQ(kept.count(), 4u);
    parent->removeAllAppenders();
}

TEST_F(AppenderTest, BinaryLayoutSwitchesToBuffers) {
    // A BinaryLayout turns text events away; setLayout(nullptr) brings them back as bare lines.
    qztest::CapturedLogger log("bin", nullptr);
    BinaryLayout* binary = new BinaryLayout();
    log.capture->setLayout(binary);
    EXPECT_TRUE(log.capture->isWantsBuffers());
    QZT_LOG(log.logger, Level::Info, "not as text");
    EXPECT_EQ(log.capture->count(), 0u);
    EXPECT_EQ(log.logger->getEventsIssued(), 1u);

    log.capture->setLayout(nullptr); // does not free the old layout
    delete binary;
    EXPECT_FALSE(log.capture->isWantsBuffers());
    QZT_LOG(log.logger, Level::Info, "  bare %d  ", 5);
    EXPECT_EQ(log.capture->last(), "bare 5\n");

    // The raw path takes a whole block and counts the events in it.
    log.capture->doAppend(7, "raw!", 4);
    EXPECT_EQ(log.capture->last(), "raw!");
    EXPECT_EQ(log.capture->eventsIssued, 8u);
}

TEST_F(AppenderTest, ConsoleWritesEachEvent) {
    // A console appender writes each event at once, bare with no layout, and never closes its stream.
    MemoryStream memory;
    ASSERT_NE(memory.stream, nullptr);
    ConsoleAppender console("console", memory.stream, nullptr);
    Logger* l = repo.getLogger("console.out");
    l->addAppender(console);
    l->setLevel(Level::Info);
    QZT_LOG(l, Level::Info, "first %s", "line");
    EXPECT_EQ(std::string(memory.data, memory.size), "first line\n");

    console.setLayout(new PatternLayout("%p: %m%n"));
    QZT_LOG(l, Level::Warn, "second");
    console.close();
    console.reset();
    QZT_LOG(l, Level::Error, "after close");
    EXPECT_EQ(memory.text(), "first line\nWARN: second\nERROR: after close\n");
    l->removeAppender(console);
}

TEST_F(AppenderTest, WriterHeaderFooterAndClose) {
    // close() writes the footer and closes; output that has nowhere to go is dropped.
    MemoryStream memory;
    WriterAppender writer("writer");
    writer.setLayout(new FramedLayout());
    writer.file = memory.stream;
    writer.writeHeader();
    Logger* l = repo.getLogger("writer.out");
    l->addAppender(writer);
    l->setLevel(Level::Info);
    QZT_LOG(l, Level::Info, "body");
    writer.close();
    EXPECT_EQ(writer.file, nullptr);
    memory.stream = nullptr; // closed by the appender
    EXPECT_EQ(std::string(memory.data, memory.size), "HEAD\n<body>\nFOOT\n");

    QZT_LOG(l, Level::Info, "dropped");
    writer.close();
    EXPECT_EQ(writer.eventsIssued, 2u);
    l->removeAppender(writer);
}

TEST_F(AppenderTest, SummaryOfAppenders) {
    // Active appenders with their counters, idle ones after, disabled ones marked.
    ASSERT_EQ(Appender::getAllAppenders()->size(), 0u);
    std::string empty;
    Appender::getSummaryReport(empty);
    EXPECT_EQ(empty, "");

    CaptureAppender active("sum.active"), idle2("sum.idle2"), idle("sum.idle");
    active.setThreshold(Level::Warn);
    active.addFilter(new StringMatchFilter("skip", Filter::Deny));
    idle.setThreshold(Level::Error);
    idle.setEnabled(false);
    idle2.setEnabled(false);
    Logger* l = repo.getLogger("sum.logger");
    l->addAppender(active);
    QZT_LOG(l, Level::Warn, "one");
    QZT_LOG(l, Level::Warn, "skip this");
    QZT_LOG(l, Level::Error, "two");

    std::string report = "before";
    Appender::getSummaryReport(report);
    EXPECT_EQ(report, "before"
                      "\nActive appenders:\n"
                      "  sum.active (WARN)\n"
                      "    Events issued:   2\n"
                      "    Events filtered: 1\n"
                      "\n"
                      "\nIdle appenders:\n"
                      "  sum.idle (ERROR) - Disabled\n"
                      "  sum.idle2 (ALL) - Disabled\n");
    l->removeAppender(active);
}

} // namespace
