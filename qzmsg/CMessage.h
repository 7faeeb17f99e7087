//===- qzmsg/CMessage.h - One occurrence of a catalogue message -*- C++ -*-===//
//
// A message is a catalogue template with its values: the details the caller
// gave and those read from the contexts of the moment. It is formatted only
// when an action asks for its text.
//
//===----------------------------------------------------------------------===//
#ifndef QZMSG_CMESSAGE_H
#define QZMSG_CMESSAGE_H

#include "qzmsg/CMessageFactory.h"
#include "qzstd/CDataItem.h"
#include "qzstd/Export.h"
#include "qzunicode/CharSetTable.h"

#include <unicode/locid.h>

namespace qzs {
namespace qzlib {

class CMessageContext;
class CMessageTemplate;

/// One message. Owns its context (and through it the source context) and
/// its formatted text.
///
/// Thread safety: one thread at a time; Format changes the message.
class QZ_API CMessage {
public:
    explicit CMessage(const icu::Locale& messageLocale);
    virtual ~CMessage();
    CMessage(const CMessage&) = delete;
    CMessage& operator=(const CMessage&) = delete;

    unsigned int GetMessageID() const;
    /// The severity's name, or null for a plain text.
    char const* GetSeverityName() const;
    /// Writes "XQZ-" and the ID in five digits (nine characters and a NUL).
    void GetMessageCode(char* out) const;
    static void GetMessageCode(unsigned int id, char* out);
    const icu::Locale& GetLocale() const { return locale; }
    void SetLocale(const icu::Locale& newLocale) { locale = newLocale; }
    /// Sets detail `index`, padding with 0 below it.
    bool SetDetail(unsigned int index, const CDataItem& value);

    /// Whether the template's kinds include the factory's report type.
    bool ShouldReport() const;
    /// Same template and every detail of this message equal to the other's.
    bool operator==(CMessage const& other) const;

    /// Runs the actions whose attribute shares a bit with `attribute`: the
    /// factory's, then the severity's (or its alternate's). Whether all of
    /// them succeeded. Does nothing, successfully, once the message's issue
    /// limit is used up.
    bool Issue(CActionAttribute attribute) const;
    /// The text, in `charSet` (0x20000000 for the factory's default), made
    /// by ICU's MessageFormat from the template and the details. An ICU
    /// failure gives "". The text belongs to the message until the next call.
    char const* Format(qzunicode::ULibCharSet charSet) const;
    /// Formats, keeps a copy in the thread's string cache, deletes this
    /// message and returns the copy.
    char const* ToString(qzunicode::ULibCharSet charSet);
    /// One block for a custom action, freed with delete[]: class (2 chars),
    /// code (3 chars), then at byte 8 the severity name, the message time in
    /// seconds, the text ("Formatting error" when there is none), the
    /// application instance and its description; the texts from byte 48.
    char* CreateCustomActionMessage(qzunicode::ULibCharSet charSet) const;

    CMessageFactory* factory;
    CMessageTemplate* messageTemplate;
    CMessageContext* context;
    icu::Locale locale;
    mutable char* formattedText;
};

/// The header of CreateCustomActionMessage's block.
struct CustomActionMessage {
    char messageClass[2];
    char code[3];
    char pad[3];
    char const* severityName;
    int64_t messageTime;
    char const* text;
    char const* instance;
    char const* description;
};
static_assert(sizeof(CustomActionMessage) == 48, "the texts follow the header at byte 48");

} // namespace qzlib
} // namespace qzs

#endif // QZMSG_CMESSAGE_H
