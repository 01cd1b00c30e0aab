#include <gtest/gtest.h>

#include <string>

#include "tests/support/capturedLog.h"
#include "tests/support/thrown.h"
#include "util/common/tXML.h"

namespace {

struct ResultRow {
    const char* name;
    const char* result;
    int status;
    std::int64_t value;
};

class ResultAttribute : public testing::TestWithParam<ResultRow> {};

TEST_P(ResultAttribute, IsConvertedOrLeavesTheVariableAlone) {
    const std::string text = std::string("<r>") + GetParam().result + "</r>";
    std::int64_t value = 77;
    EXPECT_EQ(TXML::MOSTREL_GetResultValueAttribute("<r>", text.size(), text.data(), value),
              GetParam().status);
    EXPECT_EQ(value, GetParam().value);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, ResultAttribute,
    testing::Values(ResultRow{"Hexadecimal", "<result value=\"0x10\"/>", 0, 16},
                    ResultRow{"BlanksAround", "<result value=\" 12 \"/>", 0, 12},
                    ResultRow{"Empty", "<result value=\"\"/>", 0, 77},
                    ResultRow{"OnlyBlanks", "<result value=\"  \"/>", 0, 77},
                    ResultRow{"NoAttribute", "<result/>", 0, 77},
                    ResultRow{"Negative", "<result value=\"-1\">x</result>", 0, -1},
                    ResultRow{"NoResult", "<x value=\"1\"/>", 21703, 77}),
    [](const auto& row) { return std::string(row.param.name); });

/// A reply whose result below `path` is that element.
std::string ReplyWith(const std::string& path, const std::string& result) {
    std::string reply = path + result;
    for (std::size_t open = path.rfind('<'); open != std::string::npos;
         open = open > 0 ? path.rfind('<', open - 1) : std::string::npos) {
        reply += "</" + path.substr(open + 1, path.find('>', open) - open);
    }
    return reply;
}

std::string Value(const std::string& value) {
    return "<result value=\"" + value + "\"/>";
}

struct CheckRow {
    const char* name;
    void (*check)(const std::string& reply);
    const char* path;
    const char* parseMessage;
    const char* parsePosition;
    const char* overflowPosition;
    const char* echoPosition;  ///< null for a check that does not log the reply
    const char* resultMessage;
    const char* resultPosition;
};

class ReplyCheck : public testing::TestWithParam<CheckRow> {
  protected:
    Thrown Check(const std::string& result) {
        return ThrownBy([&] { GetParam().check(ReplyWith(GetParam().path, result)); });
    }

    support::CapturedLog log_;
};

TEST_P(ReplyCheck, LetsASuccessPass) {
    EXPECT_EQ(Check(Value("0")), Thrown{});
    EXPECT_EQ(Check("<result/>"), Thrown{});
    EXPECT_EQ(Check(Value("")), Thrown{});
    EXPECT_EQ(log_.Text(), "");
}

TEST_P(ReplyCheck, ThrowsAnAdminErrorForAReplyWithoutItsResult) {
    EXPECT_EQ(Check("<other/>"),
              AnAdminError(GetParam().parseMessage, 21703, GetParam().parsePosition));
    EXPECT_EQ(ThrownBy([] { GetParam().check(""); }),
              AnAdminError(GetParam().parseMessage, 21703, GetParam().parsePosition));
    EXPECT_EQ(log_.Text(), "");
}

TEST_P(ReplyCheck, ThrowsValueOverflowBeyond32Bits) {
    const Thrown overflow = AnOstrelError("Value overflow", 20006, GetParam().overflowPosition);
    EXPECT_EQ(Check(Value("4294967296")), overflow);
    EXPECT_EQ(Check(Value("2147483648")), overflow);
    EXPECT_EQ(Check(Value("-2147483649")), overflow);
    EXPECT_EQ(log_.Text(), "");
}

TEST_P(ReplyCheck, ThrowsTheServicesStatusForARefusal) {
    const auto refusal = [](std::int32_t status) {
        return AnOstrelError(GetParam().resultMessage, status, GetParam().resultPosition);
    };
    EXPECT_EQ(Check(Value("5")), refusal(5));
    const std::string echo =
        GetParam().echoPosition != nullptr
            ? GetParam().echoPosition + ReplyWith(GetParam().path, Value("5")) + "\n"
            : "";
    EXPECT_EQ(log_.Text(), echo);
    EXPECT_EQ(Check(Value("2147483647")), refusal(2147483647));
    EXPECT_EQ(Check(Value("-2147483648")), refusal(-2147483647 - 1));
}

INSTANTIATE_TEST_SUITE_P(
    Checks, ReplyCheck,
    testing::Values(
        CheckRow{"OstrelReply", TXML::GetOstrelReplyResultValueT, "<ostrelReply>",
                 "Unable to parse XML tag <ostrelReply>", "util/common/tXML[1159]",
                 "util/common/tXML[1165]", nullptr, "Reply results", "util/common/tXML[1169]"},
        CheckRow{"PoolInfo", TXML::GetPoolBasicInfoReplyResultValueT,
                 "<ostrelReply><pool><getPoolInfo>", "Unable to parse XML tag <getPoolInfo>",
                 "util/common/tXML[1390]", "util/common/tXML[1396]", "util/common/tXML[1400]",
                 "getPoolInfo results", "util/common/tXML[1401]"},
        CheckRow{"VolumeInfo", TXML::GetVolumeBasicInfoReplyResultValueT,
                 "<ostrelReply><volume><getVolumeInfo>", "Unable to parse XML tag <getVolumeInfo>",
                 "util/common/tXML[1353]", "util/common/tXML[1359]", "util/common/tXML[1363]",
                 "getVolumeInfo results", "util/common/tXML[1364]"},
        CheckRow{"ModifyState", TXML::GetVolumeModifyStateReplyResultValueT,
                 "<ostrelReply><volume><modifyState>", "Unable to parse XML tag <modifyState>",
                 "util/common/tXML[1316]", "util/common/tXML[1322]", "util/common/tXML[1326]",
                 "modifyState results", "util/common/tXML[1327]"},
        CheckRow{"PoolVerify", TXML::GetPoolVerifyReplyResultValueT,
                 "<ostrelReply><pool><poolVerify>", "Unable to parse XML tag <poolVerify>",
                 "util/common/tXML[1279]", "util/common/tXML[1285]", "util/common/tXML[1289]",
                 "poolVerify results", "util/common/tXML[1290]"},
        CheckRow{
            "ArbitraryTag",
            [](const std::string& reply) { TXML::GetReplyResultValueForTag(reply, "<pool><x>"); },
            "<ostrelReply><pool><x>", "Unable to parse XML tag <ostrelReply><pool><x>",
            "util/common/tXML[1159]", "util/common/tXML[1165]", nullptr, "Reply results",
            "util/common/tXML[1169]"}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(GenericReplyCheck, CutsItsMessageAt255Bytes) {
    const std::string path = "<" + std::string(100, 'a') + "><" + std::string(100, 'b') + "><" +
                             std::string(100, 'c') + ">";
    const std::string message = ("Unable to parse XML tag " + path).substr(0, 255);
    EXPECT_EQ(ThrownBy([&] { TXML::GetReplyResultValueT("", path.c_str()); }),
              AnAdminError(message.c_str(), 21703, "util/common/tXML[1159]"));
}

TEST(ReplyResultValue, IsReturnedWithoutThrowing) {
    int value = 77;
    EXPECT_EQ(TXML::GetOstrelReplyResultValue(ReplyWith("<ostrelReply>", Value("20401")), value),
              0);
    EXPECT_EQ(value, 20401);
    EXPECT_EQ(TXML::GetOstrelReplyResultValue(ReplyWith("<ostrelReply>", Value("-2")), value), 0);
    EXPECT_EQ(value, -2);
    EXPECT_EQ(TXML::GetOstrelReplyResultValue(ReplyWith("<ostrelReply>", "<result/>"), value), 0);
    EXPECT_EQ(value, 0);
    value = 77;
    EXPECT_EQ(
        TXML::GetOstrelReplyResultValue(ReplyWith("<ostrelReply>", Value("4294967296")), value),
        20006);
    EXPECT_EQ(TXML::GetOstrelReplyResultValue("<ostrelReply/>", value), 21703);
    EXPECT_EQ(value, 77);
}

TEST(ReplyResultValue, OfAVerifyCommandIsItsOwn) {
    int value = 77;
    const std::string reply = ReplyWith("<ostrelReply><pool><poolVerify>", Value("9"));
    EXPECT_EQ(TXML::GetPoolVerifyReplyResultValue(reply, value), 0);
    EXPECT_EQ(value, 9);
    EXPECT_EQ(TXML::GetPoolVerifyReplyResultValue("<ostrelReply><pool/></ostrelReply>", value),
              21703);
}

}  // namespace
