//===- qzmsg/CErrorContext.h - A thread's error state ----------*- C++ -*-===//
//
// Each thread's last operating system error and its application error
// message, as context items that every message context of the thread chains
// to. The pending and stored messages it also keeps are the message layer's
// to fill and issue.
//
//===----------------------------------------------------------------------===//
#ifndef QZMSG_CERRORCONTEXT_H
#define QZMSG_CERRORCONTEXT_H

#include "qzmsg/CContext.h"
#include "qzmsg/CMessageFactory.h"

#include <string>
#include <vector>

namespace qzs {
namespace qzlib {

class CMessage;

/// Items: ErrAppErrorMessage (a pointer, null at start), ErrAppErrorText (""),
/// ErrOSErrorCode (0), ErrOSErrorText (""). The two texts are filled when
/// they are looked up: the system's text of ErrOSErrorCode, and the text of
/// the application error message.
///
/// Lifetime: one a thread, made at its first GetContext() and deleted when
/// the thread ends; never deleted with a parent. Thread safety: private to
/// its thread.
class QZ_API CErrorContext : public CContext {
public:
    CErrorContext();
    /// Deletes the pending messages and tells the default factory.
    ~CErrorContext() override;
    /// The calling thread's context, made at first use. errno is left as it
    /// was.
    static CErrorContext* GetContext();

    /// Takes a pending message (AddMessage), except while Issue runs, so
    /// that an action cannot feed the list it walks: then it is ignored.
    CErrorContext& operator+=(CMessage* message);
    /// Appends a pending message and takes ownership. The application error
    /// message itself is copied first, so that each is owned once.
    void AddMessage(CMessage* message);
    /// Whether `message` is pending here (by pointer).
    bool Exists(CMessage const* message) const;
    /// Deletes pending messages `first` to `last` (clamped to the end).
    void erase(size_t first, size_t last);
    /// Deletes every pending message and the application error message.
    void Clear();
    /// The text of pending message `index` (negative: the last); null out of
    /// range.
    char const* Format(int index, qzunicode::ULibCharSet charSet);
    /// Issues the pending messages, newest first, in three passes (normal
    /// steps, then stop-and-look, then terminal). After a pass with a
    /// failure no further pass runs and the list stays; otherwise it is
    /// emptied. Whether every action succeeded.
    bool Issue();
    /// Moves another thread's pending and stored messages here, in order.
    /// Both threads must be quiet.
    void Transfer(CErrorContext& from);

    /// Fills the two texts before answering for them; every other ID is
    /// looked up as usual.
    CContextItem* GetItem(ContextItemID id) const override;
    /// Assigns `value` under the item's lock when the item exists, otherwise
    /// adds a new item. Always true.
    bool SetItem(ContextItemID id, const CDataItem& value);
    /// errno.
    static unsigned int OSErrorCode();
    /// The system's text of `code`, or of errno when `code` is 0.
    static std::string OSErrorText(unsigned int code);

    /// Replaces (deleting) the application error message; takes ownership.
    void SetAppErrorMessage(CMessage* message);
    CMessage* GetAppErrorMessage() const;
    void ClearAppErrorMessage();
    /// The text of the application error message; "" when there is none.
    std::string GetAppErrorText(qzunicode::ULibCharSet charSet = FactoryCharSet) const;

    /// Pending messages (owned), whether they are being issued, and the
    /// messages that StoreMessage kept (owned).
    std::vector<CMessage*> messages;
    bool issuing;
    std::vector<CMessage*> storedMessages;

private:
    CContextItem* appErrorMessage;
    CContextItem* appErrorText;
    CContextItem* osErrorCode;
    CContextItem* osErrorText;
    mutable std::string osText;
    mutable std::string appText;
};

/// Stores errno, read first, as the calling thread's ErrOSErrorCode.
QZ_API void SaveOSErrorContext();

} // namespace qzlib
} // namespace qzs

#endif // QZMSG_CERRORCONTEXT_H
