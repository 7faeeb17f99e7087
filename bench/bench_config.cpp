//===- bench/bench_config.cpp - Applying and reloading logging files ------===//
//
// Measures the XML configuration from the outside, through DOMConfigurator:
//
// - Apply_*: configure() on a file of 50 loggers and 10 appenders, each
//   appender with a pattern layout and two filters. The appenders are file
//   appenders (and one console appender) naming files in a temporary
//   folder; they open their files at the first event, and no event is logged
//   here, so an apply does no I/O but reading the file. Applying it again
//   is what a reload does: each appender is built anew and replaces the old
//   one of its name in place. Beside it, log4cxx's DOMConfigurator applies
//   the equivalent file in its own dialect (its file appenders open their
//   files when configured: that is part of its cost).
// - Reload_*: configureAndWatch() with a 100 ms interval on the same file
//   plus one logger whose level the loop flips. The file is rewritten as an
//   editor or installer does (a temporary beside it, then rename), at a
//   random moment of the watch's cycle; the time until the logger's
//   effective level shows the new value is the figure.
// - Statement_*: a statement that is off and an event laid out into an
//   appender that discards the text, once with the file applied and no
//   watch, once with a watch thread running on it.
//
//===----------------------------------------------------------------------===//
#include "qzlog/Level.h"
#include "qzlog/LogMacros.h"
#include "qzlog/Logger.h"
#include "qzlog/LoggerRepository.h"
#include "qzlog/PatternLayout.h"
#include "qzlog/WriterAppender.h"
#include "qzlog/config/DOMConfigurator.h"

#include <benchmark/benchmark.h>
#include <log4cxx/logmanager.h>
#include <log4cxx/xml/domconfigurator.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ftw.h>
#include <random>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace qzs::qzlib::qzlog;
using Clock = std::chrono::steady_clock;

namespace {

constexpr unsigned int WatchInterval = 100; // milliseconds
constexpr int ReloadRounds = 30;
constexpr const char* ReloadLogger = "bench.reload.target";

char g_folder[] = "/tmp/bench_config.XXXXXX";
std::string g_applyFile;   // 50 loggers, 10 appenders
std::string g_reloadFile;  // the same, and the logger the reload flips
std::string g_log4cxxFile; // the apply file in log4cxx's dialect

const char* const LevelNames[] = {"DEBUG", "INFO", "WARN", "ERROR"};

// The appenders: four rolling, three plain and two daily file appenders,
// and one on the console. Every one has a layout and two filters.
std::string appenders() {
    std::string out;
    for (int i = 0; i < 10; ++i) {
        const char* cls = i < 4   ? "RollingFileAppender"
                          : i < 7 ? "FileAppender"
                          : i < 9 ? "DailyRollingFileAppender"
                                  : "ConsoleAppender";
        const std::string name = "appender" + std::to_string(i);
        out += "  <appender name=\"" + name + "\" class=\"" + cls + "\">\n";
        if (i < 9) {
            out += "    <param name=\"File\" value=\"" + std::string(g_folder) + "/" + name +
                   ".log\"/>\n"
                   "    <param name=\"Append\" value=\"true\"/>\n"
                   "    <param name=\"BufferSize\" value=\"8192\"/>\n";
        }
        if (i < 4)
            out += "    <param name=\"MaxFileSize\" value=\"10MB\"/>\n"
                   "    <param name=\"MaxBackupIndex\" value=\"5\"/>\n";
        if (i >= 7 && i < 9)
            out += "    <param name=\"DatePattern\" value=\"%Y-%m-%d\"/>\n";
        out += "    <level value=\"" + std::string(LevelNames[i % 4]) +
               "\"/>\n"
               "    <layout class=\"PatternLayout\">\n"
               "      <param name=\"Pattern\" value=\"%d [%t] %p %c - %m%n\"/>\n"
               "    </layout>\n"
               "    <filter class=\"LevelRangeFilter\">\n"
               "      <param name=\"LevelToMatchMin\" value=\"INFO\"/>\n"
               "      <param name=\"LevelToMatchMax\" value=\"FATAL\"/>\n"
               "      <param name=\"AcceptOnMatch\" value=\"false\"/>\n"
               "    </filter>\n"
               "    <filter class=\"StringMatchFilter\">\n"
               "      <param name=\"StringToMatch\" value=\"password\"/>\n"
               "      <param name=\"AcceptOnMatch\" value=\"false\"/>\n"
               "    </filter>\n"
               "  </appender>\n";
    }
    return out;
}

// Fifty loggers in five subsystems of ten, each with a level and one or two
// appenders.
std::string loggers() {
    std::string out;
    for (int i = 0; i < 50; ++i) {
        out += "  <logger name=\"service" + std::to_string(i / 10) + ".module" +
               std::to_string(i % 10) + "\" additivity=\"" + (i % 3 ? "true" : "false") +
               "\">\n"
               "    <level value=\"" +
               LevelNames[i % 4] +
               "\"/>\n"
               "    <appender-ref name=\"appender" +
               std::to_string(i % 9) + "\"/>\n";
        if (i % 2)
            out += "    <appender-ref name=\"appender" + std::to_string((i + 4) % 9) + "\"/>\n";
        out += "  </logger>\n";
    }
    return out;
}

std::string document(const char* reloadLevel) {
    std::string out = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<configuration>\n";
    out += appenders();
    out += loggers();
    if (reloadLevel)
        out += "  <logger name=\"" + std::string(ReloadLogger) + "\"><level value=\"" +
               reloadLevel + "\"/><appender-ref name=\"appender9\"/></logger>\n";
    out += "  <root>\n    <level value=\"WARN\"/>\n    <appender-ref name=\"appender9\"/>\n"
           "  </root>\n</configuration>\n";
    return out;
}

// The same 50 loggers and 10 appenders, in log4cxx's dialect and class names;
// its daily files are a rolling appender with a time-based policy.
std::string log4cxxDocument() {
    std::string out = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                      "<log4j:configuration xmlns:log4j=\"http://jakarta.apache.org/log4j/\">\n";
    for (int i = 0; i < 10; ++i) {
        const char* cls = i < 4   ? "org.apache.log4j.RollingFileAppender"
                          : i < 7 ? "org.apache.log4j.FileAppender"
                          : i < 9 ? "org.apache.log4j.rolling.RollingFileAppender"
                                  : "org.apache.log4j.ConsoleAppender";
        const std::string name = "appender" + std::to_string(i);
        out += "  <appender name=\"" + name + "\" class=\"" + cls + "\">\n";
        if (i < 9)
            out += "    <param name=\"File\" value=\"" + std::string(g_folder) + "/l4-" + name +
                   ".log\"/>\n"
                   "    <param name=\"Append\" value=\"true\"/>\n"
                   "    <param name=\"BufferSize\" value=\"8192\"/>\n";
        if (i < 4)
            out += "    <param name=\"MaxFileSize\" value=\"10MB\"/>\n"
                   "    <param name=\"MaxBackupIndex\" value=\"5\"/>\n";
        if (i >= 7 && i < 9)
            out += "    <rollingPolicy class=\"org.apache.log4j.rolling.TimeBasedRollingPolicy\">\n"
                   "      <param name=\"FileNamePattern\" value=\"" +
                   std::string(g_folder) + "/l4-" + name +
                   ".%d{yyyy-MM-dd}.log\"/>\n"
                   "    </rollingPolicy>\n";
        if (i == 9)
            out += "    <param name=\"Target\" value=\"System.out\"/>\n";
        out += "    <param name=\"Threshold\" value=\"" + std::string(LevelNames[i % 4]) +
               "\"/>\n"
               "    <layout class=\"org.apache.log4j.PatternLayout\">\n"
               "      <param name=\"ConversionPattern\" value=\"%d [%t] %p %c - %m%n\"/>\n"
               "    </layout>\n"
               "    <filter class=\"org.apache.log4j.varia.LevelRangeFilter\">\n"
               "      <param name=\"LevelMin\" value=\"INFO\"/>\n"
               "      <param name=\"LevelMax\" value=\"FATAL\"/>\n"
               "      <param name=\"AcceptOnMatch\" value=\"false\"/>\n"
               "    </filter>\n"
               "    <filter class=\"org.apache.log4j.varia.StringMatchFilter\">\n"
               "      <param name=\"StringToMatch\" value=\"password\"/>\n"
               "      <param name=\"AcceptOnMatch\" value=\"false\"/>\n"
               "    </filter>\n"
               "  </appender>\n";
    }
    for (int i = 0; i < 50; ++i) {
        out += "  <logger name=\"l4service" + std::to_string(i / 10) + ".module" +
               std::to_string(i % 10) + "\" additivity=\"" + (i % 3 ? "true" : "false") +
               "\">\n    <level value=\"" + LevelNames[i % 4] +
               "\"/>\n    <appender-ref ref=\"appender" + std::to_string(i % 9) + "\"/>\n";
        if (i % 2)
            out += "    <appender-ref ref=\"appender" + std::to_string((i + 4) % 9) + "\"/>\n";
        out += "  </logger>\n";
    }
    out += "  <root>\n    <level value=\"WARN\"/>\n    <appender-ref ref=\"appender9\"/>\n"
           "  </root>\n</log4j:configuration>\n";
    return out;
}

// Writes `text` to a temporary beside `path`, then renames it over `path`.
void replaceFile(const std::string& path, const std::string& text) {
    const std::string temporary = path + ".new";
    FILE* f = std::fopen(temporary.c_str(), "wb");
    if (!f || std::fwrite(text.data(), 1, text.size(), f) != text.size() || std::fclose(f) != 0 ||
        std::rename(temporary.c_str(), path.c_str()) != 0) {
        std::perror(temporary.c_str());
        std::exit(1);
    }
}

int removeOne(const char* path, const struct stat*, int, struct FTW*) {
    ::remove(path);
    return 0;
}

//===----------------------------------------------------------------------===//
// Applying a file
//===----------------------------------------------------------------------===//

void BM_Apply_50Loggers10Appenders(benchmark::State& state) {
    DOMConfigurator configurator;
    if (!configurator.configure(g_applyFile.c_str()))
        state.SkipWithError("the file does not apply");
    for (auto _ : state)
        configurator.configure(g_applyFile.c_str());
}

void BM_Apply_50Loggers10Appenders_Log4cxx(benchmark::State& state) {
    log4cxx::xml::DOMConfigurator::configure(g_log4cxxFile);
    if (log4cxx::LogManager::getCurrentLoggers().size() < 50)
        state.SkipWithError("log4cxx did not apply the file");
    for (auto _ : state)
        log4cxx::xml::DOMConfigurator::configure(g_log4cxxFile);
    log4cxx::LogManager::resetConfiguration();
}

//===----------------------------------------------------------------------===//
// Reloading a watched file
//===----------------------------------------------------------------------===//

void BM_Reload_Watch100ms(benchmark::State& state) {
    // WARN and ERROR: the console appender the root holds is at INFO, and a
    // lower level would not show in the effective byte.
    const std::string texts[2] = {document("WARN"), document("ERROR")};
    const unsigned char levels[2] = {Level::Warn, Level::Error};
    replaceFile(g_reloadFile, texts[0]);
    DOMConfigurator configurator;
    configurator.configureAndWatch(g_reloadFile.c_str(), WatchInterval);
    Logger* target = Logger::getRepository().getLogger(ReloadLogger);
    if (target->getEffectiveLevel() != levels[0]) {
        state.SkipWithError("the first load did not set the level");
        return;
    }

    // One sequence for the whole run: each repetition gets other moments.
    static std::mt19937 random(7);
    std::uniform_int_distribution<int> phase(0, WatchInterval * 1000);
    std::vector<double> latencies;
    int next = 1;
    bool timedOut = false;
    for (auto _ : state) {
        // Untimed (manual time): a random point of the watch's cycle.
        std::this_thread::sleep_for(std::chrono::microseconds(phase(random)));
        replaceFile(g_reloadFile, texts[next]);
        const Clock::time_point written = Clock::now();
        while (target->getEffectiveLevel() != levels[next]) {
            if (Clock::now() - written > std::chrono::seconds(5)) {
                timedOut = true;
                break;
            }
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
        const double seconds = std::chrono::duration<double>(Clock::now() - written).count();
        state.SetIterationTime(seconds);
        latencies.push_back(seconds * 1e3);
        next ^= 1;
    }
    if (timedOut)
        state.SkipWithError("a rewrite was not applied within 5 s");
    std::sort(latencies.begin(), latencies.end());
    state.counters["interval_ms"] = WatchInterval;
    state.counters["p50_ms"] = latencies[latencies.size() / 2];
    state.counters["p95_ms"] = latencies[latencies.size() * 95 / 100];
    state.counters["max_ms"] = latencies.back();
}

//===----------------------------------------------------------------------===//
// Log statements with and without a watch thread
//===----------------------------------------------------------------------===//

class DiscardAppender : public WriterAppender {
public:
    explicit DiscardAppender(const char* name) : WriterAppender(name) {}
    void write(const void*, unsigned long size) override { bytes += size; }
    uint64_t bytes = 0;
};

// Read through volatile pointers in every iteration, so that the level test
// cannot be hoisted out of the loop.
Logger* volatile g_quiet = nullptr;
Logger* volatile g_enabled = nullptr;
const char* const Names[4] = {"delta", "echo", "foxtrot", "golf"};

void setUpStatements() {
    LoggerRepository& repository = Logger::getRepository();
    Logger* quiet = repository.getLogger("bench.quiet");
    quiet->setLevel(Level::Info);
    g_quiet = quiet;
    Logger* enabled = repository.getLogger("bench.enabled");
    enabled->setLevel(Level::Info);
    enabled->setAdditivity(false);
    auto* appender = new DiscardAppender("bench.discard");
    appender->setLayout(new PatternLayout("%d [%t] %p %c - %m%n"));
    enabled->addAppender(*appender);
    repository.recalculateEffectiveLevels();
    g_enabled = enabled;
}

inline void event(Logger* log, int i) {
    QZ_INFO(log, "order %d from %s took %ld us", i, Names[i & 3], static_cast<long>(i) * 3);
}

// The file applied, and with `watch` a watch thread on it; the thread stops
// when the configurator goes, after the timed loop.
template <typename Body> void withConfiguration(benchmark::State& state, bool watch, Body body) {
    DOMConfigurator configurator;
    if (watch)
        configurator.configureAndWatch(g_applyFile.c_str(), WatchInterval);
    else
        configurator.configure(g_applyFile.c_str());
    for (int i = 0; i < 1000; ++i) // location record, thread context, date cache
        event(g_enabled, i);
    body(state);
}

void disabled(benchmark::State& state) {
    int i = 0;
    for (auto _ : state) {
        Logger* log = g_quiet;
        QZ_DEBUG(log, "disabled statement %d", i);
        ++i;
        benchmark::ClobberMemory();
    }
}

void enabled(benchmark::State& state) {
    int i = 0;
    for (auto _ : state)
        event(g_enabled, i++);
    state.SetItemsProcessed(state.iterations());
}

void BM_Statement_Disabled_NoWatch(benchmark::State& state) {
    withConfiguration(state, false, disabled);
}
void BM_Statement_Disabled_Watch(benchmark::State& state) {
    withConfiguration(state, true, disabled);
}
void BM_Statement_Enabled_NoWatch(benchmark::State& state) {
    withConfiguration(state, false, enabled);
}
void BM_Statement_Enabled_Watch(benchmark::State& state) {
    withConfiguration(state, true, enabled);
}

} // namespace

BENCHMARK(BM_Apply_50Loggers10Appenders)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Apply_50Loggers10Appenders_Log4cxx)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Statement_Disabled_NoWatch);
BENCHMARK(BM_Statement_Disabled_Watch);
BENCHMARK(BM_Statement_Enabled_NoWatch);
BENCHMARK(BM_Statement_Enabled_Watch);
BENCHMARK(BM_Reload_Watch100ms)
    ->Iterations(ReloadRounds)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

int main(int argc, char** argv) {
    if (!::mkdtemp(g_folder)) {
        std::perror("bench_config: temporary folder");
        return 1;
    }
    g_applyFile = std::string(g_folder) + "/apply.xml";
    g_reloadFile = std::string(g_folder) + "/reload.xml";
    replaceFile(g_applyFile, document(nullptr));
    g_log4cxxFile = std::string(g_folder) + "/apply-log4cxx.xml";
    replaceFile(g_log4cxxFile, log4cxxDocument());
    setUpStatements();

    // Quick by default, about 0.2 s a case; a --benchmark_min_time given on
    // the command line comes later and wins.
    std::vector<char*> args(argv, argv + argc);
    char quick[] = "--benchmark_min_time=0.2";
    args.insert(args.begin() + 1, quick);
    int count = static_cast<int>(args.size());
    benchmark::Initialize(&count, args.data());
    if (benchmark::ReportUnrecognizedArguments(count, args.data()))
        return 1;
    benchmark::AddCustomContext("config file bytes", std::to_string(document(nullptr).size()));
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    ::nftw(g_folder, removeOne, 16, FTW_DEPTH | FTW_PHYS);
    return 0;
}
