#include "qvxdom/private/qvdomtree.h"
#include "qvxdom/qvdom.h"

#include <array>

namespace {

constexpr std::string_view replacement = "\xEF\xBF\xBD"; // U+FFFD

struct Utf8Form {
  std::size_t length;
  char32_t smallest; // a smaller character in this form is overlong
};

// How the sequence that begins with this byte is built; a length of 0 when none begins so.
Utf8Form utf8Form(unsigned char lead) noexcept {
  if (lead < 0x80)
    return {1, 0};
  if (lead >= 0xC0 && lead < 0xE0)
    return {2, 0x80};
  if (lead >= 0xE0 && lead < 0xF0)
    return {3, 0x800};
  if (lead >= 0xF0 && lead < 0xF8)
    return {4, 0x10000};
  return {0, 0};
}

enum class Place { Text, Attribute, Json };

// What stands for an ASCII character that must not stand for itself; empty for all others.
constexpr std::string_view reference(char character, Place place) noexcept {
  if (place == Place::Json)
    switch (character) {
    case '"':
      return "\\\"";
    case '\\':
      return "\\\\";
    case '\n':
      return "\\n";
    case '\r':
      return "\\r";
    case '\t':
      return "\\t";
    default:
      return "";
    }
  switch (character) {
  case '&':
    return "&amp;";
  case '<':
    return "&lt;";
  case '\r':
    return "&#13;";
  case '>':
    return place == Place::Text ? "&gt;" : "";
  case '"':
    return place == Place::Attribute ? "&quot;" : "";
  case '\n':
    return place == Place::Attribute ? "&#10;" : "";
  case '\t':
    return place == Place::Attribute ? "&#9;" : "";
  default:
    return "";
  }
}

using Bytes = std::array<bool, 256>;

// The bytes that are written as they are, without a further look.
constexpr Bytes plainBytes(Place place) {
  Bytes plain{};
  for (unsigned char byte = 0; byte < 0x80; ++byte)
    plain[byte] = qvDomIsChar(byte) && reference(static_cast<char>(byte), place).empty();
  return plain;
}

// By place.
constexpr std::array plainIn{plainBytes(Place::Text), plainBytes(Place::Attribute), plainBytes(Place::Json)};

std::size_t plainLength(std::string_view text, Place place) {
  const auto& plain = plainIn[static_cast<std::size_t>(place)];
  std::size_t length = 0;
  while (length < text.size() && plain[static_cast<unsigned char>(text[length])])
    ++length;
  return length;
}

// Takes the first character of the text, which is not a plain one, and writes what stands for it.
void writeSpecial(std::string_view& text, Place place, std::string& out) {
  auto bytes = text;
  const auto character = qvDomTakeUtf8(text);
  bytes.remove_suffix(text.size());
  if (!qvDomIsChar(character))
    out += replacement;
  else
    out += character < 0x80 ? reference(static_cast<char>(character), place) : bytes;
}

void writeEscaped(std::string_view text, Place place, std::string& out) {
  while (true) {
    const auto plain = plainLength(text, place);
    out += text.substr(0, plain);
    text.remove_prefix(plain);
    if (text.empty())
      return;
    writeSpecial(text, place, out);
  }
}

QvbString escaped(const QvbString& text, Place place) {
  const auto bytes = text.view();
  if (plainLength(bytes, place) == bytes.size())
    return text;
  std::string out;
  out.reserve(bytes.size() + bytes.size() / 8);
  writeEscaped(bytes, place, out);
  return QvbString(std::string_view(out));
}

// Walks down and up the tree without recursion: depth is the caller's matter.
class Writer {
public:
  Writer(const QvDomNodeData& top, bool layout, std::string& out)
      : m_top(top), m_layout(layout), m_out(out) {}

  // Empty, or why the reader would refuse the text.
  std::string write() {
    const auto* node = &m_top;
    while (node) {
      if (auto excess = excessAt(*node); !excess.empty())
        return excess;
      node = enter(*node) ? node->firstChild : leave(node);
    }
    return m_out.size() > QvDom::MaxSize ? qvDomTooLarge() : std::string();
  }

private:
  std::string excessAt(const QvDomNodeData& node) const {
    if (m_out.size() > QvDom::MaxSize)
      return qvDomTooLarge();
    if (!node.isText() && m_level >= QvDom::MaxDepth)
      return qvDomTooDeep();
    if (node.attributeCount > QvDom::MaxAttributes)
      return qvDomTooManyAttributes();
    return {};
  }

  bool laidOut() const { return m_layout && !m_oneLine; }
  void indent() {
    if (laidOut())
      m_out.append(2 * m_level, ' ');
  }
  void endLine() {
    if (laidOut())
      m_out += '\n';
  }

  // True when there are children to go on with.
  bool enter(const QvDomNodeData& node) {
    if (node.isText()) {
      writeEscaped(node.text, Place::Text, m_out);
      return false;
    }
    indent();
    writeTag(node);
    if (!node.firstChild)
      endLine();
    else
      goDown(node);
    return node.firstChild;
  }

  void writeTag(const QvDomNodeData& element) {
    m_out += '<';
    m_out += element.name->view();
    for (std::uint32_t i = 0; i < element.attributeCount; ++i) {
      m_out += ' ';
      m_out += element.attributes[i].name->view();
      m_out += "=\"";
      writeEscaped(element.attributes[i].value, Place::Attribute, m_out);
      m_out += '"';
    }
    m_out += element.firstChild ? ">" : "/>";
  }

  void goDown(const QvDomNodeData& element) {
    if (laidOut() && element.holdsText())
      m_oneLine = &element;
    endLine();
    ++m_level;
  }

  // The node after this one, once the elements that end here are closed.
  const QvDomNodeData* leave(const QvDomNodeData* node) {
    while (node != &m_top && !node->next) {
      node = node->parent;
      close(*node);
    }
    return node == &m_top ? nullptr : node->next;
  }

  void close(const QvDomNodeData& element) {
    --m_level;
    indent();
    m_out += "</";
    m_out += element.name->view();
    m_out += '>';
    if (m_oneLine == &element)
      m_oneLine = nullptr;
    endLine();
  }

  const QvDomNodeData& m_top;
  const bool m_layout;
  std::string& m_out;
  std::size_t m_level = 0;
  // The outermost open element that holds text: white space within it would change the text.
  const QvDomNodeData* m_oneLine = nullptr;
};

} // namespace

char32_t qvDomTakeUtf8(std::string_view& bytes) noexcept {
  const auto byteAt = [&](std::size_t i) { return static_cast<unsigned char>(bytes[i]); };
  const auto form = utf8Form(byteAt(0));
  char32_t character = form.length > 1 ? byteAt(0) & (0x7Fu >> form.length) : byteAt(0);
  bool sound = form.length != 0 && form.length <= bytes.size();
  for (std::size_t i = 1; sound && i < form.length; ++i) {
    sound = (byteAt(i) & 0xC0) == 0x80;
    character = character << 6 | (byteAt(i) & 0x3F);
  }
  sound = sound && character >= form.smallest && qvDomIsScalar(character);
  bytes.remove_prefix(sound ? form.length : 1);
  return sound ? character : qvDomBroken;
}

void qvDomAppendUtf8(char32_t character, std::string& out) {
  const auto put = [&](char32_t byte) { out += static_cast<char>(byte); };
  const auto putTail = [&](int shift) { put(0x80 | ((character >> shift) & 0x3F)); };
  if (character < 0x80) {
    put(character);
    return;
  }
  if (character < 0x800) {
    put(0xC0 | (character >> 6));
  } else if (character < 0x10000) {
    put(0xE0 | (character >> 12));
    putTail(6);
  } else {
    put(0xF0 | (character >> 18));
    putTail(12);
    putTail(6);
  }
  putTail(0);
}

std::string qvDomWrite(const QvDomNodeData& node, bool layout, std::string& out) {
  return Writer(node, layout, out).write();
}

QvbString qvDomEscapeText(const QvbString& text) { return escaped(text, Place::Text); }

QvbString qvDomEscapeAttribute(const QvbString& value) { return escaped(value, Place::Attribute); }

QvbString qvDomEscapeJson(const QvbString& text) { return escaped(text, Place::Json); }

std::string qvDomTooDeep() {
  return "elements are nested deeper than " + std::to_string(QvDom::MaxDepth) + " levels";
}

std::string qvDomTooManyAttributes() {
  return "an element has more than " + std::to_string(QvDom::MaxAttributes) + " attributes";
}

std::string qvDomTooLarge() {
  return "the document is over " + std::to_string(QvDom::MaxSize >> 20) + " MiB";
}
