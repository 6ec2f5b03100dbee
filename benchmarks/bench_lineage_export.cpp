// A dependency graph of tables: their identities made, the store built, and all of it written as lineage XML.
//   build/benchmark/bin/bench_lineage_export NAME [GRAPH]
// GRAPH is a file of lines "from TAB to", or the number of tables of a graph that is generated in the shape of a package
// index: 63666 tables with 283,161 edges, most of them to a few that nearly everybody needs.
#include "bench.h"

#include "qvreposres/qvlineage.h"
#include "qvreposres/qvresourcemgr.h"
#include "qvxbase/qvbreleased.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <fstream>
#include <map>
#include <random>
#include <unordered_map>

namespace {

constexpr std::size_t tablesOfTheIndex = 63'666;
constexpr std::size_t edgesOfTheIndex = 283'161;
constexpr const char* dataSource = "packages";
constexpr const char* schema = "main";

struct Graph {
  std::vector<std::string> names;
  std::vector<std::vector<std::size_t>> uses; // of each table that uses any
};

class GraphReader {
public:
  Graph read(const std::string& path) {
    std::ifstream file(path);
    if (!file)
      throw std::runtime_error("cannot read " + path);
    for (std::string line; std::getline(file, line);) {
      const auto tab = line.find('\t');
      if (tab == std::string::npos)
        throw std::runtime_error(path + ": no tab in \"" + line + "\"");
      const auto from = numberOf(line.substr(0, tab));
      const auto to = numberOf(line.substr(tab + 1));
      m_graph.uses[from].push_back(to);
    }
    return std::move(m_graph);
  }

private:
  std::size_t numberOf(const std::string& name) {
    const auto [known, isNew] = m_numbers.try_emplace(name, m_graph.names.size());
    if (isNew) {
      m_graph.names.push_back(name);
      m_graph.uses.emplace_back();
    }
    return known->second;
  }

  Graph m_graph;
  std::unordered_map<std::string, std::size_t> m_numbers;
};

Graph generate(std::size_t tables) {
  constexpr const char* const prefixes[] = {"lib",   "python3-", "ruby-", "golang-",
                                            "node-", "texlive-", "",      ""};
  constexpr const char* const suffixes[] = {"", "-dev", "-common", "-doc", "1", "0.9-data", "++", "-dbg"};
  std::mt19937_64 random(46);
  std::uniform_real_distribution<double> share(0.0, 1.0);
  Graph graph;
  graph.uses.resize(tables);
  for (std::size_t i = 0; i < tables; ++i) {
    std::string name = prefixes[random() % 8];
    for (auto letters = 4 + random() % 8; letters > 0; --letters)
      name += static_cast<char>('a' + random() % 26);
    graph.names.push_back(name + std::to_string(i) + suffixes[random() % 8]);
  }
  for (std::size_t edge = tables * edgesOfTheIndex / tablesOfTheIndex; edge > 0; --edge) {
    // The fifth power puts a third of all edges on half a percent of the tables.
    const auto popular = static_cast<std::size_t>(std::pow(share(random), 5) * static_cast<double>(tables));
    auto& used = graph.uses[random() % tables];
    if (std::find(used.begin(), used.end(), popular) == used.end())
      used.push_back(popular);
  }
  return graph;
}

Graph graphOf(const Bench& run) {
  if (run.isShort)
    return generate(50);
  if (run.words.empty())
    return generate(tablesOfTheIndex);
  const std::string& word = run.words.front();
  const bool isNumber = word.find_first_not_of("0123456789") == std::string::npos;
  return isNumber ? generate(std::stoul(word)) : GraphReader().read(word);
}

QvbString textOf(const std::string& text) { return QvbString(std::string_view(text)); }

std::vector<QvbString> identitiesOf(const Graph& graph) {
  const Released<QvResourceManager> manager(createQvResourceManager());
  std::vector<QvbString> identities(graph.names.size());
  for (std::size_t i = 0; i < identities.size(); ++i)
    manager->generateTableDataSourceResourceId(dataSource, "", "", schema, textOf(graph.names[i]),
                                               &identities[i]);
  return identities;
}

Released<QvImpactAnalysis> storeOf(const Graph& graph) {
  const auto identities = identitiesOf(graph);
  Released<QvImpactAnalysis> store(getQvLineageAnalysis());
  const auto resource = [&](std::size_t table) {
    return Released<QvResource>(
        store->createResource(textOf(graph.names[table]), "Table", identities[table]));
  };
  for (std::size_t i = 0; i < graph.uses.size(); ++i) {
    if (graph.uses[i].empty())
      continue;
    const Released<QvResourceList> list(store->createResourceList());
    for (const auto used : graph.uses[i]) {
      list->addRow();
      list->setLastRowElement(0, resource(used).get());
    }
    store->addDependentResources(resource(i).get(), list.get());
  }
  return store;
}

void byLibrary(Bench& run) {
  const Graph graph = graphOf(run);
  Released<QvImpactAnalysis> store;
  QvbString xml;
  run.measure([&] { store = storeOf(graph); });
  run.measure([&] {
    if (!store->getLineageAsString(&xml, nullptr, true))
      throw std::runtime_error("no lineage");
  });
  run.result = checksumOf(xml.view());
}

// What a table is called in XML and in a URI: names of packages need no more.
void appendName(std::string& text, std::string_view name) {
  for (const char c : name)
    if (c == '&')
      text += "&amp;";
    else if (c == '<')
      text += "&lt;";
    else if (c == '"')
      text += "&quot;";
    else
      text += c;
}

void appendEncoded(std::string& text, std::string_view name) {
  constexpr const char* digits = "0123456789ABCDEF";
  for (const char c : name) {
    const auto byte = static_cast<unsigned char>(c);
    if (std::isalnum(byte) || c == '-' || c == '.' || c == '_' || c == '~')
      text += c;
    else
      text.append({'%', digits[byte >> 4], digits[byte & 15]});
  }
}

std::string identityByHand(std::string_view name) {
  std::string identity =
      "<morvaxeldocument class=\"tableresource\" version=\"1\"><resource><tabledatasource dsn=\"";
  identity.append(dataSource).append("\" dsntype=\"\" schema=\"").append(schema).append("\" table=\"");
  appendName(identity, name);
  identity += "\"/></resource></morvaxeldocument>";
  return identity;
}

void appendResource(std::string& xml, std::string_view indent, std::string_view name) {
  xml.append(indent).append("<Resource id=\"qvd:///").append(dataSource);
  xml.append("?schema=").append(schema).append("&amp;table=");
  appendEncoded(xml, name);
  xml.append("\" label=\"");
  appendName(xml, name);
  xml.append("\" type=\"Table\">\n");
  xml.append(indent).append("  <ResourceAttributes>\n");
  xml.append(indent).append("    <ResourceAttribute name=\"DATA.PATH\">").append(dataSource).append(".");
  xml.append(schema).append(".");
  appendName(xml, name);
  xml.append("</ResourceAttribute>\n");
  xml.append(indent).append("  </ResourceAttributes>\n");
  xml.append(indent).append("</Resource>\n");
}

struct Table {
  const std::string* name;
  std::vector<const std::string*> uses;
};
using Models = std::map<std::string, Table>; // by identity

Models modelsByHand(const Graph& graph) {
  std::vector<std::string> identities;
  for (const auto& name : graph.names)
    identities.push_back(identityByHand(name));
  Models models;
  for (std::size_t i = 0; i < graph.uses.size(); ++i) {
    if (graph.uses[i].empty())
      continue;
    Table& table = models[identities[i]];
    table.name = &graph.names[i];
    for (const auto used : graph.uses[i])
      table.uses.push_back(&graph.names[used]);
  }
  return models;
}

std::string xmlByHand(const Models& models) {
  std::string xml = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<RelationshipModels>\n";
  for (const auto& [identity, table] : models) {
    xml += "  <RelationshipModel>\n";
    appendResource(xml, "    ", *table.name);
    xml += "    <RelationshipNodes>\n";
    for (const auto* used : table.uses) {
      xml += "      <RelationshipNode direction=\"1\" type=\"D\">\n";
      appendResource(xml, "        ", *used);
      xml += "      </RelationshipNode>\n";
    }
    xml += "    </RelationshipNodes>\n  </RelationshipModel>\n";
  }
  xml += "</RelationshipModels>\n";
  return xml;
}

void byHand(Bench& run) {
  const Graph graph = graphOf(run);
  Models models;
  std::string xml;
  run.measure([&] { models = modelsByHand(graph); });
  run.measure([&] { xml = xmlByHand(models); });
  run.result = checksumOf(xml);
}

} // namespace

int main(int count, char** words) {
  return bench(count, words, {{"library", byLibrary}, {"by hand", byHand}});
}
