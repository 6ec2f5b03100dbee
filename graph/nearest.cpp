// The names that are most like one that was asked for.
#include "qvlineagegraph/select.h"

#include <algorithm>
#include <utility>

namespace qvlineagegraph {

namespace {

char folded(char character) {
  return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a') : character;
}

// The least number of letters to change, add or leave out (Levenshtein), with an end as soon as it is over `most`.
std::size_t distance(std::string_view a, std::string_view b, std::size_t most) {
  if (std::max(a.size(), b.size()) - std::min(a.size(), b.size()) > most)
    return most + 1;
  std::vector<std::size_t> row(b.size() + 1);
  for (std::size_t j = 0; j < row.size(); ++j)
    row[j] = j;
  for (std::size_t i = 0; i < a.size(); ++i) {
    std::size_t diagonal = std::exchange(row[0], i + 1);
    std::size_t least = row[0];
    for (std::size_t j = 0; j < b.size(); ++j) {
      const std::size_t change = diagonal + (folded(a[i]) == folded(b[j]) ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({change, row[j] + 1, diagonal + 1});
      least = std::min(least, row[j + 1]);
    }
    if (least > most)
      return most + 1;
  }
  return row.back();
}

// As many parts from the end of the name as were asked for.
std::string_view lastParts(std::string_view name, char separator, std::size_t count) {
  std::size_t place = name.size();
  while (count > 0 && place != std::string_view::npos && place > 0) {
    place = name.rfind(separator, place - 1);
    --count;
  }
  return place == std::string_view::npos || place == 0 ? name : name.substr(place + 1);
}

} // namespace

std::vector<std::string> nearestNames(const View& view, std::string_view name, std::size_t count) {
  constexpr std::size_t longestName = 200; // beyond it there is nothing to mistype
  if (name.size() > longestName || count == 0)
    return {};
  const std::size_t most = std::max<std::size_t>(2, name.size() / 2);
  std::vector<std::pair<std::size_t, std::string_view>> near;
  for (const NodeIndex index : view.nodes()) {
    const Node node = view.node(index);
    const char separator = node.type == NodeType::Table ? '.' : '/';
    const auto parts = static_cast<std::size_t>(std::count(name.begin(), name.end(), separator)) + 1;
    if (const auto far = distance(name, lastParts(node.name, separator, parts), most); far <= most)
      near.emplace_back(far, node.name);
  }
  const auto end = near.begin() + static_cast<std::ptrdiff_t>(std::min(count, near.size()));
  std::partial_sort(near.begin(), end, near.end());
  std::vector<std::string> names;
  std::transform(near.begin(), end, std::back_inserter(names),
                 [](const auto& one) { return std::string(one.second); });
  return names;
}

} // namespace qvlineagegraph
