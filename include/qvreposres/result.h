// A value, or the reason why there is none.
#pragma once

#include <utility>
#include <variant>

namespace qvreposres {

// A value of T, or an E that tells why there is none.
template<class T, class E>
class Expected {
public:
  // A value and an error become a result by themselves.
  Expected(T value) : m_content(std::in_place_index<0>, std::move(value)) {}
  Expected(E error) : m_content(std::in_place_index<1>, std::move(error)) {}

  // Whether there is a value.
  bool ok() const noexcept { return m_content.index() == 0; }
  explicit operator bool() const noexcept { return ok(); }

  // Of a result that is ok; std::bad_variant_access otherwise.
  T& value() & { return std::get<0>(m_content); }
  const T& value() const& { return std::get<0>(m_content); }
  T&& value() && { return std::get<0>(std::move(m_content)); }
  T& operator*() & { return value(); }
  const T& operator*() const& { return value(); }
  T&& operator*() && { return std::move(*this).value(); }
  T* operator->() { return &value(); }
  const T* operator->() const { return &value(); }

  // Of a result that is not; std::bad_variant_access otherwise.
  const E& error() const { return std::get<1>(m_content); }

private:
  std::variant<T, E> m_content;
};

// Done, or why not.
template<class E>
class Expected<void, E> {
public:
  // Done, unless it is given an error.
  Expected() = default;
  Expected(E error) : m_content(std::move(error)) {}

  // Whether it is done.
  bool ok() const noexcept { return m_content.index() == 0; }
  explicit operator bool() const noexcept { return ok(); }
  // Of a result that is not; std::bad_variant_access otherwise.
  const E& error() const { return std::get<E>(m_content); }

private:
  std::variant<std::monostate, E> m_content;
};

} // namespace qvreposres
