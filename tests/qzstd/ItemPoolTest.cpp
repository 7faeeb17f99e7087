//===- tests/qzstd/ItemPoolTest.cpp - Free-list pools ---------------------===//
//
// Block growth, reuse order, construction and destruction of pooled items,
// and the mutex of ItemPoolMT under real contention.
//
//===----------------------------------------------------------------------===//
#include "qzstd/ItemPool.h"

#include "CaptureAppender.h"

#include <gtest/gtest.h>

#include <atomic>
#include <regex>
#include <thread>
#include <vector>

using qzs::qzlib::ItemPool;
using qzs::qzlib::ItemPoolMT;
using qzs::qzlib::LinkedItem;

namespace {

// Records construction and destruction, so a test can tell that items are
// made once per block and destroyed only with the pool.
struct Tracked : LinkedItem<Tracked> {
    static int made;
    static std::vector<int> destroyed;
    Tracked() : serial(++made) {}
    ~Tracked() { destroyed.push_back(serial); }
    int serial;
    int state = 0;
};
int Tracked::made = 0;
std::vector<int> Tracked::destroyed;

struct Slot : LinkedItem<Slot> {
    std::atomic<int> owner{0};
    long uses = 0;
};

class ItemPoolTest : public ::testing::Test {
protected:
    void SetUp() override {
        Tracked::made = 0;
        Tracked::destroyed.clear();
    }
};

} // namespace

// Blocks come only when the free list is dry; a returned item is the next one
// taken, as it was left, and never constructed again.
TEST_F(ItemPoolTest, GrowsByBlocksAndReusesLastReturned) {
    ItemPool<Tracked> pool(4, "test");
    EXPECT_EQ(pool.getTotalItems(), 0);

    std::vector<Tracked*> taken;
    for (int i = 0; i < 4; ++i)
        taken.push_back(pool.takeItem());
    EXPECT_EQ(pool.getTotalItems(), 4);
    EXPECT_EQ(pool.getFreeItems(), 0);

    taken.push_back(pool.takeItem());
    EXPECT_EQ(pool.getTotalItems(), 8);
    EXPECT_EQ(pool.getAllocatedItems(), 5);
    EXPECT_EQ(pool.getFreeItems(), 3);
    EXPECT_EQ(Tracked::made, 8);
    for (Tracked* item : taken)
        EXPECT_EQ(item->next, nullptr);

    taken[1]->state = 42;
    pool.returnItem(taken[1]);
    pool.returnItem(nullptr);
    EXPECT_EQ(pool.getAllocatedItems(), 4);
    Tracked* again = pool.takeItem();
    EXPECT_EQ(again, taken[1]);
    EXPECT_EQ(again->state, 42);
    EXPECT_EQ(Tracked::made, 8);
    EXPECT_TRUE(Tracked::destroyed.empty());

    for (Tracked* item : taken)
        pool.returnItem(item);
    EXPECT_EQ(pool.getAllocatedItems(), 0);
    EXPECT_EQ(pool.getFreeItems(), 8);
}

// Destruction walks the newest block first and each block from its last item,
// so items die in exactly the reverse of their construction.
TEST_F(ItemPoolTest, DestroysItemsInReverseOrder) {
    {
        ItemPool<Tracked> pool(3);
        std::vector<Tracked*> taken;
        for (int i = 0; i < 5; ++i)
            taken.push_back(pool.takeItem());
        for (Tracked* item : taken)
            pool.returnItem(item);
    }
    EXPECT_EQ(Tracked::destroyed, (std::vector<int>{6, 5, 4, 3, 2, 1}));
}

// A block size below one would make empty blocks and loop for ever.
TEST_F(ItemPoolTest, BlockSizeBelowOneCountsAsOne) {
    ItemPool<Tracked> pool(0);
    EXPECT_NE(pool.takeItem(), nullptr);
    EXPECT_NE(pool.takeItem(), nullptr);
    EXPECT_EQ(pool.getTotalItems(), 2);
}

// Threads that take and return at once never share an item, and the counts
// balance afterwards.
TEST(ItemPoolMTTest, ConcurrentTakeAndReturnNeverShareAnItem) {
    ItemPoolMT<Slot> pool(8, "contended");
    constexpr int kThreads = 4;
    constexpr int kRounds = 20000;
    std::atomic<int> clashes{0};
    std::vector<std::thread> threads;
    for (int t = 1; t <= kThreads; ++t) {
        threads.emplace_back([&, t] {
            Slot* held[3];
            for (int round = 0; round < kRounds; ++round) {
                for (Slot*& slot : held) {
                    slot = pool.takeItem();
                    int expected = 0;
                    if (!slot->owner.compare_exchange_strong(expected, t))
                        ++clashes;
                    ++slot->uses;
                }
                for (Slot* slot : held) {
                    slot->owner.store(0);
                    pool.returnItem(slot);
                }
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(clashes.load(), 0);
    EXPECT_EQ(pool.getAllocatedItems(), 0);
    EXPECT_EQ(pool.getFreeItems(), pool.getTotalItems());
    EXPECT_LE(pool.getTotalItems(), kThreads * 3 + 8);
}

// A named pool logs its life at INFO through "qzstd.itempool.<name>", with
// the exact texts (two blanks after "Destroying") and the destructor's name.
TEST_F(ItemPoolTest, LogsCreationBlocksAndDestructionAtInfo) {
    using namespace qzs::qzlib::qzlog;
    qztest::resetLogging();
    qztest::CapturedLogger log("qzstd.itempool.logged", "%M|%m", Level::Info);
    {
        ItemPool<Tracked> pool(2, "logged");
        EXPECT_EQ(pool.getLogger(), log.logger);
        for (int i = 0; i < 3; ++i)
            pool.takeItem();
    }
    const std::vector<std::string> lines = log.capture->lines();
    ASSERT_EQ(lines.size(), 4u);
    const std::string p = "(0x)?[0-9a-fA-F]+";
    EXPECT_TRUE(std::regex_match(
        lines[0], std::regex(".*\\|Created new ItemPool " + p + "\\. Default block size 2 items")))
        << lines[0];
    EXPECT_TRUE(std::regex_match(
        lines[1], std::regex(".*\\|ItemPool " + p + ": added 2 items at " + p + ", 2 total")))
        << lines[1];
    EXPECT_TRUE(std::regex_match(lines[2], std::regex(".*, 4 total"))) << lines[2];
    EXPECT_TRUE(std::regex_match(
        lines[3],
        std::regex("~ItemPool\\|Destroying  ItemPool " + p + "\\. Items: 4, alloc: 3, free: 1")))
        << lines[3];

    ItemPool<Tracked> unnamed(1);
    EXPECT_EQ(unnamed.getLogger(), Logger::getRepository().getLogger("qzstd.itempool"));
}
