//===- examples/qzdemo.cpp - A small host of the library ------------------===//
//
// What a newcomer runs first: a host that says what it is, configures logging
// without a file, builds a small logger tree with levels and additivity, adds
// a pattern layout and a filter chain, logs from two threads, keeps a text in
// the character set it came in, raises numbered messages of its own, finds
// its logging files in an installation tree and follows a change to them
// while it runs, converts times and database numbers, reads a parameter file,
// edits a JSON document, sends events to a syslog collector when one is named
// (--syslog=HOST[:PORT]), and prints the summary report the library keeps.
//
//===----------------------------------------------------------------------===//
#include <qzlib.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <unistd.h>

using namespace qzs::qzlib::qzlog;

namespace {

// Loggers are usually fetched once, in a static initialiser; the first one
// brings the framework up before main runs.
Logger* const g_capture = Logger::getRepository().getLogger("demo.capture");
Logger* const g_reader = Logger::getRepository().getLogger("demo.capture.reader");
Logger* const g_audit = Logger::getRepository().getLogger("demo.audit");
Logger* const g_apply = Logger::getRepository().getLogger("demo.apply");

// A host raises its messages by number: the catalogue holds the text and
// the severity, and the severity decides what happens.
void showMessages() {
    using namespace qzs::qzlib;
    const qzapp::CTableName table("ORDERS");
    // An information: a console line and the error log.
    raiseMessage(QZ_SOURCE("demo", "examples/qzdemo", "showMessages"), 95001, IssueAndDispose,
                 "EXT1", 1200, qzapp::enquote(table).c_str());
    // A stored message: kept in this thread's error context, read back.
    raiseMessage(QZ_SOURCE("demo", "examples/qzdemo", "showMessages"), 95002, IssueAndDispose, 42,
                 "its key column is null");
    CErrorContext* errors = CErrorContext::GetContext();
    if (!errors->storedMessages.empty()) {
        char code[10];
        errors->storedMessages.back()->GetMessageCode(code);
        std::printf("stored in the error context: %s %s\n", code,
                    errors->storedMessages.back()->Format(FactoryCharSet));
    }
    // An exception: the severity reports the message, then throws it.
    try {
        raiseMessage(QZ_SOURCE("demo", "examples/qzdemo", "showMessages"), 95003, IssueAndDispose,
                     "connection reset by peer");
        std::printf("(no exception)\n");
    } catch (const qzlog::QZException& e) {
        std::printf("caught QZException %s: %s\n", e.GetMessageCode(), e.what());
    }
    // The library's own faults are messages too: a size it cannot read.
    RollingFileAppender sized("sized");
    sized.setMaxFileSize("10M");
}

void worker(const char* name, int records) {
    Logger::getRepository().setThreadName(name);
    for (int i = 1; i <= records; ++i) {
        QZ_DEBUG(g_reader, "record %d of %d read by %s", i, records, name);
        if (i % 2 == 0)
            QZ_INFO(g_capture, "checkpoint at record %d", i);
    }
    QZ_WARN(g_capture, "%s finished after %d records", name, records);
    Logger::getRepository().threadComplete();
}

// A name that arrives as Shift_JIS bytes stays bytes until a unit is read;
// asked for in another set it is converted once and kept.
void showText() {
    using namespace qzs::qzlib::qzunicode;
    const ULibCharSet sjis = ULIB_toCharSet("windows-932");
    const ULibCharSet utf8 = ULIB_toCharSet("UTF-8");
    UString name("\x93\xfa\x96\x7b\x8c\xea", sjis);
    std::printf("Shift_JIS bytes in; converted to UTF-16 yet: %s\n",
                name.impl()->m_uPrimaryLen != 0 ? "yes" : "no");
    std::printf("%zu units, %zu bytes in UTF-8: %s\n", name.length(), name.byteSize(utf8),
                name.c_str(utf8));
    QZ_INFO(g_capture, "a UTF-16 argument is converted only for text output: %s",
            reinterpret_cast<const char16_t*>(name.c_wstr()));

    UString order("order 17: status=open, owner=ann", utf8);
    UString copy(order); // shares the body until one of them changes
    copy.findAndReplaceAll("open", "closed", utf8);
    copy.toUpperEx();
    std::printf("%s\n%s\n", order.c_str(utf8), copy.c_str(utf8));

    // printf's language in UTF-16, with a UString argument; scan reads it back.
    UString line;
    line.format("%-6s|%8.2f|%#06x|%U", "total", 1234.5, 255u, &name);
    double total = 0;
    line.scan("%*s |%lf", &total);
    std::printf("formatted: %s (read back: %.2f)\n", line.c_str(utf8), total);
    // A UTC moment as local time in named zones, each thread on its own calendar.
    for (const char* zone : {"America/New_York", "Asia/Tokyo", "+05:30"}) {
        char when[64];
        UTimeZone(zone).utcToLocalTime(2026, 3, 8, 6, 59, 59, 250000000, when, sizeof when, true);
        std::printf("2026-03-08 06:59:59.25 UTC in %-16s is %s\n", zone, when);
    }
    // A Shift_JIS row to UTF-8 through the pair's own tables, no ICU call.
    const std::string row = std::string(100, 'A') + "\x93\xfa\x96\x7b\x8c\xea";
    char out[256];
    ULibError err = ULIB_OK;
    const int bytes = ULIB_CStoCS(utf8, out, sizeof out, 0, sjis, row.data(),
                                  static_cast<int>(row.size()), false, false, &err, nullptr);
    std::printf("%zu Shift_JIS bytes to %d UTF-8 bytes, error %d; the pair's tables hold %zu bytes\n",
                row.size(), bytes, static_cast<int>(err),
                COptimizedConverter::getConverter(sjis, utf8)->memoryBytes());
}

// Writes `body` to `path` as a whole: a new file renamed over the old one,
// the way an installer or an editor replaces a file, so a watcher never reads
// half of it.
void replaceFile(const std::string& path, const std::string& body) {
    const std::string temporary = path + ".new";
    std::ofstream(temporary) << body;
    std::filesystem::rename(temporary, path);
}

// Every time in the system is a Julian timestamp: microseconds since the
// Julian epoch, shown in GMT or local time (here a named zone, so that the
// demo shows the same thing wherever it runs).
void showTime() {
    const char* zone = std::getenv("TZ");
    const std::string hostZone = zone ? zone : "";
    ::setenv("TZ", "America/New_York", 1);
    ::tzset();
    const long commit = loc_str_to_loc_jts("2026-03-08 06:59:59.250000"); // read as GMT
    short fields[8];
    const int day = INTERPRETTIMESTAMP(commit, fields);
    char gmt[JTS_STRING_BUFFER_SIZE], local[JTS_STRING_BUFFER_SIZE];
    std::printf("timestamp %ld is Julian day %d: %s GMT, %s in New York\n", commit, day,
                gmt_jts_to_string(commit, gmt, sizeof gmt), gmt_jts_to_loc_str(commit, local, 1));
    const long later = commit + 2 * 1000000L; // daylight saving starts in between
    std::printf("two seconds later it is %s there\n", gmt_jts_to_loc_str(later, local, 1));
    short err = 0;
    short bad[8] = {2026, 13, 32, 25, 0, 0, 0, 0};
    if (!COMPUTETIMESTAMP(bad, &err))
        std::printf("2026-13-32 25:00 is refused with field error bits 0x%04hX\n",
                    static_cast<unsigned short>(err));
    if (zone)
        ::setenv("TZ", hostZone.c_str(), 1);
    else
        ::unsetenv("TZ");
    ::tzset();
}

// Database numbers are a 64-bit value and a scale, the count of digits behind
// the point; the converters move them between the forms columns store.
void showNumbers() {
    // DECIMAL(7,2) -12345.67 as packed decimal: seven digits and the sign nibble D.
    const char packed[] = {'\x12', '\x34', '\x56', '\x7D'};
    long value = 0;
    if (get_packed_decimal(packed, sizeof packed, 7, &value)) {
        char text[32];
        output_binary_int(text, &value, 2, sizeof value, 1);
        std::printf("packed 12 34 56 7D with scale 2 is %ld, shown as %s\n", value, text);
    }
    short scale = 0;
    if (NUMCNV_convertTo64Bit("1234.5600", 9, &value, &scale) == 0) {
        char zoned[8], rounded[16];
        ll_to_num(value, zoned, sizeof zoned, QZ_DT_SIGN_FIRST, 0);
        NUMCNV_convertToFixedPrec("1234.5600", 9, rounded, 1, sizeof rounded);
        std::printf("\"1234.5600\" reads as %ld with scale %hd, is %.8s in a signed zoned "
                    "field, and %s to one place\n",
                    value, scale, zoned, rounded);
    }
    // A converting thread can say which column it is on: a value that no
    // 64-bit number holds is then reported against it, and still stored.
    NUMCNV_SetTableContext("SALES.ORDERS", "AMOUNT");
    short ignored = 0;
    NUMCNV_getNumeric("123456789012345678901", 21, &value, &ignored, 0);
    NUMCNV_ClearTableContext();
}

// A service's state is a JSON document: read it, change it through paths,
// write it back; a path that does not resolve says where and why.
void showJson() {
    using namespace qzs::qzlib::sca;
    JsonValue doc;
    JsonReader reader;
    const std::string text = R"({"service":"capture","paths":{"trail":"./trails/ea"},)"
                             R"("tables":[{"name":"ORDERS","rows":1200},{"name":"LINES","rows":5400}]})";
    if (!reader.parse(text, doc))
        return;
    std::printf("read: %s\n", doc.toString().c_str());
    JsonPath("/tables/[1]/rows").put(doc) = JsonValue(5460);
    JsonPath("/status/lag").put(doc) = JsonValue(2.5);
    JsonPath("/paths/trail").remove(doc);
    std::printf("table 2 is %s with %s rows\n",
                JsonPath("/tables/[1]/name").getValueAsString(doc).c_str(),
                JsonPath("/tables/[1]/rows").getValueAsString(doc).c_str());
    JsonPathError error;
    JsonPath("/tables/[7]/name").get(doc, &error);
    std::printf("/tables/[7]/name: %s at element %lu\n", error.getErrorStr(),
                error.getErrorPos());
    std::printf("written back:\n%s\n", doc.toStyledString().c_str());
    qzs::qzAdmin::TaskTime started(1700000000L, 250000u);
    JsonValue when;
    started.toJson(when);
    QZ_INFO(g_apply, "a JSON value as a log argument: %s", when);
}

// Events to a syslog collector as RFC 5424 datagrams, when one is named.
void showSyslog(const char* host) {
    if (!host) {
        std::printf("(no collector named: run qzdemo ACTIVITY_FILE --syslog=HOST[:PORT] to send "
                    "a few events)\n");
        return;
    }
    SyslogAppender* syslog = new SyslogAppender("syslog");
    syslog->setSyslogHost(host);
    syslog->setLayout(new PatternLayout("%m"));
    Logger* ops = Logger::getRepository().getLogger("demo.ops");
    ops->addAppender(*syslog);
    ops->setAdditivity(false);
    ops->setLevel(Level::Info);
    QZ_INFO(ops, "capture started for %d tables", 2);
    QZ_WARN(ops, "lag is %d seconds", 12);
    QZ_ERROR(ops, "trail %s is full", "./trails/ea");
    ops->removeAppender(*syslog);
    syslog->close();
    delete syslog;
    std::printf("three events sent to %s\n", host);
}

// A parameter file: commands over several lines, comments, a value from the
// environment and an included file, read one whole command at a time.
void showParameters() {
    const std::string dir = std::getenv("QZDEMO_HOME");
    std::ofstream(dir + "/tables.prm") << "TABLE sales.orders;   -- every order\n"
                                          "TABLE \"sales\".\"Order Lines\";\n";
    std::ofstream(dir + "/capture.prm")
        << "-- capture of the sales schema\n"
           "CAPTURE cap1\n"
           "DATABASE sales USER ?DEMO_USER, PASSWORD secret\n"
           "SKIPUSERS batch, \\\n"
           "    nightly\n"
           "OBEY "
        << dir << "/tables.prm\n";
    ::setenv("DEMO_USER", "repl_admin", 1);
    FILE* file = std::fopen((dir + "/capture.prm").c_str(), "r");
    if (!file)
        return;
    char command[1024];
    while (qzGetNextCommand(command, sizeof command, file, QZ_CMD_ECHO) > 0) {
        param_tkn_group_def* groups = nullptr;
        short count = 0;
        char error[QZ_PARAM_ERROR_SIZE];
        if (parse_tkns(command, &groups, &count, error, true)) {
            std::printf("   %d tokens:", groups[0].count);
            for (short i = 0; i < groups[0].count; ++i) {
                const bool secret = i > 0 && !std::strcmp(groups[0].tokens[i - 1].text, "PASSWORD");
                std::printf(" [%s]", secret ? "***" : groups[0].tokens[i].text);
            }
            std::printf("\n");
            free_tkns(groups, &count);
        }
    }
    std::fclose(file);
    char interval[] = "90 MINUTES";
    char error[QZ_PARAM_ERROR_SIZE];
    const int seconds = qzGetTimeInterval(interval, error, "Report interval ");
    std::printf("an interval of 90 MINUTES is %d seconds\n", seconds);
}

// A process finds its logging files by convention: "xqz-*.xml" for every
// process of the installation, then "qzlog-<application>.xml" in the
// configuration directory, watched while the process runs.
void showConfiguration() {
    using qzs::qzlib::getAppContextText;
    // The installation's own files lie under its library directory; a site's
    // under its configuration directory, and are applied after them.
    const std::string logging = getAppContextText("DirProcessLib") + "utl/logging/";
    const std::string conf = qzs::qzlib::sca::FilesysHierarchy::getInstance().get("Conf");
    std::filesystem::create_directories(logging);
    std::filesystem::create_directories(conf);
    std::printf("the installation's logging files: %s; this application's: %s\n", logging.c_str(),
                conf.c_str());
    replaceFile(logging + "xqz-demo.xml",
                "<configuration>\n"
                "  <appender name=\"console\" class=\"ConsoleAppender\">\n"
                "    <layout class=\"PatternLayout\"><param name=\"Pattern\" value=\"FILE %-5p %c "
                "- %m%n\"/></layout>\n"
                "  </appender>\n"
                "  <logger name=\"demo.apply\" additivity=\"false\">\n"
                "    <level value=\"INFO\"/><appender-ref name=\"console\"/>\n"
                "  </logger>\n"
                "</configuration>\n");
    const std::string own = conf + "qzlog-" + getAppContextText("BuildApplication") + ".xml";
    const char* quiet =
        "<configuration><logger name=\"demo.apply\" additivity=\"false\"><level value=\"WARN\"/>"
        "</logger></configuration>\n";
    replaceFile(own, quiet);

    // The library's own configurator watches the file every 100 ms.
    QZLOG_Enable(nullptr, 100);
    QZ_WARN(g_apply, "qzlog-extract.xml holds demo.apply at %s",
            Level::getName(g_apply->getEffectiveLevel()));
    QZ_INFO(g_apply, "so this INFO line is not printed");

    replaceFile(
        own,
        "<configuration><logger name=\"demo.apply\" additivity=\"false\"><level value=\"debug\"/>"
        "</logger></configuration>\n");
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (g_apply->getEffectiveLevel() != Level::Debug &&
           std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    QZ_DEBUG(g_apply, "the file was rewritten while the process ran: demo.apply is now at %s",
             Level::getName(g_apply->getEffectiveLevel()));
}

// Gives the demo an installation tree of its own: a fresh temporary home named
// by XQZ_HOME. The directory map is read when the library loads, before main,
// so the demo starts itself again with that environment.
void becomeInstalled(char** argv) {
    if (std::getenv("QZDEMO_HOME"))
        return;
    char home[] = "/tmp/qzdemo-XXXXXX";
    if (!::mkdtemp(home))
        return;
    ::setenv("QZDEMO_HOME", home, 1);
    ::setenv("XQZ_HOME", home, 1);
    // bin and lib side by side make it the standard layout, not the legacy one.
    std::filesystem::create_directories(std::string(home) + "/bin");
    std::filesystem::create_directories(std::string(home) + "/lib");
    ::execv("/proc/self/exe", argv);
}

} // namespace

int main(int argc, char** argv) {
    // A bare file name would go to the log directory of the installation.
    const std::string activityPath =
        std::filesystem::absolute(argc > 1 ? argv[1] : "qzdemo-activity.bin");
    if (argc > 1)
        argv[1] = const_cast<char*>(activityPath.c_str());
    const char* syslogHost = nullptr;
    for (int i = 2; i < argc; ++i)
        if (std::strncmp(argv[i], "--syslog=", 9) == 0)
            syslogHost = argv[i] + 9;
    becomeInstalled(argv);
    const char* activityFile = activityPath.c_str();

    // Every event also lands as tokens in its thread's binary buffer; an
    // appender with a BinaryLayout receives whole buffers and keeps them as an
    // activity file, which the retrace tool replays as text.
    FileAppender* binary = new FileAppender("activity");
    binary->setFile(activityFile);
    binary->setLayout(new BinaryLayout());
    Logger::getRepository().getRootLogger()->addAppender(*binary);

    // What the process knows of itself: its build symbols (defined for this
    // demo in tools/buildcontext/BuildContext.cpp), the process, its
    // directories and its service deployment, all from the application context.
    using qzs::qzlib::getAppContextText;
    std::printf("== 0. Who this process is\n%s %s (%s), process %s, logs in %s, deployment %s\n\n",
                getAppContextText("BuildProgramString").c_str(),
                getAppContextText("BuildVersion").c_str(), getAppContextText("BuildConfig").c_str(),
                getAppContextText("ProcessID").c_str(), getAppContextText("DirProcessLog").c_str(),
                getAppContextText("ScaDeploymentName").c_str());

    std::printf("== 1. BasicConfigurator: a console appender on the root, pattern \"%%r [%%t] %%p "
                "%%c - %%m%%n\"\n");
    BasicConfigurator::configure();
    Logger* root = Logger::getRepository().getRootLogger();
    QZ_WARN(root, "the root logs at WARN and above; INFO and DEBUG stay silent");
    QZ_INFO(root, "so this INFO line is not printed");
    QZ_ERROR(root, "an ERROR passes too");

    std::printf(
        "\n== 2. Levels inherit down the tree: demo.capture at DEBUG, its reader inherits\n");
    g_capture->setLevel(Level::Debug);
    QZ_DEBUG(g_reader, "reader effective level is %s",
             Level::getName(g_reader->getEffectiveLevel()));

    std::printf(
        "\n== 3. A second appender with its own pattern, and additivity switched off for audit\n");
    ConsoleAppender* audit =
        new ConsoleAppender("audit", stdout, new PatternLayout("AUDIT %-5p %c{1}: %m%n"));
    g_audit->addAppender(*audit);
    g_audit->setAdditivity(false);
    g_audit->setLevel(Level::Info);
    QZ_INFO(g_audit, "user %s changed parameter %s to %d", "admin", "MAXTRANS", 500);

    std::printf("\n== 4. A filter chain: only WARN and above that mention \"finished\" pass the "
                "detailed appender\n");
    ConsoleAppender* detailed = new ConsoleAppender(
        "detailed", stdout, new PatternLayout("DETAIL %d{%H:%M:%S} [%-8t] %-5p %.12c %l - %m%n"));
    detailed->addFilter(new LevelRangeFilter(Level::Warn, Level::Fatal, Filter::Neutral));
    detailed->addFilter(new StringMatchFilter("finished", Filter::Accept));
    detailed->addFilter(new DenyAllFilter());
    g_capture->addAppender(*detailed);

    std::printf("\n== 5. Two threads log through the same appenders\n");
    std::thread first(worker, "reader-1", 4);
    first.join();
    std::thread second(worker, "reader-2", 2);
    second.join();

    std::printf("\n== 6. Arguments are stored raw and formatted only for text output\n");
    const unsigned char bytes[] = "raw bytes\x01\x02\x03 and more raw bytes to fill a second line";
    QZ_INFO(g_capture, "a pointer %p, hex %x, a float %8.3f, raw data: %s", &bytes, 48879, 3.14159f,
            LoggingRawData(bytes, sizeof bytes - 1));
    QZ_INFO(g_capture, "too few arguments: %d %d", 1);
    QZ_INFO(g_capture, "an unknown conversion: %q", 1);

    std::printf("\n== 7. Text keeps its bytes until somebody reads it; formats, zones, pairs\n");
    showText();

    std::printf(
        "\n== 8. Numbered messages from the catalogue (the host's own are in extract.dat)\n");
    showMessages();

    std::printf(
        "\n== 9. Logging files found by convention, and one rewritten while the process runs\n");
    showConfiguration();

    std::printf("\n== 10. Julian timestamps in GMT and local time\n");
    showTime();

    std::printf("\n== 11. Database numbers: packed, zoned and text forms\n");
    showNumbers();

    std::printf("\n== 12. A parameter file read command by command, and its tokens\n");
    showParameters();

    std::printf("\n== 13. A JSON document read, edited through paths and written back\n");
    showJson();

    std::printf("\n== 14. Syslog\n");
    showSyslog(syslogHost);

    std::printf("\n== 15. The summary report\n");
    std::string report;
    Logger::getRepository().getSummaryReport(report);
    std::fputs(report.c_str(), stdout);

    // Deliver the buffers still open and close the activity file.
    Appender::flushOutput();
    binary->close();
    std::printf("\n== 16. The binary activity of this run is in %s\n", activityFile);
    if (const char* home = std::getenv("QZDEMO_HOME"))
        std::filesystem::remove_all(home);
    return 0;
}
