// The plain form in which most documents are written, and its reader: UTF-8, with elements, attributes, text, references,
// sections, comments and instructions. It is a part of what the parser takes, and to everything in it the reader gives
// the parser's meaning. What it does not know, or finds malformed, it leaves: the parser then reads the document from its
// beginning, and alone says whether it is one, and where and why not.
#pragma once

#include "qvxdom/private/qvdomtree.h"
#include "qvxdom/qvdom.h"
#include "qvxdom/qvdomelements.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace qvdomplain {

// What a byte may be; a zero byte, which ends every text, is nothing.
enum : unsigned char {
  NameStart = 1,
  NamePart = 2,
  Space = 4,
  TextPart = 8,  // stands for itself in text, whatever comes after it
  ValuePart = 16 // the same in the value of an attribute
};

constexpr std::array<unsigned char, 256> makeClasses() {
  std::array<unsigned char, 256> classes{};
  for (unsigned byte = 0x20; byte < 0x80; ++byte) {
    const bool letter =
        (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') || byte == '_' || byte == ':';
    if (letter)
      classes[byte] |= NameStart | NamePart;
    if ((byte >= '0' && byte <= '9') || byte == '-' || byte == '.')
      classes[byte] |= NamePart;
    if (byte != '<' && byte != '&' && byte != ']')
      classes[byte] |= TextPart;
    if (byte != '<' && byte != '&' && byte != '"' && byte != '\'')
      classes[byte] |= ValuePart;
  }
  classes[' '] |= Space;
  classes['\t'] |= Space | TextPart;
  classes['\n'] |= Space | TextPart;
  classes['\r'] |= Space;
  return classes;
}
inline constexpr std::array<unsigned char, 256> classes = makeClasses();

inline bool is(char byte, unsigned char kind) noexcept {
  return (classes[static_cast<unsigned char>(byte)] & kind) != 0;
}

// Tells a sink:
//   bool open(std::string_view name, const std::vector<QvDomElementAttribute>& attributes): false ends the reading
//   void run(std::string_view text, bool lasts): all text between two tags; before a child element
//   void close(std::string_view text, bool lasts): the element's end, with its last run
//   std::string_view keep(std::string_view value): a copy of a value that is not written as it is meant
// A sink with `TakesValues` false is told the names of attributes only, and one with `TakesText` false no text. A run lasts
// when it is a part of the document's text, as names are.
template<class Sink>
class Reader {
public:
  // A zero byte follows the text.
  Reader(std::string_view text, Sink& sink)
      : m_at(text.data()), m_end(text.data() + text.size()), m_sink(sink) {
    m_attributes.reserve(8);
  }

  bool read() { return takeProlog() && takeElements() && takeMisc() && m_at == m_end; }

private:
  // An element with more of them is the parser's.
  static constexpr std::size_t MostAttributes = 64;

  bool takes(std::string_view expected) noexcept {
    if (std::strncmp(m_at, expected.data(), expected.size()) != 0)
      return false;
    m_at += expected.size();
    return true;
  }

  bool takeSpace() noexcept {
    const char* const start = m_at;
    while (is(*m_at, Space))
      ++m_at;
    return m_at != start;
  }

  bool takeProlog() {
    takes("\xEF\xBB\xBF");
    return (!takes("<?xml ") || takeDeclaration()) && takeMisc();
  }

  // That of a document in UTF-8, as it is usually written.
  bool takeDeclaration() noexcept {
    if (!takesEither({"version=\"1.0\"", "version='1.0'"}))
      return false;
    takesEither({" encoding=\"UTF-8\"", " encoding=\"utf-8\"", " encoding='UTF-8'", " encoding='utf-8'"});
    takesEither({" standalone=\"yes\"", " standalone=\"no\"", " standalone='yes'", " standalone='no'"});
    takeSpace();
    return takes("?>");
  }

  bool takesEither(std::initializer_list<std::string_view> expected) noexcept {
    return std::any_of(expected.begin(), expected.end(), [&](std::string_view one) { return takes(one); });
  }

  bool takeMisc() {
    for (;;) {
      takeSpace();
      if (takes("<!--")) {
        if (!takeComment())
          return false;
      } else if (!takes("<?")) {
        return true;
      } else if (!takeInstruction()) {
        return false;
      }
    }
  }

  bool takeElements() {
    if (*m_at != '<' || !takeStart())
      return false;
    while (m_depth > 0)
      if (!takeRun() || !takeMarkup())
        return false;
    return true;
  }

  // At a "<" within the root.
  bool takeMarkup() {
    if (m_at[1] == '/')
      return takeEnd();
    if (takes("<?"))
      return takeInstruction();
    if (m_at[1] != '!')
      return takeStart();
    if (takes("<!--"))
      return takeComment();
    return takes("<![CDATA[") && takeSection();
  }

  static bool isInName(char byte) noexcept {
    return is(byte, NamePart) || static_cast<unsigned char>(byte) >= 0x80;
  }

  // Empty where there is none.
  std::string_view takeName() noexcept {
    const char* const start = m_at;
    if (is(*m_at, NameStart))
      while (is(*m_at, NamePart))
        ++m_at;
    if (static_cast<unsigned char>(*m_at) >= 0x80)
      return takeNameFrom(start);
    return {start, static_cast<std::size_t>(m_at - start)};
  }

  // A name that is not of ASCII alone.
  std::string_view takeNameFrom(const char* start) noexcept {
    while (isInName(*m_at))
      ++m_at;
    const std::string_view name(start, static_cast<std::size_t>(m_at - start));
    return qvDomIsName(name) ? name : std::string_view();
  }

  bool takeStart() {
    ++m_at;
    const auto name = takeName();
    if (name.empty() || m_depth == QvDom::MaxDepth || !takeAttributes())
      return false;
    if (m_depth > 0)
      tellRun();
    if (!m_sink.open(name, m_attributes))
      return false;
    m_open[m_depth++] = name.data();
    if (*m_at == '>') {
      ++m_at;
      return true;
    }
    ++m_at;
    return *m_at++ == '>' && close();
  }

  // Up to the end of the tag.
  bool takeAttributes() {
    m_attributes.clear();
    for (;;) {
      const bool isApart = takeSpace();
      if (*m_at == '>' || (*m_at == '/' && m_at[1] == '>'))
        return true;
      if (!isApart || !takeAttribute())
        return false;
    }
  }

  bool takeAttribute() {
    const auto name = takeName();
    const auto isSame = [&](const auto& attribute) { return attribute.name == name; };
    if (name.empty() || m_attributes.size() == MostAttributes ||
        std::any_of(m_attributes.begin(), m_attributes.end(), isSame))
      return false;
    takeSpace();
    if (*m_at++ != '=')
      return false;
    takeSpace();
    const char quote = *m_at++;
    std::string_view value;
    if ((quote != '"' && quote != '\'') || !takeValue(quote, value))
      return false;
    m_attributes.push_back({name, value});
    return true;
  }

  // The value, and the quote after it.
  bool takeValue(char quote, std::string_view& value) {
    const char* start = m_at;
    bool isRewritten = false; // then m_value has what is before `start`
    for (;;) {
      while (is(*m_at, ValuePart))
        ++m_at;
      if (*m_at == quote)
        break;
      if (*m_at == '"' || *m_at == '\'')
        ++m_at;
      else if (static_cast<unsigned char>(*m_at) >= 0x80) {
        if (!takeCharacter())
          return false;
      } else {
        if (!isRewritten)
          m_value.clear();
        isRewritten = true;
        m_value.append(start, m_at);
        if (!takeRewritten(m_value, ' '))
          return false;
        start = m_at;
      }
    }
    value = {start, static_cast<std::size_t>(m_at - start)};
    ++m_at;
    if constexpr (Sink::TakesValues) {
      if (isRewritten)
        value = m_sink.keep(m_value.append(value));
    }
    return true;
  }

  // A character that is not ASCII.
  bool takeCharacter() noexcept {
    std::string_view bytes(m_at, static_cast<std::size_t>(m_end - m_at));
    const auto character = qvDomTakeUtf8(bytes);
    m_at = bytes.data();
    return qvDomIsChar(character);
  }

  // What does not stand for itself: a reference, or white space, which becomes a blank in values and a line feed in text.
  bool takeRewritten(std::string& out, char space) {
    if (*m_at == '&')
      return takeReference(out);
    if (!is(*m_at, Space))
      return false;
    m_at += m_at[0] == '\r' && m_at[1] == '\n' ? 2 : 1;
    out += space;
    return true;
  }

  bool takeReference(std::string& out) {
    ++m_at;
    if (takes("#"))
      return takes("x") ? takeNumber(16, out) : takeNumber(10, out);
    static constexpr struct {
      std::string_view name;
      char character;
    } known[] = {{"amp;", '&'}, {"lt;", '<'}, {"gt;", '>'}, {"quot;", '"'}, {"apos;", '\''}};
    for (const auto& reference : known)
      if (takes(reference.name)) {
        out += reference.character;
        return true;
      }
    return false;
  }

  // The number of a character, and the semicolon after it.
  bool takeNumber(int base, std::string& out) {
    constexpr std::ptrdiff_t mostDigits = 7;
    std::uint32_t number = 0;
    const auto [end, error] = std::from_chars(m_at, m_at + std::min(m_end - m_at, mostDigits), number, base);
    if (error != std::errc() || *end != ';' || !qvDomIsChar(number))
      return false;
    m_at = end + 1;
    qvDomAppendUtf8(number, out);
    return true;
  }

  // Text up to a "<".
  bool takeRun() {
    const char* start = m_at;
    for (;;) {
      while (is(*m_at, TextPart))
        ++m_at;
      if (*m_at == '<')
        break;
      if (*m_at == ']') {
        if (m_at[1] == ']' && m_at[2] == '>')
          return false;
        ++m_at;
      } else if (static_cast<unsigned char>(*m_at) >= 0x80) {
        if (!takeCharacter())
          return false;
      } else {
        if (!takeRewrittenText(start))
          return false;
      }
    }
    addPiece({start, static_cast<std::size_t>(m_at - start)});
    return true;
  }

  // After "<![CDATA[".
  bool takeSection() {
    const char* start = m_at;
    for (;;) {
      while (is(*m_at, TextPart) || *m_at == '<' || *m_at == '&')
        ++m_at;
      if (*m_at == ']') {
        if (m_at[1] == ']' && m_at[2] == '>')
          break;
        ++m_at;
      } else if (static_cast<unsigned char>(*m_at) >= 0x80) {
        if (!takeCharacter())
          return false;
      } else if (!takeRewrittenText(start)) {
        return false;
      }
    }
    addPiece({start, static_cast<std::size_t>(m_at - start)});
    m_at += 3;
    return true;
  }

  // What does not stand for itself in text, of which what begins at `start` is not yet added.
  bool takeRewrittenText(const char*& start) {
    if constexpr (Sink::TakesText) {
      addPiece({start, static_cast<std::size_t>(m_at - start)});
      rewriteRun();
    } else {
      m_text.clear();
    }
    if (!takeRewritten(m_text, '\n'))
      return false;
    if constexpr (Sink::TakesText)
      m_run = m_text;
    start = m_at;
    return true;
  }

  // To such a byte in what is dropped, or to one that needs a look.
  void skipTo(char stop) noexcept {
    while (*m_at != stop && (is(*m_at, TextPart | Space) || *m_at == '<' || *m_at == '&' || *m_at == ']'))
      ++m_at;
  }

  // After "<!--".
  bool takeComment() noexcept {
    for (;;) {
      skipTo('-');
      if (*m_at == '-') {
        if (*++m_at != '-')
          continue;
        ++m_at;
        return *m_at++ == '>';
      }
      if (static_cast<unsigned char>(*m_at) < 0x80 || !takeCharacter())
        return false;
    }
  }

  // After "<?". A target that begins as the declaration's does, or has more in it than letters of ASCII, is the
  // parser's matter.
  bool takeInstruction() noexcept {
    const char* const target = m_at;
    if (!is(*m_at, NameStart))
      return false;
    while (is(*m_at, NamePart) && *m_at != ':')
      ++m_at;
    if (qvbEqualsIgnoreCase({target, std::min<std::size_t>(3, static_cast<std::size_t>(m_at - target))},
                            "xml"))
      return false;
    if (!takeSpace())
      return takes("?>");
    for (;;) {
      skipTo('?');
      if (*m_at == '?') {
        if (*++m_at == '>') {
          ++m_at;
          return true;
        }
      } else if (static_cast<unsigned char>(*m_at) < 0x80 || !takeCharacter()) {
        return false;
      }
    }
  }

  // At "</".
  bool takeEnd() {
    m_at += 2;
    const char* opened = m_open[m_depth - 1];
    for (; isInName(*opened); ++opened, ++m_at)
      if (*m_at != *opened)
        return false;
    takeSpace();
    return *m_at++ == '>' && close();
  }

  bool close() {
    if constexpr (Sink::TakesText) {
      m_sink.close(m_run, m_runLasts);
      forgetRun();
    } else {
      m_sink.close({}, true);
    }
    --m_depth;
    return true;
  }

  // The run is a part of the text for as long as it is of one piece.
  void addPiece(std::string_view piece) {
    if constexpr (Sink::TakesText) {
      if (piece.empty())
        return;
      if (m_run.empty()) {
        m_run = piece;
        m_runLasts = true;
        return;
      }
      rewriteRun();
      m_run = m_text.append(piece);
    }
  }

  void rewriteRun() {
    if (!m_runLasts)
      return;
    m_text.assign(m_run);
    m_runLasts = false;
    m_run = m_text;
  }

  void tellRun() {
    if constexpr (Sink::TakesText) {
      if (!m_run.empty())
        m_sink.run(m_run, m_runLasts);
      forgetRun();
    }
  }

  void forgetRun() noexcept {
    m_run = {};
    m_runLasts = true;
  }

  const char* m_at;
  const char* const m_end;
  Sink& m_sink;
  std::size_t m_depth = 0;
  std::array<const char*, QvDom::MaxDepth> m_open; // the names of the open elements
  std::vector<QvDomElementAttribute> m_attributes;
  std::string m_value;
  std::string m_text; // of a run that is not of one piece
  std::string_view m_run;
  bool m_runLasts = true;
};

} // namespace qvdomplain
