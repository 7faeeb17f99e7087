//===- qzsca/JsonValue.h - JSON values and their reader ---------*- C++ -*-===//
//
// The library's JSON tree node and its parser. A JsonValue is a RapidJSON
// value on the process-wide malloc allocator, with accessors that never fail:
// asking a value of the wrong kind reports catalogue message 1112 and answers
// a defined fallback. JsonPath (JsonPath.h) addresses nodes by "/a/[0]/b".
//
// This header includes RapidJSON's: JsonValue derives from its value type, so
// code that includes it needs the RapidJSON headers (Debian 'rapidjson-dev';
// the installed CMake package and pkg-config file ask for them).
//
//===----------------------------------------------------------------------===//
#ifndef QZSCA_JSONVALUE_H
#define QZSCA_JSONVALUE_H

#include "qzstd/Export.h"

#include <rapidjson/allocators.h>
#include <rapidjson/document.h>
#include <rapidjson/encodings.h>
#include <rapidjson/error/error.h>

#include <cstdint>
#include <iosfwd>
#include <string>
#include <utility>
#include <vector>

namespace qzs {
namespace qzlib {
namespace sca {
class JsonPath;
}
} // namespace qzlib
} // namespace qzs

/// A JSON value: null, a boolean, a number, a string, an array or an object.
///
/// Every value allocates on one shared, stateless CrtAllocator (malloc and
/// free), so values can be moved and copied between trees freely. Children
/// are stored as RapidJSON values and handed out as JsonValue references:
/// JsonValue adds no state of its own.
///
/// Misuse (asking a string for a number, indexing an object, clearing a
/// number) issues catalogue message 1112 and goes on: reads answer 0, "" or
/// the shared null value; writes land in a per-thread scratch value that is
/// null each time it is handed out and belongs to no tree.
///
/// Depth: values read by JsonReader are at most JsonReader::MaxDepth levels
/// deep, and JsonPath::put creates no deeper node. Copying, comparing,
/// writing and destroying recurse once per level; a tree built deeper by
/// hand costs stack in proportion.
///
/// Duplicate member names are kept as separate members, in document order,
/// and written back as they came; lookups by name find the first of them.
///
/// Thread safety: a value is not thread-safe. The shared allocator is
/// stateless and the key table (GetKeyReference) has its own lock.
class QZ_API JsonValue : public rapidjson::GenericValue<rapidjson::UTF8<char>, rapidjson::CrtAllocator> {
public:
    typedef rapidjson::GenericValue<rapidjson::UTF8<char>, rapidjson::CrtAllocator> Base;
    typedef rapidjson::CrtAllocator AllocatorType;

    /// The library's type tags, in value order. The underlying type is
    /// fixed, so that a tag read from outside may hold any int, which
    /// toRapidType answers for too.
    enum value_type : int { Null = 0, Int = 1, UInt = 2, Real = 3, String = 4, Bool = 5, Array = 6, Object = 7 };

    JsonValue() noexcept {}
    /// An empty value of RapidJSON kind `kind` (0 for numbers, "" for strings).
    explicit JsonValue(rapidjson::Type kind) noexcept : Base(kind) {}
    /// An empty value of tag `kind`, through toRapidType.
    explicit JsonValue(value_type kind) noexcept : Base(toRapidType(kind)) {}
    template <typename T, typename std::enable_if<std::is_same<T, bool>::value, int>::type = 0>
    JsonValue(T b) noexcept : Base(b) {}
    JsonValue(int i) noexcept : Base(i) {}
    JsonValue(unsigned i) noexcept : Base(i) {}
    JsonValue(long i) noexcept : Base(static_cast<int64_t>(i)) {}
    JsonValue(unsigned long i) noexcept : Base(static_cast<uint64_t>(i)) {}
    JsonValue(long long i) noexcept : Base(static_cast<int64_t>(i)) {}
    JsonValue(unsigned long long i) noexcept : Base(static_cast<uint64_t>(i)) {}
    JsonValue(double d) noexcept : Base(d) {}
    /// A copy of the text; a null pointer makes a null value.
    JsonValue(const char* text);
    JsonValue(const char* text, size_t length);
    JsonValue(const std::string& text);
    /// A deep copy of any RapidJSON value of this kind.
    explicit JsonValue(const Base& other);

    JsonValue(const JsonValue& other);
    JsonValue(JsonValue&& other) noexcept : Base(static_cast<Base&&>(other)) {}
    /// Deep copy. Self-assignment keeps the value.
    JsonValue& operator=(const JsonValue& other);
    /// Takes `other`'s content; `other` becomes null.
    JsonValue& operator=(JsonValue&& other) noexcept;
    ~JsonValue() {}

    // ---- Kinds ----

    /// The tag of this value: False and True are Bool; a number is Int when
    /// it fits a signed 64-bit value, else UInt when it fits an unsigned one,
    /// else Real.
    value_type type() const;
    /// The RapidJSON kind of a tag (Int, UInt and Real are all numbers; Bool
    /// is False). A tag above 7 logs, issues 1112 and answers Null.
    static rapidjson::Type toRapidType(const value_type& kind);

    // ---- Reads ----

    /// Numbers: Null and False give 0, True 1, a number its value (a double
    /// is truncated and held to the target's range). A string, array or
    /// object issues 1112 and gives 0.
    int asInt() const;
    unsigned int asUInt() const;
    int64_t asInt64() const;
    uint64_t asUInt64() const;
    float asFloat() const;
    double asDouble() const;
    /// True for the True kind only. Kept on purpose: a number, even 1, and a
    /// string "true" read false.
    bool asBool() const;
    /// Null gives "", booleans "false"/"true", a number its decimal text (a
    /// double through an ostream, so six significant digits: kept on
    /// purpose), a string its text. An array or object issues 1112 and gives "".
    std::string asString() const;

    /// True if the tag is `kind`, or this is null or a boolean, or `kind` is
    /// String or Bool and this is a number.
    bool isConvertibleTo(value_type kind) const;
    /// Null: true. Array or object: no elements. Anything else: false (an
    /// empty string included).
    bool empty() const;

    // ---- Paths ----

    /// False unless this is a non-empty object; otherwise whether every
    /// element of `path` resolves.
    bool isMember(const qzs::qzlib::sca::JsonPath& path) const;
    /// Removes the node at `path`, keeping the order of what stays.
    void removeMember(const qzs::qzlib::sca::JsonPath& path);
    /// The node at `path`; the shared null value when it does not resolve.
    const JsonValue& get(const qzs::qzlib::sca::JsonPath& path) const;
    const JsonValue& operator[](const qzs::qzlib::sca::JsonPath& path) const { return get(path); }
    /// A copy of the node at `path`, or of `defaultValue`.
    JsonValue get(const qzs::qzlib::sca::JsonPath& path, const JsonValue& defaultValue) const;
    /// The node at `path`, created (null) with what leads to it when missing.
    /// On a path error, the per-thread scratch value.
    JsonValue& operator[](const qzs::qzlib::sca::JsonPath& path);

    // ---- Members and elements ----

    /// The member `name`, added (null) when missing, under an interned name.
    /// A null value becomes an object first. On anything else but an object:
    /// 1112 and the scratch value.
    JsonValue& operator[](const char* name);
    JsonValue& operator[](const std::string& name) { return (*this)[name.c_str()]; }
    /// Element `index`. A null value becomes an array first. `index` equal
    /// to the size appends a null element; beyond the size, 1112 and still
    /// one element is appended (and returned). On anything else but an
    /// array: 1112 and the scratch value.
    JsonValue& operator[](unsigned int index);
    JsonValue& operator[](int index) { return (*this)[static_cast<unsigned int>(index)]; }
    /// Element `index` of an array, or the shared null value (no message).
    const JsonValue& operator[](unsigned int index) const;
    const JsonValue& operator[](int index) const { return (*this)[static_cast<unsigned int>(index)]; }
    /// Member `name` of an object, or the shared null value (no message).
    const JsonValue& operator[](const char* name) const;

    /// The process-wide copy of `name`: every tree refers to one copy of a
    /// member name. A new name is logged; null interns as "". The copies live
    /// as long as the process, so only use it for a bounded set of names.
    static const char* GetKeyReference(const char* name);

    /// Removes element `index`, keeping the order of the rest. Out of range or
    /// not an array: 1112.
    void removeIndex(unsigned int index);
    /// Renames member `oldName` in place. False if there is no such member or
    /// `newName` names another member already.
    bool updateKeyName(const std::string& oldName, const std::string& newName);
    /// The member exists and is not empty().
    bool hasNotEmptyMember(const char* name) const;
    bool hasNotEmptyMember(const std::string& name) const { return hasNotEmptyMember(name.c_str()); }
    /// Empties an array or an object; other kinds (null included) issue 1112.
    void clear();
    /// Member names in member order. Null or empty: an empty list. Neither
    /// null nor an object: 1112 and an empty list.
    std::vector<std::string> getMemberNames() const;

    // ---- Whole trees ----

    /// Merges `other` in: when both are objects each member of `other` is
    /// merged into the member of the same name (added when missing); in any
    /// other case this value becomes a copy of `other` (arrays are replaced,
    /// not appended to).
    void merge(const JsonValue& other);
    /// Parses `text` and merges it in; false, and this value unchanged, when
    /// it does not parse.
    bool fromString(const std::string& text);
    /// Compact JSON. A NaN or infinite number is written as null.
    std::string toString() const;
    /// Indented JSON (four blanks a level).
    std::string toStyledString() const;

    /// Adds a member per entry of `map` (keys as text, values through the
    /// JsonValue constructors). A null value becomes an object first.
    template <typename Map> void loadFromMap(const Map& map) {
        for (const auto& entry : map)
            objectInsertFromPair(entry);
    }
    /// Adds member `pair.first` with value `pair.second`.
    template <typename K, typename V> void objectInsertFromPair(const std::pair<K, V>& pair) {
        (*this)[keyText(pair.first)] = JsonValue(pair.second);
    }
    /// Appends the one-member object {pair.first: pair.second}.
    template <typename K, typename V> void arrayAppendFromPair(const std::pair<K, V>& pair) {
        JsonValue element;
        element.objectInsertFromPair(pair);
        (*this)[size()] = std::move(element);
    }

    /// Replaces, in this object and every object and array below it, the
    /// scalar members whose name equals `key` regardless of case. A member
    /// that is an object or an array is walked, never replaced. Answers the
    /// count of replacements, or -1 when this is not an object (after 1112).
    /// Instances: bool, const char*, std::string, const std::string&, int, long.
    template <typename T> int replaceAll(const std::string& key, T value);
    /// The same over the elements of an array: objects and arrays are
    /// walked, scalars skipped. -1 when this is not an array; a -1 from a
    /// nested call is added like any count.
    template <typename T> int replaceAllInArray(const std::string& key, T value);

    /// The shared allocator, made once.
    static AllocatorType& GetAllocator();

    /// The shared null value that failed read-only lookups return.
    static const JsonValue m_nullValue;

    /// Children are stored as RapidJSON values; JsonValue adds no state.
    static JsonValue& wrap(Base& v) { return static_cast<JsonValue&>(v); }
    static const JsonValue& wrap(const Base& v) { return static_cast<const JsonValue&>(v); }

    /// The per-thread value that failed writes land in, made null.
    static JsonValue& scratch();

private:
    /// Element count of an array (0 otherwise), for appending.
    unsigned int size() const { return IsArray() ? Base::Size() : 0u; }
    static const char* keyText(const char* k) { return k; }
    static const char* keyText(const std::string& k) { return k.c_str(); }
    template <typename K> static std::string keyText(const K& k) { return JsonValue(k).asString(); }
};

/// Parses JSON text into a JsonValue and reports failures.
///
/// Input is UTF-8 and is validated; a string with bytes that are not UTF-8
/// fails. Parsing is iterative, and a document nested deeper than MaxDepth
/// fails ("Terminate parsing due to Handler error." with the offset of the
/// bracket that goes too deep). A NUL byte ends nothing: text after it is a
/// second root and fails. Integers beyond 64 bits become doubles; numbers
/// beyond a double's range fail.
class QZ_API JsonReader {
public:
    /// The deepest nesting of arrays and objects a document may have.
    static constexpr unsigned MaxDepth = 512;

    /// Parse into `value`; true on success. On failure `value` is unchanged
    /// and the failure is logged (processParseResults).
    bool parse(const std::string& text, JsonValue& value);
    bool parse(const char* text, unsigned long length, JsonValue& value);
    /// Reads the stream to its end, then parses.
    bool parse(std::istream& in, JsonValue& value);

    /// True for the last parse's success; otherwise logs "JsonReader Error in
    /// parsing '<text>(<offset>)'" and answers false.
    bool processParseResults(JsonValue& value) const;

    /// The text of a RapidJSON parse error code.
    static const char* errorText(rapidjson::ParseErrorCode code);

    const rapidjson::ParseResult& getParseResult() const { return m_result; }
    /// Whether the last parse failed for going deeper than MaxDepth.
    bool tooDeep() const { return m_tooDeep; }

private:
    rapidjson::ParseResult m_result;
    bool m_tooDeep = false;
};

#endif // QZSCA_JSONVALUE_H
