#include <dlfcn.h>
#include <gtest/gtest.h>

#include <string>

#include "tests/support/capturedLog.h"
#include "tests/support/thrown.h"
#include "util/common/heb.h"

// This program has no bus in itself. The build runs each test in a process of its own, with the
// loader's path set so that it finds the library that the test speaks of.

namespace {

constexpr GUID_t kGUID{1, 2, 3, 4, 5, {6, 7, 8, 9, 10, 11}};
constexpr const char* kAbsent =
    "util/common/heb[118] Could not load libhebus because of "
    "\"libhebus.so: cannot open shared object file: No such file or directory\"\n";
constexpr const char* kRefused =
    "Exception while registering for HEB event OSTREL.ChangePoolState.Enter:  HEB register error\n"
    "util/common/heb[635]\n";

int Register(HEBConsumer& consumer) {
    return consumer.HEBC_CPSE_Register(PoolKey(&kGUID), std::make_shared<std::atomic<bool>>(false));
}

TEST(BusLibrary, AbsentFailsARegistrationWithTheLoadersReason) {
    const support::CapturedLog log;
    HEBConsumer consumer("OSTREL.Test");
    const std::string report = std::string(kAbsent) + kRefused;
    EXPECT_EQ(Register(consumer), 584738804);
    EXPECT_EQ(log.Text(), report);
    EXPECT_EQ(consumer.HEBC_CPSE_Unregister(), 20010);
    EXPECT_EQ(Register(consumer), 584738804);
    EXPECT_EQ(log.Text(), report + report);
}

TEST(BusLibrary, AbsentRefusesAnUnregistrationWithTheLoadersReason) {
    const support::CapturedLog log;
    HaldenEventBus bus;
    auto key = std::make_unique<HEBKey>();
    key->handle = 0x4711;
    EXPECT_EQ(ThrownBy([&] { bus.EventUnregister(key.release()); }),
              ARuntimeError("Could not unregister with HEB"));
    EXPECT_EQ(log.Text(),
              std::string(kAbsent) + "Could not unregister with HEB.  HEN returned status 61a7\n");
}

TEST(BusLibrary, IncompleteFailsARegistrationWithTheLoadersReason) {
    const support::CapturedLog log;
    HEBConsumer consumer("OSTREL.Test");
    EXPECT_EQ(Register(consumer), 584738804);
    const std::string text = log.Text();
    EXPECT_EQ(text.find("util/common/heb[118] Could not load libhebus because of \""), 0U);
    EXPECT_NE(text.find("undefined symbol: userHebUnRegisterConsumer\"\n"), std::string::npos);
    EXPECT_EQ(text.substr(text.find('\n') + 1), kRefused);
}

TEST(BusLibrary, IsOpenedAtTheFirstRegistration) {
    const support::CapturedLog log;
    HEBConsumer consumer("OSTREL.Test");
    EXPECT_EQ(dlopen("libhebus.so", RTLD_NOW | RTLD_NOLOAD), nullptr);
    EXPECT_EQ(Register(consumer), 0);
    void* library = dlopen("libhebus.so", RTLD_NOW | RTLD_NOLOAD);
    ASSERT_NE(library, nullptr);
    const auto* calls = static_cast<const int*>(dlsym(library, "busCalls"));
    ASSERT_NE(calls, nullptr);
    EXPECT_EQ(*calls, 1);
    EXPECT_EQ(consumer.HEBC_CPSE_Unregister(), 0);
    EXPECT_EQ(*calls, 11);
    EXPECT_EQ(log.Text(), "");
    dlclose(library);
}

}  // namespace
