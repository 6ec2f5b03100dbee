// The resources that job references and SQL steps name.
#include "qvresourcemgrimpl.h"

#include "domchildren.h"
#include "lineagefactory.h"
#include "qvreposres/qvresourceuri.h"
#include "qvresource.h"
#include "qvsstr/qvsstr.h"
#include "qvxbase/qvbformat.h"

#include <algorithm>
#include <array>

namespace {

constexpr std::array sqlSteps{"QueryBuilderService",          "SQLCreateTableSelect",
                              "SQLInsertRowsSelect",          "SQLInsertRowsQueryReference",
                              "SQLCreateTableQueryReference", "SQLUpdateRows"};

bool isSQLStep(const QvDomNode& element) {
  return std::any_of(sqlSteps.begin(), sqlSteps.end(),
                     [&](const char* name) { return isNamed(element, name); });
}

// The local file of the reference for the process's own user, or `otherwise` when there is none.
QvbString localFilename(const QvbString& reference, const QvbString& otherwise) {
  const ReleasedSubject subject(qvbSubjectAccess());
  QvbString filename;
  return generateFilenameFromURIReference(subject.get(), reference, &filename) ? filename : otherwise;
}

struct TableName {
  QvbString catalog;
  QvbString schema;
  QvbString table;
};

// Splits "catalog.schema.table", of which the table alone is needed; a part in double quotes may hold dots. The table
// stays empty when the text has more parts or is too long to be a name.
TableName parseTableName(const QvbString& text) {
  std::array<char, 1024> buffer;
  std::array<char*, 3> fields;
  const int count = qvs_parse_text_ex2(text.asCstr(), '.', '"', buffer.data(), buffer.size(), fields.data(),
                                       static_cast<int>(fields.size()));
  const auto fromEnd = [&](int place) {
    return place <= count ? QvbString(fields[static_cast<std::size_t>(count - place)]) : QvbString();
  };
  return {.catalog = fromEnd(3), .schema = fromEnd(2), .table = fromEnd(1)};
}

} // namespace

Released<QvResource> QvResourceManagerImpl::findRepositoryJob(QvResourceFactory* factory,
                                                              QvbString& jobReference) {
  auto* resolver = jobReference.find("qvr:") >= 0 ? factory->getResourceResolver() : nullptr;
  const Released<QvURI> uri(resolver ? getURIFromURIString(jobReference) : nullptr);
  if (!uri)
    return nullptr;
  if (auto* found = resolver->getResourceFromURI(jobReference))
    return Released<QvResource>(found);
  auto* data = uri->getDataURI();
  const auto objectName = data ? data->getObjectName() : QvbString();
  const auto objectType = data ? data->getObjectType() : QvbString();
  // A profile job is identified by its reference, every other job by its file.
  if (qvbEqualsIgnoreCase(objectType.view(), IMPACT_RES_PROFILE_String.view()))
    return Released<QvResource>(factory->getResource(objectName, IMPACT_RES_PROFILE_String, jobReference));
  const auto reference = uri->asString();
  if (auto* job = factory->getResource(objectName, objectType, localFilename(reference, reference)))
    return Released<QvResource>(job);
  auto fileType = IMPACT_RES_FILE_String;
  return Released<QvResource>(generateFileResource(fileType, factory, jobReference));
}

bool QvResourceManagerImpl::addJobFileNode(QvResourceFactory* factory, QvResourceList* list,
                                           QvbString& jobReference) {
  if (const auto job = findRepositoryJob(factory, jobReference))
    if (const auto copy = copyThroughFactory(*factory, *job))
      return addUnlessListed(*list, *copy);
  auto fileType = IMPACT_RES_FILE_String;
  const Released<QvResource> file(generateFileResource(fileType, factory, jobReference));
  return file && addUnlessListed(*list, *file);
}

bool QvResourceManagerImpl::addFileResource(QvbString& filename, QvResourceFactory* factory,
                                            QvResourceList* list) {
  return !filename.isEmpty() && addJobFileNode(factory, list, filename);
}

bool QvResourceManagerImpl::addSQLResourcesFromFile(const QvbString& path, QvResourceFactory* factory,
                                                    QvResourceList* list) {
  QvDom document;
  return document.loadFile(path) && addSQLResources(document, factory, list);
}

bool QvResourceManagerImpl::addSQLResourcesFromString(const QvbString& xml, QvResourceFactory* factory,
                                                      QvResourceList* list) {
  QvDom document;
  return document.loadXML(xml) && addSQLResources(document, factory, list);
}

bool QvResourceManagerImpl::addSQLResources(QvDom& document, QvResourceFactory* factory,
                                            QvResourceList* list) {
  auto step = document.getRoot();
  while (!step.null() && !isSQLStep(step))
    step = step.getNextSibling(false);
  auto content = step.getFirstChild(false);
  QvbString currentDsn;
  return processSQLNode(content, factory, list, &currentDsn);
}

// Siblings are a loop, so that their number costs no stack; the depth of a document is limited by its reader.
bool QvResourceManagerImpl::processSQLNode(QvDomNode& node, QvResourceFactory* factory, QvResourceList* list,
                                           QvbString* currentDsn) {
  for (auto element = node; !element.null(); element = element.getNextSibling(false)) {
    processSQLElement(element, factory, list, currentDsn);
    auto content = element.getFirstChild(false);
    processSQLNode(content, factory, list, currentDsn);
  }
  return true;
}

void QvResourceManagerImpl::processSQLElement(const QvDomNode& element, QvResourceFactory* factory,
                                              QvResourceList* list, QvbString* currentDsn) {
  if (isNamed(element, "DatabaseConnectionObject"))
    addConnection(element, factory, list, currentDsn);
  else if (isNamed(element, "SourceTable") || isNamed(element, "AliasTable"))
    addSourceTable(element, factory, list);
  else if (isNamed(element, "Create"))
    addCreatedTable(element, factory, list, *currentDsn);
}

void QvResourceManagerImpl::addConnection(const QvDomNode& element, QvResourceFactory* factory,
                                          QvResourceList* list, QvbString* currentDsn) {
  const bool isTableServices = element.getAttributeValue(DB_DAC_TYPE_String).find("QVTK") >= 0;
  auto type = isTableServices ? QvbString("GRVS") : ODBC_String;
  const auto name = element.getAttributeValue(Name_String);
  *currentDsn = qvbStringFormat("DSN=%S;QVXTYPE=%S;", &name, &type);
  if (!name.isEmpty())
    addDataSourceResource(factory, list, *currentDsn, type);
}

// A table without a URI is known by its name alone, whatever connection came before it.
void QvResourceManagerImpl::addSourceTable(const QvDomNode& element, QvResourceFactory* factory,
                                           QvResourceList* list) {
  const auto pathUri = element.getAttributeValue(PATHURI_String);
  if (!pathUri.isEmpty()) {
    addTableByURI(pathUri, factory, list);
    return;
  }
  auto table = element.getAttributeValue(Name_String);
  auto type = ODBC_String;
  QvbString none;
  if (!table.isEmpty())
    addTableResource(factory, list, none, type, none, none, table);
}

// The data source goes by the name under which lineage knows it, as its identity and location do elsewhere.
void QvResourceManagerImpl::addTableByURI(const QvbString& pathUri, QvResourceFactory* factory,
                                          QvResourceList* list) {
  QvDataURIComponents components;
  if (!getDataURIComponentsFromString(pathUri, &components) || components.dataSource.isEmpty() ||
      components.dataSourceType.isEmpty())
    return;
  auto dataSource = syscatDsn(components.server, components.dataSource);
  addDataSourceResource(factory, list, dataSource, components.dataSourceType);
  addTableResource(factory, list, dataSource, components.dataSourceType, components.catalog,
                   components.schema, components.table);
}

// The connection has added the data source already, so that the table alone is left to add.
void QvResourceManagerImpl::addCreatedTable(const QvDomNode& element, QvResourceFactory* factory,
                                            QvResourceList* list, QvbString& currentDsn) {
  const auto target = element.getAttributeValue(TARGETNAME_String);
  auto name = parseTableName(target);
  QvbString type;
  if (!currentDsn.isEmpty() && !name.table.isEmpty())
    addTableResource(factory, list, currentDsn, type, name.catalog, name.schema, name.table);
}
