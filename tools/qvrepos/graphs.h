// What the commands about the lineage graph share: what they scan, what they say of it, and where results go.
#pragma once

#include "host.h"

#include "qvlineagegraph/graph.h"
#include "qvlineagegraph/scan.h"

#include <optional>

// What is read, and how; the options that every such command takes.
struct ScanArguments {
  std::vector<std::string> paths;
  qvlineagegraph::ScanOptions options;
  bool strict = false;
  bool failIfEmpty = false;
};

void addScanOptions(CLI::App& command, ScanArguments& arguments);
void addPathOperands(CLI::App& command, ScanArguments& arguments);

// An option that may be given several times, each time with one value that is taken as it is.
CLI::Option* addListOption(CLI::App& command, const std::string& names, std::vector<std::string>& values,
                           const std::string& help, const std::string& valueName);

// The graph of the paths, with a bar while it is made. Files that failed are reported, those that are no step that is
// known are named.
qvlineagegraph::Graph scanned(Host& host, const ScanArguments& arguments,
                              const std::vector<std::string>& paths);
inline qvlineagegraph::Graph scanned(Host& host, const ScanArguments& arguments) {
  return scanned(host, arguments, arguments.paths);
}

// "41 jobs, 49 tables, 104 reads, 41 writes; 1 file failed, 2 not understood", to standard error.
void noteCounts(Host& host, const qvlineagegraph::Graph& graph);

std::vector<std::string> linesOf(std::string_view text);

// A message of one or several lines.
void reportFailures(Host& host, std::string_view message);
// Wrong usage that the parser cannot see: ends the tool with status 2.
[[noreturn]] void refuseUsage(const std::string& message);
// Ends it for --json beside --format.
void refuseTwoForms(const Host& host, const std::string& format);
