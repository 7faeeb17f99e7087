//===- qzmsg/CMessageFactory.h - The message catalogue and its rules -*- C++ -*-===//
//
// The factory owns the compiled catalogue "qzMessage", the severities and
// their actions, the issue limits and the report of repeated messages. One
// default factory serves the process; it loads at the first message.
//
//===----------------------------------------------------------------------===//
#ifndef QZMSG_CMESSAGEFACTORY_H
#define QZMSG_CMESSAGEFACTORY_H

#include "qzstd/CDataItem.h"
#include "qzstd/Export.h"
#include "qzunicode/CharSetTable.h"

#include <cstddef>
#include <cstdint>
#include <new>
#include <vector>

#include <unicode/locid.h>

U_NAMESPACE_BEGIN
class ResourceBundle;
U_NAMESPACE_END

namespace qzs {
namespace qzlib {

class CAction;
class CErrorContext;
class CMessage;
class CMessageSeverity;
class CSourceContext;
class CMessageFactoryImpl;

/// The version of the catalogue this library was built with; a bundle whose
/// "UUID" differs is refused.
QZ_API extern char const qzMessage_UUID[];

/// As a character set argument of the message layer: the factory's own
/// default set (which is otherwise an invalid set number).
constexpr qzunicode::ULibCharSet FactoryCharSet = qzunicode::ULIB_CS_INVALID;

/// Which process kinds report a message (see ParallelKind).
typedef uint32_t CMessageReportType;

/// What ProcessMessage does with a message: 0 issues and disposes of it, 1
/// hands it back to the caller, who then owns it.
enum MessageDisposition { IssueAndDispose = 0, ReturnToCaller = 1 };

/// The bits of an action's attribute: 4 a normal step, 2 stop and look, 1 a
/// terminal step. 65535 selects all of them.
typedef uint32_t CActionAttribute;
constexpr CActionAttribute AllActionAttributes = 65535;

/// The catalogue, the severities and the actions of the process.
///
/// Thread safety: templates load on demand under a lock; severities, classes
/// and limits are written by Load and then only read (CanIssue's count moves
/// without a lock, so a limit can be overrun by a racing thread, never
/// underrun). The default factory pointer is meant to be set before threads
/// start, or left to its first use.
class QZ_API CMessageFactory {
public:
    CMessageFactory();
    virtual ~CMessageFactory();
    CMessageFactory(const CMessageFactory&) = delete;
    CMessageFactory& operator=(const CMessageFactory&) = delete;

    /// The installed factory; made and loaded with "qzMessage" at first use.
    /// A catalogue that cannot be loaded ends the process (abort), after the
    /// logger repository is shut down: the library cannot report anything
    /// without it.
    static CMessageFactory* GetDefaultFactory();
    /// The installed factory, or null: never loads one.
    static CMessageFactory* GetDefaultFactoryIfLoaded();
    /// Installs `factory`, which the caller keeps owning. Deletes the old
    /// default only when this library made it.
    static void SetDefaultFactory(CMessageFactory* factory);

    /// Finds and opens the bundle `name`: the application's own
    /// "<BuildApplication>.dat" in the library, executable and working
    /// directories, then `name` on ICU's data path extended by those three.
    /// Prints the reason to stderr and answers false on failure; false at once
    /// when a bundle is already open.
    bool Load(char const* name);
    /// Takes `bundle` (owned from here on) as the catalogue `name`: checks its
    /// "UUID", then reads its severities, class and code rules and limits.
    /// What Load does once it has opened the bundle, for a host that opens
    /// its own. False when a bundle is open already, or when this one is not
    /// a catalogue of this version (the reason goes to stderr).
    bool UseBundle(icu::ResourceBundle* bundle, char const* name);
    /// Reads the whole file into memory, replacing what was read before; true
    /// when every byte was read, otherwise nothing is kept.
    bool LoadICUBundle(char const* path);
    /// Writes "<dir>/<name>.dat" into `out`, which must be large enough.
    static void GetICUBundleName(char const* name, char const* dir, char* out);

    const icu::Locale& GetLocale() const;
    void SetLocale(const icu::Locale& locale);
    std::vector<CAction*>& GetActions();
    CMessageReportType GetReportType() const;
    void SetReportType(CMessageReportType type);
    void SetDefaultCharacterSet(qzunicode::ULibCharSet cs);
    /// `cs`, except that 0x20000000 (the caller's "default") gives the
    /// factory's own.
    qzunicode::ULibCharSet GetDefaultCharacterSet(qzunicode::ULibCharSet cs) const;
    operator icu::ResourceBundle*() const;

    /// The severity of that name, or null.
    CMessageSeverity* GetSeverity(char const* name) const;
    /// The severity for a class and, when given, a code: the code's own when
    /// it has one, else the class default; null for an unknown class.
    CMessageSeverity const* GetSeverity(char const* cls, char const* code) const;
    /// Assigns a known severity to a class (the first assignment becomes the
    /// class default) or, with `code`, to one code of it. False for an
    /// unknown severity.
    bool SetSeverity(char const* cls, char const* code, char const* severity);
    void SetAlternateSeverity(char const* name, CMessageSeverity const* alternate);

    /// Factory-wide actions, run before the severity's for every message.
    /// The factory does not own them.
    void AddAction(CAction* action);
    /// Removes every occurrence, without deleting; whether any was there.
    bool DeleteAction(CAction* action);
    void ClearActions();

    /// Limits message `id` to `max` issues. False, and no change, when it has
    /// a limit already.
    bool SetMaxIssue(unsigned int id, unsigned int max);
    /// Whether `id` may still be issued; with `consume`, uses one issue.
    bool CanIssue(unsigned int id, bool consume) const;

    void SuppressDuplicateMessages(bool suppress);
    /// The host's choice through `_qzGetConfig`; true when it has none.
    static bool GetSuppressDuplicateMessages();
    /// Names the severity that the repetition report of message `id` gives,
    /// when `id` is the message being watched for repeats. `text` must live
    /// as long as the factory (a literal label, in practice).
    bool SetReportedSeverity(unsigned int id, char const* text);

    /// A copy of `text` that stays valid for the next 15 calls on the calling
    /// thread; the 16th frees it.
    char const* CacheString(char const* text) const;

    /// Forgets a dying thread's error context.
    void RemoveContext(CErrorContext const* context);

    /// A service stores what a command would print: the informational,
    /// warning and error severities run "QZStore" instead, and duplicate
    /// suppression is turned off.
    static void RunningAsService();

    /// While one lives, a fatal message throws QZException (reported or not)
    /// instead of ending the process.
    class QZ_API FatalErrorAsException {
    public:
        explicit FatalErrorAsException(bool report);
        ~FatalErrorAsException();
        FatalErrorAsException(const FatalErrorAsException&) = delete;
        FatalErrorAsException& operator=(const FatalErrorAsException&) = delete;
    };

    /// The text of catalogue entry `id` when it takes no details, formatted
    /// once and then kept, as a copy in the thread's string cache (valid for
    /// the next 15 texts); null when it has details or no bundle is open.
    char const* PlainText(unsigned int id);
    /// A message of `id` with no details yet, or null when no bundle is open.
    /// Takes ownership of `source`. An ID the catalogue lacks ends the process.
    CMessage* CreateMessageInit(CSourceContext* source, unsigned int id);
    /// A message of `id` whose named details are read from the variable
    /// arguments, by each detail's argument type, and whose other details
    /// come from its contexts. The arguments must match the template.
    CMessage* CreateMessage(CSourceContext* source, unsigned int id, ...);
    /// As above with the arguments as items, in the template's order. Too few
    /// items are filled with "<Missing>" (or 0 for a number); extra items are
    /// ignored. The safe form: the generated _MSG_ functions use it.
    CMessage* CreateMessageFromItems(CSourceContext* source, unsigned int id,
                                     const CDataItem* items, std::size_t count);
    /// A new message with the same ID and details and a copy of the source.
    CMessage* CreateMessage(CMessage const* message);
    /// Adds the thread's context unless the message's severity needs none.
    void CreateMessageAddThreadCtx(CMessage* message);
    /// Applies duplicate suppression and the issue limit, then issues and
    /// deletes the message (disposition 0) or hands it back (1). Null except
    /// for disposition 1.
    CMessage* ProcessMessage(CMessage* message, MessageDisposition disposition);

    /// Reports the repeats of the watched message, if any (message 1971).
    void RepetitionReport();

    /// The clock of the repetition thread, in milliseconds: it waits on the
    /// wake event for at most the given time. Tests install a clock that
    /// returns at once to see the 30 s, 2 min and 10 min steps without
    /// waiting; null restores the real wait. Returns the previous clock.
    typedef bool (*RepetitionWait)(void* wakeEvent, unsigned int milliseconds);
    static RepetitionWait SetRepetitionWait(RepetitionWait wait);

    CMessageFactoryImpl* impl;
};

/// Guards an allocation so that running out of memory can still be
/// reported: it installs a new-handler that frees a reserve set aside at
/// load time and lets the allocation retry. With no reserve left the logger
/// repository is shut down and the process aborts.
class QZ_API CMessageNewHandler {
public:
    CMessageNewHandler();
    ~CMessageNewHandler();
    CMessageNewHandler(const CMessageNewHandler&) = delete;
    CMessageNewHandler& operator=(const CMessageNewHandler&) = delete;
    static void NewHandler();

private:
    std::new_handler previous;
};

} // namespace qzlib
} // namespace qzs

#endif // QZMSG_CMESSAGEFACTORY_H
