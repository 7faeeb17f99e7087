//===- tests/qzlog/config/DOMConfiguratorTest.cpp - Logging files applied --===//
#include "FaultCollector.h"
#include "../LogTestUtil.h"
#include "TempDir.h"

#include "qzlog/LogMacros.h"
#include "qzlog/config/DOMConfigurator.h"

#include <gtest/gtest.h>

#include <fstream>
#include <string>

using namespace qzs::qzlib::qzlog;

namespace {

class DOMConfiguratorTest : public qztest::LoggingTest {
protected:
    std::string write(const std::string& name, const std::string& body) {
        const std::string path = temp.path(name);
        std::ofstream(path) << body;
        return path;
    }
    qztest::TempDir temp{"qzconfig"};
    qztest::FaultCollector faults;
};

// A file appender with a pattern, a logger at DEBUG writing to it.
TEST_F(DOMConfiguratorTest, AppliesAppenderAndLogger) {
    const std::string out = temp.path("out.log");
    const std::string file = write("a.xml", "<configuration>"
        "<appender name='f' class='FileAppender'><param name='File' value='" + out + "'/>"
        "<param name='BufferedIO' value='false'/>"
        "<layout class='PatternLayout'><param name='Pattern' value='%p %m%n'/></layout></appender>"
        "<logger name='smoke.cfg'><level value='debug'/><appender-ref name='f'/></logger>"
        "</configuration>");
    DOMConfigurator configurator;
    ASSERT_TRUE(configurator.configure(file.c_str()));
    Logger* logger = Logger::getRepository().getLogger("smoke.cfg");
    QZ_DEBUG(logger, "hello %d", 7);
    EXPECT_EQ("DEBUG hello 7\n", qztest::readFile(out));
    for (const auto& f : faults.faults())
        ADD_FAILURE() << f.number << " " << f.text;
}

} // namespace
