// How parsing and the per-stop queries scale with the size of a file; scripts/bench runs it per size.
//
//   scale_bench parse FILE ROUNDS   median parse time against a plain read of FILE, in ms
//   scale_bench rss FILE            one parse; peak resident memory in KiB, before and after
//   scale_bench stops FILE ROUNDS   median time of each query a debugger makes at a stop, in ns
//   scale_bench edges DIR           writes the edge files (bytes at the top of every memory,
//                                   code at 0xFFFF0000, 5,000 nested blocks, 20,000 variables
//                                   of a typedef of itself) into DIR
//   scale_bench walk FILE           time of a walk over every global variable as a debugger
//                                   shows it: type, size, members, properties
//
// Output is one "key value" pair per line, for the script to put into its table. Times are the
// CPU time of the measuring thread (user and system): the machines this runs on are shared,
// and time spent waiting for a core says nothing about the module.
#include "fuzz/ViewWalker.h"
#include "host/ISourceInformation.h"
#include "host/ISymbolInformation.h"
#include "host/IStackTraceContext.h"
#include "parser/TarnUbrofParser.h"
#include "parser/UbrofParser.h"
#include "writer/UbrofWriter.h"


#include <fcntl.h>
#include <sys/resource.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <string>
#include <vector>

namespace {

/// The calling thread's CPU time, system time (page faults, reads) included.
struct Clock {
    using duration = std::chrono::nanoseconds;
    using time_point = std::chrono::time_point<Clock, duration>;
    static time_point now()
    {
        timespec t{};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
        return time_point(duration(int64_t(t.tv_sec) * 1000000000 + t.tv_nsec));
    }
};

double milliseconds(Clock::duration d)
{
    return std::chrono::duration<double, std::milli>(d).count();
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    const size_t n = values.size();
    return n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
}

long peakResidentKiB()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

/// A plain read in 64 KiB blocks, the yardstick for the parse.
double readMs(const std::string& path)
{
    static unsigned char block[1 << 16];
    const auto start = Clock::now();
    const int file = open(path.c_str(), O_RDONLY);
    if (file < 0)
        throw std::runtime_error("cannot read " + path);
    unsigned sum = 0;
    for (ssize_t n; (n = read(file, block, sizeof block)) > 0;)
        sum += block[n - 1];
    close(file);
    const double ms = milliseconds(Clock::now() - start);
    if (sum == 1)
        std::fputs("", stderr); // keeps the loop from being optimised away
    return ms;
}

int parse(const std::string& path, int rounds)
{
    readMs(path); // into the page cache
    std::vector<double> parses, reads;
    for (int i = 0; i < rounds; ++i) {
        reads.push_back(readMs(path));
        const auto start = Clock::now();
        auto parser = std::make_unique<ubrof::UbrofParser>(path);
        parses.push_back(milliseconds(Clock::now() - start));
    }
    std::printf("parse_ms %.3f\nread_ms %.3f\n", median(parses), median(reads));
    return 0;
}

int rss(const std::string& path)
{
    const long before = peakResidentKiB();
    ubrof::UbrofParser parser(path);
    std::printf("rss_before_kib %ld\nrss_peak_kib %ld\n", before, peakResidentKiB());
    return 0;
}

/// One stop of the program: a statement's address, a local of its function and a global of
/// another module.
struct Stop {
    uint64_t pc = 0;
    std::string local;
    std::string global;
    std::string file;
    uint32_t line = 0;
    tarn::ISymbolContext::Ptr variable;
    boost::shared_ptr<tarn::IStackTraceContext> frame;
};

int stops(const std::string& path, int rounds)
{
    ubrof::UbrofParser parser(path);
    const ubrof::TarnUbrofParser& store = *parser.getStore();
    const auto symbols = parser.createSymbolInformation();
    const auto source = parser.createSourceInformation();
    const size_t modules = store.moduleTable.size();
    if (store.codeAreas.empty() || modules < 2)
        throw std::runtime_error(path + " is not a synthetic program");

    // Stops spread over the whole program, the same ones in every round.
    std::vector<Stop> stops(1024);
    uint32_t random = 12345;
    for (Stop& stop : stops) {
        random = random * 1103515245u + 12345u;
        const tarn::CodeArea area = store.codeArea((random >> 8) % store.codeAreas.size());
        stop.pc = area.startAddress;
        stop.file = area.fileName;
        stop.line = static_cast<uint32_t>(area.startLine);
        stop.local = "v0";
        random = random * 1103515245u + 12345u;
        stop.global = "m" + std::to_string((random >> 8) % modules) + "_g1";
        stop.frame = ubrof::walk::frameAt(stop.pc);
        stop.variable = symbols->lookupSymbolFromPc(stop.local, stop.pc, false);
        if (!stop.variable || !symbols->lookupSymbolFromPc(stop.global, stop.pc, false))
            throw std::runtime_error("a stop's variables are not found in " + path);
    }

    auto time = [&](const char* key, const std::function<void(const Stop&)>& query) {
        std::vector<double> perQuery;
        for (int round = 0; round < rounds; ++round) {
            const auto start = Clock::now();
            for (const Stop& stop : stops)
                query(stop);
            perQuery.push_back(milliseconds(Clock::now() - start) * 1e6 / double(stops.size()));
        }
        std::printf("%s %.1f\n", key, median(perQuery));
    };
    size_t sink = 0;
    time("scope_ns", [&](const Stop& s) { sink += symbols->getScopeContextFromPc(s.pc) != nullptr; });
    time("local_ns", [&](const Stop& s) { sink += symbols->lookupSymbolFromPc(s.local, s.pc, false) != nullptr; });
    time("global_ns", [&](const Stop& s) { sink += symbols->lookupSymbolFromPc(s.global, s.pc, false) != nullptr; });
    time("areas_ns", [&](const Stop& s) {
        tarn::Status status;
        std::vector<tarn::CodeArea> areas;
        sink += source->getCodeAreasFromAddressRange(status, s.pc, s.pc, areas);
    });
    time("statement_ns", [&](const Stop& s) {
        tarn::Status status;
        tarn::CodeLocation location;
        location.line = s.line;
        std::vector<tarn::AddressNamePair> addresses;
        sink += source->getAddressesFromSingleStatement(status, s.file, location, addresses);
    });
    time("location_ns", [&](const Stop& s) { sink += s.variable->getLocation(s.frame)->getPieces().size(); });
    time("properties_ns", [&](const Stop& s) { sink += s.variable->getProperties().size(); });
    if (sink == 0)
        std::fputs("no query answered\n", stderr);
    return 0;
}

int walk(const std::string& path)
{
    ubrof::UbrofParser parser(path);
    const auto symbols = parser.createSymbolInformation();
    const auto start = Clock::now();
    size_t sink = 0;
    for (const auto& variable : symbols->getSymbolContextFromID("0")->getChildren(tarn::ISymbolContext::DataSymbol)) {
        if (const auto type = variable->getTypeContext())
            sink += type->getChildren(tarn::ISymbolContext::OtherSymbol).size();
        sink += static_cast<size_t>(variable->getSize()) + variable->getProperties().size();
    }
    std::printf("walk_ms %.3f\nwalked %zu\n", milliseconds(Clock::now() - start), sink);
    return 0;
}

int edges(const std::string& directory)
{
    using ubrof::UbrofWriter;
    {
        // One byte at the highest address of code, data and EEPROM memory.
        UbrofWriter w;
        w.begFile1().version(8).begLib("top").aux1("2.0");
        w.org(1, 0xFFFFFFFF).absVar({1}).org(2, 0xFFFFFFFF).absVar({2}).org(3, 0xFFFFFFFF).absVar({3});
        w.end().eof().save(directory + "/top-bytes.d90");
    }
    {
        UbrofWriter w;
        w.begFile1().version(8).begLib("high").fileRef(0, "high.c").funcBegin1("f").org(1, 0xFFFF0000);
        for (uint16_t line = 1; line <= 100; ++line)
            w.srcStat(line, line).absVar({0x0C, 0x94});
        w.blockEnd().end().eof().save(directory + "/code-at-ffff0000.d90");
    }
    {
        UbrofWriter w;
        w.begFile1().version(8).scopedName("loop_t").typeTypedef(100, 100, 0).begLib("loop");
        for (int i = 0; i < 20000; ++i)
            w.symbolDef({"v" + std::to_string(i), 1, 2, uint32_t(2 * i), 100, {}});
        w.end().eof().save(directory + "/typedef-loop.d90");
    }
    {
        UbrofWriter w;
        w.begFile1().version(8).begLib("deep").fileRef(0, "deep.c").funcBegin1("f").org(1, 0x100);
        for (int depth = 1; depth < 5000; ++depth)
            w.blockBegin1().srcStat(uint16_t(depth), uint16_t(depth)).absVar({0, 0});
        for (int depth = 0; depth < 5000; ++depth)
            w.blockEnd();
        w.end().eof().save(directory + "/nested-5000.d90");
    }
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    const std::vector<std::string> args(argv + 1, argv + argc);
    try {
        if (args.size() == 3 && args[0] == "parse")
            return parse(args[1], std::atoi(args[2].c_str()));
        if (args.size() == 2 && args[0] == "rss")
            return rss(args[1]);
        if (args.size() == 3 && args[0] == "stops")
            return stops(args[1], std::atoi(args[2].c_str()));
        if (args.size() == 2 && args[0] == "edges")
            return edges(args[1]);
        if (args.size() == 2 && args[0] == "walk")
            return walk(args[1]);
    } catch (const std::exception& e) {
        std::cerr << "scale_bench: " << e.what() << "\n";
        return 1;
    }
    std::cerr << "usage: scale_bench parse|stops FILE ROUNDS | rss FILE | edges DIR | walk FILE\n";
    return 2;
}
