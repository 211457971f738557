#ifndef PLATFORM_ERROR_E2E_ERROR_DOMAIN_H
#define PLATFORM_ERROR_E2E_ERROR_DOMAIN_H

#include "platform/core/error_code.h"
#include "platform/core/exception.h"

namespace lumo::vcc::api::types {

enum class E2EErrorCode : ara::core::ErrorDomain::CodeType {
    repeated = 1,              // NOLINT(readability-identifier-naming): wire names
    wrong_sequence_error = 2,  // NOLINT(readability-identifier-naming)
    error = 3,                 // NOLINT(readability-identifier-naming)
    not_available = 4,         // NOLINT(readability-identifier-naming)
    no_new_data = 5,           // NOLINT(readability-identifier-naming)
    check_disable = 6,         // NOLINT(readability-identifier-naming)
};

class E2EException : public ara::core::Exception {
public:
    explicit E2EException(ara::core::ErrorCode err) noexcept : Exception(err) {}
};

class E2EErrorDomain final : public ara::core::ErrorDomain {
public:
    static constexpr IdType kId = 0x8000000000001268ULL;

    constexpr E2EErrorDomain() noexcept : ErrorDomain(kId) {}
    const char* Name() const noexcept override;
    // Same lookup as the Com domain: an unknown code grows the table with an empty text.
    const char* Message(CodeType errorCode) const noexcept override;
    [[noreturn]] void ThrowAsException(const ara::core::ErrorCode& errorCode) const
        noexcept(false) override;
};

const ara::core::ErrorDomain& GetE2EErrorDomain() noexcept;
ara::core::ErrorCode MakeErrorCode(E2EErrorCode code,
                                   ara::core::ErrorDomain::SupportDataType data) noexcept;

}  // namespace lumo::vcc::api::types

#endif
