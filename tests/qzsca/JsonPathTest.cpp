//===- tests/qzsca/JsonPathTest.cpp - Paths into JSON trees ---------------===//
#include "qzsca/JsonPath.h"

#include "CaptureAppender.h"
#include "qzmsg/QZException.h"

#include <gtest/gtest.h>

#include <string>

using qzs::qzlib::sca::JsonPath;
using E = qzs::qzlib::sca::JsonPathError;

namespace {

JsonValue parsed(const std::string& text) {
    JsonValue v;
    EXPECT_TRUE(JsonReader().parse(text, v)) << text;
    return v;
}

const char* const Doc = R"({"a":{"b":"text","n":5},"arr":[10,{"x":"y"}],"empty":[],"s":"str"})";

TEST(JsonPathTest, ParseChecks) {
    struct Case {
        const char* path;
        E::ParseError error;
        unsigned long pos;
        size_t elements;
    } cases[] = {
        {"", E::NODES_EMPTY, 0, 0},
        {"a/b", E::MISSING_ROOT_DELIM, 0, 0},
        {"/a//b", E::DOUBLE_DELIM, 2, 0},
        {"//", E::DOUBLE_DELIM, 0, 0},
        {"/a/", E::TRAILING_DELIM, 2, 0},
        {"/a/[x", E::MISMATCHED_OPEN, 3, 0},
        {"/[[0]", E::MISMATCHED_OPEN, 1, 0},
        {"/a/x]", E::MISMATCHED_CLOSE, 4, 0},
        {"/]a[", E::MISMATCHED_CLOSE, 1, 0},
        {"/", E::PATH_OK, 0, 1},
        {"/a", E::PATH_OK, 0, 1},
        {"/a/[0]/b/[]", E::PATH_OK, 0, 4},
        {"/[a/b]", E::PATH_OK, 0, 2}, // brackets balance over the whole path
    };
    for (const Case& c : cases) {
        E error;
        JsonPath path(c.path, &error);
        EXPECT_EQ(error.getError(), c.error) << c.path;
        EXPECT_EQ(error.getErrorPos(), c.pos) << c.path;
        EXPECT_EQ(error.isLastStatusSuccess(), c.error == E::PATH_OK) << c.path;
        EXPECT_EQ(path.size(), c.elements) << c.path;
    }
    JsonPath path("/a/[0]/b");
    EXPECT_EQ(path.getPath(), "/a/[0]/b");
    EXPECT_EQ(path.getPath(2), "/a/[0]");
    EXPECT_EQ(path.getPath(0), "/");
    EXPECT_TRUE(JsonPath("/").isRootOnly());
    EXPECT_EQ(JsonPath("/").getPath(), "/");
}

TEST(JsonPathTest, GetResolvesOrNamesTheFailingElement) {
    const JsonValue doc = parsed(Doc);
    const int zero = 0, one = 1, minus = -1;
    struct Case {
        const char* path;
        const int* index;
        E::ParseError error;
        unsigned long pos;
        const char* value; // compact text of the result
    } cases[] = {
        {"/", nullptr, E::PATH_OK, 0, Doc},
        {"/a/b", nullptr, E::PATH_OK, 0, "\"text\""},
        {"/arr/[1]/x", nullptr, E::PATH_OK, 0, "\"y\""},
        {"/arr/[]", &one, E::PATH_OK, 0, R"({"x":"y"})"},
        {"/arr/[ 0]", nullptr, E::PATH_OK, 0, "10"},
        {"/arr/x[1]", nullptr, E::PATH_OK, 0, R"({"x":"y"})"}, // index text "1]", read as 1
        {"/missing", nullptr, E::NODE_NOT_FOUND, 0, Doc},
        {"/a/missing", nullptr, E::NODE_NOT_FOUND, 1, Doc},
        {"/s/x", nullptr, E::NODE_NOT_FOUND, 1, Doc},      // member of a string
        {"/arr/x", nullptr, E::NODE_NOT_FOUND, 1, Doc},    // member of an array
        {"/a/[1]", nullptr, E::NOT_ARRAY, 1, Doc},
        {"/a/[]", &zero, E::NOT_ARRAY, 1, Doc},
        {"/arr/[]", nullptr, E::NO_INDEX, 1, Doc},
        {"/empty/[]", &zero, E::BAD_INDEX, 1, Doc},
        {"/arr/[]", &minus, E::BAD_INDEX, 1, Doc},
        {"/arr/[2]", nullptr, E::BAD_INDEX, 1, Doc},
        {"/arr/[-1]", nullptr, E::BAD_INDEX, 1, Doc},
        {"/arr/[x]", nullptr, E::BAD_INDEX, 1, Doc},
        {"/arr/[99999999999999999999]", nullptr, E::BAD_INDEX, 1, Doc},
        {"/arr/[1/x]", nullptr, E::BAD_ARRAY_SPEC, 1, Doc},
        {"/arr/[1x]", nullptr, E::PATH_OK, 0, R"({"x":"y"})"}, // the stream reads what it can
        {"a", nullptr, E::MISSING_ROOT_DELIM, 0, Doc}, // the parse error is kept
    };
    for (const Case& c : cases) {
        E error;
        JsonPath path(c.path, &error);
        const JsonValue& got = path.get(doc, c.index, &error);
        EXPECT_EQ(error.getError(), c.error) << c.path;
        EXPECT_EQ(error.getErrorPos(), c.pos) << c.path;
        EXPECT_EQ(got.toString(), c.value) << c.path;
        EXPECT_EQ(path.exists(doc), c.error == E::PATH_OK && c.index == nullptr) << c.path;
    }
    EXPECT_EQ(JsonPath("/a/n").getValueAsString(doc), "5");
    EXPECT_EQ(JsonPath("/a/zz").getValueAsString(doc), "Node not found.");
    EXPECT_STREQ(JsonPath("/a/b").getValueAsCString(doc), "text");
    EXPECT_EQ(doc.get(JsonPath("/a/zz"), JsonValue(7)).asInt(), 7);
    EXPECT_TRUE(doc[JsonPath("/a/zz")].IsNull());
    EXPECT_TRUE(doc.isMember(JsonPath("/arr/[1]/x")));
    EXPECT_FALSE(doc.isMember(JsonPath("/arr/[2]")));
}

TEST(JsonPathTest, EmptyPathFails) {
    const JsonValue doc = parsed(Doc);
    E error;
    JsonPath empty;
    EXPECT_EQ(&empty.get(doc, &error), &doc);
    EXPECT_EQ(error.getError(), E::NODES_EMPTY);
    EXPECT_FALSE(empty.exists(doc));
}

TEST(JsonPathTest, AnEarlierErrorStopsTheOperation) {
    JsonValue doc = parsed(Doc);
    E error;
    error.setError(E::NOT_ARRAY);
    EXPECT_EQ(&JsonPath("/a/b").get(doc, &error), &doc);
    EXPECT_EQ(error.getError(), E::NOT_ARRAY);
    JsonPath("/a").remove(doc, &error);
    EXPECT_EQ(doc.toString(), Doc);
}

TEST(JsonPathTest, ReportThrowsTheCatalogueMessage) {
    const JsonValue doc = parsed(Doc);
    try {
        E error;
        JsonPath("/a/zz").get(doc, &error, true);
        FAIL() << "no exception";
    } catch (const qzs::qzlib::qzlog::QZException& e) {
        EXPECT_EQ(e.GetMessageID(), 12028u);
        const std::string text = e.what();
        EXPECT_NE(text.find("zz"), std::string::npos) << text;
        EXPECT_NE(text.find("NODE_NOT_FOUND"), std::string::npos) << text;
    }
    try {
        JsonPath().get(doc, nullptr, true);
        FAIL() << "no exception";
    } catch (const qzs::qzlib::qzlog::QZException& e) {
        EXPECT_EQ(e.GetMessageID(), 12027u);
    }
    E error;
    EXPECT_NO_THROW(JsonPath("/a/zz").get(doc, &error, false));
}

TEST(JsonPathTest, FailuresAreLogged) {
    qztest::CapturedLogger log("sca.JsonPath");
    E error;
    JsonPath("/a/zz").get(parsed(Doc), &error);
    EXPECT_EQ(log.capture->last(), "Node 'zz' at postion 1 in JsonPath '/a/zz' is missing. Error: NODE_NOT_FOUND");
}

TEST(JsonPathTest, PutCreatesWhatIsMissingAndNeverOverwritesAnotherKind) {
    const int two = 2;
    struct Case {
        const char* start;
        const char* path;
        const int* index;
        E::ParseError error;
        const char* after; // the document after writing 1 at the path
    } cases[] = {
        {"{}", "/new/deep", nullptr, E::PATH_OK, R"({"new":{"deep":1}})"},
        {"null", "/list/[0]/x", nullptr, E::PATH_OK, R"({"list":[{"x":1}]})"},
        {"[5,6]", "/[]", &two, E::PATH_OK, "[5,6,1]"},
        {"[5,6]", "/[0]", nullptr, E::PATH_OK, "[1,6]"},
        {"{\"a\":[]}", "/a/[1]", nullptr, E::BAD_INDEX, "{\"a\":[]}"}, // no gaps
        {"{}", "/a/[1]", nullptr, E::BAD_INDEX, "{\"a\":null}"},    // created before the failure stays
        {"{\"s\":\"x\"}", "/s/t", nullptr, E::NODE_NOT_FOUND, "{\"s\":\"x\"}"},
        {"{\"o\":{}}", "/o/[0]", nullptr, E::NOT_ARRAY, "{\"o\":{}}"},
        {"[]", "/[]", nullptr, E::NO_INDEX, "[]"},
        {"{}", "/", nullptr, E::PATH_OK, "1"},
    };
    for (const Case& c : cases) {
        JsonValue doc = parsed(c.start);
        E error;
        JsonPath(c.path).put(doc, c.index, &error) = 1;
        EXPECT_EQ(error.getError(), c.error) << c.path;
        EXPECT_EQ(doc.toString(), c.after) << c.path;
    }
    JsonValue doc;
    doc[JsonPath("/a/b")] = "v";
    doc[JsonPath("/a/c")] = 2;
    EXPECT_EQ(doc.toString(), R"({"a":{"b":"v","c":2}})");
}

TEST(JsonPathTest, RemoveKeepsTheOrderOfWhatStays) {
    struct Case {
        const char* path;
        E::ParseError error;
        const char* after;
    } cases[] = {
        {"/", E::PATH_OK, Doc},
        {"/a", E::PATH_OK, R"({"arr":[10,{"x":"y"}],"empty":[],"s":"str"})"},
        {"/a/b", E::PATH_OK, R"({"a":{"n":5},"arr":[10,{"x":"y"}],"empty":[],"s":"str"})"},
        {"/arr/[0]", E::PATH_OK, R"({"a":{"b":"text","n":5},"arr":[{"x":"y"}],"empty":[],"s":"str"})"},
        {"/missing", E::NODE_NOT_FOUND, Doc},
        {"/s/x", E::NODE_NOT_FOUND, Doc},
        {"/arr/[2]", E::BAD_INDEX, Doc},
        {"/arr/[]", E::NO_INDEX, Doc},
        {"/a/[0]", E::NOT_ARRAY, Doc},
        {"/x/y/z", E::NODE_NOT_FOUND, Doc},
    };
    for (const Case& c : cases) {
        JsonValue doc = parsed(Doc);
        E error;
        const E::ResultStatus status = JsonPath(c.path).remove(doc, &error);
        EXPECT_EQ(error.getError(), c.error) << c.path;
        EXPECT_EQ(status, c.error == E::PATH_OK ? E::SUCCESS : E::FAILURE) << c.path;
        EXPECT_EQ(doc.toString(), c.after) << c.path;
    }
    JsonValue doc = parsed(Doc);
    doc.removeMember(JsonPath("/arr/[1]/x"));
    EXPECT_EQ(doc.get(JsonPath("/arr")).toString(), "[10,{}]");
}

TEST(JsonPathTest, GetArrayCreatesAMissingArray) {
    JsonValue doc = parsed(Doc);
    E error;
    JsonPath("/new/list").getArray(doc, &error).PushBack(1, JsonValue::GetAllocator());
    EXPECT_FALSE(error.hasError());
    JsonPath("/arr").getArray(doc, &error).PushBack(2, JsonValue::GetAllocator());
    EXPECT_EQ(doc.get(JsonPath("/new")).toString(), R"({"list":[1]})");
    EXPECT_EQ(doc.get(JsonPath("/arr")).toString(), R"([10,{"x":"y"},2])");

    JsonPath("/s").getArray(doc, &error) = 3; // a string: not an array, and not replaced
    EXPECT_EQ(error.getError(), E::NOT_ARRAY);
    EXPECT_EQ(doc.get(JsonPath("/s")).asString(), "str");

    qztest::CapturedLogger log("sca.JsonPath");
    error.clear();
    JsonPath("/arr/[9]/x").getArray(doc, &error);
    EXPECT_EQ(log.capture->last(), "Unexpected error 12 with JsonPath instance: /arr/[9]/x");
}

TEST(JsonPathTest, ErrorNames) {
    struct Case {
        int code;
        const char* name;
    } cases[] = {{0, "PATH_OK"},         {3, "NODE_NOT_FOUND"},   {9, "BAD_ARRAY_SPEC"},
                 {14, "MISMATCHED_CLOSE"}, {15, "UNKNOWN_ERROR"}, {16, "INVALID_ERROR"},
                 {17, "INVALID_ERROR"},   {255, "INVALID_ERROR"}};
    for (const Case& c : cases)
        EXPECT_STREQ(E::getErrorStr(static_cast<E::ParseError>(c.code)), c.name) << c.code;
}

TEST(JsonPathTest, LongPathsNeitherRecurseNorNestTooDeep) {
    std::string deep;
    for (int i = 0; i < 100000; ++i)
        deep += "/a";
    JsonValue doc = parsed(R"({"a":{"a":1}})");
    E error;
    JsonPath path(deep, &error);
    ASSERT_FALSE(error.hasError());
    path.get(doc, &error);
    EXPECT_EQ(error.getError(), E::NODE_NOT_FOUND);
    EXPECT_EQ(error.getErrorPos(), 2u);
    error.clear();
    path.put(doc, nullptr, &error) = 1;
    EXPECT_EQ(error.getError(), E::UNKNOWN_ERROR);
    EXPECT_EQ(doc.toString(), R"({"a":{"a":1}})");
}

} // namespace
