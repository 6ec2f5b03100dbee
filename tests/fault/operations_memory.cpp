// Operations of the definition manager and of scanning that no other test takes memory from: with each of their allocations
// failing, once and from then on, they fail or throw std::bad_alloc, and answer as ever when there is memory again.
#include "qvreposres/qvlineage.h"
#include "qvreposres/qvreposconfigmgr.h"
#include "qvreposres/qvresourcemgr.h"
#include "qvreposres/qvsqlstep.h"

#include "qvxbase/qvbconfig.h"
#include "qvxbase/qvbreleased.h"
#include "support/logcapture.h"
#include "support/shortage.h"
#include "support/tempdir.h"
#include "support/textio.h"

#include <gtest/gtest.h>

#include <functional>

namespace {

class DefinitionMemory : public testing::Test {
protected:
  DefinitionMemory() {
    m_dir.write("sys/Orders.rcf", "<VaultRepositoryInfo Name='Orders'/>");
    m_dir.write("sys/Sales.rcf", "<VaultRepositoryInfo Name='Sales'/>");
    m_dir.write("sys/broken.rcf", "<VaultRepositoryInfo");
    qvbSetConfigOption("BASE/REPOS_SYS_PATH", text(m_dir / "sys"));
    m_manager.reset(getRepositoryConfigurationManager());
  }
  ~DefinitionMemory() override { qvbClearConfigOptions(); }

  static std::string namesOf(QvReposConfigurationList* list) {
    std::string names;
    for (const Released<QvReposConfigurationList> owned(list); owned && owned->next();)
      if (const Released<QvReposConfiguration> row(owned->getValue()); row)
        names += str(row->getName()) + " ";
    return names;
  }

  const TempDir m_dir;
  Released<QvReposConfigManager> m_manager;
};

TEST_F(DefinitionMemory, CostsALookupAlone) {
  expectSameAnswerAfterEveryShortage(
      [&] { return namesOf(m_manager->getConfigurationsByType(QvReposConfigTypeSystem)); });
  expectSameAnswerAfterEveryShortage([&] { return namesOf(m_manager->getConfigurations()); });
  expectSameAnswerAfterEveryShortage([&] {
    QvbString name;
    return std::to_string(m_manager->getDefaultConfiguration(&name)) + str(name);
  });
}

TEST_F(DefinitionMemory, CostsARefreshAlone) {
  expectSameAnswerAfterEveryShortage([&] {
    m_manager->refresh();
    return namesOf(m_manager->getConfigurations());
  });
}

TEST_F(DefinitionMemory, CostsTheReasonsOfRefusalsAlone) {
  expectSameAnswerAfterEveryShortage([&] {
    std::string reasons;
    for (const Released<QvReposRefusalList> refusals(m_manager->getRefusals()); refusals->next();)
      reasons +=
          str(refusals->getFilename()) + str(refusals->getReason()) + std::to_string(refusals->isDuplicate());
    return reasons;
  });
}

TEST_F(DefinitionMemory, CostsAChangeOfARecordAlone) {
  expectSameAnswerAfterEveryShortage([&] {
    const Released<QvReposConfiguration> record(
        m_manager->createConfiguration("New", QvReposConfigTypeSystem));
    record->setUnifiedRepositoryConnect("DSN=a;");
    record->setUnifiedRepositoryName("name");
    record->setUnifiedRepositoryVersion("2");
    const Released<QvReposConfiguration> copy(record->copyOf());
    return str(copy->getUnifiedRepositoryConnect()) + str(copy->getUnifiedRepositoryName()) +
           str(copy->getUnifiedRepositoryVersion());
  });
}

constexpr const char* Step = R"(<SQLCreateTableSelect version="1">
  <DatabaseConnectionObject Name="Warehouse" DbDACType="ODBC"/>
  <Create TargetName="dw.calendar"/>
  <Query><From><SourceTable Name="holidays"/></From></Query>
</SQLCreateTableSelect>)";

class ScanMemory : public testing::Test {
protected:
  // What the scan adds to a list of its own.
  std::string found(const std::function<bool(QvResourceFactory*, QvResourceList*)>& scan) {
    const Released<QvResourceList> list(m_store->createResourceList());
    if (!list || !scan(m_store->getDefaultResourceFactory(), list.get()))
      return "";
    std::string names;
    while (list->next())
      names += str(list->getValue()->getResourceIdentity());
    return names;
  }

  const TempDir m_dir;
  const LogCapture m_log;
  const QvbString m_file = text(m_dir.write("step.djf", Step));
  const Released<QvImpactAnalysis> m_store{getQvLineageAnalysis()};
  const Released<QvResourceManager> m_manager{createQvResourceManager()};
};

TEST_F(ScanMemory, CostsTheScanOfAStepAlone) {
  expectSameAnswerAfterEveryShortage([&] {
    return found(
        [&](auto* factory, auto* list) { return m_manager->addSQLResourcesFromFile(m_file, factory, list); });
  });
  expectSameAnswerAfterEveryShortage([&] {
    return found(
        [&](auto* factory, auto* list) { return m_manager->addSQLResourcesFromString(Step, factory, list); });
  });
}

TEST_F(ScanMemory, CostsTheResourceOfAFileAlone) {
  expectSameAnswerAfterEveryShortage([&] {
    QvbString file = m_file;
    return found([&](auto* factory, auto* list) { return m_manager->addFileResource(file, factory, list); });
  });
}

// Writes down what it is told.
class Notes final : public QvSQLStepVisitor {
public:
  void visitConnection(const QvbString& name, const QvbString&, const QvbString&) override { add("c", name); }
  void visitTableRead(QvSQLTableElement, const QvDataURIComponents& table, const QvbString&) override {
    add("r", table.table);
  }
  void visitBareTableRead(QvSQLTableElement, const QvbString& table, const QvbString&) override {
    add("b", table);
  }
  void visitTableWritten(const QvbString&, const QvbString&, const QvbString&,
                         const QvbString& table) override {
    add("w", table);
  }
  void visitUnusableName(const QvbString&, const QvbString& name, const QvbString&) override {
    add("u", name);
  }
  void visitUnknownRoot(const QvbString& name) override { add("x", name); }

  std::string all;

private:
  void add(const char* kind, const QvbString& name) { all += kind + str(name) + " "; }
};

TEST_F(ScanMemory, CostsTheVisitOfAStepAlone) {
  expectSameAnswerAfterEveryShortage([&] {
    Notes notes;
    QvbString error;
    return std::to_string(visitSQLStepInFile(m_file, &notes, &error)) + notes.all;
  });
  expectSameAnswerAfterEveryShortage([&] {
    Notes notes;
    QvbString error;
    return std::to_string(visitSQLStepInString(Step, &notes, &error)) + notes.all;
  });
}

} // namespace
