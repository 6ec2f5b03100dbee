// The file cache under many threads and names, with a disk that fails one read in ten. QV_LOAD_NAMES, QV_LOAD_THREADS and
// QV_LOAD_SECONDS make it as hard as that takes; how long requests took is printed.
#include "qvreposres/qvfilecache.h"

#include "qvxbase/qvbconfig.h"
#include "qvxbase/qvbfault.h"
#include "qvxbase/qvbreleased.h"
#include "qvxbase/qvbsubject.h"
#include "support/logcapture.h"
#include "support/tempdir.h"
#include "support/textio.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <bit>
#include <cerrno>
#include <chrono>
#include <iostream>
#include <malloc.h>
#include <random>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

long setting(const char* name, long otherwise) {
  const char* const value = std::getenv(name);
  return value ? std::atol(value) : otherwise;
}

// How many requests took up to 1, 2, 4, ... microseconds.
class Histogram {
public:
  void add(Clock::duration time) {
    const auto micros = std::chrono::duration_cast<std::chrono::microseconds>(time).count();
    ++m_counts[std::min<std::size_t>(std::bit_width(static_cast<std::uint64_t>(micros)),
                                     m_counts.size() - 1)];
  }
  void print(std::ostream& out) const {
    for (std::size_t i = 0; i < m_counts.size(); ++i)
      if (m_counts[i] > 0)
        out << "up to " << (1UL << i) << " us: " << m_counts[i] << '\n';
  }

private:
  std::array<std::atomic<long>, 40> m_counts{};
};

// Discards what the failing reads log.
struct SilentSink : QvLogSink {
  void record(const QvLogRecord&) override {}
};

std::atomic<unsigned> theReads = 0;
int failOneReadInTen(QvbFaultPoint point, const char*) {
  return point == QvbFaultPoint::FileRead && ++theReads % 10 == 0 ? EIO : 0;
}

class CacheUnderLoad : public testing::Test {
protected:
  CacheUnderLoad() {
    qvlogSetSink(std::make_shared<SilentSink>());
    qvbSetConfigOption("BASE/REMOTEFILECACHE_TIMEBETWEENCHECKS", "5");
    for (long i = 0; i < m_names; ++i)
      m_sources.write(nameOf(i), contentOf(i));
    void* out = nullptr;
    EXPECT_EQ(qvFileCacheStartup(nullptr, &out), 0);
  }
  ~CacheUnderLoad() override {
    qvbSetFaultHook(nullptr);
    qvFileCacheShutdown();
    qvbClearConfigOptions();
    qvlogSetSink(nullptr);
  }

  static std::string nameOf(long index) { return std::to_string(index / 1000) + "/" + std::to_string(index); }
  static std::string contentOf(long index) {
    return "content of " + std::to_string(index) + std::string(static_cast<std::size_t>(index % 97), '.');
  }

  // Asks for names of no order until it is over.
  void askAround(unsigned seed) {
    std::minstd_rand random(seed);
    std::uniform_int_distribution<long> any(0, m_names - 1);
    const ReleasedSubject user(qvbSubjectCreate(text("user" + std::to_string(seed % 4)), QvbString()));
    const auto end = Clock::now() + std::chrono::seconds(m_seconds);
    for (long i = 0; m_seconds ? Clock::now() < end : i < 200; ++i)
      askFor(any(random), user.get());
  }
  void askFor(long index, ASSubject* user) {
    QvbString local;
    QvbString error;
    const auto start = Clock::now();
    const int result =
        getFileCache()->getCacheFilename(user, text(m_sources / nameOf(index)), &local, &error);
    m_times.add(Clock::now() - start);
    ++m_asked;
    m_failed += result != 0;
    // A refresh that failed counts as one until the next: a name whose content never came has no copy then.
    if (result == 0 && std::filesystem::exists(str(local)))
      m_wrong += readFile(str(local)) != contentOf(index);
  }
  static std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }

  const long m_names = setting("QV_LOAD_NAMES", 200);
  const long m_seconds = setting("QV_LOAD_SECONDS", 0);
  const TempDir m_sources;
  Histogram m_times;
  std::atomic<long> m_asked = 0, m_failed = 0, m_wrong = 0;
};

TEST_F(CacheUnderLoad, GivesWholeContentsAndKeepsNoMoreThanItHolds) {
  const auto before = static_cast<long>(mallinfo2().uordblks);
  qvbSetFaultHook(failOneReadInTen);
  {
    std::vector<std::jthread> threads;
    for (unsigned i = 0; i < setting("QV_LOAD_THREADS", 16); ++i)
      threads.emplace_back([this, i] { askAround(i + 1); });
  }
  qvbSetFaultHook(nullptr);
  m_times.print(std::cout);
  std::cout << m_asked << " requests, " << m_failed << " failed\n";
  EXPECT_EQ(m_wrong, 0);
  EXPECT_GT(m_failed, 0) << "no read failed";
  EXPECT_LT(m_failed, m_asked / 2);
  // Names, local names and users of an entry, and what the threads' arenas hold back.
  constexpr long PerEntry = 2000;
  constexpr long PerThread = 256 * 1024;
  EXPECT_LT(static_cast<long>(mallinfo2().uordblks) - before,
            m_names * PerEntry + setting("QV_LOAD_THREADS", 16) * PerThread);
  // With reads that work again every name has its content.
  const ReleasedSubject user(qvbSubjectCreate("another", QvbString()));
  const long failed = m_failed;
  for (long i = 0; i < std::min(m_names, 100L); ++i)
    askFor(i, user.get());
  EXPECT_EQ(m_wrong, 0);
  EXPECT_EQ(m_failed, failed);
  EXPECT_TRUE(getFileCache()->flush(true));
}

} // namespace
