// Parsing the largest real files of versions 10 and 11, as a debugger host reads them (the opt-in
// alone) and as the program model does (the facts kept too), against merely reading their bytes;
// and loading their program model, full and light.
#include "model/ProgramBuilder.h"
#include "parser/TarnUbrofParser.h"

#include <benchmark/benchmark.h>
#include <boost/filesystem.hpp>

#include <cstdio>
#include <string>
#include <vector>

namespace {

const std::vector<std::string> kFiles{"avr-mega128-board/atmega128.d90", "8051-zstack-genericapp/GenericApp.d51"};

std::string pathOf(int64_t file)
{
    return std::string(UBROF_REAL_FILES_DIR) + "/" + kFiles.at(static_cast<size_t>(file));
}

void parse(benchmark::State& state, bool keepFacts)
{
    const std::string path = pathOf(state.range(0));
    if (!boost::filesystem::exists(path)) {
        state.SkipWithError(("missing " + path).c_str());
        return;
    }
    for (auto _ : state) {
        ubrof::TarnUbrofParser store;
        store.initialize();
        store.readNewerVersions = true;
        store.keepFacts = keepFacts;
        if (store.parseFile(path) != ubrof::StoreOk) {
            state.SkipWithError(store.parseError.c_str());
            return;
        }
        benchmark::DoNotOptimize(store.lineTable.size());
    }
    state.SetLabel(kFiles.at(static_cast<size_t>(state.range(0))));
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(boost::filesystem::file_size(path)));
}

void BM_ParseNewer(benchmark::State& state)
{
    parse(state, false);
}

void BM_ParseNewerKeepingFacts(benchmark::State& state)
{
    parse(state, true);
}

void BM_ReadNewer(benchmark::State& state)
{
    const std::string path = pathOf(state.range(0));
    for (auto _ : state) {
        std::FILE* file = std::fopen(path.c_str(), "rb");
        if (!file) {
            state.SkipWithError(("missing " + path).c_str());
            return;
        }
        long sum = 0;
        for (int c; (c = getc_unlocked(file)) != EOF;)
            sum += c;
        std::fclose(file);
        benchmark::DoNotOptimize(sum);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(boost::filesystem::file_size(path)));
}

void load(benchmark::State& state, bool light)
{
    const std::string path = pathOf(state.range(0));
    if (!boost::filesystem::exists(path)) {
        state.SkipWithError(("missing " + path).c_str());
        return;
    }
    ubrof::model::BuildOptions options;
    options.light = light;
    for (auto _ : state) {
        const ubrof::model::Program program = ubrof::model::loadProgram(path, options);
        benchmark::DoNotOptimize(program.modules.data());
    }
    state.SetLabel(kFiles.at(static_cast<size_t>(state.range(0))));
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(boost::filesystem::file_size(path)));
}

void BM_LoadNewerProgram(benchmark::State& state)
{
    load(state, false);
}

void BM_LoadNewerProgramLight(benchmark::State& state)
{
    load(state, true);
}

} // namespace

BENCHMARK(BM_LoadNewerProgram)->DenseRange(0, 1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LoadNewerProgramLight)->DenseRange(0, 1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ParseNewer)->DenseRange(0, 1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ParseNewerKeepingFacts)->DenseRange(0, 1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReadNewer)->DenseRange(0, 1)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
