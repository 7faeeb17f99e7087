//===- qzmsg/CErrorContext.cpp - A thread's error state -------------------===//
#include "qzmsg/CErrorContext.h"

#include "qzstd/ThreadLocalStorage.h"

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
    AddItem(appErrorMessage = new CContextItem(GetContextItemID("ErrAppErrorMessage"), static_cast<void const*>(nullptr)));
    AddItem(appErrorText = new CContextItem(GetContextItemID("ErrAppErrorText"), "", false));
    AddItem(osErrorCode = new CContextItem(GetContextItemID("ErrOSErrorCode"), 0u));
    AddItem(osErrorText = new CContextItem(GetContextItemID("ErrOSErrorText"), "", false));
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

std::string CErrorContext::GetAppErrorText() const {
    // The application error message formats its own text once messages
    // exist; until then there is none to format.
    return std::string();
}

void SaveOSErrorContext() {
    const unsigned int code = CErrorContext::OSErrorCode();
    CErrorContext* context = CErrorContext::GetContext();
    context->SetItem(CContext::GetContextItemID("ErrOSErrorCode"), CDataItem(code));
}

} // namespace qzlib
} // namespace qzs
