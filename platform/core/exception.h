#ifndef PLATFORM_CORE_EXCEPTION_H
#define PLATFORM_CORE_EXCEPTION_H

#include <exception>

#include "platform/core/error_code.h"

namespace ara::core {

// Base of the domains' exceptions; what() is the domain's Message of the code.
class Exception : public std::exception {
public:
    explicit Exception(ErrorCode err) noexcept : error_(err) {}

    const ErrorCode& Error() const noexcept { return error_; }
    const char* what() const noexcept override { return error_.Domain().Message(error_.Value()); }

private:
    ErrorCode error_;
};

}  // namespace ara::core

#endif
