//===- qzunicode/UStringArray.h - A growing list of strings --------*- C++ -*-===//
//
// UStringArray keeps UString items in order and splits and joins text. The
// items are heap objects reached through an array of pointers that grows by
// ten slots at a time.
//
//===----------------------------------------------------------------------===//
#ifndef QZUNICODE_USTRINGARRAY_H
#define QZUNICODE_USTRINGARRAY_H

#include "qzstd/Export.h"

#include "qzunicode/UString.h"

#include <cstddef>

namespace qzs {
namespace qzlib {
namespace qzunicode {

/// The storage of a list of heap objects: a pointer array that grows by
/// m_uGrowBy slots. Items are deleted with the list unless m_bShared says
/// somebody else owns them.
template <typename T> struct ElementList {
    T** m_ppoItems = nullptr;
    std::size_t m_uCount = 0;
    std::size_t m_uCapacity = 0;
    std::size_t m_uGrowBy = 10;
    bool m_bShared = false;
};

/// An ordered list of strings.
///
/// Items are copies of what is added, so they share bodies with it until
/// either side changes. Growth is linear, by 10 slots; references to
/// items stay valid until the item is erased (only the pointer array moves).
/// Out-of-range positions: insert appends, erase does nothing, operator[] is
/// unchecked. No lock: an array belongs to one thread.
class QZ_API UStringArray {
public:
    UStringArray() = default;
    /// One item.
    explicit UStringArray(const UString& s);
    /// Split at each sep unit. A zero unit takes the whole string as one
    /// item; empty items are kept, so "a," gives "a" and "".
    UStringArray(const UString& s, unsigned short sep);
    /// Split at each occurrence of sep; an empty sep gives one item.
    UStringArray(const UString& s, const UString& sep);
    UStringArray(const UStringArray& other);
    virtual ~UStringArray();

    UStringArray& operator=(const UString& s);
    UStringArray& operator=(const UStringArray& other);
    UStringArray& operator+=(const UString& s);
    UStringArray& operator+=(const UStringArray& other);

    /// Inserts before pos, moving the tail up; pos past the end appends.
    void insert(std::size_t pos, const UString& s);
    void insert(std::size_t pos, const UStringArray& other);
    /// Deletes every item.
    void erase();
    /// Deletes the item at pos and moves the tail down; pos past the end does
    /// nothing.
    void erase(std::size_t pos);

    UStringArray operator+(const UString& s) const;
    UStringArray operator+(const UStringArray& other) const;

    /// The items joined, with no separator.
    UString combine() const;
    /// Joined with sep between items; sep 0 is combine().
    UString combine(unsigned short sep) const;
    /// Joined with sep between items; an empty sep is combine().
    UString combine(const UString& sep) const;

    std::size_t size() const { return m_oList.m_uCount; }
    bool empty() const { return m_oList.m_uCount == 0; }
    /// Unchecked.
    UString& operator[](std::size_t pos) { return *m_oList.m_ppoItems[pos]; }
    const UString& operator[](std::size_t pos) const { return *m_oList.m_ppoItems[pos]; }
    /// Slots allocated.
    std::size_t capacity() const { return m_oList.m_uCapacity; }

private:
    void split(const UString& s, const unsigned short* sep, std::size_t sepLen);
    void makeRoom(std::size_t extra);
    UString joined(const unsigned short* sep, std::size_t sepLen) const;

    ElementList<UString> m_oList;
};

/// s as the first item, then the items of a.
QZ_API UStringArray operator+(const UString& s, const UStringArray& a);

} // namespace qzunicode
} // namespace qzlib
} // namespace qzs

#endif // QZUNICODE_USTRINGARRAY_H
