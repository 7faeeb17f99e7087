//===- qzlog/BasicConfigurator.cpp - The stock console set-up -------------===//
#include "qzlog/BasicConfigurator.h"

#include "qzlog/Logger.h"
#include "qzlog/LoggerRepository.h"
#include "qzlog/PatternLayout.h"
#include "qzlog/WriterAppender.h"

#include <cstdio>

namespace qzs {
namespace qzlib {
namespace qzlog {

bool BasicConfigurator::configure() {
    // Owned by no one on purpose: a configuration made this way lasts for the
    // life of the process.
    ConsoleAppender* appender = new ConsoleAppender("BasicConfigurator::configure", stdout, nullptr);
    appender->setLayout(new PatternLayout("%r [%t] %p %c - %m%n"));
    return configure(*appender);
}

bool BasicConfigurator::configure(Appender& appender) {
    LoggerRepository& repository = Logger::getRepository();
    repository.getRootLogger()->addAppender(appender);
    // Attaching alone does not refold the effective bytes; a stock set-up is
    // expected to take effect at once, so refold here.
    repository.recalculateEffectiveLevels();
    return true;
}

void BasicConfigurator::resetConfiguration() {
    // resetConfiguration holds every logger itself, in the order that a log
    // call delivering a full buffer takes the same locks.
    Logger::getRepository().resetConfiguration();
}

} // namespace qzlog
} // namespace qzlib
} // namespace qzs
