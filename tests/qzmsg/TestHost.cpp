//===- tests/qzmsg/TestHost.cpp - The test host's configuration record ----===//
#include "TestHost.h"

namespace qztest {

qzs::qzlib::QzHostConfig& hostConfig() {
    static qzs::qzlib::QzHostConfig config{0, 0, nullptr, nullptr};
    return config;
}

} // namespace qztest

extern "C" qzs::qzlib::QzHostConfig* _qzGetConfig() {
    return &qztest::hostConfig();
}
