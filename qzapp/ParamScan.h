//===- qzapp/ParamScan.h - Parameter files and their tokens ----*- C++ -*-===//
//
// The processes are driven by parameter files: commands of words, quoted
// text and parenthesised lists, with comments, continued lines, included
// (OBEY) files and environment values. This header reads such files one
// command at a time, splits a command into tokens, and holds the helpers for
// quoted values, intervals and passwords in text that goes to a log.
//
// Token rules, shared by every scanner here. Blanks are ' ', '\t', '\r' and
// '\n'. A token is one of:
//  - quoted: from a ' or " to its close (PARMSCN_get_close_quote); a doubled
//    quote inside is an escaped quote and stays doubled in the token;
//  - parenthesised: "(...)" up to the matching ')', nesting counted and
//    parentheses within quotes ignored; the token is the text inside;
//  - plain: up to the first blank, ',', '=' or '(' or the end; a plain word
//    that runs into '(' takes the parenthesised text with it, so that
//    "NAME(a, b)" is one token.
// After a token, blanks and then one ',' or '=' are consumed; an item must
// follow such a separator.
//
// Error texts written by the scanners (byte for byte): "unterminated quote",
// "unterminated parenthesis", "missing item", "too many items".
//
//===----------------------------------------------------------------------===//
#ifndef QZAPP_PARAMSCAN_H
#define QZAPP_PARAMSCAN_H

#include "qzstd/Export.h"
#include "qzstd/StringUtil.h"

#include "qzunicode/UString.h"

#include <cstdio>
#include <vector>

/// Bytes of every error buffer the scanners write (parse_tkns,
/// qzGetTimeInterval, getParseTimeInterval, qzReturnParamError). Longer
/// texts are cut to fit.
constexpr unsigned long QZ_PARAM_ERROR_SIZE = 256;

// ---- Token groups ----------------------------------------------------------

/// param_tkn_def::type of a plain or quoted token.
constexpr short PARAM_TKN_TEXT = 100;
/// param_tkn_def::type of a parenthesised list; the text is what is inside.
constexpr short PARAM_TKN_LIST = 101;

/// Bits of param_tkn_def::flags.
constexpr short PARAM_TKN_QUOTED = 0x1; ///< the token was quoted
constexpr short PARAM_TKN_COMMA = 0x2;  ///< a ',' followed it
constexpr short PARAM_TKN_EQUALS = 0x4; ///< a '=' followed it

/// One token. `text` is NUL-terminated and owned by the group's array.
struct param_tkn_def {
    short type;
    short flags;
    char* text;
};

/// One group of tokens. A group starts at the input's start, and the type
/// word of the first group is 'd'. The scanner makes one group per input
/// today; `groupCount` is the number of groups made, set in each.
struct param_tkn_group_def {
    short count;      ///< tokens in `tokens`
    short groupCount; ///< groups in the array this group belongs to
    int length;       ///< bytes of the input the group covers
    int type;         ///< 'd' for the first group
    param_tkn_def* tokens;
};

/// Splits `text` into tokens. On success `*groups` receives a qzMalloc'd
/// array of `*count` groups, to be released with free_tkns, and the result
/// is true. With `keepQuotes` a quoted token keeps its outer quotes;
/// otherwise the opening quote and a closing one go, and anything after the
/// close (the ".b" of "'a'.b") stays. On failure the result is false,
/// nothing is left allocated, `*groups` is null, `*count` 0, and `error`
/// (QZ_PARAM_ERROR_SIZE bytes, or null) holds one of the error texts above.
/// A group holds at most 32,767 tokens ("too many items").
QZ_API bool parse_tkns(const char* text, param_tkn_group_def** groups, short* count, char* error,
                       bool keepQuotes);

/// Releases what parse_tkns made; sets `*count` to 0. Null is accepted.
QZ_API void free_tkns(param_tkn_group_def* groups, short* count);

/// A token of the UString scanner.
struct paramTknDef {
    short type;  ///< PARAM_TKN_TEXT or PARAM_TKN_LIST
    short flags; ///< PARAM_TKN_ bits
    qzs::qzlib::qzunicode::UString text;
};

/// A group of the UString scanner; as param_tkn_group_def, `length` in
/// UTF-16 units.
struct paramTknGroupDef {
    short groupCount;
    int length;
    int type;
    std::vector<paramTknDef> tokens;
};

/// parse_tkns on UTF-16 text. `groups` is replaced; on failure it is
/// emptied and `error` holds the error text.
QZ_API bool parse_tkns(const qzs::qzlib::qzunicode::UString& text,
                       std::vector<paramTknGroupDef>& groups, qzs::qzlib::qzunicode::UString& error,
                       bool keepQuotes);

/// Reads the token at or after `pos` (blanks skipped) into `token`, and
/// moves `pos` past it and past one ',' or '=' that follows. False, with
/// `token` empty, when no token is left or the token is not closed (`error`,
/// when not null, then says which, and `pos` is left at the token). With
/// `keepQuotes` false a quoted token loses its outer quotes.
QZ_API bool getNextToken(const qzs::qzlib::qzunicode::UString& text, unsigned long& pos,
                         qzs::qzlib::qzunicode::UString& token, bool keepQuotes = true,
                         qzs::qzlib::qzunicode::UString* error = nullptr);

// ---- Delimited token lists -------------------------------------------------

/// A list of tokens split at delimiter bytes. Owns its texts.
struct str_tkns_def {
    int count;
    int capacity;
    char** tokens;
};

/// An empty list (qzMalloc'd); release with PARMSCN_strTknsDestroy.
QZ_API str_tkns_def* PARMSCN_strTknsNew();
/// Frees the list and its texts. Null is accepted.
QZ_API void PARMSCN_strTknsDestroy(str_tkns_def* list);

/// Replaces the contents of `list` by the tokens of `text` split at any
/// byte of `delimiters`, as strtok does: runs of delimiters count as one
/// and give no empty tokens. A delimiter between quotes does not split (the
/// quotes stay in the token; an unterminated quote runs to the end). Returns
/// the number of tokens, or -1 when memory runs out (the list is then empty).
QZ_API int PARMSCN_str_get_tkns(const char* text, const char* delimiters, str_tkns_def* list);

/// Token `index` (from 0) of `list`, owned by it; null out of range.
QZ_API const char* PARMSCN_getTokenAt(const str_tkns_def* list, int index);

// ---- Quotes, parentheses, clauses ------------------------------------------

/// `text` points at an opening quote (' or "). Returns where the quoted
/// text ends, or null when it is not closed:
///  - a doubled quote is an escaped quote and is stepped over;
///  - a single quote not followed by '.' is the close, and is returned;
///  - a close followed by '.' and the same quote ("a"."b") is a qualified
///    name, and the walk goes on into the next part;
///  - a close followed by '.' and anything else ("a".b) runs on to the next
///    blank, tab, '\r' or NUL, and that byte is returned (it is not part of
///    the token).
QZ_API const char* PARMSCN_get_close_quote(const char* text);

/// `text` points at '('. The matching ')', nesting counted and parentheses
/// within quotes ignored; null when there is none.
QZ_API const char* qzFindCloseParen(const char* text);

/// As qzFindCloseParen by index: the index of the ')' that matches the
/// '(' at `text[open]`, or -1.
QZ_API long get_close_paren(const char* text, long open);

/// The first `keyword` in `text` that stands as a word (not inside another
/// word, quotes or parentheses), without regard to case; null when absent.
/// findClause("MAP a, TARGET b, COLUMNS (x = 'TARGET')", "TARGET") finds the
/// second word of the clause list.
QZ_API const char* findClause(const char* text, const char* keyword);

/// Skips blanks, then copies the value into `out` (`size` bytes). An
/// unquoted value is the whole rest of the text: copied, result -1 (0 when
/// it does not fit). A quoted value is copied without its quotes up to the
/// next same quote: result 1 (0 when there is no close or it does not
/// fit). Empty input gives 0. Kept on purpose: a doubled quote ends the
/// value at its first half ('it''s' gives "it").
QZ_API int qzGetQuotedParam(const char* text, char* out, unsigned long size);

// ---- Values ----------------------------------------------------------------

/// The integer in `value`; when it is not a whole number or lies outside
/// [low, high], message 218 is raised with `name`. The number is returned
/// either way (saturated to int, 0 when there are no digits).
QZ_API int qzValidateParamRange(const char* name, const char* value, int low, int high);

/// Formats into `out` (QZ_PARAM_ERROR_SIZE bytes, cut to fit) and returns
/// `code`, so that a scanner can fail in one statement.
QZ_API short qzReturnParamError(char* out, short code, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

/// Seconds of an interval such as "10 SECS": digits, optional blanks and
/// tabs, a unit word without regard to case (S/SEC/SECS/SECOND/SECONDS,
/// M/MIN/MINS/MINUTE/MINUTES, H/HOUR/HOURS, D/DAY/DAYS), optional trailing
/// blanks. `text` is written to: cut after the digits. On a fault the result
/// is 0 and `error` (QZ_PARAM_ERROR_SIZE bytes, or null) holds `prefix`
/// followed by the reason. The number must lie in [1, 20000000]. Kept on
/// purpose: the product is taken in 32 bits, so 20000000 DAYS wraps.
QZ_API int qzGetTimeInterval(char* text, char* error, const char* prefix);

// ---- Cursor over a command line ------------------------------------------

/// Where a reader stands in one command line. Make it with {line}; the
/// line must outlive the cursor and is never written.
struct parse_cursor_def {
    const char* line;
    unsigned long pos = 0;  ///< the next byte to read
    unsigned long last = 0; ///< where the token read last began
};

/// The next token (the rules above) into `token` (`size` bytes) as
/// written: quotes and a list's parentheses kept. False at the end of the line, on an unclosed
/// token, or when it does not fit; the cursor then stays where it was and `token` is "".
QZ_API bool getParseNext(parse_cursor_def* cursor, char* token, unsigned long size);

/// Two tokens, or neither: on false the cursor stays where it was.
QZ_API bool getParseNextTwo(parse_cursor_def* cursor, char* first, char* second,
                            unsigned long size);

/// The next token with its outer quotes removed (a list without its
/// parentheses). 1 when it was quoted, -1
/// when not, 0 as getParseNext's false.
QZ_API int getParseNextQuoted(parse_cursor_def* cursor, char* token, unsigned long size);

/// Steps back to the start of the token read last, so that it is read
/// again. Only one step: a second unget stays there.
QZ_API void qzUngetParseNext(parse_cursor_def* cursor);

/// An interval at the cursor: a token, and when it is all digits the token
/// after it as the unit ("10 SECS", or "10SECS" in one). As qzGetTimeInterval;
/// on 0 the cursor stays where it was.
QZ_API int getParseTimeInterval(parse_cursor_def* cursor, char* error, const char* prefix);

// ---- UString helpers -------------------------------------------------------

/// Replaces the token after the first "PASSWORD" (any case) by "***" when a
/// blank or tab follows the word; any other byte after it, or no token,
/// leaves the text alone. Only the first occurrence is treated. Returns
/// whether the text changed.
QZ_API bool qzReplacePassword(qzs::qzlib::qzunicode::UString& text);

/// Blanks, tabs, '\r' and '\n' off the end; returns `text`.
QZ_API qzs::qzlib::qzunicode::UString& qzTrimR(qzs::qzlib::qzunicode::UString& text);
/// The same off the front.
QZ_API qzs::qzlib::qzunicode::UString& qzTrimL(qzs::qzlib::qzunicode::UString& text);

/// The token after the word `param` (any case, as a whole token) in
/// `text`: "LOGINID x, PASSWORD y" with "PASSWORD" gives "y". Quotes are
/// kept. False when the word is absent or nothing follows it.
QZ_API bool qzGetValueForParam(const qzs::qzlib::qzunicode::UString& text,
                               const qzs::qzlib::qzunicode::UString& param,
                               qzs::qzlib::qzunicode::UString& value);

/// The text between the first `after` and the next `before` following it
/// (to the end when `before` is empty). False when either is not found.
QZ_API bool qzGetSubstring(const qzs::qzlib::qzunicode::UString& text,
                           const qzs::qzlib::qzunicode::UString& after,
                           const qzs::qzlib::qzunicode::UString& before,
                           qzs::qzlib::qzunicode::UString& out);

// ---- Reading parameter files -----------------------------------------------

/// Bits of qzGetNextCommand's `flags`.
constexpr int QZ_CMD_ECHO = 0x1;             ///< print each command (qzPrintLn), password masked
constexpr int QZ_CMD_NO_SUBSTITUTE = 0x2;    ///< leave ?NAME as written
constexpr int QZ_CMD_QUIET_SUBSTITUTE = 0x4; ///< substitute, but print no "?NAME = value" line
constexpr int QZ_CMD_NO_OBEY = 0x8;          ///< return OBEY as a command instead of reading it

/// OBEY files read inside one another at most; a deeper one is skipped.
constexpr int QZ_CMD_MAX_OBEY_DEPTH = 16;

/// Reads the next whole command of `file` into `buffer` (`size` bytes,
/// always terminated when size > 0) and returns its length; 0 at the end of
/// the file and of every OBEY file it named (the buffer then holds "").
///
/// Per line, in this order:
///  1. blanks and newlines are trimmed off both ends; a line whose first
///     word is COMMENT (any case) is skipped, as is a line left empty;
///  2. SEMICOLONTERMINATE (any case, alone on its line) switches this file
///     to commands that end with a line ending in ';', lines joined with
///     one blank; otherwise a command is one line, a '\' at its end
///     continuing it on the next (the '\' becomes one blank);
///  3. the "--" comment is cut (qzTrimComment) and blanks trimmed.
/// Per command:
///  4. "OBEY name" (the name may be quoted, a final ';' is dropped) opens
///     the file, and commands come from it until its end, then from the
///     file that named it again. The OBEY is not returned;
///  5. each ?NAME (letters, digits, '_') that names an environment variable
///     is replaced by its value; unset ones stay as written. Values are not
///     scanned again;
///  6. for each value substituted "?NAME = value\n" is printed, the value
///     shown as "***" when NAME, or the word before ?NAME, is PASSWORD or PW;
///  7. in MAP, FILE, QUERY and TABLE a final ';' is removed, and the text
///     trimmed again;
///  8. with QZ_CMD_ECHO the command is printed by qzPrintLn("%s\n"), its
///     password masked by qzReplacePassword.
/// A command cut off by the end of its file is returned as it stands.
///
/// Faults raise messages from "qzapp.parmutl" and reading goes on with the
/// next command where there is one:
///  - 1091, an OBEY file that cannot be opened (skipped);
///  - 219, a command longer than size - 1 bytes, substitutions included
///    (skipped whole, continued lines and all);
///  - 220, a file not read: a directory, an OBEY file that is not a regular
///    file (a device or FIFO would block or never end), an OBEY of a file
///    already being read (a cycle: skipped), OBEY files nested more than
///    QZ_CMD_MAX_OBEY_DEPTH deep (skipped), a NUL byte (the rest of that
///    file is skipped as binary), or a read error.
///
/// State: the SEMICOLONTERMINATE mode and the open OBEY files belong to
/// `file` between calls, and are dropped when 0 is returned. A caller that
/// stops before that calls qzEndCommands before closing `file`. One thread
/// at a time per `file`; different files may be read on different threads.
QZ_API int qzGetNextCommand(char* buffer, unsigned long size, FILE* file, int flags);

/// Forgets the reading state of `file` and closes the OBEY files it opened.
/// Harmless when there is none.
QZ_API void qzEndCommands(FILE* file);

#endif // QZAPP_PARAMSCAN_H
