// OpenLineage events: the options of the commands that write them, and posting them.
#pragma once

#include "host.h"

#include "qvlineagegraph/formats.h"

struct EventOptions {
  std::vector<std::string> namespaces; // each "<data source>=<namespace>"
  std::string jobNamespace;
  std::string time;
  std::string url; // where they are posted; empty: they are not
  std::string resume;
};

void addEventOptions(CLI::App& command, EventOptions& options);
bool isGiven(const EventOptions& options);
// Ends the tool for a time that is none.
void checkEventOptions(const EventOptions& options);
qvlineagegraph::OpenLineageOptions lineageOptions(const EventOptions& options);

// Names the data sources of --namespace that the graph does not have.
void noteUnusedNamespaces(Host& host, const qvlineagegraph::Graph& graph, const EventOptions& options);

// Posts events, each a line, and tells how many were accepted.
void postEvents(Host& host, const std::string& events, const EventOptions& options);
