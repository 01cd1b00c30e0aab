#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <functional>
#include <string>
#include <thread>

#include "tests/support/capturedLog.h"
#include "tests/support/fakeBus.h"
#include "util/common/heb.h"

namespace {

using namespace std::chrono_literals;

constexpr GUID_t kGUID{0x12345678, 0x9abc, 0x0def, 0x80, 1, {10, 11, 12, 13, 14, 15}};
constexpr GUID_t kOther{0x12345678, 0x9abc, 0x0def, 0x80, 1, {10, 11, 12, 13, 14, 16}};
constexpr std::uint64_t kAbortable = 8;
constexpr std::uint64_t kForced = 0;

/// A family as a test drives it.
struct FamilyRow {
    const char* name;
    const char* eventName;
    const char* object;
    int (*registerFor)(HEBConsumer&, const GUID_t*, const HEBChangeFlag&);
    int (HEBConsumer::*unregister)();
    HEBCallback callback;
    std::uint32_t (HEBConsumer::*handler)(EventBlock*);
};

void PrintTo(const FamilyRow& row, std::ostream* stream) {
    *stream << row.name;
}

template <typename Key>
Key KeyOf(const GUID_t* guid) {
    return guid != nullptr ? Key(guid) : Key();
}

template <typename Key, int (HEBConsumer::*registerFamily)(const Key&, HEBChangeFlag)>
int WithFlag(HEBConsumer& consumer, const GUID_t* guid, const HEBChangeFlag& flag) {
    return (consumer.*registerFamily)(KeyOf<Key>(guid), flag);
}

template <typename Key, int (HEBConsumer::*registerFamily)(const Key&)>
int Plain(HEBConsumer& consumer, const GUID_t* guid, const HEBChangeFlag&) {
    return (consumer.*registerFamily)(KeyOf<Key>(guid));
}

const FamilyRow kFamilies[] = {
    {"CPSE", "OSTREL.ChangePoolState.Enter", "pool",
     WithFlag<PoolKey, &HEBConsumer::HEBC_CPSE_Register>, &HEBConsumer::HEBC_CPSE_Unregister,
     HEBConsumer::HEBC_CPSE_Callback, &HEBConsumer::HEBC_CPSE_Handler},
    {"CVSE", "OSTREL.ChangeVolState.Enter", "volume",
     WithFlag<VolumeKey, &HEBConsumer::HEBC_CVSE_Register>, &HEBConsumer::HEBC_CVSE_Unregister,
     HEBConsumer::HEBC_CVSE_Callback, &HEBConsumer::HEBC_CVSE_Handler},
    {"PR", "OSTREL.PoolRename.Enter", "pool", Plain<PoolKey, &HEBConsumer::HEBC_PR_Register>,
     &HEBConsumer::HEBC_PR_Unregister, HEBConsumer::HEBC_PR_Callback,
     &HEBConsumer::HEBC_PR_Handler},
    {"VR", "OSTREL.LVolumeRename.Enter", "volume", Plain<VolumeKey, &HEBConsumer::HEBC_VR_Register>,
     &HEBConsumer::HEBC_VR_Unregister, HEBConsumer::HEBC_VR_Callback,
     &HEBConsumer::HEBC_VR_Handler},
    {"VRX", "OSTREL.LVolumeRename.Exit", "volume",
     Plain<VolumeKey, &HEBConsumer::HEBC_VRX_Register>, &HEBConsumer::HEBC_VRX_Unregister,
     HEBConsumer::HEBC_VRX_Callback, &HEBConsumer::HEBC_VRX_Handler},
    {"VD", "OSTREL.LVolumeDelete.Enter", "volume", Plain<VolumeKey, &HEBConsumer::HEBC_VD_Register>,
     &HEBConsumer::HEBC_VD_Unregister, HEBConsumer::HEBC_VD_Callback,
     &HEBConsumer::HEBC_VD_Handler},
    {"VDX", "OSTREL.LVolumeDelete.Exit", "volume",
     Plain<VolumeKey, &HEBConsumer::HEBC_VDX_Register>, &HEBConsumer::HEBC_VDX_Unregister,
     HEBConsumer::HEBC_VDX_Callback, &HEBConsumer::HEBC_VDX_Handler},
    {"ZID64E", "OSTREL.LVolZID64.Enter", "volume",
     Plain<VolumeKey, &HEBConsumer::HEBC_ZID64E_Register>, &HEBConsumer::HEBC_ZID64E_Unregister,
     HEBConsumer::HEBC_ZID64E_Callback, &HEBConsumer::HEBC_ZID64E_Handler},
    {"ZID64X", "OSTREL.LVolZID64.Exit", "volume",
     Plain<VolumeKey, &HEBConsumer::HEBC_ZID64X_Register>, &HEBConsumer::HEBC_ZID64X_Unregister,
     HEBConsumer::HEBC_ZID64X_Callback, &HEBConsumer::HEBC_ZID64X_Handler}};

class Consumer {
  public:
    ~Consumer() { HEBConsumer::Retire(std::move(consumer_)); }
    HEBConsumer& operator*() { return *consumer_; }
    HEBConsumer* operator->() { return consumer_.get(); }

  private:
    std::unique_ptr<HEBConsumer> consumer_ = std::make_unique<HEBConsumer>("OSTREL.Test");
};

class Families : public testing::TestWithParam<FamilyRow> {
  protected:
    const FamilyRow& family_ = GetParam();

    int Register(const GUID_t* guid = &kGUID) {
        return family_.registerFor(*consumer_, guid, flag_);
    }
    int Unregister() { return ((*consumer_).*family_.unregister)(); }

    FakeBus::Delivery Deliver(std::vector<unsigned char> data, std::uint32_t notifyType = 9) {
        return FakeBus::Deliver(registration_, std::move(data), notifyType).get();
    }

    /// Registers and remembers the registration for events that come late.
    void Watch(const GUID_t* guid = &kGUID) {
        ASSERT_EQ(Register(guid), 0);
        registration_ = fake_.registered.back();
    }

    std::string Heading(const char* position) const {
        return std::string("util/common/heb[") + position + "] HEBC_" + family_.name +
               "_Handler -- ";
    }

    FakeBus& fake_ = FakeBus::Fresh();
    support::CapturedLog log_;
    HEBChangeFlag flag_ = std::make_shared<std::atomic<bool>>(false);
    Consumer consumer_;
    FakeBus::Registration registration_{};
};

TEST_P(Families, RegisterForTheirEventWithTheirOwnCallback) {
    ASSERT_EQ(Register(), 0);
    ASSERT_EQ(fake_.registered.size(), 1U);
    const FakeBus::Registration& made = fake_.registered.front();
    EXPECT_EQ(made.eventName, family_.eventName);
    EXPECT_EQ(made.recordEventName, family_.eventName);
    EXPECT_EQ(made.consumerName, "OSTREL.Test");
    EXPECT_EQ(made.At<void*>(24), &*consumer_);
    EXPECT_EQ(made.At<HEBCallback>(48), family_.callback);
    EXPECT_EQ(Unregister(), 0);
    EXPECT_TRUE(fake_.registered.empty());
    EXPECT_EQ(log_.Text(), "");
}

TEST_P(Families, RefuseToRegisterOrUnregisterTwice) {
    EXPECT_EQ(Unregister(), 20010);
    EXPECT_EQ(Register(), 0);
    EXPECT_EQ(Register(), 20010);
    EXPECT_EQ(fake_.registered.size(), 1U);
    EXPECT_EQ(Unregister(), 0);
    EXPECT_EQ(Unregister(), 20010);
    EXPECT_EQ(Register(), 0);
    EXPECT_EQ(Unregister(), 0);
}

TEST_P(Families, ReportARefusedRegistration) {
    fake_.registerResult = 5;
    EXPECT_EQ(Register(), 584738804);
    EXPECT_EQ(log_.Text(), std::string("Exception while registering for HEB event ") +
                               family_.eventName + ":  HEB register error\nutil/common/heb[635]\n");
    EXPECT_EQ(Unregister(), 20010);
    fake_.registerResult = 0;
    EXPECT_EQ(Register(), 0);
    EXPECT_EQ(Unregister(), 0);
}

TEST_P(Families, SwallowARefusedUnregistrationAndForgetTheKey) {
    ASSERT_EQ(Register(), 0);
    fake_.unregisterResult = 0xAB;
    EXPECT_EQ(Unregister(), 0);
    EXPECT_EQ(log_.Text(),
              "Could not unregister with HEB.  HEN returned status ab\n"
              "util/common/heb[225] Could not unregister from HEB Could not unregister with HEB\n");
    EXPECT_EQ(Unregister(), 20010);
}

TEST_P(Families, AnswerAnEventBeforeTheRegistrationIsCompleteAsEarly) {
    FakeBus::Delivery delivery{1, 1};
    fake_.duringRegistration = [&](const FakeBus::Registration& made) {
        delivery = FakeBus::Deliver(made, StateChange(kGUID, 3, 6, kAbortable)).get();
    };
    Watch();
    EXPECT_EQ(delivery.answer, 0U);
    EXPECT_EQ(delivery.refusalStatus, 0U);
    EXPECT_EQ(log_.Text(), Heading("540") + "early event.\n");
    EXPECT_EQ(Unregister(), 0);
}

TEST_P(Families, AnswerAnEventAfterTheUnregistrationAsEarly) {
    Watch();
    ASSERT_EQ(Unregister(), 0);
    EXPECT_EQ(Deliver(StateChange(kGUID, 3, 6, kAbortable)).answer, 0U);
    EXPECT_EQ(log_.Text(), Heading("540") + "early event.\n");
}

TEST_P(Families, HandleWhatTheirCallbackIsGiven) {
    Watch();
    EventBlock event{};
    event.notifyType = 2;
    HEBConsumer& consumer = *consumer_;
    EXPECT_EQ(std::invoke(family_.handler, consumer, &event), 0U);
    EXPECT_EQ(log_.Text(), Heading("547") + "not a EBEventNotifyType(2) we care about.\n");
    EXPECT_EQ(Unregister(), 0);
}

TEST_P(Families, IgnoreAnotherNotifyType) {
    Watch();
    EXPECT_EQ(Deliver(StateChange(kGUID, 3, 6, kAbortable), 0x1F).answer, 0U);
    EXPECT_EQ(log_.Text(), Heading("547") + "not a EBEventNotifyType(1f) we care about.\n");
    EXPECT_EQ(Unregister(), 0);
}

TEST_P(Families, IgnoreAnotherGUID) {
    Watch();
    const FakeBus::Delivery delivery = Deliver(StateChange(kOther, 3, 6, kForced));
    EXPECT_EQ(delivery.answer, 0U);
    EXPECT_EQ(delivery.refusalStatus, 0U);
    EXPECT_FALSE(flag_->load());
    EXPECT_EQ(Deliver({}).answer, 0U);
    const std::string line = Heading("556") + "not the " + family_.object + " we care about.\n";
    EXPECT_EQ(log_.Text(), line + line);
    EXPECT_EQ(Unregister(), 0);
}

TEST_P(Families, GoOnReadingWhatTheyWatchWhenItsOwnerIsGone) {
    {
        const auto key = std::make_unique<GUID_t>(kGUID);
        Watch(key.get());
    }
    EXPECT_EQ(Deliver(StateChange(kOther, 3, 6, kForced)).answer, 0U);
    EXPECT_EQ(Unregister(), 0);
}

INSTANTIATE_TEST_SUITE_P(All, Families, testing::ValuesIn(kFamilies),
                         [](const auto& row) { return std::string(row.param.name); });

/// The two families that refuse and hold changes.
class StateFamilies : public Families {
  protected:
    const char* Request() const { return std::strcmp(family_.name, "CPSE") == 0 ? "CPS" : "CVS"; }
};

TEST_P(StateFamilies, IgnoreAnUnchangedState) {
    Watch();
    EXPECT_EQ(Deliver(StateChange(kGUID, 3, 3, 0x1A)).answer, 0U);
    EXPECT_FALSE(flag_->load());
    const std::string line = Heading("571") + family_.object + " state did not change.";
    EXPECT_EQ(log_.Text(),
              line + (std::strcmp(family_.name, "CVSE") == 0 ? "   The mode is 0x1a\n" : "\n"));
    EXPECT_EQ(Unregister(), 0);
}

TEST_P(StateFamilies, RefuseAChangeThatMayBeRefused) {
    Watch();
    const FakeBus::Delivery delivery = Deliver(StateChange(kGUID, 3, 6, kAbortable | 0x100));
    EXPECT_EQ(delivery.answer, 0xFFFF00U);
    EXPECT_EQ(delivery.refusalStatus, std::strcmp(family_.name, "CPSE") == 0 ? 20880U : 20881U);
    EXPECT_FALSE(flag_->load());
    EXPECT_EQ(log_.Text(), Heading("584") + "denyed " + Request() +
                               " request because VOLMODE_USER_ABORTABLE present.\n");
    EXPECT_EQ(Unregister(), 0);
}

TEST_P(StateFamilies, RefuseForEveryObjectWithTheKeyOfAll) {
    Watch(nullptr);
    EXPECT_EQ(Deliver(StateChange(kOther, 3, 6, kAbortable)).answer, 0xFFFF00U);
    EXPECT_EQ(Unregister(), 0);
}

class ForcedChange : public StateFamilies {
  protected:
    std::future<FakeBus::Delivery> Force() {
        auto delivery = FakeBus::Deliver(registration_, StateChange(kGUID, 3, 6, kForced | 0x10));
        while (!flag_->load(std::memory_order_relaxed)) {
            std::this_thread::sleep_for(1ms);
        }
        return delivery;
    }

    static void ExpectAccepted(std::future<FakeBus::Delivery>& delivery) {
        ASSERT_EQ(delivery.wait_for(2s), std::future_status::ready);
        const FakeBus::Delivery done = delivery.get();
        EXPECT_EQ(done.answer, 0U);
        EXPECT_EQ(done.refusalStatus, 0U);
    }
};

TEST_P(ForcedChange, IsHeldUntilTheFlagIsCleared) {
    Watch();
    auto delivery = Force();
    EXPECT_EQ(delivery.wait_for(150ms), std::future_status::timeout);
    flag_->store(false, std::memory_order_relaxed);
    ExpectAccepted(delivery);
    EXPECT_EQ(log_.Text(), Heading("592") + "accepted " + Request() +
                               " request because VOLMODE_USER_ABORTABLE not present.\n");
    EXPECT_EQ(Unregister(), 0);
}

TEST_P(ForcedChange, IsHeldUntilTheFamilyIsUnregistered) {
    Watch();
    auto delivery = Force();
    EXPECT_EQ(Unregister(), 0);
    ExpectAccepted(delivery);
    EXPECT_TRUE(flag_->load());
}

TEST_P(ForcedChange, IsLetGoEvenWhenTheFamilyIsRegisteredAnew) {
    Watch();
    auto delivery = Force();
    EXPECT_EQ(Unregister(), 0);
    EXPECT_EQ(Register(&kOther), 0);
    ExpectAccepted(delivery);
    EXPECT_EQ(Unregister(), 0);
}

INSTANTIATE_TEST_SUITE_P(All, StateFamilies, testing::Values(kFamilies[0], kFamilies[1]),
                         [](const auto& row) { return std::string(row.param.name); });
INSTANTIATE_TEST_SUITE_P(All, ForcedChange, testing::Values(kFamilies[0], kFamilies[1]),
                         [](const auto& row) { return std::string(row.param.name); });

struct ReportRow {
    FamilyRow family;
    std::vector<unsigned char> data;
    const char* report;
};

void PrintTo(const ReportRow& row, std::ostream* stream) {
    *stream << row.family.name;
}

class ReportingFamilies : public testing::TestWithParam<ReportRow> {};

TEST_P(ReportingFamilies, LogWhatTheySeeAndLetItPass) {
    FakeBus& fake = FakeBus::Fresh();
    const support::CapturedLog log;
    Consumer consumer;
    const FamilyRow& family = GetParam().family;
    ASSERT_EQ(family.registerFor(*consumer, &kGUID, nullptr), 0);
    const FakeBus::Delivery delivery =
        FakeBus::Deliver(fake.registered.front(), GetParam().data).get();
    EXPECT_EQ(delivery.answer, 0U);
    EXPECT_EQ(delivery.refusalStatus, 0U);
    EXPECT_EQ(log.Text(), std::string("util/common/heb[563] HEBC_") + family.name + "_Handler -- " +
                              GetParam().report);
    EXPECT_EQ(((*consumer).*family.unregister)(), 0);
}

#define GUID_TEXT "12345678-9abc-0def-80-01-0a0b0c0d0e0f"

INSTANTIATE_TEST_SUITE_P(
    All, ReportingFamilies,
    testing::Values(ReportRow{kFamilies[2], Rename(kGUID, u"OLD", u"N\u00e9W"),
                              "the pool is being renamed.\nPool GUID: " GUID_TEXT
                              "\nOld Name: OLD\nNew Name: N\xC3\xA9W\n"},
                    ReportRow{kFamilies[3], Rename(kGUID, u"OLD", u"NEW"),
                              "the volume is being renamed.\nVolume GUID: " GUID_TEXT
                              "\nOld Name: OLD\nNew Name: NEW\n"},
                    ReportRow{kFamilies[4], Rename(kGUID, nullptr, u"NEW"),
                              "the volume has been renamed.\nVolume GUID: " GUID_TEXT
                              "\nOld Name: \nNew Name: NEW\n"},
                    ReportRow{kFamilies[5], Identity(kGUID, kOther),
                              "the volume is being deleted.\nVolume GUID: " GUID_TEXT "\n"},
                    ReportRow{kFamilies[6], Identity(kGUID, kOther),
                              "the volume has been deleted.\nOld Volume GUID: " GUID_TEXT
                              "\nNew Volume GUID: 12345678-9abc-0def-80-01-0a0b0c0d0e10\n"},
                    ReportRow{kFamilies[7], Identity(kGUID, kOther),
                              "the volume is being moved to 64-bit ZIDs.\nVolume GUID: " GUID_TEXT
                              "\n"},
                    ReportRow{kFamilies[8], Identity(kGUID, kOther),
                              "the volume has been moved to 64-bit ZIDs.\nVolume GUID: " GUID_TEXT
                              "\n"}),
    [](const auto& row) { return std::string(row.param.family.name); });

#undef GUID_TEXT

template <typename Key,
          int (HEBConsumer::*registerFamily)(const Key&, std::atomic<bool>* changeRequired)>
int WithOwnFlag(HEBConsumer& consumer, std::atomic<bool>* flag) {
    return (consumer.*registerFamily)(Key(&kGUID), flag);
}

struct OwnFlagRow {
    FamilyRow family;
    int (*registerFor)(HEBConsumer&, std::atomic<bool>*);
};

void PrintTo(const OwnFlagRow& row, std::ostream* stream) {
    *stream << row.family.name;
}

class FlagOfItsOwner : public testing::TestWithParam<OwnFlagRow> {};

TEST_P(FlagOfItsOwner, IsSetByAForcedChangeWhichWaitsUntilItIsCleared) {
    FakeBus& fake = FakeBus::Fresh();
    const support::CapturedLog log;
    std::atomic<bool> flag{false};
    Consumer consumer;
    ASSERT_EQ(GetParam().registerFor(*consumer, &flag), 0);
    auto held = FakeBus::Deliver(fake.registered.front(), StateChange(kGUID, 3, 6, kForced));
    while (!flag.load(std::memory_order_relaxed)) {
        std::this_thread::sleep_for(1ms);
    }
    EXPECT_EQ(held.wait_for(150ms), std::future_status::timeout);
    flag.store(false, std::memory_order_relaxed);
    ASSERT_EQ(held.wait_for(5s), std::future_status::ready);
    EXPECT_EQ(held.get().answer, 0U);
    EXPECT_EQ(((*consumer).*GetParam().family.unregister)(), 0);
}

INSTANTIATE_TEST_SUITE_P(
    All, FlagOfItsOwner,
    testing::Values(
        OwnFlagRow{kFamilies[0], WithOwnFlag<PoolKey, &HEBConsumer::HEBC_CPSE_Register>},
        OwnFlagRow{kFamilies[1], WithOwnFlag<VolumeKey, &HEBConsumer::HEBC_CVSE_Register>}),
    [](const auto& row) { return std::string(row.param.family.name); });

}  // namespace
