//===- include/QZException.h - A message thrown as an exception -*- C++ -*-===//
//
// The exception under its traditional header name; it lives in qzmsg/.
//
//===----------------------------------------------------------------------===//
#ifndef QZLIB_QZEXCEPTION_H
#define QZLIB_QZEXCEPTION_H

#include "qzmsg/QZException.h"

#endif // QZLIB_QZEXCEPTION_H
