#include "tests/unit/someip/someip_test_server.h"

#include <cstring>
#include <string>

namespace wardend::test::someip {

using lumo::driver::someip::SomeipDriver;
using lumo::driver::someip::SomeipDriverOptions;

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

TestServer::TestServer(const SomeipDriverOptions& options, std::uint16_t port_,
                       std::uint16_t sdPort_, bool offer, std::uint32_t maxMessageSize,
                       bool replyFromPool, const std::string& address)
    : port(port_ != 0 ? port_ : FreePort()), sdPort(sdPort_ != 0 ? sdPort_ : FreePort()) {
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
    answerer_ = std::make_unique<Answerer>(method, "ok", replyFromPool);
    if (offer) {
        driver->OfferService(kService, "1");
    }
}

TestServer::~TestServer() {
    answerer_.reset();
    driver.reset();
}

bool TestServer::SendEvent(const Bytes& payload) {
    unsigned char* buffer = event->AllocateBuffer(payload.size());
    if (!payload.empty()) {
        std::memcpy(buffer, payload.data(), payload.size());
    }
    lumo::vcc::api::types::internal::SampleInfoImpl info;
    return event->SendEvent(buffer, payload.size(), info);
}

}  // namespace wardend::test::someip
