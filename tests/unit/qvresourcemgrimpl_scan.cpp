#include "qvresourcemgrimpl.h"

#include "qvreposres/qvlineage.h"
#include "qvxbase/qvbconfig.h"
#include "support/recordingfactory.h"
#include "support/tempdir.h"

#include <gtest/gtest.h>

namespace {

using Calls = std::vector<std::string>;
using Rows = std::vector<ResourceFields>;

class Scan : public testing::Test {
protected:
  ~Scan() override {
    EXPECT_EQ(*m_factory.live, 0) << "every resource is released";
    EXPECT_EQ(*m_resolver.live, 0);
    qvbClearConfigOptions();
  }

  bool addJob(QvbString reference) { return m_manager->addJobFileNode(&m_factory, m_list.get(), reference); }
  bool addSQL(const std::string& xml) {
    return m_manager->addSQLResourcesFromString(text(xml), &m_factory, m_list.get());
  }
  // The rows that one step with this content adds.
  Rows scan(const std::string& content) {
    EXPECT_TRUE(addSQL("<SQLUpdateRows>" + content + "</SQLUpdateRows>"));
    return rowsOf(*m_list);
  }
  ResourceFields dataSource(const char* name, const char* dsn, const char* dsntype) {
    QvbString identity;
    EXPECT_TRUE(m_manager->generateDataSourceResourceId(dsn, dsntype, &identity));
    return {name, "Database", str(identity)};
  }
  ResourceFields table(const char* dsn, const char* catalog, const char* schema, const char* table) {
    QvbString identity;
    EXPECT_TRUE(m_manager->generateTableDataSourceResourceId(dsn, "", catalog, schema, table, &identity));
    return {table, "Table", str(identity)};
  }

  RecordingFactory m_factory;
  RecordingResolver m_resolver;
  const Released<QvResourceManagerImpl> m_manager{new QvResourceManagerImpl};
  const Released<QvResourceListImpl> m_list{new QvResourceListImpl};
};

class JobReference : public Scan {
protected:
  JobReference() { m_factory.resolver = &m_resolver; }
};

constexpr const char* profileURI = "qvr://Main/checks/zip?type=ProfileJob";
constexpr const char* processURI = "qvr://Main/jobs/load?type=ProcessJob";

} // namespace

TEST_F(JobReference, ThatIsAPathIsAFile) {
  EXPECT_TRUE(addJob("/jobs/load.djf"));
  EXPECT_EQ(rowsOf(*m_list), (Rows{{"load", "ProcessJob", "/jobs/load.djf"}}));
  EXPECT_EQ(m_resolver.calls, Calls{});
}

TEST_F(JobReference, IsAddedOnce) {
  qvbSetConfigOption("BASE/REPOS_FILE_ROOT", "/srv/repo");
  for (const char* reference : {"/jobs/load.djf", profileURI, processURI}) {
    EXPECT_TRUE(addJob(reference)) << reference;
    EXPECT_FALSE(addJob(reference)) << reference;
  }
  EXPECT_EQ(rowsOf(*m_list).size(), 3U);
}

TEST_F(JobReference, ThatIsEmptyAddsNothing) {
  EXPECT_FALSE(addJob(""));
  EXPECT_FALSE(addJob(QvbString()));
  EXPECT_TRUE(m_factory.requests.empty());
}

TEST_F(JobReference, IsWhatTheResolverGivesForIt) {
  m_resolver.givesResource = true;
  for (const char* reference : {profileURI, processURI}) {
    m_resolver.calls.clear();
    m_factory.requests.clear();
    const Released<QvResourceListImpl> list(new QvResourceListImpl);
    QvbString job = reference;
    EXPECT_TRUE(m_manager->addJobFileNode(&m_factory, list.get(), job));
    EXPECT_EQ(m_resolver.calls, (Calls{"fromURI(" + std::string(reference) + ")"}));
    const Rows found{{"found name", "found type", "found identity"}};
    EXPECT_EQ(m_factory.requests, found) << "the list's copy is the factory's";
    EXPECT_EQ(rowsOf(*list), found);
  }
}

TEST_F(JobReference, ToAProfileJobIsItsOwnIdentity) {
  EXPECT_TRUE(addJob(profileURI));
  const ResourceFields profile{"zip", "ProfileJob", profileURI};
  EXPECT_EQ(m_factory.requests, (Rows{profile, profile}));
  EXPECT_EQ(rowsOf(*m_list), (Rows{profile}));
}

TEST_F(JobReference, NamesProfileJobsInAnyCase) {
  EXPECT_TRUE(addJob("qvr://Main/checks/zip?type=profilejob"));
  EXPECT_EQ(rowsOf(*m_list), (Rows{{"zip", "ProfileJob", "qvr://Main/checks/zip?type=profilejob"}}));
}

TEST_F(JobReference, ToAnotherJobIsIdentifiedByItsLocalFile) {
  qvbSetConfigOption("BASE/REPOS_FILE_ROOT", "/srv/repo");
  EXPECT_TRUE(addJob(processURI));
  EXPECT_EQ(rowsOf(*m_list), (Rows{{"load", "ProcessJob", "/srv/repo/jobs/load.djf"}}));
}

TEST_F(JobReference, WithoutALocalFileIsIdentifiedByItsURI) {
  const TempDir none;
  qvbSetConfigOption("BASE/REPOS_SYS_PATH", text(none / "sys"));
  qvbSetConfigOption("BASE/REPOS_USER_PATH", text(none / "user"));
  EXPECT_TRUE(addJob(processURI));
  EXPECT_EQ(rowsOf(*m_list), (Rows{{"load", "ProcessJob", processURI}}));
}

TEST_F(JobReference, PassesOnWhatItDoesNotNameAsEmptyText) {
  for (const char* reference : {"qvr://Main/jobs/load", "mailto:qvr:load"})
    addJob(reference);
  EXPECT_FALSE(m_factory.gotNull);
}

TEST_F(JobReference, ThatTheFactoryRefusesIsAFile) {
  qvbSetConfigOption("BASE/REPOS_FILE_ROOT", "/srv/repo");
  m_factory.refuses = [](const ResourceFields& fields) { return fields.identity.starts_with("/srv"); };
  EXPECT_TRUE(addJob(processURI));
  EXPECT_EQ(rowsOf(*m_list), (Rows{{"load?type=ProcessJob", "File", processURI}}));
}

TEST_F(JobReference, ThatNobodyMakesAddsNothing) {
  qvbSetConfigOption("BASE/REPOS_FILE_ROOT", "/srv/repo");
  m_factory.refuses = [](const ResourceFields&) { return true; };
  EXPECT_FALSE(addJob(processURI));
  EXPECT_FALSE(addJob("/jobs/load.djf"));
  EXPECT_TRUE(rowsOf(*m_list).empty());
}

TEST_F(JobReference, WhoseResourceTheFactoryDoesNotCopyIsAFile) {
  m_resolver.givesResource = true;
  m_factory.refuses = [](const ResourceFields& fields) { return fields.identity == "found identity"; };
  EXPECT_TRUE(addJob(processURI));
  EXPECT_EQ(rowsOf(*m_list), (Rows{{"load?type=ProcessJob", "File", processURI}}));
}

TEST_F(JobReference, IsAFileWithoutAResolver) {
  m_factory.resolver = nullptr;
  EXPECT_TRUE(addJob(profileURI));
  EXPECT_EQ(rowsOf(*m_list), (Rows{{"zip?type=ProfileJob", "File", profileURI}}));
}

TEST_F(JobReference, ThatOnlyHoldsTheSchemeIsAFile) {
  EXPECT_TRUE(addJob("/data/qvr:notes.txt"));
  EXPECT_EQ(rowsOf(*m_list), (Rows{{"qvr:notes.txt", "File", "/data/qvr:notes.txt"}}));
  EXPECT_EQ(m_resolver.calls, Calls{});
}

TEST_F(JobReference, MayBeAddedAsAFile) {
  QvbString path = "/jobs/load.djf", none;
  EXPECT_TRUE(m_manager->addFileResource(path, &m_factory, m_list.get()));
  EXPECT_FALSE(m_manager->addFileResource(path, &m_factory, m_list.get()));
  EXPECT_FALSE(m_manager->addFileResource(none, &m_factory, m_list.get()));
  EXPECT_EQ(rowsOf(*m_list), (Rows{{"load", "ProcessJob", "/jobs/load.djf"}}));
}

TEST_F(Scan, FindsTheConnectionAndTheCreatedTable) {
  EXPECT_EQ(
      scan("<DatabaseConnectionObject Name='Sales' DbDACType='ODBC'/><Create TargetName='dbo.orders'/>"),
      (Rows{dataSource("DSN=Sales;QVXTYPE=ODBC;", "Sales", "ODBC"), table("Sales", "", "dbo", "orders")}));
}

TEST_F(Scan, TakesTableServicesForGRVS) {
  EXPECT_EQ(scan("<DatabaseConnectionObject Name='Sales' DbDACType='QVTKSERVER'/>"),
            (Rows{dataSource("DSN=Sales;QVXTYPE=GRVS;", "Sales", "GRVS")}));
}

TEST_F(Scan, TakesEveryOtherConnectionForODBC) {
  EXPECT_EQ(
      scan("<DatabaseConnectionObject Name='Sales'/><DatabaseConnectionObject Name='x' DbDACType='qvtk'/>"),
      (Rows{dataSource("DSN=Sales;QVXTYPE=ODBC;", "Sales", "ODBC"),
            dataSource("DSN=x;QVXTYPE=ODBC;", "x", "ODBC")}));
}

TEST_F(Scan, MakesNoDataSourceOfANamelessConnection) {
  EXPECT_EQ(scan("<DatabaseConnectionObject DbDACType='ODBC'/><DatabaseConnectionObject Name=''/>"), Rows{});
}

TEST_F(Scan, EndsTheConnectionBeforeANamelessOne) {
  EXPECT_EQ(scan("<DatabaseConnectionObject Name='S'/><DatabaseConnectionObject/><Create TargetName='t'/>"),
            (Rows{dataSource("DSN=S;QVXTYPE=ODBC;", "S", "ODBC"), table("DSN=;QVXTYPE=ODBC;", "", "", "t")}));
}

TEST_F(Scan, HasNoCreatedTableBeforeAConnection) {
  EXPECT_EQ(scan("<Create TargetName='dbo.orders'/>"), Rows{});
}

TEST_F(Scan, UsesTheLatestConnectionInDocumentOrder) {
  EXPECT_EQ(
      scan("<a><b><DatabaseConnectionObject Name='One'/></b></a><Create TargetName='t'/>"
           "<c><DatabaseConnectionObject Name='Two'><Create TargetName='u'/></DatabaseConnectionObject></c>"
           "<Create TargetName='v'/>"),
      (Rows{dataSource("DSN=One;QVXTYPE=ODBC;", "One", "ODBC"), table("One", "", "", "t"),
            dataSource("DSN=Two;QVXTYPE=ODBC;", "Two", "ODBC"), table("Two", "", "", "u"),
            table("Two", "", "", "v")}));
}

TEST_F(Scan, SplitsTheNamesOfCreatedTables) {
  struct Case {
    const char* target;
    Rows expected;
  };
  const std::string tooLong(1100, 'x');
  const Case cases[] = {
      {"t", {table("S", "", "", "t")}},
      {"dbo.t", {table("S", "", "dbo", "t")}},
      {"cat.dbo.t", {table("S", "cat", "dbo", "t")}},
      {"&quot;my.cat&quot;.dbo.t", {table("S", "my.cat", "dbo", "t")}},
      {"&quot;a&quot;&quot;b&quot;", {table("S", "", "", "a\"b")}},
      {"srv.cat.dbo.t", {}},
      {"dbo.", {}},
      {"&quot;open", {}},
      {"", {}},
      {tooLong.c_str(), {}},
  };
  for (const auto& [target, expected] : cases) {
    const Released<QvResourceListImpl> list(new QvResourceListImpl);
    const auto xml = text("<SQLUpdateRows><DatabaseConnectionObject Name='S'/><Create TargetName='" +
                          std::string(target) + "'/></SQLUpdateRows>");
    ASSERT_TRUE(m_manager->addSQLResourcesFromString(xml, &m_factory, list.get())) << target;
    auto rows = rowsOf(*list);
    ASSERT_FALSE(rows.empty());
    rows.erase(rows.begin()); // the connection
    EXPECT_EQ(rows, expected) << target;
  }
}

TEST_F(Scan, NamesASourceTableWithoutAURIByItsNameAlone) {
  const auto expected = table("", "", "", "customers");
  EXPECT_EQ(scan("<DatabaseConnectionObject Name='Sales'/><SourceTable Name='customers'/>"),
            (Rows{dataSource("DSN=Sales;QVXTYPE=ODBC;", "Sales", "ODBC"), expected}));
}

TEST_F(Scan, PassesOnWhatATableIsWithoutAsEmptyText) {
  struct Watching : QvResourceManagerImpl {
    bool addTableResource(QvResourceFactory*, QvResourceList*, QvbString& dsn, QvbString& dsnType,
                          QvbString& catalog, QvbString& schema, QvbString& table) override {
      for (const auto* argument : {&dsn, &dsnType, &catalog, &schema, &table})
        nulls += argument->isNull();
      ++tables;
      return true;
    }
    int tables = 0;
    int nulls = 0;
  };
  const Released<Watching> manager(new Watching);
  EXPECT_TRUE(manager->addSQLResourcesFromString(
      "<SQLUpdateRows><SourceTable Name='t'/><DatabaseConnectionObject Name='Sales'/><Create TargetName='t'/>"
      "<AliasTable PathURI='qvd:///Sales?type=ODBC'/></SQLUpdateRows>",
      &m_factory, m_list.get()));
  EXPECT_EQ(manager->tables, 3);
  EXPECT_EQ(manager->nulls, 0);
}

TEST_F(Scan, TakesAnEmptyURIForNone) {
  EXPECT_EQ(scan("<AliasTable PathURI='' Name='customers'/>"), (Rows{table("", "", "", "customers")}));
}

TEST_F(Scan, MakesNothingOfANamelessTable) { EXPECT_EQ(scan("<SourceTable/><AliasTable Name=''/>"), Rows{}); }

TEST_F(Scan, ReadsDataSourceAndTableFromAURI) {
  EXPECT_EQ(scan("<SourceTable Name='ignored' "
                 "PathURI='qvd:///Sales?type=ODBC&amp;catalog=cat&amp;schema=dbo&amp;table=orders'/>"),
            (Rows{dataSource("", "Sales", ""), table("Sales", "cat", "dbo", "orders")}));
}

TEST_F(Scan, TakesTheDataSourceOfAURIAsItStandsWithAServerToo) {
  EXPECT_EQ(scan("<AliasTable PathURI='qvf://SYS/Sales?type=GRVS&amp;table=orders'/>"),
            (Rows{dataSource("", "Sales", ""), table("Sales", "", "", "orders")}));
}

TEST_F(Scan, AddsTheDataSourceAloneForAURIWithoutATable) {
  EXPECT_EQ(scan("<SourceTable PathURI='qvd:///Sales?type=ODBC'/>"), (Rows{dataSource("", "Sales", "")}));
}

TEST_F(Scan, MakesNothingOfAURIWithoutDataSourceOrType) {
  EXPECT_EQ(scan("<SourceTable Name='t' PathURI='qvd:///Sales?table=orders'/>"
                 "<SourceTable Name='t' PathURI='file:///data/in.txt'/>"
                 "<SourceTable Name='t' PathURI='no URI'/>"),
            Rows{});
}

TEST_F(Scan, NamesATableByBytesThatItsIdentityCannotCarry) {
  const Rows rows = scan("<SourceTable PathURI='qvd:///Sales?type=ODBC&amp;table=a%01b'/>");
  ASSERT_EQ(rows.size(), 2U);
  EXPECT_EQ(rows[1].name, "a\x01"
                          "b");
  QvbString dsn, dsntype, catalog, schema, table;
  ASSERT_TRUE(m_manager->getTableObjectFromResourceId(text(rows[1].identity), &dsn, &dsntype, &catalog,
                                                      &schema, &table));
  EXPECT_EQ(dsn, "Sales");
  EXPECT_EQ(table, "a\xef\xbf\xbd"
                   "b");
}

TEST_F(Scan, ComparesElementNamesWithoutCase) {
  ASSERT_TRUE(addSQL("<sqlUPDATErows><databaseconnectionobject Name='S'/><sourceTABLE Name='a'/>"
                     "<aliastable Name='b'/><CREATE TargetName='c'/></sqlUPDATErows>"));
  EXPECT_EQ(rowsOf(*m_list).size(), 4U);
}

TEST_F(Scan, ComparesAttributeNamesWithoutCase) {
  ASSERT_TRUE(addSQL("<SQLUpdateRows><DatabaseConnectionObject NAME='S' dbdactype='QVTK'/>"
                     "<SourceTable name='a'/><AliasTable pathuri='qvd:///T?type=ODBC&amp;table=b'/>"
                     "<Create TARGETNAME='c'/></SQLUpdateRows>"));
  EXPECT_EQ(rowsOf(*m_list),
            (Rows{dataSource("DSN=S;QVXTYPE=GRVS;", "S", "GRVS"), table("", "", "", "a"),
                  dataSource("", "T", ""), table("T", "", "", "b"), table("S", "", "", "c")}));
}

TEST_F(Scan, PrefersTheAttributeInItsUsualCase) {
  EXPECT_EQ(scan("<SourceTable NAME='other' Name='own'/>"), (Rows{table("", "", "", "own")}));
}

TEST_F(Scan, KnowsSixKindsOfStep) {
  for (const char* step : {"QueryBuilderService", "SQLCreateTableSelect", "SQLInsertRowsSelect",
                           "SQLInsertRowsQueryReference", "SQLCreateTableQueryReference", "SQLUpdateRows"}) {
    const auto name = std::string(step);
    ASSERT_TRUE(addSQL("<" + name + "><SourceTable Name='" + name + "'/></" + name + ">"));
    EXPECT_EQ(rowsOf(*m_list).back().name, name);
  }
}

TEST_F(Scan, PassesOverEveryOtherDocument) {
  EXPECT_TRUE(addSQL("<Step><SQLUpdateRows><SourceTable Name='t'/></SQLUpdateRows></Step>"));
  EXPECT_TRUE(addSQL("<SourceTable Name='t'/>"));
  EXPECT_TRUE(addSQL("<SQLUpdateRows/>"));
  EXPECT_TRUE(addSQL("<SQLUpdateRows DbDACType='ODBC'>text</SQLUpdateRows>"));
  EXPECT_TRUE(rowsOf(*m_list).empty());
}

TEST_F(Scan, RefusesWhatIsNotXML) {
  EXPECT_FALSE(addSQL(""));
  EXPECT_FALSE(addSQL("<SQLUpdateRows>"));
  EXPECT_FALSE(m_manager->addSQLResourcesFromString(QvbString(), &m_factory, m_list.get()));
}

TEST_F(Scan, ReadsAFile) {
  const TempDir folder;
  const auto path =
      folder.write("step.xsq", "<QueryBuilderService><SourceTable Name='orders'/></QueryBuilderService>");
  EXPECT_TRUE(m_manager->addSQLResourcesFromFile(text(path), &m_factory, m_list.get()));
  EXPECT_EQ(rowsOf(*m_list), (Rows{table("", "", "", "orders")}));
  const auto broken = folder.write("broken.xsq", "<QueryBuilderService>");
  EXPECT_FALSE(m_manager->addSQLResourcesFromFile(text(broken), &m_factory, m_list.get()));
  EXPECT_FALSE(m_manager->addSQLResourcesFromFile(text(folder / "missing"), &m_factory, m_list.get()));
}

TEST_F(Scan, TakesADocumentThatWasReadElsewhere) {
  QvDom step, other;
  ASSERT_TRUE(step.loadXML("<QueryBuilderService><SourceTable Name='orders'/></QueryBuilderService>"));
  ASSERT_TRUE(other.loadXML("<Other><SourceTable Name='people'/></Other>"));
  EXPECT_TRUE(m_manager->addSQLResources(step, &m_factory, m_list.get()));
  EXPECT_TRUE(m_manager->addSQLResources(other, &m_factory, m_list.get()));
  EXPECT_EQ(rowsOf(*m_list), (Rows{table("", "", "", "orders")}));
}

TEST_F(Scan, AddsEachTableOnce) {
  EXPECT_EQ(
      scan("<SourceTable Name='orders'/><AliasTable Name='ORDERS'/><SourceTable Name='orders'/>").size(), 1U);
}

TEST_F(Scan, AcceptsAMissingNode) {
  QvDomNode none;
  QvbString dsn;
  EXPECT_TRUE(m_manager->processSQLNode(none, &m_factory, m_list.get(), &dsn));
  EXPECT_TRUE(rowsOf(*m_list).empty());
}

// A walk that took stack for each sibling would not come back.
TEST_F(Scan, TakesAMillionSiblings) {
  constexpr int siblings = 1000000;
  std::string content;
  for (int i = 0; i < siblings; ++i)
    content += i % 1000 == 0 ? "<SourceTable Name='t" + std::to_string(i) + "'/>" : std::string("<x/>");
  EXPECT_EQ(scan(content).size(), static_cast<std::size_t>(siblings / 1000));
}

TEST_F(Scan, ReachesTheDeepestElement) {
  constexpr int depth = 900;
  std::string content = "<SourceTable Name='deep'/>";
  for (int i = 0; i < depth; ++i)
    content = "<x>" + content + "</x>";
  EXPECT_EQ(scan(content), (Rows{table("", "", "", "deep")}));
}

TEST(LineageScan, LocatesATableWhereItsURISays) {
  const Released<QvImpactAnalysis> lineage(getQvLineageAnalysis());
  const Released<QvResourceManager> manager(createQvResourceManager());
  auto* factory = lineage->getDefaultResourceFactory();
  for (const std::string uri : {"qvd:///Sales?schema=dbo&table=orders", "qvd:///Sales?table=orders"}) {
    const Released<QvResourceList> list(lineage->createResourceList());
    QvDom document;
    ASSERT_TRUE(document.startNewDocument("SQLUpdateRows"));
    document.getRoot().addChild("SourceTable").setAttributeValue("PathURI", text(uri + "&type=ODBC"));
    const auto step = document.createXML(false, document.getRoot());
    ASSERT_TRUE(manager->addSQLResourcesFromString(step, factory, list.get()));
    ASSERT_TRUE(list->next()); // the data source
    ASSERT_TRUE(list->next());
    auto* table = list->getValue();
    QvbString name, location;
    ASSERT_TRUE(factory->getResourceResolver()->getResourceLocation(
        table->getName(), table->getResourceIdentity(), table->getResourceType(), &name, &location));
    EXPECT_EQ(name, "orders");
    EXPECT_EQ(str(location), uri);
  }
}
