#include "graphs.h"
#include "jobs.h"
#include "progress.h"
#include "usage.h"

#include <iostream>

using namespace qvlineagegraph;

namespace {

constexpr std::size_t scanShownFrom = 20; // fewer files are read before a bar is
constexpr unsigned mostThreads = 256;

std::vector<std::string> jobFilesOf(const Graph& graph) {
  std::vector<std::string> files;
  for (NodeIndex index = 0; index < graph.nodeCount(); ++index)
    if (const Node node = graph.node(index); node.type == NodeType::Job)
      files.emplace_back(node.file);
  return files;
}

void report(Host& host, const Graph& graph, bool strict) {
  noteSharedNames(host, jobFilesOf(graph));
  for (const Note& note : graph.notes())
    if (note.kind == NoteKind::Failed)
      host.reportFailure(note.text);
    else if (note.kind == NoteKind::NotUnderstood)
      reportUnknownStep(host, note.file, note.text, strict);
    else if (note.kind == NoteKind::UnusableName && strict)
      reportUnusableNames(host, note.file, {note.text});
}

} // namespace

CLI::Option* addListOption(CLI::App& command, const std::string& names, std::vector<std::string>& values,
                           const std::string& help, const std::string& valueName) {
  return command.add_option(names, values, help)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
      ->allow_extra_args(false)
      ->type_name(valueName)
      ->expected(1);
}

void addPathOperands(CLI::App& command, ScanArguments& arguments) {
  command
      .add_option(
          "PATH", arguments.paths,
          "Job files, saved graphs (JSON), folders that are searched for job files to any depth, and - "
          "for a job file or a saved graph on standard input")
      ->required()
      ->check(notEmpty());
}

void addScanOptions(CLI::App& command, ScanArguments& arguments) {
  auto& options = arguments.options;
  addListOption(command, "--include", options.patterns.include,
                "Take only files of a folder whose path below it, or name, matches this pattern", "GLOB")
      ->check(notEmpty());
  addListOption(command, "--exclude-path", options.patterns.exclude,
                "Leave out files and folders whose path or name matches this pattern", "GLOB")
      ->check(notEmpty());
  command
      .add_option("--threads", options.threads, "Scan with this many threads, one for each core unless given")
      ->type_name("N")
      ->check(numberFrom(1, mostThreads));
  command.add_flag("--exact", options.exact,
                   "Leave a bare table name alone, even where exactly one table of the name is known");
  addStrictFlag(command, arguments.strict);
  addFailIfEmptyFlag(command, arguments.failIfEmpty);
}

Graph scanned(Host& host, const ScanArguments& arguments, const std::vector<std::string>& paths) {
  ScanOptions options = arguments.options;
  if (std::ranges::find(paths, "-") != paths.end())
    options.input = streamContent(std::cin);
  std::optional<ProgressBar> bar;
  options.progress = [&](std::size_t done, std::size_t total) {
    if (!bar)
      bar.emplace(host, total, scanShownFrom);
    bar->advanceTo(done);
    return true;
  };
  auto graph = scan(paths, options);
  bar.reset();
  if (!graph)
    throw std::runtime_error(graph.error().message);
  report(host, *graph, arguments.strict);
  if (const Counts counts = graph->counts();
      counts.jobs + counts.failed + counts.notUnderstood == 0 && graph->nodeCount() == 0)
    reportEmptiness(host, arguments.failIfEmpty,
                    !options.patterns.include.empty() || !options.patterns.exclude.empty());
  return std::move(*graph);
}

void noteCounts(Host& host, const Graph& graph) {
  const Counts counts = graph.counts();
  const auto unusable = std::ranges::count(graph.notes(), NoteKind::UnusableName, &Note::kind);
  noteOutcome(host,
              counted(counts.jobs, "job") + ", " + counted(counts.tables, "table") + ", " +
                  counted(counts.reads, "read") + ", " + counted(counts.writes, "write"),
              {counts.failed, counts.notUnderstood, static_cast<std::size_t>(unusable)});
}

std::vector<std::string> linesOf(std::string_view text) {
  std::vector<std::string> lines;
  for (std::size_t from = 0; from < text.size();) {
    const auto end = std::min(text.find('\n', from), text.size());
    lines.emplace_back(text.substr(from, end - from));
    from = end + 1;
  }
  return lines;
}

void reportFailures(Host& host, std::string_view message) {
  for (const auto& line : linesOf(message))
    host.reportFailure(line);
}

void refuseUsage(const std::string& message) { throw CLI::ValidationError(message); }

void refuseTwoForms(const Host& host, const std::string& format) {
  if (host.json && !format.empty())
    refuseUsage("--json is a form of its own: it takes no --format " + format);
}
