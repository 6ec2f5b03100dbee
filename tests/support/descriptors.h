// What this process has open.
#pragma once

#include <filesystem>
#include <set>
#include <string>

#include <fcntl.h>

inline std::set<int> openDescriptors() {
  std::set<int> all;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
    all.insert(std::stoi(entry.path().filename().string()));
  // the one that listed the folder is gone by now
  std::erase_if(all, [](int fd) { return ::fcntl(fd, F_GETFD) == -1; });
  return all;
}
