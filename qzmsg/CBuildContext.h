//===- qzmsg/CBuildContext.h - What the host says it is --------*- C++ -*-===//
//
// The application, version and build of the host program, read from the
// BuildContext_ symbols the host defines, and the program string and type
// derived from them.
//
//===----------------------------------------------------------------------===//
#ifndef QZMSG_CBUILDCONTEXT_H
#define QZMSG_CBUILDCONTEXT_H

#include "qzmsg/CContext.h"

#include <string>

namespace qzs {
namespace qzlib {

/// Items: one for each BuildContext_ symbol the host defines (BuildApplication,
/// BuildVersion, BuildConfig, BuildHostName, BuildDBMS, BuildDBMSVersion,
/// BuildOS, BuildOSArch: `char*` variables whose text is copied;
/// BuildDateTime: the symbol's address), then BuildProgramString and
/// BuildProgramType.
///
/// A host defines them as, for example,
///   extern "C" const char* BuildContext_BuildApplication = "mgr";
/// A symbol the host does not define gives no item. Decision: a host that
/// defines neither BuildApplication nor BuildDBMS is not refused; its program
/// string reads "Unknown Application - please modify qzlog/msgContext" with
/// no database part, and its type is 0.
class QZ_API CBuildContext : public CContext {
public:
    CBuildContext();

    /// Adds BuildProgramString and BuildProgramType from BuildApplication and
    /// BuildDBMS (see programString).
    void SetProgramItems();

    /// "Zorvex Quartzgate " and the program's description by its exact
    /// application name, then " for " and the database's display name when
    /// `dbms` begins with a known key (DB2400 before DB2) and is not "None".
    /// `type` gets the program type, 0 for an unknown application. Null
    /// arguments count as unknown and as "None".
    static std::string programString(char const* application, char const* dbms, unsigned int& type);
};

} // namespace qzlib
} // namespace qzs

#endif // QZMSG_CBUILDCONTEXT_H
