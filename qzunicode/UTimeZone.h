//===- qzunicode/UTimeZone.h - Time zones and local time ----------*- C++ -*-===//
//
// UTimeZone is a handle on an ICU time zone. It answers offsets and formats
// a UTC moment as local time through a calendar cached per thread, since
// ICU calendars are not thread-safe and too dear to make per call.
//
//===----------------------------------------------------------------------===//
#ifndef QZUNICODE_UTIMEZONE_H
#define QZUNICODE_UTIMEZONE_H

#include "qzstd/Export.h"

#include "qzunicode/UString.h"

U_NAMESPACE_BEGIN
class TimeZone;
U_NAMESPACE_END

namespace qzs {
namespace qzlib {
namespace qzunicode {

/// An owned ICU time zone.
///
/// Thread safety: the const members may be called on one object from
/// several threads at once; utcToLocalTime works on the calling thread's own
/// calendar for the zone's ID, which lives until the thread ends.
class QZ_API UTimeZone {
public:
    /// ICU's default zone.
    UTimeZone();
    /// A zone by ID. Blanks around it are ignored; "+05:30" or "-8" (blanks
    /// inside allowed) are GMT offsets, and a bare number is taken as a
    /// positive offset. An empty ID, or one ICU does not know, gives ICU's
    /// default zone.
    explicit UTimeZone(const UString& id);
    UTimeZone(const UTimeZone& other);
    UTimeZone& operator=(const UTimeZone& other);
    ~UTimeZone();

    /// Raw plus daylight offset now, in milliseconds.
    int getOffset() const;
    /// The same at a moment in milliseconds since the epoch; local says that
    /// the moment is in local wall time (ICU's reading).
    int getOffset(unsigned long when, bool local) const;
    /// The same at a date given in the process's local time (mktime);
    /// month 1 to 12, dst as tm_isdst.
    int getOffset(short year, short month, short day, short hour, short minute, short second,
                  bool dst) const;

    /// Writes the UTC moment as local time in this zone:
    /// "YYYY-MM-DD hh:mm:ss.fffffffff " then "+hh:mm" or, with zoneName,
    /// the zone's ID. Never more than outSize bytes with the terminator: the
    /// text is cut to fit. Result: its length, 0 for no room at all.
    int utcToLocalTime(short year, short month, short day, short hour, short minute, short second,
                       unsigned int nanos, char* out, int outSize, bool zoneName) const;

    /// ICU's display name in the default locale, or in locale.
    UString getDisplayName() const;
    UString getDisplayName(const ULocale* locale) const;
    /// ICU's ID, except that "GMT+hhmm" reads "+hh:mm" and "GMT+h" "+h".
    UString getID() const;

    bool operator==(const UTimeZone& other) const;
    bool operator!=(const UTimeZone& other) const { return !(*this == other); }
    /// False for ICU's unknown zone ("Etc/Unknown", in any case).
    bool isValid() const;

private:
    icu::TimeZone* m_poZone;
};

} // namespace qzunicode
} // namespace qzlib
} // namespace qzs

#endif // QZUNICODE_UTIMEZONE_H
