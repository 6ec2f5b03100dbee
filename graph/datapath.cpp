#include "datapath.h"

#include <algorithm>

namespace qvlineagegraph {

namespace {

void appendPart(std::string& path, std::string_view part) {
  if (part.find_first_of(".\"") == std::string_view::npos) {
    path += part;
    return;
  }
  path += '"';
  for (const char character : part) {
    if (character == '"')
      path += '"';
    path += character;
  }
  path += '"';
}

} // namespace

std::string joinDataPath(std::string_view dataSource, std::initializer_list<std::string_view> parts) {
  std::string path;
  appendPart(path, dataSource);
  const auto first = std::ranges::find_if_not(parts, &std::string_view::empty);
  for (auto part = first; part != parts.end(); ++part) {
    if (part != first || !dataSource.empty())
      path += '.';
    appendPart(path, *part);
  }
  return path;
}

std::vector<std::string> splitDataPath(std::string_view path) {
  std::vector<std::string> parts(1);
  bool isQuoted = false;
  for (std::size_t i = 0; i < path.size(); ++i) {
    if (path[i] == '"' && isQuoted && i + 1 < path.size() && path[i + 1] == '"')
      parts.back() += path[i++];
    else if (path[i] == '"')
      isQuoted = !isQuoted;
    else if (path[i] == '.' && !isQuoted)
      parts.emplace_back();
    else
      parts.back() += path[i];
  }
  if (isQuoted)
    parts.clear();
  return parts;
}

std::string withoutQuotes(std::string_view path) {
  const auto parts = splitDataPath(path);
  std::string plain;
  for (const auto& part : parts)
    plain.append(&part == &parts.front() ? "" : ".").append(part);
  return plain;
}

} // namespace qvlineagegraph
