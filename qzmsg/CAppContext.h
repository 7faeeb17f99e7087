//===- qzmsg/CAppContext.h - The application -------------------*- C++ -*-===//
//
// The process's one application context: the instance name, when it started,
// whether it is running normally, and, chained to it, the build, process,
// file system and service contexts. Every message context chains to it.
//
//===----------------------------------------------------------------------===//
#ifndef QZMSG_CAPPCONTEXT_H
#define QZMSG_CAPPCONTEXT_H

#include "qzmsg/CContext.h"

#include <string>

namespace qzs {
namespace qzlib {

/// Items: AppInstance and AppInstanceDescription ("" at start), AppStartTime,
/// AppOperatingNormally (true at start); chained: CBuildContext,
/// CProcessContext, CFileSysContext, CScaContext, in that order.
///
/// Lifetime: made once by getAppContext() and never deleted (deleteWithParent
/// is false). Thread safety: shared by every thread; SetItem and AddTerms may
/// run on any of them, other changes happen while it is built.
class QZ_API CAppContext : public CContext {
public:
    CAppContext();

    /// Copies `text` into the item under its lock, or adds a new owned item.
    /// Always true.
    bool SetItem(ContextItemID id, char const* text);
    /// Adds the eight application terms (items with IDs that have no name),
    /// whose texts are catalogue strings chosen by BuildDBMS.
    void AddTerms();
};

/// The process's application context, made at the first call from any thread.
QZ_API CAppContext* getAppContext();

/// The value of the application context's item `name` as text, read under
/// the item's lock: a string as it is, a number in decimal, a bool as "true"
/// or "false"; "" when the item is absent or holds another kind of value. Makes the context on
/// first use.
QZ_API std::string getAppContextText(char const* name);

/// The executable's base name (ProcessExecutableBase), read from a process
/// context made for the call; the text lives in a process-wide buffer.
QZ_API char const* getProcessExecutableBase();

} // namespace qzlib
} // namespace qzs

#endif // QZMSG_CAPPCONTEXT_H
