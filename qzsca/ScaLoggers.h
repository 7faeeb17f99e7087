//===- qzsca/ScaLoggers.h - The services' logger names ----------*- C++ -*-===//
//
// One function per node of the services' logger tree, so that code says
// ScaLoggers::FileSystem() and never spells a logger name. The table of
// names lives in ScaLoggers.cpp; tests hold it to the tree.
//
//===----------------------------------------------------------------------===//
#ifndef QZSCA_SCALOGGERS_H
#define QZSCA_SCALOGGERS_H

#include "qzstd/Export.h"

namespace qzs {
namespace qzlib {
namespace qzlog {
class Logger;
}
namespace sca {

/// Each function returns its logger, made on first use and kept (the
/// repository never destroys a logger). A child's name is its parent's, a
/// ".", and the function's name: ScaLoggers::SSL() is "sca.CommSec.SSL".
/// Thread-safe.
class QZ_API ScaLoggers {
public:
    typedef qzs::qzlib::qzlog::Logger Logger;

    // Roots.
    static Logger* audit();
    static Logger* sca();
    /// Named after the executable (context item ProcessExecutableBase);
    /// "Server" when that is unknown, so that it is never the root logger.
    static Logger* Server();
    static Logger* RestAPI();

    // Children of sca().
    static Logger* CommSec();
    static Logger* Signals();
    static Logger* FileSystem();
    static Logger* FileManager();
    static Logger* ServiceDiscovery();
    static Logger* HttpServer();
    static Logger* Config();
    static Logger* FeatureFlags();
    static Logger* Request();
    static Logger* Response();
    static Logger* SecureStore();
    static Logger* UserManager();
    static Logger* Modules();
    static Logger* JStache();
    static Logger* JsonPath();
    static Logger* JsonSchema();
    static Logger* StandardResponse();

    // Children of CommSec().
    static Logger* SSL();

    // Children of SSL().
    static Logger* SSLTrace();
    static Logger* OpenSSL();
    static Logger* Certificate();

    // Children of HttpServer().
    static Logger* HttpContext();
    static Logger* HttpNetwork();
    static Logger* HttpLowLevel();
    static Logger* AcceptHeader();
    static Logger* HttpDigest();

    // Children of Config().
    static Logger* CommandLine();
    static Logger* Context();

    // Children of audit().
    static Logger* RequestContextAudit();
    static Logger* RequestPayloadAudit();
    static Logger* ResponseContextAudit();
    static Logger* ResponsePayloadAudit();
    static Logger* UserManagerAudit();

    // Children of Request().
    static Logger* Dispatcher();
    static Logger* UriTemplate();

    // Children of UriTemplate().
    static Logger* UriContext();

    // Children of UserManager().
    static Logger* UserManagerLowLevel();

    // Children of Modules().
    static Logger* ConfigDataModule();
    static Logger* FilesModule();
    static Logger* LogsModule();
    static Logger* MetadataModule();
    static Logger* RequestsModule();
    static Logger* ContentModule();
    static Logger* AuthorizationModule();
    static Logger* AuthorizationsModule();
    static Logger* ConfigModule();
    static Logger* ErrorMessageModule();
};

} // namespace sca
} // namespace qzlib
} // namespace qzs

#endif // QZSCA_SCALOGGERS_H
