// One object that a library keeps for the whole process.
#pragma once

#include <atomic>
#include <mutex>

// The object is made when it is first asked for. Every static destructor may still use it: it ends when the library is
// unloaded, or after them when the process ends. What keeps it declares both at namespace scope:
//   constinit QvbKept<Store> theStore;
//   [[gnu::destructor]] void endStore() { theStore.end(); }
template<class T>
class QvbKept {
public:
  constexpr QvbKept() noexcept = default;
  QvbKept(const QvbKept&) = delete;
  QvbKept& operator=(const QvbKept&) = delete;

  // May be called from any thread. An object that could not be made is tried again by the next call.
  T& get() {
    T* kept = m_object.load(std::memory_order_acquire);
    return kept ? *kept : make();
  }
  // While nobody uses the object.
  void end() noexcept { delete m_object.exchange(nullptr); }

private:
  T& make() {
    const std::lock_guard guard(m_making);
    if (!m_object.load(std::memory_order_relaxed))
      m_object.store(new T, std::memory_order_release);
    return *m_object.load(std::memory_order_relaxed);
  }

  std::mutex m_making;
  std::atomic<T*> m_object{nullptr};
};
