#include "tests/unit/someip/someip_test_server.h"

#include <cstring>
#include <string>

namespace wardend::test::someip {

using lumo::driver::someip::SomeipDriver;
using lumo::driver::someip::SomeipDriverOptions;
using lumo::vcc::driver::MethodMsgPtr;
using lumo::vcc::driver::SizeRecord;

SomeipDriverOptions QuickOptions() {
    SomeipDriverOptions options;
    options.maxConnections = 4;
    options.maxSendQueueBytes = std::size_t{64} * 1024;
    options.partialMessageTimeout = std::chrono::milliseconds(200);
    options.sendStallTimeout = std::chrono::milliseconds(2000);
    options.tick = std::chrono::milliseconds(5);
    options.initialDelayMin = std::chrono::milliseconds(1);
    options.initialDelayMax = std::chrono::milliseconds(5);
    options.repetitionBaseDelay = std::chrono::milliseconds(10);
    options.cyclicOfferDelay = std::chrono::milliseconds(200);
    options.findDelayMin = std::chrono::milliseconds(10);
    options.findDelayMax = std::chrono::milliseconds(100);
    options.subscribeAckTimeout = std::chrono::milliseconds(200);
    return options;
}

Bytes ErrorReplyPayload() {
    // 12, version 1, domain id, code: the binding's error reply.
    return {0x00, 0x00, 0x00, 0x0C, 0x01, 0x80, 0x00, 0x00, 0x00,
            0x00, 0x00, 0x00, 0x05, 0x00, 0x00, 0x00, 0x0B};
}

Bytes BigReplyRequest(std::uint32_t size) {
    Bytes payload = {'B', 0, 0, 0, 0};
    lumo::driver::someip::WriteU32(payload.data() + 1, size);
    return payload;
}

TestServer::TestServer(const SomeipDriverOptions& options, std::uint16_t port_,
                       std::uint16_t sdPort_, bool offer, std::uint32_t maxMessageSize,
                       bool replyFromPool, const std::string& address)
    : port(port_ != 0 ? port_ : FreePort()), sdPort(sdPort_ != 0 ? sdPort_ : FreePort()) {
    if (replyFromPool) {
        pool_ = std::make_unique<lumo::vcc::utils::ThreadPool>(2, 4096, "someip_test");
    }
    driver = std::make_shared<SomeipDriver>(options);
    auto methodInfo = MethodOn(kService, kMethod, port, sdPort);
    methodInfo.someip.maxMessageSize = maxMessageSize;
    methodInfo.someip.address = methodInfo.someip.sdAddress = address;
    auto eventInfo = EventOn(kService, kEvent, kEventgroup, port, sdPort);
    eventInfo.someip.address = eventInfo.someip.sdAddress = address;
    method = driver->CreateMethodHandler(methodInfo);
    event = driver->CreateEventHandler(eventInfo);
    if (method == nullptr || event == nullptr) {
        return;
    }
    auto* handler = method.get();
    method->SetReceiveHandler([this, handler](const MethodMsgPtr& msg) {
        Bytes payload(msg->payload, msg->payload + msg->size);
        handler->ReturnLoan(msg->payload);
        {
            std::lock_guard<std::mutex> lock(mutex_);
            seen_.push_back({msg->uuid, msg->serializeType, msg->driverType, payload});
        }
        arrived_.notify_all();
        if (pool_) {
            pool_->Enqueue([this, msg, payload] { Answer(msg, payload); }, 0);
        } else {
            Answer(msg, payload);
        }
    });
    if (offer) {
        driver->OfferService(kService, "1");
    }
}

TestServer::~TestServer() {
    if (pool_) {
        pool_->Stop();
    }
    if (method) {
        method->SetReceiveHandler(nullptr);
    }
    driver.reset();
}

void TestServer::Answer(const MethodMsgPtr& msg, const Bytes& payload) {
    const char op = payload.empty() ? '\0' : static_cast<char>(payload[0]);
    if (op == 'N') {
        return;
    }
    if (op == 'E') {
        const Bytes error = ErrorReplyPayload();
        unsigned char* buffer = method->AllocateBuffer(SizeRecord{17}, *msg);
        std::memcpy(buffer, error.data(), error.size());
        method->ReplyError(buffer, error.size(), msg, false);
        return;
    }
    Bytes reply;
    if (op == 'B' && payload.size() >= 5) {
        reply.assign(lumo::driver::someip::ReadU32(payload.data() + 1), 0x42);
    } else {
        const std::string text = "ok" + std::to_string(payload.size());
        reply.assign(text.begin(), text.end());
    }
    unsigned char* buffer =
        method->AllocateBuffer(SizeRecord{static_cast<std::uint32_t>(reply.size())}, *msg);
    if (!reply.empty()) {
        std::memcpy(buffer, reply.data(), reply.size());
    }
    method->ReplyData(buffer, SizeRecord{static_cast<std::uint32_t>(reply.size())}, msg, false);
}

bool TestServer::SendEvent(const Bytes& payload) {
    unsigned char* buffer = event->AllocateBuffer(payload.size());
    if (!payload.empty()) {
        std::memcpy(buffer, payload.data(), payload.size());
    }
    lumo::vcc::api::types::internal::SampleInfoImpl info;
    return event->SendEvent(buffer, payload.size(), info);
}

bool TestServer::WaitRequests(std::size_t count, std::chrono::milliseconds timeout) {
    std::unique_lock<std::mutex> lock(mutex_);
    return arrived_.wait_for(lock, timeout, [&] { return seen_.size() >= count; });
}

std::vector<SeenRequest> TestServer::Requests() {
    std::lock_guard<std::mutex> lock(mutex_);
    return seen_;
}

}  // namespace wardend::test::someip
