// What may run out of memory without an exception.
#pragma once

#include <new>
#include <utility>

// What a step gives, or `failure` when memory is short.
template<class Result, class Step>
Result resultOr(Result failure, const Step& step) {
  try {
    return step();
  } catch (const std::bad_alloc&) {
    return failure;
  }
}

// What `make` makes, or null when memory is short.
template<class Make>
auto madeOrNull(const Make& make) noexcept -> decltype(make()) {
  return resultOr<decltype(make())>(nullptr, make);
}

template<class T, class... Args>
T* newOrNull(Args&&... args) {
  return madeOrNull([&] { return new T(std::forward<Args>(args)...); });
}

// Takes a step that allocates; false when memory is short.
template<class Step>
bool tryAllocate(const Step& step) {
  try {
    step();
    return true;
  } catch (const std::bad_alloc&) {
    return false;
  }
}
