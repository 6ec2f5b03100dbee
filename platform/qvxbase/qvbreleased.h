// Owners for what applications are handed: objects that end with release(), and subjects.
#pragma once

#include "qvxbase/qvbsubject.h"

#include <memory>

struct ReleaseCaller {
  template<class T>
  void operator()(T* object) const {
    object->release();
  }
};
// Owns an object that ends with release(), as nearly every one does that an interface returns as new.
template<class T>
using Released = std::unique_ptr<T, ReleaseCaller>;

struct SubjectReleaser {
  void operator()(ASSubject* subject) const { qvbSubjectRelease(subject); }
};
// Owns a subject.
using ReleasedSubject = std::unique_ptr<ASSubject, SubjectReleaser>;
