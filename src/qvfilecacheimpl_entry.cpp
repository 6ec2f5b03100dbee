#include "qvfilecacheimpl_entry.h"

#include "allocation.h"

void UserList::add(const QvbString& user) {
  if (contains(user))
    return;
  m_users.push_back(user);
  if (tryAllocate([&] { m_index.insert(user); }))
    return;
  m_users.pop_back();
  throw std::bad_alloc();
}

// Defined here, where no compiler can tell that it is called for an object.
void FileAccessCacheEntry::release(FileAccessCacheEntry* entry) { delete entry; }

bool FileAccessCacheEntry::isUserAuthorized(ASSubject* subject, QvbString* errorText) const {
  QvbSubjectInfoParm info;
  return qvbSubjectInfo(subject, &info, errorText) && authorizedUsers.contains(info.userId);
}

bool FileAccessCacheEntry::addAuthorizedUser(ASSubject* subject, QvbString* errorText) {
  QvbSubjectInfoParm info;
  return qvbSubjectInfo(subject, &info, errorText) && tryAllocate([&] { authorizedUsers.add(info.userId); });
}
