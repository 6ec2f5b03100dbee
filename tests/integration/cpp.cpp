// The library for C++20, used as an application does; under the address sanitizer the natural loops leak nothing.
#include "support/tempdir.h"
#include "support/tool.h"

#include <fmt/format.h>

#include "qvlineagegraph/jobfolders.h"
#include "qvreposres/cpp.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <sstream>
#include <unordered_set>

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

namespace {

namespace qv = qvreposres;
namespace fs = std::filesystem;

const fs::path job = sampleRepository + "/batch_jobs/clean_suppliers.djf";
const fs::path broken = sampleRepository + "/batch_jobs/broken_export.djf";

template<class T>
std::string printed(const T& value) {
  std::ostringstream out;
  out << value;
  return out.str();
}

// Whether a program could write own<Operation>.
static_assert(qv::handsOver<&createQvResourceManager>);
static_assert(qv::handsOver<&QvReposConfigurationList::getValue>);
static_assert(!qv::handsOver<&getRepositoryEventManager>);
static_assert(!qv::handsOver<&QvResourceList::getValue>);
static_assert(!qv::handsOver<&QvImpactAnalysis::getDefaultResourceFactory>);
static_assert(!std::is_constructible_v<qv::Owned<QvReposEventManager>, QvReposEventManager*>);
static_assert(!std::is_copy_constructible_v<qv::Owned<QvResourceList>>);
static_assert(std::ranges::input_range<qv::Rows<QvReposConfigurationList>>);
static_assert(std::is_same_v<qv::Rows<QvReposConfigurationList>::Row, qv::Definition>);
static_assert(std::is_same_v<qv::Rows<QvStringList>::Row, std::string>);

TEST(Cpp, TextsGoInAndComeOutAsTheStandardLibraryHasThem) {
  const std::string zero("a\0b", 3);
  EXPECT_EQ(qv::toString(qv::Text(zero)), zero);
  EXPECT_EQ(qv::toString(qv::Text(fs::path("/srv/a"))), "/srv/a");
  EXPECT_EQ(qv::toString(qv::Text("x")), "x");
  EXPECT_EQ(qv::toString(qv::Text(std::string_view("xyz").substr(1))), "yz");
  EXPECT_TRUE(static_cast<const QvbString&>(qv::Text()).isNull());
  EXPECT_EQ(printed(QvbString("text")), "text");
  EXPECT_EQ(fmt::format("{:>6}", QvbString("text")), "  text");
  EXPECT_EQ(std::hash<QvbString>()("text"), std::hash<QvbString>()(QvbString("text!").mid(0, 4)));
  EXPECT_EQ(printed(RepositoryObjectRenamed), "renamed");
}

TEST(Cpp, AJobTellsWhatItUses) {
  qv::Lineage lineage;
  const auto read = lineage.record(job);
  ASSERT_TRUE(read) << read.error();
  EXPECT_EQ(printed(read->resource), "ProcessJob clean_suppliers");
  EXPECT_EQ(fmt::format("{}", read->uses.at(1)), "Table suppliers");
  std::vector<qv::Resource> used;
  for (const auto& resource : lineage.usedBy(read->resource))
    used.push_back(resource);
  EXPECT_EQ(used, read->uses);
  EXPECT_THAT(used, SizeIs(4));
  EXPECT_TRUE(
      std::ranges::any_of(lineage.jobs(), [&](const qv::Resource& r) { return r == read->resource; }));
  EXPECT_THAT(lineage.xml().value(), HasSubstr("label=\"clean_suppliers\""));
}

TEST(Cpp, ReadingAJobRecordsNothing) {
  qv::Lineage lineage;
  EXPECT_THAT(lineage.read(job)->uses, SizeIs(4));
  EXPECT_EQ(std::ranges::distance(lineage.jobs()), 0);
}

TEST(Cpp, AMalformedJobIsNamedWithLineAndColumn) {
  qv::Lineage lineage;
  const auto read = lineage.record(broken);
  ASSERT_FALSE(read);
  EXPECT_EQ(read.error().file, broken);
  EXPECT_EQ(read.error().line, 9);
  EXPECT_GT(read.error().column, 0);
  EXPECT_EQ(printed(read.error()), read.error().message);
  EXPECT_EQ(fmt::format("{}", read.error()), read.error().message);
  EXPECT_THAT(read.error().message, StartsWith(broken.string() + ":9:"));
  EXPECT_EQ(std::ranges::distance(lineage.jobs()), 0);
}

TEST(Cpp, AnAbsentJobIsNamedWithoutALine) {
  const auto read = qv::Lineage().read("/no/such.djf");
  ASSERT_FALSE(read);
  EXPECT_EQ(read.error().file, "/no/such.djf");
  EXPECT_EQ(read.error().line, 0);
  EXPECT_THAT(read.error().message, StartsWith("/no/such.djf: "));
}

TEST(Cpp, AFileThatIsNoStepIsToldByItsRoot) {
  const TempDir folder;
  folder.write("other.djf", "<Other/>");
  const auto read = qv::Lineage().read(folder / "other.djf");
  ASSERT_TRUE(read);
  EXPECT_EQ(read->unknownRoot, "Other");
  EXPECT_THAT(read->uses, IsEmpty());
}

TEST(Cpp, FoldersAreRecordedAsTheToolSearchesThem) {
  qv::Lineage lineage;
  const auto errors = qvlineagegraph::recordJobs(lineage, sampleRepository);
  ASSERT_THAT(errors, SizeIs(1));
  EXPECT_EQ(errors.front().file, broken);
  EXPECT_EQ(errors.front().line, 9);
  const auto tool = runTool({"lineage", sampleRepository, "--set", "BASE/REPOS_SYS_PATH="});
  EXPECT_EQ(lineage.xml().value(), tool.out);
  const auto json = runTool({"lineage", "--json", sampleRepository, "--set", "BASE/REPOS_SYS_PATH="});
  EXPECT_EQ(lineage.json().value(), json.out);
  EXPECT_THAT(qvlineagegraph::recordJobs(lineage, "/no/such"), SizeIs(1));
}

TEST(Cpp, ResourcesAreEqualAndHashAlikeWithoutRegardToCase) {
  const qv::Resource a{.name = "a", .type = "Table", .identity = "X"};
  const qv::Resource b{.name = "b", .type = "TABLE", .identity = "x"};
  EXPECT_EQ(a, b);
  EXPECT_THAT((std::unordered_set<qv::Resource>{a, b}), SizeIs(1));
  EXPECT_FALSE(a == (qv::Resource{.name = "a", .type = "Database", .identity = "X"}));
}

class CppDefinitions : public testing::Test {
protected:
  CppDefinitions() { qv::setOption("BASE/REPOS_USER_PATH", fs::path(folder.path())); }
  ~CppDefinitions() override { qvbClearConfigOptions(); }

  TempDir folder;
  qv::Definitions definitions;
};

TEST_F(CppDefinitions, AreSavedListedFoundAndRemoved) {
  auto made = definitions.create(std::string("Sales"));
  ASSERT_TRUE(made);
  made->setVault(fs::path("/srv/sales"))
      .setConnection(QvUnifiedReposConnectODBC, "DSN=Sales;")
      .setPrefix("s.");
  ASSERT_TRUE(definitions.save(*made));
  std::vector<std::string> names;
  for (const auto& definition : definitions.all())
    names.push_back(definition.name());
  EXPECT_THAT(names, ElementsAre("Sales"));
  EXPECT_EQ(definitions.defaultName(), "Sales");
  auto found = definitions.find("SALES");
  ASSERT_TRUE(found);
  EXPECT_EQ(found->vault(), "/srv/sales");
  EXPECT_EQ(found->connection(), "DSN=Sales;");
  EXPECT_EQ(found->connectionType(), QvUnifiedReposConnectODBC);
  EXPECT_EQ(found->prefix(), "s.");
  EXPECT_TRUE(found->isActive());
  EXPECT_FALSE(found->isSystem());
  EXPECT_EQ(found->file(), fs::path(folder / "Sales.rcf"));
  ASSERT_TRUE(definitions.remove(*found));
  EXPECT_EQ(definitions.defaultName(), std::nullopt);
}

TEST_F(CppDefinitions, SayWhyTheyAreRefused) {
  EXPECT_EQ(definitions.create("").error().message, "a repository definition needs a name");
  EXPECT_EQ(definitions.find("Sales").error().message, "there is no repository definition Sales");
  ASSERT_TRUE(definitions.save(*definitions.create("Sales")));
  auto again = definitions.create("Sales");
  const auto saved = definitions.save(*again);
  ASSERT_FALSE(saved);
  EXPECT_EQ(saved.error().message, "A definition already exists with that name.");
}

TEST_F(CppDefinitions, FilesThatAreNotLoadedAreToldWithTheReason) {
  folder.write("bad.rcf", "<x");
  auto refusals = definitions.refusals();
  std::vector<qv::Refusal> all;
  for (auto refusal : refusals)
    all.push_back(refusal);
  ASSERT_THAT(all, SizeIs(1));
  EXPECT_EQ(all.front().file, fs::path(folder / "bad.rcf"));
  EXPECT_THAT(all.front().reason, HasSubstr("bad.rcf"));
  EXPECT_FALSE(all.front().isDuplicate);
}

TEST_F(CppDefinitions, GiveTheFilesOfTheirRepositoryAUri) {
  auto made = definitions.create("Sales");
  made->setVault("/srv/sales");
  ASSERT_TRUE(definitions.save(*made));
  const auto uri = qv::uriOfFile("/srv/sales/batch_jobs/load.djf");
  EXPECT_EQ(uri.value(), "qvr://Sales/batch_jobs/load?type=ProcessJob");
  EXPECT_EQ(qv::fileOfUri(*uri).value(), "/srv/sales/batch_jobs/load.djf");
  EXPECT_EQ(qv::uriOfFile("").error().message, "a file name must not be empty");
  EXPECT_EQ(qv::uriOfFile("/srv/sales").error().message, "/srv/sales: a repository's own folder");
  EXPECT_EQ(qv::fileOfUri("ftp://host/file").error().message, "no file name can be made of ftp://host/file");
  EXPECT_EQ(qv::fileOfUri("ftp://host/file", "Sales").error().message,
            "The URI ftp://host/file is not a supported format to convert into filename.");
}

TEST(Cpp, IdentitiesReadBackAsTheyWereMade) {
  const qv::TableIdentity table{"Sales", "ODBC", "c", "dbo", "CUSTOMERS"};
  const auto identity = qv::makeIdentity(table);
  ASSERT_TRUE(identity);
  const auto parsed = qv::parseIdentity(*identity);
  const auto& read = std::get<qv::TableIdentity>(parsed.value());
  EXPECT_THAT((std::vector{read.dataSource, read.dataSourceType, read.catalog, read.schema, read.table}),
              ElementsAre("Sales", "ODBC", "c", "dbo", "CUSTOMERS"));
  const qv::Identity others[] = {qv::FileIdentity{"/srv/a.csv", "A"}, qv::ObjectIdentity{"Rule", "42", "u"},
                                 qv::DataSourceIdentity{"Sales", "ODBC"}};
  for (const auto& other : others)
    EXPECT_EQ(qv::parseIdentity(qv::makeIdentity(other).value()).value().index(), other.index());
}

TEST(Cpp, AnIdentityNamesThePartThatItLacks) {
  EXPECT_EQ(qv::makeIdentity(qv::FileIdentity{}).error().message, "a file's identity needs its path");
  EXPECT_EQ(qv::makeIdentity(qv::ObjectIdentity{}).error().message,
            "an object's identity needs its id or uuid");
  EXPECT_EQ(qv::makeIdentity(qv::TableIdentity{}).error().message, "a table's identity needs the table");
  EXPECT_EQ(qv::makeIdentity(qv::DataSourceIdentity{}).error().message,
            "a data source's identity needs its name");
  EXPECT_EQ(qv::parseIdentity("x").error().message, "not a resource identity: x");
}

struct Counter : RepositoryObjectChange {
  int changes = 0;
  void objectChanged(const QvbString&, RepositoryObjectChangeType, const QvbString&, int,
                     const QvbString&) override {
    ++changes;
  }
  void objectRenamed(const QvbString&, const QvbString&, int, const QvbString&, const QvbString&,
                     const QvbString&) override {}
  void contentChanged(const QvbString&, const QvbString&, RepositoryObjectChangeType,
                      const QvbString&) override {}
};

TEST(Cpp, AListenerHearsOfEventsWhileItsSubscriptionLives) {
  const qv::Library library;
  Counter counter;
  const auto fire = [] {
    getRepositoryEventManager()->fireObjectChanged("Sales", RepositoryObjectCreated, "x", 1, "");
  };
  {
    const qv::Subscription subscription(counter);
    fire();
  }
  fire();
  EXPECT_EQ(counter.changes, 1);
}

// Says that it has copied what it has not.
class EmptyHandedCache final : public FileAccessCacheManager {
public:
  int getCacheFilename(ASSubject*, const QvbString&, QvbString* localFilename, QvbString*) override {
    *localFilename = "/no/such/copy";
    return 0;
  }
  int isModified(ASSubject*, const QvbString&, bool*, QvbString*) override { return 0; }
  int getModifiedDate(ASSubject*, const QvbString&, QvbDate*, QvbString*) override { return 4; }
  bool flush(bool) override { return true; }
  void release() override { delete this; }
  void setSourceProvider(FileAccessCacheSourceProvider*) override {}
};

TEST(Cpp, ACopyThatIsNotThereIsNone) {
  const qv::Library library;
  ASSERT_EQ(setFileCacheManager(new EmptyHandedCache), 0);
  EXPECT_EQ(qv::localCopy("http://host/job").error().message,
            "http://host/job: its copy could not be written");
  ASSERT_EQ(setFileCacheManager(nullptr), 0);
}

TEST(Cpp, ALocalCopyIsGivenOrTheReasonWhyNot) {
  const qv::Library library;
  const auto copy = qv::localCopy(job);
  ASSERT_TRUE(copy) << copy.error();
  EXPECT_EQ(fs::file_size(*copy), fs::file_size(job));
  const auto none = qv::localCopy("/no/such", qv::Subject("ann", "secret"));
  EXPECT_THAT(none.error().message, StartsWith("/no/such"));
}

} // namespace
