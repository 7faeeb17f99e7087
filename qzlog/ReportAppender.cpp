//===- qzlog/ReportAppender.cpp - Events on the console report stream -----===//
#include "qzlog/ReportAppender.h"

#include "qzlog/PatternLayout.h"
#include "qzmsg/HostConfig.h"

namespace qzs {
namespace qzlib {
namespace qzlog {

std::string ReportAppender::patternFor(const char* name, const char* pattern) {
    std::string text;
    if (name && *name) {
        text = name;
        text += ": ";
    }
    text += pattern ? pattern : "";
    return text;
}

ReportAppender::ReportAppender(const char* name, const char* pattern) : WriterAppender(name) {
    setLayout(new PatternLayout(patternFor(name, pattern).c_str()));
    immediateFlush = true;
}

void ReportAppender::close() {
    // The stream is the host's (or stdout): the footer, and it stays open.
    writeFooter();
}

void ReportAppender::write(const void* bytes, unsigned long size) {
    // Read at every write: the host may set its record up after the
    // appender is made.
    file = getReportStream();
    WriterAppender::write(bytes, size);
}

} // namespace qzlog
} // namespace qzlib
} // namespace qzs
