// Writes the page of a saved graph: lineagepage GRAPH PAGE TITLE [TYPE IDENTITY]...
// The pairs name the nodes that the page opens on.
#include "qvlineagegraph/formats.h"
#include "qvlineagegraph/json.h"

#include <cstdio>
#include <fstream>
#include <span>

using namespace qvlineagegraph;

namespace {

int fail(const std::string& message) {
  std::fprintf(stderr, "%s\n", message.c_str());
  return 1;
}

} // namespace

int main(int argc, char** argv) {
  const std::span arguments(argv, static_cast<std::size_t>(argc));
  if (argc < 4)
    return fail("usage: lineagepage GRAPH PAGE TITLE [TYPE IDENTITY]...");
  const auto graph = readJsonFile(arguments[1]);
  if (!graph)
    return fail(graph.error().message);

  HtmlOptions options{.title = arguments[3], .selected = {}};
  for (std::size_t at = 4; at + 1 < arguments.size(); at += 2)
    for (NodeIndex node = 0; node < graph->nodeCount(); ++node)
      if (nameOf(graph->type(node)) == arguments[at] && graph->node(node).identity == arguments[at + 1])
        options.selected.push_back(node);

  std::string html;
  if (const auto written = writeHtml(View(*graph), options, html); !written)
    return fail(written.error().message);
  return std::ofstream(arguments[2], std::ios::binary)
                 .write(html.data(), static_cast<std::streamsize>(html.size()))
             ? 0
             : 1;
}
