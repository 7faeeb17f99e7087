//===- tests/qzstd/SparseArrayTest.cpp - Block-carved hash tables ---------===//
//
// Growth, block use, reference stability and key handling of SparseArray,
// HashArray and HashStringArray.
//
//===----------------------------------------------------------------------===//
#include "qzstd/SparseArray.h"
#include "qzstd/HashArray.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

using qzs::qzlib::HashArray;
using qzs::qzlib::HashArrayBinaryKey;
using qzs::qzlib::HashArrayStringKey;
using qzs::qzlib::HashStringArray;
using qzs::qzlib::SparseArray;

namespace {

// Counts the blocks, which no public call shows.
template <typename Value, typename Key> struct Probe : SparseArray<Value, Key> {
    int blockCount() const {
        int n = 0;
        for (auto* b = this->blocks; b; b = b->next)
            ++n;
        return n;
    }
};

using IntTable = Probe<unsigned int, unsigned long>;

static_assert(IntTable::kEntriesPerBlock == 168, "integer-keyed blocks hold 168 entries");
static_assert(SparseArray<unsigned char, unsigned char>::kEntriesPerBlock == 252,
              "small entries fill the same 4032 bytes");
static_assert(HashArray<void*>::kEntriesPerBlock == 100, "keyed entries are 40 bytes");

} // namespace

// The insert that makes count exceed mask (the 256th) doubles the buckets, and
// every value keeps its address through two doublings.
TEST(SparseArrayTest, GrowsAtThe256thEntryAndKeepsReferences) {
    IntTable table;
    std::vector<unsigned int*> values;
    for (unsigned long key = 0; key < 255; ++key) {
        values.push_back(&table[key * 7]);
        *values.back() = unsigned(key) + 1000;
    }
    EXPECT_EQ(table.bucketCount(), 256u);

    values.push_back(&table[255 * 7]);
    *values.back() = 255 + 1000;
    EXPECT_EQ(table.size(), 256u);
    EXPECT_EQ(table.bucketCount(), 512u);

    for (unsigned long key = 256; key < 600; ++key) {
        values.push_back(&table[key * 7]);
        *values.back() = unsigned(key) + 1000;
    }
    EXPECT_EQ(table.bucketCount(), 1024u);
    for (unsigned long key = 0; key < 600; ++key) {
        ASSERT_EQ(&table[key * 7], values[key]) << key;
        ASSERT_EQ(*values[key], key + 1000) << key;
    }
}

// One block serves 168 entries; the 169th takes the second. Lookups of
// present keys never take entries.
TEST(SparseArrayTest, AllocatesABlockPer168Entries) {
    IntTable table;
    for (unsigned long key = 0; key < 168; ++key)
        table[key];
    for (unsigned long key = 0; key < 168; ++key)
        table[key] = 1;
    EXPECT_EQ(table.blockCount(), 1);
    table[168];
    EXPECT_EQ(table.blockCount(), 2);
}

// find() answers absence without adding; new entries start from the default
// value as it stands at their creation.
TEST(SparseArrayTest, FindDoesNotCreateAndDefaultValueSeedsNewEntries) {
    SparseArray<int, unsigned int> table;
    EXPECT_EQ(table.find(42), nullptr);
    EXPECT_EQ(table.size(), 0u);

    EXPECT_EQ(table[1], 0);
    table.setDefaultValue(-5);
    EXPECT_EQ(table[2], -5);
    EXPECT_EQ(table[1], 0);
    table[2] = 9;
    const auto& constTable = table;
    ASSERT_NE(constTable.find(2), nullptr);
    EXPECT_EQ(*constTable.find(2), 9);
    EXPECT_EQ(constTable.find(3), nullptr);
    EXPECT_EQ(table.size(), 2u);
}

// New entries go to the chain's tail; growth pushes each on the head of its
// new bucket, so keys that stay together come out reversed.
TEST(SparseArrayTest, ChainsReverseOnGrowth) {
    IntTable table;
    for (unsigned long key : {0ul, 512ul, 1024ul})
        table[key];
    std::vector<unsigned long> order;
    table.forEach([&](unsigned long key, unsigned int&) { order.push_back(key); });
    EXPECT_EQ(order, (std::vector<unsigned long>{0, 512, 1024}));

    for (unsigned long key = 1; key <= 253; ++key)
        table[key];
    ASSERT_EQ(table.bucketCount(), 512u);
    order.clear();
    table.forEach([&](unsigned long key, unsigned int&) { order.push_back(key); });
    ASSERT_GE(order.size(), 3u);
    EXPECT_EQ(std::vector<unsigned long>(order.begin(), order.begin() + 3),
              (std::vector<unsigned long>{1024, 512, 0}));
}

// clear() empties the table but keeps its buckets and blocks for reuse.
TEST(SparseArrayTest, ClearKeepsBucketsAndBlocks) {
    IntTable table;
    for (unsigned long key = 0; key < 400; ++key)
        table[key] = 1;
    ASSERT_EQ(table.bucketCount(), 512u);
    ASSERT_EQ(table.blockCount(), 3);

    table.clear();
    EXPECT_EQ(table.size(), 0u);
    EXPECT_EQ(table.find(5), nullptr);
    EXPECT_EQ(table.bucketCount(), 512u);

    for (unsigned long key = 1000; key < 1400; ++key)
        table[key];
    EXPECT_EQ(table.blockCount(), 3);
    EXPECT_EQ(table[1399], 0u);
    EXPECT_EQ(table.size(), 400u);
}

// Equal text in different buffers is one key, and the table keeps its own
// NUL-terminated copy, so the caller's buffer may change or go away.
TEST(HashArrayTest, EqualTextInDifferentBuffersIsOneEntry) {
    HashStringArray<int> table;
    char first[] = "alpha";
    char second[] = "alpha";
    int& value = table[first];
    value = 11;
    EXPECT_EQ(&table[second], &value);
    EXPECT_EQ(table.size(), 1u);

    first[0] = 'X';
    ASSERT_NE(table.find("alpha"), nullptr);
    EXPECT_EQ(*table.find("alpha"), 11);
    EXPECT_EQ(table.find("Xlpha"), nullptr);

    table.forEach([&](const HashArrayStringKey& key, int&) {
        EXPECT_NE(key.data, static_cast<const void*>(second));
        EXPECT_FALSE(key.borrowed);
        EXPECT_STREQ(key.c_str(), "alpha");
    });

    // The empty string is a key like any other.
    table[""] = 3;
    EXPECT_EQ(*table.find(HashArrayStringKey(nullptr)), 3);
    EXPECT_EQ(table.size(), 2u);
}

// Binary keys compare length first, so embedded NULs and prefixes matter.
TEST(HashArrayTest, BinaryKeysCompareLengthAndBytes) {
    HashArray<int> table;
    const char bytes[] = {'a', 'b', '\0', 'c'};
    table[HashArrayBinaryKey(bytes, 4)] = 4;
    table[HashArrayBinaryKey(bytes, 2)] = 2;
    EXPECT_EQ(table.size(), 2u);
    const char again[] = {'a', 'b', '\0', 'c'};
    EXPECT_EQ(*table.find(HashArrayBinaryKey(again, 4)), 4);
    EXPECT_EQ(*table.find(HashArrayBinaryKey("ab", 2)), 2);
    EXPECT_EQ(table.find(HashArrayBinaryKey("ab", 3)), nullptr);
}

// Borrowed keys never free; copies own their bytes; an owning key moved into
// a table hands its array over rather than being copied.
TEST(HashArrayTest, KeyOwnership) {
    char local[] = "stack bytes";
    {
        HashArrayBinaryKey borrowed(local, sizeof local);
        HashArrayBinaryKey copy(borrowed);
        EXPECT_NE(copy.data, borrowed.data);
        EXPECT_FALSE(copy.borrowed);
        EXPECT_EQ(std::memcmp(copy.data, local, sizeof local), 0);
    } // a delete[] of `local` here would be caught by the sanitizers
    EXPECT_STREQ(local, "stack bytes");

    char* owned = new char[6];
    std::memcpy(owned, "owned", 6);
    HashArrayStringKey key(owned, 5, false);
    HashStringArray<int> table;
    table[std::move(key)] = 1;
    EXPECT_EQ(key.data, nullptr);
    EXPECT_EQ(key.length, 0u);
    table.forEach([&](const HashArrayStringKey& stored, int&) { EXPECT_EQ(stored.data, owned); });
    EXPECT_EQ(*table.find("owned"), 1);
}

// Many string keys across several doublings: all found, values stable.
TEST(HashArrayTest, StringKeysSurviveGrowth) {
    HashStringArray<const std::string*> table;
    std::vector<std::string> names;
    for (int i = 0; i < 2000; ++i)
        names.push_back("qzstd.key." + std::to_string(i * 7919));
    std::vector<const std::string**> slots;
    for (const std::string& name : names) {
        slots.push_back(&table[name.c_str()]);
        *slots.back() = &name;
    }
    EXPECT_EQ(table.size(), names.size());
    EXPECT_EQ(table.bucketCount(), 2048u);
    for (size_t i = 0; i < names.size(); ++i) {
        std::string probe = names[i];
        const std::string** found = table.find(probe.c_str());
        ASSERT_EQ(found, slots[i]) << names[i];
        EXPECT_EQ(*found, &names[i]);
    }
}
