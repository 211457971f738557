#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <future>
#include <thread>

#include "binding/skeleton/vcc_methods.h"
#include "platform/error/e2e_error_domain.h"
#include "records/service_outputs.h"
#include "tests/support/gate.h"
#include "tests/support/memory_log.h"
#include "tests/unit/serialize/serialize_test_support.h"
#include "tests/unit/skeleton/fake_driver.h"

namespace {

using lumo::vcc::api::types::DriverType;
using lumo::vcc::api::types::SerializeType;
using vesk::wardend::RegisterAppInfoOutput;
using wardend::test::FakeDriver;
using wardend::test::LogLevel;
using namespace std::chrono_literals;

constexpr std::uint32_t kMethodId = 32777;
constexpr auto kSomeip = static_cast<std::uint8_t>(SerializeType::kSomeip);
constexpr auto kDds = static_cast<std::uint8_t>(SerializeType::kDds);

// The user side: answers the length of its argument, or as the test asks.
class LengthService {
public:
    enum class Mode { kReady, kInvalid, kBrokenPromise, kBlock, kEncoded, kEncodedTooLarge };

    // Writes the output with result 1000 + the length, to tell it from the returned one.
    class Encoded final : public lumo::vcc::EncodedReply {
    public:
        Encoded(std::uint16_t result, bool tooLarge) : tooLarge_(tooLarge) {
            output_.result = result;
        }
        std::uint64_t Size() override {
            return tooLarge_ ? lumo::serialize::kSizeFailure : sizeof(output_.result);
        }
        bool Write(unsigned char* out) override {
            lumo::serialize::someip::Serializer<RegisterAppInfoOutput>(output_, {}).Serialize(out);
            return true;
        }

    private:
        RegisterAppInfoOutput output_;
        bool tooLarge_;
    };

    ara::core::Future<RegisterAppInfoOutput> Length(const ara::core::String& text) {
        ++calls;
        switch (mode) {
            case Mode::kInvalid:
                return {};
            case Mode::kBrokenPromise: {
                ara::core::Promise<RegisterAppInfoOutput> promise;
                return promise.get_future();  // the promise dies unsatisfied
            }
            case Mode::kBlock:
                gate.Enter();
                break;
            case Mode::kEncoded:
            case Mode::kEncodedTooLarge:
                lumo::vcc::ReplyEncoded(
                    std::make_unique<Encoded>(static_cast<std::uint16_t>(1000 + text.size()),
                                              mode == Mode::kEncodedTooLarge));
                break;
            case Mode::kReady:
                break;
        }
        RegisterAppInfoOutput output;
        output.result = static_cast<std::uint16_t>(text.size());
        return ara::core::Future<RegisterAppInfoOutput>::MakeReady(output);
    }

    std::atomic<Mode> mode{Mode::kReady};
    std::atomic<int> calls{0};
    wardend::test::Gate gate;
};

std::vector<unsigned char> SomeipString(const ara::core::String& text) {
    return wardend::test::Written(lumo::serialize::someip::Serializer<ara::core::String>(text, {}));
}

class MethodSkeletonTest : public wardend::test::MemoryLogTest {
protected:
    void SetUp() override {
        MemoryLogTest::SetUp();
        lumo::vcc::driver::DriverRegistry::Register(driver_);
    }
    void TearDown() override {
        vcc_.reset();
        lumo::vcc::driver::DriverRegistry::Unregister(DriverType::kSomeip);
        MemoryLogTest::TearDown();
    }

    // Builds the method on a pool of `threads` threads and a queue of `queue`.
    void Build(std::uint16_t threads, std::uint16_t queue, bool registerUser = true,
               std::shared_ptr<lumo::com::e2exf::E2EProtection> e2e = nullptr) {
        vcc_ = std::make_unique<lumo::vcc::Vcc>(
            ara::com::ServiceIdentifierType{0x5701, "Test", nullptr},
            lumo::vcc::api::types::InstanceIdentifier("1"),
            lumo::vcc::api::types::MethodCallProcessingMode::kEvent);
        ASSERT_TRUE(vcc_->SetMethodThreadNumber(threads, queue));
        ASSERT_TRUE(Encapsulate(std::move(e2e)));
        if (registerUser) {
            vcc_->RegisterMethod(kMethodId, service_.get(), &LengthService::Length);
        }
        handler_ = driver_->Method(kMethodId);
        ASSERT_NE(handler_, nullptr);
    }

    bool Encapsulate(std::shared_ptr<lumo::com::e2exf::E2EProtection> e2e = nullptr) {
        auto info = std::make_shared<lumo::vcc::api::types::MethodInfo>();
        info->driverType = DriverType::kSomeip;
        info->entityId = kMethodId;
        info->serviceId = 0x5701;
        info->instanceId = "1";
        info->shortName = "QueryDataType";
        info->e2e = std::move(e2e);
        return vcc_->EncapsulateAndRegisterMethod<
            LengthService, ara::core::Future<RegisterAppInfoOutput>, ara::core::String>(
            {{DriverType::kSomeip, info}});
    }

    // Waits until every task queued so far on the method pool has run.
    void DrainPool() {
        std::promise<void> drained;
        ASSERT_TRUE(vcc_->GetMethodPool()->Enqueue([&drained] { drained.set_value(); }, 0));
        drained.get_future().wait();
    }

    static std::uint16_t ResultOf(const wardend::test::FakeMethodHandler::Reply& reply,
                                  std::uint8_t serializeType) {
        RegisterAppInfoOutput output;
        if (serializeType == kSomeip) {
            lumo::serialize::someip::Deserializer<RegisterAppInfoOutput> reader(
                reply.bytes.data(), reply.bytes.size(), lumo::serialize::SerializeConfig{});
            EXPECT_TRUE(reader.GetValue(output));
        } else {
            lumo::serialize::dds::Deserializer<RegisterAppInfoOutput> reader(reply.bytes.data(),
                                                                             reply.bytes.size());
            EXPECT_TRUE(reader.GetValue(output));
        }
        return output.result;
    }

    // The domain id and code of a 17-byte SOME/IP error reply.
    static std::pair<std::uint64_t, std::int32_t> ErrorOf(
        const wardend::test::FakeMethodHandler::Reply& reply) {
        std::uint64_t domain = 0;
        std::int32_t code = 0;
        EXPECT_EQ(reply.bytes.size(), 17U);
        EXPECT_TRUE(lumo::vcc::ReadErrorReply(reply.bytes.data(), reply.bytes.size(), true,
                                              lumo::serialize::ByteOrder::kBigEndian, domain,
                                              code));
        return {domain, code};
    }

    std::shared_ptr<FakeDriver> driver_ =
        std::make_shared<FakeDriver>(DriverType::kSomeip, kSomeip, false);
    std::shared_ptr<LengthService> service_ = std::make_shared<LengthService>();
    std::unique_ptr<lumo::vcc::Vcc> vcc_;
    std::shared_ptr<wardend::test::FakeMethodHandler> handler_;
};

// The returned output in both wire families; then a SOME/IP reply that the user method writes
// itself (its DDS reply is still the returned output); then the binding's own failures.
TEST_F(MethodSkeletonTest, ValueAndBindingFailureRepliesAndTheLoanGoesBack) {
    Build(2, 8);
    const struct {
        LengthService::Mode mode;
        std::uint16_t someipResult;
    } cases[] = {{LengthService::Mode::kReady, 4}, {LengthService::Mode::kEncoded, 1004}};
    std::size_t replied = 0;
    for (const auto& c : cases) {
        service_->mode = c.mode;
        // One after the other: both replies are two bytes, so their order tells them apart.
        (void)handler_->Deliver(SomeipString("abcd"), kSomeip);
        ASSERT_TRUE(handler_->WaitForReplies(++replied));
        const ara::core::String seven = "abcdefg";
        (void)handler_->Deliver(
            wardend::test::Written(lumo::serialize::dds::Serializer<ara::core::String>(seven, {})),
            kDds);
        ASSERT_TRUE(handler_->WaitForReplies(++replied));
        const auto replies = handler_->Replies();
        EXPECT_FALSE(replies[replied - 2].isError);
        EXPECT_EQ(ResultOf(replies[replied - 2], kSomeip), c.someipResult);
        EXPECT_EQ(ResultOf(replies[replied - 1], kDds), 7);
    }
    // Binding failures: a reply the user method cannot write, and a parameter whose length field
    // announces more than the request holds (which never reaches the user).
    service_->mode = LengthService::Mode::kEncodedTooLarge;
    for (const auto& request :
         {SomeipString("ab"), std::vector<unsigned char>{0, 0, 0, 100, 'a', 'b'}}) {
        (void)handler_->Deliver(request, kSomeip);
        ASSERT_TRUE(handler_->WaitForReplies(++replied));
        const auto reply = handler_->Replies().back();
        ASSERT_TRUE(reply.isError);
        EXPECT_EQ(ErrorOf(reply), (std::pair<std::uint64_t, std::int32_t>{
                                      lumo::vcc::api::types::ComErrorDomain::kId, 3}));
    }
    EXPECT_TRUE(Logged(LogLevel::kError, "[Vcc][Serialize method parameter failed][id=32777]"));
    EXPECT_EQ(lumo::vcc::PlainSomeipReplyConfig(), nullptr) << "outside a user method";
    EXPECT_TRUE(handler_->WaitForLoansReturned());
    EXPECT_EQ(vcc_->FindMethodStats(kMethodId)->requestsToUser, 5U);
    EXPECT_NE(vcc_->GetStatisticsText().find("fake\n--------------------\n"), std::string::npos);
}

TEST_F(MethodSkeletonTest, ARefusedRequestGetsTheErrorReplyUnlessItHasNoPayload) {
    Build(1, 8);
    std::uint64_t now = 5;
    vcc_->SetMethodTrafficCtrl(std::make_shared<vesk::BasicPolicy>(1000, 1, [&now] { return now; }),
                               kMethodId);
    (void)handler_->Deliver(SomeipString("a"), kSomeip);
    (void)handler_->Deliver(SomeipString("b"), kSomeip);
    (void)handler_->Deliver({}, kSomeip, 0, true);
    ASSERT_TRUE(handler_->WaitForReplies(2));
    const auto replies = handler_->Replies();
    ASSERT_EQ(replies.size(), 2U) << "the refused empty message gets nothing";
    const auto& refused = replies[0].isError ? replies[0] : replies[1];
    EXPECT_TRUE(refused.isError);
    const std::vector<unsigned char> expected{0, 0, 0,    12,   1, 0x80, 0, 0, 0,
                                              0, 0, 0x12, 0x67, 0, 0,    0, 2};
    EXPECT_EQ(refused.bytes, expected) << "12, 1, the Com domain id, kMaxSamplesExceeded";
    EXPECT_EQ(service_->calls, 1);
    EXPECT_EQ(vcc_->FindMethodStats(kMethodId)->trafficControlled, 1U);
}

TEST_F(MethodSkeletonTest, AFullQueueReturnsTheLoanAndSendsNothing) {
    Build(1, 1);
    service_->mode = LengthService::Mode::kBlock;
    (void)handler_->Deliver(SomeipString("a"), kSomeip);
    ASSERT_TRUE(service_->gate.WaitEntered(1));
    (void)handler_->Deliver(SomeipString("b"), kSomeip);  // queued
    (void)handler_->Deliver(SomeipString("c"), kSomeip);  // refused by the full queue
    EXPECT_EQ(handler_->OpenLoans(), 2U) << "the dropped request's buffer went back at once";
    service_->gate.Open();
    ASSERT_TRUE(handler_->WaitForReplies(2));
    EXPECT_EQ(handler_->Allocations(), 2U);
    EXPECT_EQ(service_->calls, 2);
}

TEST_F(MethodSkeletonTest, UserFailuresSendNoReply) {
    Build(1, 8);
    struct Case {
        LengthService::Mode mode;
        std::string warning;
    };
    const Case cases[] = {
        {LengthService::Mode::kInvalid,
         "User return future is invalid, please check future whether associate with promise"},
        // A broken promise is a misuse of the future: the exception stays in the worker.
        {LengthService::Mode::kBrokenPromise, ""},
    };
    for (const auto& c : cases) {
        service_->mode = c.mode;
        const int before = service_->calls;
        (void)handler_->Deliver(SomeipString("x"), kSomeip);
        DrainPool();
        EXPECT_EQ(service_->calls, before + 1);
        if (!c.warning.empty()) {
            EXPECT_TRUE(Logged(LogLevel::kWarn, c.warning));
        }
    }
    EXPECT_EQ(vcc_->GetMethodPool()->FailedCount(), 1U);
    EXPECT_TRUE(handler_->Replies().empty());
    EXPECT_EQ(handler_->OpenLoans(), 0U) << "the loan came back though the continuation threw";
    EXPECT_EQ(std::static_pointer_cast<lumo::vcc::MethodSkeletonImpl<RegisterAppInfoOutput>>(
                  vcc_->FindMethod(kMethodId))
                  ->InFlightCount(),
              0U);
}

TEST_F(MethodSkeletonTest, StatusOneIsAnE2EErrorUnderProfile41Alone) {
    struct Case {
        std::uint8_t profile;
        std::uint8_t status;
        bool error;
    };
    const Case cases[] = {{41, 1, true}, {22, 1, false}, {22, 3, true}, {5, 0, false}};
    for (const auto& c : cases) {
        auto e2e = std::make_shared<lumo::com::e2exf::E2EProtection>();
        e2e->config = lumo::com::e2exf::E2EConfig{c.profile, 0x1234, {}};
        e2e->config->dataIdList[15] = 9;
        Build(1, 8, true, e2e);
        std::vector<std::uint32_t> ids;
        vcc_->SetE2EErrorHandler([&ids](lumo::vcc::api::types::E2EErrorCode,
                                        const std::vector<std::uint32_t>& list,
                                        std::uint32_t) { ids = list; });
        (void)handler_->Deliver(SomeipString("abc"), kSomeip, c.status);
        ASSERT_TRUE(handler_->WaitForReplies(1));
        const auto reply = handler_->Replies()[0];
        const std::string label =
            "profile " + std::to_string(c.profile) + " status " + std::to_string(c.status);
        EXPECT_EQ(reply.isError, c.error) << label;
        if (c.error) {
            EXPECT_EQ(ErrorOf(reply).first, lumo::vcc::api::types::E2EErrorDomain::kId) << label;
            EXPECT_EQ(ids.size(), c.profile == 22 ? 16U : 1U) << label;
            EXPECT_EQ(ids.back(), c.profile == 22 ? 9U : 0x1234U) << label;
        } else {
            EXPECT_EQ(ResultOf(reply, kSomeip), 3) << label;
        }
        vcc_.reset();
    }
}

TEST_F(MethodSkeletonTest, UnsetMethodCallbackWaitsForTheCallInFlight) {
    Build(1, 8);
    service_->mode = LengthService::Mode::kBlock;
    (void)handler_->Deliver(SomeipString("a"), kSomeip);
    ASSERT_TRUE(service_->gate.WaitEntered(1));

    std::promise<void> returned;
    auto unsetReturned = returned.get_future();
    std::thread unset([&] {
        vcc_->FindMethod(kMethodId)->UnsetMethodCallback();
        returned.set_value();
    });
    EXPECT_EQ(unsetReturned.wait_for(200ms), std::future_status::timeout)
        << "UnsetMethodCallback returned while a call was still inside the user method";
    EXPECT_FALSE(handler_->HasReceiveHandler());
    service_->gate.Open();
    EXPECT_EQ(unsetReturned.wait_for(10s), std::future_status::ready);
    unset.join();
    EXPECT_TRUE(Logged(LogLevel::kVerbose,
                       "MethodSkeletonImpl is unset method callback with method id:32777"));
}

// Before the user method is registered a request is dropped; a second registration of the
// method keeps the first.
TEST_F(MethodSkeletonTest, RequestsBeforeTheUserMethodAreDroppedAndRegisteringTwiceKeepsTheFirst) {
    Build(1, 8, false);
    (void)handler_->Deliver(SomeipString("x"), kSomeip);
    DrainPool();
    EXPECT_TRUE(Logged(LogLevel::kWarn, "[MethodSkeleton][Method was not registerd]"));
    EXPECT_TRUE(handler_->Replies().empty());
    EXPECT_EQ(handler_->OpenLoans(), 0U);

    auto first = vcc_->FindMethod(kMethodId);
    EXPECT_TRUE(Encapsulate());
    EXPECT_EQ(vcc_->FindMethod(kMethodId), first);
    EXPECT_TRUE(Logged(LogLevel::kWarn, "Method 32777 was registered. Ignore this time..."));
    EXPECT_FALSE(
        (vcc_->EncapsulateAndRegisterMethod<LengthService, ara::core::Future<RegisterAppInfoOutput>,
                                            ara::core::String>({})));
    EXPECT_TRUE(Logged(LogLevel::kError, "Invalid method data."));
    vcc_->RegisterMethod(1, service_.get(), &LengthService::Length);
    EXPECT_TRUE(
        Logged(LogLevel::kWarn, "Method 1 have not registered. Ignore this time register..."));
}

}  // namespace
