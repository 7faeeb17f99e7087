//===- fuzz/fuzz_activity.cpp - Fuzz the activity file reader -------------===//
//
// Writes the input to a file and replays it session by session. The reader
// must never read outside the mapping (ASan watches), never loop, and either
// replay or fail with a text. A valid marker is put in front of most inputs
// so that the fuzzer spends its time in the token stream, not the header.
//
//===----------------------------------------------------------------------===//
#include <qzlib.h>

#include "qzlog/detail/LogBuffer.h"
#include "qzmsg/CErrorContext.h"

#include <cstdint>
#include <cstdio>

#include <string>
#include <unistd.h>

using namespace qzs::qzlib;
using namespace qzs::qzlib::qzlog;

namespace {

struct Setup {
    std::string path;
    Setup() {
        char name[] = "/tmp/qzfuzzactXXXXXX";
        int fd = ::mkstemp(name);
        ::close(fd);
        path = name;
        // Replayed events are laid out, so the formatting of whatever the
        // input carries runs too; the text goes nowhere.
        WriterAppender* sink = new WriterAppender("fuzz-sink");
        sink->setLayout(new PatternLayout("%d %t %p %c %S %C %l %m%n"));
        Logger* root = Logger::getRepository().getRootLogger();
        root->addAppender(*sink);
        root->setLevel(Level::All);
    }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static Setup setup;
    std::string bytes;
    if (size > 0 && (data[0] & 3) != 0) {
        bytes.assign(reinterpret_cast<const char*>(LogBufferImpl::m_LogStartData), 16);
        bytes[2] = (data[0] & 4) ? 0x01 : 0x10;
        bytes.append(reinterpret_cast<const char*>(data + 1), size - 1);
    } else {
        bytes.assign(reinterpret_cast<const char*>(data), size);
    }
    FILE* out = std::fopen(setup.path.c_str(), "wb");
    if (!out)
        return 0;
    std::fwrite(bytes.data(), 1, bytes.size(), out);
    std::fclose(out);

    // The reader keeps each failure in this thread's error context for its
    // caller; this caller drops them, as a host that has read them would.
    CErrorContext::GetContext()->Clear();
    ActivityFile file(setup.path.c_str());
    if (!file.Open())
        return 0;
    // Each good session moves the offset forward, so this ends.
    for (int sessions = 0; file.getOffset() < file.getSize() && sessions < 10000; ++sessions) {
        uint64_t before = file.getOffset();
        if (!file.ProcessSession())
            break;
        if (file.getOffset() <= before)
            __builtin_trap(); // a session that reads nothing would loop for ever
    }
    return 0;
}
