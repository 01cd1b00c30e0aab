#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>

#include "tests/support/capturedLog.h"
#include "util/common/errors.h"
#include "util/common/tXML.h"

namespace {

/// A row of a table shows as its name.
template <typename Row>
requires requires(const Row& row) {
    row.name;
}
void PrintTo(const Row& row, std::ostream* stream) {
    *stream << row.name;
}

using TXML::XML_ElementInfo_s;

/// A text in a heap block of its exact size, without a terminator: an address sanitizer sees every
/// byte that is read at its end or behind.
class ExactText {
  public:
    explicit ExactText(std::string_view text)
        : bytes_(std::make_unique<char[]>(text.size())), size_(text.size()) {
        std::copy(text.begin(), text.end(), bytes_.get());
    }

    const char* begin() const { return bytes_.get(); }
    const char* end() const { return bytes_.get() + size_; }
    std::size_t size() const { return size_; }

  private:
    std::unique_ptr<char[]> bytes_;
    std::size_t size_;
};

struct Found {
    int status;
    std::string content;

    bool operator==(const Found&) const = default;
};

std::ostream& operator<<(std::ostream& stream, const Found& found) {
    return stream << found.status << " \"" << found.content << '"';
}

Found Search(const char* path, std::string_view text) {
    const ExactText exact(text);
    Found found{0, "untouched"};
    found.status =
        TXML::MOSTREL_GetSpecificTemplate(path, exact.size(), exact.begin(), found.content);
    return found;
}

const Found kIncomplete{21703, "untouched"};

struct SearchRow {
    const char* name;
    const char* path;
    const char* text;
    Found found;
};

class TagPathSearch : public testing::TestWithParam<SearchRow> {};

TEST_P(TagPathSearch, YieldsTheContentOrSaysWhatIsMissing) {
    const SearchRow& row = GetParam();
    EXPECT_EQ(Search(row.path, row.text), row.found);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, TagPathSearch,
    testing::Values(
        SearchRow{"InnerElement", "<a><b>", "<a><b>1</b></a>", {0, "1"}},
        SearchRow{"InnerElementAlone", "<b>", "<a><b>1</b></a>", kIncomplete},
        SearchRow{"NameThatStartsAlike", "<a><b>", "<a><ab>1</ab><b>2</b></a>", {0, "2"}},
        SearchRow{"SameNameNested", "<a>", "<a><a>1</a></a>", {0, "<a>1</a>"}},
        SearchRow{"SameNameNestedBothLevels", "<a><a>", "<a><a>1</a></a>", {0, "1"}},
        SearchRow{"InsideSelfClosing", "<a><b>", "<a/>", kIncomplete},
        SearchRow{"SelfClosing", "<a>", "<a/>", {0, ""}},
        SearchRow{"SelfClosingWithAttribute", "<a><b>", "<a><b c=\"1\"/></a>", {0, ""}},
        SearchRow{"EmptyContent", "<a><b>", "<a><b></b></a>", {0, ""}},
        SearchRow{"InsideEmptyContent", "<a><b><c>", "<a><b></b></a>", kIncomplete},
        SearchRow{
            "EndTagOfALongerName", "<pool>", "<pool></poolName>x</pool>", {0, "</poolName>x"}},
        SearchRow{"ChildOfALongerName",
                  "<pool><poolName>",
                  "<pool><poolName>P</poolName></pool>",
                  {0, "P"}},
        SearchRow{"CDATA", "<a>", "<a><![CDATA[x<y]]></a>", {0, "x<y"}},
        SearchRow{"CDATAWithItsOwnEndTag", "<a>", "<a><![CDATA[</a>]]></a>", {0, "</a>"}},
        SearchRow{"CDATAEmpty", "<a>", "<a><![CDATA[]]></a>", {0, ""}},
        SearchRow{"CDATAOpen", "<a>", "<a><![CDATA[x</a>", kIncomplete},
        SearchRow{"CDATABehindText", "<a>", "<a> <![CDATA[<]]></a>", {0, " <![CDATA[<]]>"}},
        SearchRow{"WhiteSpaceKept", "<a>", "<a> \n1 </a>", {0, " \n1 "}},
        SearchRow{"EntitiesKept", "<a>", "<a>&lt;</a>", {0, "&lt;"}},
        SearchRow{"CaseMatters", "<A>", "<a>1</a>", kIncomplete},
        SearchRow{"TextBeforeTheRoot", "<a>", "hello <a>1</a>", {0, "1"}},
        SearchRow{"DeclarationBeforeTheRoot", "<a>", "<?xml version=\"1.0\"?><a>1</a>",
                  kIncomplete},
        SearchRow{"CommentBeforeTheRoot", "<a>", "<!-- c --><a>1</a>", kIncomplete},
        SearchRow{"AttributesInTheWay", "<a><b>", "<a x=\"1\"><b\ty=\"2\">3</b></a>", {0, "3"}},
        SearchRow{"SelfClosingSiblingBefore", "<a><b>", "<a><c/><b>1</b></a>", {0, "1"}},
        SearchRow{"SiblingSkippedWhole", "<a><b>", "<a><c><b>1</b></c><b>2</b></a>", {0, "2"}},
        SearchRow{"SelfClosingInnerOfTheSameName", "<a>", "<a><a/></a>", kIncomplete},
        SearchRow{"EmptyPath", "", "plain", {0, "plain"}},
        SearchRow{"PathWithoutItsLastBracket", "<a><b", "<a><b>1</b></a>", {0, "1"}},
        SearchRow{"EmptyText", "<a>", "", kIncomplete},
        SearchRow{"NoTag", "<a>", "plain", kIncomplete},
        SearchRow{"OnlyABracket", "<a>", "<", kIncomplete},
        SearchRow{"CutInTheName", "<a>", "<a", kIncomplete},
        SearchRow{"CutInTheStartTag", "<a>", "<a b=\"1\"", kIncomplete},
        SearchRow{"CutInTheEndTag", "<a>", "<a>1</a", kIncomplete},
        SearchRow{"EndTagFirst", "<a>", "</a><a>1</a>", kIncomplete},
        SearchRow{"NamelessTag", "<a>", "<><a>1</a></>", kIncomplete}),
    [](const auto& row) { return std::string(row.param.name); });

constexpr std::string_view kReply =
    "<ostrelReply><pool><getPoolInfo><basicInfo><poolState>maintenance</poolState>"
    "<poolGUID>0a</poolGUID></basicInfo><note><![CDATA[a<b]]></note><result value=\"0\"/>"
    "</getPoolInfo></pool><result value=\"0\" /></ostrelReply>";

TEST(TagPathSearch, FillsEveryFieldOfTheElement) {
    const std::string text = "<a><b c = \"12\">345</b></a>";
    XML_ElementInfo_s info;
    ASSERT_EQ(TXML::MOSTREL_GetSpecificTemplate("<a><b>", text.size(), text.data(), info), 0);
    EXPECT_EQ(info.nameEnd - text.data(), 5);
    EXPECT_EQ(info.elementEnd - text.data(), 21);
    EXPECT_EQ(info.contentStart - text.data(), 15);
    EXPECT_EQ(info.contentEnd - text.data(), 17);
    EXPECT_EQ(info.contentLength, 3U);
    ASSERT_EQ(TXML::XML_GetTagAttribute("c", info), 0);
    EXPECT_EQ(info.attributeValueStart - text.data(), 11);
    EXPECT_EQ(info.attributeValueEnd - text.data(), 12);
    EXPECT_EQ(info.attributeValueLength, 2U);
}

TEST(TagPathSearch, LeavesASelfClosingElementWithoutContent) {
    const std::string text = "<a><b/></a>";
    XML_ElementInfo_s info;
    ASSERT_EQ(TXML::MOSTREL_GetSpecificTemplate("<a><b>", text.size(), text.data(), info), 0);
    EXPECT_EQ(info.contentStart, nullptr);
    EXPECT_EQ(info.contentEnd, nullptr);
    EXPECT_EQ(info.contentLength, 0U);
    EXPECT_EQ(info.elementEnd - text.data(), 6);
}

TEST(TagPathSearch, StartsFromTheWholeText) {
    const std::string text = "<a/>";
    XML_ElementInfo_s info;
    ASSERT_EQ(TXML::MOSTREL_GetSpecificTemplate("", text.size(), text.data(), info), 0);
    EXPECT_EQ(info.contentStart, text.data());
    EXPECT_EQ(info.contentEnd, text.data() + 4);
    EXPECT_EQ(info.contentLength, 4U);
}

TEST(TagPathSearch, RefusesANameOf128BytesAndANullPath) {
    const std::string name127(127, 'n');
    const std::string text = "<" + name127 + ">1</" + name127 + ">";
    EXPECT_EQ(Search(("<" + name127 + ">").c_str(), text), (Found{0, "1"}));
    EXPECT_EQ(Search(("<" + name127 + "n>").c_str(), text), (Found{20004, "untouched"}));
    EXPECT_EQ(Search(nullptr, text), (Found{20008, "untouched"}));
}

TEST(TagPathSearch, NeverReadsBeyondATextCutAtAnyLength) {
    const char* path = "<ostrelReply><pool><getPoolInfo><basicInfo><poolState>";
    for (std::size_t length = 0; length <= kReply.size(); ++length) {
        const bool whole = length == kReply.size();
        EXPECT_EQ(Search(path, kReply.substr(0, length)),
                  (whole ? Found{0, "maintenance"} : kIncomplete))
            << length;
        const ExactText cut(kReply.substr(0, length));
        std::int64_t value = 7;
        EXPECT_EQ(
            TXML::MOSTREL_GetResultValueAttribute("<ostrelReply>", cut.size(), cut.begin(), value),
            whole ? 0 : 21703)
            << length;
    }
}

TEST(TagPathSearch, NeverReadsBeyondATextWithAnyByteExchanged) {
    for (std::size_t at = 0; at < kReply.size(); ++at) {
        for (const char character : {'<', '>', '/', '"', '=', ' ', '[', ']', '\0'}) {
            std::string text(kReply);
            text[at] = character;
            const Found found =
                Search("<ostrelReply><pool><getPoolInfo><basicInfo><poolState>", text);
            EXPECT_TRUE(found.status == 0 || found == kIncomplete) << at << character;
            EXPECT_LE(found.content.size(), text.size());
        }
    }
}

TEST(NextTagString, WalksThePathAndSaysWhenItIsDone) {
    const char* path = "<a><bc><d";
    char name[8] = "";
    const char* next = nullptr;
    ASSERT_EQ(TXML::MOSTREL_GetNextTagString(path, &next, sizeof name, name), 0);
    EXPECT_STREQ(name, "a");
    EXPECT_EQ(next, path + 2);
    ASSERT_EQ(TXML::MOSTREL_GetNextTagString(next, &next, sizeof name, name), 0);
    EXPECT_STREQ(name, "bc");
    ASSERT_EQ(TXML::MOSTREL_GetNextTagString(next, &next, sizeof name, name), 0);
    EXPECT_STREQ(name, "d");
    EXPECT_EQ(*next, '\0');
    EXPECT_EQ(TXML::MOSTREL_GetNextTagString(next, &next, sizeof name, name), 20005);
}

TEST(NextTagString, RefusesWhatDoesNotFit) {
    char name[3] = "";
    const char* next = nullptr;
    EXPECT_EQ(TXML::MOSTREL_GetNextTagString("<ab>", &next, sizeof name, name), 0);
    EXPECT_EQ(TXML::MOSTREL_GetNextTagString("<abc>", &next, sizeof name, name), 20004);
    EXPECT_EQ(TXML::MOSTREL_GetNextTagString("<a>", &next, 0, name), 20008);
    EXPECT_EQ(TXML::MOSTREL_GetNextTagString(nullptr, &next, sizeof name, name), 20008);
}

TEST(NextTag, StepsFromAnElementToTheNext) {
    const ExactText text("x<a>1</a><b/>");
    XML_ElementInfo_s info;
    const char* name = nullptr;
    std::size_t length = 0;
    ASSERT_EQ(TXML::XML_GetNextTag(text.begin(), text.end(), info, name, length), 0);
    EXPECT_EQ(std::string(name, length), "a");
    ASSERT_EQ(TXML::XML_GetNextTag(info.elementEnd + 1, text.end(), info, name, length), 0);
    EXPECT_EQ(std::string(name, length), "b");
    EXPECT_EQ(info.nameEnd, name + 1);
    EXPECT_EQ(TXML::XML_GetNextTag(info.elementEnd + 1, text.end(), info, name, length), 21703);
}

TEST(TagElement, IsFoundHoweverDeepItStands) {
    const ExactText text("<a><ab/><c><b>1</b></c></a>");
    XML_ElementInfo_s info;
    ASSERT_EQ(TXML::XML_GetTagElement(text.begin(), "b", text.end(), info), 0);
    EXPECT_EQ(std::string(info.contentStart, info.contentLength), "1");
    EXPECT_EQ(TXML::XML_GetTagElement(text.begin(), "d", text.end(), info), 21703);
}

TEST(TagPathSearch, KnowsCDATAOnlyAtTheElementsOwnLevel) {
    EXPECT_EQ(Search("<a>", "<a><b><![CDATA[x></a>]]></b></a>"), (Found{0, "<b><![CDATA[x>"}));
    EXPECT_EQ(Search("<a>", "<a><b>1</b><![CDATA[</a>]]></a>"),
              (Found{0, "<b>1</b><![CDATA[</a>]]>"}));
    EXPECT_EQ(Search("<a>", "<a><b>1</b><![CDATA[x></a>]]></a>"),
              (Found{0, "<b>1</b><![CDATA[x></a>]]>"}));
    EXPECT_EQ(Search("<a>", "<a><b/><![CDATA[</a>]]></a>"), (Found{0, "<b/><![CDATA[</a>]]>"}));
}

TEST(CDATA, IsRecognisedOnlyWhole) {
    const ExactText start("<![CDATA[");
    EXPECT_EQ(TXML::XML_atStartCDATA(start.begin(), start.end()), start.begin() + 8);
    EXPECT_EQ(TXML::XML_atStartCDATA(start.begin(), start.end() - 1), nullptr);
    EXPECT_EQ(TXML::XML_atStartCDATA(start.begin() + 1, start.end()), nullptr);
    const ExactText end("]]>");
    EXPECT_EQ(TXML::XML_atEndCDATA(end.begin(), end.end()), end.begin() + 2);
    EXPECT_EQ(TXML::XML_atEndCDATA(end.begin(), end.end() - 1), nullptr);
    EXPECT_EQ(TXML::XML_atEndCDATA(end.begin() + 1, end.end()), nullptr);
}

TEST(CDATA, WrapperIsStripped) {
    const auto stripped = [](std::string_view text) {
        const ExactText exact(text);
        return std::string(TXML::XML_stripCDATA(exact.begin(), exact.end()));
    };
    EXPECT_EQ(stripped("<![CDATA[x<y]]>"), "x<y");
    EXPECT_EQ(stripped("plain"), "plain");
    EXPECT_EQ(stripped("<![CDATA[]]"), "");
    EXPECT_EQ(stripped("<![CDATA["), "");
    EXPECT_EQ(stripped(""), "");
}

TEST(WhiteSpace, CursorStopsAtTheEnd) {
    const ExactText text(" \t\nab c");
    const char* cursor = text.begin();
    TXML::XML_skipWhiteSpace(cursor, text.end());
    EXPECT_EQ(cursor - text.begin(), 3);
    TXML::XML_findEndOfNonWhiteSpace(cursor, text.end());
    EXPECT_EQ(cursor - text.begin(), 4);
    cursor = text.begin() + 6;
    TXML::XML_findEndOfNonWhiteSpace(cursor, text.end());
    EXPECT_EQ(cursor, text.end() - 1);
    const ExactText blanks("   ");
    cursor = blanks.begin();
    TXML::XML_skipWhiteSpace(cursor, blanks.end());
    EXPECT_EQ(cursor, blanks.end());
}

TEST(Display, LogsTheTextAsOneLine) {
    const support::CapturedLog log;
    const ExactText text("<a>1</a>");
    TXML::XML_Display(text.begin(), text.end());
    EXPECT_EQ(log.Text(), "<a>1</a>\n");
}

struct NumberRow {
    const char* name;
    std::string text;
    int status;
    std::uint64_t value;
};

class NumberConversion : public testing::TestWithParam<NumberRow> {};

TEST_P(NumberConversion, FollowsThePrefixAndStopsAtTheFirstOtherByte) {
    const NumberRow& row = GetParam();
    const ExactText text(row.text);
    std::uint64_t value = 4711;
    EXPECT_EQ(TXML::XML_UTF8ToQUAD(text.begin(), text.end(), value), row.status);
    EXPECT_EQ(value, row.status == 0 ? row.value : 4711);
    std::int64_t signedValue = 4711;
    EXPECT_EQ(TXML::XML_UTF8ToSQUAD(text.begin(), text.end(), signedValue), row.status);
    EXPECT_EQ(signedValue, static_cast<std::int64_t>(row.status == 0 ? row.value : 4711));
}

INSTANTIATE_TEST_SUITE_P(
    Texts, NumberConversion,
    testing::Values(NumberRow{"Decimal", "20401", 0, 20401}, NumberRow{"Hex", "0x10", 0, 16},
                    NumberRow{"Octal", "010", 0, 8}, NumberRow{"Blanks", " 12 ", 0, 12},
                    NumberRow{"MinusOne", "-1", 0, ~std::uint64_t{0}},
                    NumberRow{"TrailingBytes", "20401)", 0, 20401},
                    NumberRow{"NoDigits", "abc)", 0, 0}, NumberRow{"Empty", "", 20150, 0},
                    NumberRow{"OnlyBlanks", " \t\n", 20150, 0},
                    NumberRow{"Run79", std::string(79, '0'), 0, 0},
                    NumberRow{"Run80", std::string(80, '0'), 20004, 0},
                    NumberRow{"Run2000", " " + std::string(2000, '0'), 20004, 0}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(NumberConversion, TellsWhereTheRunEnds) {
    const ExactText text(" 12ab 3");
    std::uint64_t value = 0;
    const char* next = nullptr;
    ASSERT_EQ(TXML::XML_UTF8ToQUAD(text.begin(), text.end(), value, &next), 0);
    EXPECT_EQ(next - text.begin(), 5);
    ASSERT_EQ(TXML::XML_UTF8ToQUAD(next, text.end(), value, &next), 0);
    EXPECT_EQ(value, 3U);
    EXPECT_EQ(next, text.end());
}

TEST(NumberConversion, RefusesAStartBeyondTheEnd) {
    const ExactText text("12");
    std::uint64_t value = 5;
    EXPECT_EQ(TXML::XML_UTF8ToQUAD(text.end(), text.begin(), value), 20150);
    EXPECT_EQ(value, 5U);
}

struct AttributeRow {
    const char* name;
    const char* text;
    Found found;
};

class AttributeLookup : public testing::TestWithParam<AttributeRow> {};

TEST_P(AttributeLookup, YieldsTheValueOrSaysWhatIsMissing) {
    const ExactText text(GetParam().text);
    Found found{0, "untouched"};
    found.status =
        TXML::MOSTREL_GetAttribute("<a>", "<b>", "value", text.size(), text.begin(), found.content);
    EXPECT_EQ(found, GetParam().found);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, AttributeLookup,
    testing::Values(AttributeRow{"Plain", "<a><b value=\"1\">x</b></a>", {0, "1"}},
                    AttributeRow{"SelfClosing", "<a><b value=\"1\"/></a>", {0, "1"}},
                    AttributeRow{"BlanksAroundTheSign", "<a><b value \t= \n\"1\"/></a>", {0, "1"}},
                    AttributeRow{"Second", "<a><b x=\"7\" value=\"1\"/></a>", {0, "1"}},
                    AttributeRow{"Empty", "<a><b value=\"\"/></a>", {0, ""}},
                    AttributeRow{"EntitiesKept", "<a><b value=\"&lt;\"/></a>", {0, "&lt;"}},
                    AttributeRow{"TailOfALongerName", "<a><b oldvalue=\"1\"/></a>", {0, "1"}},
                    AttributeRow{"NameFoundTwice", "<a><b valuevalue=\"1\"/></a>", {0, "1"}},
                    AttributeRow{"HeadOfALongerName", "<a><b valued=\"1\"/></a>", kIncomplete},
                    AttributeRow{"SingleQuotes", "<a><b value='1'/></a>", kIncomplete},
                    AttributeRow{"NoQuotes", "<a><b value=1/></a>", kIncomplete},
                    AttributeRow{"NoClosingQuote", "<a><b value=\"1/></a>", kIncomplete},
                    AttributeRow{"NoSign", "<a><b value/></a>", kIncomplete},
                    AttributeRow{"NothingBehindTheSign", "<a><b value=/></a>", kIncomplete},
                    AttributeRow{"NoAttributes", "<a><b>value=\"1\"</b></a>", kIncomplete},
                    AttributeRow{"OtherAttribute", "<a><b x=\"1\"/></a>", kIncomplete},
                    AttributeRow{"NoElement", "<a><c value=\"1\"/></a>", kIncomplete}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(AttributeLookup, FindsNothingWhereThereIsNoStartTag) {
    const ExactText text("value=\"1\"");
    std::string value;
    EXPECT_EQ(TXML::MOSTREL_GetAttribute("", "", "value", text.size(), text.begin(), value), 21703);
}

TEST(NumericAttribute, IsReadSignedAndUnsigned) {
    const ExactText text("<a><b c=\"-2\" d=\"\" e=\"0xFFFFFFFFFFFFFFFF\"/></a>");
    std::int64_t value = 5;
    EXPECT_EQ(TXML::MOSTREL_GetAttribute("<a>", "<b>", "c", text.size(), text.begin(), value), 0);
    EXPECT_EQ(value, -2);
    EXPECT_EQ(TXML::MOSTREL_GetAttribute("<a>", "<b>", "d", text.size(), text.begin(), value),
              20150);
    EXPECT_EQ(TXML::MOSTREL_GetAttribute("<a>", "<x>", "c", text.size(), text.begin(), value),
              21703);
    std::uint64_t wide = 5;
    EXPECT_EQ(
        TXML::MOSTREL_GetTagAttributeAttribute("<a>", "<b>", "e", text.size(), text.begin(), wide),
        0);
    EXPECT_EQ(wide, ~std::uint64_t{0});
    EXPECT_EQ(
        TXML::MOSTREL_GetTagAttributeAttribute("<a>", "<b>", "f", text.size(), text.begin(), wide),
        21703);
}

TEST(Templates, FindASecondPathInsideTheFirst) {
    const ExactText text("<a><b><c>1</c></b><result value=\"3\"/></a>");
    XML_ElementInfo_s info;
    ASSERT_EQ(TXML::MOSTREL_GetTagTemplate("<a>", "<b><c>", text.size(), text.begin(), info), 0);
    EXPECT_EQ(std::string(info.contentStart, info.contentLength), "1");
    ASSERT_EQ(TXML::MOSTREL_GetTemplate("<a>", "<b>", text.size(), text.begin(), info), 0);
    EXPECT_EQ(std::string(info.contentStart, info.contentLength), "<c>1</c>");
    EXPECT_EQ(TXML::MOSTREL_GetTagTemplate("<a>", "<c>", text.size(), text.begin(), info), 21703);
    ASSERT_EQ(TXML::MOSTREL_GetResultTemplate("<a>", text.size(), text.begin(), info), 0);
    EXPECT_EQ(TXML::XML_GetTagAttribute("value", info), 0);
    EXPECT_EQ(TXML::MOSTREL_GetResultTemplate("<a><b>", text.size(), text.begin(), info), 21703);
}

TEST(TagContents, AreFilledTogether) {
    const std::string text = "<a><b>1</b><c><d>2</d></c></a>";
    XML_ElementInfo_s info;
    ASSERT_EQ(TXML::MOSTREL_GetSpecificTemplate("<a>", text.size(), text.data(), info), 0);
    const char* const all[] = {"<b>", "<c><d>"};
    std::vector<std::string> contents{"old"};
    EXPECT_EQ(TXML::MOSTREL_GetTagContents(info, all, contents), 0);
    EXPECT_EQ(contents, (std::vector<std::string>{"1", "2"}));
    const char* const some[] = {"<b>", "<x>", "<c>"};
    EXPECT_EQ(TXML::MOSTREL_GetTagContents(info, some, contents), 21703);
    EXPECT_EQ(contents, (std::vector<std::string>{"1", "", "<d>2</d>"}));
}

}  // namespace
