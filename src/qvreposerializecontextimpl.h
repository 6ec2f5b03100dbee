// The serialization context: a graph of metadata objects, its XML, and what goes beside it.
#pragma once

#include "qvreposmetadataobject.h"

class QvLogger;

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
  // an id. `rootId`, while it is empty, becomes the object's id. `message` is handed on and never written.
  RepositoryMetadataObject* readObjectFromNode(QvbString* rootId, QvDomNode* node, QvbString* message);

private:
  using Objects = std::unordered_set<RepositoryMetadataObject*>;
  // An object, and whether its element made it.
  struct ReadObject {
    RepositoryMetadataObject* object = nullptr;
    bool isNew = false;
  };

  void displace(RepositoryMetadataObjectImpl* object);
  QvDomNode findContainer(const QvDomNode& root) const;
  RepositoryMetadataObject* readObjects(const QvDomNode& container, QvbString* message);
  ReadObject readObject(QvbString* rootId, const QvDomNode& node, QvbString* message);
  void readContent(RepositoryMetadataObject* object, QvbString* rootId, const QvDomNode& node,
                   QvbString* message);
  void readAssociation(RepositoryMetadataObject* object, QvbString* rootId, const QvDomNode& association,
                       QvbString* message);
  void contain(RepositoryMetadataObject& parent, const ReadObject& child);

  QvLogger* m_logger;
  bool m_relationships = false;
  std::map<QvbString, RepositoryMetadataObjectImpl*> m_objects;
  std::map<QvbString, std::map<QvbString, QvbString>> m_importProperties;
  RepositoryActionEvent* m_eventHandler = nullptr;
  QvbString m_eventObjectInfo;
  std::size_t m_made = 0; // objects so far, in all its life
  // Objects that lost their id to another type within the document that made them: nobody but the context knows them.
  std::vector<RepositoryMetadataObjectImpl*> m_displaced;
  // The objects that the document being read has made; null while none is read.
  Objects* m_madeByDocument = nullptr;
  // The objects whose elements are being read.
  Objects m_open;
};
