#include "qvlineagegraph/parallel.h"

#include <algorithm>
#include <atomic>
#include <deque>
#include <exception>
#include <system_error>
#include <thread>
#include <vector>

namespace qvlineagegraph {

namespace {

// The calling thread takes what is done between the items that it works on itself.
class InOrder {
public:
  explicit InOrder(const ParallelWork& work) : m_work(work), m_isDone(work.items) {}

  bool run() {
    {
      std::vector<std::jthread> helpers;
      start(helpers);
      work(true);
    }
    if (m_failure)
      std::rethrow_exception(m_failure);
    if (!m_isStopped)
      takeWhatIsDone();
    return !m_isStopped;
  }

private:
  void start(std::vector<std::jthread>& helpers) {
    constexpr std::size_t fewestItemsOfAThread = 16;
    const unsigned wanted = m_work.threads ? m_work.threads : std::thread::hardware_concurrency();
    const std::size_t useful = m_work.threads ? m_work.items : m_work.items / fewestItemsOfAThread;
    const std::size_t count = std::min<std::size_t>(std::max(wanted, 1U), std::max<std::size_t>(useful, 1));
    helpers.reserve(count);
    try {
      while (helpers.size() + 1 < count)
        helpers.emplace_back([this] { work(false); });
    } catch (const std::system_error&) { // no more threads can be had: those that run do it all
    }
  }

  void work(bool isCaller) noexcept {
    try {
      const auto worker = m_work.worker();
      Own own(*this);
      for (std::size_t i = m_next++; i < m_work.items && !m_isStopped; i = m_next++) {
        own.release();
        worker(i);
        own.add(i);
        m_isDone[i].store(true, std::memory_order_release);
        ++m_done;
        if (isCaller)
          attend();
      }
    } catch (...) {
      if (!m_isStopped.exchange(true))
        m_failure = std::current_exception();
    }
  }

  // What one thread worked on, in order.
  class Own {
  public:
    explicit Own(InOrder& all) : m_all(all) {}
    void add(std::size_t item) {
      if (m_all.m_work.release)
        m_items.push_back(item);
    }
    void release() {
      const std::size_t taken = m_all.m_taken.load(std::memory_order_acquire);
      for (; !m_items.empty() && m_items.front() < taken; m_items.pop_front())
        m_all.m_work.release(m_items.front());
    }

  private:
    InOrder& m_all;
    std::deque<std::size_t> m_items;
  };

  void attend() {
    takeWhatIsDone();
    if (m_work.progress && !m_work.progress(m_done))
      m_isStopped = true;
  }

  void takeWhatIsDone() {
    std::size_t next = m_taken;
    for (; next < m_isDone.size() && m_isDone[next].load(std::memory_order_acquire);
         m_taken.store(++next, std::memory_order_release))
      m_work.take(next);
  }

  const ParallelWork& m_work;
  std::vector<std::atomic<bool>> m_isDone;
  std::atomic<std::size_t> m_taken{0}; // by the calling thread
  std::atomic<std::size_t> m_next{0};
  std::atomic<std::size_t> m_done{0};
  std::atomic<bool> m_isStopped{false};
  std::exception_ptr
      m_failure; // written by the one thread that stopped the others, read when they have ended
};

} // namespace

bool workInOrder(const ParallelWork& work) { return InOrder(work).run(); }

} // namespace qvlineagegraph
