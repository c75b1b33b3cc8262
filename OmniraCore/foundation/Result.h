#pragma once
// The project's one result type: a value or a component's own failure.
// g++ 12 has no std::expected; this is the small subset the code needs.

#include <cassert>
#include <optional>
#include <type_traits>
#include <utility>
#include <variant>

namespace omnira {

// Wraps a failure so that Result<T, E> is unambiguous even when T and E convert to each other.
template <class E>
struct Failed {
  E error;
};

template <class E>
Failed<std::decay_t<E>> fail(E&& error) {
  return Failed<std::decay_t<E>>{std::forward<E>(error)};
}

template <class T, class E>
class [[nodiscard]] Result {
 public:
  Result(const T& value) : state_(std::in_place_index<0>, value) {}
  Result(T&& value) : state_(std::in_place_index<0>, std::move(value)) {}
  template <class F>
  Result(Failed<F> failed) : state_(std::in_place_index<1>, E(std::move(failed.error))) {}

  bool ok() const { return state_.index() == 0; }
  explicit operator bool() const { return ok(); }

  T& value() & { assert(ok()); return std::get<0>(state_); }
  const T& value() const& { assert(ok()); return std::get<0>(state_); }
  T&& value() && { assert(ok()); return std::get<0>(std::move(state_)); }
  T* operator->() { return &value(); }
  const T* operator->() const { return &value(); }
  T& operator*() & { return value(); }
  const T& operator*() const& { return value(); }

  const E& error() const { assert(!ok()); return std::get<1>(state_); }

  T valueOr(T fallback) const& { return ok() ? std::get<0>(state_) : std::move(fallback); }
  std::optional<T> toOptional() && {
    if (!ok()) return std::nullopt;
    return std::get<0>(std::move(state_));
  }

 private:
  std::variant<T, E> state_;
};

template <class E>
class [[nodiscard]] Result<void, E> {
 public:
  Result() = default;
  template <class F>
  Result(Failed<F> failed) : error_(E(std::move(failed.error))) {}

  static Result success() { return Result(); }
  bool ok() const { return !error_.has_value(); }
  explicit operator bool() const { return ok(); }
  const E& error() const { assert(!ok()); return *error_; }

 private:
  std::optional<E> error_;
};

}  // namespace omnira
