//===- qzstd/CDataItem.h - The tagged value of messages and contexts -*- C++ -*-===//
//
// CDataItem holds one value of a small closed set of types: every message
// detail and every context item value is one. The type is fixed when the item
// is made; numbers read out in another width saturate to 0 rather than wrap,
// and assigning a value keeps the item's type and converts into it.
//
// Strings are the delicate part: which constructor or assignment overload the
// compiler picks decides whether the item borrows, adopts or copies the text.
// Each overload below states its rule.
//
//===----------------------------------------------------------------------===//
#ifndef QZSTD_CDATAITEM_H
#define QZSTD_CDATAITEM_H

#include "qzstd/Export.h"

#include <sys/time.h>

#include <cstdint>
#include <ctime>
#include <vector>

namespace qzs {
namespace qzlib {

/// A copy of `text` from strdup, never null: a null `text` is replaced by
/// "<NIL>" and, when logger "qzlog.CDataItem" is enabled at ERROR, logged
/// there with the caller's stack. The caller frees the result with free().
/// A failed strdup is not checked.
QZ_API char* SafeStrdup(char const* text);

/// A tagged value. The tag is fixed at construction (copy-assignment aside);
/// every other assignment converts into it or is dropped.
///
/// Storage is two 64-bit words, both zeroed before a constructor stores its
/// value, so a 32-bit or one-byte value has zero upper bytes. The first word
/// holds the scalar or pointer; the second only the nanoseconds of a time.
///
/// Ownership: the item frees its value only when it is a string (tag 0) and
/// `owned` is true, and then with free(). A vector (tag 8) and a pointer
/// (tag 7) belong to whoever holds them; the item never frees either.
///
/// Failure: nothing throws and nothing is reported. A read in a mismatched
/// type yields 0, a mismatched assignment does nothing.
///
/// Thread safety: none. One thread uses an item at a time; the context that
/// holds it decides how it is shared.
class QZ_API CDataItem {
public:
    /// The tags, fixed by the value type the item was built with.
    enum Type : uint32_t {
        String = 0,       ///< char*
        Int = 1,          ///< int
        UnsignedInt = 2,  ///< unsigned int
        Long = 3,         ///< long
        UnsignedLong = 4, ///< unsigned long
        Bool = 5,         ///< bool, one byte
        Time = 6,         ///< timespec: seconds, then nanoseconds
        Pointer = 7,      ///< void const*, never freed
        Vector = 8,       ///< std::vector<CDataItem>*, never freed
    };

    /// Stores `text` as given. With `owned` true the item adopts it and frees
    /// it with free(), so it must come from the malloc family; with false the
    /// caller keeps it alive for the item's lifetime.
    CDataItem(char const* text, bool owned);
    /// Borrows `text`: the caller keeps it alive. Chosen for literals and for
    /// any `char const*` argument.
    CDataItem(char const* const& text);
    /// Copies `text` with SafeStrdup and owns the copy (a null becomes
    /// "<NIL>"). Chosen for any `char*` argument.
    CDataItem(char* const& text);
    CDataItem(char*& text);

    CDataItem(int value);
    CDataItem(unsigned int value);
    CDataItem(long value);
    CDataItem(unsigned long value);
    CDataItem(bool value);
    CDataItem(timespec const& value);
    /// Stored as a timespec: the microseconds times 1000.
    CDataItem(timeval const& value);
    /// The item never frees `pointer`.
    CDataItem(void const* pointer);
    /// Shares `vector`: the item never frees it, and copies of the item point
    /// at the same vector.
    CDataItem(std::vector<CDataItem>* vector);

    /// Copies tag and owned flag. A borrowed string, a vector pointer and any
    /// unowned value are copied bit for bit, so both items share them; an
    /// owned string is duplicated, so the copy owns its own text.
    CDataItem(CDataItem const& other);
    /// As the copy constructor, after freeing this item's own value; on
    /// itself it does nothing. Unlike every other assignment, this one takes
    /// the source's tag.
    CDataItem& operator=(CDataItem const& other);

    /// Calls FreeValue.
    virtual ~CDataItem();

    /// Frees an owned string and zeroes its pointer; owned stays as it is.
    /// Does nothing for any other tag or for a borrowed string.
    void FreeValue();

    /// Writes `text` into the first word and nothing else: no free, no copy,
    /// no change of tag or owned flag. Kept on purpose: on an owned item the
    /// old text is not freed and the new one will be.
    void SetStringValue(char const* text);

    uint32_t getType() const { return type; }
    bool isOwned() const { return owned; }

    // Numbers in: the item keeps its tag. An int or unsigned item stores the
    // low 32 bits; a long or unsigned long item stores 64 bits (an int
    // sign-extended, an unsigned zero-extended); a bool item stores n != 0;
    // any other item is left alone. A bool assigned to a number item stores
    // minus the bool, so true is all ones in the item's width.
    CDataItem& operator=(int n);
    CDataItem& operator=(unsigned int n);
    CDataItem& operator=(long n);
    CDataItem& operator=(unsigned long n);
    CDataItem& operator=(bool b);

    // Strings in: nothing happens unless the item is a string. Otherwise the
    // old value goes through FreeValue and the new one is taken as follows.

    /// Borrows `text` (owned becomes false). Chosen for literals and other
    /// rvalues. Kept on purpose: a named `char const*` variable picks the
    /// copying overload below instead, while the constructor borrows it.
    CDataItem& operator=(char const* const& text);
    /// Copies `text` with SafeStrdup and owns the copy.
    CDataItem& operator=(char const*& text);
    CDataItem& operator=(char* const& text);
    CDataItem& operator=(char*& text);

    // Raw storage in: each writes its words on an item of any tag and changes
    // neither the tag nor the owned flag. Kept on purpose: on an owned string
    // item the old text leaks and the new pointer will be freed.

    /// Writes seconds and nanoseconds.
    CDataItem& operator=(timespec const& value);
    /// Writes seconds and the microseconds times 1000.
    CDataItem& operator=(timeval const& value);
    /// Writes the first word only.
    CDataItem& operator=(void const* pointer);
    CDataItem& operator=(std::vector<CDataItem>* vector);

    // Numbers out, by the item's tag; any tag but 1 to 5 reads as 0. A value
    // that does not fit the asked type reads as 0, never truncated. Kept on
    // purpose, and easy to "fix" by mistake:
    //  - a true bool reads as all ones in every width (-1, 0xFFFFFFFF), not 1;
    //  - an unsigned long read as long guards only the all-ones value, which
    //    reads as 0; other values at or above 2^63 read as negative.
    operator int() const;
    operator unsigned int() const;
    operator long() const;
    operator unsigned long() const;

    // Storage out, whatever the tag.

    /// True when either word is non-zero: a string item whose pointer is
    /// non-null, a time with either field non-zero.
    operator bool() const;
    /// The first word.
    operator char const*() const;
    operator void const*() const;
    operator std::vector<CDataItem>*() const;
    /// Both words.
    operator timespec() const;
    /// The first word, and the second divided by 1000 (truncating).
    operator timeval() const;

    /// Equal tags and equal values: strings by strcmp (a null text equals
    /// only a null text), vectors element by element, every other tag by the
    /// first word alone. Kept on purpose: two times with equal seconds and
    /// different nanoseconds compare equal here, though operator==(timespec)
    /// tells them apart. An int 5 and a long 5 differ.
    bool operator==(CDataItem const& other) const;
    /// Both words against seconds and nanoseconds, whatever the tag.
    bool operator==(timespec const& value) const;
    /// Seconds, and nanoseconds against the microseconds times 1000.
    bool operator==(timeval const& value) const;

protected:
    bool owned;
    uint32_t type;
    /// The value union as its two words. Typed values are read and written
    /// through these words as the union members would lay them out: a 32-bit
    /// value in the low half of the first word, a bool in its low byte.
    uint64_t value[2];

private:
    void takeCopy(char const* text);
};

} // namespace qzlib
} // namespace qzs

#endif // QZSTD_CDATAITEM_H
