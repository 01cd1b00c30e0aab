#include <gtest/gtest.h>

#include <cerrno>
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

TEST(Actions, HaveTheirNumbers) {
    EXPECT_EQ(kRAVVerifyStart, 1U);
    EXPECT_EQ(kRAVRebuildStart, 2U);
    EXPECT_EQ(kRAVVerifyDetails, 3U);
    EXPECT_EQ(kRAVRebuildDetails, 4U);
    EXPECT_EQ(kRAVRemoveItem, 5U);
    EXPECT_EQ(kRAVSetOptions, 6U);
    EXPECT_EQ(kRAVReverseNameLookup, 7U);
    EXPECT_EQ(kRAVVersionInformation, 8U);
    EXPECT_EQ(kRAVPause, 9U);
    EXPECT_EQ(kRAVResume, 10U);
    EXPECT_EQ(kRAVCancel, 11U);
}

constexpr std::uint64_t kKey = 18446744073709551615U;
constexpr GUID_t kVolume{0x12345678, 0x9abc, 0x0def, 0x80, 1, {10, 11, 12, 13, 14, 15}};

/// A reply that satisfies every command.
const std::string kAllReply = VerifyReply(
    "<volume>VOL</volume><path>/a/b</path><userKey value=\"77\"/><versionMajor value=\"1\"/>"
    "<versionMinor value=\"2\"/><xmlVersionMajor value=\"3\"/><xmlVersionMinor value=\"4\"/>");

struct RequestRow {
    const char* name;
    std::function<void(VFSManageCmd&)> send;
    std::string inside;
};

void PrintTo(const RequestRow& row, std::ostream* stream) {
    *stream << row.name;
}

class RAVRequest : public testing::TestWithParam<RequestRow> {
  protected:
    CannedService service_;
    support::CapturedLog log_;
};

TEST_P(RAVRequest, IsSentByteForByte) {
    service_.replies = {kAllReply};
    VFSManageCmd command;
    GetParam().send(command);
    EXPECT_EQ(service_.requests.size(), 2U);
    EXPECT_EQ(service_.requests.back(), Request(GetParam().inside));
    EXPECT_EQ(log_.Text(), "");
}

TEST_P(RAVRequest, ThrowsTheServicesRefusal) {
    service_.replies = {VerifyReply("", "20010")};
    VFSManageCmd command;
    EXPECT_EQ(ThrownBy([&] { GetParam().send(command); }),
              AnOstrelError("poolVerify results", 20010, "util/common/tXML[1290]"));
    EXPECT_EQ(log_.Text(), "util/common/tXML[1289]" + service_.replies.front() + "\n");
}

template <typename Call>
RequestRow Row(const char* name, Call call, std::string inside) {
    return {name, call, std::move(inside)};
}

std::string reply;
std::uint64_t userKey;
char buffer[1024];

INSTANTIATE_TEST_SUITE_P(
    Commands, RAVRequest,
    testing::Values(
        Row(
            "ItemRemove",
            [](VFSManageCmd& command) { command.PoolRAVItemRemove(kKey, kRAVRemoveItem, 12, 3); },
            "<userKey>18446744073709551615</userKey><action>5</action><itemKey>12</itemKey>"
            "<itemType>3</itemType>"),
        Row(
            "Details",
            [](VFSManageCmd& command) {
                command.PoolRAVDetails(9, kRAVVerifyDetails, buffer, sizeof buffer, false);
            },
            "<userKey>9</userKey><action>3</action>"),
        Row(
            "DetailsMultiple",
            [](VFSManageCmd& command) {
                command.PoolRAVDetails(9, kRAVRebuildDetails, buffer, sizeof buffer, true);
            },
            "<userKey>9</userKey><action>4</action><multiple/>"),
        Row(
            "Action", [](VFSManageCmd& command) { command.PoolVerifyActions(kRAVPause, reply); },
            "<action>9</action>"),
        Row(
            "ActionOfAPool",
            [](VFSManageCmd& command) { command.PoolVerifyActions("P", kRAVResume, reply); },
            "<poolName>P</poolName><action>10</action>"),
        Row(
            "ActionOfAJob",
            [](VFSManageCmd& command) { command.PoolVerifyActions(kKey, kRAVCancel, reply); },
            "<userKey>18446744073709551615</userKey><action>11</action>"),
        Row(
            "ActionOfAFile",
            [](VFSManageCmd& command) {
                command.PoolVerifyActions(9, "log.xml", kRAVVerifyDetails, reply);
            },
            "<fileName>log.xml</fileName><userKey>9</userKey><action>3</action>"),
        Row(
            "ActionsSetPlain",
            [](VFSManageCmd& command) {
                command.PoolVerifyActionsSet(kRAVSetOptions, reply, false, false);
            },
            "<action>6</action>"),
        Row(
            "ActionsSetReset",
            [](VFSManageCmd& command) {
                command.PoolVerifyActionsSet(kRAVSetOptions, reply, true, false);
            },
            "<action>6</action><reset/>"),
        Row(
            "ActionsSetReconfigure",
            [](VFSManageCmd& command) {
                command.PoolVerifyActionsSet(kRAVSetOptions, reply, false, true);
            },
            "<action>6</action><reconfigure/>"),
        Row(
            "ActionsSetBoth",
            [](VFSManageCmd& command) {
                command.PoolVerifyActionsSet(kRAVSetOptions, reply, true, true);
            },
            "<action>6</action><reset/><reconfigure/>"),
        Row(
            "Set", [](VFSManageCmd& command) { command.RAVSet(9, "<x>1</x>"); },
            "<userKey>9</userKey><action>6</action><x>1</x>"),
        Row(
            "SetPruneStatus", [](VFSManageCmd& command) { command.RAVSetUIPruneStatus(9, 2); },
            "<userKey>9</userKey><action>6</action><uiPruneStatus>2</uiPruneStatus>"),
        Row(
            "SetOptions",
            [](VFSManageCmd& command) {
                command.RAVSetUIOptions(9, kRAVOptionReportWarnings | kRAVOptionKeepLog);
            },
            "<userKey>9</userKey><action>6</action><uiOptions>18</uiOptions>"),
        Row(
            "SetDebugLevel", [](VFSManageCmd& command) { command.RAVSetDebugLevel(9, 4294967295); },
            "<userKey>9</userKey><action>6</action><debugLevel>4294967295</debugLevel>"),
        Row(
            "ReverseNameLookup",
            [](VFSManageCmd& command) {
                std::string volume;
                std::string path;
                command.ReverseNameLookup(4096, 4, 1, kVolume, volume, path);
                EXPECT_EQ(volume, "VOL");
                EXPECT_EQ(path, "/a/b");
            },
            "<action>7</action><zid>4096</zid><nameSpace>4</nameSpace><nameType>1</nameType>"
            "<volumeID>12345678-9abc-0def-80-01-0a0b0c0d0e0f</volumeID>"),
        Row(
            "VerifyStart",
            [](VFSManageCmd& command) {
                command.PoolVerifyStartT("P", userKey, false, 5, 6);
                EXPECT_EQ(userKey, 77U);
            },
            "<action>1</action><poolName>P</poolName><uiOptions>5</uiOptions>"
            "<debugLevel>6</debugLevel>"),
        Row(
            "VerifyStartWithCrossValidation",
            [](VFSManageCmd& command) { command.PoolVerifyStartT("P", userKey, true, 5, 6); },
            "<action>1</action><poolName>P</poolName><uiOptions>5</uiOptions>"
            "<debugLevel>6</debugLevel><crossValidation/>"),
        Row(
            "RebuildStart",
            [](VFSManageCmd& command) {
                command.PoolRebuildStartT("P", userKey, 100, 5, 6, 7, 0);
                EXPECT_EQ(userKey, 77U);
            },
            "<action>2</action><poolName>P</poolName><rezidThreshold>100</rezidThreshold>"
            "<uiOptions>5</uiOptions><debugLevel>6</debugLevel><fileLossMax>7</fileLossMax>"),
        Row(
            "RebuildStartPurging",
            [](VFSManageCmd& command) {
                command.PoolRebuildStartT("P", userKey, 1, 0, 0, 0, kRAVRebuildPurge);
            },
            "<action>2</action><poolName>P</poolName><rezidThreshold>1</rezidThreshold>"
            "<uiOptions>0</uiOptions><debugLevel>0</debugLevel><fileLossMax>0</fileLossMax>"
            "<purge/>"),
        Row(
            "RebuildStartWithEveryFlag",
            [](VFSManageCmd& command) {
                command.PoolRebuildStartT("P", userKey, 1, 0, 0, 0,
                                          kRAVRebuildPruneWait | kRAVRebuildPurge |
                                              kRAVRebuildPruneIV | kRAVRebuildPruneUnknownLosses);
            },
            "<action>2</action><poolName>P</poolName><rezidThreshold>1</rezidThreshold>"
            "<uiOptions>0</uiOptions><debugLevel>0</debugLevel><fileLossMax>0</fileLossMax>"
            "<uiPruneWait/><purge/><pruneIV/><pruneUnknownLosses/>"),
        Row(
            "VersionInformation",
            [](VFSManageCmd& command) {
                std::uint32_t major = 0;
                std::uint32_t minor = 0;
                std::uint32_t xmlMajor = 0;
                std::uint32_t xmlMinor = 0;
                command.zPoolVersionInformationT(major, minor, xmlMajor, xmlMinor);
                EXPECT_EQ(major * 1000 + minor * 100 + xmlMajor * 10 + xmlMinor, 1234U);
            },
            "<action>8</action>")),
    [](const auto& row) { return std::string(row.param.name); });

class RAVCommands : public testing::Test {
  protected:
    Thrown Failure(const std::string& text, const std::function<void(VFSManageCmd&)>& send) {
        service_.replies = {text};
        VFSManageCmd command;
        return ThrownBy([&] { send(command); });
    }

    CannedService service_;
    support::CapturedLog log_;
};

TEST_F(RAVCommands, RefuseARequestThatDoesNotFitTheirBuffer) {
    const Thrown tooSmall =
        AnOstrelError("Internal buffer too small", 20004, "util/common/ostrelVFS[702]");
    const auto sendName = [](std::size_t length) {
        return [length](VFSManageCmd& command) {
            command.PoolVerifyActions(std::string(length, 'P'), kRAVPause, reply);
        };
    };
    const std::size_t room = 1023 - Request("<poolName></poolName><action>9</action>").size();
    EXPECT_EQ(Failure(kAllReply, sendName(room)), Thrown{});
    EXPECT_EQ(service_.requests.back().size(), 1023U);
    const std::size_t sent = service_.requests.size();
    EXPECT_EQ(Failure(kAllReply, sendName(room + 1)), tooSmall);
    EXPECT_EQ(Failure(kAllReply,
                      [](VFSManageCmd& command) {
                          command.PoolVerifyActions(1, std::string(2000, 'f'), kRAVPause, reply);
                      }),
              tooSmall);
    // The two command objects switched to their data stream and sent nothing else.
    EXPECT_EQ(service_.requests.size(), sent + 2);
}

TEST_F(RAVCommands, DetailsFitTheCallersBufferOrFail) {
    const auto details = [](std::size_t size) {
        return [size](VFSManageCmd& command) {
            command.PoolRAVDetails(1, kRAVVerifyDetails, buffer, size, false);
        };
    };
    EXPECT_EQ(Failure(kAllReply, details(kAllReply.size() + 1)), Thrown{});
    EXPECT_EQ(buffer, kAllReply);
    EXPECT_EQ(Failure(kAllReply, details(kAllReply.size())),
              AnOstrelError("Internal buffer too small", 20004, "util/common/ostrelVFS[702]"));
}

TEST_F(RAVCommands, ReportChannelExceptionsWithTheirStatus) {
    const auto pause = [](VFSManageCmd& command) { command.PoolVerifyActions(kRAVPause, reply); };
    EXPECT_EQ(Failure("<writeResult><error>no (20011)</error></writeResult>", pause),
              AnAdminError("Could not read because of a write error ", 20011,
                           "util/common/ostrelVFS[292]"));
    EXPECT_EQ(log_.Text(),
              "util/common/ostrelVFS[291] Could not read from "
              "\"/_admin/Manage_OSTREL/manage.cmd\" because of \"20011\"\n"
              "Exception while attempting to read from VFSManageCmd Object:  "
              "Could not read because of a write error  (4e2b)\n");
}

TEST_F(RAVCommands, ReportAWriteThatFails) {
    VFSManageCmd command;
    service_.writeError = EIO;
    const std::string request(VFSManageCmd::kLongestRequest, 'x');
    EXPECT_EQ(ThrownBy([&] { command.PoolVerifyActionsT(request, reply); }),
              AnAdminError("Could not write command", 0, "util/common/ostrelVFS[312]", EIO));
    EXPECT_EQ(log_.Text(),
              "util/common/ostrelVFS[311] Could not write to "
              "\"/_admin/Manage_OSTREL/manage.cmd\" because of \"Input/output error\"\n"
              "Exception while attempting to write to VFSManageCmd Object:  "
              "Could not write command (0)\n");
}

TEST_F(RAVCommands, TraceFlagLogsTheReply) {
    class Tracing : public VFSManageCmd {
      public:
        Tracing() { SetCommandFlags(kTraceReplies); }
    };
    service_.replies = {kAllReply};
    Tracing().PoolVerifyActions(kRAVPause, reply);
    EXPECT_EQ(log_.Text(), "util/common/ostrelVFS[768] -->" + kAllReply + "<--\n");
}

TEST_F(RAVCommands, MissingElementsOfAnAnswerAreAdminErrors) {
    const auto start = [](VFSManageCmd& command) {
        command.PoolVerifyStartT("P", userKey, false, 0, 0);
    };
    EXPECT_EQ(Failure(VerifyReply(""), start), AnAdminError("Unable to parse XML tag <userKey>",
                                                            21703, "util/common/ostrelVFS[731]"));
    EXPECT_EQ(
        Failure(VerifyReply("<userKey value=\"\"/>"), start),
        AnAdminError("Unable to parse XML tag <userKey>", 20150, "util/common/ostrelVFS[731]"));
    const auto lookup = [](VFSManageCmd& command) {
        std::string volume;
        std::string path;
        command.ReverseNameLookup(1, 1, 1, kVolume, volume, path);
    };
    EXPECT_EQ(Failure(VerifyReply("<volume>V</volume>"), lookup),
              AnAdminError("Unable to parse XML tag <path>", 21703, "util/common/ostrelVFS[742]"));
}

class ResultFile : public testing::Test {
  protected:
    Thrown Open(const std::string& text, std::uint64_t key, bool layout64 = true) {
        service_.replies = {text};
        return ThrownBy(
            [&] { VFSManageCmd::OpenAndReadXMLT("P", "f.xml", key, contents_, layout64); });
    }

    CannedService service_;
    std::string contents_;
};

TEST_F(ResultFile, IsReadWholeFromThePoolsFolderOfItsLayout) {
    const std::string text =
        "<x><userKey value=\"0x10\"/>" + std::string(10000, 'y') + std::string(1, '\0') + "</x>";
    EXPECT_EQ(Open(text, 16), Thrown{});
    EXPECT_EQ(contents_, text);
    EXPECT_EQ(Open(text, 16, false), Thrown{});
    EXPECT_EQ(service_.opened,
              (std::vector<std::string>{"/_admin/Manage_OSTREL/Pool/P/KUVO64/f.xml rb",
                                        "/_admin/Manage_OSTREL/Pool/P/KUVO/f.xml rb"}));
    EXPECT_EQ(service_.openFiles, 0);
}

TEST_F(ResultFile, MustCarryTheJobsKey) {
    EXPECT_EQ(Open("<x/>", 16), AnAdminError("XML file must have <userKey>, but none found.", 21703,
                                             "util/common/ostrelVFS[1731]"));
    EXPECT_EQ(Open("", 16), AnAdminError("XML file must have <userKey>, but none found.", 21703,
                                         "util/common/ostrelVFS[1731]"));
    EXPECT_EQ(
        Open("<x><userKey value=\"17\"/></x>", 16),
        AnAdminError("XML file is not for specified key", 21703, "util/common/ostrelVFS[1737]"));
}

TEST_F(ResultFile, MustBeReadable) {
    service_.openError = ENOENT;
    EXPECT_EQ(Open("", 16),
              AnAdminError("Unable to read XML file", 0, "util/common/ostrelVFS[1718]", ENOENT));
    service_.openError = 0;
    service_.readError = EIO;
    EXPECT_EQ(Open("", 16),
              AnAdminError("Unable to read XML file", 0, "util/common/ostrelVFS[1718]", EIO));
    EXPECT_EQ(service_.openFiles, 0);
}

}  // namespace
