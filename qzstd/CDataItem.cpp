//===- qzstd/CDataItem.cpp - The tagged value of messages and contexts ----===//
//
// Construction, the saturate-to-zero conversion table, assignment into a
// fixed tag, and the string ownership rules of CDataItem; SafeStrdup, the
// null-proof duplication its copies go through.
//
//===----------------------------------------------------------------------===//
#include "qzstd/CDataItem.h"

#include "qzstd/LoggingSeam.h"

#include <cstdlib>
#include <cstring>

namespace qzs {
namespace qzlib {


namespace {

// Records of a null text go to "qzlog.CDataItem", the name configurations
// know it by. A copy made before the logging core is up (a static initialiser
// of another library) substitutes silently.
detail::LazyLogger g_dataItemLog("qzlog.CDataItem");

constexpr uint64_t Low32 = 0xFFFFFFFFull;

// The typed views of the first word, as the value union's members overlay it.
int32_t asInt(const uint64_t* v) {
    return static_cast<int32_t>(static_cast<uint32_t>(v[0]));
}
uint32_t asUnsigned(const uint64_t* v) {
    return static_cast<uint32_t>(v[0]);
}
int64_t asLong(const uint64_t* v) {
    return static_cast<int64_t>(v[0]);
}
bool asBool(const uint64_t* v) {
    return (v[0] & 0xFF) != 0;
}
template <typename T> T* asPointer(const uint64_t* v) {
    return reinterpret_cast<T*>(static_cast<uintptr_t>(v[0]));
}
uint64_t fromPointer(const void* p) {
    return reinterpret_cast<uintptr_t>(p);
}

// Writing a 32-bit or one-byte member of the union leaves the rest of the
// first word as it was.
void storeLow32(uint64_t* v, uint32_t n) {
    v[0] = (v[0] & ~Low32) | n;
}
void storeBool(uint64_t* v, bool b) {
    v[0] = (v[0] & ~uint64_t(0xFF)) | (b ? 1u : 0u);
}

} // namespace

char* SafeStrdup(char const* text) {
    if (!text) {
        static char const substitute[] = "<NIL>";
        QZ_SEAM_LOG(g_dataItemLog, "qzlog/CDataItem", "SafeStrdup", detail::LogLevel::Error,
                    "NULL pointer encountered - using substitute value of '%s'\n%s",
                    static_cast<char const*>(substitute), detail::LogCallStack());
        text = substitute;
    }
    return ::strdup(text);
}

//===-- Construction ------------------------------------------------------===//

CDataItem::CDataItem(char const* text, bool owned_) : owned(owned_), type(String), value{0, 0} {
    value[0] = fromPointer(text);
}

CDataItem::CDataItem(char const* const& text) : owned(false), type(String), value{0, 0} {
    value[0] = fromPointer(text);
}

CDataItem::CDataItem(char* const& text) : owned(true), type(String), value{0, 0} {
    value[0] = fromPointer(SafeStrdup(text));
}

CDataItem::CDataItem(char*& text) : owned(true), type(String), value{0, 0} {
    value[0] = fromPointer(SafeStrdup(text));
}

CDataItem::CDataItem(int n) : owned(false), type(Int), value{0, 0} {
    storeLow32(value, static_cast<uint32_t>(n));
}

CDataItem::CDataItem(unsigned int n) : owned(false), type(UnsignedInt), value{0, 0} {
    storeLow32(value, n);
}

CDataItem::CDataItem(long n) : owned(false), type(Long), value{0, 0} {
    value[0] = static_cast<uint64_t>(n);
}

CDataItem::CDataItem(unsigned long n) : owned(false), type(UnsignedLong), value{0, 0} {
    value[0] = n;
}

CDataItem::CDataItem(bool b) : owned(false), type(Bool), value{0, 0} {
    storeBool(value, b);
}

CDataItem::CDataItem(timespec const& t) : owned(false), type(Time), value{0, 0} {
    value[0] = static_cast<uint64_t>(t.tv_sec);
    value[1] = static_cast<uint64_t>(t.tv_nsec);
}

CDataItem::CDataItem(timeval const& t) : owned(false), type(Time), value{0, 0} {
    value[0] = static_cast<uint64_t>(t.tv_sec);
    value[1] = static_cast<uint64_t>(t.tv_usec * 1000);
}

CDataItem::CDataItem(void const* pointer) : owned(false), type(Pointer), value{0, 0} {
    value[0] = fromPointer(pointer);
}

CDataItem::CDataItem(std::vector<CDataItem>* vector) : owned(false), type(Vector), value{0, 0} {
    value[0] = fromPointer(vector);
}

CDataItem::CDataItem(CDataItem const& other) : owned(other.owned), type(other.type), value{0, 0} {
    if (!other.owned) {
        value[0] = other.value[0];
        value[1] = other.value[1];
    } else if (other.type == String) {
        value[0] = fromPointer(SafeStrdup(asPointer<char const>(other.value)));
    }
    // Kept on purpose: an owned value under any other tag is not copied at
    // all; no constructor makes one, and there is nothing sound to copy.
}

CDataItem& CDataItem::operator=(CDataItem const& other) {
    if (this == &other)
        return *this;
    FreeValue();
    owned = other.owned;
    type = other.type;
    if (!other.owned) {
        value[0] = other.value[0];
        value[1] = other.value[1];
    } else if (other.type == String) {
        value[0] = fromPointer(SafeStrdup(asPointer<char const>(other.value)));
    }
    // Owned under another tag: the old bits stay, as in the constructor's
    // case they stay zero.
    return *this;
}

CDataItem::~CDataItem() {
    FreeValue();
}

void CDataItem::FreeValue() {
    if (owned && type == String) {
        std::free(asPointer<char>(value));
        value[0] = 0;
    }
}

void CDataItem::SetStringValue(char const* text) {
    value[0] = fromPointer(text);
}

//===-- Numbers in --------------------------------------------------------===//

// Every number assignment funnels into one of these two by the width of the
// source, so that the tag table lives in one place.
namespace {

void assignSigned(uint32_t type, uint64_t* value, int64_t n) {
    switch (type) {
    case CDataItem::Int:
    case CDataItem::UnsignedInt:
        storeLow32(value, static_cast<uint32_t>(n));
        break;
    case CDataItem::Long:
    case CDataItem::UnsignedLong:
        value[0] = static_cast<uint64_t>(n);
        break;
    case CDataItem::Bool:
        storeBool(value, n != 0);
        break;
    default:
        break;
    }
}

void assignUnsigned(uint32_t type, uint64_t* value, uint64_t n) {
    switch (type) {
    case CDataItem::Int:
    case CDataItem::UnsignedInt:
        storeLow32(value, static_cast<uint32_t>(n));
        break;
    case CDataItem::Long:
    case CDataItem::UnsignedLong:
        value[0] = n;
        break;
    case CDataItem::Bool:
        storeBool(value, n != 0);
        break;
    default:
        break;
    }
}

} // namespace

CDataItem& CDataItem::operator=(int n) {
    assignSigned(type, value, n);
    return *this;
}

CDataItem& CDataItem::operator=(unsigned int n) {
    assignUnsigned(type, value, n);
    return *this;
}

CDataItem& CDataItem::operator=(long n) {
    assignSigned(type, value, n);
    return *this;
}

CDataItem& CDataItem::operator=(unsigned long n) {
    assignUnsigned(type, value, n);
    return *this;
}

// Kept on purpose: true goes in as -1, so a number item holds all ones.
CDataItem& CDataItem::operator=(bool b) {
    assignSigned(type, value, b ? -1 : 0);
    return *this;
}

//===-- Strings in --------------------------------------------------------===//

CDataItem& CDataItem::operator=(char const* const& text) {
    if (type != String)
        return *this;
    FreeValue();
    value[0] = fromPointer(text);
    owned = false;
    return *this;
}

// The copy is made before the old value is freed, so that assigning an
// item its own text copies live memory.
void CDataItem::takeCopy(char const* text) {
    if (type != String)
        return;
    char* copy = SafeStrdup(text);
    FreeValue();
    value[0] = fromPointer(copy);
    owned = true;
}

CDataItem& CDataItem::operator=(char const*& text) {
    takeCopy(text);
    return *this;
}

CDataItem& CDataItem::operator=(char* const& text) {
    takeCopy(text);
    return *this;
}

CDataItem& CDataItem::operator=(char*& text) {
    takeCopy(text);
    return *this;
}

//===-- Raw storage in ----------------------------------------------------===//

CDataItem& CDataItem::operator=(timespec const& t) {
    value[0] = static_cast<uint64_t>(t.tv_sec);
    value[1] = static_cast<uint64_t>(t.tv_nsec);
    return *this;
}

CDataItem& CDataItem::operator=(timeval const& t) {
    value[0] = static_cast<uint64_t>(t.tv_sec);
    value[1] = static_cast<uint64_t>(t.tv_usec * 1000);
    return *this;
}

CDataItem& CDataItem::operator=(void const* pointer) {
    value[0] = fromPointer(pointer);
    return *this;
}

CDataItem& CDataItem::operator=(std::vector<CDataItem>* vector) {
    value[0] = fromPointer(vector);
    return *this;
}

//===-- Numbers out -------------------------------------------------------===//

CDataItem::operator int() const {
    switch (type) {
    case Int:
        return asInt(value);
    case UnsignedInt:
        return (asUnsigned(value) & 0x80000000u) ? 0 : static_cast<int>(asUnsigned(value));
    case Long: {
        int64_t n = asLong(value);
        return (n < INT32_MIN || n > INT32_MAX) ? 0 : static_cast<int>(n);
    }
    case UnsignedLong:
        return value[0] < 0x80000000ull ? static_cast<int>(value[0]) : 0;
    case Bool:
        return asBool(value) ? -1 : 0;
    default:
        return 0;
    }
}

CDataItem::operator unsigned int() const {
    switch (type) {
    case Int:
        return asInt(value) < 0 ? 0u : static_cast<unsigned int>(asInt(value));
    case UnsignedInt:
        return asUnsigned(value);
    case Long:
    case UnsignedLong:
        // Compared as an unsigned 64-bit quantity, so every negative long
        // reads as 0 too.
        return value[0] > Low32 ? 0u : static_cast<unsigned int>(value[0]);
    case Bool:
        return asBool(value) ? 0xFFFFFFFFu : 0u;
    default:
        return 0;
    }
}

CDataItem::operator long() const {
    switch (type) {
    case Int:
        return asInt(value);
    case UnsignedInt:
        return static_cast<long>(asUnsigned(value));
    case Long:
        return asLong(value);
    case UnsignedLong:
        // Kept on purpose: only all ones is guarded; everything else at or
        // above 2^63 passes through and reads as negative.
        return value[0] == ~uint64_t(0) ? 0L : static_cast<long>(value[0]);
    case Bool:
        return asBool(value) ? -1L : 0L;
    default:
        return 0;
    }
}

CDataItem::operator unsigned long() const {
    switch (type) {
    case Int:
        return asInt(value) < 0 ? 0ul : static_cast<unsigned long>(asInt(value));
    case UnsignedInt:
        return asUnsigned(value);
    case Long:
        return asLong(value) < 0 ? 0ul : value[0];
    case UnsignedLong:
        return value[0];
    case Bool:
        return asBool(value) ? ~0ul : 0ul;
    default:
        return 0;
    }
}

//===-- Storage out -------------------------------------------------------===//

CDataItem::operator bool() const {
    return value[0] != 0 || value[1] != 0;
}

CDataItem::operator char const*() const {
    return asPointer<char const>(value);
}

CDataItem::operator void const*() const {
    return asPointer<void const>(value);
}

CDataItem::operator std::vector<CDataItem>*() const {
    return asPointer<std::vector<CDataItem>>(value);
}

CDataItem::operator timespec() const {
    timespec t;
    t.tv_sec = static_cast<time_t>(value[0]);
    t.tv_nsec = static_cast<long>(value[1]);
    return t;
}

CDataItem::operator timeval() const {
    timeval t;
    t.tv_sec = static_cast<time_t>(value[0]);
    t.tv_usec = static_cast<suseconds_t>(static_cast<long>(value[1]) / 1000);
    return t;
}

//===-- Comparison --------------------------------------------------------===//

bool CDataItem::operator==(CDataItem const& other) const {
    if (type != other.type)
        return false;
    switch (type) {
    case String: {
        char const* a = asPointer<char const>(value);
        char const* b = asPointer<char const>(other.value);
        if (!a || !b)
            return a == b;
        return std::strcmp(a, b) == 0;
    }
    case Vector: {
        std::vector<CDataItem> const* a = asPointer<std::vector<CDataItem> const>(value);
        std::vector<CDataItem> const* b = asPointer<std::vector<CDataItem> const>(other.value);
        if (a == b)
            return true;
        if (!a || !b || a->size() != b->size())
            return false;
        for (size_t i = 0; i < a->size(); ++i)
            if (!((*a)[i] == (*b)[i]))
                return false;
        return true;
    }
    default:
        // Kept on purpose: the first word only, so a time's nanoseconds do
        // not take part here.
        return value[0] == other.value[0];
    }
}

bool CDataItem::operator==(timespec const& t) const {
    return value[0] == static_cast<uint64_t>(t.tv_sec) &&
           value[1] == static_cast<uint64_t>(t.tv_nsec);
}

bool CDataItem::operator==(timeval const& t) const {
    return value[0] == static_cast<uint64_t>(t.tv_sec) &&
           value[1] == static_cast<uint64_t>(t.tv_usec * 1000);
}

} // namespace qzlib
} // namespace qzs
