//===- qzmsg/CSourceContext.h - Where a message comes from -----*- C++ -*-===//
//
// Every message call passes one, so it costs nothing until it is looked up:
// its four items are made at the first GetItem.
//
//===----------------------------------------------------------------------===//
#ifndef QZMSG_CSOURCECONTEXT_H
#define QZMSG_CSOURCECONTEXT_H

#include "qzmsg/CContext.h"

#include <cstddef>

namespace qzs {
namespace qzlib {

/// The source of a message: module, ID, method and line. The texts are
/// borrowed and must outlive the context (literals, in practice).
///
/// Kept on purpose: GetItemCount counts the four items whether they exist
/// yet or not, and GetItemID answers 0 to 3 from the fixed order SourceModule,
/// SourceID, SourceMethod, SourceLine.
///
/// Allocation: every message call makes one, so it is allocated under the
/// message factory's new-handler: out of memory, the reserve is released and
/// the failure can still be reported.
class QZ_API CSourceContext : public CContext {
public:
    CSourceContext(char const* sourceModule, char const* sourceId, char const* sourceMethod,
                   unsigned int sourceLine);

    unsigned int GetItemCount(bool withChained) const override;
    ContextItemID GetItemID(unsigned int index) const override;
    /// Makes the four items at the first call on a context with none.
    CContextItem* GetItem(ContextItemID id) const override;

    static void* operator new(std::size_t size);
    static void operator delete(void* pointer) noexcept;

    char const* module;
    char const* id;
    char const* method;
    unsigned int line;

private:
    void makeItems() const;
};

} // namespace qzlib
} // namespace qzs

#endif // QZMSG_CSOURCECONTEXT_H
