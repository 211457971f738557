#ifndef BINDING_PROXY_METHOD_PROXY_H
#define BINDING_PROXY_METHOD_PROXY_H

#include <chrono>
#include <memory>
#include <tuple>
#include <type_traits>
#include <vector>

#include "binding/proloc/proloc_memory_factory.h"
#include "binding/serialize/dds_serializer.h"
#include "binding/serialize/someip_deserializer.h"
#include "binding/serialize/someip_serializer.h"
#include "binding/skeleton/error_reply.h"
#include "platform/core/future.h"
#include "platform/driver/proloc/proloc_entity_index.h"
#include "platform/error/com_error_domain.h"
#include "platform/vcc/driver/driver.h"
#include "platform/vcc/utils/thread_pool.h"

namespace lumo::vcc::proxy {

// The error of a call that got no reply: kServiceNotAvailable when the service is not there,
// kCommunicationStackError on a timeout, kNetworkBindingFailure when the request or the reply
// was refused or unreadable. The support data is the driver's CallStatus.
ara::core::ErrorCode CallError(driver::CallStatus status);
// The error code that a 17-byte error reply carries; kNetworkBindingFailure when its domain is
// not one this process knows.
ara::core::ErrorCode ErrorFromReply(std::uint64_t domainId, std::int32_t code);

// The client side of one method on one driver: serializes the arguments by the driver's rules,
// sends them and turns the reply into the future's value or error.
template <typename Output, typename... Args>
class MethodProxy {
public:
    using Result = ara::core::Result<Output>;

    MethodProxy(std::shared_ptr<driver::MethodClient> client, api::types::MethodInfo info)
        : client_(std::move(client)), fixed_(std::make_shared<const Fixed>(std::move(info))) {
        if (client_ != nullptr && IsProloc()) {
            requests_ = lumo::driver::proloc::ProlocMemoryFactory::GetMethodRequestInstance<
                std::decay_t<Args>...>();
            client_->SetProlocMemory(requests_);
        }
    }

    // Never blocks; the future is ready with the reply or an error within `timeout`.
    ara::core::Future<Output> Call(const Args&... args, std::chrono::milliseconds timeout) {
        auto promise = std::make_shared<ara::core::Promise<Output>>();
        auto future = promise->get_future();
        if (client_ == nullptr) {
            promise->SetError(CallError(driver::CallStatus::kNotReachable));
            return future;
        }
        // What the reply needs of the proxy is shared, not copied: a call must not cost a copy
        // of the method's description.
        auto handler = [promise, fixed = fixed_](const driver::MethodReply& reply) {
            promise->SetResult(ReadReply(reply, fixed->info, fixed->index));
        };
        if (IsProloc()) {
            const unsigned char* key = requests_->AddRequest(fixed_->index, args...);
            // The server queues the request on its pool on this thread. If this thread then
            // waits for the reply while no worker has taken the request, it serves it itself.
            utils::ThreadPool::FirstQueued queued;
            client_->Call(key, sizeof(std::tuple<std::decay_t<Args>...>), timeout, handler);
            if (auto task = queued.Take()) {
                promise->SetWaitHelper([task] { (void)task.RunHere(); });
            }
            return future;
        }
        const std::vector<unsigned char> payload = WriteRequest(args...);
        if (payload.size() == 1 && payload[0] == kUnwritable) {
            promise->SetError(CallError(driver::CallStatus::kRefused));
            return future;
        }
        client_->Call(payload.data(), payload.size(), timeout, handler);
        return future;
    }

    bool WaitForService(std::chrono::milliseconds timeout) {
        return client_ != nullptr && client_->WaitForService(timeout);
    }

    // See MethodClient::SetServiceFoundHandler. False when there is no client to watch.
    bool SetServiceFoundHandler(std::function<void()> handler) {
        if (client_ == nullptr) {
            return false;
        }
        client_->SetServiceFoundHandler(std::move(handler));
        return true;
    }

private:
    static constexpr unsigned char kUnwritable = 0xFF;

    // The method's description and its in-process index, shared by the proxy and its calls.
    struct Fixed {
        explicit Fixed(api::types::MethodInfo methodInfo)
            : info(std::move(methodInfo)),
              index(lumo::driver::proloc::ProlocEntityIndex::FromEntityInfo(info)) {}
        const api::types::MethodInfo info;
        const lumo::driver::proloc::ProlocEntityIndex index;
    };

    bool IsProloc() const { return fixed_->info.driverType == api::types::DriverType::kProloc; }

    // The arguments one after the other; a lone kUnwritable byte when one cannot be written.
    std::vector<unsigned char> WriteRequest(const Args&... args) const {
        std::vector<unsigned char> payload;
        bool ok = true;
        auto writeOne = [&](const auto& value) {
            using T = std::decay_t<decltype(value)>;
            const std::size_t offset = payload.size();
            if (fixed_->info.driverType == api::types::DriverType::kDds) {
                serialize::dds::Serializer<T> writer(value, fixed_->info.requestConfig);
                ok = ok && writer.GetSize() <= serialize::kSizeMax;
                if (ok) {
                    payload.resize(offset + writer.GetSize());
                    writer.Serialize(payload.data() + offset);
                }
            } else {
                serialize::someip::Serializer<T> writer(value, fixed_->info.requestConfig);
                ok = ok && writer.GetSize() <= serialize::kSizeMax;
                if (ok) {
                    payload.resize(offset + writer.GetSize());
                    writer.Serialize(payload.data() + offset);
                }
            }
        };
        (writeOne(args), ...);
        (void)writeOne;  // a method without arguments writes nothing
        return ok ? payload : std::vector<unsigned char>{kUnwritable};
    }

    static Result ReadReply(const driver::MethodReply& reply, const api::types::MethodInfo& info,
                            const lumo::driver::proloc::ProlocEntityIndex& index) {
        if (reply.status != driver::CallStatus::kOk) {
            return Result::FromError(CallError(reply.status));
        }
        if (reply.serializeType == static_cast<std::uint8_t>(api::types::SerializeType::kProloc)) {
            return ReadProlocReply(reply, index);
        }
        const bool someip =
            reply.serializeType == static_cast<std::uint8_t>(api::types::SerializeType::kSomeip);
        if (reply.isErrorReply) {
            std::uint64_t domain = 0;
            std::int32_t code = 0;
            if (!ReadErrorReply(reply.payload, reply.size, someip, info.replyConfig.byteOrder,
                                domain, code)) {
                return Result::FromError(CallError(driver::CallStatus::kRefused));
            }
            return Result::FromError(ErrorFromReply(domain, code));
        }
        if constexpr (std::is_void_v<Output>) {
            return Result();
        } else {
            Output output{};
            bool whole = false;
            if (someip) {
                serialize::someip::Deserializer<Output> reader(reply.payload, reply.size,
                                                               info.replyConfig);
                whole = reader.GetValue(output);
            } else {
                serialize::dds::Deserializer<Output> reader(reply.payload, reply.size);
                whole = reader.GetValue(output);
            }
            if (!whole) {
                return Result::FromError(CallError(driver::CallStatus::kRefused));
            }
            return Result(std::move(output));
        }
    }

    // The result lies in the reply store of Output, or for a request refused before the user
    // method ran, in the one of void.
    static Result ReadProlocReply(const driver::MethodReply& reply,
                                  const lumo::driver::proloc::ProlocEntityIndex& index) {
        const auto& replies =
            lumo::driver::proloc::ProlocMemoryFactory::GetMethodReplyInstance<Output>();
        if (auto result = replies->TakeReply(index, reply.payload)) {
            return std::move(*result);
        }
        const auto& refused =
            lumo::driver::proloc::ProlocMemoryFactory::GetMethodReplyInstance<void>();
        if (auto result = refused->TakeReply(index, reply.payload)) {
            if (!result->HasValue()) {
                return Result::FromError(result->Error());
            }
        }
        return Result::FromError(CallError(driver::CallStatus::kRefused));
    }

    std::shared_ptr<driver::MethodClient> client_;
    const std::shared_ptr<const Fixed> fixed_;
    // The in-process request store; null on the other drivers.
    std::shared_ptr<lumo::driver::proloc::ProlocRequestMemory<std::decay_t<Args>...>> requests_;
};

}  // namespace lumo::vcc::proxy

#endif
