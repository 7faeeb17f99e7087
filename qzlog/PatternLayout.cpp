//===- qzlog/PatternLayout.cpp - Text by a conversion pattern -------------===//
#include "qzlog/PatternLayout.h"

#include "qzlog/Level.h"
#include "qzlog/detail/LogBuffer.h"
#include "qzlog/detail/LogThreadContext.h"
#include "qzlog/detail/Token.h"
#include "qzlog/Logger.h"
#include "qzlog/LoggerRepository.h"
#include "qzlog/LoggingTime.h"
#include "qzstd/NumberString.h"

#include <cstring>
#include <ctime>
#include <vector>

namespace qzs {
namespace qzlib {
namespace qzlog {

struct PatternLayout::Impl {
    std::vector<Token> tokens;
    std::string scratch;
    std::string pattern; // literal tokens point into this copy
};

PatternLayout::PatternLayout(const char* pattern) : impl(new Impl) {
    impl->pattern = pattern ? pattern : "";
    const char* cursor = impl->pattern.c_str();
    while (*cursor) {
        Token token;
        token.parse(cursor);
        impl->tokens.push_back(token);
    }
    // A "%" at the very end gives an unknown conversion that consumed
    // nothing; parse() already recorded it and the loop ended on the NUL.
}

PatternLayout::~PatternLayout() {
    delete impl;
}

const std::string& PatternLayout::getPattern() const {
    return impl->pattern;
}

size_t PatternLayout::tokenCount() const {
    return impl->tokens.size();
}

const Token& PatternLayout::token(size_t index) const {
    return impl->tokens.at(index);
}

char* makeNode(const char* path, const char* delimiters, unsigned int components, char* out) {
    const char* start = path;
    if (components != 0) {
        unsigned int seen = 0;
        for (const char* p = path + std::strlen(path); p > path;) {
            --p;
            if (std::strchr(delimiters, *p) && *p) {
                if (++seen == components) {
                    start = p + 1;
                    break;
                }
            }
        }
    }
    std::strcpy(out, start);
    return out;
}

void makeRCSName(const char* name, char* out) {
    if (name[0] == '$') {
        if (const char* blank = std::strchr(name, ' ')) {
            const char* rest = blank + 1;
            size_t n = std::strlen(rest);
            if (n >= 2 && rest[n - 2] == ' ' && rest[n - 1] == '$') {
                std::memcpy(out, rest, n - 2);
                out[n - 2] = '\0';
                return;
            }
        }
    }
    std::strcpy(out, name);
}

namespace {

// The per-thread date cache: strftime runs at most once a second per thread
// and pattern; the milliseconds are patched in between.
struct TimeCache {
    std::string lastPattern;
    const char* lastPatternPointer = nullptr;
    bool valid = false;
    uint32_t lastSeconds = 0;
    uint32_t lastMilliseconds = 0;
    bool hasSeconds = false;
    char milliseconds[4] = "000";
    char firstFormat[32] = "";
    char secondFormat[32] = "";
    char firstText[128] = "";
    char secondText[128] = "";
    size_t firstLength = 0;
    size_t secondLength = 0;
};

// The cache lives in the thread's logging context and dies with it.
TimeCache& threadTimeCache() {
    LogThreadContext* context = LogBufferImpl::ownContext();
    if (!context->timeCache) {
        context->timeCache = new TimeCache();
        context->freeTimeCache = [](void* cache) { delete static_cast<TimeCache*>(cache); };
    }
    return *static_cast<TimeCache*>(context->timeCache);
}

constexpr uint32_t IntervalLimit = 1189622116; // 0x46E83164
const char DefaultDatePattern[] = "%Y-%m-%d %a %Z %H:%M:%S";

void copyFormat(char* dst, const char* src, size_t n) {
    // Formats are cut to their 32-character fields.
    if (n > 31)
        n = 31;
    std::memcpy(dst, src, n);
    dst[n] = '\0';
}

size_t makeTimeText(const timeval32_t& time, const char* pattern, char* out) {
    if (time.tv_sec <= IntervalLimit) {
        // Not a date but an interval: seconds and milliseconds. Decision: the
        // fraction shows milliseconds, like the dates do.
        size_t n = u32ToString(time.tv_sec, out);
        out[n++] = '.';
        u32ToBuffer((time.tv_usec / 1000) % 1000, out + n, 3);
        out[n + 3] = '\0';
        return n + 3;
    }
    TimeCache& cache = threadTimeCache();
    if (!pattern || !*pattern)
        pattern = DefaultDatePattern;
    // Layouts pass the same pointer each time: compare that before the text.
    bool patternChanged = !cache.valid || (pattern != cache.lastPatternPointer && cache.lastPattern != pattern);
    cache.lastPatternPointer = pattern;
    if (patternChanged) {
        cache.lastPattern = pattern;
        cache.valid = true;
        const char* seconds = std::strstr(pattern, "%S");
        if (seconds) {
            cache.hasSeconds = true;
            size_t n = static_cast<size_t>(seconds - pattern) + 2;
            char head[40];
            copyFormat(head, pattern, n > 30 ? 30 : n);
            std::strcat(head, ".");
            copyFormat(cache.firstFormat, head, std::strlen(head));
            copyFormat(cache.secondFormat, seconds + 2, std::strlen(seconds + 2));
        } else {
            cache.hasSeconds = false;
            copyFormat(cache.firstFormat, pattern, std::strlen(pattern));
            cache.secondFormat[0] = '\0';
        }
    }
    if (patternChanged || time.tv_sec != cache.lastSeconds) {
        cache.lastSeconds = time.tv_sec;
        time_t seconds = static_cast<time_t>(time.tv_sec);
        struct tm local;
        localtime_r(&seconds, &local);
        if (std::strftime(cache.firstText, sizeof cache.firstText, cache.firstFormat, &local) == 0)
            cache.firstText[0] = '\0';
        cache.secondText[0] = '\0';
        if (cache.secondFormat[0] &&
            std::strftime(cache.secondText, sizeof cache.secondText, cache.secondFormat, &local) == 0)
            cache.secondText[0] = '\0';
        cache.firstLength = std::strlen(cache.firstText);
        cache.secondLength = std::strlen(cache.secondText);
    }
    uint32_t ms = (time.tv_usec / 1000) % 1000;
    if (cache.hasSeconds && (patternChanged || ms != cache.lastMilliseconds)) {
        cache.lastMilliseconds = ms;
        u32ToBuffer(ms, cache.milliseconds, 3);
    }
    size_t n = cache.firstLength;
    std::memcpy(out, cache.firstText, n);
    if (cache.hasSeconds) {
        std::memcpy(out + n, cache.milliseconds, 3);
        n += 3;
    }
    const size_t m = cache.secondLength;
    std::memcpy(out + n, cache.secondText, m);
    out[n + m] = '\0';
    return n + m;
}

} // namespace

void makeTime(const timeval32_t& time, const char* pattern, char* out) {
    makeTimeText(time, pattern, out);
}


void PatternLayout::format(const LoggingEvent* event, std::string& out) {
    detail::TextSink sink(out);
    formatInto(event, sink);
}

void PatternLayout::formatInto(const LoggingEvent* event, detail::TextSink& sink) {
    const LocationDependentAttributes* location = event->attributes.location;
    const LocationIndependentAttributes& attrs = event->attributes.attributes;
    char work[512];
    for (const Token& token : impl->tokens) {
        switch (token.type) {
        case 0:
            sink.append(token.text, token.textLength);
            continue;
        case 'n':
            sink.append(1, '\n');
            continue;
        case '?': {
            const char* text = token.option.c_str();
            sink.append(text, std::strlen(text));
            continue;
        }
        case 'c': {
            const char* name = Logger::getRepository().getLoggerName(attrs.loggerId);
            if (!name || !*name)
                name = "root";
            if (token.optionValue == 0) {
                token.addToResult(name, std::strlen(name), sink);
                continue;
            }
            size_t n = std::strlen(name);
            std::string node;
            char* buffer = n < sizeof work ? work : (node.resize(n + 1), &node[0]);
            makeNode(name, ".", token.optionValue, buffer);
            token.addToResult(buffer, std::strlen(buffer), sink);
            continue;
        }
        case 'C': {
            const char* file = location && location->file ? location->file : "";
            const size_t n = std::strlen(file);
            // Paths fit the stack buffers; only a longer one costs a string.
            char rcsLocal[512], nodeLocal[512];
            std::string rcsHeap, nodeHeap;
            char* rcs = n < sizeof rcsLocal ? rcsLocal : (rcsHeap.resize(n + 1), &rcsHeap[0]);
            char* node = n < sizeof nodeLocal ? nodeLocal : (nodeHeap.resize(n + 1), &nodeHeap[0]);
            makeRCSName(file, rcs);
            makeNode(rcs, "/", token.optionValue, node);
            token.addToResult(node, std::strlen(node), sink);
            continue;
        }
        case 'd': {
            if (token.width == 0 && token.precision == 0) {
                // Straight into the line: a date is at most 3 texts of 128.
                char* at = sink.reserve(300);
                sink.commit(makeTimeText(attrs.time, token.option.c_str(), at));
                continue;
            }
            char text[300];
            const size_t n = makeTimeText(attrs.time, token.option.c_str(), text);
            token.addToResult(text, n, sink);
            continue;
        }
        case 'l': {
            // function, a blank, the last two parts of the file, "(line)".
            const char* file = location && location->file ? location->file : "";
            const char* function = location && location->function ? location->function : "";
            const size_t n = std::strlen(file);
            char nodeLocal[512];
            std::string nodeHeap;
            char* node = n < sizeof nodeLocal ? nodeLocal : (nodeHeap.resize(n + 1), &nodeHeap[0]);
            makeNode(file, "/", 2, node);
            char line[8];
            const size_t lineLength = u16ToString(location ? location->line : 0, line);
            const size_t functionLength = std::strlen(function), nodeLength = std::strlen(node);
            const size_t total = functionLength + 1 + nodeLength + 1 + lineLength + 1;
            char textLocal[1024];
            std::string textHeap;
            char* text = total < sizeof textLocal ? textLocal : (textHeap.resize(total + 1), &textHeap[0]);
            char* p = text;
            std::memcpy(p, function, functionLength);
            p += functionLength;
            *p++ = ' ';
            std::memcpy(p, node, nodeLength);
            p += nodeLength;
            *p++ = '(';
            std::memcpy(p, line, lineLength);
            p += lineLength;
            *p++ = ')';
            token.addToResult(text, static_cast<size_t>(p - text), sink);
            continue;
        }
        case 'L': {
            size_t n = u16ToString(location ? location->line : 0, work);
            token.addToResult(work, n, sink);
            continue;
        }
        case 'm': {
            if (token.width == 0 && token.precision == 0) {
                // Straight into the line. A message of several lines, or
                // one too long for the sink's buffer, takes the way below,
                // which indents its lines under its start.
                const size_t mark = sink.size();
                event->render(sink);
                if (sink.trimSince(mark))
                    continue;
                sink.rollback(mark);
            }
            std::string& message = impl->scratch;
            message.clear();
            event->format(message);
            if (message.find('\n') != std::string::npos)
                Token::indentLines(message, sink.column());
            token.addToResult(message.data(), message.size(), sink);
            continue;
        }
        case 'M': {
            const char* function = location && location->function ? location->function : "";
            token.addToResult(function, std::strlen(function), sink);
            continue;
        }
        case 'p': {
            const char* level = Level::getName(attrs.level);
            token.addToResult(level, std::strlen(level), sink);
            continue;
        }
        case 'r': {
            size_t n = i64ToString(LoggingTime::getElapsedTime() / 1000, work);
            token.addToResult(work, n, sink);
            continue;
        }
        case 'S': {
            size_t n = u32ToString(attrs.sequence, work);
            token.addToResult(work, n, sink);
            continue;
        }
        case 't': {
            // Decision: the event's own thread. For a live event that is the
            // calling thread; for a replayed one it is the recorded thread,
            // which is what a reader of an activity file wants to see.
            // The event's buffer belongs to that thread's context; reaching it
            // this way takes no lock, as layouts run under appender locks.
            const LogBufferImpl* buffer = static_cast<const LogBufferImpl*>(event->buffer);
            const LogThreadContext* context =
                buffer && buffer->context ? buffer->context : LogBufferImpl::getThreadContext(attrs.threadNumber);
            const char* name = context->getName();
            token.addToResult(name, std::strlen(name), sink);
            continue;
        }
        default:
            continue;
        }
    }
}

} // namespace qzlog
} // namespace qzlib
} // namespace qzs
