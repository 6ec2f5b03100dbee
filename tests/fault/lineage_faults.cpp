// The lineage store, its factory and its resolver, and the event manager, with memory running short at every single
// allocation: the one call pays for it, whatever is logged and to where.
#include "lineagefactory.h"
#include "lineageserialization.h"
#include "qvreposeventmgrimpl.h"
#include "qvreposres/qvreposres.h"
#include "qvreposres/qvresourcemgr.h"
#include "qvresource.h"
#include "qvxbase/qvbconfig.h"
#include "support/allocations.h"
#include "support/logcapture.h"
#include "support/recordingfactory.h"
#include "support/textio.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace {

using Store = Released<QvImpactAnalysis>;
using Resource = Released<QvResource>;
using List = Released<QvResourceList>;

struct Fields {
  QvbString name, type, identity;
};

// The arguments of the calls, which take no memory themselves.
const QvbString name("name"), type("Table"), identity("identity"), none(""),
    dataURI("qvd:///Sales?type=ODBC&table=orders"),
    missingFile("/nowhere/at/all, in a text that is not short");

// One of each kind that the resolver tells apart.
std::vector<Fields> resourcesOfEveryKind() {
  const Released<QvResourceManager> manager(createQvResourceManager());
  QvbString table, source, file, unified;
  QvbString project = "project";
  manager->generateTableDataSourceResourceId("DSN=SYS - Sales;", "ODBC", "", "dbo", "orders", &table);
  manager->generateDataSourceResourceId("DSN=Sales;", "ODBC", &source);
  manager->generateFileResourceId("/nowhere/project.met", project, &file);
  manager->generateUnifiedObjectResourceId("", "Rule", "7", "u", &unified);
  return {{"orders", "Table", table},
          {"Sales", "Database", source},
          {"load", "ProcessJob", "/tmp"},
          {"served", "ProcessJob", "qvr://main/batch_jobs/load?type=ProcessJob"},
          {"file", "File", file},
          {"tmp", "File", "/tmp"},
          {"rule", "Rule", unified},
          {"task", "Task", "qvr://main/tasks/t?type=Task"},
          {"project", "MasterDataProject", file},
          {"odd", "Odd", "/tmp/odd"},
          {"link", "", "http://host/path"}};
}

Resource resource(const Fields& fields) {
  return Resource(RecordingFactory::record(fields.name, fields.type, fields.identity));
}

List listOf(const std::vector<Fields>& all) {
  List list(new QvResourceListImpl);
  for (const auto& fields : all) {
    list->addRow();
    list->setLastRowElement(0, resource(fields).get());
  }
  return list;
}

std::vector<std::string> namesIn(QvResourceList* list) {
  const List owned(list);
  std::vector<std::string> names;
  while (owned && owned->next())
    names.push_back(str(owned->getValue()->getName()));
  return names;
}

// The number of the level whose records are wanted; 0 for a sink, which has them all.
class ShortMemory : public testing::TestWithParam<int> {
protected:
  ShortMemory() : all(resourcesOfEveryKind()) {
    qvbSetConfigOption("LOG/FILE", "/dev/null");
    qvbSetConfigOption("DMSERVER/NAME", "server");
    if (GetParam() == 0)
      log.emplace();
    else
      qvlogSetLevel(static_cast<QvLoggingLevel>(GetParam()));
    qvlogGetLogger("test")->logEvent(QvLoggingLevel::Critical, "", 0, ""); // the sink has room from here on
  }
  ~ShortMemory() override {
    qvlogSetLevel(QvLoggingLevel::Anomaly);
    qvbClearConfigOptions();
  }

  Store filledStore() const {
    Store store(getQvLineageAnalysis());
    for (const auto& fields : all)
      store->addDependentResources(resource(fields).get(), listOf({fields}).get());
    return store;
  }

  // Does the work on a new subject with each of its allocations failing, then lets the check see the subject with memory
  // again. Nothing may be left of either, once the thread has ended that may keep a reader for its next document.
  template<class Make, class Work, class Check>
  void failEach(const Make& make, const Work& work, const Check& check) {
    const auto inThread = [&](const auto& doWork) {
      std::thread([&] {
        auto subject = make();
        doWork(subject);
        check(subject);
      }).join();
      if (log)
        log->clear();
    };
    inThread(work); // whatever is made on first use is there
    for (const bool failsOnce : {true, false})
      for (long n = 0, failed = 1; failed > 0; ++n) {
        const long before = Allocations::alive;
        inThread([&](auto& subject) {
          Allocations::failsOnce = failsOnce;
          Allocations::left = n;
          work(subject);
          Allocations::left = -1;
          failed = Allocations::failed;
        });
        ASSERT_EQ(Allocations::alive, before) << "allocation " << n << (failsOnce ? " alone" : " and on");
        ASSERT_FALSE(HasFailure()) << "allocation " << n << (failsOnce ? " alone" : " and on");
      }
  }

  const std::vector<Fields> all;
  std::optional<LogCapture> log;
};

INSTANTIATE_TEST_SUITE_P(OfEveryLevelAndWithASink, ShortMemory, testing::Range(0, 7));

TEST_P(ShortMemory, CostsAnExportToJsonItsTextAndNothingElse) {
  struct Subject {
    Store store;
    QvbString json = "before ";
    bool result = false;
  };
  Subject whole{filledStore()};
  ASSERT_TRUE(getLineageAsJson(whole.store.get(), &whole.json, nullptr));
  failEach([&] { return Subject{filledStore()}; },
           [](Subject& subject) {
             subject.result = getLineageAsJson(subject.store.get(), &subject.json, nullptr);
           },
           [&](Subject& subject) {
             EXPECT_EQ(subject.json, subject.result ? whole.json : QvbString("before "));
             subject.json = "before ";
             EXPECT_TRUE(getLineageAsJson(subject.store.get(), &subject.json, nullptr));
             EXPECT_EQ(subject.json, whole.json);
           });
}

TEST_P(ShortMemory, CostsAnExportItsTextAndNothingElse) {
  struct Subject {
    Store store;
    QvbString xml = "before ";
    QvbString message = "untouched";
    bool result = false;
  };
  Subject whole{filledStore()};
  ASSERT_TRUE(whole.store->getLineageAsString(&whole.xml, nullptr, true));
  failEach([&] { return Subject{filledStore()}; },
           [](Subject& subject) {
             subject.result = subject.store->getLineageAsString(&subject.xml, &subject.message, true);
           },
           [&](Subject& subject) {
             EXPECT_EQ(subject.xml, subject.result ? whole.xml : QvbString("before "));
             EXPECT_TRUE(subject.message == "untouched" || !subject.result);
             subject.xml = "before ";
             EXPECT_TRUE(subject.store->getLineageAsString(&subject.xml, nullptr, true));
             EXPECT_EQ(subject.xml, whole.xml);
           });
}

TEST_P(ShortMemory, CostsTheExportOfOneResourceItsTextAndNothingElse) {
  struct Subject {
    Released<LineageSerializationImpl> store{new LineageSerializationImpl};
    Resource of;
    List dependents;
    QvbString xml;
    bool result = false;
  };
  const auto make = [&] {
    Subject subject;
    subject.of = resource(all.front());
    subject.dependents = listOf(all);
    return subject;
  };
  const auto work = [](Subject& subject) {
    subject.result = subject.store->getResourceLineageAsString(subject.of.get(), subject.dependents.get(),
                                                               &subject.xml, nullptr, false);
  };
  Subject whole = make();
  work(whole);
  ASSERT_TRUE(whole.result);
  failEach(make, work, [&](Subject& subject) {
    EXPECT_EQ(subject.xml, subject.result ? whole.xml : QvbString());
    subject.dependents->reset();
    subject.xml.setNull();
    work(subject);
    EXPECT_EQ(subject.xml, whole.xml);
  });
}

TEST_P(ShortMemory, IsNoStoreOrOneThatWorks) {
  struct Subject {
    Store store;
  };
  failEach([] { return Subject{}; }, [](Subject& subject) { subject.store.reset(getQvLineageAnalysis()); },
           [&](Subject& subject) {
             if (!subject.store)
               return;
             EXPECT_TRUE(subject.store->addDependentResources(resource(all[0]).get(), listOf(all).get()));
             QvbString xml;
             EXPECT_TRUE(subject.store->getLineageAsString(&xml, nullptr, true));
           });
}

// Null or whole, never a part.
TEST_P(ShortMemory, CostsAStoreTheListThatItWasAskedFor) {
  using Ask = std::function<QvResourceList*(QvImpactAnalysis&)>;
  const Resource known = resource(all.front());
  for (const Ask& ask :
       {Ask([](QvImpactAnalysis& store) { return store.getAllUniqueUsedResources(); }),
        Ask([&](QvImpactAnalysis& store) { return store.getDependentResources(known.get(), true); }),
        Ask([&](QvImpactAnalysis& store) { return store.getUsedByResources(known.get(), true); }),
        Ask([](QvImpactAnalysis& store) { return store.getResourcesByType(type); }),
        Ask([&](QvImpactAnalysis& store) { return store.getDependentResourcesByType(known.get(), type); }),
        Ask([](QvImpactAnalysis& store) { return store.createResourceList(); })}) {
    struct Subject {
      Store store;
      QvResourceList* list = nullptr;
    };
    const auto whole = namesIn(ask(*filledStore()));
    failEach([&] { return Subject{filledStore()}; },
             [&](Subject& subject) { subject.list = ask(*subject.store); },
             [&](Subject& subject) {
               if (subject.list) {
                 EXPECT_EQ(namesIn(subject.list), whole);
               }
               EXPECT_EQ(namesIn(ask(*subject.store)), whole);
             });
  }
}

TEST_P(ShortMemory, CostsTheListOfTypes) {
  struct Subject {
    Store store{getQvLineageAnalysis()};
    Released<QvStringList> types;
  };
  failEach([] { return Subject{}; },
           [](Subject& subject) { subject.types.reset(subject.store->getResourceTypes()); },
           [](Subject& subject) {
             if (subject.types) {
               EXPECT_EQ(subject.types->length(), 1U);
               EXPECT_TRUE(subject.types->next());
               EXPECT_EQ(subject.types->getValue(), QvbString("ProcessJob"));
             }
           });
}

// A resource whose every answer takes memory, as a host's own may.
struct ThinkingResource : HostResource {
  QvbString getName() override { return text(std::string(name.view())); }
  QvbString getResourceType() override { return text(std::string(type.view())); }
  QvbString getResourceIdentity() override { return text(std::string(identity.view())); }
};

struct ThinkingList final : QvResourceList {
  bool next() override { return ++row < rows.size(); }
  QvResource* getValue() override { return &rows[row]; }
  void release() override { delete this; }
  bool addRow() override { return false; }
  void setLastRowElement(unsigned long, QvResource*) override {}
  bool contains(QvResource*) override { return false; }
  void reset() override { row = static_cast<std::size_t>(-1); }
  std::size_t row = static_cast<std::size_t>(-1);
  std::vector<ThinkingResource> rows = std::vector<ThinkingResource>(3);
};

// True in any case. A resource that was unknown is recorded whole or not at all, a known one has rows that are whole, and
// the next try adds what is missing.
TEST_P(ShortMemory, LeavesDependenciesUnrecorded) {
  struct Subject {
    Store store{getQvLineageAnalysis()};
    Released<ThinkingList> list{new ThinkingList};
    ThinkingResource of;
    bool result = false;
  };
  const std::vector<std::string> whole{"first", "second", "third"};
  for (const bool isKnown : {false, true})
    failEach(
        [&] {
          auto subject = std::make_unique<Subject>();
          subject->of.name = subject->of.type = subject->of.identity = "a host's own resource";
          for (std::size_t row = 0; row < whole.size(); ++row)
            subject->list->rows[row].name = subject->list->rows[row].identity = text(whole[row]);
          if (isKnown)
            subject->store->addDependentResources(&subject->of, List(new QvResourceListImpl).get());
          return subject;
        },
        [](auto& subject) {
          subject->result = subject->store->addDependentResources(&subject->of, subject->list.get());
        },
        [&](auto& subject) {
          EXPECT_TRUE(subject->result);
          const auto recorded = namesIn(subject->store->getDependentResources(&subject->of, false));
          EXPECT_TRUE(std::equal(recorded.begin(), recorded.end(), whole.begin()));
          EXPECT_TRUE(isKnown || recorded.empty() || recorded.size() == whole.size());
          EXPECT_EQ(namesIn(subject->store->getAllUniqueUsedResources()).size(),
                    isKnown || !recorded.empty() ? 1U : 0U);
          subject->list->reset();
          EXPECT_TRUE(subject->store->addDependentResources(&subject->of, subject->list.get()));
          EXPECT_EQ(namesIn(subject->store->getDependentResources(&subject->of, false)), whole);
        });
}

TEST_P(ShortMemory, KeepsAResourceThatCannotBeDeleted) {
  struct Subject {
    Store store;
    ThinkingResource of;
    bool result = false;
  };
  failEach(
      [&] {
        auto subject = std::make_unique<Subject>();
        subject->store = filledStore();
        subject->of.type = all[0].type;
        subject->of.identity = all[0].identity;
        return subject;
      },
      [](auto& subject) { subject->result = subject->store->deleteResource(&subject->of); },
      [](auto& subject) { EXPECT_NE(subject->store->deleteResource(&subject->of), subject->result); });
}

TEST_P(ShortMemory, CostsAResourceThatIsMade) {
  struct Subject {
    Store store{getQvLineageAnalysis()};
    Resource made, named, data;
    Released<QvURI> uri{getURIFromURIString("qvd://server/Sales?type=ODBC&schema=dbo&table=orders")};
  };
  failEach([] { return Subject{}; },
           [](Subject& subject) {
             subject.made.reset(subject.store->createResource(name, type, identity));
             subject.named.reset(subject.store->getResource(type, identity));
             subject.data.reset(
                 subject.store->getDefaultResourceFactory()->getDataResource(subject.uri->getDataURI()));
           },
           [](Subject& subject) {
             if (subject.made) {
               EXPECT_EQ(fieldsOf(*subject.made), (ResourceFields{"name", "Table", "identity"}));
             }
             if (subject.named) {
               EXPECT_EQ(fieldsOf(*subject.named), (ResourceFields{"identity", "Table", "identity"}));
             }
             if (subject.data) {
               EXPECT_EQ(subject.data->getName(), QvbString("orders"));
               EXPECT_EQ(subject.data->getResourceLocation(), subject.uri->asString());
             }
           });
}

// A lookup that memory was short for is false, is not remembered, and finds the same as ever the next time.
TEST_P(ShortMemory, CostsOneLookupOfALocation) {
  for (const auto& fields : all) {
    struct Subject {
      Released<QvResourceResolver> resolver{new LineageResourceResolver};
      QvbString name, uri;
      bool result = false;
    };
    Subject whole;
    whole.result = whole.resolver->getResourceLocation(fields.name, fields.identity, fields.type, &whole.name,
                                                       &whole.uri);
    failEach([] { return Subject{}; },
             [&](Subject& subject) {
               subject.result = subject.resolver->getResourceLocation(
                   fields.name, fields.identity, fields.type, &subject.name, &subject.uri);
             },
             [&](Subject& subject) {
               EXPECT_TRUE(whole.result || !subject.result) << fields.type;
               if (subject.result) {
                 EXPECT_EQ(subject.uri, whole.uri) << fields.type;
                 EXPECT_EQ(subject.name, whole.name) << fields.type;
               }
               subject.uri.setNull();
               EXPECT_EQ(subject.resolver->getResourceLocation(fields.name, fields.identity, fields.type,
                                                               &subject.name, &subject.uri),
                         whole.result);
               EXPECT_EQ(subject.uri, whole.uri) << fields.type;
               EXPECT_EQ(subject.name, whole.name) << fields.type;
             });
  }
}

TEST_P(ShortMemory, CostsOneLookupOfAnObject) {
  for (const auto& fields : all) {
    struct Subject {
      LineageResourceResolver resolver;
      QvbString name, uri, identity;
      bool byId = true, byName = true;
    };
    const auto work = [&](Subject& subject) {
      subject.byId =
          subject.resolver.resolveResource(fields.type, fields.identity, none, &subject.name, &subject.uri);
      subject.byName =
          subject.resolver.resolveResource(fields.type, fields.identity, none, none, &subject.identity);
    };
    Subject whole;
    work(whole);
    failEach([] { return std::make_unique<Subject>(); }, [&](auto& subject) { work(*subject); },
             [&](auto& subject) {
               EXPECT_TRUE(whole.byId || !subject->byId);
               EXPECT_TRUE(whole.byName || !subject->byName);
               work(*subject);
               EXPECT_EQ(subject->byId, whole.byId);
               EXPECT_EQ(subject->uri, whole.uri);
               EXPECT_EQ(subject->identity, whole.identity);
               EXPECT_EQ(subject->resolver.getErrorMessage(), whole.resolver.getErrorMessage());
             });
  }
}

TEST_P(ShortMemory, CostsTheResourceOfAURIAndTheQuestionForAFile) {
  struct Subject {
    LineageResourceResolver resolver;
    Resource found;
    bool isThere = false;
    QvbString unified;
  };
  failEach([] { return std::make_unique<Subject>(); },
           [](auto& subject) {
             subject->found.reset(subject->resolver.getResourceFromURI(dataURI));
             subject->isThere = subject->resolver.fileExists(missingFile);
             EXPECT_FALSE(subject->resolver.getUnifiedRepositoryName(&subject->unified));
           },
           [](auto& subject) {
             if (subject->found) {
               EXPECT_EQ(subject->found->getName(), QvbString("orders"));
             }
             EXPECT_FALSE(subject->resolver.fileExists(missingFile));
           });
}

struct CountingListener : RepositoryObjectChange {
  void objectChanged(const QvbString&, RepositoryObjectChangeType, const QvbString&, int,
                     const QvbString&) override {
    ++calls;
  }
  void objectRenamed(const QvbString&, const QvbString&, int, const QvbString&, const QvbString&,
                     const QvbString&) override {
    ++calls;
  }
  void contentChanged(const QvbString&, const QvbString&, RepositoryObjectChangeType,
                      const QvbString&) override {
    ++calls;
  }
  int calls = 0;
};

// Listeners hear of every event, also of one that cannot be logged; a listener that cannot be added is not.
TEST_P(ShortMemory, CostsNoListenerAnEvent) {
  struct Subject {
    Released<QvReposEventManager> manager{new QvReposEventMgrImpl};
    std::unique_ptr<CountingListener> first = std::make_unique<CountingListener>();
    std::unique_ptr<CountingListener> second = std::make_unique<CountingListener>();
    bool isAdded = false;
    Subject() { manager->addRepositoryObjectChangeListener(first.get()); }
    Subject(Subject&&) = default;
    ~Subject() {
      if (manager)
        manager->removeRepositoryObjectChangeListener(first.get());
    }
  };
  const auto fire = [](Subject& subject) {
    subject.manager->fireObjectChanged(name, RepositoryObjectCreated, type, 7, identity);
    subject.manager->fireObjectRenamed(name, type, 7, identity, none, dataURI);
    subject.manager->fireContentChanged(name, type, RepositoryObjectRenamed, identity);
  };
  failEach([] { return Subject{}; },
           [&](Subject& subject) {
             subject.isAdded = subject.manager->addRepositoryObjectChangeListener(subject.second.get());
             fire(subject);
             subject.manager->removeRepositoryObjectChangeListener(subject.second.get());
           },
           [&](Subject& subject) {
             EXPECT_EQ(subject.first->calls, 3);
             EXPECT_EQ(subject.second->calls, subject.isAdded ? 3 : 0);
             fire(subject);
             EXPECT_EQ(subject.first->calls, 6);
             EXPECT_EQ(subject.second->calls, subject.isAdded ? 3 : 0);
           });
}

TEST_P(ShortMemory, IsAFailedStartOrOneThatCounts) {
  struct Subject {
    int result = 1;
    void* out = this;
    ~Subject() { qvReposResShutdown(); }
  };
  failEach([] { return std::make_unique<Subject>(); },
           [](auto& subject) { subject->result = qvReposResStartup(nullptr, &subject->out); },
           [](auto& subject) {
             EXPECT_EQ(subject->out, nullptr);
             EXPECT_TRUE(subject->result == 0 || subject->result == -1);
             EXPECT_NE(getRepositoryEventManager(), nullptr);
           });
}

// It may run out while the store, or the manager of events, ends.
TEST_P(ShortMemory, EndsNothingButWhatEnds) {
  failEach([&] { return filledStore(); }, [](Store& store) { store.reset(); }, [](Store&) {});
  failEach([] { return Released<QvReposEventManager>(new QvReposEventMgrImpl); },
           [](auto& manager) {
             static CountingListener left;
             manager->addRepositoryObjectChangeListener(&left);
             manager.reset();
           },
           [](auto&) {});
}

} // namespace
