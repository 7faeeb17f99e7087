//===- qzlog/LogMacros.h - The logging statements --------------*- C++ -*-===//
//
// The statements hosts write. Each tests the logger's effective byte and the
// retrace mask inline, before any argument is evaluated, so a statement that
// is off costs a load, a compare and a load, with no call:
//
//   static Logger* log = Logger::getRepository().getLogger("app.capture");
//   QZ_INFO(log, "opened %s at %d", path, position);
//
// The format must be a string literal (its pointer is kept), and the logger
// expression is evaluated once or twice, so keep it a plain pointer.
//
// Kept on purpose: a statement is keyed by its file and line, and the first
// statement seen on a line gives the format for every statement on it. Two
// statements on one line (`if (x) QZ_INFO(...); else QZ_WARN(...);`) print
// the first one's text: put each statement on a line of its own.
//
//===----------------------------------------------------------------------===//
#ifndef QZLOG_LOGMACROS_H
#define QZLOG_LOGMACROS_H

#include "qzlog/Level.h"
#include "qzlog/Logger.h"

#define QZ_LOG_LIKELY(x) __builtin_expect(!!(x), 1)
#define QZ_LOG_UNLIKELY(x) __builtin_expect(!!(x), 0)

/// Logs at any level byte when `logger` is enabled for it.
#define QZ_LOG(logger, level, ...)                                                                 \
    do {                                                                                           \
        if (QZ_LOG_UNLIKELY((logger)->isEnabledFor(level)))                                        \
            (logger)->log(__FILE__, __func__, __LINE__, (level), __VA_ARGS__);                     \
    } while (0)

#define QZ_DATA(logger, ...) QZ_LOG(logger, ::qzs::qzlib::qzlog::Level::Data, __VA_ARGS__)
#define QZ_DEBUG(logger, ...) QZ_LOG(logger, ::qzs::qzlib::qzlog::Level::Debug, __VA_ARGS__)
#define QZ_INFO(logger, ...) QZ_LOG(logger, ::qzs::qzlib::qzlog::Level::Info, __VA_ARGS__)
#define QZ_WARN(logger, ...) QZ_LOG(logger, ::qzs::qzlib::qzlog::Level::Warn, __VA_ARGS__)
#define QZ_ERROR(logger, ...) QZ_LOG(logger, ::qzs::qzlib::qzlog::Level::Error, __VA_ARGS__)
#define QZ_FATAL(logger, ...) QZ_LOG(logger, ::qzs::qzlib::qzlog::Level::Fatal, __VA_ARGS__)

/// Whether a statement at `level` would log, for guarding work that only
/// feeds a log statement.
#define QZ_LOG_ENABLED(logger, level) ((logger)->isEnabledFor(level))

#endif // QZLOG_LOGMACROS_H
