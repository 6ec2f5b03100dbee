// The page: its template with a saved graph in it, and what it opens on.
#include "qvlineagegraph/formats.h"
#include "qvlineagegraph/json.h"

#include "jsonwriter.h"
#include "pagetemplate.h"

namespace qvlineagegraph {

namespace {

constexpr std::string_view place = "@DATA@";

std::string_view nameOf(ViewKind kind) {
  switch (kind) {
  case ViewKind::Jobs:
    return "jobs";
  case ViewKind::Tables:
    return "tables";
  default:
    return "all";
  }
}

// A node as the page finds it again, whatever its place in the saved graph.
void writeKey(JsonWriter& json, const Node& node) {
  json.array([&] {
    json.text(nameOf(node.type));
    json.text(node.identity.empty() ? node.name : node.identity);
  });
}

// The members that the page has beside those of a saved graph.
std::string membersOf(const View& view, const HtmlOptions& options) {
  std::string members;
  JsonWriter json(members, JsonWriter::Layout::Line);
  json.object([&] {
    json.name("title").text(options.title);
    json.name("view").text(nameOf(view.kind()));
    json.name("selection").array([&] {
      for (const NodeIndex index : options.selected)
        if (view.contains(index))
          writeKey(json, view.node(index));
    });
  });
  return members.substr(1, members.size() - 2) + ',';
}

// In JSON "<" stands in strings alone. Without it nothing can end the element that holds the text, or open another.
void appendForScript(std::string_view json, std::string& out) {
  for (const char each : json) {
    if (each == '<')
      out += "\\u003c";
    else
      out += each;
  }
}

} // namespace

Result<void> writeHtml(const View& view, const HtmlOptions& options, std::string& out) {
  std::string graph;
  writeJson(view, graph);
  graph.insert(1, membersOf(view, options));

  const std::size_t at = pageTemplate.find(place);
  out.reserve(out.size() + pageTemplate.size() + graph.size() + graph.size() / 8);
  out += pageTemplate.substr(0, at);
  appendForScript(graph, out);
  out += pageTemplate.substr(at + place.size());
  return {};
}

} // namespace qvlineagegraph
