// The metadata object and the list that hands objects out.
#pragma once

#include "listcursor.h"
#include "qvreposres/qvreposserialize.h"

#include <map>
#include <memory>
#include <unordered_set>
#include <vector>

// Objects in the order they were added, each once.
class MetadataObjectSequence {
public:
  // False for an object that is there already.
  bool add(RepositoryMetadataObject* object);
  // For an object that is known not to be there.
  void append(RepositoryMetadataObject* object) { m_objects.push_back(object); }
  bool contains(RepositoryMetadataObject* object);
  const std::vector<RepositoryMetadataObject*>& objects() const { return m_objects; }

  // Taking the sequence apart, its last object first; null when none is left. Nothing is added any more.
  void reverse() noexcept;
  RepositoryMetadataObject* takeLast() noexcept;

private:
  std::vector<RepositoryMetadataObject*> m_objects;
  // Made for a sequence too long to be searched; it holds as many of the first objects as were there at the last search.
  std::unique_ptr<std::unordered_set<RepositoryMetadataObject*>> m_index;
};

// An object may be held by several owners at once: by parents, and by the context that made it. release() destroys it
// unless one of them still holds it; the last owner that lets go destroys it then. Objects of foreign classes are owned
// by their parent alone.
class QVREPOSRES_API RepositoryMetadataObjectImpl : public RepositoryMetadataObject {
public:
  RepositoryMetadataObjectImpl() : RepositoryMetadataObjectImpl("File") {}
  explicit RepositoryMetadataObjectImpl(const QvbString& objectType) : m_objectType(objectType) {}
  RepositoryMetadataObjectImpl(const RepositoryMetadataObjectImpl&) = delete;
  RepositoryMetadataObjectImpl& operator=(const RepositoryMetadataObjectImpl&) = delete;

  bool addAttribute(const QvbString& name, const QvbString& value) override;
  bool getAttribute(const QvbString& name, QvbString* value) override;
  bool getAttributeAsInt(const QvbString& name, int* value) override;
  bool getAttributeAsDouble(const QvbString& name, double* value) override;
  bool getAttributeAsBool(const QvbString& name, bool* value) override;
  bool addAssociatedObject(const QvbString& association, RepositoryMetadataObject* object) override;
  RepositoryMetadataObjectList* getAssociatedObjects(const QvbString& association) override;
  const QvbString& getId() override { return m_id; }
  void setId(const QvbString& id) override;
  const QvbString& getObjectType() override { return m_objectType; }
  void setObjectType(const QvbString& type) override { m_objectType = type; }
  void release() override;
  bool toXML(QvDomNode* node) override;
  bool addContainedObject(RepositoryMetadataObject* object) override;
  RepositoryMetadataObjectList* getContainedObjects() override;
  bool setValue(const QvbString& value) override;
  virtual ~RepositoryMetadataObjectImpl();

  // For a further owner of the object.
  void hold() noexcept { ++m_holders; }
  // Ends the hold without ending the object.
  void letGo() noexcept { --m_holders; }
  void letGoAndRelease() noexcept;

  bool containsDirectly(RepositoryMetadataObject* object) { return m_contained.contains(object); }
  // Whether this object or one that it contains, at any depth, is among the given ones.
  bool reachesAny(const std::unordered_set<RepositoryMetadataObject*>& objects);

private:
  struct WrittenLevel;

  static bool mayBeContained(RepositoryMetadataObject* object);
  bool reaches(RepositoryMetadataObjectImpl* object);
  bool attributeText(const QvbString& name, QvbString* text);
  RepositoryMetadataObjectImpl* endNextContained() noexcept;
  void writeAttributes(QvDomNode& node) const;
  void writeAssociationsAndValue(QvDomNode& node) const;

  QvbString m_objectType;
  QvbString m_value;
  std::map<QvbString, QvbString> m_attributes;
  std::map<QvbString, MetadataObjectSequence> m_associated;
  MetadataObjectSequence m_contained;
  QvbString m_id;
  unsigned m_holders = 0;
  unsigned m_parents = 0; // of the holders
  // The object whose end is what ends this one.
  RepositoryMetadataObjectImpl* m_endedBy = nullptr;
};

class QVREPOSRES_API RepositoryMetadataObjectListImpl : public RepositoryMetadataObjectList {
public:
  RepositoryMetadataObjectListImpl() = default;
  explicit RepositoryMetadataObjectListImpl(const std::vector<RepositoryMetadataObject*>& objects)
      : m_objects(objects) {}

  bool next() override { return m_cursor.next(m_objects.size()); }
  RepositoryMetadataObject* getValue() override { return getValue(0); }
  void release() override { delete this; }
  bool addRow() override { return true; }
  void setLastRowElement(unsigned long column, RepositoryMetadataObject* object) override;
  bool contains(RepositoryMetadataObject* object) override;
  virtual ~RepositoryMetadataObjectListImpl() = default;

  RepositoryMetadataObject* getValue(unsigned long column) const;
  // Appends the objects of the other list from its cursor on.
  bool copyList(RepositoryMetadataObjectList* other);

private:
  static constexpr unsigned long ColumnCount = 1;

  std::vector<RepositoryMetadataObject*> m_objects;
  ListCursor m_cursor;
};
