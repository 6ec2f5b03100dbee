// The lineage store: which resource uses which, and the graph as XML.
//
// A node of the graph is a resource type and identity, whatever the name. A store is for one thread at a time.
#pragma once

#include "qvreposres/export.h"
#include "qvreposres/qvresource.h"
#include "qvreposres/qvresourcefactory.h"

// Every list returned is a new one that the caller releases; null when memory is short. Nothing here throws.
class QVREPOSRES_API QvImpactAnalysis {
public:
  virtual ~QvImpactAnalysis() = default;
  virtual void release() = 0;
  // Always empty: this store answers in one direction.
  virtual QvResourceList* getUsedByResources(QvResource* resource, bool recursive) = 0;
  // What the resource depends on directly, whatever `recursive` says; empty for an unknown resource.
  virtual QvResourceList* getDependentResources(QvResource* resource, bool recursive) = 0;
  // Always empty.
  virtual QvResourceList* getDependentResourcesByType(QvResource* resource,
                                                      const QvbString& resourceType) = 0;
  virtual QvResourceList* getResourcesByType(const QvbString& resourceType) = 0;
  // Do nothing and answer false.
  virtual bool updateImpactAnalysis() = 0;
  virtual bool removeUnusedResources() = 0;
  virtual bool removeResources() = 0;
  // A new resource named by its identity.
  virtual QvResource* getResource(const QvbString& resourceType, const QvbString& resourceIdentity) = 0;
  // Adds what the resource depends on to what is known already, read from the list's cursor on. The store keeps copies.
  // False for a null argument. What memory is short for goes unrecorded, and the result is true.
  virtual bool addDependentResources(QvResource* resource, QvResourceList* dependents) = 0;
  // A new, empty list.
  virtual QvResourceList* createResourceList() = 0;
  // A new resource of the store's factory, which the caller releases.
  virtual QvResource* createResource(const QvbString& name, const QvbString& resourceType,
                                     const QvbString& resourceIdentity) = 0;
  // Forgets what the resource depends on. False when nothing is known of it, or memory is short.
  virtual bool deleteResource(QvResource* resource) = 0;
  // The resource must be one that this library made.
  virtual bool setAnalysisDate(QvResource* resource, const QvbDate& date) = 0;
  // Every resource with recorded dependencies, in the order of type and identity.
  virtual QvResourceList* getAllUniqueUsedResources() = 0;
  // One row: "ProcessJob".
  virtual QvStringList* getResourceTypes() = 0;
  // Appends the graph as lineage XML to `xml`: all of it, or nothing and false, with a `message` when the document could
  // not be started or is larger than 512 MB; without one memory was short. With `layout` each element stands on a line of
  // its own. Where resources live is told by the store's own resolver, whichever one a host registered with the factory:
  // that one is for the resource manager.
  virtual bool getLineageAsString(QvbString* xml, QvbString* message, bool layout) = 0;
  // The store's own factory, not to be released.
  virtual QvResourceFactory* getDefaultResourceFactory() = 0;
};

// Receives the stages of an export. The class of the store that getQvLineageAnalysis() makes has a setter for one,
// setProgressSink(); QvImpactAnalysis has none, so that only what is built with the library's sources can set it.
class QVREPOSRES_API LineageProgressSink {
public:
  virtual ~LineageProgressSink() = default;
  // The stage that begins, for people.
  virtual void progress(const QvbString& text) = 0;
};

// A new, empty store that the caller releases; null when memory is short.
extern "C" QVREPOSRES_API QvImpactAnalysis* getQvLineageAnalysis();

// Appends to `json` what getLineageAsString() would say, as an array of records, one for each resource that uses others:
// "id", "label", "type", "analysisDate" and "dataPath" where they are known, and "uses", an array of such records without
// "uses". Characters that XML cannot carry are U+FFFD here, too. For a store of getQvLineageAnalysis(); false for any
// other, and as getLineageAsString() is.
extern "C" QVREPOSRES_API bool getLineageAsJson(QvImpactAnalysis* store, QvbString* json, QvbString* message);
