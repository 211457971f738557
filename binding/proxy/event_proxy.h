#ifndef BINDING_PROXY_EVENT_PROXY_H
#define BINDING_PROXY_EVENT_PROXY_H

#include <functional>
#include <memory>

#include "binding/proloc/proloc_memory_factory.h"
#include "binding/serialize/dds_serializer.h"
#include "binding/serialize/someip_deserializer.h"
#include "platform/vcc/driver/driver.h"

namespace lumo::vcc::proxy {

// The client side of one event on one driver: hands each sample to the handler as a value.
// Samples that cannot be read are dropped.
template <typename T>
class EventProxy {
public:
    using Handler = std::function<void(const T&)>;

    EventProxy(std::shared_ptr<driver::EventClient> client, api::types::EventInfo info)
        : client_(std::move(client)), info_(std::move(info)) {
        if (client_ != nullptr && info_.driverType == api::types::DriverType::kProloc) {
            client_->SetProlocMemory(
                lumo::driver::proloc::ProlocMemoryFactory::GetEventInstance<T>());
        }
    }
    ~EventProxy() { Unsubscribe(); }
    EventProxy(const EventProxy&) = delete;
    EventProxy& operator=(const EventProxy&) = delete;

    bool Subscribe(Handler handler) {
        if (client_ == nullptr) {
            return false;
        }
        const auto driverType = info_.driverType;
        const auto config = info_.config;
        return client_->Subscribe([handler = std::move(handler), driverType, config](
                                      const unsigned char* payload, std::uint64_t size) {
            if (driverType == api::types::DriverType::kProloc) {
                handler(*reinterpret_cast<const T*>(payload));
                return;
            }
            T value{};
            bool whole = false;
            if (driverType == api::types::DriverType::kDds) {
                serialize::dds::Deserializer<T> reader(payload, size);
                whole = reader.GetValue(value);
            } else {
                serialize::someip::Deserializer<T> reader(payload, size, config);
                whole = reader.GetValue(value);
            }
            if (whole) {
                handler(value);
            }
        });
    }
    void Unsubscribe() {
        if (client_ != nullptr) {
            client_->Unsubscribe();
        }
    }
    bool IsSubscribed() const { return client_ != nullptr && client_->IsSubscribed(); }

private:
    std::shared_ptr<driver::EventClient> client_;
    const api::types::EventInfo info_;
};

}  // namespace lumo::vcc::proxy

#endif
