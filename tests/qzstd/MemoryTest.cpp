//===- tests/qzstd/MemoryTest.cpp - Checked allocation --------------------===//
//
// The allocation family's failure path, its tracing through the standard
// utility logger, and the overflow abort. Failures are provoked with sizes no
// allocator can give (a negative int becomes a huge size_t), so no test
// depends on how much memory the machine has.
//
//===----------------------------------------------------------------------===//
#include "qzstd/Memory.h"

#include "CaptureAppender.h"
#include "FaultCollector.h"
#include "qzlog/Level.h"
#include "qzlog/Logger.h"
#include "qzlog/LoggerRepository.h"
#include "qzlog/PatternLayout.h"
#include "qzlog/StandardLoggers.h"
#include "qzlog/WriterAppender.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <malloc.h>
#include <string>
#include <vector>

// Under ASan a request no allocator can meet must come back null, as from
// glibc, instead of stopping the test binary.
extern "C" const char* __asan_default_options() {
    return "allocator_may_return_null=1";
}

namespace {

using qzs::qzlib::qzlog::ConsoleAppender;
using qzs::qzlib::qzlog::Level;
using qzs::qzlib::qzlog::Logger;
using qzs::qzlib::qzlog::PatternLayout;
using qztest::Fault;

std::string pointerText(const void* pointer) {
    char text[32];
    std::snprintf(text, sizeof text, "%p", pointer);
    return text;
}

// Requests for nothing give null and report nothing. Each failing call
// gives null and reports 1088 once, naming the system call and the bytes
// asked for, in the source context of the memory utilities.
TEST(MemoryTest, NullResultsAndTheirReports) {
    qztest::FaultCollector capture;
    char* block = static_cast<char*>(qzMalloc(16));
    ASSERT_NE(nullptr, block);
    std::strcpy(block, "still here");
    void* target = &target;
    const struct {
        const char* call;
        std::function<void*()> run;
        const char* function = nullptr; // null: no report
        const char* arguments = nullptr;
    } rows[] = {
        {"qzMalloc(0)", [] { return qzMalloc(0); }},
        {"qzCalloc(0)", [] { return qzCalloc(0); }},
        {"qzCallocStandard(0, 8)", [] { return qzCallocStandard(0, 8); }},
        {"qzCallocStandard(-3, 8)", [] { return qzCallocStandard(-3, 8); }},
        {"qzAllocMemcpy of 0", [&] { return qzAllocMemcpy(&target, "x", 0); }},
        {"qzMalloc(-1)", [] { return qzMalloc(-1); }, "qzMalloc", "malloc, -1"},
        {"qzCalloc(-2)", [] { return qzCalloc(-2); }, "qzCalloc", "calloc, -2"},
        // The product is reported in 64 bits, not wrapped in 32.
        {"qzCallocStandard(INT_MAX, INT_MAX)", [] { return qzCallocStandard(INT_MAX, INT_MAX); },
         "qzCallocStandard", "calloc, 4611686014132420609"},
        {"qzRealloc(block, -1)", [&] { return qzRealloc(block, -1); }, "qzRealloc", "realloc, -1"},
        {"qzMallocAligned(100, 3)",
         [] {
             errno = 0;
             void* aligned = qzMallocAligned(100, 3);
             EXPECT_EQ(EINVAL, errno) << "posix_memalign's result becomes errno";
             return aligned;
         },
         "qzMallocAligned", "posix_memalign, 102"},
    };
    for (const auto& row : rows) {
        const size_t before = capture.count();
        EXPECT_EQ(nullptr, row.run()) << row.call;
        std::vector<Fault> faults = capture.faults();
        ASSERT_EQ(before + (row.function ? 1 : 0), faults.size()) << row.call;
        if (!row.function)
            continue;
        EXPECT_EQ(1088u, faults.back().number);
        EXPECT_EQ("qzstd.util.mem", faults.back().site.component);
        EXPECT_EQ(std::string(row.function), faults.back().site.function);
        EXPECT_EQ(row.arguments, faults.back().arguments);
    }
    EXPECT_EQ(nullptr, target);
    EXPECT_STREQ("still here", block) << "a failed realloc must leave the block alone";
    qzFree(block);
    EXPECT_EQ(0, qzFree(nullptr));
}

TEST(MemoryTest, CopiesAndAlignedBlocks) {
    const char source[] = "twelve bytes";
    void* target = nullptr;
    void* copy = qzAllocMemcpy(&target, source, sizeof source);
    ASSERT_NE(nullptr, copy);
    EXPECT_EQ(copy, target);
    EXPECT_STREQ(source, static_cast<char*>(copy));
    qzFree(copy);

    // 100 rounds up to 128: the block must be usable to the rounded size.
    void* aligned = qzMallocAligned(100, 64);
    ASSERT_NE(nullptr, aligned);
    EXPECT_EQ(0u, reinterpret_cast<std::uintptr_t>(aligned) % 64);
    EXPECT_GE(malloc_usable_size(aligned), 128u);
    std::memset(aligned, 0xA5, 128);
    qzFreeAligned(aligned);
}

// The records and their order are what a trace reader relies on; the cached
// byte must follow the logger's level both ways.
TEST(MemoryTest, TracingFollowsTheCachedLevel) {
    qztest::resetLogging();
    qztest::CapturedLogger log("qzlog.std.utility", "%m", Level::Inherit);
    qztest::CaptureAppender& capture = *log.capture;
    ASSERT_EQ(log.logger, qzlog_std_utility);
    EXPECT_GE(qzlog_std_utility_effective_level, 144) << "quiet by default";
    qzFree(qzMalloc(8));
    EXPECT_EQ(0u, capture.count());

    qzlog_std_utility->setLevel(Level::Debug);
    EXPECT_EQ(Level::Debug, qzlog_std_utility_effective_level);

    void* block = qzMalloc(24);
    const std::string blockText = pointerText(block);
    void* elements = qzCallocStandard(3, 8);
    void* moved = qzRealloc(block, 4096);
    qzFree(moved);
    qzFree(elements);
    std::vector<std::string> expected = {
        "pointer allocated: " + blockText,
        "bytes allocated: 24",
        "pointer allocated: " + pointerText(elements),
        "elements allocated: 3",
        "element size: 8",
        "pointer before realloc: " + blockText,
        "bytes reallocated: 4096",
        "pointer after realloc: " + pointerText(moved),
        "pointer freed: " + pointerText(moved),
        "pointer freed: " + pointerText(elements),
    };
    EXPECT_EQ(expected, capture.lines());

    capture.clear();
    qzlog_std_utility->setLevel(Level::Info);
    EXPECT_EQ(Level::Info, qzlog_std_utility_effective_level);
    qzFree(qzMalloc(8));
    EXPECT_EQ(0u, capture.count());
}

// The record goes out first, then the message, then the process aborts.
TEST(MemoryDeathTest, OverflowLogsReportsAndAborts) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    auto overflow = [] {
        Logger* log = Logger::getRepository().getLogger("qzlib.memutl");
        log->addAppender(*new ConsoleAppender("overflow", stderr, new PatternLayout("log: %m%n")));
        log->setLevel(Level::All);
        char buffer[16];
        _qzInvalidMemoryAccess_abort("copyName", buffer, sizeof buffer, 32);
    };
    EXPECT_DEATH(overflow(), "log: Buffer overflow in copyName copying 32 bytes to a buffer at "
                             "0x0x[0-9a-f]+ that is only 16 bytes in size\n");
}

} // namespace
