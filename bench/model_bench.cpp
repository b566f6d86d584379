// Building the program model from a parsed store, full and light, at three sizes.
//
// Each size is a number of functions of five statements with four code bytes each and two
// locals, in modules of 1,000 functions; the middle one is 20,000 functions and 100,000
// statements. The store is parsed once per size, outside the timing. A time per statement that
// stays flat across the sizes shows that the build is linear in the file.
#include "model/ProgramBuilder.h"
#include "parser/TarnUbrofParser.h"
#include "writer/UbrofWriter.h"

#include <benchmark/benchmark.h>
#include <boost/filesystem.hpp>

#include <map>
#include <memory>
#include <string>

namespace {

constexpr int kStatementsPerFunction = 5;
constexpr int kFunctionsPerModule = 1000;

struct BenchStores {
    boost::filesystem::path directory = boost::filesystem::temp_directory_path() /
                                        boost::filesystem::unique_path("ubrof-model-bench-%%%%-%%%%");
    std::map<std::pair<int64_t, bool>, std::unique_ptr<ubrof::TarnUbrofParser>> stores;

    BenchStores() { boost::filesystem::create_directories(directory); }
    ~BenchStores()
    {
        boost::system::error_code ignored;
        boost::filesystem::remove_all(directory, ignored);
    }
};

// The store of a file of that many functions, parsed with the facts a full or a light build reads.
const ubrof::TarnUbrofParser& benchStore(int64_t functions, bool light)
{
    static BenchStores stores;
    auto& store = stores.stores[{functions, light}];
    if (store)
        return *store;
    ubrof::UbrofWriter w;
    w.begFile1().version(8);
    uint32_t name = 0;
    for (int64_t f = 0; f < functions; ++f) {
        if (f % kFunctionsPerModule == 0) {
            if (f != 0)
                w.end();
            w.begPgm("module" + std::to_string(f / kFunctionsPerModule)).fileRef(0, "module.c").org(1, uint32_t(f) * 20);
        }
        w.scopedName("function" + std::to_string(f)).symbolDef2(name, 2, 1, uint32_t(f) * 20, 0);
        w.blockBegin3(name++).symbolDef1({"i", 8, 6, 16, 1, {}}).symbolDef1({"p", 7, 2, 2, 6, {}});
        name += 2;
        for (int s = 0; s < kStatementsPerFunction; ++s)
            w.srcStat(uint16_t(s + 1), uint16_t(s + 1)).absVar({0x0C, 0x94, 0x00, 0x01});
        w.blockEnd();
    }
    w.end().eof();
    const std::string path =
        (stores.directory / ("functions-" + std::to_string(functions) + ".d90")).string();
    w.save(path);
    store = std::make_unique<ubrof::TarnUbrofParser>();
    store->keepFacts = true;
    store->facts.light = light;
    store->initialize();
    store->parseFile(path);
    return *store;
}

void build(benchmark::State& state, bool light)
{
    const ubrof::TarnUbrofParser& store = benchStore(state.range(0), light);
    if (!store.isParsed()) {
        state.SkipWithError("parse failed");
        return;
    }
    ubrof::model::BuildOptions options;
    options.light = light;
    for (auto _ : state) {
        ubrof::model::Program program = ubrof::model::buildProgram(store, options);
        benchmark::DoNotOptimize(program.modules.data());
    }
    const double statements = static_cast<double>(state.range(0) * kStatementsPerFunction);
    state.counters["statements"] = statements;
    state.counters["per_statement"] =
        benchmark::Counter(statements, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void BM_BuildFull(benchmark::State& state)
{
    build(state, false);
}

void BM_BuildLight(benchmark::State& state)
{
    build(state, true);
}

BENCHMARK(BM_BuildFull)->Arg(4000)->Arg(20000)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_BuildLight)->Arg(4000)->Arg(20000)->Arg(100000)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
