// The file cache under many threads: one cache and all its users, and the functions that hand it out.
#include "qvreposres/qvfilecache.h"
#include "qvxbase/qvbconfig.h"
#include "qvxbase/qvbreleased.h"
#include "support/tempdir.h"
#include "support/textio.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <latch>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

namespace fs = std::filesystem;

constexpr int threadCount = 16;
constexpr int nameCount = 64;
constexpr int requestCount = 100'000;
constexpr int requestsPerFlush = 20'000;

void runThreads(int count, const std::function<void(int number)>& work) {
  std::latch start(count);
  std::vector<std::jthread> threads;
  threads.reserve(static_cast<std::size_t>(count));
  for (int number = 0; number < count; ++number)
    threads.emplace_back([&, number] {
      start.arrive_and_wait();
      work(number);
    });
}

// A state of a source: lines that all tell its number, so that no part of one passes for another; one to three blocks of
// the copy.
std::string stateOf(int name, int version) {
  std::string line = std::to_string(name) + "." + std::to_string(version) + " ";
  line.resize(100, '-');
  line.back() = '\n';
  std::string content;
  for (int i = 0; i < 30 + version % 70; ++i)
    content += line;
  return content;
}

class FileCacheThreads : public testing::Test {
protected:
  FileCacheThreads() {
    if (const char* before = std::getenv("TMPDIR"))
      m_before = before;
    ::setenv("TMPDIR", temporary.path().c_str(), 1);
  }
  ~FileCacheThreads() override {
    qvFileCacheShutdown();
    EXPECT_TRUE(fs::is_empty(temporary.path()));
    m_before ? ::setenv("TMPDIR", m_before->c_str(), 1) : ::unsetenv("TMPDIR");
    qvbClearConfigOptions();
  }

  TempDir sources;
  TempDir temporary;

private:
  std::optional<std::string> m_before;
};

// Sources that are replaced, each at once, while others read them.
class ChangingSources {
public:
  explicit ChangingSources(const TempDir& folder) : m_folder(folder) {
    for (int name = 0; name < nameCount; ++name)
      replace(name);
  }
  QvbString path(int name) const { return text(m_folder / std::to_string(name)); }
  void replace(int name) {
    const int version = m_versions.at(static_cast<std::size_t>(name)) + 1;
    const std::string fresh = m_folder.write("fresh", stateOf(name, version));
    // known before it can be seen
    m_versions[static_cast<std::size_t>(name)] = version;
    fs::rename(fresh, m_folder / std::to_string(name));
  }
  // Whether the source has had this content at some moment.
  bool hadState(int name, const std::string& content) const {
    const auto dot = content.find('.');
    if (dot == std::string::npos)
      return false;
    const int version = std::atoi(content.c_str() + dot + 1);
    return version <= m_versions.at(static_cast<std::size_t>(name)) && content == stateOf(name, version);
  }

private:
  const TempDir& m_folder;
  std::array<std::atomic<int>, nameCount> m_versions{};
};

} // namespace

TEST_F(FileCacheThreads, EveryFileHandedOutIsItsSourceAtSomeMoment) {
  qvbSetConfigOption("BASE/REMOTEFILECACHE_TIMEBETWEENCHECKS", "2000");
  ChangingSources changing(sources);
  FileAccessCache* const cache = getFileCache();
  ASSERT_NE(cache, nullptr);
  std::atomic<int> next = 0, failed = 0, wrong = 0, compared = 0;
  std::jthread replacer([&](const std::stop_token& stop) {
    for (int name = 0; !stop.stop_requested(); name = (name + 1) % nameCount) {
      changing.replace(name);
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  });
  runThreads(threadCount, [&](int number) {
    const ReleasedSubject subject(
        qvbSubjectCreate(("user " + std::to_string(number % 2)).c_str(), QvbString()));
    for (int request = next++; request < requestCount; request = next++) {
      if (request % requestsPerFlush == requestsPerFlush - 1) {
        cache->flush(false);
        continue;
      }
      const int name = request * 31 % nameCount;
      QvbString local, error;
      failed += cache->getCacheFilename(subject.get(), changing.path(name), &local, &error) != 0;
      std::ifstream in(local.asCstr(), std::ios::binary);
      if (!in)
        continue;                 // a flush came in between
      std::ostringstream content; // in blocks: byte by byte takes most of the time under a sanitizer
      content << in.rdbuf();
      ++compared;
      wrong += !changing.hadState(name, content.str());
    }
  });
  EXPECT_EQ(failed, 0);
  EXPECT_EQ(wrong, 0);
  EXPECT_GT(compared, requestCount / 2);
}

TEST_F(FileCacheThreads, AnswersAboutChangesWhileOthersFetch) {
  qvbSetConfigOption("BASE/REMOTEFILECACHE_TIMEBETWEENCHECKS", "0");
  ChangingSources changing(sources);
  FileAccessCache* const cache = getFileCache();
  ASSERT_NE(cache, nullptr);
  const ReleasedSubject subject(qvbSubjectCreate("user", QvbString()));
  std::atomic<int> failed = 0;
  runThreads(8, [&](int number) {
    for (int i = 0; i < 50; ++i) {
      const QvbString name = changing.path(i % nameCount);
      QvbString local, error;
      QvbDate date;
      bool modified = false;
      switch ((number + i) % 4) {
      case 0:
        failed += cache->isModified(subject.get(), name, &modified, &error) != 0;
        break;
      case 1:
        failed += cache->getModifiedDate(subject.get(), name, &date, &error) != 0;
        break;
      case 2:
        failed += !cache->flush(true);
        break;
      default:
        failed += cache->getCacheFilename(subject.get(), name, &local, &error) != 0;
      }
    }
  });
  EXPECT_EQ(failed, 0);
}

namespace {

// A host's own source, which no cache may end while it is asked something.
class HostProvider final : public FileAccessCacheSourceProvider {
public:
  explicit HostProvider(std::atomic<int>* alive) : m_alive(alive) { ++*m_alive; }

  void release() override {
    EXPECT_FALSE(m_inCall);
    delete this;
  }
  bool exists(ASSubject*, const QvbString&, QvbString*) override {
    const Call call(this);
    return true;
  }
  int getModifiedDate(ASSubject*, const QvbString&, QvbDate* date, QvbString*, bool) override {
    const Call call(this);
    *date = QvbDate::currentDate(false);
    return 0;
  }
  int updateLocalFileContent(ASSubject*, const QvbString&, const QvbString& localFilename,
                             QvbString*) override {
    const Call call(this);
    std::ofstream(localFilename.asCstr()) << "provided";
    return 0;
  }
  bool flush(bool) override {
    const Call call(this);
    return true;
  }

private:
  struct Call {
    explicit Call(HostProvider* called) : provider(called) {
      EXPECT_FALSE(provider->m_inCall.exchange(true));
      std::this_thread::yield();
    }
    ~Call() { provider->m_inCall = false; }
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;
    HostProvider* provider;
  };

  ~HostProvider() override { --*m_alive; }

  std::atomic<int>* m_alive;
  std::atomic<bool> m_inCall = false;
};

} // namespace

TEST_F(FileCacheThreads, EndsNoSourceThatIsInUse) {
  qvbSetConfigOption("BASE/REMOTEFILECACHE_TIMEBETWEENCHECKS", "-1");
  const ChangingSources existing(sources);
  auto* const cache = dynamic_cast<FileAccessCacheManager*>(getFileCache());
  ASSERT_NE(cache, nullptr);
  const ReleasedSubject subject(qvbSubjectCreate("user", QvbString()));
  std::atomic<int> alive = 0, failed = 0, fetching = 4;
  runThreads(6, [&](int number) {
    if (number >= 4) {
      while (fetching > 0) {
        cache->setSourceProvider(new HostProvider(&alive));
        std::this_thread::yield();
      }
      return;
    }
    for (int i = 0; i < 200; ++i) {
      QvbString local, error;
      failed += i % 20 == 0
                    ? !cache->flush(false)
                    : cache->getCacheFilename(subject.get(), existing.path(i % 4), &local, &error) != 0;
    }
    --fetching;
  });
  EXPECT_EQ(failed, 0);
  EXPECT_EQ(alive, 1);
  qvFileCacheShutdown();
  EXPECT_EQ(alive, 0);
}

namespace {

// A host's own cache, which counts how often it is released.
class HostCache final : public FileAccessCacheManager {
public:
  int getCacheFilename(ASSubject*, const QvbString&, QvbString*, QvbString*) override { return 0; }
  int isModified(ASSubject*, const QvbString&, bool*, QvbString*) override { return 0; }
  int getModifiedDate(ASSubject*, const QvbString&, QvbDate*, QvbString*) override { return 0; }
  bool flush(bool) override { return true; }
  void release() override { ++released; }
  void setSourceProvider(FileAccessCacheSourceProvider*) override {}

  std::atomic<int> released = 0;
};

} // namespace

TEST_F(FileCacheThreads, HandOutOneCacheToWhoeverComesFirst) {
  for (int round = 0; round < 20; ++round) {
    std::array<FileAccessCache*, threadCount> found{};
    runThreads(threadCount, [&](int number) {
      void* out = nullptr;
      EXPECT_EQ(qvFileCacheStartup(nullptr, &out), 0);
      found.at(static_cast<std::size_t>(number)) = getFileCache();
    });
    for (FileAccessCache* cache : found)
      EXPECT_EQ(cache, found.front());
    EXPECT_NE(found.front(), nullptr);
    qvFileCacheShutdown();
  }
}

TEST_F(FileCacheThreads, BeginAndEndTheCacheFromAnywhere) {
  // one for every attempt, so that none is installed twice
  constexpr int rounds = 40;
  std::vector<HostCache> hosts(threadCount * rounds);
  std::vector<int> results(hosts.size(), -2);
  runThreads(threadCount, [&](int number) {
    for (int round = 0; round < rounds; ++round) {
      const auto own = static_cast<std::size_t>(number * rounds + round);
      void* out = &out;
      switch ((number + round) % 4) {
      case 0:
        EXPECT_EQ(qvFileCacheStartup(nullptr, &out), 0);
        EXPECT_EQ(out, nullptr);
        break;
      case 1:
        EXPECT_NE(getFileCache(), nullptr);
        break;
      case 2:
        results[own] = setFileCacheManager(&hosts[own]);
        break;
      default:
        qvFileCacheShutdown();
      }
    }
  });
  qvFileCacheShutdown();
  for (std::size_t i = 0; i < hosts.size(); ++i)
    EXPECT_EQ(hosts[i].released, results[i] == 0 ? 1 : 0) << results[i];
}
