//===- bench/bench_messages.cpp - Raising a catalogue message -------------===//
//
// What a numbered message costs: made with three arguments, formatted, kept
// and disposed of (the work of a stored message), beside ICU's MessageFormat
// formatting the same pattern with the same three values alone; and a plain
// text from the catalogue by _TSTR, once its template is cached.
//
//===----------------------------------------------------------------------===//
#include "qzmsg/CMessage.h"
#include "qzmsg/CMessageFactory.h"
#include "qzmsg/Messages.h"

#include <benchmark/benchmark.h>

#include <unicode/fmtable.h>
#include <unicode/msgfmt.h>

namespace {

using namespace qzs::qzlib;

// Message 1971: "{0} {1} was repeated {2} times since it was last reported."
void Raise_StoredThreeArguments_Qz(benchmark::State& state) {
    CMessageFactory::GetDefaultFactory();
    unsigned int count = 0;
    for (auto _ : state) {
        CMessage* m = _MSG_String_String_UInt32(QZ_SOURCE("bench", "bench/messages", "raise"), 1971,
                                                "QZWarn", "XQZ-01234", ++count, ReturnToCaller);
        benchmark::DoNotOptimize(m->Format(FactoryCharSet));
        delete m;
    }
}
BENCHMARK(Raise_StoredThreeArguments_Qz);

void Raise_StoredThreeArguments_IcuFormatOnly(benchmark::State& state) {
    const icu::UnicodeString pattern(u"{0} {1} was repeated {2} times since it was last reported.");
    unsigned int count = 0;
    for (auto _ : state) {
        icu::Formattable args[3];
        args[0].setString(icu::UnicodeString("QZWarn"));
        args[1].setString(icu::UnicodeString("XQZ-01234"));
        args[2].setInt64(++count);
        icu::UnicodeString out;
        UErrorCode ec = U_ZERO_ERROR;
        icu::MessageFormat::format(pattern, args, 3, out, ec);
        std::string utf8;
        out.toUTF8String(utf8);
        benchmark::DoNotOptimize(utf8.data());
    }
}
BENCHMARK(Raise_StoredThreeArguments_IcuFormatOnly);

void Text_CachedTemplate_Qz(benchmark::State& state) {
    _TSTR(10000476);
    for (auto _ : state)
        benchmark::DoNotOptimize(_TSTR(10000476));
}
BENCHMARK(Text_CachedTemplate_Qz);

} // namespace

BENCHMARK_MAIN();
