//===- qzapp/RecordDump.h - Record headers and metadata to a log -*- C++ -*-===//
//
// The standard record header that travels in front of every captured record,
// the metadata of one captured table (its name, ids, columns, keys and what
// the capture learnt about it), and the Log overloads that write either of
// them, or one column (col_def), to a logger one field a line, for support.
//
//===----------------------------------------------------------------------===//
#ifndef QZAPP_RECORDDUMP_H
#define QZAPP_RECORDDUMP_H

#include "qzstd/ColumnDef.h"
#include "qzstd/Export.h"

#include "qzapp/DBObjName.h"

#include <cstdint>
#include <string>

namespace qzs {
namespace qzlib {
namespace qzlog {
class Logger;
} // namespace qzlog
} // namespace qzlib
} // namespace qzs

/// What the capture knows of a record's place beyond the header itself. The
/// header only points at it (std_rec_hdr_def::rec_qzs_info).
struct std_rec_qzs_info_def {
    int tdr_index = 0;           ///< the table definition the record refers to
    int chunk_id = 0;            ///< which chunk of a record split into chunks
    const char* table = nullptr; ///< the table's name, NUL-terminated; borrowed
};

/// The header in front of every captured record.
///
/// A plain record that owns nothing: the four info pointers are borrowed
/// (they point into the reader's buffers), so copies share what they point
/// at and destroying a header frees nothing. A new or cleared header is all
/// zero, pointers null.
struct std_rec_hdr_def {
    short hdr_ind = 0;             ///< kind of header
    short partition = 0;           ///< partition or database the record came from
    short undoflag = 0;            ///< the record undoes an earlier change
    char before_after_ind = 0;     ///< 'B' before image, 'A' after image
    int rec_len = 0;               ///< bytes of record data after the header
    short io_type = 0;             ///< the operation (insert, update, delete, ...)
    short orig_io_type = 0;        ///< the operation as the database logged it
    short orig_node = 0;           ///< node that wrote the record
    std::int64_t audit_ts = 0;     ///< commit time, a Julian timestamp (microseconds)
    long audit_pos = 0;            ///< sequence number of the log the change is in
    long audit_rba = 0;            ///< offset of the change in that log
    char trans_ind = 0;            ///< place in its transaction: 0 first, 1 middle, 2 last, 3 only
    char format_type = 0;          ///< data layout: 'R' whole row, 'C' changed columns only
    short syskey_len = 0;          ///< bytes of the system key in front of the data
    char incomplete_ind = 0;       ///< the data is not complete (columns missing)
    short continued = 0;           ///< more chunks of this record follow
    int rec_count = 0;             ///< records in the transaction so far
    void* rec_hdr_info = nullptr;  ///< extra header data; borrowed
    void* rec_data_info = nullptr; ///< data layout details; borrowed
    std_rec_qzs_info_def* rec_qzs_info = nullptr; ///< table index, chunk, name; borrowed
    void* rec_user_info = nullptr;                ///< left to the caller; borrowed
    short rec_info_usable = 0;                    ///< the four info pointers are valid

    std_rec_hdr_def() = default;
    std_rec_hdr_def(const std_rec_hdr_def&) = default;
    std_rec_hdr_def& operator=(const std_rec_hdr_def&) = default;
    ~std_rec_hdr_def() = default;

    void clear() { *this = std_rec_hdr_def(); }
};

/// A foreign key of a table, and also a unique key (whose ref_table is empty
/// and ref_cols null).
///
/// Owns `cols` and `ref_cols`: arrays from new[] of exactly num_cols
/// elements, or null. Copies are deep; the destructor and clear free both.
struct QZ_API file_def_fk {
    std::string name;                            ///< the constraint's name
    qzs::qzlib::qzapp::CQualTableName ref_table; ///< the table referred to
    int num_cols = 0;                            ///< columns in the key
    int* cols = nullptr;                         ///< indexes into the owning table's columns; owned
    int* ref_cols = nullptr; ///< indexes into ref_table's columns, same order; owned

    file_def_fk() = default;
    file_def_fk(const file_def_fk& other);
    file_def_fk& operator=(const file_def_fk& other);
    ~file_def_fk();

    /// Frees both arrays and returns to the state of a new one.
    void clear();
    void swap(file_def_fk& other) noexcept;
};

/// The metadata of one captured table: what the capture reads from the
/// database's catalogue and what it learns while running. Fields are in the
/// order the dump writes them; keep that order when adding one.
///
/// Ownership: `cols` (num_cols elements), `keys` (num_key_cols),
/// `alt_object_ids` (num_alt_object_ids), `fks` (num_fks) and `uks`
/// (num_uks) are owned arrays from new[], or null; each count must not
/// exceed its array. Copies are deep, the destructor and clear free them
/// (delete[]). `extr_ptr` is borrowed, and `ct_fhndl` is a handle this record
/// only names: neither is freed or closed here. Texts are std::string, and
/// qualifiedName shares its counted body between copies, as names do.
///
/// A new or cleared record is all zero and empty, ct_fhndl -1.
struct QZ_API ObjectMetadata {
    qzs::qzlib::qzapp::CQualTableName qualifiedName; ///< catalog, schema, table
    int object_type = 0;                             ///< a DBObjType number
    long object_id = 0;                              ///< the database's number for the table
    long data_object_id = 0;                         ///< the number of its storage
    int num_alt_object_ids = 0;
    long* alt_object_ids = nullptr; ///< numbers of its partitions; owned
    long user_id = 0;               ///< the owner's number
    std::string primary_key_name;
    int num_cols = 0;        ///< columns in cols
    int total_cols = 0;      ///< columns the table has, unused ones included
    col_def* cols = nullptr; ///< owned
    short group_level_access = 0;
    int num_key_cols = 0;
    int fetch_rec_len = 0;      ///< bytes of a fetched record
    int fetch_rec_len_ext = 0;  ///< bytes of a fetched record, external form
    int* keys = nullptr;        ///< indexes into cols of the key columns; owned
    short using_pseudo_key = 0; ///< no key: every column stands in for one
    short syskey = 0;           ///< the rows carry a system key
    short fetch_problem = 0;    ///< fetching from the table failed
    std::string where_clause;   ///< the row filter configured for the table
    std::string source;         ///< source table as the parameters spell it
    std::string target;         ///< target table as the parameters spell it
    short from_param = 0;       ///< described by the parameters, not the database
    short perm_problem = 0;     ///< the capture lacks a privilege on the table
    void* extr_ptr = nullptr;   ///< the extract's own state; borrowed
    int ascii_rec_len = 0;
    long num_bad_recs = 0;
    long num_warn_recs = 0;
    long num_compressed_recs = 0;
    short err_hdl_flag = 0;
    short is_query = 0; ///< the object is a query, not a table
    std::string query;  ///< its text, when is_query
    short has_long = 0;
    short has_unused_cols = 0;
    short has_lobs = 0;
    short has_partial_types = 0;
    short fetch_all_vals = 0;
    short has_xml = 0;
    short has_udts = 0;
    short has_xfqName = 0;
    short retrieved_pk = 0;    ///< the primary key was read from the catalogue
    std::string pk_fetch_stmt; ///< the statement that fetches a row by key
    short fetch_before_filter = 0;
    std::string sql_predicate;
    int num_fks = 0;
    file_def_fk* fks = nullptr; ///< owned
    short uks_are_pk_subset = 0;
    int num_uks = 0;
    file_def_fk* uks = nullptr; ///< unique keys, ref_table empty; owned
    int ct_fhndl = -1;          ///< checkpoint table handle, -1 for none; not owned
    short source_mapped = 0;
    short has_lob_chunk_data = 0;
    int identity_ordinal = 0; ///< index of the identity column, 0 for none
    std::int64_t identity_seed = 0;
    std::int64_t identity_increment = 0;
    std::int64_t identity_current = 0;
    short identity_reseed = 0;
    short get_befores = 0;
    short longvar_capture = 0;
    short isDropped = 0;
    int file_idx = 0;           ///< this table's place in the capture's list
    short isUsingSourcedef = 0; ///< described by a definitions file
    int tableEncodingType = 0;

    ObjectMetadata() = default;
    ObjectMetadata(const ObjectMetadata& other);
    ObjectMetadata& operator=(const ObjectMetadata& other);
    ~ObjectMetadata();

    /// Frees every owned array and returns to the state of a new one.
    void clear();
    void swap(ObjectMetadata& other) noexcept;
};

/// Write `rec` to `logger` at `level`, one field a line ("name = value", the
/// names padded so the values line up), only when the logger is enabled for
/// `level` (a null logger logs nothing). A null record logs one line naming
/// it. How values read:
/// numbers and chars in decimal (a char is a number here), pointers as 0x...
/// or "(null)", texts as they are, timestamps as their number, counted
/// arrays of numbers as "{1, 2}" and keys as "name(1, 2) -> table(3, 4)"
/// joined by "; " (a list shows its first 32 entries, then "... N more").
/// Every line is one log event; an event's text is trimmed of blanks at both
/// ends, so an empty text value ends its line at "=".
///
/// std_rec_hdr_def: between the banners "*~~~~~~~~ standard record header
/// ~~~~~~~~~~~~*" and "... end ~~~~~~~~*"; when rec_info_usable is set and
/// rec_qzs_info is not null, the lines "tdr index", "chunk id" and "table"
/// from rec_qzs_info come after the fields.
QZ_API void Log(qzs::qzlib::qzlog::Logger* logger, unsigned char const& level,
                std_rec_hdr_def* rec);
/// col_def: its fields, then "*~~ col_io_def: io ~~*" and the io fields.
QZ_API void Log(qzs::qzlib::qzlog::Logger* logger, unsigned char const& level, col_def* rec);
/// ObjectMetadata: the banner "*~~~~~~~~ file definition with columns
/// ~~~~~~~~~~~*", the line "file_def" with the record's address, the fields,
/// then each of the num_cols columns as a col_def dump. Its lines carry the
/// source "qzlog/qzlogstd" and method "Log".
QZ_API void Log(qzs::qzlib::qzlog::Logger* logger, unsigned char const& level, ObjectMetadata* rec);

#endif // QZAPP_RECORDDUMP_H
