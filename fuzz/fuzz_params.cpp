//===- fuzz/fuzz_params.cpp - Parameter text and parameter files ----------===//
//
// A libFuzzer target for the parameter scanners: each input is the text of a
// command (cut at its first NUL for the byte-string scanners) and, whole, the
// contents of a parameter file. The tokeniser runs on it in both forms and
// with and without quotes kept, and its tokens are held to their contract;
// then the interval reader, the password mask and the comment cutter; then
// qzGetNextCommand reads the bytes through a memory stream with the first
// byte choosing the flags.
//
// OBEY opens what the input names. It runs from a fresh temporary directory
// that holds one parameter file that names itself (a cycle) and one
// directory, so that relative names find those or nothing; devices and
// FIFOs elsewhere are refused by the reader itself, and files elsewhere are
// only read. Standard output, where echo and substitution print, goes to
// /dev/null.
//
//===----------------------------------------------------------------------===//
#include "qzapp/ParamScan.h"
#include "qzmsg/CMessageFactory.h"

#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <ftw.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

using qzs::qzlib::qzunicode::UString;

namespace {

char g_scratch[] = "/tmp/fuzz_params.XXXXXX";
int g_home = -1; // the directory the run started in, for libFuzzer's own paths

void check(bool condition) {
    if (!condition)
        std::abort();
}

int removeOne(const char* path, const struct stat*, int, struct FTW*) {
    ::remove(path);
    return 0;
}

void removeScratch() {
    if (::chdir("/") == 0)
        ::nftw(g_scratch, removeOne, 16, FTW_DEPTH | FTW_PHYS);
}

void tokens(const char* text, bool keepQuotes) {
    param_tkn_group_def* groups = nullptr;
    short count = -1;
    char error[QZ_PARAM_ERROR_SIZE];
    if (!parse_tkns(text, &groups, &count, error, keepQuotes)) {
        check(groups == nullptr && count == 0 && std::strlen(error) > 0);
        return;
    }
    check(count == 1 && groups[0].type == 'd' && groups[0].count >= 0);
    for (short i = 0; i < groups[0].count; ++i) {
        const param_tkn_def& t = groups[0].tokens[i];
        check(t.type == PARAM_TKN_TEXT || t.type == PARAM_TKN_LIST);
        check(std::strlen(t.text) <= std::strlen(text));
    }
    free_tkns(groups, &count);
    check(count == 0);
}

void ustringForms(const char* text) {
    const UString u(text);
    std::vector<paramTknGroupDef> groups;
    UString error;
    const bool ok = parse_tkns(u, groups, error, true);
    check(ok ? groups.size() == 1 : groups.empty() && !error.empty());
    unsigned long pos = 0;
    UString token;
    for (int n = 0; getNextToken(u, pos, token, false); ++n)
        check(n <= static_cast<int>(u.length())); // every token moves on
    UString masked(u);
    if (qzReplacePassword(masked))
        check(masked.find("***", 0) != UString::npos);
}

void cStringHelpers(const char* text) {
    std::string copy = text;
    char error[QZ_PARAM_ERROR_SIZE];
    const int seconds = qzGetTimeInterval(&copy[0], error, "fuzz ");
    check(seconds != 0 || std::strncmp(error, "fuzz ", 5) == 0);
    copy = text;
    qzTrimComment(&copy[0]);
    check(std::strlen(copy.c_str()) <= std::strlen(text));
    parse_cursor_def cursor{text};
    char token[64];
    for (int n = 0; getParseNext(&cursor, token, sizeof token); ++n)
        check(n <= static_cast<int>(std::strlen(text)));
}

void readCommands(const uint8_t* data, size_t size) {
    if (size == 0)
        return;
    const int flags = data[0] & (QZ_CMD_ECHO | QZ_CMD_NO_SUBSTITUTE | QZ_CMD_NO_OBEY);
    const unsigned long bufferSize = 16 + (data[0] >> 4) * 16;
    std::vector<char> bytes(data + 1, data + size);
    FILE* stream = fmemopen(bytes.empty() ? nullptr : bytes.data(), bytes.size(), "r");
    if (!stream)
        return;
    std::vector<char> buffer(bufferSize + 1, '#');
    if (::chdir(g_scratch) != 0)
        std::abort();
    int n;
    size_t commands = 0;
    while ((n = qzGetNextCommand(buffer.data(), bufferSize, stream, flags)) > 0) {
        check(static_cast<size_t>(n) == std::strlen(buffer.data()) && n < int(bufferSize));
        check(++commands <= size + 64); // every command consumes input, or an OBEY
    }
    check(buffer[bufferSize] == '#' && buffer[0] == '\0');
    qzEndCommands(stream);
    std::fclose(stream);
    if (::fchdir(g_home) != 0)
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    g_home = ::open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (g_home < 0 || !::mkdtemp(g_scratch)) {
        std::perror("fuzz_params: scratch directory");
        std::abort();
    }
    std::atexit(removeScratch);
    const std::string self = std::string(g_scratch) + "/self.prm";
    if (FILE* f = std::fopen(self.c_str(), "w")) {
        std::fputs("SELF one\nOBEY self.prm\nSEMICOLONTERMINATE\nSELF\n two;\n", f);
        std::fclose(f);
    }
    ::mkdir((std::string(g_scratch) + "/dir.prm").c_str(), 0700);
    const int null = ::open("/dev/null", O_WRONLY);
    if (null >= 0) {
        ::dup2(null, STDOUT_FILENO);
        ::close(null);
    }
    // A message per fault is the point; their repeats are not.
    qzs::qzlib::CMessageFactory::GetDefaultFactory()->SuppressDuplicateMessages(true);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data),
                           strnlen(reinterpret_cast<const char*>(data), size));
    tokens(text.c_str(), true);
    tokens(text.c_str(), false);
    ustringForms(text.c_str());
    cStringHelpers(text.c_str());
    readCommands(data, size);
    return 0;
}
