// A value, or why there is none: what operations inside give. The forms of the interfaces (a code and an output, null and
// an error text) are made of it where they are asked for.
#pragma once

#include "qvxbase/qvbstring.h"

#include <utility>
#include <variant>

struct QvbFailure {
  int code = 1;
  QvbString text{}; // for people; null where the code says it all
};

// The form of an interface for a failure: false, and the text where one is wanted.
inline bool qvbFailWith(const QvbString& text, QvbString* error) noexcept {
  if (error)
    *error = text;
  return false;
}

template<class T>
class [[nodiscard]] QvbResult {
public:
  QvbResult(T value) : m_content(std::in_place_index<0>, std::move(value)) {}
  QvbResult(QvbFailure failure) : m_content(std::in_place_index<1>, std::move(failure)) {}

  explicit operator bool() const noexcept { return m_content.index() == 0; }

  // Of a result that is one.
  T& operator*() & { return *std::get_if<0>(&m_content); }
  const T& operator*() const& { return *std::get_if<0>(&m_content); }
  T&& operator*() && { return std::move(*std::get_if<0>(&m_content)); }
  T* operator->() { return std::get_if<0>(&m_content); }
  const T* operator->() const { return std::get_if<0>(&m_content); }

  // Of one that is not.
  const QvbFailure& failure() const { return *std::get_if<1>(&m_content); }
  // 0 for a result that is one.
  int code() const noexcept { return *this ? 0 : failure().code; }

private:
  std::variant<T, QvbFailure> m_content;
};
