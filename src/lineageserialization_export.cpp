// The lineage graph as XML.
#include "lineageserialization.h"

#include "allocation.h"
#include "lineagefactory.h"
#include "qvreposres/qvreposobjecttypes.h"
#include "qvreposres/qvreposserialize.h"
#include "qvxbase/qvbconfig.h"
#include "qvxbase/qvuri.h"
#include "qvxlog/qvxlog.h"

#include <new>

namespace {

constexpr const char* logSource = "src/lineageserialization";

bool isServerJob(const QvbString& type) {
  return qvbEqualsIgnoreCase(type.view(), "ProcessJob") || qvbEqualsIgnoreCase(type.view(), "DataJob") ||
         qvbEqualsIgnoreCase(type.view(), "ProfileJob");
}

// Data source, schema and table as far as they are named; empty without a data source.
QvbString dataPathOf(QvDataURI& uri) {
  QvbString path = uri.getDataSource();
  if (!path.isEmpty())
    for (const QvbString& part : {uri.getSchema(), uri.getTable()})
      if (!part.isEmpty())
        path.append(".").append(part);
  return path;
}

// Null where a context or an object that is not the library's own refuses.
RepositoryMetadataObject* addElement(RepositorySerializationContext& context,
                                     RepositoryMetadataObject& parent, const QvbString& name) {
  Released<RepositoryMetadataObject> element(context.createMetadataObject(name));
  return parent.addContainedObject(element.get()) ? element.release() : nullptr;
}

// In a context of the library's own, which refuses only what there is no memory for.
RepositoryMetadataObject& addOwnElement(RepositorySerializationContext& context,
                                        RepositoryMetadataObject& parent, const QvbString& name) {
  RepositoryMetadataObject* element = addElement(context, parent, name);
  if (!element)
    throw std::bad_alloc();
  return *element;
}

// All of the text or nothing.
void appendTo(QvbString* xml, const QvbString& text) {
  if (xml->isEmpty())
    *xml = text;
  else
    xml->append(text);
}

// Made while there is memory to tell of its lack.
const QvbString noContext("Error creating serialization context");
const QvbString noModels("Error creating serialization models");

} // namespace

const QvbString LineageSerializationImpl::REL_RELATIONSHIPMODELS{"RelationshipModels"};
const QvbString LineageSerializationImpl::REL_RELATIONSHIPMODEL{"RelationshipModel"};
const QvbString LineageSerializationImpl::REL_RELATIONSHIPNODES{"RelationshipNodes"};
const QvbString LineageSerializationImpl::REL_RELATIONSHIPNODE{"RelationshipNode"};
const QvbString LineageSerializationImpl::REL_RESOURCE{"Resource"};
const QvbString LineageSerializationImpl::REL_NODE_ATTR_TYPE{"type"};
const QvbString LineageSerializationImpl::REL_NODE_ATTR_DIRECTION{"direction"};
const QvbString LineageSerializationImpl::REL_NODE_RELATIONSHIPTYPE_DEPENDS{"D"};
const QvbString LineageSerializationImpl::REL_NODE_DIRECTION_DEPENDS{"1"};
const QvbString LineageSerializationImpl::REL_RES_ATTR_LABEL{"label"};
const QvbString LineageSerializationImpl::REL_RES_ATTR_TYPE{"type"};
const QvbString LineageSerializationImpl::REL_RES_ATTR_ANALYSIS_DATE{"analysisDate"};
const QvbString LineageSerializationImpl::REL_RESOURCE_ATTRIBUTES{"ResourceAttributes"};
const QvbString LineageSerializationImpl::REL_RESOURCE_ATTRIBUTE{"ResourceAttribute"};
const QvbString LineageSerializationImpl::REL_RES_ATTR_NAME{"name"};
const QvbString LineageSerializationImpl::REL_RES_ATTR_ID{"id"};
const QvbString LineageSerializationImpl::REL_RES_ATTR_VALUE_DATAPATH{"DATA.PATH"};
const QvbString LineageSerializationImpl::DMServerOptionNameKey{QvbOptions::ServerName.key};
const QvbString LineageSerializationImpl::DMServerBatchFolder{"batch_jobs"};
const QvbString LineageSerializationImpl::DMServerProcessFolder{"process_services"};
const QvbString LineageSerializationImpl::DMSREFURI_SVC_TYPE{"ServiceType"};
const QvbString LineageSerializationImpl::DMSREFURI_OBJ_TYPE{"ObjectType"};
const QvbString LineageSerializationImpl::DMSREFURI_SVC_TYPE_BATCH{"BATCH"};
const QvbString LineageSerializationImpl::DMSREFURI_SVC_TYPE_REAL{"REALTIME"};

// The context ends before the root.
struct LineageSerializationImpl::Document {
  Released<RepositoryMetadataObject> root;
  Released<RepositorySerializationContext> context;
};

void LineageSerializationImpl::progress(const char* stage) {
  if (m_progressSink)
    m_progressSink->progress(stage);
}

bool LineageSerializationImpl::fail(const QvbString& reason, QvbString* message) {
  if (message)
    *message = reason;
  m_logger->logEvent(QvLoggingLevel::Error, logSource, __LINE__, "%s", reason);
  return false;
}

bool LineageSerializationImpl::startDocument(Document& document, QvbString* message) {
  document.context.reset(madeOrNull(createRepositoryMetadataSerializationContext));
  if (!document.context)
    return fail(noContext, message);
  document.root.reset(
      madeOrNull([&] { return document.context->createMetadataObject(REL_RELATIONSHIPMODELS); }));
  if (!document.root)
    return fail(noModels, message);
  progress("Creating lineage export data model.");
  return true;
}

RepositoryMetadataObject& LineageSerializationImpl::addModel(Document& document, QvResource* resource) {
  RepositoryMetadataObject& model = addOwnElement(*document.context, *document.root, REL_RELATIONSHIPMODEL);
  populateModelResource(document.context.get(), &addOwnElement(*document.context, model, REL_RESOURCE),
                        resource);
  return model;
}

void LineageSerializationImpl::addDependents(Document& document, RepositoryMetadataObject& model,
                                             QvResourceList& dependents) {
  RepositorySerializationContext& context = *document.context;
  RepositoryMetadataObject* nodes = nullptr;
  while (dependents.next()) {
    QvResource* dependent = dependents.getValue();
    if (!dependent)
      continue;
    if (!nodes)
      nodes = &addOwnElement(context, model, REL_RELATIONSHIPNODES);
    RepositoryMetadataObject& node = addOwnElement(context, *nodes, REL_RELATIONSHIPNODE);
    node.addAttribute(REL_NODE_ATTR_TYPE, REL_NODE_RELATIONSHIPTYPE_DEPENDS);
    node.addAttribute(REL_NODE_ATTR_DIRECTION, REL_NODE_DIRECTION_DEPENDS);
    populateModelResource(&context, &addOwnElement(context, node, REL_RESOURCE), dependent);
  }
}

bool LineageSerializationImpl::writeDocument(Document& document, QvbString* xml, QvbString* message,
                                             bool layout) {
  document.context->setSerializationOfRelationships(true);
  progress("Serializing lineage model to XML.");
  QvbString text;
  const bool result = document.context->serialize(document.root.get(), &text, message, layout);
  progress("Returning lineage model as XML.");
  if (xml && result)
    appendTo(xml, text);
  return result;
}

bool LineageSerializationImpl::getLineageAsString(QvbString* xml, QvbString* message, bool layout) {
  return getLineageAsString(this, xml, message, layout);
}

bool LineageSerializationImpl::getLineageAsString(QvImpactAnalysis* analysis, QvbString* xml,
                                                  QvbString* message, bool layout) {
  return resultOr(false, [&] { return exportAll(analysis, xml, message, layout); });
}

bool LineageSerializationImpl::exportAll(QvImpactAnalysis* analysis, QvbString* xml, QvbString* message,
                                         bool layout) {
  progress("Obtaining all lineage resources from data storage.");
  Document document;
  const Released<QvResourceList> resources(analysis ? analysis->getAllUniqueUsedResources() : nullptr);
  if (!resources || !startDocument(document, message))
    return false;
  while (resources->next()) {
    QvResource* resource = resources->getValue();
    if (!resource)
      continue;
    RepositoryMetadataObject& model = addModel(document, resource);
    const Released<QvResourceList> dependents(analysis->getDependentResources(resource, false));
    if (dependents)
      addDependents(document, model, *dependents);
    else if (analysis == this) // nothing goes missing without a word
      throw std::bad_alloc();
  }
  return writeDocument(document, xml, message, layout);
}

bool LineageSerializationImpl::getResourceLineageAsString(QvResource* resource, QvResourceList* dependents,
                                                          QvbString* xml, QvbString* message, bool layout) {
  return resultOr(false, [&] { return exportOne(resource, dependents, xml, message, layout); });
}

bool LineageSerializationImpl::exportOne(QvResource* resource, QvResourceList* dependents, QvbString* xml,
                                         QvbString* message, bool layout) {
  progress("Serializing all lineage resource and dependencies.");
  Document document;
  if (!startDocument(document, message) || !resource)
    return false;
  RepositoryMetadataObject& model = addModel(document, resource);
  if (dependents)
    addDependents(document, model, *dependents);
  return writeDocument(document, xml, message, layout);
}

bool LineageSerializationImpl::populateModelResource(RepositorySerializationContext* context,
                                                     RepositoryMetadataObject* element,
                                                     QvResource* resource) {
  const QvbString type = resource->getResourceType();
  const QvbString identity = resource->getResourceIdentity();
  if (!m_resolver || !nameByLocation(context, element, resource, identity, type)) {
    element->addAttribute(REL_RES_ATTR_LABEL, resource->getName());
    element->addAttribute(REL_RES_ATTR_ID, identity);
  }
  element->addAttribute(REL_RES_ATTR_TYPE, type);
  const QvbDate date = resource->getAnalysisDate();
  if (!date.isNull() && date.asDouble() != 0.0)
    element->addAttribute(REL_RES_ATTR_ANALYSIS_DATE, date.asString(false));
  return true;
}

// Label, id and data path of a resource whose location is found; false for every other one.
bool LineageSerializationImpl::nameByLocation(RepositorySerializationContext* context,
                                              RepositoryMetadataObject* element, QvResource* resource,
                                              const QvbString& identity, const QvbString& type) {
  const QvbString name = resource->getName();
  QvbString label;
  QvbString location;
  if (!m_resolver->findLocation(name, identity, type, &label, &location)) {
    m_logger->logEvent(QvLoggingLevel::Trace, logSource, __LINE__,
                       "Using %s as identity, unable to find resource location.", identity);
    return false;
  }
  element->addAttribute(REL_RES_ATTR_LABEL, label.isEmpty() ? name : label);
  const QvbString serverIdentity = getResourceDMServerIdentity(location, type);
  const QvbString& id =
      qvbEqualsIgnoreCase(serverIdentity.view(), location.view()) ? location : serverIdentity;
  element->addAttribute(REL_RES_ATTR_ID, id);
  m_logger->logEvent(QvLoggingLevel::Trace, logSource, __LINE__, "Setting %s identity as: %s", identity, id);
  if (qvbEqualsIgnoreCase(type.view(), "Table"))
    populateResourceDataPath(context, element, location);
  return true;
}

QvbString LineageSerializationImpl::getResourceDMServerIdentity(const QvbString& identity,
                                                                const QvbString& resourceType) {
  if (!isServerJob(resourceType)) {
    m_logger->logEvent(QvLoggingLevel::Trace, logSource, __LINE__,
                       "Unable to obtain server identity for: id=%s, type=%s", identity, resourceType);
    return identity;
  }
  QvbString result = identity;
  if (const Released<QvbConfigOptions> options(qvbGetConfigOptions("")); options) {
    QvbString server;
    options->getOption(DMServerOptionNameKey, &server, 0);
    const QvbString reference = getServerReference(server, identity, resourceType);
    if (!reference.isEmpty())
      result = reference;
  }
  if (!result.isEmpty())
    m_logger->logEvent(QvLoggingLevel::Trace, logSource, __LINE__,
                       "Identity found for: id=%s, type=%s, identity=%s", identity, resourceType, result);
  else
    m_logger->logEvent(QvLoggingLevel::Trace, logSource, __LINE__,
                       "Unable to create server identity for: id=%s, type=%s", identity, resourceType);
  return result;
}

QvbString LineageSerializationImpl::getServerReference(const QvbString& server, const QvbString& identity,
                                                       const QvbString& resourceType) {
  if (server.isEmpty()) {
    m_logger->logEvent(QvLoggingLevel::Trace, logSource, __LINE__,
                       "Empty DMS Server Name configuration option from %s: id=%s, type=%s",
                       DMServerOptionNameKey, identity, resourceType);
    return {};
  }
  const Released<QvURI> uri(getURIFromURIString(identity));
  if (!uri) {
    m_logger->logEvent(QvLoggingLevel::Trace, logSource, __LINE__,
                       "Unable to obtain object URI for: id=%s, type=%s", identity, resourceType);
    return {};
  }
  QvReposURI* object = uri->getReposURI();
  if (!object) {
    m_logger->logEvent(QvLoggingLevel::Trace, logSource, __LINE__,
                       "Unable to obtain object Repos URI for: id=%s, type=%s", identity, resourceType);
    return {};
  }
  QvbString path = object->getPath();
  QvbString extension;
  if (getFileExtensionForType(resourceType, &extension) && !extension.isEmpty())
    path.append(".").append(extension);
  return makeServerReference(server, path, identity, resourceType);
}

QvbString LineageSerializationImpl::makeServerReference(const QvbString& server, const QvbString& objectPath,
                                                        const QvbString& identity,
                                                        const QvbString& resourceType) {
  if (objectPath.isEmpty()) {
    m_logger->logEvent(QvLoggingLevel::Trace, logSource, __LINE__,
                       "URI path length invalid for DMS Ref URI: id=%s, type=%s", identity, resourceType);
    return {};
  }
  const Released<QvURI> reference(getDMSRefURIFromComponents(server, objectPath, ""));
  if (!reference) {
    m_logger->logEvent(QvLoggingLevel::Trace, logSource, __LINE__,
                       "Unable to obtain object DMS Ref URI for: id=%s, type=%s", identity, resourceType);
    return {};
  }
  if (objectPath.find(DMServerBatchFolder) == 0)
    setReferenceParameter(reference.get(), DMSREFURI_SVC_TYPE, DMSREFURI_SVC_TYPE_BATCH);
  else if (objectPath.find(DMServerProcessFolder) == 0)
    setReferenceParameter(reference.get(), DMSREFURI_SVC_TYPE, DMSREFURI_SVC_TYPE_REAL);
  setReferenceParameter(reference.get(), DMSREFURI_OBJ_TYPE, resourceType);
  return reference->asString();
}

void LineageSerializationImpl::setReferenceParameter(QvURI* reference, const QvbString& name,
                                                     const QvbString& value) {
  if (!reference->setParameter(name, value))
    m_logger->logEvent(QvLoggingLevel::Error, logSource, __LINE__, "%s", reference->getErrorText());
}

bool LineageSerializationImpl::populateResourceDataPath(RepositorySerializationContext* context,
                                                        RepositoryMetadataObject* element,
                                                        const QvbString& location) {
  const Released<QvURI> uri(getURIFromURIString(location));
  QvDataURI* data = uri ? uri->getDataURI() : nullptr;
  const QvbString path = data ? dataPathOf(*data) : QvbString();
  if (path.isEmpty())
    return true;
  RepositoryMetadataObject* attributes = addElement(*context, *element, REL_RESOURCE_ATTRIBUTES);
  if (RepositoryMetadataObject* attribute =
          attributes ? addElement(*context, *attributes, REL_RESOURCE_ATTRIBUTE) : nullptr) {
    attribute->addAttribute(REL_RES_ATTR_NAME, REL_RES_ATTR_VALUE_DATAPATH);
    attribute->setValue(path);
  }
  return true;
}
