#include "jobs.h"

#include "qvreposres/qvsqlstep.h"

#include <filesystem>

namespace {

// Takes nothing but the root element of a file that is no step that is known.
class RootVisitor final : public QvSQLStepVisitor {
public:
  std::string root;

  void visitConnection(const QvbString&, const QvbString&, const QvbString&) override {}
  void visitTableRead(QvSQLTableElement, const QvDataURIComponents&, const QvbString&) override {}
  void visitBareTableRead(QvSQLTableElement, const QvbString&, const QvbString&) override {}
  void visitTableWritten(const QvbString&, const QvbString&, const QvbString&, const QvbString&) override {}
  void visitUnusableName(const QvbString&, const QvbString&, const QvbString&) override {}
  void visitUnknownRoot(const QvbString& name) override { root = str(name); }
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

ScannedJob JobScanner::scan(const std::string& path, QvResourceList* job, QvResourceList* used) {
  if (auto reason = whyNoFile(path); !reason.empty())
    return {std::move(reason), {}};
  QvResourceFactory* factory = m_store->getDefaultResourceFactory();
  const QvbString reference = text(path);
  const bool read = m_manager->addSQLResourcesFromFile(reference, factory, used);
  const bool isStep = used->next();
  used->reset();
  RootVisitor visitor;
  QvbString error;
  // A file in which something was found is a step; of the others, which are few, the walk tells more.
  if ((!read || !isStep) && !visitSQLStepInFile(reference, &visitor, &error))
    return {str(error), {}};
  QvbString jobReference = reference;
  m_manager->addJobFileNode(factory, job, jobReference);
  return {{}, visitor.root};
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
