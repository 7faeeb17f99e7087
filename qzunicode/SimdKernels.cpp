//===- qzunicode/SimdKernels.cpp - Wide loops of the converters -----------===//
//
// Each kernel is compiled for AVX-512 alone (the rest of the library keeps the
// baseline instruction set) and runs only where available() says so. A table
// of 256 bytes is four registers, and a byte's value two permutes and a
// blend; characters of varying length are laid out at a fixed width and
// compressed into place.
//
//===----------------------------------------------------------------------===//
#include "qzunicode/detail/SimdKernels.h"

#include <atomic>
#include <cstdint>

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
// GCC 12's own intrinsics start some results from an "undefined" register
// and then warn that it may be used uninitialised; it never is.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
#include <immintrin.h>
#define QZ_SIMD_KERNELS 1
#define QZ_KERNEL __attribute__((target("avx512f,avx512bw,avx512vbmi,avx512vbmi2,bmi2,popcnt")))
#endif

namespace qzs {
namespace qzlib {
namespace qzunicode {
namespace simd {

#ifdef QZ_SIMD_KERNELS

namespace {
std::atomic<bool> g_enabled{true};
} // namespace

bool available() {
    static const bool yes = [] {
        __builtin_cpu_init();
        return __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512vbmi") &&
               __builtin_cpu_supports("avx512vbmi2") && __builtin_cpu_supports("bmi2");
    }();
    return yes && g_enabled.load(std::memory_order_relaxed);
}

void setEnabled(bool on) {
    g_enabled.store(on, std::memory_order_relaxed);
}

namespace {

constexpr std::size_t kBlock = 64;

struct Table256 {
    __m512i q[4];
};

QZ_KERNEL inline Table256 loadTable(const unsigned char* t) {
    return {{_mm512_loadu_si512(t), _mm512_loadu_si512(t + 64), _mm512_loadu_si512(t + 128),
             _mm512_loadu_si512(t + 192)}};
}

// The table's value for each byte of x: bits 0-6 pick within a half, bit 7
// the half.
QZ_KERNEL inline __m512i lookup(const Table256& t, __m512i x) {
    const __m512i lo = _mm512_permutex2var_epi8(t.q[0], x, t.q[1]);
    const __m512i hi = _mm512_permutex2var_epi8(t.q[2], x, t.q[3]);
    return _mm512_mask_blend_epi8(_mm512_movepi8_mask(x), lo, hi);
}

QZ_KERNEL Progress translateImpl(const unsigned char* in, std::size_t n, unsigned char* out,
                                 std::size_t room, const unsigned char* table) {
    const Table256 t = loadTable(table);
    const std::size_t limit = n < room ? n : room;
    std::size_t i = 0;
    for (; i + kBlock <= limit; i += kBlock) {
        const __m512i x = _mm512_loadu_si512(in + i);
        const __m512i v = lookup(t, x);
        // A 0 from a byte other than 0 is a byte that does not map.
        if (_mm512_testn_epi8_mask(v, v) & _mm512_test_epi8_mask(x, x))
            break;
        _mm512_storeu_si512(out + i, v);
    }
    // The last part block under a mask (a masked load never faults on the
    // bytes it leaves out).
    if (i < limit && limit - i < kBlock) {
        const __mmask64 m = _bzhi_u64(~0ull, static_cast<unsigned>(limit - i));
        const __m512i x = _mm512_maskz_loadu_epi8(m, in + i);
        const __m512i v = lookup(t, x);
        if (!(_mm512_testn_epi8_mask(v, v) & _mm512_test_epi8_mask(x, x) & m)) {
            _mm512_mask_storeu_epi8(out + i, m, v);
            i = limit;
        }
    }
    return {i, i};
}

QZ_KERNEL Progress expandImpl(const unsigned char* in, std::size_t n, unsigned char* out,
                              std::size_t room, const unsigned char* first,
                              const unsigned char* second, const unsigned char* length) {
    const Table256 f = loadTable(first);
    const Table256 s = loadTable(second);
    const Table256 l = loadTable(length);
    // Bytes i of the first and second planes side by side: source bytes 0-31
    // of the block, then 32-63.
    alignas(64) unsigned char idxLo[64], idxHi[64];
    for (int i = 0; i < 32; ++i) {
        idxLo[2 * i] = static_cast<unsigned char>(i);
        idxLo[2 * i + 1] = static_cast<unsigned char>(64 + i);
        idxHi[2 * i] = static_cast<unsigned char>(32 + i);
        idxHi[2 * i + 1] = static_cast<unsigned char>(96 + i);
    }
    const __m512i pickLo = _mm512_load_si512(idxLo);
    const __m512i pickHi = _mm512_load_si512(idxHi);
    const __m512i two = _mm512_set1_epi8(2);
    const std::uint64_t evens = 0x5555555555555555ull;
    const std::uint64_t odds = 0xAAAAAAAAAAAAAAAAull;
    std::size_t r = 0, w = 0;
    while (r + kBlock <= n && w + 2 * kBlock <= room) {
        const __m512i x = _mm512_loadu_si512(in + r);
        const __m512i len = lookup(l, x);
        if (_mm512_testn_epi8_mask(len, len))
            break; // a byte that does not map, or needs more than two bytes
        const __m512i a = lookup(f, x);
        const __m512i b = lookup(s, x);
        const std::uint64_t twos = _mm512_cmpeq_epi8_mask(len, two);
        const std::uint64_t keepLo = evens | _pdep_u64(twos & 0xFFFFFFFFu, odds);
        const std::uint64_t keepHi = evens | _pdep_u64(twos >> 32, odds);
        _mm512_storeu_si512(out + w,
                            _mm512_maskz_compress_epi8(keepLo, _mm512_permutex2var_epi8(a, pickLo, b)));
        w += static_cast<std::size_t>(_mm_popcnt_u64(keepLo));
        _mm512_storeu_si512(out + w,
                            _mm512_maskz_compress_epi8(keepHi, _mm512_permutex2var_epi8(a, pickHi, b)));
        w += static_cast<std::size_t>(_mm_popcnt_u64(keepHi));
        r += kBlock;
    }
    return {r, w};
}

QZ_KERNEL Progress utf8LatinImpl(const unsigned char* in, std::size_t n, unsigned char* out,
                                 std::size_t room, const unsigned char* table) {
    const Table256 t = loadTable(table);
    alignas(64) unsigned char idxNext[64];
    for (int i = 0; i < 64; ++i)
        idxNext[i] = static_cast<unsigned char>(i < 63 ? i + 1 : 63);
    const __m512i nextIdx = _mm512_load_si512(idxNext);
    const __m512i leadBits = _mm512_set1_epi8(static_cast<char>(0xFE));
    const __m512i leadValue = _mm512_set1_epi8(static_cast<char>(0xC2));
    const __m512i contBits = _mm512_set1_epi8(static_cast<char>(0xC0));
    const __m512i contValue = _mm512_set1_epi8(static_cast<char>(0x80));
    const __m512i low6 = _mm512_set1_epi8(0x3F);
    const __m512i low2 = _mm512_set1_epi8(0x03);
    // A block owns its first 63 bytes and reads the 64th ahead, so that it
    // always moves on by 63 whatever the text: the next block's load never
    // waits for this one's masks. A character is written at its first byte.
    constexpr std::uint64_t kOwned = ~0ull >> 1;
    std::size_t r = 0, w = 0;
    // A block may start on the continuation of a character the block before
    // wrote; at the start of the text such a byte is bad.
    if (n > 0 && (in[0] & 0xC0) == 0x80)
        return {0, 0};
    while (r + kBlock <= n && w + kBlock <= room) {
        const __m512i x = _mm512_loadu_si512(in + r);
        const std::uint64_t high = _mm512_movepi8_mask(x);
        // Only C2 and C3 leads (U+0080 to U+00FF), each followed by its one
        // continuation byte.
        const std::uint64_t leads =
            _mm512_cmpeq_epi8_mask(_mm512_and_si512(x, leadBits), leadValue);
        const std::uint64_t conts =
            _mm512_cmpeq_epi8_mask(_mm512_and_si512(x, contBits), contValue);
        if ((leads | conts) != high || (conts & ~1ull) != (leads & kOwned) << 1)
            break;
        const __m512i next = _mm512_permutexvar_epi8(nextIdx, x);
        // (x & 3) << 6 stays inside each byte of the 16-bit lanes.
        const __m512i value = _mm512_or_si512(_mm512_slli_epi16(_mm512_and_si512(x, low2), 6),
                                              _mm512_and_si512(next, low6));
        const __m512i cp = _mm512_mask_blend_epi8(leads, x, value);
        const std::uint64_t keep = ~conts & kOwned;
        const __m512i v = lookup(t, cp);
        if (_mm512_testn_epi8_mask(v, v) & _mm512_test_epi8_mask(cp, cp) & keep)
            break;
        _mm512_storeu_si512(out + w, _mm512_maskz_compress_epi8(keep, v));
        w += static_cast<std::size_t>(_mm_popcnt_u64(keep));
        r += kBlock - 1;
    }
    // Stopped on the continuation of a character already written.
    if (r > 0 && (in[r] & 0xC0) == 0x80)
        ++r;
    return {r, w};
}

QZ_KERNEL Progress utf16DoubleImpl(const unsigned char* in, std::size_t n, unsigned char* out,
                                   std::size_t room, const unsigned short* flat,
                                   bool littleEndian) {
    // Swaps the bytes of each 16-bit lane: big-endian units in, and the codes
    // out high byte first.
    alignas(64) unsigned char idxSwap[64];
    for (int i = 0; i < 64; ++i)
        idxSwap[i] = static_cast<unsigned char>(i ^ 1);
    const __m512i swap = _mm512_load_si512(idxSwap);
    const __m512i one = _mm512_set1_epi16(0xFF);
    const std::uint64_t evens = 0x5555555555555555ull;
    const std::uint64_t odds = 0xAAAAAAAAAAAAAAAAull;
    std::size_t r = 0, w = 0;
    while (r + kBlock <= n && w + kBlock <= room) {
        __m512i x = _mm512_loadu_si512(in + r);
        if (!littleEndian)
            x = _mm512_permutexvar_epi8(swap, x);
        // Each unit's value: a 32-bit gather at twice the unit, low half kept.
        const __m512i u0 = _mm512_cvtepu16_epi32(_mm512_castsi512_si256(x));
        const __m512i u1 = _mm512_cvtepu16_epi32(_mm512_extracti64x4_epi64(x, 1));
        const __m512i g0 = _mm512_i32gather_epi32(u0, flat, 2);
        const __m512i g1 = _mm512_i32gather_epi32(u1, flat, 2);
        const __m512i v = _mm512_inserti64x4(_mm512_castsi256_si512(_mm512_cvtepi32_epi16(g0)),
                                             _mm512_cvtepi32_epi16(g1), 1);
        if (_mm512_testn_epi16_mask(v, v))
            break;
        const std::uint64_t twos = _mm512_cmpgt_epu16_mask(v, one);
        // Each code high byte first: the low byte always, the high one for a
        // two-byte code.
        const std::uint64_t keep = odds | _pdep_u64(twos, evens);
        _mm512_storeu_si512(out + w,
                            _mm512_maskz_compress_epi8(keep, _mm512_permutexvar_epi8(swap, v)));
        w += static_cast<std::size_t>(_mm_popcnt_u64(keep));
        r += kBlock;
    }
    return {r, w};
}

} // namespace

Progress translate(const unsigned char* in, std::size_t n, unsigned char* out, std::size_t room,
                   const unsigned char* table) {
    return translateImpl(in, n, out, room, table);
}

Progress expand(const unsigned char* in, std::size_t n, unsigned char* out, std::size_t room,
                const unsigned char* first, const unsigned char* second,
                const unsigned char* length) {
    return expandImpl(in, n, out, room, first, second, length);
}

Progress utf8Latin(const unsigned char* in, std::size_t n, unsigned char* out, std::size_t room,
                   const unsigned char* table) {
    return utf8LatinImpl(in, n, out, room, table);
}

Progress utf16Double(const unsigned char* in, std::size_t n, unsigned char* out, std::size_t room,
                     const unsigned short* flat, bool littleEndian) {
    return utf16DoubleImpl(in, n, out, room, flat, littleEndian);
}

#else // no AVX-512 build: the converters' own loops do all the work

bool available() {
    return false;
}
void setEnabled(bool) {}
Progress translate(const unsigned char*, std::size_t, unsigned char*, std::size_t,
                   const unsigned char*) {
    return {0, 0};
}
Progress expand(const unsigned char*, std::size_t, unsigned char*, std::size_t,
                const unsigned char*, const unsigned char*, const unsigned char*) {
    return {0, 0};
}
Progress utf8Latin(const unsigned char*, std::size_t, unsigned char*, std::size_t,
                   const unsigned char*) {
    return {0, 0};
}
Progress utf16Double(const unsigned char*, std::size_t, unsigned char*, std::size_t,
                     const unsigned short*, bool) {
    return {0, 0};
}

#endif

} // namespace simd
} // namespace qzunicode
} // namespace qzlib
} // namespace qzs
