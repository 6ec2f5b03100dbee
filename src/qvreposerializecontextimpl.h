// The serialization context: a graph of metadata objects, its XML, and what goes beside it.
#pragma once

#include "qvreposmetadataobject.h"
#include "qvxlog/qvlog.h"

#include <functional>
#include <unordered_map>

class QVREPOSRES_API RepositorySerializationContextImpl : public RepositorySerializationContext {
public:
  RepositorySerializationContextImpl();
  RepositorySerializationContextImpl(const RepositorySerializationContextImpl&) = delete;
  RepositorySerializationContextImpl& operator=(const RepositorySerializationContextImpl&) = delete;

  RepositoryMetadataObject* getMetadataObject(const QvbString& objectType, const QvbString& id) override;
  RepositoryMetadataObject* getMetadataObjectByAttribute(const QvbString& objectType,
                                                         const QvbString& attributeName,
                                                         const QvbString& attributeValue) override;
  void release() override { delete this; }
  bool serialize(RepositoryMetadataObject* object, QvbString* xml, QvbString* message, bool layout) override;
  RepositoryMetadataObject* deSerialize(const QvbString& xml, QvbString* message) override;
  bool addImportProperty(RepositoryMetadataObject* object, const QvbString& name,
                         const QvbString& value) override;
  bool addImportPropertyAsInt(RepositoryMetadataObject* object, const QvbString& name, int value) override;
  bool getImportProperty(RepositoryMetadataObject* object, const QvbString& name, QvbString* value) override;
  bool getImportPropertyAsInt(RepositoryMetadataObject* object, const QvbString& name, int* value) override;
  bool clear() override;
  bool setEventObjectInfo(const QvbString& path, const QvbString& objectType) override;
  bool setEventHandler(RepositoryActionEvent* handler) override;
  int logEvent(RepositoryActionLogStatus status, const QvbString& message) override;
  bool setSerializationOfRelationships(bool on) override;
  RepositoryMetadataObject* createMetadataObject(const QvbString& objectType) override;
  virtual ~RepositorySerializationContextImpl();

  // The object of this id when it has this type, else null.
  RepositoryMetadataObject* findMetadataObject(const QvbString& objectType, const QvbString& id);
  // The object that the element stands for, with everything below the element read into it; null for an element without
  // an id. `rootId`, while it is empty, becomes the object's id. `message` is never looked at.
  RepositoryMetadataObject* readObjectFromNode(QvbString* rootId, QvDomNode* node, QvbString* message);

private:
  using Objects = std::map<QvbString, RepositoryMetadataObjectImpl*>;
  class QVREPOSRES_HIDDEN Reading;

  template<class Operation>
  QVREPOSRES_HIDDEN RepositoryMetadataObject* readWhole(const Operation& operation);
  QVREPOSRES_HIDDEN void forget(const QvbString& id, RepositoryMetadataObject* object) noexcept;
  QVREPOSRES_HIDDEN bool writeObjects(QvDomNode& root, RepositoryMetadataObject& object) const;
  QVREPOSRES_HIDDEN QvDomNode findContainer(const QvDomNode& root) const;
  QVREPOSRES_HIDDEN RepositoryMetadataObject* readObjects(const QvDomNode& container, QvbString* message);
  QVREPOSRES_HIDDEN RepositoryMetadataObject* readObject(QvbString* rootId, const QvDomNode& node);
  QVREPOSRES_HIDDEN void readAttributes(RepositoryMetadataObject* object, const QvDomNode& node);
  QVREPOSRES_HIDDEN void readContent(RepositoryMetadataObject* object, QvbString* rootId,
                                     const QvDomNode& node);
  QVREPOSRES_HIDDEN void readAssociation(RepositoryMetadataObject* object, QvbString* rootId,
                                         const QvDomNode& association);
  QVREPOSRES_HIDDEN void forgetAll() noexcept;

  QvLog m_log;
  bool m_relationships = false;
  Objects m_objects;
  std::map<QvbString, std::map<QvbString, QvbString>> m_importProperties;
  RepositoryActionEvent* m_eventHandler = nullptr;
  QvbString m_eventObjectInfo = "";
  // Objects that lost their id to another type within the document that made them: nobody but the context knows them.
  std::vector<RepositoryMetadataObjectImpl*> m_displaced;
  // Null while nothing is read.
  Reading* m_reading = nullptr;
};
