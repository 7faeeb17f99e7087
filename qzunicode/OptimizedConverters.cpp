//===- qzunicode/OptimizedConverters.cpp - The pair converters ------------===//
//
// Builders walk the source's code space once through ICU and keep what maps;
// the loops read a character, look it up, and write its bytes. A character
// the tables do not hold (bad, unmapped, or longer than a table value) goes
// to COptimizedConverter::handleBad, which answers as the ICU path does.
//
//===----------------------------------------------------------------------===//
#include "qzunicode/detail/OptimizedConverters.h"

#include "qzunicode/CSConverter.h"
#include "qzunicode/detail/SimdKernels.h"

#include <cstdint>
#include <cstring>
#include <type_traits>

namespace qzs {
namespace qzlib {
namespace qzunicode {

// Images are read back with one memcpy of their bytes, low byte first.
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the system runs little-endian");
static_assert(sizeof(CvtImage) == 8, "an image is 8 bytes");

namespace {

constexpr ULibCharSet kUTF16 = ULibCharSet(1);
// The EBCDIC shifts: 0x0E opens a double byte run, 0x0F closes it.
constexpr unsigned char kShiftIn = 0x0E;
constexpr unsigned char kShiftOut = 0x0F;
// What a lookup answers for a source shift: read, and nothing to write.
constexpr int kShiftOnly = 2;

CvtImage makeImage(const unsigned char* bytes, int len) {
    if (len < 1 || len > 7)
        return 0;
    CvtImage v = static_cast<CvtImage>(len);
    for (int i = 0; i < len; ++i)
        v |= static_cast<CvtImage>(bytes[i]) << (8 * (i + 1));
    return v;
}

CvtImage imageOf(const MBCSCvtInfo& info) {
    return makeImage(info.acBytes, info.uLength);
}

inline int lengthOf(unsigned char) {
    return 1;
}
inline int lengthOf(CvtImage v) {
    return static_cast<int>(v & 0xFF);
}

inline void put(unsigned char* out, unsigned char v, int, int) {
    *out = v;
}
inline void put(unsigned char* out, CvtImage v, int len, int room) {
    const CvtImage bytes = v >> 8;
    // With room to spare, one fixed 8-byte store; the bytes past len are
    // overwritten by the next character or left as scratch inside the
    // target. (A store of variable length compiles to a slow string move.)
    if (room >= 8) {
        std::memcpy(out, &bytes, 8);
        return;
    }
    for (int i = 0; i < len; ++i)
        out[i] = static_cast<unsigned char>(bytes >> (8 * i));
}

// A table value from the target's bytes for one character: the byte itself
// for a single-byte target (0 if it is not one byte), else the image.
template <typename V> V valueOf(const unsigned char* bytes, int len);
template <> unsigned char valueOf<unsigned char>(const unsigned char* bytes, int len) {
    return len == 1 ? bytes[0] : 0;
}
template <> CvtImage valueOf<CvtImage>(const unsigned char* bytes, int len) {
    return makeImage(bytes, len);
}

// Runs the source's characters through ICU for the tables, with the
// callbacks set to stop, so only characters that map cleanly are kept.
class Builder {
public:
    Builder(CSConverter& s, ULibCharSet target, CSConverter& t)
        : m_source(s), m_target(t), m_nativeUTF16(target == kUTF16),
          m_shiftTarget(t.getType() == CNV_TYPE_EBCDIC_STATEFUL) {}

    // The table value of one character's target bytes. An EBCDIC stateful
    // target writes a double byte character alone as shift, two bytes,
    // shift back: the value is the two bytes (length 2), and the loop
    // writes the shifts as its state needs them.
    template <typename V> V valueOfBytes(const unsigned char* out, int len) const {
        if (len <= 0)
            return V(0);
        if (sizeof(V) > 1 && m_shiftTarget) {
            if (len == 1 && out[0] != kShiftIn && out[0] != kShiftOut)
                return valueOf<V>(out, 1);
            if (len == 4 && out[0] == kShiftIn && out[3] == kShiftOut)
                return valueOf<V>(out + 1, 2);
            return V(0);
        }
        return valueOf<V>(out, len);
    }

    // The target bytes of n UTF-16 units, or -1.
    int fromUnits(const unsigned short* units, int n, unsigned char* out) {
        if (m_nativeUTF16) {
            if (n > 3)
                return -1;
            std::memcpy(out, units, 2 * n);
            return 2 * n;
        }
        ULibError e = ULIB_OK;
        const int len = m_target.fromUTF16(reinterpret_cast<char*>(out), 16, units, n, &e);
        return e == ULIB_OK && len > 0 ? len : -1;
    }

    // The target bytes of one source character's bytes, or -1.
    int fromBytes(const unsigned char* bytes, int n, unsigned char* out) {
        unsigned short units[8];
        ULibError e = ULIB_OK;
        const int u = m_source.toUTF16(units, 8, reinterpret_cast<const char*>(bytes), n, &e);
        if (e != ULIB_OK || u < 1)
            return -1;
        return fromUnits(units, u, out);
    }

    template <typename V> V value(const unsigned char* bytes, int n) {
        unsigned char out[16];
        const int len = fromBytes(bytes, n, out);
        return valueOfBytes<V>(out, len);
    }

private:
    CSConverter& m_source;
    CSConverter& m_target;
    bool m_nativeUTF16;
    bool m_shiftTarget;
};

enum TargetKind { NoTarget, OneByte, Image };

// Which table value a target takes. An EBCDIC stateful target takes images
// of one byte or of a double byte pair, and its loop keeps the shift state.
// ISO-2022 and the stateful Unicode forms (UTF-7, SCSU, BOCU-1), of type 7
// and 8, are not served.
TargetKind targetKind(const CSConverter& t) {
    switch (t.getType()) {
    case CNV_TYPE_SBCS:
        return OneByte;
    case CNV_TYPE_EBCDIC_STATEFUL:
    case CNV_TYPE_UTF8:
    case CNV_TYPE_UTF16:
    case CNV_TYPE_UTF32:
    case CNV_TYPE_MBCS:
    case CNV_TYPE_DBCS:
        return Image;
    default:
        return NoTarget;
    }
}

// The loop all classes share. lookup(p, left, v, consumed) answers true with
// the value of a character the tables hold; anything else is the slow path's.
// A run of one-byte characters below 0x80 through a 128-entry array, for the
// loop to take in one go; stops at the first byte that is not so simple.
template <typename V> struct AsciiRun {
    const V* ascii; // null: no such runs
    void operator()(const unsigned char* in, int& pos, int input, unsigned char* out, int& written,
                    int& room) const {
        if (ascii == nullptr)
            return;
        while (pos < input && in[pos] < 0x80) {
            const V v = ascii[in[pos]];
            const int len = lengthOf(v);
            if ((v == 0 && in[pos] != 0) || len > room || (sizeof(V) > 1 && len == 0))
                return;
            put(out + written, v, len, room);
            written += len;
            room -= len;
            ++pos;
        }
    }
};

// run(in, pos, input, out, written, room) takes, before each character the
// loop reads itself, as many simple characters as it can; AsciiRun is one.
template <typename V, bool Limited, typename Lookup, typename Run>
int runLoopAs(const COptimizedConverter& self, const Lookup& lookup, char** dst, const char* dstEnd,
              int maxChars, const char** src, const char* srcEnd, bool substitute, bool flush,
              ULibError* err, ULibBadCharDetail* detail, int pos, int written, const Run& run) {
    unsigned char* const out = reinterpret_cast<unsigned char*>(*dst);
    const unsigned char* const in = reinterpret_cast<const unsigned char*>(*src);
    const int input = srcEnd > *src ? static_cast<int>(srcEnd - *src) : 0;
    int room = dstEnd > *dst ? static_cast<int>(dstEnd - *dst) : 0;
    room -= written; // by a fast loop before this one
    int chars = 0;
    ULibError e = ULIB_OK;
    while (pos < input) {
        if (!Limited) {
            run(in, pos, input, out, written, room);
            if (pos == input)
                break;
        }
        if (Limited && chars == maxChars) {
            if (flush)
                e = ULIB_ERR_MAX_CHARS;
            break;
        }
        V v;
        int consumed;
        const int r = lookup(in + pos, input - pos, v, consumed);
        if (r == kShiftOnly) {
            pos += consumed; // a shift of the source: nothing to write
            continue;
        }
        if (r) {
            const int len = lengthOf(v);
            if (len > room) {
                if (flush)
                    e = ULIB_ERR_BUFFER_OVERFLOW;
                break;
            }
            put(out + written, v, len, room);
            written += len;
            room -= len;
            pos += consumed;
            ++chars;
            continue;
        }
        const COptimizedConverter::BadOutcome b =
            self.handleBad(in + pos, input - pos, flush, out + written, room, substitute);
        if (b.kind == COptimizedConverter::BadOutcome::Partial)
            break;
        if (b.kind == COptimizedConverter::BadOutcome::Overflow) {
            if (flush)
                e = ULIB_ERR_BUFFER_OVERFLOW;
            break;
        }
        if (b.kind == COptimizedConverter::BadOutcome::Stop) {
            e = b.err;
            COptimizedConverter::reportBad(detail, in + pos, b.consumed, pos);
            break;
        }
        // A skipped character writes nothing and is not counted.
        written += b.bytes;
        room -= b.bytes;
        pos += b.consumed;
        if (b.bytes > 0)
            ++chars;
    }
    // A flushed text ends the source's double byte run, read to its end or
    // cut at the limit.
    if (flush && (pos == input || e == ULIB_ERR_MAX_CHARS))
        self.sourceInDoubleByte() = false;
    return COptimizedConverter::finish(dst, src, written, pos, e, err);
}

// The loop without the count of characters when there is no limit.
template <typename V, typename Lookup>
int runLoop(const COptimizedConverter& self, const Lookup& lookup, char** dst, const char* dstEnd,
            int maxChars, const char** src, const char* srcEnd, bool substitute, bool flush,
            ULibError* err, ULibBadCharDetail* detail, int pos = 0, int written = 0,
            const V* ascii = nullptr) {
    if (maxChars > 0)
        return runLoopAs<V, true>(self, lookup, dst, dstEnd, maxChars, src, srcEnd, substitute,
                                  flush, err, detail, pos, written, AsciiRun<V>{nullptr});
    return runLoopAs<V, false>(self, lookup, dst, dstEnd, maxChars, src, srcEnd, substitute, flush,
                               err, detail, pos, written, AsciiRun<V>{ascii});
}

// The same with runs of a source's own (run is used only with no limit).
template <typename V, typename Lookup, typename Run>
int runLoopWith(const COptimizedConverter& self, const Lookup& lookup, const Run& run, char** dst,
                const char* dstEnd, int maxChars, const char** src, const char* srcEnd,
                bool substitute, bool flush, ULibError* err, ULibBadCharDetail* detail) {
    if (maxChars > 0)
        return runLoopAs<V, true>(self, lookup, dst, dstEnd, maxChars, src, srcEnd, substitute,
                                  flush, err, detail, 0, 0, AsciiRun<V>{nullptr});
    return runLoopAs<V, false>(self, lookup, dst, dstEnd, maxChars, src, srcEnd, substitute, flush,
                               err, detail, 0, 0, run);
}

// The loop for an EBCDIC stateful target: a one-byte value is written in
// single byte state, a two-byte value in a double byte run, and the shifts
// between them as the state changes. A flushed conversion ends outside a run:
// when the closing shift does not fit, the last character goes back to the
// source and the result is a full target, which is the longest start of the
// text that fits closed, as the ICU path finds it. With flush false the run
// stays open for the next call, in the object.
template <bool Limited, typename Lookup>
int runShiftLoopAs(const COptimizedConverter& self, const Lookup& lookup, char** dst,
                   const char* dstEnd, int maxChars, const char** src, const char* srcEnd,
                   bool substitute, bool flush, ULibError* err, ULibBadCharDetail* detail) {
    unsigned char* const out = reinterpret_cast<unsigned char*>(*dst);
    const unsigned char* const in = reinterpret_cast<const unsigned char*>(*src);
    const int input = srcEnd > *src ? static_cast<int>(srcEnd - *src) : 0;
    const int room = dstEnd > *dst ? static_cast<int>(dstEnd - *dst) : 0;
    bool& inRun = self.targetInDoubleByte();
    int pos = 0, written = 0, chars = 0;
    ULibError e = ULIB_OK;
    // Where the last character began: what to give back when the closing
    // shift does not fit.
    struct Mark {
        int pos, written;
        bool inRun;
    } last{-1, 0, false};
    // Room a character of n bytes (1 or 2) takes, with the shift before it.
    auto need = [&](int n, bool state) {
        return n == 1 ? (state ? 1 : 0) + 1 : (state ? 0 : 1) + 2;
    };
    auto emit = [&](const unsigned char* b, int n) {
        if (n == 1 && inRun) {
            out[written++] = kShiftOut;
            inRun = false;
        } else if (n == 2 && !inRun) {
            out[written++] = kShiftIn;
            inRun = true;
        }
        for (int i = 0; i < n; ++i)
            out[written++] = b[i];
    };
    bool close = flush;
    while (pos < input) {
        if (Limited && chars == maxChars) {
            if (flush)
                e = ULIB_ERR_MAX_CHARS;
            break;
        }
        CvtImage v;
        int consumed;
        const int r = lookup(in + pos, input - pos, v, consumed);
        if (r == kShiftOnly) {
            pos += consumed; // a shift of the source: nothing to write
            continue;
        }
        if (r) {
            const int n = lengthOf(v);
            if (need(n, inRun) > room - written) {
                if (flush)
                    e = ULIB_ERR_BUFFER_OVERFLOW;
                break;
            }
            last = {pos, written, inRun};
            const unsigned char b[2] = {static_cast<unsigned char>(v >> 8),
                                        static_cast<unsigned char>(v >> 16)};
            emit(b, n);
            pos += consumed;
            ++chars;
            continue;
        }
        // The slow path converts the character alone, so its output opens
        // and closes its own runs: it is read back into characters and
        // written by the state here.
        unsigned char tmp[512];
        const COptimizedConverter::BadOutcome b =
            self.handleBad(in + pos, input - pos, flush, tmp, sizeof tmp, substitute);
        if (b.kind == COptimizedConverter::BadOutcome::Partial)
            break;
        if (b.kind == COptimizedConverter::BadOutcome::Stop) {
            // Kept on purpose: at a character the target lacks the run stays
            // open, as the ICU path leaves it (the error says the text is
            // cut); at one bad in the source it is closed, as the ICU path's
            // second step closes it.
            e = b.err;
            COptimizedConverter::reportBad(detail, in + pos, b.consumed, pos);
            close = flush && b.closesRun;
            break;
        }
        int pieces[256][2]; // offset, length
        int count = 0;
        bool pieceRun = false;
        for (int i = 0; i < b.bytes && count < 256;) {
            if (tmp[i] == kShiftIn || tmp[i] == kShiftOut) {
                pieceRun = tmp[i++] == kShiftIn;
                continue;
            }
            const int n = pieceRun && i + 1 < b.bytes ? 2 : 1;
            pieces[count][0] = i;
            pieces[count++][1] = n;
            i += n;
        }
        // All of it or nothing.
        bool state = inRun;
        int total = 0;
        for (int k = 0; k < count; ++k) {
            total += need(pieces[k][1], state);
            state = pieces[k][1] == 2;
        }
        if (total > room - written) {
            if (flush)
                e = ULIB_ERR_BUFFER_OVERFLOW;
            break;
        }
        if (count > 0)
            last = {pos, written, inRun};
        for (int k = 0; k < count; ++k)
            emit(tmp + pieces[k][0], pieces[k][1]);
        pos += b.consumed;
        if (b.bytes > 0)
            ++chars;
    }
    if (close && inRun) {
        if (written == room && last.pos >= 0) {
            // The closing shift does not fit: the last character goes back.
            pos = last.pos;
            written = last.written;
            inRun = last.inRun;
            e = ULIB_ERR_BUFFER_OVERFLOW;
        }
        if (inRun && written < room) {
            out[written++] = kShiftOut;
            inRun = false;
        } else if (inRun) {
            e = ULIB_ERR_BUFFER_OVERFLOW; // a run opened by an earlier call, and no room
        }
    }
    // A flushed text ends the source's double byte run, read to its end or
    // cut at the limit.
    if (flush && (pos == input || e == ULIB_ERR_MAX_CHARS))
        self.sourceInDoubleByte() = false;
    return COptimizedConverter::finish(dst, src, written, pos, e, err);
}

template <typename Lookup>
int runShiftLoop(const COptimizedConverter& self, const Lookup& lookup, char** dst,
                 const char* dstEnd, int maxChars, const char** src, const char* srcEnd,
                 bool substitute, bool flush, ULibError* err, ULibBadCharDetail* detail) {
    if (maxChars > 0)
        return runShiftLoopAs<true>(self, lookup, dst, dstEnd, maxChars, src, srcEnd, substitute,
                                    flush, err, detail);
    return runShiftLoopAs<false>(self, lookup, dst, dstEnd, maxChars, src, srcEnd, substitute,
                                 flush, err, detail);
}

// How a UTF source writes a character beyond the BMP with no table: the
// forms a Unicode target has by rule, else through ICU.
enum SupplementaryForm { SuppICU, SuppUTF8, SuppUTF16LE, SuppUTF16BE, SuppUTF32LE, SuppUTF32BE };

int supplementaryFormOf(ULibCharSet target) {
    switch (static_cast<int>(target)) {
    case 0:
        return SuppUTF8;
    case 1:
    case 3:
        return SuppUTF16LE;
    case 2:
        return SuppUTF16BE;
    case 4:
    case 6:
        return SuppUTF32LE;
    case 5:
        return SuppUTF32BE;
    default:
        return SuppICU;
    }
}

// The image of a code point in a Unicode form, computed: what ICU writes for
// a valid code point in these forms is fixed by the forms themselves.
CvtImage unicodeImage(int form, unsigned int cp) {
    unsigned char b[4];
    if (cp <= 0xFFFF) {
        switch (form) {
        case SuppUTF8:
            if (cp < 0x80) {
                b[0] = static_cast<unsigned char>(cp);
                return makeImage(b, 1);
            }
            if (cp < 0x800) {
                b[0] = 0xC0 | (cp >> 6), b[1] = 0x80 | (cp & 0x3F);
                return makeImage(b, 2);
            }
            b[0] = 0xE0 | (cp >> 12), b[1] = 0x80 | ((cp >> 6) & 0x3F), b[2] = 0x80 | (cp & 0x3F);
            return makeImage(b, 3);
        case SuppUTF16LE:
            b[0] = cp & 0xFF, b[1] = cp >> 8;
            return makeImage(b, 2);
        case SuppUTF16BE:
            b[0] = cp >> 8, b[1] = cp & 0xFF;
            return makeImage(b, 2);
        case SuppUTF32LE:
            b[0] = cp & 0xFF, b[1] = cp >> 8, b[2] = 0, b[3] = 0;
            return makeImage(b, 4);
        case SuppUTF32BE:
            b[0] = 0, b[1] = 0, b[2] = cp >> 8, b[3] = cp & 0xFF;
            return makeImage(b, 4);
        default:
            return 0;
        }
    }
    const unsigned int hi = (cp >> 10) + 0xD7C0;
    const unsigned int lo = (cp & 0x3FF) + 0xDC00;
    switch (form) {
    case SuppUTF8:
        b[0] = 0xF0 | (cp >> 18);
        b[1] = 0x80 | ((cp >> 12) & 0x3F);
        b[2] = 0x80 | ((cp >> 6) & 0x3F);
        b[3] = 0x80 | (cp & 0x3F);
        break;
    case SuppUTF16LE:
        b[0] = hi & 0xFF, b[1] = hi >> 8, b[2] = lo & 0xFF, b[3] = lo >> 8;
        break;
    case SuppUTF16BE:
        b[0] = hi >> 8, b[1] = hi & 0xFF, b[2] = lo >> 8, b[3] = lo & 0xFF;
        break;
    case SuppUTF32LE:
        b[0] = cp & 0xFF, b[1] = (cp >> 8) & 0xFF, b[2] = cp >> 16, b[3] = 0;
        break;
    case SuppUTF32BE:
        b[0] = 0, b[1] = cp >> 16, b[2] = (cp >> 8) & 0xFF, b[3] = cp & 0xFF;
        break;
    default:
        return 0;
    }
    return makeImage(b, 4);
}

// How many bytes from p, at most n, are below 0x80; eight at a time.
inline long asciiPrefix(const unsigned char* p, long n) {
    long i = 0;
    for (; i + 8 <= n; i += 8) {
        std::uint64_t w;
        std::memcpy(&w, p + i, 8);
        if (w & 0x8080808080808080ull)
            break;
    }
    while (i < n && p[i] < 0x80)
        ++i;
    return i;
}

// Whether value(b) of a table is byte b itself for the bytes 1 to 127.
template <typename V, typename Get> bool asciiSame(const Get& value) {
    for (unsigned b = 1; b < 0x80; ++b) {
        const unsigned char byte = static_cast<unsigned char>(b);
        if (value(b) != valueOf<V>(&byte, 1))
            return false;
    }
    return true;
}

inline bool continuation(unsigned char b) {
    return (b & 0xC0) == 0x80;
}

} // namespace

//===-- Readers -----------------------------------------------------------===//

namespace {

// The readers' bodies, inline so that the loops read without a call.
inline bool readUTF8(const unsigned char* p, int bytesLeft, unsigned int& codePoint,
                     int& consumed) {
    const unsigned char b0 = p[0];
    if (b0 < 0x80) {
        codePoint = b0;
        consumed = 1;
        return true;
    }
    if (b0 >= 0xC2 && b0 <= 0xDF) {
        if (bytesLeft < 2 || !continuation(p[1]))
            return false;
        codePoint = (b0 & 0x1Fu) << 6 | (p[1] & 0x3Fu);
        consumed = 2;
        return true;
    }
    if (b0 >= 0xE0 && b0 <= 0xEF) {
        // E0 would be overlong below A0, ED a surrogate from A0.
        const unsigned char lo = b0 == 0xE0 ? 0xA0 : 0x80;
        const unsigned char hi = b0 == 0xED ? 0x9F : 0xBF;
        if (bytesLeft < 3 || p[1] < lo || p[1] > hi || !continuation(p[2]))
            return false;
        codePoint = (b0 & 0x0Fu) << 12 | (p[1] & 0x3Fu) << 6 | (p[2] & 0x3Fu);
        consumed = 3;
        return true;
    }
    if (b0 >= 0xF0 && b0 <= 0xF4) {
        const unsigned char lo = b0 == 0xF0 ? 0x90 : 0x80;
        const unsigned char hi = b0 == 0xF4 ? 0x8F : 0xBF;
        if (bytesLeft < 4 || p[1] < lo || p[1] > hi || !continuation(p[2]) || !continuation(p[3]))
            return false;
        codePoint =
            (b0 & 0x07u) << 18 | (p[1] & 0x3Fu) << 12 | (p[2] & 0x3Fu) << 6 | (p[3] & 0x3Fu);
        consumed = 4;
        return true;
    }
    return false;
}

template <bool Little>
inline bool readUTF16(const unsigned char* p, int bytesLeft, unsigned int& codePoint,
                      int& consumed) {
    if (bytesLeft < 2)
        return false;
    const unsigned int u = Little ? (p[0] | p[1] << 8) : (p[0] << 8 | p[1]);
    if (u < 0xD800 || u > 0xDFFF) {
        codePoint = u;
        consumed = 2;
        return true;
    }
    if (u > 0xDBFF || bytesLeft < 4)
        return false;
    const unsigned int low = Little ? (p[2] | p[3] << 8) : (p[2] << 8 | p[3]);
    if (low < 0xDC00 || low > 0xDFFF)
        return false;
    codePoint = 0x10000 + ((u - 0xD800) << 10) + (low - 0xDC00);
    consumed = 4;
    return true;
}

struct UTF8Read {
    bool operator()(const unsigned char* p, int left, unsigned int& cp, int& consumed) const {
        return readUTF8(p, left, cp, consumed);
    }
};
template <bool Little> struct UTF16Read {
    static constexpr bool kLittle = Little;
    bool operator()(const unsigned char* p, int left, unsigned int& cp, int& consumed) const {
        return readUTF16<Little>(p, left, cp, consumed);
    }
};

// Runs of UTF-16 units of the BMP that the table holds, with no call and no
// per-character bookkeeping (a block at a time through the flat table where
// there is one); stops at any other unit (a surrogate, an unmapped unit,
// U+0000) and 8 bytes short of the end of the room.
template <typename V, bool Little> struct UTF16Run {
    const V* ascii;
    const LookupTable<V>* table;
    const unsigned short* flat; // null: no wide loop
    void operator()(const unsigned char* in, int& pos, int input, unsigned char* out, int& written,
                    int& room) const {
        int p = pos, w = written;
        if (flat != nullptr && simd::available()) {
            const simd::Progress g = simd::utf16Double(in + p, input - p, out + w, room, flat, Little);
            p += static_cast<int>(g.read);
            w += static_cast<int>(g.written);
        }
        const int end = written + room - 8;
        while (input - p >= 2 && w <= end) {
            const unsigned int u = Little ? (in[p] | in[p + 1] << 8) : (in[p] << 8 | in[p + 1]);
            const V v = u < 0x80 ? ascii[u] : table->get(u);
            if (v == 0 || u == 0)
                break;
            const int len = lengthOf(v);
            put(out + w, v, len, 8);
            w += len;
            p += 2;
        }
        room -= w - written;
        written = w;
        pos = p;
    }
};

} // namespace

bool utf8Reader::getNextUTFChar(const unsigned char* p, int bytesLeft, unsigned int& codePoint,
                                int& consumed) const {
    return readUTF8(p, bytesLeft, codePoint, consumed);
}

bool utf16Reader::getNextUTFChar(const unsigned char* p, int bytesLeft, unsigned int& codePoint,
                                 int& consumed) const {
    return m_bFlag ? readUTF16<true>(p, bytesLeft, codePoint, consumed)
                   : readUTF16<false>(p, bytesLeft, codePoint, consumed);
}

bool utf32Reader::getNextUTFChar(const unsigned char* p, int bytesLeft, unsigned int& codePoint,
                                 int& consumed) const {
    if (bytesLeft < 4)
        return false;
    const unsigned int v = m_bFlag ? (p[0] | p[1] << 8 | p[2] << 16 | unsigned(p[3]) << 24)
                                   : (unsigned(p[0]) << 24 | p[1] << 16 | p[2] << 8 | p[3]);
    if (v > 0x10FFFF || (v >= 0xD800 && v <= 0xDFFF))
        return false;
    codePoint = v;
    consumed = 4;
    return true;
}

//===-- UTF sources -------------------------------------------------------===//

CUTFOptimizedConverter::CUTFOptimizedConverter(ULibCharSet source, ULibCharSet target,
                                               utfReader* reader)
    : COptimizedConverter(source, target), m_poReader(reader) {}

CUTFOptimizedConverter::~CUTFOptimizedConverter() {
    delete m_poReader;
    delete m_poOverrides;
}

COptimizedConverter* CUTFOptimizedConverter::getConverter(ULibCharSet source, CSConverter& s,
                                                          ULibCharSet target, CSConverter& t, bool,
                                                          bool) {
    // CESU-8 (8) is of the UTF-8 kind, but stays on the ICU path: ICU reads
    // its surrogates one at a time, so it pairs two halves across a skipped
    // bad byte and can end a full UTF-16 target on a lone high surrogate.
    // A loop over whole characters cannot give those results, and the
    // results must be the ICU path's.
    if (source != 0 && source != 1 && source != 2)
        return nullptr;
    const TargetKind kind = targetKind(t);
    if (kind == NoTarget)
        return nullptr;
    Builder builder(s, target, t);
    auto reader = [source]() -> utfReader* {
        if (source == 0)
            return new utf8Reader();
        return new utf16Reader(source == 1);
    };
    auto fill = [&builder](auto* table, auto& nul) {
        using V = std::remove_reference_t<decltype(nul)>;
        unsigned char out[16];
        for (unsigned int u = 0; u <= 0xFFFF; ++u) {
            if (u >= 0xD800 && u <= 0xDFFF)
                continue;
            const unsigned short unit = static_cast<unsigned short>(u);
            const int len = builder.fromUnits(&unit, 1, out);
            const V v = builder.template valueOfBytes<V>(out, len);
            if (u == 0)
                nul = v;
            else
                table->set(u, v);
        }
    };
    if (kind == OneByte) {
        auto* table = new LookupTable<unsigned char>();
        unsigned char nul = 0;
        fill(table, nul);
        return new CUTF2Converter<unsigned char>(source, target, reader(), table, nul, SuppICU);
    }
    auto* table = new LookupTable<CvtImage>();
    CvtImage nul = 0;
    // A Unicode target needs no table: every character is computed.
    const int form = supplementaryFormOf(target);
    if (form == SuppICU)
        fill(table, nul);
    return new CUTF2Converter<CvtImage>(source, target, reader(), table, nul, form);
}

int CUTFOptimizedConverter::setOverride(unsigned long sourceChar, unsigned long targetChar,
                                        bool oneByte) const {
    if (targetChar == 0 || sourceChar > 0x10FFFF || (sourceChar >= 0xD800 && sourceChar <= 0xDFFF))
        return ULIB_ERR_INVALID_CHAR;
    MBCSCvtInfo info;
    if (toMBCSCvtInfo(targetChar, info, false) == 0 || !fitsTarget(info) ||
        (oneByte && info.uLength != 1))
        return ULIB_ERR_INVALID_CHAR;
    const unsigned long key = sourceChar <= 0xFFFF
                                  ? sourceChar
                                  : (((sourceChar - 0x10000) >> 10) + 0xD800) << 16 |
                                        (((sourceChar - 0x10000) & 0x3FF) + 0xDC00);
    if (m_poOverrides == nullptr)
        m_poOverrides = new SparseArray<MBCSCvtInfo, unsigned long>();
    (*m_poOverrides)[key] = info;
    return ULIB_OK;
}

std::size_t CUTFOptimizedConverter::overrideBytes() const {
    if (m_poOverrides == nullptr)
        return 0;
    return sizeof(*m_poOverrides) + m_poOverrides->bucketCount() * sizeof(void*) +
           m_poOverrides->size() * sizeof(SparseArrayEntry<MBCSCvtInfo, unsigned long>);
}

template <typename V>
CUTF2Converter<V>::CUTF2Converter(ULibCharSet source, ULibCharSet target, utfReader* reader,
                                  LookupTable<V>* table, V nul, int supplementaryForm)
    : CUTFOptimizedConverter(source, target, reader), m_poTable(table), m_vNul(nul),
      m_bAsciiSame(asciiSame<V>([table](unsigned b) { return table->get(b); })),
      m_nSupplementaryForm(supplementaryForm) {
    m_aAscii[0] = supplementaryForm != SuppICU ? V(unicodeImage(supplementaryForm, 0)) : nul;
    for (unsigned b = 1; b < 0x80; ++b)
        m_aAscii[b] =
            supplementaryForm != SuppICU ? V(unicodeImage(supplementaryForm, b)) : table->get(b);
    for (unsigned cp = 0; cp < 0x100; ++cp)
        m_aLatin[cp] = sizeof(V) == 1 ? static_cast<unsigned char>(cp < 0x80 ? m_aAscii[cp]
                                                                              : table->get(cp))
                                      : 0;
    makeFlat();
}

template <typename V> CUTF2Converter<V>::~CUTF2Converter() {
    delete m_poTable;
    delete[] m_pFlat;
}

template <typename V> void CUTF2Converter<V>::makeFlat() {
    if (sizeof(V) == 1 || m_eSource == 0 || m_nSupplementaryForm != SuppICU ||
        !simd::available())
        return;
    // One- and two-byte codes only (a two-byte code high byte first, never 0).
    m_pFlat = new unsigned short[0x10002]();
    for (unsigned int u = 1; u <= 0xFFFF; ++u) {
        const CvtImage v = static_cast<CvtImage>(m_poTable->get(u));
        const unsigned int b1 = (v >> 8) & 0xFF, b2 = (v >> 16) & 0xFF;
        if ((v & 0xFF) == 1)
            m_pFlat[u] = static_cast<unsigned short>(b1);
        else if ((v & 0xFF) == 2 && b1 != 0)
            m_pFlat[u] = static_cast<unsigned short>(b1 << 8 | b2);
    }
}

template <typename V>
template <typename Reader>
int CUTF2Converter<V>::run(const Reader& reader, char** dst, const char* dstEnd, int maxChars,
                           const char** src, const char* srcEnd, bool substitute, bool flush,
                           ULibError* err, ULibBadCharDetail* detail) const {
    // The members the loop reads, as locals: every byte stored through the
    // target could alias the object, so the compiler would read them again
    // for each character.
    const SparseArray<MBCSCvtInfo, unsigned long>* const overrides = m_poOverrides;
    const V* const ascii = m_aAscii;
    const LookupTable<V>* const table = m_poTable;
    const int form = m_nSupplementaryForm;
    const auto lookup = [=, &reader](const unsigned char* p, int left, V& v, int& consumed) {
        unsigned int cp;
        if (!reader(p, left, cp, consumed))
            return false;
        if (overrides != nullptr) {
            const unsigned long key = cp <= 0xFFFF ? cp
                                                   : (((cp - 0x10000) >> 10) + 0xD800) << 16 |
                                                         (((cp - 0x10000) & 0x3FF) + 0xDC00);
            if (const MBCSCvtInfo* o = overrides->find(key)) {
                // An override of other than one byte means nothing to a
                // single-byte target.
                if (sizeof(V) > 1 || o->uLength == 1) {
                    v = sizeof(V) > 1 ? V(imageOf(*o)) : V(o->acBytes[0]);
                    return true;
                }
            }
        }
        if (sizeof(V) > 1 && form != SuppICU) {
            v = V(unicodeImage(form, cp));
            return true;
        }
        if (cp < 0x80) {
            v = ascii[cp];
            return v != 0 || (sizeof(V) == 1 && cp == 0);
        }
        if (cp <= 0xFFFF) {
            v = table->get(cp);
            return v != 0;
        }
        return false;
    };
    if constexpr (sizeof(V) > 1)
        if (m_bShiftTarget)
            return runShiftLoop(*this, lookup, dst, dstEnd, maxChars, src, srcEnd, substitute,
                                flush, err, detail);
    int pos = 0;
    int written = 0;
    // UTF-8 to a single-byte target, while no limit counts characters and no
    // override is in the way: the wide loop takes blocks of characters below
    // U+0100, and a block it cannot take whole goes by one character at a
    // time, until a character the tables do not hold.
    if (sizeof(V) == 1 && std::is_same<Reader, UTF8Read>::value && overrides == nullptr &&
        maxChars <= 0 && srcEnd > *src && dstEnd > *dst && simd::available()) {
        const unsigned char* in = reinterpret_cast<const unsigned char*>(*src);
        unsigned char* out = reinterpret_cast<unsigned char*>(*dst);
        const long input = srcEnd - *src;
        const long room = dstEnd - *dst;
        constexpr long kBlock = 64;
        for (;;) {
            const simd::Progress p =
                simd::utf8Latin(in + pos, input - pos, out + written, room - written, m_aLatin);
            pos += static_cast<int>(p.read);
            written += static_cast<int>(p.written);
            if (input - pos < kBlock || room - written < kBlock)
                break;
            // At most kBlock characters, one byte each: they fit.
            const long stop = pos + kBlock;
            bool held = true;
            while (held && pos < stop) {
                V v;
                int consumed;
                held = lookup(in + pos, static_cast<int>(input - pos), v, consumed);
                if (held) {
                    out[written++] = static_cast<unsigned char>(v);
                    pos += consumed;
                }
            }
            if (!held)
                break;
        }
    }
    // UTF-8 runs of ASCII into a target that keeps them: copied, while no
    // limit counts characters and no override is in the way.
    else if (std::is_same<Reader, UTF8Read>::value && m_bAsciiSame && m_poOverrides == nullptr &&
             maxChars <= 0 && srcEnd > *src && dstEnd > *dst) {
        const long room = dstEnd - *dst;
        const long input = srcEnd - *src;
        pos = static_cast<int>(
            asciiPrefix(reinterpret_cast<const unsigned char*>(*src), input < room ? input : room));
        std::memcpy(*dst, *src, pos);
        written = pos;
    }
    // UTF-16 into a target of table values goes by runs, while no override
    // is in the way.
    if constexpr (!std::is_same<Reader, UTF8Read>::value)
        if (overrides == nullptr && form == SuppICU)
            return runLoopWith<V>(*this, lookup,
                                  UTF16Run<V, Reader::kLittle>{ascii, table, m_pFlat}, dst, dstEnd,
                                  maxChars, src, srcEnd, substitute, flush, err, detail);
    // Runs of ASCII UTF-8 go through the array, while no override is in the
    // way.
    const bool runs = std::is_same<Reader, UTF8Read>::value && overrides == nullptr;
    return runLoop<V>(*this, lookup, dst, dstEnd, maxChars, src, srcEnd, substitute, flush, err,
                      detail, pos, written, runs ? ascii : nullptr);
}

template <typename V>
int CUTF2Converter<V>::convert(char** dst, const char* dstEnd, int maxChars, const char** src,
                               const char* srcEnd, bool substitute, bool flush, ULibError* err,
                               ULibBadCharDetail* detail) const {
    // One loop per reader, so that the read is inlined rather than virtual.
    if (m_eSource == 0)
        return run(UTF8Read(), dst, dstEnd, maxChars, src, srcEnd, substitute, flush, err, detail);
    if (m_eSource == 1)
        return run(UTF16Read<true>(), dst, dstEnd, maxChars, src, srcEnd, substitute, flush, err,
                   detail);
    return run(UTF16Read<false>(), dst, dstEnd, maxChars, src, srcEnd, substitute, flush, err,
               detail);
}

template <typename V>
int CUTF2Converter<V>::charMapOverride(unsigned long sourceChar, unsigned long targetChar) const {
    // (Overrides are looked up before the ASCII array, so it stands.)
    if (sourceChar < 0x80)
        m_bAsciiSame = false;
    return setOverride(sourceChar, targetChar, sizeof(V) == 1);
}

template <typename V> std::size_t CUTF2Converter<V>::memoryBytes() const {
    return sizeof(*this) + m_poTable->memoryBytes() + overrideBytes() + sizeof(utf8Reader) +
           (m_pFlat != nullptr ? 0x10002 * sizeof(unsigned short) : 0);
}

template class CUTF2Converter<unsigned char>;
template class CUTF2Converter<CvtImage>;

//===-- Single-byte sources -----------------------------------------------===//

COptimizedConverter* CSBCSOptimizedConverter::getConverter(ULibCharSet source, CSConverter& s,
                                                           ULibCharSet target, CSConverter& t, bool,
                                                           bool) {
    const TargetKind kind = targetKind(t);
    if (kind == NoTarget)
        return nullptr;
    Builder builder(s, target, t);
    if (kind == OneByte) {
        unsigned char table[256];
        for (int b = 0; b < 256; ++b) {
            const unsigned char byte = static_cast<unsigned char>(b);
            table[b] = builder.value<unsigned char>(&byte, 1);
        }
        table[0] = 0; // the character 0 is 0 by rule
        return new CSBCS2Converter<unsigned char>(source, target, table);
    }
    CvtImage table[256];
    for (int b = 0; b < 256; ++b) {
        const unsigned char byte = static_cast<unsigned char>(b);
        table[b] = builder.value<CvtImage>(&byte, 1);
    }
    return new CSBCS2Converter<CvtImage>(source, target, table);
}

template <typename V>
CSBCS2Converter<V>::CSBCS2Converter(ULibCharSet source, ULibCharSet target, const V* table)
    : CSBCSOptimizedConverter(source, target) {
    std::memcpy(m_aTable, table, sizeof m_aTable);
    m_bAsciiSame = asciiSame<V>([table](unsigned b) { return table[b]; });
    m_bAllMapped = true;
    for (int b = 1; b < 256; ++b)
        m_bAllMapped = m_bAllMapped && table[b] != 0;
    for (int b = 0; b < 256; ++b)
        setPlanes(b);
}

template <typename V> void CSBCS2Converter<V>::setPlanes(int b) const {
    const CvtImage v = static_cast<CvtImage>(m_aTable[b]);
    const int len = sizeof(V) > 1 ? static_cast<int>(v & 0xFF) : 0;
    const bool fits = len == 1 || len == 2;
    m_aLength[b] = fits ? static_cast<unsigned char>(len) : 0;
    m_aFirst[b] = fits ? static_cast<unsigned char>(v >> 8) : 0;
    m_aSecond[b] = len == 2 ? static_cast<unsigned char>(v >> 16) : 0;
}

template <typename V>
int CSBCS2Converter<V>::convert(char** dst, const char* dstEnd, int maxChars, const char** src,
                                const char* srcEnd, bool substitute, bool flush, ULibError* err,
                                ULibBadCharDetail* detail) const {
    const auto lookup = [this](const unsigned char* p, int, V& v, int& consumed) {
        v = m_aTable[*p];
        consumed = 1;
        return v != 0 || (sizeof(V) == 1 && *p == 0);
    };
    if constexpr (sizeof(V) > 1)
        if (m_bShiftTarget)
            return runShiftLoop(*this, lookup, dst, dstEnd, maxChars, src, srcEnd, substitute,
                                flush, err, detail);
    // With no limit, the run of mapped characters that surely fits goes
    // first, with no per-character bookkeeping; the loop below takes over at
    // the first character that is not simple, or near the end of the room.
    int pos = 0;
    int written = 0;
    if (maxChars <= 0 && srcEnd > *src && dstEnd > *dst) {
        const unsigned char* in = reinterpret_cast<const unsigned char*>(*src);
        unsigned char* out = reinterpret_cast<unsigned char*>(*dst);
        const long input = srcEnd - *src;
        const long room = dstEnd - *dst;
        if (sizeof(V) == 1) {
            const int n = static_cast<int>(input < room ? input : room);
            if (simd::available())
                pos = static_cast<int>(
                    simd::translate(in, n, out, n, reinterpret_cast<const unsigned char*>(m_aTable))
                        .read);
            // A set whose every byte maps is a plain translation.
            if (m_bAllMapped) {
                for (; pos < n; ++pos)
                    out[pos] = static_cast<unsigned char>(m_aTable[in[pos]]);
            }
            while (pos < n) {
                const unsigned char b = in[pos];
                const unsigned char v = static_cast<unsigned char>(m_aTable[b]);
                if (v == 0 && b != 0)
                    break;
                out[pos++] = v;
            }
            written = pos;
        } else {
            if (simd::available()) {
                const simd::Progress p =
                    simd::expand(in, input, out, room, m_aFirst, m_aSecond, m_aLength);
                pos = static_cast<int>(p.read);
                written = static_cast<int>(p.written);
            }
            while (pos < input && room - written >= 8) {
                if (in[pos] < 0x80 && m_bAsciiSame) {
                    const long left = input - pos < room - written ? input - pos : room - written;
                    const int k = static_cast<int>(asciiPrefix(in + pos, left));
                    std::memcpy(out + written, in + pos, k);
                    pos += k;
                    written += k;
                    continue;
                }
                const CvtImage v = m_aTable[in[pos]];
                if ((v & 0xFF) == 0)
                    break;
                const CvtImage bytes = v >> 8;
                std::memcpy(out + written, &bytes, 8);
                written += static_cast<int>(v & 0xFF);
                ++pos;
            }
        }
    }
    return runLoop<V>(*this, lookup, dst, dstEnd, maxChars, src, srcEnd, substitute, flush, err,
                      detail, pos, written);
}

template <typename V>
int CSBCS2Converter<V>::charMapOverride(unsigned long sourceChar, unsigned long targetChar) const {
    if (sourceChar > 255 || targetChar == 0)
        return ULIB_ERR_INVALID_CHAR;
    if (sourceChar < 0x80)
        m_bAsciiSame = false;
    if (sizeof(V) == 1) {
        // (An override never unmaps a byte, so m_bAllMapped stands.)
        if (targetChar > 255)
            return ULIB_ERR_INVALID_CHAR;
        m_aTable[sourceChar] = V(targetChar);
        return ULIB_OK;
    }
    MBCSCvtInfo info;
    if (toMBCSCvtInfo(targetChar, info, false) == 0 || !fitsTarget(info))
        return ULIB_ERR_INVALID_CHAR;
    m_aTable[sourceChar] = V(imageOf(info));
    setPlanes(static_cast<int>(sourceChar));
    return ULIB_OK;
}

template class CSBCS2Converter<unsigned char>;
template class CSBCS2Converter<CvtImage>;

//===-- Multi-byte sources ------------------------------------------------===//

namespace {

bool isEUCJP(ULibCharSet cs) {
    return cs == 5005 || cs == 5006 || cs == 5038 || (cs >= 10121 && cs <= 10123);
}

bool isEUCTW(ULibCharSet cs) {
    return cs == 5009 || cs == 10227;
}

inline bool eucByte(unsigned char b) {
    return b >= 0xA1 && b <= 0xFE;
}

// Runs of a multi-byte source's commonest characters, one byte or two of the
// main table, with no call and no per-character bookkeeping; stops at any
// other character (a shift of EUC, an unmapped or bad one, the character 0),
// and 8 bytes short of the end of the room.
template <int L, typename V> struct MBCSRun {
    const unsigned char* lead; // the double byte layout's lead byte map
    const V* single;           // the one-byte codes' values; 0 for the code 0
    const LookupTable<V>* main;
    void operator()(const unsigned char* in, int& pos, int input, unsigned char* out, int& written,
                    int& room) const {
        int p = pos, w = written;
        const int end = w + room - 8;
        while (input - p >= 2 && w <= end) {
            const unsigned char b0 = in[p];
            V v;
            int consumed;
            if (L == CMBCSOptimizedConverter::DBCS ? !lead[b0] : b0 < 0x80) {
                v = single[b0];
                consumed = 1;
            } else if (L == CMBCSOptimizedConverter::DBCS || (eucByte(b0) && eucByte(in[p + 1]))) {
                v = main->get(b0 << 8 | in[p + 1]);
                consumed = 2;
            } else {
                break;
            }
            if (v == 0)
                break;
            const int len = lengthOf(v);
            put(out + w, v, len, 8);
            w += len;
            p += consumed;
        }
        room -= w - written;
        written = w;
        pos = p;
    }
};

// Walks the layout's code space and fills the converter's tables.
template <int L, typename V>
void fillMBCS(CMBCS2Converter<L, V>& c, Builder& builder, const unsigned char* lead) {
    auto put1 = [&](unsigned char b) {
        const V v = builder.template value<V>(&b, 1);
        if (b == 0)
            c.m_vNul = sizeof(V) == 1 ? V(0) : v;
        else if (v != 0)
            c.tableFor(-1, true)->set(b, v);
    };
    auto putN = [&](const unsigned char* bytes, int n, int extra, unsigned int code) {
        const V v = builder.template value<V>(bytes, n);
        if (v != 0)
            c.tableFor(extra, true)->set(code, v);
    };
    if (L == CMBCSOptimizedConverter::DBCS) {
        for (int b = 0; b < 256; ++b) {
            if (!lead[b]) {
                put1(static_cast<unsigned char>(b));
                continue;
            }
            for (int t = 0; t < 256; ++t) {
                const unsigned char bytes[2] = {static_cast<unsigned char>(b),
                                                static_cast<unsigned char>(t)};
                putN(bytes, 2, -1, b << 8 | t);
            }
        }
        return;
    }
    for (int b = 0; b < 0xA1; ++b)
        if (b != 0x8E && (L == CMBCSOptimizedConverter::EUCTW || b != 0x8F))
            put1(static_cast<unsigned char>(b));
    for (int l = 0xA1; l <= 0xFE; ++l)
        for (int t = 0xA1; t <= 0xFE; ++t) {
            const unsigned char two[2] = {static_cast<unsigned char>(l),
                                          static_cast<unsigned char>(t)};
            putN(two, 2, -1, l << 8 | t);
        }
    if (L == CMBCSOptimizedConverter::EUCJP) {
        for (int b = 0xA1; b <= 0xDF; ++b) {
            const unsigned char ss2[2] = {0x8E, static_cast<unsigned char>(b)};
            putN(ss2, 2, -1, b);
        }
        for (int l = 0xA1; l <= 0xFE; ++l)
            for (int t = 0xA1; t <= 0xFE; ++t) {
                const unsigned char ss3[3] = {0x8F, static_cast<unsigned char>(l),
                                              static_cast<unsigned char>(t)};
                putN(ss3, 3, 0, l << 8 | t);
            }
        return;
    }
    for (int plane = 0; plane < 16; ++plane)
        for (int l = 0xA1; l <= 0xFE; ++l)
            for (int t = 0xA1; t <= 0xFE; ++t) {
                const unsigned char four[4] = {0x8E, static_cast<unsigned char>(0xA1 + plane),
                                               static_cast<unsigned char>(l),
                                               static_cast<unsigned char>(t)};
                putN(four, 4, plane, l << 8 | t);
            }
}

template <int L, typename V>
COptimizedConverter* makeMBCS(ULibCharSet source, CSConverter& s, ULibCharSet target,
                              CSConverter& t) {
    unsigned char lead[256] = {};
    if (L == CMBCSOptimizedConverter::DBCS && !s.getLeadByteMap(lead))
        return nullptr;
    auto* c = new CMBCS2Converter<L, V>(source, target, lead);
    Builder builder(s, target, t);
    fillMBCS(*c, builder, lead);
    c->setSingle();
    return c;
}

template <int L>
COptimizedConverter* makeMBCSFor(ULibCharSet source, CSConverter& s, ULibCharSet target,
                                 CSConverter& t) {
    switch (targetKind(t)) {
    case OneByte:
        return makeMBCS<L, unsigned char>(source, s, target, t);
    case Image:
        return makeMBCS<L, CvtImage>(source, s, target, t);
    default:
        return nullptr;
    }
}

} // namespace

COptimizedConverter* CMBCSOptimizedConverter::getConverter(ULibCharSet source, CSConverter& s,
                                                           ULibCharSet target, CSConverter& t, bool,
                                                           bool) {
    if (s.getType() != CNV_TYPE_MBCS)
        return nullptr;
    if (CSConverter::getMaxCharSize(source) == 2)
        return makeMBCSFor<DBCS>(source, s, target, t);
    if (isEUCJP(source))
        return makeMBCSFor<EUCJP>(source, s, target, t);
    if (isEUCTW(source))
        return makeMBCSFor<EUCTW>(source, s, target, t);
    return nullptr;
}

template <int L, typename V>
CMBCS2Converter<L, V>::CMBCS2Converter(ULibCharSet source, ULibCharSet target,
                                       const unsigned char* leadMap)
    : CMBCSOptimizedConverter(source, target), m_vNul(0) {
    std::memcpy(m_acLead, leadMap, sizeof m_acLead);
}

template <int L, typename V> CMBCS2Converter<L, V>::~CMBCS2Converter() {
    for (LookupTable<V>* t : m_apExtra)
        delete t;
}

template <int L, typename V>
LookupTable<V>* CMBCS2Converter<L, V>::tableFor(int extra, bool create) const {
    if (extra < 0)
        return &m_oMain;
    if (m_apExtra[extra] == nullptr && create)
        m_apExtra[extra] = new LookupTable<V>();
    return m_apExtra[extra];
}

template <int L, typename V>
inline bool CMBCS2Converter<L, V>::read(const unsigned char* p, int left, int& extra,
                                        unsigned int& code, int& consumed) const {
    const unsigned char b0 = p[0];
    extra = -1;
    if (L == DBCS) {
        if (!m_acLead[b0]) {
            code = b0;
            consumed = 1;
            return true;
        }
        if (left < 2)
            return false;
        code = b0 << 8 | p[1];
        consumed = 2;
        return true;
    }
    if (b0 < 0xA1 && b0 != m_ss2 && (L == EUCTW || b0 != m_ss3)) {
        code = b0;
        consumed = 1;
        return true;
    }
    if (b0 == m_ss2) {
        if (L == EUCJP) {
            if (left < 2 || p[1] < 0xA1 || p[1] > 0xDF)
                return false;
            code = p[1];
            consumed = 2;
            return true;
        }
        if (left < 4 || p[1] < 0xA1 || p[1] > 0xB0 || !eucByte(p[2]) || !eucByte(p[3]))
            return false;
        extra = p[1] - 0xA1;
        code = p[2] << 8 | p[3];
        consumed = 4;
        return true;
    }
    if (L == EUCJP && b0 == m_ss3) {
        if (left < 3 || !eucByte(p[1]) || !eucByte(p[2]))
            return false;
        extra = 0;
        code = p[1] << 8 | p[2];
        consumed = 3;
        return true;
    }
    if (!eucByte(b0) || left < 2 || !eucByte(p[1]))
        return false;
    code = b0 << 8 | p[1];
    consumed = 2;
    return true;
}

template <int L, typename V>
int CMBCS2Converter<L, V>::convert(char** dst, const char* dstEnd, int maxChars, const char** src,
                                   const char* srcEnd, bool substitute, bool flush, ULibError* err,
                                   ULibBadCharDetail* detail) const {
    // Members as locals, as in the UTF loop.
    const V nul = m_vNul;
    const LookupTable<V>* const main = &m_oMain;
    LookupTable<V>* const* const extras = m_apExtra;
    const auto lookup = [=](const unsigned char* p, int left, V& v, int& consumed) {
        int extra;
        unsigned int code;
        if (!read(p, left, extra, code, consumed))
            return false;
        if (code == 0) {
            v = nul;
            return sizeof(V) == 1 || v != 0;
        }
        const LookupTable<V>* t = extra < 0 ? main : extras[extra];
        if (t == nullptr)
            return false;
        v = t->get(code);
        return v != 0;
    };
    if constexpr (sizeof(V) > 1)
        if (m_bShiftTarget)
            return runShiftLoop(*this, lookup, dst, dstEnd, maxChars, src, srcEnd, substitute,
                                flush, err, detail);
    return runLoopWith<V>(*this, lookup, MBCSRun<L, V>{m_acLead, m_aSingle, main}, dst, dstEnd,
                          maxChars, src, srcEnd, substitute, flush, err, detail);
}

template <int L, typename V> void CMBCS2Converter<L, V>::setSingle() const {
    for (unsigned b = 1; b < 256; ++b)
        m_aSingle[b] = m_oMain.get(b);
    m_aSingle[0] = 0;
}

template <int L, typename V>
int CMBCS2Converter<L, V>::charMapOverride(unsigned long sourceChar,
                                           unsigned long targetChar) const {
    if (targetChar == 0 || sourceChar > 0xFFFFFFFFul)
        return ULIB_ERR_INVALID_CHAR;
    MBCSCvtInfo from;
    const int n = toMBCSCvtInfo(sourceChar, from, true);
    int extra;
    unsigned int code;
    int consumed;
    if (n == 0 || !read(from.acBytes, n, extra, code, consumed) || consumed != n || code == 0)
        return ULIB_ERR_INVALID_CHAR;
    V v;
    if (sizeof(V) == 1) {
        if (targetChar > 255)
            return ULIB_ERR_INVALID_CHAR;
        v = V(targetChar);
    } else {
        MBCSCvtInfo to;
        if (toMBCSCvtInfo(targetChar, to, false) == 0 || !fitsTarget(to))
            return ULIB_ERR_INVALID_CHAR;
        v = V(imageOf(to));
    }
    tableFor(extra, true)->set(code, v);
    if (extra < 0 && code < 256)
        m_aSingle[code] = v;
    return ULIB_OK;
}

template <int L, typename V> std::size_t CMBCS2Converter<L, V>::memoryBytes() const {
    std::size_t bytes = sizeof(*this) - sizeof(m_oMain) + m_oMain.memoryBytes();
    for (const LookupTable<V>* t : m_apExtra)
        if (t != nullptr)
            bytes += t->memoryBytes();
    return bytes;
}

template class CMBCS2Converter<CMBCSOptimizedConverter::DBCS, unsigned char>;
template class CMBCS2Converter<CMBCSOptimizedConverter::DBCS, CvtImage>;
template class CMBCS2Converter<CMBCSOptimizedConverter::EUCJP, unsigned char>;
template class CMBCS2Converter<CMBCSOptimizedConverter::EUCJP, CvtImage>;
template class CMBCS2Converter<CMBCSOptimizedConverter::EUCTW, unsigned char>;
template class CMBCS2Converter<CMBCSOptimizedConverter::EUCTW, CvtImage>;

//===-- EBCDIC stateful sources -------------------------------------------===//

COptimizedConverter* CEBCDICSFOptimizedConverter::getConverter(ULibCharSet source, CSConverter& s,
                                                               ULibCharSet target, CSConverter& t,
                                                               bool, bool) {
    const TargetKind kind = targetKind(t);
    if (kind == NoTarget)
        return nullptr;
    Builder builder(s, target, t);
    auto fill = [&builder](auto* c) {
        using V = std::remove_reference_t<decltype(c->m_aSingle[0])>;
        for (int b = 0; b < 256; ++b) {
            if (b == m_cSI || b == m_cSO)
                continue;
            const unsigned char byte = static_cast<unsigned char>(b);
            c->m_aSingle[b] = b == 0 && sizeof(V) == 1 ? V(0) : builder.template value<V>(&byte, 1);
        }
        // Every pair of bytes that are no shift: a walk that covers any
        // set's double byte codes.
        for (int lead = 1; lead < 256; ++lead) {
            if (lead == m_cSI || lead == m_cSO)
                continue;
            for (int trail = 1; trail < 256; ++trail) {
                if (trail == m_cSI || trail == m_cSO)
                    continue;
                const unsigned char bytes[4] = {m_cSI, static_cast<unsigned char>(lead),
                                                static_cast<unsigned char>(trail), m_cSO};
                const V v = builder.template value<V>(bytes, 4);
                if (v != 0)
                    c->m_oDouble.set(lead << 8 | trail, v);
            }
        }
    };
    if (kind == OneByte) {
        auto* c = new CEBCDICSF2Converter<unsigned char>(source, target);
        fill(c);
        return c;
    }
    auto* c = new CEBCDICSF2Converter<CvtImage>(source, target);
    fill(c);
    return c;
}

template <typename V>
CEBCDICSF2Converter<V>::CEBCDICSF2Converter(ULibCharSet source, ULibCharSet target)
    : CEBCDICSFOptimizedConverter(source, target) {
    std::memset(m_aSingle, 0, sizeof m_aSingle);
}

template <typename V>
int CEBCDICSF2Converter<V>::convert(char** dst, const char* dstEnd, int maxChars, const char** src,
                                    const char* srcEnd, bool substitute, bool flush, ULibError* err,
                                    ULibBadCharDetail* detail) const {
    const V* const single = m_aSingle;
    const LookupTable<V>* const dbl = &m_oDouble;
    bool& inRun = sourceInDoubleByte();
    // Shifts change the state as they are read: a shift writes nothing, so
    // it is always taken.
    const auto lookup = [=, &inRun](const unsigned char* p, int left, V& v, int& consumed) -> int {
        const unsigned char b0 = p[0];
        if (b0 == m_cSI || b0 == m_cSO) {
            inRun = b0 == m_cSI;
            consumed = 1;
            return kShiftOnly;
        }
        if (!inRun) {
            v = single[b0];
            consumed = 1;
            return v != 0 || (sizeof(V) == 1 && b0 == 0);
        }
        if (left < 2 || p[1] == m_cSI || p[1] == m_cSO)
            return 0;
        v = dbl->get(b0 << 8 | p[1]);
        consumed = 2;
        return v != 0;
    };
    if constexpr (sizeof(V) > 1)
        if (m_bShiftTarget)
            return runShiftLoop(*this, lookup, dst, dstEnd, maxChars, src, srcEnd, substitute,
                                flush, err, detail);
    return runLoop<V>(*this, lookup, dst, dstEnd, maxChars, src, srcEnd, substitute, flush, err,
                      detail);
}

template <typename V>
int CEBCDICSF2Converter<V>::charMapOverride(unsigned long sourceChar,
                                            unsigned long targetChar) const {
    // One byte, or a double byte pair given bare or between shifts.
    MBCSCvtInfo from;
    const int n = toMBCSCvtInfo(sourceChar, from, true);
    const unsigned char* b = from.acBytes;
    int len = n;
    if (n == 4 && b[0] == m_cSI && b[3] == m_cSO) {
        b += 1;
        len = 2;
    }
    if (targetChar == 0 || len < 1 || len > 2 || b[0] == m_cSI || b[0] == m_cSO ||
        (len == 2 && (b[1] == m_cSI || b[1] == m_cSO)) || (len == 1 && b[0] == 0))
        return ULIB_ERR_INVALID_CHAR;
    V v;
    if (sizeof(V) == 1) {
        if (targetChar > 255)
            return ULIB_ERR_INVALID_CHAR;
        v = V(targetChar);
    } else {
        MBCSCvtInfo to;
        if (toMBCSCvtInfo(targetChar, to, false) == 0 || !fitsTarget(to))
            return ULIB_ERR_INVALID_CHAR;
        v = V(imageOf(to));
    }
    if (len == 1)
        m_aSingle[b[0]] = v;
    else
        m_oDouble.set(b[0] << 8 | b[1], v);
    return ULIB_OK;
}

template <typename V> std::size_t CEBCDICSF2Converter<V>::memoryBytes() const {
    return sizeof(*this) - sizeof(m_oDouble) + m_oDouble.memoryBytes();
}

template class CEBCDICSF2Converter<unsigned char>;
template class CEBCDICSF2Converter<CvtImage>;

} // namespace qzunicode
} // namespace qzlib
} // namespace qzs
