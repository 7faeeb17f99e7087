//===- qzmsg/CMessageTemplate.cpp - Catalogue entries and severities ------===//
#include "qzmsg/CMessageTemplate.h"

#include "qzmsg/CAction.h"
#include "qzstd/CDataItem.h"

#include <cstdlib>
#include <cstring>
#include <string>

namespace qzs {
namespace qzlib {

CMessageSeverity::CMessageSeverity(char const* severityName)
    : name(SafeStrdup(severityName ? severityName : "")), alternate(nullptr) {}

CMessageSeverity::~CMessageSeverity() {
    ClearActions();
    std::free(name);
}

void CMessageSeverity::ClearActions() {
    for (CAction* action : actions)
        delete action;
    actions.clear();
}

CMessageDetail::CMessageDetail()
    : name(nullptr), contextItem(0), kind(0), argumentType(0), format(0) {}

CMessageDetail::CMessageDetail(const CMessageDetail& other)
    : name(other.name ? SafeStrdup(other.name) : nullptr), contextItem(other.contextItem),
      kind(other.kind), argumentType(other.argumentType), format(other.format) {}

CMessageDetail& CMessageDetail::operator=(const CMessageDetail& other) {
    if (this != &other) {
        std::free(name);
        name = other.name ? SafeStrdup(other.name) : nullptr;
        contextItem = other.contextItem;
        kind = other.kind;
        argumentType = other.argumentType;
        format = other.format;
    }
    return *this;
}

CMessageDetail::~CMessageDetail() {
    std::free(name);
}

void CMessageDetail::SetKind(uint32_t newKind) {
    kind = newKind;
    if (newKind >= 1 && newKind <= 7)
        argumentType = newKind;
    else if (newKind <= 16)
        argumentType = 0;
}

uint32_t ParallelKind::FromWord(char const* word) {
    static const struct {
        const char* word;
        uint32_t bits;
    } kWords[] = {{"All", All},
                  {"NonParallel", NonParallel},
                  {"Parallel", Parallel},
                  {"ParallelMaster", ParallelMaster},
                  {"ParallelWorker", ParallelWorker},
                  {"ParallelMapper", ParallelMapper},
                  {"ParallelApplier", ParallelApplier}};
    for (const auto& w : kWords)
        if (word && std::strcmp(word, w.word) == 0)
            return w.bits;
    return 0;
}

CMessageTemplate::CMessageTemplate(unsigned int messageId)
    : id(messageId), severity(nullptr), messageClass{' ', ' ', 0}, code{' ', ' ', ' ', 0},
      parallelKinds(0) {}

CMessageTemplate::~CMessageTemplate() = default;

namespace {

// The catalogue's texts are invariant ASCII (class, code, names, words).
std::string asciiOf(const icu::UnicodeString& text) {
    std::string out;
    text.toUTF8String(out);
    return out;
}

bool readUnsigned(const icu::ResourceBundle& r, uint32_t& out) {
    UErrorCode ec = U_ZERO_ERROR;
    if (r.getType() != URES_INT)
        return false;
    out = r.getUInt(ec);
    return U_SUCCESS(ec);
}

bool readDetails(const icu::ResourceBundle& list, std::vector<CMessageDetail>& details) {
    if (list.getType() != URES_ARRAY)
        return false;
    UErrorCode ec = U_ZERO_ERROR;
    for (int i = 0; i < list.getSize(); ++i) {
        icu::ResourceBundle entry = list.get(i, ec);
        if (U_FAILURE(ec) || entry.getType() != URES_ARRAY || entry.getSize() < 2 ||
            entry.getSize() > 3)
            return false;
        CMessageDetail detail;
        icu::ResourceBundle first = entry.get(0, ec);
        if (U_FAILURE(ec))
            return false;
        if (first.getType() == URES_STRING) {
            detail.name = SafeStrdup(asciiOf(first.getString(ec)).c_str());
        } else {
            uint32_t item = 0;
            if (!readUnsigned(first, item))
                return false;
            detail.contextItem = item;
        }
        uint32_t kind = 0;
        if (!readUnsigned(entry.get(1, ec), kind))
            return false;
        detail.SetKind(kind);
        if (entry.getSize() == 3 && !readUnsigned(entry.get(2, ec), detail.format))
            return false;
        if (U_FAILURE(ec))
            return false;
        details.push_back(detail);
    }
    return true;
}

} // namespace

bool CMessageTemplate::Load(const icu::ResourceBundle& entry) {
    UErrorCode ec = U_ZERO_ERROR;
    if (entry.getType() != URES_ARRAY)
        return false;
    if (id > MaxMessageID) {
        // A plain text: the pattern, then optional details.
        if (entry.getSize() < 1)
            return false;
        icu::ResourceBundle pattern = entry.get(0, ec);
        if (U_FAILURE(ec) || pattern.getType() != URES_STRING)
            return false;
        text = pattern.getString(ec);
        return U_SUCCESS(ec) && (entry.getSize() < 2 || readDetails(entry.get(1, ec), details));
    }
    if (entry.getSize() < 4)
        return false;
    icu::ResourceBundle cls = entry.get(0, ec), cod = entry.get(1, ec), kinds = entry.get(2, ec),
                        pattern = entry.get(3, ec);
    // The bundle compiler makes a one-word list a plain string.
    const bool oneKind = kinds.getType() == URES_STRING;
    if (U_FAILURE(ec) || cls.getType() != URES_STRING || cod.getType() != URES_STRING ||
        (kinds.getType() != URES_ARRAY && !oneKind) || pattern.getType() != URES_STRING)
        return false;
    const std::string c = asciiOf(cls.getString(ec)), k = asciiOf(cod.getString(ec));
    for (size_t i = 0; i < 2 && i < c.size(); ++i)
        messageClass[i] = c[i];
    for (size_t i = 0; i < 3 && i < k.size(); ++i)
        code[i] = k[i];
    for (int i = 0; i < (oneKind ? 1 : kinds.getSize()); ++i) {
        icu::ResourceBundle word = oneKind ? kinds : kinds.get(i, ec);
        if (U_FAILURE(ec) || word.getType() != URES_STRING)
            return false;
        parallelKinds |= ParallelKind::FromWord(asciiOf(word.getString(ec)).c_str());
    }
    text = pattern.getString(ec);
    if (U_FAILURE(ec))
        return false;
    return entry.getSize() < 7 || readDetails(entry.get(6, ec), details);
}

} // namespace qzlib
} // namespace qzs
