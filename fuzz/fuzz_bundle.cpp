//===- fuzz/fuzz_bundle.cpp - Catalogues of any shape --------------------===//
//
// A libFuzzer target for the catalogue reader: the input is a compiled
// bundle (the genrb output, root.res), written to a fresh directory and
// opened by ICU, then taken by a new factory (UseBundle: the version check,
// severities, class and code rules, limits) and every numbered entry read as
// a message template. The bytes go first through the check the factory
// makes of a catalogue file: what passes it must never make ICU or the
// factory crash or read outside the data.
//
//===----------------------------------------------------------------------===//
#include "qzmsg/CMessageFactory.h"
#include "qzmsg/CMessageTemplate.h"
#include "qzmsg/detail/CatalogueCheck.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include <unicode/resbund.h>

using namespace qzs::qzlib;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // What the factory refuses never reaches ICU.
    if (!detail::checkCatalogueBytes(data, size))
        return 0;
    // ICU keeps a bundle opened from a path for the process: each input gets
    // a directory of its own, removed afterwards.
    static unsigned long run = 0;
    static const std::string base = [] {
        char dir[] = "/tmp/qzfuzzbundleXXXXXX";
        return std::string(::mkdtemp(dir) ? dir : "/tmp");
    }();
    const std::string dir = base + "/" + std::to_string(run++) + "/";
    ::mkdir(dir.c_str(), 0700);
    const std::string file = dir + "root.res";
    if (FILE* out = std::fopen(file.c_str(), "wb")) {
        std::fwrite(data, 1, size, out);
        std::fclose(out);
    }
    UErrorCode ec = U_ZERO_ERROR;
    auto* bundle = new icu::ResourceBundle(dir.c_str(), icu::Locale("root"), ec);
    if (U_FAILURE(ec)) {
        delete bundle;
    } else {
        icu::ResourceBundle entries(*bundle);
        CMessageFactory factory;
        factory.UseBundle(bundle, "fuzz");
        for (int i = 0; i < entries.getSize() && i < 256; ++i) {
            UErrorCode e = U_ZERO_ERROR;
            icu::ResourceBundle entry = entries.get(i, e);
            char* end = nullptr;
            const char* key = entry.getKey();
            const unsigned long id = key ? std::strtoul(key, &end, 10) : 0;
            if (U_FAILURE(e) || !key || !*key || *end)
                continue;
            CMessageTemplate messageTemplate(static_cast<unsigned int>(id));
            messageTemplate.Load(entry);
        }
    }
    std::remove(file.c_str());
    ::rmdir(dir.c_str());
    return 0;
}
