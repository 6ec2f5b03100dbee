// The names of types, kinds and changes, as every format and option has them.
#include "qvlineagegraph/audit.h"
#include "qvlineagegraph/diff.h"
#include "qvlineagegraph/graph.h"

#include "qvxbase/qvbunload.h"

#include <array>

namespace qvlineagegraph {

namespace {

template<class Enum, std::size_t count>
std::string_view nameIn(const std::array<std::string_view, count>& names, Enum value) noexcept {
  return names.at(static_cast<std::size_t>(value));
}

constexpr std::array<std::string_view, 4> nodeTypeNames{"job", "table", "datasource", "file"};
constexpr std::array<std::string_view, 3> accessNames{"read", "write", "via"};
constexpr std::array<std::string_view, 7> noteNames{"failed",       "not-understood", "unusable-name",
                                                    "spelling",     "bare-unmatched", "bare-ambiguous",
                                                    "same-identity"};
constexpr std::array<std::string_view, 3> changeNames{"came", "went", "changed sides"};
constexpr std::array<std::string_view, 11> findingNames{
    "never-written",  "never-read",    "several-writers", "cycle",         "case-only", "bare-unmatched",
    "bare-ambiguous", "same-identity", "not-understood",  "unusable-name", "failed"};

} // namespace

std::string_view nameOf(NodeType type) noexcept { return nameIn(nodeTypeNames, type); }
std::string_view nameOf(Access access) noexcept { return nameIn(accessNames, access); }
std::string_view nameOf(NoteKind kind) noexcept { return nameIn(noteNames, kind); }
std::string_view nameOf(Change change) noexcept { return nameIn(changeNames, change); }
std::string_view nameOf(FindingKind kind) noexcept { return nameIn(findingNames, kind); }

const std::vector<FindingKind>& findingKinds() {
  static const auto& kinds = qvbUntilUnload<std::vector<FindingKind>>([] {
    std::vector<FindingKind> all(findingNames.size());
    for (std::size_t i = 0; i < all.size(); ++i)
      all[i] = static_cast<FindingKind>(i);
    return all;
  }());
  return kinds;
}

std::optional<FindingKind> findingKindOf(std::string_view name) noexcept {
  for (std::size_t i = 0; i < findingNames.size(); ++i)
    if (findingNames.at(i) == name)
      return static_cast<FindingKind>(i);
  return std::nullopt;
}

} // namespace qvlineagegraph
