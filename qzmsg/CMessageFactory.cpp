//===- qzmsg/CMessageFactory.cpp - The message catalogue and its rules ----===//
//
// Loading and searching the compiled catalogue, the severities, issue limits,
// duplicate suppression with its repetition thread, and the memory reserve
// that lets an allocation failure still be reported.
//
//===----------------------------------------------------------------------===//
#include "qzmsg/CMessageFactory.h"

#include "qzmsg/CAction.h"
#include "qzmsg/CAppContext.h"
#include "qzmsg/CErrorContext.h"
#include "qzmsg/CMessage.h"
#include "qzmsg/CMessageContext.h"
#include "qzmsg/CMessageTemplate.h"
#include "qzmsg/CSourceContext.h"
#include "qzmsg/HostConfig.h"
#include "qzmsg/MessageFunctions.h"
#include "qzmsg/detail/CatalogueCheck.h"
#include "qzmsg/detail/CatalogueText.h"
#include "qzstd/Event.h"
#include "qzstd/LoggingSeam.h"
#include "qzstd/Mutex.h"
#include "qzstd/Thread.h"

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <unistd.h>

#include <unicode/msgfmt.h>
#include <unicode/putil.h>
#include <unicode/resbund.h>
#include <unicode/ucnv.h>
#include <unicode/udata.h>

namespace qzs {
namespace qzlib {

char const qzMessage_UUID[] = "6d9e5ef3-8344-3c90-9a3f-70e5c519ed3e";

using MultiThreading::Event;
using MultiThreading::Mutex;
using MultiThreading::ScopedLock;
using MultiThreading::Thread;

class CMessageFactoryImpl {
public:
    CMessageFactoryImpl();
    ~CMessageFactoryImpl();

    Mutex templateLock{Mutex::Recursive};
    std::map<unsigned int, CMessageTemplate*> templates;
    icu::Locale locale;
    icu::ResourceBundle* bundle = nullptr;
    std::vector<char> catalogueBytes;
    std::string bundleName;
    Mutex repetitionLock{Mutex::ErrorCheck};
    CMessage* lastMessage = nullptr;
    // The ID of lastMessage, and the severity text its report names. Read
    // without the lock by SetReportedSeverity, which an action calls from any
    // thread while another may replace (and delete) lastMessage: so the ID
    // is kept apart and the text is a label with static lifetime.
    std::atomic<unsigned int> lastMessageId{0};
    std::atomic<bool> watching{false};
    std::atomic<char const*> reportedSeverity{nullptr};
    unsigned int repeatCount = 0;
    Event exitEvent{Event::ManualReset};
    Event wakeEvent{Event::AutoReset};
    Thread repetitionThread;
    bool suppressDuplicates;
    std::map<unsigned int, CMessageClassSeverity*> classSeverities;
    std::map<unsigned int, unsigned int> maxIssue;
    std::vector<CMessageSeverity*> severities;
    std::vector<CAction*> actions;
    CMessageReportType reportType = ParallelKind::NonParallel;
    qzunicode::ULibCharSet defaultCharSet = qzunicode::ULIB_CS_DEFAULT;
    std::atomic<bool> exitFired{false};

    static unsigned int RepetitionThread(void* factory);
    /// The template of `id`, loaded at its first use; the process ends when
    /// the catalogue has no usable entry for it.
    CMessageTemplate* findTemplate(CMessageFactory* factory, unsigned int id);
};

namespace {

// The default factory. No lock: it is set before threads start or at first
// use (two racing first uses would each load; see GetDefaultFactory).
std::atomic<CMessageFactory*> g_default{nullptr};
bool g_createdHere = false;
Mutex* defaultLock() {
    static Mutex* lock = new Mutex(Mutex::Recursive);
    return lock;
}

std::atomic<CMessageFactory::RepetitionWait> g_wait{nullptr};

bool realWait(void* event, unsigned int milliseconds) {
    return static_cast<Event*>(event)->Wait(milliseconds);
}

// The factories whose repetition threads the exit handler stops.
Mutex* liveLock() {
    static Mutex* lock = new Mutex(Mutex::Recursive);
    return lock;
}
std::vector<CMessageFactoryImpl*>& liveImpls() {
    static auto* list = new std::vector<CMessageFactoryImpl*>;
    return *list;
}

// At process exit, report what is still counted and end the repetition
// threads, so that no thread runs into the static destructors.
void CMessageFactoryImpl_exitHandler() {
    ScopedLock guard(liveLock());
    for (CMessageFactoryImpl* impl : liveImpls()) {
        if (!impl->lastMessage || impl->exitFired.exchange(true))
            continue;
        impl->exitEvent.Fire();
        impl->wakeEvent.Fire();
        if (impl->repetitionThread.GetExitCode() != Thread::NotStarted)
            impl->repetitionThread.WaitForExit();
        impl->watching.store(false);
        delete impl->lastMessage;
        impl->lastMessage = nullptr;
    }
}

void shutdownLogging() {
    if (const detail::LoggingSeam* seam = detail::loggingSeam())
        if (seam->shutdownRepository)
            seam->shutdownRepository();
}

// A message number the catalogue lacks, or an entry of the wrong shape: the
// library cannot say what went wrong, so it stops.
[[noreturn]] void missingMessage(const std::string& name, unsigned int id) {
    std::fprintf(stderr,
                 "The ICU resource bundle, '%s', is missing message number %lu. Please ensure the "
                 "bundle is the "
                 "correct version.\n",
                 name.c_str(), static_cast<unsigned long>(id));
    std::fflush(stderr);
    std::abort();
}

void printBundleError(char const* what, UErrorCode ec) {
    std::fprintf(stderr, "Cannot load ICU resource bundle '%s', error code %lu - %s\n", what,
                 static_cast<unsigned long>(ec), u_errorName(ec));
    std::fflush(stderr);
}

unsigned int classKey(char const* cls) {
    return static_cast<unsigned char>(cls[0]) |
           (cls[0] ? static_cast<unsigned int>(static_cast<unsigned char>(cls[1])) << 8 : 0);
}

unsigned int codeKey(char const* code) {
    unsigned int key = 0;
    for (int i = 0; i < 3 && code[i]; ++i)
        key |= static_cast<unsigned int>(static_cast<unsigned char>(code[i])) << (8 * i);
    return key;
}

// The reserve that CMessageNewHandler frees when memory runs out, so that
// the failure can still be reported: 65 blocks of 4000 bytes and one of
// 786432, set aside when the library loads.
struct Reserve {
    std::vector<void*> blocks;
    Reserve() {
        for (int i = 0; i < 65; ++i)
            blocks.push_back(std::calloc(1, 4000));
        blocks.push_back(std::calloc(1, 786432));
    }
};
std::atomic<Reserve*> g_reserve{new Reserve};

// _TSTR texts of this thread: a ring of 16, the oldest freed first.
struct StringCache {
    char* texts[16] = {};
    unsigned int next = 0;
    ~StringCache() {
        for (char* t : texts)
            std::free(t);
    }
};
thread_local StringCache t_strings;

} // namespace

CMessageFactoryImpl::CMessageFactoryImpl()
    : locale(icu::Locale::getDefault()),
      repetitionThread(&RepetitionThread, "MessageRepititionThread"),
      suppressDuplicates(CMessageFactory::GetSuppressDuplicateMessages()) {
    static int once = [] { return std::atexit(&CMessageFactoryImpl_exitHandler); }();
    (void)once;
    ScopedLock guard(liveLock());
    liveImpls().push_back(this);
}

CMessageFactoryImpl::~CMessageFactoryImpl() {
    {
        ScopedLock guard(liveLock());
        auto& live = liveImpls();
        for (auto it = live.begin(); it != live.end(); ++it)
            if (*it == this) {
                live.erase(it);
                break;
            }
    }
    if (lastMessage && !exitFired.exchange(true)) {
        exitEvent.Fire();
        wakeEvent.Fire();
        if (repetitionThread.GetExitCode() != Thread::NotStarted)
            repetitionThread.WaitForExit();
    }
    delete lastMessage;
    for (auto& t : templates)
        delete t.second;
    for (auto& c : classSeverities)
        delete c.second;
    for (CMessageSeverity* s : severities)
        delete s;
    delete bundle;
}

// Waits for a new message or for the next report: after 30 s, 2 minutes,
// then every 10 minutes while repeats keep coming.
unsigned int CMessageFactoryImpl::RepetitionThread(void* argument) {
    auto* self = static_cast<CMessageFactory*>(argument);
    CMessageFactoryImpl* impl = self->impl;
    unsigned int timeout = 30000;
    for (;;) {
        CMessageFactory::RepetitionWait wait = g_wait.load();
        const bool fired = (wait ? wait : &realWait)(&impl->wakeEvent, timeout);
        if (fired) {
            if (impl->exitEvent.Wait(1) || impl->exitFired.load()) {
                if (impl->repetitionLock.TryLock()) {
                    self->RepetitionReport();
                    impl->repetitionLock.Unlock();
                }
                return 0;
            }
            timeout = 30000;
            continue;
        }
        if (!impl->repetitionLock.TryLock())
            continue;
        self->RepetitionReport();
        impl->repetitionLock.Unlock();
        timeout = timeout == 30000 ? 120000 : 600000;
    }
}

CMessageFactory::CMessageFactory() : impl(new CMessageFactoryImpl) {}

CMessageFactory::~CMessageFactory() {
    if (g_default.load() == this)
        g_default.store(nullptr);
    delete impl;
}

CMessageFactory* CMessageFactory::GetDefaultFactory() {
    CMessageFactory* factory = g_default.load(std::memory_order_acquire);
    if (factory)
        return factory;
    ScopedLock guard(defaultLock());
    factory = g_default.load();
    if (factory)
        return factory;
    CMessageNewHandler handler;
    factory = new CMessageFactory;
    if (!factory->Load("qzMessage")) {
        delete factory;
        g_default.store(nullptr);
        shutdownLogging();
        std::abort();
    }
    g_createdHere = true;
    g_default.store(factory, std::memory_order_release);
    return factory;
}

CMessageFactory* CMessageFactory::GetDefaultFactoryIfLoaded() {
    return g_default.load(std::memory_order_acquire);
}

void CMessageFactory::SetDefaultFactory(CMessageFactory* factory) {
    ScopedLock guard(defaultLock());
    CMessageFactory* old = g_default.exchange(factory);
    if (old && old != factory && g_createdHere)
        delete old;
    g_createdHere = false;
}

void CMessageFactory::GetICUBundleName(char const* name, char const* dir, char* out) {
    std::sprintf(out, "%s/%s.dat", dir, name);
}

bool CMessageFactory::LoadICUBundle(char const* path) {
    impl->catalogueBytes.clear();
    FILE* file = path ? std::fopen(path, "rb") : nullptr;
    if (!file)
        return false;
    bool ok = std::fseek(file, 0, SEEK_END) == 0;
    long size = ok ? std::ftell(file) : -1;
    ok = size > 0 && std::fseek(file, 0, SEEK_SET) == 0;
    if (ok) {
        impl->catalogueBytes.resize(static_cast<size_t>(size));
        ok = std::fread(impl->catalogueBytes.data(), 1, impl->catalogueBytes.size(), file) ==
             impl->catalogueBytes.size();
    }
    std::fclose(file);
    if (!ok) {
        impl->catalogueBytes.clear();
        impl->catalogueBytes.shrink_to_fit();
    }
    return ok;
}

bool CMessageFactory::Load(char const* name) {
    if (impl->bundle || !name)
        return false;
    impl->bundleName = name;
    const std::string application = getAppContextText("BuildApplication");
    const std::string dirs[3] = {getAppContextText("DirProcessLib"),
                                 getAppContextText("ProcessExecutableDir"),
                                 getAppContextText("ProcessWorkingDir")};

    // The application's own catalogue comes first. Every directory is
    // tried and a later one wins (the working directory over the program's).
    // Departure, kept on purpose: ICU keeps the first data registered under a
    // name for the life of the process and refuses the next, so registering
    // each file found in turn, as the search once did, left ICU holding bytes
    // that the next file had freed. Only the winner is read and registered.
    std::string found;
    for (const std::string& dir : dirs) {
        if (dir.empty() || application.empty())
            continue;
        std::vector<char> path(dir.size() + application.size() + 8);
        GetICUBundleName(application.c_str(), dir.c_str(), path.data());
        if (::access(path.data(), R_OK) == 0)
            found = path.data();
    }
    bool read = false;
    if (!found.empty() && LoadICUBundle(found.c_str())) {
        if (!detail::checkCatalogueBytes(impl->catalogueBytes.data(),
                                         impl->catalogueBytes.size())) {
            printBundleError(found.c_str(), U_INVALID_FORMAT_ERROR);
            return false;
        }
        UErrorCode ec = U_ZERO_ERROR;
        udata_setAppData(name, impl->catalogueBytes.data(), &ec);
        if (U_FAILURE(ec)) {
            printBundleError(found.c_str(), ec);
            return false;
        }
        // Once ICU holds the bytes they must outlive every factory: they are
        // kept for the life of the process. A name registered before keeps
        // its first data (ICU answers a warning), and these bytes stay here.
        if (ec == U_ZERO_ERROR) {
            static std::vector<std::vector<char>>* registered = new std::vector<std::vector<char>>;
            registered->push_back(std::move(impl->catalogueBytes));
        }
        read = true;
    }
    if (!read) {
        // ICU reads the package itself; the copies it can find in these
        // directories are checked first, as the application's file is.
        for (const std::string& dir : dirs) {
            if (dir.empty())
                continue;
            std::vector<char> path(dir.size() + std::strlen(name) + 8);
            GetICUBundleName(name, dir.c_str(), path.data());
            if (::access(path.data(), R_OK) != 0)
                continue;
            if (!LoadICUBundle(path.data()) ||
                !detail::checkCatalogueBytes(impl->catalogueBytes.data(),
                                             impl->catalogueBytes.size())) {
                printBundleError(path.data(), U_INVALID_FORMAT_ERROR);
                return false;
            }
            impl->catalogueBytes.clear();
            impl->catalogueBytes.shrink_to_fit();
            break;
        }
        std::string path = u_getDataDirectory() ? u_getDataDirectory() : "";
        for (const std::string& dir : dirs)
            if (!dir.empty())
                path += (path.empty() ? "" : ":") + dir;
        u_setDataDirectory(path.c_str());
    }

    UErrorCode ec = U_ZERO_ERROR;
    std::unique_ptr<icu::ResourceBundle> bundle(new icu::ResourceBundle(name, impl->locale, ec));
    if (U_FAILURE(ec)) {
        printBundleError(name, ec);
        return false;
    }
    return UseBundle(bundle.release(), name);
}

bool CMessageFactory::UseBundle(icu::ResourceBundle* opened, char const* name) {
    std::unique_ptr<icu::ResourceBundle> bundle(opened);
    if (!bundle || impl->bundle)
        return false;
    impl->bundleName = name ? name : "";
    name = impl->bundleName.c_str();
    UErrorCode ec = U_ZERO_ERROR;
    icu::ResourceBundle uuid = bundle->get("UUID", ec);
    const std::string received =
        U_SUCCESS(ec) && uuid.getType() == URES_STRING
            ? detail::catalogueText(uuid.getString(ec), impl->defaultCharSet)
            : "<Not Found>";
    if (received != qzMessage_UUID) {
        std::fprintf(stderr,
                     "The ICU resource bundle, '%s', is the wrong version.  Expecting '%s' but "
                     "received '%s'.\n",
                     name, qzMessage_UUID, received.c_str());
        std::fflush(stderr);
        return false;
    }
    impl->bundle = bundle.release();
    // A catalogue whose tables are of the wrong shape is not half kept: the
    // factory is left as it was, and may load another.
    auto forget = [this] {
        for (CMessageSeverity* severity : impl->severities)
            delete severity;
        impl->severities.clear();
        for (auto& entry : impl->classSeverities)
            delete entry.second;
        impl->classSeverities.clear();
        impl->maxIssue.clear();
        delete impl->bundle;
        impl->bundle = nullptr;
        return false;
    };

    // Severities and their actions, then the class and code rules, then the
    // limits. A table of the wrong shape fails the load.
    auto table = [&](char const* key, icu::ResourceBundle& out) {
        UErrorCode e = U_ZERO_ERROR;
        out = impl->bundle->get(key, e);
        return U_SUCCESS(e) && out.getType() == URES_TABLE;
    };
    auto text = [&](const icu::ResourceBundle& r) {
        UErrorCode e = U_ZERO_ERROR;
        return r.getType() == URES_STRING
                   ? detail::catalogueText(r.getString(e), impl->defaultCharSet)
                   : std::string();
    };
    icu::ResourceBundle t(*impl->bundle);
    if (table("SeverityActions", t)) {
        for (int i = 0; i < t.getSize(); ++i) {
            icu::ResourceBundle entry = t.get(i, ec);
            // A list of one action may also stand as a plain string.
            const bool single = entry.getType() == URES_STRING;
            if (U_FAILURE(ec) || (entry.getType() != URES_ARRAY && !single))
                return forget();
            auto* severity = new CMessageSeverity(entry.getKey());
            impl->severities.push_back(severity);
            for (int a = 0; a < (single ? 1 : entry.getSize()); ++a) {
                icu::ResourceBundle word = single ? entry : entry.get(a, ec);
                if (U_FAILURE(ec) || word.getType() != URES_STRING)
                    return forget();
                auto* action = new CAction;
                action->Load(text(word).c_str(), nullptr);
                severity->AddAction(action);
            }
        }
    }
    if (table("MessageClassSeverity", t)) {
        for (int i = 0; i < t.getSize(); ++i) {
            icu::ResourceBundle entry = t.get(i, ec);
            if (U_FAILURE(ec) || !SetSeverity(entry.getKey(), nullptr, text(entry).c_str()))
                return forget();
        }
    }
    if (table("MessageCodeSeverity", t)) {
        for (int i = 0; i < t.getSize(); ++i) {
            icu::ResourceBundle entry = t.get(i, ec);
            char const* key = entry.getKey();
            if (U_FAILURE(ec) || !key || std::strlen(key) < 3 ||
                !SetSeverity(key, key + 2, text(entry).c_str()))
                return forget();
        }
    }
    if (table("MessageMaxIssue", t)) {
        for (int i = 0; i < t.getSize(); ++i) {
            icu::ResourceBundle entry = t.get(i, ec);
            if (U_FAILURE(ec) || entry.getType() != URES_INT)
                return forget();
            SetMaxIssue(static_cast<unsigned int>(std::strtol(entry.getKey(), nullptr, 10)),
                        entry.getUInt(ec));
        }
    }
    if (U_FAILURE(ec))
        return forget();
    if (!g_default.load()) {
        CMessageFactory* expected = nullptr;
        g_default.compare_exchange_strong(expected, this);
    }
    return true;
}

const icu::Locale& CMessageFactory::GetLocale() const {
    return impl->locale;
}
void CMessageFactory::SetLocale(const icu::Locale& locale) {
    impl->locale = locale;
}
std::vector<CAction*>& CMessageFactory::GetActions() {
    return impl->actions;
}
CMessageReportType CMessageFactory::GetReportType() const {
    return impl->reportType;
}
void CMessageFactory::SetReportType(CMessageReportType type) {
    impl->reportType = type;
}
void CMessageFactory::SetDefaultCharacterSet(qzunicode::ULibCharSet cs) {
    impl->defaultCharSet = cs;
}
qzunicode::ULibCharSet CMessageFactory::GetDefaultCharacterSet(qzunicode::ULibCharSet cs) const {
    return cs == FactoryCharSet ? impl->defaultCharSet : cs;
}
CMessageFactory::operator icu::ResourceBundle*() const {
    return impl->bundle;
}

CMessageSeverity* CMessageFactory::GetSeverity(char const* name) const {
    if (!name)
        return nullptr;
    for (CMessageSeverity* s : impl->severities)
        if (std::strcmp(s->name, name) == 0)
            return s;
    return nullptr;
}

CMessageSeverity const* CMessageFactory::GetSeverity(char const* cls, char const* code) const {
    if (!cls)
        return nullptr;
    auto c = impl->classSeverities.find(classKey(cls));
    if (c == impl->classSeverities.end())
        return nullptr;
    if (code) {
        auto k = c->second->codes.find(codeKey(code));
        if (k != c->second->codes.end())
            return k->second;
    }
    return c->second->defaultSeverity;
}

bool CMessageFactory::SetSeverity(char const* cls, char const* code, char const* name) {
    CMessageSeverity* severity = GetSeverity(name);
    if (!severity || !cls)
        return false;
    CMessageClassSeverity*& entry = impl->classSeverities[classKey(cls)];
    if (!entry)
        entry = new CMessageClassSeverity;
    if (!entry->defaultSeverity)
        entry->defaultSeverity = severity;
    if (code)
        entry->codes[codeKey(code)] = severity;
    return true;
}

void CMessageFactory::SetAlternateSeverity(char const* name, CMessageSeverity const* alternate) {
    if (CMessageSeverity* severity = GetSeverity(name))
        severity->alternate = alternate;
}

void CMessageFactory::AddAction(CAction* action) {
    impl->actions.push_back(action);
}

bool CMessageFactory::DeleteAction(CAction* action) {
    bool found = false;
    for (auto it = impl->actions.begin(); it != impl->actions.end();)
        if (*it == action) {
            it = impl->actions.erase(it);
            found = true;
        } else {
            ++it;
        }
    return found;
}

void CMessageFactory::ClearActions() {
    impl->actions.clear();
}

bool CMessageFactory::SetMaxIssue(unsigned int id, unsigned int max) {
    return impl->maxIssue.emplace(id, max).second;
}

bool CMessageFactory::CanIssue(unsigned int id, bool consume) const {
    auto it = impl->maxIssue.find(id);
    if (it == impl->maxIssue.end())
        return true;
    if (it->second == 0)
        return false;
    if (consume)
        --it->second;
    return true;
}

void CMessageFactory::SuppressDuplicateMessages(bool suppress) {
    impl->suppressDuplicates = suppress;
}

bool CMessageFactory::GetSuppressDuplicateMessages() {
    QzHostConfig* config = getHostConfig();
    return config ? config->suppressDuplicateMessages != 0 : true;
}

bool CMessageFactory::SetReportedSeverity(unsigned int id, char const* text) {
    // Departure, kept on purpose: the ID is compared without reading the
    // watched message itself, which another thread may be deleting.
    if (!impl->watching.load() || impl->lastMessageId.load() != id)
        return false;
    impl->reportedSeverity.store(text);
    return true;
}

char const* CMessageFactory::CacheString(char const* text) const {
    StringCache& cache = t_strings;
    char*& slot = cache.texts[cache.next];
    cache.next = (cache.next + 1) % 16;
    std::free(slot);
    slot = SafeStrdup(text ? text : "");
    return slot;
}

void CMessageFactory::RemoveContext(CErrorContext const* context) {
    // The watched message chains to the thread that raised it; that thread's
    // context must not be reached once the thread has gone.
    ScopedLock guard(impl->repetitionLock);
    if (impl->lastMessage && impl->lastMessage->context)
        impl->lastMessage->context->RemoveContext(context);
}

void CMessageFactory::RunningAsService() {
    CMessageFactory* factory = GetDefaultFactory();
    if (!factory)
        return;
    CMessageSeverity const* store = factory->GetSeverity("QZStore");
    for (char const* name : {"QZInfo", "QZInfoNoReport", "QZWarn", "QZWarnNoReport", "QZError"})
        factory->SetAlternateSeverity(name, store);
    factory->SuppressDuplicateMessages(false);
}

CMessageFactory::FatalErrorAsException::FatalErrorAsException(bool report) {
    CMessageFactory* factory = GetDefaultFactory();
    factory->SetAlternateSeverity(
        "QZFatal", factory->GetSeverity(report ? "QZException" : "QZExceptionNoReport"));
}

CMessageFactory::FatalErrorAsException::~FatalErrorAsException() {
    GetDefaultFactory()->SetAlternateSeverity("QZFatal", nullptr);
}

CMessageFactory::RepetitionWait CMessageFactory::SetRepetitionWait(RepetitionWait wait) {
    return g_wait.exchange(wait);
}

// --- Creating and processing messages --------------------------------------

CMessageTemplate* CMessageFactoryImpl::findTemplate(CMessageFactory* factory, unsigned int id) {
    static std::atomic<bool> termsAdded{false};
    if (!termsAdded.load(std::memory_order_acquire) && !termsAdded.exchange(true))
        getAppContext()->AddTerms();
    ScopedLock guard(templateLock);
    auto it = templates.find(id);
    if (it != templates.end())
        return it->second;
    char key[24];
    std::snprintf(key, sizeof key, "%lu", static_cast<unsigned long>(id));
    UErrorCode ec = U_ZERO_ERROR;
    icu::ResourceBundle entry = bundle->get(key, ec);
    if (U_FAILURE(ec))
        missingMessage(bundleName, id);
    std::unique_ptr<CMessageTemplate> loaded(new CMessageTemplate(id));
    if (!loaded->Load(entry))
        missingMessage(bundleName, id);
    if (id <= CMessageTemplate::MaxMessageID)
        loaded->severity = factory->GetSeverity(loaded->messageClass, loaded->code);
    CMessageTemplate* found = loaded.release();
    templates[id] = found;
    return found;
}

CMessage* CMessageFactory::CreateMessageInit(CSourceContext* source, unsigned int id) {
    if (!impl->bundle) {
        delete source;
        return nullptr;
    }
    CMessageNewHandler handler;
    CMessageTemplate* messageTemplate = impl->findTemplate(this, id);
    auto* message = new CMessage(impl->locale);
    message->factory = this;
    message->messageTemplate = messageTemplate;
    message->context = new CMessageContext(source);
    return message;
}

char const* CMessageFactory::PlainText(unsigned int id) {
    if (!impl->bundle)
        return nullptr;
    CMessageNewHandler handler;
    // A text with no details never changes: it is formatted once (the
    // pattern's quoting still applies) and kept with its template.
    ScopedLock guard(impl->templateLock);
    CMessageTemplate* messageTemplate = impl->findTemplate(this, id);
    if (!messageTemplate->details.empty())
        return nullptr;
    const qzunicode::ULibCharSet cs = GetDefaultCharacterSet(FactoryCharSet);
    if (!messageTemplate->plainReady || messageTemplate->plainCharSet != cs) {
        UErrorCode ec = U_ZERO_ERROR;
        icu::UnicodeString result;
        icu::MessageFormat::format(messageTemplate->text, nullptr, 0, result, ec);
        messageTemplate->plainText =
            U_SUCCESS(ec) ? detail::catalogueText(result, cs) : std::string();
        messageTemplate->plainCharSet = cs;
        messageTemplate->plainReady = true;
    }
    return CacheString(messageTemplate->plainText.c_str());
}

namespace {

ContextItemID threadItem(char const* name) {
    static const ContextItemID threadId = CContext::GetContextItemID("ThreadID");
    static const ContextItemID backtrace = CContext::GetContextItemID("ThreadBacktrace");
    return std::strcmp(name, "ThreadID") == 0 ? threadId : backtrace;
}

// A string argument is copied, so that a message kept for later owns every
// text it shows.
CDataItem ownedCopy(const CDataItem& item) {
    if (item.getType() != CDataItem::String || item.isOwned())
        return item;
    char* copy = SafeStrdup(static_cast<char const*>(item));
    return CDataItem(copy, true);
}

} // namespace

// The details that no argument fills come from the contexts; one that is
// not there is reported (message 1425) and shows a placeholder.
static bool fillFromContext(CMessageFactory* factory, CMessage* message, unsigned int index,
                            const CMessageDetail& detail, bool& threadAdded) {
    CMessageContext* context = message->context;
    if (!threadAdded && (detail.contextItem == threadItem("ThreadID") ||
                         detail.contextItem == threadItem("ThreadBacktrace"))) {
        context->AddThreadContext();
        threadAdded = true;
    }
    if (CContextItem* item = context->GetItem(detail.contextItem)) {
        MultiThreading::ScopedLock guard(item->lock);
        return message->SetDetail(index, ownedCopy(*item));
    }
    char const* name = CContext::GetContextItemName(detail.contextItem);
    char hexName[32];
    if (!name) {
        std::snprintf(hexName, sizeof hexName, "0x%08x", detail.contextItem);
        name = hexName;
    }
    CContextItem* sourceId = context->GetItem(CContext::GetContextItemID("SourceID"));
    CContextItem* sourceLine = context->GetItem(CContext::GetContextItemID("SourceLine"));
    const std::string sid = sourceId ? sourceId->GetText() : std::string();
    const unsigned int line = sourceLine ? sourceLine->Read<unsigned int>() : 0u;
    _MSG_Int32_String_String_UInt32(
        new CSourceContext("qzmsg", "qzlog/qzmsg", "CreateMessage", 1250), 1425,
        static_cast<int>(index + 1), name, sid.c_str(), line, IssueAndDispose);
    (void)factory;
    CContextItem* placeholder = detail.argumentType == 0
                                    ? new CContextItem(detail.contextItem, "<Missing>", false)
                                    : new CContextItem(detail.contextItem, 0);
    context->AddItem(placeholder);
    return message->SetDetail(index, *placeholder);
}

namespace {

// Fills the details of a new message in the template's order: a named one
// from `next` (the caller's next argument), the others from the contexts.
// The message is deleted when a detail cannot be set.
template <typename Next>
CMessage* fillDetails(CMessageFactory* factory, CMessage* message, Next next) {
    if (!message)
        return nullptr;
    bool threadAdded = false;
    const std::vector<CMessageDetail>& details = message->messageTemplate->details;
    for (unsigned int i = 0; i < details.size(); ++i) {
        const CMessageDetail& d = details[i];
        const bool ok = d.name ? message->SetDetail(i, next(d))
                               : fillFromContext(factory, message, i, d, threadAdded);
        if (!ok) {
            delete message;
            return nullptr;
        }
    }
    if (!threadAdded)
        factory->CreateMessageAddThreadCtx(message);
    return message;
}

} // namespace

CMessage* CMessageFactory::CreateMessage(CSourceContext* source, unsigned int id, ...) {
    va_list args;
    va_start(args, id);
    CMessage* message =
        fillDetails(this, CreateMessageInit(source, id), [&args](const CMessageDetail& d) {
            switch (d.argumentType) {
            case 0:
                return CDataItem(SafeStrdup(va_arg(args, char const*)), true);
            case 1:
                return CDataItem(va_arg(args, int));
            case 2:
                return CDataItem(va_arg(args, unsigned int));
            case 3:
                return CDataItem(va_arg(args, long));
            case 4:
                return CDataItem(va_arg(args, unsigned long));
            case 5:
                return CDataItem(va_arg(args, int) != 0);
            case 6:
                return CDataItem(va_arg(args, timeval));
            default:
                return CDataItem(va_arg(args, void const*));
            }
        });
    va_end(args);
    return message;
}

CMessage* CMessageFactory::CreateMessageFromItems(CSourceContext* source, unsigned int id,
                                                  const CDataItem* items, std::size_t count) {
    std::size_t next = 0;
    return fillDetails(this, CreateMessageInit(source, id), [&](const CMessageDetail& d) {
        if (next >= count)
            return d.argumentType == 0 ? CDataItem("<Missing>") : CDataItem(0);
        const CDataItem& item = items[next++];
        if (d.argumentType == 5 && item.getType() != CDataItem::Bool)
            return CDataItem(static_cast<int>(item) != 0);
        return ownedCopy(item);
    });
}

CMessage* CMessageFactory::CreateMessage(CMessage const* original) {
    if (!original || !original->context)
        return nullptr;
    const CSourceContext* source = original->context->source();
    CSourceContext* copy =
        source ? new CSourceContext(source->module, source->id, source->method, source->line)
               : nullptr;
    CMessage* message = CreateMessageInit(copy, original->GetMessageID());
    if (!message)
        return nullptr;
    message->context->SetDetails(original->context->details());
    CreateMessageAddThreadCtx(message);
    return message;
}

void CMessageFactory::CreateMessageAddThreadCtx(CMessage* message) {
    CMessageSeverity const* severity = message->messageTemplate->severity;
    if (!severity)
        return;
    bool allTerminal = true;
    for (CAction* action : severity->actions)
        if (!(action->GetAttribute() & 4)) {
            allTerminal = false;
            break;
        }
    // Kept on purpose: a severity whose every step is a normal one (attribute
    // 4) takes no thread context; the stop-and-look and terminal steps do.
    if (!allTerminal)
        message->context->AddThreadContext();
}

namespace {
// An action that throws (ThrowException) has disposed of the message itself.
void issueAndDelete(CMessage* message) {
    message->Issue(AllActionAttributes);
    delete message;
}
} // namespace

CMessage* CMessageFactory::ProcessMessage(CMessage* message, MessageDisposition disposition) {
    if (!message)
        return nullptr;
    CMessageNewHandler handler;
    if (disposition == ReturnToCaller)
        return message;
    if (disposition != IssueAndDispose)
        return nullptr;
    if (!impl->suppressDuplicates || !GetSuppressDuplicateMessages() || impl->exitFired.load()) {
        issueAndDelete(message);
        return nullptr;
    }
    if (!CanIssue(message->GetMessageID(), false)) {
        delete message;
        return nullptr;
    }
    if (!impl->repetitionLock.TryLock()) {
        // Busy: another thread is comparing or reporting. Issue this one
        // rather than wait, and do not keep it.
        issueAndDelete(message);
        return nullptr;
    }
    if (impl->lastMessage && *impl->lastMessage == *message) {
        ++impl->repeatCount;
        impl->repetitionLock.Unlock();
        delete message;
        return nullptr;
    }
    if (impl->lastMessage) {
        RepetitionReport();
        delete impl->lastMessage;
        impl->wakeEvent.Fire();
    } else if (impl->repetitionThread.GetExitCode() == Thread::NotStarted) {
        // The first kept message starts the thread; one kept after a message
        // that threw (and so was dropped) finds it running.
        impl->repetitionThread.SetName("MessageRepititionThread");
        impl->repetitionThread.Start(this);
    }
    impl->lastMessage = message;
    impl->lastMessageId.store(message->GetMessageID());
    impl->watching.store(true);
    impl->reportedSeverity.store(nullptr);
    impl->repeatCount = 0;
    // Issued under the lock, so that no other thread replaces (and deletes)
    // the kept message meanwhile; an action that raises a message of its
    // own finds the lock busy and issues that one directly. An action that
    // throws has deleted the message (ThrowException does), so it is no
    // longer kept.
    try {
        message->Issue(AllActionAttributes);
    } catch (...) {
        if (impl->lastMessage == message) {
            impl->lastMessage = nullptr;
            impl->watching.store(false);
        }
        impl->repetitionLock.Unlock();
        throw;
    }
    impl->repetitionLock.Unlock();
    return nullptr;
}

void CMessageFactory::RepetitionReport() {
    if (impl->repeatCount == 0)
        return;
    if (impl->lastMessage && impl->lastMessage->ShouldReport()) {
        char code[10];
        impl->lastMessage->GetMessageCode(code);
        CMessage* report = _MSG_String_String_UInt32(
            new CSourceContext("qzmsg", "qzlog/qzmsg", "RepetitionReport", 775), 1971,
            impl->reportedSeverity.load(), code, impl->repeatCount, ReturnToCaller);
        if (report)
            report->Issue(AllActionAttributes);
        delete report;
    }
    impl->repeatCount = 0;
}

// --- The memory reserve -------------------------------------------------------

CMessageNewHandler::CMessageNewHandler() {
    const int saved = errno;
    previous = std::set_new_handler(&NewHandler);
    errno = saved;
}

CMessageNewHandler::~CMessageNewHandler() {
    const int saved = errno;
    std::set_new_handler(previous);
    errno = saved;
}

void CMessageNewHandler::NewHandler() {
    Reserve* reserve = g_reserve.exchange(nullptr);
    if (reserve) {
        for (void* block : reserve->blocks)
            std::free(block);
        delete reserve;
        return;
    }
    shutdownLogging();
    std::abort();
}

// --- The message core ---------------------------------------------------------

namespace detail {

CMessage* processItems(CSourceContext* source, unsigned int id, const CDataItem* items,
                       std::size_t count, MessageDisposition disposition) {
    CMessageFactory* factory = CMessageFactory::GetDefaultFactory();
    return factory->ProcessMessage(factory->CreateMessageFromItems(source, id, items, count),
                                   disposition);
}

char const* textOfItems(CSourceContext* source, unsigned int id, const CDataItem* items,
                        std::size_t count) {
    CMessageFactory* factory = CMessageFactory::GetDefaultFactory();
    // A text that takes nothing needs no message: its kept text serves.
    if (count == 0)
        if (char const* plain = factory->PlainText(id)) {
            delete source;
            return plain;
        }
    CMessage* message = factory->ProcessMessage(
        factory->CreateMessageFromItems(source, id, items, count), ReturnToCaller);
    return message ? message->ToString(FactoryCharSet) : "";
}

} // namespace detail

char const* _TSTR(int id) {
    if (char const* plain =
            CMessageFactory::GetDefaultFactory()->PlainText(static_cast<unsigned int>(id)))
        return plain;
    return detail::textOfItems(new CSourceContext("qzmsg", "qzlog/qzmsg", "_TSTR", __LINE__),
                               static_cast<unsigned int>(id), nullptr, 0);
}

std::string detail::catalogueText(const icu::UnicodeString& text, qzunicode::ULibCharSet cs) {
    UErrorCode ec = U_ZERO_ERROR;
    UConverter* cnv =
        ucnv_open(cs == qzunicode::ULIB_CS_DEFAULT ? nullptr : ULIB_toConverterName(cs), &ec);
    if (U_FAILURE(ec)) {
        std::string out;
        text.toUTF8String(out);
        return out;
    }
    std::string out(
        static_cast<size_t>(ucnv_getMaxCharSize(cnv)) * static_cast<size_t>(text.length()) + 1,
        '\0');
    int32_t n = ucnv_fromUChars(cnv, &out[0], static_cast<int32_t>(out.size()), text.getBuffer(),
                                text.length(), &ec);
    ucnv_close(cnv);
    out.resize(U_SUCCESS(ec) && n >= 0 ? static_cast<size_t>(n) : 0);
    return out;
}

} // namespace qzlib
} // namespace qzs
