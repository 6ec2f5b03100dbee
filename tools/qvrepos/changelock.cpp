#include "changelock.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <stdexcept>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

ChangeLock::ChangeLock(const std::vector<std::string>& folders) {
  try {
    for (const auto& folder : folders)
      if (!lock(folder, folder)) {
        lock(std::filesystem::path(folder).parent_path(), folder);
        lock(folder, folder); // made by the one that had the lock before
      }
  } catch (...) {
    unlock();
    throw;
  }
}

ChangeLock::~ChangeLock() { unlock(); }

void ChangeLock::unlock() {
  for (const int folder : m_locked)
    close(folder);
}

bool ChangeLock::lock(const std::string& folder, const std::string& shown) {
  m_locked.reserve(m_locked.size() + 1);
  const int opened = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (opened == -1)
    return errno != ENOENT;
  if (isLocked(opened)) {
    close(opened);
    return true;
  }
  m_locked.push_back(opened);
  if (flock(opened, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK)
    throw std::runtime_error("another process is changing the definitions in " + shown +
                             "; try again when it has ended");
  return true;
}

// Both options may name one folder, which cannot be locked twice.
bool ChangeLock::isLocked(int folder) const {
  struct stat mine {};
  return fstat(folder, &mine) == 0 && std::ranges::any_of(m_locked, [&](int locked) {
           struct stat other {};
           return fstat(locked, &other) == 0 && other.st_dev == mine.st_dev && other.st_ino == mine.st_ino;
         });
}
