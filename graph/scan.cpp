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

// Reads the files, which are handed out in order, each to the thread that is free.
class ParallelReading {
public:
  ParallelReading(const std::vector<JobFile>& files, const ScanOptions& options)
      : m_files(files), m_options(options), m_facts(files.size()) {}

  // False when the caller stopped it.
  bool run() {
    {
      std::vector<std::jthread> helpers;
      start(helpers);
      work(true);
    }
    if (m_failure)
      std::rethrow_exception(m_failure);
    return !m_isStopped;
  }

  std::vector<JobFacts> facts() && { return std::move(m_facts); }

private:
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
        m_facts[i] = reader.read(m_files[i], m_options.input);
        const std::size_t done = ++m_done;
        if (isCaller && m_options.progress && !m_options.progress(done, m_files.size()))
          m_isStopped = true;
      }
    } catch (...) {
      if (!m_isStopped.exchange(true))
        m_failure = std::current_exception();
    }
  }

  const std::vector<JobFile>& m_files;
  const ScanOptions& m_options;
  std::vector<JobFacts> m_facts;
  std::atomic<std::size_t> m_next{0};
  std::atomic<std::size_t> m_done{0};
  std::atomic<bool> m_isStopped{false};
  std::exception_ptr
      m_failure; // written by the one thread that stopped the others, read when they have ended
};

} // namespace

Result<Graph> scan(std::span<const std::string> paths, const ScanOptions& options) {
  JobFiles found = findJobFiles(paths, options.patterns);
  ParallelReading reading(found.files, options);
  if (!reading.run())
    return Error{ErrorKind::Stopped, "the scan was stopped"};
  std::vector<JobFacts> facts = std::move(reading).facts();
  if (facts.size() == 1 && facts.front().saved && found.failures.empty())
    return std::move(*facts.front().saved);
  Joiner joiner(options.exact);
  for (Note& failure : found.failures)
    joiner.addFailure(std::move(failure));
  for (std::size_t i = 0; i < facts.size(); ++i)
    joiner.add(found.files[i], std::exchange(facts[i], {}));
  return std::move(joiner).finish();
}

} // namespace qvlineagegraph
