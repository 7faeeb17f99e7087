//===- qzmsg/CAction.cpp - What a severity does ---------------------------===//
//
// The steps a severity names in the catalogue. Each reads the message and
// the contexts chained to it and keeps no state of its own; the only
// process-wide state is the optional "qzrepo" module, looked up once.
//
//===----------------------------------------------------------------------===//
#include "qzmsg/CAction.h"

#include "qzmsg/CAppContext.h"
#include "qzmsg/CErrorContext.h"
#include "qzmsg/CMessage.h"
#include "qzmsg/CMessageContext.h"
#include "qzmsg/CSourceContext.h"
#include "qzmsg/CThreadContext.h"
#include "qzmsg/HostConfig.h"
#include "qzmsg/LegacyErrorHandling.h"
#include "qzmsg/QZException.h"
#include "qzmsg/detail/QzRepo.h"
#include "qzstd/CDataItem.h"
#include "qzstd/LoggingSeam.h"

#include <sys/resource.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

namespace qzs {
namespace qzlib {

namespace {

detail::LazyLogger g_actionLog("qzmsg.action");
detail::LazyLogger g_exceptionLog("QZException");

struct ActionEntry {
    char const* name;
    CAction::Handler handler;
    CActionAttribute attribute;
};

// Attribute 4 is a normal step, 2 stops to look, 1 ends the process.
const ActionEntry kActions[] = {
    {"Report", &CAction::Report, 4},
    {"ReportSourceContext", &CAction::ReportSourceContext, 4},
    {"ReportAllContext", &CAction::ReportAllContext, 4},
    {"ReportMemory", &CAction::ReportMemory, 4},
    {"RecordMessage", &CAction::RecordMessage, 4},
    {"Log", &CAction::Log, 4},
    {"Pause", &CAction::Pause, 2},
    {"Debug", &CAction::Debug, 2},
    {"End", &CAction::End, 1},
    {"Core", &CAction::Core, 4},
    {"Bundle", &CAction::Bundle, 4},
    {"QZInfo", &CAction::QZInfo, 4},
    {"QZInfoNoReport", &CAction::QZInfoNoReport, 4},
    {"QZWarn", &CAction::QZWarn, 4},
    {"QZError", &CAction::QZError, 4},
    {"ThrowException", &CAction::ThrowException, 4},
    {"StoreMessage", &CAction::StoreMessage, 4},
    {"QZFatalErrorAbend", &CAction::QZFatalErrorAbend, 1},
};

// Levels of the console line and error log record of the QZ steps.
constexpr unsigned char kInfoLevel = 191;
constexpr unsigned char kWarnLevel = 223;
constexpr unsigned char kErrorLevel = 239;

// Seconds at or below this are an elapsed time, not a date.
constexpr long kLatestElapsed = 1189622117;

char* copyOrNull(char const* text) {
    return text ? SafeStrdup(text) : nullptr;
}

char const* label(char const* text, bool show) {
    return show ? text : "";
}

} // namespace

CAction::CAction()
    : name(nullptr), customName(nullptr), handler(nullptr), customFunction(nullptr), attribute(4) {}

CAction::CAction(char const* custom, CustomFunction function)
    : name(nullptr), customName(SafeStrdup(custom ? custom : "")), handler(nullptr),
      customFunction(function), attribute(4) {}

CAction::~CAction() {
    std::free(name);
    std::free(customName);
}

bool CAction::Load(char const* actionName, char const* custom) {
    std::free(name);
    std::free(customName);
    name = copyOrNull(actionName);
    customName = copyOrNull(custom);
    handler = nullptr;
    attribute = 4;
    if (custom)
        return false;
    if (!name)
        return false;
    for (const ActionEntry& entry : kActions) {
        if (std::strcmp(name, entry.name) == 0) {
            handler = entry.handler;
            attribute = entry.attribute;
            return true;
        }
    }
    return false;
}

bool CAction::Execute(CMessage const* message) const {
    if (handler)
        return (this->*handler)(message);
    // An unknown name leaves neither a handler nor a function: it does
    // nothing, successfully.
    if (!customFunction)
        return true;
    char* block = message->CreateCustomActionMessage(FactoryCharSet);
    const bool result = customFunction(block);
    delete[] block;
    return result;
}

void CAction::Print(CMessage const* message, char const* format, ...) const {
    if (message && !message->ShouldReport())
        return;
    va_list args;
    va_start(args, format);
    std::vfprintf(getReportStream(), format, args);
    va_end(args);
}

void CAction::ReportItem(CMessage const* message, CContextItem const* item, bool showType,
                         bool showName) const {
    if (!item)
        return;
    char const* itemName = showName ? CContext::GetContextItemName(item->id) : "";
    char prefix[32];
    std::snprintf(prefix, sizeof prefix, "  %-24s: ", itemName ? itemName : "");

    switch (item->getType()) {
    case CDataItem::String:
        Print(message, "%s%s[%s]\n", prefix, label("string      : ", showType),
              item->GetText().c_str());
        break;
    case CDataItem::Int:
        Print(message, "%s%s[%ld]\n", prefix, label("int32_t     : ", showType),
              static_cast<long>(item->Read<int>()));
        break;
    case CDataItem::UnsignedInt:
        Print(message, "%s%s[%lu]\n", prefix, label("uint32_t    : ", showType),
              static_cast<unsigned long>(item->Read<unsigned int>()));
        break;
    case CDataItem::Long:
        Print(message, "%s%s[%ld]\n", prefix, label("int64_t     : ", showType),
              item->Read<long>());
        break;
    case CDataItem::UnsignedLong:
        Print(message, "%s%s[%lu]\n", prefix, label("uint64_t    : ", showType),
              item->Read<unsigned long>());
        break;
    case CDataItem::Bool:
        Print(message, "%s%s[%s]\n", prefix, label("Boolean     : ", showType),
              item->Read<bool>() ? "true" : "false");
        break;
    case CDataItem::Time: {
        const timespec t = item->Read<timespec>();
        char suffix[64] = "";
        if (t.tv_sec > kLatestElapsed) {
            char date[64] = "";
            const time_t seconds = t.tv_sec;
            if (::ctime_r(&seconds, date)) {
                date[std::strcspn(date, "\n")] = '\0';
                std::snprintf(suffix, sizeof suffix, "[ %.59s]", date);
            }
        }
        Print(message, "%s%s[%ld.%09ld]%s\n", prefix, label("DateTime    : ", showType),
              static_cast<long>(t.tv_sec), static_cast<long>(t.tv_nsec), suffix);
        break;
    }
    case CDataItem::Pointer:
        // Kept on purpose: "0x%p" as it has always stood, so glibc's own
        // "0x" comes out twice.
        Print(message, "%s%s[0x%p]\n", prefix, label("Pointer     : ", showType),
              item->Read<void const*>());
        break;
    case CDataItem::Vector: {
        std::vector<CDataItem>* elements = item->Read<std::vector<CDataItem>*>();
        const unsigned int count = elements ? static_cast<unsigned int>(elements->size()) : 0;
        Print(message, "%s%s[%u] elements\n", prefix, label("array       : ", showType), count);
        for (unsigned int i = 0; i < count; ++i) {
            const CContextItem element(item->id, (*elements)[i]);
            ReportItem(message, &element, showType, false);
        }
        break;
    }
    default:
        Print(message, "%s%s[0x%p]\n", prefix, label("Unknown     : ", showType),
              item->Read<void const*>());
        break;
    }
}

void CAction::ReportContext(CMessage const* message, CContext const* context, bool showType) const {
    if (!context)
        return;
    const unsigned int count = context->GetItemCount(true);
    for (unsigned int i = 0; i < count; ++i)
        ReportItem(message, context->GetItem(context->GetItemID(i)), showType, true);
}

bool CAction::Report(CMessage const* message) const {
    char code[10];
    message->GetMessageCode(code);
    char const* text = message->Format(FactoryCharSet);
    std::printf("%s: %s\n", code, text ? text : "Formatting error");
    return true;
}

bool CAction::ReportSourceContext(CMessage const* message) const {
    Print(message, "\nSource Context :\n");
    if (!message->context)
        return true;
    ReportContext(message, message->context->source(), false);

    static const ContextItemID backtraceId = CContext::GetContextItemID("ThreadBacktrace");
    CContextItem* backtrace = message->context->GetItem(backtraceId);
    if (!backtrace || backtrace->getType() != CDataItem::Vector)
        return true;
    std::vector<CDataItem>* frames = backtrace->Read<std::vector<CDataItem>*>();
    if (!frames || frames->empty())
        return true;
    std::vector<CDataItem> names;
    CThreadContext::GetSymbolNames(frames, &names);
    const CContextItem named(backtraceId, &names);
    ReportItem(message, &named, false, true);
    return true;
}

bool CAction::ReportAllContext(CMessage const* message) const {
    ReportContext(message, message->context, true);
    ReportContext(message, getAppContext(), true);
    return true;
}

bool CAction::ReportMemory(CMessage const* message) const {
    Print(message, "\nProcess Overview :\n");
    if (message->context) {
        for (char const* itemName :
             {"AppStartTime", "ProcessID", "ProcessClockTime", "ProcessMemoryPhysical",
              "ProcessMemoryVirtual", "ProcessSystemTime", "ProcessUserTime"}) {
            if (CContextItem* item =
                    message->context->GetItem(CContext::GetContextItemID(itemName)))
                ReportItem(message, item, false, true);
        }
    }

    struct rusage usage;
    if (::getrusage(RUSAGE_SELF, &usage) != 0)
        return true;
    Print(message, "\nProcess Resource Details :\n");
    const struct {
        char const* name;
        long value;
    } fields[] = {
        {"ru_maxrss", usage.ru_maxrss},   {"ru_ixrss", usage.ru_ixrss},
        {"ru_idrss", usage.ru_idrss},     {"ru_isrss", usage.ru_isrss},
        {"ru_minflt", usage.ru_minflt},   {"ru_majflt", usage.ru_majflt},
        {"ru_nswap", usage.ru_nswap},     {"ru_inblock", usage.ru_inblock},
        {"ru_oublock", usage.ru_oublock}, {"ru_msgsnd", usage.ru_msgsnd},
        {"ru_msgrcv", usage.ru_msgrcv},   {"ru_nsignals", usage.ru_nsignals},
        {"ru_nvcsw", usage.ru_nvcsw},     {"ru_nivcsw", usage.ru_nivcsw},
    };
    for (const auto& field : fields)
        if (field.value != 0)
            Print(message, "  %-24s: [%ld]\n", field.name, field.value);
    return true;
}

bool CAction::RecordMessage(CMessage const* message) const {
    if (!message->ShouldReport())
        return true;
    const detail::QzRepo& repo = detail::qzRepo();
    if (repo.recordMessage && repo.isEnabled())
        repo.recordMessage(message);
    return true;
}

bool CAction::Log(CMessage const* message) const {
    if (!g_actionLog.isEnabledFor(kInfoLevel))
        return true;
    char code[10];
    message->GetMessageCode(code);
    char const* text = message->Format(FactoryCharSet);
    QZ_SEAM_LOG(g_actionLog, "qzlog/msgAction", "Log", kInfoLevel, "%s: %s", code, text);
    return true;
}

// Pause, Debug, Core and Bundle stop to look at, or dump, a process on the
// platforms that support it; on this platform they do nothing.
bool CAction::Pause(CMessage const*) const {
    return false;
}

bool CAction::Debug(CMessage const*) const {
    return false;
}

bool CAction::End(CMessage const*) const {
    std::exit(12);
}

bool CAction::Core(CMessage const*) const {
    return false;
}

bool CAction::Bundle(CMessage const*) const {
    return false;
}

bool CAction::legacyReport(CMessage const* message, unsigned char level, bool console) const {
    if (!message->ShouldReport())
        return true;
    char const* formatted = message->Format(FactoryCharSet);
    char* text = formatted ? SafeStrdup(formatted) : nullptr;
    char code[10];
    message->GetMessageCode(code);
    if (console)
        issueMessage(message->GetMessageID(), code, text ? text : "Formatting error", level);
    else
        issueMessageNoReport(message->GetMessageID(), code, text ? text : "Formatting error",
                             level);
    std::free(text);
    return true;
}

bool CAction::QZInfo(CMessage const* message) const {
    return legacyReport(message, kInfoLevel, true);
}

bool CAction::QZInfoNoReport(CMessage const* message) const {
    return legacyReport(message, kInfoLevel, false);
}

bool CAction::QZWarn(CMessage const* message) const {
    return legacyReport(message, kWarnLevel, true);
}

bool CAction::QZError(CMessage const* message) const {
    return legacyReport(message, kErrorLevel, true);
}

bool CAction::ThrowException(CMessage const* message) const {
    char const* text = message->Format(FactoryCharSet);
    char code[10];
    message->GetMessageCode(code);
    const qzlog::QZException exception(text ? text : "", message->GetMessageID(), code);

    if (g_exceptionLog.isEnabledFor(kErrorLevel)) {
        CSourceContext const* source = message->context ? message->context->source() : nullptr;
        QZ_SEAM_LOG(g_exceptionLog, "../../include/QZException", "QZException", kErrorLevel,
                    "QZException: %s:%hu  [%s] %s\n%s", source ? source->id : nullptr,
                    source ? source->line : 0u, code, exception.what(), detail::LogCallStack{});
    }

    // The message goes with the throw unless the thread's error context
    // still holds it; whoever issued it must not touch it again.
    if (!CErrorContext::GetContext()->Exists(message))
        delete message;
    throw exception;
}

bool CAction::StoreMessage(CMessage const* message) const {
    if (CMessageFactory* factory = CMessageFactory::GetDefaultFactory())
        if (CMessage* copy = factory->CreateMessage(message))
            CErrorContext::GetContext()->storedMessages.push_back(copy);
    return true;
}

bool CAction::QZFatalErrorAbend(CMessage const* message) const {
    // The activity of every thread goes to file before the process ends.
    if (const detail::LoggingSeam* seam = detail::loggingSeam())
        if (seam->saveAllBuffers)
            seam->saveAllBuffers();
    char const* text = message->Format(FactoryCharSet);
    processFatalError(message->GetMessageID(), text ? text : "Formatting error");
    return false;
}

} // namespace qzlib
} // namespace qzs
