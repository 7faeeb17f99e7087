//===- bench/bench_logging.cpp - The logging path beside its peers --------===//
//
// Measures one log statement through our macros next to spdlog and log4cxx in
// the same binary, so that the ratios come out of one run on one machine: a
// statement that is off, an event with three arguments laid out by the usual
// pattern into an appender that throws the text away, the same from two
// threads through one appender, and the heap allocations each enabled event
// costs once warm.
//
// Allocations are counted by replacing the global operator new and delete and
// by interposing malloc, calloc and realloc in this executable. The library
// is a shared object, so ELF interposition routes its allocations here too.
//
//===----------------------------------------------------------------------===//
#include "qzlog/Level.h"
#include "qzlog/LogMacros.h"
#include "qzlog/Logger.h"
#include "qzlog/LoggerRepository.h"
#include "qzlog/PatternLayout.h"
#include "qzlog/WriterAppender.h"

#include <benchmark/benchmark.h>

#include <log4cxx/appenderskeleton.h>
#include <log4cxx/logger.h>
#include <log4cxx/patternlayout.h>
#include <spdlog/details/log_msg.h>
#include <spdlog/logger.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/base_sink.h>
#include <spdlog/sinks/null_sink.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <vector>

//===----------------------------------------------------------------------===//
// Allocation counting
//===----------------------------------------------------------------------===//

namespace {
// Per thread, so that counting adds no shared cache line to the threaded
// runs; each benchmark thread reports its own difference and Google Benchmark
// sums them. Plain TLS of the executable: local-exec, no call, no allocation.
thread_local uint64_t t_allocations = 0;
} // namespace

// glibc's own entry points, so that the interposed functions below reach the
// real allocator without looking it up.
extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* p, size_t size);
void __libc_free(void* p);
}

// The C allocator, counted: the library keeps its buffer blocks and thread
// names with malloc, and an operator-new count alone would miss them.
extern "C" void* malloc(size_t size) noexcept {
    ++t_allocations;
    return __libc_malloc(size);
}
extern "C" void* calloc(size_t count, size_t size) noexcept {
    ++t_allocations;
    return __libc_calloc(count, size);
}
extern "C" void* realloc(void* p, size_t size) noexcept {
    ++t_allocations;
    return __libc_realloc(p, size);
}
extern "C" void free(void* p) noexcept {
    __libc_free(p);
}

namespace {

// operator new counts once and goes straight to glibc, so that it is not
// counted a second time by the malloc above.
void* countedNew(size_t size) {
    ++t_allocations;
    if (size == 0)
        size = 1;
    if (void* p = __libc_malloc(size))
        return p;
    throw std::bad_alloc();
}

void* countedAlignedNew(size_t size, std::align_val_t align) {
    ++t_allocations;
    size_t a = static_cast<size_t>(align);
    if (a < sizeof(void*))
        a = sizeof(void*);
    void* p = nullptr;
    // posix_memalign is not interposed: memory from it is freed by glibc's
    // free just the same.
    if (posix_memalign(&p, a, size ? size : 1) != 0)
        throw std::bad_alloc();
    return p;
}

} // namespace

void* operator new(size_t size) { return countedNew(size); }
void* operator new[](size_t size) { return countedNew(size); }
void* operator new(size_t size, const std::nothrow_t&) noexcept {
    try {
        return countedNew(size);
    } catch (...) {
        return nullptr;
    }
}
void* operator new[](size_t size, const std::nothrow_t&) noexcept {
    try {
        return countedNew(size);
    } catch (...) {
        return nullptr;
    }
}
void* operator new(size_t size, std::align_val_t align) { return countedAlignedNew(size, align); }
void* operator new[](size_t size, std::align_val_t align) { return countedAlignedNew(size, align); }
void* operator new(size_t size, std::align_val_t align, const std::nothrow_t&) noexcept {
    try {
        return countedAlignedNew(size, align);
    } catch (...) {
        return nullptr;
    }
}
void* operator new[](size_t size, std::align_val_t align, const std::nothrow_t&) noexcept {
    try {
        return countedAlignedNew(size, align);
    } catch (...) {
        return nullptr;
    }
}
void operator delete(void* p) noexcept { __libc_free(p); }
void operator delete[](void* p) noexcept { __libc_free(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { __libc_free(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { __libc_free(p); }
void operator delete(void* p, size_t) noexcept { __libc_free(p); }
void operator delete[](void* p, size_t) noexcept { __libc_free(p); }
void operator delete(void* p, std::align_val_t) noexcept { __libc_free(p); }
void operator delete[](void* p, std::align_val_t) noexcept { __libc_free(p); }
void operator delete(void* p, size_t, std::align_val_t) noexcept { __libc_free(p); }
void operator delete[](void* p, size_t, std::align_val_t) noexcept { __libc_free(p); }
void operator delete(void* p, std::align_val_t, const std::nothrow_t&) noexcept { __libc_free(p); }
void operator delete[](void* p, std::align_val_t, const std::nothrow_t&) noexcept { __libc_free(p); }

namespace {

using qzs::qzlib::qzlog::Level;
using qzs::qzlib::qzlog::Logger;
using qzs::qzlib::qzlog::LoggerRepository;
using qzs::qzlib::qzlog::PatternLayout;
using qzs::qzlib::qzlog::WriterAppender;

// Events logged before the timed loop of every run: the first events of a
// statement and of a thread make the location record, the thread's context
// and buffer, the date cache and the peers' equivalents.
constexpr int WarmUpEvents = 1000;

const char OurPattern[] = "%d [%t] %p %c - %m%n";
// spdlog has no zone-name flag; %z (the offset) stands in for it.
const char SpdlogPattern[] = "%Y-%m-%d %a %z %H:%M:%S.%e [%t] %l %n - %v";

// Reports allocations per event of the loop that follows its construction.
class AllocationMeter {
public:
    explicit AllocationMeter(benchmark::State& state) : m_state(state), m_start(t_allocations) {}
    ~AllocationMeter() {
        m_state.counters["allocs_per_event"] =
            benchmark::Counter(static_cast<double>(t_allocations - m_start), benchmark::Counter::kAvgIterations);
    }

private:
    benchmark::State& m_state;
    uint64_t m_start;
};

// The text arguments, read through a table so that the compiler cannot fold
// them into the format.
const char* const Names[4] = {"alpha", "bravo", "charlie", "delta"};

//===----------------------------------------------------------------------===//
// The three libraries' discarding outputs
//===----------------------------------------------------------------------===//

// Lays out every event like any writer and throws the text away, counting
// its bytes. write() runs under the appender's lock.
class DiscardAppender : public WriterAppender {
public:
    explicit DiscardAppender(const char* name) : WriterAppender(name) {}
    void write(const void* bytes, unsigned long size) override {
        this->bytes += size;
        if (sample)
            sample->assign(static_cast<const char*>(bytes), size);
    }
    uint64_t bytes = 0;
    std::string* sample = nullptr; // set only while a sample line is taken
};

// spdlog's null sink does not run the pattern formatter at all; this sink
// runs it, as every real spdlog sink does, and throws the text away.
class DiscardSink : public spdlog::sinks::base_sink<std::mutex> {
public:
    uint64_t bytes = 0;
    std::string* sample = nullptr;

protected:
    void sink_it_(const spdlog::details::log_msg& msg) override {
        spdlog::memory_buf_t text;
        formatter_->format(msg, text);
        bytes += text.size();
        if (sample)
            sample->assign(text.data(), text.size());
    }
    void flush_() override {}
};

} // namespace

// log4cxx's object macros name its namespaces unqualified, so its appender
// lives in a namespace of its own that sees log4cxx's.
namespace l4bench {
using namespace log4cxx;

// log4cxx's counterpart: lays the event out with the appender's layout under
// the skeleton's lock, as log4cxx's own WriterAppender does, and discards it.
class L4DiscardAppender : public log4cxx::AppenderSkeleton {
public:
    DECLARE_LOG4CXX_OBJECT(L4DiscardAppender)
    BEGIN_LOG4CXX_CAST_MAP()
    LOG4CXX_CAST_ENTRY(L4DiscardAppender)
    LOG4CXX_CAST_ENTRY_CHAIN(AppenderSkeleton)
    END_LOG4CXX_CAST_MAP()

    void setLayout(const log4cxx::LayoutPtr layout) override {
        AppenderSkeleton::setLayout(layout);
        m_layout = layout;
    }
    void close() override {}
    bool requiresLayout() const override { return true; }

    uint64_t bytes = 0;
    std::string* sample = nullptr;

protected:
    void append(const log4cxx::spi::LoggingEventPtr& event, log4cxx::helpers::Pool& pool) override {
        log4cxx::LogString text;
        m_layout->format(text, event, pool);
        bytes += text.size();
        if (sample)
            sample->assign(text.data(), text.size());
    }

private:
    // Held here as well so that each event does not copy the shared pointer.
    log4cxx::LayoutPtr m_layout;
};

IMPLEMENT_LOG4CXX_OBJECT(L4DiscardAppender)

} // namespace l4bench

namespace {

using l4bench::L4DiscardAppender;

//===----------------------------------------------------------------------===//
// The loggers
//===----------------------------------------------------------------------===//

// Read through volatile pointers in every iteration: the level test cannot be
// hoisted out of the loop, as it could if the compiler saw one logger.
Logger* volatile g_qzQuiet = nullptr;
Logger* volatile g_qzEnabled = nullptr;
DiscardAppender* g_qzAppender = nullptr;

spdlog::logger* volatile g_spdQuiet = nullptr;
spdlog::logger* volatile g_spdNull = nullptr;
spdlog::logger* volatile g_spdEnabled = nullptr;
DiscardSink* g_spdSink = nullptr;

const log4cxx::LoggerPtr* volatile g_l4Quiet = nullptr;
const log4cxx::LoggerPtr* volatile g_l4Enabled = nullptr;
L4DiscardAppender* g_l4Appender = nullptr;

// The peers' objects are made once and never destroyed: log4cxx tears its
// runtime down at exit before statics of ours would release its appender.
struct PeerOwners {
    std::shared_ptr<spdlog::logger> spdlog[3];
    log4cxx::LoggerPtr log4cxx[2];
};
PeerOwners* g_peers = nullptr;

void setUpOurs() {
    LoggerRepository& repository = Logger::getRepository();
    Logger* quiet = repository.getLogger("bench.quiet");
    quiet->setLevel(Level::Info);
    g_qzQuiet = quiet;

    // Additivity off, as for the peers: the event meets one appender and no
    // ancestor's lock.
    Logger* enabled = repository.getLogger("bench.enabled");
    enabled->setLevel(Level::Info);
    enabled->setAdditivity(false);
    g_qzAppender = new DiscardAppender("bench.discard");
    g_qzAppender->setLayout(new PatternLayout(OurPattern));
    enabled->addAppender(*g_qzAppender);
    repository.recalculateEffectiveLevels();
    g_qzEnabled = enabled;
}

std::shared_ptr<spdlog::logger> makeSpdLogger(const char* name, spdlog::sink_ptr sink) {
    auto logger = std::make_shared<spdlog::logger>(name, std::move(sink));
    logger->set_pattern(SpdlogPattern);
    logger->set_level(spdlog::level::info);
    return logger;
}

void setUpSpdlog() {
    auto sink = std::make_shared<DiscardSink>();
    g_spdSink = sink.get();
    g_peers->spdlog[0] = makeSpdLogger("bench.quiet", std::make_shared<spdlog::sinks::null_sink_mt>());
    g_peers->spdlog[1] = makeSpdLogger("bench.enabled", std::make_shared<spdlog::sinks::null_sink_mt>());
    g_peers->spdlog[2] = makeSpdLogger("bench.enabled", sink);
    g_spdQuiet = g_peers->spdlog[0].get();
    g_spdNull = g_peers->spdlog[1].get();
    g_spdEnabled = g_peers->spdlog[2].get();
}

void setUpLog4cxx() {
    log4cxx::LoggerPtr& quiet = g_peers->log4cxx[0];
    quiet = log4cxx::Logger::getLogger("bench.quiet");
    quiet->setLevel(log4cxx::Level::getInfo());
    g_l4Quiet = &quiet;

    log4cxx::LoggerPtr& enabled = g_peers->log4cxx[1];
    enabled = log4cxx::Logger::getLogger("bench.enabled");
    enabled->setLevel(log4cxx::Level::getInfo());
    enabled->setAdditivity(false);
    auto appender = std::make_shared<L4DiscardAppender>();
    appender->setLayout(std::make_shared<log4cxx::PatternLayout>(LOG4CXX_STR("%d [%t] %p %c - %m%n")));
    enabled->addAppender(appender);
    g_l4Appender = appender.get();
    g_l4Enabled = &enabled;
}

//===----------------------------------------------------------------------===//
// The statements. One function per library, so that the warm-up and the
// timed loop run the very same statement (one location record, one format).
//===----------------------------------------------------------------------===//

inline void ourEvent(Logger* log, int i) {
    QZ_INFO(log, "order %d from %s took %ld us", i, Names[i & 3], static_cast<long>(i) * 3);
}

inline void spdEvent(spdlog::logger* log, int i) {
    log->info("order {} from {} took {} us", i, Names[i & 3], static_cast<long>(i) * 3);
}

inline void l4Event(const log4cxx::LoggerPtr& log, int i) {
    LOG4CXX_INFO(log, "order " << i << " from " << Names[i & 3] << " took " << static_cast<long>(i) * 3 << " us");
}

// Runs `event` for the warm-up, then times it, reporting allocations per
// event and, when `bytes` is given (single thread only), bytes per line.
template <typename Event>
void runEnabled(benchmark::State& state, Event event, const uint64_t* bytes) {
    for (int i = 0; i < WarmUpEvents; ++i)
        event(i);
    uint64_t firstBytes = bytes ? *bytes : 0;
    {
        AllocationMeter meter(state);
        int i = 0;
        for (auto _ : state)
            event(i++);
    }
    state.SetItemsProcessed(state.iterations());
    if (bytes)
        state.counters["bytes_per_event"] =
            benchmark::Counter(static_cast<double>(*bytes - firstBytes), benchmark::Counter::kAvgIterations);
}

//===----------------------------------------------------------------------===//
// Statements that are off
//===----------------------------------------------------------------------===//

// The floor: the loop and the volatile load alone.
void BM_Disabled_Baseline(benchmark::State& state) {
    for (auto _ : state) {
        Logger* log = g_qzQuiet;
        benchmark::DoNotOptimize(log);
        benchmark::ClobberMemory();
    }
}

void BM_Disabled_Qz(benchmark::State& state) {
    int i = 0;
    for (auto _ : state) {
        Logger* log = g_qzQuiet;
        QZ_DEBUG(log, "disabled statement %d", i);
        ++i;
        benchmark::ClobberMemory();
    }
}

void BM_Disabled_Spdlog(benchmark::State& state) {
    int i = 0;
    for (auto _ : state) {
        spdlog::logger* log = g_spdQuiet;
        log->debug("disabled statement {}", i);
        ++i;
        benchmark::ClobberMemory();
    }
}

// spdlog's level test alone, as a host would guard a costly argument: the
// call above also checks the backtrace ring, out of line.
void BM_Disabled_SpdlogShouldLog(benchmark::State& state) {
    int i = 0;
    for (auto _ : state) {
        spdlog::logger* log = g_spdQuiet;
        if (log->should_log(spdlog::level::debug))
            log->debug("disabled statement {}", i);
        ++i;
        benchmark::ClobberMemory();
    }
}

void BM_Disabled_Log4cxx(benchmark::State& state) {
    int i = 0;
    for (auto _ : state) {
        const log4cxx::LoggerPtr& log = *g_l4Quiet;
        LOG4CXX_DEBUG(log, "disabled statement " << i);
        ++i;
        benchmark::ClobberMemory();
    }
}

//===----------------------------------------------------------------------===//
// One enabled event, laid out and discarded
//===----------------------------------------------------------------------===//

void BM_Enabled_Qz(benchmark::State& state) {
    runEnabled(state, [](int i) { ourEvent(g_qzEnabled, i); }, &g_qzAppender->bytes);
}

// The commonly quoted spdlog figure: the null sink skips the pattern
// formatter, so this is the message formatting and the sink lock only.
void BM_Enabled_SpdlogNullSink(benchmark::State& state) {
    runEnabled(state, [](int i) { spdEvent(g_spdNull, i); }, nullptr);
}

// spdlog doing the work ours does: message and pattern, text discarded.
void BM_Enabled_SpdlogFormatted(benchmark::State& state) {
    runEnabled(state, [](int i) { spdEvent(g_spdEnabled, i); }, &g_spdSink->bytes);
}

void BM_Enabled_Log4cxx(benchmark::State& state) {
    runEnabled(state, [](int i) { l4Event(*g_l4Enabled, i); }, &g_l4Appender->bytes);
}

//===----------------------------------------------------------------------===//
// Two threads, one appender
//===----------------------------------------------------------------------===//

void BM_Threads_Qz(benchmark::State& state) {
    runEnabled(state, [](int i) { ourEvent(g_qzEnabled, i); }, nullptr);
    // Benchmark threads other than the main one end after the run: hand their
    // logging context back, as a host's threads do.
    if (state.thread_index() != 0)
        Logger::getRepository().threadComplete();
}

void BM_Threads_SpdlogFormatted(benchmark::State& state) {
    runEnabled(state, [](int i) { spdEvent(g_spdEnabled, i); }, nullptr);
}

void BM_Threads_Log4cxx(benchmark::State& state) {
    runEnabled(state, [](int i) { l4Event(*g_l4Enabled, i); }, nullptr);
}

BENCHMARK(BM_Disabled_Baseline);
BENCHMARK(BM_Disabled_Qz);
BENCHMARK(BM_Disabled_Spdlog);
BENCHMARK(BM_Disabled_SpdlogShouldLog);
BENCHMARK(BM_Disabled_Log4cxx);
BENCHMARK(BM_Enabled_Qz);
BENCHMARK(BM_Enabled_SpdlogNullSink);
BENCHMARK(BM_Enabled_SpdlogFormatted);
BENCHMARK(BM_Enabled_Log4cxx);
// Wall time per event over both threads: halving it is perfect scaling.
BENCHMARK(BM_Threads_Qz)->Threads(1)->Threads(2)->UseRealTime();
BENCHMARK(BM_Threads_SpdlogFormatted)->Threads(1)->Threads(2)->UseRealTime();
BENCHMARK(BM_Threads_Log4cxx)->Threads(1)->Threads(2)->UseRealTime();

// One line of each library's output, printed in the run's context so that a
// reader can see the three texts are alike.
template <typename Sink, typename Event>
std::string sampleLine(Sink& sink, Event event) {
    std::string line;
    sink.sample = &line;
    event();
    sink.sample = nullptr;
    while (!line.empty() && line.back() == '\n')
        line.pop_back();
    return line;
}

} // namespace

int main(int argc, char** argv) {
    g_peers = new PeerOwners();
    setUpOurs();
    setUpSpdlog();
    setUpLog4cxx();
    benchmark::AddCustomContext("qzlib line", sampleLine(*g_qzAppender, [] { ourEvent(g_qzEnabled, 7); }));
    benchmark::AddCustomContext("spdlog line", sampleLine(*g_spdSink, [] { spdEvent(g_spdEnabled, 7); }));
    benchmark::AddCustomContext("log4cxx line", sampleLine(*g_l4Appender, [] { l4Event(*g_l4Enabled, 7); }));

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
    return 0;
}
