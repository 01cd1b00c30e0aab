#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "tests/support/capturedLog.h"
#include "util/ostrelscan/scanOptions.h"

namespace {

template <typename Options>
std::string TextOf(const Options& options) {
    std::ostringstream stream;
    stream << std::hex << options;
    return stream.str();
}

TEST(DumpOptions, TakesItsArgumentsInTheirOwnOrder) {
    const DumpOptions options(3, 9, true, "/dev/x", "DATA", "out/", false);
    EXPECT_EQ(options.start, 3U);
    EXPECT_EQ(options.end, 9U);
    EXPECT_TRUE(options.compress);
    EXPECT_FALSE(options.sectors);
    EXPECT_STREQ(options.deviceName, "/dev/x");
    EXPECT_STREQ(options.poolName, "DATA");
    EXPECT_STREQ(options.path, "out/");
}

TEST(DumpOptions, IsLoggedAsOneElement) {
    const support::CapturedLog log;
    LogLine() << DumpOptions(0, 0, true, "/dev/pool/DATA", "DATA", "./", true) << '\n';
    EXPECT_EQ(log.Text(),
              "<Options>\n<Path>./</Path>\n<DO_DeviceName>/dev/pool/DATA</DO_DeviceName>\n"
              "<PoolName>DATA</PoolName>\n<Compress>1</Compress>\n<Sectors>1</Sectors>\n"
              "<Start>0</Start>\n<End>0</End>\n</Options>\n\n");
}

TEST(DumpOptions, WritesSwitchesAsDigitsAndNumbersInTheStreamsBase) {
    EXPECT_EQ(TextOf(DumpOptions(16, 255, false, "d", "p", "./", false)),
              "<Options>\n<Path>./</Path>\n<DO_DeviceName>d</DO_DeviceName>\n"
              "<PoolName>p</PoolName>\n<Compress>0</Compress>\n<Sectors>0</Sectors>\n"
              "<Start>10</Start>\n<End>ff</End>\n</Options>\n");
}

TEST(DumpOptions, WritesTextsUnescaped) {
    EXPECT_EQ(TextOf(DumpOptions(0, 0, false, "/dev/<a>", "A&B", "<&>/", false)),
              "<Options>\n<Path><&>/</Path>\n<DO_DeviceName>/dev/<a></DO_DeviceName>\n"
              "<PoolName>A&B</PoolName>\n<Compress>0</Compress>\n<Sectors>0</Sectors>\n"
              "<Start>0</Start>\n<End>0</End>\n</Options>\n");
}

TEST(DumpOptions, FailsTheStreamAtAMissingText) {
    std::ostringstream stream;
    stream << DumpOptions(0, 0, false, nullptr, "DATA", "./", true);
    EXPECT_TRUE(stream.fail());
    EXPECT_EQ(stream.str(), "<Options>\n<Path>./</Path>\n<DO_DeviceName>");
}

TEST(RestoreOptions, BeginsWithARangeOfZero) {
    const RestoreOptions options("/dev/x", "DATA", "in/");
    EXPECT_EQ(options.start, 0U);
    EXPECT_EQ(options.end, 0U);
    EXPECT_STREQ(options.deviceName, "/dev/x");
    EXPECT_STREQ(options.poolName, "DATA");
    EXPECT_STREQ(options.path, "in/");
}

TEST(RestoreOptions, NeverShowsTheDevice) {
    EXPECT_EQ(TextOf(RestoreOptions("/dev/secret", "A&B", "<in>/")),
              "<Options>\n<Path><in>/</Path>\n<PoolName>A&B</PoolName>\n<Start>0</Start>\n"
              "<End>0</End>\n</Options>\n");
}

}  // namespace
