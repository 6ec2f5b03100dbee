#include "lineagefactory.h"

#include "guards.h"
#include "qvreposres/qvlineage.h"
#include "qvreposres/qvresourcemgr.h"
#include "qvreposres/qvresourceuri.h"
#include "qvxbase/qvbconfig.h"
#include "support/allocations.h"
#include "support/faults.h"
#include "support/logcapture.h"
#include "support/recordingfactory.h"
#include "support/tempdir.h"
#include "support/textio.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <cerrno>
#include <string>
#include <vector>

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Factory = Released<LineageImpactFactoryImpl>;
using Resolver = Released<LineageResourceResolver>;
using Resource = Released<QvResource>;
using URI = Released<QvURI>;

constexpr const char* category = "QV.Repos.Lineage.Analysis";

LogLine line(int level, const std::string& text) { return {category, level, "src/lineagefactory", text}; }

LogLine notLocated(const QvbString& identity, const char* type) {
  return line(2, "Unable to getResourceLocation() with Id=" + str(identity) + ", and Type=" + type + ".");
}

Resolver makeResolver() { return Resolver(new LineageResourceResolver); }

using Manager = Released<QvResourceManager>;

QvbString fileIdentity(const char* filename, QvbString name) {
  QvbString identity;
  EXPECT_TRUE(Manager(createQvResourceManager())->generateFileResourceId(filename, name, &identity));
  return identity;
}

QvbString tableIdentity(const char* dsn, const char* schema, const char* table) {
  QvbString identity;
  EXPECT_TRUE(Manager(createQvResourceManager())
                  ->generateTableDataSourceResourceId(dsn, "ODBC", "cat", schema, table, &identity));
  return identity;
}

QvbString databaseIdentity(const char* dsn) {
  QvbString identity;
  EXPECT_TRUE(Manager(createQvResourceManager())->generateDataSourceResourceId(dsn, "ODBC", &identity));
  return identity;
}

QvbString unifiedIdentity() {
  QvbString identity;
  EXPECT_TRUE(
      Manager(createQvResourceManager())->generateUnifiedObjectResourceId("", "Rule", "42", "", &identity));
  return identity;
}

QvbString uriOf(const std::string& path) {
  QvbString uri;
  EXPECT_TRUE(generateURIReferenceFromFilename(text(path), &uri));
  return uri;
}

// What getResourceLocation answered, with the log that it left.
struct Answer {
  bool found;
  std::string name;
  std::string uri;
  std::vector<LogLine> log;
};

Answer locate(const QvbString& name, const QvbString& identity, const QvbString& type) {
  const LogCapture log;
  QvbString outputName;
  QvbString outputURI;
  const bool found = makeResolver()->getResourceLocation(name, identity, type, &outputName, &outputURI);
  return {found, str(outputName), str(outputURI), log.lines(category)};
}

// No repository definitions stand in the way of plain file URIs.
class LineageLocation : public testing::Test {
protected:
  LineageLocation() {
    qvbSetConfigOption("BASE/REPOS_SYS_PATH", text(m_dir / "definitions"));
    qvbSetConfigOption("BASE/REPOS_USER_PATH", text(m_dir / "user"));
  }
  ~LineageLocation() override { qvbClearConfigOptions(); }

  TempDir m_dir;
};

TEST(LineageFactory, MakesResourcesOfTheGivenFields) {
  const Factory factory(new LineageImpactFactoryImpl);
  const Resource resource(factory->getResource("name", "Type", "identity"));
  EXPECT_EQ(fieldsOf(*resource), (ResourceFields{"name", "Type", "identity"}));
  EXPECT_TRUE(resource->getAnalysisDate().isNull());
  EXPECT_TRUE(resource->getResourceLocation().isEmpty());
  EXPECT_EQ(resource->getProperties(), nullptr);
  EXPECT_TRUE(resource->IsResolved());
}

TEST(LineageFactory, MakesNoResourceWhenMemoryIsShort) {
  const Factory factory(new LineageImpactFactoryImpl);
  const QvbString name("name");
  Allocations::left = 0;
  QvResource* resource = factory->getResource(name, name, name);
  QvImpactAnalysis* store = getQvLineageAnalysis();
  Allocations::left = -1;
  EXPECT_EQ(resource, nullptr);
  EXPECT_EQ(store, nullptr);
}

TEST(LineageFactory, HasNeitherErrorNorPlugins) {
  const Factory factory(new LineageImpactFactoryImpl);
  for (const QvbString& text : {factory->getErrorMessage(), factory->getPluginPath()}) {
    EXPECT_FALSE(text.isNull());
    EXPECT_TRUE(text.isEmpty());
  }
}

struct CountedResolver : LineageResourceResolver {
  explicit CountedResolver(int* count) : releases(count) {}
  void release() override {
    ++*releases;
    LineageResourceResolver::release();
  }
  int* releases;
};

TEST(LineageFactory, OwnsItsResolverAndKeepsItOverNull) {
  int releases = 0;
  {
    const Factory factory(new LineageImpactFactoryImpl);
    EXPECT_EQ(factory->getResourceResolver(), nullptr);
    auto* resolver = new CountedResolver(&releases);
    factory->registerResourceResolver(resolver);
    factory->registerResourceResolver(nullptr);
    EXPECT_EQ(factory->getResourceResolver(), resolver);
    EXPECT_EQ(releases, 0);
  }
  EXPECT_EQ(releases, 1);
}

TEST(LineageFactory, AReplacedResolverIsNotReleased) {
  int releases = 0;
  int replacedReleases = 0;
  const Released<CountedResolver> replaced(new CountedResolver(&replacedReleases));
  {
    const Factory factory(new LineageImpactFactoryImpl);
    factory->registerResourceResolver(replaced.get());
    factory->registerResourceResolver(new CountedResolver(&releases));
  }
  EXPECT_EQ(releases, 1);
  EXPECT_EQ(replacedReleases, 0);
}

TEST(LineageFactory, MakesATableOrDatabaseOfADataURI) {
  struct Case {
    const char* server;
    const char* dataSource;
    const char* table;
    const char* type;
    const char* name;
    QvbString identity;
  };
  for (const Case& c :
       {Case{"", "Sales", "CUSTOMERS", "Table", "CUSTOMERS", tableIdentity("Sales", "dbo", "CUSTOMERS")},
        Case{"SYS", "Sales", "T", "Table", "T", tableIdentity("SYS - Sales", "dbo", "T")},
        Case{"", "DSN=Sales;", "", "Database", "Sales", databaseIdentity("Sales")},
        Case{"", "Sales", "", "Database", "", databaseIdentity("Sales")},
        Case{"SYS", "Sales", "", "Database", "", databaseIdentity("SYS - Sales")}}) {
    const URI uri(getDataURIFromComponents("qvd", c.server, c.dataSource, "ODBC", "cat", "dbo", c.table, ""));
    ASSERT_TRUE(uri);
    const Resource resource(Factory(new LineageImpactFactoryImpl)->getDataResource(uri->getDataURI()));
    ASSERT_TRUE(resource) << c.dataSource;
    EXPECT_EQ(fieldsOf(*resource), (ResourceFields{c.name, c.type, str(c.identity)}));
    EXPECT_EQ(resource->getResourceLocation(), uri->asString());
  }
}

TEST(LineageFactory, MakesNothingWithoutADataSource) {
  const Factory factory(new LineageImpactFactoryImpl);
  EXPECT_EQ(factory->getDataResource(nullptr), nullptr);
  const URI object(getReposURIFromComponents("repo", "batch_jobs/load", "ProcessJob"));
  ASSERT_TRUE(object->getDataURI());
  EXPECT_EQ(factory->getDataResource(object->getDataURI()), nullptr);
}

TEST(SystemCatalogName, SplitsAtTheFirstSeparator) {
  struct Case {
    const char* name;
    bool splits;
    const char* prefix;
    const char* rest;
  };
  for (const Case& c :
       {Case{"SYS - Sales", true, "SYS", "Sales"}, Case{"a - b - c", true, "a", "b - c"},
        Case{" - b", true, "", "b"}, Case{"a - ", true, "a", ""}, Case{"Sales", false, "p", "r"},
        Case{"a- b", false, "p", "r"}, Case{"a-b", false, "p", "r"}, Case{"", false, "p", "r"}}) {
    QvbString prefix = "p";
    QvbString rest = "r";
    EXPECT_EQ(isSyscatDsn(c.name, &prefix, &rest), c.splits) << c.name;
    EXPECT_EQ(prefix, QvbString(c.prefix)) << c.name;
    EXPECT_EQ(rest, QvbString(c.rest)) << c.name;
  }
}

TEST(LineageResolver, FindsFilesUnlessTheyAreMissing) {
  const TempDir dir;
  const Resolver resolver = makeResolver();
  EXPECT_FALSE(resolver->fileExists(QvbString()));
  EXPECT_FALSE(resolver->fileExists(""));
  EXPECT_FALSE(resolver->fileExists(text(dir / "missing")));
  EXPECT_TRUE(resolver->fileExists(text(dir.write("there", ""))));
  EXPECT_TRUE(resolver->fileExists(text(dir.path().string())));
  const Faults denied(QvbFaultPoint::FileStat, EACCES);
  EXPECT_TRUE(resolver->fileExists(text(dir / "missing")));
}

TEST(LineageResolver, ObjectsOfAUnifiedRepositoryLeaveAMessage) {
  for (const char* type :
       {"Task", "TASK", "Rule", "CustomMetric", "Source", "Field", "ProfileJob", "profilejob"}) {
    const Resolver resolver = makeResolver();
    EXPECT_TRUE(resolver->getErrorMessage().isEmpty());
    QvbString name = "name";
    QvbString reference = "reference";
    EXPECT_EQ(resolver->resolveResource(type, "id", "uuid", &name, &reference),
              QvbString(type).compare("Task", true) != 0)
        << type;
    EXPECT_EQ(str(resolver->getErrorMessage()),
              "The " + std::string(type) + " resource id cannot be resolved without Unified Repository.");
    EXPECT_EQ(name, QvbString("name"));
    EXPECT_EQ(reference, QvbString("reference"));
  }
}

TEST(LineageResolver, EverythingElseIsResolvedAsItIs) {
  const LogCapture log;
  for (const char* type : {"Table", "Database", "File", "ProcessJob", "DataExploration", "Unheard", ""}) {
    const Resolver resolver = makeResolver();
    QvbString name = "name";
    QvbString reference = "reference";
    EXPECT_TRUE(resolver->resolveResource(type, "id", "uuid", &name, &reference)) << type;
    EXPECT_TRUE(resolver->getErrorMessage().isEmpty());
    EXPECT_EQ(name, QvbString("name"));
    EXPECT_EQ(reference, QvbString("reference"));
  }
  EXPECT_THAT(log.lines(category), IsEmpty());
}

TEST(LineageResolver, AMasterDataProjectIsResolvedByItsIdentity) {
  const LogCapture log;
  const QvbString identity = fileIdentity("/a/project", "Project");
  QvbString name;
  QvbString reference;
  EXPECT_TRUE(makeResolver()->resolveResource("MasterDataProject", identity, "", &name, &reference));
  EXPECT_EQ(name, QvbString("Project"));
  EXPECT_EQ(reference, QvbString("Project"));
  EXPECT_THAT(
      log.lines(category),
      ElementsAre(
          line(1, "Processing MDMProject resolveResource with Id=" + str(identity) +
                      ", and Type=MasterDataProject"),
          line(1, "Setting MDMProject resolveResource with OutputURI=Project, and outputName=Project")));
}

TEST(LineageResolver, AMasterDataProjectOfAnotherIdentityIsResolvedWithNothingWritten) {
  for (const QvbString& identity : {QvbString(""), QvbString("/a/project"), databaseIdentity("Sales")}) {
    const LogCapture log;
    QvbString name = "name";
    QvbString reference = "reference";
    EXPECT_TRUE(makeResolver()->resolveResource("masterdataproject", identity, "", &name, &reference));
    EXPECT_EQ(name, QvbString("name"));
    EXPECT_EQ(reference, QvbString("reference"));
    EXPECT_THAT(log.lines(category),
                ElementsAre(line(1, "Processing MDMProject resolveResource with Id=" + str(identity) +
                                        ", and Type=masterdataproject")));
  }
}

TEST(LineageResolver, TheLookupByNameWorksWithoutANameAlone) {
  const Resolver resolver = makeResolver();
  const QvbString identity = fileIdentity("/a/project", "Project");
  QvbString found = "before";
  EXPECT_FALSE(resolver->resolveResource("MasterDataProject", identity, "name", "uuid", &found));
  EXPECT_EQ(found, QvbString("before"));
  EXPECT_TRUE(resolver->resolveResource("MasterDataProject", identity, "", "uuid", &found));
  EXPECT_EQ(found, QvbString("Project"));
  EXPECT_FALSE(resolver->resolveResource("Task", "id", QvbString(), "uuid", &found));
  EXPECT_EQ(resolver->getErrorMessage(),
            QvbString("The Task resource id cannot be resolved without Unified Repository."));
}

TEST(LineageResolver, TheLookupByNameGoesThroughTheOtherLookup) {
  struct Recording : LineageResourceResolver {
    using LineageResourceResolver::resolveResource;
    bool resolveResource(const QvbString& type, const QvbString& id, const QvbString& uuid, QvbString*,
                         QvbString* reference) override {
      call = str(type) + " " + str(id) + " " + str(uuid);
      *reference = "found";
      return true;
    }
    std::string call;
  };
  const Released<Recording> resolver(new Recording);
  QvbString found;
  EXPECT_TRUE(static_cast<QvResourceResolver&>(*resolver).resolveResource("T", "I", "", "U", &found));
  EXPECT_EQ(resolver->call, "T I U");
  EXPECT_EQ(found, QvbString("found"));
}

TEST(LineageResolver, KnowsNoUnifiedRepositoryName) {
  const LogCapture log;
  QvbString name = "before";
  EXPECT_FALSE(makeResolver()->getUnifiedRepositoryName(&name));
  EXPECT_EQ(name, QvbString("before"));
  EXPECT_THAT(log.lines(category),
              ElementsAre(line(5, "Unable to get Unified Repository name in Resource Resolver.")));
}

TEST(LineageResolver, MakesATableOrDatabaseOfADataURIWithoutItsServer) {
  for (const char* table : {"CUSTOMERS", ""}) {
    const LogCapture log;
    const URI uri(getDataURIFromComponents("qvf", "SYS", "Sales", "ODBC", "cat", "dbo", table, ""));
    const Resource resource(makeResolver()->getResourceFromURI(uri->asString()));
    ASSERT_TRUE(resource);
    EXPECT_EQ(fieldsOf(*resource),
              *table ? (ResourceFields{"CUSTOMERS", "Table", str(tableIdentity("Sales", "dbo", "CUSTOMERS"))})
                     : (ResourceFields{"", "Database", str(databaseIdentity("Sales"))}));
    EXPECT_TRUE(resource->getResourceLocation().isEmpty());
    EXPECT_THAT(log.lines(category), IsEmpty());
  }
}

TEST(LineageResolver, MakesNothingOfAnyOtherURI) {
  for (const char* uri : {"", "no URI", "file:///a/b", "qvr://repo/batch_jobs/load?type=ProcessJob",
                          "QVR://repo/batch_jobs/load?type=ProcessJob", "http://host/a", "qvd:///"}) {
    const LogCapture log;
    EXPECT_EQ(makeResolver()->getResourceFromURI(uri), nullptr) << uri;
    EXPECT_THAT(log.lines(category),
                ElementsAre(line(2, "Unable to get resource for given URI=" + std::string(uri) + ".")));
  }
}

TEST(LineageResolver, NamesADatabaseOfADataURIByAnEmptyText) {
  const URI uri(getDataURIFromComponents("qvd", "", "Sales", "ODBC", "", "", "", ""));
  const Resource found(makeResolver()->getResourceFromURI(uri->asString()));
  ASSERT_TRUE(found);
  EXPECT_TRUE(isEmptyText(found->getName()));
  const Resource made(Factory(new LineageImpactFactoryImpl)->getDataResource(uri->getDataURI()));
  ASSERT_TRUE(made);
  EXPECT_TRUE(isEmptyText(made->getName()));
}

// In place of a path that is null, and of parts that an identity does not have.
// What logs an error at times is never silent; what tells its life cycle alone is unless that is logged.
TEST(LineageResolver, TellsWhichLookupsAreNotLogged) {
  LineageResourceResolver resolver;
  for (const char* type : {"Table", "TABLE", "Database", "File", "ProcessJob", "ZELFile", "Odd"})
    for (const auto level : {QvLoggingLevel::Trace, QvLoggingLevel::Lifecycle, QvLoggingLevel::Success,
                             QvLoggingLevel::Critical}) {
      qvlogSetLevel(level);
      EXPECT_EQ(resolver.isSilent(type), level > QvLoggingLevel::Lifecycle) << type;
    }
  for (const char* type : {"", "Task", "rule", "ProfileJob", "Field", "MasterDataProject"})
    EXPECT_FALSE(resolver.isSilent(type)) << type;
  qvlogSetLevel(QvLoggingLevel::Anomaly);
  const LogCapture log;
  EXPECT_FALSE(resolver.isSilent("Table"));
}

TEST_F(LineageLocation, OfNothingIsAnEmptyText) {
  const QvbString none;
  for (const char* type : {"File", "Folder", "ProcessJob"}) {
    QvbString name;
    QvbString uri;
    EXPECT_FALSE(makeResolver()->getResourceLocation(none, none, type, &name, &uri));
    EXPECT_TRUE(isEmptyText(uri)) << type;
  }
  const struct {
    const char* type;
    const char* element;
  } withoutParts[] = {{"Table", "tabledatasource"}, {"File", "file"}};
  for (const auto& [type, element] : withoutParts) {
    QvbString name;
    QvbString uri("before");
    const std::string identity =
        std::string("<morvaxeldocument><resource><") + element + "/></resource></morvaxeldocument>";
    EXPECT_FALSE(makeResolver()->getResourceLocation(none, text(identity), type, &name, &uri));
    EXPECT_TRUE(isEmptyText(name)) << type;
    EXPECT_FALSE(uri.isNull()) << type;
  }
}

TEST_F(LineageLocation, OfATableIsItsDataURI) {
  struct Case {
    const char* dsn;
    const char* scheme;
    const char* server;
    const char* dataSource;
  };
  for (const Case& c :
       {Case{"Sales", "qvd", "", "Sales"}, Case{"DSN=Sales;QVXTYPE=ODBC;", "qvd", "", "Sales"},
        Case{"SYS - Sales", "qvf", "SYS", "Sales"}}) {
    const Answer answer = locate("label", tableIdentity(c.dsn, "dbo", "CUSTOMERS"), "table");
    EXPECT_TRUE(answer.found) << c.dsn;
    EXPECT_EQ(answer.name, "CUSTOMERS");
    EXPECT_EQ(answer.uri, str(URI(getDataURIFromComponents(c.scheme, c.server, c.dataSource, "ODBC", "cat",
                                                           "dbo", "CUSTOMERS", ""))
                                  ->asString()));
    EXPECT_THAT(answer.log, IsEmpty());
  }
}

TEST_F(LineageLocation, OfATableWithoutDataSourceIsUnknownButItHasItsName) {
  const QvbString identity = tableIdentity("", "dbo", "CUSTOMERS");
  const Answer answer = locate("label", identity, "Table");
  EXPECT_FALSE(answer.found);
  EXPECT_EQ(answer.name, "CUSTOMERS");
  EXPECT_EQ(answer.uri, "");
  EXPECT_THAT(answer.log, ElementsAre(notLocated(identity, "Table")));
}

// Many tables, each asked for twice, and names that differ in case alone.
TEST_F(LineageLocation, OfATableIsTheSameHoweverOftenAndAfterHoweverManyOthers) {
  const Resolver resolver = makeResolver();
  const auto uriOfTable = [&](const std::string& table) {
    QvbString name;
    QvbString uri;
    EXPECT_TRUE(resolver->getResourceLocation("", tableIdentity("Sales", "dbo", table.c_str()), "Table",
                                              &name, &uri));
    EXPECT_EQ(str(name), table);
    return str(uri);
  };
  for (int i = 0; i < 8200; ++i)
    for (const char* prefix : {"t", "t", "T"}) {
      const std::string table = prefix + std::to_string(i % 8195);
      ASSERT_EQ(uriOfTable(table), "qvd:///Sales?type=ODBC&catalog=cat&schema=dbo&table=" + table);
    }
}

TEST_F(LineageLocation, OfATableThatIsNoneIsToldEachTime) {
  const LogCapture log;
  const Resolver resolver = makeResolver();
  const QvbString identities[] = {"text", tableIdentity("", "dbo", "CUSTOMERS")};
  for (const QvbString& identity : identities)
    for (int i = 0; i < 2; ++i) {
      QvbString name;
      QvbString uri = "before";
      EXPECT_FALSE(resolver->getResourceLocation("label", identity, "Table", &name, &uri));
      EXPECT_EQ(name, QvbString(&identity == identities ? "label" : "CUSTOMERS"));
      EXPECT_EQ(uri, QvbString("before"));
    }
  const LogLine first = notLocated(identities[0], "Table");
  const LogLine second = notLocated(identities[1], "Table");
  EXPECT_THAT(log.lines(category), ElementsAre(first, first, second, second));
}

TEST_F(LineageLocation, OfADatabaseIsItsDataURI) {
  struct Case {
    const char* dsn;
    const char* name;
    const char* scheme;
    const char* server;
  };
  for (const Case& c :
       {Case{"Sales", "Sales", "qvd", ""}, Case{"SYS - Sales", "SYS - Sales", "qvf", "SYS"}}) {
    const Answer answer = locate("label", databaseIdentity(c.dsn), "DATABASE");
    EXPECT_TRUE(answer.found) << c.dsn;
    EXPECT_EQ(answer.name, c.name);
    EXPECT_EQ(
        answer.uri,
        str(URI(getDataURIFromComponents(c.scheme, c.server, "Sales", "ODBC", "", "", "", ""))->asString()));
    EXPECT_THAT(answer.log, IsEmpty());
  }
  EXPECT_FALSE(locate("", databaseIdentity("SYS - "), "Database").found);
  EXPECT_EQ(locate("", databaseIdentity("SYS - "), "Database").name, "SYS - ");
}

TEST_F(LineageLocation, OfATableOrDatabaseNeedsAnIdentityOfItsKind) {
  for (const auto& [identity, type] :
       {std::pair{databaseIdentity("Sales"), "Table"},
        std::pair{tableIdentity("Sales", "dbo", "T"), "Database"}, std::pair{QvbString("text"), "Table"},
        std::pair{QvbString(), "Database"}}) {
    const Answer answer = locate("label", identity, type);
    EXPECT_FALSE(answer.found);
    EXPECT_EQ(answer.name, "label");
    EXPECT_EQ(answer.uri, "");
    EXPECT_THAT(answer.log, ElementsAre(notLocated(identity, type)));
  }
}

class JobFileType : public LineageLocation, public testing::WithParamInterface<const char*> {};
INSTANTIATE_TEST_SUITE_P(Types, JobFileType,
                         testing::Values("ProcessJob", "XMLSQLQuery", "ArchitectJob", "DataJob", "ZELFile",
                                         "EntityResolution", "FileDefinition", "FileDefinitionLayout",
                                         "processjob"));

TEST_P(JobFileType, IsFoundWhereItsFileIs) {
  const std::string path = m_dir.write("jobs/load.djf", "");
  const Answer answer = locate("load", text(path), GetParam());
  EXPECT_TRUE(answer.found);
  EXPECT_EQ(answer.name, "load");
  EXPECT_EQ(answer.uri, str(uriOf(path)));
  EXPECT_THAT(answer.log, IsEmpty());
}

TEST_P(JobFileType, IsFoundWithBackSlashes) {
  const std::string path = m_dir.write("jobs/load.djf", "");
  std::string windows = path;
  windows.replace(windows.rfind('/'), 1, "\\");
  const Answer answer = locate("", text(windows), GetParam());
  EXPECT_TRUE(answer.found);
  EXPECT_EQ(answer.name, "");
  EXPECT_EQ(answer.uri, str(uriOf(path)));
}

TEST_P(JobFileType, HasALocationThatIsNotThereWhenItsFileIsMissing) {
  const QvbString path = text(m_dir / "missing.djf");
  const Answer answer = locate("", path, GetParam());
  EXPECT_FALSE(answer.found);
  EXPECT_EQ(answer.uri, str(uriOf(str(path))));
  EXPECT_THAT(answer.log, ElementsAre(notLocated(path, GetParam())));
  EXPECT_FALSE(locate("", "", GetParam()).found);
}

TEST_P(JobFileType, IsNeverFoundByAURI) {
  const QvbString identity = "http://host/jobs/load.djf";
  const Answer answer = locate("load", identity, GetParam());
  EXPECT_FALSE(answer.found);
  EXPECT_EQ(answer.uri, str(identity));
  EXPECT_THAT(answer.log, ElementsAre(notLocated(identity, GetParam())));
}

TEST_F(LineageLocation, OfATextThatBeginsWithAURISeparatorIsAPath) {
  const Answer answer = locate("", "://x", "ProcessJob");
  EXPECT_FALSE(answer.found);
  EXPECT_EQ(answer.uri, str(uriOf("://x")));
}

class UnifiedType : public LineageLocation, public testing::WithParamInterface<const char*> {};
INSTANTIATE_TEST_SUITE_P(Types, UnifiedType,
                         testing::Values("Task", "Rule", "ProfileJob", "DataExploration", "CustomMetric",
                                         "Source", "Field", "FIELD"));

TEST_P(UnifiedType, HasNoLocationByItsIdentity) {
  const QvbString identity = unifiedIdentity();
  const Answer answer = locate("rule", identity, GetParam());
  EXPECT_FALSE(answer.found);
  EXPECT_EQ(answer.name, "rule");
  EXPECT_EQ(answer.uri, "");
  EXPECT_THAT(answer.log, ElementsAre(line(5, "Unable to obtain resource location for " + str(identity)),
                                      notLocated(identity, GetParam())));
}

TEST_P(UnifiedType, IsFoundByAURI) {
  const Answer answer = locate("", "http://host/profile", GetParam());
  EXPECT_TRUE(answer.found);
  EXPECT_EQ(answer.uri, "http://host/profile");
  EXPECT_THAT(answer.log, IsEmpty());
}

TEST_F(LineageLocation, WithoutATypeIsAURIAlone) {
  for (const QvbString& type : {QvbString(), QvbString("")}) {
    const Answer answer = locate("name", "file:///a/b", type);
    EXPECT_TRUE(answer.found);
    EXPECT_EQ(answer.name, "name");
    EXPECT_EQ(answer.uri, "file:///a/b");
    EXPECT_THAT(answer.log, IsEmpty());
    const Answer none = locate("name", "/a/b", type);
    EXPECT_FALSE(none.found);
    EXPECT_EQ(none.uri, "");
    EXPECT_THAT(none.log, ElementsAre(notLocated("/a/b", "")));
  }
}

TEST_F(LineageLocation, OfARepositoryObjectIsNotFoundByItsURI) {
  const std::string identity = "qvr://repo/batch_jobs/load?type=ProcessJob";
  const Answer answer = locate("", text(identity), "");
  EXPECT_FALSE(answer.found);
  EXPECT_EQ(answer.uri, identity);
  EXPECT_THAT(answer.log,
              ElementsAre(line(5, "Unable to obtain resource location from repos URI: " + identity),
                          notLocated(text(identity), "")));
}

TEST_F(LineageLocation, ThatTheCallerKnowsAlreadyIsKept) {
  QvbString name = "known";
  QvbString uri = "known://uri";
  EXPECT_FALSE(makeResolver()->getResourceLocation("", "http://host/a", "", &name, &uri));
  EXPECT_EQ(name, QvbString("known"));
  EXPECT_EQ(uri, QvbString("known://uri"));
}

TEST_F(LineageLocation, OfAFileIsTheURIOfItsPath) {
  const std::string path = m_dir.write("data/in.txt", "");
  const Answer plain = locate("label", text(path), "File");
  EXPECT_TRUE(plain.found);
  EXPECT_EQ(plain.name, "label");
  EXPECT_EQ(plain.uri, str(uriOf(path)));
  EXPECT_THAT(plain.log, IsEmpty());
  const Answer byIdentity = locate("label", fileIdentity(path.c_str(), "own name"), "file");
  EXPECT_TRUE(byIdentity.found);
  EXPECT_EQ(byIdentity.name, "own name");
  EXPECT_EQ(byIdentity.uri, str(uriOf(path)));
}

TEST_F(LineageLocation, OfAMissingFileIsGivenButNotFound) {
  const QvbString path = text(m_dir / "missing.txt");
  const Answer answer = locate("label", path, "File");
  EXPECT_FALSE(answer.found);
  EXPECT_EQ(answer.uri, str(uriOf(str(path))));
  EXPECT_THAT(answer.log, ElementsAre(notLocated(path, "File")));
  const QvbString identity = fileIdentity(path.asCstr(), "own name");
  const Answer byIdentity = locate("label", identity, "File");
  EXPECT_FALSE(byIdentity.found);
  EXPECT_EQ(byIdentity.name, "own name");
  EXPECT_EQ(byIdentity.uri, str(uriOf(str(path))));
  EXPECT_THAT(byIdentity.log, ElementsAre(notLocated(identity, "File")));
}

TEST_F(LineageLocation, OfAFileWithAnIdentityOfAnotherKindIsUnknown) {
  const QvbString identity = databaseIdentity("Sales");
  const Answer answer = locate("label", identity, "File");
  EXPECT_FALSE(answer.found);
  EXPECT_EQ(answer.name, "label");
  EXPECT_EQ(answer.uri, "");
  EXPECT_FALSE(locate("", "", "File").found);
}

TEST_F(LineageLocation, OfAnUnknownTypeIsThatOfAFile) {
  const std::string path = m_dir.write("some.thing", "");
  const LogLine assumed = line(1, "Assume file resource type with Id=" + path + ", and Type=Folder.");
  const Answer answer = locate("label", text(path), "Folder");
  EXPECT_TRUE(answer.found);
  EXPECT_EQ(answer.uri, str(uriOf(path)));
  EXPECT_THAT(answer.log, ElementsAre(assumed));
  const Answer missing = locate("", "", "Folder");
  EXPECT_FALSE(missing.found);
  EXPECT_EQ(missing.uri, "");
  EXPECT_THAT(missing.log, ElementsAre(line(1, "Assume file resource type with Id=, and Type=Folder."),
                                       notLocated("", "Folder")));
}

TEST_F(LineageLocation, OfAMasterDataProjectIsItsName) {
  const QvbString identity = fileIdentity("/a/project", "Project");
  const Answer answer = locate("label", identity, "MasterDataProject");
  EXPECT_TRUE(answer.found);
  EXPECT_EQ(answer.name, "label");
  EXPECT_EQ(answer.uri, "Project");
  EXPECT_THAT(answer.log,
              ElementsAre(line(1, "Processing MDMProject getResourceLocation() with Id=" + str(identity) +
                                      ", and Type=%"),
                          line(1, "Setting MDMProject getResourceLocation() with OutputURI=Project")));
}

TEST_F(LineageLocation, OfAMasterDataProjectNeedsAFilesIdentity) {
  const QvbString identity = databaseIdentity("Sales");
  const Answer answer = locate("label", identity, "MasterDataProject");
  EXPECT_FALSE(answer.found);
  EXPECT_EQ(answer.uri, "");
  EXPECT_THAT(answer.log, ElementsAre(line(1, "Processing MDMProject getResourceLocation() with Id=" +
                                                  str(identity) + ", and Type=%"),
                                      line(5, "Error setting MDMProject getResourceLocation() with values="),
                                      notLocated(identity, "MasterDataProject")));
  EXPECT_THAT(
      locate("", "/a/project", "MasterDataProject").log,
      ElementsAre(line(1, "Processing MDMProject getResourceLocation() with Id=/a/project, and Type=%"),
                  notLocated("/a/project", "MasterDataProject")));
}

TEST_F(LineageLocation, OfATableReadsBackAsTheSameTable) {
  EXPECT_TRUE(rc::check([] {
    const auto name = [] {
      return *rc::gen::nonEmpty(rc::gen::container<std::string>(rc::gen::inRange<char>(' ', '\x7f')));
    };
    const std::string dsn = name();
    RC_PRE(dsn.find("DSN=") == std::string::npos && dsn.find(" - ") == std::string::npos);
    const std::string schema = name();
    const std::string table = name();
    const QvbString identity = tableIdentity(dsn.c_str(), schema.c_str(), table.c_str());
    const Answer answer = locate("", identity, "Table");
    QvDataURIComponents parts;
    return answer.found && getDataURIComponentsFromString(text(answer.uri), &parts) &&
           str(parts.dataSource) == dsn && str(parts.schema) == schema && str(parts.table) == table &&
           answer.name == table;
  }));
}

} // namespace
