//===- qzunicode/ULib.h - Plain conversion entry points --------*- C++ -*-===//
//
// The conversion functions the rest of the system and hosts call, with plain
// unmangled names. ULIB_CStoCS converts between any two sets; the others are
// its narrower forms and the thread's conversion settings. The table lookups
// (ULIB_toCharSet, ULIB_getMaxCharSize, ...) are declared with the table.
//
// Every conversion reports through a ULibError* that may be null, returns what
// it wrote (each declaration says whether in bytes or in UTF-16 units), never
// writes past the room it is given and never throws. Source and target may
// sit at any address.
//
//===----------------------------------------------------------------------===//
#ifndef QZUNICODE_ULIB_H
#define QZUNICODE_ULIB_H

#include "qzstd/Export.h"

#include "qzunicode/ULibTypes.h"
#include "qzunicode/CharSetTable.h"

#include <cstddef>

extern "C" {

/// Converts srcBytes bytes of source (-1: up to the source's terminator) into
/// at most dstBytes bytes of target, and at most maxChars characters when it
/// is not 0. ULIB_CS_DEFAULT on either side is the process default; 3 is taken
/// as 1 and 6 as 4.
///
/// Copies with no converter where it can: UTF-16 to UTF-16 and UTF-32 to
/// UTF-32 (swapping bytes between orders), a set to itself, US-ASCII to a set
/// compatible with it. A UTF-16 copy never splits a surrogate pair. Otherwise
/// source to UTF-16 to target; forceConversion takes that path even for a
/// copy, and substitute replaces bad characters whatever the thread's
/// behaviour. On overflow the target holds whole characters and err is
/// ULIB_ERR_BUFFER_OVERFLOW; except that a single-byte set copied to itself is
/// cut at dstBytes.
///
/// A conversion that stops at a bad or cut character keeps what came before
/// it and always says why it stopped: ULIB_ERR_INVALID_CHAR (ULIB_ERR_UNKNOWN
/// for a character cut by the end of the source), even where the text passes
/// through UTF-16 and the second step alone would have met nothing wrong.
///
/// Null dst or src, dstBytes below 1, srcBytes below -1, maxChars above
/// 0x7fffffff, an odd UTF-16 or a UTF-32 length not a multiple of 4:
/// ULIB_ERR_ILLEGAL_ARGUMENT and 0. detail may be null.
///
/// Result: bytes written, for every target, UTF-16 and UTF-32 ones included
/// (twice the UTF-16 units).
QZ_API int ULIB_CStoCS(qzs::qzlib::qzunicode::ULibCharSet target, void* dst, int dstBytes,
                unsigned int maxChars, qzs::qzlib::qzunicode::ULibCharSet source, const void* src,
                int srcBytes, bool forceConversion, bool substitute,
                qzs::qzlib::qzunicode::ULibError* err,
                qzs::qzlib::qzunicode::ULibBadCharDetail* detail);

/// Maps one source character to one target character in the calling thread's
/// optimised converters for the pair, and for the pairs with the big-endian
/// sibling of a UTF-16 or UTF-32 side (1 to 3 count as 1, 4 to 6 as 4).
/// ULIB_ERR_NO_CONVERTER when no optimised converter serves the pair;
/// otherwise the first converter's non-zero result, or 0.
QZ_API int ULIB_charMapOverride(qzs::qzlib::qzunicode::ULibCharSet source, unsigned long sourceChar,
                         qzs::qzlib::qzunicode::ULibCharSet target, unsigned long targetChar);

/// cs to native UTF-16: at most dstUnits units. Result: UTF-16 units written,
/// not bytes (unlike ULIB_CStoCS to set 1).
QZ_API int ULIB_toUTF16(qzs::qzlib::qzunicode::ULibCharSet cs, unsigned short* dst, int dstUnits,
                 const char* src, int srcBytes, qzs::qzlib::qzunicode::ULibError* err);
/// Native UTF-16 (srcUnits -1: up to a zero unit) to cs. Result: bytes.
QZ_API int ULIB_fromUTF16(qzs::qzlib::qzunicode::ULibCharSet cs, char* dst, int dstBytes,
                   const unsigned short* src, int srcUnits, qzs::qzlib::qzunicode::ULibError* err);
/// ULIB_CStoCS with UTF-8 as the target, or as the source. Result: bytes
/// written.
QZ_API int ULIB_toUTF8(qzs::qzlib::qzunicode::ULibCharSet cs, char* dst, int dstBytes, const char* src,
                int srcBytes, qzs::qzlib::qzunicode::ULibError* err);
QZ_API int ULIB_fromUTF8(qzs::qzlib::qzunicode::ULibCharSet cs, char* dst, int dstBytes, const char* src,
                  int srcBytes, qzs::qzlib::qzunicode::ULibError* err);

/// Units up to a zero unit; characters up to a zero 32-bit value. Null: 0.
QZ_API int ULIB_getNumUTF16Units(const unsigned short* p);
QZ_API int ULIB_getNumUTF32Chars(const unsigned int* p);
/// Writes n copies of c at dst, which may be at an odd address. Null dst or n
/// 0 do nothing.
QZ_API void ULIB_fillChars(unsigned short* dst, unsigned short c, std::size_t n);

/// True unless ICU cannot open cs, so the thread's ISO-8859-1 converter would
/// stand in. Numbers in no block open ICU's default and are supported.
QZ_API bool ULIB_isSupported(qzs::qzlib::qzunicode::ULibCharSet cs);

/// The calling thread's behaviour on bad characters (default ULIB_CNV_STOP)
/// and fallback flag (default false). Other threads are not affected.
QZ_API qzs::qzlib::qzunicode::ULibCnvErrBehavior ULIB_getConverterErrorBehavior();
QZ_API void ULIB_setConverterErrorBehavior(qzs::qzlib::qzunicode::ULibCnvErrBehavior behaviour);
QZ_API bool ULIB_getFallback();
QZ_API void ULIB_setFallback(bool fallback);
/// The calling thread's substitution string, 0 to 4 units (default U+001A).
/// Too long or null: ULIB_ERR_ILLEGAL_ARGUMENT and nothing changes.
QZ_API qzs::qzlib::qzunicode::ULibError ULIB_setSubstString(const unsigned short* p, int n);
/// n on entry is the room of buf, on return the length.
QZ_API qzs::qzlib::qzunicode::ULibError ULIB_getSubstString(unsigned short* buf, int* n);

/// ICU's name of the converter ULIB_CS_DEFAULT opens.
QZ_API const char* ULIB_getDefaultCharSetName();
/// Makes cs the process default (ICU's default converter too) and returns
/// the set that now stands for ULIB_CS_DEFAULT, which may differ from cs when
/// ICU normalises the name. Process-wide: affects every thread.
QZ_API qzs::qzlib::qzunicode::ULibCharSet ULIB_setDefaultCharSet(qzs::qzlib::qzunicode::ULibCharSet cs);
}

#endif // QZUNICODE_ULIB_H
