// One event that reaches eight listeners. Events of different threads reach them one at a time, and a listener may fire
// events of its own: everybody fires under a lock.
#include "bench.h"

#include "qvreposres/qvreposeventmgr.h"

#include <array>
#include <mutex>

#ifdef QV_WITH_BOOST
#include <boost/signals2.hpp>
#endif

namespace {

constexpr std::size_t listenerCount = 8;

int eventCount(const Bench& bench) { return bench.isShort ? 10 : 2'000'000; }

// The texts are there before: who fires an event has them.
const QvbString repository("Warehouse");
const QvbString object("batch_jobs/load_calendar");
const QvbString uuid("0d3ffbf5-5f5d-4b7c-8f1e-2c7c5a2a9d11");

// Nobody sees more of it than the interface: the compiler may not put what it does into its caller.
class Listener : public RepositoryObjectChange {
public:
  [[gnu::noinline]] void objectChanged(const QvbString&, RepositoryObjectChangeType, const QvbString&, int id,
                                       const QvbString&) override {
    heard += static_cast<std::uint64_t>(id);
  }
  void objectRenamed(const QvbString&, const QvbString&, int, const QvbString&, const QvbString&,
                     const QvbString&) override {}
  void contentChanged(const QvbString&, const QvbString&, RepositoryObjectChangeType,
                      const QvbString&) override {}

  std::uint64_t heard = 0;
};

using Listeners = std::array<Listener, listenerCount>;

// What all of them have heard.
std::string resultOf(const Listeners& listeners) {
  std::uint64_t heard = 0;
  for (const auto& listener : listeners)
    heard += listener.heard;
  return std::to_string(heard);
}

void byLibrary(Bench& bench) {
  Listeners listeners;
  QvReposEventManager* const manager = getRepositoryEventManager();
  for (auto& listener : listeners)
    manager->addRepositoryObjectChangeListener(&listener);
  bench.measure([&] {
    for (int i = 0; i < eventCount(bench); ++i)
      manager->fireObjectChanged(repository, RepositoryObjectModified, object, i, uuid);
  });
  for (auto& listener : listeners)
    manager->removeRepositoryObjectChangeListener(&listener);
  bench.result = resultOf(listeners);
}

#ifdef QV_WITH_BOOST

void byBoost(Bench& bench) {
  Listeners listeners;
  boost::signals2::signal<void(const QvbString&, RepositoryObjectChangeType, const QvbString&, int,
                               const QvbString&)>
      changed;
  for (RepositoryObjectChange& listener : listeners)
    changed.connect([&listener](const auto&... event) { listener.objectChanged(event...); });
  std::recursive_mutex mutex;
  bench.measure([&] {
    for (int i = 0; i < eventCount(bench); ++i) {
      const std::lock_guard guard(mutex);
      changed(repository, RepositoryObjectModified, object, i, uuid);
    }
  });
  bench.result = resultOf(listeners);
}

#endif

void byHand(Bench& bench) {
  Listeners listeners;
  std::vector<RepositoryObjectChange*> all;
  for (auto& listener : listeners)
    all.push_back(&listener);
  std::recursive_mutex mutex;
  bench.measure([&] {
    for (int i = 0; i < eventCount(bench); ++i) {
      const std::lock_guard guard(mutex);
      for (RepositoryObjectChange* const listener : all)
        listener->objectChanged(repository, RepositoryObjectModified, object, i, uuid);
    }
  });
  bench.result = resultOf(listeners);
}

} // namespace

int main(int count, char** words) {
  return bench(count, words,
               {
                   {"library", byLibrary},
                   {"by hand", byHand},
#ifdef QV_WITH_BOOST
                   {"Boost.Signals2", byBoost},
#endif
               });
}
