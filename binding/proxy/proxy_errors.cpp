#include "binding/proxy/method_proxy.h"
#include "platform/error/core_error_domain.h"
#include "platform/error/e2e_error_domain.h"
#include "platform/error/future_error_domain.h"

namespace lumo::vcc::proxy {

ara::core::ErrorCode CallError(driver::CallStatus status) {
    using api::types::ComErrc;
    const auto data = static_cast<ara::core::ErrorDomain::SupportDataType>(status);
    switch (status) {
        case driver::CallStatus::kNotReachable:
            return api::types::MakeErrorCode(ComErrc::kServiceNotAvailable, data);
        case driver::CallStatus::kTimeout:
            return api::types::MakeErrorCode(ComErrc::kCommunicationStackError, data);
        case driver::CallStatus::kOk:
        case driver::CallStatus::kRefused:
            break;
    }
    return api::types::MakeErrorCode(ComErrc::kNetworkBindingFailure, data);
}

ara::core::ErrorCode ErrorFromReply(std::uint64_t domainId, std::int32_t code) {
    const ara::core::ErrorDomain* domains[] = {
        &api::types::GetComErrorDomain(), &api::types::GetE2EErrorDomain(),
        &ara::core::GetCoreErrorDomain(), &ara::core::GetFutureErrorDomain()};
    for (const auto* domain : domains) {
        if (domain->Id() == domainId) {
            return ara::core::ErrorCode(code, *domain, 0);
        }
    }
    return CallError(driver::CallStatus::kRefused);
}

}  // namespace lumo::vcc::proxy
