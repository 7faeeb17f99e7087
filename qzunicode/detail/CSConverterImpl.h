//===- qzunicode/detail/CSConverterImpl.h - Converter interface -------*- C++ -*-===//
//
// The interface every converter implementation offers to the front end
// (CSConverter). An implementation converts between one character set and
// native UTF-16.
//
//===----------------------------------------------------------------------===//
#ifndef QZUNICODE_DETAIL_CSCONVERTERIMPL_H
#define QZUNICODE_DETAIL_CSCONVERTERIMPL_H

#include "qzunicode/ULibTypes.h"

namespace qzs {
namespace qzlib {
namespace qzunicode {

/// A converter between one character set and UTF-16 in native byte order.
/// Instances belong to one thread. No operation throws; bad arguments give
/// ULIB_ERR_ILLEGAL_ARGUMENT and a result of 0, and no operation writes past
/// the room it is given.
class CSConverterImpl {
public:
    virtual ~CSConverterImpl() = default;

    virtual CSConverterType getType() const = 0;
    /// Fills a 256-entry map with 1 for each byte that starts a multi-byte
    /// character. False when the converter has no such map.
    virtual bool getLeadByteMap(unsigned char* map) const = 0;
    /// The converter's own name of its set; not owned by the caller.
    virtual const char* getCharSetName() const = 0;
    /// Length of s in bytes, up to a terminator of the set. Null: 0.
    virtual int getNumBytes(const char* s) const = 0;
    /// Converts srcBytes bytes (-1: measured by getNumBytes) into at most
    /// dstUnits units. Result: units written. REQUIRES: dst aligned.
    virtual int toUTF16(unsigned short* dst, int dstUnits, const char* src, int srcBytes,
                        ULibError* err) = 0;
    /// Converts srcUnits units (-1: up to a zero unit) into at most dstBytes
    /// bytes. Result: bytes written. REQUIRES: src aligned.
    virtual int fromUTF16(char* dst, int dstBytes, const unsigned short* src, int srcUnits,
                          ULibError* err) = 0;
};

} // namespace qzunicode
} // namespace qzlib
} // namespace qzs

#endif // QZUNICODE_DETAIL_CSCONVERTERIMPL_H
