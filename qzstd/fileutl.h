//===- qzstd/fileutl.h - File utilities ------------------------*- C++ -*-===//
//
// The whole family of file utilities in one include, for code that uses many
// of them. Each part has its own header: opening and checked calls (FileIO),
// durable flushing (FileSync), existence and stat (FileStatus), directories
// and ageing (Directory), file lists (FileList), paths and trail names
// (Path), the installation directory (Installation), and the hex output to a
// stream (HexDump).
//
//===----------------------------------------------------------------------===//
#ifndef QZSTD_FILEUTL_H
#define QZSTD_FILEUTL_H

#include "qzstd/Directory.h"
#include "qzstd/FileIO.h"
#include "qzstd/FileList.h"
#include "qzstd/FileStatus.h"
#include "qzstd/FileSync.h"
#include "qzstd/HexDump.h"
#include "qzstd/Installation.h"
#include "qzstd/Path.h"

#endif // QZSTD_FILEUTL_H
