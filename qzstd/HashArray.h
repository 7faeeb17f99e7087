//===- qzstd/HashArray.h - Tables keyed by bytes and by strings -*- C++ -*-===//
//
// SparseArray with binary or string keys: the key objects, how they hash
// (kqzhash2 of their bytes, seed 0, under the mask) and compare, and the two
// table names HashArray and HashStringArray. With these keys an entry is 40
// bytes for any value of up to 8 bytes, so a block holds 100 entries.
//
//===----------------------------------------------------------------------===//
#ifndef QZSTD_HASHARRAY_H
#define QZSTD_HASHARRAY_H

#include "qzstd/Export.h"

#include "qzstd/Hash.h"
#include "qzstd/SparseArray.h"

#include <cassert>
#include <cstring>
#include <type_traits>

namespace qzs {
namespace qzlib {

/// A key of up to 65535 bytes.
///
/// Ownership is carried by `borrowed`:
/// - borrowed (the default of the constructor): a view of the caller's bytes,
///   never freed by the key. This is what lookups should pass; it costs
///   nothing to build.
/// - not borrowed: the key owns `data`, an array from `new char[]`, and
///   `delete[]`s it when destroyed (if `length` is not 0 and `data` not null).
///
/// Copies own their bytes: copying a key, or moving a borrowed one, makes an
/// owned copy; moving an owning key hands its array over. A table therefore
/// stores an owned copy of every key it adds from a view, and adopts the
/// array of an owning key passed as an rvalue. Empty keys own nothing.
class QZ_API HashArrayBinaryKey {
public:
    HashArrayBinaryKey() : data(nullptr), length(0), borrowed(false) {}
    /// REQUIRES: `length` fits 16 bits (the field is an unsigned short).
    /// With `borrowed` false, `data` must come from `new char[]` and is owned
    /// from here on.
    HashArrayBinaryKey(const void* bytes, std::size_t size, bool isBorrowed = true)
        : data(bytes), length(static_cast<unsigned short>(size)), borrowed(isBorrowed) {
        assert(size <= 0xFFFF && "a hash array key is at most 65535 bytes");
    }
    HashArrayBinaryKey(const HashArrayBinaryKey& other) : HashArrayBinaryKey() {
        copyFrom(other, false);
    }
    HashArrayBinaryKey(HashArrayBinaryKey&& other) : HashArrayBinaryKey() {
        moveFrom(other, false);
    }
    HashArrayBinaryKey& operator=(const HashArrayBinaryKey& other) {
        if (this != &other)
            copyFrom(other, false);
        return *this;
    }
    HashArrayBinaryKey& operator=(HashArrayBinaryKey&& other) {
        if (this != &other)
            moveFrom(other, false);
        return *this;
    }
    virtual ~HashArrayBinaryKey() { release(); }

    const void* data;
    unsigned short length;
    bool borrowed;

protected:
    /// Replaces this key's bytes with an owned copy of `other`'s. With
    /// `terminate`, one NUL follows the copy (not counted in `length`) and
    /// an empty key points at a shared "" instead of null.
    void copyFrom(const HashArrayBinaryKey& other, bool terminate) {
        const void* bytes = nullptr;
        bool isBorrowed = false;
        if (other.length != 0) {
            char* copy = new char[other.length + (terminate ? 1 : 0)];
            std::memcpy(copy, other.data, other.length);
            if (terminate)
                copy[other.length] = '\0';
            bytes = copy;
        } else if (terminate) {
            bytes = "";
            isBorrowed = true;
        }
        release();
        data = bytes;
        length = other.length;
        borrowed = isBorrowed;
    }

    void moveFrom(HashArrayBinaryKey& other, bool terminate) {
        if (other.borrowed || other.length == 0 || other.data == nullptr) {
            copyFrom(other, terminate);
            return;
        }
        release();
        data = other.data;
        length = other.length;
        borrowed = false;
        other.data = nullptr;
        other.length = 0;
    }

private:
    void release() {
        if (length != 0 && !borrowed && data != nullptr)
            delete[] static_cast<const char*>(data);
    }
};

/// A key over the bytes of a C string; `length` does not count the NUL.
/// Owned copies are NUL-terminated, so a stored key's `data` can be handed
/// out as a C string for as long as the table lives.
///
/// An owning key built by the caller (borrowed false) must likewise hold a
/// NUL behind its `length` bytes if anyone reads it as a C string.
class QZ_API HashArrayStringKey : public HashArrayBinaryKey {
public:
    HashArrayStringKey() = default;
    /// A view of `text`, which may be null (the empty key).
    HashArrayStringKey(const char* text)
        : HashArrayBinaryKey(text, text ? std::strlen(text) : 0, true) {}
    /// REQUIRES: `size` fits 16 bits. With `borrowed` false, `text` must come
    /// from `new char[]` and is owned from here on.
    HashArrayStringKey(const char* text, std::size_t size, bool isBorrowed = true)
        : HashArrayBinaryKey(text, size, isBorrowed) {}
    HashArrayStringKey(const HashArrayStringKey& other) : HashArrayBinaryKey() {
        copyFrom(other, true);
    }
    HashArrayStringKey(HashArrayStringKey&& other) : HashArrayBinaryKey() { moveFrom(other, true); }
    HashArrayStringKey& operator=(const HashArrayStringKey& other) {
        if (this != &other)
            copyFrom(other, true);
        return *this;
    }
    HashArrayStringKey& operator=(HashArrayStringKey&& other) {
        if (this != &other)
            moveFrom(other, true);
        return *this;
    }
    ~HashArrayStringKey() override = default;

    /// The text; "" or null for an empty key.
    const char* c_str() const { return static_cast<const char*>(data); }
};

/// Binary and string keys hash their bytes with kqzhash2 (seed 0). Two keys
/// are equal when they are the same object, or have the same length and
/// either the same data pointer or the same bytes.
template <typename Key>
struct SparseArrayKeyTraits<Key,
                            std::enable_if_t<std::is_base_of<HashArrayBinaryKey, Key>::value>> {
    static unsigned long bucket(const Key& key, unsigned long mask) {
        return kqzhash2(key.data, key.length, 0) & mask;
    }
    static bool equal(const Key& stored, const Key& probe) {
        if (&stored == &probe)
            return true;
        if (stored.length != probe.length)
            return false;
        return stored.data == probe.data || stored.length == 0 ||
               std::memcmp(stored.data, probe.data, stored.length) == 0;
    }
};

/// A table keyed by byte strings. See SparseArray for growth, invalidation
/// and thread safety, and HashArrayBinaryKey for how keys are stored.
template <typename Value>
using HashArray =
    SparseArray<Value, HashArrayBinaryKey, SparseArrayEntry<Value, HashArrayBinaryKey>, 1>;

/// A table keyed by C strings, e.g. `table["name"]` (the literal becomes a
/// borrowed view; the table keeps its own copy).
template <typename Value>
using HashStringArray =
    SparseArray<Value, HashArrayStringKey, SparseArrayEntry<Value, HashArrayStringKey>, 1>;

} // namespace qzlib
} // namespace qzs

#endif // QZSTD_HASHARRAY_H
