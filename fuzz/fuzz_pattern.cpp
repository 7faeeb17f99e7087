//===- fuzz/fuzz_pattern.cpp - Pattern layouts and message formats --------===//
//
// A libFuzzer target for the text path of an event: a random conversion
// pattern becomes a PatternLayout on a capturing appender, and one event with
// a random printf-like format and random typed arguments goes through the
// logger tree to it, past a string filter that renders the message once more.
// The name and date helpers of the layout get the same random texts.
//
// Input, so that seeds can be written by hand:
//
//   byte 0        control: filter action (bits 0-1), function (2-3),
//                 logger (4-5), no layout (6), raw lengths 16-bit (7)
//   byte 1        event level (0 is taken as 1)
//   pattern NUL format NUL file NUL aux NUL
//   arguments     a type byte, then its bytes, until the input ends
//
// `aux` is the filter's text, the path of makeNode and makeRCSName and the
// pattern of makeTime; its first byte also counts makeNode's components.
//
//===----------------------------------------------------------------------===//
#include "qzlog/Filter.h"
#include "qzlog/Level.h"
#include "qzlog/Logger.h"
#include "qzlog/LoggerRepository.h"
#include "qzlog/LoggingEvent.h"
#include "qzlog/PatternLayout.h"
#include "qzlog/WriterAppender.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <functional>
#include <iterator>
#include <map>
#include <set>
#include <string>
#include <vector>

using namespace qzs::qzlib::qzlog;

namespace {

// Keeps the text of the one event it was last given, and counts them.
class KeepAppender : public WriterAppender {
public:
    KeepAppender() : WriterAppender("fuzz.keep") {}
    void write(const void* bytes, unsigned long size) override {
        text.assign(static_cast<const char*>(bytes), size);
        ++writes;
    }
    std::string text;
    unsigned long writes = 0;
};

// One log statement as the library sees it. The library keeps the format,
// file and function pointers for ever and shares the location record of the
// first statement seen at a (file, line), format included: each distinct
// (file, format, argument count) therefore gets its own line, and its texts
// are interned in memory that is never freed.
struct Statement {
    const char* format;
    const char* file;
    unsigned short line;
    unsigned short argCount;
};

// Bounds on what is kept for ever, so that a long run does not grow without
// limit. Past them, inputs reuse what is already kept.
constexpr size_t MaxStatements = 10000;
constexpr size_t MaxFiles = 256;
constexpr size_t MaxArguments = LoggingEvent::MaxDetails; // as Logger::log allows

std::set<std::string>* g_texts;                 // interned formats and files
std::map<std::string, Statement>* g_statements; // by file NUL format NUL count
std::map<const char*, unsigned short>* g_lastLine;
std::vector<const char*>* g_files;

Logger* g_loggers[4];
KeepAppender* g_appender;

const char* const Functions[4] = {"", "run", "qzs::capture::Reader::next", "operator()"};

const char* intern(const std::string& text) {
    return g_texts->insert(text).first->c_str();
}

Statement statementFor(const std::string& format, const std::string& file, size_t argCount) {
    std::string key = file;
    key += '\0';
    key += format;
    key += '\0';
    key += static_cast<char>(argCount);
    auto found = g_statements->find(key);
    if (found != g_statements->end())
        return found->second;
    if (g_statements->size() >= MaxStatements) {
        // Full: any kept statement will do. Its format is what gets rendered,
        // and the caller fits the arguments to its count.
        auto any = g_statements->begin();
        std::advance(any, std::hash<std::string>()(key) % g_statements->size());
        return any->second;
    }
    const char* filePointer;
    if (g_files->size() < MaxFiles || g_texts->count(file)) {
        filePointer = intern(file);
        if (std::find(g_files->begin(), g_files->end(), filePointer) == g_files->end())
            g_files->push_back(filePointer);
    } else {
        filePointer = (*g_files)[std::hash<std::string>()(file) % g_files->size()];
    }
    // Lines from 1: at most MaxStatements per file, well inside 16 bits.
    unsigned short line = ++(*g_lastLine)[filePointer];
    Statement statement{intern(format), filePointer, line, static_cast<unsigned short>(argCount)};
    g_statements->emplace(key, statement);
    return statement;
}

// Reads the input front to back; past the end it yields zeros and empties.
class Reader {
public:
    Reader(const uint8_t* data, size_t size) : m_at(data), m_end(data + size) {}
    bool done() const { return m_at >= m_end; }
    uint8_t byte() { return done() ? 0 : *m_at++; }
    template <typename T>
    T value() {
        T v{};
        size_t n = std::min<size_t>(sizeof v, static_cast<size_t>(m_end - m_at));
        std::memcpy(&v, m_at, n);
        m_at += n;
        return v;
    }
    std::string text() {
        if (done())
            return std::string();
        const uint8_t* nul = static_cast<const uint8_t*>(std::memchr(m_at, 0, static_cast<size_t>(m_end - m_at)));
        const uint8_t* stop = nul ? nul : m_end;
        std::string s(reinterpret_cast<const char*>(m_at), static_cast<size_t>(stop - m_at));
        m_at = nul ? nul + 1 : m_end;
        return s;
    }
    std::string bytes(size_t n) {
        n = std::min(n, static_cast<size_t>(m_end - m_at));
        std::string s(reinterpret_cast<const char*>(m_at), n);
        m_at += n;
        return s;
    }

private:
    const uint8_t* m_at;
    const uint8_t* m_end;
};

// One argument as read from the input. Its bytes live here until the event
// is done; addArg picks the stored type from the C++ type it is given.
struct Argument {
    uint8_t kind;
    bool null;
    uint64_t bits;
    std::string bytes;
    std::u16string wide;
};

std::vector<Argument> readArguments(Reader& in, bool longRaw) {
    std::vector<Argument> args;
    while (!in.done() && args.size() < MaxArguments) {
        Argument a{static_cast<uint8_t>(in.byte() % 14), false, 0, {}, {}};
        switch (a.kind) {
        case 0: case 1: case 9: a.bits = in.value<uint32_t>(); break;
        case 2: case 3: case 6: case 11: a.bits = in.value<uint64_t>(); break;
        case 4: case 5: a.bits = in.value<uint16_t>(); break;
        case 7: {
            uint8_t n = in.byte();
            a.null = n == 0xFF;
            if (!a.null)
                a.bytes = in.bytes(n);
            break;
        }
        case 8: a.bytes = in.bytes(in.byte()); break; // may hold NULs
        case 10: {
            // Long dumps take the heap path of the hex dump.
            size_t n = longRaw ? in.value<uint16_t>() : in.byte();
            a.null = n == 0xFF || n == 0xFFFF;
            if (!a.null)
                a.bytes = in.bytes(n);
            break;
        }
        case 12: {
            std::string units = in.bytes(2 * static_cast<size_t>(in.byte()));
            a.wide.assign(units.size() / 2, u'\0');
            if (!a.wide.empty())
                std::memcpy(&a.wide[0], units.data(), a.wide.size() * 2);
            break;
        }
        default: a.bits = in.byte(); break;
        }
        args.push_back(std::move(a));
    }
    return args;
}

template <typename T>
T as(const Argument& a) {
    T v;
    std::memcpy(&v, &a.bits, sizeof v);
    return v;
}

void addArgument(LoggingEvent& event, const Argument& a) {
    switch (a.kind) {
    case 0: event.addArg(as<int>(a)); break;
    case 1: event.addArg(as<unsigned int>(a)); break;
    case 2: event.addArg(as<long>(a)); break;
    case 3: event.addArg(as<unsigned long>(a)); break;
    case 4: event.addArg(as<short>(a)); break;
    case 5: event.addArg(as<unsigned short>(a)); break;
    case 6: event.addArg(reinterpret_cast<const void*>(as<uintptr_t>(a))); break;
    case 7: event.addArg(a.null ? static_cast<const char*>(nullptr) : a.bytes.c_str()); break;
    case 8: event.addArg(a.bytes); break;
    case 9: event.addArg(as<float>(a)); break;
    case 10:
        event.addArg(a.null ? LoggingRawData(nullptr, 16) : LoggingRawData(a.bytes.data(), a.bytes.size()));
        break;
    case 11: event.addArg(as<timeval32_t>(a)); break;
    case 12: event.addArg(a.wide.c_str()); break;
    default: event.addArg(as<char>(a)); break;
    }
}

[[noreturn]] void fail(const char* what) {
    std::fprintf(stderr, "fuzz_pattern: %s\n", what);
    std::abort();
}

// The name and date helpers on the auxiliary text.
void checkHelpers(const std::string& aux, const std::string& delimiters, unsigned int components,
                  const timeval32_t& time) {
    const char* path = aux.c_str();
    size_t length = std::strlen(path);
    // Exactly the documented room, on the heap, so that one byte more is seen.
    std::vector<char> node(length + 1);
    makeNode(path, delimiters.c_str(), components, node.data());
    size_t kept = std::strlen(node.data());
    if (kept > length || std::memcmp(node.data(), path + length - kept, kept) != 0)
        fail("makeNode gave something other than a tail of its path");

    std::vector<char> rcs(length + 1);
    makeRCSName(path, rcs.data());
    if (std::strlen(rcs.data()) > length)
        fail("makeRCSName grew its name");
    if (path[0] != '$' && std::strcmp(rcs.data(), path) != 0)
        fail("makeRCSName changed a plain name");

    std::vector<char> date(260);
    makeTime(time, path, date.data());
    makeTime(time, nullptr, date.data());
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    // Dates come out the same on every machine.
    setenv("TZ", "UTC", 1);
    tzset();
    g_texts = new std::set<std::string>();
    g_statements = new std::map<std::string, Statement>();
    g_lastLine = new std::map<const char*, unsigned short>();
    g_files = new std::vector<const char*>();

    LoggerRepository& repository = Logger::getRepository();
    g_loggers[0] = repository.getRootLogger();
    g_loggers[1] = repository.getLogger("fuzz");
    g_loggers[2] = repository.getLogger("fuzz.pattern.layout.with.a.long.name");
    g_loggers[3] = repository.getLogger("fuzz.x");
    // The appender hangs on the root: events of the others reach it by
    // additivity, through every ancestor.
    g_appender = new KeepAppender();
    g_loggers[0]->addAppender(*g_appender);
    g_loggers[0]->setLevel(Level::All);
    repository.recalculateEffectiveLevels();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Reader in(data, size);
    const uint8_t control = in.byte();
    unsigned char level = in.byte();
    if (level == 0)
        level = 1; // the lowest level an appender takes
    const std::string pattern = in.text();
    const std::string format = in.text();
    const std::string file = in.text();
    const std::string aux = in.text();

    // A new layout for each input; the appender owns it, but setLayout does
    // not free the one before.
    Layout* previous = g_appender->getLayout();
    g_appender->setLayout(control & 0x40 ? nullptr : new PatternLayout(pattern.c_str()));
    delete previous;

    g_appender->clearFilters();
    static const Filter::Action Actions[3] = {Filter::Deny, Filter::Neutral, Filter::Accept};
    if (control & 3)
        g_appender->addFilter(new StringMatchFilter(aux.c_str(), Actions[(control & 3) - 1]));

    std::vector<Argument> args = readArguments(in, control & 0x80);
    const Statement statement = statementFor(format, file, args.size());
    // The buffer expects as many details as the statement's location record
    // says, as Logger::log guarantees for a real statement.
    args.resize(statement.argCount, Argument{0, false, 0, {}, {}});
    Logger* logger = g_loggers[(control >> 4) & 3];
    const unsigned long writesBefore = g_appender->writes;
    {
        // The body of Logger::log, with argument types chosen at run time.
        Logger::LoggingRecursionCheck guard;
        if (!guard.buffer)
            fail("the recursion guard refused a call from outside any log call");
        LoggingEvent event(guard.buffer, statement.format, statement.file, Functions[(control >> 2) & 3],
                           statement.line, static_cast<unsigned short>(args.size()), logger->id, level);
        for (const Argument& a : args)
            addArgument(event, a);
        event.setBufferLocation(guard.buffer);
        logger->doAppend(&event);
    }

    // A pattern with no conversion is its own text, whatever the event.
    const bool written = g_appender->writes != writesBefore;
    if (written && !(control & 0x40) && pattern.find('%') == std::string::npos &&
        g_appender->text != pattern.c_str())
        fail("a pattern with no conversion did not come out as itself");

    const std::string delimiters = aux.substr(0, 3);
    const unsigned int components = aux.empty() ? 0 : static_cast<unsigned char>(aux[0]) % 8;
    // The first bytes double as a time: small values are taken as intervals,
    // large ones as dates up to 2106.
    timeval32_t time{static_cast<uint32_t>(size) * 977u, 0};
    if (size >= sizeof time)
        std::memcpy(&time, data, sizeof time);
    checkHelpers(aux, delimiters, components, time);
    return 0;
}
