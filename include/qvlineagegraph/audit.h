// What looks wrong in a graph.
#pragma once

#include "qvlineagegraph/graph.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qvlineagegraph {

enum class FindingKind {
  NeverWritten,   // a table is read and nothing writes it
  NeverRead,      // a table is written and nothing reads it
  SeveralWriters, // several jobs write a table
  Cycle,          // jobs and tables that are upstream of themselves
  CaseOnly,       // a name is written in ways that differ in case only
  BareUnmatched,  // a bare name for which no table is known
  BareAmbiguous,  // a bare name that several tables have
  SameIdentity,   // two files with one identity
  NotUnderstood,  // a file that is no step that is known
  UnusableName,   // a name that is given and names no table
  Failed,         // a file that could not be read
};
// "never-written", "never-read", "several-writers", "cycle", "case-only", "bare-unmatched", "bare-ambiguous",
// "same-identity", "not-understood", "unusable-name", "failed".
QVLINEAGEGRAPH_API std::string_view nameOf(FindingKind kind) noexcept;
// Nothing for a text that is no kind's name.
QVLINEAGEGRAPH_API std::optional<FindingKind> findingKindOf(std::string_view name) noexcept;
// Every kind, in the order of their declaration.
QVLINEAGEGRAPH_API const std::vector<FindingKind>& findingKinds();

struct Finding {
  FindingKind kind = FindingKind::NeverWritten;
  std::vector<NodeIndex> nodes;   // what it is about; empty for a file that is no node
  std::vector<std::string> files; // where: the job files concerned, each once
  std::string message;            // one line for people, without the files
};

// By kind, and then by node or in the order of the files.
QVLINEAGEGRAPH_API std::vector<Finding> audit(const Graph& graph);

} // namespace qvlineagegraph
