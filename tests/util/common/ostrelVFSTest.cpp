#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "tests/support/cannedService.h"
#include "tests/support/capturedLog.h"
#include "tests/support/thrown.h"
#include "util/common/ostrelVFS.h"

namespace {

/// A row of a table shows as its name.
template <typename Row>
requires requires(const Row& row) {
    row.name;
}
void PrintTo(const Row& row, std::ostream* stream) {
    *stream << row.name;
}

constexpr const char* kPath = "/_admin/Manage_OSTREL/manage.cmd";
constexpr std::size_t kLongest = OstrelVirtualFileServices::kLongestRequest;
constexpr const char* kSwitch = "<virtualIO><datastream name=\"command\"/></virtualIO>";

class Channel : public testing::Test {
  protected:
    OstrelVirtualFileServices Open() { return {0, kPath, nullptr, "command"}; }

    CannedService service_;
    support::CapturedLog log_;
};

TEST_F(Channel, OpensForUpdateAndSwitchesToTheNamedDataStream) {
    {
        const OstrelVirtualFileServices channel = Open();
        EXPECT_EQ(channel.Flags(), 6U);
        EXPECT_EQ(channel.Path(), kPath);
        EXPECT_EQ(service_.openFiles, 1);
    }
    EXPECT_EQ(service_.openFiles, 0);
    EXPECT_EQ(service_.opened, (std::vector<std::string>{"/_admin/Manage_OSTREL/manage.cmd r+"}));
    EXPECT_EQ(service_.requests, (std::vector<std::string>{kSwitch}));
    EXPECT_EQ(log_.Text(), "");
}

TEST_F(Channel, SwitchesToTheUnnamedDataStreamWithoutAName) {
    const OstrelVirtualFileServices channel(0, kPath, nullptr, nullptr);
    EXPECT_EQ(service_.requests,
              (std::vector<std::string>{"<virtualIO><datastream/></virtualIO>"}));
}

TEST_F(Channel, InsertsTheDataStreamsNameAsItIs) {
    const OstrelVirtualFileServices channel(0, kPath, nullptr, "a<\"&");
    EXPECT_EQ(service_.requests,
              (std::vector<std::string>{"<virtualIO><datastream name=\"a<\"&\"/></virtualIO>"}));
}

TEST_F(Channel, ServerNamePrefixesThePath) {
    const OstrelVirtualFileServices channel(1, kPath, "srv", "command");
    EXPECT_EQ(channel.Path(), "//srv/_admin/Manage_OSTREL/manage.cmd");
    EXPECT_EQ(channel.Flags(), 1U);
    EXPECT_EQ(service_.opened,
              (std::vector<std::string>{"//srv/_admin/Manage_OSTREL/manage.cmd r+"}));
    const OstrelVirtualFileServices local(1, kPath, "", "command");
    EXPECT_EQ(local.Path(), kPath);
}

TEST_F(Channel, TraceFlagLogsThePath) {
    const OstrelVirtualFileServices channel(0x40000000, kPath, nullptr, "command");
    EXPECT_EQ(log_.Text(), "util/common/ostrelVFS[133] /_admin/Manage_OSTREL/manage.cmd\n");
    EXPECT_EQ(channel.Flags(), 0x40000000U);
}

TEST_F(Channel, OpenFailureIsARuntimeError) {
    service_.openError = ENOENT;
    EXPECT_EQ(ThrownBy([this] { Open(); }), ARuntimeError("Could not open command file"));
    EXPECT_EQ(log_.Text(),
              "util/common/ostrelVFS[140] Could not open \"/_admin/Manage_OSTREL/manage.cmd\" "
              "because of \"No such file or directory\"\n");
}

// Only what does not fit the stream's buffer is written, and fails, in the call that writes.
TEST_F(Channel, ModeSwitchWriteFailureIsARuntimeErrorAndClosesTheFile) {
    service_.writeError = EIO;
    const std::string dataStream(kLongest, 'x');
    EXPECT_EQ(ThrownBy([&] {
                  const OstrelVirtualFileServices channel(0, kPath, nullptr, dataStream.c_str());
              }),
              ARuntimeError("Could not switch to command mode"));
    EXPECT_EQ(log_.Text(),
              "util/common/ostrelVFS[159] Could not write to "
              "\"/_admin/Manage_OSTREL/manage.cmd\" because of \"Input/output error\"\n");
    EXPECT_EQ(service_.openFiles, 0);
}

TEST_F(Channel, ModeSwitchFlushFailureIsReportedAndTheObjectUsable) {
    service_.writeError = EIO;
    service_.replies = {"answer"};
    OstrelVirtualFileServices channel = Open();
    EXPECT_EQ(log_.Text(), "Unable to flush data 1: Input/output error\n");
    service_.writeError = 0;
    channel.Write("question", 8);
    char buffer[64] = "";
    EXPECT_EQ(std::string(buffer, channel.Read(buffer, sizeof buffer, 0)), "answer");
    EXPECT_EQ(service_.requests, (std::vector<std::string>{"question"}));
}

TEST_F(Channel, SeekFailureAfterTheSwitchIsReportedAndTheObjectUsable) {
    service_.seekError = ESPIPE;
    service_.replies = {"answer"};
    OstrelVirtualFileServices channel = Open();
    EXPECT_EQ(log_.Text(), "Unable to fseek to 0 -- case 1: Illegal seek\n");
    service_.seekError = 0;
    channel.Write("question", 8);
    char buffer[64] = "";
    EXPECT_EQ(channel.Read(buffer, sizeof buffer, 0), 6U);
    EXPECT_EQ(service_.requests.back(), "question");
}

TEST_F(Channel, EveryWriteIsARequestAndItsReplyIsReadFromTheStart) {
    service_.replies = {"first answer", "second"};
    OstrelVirtualFileServices channel = Open();
    char buffer[64] = "";
    channel.Write("one", 3);
    EXPECT_EQ(std::string(buffer, channel.Read(buffer, sizeof buffer, 0)), "first answer");
    EXPECT_EQ(channel.Read(buffer, sizeof buffer, 12), 0U);
    channel.Write("question two", 12);
    EXPECT_EQ(std::string(buffer, channel.Read(buffer, sizeof buffer, 0)), "second");
    EXPECT_EQ(service_.requests, (std::vector<std::string>{kSwitch, "one", "question two"}));
    EXPECT_EQ(log_.Text(), "");
}

TEST_F(Channel, ReadStartsAtItsOffsetAndLeavesTheRestAlone) {
    service_.replies = {"0123456789"};
    OstrelVirtualFileServices channel = Open();
    channel.Write("q", 1);
    char buffer[4] = {'a', 'b', 'c', 'd'};
    EXPECT_EQ(channel.Read(buffer, 3, 8), 2U);
    EXPECT_EQ(std::string(buffer, 4), "89cd");
    EXPECT_EQ(channel.Read(buffer, 3, 3), 3U);
    EXPECT_EQ(std::string(buffer, 4), "345d");
}

TEST_F(Channel, ShortWriteIsAnAdminErrorWithErrno) {
    OstrelVirtualFileServices channel = Open();
    service_.writeError = ENOSPC;
    const std::string question(kLongest, 'q');
    EXPECT_EQ(ThrownBy([&] { channel.Write(question.data(), question.size()); }),
              AnAdminError("Could not write command", 0, "util/common/ostrelVFS[312]", ENOSPC));
    EXPECT_EQ(log_.Text(),
              "util/common/ostrelVFS[311] Could not write to "
              "\"/_admin/Manage_OSTREL/manage.cmd\" because of \"No space left on device\"\n");
}

TEST_F(Channel, LongRequestArrivesInOneWriteAndItsReplyIsRead) {
    for (const std::size_t length : {std::size_t{5000}, kLongest - 1, kLongest}) {
        service_.replies = {std::string(length, 'a')};
        OstrelVirtualFileServices channel = Open();
        service_.writes = 0;
        const std::string question(length, 'q');
        channel.Write(question.data(), question.size());
        EXPECT_EQ(service_.writes, 1) << length;
        EXPECT_EQ(service_.requests.back(), question);
        std::string reply(length + 1, '\0');
        EXPECT_EQ(channel.Read(reply.data(), reply.size(), 0), length);
        EXPECT_EQ(reply.substr(0, length), service_.replies.front());
    }
    EXPECT_EQ(log_.Text(), "");
}

TEST_F(Channel, RequestThatDoesNotFitOneWriteIsRefusedUnsent) {
    OstrelVirtualFileServices channel = Open();
    service_.writes = 0;
    const std::string question(kLongest + 1, 'q');
    EXPECT_EQ(ThrownBy([&] { channel.Write(question.data(), question.size()); }),
              AnAdminError("Could not write command", 0, "util/common/ostrelVFS[312]", EMSGSIZE));
    EXPECT_EQ(service_.writes, 0);
    EXPECT_EQ(log_.Text(),
              "util/common/ostrelVFS[311] Could not write to "
              "\"/_admin/Manage_OSTREL/manage.cmd\" because of \"Message too long\"\n");
}

TEST_F(Channel, RequestFlushFailureIsReportedAndReturns) {
    OstrelVirtualFileServices channel = Open();
    service_.writeError = EIO;
    EXPECT_EQ(ThrownBy([&] { channel.Write("question", 8); }), Thrown{});
    EXPECT_EQ(log_.Text(), "Unable to flush data 3: Input/output error\n");
}

TEST_F(Channel, FlushFailureAtTheEndIsReportedAndTheFileClosed) {
    {
        service_.replies = {"0123456789"};
        OstrelVirtualFileServices channel = Open();
        channel.Write("question", 8);
        char buffer[3] = "";
        channel.Read(buffer, sizeof buffer, 0);
        // What was read ahead makes the flush seek back.
        service_.seekError = EIO;
    }
    EXPECT_EQ(log_.Text(), "Unable to flush data 2: Input/output error\n");
    EXPECT_EQ(service_.openFiles, 0);
}

TEST_F(Channel, ReadErrorIsAnAdminErrorWithErrno) {
    OstrelVirtualFileServices channel = Open();
    channel.Write("question", 8);
    service_.readError = EIO;
    char buffer[64] = "";
    EXPECT_EQ(ThrownBy([&] { channel.Read(buffer, sizeof buffer, 0); }),
              AnAdminError("Could not read", 0, "util/common/ostrelVFS[269]", EIO));
    EXPECT_EQ(log_.Text(),
              "util/common/ostrelVFS[268] Could not read from "
              "\"/_admin/Manage_OSTREL/manage.cmd\" because of \"Input/output error\"\n");
}

TEST_F(Channel, WriteResultInTheFirstChunkIsAnAdminErrorWithTheServicesStatus) {
    service_.replies = {"<writeResult><error>refused (20401)</error></writeResult>"};
    OstrelVirtualFileServices channel = Open();
    channel.Write("question", 8);
    char buffer[64] = "";
    EXPECT_EQ(ThrownBy([&] { channel.Read(buffer, sizeof buffer, 0); }),
              AnAdminError("Could not read because of a write error ", 20401,
                           "util/common/ostrelVFS[292]"));
    EXPECT_EQ(log_.Text(),
              "util/common/ostrelVFS[291] Could not read from "
              "\"/_admin/Manage_OSTREL/manage.cmd\" because of \"20401\"\n");
}

TEST_F(Channel, WriteResultInALaterChunkIsNotDetected) {
    service_.replies = {"....<writeResult><error>refused (20401)</error></writeResult>"};
    OstrelVirtualFileServices channel = Open();
    channel.Write("question", 8);
    char buffer[64] = "";
    EXPECT_EQ(channel.Read(buffer, 4, 0), 4U);
    EXPECT_EQ(channel.Read(buffer, sizeof buffer, 4), 57U);
    EXPECT_EQ(log_.Text(), "");
}

struct FunnyRow {
    const char* name;
    const char* text;
    bool present;
    std::uint64_t status;
};

class WriteResult : public testing::TestWithParam<FunnyRow> {};

TEST_P(WriteResult, IsRecognisedWithItsStatus) {
    const std::string text = GetParam().text;
    std::uint64_t status = 4711;
    EXPECT_EQ(OstrelVirtualFileServices::IsFunnyErrorPresent(text.size(), text.data(), status),
              GetParam().present);
    EXPECT_EQ(status, GetParam().status);
}

#define IN_ERROR(content) "<writeResult><error>" content "</error></writeResult>"

INSTANTIATE_TEST_SUITE_P(
    Replies, WriteResult,
    testing::Values(
        FunnyRow{"StatusInParentheses", IN_ERROR("refused (20401)"), true, 20401},
        FunnyRow{"OneDigit", IN_ERROR("(7)"), true, 7},
        FunnyRow{"FirstParenthesisHasNoDigits", IN_ERROR("(abc)(9)"), true, 0},
        FunnyRow{"Hexadecimal", IN_ERROR("(0x10)"), true, 16},
        FunnyRow{"Octal", IN_ERROR("(010)"), true, 8},
        FunnyRow{"BlankBeforeTheNumber", IN_ERROR("( 12 )"), true, 12},
        FunnyRow{"OneCharacter", IN_ERROR("x"), true, 24999},
        FunnyRow{"NoParenthesis", IN_ERROR("refused 20401"), true, 24999},
        FunnyRow{"Empty", IN_ERROR(""), true, 24999},
        FunnyRow{"SelfClosing", "<writeResult><error/></writeResult>", true, 24999},
        FunnyRow{"ParenthesisLast", IN_ERROR("refused ("), true, 24999},
        FunnyRow{"OnlyBlanksBehind", IN_ERROR("(  "), true, 24999},
        FunnyRow{"RunTooLongThenANumber",
                 IN_ERROR("(00000000000000000000000000000000000000000000000000000000000000000000"
                          "000000000000 (9"),
                 true, 9},
        FunnyRow{"NoErrorElement", "<writeResult><ok/></writeResult>", false, 0},
        FunnyRow{"NotClosed", "<writeResult><error>(7)</error>", false, 0},
        FunnyRow{"OtherReply", "<ostrelReply><error>(7)</error></ostrelReply>", false, 0},
        FunnyRow{"NotAtTheStart", " " IN_ERROR("(7)"), false, 0},
        FunnyRow{"ThirteenBytes", "<writeResult>", false, 0}, FunnyRow{"NoBytes", "", false, 0}),
    [](const auto& row) { return std::string(row.param.name); });

TEST_F(Channel, ReplyShorterThan14BytesIsNeverAWriteResult) {
    service_.replies = {IN_ERROR("(7)")};
    OstrelVirtualFileServices channel = Open();
    channel.Write("question", 8);
    char buffer[13] = "";
    EXPECT_EQ(channel.Read(buffer, 13, 0), 13U);
    EXPECT_EQ(log_.Text(), "");
}

TEST(WriteResult, NeverReadsBeyondATextCutAtAnyLength) {
    const std::string text = IN_ERROR("refused (20401)");
    for (std::size_t length = 0; length <= text.size(); ++length) {
        const auto cut = std::make_unique<char[]>(length);
        std::memcpy(cut.get(), text.data(), length);
        std::uint64_t status = 0;
        EXPECT_EQ(OstrelVirtualFileServices::IsFunnyErrorPresent(length, cut.get(), status),
                  length == text.size())
            << length;
    }
}

#undef IN_ERROR

}  // namespace
