#include "lineagexml.h"

#include "lineagefactory.h"
#include "lineageserialization.h"
#include "qvreposres/qvreposserialize.h"
#include "qvreposres/qvresourcemgr.h"
#include "qvxbase/qvbconfig.h"
#include "qvxdom/qvdom.h"
#include "support/allocations.h"
#include "support/logcapture.h"
#include "support/recordingfactory.h"
#include "support/tempdir.h"
#include "support/textio.h"
#include "support/xmltext.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <rapidcheck.h>

#include <memory>
#include <string>
#include <vector>

namespace {

using Resource = Released<QvResource>;
using List = Released<QvResourceList>;
using Store = Released<LineageSerializationImpl>;

// A store that is somebody's own, though it does what the library's does: nothing about it may be taken for granted.
struct HostStore : LineageSerializationImpl {};

QvbString nullOrText(const std::string& content) {
  return *rc::gen::inRange(0, 8) == 0 ? QvbString() : text(content);
}

// Identities of every kind, of no kind, and in more than one spelling.
QvbString anyIdentity(const std::string& folder) {
  const Released<QvResourceManager> manager(createQvResourceManager());
  QvbString identity;
  QvbString name = "name";
  switch (*rc::gen::inRange(0, 8)) {
  case 0:
    manager->generateDataSourceResourceId(text(*hardXmlText()), "ODBC", &identity);
    return identity;
  case 1:
    manager->generateFileResourceId(text(folder + "/load.djf"), name, &identity);
    return identity;
  case 2:
    manager->generateUnifiedObjectResourceId("", "Rule", "42", "", &identity);
    return identity;
  case 3:
    return *rc::gen::elementOf(std::vector<QvbString>{"http://host/job", "qvr://main/batch_jobs/load", "",
                                                      text(folder + "/load.djf"), text(folder + "/none")});
  case 4:
    return nullOrText(*hardXmlText());
  default:
    manager->generateTableDataSourceResourceId(
        *rc::gen::elementOf(std::vector<QvbString>{"Sales", "SYS - Sales", "DSN=Sales;", "", "/a", " - "}),
        "", "", *rc::gen::inRange(0, 2) ? "dbo" : "", text(*hardXmlText()), &identity);
    return *rc::gen::inRange(0, 4) ? identity : QvbString(identity).lowercase();
  }
}

std::unique_ptr<HostResource> anyResource(const std::string& folder) {
  auto resource = std::make_unique<HostResource>();
  resource->name = nullOrText(*hardXmlText());
  resource->type = *rc::gen::elementOf(std::vector<QvbString>{"Table", "Table", "table", "Database",
                                                              "ProcessJob", "DataJob", "File", "Rule", "Task",
                                                              "MasterDataProject", "Odd", "", QvbString()});
  resource->identity = anyIdentity(folder);
  if (*rc::gen::inRange(0, 3) == 0)
    resource->date.assign(1970 + *rc::gen::inRange(0, 2), 1, 1, 0, 0, 0, *rc::gen::inRange(0, 2));
  return resource;
}

// The document as the tree of its objects, which the context writes.
class Tree {
public:
  Tree(LineageSerializationImpl& store) : m_store(store) {}

  std::string of(QvImpactAnalysis& analysis, bool layout) {
    const Released<RepositoryMetadataObject> root(m_context->createMetadataObject("RelationshipModels"));
    const List resources(analysis.getAllUniqueUsedResources());
    while (resources->next()) {
      RepositoryMetadataObject& model = add(*root, "RelationshipModel");
      fill(model, resources->getValue());
      const List dependents(analysis.getDependentResources(resources->getValue(), false));
      RepositoryMetadataObject* nodes = nullptr;
      while (dependents->next()) {
        if (!nodes)
          nodes = &add(model, "RelationshipNodes");
        RepositoryMetadataObject& node = add(*nodes, "RelationshipNode");
        node.addAttribute("type", "D");
        node.addAttribute("direction", "1");
        fill(node, dependents->getValue());
      }
    }
    m_context->setSerializationOfRelationships(true);
    QvbString xml;
    EXPECT_TRUE(m_context->serialize(root.get(), &xml, nullptr, layout));
    return str(xml);
  }

private:
  RepositoryMetadataObject& add(RepositoryMetadataObject& parent, const char* type) {
    RepositoryMetadataObject* object = m_context->createMetadataObject(type);
    EXPECT_TRUE(parent.addContainedObject(object));
    return *object;
  }
  void fill(RepositoryMetadataObject& parent, QvResource* resource) {
    EXPECT_TRUE(m_store.populateModelResource(m_context.get(), &add(parent, "Resource"), resource));
  }

  LineageSerializationImpl& m_store;
  const Released<RepositorySerializationContext> m_context{createRepositoryMetadataSerializationContext()};
};

std::string exported(LineageSerializationImpl& by, QvImpactAnalysis& analysis, bool layout) {
  QvbString xml;
  EXPECT_TRUE(by.getLineageAsString(&analysis, &xml, nullptr, layout));
  return str(xml);
}

nlohmann::ordered_json recordOf(const QvDomNode& resource) {
  nlohmann::ordered_json record;
  for (const char* name : {"id", "label", "type", "analysisDate"})
    if (const QvbString value = resource.getAttributeValue(name); !value.isNull())
      record[name] = str(value);
  const auto path = resource.getFirstChild(false).getFirstChild(false);
  if (!path.null())
    record["dataPath"] = str(path.getValue(false));
  return record;
}

std::string jsonOfXml(const std::string& xml) {
  QvDom document;
  EXPECT_TRUE(document.loadXML(text(xml)));
  auto records = nlohmann::ordered_json::array();
  const auto root = document.getRoot();
  for (auto model = root.getFirstChild(false); !model.null(); model = model.getNextSibling(false)) {
    const auto resource = model.getFirstChild(false);
    auto record = recordOf(resource);
    auto& uses = record["uses"] = nlohmann::ordered_json::array();
    const auto nodes = resource.getNextSibling(false);
    if (!nodes.null())
      for (auto node = nodes.getFirstChild(false); !node.null(); node = node.getNextSibling(false))
        uses.push_back(recordOf(node.getFirstChild(false)));
    records.push_back(record);
  }
  return records.dump(2) + "\n";
}

class LineageXmlText : public testing::Test {
protected:
  LineageXmlText() {
    m_dir.write("vault/load.djf", "");
    m_dir.write("definitions/main.rcf", "<VaultRepositoryInfo Name=\"main\"><VaultPath>" + m_dir / "vault" +
                                            "</VaultPath></VaultRepositoryInfo>");
    m_dir.write("definitions/second.rcf", "<VaultRepositoryInfo Name=\"MAIN\"/>");
    qvbSetConfigOption("BASE/REPOS_SYS_PATH", text(m_dir / "definitions"));
    qvbSetConfigOption("BASE/REPOS_USER_PATH", text(m_dir / "none"));
    qvbSetConfigOption("DMSERVER/NAME", "warehouse");
    qvlogSetLevel(QvLoggingLevel::Critical);
  }
  ~LineageXmlText() override {
    qvlogSetLevel(QvLoggingLevel::Anomaly);
    qvbClearConfigOptions();
  }

  // The same graph in both, of few resources, so that they are used often and in circles.
  void fillAny(QvImpactAnalysis& one, QvImpactAnalysis& other) {
    std::vector<std::unique_ptr<HostResource>> resources;
    for (int n = *rc::gen::inRange(1, 12); n > 0; --n)
      resources.push_back(anyResource(m_dir / "vault"));
    const auto any = [&] { return resources[*rc::gen::inRange<std::size_t>(0, resources.size())].get(); };
    for (int n = *rc::gen::inRange(0, 12); n > 0; --n) {
      QvResource* of = any();
      const List used(new QvResourceListImpl);
      for (int m = *rc::gen::inRange(0, 20); m > 0; --m) {
        used->addRow();
        used->setLastRowElement(0, any());
      }
      one.addDependentResources(of, used.get());
      used->reset();
      other.addDependentResources(of, used.get());
    }
  }

  TempDir m_dir;
};

// What the library's own store exports in one pass, a host's goes through its interface for, and the tree of objects is
// the slow way to.
TEST_F(LineageXmlText, IsThatOfTheTreeOfObjects) {
  EXPECT_TRUE(rc::check([this] {
    const Store own(new LineageSerializationImpl);
    const Store host(new HostStore);
    fillAny(*own, *host);
    for (const bool layout : {false, true}) {
      const std::string slow = Tree(*own).of(*own, layout);
      RC_ASSERT(exported(*own, *own, layout) == slow);
      RC_ASSERT(exported(*own, *host, layout) == slow);
      RC_ASSERT(exported(*host, *own, layout) == slow);
    }
  }));
}

// Byte for byte what the records of the XML are as JSON.
TEST_F(LineageXmlText, SaysTheSameAsJson) {
  EXPECT_TRUE(rc::check([this] {
    const Store own(new LineageSerializationImpl);
    const Store host(new HostStore);
    fillAny(*own, *host);
    const std::string expected = jsonOfXml(exported(*own, *own, false));
    for (LineageSerializationImpl* store : {own.get(), host.get()}) {
      QvbString json("before ");
      RC_ASSERT(getLineageAsJson(store, &json, nullptr));
      RC_ASSERT(str(json) == "before " + expected);
    }
  }));
}

TEST_F(LineageXmlText, IsNoJsonOfAStoreOfAnotherMaking) {
  QvbString json("before "), message("untouched");
  EXPECT_FALSE(getLineageAsJson(nullptr, &json, &message));
  EXPECT_EQ(json, "before ");
  EXPECT_EQ(message, "untouched");
}

TEST_F(LineageXmlText, LogsWhatTheTreeOfObjectsLogs) {
  EXPECT_TRUE(rc::check([this] {
    const Store own(new LineageSerializationImpl);
    const Store host(new HostStore);
    fillAny(*own, *host);
    LogCapture log;
    const std::string slow = Tree(*own).of(*own, true);
    const auto expected = log.lines();
    for (LineageSerializationImpl* store : {own.get(), host.get()}) {
      log.clear();
      RC_ASSERT(exported(*own, *store, true) == slow);
      RC_ASSERT(log.lines() == expected);
    }
  }));
}

// Counted in allocations: one for each of the many that use the table would show.
TEST_F(LineageXmlText, DescribesAResourceOnceHoweverManyUseIt) {
  constexpr int jobs = 500;
  const Released<QvResourceManager> manager(createQvResourceManager());
  QvbString identity;
  manager->generateTableDataSourceResourceId("Sales", "", "", "dbo", "orders", &identity);
  HostResource table;
  table.name = "orders";
  table.type = "Table";
  table.identity = identity;
  const auto allocationsOfExport = [&](bool usesTable) {
    const Store store(new LineageSerializationImpl);
    const List used(new QvResourceListImpl);
    if (usesTable) {
      used->addRow();
      used->setLastRowElement(0, &table);
    }
    for (int i = 0; i < jobs; ++i) {
      HostResource job;
      job.type = "Odd";
      job.identity = text("http://host/" + std::to_string(i));
      used->reset();
      store->addDependentResources(&job, used.get());
    }
    constexpr long plenty = 1'000'000;
    QvbString xml;
    Allocations::left = plenty;
    EXPECT_TRUE(store->getLineageAsString(&xml, nullptr, false));
    const long needed = plenty - Allocations::left;
    Allocations::left = -1;
    return needed;
  };
  allocationsOfExport(true); // what is made on first use is there
  EXPECT_LT(allocationsOfExport(true) - allocationsOfExport(false), 50);
}

// The lists were made before the sink heard of the next stage.
TEST_F(LineageXmlText, IsThatOfTheStoreAsItWasWhenASinkChangesIt) {
  struct Forgetting : LineageProgressSink {
    void progress(const QvbString& stage) override {
      if (stage.find("Creating") == 0)
        store->deleteResource(job);
    }
    LineageSerializationImpl* store = nullptr;
    HostResource* job = nullptr;
  } sink;
  const Store store(new LineageSerializationImpl);
  HostResource job;
  job.type = "Task";
  job.identity = "http://host/job";
  store->addDependentResources(&job, List(new QvResourceListImpl).get());
  const std::string before = exported(*store, *store, false);
  sink.store = store.get();
  sink.job = &job;
  store->setProgressSink(&sink);
  EXPECT_EQ(exported(*store, *store, false), before);
}

TEST_F(LineageXmlText, ForgetsWhatItWroteWithTheExport) {
  const Store store(new LineageSerializationImpl);
  HostResource file;
  file.type = "File";
  file.identity = text(m_dir / "vault/later.txt");
  store->addDependentResources(&file, List(new QvResourceListImpl).get());
  const std::string before = exported(*store, *store, false);
  EXPECT_THAT(before, testing::HasSubstr("id=\"" + m_dir / "vault/later.txt"));
  m_dir.write("vault/later.txt", "");
  EXPECT_THAT(exported(*store, *store, false), testing::HasSubstr("id=\"qvr://main/later.txt?type=File\""));
}

// Its parts that are written later need no memory of their own.
TEST(LineageXml, IsWrittenWhereThereIsRoomForIt) {
  for (const auto form : {LineageForm::LaidOutXml, LineageForm::CompactXml, LineageForm::Json}) {
    const LineageText plain{text("<Resource id=\"" + std::string(500, 'i') + "\""), QvbString()};
    const LineageText withPath{plain.tag, text(std::string(500, 'p'))};
    constexpr std::size_t pairs = 1'000;
    LineageXml xml(form);
    xml.reserve(pairs, pairs * (xml.sizeOf(plain) + xml.sizeOf(withPath)));
    for (std::size_t i = 0; i < pairs; ++i) {
      Allocations::left = i < pairs / 2 ? -1 : 0;
      xml.beginModel(withPath);
      xml.addDependent(plain);
    }
    xml.end();
    Allocations::left = -1;
    EXPECT_GT(xml.take().length(),
              form == LineageForm::Json ? 1'000'000 : 1'500'000); // which keeps a path in the tag
  }
}
} // namespace
