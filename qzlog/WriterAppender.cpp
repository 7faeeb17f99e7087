//===- qzlog/WriterAppender.cpp - Output to a stdio stream ----------------===//
#include "qzlog/WriterAppender.h"

#include "qzlog/PatternLayout.h"
#include "qzlog/detail/Token.h"

#include "qzlog/Layout.h"
#include "qzlog/LoggingEvent.h"

#include <unistd.h>

namespace qzs {
namespace qzlib {
namespace qzlog {

WriterAppender::WriterAppender(const char* name)
    : Appender(name), file(nullptr), immediateFlush(false), privateStream(false) {}

WriterAppender::~WriterAppender() {}

void WriterAppender::reset() {
    if (file) {
        fflush(file);
        int ignored = ftruncate(fileno(file), 0);
        (void)ignored;
    }
}

void WriterAppender::close() {
    if (!file)
        return;
    writeFooter();
    fclose(file);
    file = nullptr;
}

void WriterAppender::append(const LoggingEvent* event) {
    buffer.clear(); // keeps its capacity: steady output allocates nothing
    if (layout && patternLayout == layout) {
        // Laid out on the stack and written from there; `buffer` takes only
        // what outgrows the sink.
        detail::TextSink sink(buffer);
        patternLayout->formatInto(event, sink);
        if (buffer.empty()) {
            write(sink.pending(), sink.pendingSize());
            sink.discard();
            return;
        }
        sink.flush();
        write(buffer.data(), buffer.size());
        return;
    }
    if (layout) {
        layout->format(event, buffer);
    } else {
        event->format(buffer);
        buffer += '\n';
    }
    write(buffer.data(), buffer.size());
}

void WriterAppender::append(const void* bytes, unsigned int size) {
    write(bytes, size);
}

void WriterAppender::write(const void* bytes, unsigned long size) {
    if (!file)
        activateOptions();
    if (!file)
        return; // nowhere to go: dropped in silence
    if (privateStream) {
        // Only this appender touches its own file, always under `lock`: the
        // stream's own lock would be a second one for nothing.
        fwrite_unlocked(bytes, 1, size, file);
        if (immediateFlush)
            fflush_unlocked(file);
    } else {
        fwrite(bytes, 1, size, file);
        if (immediateFlush)
            fflush(file);
    }
}

void WriterAppender::writeHeader() {
    if (!layout)
        return;
    std::string text;
    layout->getHeader(text);
    if (!text.empty())
        write(text.data(), text.size());
}

void WriterAppender::writeFooter() {
    if (!layout)
        return;
    std::string text;
    layout->getFooter(text);
    if (!text.empty())
        write(text.data(), text.size());
}

ConsoleAppender::ConsoleAppender(const char* name, FILE* stream, Layout* layout) : WriterAppender(name) {
    file = stream;
    setLayout(layout);
    immediateFlush = true;
}

void ConsoleAppender::close() {
    // The stream is not ours: write the footer and leave it open.
    writeFooter();
}

} // namespace qzlog
} // namespace qzlib
} // namespace qzs
