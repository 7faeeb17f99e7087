//===- bench/bench_numbers.cpp - Database numbers, beside std::from_chars ===//
//
// The conversions a capture process runs for every numeric column: text to
// a scaled 64-bit value (NUMCNV_getNumeric, NUMCNV_convertTo64Bit), packed
// decimal to a 64-bit value (get_packed_decimal), and a scaled value back to
// text (output_binary_int), beside std::from_chars and std::to_chars on the
// same values. The peers do the plain integer's work on the same digits
// (they know nothing of a point or a scale), so the ratio shows what the
// scale and the database forms cost on top of the digits themselves.
//
// The values: 1024 of them, a fixed seed, 1 to 18 digits evenly, either
// sign, with scales from 0 to 6; each iteration converts one, in turn, and
// the "items" rate is numbers per second. Every case checks its result
// against the value, so that a broken conversion shows as an error rather
// than as a fast figure.
//
//===----------------------------------------------------------------------===//
#include "qzstd/NumberConversion.h"

#include <benchmark/benchmark.h>

#include <charconv>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace {

struct Sample {
    long value;
    short scale;
    std::string integerText; // "-12345": the peers' input
    std::string scaledText;  // "-123.45": ours
    std::string packed;      // 19 digits, 10 bytes
};

std::string scaledTextOf(long value, int scale) {
    std::string digits =
        std::to_string(value < 0 ? 0UL - static_cast<unsigned long>(value) : value);
    if (scale > 0) {
        if (digits.size() <= static_cast<size_t>(scale))
            digits.insert(0, scale + 1 - digits.size(), '0');
        digits.insert(digits.size() - scale, ".");
    }
    return (value < 0 ? "-" : "") + digits;
}

const std::vector<Sample>& samples() {
    static const std::vector<Sample> all = [] {
        std::mt19937_64 rng(13);
        std::vector<Sample> out;
        for (int i = 0; i < 1024; ++i) {
            const int digits = 1 + static_cast<int>(rng() % 18);
            long magnitude = 1;
            for (int d = 1; d < digits; ++d)
                magnitude *= 10;
            long value =
                magnitude + static_cast<long>(rng() % static_cast<unsigned long>(magnitude * 9));
            if (rng() % 2)
                value = -value;
            Sample s;
            s.value = value;
            s.scale = static_cast<short>(rng() % 7);
            s.integerText = std::to_string(value);
            s.scaledText = scaledTextOf(value, s.scale);
            char packed[10];
            size_t written = 0;
            ll_to_dec(value, packed, sizeof packed, QZ_DT_PACKED, 19, &written);
            s.packed.assign(packed, sizeof packed);
            out.push_back(s);
        }
        return out;
    }();
    return all;
}

void FromChars_Int64(benchmark::State& state) {
    const std::vector<Sample>& all = samples();
    size_t i = 0;
    for (auto _ : state) {
        const Sample& s = all[i++ & 1023];
        long value = 0;
        std::from_chars(s.integerText.data(), s.integerText.data() + s.integerText.size(), value);
        if (value != s.value)
            state.SkipWithError("from_chars");
        benchmark::DoNotOptimize(value);
    }
    state.SetItemsProcessed(state.iterations());
}

void GetNumeric(benchmark::State& state) {
    const std::vector<Sample>& all = samples();
    size_t i = 0;
    for (auto _ : state) {
        const Sample& s = all[i++ & 1023];
        long value = 0;
        short scale = 0;
        NUMCNV_getNumeric(s.scaledText.data(), s.scaledText.size(), &value, &scale, 0);
        if (value != s.value || scale != s.scale)
            state.SkipWithError("NUMCNV_getNumeric");
        benchmark::DoNotOptimize(value);
    }
    state.SetItemsProcessed(state.iterations());
}

void ConvertTo64Bit(benchmark::State& state) {
    const std::vector<Sample>& all = samples();
    size_t i = 0;
    for (auto _ : state) {
        const Sample& s = all[i++ & 1023];
        long value = 0;
        short scale = 0;
        NUMCNV_convertTo64Bit(s.scaledText.data(), static_cast<int>(s.scaledText.size()), &value,
                              &scale);
        // Trailing zeros move into the scale: put them back to compare.
        long check = value;
        for (short k = scale; k < s.scale; ++k)
            check *= 10;
        if (check != s.value)
            state.SkipWithError("NUMCNV_convertTo64Bit");
        benchmark::DoNotOptimize(value);
    }
    state.SetItemsProcessed(state.iterations());
}

void ToChars_Int64(benchmark::State& state) {
    const std::vector<Sample>& all = samples();
    size_t i = 0;
    char out[32];
    for (auto _ : state) {
        const Sample& s = all[i++ & 1023];
        const auto end = std::to_chars(out, out + sizeof out, s.value).ptr;
        if (static_cast<size_t>(end - out) != s.integerText.size())
            state.SkipWithError("to_chars");
        benchmark::DoNotOptimize(out);
    }
    state.SetItemsProcessed(state.iterations());
}

void OutputBinaryInt(benchmark::State& state) {
    const std::vector<Sample>& all = samples();
    size_t i = 0;
    char out[48];
    for (auto _ : state) {
        const Sample& s = all[i++ & 1023];
        const int length = output_binary_int(out, &s.value, s.scale, 8, 1);
        if (static_cast<size_t>(length) != s.scaledText.size())
            state.SkipWithError("output_binary_int");
        benchmark::DoNotOptimize(out);
    }
    state.SetItemsProcessed(state.iterations());
}

void GetPackedDecimal(benchmark::State& state) {
    const std::vector<Sample>& all = samples();
    size_t i = 0;
    for (auto _ : state) {
        const Sample& s = all[i++ & 1023];
        long value = 0;
        get_packed_decimal(s.packed.data(), s.packed.size(), 19, &value);
        if (value != s.value)
            state.SkipWithError("get_packed_decimal");
        benchmark::DoNotOptimize(value);
    }
    state.SetItemsProcessed(state.iterations());
}

} // namespace

BENCHMARK(FromChars_Int64);
BENCHMARK(GetNumeric);
BENCHMARK(ConvertTo64Bit);
BENCHMARK(GetPackedDecimal);
BENCHMARK(ToChars_Int64);
BENCHMARK(OutputBinaryInt);

BENCHMARK_MAIN();
