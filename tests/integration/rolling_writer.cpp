//===- tests/integration/rolling_writer.cpp - One process of the roll test -===//
//
// rolling_writer FILE PROCESS THREADS LINES MAXSIZE
//
// Logs LINES numbered lines from each of THREADS threads through one
// RollingFileAppender shared (by file name) with the other processes of the
// test, then exits.
//
//===----------------------------------------------------------------------===//
#include <qzlib.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

using namespace qzs::qzlib::qzlog;

int main(int argc, char** argv) {
    if (argc != 6) {
        std::fprintf(stderr, "usage: rolling_writer FILE PROCESS THREADS LINES MAXSIZE\n");
        return 2;
    }
    const int process = std::atoi(argv[2]);
    const int threads = std::atoi(argv[3]);
    const int lines = std::atoi(argv[4]);

    RollingFileAppender* out = new RollingFileAppender("shared");
    out->setFile(argv[1]);
    out->setAppend(true);     // processes share the file: append, never truncate
    out->setBufferedIO(false); // one write per line, so lines never tear
    out->setMaxBackupIndex(10000);
    out->setMaxFileSize(argv[5]);
    out->setLayout(new PatternLayout("%m%n"));
    Logger* logger = Logger::getRepository().getLogger("rolling.writer");
    logger->addAppender(*out);
    logger->setLevel(Level::Info);

    const std::string padding(60, '.');
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t)
        workers.emplace_back([&, t] {
            for (int i = 0; i < lines; ++i)
                QZ_INFO(logger, "P%d T%d S%06d %s", process, t, i, padding.c_str());
        });
    for (auto& w : workers)
        w.join();
    out->close();
    return 0;
}
