//===- tests/qzsca/JsonValueTest.cpp - JSON values and the reader ---------===//
#include "qzsca/JsonPath.h"
#include "qzsca/JsonValue.h"

#include "CaptureAppender.h"
#include "FaultCollector.h"
#include "qzlog/LogMacros.h"

#include <gtest/gtest.h>

#include <cmath>
#include <sstream>
#include <string>
#include <vector>

using qzs::qzlib::sca::JsonPath;

namespace {

JsonValue parsed(const std::string& text) {
    JsonValue v;
    JsonReader reader;
    EXPECT_TRUE(reader.parse(text, v)) << text;
    return v;
}

size_t count1112(const qztest::FaultCollector& faults) {
    size_t n = 0;
    for (const qztest::Fault& f : faults.faults())
        n += f.number == 1112;
    return n;
}

TEST(JsonValueTest, RealDocumentsRoundTrip) {
    // Read, then written compactly: escapes decoded to UTF-8, big numbers kept exactly.
    struct Case {
        const char* in;
        const char* out;
    } cases[] = {
        {R"({ "a" : [1, 2, {"b": null}], "c": {"d": {"e": [true, false, []]}}, "f": {} })",
         R"({"a":[1,2,{"b":null}],"c":{"d":{"e":[true,false,[]]}},"f":{}})"},
        {R"(["\u00e9\u4e2d", "\ud83d\ude00", "tab\tquote\"slash\/back\\", "\u0001"])",
         "[\"\xC3\xA9\xE4\xB8\xAD\",\"\xF0\x9F\x98\x80\",\"tab\\tquote\\\"slash/back\\\\\",\"\\u0001\"]"},
        {"[18446744073709551615,-9223372036854775808,9223372036854775807,0,-0]",
         "[18446744073709551615,-9223372036854775808,9223372036854775807,0,0]"},
        {"[1.7976931348623157e308,5e-324,0.1,123456789012345678901234567890,-2.5E+3]",
         "[1.7976931348623157e308,5e-324,0.1,1.2345678901234568e29,-2500.0]"},
        // A zero with a large exponent is zero (it once read as -1.55e-266);
        // a number below a double's range is 0, and the nearest double wins.
        {"[0e50,-0e50,0.0e40,1e-400,2.2250738585072011e-308,9007199254740993.0]",
         "[0.0,-0.0,0.0,0.0,2.225073858507201e-308,9007199254740992.0]"},
        {"\"\"", "\"\""},
        {" 42 ", "42"},
    };
    for (const Case& c : cases) {
        const JsonValue v = parsed(c.in);
        EXPECT_EQ(v.toString(), c.out) << c.in;
        EXPECT_EQ(parsed(v.toString()), v) << c.in;          // the written text reads back equal
        EXPECT_EQ(parsed(v.toStyledString()), v) << c.in;
        EXPECT_EQ(JsonValue(v), v) << c.in;                  // deep copy
    }
    // Duplicate names are kept and written back in order; lookups find the first.
    const JsonValue dup = parsed(R"({"k":1,"k":2})");
    EXPECT_EQ(dup.toString(), R"({"k":1,"k":2})");
    EXPECT_EQ(dup.get(JsonPath("/k")).asInt(), 1);
}

TEST(JsonValueTest, BadInputFailsWithItsTextAndKeepsTheValue) {
    struct Case {
        std::string in;
        const char* text;
        unsigned offset;
    } cases[] = {
        {"", "The document is empty.", 0},
        {"{\"a\":", "Invalid value.", 5},
        {"{\"a\" 1}", "Missing a colon after a name of object member.", 5},
        {"{1:2}", "Missing a name for object member.", 1},
        {"[1,]", "Invalid value.", 3},
        {"[1 2]", "Missing a comma or ']' after an array element.", 3},
        {"{\"a\":1 \"b\":2}", "Missing a comma or '}' after an object member.", 7},
        {"\"abc", "Missing a closing quotation mark in string.", 4},
        {"\"\\x\"", "Invalid escape character in string.", 1},
        {"\"\\u12G4\"", "Incorrect hex digit after \\u escape in string.", 1},
        {"\"\\ud800x\"", "The surrogate pair in string is invalid.", 1},
        // A low surrogate alone: taken, it would be written as bytes no reader takes.
        {"[\"ab\\ude00\"]", "The surrogate pair in string is invalid.", 11},
        {"\"\xC3\x28\"", "Invalid encoding in string.", 1},
        {"\"\xED\xA0\x80\"", "Invalid encoding in string.", 1}, // a surrogate in UTF-8
        {"\"\xFF\"", "Invalid encoding in string.", 1},
        {"1e400", "Number too big to be stored in double.", 0},
        {"[1.8e308]", "Number too big to be stored in double.", 1},
        {"[1.]", "Miss fraction part in number.", 3},
        {"[1e]", "Miss exponent in number.", 3},
        {"{} x", "The document root must not be followed by other values.", 3},
        {std::string("{}\0{}", 5), "The document root must not be followed by other values.", 2},
        {"nul", "Invalid value.", 3},
    };
    qztest::CapturedLogger log("JsonValue");
    for (const Case& c : cases) {
        JsonValue v = parsed("{\"kept\":1}");
        JsonReader reader;
        log.capture->clear();
        EXPECT_FALSE(reader.parse(c.in, v)) << c.in;
        EXPECT_STREQ(JsonReader::errorText(reader.getParseResult().Code()), c.text) << c.in;
        EXPECT_EQ(reader.getParseResult().Offset(), c.offset) << c.in;
        EXPECT_EQ(log.capture->last(), std::string("JsonReader Error in parsing '") + c.text + "(" +
                                           std::to_string(c.offset) + ")'")
            << c.in;
        EXPECT_EQ(v.toString(), "{\"kept\":1}") << c.in;
    }
    JsonValue v;
    std::istringstream stream("{\"from\":\"stream\"}");
    EXPECT_TRUE(JsonReader().parse(stream, v));
    EXPECT_EQ(v.toString(), "{\"from\":\"stream\"}");
    EXPECT_TRUE(JsonReader().parse("[1]xyz", 3, v)); // only `length` bytes are read
    EXPECT_EQ(v.toString(), "[1]");
}

TEST(JsonValueTest, NestingIsCappedAtMaxDepth) {
    // 100,000 levels would overflow the stack of whatever walks the tree.
    const std::string deep(100000, '[');
    JsonValue v;
    JsonReader reader;
    EXPECT_FALSE(reader.parse(deep, v));
    EXPECT_TRUE(reader.tooDeep());
    EXPECT_EQ(reader.getParseResult().Code(), rapidjson::kParseErrorTermination);
    EXPECT_EQ(reader.getParseResult().Offset(), JsonReader::MaxDepth);

    const unsigned n = JsonReader::MaxDepth;
    const std::string atLimit = std::string(n, '[') + std::string(n, ']');
    ASSERT_TRUE(reader.parse(atLimit, v));
    EXPECT_EQ(v.toString(), atLimit);
    JsonValue copy(v);
    EXPECT_EQ(copy, v);
    EXPECT_FALSE(reader.parse("[" + atLimit + "]", v));
    EXPECT_TRUE(reader.tooDeep());
    EXPECT_EQ(reader.parse("{\"a\":" + std::string(n, '[') + std::string(n, ']') + "}", v), false);
}

TEST(JsonValueTest, KindsAndReads) {
    struct Case {
        const char* json;
        JsonValue::value_type type;
        int asInt;
        uint64_t asUInt64;
        double asDouble;
        const char* asString;
        bool asBool;
    } cases[] = {
        {"null", JsonValue::Null, 0, 0, 0, "", false},
        {"true", JsonValue::Bool, 1, 1, 1, "true", true},
        {"false", JsonValue::Bool, 0, 0, 0, "false", false},
        {"-7", JsonValue::Int, -7, 0, -7, "-7", false},       // negative to unsigned: held at 0
        {"7", JsonValue::Int, 7, 7, 7, "7", false},           // signed first, though it fits unsigned
        {"1", JsonValue::Int, 1, 1, 1, "1", false},           // a number 1 is no True
        {"18446744073709551615", JsonValue::UInt, 2147483647, UINT64_MAX, 1.8446744073709552e19,
         "18446744073709551615", false},
        {"3.75", JsonValue::Real, 3, 3, 3.75, "3.75", false},
        {"1e300", JsonValue::Real, 2147483647, UINT64_MAX, 1e300, "1e+300", false}, // held to range
        {"3.14159265", JsonValue::Real, 3, 3, 3.14159265, "3.14159", false},     // six digits
        {"\"text\"", JsonValue::String, 0, 0, 0, "text", false},
        {"[1]", JsonValue::Array, 0, 0, 0, "", false},
        {"{}", JsonValue::Object, 0, 0, 0, "", false},
    };
    for (const Case& c : cases) {
        qztest::FaultCollector faults;
        const JsonValue v = parsed(c.json);
        EXPECT_EQ(v.type(), c.type) << c.json;
        EXPECT_EQ(v.asInt(), c.asInt) << c.json;
        EXPECT_EQ(v.asUInt64(), c.asUInt64) << c.json;
        EXPECT_DOUBLE_EQ(v.asDouble(), c.asDouble) << c.json;
        EXPECT_EQ(v.asString(), c.asString) << c.json;
        EXPECT_EQ(v.asBool(), c.asBool) << c.json;
        // Numeric reads of strings, arrays and objects are misuse; so is asString of a container.
        const bool misuse = c.type == JsonValue::String || c.type >= JsonValue::Array;
        EXPECT_EQ(count1112(faults), misuse ? (c.type == JsonValue::String ? 3u : 4u) : 0u) << c.json;
    }
    EXPECT_EQ(JsonValue(1e39).asFloat(), INFINITY);
    EXPECT_EQ(JsonValue(-5).asUInt(), 0u);
}

TEST(JsonValueTest, ConvertibleAndEmpty) {
    EXPECT_FALSE(JsonValue("1.5").isConvertibleTo(JsonValue::Real));
    EXPECT_TRUE(JsonValue(true).isConvertibleTo(JsonValue::Real));
    EXPECT_TRUE(JsonValue().isConvertibleTo(JsonValue::Object));
    EXPECT_TRUE(JsonValue(2.5).isConvertibleTo(JsonValue::String));
    EXPECT_FALSE(JsonValue(2.5).isConvertibleTo(JsonValue::Int));
    EXPECT_FALSE(parsed("[]").isConvertibleTo(JsonValue::Object));

    EXPECT_TRUE(JsonValue().empty());
    EXPECT_TRUE(parsed("[]").empty());
    EXPECT_TRUE(parsed("{}").empty());
    EXPECT_FALSE(JsonValue("").empty()); // an empty string is a value
    EXPECT_FALSE(JsonValue(0).empty());
    EXPECT_FALSE(parsed("[null]").empty());
}

TEST(JsonValueTest, MembersAndElements) {
    qztest::FaultCollector faults;
    JsonValue v;
    v["name"] = "x";          // null becomes an object
    v["list"][0u] = 1;        // index == size appends
    v["list"][1u] = 2;
    v["list"][5u] = 3;        // beyond the size: 1112, and one element is appended
    EXPECT_EQ(count1112(faults), 1u);
    EXPECT_EQ(v.toString(), R"({"name":"x","list":[1,2,3]})");

    v["name"][0u] = 9;         // index on a string: lost, not written into the tree
    v["list"]["k"] = 9;        // member of an array: likewise
    EXPECT_EQ(count1112(faults), 3u);
    EXPECT_EQ(v.toString(), R"({"name":"x","list":[1,2,3]})");

    const JsonValue& cv = v;
    EXPECT_TRUE(cv["missing"].IsNull());
    EXPECT_TRUE(cv["list"][7u].IsNull());
    EXPECT_EQ(cv["list"][1].asInt(), 2);

    v["list"].removeIndex(0);
    v["list"].removeIndex(9); // 1112
    EXPECT_EQ(count1112(faults), 4u);
    EXPECT_TRUE(v.updateKeyName("name", "title"));
    EXPECT_FALSE(v.updateKeyName("missing", "x"));
    EXPECT_FALSE(v.updateKeyName("title", "list")); // would duplicate a name
    EXPECT_EQ(v.toString(), R"({"title":"x","list":[2,3]})");
    EXPECT_EQ(v.getMemberNames(), (std::vector<std::string>{"title", "list"}));

    v["empty"] = JsonValue(JsonValue::Array);
    EXPECT_TRUE(v.hasNotEmptyMember("list"));
    EXPECT_FALSE(v.hasNotEmptyMember(std::string("empty")));
    EXPECT_FALSE(v.hasNotEmptyMember("missing"));

    v["list"].clear();
    EXPECT_TRUE(v["list"].empty());
    v.clear();
    EXPECT_EQ(v.toString(), "{}");
    JsonValue number(5);
    number.clear(); // 1112, stays 5
    EXPECT_EQ(count1112(faults), 5u);
    EXPECT_EQ(number.asInt(), 5);
}

TEST(JsonValueTest, MemberNamesOfOtherKinds) {
    qztest::FaultCollector faults;
    EXPECT_TRUE(JsonValue().getMemberNames().empty());
    EXPECT_EQ(count1112(faults), 0u);
    EXPECT_TRUE(parsed("[1]").getMemberNames().empty());
    EXPECT_EQ(count1112(faults), 1u);
}

TEST(JsonValueTest, KeysAreInternedOnce) {
    qztest::CapturedLogger log("JsonValue");
    const char* a = JsonValue::GetKeyReference("interned-key-test");
    EXPECT_EQ(log.capture->count(), 1u);
    EXPECT_NE(log.capture->last().find("- 'interned-key-test'"), std::string::npos) << log.capture->last();
    std::string copy = "interned-key-test";
    EXPECT_EQ(JsonValue::GetKeyReference(copy.c_str()), a);
    EXPECT_EQ(log.capture->count(), 1u); // a known key logs nothing
    JsonValue x, y;
    x["interned-key-test"] = 1;
    y["interned-key-test"] = 2;
    EXPECT_EQ(x.MemberBegin()->name.GetString(), a);
    EXPECT_EQ(y.MemberBegin()->name.GetString(), a);
    // Names too long for the table are copied into the tree instead.
    const std::string longName(70000, 'n');
    EXPECT_EQ(JsonValue::GetKeyReference(longName.c_str()), nullptr);
    x[longName] = 3;
    EXPECT_EQ(x[longName].asInt(), 3);
}

TEST(JsonValueTest, ReplaceAllIgnoresCaseAndWalksContainers) {
    JsonValue v = parsed(R"({"key":1,"obj":{"Key":2,"other":3},"arr":[{"key":4},5,[{"KEY":{"key":6}}]],"KEY":{"x":7}})");
    EXPECT_EQ(v.replaceAll("KEY", 5), 4);
    EXPECT_EQ(v.toString(), R"({"key":5,"obj":{"Key":5,"other":3},"arr":[{"key":5},5,[{"KEY":{"key":5}}]],"KEY":{"x":7}})");
    EXPECT_EQ(v.replaceAll<const char*>("other", "s"), 1);
    EXPECT_EQ(v.replaceAll<std::string>("OTHER", "t"), 1);
    EXPECT_EQ(v.replaceAll("x", true), 1);
    EXPECT_EQ(v.replaceAll("x", 7L), 1);
    EXPECT_EQ(v.toString(), R"({"key":5,"obj":{"Key":5,"other":"t"},"arr":[{"key":5},5,[{"KEY":{"key":5}}]],"KEY":{"x":7}})");

    qztest::CapturedLogger log("JsonValue");
    qztest::FaultCollector faults;
    JsonValue array = parsed("[{\"key\":1}]");
    EXPECT_EQ(array.replaceAll("key", 2), -1);
    EXPECT_EQ(log.capture->last(), "Receiver is not an instance of a JSON Object type.");
    EXPECT_EQ(v.replaceAllInArray("key", 2), -1);
    EXPECT_EQ(log.capture->last(), "Receiver is not an instance of a JSON Arrau type.");
    EXPECT_EQ(count1112(faults), 2u);
    EXPECT_EQ(array.replaceAllInArray("key", 2), 1);
}

TEST(JsonValueTest, MergeAndFromString) {
    JsonValue v = parsed(R"({"a":{"x":1,"y":[1,2]},"b":2})");
    v.merge(parsed(R"({"a":{"y":[3],"z":true},"c":null})"));
    EXPECT_EQ(v.toString(), R"({"a":{"x":1,"y":[3],"z":true},"b":2,"c":null})");
    // Merging a part of itself: the source moves when members are added.
    for (int i = 0; i < 20; ++i)
        v["a"]["k" + std::to_string(i)] = i;
    v.merge(v["a"]);
    EXPECT_EQ(v["k19"].asInt(), 19);
    EXPECT_EQ(v["x"].asInt(), 1);

    JsonValue s;
    EXPECT_TRUE(s.fromString(R"({"n":1})"));
    EXPECT_TRUE(s.fromString(R"({"m":2})"));
    EXPECT_FALSE(s.fromString(R"({"m":)"));
    EXPECT_EQ(s.toString(), R"({"n":1,"m":2})");
    EXPECT_TRUE(s.fromString("[1]")); // another kind replaces
    EXPECT_EQ(s.toString(), "[1]");
}

TEST(JsonValueTest, AssignmentFromInsideItsOwnTree) {
    JsonValue v = parsed(R"({"a":{"b":[1,{"c":2}]}})");
    v = v["a"];
    EXPECT_EQ(v.toString(), R"({"b":[1,{"c":2}]})");
    v = std::move(v["b"][1]);
    EXPECT_EQ(v.toString(), R"({"c":2})");
    v = v;
    EXPECT_EQ(v.toString(), R"({"c":2})");
}

TEST(JsonValueTest, WritersNeverLeaveHalfATree) {
    JsonValue v;
    v["nan"] = std::nan("");
    v["inf"] = HUGE_VAL;
    v["s"] = std::string("a\0b", 3);
    EXPECT_EQ(v.toString(), R"({"nan":null,"inf":null,"s":"a\u0000b"})");
    EXPECT_EQ(v["s"].asString(), std::string("a\0b", 3));
    EXPECT_EQ(parsed("{\"a\":[1,2]}").toStyledString(), "{\n    \"a\": [\n        1,\n        2\n    ]\n}");
}

TEST(JsonValueTest, TypeTagsToRapidJson) {
    const rapidjson::Type expected[] = {rapidjson::kNullType,   rapidjson::kNumberType, rapidjson::kNumberType,
                                        rapidjson::kNumberType, rapidjson::kStringType, rapidjson::kFalseType,
                                        rapidjson::kArrayType,  rapidjson::kObjectType};
    for (int t = 0; t <= 7; ++t)
        EXPECT_EQ(JsonValue::toRapidType(static_cast<JsonValue::value_type>(t)), expected[t]) << t;
    qztest::CapturedLogger log("JsonValue");
    qztest::FaultCollector faults;
    EXPECT_EQ(JsonValue::toRapidType(static_cast<JsonValue::value_type>(8)), rapidjson::kNullType);
    EXPECT_EQ(log.capture->last(), "invalid JsonValue type to rapidjson: 8");
    EXPECT_EQ(count1112(faults), 1u);
}

TEST(JsonValueTest, ValueAsLogArgument) {
    qztest::CapturedLogger log("qzsca.test.json");
    const JsonValue null;
    const JsonValue object = parsed("{}");
    const JsonValue array = parsed("[]");
    const JsonValue tree = parsed(R"({"a":[1,"x"]})");
    QZ_INFO(log.logger, "%s|%s|%s|%s|%s|%s", null, object, array, tree, JsonValue("text"), JsonValue(2.5));
    EXPECT_EQ(log.capture->last(), R"(<nul>|<empty Object>|<empty Array> |{"a":[1,"x"]}|text|2.5)");
}

} // namespace
