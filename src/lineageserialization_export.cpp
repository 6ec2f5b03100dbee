// The lineage graph as XML.
#include "lineageserialization.h"

#include "allocation.h"
#include "lineagefactory.h"
#include "lineagexml.h"
#include "qvreposres/qvreposobjecttypes.h"
#include "qvreposres/qvreposserialize.h"
#include "qvxbase/qvbconfig.h"
#include "qvxbase/qvbformat.h"
#include "qvxbase/qvuri.h"
#include "qvxdom/qvdom.h"
#include "qvxlog/qvlog.h"
#include "repositoryfolders.h"

#include <new>
#include <unordered_set>

namespace {

bool isServerJob(const QvbString& type) {
  return qvbEqualsIgnoreCase(type.view(), "ProcessJob") || qvbEqualsIgnoreCase(type.view(), "DataJob") ||
         qvbEqualsIgnoreCase(type.view(), "ProfileJob");
}

// Null where a context or an object that is not the library's own refuses.
RepositoryMetadataObject* addElement(RepositorySerializationContext& context,
                                     RepositoryMetadataObject& parent, const QvbString& name) {
  Released<RepositoryMetadataObject> element(context.createMetadataObject(name));
  return parent.addContainedObject(element.get()) ? element.release() : nullptr;
}

// Adds the data path to the object of a table.
void addDataPath(RepositorySerializationContext& context, RepositoryMetadataObject& element,
                 const QvbString& path) {
  using Names = LineageSerializationImpl;
  RepositoryMetadataObject* attributes = addElement(context, element, Names::REL_RESOURCE_ATTRIBUTES);
  if (RepositoryMetadataObject* attribute =
          attributes ? addElement(context, *attributes, Names::REL_RESOURCE_ATTRIBUTE) : nullptr) {
    attribute->addAttribute(Names::REL_RES_ATTR_NAME, Names::REL_RES_ATTR_VALUE_DATAPATH);
    attribute->setValue(path);
  }
}

// Takes what there is to say of a resource as it is found out.
class ObjectFiller {
public:
  ObjectFiller(RepositorySerializationContext& context, RepositoryMetadataObject& element)
      : m_context(context), m_element(element) {}

  void setLabel(const QvbString& text) { set(LineageSerializationImpl::REL_RES_ATTR_LABEL, text); }
  void setId(const QvbString& text) { set(LineageSerializationImpl::REL_RES_ATTR_ID, text); }
  void setType(const QvbString& text) { set(LineageSerializationImpl::REL_RES_ATTR_TYPE, text); }
  void setAnalysisDate(const QvbString& text) {
    set(LineageSerializationImpl::REL_RES_ATTR_ANALYSIS_DATE, text);
  }
  void setDataPath(const QvbString& path) {
    if (!path.isEmpty())
      addDataPath(m_context, m_element, path);
  }

private:
  void set(const QvbString& name, const QvbString& text) { m_element.addAttribute(name, text); }

  RepositorySerializationContext& m_context;
  RepositoryMetadataObject& m_element;
};

class DescriptionFiller {
public:
  explicit DescriptionFiller(LineageDescription& description) : m_description(description) {}

  void setLabel(const QvbString& text) { m_description.label = text; }
  void setId(const QvbString& text) { m_description.id = text; }
  void setType(const QvbString& text) { m_description.type = text; }
  void setAnalysisDate(const QvbString& text) { m_description.analysisDate = text; }
  void setDataPath(const QvbString& path) { m_description.dataPath = path; }

private:
  LineageDescription& m_description;
};

// All of the text or nothing.
void appendTo(QvbString* xml, const QvbString& text) {
  if (xml->isEmpty())
    *xml = text;
  else
    xml->append(text);
}

LineageForm xmlForm(bool layout) { return layout ? LineageForm::LaidOutXml : LineageForm::CompactXml; }

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

// One export. Its context and its root tell that there was memory to start it, and the context's end is logged; the text
// itself needs neither. The context ends before the root.
struct LineageSerializationImpl::Export {
  explicit Export(LineageForm form) : xml(form) {}

  Released<RepositoryMetadataObject> root;
  Released<RepositorySerializationContext> context;
  LineageXml xml;
  RepositoryFolders folders;
  LineageText told; // of the resource that was described last where somebody may see that
};

void LineageSerializationImpl::progress(const char* stage) {
  if (m_progressSink)
    m_progressSink->progress(stage);
}

bool LineageSerializationImpl::fail(const QvbString& reason, QvbString* message) {
  if (message)
    *message = reason;
  m_log.error("%s", reason);
  return false;
}

bool LineageSerializationImpl::start(Export& document, QvbString* message) {
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

bool LineageSerializationImpl::finish(Export& document, QvbString* xml, QvbString* message) {
  progress("Serializing lineage model to XML.");
  document.xml.end();
  progress("Returning lineage model as XML.");
  if (document.xml.isTooLarge())
    return fail(qvbStringFormat("The lineage is larger than %zu MB, which no reader would take",
                                QvDom::MaxSize >> 20),
                message);
  if (xml)
    appendTo(xml, document.xml.take());
  return true;
}

bool LineageSerializationImpl::getLineageAsString(QvbString* xml, QvbString* message, bool layout) {
  return getLineageAsString(this, xml, message, layout);
}

bool LineageSerializationImpl::getLineageAsString(QvImpactAnalysis* analysis, QvbString* xml,
                                                  QvbString* message, bool layout) {
  return write(analysis, xml, message, xmlForm(layout));
}

bool LineageSerializationImpl::write(QvImpactAnalysis* analysis, QvbString* text, QvbString* message,
                                     LineageForm form) {
  return resultOr(false, [&] {
    auto* own = dynamic_cast<LineageSerializationImpl*>(analysis);
    return own && own->isPlain() && !isWatched() ? exportStore(*own, text, message, form)
                                                 : exportAnalysis(analysis, text, message, form);
  });
}

bool LineageSerializationImpl::getResourceLineageAsString(QvResource* resource, QvResourceList* dependents,
                                                          QvbString* xml, QvbString* message, bool layout) {
  return resultOr(false, [&] { return exportOne(resource, dependents, xml, message, xmlForm(layout)); });
}

// Whoever is told of an export while it goes on may change the store meanwhile.
bool LineageSerializationImpl::isWatched() const {
  return m_progressSink || m_log.isEnabled(QvLoggingLevel::Trace);
}

// A store that nobody has a part in but the library.
bool LineageSerializationImpl::exportStore(LineageSerializationImpl& store, QvbString* xml,
                                           QvbString* message, LineageForm form) {
  progress("Obtaining all lineage resources from data storage.");
  const auto entries = store.sortedEntries();
  Export document(form);
  if (!start(document, message))
    return false;
  const ScopeExit forgetTexts(
      [&] { store.m_records.forEach([](LineageRecord& record) { record.text = {}; }); });
  describeSilent(store, document);
  std::unordered_set<QvbString, QvbHashIgnoreCase, QvbEqualIgnoreCase> written;
  const auto isOfOneType = [&] {
    return qvbEqualsIgnoreCase(entries.front()->first.type.view(), entries.back()->first.type.view());
  };
  const bool mayRepeat = !entries.empty() && !isOfOneType();
  for (const auto* entry : entries) {
    if (mayRepeat && !written.insert(entry->first.identity).second) // another type came before
      continue;
    document.xml.beginModel(textOf(*entry->second.record, document));
    for (const auto& dependent : entry->second.dependents.records())
      document.xml.addDependent(textOf(*dependent, document));
  }
  return finish(document, xml, message);
}

bool LineageSerializationImpl::exportAnalysis(QvImpactAnalysis* analysis, QvbString* xml, QvbString* message,
                                              LineageForm form) {
  progress("Obtaining all lineage resources from data storage.");
  Export document(form);
  const Released<QvResourceList> resources(analysis ? analysis->getAllUniqueUsedResources() : nullptr);
  if (!resources || !start(document, message))
    return false;
  const auto* own = dynamic_cast<LineageSerializationImpl*>(analysis);
  const bool isOwn = own && own->isPlain();
  while (resources->next()) {
    QvResource* resource = resources->getValue();
    if (!resource)
      continue;
    document.xml.beginModel(textOf(*resource, document, nullptr));
    const Released<QvResourceList> dependents(analysis->getDependentResources(resource, false));
    if (dependents)
      addDependents(document, *dependents);
    else if (isOwn) // memory is short: nothing goes missing without a word
      throw std::bad_alloc();
  }
  return finish(document, xml, message);
}

bool LineageSerializationImpl::exportOne(QvResource* resource, QvResourceList* dependents, QvbString* xml,
                                         QvbString* message, LineageForm form) {
  progress("Serializing all lineage resource and dependencies.");
  Export document(form);
  if (!start(document, message) || !resource)
    return false;
  document.xml.beginModel(textOf(*resource, document, &document.folders));
  if (dependents)
    addDependents(document, *dependents);
  return finish(document, xml, message);
}

// A list of a host's own may change the definitions while it is read.
void LineageSerializationImpl::addDependents(Export& document, QvResourceList& dependents) {
  auto* folders = dynamic_cast<QvResourceListImpl*>(&dependents) ? &document.folders : nullptr;
  while (dependents.next())
    if (QvResource* dependent = dependents.getValue())
      document.xml.addDependent(textOf(*dependent, document, folders));
}

// Each resource once, in any order, unless somebody might see that it is described: that one is described wherever it
// stands.
void LineageSerializationImpl::describeSilent(LineageSerializationImpl& store, Export& document) {
  std::size_t size = 0;
  store.m_records.forEach([&](LineageRecord& record) {
    if (!isSilent(record.resource.type()))
      return;
    record.text = textOf(record.resource, document, &document.folders);
    size += record.holders * document.xml.sizeOf(record.text);
  });
  document.xml.reserve(store.m_dependencies.size(), size);
}

const LineageText& LineageSerializationImpl::textOf(LineageRecord& record, Export& document) {
  return record.text.tag.isNull() ? document.told = textOf(record.resource, document, &document.folders)
                                  : record.text;
}

LineageText LineageSerializationImpl::textOf(QvResource& resource, const Export& document,
                                             RepositoryFolders* folders) {
  LineageDescription description;
  DescriptionFiller filler(description);
  describe(resource, folders, filler);
  return ::textOf(description, document.xml.form());
}

bool LineageSerializationImpl::isSilent(const QvbString& type) const {
  return !m_log.isEnabled(QvLoggingLevel::Trace) && (!m_resolver || m_resolver->isSilent(type));
}

bool LineageSerializationImpl::populateModelResource(RepositorySerializationContext* context,
                                                     RepositoryMetadataObject* element,
                                                     QvResource* resource) {
  ObjectFiller filler(*context, *element);
  describe(*resource, nullptr, filler);
  return true;
}

template<class Filler>
void LineageSerializationImpl::describe(QvResource& resource, RepositoryFolders* folders, Filler& filler) {
  const QvbString type = resource.getResourceType();
  const QvbString identity = resource.getResourceIdentity();
  if (!m_resolver || !nameByLocation(resource, identity, type, folders, filler)) {
    filler.setLabel(resource.getName());
    filler.setId(identity);
  }
  filler.setType(type);
  const QvbDate date = resource.getAnalysisDate();
  if (!date.isNull() && date.asDouble() != 0.0)
    filler.setAnalysisDate(date.asString(false));
}

// Label, id and data path of a resource whose location is found; false for every other one.
template<class Filler>
bool LineageSerializationImpl::nameByLocation(QvResource& resource, const QvbString& identity,
                                              const QvbString& type, RepositoryFolders* folders,
                                              Filler& filler) {
  const QvbString name = resource.getName();
  LineageLocation location;
  if (!m_resolver->findLocation(name, identity, type, folders, &location)) {
    m_log.trace("Using %s as identity, unable to find resource location.", identity);
    return false;
  }
  filler.setLabel(location.name.isEmpty() ? name : location.name);
  const QvbString serverIdentity = getResourceDMServerIdentity(location.uri, type);
  const QvbString& id =
      qvbEqualsIgnoreCase(serverIdentity.view(), location.uri.view()) ? location.uri : serverIdentity;
  filler.setId(id);
  m_log.trace("Setting %s identity as: %s", identity, id);
  if (qvbEqualsIgnoreCase(type.view(), "Table"))
    filler.setDataPath(location.dataPath);
  return true;
}

QvbString LineageSerializationImpl::getResourceDMServerIdentity(const QvbString& identity,
                                                                const QvbString& resourceType) {
  if (!isServerJob(resourceType)) {
    m_log.trace("Unable to obtain server identity for: id=%s, type=%s", identity, resourceType);
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
    m_log.trace("Identity found for: id=%s, type=%s, identity=%s", identity, resourceType, result);
  else
    m_log.trace("Unable to create server identity for: id=%s, type=%s", identity, resourceType);
  return result;
}

QvbString LineageSerializationImpl::getServerReference(const QvbString& server, const QvbString& identity,
                                                       const QvbString& resourceType) {
  if (server.isEmpty()) {
    m_log.trace("Empty DMS Server Name configuration option from %s: id=%s, type=%s", DMServerOptionNameKey,
                identity, resourceType);
    return {};
  }
  const Released<QvURI> uri(getURIFromURIString(identity));
  if (!uri) {
    m_log.trace("Unable to obtain object URI for: id=%s, type=%s", identity, resourceType);
    return {};
  }
  QvReposURI* object = uri->getReposURI();
  if (!object) {
    m_log.trace("Unable to obtain object Repos URI for: id=%s, type=%s", identity, resourceType);
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
    m_log.trace("URI path length invalid for DMS Ref URI: id=%s, type=%s", identity, resourceType);
    return {};
  }
  const Released<QvURI> reference(getDMSRefURIFromComponents(server, objectPath, ""));
  if (!reference) {
    m_log.trace("Unable to obtain object DMS Ref URI for: id=%s, type=%s", identity, resourceType);
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
    m_log.error("%s", reference->getErrorText());
}

bool LineageSerializationImpl::populateResourceDataPath(RepositorySerializationContext* context,
                                                        RepositoryMetadataObject* element,
                                                        const QvbString& location) {
  const Released<QvURI> uri(getURIFromURIString(location));
  QvDataURI* data = uri ? uri->getDataURI() : nullptr;
  const QvbString path =
      data ? dataPathOf(data->getDataSource(), data->getSchema(), data->getTable()) : QvbString();
  if (path.isEmpty())
    return true;
  addDataPath(*context, *element, path);
  return true;
}

extern "C" bool getLineageAsJson(QvImpactAnalysis* store, QvbString* json, QvbString* message) {
  auto* own = dynamic_cast<LineageSerializationImpl*>(store);
  return own && own->write(own, json, message, LineageForm::Json);
}
