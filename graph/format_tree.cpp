// Trees of what lies upstream and downstream.
#include "qvlineagegraph/formats.h"

#include "formattext.h"

#include "qvxbase/qvbformat.h"

#include <deque>
#include <limits>

namespace qvlineagegraph {

namespace {

// A chain that is longer goes on at the margin: its lines would otherwise be of its length each.
constexpr std::size_t deepestLevel = 100;
constexpr std::size_t noLimit = std::numeric_limits<std::size_t>::max();

class TreeWriter {
public:
  TreeWriter(const View& view, const TreeOptions& options, std::string& out)
      : m_view(view), m_options(options), m_depth(options.depth.value_or(noLimit)), m_out(out),
        m_drawn(view.graph().nodeCount()), m_seen{m_drawn, m_drawn},
        m_below{std::vector<std::size_t>(m_drawn.size()), std::vector<std::size_t>(m_drawn.size())} {}

  void write() {
    for (const NodeIndex root : m_options.roots)
      writeWithContinuations(root);
    // What is shown and lies on no side of the roots; at last what only lies on a cycle.
    for (const bool startsOnly : {true, false})
      for (const NodeIndex node : m_view.nodes())
        if (!m_drawn[node] && (!startsOnly || isStart(node)))
          writeWithContinuations(node);
  }

private:
  struct Item {
    NodeIndex node;
    bool inferred;
    std::size_t level; // 1 for what hangs on the root's line
    std::size_t left;  // how many levels may follow below
    bool last;         // of its level below its parent
  };
  struct Neighbour {
    NodeIndex node;
    bool inferred;
  };

  bool isStart(NodeIndex node) const {
    return m_options.downstream ? m_view.in(node).empty() : m_view.out(node).empty();
  }

  std::vector<Neighbour> neighbours(NodeIndex node, Direction direction) const {
    std::vector<Neighbour> found;
    if (direction == Direction::Upstream)
      for (const Edge& edge : m_view.in(node))
        found.push_back({edge.from, edge.inferred});
    else
      for (const Edge& edge : m_view.out(node))
        found.push_back({edge.to, edge.inferred});
    return found;
  }

  void writeName(NodeIndex node) {
    const auto type = m_view.graph().type(node);
    m_out += qvbEscapeControls(m_view.graph().name(node)).view();
    if (m_view.kind() == ViewKind::All && type != NodeType::Table)
      m_out.append(" [").append(nameOf(type)) += ']';
    m_drawn[node] = true;
  }

  void writeWithContinuations(NodeIndex root) {
    writeRoot(root, {m_options.upstream, m_options.downstream}, m_depth);
    while (!m_continued.empty()) {
      const auto [item, direction] = m_continued.front();
      m_continued.pop_front();
      if (isNews(item.node, direction, item.left))
        writeRoot(item.node, {direction == Direction::Upstream, direction == Direction::Downstream},
                  item.left);
    }
  }

  struct Sides {
    bool upstream, downstream;
  };
  void writeRoot(NodeIndex root, Sides sides, std::size_t depth) {
    const bool up = sides.upstream && isNews(root, Direction::Upstream, depth);
    const bool down = sides.downstream && isNews(root, Direction::Downstream, depth);
    const bool wasDrawn = m_drawn[root];
    writeName(root);
    m_out += wasDrawn && !up && !down ? " (shown above)\n" : "\n";
    const bool named = m_options.upstream && m_options.downstream;
    m_lastAtLevel.assign(1, true);
    for (auto& seen : m_seen)
      seen[root] = true;
    if (up)
      writeSide(root, Direction::Upstream, named ? "upstream" : "", !down, depth);
    if (down)
      writeSide(root, Direction::Downstream, named ? "downstream" : "", true, depth);
  }

  // Whether anything is to be drawn on this side of the node that was not drawn there before.
  bool isNews(NodeIndex node, Direction direction, std::size_t depth) const {
    const bool any = direction == Direction::Upstream ? !m_view.in(node).empty() : !m_view.out(node).empty();
    return any && depth > below(direction)[node];
  }

  void writeSide(NodeIndex root, Direction direction, std::string_view name, bool last, std::size_t depth) {
    if (!name.empty()) {
      startLine(1, last);
      m_out.append(name) += '\n';
    }
    std::vector<Item> pending;
    push({root, false, name.empty() ? std::size_t{0} : 1, depth, last}, direction, pending);
    while (!pending.empty()) {
      const Item item = pending.back();
      pending.pop_back();
      writeItem(item, direction, pending);
    }
  }

  void writeItem(const Item& item, Direction direction, std::vector<Item>& pending) {
    startLine(item.level, item.last);
    std::vector<bool>& seen = m_seen[static_cast<std::size_t>(direction)];
    const bool wasSeen = seen[item.node];
    seen[item.node] = true;
    const bool news = item.left > 0 && isNews(item.node, direction, item.left);
    writeName(item.node);
    m_out += inferredMark(item.inferred);
    if (news && item.level >= deepestLevel) {
      m_continued.emplace_back(item, direction);
      m_out += " (continued below)\n";
      return;
    }
    m_out += wasSeen && !news ? " (shown above)\n" : "\n";
    if (news)
      push(item, direction, pending);
  }

  // What lies on that side of the item, the last first; it counts as drawn from now on.
  void push(const Item& item, Direction direction, std::vector<Item>& pending) {
    below(direction)[item.node] = item.left;
    const auto found = neighbours(item.node, direction);
    const std::size_t left = item.left == noLimit ? noLimit : item.left - 1;
    for (std::size_t i = found.size(); i-- > 0;)
      pending.push_back({found[i].node, found[i].inferred, item.level + 1, left, i + 1 == found.size()});
  }

  void startLine(std::size_t level, bool last) {
    m_lastAtLevel.resize(level + 1);
    m_lastAtLevel[level] = last;
    for (std::size_t i = 1; i < level; ++i)
      m_out += m_lastAtLevel[i] ? "   " : "│  ";
    m_out += last ? "└─ " : "├─ ";
  }

  std::vector<std::size_t>& below(Direction direction) {
    return m_below[static_cast<std::size_t>(direction)];
  }
  const std::vector<std::size_t>& below(Direction direction) const {
    return m_below[static_cast<std::size_t>(direction)];
  }

  const View& m_view;
  const TreeOptions& m_options;
  std::size_t m_depth;
  std::string& m_out;
  std::vector<bool> m_drawn;
  std::vector<bool> m_seen[2];         // on each side of a root
  std::vector<std::size_t> m_below[2]; // how many levels were drawn on each side of a node
  std::vector<bool> m_lastAtLevel;
  std::deque<std::pair<Item, Direction>> m_continued;
};

} // namespace

void writeTree(const View& view, const TreeOptions& options, std::string& out) {
  TreeWriter(view, options, out).write();
}

} // namespace qvlineagegraph
