#ifndef PLATFORM_CORE_RESULT_H
#define PLATFORM_CORE_RESULT_H

#include <cstdio>
#include <optional>
#include <type_traits>
#include <utility>
#include <variant>

#include "platform/core/abort.h"
#include "platform/core/error_code.h"

namespace ara::core {

namespace detail {

[[noreturn]] inline void ResultNotAnError() noexcept {
    static constexpr const char* kText =
        "[CORETYPE Result] : Error, Error() called but NOT a error!";
    std::fprintf(stderr, "%s\n", kText);
    Abort(kText);
}

[[noreturn]] inline void ResultNotAValue() noexcept {
    static constexpr const char* kText =
        "[CORETYPE Result] : Value, Value() called but NOT a value!";
    std::fprintf(stderr, "%s\n", kText);
    Abort(kText);
}

}  // namespace detail

// A value or an error. Asking for the side that is not there ends the process.
template <typename T, typename E = ErrorCode>
class Result final {
public:
    using value_type = T;
    using error_type = E;

    Result(const T& t) : data_(std::in_place_index<0>, t) {}
    Result(T&& t) : data_(std::in_place_index<0>, std::move(t)) {}
    explicit Result(const E& e) : data_(std::in_place_index<1>, e) {}
    explicit Result(E&& e) : data_(std::in_place_index<1>, std::move(e)) {}

    static Result FromValue(const T& t) { return Result(t); }
    static Result FromValue(T&& t) { return Result(std::move(t)); }
    template <typename... Args>
    static Result FromValue(Args&&... args) {
        return Result(T(std::forward<Args>(args)...));
    }
    static Result FromError(const E& e) { return Result(e); }
    static Result FromError(E&& e) { return Result(std::move(e)); }
    template <typename... Args>
    static Result FromError(Args&&... args) {
        return Result(E(std::forward<Args>(args)...));
    }

    template <typename... Args>
    void EmplaceValue(Args&&... args) {
        data_.template emplace<0>(std::forward<Args>(args)...);
    }
    template <typename... Args>
    void EmplaceError(Args&&... args) {
        data_.template emplace<1>(std::forward<Args>(args)...);
    }

    bool HasValue() const noexcept { return data_.index() == 0; }
    explicit operator bool() const noexcept { return HasValue(); }

    const T& Value() const& {
        if (!HasValue()) {
            detail::ResultNotAValue();
        }
        return std::get<0>(data_);
    }
    T&& Value() && {
        if (!HasValue()) {
            detail::ResultNotAValue();
        }
        return std::get<0>(std::move(data_));
    }
    const T& operator*() const& { return Value(); }
    T&& operator*() && { return std::move(*this).Value(); }
    const T* operator->() const { return &Value(); }

    const E& Error() const& {
        if (HasValue()) {
            detail::ResultNotAnError();
        }
        return std::get<1>(data_);
    }
    E&& Error() && {
        if (HasValue()) {
            detail::ResultNotAnError();
        }
        return std::get<1>(std::move(data_));
    }

    template <typename U>
    T ValueOr(U&& defaultValue) const& {
        return HasValue() ? Value() : static_cast<T>(std::forward<U>(defaultValue));
    }
    template <typename G>
    E ErrorOr(G&& defaultError) const& {
        return HasValue() ? static_cast<E>(std::forward<G>(defaultError)) : Error();
    }
    template <typename G>
    bool CheckError(G&& error) const {
        return !HasValue() && Error() == static_cast<E>(std::forward<G>(error));
    }

    // Throws the error's domain exception; only for E = ErrorCode.
    const T& ValueOrThrow() const& noexcept(false) {
        if (!HasValue()) {
            std::get<1>(data_).ThrowAsException();
        }
        return std::get<0>(data_);
    }
    T ValueOrThrow() && noexcept(false) {
        if (!HasValue()) {
            std::get<1>(data_).ThrowAsException();
        }
        return std::get<0>(std::move(data_));
    }

    bool operator==(const Result& other) const { return data_ == other.data_; }
    bool operator!=(const Result& other) const { return !(*this == other); }

private:
    std::variant<T, E> data_;
};

template <typename E>
class Result<void, E> final {
public:
    using value_type = void;
    using error_type = E;

    Result() noexcept = default;
    explicit Result(const E& e) : error_(e) {}
    explicit Result(E&& e) : error_(std::move(e)) {}

    static Result FromValue() { return Result(); }
    static Result FromError(const E& e) { return Result(e); }
    static Result FromError(E&& e) { return Result(std::move(e)); }
    template <typename... Args>
    static Result FromError(Args&&... args) {
        return Result(E(std::forward<Args>(args)...));
    }

    void EmplaceValue() noexcept { error_.reset(); }
    template <typename... Args>
    void EmplaceError(Args&&... args) {
        error_.emplace(std::forward<Args>(args)...);
    }

    bool HasValue() const noexcept { return !error_.has_value(); }
    explicit operator bool() const noexcept { return HasValue(); }

    void Value() const {
        if (!HasValue()) {
            detail::ResultNotAValue();
        }
    }

    const E& Error() const& {
        if (HasValue()) {
            detail::ResultNotAnError();
        }
        return *error_;
    }
    E&& Error() && {
        if (HasValue()) {
            detail::ResultNotAnError();
        }
        return std::move(*error_);
    }

    template <typename G>
    E ErrorOr(G&& defaultError) const& {
        return HasValue() ? static_cast<E>(std::forward<G>(defaultError)) : *error_;
    }
    template <typename G>
    bool CheckError(G&& error) const {
        return !HasValue() && *error_ == static_cast<E>(std::forward<G>(error));
    }

    void ValueOrThrow() const noexcept(false) {
        if (!HasValue()) {
            error_->ThrowAsException();
        }
    }

    bool operator==(const Result& other) const { return error_ == other.error_; }
    bool operator!=(const Result& other) const { return !(*this == other); }

private:
    std::optional<E> error_;
};

}  // namespace ara::core

#endif
