//===- bench/bench_syslog.cpp - Events as datagrams into a collector ------===//
//
// Measures the remote syslog path against a real collector: an rsyslogd of
// the benchmark's own on a free loopback port, receiving over UDP only and
// writing the fields it parsed to a file (the same collector the syslog
// tests start). Without rsyslogd every case is skipped with a message.
//
// - Arrival_10000 runs first, while the collector has nothing else to do.
// - Event_Remote: one INFO event with an int and a string, laid out into an
//   RFC 5424 datagram (header, structured data, text) and sent. The figure
//   is the caller's cost; the collector runs on the other core.
// - Send_Baseline: the floor beside it: send(2) of a finished datagram of
//   the same length on a connected UDP socket, with no formatting at all.
// - Arrival_10000: 10,000 events as fast as the loop sends them, then a wait
//   (30 s at most) until the collector has written them; `arrived` is the
//   share that came out of the collector, and `events_per_second` the rate
//   from the first send to the last line written.
//
//===----------------------------------------------------------------------===//
#include "../tests/support/SyslogCollector.h"

#include "qzlog/Level.h"
#include "qzlog/LogMacros.h"
#include "qzlog/Logger.h"
#include "qzlog/LoggerRepository.h"
#include "qzlog/SyslogAppender.h"

#include <benchmark/benchmark.h>

#include <arpa/inet.h>
#include <chrono>
#include <cstdio>
#include <memory>
#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

using namespace qzs::qzlib::qzlog;
using Clock = std::chrono::steady_clock;

namespace {

qztest::SyslogCollector* g_collector = nullptr;
std::string g_whyNot;
SyslogAppender* g_appender = nullptr;
Logger* g_logger = nullptr;

bool ready(benchmark::State& state) {
    if (g_collector && g_collector->isRsyslog() && g_appender && g_appender->target)
        return true;
    state.SkipWithError(("no collector: " + g_whyNot).c_str());
    return false;
}

void Arrival_10000(benchmark::State& state) {
    if (!ready(state))
        return;
    constexpr size_t Events = 10000;
    for (auto _ : state) {
        const auto start = Clock::now();
        for (size_t i = 0; i < Events; ++i)
            QZ_INFO(g_logger, "burst %d", static_cast<int>(i));
        const size_t arrived = g_collector->take(Events, std::chrono::seconds(30)).size();
        const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
        state.SetIterationTime(seconds);
        state.counters["arrived"] = static_cast<double>(arrived) / Events;
        state.counters["events_per_second"] = static_cast<double>(arrived) / seconds;
    }
}
BENCHMARK(Arrival_10000)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);

void Event_Remote(benchmark::State& state) {
    if (!ready(state))
        return;
    Logger* volatile log = g_logger;
    int i = 0;
    for (auto _ : state) {
        QZ_INFO(log, "order %d from %s", ++i, "delta");
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(Event_Remote);

void Send_Baseline(benchmark::State& state) {
    if (!ready(state))
        return;
    // A datagram as long as Event_Remote's, finished beforehand.
    const std::string datagram =
        "<14>1 2024-01-02T03:04:05.678+00:00 host bench_syslog 4242 1234 "
        "[qzlog@1234 category=\"bench.syslog\" thread=\"main\" method=\"Event_Remote\" "
        "module=\"../bench/bench_syslog.cpp\" line=\"61\"] \xEF\xBB\xBF"
        "order 123456 from delta";
    std::unique_ptr<NetworkTargetUDP> target(NetworkTargetUDP::Create(g_collector->hostText()));
    for (auto _ : state)
        target->send(datagram);
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(Send_Baseline);

} // namespace

int main(int argc, char** argv) {
    qztest::SyslogCollector collector;
    collector.start(true, g_whyNot);
    if (collector.isRsyslog()) {
        g_collector = &collector;
        g_appender = new SyslogAppender("bench.syslog");
        g_appender->setSyslogHost(collector.hostText().c_str());
        g_logger = Logger::getRepository().getLogger("bench.syslog");
        g_logger->setAdditivity(false);
        g_logger->addAppender(*g_appender);
        g_logger->setLevel(Level::Info);
    } else {
        std::printf("bench_syslog: rsyslogd cannot start (%s); every case is skipped\n",
                    g_whyNot.c_str());
    }

    // Quick by default, about 0.2 s a case; a --benchmark_min_time given on
    // the command line comes later and wins.
    std::vector<char*> args(argv, argv + argc);
    char quick[] = "--benchmark_min_time=0.2";
    args.insert(args.begin() + 1, quick);
    int count = static_cast<int>(args.size());
    benchmark::Initialize(&count, args.data());
    if (benchmark::ReportUnrecognizedArguments(count, args.data()))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    if (g_logger)
        g_logger->removeAllAppenders();
    delete g_appender;
    collector.stop();
    return 0;
}
