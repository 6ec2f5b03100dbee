#include "qvlineagegraph/json.h"

#include "support/graphtext.h"
#include "support/healthmodels.h"
#include "support/process.h"
#include "support/tempdir.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <rapidcheck/gtest.h>

#include <array>

using namespace qvlineagegraph;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

std::string saved(const Graph& graph, ViewKind kind = ViewKind::All) {
  std::string out;
  writeJson(View(graph, kind), out);
  return out;
}

Graph restored(const std::string& text) {
  auto graph = readJson(text);
  EXPECT_TRUE(graph.ok()) << (graph ? "" : graph.error().message);
  return graph ? std::move(*graph) : Graph();
}

std::string refusal(std::string_view text) {
  const auto graph = readJson(text);
  EXPECT_FALSE(graph.ok()) << text;
  return graph ? "" : graph.error().message;
}

Graph sample() {
  GraphBuilder builder;
  const auto job = builder.add({.type = NodeType::Job,
                                .name = "load",
                                .identity = "/j/load.djf",
                                .file = "/j/load.djf",
                                .kind = "ArchitectJob"});
  const auto source =
      builder.add({.type = NodeType::DataSource, .name = "S", .identity = "s id", .kind = "ODBC"});
  const auto table =
      builder.add({.type = NodeType::Table, .name = "S.t", .identity = "<t a=\"\"/>", .source = source});
  builder.addEdge({table, job, Access::Read, true});
  builder.addNote({NoteKind::UnusableName, job, "/j/load.djf", "Create \"a.b.c.d\" is not"});
  builder.addNote({NoteKind::Failed, noNode, "/j/x.djf", "/j/x.djf:1:1: bad"});
  return builder.build();
}

} // namespace

TEST(SavedGraph, HasThisForm) {
  EXPECT_EQ(saved(sample()), R"({"format":"qvlineagegraph","version":1,
"nodes":[
{"type":"job","name":"load","identity":"/j/load.djf","file":"/j/load.djf","kind":"ArchitectJob"},
{"type":"datasource","name":"S","identity":"s id","kind":"ODBC"},
{"type":"table","name":"S.t","identity":"<t a=\"\"/>","source":1}],
"edges":[
{"from":2,"to":0,"access":"read","inferred":true}],
"notes":[
{"kind":"unusable-name","node":0,"file":"/j/load.djf","text":"Create \"a.b.c.d\" is not"},
{"kind":"failed","file":"/j/x.djf","text":"/j/x.djf:1:1: bad"}]}
)");
}

TEST(SavedGraph, ComesBackAsItWas) {
  EXPECT_EQ(wholeText(restored(saved(sample()))), wholeText(sample()));
  EXPECT_EQ(wholeText(restored(saved(Graph()))), wholeText(Graph()));
  const Graph models = graphOf(healthModels());
  EXPECT_EQ(wholeText(restored(saved(models))), wholeText(models));
}

TEST(SavedGraph, OfAPartHoldsWhatThePartNeeds) {
  const Graph graph = graphOf({{"m", "dw.t", {"dw.s"}}, {"n", "dw.u", {"dw.t"}}});
  const View all(graph);
  const NodeIndex part[] = {1, 2};
  std::string out;
  writeJson(all.induced(part), out);
  EXPECT_THAT(nodeTexts(restored(out)),
              ElementsAre("datasource Health", "job m", "table Health.dw.s in Health"));
  EXPECT_THAT(edgeTexts(restored(out)), ElementsAre("Health.dw.s read m"));
  EXPECT_THAT(edgeTexts(restored(saved(graph, ViewKind::Tables))),
              testing::UnorderedElementsAre("Health.dw.s via Health.dw.t", "Health.dw.t via Health.dw.u"));
}

TEST(SavedGraph, OfAPartHasTheNotesOfItsNodesAndThoseOfNone) {
  GraphBuilder builder;
  const auto here = builder.add({.type = NodeType::Job, .name = "here"});
  const auto there = builder.add({.type = NodeType::Job, .name = "there"});
  builder.addNote({NoteKind::Spelling, there, "/there", "of what is left out"});
  builder.addNote({NoteKind::Spelling, here, "/here", "of what is shown"});
  builder.addNote({NoteKind::Failed, noNode, "/x", "of a file"});
  const Graph graph = builder.build();
  std::string out;
  writeJson(View(graph).induced(std::array{here}), out);
  EXPECT_THAT(noteTexts(restored(out)),
              ElementsAre("spelling|here|/here|of what is shown", "failed||/x|of a file"));
}

RC_GTEST_PROP(SavedGraph, CarriesEveryText, ()) {
  GraphBuilder builder;
  const auto characters = rc::gen::element<std::string>("a", " ", "\"", "'", "\n", "\t", "\\", "<b>", "&",
                                                        "[", "]", "{", ",", "\x01", "\x7f", "\xc3\xa9",
                                                        "\xe2\x82\xac", "\xf0\x9f\x90\xb8", "\xe2\x80\xa8");
  const auto word = rc::gen::map(rc::gen::container<std::vector<std::string>>(characters),
                                 [](const std::vector<std::string>& parts) {
                                   std::string all = "x";
                                   for (const auto& part : parts)
                                     all += part;
                                   return all;
                                 });
  for (int i = 0; i < 5; ++i) {
    const std::string name = *word, identity = *word, file = *word, kind = *word;
    builder.add({.type = NodeType::Job, .name = name, .identity = identity, .file = file, .kind = kind});
  }
  builder.addNote({NoteKind::Spelling, 0, *word, *word});
  const Graph graph = builder.build();
  const std::string text = saved(graph);
  RC_ASSERT(wholeText(restored(text)) == wholeText(graph));
  RC_ASSERT(nlohmann::json::parse(text)["nodes"][0]["name"] == std::string(graph.name(0)));
}

TEST(SavedGraph, HoldsNoBrokenUtf8) {
  GraphBuilder builder;
  builder.add({.type = NodeType::Job, .name = "a\xff z"});
  EXPECT_THAT(nodeTexts(restored(saved(builder.build()))), ElementsAre("job a\xef\xbf\xbd z"));
}

TEST(SavedGraph, IsReadByAnotherProgram) {
  const TempDir folder;
  const auto path = folder.write("graph.json", saved(sample()));
  const auto run = runProcess({"python3", "-c",
                               "import json,sys; g=json.load(open(sys.argv[1])); "
                               "print(g['nodes'][g['edges'][0]['from']]['identity'], g['version'])",
                               path});
  EXPECT_EQ(run.out, "<t a=\"\"/> 1\n") << run.err;
}

TEST(SavedGraph, KeepsToItsSchema) {
  const TempDir folder;
  const auto check = [&](const std::string& text) {
    return runProcess(
        {"python3", "-c",
         "import json,sys,jsonschema; jsonschema.Draft202012Validator(json.load(open(sys.argv[1])))"
         ".validate(json.load(open(sys.argv[2])))",
         QV_SOURCE_DIR "/docs/schemas/lineage-graph.schema.json", folder.write("graph.json", text)});
  };
  for (const auto& text :
       {saved(sample()), saved(Graph()), saved(graphOf(healthModels()), ViewKind::Tables)}) {
    const auto run = check(text);
    EXPECT_EQ(run.status, 0) << run.err;
  }
  std::string odd = saved(sample());
  odd.replace(odd.find("\"read\""), 6, "\"eats\"");
  EXPECT_NE(check(odd).status, 0);
}

TEST(SavedGraph, MayHaveItsMembersInAnyOrder) {
  EXPECT_THAT(
      edgeTexts(restored(R"( { "notes" : [ ] , "edges" : [ {"inferred":true, "more":[1,{"x":"]"}], "to":0,
    "from":1, "access":"read"} ], "extra": {"a":[{}, "}"]}, "nodes": [ {"name":"a", "type":"job"},
    {"source":2, "name":"t", "type":"table"}, {"type":"datasource","name":"S"} ], "version" : 1, "what": null,
    "format":"qvlineagegraph" } )")),
      ElementsAre("t read a inferred"));
}

TEST(SavedGraph, PassesOverWhatItHasNoUseForUnread) {
  EXPECT_EQ(
      restored(R"({"format":"qvlineagegraph","version":1,"other":{"a":[01,tru],},"nodes":[{"type":"job"}]})")
          .nodeCount(),
      1U);
}

TEST(SavedGraph, NeedsNoEdgesAndNotes) {
  EXPECT_EQ(restored(R"({"format":"qvlineagegraph","version":1})").nodeCount(), 0U);
}

TEST(SavedGraph, IsRefusedWhereItIsNone) {
  const std::string head = R"({"format":"qvlineagegraph","version":1,)";
  for (const std::string text :
       {"", " ", "[]", "{", "{}", "{\"format\":\"qvlineagegraph\"}", "{\"format\":\"other\",\"version\":1}",
        "{\"format\":\"qvlineagegraph\",\"version\":2}", "{\"format\":\"qvlineagegraph\",\"version\":\"1\"}",
        "nonsense", "{\"format\":\"qvlineagegraph\",\"version\":1} x",
        "{\"format\":\"qvlineagegraph\",\"version\":1", "{\"format\":\"qvlineagegraph\" \"version\":1}",
        "{\"format\":\"qvlineagegraph\",\"version\":1,\"open"})
    EXPECT_THAT(refusal(text), HasSubstr("no saved graph: ")) << text;
  EXPECT_THAT(refusal(R"({"format":"qvlineagegraph","version":2})"),
              HasSubstr("no saved graph: its version is 2, and the one that is read here is 1"));
  for (const std::string rest :
       {R"("nodes":{}})",
        R"("nodes":[1]})",
        R"("nodes":[{"name":"a"}]})",
        R"("nodes":[{"type":"cat"}]})",
        R"("nodes":[{"type":"job","name":3}]})",
        R"("nodes":[{"type":"job"},]})",
        R"("nodes":[{"type":"job"} {}]})",
        R"("nodes":[{"type":"job"}}]})",
        R"("nodes":[{"type":"job"})",
        R"("nodes":[{"type":"job","name":"open)",
        R"("nodes" [] })",
        R"("nodes":,"edges":[]})",
        R"("edges":[{"from":0,"to":0,"access":"read"}]})",
        R"("edges":[{"to":0}]})",
        R"("nodes":[{"type":"job"}],"edges":[{"from":0,"to":-1}]})",
        R"("nodes":[{"type":"job"}],"edges":[{"from":0,"to":99999999999}]})",
        R"("nodes":[{"type":"job"}],"edges":[{"from":0,"to":0,"access":"eats"}]})",
        R"("nodes":[{"type":"table","name":"t","source":4}]})",
        R"("nodes":[{"type":"job","name":"j","source":1},{"type":"datasource","name":"S"}]})",
        R"("nodes":[{"type":"table","name":"t","source":0}]})",
        R"("nodes":[{"type":"datasource","name":"R","source":0}]})",
        R"("nodes":[{"type":"datasource"},{"type":"job"}],"edges":[{"from":0,"to":1}]})",
        R"("nodes":[{"type":"datasource"},{"type":"job"}],"edges":[{"from":1,"to":0}]})",
        R"("notes":[{"kind":"failed","node":0}]})",
        R"("notes":[{"kind":"odd"}]})",
        "\"nodes\":[{\"type\":\"job\",\"name\":\"\xff\"}]}"})
    EXPECT_THAT(refusal(head + rest), HasSubstr("no saved graph: ")) << rest;
}

TEST(SavedGraph, IsReadFromAFileOrNamesIt) {
  const TempDir folder;
  const auto path = folder.write("graph.json", saved(sample()));
  const auto graph = readJsonFile(path);
  ASSERT_TRUE(graph.ok());
  EXPECT_EQ(wholeText(*graph), wholeText(sample()));
  const auto missing = readJsonFile(folder / "missing");
  ASSERT_FALSE(missing.ok());
  EXPECT_EQ(missing.error().kind, ErrorKind::Unreadable);
  EXPECT_THAT(missing.error().message, HasSubstr(folder / "missing"));
  EXPECT_FALSE(readJsonFile(folder.path().string()).ok());
  // Whose first page nothing lies in: it can be opened, and not read.
  const auto unreadable = readJsonFile("/proc/self/mem");
  ASSERT_FALSE(unreadable.ok());
  EXPECT_EQ(unreadable.error().message, "/proc/self/mem: cannot be read");
  const auto broken = readJsonFile(folder.write("broken.json", "{"));
  ASSERT_FALSE(broken.ok());
  EXPECT_EQ(broken.error().kind, ErrorKind::Malformed);
  EXPECT_THAT(broken.error().message, HasSubstr("broken.json: no saved graph: byte 1"));
}

// Longer than what is read at once, in every part.
TEST(SavedGraph, MayBeLong) {
  GraphBuilder builder;
  const std::string filling(700, 'f');
  for (int i = 0; i < 3000; ++i)
    builder.add({.type = NodeType::Job, .name = std::to_string(i) + "\"\\" + filling});
  builder.add({.type = NodeType::Job, .name = std::string(900'000, '"')});
  const auto table = builder.add({.type = NodeType::Table, .name = "t"});
  for (NodeIndex i = 0; i < 3000; ++i)
    builder.addEdge({table, i, Access::Read, i % 3 == 0});
  const Graph graph = builder.build();
  EXPECT_EQ(wholeText(restored(saved(graph))), wholeText(graph));
}
