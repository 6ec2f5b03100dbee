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
  Uses shortUses(files.size()), longUses;
  std::vector<const std::size_t*> usesOf(files.size());
  for (std::size_t i = 0; i < files.size(); ++i) {
    auto& uses = shortUses[withoutExtension(files[i].name)];
    ++uses;
    usesOf[i] = &uses;
  }
  for (std::size_t i = 0; i < files.size();
       ++i) // names that are the same are so without their extensions, too
    if (*usesOf[i] > 1)
      ++longUses[files[i].name];
  std::vector<std::string> names;
  names.reserve(files.size());
  for (std::size_t i = 0; i < files.size(); ++i) {
    const JobFile& file = files[i];
    if (*usesOf[i] == 1)
      names.emplace_back(withoutExtension(file.name));
    else
      names.push_back(longUses[file.name] == 1 ? file.name : file.path);
  }
  for (std::size_t i = 0; i < files.size(); ++i)
    files[i].name = std::move(names[i]);
}

} // namespace qvlineagegraph
