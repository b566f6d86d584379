// ubrofdump's streaming writers driven directly: a streamed tree reads as the whole document would,
// a walk that fails at any point still leaves one valid document, and windowed tables keep their rows.
#include "host/CoreException.h"
#include "host/Status.h"
#include "tools/ubrofdump/Stream.h"

#include <boost/json/parse.hpp>
#include <boost/make_shared.hpp>
#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>

namespace ubrofdump {
namespace {

namespace json = boost::json;

// Escapes, plain and nested arrays, empty containers: every shape printJson lays out its own way.
json::object context(const std::string& id, json::array children = {})
{
    return {{"ID", id},
            {"Name", "n\"" + id + "\\\u00e9"},
            {"Value", json::array{}},
            {"Bytes", json::array{1, 2, 3}},
            {"Location", json::object{{"Pieces", json::array{json::object{{"Address", 35}}}}, {"Empty", json::object{}}}},
            {"Children", std::move(children)}};
}

// A module with a variable, and a function with a block under it; then two types, one with a member.
const json::object kTree = context("0", {context("1", {context("4"), context("2", {context("3")})})});
const json::array kTypes = {context("10", {context("11")}), context("12")};

// Replays the tree and the types into sink; step runs before each call, and may throw.
void replay(ContextSink& sink, const std::function<void()>& step)
{
    std::function<void(const json::object&, int)> visit = [&](const json::object& node, int depth) {
        json::object fields;
        for (const auto& entry : node)
            if (entry.key() != "Children")
                fields[entry.key()] = entry.value();
        step();
        sink.enter(fields, depth);
        for (const auto& child : node.at("Children").as_array())
            visit(child.as_object(), depth + 1);
        step();
        sink.leave(depth);
    };
    visit(kTree, 0);
    step();
    sink.beginTypes();
    for (const auto& type : kTypes)
        visit(type.as_object(), 0);
    step();
    sink.endTypes();
}

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
    if (const auto* children = value.as_object().if_contains("Children"))
        collectIds(*children, ids);
}

TEST(StreamedJson, LaysOutATreeExactlyAsTheWholeDocument)
{
    std::ostringstream whole, streamed;
    json::object document = answerDocument("Symbols", kTree);
    document["Types"] = kTypes;
    printJson(whole, document);
    EXPECT_EQ(kOk, writeTree(streamed, walking([](ContextSink& sink) { replay(sink, [] {}); }), TextRequest(), true));
    EXPECT_EQ(whole.str(), streamed.str());
}

// Every point a walk can fail at, with each kind of failure a command knows.
TEST(StreamedJson, AWalkThatFailsAnywhereLeavesOneDocumentWithTheErrorAndAllItWrote)
{
    std::vector<std::string> allIds;
    collectIds(kTree, allIds);
    collectIds(kTypes, allIds);
    const std::tuple<std::function<void()>, const char*, int> failures[] = {
        {[] { throw notFound("gone"); }, "not-found", kNotFound},
        {[] { throw tarn::CoreException(boost::make_shared<tarn::Status>(tarn::ErrorCode::EmptySymbolName, "no")); },
         "usage", kUsage},
        {[] { throw std::runtime_error("broken"); }, "failed", kUnreadable},
    };
    for (const auto& [fail, code, exitStatus] : failures) {
        for (int failAt = 0;; ++failAt) {
            std::ostringstream out;
            int calls = 0;
            bool failed = true;
            const int status = writeTree(out, walking([&](ContextSink& sink) {
                                             replay(sink, [&] {
                                                 if (calls++ == failAt)
                                                     fail();
                                             });
                                             failed = false;
                                         }),
                                         TextRequest(), true);
            if (!failed) // every point has been tried
                break;
            const std::string what = code + std::string(" at call ") + std::to_string(failAt) + ":\n" + out.str();
            json::value document;
            ASSERT_NO_THROW(document = json::parse(out.str())) << what;
            EXPECT_EQ(exitStatus, status) << what;
            // Schema, the answer, the types when they had begun, and the error last.
            const json::object& object = document.as_object();
            ASSERT_TRUE(object.size() == 3 || object.size() == 4) << what;
            EXPECT_EQ("Schema", object.begin()->key()) << what;
            EXPECT_EQ("Symbols", (object.begin() + 1)->key()) << what;
            EXPECT_EQ(object.size() == 4 ? "Types" : "Error", (object.begin() + 2)->key()) << what;
            EXPECT_EQ(code, object.at("Error").at("Code").as_string()) << what;

            std::vector<std::string> ids;
            collectIds(object.at("Symbols"), ids);
            if (const auto* types = object.if_contains("Types"))
                collectIds(*types, ids);
            ASSERT_LE(ids.size(), allIds.size()) << what;
            EXPECT_TRUE(std::equal(ids.begin(), ids.end(), allIds.begin())) << what;
        }
    }
}

TEST(StreamedText, AWalkThatFailsKeepsTheRowsItWroteAndThrowsTheFailureOn)
{
    std::ostringstream out;
    const Answer answer = walking([](ContextSink& sink) {
        sink.enter(context("7"), 0);
        sink.enter(context("8"), 1);
        throw notFound("gone");
    });
    EXPECT_THROW(writeTree(out, answer, TextRequest(), false), Failure);
    EXPECT_NE(std::string::npos, out.str().find("Name\n  7   other  ")) << out.str();
    EXPECT_NE(std::string::npos, out.str().find("\n  8   other  ")) << out.str();
}

TEST(Table, AlignsAWindowOfRowsAtATimeAndNeverNarrowsAColumn)
{
    std::ostringstream out;
    Table table(out, {"Name", "Size"}, 3);
    table.add({"ab", "1"});
    table.add({"abcdefgh", "2"}); // the first window ends here, with the header
    table.add({"x", "3"});
    table.add({"abcdefghijkl", "4"});
    table.finish();
    table.finish(); // nothing held: nothing more written
    EXPECT_EQ("  Name      Size\n"
              "  ab        1\n"
              "  abcdefgh  2\n"
              "  x             3\n"
              "  abcdefghijkl  4\n",
              out.str());
}

} // namespace
} // namespace ubrofdump
