//===- qzlog/BasicConfigurator.h - The stock console set-up ----*- C++ -*-===//
#ifndef QZLOG_BASICCONFIGURATOR_H
#define QZLOG_BASICCONFIGURATOR_H

#include "qzstd/Export.h"

namespace qzs {
namespace qzlib {
namespace qzlog {

class Appender;

/// Configuration without a file.
class QZ_API BasicConfigurator {
public:
    /// Attaches a console appender on stdout, named
    /// "BasicConfigurator::configure", with the pattern
    /// "%r [%t] %p %c - %m%n", to the root logger. The appender lives for the
    /// rest of the process. Returns true.
    static bool configure();
    /// Attaches `appender` to the root logger and refolds every effective
    /// level byte. Returns true.
    static bool configure(Appender& appender);
    /// Back to the default set-up and the conventional file search
    /// (LoggerRepository::resetConfiguration), with every logger held still
    /// while it runs.
    static void resetConfiguration();
};

} // namespace qzlog
} // namespace qzlib
} // namespace qzs

#endif // QZLOG_BASICCONFIGURATOR_H
