//===- qzlog/StandardLoggers.cpp - The library's standard loggers ---------===//
//
// Made by a static initialiser, which also brings the logging framework up
// when the library is loaded.
//
//===----------------------------------------------------------------------===//
#include "qzlog/StandardLoggers.h"

#include "qzlog/Logger.h"
#include "qzlog/LoggerRepository.h"
#include "qzstd/Memory.h"

qzs::qzlib::qzlog::Logger* qzlog_std_utility = qzs::qzlib::qzlog::Logger::getRepository().getLogger(
    "qzlog.std.utility", &qzlog_std_utility_effective_level);
