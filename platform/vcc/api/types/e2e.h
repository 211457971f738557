#ifndef PLATFORM_VCC_API_TYPES_E2E_H
#define PLATFORM_VCC_API_TYPES_E2E_H

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "platform/error/e2e_error_domain.h"

namespace lumo::com::e2exf {

// What the E2E check of a received message found. 1 is an error under profile 41 alone.
enum class ProfileCheckStatus : std::uint8_t {
    kOk = 0,
    kRepeated = 1,
    kWrongSequence = 2,
    kError = 3,
    kNotAvailable = 4,
    kNoNewData = 5,
    kCheckDisabled = 6,
};

// The E2E settings of one protected entity.
struct E2EConfig {
    std::uint8_t profile{0};
    std::uint32_t dataId{0};
    std::array<std::uint8_t, 16> dataIdList{};
};

// The protection object of an entity. Without a configuration the entity is unprotected.
struct E2EProtection {
    std::optional<E2EConfig> config;
};

}  // namespace lumo::com::e2exf

namespace lumo::vcc::api::types {

// Called when a request fails its E2E check: the mapped error, the data ids and the counter.
using E2EErrorHandler =
    std::function<void(E2EErrorCode, const std::vector<std::uint32_t>&, std::uint32_t)>;

}  // namespace lumo::vcc::api::types

#endif
