#include "qvlineagegraph/audit.h"

#include "qvlineagegraph/scan.h"
#include "support/graphtext.h"
#include "support/tempdir.h"

#include <gmock/gmock.h>

using namespace qvlineagegraph;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

namespace {

class Auditing : public testing::Test {
protected:
  std::string job(const std::string& name, const std::string& content) {
    return m_folder.write(name, "<SQLUpdateRows><DatabaseConnectionObject Name='S'/>" + content +
                                    "</SQLUpdateRows>");
  }
  Graph graph() {
    auto result = scan(std::vector{m_folder.path().string()});
    EXPECT_TRUE(result.ok());
    return std::move(*result);
  }
  // "message [file, ...]" of each finding of the kind, with files below the folder.
  Texts found(const Graph& graph, FindingKind kind) {
    Texts texts;
    for (const Finding& finding : audit(graph)) {
      if (finding.kind != kind)
        continue;
      std::string text = finding.message + " [";
      for (const auto& file : finding.files)
        text += (&file == &finding.files.front() ? "" : ", ") + file.substr((m_folder / "").size());
      texts.push_back(text + "]");
    }
    return texts;
  }
  Texts found(FindingKind kind) { return found(graph(), kind); }

  const TempDir m_folder;
};

std::string reads(const std::string& table) {
  return "<SourceTable PathURI='qvd:///S?type=ODBC&amp;schema=dw&amp;table=" + table + "'/>";
}
std::string writes(const std::string& target) { return "<Create TargetName='" + target + "'/>"; }

} // namespace

TEST_F(Auditing, FindsTablesThatAreReadOrWrittenOnly) {
  job("a.djf", reads("in") + writes("dw.middle"));
  job("b.djf", reads("middle") + reads("in") + writes("dw.out"));
  const Graph all = graph();
  EXPECT_THAT(found(all, FindingKind::NeverWritten),
              ElementsAre("S.dw.in is read and nothing writes it [a.djf, b.djf]"));
  EXPECT_THAT(found(all, FindingKind::NeverRead),
              ElementsAre("S.dw.out is written and nothing reads it [b.djf]"));
  const auto findings = audit(all);
  ASSERT_EQ(findings.size(), 2U);
  EXPECT_EQ(namesOf(all, findings.front().nodes), (std::set<std::string>{"S.dw.in"}));
}

TEST_F(Auditing, FindsTablesOfSeveralWriters) {
  job("a.djf", writes("dw.t"));
  job("b.djf", writes("dw.t") + reads("t"));
  EXPECT_THAT(found(FindingKind::SeveralWriters), ElementsAre("S.dw.t is written by 2 jobs [a.djf, b.djf]"));
}

TEST_F(Auditing, FindsCycles) {
  job("a.djf", reads("x") + writes("dw.y"));
  job("b.djf", reads("y") + writes("dw.x"));
  job("c.djf", reads("x") + writes("dw.z"));
  EXPECT_THAT(found(FindingKind::Cycle),
              ElementsAre("upstream of themselves: a, S.dw.x, S.dw.y, b [a.djf, b.djf]"));
}

TEST_F(Auditing, FindsNamesThatDifferInCaseOnly) {
  job("a.djf", writes("dw.orders"));
  job("b.djf", reads("ORDERS"));
  job("c.djf", reads("ORDERS") + reads("Orders"));
  EXPECT_THAT(found(FindingKind::CaseOnly),
              ElementsAre("S.dw.orders is also written S.dw.ORDERS, S.dw.Orders [b.djf, c.djf]"));
}

TEST_F(Auditing, FindsBareNamesThatMatchNoneOrSeveral) {
  job("a.djf", writes("dw.t") + writes("mart.t"));
  job("b.djf", "<SourceTable Name='t'/><SourceTable Name='u'/>");
  job("c.djf", "<SourceTable Name='u'/>");
  const Graph all = graph();
  EXPECT_THAT(found(all, FindingKind::BareUnmatched),
              ElementsAre("no table u is known in the data source of its step [b.djf, c.djf]"));
  EXPECT_THAT(found(all, FindingKind::BareAmbiguous),
              ElementsAre("t may be any of S.dw.t, S.mart.t [b.djf]"));
}

TEST_F(Auditing, FindsFilesOfOneIdentity) {
  job("a.djf", "");
  job("A.djf", "");
  EXPECT_THAT(found(FindingKind::SameIdentity),
              ElementsAre(m_folder / "A.djf" + " stands for several files [A.djf, a.djf]"));
}

TEST_F(Auditing, FindsWhatCouldNotBeReadUnderstoodOrUsed) {
  m_folder.write("a.djf", "<Other/>");
  const auto broken = m_folder.write("b.djf", "<");
  job("c.djf", writes("a.b.c.d"));
  const Graph all = graph();
  EXPECT_THAT(found(all, FindingKind::NotUnderstood), ElementsAre("Other is no step that is known [a.djf]"));
  EXPECT_THAT(found(all, FindingKind::Failed), ElementsAre(testing::StartsWith(broken + ":1:")));
  EXPECT_THAT(found(all, FindingKind::UnusableName),
              ElementsAre("Create \"a.b.c.d\" is not catalog, schema and table [c.djf]"));
}

TEST_F(Auditing, FindsNothingInNothing) { EXPECT_THAT(audit(Graph()), IsEmpty()); }

TEST(FindingKinds, AreKnownByTheirNames) {
  for (const FindingKind kind : findingKinds())
    EXPECT_EQ(findingKindOf(nameOf(kind)), kind);
  EXPECT_EQ(findingKinds().size(), 11U);
  EXPECT_EQ(findingKindOf("nothing"), std::nullopt);
}

TEST_F(Auditing, CountsNoTableThatLeadsToAnotherAsAJob) {
  GraphBuilder builder;
  const auto table = [&](const char* name) { return builder.add({.type = NodeType::Table, .name = name}); };
  builder.addEdge({table("a"), table("c"), Access::Via, false});
  builder.addEdge({table("b"), table("c"), Access::Via, false});
  EXPECT_THAT(audit(builder.build()), IsEmpty());
}
