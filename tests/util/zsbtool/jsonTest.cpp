#include <gtest/gtest.h>

#include "util/zsbtool/json.h"
#include "util/zsbtool/output.h"

namespace zsbtool {
namespace {

/// What a document prints.
template <class Fill>
std::string Printed(Fill fill) {
    Output out(-1);
    JsonDocument json(out, "test");
    fill(json);
    json.Close();
    return std::string(out.Kept());
}

TEST(JsonDocument, BeginsWithFormatAndCommand) {
    EXPECT_EQ(Printed([](JsonDocument&) {}), "{\n  \"format\": 1,\n  \"command\": \"test\"\n}\n");
}

TEST(JsonDocument, HoldsEveryKindOfValue) {
    const std::string text = Printed([](JsonDocument& json) {
        json.Member("a", ~std::uint64_t{0});
        json.Member("b", -5);
        json.Member("c", true);
        json.Member("d", std::optional<std::uint32_t>());
        json.Member("e", std::optional<std::string>("x"));
        json.Member("f", "text");
    });
    EXPECT_EQ(text,
              "{\n  \"format\": 1,\n  \"command\": \"test\",\n"
              "  \"a\": 18446744073709551615,\n  \"b\": -5,\n  \"c\": true,\n  \"d\": null,\n"
              "  \"e\": \"x\",\n  \"f\": \"text\"\n}\n");
}

TEST(JsonDocument, SpreadsItsListsOverLinesAndPacksTheirEntries) {
    const std::string text = Printed([](JsonDocument& json) {
        json.BeginList("files");
        for (int i = 0; i < 2; ++i) {
            json.BeginEntry();
            json.Member("name", "n");
            json.Member("flags", std::vector<std::string>{"last", "stopped"});
            json.EndObject();
        }
        json.EndList();
        json.BeginList("none");
        json.EndList();
        json.Member("numbers", std::vector<std::uint64_t>{1, 2});
    });
    EXPECT_EQ(text,
              "{\n  \"format\": 1,\n  \"command\": \"test\",\n"
              "  \"files\": [\n"
              "    {\"name\": \"n\", \"flags\": [\"last\", \"stopped\"]},\n"
              "    {\"name\": \"n\", \"flags\": [\"last\", \"stopped\"]}\n"
              "  ],\n"
              "  \"none\": [],\n"
              "  \"numbers\": [\n    1,\n    2\n  ]\n}\n");
}

TEST(JsonDocument, QuotesTextsAndReplacesBytesThatAreNoUTF8) {
    const std::string text = Printed([](JsonDocument& json) {
        json.Member("name",
                    "\"\\\n\x1b\xFF"
                    "ä");
    });
    EXPECT_NE(text.find("\"name\": \"\\\"\\\\\\n\\u001b\xEF\xBF\xBDä\""), std::string::npos)
        << text;
}

}  // namespace
}  // namespace zsbtool
