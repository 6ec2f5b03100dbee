// Events of OpenLineage, the open standard for lineage: one JobEvent a job, which tells what it reads and writes.
#include "qvlineagegraph/formats.h"

#include "datapath.h"
#include "formattext.h"

#include "qvreposres/qvreposres.h"
#include "qvxbase/qvbdate.h"
#include "qvxbase/qvbreleased.h"
#include "qvxbase/qvuri.h"

#include <algorithm>
#include <array>
#include <regex>

namespace qvlineagegraph {

namespace {

using Json = nlohmann::ordered_json;

constexpr const char* eventSchema = "https://openlineage.io/spec/2-0-2/OpenLineage.json#/$defs/";
constexpr const char* facetSchemas = "https://openlineage.io/spec/facets/";
constexpr const char* ownJobNamespace = "qvrepos";

std::string producer() { return std::string("urn:qvreposres:") + qvx_build_version; }

Json facet(const std::string& schema) { return {{"_producer", producer()}, {"_schemaURL", schema}}; }

QvbString bytes(std::string_view text) { return QvbString(text); }

std::string uriText(QvURI* made) {
  const Released<QvURI> uri(made);
  return uri ? std::string(uri->asString().view()) : std::string();
}

// Databases whose tables lie in a database, without a schema between them.
bool hasNoSchemas(std::string_view uri) {
  static constexpr std::array<std::string_view, 6> schemes{"mysql", "mariadb",   "teradata",
                                                           "hive",  "cassandra", "clickhouse"};
  return std::ranges::find(schemes, uri.substr(0, uri.find("://"))) != schemes.end();
}

// Where the standard puts the tables of a data source: the namespace names the server, the name begins with the database.
struct Place {
  std::string space;
  std::string database; // empty where it is not known
  std::string uri;
};

Place placeOf(const std::string& uri) {
  const auto authority = uri.find("://");
  const auto path = authority == std::string::npos ? authority : uri.find('/', authority + 3);
  if (path == std::string::npos)
    return {uri, "", uri};
  std::string database = uri.substr(path + 1);
  if (database.ends_with('/'))
    database.pop_back();
  return {uri.substr(0, path), database, uri};
}

std::string joined(const std::vector<std::string>& parts) {
  std::string name;
  for (const auto& part : parts)
    name.append(name.empty() ? "" : ".").append(part);
  return name;
}

class EventWriter {
public:
  EventWriter(const View& view, const OpenLineageOptions& options)
      : m_view(view), m_options(options),
        m_time(options.eventTime.empty()
                   ? std::string(QvbDate::currentDate(true).asString(false).view()) + "Z"
                   : options.eventTime) {}

  Json event(NodeIndex job) const {
    Json event{{"eventTime", m_time},
               {"producer", producer()},
               {"schemaURL", std::string(eventSchema) + "JobEvent"},
               {"job", jobRecord(m_view.node(job))}};
    auto& inputs = event["inputs"] = Json::array();
    for (const Edge& edge : m_view.in(job))
      inputs.push_back(dataset(edge.from, edge, "inputFacets", "InputDatasetFacet"));
    auto& outputs = event["outputs"] = Json::array();
    for (const Edge& edge : m_view.out(job))
      outputs.push_back(dataset(edge.to, edge, "outputFacets", "OutputDatasetFacet"));
    return event;
  }

private:
  Json jobRecord(const Node& job) const {
    Json type = facet(std::string(facetSchemas) + "2-0-4/JobTypeJobFacet.json#/$defs/JobTypeJobFacet");
    type["processingType"] = "BATCH";
    type["integration"] = "QVREPOS";
    if (!job.kind.empty())
      type["jobType"] = job.kind;
    Json facets{{"jobType", type}};
    if (job.file.starts_with('/')) {
      Json location = facet(std::string(facetSchemas) +
                            "1-1-0/SourceCodeLocationJobFacet.json#/$defs/SourceCodeLocationJobFacet");
      location["type"] = "file";
      location["url"] = uriText(getURI(bytes("file"), QvbString(), bytes(job.file)));
      facets["sourceCodeLocation"] = location;
    }
    return {{"namespace", m_options.jobNamespace.empty() ? ownJobNamespace : m_options.jobNamespace},
            {"name", job.name},
            {"facets", facets}};
  }

  Json dataset(NodeIndex index, const Edge& edge, const char* kind, const char* schema) const {
    Json record = m_view.graph().type(index) == NodeType::Table ? table(index) : file(index);
    if (edge.inferred) {
      record[kind]["qvrepos_edge"] = facet(std::string(eventSchema) + schema);
      record[kind]["qvrepos_edge"]["inferred"] = true;
    }
    return record;
  }

  Json file(NodeIndex index) const {
    const Node node = m_view.node(index);
    return {{"namespace", "file"}, {"name", node.file.empty() ? node.name : node.file}};
  }

  Json table(NodeIndex index) const {
    const Node node = m_view.node(index);
    auto parts = splitDataPath(node.name);
    const std::string source = node.source == noNode ? "" : std::string(m_view.graph().name(node.source));
    if (!source.empty() && parts.size() > 1)
      parts.erase(parts.begin());
    const Place place = placeOfSource(source);
    if (!place.database.empty() && parts.size() < (hasNoSchemas(place.uri) ? 2U : 3U))
      parts.insert(parts.begin(), place.database);
    Json record{{"namespace", place.space}, {"name", parts.empty() ? std::string(node.name) : joined(parts)}};
    if (!source.empty()) {
      Json from = facet(std::string(facetSchemas) +
                        "1-0-1/DatasourceDatasetFacet.json#/$defs/DatasourceDatasetFacet");
      from["name"] = source;
      from["uri"] = place.uri;
      record["facets"]["dataSource"] = from;
    }
    return record;
  }

  Place placeOfSource(const std::string& source) const {
    const auto mapped = m_options.namespaces.find(source);
    if (mapped != m_options.namespaces.end())
      return placeOf(mapped->second);
    if (source.empty())
      return {"qvd:///", "", ""};
    const auto own = uriText(getDataURIFromComponents(bytes("qvd"), {}, bytes(source), {}, {}, {}, {}, {}));
    return {own, "", own};
  }

  const View& m_view;
  const OpenLineageOptions& m_options;
  std::string m_time;
};

bool isTime(const std::string& text) {
  static const std::regex form(
      R"(\d{4}-(0[1-9]|1[0-2])-(0[1-9]|[12]\d|3[01])T([01]\d|2[0-3]):[0-5]\d:[0-5]\d(\.\d+)?)"
      R"((Z|[+-]([01]\d|2[0-3]):[0-5]\d))");
  return std::regex_match(text, form);
}

} // namespace

Result<void> writeOpenLineage(const View& view, const OpenLineageOptions& options, std::string& out) {
  if (view.kind() != ViewKind::All)
    return Error{ErrorKind::Refused, "events tell of jobs and their tables: they need a view of both"};
  if (!options.eventTime.empty() && !isTime(options.eventTime))
    return Error{ErrorKind::Malformed,
                 "no time with a zone, such as 2026-11-21T10:15:30Z: " + options.eventTime};
  const EventWriter writer(view, options);
  for (const NodeIndex node : view.nodes())
    if (view.graph().type(node) == NodeType::Job)
      out += jsonText(writer.event(node));
  return {};
}

} // namespace qvlineagegraph
