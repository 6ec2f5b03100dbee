#include "lineageserialization.h"

#include "allocation.h"
#include "lineagefactory.h"
#include "qvresource.h"
#include "qvxlog/qvxlog.h"

#include <algorithm>
#include <vector>

namespace {

void addAllUnlessListed(QvResourceList& list, QvResourceList& resources) {
  while (resources.next())
    if (QvResource* resource = resources.getValue())
      addUnlessListed(list, *resource);
}

} // namespace

std::size_t LineageNodeHash::operator()(const LineageNode& node) const {
  return qvbHashIgnoreCase(node.identity.view()) * 31 + qvbHashIgnoreCase(node.type.view());
}

bool MapLineageResourceCompare::operator()(QvResource* a, QvResource* b) const {
  return a && (!b || (*this)(LineageSerializationImpl::nodeOf(a), LineageSerializationImpl::nodeOf(b)));
}

bool MapLineageResourceCompare::operator()(const LineageNode& a, const LineageNode& b) const noexcept {
  const int types = a.type.compare(b.type, true);
  return types != 0 ? types < 0 : a.identity.compare(b.identity, true) < 0;
}

LineageNode LineageSerializationImpl::nodeOf(QvResource* resource) {
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

// A resolver that the factory still has ends with the factory.
LineageSerializationImpl::~LineageSerializationImpl() {
  if (m_resolver && m_factory->getResourceResolver() != m_resolver)
    m_resolver->release();
}

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
  LineageNode node = nodeOf(resource);
  auto entry = m_dependencies.find(node);
  if (entry == m_dependencies.end()) {
    Dependencies added{Released<QvResource>(createResource(resource->getName(), node.type, node.identity)),
                       Released<QvResourceList>(createResourceList())};
    if (!added.key || !added.dependents)
      return true; // out of memory: the dependencies go unrecorded
    entry = m_dependencies.emplace(std::move(node), std::move(added)).first;
  }
  addAllUnlessListed(*entry->second.dependents, *dependents);
  return true;
}

// What is recorded is unique already.
QvResourceList* LineageSerializationImpl::getDependentResources(QvResource* resource, bool) {
  Released<QvResourceListImpl> result(newOrNull<QvResourceListImpl>());
  if (!result || !resource)
    return result.release();
  const auto entry = m_dependencies.find(nodeOf(resource));
  if (entry != m_dependencies.end())
    result->copyList(entry->second.dependents.get());
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
  std::vector<const DependencyMap::value_type*> entries;
  entries.reserve(m_dependencies.size());
  for (const auto& entry : m_dependencies)
    entries.push_back(&entry);
  const MapLineageResourceCompare isBefore;
  std::sort(entries.begin(), entries.end(),
            [&](const auto* a, const auto* b) { return isBefore(a->first, b->first); });
  for (const auto* entry : entries)
    addUnlessListed(*result, *entry->second.key);
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
