// Parsing a file of many functions and statements against merely reading its bytes, at three sizes.
//
// Each size is a number of functions with five statements of four code bytes each; the middle
// one is 20,000 functions and 100,000 statements. The parse includes the code-area table and the
// scope index. A parse/read ratio that stays flat across the sizes shows that nothing is quadratic.
#include "parser/TarnUbrofParser.h"
#include "writer/UbrofWriter.h"

#include <benchmark/benchmark.h>
#include <boost/filesystem.hpp>

#include <cstdio>
#include <map>
#include <string>

namespace {

constexpr int kStatementsPerFunction = 5;

// The bench files, written once per run into a directory removed at exit.
struct BenchFiles {
    boost::filesystem::path directory = boost::filesystem::temp_directory_path() /
                                        boost::filesystem::unique_path("ubrof-bench-%%%%-%%%%");
    std::map<int64_t, std::string> paths;

    BenchFiles() { boost::filesystem::create_directories(directory); }
    ~BenchFiles()
    {
        boost::system::error_code ignored;
        boost::filesystem::remove_all(directory, ignored);
    }
};

const std::string& benchFile(int64_t functions)
{
    static BenchFiles files;
    std::map<int64_t, std::string>& paths = files.paths;
    auto found = paths.find(functions);
    if (found != paths.end())
        return found->second;

    ubrof::UbrofWriter w;
    w.begFile1().version(8).begLib("main").fileRef(0, "main.c").org(1, 0);
    uint16_t line = 1;
    for (int64_t f = 0; f < functions; ++f) {
        w.funcBegin1("function" + std::to_string(f), {{"local", 7, 0, 2, 6, {}}});
        for (int s = 0; s < kStatementsPerFunction; ++s, ++line)
            w.srcStat(line, line).absVar({0x0C, 0x94, 0x00, 0x01});
        w.blockEnd();
    }
    w.end().eof();
    const std::string path = (files.directory / ("functions-" + std::to_string(functions) + ".d90")).string();
    w.save(path);
    return paths.emplace(functions, path).first->second;
}

void setCounters(benchmark::State& state, const std::string& path)
{
    const auto bytes = static_cast<int64_t>(boost::filesystem::file_size(path));
    state.SetBytesProcessed(state.iterations() * bytes);
    state.counters["statements"] = static_cast<double>(state.range(0) * kStatementsPerFunction);
}

void BM_Parse(benchmark::State& state)
{
    const std::string& path = benchFile(state.range(0));
    for (auto _ : state) {
        ubrof::TarnUbrofParser store;
        store.initialize();
        if (store.parseFile(path) != 0) {
            state.SkipWithError("parse failed");
            return;
        }
        benchmark::DoNotOptimize(store.codeAreas.size());
    }
    setCounters(state, path);
}

void BM_ReadFgetc(benchmark::State& state)
{
    const std::string& path = benchFile(state.range(0));
    for (auto _ : state) {
        std::FILE* file = std::fopen(path.c_str(), "rb");
        unsigned sum = 0;
        for (int c; (c = std::fgetc(file)) != EOF;)
            sum += static_cast<unsigned>(c);
        std::fclose(file);
        benchmark::DoNotOptimize(sum);
    }
    setCounters(state, path);
}

void BM_ReadFread(benchmark::State& state)
{
    const std::string& path = benchFile(state.range(0));
    for (auto _ : state) {
        std::FILE* file = std::fopen(path.c_str(), "rb");
        unsigned char buffer[1 << 16];
        unsigned sum = 0;
        for (size_t n; (n = std::fread(buffer, 1, sizeof buffer, file)) != 0;)
            sum += buffer[n - 1];
        std::fclose(file);
        benchmark::DoNotOptimize(sum);
    }
    setCounters(state, path);
}

#define SIZES Arg(4000)->Arg(20000)->Arg(100000)->Unit(benchmark::kMillisecond)
BENCHMARK(BM_Parse)->SIZES;
BENCHMARK(BM_ReadFgetc)->SIZES;
BENCHMARK(BM_ReadFread)->SIZES;

} // namespace

BENCHMARK_MAIN();
