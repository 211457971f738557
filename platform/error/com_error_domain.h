#ifndef PLATFORM_ERROR_COM_ERROR_DOMAIN_H
#define PLATFORM_ERROR_COM_ERROR_DOMAIN_H

#include "platform/core/error_code.h"
#include "platform/core/exception.h"

namespace lumo::vcc::api::types {

enum class ComErrc : ara::core::ErrorDomain::CodeType {
    kOk = 0,
    kServiceNotAvailable = 1,
    kMaxSamplesExceeded = 2,
    kNetworkBindingFailure = 3,
    kServiceNotOffered = 11,
    kCommunicationStackError = 14,
    kWrongMethodCallProcessingMode = 17,
};

class ComException : public ara::core::Exception {
public:
    explicit ComException(ara::core::ErrorCode err) noexcept : Exception(err) {}
};

class ComErrorDomain final : public ara::core::ErrorDomain {
public:
    static constexpr IdType kId = 0x8000000000001267ULL;

    constexpr ComErrorDomain() noexcept : ErrorDomain(kId) {}
    const char* Name() const noexcept override;
    // The text is the enumerator's name. An unknown code is inserted with an empty text, so the
    // table grows by one entry per new code.
    const char* Message(CodeType errorCode) const noexcept override;
    [[noreturn]] void ThrowAsException(const ara::core::ErrorCode& errorCode) const
        noexcept(false) override;
};

const ara::core::ErrorDomain& GetComErrorDomain() noexcept;
ara::core::ErrorCode MakeErrorCode(ComErrc code,
                                   ara::core::ErrorDomain::SupportDataType data) noexcept;

}  // namespace lumo::vcc::api::types

#endif
