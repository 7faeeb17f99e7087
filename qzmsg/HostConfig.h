//===- qzmsg/HostConfig.h - What a host tells the message layer -*- C++ -*-===//
//
// A host may define `_qzGetConfig` to hand the library its configuration
// record: whether repeated messages are suppressed, its parameter file (named
// in the error log), the stream the console lines go to, and a flag the
// library raises during a fatal error. A host without it gets the defaults.
//
//===----------------------------------------------------------------------===//
#ifndef QZMSG_HOSTCONFIG_H
#define QZMSG_HOSTCONFIG_H

#include "qzstd/Export.h"

#include <cstdint>
#include <cstdio>

namespace qzs {
namespace qzlib {

/// The host's configuration record. The host owns it and keeps it alive for
/// the process's life; the library reads it, and writes only fatalError.
struct QzHostConfig {
    /// 1 (the default without a record): repeated equal messages are counted
    /// and reported later instead of issued each time.
    unsigned char suppressDuplicateMessages;
    /// Set to 1 by the library while it ends the process on a fatal error.
    uint16_t fatalError;
    /// The host's parameter file; its base name appears in the error log.
    /// May be null.
    char const* parameterFile;
    /// Where console lines go; null for stdout.
    FILE* reportStream;
};

/// The host's record, or null when the host defines no `_qzGetConfig` or it
/// returns null. Looked up once.
QZ_API QzHostConfig* getHostConfig();

/// The stream console lines go to: the host's, or stdout.
QZ_API FILE* getReportStream();

} // namespace qzlib
} // namespace qzs

/// Defined by a host that has a configuration record.
extern "C" qzs::qzlib::QzHostConfig* _qzGetConfig();

#endif // QZMSG_HOSTCONFIG_H
