// One process at a time changes definitions.
#pragma once

#include <string>
#include <vector>

// Locks folders for its own life. The system ends the lock with the process, however that ends, and nothing is left in
// the folders. A folder that is missing yet is locked by the one that it would be made in. Where a file system knows no
// locks there is none.
class ChangeLock {
public:
  // Throws, with a message for people, when another process holds one of them.
  explicit ChangeLock(const std::vector<std::string>& folders);
  ~ChangeLock();
  ChangeLock(const ChangeLock&) = delete;
  ChangeLock& operator=(const ChangeLock&) = delete;

private:
  // Whether there is such a folder.
  bool lock(const std::string& folder, const std::string& shown);
  bool isLocked(int folder) const;
  void unlock();

  std::vector<int> m_locked;
};
