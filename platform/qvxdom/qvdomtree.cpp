#include "qvxdom/private/qvdomtree.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>
#include <type_traits>
#include <utility>

namespace {

constexpr std::uint32_t longestSearched = 16; // of the attributes of an element, without an index

bool isBlank(std::string_view text) { return text.find_first_not_of(" \t\r\n") == std::string_view::npos; }

std::string_view copyOf(std::string_view text, std::pmr::memory_resource& arena) {
  if (text.empty())
    return {};
  auto* bytes = static_cast<char*>(arena.allocate(text.size(), 1));
  std::memcpy(bytes, text.data(), text.size());
  return {bytes, text.size()};
}

} // namespace

const QvbString& QvDomName::asString() const {
  if (m_shared.isNull())
    m_shared = QvbString(m_text);
  return m_shared;
}

QvDomNames::~QvDomNames() {
  for (std::size_t i = 0; i < m_bucketCount; ++i)
    for (auto* name = m_buckets[i]; name;)
      std::exchange(name, name->m_next)->~QvDomName();
}

QvDomName*& QvDomNames::bucketOf(std::string_view name) const noexcept {
  return m_buckets[std::hash<std::string_view>()(name) & (m_bucketCount - 1)];
}

const QvDomName* QvDomNames::find(std::string_view name) const noexcept {
  const auto* known = bucketOf(name);
  while (known && known->m_text != name)
    known = known->m_next;
  return known;
}

const QvDomName* QvDomNames::intern(std::string_view name, bool lasts) {
  if (const auto* known = find(name))
    return known;
  if (m_count == 2 * m_bucketCount)
    grow();
  const auto text = lasts ? name : copyOf(name, m_arena);
  auto* added = new (m_arena.allocate(sizeof(QvDomName), alignof(QvDomName))) QvDomName(text);
  added->m_next = std::exchange(bucketOf(name), added);
  ++m_count;
  return added;
}

void QvDomNames::grow() {
  const auto formerCount = m_bucketCount;
  const auto count = 4 * formerCount;
  auto* buckets = std::pmr::polymorphic_allocator<QvDomName*>(&m_arena).allocate(count);
  std::fill_n(buckets, count, nullptr);
  m_bucketCount = count;
  auto* former = std::exchange(m_buckets, buckets);
  for (std::size_t i = 0; i < formerCount; ++i)
    while (auto* name = former[i]) {
      former[i] = name->m_next;
      name->m_next = std::exchange(bucketOf(name->m_text), name);
    }
}

bool QvDomNodeData::holdsText() const noexcept {
  for (const auto* child = firstChild; child; child = child->next)
    if (child->isText())
      return true;
  return false;
}

template<typename T>
T* QvDomDocument::allocate(std::size_t count) {
  static_assert(std::is_trivially_destructible_v<T>, "the arena destroys nothing");
  return static_cast<T*>(m_arena.allocate(count * sizeof(T), alignof(T)));
}

std::string_view QvDomDocument::store(std::string_view text) { return copyOf(text, m_arena); }

std::string_view QvDomDocument::keep(QvbString text) noexcept {
  m_shared = std::move(text);
  return m_shared.view();
}

std::string_view QvDomDocument::keep(std::string text) noexcept {
  m_bytes = std::move(text);
  return m_bytes;
}

void QvDomDocument::link(QvDomNodeData* parent, QvDomNodeData* previous, QvDomNodeData* node) noexcept {
  node->parent = parent;
  auto*& place = previous ? previous->next : parent->firstChild;
  node->next = place;
  place = node;
  if (parent->lastChild == previous)
    parent->lastChild = node;
}

QvDomNodeData* QvDomDocument::addElement(QvDomNodeData* parent, std::string_view name, bool lasts) {
  auto* element = new (allocate<QvDomNodeData>()) QvDomNodeData;
  element->name = m_names.intern(name, lasts);
  if (parent)
    link(parent, parent->lastChild, element);
  else
    m_root = element;
  return element;
}

QvDomNodeData* QvDomDocument::makeText(std::string_view text, bool lasts) {
  auto* run = new (allocate<QvDomNodeData>()) QvDomNodeData;
  run->text = lasts ? text : store(text);
  return run;
}

void QvDomDocument::insertText(QvDomNodeData* parent, QvDomNodeData* previous, std::string_view text,
                               bool lasts) {
  link(parent, previous, makeText(text, lasts));
}

void QvDomDocument::replaceTexts(QvDomNodeData* element, std::string_view text) {
  auto* run = text.empty() ? nullptr : makeText(text, false);
  removeTexts(element);
  if (run)
    link(element, element->lastChild, run);
}

void QvDomDocument::removeTexts(QvDomNodeData* element) noexcept {
  QvDomNodeData* kept = nullptr;
  auto** place = &element->firstChild;
  while (auto* child = *place) {
    if (child->isText()) {
      *place = child->next;
    } else {
      kept = child;
      place = &child->next;
    }
  }
  element->lastChild = kept;
}

void QvDomDocument::reserveAttributes(QvDomNodeData* element, std::size_t count) {
  if (count <= element->attributeCapacity)
    return;
  if (count > std::numeric_limits<std::uint32_t>::max())
    throw std::bad_alloc();
  auto* grown = allocate<QvDomAttribute>(count);
  std::copy_n(element->attributes, element->attributeCount, grown);
  element->attributes = grown;
  element->attributeCapacity = static_cast<std::uint32_t>(count);
}

void QvDomDocument::addAttribute(QvDomNodeData* element, std::string_view name, std::string_view value) {
  if (element->attributeCount == element->attributeCapacity)
    reserveAttributes(element, std::max<std::size_t>(4, std::size_t{2} * element->attributeCapacity));
  element->attributes[element->attributeCount] = {m_names.intern(name, false), store(value)};
  ++element->attributeCount;
}

void QvDomDocument::addLastingAttribute(QvDomNodeData* element, std::string_view name,
                                        std::string_view value) {
  element->attributes[element->attributeCount] = {m_names.intern(name, true), value};
  ++element->attributeCount;
}

QvDomAttribute* QvDomDocument::findAttribute(const QvDomNodeData* element, std::string_view name) {
  if (element->attributeCount > longestSearched)
    return findIndexedAttribute(element, name);
  const auto end = element->attributes + element->attributeCount;
  const auto found = std::find_if(element->attributes, end,
                                  [&](const auto& attribute) { return attribute.name->view() == name; });
  return found == end ? nullptr : found;
}

QvDomAttribute* QvDomDocument::findIndexedAttribute(const QvDomNodeData* element, std::string_view name) {
  const auto* known = m_names.find(name);
  if (!known)
    return nullptr;
  auto& index = m_attributeIndexes[element];
  for (auto i = static_cast<std::uint32_t>(index.size()); i < element->attributeCount; ++i)
    index.emplace(element->attributes[i].name, i);
  const auto found = index.find(known);
  return found == index.end() ? nullptr : element->attributes + found->second;
}

QvDomNodeData* QvDomBuilder::open(std::string_view name, bool lasts) {
  auto* element = m_document.addElement(m_levels.empty() ? nullptr : m_levels.back().element, name, lasts);
  m_levels.push_back({element, m_blanks.size(), false});
  return element;
}

void QvDomBuilder::addRun(std::string_view text, bool lasts) {
  if (text.empty())
    return;
  auto& level = m_levels.back();
  if (level.holdsText || !isBlank(text)) {
    addText(level, text, lasts);
    return;
  }
  m_blanks.push_back({level.element->lastChild, m_blankText.size()});
  m_blankText += text;
}

void QvDomBuilder::close(std::string_view text, bool lasts) {
  auto& level = m_levels.back();
  if (!level.element->firstChild)
    level.holdsText = true;
  addRun(text, lasts);
  dropBlanks(level);
  m_levels.pop_back();
}

void QvDomBuilder::addText(Level& level, std::string_view text, bool lasts) {
  for (auto i = level.firstBlank; i < m_blanks.size(); ++i)
    m_document.insertText(level.element, m_blanks[i].previous, blankText(i));
  dropBlanks(level);
  level.holdsText = true;
  m_document.insertText(level.element, level.element->lastChild, text, lasts);
}

std::string_view QvDomBuilder::blankText(std::size_t index) const {
  const auto start = m_blanks[index].start;
  const auto end = index + 1 < m_blanks.size() ? m_blanks[index + 1].start : m_blankText.size();
  return std::string_view(m_blankText).substr(start, end - start);
}

void QvDomBuilder::dropBlanks(const Level& level) {
  if (m_blanks.size() == level.firstBlank)
    return;
  m_blankText.resize(m_blanks[level.firstBlank].start);
  m_blanks.resize(level.firstBlank);
}
