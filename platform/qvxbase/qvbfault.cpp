#include "qvxbase/qvbfault.h"

#include <atomic>

namespace {
std::atomic<QvbFaultHook> theHook{nullptr};
}

void qvbSetFaultHook(QvbFaultHook hook) { theHook.store(hook); }

int qvbFault(QvbFaultPoint point, const char* subject) {
  const QvbFaultHook hook = theHook.load(std::memory_order_acquire);
  return hook ? hook(point, subject) : 0;
}
