//===- qzlog/config/Discovery.h - Logging files found by convention -*- C++ -*-===//
//
// A process of the system names no logging file: it gathers "xqz-", "sca-"
// and "app-<application>" files from its installation's directories, and
// then watches a file of its own instance or application.
//
//===----------------------------------------------------------------------===//
#ifndef QZLOG_CONFIG_DISCOVERY_H
#define QZLOG_CONFIG_DISCOVERY_H

#include "qzstd/Export.h"

namespace qzs {
namespace qzlib {
namespace qzlog {

class DOMConfigurator;

/// Applies every "<prefix>*.xml" of the two logging directories, by name,
/// the library's "<DirProcessLib>utl/logging/" first, then
/// DirProcessConfLogging. A file that fails does not stop the next.
QZ_API void loadConfigurationFiles(const char* prefix);

/// The `name` with every "_" made a "."; the result lies in one static
/// buffer, so use it at once (not thread-safe).
QZ_API const char* getLoggerName(const char* name);

} // namespace qzlog
} // namespace qzlib
} // namespace qzs

/// What a process calls once its context is set up: the conventional files
/// (LoggerRepository::loadConfiguration), then the first readable of
/// "qzlog-<AppInstance>.xml", "qzlog-<BuildApplication>.xml" and "qzlog.xml"
/// in the installation's "Conf" directory, watched every `interval`
/// milliseconds (applied once in a single-threaded process).
QZ_API void QZLOG_Enable(qzs::qzlib::qzlog::DOMConfigurator* configurator, unsigned int interval);

#endif // QZLOG_CONFIG_DISCOVERY_H
