// The resource factory and the resolver of the lineage store.
#pragma once

#include "qvreposres/qvresourcefactory.h"
#include "qvxlog/qvlog.h"

class RepositoryFolders;

// What is known of the place of a resource.
struct LineageLocation {
  QvbString name;
  QvbString uri;
  QvbString dataPath; // of what has a data URI
};

class QVREPOSRES_API LineageImpactFactoryImpl : public QvResourceFactory {
public:
  LineageImpactFactoryImpl() = default;
  LineageImpactFactoryImpl(const LineageImpactFactoryImpl&) = delete;
  LineageImpactFactoryImpl& operator=(const LineageImpactFactoryImpl&) = delete;
  ~LineageImpactFactoryImpl() override;

  void release() override { delete this; }
  QvbString getErrorMessage() override { return m_errorMessage; }
  QvResource* getResource(const QvbString& name, const QvbString& type, const QvbString& identity) override;
  QvbString getPluginPath() override { return ""; }
  void registerResourceResolver(QvResourceResolver* resolver) override;
  QvResourceResolver* getResourceResolver() override { return m_resolver; }
  QvResource* getDataResource(QvDataURI* uri) override;

private:
  QvbString m_errorMessage{""};
  QvResourceResolver* m_resolver = nullptr;
  QvbString m_lastType; // shared by the resources of that type which come in a row
};

class QVREPOSRES_API LineageResourceResolver : public QvResourceResolver {
public:
  LineageResourceResolver();

  void release() override { delete this; }
  bool resolveResource(const QvbString& type, const QvbString& id, const QvbString& uuid, QvbString* name,
                       QvbString* reference) override;
  QvResource* getResourceFromURI(const QvbString& uri) override;
  bool getResourceLocation(const QvbString& name, const QvbString& identity, const QvbString& type,
                           QvbString* outputName, QvbString* outputURI) override;
  bool getUnifiedRepositoryName(QvbString* name) override;
  bool resolveResource(const QvbString& type, const QvbString& id, const QvbString& name,
                       const QvbString& uuid, QvbString* identity) override;

  // Why a resource that only a unified repository knows was not resolved.
  const QvbString& getErrorMessage() const { return m_errorMessage; }
  // Whatever cannot be looked at counts as existing.
  bool fileExists(const QvbString& path) const;

  // getResourceLocation(), but for memory that cannot be had, which is std::bad_alloc and not a location that is unknown.
  // `folders` are those that the lookups of one export share; null where there is no more than this one.
  QVREPOSRES_HIDDEN bool findLocation(const QvbString& name, const QvbString& identity, const QvbString& type,
                                      RepositoryFolders* folders, LineageLocation* location);
  // Whether a lookup for a resource of this type writes nothing to the log, so that nobody sees whether it is made.
  QVREPOSRES_HIDDEN bool isSilent(const QvbString& type) const;

private:
  struct Lookup {
    const QvbString& identity;
    const QvbString& type;
    RepositoryFolders* folders;
    LineageLocation* location;
  };
  using Locator = bool (LineageResourceResolver::*)(const Lookup& lookup) const;

  QVREPOSRES_HIDDEN bool resolve(const QvbString& type, const QvbString& id, QvbString* name,
                                 QvbString* reference);
  QVREPOSRES_HIDDEN void resolveMasterDataProject(const QvbString& type, const QvbString& id, QvbString* name,
                                                  QvbString* reference) const;
  QVREPOSRES_HIDDEN static Locator locatorOf(const QvbString& type);
  QVREPOSRES_HIDDEN bool locateTable(const Lookup& lookup) const;
  QVREPOSRES_HIDDEN bool locateDatabase(const Lookup& lookup) const;
  QVREPOSRES_HIDDEN bool locateJobFile(const Lookup& lookup) const;
  QVREPOSRES_HIDDEN bool locateUnifiedObject(const Lookup& lookup) const;
  QVREPOSRES_HIDDEN bool locateFile(const Lookup& lookup) const;
  QVREPOSRES_HIDDEN bool locateMasterDataProject(const Lookup& lookup) const;
  QVREPOSRES_HIDDEN bool locateUnknownType(const Lookup& lookup) const;
  QVREPOSRES_HIDDEN bool locateByURI(const Lookup& lookup) const;

  QvLog m_log;
  QvbString m_errorMessage{""};
};

// Splits the name of a system catalog's data source, "prefix - rest", at its first " - ". False, with the outputs
// untouched, for every other name.
bool isSyscatDsn(const QvbString& name, QvbString* prefix, QvbString* rest);
// The name that it splits: "server - data source". Without a server it is the data source's own.
QvbString syscatDsn(const QvbString& server, const QvbString& dataSource);
// Data source, schema and table as far as they are named; empty without a data source.
QvbString dataPathOf(const QvbString& dataSource, const QvbString& schema, const QvbString& table);
