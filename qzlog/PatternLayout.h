//===- qzlog/PatternLayout.h - Text by a conversion pattern ----*- C++ -*-===//
//
// PatternLayout renders an event by a conversion pattern parsed once into
// tokens. The conversions:
//
//   %c logger (option: trailing components)   %C source file (option: ditto)
//   %d date (option: strftime pattern)        %l function, file(line)
//   %L line      %m message      %M function  %n newline    %p level
//   %r ms since start            %S sequence  %t thread     %% percent
//
// Each conversion takes "-", width and ".precision"; an unknown one shows as
// "%?x?".
//
//===----------------------------------------------------------------------===//
#ifndef QZLOG_PATTERNLAYOUT_H
#define QZLOG_PATTERNLAYOUT_H

#include "qzstd/Export.h"

#include "qzlog/Layout.h"
#include "qzlog/LoggingEvent.h"

namespace qzs {
namespace qzlib {
namespace detail {
class TextSink;
} // namespace detail
namespace qzlog {

class Token;

/// A layout by conversion pattern. It has neither header nor footer.
///
/// Thread safety: format() reuses a scratch text of the layout with no lock
/// of its own; the appender's lock serialises it. Do not share one
/// PatternLayout between appenders.
class QZ_API PatternLayout : public Layout {
public:
    explicit PatternLayout(const char* pattern);
    ~PatternLayout() override;
    PatternLayout(const PatternLayout&) = delete;
    PatternLayout& operator=(const PatternLayout&) = delete;

    /// Appends the event's text to `out`, token by token.
    void format(const LoggingEvent* event, std::string& out) override;

    const std::string& getPattern() const;
    /// The parsed tokens, for tests and tools.
    size_t tokenCount() const;
    const Token& token(size_t index) const;

    struct Impl;

private:
    friend class WriterAppender;
    /// format() into a sink: a writer lays a line out on its stack and
    /// writes it from there.
    void formatInto(const LoggingEvent* event, detail::TextSink& sink);

    Impl* impl;
};

/// Copies the last `components` parts of `path`, counted by the characters of
/// `delimiters` from the end; 0, or fewer delimiters than asked, copies all.
/// Returns `out`. REQUIRES: `out` holds strlen(path) + 1 bytes.
QZ_API char* makeNode(const char* path, const char* delimiters, unsigned int components, char* out);

/// Strips a version-control keyword wrapper: "$Id: name $" gives "name".
/// Any other text is copied as it is.
QZ_API void makeRCSName(const char* name, char* out);

/// Renders `time` by the strftime `pattern` (null or "" for
/// "%Y-%m-%d %a %Z %H:%M:%S"), in local time. Milliseconds follow "%S"
/// always, as ".mmm". A time of at most 1,189,622,116 seconds is taken as an
/// interval and written as seconds "." milliseconds. Caches per thread, so
/// strftime runs at most once a second and thread.
/// REQUIRES: `out` holds 260 bytes.
QZ_API void makeTime(const timeval32_t& time, const char* pattern, char* out);

} // namespace qzlog
} // namespace qzlib
} // namespace qzs

#endif // QZLOG_PATTERNLAYOUT_H
