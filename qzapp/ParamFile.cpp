//===- qzapp/ParamFile.cpp - Reading parameter files command by command ---===//
//
// qzGetNextCommand keeps, per caller's stream, the stack of OBEY files being
// read and each file's SEMICOLONTERMINATE mode, in a table under one mutex.
// A parameter file is hostile input as far as this reader is concerned: it
// may name a device, a FIFO, a directory or itself, hold binary bytes, or
// continue a command for ever. Each of those ends in a message and the next
// command, never in a hang, a loop or a write past the caller's buffer.
//
//===----------------------------------------------------------------------===//
#include "qzapp/ParamScan.h"

#include "qzmsg/Messages.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

using qzs::qzlib::qzunicode::UString;

namespace {

constexpr const char* Module = "qzapp.parmutl";
constexpr const char* Component = "qzapp/parmutl";
constexpr const char* Method = "qzGetNextCommand";

// Physical lines are read into a scratch buffer at least this large, so that
// a line whose comment or indentation is trimmed away can still give a
// command that fits the caller's buffer.
constexpr std::size_t MinLineBuffer = 4096;

template <typename... Args> void raise(unsigned int line, int id, const Args&... args) {
    qzs::qzlib::raiseMessage(new qzs::qzlib::CSourceContext(Module, Component, Method, line), id,
                             qzs::qzlib::IssueAndDispose, args...);
}

// One file being read: the caller's (never closed here) or an OBEY file.
struct Source {
    FILE* file = nullptr;
    bool owned = false;
    std::string name;        // of an OBEY file; the caller's is found when needed
    bool identified = false; // dev and ino are known (not for memory streams)
    dev_t dev = 0;
    ino_t ino = 0;
    bool semicolons = false;
    unsigned long line = 0;

    ~Source() {
        if (owned && file)
            std::fclose(file);
    }
};

struct Reader {
    int descriptor = -1; // of the caller's stream when first seen, to tell a reused FILE*
    std::vector<std::unique_ptr<Source>> stack;
    std::vector<char> line;
};

std::mutex gReadersMutex;
std::map<FILE*, std::unique_ptr<Reader>>& readers() {
    static auto* table = new std::map<FILE*, std::unique_ptr<Reader>>(); // never destroyed:
    return *table; // a reader may run from another static's destructor
}

bool identify(int descriptor, Source& s, struct stat& st) {
    if (descriptor < 0 || fstat(descriptor, &st) != 0)
        return false;
    s.identified = true;
    s.dev = st.st_dev;
    s.ino = st.st_ino;
    return true;
}

std::string nameOfDescriptor(int descriptor) {
    if (descriptor < 0)
        return "(stream)";
    char link[64];
    std::snprintf(link, sizeof link, "/proc/self/fd/%d", descriptor);
    char path[4096];
    const ssize_t n = readlink(link, path, sizeof path - 1);
    if (n <= 0)
        return "(descriptor " + std::to_string(descriptor) + ")";
    return std::string(path, static_cast<std::size_t>(n));
}

const std::string& nameOf(Source& s) {
    if (!s.owned)
        s.name = nameOfDescriptor(fileno(s.file));
    return s.name;
}

// Records the identity of the caller's stream as it is now, when the state
// starts to hold something that belongs to this file only.
void pin(Reader& r) {
    struct stat st;
    Source& top = *r.stack.front();
    top.identified = false;
    identify(fileno(top.file), top, st);
}

// The state of `file`, made on first sight. A FILE* that was closed without
// qzEndCommands and whose address came back for another file is told by
// its descriptor or identity, and starts afresh. Null when `file` cannot be
// read at all (a directory: message 220 raised).
Reader* findReader(FILE* file, std::string& directory, std::unique_ptr<Reader>& stale) {
    std::lock_guard<std::mutex> guard(gReadersMutex);
    auto& table = readers();
    auto found = table.find(file);
    const int descriptor = fileno(file);
    if (found != table.end()) {
        Reader* r = found->second.get();
        struct stat st;
        const Source& top = *r->stack.front();
        // State in its defaults is the same for any stream, so only state
        // that an earlier file left (OBEY files, the mode) is worth a system
        // call to check; the identity is pinned when such state is made.
        const bool plain = r->stack.size() == 1 && !top.semicolons;
        const bool same =
            r->descriptor == descriptor &&
            (plain || !top.identified ||
             (fstat(descriptor, &st) == 0 && st.st_dev == top.dev && st.st_ino == top.ino));
        if (same)
            return r;
        stale = std::move(found->second); // its OBEY files close outside the lock
        table.erase(found);
    }
    auto r = std::make_unique<Reader>();
    r->descriptor = descriptor;
    auto top = std::make_unique<Source>();
    top->file = file;
    struct stat st;
    // Pipes and terminals are fine as the caller's stream: the caller chose
    // them. A directory opens but never reads.
    if (identify(descriptor, *top, st) && S_ISDIR(st.st_mode)) {
        directory = nameOfDescriptor(descriptor);
        return nullptr;
    }
    r->stack.push_back(std::move(top));
    Reader* result = r.get();
    table[file] = std::move(r);
    return result;
}

Reader* readerFor(FILE* file) {
    std::string directory;
    std::unique_ptr<Reader> stale;
    Reader* r = findReader(file, directory, stale);
    if (!directory.empty())
        raise(__LINE__, 220, directory.c_str(), "it is a directory");
    return r;
}

void dropReader(FILE* file) {
    std::unique_ptr<Reader> gone;
    std::lock_guard<std::mutex> guard(gReadersMutex);
    auto found = readers().find(file);
    if (found != readers().end()) {
        gone = std::move(found->second);
        readers().erase(found);
    }
}

enum class Read { Line, Long, End, Nul, Error };

// One physical line, by fgets' rules (up to and with a '\n', at most
// cap - 1 bytes), but with its length known: fgets cannot tell a NUL byte
// in the file from the end of the line, and binary input must not pass for
// text.
Read readLine(FILE* f, std::vector<char>& buf, std::size_t& len) {
    len = 0;
    const std::size_t cap = buf.size();
    Read result = Read::Line;
    flockfile(f);
    for (;;) {
        if (len + 1 >= cap) {
            result = Read::Long;
            break;
        }
        const int c = getc_unlocked(f);
        if (c == EOF) {
            result = ferror_unlocked(f) ? Read::Error : len ? Read::Line : Read::End;
            break;
        }
        if (c == '\0') {
            result = Read::Nul;
            break;
        }
        buf[len++] = static_cast<char>(c);
        if (c == '\n')
            break;
    }
    funlockfile(f);
    buf[len] = '\0';
    return result;
}

// Reads on to the end of a physical line that did not fit, keeping its last
// byte that is not white space in `lastByte`. Line when the line ended (at a
// newline or the end of the file), else Nul or Error.
Read skipRestOfLine(FILE* f, char& lastByte) {
    Read result = Read::Line;
    flockfile(f);
    for (;;) {
        const int c = getc_unlocked(f);
        if (c == EOF) {
            result = ferror_unlocked(f) ? Read::Error : Read::Line;
            break;
        }
        if (c == '\0') {
            result = Read::Nul;
            break;
        }
        if (c == '\n')
            break;
        if (c != ' ' && c != '\t' && c != '\r')
            lastByte = static_cast<char>(c);
    }
    funlockfile(f);
    return result;
}

bool firstWordIs(const char* text, const char* word) {
    const std::size_t n = std::strlen(word);
    return qzUcasencmp(text, word, n) == 0 &&
           (text[n] == '\0' || text[n] == ' ' || text[n] == '\t');
}

bool isPasswordKey(const char* word, std::size_t n) {
    return (n == 8 && qzUcasencmp(word, "PASSWORD", 8) == 0) ||
           (n == 2 && qzUcasencmp(word, "PW", 2) == 0);
}

bool isNameByte(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_';
}

// Replaces each ?NAME whose variable is set; prints the substitutions
// unless told not to. Returns the new text.
std::string substitute(const char* command, int flags) {
    std::string out;
    const char* p = command;
    while (*p) {
        if (*p != '?' || !isNameByte(p[1])) {
            out += *p++;
            continue;
        }
        const char* name = p + 1;
        const char* end = name;
        while (isNameByte(*end))
            ++end;
        const std::string key(name, end);
        const char* value = std::getenv(key.c_str());
        if (!value) {
            out.append(p, end);
            p = end;
            continue;
        }
        if (!(flags & QZ_CMD_QUIET_SUBSTITUTE)) {
            // The word before ?NAME is its parameter: "PASSWORD ?SECRET".
            const char* w = p;
            while (w > command && (w[-1] == ' ' || w[-1] == '\t' || w[-1] == '='))
                --w;
            const char* wordEnd = w;
            while (w > command && isNameByte(w[-1]))
                --w;
            const bool hidden = isPasswordKey(key.c_str(), key.size()) ||
                                isPasswordKey(w, static_cast<std::size_t>(wordEnd - w));
            qzPrintLn("?%s = %s\n", key.c_str(), hidden ? "***" : value);
        }
        out += value;
        p = end;
    }
    return out;
}

// Opens the file an OBEY names and puts it on the stack; on a fault raises
// its message and leaves the stack as it was.
void obey(Reader& r, const char* name) {
    if (r.stack.size() > static_cast<std::size_t>(QZ_CMD_MAX_OBEY_DEPTH)) {
        raise(__LINE__, 220, name, "OBEY files nest more than 16 deep");
        return;
    }
    // Opened without blocking: a FIFO would otherwise wait here for a writer
    // for ever. A device or FIFO is then refused, because /dev/zero or
    // /dev/urandom would never end and a FIFO could block any read.
    const int fd = open(name, O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (fd < 0) {
        raise(__LINE__, 1091, name);
        return;
    }
    pin(r);
    auto s = std::make_unique<Source>();
    s->name = name;
    struct stat st;
    const char* refusal = nullptr;
    if (!identify(fd, *s, st))
        refusal = std::strerror(errno);
    else if (S_ISDIR(st.st_mode))
        refusal = "it is a directory";
    else if (!S_ISREG(st.st_mode))
        refusal = "it is not a regular file";
    else
        for (const auto& open : r.stack)
            if (open->identified && open->dev == s->dev && open->ino == s->ino)
                refusal = "it is already being read, so this OBEY would include it in itself";
    if (!refusal) {
        fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) & ~O_NONBLOCK);
        s->file = fdopen(fd, "r");
        if (!s->file)
            refusal = std::strerror(errno);
    }
    if (refusal) {
        close(fd);
        raise(__LINE__, 220, name, refusal);
        return;
    }
    s->owned = true;
    r.stack.push_back(std::move(s));
}

// The name an OBEY command names: quoted or the rest of the line, a final
// ';' dropped. Empty when there is none.
std::string obeyTarget(const char* command) {
    const char* rest = command + 4;
    std::vector<char> name(std::strlen(rest) + 1);
    const int kind = qzGetQuotedParam(rest, name.data(), name.size());
    if (kind == 0)
        return std::string();
    if (kind < 0) {
        qzRTrim(name.data());
        qzRTrimLastChar(name.data(), ";");
        qzRTrim(name.data());
    }
    return name.data();
}

} // namespace

int qzGetNextCommand(char* buffer, unsigned long size, FILE* file, int flags) {
    if (!buffer || size == 0)
        return 0;
    buffer[0] = '\0';
    if (!file)
        return 0;
    Reader* reader = readerFor(file);
    if (!reader)
        return 0;
    Reader& r = *reader;
    const std::size_t limit = size - 1;
    if (r.line.size() < size + 1 || r.line.size() < MinLineBuffer)
        r.line.assign(size + 1 > MinLineBuffer ? size + 1 : MinLineBuffer, '\0');

    for (;;) {
        std::size_t length = 0;   // of the command in buffer
        bool started = false;     // a line of the command was taken
        bool tooLong = false;     // it outgrew the buffer: read to its end, then skip
        Source* origin = nullptr; // the file it started in, for messages
        std::string originName;   // its name, once that file is closed
        for (;;) {
            Source& s = *r.stack.back();
            std::size_t n;
            Read got = readLine(s.file, r.line, n);
            if (got == Read::Long) {
                // Too long for any command: read to the end of the physical
                // line, and judge from its last byte whether the command
                // goes on, so that its continuation does not turn into
                // commands of its own. (A comment after that byte is not
                // seen; the cost is only where reading resumes.)
                char lastByte = '\0';
                for (std::size_t i = n; i-- > 0;)
                    if (r.line[i] != ' ' && r.line[i] != '\t' && r.line[i] != '\r') {
                        lastByte = r.line[i];
                        break;
                    }
                got = skipRestOfLine(s.file, lastByte);
                if (got == Read::Line) {
                    ++s.line;
                    if (!started)
                        origin = &s;
                    started = tooLong = true;
                    const bool more = s.semicolons ? lastByte != ';' : lastByte == '\\';
                    if (!more)
                        break;
                    continue;
                }
            }
            if (got == Read::Nul || got == Read::Error || got == Read::End) {
                if (got == Read::Nul)
                    raise(__LINE__, 220, nameOf(s).c_str(),
                          ("line " + std::to_string(s.line + 1) +
                           " holds a NUL byte, so it is not text; the rest of the file is skipped")
                              .c_str());
                else if (got == Read::Error)
                    raise(__LINE__, 220, nameOf(s).c_str(), std::strerror(errno));
                if (r.stack.size() == 1) {
                    if (started && got == Read::End)
                        break; // the last command, cut by the end of the file
                    dropReader(file);
                    buffer[0] = '\0'; // what a fault cut short is no command
                    return 0;
                }
                if (origin == &s) {
                    originName = s.name;
                    origin = nullptr;
                }
                r.stack.pop_back();
                if (started && got == Read::End)
                    break; // a command does not run on into the file that named this one
                started = tooLong = false;
                length = 0;
                buffer[0] = '\0';
                continue;
            }
            ++s.line;
            char* text = r.line.data();
            // 1. Blanks and newlines off; COMMENT lines and empty ones go.
            qzFullTrim(text);
            if (!*text || firstWordIs(text, "COMMENT"))
                continue;
            // 2. The file's mode, between commands only.
            if (!started && qzUcasencmp(text, "SEMICOLONTERMINATE", 19) == 0) {
                s.semicolons = true;
                if (r.stack.size() == 1)
                    pin(r);
                continue;
            }
            // 3. The comment and blanks off.
            qzTrimComment(text);
            qzTrim(text);
            n = std::strlen(text);
            if (n == 0)
                continue;
            bool more;
            if (s.semicolons) {
                more = text[n - 1] != ';';
            } else {
                more = text[n - 1] == '\\';
                if (more) {
                    text[--n] = '\0';
                    qzRTrim(text);
                    n = std::strlen(text);
                }
            }
            if (!started)
                origin = &s;
            started = true;
            const std::size_t join = length && n ? 1 : 0;
            if (!tooLong && length + join + n <= limit) {
                if (join)
                    buffer[length++] = ' ';
                std::memcpy(buffer + length, text, n + 1);
                length += n;
            } else {
                tooLong = true;
            }
            if (!more)
                break;
        }
        if (tooLong) {
            raise(__LINE__, 219, (origin ? nameOf(*origin) : originName).c_str(),
                  static_cast<unsigned long>(limit));
            buffer[0] = '\0';
            continue;
        }
        if (length == 0)
            continue; // a command of nothing but continuation marks
        // 4. OBEY.
        if (!(flags & QZ_CMD_NO_OBEY) && firstWordIs(buffer, "OBEY")) {
            const std::string target = obeyTarget(buffer);
            if (!target.empty()) {
                if (flags & QZ_CMD_ECHO)
                    qzPrintLn("%s\n", buffer);
                obey(r, target.c_str());
                buffer[0] = '\0';
                continue;
            }
        }
        // 5 and 6. Environment values.
        if (!(flags & QZ_CMD_NO_SUBSTITUTE) && std::strchr(buffer, '?')) {
            const std::string replaced = substitute(buffer, flags);
            if (replaced.size() > limit) {
                raise(__LINE__, 219, (origin ? nameOf(*origin) : originName).c_str(),
                      static_cast<unsigned long>(limit));
                buffer[0] = '\0';
                continue;
            }
            std::memcpy(buffer, replaced.c_str(), replaced.size() + 1);
            length = replaced.size();
        }
        // 7. The ';' that ends these commands is no part of their text.
        if (firstWordIs(buffer, "MAP") || firstWordIs(buffer, "FILE") ||
            firstWordIs(buffer, "QUERY") || firstWordIs(buffer, "TABLE")) {
            qzRTrimLastChar(buffer, ";");
            qzTrim(buffer);
            length = std::strlen(buffer);
        }
        // 8. Echo, with the password hidden.
        if (flags & QZ_CMD_ECHO) {
            UString shown(buffer);
            qzReplacePassword(shown);
            qzPrintLn("%s\n", shown.c_str());
        }
        return static_cast<int>(length);
    }
}

void qzEndCommands(FILE* file) {
    if (file)
        dropReader(file);
}
