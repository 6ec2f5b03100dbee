#include "jobs.h"

#include "qvreposres/qvsqlresources.h"

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <set>

namespace {

// Adds what a step names, and keeps the root element of a file that is no step that is known.
class JobVisitor final : public QvSQLResourceAdder {
public:
  using QvSQLResourceAdder::QvSQLResourceAdder;

  void visitUnknownRoot(const QvbString& name) override { root = toString(name); }
  void visitUnusableName(const QvbString& element, const QvbString& name, const QvbString& reason) override {
    unusableNames.push_back(toString(element) + " \"" + toString(name) + "\" " + toString(reason));
  }

  std::string root;
  std::vector<std::string> unusableNames;
};

// Why what is there can be no job file; empty where it may be one.
std::string whyNoFile(const std::string& path) {
  std::error_code ignored;
  const auto status = std::filesystem::status(path, ignored);
  if (!std::filesystem::exists(status) || std::filesystem::is_regular_file(status))
    return {};
  return path +
         (std::filesystem::is_directory(status)
              ? ": a folder, where a job file is due; `qvrepos lineage` and `qvrepos graph` take folders"
              : ": no regular file, where a job file is due; - stands for standard input");
}

} // namespace

void noteLossyNames(Host& host, const std::vector<std::string>& names) {
  for (const auto& name : names)
    if (!isXmlText(name))
      host.note(name +
                ": the name holds what XML cannot carry, shown as U+FFFD; names that differ in nothing else "
                "look the same");
}

void noteSharedNames(Host& host, const std::vector<std::string>& files) {
  const std::set<std::string> known(files.begin(), files.end());
  for (const auto& file : files) {
    std::string other = file;
    std::ranges::replace(other, '\\', '/');
    if (other != file && known.contains(other))
      host.note(std::string(file).append(" and ").append(other).append(
          " have one URI reference, as a backslash counts as a slash: rename one of them"));
  }
}

JobScanner::JobScanner() : m_store(getQvLineageAnalysis()), m_manager(createQvResourceManager()) {
  if (!m_store || !m_store->getDefaultResourceFactory())
    throw std::bad_alloc();
}

Released<QvResourceList> JobScanner::newList() {
  Released<QvResourceList> list(m_store->createResourceList());
  if (!list)
    throw std::bad_alloc();
  return list;
}

ScannedJob JobScanner::scan(const std::string& path) {
  const auto stream =
      path == "-" ? qvlineagegraph::streamContent(std::cin) : qvlineagegraph::pipeContent(path);
  if (auto reason = stream ? std::string() : whyNoFile(path); !reason.empty())
    return {std::move(reason), {}, {}, nullptr};
  auto used = newList();
  JobVisitor visitor(*m_manager, m_store->getDefaultResourceFactory(), used.get());
  QvbString error;
  if (stream ? visitSQLStepInString(QvbString(*stream), &visitor, &error)
             : visitSQLStepInFile(QvbString(path), &visitor, &error))
    return {{}, visitor.root, visitor.unusableNames, std::move(used)};
  return {(stream ? path + ":" : "") + toString(error), {}, {}, nullptr};
}

Released<QvResourceList> JobScanner::jobOf(const std::string& path) {
  auto job = newList();
  QvbString reference = QvbString(path);
  m_manager->addJobFileNode(m_store->getDefaultResourceFactory(), job.get(), reference);
  return job;
}

void reportUnknownStep(Host& host, const std::string& file, const std::string& root, bool strict) {
  const std::string message = file + ": no step that is known: its root element is <" + root + ">";
  if (strict)
    host.reportFailure(message);
  else
    host.note(message);
}

void reportUnusableNames(Host& host, const std::string& file, const std::vector<std::string>& names) {
  for (const auto& name : names)
    host.reportFailure(std::string(file).append(": ").append(name));
}

void noteOutcome(Host& host, const std::string& counts, const Outcome& outcome) {
  const auto& [failed, notUnderstood, unusableNames] = outcome;
  std::string line = counts;
  if (failed > 0)
    line += "; " + counted(failed, "file") + " failed";
  if (notUnderstood > 0)
    line += (failed > 0 ? ", " : "; ") + std::to_string(notUnderstood) + " not understood";
  if (unusableNames > 0)
    line += "; " + counted(unusableNames, "name") + " cannot be used, which `qvrepos audit` shows";
  host.note(line);
}

void reportEmptiness(Host& host, bool fails, bool hasPatterns) {
  const std::string message = "no job files were found: " + qvlineagegraph::jobFileExtensions() +
                              (hasPatterns ? ", and --include and --exclude-path leave files out" : "");
  if (fails)
    host.reportFailure(message);
  else
    host.note(message);
}

void addFailIfEmptyFlag(CLI::App& command, bool& fails) {
  command.add_flag("--fail-if-empty", fails, "Count it as a failure when there are no job files");
}

void addStrictFlag(CLI::App& command, bool& strict) {
  command.add_flag("--strict", strict, "Count a file that is no step that is known as a failure");
}
