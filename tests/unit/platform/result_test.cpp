#include "platform/core/result.h"

#include <gtest/gtest.h>

#include "platform/error/com_error_domain.h"

namespace {

using ara::core::ErrorCode;
using ara::core::Result;
using lumo::vcc::api::types::ComErrc;
using lumo::vcc::api::types::ComException;

ErrorCode ComError(ComErrc code) {
    return lumo::vcc::api::types::MakeErrorCode(code, 0);
}

TEST(ResultTest, ValueOrThrowRaisesTheDomainException) {
    const auto error = Result<int>::FromError(ComError(ComErrc::kServiceNotOffered));
    EXPECT_THROW(error.ValueOrThrow(), ComException);
    const auto voidError = Result<void>::FromError(ComError(ComErrc::kServiceNotOffered));
    EXPECT_THROW(voidError.ValueOrThrow(), ComException);
    EXPECT_NO_THROW(Result<void>().ValueOrThrow());
}

TEST(ResultDeathTest, ErrorOnAValueAndValueOnAnErrorAbortWithTheirTexts) {
    const Result<int> value(1);
    EXPECT_DEATH((void)value.Error(),
                 "\\[CORETYPE Result\\] : Error, Error\\(\\) called but NOT a error!");
    const Result<void> voidValue;
    EXPECT_DEATH((void)voidValue.Error(), "NOT a error!");
    const auto error = Result<int>::FromError(ComError(ComErrc::kServiceNotOffered));
    EXPECT_DEATH((void)error.Value(), "NOT a value");
}

}  // namespace
