//===- tests/qzlog/LoggerTreeTest.cpp - Logger tree and effective levels --===//
//
// The dotted tree the repository builds, the ids and names it hands out, and
// the one effective byte per logger that folds the configured levels, the
// appenders' thresholds and the repository threshold together.
//
//===----------------------------------------------------------------------===//
#include "FaultCollector.h"
#include "LogTestUtil.h"

#include "qzlog/Appender.h"
#include "qzlog/detail/LoggerName.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using namespace qzs::qzlib::qzlog;
using qztest::CaptureAppender;

class LoggerTreeTest : public qztest::LoggingTest {
protected:
    LoggerRepository& repo = Logger::getRepository();
    Logger* root = repo.getRootLogger();
};

TEST_F(LoggerTreeTest, RootAndIds) {
    // The root is "" with id 0; a.b.c makes its ancestors first, with rising ids.
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(repo.getLogger(""), root);
    EXPECT_EQ(repo.getLogger(static_cast<const char*>(nullptr)), root);
    EXPECT_EQ(root->id, 0);
    EXPECT_STREQ(root->getName(), "");
    EXPECT_EQ(root->parent, nullptr);
    EXPECT_STREQ(repo.getLoggerName(0), "");

    const unsigned long before = repo.getLoggerCount();
    Logger* c = repo.getLogger("ids.b.c");
    EXPECT_EQ(repo.getLoggerCount(), before + 3);
    Logger* b = repo.exists("ids.b");
    Logger* a = repo.exists("ids");
    ASSERT_NE(a, nullptr);
    ASSERT_NE(b, nullptr);
    EXPECT_EQ(c->parent, b);
    EXPECT_EQ(b->parent, a);
    EXPECT_EQ(a->parent, root);
    EXPECT_EQ(b->id, a->id + 1);
    EXPECT_EQ(c->id, b->id + 1);
    EXPECT_STREQ(repo.getLoggerName(c->id), "ids.b.c");
    EXPECT_EQ(repo.getLogger(c->id), c);

    // A second request finds the same logger, by text or by interned pointer.
    std::string text = "ids.b";
    EXPECT_EQ(repo.getLogger(text.c_str()), b);
    EXPECT_EQ(repo.getLogger(b->getName()), b);
    EXPECT_EQ(repo.getLoggerCount(), before + 3);

    EXPECT_EQ(repo.exists("ids.never"), nullptr);
    EXPECT_EQ(repo.getLogger(static_cast<unsigned short>(65000)), nullptr);
    EXPECT_EQ(repo.getLoggerName(65000), nullptr);
}

TEST_F(LoggerTreeTest, OddNames) {
    // "a..b" hangs under "a." under "a"; a child of the root gets a leading dot.
    Logger* ab = repo.getLogger("odd..b");
    ASSERT_NE(ab->parent, nullptr);
    EXPECT_STREQ(ab->parent->getName(), "odd.");
    ASSERT_NE(ab->parent->parent, nullptr);
    EXPECT_STREQ(ab->parent->parent->getName(), "odd");
    EXPECT_EQ(ab->parent->parent->parent, root);

    Logger* x = root->getChild("x");
    EXPECT_STREQ(x->getName(), ".x");
    EXPECT_EQ(x->parent, root);
    Logger* leaf = repo.getLogger("odd")->getChild("leaf");
    EXPECT_STREQ(leaf->getName(), "odd.leaf");
    EXPECT_EQ(leaf, repo.getLogger("odd.leaf"));

    LoggerName split("p.q.r");
    EXPECT_STREQ(split.parent, "p.q");
    EXPECT_EQ(split.name, LoggerName::getName("p.q.r"));
    EXPECT_STREQ(LoggerName("single").parent, "");
}

TEST_F(LoggerTreeTest, OverlongParentIsReportedAndHungUnderRoot) {
    // A parent text over 126 characters raises message 1112; the logger still works.
    qztest::FaultCollector collector;
    const std::string fits = std::string(126, 'q') + ".leaf";
    Logger* ok = repo.getLogger(fits.c_str());
    EXPECT_EQ(collector.count(), 0u);
    EXPECT_EQ(std::string(ok->parent->getName()), std::string(126, 'q'));

    const std::string tooLong = std::string(127, 'p') + ".leaf";
    Logger* l = repo.getLogger(tooLong.c_str());
    ASSERT_NE(l, nullptr);
    EXPECT_EQ(l->parent, root);
    EXPECT_STREQ(l->getName(), tooLong.c_str());
    ASSERT_GE(collector.count(), 1u);
    for (const auto& fault : collector.faults()) {
        EXPECT_EQ(fault.number, 1112u);
        EXPECT_EQ(fault.site.component, "qzlog");
    }

    qztest::CapturedLogger log(tooLong.c_str());
    QZT_LOG(log.logger, Level::Info, "still logs");
    EXPECT_EQ(log.capture->last(), "still logs");
}

TEST_F(LoggerTreeTest, InheritedLevelAndTheWarnCeiling) {
    // INHERIT takes the nearest ancestor's level; with no appender in reach the byte stays at 223.
    Logger* l = repo.getLogger("lv.inherit.x");
    root->setLevel(Level::Fatal);
    EXPECT_EQ(l->getEffectiveLevel(), Level::Fatal);

    root->setLevel(Level::All);
    l->setLevel(Level::All);
    EXPECT_EQ(l->getEffectiveLevel(), Level::Warn);
    EXPECT_EQ(root->getEffectiveLevel(), Level::Warn);
    EXPECT_EQ(l->getAppenderThreshold(), Level::Warn);

    repo.getLogger("lv.inherit")->setLevel(Level::Error);
    l->setLevel(Level::Inherit);
    EXPECT_EQ(l->getEffectiveLevel(), Level::Error);
}

TEST_F(LoggerTreeTest, AppenderInReachLetsTheLevelFall) {
    // An enabled appender at ALL up the additive chain lets the byte fall to the configured level.
    Logger* parent = repo.getLogger("lv.reach");
    Logger* l = repo.getLogger("lv.reach.debug");
    Logger* all = repo.getLogger("lv.reach.all");
    CaptureAppender onRoot("lv.root");
    root->addAppender(onRoot);
    root->setLevel(Level::All);
    l->setLevel(Level::Debug);
    EXPECT_EQ(l->getEffectiveLevel(), Level::Debug);
    EXPECT_EQ(all->getEffectiveLevel(), Level::All);
    EXPECT_EQ(root->getEffectiveLevel(), Level::All);

    // A non-additive logger does not see the root's appender, nor do its children.
    parent->setAdditivity(false);
    repo.recalculateEffectiveLevels();
    EXPECT_EQ(parent->getAppenderThreshold(), Level::Warn);
    EXPECT_EQ(l->getAppenderThreshold(), Level::Warn);
    EXPECT_EQ(l->getEffectiveLevel(), Level::Warn);
    EXPECT_EQ(root->getEffectiveLevel(), Level::All);

    // The non-additive logger's own appender still counts.
    CaptureAppender own("lv.own");
    own.setThreshold(Level::Info);
    parent->addAppender(own);
    repo.recalculateEffectiveLevels();
    EXPECT_EQ(l->getEffectiveLevel(), Level::Info);
    parent->removeAppender(own);
    root->removeAppender(onRoot);
}

TEST_F(LoggerTreeTest, ThresholdsAndEnableSwitchRefoldTheByte) {
    // Appender thresholds, the enable switch and the repository threshold all move the byte at
    // once.
    Logger* l = repo.getLogger("lv.threshold");
    CaptureAppender errors("lv.errors");
    errors.setThreshold(Level::Error);
    l->addAppender(errors);
    l->setLevel(Level::Debug);
    EXPECT_EQ(l->getAppenderThreshold(), Level::Warn); // a threshold above 223 never raises it
    EXPECT_EQ(l->getEffectiveLevel(), Level::Warn);

    CaptureAppender info("lv.info");
    info.setThreshold(Level::Info);
    l->addAppender(info);
    repo.recalculateEffectiveLevels();
    EXPECT_EQ(l->getAppenderThreshold(), Level::Info);
    EXPECT_EQ(l->getEffectiveLevel(), Level::Info);

    info.setEnabled(false);
    EXPECT_EQ(l->getEffectiveLevel(), Level::Warn);
    info.setThreshold(Level::All);
    EXPECT_EQ(l->getEffectiveLevel(), Level::Warn); // a disabled appender does not count
    info.setEnabled(true);
    EXPECT_EQ(l->getEffectiveLevel(), Level::Debug);

    // Only enabled text events at or above an appender's threshold reach it.
    QZT_LOG(l, Level::Debug, "debug");
    QZT_LOG(l, Level::Error, "error");
    EXPECT_EQ(errors.lines(), (std::vector<std::string>{"error\n"}));
    EXPECT_EQ(info.count(), 2u);

    repo.setThreshold(Level::Error);
    EXPECT_EQ(l->getEffectiveLevel(), Level::Error);
    EXPECT_EQ(root->getEffectiveLevel(), Level::Error);
    repo.setThreshold(Level::All);
    EXPECT_EQ(l->getEffectiveLevel(), Level::Debug);
    l->removeAllAppenders();
}

TEST_F(LoggerTreeTest, CallerOwnedLevelByte) {
    // A logger made with the caller's byte keeps its effective level there.
    unsigned char byte = 77;
    Logger* l = repo.getLogger("lv.byte", &byte);
    EXPECT_EQ(l->effectiveLevel, &byte);
    EXPECT_EQ(byte, Level::Warn);
    CaptureAppender capture("lv.byte");
    l->addAppender(capture);
    l->setLevel(Level::Data);
    EXPECT_EQ(byte, Level::Data);

    unsigned char other = 5;
    EXPECT_EQ(repo.getLogger("lv.byte", &other), l); // ignored for a logger that exists
    EXPECT_EQ(other, 5);
    l->removeAppender(capture);
}

TEST_F(LoggerTreeTest, AppenderList) {
    // The list keeps duplicates; removal takes every occurrence and closes nothing.
    Logger* l = repo.getLogger("lst.one");
    Logger* m = repo.getLogger("lst.two");
    CaptureAppender a("lst.a"), b("lst.b");
    EXPECT_FALSE(l->isAttached());
    l->addAppender(a);
    l->addAppender(b);
    l->addAppender(a);
    m->addAppender(a);
    EXPECT_TRUE(l->isAttached());
    EXPECT_TRUE(l->isAttached(b));
    EXPECT_EQ(l->getAppender("lst.b"), &b);
    EXPECT_EQ(l->getAppender("lst.none"), nullptr);

    repo.replaceAppender(&a, &b);
    EXPECT_EQ(l->getAllAppenders(), (std::vector<Appender*>{&b, &b, &b}));
    EXPECT_EQ(m->getAllAppenders(), (std::vector<Appender*>{&b}));
    EXPECT_TRUE(l->removeAppender("lst.b"));
    EXPECT_FALSE(l->isAttached());
    EXPECT_FALSE(l->removeAppender(b));

    m->addAppender(a);
    EXPECT_TRUE(m->removeAppender(a));
    EXPECT_EQ(m->getAllAppenders(), (std::vector<Appender*>{&b}));
    m->removeAllAppenders();
    EXPECT_FALSE(m->isAttached());
}

int g_calls = 0;
void configA(LoggerRepository*) {
    ++g_calls;
}
void configB(LoggerRepository*) {
    ++g_calls;
}

TEST_F(LoggerTreeTest, ConfigurationCallbacksFireOnChangeOnly) {
    // Registering a callback twice, or clearing an absent one, reports no change.
    repo.configurationChanged();
    EXPECT_FALSE(repo.configurationChanged());
    repo.addConfiguration(&configA);
    EXPECT_TRUE(repo.configurationChanged());
    EXPECT_FALSE(repo.configurationChanged());
    repo.addConfiguration(&configA);
    EXPECT_FALSE(repo.configurationChanged());
    repo.clearConfiguration(&configB);
    EXPECT_FALSE(repo.configurationChanged());
    repo.addConfiguration(&configB);
    repo.clearConfiguration(&configA);
    EXPECT_TRUE(repo.configurationChanged());
    repo.clearConfiguration(&configB);
    EXPECT_TRUE(repo.configurationChanged());
    EXPECT_EQ(g_calls, 0);
}

} // namespace
