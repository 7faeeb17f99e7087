//===- qzstd/StringUtil.cpp - Small utilities on C strings ----------------===//
//
// Byte-wise and locale-free on purpose: the C library's toupper and isspace
// follow the process locale, and a parameter file must read the same
// whatever LANG the process was started with.
//
//===----------------------------------------------------------------------===//
#include "qzstd/StringUtil.h"

#include "qzstd/Memory.h"

#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace {

inline bool isBlank(char c) {
    return c == ' ' || c == '\t';
}
inline bool isWhite(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\v' || c == '\f';
}
inline char upper(char c) {
    return (c >= 'a' && c <= 'z') ? static_cast<char>(c - 'a' + 'A') : c;
}
inline char lower(char c) {
    return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
}

// Trims bytes for which `cut` holds off the chosen ends; the front by moving
// the text down so that the caller's pointer stays the start.
template <typename Pred> char* trimWith(char* text, bool front, bool back, Pred cut) {
    if (!text)
        return text;
    std::size_t n = std::strlen(text);
    if (back) {
        while (n > 0 && cut(text[n - 1]))
            --n;
        text[n] = '\0';
    }
    if (front) {
        std::size_t skip = 0;
        while (skip < n && cut(text[skip]))
            ++skip;
        if (skip > 0)
            std::memmove(text, text + skip, n - skip + 1);
    }
    return text;
}

// Upper-cases outside quotes; with `skipPaths`, words holding a '/' too.
char* upshiftOutsideQuotes(char* text, bool skipPaths) {
    if (!text)
        return text;
    char quote = '\0';
    char* p = text;
    while (*p) {
        if (quote) {
            if (*p == quote)
                quote = '\0';
            ++p;
        } else if (*p == '\'' || *p == '"') {
            quote = *p++;
        } else if (skipPaths && !std::strchr(" \t,=()", *p)) {
            // A word: left alone when it is a path. A quote ends the word, so
            // that the quoted text after it keeps its own rule.
            char* end = p;
            bool path = false;
            while (*end && !std::strchr(" \t,=()'\"", *end))
                path |= *end++ == '/';
            if (!path)
                for (char* q = p; q < end; ++q)
                    *q = upper(*q);
            p = end;
        } else {
            *p = upper(*p);
            ++p;
        }
    }
    return text;
}

} // namespace

char* qzAllocStrncpy(char** target, const char* source, std::size_t count) {
    if (!source) {
        qzFree(*target);
        *target = nullptr;
        return nullptr;
    }
    const std::size_t n = strnlen(source, count);
    if (n >= static_cast<std::size_t>(INT_MAX))
        return nullptr;
    // Copied before the old string goes: `source` may point into it.
    char* copy = static_cast<char*>(qzMalloc(static_cast<int>(n + 1)));
    if (!copy)
        return nullptr;
    std::memcpy(copy, source, n);
    copy[n] = '\0';
    qzFree(*target);
    *target = copy;
    return copy;
}

char* qzAllocStrcpy(char** target, const char* source) {
    return qzAllocStrncpy(target, source, static_cast<std::size_t>(-1));
}

char* qzUpshift(char* text) {
    for (char* p = text; p && *p; ++p)
        *p = upper(*p);
    return text;
}

char* qzDownshift(char* text) {
    for (char* p = text; p && *p; ++p)
        *p = lower(*p);
    return text;
}

char* qzUpshiftNotQuoted(char* text) {
    return upshiftOutsideQuotes(text, false);
}
char* qzUpshiftNotQuotedNotDir(char* text) {
    return upshiftOutsideQuotes(text, true);
}

char* qzTrim(char* text) {
    return trimWith(text, true, true, isBlank);
}
char* qzLTrim(char* text) {
    return trimWith(text, true, false, isBlank);
}
char* qzRTrim(char* text) {
    return trimWith(text, false, true, isBlank);
}
char* qzFullTrim(char* text) {
    return trimWith(text, true, true, isWhite);
}
char* qzTrimLFs(char* text) {
    return trimWith(text, false, true, [](char c) { return c == '\r' || c == '\n'; });
}

char* qzTrimAll(char* text) {
    if (!text)
        return text;
    char* out = text;
    for (const char* p = text; *p; ++p)
        if (!isBlank(*p))
            *out++ = *p;
    *out = '\0';
    return text;
}

std::size_t qzRTrimByLength(char* text, std::size_t length) {
    if (!text)
        return 0;
    std::size_t n = strnlen(text, length);
    while (n > 0 && text[n - 1] == ' ')
        --n;
    if (n < length)
        text[n] = '\0';
    return n;
}

std::size_t qzRTrimUTF16ByLength(unsigned short* text, std::size_t length) {
    if (!text)
        return 0;
    std::size_t n = 0;
    while (n < length && text[n] != 0)
        ++n;
    while (n > 0 && text[n - 1] == 0x20)
        --n;
    if (n < length)
        text[n] = 0;
    return n;
}

bool qzRTrimLastChar(char* text, const char* set) {
    if (!text || !set || !*text)
        return false;
    const std::size_t n = std::strlen(text);
    if (!std::strchr(set, text[n - 1]))
        return false;
    text[n - 1] = '\0';
    return true;
}

char* qzTruncStr(char* text, std::size_t maxBytes) {
    if (!text || strnlen(text, maxBytes + 1) <= maxBytes)
        return text;
    std::size_t cut = maxBytes;
    // A continuation byte (10xxxxxx) at the cut means a character crosses
    // it: back off to that character's lead byte, which goes too.
    while (cut > 0 && (static_cast<unsigned char>(text[cut]) & 0xC0) == 0x80)
        --cut;
    text[cut] = '\0';
    return text;
}

int qzSub(char* text, char from, char to) {
    if (!text || from == '\0')
        return 0;
    int count = 0;
    for (char* p = text; *p; ++p)
        if (*p == from) {
            *p = to;
            ++count;
        }
    return count;
}

bool qzSubStr(char* text, std::size_t size, const char* find, const char* replace) {
    if (!text || !find || !*find)
        return false;
    char* at = std::strstr(text, find);
    if (!at)
        return false;
    const std::size_t length = std::strlen(text);
    const std::size_t findLen = std::strlen(find);
    const std::size_t replLen = replace ? std::strlen(replace) : 0;
    if (length - findLen + replLen >= size)
        return false;
    std::memmove(at + replLen, at + findLen, length - (at - text) - findLen + 1);
    if (replLen)
        std::memcpy(at, replace, replLen);
    return true;
}

int qzSubStrAll(char* text, std::size_t size, const char* find, const char* replace) {
    if (!text || !find || !*find)
        return 0;
    const std::size_t findLen = std::strlen(find);
    const std::size_t replLen = replace ? std::strlen(replace) : 0;
    std::size_t length = std::strlen(text);
    // Count first, so that a result that does not fit changes nothing.
    int count = 0;
    for (const char* p = std::strstr(text, find); p; p = std::strstr(p + findLen, find))
        ++count;
    if (count == 0)
        return 0;
    const std::size_t result = length - count * findLen + count * replLen;
    if (result >= size || count == INT_MAX)
        return -1;
    if (replLen <= findLen) {
        // Shrinking or equal: one pass from the front writes behind the reader.
        char* out = text;
        const char* in = text;
        for (const char* at = std::strstr(in, find); at; at = std::strstr(in, find)) {
            std::memmove(out, in, at - in);
            out += at - in;
            std::memcpy(out, replace, replLen);
            out += replLen;
            in = at + findLen;
        }
        std::memmove(out, in, std::strlen(in) + 1);
    } else {
        // Growing: the matches are known not to overlap what is written, so
        // fill from the back, reading each match's place from the front.
        const char** places = static_cast<const char**>(qzMalloc(count * sizeof(char*)));
        if (!places)
            return -1;
        int k = 0;
        for (const char* p = std::strstr(text, find); p; p = std::strstr(p + findLen, find))
            places[k++] = p;
        std::size_t in = length;
        std::size_t out = result;
        text[out] = '\0';
        for (k = count - 1; k >= 0; --k) {
            const std::size_t at = places[k] - text;
            const std::size_t tail = in - (at + findLen);
            std::memmove(text + out - tail, text + at + findLen, tail);
            out -= tail;
            out -= replLen;
            std::memcpy(text + out, replace, replLen);
            in = at;
        }
        qzFree(places);
    }
    return count;
}

int qzUcasencmp(const char* a, const char* b, std::size_t count) {
    if (!a || !b)
        return (a ? 1 : 0) - (b ? 1 : 0);
    for (std::size_t i = 0; i < count; ++i) {
        const unsigned char x = static_cast<unsigned char>(upper(a[i]));
        const unsigned char y = static_cast<unsigned char>(upper(b[i]));
        if (x != y)
            return x < y ? -1 : 1;
        if (x == 0)
            break;
    }
    return 0;
}

const char* qzUcaseStr(const char* haystack, const char* needle) {
    if (!haystack || !needle)
        return nullptr;
    const std::size_t n = std::strlen(needle);
    for (const char* p = haystack;; ++p) {
        if (qzUcasencmp(p, needle, n) == 0)
            return p;
        if (!*p)
            return nullptr;
    }
}

const char* qzStrRFind(const char* haystack, const char* needle) {
    if (!haystack || !needle)
        return nullptr;
    const std::size_t h = std::strlen(haystack);
    const std::size_t n = std::strlen(needle);
    if (n > h)
        return nullptr;
    for (std::size_t i = h - n + 1; i-- > 0;)
        if (std::memcmp(haystack + i, needle, n) == 0)
            return haystack + i;
    return nullptr;
}

const char* qzStrSkipSpace(const char* text) {
    while (text && isWhite(*text))
        ++text;
    return text;
}

bool qzIsWildcardMatch(const char* pattern, const char* text) {
    if (!pattern || !text)
        return false;
    // Greedy with one backtrack point: the last '*' seen and where in the
    // text it started. Earlier stars never need revisiting, because the last
    // one can absorb anything they could.
    const char* star = nullptr;
    const char* resume = nullptr;
    while (*text) {
        if (*pattern == '*') {
            star = pattern++;
            resume = text;
        } else if (*pattern == '?' || (*pattern && *pattern == *text)) {
            ++pattern;
            ++text;
        } else if (star) {
            pattern = star + 1;
            text = ++resume;
        } else {
            return false;
        }
    }
    while (*pattern == '*')
        ++pattern;
    return *pattern == '\0';
}

bool qzIsPrint(const char* text) {
    if (!text)
        return false;
    for (; *text; ++text)
        if (static_cast<unsigned char>(*text) < 0x20 || static_cast<unsigned char>(*text) > 0x7E)
            return false;
    return true;
}

std::size_t qzEscapePercents(const char* in, char* out, std::size_t size) {
    std::size_t need = 0;
    std::size_t written = 0;
    for (const char* p = in; p && *p; ++p) {
        const std::size_t width = *p == '%' ? 2 : 1;
        // Once one piece did not fit nothing more is written, so that the
        // text is a clean prefix of the whole result.
        if (written == need && out && need + width < size) {
            out[written++] = *p;
            if (width == 2)
                out[written++] = '%';
        }
        need += width;
    }
    if (out && size > 0)
        out[written] = '\0';
    return need;
}

int qzSnprintf(char* out, std::size_t size, const char* format, ...) {
    if (!out || size == 0)
        return 0;
    va_list args;
    va_start(args, format);
    const int n = std::vsnprintf(out, size, format, args);
    va_end(args);
    if (n < 0) {
        out[0] = '\0';
        return 0;
    }
    return static_cast<std::size_t>(n) < size ? n : static_cast<int>(size - 1);
}

int qzPrintLn(const char* format, ...) {
    va_list args;
    va_start(args, format);
    const int n = std::vprintf(format, args);
    va_end(args);
    std::fflush(stdout);
    return n;
}

char* qzTrimComment(char* line) {
    if (!line)
        return line;
    const std::size_t n = std::strlen(line);
    const bool hadNewline = std::memchr(line, '\n', n) != nullptr;
    char quote = '\0';
    std::size_t cut = n;
    for (std::size_t i = n; i-- > 0;) {
        const char c = line[i];
        if (quote) {
            if (c == quote)
                quote = '\0';
        } else if (c == '\'' || c == '"') {
            quote = c;
        } else if (c == '-' && line[i + 1] == '-') {
            cut = i; // walking left, the last one found is the leftmost
        }
    }
    if (cut < n) {
        // A cut leaves at least the two dashes' room, so the newline fits.
        if (hadNewline)
            line[cut++] = '\n';
        line[cut] = '\0';
    }
    return line;
}
