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

} // namespace

QvbString vaultPathOf(QvReposConfiguration& definition, int copies) {
  auto path = definition.getVaultPath();
  for (int copy = 0; copy < copies; ++copy)
    trimFileSeperators(&path);
  return path;
}

std::optional<RepositoryPath> findRepositoryPath(const QvbString& filename) {
  std::optional<RepositoryPath> best;
  QvbString::Index bestLength = 0;
  QvReposConfigManagerImpl().forEachDefinition([&](QvReposConfiguration& definition) {
    const auto vaultPath = vaultPathOf(definition, copiesOfList);
    const auto path = pathBelow(vaultPath, filename);
    if (path && vaultPath.length() > bestLength) {
      bestLength = vaultPath.length();
      best = {definition.getName(), *path};
    }
  });
  return best;
}

RepositoryFolders::RepositoryFolders() : m_logger(qvlogGetLogger("QV.Repos.QvReposRes.ReposConfigMgr")) {}

// A path follows all those that it begins with, and only others that begin with the same ones stand between.
void RepositoryFolders::read() {
  std::vector<Folder> folders;
  QvReposConfigManagerImpl().forEachDefinition([&](QvReposConfiguration& definition) {
    folders.push_back({vaultPathOf(definition, copiesOfList), definition.getName()});
  });
  std::stable_sort(folders.begin(), folders.end(),
                   [](const Folder& a, const Folder& b) { return a.path < b.path; });
  const auto isSame = [](const Folder& a, const Folder& b) { return a.path == b.path; };
  folders.erase(std::unique(folders.begin(), folders.end(), isSame), folders.end());
  for (std::size_t i = 1; i < folders.size(); ++i) {
    auto prefix = i - 1;
    while (prefix != none && !folders[i].path.view().starts_with(folders[prefix].path.view()))
      prefix = folders[prefix].prefix;
    folders[i].prefix = prefix;
  }
  m_folders = std::move(folders);
  m_isRead = true;
}

std::optional<RepositoryPath> RepositoryFolders::find(const QvbString& filename) {
  if (!m_isRead || m_logger->isEnabled(QvLoggingLevel::Lifecycle))
    read();
  const auto after =
      std::upper_bound(m_folders.begin(), m_folders.end(), filename,
                       [](const QvbString& name, const Folder& folder) { return name < folder.path; });
  auto place = after == m_folders.begin() ? none : static_cast<std::size_t>(after - m_folders.begin()) - 1;
  for (; place != none; place = m_folders[place].prefix)
    if (auto path = pathBelow(m_folders[place].path, filename))
      return RepositoryPath{m_folders[place].repository, *std::move(path)};
  return std::nullopt;
}
