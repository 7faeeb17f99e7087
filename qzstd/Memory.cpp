//===- qzstd/Memory.cpp - Checked allocation ------------------------------===//
//
// Allocation keeps one comparison on its fast path: the cached effective
// level of the utility logger. Everything else (the trace records, the
// failure report) sits in out-of-line helpers that only that comparison or a
// failed call reaches.
//
//===----------------------------------------------------------------------===//
#include "qzstd/Memory.h"

#include "qzstd/LoggingSeam.h"
#include "qzstd/MessageSeam.h"
#include "qzstd/NumberString.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

using qzs::qzlib::detail::LazyLogger;
namespace Level = qzs::qzlib::detail::LogLevel;

// Constant-initialised to OFF, so it holds before any constructor runs; the
// repository takes it over when the logging core makes qzlog_std_utility.
unsigned char qzlog_std_utility_effective_level = 255;

namespace {

// The standard utility logger as this floor reaches it; the same logger as
// qzlog_std_utility once the logging core is up.
LazyLogger g_utilityLog("qzlog.std.utility");
// The logger of the overflow abort, "qzlib.memutl".
LazyLogger g_overflowLog("qzlib.memutl");

#define QZ_TRACE(...) QZ_SEAM_LOG(g_utilityLog, __FILE__, __func__, Level::Debug, __VA_ARGS__)

const char kMemComponent[] = "qzstd.util.mem";
const char kMemFile[] = "qzstd/memutl";

constexpr unsigned int kMsgAllocationFailed = 1088;
constexpr unsigned int kMsgBufferOverflow = 1072;

// Tracing is on when the cached byte lets DEBUG (143) through.
inline bool tracing() {
    return __atomic_load_n(&qzlog_std_utility_effective_level, __ATOMIC_RELAXED) <= Level::Debug;
}

// The trace records carry their values as text, as the "%s" of each record
// says; 32 bytes hold any pointer or 64-bit count.
struct TraceText {
    char text[32];
};

TraceText pointerText(const void* pointer) {
    TraceText t;
    std::snprintf(t.text, sizeof t.text, "%p", pointer);
    return t;
}

TraceText countText(long value) {
    TraceText t;
    i64ToString(value, t.text);
    return t;
}

// Nothing is traced until the logging core is up (the byte reads OFF).
[[gnu::noinline, gnu::cold]] void traceAllocation(const void* pointer, long bytes) {
    QZ_TRACE("pointer allocated: %s", pointerText(pointer).text);
    QZ_TRACE("bytes allocated: %s", countText(bytes).text);
}

[[gnu::noinline, gnu::cold]] void traceElements(const void* pointer, int count, int elementSize) {
    QZ_TRACE("pointer allocated: %s", pointerText(pointer).text);
    QZ_TRACE("elements allocated: %s", countText(count).text);
    QZ_TRACE("element size: %s", countText(elementSize).text);
}

[[gnu::noinline, gnu::cold]] void traceReallocBefore(const void* pointer, int size) {
    QZ_TRACE("pointer before realloc: %s", pointerText(pointer).text);
    QZ_TRACE("bytes reallocated: %s", countText(size).text);
}

[[gnu::noinline, gnu::cold]] void traceReallocAfter(const void* pointer) {
    QZ_TRACE("pointer after realloc: %s", pointerText(pointer).text);
}

[[gnu::noinline, gnu::cold]] void traceFree(const void* pointer) {
    QZ_TRACE("pointer freed: %s", pointerText(pointer).text);
}

// Message 1088: the failing call's name and the bytes asked for. Memory may
// be gone entirely here, so building the argument text must not throw.
[[gnu::noinline, gnu::cold]] void reportAllocationFailure(const char* function, const char* call,
                                                          long bytes) noexcept {
    try {
        qzs::qzlib::detail::raiseFault(QZ_MESSAGE_SITE(kMemComponent, kMemFile, function),
                                       kMsgAllocationFailed, call, bytes);
    } catch (...) {
    }
}

} // namespace

void* qzMalloc(int size) {
    if (size == 0)
        return nullptr;
    // A negative size becomes a huge size_t and fails in malloc, which is the
    // report the caller needs.
    void* pointer = std::malloc(static_cast<size_t>(size));
    if (!pointer)
        reportAllocationFailure("qzMalloc", "malloc", size);
    if (tracing())
        traceAllocation(pointer, size);
    return pointer;
}

void* qzCalloc(int size) {
    if (size == 0)
        return nullptr;
    void* pointer = std::calloc(static_cast<size_t>(size), 1);
    if (!pointer)
        reportAllocationFailure("qzCalloc", "calloc", size);
    if (tracing())
        traceAllocation(pointer, size);
    return pointer;
}

void* qzCallocStandard(int count, int elementSize) {
    if (count < 1)
        return nullptr;
    void* pointer = std::calloc(static_cast<size_t>(count), static_cast<size_t>(elementSize));
    if (!pointer)
        reportAllocationFailure("qzCallocStandard", "calloc",
                                static_cast<long>(count) * static_cast<long>(elementSize));
    if (tracing())
        traceElements(pointer, count, elementSize);
    return pointer;
}

void* qzAllocMemcpy(void** target, void const* source, int size) {
    void* pointer = qzMalloc(size);
    // Kept on purpose: no test of the allocation (see the header). A size of
    // 0 has nothing to copy and null to copy it to.
    if (size > 0)
        std::memcpy(pointer, source, static_cast<size_t>(size));
    *target = pointer;
    return pointer;
}

void* qzRealloc(void* pointer, int size) {
    const bool traced = tracing();
    if (traced)
        traceReallocBefore(pointer, size);
    void* result = std::realloc(pointer, static_cast<size_t>(size));
    if (!result && size != 0)
        reportAllocationFailure("qzRealloc", "realloc", size);
    if (traced)
        traceReallocAfter(result);
    return result;
}

int qzFree(void* pointer) {
    if (tracing())
        traceFree(pointer);
    if (pointer)
        std::free(pointer);
    return 0;
}

void* qzMallocAligned(unsigned long size, unsigned long alignment) {
    // Kept on purpose: an alignment of 0 is not guarded; it divides here.
    unsigned long remainder = size % alignment;
    unsigned long rounded = remainder ? size + (alignment - remainder) : size;
    void* pointer = nullptr;
    int rc = ::posix_memalign(&pointer, alignment, rounded);
    if (rc != 0) {
        errno = rc;
        pointer = nullptr;
        // The report keeps errno as it found it.
        reportAllocationFailure("qzMallocAligned", "posix_memalign", static_cast<long>(rounded));
    }
    return pointer;
}

void qzFreeAligned(void* pointer) {
    std::free(pointer);
}

void _qzInvalidMemoryAccess_abort(char const* function, void const* buffer,
                                  unsigned long bufferSize, unsigned long copySize) {
    // Kept on purpose: "0x" stands before a %p that renders its own "0x".
    QZ_SEAM_LOG(
        g_overflowLog, __FILE__, __func__, Level::Fatal,
        "Buffer overflow in %s copying %d bytes to a buffer at 0x%p that is only %d bytes in size",
        function, copySize, buffer, bufferSize);
    try {
        qzs::qzlib::detail::raiseFault(
            QZ_MESSAGE_SITE(kMemComponent, kMemFile, "_qzInvalidMemoryAccess_abort"),
            kMsgBufferOverflow, bufferSize, copySize);
    } catch (...) {
    }
    std::abort();
}
