//===- qzlog/FloorSeam.cpp - The logging core, as the floor below sees it -===//
//
// Installs the entry points through which the threads, pools and utilities
// underneath the core log and read its clock (qzstd/LoggingSeam.h). Their
// records take the same road as any statement: the recursion guard, an event
// in the thread's buffer, the appenders.
//
//===----------------------------------------------------------------------===//
#include "qzlog/detail/FloorSeam.h"

#include "qzlog/Level.h"
#include "qzlog/Logger.h"
#include "qzlog/LoggerRepository.h"
#include "qzlog/LoggingEvent.h"
#include "qzlog/LoggingPause.h"
#include "qzlog/LoggingTime.h"
#include "qzlog/detail/LogBuffer.h"
#include "qzlog/detail/LogThreadContext.h"
#include "qzstd/LoggingSeam.h"

namespace qzs {
namespace qzlib {
namespace qzlog {

static_assert(detail::LogLevel::Debug == Level::Debug && detail::LogLevel::Info == Level::Info &&
                  detail::LogLevel::Error == Level::Error &&
                  detail::LogLevel::Fatal == Level::Fatal,
              "the floor below logs on this scale");
static_assert(LogInt == 'j' && LogUnsignedInt == 'k' && LogLong == 'm' && LogUnsignedLong == 'n' &&
                  LogFloat == 'f' && LogPointer == 'p' && LogString == 's',
              "the floor below types its arguments with these letters");

namespace {

// The floors below first ask for their loggers wherever they happen to log,
// and that can be inside a log call: a file appender's write that makes a
// directory, a message raised from an appender. There this thread holds a
// logger's lock, and making a logger takes the repository's, against the
// lock order. Such a record would be dropped by the recursion guard anyway,
// so no logger is made: the caller gets none and asks again later.
Logger* seamGetLogger(const char* name) {
    const LogThreadContext* own = LogBufferImpl::getThreadContext(0);
    if (own && own->recursion != 0)
        return nullptr;
    return Logger::getRepository().getLogger(name, nullptr);
}

bool seamIsEnabledFor(const Logger* logger, unsigned char level) {
    return logger->isEnabledFor(level);
}

void seamLog(Logger* logger, const char* file, const char* function, unsigned short line,
             unsigned char level, const char* format, const detail::LogArg* const* args,
             unsigned int count) {
    if (!logger->isEnabledFor(level))
        return;
    Logger::LoggingRecursionCheck guard;
    if (!guard.buffer)
        return;
    LoggingEvent event(guard.buffer, format, file, function, line,
                       static_cast<unsigned short>(count), logger->id, level);
    for (unsigned int i = 0; i < count; ++i) {
        if (args[i]->getType() == detail::LogArg::CallStack)
            event.addArg(LoggingCallStack());
        else
            event.addDetail(args[i]->getType(), args[i]->getBytes(), args[i]->getSize());
    }
    event.setBufferLocation(guard.buffer);
    logger->doAppend(&event);
}

void seamCurrentTime(timespec* now) {
    LoggingTime::getCurrentTime(now);
}

void seamSaveAllBuffers() {
    LogBufferImpl::saveAllToFile();
}

void seamShutdownRepository() {
    Logger::getRepository().shutdown();
}

const detail::LoggingSeam g_seam{&seamGetLogger,   &seamIsEnabledFor,   &seamLog,
                                 &seamCurrentTime, &seamSaveAllBuffers, &seamShutdownRepository};

} // namespace

void installFloorSeam() {
    detail::setLoggingSeam(&g_seam);
}

} // namespace qzlog
} // namespace qzlib
} // namespace qzs
