//===- tools/retrace/retrace.cpp - Replay activity files as text ----------===//
//
// retrace [--pattern P] FILE...
// retrace --version
//
// Replays each activity file through the loggers of this process to standard
// output, one line per event, laid out by a pattern. Exit status: 0 when
// every file replayed, 1 when a file could not be read or is malformed (the
// reader's text goes to standard error, once), 2 for bad usage, 3 when every
// file could be read but one ended early, inside a session: its events up to
// the cut are replayed and standard error says how many. A malformed file
// outranks a cut one, so 3 means nothing worse happened.
//
//===----------------------------------------------------------------------===//
#include <qzlib.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

using namespace qzs::qzlib;
using namespace qzs::qzlib::qzlog;

namespace {

const char DefaultPattern[] = "%d [%t] %p %c - %m%n";

enum ExitStatus { Replayed = 0, Unreadable = 1, BadUsage = 2, EndedEarly = 3 };

void usage(FILE* out) {
    std::fprintf(
        out,
        "usage: retrace [--pattern PATTERN] FILE...\n"
        "\n"
        "Replays activity files (binary logs) as text on standard output.\n"
        "\n"
        "  -p, --pattern PATTERN  layout of each line (default \"%s\")\n"
        "                         %%d date  %%t thread  %%p level  %%c logger  %%m message\n"
        "                         %%S sequence  %%C file  %%L line  %%M function  %%n newline\n"
        "  -h, --help             show this text\n"
        "  -V, --version          show the version of retrace\n"
        "\n"
        "Exit status: 0 all files replayed, 1 a file was unreadable or malformed,\n"
        "2 bad usage, 3 a file ended early (cut inside a session: its events up to\n"
        "the cut were replayed). 1 wins over 3 when both happen.\n",
        DefaultPattern);
}

// Lets through only replayed events: this process's own records (its clock
// thread, its buffer pool) are not part of the files being read.
class ReplayedOnly : public Filter {
public:
    Action decide(const LoggingEvent* event) const override {
        return (event->attributes.attributes.threadNumber & 0xF0000000u) ? Neutral : Deny;
    }
};

} // namespace

int main(int argc, char** argv) {
    std::string pattern = DefaultPattern;
    std::vector<const char*> files;
    for (int i = 1; i < argc; ++i) {
        const char* arg = argv[i];
        if (!std::strcmp(arg, "-h") || !std::strcmp(arg, "--help")) {
            usage(stdout);
            return Replayed;
        }
        if (!std::strcmp(arg, "-V") || !std::strcmp(arg, "--version")) {
            std::printf("retrace %s\n", RETRACE_VERSION);
            return Replayed;
        }
        if (!std::strcmp(arg, "-p") || !std::strcmp(arg, "--pattern")) {
            if (i + 1 >= argc) {
                std::fprintf(stderr, "retrace: %s needs a pattern\n", arg);
                usage(stderr);
                return BadUsage;
            }
            pattern = argv[++i];
            continue;
        }
        if (!std::strncmp(arg, "--pattern=", 10)) {
            pattern = arg + 10;
            continue;
        }
        if (!std::strcmp(arg, "--")) {
            for (++i; i < argc; ++i)
                files.push_back(argv[i]);
            break;
        }
        if (arg[0] == '-' && arg[1] != '\0') {
            std::fprintf(stderr, "retrace: unknown option '%s'\n", arg);
            usage(stderr);
            return BadUsage;
        }
        files.push_back(arg);
    }
    if (files.empty()) {
        usage(stderr);
        return BadUsage;
    }

    LoggerRepository& repository = Logger::getRepository();
    ConsoleAppender* out =
        new ConsoleAppender("retrace", stdout, new PatternLayout(pattern.c_str()));
    out->setImmediateFlush(false);
    out->addFilter(new ReplayedOnly());
    Logger* root = repository.getRootLogger();
    root->addAppender(*out);
    root->setLevel(Level::All);

    bool unreadable = false, endedEarly = false;
    for (const char* name : files) {
        ActivityFile file(name);
        if (!file.Open()) {
            std::fflush(stdout);
            std::fprintf(stderr, "retrace: %s\n", file.lastError().c_str());
            unreadable = true;
            continue;
        }
        while (file.getOffset() < file.getSize()) {
            const bool sessionRead = file.ProcessSession();
            if (file.endedEarly()) {
                // Everything up to the cut is out; the rest of the file is gone.
                const unsigned long long count = file.eventsReplayed();
                std::fflush(stdout);
                std::fprintf(stderr,
                             "retrace: %s: the file ends early, inside a session; "
                             "%llu event%s replayed from it\n",
                             name, count, count == 1 ? "" : "s");
                endedEarly = true;
                break;
            }
            if (!sessionRead) {
                std::fflush(stdout);
                std::string text = file.lastError();
                while (!text.empty() && text.back() == '\n')
                    text.pop_back();
                std::fprintf(stderr, "retrace: %s: %s\n", name, text.c_str());
                unreadable = true;
                break;
            }
        }
    }
    std::fflush(stdout);
    return unreadable ? Unreadable : endedEarly ? EndedEarly : Replayed;
}
