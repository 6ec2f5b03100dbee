#include "qvreposmetadataobject.h"

#include "guards.h"
#include "qvxbase/qvbdatavar.h"

#include <algorithm>
#include <typeinfo>

namespace {

constexpr std::size_t longestSearchedSequence = 16;
// After so many objects it is worth counting whether they will be too many.
constexpr std::size_t writtenUncounted = 65536;

// An object whose toXML() is the class's own, so that its writing can be looped over instead of called.
RepositoryMetadataObjectImpl* plainObject(RepositoryMetadataObject* object) {
  return typeid(*object) == typeid(RepositoryMetadataObjectImpl)
             ? static_cast<RepositoryMetadataObjectImpl*>(object)
             : nullptr;
}

// What they take in a document at least.
std::size_t sizeOf(const QvbString& element) {
  return std::string_view("</>").size() + element.view().size();
}
std::size_t sizeOf(std::string_view attribute, std::string_view value) {
  return attribute.size() + value.size() + std::string_view(" =''").size();
}

RepositoryMetadataObjectList* newList(const std::vector<RepositoryMetadataObject*>& objects) {
  return new RepositoryMetadataObjectListImpl(objects);
}

} // namespace

bool MetadataObjectSequence::contains(RepositoryMetadataObject* object) {
  if (m_objects.size() <= longestSearchedSequence)
    return std::find(m_objects.begin(), m_objects.end(), object) != m_objects.end();
  if (!m_index)
    m_index = std::make_unique<std::unordered_set<RepositoryMetadataObject*>>();
  for (std::size_t i = m_index->size(); i < m_objects.size(); ++i)
    m_index->insert(m_objects[i]);
  return m_index->count(object) != 0;
}

bool MetadataObjectSequence::add(RepositoryMetadataObject* object) {
  if (contains(object))
    return false;
  append(object);
  return true;
}

void MetadataObjectSequence::makeRoom() {
  if (m_objects.size() == m_objects.capacity())
    m_objects.reserve(std::max<std::size_t>(1, 2 * m_objects.size()));
}

void MetadataObjectSequence::shorten(std::size_t count) noexcept {
  m_objects.resize(std::min(count, m_objects.size()));
  if (m_index && m_index->size() > m_objects.size())
    m_index.reset();
}

RepositoryMetadataObject* MetadataObjectSequence::takeNext() noexcept {
  return m_taken < m_objects.size() ? m_objects[m_taken++] : nullptr;
}

// Trees of any depth end without recursion. The walk takes the contents out of an object one by one. What nobody else
// holds ends with it: the walk goes down into it, empties it, ends it and comes back to the object whose end is its end.
// What another parent or the context holds, too, is let go and lives on.
//
// Example: A contains B and C, and B contains D. The walk takes B out of A and goes down, takes D out of B and goes down,
// finds D empty and ends it, comes back to B, finds B empty now and ends it, and comes back to A for C. D, B, C and A end
// in this order.
RepositoryMetadataObjectImpl::~RepositoryMetadataObjectImpl() {
  m_place.clear();
  for (RepositoryMetadataObjectImpl* ending = this; ending;) {
    if (RepositoryMetadataObject* next = ending->m_contained.takeNext()) {
      if (RepositoryMetadataObjectImpl* contained = ending->letGoOfContained(next))
        ending = contained;
    } else {
      RepositoryMetadataObjectImpl& emptied = *ending;
      ending = ending == this ? nullptr : ending->m_endedBy;
      if (ending)
        emptied.release();
    }
  }
}

// The object itself when that leaves it without a holder, for its parent to end it.
RepositoryMetadataObjectImpl*
RepositoryMetadataObjectImpl::letGoOfContained(RepositoryMetadataObject* contained) noexcept {
  auto* object = dynamic_cast<RepositoryMetadataObjectImpl*>(contained);
  if (!object) {
    contained->release();
    return nullptr;
  }
  object->letGo();
  if (object->m_holders != 0)
    return nullptr;
  object->m_endedBy = this;
  object->m_place.clear();
  return object;
}

void RepositoryMetadataObjectImpl::release() {
  if (m_holders == 0)
    delete this;
}

void RepositoryMetadataObjectImpl::letGoAndRelease() noexcept {
  letGo();
  release();
}

bool RepositoryMetadataObjectImpl::addAttribute(const QvbString& name, const QvbString& value) {
  m_attributes.insert_or_assign(name, value);
  return true;
}

bool RepositoryMetadataObjectImpl::getAttribute(const QvbString& name, QvbString* value) {
  const auto found = m_attributes.find(name);
  if (found == m_attributes.end() || !value)
    return false;
  *value = found->second;
  return true;
}

bool RepositoryMetadataObjectImpl::attributeText(const QvbString& name, QvbString* text) {
  return getAttribute(name, text) && !text->isEmpty();
}

bool RepositoryMetadataObjectImpl::getAttributeAsInt(const QvbString& name, int* value) {
  QvbString text;
  if (!value || !attributeText(name, &text))
    return false;
  *value = text.asInt();
  return true;
}

bool RepositoryMetadataObjectImpl::getAttributeAsDouble(const QvbString& name, double* value) {
  QvbString text;
  if (!value || !attributeText(name, &text))
    return false;
  *value = text.asDouble();
  return true;
}

bool RepositoryMetadataObjectImpl::getAttributeAsBool(const QvbString& name, bool* value) {
  QvbString text;
  if (!value || !attributeText(name, &text))
    return false;
  QvbDatavar variant;
  variant.setType(QvbDatavar::TypeText);
  variant.assign(text);
  *value = variant.asBool();
  return true;
}

// Kept: MetadataObject.FirstAssociatedObjectIsAddedWithTheResultFalse
bool RepositoryMetadataObjectImpl::addAssociatedObject(const QvbString& association,
                                                       RepositoryMetadataObject* object) {
  if (!object)
    return false;
  if (const auto known = m_associated.find(association); known != m_associated.end())
    return known->second.add(object);
  MetadataObjectSequence first;
  first.append(object);
  m_associated.emplace(association, std::move(first));
  return false;
}

RepositoryMetadataObjectList*
RepositoryMetadataObjectImpl::getAssociatedObjects(const QvbString& association) {
  const auto found = m_associated.find(association);
  return found == m_associated.end() ? newList({}) : newList(found->second.objects());
}

void RepositoryMetadataObjectImpl::setId(const QvbString& id) {
  QvbString earlier = id; // which may be this object's own
  std::swap(m_id, earlier);
  try {
    addAttribute("Id", id);
  } catch (...) {
    m_id = std::move(earlier);
    throw;
  }
}

void RepositoryMetadataObjectImpl::restoreAttribute(const QvbString& name,
                                                    std::optional<QvbString> value) noexcept {
  const auto found = m_attributes.find(name);
  if (found == m_attributes.end())
    return;
  if (value)
    found->second = std::move(*value);
  else
    m_attributes.erase(found);
}

std::size_t RepositoryMetadataObjectImpl::associatedCount(const QvbString& association) const noexcept {
  const auto found = m_associated.find(association);
  return found == m_associated.end() ? 0 : found->second.objects().size();
}

void RepositoryMetadataObjectImpl::restoreAssociated(const QvbString& association,
                                                     std::size_t count) noexcept {
  const auto found = m_associated.find(association);
  if (found == m_associated.end())
    return;
  if (count == 0)
    m_associated.erase(found);
  else
    found->second.shorten(count);
}

void RepositoryMetadataObjectImpl::restoreContained(std::size_t count) noexcept {
  while (containedCount() > count) {
    RepositoryMetadataObject* last = m_contained.objects().back();
    if (auto* held = dynamic_cast<RepositoryMetadataObjectImpl*>(last)) {
      m_place.removeLast();
      held->letGo();
    }
    m_contained.shorten(containedCount() - 1);
  }
}

// An object without a parent is not looked for among the contained ones, however many there are.
bool RepositoryMetadataObjectImpl::addContainedObject(RepositoryMetadataObject* object) {
  auto* held = dynamic_cast<RepositoryMetadataObjectImpl*>(object);
  const bool isFree = held && !held->m_place.isContained();
  if (!object || (!isFree && m_contained.contains(object)))
    return false;
  m_contained.makeRoom();
  if (held && !m_place.add(held->m_place))
    return false;
  m_contained.append(object);
  if (held)
    held->hold();
  return true;
}

RepositoryMetadataObjectList* RepositoryMetadataObjectImpl::getContainedObjects() {
  return newList(m_contained.objects());
}

bool RepositoryMetadataObjectImpl::setValue(const QvbString& value) {
  m_value = value;
  return true;
}

struct RepositoryMetadataObjectImpl::WrittenLevel {
  RepositoryMetadataObject* next() {
    const auto& contained = object->m_contained.objects();
    return nextContained < contained.size() ? contained[nextContained++] : nullptr;
  }

  RepositoryMetadataObjectImpl* object;
  QvDomNode node;
  std::size_t nextContained = 0;
};

void RepositoryMetadataObjectImpl::writeAttributes(QvDomNode& node, MetadataWriting& writing) const {
  for (const auto& [name, value] : m_attributes) {
    if (writing.isTooLarge())
      return;
    node.setAttributeValue(name, value);
    writing.countBytes(sizeOf(name.view(), value.view()));
  }
}

void RepositoryMetadataObjectImpl::writeAssociationsAndValue(QvDomNode& node,
                                                             MetadataWriting& writing) const {
  for (const auto& [name, associated] : m_associated) {
    QvDomNode association = node.addChild(name);
    writing.countBytes(sizeOf(name));
    for (RepositoryMetadataObject* object : associated.objects()) {
      if (writing.isTooLarge())
        return;
      association.addChild(object->getObjectType()).setAttributeValue("ObjRef", object->getId());
      writing.countBytes(sizeOf(object->getObjectType()) + sizeOf("ObjRef", object->getId().view()));
    }
  }
  if (!m_value.isEmpty())
    node.setValue(m_value);
  writing.countBytes(m_value.view().size());
}

// The levels of the tree that are being written stand in a vector of their own, so that no depth is too deep. Only
// objects of other classes are written through a call. What has no element is not gone into.
// Kept: MetadataObject.ResultOfWritingIsThatOfTheLastContainedObject
bool RepositoryMetadataObjectImpl::toXML(QvDomNode* node) {
  if (!node)
    return false;
  MetadataWriting writing;
  if (writing.isOutermost())
    writing.countObjects();
  writeAttributes(*node, writing);
  std::vector<WrittenLevel> levels{{this, *node}};
  bool result = true;
  std::size_t written = 0;
  while (!levels.empty() && !writing.isTooLarge()) {
    WrittenLevel& level = levels.back();
    if (RepositoryMetadataObject* contained = level.next()) {
      if (++written == writtenUncounted)
        writing.expectObjects(m_place.places(MetadataWriting::MaxObjects));
      QvDomNode child = level.node.addChild(contained->getObjectType());
      writing.countObjects();
      writing.countBytes(sizeOf(contained->getObjectType()));
      RepositoryMetadataObjectImpl* plain = plainObject(contained);
      result = plain || contained->toXML(&child);
      if (plain && !child.null()) {
        plain->writeAttributes(child, writing);
        levels.push_back({plain, child});
      }
    } else {
      level.object->writeAssociationsAndValue(level.node, writing);
      levels.pop_back();
    }
  }
  return result && !writing.isTooLarge();
}

void RepositoryMetadataObjectListImpl::setLastRowElement(unsigned long, RepositoryMetadataObject* object) {
  m_objects.push_back(object);
}

RepositoryMetadataObject* RepositoryMetadataObjectListImpl::getValue(unsigned long column) const {
  return m_cursor.onRow() && column < ColumnCount ? m_objects[m_cursor.row()] : nullptr;
}

// Kept: MetadataObjectList.SearchingMovesAnIterationInProgress
bool RepositoryMetadataObjectListImpl::contains(RepositoryMetadataObject* object) {
  const auto match = std::find_if(m_objects.begin(), m_objects.end(), [&](RepositoryMetadataObject* element) {
    return object && element && qvbEqualsIgnoreCase(element->getId().view(), object->getId().view());
  });
  m_cursor.place(static_cast<std::size_t>(match - m_objects.begin()) + 1, m_objects.size());
  return match != m_objects.end();
}

bool RepositoryMetadataObjectListImpl::copyList(RepositoryMetadataObjectList* other) {
  return copyRows(*this, *other, m_cursor, m_objects.size(),
                  [&] { setLastRowElement(0, other->getValue()); });
}

extern "C" RepositoryMetadataObject* createRepositoryMetadataObject(const char* objectType) {
  return new RepositoryMetadataObjectImpl(objectType ? objectType : "");
}
