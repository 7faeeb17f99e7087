//===- qzmsg/LegacyErrorHandling.cpp - Console line, error log, fatal end -===//
//
// The console line and the error log record are written here, below the
// logging core: the record goes through the logging seam, and the repository
// is shut down through it too when a fatal error ends the process.
//
//===----------------------------------------------------------------------===//
#include "qzmsg/LegacyErrorHandling.h"

#include "qzmsg/CAppContext.h"
#include "qzmsg/CMessage.h"
#include "qzmsg/CMessageFactory.h"
#include "qzmsg/HostConfig.h"
#include "qzmsg/Messages.h"
#include "qzmsg/detail/QzRepo.h"
#include "qzstd/DynaLoad.h"
#include "qzstd/LoggingSeam.h"
#include "qzstd/Mutex.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

namespace qzs {
namespace qzlib {

namespace {

// Process-wide, set by the host before its threads run.
FATALERROR_ACTION g_fatalAction = FatalReportAndExit;
void (*g_fatalCallback)(unsigned int, char const*) = nullptr;
void (*g_idlCallback)(char const*) = nullptr;
void (*g_vamCallback)() = nullptr;
void (*g_exitFunction)(int) = nullptr;
bool g_firstFatalError = true;

detail::LazyLogger g_errorLog("qzserr.log");

// The error log's record holds at most this much of the text.
constexpr size_t kMaxLoggedText = 2048;

// One text copied for one report, trimmed in place.
class StringCopy {
public:
    explicit StringCopy(char const* source) : text(::strdup(source ? source : "")) {}
    virtual ~StringCopy() { std::free(text); }
    StringCopy(const StringCopy&) = delete;
    StringCopy& operator=(const StringCopy&) = delete;

    char* text;
};

// The lines end with one period of their own: a text's own closing periods,
// blanks and newlines go.
void stripEnd(char* text) {
    size_t n = std::strlen(text);
    while (n > 0 && std::strchr(" \t\r\n.", text[n - 1]))
        --n;
    text[n] = '\0';
}

char const* labelOf(unsigned char level) {
    if (level >= 239)
        return "ERROR";
    if (level >= 223)
        return "WARNING";
    return "INFO";
}

// The host's parameter file name without its directory; null when the host
// gave none.
char const* objectName() {
    QzHostConfig* config = getHostConfig();
    if (!config || !config->parameterFile || !*config->parameterFile)
        return nullptr;
    char const* name = config->parameterFile;
    for (char const* p = name; *p; ++p)
        if (*p == '/' || *p == '\\')
            name = p + 1;
    return name;
}

void logMessage(char const* code, char const* text, unsigned char level, char const* label) {
    if (!g_errorLog.isEnabledFor(level))
        return;
    static const std::string program = getAppContextText("BuildProgramString");
    char cut[kMaxLoggedText + 1];
    std::snprintf(cut, sizeof cut, "%s", text ? text : "");
    stripEnd(cut);
    if (char const* name = objectName())
        QZ_SEAM_LOG(g_errorLog, "qzlog/LegacyErrorHandling", "logMessage", level,
                    "%-7s %9s  %s, %s:  %s.", label, code, program, name, cut);
    else
        QZ_SEAM_LOG(g_errorLog, "qzlog/LegacyErrorHandling", "logMessage", level,
                    "%-7s %9s  %s:  %s.", label, code, program, cut);
}

void report(unsigned int id, char const* code, char const* text, unsigned char level,
            bool console) {
    static CMessageFactory* const factory = CMessageFactory::GetDefaultFactory();
    // Running out of memory here must still leave a line behind.
    CMessageNewHandler reserve;
    const StringCopy copy(text);
    if (!copy.text)
        return;
    stripEnd(copy.text);
    char const* label = labelOf(level);
    if (console) {
        char now[32] = "";
        const time_t seconds = std::time(nullptr);
        struct tm local;
        if (::localtime_r(&seconds, &local))
            std::strftime(now, sizeof now, "%Y-%m-%d %H:%M:%S", &local);
        std::fprintf(getReportStream(), "\n%-19s  %-7s %9s  %s.\n", now, label, code, copy.text);
    }
    if (factory)
        factory->SetReportedSeverity(id, label);
    logMessage(code, copy.text, level, label);
}

MultiThreading::Mutex& hookLock() {
    static auto* lock = new MultiThreading::Mutex(MultiThreading::Mutex::Recursive);
    return *lock;
}

// The host's debug hook, looked up at the first fatal error.
void callDebugHook(unsigned int reason) {
    static std::atomic<bool> looked{false};
    static void (*hook)(unsigned int) = nullptr;
    if (!looked.load(std::memory_order_acquire)) {
        MultiThreading::ScopedLock guard(&hookLock());
        if (!looked.load(std::memory_order_relaxed)) {
            hook = qzFindHostFunction<void (*)(unsigned int)>("_qzTryDebugHook");
            looked.store(true, std::memory_order_release);
        }
    }
    if (hook)
        hook(reason);
}

void shutdownRepository() {
    if (const detail::LoggingSeam* seam = detail::loggingSeam())
        if (seam->shutdownRepository)
            seam->shutdownRepository();
}

} // namespace

namespace detail {

const QzRepo& qzRepo() {
    static const QzRepo repo = [] {
        // Optional: its absence is an answer, and the handles stay for the
        // process's life.
        static DynaModule module("qzrepo", false);
        QzRepo r;
        r.enabled = DynaSymbol("QZREPO_Enabled", &module).as<bool (*)(int)>();
        r.recordMessage =
            DynaSymbol("QZREPO_RecordMessage", &module).as<void (*)(CMessage const*)>();
        r.setProcessState = DynaSymbol("QZREPO_SetProcessState", &module).as<void (*)(int)>();
        r.shutdown = DynaSymbol("QZREPO_Shutdown", &module).as<void (*)()>();
        return r;
    }();
    return repo;
}

} // namespace detail

void qzSetFatalErrorAction(FATALERROR_ACTION action) {
    g_fatalAction = action;
}

FATALERROR_ACTION qzGetFatalErrorAction() {
    return g_fatalAction;
}

void qzSetFatalErrorCallback(void (*callback)(unsigned int, char const*)) {
    g_fatalCallback = callback;
}

void qzSetIDLFatalErrorCallback(void (*callback)(char const*)) {
    g_idlCallback = callback;
}

void qzSetVAMFatalErrorCallback(void (*callback)()) {
    g_vamCallback = callback;
}

void qzSetExitFunction(void (*function)(int)) {
    g_exitFunction = function;
}

void issueMessage(unsigned int id, char const* code, char const* text, unsigned char level) {
    report(id, code, text, level, true);
}

void issueMessageNoReport(unsigned int id, char const* code, char const* text,
                          unsigned char level) {
    report(id, code, text, level, false);
}

void processFatalError(unsigned int id, char const* text) {
    const FATALERROR_ACTION action = g_fatalAction;
    CMessageNewHandler reserve;
    const bool ending =
        action == FatalAbort || action == FatalReportAndExit || action == FatalExitQuietly;

    const detail::QzRepo& repo = detail::qzRepo();
    if (repo.isEnabled()) {
        if (repo.setProcessState)
            repo.setProcessState(8);
        if (ending && repo.shutdown)
            repo.shutdown();
    }

    callDebugHook(32);

    if (action == FatalAbort) {
        // At once: no callback runs and nothing more is written.
        shutdownRepository();
        std::abort();
    }

    {
        char* copy = ::strdup(text ? text : "");
        char const* reason = copy ? copy : "Out of memory";
        if (g_firstFatalError) {
            g_firstFatalError = false;
            if (g_idlCallback)
                g_idlCallback(reason);
            if (g_vamCallback)
                g_vamCallback();
        }
        if (g_fatalCallback)
            g_fatalCallback(id, reason);
        std::free(copy);
    }

    if (QzHostConfig* config = getHostConfig())
        config->fatalError = 1;

    if (action != FatalExitQuietly) {
        CMessage* stopping = raiseMessage(
            QZ_SOURCE("qzmsg.legacy", "qzlog/LegacyErrorHandling", "processFatalError"), 1668,
            ReturnToCaller);
        if (stopping && stopping->ShouldReport()) {
            char code[10];
            stopping->GetMessageCode(code);
            char const* stoppingText = stopping->Format(FactoryCharSet);
            issueMessage(stopping->GetMessageID(), code, stoppingText ? stoppingText : "", 254);
        }
        delete stopping;
    }
    std::fflush(getReportStream());

    shutdownRepository();
    if (action == FatalReportAndExit || action == FatalExitQuietly) {
        if (g_exitFunction)
            g_exitFunction(1);
        std::exit(1);
    }
    // Kept on purpose: an action the host set outside 1 to 3 returns to the
    // failing call.
}

} // namespace qzlib
} // namespace qzs
