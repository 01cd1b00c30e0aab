#include <gtest/gtest.h>

#include <filesystem>

#include "tests/support/fileBytes.h"
#include "tests/support/temporaryDirectory.h"
#include "util/zsbtool/targetDevice.h"

namespace zsbtool {
namespace {

namespace fs = std::filesystem;

class DeviceIdentityTest : public testing::Test {
  protected:
    void Put(const std::string& name, const std::string& text) {
        const fs::path path = directory_.File(name);
        fs::create_directories(path.parent_path());
        support::WriteFile(path, text);
    }

    DeviceIdentity Read(const std::string& folder = "sda") const {
        return ReadIdentity({directory_.File(folder), directory_.File("udev")});
    }

    support::TemporaryDirectory directory_;
};

TEST_F(DeviceIdentityTest, IsEmptyWhereNobodyKnows) {
    fs::create_directories(directory_.File("sda"));
    EXPECT_EQ(Read().model, "");
    EXPECT_EQ(Read().serial, "");
    EXPECT_EQ(Read("missing").serial, "");
}

TEST_F(DeviceIdentityTest, StandsBesideTheDeviceWithoutItsBlanks) {
    Put("sda/device/model", "Disk 9   \n");
    Put("sda/device/serial", " S4711\n");
    EXPECT_EQ(Read().model, "Disk 9");
    EXPECT_EQ(Read().serial, "S4711");
}

TEST_F(DeviceIdentityTest, StandsInTheDeviceItselfForVirtualDisks) {
    Put("sda/serial", "disk-1");
    EXPECT_EQ(Read().serial, "disk-1");
}

TEST_F(DeviceIdentityTest, StandsBehindTheHeaderOfAPageOfProductData) {
    Put("sda/device/vpd_pg80", std::string("\0\x80\0\x06", 4) + "S4711 ");
    EXPECT_EQ(Read().serial, "S4711");
}

TEST_F(DeviceIdentityTest, OfAPartitionIsThatOfItsDisk) {
    Put("sda/device/serial", "S4711");
    Put("sda/sda1/partition", "1");
    EXPECT_EQ(Read("sda/sda1").serial, "S4711");
}

TEST_F(DeviceIdentityTest, IsWhatTheDeviceManagerFoundOutOtherwise) {
    Put("sda/size", "8");
    Put("udev", "S:disk/by-id/x\nE:ID_MODEL=Stick\nE:ID_SERIAL=Stick_77\nE:ID_SERIAL_SHORT=77\n");
    EXPECT_EQ(Read().model, "Stick");
    EXPECT_EQ(Read().serial, "77");
}

}  // namespace
}  // namespace zsbtool
