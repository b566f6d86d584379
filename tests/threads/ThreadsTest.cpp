// Parsers and views under eight threads at once: each thread parsing and walking the real files on
// its own, all of them asking one shared parser, parses racing to extract the same embedded
// sources, and the process-wide path substitutions changing while parsers answer.
#include "TestFiles.h"

#include "fuzz/ViewWalker.h"
#include "host/FileMapper.h"
#include "parser/UbrofParser.h"

#include <boost/filesystem.hpp>
#include <boost/make_shared.hpp>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <future>
#include <map>
#include <set>
#include <thread>

namespace ubrof::test {
namespace {

namespace fs = boost::filesystem;

constexpr unsigned kThreads = 8;

// Generous: under the thread sanitizer a walk of the largest real file takes many times longer
// than in a plain build, and a walk cut short would compare nothing.
walk::WalkLimits wholeWalk()
{
    walk::WalkLimits limits;
    limits.time = std::chrono::minutes(5);
    return limits;
}

/// Runs body(thread) on kThreads threads released at the same moment, and waits for all of them;
/// an exception in any thread is rethrown here.
template <typename Body>
void together(Body body)
{
    std::promise<void> start;
    const std::shared_future<void> go = start.get_future().share();
    std::vector<std::future<void>> done;
    for (unsigned thread = 0; thread < kThreads; ++thread)
        done.push_back(std::async(std::launch::async, [&, thread] {
            go.wait();
            body(thread);
        }));
    start.set_value();
    for (auto& each : done)
        each.get();
}

class Threads : public ::testing::Test {
protected:
    void SetUp() override
    {
        UBROF_NEED_REAL_FILES();
        // Copies of the real files the module reads (versions below 9): parsing writes embedded
        // sources beside the file, and the shared folder must never be written.
        for (const char* relative : {"avr-cama-suo/Suo.dbg", "avr-ethradio/NikeE1B.d90", "avr-mobit-nmea/nmea.d90"}) {
            files.push_back(dir.path(fs::path(relative).filename().string()));
            fs::copy_file(realFile(relative), files.back());
        }
        for (const std::string& file : files) {
            const walk::WalkResult result = walk::walkFile(file, wholeWalk());
            ASSERT_TRUE(result.parsed) << file << ": " << result.error;
            ASSERT_TRUE(result.complete) << file << ": the walk did not finish in its time";
            reference[file] = result;
        }
    }

    void expectSameAnswers(const std::string& file, const walk::WalkResult& result, unsigned thread) const
    {
        const walk::WalkResult& alone = reference.at(file);
        EXPECT_TRUE(result.parsed && result.complete) << file << " in thread " << thread << ": " << result.error;
        EXPECT_EQ(alone.answers, result.answers) << file << " in thread " << thread;
        EXPECT_EQ(alone.digest, result.digest) << file << " in thread " << thread;
    }

    ScratchDir dir;
    std::vector<std::string> files;
    std::map<std::string, walk::WalkResult> reference;
};

// Every thread reads the same copies, each starting at another file, so that parses of one file
// and walks of another overlap in every combination.
TEST_F(Threads, EachParsesAndWalksEveryFileAsAloneAtOnce)
{
    std::vector<std::vector<walk::WalkResult>> results(kThreads);
    together([&](unsigned thread) {
        for (size_t i = 0; i < files.size(); ++i)
            results[thread].push_back(walk::walkFile(files[(i + thread) % files.size()], wholeWalk()));
    });
    for (unsigned thread = 0; thread < kThreads; ++thread)
        for (size_t i = 0; i < files.size(); ++i)
            expectSameAnswers(files[(i + thread) % files.size()], results[thread][i], thread);
}

TEST_F(Threads, AskOneSharedParserAsAloneAtOnce)
{
    for (const std::string& file : files) {
        const auto parser = boost::make_shared<UbrofParser>(file);
        std::vector<walk::WalkResult> results(kThreads);
        together([&](unsigned thread) { results[thread] = walk::walkViews(*parser, wholeWalk()); });
        for (unsigned thread = 0; thread < kThreads; ++thread)
            expectSameAnswers(file, results[thread], thread);
    }
}

// Parses that extract the same embedded sources into one folder at once: each copy appears whole
// under its name, whichever parse put it there, and no temporary file stays behind.
TEST(ThreadsEmbedded, ParsesExtractingTheSameSourcesLeaveEveryCopyWhole)
{
    ScratchDir dir;
    std::vector<std::string> lines;
    for (int i = 0; i < 2000; ++i)
        lines.push_back("int line" + std::to_string(i) + " = " + std::to_string(i * 7) + ";");
    UbrofWriter w;
    w.begFile1().version(8).begPgm("main").org(1, 0x100);
    for (const char* name : {"main.c", "util.c", "deep/io.h"})
        w.file(name, lines).srcStat(1, 1).absVar({0, 0});
    w.end().eof();
    const std::string path = dir.save(w);

    together([&](unsigned) {
        for (int round = 0; round < 4; ++round)
            UbrofParser parser(path);
    });

    std::string expected;
    for (const std::string& line : lines)
        expected += line + "\r\n";
    const fs::path folder = fs::path(dir.dir()) / "embedded_source";
    std::vector<std::string> names;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
        names.push_back(entry.path().filename().string());
        EXPECT_EQ(expected, fileText(entry.path().string())) << names.back();
    }
    std::sort(names.begin(), names.end());
    EXPECT_EQ((std::vector<std::string>{"io_emb.h", "main_emb.c", "util_emb.c"}), names);
}

// The substitutions are process-wide and may change while parsers answer: each answer then has
// one form or the other, whole, and nothing breaks.
TEST(ThreadsFileMapper, SubstitutionsChangingWhileParsersAnswerGiveOneFormOrTheOther)
{
    ScratchDir dir;
    UbrofWriter w;
    w.begFile1().version(8).begPgm("main").fileRef(0, "C:\\src\\main.c").org(1, 0x100);
    w.funcBegin1("main").srcStat(3, 3).absVar({0, 0}).srcStat(4, 4).absVar({0, 0}).blockEnd().end().eof();
    const auto parser = boost::make_shared<UbrofParser>(dir.save(w));
    const std::set<std::string> forms = {"C:\\src\\main.c", "/home/dev/src/main.c"};

    std::atomic<bool> asking{true};
    std::atomic<unsigned> answers{0};
    together([&](unsigned thread) {
        if (thread == 0) {
            for (int round = 0; round < 2000; ++round) {
                tarn::FileMapper::addSubstitution("C:\\src\\", "/home/dev/src/");
                tarn::FileMapper::clearSubstitutions();
            }
            asking = false;
            return;
        }
        const auto source = parser->createSourceInformation();
        // At least a few rounds each, however quickly the substitutions are done.
        for (int round = 0; asking || round < 20; ++round) {
            tarn::Status status;
            std::vector<std::string> files;
            ASSERT_TRUE(source->getSourcefiles(status, files));
            ASSERT_EQ(1u, files.size());
            EXPECT_EQ(1u, forms.count(files[0])) << files[0];
            std::vector<tarn::AddressNamePair> found;
            // Found by its file's name in the form of the moment, or not found; never wrongly.
            if (source->getAddressesFromSingleStatement(status, files[0], tarn::CodeLocation{4, 0}, found)) {
                EXPECT_EQ(0x102u, found.at(0).address);
            }
            ++answers;
        }
    });
    tarn::FileMapper::clearSubstitutions();
    EXPECT_GE(answers.load(), 7u * 20u);
}

} // namespace
} // namespace ubrof::test
