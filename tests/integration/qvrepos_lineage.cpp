#include "support/golden.h"
#include "support/lineagexml.h"
#include "support/tool.h"

#include "qvxbase/qvuri.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <regex>
#include <set>
#include <sstream>

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

namespace {

const std::string oneStep = R"(<SQLUpdateRows>
  <DatabaseConnectionObject Name="Sales" DbDACType="ODBC"/>
  <Create TargetName="dbo.orders"/>
</SQLUpdateRows>
)";

std::vector<std::string> labels(const std::map<std::string, LineageModel>& models) {
  std::vector<std::string> names;
  for (const auto& [label, model] : models)
    names.push_back(label);
  return names;
}

TEST(QvreposLineage, JsonHasEveryAttributeOfTheXml) {
  const auto xml = runTool({"lineage", "--config", sampleConfig, sampleRepository}).out;
  const auto json = runTool({"lineage", "--json", "--config", sampleConfig, sampleRepository}).out;
  std::set<std::string> names;
  const std::regex element("<Resource [^>]*>"), attribute(" (\\w+)=\"");
  for (std::sregex_iterator found(xml.begin(), xml.end(), element), end; found != end; ++found) {
    const auto text = found->str();
    for (std::sregex_iterator name(text.begin(), text.end(), attribute); name != end; ++name)
      names.insert(name->str(1));
  }
  EXPECT_THAT(names, testing::IsSupersetOf({"id", "label", "type"}));
  for (const auto& name : names)
    EXPECT_THAT(json, HasSubstr("\"" + name + "\": "));
}

TEST(QvreposLineage, PrintsTheSampleAndNamesItsMalformedFileWithLineAndColumn) {
  const auto run = runTool({"lineage", "--config", sampleConfig, sampleRepository});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.out, golden("sample-lineage.xml", run.out));
  EXPECT_THAT(run.err, HasSubstr("/batch_jobs/broken_export.djf:9:1: "));
  EXPECT_THAT(run.err, EndsWith("\nqvrepos: 41 jobs; 1 file failed\n"));
  EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 2) << run.err;
}

TEST(QvreposLineage, SampleIsAtLeastFourLevelsDeep) {
  const auto models = readLineage(runTool({"lineage", "--config", sampleConfig, sampleRepository}).out);
  EXPECT_EQ(models.size(), 41U);
  // Every job lists the table that it makes and those that it reads; a reader comes after the maker.
  const auto uses = [&](const std::string& job, const std::string& table) {
    const auto& used = models.at(job).dependencies;
    return std::any_of(used.begin(), used.end(),
                       [&](const LineageResource& r) { return r.dataPath == table; });
  };
  const std::vector<std::pair<std::string, std::string>> chain{
      {"stage_orders", "Warehouse.staging.orders"},
      {"clean_orders", "Warehouse.staging.orders"},
      {"clean_orders", "Warehouse.dw.orders"},
      {"mart_daily_sales", "Warehouse.dw.orders"},
      {"mart_daily_sales", "Warehouse.mart.daily_sales"},
      {"report_board", "Warehouse.mart.daily_sales"},
      {"report_board", "Warehouse.report.board"},
      {"publish_scorecard", "Warehouse.report.board"}};
  for (const auto& [job, table] : chain)
    EXPECT_TRUE(uses(job, table)) << job << " " << table;
}

TEST(QvreposLineage, JobsOfTheBatchFolderGetTheIdentityOfTheServer) {
  const auto models = readLineage(runTool({"lineage", "--config", sampleConfig, sampleRepository}).out);
  EXPECT_EQ(models.at("clean_orders").resource.id,
            "dmsref://warehouse/batch_jobs/clean_orders.djf?ServiceType=BATCH&ObjectType=ProcessJob");
  EXPECT_EQ(
      models.at("report_board").resource.id,
      "dmsref://warehouse/process_services/report_board.djf?ServiceType=REALTIME&ObjectType=ProcessJob");
  EXPECT_EQ(models.at("mart_store_sales").resource.id,
            "qvr://Sales/data_services/mart_store_sales?type=ArchitectJob");
}

TEST(QvreposLineage, TellsOfFilesInTheirOrderWhoeverReadsThem) {
  const TempDir folder;
  std::string failures, unknown;
  for (int i = 100; i < 300; ++i) {
    const std::string name = "job_" + std::to_string(i) + ".djf";
    if (i % 3 == 0)
      failures += "qvrepos: " + folder.write(name, "<SQLUpdateRows>\n<") + ":2:2: ";
    else if (i % 3 == 1)
      unknown += "qvrepos: " + folder.write(name, "<Step/>") + ": no step";
    else
      folder.write(name, oneStep);
  }
  const auto run = runTool({"lineage", folder.path()});
  EXPECT_EQ(run.status, 1);
  std::string told;
  std::istringstream lines(run.err);
  for (std::string line; std::getline(lines, line);)
    if (const auto name = line.find(".djf"); name != std::string::npos)
      told += line.substr(0, name + std::string_view(line[name + 4] == ':' && line[name + 5] == '2'
                                                         ? ".djf:2:2: "
                                                         : ".djf: no step")
                                        .size());
  EXPECT_EQ(told, failures + unknown);
  EXPECT_THAT(run.err, EndsWith("\nqvrepos: 67 jobs; 66 files failed, 67 not understood\n"));
}

TEST(QvreposLineage, SearchesFoldersToAnyDepthForJobFilesAlone) {
  const TempDir folder;
  folder.write("a/b/c/deep.djf", oneStep);
  folder.write("a/upper.DDF", oneStep);
  folder.write("query.xsq", oneStep);
  folder.write("architect.dmc", oneStep);
  folder.write("notes.txt", "no job");
  folder.write("profile.pfi.ueo", "no job");
  const auto run = runTool({"lineage", folder.path()});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_THAT(labels(readLineage(run.out)), ElementsAre("architect", "deep", "query", "upper"));
}

TEST(QvreposLineage, DoesNotFollowLinksToFoldersRoundInCircles) {
  const TempDir folder;
  folder.write("a/job.djf", oneStep);
  std::filesystem::create_directory_symlink(folder.path(), folder.path() / "a/again");
  const auto run = runTool({"lineage", folder.path()});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(readLineage(run.out).size(), 1U);
}

TEST(QvreposLineage, NamesWhatItCannotLookAt) {
  const TempDir folder;
  folder.write("one.djf", oneStep);
  std::filesystem::create_symlink("nowhere.djf", folder.path() / "link.djf");
  std::filesystem::create_symlink("nowhere.txt", folder.path() / "link.txt");
  const auto run = runTool({"lineage", folder.path()});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err, "qvrepos: " + (folder / "link.djf") +
                         ": No such file or directory\nqvrepos: 1 job; 1 file failed\n");
  EXPECT_THAT(labels(readLineage(run.out)), ElementsAre("one"));
}

TEST(QvreposLineage, NamesAFolderThatIsTooDeepToBeSearched) {
  const TempDir folder;
  const std::string name(200, 'd');
  const auto run = runProcess({"bash", "-c",
                               "for i in {1..25}; do mkdir \"$0\" && cd \"$0\"; done; cd \"$1\"; " +
                                   toolPath + " lineage .; status=$?; rm -r \"$0\"; exit $status",
                               name, folder.path()},
                              {}, "", folder.path());
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr(": File name too long"));
}

TEST(QvreposLineage, TakesAFileUri) {
  const TempDir folder;
  const auto file = folder.write("a b.djf", oneStep);
  const auto run = runTool({"lineage", "file://" + (folder / "a%20b.djf")});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out, runTool({"lineage", file}).out);
}

TEST(QvreposLineage, ReadsAFileThatIsNamedWhateverItsExtension) {
  const TempDir folder;
  const auto run = runTool({"lineage", folder.write("step.xml", oneStep)});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_THAT(labels(readLineage(run.out)), ElementsAre("step.xml"));
}

TEST(QvreposLineage, IdentitiesDoNotDependOnWhereItIsRun) {
  const TempDir folder;
  folder.write("jobs/one.djf", oneStep);
  const auto from = [&](const std::string& where, const std::string& path) {
    return runProcess({toolPath, "lineage", path}, {}, "", where).out;
  };
  const auto expected = from("/", folder / "jobs");
  EXPECT_THAT(expected, HasSubstr("one.djf"));
  EXPECT_EQ(from(folder.path(), "jobs"), expected);
  EXPECT_EQ(from(folder / "jobs", "."), expected);
  EXPECT_EQ(from(folder / "jobs", "../jobs/one.djf"), expected);
}

TEST(QvreposLineage, AUriThatNamesNoFileIsToldFromAMissingOne) {
  const auto run = runTool({"lineage", "http://host/jobs", "file:///no/such.djf"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err,
            "qvrepos: http://host/jobs: this URI names no file of this machine; name a file or a folder\n"
            "qvrepos: /no/such.djf: no such file or folder\nqvrepos: 0 jobs; 2 files failed\n");
}

TEST(QvreposLineage, MissingPathIsNamedAndTheOthersStillCount) {
  const TempDir folder;
  const auto run = runTool({"lineage", folder / "gone.djf", folder.write("one.djf", oneStep)});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err, "qvrepos: " + (folder / "gone.djf") +
                         ": no such file or folder\nqvrepos: 1 job; 1 file failed\n");
  EXPECT_THAT(labels(readLineage(run.out)), ElementsAre("one"));
}

TEST(QvreposLineage, CompactOutputHoldsTheSameWithoutWhiteSpace) {
  const auto wide = runTool({"lineage", "--config", sampleConfig, sampleRepository});
  const auto compact = runTool({"lineage", "--compact", "--config", sampleConfig, sampleRepository});
  EXPECT_EQ(std::count(compact.out.begin(), compact.out.end(), '\n'), 1);
  EXPECT_THAT(compact.out, Not(HasSubstr("> <")));
  const auto wideModels = readLineage(wide.out), compactModels = readLineage(compact.out);
  EXPECT_EQ(labels(wideModels), labels(compactModels));
}

TEST(QvreposLineage, WritesToAFileWhenAsked) {
  const TempDir folder;
  const auto printed = runTool({"lineage", folder.write("one.djf", oneStep)});
  const auto run = runTool({"lineage", folder / "one.djf", "-o", folder / "out.xml"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(folder.read("out.xml"), printed.out);
}

TEST(QvreposLineage, OutputThatCannotBeWrittenFailsWithTheReason) {
  const TempDir folder;
  const auto job = folder.write("one.djf", oneStep);
  const auto run = runTool({"lineage", job, "-o", folder / "missing/out.xml"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err, "qvrepos: cannot write " + (folder / "missing/out.xml") + ": there is no folder " +
                         (folder / "missing") + "; make it first\nqvrepos: 1 job\n");

  const auto full = runProcess({toolPath, "lineage", job}, {}, "/dev/full");
  EXPECT_EQ(full.status, 1);
  EXPECT_EQ(full.err,
            "qvrepos: 1 job\nqvrepos: cannot write the result to standard output: No space left on device\n");
}

TEST(QvreposLineage, ShowsProgressOnATerminalUnlessItIsQuiet) {
  const TempDir folder;
  for (int i = 0; i < 25; ++i)
    folder.write("job" + std::to_string(i) + ".djf", oneStep);
  const auto onTerminal = [&](const std::string& options) {
    const std::string command =
        toolPath + " lineage " + folder.path().string() + " -o " + (folder / "out.xml") + options;
    return runProcess({"script", "--quiet", "--return", "--command", command, "/dev/null"});
  };
  const auto shown = onTerminal("");
  EXPECT_EQ(shown.status, 0);
  EXPECT_THAT(shown.out, HasSubstr("25 of 25 files"));
  EXPECT_EQ(onTerminal(" --quiet").out, "");
  EXPECT_EQ(runTool({"lineage", folder.path()}).err, "qvrepos: 25 jobs\n");
}

TEST(QvreposLineage, JsonHoldsWhatTheXmlHolds) {
  const auto xml = readLineage(runTool({"lineage", "--config", sampleConfig, sampleRepository}).out);
  const auto json =
      nlohmann::json::parse(runTool({"lineage", "--json", "--config", sampleConfig, sampleRepository}).out);
  const auto resource = [](const nlohmann::json& record) {
    return LineageResource{record["type"], record["label"], record["id"], record.value("dataPath", "")};
  };
  ASSERT_EQ(json.size(), xml.size());
  for (const auto& model : json) {
    const auto& expected = xml.at(model["label"]);
    EXPECT_EQ(resource(model), expected.resource);
    std::vector<LineageResource> uses;
    for (const auto& used : model["uses"])
      uses.push_back(resource(used));
    EXPECT_EQ(uses, expected.dependencies);
  }
}

TEST(QvreposLineage, TenThousandJobFilesAreReadWithABarAndEachIsThere) {
  const TempDir folder;
  for (int i = 0; i < 10000; ++i)
    folder.write("part" + std::to_string(i % 10) + "/job" + std::to_string(i) + ".djf", oneStep);
  const std::string command =
      toolPath + " lineage --compact " + folder.path().string() + " -o " + (folder / "out.xml");
  const auto run = runProcess({"script", "--quiet", "--return", "--command", command, "/dev/null"});
  EXPECT_EQ(run.status, 0) << run.out;
  EXPECT_THAT(run.out, HasSubstr("10000 of 10000 files"));
  const auto models = readLineage(folder.read("out.xml"));
  EXPECT_EQ(models.size(), 10000U);
  for (int i = 0; i < 10000; ++i)
    EXPECT_EQ(models.count("job" + std::to_string(i)), 1U) << i;
}

TEST(QvreposLineage, WrongUsageExitsWithTwo) {
  EXPECT_EQ(runTool({"lineage"}).status, 2);
  EXPECT_EQ(runTool({"lineage", "--no-such-flag", "x"}).status, 2);
  EXPECT_EQ(runTool({"no-such-command"}).status, 2);
  EXPECT_EQ(runTool({}).status, 2);
  EXPECT_EQ(runTool({"lineage", "/", "--set", "novalue"}).status, 2);
  EXPECT_EQ(runTool({"lineage", "--help"}).status, 0);
}

TEST(QvreposLineage, RefusesEntitiesAndDocumentTypesByNameLineAndColumn) {
  const TempDir folder;
  const auto secret = folder.write("secret.txt", "never to be shown");
  folder.write("external.djf", "<!DOCTYPE SQLUpdateRows [<!ENTITY x SYSTEM \"file://" + secret +
                                   "\">]>\n<SQLUpdateRows><SourceTable Name=\"&x;\"/></SQLUpdateRows>");
  const auto run = runTool({"lineage", folder.path()});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr("external.djf:1:"));
  EXPECT_THAT(run.out, Not(HasSubstr("never to be shown")));
}

// Real models, written as job files: half of the tables by address and half by bare name, all six step kinds.

struct Model {
  std::string path;
  std::string made;
  std::vector<std::string> read;
};

std::vector<Model> readModels() {
  std::vector<Model> models;
  std::ifstream in(QV_TEST_DATA "/health-models.tsv");
  for (std::string line; std::getline(in, line);) {
    std::istringstream fields(line);
    Model model;
    std::getline(fields, model.path, '\t');
    std::getline(fields, model.made, '\t');
    for (std::string table; std::getline(fields, table, '\t');)
      model.read.push_back(table);
    models.push_back(model);
  }
  return models;
}

struct TableName {
  explicit TableName(const std::string& full)
      : schema(full.substr(0, full.find('.'))), table(full.substr(full.find('.') + 1)) {}
  std::string schema;
  std::string table;
};

// Which tables are named bare is fixed by their name, so that every model names one the same way.
bool isBare(const std::string& table) { return std::hash<std::string>{}(table) % 2 == 0; }

std::string sourceElement(const std::string& full) {
  if (isBare(full))
    return "<SourceTable Name=\"" + full + "\"/>";
  const TableName name(full);
  QvURI* uri =
      getDataURIFromComponents("qvd", "", "Health", "ODBC", "", text(name.schema), text(name.table), "");
  std::string address = str(uri->asString());
  uri->release();
  for (std::size_t at = 0; (at = address.find('&', at)) != std::string::npos; at += 5)
    address.replace(at, 1, "&amp;");
  return "<SourceTable Name=\"" + name.table + "\" PathURI=\"" + address + "\"/>";
}

LineageResource madeTable(const std::string& full) {
  const TableName name(full);
  return {"Table", name.table, "qvd:///Health?schema=" + name.schema + "&table=" + name.table,
          "Health." + name.schema + "." + name.table};
}

LineageResource readTable(const std::string& full) {
  if (!isBare(full))
    return madeTable(full);
  return {"Table", full,
          "<morvaxeldocument class=\"tableresource\" version=\"1\"><resource><tabledatasource dsn=\"\" "
          "dsntype=\"\" "
          "table=\"" +
              full + "\"/></resource></morvaxeldocument>",
          ""};
}

TEST(QvreposLineage, EveryEdgeLabelAndDataPathOfRealModelsComesBack) {
  const char* const steps[] = {"QueryBuilderService",          "SQLCreateTableSelect",
                               "SQLInsertRowsSelect",          "SQLInsertRowsQueryReference",
                               "SQLCreateTableQueryReference", "SQLUpdateRows"};
  const char* const extensions[] = {".djf", ".dmc", ".ddf", ".xsq"};
  const TempDir folder;
  const auto models = readModels();
  ASSERT_EQ(models.size(), 1054U);
  std::size_t edges = 0;
  for (std::size_t i = 0; i < models.size(); ++i) {
    const std::string step = steps[i % 6];
    std::string job = "<" + step + "><DatabaseConnectionObject Name=\"Health\" DbDACType=\"ODBC\"/>";
    job += "<Create TargetName=\"" + models[i].made + "\"/><From>";
    for (const auto& table : models[i].read)
      job += sourceElement(table);
    edges += models[i].read.size();
    folder.write(models[i].path + extensions[i % 4], job + "</From></" + step + ">");
  }
  ASSERT_EQ(edges, 2731U);

  const auto run = runTool({"lineage", folder.path()});
  ASSERT_EQ(run.status, 0) << run.err;
  const auto lineage = readLineage(run.out);
  ASSERT_EQ(lineage.size(), models.size());
  for (const auto& model : models) {
    const auto name = model.path.substr(model.path.rfind('/') + 1);
    std::set<LineageResource> expected{madeTable(model.made)};
    for (const auto& table : model.read)
      expected.insert(readTable(table));
    std::set<LineageResource> found;
    for (const auto& resource : lineage.at(name).dependencies)
      if (resource.type == "Table")
        found.insert(resource);
    EXPECT_EQ(found, expected) << name;
  }
}

} // namespace
