// Who releases what, as the compiler knows it: owned objects come from own<operation>(), which takes those operations
// alone that hand over what they return. Everything else that an interface returns as a pointer stays with the object that
// returned it, and there is no way to own it by mistake:
//
//     auto manager = own<getRepositoryConfigurationManager>();
//     auto all = own<&QvReposConfigManager::getConfigurations>(manager);
//     own<getRepositoryEventManager>();  // does not compile: the library's own
//
#pragma once

#include "qvreposres/qvlineage.h"
#include "qvreposres/qvreposconfigmgr.h"
#include "qvreposres/qvreposserialize.h"
#include "qvreposres/qvresourcefactory.h"
#include "qvreposres/qvresourcemgr.h"
#include "qvxbase/qvbreleased.h"

#include <functional>
#include <type_traits>
#include <utility>

namespace qvreposres {

// Whether an operation hands what it returns to the caller, who ends it with release().
template<auto Operation>
inline constexpr bool handsOver = false;

// Managers, stores, contexts and lists that are made anew.
template<>
inline constexpr bool handsOver<&createQvResourceManager> = true;
template<>
inline constexpr bool handsOver<&getQvLineageAnalysis> = true;
template<>
inline constexpr bool handsOver<&getRepositoryConfigurationManager> = true;
template<>
inline constexpr bool handsOver<&createRepositoryMetadataObject> = true;
template<>
inline constexpr bool handsOver<&createRepositoryMetadataSerializationContext> = true;
template<>
inline constexpr bool handsOver<&RepositorySerializationContext::createMetadataObject> = true;
template<>
inline constexpr bool handsOver<&RepositoryMetadataObject::getAssociatedObjects> = true;

// Definitions and their lists, which are copies.
template<>
inline constexpr bool handsOver<&QvReposConfigManager::getConfigurations> = true;
template<>
inline constexpr bool handsOver<&QvReposConfigManager::getConfigurationsByType> = true;
template<>
inline constexpr bool handsOver<&QvReposConfigManager::getConfigurationByName> = true;
template<>
inline constexpr bool handsOver<&QvReposConfigManager::createConfiguration> = true;
template<>
inline constexpr bool handsOver<&QvReposConfigManager::getRefusals> = true;
template<>
inline constexpr bool handsOver<&QvReposConfigurationList::getValue> = true;
template<>
inline constexpr bool handsOver<&QvReposConfiguration::copyOf> = true;

// Resources that are made, and the lists that a lineage store answers with.
template<>
inline constexpr bool handsOver<&QvResourceFactory::getResource> = true;
template<>
inline constexpr bool handsOver<&QvResourceFactory::getDataResource> = true;
template<>
inline constexpr bool handsOver<&QvResourceResolver::getResourceFromURI> = true;
template<>
inline constexpr bool handsOver<&QvResourceManager::generateDataSourceResource> = true;
template<>
inline constexpr bool handsOver<&QvResourceManager::generateTableResource> = true;
template<>
inline constexpr bool handsOver<&QvResourceManager::generateMonitorResource> = true;
template<>
inline constexpr bool handsOver<&QvResourceManager::generateSourceResource> = true;
template<>
inline constexpr bool handsOver<&QvResourceManager::generateRuleResource> = true;
template<>
inline constexpr bool handsOver<&QvResourceManager::generateProfileResource> = true;
template<>
inline constexpr bool handsOver<&QvResourceManager::generateFileResource> = true;
template<>
inline constexpr bool handsOver<&QvResourceManager::generateOMRObjectByPathResource> = true;
template<>
inline constexpr bool handsOver<&QvImpactAnalysis::getResource> = true;
template<>
inline constexpr bool handsOver<&QvImpactAnalysis::createResource> = true;
template<>
inline constexpr bool handsOver<&QvImpactAnalysis::createResourceList> = true;
template<>
inline constexpr bool handsOver<&QvImpactAnalysis::getUsedByResources> = true;
template<>
inline constexpr bool handsOver<&QvImpactAnalysis::getDependentResources> = true;
template<>
inline constexpr bool handsOver<&QvImpactAnalysis::getDependentResourcesByType> = true;
template<>
inline constexpr bool handsOver<&QvImpactAnalysis::getResourcesByType> = true;
template<>
inline constexpr bool handsOver<&QvImpactAnalysis::getAllUniqueUsedResources> = true;
template<>
inline constexpr bool handsOver<&QvImpactAnalysis::getResourceTypes> = true;

template<auto Operation>
struct Own;

// Owns what an operation handed over; empty where it gave null. Made by own<operation>() alone, from which it is moved on.
template<class T>
class Owned {
public:
  Owned() = default;

  // The object, which stays owned here; null where there is none.
  T* get() const noexcept { return m_object.get(); }
  T& operator*() const { return *m_object; }
  T* operator->() const noexcept { return m_object.get(); }
  explicit operator bool() const noexcept { return static_cast<bool>(m_object); }

private:
  template<auto>
  friend struct Own;
  explicit Owned(T* object) noexcept : m_object(object) {}

  Released<T> m_object;
};

// The type of own, below.
template<auto Operation>
struct Own {
  static_assert(handsOver<Operation>,
                "what this operation returns is not the caller's: use it, and leave its end to its owner");

  // Calls the operation; of an operation of an interface the object comes first, itself or what owns it.
  template<class... Arguments>
  auto operator()(Arguments&&... arguments) const {
    auto* made = std::invoke(Operation, std::forward<Arguments>(arguments)...);
    return Owned<std::remove_pointer_t<decltype(made)>>(made);
  }
};
// own<operation>(arguments...) calls the operation and owns what it returns.
template<auto Operation>
inline constexpr Own<Operation> own{};

} // namespace qvreposres
