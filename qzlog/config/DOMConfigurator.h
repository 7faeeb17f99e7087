//===- qzlog/config/DOMConfigurator.h - Logging set up from XML files -*- C++ -*-===//
//
// Reads a logging configuration file (XML, parsed by Xerces-C into a DOM) and
// turns it into appenders, layouts, filters and logger settings; optionally
// watches the file and applies it again when it changes. Xerces stays inside
// the implementation: this header does not include it.
//
//===----------------------------------------------------------------------===//
#ifndef QZLOG_CONFIG_DOMCONFIGURATOR_H
#define QZLOG_CONFIG_DOMCONFIGURATOR_H

#include "qzstd/Export.h"

namespace qzs {
namespace qzlib {
namespace qzlog {

class DOMConfiguratorImpl;

/// Applies logging configuration files.
///
/// The file: a document element (any name) with an optional "reset"
/// attribute, then "level", "appender", "logger" and "root" children;
/// element, attribute, class, parameter and level names match without
/// regard to case. Appenders are applied first wherever they stand, so a
/// logger may refer to one defined below it or in an earlier file; an
/// appender of a name that exists already replaces it in place.
///
/// Failures are catalogue messages naming the file (and, from the parser,
/// the line): a file that is not XML applies nothing; a bad element stops
/// the rest of the file, and what was applied before it stays.
///
/// Thread safety: a load holds every logger's lock (LoggingPause) while it
/// changes the set-up; parsing runs before that. One configurator watches at
/// most one list of files; destroying it stops its watch thread, and what it
/// applied stays.
class QZ_API DOMConfigurator {
public:
    DOMConfigurator();
    ~DOMConfigurator();
    DOMConfigurator(const DOMConfigurator&) = delete;
    DOMConfigurator& operator=(const DOMConfigurator&) = delete;

    /// Applies `file`: as given, then (for a relative name) in the program's
    /// directory, then in the working directory. False when it is not found
    /// (nothing is reported) or cannot be applied.
    bool configure(const char* file);
    /// Applies the first of `files` that is found.
    bool configure(const char** files, unsigned long count);
    /// As configure, and then a "ConfigWatchThread" looks again every
    /// `interval` milliseconds: a file that changed (time or size) is applied
    /// again, an earlier name of the list that appears takes over, and when
    /// none is left the set-up returns to its defaults. Returns once the
    /// first round is done. An interval of 0 is refused: message 1522 and the
    /// process ends (exit 12).
    void configureAndWatch(const char* file, unsigned int interval);
    void configureAndWatch(const char** files, unsigned long count, unsigned int interval);

    DOMConfiguratorImpl* impl;
};

} // namespace qzlog
} // namespace qzlib
} // namespace qzs

#endif // QZLOG_CONFIG_DOMCONFIGURATOR_H
