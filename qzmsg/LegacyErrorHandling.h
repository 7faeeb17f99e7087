//===- qzmsg/LegacyErrorHandling.h - Console line, error log, fatal end -*- C++ -*-===//
//
// The older face of messages that the QZ severities use: one dated line on
// the report stream, one record in the error log "qzserr.log", and the
// orderly end of a process on a fatal error with the host's callbacks.
//
//===----------------------------------------------------------------------===//
#ifndef QZMSG_LEGACYERRORHANDLING_H
#define QZMSG_LEGACYERRORHANDLING_H

#include "qzstd/Export.h"

namespace qzs {
namespace qzlib {

/// How processFatalError ends the process: 1 aborts at once (no callback),
/// 2 reports and exits with 1 (the default), 3 exits with 1 without the
/// report. Any other number reports and returns to the caller, so the type
/// holds every int.
enum FATALERROR_ACTION : int { FatalAbort = 1, FatalReportAndExit = 2, FatalExitQuietly = 3 };

QZ_API void qzSetFatalErrorAction(FATALERROR_ACTION action);
QZ_API FATALERROR_ACTION qzGetFatalErrorAction();
/// Called with the ID and text at every fatal error.
QZ_API void qzSetFatalErrorCallback(void (*callback)(unsigned int, char const*));
/// Called once, at the first fatal error, with its text.
QZ_API void qzSetIDLFatalErrorCallback(void (*callback)(char const*));
/// Called once, at the first fatal error, after the IDL callback.
QZ_API void qzSetVAMFatalErrorCallback(void (*callback)());
/// Called with 1 before the process exits on a fatal error.
QZ_API void qzSetExitFunction(void (*function)(int));

/// Prints "\n<time>  <label> <code>  <text>.\n" to the report stream (the
/// text's trailing blanks, periods and newlines replaced by one period),
/// names the label as the repetition report's severity, and logs the record
/// to "qzserr.log". Labels: "ERROR" from level 239, "WARNING" from 223,
/// "INFO" below.
QZ_API void issueMessage(unsigned int id, char const* code, char const* text, unsigned char level);
/// As issueMessage without the console line.
QZ_API void issueMessageNoReport(unsigned int id, char const* code, char const* text,
                                 unsigned char level);
/// Ends the process on fatal error `id` as the fatal error action says,
/// after the optional "qzrepo" module, the host's debug hook and callbacks
/// have been told; with action 1 it aborts at once. Returns only for an
/// action other than 1, 2 or 3.
QZ_API void processFatalError(unsigned int id, char const* text);

} // namespace qzlib
} // namespace qzs

/// Defined by a host that wants to stop in a debugger: called with 32 at
/// every fatal error, before the process ends. Looked up once.
extern "C" void _qzTryDebugHook(unsigned int reason);

#endif // QZMSG_LEGACYERRORHANDLING_H
