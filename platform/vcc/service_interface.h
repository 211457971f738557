#ifndef PLATFORM_VCC_SERVICE_INTERFACE_H
#define PLATFORM_VCC_SERVICE_INTERFACE_H

#include <cstdint>
#include <memory>
#include <vector>

#include "platform/core/string.h"

namespace lumo::vcc {

// What a service interface declares: its entities with their framework numbers and the wire ids
// the bindings give them by default. A service's generated code provides one.
struct MethodDescription {
    std::uint32_t entityId{0};
    ara::core::String name;
    std::uint16_t someipMethodId{0};
};

struct EventDescription {
    std::uint32_t entityId{0};
    ara::core::String name;
    std::uint16_t someipEventId{0};
    std::uint16_t someipEventgroupId{0};
    bool isField{false};
};

struct ServiceInterface {
    std::uint16_t serviceId{0};
    ara::core::String name;  // the key of its "Services" entry and its DDS topics: "App"
    std::uint16_t someipServiceId{0};
    std::uint8_t majorVersion{1};
    std::uint32_t minorVersion{0};
    std::uint16_t defaultPort{0};  // SOME/IP TCP and UDP
    std::vector<MethodDescription> methods;
    std::vector<EventDescription> events;

    const MethodDescription* FindMethod(std::uint32_t entityId) const {
        for (const auto& method : methods) {
            if (method.entityId == entityId) {
                return &method;
            }
        }
        return nullptr;
    }
    const EventDescription* FindEvent(std::uint32_t entityId) const {
        for (const auto& event : events) {
            if (event.entityId == entityId) {
                return &event;
            }
        }
        return nullptr;
    }
};

}  // namespace lumo::vcc

#endif
