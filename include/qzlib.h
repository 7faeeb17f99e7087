//===- qzlib.h - The public interface of libqzlib --------------*- C++ -*-===//
//
// One include for the whole library: logging, threads and locks, containers,
// numbered messages, the text utilities, character sets, UString and JSON. It includes the public
// headers only; what lives in a folder's detail/ is not installed. Link with
// -lqzlib (pkg-config qzlib, or CMake find_package(qzlib CONFIG) and
// qzlib::qzlib).
//
//===----------------------------------------------------------------------===//
#ifndef QZLIB_H
#define QZLIB_H

// Threads and locks
#include "qzstd/Event.h"
#include "qzstd/MainThread.h"
#include "qzstd/Mutex.h"
#include "qzstd/Thread.h"
#include "qzstd/ThreadLocalStorage.h"

// Containers and hashes
#include "qzstd/Hash.h"
#include "qzstd/HashArray.h"
#include "qzstd/ItemPool.h"
#include "qzstd/SparseArray.h"

// Text and memory utilities
#include "qzstd/NumberString.h"
#include "qzstd/StringUtil.h"
#include "qzstd/TimeConversion.h"
#include "qzstd/ColumnDef.h"
#include "qzstd/NumberConversion.h"
#include "qzstd/fileutl.h"
#include "qzstd/memutl.h"

// Dynamic loading and the directory map
#include "qzstd/DynaLoad.h"
#include "qzstd/FilesysHierarchy.h"

// Unicode and character sets
#include "qzunicode/COptimizedConverter.h"
#include "qzunicode/CSConverter.h"
#include "qzunicode/CharSetTable.h"
#include "qzunicode/ULib.h"
#include "qzunicode/ULibTypes.h"
#include "qzunicode/ULocale.h"
#include "qzunicode/UString.h"
#include "qzunicode/UStringArray.h"
#include "qzunicode/UTimeZone.h"

// Contexts: what the process, its build and its threads are
#include "qzmsg/CAppContext.h"
#include "qzmsg/CBuildContext.h"
#include "qzmsg/CContext.h"
#include "qzmsg/CErrorContext.h"
#include "qzmsg/CFileSysContext.h"
#include "qzmsg/CMessageContext.h"
#include "qzmsg/CProcessContext.h"
#include "qzmsg/CScaContext.h"
#include "qzmsg/CSourceContext.h"
#include "qzmsg/CThreadContext.h"

// Numbered messages: the catalogue, its severities and actions
#include "qzmsg/CAction.h"
#include "qzmsg/CMessage.h"
#include "qzmsg/CMessageFactory.h"
#include "qzmsg/CMessageTemplate.h"
#include "qzmsg/HostConfig.h"
#include "qzmsg/LegacyErrorHandling.h"
#include "qzmsg/MessageFunctions.h"
#include "qzmsg/Messages.h"
#include "qzmsg/QZException.h"

// Database object names, also as message arguments
#include "qzapp/DBObjName.h"
#include "qzapp/ObjectNameMessages.h"
#include "qzapp/RecordDump.h"

// Parameter files and their tokens
#include "qzapp/ParamScan.h"
#include "app/qzadmin/TaskTime.h"

// Logging
#include "qzlog/ActivityFile.h"
#include "qzlog/Appender.h"
#include "qzlog/BasicConfigurator.h"
#include "qzlog/FileAppender.h"
#include "qzlog/Filter.h"
#include "qzlog/Layout.h"
#include "qzlog/Level.h"
#include "qzlog/LogMacros.h"
#include "qzlog/Logger.h"
#include "qzlog/LoggerRepository.h"
#include "qzlog/LoggingEvent.h"
#include "qzlog/LoggingPause.h"
#include "qzlog/LoggingTime.h"
#include "qzlog/PatternLayout.h"
#include "qzlog/StandardLoggers.h"
#include "qzlog/SyslogAppender.h"
#include "qzlog/WriterAppender.h"
#include "qzlog/config/DOMConfigurator.h"
#include "qzlog/config/Discovery.h"
#include "qzstd/CDataItem.h"

// JSON values and paths, and the services' logger names (these include
// RapidJSON's headers)
#include "qzsca/JsonPath.h"
#include "qzsca/JsonValue.h"
#include "qzsca/ScaLoggers.h"

#endif // QZLIB_H
