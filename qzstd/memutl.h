//===- qzstd/memutl.h - Checked allocation and hex dumps -------*- C++ -*-===//
//
// The memory utilities in one include: the checked allocation family and its
// tracing (Memory), and the hexadecimal helpers the logging path uses to
// render raw data (HexDump).
//
//===----------------------------------------------------------------------===//
#ifndef QZSTD_MEMUTL_H
#define QZSTD_MEMUTL_H

#include "qzstd/HexDump.h"
#include "qzstd/Memory.h"

#endif // QZSTD_MEMUTL_H
