//===- qzlog/detail/ConfigurationSeam.h - The files the repository loads -*- C++ -*-===//
//
// The repository's conventional search (loadConfiguration) applies XML files,
// which the configuration floor above reads, and its shutdown stops the
// watches that floor runs. It reaches them through these calls, defined
// there: the library links as one unit. Not installed.
//
//===----------------------------------------------------------------------===//
#ifndef QZLOG_DETAIL_CONFIGURATIONSEAM_H
#define QZLOG_DETAIL_CONFIGURATIONSEAM_H

namespace qzs {
namespace qzlib {
namespace qzlog {
namespace detail {

/// Applies every "<prefix>*.xml" of the logging directories, in order.
void applyConfigurationFiles(const char* prefix);
/// Stops every configuration watch thread and waits for it. REQUIRES: no
/// logging lock held (a watch may be applying a file).
void stopConfigurationWatches();

} // namespace detail
} // namespace qzlog
} // namespace qzlib
} // namespace qzs

#endif // QZLOG_DETAIL_CONFIGURATIONSEAM_H
