#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <atomic>

#include "platform/driver/dds/dds_client.h"
#include "platform/driver/dds/dds_driver.h"
#include "tests/unit/dds/dds_fixture.h"

namespace wardend::test {
namespace {

using lumo::driver::dds::DdsDriver;
using lumo::driver::dds::DdsDriverConfig;

// Given a daemon's driver serving RegisterAppInfo and a client process's driver (each its own
// participant), as in the daemon and an application.
class DdsRoundTripTest : public DdsDriverTest {
protected:
    std::shared_ptr<MethodHandler> Serve(DdsDriver& driver, const std::string& instance) {
        auto handler = driver.CreateMethodHandler(AppMethod(domain_.Id(), instance));
        EXPECT_NE(handler, nullptr);
        return handler;
    }

    DdsDriver server_;
    DdsDriver client_;
};

TEST_F(DdsRoundTripTest, EveryCallIsAnsweredAndCarriesTheClientsUuid) {
    Answerer answerer(Serve(server_, "1"), "1");
    ASSERT_TRUE(server_.OfferService(kAppService, "1"));
    auto client = client_.CreateMethodClient(AppMethod(domain_.Id(), "1"));
    ASSERT_NE(client, nullptr);
    ASSERT_TRUE(client->WaitForService(10s));

    for (const std::string request : {"first", "Error reply", "third"}) {
        const auto reply = CallAndWait(*client, request, 5s);
        ASSERT_TRUE(reply.has_value()) << request;
        EXPECT_EQ(reply->status, CallStatus::kOk) << reply->reason;
        EXPECT_EQ(reply->payload, "1:" + request);
        EXPECT_EQ(reply->isErrorReply, request == "Error reply");
    }
    // The uuid: the client's id, then its call sequence from 1.
    const auto id =
        std::static_pointer_cast<lumo::driver::dds::DdsMethodClient>(client)->ClientId();
    const auto requests = answerer.Requests();
    ASSERT_EQ(requests.size(), 3U);
    for (std::size_t i = 0; i < requests.size(); ++i) {
        EXPECT_EQ(requests[i].uuid.high, id);
        EXPECT_EQ(requests[i].uuid.low, i + 1);
        EXPECT_EQ(requests[i].driverType, lumo::vcc::api::types::DriverType::kDds);
        EXPECT_EQ(requests[i].serializeType, 0);
    }
}

TEST_F(DdsRoundTripTest, CallMadeBeforeTheDaemonExistsIsAnsweredOnceOffered) {
    auto client = client_.CreateMethodClient(AppMethod(domain_.Id(), "1"));
    const ReplyCatcher catcher;
    const std::string request = "early";
    client->Call(reinterpret_cast<const unsigned char*>(request.data()), request.size(), 20s,
                 catcher.Handler());

    // The daemon assembles: the request reaches it and waits for the offer.
    auto handler = Serve(server_, "1");
    Answerer answerer(handler, "1");
    ASSERT_TRUE(WaitUntil(
        [&] {
            return handler->GetStatisticsText(lumo::vcc::api::types::DriverType::kDds)
                       .find("ddsRequestsParked=1") != std::string::npos;
        },
        10s));
    EXPECT_EQ(answerer.Count(), 0);

    server_.OfferService(kAppService, "1");
    const auto reply = catcher.Wait(10s);
    ASSERT_TRUE(reply.has_value());
    EXPECT_EQ(reply->status, CallStatus::kOk) << reply->reason;
    EXPECT_EQ(reply->payload, "1:early");
}

// Only the daemon named by a request answers it. A client's found handler hears of every new
// daemon of its instance, a restarted one even while the old one still lives, and of no other.
TEST_F(DdsRoundTripTest, OnlyTheDaemonNamedByTheRequestAnswers) {
    std::atomic<int> found{0};
    auto toFirst = client_.CreateMethodClient(AppMethod(domain_.Id(), "1"));
    toFirst->SetServiceFoundHandler([&found] { ++found; });
    DdsDriver secondServer;
    auto first = Serve(server_, "1");
    auto second = Serve(secondServer, "2");
    Answerer firstAnswerer(first, "1");
    Answerer secondAnswerer(second, "2");
    server_.OfferService(kAppService, "1");
    secondServer.OfferService(kAppService, "1");
    auto toSecond = client_.CreateMethodClient(AppMethod(domain_.Id(), "2"));

    const auto fromSecond = CallAndWait(*toSecond, "a", 10s);
    ASSERT_TRUE(fromSecond.has_value());
    EXPECT_EQ(fromSecond->payload, "2:a");
    const auto fromFirst = CallAndWait(*toFirst, "b", 10s);
    ASSERT_TRUE(fromFirst.has_value());
    EXPECT_EQ(fromFirst->payload, "1:b");
    // Each daemon saw the other's request and left it alone.
    EXPECT_EQ(firstAnswerer.Count(), 1);
    EXPECT_EQ(secondAnswerer.Count(), 1);
    EXPECT_NE(first->GetStatisticsText(lumo::vcc::api::types::DriverType::kDds)
                  .find("ddsRequestsForOtherInstances=1"),
              std::string::npos);

    const auto daemons = client_.ListDaemons(domain_.Id(), 2s);
    ASSERT_EQ(daemons.size(), 2U);
    EXPECT_EQ(daemons[0].instanceId, "1");
    EXPECT_EQ(daemons[1].instanceId, "2");
    EXPECT_EQ(daemons[1].pid, static_cast<std::uint32_t>(getpid()));
    EXPECT_EQ(found.load(), 1) << "the daemon of instance 2 is not this client's";

    DdsDriver restarted;
    Answerer restartedAnswerer(Serve(restarted, "1"), "1");
    restarted.OfferService(kAppService, "1");
    EXPECT_TRUE(WaitUntil([&] { return found.load() == 2; }, 10s)) << found.load();
    toFirst->SetServiceFoundHandler(nullptr);
    EXPECT_EQ(found.load(), 2);
}

// A call that gets no answer ends by itself: kTimeout when the daemon took the request and
// stayed silent, kNotReachable when no daemon of that instance was there to take it, or when its
// daemon has stopped offering.
TEST_F(DdsRoundTripTest, UnansweredCallsEndAfterTheirTimeout) {
    Answerer answerer(Serve(server_, "1"), "1");
    server_.OfferService(kAppService, "1");
    auto toSilent = client_.CreateMethodClient(AppMethod(domain_.Id(), "1"));
    auto toNobody = client_.CreateMethodClient(AppMethod(domain_.Id(), "9"));
    ASSERT_TRUE(toSilent->WaitForService(10s));
    EXPECT_FALSE(toNobody->WaitForService(100ms));

    const auto timedOut = CallAndWait(*toSilent, "No reply", 300ms);
    ASSERT_TRUE(timedOut.has_value());
    EXPECT_EQ(timedOut->status, CallStatus::kTimeout);
    const auto unreachable = CallAndWait(*toNobody, "x", 300ms);
    ASSERT_TRUE(unreachable.has_value());
    EXPECT_EQ(unreachable->status, CallStatus::kNotReachable);
    EXPECT_NE(unreachable->reason.find("no daemon instance \"9\""), std::string::npos);
    EXPECT_FALSE(toNobody->CallNoReturn(reinterpret_cast<const unsigned char*>("x"), 1));

    server_.StopOfferService(kAppService, "1");
    const auto stopped = CallAndWait(*toSilent, "off", 10s);
    ASSERT_TRUE(stopped.has_value());
    EXPECT_EQ(stopped->status, CallStatus::kNotReachable);
    EXPECT_EQ(answerer.Count(), 1);
}

TEST_F(DdsRoundTripTest, ClosingTheClientsDriverEndsOpenCalls) {
    Answerer silent(Serve(server_, "1"), "1");
    server_.OfferService(kAppService, "1");
    auto driver = std::make_unique<DdsDriver>();
    auto client = driver->CreateMethodClient(AppMethod(domain_.Id(), "1"));
    const ReplyCatcher catcher;
    client->Call(reinterpret_cast<const unsigned char*>("N"), 1, 60s, catcher.Handler());
    ASSERT_TRUE(WaitUntil([&] { return silent.Count() == 1; }, 10s));

    driver.reset();
    const auto reply = catcher.Wait(1s);
    ASSERT_TRUE(reply.has_value());
    EXPECT_EQ(reply->status, CallStatus::kNotReachable);
    EXPECT_EQ(catcher.Count(), 1);
}

// Writers in this process deliver to its readers before SendEvent returns, so what a
// subscriber did not get by then it never gets.
TEST_F(DdsRoundTripTest, SubscriberGetsTheEventsOfItsDaemonUntilItUnsubscribes) {
    DdsDriver otherServer;
    auto mine = server_.CreateEventHandler(AppEvent(domain_.Id(), "1"));
    auto other = otherServer.CreateEventHandler(AppEvent(domain_.Id(), "2"));
    server_.OfferService(kAppService, "1");
    otherServer.OfferService(kAppService, "1");
    auto send = [](const std::shared_ptr<lumo::vcc::driver::EventHandler>& handler,
                   const std::string& text) {
        unsigned char* buffer = handler->AllocateBuffer(text.size());
        std::copy(text.begin(), text.end(), buffer);
        lumo::vcc::api::types::internal::SampleInfoImpl info;
        return handler->SendEvent(buffer, text.size(), info);
    };
    EXPECT_TRUE(send(mine, "nobody listens"));

    auto subscriber = client_.CreateEventClient(AppEvent(domain_.Id(), "1"));
    std::mutex mutex;
    std::vector<std::string> received;
    ASSERT_TRUE(subscriber->Subscribe([&](const unsigned char* payload, std::uint64_t size) {
        std::lock_guard<std::mutex> lock(mutex);
        received.emplace_back(reinterpret_cast<const char*>(payload), size);
    }));
    ASSERT_TRUE(WaitUntil([&] { return subscriber->IsSubscribed(); }, 10s));
    EXPECT_TRUE(send(other, "from 2"));
    EXPECT_TRUE(send(mine, "on"));
    subscriber->Unsubscribe();
    EXPECT_TRUE(send(mine, "after"));

    std::lock_guard<std::mutex> lock(mutex);
    EXPECT_EQ(received, std::vector<std::string>{"on"});
}

struct UnusableDomain {
    const char* name;
    std::uint32_t domain;
    const char* config;
    const char* line;
};

class DdsUnusableDomainTest : public DdsDriverTest,
                              public ::testing::WithParamInterface<UnusableDomain> {};

TEST_P(DdsUnusableDomainTest, FailsTheHandlerWithAClearLine) {
    const UnusableDomain& c = GetParam();
    DdsDriver driver(DdsDriverConfig{c.config});
    EXPECT_EQ(driver.CreateMethodHandler(AppMethod(c.domain, "1")), nullptr);
    EXPECT_EQ(driver.CreateEventHandler(AppEvent(c.domain, "1")), nullptr);
    EXPECT_GE(CountContaining(c.line, LogLevel::kError), 1U) << LogDump();
}

INSTANTIATE_TEST_SUITE_P(
    Domains, DdsUnusableDomainTest,
    ::testing::Values(
        UnusableDomain{"PortsOutOfRange", 233, "", "DDS driver: cannot join domain 233"},
        UnusableDomain{"UnknownConfigElement", 7, "<Bogus/>",
                       "DDS driver: cannot create domain 7 from its configuration"},
        UnusableDomain{"NoSuchInterface", 7,
                       "<General><Interfaces><NetworkInterface name=\"nosuch0\"/></Interfaces>"
                       "</General>",
                       "Cyclone DDS: nosuch0: does not match an available interface"}),
    [](const ::testing::TestParamInfo<UnusableDomain>& p) { return p.param.name; });

}  // namespace
}  // namespace wardend::test
