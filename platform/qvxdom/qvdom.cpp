#include "qvxdom/qvdom.h"

#include "qvsfio/private/npnative.h"
#include "qvxdom/private/qvdomtree.h"

#include <new>
#include <utility>

namespace {

bool isElement(const QvDomNodeData* node) { return node && !node->isText(); }

QvDomNodeData* firstOf(QvDomNodeData* node, bool withText) {
  while (node && node->isText() && !withText)
    node = node->next;
  return node;
}

// The node after this one in document order, below the given top.
const QvDomNodeData* following(const QvDomNodeData* node, const QvDomNodeData* top, bool deep) {
  if (node->firstChild && (deep || node == top))
    return node->firstChild;
  while (node != top && !node->next)
    node = node->parent;
  return node == top ? nullptr : node->next;
}

} // namespace

QvbString QvDomNode::getName() const { return isElement(m_data) ? m_data->name->asString() : QvbString(); }

QvbString QvDomNode::getValue(bool deep) const {
  QvbString value;
  for (const auto* node = m_data; node; node = following(node, m_data, deep))
    if (node->isText())
      value.append(node->text);
  return value;
}

void QvDomNode::setValue(const QvbString& text) {
  if (!isElement(m_data))
    return;
  m_document->replaceTexts(m_data, text.view());
}

QvDomNode QvDomNode::addChild(const QvbString& name) {
  if (!isElement(m_data) || !qvDomIsName(name.view()))
    return {};
  return {m_document, m_document->addElement(m_data, name.view())};
}

QvDomNode QvDomNode::getFirstChild(bool withText) const {
  return {m_document, m_data ? firstOf(m_data->firstChild, withText) : nullptr};
}

QvDomNode QvDomNode::getNextSibling(bool withText) const {
  return {m_document, m_data ? firstOf(m_data->next, withText) : nullptr};
}

QvbString QvDomNode::getAttributeValue(const QvbString& name) const {
  const auto* attribute = m_data ? m_document->findAttribute(m_data, name.view()) : nullptr;
  return attribute ? QvbString(attribute->value) : QvbString();
}

void QvDomNode::setAttributeValue(const QvbString& name, const QvbString& value) {
  if (!isElement(m_data))
    return;
  if (auto* attribute = m_document->findAttribute(m_data, name.view()))
    attribute->value = m_document->store(value.view());
  else if (qvDomIsName(name.view()))
    m_document->addAttribute(m_data, name.view(), value.view());
}

int QvDomNode::getAttributeCount() const noexcept {
  return m_data ? static_cast<int>(m_data->attributeCount) : 0;
}

bool QvDomNode::getAttributeNameValue(int index, QvbString* name, QvbString* value) const {
  if (index < 0 || index >= getAttributeCount())
    return false;
  const auto& attribute = m_data->attributes[index];
  if (name)
    *name = attribute.name->asString();
  if (value)
    *value = QvbString(attribute.value);
  return true;
}

namespace {

constexpr const char* declaration = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>";

// Makes the text's tree; the result is empty, or "<line>:<column>: <reason>" without a tree. The document keeps the text.
template<typename Text>
std::string parse(Text&& text, std::unique_ptr<QvDomDocument>& document) {
  auto made = std::make_unique<QvDomDocument>();
  const std::string_view kept = made->keep(std::forward<Text>(text));
  if (kept.size() > QvDom::MaxSize)
    return "1:1: " + qvDomTooLarge();
  std::string failure;
  if (!qvDomReadPlain(kept, *made)) {
    auto parsed = std::make_unique<QvDomDocument>();
    failure = qvDomRead(kept, *parsed);
    made = std::move(parsed);
  }
  if (failure.empty())
    document = std::move(made);
  return failure;
}

// A refused file is too large, or in a state that may pass.
std::string readFailure(const QvbString& path, int code) {
  NpFileStat stat{};
  const bool tooLarge = code == NP_FIO_REFUSED && np_fio_stat(path, &stat) == NP_FIO_OK &&
                        stat.size > static_cast<std::int64_t>(QvDom::MaxSize);
  return tooLarge ? qvDomTooLarge() : np_fio_errdesc(code);
}

// Made while there is memory.
const QvbString outOfMemory("out of memory");

QvbString textOf(const std::string& failure) {
  return failure.empty() ? QvbString() : QvbString(std::string_view(failure));
}

QvbString textOf(const QvbString& path, std::string_view separator, const std::string& failure) {
  return failure.empty() ? QvbString()
                         : QvbString(path.view()).append(separator).append(std::string_view(failure));
}

// What the operation answers: null, or why it failed. A failure of memory is one of its failures.
template<typename Operation>
QvbString failureOf(const Operation& operation) {
  try {
    return operation();
  } catch (const std::bad_alloc&) {
    return outOfMemory;
  }
}

} // namespace

QvDom::QvDom() = default;
QvDom::~QvDom() = default;
QvDom::QvDom(QvDom&& other) noexcept = default;
QvDom& QvDom::operator=(QvDom&& other) noexcept = default;

bool QvDom::startNewDocument(const QvbString& rootName) {
  m_document.reset();
  m_error = failureOf([&] {
    if (!qvDomIsName(rootName.view()))
      return textOf("\"" + std::string(rootName.view()) + "\" is not a name that XML allows");
    auto made = std::make_unique<QvDomDocument>();
    made->addElement(nullptr, rootName.view());
    m_document = std::move(made);
    return QvbString();
  });
  return m_error.isNull();
}

bool QvDom::loadFile(const QvbString& path) {
  std::string content;
  return readFile(path, &content) && loadContent(path, std::move(content));
}

bool QvDom::readFile(const QvbString& path, std::string* content) {
  m_document.reset();
  m_error = failureOf([&] {
    const int code = npfio::readAll(path, static_cast<std::int64_t>(QvDom::MaxSize), content);
    return code ? textOf(path, ": ", readFailure(path, code)) : QvbString();
  });
  return m_error.isNull();
}

bool QvDom::loadContent(const QvbString& path, std::string content) {
  m_error = failureOf([&] { return textOf(path, ":", parse(std::move(content), m_document)); });
  return m_error.isNull();
}

bool QvDom::loadXML(const QvbString& text) {
  m_document.reset();
  m_error = failureOf([&] { return textOf(parse(text, m_document)); });
  return m_error.isNull();
}

QvDomNode QvDom::getRoot() const noexcept {
  return m_document ? QvDomNode(m_document.get(), m_document->root()) : QvDomNode();
}

QvbString QvDom::createXML(bool layout, const QvDomNode& node, const QvbString& prolog) const {
  if (node.null())
    return {};
  std::string xml(prolog.view());
  return qvDomWrite(*node.m_data, layout, xml).empty() ? QvbString(std::string_view(xml)) : QvbString();
}

bool QvDom::createFile(const QvbString& path, bool layout, const QvDomNode& node) {
  m_error = failureOf([&] {
    if (!isElement(node.m_data))
      return textOf(path, ": ", "there is no element to write");
    std::string xml = declaration;
    if (layout)
      xml += '\n';
    if (const auto failure = qvDomWrite(*node.m_data, layout, xml); !failure.empty())
      return textOf(path, ": ", failure);
    const int code = npfio::writeAll(path, xml);
    return code == NP_FIO_OK ? QvbString() : textOf(path, ": ", np_fio_errdesc(code));
  });
  return m_error.isNull();
}

QvbString QvDom::getErrorMessage() const { return m_error; }
