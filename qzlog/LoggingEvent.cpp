//===- qzlog/LoggingEvent.cpp - One log event and its arguments -----------===//
#include "qzlog/LoggingEvent.h"

#include "qzlog/detail/LogBuffer.h"
#include "qzlog/detail/LogThreadContext.h"
#include "qzlog/LoggingPause.h"
#include "qzlog/Logger.h"
#include "qzlog/LoggerRepository.h"
#include "qzlog/LoggingTime.h"
#include "qzlog/PatternLayout.h"
#include "qzlog/detail/Token.h"
#include "qzstd/Mutex.h"
#include "qzstd/NumberString.h"
#include "qzstd/SparseArray.h"
#include "qzstd/memutl.h"
#include "qzunicode/ULib.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <vector>

namespace qzs {
namespace qzlib {
namespace qzlog {

using MultiThreading::Mutex;
using MultiThreading::ScopedLock;

unsigned long LoggingEvent::m_maxEventDetailSize = LogBufferImpl::m_maxDetailSize;
Mutex* EventAttributes::m_PoolMutex = nullptr;

namespace {
// Source file pointer to ordinal << 16, and event id to location record.
// Both only grow, guarded by m_PoolMutex, and are never destroyed.
SparseArray<unsigned int, unsigned long>* g_sourceIDs = nullptr;
SparseArray<LocationDependentAttributes*, unsigned int>* g_eventPool = nullptr;
} // namespace

void EventAttributes::Initialize() {
    m_PoolMutex = new Mutex();
    g_sourceIDs = new SparseArray<unsigned int, unsigned long>();
    g_eventPool = new SparseArray<LocationDependentAttributes*, unsigned int>();
}

unsigned long EventAttributes::sourceCount() {
    ScopedLock guard(m_PoolMutex);
    return g_sourceIDs->size();
}

unsigned int EventAttributes::getEventID(const char* const& file, unsigned short line, bool& isNew) {
    const unsigned long key = reinterpret_cast<unsigned long>(file);
    if (const unsigned int* base = g_sourceIDs->find(key)) {
        isNew = false;
        return *base + line;
    }
    isNew = true;
    const unsigned int base = static_cast<unsigned int>(g_sourceIDs->size()) << 16;
    (*g_sourceIDs)[key] = base;
    return base + line;
}

namespace {
// The thread's cache of (file, line) to location and id, in its context. A
// location, once made, never changes and is never freed, so a cached entry
// is always right; it saves the pool mutex on every event of a statement
// after its first on this thread.
LogThreadContext::LocationSlot& cacheSlot(const char* file, unsigned short line) {
    uintptr_t key = reinterpret_cast<uintptr_t>(file) ^ (static_cast<uintptr_t>(line) * 0x9E3779B1u);
    key ^= key >> 7;
    return LogBufferImpl::ownContext()->locationCache[key % LogThreadContext::LocationSlots];
}
} // namespace

void EventAttributes::constructorInit(const char* file, unsigned short line, const char* format,
                                      const char* function, unsigned short argCount) {
    LogThreadContext::LocationSlot& slot = cacheSlot(file, line);
    if (slot.location && slot.file == file && slot.line == line) {
        location = static_cast<LocationDependentAttributes*>(slot.location);
        eventId = slot.eventId;
        return;
    }
    lookupLocation(file, line, format, function, argCount);
    slot = LogThreadContext::LocationSlot{file, line, eventId, location};
}

void EventAttributes::lookupLocation(const char* file, unsigned short line, const char* format,
                                     const char* function, unsigned short argCount) {
    ScopedLock guard(m_PoolMutex);
    bool isNew = false;
    eventId = getEventID(file, line, isNew);
    if (!isNew) {
        if (LocationDependentAttributes* const* found = g_eventPool->find(eventId)) {
            location = *found;
            return;
        }
    }
    // Made once per statement and never freed: events of the statement share it.
    location = new LocationDependentAttributes{format, file, function, line, argCount};
    (*g_eventPool)[eventId] = location;
}

void LoggingEvent::init(const char* format, const char* file, const char* function, unsigned short line,
                        unsigned short argCount, unsigned short loggerId, unsigned char level) {
    attributes.attributes.loggerId = loggerId;
    attributes.attributes.level = level;
    attributes.constructorInit(file, line, format, function, argCount);
    count = 0;
    bufferBlock = 0;
    bufferStart = nullptr;
    bufferLength = 0;
}

LoggingEvent::LoggingEvent(LogBuffer* buf, const char* format, const char* file, const char* function,
                           unsigned short line, unsigned short argCount, unsigned short loggerId,
                           unsigned char level) {
    LoggerRepository* repository = __atomic_load_n(&Logger::m_repository, __ATOMIC_ACQUIRE);
    attributes.attributes.sequence =
        (repository ? repository : &Logger::getRepository())->getEventSequence();
    // LogBufferImpl is the one real buffer class; its context is the thread's.
    LogThreadContext* owner = static_cast<LogBufferImpl*>(buf)->context;
    attributes.attributes.threadNumber =
        owner ? owner->threadContextNumber : LogBufferImpl::ownContext()->threadContextNumber;
    LoggingTime::getCurrentTime(&attributes.attributes.time);
    init(format, file, function, line, argCount, loggerId, level);
    buffer = buf;
    // The one real buffer class, called directly rather than through the table.
    static_cast<LogBufferImpl*>(buf)->LogBufferImpl::addEvent(this);
}

LoggingEvent::LoggingEvent(LogThreadContext* context, const char* format, const char* file,
                           const char* function, unsigned short line, unsigned short argCount,
                           const timeval32_t& time, unsigned short loggerId, unsigned char level) {
    attributes.attributes.sequence = Logger::getRepository().getEventSequence();
    attributes.attributes.threadNumber = context->threadContextNumber;
    attributes.attributes.time = time;
    init(format, file, function, line, argCount, loggerId, level);
    buffer = context->buffer;
    buffer->addEvent(this);
}

LoggingEvent::LoggingEvent(LogThreadContext* context, LocationDependentAttributes* location,
                           unsigned int eventId, const timeval32_t& time, unsigned short loggerId,
                           unsigned char level) {
    attributes.location = location;
    attributes.eventId = eventId;
    attributes.attributes.time = time;
    attributes.attributes.sequence = 0;
    attributes.attributes.threadNumber = context->threadContextNumber;
    attributes.attributes.loggerId = loggerId;
    attributes.attributes.level = level;
    count = 0;
    bufferBlock = 0;
    bufferStart = nullptr;
    bufferLength = 0;
    buffer = context->buffer;
    buffer->addEvent(this);
}

LoggingEvent::LoggingEvent(const LoggingEvent& other) {
    *this = other;
}

LoggingEvent& LoggingEvent::operator=(const LoggingEvent& other) {
    attributes = other.attributes;
    bufferBlock = other.bufferBlock;
    bufferStart = other.bufferStart;
    bufferLength = other.bufferLength;
    buffer = other.buffer;
    count = other.count;
    for (unsigned int i = 0; i < count; ++i) {
        types[i] = other.types[i];
        details[i] = other.details[i];
    }
    return *this;
}

void LoggingEvent::addArg(const char16_t* v) {
    if (!v) {
        static const char16_t nul[] = u"<nul>";
        addDetail(LogUTF16, nul, sizeof nul);
        return;
    }
    size_t n = 0;
    while (v[n])
        ++n;
    addDetail(LogUTF16, v, (n + 1) * 2);
}

void LoggingEvent::addArg(const LoggingCallStack& stack) {
    addDetail(LogString, stack.data(), stack.size());
}

void LoggingEvent::setBufferLocation(const LogBuffer* buf) {
    // LogBufferImpl is the one real buffer class.
    if (buf)
        static_cast<const LogBufferImpl*>(buf)->locate(*this);
}

namespace {

template <typename T>
T readAs(const unsigned char* data) {
    T value;
    std::memcpy(&value, data, sizeof value);
    return value;
}

// UTF-16 text of a detail, which may stand at any address, in the process
// default character set.
void utf16ToText(const unsigned char* data, std::string& out) {
    size_t units = 0;
    while (readAs<uint16_t>(data + 2 * units) != 0)
        ++units;
    out.clear();
    if (units == 0)
        return;
    const int widest = ULIB_getMaxCharSize(qzunicode::ULIB_CS_DEFAULT);
    out.resize(units * static_cast<size_t>(widest > 0 ? widest : 4) + 4);
    qzunicode::ULibError err;
    const int written = ULIB_fromUTF16(qzunicode::ULIB_CS_DEFAULT, &out[0], static_cast<int>(out.size()),
                                       reinterpret_cast<const unsigned short*>(data), static_cast<int>(units), &err);
    out.resize(written > 0 ? static_cast<size_t>(written) : 0);
}

bool isIntegerType(LogDataType type) {
    switch (type) {
    case LogShort: case LogUnsignedShort: case LogInt:
    case LogUnsignedInt: case LogLong: case LogUnsignedLong:
        return true;
    default:
        return false;
    }
}

// The value of an integer detail, zero-extended, and its natural hex width.
uint64_t integerValue(const unsigned char* data, LogDataType type, size_t& digits) {
    switch (type) {
    case LogShort: case LogUnsignedShort:
        digits = 4;
        return readAs<uint16_t>(data);
    case LogInt: case LogUnsignedInt:
        digits = 8;
        return readAs<uint32_t>(data);
    default:
        digits = 16;
        return readAs<uint64_t>(data);
    }
}

} // namespace

void LoggingEvent::formatFloat(const unsigned char* data, unsigned int width, unsigned int precision,
                               format_t& scratch) const {
    // Bounded here too, not only by the parse of a format: snprintf allocates
    // as much as the precision asks.
    width = std::min(width, Token::MaxWidth);
    precision = std::min(precision, Token::MaxWidth);
    char spec[32] = "%";
    size_t n = 1;
    if (width)
        n += u32ToString(width, spec + n);
    if (precision) {
        spec[n++] = '.';
        n += u32ToString(precision, spec + n);
    }
    spec[n++] = 'f';
    spec[n] = '\0';
    const double value = static_cast<double>(readAs<float>(data));
    const int length = std::snprintf(scratch.buffer, sizeof scratch.buffer, spec, value);
    // A wide or precise field does not fit the buffer: render it whole into
    // longText rather than cut the number off.
    if (length >= static_cast<int>(sizeof scratch.buffer)) {
        scratch.longText.resize(static_cast<size_t>(length) + 1);
        std::snprintf(&scratch.longText[0], scratch.longText.size(), spec, value);
        scratch.longText.resize(static_cast<size_t>(length));
    }
}

void LoggingEvent::format(const unsigned char* data, LogDataType type, format_t& scratch,
                          char conversion) const {
    scratch.text = nullptr;
    scratch.buffer[0] = '\0';
    if ((conversion == 'x' || conversion == 'X') && isIntegerType(type)) {
        size_t digits;
        uint64_t value = integerValue(data, type, digits);
        HexString(value, scratch.buffer, digits, conversion == 'X');
        return;
    }
    if (conversion == 'o' && isIntegerType(type)) {
        size_t digits;
        OctalString(integerValue(data, type, digits), scratch.buffer);
        return;
    }
    if (conversion == 'c') {
        scratch.buffer[0] = static_cast<char>(data[0]);
        scratch.buffer[1] = '\0';
        return;
    }
    switch (type) {
    case LogShort: i16ToString(readAs<int16_t>(data), scratch.buffer); break;
    case LogUnsignedShort: u16ToString(readAs<uint16_t>(data), scratch.buffer); break;
    case LogInt: i32ToString(readAs<int32_t>(data), scratch.buffer); break;
    case LogUnsignedInt: u32ToString(readAs<uint32_t>(data), scratch.buffer); break;
    case LogLong: i64ToString(readAs<int64_t>(data), scratch.buffer); break;
    case LogUnsignedLong: u64ToString(readAs<uint64_t>(data), scratch.buffer); break;
    case LogFloat: formatFloat(data, 0, 0, scratch); break;
    case LogPointer:
        scratch.buffer[0] = '0';
        scratch.buffer[1] = 'x';
        HexString(readAs<uint64_t>(data), scratch.buffer + 2, 16, false);
        break;
    case LogRaw: {
        uint32_t length = readAs<uint32_t>(data);
        unsigned long size = qzHexDumpSize(length, 16);
        if (size <= sizeof scratch.buffer) {
            qzHexDump(scratch.buffer, data + 4, length, 16, true);
        } else {
            std::vector<char> area(size);
            unsigned long n = qzHexDump(area.data(), data + 4, length, 16, true);
            scratch.longText.assign(area.data(), n);
        }
        break;
    }
    case LogString: scratch.text = reinterpret_cast<const char*>(data); break;
    case LogTime: makeTime(readAs<timeval32_t>(data), "%Y-%m-%d %a %Z %H:%M:%S", scratch.buffer); break;
    case LogUTF16:
        scratch.longText.clear();
        utf16ToText(data, scratch.longText);
        break;
    default: scratch.text = "###"; break;
    }
}

namespace {

// Renders the common case of one argument, a decimal or a text under a
// conversion that takes the stored type, without the general path: no
// scratch record and no second pass for the length. Answers false for
// anything else, which the general path then renders.
inline bool quickArgument(const unsigned char* data, LogDataType type, char* buffer,
                          const char*& result, size_t& length) {
    switch (type) {
    // `buffer` holds 32 bytes: room for the padded writers' wide stores.
    case LogInt: length = i64ToStringPadded(readAs<int32_t>(data), buffer); break;
    case LogUnsignedInt: length = u64ToStringPadded(readAs<uint32_t>(data), buffer); break;
    case LogLong: length = i64ToStringPadded(readAs<int64_t>(data), buffer); break;
    case LogUnsignedLong: length = u64ToStringPadded(readAs<uint64_t>(data), buffer); break;
    case LogShort: length = i64ToStringPadded(readAs<int16_t>(data), buffer); break;
    case LogUnsignedShort: length = u64ToStringPadded(readAs<uint16_t>(data), buffer); break;
    case LogString:
        // A text given as it stands is not indented, even with newlines.
        result = reinterpret_cast<const char*>(data);
        length = std::strlen(result);
        return true;
    default:
        return false;
    }
    result = buffer;
    return true;
}

bool isBlank(char c) {
    return c == ' ' || c == '\n' || c == '\t' || c == '\r';
}

} // namespace

void LoggingEvent::format(std::string& out) const {
    {
        detail::TextSink sink(out);
        render(sink);
    }
    // Trim the whole of `out`: trailing, then leading.
    if (out.empty() || !(isBlank(out.back()) || isBlank(out.front())))
        return;
    static const char blanks[] = "\r\n\t ";
    size_t end = out.find_last_not_of(blanks);
    if (end == std::string::npos) {
        out.clear();
        return;
    }
    out.erase(end + 1);
    out.erase(0, out.find_first_not_of(blanks));
}

namespace {

// A conversion the quick path does not take: a float, a hexadecimal or octal
// or character form, a type rendered through the scratch record, or an
// unknown letter. Out of line, so that the usual message never builds the
// scratch record.
__attribute__((noinline)) void renderThroughScratch(const LoggingEvent& event, char c, unsigned int index,
                                                    Token& token, detail::TextSink& sink) {
    LoggingEvent::format_t scratch;
    scratch.text = nullptr;
    scratch.buffer[0] = '\0';
    switch (c) {
    case 'D': case 'T': case 'd': case 'f': case 'p': case 's': case 'u':
        if (event.types[index] == LogFloat) {
            event.formatFloat(event.details[index], token.width, token.precision, scratch);
            token.leftAlign = false;
            token.zeroPad = false;
            token.width = 0;
            token.precision = 0;
        } else {
            event.format(event.details[index], event.types[index], scratch, 0);
        }
        break;
    case 'X': case 'c': case 'o': case 'x':
        event.format(event.details[index], event.types[index], scratch, c);
        break;
    default:
        std::memcpy(scratch.buffer, "%?_?", 5);
        scratch.buffer[2] = c;
        break;
    }
    const char* result;
    size_t length;
    if (scratch.text) {
        result = scratch.text;
        length = std::strlen(result);
    } else {
        if (scratch.longText.empty()) {
            length = std::strlen(scratch.buffer);
            // A result of several lines lines up under its first line.
            if (std::memchr(scratch.buffer, '\n', length))
                scratch.longText.assign(scratch.buffer, length);
        }
        if (!scratch.longText.empty()) {
            Token::indentLines(scratch.longText, sink.column());
            result = scratch.longText.c_str();
            length = scratch.longText.size();
        } else {
            result = scratch.buffer;
        }
    }
    token.addToResult(result, length, sink);
}

} // namespace

void LoggingEvent::render(detail::TextSink& sink) const {
    const LocationDependentAttributes* location = attributes.location;
    const char* cursor = location && location->format ? location->format : "";
    const unsigned int argCount = location ? location->argCount : 0;
    unsigned int index = 0;
    Token token;
    char quick[32];
    for (;;) {
        // One pass finds the next "%" or the end of the format.
        const char* percent = ::strchrnul(cursor, '%');
        sink.append(cursor, static_cast<size_t>(percent - cursor));
        if (!*percent)
            break;
        cursor = percent + 1;
        // Most conversions carry no flags: skip the parse for them.
        const char first = *cursor;
        if (first == '-' || first == '.' || (first >= '0' && first <= '9')) {
            token.parseJustification(cursor);
        } else {
            token.leftAlign = false;
            token.zeroPad = false;
            token.width = 0;
            token.precision = 0;
        }
        // Kept on purpose: the argument count is tested before the
        // conversion is looked at, so with no argument left even "%%"
        // shows as "???".
        if (index >= argCount || index >= count) {
            token.addToResult("???", 3, sink);
            ++index;
        } else {
            while (*cursor == '.' || *cursor == 'L' || *cursor == 'h' || *cursor == 'l')
                ++cursor;
            const char c = *cursor;
            const char* result;
            size_t length;
            if (c == '%') {
                token.addToResult("%", 1, sink);
            } else if ((c == 'd' || c == 's' || c == 'u' || c == 'D' || c == 'T' || c == 'f' || c == 'p') &&
                       quickArgument(details[index], types[index], quick, result, length)) {
                // Decimals and texts taken as they stand: nothing to indent.
                token.addToResult(result, length, sink);
                ++index;
            } else {
                renderThroughScratch(*this, c, index, token, sink);
                ++index;
            }
        }
        if (*cursor)
            ++cursor;
    }
}

} // namespace qzlog
} // namespace qzlib
} // namespace qzs
