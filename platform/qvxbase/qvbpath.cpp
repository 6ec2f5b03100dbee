#include "qvxbase/qvbpath.h"

#include "qvsfio/npfio.h"
#include "qvsfio/private/npnative.h"
#include "qvxbase/qvbformat.h"

#include <algorithm>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <string>
#include <string_view>
#include <uuid/uuid.h>
#include <vector>

namespace {

constexpr char separator = '/';

class Directory final : public QvbDirectory {
public:
  Directory(std::string_view path, std::vector<std::string> names)
      : m_path(path), m_names(std::move(names)) {}

  bool next() override {
    m_reached = std::min(m_reached + 1, m_names.size() + 1);
    return isOnEntry();
  }
  QvbString getName() override {
    return isOnEntry() ? QvbString(std::string_view(m_names[m_reached - 1])) : QvbString("");
  }
  QvbString getPath() override { return isOnEntry() ? qvbConcatPath(m_path, getName()) : QvbString(""); }
  void release() override { delete this; }

private:
  ~Directory() = default;
  bool isOnEntry() const { return m_reached > 0 && m_reached <= m_names.size(); }

  QvbString m_path;
  std::vector<std::string> m_names;
  std::size_t m_reached = 0; // the entry that the iterator stands on, counted from 1
};

using Stream = std::unique_ptr<DIR, decltype([](DIR* stream) { ::closedir(stream); })>;

Stream openStream(const char* path) {
  npfio::Descriptor folder(npfio::attempt(QvbFaultPoint::DirOpen, path,
                                          [&] { return ::open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
  Stream stream(folder ? ::fdopendir(folder.get()) : nullptr);
  if (stream)
    folder.release();
  return stream;
}

int readNames(const char* path, std::vector<std::string>* names) {
  const Stream stream = openStream(path);
  if (!stream)
    return npfio::lastCode();
  errno = 0;
  while (const dirent* entry = ::readdir(stream.get())) {
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..")
      names->emplace_back(name);
  }
  if (errno != 0)
    return npfio::lastCode();
  std::sort(names->begin(), names->end());
  return NP_FIO_OK;
}

} // namespace

QvbString qvbConcatPath(const QvbString& directory, const QvbString& name) {
  if (directory.isEmpty() || name.isEmpty())
    return directory.isEmpty() ? name : directory;
  const std::string_view left = directory.view();
  const std::string_view right = name.view();
  QvbString joined(left.substr(0, left.find_last_not_of(separator) + 1));
  joined.append(std::string_view(&separator, 1));
  return joined.append(right.substr(std::min(right.find_first_not_of(separator), right.size())));
}

bool qvbParsePath(const QvbString& path, QvbString* folder, QvbString* name) {
  if (path.isEmpty())
    return false;
  const std::string_view whole = path.view();
  const std::size_t last = whole.rfind(separator);
  const std::size_t nameStart = last == std::string_view::npos ? 0 : last + 1;
  // Both are taken before an output is written that may be the path itself.
  const QvbString folderPart(whole.substr(0, nameStart > 1 ? last : nameStart));
  const QvbString namePart(whole.substr(nameStart));
  if (folder)
    *folder = folderPart;
  if (name)
    *name = namePart;
  return true;
}

QvbString qvbGetUUID() {
  uuid_t uuid;
  char text[UUID_STR_LEN];
  uuid_generate_random(uuid);
  uuid_unparse_lower(uuid, text);
  return text;
}

QvbDirectory* qvbDirectoryOpen(const QvbString& path, int /*flags*/, QvbString* error) {
  QvbString native;
  std::vector<std::string> names;
  int code = npfio::nativePath(path, &native);
  if (!code)
    code = readNames(native.asCstr(), &names);
  if (!code)
    return new Directory(native.view(), std::move(names));
  if (error)
    *error = qvbStringFormat("Error opening directory %s (%d): %s", path, code, np_fio_errdesc(code));
  return nullptr;
}
