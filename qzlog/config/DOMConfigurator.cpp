//===- qzlog/config/DOMConfigurator.cpp - Logging set up from XML files ---===//
//
// Parses a logging file with Xerces-C into a DOM, then, with every logger
// held still, builds its appenders, layouts and filters and sets its
// loggers. The watch thread applies the file again when it changes.
//
//===----------------------------------------------------------------------===//
#include "qzlog/config/DOMConfigurator.h"

#include "qzlog/config/detail/DOMConfiguratorImpl.h"

#include "qzlog/Appender.h"
#include "qzlog/FileAppender.h"
#include "qzlog/Filter.h"
#include "qzlog/Layout.h"
#include "qzlog/Level.h"
#include "qzlog/Logger.h"
#include "qzlog/LoggerRepository.h"
#include "qzlog/PatternLayout.h"
#include "qzlog/SyslogAppender.h"
#include "qzlog/WriterAppender.h"
#include "qzlog/detail/ConfigurationPause.h"
#include "qzlog/detail/ConfigurationSeam.h"
#include "qzlog/detail/LogBuffer.h"
#include "qzmsg/CAppContext.h"
#include "qzmsg/Messages.h"
#include "qzstd/Event.h"
#include "qzstd/Thread.h"

#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/parsers/SAXParser.hpp>
#include <xercesc/sax/AttributeList.hpp>
#include <xercesc/sax/HandlerBase.hpp>
#include <xercesc/sax/Locator.hpp>
#include <xercesc/sax/SAXParseException.hpp>
#include <xercesc/util/OutOfMemoryException.hpp>
#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/SecurityManager.hpp>
#include <xercesc/util/XMLString.hpp>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <fcntl.h>
#include <map>
#include <mutex>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

namespace qzs {
namespace qzlib {
namespace qzlog {

namespace xml = XERCES_CPP_NAMESPACE;
using MultiThreading::Event;
using MultiThreading::Thread;

namespace {

// Where a message is raised: the method, and the caller's line, taken
// where the method name converts.
struct Site {
    Site(const char* name, unsigned int at = __builtin_LINE()) : method(name), line(at) {}
    const char* method;
    unsigned int line;
};

template <typename... Args> void report(Site site, int number, const Args&... args) {
    raiseMessage(new CSourceContext("qzlog", "qzlog/DOMConfigurator", site.method, site.line),
                 number, IssueAndDispose, args...);
}

// Kept for the messages of the file being applied: they name it through
// this item of the thread's error context.
void setFileItem(const std::string& path) {
    static const ContextItemID id = CContext::GetContextItemID("ErrXMLFileName");
    // An owned copy: the item outlives `path`, and a borrowed text would
    // point into a string the caller has freed by the next message.
    CErrorContext::GetContext()->SetItem(id, CDataItem(SafeStrdup(path.c_str()), true));
}

std::string fileItem() {
    static const ContextItemID id = CContext::GetContextItemID("ErrXMLFileName");
    const CContextItem* item = CErrorContext::GetContext()->GetItem(id);
    return item ? item->GetText() : std::string();
}

bool equalsNoCase(const std::string& a, const char* b) {
    return ::strcasecmp(a.c_str(), b) == 0;
}

struct NoCaseLess {
    bool operator()(const std::string& a, const std::string& b) const {
        return ::strcasecmp(a.c_str(), b.c_str()) < 0;
    }
};
using Params = std::map<std::string, std::string, NoCaseLess>;

// Xerces is started once for the process and never terminated: a host may
// use it too, and a configurator may run until the process ends.
void startXerces() {
    static std::once_flag once;
    std::call_once(once, [] { xml::XMLPlatformUtils::Initialize(); });
}

// Decision: values and names are read as UTF-8 rather than in the locale's
// code page, so that a file name with accented letters survives a process
// that runs in the C locale. Converted here rather than through a parser
// transcoder: names and values are short, and making a transcoder for each
// cost more than the rest of a load. A lone surrogate reads as U+FFFD.
std::string text(const XMLCh* value) {
    std::string out;
    for (const XMLCh* p = value; p && *p; ++p) {
        char32_t c = *p;
        if (c < 0x80) {
            out += static_cast<char>(c);
            continue;
        }
        if (c >= 0xD800 && c < 0xDC00 && p[1] >= 0xDC00 && p[1] < 0xE000) {
            c = 0x10000 + ((c - 0xD800) << 10) + (p[1] - 0xDC00);
            ++p;
        } else if (c >= 0xD800 && c < 0xE000) {
            c = 0xFFFD;
        }
        if (c < 0x800) {
            out += static_cast<char>(0xC0 | (c >> 6));
        } else if (c < 0x10000) {
            out += static_cast<char>(0xE0 | (c >> 12));
            out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        } else {
            out += static_cast<char>(0xF0 | (c >> 18));
            out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
            out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        }
        out += static_cast<char>(0x80 | (c & 0x3F));
    }
    return out;
}

// One element of a logging file as the loader reads it: its name, its
// attributes and its element children, in document order, with the line it
// starts on. Built by the parser's callbacks: the file needs no more of a
// document tree than this.
struct Element {
    std::string name;
    std::vector<std::pair<std::string, std::string>> attributes;
    std::vector<const Element*> children;
    const Element* parent = nullptr;
    size_t index = 0; // among the parent's children
    uint64_t line = 0;
};

// Every element of one file. Elements refer to each other by pointer into a
// deque, which never moves them, and they go all at once, with no recursion
// however deep the file nests.
struct Document {
    std::deque<Element> elements;
    const Element* root = nullptr;
};

// The attribute `name`, matched without regard to case; "" when absent.
std::string attribute(const Element* element, const char* name) {
    for (const auto& a : element->attributes)
        if (equalsNoCase(a.first, name))
            return a.second;
    return std::string();
}

// The first element child of `node` named `name` (without regard to case).
const Element* getFirstChild(const Element* node, const char* name) {
    for (const Element* child : node->children)
        if (equalsNoCase(child->name, name))
            return child;
    return nullptr;
}

// The next element sibling of the same name.
const Element* getNextSibling(const Element* node) {
    if (!node->parent)
        return nullptr;
    const auto& siblings = node->parent->children;
    for (size_t i = node->index + 1; i < siblings.size(); ++i)
        if (equalsNoCase(siblings[i]->name, node->name.c_str()))
            return siblings[i];
    return nullptr;
}

// Elements the loader does not know are skipped; each is said once, as a
// warning, so that a misspelt "apender" does not vanish without a word.
void warnUnknownChildren(const Element* node, std::initializer_list<const char*> known) {
    for (const Element* child : node->children) {
        bool found = false;
        for (const char* k : known)
            found = found || equalsNoCase(child->name, k);
        if (!found) {
            const std::string warning = fileItem() + " line " + std::to_string(child->line) +
                                        ": the element <" + child->name + "> in <" + node->name +
                                        "> is not part of a logging configuration and is ignored";
            report("DOMConfiguratorImpl::loadConfiguration", 1527, warning.c_str());
        }
    }
}

// A whole decimal number, or false.
bool parseInt(const std::string& value, long& out) {
    if (value.empty())
        return false;
    errno = 0;
    char* end = nullptr;
    const long parsed = std::strtol(value.c_str(), &end, 10);
    if (errno != 0 || *end != '\0')
        return false;
    out = parsed;
    return true;
}

// "true" without regard to case is true, everything else false.
bool isTrue(const std::string& value) {
    return equalsNoCase(value, "true");
}

void badValue(const std::string& what, Site site = Site("DOMConfiguratorImpl::loadParams")) {
    report(site, 1113, what.c_str());
}

// The "param" children of `node`; a later name overwrites an earlier one.
// False, with message 1113, for a parameter with an empty name or value.
bool loadParams(const Element* node, const std::string& owner, Params& params) {
    for (const Element* p = getFirstChild(node, "param"); p; p = getNextSibling(p)) {
        const std::string name = attribute(p, "name");
        const std::string value = attribute(p, "value");
        if (name.empty() || value.empty()) {
            badValue("a parameter of " + owner + " has " +
                     (name.empty() ? "no name" : "no value for " + name));
            return false;
        }
        params[name] = value;
    }
    return true;
}

// The level a "level" element gives: its "value" (an absent one reads as
// "", which getLevel refuses).
unsigned char loadLevel(const Element* node) {
    return DOMConfiguratorImpl::getLevel(attribute(node, "value").c_str());
}

bool loadLayout(const Element* node, const std::string& appender, Layout*& out, bool& isBinary) {
    const std::string cls = attribute(node, "class");
    if (cls.empty()) {
        badValue("the layout of appender " + appender + " has no class");
        return false;
    }
    Params params;
    if (!loadParams(node, "the layout of appender " + appender, params))
        return false;
    if (equalsNoCase(cls, "PatternLayout")) {
        std::string pattern = "%m%n";
        for (const auto& p : params) {
            if (!equalsNoCase(p.first, "Pattern")) {
                report("DOMConfiguratorImpl::loadLayout", 1539, appender.c_str(), cls.c_str(),
                       p.first.c_str());
                return false;
            }
            pattern = p.second;
        }
        out = new PatternLayout(pattern.c_str());
        return true;
    }
    if (equalsNoCase(cls, "BinaryLayout")) {
        if (!params.empty()) {
            report("DOMConfiguratorImpl::loadLayout", 1539, appender.c_str(), cls.c_str(),
                   params.begin()->first.c_str());
            return false;
        }
        out = new BinaryLayout();
        isBinary = true;
        return true;
    }
    report("DOMConfiguratorImpl::loadLayout", 1538, appender.c_str(), cls.c_str());
    return false;
}

bool loadFilter(const Element* node, const std::string& appender, Filter*& out) {
    const std::string cls = attribute(node, "class");
    if (cls.empty()) {
        badValue("a filter of appender " + appender + " has no class");
        return false;
    }
    Params params;
    if (!loadParams(node, "a filter of appender " + appender, params))
        return false;
    auto unknown = [&](const std::string& parameter) {
        report("DOMConfiguratorImpl::loadFilter", 1541, appender.c_str(), cls.c_str(),
               parameter.c_str());
        return false;
    };
    if (equalsNoCase(cls, "LevelMatchFilter")) {
        unsigned char level = 255;
        Filter::Action action = Filter::Accept;
        for (const auto& p : params) {
            if (equalsNoCase(p.first, "LevelToMatch"))
                level = DOMConfiguratorImpl::getLevel(p.second.c_str());
            else if (equalsNoCase(p.first, "AcceptOnMatch"))
                action = isTrue(p.second) ? Filter::Accept : Filter::Deny;
            else
                return unknown(p.first);
        }
        out = new LevelMatchFilter(level, action);
        return true;
    }
    if (equalsNoCase(cls, "LevelRangeFilter")) {
        unsigned char lowest = 1, highest = 255;
        // Kept on purpose: "false" gives Neutral here, not Deny, so that a
        // range filter can pass its matches on to the next filter.
        Filter::Action action = Filter::Accept;
        for (const auto& p : params) {
            if (equalsNoCase(p.first, "LevelToMatchMin"))
                lowest = DOMConfiguratorImpl::getLevel(p.second.c_str());
            else if (equalsNoCase(p.first, "LevelToMatchMax"))
                highest = DOMConfiguratorImpl::getLevel(p.second.c_str());
            else if (equalsNoCase(p.first, "AcceptOnMatch"))
                action = isTrue(p.second) ? Filter::Accept : Filter::Neutral;
            else
                return unknown(p.first);
        }
        out = new LevelRangeFilter(lowest, highest, action);
        return true;
    }
    const bool threadName = equalsNoCase(cls, "ThreadNameMatchFilter");
    if (threadName || equalsNoCase(cls, "StringMatchFilter")) {
        std::string match;
        Filter::Action action = Filter::Accept;
        for (const auto& p : params) {
            if (equalsNoCase(p.first, "StringToMatch"))
                match = p.second;
            else if (equalsNoCase(p.first, "AcceptOnMatch"))
                action = isTrue(p.second) ? Filter::Accept : Filter::Deny;
            else
                return unknown(p.first);
        }
        out = threadName ? new ThreadNameMatchFilter(match.c_str(), action)
                         : new StringMatchFilter(match.c_str(), action);
        return true;
    }
    if (equalsNoCase(cls, "DenyAllFilter")) {
        if (!params.empty())
            return unknown(params.begin()->first);
        out = new DenyAllFilter();
        return true;
    }
    report("DOMConfiguratorImpl::loadFilter", 1540, appender.c_str(), cls.c_str());
    return false;
}

// Both syslog classes build a SyslogAppender; only the remote one takes a
// host. A facility other than "Security" or "Application" is reported and
// leaves the default, as a bad number does for the file appenders. A
// parameter the class does not take is named in `badParameter`.
Appender* newSyslogAppender(bool remote, const Params& params, const std::string& appenderName,
                            std::string& badParameter) {
    auto* appender = new SyslogAppender("");
    for (const auto& p : params) {
        if (equalsNoCase(p.first, "Facility")) {
            if (equalsNoCase(p.second, "Security"))
                appender->setFacility(SyslogAppender::Security);
            else if (equalsNoCase(p.second, "Application"))
                appender->setFacility(SyslogAppender::Application);
            else
                badValue("parameter Facility of appender " + appenderName +
                         " is neither Security nor Application: " + p.second);
        } else if (remote && equalsNoCase(p.first, "SyslogHost")) {
            appender->setSyslogHost(p.second.c_str());
        } else {
            badParameter = p.first;
            break;
        }
    }
    return appender;
}

// Applies one parameter to a file appender; false for one the class does
// not take.
bool setFileParameter(FileAppender* appender, RollingFileAppender* rolling,
                      DailyRollingFileAppender* daily, const std::string& name,
                      const std::string& value, const std::string& appenderName,
                      long& maxFileSize) {
    long number = 0;
    auto number_or_default = [&](const char* what) {
        if (parseInt(value, number) && number >= 0)
            return true;
        badValue("parameter " + std::string(what) + " of appender " + appenderName +
                 " is not a number: " + value);
        return false;
    };
    if (equalsNoCase(name, "File"))
        appender->setFile(value.c_str());
    else if (equalsNoCase(name, "Append"))
        appender->setAppend(isTrue(value));
    else if (equalsNoCase(name, "BufferedIO"))
        appender->setBufferedIO(isTrue(value));
    else if (equalsNoCase(name, "BufferSize")) {
        if (number_or_default("BufferSize"))
            appender->setBufferSize(static_cast<unsigned long>(number));
    } else if (rolling && equalsNoCase(name, "MaxFileSize")) {
        rolling->setMaxFileSize(value.c_str());
        maxFileSize = rolling->getMaxFileSize();
    } else if (rolling && equalsNoCase(name, "MaxBackupIndex")) {
        if (number_or_default("MaxBackupIndex"))
            rolling->setMaxBackupIndex(static_cast<unsigned int>(number));
    } else if (daily && equalsNoCase(name, "DatePattern"))
        daily->setDatePattern(value.c_str());
    else
        return false;
    return true;
}

bool loadAppender(const Element* node) {
    const std::string name = attribute(node, "name");
    const std::string cls = attribute(node, "class");
    if (cls.empty()) {
        badValue("appender " + name + " has no class");
        return false;
    }
    Params params;
    if (!loadParams(node, "appender " + name, params))
        return false;

    Appender* appender = nullptr;
    FileAppender* file = nullptr;
    long maxFileSize = -1;
    std::string badParameter;
    if (equalsNoCase(cls, "ConsoleAppender")) {
        appender = new ConsoleAppender("", stdout, nullptr);
        if (!params.empty())
            badParameter = params.begin()->first;
    } else if (equalsNoCase(cls, "FileAppender") || equalsNoCase(cls, "RollingFileAppender") ||
               equalsNoCase(cls, "DailyRollingFileAppender")) {
        RollingFileAppender* rolling = nullptr;
        DailyRollingFileAppender* daily = nullptr;
        if (equalsNoCase(cls, "RollingFileAppender"))
            file = rolling = new RollingFileAppender("");
        else if (equalsNoCase(cls, "DailyRollingFileAppender"))
            file = daily = new DailyRollingFileAppender("");
        else
            file = new FileAppender("");
        appender = file;
        for (const auto& p : params) {
            if (!setFileParameter(file, rolling, daily, p.first, p.second, name, maxFileSize)) {
                badParameter = p.first;
                break;
            }
        }
    } else if (equalsNoCase(cls, "SyslogAppender") || equalsNoCase(cls, "RemoteSyslogAppender")) {
        appender = newSyslogAppender(equalsNoCase(cls, "RemoteSyslogAppender"), params, name, badParameter);
    }
    if (!appender) {
        report("DOMConfiguratorImpl::loadAppender", 1536, name.c_str(), cls.c_str());
        return false;
    }
    if (!badParameter.empty()) {
        report("DOMConfiguratorImpl::loadAppender", 1537, name.c_str(), cls.c_str(),
               badParameter.c_str());
        delete appender;
        return false;
    }

    if (const Element* level = getFirstChild(node, "level")) {
        appender->setThreshold(loadLevel(level));
    }
    Layout* layout = nullptr;
    bool isBinary = false;
    if (const Element* l = getFirstChild(node, "layout")) {
        if (!loadLayout(l, name, layout, isBinary)) {
            delete appender;
            return false;
        }
    }
    appender->setLayout(layout);
    for (const Element* f = getFirstChild(node, "filter"); f; f = getNextSibling(f)) {
        Filter* filter = nullptr;
        if (!loadFilter(f, name, filter)) {
            delete appender;
            return false;
        }
        appender->addFilter(filter);
    }
    if (isBinary) {
        if (file)
            file->setBufferedIO(false);
        if (maxFileSize >= 1 && maxFileSize <= 1048575)
            report("DOMConfiguratorImpl::loadAppender", 1730, name.c_str(),
                   static_cast<uint64_t>(maxFileSize), "1MB");
        if (appender->getFilter()) {
            report("DOMConfiguratorImpl::loadAppender", 1731, name.c_str());
            delete appender;
            return false;
        }
    }

    // A reload applies in place: the loggers that held the old appender of
    // this name now hold the new one, and the old one goes.
    if (!name.empty()) {
        Appender* old = Appender::findAppender(name.c_str());
        if (old && old != appender) {
            Logger::getRepository().replaceAppender(old, appender);
            // An appender's destructor leaves its stream open: closing it
            // here writes out what it still buffers and frees its file.
            old->close();
            delete old;
        }
    }
    appender->name = name;
    appender->setEnabled(!equalsNoCase(attribute(node, "enabled"), "false"));
    return true;
}

bool loadLogger(const Element* node, bool isRoot) {
    LoggerRepository& repository = Logger::getRepository();
    const std::string name = isRoot ? std::string() : attribute(node, "name");
    Logger* logger = repository.getRootLogger();
    if (!name.empty()) {
        logger = repository.getLogger(name.c_str(), nullptr);
        logger->setAdditivity(!equalsNoCase(attribute(node, "additivity"), "false"));
    }
    if (const Element* level = getFirstChild(node, "level")) {
        logger->setLevel(loadLevel(level));
    }
    for (const Element* ref = getFirstChild(node, "appender-ref"); ref; ref = getNextSibling(ref)) {
        const std::string appenderName = attribute(ref, "name");
        Appender* appender = Appender::findAppender(appenderName.c_str());
        if (!appender) {
            report("DOMConfiguratorImpl::loadLogger", 1526, name.empty() ? "root" : name.c_str(),
                   appenderName.c_str());
            continue;
        }
        // Departure, for lines written twice: a file applied again (the
        // watch thread's reload) names the appenders its loggers hold
        // already, and attaching them a second time would write each event
        // twice. A reference adds an appender only once.
        if (!logger->isAttached(*appender))
            logger->addAppender(*appender);
    }
    return true;
}

// Applies a parsed document with every logger held still.
bool loadConfiguration(const Document& document, const std::string& path) {
    const Element* root = document.root;
    if (!root) {
        report("DOMConfiguratorImpl::loadConfiguration", 1535);
        return false;
    }
    LoggerRepository& repository = Logger::getRepository();
    const bool reset = isTrue(attribute(root, "reset"));
    // The buffers go out before the pause: flushing takes every thread's
    // context, which a thread held still at its logger may be holding.
    if (reset && !ConfigurationPause::insidePause())
        LogBufferImpl::flushBuffers();
    ConfigurationPause pause;
    if (reset) {
        repository.resetConfiguration();
        setFileItem(path); // the files that the reset applied named theirs
    }
    warnUnknownChildren(root, {"level", "appender", "logger", "root"});
    if (const Element* level = getFirstChild(root, "level")) {
        repository.setThreshold(loadLevel(level));
    }
    bool ok = true;
    for (const Element* a = getFirstChild(root, "appender"); ok && a; a = getNextSibling(a)) {
        warnUnknownChildren(a, {"param", "level", "layout", "filter"});
        ok = loadAppender(a);
    }
    for (const Element* l = getFirstChild(root, "logger"); ok && l; l = getNextSibling(l)) {
        warnUnknownChildren(l, {"level", "appender-ref"});
        ok = loadLogger(l, false);
    }
    if (ok) {
        if (const Element* r = getFirstChild(root, "root")) {
            warnUnknownChildren(r, {"level", "appender-ref"});
            ok = loadLogger(r, true);
        }
    }
    // Attaching appenders does not refold the effective bytes by itself.
    repository.recalculateEffectiveLevels();
    return ok;
}

// Builds the Document from the parser's callbacks, remembers the parser's
// first complaint (the parse stops at a fatal one), and resolves every
// external entity and DTD to nothing: none is ever fetched, from a file or
// the network.
class TreeBuilder : public xml::HandlerBase {
public:
    explicit TreeBuilder(Document& into) : document(into) {}

    void setDocumentLocator(const xml::Locator* const where) override { locator = where; }
    void startElement(const XMLCh* const name, xml::AttributeList& attributes) override {
        document.elements.emplace_back();
        Element& e = document.elements.back();
        e.name = text(name);
        e.line = locator ? locator->getLineNumber() : 0;
        const XMLSize_t count = attributes.getLength();
        e.attributes.reserve(count);
        for (XMLSize_t i = 0; i < count; ++i)
            e.attributes.emplace_back(text(attributes.getName(i)), text(attributes.getValue(i)));
        if (current) {
            e.parent = current;
            e.index = current->children.size();
            current->children.push_back(&e);
        } else if (!document.root) {
            document.root = &e;
        }
        current = &e;
    }
    void endElement(const XMLCh* const) override {
        if (current)
            current = const_cast<Element*>(current->parent);
    }

    xml::InputSource* resolveEntity(const XMLCh* const, const XMLCh* const) override {
        static const XMLByte nothing[1] = {0};
        return new xml::MemBufInputSource(nothing, 0, "external entity", false);
    }

    void warning(const xml::SAXParseException&) override {}
    void error(const xml::SAXParseException& e) override { keep(e); }
    void fatalError(const xml::SAXParseException& e) override { keep(e); }

    bool failed = false;
    uint64_t line = 0;
    std::string message;

private:
    void keep(const xml::SAXParseException& e) {
        if (failed)
            return;
        failed = true;
        line = e.getLineNumber();
        message = text(e.getMessage());
    }

    Document& document;
    Element* current = nullptr;
    const xml::Locator* locator = nullptr;
};

} // namespace

//===-- DOMConfiguratorImpl ------------------------------------------------===//

DOMConfiguratorImpl::DOMConfiguratorImpl() : interval(0), thread(nullptr), stop(nullptr) {
    startXerces();
}

DOMConfiguratorImpl::~DOMConfiguratorImpl() {
    stopThread();
}

bool DOMConfiguratorImpl::findFile(const char* name, std::string& found) const {
    if (!name || !*name)
        return false;
    if (::access(name, R_OK) == 0) {
        found = name;
        return true;
    }
    if (name[0] == '/')
        return false;
    // Never destroyed: a watch thread may still look while the process exits.
    static const std::string& programDir =
        *new std::string(getAppContextText("ProcessExecutableDir"));
    const std::string workingDir = getAppContextText("ProcessWorkingDir");
    for (const std::string* dir : {&programDir, &workingDir}) {
        if (dir->empty())
            continue;
        std::string candidate = *dir;
        if (candidate.back() != '/')
            candidate += '/';
        candidate += name;
        if (::access(candidate.c_str(), R_OK) == 0) {
            found = candidate;
            return true;
        }
    }
    return false;
}

bool DOMConfiguratorImpl::findFile(const std::vector<std::string>& names,
                                   std::string& found) const {
    for (const std::string& name : names)
        if (findFile(name.c_str(), found))
            return true;
    return false;
}

unsigned char DOMConfiguratorImpl::getLevel(const char* value) {
    const std::string level = value ? value : "";
    for (int i = 0; i < 256; ++i)
        if (Level::LevelNames[i] && Level::LevelNames[i] != Level::Undefined &&
            equalsNoCase(level, Level::LevelNames[i]))
            return static_cast<unsigned char>(i);
    long number = 0;
    if (parseInt(level, number) && number >= 0 && number <= 255)
        return static_cast<unsigned char>(number);
    badValue("the level '" + level + "' is neither a level name nor a number from 0 to 255");
    return 0;
}

bool DOMConfiguratorImpl::configure(const std::string& path) {
    file = path;
    setFileItem(path);
    // The file is read whole first: a file replaced while it is read is
    // either the old one or the new one, never half of each.
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat info;
    const bool opened = fd >= 0 && ::fstat(fd, &info) == 0;
    if (!opened || !S_ISREG(info.st_mode)) {
        const std::string reason = !opened ? std::strerror(errno) : "it is not a regular file";
        if (fd >= 0)
            ::close(fd);
        report("DOMConfiguratorImpl::configure", 1534, static_cast<uint64_t>(0), reason.c_str());
        return false;
    }
    if (static_cast<unsigned long>(info.st_size) > MaxFileSize) {
        ::close(fd);
        const std::string reason = "the file has " + std::to_string(info.st_size) +
                                   " bytes, more than the " + std::to_string(MaxFileSize) +
                                   " a logging configuration may have";
        report("DOMConfiguratorImpl::configure", 1534, static_cast<uint64_t>(0), reason.c_str());
        return false;
    }
    std::string data;
    char chunk[65536];
    ssize_t got;
    while ((got = ::read(fd, chunk, sizeof chunk)) > 0 || (got < 0 && errno == EINTR)) {
        if (got > 0)
            data.append(chunk, static_cast<size_t>(got));
        if (data.size() > MaxFileSize)
            break;
    }
    const int readError = got < 0 ? errno : 0;
    ::close(fd);
    if (readError != 0 || data.size() > MaxFileSize) {
        const std::string reason =
            readError ? std::strerror(readError) : "the file grew while it was read";
        report("DOMConfiguratorImpl::configure", 1534, static_cast<uint64_t>(0), reason.c_str());
        return false;
    }
    return apply(data.data(), data.size(), path);
}

bool DOMConfiguratorImpl::apply(const char* data, std::size_t size, const std::string& path) {
    setFileItem(path);
    // Decision: the file is read by the parser's callbacks into a small tree
    // of our own rather than into the parser's full document object model;
    // building that model was three quarters of the time of a load.
    Document document;
    TreeBuilder builder(document);
    xml::SAXParser parser;
    parser.setValidationScheme(xml::SAXParser::Val_Never);
    parser.setDoNamespaces(false);
    parser.setDoSchema(false);
    parser.setLoadExternalDTD(false);
    parser.setDisableDefaultEntityResolution(true);
    xml::SecurityManager security;
    security.setEntityExpansionLimit(MaxEntityExpansions);
    parser.setSecurityManager(&security);
    parser.setDocumentHandler(&builder);
    parser.setEntityResolver(&builder);
    parser.setErrorHandler(&builder);

    try {
        xml::MemBufInputSource source(reinterpret_cast<const XMLByte*>(data), size, path.c_str(),
                                      false);
        parser.parse(source);
    } catch (const xml::XMLException& e) {
        if (!builder.failed) {
            builder.failed = true;
            builder.message = text(e.getMessage());
        }
    } catch (const xml::OutOfMemoryException&) {
        builder.failed = true;
        builder.message = "the parser ran out of memory";
    }
    if (builder.failed || parser.getErrorCount() != 0) {
        if (builder.message.empty())
            builder.message = "the document is not well-formed XML";
        report("DOMConfiguratorImpl::configure", 1534, builder.line, builder.message.c_str());
        return false;
    }
    return loadConfiguration(document, path);
}

namespace {

// Whether a file has been applied by a watch: a watch that finds no file
// any more then returns the process to its defaults.
std::atomic<bool> g_fileApplied{false};

struct WatchArguments {
    DOMConfiguratorImpl* impl;
    std::vector<std::string> names;
    Event ready{Event::ManualReset};
};

unsigned int watchThread(void* argument) {
    auto* arguments = static_cast<WatchArguments*>(argument);
    DOMConfiguratorImpl* impl = arguments->impl;
    const std::vector<std::string> names = arguments->names;
    Event* stop = impl->stop;
    LoggerRepository& repository = Logger::getRepository();
    struct stat saved = {};
    std::string savedPath;
    bool first = true;
    for (;;) {
        const bool changed = repository.configurationChanged();
        std::string path;
        if (!impl->findFile(names, path)) {
            if (g_fileApplied.load() || changed) {
                repository.resetConfiguration();
                g_fileApplied.store(false);
                saved = {};
                savedPath.clear();
            }
        } else {
            struct stat now;
            if (::stat(path.c_str(), &now) != 0) {
                const int error = errno;
                setFileItem(path);
                errno = error; // the message shows the system's reason
                report("watchThread", 1528);
            } else if (changed || path != savedPath || now.st_mtime != saved.st_mtime ||
                       now.st_size != saved.st_size || now.st_ino != saved.st_ino) {
                // Kept on purpose: the time compares to the second, so a
                // file touched within the second it was written is not
                // applied again. Decision: a file replaced by another one
                // (a new inode, as editors and installers do), or an
                // earlier name of the list that now stands, is applied even
                // when time and size match.
                CMessageFactory::GetDefaultFactory()->SetMaxIssue(1528, 1);
                impl->configure(path);
                saved = now;
                savedPath = path;
                g_fileApplied.store(true);
            }
        }
        if (first) {
            first = false;
            arguments->ready.Fire(); // the caller's record goes after this
        }
        if (stop->Wait(impl->interval))
            break;
    }
    return 0;
}

} // namespace

namespace {

// The configurators whose watch threads run. Shutdown and process exit stop
// them all, so that no thread applies a file while the appenders close and
// the statics are destroyed. Never destroyed itself, for the same reason.
struct Watches {
    std::recursive_mutex mutex;
    std::vector<DOMConfiguratorImpl*> running;
};
Watches& watches() {
    static Watches* const all = new Watches();
    return *all;
}

} // namespace

void DOMConfiguratorImpl::configureAndWatch(const std::vector<std::string>& names,
                                            unsigned int period) {
    if (period == 0) {
        report("DOMConfiguratorImpl::configureAndWatch", 1522);
        std::exit(12);
    }
    static std::once_flag atExit;
    std::call_once(atExit, [] { std::atexit(detail::stopConfigurationWatches); });
    std::lock_guard<std::recursive_mutex> guard(watches().mutex);
    stopThread();
    interval = period;
    WatchArguments arguments;
    arguments.impl = this;
    arguments.names = names;
    stop = new Event(Event::ManualReset);
    thread = new Thread(watchThread, "ConfigWatchThread");
    watches().running.push_back(this);
    thread->Start(&arguments);
    // Without limit: the first load is complete when the call returns.
    arguments.ready.Wait(0);
}

void DOMConfiguratorImpl::stopThread() {
    std::lock_guard<std::recursive_mutex> guard(watches().mutex);
    if (!thread)
        return;
    auto& running = watches().running;
    running.erase(std::remove(running.begin(), running.end(), this), running.end());
    stop->Fire();
    thread->WaitForExit();
    delete thread;
    delete stop;
    thread = nullptr;
    stop = nullptr;
}

namespace detail {
void stopConfigurationWatches() {
    std::lock_guard<std::recursive_mutex> guard(watches().mutex);
    auto& running = watches().running;
    // A fatal message raised during a load ends the process from inside the
    // load, perhaps on a watch thread: a thread cannot wait for itself, nor
    // for a watch that waits for the locks this load holds. Those are only
    // told to stop, and end with the process.
    const bool canWait = !ConfigurationPause::insidePause();
    while (!running.empty()) {
        DOMConfiguratorImpl* impl = running.back();
        if (canWait && Thread::GetCurrentThread() != impl->thread) {
            impl->stopThread();
        } else {
            impl->stop->Fire();
            running.pop_back();
        }
    }
}
} // namespace detail

//===-- DOMConfigurator ----------------------------------------------------===//

DOMConfigurator::DOMConfigurator() : impl(new DOMConfiguratorImpl()) {}

DOMConfigurator::~DOMConfigurator() {
    delete impl;
}

bool DOMConfigurator::configure(const char* name) {
    return configure(&name, 1);
}

bool DOMConfigurator::configure(const char** files, unsigned long count) {
    std::vector<std::string> names;
    for (unsigned long i = 0; files && i < count; ++i)
        if (files[i])
            names.emplace_back(files[i]);
    std::string path;
    if (!impl->findFile(names, path))
        return false;
    return impl->configure(path);
}

void DOMConfigurator::configureAndWatch(const char* name, unsigned int interval) {
    configureAndWatch(&name, 1, interval);
}

void DOMConfigurator::configureAndWatch(const char** files, unsigned long count,
                                        unsigned int interval) {
    std::vector<std::string> names;
    for (unsigned long i = 0; files && i < count; ++i)
        if (files[i])
            names.emplace_back(files[i]);
    impl->configureAndWatch(names, interval);
}

} // namespace qzlog
} // namespace qzlib
} // namespace qzs
