// The resource factory and the resolver of the lineage store.
#pragma once

#include "qvreposres/qvresourcefactory.h"

#include <functional>
#include <string_view>
#include <unordered_map>

class QvLogger;

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
  QVREPOSRES_HIDDEN bool findLocation(const QvbString& name, const QvbString& identity, const QvbString& type,
                                      QvbString* outputName, QvbString* outputURI);

private:
  // What is looked for, and the outputs of getResourceLocation.
  struct Lookup {
    const QvbString& identity;
    const QvbString& type;
    QvbString* name;
    QvbString* uri;
  };
  using Locator = bool (LineageResourceResolver::*)(const Lookup& lookup) const;

  struct TableLocation {
    QvbString table;
    QvbString uri; // empty where the data source has no name
  };
  struct TextHash {
    std::size_t operator()(const QvbString& text) const noexcept {
      return std::hash<std::string_view>()(text.view());
    }
  };

  QVREPOSRES_HIDDEN const TableLocation* tableLocation(const QvbString& identity) const;
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

  QvLogger* m_logger;
  QvbString m_errorMessage{""};
  // By identity, which says it all: a table is asked for by every resource that uses it, and reading its identity is half
  // the work of an export.
  mutable std::unordered_map<QvbString, TableLocation, TextHash> m_tables;
};

// Splits the name of a system catalog's data source, "prefix - rest", at its first " - ". False, with the outputs
// untouched, for every other name.
bool isSyscatDsn(const QvbString& name, QvbString* prefix, QvbString* rest);
// The name that it splits: "server - data source". Without a server it is the data source's own.
QvbString syscatDsn(const QvbString& server, const QvbString& dataSource);
