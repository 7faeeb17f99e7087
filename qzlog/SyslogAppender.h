//===- qzlog/SyslogAppender.h - Events to the system log or a collector -*- C++ -*-===//
//
// SyslogAppender writes events to the local system log, or, once a host is
// set, sends each as one UDP datagram in the RFC 5424 form to a collector:
// a header, structured data that names where the event came from, and the
// text.
//
//===----------------------------------------------------------------------===//
#ifndef QZLOG_SYSLOGAPPENDER_H
#define QZLOG_SYSLOGAPPENDER_H

#include "qzstd/Export.h"

#include "qzlog/Appender.h"

#include <string>

namespace qzs {
namespace qzlib {
namespace qzlog {

class LoggingEvent;

/// A connected UDP socket to one collector.
///
/// Sends never block and never fail the caller: the socket is non-blocking,
/// and a datagram the system cannot take, or that an ICMP error from a
/// collector that is not listening refuses, is dropped.
class QZ_API NetworkTargetUDP {
public:
    /// Splits `text` at its first ":" into host and service; no ":" means
    /// the whole is the host, and an empty service is "syslog".
    static void getAddrinfo(const std::string& text, std::string& host, std::string& service);
    /// Resolves `text` (IPv4 only) and connects a datagram socket to the
    /// first address that takes it; null when none does. Resolution runs in
    /// the calling thread and may wait on the name service.
    static NetworkTargetUDP* Create(const std::string& text);

    explicit NetworkTargetUDP(int fd) : socket(fd) {}
    /// Closes a non-negative socket.
    ~NetworkTargetUDP();
    NetworkTargetUDP(const NetworkTargetUDP&) = delete;
    NetworkTargetUDP& operator=(const NetworkTargetUDP&) = delete;

    /// Sends `text` as one datagram; the result is not looked at. A text
    /// longer than a UDP datagram can carry (65,507 bytes) is cut to that.
    void send(const std::string& text);

    int socket;
};

/// Local system log or remote collector, by whether a host is set.
///
/// Severity by level: FATAL 1, ERROR 3, WARN 4, INFO 6, any other 7; the
/// priority is the severity OR getFacility(). Remote datagrams read
///   <PRI>1 TIME HOST APP PID SEQ [qzlog@SEQ category="." thread="."
///   method="." module="." line="."] BOM TEXT
/// with TIME in TaskTime's local text form, SEQ the event's sequence number,
/// BOM the UTF-8 byte order mark directly before the text (the layout's
/// output, or the bare message without a layout).
/// Kept on purpose: names inside the structured data are not escaped, so a
/// quote or a newline in them goes out as it is; the datagram stays one
/// datagram, but a collector may read its fields differently.
/// Thread safety: append() runs under the base's `lock`. openlog, syslog
/// and closelog are process-wide: close() of one appender closes the local
/// log of all, and the next local event opens it again.
class QZ_API SyslogAppender : public Appender {
public:
    enum Facility { Application = 0, Security = 1 };

    /// openlog with the executable's base name, LOG_PID and LOG_USER.
    explicit SyslogAppender(const char* name);
    /// Deletes the target.
    ~SyslogAppender() override;

    /// closelog().
    void close() override;
    bool requiresLayout() const override { return false; }
    void append(const LoggingEvent* event) override;
    /// Binary data has no place in a system log: ignored.
    void append(const void* bytes, unsigned int size) override;

    /// The syslog facility code, shifted: 80 for Security, 8 for Application.
    int getFacility() const { return facility == Security ? 80 : 8; }
    void setFacility(Facility value) { facility = value; }

    /// Drops any target, stores `host` ("host" or "host:service"; null is
    /// empty) and connects a new target. An empty or unresolvable host
    /// leaves no target, and events go to the local log.
    void setSyslogHost(const char* host);
    const std::string& getSyslogHost() const { return syslogHost; }

    /// The syslog severity of a level.
    static int getSeverity(unsigned char level);

    Facility facility;
    /// The datagram or text of the event being written, reused across events.
    std::string buffer;
    std::string syslogHost;
    NetworkTargetUDP* target;
};

/// One event on its way out through one appender; lives for one append.
class QZ_API SyslogMessage {
public:
    SyslogMessage(const LoggingEvent* e, const SyslogAppender* a) : event(e), appender(a) {}

    /// Appends "<PRI>1 TIME HOST APP PID SEQ" to `out`. The host,
    /// application and process texts are made once per process; a blank or
    /// other character outside printable ASCII in them becomes "_", and an
    /// empty one "-", so that the header always parses.
    void getHeader(std::string& out) const;
    /// Appends "[qzlog@SEQ category=... line=...]" to `out`.
    void getStructuredData(std::string& out) const;
    /// Appends the UTF-8 byte order mark to `out`.
    void getBOM(std::string& out) const;

    const LoggingEvent* event;
    const SyslogAppender* appender;
};

} // namespace qzlog
} // namespace qzlib
} // namespace qzs

#endif // QZLOG_SYSLOGAPPENDER_H
