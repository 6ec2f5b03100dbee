#include "qvxdom/private/qvdomplain.h"

#include <algorithm>
#include <iterator>
#include <optional>

namespace {

// Builds the document's tree.
class TreeSink {
public:
  static constexpr bool TakesValues = true;
  static constexpr bool TakesText = true;

  explicit TreeSink(QvDomDocument& document) : m_document(document), m_builder(document) {}

  bool open(std::string_view name, const std::vector<QvDomElementAttribute>& attributes) {
    auto* element = m_builder.open(name, true);
    m_document.reserveAttributes(element, attributes.size());
    for (const auto& attribute : attributes)
      m_document.addLastingAttribute(element, attribute.name, attribute.value);
    return true;
  }
  void run(std::string_view text, bool lasts) { m_builder.addRun(text, lasts); }
  void close(std::string_view text, bool lasts) { m_builder.close(text, lasts); }
  std::string_view keep(std::string_view value) { return m_document.store(value); }

private:
  QvDomDocument& m_document;
  QvDomBuilder m_builder;
};

constexpr std::size_t largestDecoded = std::size_t{1}
                                       << 20; // what the parser has to be set up for counts less beyond

// A document that declares ISO 8859-1, as it is usually written, in UTF-8, declared as such, and with a zero byte; nothing
// for any other.
std::optional<std::string> decoded(std::string_view text) {
  constexpr std::string_view declarations[] = {
      "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"", "<?xml version='1.0' encoding='ISO-8859-1'",
      "<?xml version=\"1.0\" encoding=\"iso-8859-1\"", "<?xml version='1.0' encoding='iso-8859-1'"};
  const auto declaration =
      std::ranges::find_if(declarations, [&](auto one) { return text.starts_with(one); });
  if (text.size() > largestDecoded || declaration == std::end(declarations))
    return std::nullopt;
  std::string utf8 = "<?xml version=\"1.0\" encoding=\"UTF-8\"";
  for (const char byte : text.substr(declaration->size())) {
    const auto code = static_cast<unsigned char>(byte);
    if (code < 0x80) {
      utf8 += byte;
    } else {
      utf8 += static_cast<char>(0xC0 | code >> 6);
      utf8 += static_cast<char>(0x80 | (code & 0x3F));
    }
  }
  return utf8 + '\0';
}

} // namespace

bool qvDomReadPlain(std::string_view text, QvDomDocument& document) {
  if (const auto utf8 = decoded(text)) {
    text = document.store(*utf8);
    text.remove_suffix(1);
  }
  TreeSink sink(document);
  return qvdomplain::Reader(text, sink).read();
}
