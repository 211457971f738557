#include <map>

#include "platform/core/abort.h"
#include "platform/core/string.h"
#include "platform/error/com_error_domain.h"
#include "platform/error/core_error_domain.h"
#include "platform/error/e2e_error_domain.h"
#include "platform/error/future_error_domain.h"

namespace ara::core {

namespace {
constexpr CoreErrorDomain kCoreErrorDomain;
constexpr FutureErrorDomain kFutureErrorDomain;
}  // namespace

ErrorCode::ErrorCode() noexcept
    : ErrorCode(static_cast<ErrorDomain::CodeType>(CoreErrc::kInvalidArgument), kCoreErrorDomain,
                0) {}

const char* CoreErrorDomain::Name() const noexcept {
    return "Core";
}

const char* CoreErrorDomain::Message(CodeType errorCode) const noexcept {
    switch (static_cast<CoreErrc>(errorCode)) {
        case CoreErrc::kInvalidArgument:
            return "Invalid argument";
        case CoreErrc::kInvalidMetaModelShortname:
            return "Invalid meta model short name";
        case CoreErrc::kInvalidMetaModelPath:
            return "Invalid meta model path";
    }
    Abort("Unknown core error");
}

void CoreErrorDomain::ThrowAsException(const ErrorCode& errorCode) const noexcept(false) {
    throw CoreException(ErrorCode(errorCode.Value(), *this, errorCode.SupportData()));
}

const ErrorDomain& GetCoreErrorDomain() noexcept {
    return kCoreErrorDomain;
}

ErrorCode MakeErrorCode(CoreErrc code, ErrorDomain::SupportDataType data) noexcept {
    return ErrorCode(static_cast<ErrorDomain::CodeType>(code), kCoreErrorDomain, data);
}

const char* FutureErrorDomain::Name() const noexcept {
    return "Future";
}

const char* FutureErrorDomain::Message(CodeType errorCode) const noexcept {
    switch (static_cast<future_errc>(errorCode)) {
        case future_errc::broken_promise:
            return "broken promise";
        case future_errc::future_already_retrieved:
            return "future already retrieved";
        case future_errc::promise_already_satisfied:
            return "promise already satisfied";
        case future_errc::no_state:
            return "no state";
    }
    Abort("unknown future error");
}

void FutureErrorDomain::ThrowAsException(const ErrorCode& errorCode) const noexcept(false) {
    throw FutureException(ErrorCode(errorCode.Value(), *this, errorCode.SupportData()));
}

const ErrorDomain& GetFutureErrorDomain() noexcept {
    return kFutureErrorDomain;
}

ErrorCode MakeErrorCode(future_errc code, ErrorDomain::SupportDataType data) noexcept {
    return ErrorCode(static_cast<ErrorDomain::CodeType>(code), kFutureErrorDomain, data);
}

ErrorCode ErrorCodeFromStdFutureError(const std::error_code& code) noexcept {
    if (code.category() == std::future_category()) {
        switch (static_cast<std::future_errc>(code.value())) {
            case std::future_errc::broken_promise:
                return MakeErrorCode(future_errc::broken_promise, 0);
            case std::future_errc::future_already_retrieved:
                return MakeErrorCode(future_errc::future_already_retrieved, 0);
            case std::future_errc::promise_already_satisfied:
                return MakeErrorCode(future_errc::promise_already_satisfied, 0);
            case std::future_errc::no_state:
                return MakeErrorCode(future_errc::no_state, 0);
        }
    }
    return MakeErrorCode(CoreErrc::kInvalidArgument, 0);
}

}  // namespace ara::core

namespace lumo::vcc::api::types {

namespace {
constexpr ComErrorDomain kComErrorDomain;
constexpr E2EErrorDomain kE2EErrorDomain;

// Bracket access on purpose: an unknown code gets an empty text that stays in the table.
// Only the static's construction is synchronized, as the domain always was.
const char* LookUp(std::map<ara::core::ErrorDomain::CodeType, ara::core::String>& table,
                   ara::core::ErrorDomain::CodeType code) {
    return table[code].c_str();
}
}  // namespace

const char* ComErrorDomain::Name() const noexcept {
    return "Com";
}

const char* ComErrorDomain::Message(CodeType errorCode) const noexcept {
    static std::map<CodeType, ara::core::String> table{
        {0, "ok"},
        {1, "kServiceNotAvailable"},
        {2, "kMaxSamplesExceeded"},
        {3, "kNetworkBindingFailure"},
        {11, "kServiceNotOffered"},
        {14, "kCommunicationStackError"},
        {17, "kWrongMethodCallProcessingMode"},
    };
    return LookUp(table, errorCode);
}

void ComErrorDomain::ThrowAsException(const ara::core::ErrorCode& errorCode) const noexcept(false) {
    throw ComException(ara::core::ErrorCode(errorCode.Value(), *this, errorCode.SupportData()));
}

const ara::core::ErrorDomain& GetComErrorDomain() noexcept {
    return kComErrorDomain;
}

ara::core::ErrorCode MakeErrorCode(ComErrc code,
                                   ara::core::ErrorDomain::SupportDataType data) noexcept {
    return ara::core::ErrorCode(static_cast<ara::core::ErrorDomain::CodeType>(code),
                                kComErrorDomain, data);
}

const char* E2EErrorDomain::Name() const noexcept {
    return "E2E";
}

const char* E2EErrorDomain::Message(CodeType errorCode) const noexcept {
    static std::map<CodeType, ara::core::String> table{
        {1, "repeated"},      {2, "wrong_sequence_error"}, {3, "error"},
        {4, "not_available"}, {5, "no_new_data"},          {6, "check_disable"},
    };
    return LookUp(table, errorCode);
}

void E2EErrorDomain::ThrowAsException(const ara::core::ErrorCode& errorCode) const noexcept(false) {
    throw E2EException(ara::core::ErrorCode(errorCode.Value(), *this, errorCode.SupportData()));
}

const ara::core::ErrorDomain& GetE2EErrorDomain() noexcept {
    return kE2EErrorDomain;
}

ara::core::ErrorCode MakeErrorCode(E2EErrorCode code,
                                   ara::core::ErrorDomain::SupportDataType data) noexcept {
    return ara::core::ErrorCode(static_cast<ara::core::ErrorDomain::CodeType>(code),
                                kE2EErrorDomain, data);
}

}  // namespace lumo::vcc::api::types
