#include "events.h"
#include "graphs.h"
#include "progress.h"
#include "usage.h"

#include "qvlineagegraph/emit.h"
#include "qvsfio/npfio.h"

#include <cstdlib>
#include <filesystem>

using namespace qvlineagegraph;

namespace {

constexpr const char* keyVariable = "OPENLINEAGE_API_KEY";
constexpr std::size_t eventsShownFrom = 2; // each request may take its time
constexpr std::size_t mostReasons = 10;

// Where "<data source>=<namespace>" is divided: a data source may have a "=" in its name, and a URI may, too.
std::size_t divisionOf(const std::string& mapping) { return mapping.rfind('=', mapping.find("://")); }

std::string_view sourceOf(const std::string& mapping) {
  return std::string_view(mapping).substr(0, divisionOf(mapping));
}

// Whether a URI names a user, and perhaps a password, before its host.
bool hasUser(std::string_view uri) {
  const auto mark = uri.find("://");
  return mark != uri.npos && uri.substr(0, uri.find_first_of("/?#", mark + 3)).find('@') != uri.npos;
}

// What is wrong with a mapping; empty when nothing is.
std::string faultOf(const std::string& mapping) {
  const auto at = divisionOf(mapping);
  if (at == std::string::npos || at == 0 || at + 1 == mapping.size())
    return "write it as NAME=URI: " + mapping;
  if (hasUser(std::string_view(mapping).substr(at + 1)))
    return "leave user and password out of the URI of " + mapping.substr(0, at) +
           ": whoever gets the events can read it";
  return {};
}

// How far a run came, in a file, so that the next run with the same events goes on there. No other file is touched.
class Progress {
public:
  Progress(const std::string& path, const std::string& url, const std::vector<std::string>& events)
      : m_path(path.empty() ? "" : absolutePath(nativePath(path))), m_mark(markOf(url, events)) {}

  // How many events were dealt with before; none where there is no file yet. What else is there is the user's and stays.
  Result<std::size_t> read() const {
    QvbString content;
    const int failed =
        m_path.empty() ? NP_FIO_NOT_FOUND : np_fio_readAll(QvbString(m_path), largest, &content);
    if (failed == NP_FIO_NOT_FOUND)
      return 0;
    const auto saved = nlohmann::json::parse(toString(content), nullptr, false);
    if (failed != NP_FIO_OK || !isProgress(saved))
      return Error{ErrorKind::Refused,
                   m_path + " is no progress file of --emit; name one that is not there yet"};
    if (saved["mark"] != m_mark)
      return Error{ErrorKind::Refused,
                   m_path + " holds the progress of other events; remove it to begin anew"};
    return saved["done"].get<std::size_t>();
  }

  // Empty when it was kept.
  std::string keep(std::size_t done) const {
    if (m_path.empty())
      return {};
    const auto reason = writeFile(m_path, ::jsonText({{"mark", m_mark}, {"done", done}}));
    return reason.empty() ? "" : "cannot write " + m_path + ": " + reason;
  }

  void end() const {
    std::error_code ignored;
    if (!m_path.empty())
      std::filesystem::remove(m_path, ignored);
  }

private:
  static constexpr std::int64_t largest = 1 << 20;

  static bool isProgress(const nlohmann::json& saved) {
    return saved.is_object() && saved.size() == 2 && saved.contains("mark") && saved["mark"].is_string() &&
           saved.contains("done") && saved["done"].is_number_unsigned();
  }

  // What tells these events, posted there, from others: all but their times and what the URL may keep secret, as a number
  // (FNV-1a).
  static std::string markOf(const std::string& url, const std::vector<std::string>& events) {
    std::uint64_t hash = 14695981039346656037U;
    const auto add = [&](std::string_view text) {
      for (const char byte : text)
        hash = (hash ^ static_cast<unsigned char>(byte)) * 1099511628211U;
    };
    add(url);
    for (const auto& event : events)
      add(std::string_view(event).substr(event.find("\"producer\"")));
    return std::to_string(events.size()) + " " + std::to_string(hash);
  }

  std::string m_path;
  std::string m_mark;
};

void reportRefusals(Host& host, const std::vector<std::string>& events, const EmitReport& report) {
  for (std::size_t i = 0; i < std::min(report.refused.size(), mostReasons); ++i) {
    const auto& refused = report.refused[i];
    const auto event = nlohmann::json::parse(events[refused.index]);
    host.reportFailure(event["job"]["name"].get<std::string>() + ": refused: " + refused.reason);
  }
  if (!report.refused.empty())
    host.reportFailure(counted(report.refused.size(), "event") + " of " + std::to_string(events.size()) +
                       (report.refused.size() == 1 ? " was refused" : " were refused"));
}

} // namespace

void addEventOptions(CLI::App& command, EventOptions& options) {
  const std::string group = "OpenLineage";
  addListOption(command, "--namespace", options.namespaces,
                "The standard's name of a data source, for example Warehouse=postgres://db:5432/dwh",
                "NAME=URI")
      ->check(faultOf);
  command
      .add_option("--job-namespace", options.jobNamespace,
                  "The namespace of the jobs in events (default: qvrepos)")
      ->type_name("NAME")
      ->check(notEmpty());
  command
      .add_option("--event-time", options.time,
                  "The time of the events, for example 2026-11-21T10:15:30Z; now, if none")
      ->type_name("TIME")
      ->check(notEmpty());
  command
      .add_option("--emit", options.url,
                  "Post the events to this backend; a key for it comes from OPENLINEAGE_API_KEY")
      ->type_name("URL")
      ->check([](const std::string& url) {
        const auto host = url.find("://") + 3;
        return (url.starts_with("http://") || url.starts_with("https://")) && host < url.size() &&
                       url[host] != '/'
                   ? std::string()
                   : "write it as http://... or https://...: " + url;
      });
  command
      .add_option("--resume", options.resume,
                  "Keep in this file how far the posting came, and go on there after a run that ended early")
      ->type_name("FILE")
      ->check(notEmpty());
}

bool isGiven(const EventOptions& options) {
  return !(options.namespaces.empty() && options.jobNamespace.empty() && options.time.empty() &&
           options.url.empty() && options.resume.empty());
}

void checkEventOptions(const EventOptions& options) {
  for (auto one = options.namespaces.begin(); one != options.namespaces.end(); ++one)
    if (std::any_of(options.namespaces.begin(), one,
                    [&](const auto& other) { return qvbEqualsIgnoreCase(sourceOf(*one), sourceOf(other)); }))
      refuseUsage("--namespace: " + std::string(sourceOf(*one)) + " is given more than once");
  std::string none;
  const Graph graph;
  if (const auto tried = writeOpenLineage(View(graph), lineageOptions(options), none); !tried)
    refuseUsage("--event-time: " + tried.error().message);
}

OpenLineageOptions lineageOptions(const EventOptions& options) {
  OpenLineageOptions made;
  for (const auto& mapping : options.namespaces)
    made.namespaces[mapping.substr(0, divisionOf(mapping))] = mapping.substr(divisionOf(mapping) + 1);
  made.jobNamespace = options.jobNamespace;
  made.eventTime = options.time;
  return made;
}

void noteUnusedNamespaces(Host& host, const Graph& graph, const EventOptions& options) {
  std::vector<std::string> sources;
  for (NodeIndex index = 0; index < graph.nodeCount(); ++index)
    if (graph.type(index) == NodeType::DataSource)
      sources.emplace_back(graph.name(index));
  for (const auto& mapping : options.namespaces) {
    const std::string given(sourceOf(mapping));
    if (std::ranges::any_of(sources, [&](const auto& known) { return qvbEqualsIgnoreCase(known, given); }))
      continue;
    const auto message =
        "--namespace: no job connects to a data source " + given + didYouMean(given, sources);
    if (options.url.empty())
      host.note(message);
    else
      host.warn(message); // what was posted cannot be taken back
  }
}

void postEvents(Host& host, const std::string& lines, const EventOptions& options) {
  host.setDefaultLogLevel(QvLoggingLevel::Critical); // what the library logs as an error is reported here
  const auto events = linesOf(lines);
  const Progress progress(options.resume, options.url, events);
  EmitOptions emit;
  emit.url = options.url;
  if (const char* key = std::getenv(keyVariable))
    emit.apiKey = key;
  const auto before = progress.read();
  if (!before)
    return host.reportFailure(before.error().message);
  emit.first = std::min(*before, events.size());
  if (emit.first > 0)
    host.note("going on after " + counted(emit.first, "event") + " that were dealt with before");
  // Before anything is posted, so that a file that cannot be written costs nothing.
  std::string unkept = progress.keep(emit.first);
  if (!unkept.empty())
    return host.reportFailure(unkept);
  EmitReport report;
  {
    ProgressBar bar(host, events.size(), eventsShownFrom, "events");
    emit.progress = [&](std::size_t done) {
      bar.advanceTo(done);
      unkept = progress.keep(done);
      return unkept.empty();
    };
    report = emitEvents(events, emit);
  }
  reportRefusals(host, events, report);
  if (!unkept.empty())
    return host.reportFailure(unkept);
  if (!report.stopped.empty())
    host.reportFailure("stopped after " + std::to_string(report.done) + " of " +
                       counted(events.size(), "event") + ": " + report.stopped +
                       (report.done == 0         ? ""
                        : options.resume.empty() ? "; with --resume FILE the next run goes on there"
                                                 : "; the same command goes on there"));
  else
    progress.end();
  host.note(counted(report.accepted, "event") + " accepted");
}
