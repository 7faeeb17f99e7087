//===- tests/qzapp/RecordDumpTest.cpp - Record and metadata dumps ---------===//
//
// The exact lines each dump writes, what it writes for null records and
// disabled levels, and the deep copies of the records that own arrays.
//
//===----------------------------------------------------------------------===//
#include "qzapp/RecordDump.h"

#include "CaptureAppender.h"
#include "qzlog/Level.h"

#include <gtest/gtest.h>

#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

namespace {

using namespace qzs::qzlib;
using qzapp::CObjectName;
using qzapp::CQualTableName;
using qzapp::CTableName;
using qzlog::Level;
using qztest::CapturedLogger;

std::vector<std::string> split(const char* text) {
    std::vector<std::string> out;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        out.push_back(line);
    return out;
}

std::string address(const void* p) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "0x%" PRIxPTR, reinterpret_cast<uintptr_t>(p));
    return buf;
}

// Fake addresses: the dumps print borrowed pointers, never follow them.
template <typename T = void> T* fake(uintptr_t at) {
    return reinterpret_cast<T*>(at);
}

// Quiet before the fixture's logger is attached, quiet again after it goes.
struct QuietLogging : ::testing::Test {
    QuietLogging() { qztest::resetLogging(); }
    ~QuietLogging() override { qztest::resetLogging(); }
};

class RecordDumpTest : public QuietLogging {
protected:
    template <typename T> std::vector<std::string> dump(T* rec, unsigned char level = Level::Info) {
        log.capture->clear();
        Log(log.logger, level, rec);
        return log.capture->lines();
    }

    CapturedLogger log{"test.recorddump", "%m", Level::Info};
};

// ---- golden output -----------------------------------------------------------

TEST_F(RecordDumpTest, StandardRecordHeader) {
    std_rec_qzs_info_def info;
    info.tdr_index = 7;
    info.chunk_id = 2;
    info.table = "HR.EMPLOYEES";
    std_rec_hdr_def hdr;
    hdr.hdr_ind = 1;
    hdr.partition = 4;
    hdr.before_after_ind = 'A';
    hdr.rec_len = 1024;
    hdr.io_type = 15;
    hdr.orig_io_type = 5;
    hdr.orig_node = -1;
    hdr.audit_ts = 212010192000000000;
    hdr.audit_pos = 4096;
    hdr.audit_rba = 9000000000;
    hdr.trans_ind = 3;
    hdr.format_type = 'R';
    hdr.syskey_len = 8;
    hdr.continued = 1;
    hdr.rec_count = 12;
    hdr.rec_hdr_info = fake(0x1000);
    hdr.rec_qzs_info = &info;
    hdr.rec_info_usable = 1;

    std::vector<std::string> expected = split(R"(*~~~~~~~~ standard record header ~~~~~~~~~~~~*
hdr_ind          = 1
partition        = 4
undoflag         = 0
before_after_ind = 65
rec_len          = 1024
io_type          = 15
orig_io_type     = 5
orig_node        = -1
audit_ts         = 212010192000000000
audit_pos        = 4096
audit_rba        = 9000000000
trans_ind        = 3
format_type      = 82
syskey_len       = 8
incomplete_ind   = 0
continued        = 1
rec_count        = 12
rec_hdr_info     = 0x1000
rec_data_info    = (null)
@info
rec_user_info    = (null)
rec_info_usable  = 1
tdr index    = 7
chunk id     = 2
table        = HR.EMPLOYEES
*~~~~~~~~ standard record header end ~~~~~~~~*)");
    expected[20] = "rec_qzs_info     = " + address(&info);
    EXPECT_EQ(expected, dump(&hdr));

    // The three lines of the record's place need usable info that exists.
    struct {
        short usable;
        std_rec_qzs_info_def* info;
        const char* table;
        std::vector<std::string> tail;
    } const cases[] = {
        {0, &info, "T", {"rec_info_usable  = 0"}},
        {1, nullptr, "T", {"rec_info_usable  = 1"}},
        {1,
         &info,
         nullptr,
         {"rec_info_usable  = 1", "tdr index    = 7", "chunk id     = 2", "table        = (null)"}},
    };
    for (const auto& c : cases) {
        info.table = c.table;
        hdr.rec_info_usable = c.usable;
        hdr.rec_qzs_info = c.info;
        std::vector<std::string> lines = dump(&hdr);
        ASSERT_EQ(23 + c.tail.size(), lines.size());
        EXPECT_EQ(c.tail,
                  std::vector<std::string>(lines.end() - 1 - c.tail.size(), lines.end() - 1));
        EXPECT_EQ(expected.back(), lines.back());
    }
}

col_def sampleColumn(const char* name, short type) {
    col_def col;
    col.null = 1;
    col.nullable = 1;
    col.int_len = 22;
    col.ext_len = 40;
    col.data_type = type;
    col.native_data_type = 2;
    col.charset_id = -5;
    col.data_offset = 18;
    col.scale = 2;
    col.precision = 38;
    std::strcpy(col.name, name);
    col.lob_data_object_id = 77123456789;
    std::strcpy(col.data_type_str, "NUMBER");
    col.io.data_ptr = fake<char>(0xbeef0);
    col.io.bytes_retrieved = 22;
    col.io.crc32 = 4000000000u;
    col.io.val_is_null = 1;
    return col;
}

TEST_F(RecordDumpTest, Column) {
    col_def col = sampleColumn("SALARY", 152);
    // The logging core trims each message, so the io lines lose the two
    // blanks of their format and the padding ends at the name.
    EXPECT_EQ(split(R"(null                     = 1
bump_if_odd              = 0
computed_col_type        = 0
nullable                 = 1
int_len                  = 22
ext_len                  = 40
bin_len                  = 0
tab_len                  = 0
data_type                = 152
native_data_type         = 2
sub_data_type            = 0
charset_id               = -5
fetch_offset             = 0
fetch_offset_ext         = 0
data_offset              = 18
ascii_len                = 0
ascii_offset             = 0
most_sig_dt              = 0
least_sig_dt             = 0
high_precision           = 0
low_precision            = 0
c_type                   = 0
col_signed               = 0
bind_type                = 0
scale                    = 2
elementary               = 0
part_of_key              = 0
part_of_supplog          = 0
level                    = 0
redefine                 = 0
precision                = 38
occurs                   = 0
sql_bind_type            = 0
name                     = SALARY
binary_input             = 0
tlf_input                = 0
mapped_char_len          = 0
use_precision            = 0
redefine_idx             = 0
alt_col_id               = 0
is_lob                   = 0
partial_is_possible      = 0
is_numeric               = 0
is_xml                   = 0
is_unusedColumn          = 0
is_urowid                = 0
lob_object_id            = 0
lob_data_object_id       = 77123456789
data_type_str            = NUMBER
*~~ col_io_def: io ~~*
data_ptr               = 0xbeef0
bytes_retrieved        = 22
bytes_retrieved_before = 0
max_inline_len         = 0
crc32                  = 4000000000
lob_in_mem             = 0
targ_lob_mem           = 0
val_is_null            = 1)"),
              dump(&col));

    // A name that fills its array without a terminator stops at the array.
    std::memset(col.name, 'N', sizeof col.name);
    std::vector<std::string> lines = dump(&col);
    EXPECT_EQ("name                     = " + std::string(sizeof col.name, 'N'), lines.at(33));
    EXPECT_EQ("binary_input             = 0", lines.at(34));
}

ObjectMetadata sampleMetadata() {
    ObjectMetadata md;
    md.qualifiedName = CQualTableName(CObjectName("CAT"), CObjectName("HR"), CObjectName(),
                                      CTableName("EMPLOYEES"));
    md.object_type = qzapp::DBOBJ_TABLE;
    md.object_id = 73001;
    md.num_alt_object_ids = 3;
    md.alt_object_ids = new long[3]{73002, 73003, 73004};
    md.primary_key_name = "EMP_PK";
    md.num_cols = 2;
    md.total_cols = 3;
    md.cols = new col_def[2]{sampleColumn("EMP_ID", 134), sampleColumn("DEPT_ID", 134)};
    md.num_key_cols = 1;
    md.keys = new int[1]{0};
    md.where_clause = "DEPT_ID > 10";
    md.extr_ptr = fake(0x2000);
    md.num_fks = 1;
    md.fks = new file_def_fk[1];
    md.fks[0].name = "EMP_DEPT_FK";
    md.fks[0].ref_table = CQualTableName(CTableName("DEPT"));
    md.fks[0].num_cols = 1;
    md.fks[0].cols = new int[1]{1};
    md.fks[0].ref_cols = new int[1]{0};
    md.num_uks = 2;
    md.uks = new file_def_fk[2];
    md.uks[0].name = "EMP_UK";
    md.uks[0].num_cols = 2;
    md.uks[0].cols = new int[2]{0, 1};
    md.uks[1].name = "EMP_NOCOLS";
    md.identity_seed = -9000000000;
    md.tableEncodingType = 1208;
    return md;
}

TEST_F(RecordDumpTest, ObjectMetadataWithTwoColumns) {
    ObjectMetadata md = sampleMetadata();
    std::vector<std::string> expected = split(R"(*~~~~~~~~ file definition with columns ~~~~~~~~~~~*
@file_def
qualifiedName                = CAT.HR.EMPLOYEES
object_type                  = 1
object_id                    = 73001
data_object_id               = 0
num_alt_object_ids           = 3
alt_object_ids               = {73002, 73003, 73004}
user_id                      = 0
primary_key_name             = EMP_PK
num_cols                     = 2
total_cols                   = 3
@cols
group_level_access           = 0
num_key_cols                 = 1
fetch_rec_len                = 0
fetch_rec_len_ext            = 0
keys                         = {0}
using_pseudo_key             = 0
syskey                       = 0
fetch_problem                = 0
where_clause                 = DEPT_ID > 10
source                       =
target                       =
from_param                   = 0
perm_problem                 = 0
extr_ptr                     = 0x2000
ascii_rec_len                = 0
num_bad_recs                 = 0
num_warn_recs                = 0
num_compressed_recs          = 0
err_hdl_flag                 = 0
is_query                     = 0
query                        =
has_long                     = 0
has_unused_cols              = 0
has_lobs                     = 0
has_partial_types            = 0
fetch_all_vals               = 0
has_xml                      = 0
has_udts                     = 0
has_xfqName                  = 0
retrieved_pk                 = 0
pk_fetch_stmt                =
fetch_before_filter          = 0
sql_predicate                =
num_fks                      = 1
fks                          = EMP_DEPT_FK(1) -> DEPT(0)
uks_are_pk_subset            = 0
num_uks                      = 2
uks                          = EMP_UK(0, 1); EMP_NOCOLS()
ct_fhndl                     = -1
source_mapped                = 0
has_lob_chunk_data           = 0
identity_ordinal             = 0
identity_seed                = -9000000000
identity_increment           = 0
identity_current             = 0
identity_reseed              = 0
get_befores                  = 0
longvar_capture              = 0
isDropped                    = 0
file_idx                     = 0
isUsingSourcedef             = 0
tableEncodingType            = 1208)");
    expected[1] = "file_def                     = " + address(&md);
    expected[12] = "cols                         = " + address(md.cols);
    // Then each column, as its own dump writes it.
    for (int i = 0; i < md.num_cols; ++i)
        for (const std::string& line : dump(&md.cols[i]))
            expected.push_back(line);
    EXPECT_EQ(expected, dump(&md));

    // Its lines name the metadata dump's own source and method; the column
    // lines within it are the column dump's.
    CapturedLogger located{"test.recorddump.located", "%l|%m", Level::Info};
    Log(located.logger, Level::Info, &md);
    const std::vector<std::string> lines = located.capture->lines();
    ASSERT_EQ(expected.size(), lines.size());
    for (size_t i = 0; i < 65; ++i)
        EXPECT_EQ(0u, lines[i].rfind("Log qzlog/qzlogstd(", 0)) << lines[i];
    EXPECT_EQ(std::string::npos, lines[65].find("qzlog/qzlogstd")) << lines[65];

    // A long list is cut, saying how much was left out.
    long ids[40] = {};
    long* const owned = md.alt_object_ids;
    md.alt_object_ids = ids;
    md.num_alt_object_ids = 40;
    EXPECT_EQ("alt_object_ids               = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, "
              "0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, ... 8 more}",
              dump(&md).at(7));
    md.alt_object_ids = owned; // ids is not md's to free, its own list is
    md.num_alt_object_ids = 3;
}

TEST_F(RecordDumpTest, NullRecordsAndDisabledLevels) {
    col_def col;
    std_rec_hdr_def hdr;
    ObjectMetadata md;
    using Run = std::function<std::vector<std::string>(unsigned char)>;
    struct {
        Run full, null;
        size_t lines;
        const char* nullLine;
    } const cases[] = {
        {[&](unsigned char l) { return dump(&hdr, l); },
         [&](unsigned char l) { return dump<std_rec_hdr_def>(nullptr, l); }, 24,
         "std_rec_hdr = (pointer) 0"},
        {[&](unsigned char l) { return dump(&col, l); },
         [&](unsigned char l) { return dump<col_def>(nullptr, l); }, 58, "col_def = (pointer) 0"},
        {[&](unsigned char l) { return dump(&md, l); },
         [&](unsigned char l) { return dump<ObjectMetadata>(nullptr, l); }, 65,
         "file_def = (pointer) 0"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.nullLine);
        EXPECT_EQ(c.lines, c.full(Level::Error).size());
        EXPECT_TRUE(c.full(Level::Debug).empty()); // below the logger's INFO
        EXPECT_EQ(std::vector<std::string>{c.nullLine}, c.null(Level::Info));
        EXPECT_TRUE(c.null(Level::Debug).empty());
    }
    // No logger at all: nothing happens.
    Log(nullptr, Level::Fatal, &hdr);
    Log(nullptr, Level::Fatal, &col);
    Log(nullptr, Level::Fatal, &md);
}

// ---- owning records ----------------------------------------------------------

// Everything but the addresses of the record and its column array, which a
// deep copy must change.
std::vector<std::string> contents(std::vector<std::string> lines) {
    lines.erase(lines.begin() + 12); // cols
    lines.erase(lines.begin() + 1);  // file_def
    return lines;
}

TEST_F(RecordDumpTest, MetadataCopiesAreDeep) {
    // Each copy is changed in every part it owns and then destroyed: a
    // shallow copy shows in the original's dump, or frees its arrays twice.
    ObjectMetadata original = sampleMetadata();
    const std::vector<std::string> before = contents(dump(&original));
    struct {
        const char* how;
        ObjectMetadata (*make)(const ObjectMetadata&);
    } const ways[] = {
        {"construct", [](const ObjectMetadata& m) { return ObjectMetadata(m); }},
        {"assign to empty",
         [](const ObjectMetadata& m) {
             ObjectMetadata to;
             to = m;
             return to;
         }},
        {"assign over full", // the old arrays are freed (a leak shows under ASan)
         [](const ObjectMetadata& m) {
             ObjectMetadata to = sampleMetadata();
             to = m;
             return to;
         }},
        {"self-assign",
         [](const ObjectMetadata& m) {
             ObjectMetadata to = m;
             to = *&to;
             return to;
         }},
    };
    for (const auto& w : ways) {
        SCOPED_TRACE(w.how);
        {
            ObjectMetadata copy = w.make(original);
            EXPECT_EQ(before, contents(dump(&copy)));
            EXPECT_NE(original.cols, copy.cols);
            copy.alt_object_ids[0] = -1;
            std::strcpy(copy.cols[1].name, "CHANGED");
            copy.keys[0] = 1;
            copy.fks[0].cols[0] = 0;
            copy.fks[0].ref_cols[0] = 5;
            copy.uks[0].cols[1] = 0;
        }
        EXPECT_EQ(before, contents(dump(&original)));
    }

    // clear frees and empties; a cleared record copies and dies cleanly; a
    // count without its array copies as no array.
    ObjectMetadata fresh;
    const std::vector<std::string> empty = contents(dump(&fresh));
    ObjectMetadata cleared = original;
    cleared.clear();
    EXPECT_EQ(empty, contents(dump(&cleared)));
    cleared.num_cols = 4;
    ObjectMetadata copy = cleared;
    EXPECT_EQ(nullptr, copy.cols);
}

TEST_F(RecordDumpTest, ForeignKeyCopyAndClear) {
    // The metadata copies assign their keys; this is the key's own copy.
    const ObjectMetadata md = sampleMetadata();
    file_def_fk copy(md.fks[0]);
    EXPECT_NE(md.fks[0].ref_cols, copy.ref_cols);
    copy.cols[0] = copy.ref_cols[0] = 9;
    EXPECT_EQ(1, md.fks[0].cols[0]);
    EXPECT_EQ(0, md.fks[0].ref_cols[0]);
    copy.clear();
    EXPECT_TRUE(copy.name.empty() && copy.ref_table.empty());
    EXPECT_EQ(0, copy.num_cols);
    EXPECT_EQ(nullptr, copy.cols);
}

} // namespace
