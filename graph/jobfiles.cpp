// Finding job files.
#include "qvlineagegraph/scan.h"

#include "jobname.h"

#include "qvreposres/qvreposobjecttypes.h"
#include "qvxbase/qvbreleased.h"
#include "qvxbase/qvuri.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <iterator>
#include <memory>
#include <optional>
#include <system_error>
#include <unordered_set>
#include <utility>

#include <dirent.h>
#include <fnmatch.h>

namespace fs = std::filesystem;

namespace qvlineagegraph {

namespace {

constexpr std::array<const char*, 4> jobTypes{"ProcessJob", "ArchitectJob", "DataJob", "XMLSQLQuery"};

// A file URI is the path that it names; anything else is a path as it is.
QvbString nativePath(const std::string& given) {
  QvbString path(std::string_view{given});
  const Released<QvURI> uri(getURIFromURIString(path));
  if (uri)
    getNativePath(uri.get(), &path);
  return path;
}

bool isJobFile(const std::string& name) {
  QvbString extension, folder, base, type;
  getComponentsFromFilesystemPath(QvbString(std::string_view(name)), &extension, &folder, &base);
  return getTypeForFileExtension(extension, &type) &&
         std::any_of(jobTypes.begin(), jobTypes.end(),
                     [&](const char* jobType) { return type.compare(jobType) == 0; });
}

struct FolderCloser {
  void operator()(DIR* folder) const { ::closedir(folder); }
};

// "./jobs/" says no more than "jobs".
std::vector<std::string> plainPatterns(std::vector<std::string> patterns) {
  for (auto& pattern : patterns) {
    while (pattern.starts_with("./"))
      pattern.erase(0, 2);
    while (pattern.ends_with('/'))
      pattern.pop_back();
  }
  return patterns;
}

bool matchesAny(const std::vector<std::string>& patterns, const std::string& below, const std::string& name) {
  return std::any_of(patterns.begin(), patterns.end(), [&](const std::string& pattern) {
    return fnmatch(pattern.c_str(), below.c_str(), 0) == 0 || fnmatch(pattern.c_str(), name.c_str(), 0) == 0;
  });
}

struct Entry {
  std::string path;
  std::string below; // the folder that was given
  bool isFolder = false;
};

// The search, which goes on for as long as it can: what cannot be looked at is noted.
class Search {
public:
  Search(const PathPatterns& patterns, bool canMeetTwice)
      : m_patterns{plainPatterns(patterns.include), plainPatterns(patterns.exclude)},
        m_canMeetTwice(canMeetTwice) {}

  void take(const std::string& given) {
    if (given == "-") {
      add("-", "-");
      return;
    }
    std::error_code error;
    const QvbString native = nativePath(given);
    const fs::path path = fs::absolute(std::string(native.view()), error).lexically_normal();
    if (error) {
      fail('"' + given + '"', given.empty() ? "no such file or folder" : error.message());
      return;
    }
    const auto status = fs::status(path, error);
    if (status.type() == fs::file_type::not_found && isURIReference(native))
      fail(given, "this URI names no file of this machine; name a file or a folder");
    else if (status.type() == fs::file_type::not_found)
      fail(path.string(), "no such file or folder");
    else if (fs::is_directory(status))
      searchFolder(path.string());
    else if (fs::exists(status))
      add(path.string(), path.filename().string());
    else
      fail(path.string(), error.message());
  }

  JobFiles result() && {
    nameJobs(m_found.files);
    return std::move(m_found);
  }

private:
  void add(std::string path, std::string below) {
    if (!m_canMeetTwice || m_known.insert(path).second)
      m_found.files.push_back({std::move(path), std::move(below)});
  }

  void fail(const std::string& path, const std::string& reason) {
    m_found.failures.push_back(
        {.kind = NoteKind::Failed, .node = noNode, .file = path, .text = path + ": " + reason});
  }

  // Folders that are reached through a symbolic link are not entered: a link cannot make the search endless.
  void searchFolder(const std::string& root) {
    std::vector<Entry> pending{{root, "", true}};
    while (!pending.empty()) {
      Entry next = std::move(pending.back());
      pending.pop_back();
      if (!next.isFolder) {
        add(std::move(next.path), std::move(next.below));
        continue;
      }
      auto wanted = wantedEntries(next);
      std::move(wanted.rbegin(), wanted.rend(), std::back_inserter(pending));
    }
  }

  // In name order.
  std::vector<Entry> wantedEntries(const Entry& folder) {
    std::vector<Entry> wanted;
    for (const auto& [name, kind] : namesIn(folder.path))
      if (auto one = lookAt(folder, name, kind))
        wanted.push_back(std::move(*one));
    return wanted;
  }

  // The names in a folder, sorted, with the kinds (DT_...) that the folder knows of what they name.
  std::vector<std::pair<std::string, unsigned char>> namesIn(const std::string& folder) {
    std::vector<std::pair<std::string, unsigned char>> names;
    errno = 0;
    const std::unique_ptr<DIR, FolderCloser> opened(::opendir(folder.c_str()));
    while (const dirent* entry = opened ? ::readdir(opened.get()) : nullptr) {
      if (const std::string_view name = entry->d_name; name != "." && name != "..")
        names.emplace_back(name, entry->d_type);
      errno = 0;
    }
    if (errno != 0)
      fail(folder, std::generic_category().message(errno));
    std::sort(names.begin(), names.end());
    return names;
  }

  // The entry, where it is a folder or a job file that the patterns let through. Its folder usually knows its kind.
  std::optional<Entry> lookAt(const Entry& folder, const std::string& name, unsigned char kind) {
    std::string below = folder.below.empty() ? name : folder.below + '/' + name;
    if (matchesAny(m_patterns.exclude, below, name))
      return std::nullopt;
    std::string path = folder.path + (folder.path.ends_with('/') ? "" : "/") + name;
    std::error_code error;
    if (kind == DT_DIR ||
        (kind == DT_UNKNOWN && fs::symlink_status(path, error).type() == fs::file_type::directory))
      return Entry{std::move(path), std::move(below), true};
    if (!error && !hasJobExtension(name))
      return std::nullopt;
    if (!m_patterns.include.empty() && !matchesAny(m_patterns.include, below, name))
      return std::nullopt;
    const bool isFile = kind == DT_REG || fs::is_regular_file(path, error);
    if (error)
      fail(path, error.message());
    return isFile ? std::optional(Entry{std::move(path), std::move(below), false}) : std::nullopt;
  }

  // Of most files the name ends as that of the file before, and an extension lies behind the first dot.
  bool hasJobExtension(const std::string& name) {
    const auto dot = name.find('.');
    if (dot == std::string::npos || dot == 0)
      return isJobFile(name);
    const auto ending = std::string_view(name).substr(dot);
    if (ending != m_latestEnding) {
      m_latestEnding = ending;
      m_isLatestJob = isJobFile(name);
    }
    return m_isLatestJob;
  }

  PathPatterns m_patterns;
  bool m_canMeetTwice; // what one path leads to is met once
  std::string m_latestEnding;
  bool m_isLatestJob = false;
  JobFiles m_found;
  std::unordered_set<std::string> m_known;
};

} // namespace

JobFiles findJobFiles(std::span<const std::string> paths, const PathPatterns& patterns) {
  Search search(patterns, paths.size() > 1);
  for (const auto& path : paths)
    search.take(path);
  return std::move(search).result();
}

std::string jobFileExtensions() {
  std::string extensions = "their extensions are";
  for (const char* type : jobTypes) {
    QvbString extension;
    if (getFileExtensionForType(type, &extension))
      extensions.append(type == jobTypes.front() ? " " : ", ").append(extension.view());
  }
  return extensions;
}

} // namespace qvlineagegraph
