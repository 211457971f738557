#include "registry/event_latency_manage.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <tuple>

#include "registry/event_info_manage.h"
#include "tests/support/record_builders.h"

namespace {

using namespace vesk::wardend;  // NOLINT(google-build-using-namespace): the records under test
using wardend::test::Event;
using wardend::test::EventShape;
using wardend::test::LogLevel;

constexpr auto kMode2 = static_cast<LatencyMode>(2);

class EventLatencyManageTest : public wardend::test::RegistryTest {
protected:
    void SetUp() override {
        RegistryTest::SetUp();
        sut_.SetLatencySwitchSender(
            [this](const std::shared_ptr<WardendAppSkeleton>&, const LatencySwitch& sent) {
                sent_.push_back(sent);
                return true;
            });
    }
    void TearDown() override {
        sut_.SetLatencySwitchSender(nullptr);
        RegistryTest::TearDown();
    }

    LatencyIndex Index(std::vector<DriverType> drivers) const {
        LatencyIndex index;
        index.drivers = std::move(drivers);
        index.serviceId = service_;
        index.instanceId = 1;
        index.topicName = "topic";
        index.eventId = 7;
        return index;
    }
    LatencySwitch Switch(std::vector<DriverType> drivers) const {
        return LatencySwitch{kMode2, Index(std::move(drivers))};
    }
    LatencyAppInfo Ack(const std::string& app, bool isPub, LatencyMode mode,
                       std::vector<DriverType> drivers = {DriverType::DDS}) const {
        LatencyAppInfo info;
        info.applicationName = app;
        info.index = Index(std::move(drivers));
        info.status = LatencyStatus{mode, isPub, !isPub};
        return info;
    }
    LatencyAppInfo Report(const std::string& app, std::uint64_t value, DriverType driver) const {
        LatencyAppInfo info;
        info.kind = static_cast<std::uint8_t>(LatencyInfoKind::kResult);
        info.applicationName = app;
        info.index = Index({driver});
        info.result = LatencyResult{value, value, value};
        return info;
    }
    EventRegisterInfo Registration(const std::string& app, bool dds, bool someip) const {
        return Event(EventShape{app, "LatType", self_, service_}, dds, someip);
    }
    std::map<String, LatencyResult> Results(std::uint16_t period,
                                            std::vector<DriverType> drivers) const {
        return sut_.QueryLatencyResult(LatencyQueryInfo{period, Index(std::move(drivers))});
    }
    using Modes = std::map<String, LatencyMode>;

    EventLatencyManage& sut_ = EventLatencyManage::GetInstance();
    std::vector<LatencySwitch> sent_;
};

TEST_F(EventLatencyManageTest, ASwitchBeforeAnyAcknowledgementListsNobodyAFailedSendIsLogged) {
    EXPECT_EQ(sut_.SwitchLatencyMode(nullptr, Switch({DriverType::DDS})), 0);
    ASSERT_EQ(sent_.size(), 1U);
    EXPECT_EQ(sent_[0], Switch({DriverType::DDS}));
    const LatencyModes modes = sut_.QueryLatencyStatus(Index({DriverType::DDS}));
    EXPECT_TRUE(modes.pubModes.empty());
    EXPECT_TRUE(modes.subModes.empty());
    EXPECT_TRUE(Logged(LogLevel::kInfo, "Query latency mode status, serviceId " + svc_ +
                                            " instanceId 1topicName is topic eventId is 7"));

    sut_.SetLatencySwitchSender(
        [](const std::shared_ptr<WardendAppSkeleton>&, const LatencySwitch&) { return false; });
    EXPECT_EQ(sut_.SwitchLatencyMode(nullptr, Switch({DriverType::DDS})), 0);
    EXPECT_TRUE(Logged(LogLevel::kWarn, "Wardend send latency switch failed"));
    sut_.SetLatencySwitchSender(nullptr);
    EXPECT_EQ(sut_.SwitchLatencyMode(nullptr, Switch({DriverType::DDS})), 0);
    EXPECT_TRUE(
        Logged(LogLevel::kWarn, "Wardend latency switch is not sent: no latency switch event"));
}

TEST_F(EventLatencyManageTest, WithoutASwitchEveryoneTheRegistryKnowsIsUnacknowledged) {
    auto& events = EventInfoManage::GetInstance();
    ASSERT_TRUE(events.RegisterEventInfo(Registration("latPub", true, true), true));
    ASSERT_TRUE(events.RegisterEventInfo(Registration("latSubA", true, false), false));
    ASSERT_TRUE(events.RegisterEventInfo(Registration("latSubB", false, true), false));
    const LatencyModes modes =
        sut_.QueryLatencyStatus(Index({DriverType::DDS, DriverType::SOMEIP}));
    EXPECT_EQ(modes.pubModes, (Modes{{"latPub", kUnacknowledgedLatencyMode}}));
    EXPECT_EQ(modes.subModes, (Modes{{"latSubA", kUnacknowledgedLatencyMode},
                                     {"latSubB", kUnacknowledgedLatencyMode}}));
}

TEST_F(EventLatencyManageTest, AcknowledgementsAndTheDuplicatePubLine) {
    // Without a switch an acknowledgement makes no entry.
    sut_.UpdateLatencyStatus(Ack("early", true, kMode2));
    EXPECT_TRUE(sut_.QueryLatencyStatus(Index({DriverType::DDS})).pubModes.empty());

    sut_.SwitchLatencyMode(nullptr, Switch({DriverType::DDS}));
    sut_.UpdateLatencyStatus(Ack("ackPub", true, kMode2));
    EXPECT_TRUE(Logged(LogLevel::kInfo, "Wardend receive app latency ack info, service id " + svc_ +
                                            " instanceId 1 topicName topic eventId 7"));
    const std::string first =
        "Wardend has new duplicate pub, older pub name is , will be replace to be ackPub";
    EXPECT_EQ(LogCount(LogLevel::kWarn, first), 1U);
    sut_.UpdateLatencyStatus(Ack("ackPub", true, kMode2));
    EXPECT_EQ(LogCount(LogLevel::kWarn, first), 1U);
    sut_.UpdateLatencyStatus(Ack("otherPub", true, static_cast<LatencyMode>(3)));
    EXPECT_TRUE(Logged(LogLevel::kWarn,
                       "Wardend has new duplicate pub, older pub name is ackPub, "
                       "will be replace to be otherPub"));
    sut_.UpdateLatencyStatus(Ack("ackSub", false, kMode2));

    const LatencyModes modes = sut_.QueryLatencyStatus(Index({DriverType::DDS}));
    // No event in the registry: nothing to reconcile with.
    EXPECT_EQ(modes.pubModes, (Modes{{"otherPub", static_cast<LatencyMode>(3)}}));
    EXPECT_EQ(modes.subModes, (Modes{{"ackSub", kMode2}}));
}

TEST_F(EventLatencyManageTest, AStatusQueryReconcilesWithTheRegistry) {
    auto& events = EventInfoManage::GetInstance();
    ASSERT_TRUE(events.RegisterEventInfo(Registration("regPub", false, true), true));
    ASSERT_TRUE(events.RegisterEventInfo(Registration("stays", false, true), false));
    ASSERT_TRUE(events.RegisterEventInfo(Registration("leaves", false, true), false));
    sut_.SwitchLatencyMode(nullptr, Switch({DriverType::SOMEIP}));
    sut_.UpdateLatencyStatus(Ack("ackedPub", true, kMode2, {DriverType::SOMEIP}));
    sut_.UpdateLatencyStatus(Ack("stays", false, kMode2, {DriverType::SOMEIP}));
    sut_.UpdateLatencyStatus(Ack("leaves", false, kMode2, {DriverType::SOMEIP}));
    ASSERT_TRUE(events.UnregisterEventInfo(Registration("leaves", false, true), false));

    const LatencyModes modes = sut_.QueryLatencyStatus(Index({DriverType::SOMEIP}));
    // The registry's publisher takes the place and inherits the acknowledged mode.
    EXPECT_TRUE(Logged(LogLevel::kWarn,
                       "Wardend has new duplicate pub, older pub name is regPub, "
                       "will be replace to be ackedPub"));
    EXPECT_EQ(modes.pubModes, (Modes{{"regPub", kMode2}}));
    EXPECT_EQ(modes.subModes, (Modes{{"stays", kMode2}}));
    const std::string dropped = "Sub leaves is not find in wardend, erase latency status info";
    EXPECT_EQ(LogCount(LogLevel::kInfo, dropped), 1U);
    sut_.QueryLatencyStatus(Index({DriverType::SOMEIP}));
    EXPECT_EQ(LogCount(LogLevel::kInfo, dropped), 1U);
}

TEST_F(EventLatencyManageTest, ResultsOverAPeriod) {
    const std::uint64_t big = ~std::uint64_t{0} - 1;
    const std::tuple<const char*, std::uint64_t, DriverType> samples[] = {
        {"reporter", 10, DriverType::DDS}, {"reporter", 30, DriverType::DDS},
        {"big", big, DriverType::DDS},     {"big", big, DriverType::DDS},
        {"twoWays", 10, DriverType::DDS},  {"twoWays", 20, DriverType::SOMEIP}};
    for (const auto& [app, value, driver] : samples) {
        sut_.RecordLatencyResult(Report(app, value, driver));
    }
    EXPECT_TRUE(Logged(LogLevel::kVerbose, "Receive latency result of applicationNamereporter"));
    // Period 0: every sample is outside the span.
    EXPECT_TRUE(Results(0, {DriverType::DDS}).empty());
    const auto dds = Results(60, {DriverType::DDS});
    EXPECT_EQ(dds.size(), 3U);
    EXPECT_EQ(dds.at("reporter"), (LatencyResult{20, 30, 10}));
    EXPECT_EQ(dds.at("big").average, big);  // no wrap in the sum
    // Both drivers in one query give the first driver's result.
    EXPECT_EQ(Results(60, {DriverType::SOMEIP, DriverType::DDS}).at("twoWays").average, 20U);
    EXPECT_EQ(Results(60, {DriverType::DDS, DriverType::SOMEIP}).at("twoWays").average, 10U);
}

TEST_F(EventLatencyManageTest, The3602ndSampleReplacesTheOldest) {
    for (std::uint64_t i = 1; i <= 3602; ++i) {
        sut_.RecordLatencyResult(Report("many", i, DriverType::SOMEIP));
    }
    // Samples 2 to 3602 remain: 3601 of them.
    EXPECT_EQ(Results(65535, {DriverType::SOMEIP}).at("many"), (LatencyResult{1802, 3602, 2}));
}

TEST_F(EventLatencyManageTest, ALateSubscriberGetsTheSwitchThroughTheHandler) {
    sut_.SwitchLatencyMode(nullptr, Switch({DriverType::DDS, DriverType::SOMEIP}));
    sent_.clear();
    ASSERT_TRUE(EventInfoManage::GetInstance().RegisterEventInfo(
        Registration("lateSub", false, true), false));
    ASSERT_EQ(sent_.size(), 1U);
    LatencySwitch expected = Switch({DriverType::SOMEIP});
    expected.index.topicName.clear();  // a SOME/IP subscriber has no topic
    EXPECT_EQ(sent_[0], expected);
}

}  // namespace
