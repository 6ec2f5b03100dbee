// Names that need quoting somewhere on their way (in a shell, a URI, XML, JSON, a table) go through every subcommand
// unharmed.
#include "support/tool.h"

#include "qvxbase/qvbreleased.h"
#include "qvxbase/qvuri.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

using nlohmann::ordered_json;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

namespace {

const std::string job = R"(<SQLUpdateRows>
  <DatabaseConnectionObject Name="Sales" DbDACType="ODBC"/>
  <Create TargetName="dbo.orders"/>
</SQLUpdateRows>
)";

class OddName : public testing::TestWithParam<std::string> {
protected:
  const std::string& name() const { return GetParam(); }
  // The name as that of a definition, which cannot hold these characters.
  std::string definitionName() const {
    std::string kept = name();
    std::erase_if(kept,
                  [](char c) { return std::string_view("/\\:;,?*<>|").find(c) != std::string_view::npos; });
    return kept;
  }
  // What a command prints that succeeds with no word on standard error but its closing count.
  static std::string printed(const std::vector<std::string>& words) {
    const auto run = runTool(words);
    EXPECT_EQ(run.status, 0) << testing::PrintToString(words) << run.err;
    EXPECT_THAT(run.err, MatchesRegex("(qvrepos: [0-9]+ (job|resource)s?\n)?"))
        << testing::PrintToString(words);
    return run.out;
  }
  static ordered_json record(std::vector<std::string> words) {
    words.emplace_back("--json");
    return ordered_json::parse(printed(words));
  }
  static std::string withoutLineFeed(std::string line) {
    EXPECT_TRUE(line.ends_with('\n'));
    line.pop_back();
    return line;
  }

  const TempDir m_folder;
};

TEST_P(OddName, OfAJobIsTheLabelInItsLineage) {
  const auto file = m_folder.write("jobs/" + name() + ".djf", job);
  const auto named = record({"lineage", file});
  ASSERT_EQ(named.size(), 1U);
  EXPECT_EQ(named[0]["label"], name());
  EXPECT_EQ(record({"lineage", m_folder / "jobs"}), named);
  EXPECT_EQ(runProcess({toolPath, "lineage", "--json", "--", name() + ".djf"}, {}, "", m_folder / "jobs").out,
            printed({"lineage", file, "--json"}));
}

TEST_P(OddName, OfAFolderIsSearched) {
  m_folder.write(name() + "/one.djf", job);
  const auto found = runProcess({toolPath, "lineage", "--json", "--", name()}, {}, "", m_folder.path());
  EXPECT_EQ(found.status, 0) << found.err;
  EXPECT_EQ(ordered_json::parse(found.out).at(0).at("label"), "one");
}

TEST_P(OddName, OfTheOutputIsTheFilesName) {
  const auto file = m_folder.write("one.djf", job);
  EXPECT_EQ(printed({"lineage", file, "--output=" + (m_folder / name())}), "");
  EXPECT_EQ(m_folder.read(name()), printed({"lineage", file}));
}

TEST_P(OddName, OfAJobIsThatOfItsResource) {
  const auto file = m_folder.write(name() + ".djf", job);
  const auto resources = record({"resources", file});
  EXPECT_EQ(resources[0]["name"], name());
  const auto table = printed({"resources", file});
  EXPECT_EQ(std::count(table.begin(), table.end(), '\n'), static_cast<long>(resources.size()) + 1) << table;
}

// A job that makes nothing and reads a table of this name in a data source of this name.
std::string jobThatReads(const std::string& name) {
  const Released<QvURI> uri(
      getDataURIFromComponents("qvd", "", QvbString(name), "ODBC", "", "dbo", QvbString(name), ""));
  const QvbString reference = uri->asString();
  std::string address;
  for (const char byte : reference.view())
    address += byte == '&' ? "&amp;" : std::string(1, byte);
  return "<SQLUpdateRows><SourceTable Name=\"x\" PathURI=\"" + address + "\"/></SQLUpdateRows>";
}

// As a part of a data path.
std::string partOf(const std::string& name) {
  if (name.find_first_of(".\"") == std::string::npos)
    return name;
  std::string quoted = "\"";
  for (const char byte : name)
    quoted += byte == '"' ? "\"\"" : std::string(1, byte);
  return quoted + '"';
}

// As an expression that selects it alone.
std::string escaped(const std::string& name) {
  std::string expression;
  for (const char byte : name)
    (expression += '\\') += byte;
  return expression;
}

TEST_P(OddName, OfAJobATableAndADataSourceAreThoseOfTheirNodes) {
  const auto file = m_folder.write("jobs/" + name() + ".djf", jobThatReads(name()));
  const std::string table = partOf(name()) + ".dbo." + partOf(name());
  const auto namesIn = [](const ordered_json& graph) {
    std::map<std::string, std::string> names;
    for (const auto& node : graph["nodes"])
      names[node["type"]] = node["name"];
    return names;
  };
  const std::map<std::string, std::string> expected{
      {"job", name()}, {"table", table}, {"datasource", name()}};
  EXPECT_EQ(namesIn(record({"graph", m_folder / "jobs", "-q"})), expected);
  EXPECT_EQ(namesIn(record({"upstream", "-q", escaped(name()), file})), expected);
  EXPECT_EQ(namesIn(record({"graph", "--select=" + escaped(table) + "+", m_folder / "jobs", "-q"})),
            expected);
  EXPECT_EQ(
      runProcess({toolPath, "graph", "-q", "--json", "--", name() + ".djf"}, {}, "", m_folder / "jobs").out,
      printed({"graph", "-q", "--json", file}));
}

TEST_P(OddName, OfADataSourceIsMappedToANamespace) {
  const auto file = m_folder.write("one.djf", jobThatReads(name()));
  const auto event = ordered_json::parse(printed({"graph", file, "-q", "--format", "openlineage",
                                                  "--namespace=" + name() + "=postgres://db:5432/x?a=b"}));
  EXPECT_EQ(event["inputs"][0]["namespace"], "postgres://db:5432");
  EXPECT_EQ(event["inputs"][0]["facets"]["dataSource"]["name"], name());
}

TEST_P(OddName, OfAJobAndATableAreInDifferencesAndFindings) {
  const auto file = m_folder.write("jobs/" + name() + ".djf", jobThatReads(name()));
  const auto empty = m_folder.write("empty.djf", "<SQLUpdateRows/>");
  const auto changes = record({"diff", "-q", empty, file});
  EXPECT_EQ(changes["jobs"][0]["name"], name());
  const auto findings = record({"audit", "-q", file});
  EXPECT_EQ(findings[0]["files"][0], file);
  EXPECT_EQ(findings[0]["nodes"][0]["name"], partOf(name()) + ".dbo." + partOf(name()));
}

TEST_P(OddName, OfAFileComesBackFromItsUri) {
  const auto file = m_folder / name();
  const auto uri = withoutLineFeed(printed({"uri", file}));
  EXPECT_EQ(printed({"path", uri}), file + "\n");
  EXPECT_EQ(record({"uri", file}), ordered_json({{"file", file}, {"uri", uri}}));
  EXPECT_EQ(record({"path", uri}), ordered_json({{"file", file}, {"uri", uri}}));
}

TEST_P(OddName, OfARepositoryAndAFileInItComeBackFromTheirUri) {
  const auto vault = m_folder / ("vault " + name());
  const auto definitions = "BASE/REPOS_USER_PATH=" + (m_folder / "definitions");
  printed({"definitions", "create", "--vault", vault, "--set", definitions, "--", definitionName()});
  const auto file = vault + "/batch_jobs/" + name() + ".djf";
  const auto uri = withoutLineFeed(printed({"uri", file, "--set", definitions}));
  EXPECT_THAT(uri, testing::StartsWith("qvr://"));
  EXPECT_EQ(printed({"path", uri, "--set", definitions}), file + "\n");
}

TEST_P(OddName, OfAnythingComesBackFromItsIdentity) {
  const std::vector<std::vector<std::string>> kinds{{"file", "filename", "name"},
                                                    {"unified", "type", "id", "uuid"},
                                                    {"table", "dsn", "dsntype", "catalog", "schema", "table"},
                                                    {"datasource", "dsn", "dsntype"}};
  for (const auto& kind : kinds) {
    std::vector<std::string> make{"identity", "make", kind[0]};
    ordered_json expected{{"kind", kind[0]}};
    for (std::size_t field = 1; field < kind.size(); ++field) {
      make.push_back("--" + kind[field] + "=" + name());
      expected[kind[field]] = name();
    }
    const auto identity = withoutLineFeed(printed(make));
    EXPECT_EQ(record(make), ordered_json({{"kind", kind[0]}, {"identity", identity}}));
    EXPECT_EQ(record({"identity", "parse", identity}), expected);
  }
}

TEST_P(OddName, OfADefinitionIsKeptThroughItsLife) {
  const auto folder = "BASE/REPOS_USER_PATH=" + m_folder.path().string();
  const auto definition = definitionName(), renamed = definition + "2";
  const auto file = m_folder / (definition + ".rcf"), newFile = m_folder / (renamed + ".rcf");
  const auto words = [&](std::vector<std::string> command, const std::vector<std::string>& operands) {
    command.insert(command.begin(), "definitions");
    command.insert(command.end(), {"--set", folder, "--"});
    command.insert(command.end(), operands.begin(), operands.end());
    return command;
  };
  std::vector<std::string> create{"create"};
  for (const char* option : {"--connect", "--prefix", "--vault", "--log"})
    create.push_back(option + std::string("=/") + name());
  EXPECT_EQ(printed(words(create, {definition})), file + "\n");

  const auto shown = ordered_json::parse(printed(words({"show", "--json"}, {definition})));
  EXPECT_EQ(ordered_json::parse(printed(words({"list", "--json"}, {}))), ordered_json::array({shown}));
  EXPECT_EQ(shown["name"], definition);
  EXPECT_EQ(shown["vaultPath"], "/" + name());
  EXPECT_EQ(shown["vaultLogFile"], "/" + name());
  EXPECT_EQ(shown["connect"], "/" + name());
  EXPECT_EQ(shown["prefix"], "/" + name());
  EXPECT_EQ(shown["file"], file);
  EXPECT_EQ(printed(words({"default"}, {})), definition + "\n");
  EXPECT_EQ(printed(words({"check"}, {})), "1 definition loaded\n");
  EXPECT_EQ(printed(words({"set", "--connect=/" + name()}, {definition})), file + "\n");
  EXPECT_EQ(printed(words({"rename"}, {definition, renamed})), newFile + "\n");
  EXPECT_FALSE(std::filesystem::exists(file));
  EXPECT_EQ(printed(words({"delete"}, {renamed})), "");
  EXPECT_FALSE(std::filesystem::exists(newFile));
}

TEST_P(OddName, OfAFileIsThatOfItsCopy) {
  const auto source = m_folder.write("from/" + name(), "content of it");
  std::filesystem::create_directory(m_folder.path() / "to");
  EXPECT_EQ(printed({"cache", "get", source, "--output=" + (m_folder / "to")}),
            (m_folder / ("to/" + name())) + "\n");
  EXPECT_EQ(m_folder.read("to/" + name()), "content of it");
  const auto copied = record({"cache", "get", source, "--output=" + (m_folder / name())});
  EXPECT_EQ(copied, ordered_json::array({{{"uri", source}, {"file", m_folder / name()}}}));
  EXPECT_EQ(m_folder.read(name()), "content of it");
}

TEST_P(OddName, OfTheOptionFileIsRead) {
  const auto config = m_folder.write(name(), "[DMSERVER]\nNAME=main\n[LOG]\nLEVEL=2\n");
  EXPECT_THAT(runTool({"version", "--config=" + config}).err, HasSubstr("Startup of "));
}

TEST_P(OddName, IsNamedOnOneLineWhereNothingIsFound) {
  const auto gone = m_folder / ("no " + name());
  const auto one = m_folder.write("one.djf", job);
  const std::vector<std::vector<std::string>> commands{
      {"lineage", gone, "-q"}, {"graph", gone, "-q"},       {"audit", gone, "-q"},
      {"diff", gone, one},     {"resources", gone, "-q"},   {"definitions", "show", gone, "-q"},
      {"types", gone},         {"identity", "parse", gone}, {"path", "ftp:" + gone},
      {"cache", "get", gone}};
  for (const auto& words : commands) {
    const auto run = runTool(words);
    EXPECT_EQ(run.status, 1) << words[0];
    EXPECT_THAT(run.err, HasSubstr(m_folder.path().string())) << words[0];
    EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;
  }
}

// The library writes U+FFFD for what XML cannot carry.
TEST(LossyName, OfAJobComesWithAHint) {
  const TempDir folder;
  for (const char* name : {"a\x01", "a\xff", "a\xef\xbf\xbe", "a\xef\xbf\xbf"}) {
    const auto file = folder.write(std::string(name) + ".djf", job);
    for (const char* command : {"lineage", "resources"}) {
      const auto run = runTool({command, file});
      EXPECT_EQ(run.status, 0);
      EXPECT_THAT(run.err, HasSubstr(": the name holds what XML cannot carry, shown as U+FFFD; names that "
                                     "differ in nothing else look the same\n"))
          << command;
      EXPECT_THAT(run.err, HasSubstr(folder / "a")) << command;
      EXPECT_EQ(runTool({command, file, "-q"}).err, "");
    }
    std::filesystem::remove(file);
  }
}

TEST(WideCell, DoesNotWidenTheOtherRows) {
  const TempDir folder;
  const std::string wide(5000, 'x');
  folder.write("a.rcf", "<VaultRepositoryInfo Name=\"" + wide + "\"/>");
  for (int i = 0; i < 20; ++i)
    folder.write("b" + std::to_string(i) + ".rcf",
                 "<VaultRepositoryInfo Name=\"" + std::to_string(i) + "\"/>");
  const auto run =
      runTool({"definitions", "list", "--set", "BASE/REPOS_USER_PATH=" + folder.path().string()});
  EXPECT_THAT(run.out, HasSubstr(wide + "  user"));
  EXPECT_LT(run.out.size(), wide.size() + 21 * 300);
}

INSTANTIATE_TEST_SUITE_P(Names, OddName,
                         testing::Values("a b", "  edges  ", "quote\"d 'single'", "line\nfeed", "größe 名前",
                                         "100%20 & <x> ]]>", "[a,b]", "-dash", "tab\there", "$HOME;`id`",
                                         "hash#query?a=b", "list"));

} // namespace
