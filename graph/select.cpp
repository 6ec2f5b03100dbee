// Selections.
#include "qvlineagegraph/select.h"

#include "datapath.h"
#include "jobname.h"
#include "wildcard.h"

#include "qvxbase/qvbstring.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <iterator>
#include <optional>
#include <utility>

namespace qvlineagegraph {

namespace {

// How far around the named nodes: nothing for not at all.
struct Around {
  bool isWanted = false;
  Depth depth;
};

struct Expression {
  Around upstream;
  Around downstream;
  std::optional<NodeType> type; // in place of a name
  Wildcard name;
  std::string text; // the name as it was asked for
};

bool isDigit(char character) { return character >= '0' && character <= '9'; }

Error malformed(std::string_view expression, std::string_view reason) {
  return {ErrorKind::Malformed, "\"" + std::string(expression) + "\" " + std::string(reason)};
}

// Any depth for no digits; nothing for a number beyond all bounds.
std::optional<Around> around(std::string_view digits) {
  Around result{true, {}};
  if (digits.empty())
    return result;
  std::size_t depth = 0;
  if (std::from_chars(digits.data(), digits.data() + digits.size(), depth).ec != std::errc())
    return std::nullopt;
  result.depth = depth;
  return result;
}

// "2+" at the beginning, which is taken off.
std::optional<Around> takeUpstream(std::string_view& rest) {
  const auto digits =
      static_cast<std::size_t>(std::find_if_not(rest.begin(), rest.end(), isDigit) - rest.begin());
  if (digits == rest.size() || rest[digits] != '+')
    return Around{};
  const auto result = around(rest.substr(0, digits));
  rest.remove_prefix(digits + 1);
  return result;
}

bool isEscaped(std::string_view text, std::size_t place) {
  std::size_t backslashes = 0;
  while (backslashes < place && text[place - 1 - backslashes] == '\\')
    ++backslashes;
  return backslashes % 2 == 1;
}

// "+3" at the end, which is taken off.
std::optional<Around> takeDownstream(std::string_view& rest) {
  std::size_t digits = 0;
  while (digits < rest.size() && isDigit(rest[rest.size() - 1 - digits]))
    ++digits;
  if (digits == rest.size())
    return Around{};
  const std::size_t plus = rest.size() - 1 - digits;
  if (rest[plus] != '+' || isEscaped(rest, plus))
    return Around{};
  const auto result = around(rest.substr(plus + 1));
  rest = rest.substr(0, plus);
  return result;
}

std::optional<NodeType> nodeTypeOf(std::string_view name) {
  for (const auto type : {NodeType::Job, NodeType::Table, NodeType::DataSource, NodeType::File})
    if (qvbEqualsIgnoreCase(nameOf(type), name))
      return type;
  return std::nullopt;
}

Result<Expression> parse(std::string_view text) {
  constexpr std::string_view typePrefix = "type:";
  std::string_view rest = text;
  Expression expression;
  const auto upstream = takeUpstream(rest);
  const auto downstream = takeDownstream(rest);
  if (!upstream || !downstream)
    return malformed(text, "counts further than any graph goes");
  expression.upstream = *upstream;
  expression.downstream = *downstream;
  if (rest.empty())
    return malformed(text, "names nothing; write a table or a job, as in +dw.customers");
  expression.text = rest;
  if (!qvbEqualsIgnoreCase(rest.substr(0, typePrefix.size()), typePrefix)) {
    expression.name = Wildcard(rest);
    return expression;
  }
  expression.type = nodeTypeOf(rest.substr(typePrefix.size()));
  if (!expression.type)
    return malformed(text, "names no type; the types are Job, Table, DataSource and File");
  return expression;
}

bool bearsName(const Node& node, const Wildcard& name) {
  switch (node.type) {
  case NodeType::Job:
  case NodeType::File:
    return name.matchesEndOf(node.name, '/') || name.matchesEndOf(node.file, '/') ||
           name.matchesEndOf(withoutExtension(node.file), '/');
  case NodeType::Table:
    return name.matchesEndOf(node.name, '.') || (node.name.find('"') != std::string_view::npos &&
                                                 name.matchesEndOf(withoutQuotes(node.name), '.'));
  case NodeType::DataSource:
    break;
  }
  return name.matches(node.name);
}

bool isDescribed(const Node& node, const Expression& expression) {
  return expression.type ? node.type == *expression.type : bearsName(node, expression.name);
}

// Tables stand for their data sources.
bool isLeftOut(NodeType type, ViewKind kind) {
  return kind == ViewKind::Jobs
             ? type != NodeType::Job
             : kind == ViewKind::Tables && (type == NodeType::Job || type == NodeType::File);
}

// Whether the graph has what the view is not of a kind to show.
bool isHidden(const Expression& expression, const View& view) {
  const Graph& graph = view.graph();
  for (NodeIndex i = 0; i < graph.nodeCount(); ++i)
    if (isLeftOut(graph.type(i), view.kind()) && isDescribed(graph.node(i), expression))
      return true;
  return false;
}

std::vector<NodeIndex> namedBy(const Expression& expression, const View& view) {
  const Graph& graph = view.graph();
  std::vector<bool> isSourceNamed(graph.nodeCount());
  for (NodeIndex i = 0; i < graph.nodeCount(); ++i)
    if (graph.type(i) == NodeType::DataSource)
      isSourceNamed[i] = isDescribed(graph.node(i), expression);
  std::vector<NodeIndex> named;
  for (const NodeIndex index : view.nodes()) {
    const Node node = view.node(index);
    if (isDescribed(node, expression) || (node.source != noNode && isSourceNamed[node.source]))
      named.push_back(index);
  }
  return named;
}

void mark(std::vector<bool>& marked, const std::vector<NodeIndex>& nodes) {
  for (const NodeIndex node : nodes)
    marked[node] = true;
}

std::vector<NodeIndex> markedOf(const View& view, const std::vector<bool>& marked) {
  std::vector<NodeIndex> nodes;
  for (const NodeIndex node : view.nodes())
    if (marked[node])
      nodes.push_back(node);
  return nodes;
}

// Why an expression describes nothing.
std::string reasonOf(const View& view, const Expression& expression) {
  const std::string name = "\"" + expression.text + "\"";
  if (isHidden(expression, view))
    return name + " is not in this view, which shows " + (view.kind() == ViewKind::Jobs ? "jobs" : "tables") +
           " alone";
  std::string reason = "nothing matches " + name;
  const auto nearest = nearestNames(view, expression.text);
  for (const auto& one : nearest)
    reason.append(&one == &nearest.front() ? "; the nearest names are: " : ", ").append(one);
  return reason;
}

struct Described {
  std::vector<bool> named;
  std::vector<bool> all;              // with what is around them
  std::vector<std::string> unmatched; // why, of each expression that describes nothing
};

Result<Described> describe(const View& view, const std::vector<std::string>& expressions) {
  const std::size_t count = view.graph().nodeCount();
  Described described{std::vector<bool>(count), std::vector<bool>(count), {}};
  for (const auto& text : expressions) {
    const auto expression = parse(text);
    if (!expression)
      return expression.error();
    const auto named = namedBy(*expression, view);
    if (named.empty())
      described.unmatched.push_back(reasonOf(view, *expression));
    mark(described.named, named);
    mark(described.all, named);
    if (expression->upstream.isWanted)
      mark(described.all, reached(view, named, Direction::Upstream, expression->upstream.depth));
    if (expression->downstream.isWanted)
      mark(described.all, reached(view, named, Direction::Downstream, expression->downstream.depth));
  }
  return described;
}

Error nothingMatched(const std::vector<std::string>& reasons) {
  std::string message;
  for (const auto& reason : reasons)
    message.append(message.empty() ? "" : "\n").append(reason);
  return {ErrorKind::NothingMatched, std::move(message)};
}

} // namespace

Result<Selected> select(const View& view, const Selection& selection) {
  auto wanted = describe(view, selection.select);
  if (!wanted)
    return wanted.error();
  auto unwanted = describe(view, selection.exclude);
  if (!unwanted)
    return unwanted.error();
  auto unmatched = std::move(wanted->unmatched);
  if (selection.select.empty())
    mark(wanted->all, {view.nodes().begin(), view.nodes().end()});
  else if (unmatched.size() == selection.select.size())
    return nothingMatched(unmatched);
  for (const NodeIndex node : view.nodes())
    if (unwanted->all[node])
      wanted->all[node] = wanted->named[node] = false;
  const auto shown = markedOf(view, wanted->all);
  if (shown.empty() && !selection.exclude.empty())
    return Error{ErrorKind::NothingMatched, "everything that was selected is excluded"};
  std::ranges::move(unwanted->unmatched, std::back_inserter(unmatched));
  return Selected{view.induced(shown), markedOf(view, wanted->named), std::move(unmatched)};
}

std::string quotedName(std::string_view name) {
  constexpr std::string_view typePrefix = "type:";
  std::string expression;
  for (std::size_t i = 0; i < name.size(); ++i) {
    const bool beginsType =
        i + 1 == typePrefix.size() && qvbEqualsIgnoreCase(name.substr(0, i + 1), typePrefix);
    if (name[i] == '\\' || name[i] == '*' || name[i] == '+' || beginsType)
      expression += '\\';
    expression += name[i];
  }
  return expression;
}

} // namespace qvlineagegraph
