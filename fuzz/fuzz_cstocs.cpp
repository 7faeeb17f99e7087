//===- fuzz/fuzz_cstocs.cpp - Conversion between any two sets -------------===//
//
// A libFuzzer target for ULIB_CStoCS: random bytes from a source set to a
// target set, both picked among the table's rows, the process default, numbers
// the table does not know, with or without the escape flag, at odd addresses,
// with a character limit, the force and substitute flags and the thread's
// error behaviour. Besides the sanitizers' watch, the target sits between
// guard bytes and each call is held to the contract: nothing written outside
// [dst, dst + dstBytes), the source untouched, a result from 0 to dstBytes in
// whole units of a UTF-16 or UTF-32 target, and an error code the library
// defines.
//
// Where an optimised converter serves the pair, the same source also goes
// through it and through the ICU path on their own, and the two must agree:
// the same bytes and the same error. (On a full target with bad characters
// handled, the ICU path's search for what fits may keep a little less, or end
// in half an escape or a cut character substituted; one output must then
// begin the other.)
//
// Input, so that seeds can be written by hand:
//
//   byte 0, 3     target, source selector: bits 0-2 pick a table block (0-3),
//                 the process default (4), the 16-bit number as it stands (5),
//                 ULIB_CS_INVALID (6) or a UTF-16/32 row (7); bit 7 adds the
//                 escape flag
//   bytes 1-2, 4-5  little-endian row in the block, or the number
//   bytes 6-7     dstBytes, little-endian, modulo 2048
//   byte 8        maxChars: below 0x80 none, then 0 to 126, 0xFF too large
//   byte 9        bit 0 force, bit 1 substitute, bit 2 srcBytes -1 (the
//                 source is then terminated), bits 3-4 target address offset,
//                 bits 5-6 source address offset
//   byte 10       the thread's behaviour, modulo 6 (5 is no behaviour at all)
//   byte 11       substitution string length, modulo 6 (5 is rejected)
//   the rest      the source bytes
//
//===----------------------------------------------------------------------===//
#include "qzunicode/COptimizedConverter.h"
#include "qzunicode/CharSetTable.h"
#include "qzunicode/ULib.h"
#include "qzunicode/detail/ICUPath.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

using namespace qzs::qzlib::qzunicode;

namespace {

constexpr std::size_t kHeader = 12;
constexpr std::size_t kGuard = 32;
constexpr unsigned char kPattern = 0xA5;

void check(bool condition) {
    if (!condition)
        std::abort();
}

ULibCharSet pickSet(unsigned char selector, unsigned number) {
    std::int32_t set;
    switch (selector & 7) {
    case 4:
        set = ULIB_CS_DEFAULT;
        break;
    case 5:
        set = std::int32_t(number);
        break;
    case 6:
        set = ULIB_CS_INVALID;
        break;
    case 7:
        set = std::int32_t(1 + number % 6);
        break;
    default: {
        const ULibCharSetBlock& block = CharSetTable::block(selector & 3);
        set = block.nFirst + std::int32_t(number % unsigned(block.nRows));
        break;
    }
    }
    if (selector & 0x80)
        set |= ULIB_CS_ESCAPE_FLAG;
    return ULibCharSet(set);
}

bool knownError(ULibError err) {
    switch (err) {
    case ULIB_OK:
    case ULIB_ERR_ILLEGAL_ARGUMENT:
    case ULIB_ERR_BUFFER_OVERFLOW:
    case ULIB_ERR_INVALID_CHAR:
    case ULIB_ERR_UNKNOWN:
    case ULIB_ERR_MAX_CHARS:
        return true;
    default:
        return false;
    }
}

// The width a result into `target` must be a multiple of. A flagged UTF-16 or
// UTF-32 set is not one of the UTF-16 or UTF-32 sets to the copy paths: copied
// to itself, its bytes go across as they are, odd length and all.
int unitWidth(ULibCharSet target) {
    if (target >= 1 && target <= 3)
        return 2;
    if (target >= 4 && target <= 6)
        return 4;
    return 1;
}

// 3 is 1 and 6 is 4, as ULIB_CStoCS takes them.
ULibCharSet normalised(ULibCharSet cs) {
    if (cs == ULIB_CS_DEFAULT)
        cs = ULIB_getDefaultCharSet();
    return cs == 3 ? ULibCharSet(1) : cs == 6 ? ULibCharSet(4) : cs;
}

void compareWithICUPath(ULibCharSet target, ULibCharSet source, const unsigned char* src,
                        int srcBytes, int dstBytes, bool substitute) {
    target = normalised(target);
    source = normalised(source);
    if ((source == 1 || source == 2) && srcBytes % 2 != 0)
        return; // refused before any converter
    if (dstBytes < 1)
        return;
    const COptimizedConverter* opt = COptimizedConverter::getConverter(source, target);
    if (opt == nullptr)
        return;
    std::vector<char> a(dstBytes), b(dstBytes);
    ULibError errOpt = ULibError(-1), errICU = ULibError(-1);
    const int nOpt = opt->convert(a.data(), dstBytes, 0, reinterpret_cast<const char*>(src),
                                  srcBytes, substitute, &errOpt, nullptr);
    const int nICU = detail::convertThroughICU(target, b.data(), dstBytes, source,
                                               reinterpret_cast<const char*>(src), srcBytes,
                                               substitute, &errICU);
    check(nOpt >= 0 && nOpt <= dstBytes);
    check(errOpt == errICU);
    int common = nOpt < nICU ? nOpt : nICU;
    if (nOpt != nICU) {
        // On overflow with bad characters handled, the ICU path's search for
        // what fits may keep less than fits (or more); into an EBCDIC
        // stateful target the shorter text is then closed by a shift back.
        check(errOpt == ULIB_ERR_BUFFER_OVERFLOW &&
              (substitute || ULIB_getConverterErrorBehavior() != ULIB_CNV_STOP));
        const std::vector<char>& shorter = nOpt < nICU ? a : b;
        if (common > 0 && shorter[common - 1] == 0x0F)
            --common;
    }
    check(std::memcmp(a.data(), b.data(), common) == 0);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < kHeader)
        return 0;
    const ULibCharSet target = pickSet(data[0], data[1] | data[2] << 8);
    const ULibCharSet source = pickSet(data[3], data[4] | data[5] << 8);
    const int dstBytes = (data[6] | data[7] << 8) % 2048;
    const unsigned maxChars = data[8] < 0x80 ? 0 : data[8] == 0xFF ? 0x80000000u : data[8] - 0x80;
    const bool force = data[9] & 1;
    const bool substitute = data[9] & 2;
    const bool terminated = data[9] & 4;
    const std::size_t dstOffset = (data[9] >> 3) & 3;
    const std::size_t srcOffset = (data[9] >> 5) & 3;
    ULIB_setConverterErrorBehavior(ULibCnvErrBehavior(data[10] % 6));
    static const unsigned short kSubst[] = {'?', 0xFFFD, 0x20AC, 'x', 0x1A};
    ULIB_setSubstString(kSubst, data[11] % 6);

    // The source at its offset, then zeros enough to end it in any set's
    // width, all in one allocation so that a read past them is caught.
    const std::size_t srcLen = size - kHeader;
    std::vector<unsigned char> src(srcOffset + srcLen + 8, 0);
    std::memcpy(src.data() + srcOffset, data + kHeader, srcLen);
    const std::vector<unsigned char> srcCopy = src;

    std::vector<unsigned char> buffer(kGuard + std::size_t(dstBytes) + kGuard, kPattern);
    unsigned char* dst = buffer.data() + kGuard + dstOffset;

    ULibError err = ULibError(-1);
    const int n = ULIB_CStoCS(target, dst, dstBytes, maxChars, source, src.data() + srcOffset,
                              terminated ? -1 : int(srcLen), force, substitute, &err, nullptr);

    check(n >= 0 && n <= dstBytes);
    check(n % unitWidth(target) == 0);
    check(knownError(err));
    for (const unsigned char* p = buffer.data(); p < dst; ++p)
        check(*p == kPattern);
    for (const unsigned char* p = dst + dstBytes; p < buffer.data() + buffer.size(); ++p)
        check(*p == kPattern);
    check(src == srcCopy);

    if (!terminated && !(target & ULIB_CS_ESCAPE_FLAG) && !(source & ULIB_CS_ESCAPE_FLAG))
        compareWithICUPath(target, source, src.data() + srcOffset, int(srcLen), dstBytes,
                           substitute);
    return 0;
}
