#include "qvxbase/qvbsubject.h"

#include <array>
#include <pwd.h>
#include <string>
#include <unistd.h>

class ASSubject {
public:
  ASSubject(const QvbString& userId, const QvbString& credentials) : m_info{userId, credentials} {}
  const QvbSubjectInfoParm& info() const noexcept { return m_info; }

private:
  const QvbSubjectInfoParm m_info;
};

namespace {

// A user without an entry in the user database goes by the number.
QvbString nameOfUser(uid_t id) {
  std::array<char, 16384> buffer;
  passwd entry;
  passwd* found = nullptr;
  getpwuid_r(id, &entry, buffer.data(), buffer.size(), &found);
  return found ? QvbString(found->pw_name) : QvbString(std::to_string(id).c_str());
}

} // namespace

ASSubject* qvbSubjectAccess() { return qvbSubjectCreate(nameOfUser(::geteuid()), QvbString()); }

ASSubject* qvbSubjectCreate(const QvbString& userId, const QvbString& credentials) {
  return new ASSubject(userId, credentials);
}

void qvbSubjectRelease(ASSubject* subject) { delete subject; }

bool qvbSubjectInfo(ASSubject* subject, QvbSubjectInfoParm* info, QvbString* error) {
  if (subject)
    *info = subject->info();
  else if (error)
    *error = "There is no subject to give information about.";
  return subject != nullptr;
}
