#include "platform/driver/proloc/proloc_driver.h"

#include <gtest/gtest.h>

#include <future>
#include <string>
#include <thread>

#include "binding/proloc/proloc_memory_factory.h"
#include "platform/vcc/utils/thread_pool.h"

namespace {

using lumo::driver::proloc::ProlocDriver;
using lumo::driver::proloc::ProlocEntityIndex;
using lumo::driver::proloc::ProlocMemoryFactory;
using lumo::vcc::driver::CallStatus;
using lumo::vcc::driver::MethodMsgPtr;
using lumo::vcc::driver::MethodReply;
using namespace std::chrono_literals;

constexpr std::uint16_t kService = 0x5701;

lumo::vcc::api::types::MethodInfo Method(std::uint32_t entityId) {
    lumo::vcc::api::types::MethodInfo info;
    info.serviceId = kService;
    info.instanceId = "1";
    info.entityId = entityId;
    return info;
}

// Answers each request with the length of its string argument, from a thread of its own.
class LengthServer {
public:
    LengthServer(const std::shared_ptr<lumo::vcc::driver::MethodHandler>& handler,
                 ProlocEntityIndex index)
        : handler_(handler), index_(std::move(index)) {
        handler->SetProlocMemory(replies_);
        handler->SetReceiveHandler(
            [this](const MethodMsgPtr& msg) { pool_.Enqueue([this, msg] { Answer(msg); }, 0); });
    }
    ~LengthServer() {
        handler_->SetReceiveHandler(nullptr);
        pool_.Stop();
    }
    // The thread that answered, read after the reply has arrived.
    std::thread::id ThreadId() const { return threadId_; }

private:
    void Answer(const MethodMsgPtr& msg) {
        threadId_ = std::this_thread::get_id();
        const auto request = requests_->GetRequest(index_, msg->payload);
        handler_->ReturnLoan(msg->payload);
        const auto* key = replies_->AddReply(
            ara::core::Result<std::size_t>(std::get<0>(*request).size()), index_, *msg);
        handler_->ReplyData(const_cast<unsigned char*>(key), {0}, msg, false);
    }

    std::shared_ptr<lumo::vcc::driver::MethodHandler> handler_;
    ProlocEntityIndex index_;
    std::shared_ptr<lumo::driver::proloc::ProlocRequestMemory<std::string>> requests_ =
        ProlocMemoryFactory::GetMethodRequestInstance<std::string>();
    std::shared_ptr<lumo::driver::proloc::ProlocReplyMemory<std::size_t>> replies_ =
        ProlocMemoryFactory::GetMethodReplyInstance<std::size_t>();
    std::thread::id threadId_;
    lumo::vcc::utils::ThreadPool pool_{1, 64, "wrdn_server"};
};

class ProlocDriverTest : public ::testing::Test {
protected:
    // Calls and waits for the handler; the reply's result when there is one.
    MethodReply CallAndWait(lumo::vcc::driver::MethodClient& client, const std::string& text,
                            std::chrono::milliseconds timeout,
                            std::optional<std::size_t>* result = nullptr) {
        const auto index = ProlocEntityIndex::FromEntityInfo(method_);
        const auto* key = requests_->AddRequest(index, text);
        std::promise<MethodReply> done;
        client.Call(key, sizeof(std::tuple<std::string>), timeout, [&](const MethodReply& reply) {
            if (reply.status == CallStatus::kOk && result != nullptr) {
                auto value = replies_->TakeReply(index, reply.payload);
                *result = value && value->HasValue() ? std::optional<std::size_t>(value->Value())
                                                     : std::nullopt;
            }
            replyThread_ = std::this_thread::get_id();
            done.set_value(reply);
        });
        return done.get_future().get();
    }

    std::shared_ptr<ProlocDriver> driver_ = std::make_shared<ProlocDriver>();
    lumo::vcc::api::types::MethodInfo method_ = Method(32777);
    std::shared_ptr<lumo::driver::proloc::ProlocRequestMemory<std::string>> requests_ =
        ProlocMemoryFactory::GetMethodRequestInstance<std::string>();
    std::shared_ptr<lumo::driver::proloc::ProlocReplyMemory<std::size_t>> replies_ =
        ProlocMemoryFactory::GetMethodReplyInstance<std::size_t>();
    std::thread::id replyThread_;
};

TEST_F(ProlocDriverTest, ARequestAndItsReplyTravelBetweenTwoThreads) {
    ASSERT_TRUE(driver_->OfferService(kService, "1"));
    auto client = driver_->CreateMethodClient(method_);
    client->SetProlocMemory(requests_);
    EXPECT_EQ(CallAndWait(*client, "x", 5s).status, CallStatus::kNotReachable) << "no server yet";
    // The client looks again for the server made after its call found none.
    auto handler = driver_->CreateMethodHandler(method_);
    LengthServer server(handler, ProlocEntityIndex::FromEntityInfo(method_));
    ASSERT_TRUE(client->WaitForService(1s));

    std::optional<std::size_t> result;
    const auto reply = CallAndWait(*client, "/Norvane/AP/Pose", 5s, &result);
    EXPECT_EQ(reply.status, CallStatus::kOk);
    EXPECT_FALSE(reply.isErrorReply);
    EXPECT_EQ(result, std::optional<std::size_t>(16));
    EXPECT_EQ(replyThread_, server.ThreadId());
    const auto index = ProlocEntityIndex::FromEntityInfo(method_);
    EXPECT_EQ(requests_->Count(index), 0U) << "the server returned the request's loan";
    EXPECT_EQ(replies_->Count(index), 0U) << "the client returned the reply's loan";
    EXPECT_EQ(driver_->PendingTimeouts(), 0U) << "an answered call leaves the timer";
    EXPECT_NE(handler->GetStatisticsText(lumo::vcc::api::types::DriverType::kProloc), "");
}

TEST_F(ProlocDriverTest, CallsFailAtOnceWhenNotOfferedAndTimeOutWhenNobodyAnswers) {
    auto handler = driver_->CreateMethodHandler(method_);
    auto client = driver_->CreateMethodClient(method_);
    client->SetProlocMemory(requests_);
    int found = 0;
    client->SetServiceFoundHandler([&found] { ++found; });
    EXPECT_FALSE(client->WaitForService(10ms));
    EXPECT_EQ(CallAndWait(*client, "x", 5s).status, CallStatus::kNotReachable);

    ASSERT_TRUE(driver_->OfferService(kService, "1"));
    ASSERT_TRUE(driver_->OfferService(kService, "1"));
    EXPECT_EQ(found, 1) << "a second offer of an offered service finds nothing new";
    EXPECT_EQ(CallAndWait(*client, "x", 5s).status, CallStatus::kNotReachable)
        << "offered but without a receive handler";

    MethodMsgPtr held;
    handler->SetProlocMemory(replies_);
    handler->SetReceiveHandler([&held](const MethodMsgPtr& msg) { held = msg; });
    EXPECT_EQ(CallAndWait(*client, "x", 20ms).status, CallStatus::kTimeout);
    ASSERT_NE(held, nullptr);
    EXPECT_EQ(driver_->PendingTimeouts(), 0U);

    // The late reply finds nobody waiting; the driver frees it.
    const auto index = ProlocEntityIndex::FromEntityInfo(method_);
    const auto* key = replies_->AddReply(ara::core::Result<std::size_t>(1), index, *held);
    EXPECT_FALSE(handler->ReplyData(const_cast<unsigned char*>(key), {0}, held, false));
    EXPECT_EQ(replies_->Count(index), 0U);
    handler->ReturnLoan(held->payload);
    EXPECT_EQ(requests_->Count(index), 0U);
    handler->SetReceiveHandler(nullptr);
    EXPECT_EQ(CallAndWait(*client, "x", 5s).status, CallStatus::kNotReachable)
        << "a receive handler taken away again";

    driver_->StopOfferService(kService, "1");
    EXPECT_EQ(CallAndWait(*client, "x", 5s).status, CallStatus::kNotReachable);
    ASSERT_TRUE(driver_->OfferService(kService, "1"));
    EXPECT_EQ(found, 2);
    int foundLater = 0;
    client->SetServiceFoundHandler([&foundLater] { ++foundLater; });
    EXPECT_EQ(foundLater, 1) << "a handler set while the service is offered hears of it at once";
    client->SetServiceFoundHandler(nullptr);
}

// An event reaches every client until it unsubscribes; a field's client gets the last value at
// once.
TEST_F(ProlocDriverTest, AnEventReachesTwoClientsAndStopsAtUnsubscribe) {
    struct Sample {
        int value;
    };
    auto store = ProlocMemoryFactory::GetEventInstance<Sample>();
    lumo::vcc::api::types::EventInfo event;
    event.serviceId = 0x5700;
    event.instanceId = "1";
    event.entityId = 30161;
    lumo::vcc::api::types::EventInfo field = event;
    field.entityId = 1;
    field.isField = true;
    auto handler = driver_->CreateEventHandler(event);
    EXPECT_FALSE(handler->IsReady());
    ASSERT_TRUE(driver_->OfferService(0x5700, "1"));
    EXPECT_TRUE(handler->IsReady());

    std::vector<int> first;
    std::vector<int> second;
    auto subscribe = [&](std::vector<int>& seen, const lumo::vcc::api::types::EventInfo& info) {
        auto client = driver_->CreateEventClient(info);
        client->SetProlocMemory(store);
        EXPECT_TRUE(client->Subscribe([&seen](const unsigned char* sample, std::uint64_t) {
            seen.push_back(reinterpret_cast<const Sample*>(sample)->value);
        }));
        return client;
    };
    auto a = subscribe(first, event);
    auto b = subscribe(second, event);
    const auto index = ProlocEntityIndex::FromEntityInfo(event);
    std::thread publisher([&] { store->AddProlocData(Sample{1}, index, false); });
    publisher.join();
    EXPECT_EQ(first, std::vector<int>{1});
    EXPECT_EQ(second, std::vector<int>{1});

    b->Unsubscribe();
    EXPECT_FALSE(b->IsSubscribed());
    store->AddProlocData(Sample{2}, index, false);
    EXPECT_EQ(first, (std::vector<int>{1, 2}));
    EXPECT_EQ(second, std::vector<int>{1});

    store->AddProlocData(Sample{9}, ProlocEntityIndex::FromEntityInfo(field), true);
    std::vector<int> value;
    auto fieldClient = subscribe(value, field);
    EXPECT_EQ(value, std::vector<int>{9});
}

}  // namespace
