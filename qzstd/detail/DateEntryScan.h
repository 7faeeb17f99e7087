//===- qzstd/detail/DateEntryScan.h - The date entry reader -----*- C++ -*-===//
//
// Internal to the time conversion: the reader behind valid_date_entry and
// loc_str_to_*_jts. It walks one entry form as sscanf would, without a
// stream, a locale or a varargs call, so the hot reading path stays cheap;
// its tests hold it to sscanf itself.
//
//===----------------------------------------------------------------------===//
#ifndef QZSTD_DETAIL_DATEENTRYSCAN_H
#define QZSTD_DETAIL_DATEENTRYSCAN_H

#include <cstddef>

namespace qzs {
namespace qzlib {
namespace detail {

/// The date entry forms, in the order they are tried.
constexpr std::size_t DateEntryFormCount = 10;
extern const char* const DateEntryForms[DateEntryFormCount];

/// The longest fraction text read: a "%s" reads at most this many characters,
/// as "%29s" would. An unbounded "%s" into a fixed buffer would write past it.
constexpr std::size_t DateFractionMax = 29;

/// What one form read: its "%hd" values in order and its "%s" text.
struct DateEntryScan {
    short values[6];
    int count;
    char fraction[DateFractionMax + 1];
};

/// True when `form` (made of "%hd", "%s", "%n", white space and literal
/// characters) takes the whole of `text` by the rules of sscanf in the C
/// locale, with "%s" bounded at DateFractionMax: every conversion succeeds
/// and the text ends where "%n" stands. A "%hd" out of range stores what
/// glibc stores: the value saturated to a long, then cut to 16 bits.
bool scanDateEntryForm(const char* text, const char* form, DateEntryScan* out);

} // namespace detail
} // namespace qzlib
} // namespace qzs

#endif // QZSTD_DETAIL_DATEENTRYSCAN_H
