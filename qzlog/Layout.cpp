//===- qzlog/Layout.cpp - Turning events into text ------------------------===//
#include "qzlog/Layout.h"

namespace qzs {
namespace qzlib {
namespace qzlog {

const char* Layout::getContentType() {
    return "text/plain";
}

void Layout::getHeader(std::string& out) {
    out.clear();
}

void Layout::getFooter(std::string& out) {
    out.clear();
}

const char* BinaryLayout::getContentType() {
    return "application/x.binary-log";
}

} // namespace qzlog
} // namespace qzlib
} // namespace qzs
