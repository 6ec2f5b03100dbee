// Random sequences of operations, done to a part of the library and to a model of it that is a few lines long. RC_PARAMS
// asks for more or longer ones: RC_PARAMS="max_success=100000".
#include "lineageserialization.h"
#include "qvfilecacheimpl.h"
#include "qvreposerializecontextimpl.h"
#include "qvreposeventmgrimpl.h"
#include "qvresource.h"

#include "support/definitionfixture.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <map>
#include <optional>
#include <set>

namespace {

// What to do, and to which of a few things.
struct Step {
  unsigned what;
  unsigned which;
};

} // namespace

namespace rc {
template<>
struct Arbitrary<Step> {
  static Gen<Step> arbitrary() {
    return gen::build<Step>(gen::set(&Step::what, gen::inRange(0U, 6U)),
                            gen::set(&Step::which, gen::inRange(0U, 5U)));
  }
};
} // namespace rc

namespace {

using Steps = std::vector<Step>;

std::string contentOf(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

// A name that is written in another case now and then.
QvbString nameOf(Step step, const char* prefix = "name") {
  return text((step.what % 2 ? prefix : QvbString(prefix).lowercase().asCstr()) + std::to_string(step.which));
}
std::string folded(const QvbString& name) { return str(QvbString(name).lowercase()); }

// The position of a list's cursor: before the first row, on one, or past the end for good.
struct CursorModel {
  bool next(std::size_t rows) {
    if (!isPast)
      row = row ? *row + 1 : 0;
    isPast = isPast || *row >= rows;
    return !isPast;
  }
  bool isOnRow() const { return row && !isPast; }

  std::optional<std::size_t> row;
  bool isPast = false;
};

RC_GTEST_PROP(Models, AListOfTextsIsAVectorWithACursor, (const Steps& steps)) {
  const Released<QvStringListImpl> list(new QvStringListImpl(1));
  std::vector<QvbString> rows;
  CursorModel cursor;
  bool wasSearched = false;
  for (const Step step : steps) {
    const QvbString name = nameOf(step, "Name");
    if (step.what < 3) {
      RC_ASSERT(list->addRow());
      list->setLastRowElement(0, name);
      rows.push_back(name);
    } else if (step.what < 5 && !wasSearched) {
      RC_ASSERT(list->next() == cursor.next(rows.size()));
    } else if (step.what == 5) {
      QvbString sought = name;
      const bool isListed = std::any_of(rows.begin(), rows.end(),
                                        [&](const QvbString& row) { return folded(row) == folded(name); });
      RC_ASSERT(list->contains(sought) == isListed);
      wasSearched = true; // from here on the cursor is the search's
    }
    RC_ASSERT(list->length() == rows.size());
    if (!wasSearched) {
      RC_ASSERT(list->getValue() == (cursor.isOnRow() ? rows[*cursor.row] : QvbString("")));
    }
  }
}

Released<QvResourceImpl> resource(const QvbString& identity, const char* type = "Table") {
  Released<QvResourceImpl> made(new QvResourceImpl);
  made->setResourceIdentity(identity);
  made->setName(identity);
  made->setType(type);
  return made;
}

RC_GTEST_PROP(Models, AListOfResourcesIsAVectorWithACursor, (const Steps& steps)) {
  const Released<QvResourceListImpl> list(new QvResourceListImpl);
  std::vector<QvbString> rows;
  CursorModel cursor;
  for (const Step step : steps) {
    const QvbString name = nameOf(step, "Name");
    if (step.what < 3) {
      RC_ASSERT(list->addRow());
      list->setLastRowElement(0, resource(name).get());
      rows.push_back(name);
    } else if (step.what == 3) {
      list->reset();
      cursor = {};
    } else if (step.what == 4) {
      RC_ASSERT(list->next() == cursor.next(rows.size()));
    } else {
      const bool isListed = std::any_of(rows.begin(), rows.end(),
                                        [&](const QvbString& row) { return folded(row) == folded(name); });
      RC_ASSERT(list->contains(resource(name).get()) == isListed);
      list->reset();
      cursor = {};
    }
    QvResource* const value = list->getValue();
    RC_ASSERT((value != nullptr) == cursor.isOnRow());
    if (value) {
      RC_ASSERT(value->getResourceIdentity() == rows[*cursor.row]);
    }
  }
}

// --- The lineage store is a map of lists.

std::vector<std::string> identitiesOf(QvResourceList* list) {
  std::vector<std::string> identities;
  for (const Released<QvResourceList> owned(list); owned->next();)
    identities.push_back(folded(owned->getValue()->getResourceIdentity()));
  return identities;
}

RC_GTEST_PROP(Models, ALineageStoreIsAMapOfLists, (const Steps& steps)) {
  const Released<QvImpactAnalysis> store(getQvLineageAnalysis());
  std::map<std::string, std::vector<std::string>> known;
  for (std::size_t at = 0; at < steps.size(); ++at) {
    const QvbString name = nameOf(steps[at], "Name");
    const auto user = resource(name);
    if (steps[at].what < 4) {
      const QvbString used = nameOf(steps[steps.size() - 1 - at], "Used");
      const Released<QvResourceList> dependents(store->createResourceList());
      RC_ASSERT(dependents->addRow());
      dependents->setLastRowElement(0, resource(used).get());
      RC_ASSERT(store->addDependentResources(user.get(), dependents.get()));
      auto& model = known[folded(name)];
      if (std::find(model.begin(), model.end(), folded(used)) == model.end())
        model.push_back(folded(used));
    } else if (steps[at].what == 4) {
      RC_ASSERT(store->deleteResource(user.get()) == (known.erase(folded(name)) > 0));
    }
    const auto found = known.find(folded(name));
    RC_ASSERT(identitiesOf(store->getDependentResources(user.get(), false)) ==
              (found == known.end() ? std::vector<std::string>() : found->second));
    std::vector<std::string> keys;
    for (const auto& [key, unused] : known)
      keys.push_back(key);
    RC_ASSERT(identitiesOf(store->getAllUniqueUsedResources()) == keys);
  }
}

// --- The event manager is a list of listeners.

class CountingListener final : public RepositoryObjectChange {
public:
  void objectChanged(const QvbString&, RepositoryObjectChangeType, const QvbString&, int id,
                     const QvbString&) override {
    heard.push_back(id);
  }
  void objectRenamed(const QvbString&, const QvbString&, int id, const QvbString&, const QvbString&,
                     const QvbString&) override {
    heard.push_back(-id);
  }
  void contentChanged(const QvbString&, const QvbString&, RepositoryObjectChangeType,
                      const QvbString&) override {
    heard.push_back(0);
  }
  std::vector<int> heard;
};

RC_GTEST_PROP(Models, AnEventManagerIsAListOfListeners, (const Steps& steps)) {
  const Released<QvReposEventMgrImpl> manager(new QvReposEventMgrImpl);
  CountingListener listeners[5];
  std::vector<unsigned> registered;
  std::vector<int> expected[5];
  int id = 0;
  for (const Step step : steps) {
    const auto expect = [&](int heard) {
      for (const unsigned listener : registered)
        expected[listener].push_back(heard);
    };
    ++id;
    if (step.what < 2) {
      RC_ASSERT(manager->addRepositoryObjectChangeListener(&listeners[step.which]));
      registered.push_back(step.which);
    } else if (step.what == 2) {
      manager->removeRepositoryObjectChangeListener(&listeners[step.which]);
      std::erase(registered, step.which);
    } else if (step.what == 3) {
      manager->fireObjectChanged("r", RepositoryObjectCreated, "o", id, "u");
      expect(id);
    } else if (step.what == 4) {
      manager->fireObjectRenamed("r", "o", id, "u", "old", "new");
      expect(-id);
    } else {
      manager->fireContentChanged("r", "o", RepositoryObjectModified, "d");
      expect(0);
    }
  }
  for (std::size_t i = 0; i < 5; ++i)
    RC_ASSERT(listeners[i].heard == expected[i]);
}

// --- A metadata context is a map of objects by id, and what it writes reads back.

RC_GTEST_PROP(Models, AMetadataContextIsAMapOfObjects, (const Steps& steps)) {
  const Released<RepositorySerializationContext> context(createRepositoryMetadataSerializationContext());
  std::map<unsigned, std::map<std::string, std::string>> known;
  for (const Step step : steps) {
    const QvbString id = text("id" + std::to_string(step.which));
    RepositoryMetadataObject* const object = context->getMetadataObject("Thing", id);
    RC_ASSERT(object != nullptr && object->getId() == id);
    auto& attributes = known[step.which];
    if (step.what < 3) {
      const std::string name = "a" + std::to_string(step.what);
      const std::string value = "<" + std::to_string(known.size()) + "&\"\n";
      RC_ASSERT(object->addAttribute(text(name), text(value)));
      attributes[name] = value;
    }
    for (const std::string name : {"a0", "a1", "a2"}) {
      QvbString value("none");
      RC_ASSERT(object->getAttribute(text(name), &value) == attributes.contains(name));
      RC_ASSERT(str(value) == (attributes.contains(name) ? attributes[name] : "none"));
    }
  }
  if (known.empty())
    return;
  QvbString xml;
  QvbString message;
  const QvbString first = text("id" + std::to_string(known.begin()->first));
  RC_ASSERT(context->serialize(context->getMetadataObject("Thing", first), &xml, &message, true));
  const Released<RepositorySerializationContext> again(createRepositoryMetadataSerializationContext());
  RC_ASSERT(again->deSerialize(xml, &message) != nullptr);
  for (const auto& [which, attributes] : known) {
    RepositoryMetadataObject* const object =
        again->getMetadataObject("Thing", text("id" + std::to_string(which)));
    for (const auto& [name, value] : attributes) {
      QvbString read;
      RC_ASSERT(object->getAttribute(text(name), &read));
      RC_ASSERT(str(read) == value);
    }
  }
}

// --- The definition manager is a map of names, whose order is that of its files.

RC_GTEST_FIXTURE_PROP(DefinitionManager, IsAMapOfNames, (const Steps& all)) {
  for (const auto& name : filesIn(m_system))
    fs::remove(m_system + "/" + name);
  const Steps steps(all.begin(),
                    all.begin() + static_cast<std::ptrdiff_t>(std::min<std::size_t>(all.size(), 8)));
  std::map<std::string, std::string> known; // the version by the name
  int version = 0;
  for (const Step step : steps) {
    const std::string name = "d" + std::to_string(step.which);
    Definition definition = find(name.c_str());
    RC_ASSERT((definition != nullptr) == known.contains(name));
    if (step.what < 3) {
      if (!definition)
        definition = create(name.c_str());
      known[name] = std::to_string(++version);
      definition->setUnifiedRepositoryVersion(text(known[name]));
      RC_ASSERT(m_manager->saveConfiguration(definition.get(), nullptr));
    } else if (step.what == 3 && definition) {
      RC_ASSERT(m_manager->deleteConfiguration(definition.get(), nullptr));
      known.erase(name);
    } else if (step.what == 4 && definition) {
      const std::string other = "d" + std::to_string((step.which + 1) % 5);
      definition->setName(text(other));
      const bool saved = m_manager->saveConfiguration(definition.get(), nullptr);
      RC_ASSERT(saved == !known.contains(other));
      if (saved) {
        known[other] = known[name];
        known.erase(name);
      }
    }
    Names names;
    for (const auto& [key, value] : known) {
      names.push_back(key);
      RC_ASSERT(str(find(key.c_str())->getUnifiedRepositoryVersion()) == value);
    }
    RC_ASSERT(loaded() == names);
  }
}

// --- The file cache is a map of what the files held when they were last asked for.

RC_GTEST_PROP(Models, AFileCacheIsAMapOfContents, (const Steps& all)) {
  const Steps steps(all.begin(),
                    all.begin() + static_cast<std::ptrdiff_t>(std::min<std::size_t>(all.size(), 20)));
  const TempDir sources;
  const LogCapture log;
  qvbSetConfigOption("BASE/REMOTEFILECACHE_TIMEBETWEENCHECKS", "2000000000");
  const Released<FileAccessCacheImpl> cache(new FileAccessCacheImpl);
  const ReleasedSubject users[] = {ReleasedSubject(qvbSubjectCreate("alice", QvbString())),
                                   ReleasedSubject(qvbSubjectCreate("bob", QvbString()))};
  struct Copy {
    std::string content;
    std::set<unsigned> users;
  };
  std::map<std::string, std::string> now;
  std::map<std::string, Copy> copies;
  int version = 0;
  for (const Step step : steps) {
    const std::string name = sources / ("f" + std::to_string(step.which));
    if (step.what < 2) {
      now[name] = std::to_string(++version);
      sources.write("f" + std::to_string(step.which), now[name]);
    } else if (step.what == 5) {
      RC_ASSERT(cache->flush(true));
      copies.clear();
    } else {
      const unsigned user = step.what % 2;
      QvbString local;
      QvbString error;
      const int result = cache->getCacheFilename(users[user].get(), text(name), &local, &error);
      RC_ASSERT((result == 0) == now.contains(name));
      if (result != 0)
        continue;
      auto& copy = copies[name];
      if (copy.users.insert(user).second) // the source decides for each user anew
        copy.content = now[name];
      RC_ASSERT(contentOf(str(local)) == copy.content);
    }
  }
  qvbClearConfigOptions();
}

} // namespace
