//===- qzmsg/CProcessContext.cpp - The running process --------------------===//
//
// Nothing here fails: a call the system refuses leaves the item at its
// default ("", 0 or a zero time).
//
//===----------------------------------------------------------------------===//
#include "qzmsg/CProcessContext.h"

#include "qzmsg/CAppContext.h"
#include "qzstd/Installation.h"

#include <cstdio>
#include <cstring>
#include <sys/sysinfo.h>
#include <sys/time.h>
#include <sys/times.h>
#include <sys/utsname.h>
#include <unistd.h>

namespace qzs {
namespace qzlib {

namespace {

constexpr size_t kBufferSize = 4096;

char g_executable[kBufferSize];
char g_executableBase[kBufferSize];
char g_executableDir[kBufferSize];
char g_commandLine[kBufferSize];
char g_workingDir[kBufferSize];

CContextItem* ownedText(char const* name, char const* text) {
    return new CContextItem(CContext::GetContextItemID(name), ::strdup(text), true);
}

CContextItem* borrowedText(char const* name, char const* text) {
    return new CContextItem(CContext::GetContextItemID(name), text, false);
}

CContextItem* timeItem(char const* name) {
    return new CContextItem(CContext::GetContextItemID(name), timespec{0, 0});
}

CContextItem* countItem(char const* name, unsigned int value) {
    return new CContextItem(CContext::GetContextItemID(name), value);
}

// Where the executable's name starts: after the last '/' or '\\', whichever
// stands later; null when there is neither.
char const* lastSeparator(char const* path) {
    char const* slash = std::strrchr(path, '/');
    char const* backslash = std::strrchr(path, '\\');
    return backslash && (!slash || backslash > slash) ? backslash : slash;
}

} // namespace

CProcessContext::CProcessContext() {
    struct utsname names;
    if (::uname(&names) == 0) {
        AddItem(ownedText("ProcessOSName", names.sysname));
        AddItem(ownedText("ProcessOSArch", names.machine));
        AddItem(ownedText("ProcessOSVersion", names.version));
        AddItem(ownedText("ProcessOSUnixRelease", names.release));
        AddItem(ownedText("ProcessHostName", names.nodename));
    } else {
        AddItem(ownedText("ProcessOSName", "Unix"));
        for (char const* name :
             {"ProcessOSArch", "ProcessOSVersion", "ProcessOSUnixRelease", "ProcessHostName"})
            AddItem(ownedText(name, ""));
    }
    AddItem(osUptime = timeItem("ProcessOSUptime"));
    AddItem(countItem("ProcessID", static_cast<unsigned int>(::getpid())));
    AddItem(borrowedText("ProcessExecutable", getExecutable()));
    AddItem(borrowedText("ProcessExecutableBase", getExecutableBase()));
    AddItem(borrowedText("ProcessExecutableDir", getExecutableDir()));
    AddItem(borrowedText("ProcessCommandLine", getCommandLine()));
    AddItem(workingDir = borrowedText("ProcessWorkingDir", ""));
    AddItem(userTime = timeItem("ProcessUserTime"));
    AddItem(systemTime = timeItem("ProcessSystemTime"));
    AddItem(clockTime = timeItem("ProcessClockTime"));
    AddItem(memoryVirtual = countItem("ProcessMemoryVirtual", 0));
    AddItem(memoryPhysical = countItem("ProcessMemoryPhysical", 0));
}

CContextItem* CProcessContext::GetItem(ContextItemID id) const {
    CContextItem* item = nullptr;
    if (id == osUptime->id) {
        struct sysinfo info;
        timespec uptime{0, 0};
        if (::sysinfo(&info) == 0)
            uptime.tv_sec = info.uptime;
        osUptime->Assign(uptime);
        item = osUptime;
    } else if (id == workingDir->id) {
        workingDir->Assign(getWorkingDir()); // borrowed
        item = workingDir;
    } else if (id == userTime->id || id == systemTime->id) {
        struct tms ticks;
        ::times(&ticks);
        CContextItem* target = id == userTime->id ? userTime : systemTime;
        target->Assign(ticksAsTime(id == userTime->id ? ticks.tms_utime : ticks.tms_stime));
        item = target;
    } else if (id == clockTime->id) {
        timespec elapsed{0, 0};
        timeval now{0, 0};
        const CContextItem* start = getAppContext()->GetItem(GetContextItemID("AppStartTime"));
        if (start && ::gettimeofday(&now, nullptr) == 0) {
            const timespec began = start->Read<timespec>();
            long seconds = now.tv_sec - began.tv_sec;
            long micros = now.tv_usec - began.tv_nsec / 1000;
            if (micros < 0) {
                micros += 1000000;
                --seconds;
            }
            elapsed = timespec{seconds, micros * 1000};
        }
        clockTime->Assign(elapsed);
        item = clockTime;
    } else if (id == memoryVirtual->id || id == memoryPhysical->id) {
        unsigned int virtualKb = 0, physicalKb = 0;
        readMemory(virtualKb, physicalKb);
        CContextItem* target = id == memoryVirtual->id ? memoryVirtual : memoryPhysical;
        target->Assign(id == memoryVirtual->id ? virtualKb : physicalKb);
        item = target;
    }
    return item ? item : CContext::GetItem(id);
}

char const* CProcessContext::getExecutable() {
    std::snprintf(g_executable, kBufferSize, "%s", qzGetProcessExecutable());
    return g_executable;
}

char const* CProcessContext::getExecutableBase() {
    char const* path = getExecutable();
    char const* separator = lastSeparator(path);
    std::snprintf(g_executableBase, kBufferSize, "%s", separator ? separator + 1 : path);
    if (char* dot = std::strrchr(g_executableBase, '.'))
        *dot = '\0';
    return g_executableBase;
}

char const* CProcessContext::getExecutableDir() {
    // One source for this fact: the installation lookup and the directory map
    // read the same text.
    std::snprintf(g_executableDir, kBufferSize, "%s", qzGetProcessExecutableDir());
    return g_executableDir;
}

char const* CProcessContext::getCommandLine() {
    g_commandLine[0] = '\0';
    FILE* file = std::fopen("/proc/self/cmdline", "rb");
    if (!file)
        return g_commandLine;
    const size_t n = std::fread(g_commandLine, 1, kBufferSize - 1, file);
    std::fclose(file);
    for (size_t i = 0; i + 1 < n; ++i)
        if (g_commandLine[i] == '\0')
            g_commandLine[i] = ' ';
    g_commandLine[n] = '\0';
    return g_commandLine;
}

char const* CProcessContext::getWorkingDir() {
    if (!::getcwd(g_workingDir, kBufferSize))
        g_workingDir[0] = '\0';
    return g_workingDir;
}

timespec CProcessContext::ticksAsTime(unsigned long ticks) {
    timespec t;
    t.tv_sec = static_cast<time_t>(ticks / 1000000ul);
    t.tv_nsec = static_cast<long>((ticks % 1000000ul) * 1000000000000ul);
    return t;
}

bool CProcessContext::readMemory(unsigned int& virtualKb, unsigned int& physicalKb) {
    virtualKb = physicalKb = 0;
    FILE* file = std::fopen("/proc/self/stat", "r");
    if (!file)
        return false;
    unsigned long virtualBytes = 0;
    long residentPages = 0;
    const int got =
        std::fscanf(file,
                    "%*d %*s %*c %*d %*d %*d %*d %*d %*u %*u %*u %*u %*u %*u %*u %*d %*d %*d %*d "
                    "%*d %*d %*u %lu %ld %*u %*u %*u %*u %*u %*u %*u %*u %*u %*u %*u %*u %*u %*d "
                    "%*d %*u %*u",
                    &virtualBytes, &residentPages);
    std::fclose(file);
    if (got != 2)
        return false;
    virtualKb = static_cast<unsigned int>(virtualBytes >> 10);
    physicalKb = static_cast<unsigned int>(static_cast<unsigned long>(residentPages) * 4);
    return true;
}

} // namespace qzlib
} // namespace qzs
