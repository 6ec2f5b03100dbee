// The resource manager: identities, resources and the scanning of job files.
//
// A resource identity is a small XML text that is equal for two jobs that touch the same thing; compare identities as
// texts. Bytes that XML cannot carry (controls, broken UTF-8) become U+FFFD in it: two names that differ in such bytes
// alone share an identity, and a list takes them for the same thing. A connection string ("DSN string") is a run of
// key=value pairs, each ended by ";"; the keys read here are "DSN=" (data source name) and "QVXTYPE=" (its type, "ODBC"
// or "GRVS").
//
// A manager holds no state: one may serve any number of threads. Factories and lists are for one thread at a time.
// Texts that are not const are inputs, except the `name` of generateFileResourceId.
#pragma once

#include "qvreposres/export.h"
#include "qvreposres/qvresource.h"
#include "qvreposres/qvresourcefactory.h"

// Identities, resources, and what job files name.
class QVREPOSRES_API QvResourceManager {
public:
  virtual ~QvResourceManager() = default;
  virtual void release() = 0;

  // Identities. The generators are false, with nothing written, when the part that the kind needs is empty. The parsers
  // are false for a text that is no identity of the kind and leave an output whose part is missing or empty untouched.

  // The identity of a data source, or of a table in one. False, with nothing written, without a data source's name, or a
  // table's.
  virtual bool generateDataSourceResourceId(const QvbString& dsn, const QvbString& dsntype,
                                            QvbString* identity) = 0;
  virtual bool generateTableDataSourceResourceId(const QvbString& dsn, const QvbString& dsntype,
                                                 const QvbString& catalog, const QvbString& schema,
                                                 const QvbString& table, QvbString* identity) = 0;
  // The identity of a repository object, which has an id or a uuid. The repository is not part of it.
  virtual bool generateUnifiedObjectResourceId(const QvbString& repository, const QvbString& type,
                                               const QvbString& id, const QvbString& uuid,
                                               QvbString* identity) = 0;
  // The parts of a repository object's identity; `repository` is never written.
  virtual bool getUnifiedObjectFromResourceId(const QvbString& identity, QvbString* repository,
                                              QvbString* type, QvbString* id, QvbString* uuid) = 0;
  // The identity of a file. An empty `name` becomes the file name part of `filename`.
  virtual bool generateFileResourceId(const QvbString& filename, QvbString& name, QvbString* identity) = 0;
  // The parts of a file's identity.
  virtual bool getFilenameFromResourceId(const QvbString& identity, QvbString* filename, QvbString* name) = 0;

  // The data source name or type in a connection string; the short form is the data source name. False, with nothing
  // written, when the key is missing or its value empty.
  virtual bool generateShortDSN(const QvbString& dsn, QvbString* shortDsn) = 0;
  virtual bool getNameFromDSN(const QvbString& dsn, QvbString* name) = 0;
  virtual bool getDSNTypeFromDSN(const QvbString& dsn, QvbString* type) = 0;

  // The parts of a table's identity, or of a data source's.
  virtual bool getTableObjectFromResourceId(const QvbString& identity, QvbString* dsn, QvbString* dsntype,
                                            QvbString* catalog, QvbString* schema, QvbString* table) = 0;
  virtual bool getDataSourceObjectFromResourceId(const QvbString& identity, QvbString* dsn,
                                                 QvbString* dsntype) = 0;
  // Display name and object type of a file; plain files keep their extension in the name.
  virtual bool getResourceTypeFromFilename(QvbString& filename, QvbString* name, QvbString* type) = 0;

  // A new resource that the caller releases; null when a required part is empty or the factory gives none. A name that is
  // not known is handed to the factory as an empty text. The type of a data source counts only when its connection string
  // names one.
  virtual QvResource* generateDataSourceResource(QvResourceFactory* factory, QvbString& dsn,
                                                 QvbString& dsnType) = 0;
  virtual QvResource* generateTableResource(QvResourceFactory* factory, QvbString& dsn, QvbString& dsnType,
                                            QvbString& catalog, QvbString& schema, QvbString& table) = 0;
  virtual QvResource* generateMonitorResource(QvResourceFactory* factory, QvbString& repository,
                                              QvbString& taskName, QvbString& id, QvbString& uuid) = 0;
  virtual QvResource* generateSourceResource(QvResourceFactory* factory, QvbString& repository,
                                             QvbString& sourceId) = 0;
  // A rule without id and uuid is looked up by its name, which it needs then.
  virtual QvResource* generateRuleResource(QvResourceFactory* factory, QvbString& repository, QvbString& id,
                                           QvbString& uuid, QvbString& ruleName) = 0;
  // A new resource that the caller releases; null when a required part is empty or the factory gives none.
  virtual QvResource* generateProfileResource(QvResourceFactory* factory, QvbString& repository,
                                              QvbString& id, QvbString& uuid) = 0;
  virtual QvResource* generateFileResource(QvbString& defaultType, QvResourceFactory* factory,
                                           QvbString& filename) = 0;
  // A repository object path of the form "folder/name (Type)". The path is the first text; the other four are reserved.
  virtual QvResource* generateOMRObjectByPathResource(QvResourceFactory* factory, QvbString& path,
                                                      QvbString& reserved1, QvbString& reserved2,
                                                      QvbString& reserved3, QvbString& reserved4) = 0;

  // Scanning. Each adds what it finds unless the list has a resource of the same identity.

  // The resource that a job reference (a repository URI or a path) stands for; true only when a row was added.
  virtual bool addJobFileNode(QvResourceFactory* factory, QvResourceList* list, QvbString& jobReference) = 0;
  // The resource of a file, as generateFileResource() makes it; true only when a row was added.
  virtual bool addFileResource(QvbString& filename, QvResourceFactory* factory, QvResourceList* list) = 0;
  // The data sources and tables that an SQL step names; false for a document that does not parse.
  virtual bool addSQLResourcesFromFile(const QvbString& path, QvResourceFactory* factory,
                                       QvResourceList* list) = 0;
  virtual bool addSQLResourcesFromString(const QvbString& xml, QvResourceFactory* factory,
                                         QvResourceList* list) = 0;

  // Adds what the generate operation of this name makes, unless the list has that identity; true when a resource was
  // generated, even where the list has no room for it.
  virtual bool addDataSourceResource(QvResourceFactory* factory, QvResourceList* list, QvbString& dsn,
                                     QvbString& dsnType) = 0;
  virtual bool addTableResource(QvResourceFactory* factory, QvResourceList* list, QvbString& dsn,
                                QvbString& dsnType, QvbString& catalog, QvbString& schema,
                                QvbString& table) = 0;
  virtual bool addMonitorResource(QvResourceFactory* factory, QvResourceList* list, QvbString& repository,
                                  QvbString& taskName, QvbString& id, QvbString& uuid) = 0;
  virtual bool addRuleResourceByName(QvResourceFactory* factory, QvResourceList* list, QvbString& repository,
                                     QvbString& ruleName) = 0;
  virtual bool addProfileResourceById(QvResourceFactory* factory, QvResourceList* list, QvbString& id) = 0;
  virtual bool addProfileResource(QvResourceFactory* factory, QvResourceList* list, QvbString& repository,
                                  QvbString& id, QvbString& uuid) = 0;
  virtual bool addRuleResource(QvResourceFactory* factory, QvResourceList* list, QvbString& repository,
                               QvbString& id, QvbString& uuid, QvbString& ruleName) = 0;
  // An object on a data-management server. An empty reference becomes "service:object" when both are given; an empty
  // name becomes the reference's own.
  virtual bool addDMSRefResource(QvResourceFactory* factory, QvResourceList* list, QvbString& server,
                                 QvbString& reference, QvbString& service, QvbString& object,
                                 QvbString& name) = 0;
  // As generateOMRObjectByPathResource() makes it, added unless the list has it.
  virtual bool addOMRObjectByPathResource(QvResourceFactory* factory, QvResourceList* list, QvbString& path,
                                          QvbString& reserved1, QvbString& reserved2, QvbString& reserved3,
                                          QvbString& reserved4) = 0;
};

// A new manager; the caller releases it.
extern "C" QVREPOSRES_API QvResourceManager* createQvResourceManager();
