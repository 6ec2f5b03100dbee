#include "qvxbase/qvbformat.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <string>

#include <fmt/format.h>

namespace {

constexpr int maxPadding = 65'536;
constexpr std::string_view realTypes = "fFeEgGaA";

struct Conversion {
  bool left = false;
  bool plus = false;
  bool blank = false;
  bool alternate = false;
  bool zero = false;
  int width = 0;
  int precision = -1; // negative when the format gives none
  char type = '\0';

  bool isReal() const noexcept { return QvbFormatSyntax::has(realTypes, type); }
  bool isText() const noexcept { return type == 's' || type == 'S'; }
  bool isKnown() const noexcept { return QvbFormatSyntax::has(QvbFormatSyntax::Types, type); }

  bool setFlag(char character) noexcept {
    switch (character) {
    case '-':
      return left = true;
    case '+':
      return plus = true;
    case ' ':
      return blank = true;
    case '#':
      return alternate = true;
    case '0':
      return zero = true;
    default:
      return false;
    }
  }
  void setWidth(int value) noexcept {
    left = left || value < 0;
    width = static_cast<int>(std::min<std::int64_t>(std::abs(std::int64_t{value}), maxPadding));
  }
};

int decimalsOf(const Conversion& conversion) noexcept {
  return conversion.precision < 0 ? 6 : std::min(conversion.precision, maxPadding);
}

// The digits as the C locale prints them. `decimals` is negative for as many as the value needs.
std::string digitsOf(double value, std::chars_format form, int decimals) {
  constexpr std::size_t longest = std::numeric_limits<double>::max_exponent10 + 32;
  std::string text(longest + static_cast<std::size_t>(std::max(decimals, 0)), '\0');
  char* const end = text.data() + text.size();
  const auto result = decimals < 0 ? std::to_chars(text.data(), end, value, form)
                                   : std::to_chars(text.data(), end, value, form, decimals);
  text.resize(static_cast<std::size_t>(result.ptr - text.data()));
  return text;
}

// "%#g" keeps the zeros that the general form drops.
std::string generalDigits(double value, int significant) {
  significant = std::max(significant, 1);
  std::string scientific = digitsOf(value, std::chars_format::scientific, significant - 1);
  const auto exponent =
      static_cast<int>(std::strtol(scientific.c_str() + scientific.find('e') + 1, nullptr, 10));
  if (exponent < -4 || exponent >= significant)
    return scientific;
  return digitsOf(value, std::chars_format::fixed, significant - 1 - exponent);
}

std::string lowerDigits(const Conversion& conversion, double value) {
  const int decimals = decimalsOf(conversion);
  switch (conversion.type | 0x20) {
  case 'f':
    return digitsOf(value, std::chars_format::fixed, decimals);
  case 'e':
    return digitsOf(value, std::chars_format::scientific, decimals);
  case 'a':
    return digitsOf(value, std::chars_format::hex, std::min(conversion.precision, decimals));
  default:
    return conversion.alternate && std::isfinite(value)
               ? generalDigits(value, decimals)
               : digitsOf(value, std::chars_format::general, decimals);
  }
}

std::string floatingDigits(const Conversion& conversion, double value) {
  std::string digits = lowerDigits(conversion, value);
  if (conversion.alternate && std::isfinite(value) && digits.find('.') == std::string::npos)
    digits.insert(std::min(digits.find_first_of("ep"), digits.size()), 1, '.');
  if (conversion.type < 'a')
    std::transform(digits.begin(), digits.end(), digits.begin(),
                   [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 0x20) : c; });
  return digits;
}

// Hands out the arguments in their order.
class Arguments {
public:
  explicit Arguments(std::span<const QvbFormatArg> args) noexcept : m_args(args) {}

  const QvbFormatArg* next() noexcept {
    if (m_args.empty())
      return nullptr;
    const QvbFormatArg* arg = &m_args.front();
    m_args = m_args.subspan(1);
    return arg;
  }
  // The value for a "*"; 0 when the argument is no number.
  int nextCount() noexcept {
    const QvbFormatArg* arg = next();
    if (arg && arg->kind == QvbFormatArg::Kind::Signed)
      return static_cast<int>(std::clamp<std::int64_t>(arg->bits.number, -INT_MAX, INT_MAX));
    if (arg && arg->kind == QvbFormatArg::Kind::Unsigned)
      return static_cast<int>(std::min<std::uint64_t>(arg->bits.magnitude, INT_MAX));
    return 0;
  }

private:
  std::span<const QvbFormatArg> m_args;
};

// Reads the conversion that follows a "%".
class ConversionReader {
public:
  ConversionReader(std::string_view format, Arguments& args) noexcept : m_rest(format), m_args(args) {}

  Conversion read() noexcept {
    Conversion conversion;
    while (!m_rest.empty() && conversion.setFlag(m_rest.front()))
      m_rest.remove_prefix(1);
    conversion.setWidth(readCount());
    if (accept('.'))
      conversion.precision = std::max(readCount(), -1);
    while (!m_rest.empty() && QvbFormatSyntax::has(QvbFormatSyntax::Lengths, m_rest.front()))
      m_rest.remove_prefix(1);
    if (!m_rest.empty()) {
      conversion.type = m_rest.front();
      m_rest.remove_prefix(1);
    }
    return conversion;
  }
  std::string_view rest() const noexcept { return m_rest; }

private:
  bool accept(char character) noexcept {
    if (!m_rest.starts_with(character))
      return false;
    m_rest.remove_prefix(1);
    return true;
  }
  int readCount() noexcept {
    if (accept('*'))
      return m_args.nextCount();
    std::int64_t count = 0;
    for (; !m_rest.empty() && m_rest.front() >= '0' && m_rest.front() <= '9'; m_rest.remove_prefix(1))
      count = std::min<std::int64_t>(count * 10 + (m_rest.front() - '0'), INT_MAX);
    return static_cast<int>(count);
  }

  std::string_view m_rest;
  Arguments& m_args;
};

class Formatter {
public:
  explicit Formatter(std::span<const QvbFormatArg> args) noexcept : m_args(args) {}

  void write(std::string_view format) {
    while (!format.empty()) {
      const std::string_view literal = format.substr(0, format.find('%'));
      put(literal);
      format.remove_prefix(literal.size());
      if (!format.empty())
        format = writeConversion(format);
    }
  }
  QvbString text() const { return QvbString(std::string_view(m_out.data(), m_out.size())); }

private:
  // Answers what follows the conversion at the front of the format.
  std::string_view writeConversion(std::string_view format) {
    ConversionReader reader(format.substr(1), m_args);
    const Conversion conversion = reader.read();
    if (conversion.type == '%')
      put("%");
    else if (const QvbFormatArg* arg = conversion.isKnown() ? m_args.next() : nullptr)
      writeArgument(conversion, *arg);
    else
      put(format.substr(0, format.size() - reader.rest().size()));
    return reader.rest();
  }

  void writeArgument(const Conversion& conversion, const QvbFormatArg& arg) {
    if (conversion.type == 'n')
      return;
    switch (arg.kind) {
    case QvbFormatArg::Kind::Signed:
    case QvbFormatArg::Kind::Unsigned:
      return writeInteger(conversion, arg);
    case QvbFormatArg::Kind::Real:
      return writeReal(conversion, arg.bits.real);
    case QvbFormatArg::Kind::Text:
      return writeText(conversion, arg.text);
    case QvbFormatArg::Kind::Pointer:
      return writePointer(conversion, arg.bits.pointer);
    }
  }

  void writeInteger(const Conversion& conversion, const QvbFormatArg& arg) {
    const bool isSigned = arg.kind == QvbFormatArg::Kind::Signed;
    const bool negative = isSigned && arg.bits.number < 0;
    const std::uint64_t bits = isSigned ? static_cast<std::uint64_t>(arg.bits.number) : arg.bits.magnitude;
    const std::uint64_t magnitude = negative ? 0 - bits : bits;
    if (conversion.isReal())
      writeWhole(conversion, magnitude, negative);
    else if (conversion.type == 'c')
      writeField(conversion, "", 0, std::string(1, static_cast<char>(bits)));
    else if (conversion.type == 'x' || conversion.type == 'X' || conversion.type == 'o')
      writeBits(conversion, arg.size < 8 ? bits & ((std::uint64_t{1} << (arg.size * 8)) - 1) : bits);
    else
      writeDecimal(conversion, magnitude, negative);
  }

  // Under "%f" every digit of an integer counts, also those that a double does not hold.
  void writeWhole(const Conversion& conversion, std::uint64_t magnitude, bool negative) {
    if (conversion.type != 'f' && conversion.type != 'F')
      return writeFloating(conversion,
                           negative ? -static_cast<double>(magnitude) : static_cast<double>(magnitude));
    std::string digits = fmt::format_int(magnitude).str();
    const int decimals = decimalsOf(conversion);
    if (decimals > 0 || conversion.alternate)
      digits += '.';
    digits.append(static_cast<std::size_t>(decimals), '0');
    writePadded(conversion, sign(conversion, negative), digits);
  }

  void writeBits(const Conversion& conversion, std::uint64_t bits) {
    const bool octal = conversion.type == 'o';
    std::string digits = fmt::format(fmt::runtime(octal                    ? "{:o}"
                                                  : conversion.type == 'x' ? "{:x}"
                                                                           : "{:X}"),
                                     bits);
    if (conversion.precision == 0 && bits == 0)
      digits.clear();
    const int zeros = missingDigits(conversion, digits);
    if (octal && conversion.alternate && zeros == 0 && !digits.starts_with('0'))
      digits.insert(0, 1, '0');
    const bool marked = !octal && conversion.alternate && bits != 0;
    writeNumber(conversion, !marked ? "" : conversion.type == 'x' ? "0x" : "0X", zeros, digits);
  }

  void writeDecimal(Conversion conversion, std::uint64_t magnitude, bool negative) {
    if (conversion.isText() || conversion.type == 'p')
      conversion.precision = -1;
    if (conversion.type == 'u')
      conversion.plus = conversion.blank = false;
    std::string digits = fmt::format_int(magnitude).str();
    if (conversion.precision == 0 && magnitude == 0)
      digits.clear();
    writeNumber(conversion, sign(conversion, negative), missingDigits(conversion, digits), digits);
  }

  void writeReal(const Conversion& conversion, double value) {
    if (conversion.isReal())
      writeFloating(conversion, value);
    else
      writeField(conversion, "", 0, fmt::format("{}", value));
  }

  void writeFloating(const Conversion& conversion, double value) {
    const std::string digits = floatingDigits(conversion, std::abs(value));
    std::string prefix = sign(conversion, std::signbit(value));
    if (!std::isfinite(value))
      return writeField(conversion, prefix, 0, digits);
    if (conversion.type == 'a')
      prefix += "0x";
    else if (conversion.type == 'A')
      prefix += "0X";
    writePadded(conversion, prefix, digits);
  }

  void writeText(const Conversion& conversion, std::string_view text) {
    if (conversion.isText() && conversion.precision >= 0)
      text = text.substr(0, static_cast<std::size_t>(conversion.precision));
    writeField(conversion, "", 0, text);
  }

  void writePointer(const Conversion& conversion, const void* pointer) {
    writeField(conversion, "", 0, pointer ? fmt::format("{}", pointer) : "(nil)");
  }

  static const char* sign(const Conversion& conversion, bool negative) noexcept {
    return negative ? "-" : conversion.plus ? "+" : conversion.blank ? " " : "";
  }

  // The zeros that bring the digits up to the precision.
  static int missingDigits(const Conversion& conversion, std::string_view digits) noexcept {
    return std::max(std::min(conversion.precision, maxPadding) - static_cast<int>(digits.size()), 0);
  }
  static int missingWidth(const Conversion& conversion, std::string_view prefix,
                          std::string_view digits) noexcept {
    return std::max(conversion.width - static_cast<int>(prefix.size() + digits.size()), 0);
  }

  // Digits that the zero flag pads.
  void writePadded(const Conversion& conversion, std::string_view prefix, std::string_view digits) {
    const bool padded = conversion.zero && !conversion.left;
    writeField(conversion, prefix, padded ? missingWidth(conversion, prefix, digits) : 0, digits);
  }
  // A precision of an integer switches the zero flag off.
  void writeNumber(const Conversion& conversion, std::string_view prefix, int zeros,
                   std::string_view digits) {
    if (conversion.precision < 0)
      writePadded(conversion, prefix, digits);
    else
      writeField(conversion, prefix, zeros, digits);
  }

  void writeField(const Conversion& conversion, std::string_view prefix, int zeros, std::string_view body) {
    const std::size_t size = prefix.size() + static_cast<std::size_t>(zeros) + body.size();
    const auto width = static_cast<std::size_t>(conversion.width);
    const std::size_t blanks = width > size ? width - size : 0;
    fill(conversion.left ? 0 : blanks, ' ');
    put(prefix);
    fill(static_cast<std::size_t>(zeros), '0');
    put(body);
    fill(conversion.left ? blanks : 0, ' ');
  }

  void put(std::string_view text) { m_out.append(text.data(), text.data() + text.size()); }
  void fill(std::size_t count, char character) {
    const std::size_t size = m_out.size();
    m_out.resize(size + count);
    std::fill_n(m_out.data() + size, count, character);
  }

  Arguments m_args;
  fmt::memory_buffer m_out;
};

constexpr bool isContinuation(unsigned char byte) noexcept { return (byte & 0xC0) == 0x80; }

// The bytes of the UTF-8 character at the front of the text; 1 for what begins none.
std::size_t characterLength(std::string_view text) noexcept {
  const auto lead = static_cast<unsigned char>(text[0]);
  const std::size_t length = lead < 0xC2 || lead > 0xF4 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
  if (length > text.size() || !std::ranges::all_of(text.substr(1, length - 1), isContinuation))
    return 1;
  const auto second = length > 1 ? static_cast<unsigned char>(text[1]) : 0U;
  const bool isOverlong = (lead == 0xE0 && second < 0xA0) || (lead == 0xF0 && second < 0x90);
  return isOverlong ? 1 : length;
}

// Those that set the direction of text (U+202A to U+202E, U+2066 to U+2069), which would show a name as another one, and
// the separators of lines and paragraphs (U+2028, U+2029).
bool isControlOfLayout(std::string_view character) noexcept {
  if (character.size() != 3 || character.front() != '\xE2')
    return false;
  const auto last = static_cast<unsigned char>(character.back());
  return (character[1] == '\x80' && last >= 0xA8 && last <= 0xAE) ||
         (character[1] == '\x81' && last >= 0xA6 && last <= 0xA9);
}

bool isControl(std::string_view character) noexcept {
  const auto last = static_cast<unsigned char>(character.back());
  if (character.size() == 1)
    return last < 0x20 || (last >= 0x7F && last < 0xA0);
  return (character.size() == 2 && character.front() == '\xC2' && last < 0xA0) ||
         isControlOfLayout(character);
}

void appendEscaped(std::string_view character, fmt::memory_buffer& out) {
  if (character == "\n" || character == "\t")
    out.append(std::string_view(character == "\n" ? "\\n" : "\\t"));
  else
    for (const char byte : character)
      fmt::format_to(fmt::appender(out), "\\x{:02x}", static_cast<unsigned char>(byte));
}

} // namespace

QvbString qvbEscapeControls(std::string_view text) {
  fmt::memory_buffer out;
  while (!text.empty()) {
    const auto character = text.substr(0, characterLength(text));
    if (isControl(character))
      appendEscaped(character, out);
    else
      out.append(character);
    text.remove_prefix(character.size());
  }
  return QvbString(std::string_view(out.data(), out.size()));
}

QvbString qvbStringFormatArgs(const char* format, std::span<const QvbFormatArg> args) {
  Formatter formatter(args);
  formatter.write(format ? format : "");
  return formatter.text();
}
