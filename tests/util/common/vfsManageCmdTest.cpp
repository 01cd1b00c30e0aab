#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "tests/support/cannedService.h"
#include "tests/support/capturedLog.h"
#include "tests/support/thrown.h"
#include "util/common/ostrelVFS.h"

namespace {

constexpr const char* kGUID = "12345678-9abc-0def-80-01-0a0b0c0d0e0f";

/// A command object that traces replies.
class TracingCommand : public VFSManageCmd {
  public:
    TracingCommand() { SetCommandFlags(6 | kTraceReplies); }
};

class Queries : public testing::Test {
  protected:
    std::string PoolState(const std::string& reply) {
        service_.replies = {reply};
        std::string state;
        VFSManageCmd().GetPoolState("P", state);
        return state;
    }

    Thrown PoolIDFailure(const std::string& reply) {
        service_.replies = {reply};
        return ThrownBy([] {
            GUID_t id{};
            VFSManageCmd().GetPoolID("P", &id);
        });
    }

    Thrown VolumeIDFailure(const std::string& reply) {
        service_.replies = {reply};
        return ThrownBy([] {
            GUID_t id{};
            VFSManageCmd().GetVolumeID("V", &id);
        });
    }

    CannedService service_;
    support::CapturedLog log_;
};

TEST_F(Queries, UseTheCommandDataStreamOfTheManagementFile) {
    const VFSManageCmd command;
    EXPECT_EQ(command.Flags(), 4U);
    EXPECT_EQ(service_.opened, (std::vector<std::string>{"/_admin/Manage_OSTREL/manage.cmd r+"}));
    EXPECT_EQ(service_.requests.back(), "<virtualIO><datastream name=\"command\"/></virtualIO>");
    const VFSManageCmd remote(0, "srv");
    EXPECT_EQ(remote.Flags(), 6U);
    EXPECT_EQ(remote.Path(), "//srv/_admin/Manage_OSTREL/manage.cmd");
}

TEST_F(Queries, PoolInfoRequestHasTheStrayBracketBeforeItsType) {
    PoolState(PoolReply("active", kGUID));
    EXPECT_EQ(service_.requests.back(),
              "<ostrelRequest><pool><getPoolInfo> type=\"basic\"><poolName>P</poolName>"
              "</getPoolInfo></pool></ostrelRequest>");
}

TEST_F(Queries, VolumeInfoRequestHasTheStrayBracketBeforeItsType) {
    service_.replies = {VolumeInfoReply("<volumeState>active</volumeState>")};
    std::string state;
    VFSManageCmd().GetVolumeState("V<&", state);
    EXPECT_EQ(service_.requests.back(),
              "<ostrelRequest><volume><getVolumeInfo> type=\"basic\"><volumeName>V<&</volumeName>"
              "</getVolumeInfo></volume></ostrelRequest>");
    EXPECT_EQ(state, "active");
}

TEST_F(Queries, MountedReadsAsActiveAndNoOtherWordIsChanged) {
    const struct {
        const char* said;
        const char* read;
        unsigned number;
    } words[] = {{"mounted", "active", 6},        {"active", "active", 6},
                 {"deactive", "deactive", 2},     {"maintenance", "maintenance", 3},
                 {"Mounted", "Mounted", 0},       {"mounted ", "mounted ", 0},
                 {"unheard-of", "unheard-of", 0}, {"", "", 0}};
    for (const auto& word : words) {
        EXPECT_EQ(PoolState(PoolReply(word.said, kGUID)), word.read);
        unsigned number = 99;
        VFSManageCmd().GetPoolState("P", &number);
        EXPECT_EQ(number, word.number) << word.said;

        service_.replies = {
            VolumeInfoReply("<volumeState>" + std::string(word.said) + "</volumeState>")};
        std::string state;
        VFSManageCmd().GetVolumeState("V", state);
        EXPECT_EQ(state, word.read);
        VFSManageCmd().GetVolumeState("V", &number);
        EXPECT_EQ(number, word.number) << word.said;
    }
    EXPECT_EQ(log_.Text(), "");
}

TEST_F(Queries, IdentifierComesAsTextAndAsGUID) {
    service_.replies = {PoolReply("active", kGUID)};
    VFSManageCmd command;
    std::string text;
    command.GetPoolID("P", text);
    EXPECT_EQ(text, kGUID);
    GUID_t id{};
    command.GetPoolID("P", &id);
    EXPECT_EQ(id.timeLow, 0x12345678U);
    EXPECT_EQ(id.node[5], 0x0f);
    service_.replies = {VolumeInfoReply("<volumeGUID>" + std::string(kGUID) + "</volumeGUID>")};
    command.GetVolumeID("V", text);
    EXPECT_EQ(text, kGUID);
    id = {};
    command.GetVolumeID("V", &id);
    EXPECT_EQ(id.timeLow, 0x12345678U);
}

TEST_F(Queries, AnExchangeGivesTheReplyAndWhatItsPathEndsAt) {
    const std::string pool = PoolReply("active", kGUID);
    const std::string volume = VolumeInfoReply("<volumeState>mounted</volumeState>");
    VFSManageCmd command;
    std::string reply;
    std::string value;
    service_.replies = {pool};
    command.PoolGetBasicInfoT("asked", "<ostrelReply><pool><getPoolInfo><basicInfo><poolGUID>",
                              reply, value);
    EXPECT_EQ(service_.requests.back(), "asked");
    EXPECT_EQ(reply, pool);
    EXPECT_EQ(value, kGUID);
    service_.replies = {volume};
    reply.clear();
    command.VolumeGetBasicInfoT(
        "again", "<ostrelReply><volume><getVolumeInfo><basicInfo><volumeState>", reply, value);
    EXPECT_EQ(service_.requests.back(), "again");
    EXPECT_EQ(reply, volume);
    EXPECT_EQ(value, "mounted");
}

TEST_F(Queries, ReplyAroundTheChunkSizeIsReadWhole) {
    const std::string bare = PoolReply("", kGUID);
    for (const std::size_t size : {2047U, 2048U, 2049U, 4095U, 4096U, 4097U, 9000U}) {
        const std::string state(size - bare.size(), 's');
        EXPECT_EQ(PoolReply(state, kGUID).size(), size);
        EXPECT_EQ(PoolState(PoolReply(state, kGUID)), state) << size;
    }
}

TEST_F(Queries, ZeroByteCutsItsChunkOff) {
    std::string reply = PoolReply("active", kGUID);
    reply.resize(2048, ' ');
    reply.insert(2048, "behind");
    reply[reply.find("</ostrelReply>") + 14] = '\0';
    EXPECT_EQ(PoolState(reply), "active");
    std::string cut = PoolReply("active", kGUID);
    cut[cut.find("active")] = '\0';
    EXPECT_EQ(PoolIDFailure(cut), AnAdminError("Unable to parse XML tag <ostrelReply>", 21703,
                                               "util/common/tXML[1159]"));
}

TEST_F(Queries, ReplyCutAtAnyLengthIsAnAdminError) {
    const std::string reply = PoolReply("maintenance", kGUID);
    for (std::size_t length = 0; length < reply.size(); ++length) {
        EXPECT_EQ(
            PoolIDFailure(reply.substr(0, length)),
            AnAdminError("Unable to parse XML tag <ostrelReply>", 21703, "util/common/tXML[1159]"))
            << length;
    }
    EXPECT_EQ(PoolIDFailure(reply), Thrown{});
}

TEST_F(Queries, TopLevelRefusalComesBeforeTheOperations) {
    EXPECT_EQ(PoolIDFailure("<ostrelReply><result value=\"20444\"/></ostrelReply>"),
              AnOstrelError("Reply results", 20444, "util/common/tXML[1169]"));
    EXPECT_EQ(PoolIDFailure("<ostrelReply><result value=\"4294967296\"/></ostrelReply>"),
              AnOstrelError("Value overflow", 20006, "util/common/tXML[1165]"));
    EXPECT_EQ(log_.Text(), "");
}

TEST_F(Queries, OperationsRefusalCarriesItsStatusAndLogsTheReply) {
    const std::string pool = PoolInfoReply("<poolGUID/>", "5");
    EXPECT_EQ(PoolIDFailure(pool),
              AnOstrelError("getPoolInfo results", 5, "util/common/tXML[1401]"));
    EXPECT_EQ(log_.Text(), "util/common/tXML[1400]" + pool + "\n");
    const std::string volume = VolumeInfoReply("<volumeGUID/>", "6");
    EXPECT_EQ(VolumeIDFailure(volume),
              AnOstrelError("getVolumeInfo results", 6, "util/common/tXML[1364]"));
    EXPECT_EQ(log_.Text(),
              "util/common/tXML[1400]" + pool + "\nutil/common/tXML[1363]" + volume + "\n");
}

TEST_F(Queries, MissingOperationResultIsAnAdminError) {
    EXPECT_EQ(
        PoolIDFailure("<ostrelReply><pool/><result value=\"0\"/></ostrelReply>"),
        AnAdminError("Unable to parse XML tag <getPoolInfo>", 21703, "util/common/tXML[1390]"));
    EXPECT_EQ(
        VolumeIDFailure("<ostrelReply><volume/><result value=\"0\"/></ostrelReply>"),
        AnAdminError("Unable to parse XML tag <getVolumeInfo>", 21703, "util/common/tXML[1353]"));
}

TEST_F(Queries, MissingValueIsAnAdminError) {
    EXPECT_EQ(PoolIDFailure(PoolInfoReply("<poolState>active</poolState>")),
              AnAdminError("Unable to parse XML tag <getPoolInfo>", 21703,
                           "util/common/ostrelVFS[1612]"));
    EXPECT_EQ(VolumeIDFailure(VolumeInfoReply("<volumeState>active</volumeState>")),
              AnAdminError("Unable to parse XML tag <getVolumeInfo>", 21703,
                           "util/common/ostrelVFS[1503]"));
}

TEST_F(Queries, GUIDThatDoesNotParseIsAnAdminError) {
    EXPECT_EQ(PoolIDFailure(PoolReply("active", "nonsense")),
              AnAdminError("Unable to parse Pool ID string", 20821, "util/common/ostrelVFS[1661]"));
    EXPECT_EQ(PoolIDFailure(PoolReply("active", " " + std::string(kGUID))),
              AnAdminError("Unable to parse Pool ID string", 20821, "util/common/ostrelVFS[1661]"));
    EXPECT_EQ(
        VolumeIDFailure(VolumeInfoReply("<volumeGUID>x</volumeGUID>")),
        AnAdminError("Unable to parse Volume ID string", 20821, "util/common/ostrelVFS[1519]"));
}

TEST_F(Queries, ChannelFailuresPassUp) {
    EXPECT_EQ(PoolIDFailure("<writeResult><error>no (20011)</error></writeResult>"),
              AnAdminError("Could not read because of a write error ", 20011,
                           "util/common/ostrelVFS[292]"));
    service_.readError = EIO;
    EXPECT_EQ(PoolIDFailure(""),
              AnAdminError("Could not read", 0, "util/common/ostrelVFS[269]", EIO));
    service_.openError = EACCES;
    EXPECT_EQ(PoolIDFailure(""), ARuntimeError("Could not open command file"));
}

TEST_F(Queries, VolumeStateChangeSendsTheWordAndChecksTheResult) {
    const auto reply = [](const char* result) {
        return std::string("<ostrelReply><volume><modifyState><result value=\"") + result +
               "\"/></modifyState></volume><result value=\"0\"/></ostrelReply>";
    };
    const auto change = [this](const std::string& text) {
        service_.replies = {text};
        return ThrownBy([] { VFSManageCmd().ChangeVolumeState("V", "deactive"); });
    };
    EXPECT_EQ(change(reply("0")), Thrown{});
    EXPECT_EQ(service_.requests.back(),
              "<ostrelRequest><volume><modifyState><volumeName>V</volumeName>"
              "<volumeState>deactive</volumeState></modifyState></volume></ostrelRequest>");
    EXPECT_EQ(log_.Text(), "");
    EXPECT_EQ(change(reply("20881")),
              AnOstrelError("modifyState results", 20881, "util/common/tXML[1327]"));
    EXPECT_EQ(log_.Text(), "util/common/tXML[1326]" + reply("20881") + "\n");
    EXPECT_EQ(
        change("<ostrelReply><result value=\"0\"/></ostrelReply>"),
        AnAdminError("Unable to parse XML tag <modifyState>", 21703, "util/common/tXML[1316]"));
    for (const std::size_t size : {1024U, 1025U, 2049U}) {
        const std::string padded = reply("0");
        EXPECT_EQ(change(std::string(size - padded.size(), ' ') + padded), Thrown{}) << size;
    }
}

TEST_F(Queries, TraceFlagLogsEveryReply) {
    TracingCommand command;
    const std::string pool = PoolReply("active", kGUID);
    const std::string volume = VolumeInfoReply("<volumeState>active</volumeState>");
    const std::string modify =
        "<ostrelReply><volume><modifyState><result value=\"0\"/></modifyState></volume>"
        "<result value=\"0\"/></ostrelReply>";
    service_.replies = {pool, volume, modify};
    std::string state;
    command.GetPoolState("P", state);
    command.GetVolumeState("V", state);
    command.ChangeVolumeState("V", "active");
    EXPECT_EQ(log_.Text(), "util/common/ostrelVFS[1603] -->" + pool +
                               "<--\nutil/common/ostrelVFS[1494] -->" + volume +
                               "<--\nutil/common/ostrelVFS[1433] -->" + modify + "<--\n");
}

}  // namespace
