#include "joiner.h"

#include "datapath.h"

#include "qvxbase/qvbstring.h"

#include <algorithm>
#include <utility>

namespace qvlineagegraph {

namespace {

std::string folded(std::string_view text) { return std::string(QvbString(text).lowercase().view()); }

std::string nameKey(NodeIndex source, std::string_view table) {
  return std::to_string(source) + ' ' + folded(table);
}

std::string dataPathOf(const TableFact& fact) {
  return joinDataPath(fact.dataSource, {fact.catalog, fact.schema, fact.table});
}

template<class Name, class Other>
bool isSpelledAlike(const Name& a, const Other& b) {
  return a.table == b.table && a.schema == b.schema && a.catalog == b.catalog;
}

// "a, b": five names are enough to tell where to look.
template<class NameOf>
std::string listed(const std::vector<NodeIndex>& nodes, const NameOf& nameOf) {
  constexpr std::size_t mostNames = 5;
  std::string names;
  for (std::size_t i = 0; i < std::min(nodes.size(), mostNames); ++i)
    names.append(i == 0 ? "" : ", ").append(nameOf(nodes[i]));
  if (nodes.size() > mostNames)
    names += " and " + std::to_string(nodes.size() - mostNames) + " more";
  return names;
}

bool isSameOrAbsent(std::string_view part, std::string_view other) {
  return part.empty() || qvbEqualsIgnoreCase(part, other);
}

} // namespace

void Joiner::add(const JobFile& file, JobFacts& facts) {
  if (facts.saved) {
    addSaved(*facts.saved);
    return;
  }
  if (!facts.failure.empty()) {
    note(NoteKind::Failed, noNode, file.path, std::move(facts.failure));
    return;
  }
  if (!facts.unknownRoot.empty()) {
    note(NoteKind::NotUnderstood, noNode, file.path, std::move(facts.unknownRoot));
    return;
  }
  const NodeIndex job = addJob(file, facts);
  for (auto& name : facts.unusableNames)
    note(NoteKind::UnusableName, job, file.path, std::move(name));
  for (const auto& source : facts.dataSources)
    addDataSource(
        {.type = NodeType::DataSource, .name = source.name, .identity = source.identity, .kind = source.type},
        file.path);
  for (const auto& table : facts.tables)
    addTable(job, table, file.path);
}

NodeIndex Joiner::addJob(const JobFile& file, const JobFacts& facts) {
  const NodeIndex known = facts.identity.empty() ? noNode : m_builder.find(NodeType::Job, facts.identity);
  const std::string_view knownFile = known == noNode ? std::string_view() : m_builder.fileOf(known);
  const bool isOfAnotherFile = !knownFile.empty() && knownFile != file.path;
  const NodeIndex job = m_builder.add({.type = NodeType::Job,
                                       .name = file.name,
                                       .identity = facts.identity,
                                       .file = file.path,
                                       .kind = facts.kind});
  if (isOfAnotherFile)
    note(NoteKind::SameIdentity, job, file.path, {});
  return job;
}

// Its tables are known by their identities; what bare names it had was settled when it was made.
void Joiner::addSaved(const Graph& saved) {
  m_builder.merge(saved);
  const Released<QvResourceManager> manager(createQvResourceManager());
  for (NodeIndex i = 0; i < saved.nodeCount(); ++i) {
    const Node node = saved.node(i);
    if (node.type != NodeType::Table || node.source == noNode)
      continue;
    QvbString dataSource, type, catalog, schema, table;
    if (!manager->getTableObjectFromResourceId(QvbString(node.identity), &dataSource, &type, &catalog,
                                               &schema, &table))
      continue;
    learn(m_builder.find(NodeType::Table, node.identity),
          m_builder.find(NodeType::DataSource, saved.name(node.source)),
          {.catalog = catalog.view(), .schema = schema.view(), .table = table.view()});
  }
}

NodeIndex Joiner::addDataSource(const Node& source, const std::string& file) {
  const NodeIndex node = m_builder.add(source);
  const std::string_view own = m_builder.nameOf(node);
  if (own != source.name)
    noteSpelling(node, std::string(source.name), file);
  return node;
}

void Joiner::addTable(NodeIndex job, const TableFact& fact, const std::string& file) {
  const Node dataSource{.type = NodeType::DataSource, .name = fact.dataSource};
  const NodeIndex source = fact.dataSource.empty() ? noNode : addDataSource(dataSource, file);
  if (fact.isBare) {
    m_bareReads.push_back({file, job, source, std::string(fact.table), std::string(fact.identity)});
    return;
  }
  NodeIndex table = m_builder.find(NodeType::Table, fact.identity);
  if (table == noNode)
    table = m_builder.add(
        {.type = NodeType::Table, .name = dataPathOf(fact), .identity = fact.identity, .source = source});
  if (fact.access == Access::Read)
    m_builder.addEdge({table, job, Access::Read, false});
  else
    m_builder.addEdge({job, table, Access::Write, false});
  if (table < m_tables.size() && !m_tables[table].table.empty() && !isSpelledAlike(fact, m_tables[table]))
    noteSpelling(table, dataPathOf(fact), file);
  learn(table, source, fact);
}

void Joiner::learn(NodeIndex node, NodeIndex source, const TableFact& fact) {
  if (node >= m_tables.size())
    m_tables.resize(node + 1);
  if (!m_tables[node].table.empty())
    return;
  if (source != noNode)
    m_byName[nameKey(source, fact.table)].push_back(node);
  m_tables[node] = {std::string(fact.catalog), std::string(fact.schema), std::string(fact.table)};
}

void Joiner::note(NoteKind kind, NodeIndex node, const std::string& file, std::string text) {
  m_builder.addNote({kind, node, file, std::move(text)});
}

void Joiner::noteSpelling(NodeIndex node, std::string spelling, const std::string& file) {
  if (m_notedSpellings.insert(std::to_string(node) + ' ' + spelling + '\n' + file).second)
    note(NoteKind::Spelling, node, file, std::move(spelling));
}

void Joiner::noteBareSpelling(NodeIndex node, std::string_view own, const std::string& name,
                              const std::string& file) {
  if (own != name && qvbEqualsIgnoreCase(own, name))
    noteSpelling(node, name, file);
}

std::vector<NodeIndex> Joiner::tablesNamed(NodeIndex source, const std::string& name) const {
  const auto found = m_byName.find(nameKey(source, name));
  return found == m_byName.end() ? std::vector<NodeIndex>() : found->second;
}

// As the database would read the name: a table's, or a schema's and a table's.
std::vector<NodeIndex> Joiner::tablesMeant(const BareRead& read) const {
  auto meant = tablesNamed(read.source, read.name);
  const auto parts = splitDataPath(read.name);
  if (!meant.empty() || parts.size() < 2 || parts.size() > 3)
    return meant;
  const std::string_view catalog = parts.size() == 3 ? std::string_view(parts[0]) : std::string_view();
  for (const NodeIndex table : tablesNamed(read.source, parts.back()))
    if (qvbEqualsIgnoreCase(parts[parts.size() - 2], m_tables[table].schema) &&
        isSameOrAbsent(catalog, m_tables[table].catalog))
      meant.push_back(table);
  return meant;
}

// With every table known, a bare name is one of them, or a table of its own of which nothing else is known.
void Joiner::resolve(const BareRead& read) {
  const auto meant = tablesMeant(read);
  if (meant.size() == 1 && !m_exact) {
    m_builder.addEdge({meant.front(), read.job, Access::Read, true});
    noteBareSpelling(meant.front(), m_tables[meant.front()].table, read.name, read.file);
    return;
  }
  const std::string name = joinDataPath("", {read.name});
  const NodeIndex table = m_builder.add({.type = NodeType::Table, .name = name, .identity = read.identity});
  noteBareSpelling(table, m_builder.nameOf(table), name, read.file);
  m_builder.addEdge({table, read.job, Access::Read, false});
  if (meant.empty())
    note(NoteKind::BareUnmatched, table, read.file, {});
  if (meant.size() > 1)
    note(NoteKind::BareAmbiguous, table, read.file,
         listed(meant, [&](NodeIndex one) { return m_builder.nameOf(one); }));
}

Graph Joiner::finish() && {
  for (const auto& read : m_bareReads)
    resolve(read);
  return m_builder.build();
}

} // namespace qvlineagegraph
