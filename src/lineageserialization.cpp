#include "lineageserialization.h"

#include "lineagefactory.h"
#include "qvresource.h"
#include "qvxlog/qvxlog.h"

#include <algorithm>
#include <vector>

namespace {

// Appends the resource unless the list has it; false when memory is short.
bool appendUnique(QvResourceList& list, QvResource* resource) {
  if (!resource || list.contains(resource))
    return true;
  if (!list.addRow())
    return false;
  list.setLastRowElement(0, resource);
  return true;
}

void appendAllUnique(QvResourceList& list, QvResourceList& resources) {
  while (resources.next())
    appendUnique(list, resources.getValue());
}

} // namespace

bool MapLineageResourceCompare::operator()(QvResource* a, QvResource* b) const {
  if (!a)
    return false;
  if (!b)
    return true;
  if (const int types = a->getResourceType().compare(b->getResourceType(), true))
    return types < 0;
  return a->getResourceIdentity().compare(b->getResourceIdentity(), true) < 0;
}

std::size_t LineageSerializationImpl::NodeHash::operator()(const Node& node) const {
  return qvbHashIgnoreCase(node.identity.view()) * 31 + qvbHashIgnoreCase(node.type.view());
}

LineageSerializationImpl::Node LineageSerializationImpl::nodeOf(QvResource* resource) {
  return {resource->getResourceType(), resource->getResourceIdentity()};
}

LineageSerializationImpl::LineageSerializationImpl()
    : m_logger(qvlogGetLogger("QV.Repos.QvResposRes.LineageSerialization")),
      m_factory(newOrNull<LineageImpactFactoryImpl>()) {
  if (!m_factory)
    return;
  m_resolver = newOrNull<LineageResourceResolver>();
  m_factory->registerResourceResolver(m_resolver);
}

LineageSerializationImpl::~LineageSerializationImpl() = default;

QvResourceList* LineageSerializationImpl::createResourceList() { return newOrNull<QvResourceListImpl>(); }

QvResourceList* LineageSerializationImpl::getUsedByResources(QvResource*, bool) {
  return createResourceList();
}

QvResourceList* LineageSerializationImpl::getDependentResourcesByType(QvResource*, const QvbString&) {
  return createResourceList();
}

QvResourceList* LineageSerializationImpl::getResourcesByType(const QvbString&) {
  return createResourceList();
}

QvResource* LineageSerializationImpl::createResource(const QvbString& name, const QvbString& resourceType,
                                                     const QvbString& resourceIdentity) {
  return m_factory ? m_factory->getResource(name, resourceType, resourceIdentity) : nullptr;
}

QvResource* LineageSerializationImpl::getResource(const QvbString& resourceType,
                                                  const QvbString& resourceIdentity) {
  return m_factory ? m_factory->getResource(resourceIdentity, resourceType, resourceIdentity) : nullptr;
}

QvResourceFactory* LineageSerializationImpl::getDefaultResourceFactory() { return m_factory.get(); }

bool LineageSerializationImpl::addDependentResources(QvResource* resource, QvResourceList* dependents) {
  if (!resource || !dependents)
    return false;
  Node node = nodeOf(resource);
  auto entry = m_dependencies.find(node);
  if (entry == m_dependencies.end()) {
    Dependencies added{Released<QvResource>(createResource(resource->getName(), node.type, node.identity)),
                       Released<QvResourceList>(createResourceList())};
    if (!added.key || !added.dependents)
      return true; // out of memory: the dependencies go unrecorded
    entry = m_dependencies.emplace(std::move(node), std::move(added)).first;
  }
  appendAllUnique(*entry->second.dependents, *dependents);
  return true;
}

QvResourceList* LineageSerializationImpl::getDependentResources(QvResource* resource, bool) {
  Released<QvResourceList> result(createResourceList());
  if (!result || !resource)
    return result.release();
  const auto entry = m_dependencies.find(nodeOf(resource));
  if (entry != m_dependencies.end()) {
    entry->second.dependents->reset();
    appendAllUnique(*result, *entry->second.dependents);
  }
  return result.release();
}

bool LineageSerializationImpl::deleteResource(QvResource* resource) {
  return resource && m_dependencies.erase(nodeOf(resource)) != 0;
}

bool LineageSerializationImpl::setAnalysisDate(QvResource* resource, const QvbDate& date) {
  auto* own = dynamic_cast<QvResourceImpl*>(resource);
  if (own)
    own->setAnalysisDate(date);
  return own;
}

QvResourceList* LineageSerializationImpl::getAllUniqueUsedResources() {
  Released<QvResourceList> result(createResourceList());
  if (!result)
    return nullptr;
  std::vector<QvResource*> keys;
  keys.reserve(m_dependencies.size());
  for (const auto& [node, dependencies] : m_dependencies)
    keys.push_back(dependencies.key.get());
  std::sort(keys.begin(), keys.end(), MapLineageResourceCompare());
  for (QvResource* key : keys)
    appendUnique(*result, key);
  return result.release();
}

QvStringList* LineageSerializationImpl::getResourceTypes() {
  Released<QvStringListImpl> types(newOrNull<QvStringListImpl>(1));
  QvbString processJob("ProcessJob");
  if (types && !types->contains(processJob) && types->addRow())
    types->setLastRowElement(0, processJob);
  return types.release();
}

extern "C" QvImpactAnalysis* getQvLineageAnalysis() { return newOrNull<LineageSerializationImpl>(); }
