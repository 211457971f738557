#ifndef PLATFORM_CORE_ERROR_DOMAIN_H
#define PLATFORM_CORE_ERROR_DOMAIN_H

#include <cstdint>

namespace ara::core {

class ErrorCode;

// Base of every error domain. Each domain is one constant object; two domains are the same
// when their ids are equal. The virtual slots are Name, Message, ThrowAsException, in that
// order, so that the binding's id table decodes the same on both sides.
class ErrorDomain {
public:
    using IdType = std::uint64_t;
    using CodeType = std::int32_t;
    using SupportDataType = std::int32_t;

    ErrorDomain(const ErrorDomain&) = delete;
    ErrorDomain(ErrorDomain&&) = delete;
    ErrorDomain& operator=(const ErrorDomain&) = delete;
    ErrorDomain& operator=(ErrorDomain&&) = delete;

    virtual const char* Name() const noexcept = 0;
    virtual const char* Message(CodeType errorCode) const noexcept = 0;
    [[noreturn]] virtual void ThrowAsException(const ErrorCode& errorCode) const
        noexcept(false) = 0;

    IdType Id() const noexcept { return id_; }
    bool operator==(const ErrorDomain& other) const noexcept { return id_ == other.id_; }
    bool operator!=(const ErrorDomain& other) const noexcept { return id_ != other.id_; }

protected:
    explicit constexpr ErrorDomain(IdType id) noexcept : id_(id) {}
    ~ErrorDomain() = default;

private:
    const IdType id_;
};

}  // namespace ara::core

#endif
