//===- qzlog/config/detail/DOMConfiguratorImpl.h - The XML loader -*- C++ -*-===//
//
// What stands behind DOMConfigurator: the file search, the watch thread and
// the steps of a load. Xerces types stay in the .cpp; this header is for the
// configurator itself and the tests. Not installed.
//
//===----------------------------------------------------------------------===//
#ifndef QZLOG_CONFIG_DETAIL_DOMCONFIGURATORIMPL_H
#define QZLOG_CONFIG_DETAIL_DOMCONFIGURATORIMPL_H

#include <cstddef>
#include <string>
#include <vector>

namespace qzs {
namespace qzlib {
namespace MultiThreading {
class Event;
class Thread;
} // namespace MultiThreading
namespace qzlog {

class DOMConfiguratorImpl {
public:
    DOMConfiguratorImpl();
    /// Stops the watch thread, if any.
    ~DOMConfiguratorImpl();

    /// `name` itself when readable; otherwise, for a relative name, the
    /// program's directory and then the working directory.
    bool findFile(const char* name, std::string& found) const;
    /// The first of `names` that findFile finds.
    bool findFile(const std::vector<std::string>& names, std::string& found) const;

    /// Reads, parses and applies `path`. False when it cannot be read or
    /// parsed (nothing applied) or when an element stops the load (what came
    /// before it stays).
    bool configure(const std::string& path);
    /// Parses and applies a document held in memory; `path` names it in
    /// messages. What configure and the fuzz target run.
    bool apply(const char* data, std::size_t size, const std::string& path);

    void configureAndWatch(const std::vector<std::string>& names, unsigned int interval);
    /// Fires the stop event, waits for the watch thread, deletes both.
    void stopThread();

    /// A level by name (any of the named levels, without regard to case) or
    /// by number from 0 to 255. Anything else: message 1113, and 0.
    static unsigned char getLevel(const char* text);

    /// Larger files are refused before they are read: a logging
    /// configuration is a few kilobytes, and the parser would hold a DOM
    /// many times its size.
    static constexpr std::size_t MaxFileSize = 16u << 20;
    /// Entity expansions a document may make before the parser refuses it.
    static constexpr unsigned int MaxEntityExpansions = 1000;

    std::string file;
    unsigned int interval;
    MultiThreading::Thread* thread;
    MultiThreading::Event* stop;
};

} // namespace qzlog
} // namespace qzlib
} // namespace qzs

#endif // QZLOG_CONFIG_DETAIL_DOMCONFIGURATORIMPL_H
