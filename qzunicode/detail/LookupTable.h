//===- qzunicode/detail/LookupTable.h - Two-level table over 16 bits -*- C++ -*-===//
//
// A map from a 16-bit key to a small value, as 256 pages of 256 values picked
// by the key's high byte. Every page no key uses is one shared all-zero page,
// so a read is two loads and never tests for absence. The converters keep
// their character maps in these, and so may any code in this module that
// needs a dense 16-bit map.
//
//===----------------------------------------------------------------------===//
#ifndef QZUNICODE_DETAIL_LOOKUPTABLE_H
#define QZUNICODE_DETAIL_LOOKUPTABLE_H

#include <cstddef>

namespace qzs {
namespace qzlib {
namespace qzunicode {

/// A value of 0 means "no mapping". T is an unsigned integer type.
/// Not copyable (it owns its pages). Not thread-safe for writes; concurrent
/// reads are fine.
template <typename T> class LookupTable {
public:
    LookupTable() {
        for (T*& page : m_apPages)
            page = m_gNullTable;
    }
    ~LookupTable() {
        for (T* page : m_apPages)
            if (page != m_gNullTable)
                delete[] page;
    }
    LookupTable(const LookupTable&) = delete;
    LookupTable& operator=(const LookupTable&) = delete;

    /// The value at key (only the low 16 bits count); 0 when unset.
    T get(unsigned int key) const { return m_apPages[(key >> 8) & 0xFF][key & 0xFF]; }

    /// Sets the value at key, allocating its page zeroed on first write. Key 0
    /// is never stored: it reads as 0, which callers take as the character 0,
    /// so a map cannot move the terminator (kept on purpose).
    void set(unsigned int key, T value) {
        key &= 0xFFFF;
        if (key == 0)
            return;
        T*& page = m_apPages[key >> 8];
        if (page == m_gNullTable)
            page = new T[256]();
        page[key & 0xFF] = value;
    }

    /// Bytes this table holds: the page pointers and the pages of its own.
    std::size_t memoryBytes() const {
        std::size_t bytes = sizeof(*this);
        for (const T* page : m_apPages)
            if (page != m_gNullTable)
                bytes += 256 * sizeof(T);
        return bytes;
    }

    /// The page every absent page points at. Never written.
    static inline T m_gNullTable[256] = {};

private:
    T* m_apPages[256];
};

} // namespace qzunicode
} // namespace qzlib
} // namespace qzs

#endif // QZUNICODE_DETAIL_LOOKUPTABLE_H
