//===- tests/qzlog/config/DOMConfiguratorTest.cpp - Logging files applied --===//
//
// Each element, class and parameter of a logging file, applied and then
// observed through real loggers writing real files; the faults a file can
// have, each with its message; and input that must not be trusted.
//
//===----------------------------------------------------------------------===//
#include "../LogTestUtil.h"
#include "FaultCollector.h"
#include "TempDir.h"

#include "qzlog/Appender.h"
#include "qzlog/FileAppender.h"
#include "qzlog/LoggerRepository.h"
#include "qzlog/config/DOMConfigurator.h"
#include "qzlog/config/Discovery.h"
#include "qzlog/config/detail/DOMConfiguratorImpl.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <unistd.h>
#include <vector>

using namespace qzs::qzlib::qzlog;

namespace {

constexpr unsigned char Inherit = Level::Inherit, Debug = Level::Debug, Info = Level::Info,
                        Warn = Level::Warn, Error = Level::Error, Fatal = Level::Fatal;

class DOMConfiguratorTest : public qztest::LoggingTest {
protected:
    std::string write(const std::string& name, const std::string& body) {
        const std::string path = temp.path(name);
        qztest::writeFile(path, body);
        return path;
    }
    // Applies `body` as a file of its own.
    bool load(const std::string& body) {
        DOMConfigurator configurator;
        return configurator.configure(write("c" + std::to_string(++files) + ".xml", body).c_str());
    }
    // An unbuffered file appender named `name` on temp/<name>.log.
    std::string fileAppender(const std::string& name, const std::string& inner = "",
                             const std::string& pattern = "%m%n") {
        return "<appender name='" + name + "' class='FileAppender'><param name='File' value='" +
               out(name) + "'/><param name='BufferedIO' value='false'/>" + inner +
               "<layout class='PatternLayout'><param name='Pattern' value='" + pattern +
               "'/></layout></appender>";
    }
    std::string out(const std::string& name) const { return temp.path(name + ".log"); }
    std::string read(const std::string& name) const { return qztest::readFile(out(name)); }
    std::vector<unsigned int> numbers() const {
        std::vector<unsigned int> n;
        for (const auto& f : faults.faults())
            n.push_back(f.number);
        return n;
    }
    bool raised(unsigned int number) const {
        const auto n = numbers();
        return std::find(n.begin(), n.end(), number) != n.end();
    }
    static Logger* logger(const char* name) { return Logger::getRepository().getLogger(name); }
    static size_t openDescriptors() {
        size_t n = 0;
        for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
            (void)entry;
            ++n;
        }
        return n;
    }

    qztest::TempDir temp{"qzconfig"};
    qztest::FaultCollector faults;
    int files = 0;
};

// Element, attribute, class, parameter and level names in any case.
TEST_F(DOMConfiguratorTest, NamesMatchWithoutRegardToCase) {
    ASSERT_TRUE(load(
        "<CONFIGURATION><APPENDER NAME='caps' CLASS='fileappender'>"
        "<PARAM NAME='file' VALUE='" +
        out("caps") +
        "'/><Param Name='BUFFEREDIO' Value='FALSE'/>"
        "<LAYOUT CLASS='patternLAYOUT'><PARAM NAME='PATTERN' VALUE='%m%n'/></LAYOUT></APPENDER>"
        "<Logger Name='caps.l' ADDITIVITY='FALSE'><LEVEL VALUE='dEbUg'/><Appender-Ref NAME='caps'/>"
        "</Logger></CONFIGURATION>"));
    QZT_LOG(logger("caps.l"), Debug, "seen");
    EXPECT_EQ("seen\n", read("caps"));
    EXPECT_FALSE(logger("caps.l")->getAdditivity());
    EXPECT_TRUE(numbers().empty());
}

// Level names in any case, numbers 0..255, and everything else refused.
TEST_F(DOMConfiguratorTest, LevelsByNameOrNumber) {
    const struct {
        const char* text;
        unsigned char level;
        bool refused;
    } cases[] = {
        {"debug", Debug, false},     {"Warn", Warn, false}, {"OFF", Level::Off, false},
        {"inherit", Inherit, false}, {"0", 0, false},       {"191", Info, false},
        {"255", 255, false},         {"256", 0, true},      {"-1", 0, true},
        {"loud", 0, true},           {"", 0, true},         {"12x", 0, true},
    };
    auto refusals = [this] {
        const auto n = numbers();
        return std::count(n.begin(), n.end(), 1113u);
    };
    for (const auto& c : cases) {
        const auto before = refusals();
        EXPECT_EQ(c.level, DOMConfiguratorImpl::getLevel(c.text)) << c.text;
        EXPECT_EQ(c.refused ? 1 : 0, refusals() - before) << c.text;
    }
    EXPECT_EQ(0, DOMConfiguratorImpl::getLevel(nullptr));
}

// Every parameter of the file classes reaches the appender, with the
// defaults where none is given; "Append" is true only for "true".
TEST_F(DOMConfiguratorTest, FileAppenderParameters) {
    ASSERT_TRUE(load(
        "<c>"
        "<appender name='p.plain' class='FileAppender'><param name='File' value='" +
        out("plain") +
        "'/></appender>"
        "<appender name='p.set' class='FileAppender'><param name='File' value='" +
        out("set") +
        "'/><param name='Append' value='TRUE'/><param name='BufferedIO' value='false'/>"
        "<param name='BufferSize' value='65536'/></appender>"
        "<appender name='p.yes' class='FileAppender'><param name='File' value='" +
        out("yes") +
        "'/><param name='Append' value='yes'/></appender>"
        "<appender name='p.roll' class='RollingFileAppender'><param name='File' value='" +
        out("roll") +
        "'/><param name='MaxFileSize' value='2MB'/>"
        "<param name='MaxBackupIndex' value='5'/></appender>"
        "<appender name='p.rolldefault' class='RollingFileAppender'><param name='File' value='" +
        out("rolldefault") +
        "'/></appender>"
        "<appender name='p.daily' class='DailyRollingFileAppender'><param name='File' value='" +
        out("daily") +
        "'/><param name='DatePattern' value='-%Y'/></appender>"
        "</c>"));
    auto file = [](const char* name) {
        return dynamic_cast<FileAppender*>(Appender::findAppender(name));
    };
    ASSERT_TRUE(file("p.plain") && file("p.set") && file("p.yes") && file("p.daily"));
    EXPECT_FALSE(file("p.plain")->getAppend());
    EXPECT_TRUE(file("p.plain")->bufferedIO);
    EXPECT_EQ(4096u, file("p.plain")->bufferSize);
    EXPECT_TRUE(file("p.set")->getAppend());
    EXPECT_FALSE(file("p.set")->bufferedIO);
    EXPECT_EQ(65536u, file("p.set")->bufferSize);
    EXPECT_FALSE(file("p.yes")->getAppend());
    auto* roll = dynamic_cast<RollingFileAppender*>(Appender::findAppender("p.roll"));
    auto* rollDefault = dynamic_cast<RollingFileAppender*>(Appender::findAppender("p.rolldefault"));
    ASSERT_TRUE(roll && rollDefault);
    EXPECT_EQ(2u << 20, roll->getMaxFileSize());
    EXPECT_EQ(5u, roll->getMaxBackupIndex());
    EXPECT_EQ(0x7D000000u, rollDefault->getMaxFileSize());
    EXPECT_EQ(1u, rollDefault->getMaxBackupIndex());
    auto* daily = dynamic_cast<DailyRollingFileAppender*>(Appender::findAppender("p.daily"));
    ASSERT_TRUE(daily);
    EXPECT_EQ("-%Y", daily->datePattern);
    EXPECT_TRUE(daily->getAppend());
    EXPECT_TRUE(numbers().empty());
}

// "Append" decides whether lines already in the file stay: "TRUE" keeps
// them, "yes" and no value at all start the file afresh.
TEST_F(DOMConfiguratorTest, AppendKeepsOrTruncatesTheFile) {
    const struct {
        const char* name;
        const char* append; // null: no parameter
        bool kept;
    } cases[] = {{"ap.upper", "TRUE", true}, {"ap.yes", "yes", false}, {"ap.none", nullptr, false}};
    for (const auto& c : cases) {
        qztest::writeFile(out(c.name), "old\n");
        const std::string param =
            c.append ? std::string("<param name='Append' value='") + c.append + "'/>"
                     : std::string();
        ASSERT_TRUE(load("<c>" + fileAppender(c.name, param) + "<logger name='" + c.name +
                         "'><level value='INFO'/><appender-ref name='" + c.name +
                         "'/></logger></c>"));
        QZT_LOG(logger(c.name), Info, "new");
        EXPECT_EQ(c.kept ? "old\nnew\n" : "new\n", read(c.name)) << c.name;
    }
}

// A small MaxFileSize rolls into at most MaxBackupIndex backups.
TEST_F(DOMConfiguratorTest, RollingParametersRollTheFile) {
    ASSERT_TRUE(load(
        "<c><appender name='roller' class='RollingFileAppender'>"
        "<param name='File' value='" +
        out("roller") +
        "'/><param name='BufferedIO' value='false'/>"
        "<param name='MaxFileSize' value='1KB'/><param name='MaxBackupIndex' value='2'/>"
        "<layout class='PatternLayout'/></appender>"
        "<logger name='roller'><level value='info'/><appender-ref name='roller'/></logger></c>"));
    const std::string line(100, 'x');
    for (int i = 0; i < 60; ++i)
        QZT_LOG(logger("roller"), Info, "%s", line.c_str());
    EXPECT_EQ(0, ::access(out("roller").c_str(), F_OK));
    EXPECT_EQ(0, ::access((out("roller") + ".2").c_str(), F_OK));
    EXPECT_NE(0, ::access((out("roller") + ".3").c_str(), F_OK));
    EXPECT_LE(qztest::readFile(out("roller") + ".1").size(), 1024u);
    // A layout with no Pattern lays out "%m%n".
    EXPECT_EQ(line + "\n", qztest::readFile(out("roller")).substr(0, line.size() + 1));
}

// The date pattern is added to the file name.
TEST_F(DOMConfiguratorTest, DailyFileNameCarriesTheDatePattern) {
    ASSERT_TRUE(load(
        "<c><appender name='daily' class='DailyRollingFileAppender'>"
        "<param name='File' value='" +
        out("daily") +
        "'/><param name='DatePattern' value='-fixed'/>"
        "<param name='BufferedIO' value='false'/></appender>"
        "<logger name='daily'><level value='info'/><appender-ref name='daily'/></logger></c>"));
    QZT_LOG(logger("daily"), Info, "dated");
    EXPECT_NE(std::string::npos, qztest::readFile(out("daily") + "-fixed").find("dated"));
}

// Each filter class with its AcceptOnMatch rule. The messages name their
// level; a chain that ends neutral lets the event through.
TEST_F(DOMConfiguratorTest, FiltersDecideByTheirRules) {
    const std::string thread = Logger::getRepository().getThreadName();
    const struct {
        const char* name;
        std::string filters;
        const char* written;
    } cases[] = {
        {"f.match",
         "<filter class='LevelMatchFilter'><param name='LevelToMatch' value='INFO'/></filter>"
         "<filter class='DenyAllFilter'/>",
         "i keep\n"},
        {"f.matchdeny",
         "<filter class='LevelMatchFilter'><param name='LevelToMatch' value='info'/>"
         "<param name='AcceptOnMatch' value='yes'/></filter>",
         "d\nw drop\ne\nf\n"},
        {"f.range",
         "<filter class='LevelRangeFilter'><param name='LevelToMatchMin' value='INFO'/>"
         "<param name='LevelToMatchMax' value='ERROR'/><param name='AcceptOnMatch' value='True'/>"
         "</filter><filter class='DenyAllFilter'/>",
         "i keep\nw drop\ne\n"},
        // "false" is neutral for a range: matches go on to the next filter
        // (denied here, passed at the end of a chain), the rest is denied.
        {"f.rangeneutral",
         "<filter class='LevelRangeFilter'><param name='LevelToMatchMin' value='INFO'/>"
         "<param name='LevelToMatchMax' value='ERROR'/><param name='AcceptOnMatch' "
         "value='false'/></filter><filter class='DenyAllFilter'/>",
         ""},
        {"f.rangeend",
         "<filter class='LevelRangeFilter'><param name='LevelToMatchMin' value='INFO'/>"
         "<param name='LevelToMatchMax' value='ERROR'/><param name='AcceptOnMatch' value='false'/>"
         "</filter>",
         "i keep\nw drop\ne\n"},
        {"f.string",
         "<filter class='StringMatchFilter'><param name='StringToMatch' value='keep'/></filter>"
         "<filter class='DenyAllFilter'/>",
         "i keep\n"},
        {"f.stringdeny",
         "<filter class='StringMatchFilter'><param name='StringToMatch' value='drop'/>"
         "<param name='AcceptOnMatch' value='false'/></filter>",
         "d\ni keep\ne\nf\n"},
        {"f.thread",
         "<filter class='ThreadNameMatchFilter'><param name='StringToMatch' value='" + thread +
             "'/><param name='AcceptOnMatch' value='false'/></filter>",
         ""},
        {"f.otherthread",
         "<filter class='ThreadNameMatchFilter'><param name='StringToMatch' value='nosuchthread'/>"
         "<param name='AcceptOnMatch' value='false'/></filter>",
         "d\ni keep\nw drop\ne\nf\n"},
        {"f.denyall", "<filter class='denyallfilter'/>", ""},
    };
    ASSERT_FALSE(thread.empty());
    for (const auto& c : cases) {
        ASSERT_TRUE(load("<c>" + fileAppender(c.name, c.filters) + "<logger name='" + c.name +
                         "'><level value='ALL'/><appender-ref name='" + c.name +
                         "'/></logger></c>"))
            << c.name;
        Logger* l = logger(c.name);
        QZT_LOG(l, Debug, "d");
        QZT_LOG(l, Info, "i keep");
        QZT_LOG(l, Warn, "w drop");
        QZT_LOG(l, Error, "e");
        QZT_LOG(l, Fatal, "f");
        EXPECT_EQ(c.written, read(c.name)) << c.name;
    }
    EXPECT_TRUE(numbers().empty());
}

// Appender thresholds and "enabled" (only "false", in any case, disables).
TEST_F(DOMConfiguratorTest, ThresholdAndEnabled) {
    ASSERT_TRUE(load(
        "<c>" + fileAppender("t.high", "<level value='ERROR'/>") +
        "<appender name='t.off' class='FileAppender' enabled='FALSE'><param name='File' value='" +
        out("t.off") +
        "'/><param name='BufferedIO' value='false'/></appender>"
        "<appender name='t.no' class='FileAppender' enabled='no'><param name='File' value='" +
        out("t.no") +
        "'/><param name='BufferedIO' value='false'/></appender>"
        "<logger name='t'><level value='DEBUG'/><appender-ref name='t.high'/>"
        "<appender-ref name='t.off'/><appender-ref name='t.no'/></logger></c>"));
    QZT_LOG(logger("t"), Info, "info");
    QZT_LOG(logger("t"), Error, "error");
    EXPECT_EQ("error\n", read("t.high"));
    EXPECT_EQ("", read("t.off"));
    EXPECT_EQ("info\nerror\n", read("t.no"));
}

// Additivity, the root (whatever name it is given), and the repository
// threshold of a document "level".
TEST_F(DOMConfiguratorTest, AdditivityRootAndRepositoryThreshold) {
    ASSERT_TRUE(
        load("<c>" + fileAppender("a.root") + fileAppender("a.parent") + fileAppender("a.alone") +
             "<logger name='a'><appender-ref name='a.parent'/></logger>"
             "<logger name='a.joined' additivity='true'/>"
             "<logger name='a.alone' additivity='False'><appender-ref name='a.alone'/></logger>"
             "<root name='ignored'><level value='INFO'/><appender-ref name='a.root'/></root></c>"));
    QZT_LOG(logger("a.joined"), Info, "joined");
    QZT_LOG(logger("a.joined"), Debug, "below root");
    QZT_LOG(logger("a.alone"), Info, "alone");
    QZT_LOG(logger("elsewhere"), Warn, "elsewhere");
    EXPECT_EQ("joined\nelsewhere\n", read("a.root"));
    EXPECT_EQ("joined\n", read("a.parent"));
    EXPECT_EQ("alone\n", read("a.alone"));
    EXPECT_EQ(Info, Logger::getRepository().getRootLogger()->getLevel());

    // A file with only a level sets the floor under every logger and adds
    // nothing.
    ASSERT_TRUE(load("<c><level value='error'/></c>"));
    EXPECT_EQ(Error, Logger::getRepository().getThreshold());
    QZT_LOG(logger("a.alone"), Warn, "under the floor");
    QZT_LOG(logger("a.alone"), Error, "over it");
    EXPECT_EQ("alone\nover it\n", read("a.alone"));
    EXPECT_EQ(1u, logger("a.alone")->getAllAppenders().size());
}

// Appenders apply before loggers wherever they stand; a second appender of
// a name replaces the first, in this file and from a later one, and the
// loggers that held the old one write to the new one.
TEST_F(DOMConfiguratorTest, AppendersByNameAcrossElementsAndFiles) {
    ASSERT_TRUE(
        load("<c><logger name='n'><level value='INFO'/><appender-ref name='n.late'/></logger>" +
             fileAppender("n.late", "", "first %m%n") + fileAppender("n.late", "", "second %m%n") +
             "</c>"));
    QZT_LOG(logger("n"), Info, "one");
    EXPECT_EQ("second one\n", read("n.late"));
    EXPECT_EQ(1u, logger("n")->getAllAppenders().size());

    // From a later file: the same name, another pattern, no logger named.
    ASSERT_TRUE(load("<c>" + fileAppender("n.late", "", "third %m%n") + "</c>"));
    QZT_LOG(logger("n"), Info, "two");
    EXPECT_EQ("third two\n", read("n.late"));

    // A reference to an appender of an earlier file.
    ASSERT_TRUE(load(
        "<c><logger name='other'><level value='INFO'/><appender-ref name='n.late'/></logger></c>"));
    QZT_LOG(logger("other"), Info, "three");
    EXPECT_EQ("third two\nthird three\n", read("n.late"));
    EXPECT_TRUE(numbers().empty());
}

// A file applied twice (as a watch does) writes each event once.
TEST_F(DOMConfiguratorTest, ReapplyingAFileDoesNotWriteTwice) {
    const std::string file = write("twice.xml", "<c>" + fileAppender("twice") +
                                                    "<logger name='twice'><level value='INFO'/>"
                                                    "<appender-ref name='twice'/></logger></c>");
    DOMConfigurator configurator;
    ASSERT_TRUE(configurator.configure(file.c_str()));
    ASSERT_TRUE(configurator.configure(file.c_str()));
    QZT_LOG(logger("twice"), Info, "once");
    EXPECT_EQ("once\n", read("twice"));
}

// Past bug: a reload deleted the buffered file appender it replaced without
// closing it, so its pending lines were lost and its descriptor leaked.
TEST_F(DOMConfiguratorTest, ReplacedAppenderIsClosedFirst) {
    const std::string body =
        "<c><appender name='buffered' class='FileAppender'><param name='File' value='" +
        out("buffered") +
        "'/><param name='Append' value='true'/></appender>"
        "<logger name='buffered'><level value='INFO'/><appender-ref name='buffered'/>"
        "</logger></c>";
    ASSERT_TRUE(load(body));
    QZT_LOG(logger("buffered"), Info, "before");
    const size_t descriptors = openDescriptors();
    for (int i = 0; i < 4; ++i) {
        ASSERT_TRUE(load(body));
        QZT_LOG(logger("buffered"), Info, "%d", i);
    }
    EXPECT_EQ(descriptors, openDescriptors());
    EXPECT_EQ("before\n0\n1\n2\n", read("buffered"));
}

// Only "reset" = "true" (in any case) clears what earlier files set.
TEST_F(DOMConfiguratorTest, ResetOnlyWhenTrue) {
    const struct {
        const char* value;
        bool cleared;
    } cases[] = {{"true", true}, {"TRUE", true}, {"false", false}, {"yes", false}, {"", false}};
    for (const auto& c : cases) {
        ASSERT_TRUE(load("<c>" + fileAppender("r.kept") +
                         "<logger name='r.kept'><level value='DEBUG'/><appender-ref "
                         "name='r.kept'/></logger></c>"));
        ASSERT_TRUE(load(std::string("<c reset='") + c.value +
                         "'><logger name='r.new'><level value='ERROR'/></logger></c>"));
        EXPECT_EQ(c.cleared ? Inherit : Debug, logger("r.kept")->getLevel()) << c.value;
        EXPECT_EQ(c.cleared ? 0u : 1u, logger("r.kept")->getAllAppenders().size()) << c.value;
        EXPECT_EQ(Error, logger("r.new")->getLevel()) << c.value;
    }
}

// Each fault in a file gives its message. A fault that stops the load
// leaves what came before it applied (the appender "keep") and the loggers
// unset; one that does not lets the logger be set.
TEST_F(DOMConfiguratorTest, FaultsGiveTheirMessage) {
    const std::string bin = "<layout class='BinaryLayout'/>";
    const struct {
        const char* name;
        std::string appender; // the element under test, after "keep"
        unsigned int number;
        bool ok;
    } cases[] = {
        {"no class", "<appender name='x'/>", 1113, false},
        {"param without value",
         "<appender name='x' class='FileAppender'><param name='File'/></appender>", 1113, false},
        {"param with empty value",
         "<appender name='x' class='FileAppender'><param name='File' value=''/></appender>", 1113,
         false},
        {"param without name",
         "<appender name='x' class='FileAppender'><param value='a'/></appender>", 1113, false},
        {"bad level", "<appender name='x' class='ConsoleAppender'><level value='loud'/></appender>",
         1113, true},
        {"bad number",
         "<appender name='x' class='FileAppender'><param name='BufferSize' value='4k'/></appender>",
         1113, true},
        {"layout without class", "<appender name='x' class='ConsoleAppender'><layout/></appender>",
         1113, false},
        {"filter without class", "<appender name='x' class='ConsoleAppender'><filter/></appender>",
         1113, false},
        {"unknown class", "<appender name='x' class='NoSuchAppender'/>", 1536, false},
        {"host on local syslog",
         "<appender name='x' class='SyslogAppender'><param name='SyslogHost' "
         "value='127.0.0.1'/></appender>",
         1537, false},
        {"bad facility",
         "<appender name='x' class='RemoteSyslogAppender'><param name='Facility' "
         "value='kern'/></appender>",
         1113, true},
        {"console parameter",
         "<appender name='x' class='ConsoleAppender'><param name='File' value='a'/></appender>",
         1537, false},
        {"rolling parameter on plain file",
         "<appender name='x' class='FileAppender'><param name='MaxFileSize' "
         "value='1MB'/></appender>",
         1537, false},
        {"unknown layout",
         "<appender name='x' class='ConsoleAppender'><layout class='XMLLayout'/></appender>", 1538,
         false},
        {"layout parameter",
         "<appender name='x' class='ConsoleAppender'><layout class='PatternLayout'>"
         "<param name='ConversionPattern' value='%m'/></layout></appender>",
         1539, false},
        {"binary parameter",
         "<appender name='x' class='FileAppender'><layout class='BinaryLayout'>"
         "<param name='Pattern' value='%m'/></layout></appender>",
         1539, false},
        {"unknown filter",
         "<appender name='x' class='ConsoleAppender'><filter class='RegexFilter'/></appender>",
         1540, false},
        {"filter parameter",
         "<appender name='x' class='ConsoleAppender'><filter class='DenyAllFilter'>"
         "<param name='AcceptOnMatch' value='true'/></filter></appender>",
         1541, false},
        {"small binary file",
         "<appender name='x' class='RollingFileAppender'><param name='File' value='" +
             out("small") + "'/><param name='MaxFileSize' value='64KB'/>" + bin + "</appender>",
         1730, true},
        {"binary with filter",
         "<appender name='x' class='FileAppender'><param name='File' value='" + out("bf") + "'/>" +
             bin + "<filter class='DenyAllFilter'/></appender>",
         1731, false},
        {"unknown element", "<apender name='x'/>", 1527, true},
        {"dangling reference", "", 1526, true},
    };
    for (const auto& c : cases) {
        qztest::resetLogging();
        const size_t before = faults.count();
        const std::string keep = std::string("keep.") + c.name;
        const bool ok = load("<c>" + fileAppender(keep) + c.appender +
                             "<logger name='faulty'><level value='DEBUG'/><appender-ref name='" +
                             keep + "'/><appender-ref name='nosuch'/></logger></c>");
        EXPECT_EQ(c.ok, ok) << c.name;
        const auto all = faults.faults();
        std::vector<unsigned int> raised;
        for (size_t i = before; i < all.size(); ++i)
            if (all[i].number != 1526 || c.number == 1526)
                raised.push_back(all[i].number);
        EXPECT_EQ(std::vector<unsigned int>{c.number}, raised) << c.name;
        EXPECT_NE(nullptr, Appender::findAppender(keep.c_str())) << c.name;
        EXPECT_EQ(c.ok ? Debug : Inherit, logger("faulty")->getLevel()) << c.name;
        EXPECT_EQ(c.ok ? 1u : 0u, logger("faulty")->getAllAppenders().size()) << c.name;
    }
}

// A message names the file and, from the parser, the line of the fault.
TEST_F(DOMConfiguratorTest, ParseFaultNamesTheLine) {
    const std::string file = write("broken.xml", "<c>\n<logger name='x'>\n</c>\n");
    DOMConfigurator configurator;
    EXPECT_FALSE(configurator.configure(file.c_str()));
    const auto all = faults.faults();
    ASSERT_EQ(1u, all.size());
    EXPECT_EQ(1534u, all[0].number);
    EXPECT_EQ(0u, all[0].arguments.find("3, ")) << all[0].arguments;
    EXPECT_NE(std::string::npos, all[0].text.find(file)) << all[0].text;
}

// Input that must not be trusted: each is refused with a message, applies
// nothing of itself, and the set-up loaded before stays.
TEST_F(DOMConfiguratorTest, HostileInputLeavesTheSetUpAlone) {
    // An external entity or DTD that would be applied if it were read.
    const std::string leak = "<logger name='leak'><level value='FATAL'/></logger>";
    write("outside.xml", leak);
    write("outside.dtd", "<!ENTITY inner \"" + leak + "\">");
    std::string laughs = "<?xml version='1.0'?><!DOCTYPE c [<!ENTITY l0 'ha'>";
    for (int i = 1; i < 12; ++i)
        laughs += "<!ENTITY l" + std::to_string(i) + " '" + std::string("&l") +
                  std::to_string(i - 1) + ";" + std::string("&l") + std::to_string(i - 1) + ";&l" +
                  std::to_string(i - 1) + ";'>";
    laughs += "]><c><logger name='leak'><level value='&l11;'/></logger></c>";
    const struct {
        const char* name;
        std::string body;
        bool refused;
    } cases[] = {
        {"not xml", "logging: on\n", true},
        {"binary",
         std::string("\x7f"
                     "ELF\x02\x01\x00\xff\xfe<c>\x00\x01",
                     14),
         true},
        {"empty", "", true},
        {"only a comment", "<!-- nothing -->", true},
        {"attribute without value", "<c><logger name><level value='FATAL'/></logger></c>", true},
        {"entity bomb", laughs, true},
        {"external entity",
         "<!DOCTYPE c [<!ENTITY ext SYSTEM '" + temp.path("outside.xml") + "'>]><c>&ext;</c>",
         false},
        {"external dtd", "<!DOCTYPE c SYSTEM '" + temp.path("outside.dtd") + "'><c>&inner;</c>",
         false},
    };
    for (const auto& c : cases) {
        qztest::resetLogging();
        ASSERT_TRUE(load(
            "<c>" + fileAppender("prev") +
            "<logger name='prev'><level value='INFO'/><appender-ref name='prev'/></logger></c>"));
        const size_t before = faults.count();
        const bool ok = load(c.body);
        if (c.refused) {
            EXPECT_FALSE(ok) << c.name;
            EXPECT_LT(before, faults.count()) << c.name;
            EXPECT_TRUE(raised(1534)) << c.name;
        }
        EXPECT_EQ(Inherit, logger("leak")->getLevel()) << c.name;
        EXPECT_EQ(Info, logger("prev")->getLevel()) << c.name;
        EXPECT_EQ(1u, logger("prev")->getAllAppenders().size()) << c.name;
    }
}

// A file over the size cap is refused before it is read (a sparse file, so
// that nothing large is written).
TEST_F(DOMConfiguratorTest, OversizedFileIsRefusedUnread) {
    const std::string file =
        write("huge.xml", "<c><logger name='huge'><level value='FATAL'/></logger></c><!--");
    ASSERT_EQ(0, ::truncate(file.c_str(), DOMConfiguratorImpl::MaxFileSize + 1));
    DOMConfigurator configurator;
    EXPECT_FALSE(configurator.configure(file.c_str()));
    const auto all = faults.faults();
    ASSERT_EQ(1u, all.size());
    EXPECT_EQ(1534u, all[0].number);
    EXPECT_EQ(0u, all[0].arguments.find("0, ")) << all[0].arguments;
    EXPECT_EQ(std::string::npos, all[0].text.find("at line")) << all[0].text;
    EXPECT_EQ(Inherit, logger("huge")->getLevel());
}

// The first of a list that is found is applied; none found is false and
// says nothing; a directory is not a file.
TEST_F(DOMConfiguratorTest, FirstFoundOfAList) {
    const std::string second =
        write("second.xml", "<c><logger name='list'><level value='WARN'/></logger></c>");
    const std::string third =
        write("third.xml", "<c><logger name='list'><level value='ERROR'/></logger></c>");
    const std::string missing = temp.path("missing.xml");
    const char* names[] = {missing.c_str(), second.c_str(), third.c_str()};
    DOMConfigurator configurator;
    EXPECT_TRUE(configurator.configure(names, 3));
    EXPECT_EQ(Warn, logger("list")->getLevel());
    EXPECT_FALSE(configurator.configure(names, 1));
    EXPECT_TRUE(numbers().empty());
    EXPECT_FALSE(configurator.configure(temp.dir.c_str()));
    EXPECT_EQ(std::vector<unsigned int>{1534}, numbers());
}

// A watch period of 0 is refused and ends the process.
TEST_F(DOMConfiguratorTest, WatchingWithoutAnIntervalEndsTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const std::string file = write("zero.xml", "<c/>");
    EXPECT_EXIT(
        {
            DOMConfigurator configurator;
            configurator.configureAndWatch(file.c_str(), 0);
        },
        ::testing::ExitedWithCode(12), "");
}

// The standard logger names in their dotted form.
TEST(LoggerNames, UnderscoresBecomeDots) {
    const struct {
        const char* name;
        const char* dotted;
    } cases[] = {{"qzlog_std_utility", "qzlog.std.utility"},
                 {"qzlog_std_application_calltrace", "qzlog.std.application.calltrace"},
                 {"plain", "plain"},
                 {"_edge_", ".edge."},
                 {"", ""}};
    for (const auto& c : cases)
        EXPECT_STREQ(c.dotted, getLoggerName(c.name));
    EXPECT_STREQ("", getLoggerName(nullptr));
}

} // namespace
