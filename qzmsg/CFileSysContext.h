//===- qzmsg/CFileSysContext.h - The process's directories -----*- C++ -*-===//
//
// The directory map (FilesysHierarchy) as context items, so that a message
// or a file name can name the log, dump or configuration directory.
//
//===----------------------------------------------------------------------===//
#ifndef QZMSG_CFILESYSCONTEXT_H
#define QZMSG_CFILESYSCONTEXT_H

#include "qzmsg/CContext.h"

namespace qzs {
namespace qzlib {

/// The 25 DirProcess items (DirProcessHome, DirProcessBin, ... DirProcessLog,
/// DirProcessDmp, ... DirProcessGlobals), each borrowing the directory map's
/// entry of its name without the prefix ("Log", "Dmp", ...; an absent key is
/// created empty), and DirStructureIsLegacy. The map is the process's one
/// instance, built for the executable's directory.
class QZ_API CFileSysContext : public CContext {
public:
    CFileSysContext();
};

} // namespace qzlib
} // namespace qzs

#endif // QZMSG_CFILESYSCONTEXT_H
