//===- fuzz/fuzz_config.cpp - Logging configuration documents -------------===//
//
// A libFuzzer target for the XML loader: each input is a whole logging
// configuration document, parsed and applied in memory as a file would be.
// One event then goes through the root and through "app.db" (the logger
// the seeds configure), so that the layouts and filters built run once.
// Between inputs the set-up goes back to its defaults and the appenders the
// input made are deleted, so that one input does not see the last one's
// appenders and the registry does not grow with the run.
//
// File appenders write what the document names, and a rolling one renames
// and deletes its backups. The process is run so that none of that reaches
// the tree it was started in: it works in a fresh temporary directory (its
// log and working directory, removed at exit), the paths given to libFuzzer
// are made absolute before it reads them, and where the kernel has Landlock,
// nothing outside the temporary directory and libFuzzer's own output folders
// can be written, so that an absolute name in a document fails like an
// unwritable one. Console appenders write to stdout, which goes to
// /dev/null.
//
//===----------------------------------------------------------------------===//
#include "qzlog/Appender.h"
#include "qzlog/Level.h"
#include "qzlog/Logger.h"
#include "qzlog/LoggerRepository.h"
#include "qzlog/config/detail/DOMConfiguratorImpl.h"
#include "qzmsg/CAppContext.h"
#include "qzmsg/CContext.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <ftw.h>
#include <linux/landlock.h>
#include <string>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <vector>

// Newer than some kernel headers; the kernel says which it knows.
#ifndef LANDLOCK_ACCESS_FS_TRUNCATE
#define LANDLOCK_ACCESS_FS_TRUNCATE (1ULL << 14)
#endif

using namespace qzs::qzlib;
using namespace qzs::qzlib::qzlog;

namespace {

DOMConfiguratorImpl* g_configurator;
Logger* g_loggers[2];
std::vector<Appender*>* g_keep; // the appenders that were there before any input
char g_scratch[] = "/tmp/fuzz_config.XXXXXX";

int removeOne(const char* path, const struct stat*, int, struct FTW*) {
    ::remove(path);
    return 0;
}

void removeScratch() {
    if (::chdir("/") == 0)
        ::nftw(g_scratch, removeOne, 16, FTW_DEPTH | FTW_PHYS);
}

std::string absolute(const std::string& home, const std::string& path) {
    return path.empty() || path[0] == '/' ? path : home + "/" + path;
}

bool isDirectory(const std::string& path) {
    struct stat info;
    return ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

std::string directoryOf(const std::string& path) {
    const size_t slash = path.find_last_of('/');
    return slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
}

// libFuzzer's flags that name files or folders, and whether it writes there.
struct PathFlag {
    const char* name;
    bool written;
};
const PathFlag PathFlags[] = {
    {"artifact_prefix", true},
    {"exact_artifact_path", true},
    {"merge_control_file", true},
    {"features_dir", true},
    {"dict", false},
    {"seed_inputs", false},
    {"data_flow_trace", false},
    {"mutation_graph_file", true},
};

// Makes every relative path of the command line absolute from `home`, and
// collects the folders libFuzzer writes to. Without an artifact prefix,
// crash inputs go to the temporary folder (libFuzzer's default, the working
// directory, is about to be removed). The new argument strings live until the process ends.
void rewriteArguments(int* argc, char*** argv, const std::string& home, const std::string& temp,
                      std::vector<std::string>& written) {
    static auto* args = new std::vector<char*>();
    bool hasPrefix = false;
    for (int i = 0; i < *argc; ++i) {
        std::string arg = (*argv)[i];
        if (i > 0 && arg[0] != '-') {
            arg = absolute(home, arg);
            if (isDirectory(arg))
                written.push_back(arg);
        } else if (i > 0) {
            for (const PathFlag& flag : PathFlags) {
                const std::string key = std::string("-") + flag.name + "=";
                if (arg.compare(0, key.size(), key) != 0)
                    continue;
                std::string value = arg.substr(key.size()), out;
                // seed_inputs is a comma-separated list, or @file.
                const bool list = std::strcmp(flag.name, "seed_inputs") == 0;
                if (list && !value.empty() && value[0] == '@')
                    out = "@" + absolute(home, value.substr(1));
                for (size_t at = 0; out.empty() && at <= value.size();) {
                    const size_t end =
                        list ? std::min(value.find(',', at), value.size()) : value.size();
                    out += (at ? "," : "") + absolute(home, value.substr(at, end - at));
                    at = end + 1;
                }
                arg = key + out;
                hasPrefix = hasPrefix || std::strcmp(flag.name, "artifact_prefix") == 0;
                if (flag.written) {
                    const bool isPrefix = std::strcmp(flag.name, "artifact_prefix") == 0;
                    written.push_back(isPrefix && out.back() == '/' ? out : directoryOf(out));
                }
            }
        }
        args->push_back(::strdup(arg.c_str()));
    }
    if (!hasPrefix) {
        args->push_back(::strdup(("-artifact_prefix=" + temp + "/").c_str()));
    }
    args->push_back(nullptr);
    *argc = static_cast<int>(args->size() - 1);
    *argv = args->data();
}

// Lets this process write only beneath `allowed`. False when the kernel has
// no Landlock, or a rule cannot be made.
bool fenceWrites(const std::vector<std::string>& allowed) {
    const long abi =
        ::syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION);
    if (abi < 1)
        return false;
    struct landlock_ruleset_attr attr = {};
    attr.handled_access_fs = LANDLOCK_ACCESS_FS_WRITE_FILE | LANDLOCK_ACCESS_FS_REMOVE_DIR |
                             LANDLOCK_ACCESS_FS_REMOVE_FILE | LANDLOCK_ACCESS_FS_MAKE_CHAR |
                             LANDLOCK_ACCESS_FS_MAKE_DIR | LANDLOCK_ACCESS_FS_MAKE_REG |
                             LANDLOCK_ACCESS_FS_MAKE_SOCK | LANDLOCK_ACCESS_FS_MAKE_FIFO |
                             LANDLOCK_ACCESS_FS_MAKE_BLOCK | LANDLOCK_ACCESS_FS_MAKE_SYM;
    if (abi >= 2)
        attr.handled_access_fs |= LANDLOCK_ACCESS_FS_REFER;
    if (abi >= 3)
        attr.handled_access_fs |= LANDLOCK_ACCESS_FS_TRUNCATE;
    const int ruleset =
        static_cast<int>(::syscall(SYS_landlock_create_ruleset, &attr, sizeof attr, 0));
    if (ruleset < 0)
        return false;
    bool ok = true;
    for (const std::string& path : allowed) {
        struct landlock_path_beneath_attr rule = {};
        rule.allowed_access = attr.handled_access_fs;
        rule.parent_fd = ::open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
        if (rule.parent_fd < 0)
            continue; // a folder libFuzzer will not find either
        ok = ok &&
             ::syscall(SYS_landlock_add_rule, ruleset, LANDLOCK_RULE_PATH_BENEATH, &rule, 0) == 0;
        ::close(rule.parent_fd);
    }
    ok = ok && ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         ::syscall(SYS_landlock_restrict_self, ruleset, 0) == 0;
    ::close(ruleset);
    return ok;
}

// Deletes every registered appender that an input made. Only after a
// reset: by then no logger holds one of them any more.
void deleteNewAppenders() {
    std::vector<Appender*> all = *Appender::getAllAppenders(); // a destructor edits the list
    for (Appender* a : all)
        if (std::find(g_keep->begin(), g_keep->end(), a) == g_keep->end())
            delete a;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
    char home[PATH_MAX];
    if (!::getcwd(home, sizeof home) || !::mkdtemp(g_scratch)) {
        std::perror("fuzz_config: scratch directory");
        std::abort();
    }
    std::vector<std::string> written{g_scratch, directoryOf(g_scratch)};
    rewriteArguments(argc, argv, home, directoryOf(g_scratch), written);
    if (::chdir(g_scratch) != 0) {
        std::perror("fuzz_config: scratch directory");
        std::abort();
    }
    std::atexit(removeScratch);
    // Plain file names go to the log directory, and a reset looks for the
    // conventional logging files in these: all of them are the scratch one.
    for (const char* item : {"DirProcessLog", "DirProcessConfLogging", "DirProcessLib"})
        getAppContext()->SetItem(CContext::GetContextItemID(item),
                                 (std::string(g_scratch) + "/").c_str());
    // Console appenders write to stdout, on every input that makes one;
    // /dev/null is opened before the fence, which would refuse it.
    const int null = ::open("/dev/null", O_WRONLY);
    if (null >= 0) {
        ::dup2(null, STDOUT_FILENO);
        ::close(null);
    }
    if (!fenceWrites(written))
        std::fprintf(stderr, "fuzz_config: no Landlock; a document's absolute file names are "
                             "written where they point\n");
    g_configurator = new DOMConfiguratorImpl();
    g_loggers[0] = Logger::getRepository().getRootLogger();
    g_loggers[1] = Logger::getRepository().getLogger("app.db");
    Logger::getRepository().resetConfiguration();
    g_keep = new std::vector<Appender*>(*Appender::getAllAppenders());
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    g_configurator->apply(reinterpret_cast<const char*>(data), size, "fuzz.xml");
    for (Logger* logger : g_loggers)
        logger->log(__FILE__, __func__, __LINE__, Level::Fatal, "event %d of %s", 1, "fuzz_config");
    Logger::getRepository().resetConfiguration();
    deleteNewAppenders();
    return 0;
}
