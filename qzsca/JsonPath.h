//===- qzsca/JsonPath.h - Addressing a node of a JSON tree ------*- C++ -*-===//
//
// A JsonPath names a node of a JsonValue tree by a string such as
// "/config/servers/[2]/name", and reads, creates or removes it. Failures go
// into a JsonPathError; they are thrown as QZException only when the caller
// asks for it (`report`). Member names are taken as the path's bytes: a name
// that is not UTF-8 is stored as it is, and the document written with it is
// not JSON that a reader takes.
//
//===----------------------------------------------------------------------===//
#ifndef QZSCA_JSONPATH_H
#define QZSCA_JSONPATH_H

#include "qzstd/Export.h"

#include "qzsca/JsonValue.h"

#include <string>
#include <vector>

namespace qzs {
namespace qzlib {
namespace sca {

/// The outcome of parsing a path and of each operation on it.
/// Belongs to one caller; not thread-safe.
class QZ_API JsonPathError {
public:
    enum ParseError {
        PATH_OK = 0,
        MISSING_ROOT_DELIM = 1, ///< the path does not begin with "/"
        ARRAY_DEFINED = 2,      ///< not set by this library
        NODE_NOT_FOUND = 3,     ///< a member does not exist, or is not an object's
        NODES_EMPTY = 4,        ///< the path is empty, or has no elements at use
        DOUBLE_DELIM = 5,       ///< "//"
        TRAILING_DELIM = 6,     ///< ends in "/" and is longer than "/"
        PRIOR_ERROR = 7,        ///< not set by this library
        NOT_CONVERTABLE = 8,    ///< not set by this library
        BAD_ARRAY_SPEC = 9,     ///< "[" with no "]" in an element
        NOT_ARRAY = 10,         ///< an index used on a value that is not an array
        NO_INDEX = 11,          ///< "[]" used with no index argument
        BAD_INDEX = 12,         ///< the index is no number, or out of range
        MISMATCHED_OPEN = 13,   ///< a "[" has no partner
        MISMATCHED_CLOSE = 14,  ///< a "]" has no partner
        UNKNOWN_ERROR = 15,     ///< put would nest deeper than JsonReader::MaxDepth
        INVALID_ERROR = 16,
    };
    enum ResultStatus { SUCCESS = 0, FAILURE = 3 };

    JsonPathError() = default;

    bool hasError() const { return error != PATH_OK; }
    ParseError getError() const { return error; }
    /// The name of the error ("PATH_OK", "NODE_NOT_FOUND", ...);
    /// "INVALID_ERROR" for a value above 16.
    const char* getErrorStr() const;
    static const char* getErrorStr(ParseError code);
    /// For a parse error, the character position in the path; for an
    /// operation, the number of the element (from 0) that failed.
    unsigned long getErrorPos() const { return errorPos; }
    ResultStatus getLastStatus() const { return lastStatus; }
    bool isLastStatusSuccess() const { return lastStatus == SUCCESS; }
    void setError(ParseError e) { error = e; }
    void setErrorPos(unsigned long pos) { errorPos = pos; }
    void setLastStatus(ResultStatus status) { lastStatus = status; }
    void clear() {
        error = PATH_OK;
        errorPos = 0;
        lastStatus = SUCCESS;
    }

    /// Records `code` at `position` (status failure) and logs it at level 95
    /// on ScaLoggers::JsonPath. With `report`, throws QZException carrying
    /// catalogue message 12028.
    void reportParseError(ParseError code, const std::string& node, const std::string& path,
                          unsigned long position, bool report);

    ParseError error = PATH_OK;
    unsigned long errorPos = 0;
    ResultStatus lastStatus = SUCCESS;
};

/// A parsed path.
///
/// Syntax: "/" alone is the root. Otherwise elements follow single "/"s:
/// - "[n]", a decimal array index. The index text runs from behind the first
///   "[" for as many characters as the "]"'s position minus one, and is read
///   by a string stream, so "[ 7]" and "[7x]" are 7. Kept on purpose: the
///   "[" is taken to be the first character; in "ab[1]" the index text is
///   "1]", which reads 1.
/// - "[]", an open index: the operation takes it from its `index` argument.
/// - anything else, a member name (it may hold "]" but no "[").
///
/// Operations walk the path iteratively. A path whose parse failed has no
/// elements: its operations fail with NODES_EMPTY.
///
/// Errors are written into the caller's JsonPathError when one is given.
/// Kept on purpose: an operation given an error object that already holds an
/// error does nothing and returns its input; clear() it between uses.
///
/// Thread safety: immutable after parse(), so it can be shared.
class QZ_API JsonPath {
public:
    JsonPath() = default;
    /// Parses `path`; see parse().
    explicit JsonPath(const std::string& path, JsonPathError* error = nullptr);

    /// Parses `path`, replacing the elements. Checks, in order: not empty
    /// (NODES_EMPTY), leading "/" (MISSING_ROOT_DELIM at 0), no "//"
    /// (DOUBLE_DELIM at its position), no trailing "/" (TRAILING_DELIM at the
    /// last position), balanced brackets (MISMATCHED_CLOSE at a "]" with no
    /// open "[", MISMATCHED_OPEN at the innermost "[" left open). The first
    /// failing check leaves the path empty. Answers the status.
    JsonPathError::ResultStatus parse(const std::string& path, JsonPathError* error = nullptr);

    void clear() { pathElements.clear(); }
    size_t size() const { return pathElements.size(); }
    bool isRootOnly() const { return pathElements.size() == 1 && pathElements[0] == "/"; }
    const std::vector<std::string>& getPathElements() const { return pathElements; }
    /// The path rebuilt from its first `count` elements ((unsigned)-1: all).
    std::string getPath(unsigned int count = static_cast<unsigned int>(-1)) const;

    /// Whether every element resolves in `value`.
    bool exists(const JsonValue& value) const;

    /// The node at this path in `value`. On failure, `value` itself with the
    /// error recorded; with `report`, QZException (12027 for a path with no
    /// elements, 12028 for a node that does not resolve).
    const JsonValue& get(const JsonValue& value, JsonPathError* error = nullptr, bool report = false) const;
    /// As above; an open index "[]" takes `*index` (NO_INDEX when null).
    const JsonValue& get(const JsonValue& value, const int* index, JsonPathError* error,
                         bool report = false) const;
    /// The node's asString(), or "Node not found." when it does not resolve.
    std::string getValueAsString(const JsonValue& value, JsonPathError* error = nullptr,
                                 bool report = false) const;
    /// As getValueAsString, in a per-thread buffer valid until the next call
    /// on this thread.
    const char* getValueAsCString(const JsonValue& value, JsonPathError* error = nullptr,
                                  bool report = false) const;

    /// The node at this path, created when missing: a null value becomes an
    /// object for a member name and an array for an index; a missing member
    /// is added (null); an index equal to the size appends a null element.
    /// Never replaces a value of another kind: a member name on a non-object
    /// is NODE_NOT_FOUND, an index on a non-array NOT_ARRAY, an index beyond
    /// the size BAD_INDEX. A path of more than JsonReader::MaxDepth elements
    /// is UNKNOWN_ERROR. On failure answers JsonValue::scratch(), so that
    /// what the caller writes there is lost rather than overwriting `value`.
    JsonValue& put(JsonValue& value, const int* index = nullptr, JsonPathError* error = nullptr,
                   bool report = false) const;

    /// Removes the node: a member (the others keep their order) or an array
    /// element. The root path removes nothing and is not an error. A node
    /// that does not resolve is NODE_NOT_FOUND (or the error of the element
    /// that fails). Answers FAILURE when `error` holds an error.
    JsonPathError::ResultStatus remove(JsonValue& value, JsonPathError* error = nullptr,
                                       bool report = false) const;

    /// The array at this path; when a member on the way is missing, an empty
    /// array is put there. Another error is logged and answers the scratch
    /// value, as does a node that is not an array (NOT_ARRAY).
    JsonValue& getArray(JsonValue& value, JsonPathError* error = nullptr) const;

private:
    /// Walks to the node, or records the failure and answers null.
    const JsonValue::Base* resolve(const JsonValue& value, const int* index, JsonPathError& error,
                                   bool report, size_t count) const;

    std::vector<std::string> pathElements;
};

} // namespace sca
} // namespace qzlib
} // namespace qzs

#endif // QZSCA_JSONPATH_H
