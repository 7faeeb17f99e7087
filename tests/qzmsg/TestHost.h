//===- tests/qzmsg/TestHost.h - The test host's configuration record -*- C++ -*-===//
//
// The message tests are a host with a configuration record (_qzGetConfig,
// exported from the test binary): its report stream goes to a temporary file
// while a ReportCapture lives, so the console lines can be read back.
//
//===----------------------------------------------------------------------===//
#ifndef TESTS_QZMSG_TESTHOST_H
#define TESTS_QZMSG_TESTHOST_H

#include "qzmsg/HostConfig.h"

#include <cstdio>
#include <string>

namespace qztest {

/// The record the library reads: no duplicate suppression, no parameter
/// file, stdout.
qzs::qzlib::QzHostConfig& hostConfig();

/// Points the report stream at a temporary file until destroyed.
class ReportCapture {
public:
    ReportCapture() : file(std::tmpfile()) { hostConfig().reportStream = file; }
    ~ReportCapture() {
        hostConfig().reportStream = nullptr;
        std::fclose(file);
    }
    ReportCapture(const ReportCapture&) = delete;
    ReportCapture& operator=(const ReportCapture&) = delete;

    /// Everything written so far.
    std::string text() {
        std::fflush(file);
        std::string all;
        std::rewind(file);
        char chunk[4096];
        size_t n;
        while ((n = std::fread(chunk, 1, sizeof chunk, file)) > 0)
            all.append(chunk, n);
        std::fseek(file, 0, SEEK_END);
        return all;
    }

private:
    FILE* file;
};

} // namespace qztest

#endif
