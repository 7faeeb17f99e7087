//===- tests/qzstd/MemUtilTest.cpp - Checked allocation -------------------===//
//
// The allocation family's failure path, its tracing through the standard
// utility logger, and the overflow abort. Failures are provoked with sizes no
// allocator can give (a negative int becomes a huge size_t), so no test
// depends on how much memory the machine has.
//
//===----------------------------------------------------------------------===//
#include "qzstd/memutl.h"

#include "CaptureAppender.h"
#include "FaultCollector.h"
#include "qzlog/Level.h"
#include "qzlog/Logger.h"
#include "qzlog/LoggerRepository.h"
#include "qzlog/PatternLayout.h"
#include "qzstd/FaultReport.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <malloc.h>
#include <mutex>
#include <string>
#include <unistd.h>
#include <vector>

// Under ASan a request no allocator can meet must come back null, as from
// glibc, instead of stopping the test binary.
extern "C" const char* __asan_default_options() {
    return "allocator_may_return_null=1";
}

namespace {

using qzs::qzlib::detail::Fault;
using qzs::qzlib::qzlog::Level;
using qzs::qzlib::qzlog::Logger;
using qzs::qzlib::qzlog::PatternLayout;

using FaultCapture = qztest::FaultCollector;

std::string pointerText(const void* pointer) {
    char text[32];
    std::snprintf(text, sizeof text, "%p", pointer);
    return text;
}

// Zero sizes and counts are requests for nothing, not failures.
TEST(MemUtilTest, EmptyRequestsGiveNullWithoutAReport) {
    FaultCapture capture;
    EXPECT_EQ(nullptr, qzMalloc(0));
    EXPECT_EQ(nullptr, qzCalloc(0));
    EXPECT_EQ(nullptr, qzCallocStandard(0, 8));
    EXPECT_EQ(nullptr, qzCallocStandard(-3, 8));
    void* target = &target;
    EXPECT_EQ(nullptr, qzAllocMemcpy(&target, "x", 0));
    EXPECT_EQ(nullptr, target);
    EXPECT_EQ(0, qzFree(nullptr));
    EXPECT_TRUE(capture.faults().empty());
}

// Each failing call reports 1088 once, naming the system call and the bytes
// asked for, in the source context of the memory utilities.
TEST(MemUtilTest, FailedCallsReport1088WithTheCallAndTheBytes) {
    FaultCapture capture;
    EXPECT_EQ(nullptr, qzMalloc(-1));
    EXPECT_EQ(nullptr, qzCalloc(-2));
    // The product is reported in 64 bits, not wrapped in 32.
    EXPECT_EQ(nullptr, qzCallocStandard(INT_MAX, INT_MAX));

    char* block = static_cast<char*>(qzMalloc(16));
    ASSERT_NE(nullptr, block);
    std::strcpy(block, "still here");
    EXPECT_EQ(nullptr, qzRealloc(block, -1));
    EXPECT_STREQ("still here", block) << "a failed realloc must leave the block alone";
    qzFree(block);

    errno = 0;
    EXPECT_EQ(nullptr, qzMallocAligned(100, 3));
    EXPECT_EQ(EINVAL, errno) << "posix_memalign's result becomes errno";

    std::vector<Fault> faults = capture.faults();
    ASSERT_EQ(5u, faults.size());
    const char* expected[][2] = {{"qzMalloc", "malloc, -1"},
                                 {"qzCalloc", "calloc, -2"},
                                 {"qzCallocStandard", "calloc, 4611686014132420609"},
                                 {"qzRealloc", "realloc, -1"},
                                 {"qzMallocAligned", "posix_memalign, 102"}};
    for (size_t i = 0; i < faults.size(); ++i) {
        EXPECT_EQ(1088u, faults[i].number);
        EXPECT_STREQ("qzstd.util.mem", faults[i].site.component);
        EXPECT_STREQ(expected[i][0], faults[i].site.function);
        EXPECT_EQ(expected[i][1], faults[i].arguments);
    }
}

TEST(MemUtilTest, CopiesAndAlignedBlocks) {
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
TEST(MemUtilTest, TracingFollowsTheCachedLevel) {
    qztest::resetLogging();
    ASSERT_NE(nullptr, qzlog_std_utility);
    EXPECT_STREQ("qzlog.std.utility", qzlog_std_utility->getName());
    EXPECT_GE(qzlog_std_utility_effective_level, 144) << "quiet by default";

    qztest::CaptureAppender capture("memutl-trace", new PatternLayout("%m"));
    qzlog_std_utility->addAppender(capture);
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

    qzlog_std_utility->removeAppender(capture);
    qztest::resetLogging();
}

// The death test's child shows what it captured on stderr, in the order it
// happened: the log record first, then the fault.
qztest::CaptureAppender* g_overflowCapture;

void printCapturedThenFault(const Fault& fault) {
    std::string out;
    for (const std::string& line : g_overflowCapture->lines())
        out += "log: " + line + "\n";
    out += "fault " + std::to_string(fault.number) + ": " + fault.arguments + "\n";
    ssize_t ignored = ::write(2, out.data(), out.size());
    (void)ignored;
}

void overflowAfterCapturing() {
    g_overflowCapture = new qztest::CaptureAppender("memutl-overflow", new PatternLayout("%m"));
    Logger* log = Logger::getRepository().getLogger("qzlib.memutl");
    log->addAppender(*g_overflowCapture);
    log->setLevel(Level::All);
    qzs::qzlib::detail::setFaultSink(&printCapturedThenFault);
    char buffer[16];
    _qzInvalidMemoryAccess_abort("copyName", buffer, sizeof buffer, 32);
}

TEST(MemUtilDeathTest, OverflowLogsReportsAndAborts) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(overflowAfterCapturing(),
                 "log: Buffer overflow in copyName copying 32 bytes to a buffer at "
                 "0x0x[0-9a-f]+ that is only 16 bytes in size\nfault 1072: 16, 32\n");
}

} // namespace
