//===- qzmsg/CContext.h - Context items and contexts -----------*- C++ -*-===//
//
// A context is a bag of named values that describes the circumstances of a
// message: the application, its build, the process, its directories, the
// service deployment, the source line, the thread. Items are looked up by a
// numeric ContextItemID, and a lookup that fails in one context goes on to
// the contexts chained to it.
//
//===----------------------------------------------------------------------===//
#ifndef QZMSG_CCONTEXT_H
#define QZMSG_CCONTEXT_H

#include "qzstd/CDataItem.h"
#include "qzstd/Export.h"
#include "qzstd/Mutex.h"
#include "qzstd/SparseArray.h"

#include <cstdint>
#include <string>
#include <vector>

namespace qzs {
namespace qzlib {

/// The low 28 bits of the standard CRC-32 of the item's name, except for the
/// two fixed IDs below.
typedef uint32_t ContextItemID;

/// Kept on purpose: these two IDs do not follow the CRC rule, so
/// GetContextItemID("BuildProgramType") computes another ID (176905740) and
/// registers that instead of finding the item.
constexpr ContextItemID BuildProgramTypeID = 20986301;
constexpr ContextItemID SourceMethodID = 53171622;

/// A named value of a context. `lock` guards the value of an item that
/// threads share: a reader or writer holds it for that one read or
/// assignment, and nothing else.
class QZ_API CContextItem : public CDataItem {
public:
    /// An item of `itemValue`'s type (see CDataItem's constructors).
    template <typename T>
    CContextItem(ContextItemID itemId, T itemValue)
        : CDataItem(itemValue), id(itemId), lock(MultiThreading::Mutex::Recursive) {}
    /// A string item, adopted when `adopt` is true (freed with free()).
    CContextItem(ContextItemID itemId, char const* text, bool adopt)
        : CDataItem(text, adopt), id(itemId), lock(MultiThreading::Mutex::Recursive) {}
    ~CContextItem() override;
    CContextItem(const CContextItem&) = delete;
    CContextItem& operator=(const CContextItem&) = delete;
    /// Value assignments keep the item's tag (see CDataItem).
    using CDataItem::operator=;

    /// Assigns `newValue` under the item's lock, as CDataItem's assignment of
    /// that type does (a `char const*` is borrowed).
    template <typename T> void Assign(const T& newValue) {
        MultiThreading::ScopedLock guard(lock);
        static_cast<CDataItem&>(*this) = newValue;
    }
    /// The value read under the item's lock, converted as CDataItem converts.
    template <typename T> T Read() const {
        MultiThreading::ScopedLock guard(lock);
        return static_cast<T>(static_cast<const CDataItem&>(*this));
    }
    /// The value as text, read under the item's lock: a string as it is, a
    /// number in decimal, a bool as "true" or "false"; "" for a null string
    /// or any other kind of value.
    std::string GetText() const;

    ContextItemID id;
    mutable MultiThreading::Mutex lock;
};

/// A context: its own items, and the contexts chained to it.
///
/// Ownership: a context owns its items, and deletes on destruction each
/// chained context whose deleteWithParent is true.
/// Thread safety: the item table and the chain have no lock. A context is
/// filled while it is built, by one thread; afterwards only item values change,
/// under each item's own lock.
class QZ_API CContext {
public:
    CContext();
    virtual ~CContext();
    CContext(const CContext&) = delete;
    CContext& operator=(const CContext&) = delete;

    /// Own items only (false), or those plus each chained context's own items
    /// (true): one level down, no further.
    virtual unsigned int GetItemCount(bool withChained) const;
    /// The ID of the index-th item: own items first, in bucket order, then
    /// those of the chained contexts in turn; 0 past the end.
    virtual ContextItemID GetItemID(unsigned int index) const;
    /// The own item, else the first chained context that has it (each asked
    /// through its own GetItem), else null.
    virtual CContextItem* GetItem(ContextItemID id) const;

    /// Takes ownership. Kept on purpose: an ID already present has its pointer
    /// replaced, and the item it held is neither deleted nor reachable.
    void AddItem(CContextItem* item);
    /// Removes and deletes the own item; false when there is none. The chained
    /// contexts are not searched.
    bool RemoveItem(ContextItemID id);
    /// Appends to the chain; no check for duplicates.
    void AddContext(CContext* context);
    /// Removes the first occurrence, keeping the order of the rest; never
    /// deletes it. False when it was not chained.
    bool RemoveContext(CContext const* context);

    /// The registered name of `id`, or null.
    static char const* GetContextItemName(ContextItemID id);
    /// The ID of `name` by the CRC rule. An ID not yet registered is
    /// registered with the caller's pointer, not a copy: `name` must outlive
    /// every use of the name table.
    static ContextItemID GetContextItemID(char const* name);

    /// Whether a parent context deletes this one with itself.
    bool deleteWithParent;

protected:
    typedef _SparseArray<CContextItem*, ContextItemID,
                         SparseArrayEntry<CContextItem*, ContextItemID>, 1>
        ItemTable;
    /// Own item of `id`, or null; the chain is not searched.
    CContextItem* findOwn(ContextItemID id) const;

    mutable ItemTable items;
    std::vector<CContext*> contexts;
    /// Own items present (a removed item leaves an empty entry behind).
    unsigned int ownCount;
};

} // namespace qzlib
} // namespace qzs

#endif // QZMSG_CCONTEXT_H
