//===- include/itempool.h - Typed free-list pools --------------*- C++ -*-===//
//
// The pools under their traditional header name; they live in qzstd/.
//
//===----------------------------------------------------------------------===//
#ifndef QZLIB_ITEMPOOL_H
#define QZLIB_ITEMPOOL_H

#include "qzstd/ItemPool.h"

#endif // QZLIB_ITEMPOOL_H
