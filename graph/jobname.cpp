#include "jobname.h"

#include "qvxbase/qvbstring.h"

#include <string_view>
#include <unordered_map>

namespace qvlineagegraph {

namespace {

struct FoldedHash {
  std::size_t operator()(std::string_view text) const { return qvbHashIgnoreCase(text); }
};
struct FoldedEqual {
  bool operator()(std::string_view a, std::string_view b) const noexcept { return qvbEqualsIgnoreCase(a, b); }
};
using Uses = std::unordered_map<std::string_view, std::size_t, FoldedHash, FoldedEqual>;

// A dot that begins a file's name begins no extension.
std::string_view withoutExtension(std::string_view path) {
  const auto name = path.rfind('/') + 1; // 0 where there is none
  const auto dot = path.rfind('.');
  return dot == std::string_view::npos || dot <= name ? path : path.substr(0, dot);
}

} // namespace

void nameJobs(std::vector<JobFile>& files) {
  Uses shortUses, longUses;
  for (const JobFile& file : files) {
    ++shortUses[withoutExtension(file.name)];
    ++longUses[file.name];
  }
  std::vector<std::string> names;
  names.reserve(files.size());
  for (const JobFile& file : files) {
    const auto shortName = withoutExtension(file.name);
    if (shortUses[shortName] == 1)
      names.emplace_back(shortName);
    else
      names.push_back(longUses[file.name] == 1 ? file.name : file.path);
  }
  for (std::size_t i = 0; i < files.size(); ++i)
    files[i].name = std::move(names[i]);
}

} // namespace qvlineagegraph
