#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "tests/support/cannedService.h"
#include "tests/support/capturedLog.h"
#include "tests/support/thrown.h"
#include "util/common/ostrelVFS.h"
#include "util/common/ravCommands.h"

namespace {

std::string VerifyReply(const std::string& inside, const std::string& result = "0") {
    return "<ostrelReply><pool><poolVerify>" + inside + "<result value=\"" + result +
           "\"/></poolVerify></pool><result value=\"0\"/></ostrelReply>";
}

std::string Request(const std::string& inside) {
    return "<ostrelRequest><pool><poolVerify>" + inside + "</poolVerify></pool></ostrelRequest>";
}

struct StatusRow {
    const char* name;
    std::function<std::int32_t(VFSManageCmd&)> read;
    const char* details;
    std::uint32_t action;
    const char* element;
    const char* obtain;
    const char* obtainPosition;
    const char* parse;
    const char* parsePosition;
};

void PrintTo(const StatusRow& row, std::ostream* stream) {
    *stream << row.name;
}

class StatusReader : public testing::TestWithParam<StatusRow> {
  protected:
    Thrown Failure(const std::string& inside) {
        service_.replies = {VerifyReply(inside)};
        VFSManageCmd command;
        return ThrownBy([&] { GetParam().read(command); });
    }

    /// The details with that value in the element that is read.
    static std::string Entry(const std::string& value) {
        const std::string name(GetParam().element);
        return Details("<" + name + " value=\"" + value + "\"/><finalStatusSetter value=\"9\"/>");
    }

    static std::string Details(const std::string& inside) {
        const std::string name(GetParam().details);
        return "<" + name + "><entry>" + inside + "</entry><entry/></" + name + ">";
    }

    Thrown Unobtained() {
        return AnOstrelError(GetParam().obtain, 21703, GetParam().obtainPosition);
    }

    CannedService service_;
    support::CapturedLog log_;
};

TEST_P(StatusReader, ReadsTheFirstEntryOfTheDetails) {
    service_.replies = {VerifyReply(Entry("20010"))};
    VFSManageCmd command;
    EXPECT_EQ(GetParam().read(command), 20010);
    EXPECT_EQ(service_.requests.back(), Request("<userKey>5</userKey><action>" +
                                                std::to_string(GetParam().action) + "</action>"));
    service_.replies = {VerifyReply(Entry("-1"))};
    EXPECT_EQ(GetParam().read(command), -1);
    EXPECT_EQ(log_.Text(), "");
}

TEST_P(StatusReader, SaysWhenTheJobIsNotFound) {
    EXPECT_EQ(Failure(""), Unobtained());
    EXPECT_EQ(log_.Text(), "util/common/ostrelVFS[688] Matching operation key not found\n");
}

TEST_P(StatusReader, SaysWhenTheElementIsNotThere) {
    EXPECT_EQ(Failure(Details("<other/>")), Unobtained());
    EXPECT_EQ(log_.Text(), "");
}

TEST_P(StatusReader, SaysWhenTheValueIsNoNumberOf32Bits) {
    const auto unparsed = [](std::int32_t status) {
        return AnOstrelError(GetParam().parse, status, GetParam().parsePosition);
    };
    EXPECT_EQ(Failure(Entry("")), unparsed(20150));
    EXPECT_EQ(Failure(Entry("4294967296")), unparsed(20006));
    EXPECT_EQ(Failure(Details("<" + std::string(GetParam().element) + "/>")), unparsed(21703));
}

std::int32_t setter;

StatusRow StatusRowOf(const char* name, std::function<std::int32_t(VFSManageCmd&)> read) {
    return {name,
            std::move(read),
            "verifyDetails",
            3,
            "ravStatus",
            "Could not obtain rav thread status",
            "util/common/ostrelVFS[534]",
            "Could not parse rav thread status",
            "util/common/ostrelVFS[541]"};
}

StatusRow FinalRowOf(const char* name, std::function<std::int32_t(VFSManageCmd&)> read) {
    return {name,
            std::move(read),
            "verifyDetails",
            3,
            "finalStatus",
            "Could not obtain rav thread final status",
            "util/common/ostrelVFS[582]",
            "Could not parse rav thread final status",
            "util/common/ostrelVFS[589]"};
}

StatusRow StateRowOf(const char* name, std::function<std::int32_t(VFSManageCmd&)> read) {
    return {name,
            std::move(read),
            "verifyDetails",
            3,
            "state",
            "Could not obtain rav thread state",
            "util/common/ostrelVFS[645]",
            "Could not parse rav thread state",
            "util/common/ostrelVFS[652]"};
}

StatusRow OfRebuild(StatusRow row) {
    row.details = "rebuildDetails";
    row.action = 4;
    return row;
}

INSTANTIATE_TEST_SUITE_P(
    Readers, StatusReader,
    testing::Values(StatusRowOf("VerifyStatus",
                                [](VFSManageCmd& command) {
                                    return command.PoolVerifyStatusFromCommonLayer(5);
                                }),
                    OfRebuild(StatusRowOf("RebuildStatus",
                                          [](VFSManageCmd& command) {
                                              return command.PoolRebuildStatusFromCommonLayer(5);
                                          })),
                    FinalRowOf("VerifyFinalStatus",
                               [](VFSManageCmd& command) {
                                   return command.PoolVerifyFinalStatusFromCommonLayer(5, setter);
                               }),
                    OfRebuild(FinalRowOf("RebuildFinalStatus",
                                         [](VFSManageCmd& command) {
                                             return command.PoolRebuildFinalStatusFromCommonLayer(
                                                 5, setter);
                                         })),
                    StateRowOf("VerifyState",
                               [](VFSManageCmd& command) {
                                   return command.PoolVerifyStateFromCommonLayer(5);
                               }),
                    OfRebuild(StateRowOf("RebuildState",
                                         [](VFSManageCmd& command) {
                                             return command.PoolRebuildStateFromCommonLayer(5);
                                         }))),
    [](const auto& row) { return std::string(row.param.name); });

TEST(FinalStatus, ComesWithItsSetter) {
    CannedService service;
    service.replies = {VerifyReply(
        "<verifyDetails><entry><finalStatus value=\"20010\"/><finalStatusSetter value=\"42\"/>"
        "</entry></verifyDetails>")};
    std::int32_t who = 0;
    EXPECT_EQ(VFSManageCmd().PoolVerifyFinalStatusFromCommonLayer(5, who), 20010);
    EXPECT_EQ(who, 42);
    const auto failure = [&](const std::string& entry) {
        service.replies = {
            VerifyReply("<verifyDetails><entry>" + entry + "</entry></verifyDetails>")};
        return ThrownBy([&] { VFSManageCmd().PoolVerifyFinalStatusFromCommonLayer(5, who); });
    };
    EXPECT_EQ(failure("<finalStatus value=\"1\"/>"),
              AnOstrelError("Could not obtain rav thread final status", 21703,
                            "util/common/ostrelVFS[597]"));
    EXPECT_EQ(failure("<finalStatus value=\"1\"/><finalStatusSetter/>"),
              AnOstrelError("Could not parse rav thread final status", 21703,
                            "util/common/ostrelVFS[604]"));
}

}  // namespace
