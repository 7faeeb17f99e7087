//===- qzmsg/CMessageContext.h - The circumstances of a message -*- C++ -*-===//
//
// One a message: when it was made and its detail values, chained to the
// thread's error context, the message's source and the application context,
// so that a lookup by any item ID finds the process, build or directory item.
//
//===----------------------------------------------------------------------===//
#ifndef QZMSG_CMESSAGECONTEXT_H
#define QZMSG_CMESSAGECONTEXT_H

#include "qzmsg/CContext.h"

#include <vector>

namespace qzs {
namespace qzlib {

class CSourceContext;

/// Items: MessageTime (when it was made), MessageDetails (a pointer to the
/// context's own vector of details, empty at start). Chained, in order: the
/// calling thread's CErrorContext, `source` when not null, the application
/// context.
///
/// Ownership: deletes the source context with itself when that context's
/// deleteWithParent is true, and a thread context it added; the error and
/// application contexts survive. Thread safety: one thread at a time.
class QZ_API CMessageContext : public CContext {
public:
    explicit CMessageContext(CSourceContext* source);

    /// Appends a copy.
    void AddDetail(const CDataItem& detail);
    /// Pads the details with int 0 items until `index` is reachable, then
    /// assigns there (or appends at the end). Always true.
    bool SetDetail(unsigned int index, const CDataItem& detail);
    /// Replaces every detail with a copy of `details`. Always true.
    bool SetDetails(const std::vector<CDataItem>& details);
    /// Makes a CThreadContext of the calling thread and chains it.
    void AddThreadContext();

    const std::vector<CDataItem>& details() const { return detailItems; }
    /// The source context given at construction, or null.
    CSourceContext* source() const { return sourceContext; }

private:
    std::vector<CDataItem> detailItems;
    CSourceContext* sourceContext;
};

} // namespace qzlib
} // namespace qzs

#endif // QZMSG_CMESSAGECONTEXT_H
