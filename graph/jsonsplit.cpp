#include "jsonsplit.h"

#include <array>
#include <utility>

namespace qvlineagegraph {

namespace {

constexpr std::size_t bufferSize = std::size_t{1} << 18;
constexpr std::size_t batchSize = std::size_t{1} << 18;

bool isSpace(char character) {
  return character == ' ' || character == '\n' || character == '\r' || character == '\t';
}

// Bytes that mean something to where a value ends, outside of texts.
constexpr auto special = [] {
  std::array<bool, 256> bytes{};
  for (const char byte : {'"', '[', ']', '{', '}', ',', ':'})
    bytes[static_cast<unsigned char>(byte)] = true;
  return bytes;
}();

using Place = JsonSplitter::Place;

const char* nextOfMeaning(const Place& place, const char* at, const char* end) {
  if (place.isText)
    while (at < end && *at != '"' && *at != '\\')
      ++at;
  else
    while (at < end && !special[static_cast<unsigned char>(*at)])
      ++at;
  return at;
}

// Whether the value ends before this byte.
bool take(char byte, Place& place) {
  if (place.isEscaped) {
    place.isEscaped = false;
  } else if (place.isText) {
    place.isText = byte != '"';
    place.isEscaped = byte == '\\';
  } else {
    const bool closes = byte == ']' || byte == '}';
    if (place.depth == 0 && (closes || byte == ',' || byte == ':'))
      return true;
    place.isText = byte == '"';
    place.depth += byte == '[' || byte == '{' ? 1 : 0;
    place.depth -= closes ? 1 : 0;
  }
  return false;
}

} // namespace

JsonSplitter::JsonSplitter(ByteSource source, std::size_t lookAhead)
    : m_source(std::move(source)), m_lookAhead(lookAhead), m_buffer(bufferSize, '\0') {}

bool JsonSplitter::refill() {
  m_before += m_end;
  m_at = 0;
  m_end = m_source(m_buffer.data(), m_buffer.size());
  return m_end > 0;
}

int JsonSplitter::peek() {
  for (;; ++m_at) {
    if (m_at == m_end && !refill())
      return -1;
    if (!isSpace(m_buffer[m_at]))
      return static_cast<unsigned char>(m_buffer[m_at]);
  }
}

int JsonSplitter::next() {
  const int byte = peek();
  m_at += byte >= 0 ? 1 : 0;
  return byte;
}

bool JsonSplitter::fail(std::string_view expected) {
  m_failure = "byte " + std::to_string(m_before + m_at) + ": " + std::string(expected) + " is due here";
  return false;
}

void JsonSplitter::skipByteOrderMark() {
  if (refill() && std::string_view(m_buffer).substr(0, m_end).starts_with(byteOrderMark))
    m_at = byteOrderMark.size();
}

bool JsonSplitter::run(const Taker& take) {
  skipByteOrderMark();
  if (next() != '{')
    return fail("an object");
  if (peek() == '}')
    ++m_at;
  else
    for (int byte = ','; byte == ',';) {
      if (!readMember(take))
        return false;
      byte = next();
      if (byte != ',' && byte != '}')
        return fail("a comma or a closing brace");
    }
  return peek() < 0 || fail("the end");
}

bool JsonSplitter::readMember(const Taker& take) {
  std::string name;
  if (!readName(name))
    return false;
  if (next() != ':')
    return fail("a colon");
  if (peek() == '[')
    return readArray(take, name);
  std::string value;
  return readValue(value) && give(take, name, value);
}

bool JsonSplitter::readName(std::string& name) {
  if (peek() != '"')
    return fail("a name");
  if (!readValue(name))
    return false;
  name = name.substr(1, name.rfind('"') - 1);
  return true;
}

bool JsonSplitter::readArray(const Taker& take, std::string_view name) {
  ++m_at;
  std::string batch = "[";
  if (peek() == ']')
    ++m_at;
  else
    for (int byte = ','; byte == ',';) {
      if (!readValue(batch))
        return false;
      byte = next();
      if (byte != ',' && byte != ']')
        return fail("a comma or a closing bracket");
      if (byte == ']' || batch.size() < batchSize) {
        batch += byte == ']' ? "" : ",";
        continue;
      }
      batch += ']';
      if (!give(take, name, batch))
        return false;
      batch = "[";
    }
  batch += ']';
  return give(take, name, batch);
}

bool JsonSplitter::give(const Taker& take, std::string_view name, std::string& value) const {
  value.reserve(value.size() + m_lookAhead);
  return take(name, value);
}

bool JsonSplitter::readValue(std::string& value) {
  const std::size_t start = value.size();
  peek();
  for (Place place;;) {
    const std::size_t begin = m_at;
    const bool isEnd = moveToEnd(place);
    value.append(m_buffer, begin, m_at - begin);
    if (isEnd)
      return value.size() > start || fail("a value");
    if (!refill())
      return fail("the end of a value");
  }
}

// To the byte after the value, or to the end of the buffer.
bool JsonSplitter::moveToEnd(Place& place) {
  const char* const end = m_buffer.data() + m_end;
  const char* at = m_buffer.data() + m_at;
  bool isAtEnd = false;
  while (at < end && !isAtEnd) {
    at = place.isEscaped ? at : nextOfMeaning(place, at, end);
    isAtEnd = at < end && take(*at, place);
    at += at < end && !isAtEnd ? 1 : 0;
  }
  m_at = static_cast<std::size_t>(at - m_buffer.data());
  return isAtEnd;
}

} // namespace qvlineagegraph
