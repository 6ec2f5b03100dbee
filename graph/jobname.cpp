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

// How often each short name would be had; a name that another file has with its extension counts, too.
Uses shortUsesOf(const std::vector<JobFile>& files) {
  Uses uses(files.size());
  for (const JobFile& file : files)
    ++uses[withoutExtension(file.name)];
  for (const JobFile& file : files)
    if (const auto taken = uses.find(file.name);
        taken != uses.end() && withoutExtension(file.name) != file.name)
      ++taken->second;
  return uses;
}

} // namespace

std::string_view withoutExtension(std::string_view path) {
  const auto name = path.rfind('/') + 1; // 0 where there is none
  const auto dot = path.rfind('.');
  return dot == std::string_view::npos || dot <= name ? path : path.substr(0, dot);
}

void nameJobs(std::vector<JobFile>& files) {
  const Uses shortUses = shortUsesOf(files);
  Uses longUses;
  std::vector<bool> isShort(files.size());
  for (std::size_t i = 0; i < files.size(); ++i) {
    isShort[i] = shortUses.find(withoutExtension(files[i].name))->second == 1;
    if (!isShort[i]) // names that are the same are so without their extensions, too
      ++longUses[files[i].name];
  }
  std::vector<std::string> names;
  names.reserve(files.size());
  for (std::size_t i = 0; i < files.size(); ++i) {
    const JobFile& file = files[i];
    if (isShort[i])
      names.emplace_back(withoutExtension(file.name));
    else
      names.push_back(longUses[file.name] == 1 ? file.name : file.path);
  }
  for (std::size_t i = 0; i < files.size(); ++i)
    files[i].name = std::move(names[i]);
}

} // namespace qvlineagegraph
