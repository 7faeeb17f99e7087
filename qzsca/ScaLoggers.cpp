//===- qzsca/ScaLoggers.cpp - The services' logger names -----------------===//
#include "qzsca/ScaLoggers.h"

#include "qzlog/Logger.h"
#include "qzlog/LoggerRepository.h"
#include "qzmsg/CAppContext.h"

#include <string>

namespace qzs {
namespace qzlib {
namespace sca {

using qzlog::Logger;

namespace {
// A function-local static holds each logger: resolved once, thread-safe by the
// language, and loggers live as long as the process.
Logger* root(const char* name) { return Logger::getRepository().getLogger(name); }
} // namespace

#define QZ_SCA_ROOT(function, name)                                                                \
    Logger* ScaLoggers::function() {                                                               \
        static Logger* const logger = root(name);                                                  \
        return logger;                                                                             \
    }
#define QZ_SCA_CHILD(parent, function)                                                             \
    Logger* ScaLoggers::function() {                                                               \
        static Logger* const logger = parent()->getChild(#function);                               \
        return logger;                                                                             \
    }

QZ_SCA_ROOT(audit, "audit")
QZ_SCA_ROOT(sca, "sca")
QZ_SCA_ROOT(RestAPI, "RestAPI")

Logger* ScaLoggers::Server() {
    // An empty name would be the root logger itself: a level set for the
    // server would then be set for every logger.
    static Logger* const logger = [] {
        const std::string base = getAppContextText("ProcessExecutableBase");
        return root(base.empty() ? "Server" : base.c_str());
    }();
    return logger;
}

QZ_SCA_CHILD(sca, CommSec)
QZ_SCA_CHILD(sca, Signals)
QZ_SCA_CHILD(sca, FileSystem)
QZ_SCA_CHILD(sca, FileManager)
QZ_SCA_CHILD(sca, ServiceDiscovery)
QZ_SCA_CHILD(sca, HttpServer)
QZ_SCA_CHILD(sca, Config)
QZ_SCA_CHILD(sca, FeatureFlags)
QZ_SCA_CHILD(sca, Request)
QZ_SCA_CHILD(sca, Response)
QZ_SCA_CHILD(sca, SecureStore)
QZ_SCA_CHILD(sca, UserManager)
QZ_SCA_CHILD(sca, Modules)
QZ_SCA_CHILD(sca, JStache)
QZ_SCA_CHILD(sca, JsonPath)
QZ_SCA_CHILD(sca, JsonSchema)
QZ_SCA_CHILD(sca, StandardResponse)
QZ_SCA_CHILD(CommSec, SSL)
QZ_SCA_CHILD(SSL, SSLTrace)
QZ_SCA_CHILD(SSL, OpenSSL)
QZ_SCA_CHILD(SSL, Certificate)
QZ_SCA_CHILD(HttpServer, HttpContext)
QZ_SCA_CHILD(HttpServer, HttpNetwork)
QZ_SCA_CHILD(HttpServer, HttpLowLevel)
QZ_SCA_CHILD(HttpServer, AcceptHeader)
QZ_SCA_CHILD(HttpServer, HttpDigest)
QZ_SCA_CHILD(Config, CommandLine)
QZ_SCA_CHILD(Config, Context)
QZ_SCA_CHILD(audit, RequestContextAudit)
QZ_SCA_CHILD(audit, RequestPayloadAudit)
QZ_SCA_CHILD(audit, ResponseContextAudit)
QZ_SCA_CHILD(audit, ResponsePayloadAudit)
QZ_SCA_CHILD(audit, UserManagerAudit)
QZ_SCA_CHILD(Request, Dispatcher)
QZ_SCA_CHILD(Request, UriTemplate)
QZ_SCA_CHILD(UriTemplate, UriContext)
QZ_SCA_CHILD(UserManager, UserManagerLowLevel)
QZ_SCA_CHILD(Modules, ConfigDataModule)
QZ_SCA_CHILD(Modules, FilesModule)
QZ_SCA_CHILD(Modules, LogsModule)
QZ_SCA_CHILD(Modules, MetadataModule)
QZ_SCA_CHILD(Modules, RequestsModule)
QZ_SCA_CHILD(Modules, ContentModule)
QZ_SCA_CHILD(Modules, AuthorizationModule)
QZ_SCA_CHILD(Modules, AuthorizationsModule)
QZ_SCA_CHILD(Modules, ConfigModule)
QZ_SCA_CHILD(Modules, ErrorMessageModule)

#undef QZ_SCA_ROOT
#undef QZ_SCA_CHILD

} // namespace sca
} // namespace qzlib
} // namespace qzs
