//===- qzstd/Memory.h - Checked allocation ----------------------*- C++ -*-===//
//
// The allocation family every module allocates raw memory through: plain
// malloc/calloc/realloc/free with optional tracing to the standard utility
// logger and one fixed failure path (catalogue message 1088), and the end of
// the checked copy functions.
//
//===----------------------------------------------------------------------===//
#ifndef QZSTD_MEMORY_H
#define QZSTD_MEMORY_H

#include "qzstd/Export.h"

/// The effective level byte of the standard utility logger
/// (qzlog_std_utility, qzlog/StandardLoggers.h), owned here so that
/// allocation tests it without reaching up into logging, and kept up to
/// date by the repository. It reads OFF (255) until the logger exists, so an
/// allocation made by an earlier static initialiser is never traced. Read it
/// with a relaxed atomic load when other threads may be configuring.
extern QZ_API unsigned char qzlog_std_utility_effective_level;

/// malloc(size). A size of 0 gives null and reports nothing; a failed call
/// reports message 1088 ("malloc" and the size) and gives null. Release with
/// qzFree. Tracing at DEBUG (143) when the utility logger asks for it.
/// Thread-safe as the platform allocator is.
QZ_API void* qzMalloc(int size);

/// As qzMalloc, zeroed (calloc); a failure reports "calloc".
QZ_API void* qzCalloc(int size);

/// calloc(count, elementSize). A count below 1 gives null and reports
/// nothing; a failure reports "calloc" with count times elementSize bytes.
QZ_API void* qzCallocStandard(int count, int elementSize);

/// qzMalloc(size), then copies `size` bytes of `source` there, stores the
/// block in `*target` and returns it. Kept on purpose: a failed allocation
/// is not tested before the copy; the report of message 1088 is the
/// failure path, and a disposition that returns then faults on the copy.
QZ_API void* qzAllocMemcpy(void** target, void const* source, int size);

/// realloc(pointer, size). A failure reports "realloc" and gives null, and
/// `pointer` stays valid, as with realloc. A size of 0 is realloc's own
/// affair (glibc frees `pointer` and gives null) and reports nothing.
QZ_API void* qzRealloc(void* pointer, int size);

/// free(pointer) when not null; always 0.
QZ_API int qzFree(void* pointer);

/// A block of `size` rounded up to a multiple of `alignment`, aligned to
/// `alignment` (posix_memalign). On failure errno holds the call's result,
/// message 1088 is reported with "posix_memalign" and the rounded size, and
/// the result is null. Release with qzFreeAligned.
/// REQUIRES: alignment > 0 (it divides); a power of two, multiple of
/// sizeof(void*), or the call fails with EINVAL.
QZ_API void* qzMallocAligned(unsigned long size, unsigned long alignment);

/// Releases a block of qzMallocAligned.
QZ_API void qzFreeAligned(void* pointer);

/// The end of the checked copy functions, called when a copy of `copySize`
/// bytes would overrun `buffer` of `bufferSize` bytes in `function`. Logs
/// at FATAL (254) to "qzlib.memutl", reports message 1072 with the buffer
/// size and the copy size, and aborts the process.
[[noreturn]] QZ_API void _qzInvalidMemoryAccess_abort(char const* function, void const* buffer,
                                               unsigned long bufferSize, unsigned long copySize);

#endif // QZSTD_MEMORY_H
