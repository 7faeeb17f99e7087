//===- qzmsg/detail/QzRepo.h - The optional repository module -*- C++ -*-===//
//
// "qzrepo" is a module a deployment may install beside the library: it
// records the messages a process issues and is told when the process dies of
// a fatal error. Without it these calls are skipped.
//
//===----------------------------------------------------------------------===//
#ifndef QZMSG_DETAIL_QZREPO_H
#define QZMSG_DETAIL_QZREPO_H

namespace qzs {
namespace qzlib {

class CMessage;

namespace detail {

/// The module's entry points, each null when the module or the symbol is
/// absent.
struct QzRepo {
    /// Whether the repository records for `component` (0: this process).
    bool (*enabled)(int component);
    /// Records one issued message; the message stays the caller's.
    void (*recordMessage)(CMessage const* message);
    /// The process's state, e.g. 8: ending on a fatal error.
    void (*setProcessState)(int state);
    /// Closes the repository before the process goes.
    void (*shutdown)();

    /// The repository is there and records for this process.
    bool isEnabled() const { return enabled && enabled(0); }
};

/// The module, loaded at the first call and kept for the process's life.
/// Thread-safe.
const QzRepo& qzRepo();

} // namespace detail
} // namespace qzlib
} // namespace qzs

#endif // QZMSG_DETAIL_QZREPO_H
