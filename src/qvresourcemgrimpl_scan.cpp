// The resources that job references and SQL steps name.
#include "qvresourcemgrimpl.h"

#include "qvreposres/qvresourceuri.h"
#include "qvreposres/qvsqlresources.h"
#include "qvresource.h"
#include "sqlstepwalk.h"

namespace {

using Names = QvResourceManagerImpl;

// The local file of the reference for the process's own user, or `otherwise` when there is none.
QvbString localFilename(const QvbString& reference, const QvbString& otherwise) {
  const ReleasedSubject subject(qvbSubjectAccess());
  QvbString filename;
  return generateFilenameFromURIReference(subject.get(), reference, &filename) ? filename : otherwise;
}

class ResourceAdder final : public QvSQLResourceAdder {
public:
  using QvSQLResourceAdder::QvSQLResourceAdder;
};

// The resource of a plain file, by the operation of the manager.
Released<QvResource> fileOf(QvResourceManager& manager, QvResourceFactory& factory, QvbString filename) {
  auto type = Names::IMPACT_RES_FILE_String;
  return Released<QvResource>(manager.generateFileResource(type, &factory, filename));
}

// What a reference that names a repository object stands for; null for every other reference.
Released<QvResource> findRepositoryJob(QvResourceManager& manager, QvResourceFactory& factory,
                                       const QvbString& jobReference) {
  auto* resolver = jobReference.find("qvr:") >= 0 ? factory.getResourceResolver() : nullptr;
  const Released<QvURI> uri(resolver ? getURIFromURIString(jobReference) : nullptr);
  if (!uri)
    return nullptr;
  if (auto* found = resolver->getResourceFromURI(jobReference))
    return Released<QvResource>(found);
  auto* data = uri->getDataURI();
  const auto objectName = data ? data->getObjectName() : QvbString();
  const auto objectType = data ? data->getObjectType() : QvbString();
  // A profile job is identified by its reference, every other job by its file.
  if (qvbEqualsIgnoreCase(objectType.view(), Names::IMPACT_RES_PROFILE_String.view()))
    return Released<QvResource>(
        makeResource(factory, objectName, Names::IMPACT_RES_PROFILE_String, jobReference));
  const auto reference = uri->asString();
  if (auto* job = makeResource(factory, objectName, objectType, localFilename(reference, reference)))
    return Released<QvResource>(job);
  return fileOf(manager, factory, jobReference);
}

} // namespace

bool QvResourceManagerImpl::addJobFileNode(QvResourceFactory* factory, QvResourceList* list,
                                           QvbString& jobReference) {
  if (const auto job = findRepositoryJob(*this, *factory, jobReference))
    if (const auto copy = copyThroughFactory(*factory, *job))
      return addUnlessListed(*list, *copy);
  const auto file = fileOf(*this, *factory, jobReference);
  return file && addUnlessListed(*list, *file);
}

bool QvResourceManagerImpl::addFileResource(QvbString& filename, QvResourceFactory* factory,
                                            QvResourceList* list) {
  return !filename.isEmpty() && addJobFileNode(factory, list, filename);
}

bool QvResourceManagerImpl::addSQLResourcesFromFile(const QvbString& path, QvResourceFactory* factory,
                                                    QvResourceList* list) {
  ResourceAdder adder(*this, factory, list);
  return visitSQLStepInFile(path, &adder, nullptr);
}

bool QvResourceManagerImpl::addSQLResourcesFromString(const QvbString& xml, QvResourceFactory* factory,
                                                      QvResourceList* list) {
  ResourceAdder adder(*this, factory, list);
  return visitSQLStepInString(xml, &adder, nullptr);
}

bool QvResourceManagerImpl::addSQLResources(QvDom& document, QvResourceFactory* factory,
                                            QvResourceList* list) {
  ResourceAdder adder(*this, factory, list);
  walkSQLStep(document, adder);
  return true;
}

bool QvResourceManagerImpl::processSQLNode(QvDomNode& node, QvResourceFactory* factory, QvResourceList* list,
                                           QvbString* currentDsn) {
  ResourceAdder adder(*this, factory, list);
  walkSQLNodes(node, adder, *currentDsn);
  return true;
}
