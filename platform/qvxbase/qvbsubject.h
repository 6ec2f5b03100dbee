// The users on whose behalf files are read.
//
// Every function that returns a subject makes one that the caller ends with qvbSubjectRelease. Any thread may
// use a subject; a subject does not change once it is made.
#pragma once

#include "qvxbase/qvbstring.h"

class ASSubject;

struct QvbSubjectInfoParm {
  QvbString userId;
  QvbString credentials; // what the user proves the identity with (a password); null when there is none
};

// The user that the process runs as: the name of its effective user identifier, or that number for a user
// whom the user database does not know. No credentials.
QVPLATFORM_API ASSubject* qvbSubjectAccess();
// A subject of the host's own making.
QVPLATFORM_API ASSubject* qvbSubjectCreate(const QvbString& userId, const QvbString& credentials);
// Null does nothing.
QVPLATFORM_API void qvbSubjectRelease(ASSubject* subject);
// False for a null subject, with `info` untouched and `error`, where given, saying so.
QVPLATFORM_API bool qvbSubjectInfo(ASSubject* subject, QvbSubjectInfoParm* info, QvbString* error);
