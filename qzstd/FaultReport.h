//===- qzstd/FaultReport.h - Internal fault reporting ----------*- C++ -*-===//
//
// The one path by which library code reports a numbered fault (a misuse, a
// failed lock call, a name too long) while the message catalogue is not yet
// wired in. Callers name the catalogue number and its arguments exactly as the
// catalogue message will take them, so that connecting the catalogue changes
// this file and nothing else.
//
//===----------------------------------------------------------------------===//
#ifndef QZSTD_FAULTREPORT_H
#define QZSTD_FAULTREPORT_H

#include "qzstd/Export.h"

#include <string>

namespace qzs {
namespace qzlib {
namespace detail {

/// Where a fault was raised: component, source file, function and line.
struct QZ_API FaultSite {
    const char* component;
    const char* file;
    const char* function;
    int line;
};

/// One reported fault: the catalogue number and its arguments, rendered.
struct QZ_API Fault {
    FaultSite site;
    unsigned int number;
    std::string arguments;
};

/// Receives every fault. The default writes one line to standard error.
using FaultSink = void (*)(const Fault&);

/// Reports fault `number` raised at `site`; `arguments` is the rendered list of
/// the message's arguments. Never throws and never logs, so it is safe from
/// inside the logging path and from lock wrappers.
QZ_API void reportFault(const FaultSite& site, unsigned int number, const std::string& arguments) noexcept;

/// A failed threads call: catalogue message 542 with the return code and the
/// system's text for it. The caller carries on.
QZ_API void reportThreadError(int rc, const FaultSite& site) noexcept;

/// As reportThreadError, as a warning: catalogue message 543.
QZ_API void reportThreadWarning(int rc, const FaultSite& site) noexcept;

/// Replaces the sink and returns the previous one; null restores the default.
/// For tests and for the catalogue when it takes over.
QZ_API FaultSink setFaultSink(FaultSink sink) noexcept;

} // namespace detail
} // namespace qzlib
} // namespace qzs

#define QZ_FAULT_SITE(component, function) \
    ::qzs::qzlib::detail::FaultSite { component, __FILE__, function, __LINE__ }

#endif // QZSTD_FAULTREPORT_H
