#include "qvreposmetadataobject.h"

#include "guards.h"
#include "qvxbase/qvbdatavar.h"

#include <algorithm>
#include <typeinfo>

namespace {

constexpr std::size_t longestSearchedSequence = 16;

// An object whose toXML() is the class's own, so that its writing can be looped over instead of called.
RepositoryMetadataObjectImpl* plainObject(RepositoryMetadataObject* object) {
  return typeid(*object) == typeid(RepositoryMetadataObjectImpl)
             ? static_cast<RepositoryMetadataObjectImpl*>(object)
             : nullptr;
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

void MetadataObjectSequence::reverse() noexcept { std::reverse(m_objects.begin(), m_objects.end()); }

RepositoryMetadataObject* MetadataObjectSequence::takeLast() noexcept {
  if (m_objects.empty())
    return nullptr;
  RepositoryMetadataObject* last = m_objects.back();
  m_objects.pop_back();
  return last;
}

// Trees of any depth end without recursion: each object that ends with its parent is emptied first, from the deepest
// level up, in the order of containment.
RepositoryMetadataObjectImpl::~RepositoryMetadataObjectImpl() {
  m_contained.reverse();
  for (RepositoryMetadataObjectImpl* ending = this;;) {
    if (!ending->m_contained.objects().empty()) {
      if (RepositoryMetadataObjectImpl* contained = ending->endNextContained())
        ending = contained;
    } else if (ending != this) {
      RepositoryMetadataObjectImpl& emptied = *ending;
      ending = ending->m_endedBy;
      emptied.release();
    } else {
      return;
    }
  }
}

// Lets go of the next contained object; the object itself when that leaves it without a holder.
RepositoryMetadataObjectImpl* RepositoryMetadataObjectImpl::endNextContained() noexcept {
  RepositoryMetadataObject* next = m_contained.takeLast();
  auto* object = dynamic_cast<RepositoryMetadataObjectImpl*>(next);
  if (!object) {
    if (next)
      next->release();
    return nullptr;
  }
  object->letGo();
  --object->m_parents;
  if (object->m_holders != 0)
    return nullptr;
  object->m_endedBy = this;
  object->m_contained.reverse();
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

bool RepositoryMetadataObjectImpl::addAssociatedObject(const QvbString& association,
                                                       RepositoryMetadataObject* object) {
  if (!object)
    return false;
  const auto [position, isNew] = m_associated.try_emplace(association);
  return position->second.add(object) && !isNew;
}

RepositoryMetadataObjectList*
RepositoryMetadataObjectImpl::getAssociatedObjects(const QvbString& association) {
  const auto found = m_associated.find(association);
  return found == m_associated.end() ? newList({}) : newList(found->second.objects());
}

void RepositoryMetadataObjectImpl::setId(const QvbString& id) {
  m_id = id;
  addAttribute("Id", id);
}

// An object without a parent is not looked for among the contained ones, however many there are.
bool RepositoryMetadataObjectImpl::addContainedObject(RepositoryMetadataObject* object) {
  auto* held = dynamic_cast<RepositoryMetadataObjectImpl*>(object);
  const bool isFree = held && held->m_parents == 0;
  if (!object || (!isFree && m_contained.contains(object)) || (held && held->reaches(this)))
    return false;
  m_contained.append(object);
  if (held) {
    held->hold();
    ++held->m_parents;
  }
  return true;
}

RepositoryMetadataObjectList* RepositoryMetadataObjectImpl::getContainedObjects() {
  return newList(m_contained.objects());
}

bool RepositoryMetadataObjectImpl::setValue(const QvbString& value) {
  m_value = value;
  return true;
}

bool RepositoryMetadataObjectImpl::mayBeContained(RepositoryMetadataObject* object) {
  const auto* own = dynamic_cast<RepositoryMetadataObjectImpl*>(object);
  return !own || own->m_parents != 0;
}

// Trees that grow by a leaf, or whose new top takes them in, are not walked.
bool RepositoryMetadataObjectImpl::reaches(RepositoryMetadataObjectImpl* object) {
  return object == this || (object->m_parents != 0 && !m_contained.objects().empty() && reachesAny({object}));
}

bool RepositoryMetadataObjectImpl::reachesAny(const std::unordered_set<RepositoryMetadataObject*>& objects) {
  if (objects.count(this) != 0)
    return true;
  if (m_contained.objects().empty() || std::none_of(objects.begin(), objects.end(), mayBeContained))
    return false;
  std::unordered_set<RepositoryMetadataObject*> seen{this};
  std::vector<RepositoryMetadataObject*> pending{this};
  while (!pending.empty()) {
    RepositoryMetadataObject* object = pending.back();
    pending.pop_back();
    if (objects.count(object) != 0)
      return true;
    if (const auto* parent = dynamic_cast<RepositoryMetadataObjectImpl*>(object))
      std::copy_if(parent->m_contained.objects().begin(), parent->m_contained.objects().end(),
                   std::back_inserter(pending),
                   [&](RepositoryMetadataObject* contained) { return seen.insert(contained).second; });
  }
  return false;
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

void RepositoryMetadataObjectImpl::writeAttributes(QvDomNode& node) const {
  for (const auto& [name, value] : m_attributes)
    node.setAttributeValue(name, value);
}

void RepositoryMetadataObjectImpl::writeAssociationsAndValue(QvDomNode& node) const {
  for (const auto& [name, associated] : m_associated) {
    QvDomNode association = node.addChild(name);
    for (RepositoryMetadataObject* object : associated.objects())
      association.addChild(object->getObjectType()).setAttributeValue("ObjRef", object->getId());
  }
  if (!m_value.isEmpty())
    node.setValue(m_value);
}

// The levels of the tree that are being written stand in a vector of their own, so that no depth is too deep. Only
// objects of other classes are written through a call. What an object of several parents contains is written once:
// otherwise a few levels of shared objects would fill any memory.
bool RepositoryMetadataObjectImpl::toXML(QvDomNode* node) {
  if (!node)
    return false;
  writeAttributes(*node);
  std::vector<WrittenLevel> levels{{this, *node}};
  std::unordered_set<RepositoryMetadataObjectImpl*> shared;
  bool result = true;
  while (!levels.empty()) {
    WrittenLevel& level = levels.back();
    if (RepositoryMetadataObject* contained = level.next()) {
      QvDomNode child = level.node.addChild(contained->getObjectType());
      if (RepositoryMetadataObjectImpl* plain = plainObject(contained)) {
        const bool isRepeated = plain->m_parents > 1 && !shared.insert(plain).second;
        plain->writeAttributes(child);
        levels.push_back({plain, child, isRepeated ? plain->m_contained.objects().size() : 0});
        result = true;
      } else {
        result = contained->toXML(&child);
      }
    } else {
      level.object->writeAssociationsAndValue(level.node);
      levels.pop_back();
    }
  }
  return result;
}

void RepositoryMetadataObjectListImpl::setLastRowElement(unsigned long, RepositoryMetadataObject* object) {
  m_objects.push_back(object);
}

RepositoryMetadataObject* RepositoryMetadataObjectListImpl::getValue(unsigned long column) const {
  return m_cursor.onRow() && column < ColumnCount ? m_objects[m_cursor.row()] : nullptr;
}

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
  return new RepositoryMetadataObjectImpl(objectType);
}
