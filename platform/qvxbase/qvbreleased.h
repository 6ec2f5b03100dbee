// Owners for what ends with release(), as nearly all does that an interface returns as new, and for what a function ends.
#pragma once

#include "qvxbase/qvbsubject.h"

#include <memory>

struct ReleaseCaller {
  template<class T>
  void operator()(T* object) const {
    object->release();
  }
};
template<class T>
using Released = std::unique_ptr<T, ReleaseCaller>;

template<auto End>
struct EndCaller {
  template<class T>
  void operator()(T* handle) const {
    End(handle);
  }
};
template<class T, auto End>
using EndedBy = std::unique_ptr<T, EndCaller<End>>;

using ReleasedSubject = EndedBy<ASSubject, qvbSubjectRelease>;
