#include "datapath.h"

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

std::string joinDataPath(std::initializer_list<std::string_view> parts) {
  std::string path;
  for (const auto part : parts) {
    if (part.empty())
      continue;
    if (!path.empty())
      path += '.';
    appendPart(path, part);
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

} // namespace qvlineagegraph
