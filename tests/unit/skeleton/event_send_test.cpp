#include <gtest/gtest.h>

#include "binding/skeleton/vcc_methods.h"
#include "platform/vcc/utils/tlv_helper.h"
#include "records/wardend_records.h"
#include "tests/support/memory_log.h"
#include "tests/unit/skeleton/fake_driver.h"

namespace {

using lumo::vcc::api::types::DriverType;
using lumo::vcc::api::types::SerializeType;
using vesk::wardend::LatencySwitch;
using wardend::test::FakeDriver;
using wardend::test::LogLevel;

constexpr std::uint32_t kEventId = 30161;

LatencySwitch Switch(std::uint16_t eventId) {
    LatencySwitch sample;
    sample.mode = vesk::wardend::LatencyMode::kOn;
    sample.index.drivers = {vesk::wardend::DriverType::DDS};
    sample.index.serviceId = 7;
    sample.index.topicName = "/Norvane/AP/Pose";
    sample.index.eventId = eventId;
    return sample;
}

// A serializer whose size is beyond what a sample may take.
struct HugeSerializer {
    std::uint64_t GetSize() { return 0xFFFFFFECULL; }
    void Serialize(unsigned char* /*buffer*/) {
        ADD_FAILURE() << "an oversized sample was written";
    }
};

class EventSendTest : public wardend::test::MemoryLogTest {
protected:
    void TearDown() override {
        vcc_.reset();
        for (auto type : registered_) {
            lumo::vcc::driver::DriverRegistry::Unregister(type);
        }
        MemoryLogTest::TearDown();
    }

    std::shared_ptr<FakeDriver> AddDriver(DriverType type, SerializeType serializeType,
                                          bool fails) {
        auto driver =
            std::make_shared<FakeDriver>(type, static_cast<std::uint8_t>(serializeType), fails);
        lumo::vcc::driver::DriverRegistry::Register(driver);
        registered_.push_back(type);
        return driver;
    }

    void Build(const std::vector<DriverType>& drivers, bool isField = false,
               const std::shared_ptr<lumo::vcc::api::types::Pdu>& pdu = nullptr) {
        vcc_ = std::make_unique<lumo::vcc::Vcc>(
            ara::com::ServiceIdentifierType{0x5700, "App", nullptr},
            lumo::vcc::api::types::InstanceIdentifier("1"),
            lumo::vcc::api::types::MethodCallProcessingMode::kEvent);
        lumo::vcc::EventInfoMap infos;
        for (auto type : drivers) {
            auto info = std::make_shared<lumo::vcc::api::types::EventInfo>();
            info->driverType = type;
            info->entityId = kEventId;
            info->serviceId = 0x5700;
            info->instanceId = "1";
            info->shortName = "LatencySwitch";
            info->isField = isField;
            info->pdu = pdu;
            infos.emplace(type, info);
        }
        ASSERT_TRUE(vcc_->InitializeEvent(kEventId, infos));
    }

    ara::core::Result<void> Send(const LatencySwitch& sample) {
        lumo::vcc::api::types::internal::SampleInfoImpl info;
        return vcc_->Send(sample, kEventId, info);
    }

    static LatencySwitch ReadSomeip(const std::vector<unsigned char>& bytes) {
        LatencySwitch sample;
        lumo::serialize::someip::Deserializer<LatencySwitch> reader(
            bytes.data(), bytes.size(), lumo::serialize::SerializeConfig{});
        EXPECT_TRUE(reader.GetValue(sample));
        return sample;
    }

    std::unique_ptr<lumo::vcc::Vcc> vcc_;
    std::vector<DriverType> registered_;
};

TEST_F(EventSendTest, AnEventBeforeTheOfferOrAboveTheSizeLimitIsRefusedAfterItGoesOut) {
    auto someip = AddDriver(DriverType::kSomeip, SerializeType::kSomeip, false);
    Build({DriverType::kSomeip});
    const auto early = Send(Switch(1));
    ASSERT_FALSE(early.HasValue());
    EXPECT_EQ(early.Error().Value(),
              static_cast<int>(lumo::vcc::api::types::ComErrc::kServiceNotOffered));
    EXPECT_TRUE(someip->Event(kEventId)->Sent().empty());
    EXPECT_EQ(vcc_->Send(Switch(1), 99,
                         *std::make_unique<lumo::vcc::api::types::internal::SampleInfoImpl>())
                  .Error()
                  .Value(),
              static_cast<int>(lumo::vcc::api::types::ComErrc::kCommunicationStackError));
    EXPECT_TRUE(Logged(LogLevel::kError, "[Vcc][Event were not initialized][id=99]"));
    HugeSerializer huge;
    lumo::vcc::api::types::internal::SampleInfoImpl info;
    EXPECT_FALSE(vcc_->FindEvent(kEventId)->SendCommonData(someip->Event(kEventId), huge, info,
                                                           DriverType::kSomeip));
    EXPECT_TRUE(Logged(LogLevel::kError,
                       "[EventSkeleton][Serialize failed, maybe length filed is less than actual "
                       "size][instanceId=1, shortName=LatencySwitch, protocol=SOMEIP]"));

    ASSERT_TRUE(vcc_->OfferService());
    ASSERT_TRUE(Send(Switch(2)).HasValue());
    const auto sent = someip->Event(kEventId)->Sent();
    ASSERT_EQ(sent.size(), 1U);
    EXPECT_EQ(ReadSomeip(sent[0]), Switch(2));
}

TEST_F(EventSendTest, AFailingDriverDoesNotStopTheOthers) {
    auto dds = AddDriver(DriverType::kDds, SerializeType::kDds, true);
    auto someip = AddDriver(DriverType::kSomeip, SerializeType::kSomeip, false);
    Build({DriverType::kDds, DriverType::kSomeip});
    ASSERT_TRUE(vcc_->OfferService());
    const auto result = Send(Switch(3));
    ASSERT_FALSE(result.HasValue());
    EXPECT_EQ(result.Error().Value(),
              static_cast<int>(lumo::vcc::api::types::ComErrc::kCommunicationStackError));
    EXPECT_EQ(someip->Event(kEventId)->Sent().size(), 1U);
    const auto stats = vcc_->FindEvent(kEventId)->GetStats();
    EXPECT_EQ(stats->ToSomeipCount(), 1U);
    EXPECT_EQ(stats->ToDdsCount(), 0U);
}

TEST_F(EventSendTest, TrafficPolicyAndLatencyStampShapeWhatIsSent) {
    auto someip = AddDriver(DriverType::kSomeip, SerializeType::kSomeip, false);
    Build({DriverType::kSomeip});
    ASSERT_TRUE(vcc_->OfferService());
    auto event = vcc_->FindEvent(kEventId);
    event->SetLatencyMode(1);
    ASSERT_TRUE(Send(Switch(4)).HasValue());
    const auto sent = someip->Event(kEventId)->Sent();
    ASSERT_EQ(sent.size(), 1U);
    const std::size_t plain = sent[0].size() - lumo::vcc::utils::TlvHelper::kTimeStampSize;
    timespec stamp{};
    EXPECT_TRUE(lumo::vcc::utils::TlvHelper::ReadTlvTimeStamp(
        sent[0].data() + plain, lumo::vcc::utils::TlvHelper::kTimeStampSize, stamp));
    EXPECT_EQ(ReadSomeip(std::vector<unsigned char>(sent[0].begin(), sent[0].begin() + plain)),
              Switch(4));

    std::uint64_t now = 1;
    event->SetTrafficControlPolicy(
        std::make_shared<vesk::BasicPolicy>(100, 1, [&now] { return now; }));
    EXPECT_TRUE(Send(Switch(5)).HasValue());
    EXPECT_FALSE(Send(Switch(6)).HasValue());
    EXPECT_EQ(event->GetStats()->TrafficControlledCount(), 1U);
}

TEST_F(EventSendTest, AFieldSendsOnlyWhenItsValueChanges) {
    auto someip = AddDriver(DriverType::kSomeip, SerializeType::kSomeip, false);
    Build({DriverType::kSomeip}, true);
    EXPECT_TRUE(Send(Switch(1)).HasValue()) << "kept before the offer, not sent";
    ASSERT_TRUE(vcc_->OfferService());
    vcc_->FindEvent(kEventId)->SetNotifierEnabled(true);
    EXPECT_TRUE(Send(Switch(2)).HasValue());
    EXPECT_TRUE(Send(Switch(2)).HasValue());
    EXPECT_TRUE(Send(Switch(3)).HasValue());
    EXPECT_EQ(someip->Event(kEventId)->Sent().size(), 2U);
    EXPECT_TRUE(Logged(LogLevel::kVerbose, "Update the same notifier value"));
}

TEST_F(EventSendTest, ASignalEventNeedsAPduOfFourSignals) {
    auto signal = AddDriver(DriverType::kSomeip, SerializeType::kSignal, false);
    auto makePdu = [](std::size_t count) {
        std::vector<std::shared_ptr<lumo::vcc::api::types::ISignal>> signals;
        for (std::size_t i = 0; i < count; ++i) {
            signals.push_back(std::make_shared<lumo::vcc::api::types::ISignal>(
                lumo::vcc::api::types::ISignal{"s" + std::to_string(i), i * 16, 16, 1}));
        }
        return std::make_shared<lumo::vcc::api::types::Pdu>("LatencyPdu", 8, signals);
    };
    Build({DriverType::kSomeip}, false, makePdu(3));
    ASSERT_TRUE(vcc_->OfferService());
    EXPECT_FALSE(Send(Switch(1)).HasValue());
    EXPECT_TRUE(Logged(LogLevel::kError,
                       "[EventSkeleton][Signal-based event data is not matched with the "
                       "pdu][entityId=30161, eventDataCount=4, pduSignalCount=3]"));

    vcc_.reset();
    Build({DriverType::kSomeip}, false, makePdu(4));
    ASSERT_TRUE(vcc_->OfferService());
    EXPECT_TRUE(Send(Switch(0x0A0B)).HasValue());
    const auto sent = signal->Event(kEventId)->Sent();
    ASSERT_EQ(sent.size(), 1U);
    ASSERT_EQ(sent[0].size(), 9U) << "the static 8 bytes and one driver";
    // Signal 2 (serviceId 7) sits at bits 32..47, Intel order.
    EXPECT_EQ(sent[0][4], 7);
    EXPECT_EQ(sent[0][5], 0);
}

}  // namespace
