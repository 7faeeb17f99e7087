//===- qzlog/LoggingEvent.h - One log event and its arguments --*- C++ -*-===//
//
// The event of one log statement: its location, which never changes for the
// statement, its time, sequence and thread, and its arguments stored raw and
// typed in the thread's log buffer. Nothing is formatted until a text
// appender asks for it.
//
//===----------------------------------------------------------------------===//
#ifndef QZLOG_LOGGINGEVENT_H
#define QZLOG_LOGGINGEVENT_H

#include "qzstd/Export.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <type_traits>
#include <utility>

// A JSON value can be a log argument; its class lives on a floor above this
// one, which also defines LoggingEvent::operator<<(const JsonValue&).
class JsonValue;

namespace qzs {
namespace qzlib {
namespace detail {
class TextSink;
} // namespace detail
namespace MultiThreading {
class Mutex;
}
namespace qzlog {

class LogBuffer;
class LogThreadContext;
class LoggingCallStack;

/// Seconds and microseconds, 32 bits each.
struct QZ_API timeval32_t {
    uint32_t tv_sec;
    uint32_t tv_usec;
};

/// A log argument of raw bytes, rendered as a hex dump. A null pointer
/// stores length 0.
struct QZ_API LoggingRawData {
    const void* data;
    uint32_t length;
    LoggingRawData(const void* d, unsigned long n) : data(d), length(d ? static_cast<uint32_t>(n) : 0) {}
};

/// The stored type of one argument: an ASCII letter.
typedef uint32_t LogDataType;
enum : LogDataType {
    LogFloat = 'f',          ///< float, 4 bytes
    LogShort = 'g',          ///< short, 2 bytes
    LogUnsignedShort = 'h',  ///< unsigned short, 2 bytes
    LogInt = 'j',            ///< int, char, bool, enumerations, 4 bytes
    LogUnsignedInt = 'k',    ///< unsigned int, 4 bytes
    LogLong = 'm',           ///< long, 8 bytes
    LogUnsignedLong = 'n',   ///< unsigned long, 8 bytes
    LogPointer = 'p',        ///< any pointer, 8 bytes
    LogRaw = 'r',            ///< 32-bit length, then the bytes
    LogString = 's',         ///< text with its NUL
    LogTime = 't',           ///< timeval32_t, 8 bytes
    LogUTF16 = 'u',          ///< UTF-16 code units with their terminator
};

/// What never changes for one log statement. The pointers are the caller's
/// string literals, kept for ever and never copied.
struct QZ_API LocationDependentAttributes {
    const char* format;
    const char* file;
    const char* function;
    unsigned short line;
    unsigned short argCount;
};

/// What changes with each event.
struct QZ_API LocationIndependentAttributes {
    timeval32_t time;
    unsigned int sequence;
    unsigned int threadNumber;
    unsigned short loggerId;
    unsigned char level;
};

/// Location, per-event attributes and the statement's event id.
///
/// Location records live in a process-wide table keyed by (source file
/// pointer, line) and are never freed. Kept on purpose: two statements on one
/// source line share the first statement's record, format included.
struct QZ_API EventAttributes {
    LocationDependentAttributes* location;
    LocationIndependentAttributes attributes;
    unsigned int eventId;

    /// The id of (file pointer, line): the file's ordinal shifted left 16,
    /// plus the line. `isNew` tells whether the file was first seen now.
    /// REQUIRES: m_PoolMutex held.
    static unsigned int getEventID(const char* const& file, unsigned short line, bool& isNew);
    /// Finds or makes the location record of the statement, under m_PoolMutex.
    void constructorInit(const char* file, unsigned short line, const char* format,
                         const char* function, unsigned short argCount);
    /// constructorInit's table work, under m_PoolMutex.
    void lookupLocation(const char* file, unsigned short line, const char* format, const char* function,
                        unsigned short argCount);
    /// Makes the pool mutex and both tables.
    static void Initialize();
    /// Entries in the source table, for tests and reports.
    static unsigned long sourceCount();

    static MultiThreading::Mutex* m_PoolMutex;
};

/// One argument of a log statement as the statement hands it over to the
/// library in a single call (Logger::log): its stored type and length, and
/// its value when it is a number, a pointer or a time, or the address of its
/// bytes when it is a text or raw data. `of` mirrors LoggingEvent::addArg
/// overload for overload, so an argument is stored the same either way.
struct QZ_API LogArg {
    uint64_t value;    ///< the value's bytes, or the address of a LogString, LogUTF16 or LogRaw payload
    uint32_t length;   ///< the bytes stored
    LogDataType type;

    /// A payload stored by address rather than by value.
    bool byAddress() const { return type == LogString || type == LogUTF16 || type == LogRaw; }
    const void* bytes() const {
        return byAddress() ? reinterpret_cast<const void*>(static_cast<uintptr_t>(value)) : &value;
    }

    template <typename T>
    static LogArg bits(LogDataType type, T v) {
        static_assert(sizeof(T) <= 8, "a value of at most 8 bytes");
        LogArg a{0, sizeof(T), type};
        std::memcpy(&a.value, &v, sizeof(T));
        return a;
    }
    static LogArg at(LogDataType type, const void* p, unsigned long n) {
        return LogArg{reinterpret_cast<uintptr_t>(p), static_cast<uint32_t>(n), type};
    }

    static LogArg of(float v) { return bits(LogFloat, v); }
    static LogArg of(double v) { return of(static_cast<float>(v)); }
    static LogArg of(short v) { return bits(LogShort, v); }
    static LogArg of(unsigned short v) { return bits(LogUnsignedShort, v); }
    static LogArg of(int v) { return bits(LogInt, v); }
    static LogArg of(char v) { return of(static_cast<int>(v)); }
    static LogArg of(signed char v) { return of(static_cast<int>(v)); }
    static LogArg of(unsigned char v) { return of(static_cast<int>(v)); }
    static LogArg of(bool v) { return of(static_cast<int>(v)); }
    static LogArg of(unsigned int v) { return bits(LogUnsignedInt, v); }
    static LogArg of(long v) { return bits(LogLong, v); }
    static LogArg of(long long v) { return of(static_cast<long>(v)); }
    static LogArg of(unsigned long v) { return bits(LogUnsignedLong, v); }
    static LogArg of(unsigned long long v) { return of(static_cast<unsigned long>(v)); }
    static LogArg of(const char* v) { return v ? at(LogString, v, std::strlen(v) + 1) : at(LogString, "<nul>", 6); }
    static LogArg of(char* v) { return of(static_cast<const char*>(v)); }
    static LogArg of(const std::string& v) { return at(LogString, v.c_str(), v.size() + 1); }
    static LogArg of(const LoggingRawData& v) { return at(LogRaw, v.data, v.length); }
    static LogArg of(const timeval32_t& v) { return bits(LogTime, v); }
    static LogArg of(const char16_t* v) {
        static const char16_t nul[] = u"<nul>";
        if (!v)
            return at(LogUTF16, nul, sizeof nul);
        size_t n = 0;
        while (v[n])
            ++n;
        return at(LogUTF16, v, (n + 1) * 2);
    }
    static LogArg of(std::nullptr_t) { return bits(LogPointer, uint64_t{0}); }
    template <typename T>
    static LogArg of(T* v) {
        return bits(LogPointer, static_cast<uint64_t>(reinterpret_cast<uintptr_t>(static_cast<const void*>(v))));
    }
    template <typename T, typename std::enable_if<std::is_enum<T>::value, int>::type = 0>
    static LogArg of(T v) {
        return of(static_cast<int>(v));
    }

    /// Whether an argument of type T goes through `of`. A JSON value or a
    /// call stack is stored by its own code on the event instead.
    template <typename T, typename = void>
    struct Packs : std::false_type {};
    template <typename T>
    struct Packs<T, decltype(void(of(std::declval<const T&>())))>
        : std::integral_constant<bool, !std::is_same<typename std::decay<T>::type, ::JsonValue>::value &&
                                           !std::is_same<typename std::decay<T>::type, LoggingCallStack>::value> {};
};

/// One event, on the stack of the logging thread. Owns nothing: `details`
/// point into the thread's log buffer and stay valid until `log` returns.
class QZ_API LoggingEvent {
public:
    static constexpr unsigned int MaxDetails = 16;

    /// The scratch of one conversion: a borrowed text, a small buffer, or a
    /// long text.
    struct format_t {
        const char* text;
        char buffer[256];
        std::string longText;
    };

    /// A new event on `buffer`: takes the next sequence, the thread, the
    /// cached time and the location, then opens the event in the buffer.
    LoggingEvent(LogBuffer* buffer, const char* format, const char* file, const char* function,
                 unsigned short line, unsigned short argCount, unsigned short loggerId,
                 unsigned char level);
    /// An event for a given time and thread, for replay.
    LoggingEvent(LogThreadContext* context, const char* format, const char* file,
                 const char* function, unsigned short line, unsigned short argCount,
                 const timeval32_t& time, unsigned short loggerId, unsigned char level);
    /// An event replayed from an activity file, on the reader's own location
    /// record, which must outlive the event. The process-wide location tables
    /// are left alone: a mapped file's strings must not outlive its mapping.
    LoggingEvent(LogThreadContext* context, LocationDependentAttributes* location, unsigned int eventId,
                 const timeval32_t& time, unsigned short loggerId, unsigned char level);
    LoggingEvent(const LoggingEvent& other);
    LoggingEvent& operator=(const LoggingEvent& other);

    /// Appends the message text to `out` and trims "\r\n\t " from both ends of
    /// the whole of `out`, which is why `out` should be empty on entry.
    void format(std::string& out) const;
    /// The message text, untrimmed, appended to `sink`: what format(out)
    /// appends before it trims. A multi-line argument is indented by the
    /// sink's column.
    void render(detail::TextSink& sink) const;
    /// Renders one stored argument into `scratch` (text, buffer or longText).
    void format(const unsigned char* data, LogDataType type, format_t& scratch, char conversion) const;
    void formatFloat(const unsigned char* data, unsigned int width, unsigned int precision,
                     format_t& scratch) const;

    /// Records where the event lies in the buffer once it is complete.
    void setBufferLocation(const LogBuffer* buffer);

    /// Stores one detail through the buffer. Beyond MaxDetails it is dropped.
    void addDetail(LogDataType type, const void* bytes, unsigned long size);

    // Argument storage, one overload per stored type.
    void addArg(float v) { addDetail(LogFloat, &v, 4); }
    void addArg(double v) { addArg(static_cast<float>(v)); } // stored as float
    void addArg(short v) { addDetail(LogShort, &v, 2); }
    void addArg(unsigned short v) { addDetail(LogUnsignedShort, &v, 2); }
    void addArg(int v) { addDetail(LogInt, &v, 4); }
    void addArg(char v) { addArg(static_cast<int>(v)); }
    void addArg(signed char v) { addArg(static_cast<int>(v)); }
    void addArg(unsigned char v) { addArg(static_cast<int>(v)); }
    void addArg(bool v) { addArg(static_cast<int>(v)); }
    void addArg(unsigned int v) { addDetail(LogUnsignedInt, &v, 4); }
    void addArg(long v) { addDetail(LogLong, &v, 8); }
    void addArg(long long v) { addArg(static_cast<long>(v)); }
    void addArg(unsigned long v) { addDetail(LogUnsignedLong, &v, 8); }
    void addArg(unsigned long long v) { addArg(static_cast<unsigned long>(v)); }
    void addArg(const char* v) {
        if (v)
            addDetail(LogString, v, std::strlen(v) + 1);
        else
            addDetail(LogString, "<nul>", 6);
    }
    void addArg(char* v) { addArg(static_cast<const char*>(v)); }
    void addArg(const std::string& v) { addDetail(LogString, v.c_str(), v.size() + 1); }
    void addArg(const LoggingRawData& v) { addDetail(LogRaw, v.data, v.length); }
    void addArg(const timeval32_t& v) { addDetail(LogTime, &v, 8); }
    void addArg(const char16_t* v);
    void addArg(std::nullptr_t) { addPointer(nullptr); }
    void addArg(const LoggingCallStack& stack);
    void addArg(const ::JsonValue& v) { *this << v; }

    /// Stores a JSON value as text (code 115): null as "<nul>", an empty
    /// object as "<empty Object>", an empty array as "<empty Array> " (the
    /// blank kept on purpose: both are 15 bytes), another object or array as
    /// its compact text, anything else as its asString().
    LoggingEvent& operator<<(const ::JsonValue& value);
    template <typename T>
    void addArg(T* v) {
        addPointer(static_cast<const void*>(v));
    }
    template <typename T, typename std::enable_if<std::is_enum<T>::value, int>::type = 0>
    void addArg(T v) {
        addArg(static_cast<int>(v));
    }

    /// The largest detail stored, 65,536 bytes.
    static unsigned long getMaxEventDetailSize() { return m_maxEventDetailSize; }
    static unsigned long m_maxEventDetailSize;

    const unsigned char* details[MaxDetails];
    LogDataType types[MaxDetails];
    unsigned int count;
    EventAttributes attributes;
    uintptr_t bufferBlock;
    const unsigned char* bufferStart;
    uint64_t bufferLength;
    LogBuffer* buffer;

private:
    friend class Logger;
    /// An event whose attributes the caller fills in (Logger::log).
    struct Blank {};
    explicit LoggingEvent(Blank, LogBuffer* buf)
        : count(0), bufferBlock(0), bufferStart(nullptr), bufferLength(0), buffer(buf) {}

    void addPointer(const void* p) {
        uint64_t v = reinterpret_cast<uintptr_t>(p);
        addDetail(LogPointer, &v, 8);
    }
    void init(const char* format, const char* file, const char* function, unsigned short line,
              unsigned short argCount, unsigned short loggerId, unsigned char level);
};

/// The hand-over point to the thread's binary buffer.
class QZ_API LogBuffer {
public:
    virtual ~LogBuffer() {}
    /// Opens the event's record; must come before any detail.
    virtual void addEvent(LoggingEvent* event) = 0;
    /// Stores one detail and returns where its bytes now lie (for LogRaw, the
    /// 32-bit length word that precedes them). Valid until the event is done.
    virtual const void* addDetail(LogDataType type, const void* bytes, unsigned long size) = 0;

    /// Events and bytes delivered so far.
    static void getTotals(unsigned long& events, unsigned long& bytes);
    /// Writes the open buffers to a file.
    static void saveAllToFile();
};

inline void LoggingEvent::addDetail(LogDataType type, const void* bytes, unsigned long size) {
    if (count >= MaxDetails)
        return;
    types[count] = type;
    details[count] = static_cast<const unsigned char*>(buffer->addDetail(type, bytes, size));
    ++count;
}

} // namespace qzlog
} // namespace qzlib
} // namespace qzs

#endif // QZLOG_LOGGINGEVENT_H
