//===- qzstd/Export.h - What the shared library exports --------*- C++ -*-===//
//
// The library is built with hidden visibility: only what carries QZ_API is in
// its dynamic symbol table, and a test holds that table to a list. Put it on
// public classes (which exports their members, vtables and type information)
// and on public free functions and variables; never on anything in detail/.
//
//===----------------------------------------------------------------------===//
#ifndef QZSTD_EXPORT_H
#define QZSTD_EXPORT_H

#define QZ_API __attribute__((visibility("default")))

#endif // QZSTD_EXPORT_H
