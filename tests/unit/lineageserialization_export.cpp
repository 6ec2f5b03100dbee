#include "lineageserialization.h"

#include "lineagefactory.h"
#include "qvreposerializecontextimpl.h"
#include "qvreposres/qvresourcemgr.h"
#include "qvresource.h"
#include "qvxbase/qvbconfig.h"
#include "qvxbase/qvuri.h"
#include "support/allocations.h"
#include "support/golden.h"
#include "support/logcapture.h"
#include "support/recordingfactory.h"
#include "support/tempdir.h"
#include "support/textio.h"
#include "support/xmltext.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

namespace {

using ::testing::Contains;
using ::testing::ElementsAre;

using Store = Released<LineageSerializationImpl>;
using Resource = Released<QvResource>;
using List = Released<QvResourceList>;
using Context = Released<RepositorySerializationContext>;
using Object = Released<RepositoryMetadataObject>;
using Manager = Released<QvResourceManager>;

constexpr const char* category = "QV.Repos.QvResposRes.LineageSerialization";
constexpr const char* declaration = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>";

LogLine line(int level, const std::string& text) {
  return {category, level, "src/lineageserialization", text};
}

Resource resource(const QvbString& name, const char* type, const QvbString& identity) {
  return Resource(RecordingFactory::record(name, type, identity));
}

QvbString tableIdentity(const QvbString& dsn, const QvbString& schema, const QvbString& table) {
  QvbString identity;
  EXPECT_TRUE(Manager(createQvResourceManager())
                  ->generateTableDataSourceResourceId(dsn, "ODBC", "", schema, table, &identity));
  return identity;
}

List listOf(const std::vector<QvResource*>& resources) {
  List list(new QvResourceListImpl);
  for (QvResource* element : resources) {
    list->addRow();
    list->setLastRowElement(0, element);
  }
  return list;
}

struct Stages : LineageProgressSink {
  void progress(const QvbString& text) override { texts.push_back(str(text)); }
  std::vector<std::string> texts;
};

std::string exported(LineageSerializationImpl& store, bool layout = false) {
  QvbString xml;
  QvbString message = "untouched";
  EXPECT_TRUE(store.getLineageAsString(&xml, &message, layout));
  EXPECT_EQ(message, QvbString("untouched"));
  return str(xml);
}

std::string exportedFor(LineageSerializationImpl& store, QvResource* of, QvResourceList* dependents) {
  QvbString xml;
  EXPECT_TRUE(store.getResourceLineageAsString(of, dependents, &xml, nullptr, false));
  return str(xml);
}

// A repository "main" whose files lie below the folder "vault", and a server that runs its jobs.
class LineageExport : public testing::Test {
protected:
  LineageExport() {
    m_dir.write("definitions/main.rcf", "<VaultRepositoryInfo Name=\"main\"><VaultPath>" + m_dir / "vault" +
                                            "</VaultPath></VaultRepositoryInfo>");
    qvbSetConfigOption("BASE/REPOS_SYS_PATH", text(m_dir / "definitions"));
    qvbSetConfigOption("BASE/REPOS_USER_PATH", text(m_dir / "none"));
    qvbSetConfigOption("DMSERVER/NAME", "warehouse");
  }
  ~LineageExport() override {
    qvbSetConfigAvailable(true);
    qvbClearConfigOptions();
  }

  // The attributes of a resource's element, written by populateModelResource.
  std::string element(QvResource* of) {
    const Context context(createRepositoryMetadataSerializationContext());
    const Object object(context->createMetadataObject("Resource"));
    EXPECT_TRUE(m_store->populateModelResource(context.get(), object.get(), of));
    QvDom document;
    EXPECT_TRUE(document.startNewDocument("Resource"));
    QvDomNode root = document.getRoot();
    object->toXML(&root);
    return str(document.createXML(false, root));
  }

  TempDir m_dir;
  Store m_store{new LineageSerializationImpl};
};

TEST_F(LineageExport, OfAnEmptyStoreIsARootAlone) {
  EXPECT_EQ(exported(*m_store), declaration + std::string("<RelationshipModels/>"));
}

TEST_F(LineageExport, HasTheNamesThatReadersLookFor) {
  using Names = LineageSerializationImpl;
  const std::pair<QvbString, const char*> names[] = {
      {Names::REL_RELATIONSHIPMODELS, "RelationshipModels"},
      {Names::REL_RELATIONSHIPMODEL, "RelationshipModel"},
      {Names::REL_RELATIONSHIPNODES, "RelationshipNodes"},
      {Names::REL_RELATIONSHIPNODE, "RelationshipNode"},
      {Names::REL_RESOURCE, "Resource"},
      {Names::REL_NODE_ATTR_TYPE, "type"},
      {Names::REL_NODE_ATTR_DIRECTION, "direction"},
      {Names::REL_NODE_RELATIONSHIPTYPE_DEPENDS, "D"},
      {Names::REL_NODE_DIRECTION_DEPENDS, "1"},
      {Names::REL_RES_ATTR_LABEL, "label"},
      {Names::REL_RES_ATTR_TYPE, "type"},
      {Names::REL_RES_ATTR_ANALYSIS_DATE, "analysisDate"},
      {Names::REL_RESOURCE_ATTRIBUTES, "ResourceAttributes"},
      {Names::REL_RESOURCE_ATTRIBUTE, "ResourceAttribute"},
      {Names::REL_RES_ATTR_NAME, "name"},
      {Names::REL_RES_ATTR_ID, "id"},
      {Names::REL_RES_ATTR_VALUE_DATAPATH, "DATA.PATH"},
      {Names::DMServerOptionNameKey, "DMSERVER/NAME"},
      {Names::DMServerBatchFolder, "batch_jobs"},
      {Names::DMServerProcessFolder, "process_services"},
      {Names::DMSREFURI_SVC_TYPE, "ServiceType"},
      {Names::DMSREFURI_OBJ_TYPE, "ObjectType"},
      {Names::DMSREFURI_SVC_TYPE_BATCH, "BATCH"},
      {Names::DMSREFURI_SVC_TYPE_REAL, "REALTIME"},
  };
  for (const auto& [name, expected] : names)
    EXPECT_EQ(name, QvbString(expected));
}

TEST_F(LineageExport, WritesOneModelPerResourceWithItsDependencies) {
  HostResource table;
  table.name = "label";
  table.type = "Table";
  table.identity = tableIdentity("Sales", "dbo", "CUSTOMERS");
  table.date.assign(2026, 11, 21, 10, 15, 30, 250);
  HostResource file;
  file.name = "a < b & \"c\"";
  file.type = "Unheard";
  file.identity = "no such file";
  const Resource job = resource("Load customers", "Task", "http://host/jobs/load");
  const Resource idle = resource("Idle", "Task", "http://host/jobs/idle");
  m_store->addDependentResources(job.get(), listOf({&table, &file}).get());
  m_store->addDependentResources(idle.get(), listOf({}).get());
  const std::string xml = exported(*m_store, true);
  EXPECT_EQ(xml, golden("lineage_export.xml", xml));
  EXPECT_EQ(exported(*m_store, true), xml) << "a second time";
}

TEST_F(LineageExport, AppendsToWhatTheOutputHolds) {
  QvbString xml = "before";
  EXPECT_TRUE(m_store->getLineageAsString(&xml, nullptr, true));
  EXPECT_EQ(str(xml), "before" + std::string(declaration) + "\n<RelationshipModels/>\n");
  EXPECT_TRUE(m_store->getLineageAsString(nullptr, nullptr, true));
}

TEST_F(LineageExport, OfOneResourceTakesTheCallersDependencies) {
  const Resource job = resource("job", "Task", "j");
  const Resource a = resource("a", "Task", "a");
  const Resource b = resource("b", "Task", "b");
  const List dependents = listOf({a.get(), b.get()});
  const std::string jobElement = R"(<Resource id="j" label="job" type="Task"/>)";
  const auto node = [](const char* id) {
    return R"(<RelationshipNode direction="1" type="D"><Resource id=")" + std::string(id) + R"(" label=")" +
           id + R"(" type="Task"/></RelationshipNode>)";
  };
  const auto models = [&](const std::string& nodes) {
    return declaration + ("<RelationshipModels><RelationshipModel>" + jobElement) + nodes +
           "</RelationshipModel></RelationshipModels>";
  };
  dependents->next();
  EXPECT_EQ(exportedFor(*m_store, job.get(), dependents.get()),
            models("<RelationshipNodes>" + node("b") + "</RelationshipNodes>"));
  dependents->reset();
  EXPECT_EQ(exportedFor(*m_store, job.get(), dependents.get()),
            models("<RelationshipNodes>" + node("a") + node("b") + "</RelationshipNodes>"));
  EXPECT_EQ(exportedFor(*m_store, job.get(), dependents.get()), models("")) << "read to its end";
  EXPECT_EQ(exportedFor(*m_store, job.get(), nullptr), models(""));
}

TEST_F(LineageExport, TellsItsStages) {
  Stages stages;
  exported(*m_store); // nobody listens yet
  m_store->setProgressSink(&stages);
  exported(*m_store);
  EXPECT_THAT(stages.texts,
              ElementsAre("Obtaining all lineage resources from data storage.",
                          "Creating lineage export data model.", "Serializing lineage model to XML.",
                          "Returning lineage model as XML."));
  stages.texts.clear();
  exportedFor(*m_store, resource("n", "Task", "i").get(), nullptr);
  EXPECT_THAT(stages.texts,
              ElementsAre("Serializing all lineage resource and dependencies.",
                          "Creating lineage export data model.", "Serializing lineage model to XML.",
                          "Returning lineage model as XML."));
}

TEST_F(LineageExport, OfNoResourceFailsWithoutMessage) {
  Stages stages;
  m_store->setProgressSink(&stages);
  QvbString xml = "before";
  QvbString message = "untouched";
  EXPECT_FALSE(m_store->getResourceLineageAsString(nullptr, nullptr, &xml, &message, false));
  EXPECT_FALSE(m_store->getLineageAsString(nullptr, &xml, &message, false));
  EXPECT_EQ(xml, QvbString("before"));
  EXPECT_EQ(message, QvbString("untouched"));
  EXPECT_THAT(stages.texts, ElementsAre("Serializing all lineage resource and dependencies.",
                                        "Creating lineage export data model.",
                                        "Obtaining all lineage resources from data storage."));
}

// An analysis of a host's own, whose lists hold rows without a resource.
struct HostAnalysis : LineageSerializationImpl {
  struct SparseList final : QvResourceList {
    explicit SparseList(std::vector<QvResource*> elements) : rows(std::move(elements)) {}
    bool next() override { return ++row <= rows.size(); }
    QvResource* getValue() override { return rows[row - 1]; }
    void release() override { delete this; }
    bool addRow() override { return false; }
    void setLastRowElement(unsigned long, QvResource*) override {}
    bool contains(QvResource*) override { return false; }
    void reset() override { row = 0; }
    std::vector<QvResource*> rows;
    std::size_t row = 0;
  };
  QvResourceList* getAllUniqueUsedResources() override {
    return hasResources ? new SparseList({nullptr, node, nullptr}) : nullptr;
  }
  QvResourceList* getDependentResources(QvResource*, bool recursive) override {
    askedRecursively |= recursive;
    return hasDependents ? new SparseList({nullptr, node}) : nullptr;
  }
  QvResource* node = nullptr;
  bool hasResources = true;
  bool hasDependents = true;
  bool askedRecursively = false;
};

TEST_F(LineageExport, TakesAnyAnalysisAndSkipsRowsWithoutResource) {
  const Resource node = resource("n", "Task", "i");
  const Released<HostAnalysis> analysis(new HostAnalysis);
  analysis->node = node.get();
  QvbString xml;
  EXPECT_TRUE(m_store->getLineageAsString(analysis.get(), &xml, nullptr, false));
  const std::string element = R"(<Resource id="i" label="n" type="Task"/>)";
  const std::string head = declaration + ("<RelationshipModels><RelationshipModel>" + element);
  const std::string tail = "</RelationshipModel></RelationshipModels>";
  EXPECT_EQ(str(xml), head + R"(<RelationshipNodes><RelationshipNode direction="1" type="D">)" + element +
                          "</RelationshipNode></RelationshipNodes>" + tail);
  EXPECT_FALSE(analysis->askedRecursively);
  analysis->hasDependents = false;
  xml = "";
  EXPECT_TRUE(m_store->getLineageAsString(analysis.get(), &xml, nullptr, false));
  EXPECT_EQ(str(xml), head + tail);
  xml = "";
  EXPECT_TRUE(analysis->getLineageAsString(&xml, nullptr, false)) << "of itself, too";
  EXPECT_EQ(str(xml), head + tail);
  analysis->hasResources = false;
  EXPECT_FALSE(m_store->getLineageAsString(analysis.get(), &xml, nullptr, false));
}

// Lets the next allocation of a size fail once the resources are there.
struct StarvingAnalysis : LineageSerializationImpl {
  QvResourceList* getAllUniqueUsedResources() override {
    auto* resources = LineageSerializationImpl::getAllUniqueUsedResources();
    Allocations::failingSize = size;
    return resources;
  }
  std::size_t size = 0;
};

TEST_F(LineageExport, FailsWithAMessageWhenItCannotStartItsDocument) {
  struct Case {
    std::size_t size;
    const char* message;
  };
  for (const Case& c :
       {Case{sizeof(RepositorySerializationContextImpl), "Error creating serialization context"},
        Case{sizeof(RepositoryMetadataObjectImpl), "Error creating serialization models"}}) {
    for (const bool wantsMessage : {true, false}) {
      const LogCapture log;
      const Released<StarvingAnalysis> analysis(new StarvingAnalysis);
      analysis->size = c.size;
      QvbString xml = "before";
      QvbString message;
      EXPECT_FALSE(
          m_store->getLineageAsString(analysis.get(), &xml, wantsMessage ? &message : nullptr, false));
      EXPECT_EQ(message, QvbString(wantsMessage ? c.message : ""));
      EXPECT_EQ(xml, QvbString("before"));
      EXPECT_THAT(log.lines(category), ElementsAre(line(5, c.message)));
    }
  }
}

TEST_F(LineageExport, EndsItsContextWithTheExport) {
  const LogCapture log;
  exported(*m_store);
  EXPECT_THAT(log.lines("QV.Repos.QvReposRes.Serialize"),
              ElementsAre(LogLine{"QV.Repos.QvReposRes.Serialize", 2, "src/qvreposerializecontextimpl",
                                  "Cleared context to prepare for object export transaction."}));
}

TEST_F(LineageExport, NamesATableByItsDataURIAndPath) {
  const LogCapture log;
  const QvbString identity = tableIdentity("Sales", "dbo", "CUSTOMERS");
  EXPECT_EQ(element(resource("label", "table", identity).get()),
            R"(<Resource id="qvd:///Sales?type=ODBC&amp;schema=dbo&amp;table=CUSTOMERS" label="CUSTOMERS" )"
            R"(type="table"><ResourceAttributes><ResourceAttribute name="DATA.PATH">Sales.dbo.CUSTOMERS)"
            R"(</ResourceAttribute></ResourceAttributes></Resource>)");
  const std::string uri = "qvd:///Sales?type=ODBC&schema=dbo&table=CUSTOMERS";
  EXPECT_THAT(log.lines(category),
              ElementsAre(line(1, "Unable to obtain server identity for: id=" + uri + ", type=table"),
                          line(1, "Setting " + str(identity) + " identity as: " + uri)));
}

TEST_F(LineageExport, AsksTheStoresOwnResolverWhicheverOneAHostRegistered) {
  RecordingResolver registered;
  const Store store(new LineageSerializationImpl);
  store->getDefaultResourceFactory()->registerResourceResolver(&registered);
  const QvbString identity = tableIdentity("Sales", "dbo", "CUSTOMERS");
  const Resource table = resource("label", "Table", identity);
  ASSERT_TRUE(store->addDependentResources(table.get(), listOf({table.get()}).get()));
  EXPECT_THAT(exported(*store), ::testing::HasSubstr("Sales.dbo.CUSTOMERS"));
  EXPECT_THAT(registered.calls, ::testing::IsEmpty());
}

// What the resolver answers through its interface is what the export writes, and what it logs there it logs here.
TEST_F(LineageExport, NamesEveryKindAsItsResolverAnswers) {
  const std::string file = m_dir.write("vault/batch_jobs/load.djf", "");
  const Manager manager(createQvResourceManager());
  QvbString database, project, unified;
  QvbString projectName = "Project";
  manager->generateDataSourceResourceId("SYS - Sales", "ODBC", &database);
  manager->generateFileResourceId("/a/project", projectName, &project);
  manager->generateUnifiedObjectResourceId("", "Rule", "42", "", &unified);
  const std::pair<const char*, QvbString> kinds[] = {{"Table", tableIdentity("Sales", "dbo", "CUSTOMERS")},
                                                     {"Table", tableIdentity("", "dbo", "CUSTOMERS")},
                                                     {"Table", database},
                                                     {"Database", database},
                                                     {"DataJob", text(file)},
                                                     {"ArchitectJob", text(file)},
                                                     {"XMLSQLQuery", "http://host/query"},
                                                     {"ZELFile", text(m_dir / "missing")},
                                                     {"Rule", unified},
                                                     {"Task", "qvr://main/tasks/t"},
                                                     {"Field", "http://host/field"},
                                                     {"File", text(file)},
                                                     {"File", project},
                                                     {"Folder", text(file)},
                                                     {"MasterDataProject", project},
                                                     {"MasterDataProject", database},
                                                     {"", "file:///a"},
                                                     {"", QvbString()}};
  constexpr const char* resolverCategory = "QV.Repos.Lineage.Analysis";
  LineageResourceResolver resolver;
  LogCapture log;
  for (const auto& [type, identity] : kinds) {
    QvbString label, location;
    log.clear();
    const bool found = static_cast<QvResourceResolver&>(resolver).getResourceLocation(
        "own name", identity, type, &label, &location);
    const auto answered = log.lines(resolverCategory);
    const QvbString id = found ? m_store->getResourceDMServerIdentity(location, type) : identity;
    log.clear();
    QvDom document;
    ASSERT_TRUE(document.loadXML(text(element(resource("own name", type, identity).get()))));
    EXPECT_EQ(log.lines(resolverCategory), answered) << type;
    EXPECT_EQ(document.getRoot().getAttributeValue("label"), found ? label : "own name") << type;
    EXPECT_EQ(document.getRoot().getAttributeValue("id"), id) << type;
  }
}

TEST_F(LineageExport, NamesAResourceWithoutLocationByItsIdentity) {
  const LogCapture log;
  EXPECT_EQ(element(resource("label", "Table", "no identity").get()),
            R"(<Resource id="no identity" label="label" type="Table"/>)");
  EXPECT_THAT(log.lines(category),
              ElementsAre(line(1, "Using no identity as identity, unable to find resource location.")));
}

TEST_F(LineageExport, LabelsAResourceByItsNameWhenItsLocationHasNone) {
  EXPECT_EQ(element(resource("", "Task", "http://host/a").get()),
            R"(<Resource id="http://host/a" label="" type="Task"/>)");
  EXPECT_EQ(element(resource("job", "Task", "http://host/a").get()),
            R"(<Resource id="http://host/a" label="job" type="Task"/>)");
}

TEST_F(LineageExport, MakesAServerReferenceByFolderAndType) {
  struct Case {
    const char* identity;
    const char* type;
    const char* reference;
  };
  for (const Case& c :
       {Case{"qvr://main/batch_jobs/load?type=ProcessJob", "ProcessJob",
             "dmsref://warehouse/batch_jobs/load.djf?ServiceType=BATCH&ObjectType=ProcessJob"},
        Case{"qvr://main/batch_jobs/a/b", "DataJob",
             "dmsref://warehouse/batch_jobs/a/b.ddf?ServiceType=BATCH&ObjectType=DataJob"},
        Case{"qvr://main/process_services/c", "ProcessJob",
             "dmsref://warehouse/process_services/c.djf?ServiceType=REALTIME&ObjectType=ProcessJob"},
        Case{"qvr://main/x/batch_jobs/c", "profilejob",
             "dmsref://warehouse/x/batch_jobs/c?ObjectType=profilejob"},
        Case{"qvr://main/foundations/d", "ProfileJob",
             "dmsref://warehouse/foundations/d.pfi.ueo?ObjectType=ProfileJob"}}) {
    const LogCapture log;
    EXPECT_EQ(str(m_store->getResourceDMServerIdentity(c.identity, c.type)), c.reference);
    EXPECT_THAT(log.lines(category),
                ElementsAre(line(1, "Identity found for: id=" + std::string(c.identity) + ", type=" + c.type +
                                        ", identity=" + c.reference)));
  }
}

TEST_F(LineageExport, GivesAJobItsServerReferenceAsId) {
  const std::string path = m_dir.write("vault/batch_jobs/load.djf", "");
  const LogCapture log;
  EXPECT_EQ(element(resource("load", "ProcessJob", text(path)).get()),
            R"(<Resource id="dmsref://warehouse/batch_jobs/load.djf?ServiceType=BATCH&amp;)"
            R"(ObjectType=ProcessJob" label="load" type="ProcessJob"/>)");
  EXPECT_THAT(log.lines(category),
              Contains(line(1, "Setting " + path + " identity as: dmsref://warehouse/batch_jobs/load.djf" +
                                   "?ServiceType=BATCH&ObjectType=ProcessJob")));
  qvbSetConfigOption("DMSERVER/NAME", "");
  EXPECT_EQ(element(resource("load", "ProcessJob", text(path)).get()),
            R"(<Resource id="qvr://main/batch_jobs/load?type=ProcessJob" label="load" type="ProcessJob"/>)");
}

TEST_F(LineageExport, OfMoreThanAReaderWouldTakeSaysSo) {
  constexpr std::size_t nameSize = std::size_t{16} << 20;
  const auto wide = resource(text(std::string(nameSize, 'n')), "Table", "wide");
  for (std::size_t i = 0; i <= QvDom::MaxSize / nameSize; ++i)
    m_store->addDependentResources(resource("job", "ProcessJob", text("job " + std::to_string(i))).get(),
                                   listOf({wide.get()}).get());
  const LogCapture log;
  const std::string reason = "The lineage is larger than 512 MB, which no reader would take";
  QvbString xml, message;
  EXPECT_FALSE(m_store->getLineageAsString(&xml, &message, false));
  EXPECT_TRUE(xml.isEmpty());
  EXPECT_EQ(str(message), reason);
  EXPECT_THAT(log.lines(category), Contains(line(5, reason)));
}

TEST_F(LineageExport, KeepsTheIdentityOfWhatHasNoServerReference) {
  struct Case {
    const char* identity;
    const char* type;
    std::vector<std::string> log;
  };
  const Case cases[] = {
      {"qvr://main/batch_jobs/a",
       "ArchitectJob",
       {"Unable to obtain server identity for: id=qvr://main/batch_jobs/a, type=ArchitectJob"}},
      {"/a/b.djf",
       "ProcessJob",
       {"Unable to obtain object URI for: id=/a/b.djf, type=ProcessJob",
        "Identity found for: id=/a/b.djf, type=ProcessJob, identity=/a/b.djf"}},
      {"file:///a/b.djf",
       "DataJob",
       {"Unable to obtain object Repos URI for: id=file:///a/b.djf, type=DataJob",
        "Identity found for: id=file:///a/b.djf, type=DataJob, identity=file:///a/b.djf"}},
      {"qvr://main/",
       "profilejob",
       {"URI path length invalid for DMS Ref URI: id=qvr://main/, type=profilejob",
        "Identity found for: id=qvr://main/, type=profilejob, identity=qvr://main/"}},
      {"",
       "ProfileJob",
       {"Unable to obtain object URI for: id=, type=ProfileJob",
        "Unable to create server identity for: id=, type=ProfileJob"}},
  };
  for (const Case& c : cases) {
    const LogCapture log;
    EXPECT_EQ(m_store->getResourceDMServerIdentity(c.identity, c.type), QvbString(c.identity));
    std::vector<LogLine> expected;
    for (const std::string& text : c.log)
      expected.push_back(line(1, text));
    EXPECT_EQ(log.lines(category), expected);
  }
}

TEST_F(LineageExport, KeepsTheIdentityWithoutAServerName) {
  const std::string job = "qvr://main/batch_jobs/load";
  for (const QvbString& server : {QvbString(), QvbString("")}) {
    qvbSetConfigOption("DMSERVER/NAME", server);
    const LogCapture log;
    EXPECT_EQ(str(m_store->getResourceDMServerIdentity(text(job), "ProcessJob")), job);
    EXPECT_THAT(log.lines(category),
                ElementsAre(line(1, "Empty DMS Server Name configuration option from DMSERVER/NAME: id=" +
                                        job + ", type=ProcessJob"),
                            line(1, "Identity found for: id=" + job + ", type=ProcessJob, identity=" + job)));
  }
}

TEST_F(LineageExport, KeepsTheIdentityWithoutConfiguration) {
  qvbSetConfigAvailable(false);
  const std::string job = "qvr://main/batch_jobs/load";
  const LogCapture log;
  EXPECT_EQ(str(m_store->getResourceDMServerIdentity(text(job), "ProcessJob")), job);
  EXPECT_THAT(log.lines(category),
              ElementsAre(line(1, "Identity found for: id=" + job + ", type=ProcessJob, identity=" + job)));
}

TEST_F(LineageExport, LogsWhyThereIsNoServerReference) {
  const LogCapture log;
  EXPECT_TRUE(m_store->makeServerReference("warehouse", "", "i", "T").isEmpty());
  EXPECT_TRUE(m_store->makeServerReference("", "path", "i", "T").isEmpty());
  const Released<QvURI> reference(getDMSRefURIFromComponents("warehouse", "path", ""));
  m_store->setReferenceParameter(reference.get(), "not a word", "value");
  const std::string reason = str(reference->getErrorText());
  EXPECT_NE(reason, "");
  EXPECT_THAT(log.lines(category),
              ElementsAre(line(1, "URI path length invalid for DMS Ref URI: id=i, type=T"),
                          line(1, "Unable to obtain object DMS Ref URI for: id=i, type=T"), line(5, reason)));
}

TEST_F(LineageExport, WritesADataPathOfWhatIsNamed) {
  struct Case {
    const char* dataSource;
    const char* schema;
    const char* table;
    const char* path;
  };
  for (const Case& c : {Case{"Sales", "dbo", "C", "Sales.dbo.C"}, Case{"Sales", "dbo", "", "Sales.dbo"},
                        Case{"Sales", "", "C", "Sales.C"}, Case{"Sales", "", "", "Sales"}}) {
    const Context context(createRepositoryMetadataSerializationContext());
    const Object object(context->createMetadataObject("Resource"));
    const Released<QvURI> uri(
        getDataURIFromComponents("qvd", "", c.dataSource, "ODBC", "cat", c.schema, c.table, ""));
    EXPECT_TRUE(m_store->populateResourceDataPath(context.get(), object.get(), uri->asString()));
    QvDom document;
    ASSERT_TRUE(document.startNewDocument("Resource"));
    QvDomNode root = document.getRoot();
    object->toXML(&root);
    EXPECT_EQ(str(document.createXML(false, root)),
              R"(<Resource><ResourceAttributes><ResourceAttribute name="DATA.PATH">)" + std::string(c.path) +
                  "</ResourceAttribute></ResourceAttributes></Resource>");
  }
}

TEST_F(LineageExport, WritesNoDataPathWithoutDataSource) {
  for (const char* location : {"", "no URI", "file:///a", "qvr://main/batch_jobs/load?type=ProcessJob",
                               "qvd:///?schema=dbo&table=C"}) {
    const Context context(createRepositoryMetadataSerializationContext());
    const Object object(context->createMetadataObject("Resource"));
    EXPECT_TRUE(m_store->populateResourceDataPath(context.get(), object.get(), location));
    const Released<RepositoryMetadataObjectList> contained(object->getContainedObjects());
    EXPECT_FALSE(contained->next()) << location;
  }
}

TEST_F(LineageExport, WritesNoDataPathWhereTheContextMakesNoElement) {
  struct RefusingContext : RepositorySerializationContextImpl {
    RepositoryMetadataObject* createMetadataObject(const QvbString& type) override {
      return left-- > 0 ? RepositorySerializationContextImpl::createMetadataObject(type) : nullptr;
    }
    int left = 0;
  };
  for (const int made : {0, 1}) {
    const Released<RefusingContext> context(new RefusingContext);
    const Object object(createRepositoryMetadataObject("Resource"));
    context->left = made;
    EXPECT_TRUE(m_store->populateResourceDataPath(context.get(), object.get(), "qvd:///Sales"));
    EXPECT_LE(context->left, 0);
  }
}

TEST_F(LineageExport, WritesAnAnalysisDateUnlessItIsNullOrZero) {
  HostResource node;
  node.name = "n";
  node.type = "Task";
  node.identity = "i";
  EXPECT_EQ(element(&node), R"(<Resource id="i" label="n" type="Task"/>)");
  node.date.assign(1970, 1, 1, 0, 0, 0, 0);
  EXPECT_EQ(element(&node), R"(<Resource id="i" label="n" type="Task"/>)");
  node.date.assign(1970, 1, 1, 0, 0, 0, 1);
  EXPECT_EQ(element(&node),
            R"(<Resource analysisDate="1970-01-01T00:00:00.001" id="i" label="n" type="Task"/>)");
}

// As an element for a caller's context, and in the export of a store.
TEST_F(LineageExport, BothWaysSayTheSameOfAResource) {
  HostResource job, table;
  job.name = "n";
  job.type = "Task";
  job.identity = "i";
  table.type = "Table";
  table.identity = tableIdentity("Sales", "dbo", "CUSTOMERS");
  table.date.assign(2026, 11, 21, 10, 15, 30, 250);
  const auto xml = exportedFor(*m_store, &job, listOf({&table}).get());
  EXPECT_THAT(xml, testing::AllOf(testing::HasSubstr(element(&job)), testing::HasSubstr(element(&table))));
}

// A table of a job, written and read again.
bool readsBack(LineageSerializationImpl& store, const std::string& source, const std::string& schema,
               const std::string& table, const std::string& label) {
  const Resource used = resource("", "Table", tableIdentity(text(source), text(schema), text(table)));
  const Resource job = resource(text(label), "Task", text("no URI " + label));
  QvDom document;
  if (!document.loadXML(text(exportedFor(store, job.get(), listOf({used.get()}).get()))))
    return false;
  const QvDomNode first = document.getRoot().getFirstChild(false).getFirstChild(false);
  const QvDomNode second = first.getNextSibling(false).getFirstChild(false).getFirstChild(false);
  const QvDomNode path = second.getFirstChild(false).getFirstChild(false);
  const QvbString location = second.getAttributeValue("id");
  QvDataURIComponents parts;
  return str(first.getAttributeValue("label")) == carriedByXml(label) &&
         str(first.getAttributeValue("id")) == "no URI " + carriedByXml(label) &&
         str(second.getAttributeValue("label")) == carriedByXml(table) &&
         getDataURIComponentsFromString(location, &parts) && str(parts.table) == carriedByXml(table) &&
         str(path.getValue(false)) == carriedByXml(source + "." + schema + "." + table);
}

TEST_F(LineageExport, ReadsBackWithAnyNames) {
  EXPECT_TRUE(rc::check([this] {
    return readsBack(*m_store, *hardXmlText(), *hardXmlText(), *hardXmlText(), *hardXmlText());
  }));
}

TEST_F(LineageExport, ReadsBackWithHugeNames) {
  const std::string huge = hugeXmlText();
  EXPECT_TRUE(readsBack(*m_store, "source", "schema", huge, "label"));
  EXPECT_TRUE(readsBack(*m_store, "source", "schema", "table", huge));
}

} // namespace
