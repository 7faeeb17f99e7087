//===- qzunicode/CharSetTable.h - The character set table ------*- C++ -*-===//
//
// The system's one table of character sets: the number that names each set,
// the name ICU opens it under, its other names, MIME name and IBM CCSID, and
// its size facts. Every conversion and every string that holds bytes asks
// this table about its set; the lookups here need no converter and no lock.
//
//===----------------------------------------------------------------------===//
#ifndef QZUNICODE_CHARSETTABLE_H
#define QZUNICODE_CHARSETTABLE_H

#include "qzstd/Export.h"

#include <cstdint>

namespace qzs {
namespace qzlib {
namespace qzunicode {

/// A character set number. The numbers of the table fall in four blocks:
/// Unicode 0 to 11, single byte 1000 to 1124, multi-byte 5000 to 5041 and
/// database names 10000 to 10229. Any 32-bit value may be held; a value in no
/// block is simply unknown to the table.
///
/// 1 is UTF-16 and 4 UTF-32 in native byte order, 2 and 5 big-endian, 3 and 6
/// little-endian. Rows have no enumerator of their own: callers use the
/// numbers or CharSetTable::toCharSet.
enum ULibCharSet : std::int32_t {
    /// The top bit. Added to a set number, it says the bytes may hold escape
    /// sequences. Every lookup of this table masks it off.
    ULIB_CS_ESCAPE_FLAG = INT32_MIN,
    /// No character set: what every failed lookup by name or CCSID returns.
    ULIB_CS_INVALID = 0x20000000,
    /// The default character set of the process. Accepted wherever a set
    /// number is; the size, flag and CCSID lookups answer for the set it
    /// stands for, the name lookups treat it as in no block.
    ULIB_CS_DEFAULT = 0x40000000,
};

/// One row of the table. Rows are constant data with static lifetime: the
/// pointers may be kept for ever.
struct QZ_API ULibCharSetInfo {
    /// The name ICU opens the set under. Never null.
    const char* pszConverterName;
    /// Second name for toCharSet, may be null. In the single-byte and
    /// multi-byte blocks, ICU's full converter name (with an ICU option such
    /// as ",swaplfnl" where the set has a newline-swapped form).
    const char* pszAlias1;
    /// Third name for toCharSet, may be null.
    const char* pszAlias2;
    /// IANA MIME name, may be null.
    const char* pszMIMEName;
    /// IBM CCSID, -1 when the set has none.
    std::int32_t nCCSID;
    /// Bytes 0x00 to 0x7F are ASCII.
    unsigned char bUSASCIICompatible;
    /// The set is an EBCDIC set.
    unsigned char bEBCDIC;
    /// Smallest, largest character and the terminating null, in bytes.
    unsigned char nMinCharSize;
    unsigned char nMaxCharSize;
    unsigned char nNullCharSize;
};

/// One block of the table: nRows consecutive numbers from nFirst.
struct QZ_API ULibCharSetBlock {
    std::int32_t nFirst;
    std::int32_t nRows;
    const ULibCharSetInfo* pRows;
};

/// The lookups over the table. All are static, take no lock and never fail
/// loudly: an unknown number, a null or unknown name give the fallback each
/// function states. The top bit (ULIB_CS_ESCAPE_FLAG) of an argument is
/// masked off before any lookup.
///
/// Thread safety: the table is constant. fromCCSID keeps a per-thread cache;
/// the process default (defaultCharSet) is one shared value read and written
/// without a lock, which is harmless because every writer stores the same
/// result for the same ICU state.
class QZ_API CharSetTable {
public:
    /// The four blocks in number order: Unicode, single byte, multi-byte,
    /// database. REQUIRES: 0 <= index < numBlocks.
    static constexpr int numBlocks = 4;
    static const ULibCharSetBlock& block(int index);

    /// The row of cs, or null when cs is in no block. ULIB_CS_DEFAULT is in
    /// no block here: it is not resolved.
    static const ULibCharSetInfo* getInfo(ULibCharSet cs);

    /// pszConverterName of cs; null when cs (ULIB_CS_DEFAULT included) is in
    /// no block.
    static const char* toConverterName(ULibCharSet cs);
    /// pszMIMEName of cs, which may be null; null when cs (ULIB_CS_DEFAULT
    /// included) is in no block.
    static const char* toMIMEName(ULibCharSet cs);

    /// The CCSID, -1 when cs is in no block. ULIB_CS_DEFAULT answers for the
    /// process default, as do the flag and size accessors below.
    static std::int32_t toCCSID(ULibCharSet cs);
    /// The flag; false when cs is in no block.
    static bool isUSASCIICompatible(ULibCharSet cs);
    static bool isEBCDIC(ULibCharSet cs);
    /// The size in bytes; 1 when cs is in no block.
    static int getMinCharSize(ULibCharSet cs);
    static int getMaxCharSize(ULibCharSet cs);
    static int getNullCharSize(ULibCharSet cs);

    /// The first row, in the block order Unicode, database, single byte,
    /// multi-byte, whose converter name, then first alias, then second alias
    /// equals `name` ignoring ASCII case. ULIB_CS_INVALID for a null or
    /// unknown name.
    static ULibCharSet toCharSet(const char* name);
    /// The same search over the MIME names.
    static ULibCharSet fromMIMEName(const char* name);

    /// The first row, in the block order Unicode, single byte, multi-byte,
    /// database (not the order of toCharSet), with this CCSID. When no row
    /// has it, a short fixed list of CCSIDs that name a row's set under
    /// another number (1250 to 1258, 932, 5026, 5035, 13488). ULIB_CS_INVALID
    /// for 0, negative or unknown CCSIDs. Hits in the table are cached per
    /// thread.
    static ULibCharSet fromCCSID(std::int32_t ccsid);

    /// The set ULIB_CS_DEFAULT stands for. While the stored value is
    /// ULIB_CS_INVALID it is found from the name of ICU's default converter
    /// and stored; ULIB_CS_INVALID when that name is in no row.
    static ULibCharSet defaultCharSet();
    /// Stores cs (top bit masked) as the process default, for the front end
    /// that changes ICU's default converter. ULIB_CS_INVALID makes the next
    /// defaultCharSet() look it up again.
    static void storeDefaultCharSet(ULibCharSet cs);
};

} // namespace qzunicode
} // namespace qzlib
} // namespace qzs

// Plain entry points with unmangled names, for hosts and the other modules.
// Each forwards to the CharSetTable lookup of like name.
extern "C" {
QZ_API qzs::qzlib::qzunicode::ULibCharSet ULIB_toCharSet(const char* name);
QZ_API qzs::qzlib::qzunicode::ULibCharSet ULIB_fromMIMEName(const char* name);
QZ_API qzs::qzlib::qzunicode::ULibCharSet ULIB_fromCCSID(std::int32_t ccsid);
QZ_API const char* ULIB_toConverterName(qzs::qzlib::qzunicode::ULibCharSet cs);
QZ_API const char* ULIB_toMIMEName(qzs::qzlib::qzunicode::ULibCharSet cs);
QZ_API std::int32_t ULIB_toCCSID(qzs::qzlib::qzunicode::ULibCharSet cs);
QZ_API bool ULIB_isUSASCIICompatible(qzs::qzlib::qzunicode::ULibCharSet cs);
QZ_API bool ULIB_isEBCDIC(qzs::qzlib::qzunicode::ULibCharSet cs);
QZ_API int ULIB_getMinCharSize(qzs::qzlib::qzunicode::ULibCharSet cs);
QZ_API int ULIB_getMaxCharSize(qzs::qzlib::qzunicode::ULibCharSet cs);
QZ_API int ULIB_getNullCharSize(qzs::qzlib::qzunicode::ULibCharSet cs);
/// The process default set: CharSetTable::defaultCharSet().
QZ_API qzs::qzlib::qzunicode::ULibCharSet ULIB_getDefaultCharSet();
}

#endif // QZUNICODE_CHARSETTABLE_H
