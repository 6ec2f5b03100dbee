#include "qvreposconfigcache.h"

#include "guards.h"
#include "qvsfio/npfio.h"
#include "qvxbase/qvbformat.h"
#include "qvxbase/qvbpath.h"
#include "qvxbase/qvbunload.h"

#include <chrono>
#include <map>
#include <mutex>
#include <utility>

namespace {

// Up to two seconds are a file system's step.
constexpr std::int64_t settlingSeconds = 3;

bool isSameState(const NpFileStat& a, const NpFileStat& b) {
  return a.device == b.device && a.inode == b.inode && a.size == b.size &&
         a.modifiedSeconds == b.modifiedSeconds && a.modifiedNanoseconds == b.modifiedNanoseconds &&
         a.changedSeconds == b.changedSeconds && a.changedNanoseconds == b.changedNanoseconds;
}

// By the time of the change itself: the time of modification can be set back.
bool hasSettled(const NpFileStat& stat, std::int64_t now) {
  return stat.changedSeconds + settlingSeconds <= now;
}

struct KnownListing {
  NpFileStat stat;
  std::shared_ptr<const DefinitionPaths> files;
};

struct KnownFile {
  NpFileStat stat;
  DefinitionFilePtr file;
};
using KnownFiles = std::map<QvbString, KnownFile>; // by path

// What is known of the folders looked at last. It is replaced as a whole, so that files that are gone are forgotten when
// their folder is read the next time.
template<class Key, class Value>
class KnownFolders {
public:
  // Null when nothing is known.
  std::shared_ptr<const Value> find(const Key& key) {
    const std::lock_guard guard(m_mutex);
    const auto known = m_folders.find(key);
    return known == m_folders.end() ? nullptr : known->second;
  }

  void keep(const Key& key, std::shared_ptr<const Value> value) {
    const std::lock_guard guard(m_mutex);
    if (m_folders.size() >= maxFolders && !m_folders.contains(key))
      m_folders.clear();
    m_folders[key] = std::move(value);
  }

private:
  // A process has two folders unless its options change.
  static constexpr std::size_t maxFolders = 8;

  std::mutex m_mutex;
  std::map<Key, std::shared_ptr<const Value>> m_folders;
};
using Listings = KnownFolders<QvbString, KnownListing>;
using Contents = KnownFolders<std::pair<QvReposConfigType, QvbString>, KnownFiles>;

Listings& knownListings() {
  static Listings& listings = qvbUntilUnload<Listings>();
  return listings;
}

Contents& knownContents() {
  static Contents& contents = qvbUntilUnload<Contents>();
  return contents;
}

// Null when the folder cannot be opened.
std::shared_ptr<const DefinitionPaths> listFiles(const QvbString& path) {
  const Released<QvbDirectory> directory(qvbDirectoryOpen(path, 0, nullptr));
  if (!directory)
    return nullptr;
  auto files = std::make_shared<DefinitionPaths>();
  while (directory->next())
    if (directory->getName().view().ends_with(definitionFileSuffix))
      files->push_back(directory->getPath());
  return files;
}

// Reads one folder once.
class FolderReader {
public:
  FolderReader(QvReposConfigType type, std::shared_ptr<const KnownFiles> known, std::int64_t now)
      : m_type(type), m_known(std::move(known)), m_now(now) {}

  // Only regular files are opened: opening a pipe would wait for its other end.
  DefinitionFilePtr read(const QvbString& path) {
    NpFileStat stat{};
    const int code = np_fio_stat(path, &stat);
    if (code != NP_FIO_OK || stat.kind != NpFileKind::File)
      return unreadable(path, code == NP_FIO_OK || code == NP_FIO_NOT_FOUND ? "not a regular file"
                                                                            : np_fio_errdesc(code));
    auto file = findUnchanged(path, stat);
    if (!file)
      file = readDefinitionFile(path, m_type);
    if (file->content != DefinitionFile::Content::Unreadable && mayKeep(stat))
      m_seen->emplace_hint(m_seen->end(), path, KnownFile{stat, file});
    return file;
  }

  std::shared_ptr<const KnownFiles> seen() const { return m_seen; }

private:
  // What may be kept for one folder: bytes of files, and of what goes with each of them.
  static constexpr std::int64_t maxBytes = std::int64_t{16} << 20;
  static constexpr std::int64_t overhead = 1024;

  DefinitionFilePtr unreadable(const QvbString& path, const char* why) const {
    auto file = std::make_shared<DefinitionFile>(path, m_type);
    file->reason = qvbStringFormat("%S: %s", &path, why);
    return file;
  }

  DefinitionFilePtr findUnchanged(const QvbString& path, const NpFileStat& stat) const {
    if (!m_known)
      return nullptr;
    const auto known = m_known->find(path);
    return known != m_known->end() && isSameState(known->second.stat, stat) ? known->second.file : nullptr;
  }

  bool mayKeep(const NpFileStat& stat) {
    const auto bytes = stat.size + overhead;
    if (!hasSettled(stat, m_now) || bytes > m_room)
      return false;
    m_room -= bytes;
    return true;
  }

  const QvReposConfigType m_type;
  const std::shared_ptr<const KnownFiles> m_known;
  const std::int64_t m_now;
  std::int64_t m_room = maxBytes;
  std::shared_ptr<KnownFiles> m_seen = std::make_shared<KnownFiles>();
};

} // namespace

std::int64_t secondsNow() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::seconds>(now).count();
}

// The folder is looked at before it is listed: what changes meanwhile shows in its times the next time.
std::shared_ptr<const DefinitionPaths> listDefinitionFolder(const QvbString& path, std::int64_t now) {
  if (path.isEmpty())
    return nullptr;
  NpFileStat stat{};
  const bool isThere = np_fio_stat(path, &stat) == NP_FIO_OK;
  const auto known = isThere ? knownListings().find(path) : nullptr;
  if (known && isSameState(known->stat, stat))
    return known->files;
  auto files = listFiles(path);
  if (files && isThere && hasSettled(stat, now))
    knownListings().keep(path, std::make_shared<KnownListing>(KnownListing{stat, files}));
  return files;
}

std::vector<DefinitionFilePtr> readDefinitionFolder(const DefinitionFolder& folder, std::int64_t now) {
  std::vector<DefinitionFilePtr> files;
  const auto key = std::make_pair(folder.type, folder.path);
  FolderReader reader(folder.type, knownContents().find(key), now);
  if (folder.files)
    for (const auto& path : *folder.files)
      files.push_back(reader.read(path));
  knownContents().keep(key, reader.seen());
  return files;
}
