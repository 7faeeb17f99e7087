//===- tests/support/FaultCollector.h - Messages raised during a test -*- C++ -*-===//
//
// Adds a factory-wide action that keeps every message issued, from any
// thread, until the collector goes out of scope. The messages' own severities
// still run.
//
//===----------------------------------------------------------------------===//
#ifndef TESTS_SUPPORT_FAULTCOLLECTOR_H
#define TESTS_SUPPORT_FAULTCOLLECTOR_H

#include "qzmsg/CAction.h"
#include "qzmsg/CErrorContext.h"
#include "qzmsg/CMessage.h"
#include "qzmsg/CMessageContext.h"
#include "qzmsg/CMessageFactory.h"
#include "qzmsg/CSourceContext.h"

#include <mutex>
#include <string>
#include <vector>

namespace qztest {

/// One issued message: its number, formatted text, the texts of its details
/// joined by ", ", and where it was raised.
struct Fault {
    unsigned int number;
    std::string text;
    std::string arguments;
    struct {
        std::string component; ///< the source module, e.g. "qzstd.util.mem"
        std::string file;      ///< the source ID, e.g. "qzstd/memutl"
        std::string function;
        unsigned int line;
    } site;
};

/// Collects the messages issued while it lives. One at a time per process;
/// make it before the threads whose messages it collects.
class FaultCollector : public qzs::qzlib::CAction {
public:
    FaultCollector() : CAction("FaultCollector", nullptr) {
        qzs::qzlib::CMessageFactory::GetDefaultFactory()->AddAction(this);
    }
    ~FaultCollector() override {
        qzs::qzlib::CMessageFactory::GetDefaultFactory()->DeleteAction(this);
    }

    bool Execute(qzs::qzlib::CMessage const* message) const override {
        Fault fault = toFault(message);
        std::lock_guard<std::mutex> guard(m_mutex);
        m_faults.push_back(fault);
        return true;
    }

    /// The messages kept in the calling thread's error context rather than
    /// issued, oldest first; they are deleted from it.
    static std::vector<Fault> takePending() {
        qzs::qzlib::CErrorContext* context = qzs::qzlib::CErrorContext::GetContext();
        std::vector<Fault> pending;
        for (qzs::qzlib::CMessage* m : context->messages)
            pending.push_back(toFault(m));
        context->Clear();
        return pending;
    }

    static Fault toFault(qzs::qzlib::CMessage const* message) {
        Fault fault;
        fault.number = message->GetMessageID();
        char const* text = message->Format(qzs::qzlib::FactoryCharSet);
        fault.text = text ? text : "";
        for (const qzs::qzlib::CDataItem& d : message->context->details()) {
            if (!fault.arguments.empty())
                fault.arguments += ", ";
            fault.arguments += textOf(d);
        }
        fault.site = {"", "", "", 0};
        if (const qzs::qzlib::CSourceContext* s = message->context->source())
            fault.site = {s->module ? s->module : "", s->id ? s->id : "",
                          s->method ? s->method : "", s->line};
        return fault;
    }

    std::vector<Fault> faults() const {
        std::lock_guard<std::mutex> guard(m_mutex);
        return m_faults;
    }
    size_t count() const { return faults().size(); }

private:
    static std::string textOf(const qzs::qzlib::CDataItem& d) {
        using qzs::qzlib::CDataItem;
        switch (d.getType()) {
        case CDataItem::String: {
            char const* t = d;
            return t ? t : "";
        }
        case CDataItem::Int:
            return std::to_string(static_cast<int>(d));
        case CDataItem::UnsignedInt:
            return std::to_string(static_cast<unsigned int>(d));
        case CDataItem::Long:
            return std::to_string(static_cast<long>(d));
        case CDataItem::UnsignedLong:
            return std::to_string(static_cast<unsigned long>(d));
        case CDataItem::Bool:
            return static_cast<bool>(d) ? "true" : "false";
        default:
            return "?";
        }
    }

    mutable std::mutex m_mutex;
    mutable std::vector<Fault> m_faults;
};

} // namespace qztest

#endif // TESTS_SUPPORT_FAULTCOLLECTOR_H
