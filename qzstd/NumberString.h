//===- qzstd/NumberString.h - Integers to text -----------------*- C++ -*-===//
//
// Integer to decimal, hexadecimal and octal text without locale or printf,
// for the logging path and the number converters.
//
//===----------------------------------------------------------------------===//
#ifndef QZSTD_NUMBERSTRING_H
#define QZSTD_NUMBERSTRING_H

#include "qzstd/Export.h"

#include <cstddef>
#include <cstdint>

/// Decimal digits with a leading '-' for negative values, then a NUL.
/// Returns the length without the NUL. `dst` must hold 21 bytes.
QZ_API size_t i8ToString(int8_t value, char* dst);
QZ_API size_t i16ToString(int16_t value, char* dst);
QZ_API size_t i32ToString(int32_t value, char* dst);
QZ_API size_t i64ToString(int64_t value, char* dst);
QZ_API size_t u8ToString(uint8_t value, char* dst);
QZ_API size_t u16ToString(uint16_t value, char* dst);
QZ_API size_t u32ToString(uint32_t value, char* dst);
QZ_API size_t u64ToString(uint64_t value, char* dst);

/// The same text as u64ToString and i64ToString, for a caller that gives
/// 24 bytes, any of which may be written. The digits leave a register in
/// one or two wide stores, so a caller that copies them on at once (the
/// logging path) reads them from those stores instead of waiting on many
/// narrow ones.
QZ_API size_t u64ToStringPadded(uint64_t value, char* dst);
QZ_API size_t i64ToStringPadded(int64_t value, char* dst);

/// Exactly `width` bytes, no NUL: '-' first when negative, then the digits
/// right-aligned and padded with '0'. Digits that do not fit are dropped at
/// the high end.
QZ_API void i8ToBuffer(int8_t value, char* dst, size_t width);
QZ_API void i16ToBuffer(int16_t value, char* dst, size_t width);
QZ_API void i32ToBuffer(int32_t value, char* dst, size_t width);
QZ_API void i64ToBuffer(int64_t value, char* dst, size_t width);
QZ_API void u8ToBuffer(uint8_t value, char* dst, size_t width);
QZ_API void u16ToBuffer(uint16_t value, char* dst, size_t width);
QZ_API void u32ToBuffer(uint32_t value, char* dst, size_t width);
QZ_API void u64ToBuffer(uint64_t value, char* dst, size_t width);

/// Hexadecimal text of `value` in exactly `digits` digits (zero-padded; high
/// digits beyond `digits` are dropped), then a NUL. Returns `digits`.
QZ_API size_t HexString(uint64_t value, char* dst, size_t digits, bool upperCase);

/// Octal text of `value` with no padding, then a NUL. Returns the length.
QZ_API size_t OctalString(uint64_t value, char* dst);

#endif // QZSTD_NUMBERSTRING_H
