//===- qzmsg/CMessageTemplate.h - Catalogue entries and severities -*- C++ -*-===//
//
// What the catalogue says about one message number (its class, code, text and
// the details it takes) and what a severity is: a named list of actions. The
// factory loads both from the bundle and owns them.
//
//===----------------------------------------------------------------------===//
#ifndef QZMSG_CMESSAGETEMPLATE_H
#define QZMSG_CMESSAGETEMPLATE_H

#include "qzmsg/CContext.h"
#include "qzstd/Export.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include <unicode/resbund.h>
#include <unicode/unistr.h>

namespace qzs {
namespace qzlib {

class CAction;

/// A named list of actions run, in order, when a message of this severity is
/// issued. The actions are owned. `alternate`, when set, is run instead of
/// this severity (a service stores what a command would print).
class QZ_API CMessageSeverity {
public:
    explicit CMessageSeverity(char const* severityName);
    virtual ~CMessageSeverity();
    CMessageSeverity(const CMessageSeverity&) = delete;
    CMessageSeverity& operator=(const CMessageSeverity&) = delete;

    void AddAction(CAction* action) { actions.push_back(action); }
    /// Deletes every action.
    void ClearActions();

    char* name;
    std::vector<CAction*> actions;
    CMessageSeverity const* alternate;
};

/// The severities of one message class: a default and one per code.
class QZ_API CMessageClassSeverity {
public:
    CMessageClassSeverity() : defaultSeverity(nullptr) {}
    CMessageSeverity const* defaultSeverity;
    /// Key: the three code characters, the first in the low byte.
    std::map<unsigned int, CMessageSeverity const*> codes;
};

/// How one detail of a message gets its value: from the caller's argument
/// named `name`, or, when `name` is null, from the context item `contextItem`.
class QZ_API CMessageDetail {
public:
    CMessageDetail();
    CMessageDetail(const CMessageDetail& other);
    CMessageDetail& operator=(const CMessageDetail& other);
    virtual ~CMessageDetail();

    /// Applies a catalogue kind: 1 to 7 set argumentType to the same number,
    /// 0 and 8 to 16 set it to 0 (a text), and above 16 leave it.
    void SetKind(uint32_t newKind);

    char* name;
    ContextItemID contextItem;
    uint32_t kind;
    uint32_t argumentType;
    uint32_t format;
};

/// The catalogue's entry for one message number. Numbers at or below
/// MaxMessageID are messages with a class, code and severity; above it they
/// are plain texts for _TSTR, with no severity.
class QZ_API CMessageTemplate {
public:
    static constexpr unsigned int MaxMessageID = 9999999;

    explicit CMessageTemplate(unsigned int messageId);
    virtual ~CMessageTemplate();

    /// Reads this template's catalogue entry; false when it is not of the
    /// catalogue's shape (the factory then ends the process).
    bool Load(const icu::ResourceBundle& entry);

    unsigned int id;
    CMessageSeverity const* severity;
    char messageClass[3];
    char code[4];
    uint32_t parallelKinds;
    icu::UnicodeString text;
    std::vector<CMessageDetail> details;
    /// A template with no details, formatted once in plainCharSet.
    std::string plainText;
    int plainCharSet = 0;
    bool plainReady = false;
};

/// The parallel kinds of a template: which kinds of process report it.
namespace ParallelKind {
constexpr uint32_t All = 0x7FFF;
constexpr uint32_t NonParallel = 0x7FF0;
constexpr uint32_t Parallel = 0x000F;
constexpr uint32_t ParallelMaster = 0x0001;
constexpr uint32_t ParallelWorker = 0x0002;
constexpr uint32_t ParallelMapper = 0x0004;
constexpr uint32_t ParallelApplier = 0x0008;
/// The bits of one catalogue word; 0 for a word that is not one of the above.
QZ_API uint32_t FromWord(char const* word);
} // namespace ParallelKind

} // namespace qzlib
} // namespace qzs

#endif // QZMSG_CMESSAGETEMPLATE_H
