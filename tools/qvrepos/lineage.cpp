// qvrepos lineage: the lineage of job files as XML.
#include "jobs.h"
#include "progress.h"

#include "qvlineagegraph/parallel.h"
#include "qvxdom/qvdom.h"

#include <array>
#include <memory>
#include <stdexcept>
#include <string_view>
#include <unordered_map>
#include <utility>

namespace {

constexpr std::size_t filesWithABar = 20; // fewer files are read before a bar is

struct LineageOptions {
  std::vector<std::string> paths;
  std::string output;
  bool compact = false;
  bool strict = false;
  bool failIfEmpty = false;
};

// Records what each job uses, in the order of the files, which are read by several threads.
std::vector<ScannedJob> recordJobs(const Host& host, JobScanner& recorder,
                                   const std::vector<qvlineagegraph::JobFile>& files) {
  std::vector<ScannedJob> jobs(files.size());
  ProgressBar bar(host, files.size(), filesWithABar);
  qvlineagegraph::ParallelWork work;
  work.items = files.size();
  work.worker = [&] {
    return [&, scanner = std::make_shared<JobScanner>()](std::size_t i) {
      jobs[i] = scanner->scan(files[i].path);
    };
  };
  work.take = [&](std::size_t i) {
    const auto& used = jobs[i].used;
    if (const auto job = used ? recorder.jobOf(files[i].path) : nullptr; job && job->next())
      recorder.store()->addDependentResources(job->getValue(), used.get());
    bar.step();
  };
  work.release = [&](std::size_t i) { jobs[i].used.reset(); };
  qvlineagegraph::workInOrder(work);
  return jobs;
}

// Names the files that cannot be read, and those that are no step that is known. Their numbers.
std::pair<std::size_t, std::size_t> reportJobs(Host& host, const std::vector<qvlineagegraph::JobFile>& files,
                                               const std::vector<ScannedJob>& jobs, bool strict) {
  std::size_t failed = 0, notUnderstood = 0;
  for (const auto& job : jobs)
    if (!job.failure.empty()) {
      host.reportFailure(job.failure);
      ++failed;
    }
  for (std::size_t i = 0; i < files.size(); ++i)
    if (!jobs[i].unknownRoot.empty()) {
      reportUnknownStep(host, files[i].path, jobs[i].unknownRoot, strict);
      ++notUnderstood;
    }
  return {failed, notUnderstood};
}

// Writes lineage as JSON, in the shape that jsonText() gives, of XML without white space between elements. There a resource
// reads the same wherever something uses it, and its element is a document of its own: each is read once.
class JsonLineage {
public:
  explicit JsonLineage(std::string_view xml) {
    m_out.reserve(xml.size());
    m_out += "[";
    for (auto at = xml.find(resourceStart); at != std::string_view::npos; at = xml.find(resourceStart, at)) {
      const auto element = elementAt(xml, at);
      if (xml.substr(0, at).ends_with("<RelationshipModel>"))
        beginModel(element);
      else
        addUsed(element);
      at += element.size();
    }
    if (m_hasModels)
      endModel();
    m_out += m_hasModels ? "\n]\n" : "]\n";
  }

  std::string take() && { return std::move(m_out); }

private:
  static constexpr std::string_view resourceStart = "<Resource ";
  static constexpr std::string_view resourceEnd = "</Resource>";

  // There is no "<" in a value.
  static std::string_view elementAt(std::string_view xml, std::size_t at) {
    auto end = xml.find('<', at + 1);
    if (xml.substr(end).starts_with("<ResourceAttributes>"))
      end = xml.find(resourceEnd, end) + resourceEnd.size();
    return xml.substr(at, end - at);
  }

  void beginModel(std::string_view element) {
    if (std::exchange(m_hasModels, true)) {
      endModel();
      m_out += ',';
    }
    m_hasUsed = false;
    m_out += "\n  ";
    writeMembers(element, "\n    ");
    m_out += m_isFirstMember ? "\n    \"uses\": [" : ",\n    \"uses\": [";
  }

  void endModel() { m_out += m_hasUsed ? "\n    ]\n  }" : "]\n  }"; }

  void addUsed(std::string_view element) {
    m_out += std::exchange(m_hasUsed, true) ? ",\n      " : "\n      ";
    const auto [written, isNew] = m_written.try_emplace(element, m_out.size(), 0);
    auto& [start, size] = written->second;
    if (!isNew) {
      m_out.append(m_out, start, size);
      return;
    }
    writeMembers(element, "\n        ");
    m_out += m_isFirstMember ? "}" : "\n      }";
    size = m_out.size() - start;
  }

  // A resource element's attributes, and the data path below it where there is one, after an opening brace.
  void writeMembers(std::string_view element, std::string_view lineStart) {
    if (!m_document.loadXML(QvbString(element)))
      throw std::runtime_error(toString(m_document.getErrorMessage()));
    const QvDomNode resource = m_document.getRoot();
    m_out += '{';
    m_isFirstMember = true;
    for (const QvbString& name : m_attributes)
      writeMember(name.view(), resource.getAttributeValue(name), lineStart);
    if (const auto path = resource.getFirstChild(false).getFirstChild(false); !path.null()) {
      const QvbString value = path.getValue(false);
      writeMember("dataPath", value.isNull() ? QvbString("") : value, lineStart);
    }
  }

  void writeMember(std::string_view name, const QvbString& value, std::string_view lineStart) {
    if (value.isNull())
      return;
    if (!std::exchange(m_isFirstMember, false))
      m_out += ',';
    m_out.append(lineStart).append("\"").append(name).append("\": \"");
    writeText(value.view());
    m_out += '"';
  }

  // What XML carried is UTF-8 already.
  void writeText(std::string_view text) {
    for (std::size_t plain = 0;; text.remove_prefix(plain + 1)) {
      plain = 0;
      while (plain < text.size() && isPlain(text[plain]))
        ++plain;
      m_out += text.substr(0, plain);
      if (plain == text.size())
        return;
      const std::string coded = nlohmann::json(std::string(1, text[plain])).dump();
      m_out.append(coded, 1, coded.size() - 2);
    }
  }

  static bool isPlain(char byte) {
    return byte != '"' && byte != '\\' && static_cast<unsigned char>(byte) >= 0x20;
  }

  const std::array<QvbString, 4> m_attributes{"id", "label", "type", "analysisDate"};
  QvDom m_document;
  std::string m_out;
  std::unordered_map<std::string_view, std::pair<std::size_t, std::size_t>>
      m_written; // where what is used stands
  bool m_isFirstMember = true;
  bool m_hasModels = false;
  bool m_hasUsed = false;
};

void runLineage(Host& host, const LineageOptions& options) {
  std::vector<std::string> given;
  for (const auto& path : options.paths)
    given.push_back(path == "-" ? path : absolutePath(nativePath(path)));
  const auto found = qvlineagegraph::findJobFiles(given);
  for (const auto& failure : found.failures)
    host.reportFailure(failure.text);

  if (found.files.empty() && found.failures.empty())
    reportEmptiness(host, options.failIfEmpty);

  JobScanner recorder;
  const auto jobs = recordJobs(host, recorder, found.files);
  const auto [failed, notUnderstood] = reportJobs(host, found.files, jobs, options.strict);
  std::vector<std::string> paths;
  for (const auto& file : found.files)
    paths.push_back(file.path);
  noteLossyNames(host, paths);
  noteSharedNames(host, paths);

  QvbString xml, message;
  if (!recorder.store()->getLineageAsString(&xml, &message, !options.compact && !host.json))
    return host.reportFailure("no lineage: " + toString(message));
  if (options.compact && !host.json)
    xml.append("\n");
  if (host.json)
    host.write(JsonLineage(xml.view()).take(), options.output);
  else
    host.write(xml.view(), options.output);
  noteOutcome(host, counted(found.files.size() - failed - notUnderstood, "job"),
              found.failures.size() + failed, notUnderstood);
}

} // namespace

void addLineageCommand(CLI::App& app, Host& host) {
  auto* command = app.add_subcommand("lineage", "Print the lineage of job files as XML");
  auto options = std::make_shared<LineageOptions>();
  command
      ->add_option(
          "PATH", options->paths,
          "Job files, folders that are searched for job files to any depth, and - for standard input")
      ->required();
  addOutputOption(*command, options->output);
  addStrictFlag(*command, options->strict);
  addFailIfEmptyFlag(*command, options->failIfEmpty);
  command->add_flag("--compact", options->compact, "Write XML without white space between elements");
  addJsonFlag(
      *command, host,
      "an array of records: id, label, type, analysisDate and dataPath where known, and uses, an array of "
      "such records without uses");
  command->footer("Example: qvrepos lineage examples/repository/process_services");
  command->callback([&host, options] { runLineage(host, *options); });
}
