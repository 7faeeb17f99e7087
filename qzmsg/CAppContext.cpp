//===- qzmsg/CAppContext.cpp - The application ----------------------------===//
#include "qzmsg/CAppContext.h"

#include "qzmsg/CBuildContext.h"
#include "qzmsg/CFileSysContext.h"
#include "qzmsg/CProcessContext.h"
#include "qzmsg/CScaContext.h"
#include "qzmsg/Messages.h"
#include "qzstd/ThreadLocalStorage.h"

#include <cstring>
#include <string>
#include <sys/time.h>

namespace qzs {
namespace qzlib {

namespace {

int g_appOnce = 0;
CAppContext* g_app = nullptr;

void makeAppContext() {
    g_app = new CAppContext();
}

// The text of a term. The message catalogue is where these texts live; until
// it is loaded they are empty.
// Departure, kept on purpose: the terms are copied into their items. A
// _TSTR text lives in the thread's string cache only until 16 more texts
// have been made, so an item borrowing it would soon point at freed memory.
char* termText(unsigned int textId) {
    return SafeStrdup(_TSTR(static_cast<int>(textId)));
}

} // namespace

CAppContext::CAppContext() {
    timeval now{0, 0};
    if (::gettimeofday(&now, nullptr) != 0)
        now = timeval{0, 0};
    AddItem(new CContextItem(GetContextItemID("AppInstance"), "", false));
    AddItem(new CContextItem(GetContextItemID("AppInstanceDescription"), "", false));
    AddItem(new CContextItem(GetContextItemID("AppStartTime"), now));
    AddItem(new CContextItem(GetContextItemID("AppOperatingNormally"), true));
    deleteWithParent = false;
    AddContext(new CBuildContext());
    AddContext(new CProcessContext());
    AddContext(new CFileSysContext());
    AddContext(new CScaContext());
}

bool CAppContext::SetItem(ContextItemID id, char const* text) {
    if (CContextItem* item = findOwn(id)) {
        char const* copy = text ? text : ""; // a named pointer: the item copies it
        MultiThreading::ScopedLock guard(item->lock);
        *item = copy;
        return true;
    }
    AddItem(new CContextItem(id, ::strdup(text ? text : ""), true));
    return true;
}

void CAppContext::AddTerms() {
    const CContextItem* item = GetItem(GetContextItemID("BuildDBMS"));
    const std::string dbms = item ? item->GetText() : std::string();
    const struct {
        ContextItemID id;
        unsigned int text;
    } terms[] = {
        {173406691, 10000476},
        {141056738, 10000477},
        {259380384, dbms == "MSSQL" ? 10000485u : 10000478u},
        {267067602, 10000479},
        {257310238, 10000480},
        {178786956, 10000481},
        {119500682, 10000482},
        {180306395, dbms == "Zorvex" ? 10000486u : 10000483u},
    };
    for (const auto& term : terms)
        AddItem(new CContextItem(term.id, termText(term.text), true));
}

CAppContext* getAppContext() {
    MultiThreading::Once(g_appOnce, &makeAppContext);
    return g_app;
}

std::string getAppContextText(char const* name) {
    const CContextItem* item = getAppContext()->GetItem(CContext::GetContextItemID(name));
    return item ? item->GetText() : std::string();
}

char const* getProcessExecutableBase() {
    CProcessContext process;
    return CProcessContext::getExecutableBase();
}

} // namespace qzlib
} // namespace qzs
