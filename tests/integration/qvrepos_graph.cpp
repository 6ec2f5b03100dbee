// The commands about the lineage graph: graph, upstream and downstream.
#include "support/golden.h"
#include "support/tool.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <sstream>

using nlohmann::json;
using testing::AllOf;
using testing::ContainsRegex;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

using Words = std::vector<std::string>;

const std::string marts = sampleRepository + "/data_services";

std::string stepOf(const std::string& reads, const std::string& writes) {
  return "<SQLCreateTableSelect><DatabaseConnectionObject Name=\"Warehouse\" DbDACType=\"ODBC\"/><Create "
         "TargetName=\"" +
         writes +
         "\"/><From><SourceTable Name=\"x\" PathURI=\"qvd:///Warehouse?type=ODBC&amp;schema=dw&amp;table=" +
         reads + "\"/></From></SQLCreateTableSelect>";
}

// a -> one -> b -> two -> c
void writeChain(const TempDir& folder) {
  folder.write("one.djf", stepOf("a", "dw.b"));
  folder.write("sub/two.djf", stepOf("b", "dw.c"));
}

TEST(QvreposGraph, PrintsATableOfTheSampleWithACountOfWhatItFound) {
  const auto run = runTool({"graph", sampleRepository});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.out, golden("sample-graph.txt", run.out));
  EXPECT_THAT(run.err, AllOf(HasSubstr("/batch_jobs/broken_export.djf:9:1: "),
                             EndsWith("qvrepos: 41 jobs, 48 tables, 69 reads, 35 writes; 1 file failed\n")));
}

TEST(QvreposGraph, CountsWithoutAFailureEndWithZero) {
  const TempDir folder;
  writeChain(folder);
  const auto run = runTool({"graph", folder.path()});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, "JOB      READS           WRITES\n"
                     "one      Warehouse.dw.a  Warehouse.dw.b\n"
                     "sub/two  Warehouse.dw.b  Warehouse.dw.c\n");
  EXPECT_EQ(run.err, "qvrepos: 2 jobs, 3 tables, 2 reads, 2 writes\n");
  EXPECT_EQ(runTool({"graph", folder.path(), "--quiet"}).err, "");
}

TEST(QvreposGraph, SelectsByNameAndByWhatLiesAround) {
  const TempDir folder;
  writeChain(folder);
  const auto names = [&](Words words) {
    words.insert(words.begin(), "graph");
    words.insert(words.end(), {"--json", "-q", folder.path()});
    const auto graph = json::parse(runTool(words).out);
    std::set<std::string> found;
    for (const auto& node : graph["nodes"])
      if (node["type"] != "datasource")
        found.insert(node["name"]);
    return found;
  };
  using Names = std::set<std::string>;
  EXPECT_EQ(names({"--select", "dw.b"}), (Names{"Warehouse.dw.b"}));
  EXPECT_EQ(names({"--select", "1+b"}), (Names{"one", "Warehouse.dw.b"}));
  EXPECT_EQ(names({"--select", "b+"}), (Names{"Warehouse.dw.b", "sub/two", "Warehouse.dw.c"}));
  EXPECT_EQ(names({"--select", "a", "--select", "two"}), (Names{"Warehouse.dw.a", "sub/two"}));
  EXPECT_EQ(names({"--select", "type:Table", "--exclude", "*.c"}),
            (Names{"Warehouse.dw.a", "Warehouse.dw.b"}));
  EXPECT_EQ(names({"--view", "jobs"}), (Names{"one", "sub/two"}));
  EXPECT_EQ(names({"--view", "tables", "--select", "a+1"}), (Names{"Warehouse.dw.a", "Warehouse.dw.b"}));
}

TEST(QvreposGraph, OfNothingThatMatchesNamesTheNearest) {
  const TempDir folder;
  writeChain(folder);
  folder.write("orders.djf", stepOf("order", "dw.orders"));
  const auto run = runTool({"graph", "--select", "dw.ordres", folder.path()});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.out, "");
  EXPECT_THAT(run.err, AllOf(HasSubstr("\"dw.ordres\""), HasSubstr("Warehouse.dw.orders")));
}

TEST(QvreposGraph, NamesAnExpressionThatMatchesNothingBesideOthersThatDo) {
  const TempDir folder;
  writeChain(folder);
  folder.write("orders.djf", stepOf("order", "dw.orders"));
  const auto run =
      runTool({"graph", "--select", "dw.b", "--select", "dw.ordres", "--select", "x*y", folder.path()});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, runTool({"graph", "--select", "dw.b", folder.path()}).out);
  EXPECT_THAT(run.err, AllOf(HasSubstr("qvrepos: nothing matches \"dw.ordres\"; the nearest names are: "
                                       "Warehouse.dw.order, Warehouse.dw.orders"),
                             HasSubstr("qvrepos: nothing matches \"x*y\""), Not(HasSubstr("\"dw.b\""))));
}

TEST(QvreposGraph, UpstreamAndDownstreamDrawTrees) {
  const TempDir folder;
  writeChain(folder);
  EXPECT_EQ(runTool({"upstream", "dw.c", folder.path(), "-q"}).out, "Warehouse.dw.c\n"
                                                                    "└─ sub/two [job]\n"
                                                                    "   └─ Warehouse.dw.b\n"
                                                                    "      └─ one [job]\n"
                                                                    "         └─ Warehouse.dw.a\n");
  EXPECT_EQ(runTool({"downstream", "a", "--depth", "2", folder.path(), "-q"}).out, "Warehouse.dw.a\n"
                                                                                   "└─ one [job]\n"
                                                                                   "   └─ Warehouse.dw.b\n");
  EXPECT_EQ(runTool({"upstream", "two", "--view", "jobs", folder.path(), "-q"}).out, "sub/two\n└─ one\n");
  EXPECT_EQ(runTool({"upstream", "dw.c", "--depth", "1", "--format", "csv", folder.path(), "-q"}).out,
            runTool({"graph", "--select", "1+dw.c", "--format", "csv", folder.path(), "-q"}).out);
}

TEST(QvreposGraph, ReadsASavedGraphWhereverItTakesAPath) {
  const TempDir folder;
  writeChain(folder);
  const auto saved = folder / "saved.json";
  ASSERT_EQ(runTool({"graph", folder.path(), "--format", "json", "-o", saved}).status, 0);
  for (const char* format : {"table", "tree", "csv", "json", "dot", "mermaid", "svg"})
    EXPECT_EQ(runTool({"graph", saved, "--format", format}).out,
              runTool({"graph", folder.path(), "--format", format}).out)
        << format;
}

TEST(QvreposGraph, ReadsASavedGraphFromPipesAndStandardInput) {
  const TempDir folder;
  writeChain(folder);
  const auto saved = folder / "saved.json";
  ASSERT_EQ(runTool({"graph", folder.path(), "--json", "-o", saved}).status, 0);
  folder.write("marked.json", "\xEF\xBB\xBF\n " + folder.read("saved.json"));
  const auto expected = runTool({"graph", saved}).out;
  EXPECT_EQ(runTool({"graph", folder / "marked.json"}).out, expected);
  for (const std::string words :
       {"graph - <$1", "graph <(cat $1)", "graph /dev/stdin <$1", "graph - <${1/saved/marked}",
        "graph <(cat ${1/saved/marked})", "graph $2/none - <$1"}) {
    const auto run = runProcess({"bash", "-c", "$0 " + words, toolPath, saved, folder.path()});
    EXPECT_EQ(run.out, expected) << words << run.err;
  }
  const auto run = runProcess({"bash", "-c", "$0 diff --exit-code <(cat $1) <(cat $1)", toolPath, saved}).err;
  EXPECT_EQ(run, "qvrepos: no difference\n");
  EXPECT_THAT(runProcess({"bash", "-c", "echo '{}' | $0 graph -", toolPath}).err,
              StartsWith("qvrepos: -: no saved graph: its format is not"));
}

// More than a document may have is not waited for, in whichever way it comes.
TEST(QvreposGraph, RefusesInputThatDoesNotEnd) {
  for (const std::string words : {"yes '<a>' | $0 graph -", "$0 lineage <(yes '{')"}) {
    const auto run = runProcess({"bash", "-c", words, toolPath});
    EXPECT_EQ(run.status, 1) << words;
    EXPECT_THAT(run.err, HasSubstr(":1:1: the document is over 512 MiB\n")) << words;
  }
}

TEST(QvreposGraph, TakesAJobFileFromStandardInput) {
  const TempDir folder;
  const auto job = folder.write("one.djf", stepOf("a", "dw.b"));
  const auto run = runProcess({"bash", "-c", "\"$0\" graph - --format csv <\"$1\"", toolPath, job});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(std::count(run.out.begin(), run.out.end(), '\n'), 3) << run.out;
}

// In every command that reads jobs.
TEST(QvreposGraph, CountsNamesThatCannotBeUsed) {
  const TempDir folder;
  const auto job = folder.write("odd.djf", stepOf("a", "a.b.c.d"));
  for (const char* command : {"graph", "lineage", "resources"}) {
    const auto run = runTool({command, job});
    EXPECT_EQ(run.status, 0) << command;
    EXPECT_THAT(run.err, EndsWith("; 1 name cannot be used, which `qvrepos audit` shows\n")) << command;
    const auto strict = runTool({command, job, "--strict"});
    EXPECT_EQ(strict.status, 1) << command;
    EXPECT_THAT(strict.err, StartsWith("qvrepos: " + job + ": Create \"a.b.c.d\" ")) << command;
  }
}

TEST(QvreposGraph, LeavesOutFilesByTheirPaths) {
  const TempDir folder;
  writeChain(folder);
  const auto counts = [&](Words words) {
    words.insert(words.begin(), {"graph", folder.path()});
    return runTool(words).err;
  };
  EXPECT_THAT(counts({"--include", "sub/*"}), HasSubstr(" 1 job,"));
  EXPECT_THAT(counts({"--exclude-path", "sub"}), HasSubstr(" 1 job,"));
  EXPECT_THAT(counts({"--include", "one*", "--include", "two*"}), HasSubstr(" 2 jobs,"));
}

TEST(QvreposGraph, SaysThatPatternsMayHaveLeftOutAllFiles) {
  const std::string message = "qvrepos: no job files were found: their extensions are djf, dmc, ddf, xsq";
  EXPECT_THAT(runTool({"graph", marts, "--include", "*.sql"}).err,
              StartsWith(message + ", and --include and --exclude-path leave files out\n"));
  const TempDir empty;
  EXPECT_THAT(runTool({"graph", empty.path()}).err, StartsWith(message + "\n"));
}

TEST(QvreposGraph, NamesADataSourceOfANamespaceThatIsNotThere) {
  const auto run = runTool({"graph", marts, "--format", "openlineage", "--namespace", "Warehose=a://b",
                            "--namespace", "Warehouse=a://b"});
  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(run.err,
              StartsWith("qvrepos: --namespace: no job connects to a data source Warehose; did you mean "
                         "Warehouse?\nqvrepos: "));
}

TEST(QvreposGraph, TakesAPlusSignOfANameWithABackslash) {
  const TempDir folder;
  folder.write("one.djf", stepOf("a", "dw.x+3"));
  EXPECT_EQ(runTool({"upstream", "dw.x\\+3", folder.path(), "-q"}).out,
            "Warehouse.dw.x+3\n└─ one [job]\n   └─ Warehouse.dw.a\n");
}

TEST(QvreposGraph, OfASavedGraphWithoutJobsHasNoHintOfFiles) {
  const TempDir folder;
  writeChain(folder);
  ASSERT_EQ(runTool({"graph", folder.path(), "--view", "tables", "--json", "-o", folder / "t.json"}).status,
            0);
  EXPECT_THAT(runTool({"graph", folder / "t.json"}).err, StartsWith("qvrepos: 0 jobs, 3 tables"));
}

TEST(QvreposGraph, KnowsADataSourceOfANamespaceInAnyCase) {
  const auto run = runTool({"graph", marts, "--format", "openlineage", "--namespace", "WAREHOUSE=a://b"});
  EXPECT_THAT(run.err, Not(HasSubstr("--namespace")));
}

TEST(QvreposGraph, DoesNotDependOnTheThreads) {
  const auto with = [](const std::string& threads) {
    return runTool({"graph", sampleRepository, "--json", "--threads", threads}).out;
  };
  EXPECT_EQ(with("1"), with("7"));
}

TEST(QvreposGraph, TakesABareNameForTheOneTableOfThatNameUnlessItIsToBeExact) {
  const TempDir folder;
  folder.write("one.djf", stepOf("a", "dw.b"));
  folder.write("two.djf",
               "<SQLCreateTableSelect><DatabaseConnectionObject Name=\"Warehouse\" DbDACType=\"ODBC\"/>"
               "<Create TargetName=\"dw.c\"/><From><SourceTable Name=\"b\"/></From></SQLCreateTableSelect>");
  EXPECT_THAT(runTool({"graph", folder.path()}).out,
              HasSubstr("two  Warehouse.dw.b (inferred)  Warehouse.dw.c\n"));
  EXPECT_THAT(runTool({"graph", folder.path(), "--exact"}).out,
              HasSubstr("two  b               Warehouse.dw.c\n"));
}

class UnknownStep : public testing::TestWithParam<std::string> {};

TEST_P(UnknownStep, IsNamedWithItsRootElementAndAFailureWhereTheUserIsStrict) {
  const TempDir folder;
  const auto file = folder.write("odd.djf", "<OtherStep><SourceTable Name=\"x\"/></OtherStep>");
  const std::string message =
      "qvrepos: " + file + ": no step that is known: its root element is <OtherStep>\n";
  const auto run = runTool({GetParam(), file});
  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(run.err, StartsWith(message));
  EXPECT_EQ(runTool({GetParam(), file, "--quiet"}).err, "");
  const auto strict = runTool({GetParam(), file, "--strict", "--quiet"});
  EXPECT_EQ(strict.status, 1);
  EXPECT_EQ(strict.err, message);
}

INSTANTIATE_TEST_SUITE_P(Commands, UnknownStep, testing::Values("lineage", "resources", "graph", "audit"));

TEST(QvreposGraph, CountsWhatItDoesNotUnderstand) {
  const TempDir folder;
  writeChain(folder);
  folder.write("odd.djf", "<OtherStep/>");
  folder.write("bad1.djf", "<");
  folder.write("bad2.djf", "");
  EXPECT_THAT(runTool({"graph", folder.path()}).err, EndsWith("; 2 files failed, 1 not understood\n"));
}

TEST(QvreposGraph, WritesEachFormatToAFile) {
  const TempDir folder;
  writeChain(folder);
  const std::vector<std::pair<std::string, std::string>> beginnings{
      {"table", "JOB "},          {"tree", "Warehouse.dw.a\n"},     {"json", "{"},    {"csv", "from_type,"},
      {"dot", "digraph"},         {"mermaid", "flowchart LR"},      {"svg", "<?xml"}, {"png", "\x89PNG"},
      {"html", "<!DOCTYPE html"}, {"openlineage", "{\"eventTime\""}};
  for (const auto& [format, beginning] : beginnings) {
    const auto run =
        runTool({"graph", folder.path(), "--format", format, "-o", folder / ("out." + format), "-q"});
    EXPECT_EQ(run.status, 0) << format << run.err;
    EXPECT_EQ(run.out, "") << format;
    EXPECT_EQ(run.err, "") << format;
    EXPECT_THAT(folder.read("out." + format), StartsWith(beginning)) << format;
  }
  // These are all that there are, and docs/graph.md tells of each.
  std::ifstream page(QV_SOURCE_DIR "/docs/graph.md");
  const std::string guide{std::istreambuf_iterator<char>(page), {}};
  std::string names;
  for (const auto& [format, beginning] : beginnings) {
    names += (names.empty() ? "" : ", ") + format;
    EXPECT_THAT(guide, ContainsRegex("\n\\|[^|]*`" + format + "`[^|]*\\|"));
  }
  EXPECT_THAT(runTool({"graph", folder.path(), "--format", "none"}).err,
              HasSubstr("choose from " + names + "\n"));
}

TEST(QvreposGraph, RefusesAPictureThatNobodyCouldRead) {
  const TempDir folder;
  for (int i = 0; i < 1001; ++i)
    folder.write("job" + std::to_string(i) + ".djf", stepOf("a", "dw.t" + std::to_string(i)));
  const auto run = runTool({"graph", folder.path(), "--format", "svg"});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err,
              HasSubstr("qvrepos: a picture of 2003 nodes would be beyond reading; 2000 are the most; "
                        "narrow it with --select\n"));
}

TEST(QvreposGraph, ShowsProgressOnATerminal) {
  const TempDir folder;
  for (int i = 0; i < 25; ++i)
    folder.write("job" + std::to_string(i) + ".djf", stepOf("a", "dw.b"));
  const std::string command = toolPath + " graph " + folder.path().string() + " -o " + (folder / "out.txt");
  const auto shown = runProcess({"script", "--quiet", "--return", "--command", command, "/dev/null"});
  EXPECT_EQ(shown.status, 0);
  EXPECT_THAT(shown.out, HasSubstr("25 of 25 files"));
}

TEST(QvreposGraph, GivesATerminalNoPicture) {
  const auto run = runProcess({"script", "--quiet", "--return", "--command",
                               toolPath + " graph " + marts + " --format png", "/dev/null"});
  EXPECT_EQ(run.status, 2);
  EXPECT_THAT(run.out, StartsWith("qvrepos graph: a terminal shows no picture: give --output\r\n"));
}

struct WrongUse {
  Words words;
  std::string message;
};

TEST(QvreposGraph, WrongUsesEndWithTwoAndSayWhatWouldBeRight) {
  const std::vector<WrongUse> uses{
      {{"graph"}, "PATH is missing"},
      {{"graph", marts, "--format", "xls"}, "--format: there is no xls; choose from table, tree,"},
      {{"graph", marts, "--view", "columns"}, "--view: there is no columns; choose from all, jobs, tables"},
      {{"graph", marts, "--format", "csv", "--json"},
       "--json is a form of its own: it takes no --format csv"},
      {{"graph", marts, "--select", "++"}, "\"++\""},
      {{"graph", marts, "--threads", "0"}, "--threads: not a whole number from 1 to 256: 0"},
      {{"graph", marts, "--include", ""}, "--include: must not be empty"},
      {{"graph", marts, "--namespace", "W=postgres://db"}, "go with --format openlineage"},
      {{"graph", marts, "--format", "openlineage", "--namespace", "W"}, "write it as NAME=URI: W"},
      {{"graph", marts, "--format", "openlineage", "--event-time", "noon"}, "no time with a zone"},
      {{"graph", marts, "--format", "openlineage", "--view", "jobs"}, "it takes no --view jobs"},
      {{"graph", marts, "--title", "x"}, "--title goes with --format html"},
      {{"graph", marts, "--emit", "ftp://host"}, "write it as http://... or https://...: ftp://host"},
      {{"graph", marts, "--emit", "http://"}, "write it as http://... or https://...: http://"},
      {{"graph", marts, "--emit", "https:///path"}, "write it as http://... or https://...: https:///path"},
      {{"audit", marts, "--fail-on", ""}, "--fail-on: must not be empty; choose from never-written,"},
      {{"graph", marts, "--emit", "http://host", "-o", "x"}, "it takes no --output"},
      {{"graph", marts, "--format", "openlineage", "--resume", "x"}, "--resume goes with --emit"},
      {{"graph", marts, "--format", "openlineage", "--namespace", "W=postgres://u:secret@db/x"},
       "--namespace: leave user and password out of the URI of W: whoever gets the events can read it\n"},
      {{"graph", marts, "--format", "openlineage", "--namespace", "W=a://b", "--namespace", "w=a://c"},
       "--namespace: w is given more than once"},
      {{"upstream", "+report_board", marts},
       "NAME takes no operator: +report_board; `qvrepos graph --select` does, and \\+ is a plus sign of a "
       "name"},
      {{"upstream", "2+x", marts}, "NAME takes no operator: 2+x;"},
      {{"downstream", "x+", marts}, "NAME takes no operator: x+;"},
      {{"downstream", "x\\\\+3", marts}, "NAME takes no operator: x\\\\+3;"},
      {{"upstream"}, "NAME is missing"},
      {{"upstream", "", marts}, "NAME: must not be empty"},
      {{"upstream", "dw.orders"}, "PATH is missing"},
      {{"downstream", "dw.orders", marts, "--depth", "-1"}, "--depth: not a whole number from 0"},
      {{"downstream", "dw.orders", marts, "--select", "x"}, "there is no option --select"},
      {{"diff", marts}, "NEW is missing"},
      {{"diff", "-", "-"}, "standard input can be one of both only; give a file for the other"},
      {{"diff", marts, marts, "--format", "xml"},
       "--format: there is no xml; choose from json, markdown, table"},
      {{"audit", marts, "--fail-on", "cycle,typos"},
       "--fail-on: there is no typos; choose from never-written,"},
  };
  for (const auto& [words, message] : uses) {
    const auto run = runTool(words);
    EXPECT_EQ(run.status, 2) << testing::PrintToString(words);
    EXPECT_EQ(run.out, "") << testing::PrintToString(words);
    EXPECT_THAT(run.err, AllOf(StartsWith("qvrepos " + words[0] + ": "), HasSubstr(message),
                               HasSubstr("`qvrepos " + words[0] + " --help` shows what it takes"),
                               Not(HasSubstr("secret"))));
  }
}

TEST(QvreposDiff, ShowsWhatCameAndWent) {
  const TempDir before, after;
  writeChain(before);
  after.write("one.djf", stepOf("a", "dw.b"));
  after.write("sub/three.djf", stepOf("b", "dw.d"));
  const auto run = runTool({"diff", before.path(), after.path()});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out, "CHANGE  WHAT   NAME\n"
                     "came    job    sub/three\n"
                     "went    job    sub/two\n"
                     "came    table  Warehouse.dw.d\n"
                     "went    table  Warehouse.dw.c\n"
                     "came    read   Warehouse.dw.b → sub/three\n"
                     "came    write  sub/three → Warehouse.dw.d\n"
                     "went    read   Warehouse.dw.b → sub/two\n"
                     "went    write  sub/two → Warehouse.dw.c\n");
  EXPECT_EQ(runTool({"diff", before.path(), after.path(), "--exit-code"}).status, 1);
  EXPECT_EQ(runTool({"diff", before.path(), before.path(), "--exit-code"}).status, 0);
  EXPECT_EQ(json::parse(runTool({"diff", before.path(), after.path(), "--json"}).out)["jobs"].size(), 2U);
  EXPECT_THAT(runTool({"diff", before.path(), after.path(), "--format", "markdown"}).out,
              HasSubstr("| came | job | sub/three |\n"));
}

TEST(QvreposDiff, OfTheSameSaysSo) {
  const TempDir folder;
  writeChain(folder);
  const auto run = runTool({"diff", folder.path(), folder.path()});
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.err, "qvrepos: no difference\n");
}

TEST(QvreposDiff, ComparesASavedGraphWithAFolder) {
  const TempDir folder;
  writeChain(folder);
  const TempDir saved;
  ASSERT_EQ(runTool({"graph", folder.path(), "--json", "-o", saved / "old.json"}).status, 0);
  EXPECT_EQ(runTool({"diff", saved / "old.json", folder.path(), "--exit-code"}).status, 0);
}

TEST(QvreposDiff, OfWhatIsNotThereIsNoDifference) {
  const TempDir folder;
  writeChain(folder);
  const auto run = runTool({"diff", folder / "gone", folder.path()});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.err, "qvrepos: " + (folder / "gone") + ": no such file or folder\n");
}

TEST(QvreposDiff, TellsAFailureFromADifference) {
  const TempDir folder;
  writeChain(folder);
  const auto statusOf = [&](Words words) {
    words.insert(words.begin(), {"diff", "--exit-code", folder.path(), folder / "sub"});
    return runTool(words).status;
  };
  EXPECT_EQ(statusOf({}), 1);
  EXPECT_EQ(runTool({"diff", "--exit-code", folder.path(), folder / "gone"}).status, 2);
  EXPECT_EQ(statusOf({"-o", folder / "gone/result"}), 2);
  EXPECT_EQ(statusOf({"--config", folder / "gone"}), 2);
  folder.write("sub/broken.djf", "<a");
  EXPECT_EQ(statusOf({}), 2);
}

TEST(QvreposAudit, TellsAFailureFromAFinding) {
  const TempDir folder;
  writeChain(folder);
  EXPECT_EQ(runTool({"audit", "--fail-on", "never-read", folder.path()}).status, 1);
  EXPECT_EQ(runTool({"audit", "--fail-on", "never-read", folder.path(), folder / "gone"}).status, 2);
  EXPECT_EQ(runTool({"audit", "--fail-on", "cycle", folder / "gone"}).status, 2);
  EXPECT_EQ(runTool({"audit", folder / "gone"}).status, 1);
}

TEST(QvreposAudit, ShowsWhatLooksWrongAndWhere) {
  const TempDir folder;
  writeChain(folder);
  const auto run = runTool({"audit", folder.path()});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_THAT(run.out, AllOf(StartsWith("KIND "), HasSubstr("never-written  Warehouse.dw.a "),
                             HasSubstr("never-read     Warehouse.dw.c "), HasSubstr("/sub/two.djf\n")));
  const auto records = json::parse(runTool({"audit", folder.path(), "--json"}).out);
  ASSERT_EQ(records.size(), 2U);
  EXPECT_EQ(records[0]["kind"], "never-written");
  EXPECT_EQ(records[0]["nodes"][0]["name"], "Warehouse.dw.a");
  EXPECT_EQ(records[0]["files"], json::array({folder / "one.djf"}));
}

TEST(QvreposAudit, FailsOnWhatItIsTold) {
  const TempDir folder;
  writeChain(folder);
  const auto run = runTool({"audit", folder.path(), "--fail-on", "cycle,never-read", "-q"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err, "qvrepos: 1 finding of the kind never-read\n");
  EXPECT_EQ(runTool({"audit", folder.path(), "--fail-on", "cycle,case-only"}).status, 0);
}

} // namespace
