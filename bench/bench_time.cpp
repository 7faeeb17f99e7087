//===- bench/bench_time.cpp - Julian timestamps beside glibc's UTC calls --===//
//
// Two round trips, each beside what a program without this library would
// call, over one set of 4096 moments between 1900 and 2100, to the
// microsecond, made once with a fixed seed:
//   Fields: INTERPRETTIMESTAMP then COMPUTETIMESTAMP, beside gmtime_r then
//     timegm.
//   Text: gmt_jts_to_string then loc_str_to_loc_jts (the reader of that form,
//     without zone conversion: GMT in, GMT out), beside gmtime_r, strftime
//     "%Y-%m-%d %H:%M:%S", strptime of the same and timegm. The peer carries
//     no fraction, ours six digits of it, so the peer has less to do.
// Before timing, every moment goes through both and must come back as it
// went in (the peer to the second), so a broken conversion shows before any
// figure does.
//
//===----------------------------------------------------------------------===//
#include "qzstd/TimeConversion.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <ctime>
#include <random>
#include <vector>

namespace {

constexpr std::size_t kMoments = 4096;
constexpr char kPeerFormat[] = "%Y-%m-%d %H:%M:%S";

const std::vector<long>& moments() {
    static const std::vector<long> all = [] {
        std::mt19937_64 random(1900);
        std::uniform_int_distribution<long> pick(caltime_to_jul(-2208988800L),   // 1900-01-01
                                                 caltime_to_jul(4102444800L) - 1); // 2100-01-01
        std::vector<long> v(kMoments);
        for (long& t : v)
            t = pick(random);
        return v;
    }();
    return all;
}

time_t unixSeconds(long jts) {
    return jul_to_caltime(jts, nullptr);
}

long oursFields(long t) {
    short f[8];
    short err;
    INTERPRETTIMESTAMP(t, f);
    return COMPUTETIMESTAMP(f, &err);
}

time_t peerFields(time_t s) {
    struct tm g;
    gmtime_r(&s, &g);
    return timegm(&g);
}

long oursText(long t) {
    char text[JTS_STRING_BUFFER_SIZE];
    gmt_jts_to_string(t, text, sizeof text);
    return loc_str_to_loc_jts(text);
}

time_t peerText(time_t s) {
    struct tm g;
    gmtime_r(&s, &g);
    char text[32];
    std::strftime(text, sizeof text, kPeerFormat, &g);
    struct tm back = {};
    strptime(text, kPeerFormat, &back);
    return timegm(&back);
}

void BM_Fields_Ours(benchmark::State& state) {
    const std::vector<long>& m = moments();
    std::size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(oursFields(m[i]));
        i = (i + 1) % kMoments;
    }
    state.SetItemsProcessed(state.iterations());
}

void BM_Fields_Glibc(benchmark::State& state) {
    std::vector<time_t> s;
    for (long t : moments())
        s.push_back(unixSeconds(t));
    std::size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(peerFields(s[i]));
        i = (i + 1) % kMoments;
    }
    state.SetItemsProcessed(state.iterations());
}

void BM_Text_Ours(benchmark::State& state) {
    const std::vector<long>& m = moments();
    std::size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(oursText(m[i]));
        i = (i + 1) % kMoments;
    }
    state.SetItemsProcessed(state.iterations());
}

void BM_Text_Glibc(benchmark::State& state) {
    std::vector<time_t> s;
    for (long t : moments())
        s.push_back(unixSeconds(t));
    std::size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(peerText(s[i]));
        i = (i + 1) % kMoments;
    }
    state.SetItemsProcessed(state.iterations());
}

} // namespace

BENCHMARK(BM_Fields_Ours);
BENCHMARK(BM_Fields_Glibc);
BENCHMARK(BM_Text_Ours);
BENCHMARK(BM_Text_Glibc);

int main(int argc, char** argv) {
    for (long t : moments()) {
        const time_t s = unixSeconds(t);
        if (oursFields(t) != t || oursText(t) != t || peerFields(s) != s || peerText(s) != s) {
            char text[JTS_STRING_BUFFER_SIZE];
            std::fprintf(stderr, "bench_time: %s did not come back\n",
                         gmt_jts_to_string(t, text, sizeof text));
            return 1;
        }
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
