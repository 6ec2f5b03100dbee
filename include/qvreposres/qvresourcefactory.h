// How lineage resources are made and where they live.
#pragma once

#include "qvreposres/export.h"
#include "qvreposres/qvresource.h"
#include "qvxbase/qvuri.h"

// Finds names, identities and places of resources. A host that keeps its objects elsewhere supplies one; that of the
// lineage store knows no repository of its own. `id` and `uuid` are the object's identifiers in its repository, either of
// which may be empty. Outputs may be written when the result is false, too. The lineage
// store's own throws nothing: a lookup that memory is short for is false or null.
class QVREPOSRES_API QvResourceResolver {
public:
  virtual ~QvResourceResolver() = default;
  // For the factory that owns the resolver.
  virtual void release() = 0;
  // The display name and the reference of an object: its identity, or a URI that getResourceFromURI() takes. For a file,
  // `id` is its path. False when it cannot be told, true with an empty reference when there is none. The lineage store's
  // own answers false for a "Task" and true for all else, and writes for a "MasterDataProject" alone.
  virtual bool resolveResource(const QvbString& type, const QvbString& id, const QvbString& uuid,
                               QvbString* name, QvbString* reference) = 0;
  // The resource that a URI stands for, a new one that the caller releases; null when it stands for none. The lineage
  // store's own knows tables and data sources.
  virtual QvResource* getResourceFromURI(const QvbString& uri) = 0;
  // Where the resource of this identity and type lives, as a URI or a path, with a name to show for it (`name`, or a
  // better one). False when it cannot be reached: the outputs then tell where it would be, as far as that is known.
  virtual bool getResourceLocation(const QvbString& name, const QvbString& identity, const QvbString& type,
                                   QvbString* outputName, QvbString* outputURI) = 0;
  // The repository whose objects the resolver knows; false when there is none, as for the lineage store's own.
  virtual bool getUnifiedRepositoryName(QvbString* name) = 0;
  // The identity of an object that is known by name: what a rule without identifiers is looked up with. False when there
  // is no such object; the lineage store's own knows none by name, and answers as the other resolveResource() without a name.
  virtual bool resolveResource(const QvbString& type, const QvbString& id, const QvbString& name,
                               const QvbString& uuid, QvbString* identity) = 0;
};

// Makes the resources of lists and stores; a host may supply its own.
class QVREPOSRES_API QvResourceFactory {
public:
  virtual ~QvResourceFactory() = default;
  virtual void release() = 0;
  // Of the factory's own last failure; the lineage store's has none to tell.
  virtual QvbString getErrorMessage() = 0;
  // A new resource that the caller releases; null when memory is short.
  virtual QvResource* getResource(const QvbString& name, const QvbString& type,
                                  const QvbString& identity) = 0;
  // Where extensions of the factory lie; empty for the lineage store's.
  virtual QvbString getPluginPath() = 0;
  // The factory owns the resolver from then on. Null is ignored. A resolver registered before is not released: it stays
  // with who registered it, as the lineage store's own does with the store, which ends it when it ends itself, and whose
  // export asks it as before. The resource manager asks the one that is registered.
  virtual void registerResourceResolver(QvResourceResolver* resolver) = 0;
  // The registered resolver, not to be released; null when there is none.
  virtual QvResourceResolver* getResourceResolver() = 0;
  // A new resource for a table or data source, which the caller releases; null when the URI names neither.
  virtual QvResource* getDataResource(QvDataURI* uri) = 0;
};
