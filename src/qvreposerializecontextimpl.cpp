#include "qvreposerializecontextimpl.h"

#include "domchildren.h"
#include "guards.h"
#include "qvxbase/qvbformat.h"
#include "qvxbase/qvbpath.h"
#include "qvxbase/qvuri.h"
#include "qvxlog/qvlog.h"

#include <algorithm>
#include <new>
#include <optional>
#include <utility>

namespace {

constexpr const char* xmlDeclaration = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>";
constexpr const char* xmlDeclarationLine = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
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

void writeObject(QvDomNode& node, RepositoryMetadataObject& object, MetadataWriting& writing) {
  writing.countObjects();
  if (!node.null())
    object.toXML(&node);
}

void logCleared(const QvLog& log) {
  log.lifecycle("Cleared context to prepare for object export transaction.");
}

// What the objects of a document are to contain, in document order.
class Contents {
public:
  // An element of the object begins.
  void open(RepositoryMetadataObject* object) { placeOf(object); }
  void add(RepositoryMetadataObject* container, RepositoryMetadataObject* content) {
    const auto place = placeOf(content);
    m_members[placeOf(container)].contents.push_back(place);
  }

  // Hands out each containment, those of the contents before those of what contains them, so that what is contained is
  // complete. A containment that leads back to an object whose contents are being walked through is left out: the walk
  // begins with the first object and follows the order of the contents.
  template<class Contain>
  void settle(const Contain& contain) {
    m_open.reserve(m_members.size());
    for (std::size_t first = 0; first < m_members.size(); ++first)
      if (m_members[first].state == State::New)
        settleFrom(first, contain);
  }

private:
  enum class State { New, Open, Settled };
  struct Member {
    RepositoryMetadataObject* object;
    std::vector<std::size_t> contents;
    std::size_t next = 0;
    State state = State::New;
  };

  std::size_t placeOf(RepositoryMetadataObject* object) {
    const auto [position, isNew] = m_places.try_emplace(object, m_members.size());
    if (isNew)
      m_members.push_back({object, {}});
    return position->second;
  }

  void enter(std::size_t place) {
    m_members[place].state = State::Open;
    m_open.push_back(place);
  }

  template<class Contain>
  void settleFrom(std::size_t first, const Contain& contain) {
    enter(first);
    while (!m_open.empty()) {
      Member& member = m_members[m_open.back()];
      if (member.next == member.contents.size()) {
        leave(member, contain);
        continue;
      }
      std::size_t& content = member.contents[member.next++];
      if (m_members[content].state == State::New)
        enter(content);
      else if (m_members[content].state == State::Open)
        content = LeftOut;
    }
  }

  template<class Contain>
  void leave(Member& member, const Contain& contain) {
    for (const auto content : member.contents)
      if (content != LeftOut)
        contain(member.object, m_members[content].object);
    member.state = State::Settled;
    m_open.pop_back();
  }

  static constexpr std::size_t LeftOut = static_cast<std::size_t>(-1);

  std::vector<Member> m_members;
  std::unordered_map<RepositoryMetadataObject*, std::size_t> m_places;
  std::vector<std::size_t> m_open;
};

} // namespace

// What reading has changed so far. Unless it is kept, all of that is taken back: the objects that were made end, and
// those that were there before are what they were. Objects of an application's own class keep what they were given.
class RepositorySerializationContextImpl::Reading {
public:
  explicit Reading(RepositorySerializationContextImpl& context) : m_context(context) {
    m_context.m_reading = this;
  }
  ~Reading() {
    m_context.m_reading = nullptr;
    for (auto undo = m_undo.rbegin(); undo != m_undo.rend(); ++undo)
      (*undo)();
    for (auto given = m_given.rbegin(); given != m_given.rend(); ++given)
      takeIdBack(*given);
    for (RepositoryMetadataObjectImpl* object : m_made)
      object->hold();
    for (RepositoryMetadataObjectImpl* object : m_made)
      object->letGoAndRelease();
  }
  Reading(const Reading&) = delete;
  Reading& operator=(const Reading&) = delete;

  // The id of the position is about to become the object's, which the document has made.
  void noteId(Objects::iterator position, RepositoryMetadataObjectImpl* object) {
    m_given.push_back({position, position->second});
    try {
      m_made.insert(object);
    } catch (...) {
      m_given.pop_back();
      throw;
    }
  }
  void open(RepositoryMetadataObject* object) { m_contents.open(object); }
  void addAttribute(RepositoryMetadataObject* object, const QvbString& name, const QvbString& value) {
    if (auto* known = knownBefore(object)) {
      QvbString earlier;
      const bool had = known->RepositoryMetadataObjectImpl::getAttribute(name, &earlier);
      m_undo.push_back(
          [=] { known->restoreAttribute(name, had ? std::optional<QvbString>(earlier) : std::nullopt); });
    }
    object->addAttribute(name, value);
  }
  void associate(RepositoryMetadataObject* object, const QvbString& association,
                 RepositoryMetadataObject* associated) {
    if (auto* known = knownBefore(object))
      m_undo.push_back(
          [=, count = known->associatedCount(association)] { known->restoreAssociated(association, count); });
    object->addAssociatedObject(association, associated);
  }
  void contain(RepositoryMetadataObject* container, RepositoryMetadataObject* content) {
    m_contents.add(container, content);
  }

  void keep() {
    m_contents.settle([this](RepositoryMetadataObject* container, RepositoryMetadataObject* content) {
      if (auto* known = knownBefore(container))
        m_undo.push_back([=, count = known->containedCount()] { known->restoreContained(count); });
      container->addContainedObject(content);
    });
    m_context.m_displaced.reserve(m_context.m_displaced.size() + m_given.size());
    for (const auto& [position, earlier] : m_given)
      displace(earlier);
    m_undo.clear();
    m_given.clear();
    m_made.clear();
  }

private:
  struct Given {
    Objects::iterator position;
    RepositoryMetadataObjectImpl* earlier; // null when the id was nobody's
  };

  // The object, if it was there before, and is one whose changes can be taken back.
  RepositoryMetadataObjectImpl* knownBefore(RepositoryMetadataObject* object) const {
    auto* own = dynamic_cast<RepositoryMetadataObjectImpl*>(object);
    return own && m_made.count(own) == 0 ? own : nullptr;
  }

  void takeIdBack(const Given& given) noexcept {
    given.position->second->letGo();
    if (given.earlier)
      given.position->second = given.earlier;
    else
      m_context.m_objects.erase(given.position);
  }

  // An id is one object's at a time, and a document may give it to another one: the object that had it is displaced. It
  // passes to the caller, who may have it in hand. One that this document has made is known to nobody yet, so the context
  // keeps it.
  //
  // Example: a document has a Job with the id 7 and, further down, a Task with the id 7. The Task has the id from there on.
  // Elements may refer to the Job already, so it lives on, and the context ends it. Had the Job been there before the
  // document was read, it would now be for the caller to release.
  void displace(RepositoryMetadataObjectImpl* object) noexcept {
    if (object && m_made.count(object) != 0)
      m_context.m_displaced.push_back(object);
    else if (object)
      object->letGo();
  }

  RepositorySerializationContextImpl& m_context;
  std::unordered_set<RepositoryMetadataObjectImpl*> m_made;
  std::vector<Given> m_given;
  std::vector<std::function<void()>> m_undo;
  Contents m_contents;
};

RepositorySerializationContextImpl::RepositorySerializationContextImpl()
    : m_log("QV.Repos.QvReposRes.Serialize", "src/qvreposerializecontextimpl") {}

RepositorySerializationContextImpl::~RepositorySerializationContextImpl() {
  forgetAll();
  try {
    logCleared(m_log);
  } catch (const std::bad_alloc&) { // a record that there is no memory for is lost
  }
}

RepositoryMetadataObject* RepositorySerializationContextImpl::getMetadataObject(const QvbString& objectType,
                                                                                const QvbString& id) {
  if (RepositoryMetadataObject* known = findMetadataObject(objectType, id))
    return known;
  Released<RepositoryMetadataObjectImpl> object(new RepositoryMetadataObjectImpl(objectType));
  object->setId(id);
  const auto [position, isNew] = m_objects.try_emplace(id, nullptr);
  try {
    if (m_reading)
      m_reading->noteId(position, object.get());
  } catch (...) {
    if (isNew)
      m_objects.erase(position);
    throw;
  }
  if (position->second && !m_reading)
    position->second->letGo();
  object->hold();
  return position->second = object.release();
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
  const QvbString id = qvbGetUUID();
  RepositoryMetadataObject* object = getMetadataObject(objectType, id);
  try {
    if (object)
      object->addAttribute(attributeName, attributeValue);
  } catch (...) {
    forget(id, object);
    throw;
  }
  return object;
}

// An object that nobody was given yet. What is read is taken back as a whole.
void RepositorySerializationContextImpl::forget(const QvbString& id,
                                                RepositoryMetadataObject* object) noexcept {
  const auto position = m_objects.find(id);
  if (m_reading || position == m_objects.end() || position->second != object)
    return;
  position->second->letGoAndRelease();
  m_objects.erase(position);
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
  if (!document.startNewDocument(m_relationships ? object->getObjectType() : QvbString(documentElement)))
    return false;
  QvDomNode root = document.getRoot();
  if (!writeObjects(root, *object))
    return false;
  if (!xml)
    return true;
  const QvbString text = document.createXML(layout, root, layout ? xmlDeclarationLine : xmlDeclaration);
  if (text.isNull())
    return false;
  xml->append(text);
  return true;
}

// The object and all others of the context; false when that is too much for a document. An object whose type is no name
// of XML has no element, and is left out.
bool RepositorySerializationContextImpl::writeObjects(QvDomNode& root,
                                                      RepositoryMetadataObject& object) const {
  MetadataWriting writing;
  QvDomNode main = root;
  if (!m_relationships) {
    root.setAttributeValue("class", "RepositoryMetadataObject");
    root.setAttributeValue("version", "1.0");
    main = root.addChild(object.getObjectType());
  }
  writeObject(main, object, writing);
  for (const auto& [id, other] : m_objects) {
    if (writing.isTooLarge())
      break;
    if (qvbEqualsIgnoreCase(other->getId().view(), object.getId().view()))
      continue;
    QvDomNode node = root.addChild(other->getObjectType());
    writeObject(node, *other, writing);
  }
  return !writing.isTooLarge();
}

RepositoryMetadataObject* RepositorySerializationContextImpl::deSerialize(const QvbString& xml,
                                                                          QvbString* message) {
  QvDom document;
  if (xml.isEmpty() || !document.loadXML(xml))
    return nullptr;
  const QvDomNode container = findContainer(document.getRoot());
  if (container.null())
    return nullptr;
  return readWhole([&] { return readObjects(container, message); });
}

// All of it, or nothing when an exception ends it. Reading that goes on within another one is part of that.
template<class Operation>
RepositoryMetadataObject* RepositorySerializationContextImpl::readWhole(const Operation& operation) {
  if (m_reading)
    return operation();
  Reading reading(*this);
  RepositoryMetadataObject* const object = operation();
  reading.keep();
  return object;
}

// The element whose children are the document's objects. Only first children are searched for it.
QvDomNode RepositorySerializationContextImpl::findContainer(const QvDomNode& root) const {
  m_log.trace("Reading root node: %s", root.getName());
  if (isNamed(root, documentElement))
    return root;
  QvDomNode node = root.getFirstChild(false);
  m_log.trace("Reading node: %s", node.getName());
  for (; !node.null(); node = node.getFirstChild(false)) {
    m_log.trace("Comparing node: %s to \"%s\"", node.getName(), containerElement);
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
      m_log.error("Error reading object from node: %s", message);
      break;
    }
  }
  const auto found = rootId.isEmpty() ? m_objects.end() : m_objects.find(rootId);
  return found == m_objects.end() ? nullptr : found->second;
}

RepositoryMetadataObject*
RepositorySerializationContextImpl::readObjectFromNode(QvbString* rootId, QvDomNode* node, QvbString*) {
  return node ? readWhole([&] { return readObject(rootId, *node); }) : nullptr;
}

RepositoryMetadataObject* RepositorySerializationContextImpl::readObject(QvbString* rootId,
                                                                         const QvDomNode& node) {
  const QvbString type = node.getName();
  if (type.isEmpty())
    return nullptr;
  const QvbString id = idOf(node);
  if (id.isEmpty()) {
    m_log.lifecycle("Object cannot be created as it has no Id: %s", type);
    return nullptr;
  }
  RepositoryMetadataObject* object = getMetadataObject(type, id);
  if (!object) // a derived context may refuse it
    return nullptr;
  if (rootId && rootId->isEmpty())
    *rootId = object->getId();
  m_reading->open(object);
  readAttributes(object, node);
  readContent(object, rootId, node);
  return object;
}

void RepositorySerializationContextImpl::readAttributes(RepositoryMetadataObject* object,
                                                        const QvDomNode& node) {
  QvbString name;
  QvbString value;
  for (int i = 0; node.getAttributeNameValue(i, &name, &value); ++i)
    if (!name.isEmpty() && !isIdAttribute(name))
      m_reading->addAttribute(object, name, value);
}

void RepositorySerializationContextImpl::readContent(RepositoryMetadataObject* object, QvbString* rootId,
                                                     const QvDomNode& node) {
  for (QvDomNode child = node.getFirstChild(false); !child.null(); child = child.getNextSibling(false)) {
    if (child.getAttributeCount() == 0)
      readAssociation(object, rootId, child);
    else if (RepositoryMetadataObject* contained = readObject(rootId, child))
      m_reading->contain(object, contained);
  }
}

void RepositorySerializationContextImpl::readAssociation(RepositoryMetadataObject* object, QvbString* rootId,
                                                         const QvDomNode& association) {
  for (QvDomNode node = association.getFirstChild(false); !node.null(); node = node.getNextSibling(false))
    if (RepositoryMetadataObject* associated = readObject(rootId, node))
      m_reading->associate(object, association.getName(), associated);
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
  m_log.unchecked(levelOf(status), message);
  return result;
}

bool RepositorySerializationContextImpl::clear() {
  forgetAll();
  logCleared(m_log);
  return true;
}

void RepositorySerializationContextImpl::forgetAll() noexcept {
  for (const auto& [id, object] : std::exchange(m_objects, {}))
    object->letGoAndRelease();
  for (RepositoryMetadataObjectImpl* object : std::exchange(m_displaced, {}))
    object->letGoAndRelease();
  m_importProperties.clear();
  m_eventHandler = nullptr;
  m_eventObjectInfo = "";
}

extern "C" RepositorySerializationContext* createRepositoryMetadataSerializationContext() {
  return new RepositorySerializationContextImpl();
}
