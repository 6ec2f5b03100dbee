#include "qvlineagegraph/scan.h"

#include "qvlineagegraph/json.h"
#include "qvlineagegraph/select.h"
#include "qvreposres/qvresourcemgr.h"
#include "qvxbase/qvbreleased.h"
#include "support/graphtext.h"
#include "support/healthmodels.h"
#include "support/tempdir.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <thread>

using namespace qvlineagegraph;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using testing::UnorderedElementsAre;

namespace {

std::string step(const std::string& content) { return "<SQLUpdateRows>" + content + "</SQLUpdateRows>"; }
std::string connection(const std::string& name) {
  return "<DatabaseConnectionObject Name=\"" + name + "\" DbDACType=\"ODBC\"/>";
}
std::string writes(const std::string& target) { return "<Create TargetName='" + target + "'/>"; }
std::string readsBare(const std::string& table) { return "<SourceTable Name='" + table + "'/>"; }
std::string reads(const std::string& source, const std::string& schema, const std::string& table) {
  return "<SourceTable PathURI='qvd:///" + source + "?type=ODBC&amp;schema=" + schema +
         "&amp;table=" + table + "'/>";
}

Graph scanned(const std::vector<std::string>& paths, const ScanOptions& options = {}) {
  auto graph = scan(paths, options);
  EXPECT_TRUE(graph.ok());
  return graph ? std::move(*graph) : Graph();
}

class Scanning : public testing::Test {
protected:
  Graph scanFolder(const ScanOptions& options = {}) { return scanned({m_folder.path().string()}, options); }
  std::string job(const std::string& name, const std::string& content) {
    return m_folder.write(name, step(content));
  }

  const TempDir m_folder;
};

} // namespace

TEST_F(Scanning, FindsJobsTablesAndDataSources) {
  job("batch_jobs/load.djf",
      connection("Warehouse") + writes("dw.customers") + reads("Crm", "dbo", "people"));
  const Graph graph = scanFolder();
  EXPECT_THAT(nodeTexts(graph), UnorderedElementsAre("job batch_jobs/load", "datasource Warehouse",
                                                     "datasource Crm", "table Crm.dbo.people in Crm",
                                                     "table Warehouse.dw.customers in Warehouse"));
  EXPECT_THAT(edgeTexts(graph), UnorderedElementsAre("Crm.dbo.people read batch_jobs/load",
                                                     "batch_jobs/load write Warehouse.dw.customers"));
  EXPECT_THAT(graph.notes(), IsEmpty());
}

TEST_F(Scanning, TellsWhatIsKnownOfAJob) {
  const auto path = job("jobs/load.djf", "");
  const Graph graph = scanFolder();
  ASSERT_EQ(graph.nodeCount(), 1U);
  const Node node = graph.node(0);
  EXPECT_EQ(node.name, "jobs/load");
  EXPECT_EQ(node.label(), "load");
  EXPECT_EQ(node.file, path);
  EXPECT_EQ(node.identity, path);
  EXPECT_EQ(node.kind, "ProcessJob");
}

TEST_F(Scanning, KeepsTheIdentityOfTheLibrary) {
  job("a.djf", connection("S") + writes("dbo.t"));
  const Graph graph = scanFolder();
  const Released<QvResourceManager> manager(createQvResourceManager());
  QvbString table, source;
  ASSERT_TRUE(manager->generateTableDataSourceResourceId("S", "", "", "dbo", "t", &table));
  ASSERT_TRUE(manager->generateDataSourceResourceId("S", "ODBC", &source));
  std::vector<std::string> identities;
  for (NodeIndex i = 1; i < graph.nodeCount(); ++i)
    identities.emplace_back(graph.node(i).identity);
  EXPECT_THAT(identities, ElementsAre(std::string(source.view()), std::string(table.view())));
}

TEST_F(Scanning, JoinsTablesAsTheLibraryComparesThem) {
  job("a.djf", connection("S") + writes("dbo.orders"));
  job("b.djf", reads("s", "DBO", "Orders"));
  const Graph graph = scanFolder();
  EXPECT_THAT(edgeTexts(graph), ElementsAre("a write S.dbo.orders", "S.dbo.orders read b"));
  EXPECT_THAT(noteTexts(graph), ElementsAre("spelling|S|" + m_folder / "b.djf" + "|s",
                                            "spelling|S.dbo.orders|" + m_folder / "b.djf" + "|s.DBO.Orders"));
}

TEST_F(Scanning, KnowsADataSourceWithAndWithoutItsTypeAsOne) {
  job("a.djf", reads("S", "dbo", "t"));
  job("b.djf", connection("S"));
  const Graph graph = scanFolder();
  EXPECT_EQ(graph.counts().dataSources, 1U);
  const auto source = graph.node(1);
  EXPECT_EQ(source.kind, "ODBC");
}

TEST_F(Scanning, ReadsABareNameAsTheOneTableOfItsDataSource) {
  job("a.djf", connection("S") + writes("dw.holidays"));
  job("b.djf", connection("Other") + writes("x.holidays"));
  job("c.djf", connection("S") + readsBare("HOLIDAYS"));
  job("d.djf", connection("S") + readsBare("dw.holidays"));
  const Graph graph = scanFolder();
  EXPECT_THAT(edgeTexts(graph),
              UnorderedElementsAre("a write S.dw.holidays", "b write Other.x.holidays",
                                   "S.dw.holidays read c inferred", "S.dw.holidays read d inferred"));
  EXPECT_THAT(noteTexts(graph), ElementsAre("spelling|S.dw.holidays|" + m_folder / "c.djf" + "|HOLIDAYS"));
}

TEST_F(Scanning, KeepsABareNameThatMatchesNoneOrSeveral) {
  job("a.djf", connection("S") + writes("dw.t") + writes("mart.t"));
  job("b.djf", connection("S") + readsBare("t"));
  job("c.djf", connection("S") + readsBare("nowhere"));
  job("d.djf", readsBare("t"));
  const Graph graph = scanFolder();
  EXPECT_THAT(edgeTexts(graph), UnorderedElementsAre("a write S.dw.t", "a write S.mart.t", "t read b",
                                                     "nowhere read c", "t read d"));
  EXPECT_THAT(noteTexts(graph), ElementsAre("bare-ambiguous|t|" + m_folder / "b.djf" + "|S.dw.t, S.mart.t",
                                            "bare-unmatched|nowhere|" + m_folder / "c.djf" + "|",
                                            "bare-unmatched|t|" + m_folder / "d.djf" + "|"));
}

TEST_F(Scanning, InfersNothingWhenExactnessIsWanted) {
  job("a.djf", connection("S") + writes("dw.t"));
  job("b.djf", connection("S") + readsBare("t"));
  EXPECT_THAT(
      edgeTexts(scanFolder({.patterns = {}, .threads = 1, .exact = true, .input = {}, .progress = {}})),
      ElementsAre("a write S.dw.t", "t read b"));
}

TEST_F(Scanning, TakesAnExactEdgeOverAnInferredOne) {
  job("a.djf", connection("S") + writes("dw.u") + readsBare("t") + reads("S", "dw", "t"));
  EXPECT_THAT(edgeTexts(scanFolder()), ElementsAre("a write S.dw.u", "S.dw.t read a"));
}

TEST_F(Scanning, NotesWhatItCannotUse) {
  m_folder.write("a.djf", "<Other/>");
  const auto broken = m_folder.write("b.djf", "<SQLUpdateRows>\n</b>");
  job("c.djf", connection("S") + writes("a.b.c.d"));
  const Graph graph = scanned({m_folder.path().string(), m_folder / "missing", "", "http://host/jobs"});
  const auto notes = noteTexts(graph);
  ASSERT_EQ(notes.size(), 6U);
  EXPECT_EQ(notes[0],
            "failed||" + m_folder / "missing" + "|" + m_folder / "missing" + ": no such file or folder");
  EXPECT_EQ(notes[1], "failed||\"\"|\"\": no such file or folder");
  EXPECT_EQ(notes[2],
            "failed||http://host/jobs|http://host/jobs: this URI names no file of this machine; name a file "
            "or a folder");
  EXPECT_EQ(notes[3], "not-understood||" + m_folder / "a.djf" + "|Other");
  EXPECT_THAT(notes[4], StartsWith("failed||" + broken + "|" + broken + ":2:"));
  EXPECT_EQ(notes[5],
            "unusable-name|c|" + m_folder / "c.djf" + "|Create \"a.b.c.d\" is not catalog, schema and table");
  const Counts counts = graph.counts();
  EXPECT_EQ(counts.jobs, 1U);
  EXPECT_EQ(counts.failed, 4U);
  EXPECT_EQ(counts.notUnderstood, 1U);
}

TEST_F(Scanning, NotesASecondFileOfOneIdentity) {
  job("a.djf", connection("S") + writes("t"));
  job("A.djf", connection("S") + writes("u"));
  const Graph graph = scanFolder();
  EXPECT_EQ(graph.counts().jobs, 1U);
  EXPECT_THAT(noteTexts(graph),
              ElementsAre("same-identity|" + m_folder / "A.djf" + "|" + m_folder / "a.djf" + "|"));
}

TEST_F(Scanning, KeepsTheNamesOfJobsApart) {
  for (const char* file : {"x/a.djf", "x/a.ddf", "x/b.djf", "y/b.djf", "x/.djf"})
    job(file, "");
  const auto names = [](const std::vector<std::string>& paths) {
    std::vector<std::string> found;
    for (const auto& file : findJobFiles(paths).files)
      found.push_back(file.name);
    return found;
  };
  EXPECT_THAT(names({m_folder.path().string()}),
              UnorderedElementsAre("x/a.djf", "x/a.ddf", "x/b", "y/b", "x/.djf"));
  EXPECT_THAT(names({m_folder / "x", m_folder / "y"}),
              UnorderedElementsAre("a.djf", "a.ddf", ".djf", m_folder / "x/b.djf", m_folder / "y/b.djf"));
  EXPECT_THAT(names({m_folder / "x/a.djf", m_folder / "x/a.djf", "file://" + m_folder / "x/a.djf"}),
              ElementsAre("a"));
}

TEST_F(Scanning, KnowsEachFileByItsOwnExtension) {
  for (const char* file :
       {"a.djf", "b.old.djf", "c.txt", "d.djf.old", "e.DJF", "f.old.djf.txt", "g", "h.xsq", "i.djf"})
    job(file, "");
  std::vector<std::string> names;
  for (const auto& file : findJobFiles(std::vector{m_folder.path().string()}).files)
    names.push_back(file.name);
  EXPECT_THAT(names, ElementsAre("a", "b.old", "e", "h", "i"));
}

TEST_F(Scanning, FindsOnceWhatLiesInAFolderThatIsGivenTwice) {
  job("below/a.djf", "");
  EXPECT_EQ(findJobFiles(std::vector{m_folder.path().string(), m_folder / "below"}).files.size(), 1U);
}

TEST_F(Scanning, KeepsEveryNameOfAJobThatNamesMuch) {
  std::string content = connection("S") + writes("t");
  Texts expected;
  for (int i = 0; i < 200; ++i) {
    const std::string name = std::string(100, 'n') + std::to_string(i);
    content += reads("S" + std::to_string(i), "dw", name);
    expected.push_back("S" + std::to_string(i) + ".dw." + name + " read j");
  }
  expected.push_back("j write S.t");
  job("j.djf", content);
  EXPECT_THAT(edgeTexts(scanFolder()), testing::UnorderedElementsAreArray(expected));
}

TEST_F(Scanning, TakesWhatThePatternsLetThrough) {
  for (const char* file : {"new/a.djf", "new/b.xsq", "old/a.djf", "old/deep/c.djf", "notes.txt"})
    job(file, "");
  const auto found = [&](const PathPatterns& patterns) {
    std::vector<std::string> names;
    for (const auto& file : findJobFiles(std::vector{m_folder.path().string()}, patterns).files)
      names.push_back(file.name);
    return names;
  };
  EXPECT_THAT(found({}), ElementsAre("new/a", "new/b", "old/a", "old/deep/c"));
  EXPECT_THAT(found({.include = {"*.xsq", "old/a*"}, .exclude = {}}), ElementsAre("new/b", "old/a"));
  EXPECT_THAT(found({.include = {}, .exclude = {"old"}}), ElementsAre("new/a", "new/b"));
  EXPECT_THAT(found({.include = {"old/*"}, .exclude = {"dee?"}}), ElementsAre("old/a"));
  for (const char* pattern : {"old/", "./old", "././old//", "*/../old"})
    EXPECT_EQ(found({.include = {}, .exclude = {pattern}}).size(), pattern[0] == '*' ? 4U : 2U) << pattern;
  EXPECT_THAT(found({.include = {"./old/a.djf"}, .exclude = {}}), ElementsAre("old/a"));
}

TEST_F(Scanning, ReadsTheJobThatIsGivenAsText) {
  ScanOptions options;
  options.input = step(connection("S") + writes("t"));
  EXPECT_THAT(edgeTexts(scanned({"-"}, options)), ElementsAre("- write S.t"));
  options.input = "<a>";
  EXPECT_THAT(noteTexts(scanned({"-"}, options)), ElementsAre(StartsWith("failed||-|-:1:")));
}

TEST_F(Scanning, TakesASavedGraphAsAPath) {
  const std::string folder = m_folder / "jobs";
  job("jobs/a.djf", connection("S") + writes("dw.t"));
  const Graph graph = scanned({folder});
  std::string saved;
  writeJson(View(graph), saved);
  const auto path = m_folder.write("saved.json", saved);
  EXPECT_EQ(wholeText(scanned({path})), wholeText(graph));
  for (const auto& paths : {std::vector{path, folder}, std::vector{folder, path}})
    EXPECT_EQ(wholeText(scanned(paths)), wholeText(graph));
  const auto reader = job("reader.djf", connection("S") + readsBare("t"));
  EXPECT_THAT(edgeTexts(scanned({path, reader})),
              ElementsAre("a write S.dw.t", "S.dw.t read reader inferred"));
  const auto broken = m_folder.write("broken.json", " {\"format\":1}");
  EXPECT_THAT(noteTexts(scanned({broken})),
              ElementsAre(StartsWith("failed||" + broken + "|" + broken + ": ")));
}

TEST_F(Scanning, SaysOfAPathThatNoFileCanHaveWhy) {
  const std::string path = "/" + std::string(5000, 'a');
  EXPECT_THAT(noteTexts(scanned({path})),
              ElementsAre("failed||" + path + "|" + path + ": File name too long"));
}

TEST_F(Scanning, TakesATableOfASavedGraphWhoseIdentityItDoesNotKnowAsItStands) {
  const auto path = m_folder.write("saved.json", R"({"format":"qvlineagegraph","version":1,"nodes":[
    {"type":"datasource","name":"S"},{"type":"table","name":"S.t","identity":"odd","source":0}]})");
  const auto reader = job("reader.djf", connection("S") + readsBare("t"));
  EXPECT_THAT(nodeTexts(scanned({path, reader})), testing::Contains("table S.t in S"));
}

TEST_F(Scanning, CarriesEveryName) {
  const std::string odd = " blank \"quote' <b>&amp;[x]{y}\xc3\xa9\xe2\x82\xac%;DSN=";
  std::string escaped;
  for (const char character : odd)
    escaped += character == '"'   ? "&quot;"
               : character == '&' ? "&amp;"
               : character == '<' ? "&lt;"
                                  : std::string(1, character);
  job("j \"&<b>\n[x] \xc3\xa9.djf", connection("S") + "<Create TargetName=\"&quot;a&#10;b&quot;.t\"/>" +
                                        "<SourceTable Name=\"" + escaped + "\"/>");
  const std::string quoted = "\" blank \"\"quote' <b>&amp;[x]{y}\xc3\xa9\xe2\x82\xac%;DSN=\"";
  const Graph graph = scanFolder();
  EXPECT_THAT(edgeTexts(graph), UnorderedElementsAre("j \"&<b>\n[x] \xc3\xa9 write S.a\nb.t",
                                                     quoted + " read j \"&<b>\n[x] \xc3\xa9"));
}

TEST_F(Scanning, QuotesPartsThatHoldADot) {
  job("a.djf", connection("S") + writes("\"my.schema\".t"));
  EXPECT_THAT(edgeTexts(scanFolder()), ElementsAre("a write S.\"my.schema\".t"));
}

TEST_F(Scanning, StopsWhenItsCallerSaysSo) {
  for (int i = 0; i < 100; ++i)
    job(std::to_string(i) + ".djf", "");
  ScanOptions options;
  options.threads = 1;
  std::size_t calls = 0;
  options.progress = [&](std::size_t done, std::size_t total) {
    ++calls;
    EXPECT_EQ(total, 100U);
    return done < 3;
  };
  const auto graph = scan(std::vector{m_folder.path().string()}, options);
  ASSERT_FALSE(graph.ok());
  EXPECT_EQ(graph.error().kind, ErrorKind::Stopped);
  EXPECT_EQ(calls, 3U);
}

TEST_F(Scanning, OfHealthModelsDoesNotDependOnTheThreads) {
  const auto models = healthModels();
  writeJobs(m_folder, models);
  job("models/late.xsq", connection("Health") + readsBare("medical_claim") + readsBare("nothing"));
  m_folder.write("models/odd.xsq", "<Odd/>");
  ScanOptions options;
  options.threads = 1;
  const Graph once = scanFolder(options);
  const Counts counts = once.counts();
  EXPECT_EQ(counts.jobs, models.size() + 1);
  EXPECT_EQ(counts.writes, models.size());
  EXPECT_EQ(counts.reads, 2731U + 2U);
  for (const unsigned threads : {2U, 3U, 8U, std::thread::hardware_concurrency(), 0U}) {
    options.threads = threads;
    EXPECT_EQ(wholeText(scanFolder(options)), wholeText(once)) << threads;
  }
}

TEST_F(Scanning, NotesAFileOfAnIdentityThatASavedGraphHasOfAnother) {
  const auto path = m_folder.write("saved.json", R"({"format":"qvlineagegraph","version":1,"nodes":[
    {"type":"job","name":"a","identity":")" + m_folder / "A.djf" +
                                                     R"(","file":")" + m_folder / "A.djf" + "\"}]}");
  const auto file = job("a.djf", "");
  EXPECT_THAT(noteTexts(scanned({path, file})), ElementsAre("same-identity|a|" + file + "|"));
}

TEST_F(Scanning, GivesNoJobTheNameOfAnothersFile) {
  for (const char* file : {"x.djf", "x.ddf", "x.djf.xsq", "y.djf", "y.djf.xsq"})
    job(file, "");
  std::vector<std::string> names;
  for (const auto& file : findJobFiles(std::vector{m_folder.path().string()}).files)
    names.push_back(file.name);
  EXPECT_THAT(names, UnorderedElementsAre("x.djf", "x.ddf", "x.djf.xsq", "y", "y.djf.xsq"));
}

TEST_F(Scanning, NamesFiveOfTheTablesThatABareNameMayMean) {
  std::string content = connection("S");
  for (int i = 0; i < 7; ++i)
    content += writes("s" + std::to_string(i) + ".t");
  job("a.djf", content);
  job("b.djf", connection("S") + readsBare("t"));
  EXPECT_THAT(noteTexts(scanFolder()), ElementsAre("bare-ambiguous|t|" + m_folder / "b.djf" +
                                                   "|S.s0.t, S.s1.t, S.s2.t, S.s3.t, S.s4.t and 2 more"));
}

TEST_F(Scanning, GivesTablesOfDifferentPartsDifferentNames) {
  job("a.djf", connection("W") + writes("a..b") + writes("a.b") + writes("b"));
  job("b.djf", connection("W") + writes("s1.orders"));
  job("c.djf", readsBare("W.s1.orders"));
  job("d.djf", connection("W") + readsBare("a..b"));
  const Graph graph = scanFolder();
  EXPECT_THAT(edgeTexts(graph),
              UnorderedElementsAre("a write W.a..b", "a write W.a.b", "a write W.b", "b write W.s1.orders",
                                   "\"W.s1.orders\" read c", "W.a..b read d inferred"));
  const View view(graph);
  const auto named = [&](const std::string& name) {
    const auto result = select(view, {{name}, {}});
    return result ? namesOf(result->view) : std::set<std::string>();
  };
  EXPECT_EQ(named("a..b"), (std::set<std::string>{"W.a..b"}));
  EXPECT_EQ(named("a.b"), (std::set<std::string>{"W.a.b"}));
  EXPECT_EQ(named("b").size(), 4U) << "three tables and a job";
  EXPECT_EQ(named("s1.orders"), (std::set<std::string>{"W.s1.orders", "\"W.s1.orders\""}));
  EXPECT_EQ(named("\"W.s1.orders\""), (std::set<std::string>{"\"W.s1.orders\""}));
}

TEST(JobFileExtensions, AreNamed) {
  EXPECT_EQ(jobFileExtensions(), "their extensions are djf, dmc, ddf, xsq");
}
