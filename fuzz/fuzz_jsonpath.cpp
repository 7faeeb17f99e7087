//===- fuzz/fuzz_jsonpath.cpp - JSON paths against a small document -------===//
//
// A libFuzzer target for JsonPath. The input is split at its first NUL: the
// part before it is a JSON document (an empty object when it does not read),
// the rest a list of operations, one a line: the first byte picks get, put,
// remove, getArray or exists, the second an index for "[]", and the rest of
// the line is the path. Whatever the paths, the document stays a tree that
// writes as JSON the reader accepts, and no operation throws when it was not
// asked to report.
//
//===----------------------------------------------------------------------===//
#include "qzsca/JsonPath.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

using qzs::qzlib::sca::JsonPath;
using qzs::qzlib::sca::JsonPathError;

namespace {

void check(bool condition) {
    if (!condition)
        std::abort();
}

// Whether `text` is UTF-8 (no overlongs, surrogates or values past U+10FFFF).
bool isUtf8(const std::string& text) {
    const auto* p = reinterpret_cast<const unsigned char*>(text.data());
    const auto* end = p + text.size();
    while (p < end) {
        const unsigned c = *p++;
        int more = c < 0x80                ? 0
                   : c >= 0xC2 && c < 0xE0 ? 1
                   : c >= 0xE0 && c < 0xF0 ? 2
                   : c >= 0xF0 && c < 0xF5 ? 3
                                           : -1;
        if (more < 0 || end - p < more)
            return false;
        const unsigned first = more ? p[0] : 0x80;
        if ((c == 0xE0 && first < 0xA0) || (c == 0xED && first > 0x9F) ||
            (c == 0xF0 && first < 0x90) || (c == 0xF4 && first > 0x8F))
            return false;
        for (; more > 0; --more)
            if ((*p++ & 0xC0) != 0x80)
                return false;
    }
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string input(reinterpret_cast<const char*>(data), size);
    const size_t nul = input.find('\0');
    JsonValue doc;
    JsonReader reader;
    if (!reader.parse(input.substr(0, nul), doc))
        doc = JsonValue(JsonValue::Object);
    if (nul == std::string::npos)
        return 0;

    size_t start = nul + 1;
    int operations = 0;
    while (start < input.size() && operations++ < 64) {
        size_t end = input.find('\n', start);
        if (end == std::string::npos)
            end = input.size();
        const std::string line = input.substr(start, end - start);
        start = end + 1;
        if (line.size() < 2)
            continue;
        const int index = static_cast<signed char>(line[1]);
        JsonPathError error;
        const JsonPath path(line.substr(2), &error);
        check(error.hasError() == (path.size() == 0));
        check(error.hasError() ||
              JsonPath(path.getPath()).getPathElements() == path.getPathElements());
        error.clear();
        switch (static_cast<unsigned char>(line[0]) % 5) {
        case 0: {
            const JsonValue& got = path.get(doc, &index, &error);
            check(!error.hasError() || &got == &doc);
            break;
        }
        case 1:
            path.put(doc, &index, &error) = JsonValue(index);
            break;
        case 2:
            check((path.remove(doc, &error) == JsonPathError::FAILURE) == error.hasError());
            break;
        case 3:
            path.getArray(doc, &error);
            break;
        default:
            (void)path.exists(doc);
            (void)path.getValueAsString(doc, &error);
            break;
        }
    }
    // Member names come from the paths as bytes; a name that is not UTF-8 is
    // the caller's to answer for, and its document does not read back.
    const std::string text = doc.toString();
    if (!isUtf8(text))
        return 0;
    JsonValue back;
    check(reader.parse(text, back));
    check(back.toString() == text);
    return 0;
}
