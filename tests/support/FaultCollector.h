//===- tests/support/FaultCollector.h - Faults reported during a test -*- C++ -*-===//
//
// Swaps the library's fault sink for one that keeps every reported fault,
// from any thread, until the collector goes out of scope.
//
//===----------------------------------------------------------------------===//
#ifndef TESTS_SUPPORT_FAULTCOLLECTOR_H
#define TESTS_SUPPORT_FAULTCOLLECTOR_H

#include "qzstd/FaultReport.h"

#include <mutex>
#include <vector>

namespace qztest {

/// Collects the faults reported while it lives. One at a time per process.
class FaultCollector {
public:
    FaultCollector() {
        std::lock_guard<std::mutex> guard(s_mutex);
        s_faults.clear();
        m_previous = qzs::qzlib::detail::setFaultSink(&collect);
    }
    ~FaultCollector() { qzs::qzlib::detail::setFaultSink(m_previous); }
    FaultCollector(const FaultCollector&) = delete;
    FaultCollector& operator=(const FaultCollector&) = delete;

    std::vector<qzs::qzlib::detail::Fault> faults() const {
        std::lock_guard<std::mutex> guard(s_mutex);
        return s_faults;
    }
    size_t count() const { return faults().size(); }

private:
    static void collect(const qzs::qzlib::detail::Fault& fault) {
        std::lock_guard<std::mutex> guard(s_mutex);
        s_faults.push_back(fault);
    }
    static inline std::mutex s_mutex;
    static inline std::vector<qzs::qzlib::detail::Fault> s_faults;
    qzs::qzlib::detail::FaultSink m_previous;
};

} // namespace qztest

#endif // TESTS_SUPPORT_FAULTCOLLECTOR_H
