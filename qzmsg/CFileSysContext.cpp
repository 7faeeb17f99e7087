//===- qzmsg/CFileSysContext.cpp - The process's directories --------------===//
#include "qzmsg/CFileSysContext.h"

#include "qzmsg/CProcessContext.h"
#include "qzstd/FilesysHierarchy.h"

namespace qzs {
namespace qzlib {

namespace {
// Each item's name, and the key of the directory map it shows: the name
// without its "DirProcess" prefix.
char const* const kItems[] = {
    "DirProcessHome",    "DirProcessBin",     "DirProcessLib",         "DirProcessHtDocs",
    "DirProcessConf",    "DirProcessConfXqz", "DirProcessConfLogging", "DirProcessSSL",
    "DirProcessLibConf", "DirProcessData",    "DirProcessDb",          "DirProcessSql",
    "DirProcessRun",     "DirProcessLog",     "DirProcessLock",        "DirProcessUserHome",
    "DirProcessCheckPt", "DirProcessReport",  "DirProcessTemp",        "DirProcessDef",
    "DirProcessDmp",     "DirProcessWlt",     "DirProcessCrd",         "DirProcessDistPaths",
    "DirProcessGlobals",
};
constexpr size_t kPrefix = sizeof "DirProcess" - 1;
} // namespace

CFileSysContext::CFileSysContext() {
    sca::FilesysHierarchy& map =
        sca::FilesysHierarchy::getInstance(CProcessContext::getExecutableDir());
    // The map's entries never move (std::map nodes), so the items borrow them.
    for (char const* name : kItems)
        AddItem(new CContextItem(GetContextItemID(name), map.get(name + kPrefix).c_str(), false));
    AddItem(new CContextItem(GetContextItemID("DirStructureIsLegacy"), map.isLegacy()));
}

} // namespace qzlib
} // namespace qzs
