//===- fuzz/fuzz_numbers.cpp - The number readers on any bytes ------------===//
//
// A libFuzzer target for the readers of database numbers. The first three
// bytes steer (flags, a signed scale, the size of the small target); the
// rest is the number, handed to each reader in a heap block of exactly its
// size so that the sanitizers see a read past it. The writers get targets
// fenced with guard bytes, a small one and a large one, and each result is
// held to its contract: a length that matches the text written, never more
// than the target holds, guards untouched.
//
// Values out of range raise catalogue messages (errors that report and go
// on); their console lines go to /dev/null, and none of them may end the
// process, which the fuzzer would report as a crash.
//
//===----------------------------------------------------------------------===//
#include "qzstd/NumberConversion.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

void check(bool condition) {
    if (!condition)
        std::abort();
}

// A target of `size` bytes with 16 guard bytes on each side.
class Fenced {
public:
    explicit Fenced(size_t size) : m_bytes(size + 32, '\x5A'), m_size(size) {}
    char* data() { return m_bytes.data() + 16; }
    size_t size() const { return m_size; }
    void checkGuards() const {
        for (size_t i = 0; i < 16; ++i)
            check(m_bytes[i] == '\x5A' && m_bytes[16 + m_size + i] == '\x5A');
    }

private:
    std::vector<char> m_bytes;
    size_t m_size;
};

// A text writer's result: -1, or the length of the text before its NUL
// (a straight copy keeps a NUL of the input, so only the end is checked).
void checkWritten(int length, Fenced& target, bool copied = false) {
    target.checkGuards();
    if (length < 0) {
        check(length == -1);
        return;
    }
    check(static_cast<size_t>(length) < target.size());
    check(target.data()[length] == '\0');
    check(copied || std::strlen(target.data()) == static_cast<size_t>(length));
}

void writers(const char* text, int n, int scale, size_t smallSize) {
    for (size_t size : {smallSize, static_cast<size_t>(200)}) {
        Fenced sci(size);
        const int sciLength = NUMCNV_convertToScientific(text, n, sci.data(), sci.size());
        checkWritten(sciLength, sci);
        if (sciLength > 0) {
            // Its own output reads back as a number.
            long value = 0;
            short sc = 0;
            check(NUMCNV_convertTo64Bit(sci.data(), sciLength, &value, &sc) == 0);
        }
        Fenced fixed(size);
        checkWritten(NUMCNV_convertToFixedPrec(text, n, fixed.data(), scale, fixed.size()), fixed);
        Fenced copy(size);
        col_def col;
        col.sub_data_type = (scale & 1) ? 3 : 0;
        col.scale = static_cast<short>(scale);
        checkWritten(
            NUMCNV_copyNumberString(text, n, copy.data(), static_cast<int>(copy.size()), &col),
            copy, true);
    }
}

void readers(const char* text, size_t n, int honourSuffix) {
    long value = 0;
    short scale = 0;
    NUMCNV_getNumeric(text, n, &value, &scale, honourSuffix);
    unsigned long unsignedValue = 0;
    NUMCNV_getUnsignedNumFromStr(text, n, &unsignedValue);
    NUMCNV_convertTo64Bit(text, static_cast<int>(n), &value, &scale);
    validate_numeric_string(text, n);
    for (size_t precision : {n * 2, n * 2 + 1})
        get_packed_decimal(text, n, precision, &value);
    static const short types[] = {0,   1,   64,  130, 131, 132, 133, 134, 135,
                                  140, 141, 150, 151, 152, 153, 154, 189, 999};
    for (short type : types) {
        num_to_ll(&value, text, n, 19, type);
        char out[64];
        if (output_decimal(out, text, type, static_cast<short>(scale % 20), n, 19) > 0)
            check(std::strlen(out) < sizeof out);
    }
}

void token(const char* text, size_t n) {
    // Up to the first NUL, as the function reads it.
    std::vector<char> terminated(text, text + n);
    terminated.push_back('\0');
    const char* p = terminated.data();
    const size_t length = std::strlen(p);
    for (int flags = 0; flags < 4; ++flags) {
        const char* end = NUMCNV_getEndOfNumberToken(p, flags & 1, flags & 2);
        check(end >= p && end <= p + length);
    }
    NUMCNV_string_is_integer(p);
    long value = 0;
    qz_atol(p, &value);
    qz_atol(text, n, &value);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    // The range messages report on stdout: keep the run's output to the fuzzer's.
    const int null = ::open("/dev/null", O_WRONLY);
    if (null >= 0) {
        ::dup2(null, STDOUT_FILENO);
        ::close(null);
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 3)
        return 0;
    const unsigned flags = data[0];
    const int scale = static_cast<int8_t>(data[1]);
    const size_t smallSize = data[2] % 24;
    // Exactly the number's bytes on the heap: nothing readable behind them.
    std::vector<char> number(data + 3, data + size);
    const char* text = number.empty() ? "" : number.data();
    const size_t n = number.size();

    if (flags & 4)
        NUMCNV_SetTableContext("FUZZ.NUMBERS", "VALUE");
    readers(text, n, static_cast<int>(flags & 1));
    NUMCNV_ClearTableContext();
    writers(text, static_cast<int>(n), scale, smallSize);
    token(text, n);
    return 0;
}
