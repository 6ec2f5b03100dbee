#include "qvxdom/private/qvdomplain.h"

namespace {

// Builds the document's tree.
class TreeSink {
public:
  static constexpr bool takesValues = true;
  static constexpr bool takesText = true;

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

} // namespace

bool qvDomReadPlain(std::string_view text, QvDomDocument& document) {
  TreeSink sink(document);
  return qvdomplain::Reader(text, sink).read();
}
