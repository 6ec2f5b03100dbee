// Events of OpenLineage, the open standard for lineage: one JobEvent a job, which tells what it reads and writes.
#include "qvlineagegraph/formats.h"

#include "datapath.h"
#include "jsonwriter.h"

#include "qvreposres/qvreposres.h"
#include "qvxbase/qvbdate.h"
#include "qvxbase/qvbreleased.h"
#include "qvxbase/qvbstring.h"
#include "qvxbase/qvuri.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <vector>

namespace qvlineagegraph {

namespace {

constexpr const char* eventSchema = "https://openlineage.io/spec/2-0-2/OpenLineage.json#/$defs/";
constexpr const char* facetSchemas = "https://openlineage.io/spec/facets/";
constexpr const char* ownJobNamespace = "qvrepos";

std::string producer() { return std::string("urn:qvreposres:") + qvx_build_version; }

void beginFacet(JsonWriter& json, std::string_view schemas, std::string_view schema) {
  json.name("_producer").text(producer());
  json.name("_schemaURL").text(std::string(schemas).append(schema));
}

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
    name.append(&part == &parts.front() ? "" : ".").append(part);
  return name;
}

class EventWriter {
public:
  EventWriter(const View& view, const OpenLineageOptions& options)
      : m_view(view), m_options(options),
        m_time(options.eventTime.empty()
                   ? std::string(QvbDate::currentDate(true).asString(false).view()) + "Z"
                   : options.eventTime) {}

  void write(NodeIndex job, std::string& out) const {
    JsonWriter json(out, JsonWriter::Layout::Line);
    json.object([&] {
      json.name("eventTime").text(m_time);
      json.name("producer").text(producer());
      json.name("schemaURL").text(std::string(eventSchema) + "JobEvent");
      json.name("job");
      writeJob(json, m_view.node(job));
      json.name("inputs").array([&] {
        for (const Edge& edge : m_view.in(job))
          if (edge.access == Access::Read)
            writeDataset(json, edge.from, edge, "inputFacets", "InputDatasetFacet");
      });
      json.name("outputs").array([&] {
        for (const Edge& edge : m_view.out(job))
          if (edge.access == Access::Write)
            writeDataset(json, edge.to, edge, "outputFacets", "OutputDatasetFacet");
      });
    });
    out += '\n';
  }

private:
  void writeJob(JsonWriter& json, const Node& job) const {
    json.object([&] {
      json.name("namespace").text(m_options.jobNamespace.empty() ? ownJobNamespace : m_options.jobNamespace);
      json.name("name").text(job.name);
      json.name("facets").object([&] { writeJobFacets(json, job); });
    });
  }

  static void writeJobFacets(JsonWriter& json, const Node& job) {
    json.name("jobType").object([&] {
      beginFacet(json, facetSchemas, "2-0-4/JobTypeJobFacet.json#/$defs/JobTypeJobFacet");
      json.name("processingType").text("BATCH");
      json.name("integration").text("QVREPOS");
      if (!job.kind.empty())
        json.name("jobType").text(job.kind);
    });
    if (!job.file.starts_with('/'))
      return;
    json.name("sourceCodeLocation").object([&] {
      beginFacet(json, facetSchemas,
                 "1-1-0/SourceCodeLocationJobFacet.json#/$defs/SourceCodeLocationJobFacet");
      json.name("type").text("file");
      json.name("url").text(uriText(getURI(bytes("file"), QvbString(), bytes(job.file))));
    });
  }

  void writeDataset(JsonWriter& json, NodeIndex index, const Edge& edge, std::string_view facets,
                    std::string_view schema) const {
    json.object([&] {
      if (m_view.graph().type(index) == NodeType::Table)
        writeTableMembers(json, m_view.node(index));
      else
        writeFileMembers(json, m_view.node(index));
      if (!edge.inferred)
        return;
      json.name(facets).object([&] {
        json.name("qvrepos_edge").object([&] {
          beginFacet(json, eventSchema, schema);
          json.name("inferred").truth(true);
        });
      });
    });
  }

  static void writeFileMembers(JsonWriter& json, const Node& node) {
    json.name("namespace").text("file");
    json.name("name").text(node.file.empty() ? node.name : node.file);
  }

  void writeTableMembers(JsonWriter& json, const Node& node) const {
    auto parts = splitDataPath(node.name);
    const std::string source = node.source == noNode ? "" : std::string(m_view.graph().name(node.source));
    if (!source.empty() && parts.size() > 1)
      parts.erase(parts.begin());
    const Place place = placeOfSource(source);
    if (hasNoSchemas(place.uri)) // the schema of a catalog's table, which is not there
      std::erase(parts, "");
    if (!place.database.empty() && parts.size() < (hasNoSchemas(place.uri) ? 2U : 3U))
      parts.insert(parts.begin(), place.database);
    json.name("namespace").text(place.space);
    json.name("name").text(parts.empty() ? std::string(node.name) : joined(parts));
    if (source.empty())
      return;
    json.name("facets").object([&] {
      json.name("dataSource").object([&] {
        beginFacet(json, facetSchemas, "1-0-1/DatasourceDatasetFacet.json#/$defs/DatasourceDatasetFacet");
        json.name("name").text(source);
        json.name("uri").text(place.uri);
      });
    });
  }

  Place placeOfSource(const std::string& source) const {
    const auto mapped = std::ranges::find_if(
        m_options.namespaces, [&](const auto& one) { return qvbEqualsIgnoreCase(one.first, source); });
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

bool isDigit(char byte) { return byte >= '0' && byte <= '9'; }

// Takes a number of two digits off the text, and tells whether there was one and it lies between these.
bool takeNumber(std::string_view& text, int least, int most) {
  if (text.size() < 2 || !isDigit(text[0]) || !isDigit(text[1]))
    return false;
  const int number = 10 * (text[0] - '0') + (text[1] - '0');
  text.remove_prefix(2);
  return number >= least && number <= most;
}

bool takeByte(std::string_view& text, char byte) {
  if (!text.starts_with(byte))
    return false;
  text.remove_prefix(1);
  return true;
}

// A point with one to nine digits, or nothing.
bool takeFraction(std::string_view& text) {
  if (!takeByte(text, '.'))
    return true;
  const auto digits = std::min(text.find_first_not_of("0123456789"), text.size());
  text.remove_prefix(digits);
  return digits >= 1 && digits <= 9;
}

// The form of RFC 3339, with a zone. Whether a month has that day is not looked at.
bool isTime(std::string_view text) {
  const bool isDayAndTime = takeNumber(text, 0, 99) && takeNumber(text, 0, 99) && takeByte(text, '-') &&
                            takeNumber(text, 1, 12) && takeByte(text, '-') && takeNumber(text, 1, 31) &&
                            takeByte(text, 'T') && takeNumber(text, 0, 23) && takeByte(text, ':') &&
                            takeNumber(text, 0, 59) && takeByte(text, ':') && takeNumber(text, 0, 59) &&
                            takeFraction(text);
  if (!isDayAndTime)
    return false;
  const bool isZone =
      takeByte(text, 'Z') || ((takeByte(text, '+') || takeByte(text, '-')) && takeNumber(text, 0, 23) &&
                              takeByte(text, ':') && takeNumber(text, 0, 59));
  return isZone && text.empty();
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
      writer.write(node, out);
  return {};
}

} // namespace qvlineagegraph
