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

    /// The calling thread's context, made at first use. errno is left as it
    /// was.
    static CErrorContext* GetContext();

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

    /// The text of the application error message; "" when there is none.
    /// Kept empty until messages format themselves.
    std::string GetAppErrorText() const;

    /// Pending messages, whether they are being issued, and stored messages.
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
