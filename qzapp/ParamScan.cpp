//===- qzapp/ParamScan.cpp - Tokens, quotes, intervals and values ---------===//
//
// One scanner serves the byte and the UTF-16 forms: it is written over a
// unit type and a [begin, end) range, so that the two cannot drift apart and
// the UTF-16 form never converts its text. The reading of whole files is in
// ParamFile.cpp.
//
//===----------------------------------------------------------------------===//
#include "qzapp/ParamScan.h"

#include "qzmsg/Messages.h"
#include "qzstd/Memory.h"

#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdlib>
#include <cstring>

using qzs::qzlib::qzunicode::UString;

namespace {

template <typename U> inline bool isBlank(U c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}
template <typename U> inline bool isQuote(U c) {
    return c == '\'' || c == '"';
}
template <typename U> inline U upper(U c) {
    return (c >= 'a' && c <= 'z') ? U(c - 'a' + 'A') : c;
}

template <typename U> const U* skipBlanks(const U* p, const U* end) {
    while (p < end && isBlank(*p))
        ++p;
    return p;
}

// The close of the quote at `p`, as PARMSCN_get_close_quote describes; `end`
// stands for the terminating NUL of the byte form.
template <typename U> const U* closeQuote(const U* p, const U* end) {
    const U quote = *p++;
    while (p < end) {
        if (*p != quote) {
            ++p;
            continue;
        }
        if (p + 1 < end && p[1] == quote) { // doubled: an escaped quote
            p += 2;
            continue;
        }
        if (p + 1 >= end || p[1] != '.')
            return p;
        if (p + 2 < end && p[2] == quote) { // "a"."b": into the next part
            p += 3;
            continue;
        }
        const U* q = p + 2;
        while (q < end && *q != ' ' && *q != '\t' && *q != '\r' && *q != 0)
            ++q;
        return q;
    }
    return nullptr;
}

template <typename U> const U* closeParen(const U* p, const U* end) {
    std::size_t depth = 0;
    U quote = 0;
    for (; p < end; ++p) {
        const U c = *p;
        if (quote) {
            if (c == quote)
                quote = 0;
        } else if (isQuote(c)) {
            quote = c;
        } else if (c == '(') {
            ++depth;
        } else if (c == ')' && --depth == 0) {
            return p;
        }
    }
    return nullptr;
}

enum class Fault { None, Quote, Paren, MissingItem, TooMany };

const char* faultText(Fault f) {
    switch (f) {
    case Fault::Quote:
        return "unterminated quote";
    case Fault::Paren:
        return "unterminated parenthesis";
    case Fault::MissingItem:
        return "missing item";
    case Fault::TooMany:
        return "too many items";
    default:
        return "";
    }
}

// One token as found: the raw span [start, end) in the input, and the text
// the token holds, [textBegin, textEnd).
template <typename U> struct Raw {
    const U* start;
    const U* end;
    const U* textBegin;
    const U* textEnd;
    short type;
    short flags;
};

// Reads the token at `p` (not a blank, below `end`).
template <typename U> Fault readToken(const U* p, const U* end, bool keepQuotes, Raw<U>& t) {
    t.start = t.textBegin = p;
    t.type = PARAM_TKN_TEXT;
    t.flags = 0;
    const U c = *p;
    if (isQuote(c)) {
        const U* close = closeQuote(p, end);
        if (!close)
            return Fault::Quote;
        const bool quoteClosed = close < end && *close == c;
        t.end = t.textEnd = quoteClosed ? close + 1 : close;
        t.flags = PARAM_TKN_QUOTED;
        if (!keepQuotes) {
            ++t.textBegin;
            if (quoteClosed)
                --t.textEnd;
        }
        return Fault::None;
    }
    if (c == '(') {
        const U* close = closeParen(p, end);
        if (!close)
            return Fault::Paren;
        t.type = PARAM_TKN_LIST;
        t.textBegin = p + 1;
        t.textEnd = close;
        t.end = close + 1;
        return Fault::None;
    }
    if (c == ',' || c == '=')
        return Fault::MissingItem;
    const U* q = p;
    while (q < end && !isBlank(*q) && *q != ',' && *q != '=' && *q != '(')
        ++q;
    if (q < end && *q == '(') { // NAME(a, b): the list belongs to the word
        const U* close = closeParen(q, end);
        if (!close)
            return Fault::Paren;
        q = close + 1;
    }
    t.end = t.textEnd = q;
    return Fault::None;
}

// After a token: blanks, then one ',' or '=' that is marked in the token's
// flags. Returns where the next token may start.
template <typename U> const U* afterToken(const U* p, const U* end, Raw<U>& t) {
    p = skipBlanks(p, end);
    if (p < end && (*p == ',' || *p == '=')) {
        t.flags |= *p == ',' ? PARAM_TKN_COMMA : PARAM_TKN_EQUALS;
        p = skipBlanks(p + 1, end);
    }
    return p;
}

// Walks every token of [begin, end), handing each to `take`; stops at the
// first fault or when `take` returns a fault.
template <typename U, typename Take>
Fault scanAll(const U* begin, const U* end, bool keepQuotes, Take take) {
    const U* p = skipBlanks(begin, end);
    bool itemDue = false;
    while (p < end) {
        Raw<U> t;
        const Fault f = readToken(p, end, keepQuotes, t);
        if (f != Fault::None)
            return f;
        p = afterToken(t.end, end, t);
        itemDue = (t.flags & (PARAM_TKN_COMMA | PARAM_TKN_EQUALS)) != 0;
        const Fault g = take(t);
        if (g != Fault::None)
            return g;
    }
    return itemDue ? Fault::MissingItem : Fault::None;
}

void writeError(char* error, const char* text) {
    if (error)
        qzSnprintf(error, QZ_PARAM_ERROR_SIZE, "%s", text);
}

void freeTokens(param_tkn_def* tokens, int count) {
    for (int i = 0; i < count; ++i)
        qzFree(tokens[i].text);
    qzFree(tokens);
}

// Bulk sizes of the byte form: the groups' and one group's token array,
// shrunk to what was used at the end. Kept on purpose: one block each up
// front, so that a command of up to 100 tokens costs two allocations and two
// shrinks besides its texts. A longer one grows the token array instead of
// writing past it.
constexpr int GroupBlock = 32000;
constexpr int TokenBlock = 1600;

template <typename U> bool sameNoCase(const U* a, std::size_t n, const char* word) {
    for (std::size_t i = 0; i < n; ++i)
        if (word[i] == '\0' || upper(a[i]) != static_cast<U>(word[i]))
            return false;
    return word[n] == '\0';
}

const unsigned short* unitsOf(const UString& s) {
    return s.empty() ? nullptr : s.c_wstr();
}

} // namespace

// ---- Token groups -----------------------------------------------------------

const char* PARMSCN_get_close_quote(const char* text) {
    if (!text || !isQuote(*text))
        return nullptr;
    return closeQuote(text, text + std::strlen(text));
}

bool parse_tkns(const char* text, param_tkn_group_def** groups, short* count, char* error,
                bool keepQuotes) {
    *groups = nullptr;
    *count = 0;
    writeError(error, "");
    if (!text)
        text = "";
    const char* end = text + std::strlen(text);

    auto* group = static_cast<param_tkn_group_def*>(qzMalloc(GroupBlock));
    auto* tokens = static_cast<param_tkn_def*>(qzMalloc(TokenBlock));
    if (!group || !tokens) {
        qzFree(group);
        qzFree(tokens);
        writeError(error, "out of memory");
        return false;
    }
    int capacity = TokenBlock / static_cast<int>(sizeof(param_tkn_def));
    int n = 0;
    const Fault f = scanAll(text, end, keepQuotes, [&](const Raw<char>& t) {
        // The first block holds 100 tokens; a longer command grows the array
        // instead of writing past it.
        if (n == SHRT_MAX)
            return Fault::TooMany;
        if (n == capacity) {
            const int grown = capacity * 2 > SHRT_MAX ? SHRT_MAX : capacity * 2;
            auto* more = static_cast<param_tkn_def*>(
                qzRealloc(tokens, grown * static_cast<int>(sizeof(param_tkn_def))));
            if (!more)
                return Fault::TooMany;
            tokens = more;
            capacity = grown;
        }
        const std::size_t len = t.textEnd - t.textBegin;
        char* copy = static_cast<char*>(qzMalloc(static_cast<int>(len + 1)));
        if (!copy)
            return Fault::TooMany;
        std::memcpy(copy, t.textBegin, len);
        copy[len] = '\0';
        tokens[n++] = param_tkn_def{t.type, t.flags, copy};
        return Fault::None;
    });
    if (f != Fault::None) {
        freeTokens(tokens, n);
        qzFree(group);
        writeError(error, faultText(f));
        return false;
    }
    if (n == 0) {
        qzFree(tokens);
        tokens = nullptr;
    } else if (n < capacity) {
        if (auto* shrunk = static_cast<param_tkn_def*>(
                qzRealloc(tokens, n * static_cast<int>(sizeof(param_tkn_def)))))
            tokens = shrunk;
    }
    if (auto* shrunk =
            static_cast<param_tkn_group_def*>(qzRealloc(group, sizeof(param_tkn_group_def))))
        group = shrunk;
    group->count = static_cast<short>(n);
    group->groupCount = 1;
    group->length = static_cast<int>(end - text > INT_MAX ? INT_MAX : end - text);
    group->type = 'd';
    group->tokens = tokens;
    *groups = group;
    *count = 1;
    return true;
}

void free_tkns(param_tkn_group_def* groups, short* count) {
    if (groups && count)
        for (short g = 0; g < *count; ++g)
            freeTokens(groups[g].tokens, groups[g].count);
    qzFree(groups);
    if (count)
        *count = 0;
}

bool parse_tkns(const UString& text, std::vector<paramTknGroupDef>& groups, UString& error,
                bool keepQuotes) {
    groups.clear();
    error.clear();
    const unsigned short* begin = unitsOf(text);
    const unsigned short* end = begin + text.length();
    paramTknGroupDef group;
    group.groupCount = 1;
    group.length = static_cast<int>(text.length() > INT_MAX ? INT_MAX : text.length());
    group.type = 'd';
    const Fault f = scanAll(begin, end, keepQuotes, [&](const Raw<unsigned short>& t) {
        if (group.tokens.size() == SHRT_MAX)
            return Fault::TooMany;
        group.tokens.push_back(
            paramTknDef{t.type, t.flags,
                        UString(t.textBegin, static_cast<std::size_t>(t.textEnd - t.textBegin))});
        return Fault::None;
    });
    if (f != Fault::None) {
        error = faultText(f);
        return false;
    }
    groups.push_back(std::move(group));
    return true;
}

namespace {

// The raw token at or after `pos`, for getNextToken and the password mask.
bool nextRaw(const UString& text, unsigned long& pos, bool keepQuotes, Raw<unsigned short>& t,
             Fault& fault) {
    fault = Fault::None;
    const unsigned short* begin = unitsOf(text);
    const unsigned short* end = begin + text.length();
    if (pos >= text.length())
        return false;
    const unsigned short* p = skipBlanks(begin + pos, end);
    if (p == end)
        return false;
    fault = readToken(p, end, keepQuotes, t);
    if (fault != Fault::None) {
        pos = p - begin;
        return false;
    }
    pos = afterToken(t.end, end, t) - begin;
    return true;
}

} // namespace

bool getNextToken(const UString& text, unsigned long& pos, UString& token, bool keepQuotes,
                  UString* error) {
    token.clear();
    Raw<unsigned short> t;
    Fault fault;
    if (!nextRaw(text, pos, keepQuotes, t, fault)) {
        if (error)
            *error = faultText(fault);
        return false;
    }
    token.assign(t.textBegin, static_cast<std::size_t>(t.textEnd - t.textBegin));
    if (error)
        error->clear();
    return true;
}

// ---- Delimited token lists --------------------------------------------------

str_tkns_def* PARMSCN_strTknsNew() {
    auto* list = static_cast<str_tkns_def*>(qzCalloc(sizeof(str_tkns_def)));
    return list;
}

namespace {
void clearList(str_tkns_def* list) {
    for (int i = 0; i < list->count; ++i)
        qzFree(list->tokens[i]);
    list->count = 0;
}
} // namespace

void PARMSCN_strTknsDestroy(str_tkns_def* list) {
    if (!list)
        return;
    clearList(list);
    qzFree(list->tokens);
    qzFree(list);
}

int PARMSCN_str_get_tkns(const char* text, const char* delimiters, str_tkns_def* list) {
    if (!list)
        return -1;
    clearList(list);
    if (!text)
        return 0;
    if (!delimiters)
        delimiters = "";
    const char* p = text;
    while (*p) {
        while (*p && std::strchr(delimiters, *p))
            ++p;
        if (!*p)
            break;
        const char* start = p;
        char quote = '\0';
        while (*p && (quote || !std::strchr(delimiters, *p))) {
            if (quote && *p == quote)
                quote = '\0';
            else if (!quote && isQuote(*p))
                quote = *p;
            ++p;
        }
        if (list->count == list->capacity) {
            if (list->capacity > INT_MAX / 2 / static_cast<int>(sizeof(char*))) {
                clearList(list);
                return -1;
            }
            const int grown = list->capacity ? list->capacity * 2 : 8;
            auto** more = static_cast<char**>(
                qzRealloc(list->tokens, grown * static_cast<int>(sizeof(char*))));
            if (!more) {
                clearList(list);
                return -1;
            }
            list->tokens = more;
            list->capacity = grown;
        }
        char* copy = nullptr;
        if (!qzAllocStrncpy(&copy, start, p - start)) {
            clearList(list);
            return -1;
        }
        list->tokens[list->count++] = copy;
    }
    return list->count;
}

const char* PARMSCN_getTokenAt(const str_tkns_def* list, int index) {
    if (!list || index < 0 || index >= list->count)
        return nullptr;
    return list->tokens[index];
}

// ---- Quotes, parentheses, clauses -------------------------------------------

const char* qzFindCloseParen(const char* text) {
    if (!text || *text != '(')
        return nullptr;
    return closeParen(text, text + std::strlen(text));
}

long get_close_paren(const char* text, long open) {
    if (!text || open < 0 || static_cast<std::size_t>(open) >= std::strlen(text))
        return -1;
    const char* close = qzFindCloseParen(text + open);
    return close ? close - text : -1;
}

const char* findClause(const char* text, const char* keyword) {
    if (!text || !keyword || !*keyword)
        return nullptr;
    const std::size_t n = std::strlen(keyword);
    auto wordByte = [](char c) { return c && !isBlank(c) && !std::strchr(",=()'\";", c); };
    char quote = '\0';
    std::size_t depth = 0;
    for (const char* p = text; *p; ++p) {
        if (quote) {
            if (*p == quote)
                quote = '\0';
        } else if (isQuote(*p)) {
            quote = *p;
        } else if (*p == '(') {
            ++depth;
        } else if (*p == ')') {
            if (depth)
                --depth;
        } else if (depth == 0 && (p == text || !wordByte(p[-1])) &&
                   qzUcasencmp(p, keyword, n) == 0 && !wordByte(p[n])) {
            return p;
        }
    }
    return nullptr;
}

int qzGetQuotedParam(const char* text, char* out, unsigned long size) {
    if (out && size)
        out[0] = '\0';
    if (!text || !out || size == 0)
        return 0;
    while (isBlank(*text))
        ++text;
    if (!*text)
        return 0;
    if (isQuote(*text)) {
        const char* close = std::strchr(text + 1, *text);
        if (!close || static_cast<unsigned long>(close - text - 1) >= size)
            return 0;
        std::memcpy(out, text + 1, close - text - 1);
        out[close - text - 1] = '\0';
        return 1;
    }
    const std::size_t n = std::strlen(text);
    if (n >= size)
        return 0;
    std::memcpy(out, text, n + 1);
    return -1;
}

// ---- Values -----------------------------------------------------------------

int qzValidateParamRange(const char* name, const char* value, int low, int high) {
    errno = 0;
    char* end = nullptr;
    const long number = value ? std::strtol(value, &end, 10) : 0;
    const bool whole = value && end != value && *qzStrSkipSpace(end) == '\0' && errno == 0;
    const int result = number > INT_MAX ? INT_MAX : number < INT_MIN ? INT_MIN : int(number);
    if (!whole || number < low || number > high)
        qzs::qzlib::raiseMessage(new qzs::qzlib::CSourceContext("qzapp.parmutl", "qzapp/parmutl",
                                                                "qzValidateParamRange", __LINE__),
                                 218, qzs::qzlib::IssueAndDispose, name ? name : "");
    return result;
}

short qzReturnParamError(char* out, short code, const char* format, ...) {
    if (out) {
        va_list args;
        va_start(args, format);
        if (std::vsnprintf(out, QZ_PARAM_ERROR_SIZE, format, args) < 0)
            out[0] = '\0';
        va_end(args);
    }
    return code;
}

namespace {

struct Unit {
    const char* word;
    int seconds;
};
constexpr Unit Units[] = {
    {"S", 1},        {"SEC", 1},   {"SECS", 1},    {"SECOND", 1},   {"SECONDS", 1}, {"M", 60},
    {"MIN", 60},     {"MINS", 60}, {"MINUTE", 60}, {"MINUTES", 60}, {"H", 3600},    {"HOUR", 3600},
    {"HOURS", 3600}, {"D", 86400}, {"DAY", 86400}, {"DAYS", 86400},
};

int intervalFault(char* error, const char* prefix, const char* reason) {
    if (error)
        qzSnprintf(error, QZ_PARAM_ERROR_SIZE, "%s%s", prefix ? prefix : "", reason);
    return 0;
}

} // namespace

int qzGetTimeInterval(char* text, char* error, const char* prefix) {
    if (error)
        error[0] = '\0';
    if (!text || !*text)
        return intervalFault(error, prefix, "specification.  Interval not specified");
    char* digits = text;
    while (isBlank(*digits))
        ++digits;
    char* p = digits;
    while (*p >= '0' && *p <= '9')
        ++p;
    char* digitsEnd = p;
    while (*p == ' ' || *p == '\t')
        ++p;
    const char* word = p;
    while (*p && !isBlank(*p))
        ++p;
    const std::size_t wordLen = p - word;
    while (isBlank(*p))
        ++p;
    int seconds = 0;
    if (*p == '\0')
        for (const Unit& u : Units)
            if (sameNoCase(word, wordLen, u.word))
                seconds = u.seconds;
    if (seconds == 0)
        return intervalFault(error, prefix,
                             "Time qualifier must be either DAYS, HOURS, MINUTES or SECONDS");
    *digitsEnd = '\0';
    errno = 0;
    const long number = std::strtol(digits, nullptr, 10);
    if (digits == digitsEnd || errno != 0 || number < 1 || number > 20000000)
        return intervalFault(error, prefix, "Invalid number in interval");
    // Kept on purpose: taken in 32 bits (done unsigned, so the wrap is defined).
    return static_cast<int>(static_cast<unsigned int>(number) * static_cast<unsigned int>(seconds));
}

// ---- Cursor -----------------------------------------------------------------

namespace {

// The next token at the cursor, without moving it: true with the raw token
// and where the cursor would go next.
bool peekToken(const parse_cursor_def* cursor, bool keepQuotes, Raw<char>& t, unsigned long& next) {
    if (!cursor || !cursor->line)
        return false;
    const char* begin = cursor->line;
    const char* end = begin + std::strlen(begin);
    if (cursor->pos >= static_cast<unsigned long>(end - begin))
        return false;
    const char* p = skipBlanks(begin + cursor->pos, end);
    // A separator left by a token that did not consume it is stepped over.
    if (p < end && (*p == ',' || *p == '='))
        p = skipBlanks(p + 1, end);
    if (p == end || readToken(p, end, keepQuotes, t) != Fault::None)
        return false;
    next = afterToken(t.end, end, t) - begin;
    return true;
}

// The token as written (raw), or the text it holds.
bool copyToken(const Raw<char>& t, bool raw, char* out, unsigned long size) {
    const char* from = raw ? t.start : t.textBegin;
    const std::size_t len = (raw ? t.end : t.textEnd) - from;
    if (!out || len >= size)
        return false;
    std::memcpy(out, from, len);
    out[len] = '\0';
    return true;
}

void clearOut(char* out, unsigned long size) {
    if (out && size)
        out[0] = '\0';
}

} // namespace

bool getParseNext(parse_cursor_def* cursor, char* token, unsigned long size) {
    clearOut(token, size);
    Raw<char> t;
    unsigned long next;
    if (!peekToken(cursor, true, t, next) || !copyToken(t, true, token, size)) {
        clearOut(token, size);
        return false;
    }
    cursor->last = t.start - cursor->line;
    cursor->pos = next;
    return true;
}

bool getParseNextTwo(parse_cursor_def* cursor, char* first, char* second, unsigned long size) {
    if (!cursor)
        return false;
    const parse_cursor_def saved = *cursor;
    if (getParseNext(cursor, first, size) && getParseNext(cursor, second, size))
        return true;
    *cursor = saved;
    clearOut(first, size);
    clearOut(second, size);
    return false;
}

int getParseNextQuoted(parse_cursor_def* cursor, char* token, unsigned long size) {
    clearOut(token, size);
    Raw<char> t;
    unsigned long next;
    if (!peekToken(cursor, false, t, next) || !copyToken(t, false, token, size)) {
        clearOut(token, size);
        return 0;
    }
    cursor->last = t.start - cursor->line;
    cursor->pos = next;
    return (t.flags & PARAM_TKN_QUOTED) ? 1 : -1;
}

void qzUngetParseNext(parse_cursor_def* cursor) {
    if (cursor)
        cursor->pos = cursor->last;
}

int getParseTimeInterval(parse_cursor_def* cursor, char* error, const char* prefix) {
    if (!cursor)
        return qzGetTimeInterval(nullptr, error, prefix);
    const parse_cursor_def saved = *cursor;
    char text[128];
    char unit[64];
    if (!getParseNext(cursor, text, sizeof text))
        return qzGetTimeInterval(nullptr, error, prefix);
    const std::size_t n = std::strlen(text);
    if (n > 0 && std::strspn(text, "0123456789") == n && getParseNext(cursor, unit, sizeof unit))
        qzSnprintf(text + n, sizeof text - n, " %s", unit);
    const int seconds = qzGetTimeInterval(text, error, prefix);
    if (seconds == 0)
        *cursor = saved;
    return seconds;
}

// ---- UString helpers --------------------------------------------------------

bool qzReplacePassword(UString& text) {
    UString upper(text);
    upper.toUpper();
    const std::size_t at = upper.find("PASSWORD", 0);
    if (at == UString::npos)
        return false;
    unsigned long pos = at + 8;
    if (pos >= text.length() || (text[pos] != ' ' && text[pos] != '\t'))
        return false;
    // Departure: "PASSWORD = x" would show x, so one '=' before the token is
    // stepped over; a log line must not carry the secret either way.
    const unsigned short* units = text.c_wstr();
    unsigned long p = pos;
    while (p < text.length() && isBlank(units[p]))
        ++p;
    if (p < text.length() && units[p] == '=')
        pos = p + 1;
    Raw<unsigned short> t;
    Fault fault;
    if (!nextRaw(text, pos, true, t, fault))
        return false;
    const std::size_t start = t.start - units;
    const std::size_t length = t.end - t.start;
    text.replace(start, length, UString("***"));
    return true;
}

UString& qzTrimR(UString& text) {
    std::size_t n = text.length();
    if (n == 0)
        return text;
    const unsigned short* units = text.c_wstr();
    while (n > 0 && isBlank(units[n - 1]))
        --n;
    if (n < text.length())
        text.erase(n);
    return text;
}

UString& qzTrimL(UString& text) {
    const std::size_t length = text.length();
    if (length == 0)
        return text;
    const unsigned short* units = text.c_wstr();
    std::size_t n = 0;
    while (n < length && isBlank(units[n]))
        ++n;
    if (n > 0)
        text.erase(0, n);
    return text;
}

bool qzGetValueForParam(const UString& text, const UString& param, UString& value) {
    value.clear();
    const unsigned short* want = unitsOf(param);
    const std::size_t wantLen = param.length();
    if (wantLen == 0)
        return false;
    unsigned long pos = 0;
    Raw<unsigned short> t;
    Fault fault;
    while (nextRaw(text, pos, true, t, fault)) {
        const std::size_t n = t.textEnd - t.textBegin;
        bool same = n == wantLen;
        for (std::size_t i = 0; same && i < n; ++i)
            same = upper(t.textBegin[i]) == upper(want[i]);
        if (same)
            return getNextToken(text, pos, value, true);
    }
    return false;
}

bool qzGetSubstring(const UString& text, const UString& after, const UString& before,
                    UString& out) {
    out.clear();
    const std::size_t a = text.find(after, 0);
    if (a == UString::npos)
        return false;
    const std::size_t from = a + after.length();
    const std::size_t to = before.empty() ? text.length() : text.find(before, from);
    if (to == UString::npos)
        return false;
    out = text.substring(from, to - from);
    return true;
}
