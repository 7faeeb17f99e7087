//===- qzstd/ThreadLog.h - The threads' own log records --------*- C++ -*-===//
//
// Internal to the thread classes: their records go to "qzstd.multithreading"
// with the source "qzstd/MultiThreading". Threads run while the logging
// framework starts, so the logger may not exist yet and every record tests
// for it. Not installed.
//
//===----------------------------------------------------------------------===//
#ifndef QZSTD_THREADLOG_H
#define QZSTD_THREADLOG_H

#include "qzlog/Logger.h"

namespace qzs {
namespace qzlib {
namespace MultiThreading {
namespace detail {

/// The threads' logger, or null while the framework is not up.
qzlog::Logger* threadLogger();

/// The source file every thread record names.
extern const char ThreadSourceFile[];

} // namespace detail
} // namespace MultiThreading
} // namespace qzlib
} // namespace qzs

#define QZ_THREAD_LOG(level, function, ...)                                                        \
    do {                                                                                           \
        ::qzs::qzlib::qzlog::Logger* l_ = ::qzs::qzlib::MultiThreading::detail::threadLogger();    \
        if (l_ && l_->isEnabledFor(level))                                                         \
            l_->log(::qzs::qzlib::MultiThreading::detail::ThreadSourceFile, function, __LINE__,    \
                    level, __VA_ARGS__);                                                           \
    } while (0)

#endif // QZSTD_THREADLOG_H
