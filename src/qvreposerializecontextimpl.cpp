#include "qvreposerializecontextimpl.h"

#include "domchildren.h"
#include "guards.h"
#include "qvxbase/qvbformat.h"
#include "qvxbase/qvbpath.h"
#include "qvxbase/qvuri.h"
#include "qvxlog/qvxlog.h"

#include <utility>

namespace {

constexpr const char* logSource = "src/qvreposerializecontextimpl";
constexpr const char* xmlDeclaration = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>";
constexpr const char* documentElement = "morvaxeldocument";
constexpr const char* containerElement = "RepositoryMetadataObject";

bool isIdAttribute(const QvbString& name) {
  return qvbEqualsIgnoreCase(name.view(), "ObjRef") || qvbEqualsIgnoreCase(name.view(), "Id");
}

QvbString idOf(const QvDomNode& node) {
  QvbString name;
  QvbString value;
  for (int i = 0; node.getAttributeNameValue(i, &name, &value); ++i)
    if (isIdAttribute(name))
      return value;
  return {};
}

void readAttributes(RepositoryMetadataObject* object, const QvDomNode& node) {
  QvbString name;
  QvbString value;
  for (int i = 0; node.getAttributeNameValue(i, &name, &value); ++i)
    if (!name.isEmpty() && !isIdAttribute(name))
      object->addAttribute(name, value);
}

QvLoggingLevel levelOf(RepositoryActionLogStatus status) {
  switch (status) {
  case RepositoryActionLogError:
    return QvLoggingLevel::Error;
  case RepositoryActionLogWarning:
    return QvLoggingLevel::Anomaly;
  case RepositoryActionLogSuccess:
    return QvLoggingLevel::Success;
  case RepositoryActionLogInfo:
    return QvLoggingLevel::Lifecycle;
  case RepositoryActionLogTrace:
    return QvLoggingLevel::Trace;
  }
  return QvLoggingLevel::Success;
}

// Starts the document that the object is to be written into and gives the object's own element; missing when the
// document cannot be started.
QvDomNode startDocument(QvDom& document, const QvbString& objectType, bool relationships) {
  if (relationships)
    return document.startNewDocument(objectType) ? document.getRoot() : QvDomNode();
  if (!document.startNewDocument(documentElement))
    return {};
  QvDomNode root = document.getRoot();
  root.setAttributeValue("class", "RepositoryMetadataObject");
  root.setAttributeValue("version", "1.0");
  return root.addChild(objectType);
}

} // namespace

RepositorySerializationContextImpl::RepositorySerializationContextImpl()
    : m_logger(qvlogGetLogger("QV.Repos.QvReposRes.Serialize")) {}

RepositorySerializationContextImpl::~RepositorySerializationContextImpl() {
  RepositorySerializationContextImpl::clear();
}

RepositoryMetadataObject* RepositorySerializationContextImpl::getMetadataObject(const QvbString& objectType,
                                                                                const QvbString& id) {
  if (RepositoryMetadataObject* known = findMetadataObject(objectType, id))
    return known;
  Released<RepositoryMetadataObjectImpl> object(new RepositoryMetadataObjectImpl(objectType));
  object->setId(id);
  if (m_madeByDocument)
    m_madeByDocument->insert(object.get());
  RepositoryMetadataObjectImpl*& mapped = m_objects[id];
  if (mapped)
    displace(mapped);
  mapped = object.release();
  mapped->hold();
  ++m_made;
  return mapped;
}

// The object passes to the caller, who may have it in hand. One that the document being read has made is known to
// nobody yet, so the context keeps it.
void RepositorySerializationContextImpl::displace(RepositoryMetadataObjectImpl* object) {
  if (m_madeByDocument && m_madeByDocument->count(object) != 0)
    m_displaced.push_back(object);
  else
    object->letGo();
}

RepositoryMetadataObject* RepositorySerializationContextImpl::findMetadataObject(const QvbString& objectType,
                                                                                 const QvbString& id) {
  const auto found = m_objects.find(id);
  if (found == m_objects.end() ||
      !qvbEqualsIgnoreCase(found->second->getObjectType().view(), objectType.view()))
    return nullptr;
  return found->second;
}

RepositoryMetadataObject* RepositorySerializationContextImpl::getMetadataObjectByAttribute(
    const QvbString& objectType, const QvbString& attributeName, const QvbString& attributeValue) {
  for (const auto& [id, object] : m_objects) {
    QvbString value;
    if (qvbEqualsIgnoreCase(object->getObjectType().view(), objectType.view()) &&
        object->getAttribute(attributeName, &value) &&
        qvbEqualsIgnoreCase(value.view(), attributeValue.view()))
      return object;
  }
  RepositoryMetadataObject* object = getMetadataObject(objectType, qvbGetUUID());
  if (object)
    object->addAttribute(attributeName, attributeValue);
  return object;
}

RepositoryMetadataObject*
RepositorySerializationContextImpl::createMetadataObject(const QvbString& objectType) {
  return new RepositoryMetadataObjectImpl(objectType);
}

bool RepositorySerializationContextImpl::setSerializationOfRelationships(bool on) {
  return std::exchange(m_relationships, on) != on;
}

bool RepositorySerializationContextImpl::serialize(RepositoryMetadataObject* object, QvbString* xml,
                                                   QvbString*, bool layout) {
  if (!object)
    return false;
  QvDom document;
  QvDomNode main = startDocument(document, object->getObjectType(), m_relationships);
  if (main.null())
    return false;
  object->toXML(&main);
  QvDomNode root = document.getRoot();
  for (const auto& [id, other] : m_objects) {
    if (qvbEqualsIgnoreCase(other->getId().view(), object->getId().view()))
      continue;
    QvDomNode node = root.addChild(other->getObjectType());
    other->toXML(&node);
  }
  if (xml) {
    xml->append(xmlDeclaration);
    if (layout)
      xml->append("\n");
    xml->append(document.createXML(layout, root));
  }
  return true;
}

RepositoryMetadataObject* RepositorySerializationContextImpl::deSerialize(const QvbString& xml,
                                                                          QvbString* message) {
  QvDom document;
  if (xml.isEmpty() || !document.loadXML(xml))
    return nullptr;
  const QvDomNode container = findContainer(document.getRoot());
  if (container.null())
    return nullptr;
  Objects made;
  m_madeByDocument = &made;
  const ScopeExit end([this] { m_madeByDocument = nullptr; });
  return readObjects(container, message);
}

// The element whose children are the document's objects. Only first children are searched for it.
QvDomNode RepositorySerializationContextImpl::findContainer(const QvDomNode& root) const {
  m_logger->logEvent(QvLoggingLevel::Trace, logSource, __LINE__, "Reading root node: %s", root.getName());
  if (isNamed(root, documentElement))
    return root;
  QvDomNode node = root.getFirstChild(false);
  m_logger->logEvent(QvLoggingLevel::Trace, logSource, __LINE__, "Reading node: %s", node.getName());
  for (; !node.null(); node = node.getFirstChild(false)) {
    m_logger->logEvent(QvLoggingLevel::Trace, logSource, __LINE__, "Comparing node: %s to \"%s\"",
                       node.getName(), containerElement);
    if (isNamed(node, containerElement))
      return node;
  }
  return {};
}

RepositoryMetadataObject* RepositorySerializationContextImpl::readObjects(const QvDomNode& container,
                                                                          QvbString* message) {
  QvbString rootId;
  for (QvDomNode node = container.getFirstChild(false); !node.null(); node = node.getNextSibling(false)) {
    if (!readObjectFromNode(&rootId, &node, message)) {
      m_logger->logEvent(QvLoggingLevel::Error, logSource, __LINE__, "Error reading object from node: %s",
                         message);
      break;
    }
  }
  const auto found = rootId.isEmpty() ? m_objects.end() : m_objects.find(rootId);
  return found == m_objects.end() ? nullptr : found->second;
}

RepositoryMetadataObject* RepositorySerializationContextImpl::readObjectFromNode(QvbString* rootId,
                                                                                 QvDomNode* node,
                                                                                 QvbString* message) {
  return node ? readObject(rootId, *node, message).object : nullptr;
}

RepositorySerializationContextImpl::ReadObject
RepositorySerializationContextImpl::readObject(QvbString* rootId, const QvDomNode& node, QvbString* message) {
  const QvbString type = node.getName();
  if (type.isEmpty())
    return {};
  const QvbString id = idOf(node);
  if (id.isEmpty()) {
    m_logger->logEvent(QvLoggingLevel::Lifecycle, logSource, __LINE__,
                       "Object cannot be created as it has no Id: %s", type);
    return {};
  }
  const auto madeBefore = m_made;
  RepositoryMetadataObject* object = getMetadataObject(type, id);
  if (!object) // a derived context may refuse it
    return {};
  const bool isNew = m_made != madeBefore;
  if (rootId && rootId->isEmpty())
    *rootId = object->getId();
  const bool isOpened = m_open.insert(object).second;
  const ScopeExit end([&] {
    if (isOpened)
      m_open.erase(object);
  });
  readAttributes(object, node);
  readContent(object, rootId, node, message);
  return {object, isNew};
}

void RepositorySerializationContextImpl::readContent(RepositoryMetadataObject* object, QvbString* rootId,
                                                     const QvDomNode& node, QvbString* message) {
  for (QvDomNode child = node.getFirstChild(false); !child.null(); child = child.getNextSibling(false)) {
    if (child.getAttributeCount() > 0)
      contain(*object, readObject(rootId, child, message));
    else
      readAssociation(object, rootId, child, message);
  }
}

// What is associated is not contained, so whatever is open here may be contained in it.
void RepositorySerializationContextImpl::readAssociation(RepositoryMetadataObject* object, QvbString* rootId,
                                                         const QvDomNode& association, QvbString* message) {
  Objects open = std::exchange(m_open, {});
  const ScopeExit end([&] { m_open.swap(open); });
  for (QvDomNode node = association.getFirstChild(false); !node.null(); node = node.getNextSibling(false))
    if (RepositoryMetadataObject* associated = readObject(rootId, node, message).object)
      object->addAssociatedObject(association.getName(), associated);
}

// Of the containments that would close a circle the innermost is left out. An object that its element has just made is
// not looked into again: what it contains was, and the parent itself refuses what contains it.
void RepositorySerializationContextImpl::contain(RepositoryMetadataObject& parent, const ReadObject& child) {
  if (!child.object)
    return;
  if (!child.isNew) {
    auto* known = dynamic_cast<RepositoryMetadataObjectImpl*>(child.object);
    auto* owner = dynamic_cast<RepositoryMetadataObjectImpl*>(&parent);
    if (owner && owner->containsDirectly(child.object))
      return;
    if (known && known->reachesAny(m_open))
      return;
  }
  parent.addContainedObject(child.object);
}

bool RepositorySerializationContextImpl::addImportProperty(RepositoryMetadataObject* object,
                                                           const QvbString& name, const QvbString& value) {
  if (!object)
    return false;
  m_importProperties[object->getId()][name] = value;
  return true;
}

bool RepositorySerializationContextImpl::addImportPropertyAsInt(RepositoryMetadataObject* object,
                                                                const QvbString& name, int value) {
  QvbString text;
  text.assign(value);
  return addImportProperty(object, name, text);
}

bool RepositorySerializationContextImpl::getImportProperty(RepositoryMetadataObject* object,
                                                           const QvbString& name, QvbString* value) {
  if (!object)
    return false;
  const auto properties = m_importProperties.find(object->getId());
  if (properties == m_importProperties.end())
    return true;
  const auto found = properties->second.find(name);
  if (found != properties->second.end() && !found->second.isEmpty() && value)
    *value = found->second;
  return true;
}

bool RepositorySerializationContextImpl::getImportPropertyAsInt(RepositoryMetadataObject* object,
                                                                const QvbString& name, int* value) {
  QvbString text;
  if (!getImportProperty(object, name, &text))
    return false;
  if (!text.isEmpty() && value)
    *value = text.asInt();
  return true;
}

bool RepositorySerializationContextImpl::setEventHandler(RepositoryActionEvent* handler) {
  m_eventHandler = handler;
  return true;
}

bool RepositorySerializationContextImpl::setEventObjectInfo(const QvbString& path,
                                                            const QvbString& objectType) {
  const Released<QvURI> uri(getReposURIFromComponents("", path, objectType));
  if (uri)
    m_eventObjectInfo = uri->asString();
  return true;
}

int RepositorySerializationContextImpl::logEvent(RepositoryActionLogStatus status, const QvbString& message) {
  const int result = m_eventHandler ? m_eventHandler->actionLogged(status, m_eventObjectInfo, message) : 0;
  m_logger->logEvent(levelOf(status), logSource, __LINE__, message.asCstr());
  return result;
}

bool RepositorySerializationContextImpl::clear() {
  for (const auto& [id, object] : std::exchange(m_objects, {}))
    object->letGoAndRelease();
  for (RepositoryMetadataObjectImpl* object : std::exchange(m_displaced, {}))
    object->letGoAndRelease();
  m_importProperties.clear();
  m_eventHandler = nullptr;
  m_eventObjectInfo = "";
  m_logger->logEvent(QvLoggingLevel::Lifecycle, logSource, __LINE__,
                     "Cleared context to prepare for object export transaction.");
  return true;
}

extern "C" RepositorySerializationContext* createRepositoryMetadataSerializationContext() {
  return new RepositorySerializationContextImpl();
}
