//===- qzunicode/detail/CharSetPackage.h - The database sets' package -*- C++ -*-===//
//
// The database block's sets are not ICU's: their mappings ship with this
// library as the ICU converter package "qzCharsets.dat", which lies beside
// the library (or beside the program). This file finds the package and opens
// converters from it.
//
//===----------------------------------------------------------------------===//
#ifndef QZUNICODE_DETAIL_CHARSETPACKAGE_H
#define QZUNICODE_DETAIL_CHARSETPACKAGE_H

#include "qzunicode/CharSetTable.h"

struct UConverter;

namespace qzs {
namespace qzlib {
namespace qzunicode {
namespace detail {

/// The package's name, as ICU and the file system know it ("<name>.dat").
constexpr const char kCharSetPackageName[] = "qzCharsets";

/// Whether cs (top bit masked off) is a set of the database block, which
/// opens from the package rather than from ICU's own data.
bool isPackagedCharSet(ULibCharSet cs);

/// A new converter for the database set cs, or null (with status set) when
/// the package is missing, unreadable, corrupt or lacks the set. The first
/// call for a set loads it; later calls clone that copy, so the package is
/// read once per set and process. Thread-safe.
UConverter* openPackagedConverter(ULibCharSet cs, int* status);

/// Where the package is read from: a directory and the package name, without
/// ".dat". The library's directory when the package lies there, otherwise
/// the program's. Found once, on the first call.
const char* charSetPackagePath();

/// Tests only: reads the package from this path (a directory and the
/// package name, without ".dat"; null to search again) at the next open, and
/// forgets the sets opened so far. Not safe while other threads convert.
void resetCharSetPackageForTest(const char* path);

} // namespace detail
} // namespace qzunicode
} // namespace qzlib
} // namespace qzs

#endif // QZUNICODE_DETAIL_CHARSETPACKAGE_H
