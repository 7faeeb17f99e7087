//===- qzstd/MessageSeam.h - How the lower floors raise messages -*- C++ -*-===//
//
// Threads, locks, memory, files and converters report their faults as
// catalogue messages, but the message layer sits above them and is built on
// them. They reach it through the two calls declared here, which the message
// layer defines: the library is linked as one unit, so the seam is bound when
// it links and there is no moment at which a fault has nowhere to go.
//
//===----------------------------------------------------------------------===//
#ifndef QZSTD_MESSAGESEAM_H
#define QZSTD_MESSAGESEAM_H

#include "qzstd/CDataItem.h"
#include "qzstd/Export.h"

#include <cstddef>
#include <initializer_list>

namespace qzs {
namespace qzlib {
namespace detail {

/// Where a message is raised: the logger area ("qzstd"), the component and
/// file ("qzstd/memutl"), the function and the line. The texts are literals.
struct MessageSite {
    const char* module;
    const char* id;
    const char* method;
    unsigned int line;
};

/// What becomes of the message: issued at once (disposition 0), or made
/// with disposition 1 and kept in the calling thread's error context for the
/// caller to issue or read.
enum class MessageHandling { Issue, AddToErrorContext };

/// Raises catalogue message `id` with `items` as its arguments, in the
/// catalogue's order. errno is saved into the thread's error context first
/// and is left as it was. Never throws, except where the message's severity
/// is to throw; a fault raised while this thread is already raising one is
/// dropped, so that a failing lock inside the message layer cannot recurse.
QZ_API void raiseFaultItems(const MessageSite& site, unsigned int id, const CDataItem* items, std::size_t count,
                            MessageHandling handling);

template <typename... Args>
void raiseFault(const MessageSite& site, unsigned int id, const Args&... args) {
    const std::initializer_list<CDataItem> items{CDataItem(args)...};
    raiseFaultItems(site, id, items.begin(), items.size(), MessageHandling::Issue);
}

template <typename... Args>
void storeFault(const MessageSite& site, unsigned int id, const Args&... args) {
    const std::initializer_list<CDataItem> items{CDataItem(args)...};
    raiseFaultItems(site, id, items.begin(), items.size(), MessageHandling::AddToErrorContext);
}

/// The text of catalogue message `id` with `items`, built for the caller and
/// never issued: valid until the calling thread has asked for 15 more such
/// texts. "" when the message layer cannot build it.
QZ_API const char* faultTextItems(const MessageSite& site, unsigned int id, const CDataItem* items,
                                  std::size_t count);

template <typename... Args>
const char* faultText(const MessageSite& site, unsigned int id, const Args&... args) {
    const std::initializer_list<CDataItem> items{CDataItem(args)...};
    return faultTextItems(site, id, items.begin(), items.size());
}

/// Sets the text item `itemName` (registered by name) of the calling
/// thread's error context to a copy of `text`, so that the messages raised
/// next can show it. `itemName` must be a literal.
QZ_API void setErrorContextText(const char* itemName, const char* text);

/// A failed threads call: message 542 (an error) or 543 (a warning) with the
/// return code and the system's text for it. The caller carries on.
QZ_API void raiseThreadFault(const MessageSite& site, unsigned int id, int rc);

/// Names the function the message layer calls to end the process after a
/// fatal error (MainThread::Exit, so that the exit functions run).
QZ_API void setProcessExitFunction(void (*function)(int));

} // namespace detail
} // namespace qzlib
} // namespace qzs

/// The site of a message raised here.
#define QZ_MESSAGE_SITE(module, id, method) ::qzs::qzlib::detail::MessageSite{module, id, method, __LINE__}

#endif // QZSTD_MESSAGESEAM_H
