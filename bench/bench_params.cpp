//===- bench/bench_params.cpp - Tokenising and reading parameter files ----===//
//
// A realistic parameter file: a process header (login, report and discard
// settings), comments, and 400 MAP commands with column maps, filters and
// quoted values, some continued over lines. Measured in MB/s of parameter
// text:
//  - Tokens/CharStar: parse_tkns and free_tkns on each command;
//  - Tokens/UString: the UTF-16 form on the same commands, made once;
//  - Commands/File: qzGetNextCommand over the whole file from a temporary
//    file (kept in the page cache), including the OBEY-free per-line steps;
//  - Commands/Fgets: the same file read by plain fgets, the floor that the
//    reader's own work sits on.
//
//===----------------------------------------------------------------------===//
#include "qzapp/ParamScan.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>
#include <vector>

using qzs::qzlib::qzunicode::UString;

namespace {

std::string makeFile() {
    std::string text = "-- Replication of the order schema\n"
                       "APPLY app1\n"
                       "USER repadmin, PASSWORD 'not-a-secret'\n"
                       "REJECTFILE ./reports/app1.rej, APPEND, SIZE 100\n"
                       "REPORT EVERY 10 MINUTES, RATE\n"
                       "COMMENT the maps below are generated\n\n";
    for (int i = 0; i < 400; ++i) {
        const std::string n = std::to_string(i);
        text += "MAP src.orders" + n + ", TARGET dst.orders" + n + ", \\\n";
        text += "  COLUMNS (DEFAULTS, id = order_id, note = 'it''s \"quoted\" -- not a comment', "
                "total = @CALC(qty * price)), \\\n";
        text += "  FILTER (qty > 0), KEYS (order_id, line_no); -- trailing comment\n";
        if (i % 10 == 0)
            text +=
                "TABLE \"Src\".\"Mixed" + n + "\", TAGS (tk = @ENV('HEADER', 'OPTYPE'));\n";
    }
    return text;
}

// The commands of the file as qzGetNextCommand gives them.
std::vector<std::string> commandsOf(const std::string& path) {
    std::vector<std::string> commands;
    FILE* f = std::fopen(path.c_str(), "r");
    char buffer[4096];
    while (f && qzGetNextCommand(buffer, sizeof buffer, f, 0) > 0)
        commands.push_back(buffer);
    if (f)
        std::fclose(f);
    return commands;
}

struct Fixture {
    std::string text = makeFile();
    std::string path;
    std::vector<std::string> commands;
    std::vector<UString> wide;
    std::size_t commandBytes = 0;

    Fixture() {
        char name[] = "/tmp/bench_params.XXXXXX";
        const int fd = mkstemp(name);
        if (fd < 0 || write(fd, text.data(), text.size()) != static_cast<ssize_t>(text.size()))
            std::abort();
        close(fd);
        path = name;
        commands = commandsOf(path);
        for (const std::string& c : commands) {
            wide.emplace_back(c.c_str());
            commandBytes += c.size();
        }
    }
    ~Fixture() { unlink(path.c_str()); }
};

Fixture& fixture() {
    static Fixture f;
    return f;
}

void Tokens_CharStar(benchmark::State& state) {
    Fixture& f = fixture();
    char error[QZ_PARAM_ERROR_SIZE];
    for (auto _ : state) {
        for (const std::string& c : f.commands) {
            param_tkn_group_def* groups;
            short count;
            if (!parse_tkns(c.c_str(), &groups, &count, error, false))
                state.SkipWithError(error);
            benchmark::DoNotOptimize(groups);
            free_tkns(groups, &count);
        }
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * f.commandBytes));
}
BENCHMARK(Tokens_CharStar);

void Tokens_UString(benchmark::State& state) {
    Fixture& f = fixture();
    std::vector<paramTknGroupDef> groups;
    UString error;
    for (auto _ : state) {
        for (const UString& c : f.wide) {
            if (!parse_tkns(c, groups, error, false))
                state.SkipWithError("parse_tkns failed");
            benchmark::DoNotOptimize(groups.data());
        }
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * f.commandBytes));
}
BENCHMARK(Tokens_UString);

void Commands_File(benchmark::State& state) {
    Fixture& f = fixture();
    FILE* file = std::fopen(f.path.c_str(), "r");
    char buffer[4096];
    for (auto _ : state) {
        std::rewind(file);
        std::size_t n = 0;
        while (qzGetNextCommand(buffer, sizeof buffer, file, 0) > 0)
            ++n;
        if (n != f.commands.size())
            state.SkipWithError("wrong number of commands");
    }
    std::fclose(file);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * f.text.size()));
}
BENCHMARK(Commands_File);

void Commands_Fgets(benchmark::State& state) {
    Fixture& f = fixture();
    FILE* file = std::fopen(f.path.c_str(), "r");
    char buffer[4096];
    for (auto _ : state) {
        std::rewind(file);
        std::size_t n = 0;
        while (std::fgets(buffer, sizeof buffer, file))
            ++n;
        benchmark::DoNotOptimize(n);
    }
    std::fclose(file);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * f.text.size()));
}
BENCHMARK(Commands_Fgets);

} // namespace

BENCHMARK_MAIN();
