#include "qvxbase/private/qvbperthread.h"

#include <gtest/gtest.h>

#include <new>
#include <thread>
#include <vector>

#include <pthread.h>

namespace {

struct Counted {
  static inline int alive = 0;
  Counted() { ++alive; }
  ~Counted() { --alive; }
  int value = 0;
};

} // namespace

TEST(PerThread, IsTheSameForOneThreadAndAnotherForTheNext) {
  QvbPerThread<Counted> place;
  place.get().value = 7;
  EXPECT_EQ(place.get().value, 7);
  std::thread([&] { EXPECT_EQ(place.get().value, 0); }).join();
  EXPECT_EQ(place.get().value, 7);
}

TEST(PerThread, IsRefusedWhereTheSystemHasNoPlaceLeft) {
  std::vector<pthread_key_t> taken;
  for (pthread_key_t key; ::pthread_key_create(&key, nullptr) == 0;)
    taken.push_back(key);
  EXPECT_THROW(QvbPerThread<Counted>(), std::bad_alloc);
  for (const pthread_key_t key : taken)
    ::pthread_key_delete(key);
  EXPECT_EQ(QvbPerThread<Counted>().get().value, 0);
}

TEST(PerThread, EndsWithItsThread) {
  QvbPerThread<Counted> place;
  std::thread([&] {
    place.get();
    EXPECT_EQ(Counted::alive, 1);
  }).join();
  EXPECT_EQ(Counted::alive, 0);
}

TEST(PerThread, EndsWithThePlaceInThreadsThatGoOn) {
  {
    QvbPerThread<Counted> place;
    place.get();
    EXPECT_EQ(Counted::alive, 1);
  }
  EXPECT_EQ(Counted::alive, 0);
}

// Objects of the thread end one after the other; a late one may still ask for what ended before it.
TEST(PerThread, IsMadeAnewForWhatEndsAfterIt) {
  static QvbPerThread<Counted>* place = nullptr;
  struct Late {
    ~Late() { place->get().value = 1; }
  };
  {
    QvbPerThread<Counted> first;
    place = &first;
    QvbPerThread<Late> late; // its key ends after that of `first`
    std::thread([&] {
      late.get();
      first.get();
    }).join();
    EXPECT_EQ(Counted::alive, 0);
  }
}
