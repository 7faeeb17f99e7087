//===- tests/support/SyslogCollector.h - A syslog collector on loopback -*- C++ -*-===//
//
// The syslog tests and the benchmark send datagrams to a real collector: an
// rsyslogd of their own, in the foreground on a free loopback port, that
// receives only over UDP and writes the fields it parsed from each message to
// a file, one line each. Where rsyslogd cannot start, a plain UDP socket
// takes its place and the records are parsed here instead. Header only, so
// that the benchmark can use it without the test support library.
//
//===----------------------------------------------------------------------===//
#ifndef TESTS_SUPPORT_SYSLOGCOLLECTOR_H
#define TESTS_SUPPORT_SYSLOGCOLLECTOR_H

#include <arpa/inet.h>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <netinet/in.h>
#include <poll.h>
#include <sstream>
#include <string>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace qztest {

/// The fields of one syslog message as a collector parsed them.
struct SyslogRecord {
    std::string pri, version, time, host, app, procid, msgid, sd, msg;
};

/// Parses an RFC 5424 datagram the way the collector does, for the fallback:
/// "<PRI>VERSION TIME HOST APP PROCID MSGID SD [MSG]", SD being "-" or
/// bracketed elements with quoted values.
inline SyslogRecord parseSyslogDatagram(const std::string& d) {
    SyslogRecord r;
    size_t i = 0;
    if (d.empty() || d[0] != '<')
        return r;
    const size_t close = d.find('>');
    if (close == std::string::npos)
        return r;
    r.pri = d.substr(1, close - 1);
    i = close + 1;
    std::string* fields[] = {&r.version, &r.time, &r.host, &r.app, &r.procid, &r.msgid};
    for (std::string* f : fields) {
        const size_t blank = d.find(' ', i);
        if (blank == std::string::npos)
            return r;
        *f = d.substr(i, blank - i);
        i = blank + 1;
    }
    const size_t sdStart = i;
    if (i < d.size() && d[i] == '-') {
        ++i;
    } else {
        while (i < d.size() && d[i] == '[') {
            bool quoted = false;
            for (++i; i < d.size(); ++i) {
                if (d[i] == '\\' && quoted) {
                    ++i;
                    continue;
                }
                if (d[i] == '"')
                    quoted = !quoted;
                else if (d[i] == ']' && !quoted)
                    break;
            }
            ++i;
        }
    }
    r.sd = d.substr(sdStart, i - sdStart);
    if (i < d.size() && d[i] == ' ')
        ++i;
    r.msg = i < d.size() ? d.substr(i) : std::string();
    return r;
}

/// A collector on 127.0.0.1. Made by start(); stopped, and its files
/// removed, by the destructor, also when a test fails. The rsyslogd child
/// dies with the process that started it, so none is left behind even by a
/// crash.
class SyslogCollector {
public:
    SyslogCollector() = default;
    ~SyslogCollector() { stop(); }
    SyslogCollector(const SyslogCollector&) = delete;
    SyslogCollector& operator=(const SyslogCollector&) = delete;

    /// Starts rsyslogd, or with `allowRsyslog` false or when it cannot
    /// start, opens a socket of its own; `why` says why rsyslogd is not used.
    void start(bool allowRsyslog, std::string& why) {
        char pattern[] = "/tmp/qzsyslogXXXXXX";
        dir = ::mkdtemp(pattern) ? pattern : "";
        if (allowRsyslog && startRsyslog(why))
            return;
        stopRsyslog();
        openSocket();
    }

    bool isRsyslog() const { return pid > 0; }
    /// "127.0.0.1:PORT", for setSyslogHost.
    std::string hostText() const { return "127.0.0.1:" + std::to_string(port); }

    /// Waits until at least `count` records (beyond those already taken)
    /// arrived, or `limit` passed, and takes what arrived.
    std::vector<SyslogRecord> take(size_t count,
                                   std::chrono::milliseconds limit = std::chrono::seconds(20),
                                   std::vector<std::string>* raw = nullptr) {
        const auto end = std::chrono::steady_clock::now() + limit;
        std::vector<SyslogRecord> out;
        if (isRsyslog()) {
            for (;;) {
                std::vector<std::string> lines = fileLines();
                std::vector<SyslogRecord> records;
                for (const std::string& line : lines) {
                    SyslogRecord r = parseLine(line);
                    if (r.msgid != "probe")
                        records.push_back(r);
                }
                if (records.size() >= taken + count || std::chrono::steady_clock::now() >= end) {
                    out.assign(records.begin() + static_cast<long>(std::min(taken, records.size())),
                               records.end());
                    break;
                }
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
            }
        } else {
            char buffer[70000];
            while (out.size() < count) {
                const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                    end - std::chrono::steady_clock::now());
                pollfd p{fd, POLLIN, 0};
                if (left.count() <= 0 || ::poll(&p, 1, static_cast<int>(left.count())) <= 0)
                    break;
                const ssize_t n = ::recv(fd, buffer, sizeof buffer, 0);
                if (n < 0)
                    break;
                const std::string d(buffer, static_cast<size_t>(n));
                if (raw)
                    raw->push_back(d);
                out.push_back(parseSyslogDatagram(d));
            }
        }
        taken += out.size();
        return out;
    }

    void stop() {
        stopRsyslog();
        if (fd >= 0)
            ::close(fd);
        fd = -1;
        if (!dir.empty()) {
            std::error_code ignored;
            std::filesystem::remove_all(dir, ignored);
            dir.clear();
        }
    }

private:
    static int freePort() {
        const int s = ::socket(AF_INET, SOCK_DGRAM, 0);
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof a;
        int port = 0;
        if (::bind(s, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0 &&
            ::getsockname(s, reinterpret_cast<sockaddr*>(&a), &size) == 0)
            port = ntohs(a.sin_port);
        ::close(s);
        return port;
    }

    bool startRsyslog(std::string& why) {
        const char* candidates[] = {"/usr/sbin/rsyslogd", "/sbin/rsyslogd"};
        std::string program;
        for (const char* c : candidates)
            if (::access(c, X_OK) == 0)
                program = c;
        if (program.empty()) {
            why = "rsyslogd is not installed";
            return false;
        }
        port = freePort();
        const std::string conf = dir + "/rsyslog.conf";
        std::ofstream(conf)
            << "global(workDirectory=\"" << dir << "\" maxMessageSize=\"64k\")\n"
            << "module(load=\"imudp\")\n"
            << "template(name=\"fields\" type=\"list\") {\n"
            << "  property(name=\"pri\") constant(value=\"\\t\")\n"
            << "  property(name=\"protocol-version\") constant(value=\"\\t\")\n"
            << "  property(name=\"timereported\" dateFormat=\"rfc3339\") constant(value=\"\\t\")\n"
            << "  property(name=\"hostname\") constant(value=\"\\t\")\n"
            << "  property(name=\"app-name\") constant(value=\"\\t\")\n"
            << "  property(name=\"procid\") constant(value=\"\\t\")\n"
            << "  property(name=\"msgid\") constant(value=\"\\t\")\n"
            << "  property(name=\"structured-data\") constant(value=\"\\t\")\n"
            << "  property(name=\"msg\") constant(value=\"\\n\")\n"
            << "}\n"
            << "ruleset(name=\"collect\") {\n"
            << "  action(type=\"omfile\" file=\"" << dir << "/received.log\" template=\"fields\")\n"
            << "}\n"
            << "input(type=\"imudp\" address=\"127.0.0.1\" port=\"" << port
            << "\" ruleset=\"collect\" rcvbufSize=\"16m\")\n";
        const std::string out = dir + "/rsyslogd.out", pidFile = dir + "/rsyslogd.pid";
        const pid_t parent = ::getpid();
        pid = ::fork();
        if (pid == 0) {
            // Dies with the process that started it, whatever way that ends.
            ::prctl(PR_SET_PDEATHSIG, SIGKILL);
            if (::getppid() != parent)
                ::_exit(127);
            const int log = ::open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
            if (log >= 0) {
                ::dup2(log, 1);
                ::dup2(log, 2);
            }
            ::execl(program.c_str(), program.c_str(), "-n", "-f", conf.c_str(), "-i",
                    pidFile.c_str(), static_cast<char*>(nullptr));
            ::_exit(127);
        }
        if (pid < 0) {
            why = "cannot fork";
            pid = -1;
            return false;
        }
        // Ready once a probe sent to it comes out in its file.
        const int s = ::socket(AF_INET, SOCK_DGRAM, 0);
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        a.sin_port = htons(static_cast<uint16_t>(port));
        const char probe[] = "<14>1 - - - - probe - probe";
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(15);
        bool ready = false;
        while (!ready && std::chrono::steady_clock::now() < end) {
            int status = 0;
            if (::waitpid(pid, &status, WNOHANG) == pid) {
                pid = -1;
                why = "rsyslogd exited at start: " + readAll(out);
                break;
            }
            ::sendto(s, probe, sizeof probe - 1, 0, reinterpret_cast<sockaddr*>(&a), sizeof a);
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            ready = !fileLines().empty();
        }
        ::close(s);
        if (!ready && why.empty())
            why = "rsyslogd did not take a message within 15 s: " + readAll(out);
        return ready;
    }

    void stopRsyslog() {
        if (pid <= 0)
            return;
        ::kill(pid, SIGTERM);
        for (int i = 0; i < 500; ++i) {
            if (::waitpid(pid, nullptr, WNOHANG) == pid) {
                pid = -1;
                return;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        ::kill(pid, SIGKILL);
        ::waitpid(pid, nullptr, 0);
        pid = -1;
    }

    void openSocket() {
        fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        const int size = 16 << 20;
        if (::setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &size, sizeof size) != 0)
            ::setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &size, sizeof size);
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof a;
        ::bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a);
        ::getsockname(fd, reinterpret_cast<sockaddr*>(&a), &length);
        port = ntohs(a.sin_port);
    }

    static std::string readAll(const std::string& file) {
        std::stringstream text;
        text << std::ifstream(file).rdbuf();
        return text.str();
    }

    // Complete lines only: the collector may be half-way through one.
    std::vector<std::string> fileLines() const {
        std::vector<std::string> lines;
        const std::string text = readAll(dir + "/received.log");
        size_t start = 0;
        for (size_t nl; (nl = text.find('\n', start)) != std::string::npos; start = nl + 1)
            lines.push_back(text.substr(start, nl - start));
        return lines;
    }

    static SyslogRecord parseLine(const std::string& line) {
        SyslogRecord r;
        std::string* fields[] = {&r.pri,    &r.version, &r.time, &r.host, &r.app,
                                 &r.procid, &r.msgid,   &r.sd,   &r.msg};
        size_t start = 0;
        for (size_t k = 0; k < 9; ++k) {
            const size_t tab = k < 8 ? line.find('\t', start) : std::string::npos;
            *fields[k] =
                line.substr(start, tab == std::string::npos ? std::string::npos : tab - start);
            if (tab == std::string::npos)
                break;
            start = tab + 1;
        }
        return r;
    }

    std::string dir;
    pid_t pid = -1;
    int fd = -1;
    int port = 0;
    size_t taken = 0;
};

} // namespace qztest

#endif // TESTS_SUPPORT_SYSLOGCOLLECTOR_H
