//===- qzunicode/CharSetTable.cpp - The character set table ---------------===//
//
// The four blocks of rows and the lookups over them. The rows are data, not
// logic: they are kept exactly as the sets were registered over the years,
// including the values marked "kept on purpose" below, because stored data
// and other processes carry these numbers and names.
//
//===----------------------------------------------------------------------===//
#include "qzunicode/CharSetTable.h"

#include "qzstd/ThreadLocalStorage.h"
#include "qzunicode/ULib.h"

#include <atomic>
#include <iterator>
#include <map>

namespace qzs {
namespace qzlib {
namespace qzunicode {

namespace {

// Columns: converter name, alias 1, alias 2, MIME name, CCSID,
// USASCII-compatible, EBCDIC, min, max and null size in bytes.
// clang-format off

// Unicode block, 0 to 11.
// Kept on purpose: the sizes as they stand, UTF-EBCDIC's maximum of 1 among
// them. String buffers are sized as getMaxCharSize times the UTF-16 length,
// and these are the figures that sizing is built on.
const ULibCharSetInfo g_unicodeSets[] = {
    {"UTF-8", "AL32UTF8", nullptr, "UTF-8", 1208, 1, 0, 1, 3, 1}, // 0
    {"UTF-16", nullptr, nullptr, "UTF-16", 1204, 0, 0, 2, 2, 2}, // 1
    {"UTF-16BE", nullptr, nullptr, nullptr, 1200, 0, 0, 2, 2, 2}, // 2
    {"UTF-16LE", nullptr, nullptr, nullptr, 1202, 0, 0, 2, 2, 2}, // 3
    {"UTF-32", nullptr, nullptr, nullptr, 1236, 0, 0, 4, 4, 4}, // 4
    {"UTF-32BE", nullptr, nullptr, nullptr, 1232, 0, 0, 4, 4, 4}, // 5
    {"UTF-32LE", nullptr, nullptr, nullptr, 1234, 0, 0, 4, 4, 4}, // 6
    {"UTF-EBCDIC", nullptr, nullptr, nullptr, 1210, 0, 1, 1, 1, 1}, // 7
    {"CESU-8", nullptr, nullptr, nullptr, 9400, 1, 0, 1, 3, 1}, // 8
    {"UTF-7", nullptr, nullptr, nullptr, -1, 0, 0, 1, 4, 1}, // 9
    {"SCSU", nullptr, nullptr, nullptr, 1212, 1, 0, 1, 3, 1}, // 10
    {"BOCU-1", nullptr, nullptr, nullptr, 1214, 0, 0, 1, 4, 1}, // 11
};

// Single-byte block, 1000 to 1124. Alias 1 is ICU's full name; where an
// EBCDIC set has a newline-swapped form, alias 1 carries ICU's ",swaplfnl"
// option and alias 2 the plain name, so the two stay told apart by toCharSet.
// windows-1250 to 1254 and 1258 name IBM's older code page in alias 1 and the
// Euro form ICU opens in alias 2, whose number is the CCSID. windows-1255 to
// 1257 are filled from ICU 72's names: ICU opens them as their Euro forms,
// so alias 1 is that name and the CCSID its number (9447 to 9449), and
// CCSIDs 1255 to 1257 reach them through fromCCSID's fixed list. US-ASCII
// and ISO-8859-1 are ICU's full names as they stand, so alias 1 repeats them.
// Kept on purpose: 1050 IBM01141 has the MIME name IBM01142; alias 1 of 1124
// ibm-5233 lacks its first letter; ibm-803 has CCSID 807; ibm-1018 is flagged
// EBCDIC with the rest of 1047 to 1100.
const ULibCharSetInfo g_singleByteSets[] = {
    {"US-ASCII", "US-ASCII", nullptr, "US-ASCII", 367, 1, 0, 1, 1, 1}, // 1000
    {"windows-1250", "ibm-1250_P100-1995", "ibm-5346_P100-1998", "windows-1250", 5346, 1, 0, 1, 1, 1}, // 1001
    {"windows-1251", "ibm-1251_P100-1995", "ibm-5347_P100-1998", "windows-1251", 5347, 1, 0, 1, 1, 1}, // 1002
    {"windows-1252", "ibm-1252_P100-2000", "ibm-5348_P100-1997", "windows-1252", 5348, 1, 0, 1, 1, 1}, // 1003
    {"windows-1253", "ibm-1253_P100-1995", "ibm-5349_P100-1998", "windows-1253", 5349, 1, 0, 1, 1, 1}, // 1004
    {"windows-1254", "ibm-1254_P100-1995", "ibm-5350_P100-1998", "windows-1254", 5350, 1, 0, 1, 1, 1}, // 1005
    {"windows-1255", "ibm-9447_P100-2002", nullptr, "windows-1255", 9447, 1, 0, 1, 1, 1}, // 1006
    {"windows-1256", "ibm-9448_X100-2005", nullptr, "windows-1256", 9448, 1, 0, 1, 1, 1}, // 1007
    {"windows-1257", "ibm-9449_P100-2002", nullptr, "windows-1257", 9449, 1, 0, 1, 1, 1}, // 1008
    {"windows-1258", "ibm-1258_P100-1997", "ibm-5354_P100-1998", "windows-1258", 5354, 1, 0, 1, 1, 1}, // 1009
    {"windows-874", "windows-874-2000", nullptr, "windows-874", -1, 1, 0, 1, 1, 1}, // 1010
    {"cp437", "ibm-437_P100-1995", nullptr, "IBM437", 437, 1, 0, 1, 1, 1}, // 1011
    {"ibm-720", "ibm-720_P100-1997", nullptr, nullptr, 720, 1, 0, 1, 1, 1}, // 1012
    {"cp737", "ibm-737_P100-1997", nullptr, "cp737", 737, 1, 0, 1, 1, 1}, // 1013
    {"cp775", "ibm-775_P100-1996", nullptr, "IBM775", 775, 1, 0, 1, 1, 1}, // 1014
    {"cp850", "ibm-850_P100-1995", nullptr, "IBM850", 850, 1, 0, 1, 1, 1}, // 1015
    {"cp851", "ibm-851_P100-1995", nullptr, "cp851", 851, 1, 0, 1, 1, 1}, // 1016
    {"cp852", "ibm-852_P100-1995", nullptr, "IBM852", 852, 1, 0, 1, 1, 1}, // 1017
    {"cp855", "ibm-855_P100-1995", nullptr, "IBM855", 855, 1, 0, 1, 1, 1}, // 1018
    {"cp856", "ibm-856_P100-1995", nullptr, "cp856", 856, 1, 0, 1, 1, 1}, // 1019
    {"cp857", "ibm-857_P100-1995", nullptr, "IBM857", 857, 1, 0, 1, 1, 1}, // 1020
    {"cp858", "ibm-858_P100-1997", nullptr, "IBM00858", 858, 1, 0, 1, 1, 1}, // 1021
    {"cp860", "ibm-860_P100-1995", nullptr, "IBM860", 860, 1, 0, 1, 1, 1}, // 1022
    {"cp861", "ibm-861_P100-1995", nullptr, "IBM861", 861, 1, 0, 1, 1, 1}, // 1023
    {"cp862", "ibm-862_P100-1995", nullptr, "IBM862", 862, 1, 0, 1, 1, 1}, // 1024
    {"cp863", "ibm-863_P100-1995", nullptr, "IBM863", 863, 1, 0, 1, 1, 1}, // 1025
    {"cp864", "ibm-864_X110-1999", nullptr, "IBM864", 864, 1, 0, 1, 1, 1}, // 1026
    {"cp865", "ibm-865_P100-1995", nullptr, "IBM865", 865, 1, 0, 1, 1, 1}, // 1027
    {"cp866", "ibm-866_P100-1995", nullptr, "IBM866", 866, 1, 0, 1, 1, 1}, // 1028
    {"ibm-867", "ibm-867_P100-1998", nullptr, nullptr, 867, 1, 0, 1, 1, 1}, // 1029
    {"CP868", "ibm-868_P100-1995", nullptr, "IBM868", 868, 1, 0, 1, 1, 1}, // 1030
    {"cp869", "ibm-869_P100-1995", nullptr, "IBM869", 869, 1, 0, 1, 1, 1}, // 1031
    {"ISO-8859-1", "ISO-8859-1", nullptr, "ISO-8859-1", 819, 1, 0, 1, 1, 1}, // 1032
    {"ISO-8859-2", "ibm-912_P100-1995", nullptr, "ISO-8859-2", 912, 1, 0, 1, 1, 1}, // 1033
    {"ISO-8859-3", "ibm-913_P100-2000", nullptr, "ISO-8859-3", 913, 1, 0, 1, 1, 1}, // 1034
    {"ISO-8859-4", "ibm-914_P100-1995", nullptr, "ISO-8859-4", 914, 1, 0, 1, 1, 1}, // 1035
    {"ISO-8859-5", "ibm-915_P100-1995", nullptr, "ISO-8859-5", 915, 1, 0, 1, 1, 1}, // 1036
    {"ISO-8859-6", "ibm-1089_P100-1995", nullptr, "ISO-8859-6", 1089, 1, 0, 1, 1, 1}, // 1037
    {"ISO-8859-7", "ibm-9005_X110-2007", nullptr, "ISO-8859-7", 9005, 1, 0, 1, 1, 1}, // 1038
    {"ISO-8859-8", "ibm-5012_P100-1999", nullptr, "ISO-8859-8", 5012, 1, 0, 1, 1, 1}, // 1039
    {"ISO-8859-9", "ibm-920_P100-1995", nullptr, "ISO-8859-9", 920, 1, 0, 1, 1, 1}, // 1040
    {"ISO-8859-10", "iso-8859_10-1998", nullptr, "ISO-8859-10", -1, 1, 0, 1, 1, 1}, // 1041
    {"ISO-8859-11", "iso-8859_11-2001", nullptr, "ISO-8859-11", -1, 1, 0, 1, 1, 1}, // 1042
    {"ISO-8859-13", "ibm-921_P100-1995", nullptr, "ISO-8859-13", 921, 1, 0, 1, 1, 1}, // 1043
    {"ISO-8859-14", "iso-8859_14-1998", nullptr, "ISO-8859-14", -1, 1, 0, 1, 1, 1}, // 1044
    {"ISO-8859-15", "ibm-923_P100-1998", nullptr, "ISO-8859-15", 923, 1, 0, 1, 1, 1}, // 1045
    {"ISO-8859-16", "iso-8859_16-2001", nullptr, "ISO-8859-16", -1, 1, 0, 1, 1, 1}, // 1046
    {"IBM037", "ibm-37_P100-1995,swaplfnl", "ibm-37_P100-1995", "IBM037", 37, 0, 1, 1, 1, 1}, // 1047
    {"IBM01140", "ibm-1140_P100-1997,swaplfnl", "ibm-1140_P100-1997", "IBM01140", 1140, 0, 1, 1, 1, 1}, // 1048
    {"IBM273", "ibm-273_P100-1995", nullptr, "IBM273", 273, 0, 1, 1, 1, 1}, // 1049
    {"IBM01141", "ibm-1141_P100-1997,swaplfnl", "ibm-1141_P100-1997", "IBM01142", 1141, 0, 1, 1, 1, 1}, // 1050
    {"IBM277", "ibm-277_P100-1995", nullptr, "IBM277", 277, 0, 1, 1, 1, 1}, // 1051
    {"IBM01142", "ibm-1142_P100-1997,swaplfnl", "ibm-1142_P100-1997", "IBM01142", 1142, 0, 1, 1, 1, 1}, // 1052
    {"IBM278", "ibm-278_P100-1995", nullptr, "IBM278", 278, 0, 1, 1, 1, 1}, // 1053
    {"IBM01143", "ibm-1143_P100-1997,swaplfnl", "ibm-1143_P100-1997", "IBM01143", 1143, 0, 1, 1, 1, 1}, // 1054
    {"IBM280", "ibm-280_P100-1995", nullptr, "IBM280", 280, 0, 1, 1, 1, 1}, // 1055
    {"IBM01144", "ibm-1144_P100-1997,swaplfnl", "ibm-1144_P100-1997", "IBM01144", 1144, 0, 1, 1, 1, 1}, // 1056
    {"IBM284", "ibm-284_P100-1995", nullptr, "IBM284", 284, 0, 1, 1, 1, 1}, // 1057
    {"IBM01145", "ibm-1145_P100-1997,swaplfnl", "ibm-1145_P100-1997", "IBM01145", 1145, 0, 1, 1, 1, 1}, // 1058
    {"IBM285", "ibm-285_P100-1995", nullptr, "IBM285", 285, 0, 1, 1, 1, 1}, // 1059
    {"IBM01146", "ibm-1146_P100-1997,swaplfnl", "ibm-1146_P100-1997", "IBM01146", 1146, 0, 1, 1, 1, 1}, // 1060
    {"IBM290", "ibm-290_P100-1995", nullptr, "IBM290", 290, 0, 1, 1, 1, 1}, // 1061
    {"IBM297", "ibm-297_P100-1995", nullptr, "IBM297", 297, 0, 1, 1, 1, 1}, // 1062
    {"IBM01147", "ibm-1147_P100-1997,swaplfnl", "ibm-1147_P100-1997", "IBM01147", 1147, 0, 1, 1, 1, 1}, // 1063
    {"IBM420", "ibm-420_X120-1999", nullptr, "IBM420", 420, 0, 1, 1, 1, 1}, // 1064
    {"IBM424", "ibm-424_P100-1995", nullptr, "IBM424", 424, 0, 1, 1, 1, 1}, // 1065
    {"IBM500", "ibm-500_P100-1995", nullptr, "IBM500", 500, 0, 1, 1, 1, 1}, // 1066
    {"IBM01148", "ibm-1148_P100-1997,swaplfnl", "ibm-1148_P100-1997", "IBM01148", 1148, 0, 1, 1, 1, 1}, // 1067
    {"IBM870", "ibm-870_P100-1995", nullptr, "IBM870", 870, 0, 1, 1, 1, 1}, // 1068
    {"IBM871", "ibm-871_P100-1995", nullptr, "IBM871", 871, 0, 1, 1, 1, 1}, // 1069
    {"IBM918", "ibm-918_P100-1995", nullptr, "IBM918", 918, 0, 1, 1, 1, 1}, // 1070
    {"IBM1149", "ibm-1149_P100-1997,swaplfnl", "ibm-1149_P100-1997", "IBM01149", 1149, 0, 1, 1, 1, 1}, // 1071
    {"IBM1047", "ibm-1047_P100-1995,swaplfnl", "ibm-1047_P100-1995", "IBM1047", 1047, 0, 1, 1, 1, 1}, // 1072
    {"ibm-803", "ibm-803_P100-1999", nullptr, nullptr, 807, 0, 1, 1, 1, 1}, // 1073
    {"IBM875", "ibm-875_P100-1995", nullptr, "IBM875", 875, 0, 1, 1, 1, 1}, // 1074
    {"ibm-924", "ibm-924_P100-1998,swaplfnl", "ibm-924_P100-1998", "IBM00924", 924, 0, 1, 1, 1, 1}, // 1075
    {"ibm-1153", "ibm-1153_P100-1999,swaplfnl", "ibm-1153_P100-1999", nullptr, 1153, 0, 1, 1, 1, 1}, // 1076
    {"ibm-1122", "ibm-1122_P100-1999", nullptr, nullptr, 1122, 0, 1, 1, 1, 1}, // 1077
    {"ibm-1157", "ibm-1157_P100-1999", nullptr, nullptr, 1157, 0, 1, 1, 1, 1}, // 1078
    {"ibm-1112", "ibm-1112_P100-1995", nullptr, nullptr, 1112, 0, 1, 1, 1, 1}, // 1079
    {"ibm-1156", "ibm-1156_P100-1999", nullptr, nullptr, 1156, 0, 1, 1, 1, 1}, // 1080
    {"ibm-4899", "ibm-4899_P100-1998", nullptr, nullptr, 4899, 0, 1, 1, 1, 1}, // 1081
    {"ibm-12712", "ibm-12712_P100-1998,swaplfnl", "ibm-12712_P100-1998", nullptr, 12712, 0, 1, 1, 1, 1}, // 1082
    {"ibm-1097", "ibm-1097_P100-1995", nullptr, nullptr, 1097, 0, 1, 1, 1, 1}, // 1083
    {"ibm-1018", "ibm-1018_P100-1995", nullptr, "SEN_850200_B", 1018, 0, 1, 1, 1, 1}, // 1084
    {"ibm-1132", "ibm-1132_P100-1998", nullptr, nullptr, 1132, 0, 1, 1, 1, 1}, // 1085
    {"ibm-1137", "ibm-1137_P100-1999", nullptr, nullptr, 1137, 0, 1, 1, 1, 1}, // 1086
    {"ibm-1025", "ibm-1025_P100-1995", nullptr, nullptr, 1025, 0, 1, 1, 1, 1}, // 1087
    {"ibm-1154", "ibm-1154_P100-1999", nullptr, nullptr, 1154, 0, 1, 1, 1, 1}, // 1088
    {"IBM1026", "ibm-1026_P100-1995", nullptr, "IBM1026", 1026, 0, 1, 1, 1, 1}, // 1089
    {"ibm-1155", "ibm-1155_P100-1999", nullptr, nullptr, 1155, 0, 1, 1, 1, 1}, // 1090
    {"ibm-1123", "ibm-1123_P100-1995", nullptr, nullptr, 1123, 0, 1, 1, 1, 1}, // 1091
    {"ibm-1158", "ibm-1158_P100-1999", nullptr, nullptr, 1158, 0, 1, 1, 1, 1}, // 1092
    {"IBM838", "ibm-838_P100-1995", nullptr, "IBM-Thai", 838, 0, 1, 1, 1, 1}, // 1093
    {"ibm-1160", "ibm-1160_P100-1999", nullptr, nullptr, 1160, 0, 1, 1, 1, 1}, // 1094
    {"ibm-1130", "ibm-1130_P100-1997", nullptr, nullptr, 1130, 0, 1, 1, 1, 1}, // 1095
    {"ibm-1164", "ibm-1164_P100-1999", nullptr, nullptr, 1164, 0, 1, 1, 1, 1}, // 1096
    {"ibm-4517", "ibm-4517_P100-2005", nullptr, nullptr, 4517, 0, 1, 1, 1, 1}, // 1097
    {"ibm-4971", "ibm-4971_P100-1999", nullptr, nullptr, 4971, 0, 1, 1, 1, 1}, // 1098
    {"ibm-9067", "ibm-9067_X100-2005", nullptr, nullptr, 9067, 0, 1, 1, 1, 1}, // 1099
    {"ibm-16804", "ibm-16804_X110-1999,swaplfnl", "ibm-16804_X110-1999", nullptr, 16804, 0, 1, 1, 1, 1}, // 1100
    {"KOI8-R", "ibm-878_P100-1996", nullptr, "KOI8-R", 878, 1, 0, 1, 1, 1}, // 1101
    {"KOI8-U", "ibm-1168_P100-2002", nullptr, "KOI8-U", 1168, 1, 0, 1, 1, 1}, // 1102
    {"eucTH", "ibm-874_P100-1995", nullptr, "TIS-620", 874, 1, 0, 1, 1, 1}, // 1103
    {"ibm-1162", "ibm-1162_P100-1999", nullptr, nullptr, 1162, 1, 0, 1, 1, 1}, // 1104
    {"DEC-MCS", "ibm-1100_P100-2003", nullptr, "DEC-MCS", 1100, 1, 0, 1, 1, 1}, // 1105
    {"hp-roman8", "ibm-1051_P100-1995", nullptr, "hp-roman8", 1051, 1, 0, 1, 1, 1}, // 1106
    {"ibm-901", "ibm-901_P100-1999", nullptr, nullptr, 901, 1, 0, 1, 1, 1}, // 1107
    {"ibm-902", "ibm-902_P100-1999", nullptr, nullptr, 902, 1, 0, 1, 1, 1}, // 1108
    {"ibm-916", "ibm-916_P100-1995", nullptr, nullptr, 916, 1, 0, 1, 1, 1}, // 1109
    {"ibm-922", "ibm-922_P100-1999", nullptr, nullptr, 922, 1, 0, 1, 1, 1}, // 1110
    {"ibm-1006", "ibm-1006_P100-1995", nullptr, nullptr, 1006, 1, 0, 1, 1, 1}, // 1111
    {"ibm-1098", "ibm-1098_P100-1995", nullptr, nullptr, 1098, 1, 0, 1, 1, 1}, // 1112
    {"ibm-1124", "ibm-1124_P100-1996", nullptr, nullptr, 1124, 1, 0, 1, 1, 1}, // 1113
    {"ibm-1125", "ibm-1125_P100-1997", nullptr, nullptr, 1125, 1, 0, 1, 1, 1}, // 1114
    {"ibm-1129", "ibm-1129_P100-1997", nullptr, nullptr, 1129, 1, 0, 1, 1, 1}, // 1115
    {"ibm-1131", "ibm-1131_P100-1997", nullptr, nullptr, 1131, 1, 0, 1, 1, 1}, // 1116
    {"ibm-1133", "ibm-1133_P100-1997", nullptr, nullptr, 1133, 1, 0, 1, 1, 1}, // 1117
    {"ibm-4909", "ibm-4909_P100-1999", nullptr, nullptr, 4909, 1, 0, 1, 1, 1}, // 1118
    {"JIS_X201", "ibm-897_P100-1995", nullptr, "JIS_X201", 897, 1, 0, 1, 1, 1}, // 1119
    {"KOI8-RU", "ibm-1167_P100-2002", nullptr, "KOI8-RU", 1167, 1, 0, 1, 1, 1}, // 1120
    {"ibm-1046", "ibm-1046_X110-1999", nullptr, nullptr, 1046, 1, 0, 1, 1, 1}, // 1121
    {"ibm-274", "ibm-274_P100-2000", nullptr, nullptr, 274, 0, 1, 1, 1, 1}, // 1122
    {"ibm-425", "ibm-425_P101-2000", nullptr, nullptr, 425, 0, 1, 1, 1, 1}, // 1123
    {"ibm-5233", "bm-5233_P100-2011", nullptr, nullptr, 5233, 0, 1, 1, 1, 1}, // 1124
};

// Multi-byte block, 5000 to 5041.
// Kept on purpose: 5023 ibm-16684 has CCSID 16884; the sizes of 5023, 5036
// and 5039; the shared CCSIDs 943 (5000, 5024), 1363 (5003, 5037) and 949
// (5034, 5035), of which fromCCSID always gives the first.
const ULibCharSetInfo g_multiByteSets[] = {
    {"windows-932", "ibm-943_P15A-2003", nullptr, "Shift_JIS", 943, 1, 0, 1, 2, 1}, // 5000
    {"windows-936", "ibm-1386_P100-2002", nullptr, "GBK", 1386, 1, 0, 1, 2, 1}, // 5001
    {"ibm-942", "ibm-942_P12A-1999", nullptr, nullptr, 942, 1, 0, 1, 2, 1}, // 5002
    {"windows-949", "ibm-1363_P11B-1998", "windows-949-2000", "KSC_5601", 1363, 1, 0, 1, 2, 1}, // 5003
    {"windows-950", "ibm-1373_P100-2002", "windows-950-2000", "Big5", 1373, 1, 0, 1, 2, 1}, // 5004
    {"eucjis", "ibm-954_P101-2007", nullptr, "EUC-JP", 954, 1, 0, 1, 3, 1}, // 5005
    {"ibm-33722", "ibm-33722_P12A_P12A-2009_U2", nullptr, nullptr, 33722, 1, 0, 1, 3, 1}, // 5006
    {"EUC-CN", "ibm-1383_P110-1999", nullptr, "GB2312", 1383, 1, 0, 1, 2, 1}, // 5007
    {"EUC-KR", "ibm-970_P110_P110-2006_U2", nullptr, "EUC-KR", 970, 1, 0, 1, 2, 1}, // 5008
    {"ibm-964", "ibm-964_P110-1999", nullptr, nullptr, 964, 1, 0, 1, 4, 1}, // 5009
    {"ibm-930", "ibm-930_P120-1999", nullptr, nullptr, 930, 0, 1, 1, 4, 1}, // 5010
    {"ibm-933", "ibm-933_P110-1995", nullptr, nullptr, 933, 0, 1, 1, 4, 1}, // 5011
    {"ibm-935", "ibm-935_P110-1999", nullptr, nullptr, 935, 0, 1, 1, 4, 1}, // 5012
    {"ibm-937", "ibm-937_P110-1999", nullptr, nullptr, 937, 0, 1, 1, 4, 1}, // 5013
    {"ibm-939", "ibm-939_P120-1999", nullptr, nullptr, 939, 0, 1, 1, 4, 1}, // 5014
    {"ibm-1364", "ibm-1364_P110-2007", nullptr, nullptr, 1364, 0, 1, 1, 4, 1}, // 5015
    {"ibm-1371", "ibm-1371_P100-1999", nullptr, nullptr, 1371, 0, 1, 1, 4, 1}, // 5016
    {"ibm-1388", "ibm-1388_P103-2001", nullptr, nullptr, 1388, 0, 1, 1, 4, 1}, // 5017
    {"ibm-1390", "ibm-1390_P110-2003", nullptr, nullptr, 1390, 0, 1, 1, 4, 1}, // 5018
    {"ibm-1399", "ibm-1399_P110-2003", nullptr, nullptr, 1399, 0, 1, 1, 4, 1}, // 5019
    {"ibm-5123", "ibm-5123_P100-1999", nullptr, nullptr, 5123, 0, 1, 1, 1, 1}, // 5020
    {"ibm-8482", "ibm-8482_P100-1999", nullptr, nullptr, 8482, 0, 1, 1, 1, 1}, // 5021
    {"ibm-13218", "ibm-13218_P100-1996", nullptr, nullptr, 13218, 0, 1, 1, 2, 1}, // 5022
    {"ibm-16684", "ibm-16684_P110-2003", nullptr, nullptr, 16884, 1, 0, 2, 2, 2}, // 5023
    {"shiftjis", "ibm-943_P130-1999", nullptr, "Shift_JIS", 943, 1, 0, 1, 2, 1}, // 5024
    {"gb18030", nullptr, nullptr, "GB18030", 1392, 1, 0, 1, 4, 1}, // 5025
    {"GB2312", "ibm-5478_P100-1995", nullptr, "GB2312", 5478, 1, 0, 1, 2, 1}, // 5026
    {"GBK", "windows-936-2000", nullptr, "GBK", -1, 1, 0, 1, 2, 1}, // 5027
    {"HZ", nullptr, nullptr, "HZ-GB-2312", -1, 1, 0, 1, 4, 1}, // 5028
    {"ibm-1381", "ibm-1381_P110-1999", nullptr, nullptr, 1381, 1, 0, 1, 2, 1}, // 5029
    {"Big5", "windows-950-2000", nullptr, "Big5", -1, 1, 0, 1, 2, 1}, // 5030
    {"Big5-HKSCS", "ibm-1375_P100-2008", nullptr, "Big5-HKSCS", 1375, 1, 0, 1, 2, 1}, // 5031
    {"ibm-5471", "ibm-5471_P100-2006", nullptr, nullptr, 5471, 1, 0, 1, 2, 1}, // 5032
    {"ibm-950", "ibm-950_P110-1999", nullptr, nullptr, 950, 1, 0, 1, 2, 1}, // 5033
    {"ibm-949", "ibm-949_P110-1999", nullptr, nullptr, 949, 1, 0, 1, 2, 1}, // 5034
    {"IBM-949C", "ibm-949_P11A-1999", nullptr, nullptr, 949, 1, 0, 1, 2, 1}, // 5035
    {"ibm-971", "ibm-971_P100-1995", nullptr, nullptr, 971, 1, 0, 2, 2, 2}, // 5036
    {"x-IBM1363", "ibm-1363_P110-1997", nullptr, nullptr, 1363, 1, 0, 1, 2, 1}, // 5037
    {"ibm-1350", "ibm-1350_P110-1997", nullptr, nullptr, 1350, 1, 0, 1, 3, 1}, // 5038
    {"ibm-837", "ibm-837_P100-2011", nullptr, nullptr, 837, 1, 0, 2, 2, 1}, // 5039
    {"EUC-JP", "euc-jp-2007", nullptr, "EUC-JP", -1, 1, 0, 1, 3, 1}, // 5040
    {"EUC-TW", "euc-tw-2014", nullptr, nullptr, -1, 1, 0, 1, 4, 1}, // 5041
};

// Database block, 10000 to 10229: the database's own set names, opened by
// ICU from a converter data package that is installed beside the library.
// No aliases, no MIME name, no CCSID.
const ULibCharSetInfo g_databaseSets[] = {
    {"ar8ados710t", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10000
    {"ar8ados710", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10001
    {"ar8ados720t", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10002
    {"ar8ados720", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10003
    {"ar8aptec715t", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10004
    {"ar8aptec715", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10005
    {"ar8arabicmacs", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10006
    {"ar8arabicmact", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10007
    {"ar8arabicmac", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10008
    {"ar8asmo708plus", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10009
    {"ar8asmo8x", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10010
    {"ar8ebcdic420s", nullptr, nullptr, nullptr, -1, 0, 1, 1, 1, 1}, // 10011
    {"ar8ebcdicx", nullptr, nullptr, nullptr, -1, 0, 1, 1, 1, 1}, // 10012
    {"ar8hparabic8t", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10013
    {"ar8iso8859p6", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10014
    {"ar8mswin1256", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10015
    {"ar8mussad768t", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10016
    {"ar8mussad768", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10017
    {"ar8nafitha711t", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10018
    {"ar8nafitha711", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10019
    {"ar8nafitha721t", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10020
    {"ar8nafitha721", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10021
    {"ar8sakhr706", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10022
    {"ar8sakhr707t", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10023
    {"ar8sakhr707", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10024
    {"ar8xbasic", nullptr, nullptr, nullptr, -1, 0, 1, 1, 1, 1}, // 10025
    {"az8iso8859p9e", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10026
    {"bg8mswin", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10027
    {"bg8pc437s", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10028
    {"blt8cp921", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10029
    {"blt8ebcdic1112s", nullptr, nullptr, nullptr, -1, 0, 1, 1, 1, 1}, // 10030
    {"blt8ebcdic1112", nullptr, nullptr, nullptr, -1, 0, 1, 1, 1, 1}, // 10031
    {"blt8iso8859p13", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10032
    {"blt8mswin1257", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10033
    {"blt8pc775", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10034
    {"bn8bscii", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10035
    {"cdn8pc863", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10036
    {"ce8bs2000", nullptr, nullptr, nullptr, -1, 0, 1, 1, 1, 1}, // 10037
    {"cel8iso8859p14", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10038
    {"ch7dec", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10039
    {"cl8bs2000", nullptr, nullptr, nullptr, -1, 0, 1, 1, 1, 1}, // 10040
    {"cl8ebcdic1025c", nullptr, nullptr, nullptr, -1, 0, 1, 1, 1, 1}, // 10041
    {"cl8ebcdic1025r", nullptr, nullptr, nullptr, -1, 0, 1, 1, 1, 1}, // 10042
    {"cl8ebcdic1025s", nullptr, nullptr, nullptr, -1, 0, 1, 1, 1, 1}, // 10043
    {"cl8ebcdic1025", nullptr, nullptr, nullptr, -1, 0, 1, 1, 1, 1}, // 10044
    {"cl8ebcdic1025x", nullptr, nullptr, nullptr, -1, 0, 1, 1, 1, 1}, // 10045
    {"cl8ebcdic1158r", nullptr, nullptr, nullptr, -1, 0, 1, 1, 1, 1}, // 10046
    {"cl8ebcdic1158", nullptr, nullptr, nullptr, -1, 0, 1, 1, 1, 1}, // 10047
    {"cl8iso8859p5", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10048
    {"cl8isoir111", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10049
    {"cl8koi8r", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10050
    {"cl8koi8u", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10051
    {"cl8maccyrillics", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10052
    {"cl8maccyrillic", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10053
    {"cl8mswin1251", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10054
    {"d7dec", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10055
    {"d7siemens9780x", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10056
    {"d8bs2000", nullptr, nullptr, nullptr, -1, 0, 1, 1, 1, 1}, // 10057
    {"d8ebcdic1141", nullptr, nullptr, nullptr, -1, 0, 1, 1, 1, 1}, // 10058
    {"d8ebcdic273", nullptr, nullptr, nullptr, -1, 0, 1, 1, 1, 1}, // 10059
    {"dk7siemens9780x", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10060
    {"dk8bs2000", nullptr, nullptr, nullptr, -1, 0, 1, 1, 1, 1}, // 10061
    {"dk8ebcdic1142", nullptr, nullptr, nullptr, -1, 0, 1, 1, 1, 1}, // 10062
    {"dk8ebcdic277", nullptr, nullptr, nullptr, -1, 0, 1, 1, 1, 1}, // 10063
    {"e7dec", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10064
    {"e7siemens9780x", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10065
    {"e8bs2000", nullptr, nullptr, nullptr, -1, 0, 1, 1, 1, 1}, // 10066
    {"ee8bs2000", nullptr, nullptr, nullptr, -1, 0, 1, 1, 1, 1}, // 10067
    {"ee8ebcdic870c", nullptr, nullptr, nullptr, -1, 0, 1, 1, 1, 1}, // 10068
    {"ee8ebcdic870s", nullptr, nullptr, nullptr, -1, 0, 1, 1, 1, 1}, // 10069
    {"ee8ebcdic870", nullptr, nullptr, nullptr, -1, 0, 1, 1, 1, 1}, // 10070
    {"ee8iso8859p2", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10071
    {"ee8macces", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10072
    {"ee8macce", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10073
    {"ee8maccroatians", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10074
    {"ee8maccroatian", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10075
    {"ee8mswin1250", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10076
    {"ee8pc852", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10077
    {"eec8euroasci", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10078
    {"eec8europa3", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10079
    {"el8dec", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10080
    {"el8ebcdic423r", nullptr, nullptr, nullptr, -1, 0, 1, 1, 1, 1}, // 10081
    {"el8ebcdic875r", nullptr, nullptr, nullptr, -1, 0, 1, 1, 1, 1}, // 10082
    {"el8ebcdic875s", nullptr, nullptr, nullptr, -1, 0, 1, 1, 1, 1}, // 10083
    {"el8ebcdic875", nullptr, nullptr, nullptr, -1, 0, 1, 1, 1, 1}, // 10084
    {"el8gcos7", nullptr, nullptr, nullptr, -1, 0, 1, 1, 1, 1}, // 10085
    {"el8iso8859p7", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10086
    {"el8macgreeks", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10087
    {"el8macgreek", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10088
    {"el8mswin1253", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10089
    {"el8pc437s", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10090
    {"el8pc737", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10091
    {"el8pc851", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10092
    {"el8pc869", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10093
    {"et8mswin923", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10094
    {"f7dec", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10095
    {"f7siemens9780x", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10096
    {"f8bs2000", nullptr, nullptr, nullptr, -1, 0, 1, 1, 1, 1}, // 10097
    {"f8ebcdic1147", nullptr, nullptr, nullptr, -1, 0, 1, 1, 1, 1}, // 10098
    {"f8ebcdic297", nullptr, nullptr, nullptr, -1, 0, 1, 1, 1, 1}, // 10099
    {"hu8abmod", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10100
    {"hu8cwi2", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10101
    {"i7dec", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10102
    {"i7siemens9780x", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10103
    {"i8ebcdic1144", nullptr, nullptr, nullptr, -1, 0, 1, 1, 1, 1}, // 10104
    {"i8ebcdic280", nullptr, nullptr, nullptr, -1, 0, 1, 1, 1, 1}, // 10105
    {"in8iscii", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10106
    {"is8macicelandics", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10107
    {"is8macicelandic", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10108
    {"is8pc861", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10109
    {"iw7is960", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10110
    {"iw8ebcdic1086", nullptr, nullptr, nullptr, -1, 0, 1, 1, 1, 1}, // 10111
    {"iw8ebcdic424s", nullptr, nullptr, nullptr, -1, 0, 1, 1, 1, 1}, // 10112
    {"iw8ebcdic424", nullptr, nullptr, nullptr, -1, 0, 1, 1, 1, 1}, // 10113
    {"iw8iso8859p8", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10114
    {"iw8machebrews", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10115
    {"iw8machebrew", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10116
    {"iw8mswin1255", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10117
    {"iw8pc1507", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10118
    {"ja16dbcs", nullptr, nullptr, nullptr, -1, 0, 1, 1, 4, 1}, // 10119
    {"ja16ebcdic930", nullptr, nullptr, nullptr, -1, 0, 1, 1, 4, 1}, // 10120
    {"ja16euctilde", nullptr, nullptr, nullptr, -1, 1, 0, 1, 3, 1}, // 10121
    {"ja16euc", nullptr, nullptr, nullptr, -1, 1, 0, 1, 3, 1}, // 10122
    {"ja16eucyen", nullptr, nullptr, nullptr, -1, 1, 0, 1, 3, 1}, // 10123
    {"ja16macsjis", nullptr, nullptr, nullptr, -1, 1, 0, 1, 2, 1}, // 10124
    {"ja16sjistilde", nullptr, nullptr, nullptr, -1, 1, 0, 1, 2, 1}, // 10125
    {"ja16sjis", nullptr, nullptr, nullptr, -1, 1, 0, 1, 2, 1}, // 10126
    {"ja16sjisyen", nullptr, nullptr, nullptr, -1, 1, 0, 1, 2, 1}, // 10127
    {"ja16vms", nullptr, nullptr, nullptr, -1, 1, 0, 1, 2, 1}, // 10128
    {"ko16dbcs", nullptr, nullptr, nullptr, -1, 0, 1, 1, 4, 1}, // 10129
    {"ko16ksc5601", nullptr, nullptr, nullptr, -1, 1, 0, 1, 2, 1}, // 10130
    {"ko16ksccs", nullptr, nullptr, nullptr, -1, 1, 0, 1, 2, 1}, // 10131
    {"ko16mswin949", nullptr, nullptr, nullptr, -1, 1, 0, 1, 2, 1}, // 10132
    {"la8iso6937", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10133
    {"la8passport", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10134
    {"lt8mswin921", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10135
    {"lt8pc772", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10136
    {"lt8pc774", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10137
    {"lv8pc1117", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10138
    {"lv8pc8lr", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10139
    {"lv8rst104090", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10140
    {"n7siemens9780x", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10141
    {"n8pc865", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10142
    {"ndk7dec", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10143
    {"ne8iso8859p10", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10144
    {"nee8iso8859p4", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10145
    {"nl7dec", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10146
    {"ru8besta", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10147
    {"ru8pc855", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10148
    {"ru8pc866", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10149
    {"s7dec", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10150
    {"s7siemens9780x", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10151
    {"s8bs2000", nullptr, nullptr, nullptr, -1, 0, 1, 1, 1, 1}, // 10152
    {"s8ebcdic1143", nullptr, nullptr, nullptr, -1, 0, 1, 1, 1, 1}, // 10153
    {"s8ebcdic278", nullptr, nullptr, nullptr, -1, 0, 1, 1, 1, 1}, // 10154
    {"se8iso8859p3", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10155
    {"sf7ascii", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10156
    {"sf7dec", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10157
    {"th8macthais", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10158
    {"th8macthai", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10159
    {"th8tisascii", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10160
    {"th8tisebcdics", nullptr, nullptr, nullptr, -1, 0, 1, 1, 1, 1}, // 10161
    {"th8tisebcdic", nullptr, nullptr, nullptr, -1, 0, 1, 1, 1, 1}, // 10162
    {"timeweft8", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10163
    {"tr7dec", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10164
    {"tr8dec", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10165
    {"tr8ebcdic1026s", nullptr, nullptr, nullptr, -1, 0, 1, 1, 1, 1}, // 10166
    {"tr8ebcdic1026", nullptr, nullptr, nullptr, -1, 0, 1, 1, 1, 1}, // 10167
    {"tr8macturkishs", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10168
    {"tr8macturkish", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10169
    {"tr8mswin1254", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10170
    {"tr8pc857", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10171
    {"us7ascii", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10172
    {"us8bs2000", nullptr, nullptr, nullptr, -1, 0, 1, 1, 1, 1}, // 10173
    {"us8icl", nullptr, nullptr, nullptr, -1, 0, 1, 1, 1, 1}, // 10174
    {"us8pc437", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10175
    {"vn8mswin1258", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10176
    {"vn8vn3", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10177
    {"we8bs2000e", nullptr, nullptr, nullptr, -1, 0, 1, 1, 1, 1}, // 10178
    {"we8bs2000l5", nullptr, nullptr, nullptr, -1, 0, 1, 1, 1, 1}, // 10179
    {"we8bs2000", nullptr, nullptr, nullptr, -1, 0, 1, 1, 1, 1}, // 10180
    {"we8dec", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10181
    {"we8dg", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10182
    {"we8ebcdic1047e", nullptr, nullptr, nullptr, -1, 0, 1, 1, 1, 1}, // 10183
    {"we8ebcdic1047", nullptr, nullptr, nullptr, -1, 0, 1, 1, 1, 1}, // 10184
    {"we8ebcdic1140c", nullptr, nullptr, nullptr, -1, 0, 1, 1, 1, 1}, // 10185
    {"we8ebcdic1140", nullptr, nullptr, nullptr, -1, 0, 1, 1, 1, 1}, // 10186
    {"we8ebcdic1145", nullptr, nullptr, nullptr, -1, 0, 1, 1, 1, 1}, // 10187
    {"we8ebcdic1146", nullptr, nullptr, nullptr, -1, 0, 1, 1, 1, 1}, // 10188
    {"we8ebcdic1148c", nullptr, nullptr, nullptr, -1, 0, 1, 1, 1, 1}, // 10189
    {"we8ebcdic1148", nullptr, nullptr, nullptr, -1, 0, 1, 1, 1, 1}, // 10190
    {"we8ebcdic284", nullptr, nullptr, nullptr, -1, 0, 1, 1, 1, 1}, // 10191
    {"we8ebcdic285", nullptr, nullptr, nullptr, -1, 0, 1, 1, 1, 1}, // 10192
    {"we8ebcdic37c", nullptr, nullptr, nullptr, -1, 0, 1, 1, 1, 1}, // 10193
    {"we8ebcdic37", nullptr, nullptr, nullptr, -1, 0, 1, 1, 1, 1}, // 10194
    {"we8ebcdic500c", nullptr, nullptr, nullptr, -1, 0, 1, 1, 1, 1}, // 10195
    {"we8ebcdic500", nullptr, nullptr, nullptr, -1, 0, 1, 1, 1, 1}, // 10196
    {"we8ebcdic871", nullptr, nullptr, nullptr, -1, 0, 1, 1, 1, 1}, // 10197
    {"we8ebcdic924", nullptr, nullptr, nullptr, -1, 0, 1, 1, 1, 1}, // 10198
    {"we8gcos7", nullptr, nullptr, nullptr, -1, 0, 1, 1, 1, 1}, // 10199
    {"we8hp", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10200
    {"we8icl", nullptr, nullptr, nullptr, -1, 0, 1, 1, 1, 1}, // 10201
    {"we8iso8859p15", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10202
    {"we8iso8859p1", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10203
    {"we8iso8859p9", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10204
    {"we8isoicluk", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10205
    {"we8macroman8s", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10206
    {"we8macroman8", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10207
    {"we8mswin1252", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10208
    {"we8ncr4970", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10209
    {"we8nextstep", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10210
    {"we8pc850", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10211
    {"we8pc858", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10212
    {"we8pc860", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10213
    {"we8roman8", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10214
    {"yug7ascii", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10215
    {"zhs16cgb231280", nullptr, nullptr, nullptr, -1, 1, 0, 1, 2, 1}, // 10216
    {"zhs16dbcs", nullptr, nullptr, nullptr, -1, 0, 1, 1, 4, 1}, // 10217
    {"zhs16gbk", nullptr, nullptr, nullptr, -1, 1, 0, 1, 2, 1}, // 10218
    {"zhs16maccgb231280", nullptr, nullptr, nullptr, -1, 1, 0, 1, 2, 1}, // 10219
    {"zht16big5", nullptr, nullptr, nullptr, -1, 1, 0, 1, 2, 1}, // 10220
    {"zht16ccdc", nullptr, nullptr, nullptr, -1, 1, 0, 1, 2, 1}, // 10221
    {"zht16dbcs", nullptr, nullptr, nullptr, -1, 0, 1, 1, 4, 1}, // 10222
    {"zht16dbt", nullptr, nullptr, nullptr, -1, 1, 0, 1, 1, 1}, // 10223
    {"zht16hkscs31", nullptr, nullptr, nullptr, -1, 1, 0, 1, 2, 1}, // 10224
    {"zht16hkscs", nullptr, nullptr, nullptr, -1, 1, 0, 1, 2, 1}, // 10225
    {"zht16mswin950", nullptr, nullptr, nullptr, -1, 1, 0, 1, 2, 1}, // 10226
    {"zht32euc", nullptr, nullptr, nullptr, -1, 1, 0, 1, 4, 1}, // 10227
    {"zht32sops", nullptr, nullptr, nullptr, -1, 1, 0, 1, 2, 1}, // 10228
    {"zht32tris", nullptr, nullptr, nullptr, -1, 1, 0, 1, 4, 1}, // 10229
};

// clang-format on

static_assert(std::size(g_unicodeSets) == 12, "Unicode block is 0 to 11");
static_assert(std::size(g_singleByteSets) == 125, "single-byte block is 1000 to 1124");
static_assert(std::size(g_multiByteSets) == 42, "multi-byte block is 5000 to 5041");
static_assert(std::size(g_databaseSets) == 230, "database block is 10000 to 10229");

enum BlockIndex { kUnicode, kSingleByte, kMultiByte, kDatabase };

const ULibCharSetBlock g_blocks[CharSetTable::numBlocks] = {
    {0, std::int32_t(std::size(g_unicodeSets)), g_unicodeSets},
    {1000, std::int32_t(std::size(g_singleByteSets)), g_singleByteSets},
    {5000, std::int32_t(std::size(g_multiByteSets)), g_multiByteSets},
    {10000, std::int32_t(std::size(g_databaseSets)), g_databaseSets},
};

// Kept on purpose: names are searched with the database block second, CCSIDs
// in number order. Which row a name or CCSID shared by two rows gives depends
// on these orders, and stored set numbers depend on that.
const BlockIndex g_nameOrder[] = {kUnicode, kDatabase, kSingleByte, kMultiByte};
const BlockIndex g_ccsidOrder[] = {kUnicode, kSingleByte, kMultiByte, kDatabase};

// CCSIDs that name a set of the table under another number. They are tried
// only after the table, and are not cached.
struct CCSIDAlias {
    std::int32_t nCCSID;
    std::int32_t eCharSet;
};
const CCSIDAlias g_ccsidAliases[] = {
    {13488, 2},   {1250, 1001}, {1251, 1002}, {1252, 1003}, {1253, 1004},
    {1254, 1005}, {1255, 1006}, {1256, 1007}, {1257, 1008}, {1258, 1009},
    {932, 5000},  {5026, 5010}, {5035, 5014},
};

std::int32_t stripEscape(ULibCharSet cs) {
    return std::int32_t(std::uint32_t(cs) & 0x7fffffffu);
}

// ASCII-only folding: set names are ASCII, and a lookup must not change with
// the process locale (strcasecmp folds by LC_CTYPE).
bool equalsIgnoreCase(const char* a, const char* b) {
    for (;; ++a, ++b) {
        unsigned char ca = static_cast<unsigned char>(*a);
        unsigned char cb = static_cast<unsigned char>(*b);
        if (ca >= 'A' && ca <= 'Z')
            ca = static_cast<unsigned char>(ca + ('a' - 'A'));
        if (cb >= 'A' && cb <= 'Z')
            cb = static_cast<unsigned char>(cb + ('a' - 'A'));
        if (ca != cb)
            return false;
        if (ca == 0)
            return true;
    }
}

bool nameMatches(const char* candidate, const char* name) {
    return candidate != nullptr && equalsIgnoreCase(candidate, name);
}

// The per-thread cache of fromCCSID: table hits only.
struct CCSIDCache {
    std::map<std::int32_t, ULibCharSet> m_oMap;
};

// The process default, behind a pointer made once and never freed so that it
// outlives every static destructor that may still ask for it.
std::atomic<std::int32_t>& processDefault() {
    static std::atomic<std::int32_t>* const value = new std::atomic<std::int32_t>(ULIB_CS_INVALID);
    return *value;
}

// The name that a converter opened for ULIB_CS_DEFAULT reports: ICU's default
// converter, or "ISO-8859-1" when ICU cannot open it and the thread's
// last-resort converter stands in.
const char* processDefaultConverterName() {
    return ULIB_getDefaultCharSetName();
}

// The row for the flags, sizes and CCSID: ULIB_CS_DEFAULT answers for the set
// it stands for.
const ULibCharSetInfo* resolvedInfo(ULibCharSet cs) {
    if (stripEscape(cs) == ULIB_CS_DEFAULT)
        return CharSetTable::getInfo(CharSetTable::defaultCharSet());
    return CharSetTable::getInfo(cs);
}

} // namespace

const ULibCharSetBlock& CharSetTable::block(int index) {
    return g_blocks[index];
}

const ULibCharSetInfo* CharSetTable::getInfo(ULibCharSet cs) {
    const std::int32_t n = stripEscape(cs);
    for (const ULibCharSetBlock& b : g_blocks) {
        if (n >= b.nFirst && n - b.nFirst < b.nRows)
            return &b.pRows[n - b.nFirst];
    }
    return nullptr;
}

const char* CharSetTable::toConverterName(ULibCharSet cs) {
    const ULibCharSetInfo* info = getInfo(cs);
    return info ? info->pszConverterName : nullptr;
}

const char* CharSetTable::toMIMEName(ULibCharSet cs) {
    const ULibCharSetInfo* info = getInfo(cs);
    return info ? info->pszMIMEName : nullptr;
}

std::int32_t CharSetTable::toCCSID(ULibCharSet cs) {
    const ULibCharSetInfo* info = resolvedInfo(cs);
    return info ? info->nCCSID : -1;
}

bool CharSetTable::isUSASCIICompatible(ULibCharSet cs) {
    const ULibCharSetInfo* info = resolvedInfo(cs);
    return info && info->bUSASCIICompatible;
}

bool CharSetTable::isEBCDIC(ULibCharSet cs) {
    const ULibCharSetInfo* info = resolvedInfo(cs);
    return info && info->bEBCDIC;
}

int CharSetTable::getMinCharSize(ULibCharSet cs) {
    const ULibCharSetInfo* info = resolvedInfo(cs);
    return info ? info->nMinCharSize : 1;
}

int CharSetTable::getMaxCharSize(ULibCharSet cs) {
    const ULibCharSetInfo* info = resolvedInfo(cs);
    return info ? info->nMaxCharSize : 1;
}

int CharSetTable::getNullCharSize(ULibCharSet cs) {
    const ULibCharSetInfo* info = resolvedInfo(cs);
    return info ? info->nNullCharSize : 1;
}

ULibCharSet CharSetTable::toCharSet(const char* name) {
    if (name == nullptr)
        return ULIB_CS_INVALID;
    for (BlockIndex bi : g_nameOrder) {
        const ULibCharSetBlock& b = g_blocks[bi];
        for (std::int32_t i = 0; i < b.nRows; ++i) {
            const ULibCharSetInfo& row = b.pRows[i];
            if (nameMatches(row.pszConverterName, name) || nameMatches(row.pszAlias1, name) ||
                nameMatches(row.pszAlias2, name))
                return ULibCharSet(b.nFirst + i);
        }
    }
    return ULIB_CS_INVALID;
}

ULibCharSet CharSetTable::fromMIMEName(const char* name) {
    if (name == nullptr)
        return ULIB_CS_INVALID;
    for (BlockIndex bi : g_nameOrder) {
        const ULibCharSetBlock& b = g_blocks[bi];
        for (std::int32_t i = 0; i < b.nRows; ++i) {
            if (nameMatches(b.pRows[i].pszMIMEName, name))
                return ULibCharSet(b.nFirst + i);
        }
    }
    return ULIB_CS_INVALID;
}

ULibCharSet CharSetTable::fromCCSID(std::int32_t ccsid) {
    if (ccsid <= 0)
        return ULIB_CS_INVALID;
    std::map<std::int32_t, ULibCharSet>& cache =
        ThreadLocal::ThreadLocalWrapper<CCSIDCache>::get().m_oMap;
    auto hit = cache.find(ccsid);
    if (hit != cache.end())
        return hit->second;
    for (BlockIndex bi : g_ccsidOrder) {
        const ULibCharSetBlock& b = g_blocks[bi];
        for (std::int32_t i = 0; i < b.nRows; ++i) {
            if (b.pRows[i].nCCSID == ccsid) {
                const ULibCharSet cs = ULibCharSet(b.nFirst + i);
                cache.emplace(ccsid, cs);
                return cs;
            }
        }
    }
    for (const CCSIDAlias& a : g_ccsidAliases) {
        if (a.nCCSID == ccsid)
            return ULibCharSet(a.eCharSet);
    }
    return ULIB_CS_INVALID;
}

ULibCharSet CharSetTable::defaultCharSet() {
    std::atomic<std::int32_t>& value = processDefault();
    std::int32_t cs = value.load(std::memory_order_relaxed);
    if (cs == ULIB_CS_INVALID) {
        // Two threads may get here at once; both store the same answer.
        cs = toCharSet(processDefaultConverterName());
        value.store(cs, std::memory_order_relaxed);
    }
    return ULibCharSet(cs);
}

void CharSetTable::storeDefaultCharSet(ULibCharSet cs) {
    processDefault().store(stripEscape(cs), std::memory_order_relaxed);
}

} // namespace qzunicode
} // namespace qzlib
} // namespace qzs

using qzs::qzlib::qzunicode::CharSetTable;
using qzs::qzlib::qzunicode::ULibCharSet;

extern "C" {

ULibCharSet ULIB_toCharSet(const char* name) {
    return CharSetTable::toCharSet(name);
}

ULibCharSet ULIB_fromMIMEName(const char* name) {
    return CharSetTable::fromMIMEName(name);
}

ULibCharSet ULIB_fromCCSID(std::int32_t ccsid) {
    return CharSetTable::fromCCSID(ccsid);
}

const char* ULIB_toConverterName(ULibCharSet cs) {
    return CharSetTable::toConverterName(cs);
}

const char* ULIB_toMIMEName(ULibCharSet cs) {
    return CharSetTable::toMIMEName(cs);
}

std::int32_t ULIB_toCCSID(ULibCharSet cs) {
    return CharSetTable::toCCSID(cs);
}

bool ULIB_isUSASCIICompatible(ULibCharSet cs) {
    return CharSetTable::isUSASCIICompatible(cs);
}

bool ULIB_isEBCDIC(ULibCharSet cs) {
    return CharSetTable::isEBCDIC(cs);
}

int ULIB_getMinCharSize(ULibCharSet cs) {
    return CharSetTable::getMinCharSize(cs);
}

int ULIB_getMaxCharSize(ULibCharSet cs) {
    return CharSetTable::getMaxCharSize(cs);
}

int ULIB_getNullCharSize(ULibCharSet cs) {
    return CharSetTable::getNullCharSize(cs);
}

ULibCharSet ULIB_getDefaultCharSet() {
    return CharSetTable::defaultCharSet();
}

} // extern "C"
