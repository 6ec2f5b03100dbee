#include "lineageserialization.h"

#include "allocation.h"
#include "lineagefactory.h"
#include "qvresource.h"
#include "qvxlog/qvlog.h"
#include "textorder.h"

#include <new>
#include <typeinfo>

namespace {

// A row that cannot be had is std::bad_alloc, so that nothing goes missing without a word. What a host's resource has to
// tell is asked for before there is a row, which would stay as it is if that failed.
void appendUnlessListed(QvResourceList& list, QvResource& resource) {
  if (list.contains(&resource))
    return;
  QvResourceImpl copy;
  QvResource* row = dynamic_cast<QvResourceImpl*>(&resource);
  if (!row) {
    copy.copyFrom(resource);
    row = &copy;
  }
  if (!list.addRow())
    throw std::bad_alloc();
  list.setLastRowElement(0, row);
}

// As a row that is set does: whoever owns the list relies on that.
void passProperties(QvResource& resource) {
  QvResourcePropertyList* properties = resource.getProperties();
  while (properties && properties->next()) {
  }
}

} // namespace

bool MapLineageResourceCompare::operator()(QvResource* a, QvResource* b) const {
  return a && (!b || (*this)(LineageSerializationImpl::nodeOf(a), LineageSerializationImpl::nodeOf(b)));
}

bool MapLineageResourceCompare::operator()(const LineageNode& a, const LineageNode& b) const noexcept {
  const int types = a.type.compare(b.type, true);
  return types != 0 ? types < 0 : a.identity.compare(b.identity, true) < 0;
}

LineageNode LineageSerializationImpl::nodeOf(QvResource* resource) {
  LineageNode node{resource->getResourceType(), resource->getResourceIdentity()};
  node.hash = node.identity.hashIgnoreCase() * 31 + node.type.hashIgnoreCase();
  return node;
}

bool LineageSerializationImpl::isPlain() const { return typeid(*this) == typeid(LineageSerializationImpl); }

// Kept: LineageExport.LogsWhyThereIsNoServerReference
LineageSerializationImpl::LineageSerializationImpl()
    : m_log("QV.Repos.QvResposRes.LineageSerialization", "src/lineageserialization"),
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

// Kept: LineageStore.AnswersNothingAgainstTheDirectionOfItsGraph
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

// What memory is short for goes unrecorded: a resource that was not known before with all that it depends on, and of a
// known one the rest.
bool LineageSerializationImpl::addDependentResources(QvResource* resource, QvResourceList* dependents) {
  if (!resource || !dependents)
    return false;
  tryAllocate([&] { record(*resource, *dependents); });
  return true;
}

// The list may be a host's own, which may use the store while it is read: the node is entered afterwards.
void LineageSerializationImpl::record(QvResource& resource, QvResourceList& dependents) {
  LineageNode node = nodeOf(&resource);
  if (const auto known = m_dependencies.find(node); known != m_dependencies.end())
    return appendAll(known->second.dependents, dependents);
  Dependencies added;
  if (isPlain() && m_factory)
    added.record = m_records.hold(QvResourceImpl(resource.getName(), node.type, node.identity));
  else
    added.key.reset(createResource(resource.getName(), node.type, node.identity));
  if (!added.record && !added.key)
    return;
  appendAll(added.dependents, dependents);
  m_dependencies.emplace(std::move(node), std::move(added));
}

void LineageSerializationImpl::append(LineageDependents& dependents, QvResource& resource) {
  if (auto* own = dynamic_cast<QvResourceImpl*>(&resource)) {
    if (dependents.contains(own->identity()))
      return;
    passProperties(*own);
    return dependents.append(m_records.hold(*own));
  }
  if (dependents.contains(resource.getResourceIdentity()))
    return;
  QvResourceImpl copy;
  copy.copyFrom(resource);
  dependents.append(m_records.hold(copy));
}

void LineageSerializationImpl::appendAll(LineageDependents& dependents, QvResourceList& resources) {
  while (resources.next())
    if (QvResource* resource = resources.getValue())
      append(dependents, *resource);
}

// What is recorded is unique already.
// Kept: LineageStore.OnlyDirectDependenciesAreGiven
QvResourceList* LineageSerializationImpl::getDependentResources(QvResource* resource, bool) {
  return madeOrNull([&]() -> QvResourceList* {
    Released<QvResourceListImpl> result(new QvResourceListImpl);
    const auto entry = resource ? m_dependencies.find(nodeOf(resource)) : m_dependencies.end();
    if (entry != m_dependencies.end())
      for (const auto& record : entry->second.dependents.records())
        if (!result->append(record->resource))
          return nullptr;
    return result.release();
  });
}

bool LineageSerializationImpl::deleteResource(QvResource* resource) {
  return resource && resultOr(false, [&] { return m_dependencies.erase(nodeOf(resource)) != 0; });
}

bool LineageSerializationImpl::setAnalysisDate(QvResource* resource, const QvbDate& date) {
  auto* own = dynamic_cast<QvResourceImpl*>(resource);
  if (own)
    own->setAnalysisDate(date);
  return own;
}

QvResourceList* LineageSerializationImpl::getAllUniqueUsedResources() {
  return madeOrNull([this] { return allKeys().release(); });
}

std::vector<const LineageSerializationImpl::DependencyMap::value_type*>
LineageSerializationImpl::sortedEntries() const {
  std::vector<const DependencyMap::value_type*> entries;
  entries.reserve(m_dependencies.size());
  for (const auto& entry : m_dependencies)
    entries.push_back(&entry);
  using Entry = const DependencyMap::value_type*;
  using Order = TextOrder<Entry>;
  const auto typeOf = [](Entry entry) { return entry->first.type.view(); };
  const auto identityOf = [](Entry entry) { return entry->first.identity.view(); };
  Order::sort(entries, typeOf,
              [&](std::span<Entry> ofType) { Order::sort(ofType, identityOf, [](std::span<Entry>) {}); });
  return entries;
}

Released<QvResourceList> LineageSerializationImpl::allKeys() const {
  Released<QvResourceList> result(new QvResourceListImpl);
  for (const auto* entry : sortedEntries()) {
    const auto& [key, record, dependents] = entry->second;
    appendUnlessListed(*result, record ? record->resource : *key);
  }
  return result;
}

QvStringList* LineageSerializationImpl::getResourceTypes() {
  return madeOrNull([]() -> QvStringList* {
    Released<QvStringListImpl> types(new QvStringListImpl(1));
    QvbString processJob("ProcessJob");
    if (types->contains(processJob))
      return types.release();
    if (!types->addRow())
      return nullptr;
    types->setLastRowElement(0, processJob);
    return types.release();
  });
}

extern "C" QvImpactAnalysis* getQvLineageAnalysis() { return newOrNull<LineageSerializationImpl>(); }
