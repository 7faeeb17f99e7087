// A host that finds its logging files by convention and prints what they
// set. The discovery test runs it under chosen environments, since the
// logging directories are read once per process.
//
//   config_discovery dirs                   its logging directories
//   config_discovery load [sca] logger...   the conventional search ("sca":
//                                           with an SCALoggingMode item)
//   config_discovery enable logger...       QZLOG_Enable
//
// After a search, one "logger=LEVEL" line per logger named.
#include <qzlib.h>

#include "qzlog/config/DOMConfigurator.h"
#include "qzlog/config/Discovery.h"

#include <cstdio>
#include <string>

using namespace qzs::qzlib;

int main(int argc, char** argv) {
    if (argc < 2)
        return 2;
    const std::string mode = argv[1];
    if (mode == "dirs") {
        for (const char* item : {"DirProcessLib", "DirProcessConfLogging", "DirProcessConf"})
            std::printf("%s=%s\n", item, getAppContextText(item).c_str());
        return 0;
    }
    int first = 2;
    qzlog::DOMConfigurator configurator;
    if (mode == "load") {
        if (argc > 2 && std::string(argv[2]) == "sca") {
            getAppContext()->AddItem(
                new CContextItem(CContext::GetContextItemID("SCALoggingMode"), "true", false));
            ++first;
        }
        qzlog::Logger::getRepository().loadConfiguration();
    } else if (mode == "enable") {
        QZLOG_Enable(&configurator, 50);
    } else {
        return 2;
    }
    for (int i = first; i < argc; ++i) {
        const qzlog::Logger* logger = qzlog::Logger::getRepository().getLogger(argv[i]);
        std::printf("%s=%s\n", argv[i], qzlog::Level::getName(logger->getLevel()));
    }
    return 0;
}
