//===- qzmsg/CAction.h - What a severity does ------------------*- C++ -*-===//
//
// An action is one step a severity runs when a message of that severity is
// issued: print it, log it, store it in the thread's error context, throw it,
// or end the process. The catalogue names a severity's actions in order.
//
//===----------------------------------------------------------------------===//
#ifndef QZMSG_CACTION_H
#define QZMSG_CACTION_H

#include "qzmsg/CMessageFactory.h"
#include "qzstd/Export.h"

namespace qzs {
namespace qzlib {

class CContext;
class CContextItem;

/// One step of a severity. Holds no state after Load, so it may run on any
/// thread.
///
/// | Name | Attribute | Step |
/// |---|---|---|
/// | Report | 4 | prints "<code>: <text>" to stdout |
/// | ReportSourceContext, ReportAllContext, ReportMemory | 4 | print contexts and resources |
/// | RecordMessage | 4 | hands the message to the optional "qzrepo" module |
/// | Log | 4 | logs "<code>: <text>" to "qzmsg.action" at INFO |
/// | Pause, Debug | 2 | nothing on this platform; false |
/// | End | 1 | exit(12) |
/// | Core, Bundle | 4 | nothing on this platform; false |
/// | QZInfo, QZWarn, QZError | 4 | the console line and the error log (issueMessage) |
/// | QZInfoNoReport | 4 | the error log only |
/// | ThrowException | 4 | throws QZException |
/// | StoreMessage | 4 | keeps a copy in the thread's error context |
/// | QZFatalErrorAbend | 1 | saves every activity buffer, then processFatalError |
class QZ_API CAction {
public:
    typedef bool (CAction::*Handler)(CMessage const*) const;
    /// A host's own step: receives CreateCustomActionMessage's block.
    typedef bool (*CustomFunction)(char const* block);

    CAction();
    /// A custom action: runs `function` under the name `customName`.
    CAction(char const* customName, CustomFunction function);
    virtual ~CAction();
    CAction(const CAction&) = delete;
    CAction& operator=(const CAction&) = delete;

    /// Copies both names. With `custom`, false at once (a custom action is
    /// made with its function). Otherwise matches `actionName` exactly; an
    /// unknown name gives false and leaves an action that does nothing.
    bool Load(char const* actionName, char const* custom);
    /// Runs the step; its result. Virtual so that a host (or a test) can add
    /// a step that sees the whole message, beyond the custom function's block.
    virtual bool Execute(CMessage const* message) const;
    CActionAttribute GetAttribute() const { return attribute; }
    char const* GetName() const { return name; }

    /// Prints by printf rules to the report stream when the message reports.
    void Print(CMessage const* message, char const* format, ...) const
        __attribute__((format(printf, 3, 4)));
    /// Prints one item, "  <name>: <type>[<value>]", arrays element by element.
    void ReportItem(CMessage const* message, CContextItem const* item, bool showType,
                    bool showName) const;
    /// Prints every item of `context` and of the contexts chained to it.
    void ReportContext(CMessage const* message, CContext const* context, bool showType) const;

    bool Report(CMessage const* message) const;
    bool ReportSourceContext(CMessage const* message) const;
    bool ReportAllContext(CMessage const* message) const;
    bool ReportMemory(CMessage const* message) const;
    bool RecordMessage(CMessage const* message) const;
    bool Log(CMessage const* message) const;
    bool Pause(CMessage const* message) const;
    bool Debug(CMessage const* message) const;
    bool End(CMessage const* message) const;
    bool Core(CMessage const* message) const;
    bool Bundle(CMessage const* message) const;
    bool QZInfo(CMessage const* message) const;
    bool QZInfoNoReport(CMessage const* message) const;
    bool QZWarn(CMessage const* message) const;
    bool QZError(CMessage const* message) const;
    bool ThrowException(CMessage const* message) const;
    bool StoreMessage(CMessage const* message) const;
    bool QZFatalErrorAbend(CMessage const* message) const;

private:
    // The console line (unless `console` is false) and the error log record
    // of a reported message, at `level`.
    bool legacyReport(CMessage const* message, unsigned char level, bool console) const;

    char* name;
    char* customName;
    Handler handler;
    CustomFunction customFunction;
    CActionAttribute attribute;
};

} // namespace qzlib
} // namespace qzs

#endif // QZMSG_CACTION_H
