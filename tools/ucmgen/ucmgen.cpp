//===- tools/ucmgen/ucmgen.cpp - Mapping files for the database sets ------===//
//
// Writes one ICU mapping file (.ucm) for every database character set that
// has a counterpart among ICU's own converters. The mapping is read from the
// counterpart itself, byte sequence by byte sequence and code point by code
// point, so that the file carries its whole repertoire: round trips (|0),
// fallbacks from Unicode (|1), characters written as the one-byte
// substitute (|2) and mappings to Unicode only (|3). For
// multi-byte sets the state table that makeconv needs is rebuilt from the
// byte structure the counterpart accepts.
//
// Usage: ucmgen <name table> <output directory>
//        ucmgen --digest <package> <header>
//
// The name table has one set a line: the database name, the counterpart's
// ICU name or "-" when there is none, and a note. '#' starts a comment. The
// program writes <name>.ucm for each set with a counterpart, and
// "ucmfiles.txt", the list of the files written, one a line. It fails (exit
// status 1, and a line on standard error) when the table cannot be read, a
// counterpart does not open, or a file cannot be written.
//
// The second form writes a header with the size and CRC-32 of the built
// package, by which the library knows its own package from a damaged or
// foreign file before ICU reads it.
//
//===----------------------------------------------------------------------===//
#include <unicode/ucnv.h>
#include <unicode/uset.h>
#include <unicode/utf16.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace {

struct Row {
    std::string name;
    std::string counterpart;
};

struct CloseConverter {
    void operator()(UConverter* c) const { ucnv_close(c); }
};
using ConverterPtr = std::unique_ptr<UConverter, CloseConverter>;

struct Mapping {
    std::string bytes;
    std::u16string text;
    int flag;
};

// What a byte sequence is to the counterpart.
enum class Kind { Illegal, Final, Lead };

// One state of a multi-byte state table: per byte, -1 illegal, -2 a final
// byte (the sequence is complete, assigned or not), or the index of the state
// that reads the next byte.
using State = std::vector<int>;

class Reader {
public:
    explicit Reader(UConverter* c) : m_cnv(c) {
        m_stateful = ucnv_getType(c) == UCNV_EBCDIC_STATEFUL;
        m_maxBytes = m_stateful ? 2 : ucnv_getMaxCharSize(c);
    }

    // The counterpart's reading of one whole sequence.
    Kind toUnicode(const std::string& seq, std::u16string& out) {
        std::string in = seq;
        if (m_stateful && seq.size() == 2)
            in.insert(in.begin(), '\x0E');
        ucnv_resetToUnicode(m_cnv);
        UChar buf[32];
        UChar* target = buf;
        const char* source = in.data();
        UErrorCode status = U_ZERO_ERROR;
        ucnv_toUnicode(m_cnv, &target, buf + 32, &source, in.data() + in.size(), nullptr, true,
                       &status);
        if (status == U_TRUNCATED_CHAR_FOUND)
            return static_cast<int>(seq.size()) < m_maxBytes ? Kind::Lead : Kind::Illegal;
        if (status == U_INVALID_CHAR_FOUND) {
            out.clear();
            return Kind::Final;
        }
        if (U_FAILURE(status) || source != in.data() + in.size() || target == buf)
            return Kind::Illegal;
        out.assign(reinterpret_cast<const char16_t*>(buf), target - buf);
        return Kind::Final;
    }

    // The counterpart's bytes for a text, with or without fallbacks; empty
    // when it has none. Shift bytes of a stateful set are taken off.
    std::string fromUnicode(const std::u16string& text, bool fallback) {
        ucnv_resetFromUnicode(m_cnv);
        ucnv_setFallback(m_cnv, fallback);
        char buf[32];
        char* target = buf;
        const UChar* source = reinterpret_cast<const UChar*>(text.data());
        UErrorCode status = U_ZERO_ERROR;
        ucnv_fromUnicode(m_cnv, &target, buf + 32, &source, source + text.size(), nullptr, true,
                         &status);
        if (U_FAILURE(status))
            return std::string();
        std::string out(buf, target - buf);
        if (m_stateful && out.size() >= 3 && out.front() == '\x0E' && out.back() == '\x0F')
            out = out.substr(1, out.size() - 2);
        return out;
    }

    // Walks every byte sequence the counterpart accepts, records its mappings
    // and builds the state that reads the bytes after `prefix`. Equal states
    // are shared, so the table has as many states as the structure needs.
    int walk(const std::string& prefix, std::vector<Mapping>& mappings) {
        State state(256, -1);
        for (int b = 0; b < 256; ++b) {
            std::string seq = prefix + static_cast<char>(b);
            if (m_stateful && prefix.empty() && (b == 0x0E || b == 0x0F))
                continue;
            std::u16string text;
            Kind kind = toUnicode(seq, text);
            if (kind == Kind::Lead) {
                state[b] = walk(seq, mappings);
            } else if (kind == Kind::Final) {
                state[b] = -2;
                if (text.size() == 2 && U16_IS_LEAD(text[0]))
                    m_pairs = true;
                if (!text.empty())
                    mappings.push_back({seq, text, fromUnicode(text, false) == seq ? 0 : 3});
            }
        }
        if (m_stateful && prefix.empty())
            walkDoubleBytes(mappings);
        auto known = m_index.find(state);
        if (known != m_index.end())
            return known->second;
        m_states.push_back(state);
        return m_index[state] = static_cast<int>(m_states.size() - 1);
    }

    // A stateful set reads its double bytes between shift bytes, which the
    // mapping file leaves out; the state table is makeconv's own.
    void walkDoubleBytes(std::vector<Mapping>& mappings) {
        for (int lead = 0x40; lead < 0xFF; ++lead) {
            for (int trail = 0x40; trail < 0xFF; ++trail) {
                std::string seq{static_cast<char>(lead), static_cast<char>(trail)};
                std::u16string text;
                if (toUnicode(seq, text) == Kind::Final && !text.empty())
                    mappings.push_back({seq, text, fromUnicode(text, false) == seq ? 0 : 3});
            }
        }
    }

    const std::vector<State>& states() const { return m_states; }
    /// Whether some sequence reads as a code point past the BMP.
    bool pairs() const { return m_pairs; }
    bool stateful() const { return m_stateful; }

private:
    UConverter* m_cnv;
    bool m_stateful;
    int m_maxBytes;
    std::vector<State> m_states;
    std::map<State, int> m_index;
    bool m_pairs = false;
};

std::string hexBytes(const std::string& bytes) {
    std::string out;
    char buf[8];
    for (unsigned char c : bytes) {
        std::snprintf(buf, sizeof buf, "\\x%02X", c);
        out += buf;
    }
    return out;
}

std::string codePoints(const std::u16string& text) {
    std::string out;
    char buf[16];
    for (size_t i = 0; i < text.size();) {
        UChar32 c;
        U16_NEXT(text.data(), i, text.size(), c);
        std::snprintf(buf, sizeof buf, "<U%04X>", static_cast<unsigned>(c));
        out += buf;
    }
    return out;
}

// One state in the notation of the mapping files: runs of equal entries.
// With `pairs`, every final byte may give a surrogate pair (".p"): one
// final kind keeps the table as small as the set's structure, where a kind
// per row would multiply the states of a set such as EUC-TW past what
// makeconv takes.
std::string stateLine(const State& s, const std::vector<int>& order, bool pairs) {
    std::string out;
    char buf[32];
    for (int b = 0; b < 256;) {
        int e = b;
        while (e + 1 < 256 && s[e + 1] == s[b])
            ++e;
        if (s[b] != -1) {
            if (e == b)
                std::snprintf(buf, sizeof buf, "%x", b);
            else
                std::snprintf(buf, sizeof buf, "%x-%x", b, e);
            if (!out.empty())
                out += ", ";
            out += buf;
            if (s[b] >= 0)
                out += ":" + std::to_string(order[s[b]]);
            else if (pairs)
                out += ".p";
        }
        b = e + 1;
    }
    return out;
}

const char* className(UConverterType type) {
    switch (type) {
    case UCNV_MBCS:
    case UCNV_DBCS:
        return "MBCS";
    case UCNV_EBCDIC_STATEFUL:
        return "EBCDIC_STATEFUL";
    default:
        // ICU's algorithmic single-byte converters (US-ASCII, ISO-8859-1)
        // become plain tables.
        return "SBCS";
    }
}

// The characters of the BMP outside `set` that the counterpart writes as a
// single byte other than its substitution: that byte is its <subchar1>, and
// each such character a |2 mapping. One conversion of them all tells
// whether there is any, before they are tried one by one.
std::string readSubchar1(UConverter* c, const USet* set, const std::string& substitution,
                         std::vector<Mapping>& mappings) {
    std::u16string lacking;
    for (UChar32 cp = 0; cp <= 0xFFFF; ++cp)
        if (!U16_IS_SURROGATE(cp) && !uset_contains(set, cp))
            lacking.push_back(static_cast<char16_t>(cp));
    UErrorCode status = U_ZERO_ERROR;
    ucnv_setFromUCallBack(c, UCNV_FROM_U_CALLBACK_SUBSTITUTE, nullptr, nullptr, nullptr, &status);
    ucnv_setFallback(c, true);
    std::string all(lacking.size() * substitution.size() + 16, '\0');
    all.resize(ucnv_fromUChars(c, &all[0], static_cast<int>(all.size()),
                               reinterpret_cast<const UChar*>(lacking.data()),
                               static_cast<int>(lacking.size()), &status));
    std::string subchar1;
    std::string plain;
    for (size_t i = 0; i < lacking.size(); ++i)
        plain += substitution;
    if (U_SUCCESS(status) && all != plain) {
        for (char16_t unit : lacking) {
            char out[8];
            status = U_ZERO_ERROR;
            int n = ucnv_fromUChars(c, out, sizeof out, reinterpret_cast<const UChar*>(&unit), 1,
                                    &status);
            std::string bytes(out, U_SUCCESS(status) ? n : 0);
            if (bytes.size() == 1 && bytes != substitution) {
                subchar1 = bytes;
                mappings.push_back({bytes, std::u16string(1, unit), 2});
            }
        }
    }
    status = U_ZERO_ERROR;
    ucnv_setFromUCallBack(c, UCNV_FROM_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &status);
    return subchar1;
}

bool ebcdicFamily(Reader& reader) {
    std::u16string upperA;
    return reader.toUnicode("\xC1", upperA) == Kind::Final && upperA == u"A";
}

// Whether the counterpart substitutes U+001A for a single byte it cannot
// read (`root` is its first state; for a stateful set, its single bytes).
bool readsBadByteAsSub(UConverter* c, const State& root) {
    bool sub = false;
    for (int b = 0; b < 256 && !sub; ++b) {
        if (root[b] != -1 && root[b] != -2)
            continue;
        const char byte = static_cast<char>(b);
        UChar out[4];
        UErrorCode status = U_ZERO_ERROR;
        ucnv_setToUCallBack(c, UCNV_TO_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &status);
        ucnv_toUChars(c, out, 4, &byte, 1, &status);
        if (U_SUCCESS(status))
            continue; // a character
        status = U_ZERO_ERROR;
        ucnv_setToUCallBack(c, UCNV_TO_U_CALLBACK_SUBSTITUTE, nullptr, nullptr, nullptr, &status);
        int n = ucnv_toUChars(c, out, 4, &byte, 1, &status);
        sub = U_SUCCESS(status) && n == 1 && out[0] == 0x1A;
    }
    UErrorCode status = U_ZERO_ERROR;
    ucnv_setToUCallBack(c, UCNV_TO_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &status);
    return sub;
}

bool writeMapping(const Row& row, std::ostream& out, std::string& problem) {
    UErrorCode status = U_ZERO_ERROR;
    ConverterPtr cnv(ucnv_open(row.counterpart.c_str(), &status));
    if (U_FAILURE(status) || !cnv) {
        problem = "counterpart " + row.counterpart + " does not open";
        return false;
    }
    UConverter* c = cnv.get();
    status = U_ZERO_ERROR;
    ucnv_setToUCallBack(c, UCNV_TO_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &status);
    ucnv_setFromUCallBack(c, UCNV_FROM_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &status);
    const UConverterType type = ucnv_getType(c);
    const char* cls = className(type);
    const bool single = std::string(cls) == "SBCS";

    Reader reader(c);
    std::vector<Mapping> mappings;
    reader.walk(std::string(), mappings);

    // Fallbacks from Unicode: code points (and strings) the counterpart
    // writes, but that its bytes do not read back to.
    std::map<std::string, std::u16string> readBack;
    for (const Mapping& m : mappings)
        readBack[m.bytes] = m.text;
    USet* set = uset_openEmpty();
    status = U_ZERO_ERROR;
    ucnv_getUnicodeSet(c, set, UCNV_ROUNDTRIP_AND_FALLBACK_SET, &status);
    const int items = uset_getItemCount(set);
    for (int i = 0; i < items && U_SUCCESS(status); ++i) {
        UChar32 start, end;
        UChar str[32];
        int len = uset_getItem(set, i, &start, &end, str, 32, &status);
        std::vector<std::u16string> texts;
        if (len > 0) {
            texts.emplace_back(reinterpret_cast<const char16_t*>(str), len);
        } else {
            for (UChar32 cp = start; cp <= end; ++cp) {
                char16_t u[2];
                int n = 0;
                U16_APPEND_UNSAFE(u, n, cp);
                texts.emplace_back(u, n);
            }
        }
        for (const std::u16string& text : texts) {
            std::string bytes = reader.fromUnicode(text, true);
            if (bytes.empty())
                continue;
            auto back = readBack.find(bytes);
            if (back != readBack.end() && back->second == text &&
                reader.fromUnicode(text, false) == bytes)
                continue;
            mappings.push_back({bytes, text, 1});
        }
    }

    char subst[8];
    int8_t substLen = sizeof subst;
    status = U_ZERO_ERROR;
    ucnv_getSubstChars(c, subst, &substLen, &status);
    if (U_FAILURE(status) || substLen <= 0) {
        problem = "counterpart " + row.counterpart + " has no substitution character";
        return false;
    }
    std::string substitution(subst, substLen);
    if (reader.stateful() && substitution.size() == 4)
        substitution = substitution.substr(1, 2);

    // A multi-byte set may write a one-byte substitute (<subchar1>) for some
    // characters it lacks (|2), where other characters get the full one.
    std::string subchar1;
    if (!single) {
        subchar1 = readSubchar1(c, set, substitution, mappings);
        // ICU reads a bad single byte as U+001A rather than U+FFFD when the
        // set has a one-byte substitute, whether or not any character is
        // written as it: keep that, with the usual byte of the family.
        if (subchar1.empty() && readsBadByteAsSub(c, reader.states().back()))
            subchar1 = ebcdicFamily(reader) ? "\x3F" : "\x1A";
    }
    uset_close(set);

    int minBytes = 8, maxBytes = 0;
    for (const Mapping& m : mappings) {
        minBytes = std::min<int>(minBytes, m.bytes.size());
        maxBytes = std::max<int>(maxBytes, m.bytes.size());
    }
    if (mappings.empty()) {
        problem = "counterpart " + row.counterpart + " maps nothing";
        return false;
    }
    const bool ebcdic = ebcdicFamily(reader);

    out << "# The mapping of " << row.name << ", read from ICU's " << ucnv_getName(c, &status)
        << " by ucmgen.\n";
    out << "<code_set_name>               \"" << row.name << "\"\n";
    out << "<mb_cur_max>                  " << (reader.stateful() ? 2 : maxBytes) << "\n";
    out << "<mb_cur_min>                  " << (reader.stateful() ? 1 : minBytes) << "\n";
    out << "<uconv_class>                 \"" << cls << "\"\n";
    out << "<subchar>                     " << hexBytes(substitution) << "\n";
    if (!subchar1.empty())
        out << "<subchar1>                    " << hexBytes(subchar1) << "\n";
    if (ebcdic)
        out << "<icu:charsetFamily>           \"EBCDIC\"\n";
    if (!single && !reader.stateful()) {
        // The root state (the last one built) comes first.
        const std::vector<State>& states = reader.states();
        std::vector<int> order(states.size());
        const int root = static_cast<int>(states.size()) - 1;
        for (int i = 0; i < root; ++i)
            order[i] = i + 1;
        order[root] = 0;
        out << "<icu:state>                   " << stateLine(states[root], order, reader.pairs())
            << "\n";
        for (int i = 0; i < root; ++i)
            out << "<icu:state>                   " << stateLine(states[i], order, reader.pairs())
                << "\n";
    }
    out << "\nCHARMAP\n";
    std::multimap<std::u16string, const Mapping*> sorted;
    for (const Mapping& m : mappings)
        sorted.emplace(m.text, &m);
    for (const auto& entry : sorted)
        out << codePoints(entry.second->text) << " " << hexBytes(entry.second->bytes) << " |"
            << entry.second->flag << "\n";
    out << "END CHARMAP\n";
    return true;
}

bool readTable(const char* path, std::vector<Row>& rows) {
    std::ifstream in(path);
    if (!in)
        return false;
    std::string line;
    while (std::getline(in, line)) {
        std::string::size_type hash = line.find('#');
        if (hash != std::string::npos)
            line.erase(hash);
        std::istringstream fields(line);
        Row row;
        if (!(fields >> row.name))
            continue;
        if (!(fields >> row.counterpart))
            return false;
        if (row.counterpart != "-")
            rows.push_back(row);
    }
    return true;
}

// The standard CRC-32 (the reflected polynomial 0xEDB88320).
unsigned long crc32Of(const std::string& data) {
    unsigned long table[256];
    for (unsigned long n = 0; n < 256; ++n) {
        unsigned long c = n;
        for (int k = 0; k < 8; ++k)
            c = (c & 1) ? 0xEDB88320UL ^ (c >> 1) : c >> 1;
        table[n] = c;
    }
    unsigned long crc = 0xFFFFFFFFUL;
    for (unsigned char byte : data)
        crc = table[(crc ^ byte) & 0xFF] ^ (crc >> 8);
    return crc ^ 0xFFFFFFFFUL;
}

int writeDigest(const char* package, const char* header) {
    std::ifstream in(package, std::ios::binary);
    std::string data((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (!in || data.empty()) {
        std::cerr << "ucmgen: cannot read the package " << package << "\n";
        return 1;
    }
    char text[256];
    std::snprintf(text, sizeof text,
                  "// Written by ucmgen from the built converter package.\n"
                  "#define QZ_CHARSETS_PACKAGE_SIZE %zuu\n"
                  "#define QZ_CHARSETS_PACKAGE_CRC32 0x%08lXu\n",
                  data.size(), crc32Of(data));
    // Unchanged text, untouched file: the library is not rebuilt for nothing.
    std::ifstream old(header, std::ios::binary);
    std::string before((std::istreambuf_iterator<char>(old)), std::istreambuf_iterator<char>());
    if (before == text)
        return 0;
    std::ofstream out(header, std::ios::binary | std::ios::trunc);
    out << text;
    out.close();
    if (!out) {
        std::cerr << "ucmgen: cannot write " << header << "\n";
        return 1;
    }
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    if (argc == 4 && std::string(argv[1]) == "--digest")
        return writeDigest(argv[2], argv[3]);
    if (argc != 3) {
        std::cerr << "usage: ucmgen <name table> <output directory>\n";
        return 1;
    }
    std::vector<Row> rows;
    if (!readTable(argv[1], rows)) {
        std::cerr << "ucmgen: cannot read the name table " << argv[1] << "\n";
        return 1;
    }
    const std::string dir = argv[2];
    std::ostringstream list;
    for (const Row& row : rows) {
        const std::string file = dir + "/" + row.name + ".ucm";
        std::ostringstream text;
        std::string problem;
        if (!writeMapping(row, text, problem)) {
            std::cerr << "ucmgen: " << row.name << ": " << problem << "\n";
            return 1;
        }
        std::ofstream out(file, std::ios::binary | std::ios::trunc);
        out << text.str();
        out.close();
        if (!out) {
            std::cerr << "ucmgen: cannot write " << file << "\n";
            return 1;
        }
        list << row.name << ".ucm\n";
    }
    std::ofstream out(dir + "/ucmfiles.txt", std::ios::trunc);
    out << list.str();
    out.close();
    if (!out) {
        std::cerr << "ucmgen: cannot write " << dir << "/ucmfiles.txt\n";
        return 1;
    }
    return 0;
}
