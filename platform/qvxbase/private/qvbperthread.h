// What each thread has of its own until it ends, or the library is unloaded.
//
// A thread_local object with a destructor would hold the library in the process for as long as its thread lives.
#pragma once

#include "qvxbase/qvbthreads.h"

#include <memory>
#include <new>
#include <unordered_map>

#include <pthread.h>

template<class T>
class QvbPerThread {
public:
  QvbPerThread() {
    if (::pthread_key_create(&m_key, end) != 0)
      throw std::bad_alloc();
  }
  // No other thread uses the library any more.
  ~QvbPerThread() { ::pthread_key_delete(m_key); }
  QvbPerThread(const QvbPerThread&) = delete;
  QvbPerThread& operator=(const QvbPerThread&) = delete;

  // The thread's own, made on first use.
  T& get() {
    auto* own = static_cast<Own*>(::pthread_getspecific(m_key));
    return (own ? *own : add()).value;
  }

private:
  struct Own {
    explicit Own(QvbPerThread* place) : owner(place) {}
    QvbPerThread* owner;
    T value;
  };

  Own& add() {
    auto own = std::make_unique<Own>(this);
    Own* const made = own.get();
    const QvbMutexGuard guard(m_mutex);
    const auto place = m_all.emplace(made, std::move(own)).first;
    if (::pthread_setspecific(m_key, made) != 0) {
      m_all.erase(place);
      throw std::bad_alloc();
    }
    return *made;
  }

  static void end(void* thread) {
    auto* const own = static_cast<Own*>(thread);
    QvbPerThread& owner = *own->owner;
    QvbMutexGuard guard(owner.m_mutex);
    const auto ended = owner.m_all.extract(own); // which destroys it without the lock
    guard.unlock();
  }

  pthread_key_t m_key{};
  QvbMutex m_mutex;
  std::unordered_map<Own*, std::unique_ptr<Own>> m_all QVB_GUARDED_BY(m_mutex);
};
