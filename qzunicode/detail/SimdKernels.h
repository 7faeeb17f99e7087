//===- qzunicode/detail/SimdKernels.h - Wide loops of the converters -*- C++ -*-===//
//
// The optimised converters' common cases, 64 source bytes at a time with
// AVX-512 byte permutes and gathers: a single-byte set to another, a
// single-byte set to characters of one or two bytes, UTF-8 below U+0100 to a
// single-byte set, and UTF-16 to a set of one- and two-byte codes. A kernel does what it surely can and stops at the first block it cannot
// do whole; the converter's own loop goes on from there, so a result never
// depends on whether the kernels ran.
//
//===----------------------------------------------------------------------===//
#ifndef QZUNICODE_DETAIL_SIMDKERNELS_H
#define QZUNICODE_DETAIL_SIMDKERNELS_H

#include <cstddef>

namespace qzs {
namespace qzlib {
namespace qzunicode {
namespace simd {

/// Whether this processor runs the kernels (AVX-512 BW, VBMI and VBMI2, and
/// BMI2). Decided once per process; false under tools that hide them.
bool available();

/// Turns the kernels off, or back on where the processor has them, for the
/// whole process: for tests that run the per-character loops alone.
void setEnabled(bool on);

/// How far a kernel went: source bytes read and target bytes written.
struct Progress {
    std::size_t read;
    std::size_t written;
};

// REQUIRES for each kernel: available(); the tables hold 256 entries. A
// kernel never reads past in + n nor writes past out + room.

/// out[i] = table[in[i]] while every byte of a block maps (a value of 0 maps
/// only the byte 0); stops before the first block with one that does not.
Progress translate(const unsigned char* in, std::size_t n, unsigned char* out, std::size_t room,
                   const unsigned char* table);

/// Writes first[b], then second[b] when length[b] is 2, for each source
/// byte b, while every byte of a block has a length of 1 or 2.
Progress expand(const unsigned char* in, std::size_t n, unsigned char* out, std::size_t room,
                const unsigned char* first, const unsigned char* second,
                const unsigned char* length);

/// Reads well-formed UTF-8 of characters below U+0100 and writes
/// table[code point] for each, while every character of a block is such a
/// one and maps (table[0] is the value of U+0000, mapped whatever it is).
Progress utf8Latin(const unsigned char* in, std::size_t n, unsigned char* out, std::size_t room,
                   const unsigned char* table);

/// Reads UTF-16 (little- or big-endian) units through flat, a table of
/// 65,538 values (the last two 0) of the target's one- or two-byte codes
/// (a value above 0xFF is two bytes, high first), while every unit of a
/// block has a value other than 0.
Progress utf16Double(const unsigned char* in, std::size_t n, unsigned char* out, std::size_t room,
                     const unsigned short* flat, bool littleEndian);

} // namespace simd
} // namespace qzunicode
} // namespace qzlib
} // namespace qzs

#endif // QZUNICODE_DETAIL_SIMDKERNELS_H
