//===- bench/bench_ustring.cpp - Bytes through a UString, beside std::string ===//
//
// What a string received as bytes costs when it is only passed on: a UString
// built from bytes in a character set and read back with c_str in that set,
// beside a std::string copy of the same bytes (construct, read c_str,
// destroy), for texts of 16, 64, 256 and 4096 bytes in UTF-8 and ISO-8859-1.
// A UString keeps such bytes as they came, so this path must not convert:
// every iteration checks that the UTF-16 form was never built and that c_str
// gave back the kept bytes, and the "conversions" counter counts the strings
// that failed the check (it must read 0). As context, FirstLength builds the
// same string and asks its length(), the first unit access, which converts
// the bytes to UTF-16: the cost the pass-through path avoids.
//
// The pool of bodies (UString::initPool) is process-wide and cannot be
// undone. The cases without it are registered first, so they run first, and
// each stops with an error if it finds the pool on (as it would under
// --benchmark_enable_random_interleaving); the Pool cases turn it on. One
// binary, so that the peer, the heap bodies and the pooled ones are measured
// in one run on one machine state.
//
//===----------------------------------------------------------------------===//
#include "qzunicode/CharSetTable.h"
#include "qzunicode/ULib.h"
#include "qzunicode/UString.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <new>
#include <string>
#include <vector>

//===-- Allocation counting ------------------------------------------------===//
//
// operator new is replaced in this executable; the library is a shared
// object, so its array and body allocations come here too. std::string
// allocates through it as well.

namespace {
thread_local std::uint64_t t_allocations = 0;
}

// glibc's own entry points, so that the compiler does not pair an inlined
// new with free.
extern "C" void* __libc_malloc(std::size_t size);
extern "C" void __libc_free(void* p);

void* operator new(std::size_t size) {
    ++t_allocations;
    if (void* p = __libc_malloc(size ? size : 1))
        return p;
    throw std::bad_alloc();
}
void* operator new[](std::size_t size) {
    return operator new(size);
}
void operator delete(void* p) noexcept {
    __libc_free(p);
}
void operator delete[](void* p) noexcept {
    __libc_free(p);
}
void operator delete(void* p, std::size_t) noexcept {
    __libc_free(p);
}
void operator delete[](void* p, std::size_t) noexcept {
    __libc_free(p);
}

using namespace qzs::qzlib::qzunicode;

namespace {

// Sentences in the repertoire of ISO-8859-1, so that both sets carry the same
// prose; the UTF-8 text adds Greek and Japanese for its two- and three-byte
// characters, which only the conversion of FirstLength looks at.
const char* const kLatinProse[] = {
    "Die Straße führt über die Brücke zum Bahnhof, wo der Zug um 7 Uhr abfährt. ",
    "El niño pidió una canción más antes de dormir; la mañana llegó pronto. ",
    "Après l'été, les élèves reçoivent leurs résultats à la mairie. ",
    "Order 4711 was applied to the target at 02:15, 12 rows in all. ",
};
const char* const kWideProse[] = {
    "Η βάση δεδομένων ενημερώνεται κάθε λεπτό. ",
    "データベースは毎分更新されます。",
};

enum TextSet { kUtf8, kLatin1 };

struct Text {
    std::string bytes;
    ULibCharSet cs;
};

// Prose repeated and cut to exactly n bytes: at a character boundary in
// UTF-8, padded with blanks to the length.
std::string utf8Prose(std::size_t n) {
    std::string all;
    while (all.size() < n + 8) {
        for (const char* p : kLatinProse)
            all += p;
        for (const char* p : kWideProse)
            all += p;
    }
    std::size_t cut = n;
    while (cut > 0 && (static_cast<unsigned char>(all[cut]) & 0xC0) == 0x80)
        --cut;
    std::string text = all.substr(0, cut);
    text.resize(n, ' ');
    return text;
}

std::string latin1Prose(std::size_t n, ULibCharSet latin1) {
    std::string utf8;
    while (utf8.size() < 2 * n + 8) // fewer bytes in ISO-8859-1
        for (const char* p : kLatinProse)
            utf8 += p;
    std::vector<char> out(utf8.size() + 8);
    ULibError err = ULIB_OK;
    const int bytes = ULIB_CStoCS(latin1, out.data(), int(out.size()), 0, ULibCharSet(0),
                                  utf8.data(), int(utf8.size()), false, false, &err, nullptr);
    if (err != ULIB_OK || std::size_t(bytes) < n) {
        std::fprintf(stderr, "bench_ustring: cannot make the ISO-8859-1 text (error %d)\n",
                     int(err));
        std::exit(1);
    }
    return std::string(out.data(), n);
}

const Text& text(TextSet set, std::int64_t n) {
    static std::deque<Text> texts[2]; // references stay valid as it grows
    static const ULibCharSet sets[2] = {ULIB_toCharSet("UTF-8"), ULIB_toCharSet("ISO-8859-1")};
    for (const Text& t : texts[set])
        if (t.bytes.size() == std::size_t(n))
            return t;
    const std::size_t size = std::size_t(n);
    texts[set].push_back(
        {set == kUtf8 ? utf8Prose(size) : latin1Prose(size, sets[kLatin1]), sets[set]});
    return texts[set].back();
}

bool poolIsOn() {
    return UString::uStrImpl::m_poPool != nullptr;
}

// Construct from bytes, read them back in the same set, destroy. A string
// that built its UTF-16 form, or whose c_str is not its kept bytes, counts
// as a conversion.
void passThrough(benchmark::State& state, TextSet set) {
    const Text& t = text(set, state.range(0));
    std::uint64_t conversions = 0;
    const std::uint64_t before = t_allocations;
    for (auto _ : state) {
        UString s(t.bytes.data(), t.bytes.size(), t.cs);
        const char* p = s.c_str(t.cs);
        benchmark::DoNotOptimize(p);
        benchmark::ClobberMemory();
        if (s.impl()->m_uPrimaryLen != 0 || p != s.impl()->m_pSecondary)
            ++conversions;
    }
    state.counters["conversions"] = double(conversions);
    state.counters["allocs"] =
        benchmark::Counter(double(t_allocations - before), benchmark::Counter::kAvgIterations);
}

// The same string's first unit access: the bytes are converted to UTF-16.
void firstLength(benchmark::State& state, TextSet set) {
    const Text& t = text(set, state.range(0));
    const std::uint64_t before = t_allocations;
    for (auto _ : state) {
        UString s(t.bytes.data(), t.bytes.size(), t.cs);
        std::size_t units = s.length();
        benchmark::DoNotOptimize(units);
        benchmark::ClobberMemory();
    }
    state.counters["allocs"] =
        benchmark::Counter(double(t_allocations - before), benchmark::Counter::kAvgIterations);
}

bool refusePool(benchmark::State& state) {
    if (!poolIsOn())
        return false;
    state.SkipWithError("the body pool is already on: run the NoPool cases first, in order");
    return true;
}

//===-- The peer: a std::string copy of the same bytes ---------------------===//

void BM_StdString(benchmark::State& state) {
    const Text& t = text(kUtf8, state.range(0));
    std::uint64_t mismatches = 0;
    const std::uint64_t before = t_allocations;
    for (auto _ : state) {
        std::string s(t.bytes.data(), t.bytes.size());
        const char* p = s.c_str();
        benchmark::DoNotOptimize(p);
        benchmark::ClobberMemory();
        if (p != s.data()) // the same shape of check as the UString loop
            ++mismatches;
    }
    state.counters["conversions"] = double(mismatches);
    state.counters["allocs"] =
        benchmark::Counter(double(t_allocations - before), benchmark::Counter::kAvgIterations);
}

//===-- Bodies from the heap -------------------------------------------------===//

void BM_UString_NoPool(benchmark::State& state, TextSet set) {
    if (!refusePool(state))
        passThrough(state, set);
}

void BM_FirstLength_NoPool(benchmark::State& state, TextSet set) {
    if (!refusePool(state))
        firstLength(state, set);
}

//===-- Bodies from the pool -------------------------------------------------===//

void BM_UString_Pool(benchmark::State& state, TextSet set) {
    UString::initPool();
    passThrough(state, set);
}

void BM_FirstLength_Pool(benchmark::State& state, TextSet set) {
    UString::initPool();
    firstLength(state, set);
}

} // namespace

// Registration order is run order: everything without the pool comes first.
#define QZ_SIZES Arg(16)->Arg(64)->Arg(256)->Arg(4096)->MinTime(0.2)
BENCHMARK(BM_StdString)->QZ_SIZES;
BENCHMARK_CAPTURE(BM_UString_NoPool, utf8, kUtf8)->QZ_SIZES;
BENCHMARK_CAPTURE(BM_UString_NoPool, latin1, kLatin1)->QZ_SIZES;
BENCHMARK_CAPTURE(BM_FirstLength_NoPool, utf8, kUtf8)->QZ_SIZES;
BENCHMARK_CAPTURE(BM_FirstLength_NoPool, latin1, kLatin1)->QZ_SIZES;
BENCHMARK_CAPTURE(BM_UString_Pool, utf8, kUtf8)->QZ_SIZES;
BENCHMARK_CAPTURE(BM_UString_Pool, latin1, kLatin1)->QZ_SIZES;
BENCHMARK_CAPTURE(BM_FirstLength_Pool, utf8, kUtf8)->QZ_SIZES;
BENCHMARK_CAPTURE(BM_FirstLength_Pool, latin1, kLatin1)->QZ_SIZES;
#undef QZ_SIZES

// Before timing: each text goes through a UString and comes back byte for
// byte, and its length in units is printed, so that a broken set number or
// text shows up before any figure does.
int main(int argc, char** argv) {
    for (TextSet set : {kUtf8, kLatin1}) {
        for (std::int64_t n : {16, 64, 256, 4096}) {
            const Text& t = text(set, n);
            const UString s(t.bytes.data(), t.bytes.size(), t.cs);
            if (std::memcmp(s.c_str(t.cs), t.bytes.data(), t.bytes.size()) != 0) {
                std::fprintf(stderr, "bench_ustring: set %d did not give its bytes back\n",
                             int(t.cs));
                return 1;
            }
            if (n == 4096)
                std::printf("set %d (%s): 4096 bytes read as %zu units\n", int(t.cs),
                            set == kUtf8 ? "UTF-8" : "ISO-8859-1", UString(s).length());
        }
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
