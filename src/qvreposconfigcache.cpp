#include "qvreposconfigcache.h"

#include "qvsfio/npfio.h"

#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>
#include <utility>

namespace {

struct KnownFile {
  NpFileStat stat;
  DefinitionFilePtr file;
};
using KnownFiles = std::map<QvbString, KnownFile>; // by path

// What is known of the folders read last. A folder's files are replaced as a whole, so files that are gone are
// forgotten when their folder is read the next time.
class KnownFolders {
public:
  using Key = std::pair<QvReposConfigType, QvbString>;

  std::shared_ptr<const KnownFiles> find(const Key& key) {
    const std::lock_guard guard(m_mutex);
    const auto known = m_folders.find(key);
    return known == m_folders.end() ? std::make_shared<const KnownFiles>() : known->second;
  }

  void keep(const Key& key, std::shared_ptr<const KnownFiles> files) {
    const std::lock_guard guard(m_mutex);
    if (m_folders.size() >= maxFolders && !m_folders.contains(key))
      m_folders.clear();
    m_folders[key] = std::move(files);
  }

private:
  // A process has two folders unless its options change.
  static constexpr std::size_t maxFolders = 8;

  std::mutex m_mutex;
  std::map<Key, std::shared_ptr<const KnownFiles>> m_folders;
};

// Never destroyed: managers may be used while the process ends.
KnownFolders& knownFolders() {
  static KnownFolders& folders = *new KnownFolders;
  return folders;
}

bool isSameState(const NpFileStat& a, const NpFileStat& b) {
  return a.device == b.device && a.inode == b.inode && a.size == b.size &&
         a.modifiedSeconds == b.modifiedSeconds && a.modifiedNanoseconds == b.modifiedNanoseconds &&
         a.changedSeconds == b.changedSeconds && a.changedNanoseconds == b.changedNanoseconds;
}

std::int64_t secondsNow() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::seconds>(now).count();
}

// Reads one folder once.
class FolderReader {
public:
  FolderReader(QvReposConfigType type, const KnownFiles& known) : m_type(type), m_known(known) {}

  // Null when the file cannot be read. Only regular files are: opening a pipe would wait for its other end.
  DefinitionFilePtr read(const QvbString& path) {
    NpFileStat stat{};
    if (np_fio_stat(path, &stat) != NP_FIO_OK || stat.kind != NpFileKind::File)
      return nullptr;
    const auto known = m_known.find(path);
    const bool unchanged = known != m_known.end() && isSameState(known->second.stat, stat);
    auto file = unchanged ? known->second.file : readDefinitionFile(path, m_type);
    if (file && mayKeep(stat))
      m_seen->emplace_hint(m_seen->end(), path, KnownFile{stat, file});
    return file;
  }

  std::shared_ptr<const KnownFiles> seen() const { return m_seen; }

private:
  // A file that was changed just before it was read could be changed once more without a trace, within the
  // step of its file system's clock: up to two seconds. It is read each time until it has settled.
  static constexpr std::int64_t settlingSeconds = 3;
  // What may be kept for one folder: bytes of files, and of what goes with each of them.
  static constexpr std::int64_t maxBytes = std::int64_t{16} << 20;
  static constexpr std::int64_t overhead = 1024;

  bool mayKeep(const NpFileStat& stat) {
    const auto bytes = stat.size + overhead;
    if (stat.modifiedSeconds + settlingSeconds > m_started || bytes > m_room)
      return false;
    m_room -= bytes;
    return true;
  }

  const QvReposConfigType m_type;
  const KnownFiles& m_known;
  const std::int64_t m_started = secondsNow();
  std::int64_t m_room = maxBytes;
  std::shared_ptr<KnownFiles> m_seen = std::make_shared<KnownFiles>();
};

} // namespace

std::vector<DefinitionFilePtr> readDefinitionFolder(const DefinitionFolder& folder) {
  const KnownFolders::Key key(folder.type, folder.path);
  const auto known = knownFolders().find(key);
  FolderReader reader(folder.type, *known);
  std::vector<DefinitionFilePtr> files;
  for (const auto& path : folder.files)
    if (auto file = reader.read(path))
      files.push_back(std::move(file));
  knownFolders().keep(key, reader.seen());
  return files;
}
