//===- qzstd/detail/ThreadLog.h - The threads' own log records -*- C++ -*-===//
//
// Internal to the thread classes: their records go to "qzstd.multithreading"
// with the source "qzstd/MultiThreading". Threads run while the logging
// framework starts, so the records go through the lazy logger of the logging
// seam and are dropped until the framework is up.
//
//===----------------------------------------------------------------------===//
#ifndef QZSTD_DETAIL_THREADLOG_H
#define QZSTD_DETAIL_THREADLOG_H

#include "qzstd/LoggingSeam.h"

namespace qzs {
namespace qzlib {
namespace MultiThreading {
namespace detail {

/// The threads' logger, "qzstd.multithreading".
extern qzlib::detail::LazyLogger threadLog;

/// The source file every thread record names.
extern const char ThreadSourceFile[];

} // namespace detail
} // namespace MultiThreading
} // namespace qzlib
} // namespace qzs

#define QZ_THREAD_LOG(level, function, ...)                                                        \
    QZ_SEAM_LOG(::qzs::qzlib::MultiThreading::detail::threadLog,                                   \
                ::qzs::qzlib::MultiThreading::detail::ThreadSourceFile, function, level, __VA_ARGS__)

#endif // QZSTD_DETAIL_THREADLOG_H
