//===- qzstd/ColumnDef.h - The description of one database column -*- C++ -*-===//
//
// col_def describes a column of a captured table: its lengths, type numbers,
// offsets into the record, precision and scale, name, and the I/O state of
// its current value (col_io_def). The number converters read the type, scale
// and lengths from it; the record dumps write every field, in the order
// declared here, so keep that order when adding one.
//
//===----------------------------------------------------------------------===//
#ifndef QZSTD_COLUMNDEF_H
#define QZSTD_COLUMNDEF_H

/// Bytes of col_def::name, terminator included: 128 characters of up to
/// four UTF-8 bytes each, and the NUL.
#define QZ_COL_NAME_SIZE 513
/// Bytes of col_def::data_type_str, terminator included.
#define QZ_COL_TYPE_STR_SIZE 64

/// Where a column's current value is and what was fetched of it.
///
/// A plain record: copying it copies data_ptr, which is borrowed (it points
/// into a record buffer that someone else owns) and never freed here.
struct col_io_def {
    char* data_ptr = nullptr;        ///< the value in the current record, not owned
    long bytes_retrieved = 0;        ///< bytes of the after image fetched so far
    long bytes_retrieved_before = 0; ///< bytes of the before image fetched so far
    int max_inline_len = 0;          ///< longest value kept in the record itself
    unsigned int crc32 = 0;          ///< checksum of the value, when one is kept
    short lob_in_mem = 0;            ///< the large object is held in memory
    short targ_lob_mem = 0;          ///< the target's copy is held in memory
    short val_is_null = 0;           ///< the current value is null

    col_io_def() = default;
    col_io_def(const col_io_def&) = default;
    col_io_def& operator=(const col_io_def&) = default;
    ~col_io_def() = default;

    /// Back to the state of a new one: every field 0, data_ptr null.
    void clear() { *this = col_io_def(); }
};

/// One column's description and its I/O state.
///
/// Every field is a value, and `name` and `data_type_str` are fixed arrays,
/// so the record owns nothing: copies are independent, and destroying one
/// frees nothing (io.data_ptr is borrowed, see col_io_def). A new or cleared
/// record is all zero, with empty texts.
///
/// Type numbers (data_type) that the number converters know: 64 (two-byte
/// length and text), 130 to 135 (binary integers), 140 and 141 (floating
/// point), 150 to 154 (decimal text), 189 (packed decimal).
struct col_def {
    short null = 0;              ///< the column has a null indicator in the record
    short bump_if_odd = 0;       ///< its data starts on an even offset
    short computed_col_type = 0; ///< 0, or the kind of computed column
    short nullable = 0;
    int int_len = 0; ///< bytes in the internal record, length prefix included
    int ext_len = 0; ///< bytes of the external (display) form
    int bin_len = 0; ///< bytes of the binary form
    int tab_len = 0; ///< bytes the database declares
    short data_type = 0;
    short native_data_type = 0; ///< the database's own type number
    short sub_data_type = 0;    ///< refines data_type: 3 and 37 are numbers of fixed scale
    int charset_id = 0;
    int fetch_offset = 0;
    int fetch_offset_ext = 0;
    int data_offset = 0; ///< offset of the value in the record
    int ascii_len = 0;
    int ascii_offset = 0;
    short most_sig_dt = 0;  ///< first field of a date and time type
    short least_sig_dt = 0; ///< last field of a date and time type
    short high_precision = 0;
    short low_precision = 0;
    short c_type = 0;
    short col_signed = 0;
    short bind_type = 0;
    short scale = 0; ///< digits behind the decimal point
    short elementary = 0;
    short part_of_key = 0;
    short part_of_supplog = 0;
    short level = 0;
    short redefine = 0;
    int precision = 0; ///< decimal digits of a number column
    int occurs = 0;
    short sql_bind_type = 0;
    char name[QZ_COL_NAME_SIZE] = {}; ///< NUL-terminated
    short binary_input = 0;
    short tlf_input = 0;
    int mapped_char_len = 0;
    short use_precision = 0;
    int redefine_idx = 0;
    int alt_col_id = 0;
    short is_lob = 0;
    short partial_is_possible = 0;
    short is_numeric = 0;
    short is_xml = 0;
    short is_unusedColumn = 0;
    short is_urowid = 0;
    long lob_object_id = 0;
    long lob_data_object_id = 0;
    char data_type_str[QZ_COL_TYPE_STR_SIZE] = {}; ///< NUL-terminated
    col_io_def io;

    col_def() = default;
    col_def(const col_def&) = default;
    col_def& operator=(const col_def&) = default;
    ~col_def() = default;

    /// Back to the state of a new one, io included.
    void clear() { *this = col_def(); }

    /// Copies the description of `other`, every field but io: this record's
    /// I/O state (its value pointer, fetch counts and null flag) stays as it
    /// was, since it belongs to this record's own buffer.
    void partial_copy(const col_def& other) {
        if (&other == this)
            return;
        const col_io_def keep = io;
        *this = other;
        io = keep;
    }
};

#endif // QZSTD_COLUMNDEF_H
