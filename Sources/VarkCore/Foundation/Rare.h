#pragma once

#include <concepts>
#include <memory>
#include <optional>
#include <utility>

namespace vark {

/// An optional for fields that few of very many records have: empty it takes one pointer, and only a value
/// has room of its own on the heap. Copies are deep. A value; used like `std::optional`.
template <class T>
class Rare {
  public:
    Rare() = default;
    Rare(std::nullopt_t) {}
    template <class U>
        requires(std::constructible_from<T, U> && !std::same_as<std::remove_cvref_t<U>, Rare> &&
                 !std::same_as<std::remove_cvref_t<U>, std::optional<T>> &&
                 !std::same_as<std::remove_cvref_t<U>, std::nullopt_t>)
    Rare(U&& value) : value_(std::make_unique<T>(std::forward<U>(value))) {}
    Rare(std::optional<T> value) : value_(value ? std::make_unique<T>(*std::move(value)) : nullptr) {}
    Rare(const Rare& other) : value_(other ? std::make_unique<T>(*other) : nullptr) {}
    Rare(Rare&&) noexcept = default;
    Rare& operator=(const Rare& other) { return *this = Rare(other); }
    Rare& operator=(Rare&&) noexcept = default;
    ~Rare() = default;

    bool has_value() const { return value_ != nullptr; }
    explicit operator bool() const { return has_value(); }
    const T& operator*() const { return *value_; }
    T& operator*() { return *value_; }
    const T* operator->() const { return value_.get(); }
    T* operator->() { return value_.get(); }
    T value_or(T fallback) const { return value_ ? *value_ : std::move(fallback); }
    void reset() { value_.reset(); }

    operator std::optional<T>() const { return value_ ? std::optional<T>(*value_) : std::nullopt; }
    friend bool operator==(const Rare& left, const Rare& right) {
        return left.has_value() == right.has_value() && (!left || *left == *right);
    }
    friend bool operator==(const Rare& left, std::nullopt_t) { return !left; }

  private:
    std::unique_ptr<T> value_;
};

}  // namespace vark
