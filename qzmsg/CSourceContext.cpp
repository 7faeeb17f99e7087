//===- qzmsg/CSourceContext.cpp - Where a message comes from --------------===//
#include "qzmsg/CSourceContext.h"

#include "qzmsg/CMessageFactory.h"

namespace qzs {
namespace qzlib {

namespace {
const ContextItemID kSourceModule = CContext::GetContextItemID("SourceModule");
const ContextItemID kSourceID = CContext::GetContextItemID("SourceID");
const ContextItemID kSourceLine = CContext::GetContextItemID("SourceLine");
} // namespace

CSourceContext::CSourceContext(char const* sourceModule, char const* sourceId,
                               char const* sourceMethod, unsigned int sourceLine)
    : module(sourceModule), id(sourceId), method(sourceMethod), line(sourceLine) {}

void CSourceContext::makeItems() const {
    // The items are the context's own; building them does not change what
    // the context says, only when it pays for it.
    CSourceContext* self = const_cast<CSourceContext*>(this);
    self->AddItem(new CContextItem(kSourceModule, module, false));
    self->AddItem(new CContextItem(kSourceID, id, false));
    self->AddItem(new CContextItem(SourceMethodID, method, false));
    self->AddItem(new CContextItem(kSourceLine, line));
}

unsigned int CSourceContext::GetItemCount(bool withChained) const {
    unsigned int n = 4;
    if (withChained)
        for (const CContext* chained : contexts)
            n += chained->GetItemCount(false);
    return n;
}

ContextItemID CSourceContext::GetItemID(unsigned int index) const {
    static const ContextItemID fixed[4] = {kSourceModule, kSourceID, SourceMethodID, kSourceLine};
    if (index < 4)
        return fixed[index];
    return CContext::GetItemID(index - 4);
}

CContextItem* CSourceContext::GetItem(ContextItemID itemId) const {
    if (ownCount == 0)
        makeItems();
    return CContext::GetItem(itemId);
}

void* CSourceContext::operator new(std::size_t size) {
    CMessageNewHandler handler;
    return ::operator new(size);
}

void CSourceContext::operator delete(void* pointer) noexcept {
    ::operator delete(pointer);
}

} // namespace qzlib
} // namespace qzs
