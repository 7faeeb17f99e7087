//===- qzunicode/UString.h - The reference-counted Unicode string -*- C++ -*-===//
//
// UString is the system's string. One value may hold its text twice: a
// primary form in native UTF-16 and a secondary form of bytes in any
// character set of the table. Bytes that arrive from a database or a file are
// kept as they came and converted to UTF-16 only when somebody first reads a
// unit; text asked for in a set is converted once and kept beside the UTF-16.
//
//===----------------------------------------------------------------------===//
#ifndef QZUNICODE_USTRING_H
#define QZUNICODE_USTRING_H

#include "qzstd/Export.h"

#include "qzstd/ItemPool.h"
#include "qzstd/Mutex.h"
#include "qzunicode/ULibTypes.h"
#include "qzunicode/CharSetTable.h"

#include <unicode/uversion.h>

#include <atomic>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <string>

U_NAMESPACE_BEGIN
class UnicodeString;
U_NAMESPACE_END

namespace qzs {
namespace qzlib {
namespace qzunicode {

class ULocale;

/// Constants of UTF-16 and UTF-32 shared by the converters and the string.
struct QZ_API UTFChar {
    static constexpr unsigned int UTF16_MAX = 0xFFFF;
    static constexpr unsigned int UTF32_MAX = 0x10FFFF;
    static constexpr unsigned int _HIGH_SURROGATE_BEGIN = 0xD800;
    static constexpr unsigned int _HIGH_SURROGATE_END = 0xDBFF;
    static constexpr unsigned int _LOW_SURROGATE_BEGIN = 0xDC00;
    static constexpr unsigned int _LOW_SURROGATE_END = 0xDFFF;
    static constexpr unsigned int _HIGH_SURROGATE_SCALAR_OFFSET = 0xD7C0;
    static constexpr unsigned int _HIGH_SURROGATE_SCALAR_SHIFT = 10;
    static constexpr unsigned int _LOW_SURROGATE_SCALAR_MASK = 0x3FF;
};

/// A Unicode string with a shared, copy-on-write body.
///
/// Differences from std::u16string, all deliberate:
/// - Copies share one body; a change unshares it first (copy-on-write).
/// - Sizes and positions count UTF-16 units, except the byte counts of
///   narrow strings. npos is "not found", and as a count "to the end".
/// - Bytes given with a character set are kept unconverted until a unit is
///   read; c_str in that same set gives them back unchanged, at no cost.
/// - Kept on purpose: rfind and the backward searches treat a position past
///   the end as a miss, not as "from the end"; a zero unit written by setAt
///   or replace truncates the string; toUpper and toLower change ASCII
///   letters only (toUpperEx and toLowerEx use ICU and a locale).
///
/// Character sets are numbers of the table (CharSetTable.h): 1 is native
/// UTF-16, ULIB_CS_DEFAULT the process default, and a number with
/// ULIB_CS_ESCAPE_FLAG says the bytes may hold escape sequences, which are
/// read at construction.
///
/// Validity: pointers from c_str, c_wstr, begin and end stay valid until the
/// next change of the string, and those from c_str until the next c_str in
/// another set. c_str of an empty string is a shared block of 8 zero bytes.
///
/// Thread safety: separate UString objects that share a body may be copied,
/// read and destroyed on different threads at once; the body's lock makes
/// its lazy conversion happen once. One UString object is not safe against
/// itself: every mutator, swap, and c_str in a new set or numChars (which
/// count as writes although they are const) replace the body pointer with no
/// lock.
///
/// Failures: members report no conversion failures; a bad byte sequence
/// reads as what ULIB_CStoCS gives with substitution on, and bytes that hold
/// no whole character (an odd UTF-16 count) make the string empty once read.
/// Out of memory and impossible sizes (a count that wraps a length, or more
/// than 0x3ffffffffffffffc units or bytes) throw the standard allocation
/// exceptions and leave the string as it was. Conversions handle at most
/// 2 GiB at a time. at() returns 0xFFFE out of range; operator[] is
/// unchecked.
class QZ_API UString {
public:
    static constexpr std::size_t npos = static_cast<std::size_t>(-1);

    /// Which ends trim and trimEx cut.
    enum TrimOp { TRIM_FRONT = 1, TRIM_BACK = 2, TRIM_BOTH = 3 };

    /// The shared body. Reached through a UString only; exposed for the
    /// pool and for inspection.
    ///
    /// Buffer rules: a primary buffer of capacity n has n + 4 units, a
    /// secondary one n + 8 bytes; both start zeroed for 8 bytes. A form that
    /// does not exist uses m_gNull. A buffer whose first 8 bytes are zero is
    /// not counted as owned: it is neither freed nor reused (kept on purpose;
    /// such a buffer is forgotten). Lock order: m_oLock, then the pool's lock.
    class uStrImpl : public LinkedItem<uStrImpl> {
    public:
        uStrImpl();
        ~uStrImpl() = default;
        uStrImpl(const uStrImpl&) = delete;
        uStrImpl& operator=(const uStrImpl&) = delete;

        /// Adds a sharer; returns this body.
        uStrImpl* incRef();
        /// Drops a sharer; the last one frees the buffers and returns the
        /// body to its pool, or deletes it.
        void decRef();
        /// A body with one sharer and no text.
        static uStrImpl* acquire();
        /// The same with a primary (wide) or secondary buffer of capacity n.
        static uStrImpl* acquire(std::size_t n, bool wide);
        /// Builds the primary form from the secondary one if needed; returns
        /// its length. Without a lock once built.
        std::size_t makePrimary();
        /// A body the caller may write, in primary form, of capacity at least
        /// minUnits: this one if unshared, else a private copy (this body is
        /// then released). The secondary form is dropped. Store the result.
        uStrImpl* alterable(std::size_t minUnits);
        /// A body with no text and capacity at least n in the chosen form:
        /// this one if unshared, else a new one. Store the result.
        uStrImpl* resize(std::size_t n, bool wide);
        /// Creates the process-wide pool of bodies (items 0: 87 a block).
        /// Bodies made before keep going to the heap. Not thread-safe against
        /// itself: call it once, early.
        static void initPool(std::size_t items);

        /// The primary length as a reader on another thread may see it while
        /// the lazy conversion publishes it.
        std::size_t primaryLen() const {
            return static_cast<std::size_t>(__atomic_load_n(&m_uPrimaryLen, __ATOMIC_ACQUIRE));
        }
        /// The secondary length, which the lazy conversion sets to 0 when the
        /// bytes hold no whole character.
        std::size_t secondaryLen() const {
            return static_cast<std::size_t>(__atomic_load_n(&m_uSecondaryLen, __ATOMIC_ACQUIRE));
        }
        bool empty() const { return primaryLen() == 0 && secondaryLen() == 0; }

        std::uint64_t m_uPrimaryLen;
        std::uint64_t m_uPrimaryCap;
        unsigned short* m_pPrimary;
        std::uint64_t m_uSecondaryLen;
        std::uint64_t m_uSecondaryCap;
        ULibCharSet m_eSecondaryCS;
        char* m_pSecondary;
        ULibCnvErrBehavior m_eErrBehavior;
        ItemPoolMT<uStrImpl>* m_poOwnerPool;
        MultiThreading::Mutex m_oLock;
        std::atomic<std::int32_t> m_nRefCount;

        /// 8 zero bytes: the buffer of every missing form.
        static const std::uint64_t m_gNull;
        /// Room kept for a terminator ahead of conversion.
        static constexpr std::size_t m_uMaxNullCharSize = 8;
        static ItemPoolMT<uStrImpl>* m_poPool;

    private:
        void reset();
        void freePrimary();
        void dropSecondary();
        void newPrimary(std::size_t cap);
        void convertIntoPrimary(std::size_t minUnits);
    };

    // Construction -------------------------------------------------------
    UString();
    /// One byte in cs (escape flag ignored); 0 gives an empty string.
    explicit UString(char c, ULibCharSet cs = ULIB_CS_DEFAULT);
    UString(char c, std::size_t n, ULibCharSet cs = ULIB_CS_DEFAULT);
    explicit UString(unsigned short c);
    UString(unsigned short c, std::size_t n);
    /// Units up to a zero unit; null gives an empty string.
    UString(const unsigned short* s);
    UString(const unsigned short* s, std::size_t n);
    UString(const unsigned short* first, const unsigned short* last);
    UString(const UString& s);
    /// Units [pos, pos + n) of s; shares s's body when that is all of s.
    UString(const UString& s, std::size_t pos, std::size_t n = npos);
    UString(const icu::UnicodeString& s);
    /// s, measured up to a terminator of cs. cs 1 reads units. Bytes are
    /// kept unconverted, except with the escape flag, when they are read at
    /// once.
    UString(const char* s, ULibCharSet cs = ULIB_CS_DEFAULT);
    UString(const char* s, std::size_t bytes, ULibCharSet cs);
    UString(const std::string& s, ULibCharSet cs = ULIB_CS_DEFAULT);
    virtual ~UString();

    static void initPool(std::size_t items = 0);

    // Reading --------------------------------------------------------------
    /// Units, building the primary form if needed.
    std::size_t length() const;
    std::size_t size() const { return length(); }
    bool empty() const { return m_poImpl->empty(); }
    /// Unchecked.
    unsigned short operator[](std::size_t pos) const;
    /// 0xFFFE when pos is not below the length.
    unsigned short at(std::size_t pos) const;
    /// The zero-terminated units.
    const unsigned short* c_wstr() const;
    const unsigned short* begin() const;
    const unsigned short* end() const;
    /// The last unit, and one before the first: step down to walk backwards.
    const unsigned short* rbegin() const;
    const unsigned short* rend() const;
    /// The text in cs, terminated for cs. Counts as a write when it converts.
    const char* c_str(ULibCharSet cs = ULIB_CS_DEFAULT) const;
    /// Bytes of the text in cs, without terminator (builds c_str(cs) for
    /// sets other than UTF-16).
    std::size_t byteSize(ULibCharSet cs = ULIB_CS_DEFAULT) const;
    /// Code points. Builds a UTF-32 secondary form to count them.
    std::size_t numChars() const;
    /// Copies up to dstUnits units from pos, no terminator. Result: units.
    std::size_t copy(unsigned short* dst, std::size_t dstUnits, std::size_t pos = 0) const;
    /// Copies the text from pos in cs, whole characters up to dstBytes, no
    /// terminator, substituting what cs cannot hold. Result: bytes.
    std::size_t copy(char* dst, std::size_t dstBytes, std::size_t pos, ULibCharSet cs) const;
    operator icu::UnicodeString() const;

    // Assigning -------------------------------------------------------------
    UString& assign(const UString& s);
    UString& assign(const char* s, std::size_t bytes, ULibCharSet cs);
    UString& assign(const char* s, ULibCharSet cs = ULIB_CS_DEFAULT);
    UString& assign(char c, std::size_t n, ULibCharSet cs = ULIB_CS_DEFAULT);
    UString& assign(unsigned short c, std::size_t n);
    UString& assign(const unsigned short* s, std::size_t n);
    UString& assign(const icu::UnicodeString& s);
    UString& operator=(const UString& s) { return assign(s); }
    UString& operator=(const char* s) { return assign(s, ULIB_CS_DEFAULT); }
    UString& operator=(const unsigned short* s);
    UString& operator=(const icu::UnicodeString& s) { return assign(s); }

    // Appending -------------------------------------------------------------
    UString& append(unsigned short c, std::size_t n = 1);
    UString& append(const unsigned short* s, std::size_t n);
    UString& append(const UString& s);
    /// c converted from cs to one unit; a byte that is not one whole
    /// character appends nothing.
    UString& append(char c, std::size_t n, ULibCharSet cs = ULIB_CS_DEFAULT);
    UString& append(const char* s, ULibCharSet cs = ULIB_CS_DEFAULT);
    UString& append(const char* s, std::size_t bytes, ULibCharSet cs);
    UString& operator+=(const UString& s) { return append(s); }
    UString& operator+=(unsigned short c) { return append(c, 1); }
    UString& operator+=(const unsigned short* s);
    UString& operator+=(char c) { return append(c, 1, ULIB_CS_DEFAULT); }
    UString& operator+=(const char* s) { return append(s, ULIB_CS_DEFAULT); }
    UString operator+(const UString& s) const;
    UString operator+(unsigned short c) const;
    UString operator+(const unsigned short* s) const;
    UString operator+(char c) const;
    UString operator+(const char* s) const;

    // Editing ---------------------------------------------------------------
    void reserve(std::size_t n);
    void clear();
    UString& erase(std::size_t pos = 0, std::size_t n = npos);
    /// Writes c at pos (below the length); c 0 truncates at pos.
    void setAt(std::size_t pos, unsigned short c);
    /// Replaces units [pos, pos + n) by count copies of c. Kept on purpose:
    /// c 0 cuts the whole tail from pos.
    UString& replace(std::size_t pos, std::size_t n, unsigned short c, std::size_t count);
    UString& replace(std::size_t pos, std::size_t n, const unsigned short* s, std::size_t count);
    UString& replace(std::size_t pos, std::size_t n, char c, std::size_t count,
                     ULibCharSet cs = ULIB_CS_DEFAULT);
    UString& replace(std::size_t pos, std::size_t n, const UString& s);
    /// Exchanges the bodies; not atomic.
    void swap(UString& other);
    UString substring(std::size_t pos, std::size_t n = npos) const;
    /// The last n units (all of the string, shared, when n is not below the
    /// length).
    UString right(std::size_t n) const;

    // Trimming and case -----------------------------------------------------
    /// Removes U+0020 only. Leaves the body untouched when no end has one.
    UString& trim(TrimOp op = TRIM_BOTH);
    /// Removes ICU's white space (u_isUWhiteSpace).
    UString& trimEx(TrimOp op = TRIM_BOTH);
    /// ASCII letters only.
    UString& toUpper();
    UString& toLower();
    /// Full case mapping by ICU in the locale (null: ICU's default); the
    /// length may change.
    UString& toUpperEx(const ULocale* locale = nullptr);
    UString& toLowerEx(const ULocale* locale = nullptr);
    /// ICU's case folding; true selects the special Turkic I folding.
    UString& toFoldCase(bool excludeSpecialI = false);

    // Searching: npos when not found. A char is converted from cs to one unit
    // first (a byte that is not one whole character finds nothing); a const
    // char* with cs other than 1 becomes a UString in cs.
    std::size_t find(char c, std::size_t pos = 0, ULibCharSet cs = ULIB_CS_DEFAULT) const;
    std::size_t find(unsigned short c, std::size_t pos = 0) const;
    std::size_t find(const unsigned short* s, std::size_t n, std::size_t pos) const;
    std::size_t find(const UString& s, std::size_t pos = 0) const;
    std::size_t find(const char* s, std::size_t pos, ULibCharSet cs = ULIB_CS_DEFAULT) const;
    /// From pos down to 0. Kept on purpose: pos not below the length is a
    /// miss (there is no "from the end" default).
    std::size_t rfind(char c, std::size_t pos, ULibCharSet cs = ULIB_CS_DEFAULT) const;
    std::size_t rfind(unsigned short c, std::size_t pos) const;
    std::size_t rfind(const unsigned short* s, std::size_t n, std::size_t pos) const;
    std::size_t rfind(const UString& s, std::size_t pos) const;
    std::size_t rfind(const char* s, std::size_t pos, ULibCharSet cs = ULIB_CS_DEFAULT) const;

    /// Set searches over a zero-terminated set of units. An empty set finds
    /// nothing with the _of forms and pos itself with the _not_of forms; an
    /// empty UString set finds nothing in every form. The UString forms
    /// without pos start at the first (forward) or last (backward) unit.
    std::size_t find_first_of(const unsigned short* set, std::size_t pos = 0) const;
    std::size_t find_first_of(const UString& set) const;
    std::size_t find_first_of(const UString& set, std::size_t pos) const;
    std::size_t find_first_of(const char* set, std::size_t pos, ULibCharSet cs = ULIB_CS_DEFAULT) const;
    std::size_t find_first_not_of(const unsigned short* set, std::size_t pos = 0) const;
    std::size_t find_first_not_of(const UString& set) const;
    std::size_t find_first_not_of(const UString& set, std::size_t pos) const;
    std::size_t find_first_not_of(const char* set, std::size_t pos,
                                  ULibCharSet cs = ULIB_CS_DEFAULT) const;
    std::size_t find_last_of(const unsigned short* set, std::size_t pos) const;
    std::size_t find_last_of(const UString& set) const;
    std::size_t find_last_of(const UString& set, std::size_t pos) const;
    std::size_t find_last_of(const char* set, std::size_t pos, ULibCharSet cs = ULIB_CS_DEFAULT) const;
    std::size_t find_last_not_of(const unsigned short* set, std::size_t pos) const;
    std::size_t find_last_not_of(const UString& set) const;
    std::size_t find_last_not_of(const UString& set, std::size_t pos) const;
    std::size_t find_last_not_of(const char* set, std::size_t pos,
                                 ULibCharSet cs = ULIB_CS_DEFAULT) const;

    /// The same, with 'a' to 'z' folded onto 'A' to 'Z' on both sides and
    /// nothing else folded.
    std::size_t findNoCase(char c, std::size_t pos = 0, ULibCharSet cs = ULIB_CS_DEFAULT) const;
    std::size_t findNoCase(unsigned short c, std::size_t pos = 0) const;
    std::size_t findNoCase(const unsigned short* s, std::size_t n, std::size_t pos) const;
    std::size_t findNoCase(const UString& s, std::size_t pos = 0) const;
    std::size_t findNoCase(const char* s, std::size_t pos, ULibCharSet cs = ULIB_CS_DEFAULT) const;
    std::size_t rfindNoCase(char c, std::size_t pos, ULibCharSet cs = ULIB_CS_DEFAULT) const;
    std::size_t rfindNoCase(unsigned short c, std::size_t pos) const;
    std::size_t rfindNoCase(const unsigned short* s, std::size_t n, std::size_t pos) const;
    std::size_t rfindNoCase(const UString& s, std::size_t pos) const;
    std::size_t rfindNoCase(const char* s, std::size_t pos, ULibCharSet cs = ULIB_CS_DEFAULT) const;
    std::size_t find_first_of_no_case(const unsigned short* set, std::size_t pos = 0) const;
    std::size_t find_first_of_no_case(const UString& set) const;
    std::size_t find_first_of_no_case(const UString& set, std::size_t pos) const;
    std::size_t find_first_of_no_case(const char* set, std::size_t pos,
                                      ULibCharSet cs = ULIB_CS_DEFAULT) const;
    std::size_t find_first_not_of_no_case(const unsigned short* set, std::size_t pos = 0) const;
    std::size_t find_first_not_of_no_case(const UString& set) const;
    std::size_t find_first_not_of_no_case(const UString& set, std::size_t pos) const;
    std::size_t find_first_not_of_no_case(const char* set, std::size_t pos,
                                          ULibCharSet cs = ULIB_CS_DEFAULT) const;
    std::size_t find_last_of_no_case(const unsigned short* set, std::size_t pos) const;
    std::size_t find_last_of_no_case(const UString& set) const;
    std::size_t find_last_of_no_case(const UString& set, std::size_t pos) const;
    std::size_t find_last_of_no_case(const char* set, std::size_t pos,
                                     ULibCharSet cs = ULIB_CS_DEFAULT) const;
    std::size_t find_last_not_of_no_case(const unsigned short* set, std::size_t pos) const;
    std::size_t find_last_not_of_no_case(const UString& set) const;
    std::size_t find_last_not_of_no_case(const UString& set, std::size_t pos) const;
    std::size_t find_last_not_of_no_case(const char* set, std::size_t pos,
                                         ULibCharSet cs = ULIB_CS_DEFAULT) const;

    // Find and replace: the position replaced, or npos. -------------------
    std::size_t findAndReplace(char find, std::size_t pos, char repl,
                               ULibCharSet cs = ULIB_CS_DEFAULT);
    /// A replacement unit of 0 cuts the string at the hit.
    std::size_t findAndReplace(unsigned short find, std::size_t pos, unsigned short repl);
    std::size_t findAndReplace(const UString& find, std::size_t pos, const UString& repl);
    std::size_t findAndReplace(const unsigned short* find, std::size_t n, std::size_t pos,
                               const unsigned short* repl, std::size_t m);
    std::size_t findAndReplace(const unsigned short* find, std::size_t pos,
                               const unsigned short* repl);
    std::size_t findAndReplace(const char* find, std::size_t pos, const char* repl,
                               ULibCharSet cs = ULIB_CS_DEFAULT);
    std::size_t rfindAndReplace(char find, std::size_t pos, char repl,
                                ULibCharSet cs = ULIB_CS_DEFAULT);
    std::size_t rfindAndReplace(unsigned short find, std::size_t pos, unsigned short repl);
    std::size_t rfindAndReplace(const UString& find, std::size_t pos, const UString& repl);
    std::size_t rfindAndReplace(const unsigned short* find, std::size_t n, std::size_t pos,
                                const unsigned short* repl, std::size_t m);
    std::size_t rfindAndReplace(const unsigned short* find, std::size_t pos,
                                const unsigned short* repl);
    std::size_t rfindAndReplace(const char* find, std::size_t pos, const char* repl,
                                ULibCharSet cs = ULIB_CS_DEFAULT);
    std::size_t findAndReplaceNoCase(char find, std::size_t pos, char repl,
                                     ULibCharSet cs = ULIB_CS_DEFAULT);
    std::size_t findAndReplaceNoCase(unsigned short find, std::size_t pos, unsigned short repl);
    std::size_t findAndReplaceNoCase(const UString& find, std::size_t pos, const UString& repl);
    std::size_t findAndReplaceNoCase(const unsigned short* find, std::size_t n, std::size_t pos,
                                     const unsigned short* repl, std::size_t m);
    std::size_t findAndReplaceNoCase(const unsigned short* find, std::size_t pos,
                                     const unsigned short* repl);
    std::size_t findAndReplaceNoCase(const char* find, std::size_t pos, const char* repl,
                                     ULibCharSet cs = ULIB_CS_DEFAULT);
    std::size_t rfindAndReplaceNoCase(char find, std::size_t pos, char repl,
                                      ULibCharSet cs = ULIB_CS_DEFAULT);
    std::size_t rfindAndReplaceNoCase(unsigned short find, std::size_t pos, unsigned short repl);
    std::size_t rfindAndReplaceNoCase(const UString& find, std::size_t pos, const UString& repl);
    std::size_t rfindAndReplaceNoCase(const unsigned short* find, std::size_t n, std::size_t pos,
                                      const unsigned short* repl, std::size_t m);
    std::size_t rfindAndReplaceNoCase(const unsigned short* find, std::size_t pos,
                                      const unsigned short* repl);
    std::size_t rfindAndReplaceNoCase(const char* find, std::size_t pos, const char* repl,
                                      ULibCharSet cs = ULIB_CS_DEFAULT);

    /// Every occurrence, left to right in one pass; a replacement is never
    /// searched again. Result: occurrences replaced. Kept on purpose: the
    /// unit form with a replacement of 0 cuts at the first hit and stops.
    std::size_t findAndReplaceAll(char find, char repl, ULibCharSet cs = ULIB_CS_DEFAULT);
    std::size_t findAndReplaceAll(unsigned short find, unsigned short repl);
    std::size_t findAndReplaceAll(const unsigned short* find, std::size_t n,
                                  const unsigned short* repl, std::size_t m);
    std::size_t findAndReplaceAll(const unsigned short* find, const unsigned short* repl);
    std::size_t findAndReplaceAll(const UString& find, const UString& repl);
    std::size_t findAndReplaceAll(const char* find, const char* repl,
                                  ULibCharSet cs = ULIB_CS_DEFAULT);
    std::size_t findAndReplaceAllNoCase(char find, char repl, ULibCharSet cs = ULIB_CS_DEFAULT);
    std::size_t findAndReplaceAllNoCase(unsigned short find, unsigned short repl);
    std::size_t findAndReplaceAllNoCase(const unsigned short* find, std::size_t n,
                                        const unsigned short* repl, std::size_t m);
    std::size_t findAndReplaceAllNoCase(const unsigned short* find, const unsigned short* repl);
    std::size_t findAndReplaceAllNoCase(const UString& find, const UString& repl);
    std::size_t findAndReplaceAllNoCase(const char* find, const char* repl,
                                        ULibCharSet cs = ULIB_CS_DEFAULT);

    // Comparing: -1, 0 or 1. ------------------------------------------------
    /// Up to n units by value. A zero unit in a ends the comparison (0 if b
    /// has one there too, else -1); a zero in b is just a smaller unit.
    static int canonicalCompare(const unsigned short* a, const unsigned short* b, std::size_t n);
    static int canonicalCompareNoCase(const unsigned short* a, const unsigned short* b,
                                      std::size_t n);
    /// ICU collation at secondary strength in the locale (null: ICU's root),
    /// or u_toupper unit by unit when no collator opens.
    static int canonicalCompareNoCaseEx(const unsigned short* a, const unsigned short* b,
                                        std::size_t n, const ULocale* locale);
    /// This string from pos against s, n units at most. A string sharing this
    /// body compares equal at pos 0 without reading the text.
    int compare(std::size_t pos, const unsigned short* s, std::size_t n = npos) const;
    int compare(std::size_t pos, const UString& s, std::size_t n = npos) const;
    int compare(std::size_t pos, const char* s, ULibCharSet cs = ULIB_CS_DEFAULT) const;
    int compare(std::size_t pos, const char* s, std::size_t n, ULibCharSet cs = ULIB_CS_DEFAULT) const;
    int compareNoCase(std::size_t pos, const unsigned short* s, std::size_t n = npos) const;
    int compareNoCase(std::size_t pos, const UString& s, std::size_t n = npos) const;
    int compareNoCase(std::size_t pos, const char* s, ULibCharSet cs = ULIB_CS_DEFAULT) const;
    int compareNoCase(std::size_t pos, const char* s, std::size_t n,
                      ULibCharSet cs = ULIB_CS_DEFAULT) const;
    int compareNoCaseEx(std::size_t pos, const unsigned short* s, std::size_t n,
                        const ULocale* locale) const;
    int compareNoCaseEx(std::size_t pos, const UString& s, std::size_t n,
                        const ULocale* locale) const;
    int compareNoCaseEx(std::size_t pos, const char* s, ULibCharSet cs, const ULocale* locale) const;
    int compareNoCaseEx(std::size_t pos, const char* s, std::size_t n, ULibCharSet cs,
                        const ULocale* locale) const;

    /// Unit-by-unit equality and order (compare from 0), so that UString
    /// keys sort and compare as their UTF-16 texts.
    bool operator==(const UString& s) const { return compare(0, s) == 0; }
    bool operator!=(const UString& s) const { return compare(0, s) != 0; }
    bool operator<(const UString& s) const { return compare(0, s) < 0; }

    // Formatted output --------------------------------------------------------
    // The format language is printf's with 'U' for a const UString*, 's' and
    // 'c' read in the character set cs (1: units), and positional n$
    // arguments. Every form replaces the text and returns its units, or -1
    // with an empty string on a malformed format; a null format gives -1 and
    // leaves the string alone. size is the initial capacity (256 when not
    // given); a narrow format is read in fmtCS (the default set when not
    // given; 1 means the pointer holds units). Unlike printf: 'p' has no
    // "0x" without '#', a null 's' or 'U' reads "NULLPTR", and a narrow 's'
    // is cut at 512 units. A width or precision above 16,777,216, or a
    // result past INT_MAX units, fails the format (-1). REQUIRES: no 's' or
    // 'U' argument is or points
    // into this string's own text (the body is emptied first and may move);
    // a UString format may be this string, and reads as it was.
    int format(const unsigned short* fmt, ...);
    int formatV(const unsigned short* fmt, va_list args);
    int format(const UString* fmt, ...);
    int formatV(const UString* fmt, va_list args);
    int format(std::size_t size, ULibCharSet cs, const unsigned short* fmt, ...);
    int formatV(std::size_t size, ULibCharSet cs, const unsigned short* fmt, va_list args);
    int format(std::size_t size, ULibCharSet cs, const UString* fmt, ...);
    int formatV(std::size_t size, ULibCharSet cs, const UString* fmt, va_list args);
    int format(const char* fmt, ...);
    int formatV(const char* fmt, va_list args);
    int format(const char* fmt, ULibCharSet fmtCS, ...);
    int formatV(const char* fmt, ULibCharSet fmtCS, va_list args);
    int format(std::size_t size, ULibCharSet cs, const char* fmt, ...);
    int formatV(std::size_t size, ULibCharSet cs, const char* fmt, va_list args);
    int format(std::size_t size, ULibCharSet cs, const char* fmt, ULibCharSet fmtCS, ...);
    int formatV(std::size_t size, ULibCharSet cs, const char* fmt, ULibCharSet fmtCS,
                va_list args);

    // Formatted input ---------------------------------------------------------
    // scanf's language over the primary form, with 'U' for a UString*. cs is
    // the set of 's', 'c' and '[' results (1: units; the default set when not
    // given); a narrow format is read in fmtCS. Result: the items assigned;
    // the scan stops at the first mismatch or at the end of the text and
    // never fails otherwise. Sizes: 'hh' a byte, 'h' 16 bits, none and 'l'
    // 32 bits (kept on purpose: 'l' is not 64), 'll' 64 bits; for the
    // floating types 'l' is double and 'L' long double.
    int scan(const unsigned short* fmt, ...) const;
    int scan(const UString* fmt, ...) const;
    int scan(ULibCharSet cs, const unsigned short* fmt, ...) const;
    int scanV(ULibCharSet cs, const unsigned short* fmt, va_list args) const;
    int scan(ULibCharSet cs, const UString* fmt, ...) const;
    int scanV(ULibCharSet cs, const UString* fmt, va_list args) const;
    int scan(const char* fmt, ...) const;
    int scan(const char* fmt, ULibCharSet fmtCS, ...) const;
    int scan(ULibCharSet cs, const char* fmt, ...) const;
    int scanV(ULibCharSet cs, const char* fmt, va_list args) const;
    int scan(ULibCharSet cs, const char* fmt, ULibCharSet fmtCS, ...) const;
    int scanV(ULibCharSet cs, const char* fmt, ULibCharSet fmtCS, va_list args) const;

    /// The engines every form above ends in.
    int __format(std::size_t size, ULibCharSet cs, const unsigned short* fmt, va_list args);
    int __scan(ULibCharSet cs, const unsigned short* fmt, va_list args) const;

    /// The body, for inspection: which forms exist, and whether two strings
    /// share. Read only.
    const uStrImpl* impl() const { return m_poImpl; }

private:
    template <typename Init> void initialise(Init&& init);
    void fromNativEncodedString(const char* s, std::size_t bytes, ULibCharSet cs);
    void fromUnits(const unsigned short* s, std::size_t n);
    void fillBytes(char c, std::size_t n, ULibCharSet cs);
    void convertEscaped(const char* s, std::size_t bytes, ULibCharSet cs);
    std::size_t appendCapacity(std::size_t extra) const;
    uStrImpl* roomFor(std::size_t extra);
    std::size_t searchUnits(const unsigned short* s, std::size_t n, std::size_t pos, bool backward,
                            bool noCase) const;
    std::size_t searchSet(const unsigned short* set, std::size_t pos, bool backward, bool negate,
                          bool noCase) const;
    std::size_t searchSet(const UString& set, std::size_t pos, bool backward, bool negate,
                          bool noCase) const;
    UString& replaceUnits(std::size_t pos, std::size_t n, const unsigned short* repl,
                          unsigned short fill, std::size_t m);
    std::size_t replaceFound(std::size_t at, std::size_t n, const unsigned short* repl,
                             std::size_t m);
    std::size_t replaceAll(const unsigned short* find, std::size_t n, const unsigned short* repl,
                           std::size_t m, bool noCase);
    /// By unit value, with ASCII letters folded, or by the locale's collator.
    enum CompareMode { ByValue, NoCase, Collated };
    int compareUnits(std::size_t pos, const unsigned short* s, std::size_t n, CompareMode mode,
                     const ULocale* locale) const;
    int compareString(std::size_t pos, const UString& s, std::size_t n, CompareMode mode,
                      const ULocale* locale) const;
    int compareNarrow(std::size_t pos, const char* s, std::size_t n, ULibCharSet cs,
                      CompareMode mode, const ULocale* locale) const;
    UString& caseMap(int op, const ULocale* locale, bool option);
    UString& trimWith(TrimOp op, bool (*blank)(unsigned short));

    mutable uStrImpl* m_poImpl;
};

} // namespace qzunicode
} // namespace qzlib
} // namespace qzs

// ULocale takes a UString member, so it is declared after the string.
#include "qzunicode/ULocale.h"

#endif // QZUNICODE_USTRING_H
