//===- qzstd/NumberConversion.h - Database numbers and 64-bit values -*- C++ -*-===//
//
// Moves numbers between the forms in which databases store them (text, zoned
// and packed decimal, binary integers, floating point) and the pair of a
// signed 64-bit value and a signed 16-bit scale, the count of digits behind
// the decimal point. Integer to text itself is in qzstd/NumberString.h.
//
// The functions report by result code and never issue a message for bad
// syntax. A value out of range in database data is reported as a catalogue
// message (module "qzstd.conv.number"), and the conversion goes on with the
// wrapped value: the messages are errors, none of them ends the process.
// None of the functions writes past the sizes documented on it.
//
//===----------------------------------------------------------------------===//
#ifndef QZSTD_NUMBERCONVERSION_H
#define QZSTD_NUMBERCONVERSION_H

#include "qzstd/ColumnDef.h"
#include "qzstd/Export.h"

#include <cstddef>

// Data type numbers (col_def::data_type) as these functions read them.
#define QZ_DT_VARCHAR 64     ///< two-byte length in host order, then the text
#define QZ_DT_INT16 130      ///< signed 16-bit binary, host order
#define QZ_DT_UINT16 131     ///< unsigned 16-bit binary
#define QZ_DT_INT32 132      ///< signed 32-bit binary
#define QZ_DT_UINT32 133     ///< unsigned 32-bit binary
#define QZ_DT_INT64 134      ///< 64-bit binary
#define QZ_DT_UINT64 135     ///< 64-bit binary
#define QZ_DT_FLOAT 140      ///< IEEE single
#define QZ_DT_DOUBLE 141     ///< IEEE double
#define QZ_DT_UNSIGNED 150   ///< unsigned decimal text
#define QZ_DT_SIGN_FIRST 151 ///< decimal text with '+' or '-' in the first byte
#define QZ_DT_SIGN_HIGH 152  ///< decimal text, high bit of the first byte set if negative
#define QZ_DT_SIGN_LAST 153  ///< decimal text with a separate sign byte at the end
#define QZ_DT_SIGN_LOW 154   ///< decimal text, high bit of the last byte set if negative
#define QZ_DT_PACKED 189     ///< packed decimal, sign in the last low nibble

//===-- Table context -----------------------------------------------------===//

/// "NUMCNV_TableContext": the name under which a converting thread publishes
/// the table and column whose data it converts.
QZ_API extern const char* const NUMCNV_TableContextName;

/// Publishes, for the calling thread only, the table (qualified, in dotted
/// form) and column being converted. Both texts are copied; a null or empty
/// table clears the publication, a null column is "". While a table is
/// published, NUMCNV_getNumeric, NUMCNV_getUnsignedNumFromStr and the readers
/// built on them set the error context items "ErrQualifiedTableName" and
/// "ErrColumnName" to these texts and raise the table variant of their
/// messages (1736 for 1072, 1506 for 1159, 1507 for 1160) with the same
/// arguments; the catalogue texts read the two names from the error context.
QZ_API void NUMCNV_SetTableContext(const char* qualifiedTable, const char* column);
/// Ends the calling thread's publication.
QZ_API void NUMCNV_ClearTableContext();

//===-- Text to integer with limits --------------------------------------===//

/// Reads s with strtol in base 10 (leading blanks and one sign allowed) and
/// stores it in *out when all of s was used, errno stayed clear of ERANGE,
/// min <= max, and min <= value <= max (so the value fits in 32 bits).
/// Returns 1 on success, 0 on failure. On failure, when errBuf is not null,
/// the text of message 10001965 (s, min, max) is built for the caller, never
/// issued, and copied to errBuf: REQUIRES errBuf to hold 2048 bytes (at most
/// 2047 characters and a NUL are written). A null s is a failure.
QZ_API int qzGetInt(const char* s, int* out, int min, int max, char* errBuf);
/// As qzGetInt for the whole 64-bit range, with message 10001966; errBuf is
/// always written on failure.
QZ_API int qzGetLong(const char* s, long* out, long min, long max, char (&errBuf)[2048]);
/// As qzGetInt for unsigned 16-bit values, with message 10001967. A negative
/// text is below min and fails (strtol's value is tested, not a wrapped one).
QZ_API int qzGetUshort(const char* s, unsigned short* out, unsigned short min, unsigned short max,
                       char* errBuf);

/// Returns 0 and stores strtol's value when s is empty, or is digits behind
/// at most one leading '+' or '-' that has something behind it; 1 otherwise
/// (null included), with *out untouched. Digits past the 64-bit range store
/// strtol's clamped value.
QZ_API int qz_atol(const char* s, long* out);
/// The same rule over the n characters at s (a sign only at index 0 and only
/// when n > 1), and the value is theirs alone: nothing behind them is read.
/// n 0 means s is a NUL-terminated text: strtol's value of it, result 0.
QZ_API int qz_atol(const char* s, size_t n, long* out);

//===-- Text checks ------------------------------------------------------===//

/// True for an optional sign and one or more digits, nothing else. Null is
/// false.
QZ_API bool NUMCNV_string_is_integer(const char* s);

/// True for a float-like text of n characters: the first a digit, '+', '-'
/// or '.'; the rest digits, '+', '-', '.', 'E' or 'e', with at most one '.'
/// and that one before any exponent letter, at most one exponent letter, and
/// a later sign only directly behind the exponent letter. A loose check,
/// kept on purpose: "1E", "." and "+" pass. Null or n 0 is false.
QZ_API bool validate_numeric_string(const char* s, size_t n);

/// The end of the number token at p (NUL-terminated): an optional sign and
/// digits; with allowPoint one '.' and more digits; with allowExponent, and
/// a digit seen, an 'E' or 'e' with an optional sign and at least one digit
/// (an exponent letter without digits ends the token before the letter).
/// Returns p when the token has no digit.
QZ_API const char* NUMCNV_getEndOfNumberToken(const char* p, int allowPoint, int allowExponent);

/// Reads n hexadecimal characters as pairs with sscanf's "%2X" (so a pair
/// may also be " F", "+F" or, wrapping to 0xFF, "-1") until n characters are
/// used or a pair fails; an odd n reads its last character alone. Only the n
/// characters are read. REQUIRES out to hold (n + 1) / 2 bytes. Stores the
/// count of bytes through outLen when given.
QZ_API void NUMCNV_hex_to_bin(unsigned char* hex, int n, unsigned char* out, int* outLen);

//===-- Text to scaled 64-bit --------------------------------------------===//

/// Reads n characters: an optional first sign, digits, at most one '.', and
/// an optional size suffix 'K', 'M' or 'G' (any case, a shift of 10, 20 or
/// 30 bits) that is the last character or stands before a 'B' or 'b', after
/// which nothing is looked at ("10KBx" is 10240). Any other character, a
/// sign elsewhere, a second '.' or a suffix followed by something else is a
/// failure: result 0, nothing stored. Otherwise stores the value and the
/// scale (digits behind the '.'), result 1; an empty text is 0.
///
/// With honourSuffix 0 the suffix is accepted and ignored, but kept on
/// purpose: only while the text has at most 19 digits (a longer text has its
/// suffix applied).
///
/// Out of range, the conversion goes on and the value wraps (kept on
/// purpose), after a message: at the 19th digit a positive value past the
/// 64-bit range raises 2772 and a negative one 2773 (the text as argument);
/// more than 19 digits raise 1072 (19, count); a shifted value too large
/// raises 1160, too small 1159 (the text). With a published table context
/// (see NUMCNV_SetTableContext) the table variants are raised instead.
QZ_API int NUMCNV_getNumeric(const char* s, size_t n, long* value, short* scale, int honourSuffix);

/// Reads n digits as an unsigned 64-bit value with no overflow test (kept on
/// purpose: 20 digits past the range wrap silently); 21 or more digits raise
/// 1072 (20, count), or its table variant, and the value is still stored.
/// n 0 stores 0. Any non-digit: result 0, nothing stored; else 1.
QZ_API int NUMCNV_getUnsignedNumFromStr(const char* s, size_t n, unsigned long* value);

/// Reads n characters of a number with an optional sign, '.' and exponent
/// ('E' or 'e' and an integer from -99990 to 99990, by qzGetInt) into value
/// and scale, keeping the first 18 significant digits, or 19 when the 19th
/// is the last character and the result fits; a dropped 19th digit of 5 to
/// 9 rounds up, later digits are dropped. Trailing zeros are then moved into
/// the scale ("1500" is 15, scale -2). A text with nothing significant, or
/// whose first significant character is an exponent letter, is 0, scale 0,
/// without looking further. Returns 0, or -1 for n < 1, a bad character, a
/// bad or over-long (256+ characters) exponent, or a scale past 16 bits.
QZ_API int NUMCNV_convertTo64Bit(const char* s, int n, long* value, short* scale);

/// Writes the number of n characters in scientific form: an optional '-',
/// the first significant digit, '.', further digits up to dstSize - 7
/// characters in all (the last rounded half up), trailing zeros and '.'
/// stripped, then 'E' and the exponent when it isn't 0 ("1.5E-3", "1E1",
/// "-2"). Zero, or a text that starts with an exponent letter, is "0".
/// Returns the length, or -1 for n < 1, dstSize < 11, a bad character or
/// exponent, or a final exponent outside -9999 to 9999. Writes at most
/// dstSize bytes, the NUL included.
QZ_API int NUMCNV_convertToScientific(const char* s, int n, char* dst, size_t dstSize);

/// Writes the number of n characters in plain form with at most `scale`
/// digits behind the point, rounded half up, fewer where dstSize has no room
/// for them; a negative scale rounds to the left of the point and fills with
/// zeros ("2.5" is "3" with scale 0 and "0" with scale -1). A result of
/// nothing but zeros is "0", never "-0". Returns the length, or -1 for
/// n < 1, dstSize < 2, a bad character, or integer digits that don't fit
/// (dstSize - 1 bytes, less one for a '-'). Writes at most dstSize bytes.
QZ_API int NUMCNV_convertToFixedPrec(const char* s, int n, char* dst, int scale, size_t dstSize);

/// Copies the number text of n characters into dst for column col: a column
/// of sub_data_type 3 or 37 goes through NUMCNV_convertToFixedPrec with its
/// scale, falling back to NUMCNV_convertToScientific; any other (or a null
/// col) is copied as it is when n < dstSize, else made scientific. Leading
/// zeros behind a sign are then removed ("0.5" becomes ".5", kept on
/// purpose); a text left empty, or beginning behind a sign with an exponent
/// letter or with a '.' followed by nothing or an exponent letter, is "0",
/// result 1. Returns the length, or -1 (also for n < 0 or dstSize < 1).
QZ_API int NUMCNV_copyNumberString(const char* s, int n, char* dst, int dstSize,
                                   const col_def* col);

/// Reads the value of column col at data into value and scale: type 64 of
/// sub-type 2, 3, 35 or 37 by NUMCNV_convertTo64Bit over its text (the
/// length field bounded by int_len - 2); types 0 and 1 by NUMCNV_getNumeric
/// over int_len, without suffixes; 140 (a float) and 141 (a double) by
/// get_ll_from_double; anything else by num_to_ll over int_len, with the
/// column's scale. Returns 0, or -1 on failure.
QZ_API int NUMCNV_getColNumDataAs64Bit(col_def* col, const char* data, long* value, short* scale);

//===-- Scale and 64-bit arithmetic --------------------------------------===//

/// Moves *value from scale to targetScale, where a scale below the target
/// divides by ten per step (truncating, the last step rounding half away
/// from zero) and a scale above it multiplies by ten per step. A product
/// past the 64-bit range raises 2775 (positive) or 2774 (negative) with the
/// value, scale, targetScale and the limit, and wraps (kept on purpose). A
/// value of 0 is left alone.
QZ_API void adjust_scale(long* value, short scale, short targetScale);

/// 10 to the n in 64 bits, wrapping past 10^18 (kept on purpose); n < 0 is 1.
QZ_API long qzs_pow10(short n);

//===-- Database forms and 64-bit values ---------------------------------===//

/// Reads `length` bytes at data of the given type into *value: binary 130 to
/// 135 (length at least the size), 150 and 151 by NUMCNV_getNumeric without
/// suffixes, 152 and 154 with the sign in the high bit of the first or last
/// byte, 153 with the sign byte last ('-' negative, anything else positive;
/// length at least 2), 64 by its length field (bounded by length - 2; a
/// text of 0 bytes fails), 189 by get_packed_decimal with `precision`. The
/// caller's data is never changed. Any other type leaves *value as passed.
/// Returns 1, or 0 on failure. Messages as for NUMCNV_getNumeric.
QZ_API int num_to_ll(long* value, const char* data, size_t length, size_t precision, short type);

/// Writes value into the field of `length` bytes at dst in the given form.
/// Binary 130 to 135: the value in 2, 4 or 8 bytes when it is below the
/// type's upper limit and length holds them; only the upper limit is tested,
/// so a negative value into 131 or 133 passes (kept on purpose). Returns the
/// size. Any other type goes through ll_to_dec and returns the bytes
/// written, without a terminator. 0 on failure.
QZ_API int ll_to_num(long value, char* dst, size_t length, short type, size_t precision);

/// Writes value as decimal text of type 150 to 154, or packed (189), into
/// dst, padding the digits with '0' to fill the field: 150 (negative fails),
/// 151 ('+' or '-' then digits), 152 and 154 (the sign in the high bit of the
/// first or last byte), 153 (digits to length - 1, then the sign written at
/// index length - 2, over the last digit: kept on purpose, it is how the
/// form has always been written), 189 (digits to `precision`, then
/// output_packed_decimal into length bytes). REQUIRES dst to hold length + 1
/// bytes (length for 189). Digits that don't fit the field are a failure.
/// Stores the bytes written through outLen (length for 189). Returns 0 on
/// success, non-zero on failure.
QZ_API int ll_to_dec(long value, char* dst, size_t length, short type, size_t precision,
                     size_t* outLen);

/// Reads `length` bytes of data of the given type by num_to_ll and stores
/// the value as a signed binary integer of `size` bytes (1, 2, 4 or 8, host
/// order) at dst. Returns 1, or 0 when the data can't be read, size is
/// another, or the value doesn't fit in size bytes (dst untouched then).
QZ_API int convert_num_to_binary(char* dst, const char* data, size_t length, short type,
                                 size_t size, size_t precision);

/// Reads the data by num_to_ll and writes it by output_binary_int with the
/// given scale, as a signed 64-bit value unless the type is 150. Returns the
/// length written, or 0 with an empty dst when the data can't be read.
/// REQUIRES dst as for output_binary_int.
QZ_API int output_decimal(char* dst, const char* data, short type, short scale, size_t length,
                          size_t precision);

/// Writes the integer of `size` bytes (1, 2, 4 or 8) at src, signed or not,
/// as decimal text with a NUL: a negative scale appends -scale zeros (also
/// to 0, kept on purpose: "0000"), a positive one puts '.' before the last
/// scale digits, as "0." and zeros when the digits are no more than scale
/// ("0.005"). Returns the length; any other size writes "" and returns 0.
/// REQUIRES dst to hold 23 + |scale| bytes.
QZ_API int output_binary_int(char* dst, const void* src, short scale, size_t size, short isSigned);

//===-- Floating point ---------------------------------------------------===//

/// strtod of the n characters at s (or up to a NUL), whatever their form:
/// result 1 always, 0.0 for a text that isn't a number (kept on purpose).
QZ_API int get_double(const char* s, size_t n, double* out);

/// Formats the double at d in the shortest plain decimal that reads back as
/// the same double, and reads that by NUMCNV_getNumeric: 0.1 gives 1 with
/// scale 1. Result 0 for NaN, infinities and magnitudes of 2^63 or more,
/// which no 64-bit value holds. (Formatting with "%.22g", as this once did,
/// printed digits past the double's precision, 0.1 as 22 of them, so the
/// reading raised 1072 and stored a wrapped value: a silent loss of data.)
QZ_API int get_ll_from_double(const void* d, long* value, short* scale);

/// The float (size 4, "%.14g") or double (any other size, "%.17g") at src
/// as text with a NUL. REQUIRES dst to hold 32 bytes. Returns the length.
QZ_API int output_float(char* dst, const void* src, size_t size);

/// For size 4, rewrites in place the float of the older form (bit 31 the
/// sign, bits 9 to 30 the fraction m, bits 0 to 8 the exponent e; its value
/// (1 + m / 2^22) * 2^(e - 256)) as an IEEE single, infinite or 0 where the
/// single can't hold it. Any other size does nothing.
QZ_API void convert_from_tdm_float(void* v, size_t size);

/// Reads size bytes (at most 8) at src as a big-endian unsigned number and
/// writes it by i64ToString (so 8 bytes with the top bit set read negative,
/// kept on purpose). Returns 1 when a byte has a bit set other than 0x20,
/// else 0. Size 9 or more writes "" and returns 0. REQUIRES dst of 21 bytes.
QZ_API int convert_bin_to_dec(const void* src, char* dst, size_t size);

/// The byte-comparable form: a negative number has all bits inverted, any
/// other its sign bit set, and the bytes are reversed so that the result
/// lies in memory most significant byte first; memcmp of two results orders
/// as the numbers do (NaN aside).
QZ_API double NUMCNV_nativeToZorvexDouble(double value);
QZ_API float NUMCNV_nativeToZorvexFloat(float value);

//===-- Packed decimal ---------------------------------------------------===//

/// Reads `bytes` bytes of packed decimal: digits from the high nibble of the
/// first byte (not read when precision is even) to the high nibble of the
/// last, whose low nibble is the sign, 0xD negative and any other positive
/// (not checked, kept on purpose). More than 19 digits wrap. Returns 1 with
/// *value stored, or 0 for bytes 0 or a digit nibble above 9.
QZ_API int get_packed_decimal(const char* src, size_t bytes, size_t precision, long* value);

/// Writes the nDigits digit characters at digits as packed decimal into dst:
/// all dstLen bytes are zeroed, then the digits fill nDigits / 2 + 1 bytes
/// from the start (an even count starting in the low nibble of the first
/// byte), the last sharing its byte with the sign 0xD (negative) or 0xC.
/// Returns 1, or 0 when dstLen is below nDigits / 2 + 1 (nothing written) or
/// a character isn't a digit.
QZ_API int output_packed_decimal(const char* digits, size_t nDigits, char* dst, size_t dstLen,
                                 short negative);

#endif // QZSTD_NUMBERCONVERSION_H
