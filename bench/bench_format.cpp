//===- bench/bench_format.cpp - UString format and scan, beside the peers -===//
//
// One line of "%d %s %x" with a 20-character string: UString::format into a
// string that keeps its body between iterations, snprintf into a char
// buffer, and ICU's u_snprintf into a UChar buffer. Then the same line read
// back: UString::scan beside sscanf.
//
// The integers change every iteration (a counter, so the digit count moves
// between 1 and 7) so that no peer formats a constant. Each case checks its
// result length once before the timed loop, so that a broken conversion
// shows as an error rather than as a fast figure.
//
//===----------------------------------------------------------------------===//
#include "qzunicode/UString.h"

#include <benchmark/benchmark.h>

#include <unicode/ustdio.h>

#include <cstdio>
#include <cstring>

using qzs::qzlib::qzunicode::ULibCharSet;
using qzs::qzlib::qzunicode::UString;

namespace {

constexpr char kText[] = "replication-target-7"; // 20 characters
static_assert(sizeof kText == 21, "the string argument is 20 characters");

// The narrow format read as UTF-8 for the engine; the default set on this
// machine is UTF-8 as well.
constexpr ULibCharSet kUTF8 = ULibCharSet(0);

void Format_UString(benchmark::State& state) {
    UString out;
    const UString fmt("%d %s %x", kUTF8);
    if (out.format(&fmt, 1234, kText, 0xbeefu) != 30)
        state.SkipWithError("wrong length");
    int i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(out.format(&fmt, i, kText, static_cast<unsigned>(i)));
        i = (i + 7919) % 10000000;
    }
}
BENCHMARK(Format_UString);

// The UTF-16 format pointer: no UString around the format at all.
void Format_UStringUnits(benchmark::State& state) {
    UString out;
    static const char16_t fmt[] = u"%d %s %x";
    const auto* units = reinterpret_cast<const unsigned short*>(fmt);
    int i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(out.format(units, i, kText, static_cast<unsigned>(i)));
        i = (i + 7919) % 10000000;
    }
}
BENCHMARK(Format_UStringUnits);

void Format_snprintf(benchmark::State& state) {
    char buf[256];
    int i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            std::snprintf(buf, sizeof buf, "%d %s %x", i, kText, static_cast<unsigned>(i)));
        benchmark::ClobberMemory();
        i = (i + 7919) % 10000000;
    }
}
BENCHMARK(Format_snprintf);

void Format_u_snprintf(benchmark::State& state) {
    UChar buf[256];
    if (u_snprintf(buf, 256, "%d %s %x", 1234, kText, 0xbeefu) != 30)
        state.SkipWithError("wrong length");
    int i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            u_snprintf(buf, 256, "%d %s %x", i, kText, static_cast<unsigned>(i)));
        benchmark::ClobberMemory();
        i = (i + 7919) % 10000000;
    }
}
BENCHMARK(Format_u_snprintf);

constexpr char kLine[] = "1234567 replication-target-7 12d687";

void Scan_UString(benchmark::State& state) {
    const UString line(kLine, kUTF8);
    const UString fmt("%d %s %x", kUTF8);
    int d = 0;
    unsigned x = 0;
    char s[32];
    if (line.scan(&fmt, &d, s, &x) != 3 || d != 1234567 || x != 0x12d687)
        state.SkipWithError("wrong result");
    for (auto _ : state) {
        benchmark::DoNotOptimize(line.scan(&fmt, &d, s, &x));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(Scan_UString);

void Scan_sscanf(benchmark::State& state) {
    int d = 0;
    unsigned x = 0;
    char s[32];
    for (auto _ : state) {
        benchmark::DoNotOptimize(std::sscanf(kLine, "%d %31s %x", &d, s, &x));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(Scan_sscanf);

} // namespace

BENCHMARK_MAIN();
