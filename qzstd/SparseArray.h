//===- qzstd/SparseArray.h - Chained hash table carved from blocks -*- C++ -*-===//
//
// The system's own associative table, for places where a std::unordered_map
// would allocate on every insert: a chained hash table over a power-of-two
// number of buckets whose entries are carved from fixed-size blocks and never
// move. Integer keys hash as `key & mask`; the binary and string keys of
// HashArray.h plug in through SparseArrayKeyTraits.
//
//===----------------------------------------------------------------------===//
#ifndef QZSTD_SPARSEARRAY_H
#define QZSTD_SPARSEARRAY_H

#include <algorithm>
#include <cstddef>
#include <limits>
#include <new>
#include <type_traits>
#include <utility>

namespace qzs {
namespace qzlib {

/// One table entry. Entries live in blocks owned by the table and are never
/// moved or freed before the table itself, so `&value` is stable.
template <typename Value, typename Key> struct SparseArrayEntry {
    SparseArrayEntry* next;
    Value value;
    Key key;
};

/// How a key type hashes and compares. The primary template serves integer
/// and enumeration keys: the bucket is the key's value under the mask, so
/// dense small keys spread perfectly and nothing is computed. Class keys
/// specialise it (see HashArray.h).
template <typename Key, typename Enable = void> struct SparseArrayKeyTraits {
    static_assert(std::is_integral<Key>::value || std::is_enum<Key>::value,
                  "SparseArray keys are integers or enumerations; binary and string keys "
                  "come from HashArray.h");

    static unsigned long bucket(const Key& key, unsigned long mask) {
        return static_cast<unsigned long>(key) & mask;
    }
    static bool equal(const Key& stored, const Key& probe) { return stored == probe; }
};

/// A find-or-create table from Key to Value with no allocation per entry.
///
/// Use it where entries are added often and never removed one by one (the
/// table has no erase; clear() empties it whole). Compared with
/// std::unordered_map: entries come from blocks of kEntriesPerBlock, so an
/// insert allocates only when a block runs out or the buckets double; the
/// load factor stays at or below 1; and growth relinks entries without moving
/// them.
///
/// Blocks: N pages of 4032 bytes of entries, i.e. N * (4032 / sizeof(Entry))
/// entries a block (at least N). Every table in the system has N = 1, which
/// gives 168 entries for the usual integer-keyed entry of 24 bytes (unsigned
/// long to pointer, say), 252 for the 16-byte entries of small integer pairs,
/// and 100 for the 40-byte entries of HashArray keys.
///
/// Buckets: 256 at construction (mask 255). The insert that makes the count
/// exceed the mask doubles them, so the 256th entry is the first to see 512.
///
/// Invalidation: a `Value&` or `Value*` obtained from the table stays good
/// across any number of inserts and growths; only clear() and destruction end
/// it.
///
/// Thread safety: none. The owner serialises every call, readers included
/// when any writer may run.
///
/// Kept on purpose: growth walks the old buckets from 0 and pushes each entry
/// on the head of its new bucket, so entries that share a bucket before and
/// after come out in reverse order. forEach() visits in chain order, so its
/// order changes with growth; nothing may depend on it.
template <typename Value, typename Key, typename Entry = SparseArrayEntry<Value, Key>, int N = 1>
class _SparseArray {
    static_assert(N >= 1, "a block holds at least one page of entries");

public:
    /// Bytes of entries a block holds for N = 1.
    static constexpr std::size_t kBlockBytes = 4032;
    static constexpr std::size_t kEntriesPerBlock =
        N * std::max<std::size_t>(1, kBlockBytes / sizeof(Entry));

    /// Allocates the 256 bucket heads and the first block. Throws
    /// std::bad_alloc if either cannot be had.
    _SparseArray()
        : blocks(nullptr), table(nullptr), count(0), mask(255), freeEntries(nullptr),
          defaultValue() {
        table = newTable(mask + 1);
        try {
            addBlock();
        } catch (...) {
            delete[] table;
            throw;
        }
    }

    /// Frees the bucket heads, then every block with its entries; keys with a
    /// destructor of their own release what they own here.
    virtual ~_SparseArray() {
        delete[] table;
        while (blocks) {
            Block* next = blocks->next;
            delete blocks;
            blocks = next;
        }
    }

    _SparseArray(const _SparseArray&) = delete;
    _SparseArray& operator=(const _SparseArray&) = delete;

    /// Finds `key`, or adds it with `defaultValue` linked at the tail of its
    /// chain, and returns its value. Throws std::bad_alloc when a block or a
    /// larger bucket array cannot be had, and std::bad_array_new_length when
    /// the bucket count would pass what an array can hold; the table stays
    /// usable either way (after a failed growth the new entry is in and the
    /// next insert retries the growth).
    Value& operator[](const Key& key) { return findOrCreate(key); }
    /// As above; the key is moved into the entry when it is added.
    Value& operator[](Key&& key) { return findOrCreate(std::move(key)); }

    /// The value stored under `key`, or null. Never adds an entry.
    Value* find(const Key& key) {
        Entry* entry = findEntry(key);
        return entry ? &entry->value : nullptr;
    }
    const Value* find(const Key& key) const {
        const Entry* entry = findEntry(key);
        return entry ? &entry->value : nullptr;
    }

    /// Entries in use.
    unsigned long size() const { return count; }
    /// Buckets, always a power of two and at least size().
    unsigned long bucketCount() const { return mask + 1; }

    /// The value that new entries start with; value-initialised by default.
    /// Existing entries keep theirs.
    void setDefaultValue(const Value& value) { defaultValue = value; }
    const Value& getDefaultValue() const { return defaultValue; }

    /// Empties the table in place: every entry goes back on the free list with
    /// its key reset (releasing what a key owns), the buckets stay as many as
    /// they were, and no block is freed. Values of the old entries are not
    /// touched until an entry is reused. Invalidates every reference.
    void clear() {
        for (unsigned long b = 0; b <= mask; ++b) {
            Entry* entry = table[b];
            while (entry) {
                Entry* next = entry->next;
                entry->key = Key();
                entry->next = freeEntries;
                freeEntries = entry;
                entry = next;
            }
        }
        std::fill(table, table + mask + 1, nullptr);
        count = 0;
    }

    /// Calls `visit(const Key&, Value&)` for every entry, bucket by bucket.
    /// REQUIRES: `visit` adds nothing to the table.
    template <typename Visit> void forEach(Visit&& visit) {
        for (unsigned long b = 0; b <= mask; ++b)
            for (Entry* entry = table[b]; entry; entry = entry->next)
                visit(const_cast<const Key&>(entry->key), entry->value);
    }

protected:
    /// A block is the unit of allocation: its entries, then the next block.
    struct Block {
        Entry entries[kEntriesPerBlock];
        Block* next;
    };

    using Traits = SparseArrayKeyTraits<Key>;

    Block* blocks;
    Entry** table;
    unsigned long count;
    unsigned long mask;
    Entry* freeEntries;
    Value defaultValue;

private:
    static constexpr unsigned long kMaxHeads =
        static_cast<unsigned long>(std::numeric_limits<std::ptrdiff_t>::max()) / sizeof(Entry*);

    static Entry** newTable(unsigned long heads) {
        if (heads > kMaxHeads)
            throw std::bad_array_new_length();
        return new Entry*[heads]();
    }

    Entry* findEntry(const Key& key) const {
        for (Entry* entry = table[Traits::bucket(key, mask)]; entry; entry = entry->next)
            if (Traits::equal(entry->key, key))
                return entry;
        return nullptr;
    }

    template <typename K> Value& findOrCreate(K&& key) {
        Entry** link = &table[Traits::bucket(key, mask)];
        for (Entry* entry = *link; entry; entry = entry->next) {
            if (Traits::equal(entry->key, key))
                return entry->value;
            link = &entry->next;
        }

        if (!freeEntries)
            addBlock();
        // The key goes in while the entry is still on the free list, so a key
        // copy that throws leaves the table as it was.
        Entry* entry = freeEntries;
        entry->key = std::forward<K>(key);
        entry->value = defaultValue;
        freeEntries = entry->next;
        entry->next = nullptr;
        *link = entry;
        ++count;

        if (count > mask)
            grow();
        return entry->value;
    }

    void addBlock() {
        Block* block = new Block(); // value-initialised: zeroed, keys default-constructed
        for (std::size_t i = 0; i + 1 < kEntriesPerBlock; ++i)
            block->entries[i].next = &block->entries[i + 1];
        block->entries[kEntriesPerBlock - 1].next = freeEntries;
        freeEntries = &block->entries[0];
        block->next = blocks;
        blocks = block;
    }

    void grow() {
        // Checked before doubling: mask * 2 + 1 of a huge mask wraps to a
        // small number that an allocation would accept.
        if (mask >= kMaxHeads / 2)
            throw std::bad_array_new_length();
        unsigned long newMask = mask * 2 + 1;
        Entry** newHeads = newTable(newMask + 1);
        for (unsigned long b = 0; b <= mask; ++b) {
            Entry* entry = table[b];
            while (entry) {
                Entry* next = entry->next;
                Entry*& head = newHeads[Traits::bucket(entry->key, newMask)];
                entry->next = head;
                head = entry;
                entry = next;
            }
        }
        delete[] table;
        table = newHeads;
        mask = newMask;
    }
};

/// The table type the system names in its declarations; it adds nothing to
/// _SparseArray but its own identity.
template <typename Value, typename Key, typename Entry = SparseArrayEntry<Value, Key>, int N = 1>
class SparseArray : public _SparseArray<Value, Key, Entry, N> {
public:
    SparseArray() = default;
    ~SparseArray() override = default;
};

} // namespace qzlib
} // namespace qzs

#endif // QZSTD_SPARSEARRAY_H
