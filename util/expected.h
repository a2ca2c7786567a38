// The result of a step that can fail: its value, or why there is none, in
// words meant for a log line or the user. Expected<void> is "done, or why
// not": a step that has no value to give. An std::optional is only ever
// "maybe a value", never an error.
#pragma once

#include <concepts>
#include <string>
#include <type_traits>
#include <utility>
#include <variant>

namespace halvo::util {

// Why a step failed; constructs the failed side of an Expected, so that a
// result whose value is a string itself cannot be taken for its error.
struct Failure {
    std::string message;
};

template <typename T> class [[nodiscard]] Expected {
  public:
    template <typename U = T>
    requires std::constructible_from<T, U&&> &&(!std::same_as<std::remove_cvref_t<U>, Expected>)&&(
        !std::same_as<std::remove_cvref_t<U>, Failure>)Expected(U&& value)
        : state_(std::in_place_index<0>, std::forward<U>(value)) {}
    Expected(Failure failure) : state_(std::in_place_index<1>, std::move(failure.message)) {}

    bool has_value() const { return state_.index() == 0; }
    explicit operator bool() const { return has_value(); }

    // The value; only when has_value() (std::bad_variant_access otherwise).
    T& value() & { return std::get<0>(state_); }
    const T& value() const& { return std::get<0>(state_); }
    T&& value() && { return std::get<0>(std::move(state_)); }
    T* operator->() { return &value(); }
    const T* operator->() const { return &value(); }
    T& operator*() & { return value(); }
    const T& operator*() const& { return value(); }

    // Why there is no value; only when !has_value().
    const std::string& error() const { return std::get<1>(state_); }

  private:
    std::variant<T, std::string> state_;
};

template <> class [[nodiscard]] Expected<void> {
  public:
    Expected() = default;
    Expected(Failure failure) : error_(std::move(failure.message)), failed_(true) {}

    bool has_value() const { return !failed_; }
    explicit operator bool() const { return has_value(); }

    // Why the step failed; only when !has_value() (empty otherwise).
    const std::string& error() const { return error_; }

  private:
    std::string error_;
    bool failed_ = false;
};

} // namespace halvo::util
