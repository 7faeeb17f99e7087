//===- qzmsg/MessageSeam.cpp - Messages raised by the lower floors --------===//
//
// Defines the calls of qzstd/MessageSeam.h: a fault of the floors beneath
// becomes a catalogue message with its real source context.
//
//===----------------------------------------------------------------------===//
#include "qzstd/MessageSeam.h"

#include "qzmsg/CErrorContext.h"
#include "qzmsg/LegacyErrorHandling.h"
#include "qzmsg/Messages.h"

#include <cerrno>
#include <cstring>

namespace qzs {
namespace qzlib {
namespace detail {

namespace {
thread_local bool t_raising = false;

struct RaisingGuard {
    bool entered;
    RaisingGuard() : entered(!t_raising) { t_raising = true; }
    ~RaisingGuard() {
        if (entered)
            t_raising = false;
    }
};
} // namespace

void raiseFaultItems(const MessageSite& site, unsigned int id, const CDataItem* items,
                     std::size_t count, MessageHandling handling) {
    RaisingGuard guard;
    if (!guard.entered)
        return;
    const int saved = errno;
    SaveOSErrorContext();
    auto* source = new CSourceContext(site.module, site.id, site.method, site.line);
    if (handling == MessageHandling::Issue) {
        processItems(source, id, items, count, IssueAndDispose);
    } else {
        KeepInErrorContext(processItems(source, id, items, count, ReturnToCaller));
    }
    errno = saved;
}

const char* faultTextItems(const MessageSite& site, unsigned int id, const CDataItem* items,
                           std::size_t count) {
    RaisingGuard guard;
    if (!guard.entered)
        return "";
    const int saved = errno;
    const char* text = textOfItems(new CSourceContext(site.module, site.id, site.method, site.line),
                                   id, items, count);
    errno = saved;
    return text ? text : "";
}

void setErrorContextText(const char* itemName, const char* text) {
    // The item adopts its own copy: the caller's text may not outlive the
    // messages that show it.
    char* copied = const_cast<char*>(text ? text : ""); // a char* item is copied, not borrowed
    CErrorContext::GetContext()->SetItem(CContext::GetContextItemID(itemName), CDataItem(copied));
}

void raiseThreadFault(const MessageSite& site, unsigned int id, int rc) {
    char buffer[256];
    const char* text = ::strerror_r(rc, buffer, sizeof buffer);
    raiseFaultItems(site, id,
                    std::initializer_list<CDataItem>{CDataItem(rc), CDataItem(text)}.begin(), 2,
                    MessageHandling::Issue);
}

void setProcessExitFunction(void (*function)(int)) {
    qzSetExitFunction(function);
}

} // namespace detail

void KeepInErrorContext(CMessage* message) {
    if (!message)
        return;
    CErrorContext* context = CErrorContext::GetContext();
    if (context->issuing)
        delete message;
    else
        context->AddMessage(message);
}

} // namespace qzlib
} // namespace qzs
