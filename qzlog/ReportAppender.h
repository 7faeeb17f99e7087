//===- qzlog/ReportAppender.h - Events on the console report stream -*- C++ -*-===//
//
// An appender that writes where the message layer writes its console lines:
// the report stream of the host's configuration record, or stdout. A host
// that sends its console elsewhere gets its log lines there too.
//
//===----------------------------------------------------------------------===//
#ifndef QZLOG_REPORTAPPENDER_H
#define QZLOG_REPORTAPPENDER_H

#include "qzlog/WriterAppender.h"
#include "qzstd/Export.h"

namespace qzs {
namespace qzlib {
namespace qzlog {

/// Lays events out with "<name>: <pattern>" (the pattern alone for a null
/// or empty name) and writes each to the report stream, flushed at once.
/// The stream is read again at every write and never owned: close() writes
/// the footer and leaves it open, reset() leaves it alone.
class QZ_API ReportAppender : public WriterAppender {
public:
    ReportAppender(const char* name, const char* pattern);

    void reset() override {}
    void close() override;
    void write(const void* bytes, unsigned long size) override;

    /// The layout's pattern for `name` and `pattern`.
    static std::string patternFor(const char* name, const char* pattern);
};

} // namespace qzlog
} // namespace qzlib
} // namespace qzs

#endif // QZLOG_REPORTAPPENDER_H
