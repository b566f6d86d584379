// ubrofdump's streaming writers driven directly: a streamed tree reads as the whole document would,
// a walk that fails at any point still leaves one valid document, and windowed tables keep their rows.
#include "host/CoreException.h"
#include "host/Status.h"
#include "tools/ubrofdump/Stream.h"

#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>
#include <boost/make_shared.hpp>
#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>

namespace ubrofdump {
namespace {

namespace json = boost::json;

json::object context(const std::string& id, json::array children = {})
{
    return json::object{{"ID", id},
                        {"Name", "n\"" + id + "\\\u00e9"},
                        {"Class", 2},
                        {"Value", json::array{}},
                        {"Bytes", json::array{1, 2, 3}},
                        {"Location", json::object{{"AddressingMode", 1},
                                                  {"Pieces", json::array{json::object{{"Address", 35}}}},
                                                  {"Empty", json::object{}}}},
                        {"Children", std::move(children)}};
}

// A module with a variable, and a function with a block under it; then two types, one with a member.
const json::object kTree = context("0", {context("1", {context("4"), context("2", {context("3")})})});
const json::array kTypes = {context("10", {context("11")}), context("12")};

void replay(ContextSink& sink, const json::object& node, int depth)
{
    json::object fields;
    for (const auto& entry : node)
        if (entry.key() != "Children")
            fields[entry.key()] = entry.value();
    sink.enter(fields, depth);
    for (const auto& child : node.at("Children").as_array())
        replay(sink, child.as_object(), depth + 1);
    sink.leave(depth);
}

void replayAll(ContextSink& sink)
{
    replay(sink, kTree, 0);
    sink.beginTypes();
    for (const auto& type : kTypes)
        replay(sink, type.as_object(), 0);
    sink.endTypes();
}

// Passes calls on, but the one numbered failAt first calls fail, which throws.
class FailingSink : public ContextSink {
public:
    FailingSink(ContextSink& sink, int failAt, std::function<void()> fail)
        : sink_(sink), failAt_(failAt), fail_(std::move(fail))
    {
    }
    void enter(const json::object& context, int depth) override
    {
        step();
        sink_.enter(context, depth);
    }
    void leave(int depth) override
    {
        step();
        sink_.leave(depth);
    }
    void beginTypes() override
    {
        step();
        sink_.beginTypes();
    }
    void endTypes() override
    {
        step();
        sink_.endTypes();
    }
    int calls = 0;

private:
    void step()
    {
        if (calls++ == failAt_)
            fail_();
    }
    ContextSink& sink_;
    int failAt_;
    std::function<void()> fail_;
};

Answer walking(std::function<void(ContextSink&)> walk)
{
    Answer answer("Symbols", {});
    answer.walk = std::move(walk);
    return answer;
}

void collectIds(const json::value& value, std::vector<std::string>& ids)
{
    if (value.is_array())
        for (const auto& element : value.as_array())
            collectIds(element, ids);
    if (!value.is_object())
        return;
    if (const auto* id = value.as_object().if_contains("ID"))
        ids.emplace_back(id->as_string());
    for (const auto& entry : value.as_object())
        if (entry.key() != "Location")
            collectIds(entry.value(), ids);
}

TEST(StreamedJson, LaysOutATreeExactlyAsTheWholeDocument)
{
    std::ostringstream whole;
    json::object document = answerDocument("Symbols", kTree);
    document["Types"] = kTypes;
    printJson(whole, document);

    std::ostringstream streamed;
    EXPECT_EQ(kOk, writeTree(streamed, walking(replayAll), TextRequest(), true));
    EXPECT_EQ(whole.str(), streamed.str());

    std::ostringstream noTypes;
    writeTree(noTypes, walking([](ContextSink& sink) {
                  replay(sink, context("7"), 0);
                  sink.beginTypes();
                  sink.endTypes();
              }),
              TextRequest(), true);
    EXPECT_NE(std::string::npos, noTypes.str().find("\n  \"Types\": []\n}\n")) << noTypes.str();
}

// Every point a walk can fail at, with each kind of failure a command knows.
TEST(StreamedJson, AWalkThatFailsAnywhereLeavesOneDocumentWithTheError)
{
    std::vector<std::string> allIds;
    collectIds(kTree, allIds);
    collectIds(kTypes, allIds);

    const std::pair<std::function<void()>, std::pair<const char*, int>> failures[] = {
        {[] { throw notFound("gone"); }, {"not-found", kNotFound}},
        {[] {
             throw tarn::CoreException(
                 boost::make_shared<tarn::Status>(tarn::ErrorCode::EmptySymbolName, "refused"));
         },
         {"usage", kUsage}},
        {[] { throw std::runtime_error("broken"); }, {"failed", kUnreadable}},
    };
    for (const auto& [fail, expected] : failures) {
        for (int failAt = 0;; ++failAt) {
            std::ostringstream out;
            int calls = 0;
            const int status = writeTree(out, walking([&](ContextSink& sink) {
                                             FailingSink failing(sink, failAt, fail);
                                             replayAll(failing);
                                             calls = failing.calls;
                                         }),
                                         TextRequest(), true);
            if (calls > 0) // the walk ran to its end: every point has been tried
                break;
            const std::string what = expected.first + std::string(" at call ") + std::to_string(failAt);
            json::value document;
            ASSERT_NO_THROW(document = json::parse(out.str())) << what << "\n" << out.str();
            EXPECT_EQ(expected.second, status) << what;
            const json::object& object = document.as_object();
            // Schema, the answer, the types when they had begun, and the error last.
            ASSERT_TRUE(object.size() == 3 || object.size() == 4) << what;
            EXPECT_EQ("Schema", object.begin()->key()) << what;
            EXPECT_EQ("Symbols", (object.begin() + 1)->key()) << what;
            if (object.size() == 4) {
                EXPECT_EQ("Types", (object.begin() + 2)->key()) << what;
            }
            EXPECT_EQ("Error", (object.end() - 1)->key()) << what;
            EXPECT_EQ(expected.first, object.at("Error").at("Code").as_string()) << what;

            // Nothing written before the failure is lost: the contexts entered come in order.
            std::vector<std::string> ids;
            collectIds(object.at("Symbols"), ids);
            if (const auto* types = object.if_contains("Types"))
                collectIds(*types, ids);
            ASSERT_LE(ids.size(), allIds.size()) << what;
            EXPECT_TRUE(std::equal(ids.begin(), ids.end(), allIds.begin())) << what;
        }
    }
}

TEST(StreamedText, AWalkThatFailsKeepsTheRowsItWroteAndReportsTheFailure)
{
    std::ostringstream out;
    TextRequest request;
    request.subject = "7";
    const Answer answer = walking([](ContextSink& sink) {
        sink.enter(context("7"), 0);
        sink.enter(context("8"), 1);
        throw notFound("gone");
    });
    try {
        writeTree(out, answer, request, false);
        FAIL() << "the failure is thrown on";
    } catch (const Failure& failure) {
        EXPECT_EQ("gone", failure.message);
    }
    const std::string text = out.str();
    EXPECT_EQ(0u, text.find("Symbol tree (no pc: locations from the symbols alone):\n\n  ID  Class")) << text;
    EXPECT_NE(std::string::npos, text.find("\n  7   data  ")) << text;
    EXPECT_NE(std::string::npos, text.find("\n  8   data  ")) << text;
    EXPECT_EQ(std::string::npos, text.find("Types")) << text;
}

TEST(Table, AlignsAWindowOfRowsAtATimeAndNeverNarrowsAColumn)
{
    std::ostringstream windowed;
    Table table(windowed, {"Name", "Size"}, 3);
    table.add({"ab", "1"});
    table.add({"abcdefgh", "2"}); // the first window ends here, with the header
    table.add({"x", "3"});
    table.add({"abcdefghijkl", "4"});
    table.add({"y", "5"});
    table.finish();
    EXPECT_EQ("  Name      Size\n"
              "  ab        1\n"
              "  abcdefgh  2\n"
              "  x             3\n"
              "  abcdefghijkl  4\n"
              "  y             5\n",
              windowed.str());

    std::ostringstream whole;
    Table all(whole, {"Name", "Size"});
    for (const char* name : {"ab", "abcdefgh"})
        all.add({name, "1"});
    all.finish();
    all.finish(); // nothing held: nothing more written
    EXPECT_EQ("  Name      Size\n  ab        1\n  abcdefgh  1\n", whole.str());
}

} // namespace
} // namespace ubrofdump
