#ifndef TESTS_UNIT_DDS_DDS_FIXTURE_H
#define TESTS_UNIT_DDS_DDS_FIXTURE_H

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/driver/dds/dds_driver.h"
#include "platform/vcc/utils/thread_pool.h"
#include "tests/support/dds_domain.h"
#include "tests/support/memory_log.h"
#include "tests/support/method_calls.h"

namespace wardend::test {

using lumo::vcc::api::types::EventInfo;
using lumo::vcc::api::types::MethodInfo;
using lumo::vcc::api::types::Uuid;
using lumo::vcc::driver::CallStatus;
using lumo::vcc::driver::MethodHandler;
using lumo::vcc::driver::MethodMsgPtr;
using namespace std::chrono_literals;

inline constexpr std::uint16_t kAppService = 0x5700;
inline constexpr std::uint32_t kRegisterAppInfo = 60621;
inline constexpr std::uint32_t kLatencySwitch = 30161;

// RegisterAppInfo and the latency switch event of the App service on DDS, as the assembly
// makes them; instance is the daemon's ("Wardend"."instanceId").
inline MethodInfo AppMethod(std::uint32_t domain, const std::string& instance) {
    MethodInfo info;
    info.driverType = lumo::vcc::api::types::DriverType::kDds;
    info.serviceId = kAppService;
    info.instanceId = "1";
    info.entityId = kRegisterAppInfo;
    info.dds.domainId = domain;
    info.dds.topic = "wardend/App/RegisterAppInfo";
    info.dds.targetInstance = instance;
    return info;
}

inline EventInfo AppEvent(std::uint32_t domain, const std::string& instance) {
    EventInfo info;
    info.driverType = lumo::vcc::api::types::DriverType::kDds;
    info.serviceId = kAppService;
    info.instanceId = "1";
    info.entityId = kLatencySwitch;
    info.dds.domainId = domain;
    info.dds.topic = "wardend/App/LatencySwitch";
    info.dds.targetInstance = instance;
    return info;
}

// Answers the requests of a method handler as the daemon's method pool does: the receive
// handler only queues, a thread of its own replies "<instance>:<payload>" (with ReplyError when
// the payload begins with "error"), or does not reply at all when silent.
class Replier {
public:
    Replier(std::shared_ptr<MethodHandler> handler, std::string instance, bool silent = false)
        : handler_(std::move(handler)), instance_(std::move(instance)), silent_(silent) {
        handler_->SetReceiveHandler([this](const MethodMsgPtr& msg) { Queue(msg); });
    }
    ~Replier() {
        handler_->SetReceiveHandler({});
        pool_.Stop();
    }
    Replier(const Replier&) = delete;
    Replier& operator=(const Replier&) = delete;

    int Count() const { return count_; }
    std::vector<MethodMsgPtr> Requests() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return requests_;
    }

private:
    void Queue(const MethodMsgPtr& msg) {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            requests_.push_back(msg);
        }
        ++count_;
        // The loan goes back when the task has run or was dropped.
        std::shared_ptr<const unsigned char> loan(
            msg->payload, [handler = handler_](const unsigned char* p) { handler->ReturnLoan(p); });
        pool_.Enqueue([this, msg, loan] { Reply(msg); }, 1);
    }
    void Reply(const MethodMsgPtr& msg) {
        if (silent_) {
            return;
        }
        const std::string request(reinterpret_cast<const char*>(msg->payload), msg->size);
        const std::string reply = instance_ + ":" + request;
        lumo::vcc::driver::SizeRecord size;
        size.length = static_cast<std::uint32_t>(reply.size());
        unsigned char* buffer = handler_->AllocateBuffer(size, *msg);
        std::copy(reply.begin(), reply.end(), buffer);
        if (request.rfind("error", 0) == 0) {
            handler_->ReplyError(buffer, reply.size(), msg, false);
        } else {
            handler_->ReplyData(buffer, size, msg, false);
        }
    }

    std::shared_ptr<MethodHandler> handler_;
    const std::string instance_;
    const bool silent_;
    std::atomic<int> count_{0};
    mutable std::mutex mutex_;  // guards requests_
    std::vector<MethodMsgPtr> requests_;
    lumo::vcc::utils::ThreadPool pool_{1, 256, "wrdn_replier"};
};

class DdsDriverTest : public MemoryLogTest {
protected:
    DdsTestDomain domain_;
};

}  // namespace wardend::test

#endif
