// Scanning: files are read by several threads, and what they say is joined in the order of the files.
#include "qvlineagegraph/scan.h"

#include "jobfacts.h"
#include "joiner.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <system_error>
#include <thread>
#include <utility>

namespace qvlineagegraph {

namespace {

// Reads the files, which are handed out in order, each to the thread that is free. The calling thread joins what is read
// in the order of the files, between the files that it reads itself.
class ParallelScan {
public:
  ParallelScan(const std::vector<JobFile>& files, const ScanOptions& options, Joiner& joiner)
      : m_files(files), m_options(options), m_joiner(joiner), m_read(files.size()) {}

  // False when the caller stopped it.
  bool run() {
    {
      std::vector<std::jthread> helpers;
      start(helpers);
      work(true);
    }
    if (m_failure)
      std::rethrow_exception(m_failure);
    if (!m_isStopped)
      joinWhatIsRead();
    return !m_isStopped;
  }

private:
  struct Slot {
    JobFacts facts;
    std::atomic<bool> isRead{false};
  };

  void start(std::vector<std::jthread>& helpers) {
    constexpr std::size_t fewestFilesOfAThread = 16;
    const unsigned wanted = m_options.threads ? m_options.threads : std::thread::hardware_concurrency();
    const std::size_t useful = m_options.threads ? m_files.size() : m_files.size() / fewestFilesOfAThread;
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
      JobReader reader;
      for (std::size_t i = m_next++; i < m_files.size() && !m_isStopped; i = m_next++) {
        m_read[i].facts = reader.read(m_files[i], m_options.input);
        m_read[i].isRead.store(true, std::memory_order_release);
        ++m_done;
        if (isCaller)
          attend();
      }
    } catch (...) {
      if (!m_isStopped.exchange(true))
        m_failure = std::current_exception();
    }
  }

  void attend() {
    joinWhatIsRead();
    if (m_options.progress && !m_options.progress(m_done, m_files.size()))
      m_isStopped = true;
  }

  void joinWhatIsRead() {
    for (; m_joined < m_read.size() && m_read[m_joined].isRead.load(std::memory_order_acquire); ++m_joined)
      m_joiner.add(m_files[m_joined], std::exchange(m_read[m_joined].facts, {}));
  }

  const std::vector<JobFile>& m_files;
  const ScanOptions& m_options;
  Joiner& m_joiner;
  std::vector<Slot> m_read;
  std::size_t m_joined = 0;
  std::atomic<std::size_t> m_next{0};
  std::atomic<std::size_t> m_done{0};
  std::atomic<bool> m_isStopped{false};
  std::exception_ptr
      m_failure; // written by the one thread that stopped the others, read when they have ended
};

} // namespace

Result<Graph> scan(std::span<const std::string> paths, const ScanOptions& options) {
  JobFiles found = findJobFiles(paths, options.patterns);
  Joiner joiner(options.exact);
  for (Note& failure : found.failures)
    joiner.addFailure(std::move(failure));
  if (found.files.size() == 1 && found.failures.empty()) { // a saved graph is then the outcome as it is
    JobFacts facts = JobReader().read(found.files.front(), options.input);
    if (facts.saved)
      return std::move(*facts.saved);
    joiner.add(found.files.front(), std::move(facts));
  } else if (!ParallelScan(found.files, options, joiner).run())
    return Error{ErrorKind::Stopped, "the scan was stopped"};
  return std::move(joiner).finish();
}

} // namespace qvlineagegraph
