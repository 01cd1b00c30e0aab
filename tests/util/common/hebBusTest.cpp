#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "tests/support/capturedLog.h"
#include "tests/support/fakeBus.h"
#include "tests/support/thrown.h"
#include "util/common/heb.h"

namespace {

std::uint32_t NoCallback(EventBlock*) {
    return 0;
}

class Bus : public testing::Test {
  protected:
    std::unique_ptr<HEBKey> Register() {
        return std::unique_ptr<HEBKey>(
            bus_.EventRegister("EVENT", "CONSUMER", &consumer_, NoCallback));
    }

    FakeBus& fake_ = FakeBus::Fresh();
    support::CapturedLog log_;
    HaldenEventBus bus_;
    HEBConsumer consumer_{"CONSUMER"};
};

TEST_F(Bus, RegistrationRecordHasItsFieldsAtTheirPlacesAndZerosElsewhere) {
    const std::unique_ptr<HEBKey> key = Register();
    ASSERT_EQ(fake_.registered.size(), 1U);
    const FakeBus::Registration& made = fake_.registered.front();
    EXPECT_EQ(made.eventName, "EVENT");
    EXPECT_EQ(made.consumerName, "CONSUMER");
    EXPECT_EQ(made.flags, 0U);
    EXPECT_EQ(made.At<std::uint32_t>(0), 1U);
    EXPECT_EQ(made.recordConsumerName, "CONSUMER");
    EXPECT_EQ(made.recordEventName, "EVENT");
    EXPECT_EQ(made.At<void*>(24), &consumer_);
    EXPECT_EQ(made.At<HEBCallback>(48), &NoCallback);
    EXPECT_EQ(made.At<HEBCallback>(96), &NoCallback);
    EXPECT_EQ(made.At<std::uint32_t>(104), 3U);
    const auto zeros = [&made](std::size_t from, std::size_t to) {
        return std::all_of(made.record.begin() + static_cast<std::ptrdiff_t>(from),
                           made.record.begin() + static_cast<std::ptrdiff_t>(to),
                           [](unsigned char byte) { return byte == 0; });
    };
    EXPECT_TRUE(zeros(4, 8) && zeros(32, 48) && zeros(56, 96) && zeros(108, 120));
    EXPECT_EQ(key->eventName, "EVENT");
    EXPECT_EQ(key->consumerName, "CONSUMER");
    EXPECT_EQ(key->handle, made.handle);
    EXPECT_EQ(key->context, made.At<std::uint64_t>(24));
}

TEST_F(Bus, RefusedRegistrationIsARuntimeError) {
    fake_.registerResult = 7;
    EXPECT_EQ(ThrownBy([this] { Register(); }), ARuntimeError("HEB register error"));
    EXPECT_EQ(log_.Text(), "");
}

TEST_F(Bus, OnlyTheLow32BitsOfAResultCount) {
    fake_.unregisterResult = 0x700000000;
    std::unique_ptr<HEBKey> key = Register();
    EXPECT_EQ(ThrownBy([&] { bus_.EventUnregister(key.release()); }), Thrown{});
    fake_.registerResult = 0x700000000;
    EXPECT_EQ(ThrownBy([this] { Register(); }), Thrown{});
}

TEST_F(Bus, UnregistersWithTheHandleAndTheContext) {
    std::unique_ptr<HEBKey> key = Register();
    const std::uint64_t handle = key->handle;
    bus_.EventUnregister(key.release());
    EXPECT_EQ(fake_.unregisteredHandles, (std::vector<std::uint64_t>{handle}));
    EXPECT_EQ(fake_.unregisteredContexts, (std::vector<void*>{&consumer_}));
    EXPECT_TRUE(fake_.registered.empty());
}

TEST_F(Bus, AKeyThatIsNotRegisteredIsOnlyFreed) {
    bus_.EventUnregister(std::make_unique<HEBKey>().release());
    EXPECT_TRUE(fake_.unregisteredHandles.empty());
}

TEST_F(Bus, NullKeyIsARuntimeError) {
    EXPECT_EQ(ThrownBy([this] { bus_.EventUnregister(nullptr); }), ARuntimeError("Key is null"));
}

TEST_F(Bus, RefusedUnregistrationIsLoggedAndARuntimeError) {
    std::unique_ptr<HEBKey> key = Register();
    fake_.unregisterResult = 0x15;
    EXPECT_EQ(ThrownBy([&] { bus_.EventUnregister(key.release()); }),
              ARuntimeError("Could not unregister with HEB"));
    EXPECT_EQ(log_.Text(), "Could not unregister with HEB.  HEN returned status 15\n");
}

}  // namespace
