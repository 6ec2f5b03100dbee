// Resources of every kind, generated and added to lists.
#include "qvresourcemgrimpl.h"

#include "allocation.h"
#include "lineagefactory.h"
#include "qvresource.h"
#include "qvxbase/qvbformat.h"

#include <typeinfo>
#include <utility>

const QvbString QvResourceManagerImpl::IMPACT_RES_DATASRC_String = "Database";
const QvbString QvResourceManagerImpl::IMPACT_RES_FILE_String = "File";
const QvbString QvResourceManagerImpl::IMPACT_RES_PROFILE_String = "ProfileJob";
const QvbString QvResourceManagerImpl::IMPACT_RES_RULE_String = "Rule";
const QvbString QvResourceManagerImpl::IMPACT_RES_SOURCE_String = "Source";
const QvbString QvResourceManagerImpl::IMPACT_RES_TABLE_String = "Table";
const QvbString QvResourceManagerImpl::IMPACT_RES_TASK_String = "Task";
const QvbString QvResourceManagerImpl::UNRESOLVED_PROFILE_String = "[Unresolved Profile]";
const QvbString QvResourceManagerImpl::UNRESOLVED_RULE_String = "[Unresolved Rule]";
const QvbString QvResourceManagerImpl::UNRESOLVED_SOURCE_String = "[Unresolved Source]";
const QvbString QvResourceManagerImpl::UNRESOLVED_TASK_String = "[Unresolved Task]";
const QvbString QvResourceManagerImpl::DB_DAC_TYPE_String = "DbDACType";
const QvbString QvResourceManagerImpl::Name_String = "Name";
const QvbString QvResourceManagerImpl::PATHURI_String = "PathURI";
const QvbString QvResourceManagerImpl::ODBC_String = "ODBC";
const QvbString QvResourceManagerImpl::TARGETNAME_String = "TargetName";

namespace {

// The factory's resolver, if it has a reference for the object; else null.
QvResourceResolver* findReference(QvResourceFactory& factory, const QvbString& type, const QvbString& id,
                                  const QvbString& uuid, QvbString* name, QvbString* reference) {
  auto* resolver = factory.getResourceResolver();
  const bool isKnown = resolver && resolver->resolveResource(type, id, uuid, name, reference);
  return isKnown && !reference->isEmpty() ? resolver : nullptr;
}

// The resource that the resolver's reference for this object leads to; null when one of the steps gives nothing.
Released<QvResource> findByReference(QvResourceFactory& factory, const QvbString& type, const QvbString& id,
                                     const QvbString& uuid) {
  QvbString name;
  QvbString reference;
  auto* resolver = findReference(factory, type, id, uuid, &name, &reference);
  return Released<QvResource>(resolver ? resolver->getResourceFromURI(reference) : nullptr);
}

// Whether the factory's resolver serves the repository and knows the object.
bool resolveInRepository(QvResourceFactory& factory, const QvbString& repository, const QvbString& type,
                         const QvbString& id, const QvbString& uuid, QvbString* name, QvbString* identity) {
  auto* resolver = factory.getResourceResolver();
  QvbString served;
  return resolver && resolver->getUnifiedRepositoryName(&served) && !served.isNull() &&
         qvbEqualsIgnoreCase(served.view(), repository.view()) &&
         resolver->resolveResource(type, id, uuid, name, identity);
}

// The type that the identity of a data source carries: the caller's, and that only when the connection string names a
// type itself.
// Kept: Manager.DropsTheTypeOfADataSourceWhoseStringNamesNone
QvbString identityDsnType(QvResourceManager& manager, const QvbString& dsn, const QvbString& dsnType) {
  QvbString named;
  return manager.getDSNTypeFromDSN(dsn, &named) ? dsnType : "";
}

// The name shows the whole connection string, where it is one; the identity carries the short form.
// Kept: Manager.NamesADataSourceByItsWholeConnectionString
QvbString dataSourceName(QvResourceManager& manager, const QvbString& dsn) {
  QvbString shortName;
  return manager.getNameFromDSN(dsn, &shortName) ? dsn : "";
}

// The resource of a unified object, resolved in its repository where the resolver serves that one.
QvResource* generateUnifiedResource(QvResourceManager& manager, QvResourceFactory& factory,
                                    const QvbString& repository, const QvbString& type, const QvbString& id,
                                    const QvbString& uuid) {
  QvbString name;
  QvbString identity;
  if (resolveInRepository(factory, repository, type, id, uuid, &name, &identity))
    return makeResource(factory, name, type, identity);
  if (!manager.generateUnifiedObjectResourceId(repository, type, id, uuid, &identity))
    return nullptr;
  return makeResource(factory, "", type, identity);
}

QvResource* generateRuleByName(QvResourceFactory& factory, const QvbString& id, const QvbString& uuid,
                               const QvbString& ruleName) {
  const auto& type = QvResourceManagerImpl::IMPACT_RES_RULE_String;
  auto* resolver = ruleName.isEmpty() ? nullptr : factory.getResourceResolver();
  QvbString identity;
  if (!resolver || !resolver->resolveResource(type, id, ruleName, uuid, &identity))
    return nullptr;
  return makeResource(factory, ruleName, type, identity);
}

// The file by the reference that the resolver has for it; null when the resolver has none.
QvResource* resolveFile(QvResourceFactory& factory, const QvbString& type, const QvbString& filename) {
  QvbString name;
  QvbString reference;
  const bool isKnown = findReference(factory, type, filename, "", &name, &reference);
  return isKnown ? makeResource(factory, name, type, reference) : nullptr;
}

// The parts of "folder/name (Type)". The name keeps the blank before the bracket.
// Kept: Manager.SplitsObjectPathsIntoNameTypeAndURI
void splitObjectPath(const QvbString& path, QvbString* name, QvbString* type) {
  constexpr QvbString::Index shortestObject = 4;
  const auto close = path.rfind(")");
  const auto open = path.rfind("(");
  if (close < shortestObject || open < 0 || open > close)
    return;
  *type = path.mid(open + 1, close - open - 1);
  const auto beforeType = path.mid(0, open);
  *name = beforeType.mid(beforeType.rfind("/") + 1);
}

QvbString objectURI(const QvbString& path) {
  const auto text = path.view();
  if (text.starts_with("VELK://") || text.starts_with("velk://"))
    return path;
  return qvbStringFormat(text.starts_with('/') ? "VELK://%s" : "VELK:///%s", path);
}

QvbString serverReferenceURI(const QvbString& server, const QvbString& reference, const QvbString& objectType,
                             const QvbString& service) {
  const Released<QvURI> uri(getDMSRefURIFromComponents(server, reference, objectType));
  if (!uri)
    return {};
  if (!service.isEmpty())
    uri->setParameter("ServiceType", service);
  return uri->asString();
}

// Gives a record of this library that has no list for properties one of its own; false when memory is short. Another
// factory's resource keeps what it has.
bool ensureProperties(QvResource& resource) {
  auto* record = dynamic_cast<QvResourceImpl*>(&resource);
  if (!record || record->getProperties())
    return true;
  record->adoptProperties(Released<QvResourcePropertyList>(newOrNull<QvResourcePropertyListImpl>()));
  return record->getProperties();
}

bool addProperty(QvResourcePropertyList& properties, const QvbString& key, const QvbString& value) {
  const bool added = properties.addRow();
  if (added)
    properties.setLastRow(key, value);
  return added;
}

// Records what a server reference stands for, where the resource takes properties; false when memory is short.
bool recordServerObject(QvResource& resource, const QvbString& service, const QvbString& objectType) {
  if (!ensureProperties(resource))
    return false;
  auto* properties = resource.getProperties();
  return !properties || (addProperty(*properties, "ServiceType", service) &&
                         addProperty(*properties, "ObjectType", objectType));
}

// The list, where nobody but the library has a part in what is made and where it goes: then nobody misses the resource on
// its way there. Null otherwise.
QvResourceListImpl* ownListOf(const QvResourceManager& manager, const QvResourceFactory& factory,
                              QvResourceList& list) {
  const bool isOwn = typeid(manager) == typeid(QvResourceManagerImpl) &&
                     typeid(factory) == typeid(LineageImpactFactoryImpl) &&
                     typeid(list) == typeid(QvResourceListImpl);
  return isOwn ? static_cast<QvResourceListImpl*>(&list) : nullptr;
}

// Adds what a generate operation gave; true when it gave something, whether or not it was listed already.
bool addGenerated(QvResourceList* list, QvResource* generated) {
  const Released<QvResource> resource(generated);
  if (resource)
    addUnlessListed(*list, *resource);
  return resource != nullptr;
}

} // namespace

QvResource* makeResource(QvResourceFactory& factory, const QvbString& name, const QvbString& type,
                         const QvbString& identity) {
  return factory.getResource(qvbOrEmpty(name), qvbOrEmpty(type), qvbOrEmpty(identity));
}

Released<QvResource> copyThroughFactory(QvResourceFactory& factory, QvResource& resource) {
  return Released<QvResource>(
      makeResource(factory, resource.getName(), resource.getResourceType(), resource.getResourceIdentity()));
}

QvResource* QvResourceManagerImpl::generateDataSourceResource(QvResourceFactory* factory, QvbString& dsn,
                                                              QvbString& dsnType) {
  QvbString identity;
  if (!generateDataSourceResourceId(dsn, identityDsnType(*this, dsn, dsnType), &identity))
    return nullptr;
  return makeResource(*factory, dataSourceName(*this, dsn), IMPACT_RES_DATASRC_String, identity);
}

QvResource* QvResourceManagerImpl::generateTableResource(QvResourceFactory* factory, QvbString& dsn,
                                                         QvbString& dsnType, QvbString& catalog,
                                                         QvbString& schema, QvbString& table) {
  QvbString identity;
  if (!generateTableDataSourceResourceId(dsn, identityDsnType(*this, dsn, dsnType), catalog, schema, table,
                                         &identity))
    return nullptr;
  return makeResource(*factory, table, IMPACT_RES_TABLE_String, identity);
}

QvResource* QvResourceManagerImpl::generateProfileResource(QvResourceFactory* factory, QvbString& repository,
                                                           QvbString& id, QvbString& uuid) {
  if (id.isEmpty() && uuid.isEmpty())
    return nullptr;
  return generateUnifiedResource(*this, *factory, repository, IMPACT_RES_PROFILE_String, id, uuid);
}

QvResource* QvResourceManagerImpl::generateRuleResource(QvResourceFactory* factory, QvbString& repository,
                                                        QvbString& id, QvbString& uuid, QvbString& ruleName) {
  if (id.isEmpty() && uuid.isEmpty())
    return generateRuleByName(*factory, id, uuid, ruleName);
  return generateUnifiedResource(*this, *factory, repository, IMPACT_RES_RULE_String, id, uuid);
}

QvResource* QvResourceManagerImpl::generateSourceResource(QvResourceFactory* factory, QvbString& repository,
                                                          QvbString& sourceId) {
  if (sourceId.isEmpty())
    return nullptr;
  if (const auto found = findByReference(*factory, IMPACT_RES_SOURCE_String, sourceId, ""))
    return copyThroughFactory(*factory, *found).release();
  QvbString identity;
  // Kept: Manager.CallsASourceThatNothingLeadsToUnresolved
  if (!generateUnifiedObjectResourceId(repository, "", sourceId, "", &identity))
    return nullptr;
  return makeResource(*factory, UNRESOLVED_SOURCE_String, IMPACT_RES_SOURCE_String, identity);
}

QvResource* QvResourceManagerImpl::generateMonitorResource(QvResourceFactory* factory, QvbString& repository,
                                                           QvbString& taskName, QvbString& id,
                                                           QvbString& uuid) {
  if (id.isEmpty())
    return nullptr;
  if (const auto found = findByReference(*factory, IMPACT_RES_TASK_String, id, uuid))
    return copyThroughFactory(*factory, *found).release();
  QvbString identity;
  if (!generateUnifiedObjectResourceId(repository, IMPACT_RES_TASK_String, id, uuid, &identity))
    return nullptr;
  const auto& name = taskName.isEmpty() ? UNRESOLVED_TASK_String : taskName;
  return makeResource(*factory, name, IMPACT_RES_TASK_String, identity);
}

QvResource* QvResourceManagerImpl::generateFileResource(QvbString& defaultType, QvResourceFactory* factory,
                                                        QvbString& filename) {
  if (filename.isEmpty())
    return nullptr;
  QvbString name;
  QvbString type;
  getResourceTypeFromFilename(filename, &name, &type);
  if (type.isEmpty())
    type = defaultType;
  // The path itself is the identity of a file; the other forms are for factories that do not take it.
  if (auto* resource = makeResource(*factory, name, type, filename))
    return resource;
  if (auto* resource = resolveFile(*factory, type, filename))
    return resource;
  QvbString encodedName;
  QvbString identity;
  if (!generateFileResourceId(filename, encodedName, &identity))
    return nullptr;
  return makeResource(*factory, encodedName, type, identity);
}

QvResource* QvResourceManagerImpl::generateOMRObjectByPathResource(QvResourceFactory* factory,
                                                                   QvbString& path, QvbString&, QvbString&,
                                                                   QvbString&, QvbString&) {
  auto objectPath = path;
  objectPath.trim();
  if (objectPath.isEmpty())
    return nullptr;
  QvbString name;
  QvbString type;
  splitObjectPath(objectPath, &name, &type);
  auto uri = objectURI(objectPath);
  if (!qvbEqualsIgnoreCase(type.view(), IMPACT_RES_FILE_String.view()))
    return makeResource(*factory, name, type, uri);
  auto fileType = IMPACT_RES_FILE_String;
  return generateFileResource(fileType, factory, uri);
}

QvResource* QvResourceManagerImpl::generateDMSRefResource(QvResourceFactory* factory, QvbString& server,
                                                          QvbString& reference, QvbString& service,
                                                          QvbString& object, QvbString& name) {
  auto objectPath = reference;
  if (reference.isEmpty() && !service.isEmpty() && !object.isEmpty())
    objectPath = qvbStringFormat("%s:%s", service, object);
  QvbString ownName;
  QvbString type;
  if (!getResourceTypeFromFilename(objectPath, &ownName, &type))
    return nullptr;
  const auto identity = serverReferenceURI(server, objectPath, type, service);
  if (identity.isEmpty())
    return nullptr;
  Released<QvResource> resource(makeResource(*factory, name.isEmpty() ? ownName : name, type, identity));
  return resource && recordServerObject(*resource, service, type) ? resource.release() : nullptr;
}

bool QvResourceManagerImpl::addDataSourceResource(QvResourceFactory* factory, QvResourceList* list,
                                                  QvbString& dsn, QvbString& dsnType) {
  QvResourceListImpl* const own = ownListOf(*this, *factory, *list);
  if (!own)
    return addGenerated(list, generateDataSourceResource(factory, dsn, dsnType));
  if (own->containsDataSource(dsn, dsnType))
    return true;
  QvbString identity;
  if (!generateDataSourceResourceId(dsn, identityDsnType(*this, dsn, dsnType), &identity))
    return false;
  own->rememberDataSource(
      dsn, dsnType,
      own->addUnlessListed(dataSourceName(*this, dsn), IMPACT_RES_DATASRC_String, qvbOrEmpty(identity)));
  return true;
}

bool QvResourceManagerImpl::addTableResource(QvResourceFactory* factory, QvResourceList* list, QvbString& dsn,
                                             QvbString& dsnType, QvbString& catalog, QvbString& schema,
                                             QvbString& table) {
  QvResourceListImpl* const own = ownListOf(*this, *factory, *list);
  if (!own)
    return addGenerated(list, generateTableResource(factory, dsn, dsnType, catalog, schema, table));
  QvbString identity;
  const bool isTable = generateTableDataSourceResourceId(dsn, identityDsnType(*this, dsn, dsnType), catalog,
                                                         schema, table, &identity);
  if (isTable)
    own->addUnlessListed(table, IMPACT_RES_TABLE_String, qvbOrEmpty(identity));
  return isTable;
}

bool QvResourceManagerImpl::addMonitorResource(QvResourceFactory* factory, QvResourceList* list,
                                               QvbString& repository, QvbString& taskName, QvbString& id,
                                               QvbString& uuid) {
  return addGenerated(list, generateMonitorResource(factory, repository, taskName, id, uuid));
}

bool QvResourceManagerImpl::addRuleResourceByName(QvResourceFactory* factory, QvResourceList* list,
                                                  QvbString& repository, QvbString& ruleName) {
  QvbString id("");
  QvbString uuid("");
  return addGenerated(list, generateRuleResource(factory, repository, id, uuid, ruleName));
}

bool QvResourceManagerImpl::addProfileResourceById(QvResourceFactory* factory, QvResourceList* list,
                                                   QvbString& id) {
  QvbString repository("");
  QvbString uuid("");
  return addProfileResource(factory, list, repository, id, uuid);
}

bool QvResourceManagerImpl::addProfileResource(QvResourceFactory* factory, QvResourceList* list,
                                               QvbString& repository, QvbString& id, QvbString& uuid) {
  return addGenerated(list, generateProfileResource(factory, repository, id, uuid));
}

bool QvResourceManagerImpl::addRuleResource(QvResourceFactory* factory, QvResourceList* list,
                                            QvbString& repository, QvbString& id, QvbString& uuid,
                                            QvbString& ruleName) {
  return addGenerated(list, generateRuleResource(factory, repository, id, uuid, ruleName));
}

bool QvResourceManagerImpl::addDMSRefResource(QvResourceFactory* factory, QvResourceList* list,
                                              QvbString& server, QvbString& reference, QvbString& service,
                                              QvbString& object, QvbString& name) {
  return addGenerated(list, generateDMSRefResource(factory, server, reference, service, object, name));
}

bool QvResourceManagerImpl::addOMRObjectByPathResource(QvResourceFactory* factory, QvResourceList* list,
                                                       QvbString& path, QvbString& reserved1,
                                                       QvbString& reserved2, QvbString& reserved3,
                                                       QvbString& reserved4) {
  return addGenerated(
      list, generateOMRObjectByPathResource(factory, path, reserved1, reserved2, reserved3, reserved4));
}

QvResourceManager* createQvResourceManager() { return new QvResourceManagerImpl; }
