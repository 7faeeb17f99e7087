//===- qzstd/Hash.h - Table hash and running checksums ---------*- C++ -*-===//
//
// The hash that keys the binary and string tables (kqzhash2, a two-result
// variant of the lookup3 hash with a final stage of its own) and the two
// table-driven checksums CRC32 and CRC64. All three are pure functions of
// their arguments: no state, no locks, safe from any thread and from inside
// the logging path.
//
//===----------------------------------------------------------------------===//
#ifndef QZSTD_HASH_H
#define QZSTD_HASH_H

#include "qzstd/Export.h"

/// Hashes `length` bytes at `data` into 64 bits: the lookup3 pair (b, c) as
/// b << 32 | c. The low half of `seed` seeds a and b, the high half c.
/// Only the low 32 bits of `length` take part in the initial state, as in the
/// 32-bit original; every byte is still hashed.
/// REQUIRES: `data` readable for `length` bytes (may be null when 0).
/// The result is independent of the alignment of `data`; an empty input with
/// seed 0 gives 0xDEADBEEFDEADBEEF.
QZ_API unsigned long kqzhash2(const void* data, unsigned long length, unsigned long seed);

/// Continues a reflected CRC-32 (polynomial 0xEDB88320) over `length` bytes.
/// `crc` is the running value and is neither inverted on entry nor on exit:
/// the standard CRC-32 of a buffer is CRC32(0xFFFFFFFF, p, n) ^ 0xFFFFFFFF.
/// A `length` of 0 or less returns `crc` unchanged.
QZ_API unsigned int CRC32(unsigned int crc, const char* data, int length);

/// Continues a reflected CRC-64 (polynomial 0x95AC9329AC4BC9B5) over `length`
/// bytes, with the same conventions as CRC32: no inversion, `crc` is the
/// running value, a `length` of 0 or less returns it unchanged.
QZ_API unsigned long CRC64(unsigned long crc, const unsigned char* data, int length);

#endif // QZSTD_HASH_H
