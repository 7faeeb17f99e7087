//===- qzunicode/COptimizedConverter.h - Optimised pair converters -*- C++ -*-===//
//
// One-pass converters for pairs of sets, which ULIB_CStoCS tries before the
// two ICU conversions through UTF-16. The first time a thread asks for a pair,
// every character of the source's code space is run once through ICU and the
// results go into lookup tables; from then on a character is one table read,
// with no ICU call and no lock. A character the tables do not hold (bad
// input, or one that does not map) is handed to the ICU path on its own, so
// the result is that of the ICU path byte for byte.
//
//===----------------------------------------------------------------------===//
#ifndef QZUNICODE_COPTIMIZEDCONVERTER_H
#define QZUNICODE_COPTIMIZEDCONVERTER_H

#include "qzstd/Export.h"

#include "qzunicode/CharSetTable.h"
#include "qzunicode/ULibTypes.h"

#include <cstddef>

namespace qzs {
namespace qzlib {
namespace qzunicode {

class CSConverter;

/// One target character of up to 7 bytes, in output order; uLength 0 means
/// no mapping. The tables hold it as its 8-byte image.
struct MBCSCvtInfo {
    unsigned char uLength;
    unsigned char acBytes[7];
};

/// A converter from one set straight to another.
///
/// Ownership: instances are made and owned by the calling thread's cache and
/// deleted when the thread ends. Thread safety: none; an instance must not
/// be handed to another thread (it keeps overrides and the slow path's ICU
/// converter). Objects are const to their users; what changes (overrides,
/// the ICU converter of the slow path) is mutable.
///
/// Every result equals that of the ICU path (ULIB_CStoCS with no optimised
/// converter): the same bytes, the same error, the same handling of bad
/// characters under each behaviour, ULIB_CNV_DEFAULT included (ICU's own
/// substitution).
class QZ_API COptimizedConverter {
public:
    virtual ~COptimizedConverter();
    COptimizedConverter(const COptimizedConverter&) = delete;
    COptimizedConverter& operator=(const COptimizedConverter&) = delete;

    /// The whole-buffer conversion, flushed. Zeroes detail->uOffset when
    /// detail is given. Result: bytes written.
    virtual int convert(char* dst, int dstBytes, int maxChars, const char* src, int srcBytes,
                        bool substitute, ULibError* err, ULibBadCharDetail* detail) const;

    /// The cursor form. Converts from *src up to srcEnd into *dst up to
    /// dstEnd and moves both cursors past what it did; at most maxChars
    /// source characters when maxChars is above 0. With flush false, a
    /// character cut by srcEnd is left for the next call, and a full target
    /// or the character limit is no error (the caller goes on); with flush
    /// true they are ULIB_ERR_BUFFER_OVERFLOW and ULIB_ERR_MAX_CHARS. A stop at
    /// a bad character leaves *src on it, sets err, and, with detail, adds
    /// its offset to uOffset and copies up to 8 of its bytes. substitute
    /// substitutes whatever the thread's behaviour. Result: bytes written.
    virtual int convert(char** dst, const char* dstEnd, int maxChars, const char** src,
                        const char* srcEnd, bool substitute, bool flush, ULibError* err,
                        ULibBadCharDetail* detail) const = 0;

    /// Maps sourceChar (the source character's bytes, most significant first;
    /// for a UTF source the code point) to targetChar (the target character's
    /// bytes the same way; for a UTF-16 target its units, high first; for a
    /// UTF-32 target the code point) in this thread's converter. Overriding a
    /// character with its original mapping removes the override. Result: 0,
    /// or ULIB_ERR_INVALID_CHAR when the pair of values cannot be applied
    /// (targetChar 0, a source value that is not one character, a target
    /// value of the wrong size).
    virtual int charMapOverride(unsigned long sourceChar, unsigned long targetChar) const = 0;

    /// Bytes this converter holds: the object, its tables and overrides.
    virtual std::size_t memoryBytes() const = 0;

    ULibCharSet source() const { return m_eSource; }
    ULibCharSet target() const { return m_eTarget; }

    /// The calling thread's converter for the pair, built on first use, or
    /// null when none serves it (then it is not tried again on this thread).
    /// 3 counts as 1. The tables follow the thread's fallback flag where a
    /// side is native UTF-16 (1), as the ICU path does there, and use
    /// fallbacks elsewhere; the two kinds are cached apart.
    static const COptimizedConverter* getConverter(ULibCharSet source, ULibCharSet target);

    /// Refreshes the calling thread's converters after its substitution
    /// string changed. Nothing is cached from it today (substitution goes
    /// through ICU, which reads the thread's string each time), so this is
    /// the hook ULIB_setSubstString calls, kept for when a table holds it.
    static void updateSubstString();

    /// Bytes held by the calling thread's optimised converters, all pairs.
    static std::size_t threadMemoryBytes();

    /// The image of targetChar (isSource false) or sourceChar in the set's
    /// bytes. UTF-16 sets: one unit, or two above 0xFFFF, high first, each in
    /// the set's byte order; UTF-32 sets: the 4 bytes in the set's order;
    /// other sets: the value's bytes, most significant first, without leading
    /// zero bytes (0 is the one byte 0). Result: the length.
    int toMBCSCvtInfo(unsigned long value, MBCSCvtInfo& info, bool isSource) const;

    // The slow path and the ending shared by the classes' loops; not for
    // other callers.

    /// What the slow path did with a character the tables do not hold.
    struct BadOutcome {
        enum Kind { Written, Stop, Partial, Overflow } kind;
        int consumed;  ///< source bytes of the character
        int bytes;     ///< bytes written (Written)
        ULibError err; ///< Stop
        /// Stop: the ICU path would have converted the text before it in a
        /// second step of its own, which ends a shift run.
        bool closesRun;
    };

    /// Converts the one character at p (left bytes of source remain) by the
    /// ICU path, under the thread's behaviour or substitution, into out, with
    /// room bytes. Partial: the character is cut by the end of a piece that is
    /// not the last (flush false).
    BadOutcome handleBad(const unsigned char* p, int left, bool flush, unsigned char* out, int room,
                         bool substitute) const;

    /// The loop's ending, shared by every class: stores the error, reports a
    /// stop in detail, moves the cursors.
    static int finish(char** dst, const char** src, int written, int pos, ULibError e,
                      ULibError* err);
    static void reportBad(ULibBadCharDetail* detail, const unsigned char* p, int len, int pos);
    /// Whether an EBCDIC stateful target is in a double byte run. Kept
    /// between cursor calls: a stream cut with flush false goes on in its
    /// run. A flushed conversion closes its run, except when it stops at a
    /// bad character (as the ICU path does); the whole-buffer form starts
    /// outside a run, so an empty whole-buffer conversion starts a stream
    /// afresh. Kept on purpose: the state belongs to the thread's converter
    /// of the pair, so two interleaved streams of one pair share it.
    bool& targetInDoubleByte() const { return m_bTargetInDoubleByte; }
    /// Whether an EBCDIC stateful source is in a double byte run: kept
    /// between cursor calls with flush false, ended by a flushed end of
    /// text, and outside a run at the start of the whole-buffer form.
    bool& sourceInDoubleByte() const { return m_bSourceInDoubleByte; }
    /// Whether the target is EBCDIC stateful (its loop keeps a shift state).
    bool shiftTarget() const { return m_bShiftTarget; }
    /// An override's target character as a table holds it: for an EBCDIC
    /// stateful target one byte, or a double byte pair given bare or as
    /// shift, pair, shift back. False when it is neither.
    bool fitsTarget(MBCSCvtInfo& info) const;

protected:
    COptimizedConverter(ULibCharSet source, ULibCharSet target);

    ULibCharSet m_eSource;
    ULibCharSet m_eTarget;
    bool m_bShiftTarget = false;
    mutable bool m_bTargetInDoubleByte = false;
    bool m_bShiftSource = false;
    mutable bool m_bSourceInDoubleByte = false;

private:
    /// The source's ICU converter, opened on the first bad character, to learn
    /// how many bytes ICU takes as that character.
    mutable CSConverter* m_poSourceICU = nullptr;
};

} // namespace qzunicode
} // namespace qzlib
} // namespace qzs

#endif // QZUNICODE_COPTIMIZEDCONVERTER_H
