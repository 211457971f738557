#ifndef PLATFORM_ERROR_CORE_ERROR_DOMAIN_H
#define PLATFORM_ERROR_CORE_ERROR_DOMAIN_H

#include <cstdint>

#include "platform/core/error_code.h"
#include "platform/core/exception.h"

namespace ara::core {

enum class CoreErrc : ErrorDomain::CodeType {
    kInvalidArgument = 22,
    kInvalidMetaModelShortname = 137,
    kInvalidMetaModelPath = 138,
};

class CoreException : public Exception {
public:
    explicit CoreException(ErrorCode err) noexcept : Exception(err) {}
};

class CoreErrorDomain final : public ErrorDomain {
public:
    static constexpr IdType kId = 0x8000000000000014ULL;

    constexpr CoreErrorDomain() noexcept : ErrorDomain(kId) {}
    const char* Name() const noexcept override;
    // An unknown code ends the process with "Unknown core error".
    const char* Message(CodeType errorCode) const noexcept override;
    [[noreturn]] void ThrowAsException(const ErrorCode& errorCode) const noexcept(false) override;
};

const ErrorDomain& GetCoreErrorDomain() noexcept;
ErrorCode MakeErrorCode(CoreErrc code, ErrorDomain::SupportDataType data) noexcept;

}  // namespace ara::core

#endif
