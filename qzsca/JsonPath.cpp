//===- qzsca/JsonPath.cpp - Addressing a node of a JSON tree --------------===//
//
// Path parsing and the walks of get, put and remove. Every walk is a loop
// over the elements, so a long path costs no stack.
//
//===----------------------------------------------------------------------===//
#include "qzsca/JsonPath.h"

#include "qzlog/Level.h"
#include "qzlog/LogMacros.h"
#include "qzlog/Logger.h"
#include "qzmsg/Messages.h"
#include "qzmsg/QZException.h"
#include "qzsca/ScaLoggers.h"

#include <locale>
#include <sstream>

namespace qzs {
namespace qzlib {
namespace sca {

using qzlog::Level;
typedef JsonValue::Base Base;

namespace {

const char* const ErrorNames[] = {
    "PATH_OK",        "MISSING_ROOT_DELIM", "ARRAY_DEFINED", "NODE_NOT_FOUND",  "NODES_EMPTY",
    "DOUBLE_DELIM",   "TRAILING_DELIM",     "PRIOR_ERROR",   "NOT_CONVERTABLE", "BAD_ARRAY_SPEC",
    "NOT_ARRAY",      "NO_INDEX",           "BAD_INDEX",     "MISMATCHED_OPEN", "MISMATCHED_CLOSE",
    "UNKNOWN_ERROR",  "INVALID_ERROR",
};

/// Throws the message made for the caller as a QZException, after logging it.
[[noreturn]] void throwMessage(CMessage* message) {
    std::string text = "JSON path error";
    unsigned int id = 0;
    char code[10] = "";
    if (message) {
        const char* formatted = message->Format(FactoryCharSet);
        if (formatted)
            text = formatted;
        id = message->GetMessageID();
        message->GetMessageCode(code);
        delete message;
    }
    QZ_LOG(ScaLoggers::JsonPath(), Level::Error, "QZException: [%s] %s", static_cast<const char*>(code), text);
    throw qzlog::QZException(text, id, code);
}

void failEmpty(JsonPathError& error, const std::string& path, bool report, const char* method) {
    error.setError(JsonPathError::NODES_EMPTY);
    error.setErrorPos(0);
    error.setLastStatus(JsonPathError::FAILURE);
    if (report)
        throwMessage(raiseMessage(new CSourceContext("qzsca", "qzsca/JsonPath", method, __LINE__), 12027,
                                  ReturnToCaller, path.c_str()));
}

bool isOpenIndex(const std::string& element) { return element.size() == 2 && element[0] == '[' && element[1] == ']'; }
bool isIndex(const std::string& element) { return element.find('[') != std::string::npos; }

/// Reads the index of an "[n]" element. The text starts behind the "[" and
/// runs for the "]"'s position minus one characters (see JsonPath.h).
JsonPathError::ParseError readIndex(const std::string& element, long long& index) {
    const size_t open = element.find('[');
    const size_t close = element.find(']');
    if (close == std::string::npos)
        return JsonPathError::BAD_ARRAY_SPEC;
    std::istringstream in(element.substr(open + 1, close == 0 ? 0 : close - 1));
    in.imbue(std::locale::classic());
    if (!(in >> index))
        return JsonPathError::BAD_INDEX;
    return JsonPathError::PATH_OK;
}

} // namespace

// ---- JsonPathError ----

const char* JsonPathError::getErrorStr(ParseError code) {
    const unsigned int n = static_cast<unsigned int>(code);
    return n <= INVALID_ERROR ? ErrorNames[n] : "INVALID_ERROR";
}

const char* JsonPathError::getErrorStr() const { return getErrorStr(error); }

void JsonPathError::reportParseError(ParseError code, const std::string& node, const std::string& path,
                                     unsigned long position, bool report) {
    error = code;
    errorPos = position;
    lastStatus = FAILURE;
    // Kept on purpose: "postion" is the text that log searches look for.
    QZ_LOG(ScaLoggers::JsonPath(), Level::Data, "Node '%s' at postion %d in JsonPath '%s' is missing. Error: %s",
           node, static_cast<int>(position), path, getErrorStr());
    if (report)
        throwMessage(raiseMessage(
            new CSourceContext("qzsca", "qzsca/JsonPath", "JsonPathError::reportParseError", __LINE__), 12028,
            ReturnToCaller, node.c_str(), static_cast<unsigned long>(position), path.c_str(), getErrorStr()));
}

// ---- Parsing ----

JsonPath::JsonPath(const std::string& path, JsonPathError* error) { parse(path, error); }

JsonPathError::ResultStatus JsonPath::parse(const std::string& path, JsonPathError* error) {
    JsonPathError local;
    JsonPathError& e = error ? *error : local;
    pathElements.clear();
    auto fail = [&e](JsonPathError::ParseError code, size_t position) {
        e.setError(code);
        e.setErrorPos(position);
        e.setLastStatus(JsonPathError::FAILURE);
        return JsonPathError::FAILURE;
    };

    if (path.empty())
        return fail(JsonPathError::NODES_EMPTY, 0);
    e.setLastStatus(JsonPathError::SUCCESS);
    if (path[0] != '/')
        return fail(JsonPathError::MISSING_ROOT_DELIM, 0);
    const size_t dbl = path.find("//");
    if (dbl != std::string::npos)
        return fail(JsonPathError::DOUBLE_DELIM, dbl);
    if (path.size() > 1 && path.back() == '/')
        return fail(JsonPathError::TRAILING_DELIM, path.size() - 1);
    std::vector<size_t> open;
    for (size_t i = 0; i < path.size(); ++i) {
        if (path[i] == '[') {
            open.push_back(i);
        } else if (path[i] == ']') {
            if (open.empty())
                return fail(JsonPathError::MISMATCHED_CLOSE, i);
            open.pop_back();
        }
    }
    if (!open.empty())
        return fail(JsonPathError::MISMATCHED_OPEN, open.back());

    if (path.size() == 1) {
        pathElements.emplace_back("/");
    } else {
        size_t start = 1;
        for (;;) {
            const size_t slash = path.find('/', start);
            pathElements.emplace_back(path, start, slash == std::string::npos ? std::string::npos : slash - start);
            if (slash == std::string::npos)
                break;
            start = slash + 1;
        }
    }
    return JsonPathError::SUCCESS;
}

std::string JsonPath::getPath(unsigned int count) const {
    if (pathElements.empty())
        return std::string();
    if (isRootOnly())
        return "/";
    const size_t n = count < pathElements.size() ? count : pathElements.size();
    if (n == 0)
        return "/";
    std::string path;
    for (size_t i = 0; i < n; ++i) {
        path += '/';
        path += pathElements[i];
    }
    return path;
}

// ---- Walks ----

const Base* JsonPath::resolve(const JsonValue& value, const int* index, JsonPathError& error, bool report,
                              size_t count) const {
    const Base* current = &value;
    for (size_t i = 0; i < count; ++i) {
        const std::string& element = pathElements[i];
        JsonPathError::ParseError code = JsonPathError::PATH_OK;
        if (isOpenIndex(element)) {
            if (!current->IsArray())
                code = JsonPathError::NOT_ARRAY;
            else if (!index)
                code = JsonPathError::NO_INDEX;
            else if (*index < 0 || static_cast<unsigned int>(*index) >= current->Size())
                code = JsonPathError::BAD_INDEX;
            else
                current = &(*current)[static_cast<rapidjson::SizeType>(*index)];
        } else if (isIndex(element)) {
            long long n = 0;
            if (!current->IsArray())
                code = JsonPathError::NOT_ARRAY;
            else if ((code = readIndex(element, n)) == JsonPathError::PATH_OK) {
                if (n < 0 || n >= static_cast<long long>(current->Size()))
                    code = JsonPathError::BAD_INDEX;
                else
                    current = &(*current)[static_cast<rapidjson::SizeType>(n)];
            }
        } else {
            if (!current->IsObject()) {
                code = JsonPathError::NODE_NOT_FOUND;
            } else {
                auto found = current->FindMember(
                    Base(rapidjson::StringRef(element.data(), static_cast<rapidjson::SizeType>(element.size()))));
                if (found == current->MemberEnd())
                    code = JsonPathError::NODE_NOT_FOUND;
                else
                    current = &found->value;
            }
        }
        if (code != JsonPathError::PATH_OK) {
            error.reportParseError(code, element, getPath(), i, report);
            return nullptr;
        }
    }
    error.setLastStatus(JsonPathError::SUCCESS);
    return current;
}

bool JsonPath::exists(const JsonValue& value) const {
    JsonPathError error;
    get(value, nullptr, &error, false);
    return !error.hasError();
}

const JsonValue& JsonPath::get(const JsonValue& value, JsonPathError* error, bool report) const {
    return get(value, nullptr, error, report);
}

const JsonValue& JsonPath::get(const JsonValue& value, const int* index, JsonPathError* error, bool report) const {
    JsonPathError local;
    JsonPathError& e = error ? *error : local;
    if (e.hasError())
        return value;
    if (pathElements.empty()) {
        failEmpty(e, getPath(), report, "JsonPath::get");
        return value;
    }
    if (isRootOnly())
        return value;
    const Base* node = resolve(value, index, e, report, pathElements.size());
    return node ? JsonValue::wrap(*node) : value;
}

std::string JsonPath::getValueAsString(const JsonValue& value, JsonPathError* error, bool report) const {
    JsonPathError local;
    JsonPathError& e = error ? *error : local;
    const JsonValue& node = get(value, nullptr, &e, report);
    return e.hasError() ? std::string("Node not found.") : node.asString();
}

const char* JsonPath::getValueAsCString(const JsonValue& value, JsonPathError* error, bool report) const {
    static thread_local std::string text;
    text = getValueAsString(value, error, report);
    return text.c_str();
}

JsonValue& JsonPath::put(JsonValue& value, const int* index, JsonPathError* error, bool report) const {
    JsonPathError local;
    JsonPathError& e = error ? *error : local;
    if (e.hasError())
        return JsonValue::scratch();
    if (pathElements.empty()) {
        failEmpty(e, getPath(), report, "JsonPath::put");
        return JsonValue::scratch();
    }
    if (isRootOnly())
        return value;
    if (pathElements.size() > JsonReader::MaxDepth) {
        // A tree deeper than a reader accepts could not be written, copied or
        // freed within a bounded stack.
        e.reportParseError(JsonPathError::UNKNOWN_ERROR, pathElements[JsonReader::MaxDepth], getPath(),
                           JsonReader::MaxDepth, report);
        return JsonValue::scratch();
    }

    JsonValue::AllocatorType& allocator = JsonValue::GetAllocator();
    Base* current = &value;
    for (size_t i = 0; i < pathElements.size(); ++i) {
        const std::string& element = pathElements[i];
        JsonPathError::ParseError code = JsonPathError::PATH_OK;
        if (isOpenIndex(element) || isIndex(element)) {
            long long n = 0;
            if (!current->IsArray() && !current->IsNull())
                code = JsonPathError::NOT_ARRAY;
            else if (isOpenIndex(element)) {
                if (!index)
                    code = JsonPathError::NO_INDEX;
                else
                    n = *index;
            } else {
                code = readIndex(element, n);
            }
            if (code == JsonPathError::PATH_OK) {
                // A null becomes an array only when the index is good for it.
                const long long size = current->IsArray() ? current->Size() : 0;
                if (n < 0 || n > size) {
                    // Decision: only the next element may be created; a gap
                    // would have to be filled with nulls nobody asked for.
                    code = JsonPathError::BAD_INDEX;
                } else {
                    if (current->IsNull())
                        current->SetArray();
                    if (n == size)
                        current->PushBack(Base(), allocator);
                    current = &(*current)[static_cast<rapidjson::SizeType>(n)];
                }
            }
        } else {
            if (current->IsNull())
                current->SetObject();
            if (!current->IsObject()) {
                code = JsonPathError::NODE_NOT_FOUND;
            } else {
                const rapidjson::SizeType length = static_cast<rapidjson::SizeType>(element.size());
                auto found = current->FindMember(Base(rapidjson::StringRef(element.data(), length)));
                if (found == current->MemberEnd()) {
                    Base name(element.data(), length, allocator);
                    Base member;
                    current->AddMember(name, member, allocator);
                    current = &(current->MemberEnd() - 1)->value;
                } else {
                    current = &found->value;
                }
            }
        }
        if (code != JsonPathError::PATH_OK) {
            e.reportParseError(code, element, getPath(), i, report);
            return JsonValue::scratch();
        }
    }
    e.setLastStatus(JsonPathError::SUCCESS);
    return JsonValue::wrap(*current);
}

JsonPathError::ResultStatus JsonPath::remove(JsonValue& value, JsonPathError* error, bool report) const {
    JsonPathError local;
    JsonPathError& e = error ? *error : local;
    if (e.hasError())
        return JsonPathError::FAILURE;
    if (pathElements.empty()) {
        failEmpty(e, getPath(), report, "JsonPath::remove");
        return JsonPathError::FAILURE;
    }
    if (isRootOnly())
        return JsonPathError::SUCCESS;

    const size_t last = pathElements.size() - 1;
    // The parent is part of `value`, which the caller gave us to change.
    Base* parent = const_cast<Base*>(resolve(value, nullptr, e, report, last));
    if (!parent)
        return JsonPathError::FAILURE;
    const std::string& element = pathElements[last];
    JsonPathError::ParseError code = JsonPathError::PATH_OK;
    if (isOpenIndex(element)) {
        code = parent->IsArray() ? JsonPathError::NO_INDEX : JsonPathError::NOT_ARRAY;
    } else if (isIndex(element)) {
        long long n = 0;
        if (!parent->IsArray())
            code = JsonPathError::NOT_ARRAY;
        else if ((code = readIndex(element, n)) == JsonPathError::PATH_OK) {
            if (n < 0 || n >= static_cast<long long>(parent->Size()))
                code = JsonPathError::BAD_INDEX;
            else
                parent->Erase(parent->Begin() + n);
        }
    } else if (!parent->IsObject()) {
        // Asked before any member iterator exists: RapidJSON's iterators are
        // defined on objects only.
        code = JsonPathError::NODE_NOT_FOUND;
    } else {
        auto found = parent->FindMember(
            Base(rapidjson::StringRef(element.data(), static_cast<rapidjson::SizeType>(element.size()))));
        if (found == parent->MemberEnd())
            code = JsonPathError::NODE_NOT_FOUND;
        else
            parent->EraseMember(found);
    }
    if (code != JsonPathError::PATH_OK)
        e.reportParseError(code, element, getPath(), last, report);
    return e.hasError() ? JsonPathError::FAILURE : JsonPathError::SUCCESS;
}

JsonValue& JsonPath::getArray(JsonValue& value, JsonPathError* error) const {
    JsonPathError local;
    JsonPathError& e = error ? *error : local;
    const std::string path = getPath();
    const JsonValue& node = get(value, nullptr, &e, false);
    if (!e.hasError()) {
        if (node.IsArray())
            return const_cast<JsonValue&>(node);
        e.reportParseError(JsonPathError::NOT_ARRAY, pathElements.empty() ? path : pathElements.back(), path,
                           pathElements.empty() ? 0 : pathElements.size() - 1, false);
        return JsonValue::scratch();
    }
    if (e.getError() == JsonPathError::NODE_NOT_FOUND) {
        e.clear();
        JsonValue& created = put(value, nullptr, &e, false);
        if (e.hasError())
            return JsonValue::scratch();
        created = JsonValue(JsonValue::toRapidType(JsonValue::Array));
        return created;
    }
    QZ_LOG(ScaLoggers::JsonPath(), Level::Error, "Unexpected error %d with JsonPath instance: %s",
           static_cast<int>(e.getError()), path);
    return JsonValue::scratch();
}

} // namespace sca
} // namespace qzlib
} // namespace qzs
