#include "qvxdom/qvdomelements.h"

#include "qvxdom/private/qvdomplain.h"

#include <deque>
#include <new>
#include <string>
#include <utility>
#include <vector>

namespace {

// Finds out whether a text is in the plain form.
struct CheckingSink {
  static constexpr bool TakesValues = false;
  static constexpr bool TakesText = false;

  bool open(std::string_view, const std::vector<QvDomElementAttribute>&) { return true; }
  void close(std::string_view, bool) {}
};

class TellingSink {
public:
  static constexpr bool TakesValues = true;
  static constexpr bool TakesText = false;

  explicit TellingSink(QvDomElementVisitor& visitor) : m_visitor(visitor) {}

  bool open(std::string_view name, const std::vector<QvDomElementAttribute>& attributes) {
    m_kept = 0;
    return m_visitor.visitElement({name, attributes, m_depth++});
  }
  void close(std::string_view, bool) { --m_depth; }
  std::string_view keep(std::string_view value) {
    if (m_kept == m_values.size())
      m_values.emplace_back();
    return m_values[m_kept++].assign(value);
  }

private:
  QvDomElementVisitor& m_visitor;
  std::size_t m_depth = 0;
  std::deque<std::string> m_values; // of one element, those that are not written as they are meant
  std::size_t m_kept = 0;
};

// A zero byte follows the text. One that cannot be looked at for want of memory is not plain.
bool isPlain(std::string_view text) {
  try {
    CheckingSink sink;
    return text.size() <= QvDom::MaxSize && qvdomplain::Reader(text, sink).read();
  } catch (const std::bad_alloc&) {
    return false;
  }
}

void tellPlain(std::string_view text, QvDomElementVisitor& visitor) {
  TellingSink sink(visitor);
  qvdomplain::Reader(text, sink).read();
}

bool tellTree(bool isLoaded, const QvDom& document, QvDomElementVisitor& visitor, QvbString* error) {
  if (isLoaded)
    qvDomVisitElements(document.getRoot(), visitor);
  else if (error)
    *error = document.getErrorMessage();
  return isLoaded;
}

QvDomElement elementOf(const QvDomNodeData& node, std::size_t depth,
                       std::vector<QvDomElementAttribute>& attributes) {
  attributes.clear();
  for (std::uint32_t i = 0; i < node.attributeCount; ++i)
    attributes.push_back({node.attributes[i].name->view(), node.attributes[i].value});
  return {node.name->view(), attributes, depth};
}

} // namespace

bool qvDomVisitElements(const QvbString& text, QvDomElementVisitor& visitor, QvbString* error) {
  if (isPlain(text.view())) {
    tellPlain(text.view(), visitor);
    return true;
  }
  QvDom document;
  return tellTree(document.loadXML(text), document, visitor, error);
}

bool qvDomVisitElementsOfFile(const QvbString& path, QvDomElementVisitor& visitor, QvbString* error) {
  QvDom document;
  std::string content;
  const bool isRead = document.readFile(path, &content);
  if (isRead && isPlain(content)) {
    tellPlain(content, visitor);
    return true;
  }
  return tellTree(isRead && document.loadContent(path, std::move(content)), document, visitor, error);
}

void qvDomVisitElements(const QvDomNode& first, QvDomElementVisitor& visitor) {
  std::vector<QvDomElementAttribute> attributes;
  std::size_t depth = 0;
  const QvDomNodeData* const start = first.m_data;
  for (const auto* node = start; node;) {
    if (!node->isText() && !visitor.visitElement(elementOf(*node, depth, attributes)))
      return;
    if (node->firstChild) {
      node = node->firstChild;
      ++depth;
      continue;
    }
    for (; depth > 0 && !node->next; --depth)
      node = node->parent;
    node = node->next;
  }
}
