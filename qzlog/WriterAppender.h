//===- qzlog/WriterAppender.h - Output to a stdio stream -------*- C++ -*-===//
//
// WriterAppender writes laid-out events, or raw buffers, to a FILE stream.
// ConsoleAppender is one on a stream it does not own.
//
//===----------------------------------------------------------------------===//
#ifndef QZLOG_WRITERAPPENDER_H
#define QZLOG_WRITERAPPENDER_H

#include "qzstd/Export.h"

#include "qzlog/Appender.h"

#include <cstdio>
#include <string>

namespace qzs {
namespace qzlib {
namespace qzlog {

/// An appender over a stdio stream.
///
/// With no layout an event comes out as its bare message and a newline.
/// Output that cannot go anywhere is dropped in silence: a failed fwrite,
/// fflush, fclose or ftruncate is ignored, because logging must never take
/// its host down. The text buffer is reused, so steady output allocates
/// nothing. The destructor does not close the stream: close() first to get
/// the footer written (the repository's removeAllAppenders does).
class QZ_API WriterAppender : public Appender {
public:
    explicit WriterAppender(const char* name);
    ~WriterAppender() override;

    /// Truncates an open stream to length 0.
    void reset() override;
    /// Writes the footer and closes the stream; the next write reopens it
    /// through activateOptions().
    void close() override;
    bool requiresLayout() const override { return false; }
    void append(const LoggingEvent* event) override;
    void append(const void* bytes, unsigned int size) override;

    /// Opens the stream; nothing to open here.
    virtual void activateOptions() {}
    /// Writes `size` bytes, opening the stream first when it is closed.
    virtual void write(const void* bytes, unsigned long size);

    void writeHeader();
    void writeFooter();

    void setImmediateFlush(bool flush) { immediateFlush = flush; }
    bool getImmediateFlush() const { return immediateFlush; }

    FILE* file;
    std::string buffer;
    bool immediateFlush;
    /// Set by subclasses that open the stream themselves and share it with
    /// nobody (files); writes then skip the stream's own lock.
    bool privateStream;
};

/// A WriterAppender on an existing stream (stdout, stderr) that it does not
/// own: close() writes the footer and leaves the stream open. Flushes after
/// every event.
class QZ_API ConsoleAppender : public WriterAppender {
public:
    ConsoleAppender(const char* name, FILE* stream, Layout* layout);
    void reset() override {}
    void close() override;
};

} // namespace qzlog
} // namespace qzlib
} // namespace qzs

#endif // QZLOG_WRITERAPPENDER_H
