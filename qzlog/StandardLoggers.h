//===- qzlog/StandardLoggers.h - The library's standard loggers -*- C++ -*-===//
//
// Loggers that other code reaches by a global name rather than by asking the
// repository. Each exists from this library's static initialisers on.
//
//===----------------------------------------------------------------------===//
#ifndef QZLOG_STANDARDLOGGERS_H
#define QZLOG_STANDARDLOGGERS_H

#include "qzstd/Export.h"

namespace qzs {
namespace qzlib {
namespace qzlog {
class Logger;
} // namespace qzlog
} // namespace qzlib
} // namespace qzs

/// The standard utility logger, "qzlog.std.utility" in the tree: the dotted
/// form of the standard name "qzlog_std_utility", so a configuration that
/// names the standard utility logger reaches this one. Allocation tracing
/// goes here; its effective level is mirrored in
/// qzlog_std_utility_effective_level (qzstd/Memory.h). Null until this
/// library's static initialisers have run.
extern QZ_API qzs::qzlib::qzlog::Logger* qzlog_std_utility;

#endif // QZLOG_STANDARDLOGGERS_H
