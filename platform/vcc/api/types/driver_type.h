#ifndef PLATFORM_VCC_API_TYPES_DRIVER_TYPE_H
#define PLATFORM_VCC_API_TYPES_DRIVER_TYPE_H

#include <cstdint>
#include <memory>
#include <utility>

#include "platform/core/string.h"

namespace lumo::vcc::api::types {

// The transport of an entity. Maps keyed by it iterate in this order. Not the record-level
// vesk::wardend::DriverType: the two are never converted by value.
enum class DriverType : std::uint8_t {
    kProloc = 0,  // in-process
    kDds = 1,
    kSomeip = 2,
};

// "PROLOC", "DDS", "SOMEIP"; "UNKNOWN" for anything else.
const char* DriverTypeName(DriverType type) noexcept;

// How requests reach the user method: polled by the application, or pushed through the
// service's worker pool. The daemon builds both services in kEvent.
enum class MethodCallProcessingMode : std::uint8_t {
    kPoll = 0,
    kEvent = 1,
};

// The serialization rules a driver's payloads follow.
enum class SerializeType : std::uint8_t {
    kDds = 0,
    kSomeip = 2,
    kProloc = 3,
    kSignal = 4,
};

class InstanceIdentifier {
public:
    explicit InstanceIdentifier(ara::core::String value) : value_(std::move(value)) {}
    const ara::core::String& ToString() const noexcept { return value_; }
    bool operator==(const InstanceIdentifier& other) const { return value_ == other.value_; }

private:
    ara::core::String value_;
};

using ApplicationName = ara::core::String;

}  // namespace lumo::vcc::api::types

namespace lumo::vcc {
struct ServiceInterface;
}  // namespace lumo::vcc

namespace ara::com {

// A service interface's id, the framework's entity numbering (not a wire id), with what the
// interface declares.
struct ServiceIdentifierType {
    std::uint16_t value{0};
    ara::core::String shortName;
    std::shared_ptr<const lumo::vcc::ServiceInterface> interface;
};

}  // namespace ara::com

#endif
