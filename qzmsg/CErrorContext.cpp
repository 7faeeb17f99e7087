//===- qzmsg/CErrorContext.cpp - A thread's error state -------------------===//
#include "qzmsg/CErrorContext.h"

#include "qzmsg/CMessage.h"
#include "qzmsg/CMessageContext.h"
#include "qzmsg/CMessageFactory.h"
#include "qzstd/ThreadLocalStorage.h"

#include <algorithm>

#include <cerrno>
#include <cstring>

namespace qzs {
namespace qzlib {

namespace {

int g_keyOnce = 0;
MultiThreading::_ThreadLocalStorage* g_key = nullptr;

// The thread's context goes with the thread.
void ContextDestructor(void* context) {
    delete static_cast<CErrorContext*>(context);
}

void makeKey() {
    g_key = new MultiThreading::_ThreadLocalStorage(&ContextDestructor);
}

} // namespace

CErrorContext::CErrorContext() : issuing(false) {
    deleteWithParent = false;
    AddItem(appErrorMessage = new CContextItem(GetContextItemID("ErrAppErrorMessage"),
                                               static_cast<void const*>(nullptr)));
    AddItem(appErrorText = new CContextItem(GetContextItemID("ErrAppErrorText"), "", false));
    AddItem(osErrorCode = new CContextItem(GetContextItemID("ErrOSErrorCode"), 0u));
    AddItem(osErrorText = new CContextItem(GetContextItemID("ErrOSErrorText"), "", false));
}

CErrorContext::~CErrorContext() {
    Clear();
    for (CMessage* message : storedMessages)
        delete message;
    storedMessages.clear();
    // Only an existing factory can hold a message chained to this context;
    // a thread's end must not load the catalogue.
    if (CMessageFactory* factory = CMessageFactory::GetDefaultFactoryIfLoaded())
        factory->RemoveContext(this);
}

CErrorContext* CErrorContext::GetContext() {
    const int saved = errno;
    MultiThreading::Once(g_keyOnce, &makeKey);
    auto* context = static_cast<CErrorContext*>(g_key->get());
    if (!context) {
        context = new CErrorContext();
        g_key->set(context);
    }
    errno = saved;
    return context;
}

CContextItem* CErrorContext::GetItem(ContextItemID id) const {
    if (id == osErrorText->id) {
        osText = OSErrorText(osErrorCode->Read<unsigned int>());
        osErrorText->Assign(osText.c_str()); // borrowed
        return osErrorText;
    }
    if (id == appErrorText->id) {
        appText = GetAppErrorText();
        appErrorText->Assign(appText.c_str()); // borrowed
        return appErrorText;
    }
    return CContext::GetItem(id);
}

bool CErrorContext::SetItem(ContextItemID id, const CDataItem& value) {
    if (CContextItem* item = findOwn(id)) {
        item->Assign(value);
        return true;
    }
    AddItem(new CContextItem(id, value));
    return true;
}

unsigned int CErrorContext::OSErrorCode() {
    return static_cast<unsigned int>(errno);
}

std::string CErrorContext::OSErrorText(unsigned int code) {
    char buffer[256];
    return ::strerror_r(code ? static_cast<int>(code) : errno, buffer, sizeof buffer);
}

CErrorContext& CErrorContext::operator+=(CMessage* message) {
    if (!issuing)
        AddMessage(message);
    return *this;
}

void CErrorContext::AddMessage(CMessage* message) {
    if (!message)
        return;
    // The application error message stays owned by its item: the list gets
    // a copy of it.
    if (message == GetAppErrorMessage()) {
        CMessageFactory* factory = CMessageFactory::GetDefaultFactoryIfLoaded();
        message = factory ? factory->CreateMessage(message) : nullptr;
    }
    if (message)
        messages.push_back(message);
}

bool CErrorContext::Exists(CMessage const* message) const {
    return std::find(messages.begin(), messages.end(), message) != messages.end();
}

void CErrorContext::erase(size_t first, size_t last) {
    if (messages.empty() || first >= messages.size())
        return;
    last = std::min(last, messages.size() - 1);
    if (last < first)
        return;
    for (size_t i = last + 1; i-- > first;)
        delete messages[i];
    messages.erase(messages.begin() + static_cast<std::ptrdiff_t>(first),
                   messages.begin() + static_cast<std::ptrdiff_t>(last) + 1);
}

void CErrorContext::Clear() {
    if (!messages.empty())
        erase(0, messages.size() - 1);
    ClearAppErrorMessage();
}

char const* CErrorContext::Format(int index, qzunicode::ULibCharSet charSet) {
    if (messages.empty())
        return nullptr;
    const size_t at = index < 0 ? messages.size() - 1 : static_cast<size_t>(index);
    return at < messages.size() ? messages[at]->Format(charSet) : nullptr;
}

bool CErrorContext::Issue() {
    issuing = true;
    bool result = true;
    for (CActionAttribute attribute : {4u, 2u, 1u}) {
        for (size_t i = messages.size(); i-- > 0;) {
            if (!messages[i]->Issue(attribute)) {
                result = false;
                // The first message failing ends the whole call at once.
                if (i == 0) {
                    issuing = false;
                    return false;
                }
            }
        }
        if (!result)
            break;
    }
    issuing = false;
    if (result)
        erase(0, messages.empty() ? 0 : messages.size() - 1);
    return result;
}

void CErrorContext::Transfer(CErrorContext& from) {
    if (&from == this)
        return;
    for (CMessage* message : from.messages) {
        if (message->context) {
            message->context->RemoveContext(&from);
            message->context->AddContext(this);
        }
        AddMessage(message);
    }
    from.messages.clear();
    for (CMessage* message : from.storedMessages) {
        if (message->context) {
            message->context->RemoveContext(&from);
            message->context->AddContext(this);
        }
        storedMessages.push_back(message);
    }
    from.storedMessages.clear();
}

void CErrorContext::SetAppErrorMessage(CMessage* message) {
    CMessage* old = nullptr;
    {
        MultiThreading::ScopedLock guard(appErrorMessage->lock);
        old = const_cast<CMessage*>(
            static_cast<CMessage const*>(static_cast<void const*>(*appErrorMessage)));
        static_cast<CDataItem&>(*appErrorMessage) = static_cast<void const*>(message);
    }
    if (old != message)
        delete old;
}

CMessage* CErrorContext::GetAppErrorMessage() const {
    return const_cast<CMessage*>(
        static_cast<CMessage const*>(appErrorMessage->Read<void const*>()));
}

void CErrorContext::ClearAppErrorMessage() {
    SetAppErrorMessage(nullptr);
}

std::string CErrorContext::GetAppErrorText(qzunicode::ULibCharSet charSet) const {
    CMessage* message = GetAppErrorMessage();
    char const* text = message ? message->Format(charSet) : nullptr;
    return text ? text : "";
}

void SaveOSErrorContext() {
    const unsigned int code = CErrorContext::OSErrorCode();
    CErrorContext* context = CErrorContext::GetContext();
    context->SetItem(CContext::GetContextItemID("ErrOSErrorCode"), CDataItem(code));
}

} // namespace qzlib
} // namespace qzs
