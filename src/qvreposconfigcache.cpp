#include "qvreposconfigcache.h"

#include "guards.h"
#include "qvsfio/npfio.h"
#include "qvxbase/qvbformat.h"
#include "qvxbase/qvbpath.h"
#include "qvxbase/qvbthreads.h"
#include "qvxbase/qvbunload.h"

#include <algorithm>
#include <chrono>
#include <map>
#include <string_view>
#include <unordered_map>
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

// What an entry of a folder is at the moment.
struct Look {
  int code;
  NpFileStat stat;

  bool isFile() const { return code == NP_FIO_OK && stat.kind == NpFileKind::File; }
};

bool isSameFile(const Look& a, const Look& b) {
  return a.isFile() && b.isFile() && isSameState(a.stat, b.stat);
}

// A folder's files as they were read last, each beside the others' of its place.
struct KnownFiles {
  std::shared_ptr<const DefinitionPaths> paths;
  std::vector<Look> looks;
  std::vector<DefinitionFilePtr> kept;        // null for a file that is to be read again
  std::shared_ptr<const DefinitionFiles> all; // null when there is one
};

// What is known of the folders looked at last. It is replaced as a whole, so that files that are gone are forgotten when
// their folder is read the next time.
template<class Key, class Value>
class KnownFolders {
public:
  // Null when nothing is known.
  std::shared_ptr<const Value> find(const Key& key) {
    const QvbMutexGuard guard(m_mutex);
    const auto known = m_folders.find(key);
    return known == m_folders.end() ? nullptr : known->second;
  }

  void keep(const Key& key, std::shared_ptr<const Value> value) {
    const QvbMutexGuard guard(m_mutex);
    if (m_folders.size() >= MaxFolders && !m_folders.contains(key))
      m_folders.clear();
    m_folders[key] = std::move(value);
  }

private:
  // A process has two folders unless its options change.
  static constexpr std::size_t MaxFolders = 8;

  QvbMutex m_mutex;
  std::map<Key, std::shared_ptr<const Value>> m_folders QVB_GUARDED_BY(m_mutex);
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

std::vector<Look> lookAt(const DefinitionFolder& folder) {
  NpDir* directory = nullptr;
  np_dir_open(folder.path, &directory);
  const ScopeExit close([&] { np_dir_close(directory); });
  std::vector<Look> looks(folder.files ? folder.files->size() : 0);
  for (std::size_t i = 0; i < looks.size(); ++i)
    looks[i].code = np_dir_stat(directory, (*folder.files)[i], &looks[i].stat);
  return looks;
}

// Whether all files are what they were when all of them were kept.
bool isUnchanged(const KnownFiles* known, const DefinitionFolder& folder, const std::vector<Look>& looks) {
  return known && known->all && known->paths == folder.files &&
         std::ranges::equal(known->looks, looks, isSameFile);
}

// Reads the files of one folder, but for those that have not changed.
class FolderReader {
public:
  FolderReader(QvReposConfigType type, const KnownFiles* known, std::int64_t now)
      : m_type(type), m_known(known), m_now(now) {
    if (known && known->paths)
      for (std::size_t i = 0; i < known->paths->size(); ++i)
        m_places.emplace((*known->paths)[i].view(), i);
  }

  // Adds the file to those that are read and to those that are known.
  void add(const QvbString& path, const Look& look, DefinitionFiles& files, KnownFiles& seen) {
    auto file = read(path, look);
    const bool isKept = file->content != DefinitionFile::Content::Unreadable && mayKeep(look.stat);
    seen.kept.push_back(isKept ? file : nullptr);
    files.areKept = files.areKept && isKept;
    files.all.push_back(std::move(file));
  }

private:
  // What may be kept for one folder: bytes of files, and of what goes with each of them.
  static constexpr std::int64_t MaxBytes = std::int64_t{16} << 20;
  static constexpr std::int64_t Overhead = 1024;

  // Only regular files are opened: opening a pipe would wait for its other end.
  DefinitionFilePtr read(const QvbString& path, const Look& look) const {
    if (!look.isFile())
      return unreadable(path, look.code);
    auto known = findUnchanged(path, look);
    return known ? known : readDefinitionFile(path, m_type);
  }

  DefinitionFilePtr unreadable(const QvbString& path, int code) const {
    const char* const why =
        code == NP_FIO_OK || code == NP_FIO_NOT_FOUND ? "not a regular file" : np_fio_errdesc(code);
    auto file = std::make_shared<DefinitionFile>(path, m_type);
    file->reason = qvbStringFormat("%s: %s", path, why);
    return file;
  }

  DefinitionFilePtr findUnchanged(const QvbString& path, const Look& look) const {
    const auto place = m_places.find(path.view());
    return place != m_places.end() && isSameFile(m_known->looks[place->second], look)
               ? m_known->kept[place->second]
               : nullptr;
  }

  bool mayKeep(const NpFileStat& stat) {
    const auto bytes = stat.size + Overhead;
    if (!hasSettled(stat, m_now) || bytes > m_room)
      return false;
    m_room -= bytes;
    return true;
  }

  const QvReposConfigType m_type;
  const KnownFiles* const m_known;
  const std::int64_t m_now;
  std::int64_t m_room = MaxBytes;
  std::unordered_map<std::string_view, std::size_t> m_places; // of the known files
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

std::shared_ptr<const DefinitionFiles> readDefinitionFolder(const DefinitionFolder& folder,
                                                            std::int64_t now) {
  const auto key = std::make_pair(folder.type, folder.path);
  const auto known = knownContents().find(key);
  auto looks = lookAt(folder);
  if (isUnchanged(known.get(), folder, looks))
    return known->all;
  FolderReader reader(folder.type, known.get(), now);
  const auto files = std::make_shared<DefinitionFiles>();
  const auto seen = std::make_shared<KnownFiles>();
  for (std::size_t i = 0; i < looks.size(); ++i)
    reader.add((*folder.files)[i], looks[i], *files, *seen);
  seen->paths = folder.files;
  seen->looks = std::move(looks);
  if (files->areKept)
    seen->all = files;
  knownContents().keep(key, seen);
  return files;
}
