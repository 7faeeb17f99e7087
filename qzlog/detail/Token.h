//===- qzlog/detail/Token.h - One conversion of a format or pattern ---*- C++ -*-===//
//
// A token is one piece of a pattern layout: a literal or a conversion with
// its justification. The justification rules are shared with the message
// format of an event.
//
//===----------------------------------------------------------------------===//
#ifndef QZLOG_DETAIL_TOKEN_H
#define QZLOG_DETAIL_TOKEN_H

#include <cstring>
#include <string>

namespace qzs {
namespace qzlib {
namespace detail {

/// Appends to a std::string through a buffer on the stack, so that the many
/// small pieces of one formatted line cost a copy each and one append in all.
/// Flushes when it goes out of scope. Not thread-safe; one per call.
class TextSink {
public:
    explicit TextSink(std::string& out) : m_out(out), m_p(m_buffer) {}
    ~TextSink() { flush(); }
    TextSink(const TextSink&) = delete;
    TextSink& operator=(const TextSink&) = delete;

    void append(const char* text, size_t n) {
        const size_t room = static_cast<size_t>(m_buffer + sizeof m_buffer - m_p);
        if (n <= 16 && room >= 16) {
            // Most pieces of a line are short: two overlapping fixed-size
            // moves cost less than a call to memcpy.
            if (n >= 8) {
                std::memcpy(m_p, text, 8);
                std::memcpy(m_p + n - 8, text + n - 8, 8);
            } else if (n >= 4) {
                std::memcpy(m_p, text, 4);
                std::memcpy(m_p + n - 4, text + n - 4, 4);
            } else {
                for (size_t i = 0; i < n; ++i)
                    m_p[i] = text[i];
            }
            m_p += n;
        } else if (n <= room) {
            std::memcpy(m_p, text, n);
            m_p += n;
        } else {
            flush();
            m_out.append(text, n);
        }
    }
    void append(size_t count, char c) {
        if (count <= static_cast<size_t>(m_buffer + sizeof m_buffer - m_p)) {
            std::memset(m_p, c, count);
            m_p += count;
        } else {
            flush();
            m_out.append(count, c);
        }
    }
    void flush() {
        if (m_p != m_buffer) {
            m_out.append(m_buffer, static_cast<size_t>(m_p - m_buffer));
            m_p = m_buffer;
        }
    }
    /// Room for `n` characters (at most the buffer's size) at the end of the
    /// sink, to be written in place and then committed: one copy less.
    char* reserve(size_t n) {
        if (static_cast<size_t>(m_buffer + sizeof m_buffer - m_p) < n)
            flush();
        return m_p;
    }
    void commit(size_t n) { m_p += n; }
    /// The text not yet flushed, and forgetting it (after it was written
    /// elsewhere): a line that fits the buffer need not reach the string.
    const char* pending() const { return m_buffer; }
    size_t pendingSize() const { return static_cast<size_t>(m_p - m_buffer); }
    void discard() { m_p = m_buffer; }
    /// Characters written so far, through the sink or before it.
    size_t size() const { return m_out.size() + static_cast<size_t>(m_p - m_buffer); }
    /// Trims "\r\t " from both ends of what was written since `mark` (a
    /// size()). Answers false, changing nothing, when that text holds a
    /// newline or no longer lies wholly in the buffer.
    bool trimSince(size_t mark);
    /// Forgets everything written since `mark` (a size()).
    void rollback(size_t mark);
    /// Characters since the last newline: the column the next text starts at.
    size_t column() const;

private:
    std::string& m_out;
    char* m_p;
    char m_buffer[1024];
};

} // namespace detail

namespace qzlog {

/// One literal or conversion. `type` is 0 for literal text, 63 ('?') for an
/// unknown conversion, otherwise the conversion letter.
class Token {
public:
    /// The widest field padded and the largest precision honoured; larger
    /// values are taken as this. Decision: 64 KiB, the largest stored detail.
    /// A width or precision in the millions is a mistake in a format, or a
    /// damaged activity file replaying its own formats, and must not cost the
    /// host gigabytes per line (printf of a float asks for a buffer as large
    /// as its precision).
    static constexpr unsigned int MaxWidth = 0x10000;

    Token() { clear(); }

    /// Resets to type 63 with everything else empty.
    void clear();

    /// Parses one token of a pattern at `cursor` and moves the cursor past it.
    /// Always consumes at least one character; answers true.
    bool parse(const char*& cursor);

    /// Reads "-", width and ".precision" at `cursor` into the justification
    /// fields and moves the cursor past them.
    void parseJustification(const char*& cursor);

    /// Decimal digits at `cursor`; 0 when the value does not fit 32 bits.
    /// `leadingZero`, when given, tells whether the first digit was '0'.
    static unsigned int parseInt(const char*& cursor, bool* leadingZero);

    /// Appends `text` justified: a wider field pads (zeros first with
    /// zeroPad, even when left-aligned); a precision narrower than the text
    /// cuts it. Kept on purpose: the cut keeps the first characters when
    /// left-aligned and the LAST ones otherwise, the reverse of printf, so a
    /// narrow right-aligned field shows the end of a long name.
    void addToResult(const char* text, std::string& out) const;
    void addToResult(const char* chars, size_t length, detail::TextSink& out) const {
        if (width == 0 && precision == 0)
            out.append(chars, length);
        else
            justify(chars, length, out);
    }

    /// Inserts, after each newline of `text`, as many blanks as `column`, the
    /// column at which `text` will start, so a multi-line value lines up
    /// under its first line. Decision: callers count the column from the last
    /// newline of the output (TextSink::column), not from its start, so that
    /// a message that already holds a newline does not push its later lines
    /// far to the right.
    static void indentLines(std::string& text, size_t column);

    /// The padding and cutting of addToResult.
    void justify(const char* text, size_t length, detail::TextSink& out) const;

    int type;
    bool leftAlign;
    bool zeroPad;
    unsigned int width;
    unsigned int precision;
    std::string option;
    unsigned int optionValue;
    const char* text;
    unsigned long textLength;
};

} // namespace qzlog
} // namespace qzlib
} // namespace qzs

#endif // QZLOG_DETAIL_TOKEN_H
