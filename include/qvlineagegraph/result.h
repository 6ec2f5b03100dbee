// A value, or why there is none.
#pragma once

#include <string>
#include <utility>
#include <variant>

namespace qvlineagegraph {

enum class ErrorKind {
  Unreadable,     // a file cannot be read or written
  Malformed,      // a text is not what it should be: an expression, a saved graph
  NothingMatched, // a selection names no node
  Refused,        // the request is beyond a limit, or not offered for this view
  Stopped,        // the caller asked for it
};

struct Error {
  ErrorKind kind = ErrorKind::Malformed;
  std::string message; // one or several lines for people, without a line feed at the end
};

template<class T>
class Result {
public:
  Result(T value) : m_content(std::in_place_index<0>, std::move(value)) {}
  Result(Error error) : m_content(std::in_place_index<1>, std::move(error)) {}

  bool ok() const noexcept { return m_content.index() == 0; }
  explicit operator bool() const noexcept { return ok(); }

  // Of a result that is ok.
  T& value() & { return std::get<0>(m_content); }
  const T& value() const& { return std::get<0>(m_content); }
  T&& value() && { return std::get<0>(std::move(m_content)); }
  T& operator*() & { return value(); }
  const T& operator*() const& { return value(); }
  T&& operator*() && { return std::move(*this).value(); }
  T* operator->() { return &value(); }
  const T* operator->() const { return &value(); }

  // Of a result that is not.
  const Error& error() const { return std::get<1>(m_content); }

private:
  std::variant<T, Error> m_content;
};

// Done, or why not.
template<>
class Result<void> {
public:
  Result() = default;
  Result(Error error) : m_content(std::move(error)) {}

  bool ok() const noexcept { return m_content.index() == 0; }
  explicit operator bool() const noexcept { return ok(); }
  const Error& error() const { return std::get<Error>(m_content); }

private:
  std::variant<std::monostate, Error> m_content;
};

} // namespace qvlineagegraph
