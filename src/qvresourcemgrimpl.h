// The resource manager.
#pragma once

#include "guards.h"
#include "qvreposres/qvresourcemgr.h"
#include "qvxdom/qvdom.h"

class QVREPOSRES_API QvResourceManagerImpl : public QvResourceManager {
public:
  // Resource types.
  static const QvbString IMPACT_RES_DATASRC_String;
  static const QvbString IMPACT_RES_FILE_String;
  static const QvbString IMPACT_RES_PROFILE_String;
  static const QvbString IMPACT_RES_RULE_String;
  static const QvbString IMPACT_RES_SOURCE_String;
  static const QvbString IMPACT_RES_TABLE_String;
  static const QvbString IMPACT_RES_TASK_String;
  // Names of what could not be resolved.
  static const QvbString UNRESOLVED_PROFILE_String;
  static const QvbString UNRESOLVED_RULE_String;
  static const QvbString UNRESOLVED_SOURCE_String;
  static const QvbString UNRESOLVED_TASK_String;
  // Attributes of SQL steps, and the type of their data sources unless they name one.
  static const QvbString DB_DAC_TYPE_String;
  static const QvbString Name_String;
  static const QvbString PATHURI_String;
  static const QvbString ODBC_String;
  static const QvbString TARGETNAME_String;

  void release() override { delete this; }

  // Identities and connection strings: qvresourcemgrimpl_identity.cpp.
  bool generateDataSourceResourceId(const QvbString& dsn, const QvbString& dsntype,
                                    QvbString* identity) override;
  bool generateTableDataSourceResourceId(const QvbString& dsn, const QvbString& dsntype,
                                         const QvbString& catalog, const QvbString& schema,
                                         const QvbString& table, QvbString* identity) override;
  bool generateUnifiedObjectResourceId(const QvbString& repository, const QvbString& type,
                                       const QvbString& id, const QvbString& uuid,
                                       QvbString* identity) override;
  bool getUnifiedObjectFromResourceId(const QvbString& identity, QvbString* repository, QvbString* type,
                                      QvbString* id, QvbString* uuid) override;
  bool generateFileResourceId(const QvbString& filename, QvbString& name, QvbString* identity) override;
  bool getFilenameFromResourceId(const QvbString& identity, QvbString* filename, QvbString* name) override;
  bool generateShortDSN(const QvbString& dsn, QvbString* shortDsn) override;
  bool getNameFromDSN(const QvbString& dsn, QvbString* name) override;
  bool getDSNTypeFromDSN(const QvbString& dsn, QvbString* type) override;
  bool getTableObjectFromResourceId(const QvbString& identity, QvbString* dsn, QvbString* dsntype,
                                    QvbString* catalog, QvbString* schema, QvbString* table) override;
  bool getDataSourceObjectFromResourceId(const QvbString& identity, QvbString* dsn,
                                         QvbString* dsntype) override;
  bool getResourceTypeFromFilename(QvbString& filename, QvbString* name, QvbString* type) override;

  // Resources: qvresourcemgrimpl.cpp.
  QvResource* generateDataSourceResource(QvResourceFactory* factory, QvbString& dsn,
                                         QvbString& dsnType) override;
  QvResource* generateTableResource(QvResourceFactory* factory, QvbString& dsn, QvbString& dsnType,
                                    QvbString& catalog, QvbString& schema, QvbString& table) override;
  QvResource* generateMonitorResource(QvResourceFactory* factory, QvbString& repository, QvbString& taskName,
                                      QvbString& id, QvbString& uuid) override;
  QvResource* generateSourceResource(QvResourceFactory* factory, QvbString& repository,
                                     QvbString& sourceId) override;
  QvResource* generateRuleResource(QvResourceFactory* factory, QvbString& repository, QvbString& id,
                                   QvbString& uuid, QvbString& ruleName) override;
  QvResource* generateProfileResource(QvResourceFactory* factory, QvbString& repository, QvbString& id,
                                      QvbString& uuid) override;
  QvResource* generateFileResource(QvbString& defaultType, QvResourceFactory* factory,
                                   QvbString& filename) override;
  QvResource* generateOMRObjectByPathResource(QvResourceFactory* factory, QvbString& path,
                                              QvbString& reserved1, QvbString& reserved2,
                                              QvbString& reserved3, QvbString& reserved4) override;
  // The resource of an object on a data-management server. "ServiceType" (the service) and "ObjectType" become
  // properties of the new resource: in the list that the factory gave it, or in one that the resource owns.
  QvResource* generateDMSRefResource(QvResourceFactory* factory, QvbString& server, QvbString& reference,
                                     QvbString& service, QvbString& object, QvbString& name);

  // Job files and SQL steps: qvresourcemgrimpl_scan.cpp.
  bool addJobFileNode(QvResourceFactory* factory, QvResourceList* list, QvbString& jobReference) override;
  bool addFileResource(QvbString& filename, QvResourceFactory* factory, QvResourceList* list) override;
  bool addSQLResourcesFromFile(const QvbString& path, QvResourceFactory* factory,
                               QvResourceList* list) override;
  bool addSQLResourcesFromString(const QvbString& xml, QvResourceFactory* factory,
                                 QvResourceList* list) override;
  bool addSQLResources(QvDom& document, QvResourceFactory* factory, QvResourceList* list);
  // Walks the node, its siblings after it and all below them in document order. `currentDsn` is the connection string
  // of the latest connection met.
  bool processSQLNode(QvDomNode& node, QvResourceFactory* factory, QvResourceList* list,
                      QvbString* currentDsn);

  // Resources added to a list: qvresourcemgrimpl.cpp.
  bool addDataSourceResource(QvResourceFactory* factory, QvResourceList* list, QvbString& dsn,
                             QvbString& dsnType) override;
  bool addTableResource(QvResourceFactory* factory, QvResourceList* list, QvbString& dsn, QvbString& dsnType,
                        QvbString& catalog, QvbString& schema, QvbString& table) override;
  bool addMonitorResource(QvResourceFactory* factory, QvResourceList* list, QvbString& repository,
                          QvbString& taskName, QvbString& id, QvbString& uuid) override;
  bool addRuleResourceByName(QvResourceFactory* factory, QvResourceList* list, QvbString& repository,
                             QvbString& ruleName) override;
  bool addProfileResourceById(QvResourceFactory* factory, QvResourceList* list, QvbString& id) override;
  bool addProfileResource(QvResourceFactory* factory, QvResourceList* list, QvbString& repository,
                          QvbString& id, QvbString& uuid) override;
  bool addRuleResource(QvResourceFactory* factory, QvResourceList* list, QvbString& repository, QvbString& id,
                       QvbString& uuid, QvbString& ruleName) override;
  bool addDMSRefResource(QvResourceFactory* factory, QvResourceList* list, QvbString& server,
                         QvbString& reference, QvbString& service, QvbString& object,
                         QvbString& name) override;
  bool addOMRObjectByPathResource(QvResourceFactory* factory, QvResourceList* list, QvbString& path,
                                  QvbString& reserved1, QvbString& reserved2, QvbString& reserved3,
                                  QvbString& reserved4) override;
};

// What the factory gives for these texts, of which an absent one is passed on as an empty one.
QvResource* makeResource(QvResourceFactory& factory, const QvbString& name, const QvbString& type,
                         const QvbString& identity);
// A new resource of the factory's with the name, type and identity of the given one; null when the factory gives none.
Released<QvResource> copyThroughFactory(QvResourceFactory& factory, QvResource& resource);
