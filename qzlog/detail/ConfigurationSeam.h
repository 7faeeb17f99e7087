//===- qzlog/detail/ConfigurationSeam.h - The files the repository loads -*- C++ -*-===//
//
// The repository's conventional search (loadConfiguration) applies XML files,
// which the configuration floor above reads. It reaches it through this one
// call, defined there: the library links as one unit. Not installed.
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

} // namespace detail
} // namespace qzlog
} // namespace qzlib
} // namespace qzs

#endif // QZLOG_DETAIL_CONFIGURATIONSEAM_H
