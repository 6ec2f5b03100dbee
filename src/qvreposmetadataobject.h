// The metadata object and the list that hands objects out.
#pragma once

#include "listcursor.h"
#include "qvreposcontainment.h"
#include "qvreposres/qvreposserialize.h"

#include <map>
#include <memory>
#include <optional>
#include <unordered_set>
#include <vector>

// Objects in the order they were added, each once.
class MetadataObjectSequence {
public:
  // False for an object that is there already.
  bool add(RepositoryMetadataObject* object);
  // For an object that is known not to be there. After makeRoom() it needs no memory.
  void append(RepositoryMetadataObject* object) { m_objects.push_back(object); }
  void makeRoom();
  bool contains(RepositoryMetadataObject* object);
  // Forgets the objects after the first ones.
  void shorten(std::size_t count) noexcept;
  const std::vector<RepositoryMetadataObject*>& objects() const { return m_objects; }

  // Taking the sequence apart, its first object first; null when none is left. Nothing is added any more.
  RepositoryMetadataObject* takeNext() noexcept;

private:
  std::vector<RepositoryMetadataObject*> m_objects;
  std::size_t m_taken = 0;
  // Made for a sequence too long to be searched; it holds as many of the first objects as were there at the last search.
  std::unique_ptr<std::unordered_set<RepositoryMetadataObject*>> m_index;
};

// A document that this thread is writing: what lives within another one, as the writing of an object within that of the
// document does, counts for the outermost. It bounds what is written, and with it the work: a few objects that are
// contained at many places would fill any memory.
class MetadataWriting {
public:
  static constexpr std::size_t MaxObjects = std::size_t{1} << 24;

  MetadataWriting() noexcept {
    if (state().depth++ == 0)
      state() = {.depth = 1};
  }
  ~MetadataWriting() { --state().depth; }
  MetadataWriting(const MetadataWriting&) = delete;
  MetadataWriting& operator=(const MetadataWriting&) = delete;

  bool isOutermost() const noexcept { return state().depth == 1; }
  // So many objects more, or text that takes so many bytes.
  void countObjects(std::size_t count = 1) noexcept { state().objects += count; }
  void countBytes(std::size_t count) noexcept { state().bytes += count; }
  // So many objects are to come.
  void expectObjects(std::size_t count) noexcept { state().areTooMany |= count > MaxObjects; }
  bool isTooLarge() const noexcept {
    return state().areTooMany || state().objects > MaxObjects || state().bytes > QvDom::MaxSize;
  }

private:
  struct State {
    std::size_t depth = 0;
    std::size_t objects = 0;
    std::size_t bytes = 0;
    bool areTooMany = false;
  };

  static State& state() noexcept {
    thread_local constinit State ofThisThread;
    return ofThisThread;
  }
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
  QVREPOSRES_HIDDEN void hold() noexcept { ++m_holders; }
  // Ends the hold without ending the object.
  QVREPOSRES_HIDDEN void letGo() noexcept { --m_holders; }
  QVREPOSRES_HIDDEN void letGoAndRelease() noexcept;

  // Taking back what was added: an attribute gets its earlier value, or none, and the sequences their earlier length.
  QVREPOSRES_HIDDEN void restoreAttribute(const QvbString& name, std::optional<QvbString> value) noexcept;
  QVREPOSRES_HIDDEN void restoreAssociated(const QvbString& association, std::size_t count) noexcept;
  QVREPOSRES_HIDDEN void restoreContained(std::size_t count) noexcept;
  QVREPOSRES_HIDDEN std::size_t associatedCount(const QvbString& association) const noexcept;
  QVREPOSRES_HIDDEN std::size_t containedCount() const noexcept { return m_contained.objects().size(); }

private:
  struct QVREPOSRES_HIDDEN WrittenLevel;

  QVREPOSRES_HIDDEN bool attributeText(const QvbString& name, QvbString* text);
  QVREPOSRES_HIDDEN RepositoryMetadataObjectImpl*
  letGoOfContained(RepositoryMetadataObject* contained) noexcept;
  QVREPOSRES_HIDDEN void writeAttributes(QvDomNode& node, MetadataWriting& writing) const;
  QVREPOSRES_HIDDEN void writeAssociationsAndValue(QvDomNode& node, MetadataWriting& writing) const;

  QvbString m_objectType;
  QvbString m_value = "";
  std::map<QvbString, QvbString> m_attributes;
  std::map<QvbString, MetadataObjectSequence> m_associated;
  MetadataObjectSequence m_contained;
  QvbString m_id = "";
  unsigned m_holders = 0;
  // Where the object stands among all that contain it and that it contains. Objects of foreign classes have no place.
  ContainmentNode m_place;
  // The object whose end is what ends this one.
  RepositoryMetadataObjectImpl* m_endedBy = nullptr;
};

class QVREPOSRES_API RepositoryMetadataObjectListImpl : public RepositoryMetadataObjectList {
public:
  RepositoryMetadataObjectListImpl() = default;
  QVREPOSRES_HIDDEN explicit RepositoryMetadataObjectListImpl(
      const std::vector<RepositoryMetadataObject*>& objects)
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
