// A host program built outside the tree against an installed copy of the
// library: it says what it is through its BuildContext_ symbols (with no
// linker option: the library's references make the executable export them),
// reads its identity back from the application context, logs through a
// pattern layout and checks what came out. Given a file name, it also writes
// its events there as an activity file, which the installed retrace must
// turn back into the same lines.
#include <qzlib.h>

#include <cstdio>
#include <cstring>
#include <string>

using namespace qzs::qzlib::qzlog;
using qzs::qzlib::CContext;
using qzs::qzlib::getAppContext;

extern "C" {
extern const char* const BuildContext_BuildApplication;
extern const char* const BuildContext_BuildVersion;
extern const char* const BuildContext_BuildDBMS;
const char* const BuildContext_BuildApplication = "mgr";
const char* const BuildContext_BuildVersion = "1.2.3";
const char* const BuildContext_BuildDBMS = "DB2400 V7R5";
}

namespace {
class Collect : public WriterAppender {
public:
    Collect() : WriterAppender("collect") {}
    void write(const void* bytes, unsigned long size) override {
        text.append(static_cast<const char*>(bytes), size);
    }
    std::string text;
};

Logger* const g_log = Logger::getRepository().getLogger("host.main");
} // namespace

int main(int argc, char** argv) {
    if (!qzlogInitialized()) {
        std::puts("framework not started before main");
        return 1;
    }
    auto item = [](const char* name) -> std::string {
        const qzs::qzlib::CContextItem* found = getAppContext()->GetItem(CContext::GetContextItemID(name));
        const char* text = found ? static_cast<const char*>(*found) : nullptr;
        return text ? text : "<none>";
    };
    const std::string program = item("BuildProgramString");
    std::printf("%s, version %s, logs in '%s'\n", program.c_str(), item("BuildVersion").c_str(),
                item("DirProcessLog").c_str());
    if (program != "Zorvex Quartzgate Manager for DB2 for i") {
        std::puts("the application context did not read the host's BuildContext_ symbols");
        return 1;
    }
    FileAppender* activity = nullptr;
    if (argc > 1) {
        activity = new FileAppender("activity");
        activity->setFile(argv[1]);
        activity->setLayout(new BinaryLayout());
        g_log->addAppender(*activity);
    }
    Collect* out = new Collect();
    out->setLayout(new PatternLayout("%p %c{1} [%t] %m%n"));
    g_log->addAppender(*out);
    g_log->setLevel(Level::Info);
    QZ_DEBUG(g_log, "hidden %d", 1);
    QZ_INFO(g_log, "installed %s works, %d%% sure of %s", "library", 100, "it");
    QZ_WARN(g_log, "checked %u times at %.1f", 3u, 2.5);
    const char* expected = "INFO main [main] installed library works, 100% sure of it\n"
                           "WARN main [main] checked 3 times at 2.5\n";
    if (out->text != expected) {
        std::printf("unexpected output: [%s]\n", out->text.c_str());
        return 1;
    }
    if (activity) {
        Appender::flushOutput(); // the thread's buffer goes to the file now
        activity->close();
    }
    // The catalogue installed beside the library, found by the library's own
    // search from a program installed beside it.
    if (argc > 2) {
        const char* term = qzs::qzlib::_TSTR(10000480);
        if (std::string(term) != "trail file") {
            std::printf("the installed catalogue gave [%s]\n", term);
            return 1;
        }
        // A database set, from the converter package installed beside the
        // library.
        using namespace qzs::qzlib::qzunicode;
        const ULibCharSet sjis = ULIB_toCharSet("ja16sjis");
        char utf8[16] = {};
        ULibError err = ULIB_OK;
        const int n = ULIB_CStoCS(ULIB_toCharSet("UTF-8"), utf8, sizeof utf8, 0, sjis,
                                  "\x93\xfa\x96\x7b", 4, false, false, &err, nullptr);
        if (!ULIB_isSupported(sjis) || n != 6 || std::strcmp(utf8, "\xe6\x97\xa5\xe6\x9c\xac")) {
            std::printf("ja16sjis from the installed package gave %d bytes, error %d\n", n,
                        static_cast<int>(err));
            return 1;
        }
    }
    std::puts("host ok");
    return 0;
}
