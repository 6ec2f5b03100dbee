#include "qvxdom/private/qvdomscan.h"

#include "qvxdom/private/qvdomtree.h"
#include "qvxdom/qvdom.h"

#include <algorithm>
#include <array>
#include <optional>
#include <utility>

namespace {

using namespace std::string_view_literals;

constexpr std::size_t npos = std::string_view::npos;

// The parser compares each attribute with every one before it.
constexpr std::size_t maxAttributes = QvDom::MaxAttributes;

struct Form {
  std::string_view signature; // a byte order mark, or else the "<" that a document begins with
  std::size_t width;          // bytes of a code unit
  bool bigEndian;
  std::string_view encoding;
};

// The first bytes of a document tell how wide its characters are; the first row that fits counts.
constexpr std::array forms{
    Form{"\0\0\xFE\xFF"sv, 4, true, "UCS-4BE"}, Form{"\xFF\xFE\0\0"sv, 4, false, "UCS-4LE"},
    Form{"\0\0\0<"sv, 4, true, "UCS-4BE"},      Form{"<\0\0\0"sv, 4, false, "UCS-4LE"},
    Form{"\xFE\xFF"sv, 2, true, "UTF-16BE"},    Form{"\xFF\xFE"sv, 2, false, "UTF-16LE"},
    Form{"\0<"sv, 2, true, "UTF-16BE"},         Form{"<\0"sv, 2, false, "UTF-16LE"},
    Form{"\xEF\xBB\xBF"sv, 1, false, "UTF-8"},  Form{""sv, 1, false, "UTF-8"}};

const Form& formOf(std::string_view document) {
  return *std::find_if(forms.begin(), forms.end(),
                       [&](const Form& form) { return document.starts_with(form.signature); });
}

// Encodings in which a byte of markup stands for itself wherever it occurs: families by the beginning of their
// names, then single ones. Shift_JIS, GBK, GB18030 and Big5 are not among them: the second byte of a character may
// be that of "]".
constexpr std::array asciiFamilies{"ISO-8859-"sv, "WINDOWS-125"sv, "CP125"sv, "KOI8-"sv, "EUC-"sv};
constexpr std::array asciiSupersets{"UTF-8"sv, "US-ASCII"sv, "ASCII"sv, "LATIN1"sv, "GB2312"sv};

bool isAsciiSuperset(std::string_view encoding) {
  return std::any_of(asciiFamilies.begin(), asciiFamilies.end(),
                     [&](std::string_view family) { return encoding.starts_with(family); }) ||
         std::find(asciiSupersets.begin(), asciiSupersets.end(), encoding) != asciiSupersets.end();
}

std::string upper(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; });
  return text;
}

// The declared encoding by the name the parser is given, or empty when it is not admitted.
std::string admitted(const std::string& declared) {
  auto encoding = upper(declared);
  if (encoding == "UTF8")
    return "UTF-8";
  return isAsciiSuperset(encoding) ? encoding : "";
}

struct EncodingName {
  std::string_view name;
  std::size_t width; // the bytes of its code units
};

// Which of the two orders the bytes have is for the first ones to tell, unless the name ends with it.
constexpr std::array unicodeNames{EncodingName{"UTF-8", 1},           EncodingName{"UTF8", 1},
                                  EncodingName{"UTF-16", 2},          EncodingName{"UTF16", 2},
                                  EncodingName{"ISO-10646-UCS-2", 2}, EncodingName{"UCS-2", 2},
                                  EncodingName{"UTF-32", 4},          EncodingName{"UTF32", 4},
                                  EncodingName{"ISO-10646-UCS-4", 4}, EncodingName{"UCS-4", 4}};

// Whether a document whose first bytes have the form may declare the encoding.
bool agrees(const std::string& declared, const Form& form) {
  if (form.signature.empty())
    return true;
  const auto encoding = upper(declared);
  std::string_view name = encoding;
  if (form.width > 1 && name.ends_with(form.bigEndian ? "BE" : "LE"))
    name.remove_suffix(2);
  return std::any_of(unicodeNames.begin(), unicodeNames.end(), [&](const EncodingName& known) {
    return known.width == form.width && known.name == name;
  });
}

// The code units of a document.
class Units {
public:
  Units(std::string_view bytes, const Form& form)
      : m_bytes(bytes), m_form(form), m_size(bytes.size() / form.width) {}

  std::size_t size() const { return m_size; }
  char32_t operator[](std::size_t index) const {
    if (m_form.width == 1)
      return static_cast<unsigned char>(m_bytes[index]);
    char32_t unit = 0;
    for (std::size_t i = 0; i < m_form.width; ++i) {
      const auto place = m_form.bigEndian ? i : m_form.width - 1 - i;
      unit = unit << 8 | static_cast<unsigned char>(m_bytes[index * m_form.width + place]);
    }
    return unit;
  }
  bool holdsAt(std::size_t index, std::string_view text) const {
    if (size() - index < text.size())
      return false;
    if (m_form.width == 1)
      return m_bytes.compare(index, text.size(), text) == 0;
    for (std::size_t i = 0; i < text.size(); ++i)
      if ((*this)[index + i] != static_cast<unsigned char>(text[i]))
        return false;
    return true;
  }
  bool isSpaceAt(std::size_t index) const {
    const auto unit = index < size() ? (*this)[index] : U'\0';
    return unit == ' ' || unit == '\t' || unit == '\r' || unit == '\n';
  }
  // The next such unit, or the size when there is none.
  std::size_t find(char32_t unit, std::size_t from) const {
    while (from < size() && (*this)[from] != unit)
      ++from;
    return from;
  }
  // Past the next occurrence of the text; the size when there is none.
  std::size_t past(std::string_view text, std::size_t from) const {
    if (m_form.width == 1) {
      const auto found = m_bytes.find(text, from);
      return found == npos ? size() : found + text.size();
    }
    for (auto index = from; index < size(); ++index)
      if (holdsAt(index, text))
        return index + text.size();
    return size();
  }
  std::string ascii(std::size_t from, std::size_t to) const {
    std::string text;
    for (auto index = from; index < to; ++index)
      text += (*this)[index] < 0x80 ? static_cast<char>((*this)[index]) : '?';
    return text;
  }

private:
  std::string_view m_bytes;
  const Form& m_form;
  std::size_t m_size;
};

// "<line>:<column>" of a unit. In UTF-8 a character counts once, whatever its bytes.
std::string positionOf(const Units& units, std::size_t index, bool utf8) {
  std::size_t line = 1;
  std::size_t column = 1;
  for (std::size_t i = 0; i < index; ++i) {
    const auto unit = units[i];
    const bool isBeforeFeed = i + 1 < units.size() && units[i + 1] == '\n';
    const bool endsLine = unit == '\n' || (unit == '\r' && !isBeforeFeed);
    if (endsLine) {
      ++line;
      column = 1;
    } else if (!utf8 || (unit & 0xC0) != 0x80) {
      ++column;
    }
  }
  return std::to_string(line) + ':' + std::to_string(column);
}

// The values of a declaration, where it has them. One that is malformed may be misread here, but the parser refuses it.
struct Declaration {
  std::optional<std::string> version;
  std::optional<std::string> encoding;
};

// Takes the next name="value" off the front of the text and answers the value. The declaration ends with the text, which
// may be within a value: the parser, which takes any version and is held to an encoding, would read on.
std::string takeValue(std::string_view& text, std::string_view& name) {
  const auto quote = text.find_first_of("\"'");
  if (quote == npos)
    return {};
  const auto end = std::min(text.find(text[quote], quote + 1), text.size());
  name = text.substr(0, quote);
  std::string value(text.substr(quote + 1, end - quote - 1));
  text.remove_prefix(std::min(end + 1, text.size()));
  return value;
}

Declaration parseDeclaration(std::string_view text) {
  Declaration declaration;
  std::string_view name;
  auto value = takeValue(text, name);
  if (name.find("version") != npos)
    declaration.version = std::exchange(value, takeValue(text, name));
  if (name.find("encoding") != npos)
    declaration.encoding = std::move(value);
  return declaration;
}

// The parser looks at no more of it than the beginning.
bool isVersion(std::string_view version) {
  return version.size() > 2 && version.starts_with("1.") &&
         version.find_first_not_of("0123456789", 2) == npos;
}

// Past the comment, instruction or white space at the index; the index itself when there is none of them.
std::size_t pastMisc(const Units& units, std::size_t index) {
  if (units.isSpaceAt(index))
    return index + 1;
  if (units.holdsAt(index, "<!--"))
    return units.past("-->", index + 4);
  if (units.holdsAt(index, "<?"))
    return units.past("?>", index + 2);
  return index;
}

// Where the document type declaration or the root element begins.
std::size_t endOfMisc(const Units& units) {
  std::size_t index = 0;
  for (auto past = pastMisc(units, 0); past != index; past = pastMisc(units, index))
    index = past;
  return index;
}

Declaration declarationOf(const Units& units) {
  if (!units.holdsAt(0, "<?xml") || !units.isSpaceAt(5))
    return {};
  return parseDeclaration(units.ascii(5, units.past("?>", 5)));
}

// The end of the tag at the index, and how many attributes it has.
struct Tag {
  std::size_t end;
  std::size_t attributes;
};

Tag tagAt(const Units& units, std::size_t index) {
  Tag tag{index + 1, 0};
  for (; tag.end < units.size(); ++tag.end) {
    const auto unit = units[tag.end];
    if (unit == '<' || unit == '>')
      break;
    if (unit == '"' || unit == '\'') {
      tag.end = units.find(unit, tag.end + 1);
      ++tag.attributes;
    }
  }
  return tag;
}

// Past the markup at the index.
std::size_t pastMarkup(const Units& units, std::size_t index) {
  if (units.holdsAt(index, "<![CDATA["))
    return units.past("]]>", index);
  const auto misc = pastMisc(units, index);
  return misc == index ? tagAt(units, index).end : misc;
}

// The first element with too many attributes; npos when there is none.
std::size_t findCrowdedElement(const Units& units) {
  for (auto index = units.find('<', 0); index < units.size();
       index = units.find('<', pastMarkup(units, index)))
    if (!units.holdsAt(index, "<!") && !units.holdsAt(index, "<?") &&
        tagAt(units, index).attributes > maxAttributes)
      return index;
  return npos;
}

// Whether it is worth looking for one. There is no "<" within a tag, and an attribute takes five characters at least, so
// that a tag with too many of them is long. A probe looks half of that length behind a "<": when the next "<" is another
// half away, the tag there is looked at, and else that "<" is where the next probe starts from. A comment or section in
// which that looks like such a tag is rare.
//
// Example: were more than 1,000 attributes too many, such a tag would be longer than 5,000 characters. A probe 2,500
// characters behind a "<" falls into a tag that begins less than 2,500 behind it, and that tag then goes on for more than
// 2,500; a tag that begins later is met by a later probe. Short tags cost one look for each 2,500 characters.
bool mayBeCrowded(std::string_view document, const Units& units) {
  constexpr auto half = maxAttributes * std::string_view(" a=''").size() / 2;
  if (units.size() < document.size())
    return units.size() > 2 * half;
  for (auto tag = document.find('<'); tag != npos;) {
    const auto probe = tag + half;
    const auto next = document.find('<', probe);
    if (std::min(next, document.size()) > probe + half &&
        tagAt(units, document.rfind('<', probe - 1)).attributes > maxAttributes)
      return true;
    tag = next;
  }
  return false;
}

// Why the document is refused, if it is.
std::string refusal(std::string_view document, const Form& form, const Units& units,
                    const Declaration& declaration, const std::string& encoding) {
  if (declaration.version == "1.1")
    return "1:1: XML version 1.1 is not supported";
  if (declaration.version && !isVersion(*declaration.version))
    return "1:1: \"" + *declaration.version + "\" is not a version of XML";
  if (encoding.empty())
    return "1:1: the encoding \"" + declaration.encoding.value_or("") + "\" is not supported";
  if (declaration.encoding && !agrees(*declaration.encoding, form))
    return "1:1: the encoding \"" + *declaration.encoding + "\" is not that of the first bytes, " +
           std::string(form.encoding);
  const bool utf8 = encoding == "UTF-8";
  std::size_t first = 0;
  while (units.isSpaceAt(first))
    ++first;
  if (first * form.width == document.size())
    return positionOf(units, first, utf8) + ": the document is empty";
  if (auto rest = document.substr(first); utf8 && rest.front() != '<' && qvDomIsChar(qvDomTakeUtf8(rest)))
    return positionOf(units, first, utf8) + ": this is no XML, which begins with \"<\"";
  if (const auto index = endOfMisc(units); units.holdsAt(index, "<!DOCTYPE"))
    return positionOf(units, index, utf8) + ": a document type declaration is not allowed";
  const auto crowded = mayBeCrowded(document, units) ? findCrowdedElement(units) : npos;
  if (crowded != npos)
    return positionOf(units, crowded, utf8) + ": " + qvDomTooManyAttributes();
  return {};
}

} // namespace

QvDomScan qvDomScan(std::string_view document) {
  const auto& form = formOf(document);
  const auto byteOrderMark = form.signature.find('<') == npos ? form.signature.size() : 0;
  document.remove_prefix(byteOrderMark);
  const Units units(document, form);
  const auto declaration = declarationOf(units);

  std::string encoding(form.encoding);
  if (form.signature.empty() && declaration.encoding)
    encoding = admitted(*declaration.encoding);
  auto failure = refusal(document, form, units, declaration, encoding);
  return {std::move(encoding), byteOrderMark, std::move(failure)};
}

std::string qvDomFindBrokenUtf8(std::string_view text) {
  for (auto rest = text; !rest.empty();) {
    const auto index = text.size() - rest.size();
    if (qvDomTakeUtf8(rest) == qvDomBroken)
      return positionOf(Units(text, forms.back()), index, true) + ": the text is not UTF-8";
  }
  return {};
}

std::string qvDomFindZero(std::string_view document, const QvDomScan& scan) {
  const auto& form = formOf(document);
  document.remove_prefix(scan.byteOrderMark);
  const Units units(document, form);
  const auto index = form.width == 1 ? std::min(document.find('\0'), units.size()) : units.find(U'\0', 0);
  return index == units.size()
             ? std::string()
             : positionOf(units, index, scan.encoding == "UTF-8") + ": a zero byte is no character of XML";
}
