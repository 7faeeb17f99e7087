//===- tests/qzsca/ScaLoggersTest.cpp - The services' logger names --------===//
#include "qzsca/ScaLoggers.h"

#include "qzlog/Logger.h"
#include "qzmsg/CAppContext.h"

#include <gtest/gtest.h>

#include <string>

using qzs::qzlib::sca::ScaLoggers;

namespace {

TEST(ScaLoggersTest, EachFunctionNamesItsNodeOfTheTree) {
    // A misspelt name or a child hung under the wrong parent shows here.
    struct Case {
        ScaLoggers::Logger* (*function)();
        const char* name;
    } cases[] = {
        {ScaLoggers::audit, "audit"},
        {ScaLoggers::sca, "sca"},
        {ScaLoggers::RestAPI, "RestAPI"},
        {ScaLoggers::CommSec, "sca.CommSec"},
        {ScaLoggers::Signals, "sca.Signals"},
        {ScaLoggers::FileSystem, "sca.FileSystem"},
        {ScaLoggers::FileManager, "sca.FileManager"},
        {ScaLoggers::ServiceDiscovery, "sca.ServiceDiscovery"},
        {ScaLoggers::HttpServer, "sca.HttpServer"},
        {ScaLoggers::Config, "sca.Config"},
        {ScaLoggers::FeatureFlags, "sca.FeatureFlags"},
        {ScaLoggers::Request, "sca.Request"},
        {ScaLoggers::Response, "sca.Response"},
        {ScaLoggers::SecureStore, "sca.SecureStore"},
        {ScaLoggers::UserManager, "sca.UserManager"},
        {ScaLoggers::Modules, "sca.Modules"},
        {ScaLoggers::JStache, "sca.JStache"},
        {ScaLoggers::JsonPath, "sca.JsonPath"},
        {ScaLoggers::JsonSchema, "sca.JsonSchema"},
        {ScaLoggers::StandardResponse, "sca.StandardResponse"},
        {ScaLoggers::SSL, "sca.CommSec.SSL"},
        {ScaLoggers::SSLTrace, "sca.CommSec.SSL.SSLTrace"},
        {ScaLoggers::OpenSSL, "sca.CommSec.SSL.OpenSSL"},
        {ScaLoggers::Certificate, "sca.CommSec.SSL.Certificate"},
        {ScaLoggers::HttpContext, "sca.HttpServer.HttpContext"},
        {ScaLoggers::HttpNetwork, "sca.HttpServer.HttpNetwork"},
        {ScaLoggers::HttpLowLevel, "sca.HttpServer.HttpLowLevel"},
        {ScaLoggers::AcceptHeader, "sca.HttpServer.AcceptHeader"},
        {ScaLoggers::HttpDigest, "sca.HttpServer.HttpDigest"},
        {ScaLoggers::CommandLine, "sca.Config.CommandLine"},
        {ScaLoggers::Context, "sca.Config.Context"},
        {ScaLoggers::RequestContextAudit, "audit.RequestContextAudit"},
        {ScaLoggers::RequestPayloadAudit, "audit.RequestPayloadAudit"},
        {ScaLoggers::ResponseContextAudit, "audit.ResponseContextAudit"},
        {ScaLoggers::ResponsePayloadAudit, "audit.ResponsePayloadAudit"},
        {ScaLoggers::UserManagerAudit, "audit.UserManagerAudit"},
        {ScaLoggers::Dispatcher, "sca.Request.Dispatcher"},
        {ScaLoggers::UriTemplate, "sca.Request.UriTemplate"},
        {ScaLoggers::UriContext, "sca.Request.UriTemplate.UriContext"},
        {ScaLoggers::UserManagerLowLevel, "sca.UserManager.UserManagerLowLevel"},
        {ScaLoggers::ConfigDataModule, "sca.Modules.ConfigDataModule"},
        {ScaLoggers::FilesModule, "sca.Modules.FilesModule"},
        {ScaLoggers::LogsModule, "sca.Modules.LogsModule"},
        {ScaLoggers::MetadataModule, "sca.Modules.MetadataModule"},
        {ScaLoggers::RequestsModule, "sca.Modules.RequestsModule"},
        {ScaLoggers::ContentModule, "sca.Modules.ContentModule"},
        {ScaLoggers::AuthorizationModule, "sca.Modules.AuthorizationModule"},
        {ScaLoggers::AuthorizationsModule, "sca.Modules.AuthorizationsModule"},
        {ScaLoggers::ConfigModule, "sca.Modules.ConfigModule"},
        {ScaLoggers::ErrorMessageModule, "sca.Modules.ErrorMessageModule"},
    };
    for (const Case& c : cases) {
        ScaLoggers::Logger* logger = c.function();
        ASSERT_NE(logger, nullptr) << c.name;
        EXPECT_STREQ(logger->getName(), c.name);
        EXPECT_EQ(c.function(), logger) << c.name; // the same node on every call
    }
    EXPECT_EQ(ScaLoggers::UriContext()->parent, ScaLoggers::UriTemplate());
}

TEST(ScaLoggersTest, ServerIsNamedAfterTheExecutable) {
    const std::string base = qzs::qzlib::getAppContextText("ProcessExecutableBase");
    EXPECT_STREQ(ScaLoggers::Server()->getName(), base.empty() ? "Server" : base.c_str());
    EXPECT_NE(ScaLoggers::Server()->getName()[0], '\0'); // never the root
}

} // namespace
