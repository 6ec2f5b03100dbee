#include "lineagefactory.h"

#include "allocation.h"
#include "guards.h"
#include "identity.h"
#include "qvreposres/qvresourceuri.h"
#include "qvresource.h"
#include "qvsfio/npfio.h"
#include "qvxlog/qvlog.h"
#include "repositoryfolders.h"

#include <algorithm>
#include <string_view>
#include <utility>

namespace {

constexpr std::string_view syscatSeparator = " - ";

bool isIdentityDocument(const QvbString& identity) { return identity.find("<morvaxeldocument") >= 0; }

// Writes the data URI of a data source or table, and the path of the data; false when there is no such URI.
bool locateData(const DataSource& source, const QvbString& shortName, LineageLocation* location) {
  const char* scheme = "qvd";
  QvbString server("");
  QvbString name = shortName;
  if (isSyscatDsn(shortName, &server, &name))
    scheme = "qvf";
  const QvbString uri =
      getDataURIString({scheme, server, name, source.type, source.catalog, source.schema, source.table, ""});
  if (uri.isNull())
    return false;
  location->uri = uri;
  location->dataPath = dataPathOf(name, source.schema, source.table);
  return true;
}

DataSource dataSourceOf(QvDataURI& uri) {
  return {qvbOrEmpty(uri.getDataSource()), qvbOrEmpty(uri.getDataSourceType()), qvbOrEmpty(uri.getCatalog()),
          qvbOrEmpty(uri.getSchema()), qvbOrEmpty(uri.getTable())};
}

void writeIfAny(const QvbString& text, QvbString* output) {
  if (!text.isEmpty())
    *output = text;
}

// Writes the identity of the table, or of the data source when no table is named; the type of what it identifies, or
// null when there is no identity.
const char* identify(const DataSource& source, QvbString* identity) {
  DataSource named = source;
  named.name = shortDsn(source.name);
  if (!named.table.isEmpty()) {
    makeTableIdentity(named, identity);
    return "Table";
  }
  if (named.name.isEmpty())
    return nullptr;
  makeDataSourceIdentity(named, identity);
  return "Database";
}

bool isThere(const QvbString& path) {
  return !path.isEmpty() && np_fio_stat(path, nullptr) != NP_FIO_NOT_FOUND;
}

// Writes the URI reference of the path, or the path itself where there is none, and tells whether there is a file.
bool locatePath(const QvbString& path, RepositoryFolders* folders, QvbString* uri) {
  QvbString reference;
  *uri = generateURIReference(path, folders, &reference) ? reference : qvbOrEmpty(path);
  return isThere(path);
}

Released<QvResourceImpl> newResource(const QvbString& name, const QvbString& type,
                                     const QvbString& identity) {
  return Released<QvResourceImpl>(newOrNull<QvResourceImpl>(name, type, identity));
}

// Null when the URI names neither a table nor a data source.
Released<QvResourceImpl> dataResource(QvDataURI& uri) {
  DataSource source = dataSourceOf(uri);
  source.name = syscatDsn(uri.getServer(), source.name);
  QvbString identity;
  const char* type = identify(source, &identity);
  if (!type)
    return nullptr;
  QvbString name = source.table;
  if (name.isEmpty())
    readDsnName(source.name, &name);
  const QvbString location = uri.asString();
  auto resource = newResource(name, type, identity);
  if (resource)
    resource->setResourceLocation(location);
  return resource;
}

// The resource of a data URI, named by its table alone; null for every other text.
Released<QvResourceImpl> resourceOf(const QvbString& text) {
  const Released<QvURI> uri(getURIFromURIString(text));
  QvDataURI* data = uri && !qvbEqualsIgnoreCase(uri->getScheme().view(), "qvr") ? uri->getDataURI() : nullptr;
  if (!data)
    return nullptr;
  const DataSource source = dataSourceOf(*data);
  QvbString identity;
  const char* type = identify(source, &identity);
  return type ? newResource(source.table, type, identity) : nullptr;
}

} // namespace

QvbString dataPathOf(const QvbString& dataSource, const QvbString& schema, const QvbString& table) {
  if (dataSource.isEmpty() || (schema.isEmpty() && table.isEmpty()))
    return dataSource;
  const std::string_view parts[] = {dataSource.view(), schema.isEmpty() ? "" : ".", schema.view(),
                                    table.isEmpty() ? "" : ".", table.view()};
  return QvbString::joined(parts);
}

bool isSyscatDsn(const QvbString& name, QvbString* prefix, QvbString* rest) {
  const auto separator = name.find(syscatSeparator);
  if (separator < 0)
    return false;
  QvbString after = name.mid(separator + static_cast<QvbString::Index>(syscatSeparator.size()));
  *prefix = name.mid(0, separator); // which may be the name itself, so that the rest is taken first
  *rest = std::move(after);
  return true;
}

QvbString syscatDsn(const QvbString& server, const QvbString& dataSource) {
  if (server.isEmpty())
    return dataSource;
  QvbString name = server;
  return name.append(syscatSeparator).append(dataSource);
}

LineageImpactFactoryImpl::~LineageImpactFactoryImpl() {
  if (m_resolver)
    m_resolver->release();
}

QvResource* LineageImpactFactoryImpl::getResource(const QvbString& name, const QvbString& type,
                                                  const QvbString& identity) {
  if (m_lastType.isNull() || m_lastType.view() != type.view() || type.isNull())
    m_lastType = type;
  return newResource(name, m_lastType, identity).release();
}

// Kept: LineageFactory.AReplacedResolverIsNotReleased
void LineageImpactFactoryImpl::registerResourceResolver(QvResourceResolver* resolver) {
  if (resolver)
    m_resolver = resolver;
}

QvResource* LineageImpactFactoryImpl::getDataResource(QvDataURI* uri) {
  return uri ? madeOrNull([&] { return dataResource(*uri).release(); }) : nullptr;
}

LineageResourceResolver::LineageResourceResolver()
    : m_log("QV.Repos.Lineage.Analysis", "src/lineagefactory") {}

bool LineageResourceResolver::fileExists(const QvbString& path) const {
  return resultOr(true, [&] { return isThere(path); });
}

bool LineageResourceResolver::getUnifiedRepositoryName(QvbString*) {
  m_log.error("Unable to get Unified Repository name in Resource Resolver.");
  return false;
}

bool LineageResourceResolver::resolveResource(const QvbString& type, const QvbString& id, const QvbString&,
                                              QvbString* name, QvbString* reference) {
  return resultOr(false, [&] { return resolve(type, id, name, reference); });
}

bool LineageResourceResolver::resolve(const QvbString& type, const QvbString& id, QvbString* name,
                                      QvbString* reference) {
  constexpr std::string_view unifiedTypes[] = {"Task",   "Rule",  "CustomMetric",
                                               "Source", "Field", "ProfileJob"};
  if (std::any_of(std::begin(unifiedTypes), std::end(unifiedTypes),
                  [&](std::string_view unified) { return qvbEqualsIgnoreCase(type.view(), unified); })) {
    m_errorMessage =
        qvbStringFormat("The %s resource %s cannot be resolved without Unified Repository.", type, id);
    // Kept: LineageResolver.ObjectsOfAUnifiedRepositoryLeaveAMessage
    return !qvbEqualsIgnoreCase(type.view(), "Task");
  }
  if (qvbEqualsIgnoreCase(type.view(), "MasterDataProject"))
    resolveMasterDataProject(type, id, name, reference);
  return true;
}

void LineageResourceResolver::resolveMasterDataProject(const QvbString& type, const QvbString& id,
                                                       QvbString* name, QvbString* reference) const {
  m_log.trace("Processing MDMProject resolveResource with Id=%s, and Type=%s", id, type);
  if (!isIdentityDocument(id))
    return;
  QvbString filename;
  QvbString project("");
  if (!readFileIdentity(id, &filename, &project))
    return;
  *reference = project;
  *name = project;
  m_log.trace("Setting MDMProject resolveResource with OutputURI=%s, and outputName=%s", *reference, *name);
}

bool LineageResourceResolver::resolveResource(const QvbString& type, const QvbString& id,
                                              const QvbString& name, const QvbString& uuid,
                                              QvbString* identity) {
  QvbString unusedName;
  return name.isEmpty() && resolveResource(type, id, uuid, &unusedName, identity);
}

bool LineageResourceResolver::getResourceLocation(const QvbString& name, const QvbString& identity,
                                                  const QvbString& type, QvbString* outputName,
                                                  QvbString* outputURI) {
  return resultOr(false, [&] {
    LineageLocation location{*outputName, *outputURI, {}};
    const bool found = findLocation(name, identity, type, nullptr, &location);
    *outputName = location.name;
    *outputURI = location.uri;
    return found;
  });
}

bool LineageResourceResolver::findLocation(const QvbString& name, const QvbString& identity,
                                           const QvbString& type, RepositoryFolders* folders,
                                           LineageLocation* location) {
  writeIfAny(name, &location->name);
  if ((this->*locatorOf(type))({identity, type, folders, location}))
    return true;
  m_log.lifecycle("Unable to getResourceLocation() with Id=%s, and Type=%s.", identity, type);
  return false;
}

bool LineageResourceResolver::isSilent(const QvbString& type) const {
  if (m_log.isEnabled(QvLoggingLevel::Lifecycle))
    return false;
  const Locator silent[] = {&LineageResourceResolver::locateTable, &LineageResourceResolver::locateDatabase,
                            &LineageResourceResolver::locateFile, &LineageResourceResolver::locateJobFile,
                            &LineageResourceResolver::locateUnknownType};
  return std::find(std::begin(silent), std::end(silent), locatorOf(type)) != std::end(silent);
}

LineageResourceResolver::Locator LineageResourceResolver::locatorOf(const QvbString& type) {
  using Self = LineageResourceResolver;
  static constexpr struct {
    std::string_view type;
    Locator locator;
  } locators[] = {
      {"", &Self::locateByURI},
      {"Table", &Self::locateTable},
      {"Database", &Self::locateDatabase},
      {"File", &Self::locateFile},
      {"ProcessJob", &Self::locateJobFile},
      {"XMLSQLQuery", &Self::locateJobFile},
      {"ArchitectJob", &Self::locateJobFile},
      {"DataJob", &Self::locateJobFile},
      {"ZELFile", &Self::locateJobFile},
      {"EntityResolution", &Self::locateJobFile},
      {"FileDefinition", &Self::locateJobFile},
      {"FileDefinitionLayout", &Self::locateJobFile},
      {"Task", &Self::locateUnifiedObject},
      {"Rule", &Self::locateUnifiedObject},
      {"ProfileJob", &Self::locateUnifiedObject},
      {"DataExploration", &Self::locateUnifiedObject},
      {"CustomMetric", &Self::locateUnifiedObject},
      {"Source", &Self::locateUnifiedObject},
      {"Field", &Self::locateUnifiedObject},
      {"MasterDataProject", &Self::locateMasterDataProject},
  };
  const auto found = std::find_if(std::begin(locators), std::end(locators), [&](const auto& entry) {
    return qvbEqualsIgnoreCase(type.view(), entry.type);
  });
  return found == std::end(locators) ? &Self::locateUnknownType : found->locator;
}

bool LineageResourceResolver::locateTable(const Lookup& lookup) const {
  DataSource source;
  if (!readTableIdentity(lookup.identity, &source))
    return false;
  lookup.location->name = source.table;
  return locateData(source, shortDsn(source.name), lookup.location);
}

bool LineageResourceResolver::locateDatabase(const Lookup& lookup) const {
  DataSource source;
  if (!readDataSourceIdentity(lookup.identity, &source))
    return false;
  const QvbString shortName = shortDsn(source.name);
  lookup.location->name = shortName;
  return locateData(source, shortName, lookup.location);
}

// A reference to another place is passed on, and never counts as reachable.
// Kept: JobFileType.IsNeverFoundByAURI
bool LineageResourceResolver::locateJobFile(const Lookup& lookup) const {
  if (lookup.identity.find("://") >= 1) {
    lookup.location->uri = lookup.identity;
    return false;
  }
  QvbString path;
  return locatePath(fixFilesystemStringSlashes(lookup.identity, &path) ? path : lookup.identity,
                    lookup.folders, &lookup.location->uri);
}

bool LineageResourceResolver::locateUnifiedObject(const Lookup& lookup) const {
  // Kept: UnifiedType.HasNoLocationByItsIdentity
  if (isUnifiedIdentity(lookup.identity))
    m_log.error("Unable to obtain resource location for %s", lookup.identity);
  return locateByURI(lookup);
}

bool LineageResourceResolver::locateFile(const Lookup& lookup) const {
  if (!isIdentityDocument(lookup.identity))
    return locatePath(lookup.identity, lookup.folders, &lookup.location->uri);
  QvbString filename("");
  QvbString name("");
  if (!readFileIdentity(lookup.identity, &filename, &name))
    return false;
  lookup.location->name = name;
  return locatePath(filename, lookup.folders, &lookup.location->uri);
}

bool LineageResourceResolver::locateUnknownType(const Lookup& lookup) const {
  m_log.trace("Assume file resource type with Id=%s, and Type=%s.", lookup.identity, lookup.type);
  return locatePath(lookup.identity, lookup.folders, &lookup.location->uri);
}

bool LineageResourceResolver::locateMasterDataProject(const Lookup& lookup) const {
  // The record ends in a "%" where the type would be.
  // Kept: LineageLocation.OfAMasterDataProjectIsItsName
  m_log.trace("Processing MDMProject getResourceLocation() with Id=%s, and Type=%%", lookup.identity);
  if (!isIdentityDocument(lookup.identity))
    return false;
  QvbString filename;
  QvbString project("");
  if (!readFileIdentity(lookup.identity, &filename, &project)) {
    m_log.error("Error setting MDMProject getResourceLocation() with values=%s", project);
    return false;
  }
  lookup.location->uri = project;
  m_log.trace("Setting MDMProject getResourceLocation() with OutputURI=%s", lookup.location->uri);
  return true;
}

// The identity itself is the place when it is a URI; an object of a repository has none.
bool LineageResourceResolver::locateByURI(const Lookup& lookup) const {
  const Released<QvURI> uri(lookup.location->uri.isEmpty() ? getURIFromURIString(lookup.identity) : nullptr);
  if (!uri)
    return false;
  lookup.location->uri = lookup.identity;
  if (!uri->getReposURI())
    return true;
  m_log.error("Unable to obtain resource location from repos URI: %s", uri->asString());
  return false;
}

QvResource* LineageResourceResolver::getResourceFromURI(const QvbString& text) {
  QvResource* const resource = madeOrNull([&] { return resourceOf(text).release(); });
  if (!resource)
    m_log.lifecycle("Unable to get resource for given URI=%s.", text);
  return resource;
}
