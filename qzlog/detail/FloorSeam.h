//===- qzlog/detail/FloorSeam.h - Installs the floor seam ------*- C++ -*-===//
//
// Start-up calls installFloorSeam() once the core is up; from then on the
// threads, pools and utilities underneath log through it.
//
//===----------------------------------------------------------------------===//
#ifndef QZLOG_DETAIL_FLOORSEAM_H
#define QZLOG_DETAIL_FLOORSEAM_H

namespace qzs {
namespace qzlib {
namespace qzlog {

/// Gives the floor below its loggers and the cached clock.
void installFloorSeam();

} // namespace qzlog
} // namespace qzlib
} // namespace qzs

#endif // QZLOG_DETAIL_FLOORSEAM_H
