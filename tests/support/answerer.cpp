#include "tests/support/answerer.h"

#include <algorithm>

namespace wardend::test {

using lumo::vcc::driver::MethodMsgPtr;
using lumo::vcc::driver::SizeRecord;

Answerer::Answerer(std::shared_ptr<lumo::vcc::driver::MethodHandler> handler, std::string prefix,
                   bool pooled)
    : handler_(std::move(handler)), prefix_(std::move(prefix)) {
    if (pooled) {
        pool_ = std::make_unique<lumo::vcc::utils::ThreadPool>(2, 4096, "wrdn_answerer");
    }
    handler_->SetReceiveHandler([this](const MethodMsgPtr& msg) {
        std::string payload(reinterpret_cast<const char*>(msg->payload), msg->size);
        handler_->ReturnLoan(msg->payload);
        {
            std::lock_guard<std::mutex> lock(mutex_);
            requests_.push_back({msg->uuid, msg->driverType, msg->serializeType, payload});
        }
        arrived_.notify_all();
        if (pool_) {
            pool_->Enqueue([this, msg, payload] { Answer(msg, payload); }, 0);
        } else {
            Answer(msg, payload);
        }
    });
}

Answerer::~Answerer() {
    handler_->SetReceiveHandler(nullptr);
    if (pool_) {
        pool_->Stop();
    }
}

void Answerer::Answer(const MethodMsgPtr& msg, const std::string& payload) {
    const char kind = payload.empty() ? '\0' : payload[0];
    if (kind == 'N') {
        return;
    }
    std::string reply = prefix_ + ":" + payload;
    if (kind == 'B' && payload.size() >= 5) {
        std::uint32_t size = 0;
        for (std::size_t i = 1; i < 5; ++i) {
            size = (size << 8U) | static_cast<unsigned char>(payload[i]);
        }
        reply.resize(size);
        for (std::size_t i = 0; i < reply.size(); ++i) {
            reply[i] = BigReplyByte(i);
        }
    }
    const SizeRecord size{static_cast<std::uint32_t>(reply.size())};
    unsigned char* buffer = handler_->AllocateBuffer(size, *msg);
    std::copy(reply.begin(), reply.end(), buffer);
    if (kind == 'E') {
        handler_->ReplyError(buffer, reply.size(), msg, false);
    } else {
        handler_->ReplyData(buffer, size, msg, false);
    }
}

std::vector<Answerer::Request> Answerer::Requests() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return requests_;
}

int Answerer::Count() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return static_cast<int>(requests_.size());
}

bool Answerer::WaitRequests(std::size_t count, std::chrono::milliseconds timeout) const {
    std::unique_lock<std::mutex> lock(mutex_);
    return arrived_.wait_for(lock, timeout, [&] { return requests_.size() >= count; });
}

std::string Answerer::BigReplyRequest(std::uint32_t size) {
    std::string payload = "B";
    for (int shift = 24; shift >= 0; shift -= 8) {
        payload.push_back(static_cast<char>((size >> static_cast<unsigned>(shift)) & 0xFFU));
    }
    return payload;
}

}  // namespace wardend::test
