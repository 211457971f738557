#ifndef PLATFORM_ERROR_FUTURE_ERROR_DOMAIN_H
#define PLATFORM_ERROR_FUTURE_ERROR_DOMAIN_H

#include <future>

#include "platform/core/error_code.h"
#include "platform/core/exception.h"

namespace ara::core {

enum class future_errc : ErrorDomain::CodeType {  // NOLINT(readability-identifier-naming): standard
                                                  // name
    broken_promise = 101,
    future_already_retrieved = 102,
    promise_already_satisfied = 103,
    no_state = 104,
};

class FutureException : public Exception {
public:
    explicit FutureException(ErrorCode err) noexcept : Exception(err) {}
};

class FutureErrorDomain final : public ErrorDomain {
public:
    static constexpr IdType kId = 0x8000000000000013ULL;

    constexpr FutureErrorDomain() noexcept : ErrorDomain(kId) {}
    const char* Name() const noexcept override;
    // An unknown code ends the process with "unknown future error".
    const char* Message(CodeType errorCode) const noexcept override;
    [[noreturn]] void ThrowAsException(const ErrorCode& errorCode) const noexcept(false) override;
};

const ErrorDomain& GetFutureErrorDomain() noexcept;
ErrorCode MakeErrorCode(future_errc code, ErrorDomain::SupportDataType data) noexcept;

// Maps a std::future_error of a user future to the Future domain; codes the domain does not
// know become code 22 of the Core domain.
ErrorCode ErrorCodeFromStdFutureError(const std::error_code& code) noexcept;

}  // namespace ara::core

#endif
