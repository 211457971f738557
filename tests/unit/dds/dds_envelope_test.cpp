#include <gtest/gtest.h>

#include <functional>

#include "platform/driver/dds/dds_client.h"
#include "platform/driver/dds/dds_envelope.h"
#include "platform/driver/dds/dds_executor.h"
#include "tests/support/process.h"
#include "tests/unit/dds/dds_fixture.h"

namespace wardend::test {
namespace {

using lumo::driver::dds::DdsDriver;
using lumo::driver::dds::DdsExecutor;
using lumo::driver::dds::DdsMethodClient;
using lumo::driver::dds::Envelope;

// A peer that writes envelopes as it likes: a plain Cyclone writer of the envelope type.
class RawWriter {
public:
    RawWriter(std::uint32_t domain, const std::string& topicName)
        : participant_(dds_create_participant(domain, nullptr, nullptr)) {
        const dds_entity_t topic = dds_create_topic(participant_, &wardend_dds_Envelope_desc,
                                                    topicName.c_str(), nullptr, nullptr);
        dds_qos_t* qos = dds_create_qos();
        dds_qset_reliability(qos, DDS_RELIABILITY_RELIABLE, DDS_SECS(1));
        writer_ = dds_create_writer(participant_, topic, qos, nullptr);
        dds_delete_qos(qos);
    }
    ~RawWriter() { dds_delete(participant_); }
    RawWriter(const RawWriter&) = delete;
    RawWriter& operator=(const RawWriter&) = delete;

    bool WaitForReader() const {
        return WaitUntil(
            [&] {
                dds_publication_matched_status_t status{};
                dds_get_publication_matched_status(writer_, &status);
                return status.current_count > 0;
            },
            10s);
    }
    bool Write(const Envelope& envelope) const { return dds_write(writer_, &envelope) == 0; }

private:
    dds_entity_t participant_;
    dds_entity_t writer_{0};
};

struct Malformed {
    const char* name;
    bool toClient;  // a reply to the client, or a request to the daemon
    std::function<void(Envelope&)> spoil;
    const char* line;
};

// Given a daemon serving RegisterAppInfo and a client of it, a peer writes envelopes that a
// correct driver never writes: three of one kind in a row.
class DdsMalformedEnvelopeTest : public DdsDriverTest,
                                 public ::testing::WithParamInterface<Malformed> {};

TEST_P(DdsMalformedEnvelopeTest, IsRefusedWithOneRateLimitedLine) {
    const Malformed& c = GetParam();
    // A topic of the case's own, so that its lines are limited apart from other cases'.
    MethodInfo info = AppMethod(domain_.Id(), "1");
    info.dds.topic = std::string("wardend/Test/") + c.name;
    DdsDriver server;
    DdsDriver client;
    Answerer answerer(server.CreateMethodHandler(info), "1");
    server.OfferService(kAppService, "1");
    auto caller = client.CreateMethodClient(info);
    ASSERT_TRUE(caller->WaitForService(10s));
    const ReplyCatcher catcher;
    caller->Call(reinterpret_cast<const unsigned char*>("x"), 1, 30s, catcher.Handler());
    ASSERT_TRUE(catcher.Wait(10s).has_value());

    const RawWriter peer(domain_.Id(), info.dds.topic + (c.toClient ? "/Reply" : "/Request"));
    ASSERT_TRUE(peer.WaitForReader());
    Envelope envelope{};
    lumo::driver::dds::SetInstance(envelope, "1");
    envelope.serviceId = kAppService;
    envelope.entityId = kRegisterAppInfo;
    envelope.uuidHigh = std::static_pointer_cast<DdsMethodClient>(caller)->ClientId();
    envelope.uuidLow = 1;  // answered already
    c.spoil(envelope);
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(peer.Write(envelope));
    }

    const std::string line = std::string("DDS driver: refused a ") +
                             (c.toClient ? "reply" : "request") + " on \"" + info.dds.topic +
                             "\": " + c.line;
    const std::string tag =
        (c.toClient ? "DdsReplyRefused:" : "DdsRequestRefused:") + info.dds.topic;
    ASSERT_TRUE(WaitUntil(
        [&] {
            return CountContaining("refused", LogLevel::kWarn) +
                       ara::tessel::common::log::Log::SuppressedCount(tag) ==
                   3;
        },
        10s))
        << LogDump();
    EXPECT_EQ(CountContaining(line, LogLevel::kWarn), 1U) << LogDump();
    EXPECT_EQ(answerer.Count(), 1);
    EXPECT_EQ(catcher.Count(), 1);
}

INSTANTIATE_TEST_SUITE_P(
    Envelopes, DdsMalformedEnvelopeTest,
    ::testing::Values(Malformed{"RequestForAnotherService", false,
                                [](Envelope& e) { e.serviceId = 0x5701; },
                                "unknown service or entity"},
                      Malformed{"RequestForAnotherMethod", false,
                                [](Envelope& e) { e.entityId = 1; }, "unknown service or entity"},
                      Malformed{"RequestWithUnknownFlags", false,
                                [](Envelope& e) { e.flags = 0x80; }, "unknown flags"},
                      Malformed{"RequestWithoutClient", false, [](Envelope& e) { e.uuidHigh = 0; },
                                "no client id"},
                      Malformed{"ReplyMatchingNoCall", true, [](Envelope& e) { e.uuidLow = 77; },
                                "its uuid matches no open "
                                "call (sequence 77"},
                      Malformed{"ReplyFromAnotherDaemon", true,
                                [](Envelope& e) { lumo::driver::dds::SetInstance(e, "2"); },
                                "sent by another daemon"}),
    [](const ::testing::TestParamInfo<Malformed>& p) { return p.param.name; });

// An envelope shorter than its fixed part never reaches the driver: Cyclone's deserializer
// drops it, and its warning reaches our log.
TEST_F(DdsDriverTest, TruncatedEnvelopeIsDroppedWithCyclonesLineInOurLog) {
    DdsDriver server;
    Answerer answerer(server.CreateMethodHandler(AppMethod(domain_.Id(), "1")), "1");
    server.OfferService(kAppService, "1");

    ChildProcess peer(WARDEND_DDS_SHORT_WRITER,
                      {std::to_string(domain_.Id()), "wardend/App/RegisterAppInfo/Request"},
                      domain_.ChildEnv());
    EXPECT_EQ(peer.WaitExit(20s), 0) << peer.Stderr();
    EXPECT_TRUE(
        WaitContaining("deserialization wardend/App/RegisterAppInfo/Request", LogLevel::kWarn))
        << LogDump();
    EXPECT_EQ(CountContaining("deserialization", LogLevel::kWarn), 1U);
    EXPECT_EQ(answerer.Count(), 0);
}

TEST(DdsUserDataTest, ReadsOneFieldOfItsOwnFormat) {
    using lumo::driver::dds::UserDataValue;
    const std::string daemon = lumo::driver::dds::ServerParticipantUserData("ecu-7");
    EXPECT_EQ(UserDataValue(daemon.data(), daemon.size(), "instance"), "ecu-7");
    EXPECT_EQ(UserDataValue(daemon.data(), daemon.size(), "pid"), std::to_string(getpid()));
    EXPECT_EQ(UserDataValue(daemon.data(), daemon.size(), "inst"), std::nullopt);
    EXPECT_EQ(UserDataValue("instance", 8, "instance"), std::nullopt);
    const std::string client = lumo::driver::dds::ClientUserData(0x00ab00000000cdefULL);
    const auto id = UserDataValue(client.data(), client.size(), "client");
    ASSERT_TRUE(id.has_value());
    EXPECT_EQ(lumo::driver::dds::ParseClientId(*id), 0x00ab00000000cdefULL);
    EXPECT_EQ(lumo::driver::dds::ParseClientId("12345678901234567"), std::nullopt);
    EXPECT_EQ(lumo::driver::dds::ParseClientId("12G"), std::nullopt);
}

TEST(DdsExecutorTest, RunsPostedTasksFirstThenTimersByDeadlineAndNeverCancelledOnes) {
    std::mutex mutex;
    std::vector<std::string> ran;
    auto record = [&](const char* name) {
        return [&, name] {
            std::lock_guard<std::mutex> lock(mutex);
            ran.emplace_back(name);
        };
    };
    {
        DdsExecutor sut("wrdn_test");
        const auto now = DdsExecutor::Clock::now();
        sut.Schedule(now + 60ms, record("late"));
        sut.Schedule(now + 20ms, record("early"));
        sut.Cancel(sut.Schedule(now + 40ms, record("cancelled")));
        sut.Post(record("posted"));
        ASSERT_TRUE(WaitUntil(
            [&] {
                std::lock_guard<std::mutex> lock(mutex);
                return ran.size() == 3;
            },
            5s));
        sut.Schedule(now + 60s, record("dropped at destruction"));
    }
    EXPECT_EQ(ran, (std::vector<std::string>{"posted", "early", "late"}));
}

}  // namespace
}  // namespace wardend::test
