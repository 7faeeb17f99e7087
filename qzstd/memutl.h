//===- qzstd/memutl.h - Memory utilities and hex dumps ---------*- C++ -*-===//
//
// The hexadecimal helpers of the memory utilities: a fixed-width hex number
// and a folded hex dump, used by the logging path to render raw data.
//
//===----------------------------------------------------------------------===//
#ifndef QZSTD_MEMUTL_H
#define QZSTD_MEMUTL_H

/// Hexadecimal text of `value`, zero-padded to `width` digits (at least the
/// digits the value needs), then a NUL. Returns the characters written.
unsigned long qzHexString(char* target, unsigned long value, unsigned long width, bool upperCase);

/// Dumps `length` bytes as lines of `bytesPerLine`: address (6-digit offset
/// when `relative`, else the 8-digit address), the bytes in hex, and their
/// printable characters between "|". Runs of more than two repeated lines
/// are folded into one "(repeats N times)" line. NUL-terminated; returns the
/// characters written without the NUL.
/// REQUIRES: `target` holds qzHexDumpSize(length, bytesPerLine) bytes;
/// bytesPerLine > 0.
unsigned long qzHexDump(char* target, void const* data, unsigned long length,
                        unsigned long bytesPerLine, bool relative);

/// Size qzHexDump needs, NUL included.
unsigned long qzHexDumpSize(unsigned long length, unsigned long bytesPerLine);

#endif // QZSTD_MEMUTL_H
