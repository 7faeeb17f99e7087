//===- fuzz/fuzz_datestring.cpp - Date entries and ISO 8601 texts ---------===//
//
// A libFuzzer target for the readers of date text: the entry forms, the two
// timestamp readers and the ISO 8601 reader. The input, cut at its first NUL,
// is the text. The entry reader is held to sscanf with the same forms (their
// "%s" bounded as ours is), and each accepted result to its contract: fields
// in range, and the readers agreeing with one another. The process runs in a
// POSIX zone with daylight saving, so no zone file is read.
//
//===----------------------------------------------------------------------===//
#include "qzstd/TimeConversion.h"
#include "qzstd/detail/DateEntryScan.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

using qzs::qzlib::detail::DateEntryForms;
using qzs::qzlib::detail::DateEntryScan;

namespace {

void check(bool condition) {
    if (!condition)
        std::abort();
}

bool inRange(const time_elt_def& t) {
    return t.year >= 1 && t.year <= 9999 && t.month >= 1 && t.month <= 12 && t.day >= 1 &&
           t.day <= 31 && t.hour >= 0 && t.hour <= 23 && t.minute >= 0 && t.minute <= 59 &&
           t.second >= 0 && t.second <= 59 && t.millisecond >= 0 && t.millisecond <= 999 &&
           t.microsecond >= 0 && t.microsecond <= 999;
}

void sameAsSscanf(const char* text) {
    const int length = static_cast<int>(std::strlen(text));
    for (const char* form : DateEntryForms) {
        std::string bounded(form);
        const std::size_t at = bounded.find("%s");
        if (at != std::string::npos)
            bounded.replace(at, 2, "%29s");
        short v[6] = {};
        char fraction[32] = "";
        int end = -1, count = 0, hd = 0, slot = 0;
        void* args[8] = {};
        for (const char* p = form; (p = std::strchr(p, '%')); ++p) {
            args[slot++] = p[1] == 'h' ? static_cast<void*>(&v[hd++])
                           : p[1] == 's' ? static_cast<void*>(fraction)
                                         : static_cast<void*>(&end);
            count += p[1] != 'n';
        }
        const int matched = std::sscanf(text, bounded.c_str(), args[0], args[1], args[2], args[3],
                                        args[4], args[5], args[6], args[7]);
        DateEntryScan scan;
        const bool ours = qzs::qzlib::detail::scanDateEntryForm(text, form, &scan);
        check(ours == (matched == count && end == length));
        if (!ours)
            continue;
        check(scan.count == hd);
        for (int k = 0; k < scan.count; ++k)
            check(scan.values[k] == v[k]);
        check(std::strcmp(scan.fraction, fraction) == 0);
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    setenv("TZ", "EST5EDT,M3.2.0,M11.1.0", 1);
    tzset();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string input(reinterpret_cast<const char*>(data), size);
    const char* text = input.c_str();

    sameAsSscanf(text);

    time_elt_def entry;
    const bool valid = valid_date_entry(text, &entry) == 1;
    if (valid) {
        check(inRange(entry));
        short f[8] = {entry.year,   entry.month,  entry.day,         entry.hour,
                      entry.minute, entry.second, entry.millisecond, entry.microsecond};
        short err = -1;
        const long t = COMPUTETIMESTAMP(f, &err);
        check(err == 0);
        // The local reader takes a subset of the entries, and agrees on them.
        const long local = loc_str_to_loc_jts(text);
        check(local == 0 || local == t);
    }
    const long local = loc_str_to_loc_jts(text);
    check(local == 0 || valid);
    const long gmt = loc_str_to_gmt_jts(text);
    check((gmt == 0 && local == 0) || valid);
    if (local != 0) {
        short f[8];
        check(INTERPRETTIMESTAMP(local, f) != 0 || local < JTS_LOWEST_VALID);
    }

    time_elt_def iso = {-1, -1, -1, -1, -1, -1, -1, -1};
    if (qzISO8601ToLocalTime(text, &iso))
        check(inRange(iso));
    else
        check(iso.year == -1 && iso.microsecond == -1);
    return 0;
}
