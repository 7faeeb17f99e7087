//===- qzunicode/UStringArray.cpp - A growing list of strings -------------===//
//
// Items live on the heap so that the pointer array can move without copying
// strings. Growth is linear on purpose: arrays here are short (split fields,
// name parts), and ten spare slots cost little.
//
//===----------------------------------------------------------------------===//
#include "qzunicode/UStringArray.h"

#include <cstring>
#include <memory>

namespace qzs {
namespace qzlib {
namespace qzunicode {

UStringArray::UStringArray(const UString& s) {
    *this += s;
}

UStringArray::UStringArray(const UString& s, unsigned short sep) {
    if (sep == 0)
        *this += s;
    else
        split(s, &sep, 1);
}

UStringArray::UStringArray(const UString& s, const UString& sep) {
    if (sep.empty())
        *this += s;
    else
        split(s, sep.c_wstr(), sep.length());
}

UStringArray::UStringArray(const UStringArray& other) {
    *this += other;
}

UStringArray::~UStringArray() {
    erase();
    delete[] m_oList.m_ppoItems;
}

// Items are made by UString(s, pos, n), so that a whole-string item shares
// s's body. An empty item between two separators, or after a final one, is
// kept.
void UStringArray::split(const UString& s, const unsigned short* sep, std::size_t sepLen) {
    std::size_t start = 0;
    for (;;) {
        const std::size_t hit = s.find(sep, sepLen, start);
        if (hit == UString::npos) {
            *this += UString(s, start);
            return;
        }
        *this += UString(s, start, hit - start);
        start = hit + sepLen;
    }
}

void UStringArray::makeRoom(std::size_t extra) {
    ElementList<UString>& l = m_oList;
    if (l.m_uCount + extra <= l.m_uCapacity)
        return;
    std::size_t cap = l.m_uCapacity;
    while (cap < l.m_uCount + extra)
        cap += l.m_uGrowBy;
    UString** items = new UString*[cap];
    if (l.m_uCount != 0)
        std::memcpy(items, l.m_ppoItems, l.m_uCount * sizeof(UString*));
    delete[] l.m_ppoItems;
    l.m_ppoItems = items;
    l.m_uCapacity = cap;
}

UStringArray& UStringArray::operator=(const UString& s) {
    erase();
    return *this += s;
}

UStringArray& UStringArray::operator=(const UStringArray& other) {
    if (this == &other)
        return *this;
    erase();
    return *this += other;
}

UStringArray& UStringArray::operator+=(const UString& s) {
    insert(m_oList.m_uCount, s);
    return *this;
}

UStringArray& UStringArray::operator+=(const UStringArray& other) {
    insert(m_oList.m_uCount, other);
    return *this;
}

void UStringArray::insert(std::size_t pos, const UString& s) {
    std::unique_ptr<UString> item(new UString(s));
    makeRoom(1);
    ElementList<UString>& l = m_oList;
    if (pos > l.m_uCount)
        pos = l.m_uCount;
    std::memmove(l.m_ppoItems + pos + 1, l.m_ppoItems + pos, (l.m_uCount - pos) * sizeof(UString*));
    l.m_ppoItems[pos] = item.release();
    ++l.m_uCount;
}

void UStringArray::insert(std::size_t pos, const UStringArray& other) {
    // Copies first: other may be this array.
    const std::size_t n = other.m_oList.m_uCount;
    if (n == 0)
        return;
    std::unique_ptr<std::unique_ptr<UString>[]> copies(new std::unique_ptr<UString>[n]);
    for (std::size_t i = 0; i < n; ++i)
        copies[i].reset(new UString(*other.m_oList.m_ppoItems[i]));
    makeRoom(n);
    ElementList<UString>& l = m_oList;
    if (pos > l.m_uCount)
        pos = l.m_uCount;
    std::memmove(l.m_ppoItems + pos + n, l.m_ppoItems + pos, (l.m_uCount - pos) * sizeof(UString*));
    for (std::size_t i = 0; i < n; ++i)
        l.m_ppoItems[pos + i] = copies[i].release();
    l.m_uCount += n;
}

void UStringArray::erase() {
    ElementList<UString>& l = m_oList;
    if (!l.m_bShared)
        for (std::size_t i = 0; i < l.m_uCount; ++i)
            delete l.m_ppoItems[i];
    l.m_uCount = 0;
}

void UStringArray::erase(std::size_t pos) {
    ElementList<UString>& l = m_oList;
    if (pos >= l.m_uCount)
        return;
    if (!l.m_bShared)
        delete l.m_ppoItems[pos];
    std::memmove(l.m_ppoItems + pos, l.m_ppoItems + pos + 1,
                 (l.m_uCount - pos - 1) * sizeof(UString*));
    --l.m_uCount;
}

UStringArray UStringArray::operator+(const UString& s) const {
    UStringArray a(*this);
    a += s;
    return a;
}

UStringArray UStringArray::operator+(const UStringArray& other) const {
    UStringArray a(*this);
    a += other;
    return a;
}

UStringArray operator+(const UString& s, const UStringArray& a) {
    UStringArray r(s);
    r += a;
    return r;
}

// One reservation for the whole result, then appends that never allocate.
UString UStringArray::joined(const unsigned short* sep, std::size_t sepLen) const {
    const ElementList<UString>& l = m_oList;
    std::size_t total = l.m_uCount > 1 ? (l.m_uCount - 1) * sepLen : 0;
    for (std::size_t i = 0; i < l.m_uCount; ++i)
        total += l.m_ppoItems[i]->length();
    UString r;
    r.reserve(total);
    for (std::size_t i = 0; i < l.m_uCount; ++i) {
        if (i != 0 && sepLen != 0)
            r.append(sep, sepLen);
        r.append(*l.m_ppoItems[i]);
    }
    return r;
}

UString UStringArray::combine() const {
    return joined(nullptr, 0);
}

UString UStringArray::combine(unsigned short sep) const {
    return sep == 0 ? joined(nullptr, 0) : joined(&sep, 1);
}

UString UStringArray::combine(const UString& sep) const {
    return joined(sep.c_wstr(), sep.length());
}

} // namespace qzunicode
} // namespace qzlib
} // namespace qzs
