// printf-style formatting over typed arguments.
//
// The format is data: it may come from a message, a file or a peer, and can never read memory that was not
// passed. A conversion takes the next argument by the argument's own type:
//   - a conversion without an argument prints as it stands, and so does a trailing "%";
//   - a conversion whose argument has another type prints the argument's own value: an integer under "%f"
//     prints as 250.000000, a negative one under "%u" as -1, a real number under "%d" as 2.5, a text under
//     "%d" as the text;
//   - "%S" takes a pointer to a QvbString; "%s" takes a QvbString or zero-terminated text; a null text prints
//     nothing;
//   - "%p" prints "0x" and the address in hexadecimal digits, "(nil)" for null;
//   - "%n" takes its argument and writes nothing; "%%" prints "%".
// Flags, width and precision mean what ISO C 7.21.6.1 says, "*" included; length modifiers are accepted and
// ignored. The decimal point is "." in every locale. A width, or a precision of a number, beyond 65,536
// counts as 65,536, so that a format cannot use up the memory.
#pragma once

#include "qvxbase/qvbstring.h"

#include <cstdint>
#include <initializer_list>
#include <span>
#include <type_traits>

class QVPLATFORM_API QvbFormatArg {
public:
  enum class Kind { Signed, Unsigned, Real, Text, Pointer };

  template<class T>
  requires std::is_integral_v<T> || std::is_enum_v<T> QvbFormatArg(T value)
  noexcept {
    if constexpr (std::is_enum_v<T>) {
      *this = QvbFormatArg(static_cast<std::underlying_type_t<T>>(value));
    } else if constexpr (std::is_signed_v<T>) {
      kind = Kind::Signed;
      bits.number = value; // NOLINT(bugprone-signed-char-misuse): %d prints a char as its number
      size = sizeof(T);
    } else {
      kind = Kind::Unsigned;
      bits.magnitude = value;
      size = sizeof(T);
    }
  }
  QvbFormatArg(double value) noexcept : kind(Kind::Real) { bits.real = value; }
  QvbFormatArg(const char* value) noexcept : kind(Kind::Text), text(value ? value : "") {}
  QvbFormatArg(const QvbString& value) noexcept : kind(Kind::Text), text(value.view()) {}
  QvbFormatArg(const QvbString* value) noexcept : kind(Kind::Text), text(value ? value->view() : "") {}
  QvbFormatArg(std::string_view value) noexcept : kind(Kind::Text), text(value) {}
  QvbFormatArg(const void* value) noexcept : kind(Kind::Pointer) { bits.pointer = value; }

  Kind kind;
  unsigned char size = 0; // bytes of an integer, so that a negative one prints its own width under "%x"
  union {
    std::int64_t number;
    std::uint64_t magnitude;
    double real;
    const void* pointer;
  } bits{};
  std::string_view text;
};

// What conversions are made of.
struct QvbFormatSyntax {
  static constexpr std::string_view Flags = "-+ #0";
  static constexpr std::string_view Lengths = "hljztLq";
  static constexpr std::string_view Types = "diuoxXcsSpnfFeEgGaA%";

  static constexpr bool has(std::string_view characters, char character) noexcept {
    return characters.find(character) != std::string_view::npos;
  }
};

// The arguments that a format takes, one for each conversion and for each "*"; -1 when a "%" begins no conversion.
constexpr int qvbFormatArguments(std::string_view format) noexcept {
  const auto accept = [&](std::string_view characters) {
    const bool accepted = !format.empty() && QvbFormatSyntax::has(characters, format.front());
    format.remove_prefix(accepted ? 1 : 0);
    return accepted;
  };
  int count = 0;
  const auto acceptNumber = [&] {
    if (accept("*"))
      ++count;
    else
      while (accept("0123456789")) {
      }
  };
  while (!format.empty()) {
    if (!accept("%")) {
      format.remove_prefix(1);
      continue;
    }
    while (accept(QvbFormatSyntax::Flags)) {
    }
    acceptNumber();
    if (accept("."))
      acceptNumber();
    while (accept(QvbFormatSyntax::Lengths)) {
    }
    if (!accept("%") && !(accept(QvbFormatSyntax::Types) && ++count))
      return -1;
  }
  return count;
}

QVPLATFORM_API QvbString qvbStringFormatArgs(const char* format, std::span<const QvbFormatArg> args);

// The text that the format and its arguments make; a null format makes an empty text.
template<class... Args>
QvbString qvbStringFormat(const char* format, const Args&... args) {
  const std::initializer_list<QvbFormatArg> list{QvbFormatArg(args)...};
  return qvbStringFormatArgs(format, {list.begin(), list.size()});
}

// The text on one line that tells a terminal nothing: line feed and tab as "\n" and "\t", every byte of another control
// character as "\x1b": those of ISO 6429 from U+0080 to U+009F, and their bytes in text that is not UTF-8, included, and
// those of Unicode that set the direction of text or separate lines. All other bytes stay.
QVPLATFORM_API QvbString qvbEscapeControls(std::string_view text);
