// The library's texts in the company of those of the standard library: in and out, printed, hashed and formatted.
//
// fmt formats them, too, where <fmt/format.h> is included first.
#pragma once

#include "qvxbase/qvbstring.h"

#include <concepts>
#include <filesystem>
#include <functional>
#include <ostream>
#include <string>
#include <string_view>

namespace qvreposres {

// What the functions of cpp.h take for a text: anything that holds one.
class Text {
public:
  Text() = default; // null: not given
  // Of what holds a text.
  template<class T>
  requires std::convertible_to<T, std::string_view> Text(const T& text) : m_text(std::string_view(text)) {}
  Text(const std::filesystem::path& path) : m_text(std::string_view(path.native())) {}
  Text(const QvbString& text) : m_text(text) {}

  // For the interfaces.
  operator const QvbString&() const noexcept { return m_text; }
  // Its bytes.
  std::string_view view() const noexcept { return m_text.view(); }

private:
  QvbString m_text;
};

// A text of the library as the standard library has texts, and as a path.
inline std::string toString(const QvbString& text) { return std::string(text.view()); }
inline std::filesystem::path toPath(const QvbString& text) { return std::filesystem::path(text.view()); }

} // namespace qvreposres

// The text's bytes.
inline std::ostream& operator<<(std::ostream& out, const QvbString& text) { return out << text.view(); }

// As texts are equal: bytes count as they are.
namespace std {
template<>
struct hash<QvbString> {
  std::size_t operator()(const QvbString& text) const noexcept {
    return std::hash<std::string_view>()(text.view());
  }
};
} // namespace std

#ifdef FMT_VERSION
template<>
struct fmt::formatter<QvbString> : fmt::formatter<std::string_view> {
  template<class Context>
  auto format(const QvbString& text, Context& context) const {
    return fmt::formatter<std::string_view>::format(text.view(), context);
  }
};
#endif
