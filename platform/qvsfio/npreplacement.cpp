#include "qvsfio/private/npreplacement.h"

#include "qvxbase/qvbpath.h"

#include <algorithm>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

namespace npfio {
namespace {

// What a link points at may be missing; a chain longer than the system itself follows is an error.
int followLinks(std::string* path) {
  constexpr int maxLinks = 40;
  std::filesystem::path target = *path;
  for (int links = 0; links <= maxLinks; ++links) { // what the last link points at is looked at, too
    std::error_code notALink;
    const auto next = std::filesystem::read_symlink(target, notALink);
    if (notALink) {
      *path = target.string();
      return NP_FIO_OK;
    }
    target = target.parent_path() / next; // an absolute target stands alone
  }
  return np_fio_code(ELOOP);
}

// Hidden, unique, and recognisable by the beginning of the target's name. Short enough for every file system
// that can hold the target's own name.
std::string temporaryNameFor(const std::string& name) {
  constexpr std::size_t shownLength = 32;
  const auto isContinuation = [&](std::size_t at) {
    return (static_cast<unsigned char>(name[at]) & 0xC0) == 0x80;
  };
  std::size_t shown = std::min(name.size(), shownLength);
  while (shown > 0 && shown < name.size() && isContinuation(shown))
    --shown;
  return "." + name.substr(0, shown) + "." + qvbGetUUID().asCstr() + ".tmp";
}

} // namespace

QvbResult<std::unique_ptr<Replacement>> Replacement::open(const QvbString& path, Kind kind) {
  std::string target(path.view());
  if (const int code = followLinks(&target))
    return QvbFailure{code};
  std::unique_ptr<Replacement> fresh(new Replacement(std::move(target), kind));
  if (const int code = fresh->prepare())
    return QvbFailure{code};
  return fresh;
}

Replacement::Replacement(std::string path, Kind kind) : m_kind(kind), m_path(std::move(path)) {
  const std::filesystem::path target = m_path;
  m_folderPath = target.has_parent_path() ? target.parent_path().string() : ".";
  m_name = target.filename().string();
}

Replacement::~Replacement() {
  if (m_state == State::Written || m_state == State::Exchanged)
    removeFile(m_temporaryName);
}

int Replacement::prepare() {
  if (m_name.empty())
    return np_fio_code(m_path.empty() ? ENOENT : EISDIR);
  m_folder = Descriptor(attempt(QvbFaultPoint::DirOpen, m_folderPath.c_str(), [&] {
    return ::open(m_folderPath.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  }));
  if (!m_folder)
    return lastCode();
  mode_t mode = 0644;
  bool exists = false;
  if (const int code = inspectOldFile(&mode, &exists))
    return code;
  if (m_kind == Kind::PrivateCopy)
    mode = 0600;
  return createTemporary(mode, exists || m_kind == Kind::PrivateCopy);
}

int Replacement::inspectOldFile(mode_t* permissions, bool* exists) const {
  struct stat old;
  if (uninterrupted([&] { return ::fstatat(m_folder.get(), m_name.c_str(), &old, AT_SYMLINK_NOFOLLOW); }) !=
      0)
    return errno == ENOENT ? NP_FIO_OK : lastCode();
  if (!S_ISREG(old.st_mode))
    return np_fio_code(S_ISDIR(old.st_mode) ? EISDIR : ENOTSUP);
  *permissions = old.st_mode & 0777;
  *exists = true;
  return NP_FIO_OK;
}

// Exact permissions are given only once the file is there, so that it never has more of them.
int Replacement::createTemporary(mode_t permissions, bool exact) {
  m_temporaryName = temporaryNameFor(m_name);
  m_file = Descriptor(attempt(QvbFaultPoint::FileOpen, m_path.c_str(), [&] {
    return ::openat(m_folder.get(), m_temporaryName.c_str(),
                    O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, exact ? 0600 : permissions);
  }));
  if (!m_file)
    return lastCode();
  m_state = State::Written;
  return exact && uninterrupted([&] { return ::fchmod(m_file.get(), permissions); }) != 0 ? lastCode()
                                                                                          : NP_FIO_OK;
}

std::int64_t Replacement::write(const void* bytes, std::size_t size) {
  const char* next = static_cast<const char*>(bytes);
  for (std::size_t left = size; left > 0;) {
    const auto written =
        attempt(QvbFaultPoint::FileWrite, m_path.c_str(), [&] { return ::write(m_file.get(), next, left); });
    if (written <= 0) {
      m_failure = written < 0 ? lastCode() : NP_FIO_PARTIAL;
      return -m_failure;
    }
    next += written;
    left -= static_cast<std::size_t>(written);
  }
  return static_cast<std::int64_t>(size);
}

int Replacement::commit() {
  int code = m_failure;
  if (!code && m_kind == Kind::Document &&
      attempt(QvbFaultPoint::FileSync, m_path.c_str(), [&] { return ::fsync(m_file.get()); }) != 0)
    code = lastCode();
  const int closed = m_file.close(m_path.c_str());
  if (!code)
    code = closed;
  return code ? code : takePlace();
}

int Replacement::takePlace() {
  if (m_kind == Kind::Document)
    return exchange();
  if (rename(0) != 0)
    return lastCode();
  m_state = State::Overwrote;
  return NP_FIO_OK;
}

int Replacement::exchange() {
  if (rename(RENAME_EXCHANGE) == 0) {
    m_state = State::Exchanged;
  } else {
    const bool isNew = errno == ENOENT;
    if ((!isNew && errno != EINVAL && errno != ENOSYS) || rename(0) != 0)
      return lastCode();
    m_state = isNew ? State::Created : State::Overwrote;
  }
  const int code = flushFolder();
  if (code)
    putBack();
  return code;
}

int Replacement::rename(unsigned flags) const {
  const int folder = m_folder.get();
  return attempt(QvbFaultPoint::FileRename, m_path.c_str(),
                 [&] { return ::renameat2(folder, m_temporaryName.c_str(), folder, m_name.c_str(), flags); });
}

// Some file systems have nothing to flush for a folder and say so with EINVAL.
int Replacement::flushFolder() const {
  const int result =
      attempt(QvbFaultPoint::FileSync, m_folderPath.c_str(), [&] { return ::fsync(m_folder.get()); });
  return result == 0 || errno == EINVAL ? NP_FIO_OK : lastCode();
}

void Replacement::putBack() {
  if (m_state == State::Exchanged)
    m_state = rename(RENAME_EXCHANGE) == 0 ? State::Written : State::SetAside;
  else if (m_state == State::Created)
    removeFile(m_name);
}

void Replacement::removeFile(const std::string& name) const {
  uninterrupted([&] { return ::unlinkat(m_folder.get(), name.c_str(), 0); });
}

} // namespace npfio
