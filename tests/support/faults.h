// Makes platform operations fail while it lives.
#pragma once

#include "qvxbase/qvbfault.h"

#include <functional>
#include <string>
#include <utility>

class Faults {
public:
  // The errno that an operation on the subject fails with, 0 to let it go on.
  using Decision = std::function<int(QvbFaultPoint point, const std::string& subject)>;

  explicit Faults(Decision decision) {
    theDecision = std::move(decision);
    qvbSetFaultHook([](QvbFaultPoint point, const char* subject) { return theDecision(point, subject); });
  }
  // Every operation of one kind.
  Faults(QvbFaultPoint failing, int error)
      : Faults([=](QvbFaultPoint point, const std::string&) { return point == failing ? error : 0; }) {}
  // The operations of one kind on subjects that end with the text.
  Faults(QvbFaultPoint failing, const std::string& subjectEnd, int error)
      : Faults([=](QvbFaultPoint point, const std::string& subject) {
          return point == failing && subject.ends_with(subjectEnd) ? error : 0;
        }) {}
  ~Faults() { qvbSetFaultHook(nullptr); }
  Faults(const Faults&) = delete;
  Faults& operator=(const Faults&) = delete;

private:
  static inline Decision theDecision;
};
