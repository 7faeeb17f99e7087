//===- fuzz/fuzz_json.cpp - The JSON reader on raw bytes ------------------===//
//
// A libFuzzer target for JsonReader: the input, NULs included, is the text.
// A value that reads is written, read back and compared, so the writer must
// give text the reader accepts and that means the same value; the styled
// text must read back equal too. Depth is capped by the reader, so the walks
// that follow (write, copy, compare, destroy) stay within the stack.
//
//===----------------------------------------------------------------------===//
#include "qzsca/JsonValue.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

namespace {

void check(bool condition) {
    if (!condition)
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    JsonValue value;
    JsonReader reader;
    if (!reader.parse(reinterpret_cast<const char*>(data), size, value)) {
        check(value.IsNull()); // a failed parse leaves the value as it was
        return 0;
    }
    const std::string compact = value.toString();
    JsonValue again;
    check(reader.parse(compact, again));
    // Texts rather than operator==: with duplicate member names equality
    // looks up the first of them only.
    check(again.toString() == compact);
    JsonValue styled;
    check(reader.parse(value.toStyledString(), styled));
    check(styled.toString() == compact);

    // Every read answers without a crash, whatever the kind.
    (void)value.type();
    (void)value.asString();
    (void)value.asInt64();
    (void)value.asDouble();
    (void)value.empty();
    JsonValue copy(value);
    check(copy.toString() == compact);
    copy.merge(value);
    return 0;
}
