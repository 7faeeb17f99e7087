//===- qzapp/RecordDump.cpp - Record headers and metadata to a log --------===//
//
// Each dump is a table of rows, one per field: the field's format ("name =
// %s" with the name padded), the source line that keys its log statement,
// and how the field reads as text. A log statement is keyed by its file and
// line and the first format seen there wins, so every row carries the line
// it is written on: one row, one line, one format.
//
//===----------------------------------------------------------------------===//
#include "qzapp/RecordDump.h"

#include "qzlog/Logger.h"

#include <algorithm>
#include <cinttypes>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <type_traits>
#include <utility>

using qzs::qzlib::qzlog::Logger;

namespace {

// The metadata dump's lines name this source, whatever file holds the code,
// so that filters and readers of old logs keep finding them.
const char kMetadataSource[] = "qzlog/qzlogstd";
const char kDumpSource[] = __FILE__;
const char kMethod[] = "Log";

/// The format of one field's line: `indent` blanks and the name, padded with
/// blanks to Width characters, then " = %s". A longer name is not cut.
template <std::size_t Width> struct FieldFormat {
    static constexpr std::size_t kNameMax = 40;
    char text[kNameMax + sizeof(" = %s")] = {};

    constexpr FieldFormat(const char* name, std::size_t indent) {
        std::size_t n = 0;
        while (n < indent)
            text[n++] = ' ';
        for (std::size_t i = 0; name[i] && n < kNameMax; ++i)
            text[n++] = name[i];
        while (n < Width)
            text[n++] = ' ';
        for (const char* tail = " = %s"; *tail; ++tail)
            text[n++] = *tail;
    }
};

template <typename Record, std::size_t Width> struct FieldRow {
    FieldFormat<Width> format;
    unsigned short line;
    void (*render)(const Record&, std::string&);

    constexpr FieldRow(const char* name, std::size_t indent, unsigned short line_,
                       void (*render_)(const Record&, std::string&))
        : format(name, indent), line(line_), render(render_) {}
};

// ---- how values read -------------------------------------------------------

// Numbers in decimal. A char is a one-byte number in these records (flags,
// 'B'/'A' codes): it reads as its value, so that a 0 shows rather than ending
// the line.
template <typename T, typename std::enable_if<std::is_integral<T>::value, int>::type = 0>
void render(std::string& out, T v) {
    out += std::to_string(v);
}

// No overload takes a const char*: every pointer field reads as its address
// (io.data_ptr points into a record, not at a text). Texts are arrays or
// std::string.
void render(std::string& out, const void* p) {
    if (!p) {
        out += "(null)";
        return;
    }
    char buf[24];
    out.append(buf, static_cast<std::size_t>(std::snprintf(buf, sizeof buf, "0x%" PRIxPTR,
                                                           reinterpret_cast<uintptr_t>(p))));
}

// A fixed text field: up to its terminator, never past the array.
template <std::size_t N> void render(std::string& out, const char (&text)[N]) {
    out.append(text, strnlen(text, N));
}
void render(std::string& out, const std::string& text) {
    out += text;
}
void render(std::string& out, const qzs::qzlib::qzapp::CQualTableName& name) {
    out += qzs::qzlib::qzapp::enquote(name);
}

// Long lists (a table with thousands of partitions) are cut, so that one
// line of the dump stays readable.
constexpr int kListMax = 32;

template <typename T>
void renderList(std::string& out, const T* items, int count, char open = '{', char close = '}') {
    if (!items) {
        out += "(null)";
        return;
    }
    out += open;
    const int shown = std::min(std::max(count, 0), kListMax);
    for (int i = 0; i < shown; ++i) {
        if (i)
            out += ", ";
        render(out, items[i]);
    }
    if (count > shown) {
        out += ", ... ";
        render(out, count - shown);
        out += " more";
    }
    out += close;
}

void renderKeys(std::string& out, const file_def_fk* keys, int count) {
    if (!keys) {
        out += "(null)";
        return;
    }
    const int shown = std::min(std::max(count, 0), kListMax);
    for (int i = 0; i < shown; ++i) {
        const file_def_fk& k = keys[i];
        if (i)
            out += "; ";
        out += k.name;
        if (k.cols)
            renderList(out, k.cols, k.num_cols, '(', ')');
        else
            out += "()";
        if (!k.ref_table.empty()) {
            out += " -> ";
            render(out, k.ref_table);
            renderList(out, k.ref_cols, k.num_cols, '(', ')');
        }
    }
    if (count > shown) {
        out += "; ... ";
        render(out, count - shown);
        out += " more";
    }
}

// One row per field, each on a source line of its own (see the file
// comment); the static_asserts below hold the tables to that.
// clang-format off
#define QZ_FIELD(field) \
    {#field, 0, __LINE__, [](const auto& r, std::string& out) { render(out, r.field); }}
#define QZ_FIELD_AS(field, ...) \
    {#field, 0, __LINE__, [](const auto& r, std::string& out) { __VA_ARGS__; }}
#define QZ_IO_FIELD(field) \
    {#field, 2, __LINE__, [](const auto& r, std::string& out) { render(out, r.io.field); }}

// ---- the standard record header -------------------------------------------

using HeaderRow = FieldRow<std_rec_hdr_def, 16>;
constexpr HeaderRow kHeaderRows[] = {
    QZ_FIELD(hdr_ind),
    QZ_FIELD(partition),
    QZ_FIELD(undoflag),
    QZ_FIELD(before_after_ind),
    QZ_FIELD(rec_len),
    QZ_FIELD(io_type),
    QZ_FIELD(orig_io_type),
    QZ_FIELD(orig_node),
    QZ_FIELD(audit_ts),
    QZ_FIELD(audit_pos),
    QZ_FIELD(audit_rba),
    QZ_FIELD(trans_ind),
    QZ_FIELD(format_type),
    QZ_FIELD(syskey_len),
    QZ_FIELD(incomplete_ind),
    QZ_FIELD(continued),
    QZ_FIELD(rec_count),
    QZ_FIELD(rec_hdr_info),
    QZ_FIELD(rec_data_info),
    QZ_FIELD(rec_qzs_info),
    QZ_FIELD(rec_user_info),
    QZ_FIELD(rec_info_usable),
};

// ---- a column --------------------------------------------------------------

using ColumnRow = FieldRow<col_def, 24>;
constexpr ColumnRow kColumnRows[] = {
    QZ_FIELD(null),
    QZ_FIELD(bump_if_odd),
    QZ_FIELD(computed_col_type),
    QZ_FIELD(nullable),
    QZ_FIELD(int_len),
    QZ_FIELD(ext_len),
    QZ_FIELD(bin_len),
    QZ_FIELD(tab_len),
    QZ_FIELD(data_type),
    QZ_FIELD(native_data_type),
    QZ_FIELD(sub_data_type),
    QZ_FIELD(charset_id),
    QZ_FIELD(fetch_offset),
    QZ_FIELD(fetch_offset_ext),
    QZ_FIELD(data_offset),
    QZ_FIELD(ascii_len),
    QZ_FIELD(ascii_offset),
    QZ_FIELD(most_sig_dt),
    QZ_FIELD(least_sig_dt),
    QZ_FIELD(high_precision),
    QZ_FIELD(low_precision),
    QZ_FIELD(c_type),
    QZ_FIELD(col_signed),
    QZ_FIELD(bind_type),
    QZ_FIELD(scale),
    QZ_FIELD(elementary),
    QZ_FIELD(part_of_key),
    QZ_FIELD(part_of_supplog),
    QZ_FIELD(level),
    QZ_FIELD(redefine),
    QZ_FIELD(precision),
    QZ_FIELD(occurs),
    QZ_FIELD(sql_bind_type),
    QZ_FIELD(name),
    QZ_FIELD(binary_input),
    QZ_FIELD(tlf_input),
    QZ_FIELD(mapped_char_len),
    QZ_FIELD(use_precision),
    QZ_FIELD(redefine_idx),
    QZ_FIELD(alt_col_id),
    QZ_FIELD(is_lob),
    QZ_FIELD(partial_is_possible),
    QZ_FIELD(is_numeric),
    QZ_FIELD(is_xml),
    QZ_FIELD(is_unusedColumn),
    QZ_FIELD(is_urowid),
    QZ_FIELD(lob_object_id),
    QZ_FIELD(lob_data_object_id),
    QZ_FIELD(data_type_str),
};

// The io fields read as two blanks and a name in a field of 22, so that
// their values line up with the column's own. Kept on purpose: the blanks
// stay in the format although a laid-out event is trimmed, so they show
// only where the format itself is read (the activity stream keeps it).
constexpr ColumnRow kColumnIoRows[] = {
    QZ_IO_FIELD(data_ptr),
    QZ_IO_FIELD(bytes_retrieved),
    QZ_IO_FIELD(bytes_retrieved_before),
    QZ_IO_FIELD(max_inline_len),
    QZ_IO_FIELD(crc32),
    QZ_IO_FIELD(lob_in_mem),
    QZ_IO_FIELD(targ_lob_mem),
    QZ_IO_FIELD(val_is_null),
};

// ---- object metadata -------------------------------------------------------

using MetadataRow = FieldRow<ObjectMetadata, 28>;
constexpr MetadataRow kMetadataRows[] = {
    // The record's own address opens the dump, under the structure's old
    // name, so that the column dumps that follow can be told apart by table.
    QZ_FIELD_AS(file_def, render(out, static_cast<const void*>(&r))),
    QZ_FIELD(qualifiedName),
    QZ_FIELD(object_type),
    QZ_FIELD(object_id),
    QZ_FIELD(data_object_id),
    QZ_FIELD(num_alt_object_ids),
    QZ_FIELD_AS(alt_object_ids, renderList(out, r.alt_object_ids, r.num_alt_object_ids)),
    QZ_FIELD(user_id),
    QZ_FIELD(primary_key_name),
    QZ_FIELD(num_cols),
    QZ_FIELD(total_cols),
    QZ_FIELD(cols),
    QZ_FIELD(group_level_access),
    QZ_FIELD(num_key_cols),
    QZ_FIELD(fetch_rec_len),
    QZ_FIELD(fetch_rec_len_ext),
    QZ_FIELD_AS(keys, renderList(out, r.keys, r.num_key_cols)),
    QZ_FIELD(using_pseudo_key),
    QZ_FIELD(syskey),
    QZ_FIELD(fetch_problem),
    QZ_FIELD(where_clause),
    QZ_FIELD(source),
    QZ_FIELD(target),
    QZ_FIELD(from_param),
    QZ_FIELD(perm_problem),
    QZ_FIELD(extr_ptr),
    QZ_FIELD(ascii_rec_len),
    QZ_FIELD(num_bad_recs),
    QZ_FIELD(num_warn_recs),
    QZ_FIELD(num_compressed_recs),
    QZ_FIELD(err_hdl_flag),
    QZ_FIELD(is_query),
    QZ_FIELD(query),
    QZ_FIELD(has_long),
    QZ_FIELD(has_unused_cols),
    QZ_FIELD(has_lobs),
    QZ_FIELD(has_partial_types),
    QZ_FIELD(fetch_all_vals),
    QZ_FIELD(has_xml),
    QZ_FIELD(has_udts),
    QZ_FIELD(has_xfqName),
    QZ_FIELD(retrieved_pk),
    QZ_FIELD(pk_fetch_stmt),
    QZ_FIELD(fetch_before_filter),
    QZ_FIELD(sql_predicate),
    QZ_FIELD(num_fks),
    QZ_FIELD_AS(fks, renderKeys(out, r.fks, r.num_fks)),
    QZ_FIELD(uks_are_pk_subset),
    QZ_FIELD(num_uks),
    QZ_FIELD_AS(uks, renderKeys(out, r.uks, r.num_uks)),
    QZ_FIELD(ct_fhndl),
    QZ_FIELD(source_mapped),
    QZ_FIELD(has_lob_chunk_data),
    QZ_FIELD(identity_ordinal),
    QZ_FIELD(identity_seed),
    QZ_FIELD(identity_increment),
    QZ_FIELD(identity_current),
    QZ_FIELD(identity_reseed),
    QZ_FIELD(get_befores),
    QZ_FIELD(longvar_capture),
    QZ_FIELD(isDropped),
    QZ_FIELD(file_idx),
    QZ_FIELD(isUsingSourcedef),
    QZ_FIELD(tableEncodingType),
};

// clang-format on
#undef QZ_FIELD
#undef QZ_FIELD_AS
#undef QZ_IO_FIELD

// The last line of `rows` when every row stands on a line after `after` and
// after the row before it, else kLinesClash (which no later table passes):
// then no two statements of one source share a line.
constexpr unsigned short kLinesClash = 0xffff;
template <typename Row, std::size_t N>
constexpr unsigned short linesAscend(const Row (&rows)[N], unsigned short after) {
    for (const Row& row : rows) {
        if (row.line <= after)
            return kLinesClash;
        after = row.line;
    }
    return after;
}
static_assert(linesAscend(kColumnIoRows, linesAscend(kColumnRows, linesAscend(kHeaderRows, 0))) !=
                  kLinesClash,
              "the header and column rows must each stand on a line of their own");
static_assert(linesAscend(kMetadataRows, 0) != kLinesClash,
              "the metadata rows must each stand on a line of their own");

template <typename Record, std::size_t Width, std::size_t N>
void logRows(Logger* logger, unsigned char level, const char* const& file,
             const FieldRow<Record, Width> (&rows)[N], const Record& rec) {
    std::string value;
    for (const auto& row : rows) {
        value.clear();
        row.render(rec, value);
        logger->log(file, kMethod, row.line, level, row.format.text, value);
    }
}

void logColumn(Logger* logger, unsigned char level, const col_def& col) {
    logRows(logger, level, kDumpSource, kColumnRows, col);
    logger->log(kDumpSource, kMethod, __LINE__, level, "*~~ col_io_def: io ~~*");
    logRows(logger, level, kDumpSource, kColumnIoRows, col);
}

// new[] copy of n elements of `from`; null for a null source or n <= 0.
template <typename T> T* copyArray(const T* from, int n) {
    if (!from || n <= 0)
        return nullptr;
    T* to = new T[static_cast<std::size_t>(n)];
    std::copy(from, from + n, to);
    return to;
}

} // namespace

// ---- owning records ----------------------------------------------------------

file_def_fk::file_def_fk(const file_def_fk& other)
    : name(other.name), ref_table(other.ref_table), num_cols(other.num_cols),
      cols(copyArray(other.cols, other.num_cols)),
      ref_cols(copyArray(other.ref_cols, other.num_cols)) {}

file_def_fk& file_def_fk::operator=(const file_def_fk& other) {
    // Copy first, then swap: a self-assignment or a throwing new[] leaves
    // this record as it was.
    file_def_fk copy(other);
    swap(copy);
    return *this;
}

file_def_fk::~file_def_fk() {
    delete[] cols;
    delete[] ref_cols;
}

void file_def_fk::clear() {
    file_def_fk empty;
    swap(empty);
}

void file_def_fk::swap(file_def_fk& other) noexcept {
    using std::swap;
    swap(name, other.name);
    swap(ref_table, other.ref_table);
    swap(num_cols, other.num_cols);
    swap(cols, other.cols);
    swap(ref_cols, other.ref_cols);
}

ObjectMetadata::ObjectMetadata(const ObjectMetadata& other)
    : qualifiedName(other.qualifiedName), object_type(other.object_type),
      object_id(other.object_id), data_object_id(other.data_object_id),
      num_alt_object_ids(other.num_alt_object_ids), alt_object_ids(nullptr), user_id(other.user_id),
      primary_key_name(other.primary_key_name), num_cols(other.num_cols),
      total_cols(other.total_cols), cols(nullptr), group_level_access(other.group_level_access),
      num_key_cols(other.num_key_cols), fetch_rec_len(other.fetch_rec_len),
      fetch_rec_len_ext(other.fetch_rec_len_ext), keys(nullptr),
      using_pseudo_key(other.using_pseudo_key), syskey(other.syskey),
      fetch_problem(other.fetch_problem), where_clause(other.where_clause), source(other.source),
      target(other.target), from_param(other.from_param), perm_problem(other.perm_problem),
      extr_ptr(other.extr_ptr), ascii_rec_len(other.ascii_rec_len),
      num_bad_recs(other.num_bad_recs), num_warn_recs(other.num_warn_recs),
      num_compressed_recs(other.num_compressed_recs), err_hdl_flag(other.err_hdl_flag),
      is_query(other.is_query), query(other.query), has_long(other.has_long),
      has_unused_cols(other.has_unused_cols), has_lobs(other.has_lobs),
      has_partial_types(other.has_partial_types), fetch_all_vals(other.fetch_all_vals),
      has_xml(other.has_xml), has_udts(other.has_udts), has_xfqName(other.has_xfqName),
      retrieved_pk(other.retrieved_pk), pk_fetch_stmt(other.pk_fetch_stmt),
      fetch_before_filter(other.fetch_before_filter), sql_predicate(other.sql_predicate),
      num_fks(other.num_fks), fks(nullptr), uks_are_pk_subset(other.uks_are_pk_subset),
      num_uks(other.num_uks), uks(nullptr), ct_fhndl(other.ct_fhndl),
      source_mapped(other.source_mapped), has_lob_chunk_data(other.has_lob_chunk_data),
      identity_ordinal(other.identity_ordinal), identity_seed(other.identity_seed),
      identity_increment(other.identity_increment), identity_current(other.identity_current),
      identity_reseed(other.identity_reseed), get_befores(other.get_befores),
      longvar_capture(other.longvar_capture), isDropped(other.isDropped), file_idx(other.file_idx),
      isUsingSourcedef(other.isUsingSourcedef), tableEncodingType(other.tableEncodingType) {
    // The arrays are copied in the body, so that if a later new[] throws the
    // destructor of this half-built record is not run on them: free by hand.
    try {
        alt_object_ids = copyArray(other.alt_object_ids, other.num_alt_object_ids);
        cols = copyArray(other.cols, other.num_cols);
        keys = copyArray(other.keys, other.num_key_cols);
        fks = copyArray(other.fks, other.num_fks);
        uks = copyArray(other.uks, other.num_uks);
    } catch (...) {
        delete[] alt_object_ids;
        delete[] cols;
        delete[] keys;
        delete[] fks;
        delete[] uks;
        throw;
    }
}

ObjectMetadata& ObjectMetadata::operator=(const ObjectMetadata& other) {
    ObjectMetadata copy(other);
    swap(copy);
    return *this;
}

ObjectMetadata::~ObjectMetadata() {
    delete[] alt_object_ids;
    delete[] cols;
    delete[] keys;
    delete[] fks;
    delete[] uks;
}

void ObjectMetadata::clear() {
    ObjectMetadata empty;
    swap(empty);
}

void ObjectMetadata::swap(ObjectMetadata& other) noexcept {
    // Every field, in declaration order; a field added to the record must be
    // added here too (the copy test compares every field after a swap).
    using std::swap;
    swap(qualifiedName, other.qualifiedName);
    swap(object_type, other.object_type);
    swap(object_id, other.object_id);
    swap(data_object_id, other.data_object_id);
    swap(num_alt_object_ids, other.num_alt_object_ids);
    swap(alt_object_ids, other.alt_object_ids);
    swap(user_id, other.user_id);
    swap(primary_key_name, other.primary_key_name);
    swap(num_cols, other.num_cols);
    swap(total_cols, other.total_cols);
    swap(cols, other.cols);
    swap(group_level_access, other.group_level_access);
    swap(num_key_cols, other.num_key_cols);
    swap(fetch_rec_len, other.fetch_rec_len);
    swap(fetch_rec_len_ext, other.fetch_rec_len_ext);
    swap(keys, other.keys);
    swap(using_pseudo_key, other.using_pseudo_key);
    swap(syskey, other.syskey);
    swap(fetch_problem, other.fetch_problem);
    swap(where_clause, other.where_clause);
    swap(source, other.source);
    swap(target, other.target);
    swap(from_param, other.from_param);
    swap(perm_problem, other.perm_problem);
    swap(extr_ptr, other.extr_ptr);
    swap(ascii_rec_len, other.ascii_rec_len);
    swap(num_bad_recs, other.num_bad_recs);
    swap(num_warn_recs, other.num_warn_recs);
    swap(num_compressed_recs, other.num_compressed_recs);
    swap(err_hdl_flag, other.err_hdl_flag);
    swap(is_query, other.is_query);
    swap(query, other.query);
    swap(has_long, other.has_long);
    swap(has_unused_cols, other.has_unused_cols);
    swap(has_lobs, other.has_lobs);
    swap(has_partial_types, other.has_partial_types);
    swap(fetch_all_vals, other.fetch_all_vals);
    swap(has_xml, other.has_xml);
    swap(has_udts, other.has_udts);
    swap(has_xfqName, other.has_xfqName);
    swap(retrieved_pk, other.retrieved_pk);
    swap(pk_fetch_stmt, other.pk_fetch_stmt);
    swap(fetch_before_filter, other.fetch_before_filter);
    swap(sql_predicate, other.sql_predicate);
    swap(num_fks, other.num_fks);
    swap(fks, other.fks);
    swap(uks_are_pk_subset, other.uks_are_pk_subset);
    swap(num_uks, other.num_uks);
    swap(uks, other.uks);
    swap(ct_fhndl, other.ct_fhndl);
    swap(source_mapped, other.source_mapped);
    swap(has_lob_chunk_data, other.has_lob_chunk_data);
    swap(identity_ordinal, other.identity_ordinal);
    swap(identity_seed, other.identity_seed);
    swap(identity_increment, other.identity_increment);
    swap(identity_current, other.identity_current);
    swap(identity_reseed, other.identity_reseed);
    swap(get_befores, other.get_befores);
    swap(longvar_capture, other.longvar_capture);
    swap(isDropped, other.isDropped);
    swap(file_idx, other.file_idx);
    swap(isUsingSourcedef, other.isUsingSourcedef);
    swap(tableEncodingType, other.tableEncodingType);
}

// ---- the dumps ---------------------------------------------------------------

void Log(Logger* logger, unsigned char const& level, std_rec_hdr_def* rec) {
    const char* const file = kDumpSource;
    if (!logger || !logger->isEnabledFor(level))
        return;
    if (!rec) {
        logger->log(file, kMethod, __LINE__, level, "std_rec_hdr = (pointer) 0");
        return;
    }
    logger->log(file, kMethod, __LINE__, level, "*~~~~~~~~ standard record header ~~~~~~~~~~~~*");
    logRows(logger, level, file, kHeaderRows, *rec);
    // Where the record sits among the capture's tables and chunks is known
    // only when the header's info is usable and names it.
    if (rec->rec_info_usable && rec->rec_qzs_info) {
        const std_rec_qzs_info_def& info = *rec->rec_qzs_info;
        logger->log(file, kMethod, __LINE__, level, "tdr index    = %d", info.tdr_index);
        logger->log(file, kMethod, __LINE__, level, "chunk id     = %d", info.chunk_id);
        logger->log(file, kMethod, __LINE__, level, "table        = %s",
                    info.table ? info.table : "(null)");
    }
    logger->log(file, kMethod, __LINE__, level, "*~~~~~~~~ standard record header end ~~~~~~~~*");
}

void Log(Logger* logger, unsigned char const& level, col_def* rec) {
    if (!logger || !logger->isEnabledFor(level))
        return;
    if (!rec) {
        logger->log(kDumpSource, kMethod, __LINE__, level, "col_def = (pointer) 0");
        return;
    }
    logColumn(logger, level, *rec);
}

void Log(Logger* logger, unsigned char const& level, ObjectMetadata* rec) {
    if (!logger || !logger->isEnabledFor(level))
        return;
    if (!rec) {
        logger->log(kMetadataSource, kMethod, __LINE__, level, "file_def = (pointer) 0");
        return;
    }
    logger->log(kMetadataSource, kMethod, __LINE__, level,
                "*~~~~~~~~ file definition with columns ~~~~~~~~~~~*");
    logRows(logger, level, kMetadataSource, kMetadataRows, *rec);
    for (int i = 0; rec->cols && i < rec->num_cols; ++i)
        logColumn(logger, level, rec->cols[i]);
}
