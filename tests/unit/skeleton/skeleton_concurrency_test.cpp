#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <thread>
#include <vector>

#include "binding/skeleton/vcc_methods.h"
#include "records/service_outputs.h"
#include "tests/unit/skeleton/fake_driver.h"

namespace {

using lumo::vcc::api::types::DriverType;
using vesk::wardend::RegisterAppInfoOutput;

constexpr std::uint32_t kMethodId = 60621;
constexpr auto kSomeip = static_cast<std::uint8_t>(lumo::vcc::api::types::SerializeType::kSomeip);

// Answers later, from a thread of its own, so that replies leave on that thread.
class LateService {
public:
    LateService() : completer_([this] { Complete(); }) {}
    ~LateService() {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            stopping_ = true;
        }
        wake_.notify_one();
        completer_.join();
    }

    ara::core::Future<RegisterAppInfoOutput> Register(const ara::core::String& name) {
        ++calls;
        ara::core::Promise<RegisterAppInfoOutput> promise;
        auto future = promise.get_future();
        std::lock_guard<std::mutex> lock(mutex_);
        pending_.emplace_back(std::move(promise), name.size());
        wake_.notify_one();
        return future;
    }

    std::atomic<int> calls{0};

private:
    void Complete() {
        std::unique_lock<std::mutex> lock(mutex_);
        for (;;) {
            wake_.wait(lock, [this] { return stopping_ || !pending_.empty(); });
            if (pending_.empty()) {
                return;
            }
            auto [promise, size] = std::move(pending_.front());
            pending_.pop_front();
            lock.unlock();
            RegisterAppInfoOutput output;
            output.result = static_cast<std::uint16_t>(size);
            promise.set_value(output);
            lock.lock();
        }
    }

    std::mutex mutex_;  // guards pending_ and stopping_
    std::condition_variable wake_;
    std::deque<std::pair<ara::core::Promise<RegisterAppInfoOutput>, std::size_t>> pending_;
    bool stopping_{false};
    std::thread completer_;
};

// Requests arrive from several driver threads, run on the pool, are answered from another
// thread, and the method is detached while they still arrive.
TEST(MethodSkeletonConcurrencyTest, PoolContinuationsAndUnsetWhileCallsArrive) {
    auto driver = std::make_shared<wardend::test::FakeDriver>(DriverType::kSomeip, kSomeip, false);
    lumo::vcc::driver::DriverRegistry::Register(driver);
    auto service = std::make_shared<LateService>();
    {
        lumo::vcc::Vcc vcc(ara::com::ServiceIdentifierType{0x5700, "App", nullptr},
                           lumo::vcc::api::types::InstanceIdentifier("1"),
                           lumo::vcc::api::types::MethodCallProcessingMode::kEvent);
        ASSERT_TRUE(vcc.SetMethodThreadNumber(4, 64));
        auto info = std::make_shared<lumo::vcc::api::types::MethodInfo>();
        info->driverType = DriverType::kSomeip;
        info->entityId = kMethodId;
        ASSERT_TRUE(
            (vcc.EncapsulateAndRegisterMethod<LateService, ara::core::Future<RegisterAppInfoOutput>,
                                              ara::core::String>({{DriverType::kSomeip, info}})));
        vcc.RegisterMethod(kMethodId, service.get(), &LateService::Register);
        auto handler = driver->Method(kMethodId);
        const ara::core::String name("node");
        lumo::serialize::someip::Serializer<ara::core::String> writer(name, {});
        std::vector<unsigned char> request(writer.GetSize());
        writer.Serialize(request.data());

        std::atomic<bool> detached{false};
        std::vector<std::thread> drivers;
        drivers.reserve(3);
        for (int t = 0; t < 3; ++t) {
            drivers.emplace_back([&] {
                for (int i = 0; i < 300; ++i) {
                    (void)handler->Deliver(request, kSomeip);
                    if (i == 100 && !detached.exchange(true)) {
                        const auto deadline =
                            std::chrono::steady_clock::now() + std::chrono::seconds(10);
                        while (service->calls == 0 && std::chrono::steady_clock::now() < deadline) {
                            std::this_thread::yield();
                        }
                        vcc.FindMethod(kMethodId)->UnsetMethodCallback();
                    }
                }
            });
        }
        for (auto& thread : drivers) {
            thread.join();
        }
        const int callsAtDetach = service->calls;
        for (int i = 0; i < 10; ++i) {
            (void)handler->Deliver(request, kSomeip);
        }
        EXPECT_EQ(service->calls, callsAtDetach) << "no call reaches the user after the unset";
        EXPECT_GT(callsAtDetach, 0);
    }
    service.reset();  // completes what is pending, with the Vcc gone
    lumo::vcc::driver::DriverRegistry::Unregister(DriverType::kSomeip);
}

}  // namespace
