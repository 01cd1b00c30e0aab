#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <thread>

#include "tests/support/capturedLog.h"
#include "tests/support/fakeBus.h"
#include "util/common/heb.h"

// What the bus's threads find of a consumer that comes or goes meanwhile; the sanitizers watch.

namespace {

using namespace std::chrono_literals;

constexpr GUID_t kGUID{0x12345678, 0x9abc, 0x0def, 0x80, 1, {10, 11, 12, 13, 14, 15}};
constexpr std::uint64_t kAbortable = 8;
constexpr std::uint64_t kForced = 0;

class ALeavingConsumer : public testing::Test {
  protected:
    ALeavingConsumer() {
        EXPECT_EQ(consumer_->HEBC_CPSE_Register(PoolKey(&kGUID), flag_), 0);
        registration_ = fake_.registered.front();
        held_ = FakeBus::Deliver(registration_, StateChange(kGUID, 3, 6, kForced));
        while (!flag_->load(std::memory_order_relaxed)) {
            std::this_thread::sleep_for(1ms);
        }
    }

    void ExpectLetGo() {
        ASSERT_EQ(held_.wait_for(5s), std::future_status::ready);
        EXPECT_EQ(held_.get().answer, 0U);
    }

    FakeBus& fake_ = FakeBus::Fresh();
    support::CapturedLog log_;
    HEBChangeFlag flag_ = std::make_shared<std::atomic<bool>>(false);
    std::unique_ptr<HEBConsumer> consumer_ = std::make_unique<HEBConsumer>("OSTREL.Test");
    FakeBus::Registration registration_{};
    std::future<FakeBus::Delivery> held_;
};

TEST_F(ALeavingConsumer, IsDestroyedAfterItsUnregistrationWhenItsHandlerHasAnswered) {
    EXPECT_EQ(consumer_->HEBC_CPSE_Unregister(), 0);
    consumer_.reset();
    ExpectLetGo();
}

TEST_F(ALeavingConsumer, LetsAHeldChangeGoWhenItIsDestroyedWhileRegistered) {
    consumer_.reset();
    ExpectLetGo();
}

TEST_F(ALeavingConsumer, AnswersWhateverComesLateAsEarlyWhenItIsRetired) {
    flag_.reset();
    HEBConsumer::Retire(std::move(consumer_));
    ExpectLetGo();
    EXPECT_EQ(FakeBus::Deliver(registration_, StateChange(kGUID, 3, 6, kForced)).get().answer, 0U);
    EXPECT_EQ(FakeBus::Deliver(registration_, StateChange(kGUID, 3, 6, kAbortable)).get().answer,
              0U);
    HEBConsumer::Retire(nullptr);
}

TEST_F(ALeavingConsumer, StaysWhereItIsWhenAnotherOneIsRetiredBehindIt) {
    HEBConsumer::Retire(std::move(consumer_));
    ExpectLetGo();
    auto second = std::make_unique<HEBConsumer>("OSTREL.Second");
    ASSERT_EQ(second->HEBC_CPSE_Register(PoolKey(&kGUID), flag_), 0);
    HEBConsumer::Retire(std::move(second));
    // It would take the place of one that was freed by now, and it refuses.
    const auto third = std::make_unique<HEBConsumer>("OSTREL.Third");
    ASSERT_EQ(third->HEBC_CPSE_Register(PoolKey(&kGUID), flag_), 0);
    EXPECT_EQ(FakeBus::Deliver(registration_, StateChange(kGUID, 3, 6, kAbortable)).get().answer,
              0U);
}

TEST(ARegisteredFamily, TakesEventsWhileItIsRegisteredAndUnregistered) {
    FakeBus& fake = FakeBus::Fresh();
    const support::CapturedLog log;
    HEBConsumer consumer("OSTREL.Test");
    const auto flag = std::make_shared<std::atomic<bool>>(false);
    ASSERT_EQ(consumer.HEBC_CPSE_Register(PoolKey(&kGUID), flag), 0);
    const FakeBus::Registration registration = fake.registered.front();
    std::atomic<bool> done{false};
    // One thread that is there before the registrations that it sees.
    std::thread bus([&] {
        while (!done.load()) {
            std::vector<unsigned char> data = StateChange(kGUID, 3, 6, kAbortable);
            EventBlock event{};
            event.eventData = data.data();
            event.notifyType = 9;
            event.context = &consumer;
            const std::uint32_t answer = HEBConsumer::HEBC_CPSE_Callback(&event);
            EXPECT_TRUE(answer == 0 || answer == 0xFFFF00U);
        }
    });
    for (int i = 0; i < 300; ++i) {
        EXPECT_EQ(consumer.HEBC_CPSE_Unregister(), 0);
        EXPECT_EQ(consumer.HEBC_CPSE_Register(PoolKey(&kGUID), flag), 0);
    }
    done.store(true);
    bus.join();
    EXPECT_EQ(consumer.HEBC_CPSE_Unregister(), 0);
}

}  // namespace
