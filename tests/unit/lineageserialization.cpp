#include "lineageserialization.h"

#include "lineagefactory.h"
#include "qvresource.h"
#include "support/allocations.h"
#include "support/logcapture.h"
#include "support/recordingfactory.h"
#include "support/textio.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <algorithm>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Store = Released<QvImpactAnalysis>;
using Resource = Released<QvResource>;
using List = Released<QvResourceList>;

Store makeStore() { return Store(getQvLineageAnalysis()); }

Resource resource(const char* name, const char* type, const char* identity) {
  return Resource(RecordingFactory::record(name, type, identity));
}

List listOf(const std::vector<const char*>& identities) {
  List list(new QvResourceListImpl);
  for (const char* identity : identities) {
    list->addRow();
    list->setLastRowElement(0, resource(identity, "File", identity).get());
  }
  return list;
}

std::vector<std::string> identitiesIn(QvResourceList* list) {
  const List owned(list);
  std::vector<std::string> identities;
  while (owned->next())
    identities.push_back(str(owned->getValue()->getResourceIdentity()));
  return identities;
}

std::vector<std::string> dependents(QvImpactAnalysis& store, QvResource* of) {
  return identitiesIn(store.getDependentResources(of, false));
}

// Makes resources of the host's own of what depends on others.
class HostStore final : public LineageSerializationImpl {
public:
  QvResource* createResource(const QvbString& name, const QvbString& type,
                             const QvbString& identity) override {
    auto* made = new HostResource;
    made->name = name;
    made->type = type;
    made->identity = identity;
    made->location = text("host:" + str(identity));
    return made;
  }
};

TEST(LineageStore, CopiesWhatADerivedStoreMadeIntoItsList) {
  const Released<HostStore> store(new HostStore);
  ASSERT_TRUE(
      store->addDependentResources(resource("job", "ProcessJob", "/job").get(), listOf({"/a"}).get()));
  const List all(store->getAllUniqueUsedResources());
  ASSERT_TRUE(all->next());
  EXPECT_EQ(fieldsOf(*all->getValue()), (ResourceFields{"job", "ProcessJob", "/job"}));
  EXPECT_EQ(all->getValue()->getResourceLocation(), "host:/job");
  EXPECT_FALSE(all->next());
}

// As a list does that a resource is set in.
TEST(LineageStore, ReadsThePropertiesOfWhatItKeepsToTheirEnd) {
  const Released<QvResourcePropertyList> properties(new QvResourcePropertyListImpl);
  for (const char* key : {"a", "b"}) {
    ASSERT_TRUE(properties->addRow());
    properties->setLastRow(key, "value");
  }
  const List list = listOf({"/a"});
  ASSERT_TRUE(list->next());
  dynamic_cast<QvResourceImpl&>(*list->getValue()).setProperties(properties.get());
  list->reset();
  const Store store = makeStore();
  ASSERT_TRUE(store->addDependentResources(resource("job", "ProcessJob", "/job").get(), list.get()));
  EXPECT_FALSE(properties->next());
}

// A resource that is there already is not set in anything.
TEST(LineageStore, LeavesThePropertiesOfWhatItHasAlreadyAlone) {
  const Released<QvResourcePropertyList> properties(new QvResourcePropertyListImpl);
  ASSERT_TRUE(properties->addRow());
  HostResource host;
  host.identity = "/a";
  host.properties = properties.get();
  struct HostList final : QvResourceList {
    explicit HostList(QvResource* resource) : only(resource) {}
    bool next() override { return !std::exchange(isRead, true); }
    QvResource* getValue() override { return only; }
    void release() override {}
    bool addRow() override { return false; }
    void setLastRowElement(unsigned long, QvResource*) override {}
    bool contains(QvResource*) override { return false; }
    void reset() override { isRead = false; }
    QvResource* only;
    bool isRead = false;
  } list(&host);
  const Store store = makeStore();
  const Resource job = resource("job", "ProcessJob", "/job");
  ASSERT_TRUE(store->addDependentResources(job.get(), listOf({"/a"}).get()));
  ASSERT_TRUE(store->addDependentResources(job.get(), &list));
  EXPECT_THAT(dependents(*store, job.get()), ElementsAre("/a"));
  EXPECT_TRUE(properties->next());
}

TEST(LineageOrder, IsThatOfTypeThenIdentityWithoutRegardToCase) {
  const MapLineageResourceCompare less;
  const Resource a = resource("x", "File", "b");
  EXPECT_FALSE(less(a.get(), resource("y", "FILE", "B").get()));
  EXPECT_FALSE(less(resource("y", "FILE", "B").get(), a.get()));
  EXPECT_TRUE(less(a.get(), resource("x", "table", "a").get()));
  EXPECT_FALSE(less(resource("x", "table", "a").get(), a.get()));
  EXPECT_TRUE(less(a.get(), resource("x", "file", "C").get()));
  EXPECT_FALSE(less(resource("x", "file", "C").get(), a.get()));
}

TEST(LineageOrder, PutsNullLast) {
  const MapLineageResourceCompare less;
  const Resource a = resource("x", "File", "b");
  EXPECT_TRUE(less(a.get(), nullptr));
  EXPECT_FALSE(less(nullptr, a.get()));
  EXPECT_FALSE(less(nullptr, nullptr));
}

TEST(LineageStore, IsEmptyAtFirstAndHasAFactoryWithItsResolver) {
  const LogCapture log;
  const Store store = makeStore();
  EXPECT_THAT(identitiesIn(store->getAllUniqueUsedResources()), IsEmpty());
  QvResourceFactory* factory = store->getDefaultResourceFactory();
  ASSERT_NE(factory, nullptr);
  EXPECT_EQ(store->getDefaultResourceFactory(), factory);
  EXPECT_NE(dynamic_cast<LineageResourceResolver*>(factory->getResourceResolver()), nullptr);
  EXPECT_THAT(log.lines(), IsEmpty());
}

// The leak check of the sanitizers sees the one that nobody releases; releasing it twice is seen by them too.
TEST(LineageStore, EndsItsResolverOnceWhetherOrNotAHostReplacedIt) {
  struct HostResolver : RecordingResolver {
    explicit HostResolver(int* ends) : m_ends(ends) {}
    void release() override {
      ++*m_ends;
      delete this;
    }
    int* m_ends;
  };
  int ends = 0;
  Store store = makeStore();
  QvResourceFactory* factory = store->getDefaultResourceFactory();
  QvResourceResolver* own = factory->getResourceResolver();
  auto* replacement = new HostResolver(&ends);
  factory->registerResourceResolver(replacement);
  EXPECT_EQ(factory->getResourceResolver(), replacement);
  QvbString name;
  QvbString uri;
  EXPECT_TRUE(own->getResourceLocation("n", "http://host/x", "", &name, &uri)) << "good as long as the store";
  store.reset();
  EXPECT_EQ(ends, 1);

  store = makeStore();
  factory = store->getDefaultResourceFactory();
  own = factory->getResourceResolver();
  auto* replaced = new HostResolver(&ends);
  factory->registerResourceResolver(replaced);
  factory->registerResourceResolver(own);
  store.reset();
  EXPECT_EQ(ends, 1) << "a replaced resolver stays the host's";
  replaced->release();
}

TEST(LineageStore, MakesResourcesThroughItsFactory) {
  const Store store = makeStore();
  EXPECT_EQ(fieldsOf(*Resource(store->createResource("name", "Type", "identity"))),
            (ResourceFields{"name", "Type", "identity"}));
  EXPECT_EQ(fieldsOf(*Resource(store->getResource("T", "I"))), (ResourceFields{"I", "T", "I"}));
}

TEST(LineageStore, MakesEmptyLists) {
  const Store store = makeStore();
  const List list(store->createResourceList());
  ASSERT_TRUE(list);
  EXPECT_FALSE(list->next());
  EXPECT_TRUE(list->addRow());
}

TEST(LineageStore, KeepsDependenciesInTheOrderTheyCame) {
  const Store store = makeStore();
  const Resource job = resource("job", "ProcessJob", "/job");
  EXPECT_TRUE(store->addDependentResources(job.get(), listOf({"b", "a", "b", "A"}).get()));
  EXPECT_THAT(dependents(*store, job.get()), ElementsAre("b", "a"));
  EXPECT_TRUE(store->addDependentResources(job.get(), listOf({"c", "B"}).get()));
  EXPECT_THAT(dependents(*store, job.get()), ElementsAre("b", "a", "c"));
  EXPECT_THAT(dependents(*store, job.get()), ElementsAre("b", "a", "c")) << "a second time";
}

TEST(LineageStore, SameTypeAndIdentityAreOneNodeWhateverTheName) {
  const Store store = makeStore();
  const Resource one = resource("one", "ProcessJob", "/job");
  const Resource two = resource("two", "PROCESSJOB", "/JOB");
  EXPECT_TRUE(store->addDependentResources(one.get(), listOf({"a"}).get()));
  EXPECT_TRUE(store->addDependentResources(two.get(), listOf({"a", "b"}).get()));
  EXPECT_THAT(dependents(*store, one.get()), ElementsAre("a", "b"));
  EXPECT_THAT(dependents(*store, two.get()), ElementsAre("a", "b"));
  const List all(store->getAllUniqueUsedResources());
  EXPECT_THAT(rowsOf(*all), ElementsAre(ResourceFields{"one", "ProcessJob", "/job"}));
}

TEST(LineageStore, AnotherTypeIsAnotherNode) {
  const Store store = makeStore();
  store->addDependentResources(resource("n", "ProcessJob", "x").get(), listOf({"a"}).get());
  EXPECT_THAT(dependents(*store, resource("n", "DataJob", "x").get()), IsEmpty());
}

TEST(LineageStore, NeedsNothingOfTheCallersObjectsAfterwards) {
  const Store store = makeStore();
  store->addDependentResources(resource("job", "ProcessJob", "/job").get(), listOf({"a"}).get());
  EXPECT_THAT(dependents(*store, resource("", "ProcessJob", "/job").get()), ElementsAre("a"));
  EXPECT_THAT(identitiesIn(store->getAllUniqueUsedResources()), ElementsAre("/job"));
}

TEST(LineageStore, ReadsDependenciesFromTheListsCursorOn) {
  const Store store = makeStore();
  const Resource job = resource("job", "ProcessJob", "/job");
  const List list = listOf({"a", "b", "c"});
  list->next();
  EXPECT_TRUE(store->addDependentResources(job.get(), list.get()));
  EXPECT_THAT(dependents(*store, job.get()), ElementsAre("b", "c"));
  EXPECT_FALSE(list->next());
}

TEST(LineageStore, AJobWithoutDependenciesIsANodeToo) {
  const Store store = makeStore();
  const Resource job = resource("job", "ProcessJob", "/job");
  EXPECT_TRUE(store->addDependentResources(job.get(), listOf({}).get()));
  EXPECT_THAT(identitiesIn(store->getAllUniqueUsedResources()), ElementsAre("/job"));
  EXPECT_THAT(dependents(*store, job.get()), IsEmpty());
}

TEST(LineageStore, NullArgumentsAreRefused) {
  const Store store = makeStore();
  const Resource job = resource("job", "ProcessJob", "/job");
  EXPECT_FALSE(store->addDependentResources(nullptr, listOf({"a"}).get()));
  EXPECT_FALSE(store->addDependentResources(job.get(), nullptr));
  EXPECT_FALSE(store->deleteResource(nullptr));
  EXPECT_FALSE(store->setAnalysisDate(nullptr, QvbDate()));
  EXPECT_THAT(dependents(*store, nullptr), IsEmpty());
  EXPECT_THAT(identitiesIn(store->getAllUniqueUsedResources()), IsEmpty());
}

TEST(LineageStore, UnknownResourceHasAnEmptyListOfDependencies) {
  const Store store = makeStore();
  const List list(store->getDependentResources(resource("a", "File", "a").get(), true));
  ASSERT_TRUE(list);
  EXPECT_FALSE(list->next());
}

TEST(LineageStore, OnlyDirectDependenciesAreGiven) {
  const Store store = makeStore();
  const Resource job = resource("job", "File", "/job");
  store->addDependentResources(job.get(), listOf({"a"}).get());
  store->addDependentResources(resource("a", "File", "a").get(), listOf({"b"}).get());
  for (const bool recursive : {false, true})
    EXPECT_THAT(identitiesIn(store->getDependentResources(job.get(), recursive)), ElementsAre("a"));
}

TEST(LineageStore, DependenciesCarryWhatAListKeeps) {
  const Store store = makeStore();
  const Resource job = resource("job", "ProcessJob", "/job");
  HostResource dependent;
  dependent.id = "id";
  dependent.name = "name";
  dependent.type = "Table";
  dependent.identity = "identity";
  dependent.location = "location";
  dependent.date.assign(2026, 11, 21, 10, 15, 30, 250);
  const List list(store->createResourceList());
  list->addRow();
  list->setLastRowElement(0, &dependent);
  store->addDependentResources(job.get(), list.get());
  const List read(store->getDependentResources(job.get(), false));
  ASSERT_TRUE(read->next());
  EXPECT_EQ(fieldsOf(*read->getValue()), (ResourceFields{"name", "Table", "identity"}));
  EXPECT_EQ(read->getValue()->getId(), QvbString("id"));
  EXPECT_EQ(read->getValue()->getResourceLocation(), QvbString("location"));
  EXPECT_EQ(read->getValue()->getAnalysisDate().asString(), QvbString("2026-11-21T10:15:30.250"));
}

TEST(LineageStore, GivesItsNodesInTheOrderOfTypeAndIdentity) {
  const Store store = makeStore();
  for (const auto& [type, identity] : std::vector<std::pair<const char*, const char*>>{
           {"table", "t1"}, {"File", "B"}, {"ProcessJob", "p"}, {"file", "a"}, {"FILE", "c"}})
    store->addDependentResources(resource("n", type, identity).get(), listOf({"x"}).get());
  EXPECT_THAT(identitiesIn(store->getAllUniqueUsedResources()), ElementsAre("a", "B", "c", "p", "t1"));
}

TEST(LineageStore, NodesOfTheSameIdentityShowOnceInTheListOfAll) {
  const Store store = makeStore();
  for (const char* type : {"Table", "File"})
    store->addDependentResources(resource("n", type, "same").get(), listOf({"x"}).get());
  const List all(store->getAllUniqueUsedResources());
  EXPECT_THAT(rowsOf(*all), ElementsAre(ResourceFields{"n", "File", "same"}));
}

TEST(LineageStore, ForgetsADeletedNodeOnce) {
  const Store store = makeStore();
  const Resource job = resource("job", "ProcessJob", "/job");
  EXPECT_FALSE(store->deleteResource(job.get()));
  store->addDependentResources(job.get(), listOf({"a"}).get());
  EXPECT_TRUE(store->deleteResource(resource("", "processjob", "/JOB").get()));
  EXPECT_FALSE(store->deleteResource(job.get()));
  EXPECT_THAT(dependents(*store, job.get()), IsEmpty());
  EXPECT_THAT(identitiesIn(store->getAllUniqueUsedResources()), IsEmpty());
  EXPECT_EQ(job->getName(), QvbString("job"));
}

TEST(LineageStore, SetsTheAnalysisDateOfItsOwnResourcesAlone) {
  const Store store = makeStore();
  const Resource own(store->createResource("n", "File", "i"));
  QvbDate date;
  date.assign(2026, 1, 2, 3, 4, 5, 6);
  EXPECT_TRUE(store->setAnalysisDate(own.get(), date));
  EXPECT_EQ(own->getAnalysisDate().compare(date), 0);
  EXPECT_TRUE(store->setAnalysisDate(own.get(), QvbDate()));
  EXPECT_TRUE(own->getAnalysisDate().isNull());
  HostResource foreign;
  EXPECT_FALSE(store->setAnalysisDate(&foreign, date));
  EXPECT_TRUE(foreign.date.isNull());
}

TEST(LineageStore, KnowsOneResourceType) {
  const Store store = makeStore();
  const Released<QvStringList> types(store->getResourceTypes());
  ASSERT_TRUE(types);
  EXPECT_EQ(types->getNumCols(), 1u);
  EXPECT_EQ(types->length(), 1u);
  ASSERT_TRUE(types->next());
  EXPECT_EQ(types->getValue(), QvbString("ProcessJob"));
  EXPECT_FALSE(types->next());
}

TEST(LineageStore, AnswersNothingAgainstTheDirectionOfItsGraph) {
  const Store store = makeStore();
  const Resource job = resource("job", "ProcessJob", "/job");
  store->addDependentResources(job.get(), listOf({"a"}).get());
  EXPECT_THAT(identitiesIn(store->getUsedByResources(resource("a", "File", "a").get(), true)), IsEmpty());
  EXPECT_THAT(identitiesIn(store->getUsedByResources(nullptr, false)), IsEmpty());
  EXPECT_THAT(identitiesIn(store->getDependentResourcesByType(job.get(), "File")), IsEmpty());
  EXPECT_THAT(identitiesIn(store->getResourcesByType("ProcessJob")), IsEmpty());
  EXPECT_FALSE(store->updateImpactAnalysis());
  EXPECT_FALSE(store->removeUnusedResources());
  EXPECT_FALSE(store->removeResources());
  EXPECT_THAT(dependents(*store, job.get()), ElementsAre("a"));
}

TEST(LineageStore, MakesItsKeysThroughItsOwnCreation) {
  struct Derived : LineageSerializationImpl {
    QvResource* createResource(const QvbString& name, const QvbString& type,
                               const QvbString& identity) override {
      made.push_back({str(name), str(type), str(identity)});
      return refuses ? nullptr : LineageSerializationImpl::createResource("key", type, identity);
    }
    std::vector<ResourceFields> made;
    bool refuses = false;
  };
  const Released<Derived> store(new Derived);
  const Resource job = resource("job", "ProcessJob", "/job");
  EXPECT_TRUE(store->addDependentResources(job.get(), listOf({"a"}).get()));
  EXPECT_TRUE(store->addDependentResources(job.get(), listOf({"b"}).get()));
  EXPECT_THAT(store->made, ElementsAre(ResourceFields{"job", "ProcessJob", "/job"}));
  const List all(store->getAllUniqueUsedResources());
  EXPECT_THAT(rowsOf(*all), ElementsAre(ResourceFields{"key", "ProcessJob", "/job"}));
  store->refuses = true;
  EXPECT_TRUE(store->addDependentResources(resource("x", "File", "x").get(), listOf({"a"}).get()));
  EXPECT_THAT(identitiesIn(store->getAllUniqueUsedResources()), ElementsAre("/job"));
}

TEST(LineageStore, AnswersWithNullListsWhenMemoryIsShort) {
  const Store store = makeStore();
  const Resource job = resource("job", "ProcessJob", "/job");
  const List dependencies = listOf({"a"});
  const QvbString type("File");
  Allocations::left = 0;
  const void* lists[] = {store->createResourceList(),
                         store->getUsedByResources(job.get(), false),
                         store->getDependentResources(job.get(), false),
                         store->getDependentResourcesByType(job.get(), type),
                         store->getResourcesByType(type),
                         store->getAllUniqueUsedResources()};
  const bool added = store->addDependentResources(job.get(), dependencies.get());
  QvResource* created = store->createResource(type, type, type);
  Allocations::left = -1;
  for (const void* list : lists)
    EXPECT_EQ(list, nullptr);
  EXPECT_TRUE(added);
  EXPECT_EQ(created, nullptr);
  EXPECT_THAT(identitiesIn(store->getAllUniqueUsedResources()), IsEmpty());
}

TEST(LineageStore, IsMadeWithAsMuchAsThereIsMemoryFor) {
  makeStore(); // the loggers are there from now on
  bool withoutStore = false;
  bool withoutFactory = false;
  bool withoutResolver = false;
  for (long limit = 0; limit < 20; ++limit) {
    Allocations::left = limit;
    const Store store = makeStore();
    Allocations::left = -1;
    if (!store) {
      withoutStore = true;
    } else if (QvResourceFactory* factory = store->getDefaultResourceFactory()) {
      withoutResolver |= !factory->getResourceResolver();
    } else {
      withoutFactory = true;
      EXPECT_EQ(store->createResource("n", "T", "i"), nullptr);
      EXPECT_EQ(store->getResource("T", "i"), nullptr);
      EXPECT_TRUE(store->addDependentResources(resource("a", "File", "a").get(), listOf({"b"}).get()));
      EXPECT_THAT(identitiesIn(store->getAllUniqueUsedResources()), IsEmpty());
    }
  }
  EXPECT_TRUE(withoutStore);
  EXPECT_TRUE(withoutFactory);
  EXPECT_TRUE(withoutResolver);
}

// The store against a plain map of the same graph.
TEST(LineageStore, HoldsTheGraphItWasGiven) {
  EXPECT_TRUE(rc::check([] {
    const Store store = makeStore();
    std::map<std::string, std::vector<std::string>> expected;
    for (int steps = *rc::gen::inRange(0, 30); steps > 0; --steps) {
      const std::string key(1, *rc::gen::inRange<char>('a', 'f'));
      const Resource node = resource(key.c_str(), "File", key.c_str());
      if (*rc::gen::inRange(0, 4) == 0) {
        if (store->deleteResource(node.get()) != (expected.erase(key) != 0))
          return false;
        continue;
      }
      auto& known = expected[key];
      const List added(store->createResourceList());
      for (int n = *rc::gen::inRange(0, 5); n > 0; --n) {
        const std::string dependent(1, *rc::gen::inRange<char>('a', 'k'));
        added->addRow();
        added->setLastRowElement(0, resource("", "File", dependent.c_str()).get());
        if (std::find(known.begin(), known.end(), dependent) == known.end())
          known.push_back(dependent);
      }
      store->addDependentResources(node.get(), added.get());
    }
    std::vector<std::string> keys;
    for (const auto& [key, known] : expected) {
      keys.push_back(key);
      if (dependents(*store, resource("", "FILE", key.c_str()).get()) != known)
        return false;
    }
    return identitiesIn(store->getAllUniqueUsedResources()) == keys;
  }));
}

} // namespace
