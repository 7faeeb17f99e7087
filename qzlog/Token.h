//===- qzlog/Token.h - One conversion of a format or pattern ---*- C++ -*-===//
//
// A token is one piece of a pattern layout: a literal or a conversion with
// its justification. The justification rules are shared with the message
// format of an event.
//
//===----------------------------------------------------------------------===//
#ifndef QZLOG_TOKEN_H
#define QZLOG_TOKEN_H

#include <string>

namespace qzs {
namespace qzlib {
namespace qzlog {

/// One literal or conversion. `type` is 0 for literal text, 63 ('?') for an
/// unknown conversion, otherwise the conversion letter.
class Token {
public:
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

    /// Inserts, after each newline of `text`, as many blanks as the column at
    /// which `text` will start in `out`, so a multi-line value lines up under
    /// its first line. Decision: the column counts from the last newline of
    /// `out`, not from its start, so that a message that already holds a
    /// newline does not push its later lines far to the right.
    static void indentLines(std::string& text, const std::string& out);

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

#endif // QZLOG_TOKEN_H
