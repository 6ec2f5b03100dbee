#include "formattext.h"

#include "jsonwriter.h"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace qvlineagegraph {

namespace {

constexpr std::string_view replacement = "\xEF\xBF\xBD"; // U+FFFD

bool isControl(char byte) {
  const auto code = static_cast<unsigned char>(byte);
  return (code < 0x20 && byte != '\t' && byte != '\n' && byte != '\r') || code == 0x7F;
}

// U+FFFE and U+FFFF, which are UTF-8 and no characters.
bool isNoCharacter(std::string_view rest) {
  return rest.starts_with("\xEF\xBF\xBE") || rest.starts_with("\xEF\xBF\xBF");
}

bool isWordByte(char byte) {
  const auto code = static_cast<unsigned char>(byte);
  return code >= 0x80 || (byte >= '0' && byte <= '9') || (byte >= 'A' && byte <= 'Z') ||
         (byte >= 'a' && byte <= 'z');
}

bool isPlain(std::string_view text, std::size_t at) {
  const char byte = text[at];
  if (isWordByte(byte) || byte == '/')
    return true;
  const bool isInside = at > 0 && at + 1 < text.size();
  if (byte == ' ')
    return isInside && text[at - 1] != ' ' && text[at + 1] != ' ';
  return isInside && (byte == '.' || byte == '_' || byte == '-') && isWordByte(text[at - 1]) &&
         isWordByte(text[at + 1]);
}

// The bytes with U+FFFD for what is not UTF-8.
std::string utf8Text(std::string_view bytes) {
  const bool isAscii = std::ranges::all_of(bytes, [](char byte) { return (byte & 0x80) == 0; });
  if (isAscii)
    return std::string(bytes);
  std::string json;
  appendJsonString(json, bytes);
  return nlohmann::json::parse(json).get<std::string>();
}

} // namespace

std::string cleanText(std::string_view bytes) {
  const std::string text = utf8Text(bytes);
  std::string clean;
  for (std::size_t at = 0; at < text.size(); ++at)
    if (isControl(text[at]))
      clean += replacement;
    else if (isNoCharacter(std::string_view(text).substr(at))) {
      clean += replacement;
      at += 2;
    } else
      clean += text[at];
  return clean;
}

std::string codedText(std::string_view bytes, std::string_view prefix) {
  const std::string text = cleanText(bytes);
  std::string coded;
  for (std::size_t at = 0; at < text.size(); ++at)
    if (isPlain(text, at))
      coded += text[at];
    else
      coded.append(prefix).append(std::to_string(static_cast<int>(text[at]))) += ';';
  return coded;
}

std::string_view inferredMark(bool isInferred) { return isInferred ? " (inferred)" : ""; }

} // namespace qvlineagegraph
