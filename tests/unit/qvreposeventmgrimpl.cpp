#include "qvreposeventmgrimpl.h"

#include "guards.h"
#include "qvxbase/qvbfault.h"
#include "support/allocations.h"
#include "support/logcapture.h"
#include "support/textio.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <functional>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const std::string category = "QV.Repos.QvReposRes.ReposEventMgr";
const std::string source = "src/qvreposeventmgrimpl";

LogLine trace(const std::string& text) { return {category, 1, source, text}; }

// Writes down what it is told, then does what the test wants it to.
class Listener final : public RepositoryObjectChange {
public:
  explicit Listener(std::string name = "", std::vector<std::string>* log = nullptr)
      : m_name(std::move(name)), m_log(log ? log : &heard) {}

  void objectChanged(const QvbString& repository, RepositoryObjectChangeType type, const QvbString& object,
                     int id, const QvbString& uuid) override {
    hear("changed", repository, type, object, id, uuid);
  }
  void objectRenamed(const QvbString& repository, const QvbString& object, int id, const QvbString& uuid,
                     const QvbString& oldName, const QvbString& newName) override {
    hear("renamed", repository, object, id, uuid, oldName, newName);
  }
  void contentChanged(const QvbString& repository, const QvbString& object, RepositoryObjectChangeType type,
                      const QvbString& detail) override {
    hear("content", repository, object, type, detail);
  }

  std::vector<std::string> heard;
  std::function<void()> then = [] {};

private:
  template<class... Parts>
  void hear(const char* event, const Parts&... parts) {
    std::ostringstream line;
    line << m_name << event;
    ((line << ' ' << parts), ...);
    m_log->push_back(line.str());
    const auto action = then; // which may set another one
    action();
  }

  std::string m_name;
  std::vector<std::string>* m_log;
};

class EventManager : public testing::Test {
protected:
  void fire(int id = 1) { manager->fireObjectChanged("repos", RepositoryObjectModified, "object", id, "u"); }
  bool add(Listener& listener) { return manager->addRepositoryObjectChangeListener(&listener); }
  bool remove(Listener& listener) { return manager->removeRepositoryObjectChangeListener(&listener); }
  Listener named(const char* name) { return Listener(name, &heard); }

  LogCapture log;
  std::vector<std::string> heard; // by the listeners made with named()
  Released<QvReposEventManager> manager{new QvReposEventMgrImpl};
};

std::string event(const char* name, int id = 1) {
  return std::string(name) + "changed \"repos\" 2 \"object\" " + std::to_string(id) + " \"u\"";
}

} // namespace

TEST(ChangeWords, AreGivenForEveryChangeAndModifiedForTheRest) {
  struct {
    int type;
    const char* word;
  } const cases[] = {{0, "created"}, {1, "deleted"},  {2, "modified"},  {3, "locked"},   {4, "unlocked"},
                     {5, "renamed"}, {6, "modified"}, {99, "modified"}, {-1, "modified"}};
  for (const auto& expected : cases) {
    QvbString word("before");
    EXPECT_TRUE(
        getRepositoryEventChangeTypeString(static_cast<RepositoryObjectChangeType>(expected.type), &word));
    EXPECT_EQ(word, expected.word) << expected.type;
  }
}

TEST(ChangeWords, NeedAnOutput) {
  EXPECT_FALSE(getRepositoryEventChangeTypeString(RepositoryObjectCreated, nullptr));
}

TEST(ChangeWords, NameTheirChangeAndEveryOtherTextAModification) {
  struct {
    QvbString word;
    int type;
  } const cases[] = {{"created", 0},
                     {"deleted", 1},
                     {"modified", 2},
                     {"locked", 3},
                     {"unlocked", 4},
                     {"renamed", 5},
                     {"", 2},
                     {QvbString(), 2},
                     {"Created", 2},
                     {"RENAMED", 2},
                     {"create", 2},
                     {"created ", 2},
                     {QvbString("created\0", 8), 2}};
  for (const auto& expected : cases)
    EXPECT_EQ(getRepositoryEventChangeTypeFromString(expected.word), expected.type) << expected.word;
}

TEST_F(EventManager, LogsItsLifeWithItsClient) {
  QvbString guid;
  ASSERT_TRUE(manager->getClientGUID(&guid));
  manager.reset();
  EXPECT_THAT(
      log.lines(),
      ElementsAre(LogLine{category, 2, source, "Startup of QvRepos Event Manager, ClientId=" + str(guid)},
                  LogLine{category, 2, source, "Shutdown of QvRepos Event Manager, ClientId=" + str(guid)}));
}

TEST_F(EventManager, HasOneClientForItsLifeAndAnotherThanTheNextManagers) {
  QvbString first;
  QvbString again;
  EXPECT_TRUE(manager->getClientGUID(&first));
  EXPECT_TRUE(manager->getClientGUID(&again));
  EXPECT_EQ(first.length(), 36);
  EXPECT_EQ(first, again);
  manager.reset(new QvReposEventMgrImpl);
  EXPECT_TRUE(manager->getClientGUID(&again));
  EXPECT_NE(str(first), str(again));
}

TEST_F(EventManager, GivesItsClientToNoOneWithoutAnOutput) { EXPECT_FALSE(manager->getClientGUID(nullptr)); }

TEST_F(EventManager, NeverHasAnErrorMessage) {
  EXPECT_FALSE(manager->addRepositoryObjectChangeListener(nullptr));
  EXPECT_TRUE(manager->getErrorMessage().isNull());
}

TEST_F(EventManager, TellsOfAChangedObject) {
  Listener listener;
  EXPECT_TRUE(add(listener));
  log.clear();
  manager->fireObjectChanged("repos", RepositoryObjectLocked, "object", -7, "some-uuid");
  EXPECT_THAT(listener.heard, ElementsAre("changed \"repos\" 3 \"object\" -7 \"some-uuid\""));
  EXPECT_THAT(log.lines(), ElementsAre(trace("Firing locked event for object in repos repos object id=-7 and "
                                             "uuid=some-uuid.")));
  remove(listener);
}

TEST_F(EventManager, PassesUnknownChangesAndNullTextsOn) {
  Listener listener;
  add(listener);
  log.clear();
  manager->fireObjectChanged(QvbString(), static_cast<RepositoryObjectChangeType>(99), "", 0, QvbString());
  EXPECT_THAT(listener.heard, ElementsAre("changed (null) 99 \"\" 0 (null)"));
  EXPECT_THAT(log.lines(), ElementsAre(trace("Firing modified event for  in repos  object id=0 and uuid=.")));
  remove(listener);
}

TEST_F(EventManager, TellsOfARenamedObject) {
  Listener listener;
  add(listener);
  manager->fireObjectRenamed("repos", "object", 12345, "some-uuid", "old", "new");
  EXPECT_THAT(listener.heard,
              ElementsAre("renamed \"repos\" \"object\" 12345 \"some-uuid\" \"old\" \"new\""));
  remove(listener);
}

TEST_F(EventManager, LogsARenamedObjectWithTheLocationOfItsId) {
  log.clear();
  manager->fireObjectRenamed("repos", "object", 12345, "some-uuid", "old", "new");
  const auto lines = log.lines();
  ASSERT_EQ(lines.size(), 1U);
  const std::string start = "Firing renamed event for object in repos repos object id=";
  const std::string end = " and uuid=some-uuid was renamed from old to new.";
  const std::string& text = lines[0].text;
  ASSERT_GT(text.size(), start.size() + end.size());
  EXPECT_TRUE(text.starts_with(start) && text.ends_with(end)) << text;
  const std::string location = text.substr(start.size(), text.size() - start.size() - end.size());
  EXPECT_THAT(location, testing::MatchesRegex("0x[0-9a-f]+"));
  EXPECT_EQ(lines[0], trace(text));
}

TEST_F(EventManager, TellsOfChangedContent) {
  Listener listener;
  add(listener);
  log.clear();
  manager->fireContentChanged("repos", "object", RepositoryObjectDeleted, "detail");
  EXPECT_THAT(listener.heard, ElementsAre("content \"repos\" \"object\" 1 \"detail\""));
  EXPECT_THAT(log.lines(), ElementsAre(trace(
                               "Firing content changed event for object in repos repos object was deleted")));
  remove(listener);
}

TEST_F(EventManager, LogsRenamedContentWithItsNewName) {
  Listener listener;
  add(listener);
  log.clear();
  manager->fireContentChanged("repos", "object", RepositoryObjectRenamed, "50%s");
  EXPECT_THAT(listener.heard, ElementsAre("content \"repos\" \"object\" 5 \"50%s\""));
  EXPECT_THAT(log.lines(),
              ElementsAre(trace(
                  "Firing content changed event for object in repos repos object was renamed to 50%s")));
  remove(listener);
}

TEST_F(EventManager, LogsEventsThatNobodyHears) {
  log.clear();
  fire();
  EXPECT_THAT(log.lines(),
              ElementsAre(trace("Firing modified event for object in repos repos object id=1 and uuid=u.")));
}

TEST(EventManagerWithoutALog, FormatsNothing) {
  const Released<QvReposEventManager> manager(new QvReposEventMgrImpl);
  const QvbString any("any");
  constexpr long limit = 1000;
  Allocations::left = limit;
  manager->fireObjectChanged(any, RepositoryObjectLocked, any, 1, any);
  manager->fireObjectRenamed(any, any, 1, any, any, any);
  manager->fireContentChanged(any, any, RepositoryObjectDeleted, any);
  manager->fireContentChanged(any, any, RepositoryObjectRenamed, any);
  const long left = std::exchange(Allocations::left, -1);
  EXPECT_EQ(left, limit);
}

TEST_F(EventManager, CallsListenersInTheOrderOfTheirRegistration) {
  Listener a = named("a ");
  Listener b = named("b ");
  Listener c = named("c ");
  add(b);
  add(c);
  add(a);
  fire();
  EXPECT_THAT(heard, ElementsAre(event("b "), event("c "), event("a ")));
  for (Listener* listener : {&a, &b, &c})
    remove(*listener);
}

TEST_F(EventManager, LogsEachListenerItAddsAndNoneItRemoves) {
  Listener listener;
  log.clear();
  add(listener);
  add(listener);
  EXPECT_FALSE(remove(listener));
  EXPECT_THAT(log.lines(), ElementsAre(trace("Adding listener"), trace("Adding listener")));
}

TEST_F(EventManager, RefusesANullListener) {
  log.clear();
  EXPECT_FALSE(manager->addRepositoryObjectChangeListener(nullptr));
  EXPECT_FALSE(manager->removeRepositoryObjectChangeListener(nullptr));
  fire();
  manager.reset();
  EXPECT_THAT(log.lines(), testing::Not(testing::Contains(testing::Field(&LogLine::level, 4))));
  EXPECT_THAT(log.lines(), testing::Not(testing::Contains(trace("Adding listener"))));
}

TEST_F(EventManager, CallsAListenerAsOftenAsItWasAdded) {
  Listener listener;
  EXPECT_TRUE(add(listener));
  EXPECT_TRUE(add(listener));
  fire();
  EXPECT_EQ(listener.heard.size(), 2U);
  EXPECT_FALSE(remove(listener));
  fire();
  EXPECT_EQ(listener.heard.size(), 2U);
}

TEST_F(EventManager, RemovesEveryOccurrenceAndNoOtherListener) {
  Listener a = named("a ");
  Listener b = named("b ");
  for (Listener* listener : {&a, &b, &a, &b, &a})
    add(*listener);
  EXPECT_FALSE(remove(a));
  EXPECT_FALSE(remove(a));
  fire();
  EXPECT_THAT(heard, ElementsAre(event("b "), event("b ")));
  remove(b);
}

TEST_F(EventManager, WarnsOfListenersLeftAtItsEndAndCallsNone) {
  Listener listener;
  add(listener);
  log.clear();
  manager.reset();
  EXPECT_THAT(listener.heard, IsEmpty());
  const auto lines = log.lines();
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_EQ(lines[0], (LogLine{category, 4, source, "Listener list was not empty on shutdown."}));
  EXPECT_THAT(lines[1].text, testing::StartsWith("Shutdown of QvRepos Event Manager, ClientId="));
}

TEST_F(EventManager, LetsAListenerRemoveItselfAndDropsIt) {
  Listener a = named("a ");
  Listener b = named("b ");
  a.then = [&] { remove(a); };
  add(a);
  add(b);
  fire(1);
  fire(2);
  EXPECT_THAT(heard, ElementsAre(event("a ", 1), event("b ", 1), event("b ", 2)));
  remove(b);
  log.clear();
  manager.reset();
  EXPECT_EQ(log.lines().size(), 1U) << "nothing is left of either";
}

TEST_F(EventManager, DoesNotCallAListenerOnceItIsRemoved) {
  Listener a = named("a ");
  auto b = std::make_unique<Listener>("b ", &heard);
  Listener c = named("c ");
  add(a);
  add(*b);
  add(c);
  add(*b);
  a.then = [&] {
    if (b)
      remove(*b);
    b.reset(); // the removed listener may be gone at once
  };
  fire();
  EXPECT_THAT(heard, ElementsAre(event("a "), event("c ")));
  remove(a);
  remove(c);
}

TEST_F(EventManager, CallsAListenerThatACallbackAddsFromTheNextEventOn) {
  Listener a = named("a ");
  std::vector<Listener> more(100, named("b "));
  a.then = [&] {
    for (Listener& listener : more)
      add(listener);
    a.then = [] {};
  };
  add(a);
  fire(1);
  EXPECT_THAT(heard, ElementsAre(event("a ", 1)));
  fire(2);
  EXPECT_EQ(heard.size(), 102U);
  remove(a);
  for (Listener& listener : more)
    remove(listener);
}

TEST_F(EventManager, TakesAListenerThatIsRemovedAndAddedForANewOne) {
  Listener a = named("a ");
  Listener b = named("b ");
  a.then = [&] {
    remove(b);
    add(b);
    a.then = [] {};
  };
  add(a);
  add(b);
  fire(1);
  EXPECT_THAT(heard, ElementsAre(event("a ", 1)));
  fire(2);
  EXPECT_THAT(heard, ElementsAre(event("a ", 1), event("a ", 2), event("b ", 2)));
  remove(a);
  remove(b);
}

TEST_F(EventManager, LetsAListenerFireAndRemoveInsideAnEvent) {
  Listener a = named("a ");
  Listener b = named("b ");
  Listener c = named("c ");
  a.then = [&] {
    a.then = [] {};
    b.then = [&] { remove(b); };
    fire(2);
  };
  add(a);
  add(b);
  add(c);
  fire(1);
  EXPECT_THAT(heard,
              ElementsAre(event("a ", 1), event("a ", 2), event("b ", 2), event("c ", 2), event("c ", 1)));
  remove(a);
  remove(c);
}

TEST_F(EventManager, IgnoresTheRemovalOfNullWithoutWaitingForItsLock) {
  Listener listener;
  listener.then = [&] {
    std::thread([&] { manager->removeRepositoryObjectChangeListener(nullptr); }).join();
  };
  add(listener);
  fire();
  EXPECT_EQ(listener.heard.size(), 1U);
  remove(listener);
}

TEST_F(EventManager, CallsListenersOnTheThreadThatFires) {
  Listener listener;
  std::thread::id caller;
  listener.then = [&] { caller = std::this_thread::get_id(); };
  add(listener);
  fire();
  EXPECT_EQ(caller, std::this_thread::get_id());
  remove(listener);
}

TEST_F(EventManager, HandsOutTheEventsOfManyThreadsOneAtATime) {
  Listener listener;
  int inside = 0;
  int overlaps = 0;
  listener.then = [&] {
    overlaps += inside++;
    std::this_thread::yield();
    --inside;
  };
  add(listener);
  std::vector<std::thread> threads;
  threads.reserve(4);
  for (int number = 0; number < 4; ++number)
    threads.emplace_back([&] {
      for (int i = 0; i < 200; ++i) {
        Listener own;
        add(own);
        fire(i);
        remove(own);
      }
    });
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_EQ(overlaps, 0);
  EXPECT_EQ(listener.heard.size(), 800U);
  remove(listener);
}

TEST(EventManagerWithoutALock, SaysSoAndGoesOn) {
  qvbSetFaultHook(
      [](QvbFaultPoint point, const char*) { return point == QvbFaultPoint::LockCreate ? ENOMEM : 0; });
  const LogCapture log;
  Released<QvReposEventManager> manager(new QvReposEventMgrImpl);
  qvbSetFaultHook(nullptr);
  const auto lines = log.lines();
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_EQ(lines[0], (LogLine{category, 6, source, "Failed to create repos event manager lock"}));
  EXPECT_THAT(lines[1].text, testing::StartsWith("Startup of QvRepos Event Manager, ClientId="));

  Listener listener;
  EXPECT_TRUE(manager->addRepositoryObjectChangeListener(&listener));
  manager->fireContentChanged("repos", "object", RepositoryObjectCreated, "");
  EXPECT_THAT(listener.heard, ElementsAre("content \"repos\" \"object\" 0 \"\""));
  EXPECT_FALSE(manager->removeRepositoryObjectChangeListener(&listener));
}
