// The users on whose behalf files are read.
//
// Subjects are counted: every function that returns one gives the caller a reference, which ends with
// qvbSubjectRelease. Any thread may use a subject; a subject does not change once it is made.
#pragma once

#include "qvxbase/qvbstring.h"

class ASSubject;

struct QvbSubjectInfoParm {
  QvbString userId;
  QvbString credentials; // what the user proves the identity with (a password); null when there is none
};

// The user that the process runs as; the caller releases it.
QVPLATFORM_API ASSubject* qvbSubjectAccess();
// A subject of the host's own making; the caller releases it.
QVPLATFORM_API ASSubject* qvbSubjectCreate(const QvbString& userId, const QvbString& credentials);
QVPLATFORM_API void qvbSubjectRelease(ASSubject* subject);
// False for a null subject, with `error`, where given, saying so.
QVPLATFORM_API bool qvbSubjectInfo(ASSubject* subject, QvbSubjectInfoParm* info, QvbString* error);
