//===- qzmsg/CThreadContext.h - The calling thread -------------*- C++ -*-===//
//
// Which thread is speaking and how it got there: its identifier and its
// call stack at the moment the context was made, with the symbol names of
// the frames on request.
//
//===----------------------------------------------------------------------===//
#ifndef QZMSG_CTHREADCONTEXT_H
#define QZMSG_CTHREADCONTEXT_H

#include "qzmsg/CContext.h"

#include <vector>

namespace qzs {
namespace qzlib {

/// ThreadID (the thread's pthread identifier, as unsigned long) and
/// ThreadBacktrace (a vector of up to 99 frame addresses as `void const*`
/// items, the constructor's own frame left out), captured at construction.
class QZ_API CThreadContext : public CContext {
public:
    CThreadContext();

    /// Appends to `out` one owned text per address in `in`: the frame's
    /// symbol, demangled, with the address and offset removed, e.g.
    /// "/usr/lib/libx.so(ns::f(int))". Names are cached for the process.
    /// Kept on purpose: when the system gives no text for an address, the
    /// call stops there and still returns true, the rest unconverted.
    static bool GetSymbolNames(std::vector<CDataItem>* in, std::vector<CDataItem>* out);

private:
    std::vector<CDataItem> frames;
};

} // namespace qzlib
} // namespace qzs

#endif // QZMSG_CTHREADCONTEXT_H
