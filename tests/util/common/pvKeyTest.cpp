#include <gtest/gtest.h>

#include <cerrno>
#include <sstream>
#include <string>
#include <type_traits>

#include "tests/support/cannedService.h"
#include "tests/support/capturedLog.h"
#include "tests/support/thrown.h"
#include "util/common/pvKey.h"

namespace {

constexpr const char* kText = "12345678-9abc-0def-80-01-0a0b0c0d0e0f";
constexpr GUID_t kGUID{0x12345678, 0x9abc, 0x0def, 0x80, 1, {10, 11, 12, 13, 14, 15}};
constexpr GUID_t kOther{0x12345678, 0x9abc, 0x0def, 0x80, 1, {10, 11, 12, 13, 14, 16}};

std::string Printed(const PVKey& key) {
    std::ostringstream stream;
    stream << key;
    return stream.str();
}

TEST(AllObjectsKey, MatchesEveryGUIDAndIsCalledAll) {
    const PoolKey pools;
    EXPECT_TRUE(pools.IsPool);
    EXPECT_TRUE(pools.AllObjects);
    EXPECT_TRUE(pools.IsMatch(&kGUID));
    EXPECT_TRUE(pools.IsMatch(&zADMINVOL_GUID));
    EXPECT_EQ(Printed(pools),
              "<PVKey><IsPool>1</IsPool><AllObjects>1</AllObjects>\n<Name>all</Name>"
              "<ID>00000000-0000-0000-00-00-000000000000</ID></PVKey>\n");
    const VolumeKey volumes;
    EXPECT_FALSE(volumes.IsPool);
    EXPECT_TRUE(volumes.AllObjects);
    EXPECT_TRUE(volumes.IsMatch(&kGUID));
}

static_assert(std::is_constructible_v<PVKey, bool>);
static_assert(!std::is_constructible_v<PVKey, const char*>);
static_assert(!std::is_constructible_v<PVKey, const char (&)[5]>);
static_assert(!std::is_constructible_v<PVKey, const GUID_t*>);
static_assert(!std::is_constructible_v<PVKey, std::nullptr_t>);

TEST(KeyOfAGUID, MatchesOnlyThatGUIDAndKnowsNoName) {
    const PoolKey pool(&kGUID);
    EXPECT_TRUE(pool.IsMatch(&kGUID));
    EXPECT_FALSE(pool.IsMatch(&kOther));
    EXPECT_FALSE(pool.IsMatch(&zZERO_GUID));
    EXPECT_EQ(Printed(pool),
              "<PVKey><IsPool>1</IsPool><AllObjects>0</AllObjects>\n<Name>_Unknown_Name_</Name>"
              "<ID>12345678-9abc-0def-80-01-0a0b0c0d0e0f</ID></PVKey>\n");
    const VolumeKey volume(&kGUID);
    EXPECT_FALSE(volume.IsPool);
    EXPECT_TRUE(volume.IsMatch(&kGUID));
}

TEST(KeyOfAName, AsksTheServiceForThePoolsGUID) {
    CannedService service;
    service.replies = {PoolReply("maintenance", kText)};
    const PoolKey key("P");
    EXPECT_EQ(service.requests.back(),
              "<ostrelRequest><pool><getPoolInfo> type=\"basic\"><poolName>P</poolName>"
              "</getPoolInfo></pool></ostrelRequest>");
    EXPECT_EQ(service.openFiles, 0);
    EXPECT_EQ(key.IDString(), kText);
    EXPECT_EQ(key.Name(), "P");
    EXPECT_TRUE(key.IsPool);
    EXPECT_FALSE(key.AllObjects);
    EXPECT_TRUE(key.IsMatch(&kGUID));
    EXPECT_FALSE(key.IsMatch(&kOther));
}

TEST(KeyOfAName, AsksTheServiceForTheVolumesGUID) {
    CannedService service;
    service.replies = {
        VolumeInfoReply("<volumeGUID>12345678-9abc-0def-80-01-0a0b0c0d0e0f</volumeGUID>")};
    const VolumeKey key("V");
    EXPECT_EQ(service.requests.back(),
              "<ostrelRequest><volume><getVolumeInfo> type=\"basic\"><volumeName>V</volumeName>"
              "</getVolumeInfo></volume></ostrelRequest>");
    EXPECT_EQ(key.IDString(), kText);
    EXPECT_FALSE(key.IsPool);
}

TEST(KeyOfAName, CannotBeBuiltForAPoolThatTheServiceRefuses) {
    CannedService service;
    const support::CapturedLog log;
    service.replies = {PoolInfoReply("", "20444")};
    EXPECT_EQ(ThrownBy([] { const PoolKey key("P"); }),
              AnOstrelError("getPoolInfo results", 20444, "util/common/tXML[1401]"));
    EXPECT_EQ(service.openFiles, 0);
    service.openError = ENOENT;
    EXPECT_EQ(ThrownBy([] { const PoolKey key("P"); }),
              ARuntimeError("Could not open command file"));
}

TEST(KeyOfAName, IsASnapshotOfTheGUID) {
    CannedService service;
    service.replies = {PoolReply("maintenance", kText)};
    const PoolKey before("P");
    service.replies = {PoolReply("maintenance", "12345678-9abc-0def-80-01-0a0b0c0d0e10")};
    const PoolKey after("P");
    EXPECT_TRUE(before.IsMatch(&kGUID));
    EXPECT_FALSE(before.IsMatch(&kOther));
    EXPECT_TRUE(after.IsMatch(&kOther));
    EXPECT_FALSE(after.IsMatch(&kGUID));
}

TEST(KeyState, IsAskedByNameWithAConversationOfItsOwn) {
    CannedService service;
    service.replies = {PoolReply("maintenance", kText)};
    const PoolKey key("P");
    service.opened.clear();
    EXPECT_EQ(key.GetState(), 3U);
    service.replies = {PoolReply("mounted", kText)};
    EXPECT_EQ(key.GetState(), 6U);
    service.replies = {PoolReply("deactive", kText)};
    EXPECT_EQ(key.GetState(), 2U);
    service.replies = {PoolReply("odd", kText)};
    EXPECT_EQ(key.GetState(), 0U);
    EXPECT_EQ(service.opened.size(), 4U);
    EXPECT_EQ(service.openFiles, 0);
}

TEST(KeyState, IsAskedForAVolumeByTheVolumeQuery) {
    CannedService service;
    service.replies = {VolumeInfoReply("<volumeState>deactive</volumeState>")};
    EXPECT_EQ(VolumeKey(&kGUID).GetState(), 2U);
    EXPECT_EQ(service.requests.back(),
              "<ostrelRequest><volume><getVolumeInfo> type=\"basic\"><volumeName>_Unknown_Name_"
              "</volumeName></getVolumeInfo></volume></ostrelRequest>");
}

TEST(KeyState, ThrowsWhatTheQueryThrows) {
    CannedService service;
    const support::CapturedLog log;
    service.replies = {PoolReply("maintenance", kText)};
    const PoolKey key("P");
    service.readError = EIO;
    EXPECT_EQ(ThrownBy([&] { key.GetState(); }),
              AnAdminError("Could not read", 0, "util/common/ostrelVFS[269]", EIO));
}

}  // namespace
