//===- qzlog/Layout.h - Turning events into text ---------------*- C++ -*-===//
//
// A layout renders an event for a text appender. BinaryLayout renders
// nothing: it marks its appender as one that takes whole raw buffers.
//
//===----------------------------------------------------------------------===//
#ifndef QZLOG_LAYOUT_H
#define QZLOG_LAYOUT_H

#include "qzstd/Export.h"

#include <string>

namespace qzs {
namespace qzlib {
namespace qzlog {

class LoggingEvent;

/// Base of the layouts. An appender owns its layout from setLayout on.
class QZ_API Layout {
public:
    virtual ~Layout() {}
    /// Appends the text of `event` to `out`.
    virtual void format(const LoggingEvent* event, std::string& out) = 0;
    /// "text/plain".
    virtual const char* getContentType();
    /// Replaces `out` by the text written when output opens; empty here.
    virtual void getHeader(std::string& out);
    /// Replaces `out` by the text written when output closes; empty here.
    virtual void getFooter(std::string& out);
    virtual unsigned long getFooterLength() const { return 0; }
    /// False for layouts whose appenders take raw buffers instead of events.
    virtual bool canLayoutEvents() const { return true; }
};

/// The marker of an appender that takes whole buffers of activity tokens.
class QZ_API BinaryLayout : public Layout {
public:
    void format(const LoggingEvent*, std::string&) override {}
    /// "application/x.binary-log".
    const char* getContentType() override;
    bool canLayoutEvents() const override { return false; }
};

} // namespace qzlog
} // namespace qzlib
} // namespace qzs

#endif // QZLOG_LAYOUT_H
