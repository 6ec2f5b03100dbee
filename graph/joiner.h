// Joins what the files say to one graph.
#pragma once

#include "jobfacts.h"

#include "qvlineagegraph/graph.h"

#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace qvlineagegraph {

class Joiner {
public:
  // With `exact`, a bare name stays what it is.
  explicit Joiner(bool exact) : m_exact(exact) {}

  void addFailure(Note failure) { m_builder.addNote(std::move(failure)); }
  void add(const JobFile& file, JobFacts& facts); // takes texts out of the facts
  Graph finish() &&;

private:
  struct BareRead {
    std::string file;
    NodeIndex job = noNode;
    NodeIndex source = noNode;
    std::string name;
    std::string identity;
  };
  struct TableName {
    std::string catalog;
    std::string schema;
    std::string table;
  };

  NodeIndex addJob(const JobFile& file, const JobFacts& facts);
  void addSaved(const Graph& saved);
  NodeIndex addDataSource(const Node& source, const std::string& file);
  void addTable(NodeIndex job, const TableFact& fact, const std::string& file);
  void learn(NodeIndex node, NodeIndex source, const TableFact& fact);
  void note(NoteKind kind, NodeIndex node, const std::string& file, std::string text);
  void noteSpelling(NodeIndex node, std::string spelling, const std::string& file);
  void noteBareSpelling(NodeIndex node, std::string_view own, const std::string& name,
                        const std::string& file);
  std::vector<NodeIndex> tablesNamed(NodeIndex source, const std::string& name) const;
  std::vector<NodeIndex> tablesMeant(const BareRead& read) const;
  void resolve(const BareRead& read);

  bool m_exact;
  GraphBuilder m_builder;
  // By node: what a table was called when it was first named; empty for other nodes.
  std::vector<TableName> m_tables;
  // By data source and folded name: the tables that a bare name can mean.
  std::unordered_map<std::string, std::vector<NodeIndex>> m_byName;
  std::unordered_set<std::string> m_notedSpellings;
  std::vector<BareRead> m_bareReads;
};

} // namespace qvlineagegraph
