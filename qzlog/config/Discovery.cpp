//===- qzlog/config/Discovery.cpp - Logging files found by convention -----===//
//
// The directories and names a process looks in for its logging files, and
// the entry point a host calls once its context is set up.
//
//===----------------------------------------------------------------------===//
#include "qzlog/config/Discovery.h"

#include "qzlog/Logger.h"
#include "qzlog/LoggerRepository.h"
#include "qzlog/config/DOMConfigurator.h"
#include "qzlog/detail/ConfigurationSeam.h"
#include "qzmsg/CAppContext.h"
#include "qzstd/FileList.h"
#include "qzstd/FilesysHierarchy.h"
#include "qzstd/Memory.h"

#include <cstring>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace qzs {
namespace qzlib {
namespace qzlog {

namespace {

std::string asDirectory(std::string path) {
    if (!path.empty() && path.back() != '/')
        path += '/';
    return path;
}

int byName(const void* a, const void* b) {
    return std::strcmp(static_cast<const file_info_def*>(a)->name,
                       static_cast<const file_info_def*>(b)->name);
}

} // namespace

void loadConfigurationFiles(const char* prefix) {
    // Read once: the directories of the process do not move while it runs.
    // Never destroyed: a watch thread may still reset while the process exits.
    static const std::string* const directories = new std::string[2]{
        asDirectory(getAppContextText("DirProcessLib")) + "utl/logging/",
        asDirectory(getAppContextText("DirProcessConfLogging")),
    };
    for (int d = 0; d < 2; ++d) {
        const std::string& directory = directories[d];
        struct stat info;
        // A missing directory is an empty one, and says nothing.
        if (directory.size() <= 1 || ::stat(directory.c_str(), &info) != 0 ||
            !S_ISDIR(info.st_mode))
            continue;
        const std::string pattern = directory + (prefix ? prefix : "") + "*.xml";
        file_info_def* list = nullptr;
        int count = 0;
        if (qzGetFileList(pattern.c_str(), &list, &count, byName, 0, 0) != 0)
            continue;
        for (int i = 0; i < count; ++i) {
            DOMConfigurator configurator;
            configurator.configure(list[i].name);
        }
        qzFree(list);
    }
}

namespace detail {
void applyConfigurationFiles(const char* prefix) {
    loadConfigurationFiles(prefix);
}
} // namespace detail

const char* getLoggerName(const char* name) {
    static std::string dotted;
    dotted = name ? name : "";
    for (char& c : dotted)
        if (c == '_')
            c = '.';
    return dotted.c_str();
}

} // namespace qzlog
} // namespace qzlib
} // namespace qzs

using qzs::qzlib::qzlog::DOMConfigurator;

void QZLOG_Enable(DOMConfigurator* configurator, unsigned int interval) {
    using namespace qzs::qzlib;
    qzlog::Logger::getRepository().loadConfiguration();
    // Built once: the instance and application do not change, and the watch
    // thread keeps looking for the first of these in this order.
    static const std::vector<std::string> paths = [] {
        std::vector<std::string> names;
        for (const char* item : {"AppInstance", "BuildApplication"}) {
            const std::string value = getAppContextText(item);
            if (!value.empty())
                names.push_back("qzlog-" + value + ".xml");
        }
        names.push_back("qzlog.xml");
        const std::string conf =
            qzlog::asDirectory(sca::FilesysHierarchy::getInstance().get("Conf"));
        for (std::string& name : names)
            name = conf + name;
        return names;
    }();
    std::vector<const char*> names;
    for (const std::string& p : paths)
        names.push_back(p.c_str());
    // Decision: a host that passes no configurator gets one of the
    // library's, which lives (and watches) for the rest of the process.
    if (!configurator) {
        static DOMConfigurator* own = new DOMConfigurator();
        configurator = own;
    }
    if (qzlog::qzlogIsSingleThreaded())
        configurator->configure(names.data(), names.size());
    else
        configurator->configureAndWatch(names.data(), names.size(), interval);
}
