//===- qzsca/JsonValue.cpp - JSON values and their reader -----------------===//
//
// Accessors, edits and writers of JsonValue, the reader, and the log argument
// form of a value (LoggingEvent::operator<<).
//
//===----------------------------------------------------------------------===//
#include "qzsca/JsonValue.h"

#include "qzlog/Level.h"
#include "qzlog/LogMacros.h"
#include "qzlog/Logger.h"
#include "qzlog/LoggerRepository.h"
#include "qzlog/LoggingEvent.h"
#include "qzmsg/Messages.h"
#include "qzsca/JsonPath.h"
#include "qzstd/HashArray.h"
#include "qzstd/Mutex.h"
#include "qzstd/ThreadLocalStorage.h"

#include <rapidjson/prettywriter.h>
#include <rapidjson/reader.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <algorithm>
#include <cfloat>
#include <charconv>
#include <clocale>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <istream>
#include <iterator>
#include <limits>
#include <locale>
#include <sstream>

using qzs::qzlib::qzlog::Level;
using qzs::qzlib::qzlog::Logger;

static_assert(sizeof(JsonValue) == sizeof(JsonValue::Base),
              "children are stored as RapidJSON values and viewed as JsonValue");

/// Misuse of a value: catalogue message 1112, issued, from this file.
#define QZ_JSON_MISUSE(method, what)                                                               \
    ::qzs::qzlib::_MSG_String(QZ_SOURCE("qzsca", "qzsca/JsonValue", method), 1112, what)

namespace {

Logger* jsonLog() {
    static Logger* const logger = Logger::getRepository().getLogger("JsonValue");
    return logger;
}

int g_allocatorOnce;
JsonValue::AllocatorType* g_allocator;
void makeAllocator() { g_allocator = new JsonValue::AllocatorType(); }

// The interned member names. The table keeps its own copy of each key; the
// value is a second copy handed out to trees, never freed.
int g_keysOnce;
qzs::qzlib::MultiThreading::Mutex* g_keysLock;
qzs::qzlib::HashStringArray<const char*>* g_keys;
void makeKeys() {
    g_keysLock = new qzs::qzlib::MultiThreading::Mutex();
    g_keys = new qzs::qzlib::HashStringArray<const char*>();
}

// A table key holds at most 65535 bytes; longer names are copied per tree.
constexpr size_t MaxInternedKey = 0xFFFE;

template <typename T> T fromDouble(double d) {
    if (std::isnan(d))
        return 0;
    if (d <= static_cast<double>(std::numeric_limits<T>::min()))
        return std::numeric_limits<T>::min();
    if (d >= static_cast<double>(std::numeric_limits<T>::max()))
        return std::numeric_limits<T>::max();
    return static_cast<T>(d);
}
template <> float fromDouble<float>(double d) {
    // Past a float's range a plain conversion is undefined: give an infinity.
    if (d > FLT_MAX)
        return std::numeric_limits<float>::infinity();
    if (d < -FLT_MAX)
        return -std::numeric_limits<float>::infinity();
    return static_cast<float>(d);
}
template <> double fromDouble<double>(double d) { return d; }

template <typename T> T fromInt64(int64_t v) {
    if (std::is_floating_point<T>::value)
        return static_cast<T>(v);
    if (std::is_unsigned<T>::value && v < 0)
        return 0;
    if (!std::is_unsigned<T>::value && v < static_cast<int64_t>(std::numeric_limits<T>::min()))
        return std::numeric_limits<T>::min();
    if (v > 0 && static_cast<uint64_t>(v) > static_cast<uint64_t>(std::numeric_limits<T>::max()))
        return std::numeric_limits<T>::max();
    return static_cast<T>(v);
}
template <typename T> T fromUint64(uint64_t v) {
    if (!std::is_floating_point<T>::value && v > static_cast<uint64_t>(std::numeric_limits<T>::max()))
        return std::numeric_limits<T>::max();
    return static_cast<T>(v);
}

template <typename T> T readNumber(const JsonValue& v, const char* what) {
    if (v.IsNull() || v.IsFalse())
        return 0;
    if (v.IsTrue())
        return 1;
    if (v.IsNumber()) {
        if (v.IsInt64())
            return fromInt64<T>(v.GetInt64());
        if (v.IsUint64())
            return fromUint64<T>(v.GetUint64());
        return fromDouble<T>(v.GetDouble());
    }
    QZ_JSON_MISUSE("JsonValue::asNumber", what);
    return 0;
}

// Writes a NaN or an infinity as null: JSON has no text for them, and
// RapidJSON's writer would stop half-way and leave invalid text behind.
template <typename Writer> struct FiniteWriter {
    Writer& w;
    bool Null() { return w.Null(); }
    bool Bool(bool b) { return w.Bool(b); }
    bool Int(int i) { return w.Int(i); }
    bool Uint(unsigned u) { return w.Uint(u); }
    bool Int64(int64_t i) { return w.Int64(i); }
    bool Uint64(uint64_t u) { return w.Uint64(u); }
    bool Double(double d) { return std::isfinite(d) ? w.Double(d) : w.Null(); }
    bool String(const char* s, rapidjson::SizeType n, bool copy) { return w.String(s, n, copy); }
    bool Key(const char* s, rapidjson::SizeType n, bool copy) { return w.Key(s, n, copy); }
    bool StartObject() { return w.StartObject(); }
    bool EndObject(rapidjson::SizeType n) { return w.EndObject(n); }
    bool StartArray() { return w.StartArray(); }
    bool EndArray(rapidjson::SizeType n) { return w.EndArray(n); }
};

// The writers' output: the string that toString returns, written in place,
// so that a large document is not copied out of a buffer at the end. The
// writers reserve before each token (PutReserve) and then put unchecked.
struct TextOutput {
    typedef char Ch;
    std::string text;
    size_t used = 0;
    void reserve(size_t n) {
        if (text.size() - used < n)
            text.resize(std::max(text.size() * 2, used + n + 256));
    }
    void Put(char c) {
        reserve(1);
        text[used++] = c;
    }
    void Flush() {}
};
inline void PutReserve(TextOutput& out, size_t n) { out.reserve(n); }
inline void PutUnsafe(TextOutput& out, char c) { out.text[out.used++] = c; }

template <template <typename, typename, typename, typename, unsigned> class W>
std::string writeWith(const JsonValue& v) {
    TextOutput out;
    W<TextOutput, rapidjson::UTF8<char>, rapidjson::UTF8<char>, rapidjson::CrtAllocator,
      rapidjson::kWriteDefaultFlags>
        writer(out);
    FiniteWriter<decltype(writer)> finite{writer};
    v.Accept(finite);
    out.text.resize(out.used);
    return std::move(out.text);
}

bool equalsIgnoringCase(const char* a, size_t an, const std::string& b, const std::ctype<char>& ct) {
    if (an != b.size())
        return false;
    for (size_t i = 0; i < an; ++i)
        if (ct.tolower(a[i]) != ct.tolower(b[i]))
            return false;
    return true;
}

/// Takes `source`'s content into `target`, merging objects member by member.
void mergeMove(JsonValue::Base& target, JsonValue::Base& source) {
    if (!target.IsObject() || !source.IsObject()) {
        target = source; // RapidJSON's assignment moves
        return;
    }
    for (auto m = source.MemberBegin(); m != source.MemberEnd(); ++m) {
        auto mine = target.FindMember(m->name);
        if (mine != target.MemberEnd())
            mergeMove(mine->value, m->value);
        else
            target.AddMember(m->name, m->value, JsonValue::GetAllocator());
    }
}

} // namespace

const JsonValue JsonValue::m_nullValue;

JsonValue::AllocatorType& JsonValue::GetAllocator() {
    qzs::qzlib::MultiThreading::Once(g_allocatorOnce, makeAllocator);
    return *g_allocator;
}

JsonValue& JsonValue::scratch() {
    static thread_local JsonValue sink;
    sink.SetNull();
    return sink;
}

// ---- Construction ----

JsonValue::JsonValue(const char* text) {
    if (text)
        SetString(text, static_cast<rapidjson::SizeType>(std::strlen(text)), GetAllocator());
}

JsonValue::JsonValue(const char* text, size_t length) {
    if (text)
        SetString(text, static_cast<rapidjson::SizeType>(length), GetAllocator());
}

JsonValue::JsonValue(const std::string& text)
    : Base(text.data(), static_cast<rapidjson::SizeType>(text.size()), GetAllocator()) {}

JsonValue::JsonValue(const Base& other) : Base(other, GetAllocator()) {}

JsonValue::JsonValue(const JsonValue& other) : Base(other, GetAllocator()) {}

JsonValue& JsonValue::operator=(const JsonValue& other) {
    if (this != &other) {
        // Copy first: `other` may lie inside this tree.
        Base copy(other, GetAllocator());
        Base::operator=(copy);
    }
    return *this;
}

JsonValue& JsonValue::operator=(JsonValue&& other) noexcept {
    if (this != &other) {
        // Take `other` out first: it may lie inside this tree, which the
        // assignment frees before it reads the source.
        Base taken(static_cast<Base&&>(other));
        Base::operator=(taken);
    }
    return *this;
}

// ---- Kinds ----

JsonValue::value_type JsonValue::type() const {
    switch (GetType()) {
    case rapidjson::kNullType:
        return Null;
    case rapidjson::kFalseType:
    case rapidjson::kTrueType:
        return Bool;
    case rapidjson::kObjectType:
        return Object;
    case rapidjson::kArrayType:
        return Array;
    case rapidjson::kStringType:
        return String;
    case rapidjson::kNumberType:
        if (IsInt64())
            return Int;
        if (IsUint64())
            return UInt;
        if (IsDouble())
            return Real;
        break;
    }
    QZ_JSON_MISUSE("JsonValue::type", "a JSON value of an unknown kind");
    return Null;
}

rapidjson::Type JsonValue::toRapidType(const value_type& kind) {
    switch (kind) {
    case Null:
        return rapidjson::kNullType;
    case Int:
    case UInt:
    case Real:
        return rapidjson::kNumberType;
    case String:
        return rapidjson::kStringType;
    case Bool:
        return rapidjson::kFalseType;
    case Array:
        return rapidjson::kArrayType;
    case Object:
        return rapidjson::kObjectType;
    }
    QZ_LOG(jsonLog(), Level::Error, "invalid JsonValue type to rapidjson: %d", static_cast<int>(kind));
    QZ_JSON_MISUSE("JsonValue::toRapidType", "a JSON type tag above 7");
    return rapidjson::kNullType;
}

// ---- Reads ----

int JsonValue::asInt() const { return readNumber<int>(*this, "asInt on a JSON string, array or object"); }
unsigned int JsonValue::asUInt() const {
    return readNumber<unsigned int>(*this, "asUInt on a JSON string, array or object");
}
int64_t JsonValue::asInt64() const {
    return readNumber<int64_t>(*this, "asInt64 on a JSON string, array or object");
}
uint64_t JsonValue::asUInt64() const {
    return readNumber<uint64_t>(*this, "asUInt64 on a JSON string, array or object");
}
float JsonValue::asFloat() const {
    return readNumber<float>(*this, "asFloat on a JSON string, array or object");
}
double JsonValue::asDouble() const {
    return readNumber<double>(*this, "asDouble on a JSON string, array or object");
}

bool JsonValue::asBool() const { return IsTrue(); }

std::string JsonValue::asString() const {
    switch (GetType()) {
    case rapidjson::kNullType:
        return std::string();
    case rapidjson::kFalseType:
        return "false";
    case rapidjson::kTrueType:
        return "true";
    case rapidjson::kStringType:
        return std::string(GetString(), GetStringLength());
    case rapidjson::kNumberType: {
        // The classic locale: a host's global locale must not put grouping
        // marks into numbers.
        std::ostringstream out;
        out.imbue(std::locale::classic());
        if (IsUint64())
            out << GetUint64();
        else if (IsInt64())
            out << GetInt64();
        else
            out << GetDouble();
        return out.str();
    }
    default:
        break;
    }
    QZ_JSON_MISUSE("JsonValue::asString", "asString on a JSON array or object");
    return std::string();
}

bool JsonValue::isConvertibleTo(value_type kind) const {
    if (IsNull() || IsBool())
        return true;
    if ((kind == String || kind == Bool) && IsNumber())
        return true;
    return type() == kind;
}

bool JsonValue::empty() const {
    if (IsNull())
        return true;
    if (IsArray())
        return Base::Empty();
    if (IsObject())
        return Base::ObjectEmpty();
    return false;
}

// ---- Paths ----

bool JsonValue::isMember(const qzs::qzlib::sca::JsonPath& path) const {
    if (!IsObject() || Base::ObjectEmpty())
        return false;
    return path.exists(*this);
}

void JsonValue::removeMember(const qzs::qzlib::sca::JsonPath& path) {
    qzs::qzlib::sca::JsonPathError error;
    path.remove(*this, &error, false);
}

const JsonValue& JsonValue::get(const qzs::qzlib::sca::JsonPath& path) const {
    qzs::qzlib::sca::JsonPathError error;
    const JsonValue& node = path.get(*this, nullptr, &error, false);
    return error.hasError() ? m_nullValue : node;
}

JsonValue JsonValue::get(const qzs::qzlib::sca::JsonPath& path, const JsonValue& defaultValue) const {
    qzs::qzlib::sca::JsonPathError error;
    const JsonValue& node = path.get(*this, nullptr, &error, false);
    return error.hasError() ? defaultValue : node;
}

JsonValue& JsonValue::operator[](const qzs::qzlib::sca::JsonPath& path) {
    qzs::qzlib::sca::JsonPathError error;
    return path.put(*this, nullptr, &error, false);
}

// ---- Members and elements ----

JsonValue& JsonValue::operator[](const char* name) {
    if (IsNull())
        SetObject();
    if (!IsObject()) {
        QZ_JSON_MISUSE("JsonValue::operator[]", "a member name used on a JSON value that is not an object");
        return scratch();
    }
    const char* text = name ? name : "";
    const size_t length = std::strlen(text);
    const Base key(rapidjson::StringRef(text, static_cast<rapidjson::SizeType>(length)));
    auto found = FindMember(key);
    if (found != MemberEnd())
        return wrap(found->value);
    Base member;
    if (length <= MaxInternedKey)
        member.SetString(rapidjson::StringRef(GetKeyReference(text), static_cast<rapidjson::SizeType>(length)));
    else
        member.SetString(text, static_cast<rapidjson::SizeType>(length), GetAllocator());
    Base value;
    AddMember(member, value, GetAllocator());
    return wrap((MemberEnd() - 1)->value);
}

const JsonValue& JsonValue::operator[](const char* name) const {
    if (!IsObject() || !name)
        return m_nullValue;
    auto found = FindMember(name);
    return found != MemberEnd() ? wrap(found->value) : m_nullValue;
}

JsonValue& JsonValue::operator[](unsigned int index) {
    if (IsNull())
        SetArray();
    if (!IsArray()) {
        QZ_JSON_MISUSE("JsonValue::operator[]", "an index used on a JSON value that is not an array");
        return scratch();
    }
    const unsigned int count = Base::Size();
    if (index < count)
        return wrap(Base::operator[](index));
    if (index > count)
        QZ_JSON_MISUSE("JsonValue::operator[]",
                       "an index beyond the end of a JSON array: one element is appended");
    PushBack(Base(), GetAllocator());
    return wrap(Base::operator[](count));
}

const JsonValue& JsonValue::operator[](unsigned int index) const {
    if (!IsArray() || index >= Base::Size())
        return m_nullValue;
    return wrap(Base::operator[](index));
}

const char* JsonValue::GetKeyReference(const char* name) {
    const char* text = name ? name : "";
    const size_t length = std::strlen(text);
    if (length > MaxInternedKey)
        return nullptr;
    qzs::qzlib::MultiThreading::Once(g_keysOnce, makeKeys);
    const char* interned;
    unsigned long number;
    {
        qzs::qzlib::MultiThreading::ScopedLock guard(g_keysLock);
        const qzs::qzlib::HashArrayStringKey probe(text, length);
        if (const char* const* found = g_keys->find(probe))
            return *found;
        char* copy = new char[length + 1];
        std::memcpy(copy, text, length + 1);
        (*g_keys)[probe] = copy;
        interned = copy;
        number = g_keys->size();
    }
    QZ_LOG(jsonLog(), Level::Data, "Added key %d - '%s'", static_cast<int>(number), name);
    return interned;
}

void JsonValue::removeIndex(unsigned int index) {
    if (!IsArray() || index >= Base::Size()) {
        QZ_JSON_MISUSE("JsonValue::removeIndex", "removal of a JSON array element that does not exist");
        return;
    }
    Erase(Begin() + index);
}

bool JsonValue::updateKeyName(const std::string& oldName, const std::string& newName) {
    if (!IsObject())
        return false;
    auto found = FindMember(Base(rapidjson::StringRef(oldName.data(), static_cast<rapidjson::SizeType>(oldName.size()))));
    if (found == MemberEnd())
        return false;
    if (oldName == newName)
        return true;
    if (FindMember(Base(rapidjson::StringRef(newName.data(), static_cast<rapidjson::SizeType>(newName.size())))) !=
        MemberEnd())
        return false;
    found->name.SetString(newName.data(), static_cast<rapidjson::SizeType>(newName.size()), GetAllocator());
    return true;
}

bool JsonValue::hasNotEmptyMember(const char* name) const {
    if (!IsObject() || !name)
        return false;
    auto found = FindMember(name);
    return found != MemberEnd() && !wrap(found->value).empty();
}

void JsonValue::clear() {
    if (IsArray())
        Base::Clear();
    else if (IsObject())
        RemoveAllMembers();
    else
        QZ_JSON_MISUSE("JsonValue::clear", "clear on a JSON value that is neither an array nor an object");
}

std::vector<std::string> JsonValue::getMemberNames() const {
    std::vector<std::string> names;
    if (IsNull())
        return names;
    if (!IsObject()) {
        QZ_JSON_MISUSE("JsonValue::getMemberNames", "member names of a JSON value that is not an object");
        return names;
    }
    names.reserve(MemberCount());
    for (auto m = MemberBegin(); m != MemberEnd(); ++m)
        names.emplace_back(m->name.GetString(), m->name.GetStringLength());
    return names;
}

// ---- Whole trees ----

void JsonValue::merge(const JsonValue& other) {
    // One copy, whose parts then move in: `other` may lie inside this tree,
    // and adding members here may move it.
    Base source(other, GetAllocator());
    mergeMove(*this, source);
}

bool JsonValue::fromString(const std::string& text) {
    JsonValue parsed;
    JsonReader reader;
    if (!reader.parse(text, parsed))
        return false;
    mergeMove(*this, parsed);
    return true;
}

std::string JsonValue::toString() const { return writeWith<rapidjson::Writer>(*this); }

std::string JsonValue::toStyledString() const { return writeWith<rapidjson::PrettyWriter>(*this); }

template <typename T> int JsonValue::replaceAll(const std::string& key, T value) {
    if (!IsObject()) {
        QZ_JSON_MISUSE("JsonValue::replaceAll", "replaceAll on a JSON value that is not an object");
        QZ_LOG(jsonLog(), Level::Error, "Receiver is not an instance of a JSON Object type.");
        return -1;
    }
    const std::ctype<char>& ct = std::use_facet<std::ctype<char>>(std::locale());
    int count = 0;
    // Members are walked in place rather than looked up by name, so that each
    // of two members of one name is visited once.
    for (auto m = MemberBegin(); m != MemberEnd(); ++m) {
        JsonValue& member = wrap(m->value);
        if (member.IsObject())
            count += member.replaceAll<T>(key, value);
        else if (member.IsArray())
            count += member.replaceAllInArray<T>(key, value);
        else if (equalsIgnoringCase(m->name.GetString(), m->name.GetStringLength(), key, ct)) {
            member = JsonValue(value);
            ++count;
        }
    }
    return count;
}

template <typename T> int JsonValue::replaceAllInArray(const std::string& key, T value) {
    if (!IsArray()) {
        QZ_JSON_MISUSE("JsonValue::replaceAllInArray", "replaceAllInArray on a JSON value that is not an array");
        // Kept on purpose: "Arrau" is the text operators search their logs for.
        QZ_LOG(jsonLog(), Level::Error, "Receiver is not an instance of a JSON Arrau type.");
        return -1;
    }
    int count = 0;
    for (auto e = Begin(); e != End(); ++e) {
        JsonValue& element = wrap(*e);
        if (element.IsObject())
            count += element.replaceAll<T>(key, value);
        else if (element.IsArray())
            count += element.replaceAllInArray<T>(key, value);
    }
    return count;
}

template QZ_API int JsonValue::replaceAll<bool>(const std::string&, bool);
template QZ_API int JsonValue::replaceAll<const char*>(const std::string&, const char*);
template QZ_API int JsonValue::replaceAll<std::string>(const std::string&, std::string);
template QZ_API int JsonValue::replaceAll<const std::string&>(const std::string&, const std::string&);
template QZ_API int JsonValue::replaceAll<int>(const std::string&, int);
template QZ_API int JsonValue::replaceAll<long>(const std::string&, long);
template QZ_API int JsonValue::replaceAllInArray<bool>(const std::string&, bool);
template QZ_API int JsonValue::replaceAllInArray<const char*>(const std::string&, const char*);
template QZ_API int JsonValue::replaceAllInArray<std::string>(const std::string&, std::string);
template QZ_API int JsonValue::replaceAllInArray<const std::string&>(const std::string&, const std::string&);
template QZ_API int JsonValue::replaceAllInArray<int>(const std::string&, int);
template QZ_API int JsonValue::replaceAllInArray<long>(const std::string&, long);

// ---- Reader ----

namespace {

// Numbers come to the handler as their text and are converted here: the
// reader's own exact conversion turns a zero with a large exponent into
// another number ("0e50" read as -1.55e-266), by a count of leading zeros of
// a zero significand.
constexpr unsigned ParseFlags =
    rapidjson::kParseIterativeFlag | rapidjson::kParseValidateEncodingFlag | rapidjson::kParseNumbersAsStringsFlag;

// strtod in the C locale, whatever the host set: a JSON number has a '.'.
// Only for the numbers from_chars finds out of range.
double cLocaleStrtod(const char* text) {
    static const locale_t c = ::newlocale(LC_NUMERIC_MASK, "C", static_cast<locale_t>(nullptr));
    return ::strtod_l(text, nullptr, c);
}

typedef rapidjson::GenericDocument<rapidjson::UTF8<char>, rapidjson::CrtAllocator, rapidjson::CrtAllocator>
    ParseDocument;

// Input of a given length. A NUL byte reads as the end, as RapidJSON expects
// of its streams; the reader checks afterwards that it really was the end.
class BoundedStream {
public:
    typedef char Ch;
    BoundedStream(const char* text, size_t length) : m_begin(text), m_cursor(text), m_end(text + length) {}
    Ch Peek() const { return m_cursor < m_end ? *m_cursor : '\0'; }
    Ch Take() { return m_cursor < m_end ? *m_cursor++ : '\0'; }
    size_t Tell() const { return static_cast<size_t>(m_cursor - m_begin); }
    // Never written to: parsing is not in place.
    Ch* PutBegin() { return nullptr; }
    void Put(Ch) {}
    void Flush() {}
    size_t PutEnd(Ch*) { return 0; }

private:
    const char* m_begin;
    const char* m_cursor;
    const char* m_end;
};

// Forwards the reader's events to the document and refuses to open a level
// beyond MaxDepth: everything that later walks the tree recurses per level.
struct DepthLimit {
    ParseDocument& doc;
    unsigned depth = 0;
    bool tooDeep = false;
    bool Null() { return doc.Null(); }
    bool Bool(bool b) { return doc.Bool(b); }
    bool Int(int i) { return doc.Int(i); }
    bool Uint(unsigned u) { return doc.Uint(u); }
    bool Int64(int64_t i) { return doc.Int64(i); }
    bool Uint64(uint64_t u) { return doc.Uint64(u); }
    bool Double(double d) { return doc.Double(d); }
    // The reader has checked the syntax and that no exponent is out of
    // reach; `s` ends in a NUL. Integers get the kinds the reader gives them
    // (32 bits where they fit, then 64, then a double), other numbers the
    // correctly rounded double; one past a double's range is too big, as the
    // reader says of the rest, and one below it is 0.
    bool RawNumber(const char* s, rapidjson::SizeType n, bool) {
        const char* end = s + n;
        if (std::find_if(s, end, [](char c) { return c == '.' || c == 'e' || c == 'E'; }) == end) {
            if (*s == '-') {
                int64_t v = 0;
                const std::from_chars_result r = std::from_chars(s, end, v);
                if (r.ec == std::errc() && r.ptr == end)
                    return v >= INT32_MIN ? doc.Int(static_cast<int>(v)) : doc.Int64(v);
            } else {
                uint64_t u = 0;
                const std::from_chars_result r = std::from_chars(s, end, u);
                if (r.ec == std::errc() && r.ptr == end)
                    return u <= UINT32_MAX ? doc.Uint(static_cast<unsigned>(u)) : doc.Uint64(u);
            }
        }
        double d = 0;
        const std::from_chars_result r = std::from_chars(s, end, d);
        if (r.ec == std::errc() && r.ptr == end)
            return doc.Double(d);
        // Past a double's range either way: strtod tells which.
        d = cLocaleStrtod(s);
        if (std::isinf(d)) {
            numberTooBig = true;
            return false;
        }
        return doc.Double(d);
    }
    bool String(const char* s, rapidjson::SizeType n, bool copy) { return whole(s, n) && doc.String(s, n, copy); }
    bool Key(const char* s, rapidjson::SizeType n, bool copy) { return whole(s, n) && doc.Key(s, n, copy); }
    bool StartObject() { return open() && doc.StartObject(); }
    bool EndObject(rapidjson::SizeType n) {
        --depth;
        return doc.EndObject(n);
    }
    bool StartArray() { return open() && doc.StartArray(); }
    bool EndArray(rapidjson::SizeType n) {
        --depth;
        return doc.EndArray(n);
    }
    bool open() {
        if (++depth <= JsonReader::MaxDepth)
            return true;
        tooDeep = true;
        return false;
    }
    // The reader takes "\ude00" alone, a low surrogate with no high one
    // before it, and stores it as the bytes ED B8 80, which are not UTF-8:
    // the value would be written out as text that no reader takes. Raw input
    // is validated, so only such an escape can put ED A0..ED BF in a string.
    bool whole(const char* s, rapidjson::SizeType n) {
        if (!lowSurrogateEscapes)
            return true;
        for (const char* p = static_cast<const char*>(std::memchr(s, '\xED', n)); p;
             p = static_cast<const char*>(std::memchr(p + 1, '\xED', n - static_cast<size_t>(p + 1 - s))))
            if (p + 1 < s + n && static_cast<unsigned char>(p[1]) >= 0xA0) {
                loneSurrogate = true;
                return false;
            }
        return true;
    }
    bool loneSurrogate = false;
    bool numberTooBig = false;
    bool lowSurrogateEscapes = true; // whether the text has any "\\uDC".."\\uDF"
};

// Whether `text` escapes a low surrogate anywhere, the only way a string can
// come to hold one: most documents have none, and their strings need no look.
bool hasLowSurrogateEscape(const char* text, size_t length) {
    const char* end = text + length;
    for (const char* p = text; (p = static_cast<const char*>(std::memchr(p, '\\', static_cast<size_t>(end - p))));
         p += 2) {
        if (end - p >= 4 && p[1] == 'u' && (p[2] == 'd' || p[2] == 'D') &&
            ((p[3] >= 'c' && p[3] <= 'f') || (p[3] >= 'C' && p[3] <= 'F')))
            return true;
        if (end - p < 2)
            break;
    }
    return false;
}

template <typename Stream> struct Generator {
    Stream& stream;
    rapidjson::ParseResult& result;
    bool& tooDeep;
    bool lowSurrogateEscapes;
    bool operator()(ParseDocument& doc) {
        DepthLimit handler{doc};
        handler.lowSurrogateEscapes = lowSurrogateEscapes;
        rapidjson::GenericReader<rapidjson::UTF8<char>, rapidjson::UTF8<char>, rapidjson::CrtAllocator> reader;
        result = reader.Parse<ParseFlags>(stream, handler);
        tooDeep = handler.tooDeep;
        if (handler.loneSurrogate)
            result.Set(rapidjson::kParseErrorStringUnicodeSurrogateInvalid, result.Offset());
        else if (handler.numberTooBig)
            result.Set(rapidjson::kParseErrorNumberTooBig, result.Offset());
        return !result.IsError();
    }
};

} // namespace

namespace {
// Parses `length` bytes from `stream` into `value`, which changes only when
// they were one whole document; the outcome is left in `result`.
template <typename Stream>
void parseStream(Stream& stream, unsigned long length, bool lowSurrogateEscapes, JsonValue& value,
                 rapidjson::ParseResult& result, bool& tooDeep) {
    tooDeep = false;
    if (length >= 0xFFFFFFFFul) {
        // RapidJSON keeps string lengths in 32 bits.
        result.Set(rapidjson::kParseErrorTermination, 0);
        return;
    }
    ParseDocument doc;
    Generator<Stream> generator{stream, result, tooDeep, lowSurrogateEscapes};
    doc.Populate(generator);
    if (!result.IsError() && stream.Tell() < length)
        result.Set(rapidjson::kParseErrorDocumentRootNotSingular, stream.Tell());
    if (!result.IsError())
        value.Base::Swap(doc);
}
} // namespace

bool JsonReader::parse(const std::string& text, JsonValue& value) {
    // Through the counted stream even though a string ends in a NUL: the
    // reader takes the continuation bytes of a UTF-8 sequence without looking,
    // so a lead byte just before the end would read past it.
    return parse(text.data(), text.size(), value);
}

bool JsonReader::parse(const char* text, unsigned long length, JsonValue& value) {
    if (!text)
        length = 0;
    BoundedStream stream(text ? text : "", length);
    parseStream(stream, length, hasLowSurrogateEscape(text ? text : "", length), value, m_result, m_tooDeep);
    return processParseResults(value);
}

bool JsonReader::parse(std::istream& in, JsonValue& value) {
    const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    return parse(text, value);
}

bool JsonReader::processParseResults(JsonValue&) const {
    if (!m_result.IsError())
        return true;
    QZ_LOG(jsonLog(), Level::Error, "JsonReader Error in parsing '%s(%u)'", errorText(m_result.Code()),
           static_cast<unsigned int>(m_result.Offset()));
    if (m_tooDeep)
        QZ_LOG(jsonLog(), Level::Error, "JsonReader: the document nests deeper than %u levels",
               static_cast<unsigned int>(MaxDepth));
    return false;
}

const char* JsonReader::errorText(rapidjson::ParseErrorCode code) {
    switch (code) {
    case rapidjson::kParseErrorNone:
        return "No error.";
    case rapidjson::kParseErrorDocumentEmpty:
        return "The document is empty.";
    case rapidjson::kParseErrorDocumentRootNotSingular:
        return "The document root must not be followed by other values.";
    case rapidjson::kParseErrorValueInvalid:
        return "Invalid value.";
    case rapidjson::kParseErrorObjectMissName:
        return "Missing a name for object member.";
    case rapidjson::kParseErrorObjectMissColon:
        return "Missing a colon after a name of object member.";
    case rapidjson::kParseErrorObjectMissCommaOrCurlyBracket:
        return "Missing a comma or '}' after an object member.";
    case rapidjson::kParseErrorArrayMissCommaOrSquareBracket:
        return "Missing a comma or ']' after an array element.";
    case rapidjson::kParseErrorStringUnicodeEscapeInvalidHex:
        return "Incorrect hex digit after \\u escape in string.";
    case rapidjson::kParseErrorStringUnicodeSurrogateInvalid:
        return "The surrogate pair in string is invalid.";
    case rapidjson::kParseErrorStringEscapeInvalid:
        return "Invalid escape character in string.";
    case rapidjson::kParseErrorStringMissQuotationMark:
        return "Missing a closing quotation mark in string.";
    case rapidjson::kParseErrorStringInvalidEncoding:
        return "Invalid encoding in string.";
    case rapidjson::kParseErrorNumberTooBig:
        return "Number too big to be stored in double.";
    case rapidjson::kParseErrorNumberMissFraction:
        return "Miss fraction part in number.";
    case rapidjson::kParseErrorNumberMissExponent:
        return "Miss exponent in number.";
    case rapidjson::kParseErrorTermination:
        return "Terminate parsing due to Handler error.";
    case rapidjson::kParseErrorUnspecificSyntaxError:
        return "Unspecific syntax error.";
    default:
        return "Unknown error.";
    }
}

// ---- A value as a log argument ----

namespace qzs {
namespace qzlib {
namespace qzlog {

LoggingEvent& LoggingEvent::operator<<(const ::JsonValue& value) {
    if (value.IsNull())
        addArg(static_cast<const char*>(nullptr));
    else if (value.IsObject() && value.ObjectEmpty())
        addDetail(LogString, "<empty Object>", 15);
    else if (value.IsArray() && value.Empty())
        addDetail(LogString, "<empty Array> ", 15); // kept on purpose: the blank, for the same width
    else if (value.IsObject() || value.IsArray())
        addArg(value.toString());
    else
        addArg(value.asString());
    return *this;
}

} // namespace qzlog
} // namespace qzlib
} // namespace qzs
