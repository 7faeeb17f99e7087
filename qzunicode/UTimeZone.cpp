//===- qzunicode/UTimeZone.cpp - Time zones and local time ----------------===//
//
// Local time goes through a calendar per zone ID per thread, found by the
// units of the ID with no string made, so the hot path neither allocates nor
// locks once a thread has met the zone.
//
//===----------------------------------------------------------------------===//
#include "qzunicode/UTimeZone.h"

#include "qzstd/HashArray.h"
#include "qzstd/NumberString.h"
#include "qzstd/ThreadLocalStorage.h"

#include <unicode/calendar.h>
#include <unicode/locid.h>
#include <unicode/timezone.h>
#include <unicode/ucal.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <cstring>
#include <ctime>

namespace qzs {
namespace qzlib {
namespace qzunicode {

namespace {

// The calling thread's calendars, one per zone ID, deleted at thread exit.
struct CalendarCache {
    HashArray<icu::Calendar*> calendars;
    ~CalendarCache() {
        calendars.forEach([](const HashArrayBinaryKey&, icu::Calendar*& c) {
            delete c;
            c = nullptr;
        });
    }
};

using ThreadCalendars = ThreadLocal::ThreadLocalWrapper<CalendarCache>;

bool validZone(const icu::TimeZone* zone) {
    icu::UnicodeString id;
    zone->getID(id);
    return id.caseCompare(icu::UnicodeString("Etc/Unknown", -1, US_INV), U_FOLD_CASE_DEFAULT) != 0;
}

icu::TimeZone* createValid(const icu::UnicodeString& id) {
    icu::TimeZone* zone = icu::TimeZone::createTimeZone(id);
    if (zone != nullptr && validZone(zone))
        return zone;
    delete zone;
    return nullptr;
}

} // namespace

UTimeZone::UTimeZone() : m_poZone(icu::TimeZone::createDefault()) {}

UTimeZone::UTimeZone(const UString& id) : m_poZone(nullptr) {
    UString text(id);
    text.trim();
    if (text.empty()) {
        m_poZone = icu::TimeZone::createDefault();
        return;
    }
    const unsigned short first = text[0];
    if (first == '+' || first == '-') {
        UString name("GMT", ULIB_CS_DEFAULT);
        for (std::size_t i = 0; i < text.length(); ++i)
            if (text[i] != ' ' && text[i] != '\t')
                name.append(text[i]);
        m_poZone = createValid(icu::UnicodeString(name));
    } else {
        m_poZone = createValid(icu::UnicodeString(text));
        if (m_poZone == nullptr && first >= '0' && first <= '9')
            m_poZone = createValid(icu::UnicodeString(UString("GMT+", ULIB_CS_DEFAULT) + text));
    }
    if (m_poZone == nullptr)
        m_poZone = icu::TimeZone::createDefault();
}

UTimeZone::UTimeZone(const UTimeZone& other) : m_poZone(other.m_poZone->clone()) {}

UTimeZone& UTimeZone::operator=(const UTimeZone& other) {
    if (this != &other) {
        icu::TimeZone* zone = other.m_poZone->clone();
        delete m_poZone;
        m_poZone = zone;
    }
    return *this;
}

UTimeZone::~UTimeZone() {
    delete m_poZone;
}

int UTimeZone::getOffset() const {
    UErrorCode status = U_ZERO_ERROR;
    int32_t raw = 0;
    int32_t dst = 0;
    m_poZone->getOffset(ucal_getNow(), false, raw, dst, status);
    return U_SUCCESS(status) ? raw + dst : 0;
}

int UTimeZone::getOffset(unsigned long when, bool local) const {
    UErrorCode status = U_ZERO_ERROR;
    int32_t raw = 0;
    int32_t dst = 0;
    m_poZone->getOffset(static_cast<UDate>(when), local, raw, dst, status);
    return U_SUCCESS(status) ? raw + dst : 0;
}

int UTimeZone::getOffset(short year, short month, short day, short hour, short minute, short second,
                         bool dst) const {
    std::tm tm{};
    tm.tm_year = year - 1900;
    tm.tm_mon = month - 1;
    tm.tm_mday = day;
    tm.tm_hour = hour;
    tm.tm_min = minute;
    tm.tm_sec = second;
    tm.tm_isdst = dst ? 1 : 0;
    const std::time_t t = std::mktime(&tm);
    return getOffset(static_cast<unsigned long>(t) * 1000UL, false);
}

int UTimeZone::utcToLocalTime(short year, short month, short day, short hour, short minute,
                              short second, unsigned int nanos, char* out, int outSize,
                              bool zoneName) const {
    if (out == nullptr || outSize <= 0)
        return 0;
    // Days since the epoch, counting years from March so that the leap day
    // falls last.
    long y = year;
    long m = month;
    if (m < 3) {
        m += 12;
        y -= 1;
    }
    const long days = ((m + 1) * 306) / 10 - 719591 + day + y / 4 + y * 365 - y / 100 + y / 400;
    const double millis =
        static_cast<double>(days * 86400L + hour * 3600L + minute * 60L + second) * 1000.0 +
        nanos / 1000000;

    icu::UnicodeString id;
    m_poZone->getID(id);
    const HashArrayBinaryKey key(id.getBuffer(), static_cast<std::size_t>(id.length()) * 2);
    icu::Calendar*& calendar = ThreadCalendars::get().calendars[key];
    if (calendar == nullptr) {
        UErrorCode status = U_ZERO_ERROR;
        calendar = icu::Calendar::createInstance(status);
        if (U_FAILURE(status) || calendar == nullptr) {
            delete calendar;
            calendar = nullptr;
            return 0;
        }
        calendar->adoptTimeZone(m_poZone->clone());
    }
    UErrorCode status = U_ZERO_ERROR;
    calendar->setTime(millis, status);
    auto field = [&](UCalendarDateFields f) {
        UErrorCode s = U_ZERO_ERROR;
        return static_cast<std::uint32_t>(calendar->get(f, s));
    };

    char text[128];
    u32ToBuffer(field(UCAL_YEAR), text, 4);
    text[4] = '-';
    u32ToBuffer(field(UCAL_MONTH) + 1, text + 5, 2);
    text[7] = '-';
    u32ToBuffer(field(UCAL_DATE), text + 8, 2);
    text[10] = ' ';
    u32ToBuffer(field(UCAL_HOUR_OF_DAY), text + 11, 2);
    text[13] = ':';
    u32ToBuffer(field(UCAL_MINUTE), text + 14, 2);
    text[16] = ':';
    u32ToBuffer(field(UCAL_SECOND), text + 17, 2);
    text[19] = '.';
    const std::uint32_t ms = field(UCAL_MILLISECOND);
    u32ToBuffer(ms, text + 20, 3);
    u32ToBuffer(nanos >= ms * 1000000u ? nanos - ms * 1000000u : 0, text + 23, 6);
    text[29] = ' ';
    std::size_t len = 30;
    if (!zoneName) {
        const int offset = static_cast<int>(field(UCAL_ZONE_OFFSET) + field(UCAL_DST_OFFSET));
        const unsigned minutes = static_cast<unsigned>(offset < 0 ? -offset : offset) / 60000u;
        text[len++] = offset < 0 ? '-' : '+';
        u32ToBuffer(minutes / 60, text + len, 2);
        len += 2;
        text[len++] = ':';
        u32ToBuffer(minutes % 60, text + len, 2);
        len += 2;
    } else {
        // The ID in invariant characters; whatever is not invariant reads '?'.
        const std::size_t room = outSize > 31 ? static_cast<std::size_t>(outSize) - 31 : 0;
        const std::size_t n =
            std::min<std::size_t>({static_cast<std::size_t>(id.length()), room, sizeof text - 31});
        for (std::size_t i = 0; i < n; ++i) {
            const UChar c = id[static_cast<int32_t>(i)];
            text[len++] = c < 0x80 ? static_cast<char>(c) : '?';
        }
    }
    // Never past outSize: the text is cut to leave room for the terminator.
    len = std::min<std::size_t>(len, static_cast<std::size_t>(outSize) - 1);
    std::memcpy(out, text, len);
    out[len] = 0;
    return static_cast<int>(len);
}

UString UTimeZone::getDisplayName() const {
    icu::UnicodeString name;
    m_poZone->getDisplayName(name);
    return UString(name);
}

UString UTimeZone::getDisplayName(const ULocale* locale) const {
    if (locale == nullptr)
        return getDisplayName();
    icu::UnicodeString name;
    const UString localeName = locale->getName();
    m_poZone->getDisplayName(icu::Locale(localeName.c_str(ULIB_CS_DEFAULT)), name);
    return UString(name);
}

// "GMT+0530" reads "+05:30"; other GMT offsets lose "GMT" only.
UString UTimeZone::getID() const {
    icu::UnicodeString icuID;
    m_poZone->getID(icuID);
    UString id(icuID);
    if (id.length() > 3 && id.compare(0, "GMT", 3, ULIB_CS_DEFAULT) == 0 &&
        (id[3] == '+' || id[3] == '-')) {
        id.erase(0, 3);
        if (id.length() == 5 && id[1] >= '0' && id[1] <= '9' && id[2] >= '0' && id[2] <= '9' &&
            id[3] >= '0' && id[3] <= '9' && id[4] >= '0' && id[4] <= '9')
            id.replace(3, 0, static_cast<unsigned short>(':'), 1);
    }
    return id;
}

bool UTimeZone::operator==(const UTimeZone& other) const {
    return *m_poZone == *other.m_poZone;
}

bool UTimeZone::isValid() const {
    return validZone(m_poZone);
}

} // namespace qzunicode
} // namespace qzlib
} // namespace qzs
