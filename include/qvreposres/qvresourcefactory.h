// How lineage resources are made and where they live.
#pragma once

#include "qvreposres/export.h"
#include "qvreposres/qvresource.h"
#include "qvxbase/qvuri.h"

// Finds names, identities and places of resources. Outputs are required and are written only on the ways that their
// operation describes.
class QVREPOSRES_API QvResourceResolver {
public:
  virtual ~QvResourceResolver() = default;
  virtual void release() = 0;
  virtual bool resolveResource(const QvbString& type, const QvbString& id, const QvbString& uuid,
                               QvbString* name, QvbString* reference) = 0;
  // A new resource that the caller releases, or null.
  virtual QvResource* getResourceFromURI(const QvbString& uri) = 0;
  // Where the resource lives, and whether it can be reached.
  virtual bool getResourceLocation(const QvbString& name, const QvbString& identity, const QvbString& type,
                                   QvbString* outputName, QvbString* outputURI) = 0;
  virtual bool getUnifiedRepositoryName(QvbString* name) = 0;
  // The lookup by name.
  virtual bool resolveResource(const QvbString& type, const QvbString& id, const QvbString& name,
                               const QvbString& uuid, QvbString* identity) = 0;
};

class QVREPOSRES_API QvResourceFactory {
public:
  virtual ~QvResourceFactory() = default;
  virtual void release() = 0;
  virtual QvbString getErrorMessage() = 0;
  // A new resource that the caller releases; null when memory is short.
  virtual QvResource* getResource(const QvbString& name, const QvbString& type,
                                  const QvbString& identity) = 0;
  virtual QvbString getPluginPath() = 0;
  // The factory owns the resolver from then on. Null is ignored.
  virtual void registerResourceResolver(QvResourceResolver* resolver) = 0;
  // The registered resolver, not to be released; null when there is none.
  virtual QvResourceResolver* getResourceResolver() = 0;
  // A new resource for a table or data source, which the caller releases; null when the URI names neither.
  virtual QvResource* getDataResource(QvDataURI* uri) = 0;
};
