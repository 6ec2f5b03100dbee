// The lineage store and its export.
#pragma once

#include "guards.h"
#include "lineagexml.h"
#include "qvreposres/qvlineage.h"
#include "qvxlog/qvlog.h"

#include <unordered_map>
#include <vector>

class LineageImpactFactoryImpl;
class LineageResourceResolver;
class RepositoryMetadataObject;
class RepositoryFolders;
class RepositorySerializationContext;

// A node of the graph: a resource by its type and identity, whatever their case.
struct LineageNode {
  QvbString type;
  QvbString identity;
  std::size_t hash = 0; // of both
  bool operator==(const LineageNode& other) const noexcept {
    return hash == other.hash && qvbEqualsIgnoreCase(type.view(), other.type.view()) &&
           qvbEqualsIgnoreCase(identity.view(), other.identity.view());
  }
};
struct LineageNodeHash {
  std::size_t operator()(const LineageNode& node) const noexcept { return node.hash; }
};

// Orders resources by type, then by identity, both without regard to case; null comes last.
struct MapLineageResourceCompare {
  bool operator()(QvResource* a, QvResource* b) const;
  bool operator()(const LineageNode& a, const LineageNode& b) const noexcept;
};

class QVREPOSRES_API LineageSerializationImpl : public QvImpactAnalysis {
public:
  // Element and attribute names of the export, and what makes a server reference.
  static const QvbString REL_RELATIONSHIPMODELS;
  static const QvbString REL_RELATIONSHIPMODEL;
  static const QvbString REL_RELATIONSHIPNODES;
  static const QvbString REL_RELATIONSHIPNODE;
  static const QvbString REL_RESOURCE;
  static const QvbString REL_NODE_ATTR_TYPE;
  static const QvbString REL_NODE_ATTR_DIRECTION;
  static const QvbString REL_NODE_RELATIONSHIPTYPE_DEPENDS;
  static const QvbString REL_NODE_DIRECTION_DEPENDS;
  static const QvbString REL_RES_ATTR_LABEL;
  static const QvbString REL_RES_ATTR_TYPE;
  static const QvbString REL_RES_ATTR_ANALYSIS_DATE;
  static const QvbString REL_RESOURCE_ATTRIBUTES;
  static const QvbString REL_RESOURCE_ATTRIBUTE;
  static const QvbString REL_RES_ATTR_NAME;
  static const QvbString REL_RES_ATTR_ID;
  static const QvbString REL_RES_ATTR_VALUE_DATAPATH;
  static const QvbString DMServerOptionNameKey;
  static const QvbString DMServerBatchFolder;
  static const QvbString DMServerProcessFolder;
  static const QvbString DMSREFURI_SVC_TYPE;
  static const QvbString DMSREFURI_OBJ_TYPE;
  static const QvbString DMSREFURI_SVC_TYPE_BATCH;
  static const QvbString DMSREFURI_SVC_TYPE_REAL;

  LineageSerializationImpl();
  LineageSerializationImpl(const LineageSerializationImpl&) = delete;
  LineageSerializationImpl& operator=(const LineageSerializationImpl&) = delete;
  ~LineageSerializationImpl() override;

  void release() override { delete this; }
  QvResourceList* getUsedByResources(QvResource* resource, bool recursive) override;
  QvResourceList* getDependentResources(QvResource* resource, bool recursive) override;
  QvResourceList* getDependentResourcesByType(QvResource* resource, const QvbString& resourceType) override;
  QvResourceList* getResourcesByType(const QvbString& resourceType) override;
  bool updateImpactAnalysis() override { return false; }
  bool removeUnusedResources() override { return false; }
  bool removeResources() override { return false; }
  QvResource* getResource(const QvbString& resourceType, const QvbString& resourceIdentity) override;
  bool addDependentResources(QvResource* resource, QvResourceList* dependents) override;
  QvResourceList* createResourceList() override;
  QvResource* createResource(const QvbString& name, const QvbString& resourceType,
                             const QvbString& resourceIdentity) override;
  bool deleteResource(QvResource* resource) override;
  bool setAnalysisDate(QvResource* resource, const QvbDate& date) override;
  QvResourceList* getAllUniqueUsedResources() override;
  QvStringList* getResourceTypes() override;
  bool getLineageAsString(QvbString* xml, QvbString* message, bool layout) override;
  QvResourceFactory* getDefaultResourceFactory() override;

  QVREPOSRES_HIDDEN static LineageNode nodeOf(QvResource* resource);

  // Receives the stages of each export; null for none. The sink stays its owner's.
  void setProgressSink(LineageProgressSink* sink) { m_progressSink = sink; }

  // The export: lineageserialization_export.cpp.
  // As the operation above, for any analysis.
  bool getLineageAsString(QvImpactAnalysis* analysis, QvbString* xml, QvbString* message, bool layout);
  QVREPOSRES_HIDDEN bool write(QvImpactAnalysis* analysis, QvbString* text, QvbString* message,
                               LineageForm form);
  // The lineage of one resource, with the dependencies of the list (optional, and not released) from its cursor on.
  bool getResourceLineageAsString(QvResource* resource, QvResourceList* dependents, QvbString* xml,
                                  QvbString* message, bool layout);
  // Fills a "Resource" element; always true.
  bool populateModelResource(RepositorySerializationContext* context, RepositoryMetadataObject* element,
                             QvResource* resource);
  // The reference to a job on the data-management server that is configured; every other identity as it is.
  QvbString getResourceDMServerIdentity(const QvbString& identity, const QvbString& resourceType);
  // Adds the data path that a table's location names; always true.
  bool populateResourceDataPath(RepositorySerializationContext* context, RepositoryMetadataObject* element,
                                const QvbString& location);
  // The steps of getResourceDMServerIdentity: the reference to the job that the identity names, and to the object at a
  // path of the server. Null when there is none, which the log tells with identity and type.
  QVREPOSRES_HIDDEN QvbString getServerReference(const QvbString& server, const QvbString& identity,
                                                 const QvbString& resourceType);
  QVREPOSRES_HIDDEN QvbString makeServerReference(const QvbString& server, const QvbString& objectPath,
                                                  const QvbString& identity, const QvbString& resourceType);
  // Logs why when the parameter cannot be set.
  QVREPOSRES_HIDDEN void setReferenceParameter(QvURI* reference, const QvbString& name,
                                               const QvbString& value);

private:
  struct Dependencies {
    Released<QvResource> key; // of a class that makes its own
    LineageRecordHold record; // of every other key
    LineageDependents dependents;
  };
  using DependencyMap = std::unordered_map<LineageNode, Dependencies, LineageNodeHash>;
  struct Export;

  // Whether nothing of a derived class may have a part in what the store keeps and exports.
  QVREPOSRES_HIDDEN bool isPlain() const;
  QVREPOSRES_HIDDEN void record(QvResource& resource, QvResourceList& dependents);
  QVREPOSRES_HIDDEN void append(LineageDependents& dependents, QvResource& resource);
  QVREPOSRES_HIDDEN void appendAll(LineageDependents& dependents, QvResourceList& resources);
  // In the order of MapLineageResourceCompare.
  QVREPOSRES_HIDDEN std::vector<const DependencyMap::value_type*> sortedEntries() const;
  QVREPOSRES_HIDDEN Released<QvResourceList> allKeys() const;

  QVREPOSRES_HIDDEN void progress(const char* stage);
  QVREPOSRES_HIDDEN bool fail(const QvbString& reason, QvbString* message);
  QVREPOSRES_HIDDEN bool start(Export& document, QvbString* message);
  QVREPOSRES_HIDDEN bool finish(Export& document, QvbString* xml, QvbString* message);
  QVREPOSRES_HIDDEN bool isWatched() const;
  QVREPOSRES_HIDDEN bool exportStore(LineageSerializationImpl& store, QvbString* text, QvbString* message,
                                     LineageForm form);
  QVREPOSRES_HIDDEN bool exportAnalysis(QvImpactAnalysis* analysis, QvbString* text, QvbString* message,
                                        LineageForm form);
  QVREPOSRES_HIDDEN bool exportOne(QvResource* resource, QvResourceList* dependents, QvbString* xml,
                                   QvbString* message, LineageForm form);
  QVREPOSRES_HIDDEN void addDependents(Export& document, QvResourceList& dependents);
  QVREPOSRES_HIDDEN void describeSilent(LineageSerializationImpl& store, Export& document);
  QVREPOSRES_HIDDEN const LineageText& textOf(LineageRecord& record, Export& document);
  QVREPOSRES_HIDDEN LineageText textOf(QvResource& resource, const Export& document,
                                       RepositoryFolders* folders);
  // Whether nobody sees that a resource of this type is described.
  QVREPOSRES_HIDDEN bool isSilent(const QvbString& type) const;
  template<class Filler>
  QVREPOSRES_HIDDEN void describe(QvResource& resource, RepositoryFolders* folders, Filler& filler);
  template<class Filler>
  QVREPOSRES_HIDDEN bool nameByLocation(QvResource& resource, const QvbString& identity,
                                        const QvbString& type, RepositoryFolders* folders, Filler& filler);

  QvLog m_log;
  // What the export asks, also where a host registered another one with the factory.
  LineageResourceResolver* m_resolver = nullptr;
  LineageProgressSink* m_progressSink = nullptr;
  Released<LineageImpactFactoryImpl> m_factory;
  LineageRecords m_records; // which outlives those that hold them
  // Looked up by hash; the order of MapLineageResourceCompare is made when it is asked for.
  DependencyMap m_dependencies;
};
