#include "repositoryfolders.h"

#include "qvreposconfigmgrimpl.h"

#include <algorithm>
#include <utility>

namespace {

bool isSeparator(char character) { return character == '/' || character == '\\'; }

// The file name without its folder's path and separator; nothing for a file that does not lie below the folder. A folder
// is left at a separator only, which may be its own last character: "/srv/repository/x" is not below "/srv/repo".
std::optional<QvbString> pathBelow(const QvbString& folder, const QvbString& filename) {
  if (folder.isEmpty() || !filename.view().starts_with(folder.view()))
    return std::nullopt;
  const auto rest = filename.mid(folder.length());
  if (rest.isEmpty() || isSeparator(folder.view().back()))
    return rest;
  return isSeparator(rest.view().front()) ? std::optional(rest.mid(1)) : std::nullopt;
}

// As the list of all definitions gives it, a copy of a copy: each drops separators that a back slash before a slash has
// kept.
QvbString listedVaultPath(QvReposConfiguration& definition) {
  auto path = definition.getVaultPath();
  for (int copies = 0; copies < 2; ++copies)
    trimFileSeperators(&path);
  return path;
}

constexpr auto pathOf = [](const auto& folder) { return folder.path.view(); };

} // namespace

// A path follows all those that it begins with, and only others that begin with the same ones stand between.
RepositoryTable::RepositoryTable(const DefinitionSet& definitions) {
  m_folders.reserve(definitions.definitions().size());
  for (const auto& file : definitions.definitions())
    m_folders.push_back({listedVaultPath(file->definition), file->definition.getName()});
  std::ranges::stable_sort(m_folders, {}, pathOf);
  const auto isSame = [](const Folder& a, const Folder& b) { return a.path == b.path; };
  m_folders.erase(std::unique(m_folders.begin(), m_folders.end(), isSame), m_folders.end());
  for (std::size_t i = 1; i < m_folders.size(); ++i) {
    auto prefix = i - 1;
    while (prefix != None && !m_folders[i].path.view().starts_with(m_folders[prefix].path.view()))
      prefix = m_folders[prefix].prefix;
    m_folders[i].prefix = prefix;
  }
}

std::optional<RepositoryPath> RepositoryTable::find(const QvbString& filename) const {
  const auto after = std::ranges::upper_bound(m_folders, filename.view(), {}, pathOf);
  auto place = after == m_folders.begin() ? None : static_cast<std::size_t>(after - m_folders.begin()) - 1;
  for (; place != None; place = m_folders[place].prefix)
    if (auto path = pathBelow(m_folders[place].path, filename))
      return RepositoryPath{m_folders[place].repository, *std::move(path)};
  return std::nullopt;
}

RepositoryFolders::RepositoryFolders() : m_logger(qvlogGetLogger("QV.Repos.QvReposRes.ReposConfigMgr")) {}

std::optional<RepositoryPath> RepositoryFolders::find(const QvbString& filename) {
  if (!m_table || m_logger->isEnabled(QvLoggingLevel::Lifecycle)) {
    const auto definitions = QvReposConfigManagerImpl().loadAnew();
    m_table = {definitions, &definitions->repositories()};
  }
  return m_table->find(filename);
}
