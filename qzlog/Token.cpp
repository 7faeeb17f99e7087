//===- qzlog/Token.cpp - One conversion of a format or pattern ------------===//
#include "qzlog/detail/Token.h"

#include <cstdint>
#include <cstring>

namespace qzs {
namespace qzlib {
namespace qzlog {

void Token::clear() {
    type = '?';
    leftAlign = false;
    zeroPad = false;
    width = 0;
    precision = 0;
    option.clear();
    optionValue = 0;
    text = nullptr;
    textLength = 0;
}

unsigned int Token::parseInt(const char*& cursor, bool* leadingZero) {
    if (leadingZero)
        *leadingZero = *cursor == '0';
    uint64_t value = 0;
    bool overflow = false;
    while (*cursor >= '0' && *cursor <= '9') {
        if (!overflow) {
            value = value * 10 + static_cast<unsigned>(*cursor - '0');
            overflow = value > UINT32_MAX;
        }
        ++cursor;
    }
    return overflow ? 0 : static_cast<unsigned int>(value);
}

void Token::parseJustification(const char*& cursor) {
    leftAlign = false;
    if (*cursor == '-') {
        leftAlign = true;
        ++cursor;
    }
    if (*cursor >= '0' && *cursor <= '9') {
        width = parseInt(cursor, &zeroPad);
        if (width > MaxWidth)
            width = MaxWidth;
    } else {
        width = 0;
        zeroPad = false;
    }
    if (*cursor == '.') {
        ++cursor;
        precision = parseInt(cursor, nullptr);
        if (precision > MaxWidth)
            precision = MaxWidth;
    } else {
        precision = 0;
    }
}

bool Token::parse(const char*& cursor) {
    clear();
    if (*cursor != '%') {
        type = 0;
        text = cursor;
        const char* end = std::strchr(cursor, '%');
        textLength = end ? static_cast<unsigned long>(end - cursor) : std::strlen(cursor);
        cursor += textLength;
        return true;
    }
    ++cursor;
    parseJustification(cursor);
    char c = *cursor;
    switch (c) {
    case '%':
        type = 0;
        text = "%";
        textLength = 1;
        ++cursor;
        break;
    case 'n':
        type = 'n';
        ++cursor;
        break;
    case 'C': case 'L': case 'M': case 'S': case 'c': case 'd':
    case 'l': case 'm': case 'p': case 'r': case 't':
        type = c;
        ++cursor;
        break;
    default:
        // Unknown, the end of the pattern included: the option holds the text
        // shown in its place. Stepping past a NUL is not done, or the parse
        // would run off the pattern.
        type = '?';
        option = "%?_?";
        option[2] = c;
        if (c)
            ++cursor;
        return true;
    }
    if ((c == '%' || c == 'n') && (leftAlign || width || precision))
        return true;
    if (*cursor == '{') {
        const char* close = std::strchr(cursor + 1, '}');
        if (close) {
            option.assign(cursor + 1, close);
            bool digits = !option.empty();
            for (char d : option)
                digits = digits && d >= '0' && d <= '9';
            if (digits) {
                const char* p = option.c_str();
                optionValue = parseInt(p, nullptr);
            }
            cursor = close + 1;
        }
    }
    return true;
}

void Token::addToResult(const char* value, std::string& out) const {
    detail::TextSink sink(out);
    addToResult(value, std::strlen(value), sink);
}

void Token::justify(const char* value, size_t n, detail::TextSink& out) const {
    if (width != 0 && width > n) {
        size_t pad = width - n;
        if (zeroPad) {
            out.append(pad, '0');
            out.append(value, n);
        } else if (leftAlign) {
            out.append(value, n);
            out.append(pad, ' ');
        } else {
            out.append(pad, ' ');
            out.append(value, n);
        }
    } else if (precision == 0 || precision >= n) {
        out.append(value, n);
    } else if (leftAlign) {
        out.append(value, precision);
    } else {
        out.append(value + n - precision, precision);
    }
}

} // namespace qzlog

bool detail::TextSink::trimSince(size_t mark) {
    if (mark < m_out.size())
        return false;
    char* start = m_buffer + (mark - m_out.size());
    if (std::memchr(start, '\n', static_cast<size_t>(m_p - start)))
        return false;
    auto blank = [](char c) { return c == ' ' || c == '\t' || c == '\r'; };
    while (m_p != start && blank(m_p[-1]))
        --m_p;
    char* first = start;
    while (first != m_p && blank(*first))
        ++first;
    if (first != start) {
        std::memmove(start, first, static_cast<size_t>(m_p - first));
        m_p -= first - start;
    }
    return true;
}

void detail::TextSink::rollback(size_t mark) {
    if (mark >= m_out.size()) {
        m_p = m_buffer + (mark - m_out.size());
    } else {
        m_out.resize(mark);
        m_p = m_buffer;
    }
}

size_t detail::TextSink::column() const {
    for (const char* p = m_p; p != m_buffer;)
        if (*--p == '\n')
            return static_cast<size_t>(m_p - p - 1);
    size_t lastNewline = m_out.rfind('\n');
    size_t pending = static_cast<size_t>(m_p - m_buffer);
    return lastNewline == std::string::npos ? m_out.size() + pending : m_out.size() - lastNewline - 1 + pending;
}

namespace qzlog {

void Token::indentLines(std::string& text, size_t indent) {
    if (indent == 0)
        return;
    for (size_t at = text.find('\n'); at != std::string::npos; at = text.find('\n', at + 1 + indent))
        text.insert(at + 1, indent, ' ');
}

} // namespace qzlog
} // namespace qzlib
} // namespace qzs
