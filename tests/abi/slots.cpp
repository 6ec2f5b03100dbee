// The order of virtual operations is a binary contract: applications that were compiled against an earlier build call
// by slot. The numbers below are that contract, counted from 0 with the two destructor slots where a class has them.
#include "qvreposres/qvfilecache.h"
#include "qvreposres/qvlineage.h"
#include "qvreposres/qvreposconfigmgr.h"
#include "qvreposres/qvreposeventmgr.h"
#include "qvreposres/qvreposserialize.h"
#include "qvreposres/qvresource.h"
#include "qvreposres/qvresourcefactory.h"
#include "qvreposres/qvresourcemgr.h"
#include "qvreposres/qvsqlstep.h"
#include "qvxbase/qvbconfig.h"
#include "qvxbase/qvbpath.h"
#include "qvxbase/qvuri.h"
#include "qvxbb/qvbautosingleton.h"
#include "qvxhttp/qvsecuritycontext.h"
#include "qvxhttp/qvxhttp.h"
#include "qvxlog/qvxlog.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

// In the platform's C++ ABI (Itanium, 2.3) a pointer to a virtual member function holds 1 plus the byte offset of its
// slot.
template<class Method>
std::ptrdiff_t slotOf(Method method) {
  std::ptrdiff_t value = 0;
  static_assert(sizeof method >= sizeof value);
  std::memcpy(&value, &method, sizeof value);
  EXPECT_EQ(value & 1, 1) << "not virtual";
  return (value - 1) / static_cast<std::ptrdiff_t>(sizeof(void*));
}

struct Operation {
  std::string name;
  std::ptrdiff_t slot;
};

// Operations stand one after the other from the first slot that the class adds.
void expectSlots(std::ptrdiff_t first, const std::vector<Operation>& operations) {
  for (const auto& operation : operations)
    EXPECT_EQ(operation.slot, first++) << operation.name;
}

#define OPERATION(type, name)                                                                                \
  { #type "::" #name, slotOf(&type::name) }
#define OVERLOAD(type, name, ...)                                                                            \
  { #type "::" #name, slotOf(static_cast <__VA_ARGS__>(&type::name)) }

constexpr std::ptrdiff_t afterDestructor = 2;
constexpr std::ptrdiff_t noDestructor = 0;

TEST(Slots, QvbAutoSingleton) {
  expectSlots(noDestructor, {OPERATION(QvbAutoSingleton, initialize), OPERATION(QvbAutoSingleton, terminate),
                             OPERATION(QvbAutoSingleton, getId), OPERATION(QvbAutoSingleton, createObject),
                             OPERATION(QvbAutoSingleton, deleteObject)});
}

TEST(Slots, QvSQLStepVisitor) {
  using V = QvSQLStepVisitor;
  expectSlots(noDestructor, {OPERATION(V, visitConnection), OPERATION(V, visitTableRead),
                             OPERATION(V, visitBareTableRead), OPERATION(V, visitTableWritten),
                             OPERATION(V, visitUnusableName), OPERATION(V, visitUnknownRoot)});
}

TEST(Slots, QvReposConfiguration) {
  using C = QvReposConfiguration;
  expectSlots(afterDestructor, {OPERATION(C, release),
                                OPERATION(C, getName),
                                OPERATION(C, setName),
                                OPERATION(C, isActive),
                                OPERATION(C, setActive),
                                OPERATION(C, getVaultPath),
                                OPERATION(C, setVaultPath),
                                OPERATION(C, getUnifiedRepositoryConnect),
                                OPERATION(C, setUnifiedRepositoryConnect),
                                OPERATION(C, getUnifiedRepositoryConnectType),
                                OPERATION(C, setUnifiedRepositoryConnectType),
                                OPERATION(C, getUnifiedConnectionType),
                                OPERATION(C, setUnifiedConnectionType),
                                OPERATION(C, getUnifiedRepositoryPrefix),
                                OPERATION(C, setUnifiedRepositoryPrefix),
                                OPERATION(C, getUnifiedRepositoryName),
                                OPERATION(C, setUnifiedRepositoryName),
                                OPERATION(C, getUnifiedRepositoryVersion),
                                OPERATION(C, setUnifiedRepositoryVersion),
                                OPERATION(C, getType),
                                OPERATION(C, setType),
                                OPERATION(C, getFilename),
                                OPERATION(C, setFilename),
                                OPERATION(C, getVaultLogFile),
                                OPERATION(C, setVaultLogFile),
                                OPERATION(C, getRepositoryId),
                                OPERATION(C, setRepositoryId),
                                OPERATION(C, copyOf),
                                OPERATION(C, parseUnifiedRepositoryPrefixSchema)});
}

TEST(Slots, QvReposConfigurationList) {
  using L = QvReposConfigurationList;
  expectSlots(noDestructor, {OPERATION(L, next), OPERATION(L, getValue), OPERATION(L, release),
                             OPERATION(L, addRow), OPERATION(L, setLastRowElement)});
}

TEST(Slots, QvReposConfigManager) {
  using M = QvReposConfigManager;
  expectSlots(afterDestructor,
              {OPERATION(M, release), OPERATION(M, getErrorMessage), OPERATION(M, getConfigurationByName),
               OPERATION(M, getConfigurationsByType), OPERATION(M, refresh), OPERATION(M, getConfigurations),
               OPERATION(M, createConfiguration), OPERATION(M, configurationExists),
               OPERATION(M, deleteConfiguration), OPERATION(M, saveConfiguration),
               OPERATION(M, getDefaultConfiguration), OPERATION(M, getRefusals),
               OPERATION(M, getConfigurationFilename)});
}

TEST(Slots, QvReposRefusalList) {
  using L = QvReposRefusalList;
  expectSlots(noDestructor, {OPERATION(L, next), OPERATION(L, getFilename), OPERATION(L, getReason),
                             OPERATION(L, isDuplicate), OPERATION(L, release)});
}

TEST(Slots, RepositoryObjectChange) {
  using L = RepositoryObjectChange;
  expectSlots(afterDestructor,
              {OPERATION(L, objectChanged), OPERATION(L, objectRenamed), OPERATION(L, contentChanged)});
}

TEST(Slots, QvReposEventManager) {
  using M = QvReposEventManager;
  expectSlots(afterDestructor,
              {OPERATION(M, release), OPERATION(M, getErrorMessage), OPERATION(M, fireObjectChanged),
               OPERATION(M, fireObjectRenamed), OPERATION(M, addRepositoryObjectChangeListener),
               OPERATION(M, removeRepositoryObjectChangeListener), OPERATION(M, fireContentChanged),
               OPERATION(M, getClientGUID)});
}

TEST(Slots, QvResource) {
  using R = QvResource;
  expectSlots(afterDestructor, {OPERATION(R, release), OPERATION(R, getId), OPERATION(R, getName),
                                OPERATION(R, getResourceType), OPERATION(R, getResourceIdentity),
                                OPERATION(R, getDependencyType), OPERATION(R, getProperties),
                                OPERATION(R, getAnalysisDate), OPERATION(R, getResourceLocation),
                                OPERATION(R, IsResolved), OPERATION(R, IsResourceIdentityMacroValue)});
}

TEST(Slots, QvResourceList) {
  using L = QvResourceList;
  expectSlots(noDestructor,
              {OPERATION(L, next), OPERATION(L, getValue), OPERATION(L, release), OPERATION(L, addRow),
               OPERATION(L, setLastRowElement), OPERATION(L, contains), OPERATION(L, reset)});
}

TEST(Slots, QvResourcePropertyList) {
  using L = QvResourcePropertyList;
  expectSlots(afterDestructor, {OPERATION(L, next), OPERATION(L, getKey), OPERATION(L, getValue),
                                OPERATION(L, release), OPERATION(L, addRow), OPERATION(L, setLastRow)});
}

TEST(Slots, QvStringList) {
  using L = QvStringList;
  expectSlots(afterDestructor,
              {OPERATION(L, next), OPERATION(L, getNumCols),
               OVERLOAD(L, getValue, QvbString(L::*)(unsigned long)),
               OVERLOAD(L, getValue, QvbString(L::*)()), OPERATION(L, release), OPERATION(L, length)});
}

TEST(Slots, QvResourceManager) {
  using M = QvResourceManager;
  expectSlots(afterDestructor, {OPERATION(M, release),
                                OPERATION(M, generateDataSourceResourceId),
                                OPERATION(M, generateTableDataSourceResourceId),
                                OPERATION(M, generateUnifiedObjectResourceId),
                                OPERATION(M, getUnifiedObjectFromResourceId),
                                OPERATION(M, generateFileResourceId),
                                OPERATION(M, getFilenameFromResourceId),
                                OPERATION(M, generateShortDSN),
                                OPERATION(M, getNameFromDSN),
                                OPERATION(M, getDSNTypeFromDSN),
                                OPERATION(M, getTableObjectFromResourceId),
                                OPERATION(M, getDataSourceObjectFromResourceId),
                                OPERATION(M, getResourceTypeFromFilename),
                                OPERATION(M, generateDataSourceResource),
                                OPERATION(M, generateTableResource),
                                OPERATION(M, generateMonitorResource),
                                OPERATION(M, generateSourceResource),
                                OPERATION(M, generateRuleResource),
                                OPERATION(M, generateProfileResource),
                                OPERATION(M, generateFileResource),
                                OPERATION(M, generateOMRObjectByPathResource),
                                OPERATION(M, addJobFileNode),
                                OPERATION(M, addFileResource),
                                OPERATION(M, addSQLResourcesFromFile),
                                OPERATION(M, addSQLResourcesFromString),
                                OPERATION(M, addDataSourceResource),
                                OPERATION(M, addTableResource),
                                OPERATION(M, addMonitorResource),
                                OPERATION(M, addRuleResourceByName),
                                OPERATION(M, addProfileResourceById),
                                OPERATION(M, addProfileResource),
                                OPERATION(M, addRuleResource),
                                OPERATION(M, addDMSRefResource),
                                OPERATION(M, addOMRObjectByPathResource)});
}

TEST(Slots, QvResourceFactory) {
  using F = QvResourceFactory;
  expectSlots(afterDestructor,
              {OPERATION(F, release), OPERATION(F, getErrorMessage), OPERATION(F, getResource),
               OPERATION(F, getPluginPath), OPERATION(F, registerResourceResolver),
               OPERATION(F, getResourceResolver), OPERATION(F, getDataResource)});
}

TEST(Slots, QvResourceResolver) {
  using R = QvResourceResolver;
  using Text = const QvbString&;
  expectSlots(afterDestructor,
              {OPERATION(R, release),
               OVERLOAD(R, resolveResource, bool(R::*)(Text, Text, Text, QvbString*, QvbString*)),
               OPERATION(R, getResourceFromURI), OPERATION(R, getResourceLocation),
               OPERATION(R, getUnifiedRepositoryName),
               OVERLOAD(R, resolveResource, bool(R::*)(Text, Text, Text, Text, QvbString*))});
}

TEST(Slots, RepositoryMetadataObject) {
  using O = RepositoryMetadataObject;
  expectSlots(noDestructor,
              {OPERATION(O, addAttribute), OPERATION(O, getAttribute), OPERATION(O, getAttributeAsInt),
               OPERATION(O, getAttributeAsDouble), OPERATION(O, getAttributeAsBool),
               OPERATION(O, addAssociatedObject), OPERATION(O, getAssociatedObjects), OPERATION(O, getId),
               OPERATION(O, setId), OPERATION(O, getObjectType), OPERATION(O, setObjectType),
               OPERATION(O, release), OPERATION(O, toXML), OPERATION(O, addContainedObject),
               OPERATION(O, getContainedObjects), OPERATION(O, setValue)});
}

TEST(Slots, RepositoryMetadataObjectList) {
  using L = RepositoryMetadataObjectList;
  expectSlots(noDestructor, {OPERATION(L, next), OPERATION(L, getValue), OPERATION(L, release),
                             OPERATION(L, addRow), OPERATION(L, setLastRowElement), OPERATION(L, contains)});
}

TEST(Slots, RepositoryActionEvent) {
  expectSlots(afterDestructor, {OPERATION(RepositoryActionEvent, actionLogged)});
}

TEST(Slots, RepositorySerializationContext) {
  using C = RepositorySerializationContext;
  expectSlots(noDestructor,
              {OPERATION(C, getMetadataObject), OPERATION(C, getMetadataObjectByAttribute),
               OPERATION(C, release), OPERATION(C, serialize), OPERATION(C, deSerialize),
               OPERATION(C, addImportProperty), OPERATION(C, addImportPropertyAsInt),
               OPERATION(C, getImportProperty), OPERATION(C, getImportPropertyAsInt), OPERATION(C, clear),
               OPERATION(C, setEventObjectInfo), OPERATION(C, setEventHandler), OPERATION(C, logEvent),
               OPERATION(C, setSerializationOfRelationships), OPERATION(C, createMetadataObject)});
}

TEST(Slots, QvImpactAnalysis) {
  using A = QvImpactAnalysis;
  expectSlots(afterDestructor,
              {OPERATION(A, release), OPERATION(A, getUsedByResources), OPERATION(A, getDependentResources),
               OPERATION(A, getDependentResourcesByType), OPERATION(A, getResourcesByType),
               OPERATION(A, updateImpactAnalysis), OPERATION(A, removeUnusedResources),
               OPERATION(A, removeResources), OPERATION(A, getResource), OPERATION(A, addDependentResources),
               OPERATION(A, createResourceList), OPERATION(A, createResource), OPERATION(A, deleteResource),
               OPERATION(A, setAnalysisDate), OPERATION(A, getAllUniqueUsedResources),
               OPERATION(A, getResourceTypes), OPERATION(A, getLineageAsString),
               OPERATION(A, getDefaultResourceFactory)});
}

TEST(Slots, FileAccessCache) {
  using C = FileAccessCache;
  expectSlots(afterDestructor, {OPERATION(C, getCacheFilename), OPERATION(C, isModified),
                                OPERATION(C, getModifiedDate), OPERATION(C, flush)});
}

TEST(Slots, FileAccessCacheManager) {
  using M = FileAccessCacheManager;
  expectSlots(afterDestructor + 4, {OPERATION(M, release), OPERATION(M, setSourceProvider)});
}

TEST(Slots, FileAccessCacheSourceProvider) {
  using P = FileAccessCacheSourceProvider;
  expectSlots(afterDestructor, {OPERATION(P, release), OPERATION(P, exists), OPERATION(P, getModifiedDate),
                                OPERATION(P, updateLocalFileContent), OPERATION(P, flush)});
}

TEST(Slots, LineageProgressSink) { expectSlots(afterDestructor, {OPERATION(LineageProgressSink, progress)}); }

TEST(Slots, QvURI) {
  using U = QvURI;
  expectSlots(noDestructor,
              {OPERATION(U, release), OPERATION(U, getScheme), OPERATION(U, getAuthority),
               OPERATION(U, getPath), OPERATION(U, asString), OPERATION(U, getNormalizedString),
               OPERATION(U, getParameter), OPERATION(U, setParameter), OPERATION(U, getErrorText),
               OPERATION(U, getReposURI), OPERATION(U, getDataURI)});
}

TEST(Slots, QvReposURI) {
  using U = QvReposURI;
  expectSlots(noDestructor, {OPERATION(U, getRepository), OPERATION(U, getPath), OPERATION(U, getObjectName),
                             OPERATION(U, getObjectType)});
}

TEST(Slots, QvDataURI) {
  using U = QvDataURI;
  expectSlots(noDestructor,
              {OPERATION(U, getServer), OPERATION(U, getDataSource), OPERATION(U, getDataSourceType),
               OPERATION(U, getCatalog), OPERATION(U, getSchema), OPERATION(U, getTable),
               OPERATION(U, getColumn), OPERATION(U, getObjectType), OPERATION(U, getObjectName),
               OPERATION(U, asString)});
}

TEST(Slots, QvbDirectory) {
  using D = QvbDirectory;
  expectSlots(noDestructor,
              {OPERATION(D, next), OPERATION(D, getName), OPERATION(D, getPath), OPERATION(D, release)});
}

TEST(Slots, QvbConfigOptions) {
  expectSlots(noDestructor, {OPERATION(QvbConfigOptions, getOption), OPERATION(QvbConfigOptions, release)});
}

TEST(Slots, HttpResponse) {
  using R = httpResponse;
  expectSlots(noDestructor, {OPERATION(R, getStatusCode), OPERATION(R, getStatusCodeMessage),
                             OPERATION(R, getBody), OPERATION(R, getHeader), OPERATION(R, release)});
}

TEST(Slots, QvSecurityContext) {
  using C = QvSecurityContext;
  expectSlots(noDestructor, {OPERATION(C, getServiceTicket), OPERATION(C, renew), OPERATION(C, release)});
}

TEST(Slots, QvLogSink) { expectSlots(afterDestructor, {OPERATION(QvLogSink, record)}); }

} // namespace
