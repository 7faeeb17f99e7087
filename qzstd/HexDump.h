//===- qzstd/HexDump.h - Hexadecimal text and dumps -------------*- C++ -*-===//
//
// Raw data as text: one value in hexadecimal, a dump into memory with
// addresses, bytes and characters and with repeated lines folded, and the
// plainer dump of data to a stream.
//
//===----------------------------------------------------------------------===//
#ifndef QZSTD_HEXDUMP_H
#define QZSTD_HEXDUMP_H

#include "qzstd/Export.h"

#include <cstdio>

/// Hexadecimal text of `value`, zero-padded to `width` digits (at least the
/// digits the value needs), then a NUL. Returns the characters written.
QZ_API unsigned long qzHexString(char* target, unsigned long value, unsigned long width, bool upperCase);

/// Dumps `length` bytes as lines of `bytesPerLine`: address (6-digit offset
/// when `relative`, else the 8-digit address), the bytes in hex, and their
/// printable characters between "|". Runs of more than two repeated lines
/// are folded into one "(repeats N times)" line. NUL-terminated; returns the
/// characters written without the NUL.
/// REQUIRES: `target` holds qzHexDumpSize(length, bytesPerLine) bytes;
/// bytesPerLine > 0.
QZ_API unsigned long qzHexDump(char* target, void const* data, unsigned long length,
                        unsigned long bytesPerLine, bool relative);

/// Size qzHexDump needs, NUL included.
QZ_API unsigned long qzHexDumpSize(unsigned long length, unsigned long bytesPerLine);

/// Writes `length` bytes of `data` as lines of 16: the offset (counted from
/// `offset`) as "%9ld", the bytes as "%02X" in groups of four, and the bytes
/// as printable characters or ".". Gives false when the stream failed.
QZ_API bool qzOutputHexToFile(FILE* stream, char* data, int length, int offset);

#endif // QZSTD_HEXDUMP_H
