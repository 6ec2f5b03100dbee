// qvrepos graph, upstream, downstream: the lineage graph, or a part of it, in one of many formats.
#include "events.h"
#include "graphs.h"
#include "usage.h"

#include "qvlineagegraph/formats.h"
#include "qvlineagegraph/json.h"
#include "qvlineagegraph/select.h"

#include <limits>
#include <map>

#include <unistd.h>

using namespace qvlineagegraph;

namespace {

const std::map<std::string, ViewKind> viewKinds{
    {"all", ViewKind::All}, {"jobs", ViewKind::Jobs}, {"tables", ViewKind::Tables}};
const std::vector<std::string> formats{"table",   "tree", "json", "csv",  "dot",
                                       "mermaid", "svg",  "png",  "html", "openlineage"};
const std::map<std::string, PictureFormat> pictures{{"svg", PictureFormat::Svg}, {"png", PictureFormat::Png}};

struct GraphOptions {
  ScanArguments scan;
  Selection selection;
  std::string view = "all";
  std::string format;
  std::string output;
  std::string title;
  EventOptions events;

  // Of upstream and downstream.
  std::string name;
  std::optional<Direction> direction;
  std::optional<std::size_t> depth;
};

bool isEmitted(const GraphOptions& options) { return !options.events.url.empty(); }

std::string formatOf(const Host& host, const GraphOptions& options) {
  if (host.json)
    return "json";
  if (!options.format.empty())
    return options.format;
  return isEmitted(options) ? "openlineage" : options.direction ? "tree" : "table";
}

// "2+dw.customers", "dw.customers+".
std::string expressionOf(const GraphOptions& options) {
  // A name in brackets may have become that of a file on its way here, which no table or job has.
  const std::string name = options.name.substr(options.name.starts_with("./[") ? 2 : 0);
  const std::string depth = options.depth ? std::to_string(*options.depth) : "";
  return *options.direction == Direction::Upstream ? depth + "+" + name : name + "+" + depth;
}

// Whether a name holds what goes around names in an expression: "2+" before it, or "+3" behind.
bool hasOperator(const std::string& name) {
  constexpr const char* digits = "0123456789";
  if (const auto first = name.find_first_not_of(digits); first == name.npos || name[first] == '+')
    return first != name.npos;
  const auto last = name.find_last_not_of(digits);
  if (name[last] != '+')
    return false;
  const auto before = name.find_last_not_of('\\', last - 1);
  return (last - 1 - before) % 2 == 0; // no backslash takes it as it is
}

// Wrong usage that shows before anything is read.
void checkUsage(const Host& host, const GraphOptions& options) {
  refuseTwoForms(host, options.format);
  const std::string format = formatOf(host, options);
  if (format != "openlineage" && isGiven(options.events))
    refuseUsage(
        "--namespace, --job-namespace, --event-time, --emit and --resume go with --format openlineage");
  if (format == "openlineage" && options.view != "all")
    refuseUsage("--format openlineage tells of jobs and their tables: it takes no --view " + options.view);
  if (format != "html" && !options.title.empty())
    refuseUsage("--title goes with --format html");
  if (isEmitted(options) && !options.output.empty())
    refuseUsage("--emit posts the events: it takes no --output");
  if (!isEmitted(options) && !options.events.resume.empty())
    refuseUsage("--resume goes with --emit");
  if (format == "png" && options.output.empty() && isatty(STDOUT_FILENO) == 1)
    refuseUsage("a terminal shows no picture: give --output");
  if (options.direction && hasOperator(options.name))
    refuseUsage("NAME takes no operator: " + options.name +
                "; `qvrepos graph --select` does, and \\+ is a plus sign of a name");
  checkEventOptions(options.events);
  const Graph none;
  if (const auto tried = select(View(none), options.selection);
      !tried && tried.error().kind == ErrorKind::Malformed)
    refuseUsage(tried.error().message);
}

TreeOptions treeOptions(const GraphOptions& options, const std::vector<NodeIndex>& named) {
  TreeOptions tree;
  tree.roots = named;
  tree.depth = options.depth;
  tree.upstream = options.direction ? options.direction == Direction::Upstream : !named.empty();
  tree.downstream = options.direction != Direction::Upstream;
  return tree;
}

using Write = void (*)(const View&, std::string&);
const std::map<std::string, Write> plainWriters{{"table", writeTable},
                                                {"csv", writeCsv},
                                                {"json", writeJson},
                                                {"dot", writeDot},
                                                {"mermaid", writeMermaid}};

// A page opens on all that is selected, or on what was named where that would be too much to look at.
std::vector<NodeIndex> openOn(const Selected& selected) {
  constexpr std::size_t mostAtOnce = 200;
  const auto nodes = selected.view.nodes();
  return selected.named.empty() || nodes.size() > mostAtOnce ? selected.named
                                                             : std::vector(nodes.begin(), nodes.end());
}

Result<void> writeAs(const std::string& format, const GraphOptions& options, const Selected& selected,
                     std::string& out) {
  if (const auto plain = plainWriters.find(format); plain != plainWriters.end()) {
    plain->second(selected.view, out);
    return {};
  }
  if (format == "tree") {
    writeTree(selected.view, treeOptions(options, selected.named), out);
    return {};
  }
  if (format == "openlineage")
    return writeOpenLineage(selected.view, lineageOptions(options.events), out);
  if (format == "html")
    return writeHtml(selected.view, {options.title, openOn(selected)}, out);
  auto drawn = writePicture(selected.view, pictures.at(format), out);
  if (!drawn && selected.view.nodes().size() > mostNodesInAPicture)
    return Error{ErrorKind::Refused, drawn.error().message + "; narrow it with --select"};
  return drawn;
}

void runGraph(Host& host, GraphOptions& options) {
  if (options.direction)
    options.selection.select = {expressionOf(options)};
  checkUsage(host, options);
  const Graph graph = scanned(host, options.scan);
  noteUnusedNamespaces(host, graph, options.events);
  const auto selected = select(View(graph, viewKinds.at(options.view)), options.selection);
  std::string result;
  if (!selected)
    reportFailures(host, selected.error().message);
  else if (const auto written = writeAs(formatOf(host, options), options, *selected, result); !written)
    reportFailures(host, written.error().message);
  else if (isEmitted(options))
    postEvents(host, result, options.events);
  else
    host.write(result, options.output);
  if (selected)
    for (const auto& reason : selected->unmatched)
      host.note(reason);
  noteCounts(host, graph);
}

// What `graph` and its two short forms take alike.
void addCommonOptions(CLI::App& command, Host& host, GraphOptions& options, const std::string& format) {
  addListOption(command, "--exclude", options.selection.exclude, "Leave out what this expression describes",
                "EXPR");
  command
      .add_option("--view", options.view,
                  "Show jobs and tables (all), or one of them, joined by way of the other")
      ->type_name("VIEW")
      ->transform(oneOfKeys(viewKinds));
  command.add_option("--format", options.format, "The form of the result (default: " + format + ")")
      ->type_name("FORMAT")
      ->transform(oneOf(formats));
  addOutputOption(command, options.output);
  command.add_option("--title", options.title, "The title of the page, with --format html")
      ->type_name("TITLE");
  addScanOptions(command, options.scan);
  addEventOptions(command, options.events);
  addJsonFlag(command, host, "the saved graph, as --format json");
}

void addDirectionCommand(CLI::App& app, Host& host, Direction direction) {
  const bool up = direction == Direction::Upstream;
  auto* command =
      app.add_subcommand(up ? "upstream" : "downstream",
                         up ? "Show what a table or job comes from" : "Show what rests on a table or job");
  auto options = std::make_shared<GraphOptions>();
  options->direction = direction;
  command->add_option("NAME", options->name, "A table or job, as in --select of `qvrepos graph`")
      ->required()
      ->check(notEmpty());
  addPathOperands(*command, options->scan);
  command->add_option("--depth", options->depth, "Follow this many edges at most")
      ->type_name("N")
      ->check(numberFrom(0, std::numeric_limits<unsigned>::max()));
  addCommonOptions(*command, host, *options, "tree");
  command->footer(up ? "Example: qvrepos upstream mart.daily_sales examples/repository/data_services"
                     : "Example: qvrepos downstream dw.orders examples/repository/data_services");
  command->callback([&host, options] { runGraph(host, *options); });
}

} // namespace

void addGraphCommands(CLI::App& app, Host& host) {
  auto* command = app.add_subcommand("graph", "Show the lineage graph of job files, or a part of it");
  auto options = std::make_shared<GraphOptions>();
  addPathOperands(*command, options->scan);
  addListOption(
      *command, "--select", options->selection.select,
      "Show what this expression describes: dw.customers, +NAME (and upstream), NAME+ (and downstream), "
      "2+NAME+3, * as a wildcard, type:Table",
      "EXPR");
  addCommonOptions(*command, host, *options, "table");
  command->footer("Example: qvrepos graph --select +mart.daily_sales examples/repository/data_services");
  command->callback([&host, options] { runGraph(host, *options); });
  addDirectionCommand(app, host, Direction::Upstream);
  addDirectionCommand(app, host, Direction::Downstream);
}
