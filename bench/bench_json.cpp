//===- bench/bench_json.cpp - Reading, addressing and writing JSON --------===//
//
// One unit of work on a generated 1 MB document (records with numbers,
// escaped and non-ASCII strings, nested objects and arrays): parse it, read
// ten nodes by path, write it back compactly. Milliseconds per unit:
//  - Json/Library: JsonReader, JsonPath::get (paths parsed once), toString;
//  - Json/RapidJsonSameWork: RapidJSON's own document on the same malloc
//    allocator with the same reader flags (iterative, UTF-8 validated, full
//    precision), the ten nodes found by FindMember and index, its Writer;
//  - Json/RapidJsonPool: RapidJSON's defaults (pool allocator, default
//    flags), the fastest it goes, for reference;
//  - Json/Nlohmann: nlohmann::json::parse, json_pointer lookups, dump().
//
//===----------------------------------------------------------------------===//
#include "qzsca/JsonPath.h"
#include "qzsca/JsonValue.h"

#include <benchmark/benchmark.h>
#include <nlohmann/json.hpp>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

using qzs::qzlib::sca::JsonPath;

namespace {

// A deterministic 1 MB document (a fixed linear congruential sequence).
std::string makeDocument() {
    uint64_t state = 12345;
    auto next = [&state] {
        state = state * 6364136223846793005ull + 1442695040888963407ull;
        return static_cast<uint32_t>(state >> 33);
    };
    std::string text = "{\"meta\":{\"version\":3,\"source\":\"bench\",\"generated\":\"2026-01-01T00:00:00Z\"},\"records\":[";
    int id = 0;
    while (text.size() < 1000000) {
        if (id)
            text += ',';
        const uint32_t r = next();
        text += "{\"id\":" + std::to_string(id) + ",\"name\":\"record " + std::to_string(r) +
                " caf\\u00e9 \\\"q\\\"\",\"price\":" + std::to_string(r % 100000) + "." +
                std::to_string(r % 97) + ",\"big\":" + std::to_string(uint64_t(r) * 4294967311ull) +
                ",\"active\":" + (r & 1 ? "true" : "false") + ",\"tags\":[\"t" + std::to_string(r % 13) +
                "\",\"\xE2\x82\xAC" + std::to_string(r % 7) + "\",null],\"dims\":{\"w\":" +
                std::to_string(r % 640) + ",\"h\":" + std::to_string(r % 480) + ",\"scale\":" +
                std::to_string((r % 1000) / 7.0) + "}}";
        ++id;
    }
    text += "],\"count\":" + std::to_string(id) + "}";
    return text;
}

const std::string& document() {
    static const std::string text = makeDocument();
    return text;
}

// The ten nodes, as paths and as steps (a member name, or an index).
const char* const Paths[] = {
    "/meta/version",          "/records/[0]/name",     "/records/[100]/price", "/records/[999]/tags/[1]",
    "/records/[2000]/dims/w", "/records/[3000]/big",   "/records/[4000]/active", "/records/[10]/dims/scale",
    "/records/[4500]/id",     "/count",
};

struct Step {
    bool isIndex;
    std::string name;
    unsigned index;
};

std::vector<std::vector<Step>> steps() {
    std::vector<std::vector<Step>> all;
    for (const char* p : Paths) {
        std::vector<Step> s;
        const JsonPath path(p);
        for (const std::string& e : path.getPathElements()) {
            if (e[0] == '[')
                s.push_back({true, "", static_cast<unsigned>(std::stoul(e.substr(1)))});
            else
                s.push_back({false, e, 0});
        }
        all.push_back(s);
    }
    return all;
}

void library(benchmark::State& state) {
    const std::string& text = document();
    std::vector<JsonPath> paths;
    for (const char* p : Paths)
        paths.emplace_back(p);
    for (auto _ : state) {
        JsonValue doc;
        JsonReader reader;
        if (!reader.parse(text, doc))
            std::abort();
        for (const JsonPath& p : paths) {
            qzs::qzlib::sca::JsonPathError error;
            const JsonValue& v = p.get(doc, &error);
            if (error.hasError())
                std::abort();
            benchmark::DoNotOptimize(&v);
        }
        std::string out = doc.toString();
        benchmark::DoNotOptimize(out.data());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}

template <typename Doc, unsigned Flags> void rapid(benchmark::State& state) {
    const std::string& text = document();
    const auto all = steps();
    for (auto _ : state) {
        Doc doc;
        doc.template Parse<Flags>(text.c_str(), text.size());
        if (doc.HasParseError())
            std::abort();
        for (const auto& s : all) {
            const typename Doc::ValueType* v = &doc;
            for (const Step& step : s) {
                if (step.isIndex) {
                    if (!v->IsArray() || step.index >= v->Size())
                        std::abort();
                    v = &(*v)[step.index];
                } else {
                    if (!v->IsObject())
                        std::abort();
                    auto m = v->FindMember(typename Doc::ValueType(rapidjson::StringRef(
                        step.name.data(), static_cast<rapidjson::SizeType>(step.name.size()))));
                    if (m == v->MemberEnd())
                        std::abort();
                    v = &m->value;
                }
            }
            benchmark::DoNotOptimize(v);
        }
        rapidjson::GenericStringBuffer<rapidjson::UTF8<>, rapidjson::CrtAllocator> buffer;
        rapidjson::Writer<decltype(buffer), rapidjson::UTF8<>, rapidjson::UTF8<>, rapidjson::CrtAllocator> writer(
            buffer);
        doc.Accept(writer);
        std::string out(buffer.GetString(), buffer.GetSize());
        benchmark::DoNotOptimize(out.data());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}

void nlohmannJson(benchmark::State& state) {
    const std::string& text = document();
    std::vector<nlohmann::json::json_pointer> pointers;
    for (const auto& s : steps()) {
        std::string p;
        for (const Step& step : s)
            p += "/" + (step.isIndex ? std::to_string(step.index) : step.name);
        pointers.emplace_back(p);
    }
    for (auto _ : state) {
        nlohmann::json doc = nlohmann::json::parse(text);
        for (const auto& p : pointers) {
            const nlohmann::json& v = doc.at(p);
            benchmark::DoNotOptimize(&v);
        }
        std::string out = doc.dump();
        benchmark::DoNotOptimize(out.data());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}

typedef rapidjson::GenericDocument<rapidjson::UTF8<>, rapidjson::CrtAllocator, rapidjson::CrtAllocator> CrtDocument;
constexpr unsigned SameFlags =
    rapidjson::kParseIterativeFlag | rapidjson::kParseValidateEncodingFlag | rapidjson::kParseFullPrecisionFlag;

void RapidJsonSameWork(benchmark::State& state) { rapid<CrtDocument, SameFlags>(state); }
void RapidJsonPool(benchmark::State& state) { rapid<rapidjson::Document, rapidjson::kParseDefaultFlags>(state); }

} // namespace

BENCHMARK(library)->Name("Json/Library")->Unit(benchmark::kMillisecond);
BENCHMARK(RapidJsonSameWork)->Name("Json/RapidJsonSameWork")->Unit(benchmark::kMillisecond);
BENCHMARK(RapidJsonPool)->Name("Json/RapidJsonPool")->Unit(benchmark::kMillisecond);
BENCHMARK(nlohmannJson)->Name("Json/Nlohmann")->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
