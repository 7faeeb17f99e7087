//===- tests/integration/SyslogTest.cpp - Events to a syslog collector ----===//
//
// Datagrams go to a real collector on loopback (rsyslogd, or a socket of
// our own where it cannot start), which must parse every field. The local
// path is caught by this binary's own openlog/syslog/closelog, which the
// library binds to when linked into it, so no test depends on the machine's
// syslog daemon.
//
//===----------------------------------------------------------------------===//
#include "CaptureAppender.h"
#include "FaultCollector.h"
#include "SyslogCollector.h"
#include "TempDir.h"

#include "qzlog/LogMacros.h"
#include "qzlog/SyslogAppender.h"
#include "qzlog/config/DOMConfigurator.h"
#include "qzmsg/CAppContext.h"

#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdio>
#include <memory>
#include <mutex>
#include <regex>
#include <set>
#include <string>
#include <vector>

using namespace qzs::qzlib::qzlog;
using qzs::qzlib::getAppContextText;

//===-- The local system log, as this binary sees it -----------------------===//

namespace {
struct LocalLog {
    std::mutex mutex;
    std::vector<std::pair<int, std::string>> entries;
    std::string ident;
    int option = -1, facility = -1, closes = 0;
};
LocalLog& localLog() {
    static LocalLog log;
    return log;
}
void record(int priority, const char* format, va_list args) {
    char text[4096];
    std::vsnprintf(text, sizeof text, format, args);
    std::lock_guard<std::mutex> guard(localLog().mutex);
    localLog().entries.emplace_back(priority, text);
}
} // namespace

extern "C" {
void openlog(const char* ident, int option, int facility) {
    std::lock_guard<std::mutex> guard(localLog().mutex);
    localLog().ident = ident ? ident : "(null)";
    localLog().option = option;
    localLog().facility = facility;
}
void closelog() {
    std::lock_guard<std::mutex> guard(localLog().mutex);
    ++localLog().closes;
}
void syslog(int priority, const char* format, ...) {
    va_list args;
    va_start(args, format);
    record(priority, format, args);
    va_end(args);
}
// Where the headers fortify syslog.
void __syslog_chk(int priority, int, const char* format, ...) {
    va_list args;
    va_start(args, format);
    record(priority, format, args);
    va_end(args);
}
}

namespace {

const std::string kBOM = "\xEF\xBB\xBF";

std::vector<std::pair<int, std::string>> takeLocal() {
    std::lock_guard<std::mutex> guard(localLog().mutex);
    auto out = std::move(localLog().entries);
    localLog().entries.clear();
    return out;
}

class SyslogTest : public ::testing::Test {
protected:
    void SetUp() override {
        qztest::resetLogging();
        takeLocal();
    }
    void TearDown() override {
        qztest::resetLogging();
        appenders.clear();
    }

    // An appender on `host` (local when it gives no target), the only one
    // of logger `name`, which logs everything. The fixture owns it and
    // detaches it before it goes.
    SyslogAppender& attach(const char* name, const std::string& host,
                           SyslogAppender::Facility facility = SyslogAppender::Application) {
        appenders.emplace_back(new SyslogAppender(name));
        SyslogAppender& appender = *appenders.back();
        appender.setSyslogHost(host.c_str());
        appender.setFacility(facility);
        Logger* logger = Logger::getRepository().getLogger(name);
        logger->setAdditivity(false);
        logger->addAppender(appender);
        logger->setLevel(Level::All);
        return appender;
    }
    static Logger* logger(const char* name) { return Logger::getRepository().getLogger(name); }

    // Starts rsyslogd, saying so when it cannot and the socket stands in.
    static void startCollector(qztest::SyslogCollector& collector) {
        std::string why;
        collector.start(true, why);
        if (!collector.isRsyslog())
            std::printf("rsyslogd not used (%s): checking against a UDP socket of the test's own\n",
                        why.c_str());
    }

    std::vector<std::unique_ptr<SyslogAppender>> appenders;
};

bool isTimeText(const std::string& text) {
    static const std::regex form(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3,4}[+-]\d\d:\d\d)");
    return std::regex_match(text, form);
}

// Every level and both facilities through the collector, which must find
// each header field and the structured data where they belong.
TEST_F(SyslogTest, CollectorParsesEveryFieldAtEachLevelAndFacility) {
    qztest::SyslogCollector collector;
    startCollector(collector);
    SyslogAppender& appender = attach("qztest.syslog.fields", collector.hostText());
    Logger* log = logger("qztest.syslog.fields");
    ASSERT_NE(nullptr, appender.target);

    const struct {
        unsigned char level;
        int severity;
    } levels[] = {{254, 1}, {239, 3}, {223, 4}, {191, 6}, {143, 7}, {100, 7}};
    std::vector<int> expected;
    const int line = __LINE__ + 6;
    for (auto facility : {SyslogAppender::Application, SyslogAppender::Security}) {
        appender.setFacility(facility);
        for (const auto& l : levels) {
            const int pri = l.severity | (facility == SyslogAppender::Security ? 80 : 8);
            expected.push_back(pri);
            QZ_LOG(log, l.level, "level %d to priority %d", static_cast<int>(l.level), pri);
        }
    }
    const auto records = collector.take(expected.size());
    ASSERT_EQ(expected.size(), records.size());
    for (size_t i = 0; i < records.size(); ++i) {
        const auto& r = records[i];
        EXPECT_EQ(std::to_string(expected[i]), r.pri);
        EXPECT_EQ("1", r.version);
        EXPECT_TRUE(isTimeText(r.time)) << r.time;
        EXPECT_EQ(getAppContextText("ProcessHostName"), r.host);
        EXPECT_EQ(getAppContextText("ProcessExecutableBase"), r.app);
        EXPECT_EQ(getAppContextText("ProcessID"), r.procid);
        EXPECT_EQ(
            "[qzlog@" + r.msgid +
                " category=\"qztest.syslog.fields\" thread=\"main\" method=\"TestBody\" module=\"" +
                __FILE__ + "\" line=\"" + std::to_string(line) + "\"]",
            r.sd);
        EXPECT_EQ(kBOM + "level " + std::to_string(levels[i % 6].level) + " to priority " +
                      std::to_string(expected[i]),
                  r.msg);
        if (i > 0) {
            EXPECT_LT(std::stoul(records[i - 1].msgid), std::stoul(r.msgid));
        }
    }
}

// The datagram byte for byte, and its priority prefix by level and facility.
TEST_F(SyslogTest, DatagramBytesAndPriorities) {
    qztest::SyslogCollector socket;
    std::string unused;
    socket.start(false, unused);
    SyslogAppender& appender = attach("qztest.syslog.bytes", socket.hostText());
    Logger* log = logger("qztest.syslog.bytes");
    appender.setLayout(new PatternLayout("%p: %m"));

    const struct {
        SyslogAppender::Facility facility;
        unsigned char level;
        const char* prefix;
    } rows[] = {
        {SyslogAppender::Application, Level::Info, "<14>1 "},
        {SyslogAppender::Security, Level::Error, "<83>1 "},
        {SyslogAppender::Security, 255, "<87>1 "},
    };
    for (const auto& r : rows) {
        appender.setFacility(r.facility);
        const int line = __LINE__ + 1;
        QZ_LOG(log, r.level, "text %s", "é");
        std::vector<std::string> raw;
        ASSERT_EQ(1u, socket.take(1, std::chrono::seconds(10), &raw).size()) << r.prefix;
        const std::string& d = raw[0];
        // Time and sequence are the event's own: read them, then hold the
        // whole datagram to the form.
        const auto rec = qztest::parseSyslogDatagram(d);
        const std::string expected =
            r.prefix + rec.time + " " + getAppContextText("ProcessHostName") + " " +
            getAppContextText("ProcessExecutableBase") + " " + getAppContextText("ProcessID") +
            " " + rec.msgid + " [qzlog@" + rec.msgid +
            " category=\"qztest.syslog.bytes\" thread=\"main\" method=\"TestBody\" module=\"" +
            __FILE__ + "\" line=\"" + std::to_string(line) + "\"] " + kBOM +
            Level::getName(r.level) + ": text é";
        EXPECT_EQ(expected, d);
        EXPECT_TRUE(isTimeText(rec.time)) << rec.time;
    }
    for (unsigned level = 0; level < 256; ++level) {
        const int want = level == 254   ? 1
                         : level == 239 ? 3
                         : level == 223 ? 4
                         : level == 191 ? 6
                                        : 7;
        EXPECT_EQ(want, SyslogAppender::getSeverity(static_cast<unsigned char>(level))) << level;
    }
}

// Names with quotes and newlines are sent as they are, in one datagram.
TEST_F(SyslogTest, UnescapedNamesStayOneDatagram) {
    qztest::SyslogCollector socket;
    std::string unused;
    socket.start(false, unused);
    attach("qztest.sys\"log\nname]", socket.hostText());
    Logger* log = logger("qztest.sys\"log\nname]");
    QZ_INFO(log, "first");
    QZ_INFO(log, "second");
    std::vector<std::string> raw;
    ASSERT_EQ(2u, socket.take(2, std::chrono::seconds(10), &raw).size());
    EXPECT_NE(std::string::npos, raw[0].find(" category=\"qztest.sys\"log\nname]\" thread="))
        << raw[0];
    EXPECT_EQ(kBOM + "first", raw[0].substr(raw[0].size() - 8));
    EXPECT_EQ(kBOM + "second", raw[1].substr(raw[1].size() - 9));
}

// Host and service from the host text, and what resolves to a target.
TEST_F(SyslogTest, HostTextAndTargets) {
    const struct {
        const char* text;
        const char* host;
        const char* service;
    } rows[] = {
        {"loghost:1514", "loghost", "1514"},
        {"loghost", "loghost", "syslog"},
        {"loghost:", "loghost", "syslog"},
        {":1514", "", "1514"},
        {"a:b:c", "a", "b:c"},
        {"", "", "syslog"},
    };
    for (const auto& r : rows) {
        std::string host = "x", service = "x";
        NetworkTargetUDP::getAddrinfo(r.text, host, service);
        EXPECT_EQ(r.host, host) << r.text;
        EXPECT_EQ(r.service, service) << r.text;
    }
    std::unique_ptr<NetworkTargetUDP> byName(NetworkTargetUDP::Create("127.0.0.1"));
    ASSERT_NE(nullptr, byName) << "the service \"syslog\" (netbase) is needed";
    sockaddr_in peer{};
    socklen_t size = sizeof peer;
    ASSERT_EQ(0, ::getpeername(byName->socket, reinterpret_cast<sockaddr*>(&peer), &size));
    EXPECT_EQ(514, ntohs(peer.sin_port));
    std::unique_ptr<NetworkTargetUDP> byPort(NetworkTargetUDP::Create("localhost:1514"));
    ASSERT_NE(nullptr, byPort);
    ASSERT_EQ(0, ::getpeername(byPort->socket, reinterpret_cast<sockaddr*>(&peer), &size));
    EXPECT_EQ(1514, ntohs(peer.sin_port));
    EXPECT_EQ(nullptr, NetworkTargetUDP::Create("127.0.0.1:no-such-service"));
}

// Without a target, events go to the local log, with the process's name
// and the priority of level and facility; an unresolvable host, or a host
// removed, leaves no target.
TEST_F(SyslogTest, LocalLogWhenNoTarget) {
    SyslogAppender& appender =
        attach("qztest.syslog.local", "127.0.0.1:no-such-service", SyslogAppender::Security);
    Logger* log = logger("qztest.syslog.local");
    {
        std::lock_guard<std::mutex> guard(localLog().mutex);
        EXPECT_EQ(getAppContextText("ProcessExecutableBase"), localLog().ident);
        EXPECT_EQ(1, localLog().option);
        EXPECT_EQ(8, localLog().facility);
    }
    EXPECT_EQ(nullptr, appender.target);
    EXPECT_EQ("127.0.0.1:no-such-service", appender.getSyslogHost());
    QZ_ERROR(log, "local %d", 5);
    appender.setFacility(SyslogAppender::Application);
    appender.setSyslogHost(nullptr);
    QZ_INFO(log, "  trimmed  ");
    const auto entries = takeLocal();
    ASSERT_EQ(2u, entries.size());
    EXPECT_EQ(83, entries[0].first);
    EXPECT_EQ("local 5", entries[0].second);
    EXPECT_EQ(14, entries[1].first);
    EXPECT_EQ("trimmed", entries[1].second);
    const int closes = localLog().closes;
    appender.close();
    EXPECT_EQ(closes + 1, localLog().closes);
    appender.append("bytes", 5); // binary data is ignored
    EXPECT_TRUE(takeLocal().empty());
}

// A collector that is not listening refuses datagrams; the appender shrugs
// and goes on, and the next host it is given gets every event.
TEST_F(SyslogTest, PortNobodyListensOn) {
    qztest::SyslogCollector closed;
    std::string unused;
    closed.start(false, unused);
    const std::string deadHost = closed.hostText();
    closed.stop();
    SyslogAppender& appender = attach("qztest.syslog.refused", deadHost);
    Logger* log = logger("qztest.syslog.refused");
    ASSERT_NE(nullptr, appender.target);
    for (int i = 0; i < 50; ++i)
        QZ_INFO(log, "nobody hears %d", i);
    qztest::SyslogCollector live;
    live.start(false, unused);
    appender.setSyslogHost(live.hostText().c_str());
    QZ_INFO(log, "heard");
    const auto records = live.take(1, std::chrono::seconds(10));
    ASSERT_EQ(1u, records.size());
    EXPECT_EQ(kBOM + "heard", records[0].msg);
    EXPECT_TRUE(takeLocal().empty());
}

// A burst of 1,000 events reaches the collector whole and in order.
TEST_F(SyslogTest, NoDatagramLostAtAThousandEvents) {
    qztest::SyslogCollector collector;
    startCollector(collector);
    attach("qztest.syslog.burst", collector.hostText());
    Logger* log = logger("qztest.syslog.burst");
    for (int i = 0; i < 1000; ++i)
        QZ_INFO(log, "burst %d", i);
    const auto records = collector.take(1000, std::chrono::seconds(30));
    ASSERT_EQ(1000u, records.size());
    std::set<std::string> texts;
    for (const auto& r : records)
        texts.insert(r.msg);
    EXPECT_EQ(1000u, texts.size());
}

// Both classes from a logging file, each working: the remote one to the
// collector, the local one to the local log.
TEST_F(SyslogTest, LoggingFileBuildsBothClasses) {
    qztest::SyslogCollector collector;
    startCollector(collector);
    qztest::TempDir temp("qzsyslog");
    const std::string file = temp.path("syslog.xml");
    qztest::writeFile(
        file, "<configuration>"
              "<appender name='sys.local' class='SyslogAppender'>"
              "<param name='Facility' value='security'/></appender>"
              "<appender name='sys.remote' class='remotesyslogappender'>"
              "<param name='SyslogHost' value='" +
                  collector.hostText() +
                  "'/><param name='Facility' value='Application'/></appender>"
                  "<logger name='qztest.syslog.file' additivity='false'><level value='INFO'/>"
                  "<appender-ref name='sys.local'/><appender-ref name='sys.remote'/></logger>"
                  "</configuration>");
    qztest::FaultCollector faults;
    DOMConfigurator configurator;
    ASSERT_TRUE(configurator.configure(file.c_str()));
    EXPECT_TRUE(faults.faults().empty());
    auto* local = dynamic_cast<SyslogAppender*>(Appender::findAppender("sys.local"));
    auto* remoteAppender = dynamic_cast<SyslogAppender*>(Appender::findAppender("sys.remote"));
    ASSERT_NE(nullptr, local);
    ASSERT_NE(nullptr, remoteAppender);
    EXPECT_EQ(80, local->getFacility());
    EXPECT_EQ(nullptr, local->target);
    EXPECT_EQ(collector.hostText(), remoteAppender->getSyslogHost());
    QZ_INFO(logger("qztest.syslog.file"), "configured");
    const auto records = collector.take(1);
    ASSERT_EQ(1u, records.size());
    EXPECT_EQ("14", records[0].pri);
    EXPECT_EQ(kBOM + "configured", records[0].msg);
    const auto entries = takeLocal();
    ASSERT_EQ(1u, entries.size());
    EXPECT_EQ(86, entries[0].first);
    EXPECT_EQ("configured", entries[0].second);
}

} // namespace
