//===- bench/bench_activity.cpp - Binary logging, files and replay --------===//
//
// The durable side of logging beside its peers, in one binary: an event that
// only reaches the thread's binary buffer against spdlog's asynchronous
// logger; text through a rolling file against spdlog's rotating file sink;
// what the roll's multi-process safety (an fstat per write, a record lock
// per roll) costs against a plain file; and how fast an activity file
// replays. Allocations per event are counted by interposing the C allocator
// and operator new in this executable (the library is a shared object, so
// its allocations come here too).
//
//===----------------------------------------------------------------------===//
#include <qzlib.h>

#include <benchmark/benchmark.h>

#include <spdlog/async.h>
#include <spdlog/sinks/null_sink.h>
#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/spdlog.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <new>
#include <string>
#include <system_error>
#include <unistd.h>

//===-- Allocation counting ------------------------------------------------===//

namespace {
thread_local uint64_t t_allocations = 0;
}

extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* p, size_t size);
void __libc_free(void* p);
void* malloc(size_t size) noexcept {
    ++t_allocations;
    return __libc_malloc(size);
}
void* calloc(size_t count, size_t size) noexcept {
    ++t_allocations;
    return __libc_calloc(count, size);
}
void* realloc(void* p, size_t size) noexcept {
    ++t_allocations;
    return __libc_realloc(p, size);
}
void free(void* p) noexcept {
    __libc_free(p);
}
}

void* operator new(size_t size) {
    ++t_allocations;
    if (void* p = __libc_malloc(size ? size : 1))
        return p;
    throw std::bad_alloc();
}
void* operator new[](size_t size) {
    return operator new(size);
}
void operator delete(void* p) noexcept {
    __libc_free(p);
}
void operator delete[](void* p) noexcept {
    __libc_free(p);
}
void operator delete(void* p, size_t) noexcept {
    __libc_free(p);
}
void operator delete[](void* p, size_t) noexcept {
    __libc_free(p);
}

using namespace qzs::qzlib::qzlog;

namespace {

/// Takes raw buffers (or text) and throws them away.
class Discard : public WriterAppender {
public:
    explicit Discard(const char* name) : WriterAppender(name) {}
    void write(const void*, unsigned long size) override { bytes += size; }
    unsigned long bytes = 0;
};

// One scratch folder a run, removed by main when the benchmarks are done (the
// files in it grow to hundreds of megabytes).
std::string& scratchPath() {
    static std::string dir;
    return dir;
}

std::string scratchDir() {
    std::string& dir = scratchPath();
    if (dir.empty()) {
        char pattern[] = "/tmp/qzbenchXXXXXX";
        if (!::mkdtemp(pattern)) {
            std::perror("bench_activity: mkdtemp");
            std::exit(1);
        }
        dir = pattern;
    }
    return dir;
}

void countAllocations(benchmark::State& state, uint64_t before) {
    state.counters["allocs_per_event"] =
        benchmark::Counter(static_cast<double>(t_allocations - before), benchmark::Counter::kAvgIterations);
}

//===-- An event that only reaches the binary buffer -----------------------===//

void BM_BinaryOnly_Qz(benchmark::State& state) {
    static Logger* logger = [] {
        Logger* l = Logger::getRepository().getLogger("bench.binary");
        Discard* sink = new Discard("bench-binary");
        sink->setLayout(new BinaryLayout());
        l->addAppender(*sink);
        l->setAdditivity(false);
        l->setLevel(Level::Info);
        return l;
    }();
    int i = 0;
    for (int w = 0; w < 1000; ++w)
        QZ_INFO(logger, "order %d from %s took %ld us", w, "delta", 21L);
    uint64_t before = t_allocations;
    for (auto _ : state) {
        QZ_INFO(logger, "order %d from %s took %ld us", ++i, "delta", 21L);
    }
    countAllocations(state, before);
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_BinaryOnly_Qz)->MinTime(0.3);

void BM_BinaryOnly_SpdlogAsync(benchmark::State& state) {
    static std::shared_ptr<spdlog::logger> logger = [] {
        spdlog::init_thread_pool(8192, 1);
        auto sink = std::make_shared<spdlog::sinks::null_sink_mt>();
        auto l = std::make_shared<spdlog::async_logger>("bench-async", sink, spdlog::thread_pool(),
                                                        spdlog::async_overflow_policy::block);
        l->set_level(spdlog::level::info);
        return l;
    }();
    int i = 0;
    uint64_t before = t_allocations;
    for (auto _ : state)
        logger->info("order {} from {} took {} us", ++i, "delta", 21L);
    countAllocations(state, before);
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_BinaryOnly_SpdlogAsync)->MinTime(0.3);

//===-- Text through a rolling file ----------------------------------------===//

const char QzPattern[] = "%d [%t] %p %c - %m%n";
const char SpdPattern[] = "%Y-%m-%d %a %Z %H:%M:%S.%e [%t] %l %n - %v";

Logger* fileLogger(const char* name, FileAppender* appender) {
    Logger* l = Logger::getRepository().getLogger(name);
    appender->setLayout(new PatternLayout(QzPattern));
    appender->setAppend(true);
    l->addAppender(*appender);
    l->setAdditivity(false);
    l->setLevel(Level::Info);
    return l;
}

void BM_RollingFile_Qz(benchmark::State& state) {
    static Logger* logger = [] {
        RollingFileAppender* a = new RollingFileAppender("bench-rolling");
        a->setFile((scratchDir() + "/qz-rolling.log").c_str());
        a->setMaxFileSize("16MB");
        a->setMaxBackupIndex(2);
        return fileLogger("bench.rolling", a);
    }();
    int i = 0;
    uint64_t before = t_allocations;
    for (auto _ : state)
        QZ_INFO(logger, "order %d from %s took %ld us", ++i, "delta", 21L);
    countAllocations(state, before);
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_RollingFile_Qz)->MinTime(0.3);

void BM_PlainFile_Qz(benchmark::State& state) {
    static Logger* logger = [] {
        FileAppender* a = new FileAppender("bench-plain");
        a->setFile((scratchDir() + "/qz-plain.log").c_str());
        return fileLogger("bench.plain", a);
    }();
    int i = 0;
    for (auto _ : state)
        QZ_INFO(logger, "order %d from %s took %ld us", ++i, "delta", 21L);
    state.SetItemsProcessed(state.iterations());
    // Keep the file small between repetitions.
    if (std::rand() % 4 == 0)
        Logger::getRepository().getLogger("bench.plain")->getAllAppenders()[0]->reset();
}
BENCHMARK(BM_PlainFile_Qz)->MinTime(0.3);

void BM_RotatingFile_Spdlog(benchmark::State& state) {
    static std::shared_ptr<spdlog::logger> logger = [] {
        auto sink = std::make_shared<spdlog::sinks::rotating_file_sink_mt>(scratchDir() + "/spd-rotating.log",
                                                                          16 * 1024 * 1024, 2);
        auto l = std::make_shared<spdlog::logger>("bench-rotating", sink);
        l->set_pattern(SpdPattern);
        l->set_level(spdlog::level::info);
        return l;
    }();
    int i = 0;
    uint64_t before = t_allocations;
    for (auto _ : state)
        logger->info("order {} from {} took {} us", ++i, "delta", 21L);
    countAllocations(state, before);
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_RotatingFile_Spdlog)->MinTime(0.3);

//===-- Replay -------------------------------------------------------------===//

void BM_Replay_Qz(benchmark::State& state) {
    static std::string path = [] {
        // One activity file of 100,000 events from one thread.
        std::string file = scratchDir() + "/replay.act";
        FileAppender* out = new FileAppender("bench-replay-writer");
        out->setFile(file.c_str());
        out->setLayout(new BinaryLayout());
        Logger* l = Logger::getRepository().getLogger("bench.replay");
        l->addAppender(*out);
        l->setAdditivity(false);
        l->setLevel(Level::Info);
        for (int i = 0; i < 100000; ++i)
            QZ_INFO(l, "order %d from %s took %ld us", i, "delta", 21L);
        Appender::flushOutput();
        out->close();
        l->removeAllAppenders();
        Discard* text = new Discard("bench-replay-text");
        text->setLayout(new PatternLayout(QzPattern));
        l->addAppender(*text);
        Logger::getRepository().recalculateEffectiveLevels();
        return file;
    }();
    uint64_t events = 0;
    for (auto _ : state) {
        ActivityFile file(path.c_str());
        file.Open();
        while (file.getOffset() < file.getSize() && file.ProcessSession()) {
        }
        events += file.eventsReplayed();
    }
    state.SetItemsProcessed(static_cast<int64_t>(events));
}
BENCHMARK(BM_Replay_Qz)->MinTime(0.5)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    // How a thread enters its own log buffer on this machine: with plain
    // stores where the kernel's process-wide barrier is to be had.
    Logger::getRepository().getThreadName();
    benchmark::AddCustomContext("log buffer entry", qzs::qzlib::MultiThreading::BiasedLock::isAsymmetric()
                                                        ? "plain stores (membarrier)"
                                                        : "sequentially consistent store");
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    // The appenders still hold their files open; unlinking them is enough.
    if (!scratchPath().empty()) {
        std::error_code ignored;
        std::filesystem::remove_all(scratchPath(), ignored);
    }
    return 0;
}
