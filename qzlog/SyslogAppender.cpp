//===- qzlog/SyslogAppender.cpp - Events to the system log or a collector -===//
//
// The local path is syslog(3). The remote path builds each datagram in a
// buffer the appender keeps, so steady output allocates nothing, and sends it
// on a connected, non-blocking UDP socket.
//
//===----------------------------------------------------------------------===//
#include "qzlog/SyslogAppender.h"

#include "qzlog/Layout.h"
#include "qzlog/Logger.h"
#include "qzlog/LoggerRepository.h"
#include "qzlog/LoggingEvent.h"
#include "qzlog/detail/LogBuffer.h"
#include "qzlog/detail/LogThreadContext.h"
#include "qzlog/detail/SyslogTimeSeam.h"
#include "qzmsg/CAppContext.h"
#include "qzstd/NumberString.h"

#include <cerrno>
#include <cstring>
#include <netdb.h>
#include <sys/socket.h>
#include <sys/types.h>
#include <syslog.h>
#include <unistd.h>

namespace qzs {
namespace qzlib {
namespace qzlog {

namespace {

// The largest payload of one IPv4 UDP datagram.
constexpr size_t MaxDatagram = 65507;

// What every datagram of the process says about it, made once. Never
// destroyed: openlog keeps the pointer to `ident`, and an event may be
// logged from another static's destructor.
struct ProcessIdentity {
    std::string ident;  // the executable's base name, for openlog
    std::string fields; // " HOST APP PID ", ready to go between time and sequence
};

// A header field must be one run of printable ASCII: a blank in an
// executable's name would shift every field after it.
std::string headerField(std::string text) {
    if (text.empty())
        return "-";
    for (char& c : text)
        if (static_cast<unsigned char>(c) < 33 || static_cast<unsigned char>(c) > 126)
            c = '_';
    return text;
}

const ProcessIdentity& processIdentity() {
    static const ProcessIdentity* identity = [] {
        auto* made = new ProcessIdentity;
        made->ident = getAppContextText("ProcessExecutableBase");
        made->fields = " " + headerField(getAppContextText("ProcessHostName")) + " " +
                       headerField(made->ident) + " " +
                       headerField(getAppContextText("ProcessID")) + " ";
        return made;
    }();
    return *identity;
}

void appendNumber(std::string& out, unsigned int value) {
    char digits[24];
    out.append(digits, u32ToString(value, digits));
}

void appendText(std::string& out, const char* text) {
    if (text)
        out.append(text);
}

// The text of an event: its layout's, else the bare message.
void formatText(const SyslogAppender& appender, const LoggingEvent* event, std::string& out) {
    if (Layout* layout = appender.getLayout())
        layout->format(event, out);
    else
        event->format(out);
}

} // namespace

//===-- NetworkTargetUDP ---------------------------------------------------===//

void NetworkTargetUDP::getAddrinfo(const std::string& text, std::string& host,
                                   std::string& service) {
    const size_t colon = text.find(':');
    if (colon == std::string::npos) {
        host = text;
        service.clear();
    } else {
        host = text.substr(0, colon);
        service = text.substr(colon + 1);
    }
    if (service.empty())
        service = "syslog";
}

NetworkTargetUDP* NetworkTargetUDP::Create(const std::string& text) {
    std::string host, service;
    getAddrinfo(text, host, service);
    addrinfo hints;
    std::memset(&hints, 0, sizeof hints);
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_DGRAM;
    addrinfo* found = nullptr;
    if (::getaddrinfo(host.c_str(), service.c_str(), &hints, &found) != 0 || !found)
        return nullptr;
    NetworkTargetUDP* target = nullptr;
    for (addrinfo* a = found; a && !target; a = a->ai_next) {
        // Non-blocking: an event must never wait for the network. Close on
        // exec: a child process has no business with the collector.
        const int fd =
            ::socket(a->ai_family, a->ai_socktype | SOCK_NONBLOCK | SOCK_CLOEXEC, a->ai_protocol);
        if (fd < 0)
            continue;
        if (::connect(fd, a->ai_addr, a->ai_addrlen) == 0)
            target = new NetworkTargetUDP(fd);
        else
            ::close(fd);
    }
    ::freeaddrinfo(found);
    return target;
}

NetworkTargetUDP::~NetworkTargetUDP() {
    if (socket >= 0)
        ::close(socket);
}

void NetworkTargetUDP::send(const std::string& text) {
    // Cut rather than lost: a longer datagram is refused whole (EMSGSIZE),
    // and the start of an event says more than nothing. A refusal from a
    // collector that is not listening (ECONNREFUSED) or a full socket
    // (EAGAIN) drops the datagram, as any lost datagram is.
    const size_t size = text.size() < MaxDatagram ? text.size() : MaxDatagram;
    ssize_t ignored = ::send(socket, text.data(), size, MSG_NOSIGNAL);
    (void)ignored;
}

//===-- SyslogMessage ------------------------------------------------------===//

void SyslogMessage::getHeader(std::string& out) const {
    const LocationIndependentAttributes& attrs = event->attributes.attributes;
    out += '<';
    appendNumber(out, static_cast<unsigned int>(SyslogAppender::getSeverity(attrs.level) |
                                                appender->getFacility()));
    out += ">1 ";
    timespec time;
    time.tv_sec = attrs.time.tv_sec;
    time.tv_nsec = static_cast<long>(attrs.time.tv_usec) * 1000;
    detail::syslogTimeText(time, out);
    out += processIdentity().fields;
    appendNumber(out, attrs.sequence);
}

void SyslogMessage::getStructuredData(std::string& out) const {
    const LocationIndependentAttributes& attrs = event->attributes.attributes;
    const LocationDependentAttributes* location = event->attributes.location;
    out += "[qzlog@";
    appendNumber(out, attrs.sequence);
    out += " category=\"";
    appendText(out, Logger::getRepository().getLoggerName(attrs.loggerId));
    out += "\" thread=\"";
    // The event's own thread, through its buffer's context, as the pattern
    // layout finds it: no lock, since this runs under the appender's.
    const LogBufferImpl* buffer = static_cast<const LogBufferImpl*>(event->buffer);
    const LogThreadContext* context = buffer && buffer->context
                                          ? buffer->context
                                          : LogBufferImpl::getThreadContext(attrs.threadNumber);
    if (context)
        appendText(out, context->getName());
    out += "\" method=\"";
    if (location)
        appendText(out, location->function);
    out += "\" module=\"";
    if (location)
        appendText(out, location->file);
    out += "\" line=\"";
    appendNumber(out, location ? location->line : 0u);
    out += "\"]";
}

void SyslogMessage::getBOM(std::string& out) const {
    out += "\xEF\xBB\xBF";
}

//===-- SyslogAppender -----------------------------------------------------===//

SyslogAppender::SyslogAppender(const char* name)
    : Appender(name), facility(Application), target(nullptr) {
    ::openlog(processIdentity().ident.c_str(), LOG_PID, LOG_USER);
}

SyslogAppender::~SyslogAppender() {
    delete target;
}

void SyslogAppender::close() {
    ::closelog();
}

int SyslogAppender::getSeverity(unsigned char level) {
    switch (level) {
    case 254:
        return 1;
    case 239:
        return 3;
    case 223:
        return 4;
    case 191:
        return 6;
    default:
        return 7;
    }
}

void SyslogAppender::setSyslogHost(const char* host) {
    delete target;
    target = nullptr;
    syslogHost = host ? host : "";
    if (!syslogHost.empty())
        target = NetworkTargetUDP::Create(syslogHost);
}

void SyslogAppender::append(const LoggingEvent* event) {
    buffer.clear(); // keeps its capacity
    const int priority = getSeverity(event->attributes.attributes.level) | getFacility();
    if (!target) {
        formatText(*this, event, buffer);
        ::syslog(priority, "%s", buffer.c_str());
        return;
    }
    const SyslogMessage message(event, this);
    message.getHeader(buffer);
    buffer += ' ';
    message.getStructuredData(buffer);
    buffer += ' ';
    message.getBOM(buffer);
    formatText(*this, event, buffer);
    target->send(buffer);
}

void SyslogAppender::append(const void*, unsigned int) {}

} // namespace qzlog
} // namespace qzlib
} // namespace qzs
