#ifndef PLATFORM_CORE_ERROR_CODE_H
#define PLATFORM_CORE_ERROR_CODE_H

#include <type_traits>

#include "platform/core/abort.h"
#include "platform/core/error_domain.h"
#include "platform/core/string.h"

namespace ara::core {

// A value, the domain it belongs to and support data; copies by value.
class ErrorCode final {
public:
    // Code 22 (invalid argument) of the Core domain with support data 0.
    ErrorCode() noexcept;

    // Any enumeration with a MakeErrorCode overload found by argument-dependent lookup.
    template <typename EnumT, typename = std::enable_if_t<std::is_enum<EnumT>::value>>
    ErrorCode(EnumT value, ErrorDomain::SupportDataType data = 0) noexcept
        : ErrorCode(MakeErrorCode(value, data)) {}

    constexpr ErrorCode(ErrorDomain::CodeType value, const ErrorDomain& domain,
                        ErrorDomain::SupportDataType data = 0) noexcept
        : value_(value), domain_(&domain), supportData_(data) {}

    constexpr ErrorDomain::CodeType Value() const noexcept { return value_; }
    constexpr const ErrorDomain& Domain() const noexcept { return *domain_; }
    constexpr ErrorDomain::SupportDataType SupportData() const noexcept { return supportData_; }
    StringView Message() const noexcept { return domain_->Message(value_); }
    [[noreturn]] void ThrowAsException() const noexcept(false) {
        domain_->ThrowAsException(*this);
        Abort("ErrorDomain::ThrowAsException returned");  // a domain that does not throw
    }

    bool operator==(const ErrorCode& other) const noexcept {
        return *domain_ == *other.domain_ && value_ == other.value_;
    }
    bool operator!=(const ErrorCode& other) const noexcept { return !(*this == other); }

private:
    ErrorDomain::CodeType value_;
    const ErrorDomain* domain_;
    ErrorDomain::SupportDataType supportData_;
};

}  // namespace ara::core

#endif
