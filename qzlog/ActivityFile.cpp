//===- qzlog/ActivityFile.cpp - Reading activity files back ---------------===//
//
// Every read goes through Session::have(), which is the single bounds check:
// nothing past the end of the map is ever touched, whatever the bytes say.
// A record cut off by the end of the map ends the session there, as a
// session cut off by a crash does.
//
//===----------------------------------------------------------------------===//
#include "qzlog/ActivityFile.h"

#include "qzlog/Level.h"
#include "qzlog/Logger.h"
#include "qzlog/LoggerRepository.h"
#include "qzlog/detail/LogBuffer.h"
#include "qzlog/detail/LogThreadContext.h"
#include "qzmsg/Messages.h"
#include "qzstd/Mutex.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace qzs {
namespace qzlib {
namespace qzlog {

namespace {

constexpr unsigned int ReaderContextBit = 0x10000000u;
constexpr size_t StartMarkerSize = 16;

std::string formatText(const char* format, ...) __attribute__((format(printf, 1, 2)));
std::string formatText(const char* format, ...) {
    // The failure texts are built in a 506-byte buffer, as reported.
    char text[506];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    return text;
}

uint16_t swap16(uint16_t v) {
    return static_cast<uint16_t>((v << 8) | (v >> 8));
}
uint32_t swap32(uint32_t v) {
    return __builtin_bswap32(v);
}
uint64_t swap64(uint64_t v) {
    return __builtin_bswap64(v);
}

} // namespace

//===-- mmapFile -----------------------------------------------------------===//

bool mmapFile::Open(const char* name, std::string& failure, bool& openFailed) {
    Close();
    openFailed = false;
    int fd = ::open(name, O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        openFailed = true;
        failure = name;
        return false;
    }
    struct stat info;
    if (::fstat(fd, &info) != 0 || info.st_size < 17) {
        ::close(fd);
        failure =
            formatText("File '%s' is not large enough to be an Activity Logging data file", name);
        return false;
    }
    uint32_t length = static_cast<uint32_t>(info.st_size);
    void* at = ::mmap(nullptr, length ? length : 1, PROT_READ, MAP_PRIVATE, fd, 0);
    if (at == MAP_FAILED) {
        int code = errno;
        ::close(fd);
        failure = formatText("Mapping of file '%s' failed with error code %u (%s)", name,
                             static_cast<unsigned int>(code), std::strerror(code));
        return false;
    }
    descriptor = fd;
    address = static_cast<const unsigned char*>(at);
    size = length;
    return true;
}

void mmapFile::Close() {
    if (address)
        ::munmap(const_cast<unsigned char*>(address), size ? size : 1);
    if (descriptor >= 0)
        ::close(descriptor);
    address = nullptr;
    descriptor = -1;
    size = 0;
}

//===-- ActivityFile -------------------------------------------------------===//

ActivityFile::ActivityFile(const char* name)
    : fileName(name ? name : ""), offset(0), replayed(0), cutShort(false) {}

ActivityFile::~ActivityFile() {
    loggers.clear();
    map.Close();
}

bool ActivityFile::fail(const std::string& text) const {
    error = text;
    KeepInErrorContext(
        _MSG_String(QZ_SOURCE("qzlog.activity", "qzlog/ActivityFile", "ActivityFile"), 1239,
                    text.c_str(), ReturnToCaller));
    return false;
}

bool ActivityFile::Open() {
    offset = 0;
    error.clear();
    std::string failure;
    bool openFailed = false;
    if (map.Open(fileName.c_str(), failure, openFailed))
        return true;
    if (openFailed) {
        error = "Cannot open file '" + fileName + "': " + std::strerror(errno);
        KeepInErrorContext(
            _MSG_String(QZ_SOURCE("qzlog.activity", "qzlog/ActivityFile", "ActivityFile::Open"),
                        1091, fileName.c_str(), ReturnToCaller));
        return false;
    }
    return fail(failure);
}

bool ActivityFile::ValidateLogStartData() const {
    if (!map.address)
        return fail("Event data not loaded");
    const char* name = fileName.c_str();
    const long position = static_cast<long>(offset);
    if (offset + StartMarkerSize > map.size || map.address[offset] != '<')
        return fail(
            formatText("File '%s' has a malformed file header at position %ld", name, position));
    const unsigned char* marker = map.address + offset;
    if (marker[1] > 2)
        return fail(formatText("File '%s' has a newer version in file header at position %ld", name,
                               position));
    if (marker[1] != 2)
        return fail(formatText("File '%s' has an older version in file header at position %ld",
                               name, position));
    if (marker[2] != 0x10 && marker[2] != 0x01)
        return fail(
            formatText("File '%s' has an undefined endian notation in file header at position %ld",
                       name, position));
    if (marker[3] != 4 && marker[3] != 8)
        return fail(
            formatText("File '%s' has an unsupported pointer size in file header at position %ld",
                       name, position));
    if (marker[4] != 4 && marker[4] != 8)
        return fail(
            formatText("File '%s' has an unsupported float size in file header at position %ld",
                       name, position));
    return true;
}

/// The state of one ProcessSession call.
struct ActivityFile::Session {
    struct ThreadAttr {
        unsigned int contextId = 0;
        uint64_t threadId = 0;
        const char* name = nullptr;
        std::map<unsigned int, LocationDependentAttributes> locations;
        std::map<unsigned short, const char*> strings;
        timeval32_t time = {0, 0};
        unsigned int sequence = 0;
        unsigned short loggerId = 0;
        unsigned char level = 0;
    };

    ActivityFile& file;
    const unsigned char* base;
    size_t end;
    size_t pos;
    bool swap;
    unsigned char pointerSize;
    unsigned char floatSize;
    std::map<unsigned int, ThreadAttr> threads;
    ThreadAttr* thread = nullptr;
    Logger* logger = nullptr;
    // Set when a record runs past the end of the map: the session ends there.
    bool cut = false;

    Session(ActivityFile& f, size_t start)
        : file(f), base(f.map.address), end(f.map.size), pos(start + StartMarkerSize),
          swap(base[start + 2] == 0x01), pointerSize(base[start + 3]), floatSize(base[start + 4]) {}

    bool have(size_t n) {
        if (pos + n <= end)
            return true;
        cut = true;
        return false;
    }
    uint16_t u16(size_t at) const {
        uint16_t v;
        std::memcpy(&v, base + at, 2);
        return swap ? swap16(v) : v;
    }
    uint32_t u32(size_t at) const {
        uint32_t v;
        std::memcpy(&v, base + at, 4);
        return swap ? swap32(v) : v;
    }
    uint64_t u64(size_t at) const {
        uint64_t v;
        std::memcpy(&v, base + at, 8);
        return swap ? swap64(v) : v;
    }
    // Length of the NUL-terminated text at `at`, terminator included; 0 when
    // the map ends first.
    size_t textSize(size_t at) {
        if (at >= end) {
            cut = true;
            return 0;
        }
        const void* nul = std::memchr(base + at, 0, end - at);
        if (!nul) {
            cut = true;
            return 0;
        }
        return static_cast<size_t>(static_cast<const unsigned char*>(nul) - (base + at)) + 1;
    }
    uint32_t where() const { return static_cast<uint32_t>(pos ? pos - 1 : 0); }

    /// Resolves a string record at `pos` into `out`; the record's size, or 0
    /// for a byte that is no string record (or one cut off).
    size_t resolveString(const char*& out) {
        if (!have(1))
            return 0;
        const unsigned char token = base[pos];
        if (token == 's') {
            size_t n = textSize(pos + 1);
            if (!n)
                return 0;
            out = reinterpret_cast<const char*>(base + pos + 1);
            if (thread)
                thread->strings[static_cast<unsigned short>(thread->strings.size())] = out;
            return n + 1;
        }
        if (token == 'S') {
            if (!have(3))
                return 0;
            const unsigned short number = u16(pos + 1);
            const char* found = nullptr;
            if (thread) {
                // Kept as it is: looking up a missing number makes an empty
                // entry, which moves later implicit numbers on.
                found = thread->strings[number];
            }
            out = found ? found : "<Error>";
            return 3;
        }
        return 0;
    }

    /// Reads a 'c' level record at `pos`: names the level; returns its size.
    size_t loadLevel() {
        if (!have(2))
            return 0;
        size_t n = textSize(pos + 2);
        if (!n)
            return 0;
        Level::setName(base[pos + 1], reinterpret_cast<const char*>(base + pos + 2));
        return n + 2;
    }

    /// Reads a 'd' logger record at `pos`; returns its size.
    size_t loadLogger() {
        if (!have(5))
            return 0;
        const unsigned short id = u16(pos + 1);
        size_t levelAt = pos + 3;
        size_t levelSize;
        if (base[levelAt] == 'c') {
            size_t saved = pos;
            pos = levelAt;
            levelSize = loadLevel();
            pos = saved;
            if (!levelSize)
                return 0;
        } else {
            levelSize = 2;
        }
        size_t nameAt = levelAt + levelSize;
        size_t n = textSize(nameAt);
        if (!n)
            return 0;
        Logger* l = Logger::getRepository().getLogger(reinterpret_cast<const char*>(base + nameAt),
                                                      nullptr);
        file.loggers[id] = l;
        return 3 + levelSize + n;
    }

    /// Reads one detail token into `event`; false when the token is unknown
    /// (a failure) or cut off (`cut` set).
    bool readDetail(LoggingEvent& event) {
        if (!have(1))
            return false;
        const unsigned char token = base[pos];
        const size_t at = pos + 1;
        switch (token) {
        case 'g':
        case 'h': {
            if (!have(3))
                return false;
            uint16_t v = u16(at);
            event.addDetail(token, &v, 2);
            pos += 3;
            return true;
        }
        case 'j':
        case 'k': {
            if (!have(5))
                return false;
            uint32_t v = u32(at);
            event.addDetail(token, &v, 4);
            pos += 5;
            return true;
        }
        case 'm':
        case 'n': {
            if (!have(9))
                return false;
            uint64_t v = u64(at);
            event.addDetail(token, &v, 8);
            pos += 9;
            return true;
        }
        case 'f': {
            if (!have(1 + floatSize))
                return false;
            // Floats are never swapped; another size comes back as raw bytes.
            event.addDetail(floatSize == 4 ? LogFloat : LogRaw, base + at, floatSize);
            pos += 1 + floatSize;
            return true;
        }
        case 'p': {
            if (!have(1 + pointerSize))
                return false;
            uint64_t v = pointerSize == 8 ? u64(at) : u32(at);
            event.addDetail(LogPointer, &v, 8);
            pos += 1 + pointerSize;
            return true;
        }
        case 'r': {
            if (!have(5))
                return false;
            const uint32_t length = u32(at);
            if (!have(5 + static_cast<size_t>(length)))
                return false;
            event.addDetail(LogRaw, base + at + 4, length);
            pos += 5 + static_cast<size_t>(length);
            return true;
        }
        case 's': {
            size_t n = textSize(at);
            if (!n)
                return false;
            event.addDetail(LogString, base + at, n);
            pos += 1 + n;
            return true;
        }
        case 'u': {
            // Two NUL bytes on an even offset from the text's start.
            size_t p = at;
            for (;;) {
                if (p + 2 > end) {
                    cut = true;
                    return false;
                }
                if (base[p] == 0 && base[p + 1] == 0)
                    break;
                p += 2;
            }
            uint64_t address = reinterpret_cast<uintptr_t>(base + at);
            event.addDetail(LogPointer, &address, 8);
            pos = p + 2;
            return true;
        }
        case 't': {
            if (!have(9))
                return false;
            // Kept as it is: both halves come from the first stored word.
            uint32_t first = u32(at);
            timeval32_t v = {first, first};
            event.addDetail(LogTime, &v, 8);
            pos += 9;
            return true;
        }
        case 'S': {
            if (!have(3))
                return false;
            const char* text = nullptr;
            if (thread)
                text = thread->strings[u16(at)];
            uint64_t address = reinterpret_cast<uintptr_t>(text);
            event.addDetail(LogUnsignedLong, &address, 8);
            pos += 3;
            return true;
        }
        default:
            return file.fail(formatText("Invalid token 0x%02x in data at offset 0x%08x\n", token,
                                        static_cast<unsigned int>(pos)));
        }
    }

    /// Reads a thread record at `pos` ('b' or 'B'); false when cut off.
    bool readThread() {
        const unsigned char token = base[pos];
        if (!have(5))
            return false;
        const unsigned int id = u32(pos + 1) | ReaderContextBit;
        ThreadAttr& attr = threads[id];
        attr.contextId = id;
        thread = &attr;
        if (token == 'b') {
            if (!have(13))
                return false;
            attr.locations.clear();
            attr.strings.clear();
            attr.threadId = u64(pos + 5);
            size_t n = textSize(pos + 13);
            if (!n)
                return false;
            attr.name = reinterpret_cast<const char*>(base + pos + 13);
            pos += 13 + n;
        } else {
            pos += 5;
        }
        LogThreadContext* context = LogBufferImpl::getThreadContext(id);
        if (attr.name)
            context->setName(attr.name);
        return true;
    }

    /// One session; true when it ended well (at '>', '<' or the end of the map).
    bool run() {
        bool threadJustSet = false;
        for (;;) {
            if (pos >= end) {
                // No '>' and no next '<': the writer always ends a session,
                // so the file stops inside this one.
                cut = true;
                return true;
            }
            unsigned char token = base[pos];
            if (!threadJustSet) {
                if (token == '>') {
                    ++pos;
                    return true;
                }
                if (token == '<')
                    return true;
            }
            if (!threadJustSet && (token | 0x20) == 'b') {
                if (!readThread())
                    return cut;
                threadJustSet = true;
                continue;
            }
            threadJustSet = false;
            if ((token | 0x20) != 'a') {
                ++pos;
                return file.fail(
                    formatText("Expecting LogEvent token but found invalid token 0x%02x in data at "
                               "offset 0x%08x\n",
                               token, where()));
            }
            if (!have(9))
                return cut;
            const unsigned int eventId = u32(pos + 1);
            const unsigned int sequence = u32(pos + 5);
            pos += 9;
            if (thread)
                thread->sequence = sequence;
            if (token == 'a') {
                if (!have(2))
                    return cut;
                const unsigned short count = u16(pos);
                pos += 2;
                const char* strings[3] = {nullptr, nullptr, nullptr};
                for (const char*& s : strings) {
                    // A byte that is no string record leaves the string unset
                    // and the cursor where it is.
                    pos += resolveString(s);
                    if (cut)
                        return true;
                }
                if (thread)
                    thread->locations[eventId] = LocationDependentAttributes{
                        strings[2], strings[0], strings[1],
                        static_cast<unsigned short>(eventId & 0xFFFF), count};
            }

            // Prologue: logger, level and time, in any order.
            while (pos < end) {
                const unsigned char p = base[pos];
                if (p == 'e') {
                    if (!have(9))
                        return true;
                    if (thread) {
                        thread->time.tv_sec = u32(pos + 1);
                        thread->time.tv_usec = u32(pos + 5);
                    }
                    pos += 9;
                } else if (p == 'c' || p == 'C') {
                    size_t n = p == 'c' ? loadLevel() : (have(2) ? 2 : 0);
                    if (!n)
                        return true;
                    if (thread)
                        thread->level = base[pos + 1];
                    pos += n;
                } else if (p == 'd' || p == 'D') {
                    size_t n = p == 'd' ? loadLogger() : (have(3) ? 3 : 0);
                    if (!n)
                        return true;
                    const unsigned short id = u16(pos + 1);
                    Logger*& l = file.loggers[id];
                    logger = l;
                    if (thread && l)
                        thread->loggerId = l->id;
                    pos += n;
                } else {
                    break;
                }
            }
            if (!logger)
                return file.fail(formatText(
                    "Missing logger token for event stream in data at offset 0x%08x\n", where()));
            if (!thread)
                return file.fail(formatText(
                    "Missing thread context for event stream in data at offset 0x%08x\n", where()));

            LocationDependentAttributes& location = thread->locations[eventId];
            LogThreadContext* context = LogBufferImpl::getThreadContext(thread->contextId);
            // The context's buffer is written as a log call would write it.
            MultiThreading::ScopedLock contextGuard(context->mutex);
            LoggingEvent event(context, &location, eventId, thread->time, thread->loggerId,
                               thread->level);
            event.attributes.attributes.sequence = thread->sequence;
            while (event.count < location.argCount && event.count < LoggingEvent::MaxDetails &&
                   pos < end) {
                if (!readDetail(event)) {
                    if (!cut) {
                        static_cast<LogBufferImpl*>(context->buffer)->closeEvent();
                        return false;
                    }
                    break;
                }
            }
            event.setBufferLocation(context->buffer);
            if (event.count < location.argCount)
                static_cast<LogBufferImpl*>(context->buffer)->closeEvent();
            ++file.replayed;
            if (event.attributes.attributes.level >= logger->getEffectiveLevel())
                logger->doAppend(&event);
            if (cut)
                return true;
        }
    }
};

bool ActivityFile::ProcessSession() {
    error.clear();
    cutShort = false;
    if (!ValidateLogStartData()) {
        // A later session whose marker the end of the file cuts is still a
        // malformed header to the reader; endedEarly() tells it apart for a
        // caller that cares why.
        cutShort = map.address && offset > 0 && offset < map.size &&
                   offset + StartMarkerSize > map.size && map.address[offset] == '<';
        return false;
    }
    Session session(*this, offset);
    // While it replays, this thread writes other threads' buffers under their
    // locks and the buffer pool's; a record of its own made meanwhile (the pool
    // growing, a message about this file) would take its own context's lock
    // against that order. Such records are dropped, as inside a log call.
    LogThreadContext* own = LogBufferImpl::getThreadContext(0);
    if (own)
        ++own->recursion;
    const bool replayed = session.run();
    if (own)
        --own->recursion;
    if (!replayed)
        return false;
    // A session cut off by the end of the map ends there.
    cutShort = session.cut;
    offset = session.cut || session.pos > map.size ? map.size : session.pos;
    return true;
}

} // namespace qzlog
} // namespace qzlib
} // namespace qzs
