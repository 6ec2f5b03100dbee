// One cached file, and the users whom its source has let through.
#pragma once

#include "qvreposres/qvfilecache.h"

#include <cstddef>
#include <unordered_set>
#include <vector>

// The names of users without regard to case: each once, in the order in which they were added, and found by one hash
// lookup.
class UserList {
public:
  using value_type = QvbString;
  using const_iterator = std::vector<QvbString>::const_iterator;

  const_iterator begin() const { return m_users.begin(); }
  const_iterator end() const { return m_users.end(); }
  std::size_t size() const { return m_users.size(); }
  bool empty() const { return m_users.empty(); }
  bool contains(const QvbString& user) const { return m_index.contains(user); }
  // Nothing for one that is listed. As it was when memory is short.
  void add(const QvbString& user);

private:
  std::vector<QvbString> m_users;
  std::unordered_set<QvbString, QvbHashIgnoreCase, QvbEqualIgnoreCase> m_index;
};

struct FileAccessCacheEntry {
  QvbDate modifiedDate;         // of the remote file, as its source reported it at the last refresh
  QvbString remoteFilename{""}; // the key that it is found by
  QvbString localFilename{""};
  QvbDate cacheUpdatedDate;                                // of the last refresh; null forces the next one
  UserList authorizedUsers;                                // whom the source has let through
  FileAccessCacheSourceProvider* sourceProvider = nullptr; // comes before the choice by name; not owned

  // Ends an entry that was made with new, and none of its sources.
  void release() { release(this); }
  // Null does nothing.
  static void release(FileAccessCacheEntry* entry);
  // Whether the source has let the subject through; false for a subject without information.
  bool isUserAuthorized(ASSubject* subject, QvbString* errorText) const;
  // False for a subject without information, and when memory is short.
  bool addAuthorizedUser(ASSubject* subject, QvbString* errorText);
};
