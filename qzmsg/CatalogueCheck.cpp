//===- qzmsg/CatalogueCheck.cpp - A compiled catalogue, checked whole ------===//
//
// Walks the layout ICU's genrb and pkgdata write: a data header ("MappedData"
// and "UDataInfo"), then for a bundle an index block and three areas (keys,
// 16-bit units, 32-bit resources) that every resource word points into; for
// a package a table of contents of named items. Each read is bounds-checked
// here, so that ICU's own reads, which are not, stay inside the data.
//
//===----------------------------------------------------------------------===//
#include "qzmsg/detail/CatalogueCheck.h"

#include <cstdint>
#include <cstring>

namespace qzs {
namespace qzlib {
namespace detail {

namespace {

constexpr int kMaxDepth = 16;

struct Header {
    const uint8_t* data; // after the header
    size_t size;
    char format[4];
    uint8_t formatVersion;
};

bool readHeader(const uint8_t* bytes, size_t size, Header& out) {
    if (size < 24 || bytes[2] != 0xda || bytes[3] != 0x27)
        return false;
    uint16_t headerSize, infoSize;
    std::memcpy(&headerSize, bytes, 2);
    std::memcpy(&infoSize, bytes + 4, 2);
    if (headerSize < 24 || headerSize > size || infoSize < 20 || 4u + infoSize > headerSize)
        return false;
    const uint8_t* info = bytes + 4;
    const bool bigEndian = info[4] != 0;
    const bool hostBig = [] {
        const uint16_t one = 1;
        uint8_t first;
        std::memcpy(&first, &one, 1);
        return first == 0;
    }();
    if (bigEndian != hostBig || info[6] != 2) // byte order, sizeof(UChar)
        return false;
    std::memcpy(out.format, info + 8, 4);
    out.formatVersion = info[12];
    out.data = bytes + headerSize;
    out.size = size - headerSize;
    return true;
}

// One bundle: pRoot is its data, sized in bytes; the areas in 32-bit units.
class BundleCheck {
public:
    BundleCheck(const uint8_t* root, size_t bytes) : root(root), bytes(bytes) {}

    bool run() {
        if (bytes < 4 * 6)
            return false;
        const uint32_t indexLength = word(1) & 0xff;
        if (indexLength < 5 || (1 + indexLength) * 4 > bytes)
            return false;
        keysTop = word(2);
        resourcesTop = word(3);
        bundleTop = word(4);
        const uint32_t attributes = indexLength > 5 ? word(6) : 0;
        units16Top = indexLength > 6 ? word(7) : keysTop;
        // Only "no fallback" may be set: the other attribute bits and the
        // high bits of the first index say the bundle is, or uses, a pool
        // bundle, whose strings lie outside it.
        if ((attributes & ~1u) != 0 || (word(1) >> 8) != 0)
            return false;
        const uint32_t limit = static_cast<uint32_t>(bytes / 4);
        if (!(1 + indexLength <= keysTop && keysTop <= units16Top && units16Top <= resourcesTop &&
              resourcesTop <= bundleTop && bundleTop <= limit))
            return false;
        const uint32_t rootRes = word(0);
        const uint32_t type = rootRes >> 28;
        if (type != 2 && type != 4 && type != 5)
            return false;
        return resource(rootRes, 0);
    }

private:
    uint32_t word(uint32_t index) const {
        uint32_t w;
        std::memcpy(&w, root + 4 * static_cast<size_t>(index), 4);
        return w;
    }
    uint16_t unit16(uint32_t index) const { // in the 16-bit area
        uint16_t u;
        std::memcpy(&u, root + 4 * static_cast<size_t>(keysTop) + 2 * static_cast<size_t>(index),
                    2);
        return u;
    }
    uint32_t units16() const { return (units16Top - keysTop) * 2; }

    // A key is a NUL-terminated byte string in the keys area.
    bool key(uint32_t offset) const {
        const uint32_t start = 4 * (1 + (word(1) & 0xff)), end = 4 * keysTop;
        if (offset < start || offset >= end)
            return false;
        return std::memchr(root + offset, 0, end - offset) != nullptr;
    }

    // A string in the 16-bit area: a length marker, or NUL-terminated.
    bool string16(uint32_t offset) const {
        const uint32_t n = units16();
        if (offset >= n)
            return false;
        const uint16_t first = unit16(offset);
        uint32_t length, start;
        if (first < 0xdc00 || first > 0xdfff) {
            for (uint32_t i = offset; i < n; ++i)
                if (unit16(i) == 0)
                    return true;
            return false;
        } else if (first < 0xdfef) {
            length = first & 0x3ff;
            start = offset + 1;
        } else if (first < 0xdfff) {
            if (offset + 1 >= n)
                return false;
            length = (static_cast<uint32_t>(first - 0xdfef) << 16) | unit16(offset + 1);
            start = offset + 2;
        } else {
            if (offset + 2 >= n)
                return false;
            length = (static_cast<uint32_t>(unit16(offset + 1)) << 16) | unit16(offset + 2);
            start = offset + 3;
        }
        return start <= n && length < n - start + 1 && start + length < n; // the NUL too
    }

    // A block of 32-bit words at `offset` holding a count and `per` words an
    // entry (for tables, the keys are 16-bit and padded).
    bool resource(uint32_t res, int depth) {
        if (depth > kMaxDepth || ++visited > 1000000)
            return false;
        const uint32_t type = res >> 28, offset = res & 0x0fffffff;
        switch (type) {
        case 7: // int, immediate
            return true;
        case 6: // 16-bit string
            return string16(offset);
        case 0:  // string: length, UChars, NUL
        case 1:  // binary: length, bytes
        case 14: // int vector: count, ints
        {
            if (offset == 0)
                return true;
            if (offset >= resourcesTop)
                return false;
            const uint64_t length = word(offset);
            const uint64_t need = type == 0 ? (length + 1) * 2 : type == 1 ? length : length * 4;
            return 4 * (uint64_t(offset) + 1) + need <= 4 * uint64_t(resourcesTop);
        }
        case 2: { // table: 16-bit count and keys, then 32-bit items
            if (offset == 0)
                return true;
            if (offset >= resourcesTop)
                return false;
            uint16_t count;
            std::memcpy(&count, root + 4 * size_t(offset), 2);
            const uint64_t keysEnd = 4 * uint64_t(offset) + 2 + 2 * uint64_t(count);
            const uint64_t items = (keysEnd + 3) & ~uint64_t(3);
            if (items + 4 * uint64_t(count) > 4 * uint64_t(resourcesTop))
                return false;
            for (uint32_t i = 0; i < count; ++i) {
                uint16_t k;
                std::memcpy(&k, root + 4 * size_t(offset) + 2 + 2 * size_t(i), 2);
                uint32_t item;
                std::memcpy(&item, root + items + 4 * i, 4);
                if (!key(k) || !resource(item, depth + 1))
                    return false;
            }
            return true;
        }
        case 4: { // 32-bit table: count, keys, items
            if (offset == 0)
                return true;
            if (offset >= resourcesTop)
                return false;
            const uint64_t count = word(offset);
            if (4 * (uint64_t(offset) + 1 + 2 * count) > 4 * uint64_t(resourcesTop))
                return false;
            for (uint32_t i = 0; i < count; ++i)
                if (!key(word(offset + 1 + i)) ||
                    !resource(word(offset + 1 + uint32_t(count) + i), depth + 1))
                    return false;
            return true;
        }
        case 5: { // 16-bit table: count, keys, 16-bit string items
            const uint32_t n = units16();
            if (offset >= n)
                return false;
            const uint32_t count = unit16(offset);
            if (uint64_t(offset) + 1 + 2 * uint64_t(count) > n)
                return false;
            for (uint32_t i = 0; i < count; ++i)
                if (!key(unit16(offset + 1 + i)) || !string16(unit16(offset + 1 + count + i)))
                    return false;
            return true;
        }
        case 8: { // array: count, items
            if (offset == 0)
                return true;
            if (offset >= resourcesTop)
                return false;
            const uint64_t count = word(offset);
            if (4 * (uint64_t(offset) + 1 + count) > 4 * uint64_t(resourcesTop))
                return false;
            for (uint32_t i = 0; i < count; ++i)
                if (!resource(word(offset + 1 + i), depth + 1))
                    return false;
            return true;
        }
        case 9: { // 16-bit array: count, 16-bit string items
            const uint32_t n = units16();
            if (offset >= n)
                return false;
            const uint32_t count = unit16(offset);
            if (uint64_t(offset) + 1 + count > n)
                return false;
            for (uint32_t i = 0; i < count; ++i)
                if (!string16(unit16(offset + 1 + i)))
                    return false;
            return true;
        }
        default: // aliases and unknown types
            return false;
        }
    }

    const uint8_t* root;
    size_t bytes;
    uint32_t keysTop = 0, units16Top = 0, resourcesTop = 0, bundleTop = 0;
    unsigned long visited = 0;
};

bool checkBundle(const Header& h) {
    if (std::memcmp(h.format, "ResB", 4) != 0 || h.formatVersion < 2 || h.formatVersion > 3)
        return false;
    return BundleCheck(h.data, h.size).run();
}

} // namespace

bool checkCatalogueBytes(const void* data, std::size_t size) {
    Header h;
    if (!data || !readHeader(static_cast<const uint8_t*>(data), size, h))
        return false;
    if (std::memcmp(h.format, "ResB", 4) == 0)
        return checkBundle(h);
    if (std::memcmp(h.format, "CmnD", 4) != 0 || h.size < 4)
        return false;
    uint32_t count;
    std::memcpy(&count, h.data, 4);
    if (count == 0 || count > (h.size - 4) / 8)
        return false;
    for (uint32_t i = 0; i < count; ++i) {
        uint32_t nameOffset, dataOffset, nextOffset = static_cast<uint32_t>(h.size);
        std::memcpy(&nameOffset, h.data + 4 + 8 * i, 4);
        std::memcpy(&dataOffset, h.data + 8 + 8 * i, 4);
        if (i + 1 < count)
            std::memcpy(&nextOffset, h.data + 8 + 8 * (i + 1), 4);
        if (nameOffset >= h.size || dataOffset >= nextOffset || nextOffset > h.size ||
            !std::memchr(h.data + nameOffset, 0, h.size - nameOffset))
            return false;
        Header item;
        if (!readHeader(h.data + dataOffset, nextOffset - dataOffset, item))
            return false;
        const char* name = reinterpret_cast<const char*>(h.data + nameOffset);
        const size_t length = std::strlen(name);
        if (length > 4 && std::strcmp(name + length - 4, ".res") == 0 && !checkBundle(item))
            return false;
    }
    return true;
}

} // namespace detail
} // namespace qzlib
} // namespace qzs
