//===- qzunicode/UString.cpp - The reference-counted Unicode string -------===//
//
// The body and its pool, the lazy primary form, copy-on-write, and the
// members of UString that read, edit, search and compare. Conversions go
// through ULIB_CStoCS; case mapping, white space and collation through ICU.
//
//===----------------------------------------------------------------------===//
#include "qzunicode/UString.h"

#include "qzstd/memutl.h"
#include "qzunicode/CSConverter.h"
#include "qzunicode/ULib.h"

#include <unicode/uchar.h>
#include <unicode/ucol.h>
#include <unicode/uloc.h>
#include <unicode/unistr.h>
#include <unicode/ustring.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <new>
#include <vector>

namespace qzs {
namespace qzlib {
namespace qzunicode {

using MultiThreading::ScopedLock;

const std::uint64_t UString::uStrImpl::m_gNull = 0;
ItemPoolMT<UString::uStrImpl>* UString::uStrImpl::m_poPool = nullptr;

namespace {

constexpr ULibCharSet kUTF16 = ULibCharSet(1);
constexpr ULibCharSet kUTF16BE = ULibCharSet(2);
constexpr ULibCharSet kUTF16LE = ULibCharSet(3);
constexpr ULibCharSet kUTF32 = ULibCharSet(4);
constexpr unsigned short kNotAUnit = 0xFFFE;
constexpr int kDefaultPoolBlock = 87;

using Impl = UString::uStrImpl;

unsigned short* nullUnits() {
    return reinterpret_cast<unsigned short*>(const_cast<std::uint64_t*>(&Impl::m_gNull));
}

char* nullBytes() {
    return reinterpret_cast<char*>(const_cast<std::uint64_t*>(&Impl::m_gNull));
}

bool isNull(const void* p) {
    return p == &Impl::m_gNull;
}

// A buffer is reused only when it is not the null block and its first 8
// bytes are not all zero. Kept on purpose: a buffer that fails the test is
// never reused. Unlike the test's first use, such a buffer is still freed
// when it is dropped (every buffer but the null block is ours): forgetting it
// would only leak it.
bool isReal(const void* p) {
    if (isNull(p))
        return false;
    std::uint64_t word;
    std::memcpy(&word, p, sizeof word);
    return word != 0;
}

ULibCharSet plain(ULibCharSet cs) {
    return ULibCharSet(cs & ~ULIB_CS_ESCAPE_FLAG);
}

bool escaped(ULibCharSet cs) {
    return (cs & ULIB_CS_ESCAPE_FLAG) != 0;
}

bool isUnitSet(ULibCharSet cs) {
    return cs == kUTF16;
}

// The largest buffer either form may ask for. Requests past it fail as
// impossible lengths before the allocator sees them (a sanitizer's allocator
// would stop the process rather than throw).
constexpr std::size_t kMaxBufferCount = 0x3ffffffffffffffcULL;

unsigned short* newUnits(std::size_t cap) {
    if (cap > kMaxBufferCount - 4)
        throw std::bad_array_new_length();
    unsigned short* p = new unsigned short[cap + 4];
    std::memset(p, 0, 8);
    return p;
}

char* newBytes(std::size_t cap) {
    if (cap > kMaxBufferCount - Impl::m_uMaxNullCharSize)
        throw std::bad_array_new_length();
    char* p = new char[cap + Impl::m_uMaxNullCharSize];
    std::memset(p, 0, 8);
    return p;
}

// The copy that may not pass its target.
void checkedCopy(unsigned short* dst, std::size_t dstUnits, const unsigned short* src,
                 std::size_t n) {
    if (n > dstUnits)
        _qzInvalidMemoryAccess_abort("qzMemncpy", dst, dstUnits * 2, n * 2);
    if (n != 0)
        std::memmove(dst, src, n * 2);
}

// a + b, or the standard exception for an impossible length.
std::size_t addLength(std::size_t a, std::size_t b) {
    if (b > SIZE_MAX - a)
        throw std::bad_array_new_length();
    return a + b;
}

// Conversions take int sizes: a larger room is cut (we only ever write
// less), and a longer source converts its first 2 GiB.
int toInt(std::size_t n) {
    return n > static_cast<std::size_t>(INT_MAX) ? INT_MAX : static_cast<int>(n);
}

// Units the primary form needs for `bytes` of cs: the minimum character size
// of the set gives at most one unit each, except that a four-byte UTF-32
// character may give two units, so four-byte sets count by two.
std::size_t unitsFor(std::size_t bytes, ULibCharSet cs) {
    const int minSize = std::min(CharSetTable::getMinCharSize(cs), 2);
    return bytes / static_cast<std::size_t>(minSize) + 1;
}

// Length in bytes of s in cs, up to a terminator of the set. Sets whose
// smallest character is one byte (and every escaped form) end at the first
// zero byte whatever converter stands behind them; only wider sets need one.
std::size_t measure(const char* s, ULibCharSet cs) {
    if (escaped(cs) || CharSetTable::getMinCharSize(cs) == 1)
        return std::strlen(s);
    return static_cast<std::size_t>(CSConverter(cs, ULIB_CNV_DEFAULT, true).getNumBytes(s));
}

std::size_t unitsUpToZero(const void* s) {
    return static_cast<std::size_t>(
        CSConverter::getNumUTF16Units(static_cast<const unsigned short*>(s)));
}

unsigned short fold(unsigned short u) {
    return (u >= 'a' && u <= 'z') ? static_cast<unsigned short>(u - 32) : u;
}

bool isBlank(unsigned short u) {
    return u == 0x20;
}

bool isWhiteSpace(unsigned short u) {
    return u_isUWhiteSpace(u);
}

// The char rule: one byte of cs as one UTF-16 unit, or nothing. The byte is
// read by a converter that stops at a bad character, so that a lead byte of a
// multi-byte set, or a byte the set does not map, matches nothing rather than
// the substitution character.
bool charToUnit(char c, ULibCharSet cs, unsigned short& unit) {
    if (c == 0)
        return false;
    unsigned short out = 0;
    ULibError err = ULIB_OK;
    const int units = CSConverter(plain(cs), ULIB_CNV_STOP, CSConverter::fallback())
                          .toUTF16(&out, 1, &c, 1, &err);
    if (units != 1 || err != ULIB_OK)
        return false;
    unit = out;
    return true;
}

// Units that may alias the string being changed are copied first, since the
// change may move or free them.
struct StableUnits {
    StableUnits(const unsigned short* p, std::size_t n, const Impl* body) : ptr(p) {
        if (p == nullptr || n == 0)
            return;
        const unsigned short* lo = body->m_pPrimary;
        const unsigned short* hi = lo + body->m_uPrimaryCap + 4;
        if (!isNull(lo) && p < hi && p + n > lo) {
            copy.assign(p, p + n);
            ptr = copy.data();
        }
    }
    const unsigned short* ptr;
    std::vector<unsigned short> copy;
};

} // namespace

// --- the body --------------------------------------------------------------

UString::uStrImpl::uStrImpl()
    : LinkedItem<uStrImpl>{nullptr}, m_uPrimaryLen(0), m_uPrimaryCap(0),
      m_pPrimary(nullUnits()), m_uSecondaryLen(0), m_uSecondaryCap(0),
      m_eSecondaryCS(ULIB_CS_INVALID), m_pSecondary(nullBytes()),
      m_eErrBehavior(ULIB_CNV_DEFAULT), m_poOwnerPool(nullptr), m_nRefCount(0) {}

void UString::uStrImpl::reset() {
    m_uPrimaryLen = m_uPrimaryCap = 0;
    m_pPrimary = nullUnits();
    m_uSecondaryLen = m_uSecondaryCap = 0;
    m_eSecondaryCS = ULIB_CS_INVALID;
    m_pSecondary = nullBytes();
    m_eErrBehavior = ULIB_CNV_DEFAULT;
}

namespace {

// Pooled bodies that this thread gave back, kept for its next strings: a
// string made and dropped on one thread then takes no lock for its body.
// Plain data, so that it is usable until the thread's very end; the
// returner below gives the bodies to the pool when the thread ends, and
// from then on bodies go straight to the pool.
struct BodyCache {
    static constexpr int Capacity = 32;
    UString::uStrImpl* bodies[Capacity];
    int count;
    bool armed;
    bool closed;
    // Byte buffers of strings that ended on this thread, kept for its next
    // strings (a row passed through takes one and gives it back), with their
    // capacities. Only small ones: a large buffer goes back to the heap.
    static constexpr int Spares = 8;
    static constexpr std::uint64_t SpareLimit = 4096;
    char* spare[Spares];
    std::uint64_t spareCap[Spares];
    int spareCount;
};
// Initial-exec, as the log context is: a plain load, no lookup call.
__attribute__((tls_model("initial-exec"))) thread_local BodyCache t_bodies;

struct BodyCacheReturner {
    bool armed = false;
    ~BodyCacheReturner() {
        t_bodies.closed = true;
        while (t_bodies.count > 0) {
            UString::uStrImpl* body = t_bodies.bodies[--t_bodies.count];
            body->m_poOwnerPool->returnItem(body);
        }
        while (t_bodies.spareCount > 0)
            delete[] t_bodies.spare[--t_bodies.spareCount];
    }
};
thread_local BodyCacheReturner t_returner;

// Makes the returner, so that it runs at the thread's end.
void armCache(BodyCache& cache) {
    if (!cache.armed) {
        cache.armed = true;
        t_returner.armed = true;
    }
}

bool keepBody(UString::uStrImpl* body) {
    BodyCache& cache = t_bodies;
    if (cache.closed || cache.count == BodyCache::Capacity)
        return false;
    armCache(cache);
    cache.bodies[cache.count++] = body;
    return true;
}

// Keeps a dropped byte buffer for this thread's next string, or frees it.
void dropBytes(char* p, std::uint64_t cap) {
    BodyCache& cache = t_bodies;
    if (cache.closed || cache.spareCount == BodyCache::Spares || cap == 0 ||
        cap > BodyCache::SpareLimit) {
        delete[] p;
        return;
    }
    armCache(cache);
    cache.spare[cache.spareCount] = p;
    cache.spareCap[cache.spareCount++] = cap;
}

// A byte buffer of capacity at least n, zeroed for 8 bytes: a kept one if
// one is large enough (cap says how large), else a new one.
char* takeBytes(std::size_t n, std::uint64_t& cap) {
    BodyCache& cache = t_bodies;
    for (int i = cache.spareCount - 1; i >= 0; --i) {
        if (cache.spareCap[i] < n)
            continue;
        char* p = cache.spare[i];
        cap = cache.spareCap[i];
        cache.spare[i] = cache.spare[--cache.spareCount];
        cache.spareCap[i] = cache.spareCap[cache.spareCount];
        std::memset(p, 0, 8);
        return p;
    }
    cap = n;
    return newBytes(n);
}

} // namespace

UString::uStrImpl* UString::uStrImpl::incRef() {
    m_nRefCount.fetch_add(1, std::memory_order_relaxed);
    return this;
}

void UString::uStrImpl::decRef() {
    // A count of 1 is this sharer alone (no other can add one without being a
    // sharer), so the last release of an unshared body takes no atomic
    // write; acquire() sets the count of the body it hands out.
    if (m_nRefCount.load(std::memory_order_acquire) != 1 &&
        m_nRefCount.fetch_sub(1, std::memory_order_acq_rel) > 1)
        return;
    freePrimary();
    if (!isNull(m_pSecondary))
        dropBytes(m_pSecondary, m_uSecondaryCap);
    if (m_poOwnerPool == nullptr) {
        delete this;
        return;
    }
    m_pSecondary = nullBytes();
    if (!keepBody(this))
        m_poOwnerPool->returnItem(this);
}

UString::uStrImpl* UString::uStrImpl::acquire() {
    uStrImpl* body;
    if (ItemPoolMT<uStrImpl>* pool = m_poPool) {
        // The cache only ever holds bodies of this one pool.
        BodyCache& cache = t_bodies;
        body = cache.count > 0 ? cache.bodies[--cache.count] : pool->takeItem();
        body->reset();
        body->m_poOwnerPool = pool;
    } else {
        body = new uStrImpl();
    }
    body->m_nRefCount.store(1, std::memory_order_relaxed);
    return body;
}

UString::uStrImpl* UString::uStrImpl::acquire(std::size_t n, bool wide) {
    uStrImpl* body = acquire();
    if (n == 0)
        return body;
    try {
        if (wide) {
            body->newPrimary(n);
        } else {
            body->m_pSecondary = takeBytes(n, body->m_uSecondaryCap);
        }
    } catch (...) {
        body->decRef();
        throw;
    }
    return body;
}

void UString::uStrImpl::initPool(std::size_t items) {
    if (m_poPool != nullptr)
        return;
    const int block = (items == 0 || items > static_cast<std::size_t>(INT_MAX))
                          ? kDefaultPoolBlock
                          : static_cast<int>(items);
    m_poPool = new ItemPoolMT<uStrImpl>(block, "uStrImpl::m_poPool");
}

void UString::uStrImpl::freePrimary() {
    if (!isNull(m_pPrimary))
        delete[] m_pPrimary;
    m_pPrimary = nullUnits();
    m_uPrimaryCap = 0;
}

void UString::uStrImpl::newPrimary(std::size_t cap) {
    unsigned short* p = newUnits(cap);
    freePrimary();
    m_pPrimary = p;
    m_uPrimaryCap = cap;
}

void UString::uStrImpl::dropSecondary() {
    if (isNull(m_pSecondary))
        return;
    delete[] m_pSecondary;
    m_pSecondary = nullBytes();
    m_uSecondaryLen = m_uSecondaryCap = 0;
    m_eSecondaryCS = ULIB_CS_INVALID;
}

// Converts the secondary form into the primary buffer, of at least minUnits,
// which is reused when it is real and holds the estimate. A substitution string may need more
// than the estimate: the room doubles until the text fits. The length is
// published after the terminator, so a reader on the lock-free path of
// makePrimary sees a terminated form.
void UString::uStrImpl::convertIntoPrimary(std::size_t minUnits) {
    std::size_t cap = std::max(unitsFor(m_uSecondaryLen, m_eSecondaryCS), minUnits);
    if (isReal(m_pPrimary) && m_uPrimaryCap >= cap)
        cap = m_uPrimaryCap;
    else
        newPrimary(cap);
    int bytes;
    for (;;) {
        ULibError err = ULIB_OK;
        bytes = ULIB_CStoCS(kUTF16, m_pPrimary, toInt(cap * 2), 0, m_eSecondaryCS, m_pSecondary,
                            toInt(m_uSecondaryLen), false, true, &err, nullptr);
        if (err != ULIB_ERR_BUFFER_OVERFLOW || cap * 2 >= static_cast<std::size_t>(INT_MAX))
            break;
        cap *= 2;
        newPrimary(cap);
    }
    const std::size_t units = static_cast<std::size_t>(bytes) / 2;
    m_pPrimary[units] = 0;
    __atomic_store_n(&m_uPrimaryLen, static_cast<std::uint64_t>(units), __ATOMIC_RELEASE);
    // Bytes that hold no whole character (an odd UTF-16 count, a lone lead
    // byte) make an empty string once read. The bytes stay where they are, as
    // a sharer may hold them from c_str; only the length goes, so that the
    // string is not converted again at every read.
    if (units == 0)
        __atomic_store_n(&m_uSecondaryLen, std::uint64_t{0}, __ATOMIC_RELEASE);
}

std::size_t UString::uStrImpl::makePrimary() {
    const std::size_t len = primaryLen();
    if (len != 0)
        return len;
    ScopedLock guard(m_oLock);
    if (m_uPrimaryLen != 0 || m_uSecondaryLen == 0)
        return m_uPrimaryLen;
    convertIntoPrimary(0);
    return m_uPrimaryLen;
}

// The lock of a shared body is released before its share is dropped: the
// drop may be the last one (another sharer let go meanwhile), and the body
// with its lock then goes away.
UString::uStrImpl* UString::uStrImpl::alterable(std::size_t minUnits) {
    if (m_nRefCount.load(std::memory_order_acquire) != 1) {
        uStrImpl* body;
        {
            ScopedLock guard(m_oLock);
            if (m_uPrimaryLen != 0) {
                body = acquire(std::max<std::size_t>(m_uPrimaryLen, minUnits), true);
                checkedCopy(body->m_pPrimary, body->m_uPrimaryCap, m_pPrimary, m_uPrimaryLen);
                body->m_pPrimary[m_uPrimaryLen] = 0;
                body->m_uPrimaryLen = m_uPrimaryLen;
            } else if (m_uSecondaryLen != 0) {
                body = acquire();
                body->m_pSecondary = m_pSecondary; // borrowed for the conversion
                body->m_uSecondaryLen = m_uSecondaryLen;
                body->m_eSecondaryCS = m_eSecondaryCS;
                try {
                    body->convertIntoPrimary(minUnits);
                } catch (...) {
                    body->m_pSecondary = nullBytes();
                    body->decRef();
                    throw;
                }
                body->m_pSecondary = nullBytes();
                body->m_uSecondaryLen = 0;
                body->m_eSecondaryCS = ULIB_CS_INVALID;
            } else {
                body = acquire(minUnits, true);
            }
        }
        decRef();
        return body;
    }

    // Unshared: the one object that reaches this body is calling, and an
    // object is not safe against itself anyway, so no lock is taken.
    if (m_uPrimaryLen != 0) {
        if (m_uPrimaryCap < minUnits) {
            unsigned short* p = newUnits(minUnits);
            checkedCopy(p, minUnits + 1, m_pPrimary, m_uPrimaryLen + 1);
            freePrimary();
            m_pPrimary = p;
            m_uPrimaryCap = minUnits;
        }
    } else if (m_uSecondaryLen != 0) {
        convertIntoPrimary(minUnits);
    } else if (!isReal(m_pPrimary) || m_uPrimaryCap < minUnits) {
        newPrimary(minUnits);
    }
    dropSecondary();
    return this;
}

UString::uStrImpl* UString::uStrImpl::resize(std::size_t n, bool wide) {
    if (m_nRefCount.load(std::memory_order_acquire) != 1) {
        uStrImpl* body = acquire(n, wide);
        decRef();
        return body;
    }
    // Unshared: no lock, as in alterable.
    if (n != 0) {
        if (wide) {
            if (!(isReal(m_pPrimary) && m_uPrimaryCap >= n))
                newPrimary(n);
        } else if (!(isReal(m_pSecondary) && m_uSecondaryCap >= n)) {
            std::uint64_t cap;
            char* p = takeBytes(n, cap);
            if (!isNull(m_pSecondary))
                dropBytes(m_pSecondary, m_uSecondaryCap);
            m_pSecondary = p;
            m_uSecondaryCap = cap;
        }
    }
    m_uPrimaryLen = 0;
    m_uSecondaryLen = 0;
    m_eSecondaryCS = ULIB_CS_INVALID;
    if (isReal(m_pPrimary))
        m_pPrimary[0] = 0;
    if (isReal(m_pSecondary))
        std::memset(m_pSecondary, 0, 8);
    return this;
}

// --- construction ----------------------------------------------------------

// A constructor that throws must give back the body it took: its destructor
// will not run.
template <typename Init> void UString::initialise(Init&& init) {
    m_poImpl = uStrImpl::acquire();
    try {
        init();
    } catch (...) {
        m_poImpl->decRef();
        throw;
    }
}

UString::UString() : m_poImpl(uStrImpl::acquire()) {}

UString::UString(char c, ULibCharSet cs) : m_poImpl(nullptr) {
    initialise([&] { fillBytes(c, 1, cs); });
}

UString::UString(char c, std::size_t n, ULibCharSet cs) : m_poImpl(nullptr) {
    initialise([&] { fillBytes(c, n, cs); });
}

UString::UString(unsigned short c) : m_poImpl(nullptr) {
    initialise([&] { assign(c, 1); });
}

UString::UString(unsigned short c, std::size_t n) : m_poImpl(nullptr) {
    initialise([&] { assign(c, n); });
}

UString::UString(const unsigned short* s) : m_poImpl(nullptr) {
    initialise([&] {
        if (s != nullptr)
            fromUnits(s, unitsUpToZero(s));
    });
}

UString::UString(const unsigned short* s, std::size_t n) : m_poImpl(nullptr) {
    initialise([&] {
        if (s != nullptr)
            fromUnits(s, n);
    });
}

UString::UString(const unsigned short* first, const unsigned short* last) : m_poImpl(nullptr) {
    initialise([&] {
        if (first != nullptr && first < last)
            fromUnits(first, static_cast<std::size_t>(last - first));
    });
}

UString::UString(const UString& s) : m_poImpl(s.m_poImpl->incRef()) {}

UString::UString(const UString& s, std::size_t pos, std::size_t n) : m_poImpl(nullptr) {
    const std::size_t len = s.length();
    const std::size_t take = (n == 0 || pos >= len) ? 0 : std::min(n, len - pos);
    if (take != 0 && take == len) {
        m_poImpl = s.m_poImpl->incRef();
        return;
    }
    initialise([&] {
        if (take != 0)
            fromUnits(s.m_poImpl->m_pPrimary + pos, take);
    });
}

UString::UString(const icu::UnicodeString& s) : m_poImpl(nullptr) {
    initialise([&] { assign(s); });
}

UString::UString(const char* s, ULibCharSet cs) : m_poImpl(nullptr) {
    initialise([&] {
        if (s == nullptr)
            return;
        if (isUnitSet(cs))
            fromUnits(reinterpret_cast<const unsigned short*>(s), unitsUpToZero(s));
        else
            fromNativEncodedString(s, measure(s, cs), cs);
    });
}

UString::UString(const char* s, std::size_t bytes, ULibCharSet cs) : m_poImpl(nullptr) {
    initialise([&] { fromNativEncodedString(s, bytes, cs); });
}

UString::UString(const std::string& s, ULibCharSet cs) : m_poImpl(nullptr) {
    initialise([&] { fromNativEncodedString(s.data(), s.size(), cs); });
}

UString::~UString() {
    m_poImpl->decRef();
}

void UString::initPool(std::size_t items) {
    uStrImpl::initPool(items);
}

// Bytes as they came, or units for cs 1, or escapes read at once. s may not
// lie in this string's own byte form (assign copies it first).
void UString::fromNativEncodedString(const char* s, std::size_t bytes, ULibCharSet cs) {
    if (s == nullptr || bytes == 0)
        return;
    if (isUnitSet(cs)) {
        fromUnits(reinterpret_cast<const unsigned short*>(s), bytes / 2);
        return;
    }
    if (escaped(cs)) {
        convertEscaped(s, bytes, cs);
        return;
    }
    uStrImpl* body = m_poImpl->resize(bytes, false);
    m_poImpl = body;
    std::memcpy(body->m_pSecondary, s, bytes);
    std::memset(body->m_pSecondary + bytes, 0, CharSetTable::getNullCharSize(cs));
    body->m_uSecondaryLen = bytes;
    body->m_eSecondaryCS = cs;
}

// Escape sequences cannot be kept as bytes: they are read into the primary
// form at once.
void UString::convertEscaped(const char* s, std::size_t bytes, ULibCharSet cs) {
    CSConverter converter(cs, m_poImpl->m_eErrBehavior, true);
    const std::size_t cap =
        bytes / static_cast<std::size_t>(CharSetTable::getMinCharSize(cs)) + 1;
    m_poImpl = m_poImpl->resize(cap, true);
    const int units =
        converter.toUTF16(m_poImpl->m_pPrimary, toInt(cap), s, toInt(bytes), nullptr);
    const std::size_t n = static_cast<std::size_t>(std::max(units, 0));
    m_poImpl->m_pPrimary[n] = 0;
    m_poImpl->m_uPrimaryLen = n;
}

// Replaces the text by n units (s may lie in this string).
void UString::fromUnits(const unsigned short* s, std::size_t n) {
    if (n == 0) {
        clear();
        return;
    }
    StableUnits src(s, n, m_poImpl);
    m_poImpl = m_poImpl->resize(n, true);
    std::memcpy(m_poImpl->m_pPrimary, src.ptr, n * 2);
    m_poImpl->m_pPrimary[n] = 0;
    m_poImpl->m_uPrimaryLen = n;
}

void UString::fillBytes(char c, std::size_t n, ULibCharSet cs) {
    if (c == 0 || n == 0) {
        erase(0, npos);
        return;
    }
    cs = plain(cs);
    m_poImpl = m_poImpl->resize(n, false);
    std::memset(m_poImpl->m_pSecondary, c, n);
    std::memset(m_poImpl->m_pSecondary + n, 0, CharSetTable::getNullCharSize(cs));
    m_poImpl->m_uSecondaryLen = n;
    m_poImpl->m_eSecondaryCS = cs;
}

// --- reading ---------------------------------------------------------------

std::size_t UString::length() const {
    return m_poImpl->makePrimary();
}

unsigned short UString::operator[](std::size_t pos) const {
    m_poImpl->makePrimary();
    return m_poImpl->m_pPrimary[pos];
}

unsigned short UString::at(std::size_t pos) const {
    return pos < m_poImpl->makePrimary() ? m_poImpl->m_pPrimary[pos] : kNotAUnit;
}

const unsigned short* UString::c_wstr() const {
    m_poImpl->makePrimary();
    return m_poImpl->m_pPrimary;
}

const unsigned short* UString::begin() const {
    return c_wstr();
}

const unsigned short* UString::end() const {
    const std::size_t len = m_poImpl->makePrimary();
    return m_poImpl->m_pPrimary + len;
}

const unsigned short* UString::rbegin() const {
    return end() - 1;
}

const unsigned short* UString::rend() const {
    return begin() - 1;
}

const char* UString::c_str(ULibCharSet cs) const {
    if (m_poImpl->empty())
        return nullBytes();
    if (isUnitSet(cs))
        return reinterpret_cast<const char*>(c_wstr());
    if (m_poImpl->m_eSecondaryCS == cs)
        return m_poImpl->m_pSecondary;

    m_poImpl = m_poImpl->alterable(0);
    if (m_poImpl->empty()) // the bytes held no whole character
        return nullBytes();
    uStrImpl* body = m_poImpl;
    const std::size_t len = body->makePrimary();
    std::size_t room = static_cast<std::size_t>(CharSetTable::getMaxCharSize(cs)) * len;
    int bytes;
    for (;;) {
        char* p = newBytes(room);
        ULibError err = ULIB_OK;
        bytes = ULIB_CStoCS(cs, p, toInt(room), 0, kUTF16,
                            body->m_pPrimary, toInt(len * 2), false, true, &err, nullptr);
        if (!isNull(body->m_pSecondary))
            delete[] body->m_pSecondary;
        body->m_pSecondary = p;
        // A substitution string may be longer than the largest character.
        if (err != ULIB_ERR_BUFFER_OVERFLOW || room >= static_cast<std::size_t>(INT_MAX) / 2)
            break;
        room *= 2;
    }
    const std::size_t n = static_cast<std::size_t>(std::max(bytes, 0));
    std::memset(body->m_pSecondary + n, 0, CharSetTable::getNullCharSize(cs));
    body->m_uSecondaryLen = n;
    body->m_uSecondaryCap = 0; // not recorded: the buffer is not reused
    body->m_eSecondaryCS = cs;
    return body->m_pSecondary;
}

std::size_t UString::byteSize(ULibCharSet cs) const {
    if (isUnitSet(cs))
        return length() * 2;
    if (cs == kUTF16BE || cs == kUTF16LE) {
        if (m_poImpl->primaryLen() == 0 && m_poImpl->m_eSecondaryCS == cs)
            return m_poImpl->secondaryLen();
        return length() * 2;
    }
    c_str(cs);
    return m_poImpl->secondaryLen();
}

std::size_t UString::numChars() const {
    c_str(kUTF32);
    return m_poImpl->m_uSecondaryLen / 4;
}

std::size_t UString::copy(unsigned short* dst, std::size_t dstUnits, std::size_t pos) const {
    const std::size_t len = length();
    if (empty() || dst == nullptr || dstUnits == 0 || pos >= len)
        return 0;
    const std::size_t n = std::min(len - pos, dstUnits);
    checkedCopy(dst, dstUnits, m_poImpl->m_pPrimary + pos, n);
    return n;
}

std::size_t UString::copy(char* dst, std::size_t dstBytes, std::size_t pos, ULibCharSet cs) const {
    if (empty() || dst == nullptr || dstBytes == 0)
        return 0;
    if (isUnitSet(cs)) {
        // dst may sit at an odd address: copy bytes, not units.
        const std::size_t len = length();
        if (pos >= len || dstBytes < 2)
            return 0;
        const std::size_t n = std::min(len - pos, dstBytes / 2);
        std::memcpy(dst, m_poImpl->m_pPrimary + pos, n * 2);
        return n * 2;
    }
    const std::size_t bytes = m_poImpl->secondaryLen();
    if (pos == 0 && m_poImpl->m_eSecondaryCS == cs && bytes <= dstBytes) {
        std::memcpy(dst, m_poImpl->m_pSecondary, bytes);
        return bytes;
    }
    const std::size_t len = length();
    if (pos >= len)
        return 0;
    const int written = ULIB_CStoCS(cs, dst, toInt(dstBytes), 0, kUTF16, m_poImpl->m_pPrimary + pos,
                                    toInt((len - pos) * 2), false, true, nullptr, nullptr);
    return static_cast<std::size_t>(std::max(written, 0));
}

UString::operator icu::UnicodeString() const {
    const std::size_t len = length();
    if (len == 0)
        return icu::UnicodeString();
    return icu::UnicodeString(reinterpret_cast<const UChar*>(m_poImpl->m_pPrimary), toInt(len));
}

// --- assigning -------------------------------------------------------------

UString& UString::assign(const UString& s) {
    if (this == &s || m_poImpl == s.m_poImpl)
        return *this;
    uStrImpl* other = s.m_poImpl->incRef();
    m_poImpl->decRef();
    m_poImpl = other;
    return *this;
}

UString& UString::assign(const char* s, std::size_t bytes, ULibCharSet cs) {
    if (s == nullptr || bytes == 0)
        return erase(0, npos);
    // s may be this string's own bytes, which the new form would overwrite
    // (an escaped reading rewrites the body whichever buffer they sit in):
    // read them before the body changes.
    const char* own = m_poImpl->m_pSecondary;
    if (!isUnitSet(cs) && (escaped(cs) || (own <= s && s < own + m_poImpl->m_uSecondaryLen))) {
        const std::string copyOfSource(s, bytes);
        fromNativEncodedString(copyOfSource.data(), bytes, cs);
    } else {
        fromNativEncodedString(s, bytes, cs);
    }
    return *this;
}

UString& UString::assign(const char* s, ULibCharSet cs) {
    if (s == nullptr)
        return erase(0, npos);
    if (isUnitSet(cs))
        return assign(reinterpret_cast<const unsigned short*>(s), unitsUpToZero(s));
    return assign(s, measure(s, cs), cs);
}

UString& UString::assign(char c, std::size_t n, ULibCharSet cs) {
    fillBytes(c, n, cs);
    return *this;
}

UString& UString::assign(unsigned short c, std::size_t n) {
    if (c == 0 || n == 0)
        return erase(0, npos);
    m_poImpl = m_poImpl->resize(n, true);
    std::fill_n(m_poImpl->m_pPrimary, n, c);
    m_poImpl->m_pPrimary[n] = 0;
    m_poImpl->m_uPrimaryLen = n;
    return *this;
}

UString& UString::assign(const unsigned short* s, std::size_t n) {
    if (s == nullptr || n == 0)
        return erase(0, npos);
    fromUnits(s, n);
    return *this;
}

UString& UString::assign(const icu::UnicodeString& s) {
    if (s.isEmpty())
        return erase(0, npos);
    fromUnits(reinterpret_cast<const unsigned short*>(s.getBuffer()),
              static_cast<std::size_t>(s.length()));
    return *this;
}

UString& UString::operator=(const unsigned short* s) {
    return assign(s, s == nullptr ? 0 : unitsUpToZero(s));
}

// --- appending -------------------------------------------------------------

// Units the text takes once in primary form, plus `extra`: an unconverted
// secondary form counts at its estimate.
std::size_t UString::appendCapacity(std::size_t extra) const {
    const uStrImpl* b = m_poImpl;
    std::size_t units = b->primaryLen();
    if (units == 0 && b->m_uSecondaryLen != 0)
        units = unitsFor(b->m_uSecondaryLen, b->m_eSecondaryCS);
    return addLength(units, extra);
}

// A writable body with room for `extra` more units. The estimate of an
// unconverted form may fall short when bad bytes were substituted by a long
// string: then the room is taken again from the real length.
UString::uStrImpl* UString::roomFor(std::size_t extra) {
    m_poImpl = m_poImpl->alterable(appendCapacity(extra));
    if (m_poImpl->m_uPrimaryCap - m_poImpl->m_uPrimaryLen < extra)
        m_poImpl = m_poImpl->alterable(addLength(m_poImpl->m_uPrimaryLen, extra));
    return m_poImpl;
}

UString& UString::append(unsigned short c, std::size_t n) {
    if (c == 0 || n == 0)
        return *this;
    uStrImpl* b = roomFor(n);
    std::fill_n(b->m_pPrimary + b->m_uPrimaryLen, n, c);
    b->m_uPrimaryLen += n;
    b->m_pPrimary[b->m_uPrimaryLen] = 0;
    return *this;
}

UString& UString::append(const unsigned short* s, std::size_t n) {
    if (s == nullptr || n == 0)
        return *this;
    StableUnits src(s, n, m_poImpl);
    uStrImpl* b = roomFor(n);
    checkedCopy(b->m_pPrimary + b->m_uPrimaryLen, b->m_uPrimaryCap - b->m_uPrimaryLen, src.ptr,
                n);
    b->m_uPrimaryLen += n;
    b->m_pPrimary[b->m_uPrimaryLen] = 0;
    return *this;
}

UString& UString::append(const UString& s) {
    if (s.empty())
        return *this;
    const UString keep(s); // s may be this string
    const std::size_t n = keep.length();
    return append(keep.m_poImpl->m_pPrimary, n);
}

UString& UString::append(char c, std::size_t n, ULibCharSet cs) {
    unsigned short unit;
    if (n == 0 || !charToUnit(c, cs, unit))
        return *this;
    return append(unit, n);
}

UString& UString::append(const char* s, ULibCharSet cs) {
    if (s == nullptr)
        return *this;
    return append(UString(s, cs));
}

UString& UString::append(const char* s, std::size_t bytes, ULibCharSet cs) {
    if (s == nullptr || bytes == 0)
        return *this;
    return append(UString(s, bytes, cs));
}

UString& UString::operator+=(const unsigned short* s) {
    return s == nullptr ? *this : append(s, unitsUpToZero(s));
}

UString UString::operator+(const UString& s) const {
    UString r(*this);
    r.append(s);
    return r;
}

UString UString::operator+(unsigned short c) const {
    UString r(*this);
    r.append(c, 1);
    return r;
}

UString UString::operator+(const unsigned short* s) const {
    UString r(*this);
    r += s;
    return r;
}

UString UString::operator+(char c) const {
    UString r(*this);
    r.append(c, 1, ULIB_CS_DEFAULT);
    return r;
}

UString UString::operator+(const char* s) const {
    UString r(*this);
    r.append(s, ULIB_CS_DEFAULT);
    return r;
}

// --- editing ---------------------------------------------------------------

void UString::reserve(std::size_t n) {
    m_poImpl = m_poImpl->alterable(n);
}

void UString::clear() {
    if (!empty())
        m_poImpl = m_poImpl->resize(0, true);
}

UString& UString::erase(std::size_t pos, std::size_t n) {
    if (empty() || n == 0)
        return *this;
    const std::size_t len = length();
    if (pos >= len)
        return *this;
    n = std::min(n, len - pos);
    if (len - n == 0) {
        m_poImpl = m_poImpl->resize(0, true);
        return *this;
    }
    m_poImpl = m_poImpl->alterable(0);
    unsigned short* p = m_poImpl->m_pPrimary;
    std::memmove(p + pos, p + pos + n, (len - pos - n) * 2);
    m_poImpl->m_uPrimaryLen = len - n;
    p[len - n] = 0;
    return *this;
}

void UString::setAt(std::size_t pos, unsigned short c) {
    if (c == 0) {
        erase(pos, npos);
        return;
    }
    m_poImpl = m_poImpl->alterable(0);
    if (pos < m_poImpl->makePrimary())
        m_poImpl->m_pPrimary[pos] = c;
}

// The common part of the replace family: units [pos, pos + n) become the m
// units of repl (null repl: m copies of fill).
UString& UString::replaceUnits(std::size_t pos, std::size_t n, const unsigned short* repl,
                               unsigned short fill, std::size_t m) {
    const std::size_t len = length();
    if (pos > len)
        return *this;
    n = std::min(n, len - pos);
    const std::size_t newLen = addLength(len - n, m);
    if (newLen == 0) {
        m_poImpl = m_poImpl->resize(0, true);
        return *this;
    }
    StableUnits src(repl, m, m_poImpl);
    m_poImpl = m_poImpl->alterable(newLen);
    unsigned short* p = m_poImpl->m_pPrimary;
    std::memmove(p + pos + m, p + pos + n, (len - pos - n) * 2);
    if (repl != nullptr)
        std::memcpy(p + pos, src.ptr, m * 2);
    else
        std::fill_n(p + pos, m, fill);
    m_poImpl->m_uPrimaryLen = newLen;
    p[newLen] = 0;
    return *this;
}

UString& UString::replace(std::size_t pos, std::size_t n, unsigned short c, std::size_t count) {
    if (c == 0)
        return erase(pos, npos);
    if (count == 0)
        return erase(pos, n);
    return replaceUnits(pos, n, nullptr, c, count);
}

UString& UString::replace(std::size_t pos, std::size_t n, const unsigned short* s,
                          std::size_t count) {
    if (s == nullptr || count == 0)
        return erase(pos, n);
    return replaceUnits(pos, n, s, 0, count);
}

UString& UString::replace(std::size_t pos, std::size_t n, char c, std::size_t count,
                          ULibCharSet cs) {
    if (c == 0)
        return erase(pos, npos);
    if (count == 0)
        return erase(pos, n);
    unsigned short unit;
    if (!charToUnit(c, cs, unit))
        return *this;
    return replaceUnits(pos, n, nullptr, unit, count);
}

UString& UString::replace(std::size_t pos, std::size_t n, const UString& s) {
    const UString keep(s);
    const std::size_t m = keep.length();
    return replace(pos, n, m == 0 ? nullptr : keep.m_poImpl->m_pPrimary, m);
}

void UString::swap(UString& other) {
    std::swap(m_poImpl, other.m_poImpl);
}

UString UString::substring(std::size_t pos, std::size_t n) const {
    if (empty() || pos >= length())
        return UString();
    return UString(*this, pos, std::min(length() - pos, n));
}

UString UString::right(std::size_t n) const {
    if (empty())
        return UString();
    const std::size_t len = length();
    if (n < len)
        return UString(*this, len - n, n);
    return *this;
}

// --- trimming and case -----------------------------------------------------

UString& UString::trimWith(TrimOp op, bool (*blank)(unsigned short)) {
    const std::size_t len = length();
    if (len == 0)
        return *this;
    const unsigned short* p = m_poImpl->m_pPrimary;
    const bool front = (op & TRIM_FRONT) && blank(p[0]);
    const bool back = (op & TRIM_BACK) && blank(p[len - 1]);
    if (!front && !back)
        return *this;
    std::size_t first = 0;
    std::size_t last = len;
    if (op & TRIM_FRONT)
        while (first < last && blank(p[first]))
            ++first;
    if (op & TRIM_BACK)
        while (last > first && blank(p[last - 1]))
            --last;
    m_poImpl = m_poImpl->alterable(0);
    unsigned short* q = m_poImpl->m_pPrimary;
    std::memmove(q, q + first, (last - first) * 2);
    q[last - first] = 0;
    m_poImpl->m_uPrimaryLen = last - first;
    return *this;
}

UString& UString::trim(TrimOp op) {
    return trimWith(op, isBlank);
}

UString& UString::trimEx(TrimOp op) {
    return trimWith(op, isWhiteSpace);
}

UString& UString::toUpper() {
    if (empty())
        return *this;
    m_poImpl = m_poImpl->alterable(0);
    unsigned short* p = m_poImpl->m_pPrimary;
    for (std::size_t i = 0; i < m_poImpl->m_uPrimaryLen; ++i)
        if (p[i] >= 'a' && p[i] <= 'z')
            p[i] = static_cast<unsigned short>(p[i] - 32);
    return *this;
}

UString& UString::toLower() {
    if (empty())
        return *this;
    m_poImpl = m_poImpl->alterable(0);
    unsigned short* p = m_poImpl->m_pPrimary;
    for (std::size_t i = 0; i < m_poImpl->m_uPrimaryLen; ++i)
        if (p[i] >= 'A' && p[i] <= 'Z')
            p[i] = static_cast<unsigned short>(p[i] + 32);
    return *this;
}

namespace {

enum CaseOp { kUpper, kLower, kFold };

int32_t mapCase(CaseOp op, UChar* dst, int32_t room, const UChar* src, int32_t len,
                const char* locale, bool option, UErrorCode* status) {
    switch (op) {
    case kUpper:
        return u_strToUpper(dst, room, src, len, locale, status);
    case kLower:
        return u_strToLower(dst, room, src, len, locale, status);
    default:
        return u_strFoldCase(dst, room, src, len, option ? U_FOLD_CASE_EXCLUDE_SPECIAL_I : 0,
                             status);
    }
}

} // namespace

// The locale's name lives in `name` for the call.
UString& UString::caseMap(int op, const ULocale* locale, bool option) {
    const std::size_t len = length();
    if (len == 0)
        return *this;
    const std::vector<UChar> scratch(m_poImpl->m_pPrimary, m_poImpl->m_pPrimary + len);
    UString name;
    if (locale != nullptr)
        name = locale->getName();
    const char* loc = locale != nullptr ? name.c_str(ULIB_CS_DEFAULT) : nullptr;

    m_poImpl = m_poImpl->alterable(len);
    UErrorCode status = U_ZERO_ERROR;
    int32_t n = mapCase(static_cast<CaseOp>(op), reinterpret_cast<UChar*>(m_poImpl->m_pPrimary),
                        toInt(m_poImpl->m_uPrimaryCap), scratch.data(), toInt(len), loc, option,
                        &status);
    if (status == U_BUFFER_OVERFLOW_ERROR) {
        m_poImpl = m_poImpl->resize(static_cast<std::size_t>(n), true);
        status = U_ZERO_ERROR;
        n = mapCase(static_cast<CaseOp>(op), reinterpret_cast<UChar*>(m_poImpl->m_pPrimary),
                    toInt(m_poImpl->m_uPrimaryCap), scratch.data(), toInt(len), loc, option,
                    &status);
    }
    if (U_FAILURE(status) || n <= 0) {
        // ICU refused: keep the text as it was.
        fromUnits(reinterpret_cast<const unsigned short*>(scratch.data()), len);
        return *this;
    }
    m_poImpl->m_pPrimary[n] = 0;
    m_poImpl->m_uPrimaryLen = static_cast<std::size_t>(n);
    return *this;
}

UString& UString::toUpperEx(const ULocale* locale) {
    return caseMap(kUpper, locale, false);
}

UString& UString::toLowerEx(const ULocale* locale) {
    return caseMap(kLower, locale, false);
}

UString& UString::toFoldCase(bool excludeSpecialI) {
    return caseMap(kFold, nullptr, excludeSpecialI);
}

// --- searching -------------------------------------------------------------

// The search over n units of s; backward steps down from pos.
std::size_t UString::searchUnits(const unsigned short* s, std::size_t n, std::size_t pos,
                                 bool backward, bool noCase) const {
    const std::size_t len = length();
    if (s == nullptr || n == 0 || n > len || pos >= len)
        return npos;
    if (!backward && pos > len - n)
        return npos;
    const unsigned short* p = m_poImpl->m_pPrimary;
    const unsigned short first = noCase ? fold(s[0]) : s[0];
    auto hit = [&](std::size_t i) {
        if ((noCase ? fold(p[i]) : p[i]) != first)
            return false;
        if (n == 1)
            return true;
        return noCase ? canonicalCompareNoCase(p + i + 1, s + 1, n - 1) == 0
                      : std::memcmp(p + i + 1, s + 1, (n - 1) * 2) == 0;
    };
    if (!backward) {
        for (std::size_t i = pos; i <= len - n; ++i)
            if (hit(i))
                return i;
        return npos;
    }
    for (std::size_t i = std::min(pos, len - n) + 1; i-- > 0;)
        if (hit(i))
            return i;
    return npos;
}

std::size_t UString::searchSet(const unsigned short* set, std::size_t pos, bool backward,
                               bool negate, bool noCase) const {
    const std::size_t len = length();
    if (set == nullptr || pos >= len)
        return npos;
    if (set[0] == 0)
        return negate ? pos : npos;
    const unsigned short* p = m_poImpl->m_pPrimary;
    auto member = [&](unsigned short u) {
        if (noCase)
            u = fold(u);
        for (const unsigned short* q = set; *q != 0; ++q)
            if ((noCase ? fold(*q) : *q) == u)
                return true;
        return false;
    };
    if (!backward) {
        for (std::size_t i = pos; i < len; ++i)
            if (member(p[i]) != negate)
                return i;
        return npos;
    }
    for (std::size_t i = pos + 1; i-- > 0;)
        if (member(p[i]) != negate)
            return i;
    return npos;
}

std::size_t UString::searchSet(const UString& set, std::size_t pos, bool backward, bool negate,
                               bool noCase) const {
    if (set.length() == 0)
        return npos;
    return searchSet(set.c_wstr(), pos, backward, negate, noCase);
}

// The char and narrow forms of each search direction, over the unit search.
#define QZ_USTRING_SEARCHES(NAME, BACKWARD, NOCASE)                                               \
    std::size_t UString::NAME(char c, std::size_t pos, ULibCharSet cs) const {                    \
        unsigned short u;                                                                         \
        return charToUnit(c, cs, u) ? searchUnits(&u, 1, pos, BACKWARD, NOCASE) : npos;          \
    }                                                                                             \
    std::size_t UString::NAME(unsigned short c, std::size_t pos) const {                          \
        return searchUnits(&c, 1, pos, BACKWARD, NOCASE);                                         \
    }                                                                                             \
    std::size_t UString::NAME(const unsigned short* s, std::size_t n, std::size_t pos) const {    \
        return searchUnits(s, n, pos, BACKWARD, NOCASE);                                          \
    }                                                                                             \
    std::size_t UString::NAME(const UString& s, std::size_t pos) const {                          \
        const std::size_t n = s.length();                                                         \
        return searchUnits(n == 0 ? nullptr : s.c_wstr(), n, pos, BACKWARD, NOCASE);              \
    }                                                                                             \
    std::size_t UString::NAME(const char* s, std::size_t pos, ULibCharSet cs) const {             \
        return s == nullptr ? npos : NAME(UString(s, cs), pos);                                  \
    }

QZ_USTRING_SEARCHES(find, false, false)
QZ_USTRING_SEARCHES(rfind, true, false)
QZ_USTRING_SEARCHES(findNoCase, false, true)
QZ_USTRING_SEARCHES(rfindNoCase, true, true)
#undef QZ_USTRING_SEARCHES

#define QZ_USTRING_SET_SEARCHES(NAME, BACKWARD, NEGATE, NOCASE)                                   \
    std::size_t UString::NAME(const unsigned short* set, std::size_t pos) const {                 \
        return searchSet(set, pos, BACKWARD, NEGATE, NOCASE);                                     \
    }                                                                                             \
    std::size_t UString::NAME(const UString& set) const {                                         \
        const std::size_t len = length();                                                         \
        if (len == 0)                                                                             \
            return npos;                                                                          \
        return searchSet(set, BACKWARD ? len - 1 : 0, BACKWARD, NEGATE, NOCASE);                  \
    }                                                                                             \
    std::size_t UString::NAME(const UString& set, std::size_t pos) const {                        \
        return searchSet(set, pos, BACKWARD, NEGATE, NOCASE);                                     \
    }                                                                                             \
    std::size_t UString::NAME(const char* set, std::size_t pos, ULibCharSet cs) const {           \
        if (set == nullptr)                                                                       \
            return npos;                                                                          \
        if (isUnitSet(cs)) {                                                                      \
            const UString units(set, cs);                                                         \
            return searchSet(units.c_wstr(), pos, BACKWARD, NEGATE, NOCASE);                      \
        }                                                                                         \
        return searchSet(UString(set, cs), pos, BACKWARD, NEGATE, NOCASE);                        \
    }

QZ_USTRING_SET_SEARCHES(find_first_of, false, false, false)
QZ_USTRING_SET_SEARCHES(find_first_not_of, false, true, false)
QZ_USTRING_SET_SEARCHES(find_last_of, true, false, false)
QZ_USTRING_SET_SEARCHES(find_last_not_of, true, true, false)
QZ_USTRING_SET_SEARCHES(find_first_of_no_case, false, false, true)
QZ_USTRING_SET_SEARCHES(find_first_not_of_no_case, false, true, true)
QZ_USTRING_SET_SEARCHES(find_last_of_no_case, true, false, true)
QZ_USTRING_SET_SEARCHES(find_last_not_of_no_case, true, true, true)
#undef QZ_USTRING_SET_SEARCHES

// --- find and replace ------------------------------------------------------

std::size_t UString::replaceFound(std::size_t at, std::size_t n, const unsigned short* repl,
                                  std::size_t m) {
    if (at != npos)
        replace(at, n, repl, m);
    return at;
}

// Each direction and case gets the six forms; the unit form does nothing for
// a find unit of 0 or equal units, and a replacement of 0 cuts at the hit.
#define QZ_USTRING_FIND_REPLACE(NAME, BACKWARD, NOCASE)                                           \
    std::size_t UString::NAME(unsigned short find, std::size_t pos, unsigned short repl) {        \
        if (empty() || find == 0 || find == repl)                                                 \
            return npos;                                                                          \
        const std::size_t at = searchUnits(&find, 1, pos, BACKWARD, NOCASE);                      \
        if (at != npos)                                                                           \
            replace(at, 1, repl, 1);                                                              \
        return at;                                                                                \
    }                                                                                             \
    std::size_t UString::NAME(char find, std::size_t pos, char repl, ULibCharSet cs) {            \
        unsigned short f, r;                                                                      \
        if (!charToUnit(find, cs, f) || !charToUnit(repl, cs, r))                                 \
            return npos;                                                                          \
        return NAME(f, pos, r);                                                                   \
    }                                                                                             \
    std::size_t UString::NAME(const unsigned short* find, std::size_t n, std::size_t pos,         \
                              const unsigned short* repl, std::size_t m) {                        \
        return replaceFound(searchUnits(find, n, pos, BACKWARD, NOCASE), n, repl, m);             \
    }                                                                                             \
    std::size_t UString::NAME(const unsigned short* find, std::size_t pos,                        \
                              const unsigned short* repl) {                                       \
        if (find == nullptr)                                                                      \
            return npos;                                                                          \
        return NAME(find, unitsUpToZero(find), pos, repl,                                         \
                    repl == nullptr ? 0 : unitsUpToZero(repl));                                   \
    }                                                                                             \
    std::size_t UString::NAME(const UString& find, std::size_t pos, const UString& repl) {        \
        const UString f(find), r(repl);                                                           \
        const std::size_t n = f.length(), m = r.length();                                         \
        return NAME(n == 0 ? nullptr : f.c_wstr(), n, pos, m == 0 ? nullptr : r.c_wstr(), m);     \
    }                                                                                             \
    std::size_t UString::NAME(const char* find, std::size_t pos, const char* repl,                \
                              ULibCharSet cs) {                                                   \
        if (find == nullptr)                                                                      \
            return npos;                                                                          \
        cs = plain(cs);                                                                           \
        return NAME(UString(find, cs), pos, repl == nullptr ? UString() : UString(repl, cs));     \
    }

QZ_USTRING_FIND_REPLACE(findAndReplace, false, false)
QZ_USTRING_FIND_REPLACE(rfindAndReplace, true, false)
QZ_USTRING_FIND_REPLACE(findAndReplaceNoCase, false, true)
QZ_USTRING_FIND_REPLACE(rfindAndReplaceNoCase, true, true)
#undef QZ_USTRING_FIND_REPLACE

// One pass, in place: the capacity is taken once for the worst case, and the
// scan goes on behind each replacement so that it is never searched again.
std::size_t UString::replaceAll(const unsigned short* find, std::size_t n,
                                const unsigned short* repl, std::size_t m, bool noCase) {
    if (find == nullptr || n == 0 || empty())
        return 0;
    if (repl == nullptr)
        m = 0;
    StableUnits f(find, n, m_poImpl);
    StableUnits r(repl, m, m_poImpl);
    std::size_t len = length();
    if (len < n)
        return 0;
    std::size_t cap = len;
    if (m > n) {
        const std::size_t hits = len / n + 1;
        if (m - n > (SIZE_MAX - len) / hits)
            throw std::bad_array_new_length();
        cap = len + hits * (m - n);
    }
    m_poImpl = m_poImpl->alterable(cap);
    unsigned short* p = m_poImpl->m_pPrimary;
    const unsigned short first = noCase ? fold(f.ptr[0]) : f.ptr[0];
    std::size_t count = 0;
    std::size_t i = 0;
    while (len >= n && i <= len - n) {
        const bool hit = (noCase ? fold(p[i]) : p[i]) == first &&
                         (n == 1 || (noCase ? canonicalCompareNoCase(p + i + 1, f.ptr + 1, n - 1) == 0
                                            : std::memcmp(p + i + 1, f.ptr + 1, (n - 1) * 2) == 0));
        if (!hit) {
            ++i;
            continue;
        }
        std::memmove(p + i + m, p + i + n, (len - i - n) * 2);
        if (m != 0)
            std::memcpy(p + i, r.ptr, m * 2);
        len = len - n + m;
        i += m;
        ++count;
    }
    m_poImpl->m_uPrimaryLen = len;
    p[len] = 0;
    return count;
}

#define QZ_USTRING_REPLACE_ALL(NAME, SINGLE, NOCASE)                                              \
    std::size_t UString::NAME(unsigned short find, unsigned short repl) {                         \
        if (repl == 0)                                                                            \
            return SINGLE(find, 0, repl) == npos ? 0 : 1;                                         \
        if (find == 0 || find == repl)                                                            \
            return 0;                                                                             \
        return replaceAll(&find, 1, &repl, 1, NOCASE);                                            \
    }                                                                                             \
    std::size_t UString::NAME(char find, char repl, ULibCharSet cs) {                             \
        unsigned short f, r;                                                                      \
        if (!charToUnit(find, cs, f) || !charToUnit(repl, cs, r))                                 \
            return 0;                                                                             \
        return NAME(f, r);                                                                        \
    }                                                                                             \
    std::size_t UString::NAME(const unsigned short* find, std::size_t n,                          \
                              const unsigned short* repl, std::size_t m) {                        \
        return replaceAll(find, n, repl, m, NOCASE);                                              \
    }                                                                                             \
    std::size_t UString::NAME(const unsigned short* find, const unsigned short* repl) {           \
        if (find == nullptr)                                                                      \
            return 0;                                                                             \
        return replaceAll(find, unitsUpToZero(find), repl,                                        \
                          repl == nullptr ? 0 : unitsUpToZero(repl), NOCASE);                     \
    }                                                                                             \
    std::size_t UString::NAME(const UString& find, const UString& repl) {                         \
        const UString f(find), r(repl);                                                           \
        const std::size_t n = f.length(), m = r.length();                                         \
        return replaceAll(n == 0 ? nullptr : f.c_wstr(), n, m == 0 ? nullptr : r.c_wstr(), m,     \
                          NOCASE);                                                                \
    }                                                                                             \
    std::size_t UString::NAME(const char* find, const char* repl, ULibCharSet cs) {               \
        if (find == nullptr)                                                                      \
            return 0;                                                                             \
        cs = plain(cs);                                                                           \
        return NAME(UString(find, cs), repl == nullptr ? UString() : UString(repl, cs));          \
    }

QZ_USTRING_REPLACE_ALL(findAndReplaceAll, findAndReplace, false)
QZ_USTRING_REPLACE_ALL(findAndReplaceAllNoCase, findAndReplaceNoCase, true)
#undef QZ_USTRING_REPLACE_ALL

// --- comparing -------------------------------------------------------------

int UString::canonicalCompare(const unsigned short* a, const unsigned short* b, std::size_t n) {
    for (std::size_t i = 0; i < n; ++i) {
        if (a[i] == 0)
            return b[i] == 0 ? 0 : -1;
        if (a[i] != b[i])
            return a[i] < b[i] ? -1 : 1;
    }
    return 0;
}

int UString::canonicalCompareNoCase(const unsigned short* a, const unsigned short* b,
                                    std::size_t n) {
    for (std::size_t i = 0; i < n; ++i) {
        if (a[i] == 0)
            return b[i] == 0 ? 0 : -1;
        const unsigned short x = fold(a[i]);
        const unsigned short y = fold(b[i]);
        if (x != y)
            return x < y ? -1 : 1;
    }
    return 0;
}

namespace {

// Units of p before its terminator, at most n: the collator is never handed
// more than the text (a count past the end would read beyond it).
int32_t boundedLength(const unsigned short* p, std::size_t n) {
    std::size_t i = 0;
    while (i < n && i < static_cast<std::size_t>(INT32_MAX) && p[i] != 0)
        ++i;
    return static_cast<int32_t>(i);
}

} // namespace

int UString::canonicalCompareNoCaseEx(const unsigned short* a, const unsigned short* b,
                                      std::size_t n, const ULocale* locale) {
    if (n == 0)
        return 0;
    UString name;
    if (locale != nullptr)
        name = locale->getName();
    UErrorCode status = U_ZERO_ERROR;
    UCollator* coll =
        ucol_open(locale != nullptr ? name.c_str(ULIB_CS_DEFAULT) : nullptr, &status);
    if (coll == nullptr || U_FAILURE(status)) {
        if (coll != nullptr)
            ucol_close(coll);
        for (std::size_t i = 0; i < n; ++i) {
            if (a[i] == 0)
                return b[i] == 0 ? 0 : -1;
            const UChar32 x = u_toupper(a[i]);
            const UChar32 y = u_toupper(b[i]);
            if (x != y)
                return x < y ? -1 : 1;
        }
        return 0;
    }
    ucol_setStrength(coll, UCOL_SECONDARY);
    const UCollationResult r =
        ucol_strcoll(coll, reinterpret_cast<const UChar*>(a), boundedLength(a, n),
                     reinterpret_cast<const UChar*>(b), boundedLength(b, n));
    ucol_close(coll);
    return r == UCOL_LESS ? -1 : r == UCOL_GREATER ? 1 : 0;
}

int UString::compareUnits(std::size_t pos, const unsigned short* s, std::size_t n, CompareMode mode,
                          const ULocale* locale) const {
    if (n == 0)
        return 0;
    const bool otherEmpty = s == nullptr || s[0] == 0;
    const std::size_t len = length();
    if (len == 0 || pos >= len)
        return otherEmpty ? 0 : -1;
    if (otherEmpty)
        return 1;
    const unsigned short* p = m_poImpl->m_pPrimary + pos;
    switch (mode) {
    case ByValue:
        return canonicalCompare(p, s, n);
    case NoCase:
        return canonicalCompareNoCase(p, s, n);
    default:
        return canonicalCompareNoCaseEx(p, s, n, locale);
    }
}

int UString::compareString(std::size_t pos, const UString& s, std::size_t n, CompareMode mode,
                           const ULocale* locale) const {
    if (pos == 0 && s.m_poImpl == m_poImpl)
        return 0;
    const UString keep(s); // s may be this string
    return compareUnits(pos, keep.empty() ? nullptr : keep.c_wstr(), n, mode, locale);
}

// The narrow-string rule: cs 1 holds units; any other set becomes a string.
int UString::compareNarrow(std::size_t pos, const char* s, std::size_t n, ULibCharSet cs,
                           CompareMode mode, const ULocale* locale) const {
    if (s == nullptr)
        return compareUnits(pos, nullptr, n, mode, locale);
    return compareString(pos, UString(s, cs), n, mode, locale);
}

int UString::compare(std::size_t pos, const unsigned short* s, std::size_t n) const {
    return compareUnits(pos, s, n, ByValue, nullptr);
}

int UString::compare(std::size_t pos, const UString& s, std::size_t n) const {
    return compareString(pos, s, n, ByValue, nullptr);
}

int UString::compare(std::size_t pos, const char* s, ULibCharSet cs) const {
    return compareNarrow(pos, s, npos, cs, ByValue, nullptr);
}

int UString::compare(std::size_t pos, const char* s, std::size_t n, ULibCharSet cs) const {
    return compareNarrow(pos, s, n, cs, ByValue, nullptr);
}

int UString::compareNoCase(std::size_t pos, const unsigned short* s, std::size_t n) const {
    return compareUnits(pos, s, n, NoCase, nullptr);
}

int UString::compareNoCase(std::size_t pos, const UString& s, std::size_t n) const {
    return compareString(pos, s, n, NoCase, nullptr);
}

int UString::compareNoCase(std::size_t pos, const char* s, ULibCharSet cs) const {
    return compareNarrow(pos, s, npos, cs, NoCase, nullptr);
}

int UString::compareNoCase(std::size_t pos, const char* s, std::size_t n, ULibCharSet cs) const {
    return compareNarrow(pos, s, n, cs, NoCase, nullptr);
}

int UString::compareNoCaseEx(std::size_t pos, const unsigned short* s, std::size_t n,
                             const ULocale* locale) const {
    return compareUnits(pos, s, n, Collated, locale);
}

int UString::compareNoCaseEx(std::size_t pos, const UString& s, std::size_t n,
                             const ULocale* locale) const {
    return compareString(pos, s, n, Collated, locale);
}

int UString::compareNoCaseEx(std::size_t pos, const char* s, ULibCharSet cs,
                             const ULocale* locale) const {
    return compareNarrow(pos, s, npos, cs, Collated, locale);
}

int UString::compareNoCaseEx(std::size_t pos, const char* s, std::size_t n, ULibCharSet cs,
                             const ULocale* locale) const {
    return compareNarrow(pos, s, n, cs, Collated, locale);
}

} // namespace qzunicode
} // namespace qzlib
} // namespace qzs
