//===- qzstd/StringUtil.h - Small utilities on C strings -------*- C++ -*-===//
//
// Copying, case, trimming, substitution, comparison and matching on
// NUL-terminated byte strings, for parameter text and fixed-width database
// fields. Everything is ASCII-only and locale-free: bytes above 0x7F pass
// through unchanged, so UTF-8 text survives every call here.
//
// Common contract: a null string is accepted wherever a string is read or
// changed in place and does nothing (the result says "nothing": null, 0 or
// false). Functions that write into a caller's buffer take its size in bytes,
// NUL included, never write past it and always terminate it when the size is
// not 0. In-place functions return their argument so that calls can nest.
//
//===----------------------------------------------------------------------===//
#ifndef QZSTD_STRINGUTIL_H
#define QZSTD_STRINGUTIL_H

#include "qzstd/Export.h"

#include <cstddef>

// ---- Heap copies -----------------------------------------------------------

/// Replaces the heap string `*target` (qzMalloc'd or null) by a qzMalloc'd
/// copy of `source`, and returns the copy. The old string is freed after the
/// copy is made, so `source` may be `*target` itself. A null `source` frees
/// `*target` and leaves it null. On failure to allocate (message 1088) or a
/// string of INT_MAX bytes or more, `*target` is left as it was and the
/// result is null. The caller owns the result (qzFree).
QZ_API char* qzAllocStrcpy(char** target, const char* source);

/// As qzAllocStrcpy, copying at most `count` bytes of `source` (fewer when
/// its NUL comes first) and terminating the copy.
QZ_API char* qzAllocStrncpy(char** target, const char* source, std::size_t count);

// ---- Case --------------------------------------------------------------------

/// ASCII letters to upper case, in place.
QZ_API char* qzUpshift(char* text);
/// ASCII letters to lower case, in place.
QZ_API char* qzDownshift(char* text);
/// As qzUpshift, but text between a quote (' or ") and the next same quote
/// is left alone; an unterminated quote protects the rest of the text.
QZ_API char* qzUpshiftNotQuoted(char* text);
/// As qzUpshiftNotQuoted, and a word holding a '/' (a path such as
/// "trails/aa") is left alone too. A word is a run of bytes up to a blank,
/// tab, ',', '=', '(' or ')'.
QZ_API char* qzUpshiftNotQuotedNotDir(char* text);

// ---- Trimming ----------------------------------------------------------------
// "Blanks" are ' ' and '\t'; "white space" adds '\r', '\n', '\v' and '\f'.
// Trimming the front moves the text down, so the pointer stays the same.

/// Blanks off both ends.
QZ_API char* qzTrim(char* text);
/// Blanks off the front.
QZ_API char* qzLTrim(char* text);
/// Blanks off the end.
QZ_API char* qzRTrim(char* text);
/// Removes every blank, wherever it is ("a b\tc" becomes "abc").
QZ_API char* qzTrimAll(char* text);
/// White space off both ends, newlines included.
QZ_API char* qzFullTrim(char* text);
/// '\r' and '\n' off the end.
QZ_API char* qzTrimLFs(char* text);

/// A fixed-width field of `length` bytes (a NUL inside ends it earlier; none
/// is needed at the end): returns its length without trailing blanks and
/// NULs, and writes a NUL there when that is below `length`. Nothing is
/// written at `text[length]`, so the field may fill its buffer exactly.
QZ_API std::size_t qzRTrimByLength(char* text, std::size_t length);

/// As qzRTrimByLength on UTF-16 units, trimming U+0020 and U+0000.
QZ_API std::size_t qzRTrimUTF16ByLength(unsigned short* text, std::size_t length);

/// Removes the last byte of `text` when it is one of `set`; true when it
/// did. Blanks before it are not trimmed (the caller trims after).
QZ_API bool qzRTrimLastChar(char* text, const char* set);

/// Cuts `text` to at most `maxBytes` bytes, backing off to the start of a
/// UTF-8 sequence so that no character is split.
QZ_API char* qzTruncStr(char* text, std::size_t maxBytes);

// ---- Substitution --------------------------------------------------------

/// Replaces every byte `from` by `to`; returns how many. `from` may not be
/// NUL (it would end the string): 0 then.
QZ_API int qzSub(char* text, char from, char to);

/// Replaces the first `find` in `text`, a buffer of `size` bytes, by
/// `replace`. True when replaced; false, with `text` unchanged, when `find`
/// is empty or absent or the result would not fit.
QZ_API bool qzSubStr(char* text, std::size_t size, const char* find, const char* replace);

/// Replaces every `find`, left to right, never rescanning replaced text.
/// Returns how many; -1, with `text` unchanged, when the result would not
/// fit in `size` bytes. An empty `find` replaces nothing.
QZ_API int qzSubStrAll(char* text, std::size_t size, const char* find, const char* replace);

// ---- Comparison and searching --------------------------------------------

/// strncmp on ASCII upper case: <0, 0 or >0 over at most `count` bytes,
/// comparing bytes as unsigned. Null sorts before any string.
QZ_API int qzUcasencmp(const char* a, const char* b, std::size_t count);

/// The first `needle` in `haystack` without regard to ASCII case; null when
/// absent. An empty needle is found at the start.
QZ_API const char* qzUcaseStr(const char* haystack, const char* needle);
inline char* qzUcaseStr(char* haystack, const char* needle) {
    return const_cast<char*>(qzUcaseStr(static_cast<const char*>(haystack), needle));
}

/// The last `needle` in `haystack`; null when absent. An empty needle is
/// found at the terminating NUL.
QZ_API const char* qzStrRFind(const char* haystack, const char* needle);
inline char* qzStrRFind(char* haystack, const char* needle) {
    return const_cast<char*>(qzStrRFind(static_cast<const char*>(haystack), needle));
}

/// The first byte of `text` that is not white space (possibly its NUL).
QZ_API const char* qzStrSkipSpace(const char* text);
inline char* qzStrSkipSpace(char* text) {
    return const_cast<char*>(qzStrSkipSpace(static_cast<const char*>(text)));
}

/// Whether `text` matches `pattern`, in which '*' stands for any run of
/// bytes (none included) and '?' for one byte; case counts. Linear in
/// practice and O(pattern x text) at worst, with no recursion, so hostile
/// patterns cannot exhaust the stack.
QZ_API bool qzIsWildcardMatch(const char* pattern, const char* text);

/// Whether every byte of `text` is printable ASCII (0x20 to 0x7E). True for
/// "", false for null.
QZ_API bool qzIsPrint(const char* text);

// ---- Formatting ----------------------------------------------------------

/// Copies `in` to `out` (`size` bytes) with each '%' doubled, so that the
/// result can be a printf format. Returns the length the whole result needs,
/// as snprintf does: a value of `size` or more means `out` was cut, and then
/// it is cut before a pair, never between its two '%'.
QZ_API std::size_t qzEscapePercents(const char* in, char* out, std::size_t size);

/// vsnprintf into `out` (`size` bytes), returning the bytes actually written
/// without the NUL (never more than size - 1, never negative). A format
/// error leaves "" and gives 0.
QZ_API int qzSnprintf(char* out, std::size_t size, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

/// printf to standard output, then fflush, so that a line printed for a
/// report file shows at once and in order with what other streams write.
/// Adds nothing: a line needs its own "\n". Returns printf's result.
QZ_API int qzPrintLn(const char* format, ...) __attribute__((format(printf, 1, 2)));

// ---- Parameter text ------------------------------------------------------

/// Cuts a "--" comment off `line`. Quotes (' and ") are tracked walking
/// backwards from the end, and the leftmost "--" outside them is the start
/// of the comment. When the line held a '\n', one is kept in place of the
/// comment. Kept on purpose: the backward walk means a lone apostrophe
/// before a comment ("it's -- note") does not hide it.
QZ_API char* qzTrimComment(char* line);

#endif // QZSTD_STRINGUTIL_H
