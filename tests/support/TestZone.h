//===- tests/support/TestZone.h - A fixed local zone for a test process -*- C++ -*-===//
//
// Local time in the tests never depends on the machine's zone: a suite that
// includes this header runs in a POSIX zone with daylight saving, set before
// any test, and a ZoneScope moves it elsewhere for one test.
//
//===----------------------------------------------------------------------===//
#ifndef TESTS_SUPPORT_TESTZONE_H
#define TESTS_SUPPORT_TESTZONE_H

#include <cstdlib>
#include <ctime>

namespace qztest {

/// Eastern time, with its 2007 rules: needs no zone files.
constexpr char kTestZone[] = "EST5EDT,M3.2.0,M11.1.0";

inline void setZone(const char* zone) {
    setenv("TZ", zone, 1);
    tzset();
}

/// Sets kTestZone once, at static initialisation of the including suite.
inline const bool testZoneSet = (setZone(kTestZone), true);

/// Another zone for the life of the object, then kTestZone again.
struct ZoneScope {
    explicit ZoneScope(const char* zone) { setZone(zone); }
    ~ZoneScope() { setZone(kTestZone); }
    ZoneScope(const ZoneScope&) = delete;
    ZoneScope& operator=(const ZoneScope&) = delete;
};

} // namespace qztest

#endif // TESTS_SUPPORT_TESTZONE_H
