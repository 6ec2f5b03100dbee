#include "jobs.h"

#include "qvreposres/qvsqlresources.h"

#include <filesystem>

namespace {

// Adds what a step names, and keeps the root element of a file that is no step that is known.
class JobVisitor final : public QvSQLResourceAdder {
public:
  using QvSQLResourceAdder::QvSQLResourceAdder;

  void visitUnknownRoot(const QvbString& name) override { root = str(name); }

  std::string root;
};

// Why what is there can be no job file; empty where it may be one.
std::string whyNoFile(const std::string& path) {
  std::error_code ignored;
  const auto status = std::filesystem::status(path, ignored);
  if (!std::filesystem::exists(status) || std::filesystem::is_regular_file(status))
    return {};
  return path + ": " + (std::filesystem::is_directory(status) ? "a folder" : "no regular file") +
         ", where a job file is due";
}

} // namespace

void noteLossyNames(Host& host, const std::vector<std::string>& names) {
  for (const auto& name : names)
    if (!isXmlText(name))
      host.note(name +
                ": the name holds what XML cannot carry, shown as U+FFFD; names that differ in nothing else "
                "look the same");
}

JobScanner::JobScanner() : m_store(getQvLineageAnalysis()), m_manager(createQvResourceManager()) {
  if (!m_store)
    throw std::bad_alloc();
}

Released<QvResourceList> JobScanner::newList() {
  Released<QvResourceList> list(m_store->createResourceList());
  if (!list)
    throw std::bad_alloc();
  return list;
}

ScannedJob JobScanner::scan(const std::string& path) {
  auto used = newList();
  JobVisitor visitor(*m_manager, m_store->getDefaultResourceFactory(), used.get());
  QvbString error;
  if (visitSQLStepInFile(text(path), &visitor, &error))
    return {{}, visitor.root, std::move(used)};
  auto reason = whyNoFile(path);
  return {reason.empty() ? str(error) : reason, {}, nullptr};
}

Released<QvResourceList> JobScanner::jobOf(const std::string& path) {
  auto job = newList();
  QvbString reference = text(path);
  m_manager->addJobFileNode(m_store->getDefaultResourceFactory(), job.get(), reference);
  return job;
}

void reportUnknownStep(Host& host, const std::string& file, const std::string& root, bool strict) {
  const std::string message = file + ": no step that is known: its root element is <" + root + ">";
  if (strict)
    host.fail(message);
  else
    host.note(message);
}

void addStrictFlag(CLI::App& command, bool& strict) {
  command.add_flag("--strict", strict, "Count a file that is no step that is known as a failure");
}
