#include "qvresourcemgrimpl.h"

#include "lineagefactory.h"
#include "support/allocations.h"
#include "support/recordingfactory.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>

namespace {

using Calls = std::vector<std::string>;
using Requests = std::vector<ResourceFields>;

class Manager : public testing::Test {
protected:
  ~Manager() override {
    EXPECT_FALSE(m_factory.gotNull) << "an unknown name is an empty text";
    EXPECT_EQ(*m_factory.live, 0) << "every resource is released";
    EXPECT_EQ(*m_resolver.live, 0);
  }

  void useResolver() { m_factory.resolver = &m_resolver; }
  std::string unified(const char* type, const char* id, const char* uuid) const {
    QvbString identity;
    EXPECT_TRUE(m_manager->generateUnifiedObjectResourceId("", type, id, uuid, &identity));
    return str(identity);
  }
  Released<QvResource> dataSource(QvbString dsn, QvbString type) {
    return Released<QvResource>(m_manager->generateDataSourceResource(&m_factory, dsn, type));
  }
  Released<QvResource> profile(QvbString repository, QvbString id, QvbString uuid) {
    return Released<QvResource>(m_manager->generateProfileResource(&m_factory, repository, id, uuid));
  }
  Released<QvResource> rule(QvbString repository, QvbString id, QvbString uuid, QvbString name) {
    return Released<QvResource>(m_manager->generateRuleResource(&m_factory, repository, id, uuid, name));
  }
  Released<QvResource> source(QvbString repository, QvbString id) {
    return Released<QvResource>(m_manager->generateSourceResource(&m_factory, repository, id));
  }
  Released<QvResource> monitor(QvbString repository, QvbString name, QvbString id, QvbString uuid) {
    return Released<QvResource>(m_manager->generateMonitorResource(&m_factory, repository, name, id, uuid));
  }
  Released<QvResource> file(QvbString filename, QvbString defaultType = "File") {
    return Released<QvResource>(m_manager->generateFileResource(defaultType, &m_factory, filename));
  }
  Released<QvResource> object(QvbString path) {
    QvbString none;
    return Released<QvResource>(
        m_manager->generateOMRObjectByPathResource(&m_factory, path, none, none, none, none));
  }
  Released<QvResource> serverReference(QvbString server, QvbString reference, QvbString service,
                                       QvbString objectName, QvbString name) {
    return Released<QvResource>(
        m_manager->generateDMSRefResource(&m_factory, server, reference, service, objectName, name));
  }

  RecordingFactory m_factory;
  RecordingResolver m_resolver;
  const Released<QvResourceManagerImpl> m_manager{new QvResourceManagerImpl};
  const Released<QvResourceListImpl> m_list{new QvResourceListImpl};
};

} // namespace

TEST(ManagerConstants, HaveTheirTexts) {
  using M = QvResourceManagerImpl;
  const std::vector<std::pair<QvbString, const char*>> constants{
      {M::IMPACT_RES_DATASRC_String, "Database"},
      {M::IMPACT_RES_FILE_String, "File"},
      {M::IMPACT_RES_PROFILE_String, "ProfileJob"},
      {M::IMPACT_RES_RULE_String, "Rule"},
      {M::IMPACT_RES_SOURCE_String, "Source"},
      {M::IMPACT_RES_TABLE_String, "Table"},
      {M::IMPACT_RES_TASK_String, "Task"},
      {M::UNRESOLVED_PROFILE_String, "[Unresolved Profile]"},
      {M::UNRESOLVED_RULE_String, "[Unresolved Rule]"},
      {M::UNRESOLVED_SOURCE_String, "[Unresolved Source]"},
      {M::UNRESOLVED_TASK_String, "[Unresolved Task]"},
      {M::DB_DAC_TYPE_String, "DbDACType"},
      {M::Name_String, "Name"},
      {M::PATHURI_String, "PathURI"},
      {M::ODBC_String, "ODBC"},
      {M::TARGETNAME_String, "TargetName"}};
  for (const auto& [constant, expected] : constants)
    EXPECT_EQ(constant, expected);
}

TEST_F(Manager, IsANewOneEachTime) {
  const Released<QvResourceManager> first(createQvResourceManager());
  const Released<QvResourceManager> second(createQvResourceManager());
  EXPECT_NE(first, second);
}

TEST_F(Manager, NamesADataSourceByItsWholeConnectionString) {
  ASSERT_TRUE(dataSource("DSN=Sales;QVXTYPE=ODBC;", "GRVS"));
  QvbString identity;
  ASSERT_TRUE(m_manager->generateDataSourceResourceId("Sales", "GRVS", &identity));
  EXPECT_EQ(m_factory.requests, (Requests{{"DSN=Sales;QVXTYPE=ODBC;", "Database", str(identity)}}));
}

TEST_F(Manager, DropsTheTypeOfADataSourceWhoseStringNamesNone) {
  ASSERT_TRUE(dataSource("Sales", "ODBC"));
  QvbString identity;
  ASSERT_TRUE(m_manager->generateDataSourceResourceId("Sales", "", &identity));
  EXPECT_EQ(m_factory.requests, (Requests{{"", "Database", str(identity)}}));
  m_factory.requests.clear();
  ASSERT_TRUE(dataSource("DSN=Sales;QVXTYPE=;", "ODBC"));
  EXPECT_EQ(m_factory.requests, (Requests{{"DSN=Sales;QVXTYPE=;", "Database", str(identity)}}));
}

TEST_F(Manager, HasNoDataSourceWithoutAString) {
  EXPECT_FALSE(dataSource("", "ODBC"));
  EXPECT_FALSE(dataSource(QvbString(), "ODBC"));
  EXPECT_TRUE(m_factory.requests.empty());
}

TEST_F(Manager, NamesATableByItsTableName) {
  QvbString dsn = "DSN=Sales;QVXTYPE=ODBC;", type = "GRVS", catalog = "cat", schema = "dbo", table = "orders";
  QvbString plainDsn = "Sales";
  EXPECT_TRUE(
      Released<QvResource>(m_manager->generateTableResource(&m_factory, dsn, type, catalog, schema, table)));
  EXPECT_TRUE(Released<QvResource>(
      m_manager->generateTableResource(&m_factory, plainDsn, type, catalog, schema, table)));
  QvbString typed, untyped;
  ASSERT_TRUE(m_manager->generateTableDataSourceResourceId("Sales", "GRVS", "cat", "dbo", "orders", &typed));
  ASSERT_TRUE(m_manager->generateTableDataSourceResourceId("Sales", "", "cat", "dbo", "orders", &untyped));
  EXPECT_EQ(m_factory.requests,
            (Requests{{"orders", "Table", str(typed)}, {"orders", "Table", str(untyped)}}));
}

TEST_F(Manager, HasNoTableWithoutATableName) {
  QvbString dsn = "Sales", none;
  EXPECT_EQ(m_manager->generateTableResource(&m_factory, dsn, none, none, none, none), nullptr);
  EXPECT_TRUE(m_factory.requests.empty());
}

TEST_F(Manager, ResolvesProfilesAndRulesInTheRepositoryThatTheResolverServes) {
  useResolver();
  m_resolver.resolves = true;
  m_resolver.servedRepository = "main";
  ASSERT_TRUE(profile("Main", "42", "uuid"));
  ASSERT_TRUE(rule("MAIN", "", "uuid", "name"));
  EXPECT_EQ(m_resolver.calls, (Calls{"resolve(ProfileJob, 42, uuid)", "resolve(Rule, , uuid)"}));
  EXPECT_EQ(m_factory.requests, (Requests{{"resolved name", "ProfileJob", "resolved reference"},
                                          {"resolved name", "Rule", "resolved reference"}}));
}

TEST_F(Manager, IdentifiesProfilesAndRulesItselfWithoutAResolver) {
  ASSERT_TRUE(profile("Main", "42", ""));
  ASSERT_TRUE(rule("Main", "", "uuid", "name"));
  EXPECT_EQ(m_factory.requests, (Requests{{"", "ProfileJob", unified("ProfileJob", "42", "")},
                                          {"", "Rule", unified("Rule", "", "uuid")}}));
}

TEST_F(Manager, IdentifiesProfilesItselfForAnotherOrNamelessRepository) {
  useResolver();
  m_resolver.resolves = true;
  m_resolver.servedRepository = "Other";
  ASSERT_TRUE(profile("Main", "42", ""));
  m_resolver.servedRepository.setNull();
  ASSERT_TRUE(profile("", "42", ""));
  m_resolver.servesNullName = true;
  ASSERT_TRUE(profile("", "42", ""));
  EXPECT_EQ(m_resolver.calls, Calls{});
  const ResourceFields expected{"", "ProfileJob", unified("ProfileJob", "42", "")};
  EXPECT_EQ(m_factory.requests, (Requests{expected, expected, expected}));
}

TEST_F(Manager, IdentifiesAProfileItselfWhenTheResolverFails) {
  useResolver();
  m_resolver.servedRepository = "Main";
  ASSERT_TRUE(profile("Main", "42", ""));
  EXPECT_EQ(m_factory.requests, (Requests{{"", "ProfileJob", unified("ProfileJob", "42", "")}}));
}

TEST_F(Manager, HasNoProfileWithoutIdAndUuid) {
  useResolver();
  m_resolver.resolves = true;
  EXPECT_FALSE(profile("Main", "", QvbString()));
  EXPECT_EQ(m_resolver.calls, Calls{});
}

TEST_F(Manager, LooksUpARuleByItsName) {
  useResolver();
  m_resolver.resolves = true;
  ASSERT_TRUE(rule("Main", "", "", "Valid zip"));
  EXPECT_EQ(m_resolver.calls, (Calls{"resolveByName(Rule, , Valid zip, )"}));
  EXPECT_EQ(m_factory.requests, (Requests{{"Valid zip", "Rule", "resolved reference"}}));
}

TEST_F(Manager, HasNoRuleWhoseNameCannotBeLookedUp) {
  EXPECT_FALSE(rule("Main", "", "", "Valid zip"));
  useResolver();
  EXPECT_FALSE(rule("Main", "", "", "Valid zip"));
  EXPECT_TRUE(m_factory.requests.empty());
}

TEST_F(Manager, HasNoRuleWithoutIdUuidAndName) {
  useResolver();
  m_resolver.resolves = true;
  EXPECT_FALSE(rule("Main", "", "", ""));
  QvbString repository = "Main", none, empty("");
  EXPECT_FALSE(m_manager->addRuleResourceByName(&m_factory, m_list.get(), repository, none));
  EXPECT_FALSE(m_manager->addRuleResourceByName(&m_factory, m_list.get(), repository, empty));
  EXPECT_EQ(m_resolver.calls, Calls{});
  EXPECT_FALSE(m_list->next());
}

TEST_F(Manager, HandsAbsentTextsOnAsEmptyOnes) {
  useResolver();
  m_resolver.resolves = true;
  m_resolver.servedRepository = "Main";
  m_resolver.foundName.setNull();
  QvbString repository = "Main", name = "n", id = "7";
  ASSERT_TRUE(m_manager->addRuleResourceByName(&m_factory, m_list.get(), repository, name));
  ASSERT_TRUE(m_manager->addProfileResourceById(&m_factory, m_list.get(), id));
  ASSERT_TRUE(source("Main", "7"));
  EXPECT_FALSE(m_resolver.gotNull);
  ASSERT_TRUE(profile("Main", "7", "")); // the resolver finds it without a name
  EXPECT_EQ(m_factory.requests.back(), (ResourceFields{"", "ProfileJob", "resolved reference"}));
}

TEST_F(Manager, CopiesTheSourceAndTaskThatTheirReferenceLeadsTo) {
  useResolver();
  m_resolver.resolves = true;
  m_resolver.givesResource = true;
  ASSERT_TRUE(source("Main", "7"));
  ASSERT_TRUE(monitor("Main", "Nightly", "8", "uuid"));
  EXPECT_EQ(m_resolver.calls, (Calls{"resolve(Source, 7, )", "fromURI(resolved reference)",
                                     "resolve(Task, 8, uuid)", "fromURI(resolved reference)"}));
  const ResourceFields found{"found name", "found type", "found identity"};
  EXPECT_EQ(m_factory.requests, (Requests{found, found}));
}

TEST_F(Manager, CallsASourceThatNothingLeadsToUnresolved) {
  const ResourceFields expected{"[Unresolved Source]", "Source", unified("", "7", "")};
  ASSERT_TRUE(source("Main", "7")); // no resolver
  useResolver();
  ASSERT_TRUE(source("Main", "7")); // the resolver fails
  m_resolver.resolves = true;
  ASSERT_TRUE(source("Main", "7")); // the reference leads nowhere
  m_resolver.givesResource = true;
  m_resolver.foundReference = "";
  ASSERT_TRUE(source("Main", "7")); // there is no reference
  EXPECT_EQ(m_factory.requests, (Requests{expected, expected, expected, expected}));
}

TEST_F(Manager, CallsATaskThatNothingLeadsToByItsNameOrUnresolved) {
  ASSERT_TRUE(monitor("Main", "Nightly", "8", "uuid"));
  ASSERT_TRUE(monitor("Main", "", "8", ""));
  EXPECT_EQ(m_factory.requests, (Requests{{"Nightly", "Task", unified("Task", "8", "uuid")},
                                          {"[Unresolved Task]", "Task", unified("Task", "8", "")}}));
}

TEST_F(Manager, HasNoSourceOrTaskWithoutAnId) {
  useResolver();
  EXPECT_FALSE(source("Main", ""));
  EXPECT_FALSE(source("Main", QvbString()));
  EXPECT_FALSE(monitor("Main", "Nightly", "", "uuid"));
  EXPECT_EQ(m_resolver.calls, Calls{});
}

TEST_F(Manager, IdentifiesAFileByItsPath) {
  ASSERT_TRUE(file("/jobs/load.djf"));
  ASSERT_TRUE(file("/data/in.txt"));
  EXPECT_EQ(m_factory.requests,
            (Requests{{"load", "ProcessJob", "/jobs/load.djf"}, {"in.txt", "File", "/data/in.txt"}}));
}

TEST_F(Manager, GivesAPathWithoutATypeTheDefaultOne) {
  ASSERT_TRUE(file("/data/in/", "Folder"));
  EXPECT_EQ(m_factory.requests, (Requests{{"", "Folder", "/data/in/"}}));
}

TEST_F(Manager, AsksTheResolverForAFileThatTheFactoryRefuses) {
  useResolver();
  m_resolver.resolves = true;
  m_factory.refuses = [](const ResourceFields& fields) { return fields.identity == "/data/in.txt"; };
  ASSERT_TRUE(file("/data/in.txt"));
  EXPECT_EQ(m_resolver.calls, (Calls{"resolve(File, /data/in.txt, )"}));
  EXPECT_EQ(m_factory.requests,
            (Requests{{"in.txt", "File", "/data/in.txt"}, {"resolved name", "File", "resolved reference"}}));
}

TEST_F(Manager, FallsBackToTheFileIdentity) {
  m_factory.refuses = [](const ResourceFields& fields) { return fields.identity == "/jobs/load.djf"; };
  ASSERT_TRUE(file("/jobs/load.djf")); // no resolver
  useResolver();
  ASSERT_TRUE(file("/jobs/load.djf")); // the resolver fails
  m_resolver.resolves = true;
  m_resolver.foundReference = "";
  ASSERT_TRUE(file("/jobs/load.djf")); // it has no reference
  QvbString name, identity;
  ASSERT_TRUE(m_manager->generateFileResourceId("/jobs/load.djf", name, &identity));
  const ResourceFields first{"load", "ProcessJob", "/jobs/load.djf"};
  const ResourceFields second{"load.djf", "ProcessJob", str(identity)};
  EXPECT_EQ(m_factory.requests, (Requests{first, second, first, second, first, second}));
}

TEST_F(Manager, HasNoFileWithoutANameOrAFactoryThatMakesIt) {
  EXPECT_FALSE(file(""));
  EXPECT_TRUE(m_factory.requests.empty());
  m_factory.refuses = [](const ResourceFields&) { return true; };
  EXPECT_FALSE(file("/data/in.txt"));
  EXPECT_EQ(m_factory.requests.size(), 2U);
}

TEST_F(Manager, SplitsObjectPathsIntoNameTypeAndURI) {
  struct Case {
    const char* path;
    ResourceFields expected;
  };
  const Case cases[] = {
      {"Jobs/Load (ProcessJob)", {"Load ", "ProcessJob", "VELK:///Jobs/Load (ProcessJob)"}},
      {"  Jobs/Load(ProcessJob)\n", {"Load", "ProcessJob", "VELK:///Jobs/Load(ProcessJob)"}},
      {"/Jobs/Load(ProcessJob)", {"Load", "ProcessJob", "VELK:///Jobs/Load(ProcessJob)"}},
      {"VELK://repo/Load(Rule)", {"Load", "Rule", "VELK://repo/Load(Rule)"}},
      {"velk://repo/Load(Rule)", {"Load", "Rule", "velk://repo/Load(Rule)"}},
      {"Velk://repo/Load(Rule)", {"Load", "Rule", "VELK:///Velk://repo/Load(Rule)"}},
      {"Load(a/b)", {"Load", "a/b", "VELK:///Load(a/b)"}},
      {"a (x) (Rule)", {"a (x) ", "Rule", "VELK:///a (x) (Rule)"}},
      {"ab(c)", {"ab", "c", "VELK:///ab(c)"}},
      {"a(b)", {"", "", "VELK:///a(b)"}}, // too short for an object
      {"Jobs/Load", {"", "", "VELK:///Jobs/Load"}},
      {"Jobs/Load)", {"", "", "VELK:///Jobs/Load)"}},
      {"Jobs)Load(", {"", "", "VELK:///Jobs)Load("}},
      {"%s/Load(Rule)", {"Load", "Rule", "VELK:///%s/Load(Rule)"}},
  };
  for (const auto& [path, expected] : cases) {
    m_factory.requests.clear();
    ASSERT_TRUE(object(path)) << path;
    EXPECT_EQ(m_factory.requests, Requests{expected}) << path;
  }
}

TEST_F(Manager, MakesAnObjectThatIsAFileAsAFile) {
  ASSERT_TRUE(object("docs/notes(file)"));
  EXPECT_EQ(m_factory.requests, (Requests{{"notes(file)", "File", "VELK:///docs/notes(file)"}}));
}

TEST_F(Manager, HasNoObjectWithoutAPath) {
  EXPECT_FALSE(object(""));
  EXPECT_FALSE(object("  \t"));
  EXPECT_TRUE(m_factory.requests.empty());
}

TEST_F(Manager, IdentifiesAServerReferenceByServerPathTypeAndService) {
  ASSERT_TRUE(serverReference("dms1", "batch/load.djf", "Batch", "load", "Nightly load"));
  EXPECT_EQ(m_factory.requests,
            (Requests{{"Nightly load", "ProcessJob",
                       "dmsref://dms1/batch/load.djf?ObjectType=ProcessJob&ServiceType=Batch"}}));
}

TEST_F(Manager, BuildsAServerReferenceFromServiceAndObject) {
  ASSERT_TRUE(serverReference("dms1", "", "Batch", "load.djf", ""));
  ASSERT_EQ(m_factory.requests.size(), 1U);
  const auto& [name, type, identity] = m_factory.requests.front();
  EXPECT_EQ(name, "Batch:load");
  EXPECT_EQ(type, "ProcessJob");
  const Released<QvURI> uri(getURIFromURIString(text(identity)));
  ASSERT_TRUE(uri);
  EXPECT_EQ(uri->getAuthority(), "dms1");
  EXPECT_EQ(uri->getPath(), "Batch:load.djf");
  EXPECT_EQ(uri->getParameter("ServiceType"), "Batch");
  EXPECT_EQ(uri->getParameter("ObjectType"), "ProcessJob");
}

TEST_F(Manager, LeavesAnEmptyServiceOutOfTheServerReference) {
  ASSERT_TRUE(serverReference("dms1", "data/in.txt", "", "", ""));
  EXPECT_EQ(m_factory.requests, (Requests{{"in.txt", "File", "dmsref://dms1/data/in.txt?ObjectType=File"}}));
}

TEST_F(Manager, HasNoServerReferenceWithoutServerPathOrType) {
  EXPECT_FALSE(serverReference("", "batch/load.djf", "Batch", "load", ""));
  EXPECT_FALSE(serverReference("dms1", "", "Batch", "", ""));
  EXPECT_FALSE(serverReference("dms1", "", "", "load", ""));
  EXPECT_FALSE(serverReference("dms1", "batch/", "Batch", "load", ""));
  EXPECT_TRUE(m_factory.requests.empty());
}

namespace {

void expectServerProperties(QvResourcePropertyList* properties) {
  ASSERT_NE(properties, nullptr);
  ASSERT_TRUE(properties->next());
  EXPECT_EQ(properties->getKey(), "ServiceType");
  EXPECT_EQ(properties->getValue(), "Batch");
  ASSERT_TRUE(properties->next());
  EXPECT_EQ(properties->getKey(), "ObjectType");
  EXPECT_EQ(properties->getValue(), "ProcessJob");
  EXPECT_FALSE(properties->next());
}

} // namespace

TEST_F(Manager, RecordsServiceAndObjectTypeInAListThatTheRecordOwns) {
  m_factory.makesRecords = true;
  const auto resource = serverReference("dms1", "load.djf", "Batch", "", "");
  ASSERT_TRUE(resource);
  expectServerProperties(resource->getProperties());
}

TEST_F(Manager, RecordsServiceAndObjectTypeInTheListThatTheFactoryGave) {
  const Released<QvResourcePropertyListImpl> properties(new QvResourcePropertyListImpl);
  m_factory.properties = properties.get();
  ASSERT_TRUE(serverReference("dms1", "load.djf", "Batch", "", ""));
  expectServerProperties(properties.get());
}

TEST_F(Manager, RecordsNothingInAHostsResourceWithoutAList) {
  const auto resource = serverReference("dms1", "load.djf", "Batch", "", "");
  ASSERT_TRUE(resource);
  EXPECT_EQ(resource->getProperties(), nullptr);
}

TEST_F(Manager, HasNoServerReferenceWhosePropertiesFindNoMemory) {
  m_factory.makesRecords = true;
  Released<QvResource> resource;
  const auto make = [&] {
    resource = serverReference("dms1", "load.djf", "Batch", "", "");
    return resource != nullptr;
  };
  EXPECT_GT(withEverMoreMemory(make, [] {}), 10);
  expectServerProperties(resource->getProperties());
}

// The fixture's end checks that no resource is left behind.
TEST_F(Manager, AddsOnceAfterMemoryHadRunShort) {
  useResolver();
  m_resolver.resolves = true;
  m_resolver.givesResource = true;
  auto& m = *m_manager;
  auto* list = m_list.get();
  QvbString none, dsn = "DSN=Sales;QVXTYPE=ODBC;", type = "GRVS", table = "orders", id = "1", main = "Main",
                  name = "n", path = "Load(ProcessJob)";
  const std::vector<std::function<bool()>> additions{
      [&] { return m.addTableResource(&m_factory, list, dsn, type, none, none, table); },
      [&] { return m.addMonitorResource(&m_factory, list, main, name, id, none); },
      [&] { return m.addOMRObjectByPathResource(&m_factory, list, path, none, none, none, none); }};
  for (std::size_t rows = 0; rows < additions.size(); ++rows) {
    const auto addsOneMore = [&] { return additions[rows]() && rowsOf(*list).size() == rows + 1; };
    EXPECT_GT(withEverMoreMemory(addsOneMore, [&] { EXPECT_LE(rowsOf(*list).size(), rows + 1); }), 5);
    EXPECT_EQ(rowsOf(*list).size(), rows + 1);
  }
}

TEST_F(Manager, AddsEachIdentityOnce) {
  QvbString dsn = "DSN=Sales;QVXTYPE=ODBC;", type = "ODBC", none, schema = "dbo", table = "orders";
  for (int pass = 0; pass < 2; ++pass)
    EXPECT_TRUE(m_manager->addTableResource(&m_factory, m_list.get(), dsn, type, none, schema, table));
  EXPECT_EQ(m_factory.requests.size(), 2U);
  EXPECT_EQ(rowsOf(*m_list), (Requests{m_factory.requests.front()}));
}

TEST_F(Manager, AddsNothingWhenNothingIsGenerated) {
  QvbString none;
  QvbString dsn = "Sales";
  m_factory.refuses = [](const ResourceFields&) { return true; };
  EXPECT_FALSE(m_manager->addDataSourceResource(&m_factory, m_list.get(), none, none));
  EXPECT_FALSE(m_manager->addDataSourceResource(&m_factory, m_list.get(), dsn, none));
  EXPECT_TRUE(rowsOf(*m_list).empty());
}

TEST_F(Manager, AddsResourcesOfEveryKind) {
  useResolver();
  m_resolver.resolves = true;
  QvbString none, dsn = "Sales", table = "t", id = "1", uuid = "u", repository = "Main", name = "n",
                  path = "Load(ProcessJob)", server = "dms1", reference = "load.djf";
  auto& m = *m_manager;
  auto* list = m_list.get();
  EXPECT_TRUE(m.addDataSourceResource(&m_factory, list, dsn, none));
  EXPECT_TRUE(m.addTableResource(&m_factory, list, dsn, none, none, none, table));
  EXPECT_TRUE(m.addMonitorResource(&m_factory, list, repository, name, id, uuid));
  EXPECT_TRUE(m.addRuleResourceByName(&m_factory, list, repository, name));
  EXPECT_TRUE(m.addProfileResourceById(&m_factory, list, id));
  EXPECT_TRUE(m.addProfileResource(&m_factory, list, repository, id, uuid));
  EXPECT_TRUE(m.addRuleResource(&m_factory, list, repository, id, uuid, name));
  EXPECT_TRUE(m.addDMSRefResource(&m_factory, list, server, reference, none, none, name));
  EXPECT_TRUE(m.addOMRObjectByPathResource(&m_factory, list, path, none, none, none, none));
  QvbString dataSourceId, tableId;
  ASSERT_TRUE(m.generateDataSourceResourceId("Sales", "", &dataSourceId));
  ASSERT_TRUE(m.generateTableDataSourceResourceId("Sales", "", "", "", "t", &tableId));
  EXPECT_EQ(rowsOf(*list), (Requests{{"", "Database", str(dataSourceId)},
                                     {"t", "Table", str(tableId)},
                                     {"n", "Task", unified("Task", "1", "u")},
                                     {"n", "Rule", "resolved reference"},
                                     {"", "ProfileJob", unified("ProfileJob", "1", "")},
                                     {"", "ProfileJob", unified("ProfileJob", "1", "u")},
                                     {"", "Rule", unified("Rule", "1", "u")},
                                     {"n", "ProcessJob", "dmsref://dms1/load.djf?ObjectType=ProcessJob"},
                                     {"Load", "ProcessJob", "VELK:///Load(ProcessJob)"}}));
}

namespace {

// The add operations must reach the generate operations of a derived manager.
struct DerivedManager : QvResourceManagerImpl {
  static QvResource* make(QvResourceFactory* factory, const char* kind) {
    return factory->getResource("derived", kind, kind);
  }
  QvResource* generateDataSourceResource(QvResourceFactory* factory, QvbString&, QvbString&) override {
    return make(factory, "data source");
  }
  QvResource* generateTableResource(QvResourceFactory* factory, QvbString&, QvbString&, QvbString&,
                                    QvbString&, QvbString&) override {
    return make(factory, "table");
  }
  QvResource* generateMonitorResource(QvResourceFactory* factory, QvbString&, QvbString&, QvbString&,
                                      QvbString&) override {
    return make(factory, "monitor");
  }
  QvResource* generateRuleResource(QvResourceFactory* factory, QvbString&, QvbString&, QvbString&,
                                   QvbString& ruleName) override {
    return make(factory, ruleName.isEmpty() ? "rule" : "rule by name");
  }
  QvResource* generateProfileResource(QvResourceFactory* factory, QvbString&, QvbString&,
                                      QvbString& uuid) override {
    return make(factory, uuid.isEmpty() ? "profile by id" : "profile");
  }
  QvResource* generateOMRObjectByPathResource(QvResourceFactory* factory, QvbString&, QvbString&, QvbString&,
                                              QvbString&, QvbString&) override {
    return make(factory, "object");
  }
};

// Has no room for another row.
struct FullList : QvResourceList {
  bool next() override { return false; }
  QvResource* getValue() override { return nullptr; }
  void release() override {}
  bool addRow() override { return false; }
  void setLastRowElement(unsigned long, QvResource*) override {
    ADD_FAILURE() << "another row is overwritten";
  }
  bool contains(QvResource*) override { return false; }
  void reset() override {}
};

} // namespace

TEST_F(Manager, AddsWhatADerivedManagerGenerates) {
  DerivedManager m;
  auto* list = m_list.get();
  QvbString a = "a", none;
  EXPECT_TRUE(m.addDataSourceResource(&m_factory, list, a, a));
  EXPECT_TRUE(m.addTableResource(&m_factory, list, a, a, a, a, a));
  EXPECT_TRUE(m.addMonitorResource(&m_factory, list, a, a, a, a));
  EXPECT_TRUE(m.addRuleResource(&m_factory, list, a, a, a, none));
  EXPECT_TRUE(m.addRuleResourceByName(&m_factory, list, a, a));
  EXPECT_TRUE(m.addProfileResource(&m_factory, list, a, a, a));
  EXPECT_TRUE(m.addProfileResourceById(&m_factory, list, a));
  EXPECT_TRUE(m.addOMRObjectByPathResource(&m_factory, list, a, a, a, a, a));
  Requests expected;
  for (const char* kind :
       {"data source", "table", "monitor", "rule", "rule by name", "profile", "profile by id", "object"})
    expected.push_back({"derived", kind, kind});
  EXPECT_EQ(rowsOf(*list), expected);
}

// With a manager of the host's own every resource is made and looked up; the library's own may spare itself that.
TEST_F(Manager, AddsDataSourcesAndTablesByItselfAsByAHostsOwn) {
  struct HostManager : QvResourceManagerImpl {};
  EXPECT_TRUE(rc::check([] {
    struct Side {
      Released<QvResourceManagerImpl> manager;
      Released<QvResourceListImpl> list{new QvResourceListImpl};
      LineageImpactFactoryImpl factory;
    };
    Side sides[2];
    sides[0].manager.reset(new QvResourceManagerImpl);
    sides[1].manager.reset(new HostManager);
    const auto anyText = [] {
      return *rc::gen::element<QvbString>(QvbString(), "", "Sales", "SALES", "DSN=Sales;",
                                          "DSN=Sales;QVXTYPE=ODBC;", "DSN=;QVXTYPE=x", "a&b");
    };
    for (int step = *rc::gen::inRange(0, 30); step > 0; --step) {
      const int kind = *rc::gen::inRange(0, 8);
      QvbString dsn = anyText(), type = anyText(), catalog = anyText(), schema = anyText(), table = anyText();
      std::string seen[2];
      for (int i = 0; i < 2; ++i) {
        auto& [manager, list, factory] = sides[i];
        QvResourceImpl other("name", "Table", table);
        if (kind < 3)
          seen[i] += manager->addDataSourceResource(&factory, list.get(), dsn, type) ? "yes" : "no";
        else if (kind < 6)
          seen[i] += manager->addTableResource(&factory, list.get(), dsn, type, catalog, schema, table)
                         ? "yes"
                         : "no";
        else if (kind == 6)
          list->setLastRowElement(0, &other);
        else
          seen[i] += list->next() ? "next" : "end";
        if (QvResource* row = list->getValue())
          seen[i] += " at " + str(row->getResourceIdentity());
      }
      RC_ASSERT(seen[0] == seen[1]);
    }
    for (auto& side : sides)
      side.list->reset();
    RC_ASSERT(rowsOf(*sides[0].list) == rowsOf(*sides[1].list));
  }));
}

TEST_F(Manager, MakesNothingOfADataSourceThatIsNamedAgain) {
  LineageImpactFactoryImpl factory;
  QvbString dsn("Sales"), type("ODBC"), other("Stock");
  ASSERT_TRUE(m_manager->addDataSourceResource(&factory, m_list.get(), dsn, type));
  QvbString again("Sales");
  Allocations::left = 0;
  EXPECT_TRUE(m_manager->addDataSourceResource(&factory, m_list.get(), again, type));
  Allocations::left = -1;
  EXPECT_EQ(rowsOf(*m_list).size(), 1U);
}

TEST_F(Manager, AsksAHostsFactoryForADataSourceThatIsNamedAgain) {
  QvbString dsn("Sales"), type("ODBC");
  for (int i = 0; i < 3; ++i)
    ASSERT_TRUE(m_manager->addDataSourceResource(&m_factory, m_list.get(), dsn, type));
  EXPECT_EQ(m_factory.requests.size(), 3U);
}

TEST_F(Manager, LeavesAListWithoutRoomAsItIs) {
  FullList list;
  QvbString dsn = "Sales", none, path = "/jobs/load.djf";
  EXPECT_TRUE(m_manager->addDataSourceResource(&m_factory, &list, dsn, none)) << "it was generated";
  EXPECT_FALSE(m_manager->addJobFileNode(&m_factory, &list, path)) << "it was not added";
}

TEST_F(Manager, HasNoSourceThatTheFactoryDoesNotCopy) {
  useResolver();
  m_resolver.resolves = true;
  m_resolver.givesResource = true;
  m_factory.refuses = [](const ResourceFields& fields) { return fields.identity == "found identity"; };
  EXPECT_FALSE(source("Main", "7"));
  EXPECT_FALSE(monitor("Main", "Nightly", "8", "uuid"));
}
