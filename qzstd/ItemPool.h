//===- qzstd/ItemPool.h - Typed free-list pools ----------------*- C++ -*-===//
//
// Pools of constructed objects handed out and taken back through a free list,
// for types whose construction is dear (a body with its own mutex) or whose
// size makes the heap a poor fit (a megabyte buffer). Items are constructed
// once, when their block is made, and destroyed only with the pool.
//
//===----------------------------------------------------------------------===//
#ifndef QZSTD_ITEMPOOL_H
#define QZSTD_ITEMPOOL_H

#include "qzstd/LoggingSeam.h"
#include "qzstd/Mutex.h"

#include <string>
#include <type_traits>

namespace qzs {
namespace qzlib {

/// The link word of a pooled type. A type is pooled by deriving from
/// LinkedItem of itself: `struct Buffer : LinkedItem<Buffer> { ... };`.
///
/// The pool owns `next` while the item is free and writes nothing else of an
/// item, ever. While the item is taken, `next` is the holder's to use. With
/// LinkedItem as the first base and no virtual functions, the link is the
/// item's first word, which a holder may then use as a header of its own.
template <typename T> struct LinkedItem { T* next; };

/// A free-list pool of T, growing by blocks of `blockSize` items.
///
/// Taking pops the most recently returned item (last in, first out), so a hot
/// item stays in cache. Items are value-initialised once when their block is
/// made, never reset by the pool, and destroyed in reverse order, block by
/// block, when the pool is destroyed; nothing is freed before that.
///
/// Logging: at INFO the pool reports its creation, each new block and its
/// destruction through getLogger(). A pool made before the logging framework
/// is up logs nothing until the framework is up.
///
/// Thread safety: none; the owner serialises every call, or uses ItemPoolMT.
template <typename T> class ItemPool {
    static_assert(std::is_base_of<LinkedItem<T>, T>::value,
                  "a pooled type derives from LinkedItem of itself");

public:
    /// `blockSize` items are made each time the free list runs dry; values
    /// below 1 count as 1. `poolName`, if not null, names the pool's logger
    /// and must outlive the pool (a literal, in practice); it is not copied.
    explicit ItemPool(int blockSize, const char* poolName = nullptr)
        : blocks(nullptr), freeItems(nullptr), defaultBlockSize(blockSize < 1 ? 1 : blockSize),
          loggerName(poolName && *poolName ? std::string("qzstd.itempool.") + poolName : "qzstd.itempool"),
          logger(loggerName.c_str()), name(poolName), totalItems(0), allocatedItems(0), freeItemCount(0) {
        QZ_SEAM_LOG(logger, __FILE__, "ItemPool", detail::LogLevel::Info,
                    "Created new ItemPool %p. Default block size %d items", static_cast<const void*>(this),
                    defaultBlockSize);
    }

    /// Destroys every item, taken or not. REQUIRES: no item is in use.
    virtual ~ItemPool() {
        QZ_SEAM_LOG(logger, __FILE__, "~ItemPool", detail::LogLevel::Info,
                    "Destroying  ItemPool %p. Items: %d, alloc: %d, free: %d", static_cast<const void*>(this),
                    totalItems, allocatedItems, freeItemCount);
        while (blocks) {
            Block* next = blocks->next;
            delete[] blocks->items; // destroys the block's items last to first
            delete blocks;
            blocks = next;
        }
    }

    ItemPool(const ItemPool&) = delete;
    ItemPool& operator=(const ItemPool&) = delete;

    /// An item for the caller's use, never null: a new block is made when the
    /// free list is empty. The item is as it was returned (or as first
    /// constructed); its `next` is null. Throws std::bad_alloc, or what T's
    /// constructor throws, when a block cannot be made; the pool is unchanged.
    T* takeItem() {
        // A loop, not an if: the new block is logged before this take pops,
        // and a logging path that takes from this very pool may drain it.
        while (!freeItems)
            addBlock();
        T* item = freeItems;
        freeItems = link(item).next;
        link(item).next = nullptr;
        --freeItemCount;
        ++allocatedItems;
        return item;
    }

    /// Puts `item` back at the head of the free list; a null item is ignored.
    /// REQUIRES: `item` came from this pool and is not already free.
    void returnItem(T* item) {
        if (!item)
            return;
        link(item).next = freeItems;
        freeItems = item;
        ++freeItemCount;
        --allocatedItems;
    }

    /// The pool's logger: "qzstd.itempool", or "qzstd.itempool.<name>" for a
    /// named pool. Null while the logging framework is not up; fetched once
    /// and kept from the first call after it is.
    qzlog::Logger* getLogger() { return logger.get(); }

    /// Items made so far, in use, and on the free list. Read without a lock,
    /// also in ItemPoolMT: exact only while no other thread uses the pool.
    int getTotalItems() const { return totalItems; }
    int getAllocatedItems() const { return allocatedItems; }
    int getFreeItems() const { return freeItemCount; }
    const char* getName() const { return name; }

protected:
    /// The unit of allocation: the next block, and its items as one new[]
    /// array, which knows its own length for the delete[].
    struct Block {
        Block* next;
        T* items;
    };

    Block* blocks;
    T* freeItems;
    int defaultBlockSize;
    std::string loggerName;
    detail::LazyLogger logger; // on loggerName, which is declared first
    const char* name;
    int totalItems;
    int allocatedItems;
    int freeItemCount;

private:
    static LinkedItem<T>& link(T* item) { return *static_cast<LinkedItem<T>*>(item); }

    void addBlock() {
        const int n = defaultBlockSize;
        T* items = new T[n]();
        Block* block;
        try {
            block = new Block{blocks, items};
        } catch (...) {
            delete[] items;
            throw;
        }
        // Threaded in array order, so the block's first item is taken first.
        for (int i = 0; i + 1 < n; ++i)
            link(&items[i]).next = &items[i + 1];
        link(&items[n - 1]).next = freeItems;
        freeItems = items;
        blocks = block;
        totalItems += n;
        freeItemCount += n;

        QZ_SEAM_LOG(logger, __FILE__, "addBlock", detail::LogLevel::Info,
                    "ItemPool %p: added %d items at %p, %d total", static_cast<const void*>(this), n,
                    static_cast<const void*>(items), totalItems);
    }
};

/// An ItemPool whose take, return and logger look-up hold the pool's own
/// recursive Mutex, for pools shared between threads.
///
/// Lock order: the pool's mutex is taken after any lock of an item's holder
/// (a string body's lock, then its pool) and before the locks of logging,
/// since a new block is logged under it. Being recursive, it lets the logging
/// of a new block take from the same pool on the same thread.
/// Calls made through a plain ItemPool pointer or reference bypass the mutex.
/// Construction and destruction are not guarded: the owner serialises them.
template <typename T> class ItemPoolMT : public ItemPool<T> {
public:
    explicit ItemPoolMT(int blockSize, const char* poolName = nullptr)
        : ItemPool<T>(blockSize, poolName) {}
    ~ItemPoolMT() override = default;

    /// As ItemPool::takeItem, under the mutex.
    T* takeItem() {
        MultiThreading::ScopedLock guard(mutex);
        return ItemPool<T>::takeItem();
    }
    /// As ItemPool::returnItem, under the mutex.
    void returnItem(T* item) {
        MultiThreading::ScopedLock guard(mutex);
        ItemPool<T>::returnItem(item);
    }
    /// As ItemPool::getLogger, under the mutex.
    qzlog::Logger* getLogger() {
        MultiThreading::ScopedLock guard(mutex);
        return ItemPool<T>::getLogger();
    }

protected:
    MultiThreading::Mutex mutex;
};

} // namespace qzlib
} // namespace qzs

#endif // QZSTD_ITEMPOOL_H
