//===- qzmsg/CThreadContext.cpp - The calling thread ----------------------===//
#include "qzmsg/CThreadContext.h"

#include <cxxabi.h>
#include <execinfo.h>
#include <pthread.h>

#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <string>

namespace qzs {
namespace qzlib {

namespace {

constexpr int kMaxFrames = 100;

// Departure, for a race: the name cache serves every thread, so it takes a
// lock. Made once and never destroyed (a stack may be logged during exit).
struct SymbolCache {
    std::mutex lock;
    std::map<void const*, std::string> names;
};

SymbolCache& symbolCache() {
    static SymbolCache* cache = new SymbolCache();
    return *cache;
}

// One line of backtrace_symbols, "file(mangled+0x1f) [0x4005d0]", made
// readable: the name demangled, the bracketed address and the offset gone.
std::string readable(std::string line) {
    const size_t open = line.find('(');
    const size_t plus = open == std::string::npos ? std::string::npos : line.find('+', open);
    if (plus != std::string::npos && plus > open + 1) {
        const std::string mangled = line.substr(open + 1, plus - open - 1);
        int status = 0;
        char* demangled = abi::__cxa_demangle(mangled.c_str(), nullptr, nullptr, &status);
        if (status == 0 && demangled)
            line = line.substr(0, open + 1) + demangled + line.substr(plus);
        std::free(demangled);
    }
    const size_t bracket = line.find('[', 1);
    if (bracket != std::string::npos) {
        const size_t blank = line.rfind(' ', bracket);
        line.erase(blank == std::string::npos ? bracket : blank);
    }
    const size_t offset = line.rfind('+');
    if (offset != std::string::npos) {
        line.erase(offset);
        line += ')';
    }
    return line;
}

} // namespace

CThreadContext::CThreadContext() {
    AddItem(new CContextItem(GetContextItemID("ThreadID"),
                             static_cast<unsigned long>(::pthread_self())));
    void* addresses[kMaxFrames];
    const int n = ::backtrace(addresses, kMaxFrames);
    if (n > 1)
        for (int i = 1; i < n; ++i)
            frames.emplace_back(static_cast<void const*>(addresses[i]));
    AddItem(new CContextItem(GetContextItemID("ThreadBacktrace"), &frames));
}

bool CThreadContext::GetSymbolNames(std::vector<CDataItem>* in, std::vector<CDataItem>* out) {
    if (!in || !out)
        return false;
    SymbolCache& cache = symbolCache();
    for (const CDataItem& frame : *in) {
        void const* address = static_cast<void const*>(frame);
        std::string name;
        {
            std::lock_guard<std::mutex> guard(cache.lock);
            auto found = cache.names.find(address);
            if (found != cache.names.end())
                name = found->second;
        }
        if (name.empty()) {
            void* one = const_cast<void*>(address);
            char** lines = ::backtrace_symbols(&one, 1);
            if (!lines)
                return true;
            name = readable(lines[0] ? lines[0] : "");
            std::free(lines);
            std::lock_guard<std::mutex> guard(cache.lock);
            cache.names.emplace(address, name);
        }
        out->emplace_back(::strdup(name.c_str()), true);
    }
    return true;
}

} // namespace qzlib
} // namespace qzs
