#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include "tests/support/capturedLog.h"
#include "tests/support/thrown.h"
#include "util/common/lbpMisc.h"

namespace {

namespace fs = std::filesystem;

class Handle : public testing::Test {
  protected:
    Handle() {
        std::string pattern = fs::temp_directory_path() / "lbpMiscXXXXXX";
        folder_ = mkdtemp(pattern.data());
    }
    ~Handle() override { fs::remove_all(folder_); }

    fs::path folder_;
    support::CapturedLog log_;
};

TEST_F(Handle, OpensAsFopenDoesAndClosesWithItsScope) {
    const std::string path = folder_ / "file";
    int descriptor = -1;
    {
        const Handle_raii handle(path.c_str(), "w");
        descriptor = fileno(handle.get());
        EXPECT_EQ(std::fputs("text", handle.get()) >= 0, true);
        EXPECT_EQ(fcntl(descriptor, F_GETFD), 0);
    }
    EXPECT_EQ(fcntl(descriptor, F_GETFD), -1);
    EXPECT_EQ(fs::file_size(path), 4U);
    EXPECT_EQ(log_.Text(), "");
}

TEST_F(Handle, ReportsAFileThatCannotBeRead) {
    const std::string path = folder_ / "absent";
    for (const char* mode : {"r", "rb", "r+"}) {
        EXPECT_EQ(ThrownBy([&] { const Handle_raii handle(path.c_str(), mode); }),
                  ARuntimeError("Could not open file"));
    }
    const std::string line = "util/common/lbpMisc[68] Could not open \"" + path +
                             "\" because of \"No such file or directory\"\n";
    EXPECT_EQ(log_.Text(), line + line + line);
}

TEST_F(Handle, ReportsAFileThatCannotBeCreated) {
    const std::string path = folder_ / "absent" / "file";
    EXPECT_EQ(ThrownBy([&] { const Handle_raii handle(path.c_str(), "w"); }),
              ARuntimeError("Could not open/create file"));
    EXPECT_EQ(log_.Text(), "util/common/lbpMisc[73] Could not open or create \"" + path +
                               "\" because of \"No such file or directory\"\n");
}

/// Looks "k=" up and gives the status and what came out, starting from `before`.
template <typename Value>
std::pair<int, Value> Get(const char* text, Value before) {
    const int status = LBP_GetValue(text, "k=", before);
    return {status, before};
}

template <typename Value>
class NumberForm : public testing::Test {};

using NumberForms =
    testing::Types<std::uint32_t, std::int32_t, long, unsigned long, unsigned long long>;
TYPED_TEST_SUITE(NumberForm, NumberForms);

TYPED_TEST(NumberForm, ReadsWhatFollowsTheFirstKeyInTheBaseOfItsPrefix) {
    const auto got = [](const char* text) { return Get<TypeParam>(text, 77); };
    const auto good = [](TypeParam value) { return std::pair<int, TypeParam>(0, value); };
    EXPECT_EQ(got("k=12"), good(12));
    EXPECT_EQ(got("a k=12 k=13"), good(12));
    EXPECT_EQ(got("k=0x1F"), good(31));
    EXPECT_EQ(got("k=010"), good(8));
    EXPECT_EQ(got("k=  12\""), good(12));
    EXPECT_EQ(got("k=-1"), good(static_cast<TypeParam>(-1)));
    EXPECT_EQ(got("k=x"), good(0));
    EXPECT_EQ(got("k="), good(0));
}

TYPED_TEST(NumberForm, LeavesTheVariableAloneWithoutTheKey) {
    EXPECT_EQ(Get<TypeParam>("K=12", 77), (std::pair<int, TypeParam>(21820, 77)));
    EXPECT_EQ(Get<TypeParam>("", 77), (std::pair<int, TypeParam>(21820, 77)));
}

TEST(WideForms, KeepAll64Bits) {
    EXPECT_EQ(Get<unsigned long long>("k=18446744073709551615", 0).second, ~0ULL);
    EXPECT_EQ(Get<unsigned long>("k=0xFFFFFFFFFFFFFFFF", 0).second, ~0UL);
    EXPECT_EQ(Get<long>("k=-9223372036854775807", 0).second, -9223372036854775807L);
    EXPECT_EQ(Get<std::uint32_t>("k=0x1234567890", 0).second, 0x34567890U);
}

TEST(BoolForm, IsWhetherTheNumberIsOtherThanZero) {
    EXPECT_EQ(Get("k=1", false), (std::pair<int, bool>(0, true)));
    EXPECT_EQ(Get("k=0x100", false), (std::pair<int, bool>(0, true)));
    EXPECT_EQ(Get("k=0", true), (std::pair<int, bool>(0, false)));
    EXPECT_EQ(Get("k=true", true), (std::pair<int, bool>(0, false)));
    EXPECT_EQ(Get("none", true), (std::pair<int, bool>(21820, true)));
}

TEST(NumberForms, EndAtAByteThatIsNoAsciiBlankInAnyLocale) {
    for (int byte = 0x80; byte < 0x100; ++byte) {
        const std::string text = std::string("key=") + static_cast<char>(byte) + "12";
        std::uint32_t value = 7;
        EXPECT_EQ(LBP_GetValue(text.c_str(), "key=", value), 0);
        EXPECT_EQ(value, 0U) << byte;
    }
}

TEST(StringForm, RunsToTheNextDoubleQuote) {
    const std::string before = "before";
    EXPECT_EQ(Get("k=\"x\"", before), (std::pair<int, std::string>(0, "")));
    EXPECT_EQ(Get("k=a b'c\" d\"", before), (std::pair<int, std::string>(0, "a b'c")));
    EXPECT_EQ(Get("k=abc", before), (std::pair<int, std::string>(21821, before)));
    EXPECT_EQ(Get("\"abc", before), (std::pair<int, std::string>(21820, before)));
}

TEST(BufferForm, HoldsTheTextWithItsEndOrNothing) {
    char buffer[5] = "old";
    EXPECT_EQ(LBP_GetValue("k=abcd\"", "k=", buffer, sizeof buffer), 0);
    EXPECT_STREQ(buffer, "abcd");
    EXPECT_EQ(LBP_GetValue("k=abcde\"", "k=", buffer, sizeof buffer), 20004);
    EXPECT_STREQ(buffer, "");
    EXPECT_EQ(LBP_GetValue("k=\"", "k=", buffer, 0), 20004);
    EXPECT_EQ(LBP_GetValue("k=abc", "k=", buffer, sizeof buffer), 21821);
    EXPECT_EQ(LBP_GetValue("x", "k=", buffer, sizeof buffer), 21820);
}

TEST(GUIDForm, ParsesTheTextUpToTheNextDoubleQuote) {
    GUID_t guid{};
    EXPECT_EQ(LBP_GetValue("<poolGUID value=\"12345678-9abc-0def-80-01-0a0b0c0d0e0f\"/>",
                           "poolGUID value=\"", guid),
              0);
    EXPECT_EQ(guid.timeLow, 0x12345678U);
    EXPECT_EQ(guid.node[5], 0x0f);
    EXPECT_EQ(LBP_GetValue("k=nonsense\"", "k=", guid), 20821);
    EXPECT_EQ(LBP_GetValue("k=12345678-9abc-0def-80-01-0a0b0c0d0e0f", "k=", guid), 21821);
    EXPECT_EQ(LBP_GetValue("x", "k=", guid), 21820);
}

}  // namespace
