#include <gtest/gtest.h>

#include <cstring>
#include <future>

#include "platform/error/com_error_domain.h"
#include "platform/error/core_error_domain.h"
#include "platform/error/e2e_error_domain.h"
#include "platform/error/future_error_domain.h"

namespace {

using ara::core::ErrorCode;
using ara::core::ErrorDomain;
using lumo::vcc::api::types::GetComErrorDomain;
using lumo::vcc::api::types::GetE2EErrorDomain;

TEST(ErrorDomainTest, MessageAndWhatGiveTheTableText) {
    const ErrorDomain& core = ara::core::GetCoreErrorDomain();
    const ErrorDomain& future = ara::core::GetFutureErrorDomain();
    const ErrorDomain& com = GetComErrorDomain();
    const ErrorDomain& e2e = GetE2EErrorDomain();
    const struct {
        const ErrorDomain& domain;
        ErrorDomain::CodeType code;
        const char* text;
    } rows[] = {
        {core, 22, "Invalid argument"},
        {core, 137, "Invalid meta model short name"},
        {core, 138, "Invalid meta model path"},
        {future, 101, "broken promise"},
        {future, 102, "future already retrieved"},
        {future, 103, "promise already satisfied"},
        {future, 104, "no state"},
        {com, 0, "ok"},
        {com, 1, "kServiceNotAvailable"},
        {com, 2, "kMaxSamplesExceeded"},
        {com, 3, "kNetworkBindingFailure"},
        {com, 11, "kServiceNotOffered"},
        {com, 14, "kCommunicationStackError"},
        {com, 17, "kWrongMethodCallProcessingMode"},
        {e2e, 1, "repeated"},
        {e2e, 2, "wrong_sequence_error"},
        {e2e, 3, "error"},
        {e2e, 4, "not_available"},
        {e2e, 5, "no_new_data"},
        {e2e, 6, "check_disable"},
    };
    for (const auto& row : rows) {
        EXPECT_STREQ(row.domain.Message(row.code), row.text);
        try {
            ErrorCode(row.code, row.domain, 7).ThrowAsException();
            ADD_FAILURE() << row.text << ": did not throw";
        } catch (const ara::core::Exception& e) {
            EXPECT_STREQ(e.what(), row.text);
            EXPECT_EQ(e.Error().Value(), row.code) << row.text;
            EXPECT_EQ(e.Error().SupportData(), 7) << row.text;
            EXPECT_EQ(e.Error().Domain(), row.domain) << row.text;
        }
    }
}

TEST(ErrorDomainTest, NamesAndIdsAreTheFixedOnes) {
    EXPECT_STREQ(ara::core::GetCoreErrorDomain().Name(), "Core");
    EXPECT_EQ(ara::core::GetCoreErrorDomain().Id(), 0x8000000000000014ULL);
    EXPECT_STREQ(ara::core::GetFutureErrorDomain().Name(), "Future");
    EXPECT_EQ(ara::core::GetFutureErrorDomain().Id(), 0x8000000000000013ULL);
    EXPECT_STREQ(GetComErrorDomain().Name(), "Com");
    EXPECT_EQ(GetComErrorDomain().Id(), 0x8000000000001267ULL);
    EXPECT_STREQ(GetE2EErrorDomain().Name(), "E2E");
    EXPECT_EQ(GetE2EErrorDomain().Id(), 0x8000000000001268ULL);
}

TEST(ErrorDomainTest, EachDomainThrowsItsOwnExceptionType) {
    EXPECT_THROW(
        ara::core::MakeErrorCode(ara::core::CoreErrc::kInvalidArgument, 0).ThrowAsException(),
        ara::core::CoreException);
    EXPECT_THROW(ara::core::MakeErrorCode(ara::core::future_errc::no_state, 0).ThrowAsException(),
                 ara::core::FutureException);
    EXPECT_THROW(lumo::vcc::api::types::MakeErrorCode(
                     lumo::vcc::api::types::ComErrc::kNetworkBindingFailure, 0)
                     .ThrowAsException(),
                 lumo::vcc::api::types::ComException);
    EXPECT_THROW(lumo::vcc::api::types::MakeErrorCode(lumo::vcc::api::types::E2EErrorCode::error, 0)
                     .ThrowAsException(),
                 lumo::vcc::api::types::E2EException);
}

TEST(ErrorDomainTest, UnknownComAndE2ECodesGrowTheTableWithAnEmptyText) {
    for (const ErrorDomain* domain : {&GetComErrorDomain(), &GetE2EErrorDomain()}) {
        const char* first = domain->Message(999);
        EXPECT_STREQ(first, "");
        // The second lookup finds the entry the first one inserted.
        EXPECT_EQ(domain->Message(999), first);
    }
}

TEST(ErrorDomainDeathTest, UnknownCoreAndFutureCodesAbort) {
    EXPECT_DEATH(ara::core::GetCoreErrorDomain().Message(999), "Unknown core error");
    EXPECT_DEATH(ara::core::GetFutureErrorDomain().Message(999), "unknown future error");
}

TEST(ErrorCodeTest, EqualityIgnoresSupportDataButNotTheDomain) {
    EXPECT_EQ(ErrorCode(3, GetComErrorDomain(), 1), ErrorCode(3, GetComErrorDomain(), 2));
    EXPECT_NE(ErrorCode(3, GetComErrorDomain()), ErrorCode(3, GetE2EErrorDomain()));
}

TEST(ErrorCodeTest, StdFutureErrorsMapToTheFutureDomain) {
    const struct {
        std::future_errc from;
        ErrorDomain::CodeType to;
    } rows[] = {{std::future_errc::broken_promise, 101},
                {std::future_errc::future_already_retrieved, 102},
                {std::future_errc::promise_already_satisfied, 103},
                {std::future_errc::no_state, 104}};
    for (const auto& row : rows) {
        const ErrorCode code =
            ara::core::ErrorCodeFromStdFutureError(std::make_error_code(row.from));
        EXPECT_EQ(code.Domain(), ara::core::GetFutureErrorDomain());
        EXPECT_EQ(code.Value(), row.to);
    }
    const ErrorCode other =
        ara::core::ErrorCodeFromStdFutureError(std::make_error_code(std::errc::invalid_argument));
    EXPECT_EQ(other.Domain(), ara::core::GetCoreErrorDomain());
    EXPECT_EQ(other.Value(), 22);
}

}  // namespace
