#include "examples/wardend_example/example_app.h"

#include <gtest/gtest.h>

namespace vesk::wardend::example {
namespace {

LatencySwitch Switch(LatencyMode mode, std::vector<DriverType> drivers, std::uint16_t service,
                     const String& topic, std::uint16_t eventId) {
    LatencySwitch latencySwitch;
    latencySwitch.mode = mode;
    latencySwitch.index.drivers = std::move(drivers);
    latencySwitch.index.serviceId = service;
    latencySwitch.index.instanceId = 1;
    latencySwitch.index.topicName = topic;
    latencySwitch.index.eventId = eventId;
    return latencySwitch;
}

TEST(ExampleAppTest, ASwitchMatchesAnEventOnlyOnTheDriversWhoseKeyIsItsOwn) {
    const auto& pose = ExampleEvents()[0];
    struct Case {
        const char* what;
        LatencySwitch latencySwitch;
        std::vector<DriverType> expected;
    };
    const std::vector<Case> cases{
        {"both keys",
         Switch(LatencyMode::kOn, {DriverType::SOMEIP, DriverType::DDS}, 0x1234, "example/pose",
                0x8001),
         {DriverType::SOMEIP, DriverType::DDS}},
        {"DDS topic of another event",
         Switch(LatencyMode::kOn, {DriverType::SOMEIP, DriverType::DDS}, 0x1234,
                "example/trajectory", 0x8001),
         {DriverType::SOMEIP}},
        {"SOME/IP event of another",
         Switch(LatencyMode::kOn, {DriverType::SOMEIP}, 0x1234, "example/pose", 0x8002),
         {}},
        {"another service",
         Switch(LatencyMode::kOn, {DriverType::DDS}, 0x1300, "example/pose", 0),
         {}},
        {"a driver twice",
         Switch(LatencyMode::kOn, {DriverType::DDS, DriverType::DDS}, 0x1234, "example/pose", 0),
         {DriverType::DDS}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(MatchingDrivers(c.latencySwitch.index, pose), c.expected) << c.what;
    }
}

TEST(ExampleAppTest, ReportsCoverTheSamplesSinceTheLastOnesWhileTheModeIsOn) {
    LatencyReporter reporter("node");
    reporter.Record(5);  // before any switch: nothing to measure for
    EXPECT_TRUE(reporter.TakeReports().empty());

    const auto acks =
        reporter.OnSwitch(Switch(LatencyMode::kOn, {DriverType::SOMEIP}, 0x1300, "", 0x8001));
    ASSERT_EQ(acks.size(), 1U) << "the subscribed VehicleSpeed alone";
    const auto& ack = acks[0].latencyInfo;
    EXPECT_EQ(ack.kind, static_cast<std::uint8_t>(LatencyInfoKind::kAcknowledge));
    EXPECT_EQ(ack.applicationName, "node");
    EXPECT_TRUE(ack.status.isSub);
    EXPECT_FALSE(ack.status.isPub);
    EXPECT_EQ(ack.status.mode, LatencyMode::kOn);

    for (const std::uint64_t micros : {30U, 10U, 20U}) {
        reporter.Record(micros);
    }
    auto reports = reporter.TakeReports();
    ASSERT_EQ(reports.size(), 1U);
    const auto& report = reports[0].latencyInfo;
    EXPECT_EQ(report.kind, static_cast<std::uint8_t>(LatencyInfoKind::kResult));
    EXPECT_EQ(report.result.average, 20U);
    EXPECT_EQ(report.result.maximum, 30U);
    EXPECT_EQ(report.result.minimum, 10U);
    EXPECT_EQ(report.sampleCount, 3U);
    EXPECT_TRUE(reporter.TakeReports().empty()) << "taken reports are not sent twice";

    reporter.Record(7);
    reports = reporter.TakeReports();
    ASSERT_EQ(reports.size(), 1U);
    EXPECT_EQ(reports[0].latencyInfo.result.minimum, 7U) << "each report starts afresh";

    (void)reporter.OnSwitch(Switch(LatencyMode::kOff, {DriverType::SOMEIP}, 0x1300, "", 0x8001));
    reporter.Record(7);
    EXPECT_TRUE(reporter.TakeReports().empty());
}

TEST(ExampleAppTest, UnregistrationsUndoTheRegistrationsNodeLast) {
    const auto registrations = Registrations("node", 42);
    const auto unregistrations = Unregistrations("node", 42);
    ASSERT_EQ(registrations.size(), unregistrations.size());
    EXPECT_EQ(registrations.front().infoType, AppRegisterInfoType::NODE);
    EXPECT_EQ(unregistrations.back().infoType, AppRegisterInfoType::NODE);
    EXPECT_TRUE(registrations.front().nodeInfo.registerState.isRegister);
    EXPECT_FALSE(unregistrations.back().nodeInfo.registerState.isRegister);
    for (const auto& info : unregistrations) {
        const bool registers = info.eventInfo.isRegister || info.methodInfo.isRegister ||
                               info.fieldInfo.isRegister || info.nodeInfo.registerState.isRegister;
        EXPECT_FALSE(registers) << "info type " << static_cast<int>(info.infoType);
    }
}

}  // namespace
}  // namespace vesk::wardend::example
