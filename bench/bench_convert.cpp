//===- bench/bench_convert.cpp - Conversion beside ICU and iconv ----------===//
//
// Measures ULIB_CStoCS on the pairs that replication moves most, beside what
// a program without this library would call: ICU's one-shot ucnv_convert,
// which opens both converters on each call as the ICU path does; a pair of
// converters opened once and driven by ucnv_convertEx (for a UTF-16 target
// also ucnv_toUChars); glibc's iconv on a descriptor opened once; and a
// memcpy of the same bytes, the floor no converter gets below. Each pair runs
// on a row of about 1 KB and a buffer of about 1 MB of running text, built
// once, and the throughput counts source bytes.
//
// Before timing, the run converts each text once through all of them and
// prints whether the outputs agree byte for byte (a differing peer is not a
// baseline for that pair, so the mismatch is printed where it starts), then
// what the first use of a pair costs a thread: building its tables, and the
// whole first call.
//
//===----------------------------------------------------------------------===//
#include "qzunicode/COptimizedConverter.h"
#include "qzunicode/CharSetTable.h"
#include "qzunicode/ULib.h"

#include <benchmark/benchmark.h>

#include <iconv.h>
#include <unicode/ucnv.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

using namespace qzs::qzlib::qzunicode;

namespace {

// Running text in UTF-8; each pair's source is made from it by ICU.
const char* const kLatin1Prose[] = {
    "Le cœur a ses raisons que la raison ne connaît point : on le sait en mille choses. ",
    "Die Straße führt über die Brücke zum Bahnhof, wo der Zug um 7 Uhr abfährt. ",
    "El niño pidió una canción más antes de dormir; la mañana llegó pronto. ",
    "A reunião começará às três horas, na sala ao lado da secretária. ",
    "Hän är född i Göteborg, men bor nu i Århus med sin familj. ",
    "Après l'été, les élèves reçoivent leurs résultats à la mairie.\n",
    "Order 4711: 12 × Kaffeebohnen à 8,50 €? Nein — 8,50 DM, bitte prüfen.\n",
};
// The same without the characters IBM037 lacks (œ, €, ×, —).
const char* const kWesternProse[] = {
    "Die Straße führt über die Brücke zum Bahnhof, wo der Zug um 7 Uhr abfährt. ",
    "El niño pidió una canción más antes de dormir; la mañana llegó pronto. ",
    "A reunião começará às três horas, na sala ao lado da secretária. ",
    "Hän är född i Göteborg, men bor nu i Århus med sin familj. ",
    "Après l'été, les élèves reçoivent leurs résultats à la mairie.\n",
};
const char* const kJapaneseProse[] = {
    "吾輩は猫である。名前はまだ無い。どこで生れたかとんと見当がつかぬ。",
    "何でも薄暗いじめじめした所でニャーニャー泣いていた事だけは記憶している。",
    "東京都千代田区の本社で、第3四半期の売上報告書を作成しました。",
    "データベースの複製処理は、毎日午前2時に開始されます。\n",
    "「ありがとうございます」と彼女は言い、静かに部屋を出て行った。",
    "システム管理者は、ログファイルを確認してください。ABC-123 形式の番号を使用します。\n",
};
const char* const kMixedProse[] = {
    "The replication process reads the log and applies each change in order. ",
    "Les données sont copiées vers le serveur cible à intervalles réguliers. ",
    "Η βάση δεδομένων ενημερώνεται κάθε λεπτό. ",
    "База данных обновляется каждую минуту. ",
    "データベースは毎分更新されます。",
    "数据库每分钟更新一次。",
    "데이터베이스는 매분 업데이트됩니다. ",
    "Status: ✅ done 🚀 (42 rows, 3 ms)\n",
};

// The name ICU and iconv know a set by; the table's UTF-16 is native order
// with no byte order mark, which ICU calls UTF-16LE on this machine.
struct Pair {
    std::string label;
    const char* sourceName; // by the table's name
    const char* targetName;
    const char* icuSource;
    const char* icuTarget;
    const char* iconvSource;
    const char* iconvTarget;
    std::string source; // the text in the source set
    ULibCharSet sourceSet = ULIB_CS_INVALID;
    ULibCharSet targetSet = ULIB_CS_INVALID;
};

std::string icuConvert(const char* to, const char* from, const std::string& in) {
    std::string out(4 * in.size() + 16, '\0');
    UErrorCode status = U_ZERO_ERROR;
    const int32_t n = ucnv_convert(to, from, out.data(), int32_t(out.size()), in.data(),
                                   int32_t(in.size()), &status);
    if (U_FAILURE(status)) {
        std::fprintf(stderr, "ucnv_convert %s -> %s: %s\n", from, to, u_errorName(status));
        std::exit(1);
    }
    out.resize(n);
    return out;
}

// The prose in the set ICU knows as `set`, repeated whole to at least
// `bytes` bytes of that set.
template <std::size_t N>
std::string textIn(const char* set, const char* const (&parts)[N], std::size_t bytes) {
    std::string prose;
    for (const char* p : parts)
        prose += p;
    const std::string once = icuConvert(set, "UTF-8", prose);
    std::string text;
    while (text.size() < bytes)
        text += once;
    return text;
}

// The pairs of the table below, each on a short row of about 1 KB (where
// opening converters per call weighs) and on a buffer of about 1 MB.
std::vector<Pair>& pairs() {
    static std::vector<Pair> all = [] {
        struct Spec {
            const char* label;
            const char *sourceName, *targetName, *icuSource, *icuTarget, *iconvSource, *iconvTarget;
            int prose; // 0 Latin, 1 Japanese, 2 mixed, 3 western
        };
        const Spec specs[] = {
            {"Ibm037ToLatin1", "IBM037", "ISO-8859-1", "IBM037", "ISO-8859-1", "IBM037",
             "ISO-8859-1", 0},
            {"Latin1ToUtf8", "ISO-8859-1", "UTF-8", "ISO-8859-1", "UTF-8", "ISO-8859-1", "UTF-8",
             0},
            {"ShiftJisToUtf16", "windows-932", "UTF-16", "windows-932", "UTF-16LE", "CP932",
             "UTF-16LE", 1},
            {"EucJpToUtf8", "eucjis", "UTF-8", "eucjis", "UTF-8", "EUC-JP", "UTF-8", 1},
            {"Utf8ToIbm037", "UTF-8", "IBM037", "UTF-8", "IBM037", "UTF-8", "IBM037", 3},
            {"Utf16ToShiftJis", "UTF-16", "windows-932", "UTF-16LE", "windows-932", "UTF-16LE",
             "CP932", 1},
            {"Utf8ToUtf16", "UTF-8", "UTF-16", "UTF-8", "UTF-16LE", "UTF-8", "UTF-16LE", 2},
        };
        std::vector<Pair> p;
        for (const std::size_t bytes : {std::size_t(1024), std::size_t(1024 * 1024)})
            for (const Spec& s : specs) {
                Pair x{std::string(s.label) + (bytes < 4096 ? "/1KB" : "/1MB"),
                       s.sourceName,
                       s.targetName,
                       s.icuSource,
                       s.icuTarget,
                       s.iconvSource,
                       s.iconvTarget,
                       {}};
                x.source = s.prose == 0   ? textIn(s.icuSource, kLatin1Prose, bytes)
                           : s.prose == 1 ? textIn(s.icuSource, kJapaneseProse, bytes)
                           : s.prose == 3 ? textIn(s.icuSource, kWesternProse, bytes)
                                          : textIn(s.icuSource, kMixedProse, bytes);
                x.sourceSet = ULIB_toCharSet(x.sourceName);
                x.targetSet = ULIB_toCharSet(x.targetName);
                p.push_back(std::move(x));
            }
        return p;
    }();
    return all;
}

std::size_t outputRoom(const Pair& p) {
    return 4 * p.source.size() + 16;
}

//===-- The four ways to convert, each into a buffer of outputRoom ---------===//

int viaULib(const Pair& p, char* out) {
    ULibError err = ULIB_OK;
    const int n = ULIB_CStoCS(p.targetSet, out, int(outputRoom(p)), 0, p.sourceSet, p.source.data(),
                              int(p.source.size()), false, false, &err, nullptr);
    return err == ULIB_OK ? n : -1;
}

int viaUcnvConvert(const Pair& p, char* out) {
    UErrorCode status = U_ZERO_ERROR;
    const int32_t n = ucnv_convert(p.icuTarget, p.icuSource, out, int32_t(outputRoom(p)),
                                   p.source.data(), int32_t(p.source.size()), &status);
    return U_SUCCESS(status) ? n : -1;
}

struct OpenedPair {
    UConverter* source;
    UConverter* target;
};

OpenedPair openPair(const Pair& p) {
    UErrorCode status = U_ZERO_ERROR;
    OpenedPair c{ucnv_open(p.icuSource, &status), ucnv_open(p.icuTarget, &status)};
    if (U_FAILURE(status)) {
        std::fprintf(stderr, "ucnv_open %s / %s: %s\n", p.icuSource, p.icuTarget,
                     u_errorName(status));
        std::exit(1);
    }
    return c;
}

int viaConvertEx(const Pair& p, const OpenedPair& c, char* out) {
    UChar pivot[1024]; // what ucnv_convert uses
    UChar* pivotSource = pivot;
    UChar* pivotTarget = pivot;
    char* target = out;
    const char* source = p.source.data();
    UErrorCode status = U_ZERO_ERROR;
    ucnv_convertEx(c.target, c.source, &target, out + outputRoom(p), &source,
                   source + p.source.size(), pivot, &pivotSource, &pivotTarget, pivot + 1024, true,
                   true, &status);
    return U_SUCCESS(status) ? int(target - out) : -1;
}

int viaToUChars(const Pair& p, const OpenedPair& c, char* out) {
    UErrorCode status = U_ZERO_ERROR;
    const int32_t n =
        ucnv_toUChars(c.source, reinterpret_cast<UChar*>(out), int32_t(outputRoom(p) / 2),
                      p.source.data(), int32_t(p.source.size()), &status);
    return U_SUCCESS(status) ? 2 * n : -1;
}

iconv_t openIconv(const Pair& p) {
    iconv_t cd = iconv_open(p.iconvTarget, p.iconvSource);
    if (cd == iconv_t(-1)) {
        std::fprintf(stderr, "iconv_open %s -> %s failed\n", p.iconvSource, p.iconvTarget);
        std::exit(1);
    }
    return cd;
}

int viaIconv(const Pair& p, iconv_t cd, char* out) {
    iconv(cd, nullptr, nullptr, nullptr, nullptr);
    char* in = const_cast<char*>(p.source.data());
    std::size_t inLeft = p.source.size();
    char* target = out;
    std::size_t outLeft = outputRoom(p);
    if (iconv(cd, &in, &inLeft, &target, &outLeft) == std::size_t(-1) ||
        iconv(cd, nullptr, nullptr, &target, &outLeft) == std::size_t(-1))
        return -1;
    return int(target - out);
}

int viaMemcpy(const Pair& p, char* out) {
    std::memcpy(out, p.source.data(), p.source.size());
    return int(p.source.size());
}

//===-- Agreement check and the benchmarks --------------------------------===//

bool isUTF16Target(const Pair& p) {
    return p.targetSet == ULibCharSet(1);
}

void report(const char* peer, const std::string& ours, const std::string& theirs) {
    if (ours == theirs) {
        std::printf("  %-14s agrees\n", peer);
        return;
    }
    std::size_t i = 0;
    while (i < ours.size() && i < theirs.size() && ours[i] == theirs[i])
        ++i;
    std::printf("  %-14s DIFFERS from byte %zu (%zu against our %zu bytes)\n", peer, i,
                theirs.size(), ours.size());
}

void verify() {
    for (const Pair& p : pairs()) {
        std::vector<char> buf(outputRoom(p));
        auto run = [&](auto convert) {
            const int n = convert(buf.data());
            return n < 0 ? std::string("(failed)") : std::string(buf.data(), n);
        };
        const OpenedPair c = openPair(p);
        const iconv_t cd = openIconv(p);
        const std::string ours = run([&](char* o) { return viaULib(p, o); });
        std::printf("%s: sets %d -> %d, %zu source bytes -> %zu target bytes\n", p.label.c_str(),
                    int(p.sourceSet), int(p.targetSet), p.source.size(), ours.size());
        report("ucnv_convert", ours, run([&](char* o) { return viaUcnvConvert(p, o); }));
        report("ucnv_convertEx", ours, run([&](char* o) { return viaConvertEx(p, c, o); }));
        if (isUTF16Target(p))
            report("ucnv_toUChars", ours, run([&](char* o) { return viaToUChars(p, c, o); }));
        report("iconv", ours, run([&](char* o) { return viaIconv(p, cd, o); }));
        ucnv_close(c.source);
        ucnv_close(c.target);
        iconv_close(cd);
    }
    std::fflush(stdout);
}

// What the first conversion of a pair costs a thread: building the tables
// (getConverter on a thread that has none), and the whole first call, tables
// included. Each is timed on a fresh thread, so nothing is cached.
void reportFirstCalls() {
    using Clock = std::chrono::steady_clock;
    auto micros = [](Clock::duration d) {
        return std::chrono::duration<double, std::micro>(d).count();
    };
    std::printf("First use on a thread (tables built once per thread and pair):\n");
    for (const Pair& p : pairs()) {
        if (p.label.find("/1KB") == std::string::npos)
            continue;
        double build = 0, first = 0, second = 0;
        std::size_t bytes = 0;
        std::thread([&] {
            const Clock::time_point t0 = Clock::now();
            const COptimizedConverter* c =
                COptimizedConverter::getConverter(p.sourceSet, p.targetSet);
            build = micros(Clock::now() - t0);
            bytes = c != nullptr ? c->memoryBytes() : 0;
        }).join();
        std::thread([&] {
            std::vector<char> out(outputRoom(p));
            const Clock::time_point t0 = Clock::now();
            viaULib(p, out.data());
            const Clock::time_point t1 = Clock::now();
            viaULib(p, out.data());
            first = micros(t1 - t0);
            second = micros(Clock::now() - t1);
        }).join();
        std::printf(
            "  %-22s tables %9.0f us, %8zu bytes; first 1 KB call %9.0f us, next %6.1f us\n",
            p.label.c_str(), build, bytes, first, second);
    }
    std::fflush(stdout);
}

template <typename Convert> void runLoop(benchmark::State& state, const Pair& p, Convert convert) {
    std::vector<char> out(outputRoom(p));
    for (auto _ : state) {
        int n = convert(out.data());
        if (n < 0) {
            state.SkipWithError("conversion failed");
            break;
        }
        benchmark::DoNotOptimize(n);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(std::int64_t(state.iterations()) * std::int64_t(p.source.size()));
}

void registerPair(const Pair& p) {
    const std::string prefix = p.label + "/";
    benchmark::RegisterBenchmark((prefix + "Qz").c_str(), [&p](benchmark::State& s) {
        runLoop(s, p, [&p](char* o) { return viaULib(p, o); });
    });
    benchmark::RegisterBenchmark((prefix + "Memcpy").c_str(), [&p](benchmark::State& s) {
        runLoop(s, p, [&p](char* o) { return viaMemcpy(p, o); });
    });
    benchmark::RegisterBenchmark((prefix + "IcuConvert").c_str(), [&p](benchmark::State& s) {
        runLoop(s, p, [&p](char* o) { return viaUcnvConvert(p, o); });
    });
    benchmark::RegisterBenchmark((prefix + "IcuConvertEx").c_str(), [&p](benchmark::State& s) {
        const OpenedPair c = openPair(p);
        runLoop(s, p, [&](char* o) { return viaConvertEx(p, c, o); });
        ucnv_close(c.source);
        ucnv_close(c.target);
    });
    if (isUTF16Target(p)) {
        benchmark::RegisterBenchmark((prefix + "IcuToUChars").c_str(), [&p](benchmark::State& s) {
            const OpenedPair c = openPair(p);
            runLoop(s, p, [&](char* o) { return viaToUChars(p, c, o); });
            ucnv_close(c.source);
            ucnv_close(c.target);
        });
    }
    benchmark::RegisterBenchmark((prefix + "Iconv").c_str(), [&p](benchmark::State& s) {
        const iconv_t cd = openIconv(p);
        runLoop(s, p, [&](char* o) { return viaIconv(p, cd, o); });
        iconv_close(cd);
    });
}

} // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    verify();
    reportFirstCalls();
    for (const Pair& p : pairs())
        registerPair(p);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
