//===- qzmsg/Messages.h - Raising catalogue messages -----------*- C++ -*-===//
//
// How code raises a numbered message: a source context, the number, typed
// arguments. The named functions (_MSG_String_Int32 and the rest) are
// generated from the catalogue into qzmsg/MessageFunctions.h and all end in
// the one core here.
//
//===----------------------------------------------------------------------===//
#ifndef QZMSG_MESSAGES_H
#define QZMSG_MESSAGES_H

#include "qzmsg/CErrorContext.h"
#include "qzmsg/CMessage.h"
#include "qzmsg/CMessageFactory.h"
#include "qzmsg/CSourceContext.h"
#include "qzstd/CDataItem.h"
#include "qzstd/Export.h"

#include <cstddef>
#include <initializer_list>
#include <sys/time.h>

namespace qzs {
namespace qzlib {

namespace detail {
/// Creates message `id` of the default factory from `items` (copied) and
/// processes it with `disposition`. Takes ownership of `source`.
QZ_API CMessage* processItems(CSourceContext* source, unsigned int id, const CDataItem* items,
                              std::size_t count, MessageDisposition disposition);
/// As processItems with disposition 1, then ToString: a text from the
/// thread's string cache.
QZ_API char const* textOfItems(CSourceContext* source, unsigned int id, const CDataItem* items,
                               std::size_t count);
} // namespace detail

/// The core of every _MSG_ function: saves errno into the thread's error
/// context first (so that a detail can show the system's reason), then
/// creates the message from the arguments, in the catalogue's order, and
/// processes it. Arguments of too few or too many for the template are
/// padded with "<Missing>" or ignored. Returns the message only for
/// disposition 1 (the caller then owns it).
template <typename... Args>
CMessage* raiseMessage(CSourceContext* source, int id, MessageDisposition disposition,
                       const Args&... args) {
    SaveOSErrorContext();
    const std::initializer_list<CDataItem> items{CDataItem(args)...};
    return detail::processItems(source, static_cast<unsigned int>(id), items.begin(), items.size(),
                                disposition);
}

/// The core of every _TSTR_ function: the text of `id` with the arguments,
/// valid for the next 15 such calls on this thread.
template <typename... Args>
char const* textOf(CSourceContext* source, int id, const Args&... args) {
    const std::initializer_list<CDataItem> items{CDataItem(args)...};
    return detail::textOfItems(source, static_cast<unsigned int>(id), items.begin(), items.size());
}

/// Keeps a message made with disposition 1 among the calling thread's
/// pending messages, for the caller to issue or read. A null message is
/// ignored; one kept while the thread is issuing its messages is deleted.
QZ_API void KeepInErrorContext(CMessage* message);

/// The text of catalogue entry `id`, with no arguments, from this call's own
/// source context.
QZ_API char const* _TSTR(int id);

} // namespace qzlib
} // namespace qzs

/// A source context for a message raised here: module (the logger area, e.g.
/// "qzlog"), ID (component and file, e.g. "qzlog/FileAppender") and method.
/// The message owns it.
#define QZ_SOURCE(module, id, method)                                                              \
    (new ::qzs::qzlib::CSourceContext(module, id, method, __LINE__))

#include "qzmsg/MessageFunctions.h"

#endif // QZMSG_MESSAGES_H
