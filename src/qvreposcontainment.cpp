#include "qvreposcontainment.h"

#include <algorithm>
#include <unordered_map>
#include <utility>

namespace {

// What it takes to fill the first level, and by how much more each further one.
constexpr std::size_t levelCapacity = 32;

thread_local std::uint64_t steps = 0;

} // namespace

ContainmentNode::Link::Link(Link&& other) noexcept
    : above(other.above), below(other.below), previous(other.previous), next(other.next) {
  if (other.isLinked()) {
    (previous ? previous->next : below->m_firstLink) = this;
    if (next)
      next->previous = this;
  }
  other.below = nullptr;
}

void ContainmentNode::Link::link() noexcept {
  next = below->m_firstLink;
  if (next)
    next->previous = this;
  below->m_firstLink = this;
}

void ContainmentNode::Link::unlink() noexcept {
  if (!isLinked())
    return;
  (previous ? previous->next : below->m_firstLink) = next;
  if (next)
    next->previous = previous;
  previous = next = nullptr;
}

// Members in the order in which they are met, each once. They are chained through themselves, so that a walk needs no
// memory. Two walks may go on at the same time as long as neither goes where the other one has been.
class ContainmentNode::Walk {
public:
  Walk(ContainmentNode& start, Direction direction) noexcept
      : m_first(&start), m_last(&start), m_direction(direction) {
    start.m_metBy = direction;
  }
  ~Walk() {
    for (auto* node = m_first; node;) {
      node->m_metBy = Direction::None;
      node = std::exchange(node->m_metNext, nullptr);
    }
  }
  Walk(const Walk&) = delete;
  Walk& operator=(const Walk&) = delete;

  bool hasMet(const ContainmentNode& node) const noexcept { return node.m_metBy == m_direction; }
  void meet(ContainmentNode& node) noexcept {
    if (hasMet(node))
      return;
    node.m_metBy = m_direction;
    m_last = m_last->m_metNext = &node;
  }

protected:
  ContainmentNode* first() const noexcept { return m_first; }

private:
  ContainmentNode* m_first;
  ContainmentNode* m_last;
  Direction m_direction;
};

// Over the containers of the start that are on its level.
class ContainmentNode::WalkUp : public Walk {
public:
  explicit WalkUp(ContainmentNode& start) noexcept
      : Walk(start, Direction::Up), m_at(&start), m_link(start.m_firstLink), m_level(start.m_level) {}

  // The next container, which may have been met before; null when there is none.
  ContainmentNode* next() noexcept {
    for (; m_at; m_at = m_at->m_metNext, m_link = m_at ? m_at->m_firstLink : nullptr)
      while (m_link) {
        Link* link = std::exchange(m_link, m_link->next);
        ++steps;
        if (link->above->m_level == m_level)
          return link->above;
        link->unlink(); // its content has been raised since
      }
    return nullptr;
  }

private:
  ContainmentNode* m_at;
  Link* m_link;
  std::size_t m_level;
};

// Over the contents of the start that are on no higher level than the given one; nor is the start.
class ContainmentNode::WalkDown : public Walk {
public:
  WalkDown(ContainmentNode& start, std::size_t highestLevel) noexcept
      : Walk(start, Direction::Down), m_at(&start), m_highestLevel(highestLevel) {}

  ContainmentNode* next() noexcept {
    for (; m_at; m_at = m_at->m_metNext, m_content = 0)
      while (m_content < m_at->m_contents.size()) {
        ContainmentNode* content = m_at->m_contents[m_content++].below;
        ++steps;
        if (content->m_level <= m_highestLevel)
          return content;
      }
    return nullptr;
  }
  // Puts all that were met on a level that is higher than theirs.
  void raiseTo(std::size_t level) noexcept {
    for (auto* node = first(); node; node = node->m_metNext)
      node->m_level = level;
    for (auto* node = first(); node; node = node->m_metNext)
      for (Link& link : node->m_contents)
        if (link.below->m_level == level && !link.isLinked())
          link.link();
  }

private:
  ContainmentNode* m_at;
  std::size_t m_content = 0;
  std::size_t m_highestLevel;
};

bool ContainmentNode::add(ContainmentNode& content) {
  if (&content == this || !putBelow(content))
    return false;
  m_contents.emplace_back(this, &content);
  ++content.m_containers;
  if (content.m_level == m_level)
    m_contents.back().link();
  return true;
}

void ContainmentNode::removeLast() noexcept {
  --m_contents.back().below->m_containers;
  m_contents.pop_back();
}

void ContainmentNode::clear() noexcept {
  for (Link& link : m_contents)
    --link.below->m_containers;
  m_contents.clear();
}

std::size_t ContainmentNode::places(std::size_t limit) const {
  struct Level {
    const ContainmentNode* node;
    std::size_t next;
  };
  std::unordered_map<const ContainmentNode*, std::size_t> counts{{this, 1}};
  std::vector<Level> levels{{this, 0}};
  while (!levels.empty()) {
    auto& [node, next] = levels.back();
    if (next == node->m_contents.size()) {
      levels.pop_back();
      continue;
    }
    const ContainmentNode* below = node->m_contents[next].below;
    const auto [count, isNew] = counts.try_emplace(below, 1);
    if (isNew && !below->m_contents.empty()) {
      levels.push_back({below, 0}); // and then this content again
      continue;
    }
    ++next;
    auto& sum = counts[node];
    sum = std::min(sum + count->second, limit + 1);
  }
  return counts[this];
}

std::uint64_t ContainmentNode::stepsSoFar() noexcept { return steps; }

// Makes room in the order of levels for the containment; false when this member is within the content.
bool ContainmentNode::putBelow(ContainmentNode& content) noexcept {
  if (m_level < content.m_level)
    return true;
  WalkUp up(*this);
  const auto level = levelBelow(content, up);
  return level && raise(content, *level, up);
}

// The level that the content has to be on at least; none when a circle was found.
std::optional<std::size_t> ContainmentNode::levelBelow(ContainmentNode& content, WalkUp& up) const noexcept {
  WalkDown down(content, m_level);
  for (auto left = levelCapacity * (m_level + 1); left != 0; --left) {
    ContainmentNode* below = down.next();
    if (!below)
      return m_level;
    if (up.hasMet(*below))
      return {};
    down.meet(*below);
    ContainmentNode* above = up.next();
    if (!above)
      return m_level;
    if (down.hasMet(*above))
      return {};
    up.meet(*above);
  }
  return m_level + 1;
}

// Puts the content, and what it contains on lower levels, on the level; false, with nothing raised, when that leads to
// what the other walk has met.
bool ContainmentNode::raise(ContainmentNode& content, std::size_t level, const Walk& forbidden) noexcept {
  if (content.m_level >= level)
    return true;
  WalkDown down(content, level);
  while (ContainmentNode* below = down.next()) {
    if (forbidden.hasMet(*below))
      return false;
    if (below->m_level < level)
      down.meet(*below);
  }
  down.raiseTo(level);
  return true;
}
