//===- qzmsg/CMessage.cpp - One occurrence of a catalogue message ---------===//
#include "qzmsg/CMessage.h"

#include "qzmsg/CAction.h"
#include "qzmsg/CAppContext.h"
#include "qzmsg/CMessageContext.h"
#include "qzmsg/CMessageTemplate.h"
#include "qzmsg/detail/CatalogueText.h"
#include "qzunicode/CharSetTable.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <unicode/fmtable.h>
#include <unicode/msgfmt.h>
#include <unicode/ucnv.h>

namespace qzs {
namespace qzlib {

CMessage::CMessage(const icu::Locale& messageLocale)
    : factory(nullptr), messageTemplate(nullptr), context(nullptr), locale(messageLocale),
      formattedText(nullptr) {}

CMessage::~CMessage() {
    delete context;
    std::free(formattedText);
}

unsigned int CMessage::GetMessageID() const {
    return messageTemplate ? messageTemplate->id : 0;
}

char const* CMessage::GetSeverityName() const {
    return messageTemplate && messageTemplate->severity ? messageTemplate->severity->name : nullptr;
}

void CMessage::GetMessageCode(unsigned int id, char* out) {
    // Five digits after "XQZ-"; a larger number keeps its low five.
    std::snprintf(out, 10, "XQZ-%05u", id % 100000u);
}

void CMessage::GetMessageCode(char* out) const {
    GetMessageCode(GetMessageID(), out);
}

bool CMessage::SetDetail(unsigned int index, const CDataItem& value) {
    return context && context->SetDetail(index, value);
}

bool CMessage::ShouldReport() const {
    return messageTemplate && factory &&
           (messageTemplate->parallelKinds & factory->GetReportType()) != 0;
}

bool CMessage::operator==(CMessage const& other) const {
    if (messageTemplate != other.messageTemplate || !context || !other.context)
        return false;
    const std::vector<CDataItem>& mine = context->details();
    const std::vector<CDataItem>& theirs = other.context->details();
    // The details of this message give the count; the other may have more.
    if (theirs.size() < mine.size())
        return false;
    for (size_t i = 0; i < mine.size(); ++i)
        if (!(mine[i] == theirs[i]))
            return false;
    return true;
}

namespace {

// Runs the actions of one list that share a bit with `attribute`. A false
// marks the result; a false from the last action ends the call.
bool runList(const std::vector<CAction*>& actions, CMessage const* message,
             CActionAttribute attribute, bool& stop) {
    bool result = true;
    for (size_t i = 0; i < actions.size(); ++i) {
        if (!(actions[i]->GetAttribute() & attribute))
            continue;
        if (!actions[i]->Execute(message)) {
            result = false;
            if (i + 1 == actions.size())
                stop = true;
        }
    }
    return result;
}

} // namespace

bool CMessage::Issue(CActionAttribute attribute) const {
    if (!factory || !messageTemplate || !factory->CanIssue(GetMessageID(), true))
        return true;
    CMessageSeverity const* severity = messageTemplate->severity;
    if (severity && severity->alternate)
        severity = severity->alternate;
    bool stop = false;
    bool result = runList(factory->GetActions(), this, attribute, stop);
    if (stop || !result || !severity)
        return result;
    return runList(severity->actions, this, attribute, stop);
}

namespace {

std::string hexString(unsigned long value, int digits) {
    char text[24];
    std::snprintf(text, sizeof text, "%0*lx", digits, value);
    return text;
}

icu::UnicodeString fromCharSet(char const* text, qzunicode::ULibCharSet cs) {
    if (!text)
        return icu::UnicodeString();
    if (cs == qzunicode::ULIB_CS_DEFAULT)
        return icu::UnicodeString(text);
    return icu::UnicodeString(text, -1, ULIB_toConverterName(cs));
}

icu::Formattable formattableOf(const CDataItem& item, uint32_t format, qzunicode::ULibCharSet cs) {
    icu::Formattable f;
    if (format != 0) {
        switch (format) {
        case 1:
            f.setString(hexString(static_cast<unsigned int>(item), 2).c_str());
            break;
        case 2:
            f.setString(hexString(static_cast<unsigned int>(item), 4).c_str());
            break;
        case 3:
            f.setString(hexString(static_cast<unsigned int>(item), 8).c_str());
            break;
        case 4:
            f.setString(hexString(static_cast<unsigned long>(item), 16).c_str());
            break;
        case 5:
            f.setString(
                hexString(reinterpret_cast<uintptr_t>(static_cast<void const*>(item)), 16).c_str());
            break;
        default:
            f.setString("<Unknown>");
            break;
        }
        return f;
    }
    switch (item.getType()) {
    case CDataItem::String:
        f.setString(fromCharSet(static_cast<char const*>(item), cs));
        break;
    case CDataItem::Int:
        f.setLong(static_cast<int>(item));
        break;
    case CDataItem::UnsignedInt:
        f.setInt64(static_cast<unsigned int>(item));
        break;
    case CDataItem::Long:
        f.setInt64(static_cast<long>(item));
        break;
    case CDataItem::UnsignedLong:
        f.setInt64(static_cast<int64_t>(static_cast<unsigned long>(item)));
        break;
    case CDataItem::Bool:
        f.setLong(static_cast<bool>(item) ? 1 : 0);
        break;
    case CDataItem::Time: {
        const timespec t = static_cast<timespec>(item);
        f.setDate(static_cast<double>(t.tv_sec) * 1000.0 +
                  static_cast<double>(t.tv_nsec) / 1000000.0);
        break;
    }
    case CDataItem::Pointer:
        f.setInt64(
            static_cast<int64_t>(reinterpret_cast<uintptr_t>(static_cast<void const*>(item))));
        break;
    default:
        f.setString("<Unknown>");
        break;
    }
    return f;
}

} // namespace

char const* CMessage::Format(qzunicode::ULibCharSet charSet) const {
    if (!messageTemplate || !context || !factory)
        return nullptr;
    const qzunicode::ULibCharSet cs = factory->GetDefaultCharacterSet(FactoryCharSet);
    std::vector<icu::Formattable> arguments;
    {
        // Copied under the item's lock: the details may be shared with a
        // thread that reports the message.
        CContextItem* item = context->GetItem(CContext::GetContextItemID("MessageDetails"));
        std::vector<CDataItem>* details = nullptr;
        if (item) {
            MultiThreading::ScopedLock guard(item->lock);
            details = static_cast<std::vector<CDataItem>*>(*item);
        }
        if (details) {
            arguments.reserve(details->size());
            const std::vector<CMessageDetail>& kinds = messageTemplate->details;
            for (size_t i = 0; i < details->size(); ++i)
                arguments.push_back(
                    formattableOf((*details)[i], i < kinds.size() ? kinds[i].format : 0, cs));
        }
    }
    UErrorCode ec = U_ZERO_ERROR;
    icu::UnicodeString result;
    icu::MessageFormat::format(messageTemplate->text, arguments.data(),
                               static_cast<int32_t>(arguments.size()), result, ec);
    if (U_FAILURE(ec))
        result.remove();
    std::free(formattedText);
    formattedText =
        SafeStrdup(detail::catalogueText(result, factory->GetDefaultCharacterSet(charSet)).c_str());
    return formattedText;
}

char const* CMessage::ToString(qzunicode::ULibCharSet charSet) {
    char const* text = Format(charSet);
    char const* kept = factory ? factory->CacheString(text ? text : "") : "";
    delete this;
    return kept;
}

char* CMessage::CreateCustomActionMessage(qzunicode::ULibCharSet charSet) const {
    char const* severity = GetSeverityName();
    severity = severity ? severity : "";
    char const* formatted = Format(charSet);
    const std::string text = formatted ? formatted : "Formatting error";
    const std::string instance = getAppContextText("AppInstance");
    const std::string description = getAppContextText("AppInstanceDescription");
    int64_t seconds = 0;
    if (context)
        if (CContextItem* time = context->GetItem(CContext::GetContextItemID("MessageTime")))
            seconds = time->Read<timespec>().tv_sec;

    const size_t size = sizeof(CustomActionMessage) + std::strlen(severity) + text.size() +
                        instance.size() + description.size() + 4;
    char* block = new char[size]();
    auto* header = reinterpret_cast<CustomActionMessage*>(block);
    if (messageTemplate) {
        std::memcpy(header->messageClass, messageTemplate->messageClass, 2);
        std::memcpy(header->code, messageTemplate->code, 3);
    }
    char* next = block + sizeof(CustomActionMessage);
    auto put = [&next](const char* s, size_t n) {
        std::memcpy(next, s, n + 1);
        char* at = next;
        next += n + 1;
        return at;
    };
    header->severityName = put(severity, std::strlen(severity));
    header->messageTime = seconds;
    header->text = put(text.c_str(), text.size());
    header->instance = put(instance.c_str(), instance.size());
    header->description = put(description.c_str(), description.size());
    return block;
}

} // namespace qzlib
} // namespace qzs
