#include "qvreposmetadataobject.h"

#include "guards.h"
#include "support/allocations.h"
#include "support/textio.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <deque>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Object = Released<RepositoryMetadataObject>;
using List = Released<RepositoryMetadataObjectList>;

Object make(const char* type) { return Object(createRepositoryMetadataObject(type)); }

std::vector<RepositoryMetadataObject*> rest(RepositoryMetadataObjectList* list) {
  std::vector<RepositoryMetadataObject*> objects;
  while (list->next())
    objects.push_back(list->getValue());
  return objects;
}

std::vector<RepositoryMetadataObject*> contained(RepositoryMetadataObject& object) {
  return rest(List(object.getContainedObjects()).get());
}

std::vector<RepositoryMetadataObject*> associated(RepositoryMetadataObject& object, const char* association) {
  return rest(List(object.getAssociatedObjects(association)).get());
}

struct Written {
  bool result;
  std::string xml;
};

Written write(RepositoryMetadataObject& object) {
  QvDom document;
  EXPECT_TRUE(document.startNewDocument(object.getObjectType()));
  QvDomNode root = document.getRoot();
  const bool result = object.toXML(&root);
  return {result, str(document.createXML(false, root))};
}

// An object of an application's own, which notes its end and writes itself with the result it is given.
struct HostObject : RepositoryMetadataObjectImpl {
  HostObject(std::vector<std::string>* endings, std::string hostName, bool writes = true)
      : RepositoryMetadataObjectImpl("Host"), ended(endings), name(std::move(hostName)), result(writes) {}
  ~HostObject() override {
    if (ended)
      ended->push_back(name);
  }
  bool toXML(QvDomNode* node) override {
    RepositoryMetadataObjectImpl::toXML(node);
    return result;
  }

  std::vector<std::string>* ended;
  std::string name;
  bool result;
};

// One that shares nothing with the library but the interface.
struct ForeignObject final : RepositoryMetadataObject {
  explicit ForeignObject(int* count) : releases(count) {}
  bool addAttribute(const QvbString&, const QvbString&) override { return false; }
  bool getAttribute(const QvbString&, QvbString*) override { return false; }
  bool getAttributeAsInt(const QvbString&, int*) override { return false; }
  bool getAttributeAsDouble(const QvbString&, double*) override { return false; }
  bool getAttributeAsBool(const QvbString&, bool*) override { return false; }
  bool addAssociatedObject(const QvbString&, RepositoryMetadataObject*) override { return false; }
  RepositoryMetadataObjectList* getAssociatedObjects(const QvbString&) override { return nullptr; }
  const QvbString& getId() override { return id; }
  void setId(const QvbString& newId) override { id = newId; }
  const QvbString& getObjectType() override { return type; }
  void setObjectType(const QvbString& newType) override { type = newType; }
  void release() override {
    ++*releases;
    delete this;
  }
  bool toXML(QvDomNode* node) override {
    node->setAttributeValue("own", "yes");
    return true;
  }
  bool addContainedObject(RepositoryMetadataObject*) override { return false; }
  RepositoryMetadataObjectList* getContainedObjects() override { return nullptr; }
  bool setValue(const QvbString&) override { return false; }

  int* releases;
  QvbString id;
  QvbString type = "Foreign";
};

TEST(MetadataObject, StartsWithItsTypeAlone) {
  const Object object = make("Job");
  EXPECT_EQ(object->getObjectType(), QvbString("Job"));
  EXPECT_EQ(write(*object).xml, "<Job/>");
}

TEST(MetadataObject, StartsWithEmptyTextsThatAreNotNull) {
  const Object object = make("Job");
  EXPECT_TRUE(object->getId().isEmpty());
  EXPECT_FALSE(object->getId().isNull());
  const Object untyped = make(nullptr);
  EXPECT_TRUE(untyped->getObjectType().isEmpty());
  EXPECT_FALSE(untyped->getObjectType().isNull());
  const Released<RepositoryMetadataObjectImpl> plain(new RepositoryMetadataObjectImpl);
  EXPECT_FALSE(plain->getId().isNull());
}

TEST(MetadataObject, AnEmptyAttributeReadsBackAsAnEmptyText) {
  const Object object = make("Job");
  object->addAttribute("a", "");
  object->setId("");
  for (const char* name : {"a", "Id"}) {
    QvbString value;
    EXPECT_TRUE(object->getAttribute(name, &value));
    EXPECT_TRUE(value.isEmpty());
    EXPECT_FALSE(value.isNull());
  }
}

TEST(MetadataObject, IsAFileWhenNoTypeIsGiven) {
  const Released<RepositoryMetadataObjectImpl> object(new RepositoryMetadataObjectImpl);
  EXPECT_EQ(object->getObjectType(), QvbString("File"));
}

TEST(MetadataObject, TakesAnotherType) {
  const Object object = make("Job");
  object->setObjectType("Table");
  EXPECT_EQ(object->getObjectType(), QvbString("Table"));
}

TEST(MetadataObject, AttributeOfTheSameNameIsReplaced) {
  const Object object = make("Job");
  EXPECT_TRUE(object->addAttribute("name", "first"));
  EXPECT_TRUE(object->addAttribute("name", "second"));
  EXPECT_EQ(write(*object).xml, R"(<Job name="second"/>)");
}

TEST(MetadataObject, AttributesAreWrittenInTheOrderOfTheirNames) {
  const Object object = make("Job");
  for (const char* name : {"b", "a", "C", "aa"})
    object->addAttribute(name, "1");
  EXPECT_EQ(write(*object).xml, R"(<Job C="1" a="1" aa="1" b="1"/>)");
}

TEST(MetadataObject, AttributeNamesAreComparedExactly) {
  const Object object = make("Job");
  object->addAttribute("name", "x");
  QvbString value = "before";
  EXPECT_FALSE(object->getAttribute("Name", &value));
  EXPECT_EQ(value, QvbString("before"));
  EXPECT_TRUE(object->getAttribute("name", &value));
  EXPECT_EQ(value, QvbString("x"));
}

TEST(MetadataObject, ReadingAnAttributeNeedsAnOutput) {
  const Object object = make("Job");
  object->addAttribute("n", "1");
  EXPECT_FALSE(object->getAttribute("n", nullptr));
  EXPECT_FALSE(object->getAttributeAsInt("n", nullptr));
  EXPECT_FALSE(object->getAttributeAsDouble("n", nullptr));
  EXPECT_FALSE(object->getAttributeAsBool("n", nullptr));
}

TEST(MetadataObject, IdIsAnAttributeToo) {
  const Object object = make("Job");
  object->setId("first");
  object->setId("X");
  QvbString value;
  EXPECT_TRUE(object->getAttribute("Id", &value));
  EXPECT_EQ(value, QvbString("X"));
  EXPECT_EQ(object->getId(), QvbString("X"));
  EXPECT_EQ(write(*object).xml, R"(<Job Id="X"/>)");
}

TEST(MetadataObject, IdAndTypeAreTheObjectsOwnTexts) {
  const Object object = make("Job");
  const QvbString& id = object->getId();
  const QvbString& type = object->getObjectType();
  object->setId("J1");
  object->setObjectType("Task");
  EXPECT_EQ(id, QvbString("J1"));
  EXPECT_EQ(type, QvbString("Task"));
}

TEST(MetadataObject, TypedReadsConvertWhatTheTextHolds) {
  struct Case {
    const char* text;
    int asInt;
    double asDouble;
    bool asBool;
  };
  for (const Case& c :
       {Case{"42", 42, 42.0, true}, Case{"2.5 m", 2, 2.5, false}, Case{"yes", 0, 0.0, true},
        Case{"TRUE", 0, 0.0, true}, Case{"0", 0, 0.0, false}, Case{"no number", 0, 0.0, false}}) {
    const Object object = make("Job");
    object->addAttribute("a", c.text);
    int number = -1;
    double real = -1;
    bool truth = !c.asBool;
    EXPECT_TRUE(object->getAttributeAsInt("a", &number)) << c.text;
    EXPECT_TRUE(object->getAttributeAsDouble("a", &real)) << c.text;
    EXPECT_TRUE(object->getAttributeAsBool("a", &truth)) << c.text;
    EXPECT_EQ(number, c.asInt) << c.text;
    EXPECT_EQ(real, c.asDouble) << c.text;
    EXPECT_EQ(truth, c.asBool) << c.text;
  }
}

TEST(MetadataObject, TypedReadsOfMissingOrEmptyTextsLeaveTheOutput) {
  const Object object = make("Job");
  object->addAttribute("empty", "");
  object->addAttribute("null", QvbString());
  for (const char* name : {"empty", "null", "missing"}) {
    int number = 7;
    double real = 7.5;
    bool truth = true;
    EXPECT_FALSE(object->getAttributeAsInt(name, &number)) << name;
    EXPECT_FALSE(object->getAttributeAsDouble(name, &real)) << name;
    EXPECT_FALSE(object->getAttributeAsBool(name, &truth)) << name;
    EXPECT_EQ(number, 7) << name;
    EXPECT_EQ(real, 7.5) << name;
    EXPECT_TRUE(truth) << name;
  }
}

TEST(MetadataObject, TypedReadsGoThroughTheObjectsOwnRead) {
  struct Answering : RepositoryMetadataObjectImpl {
    bool getAttribute(const QvbString&, QvbString* value) override {
      *value = "1";
      return true;
    }
  };
  const Released<Answering> object(new Answering);
  int number = 0;
  double real = 0;
  bool truth = false;
  EXPECT_TRUE(object->getAttributeAsInt("any", &number));
  EXPECT_TRUE(object->getAttributeAsDouble("any", &real));
  EXPECT_TRUE(object->getAttributeAsBool("any", &truth));
  EXPECT_EQ(number, 1);
  EXPECT_EQ(real, 1.0);
  EXPECT_TRUE(truth);
}

TEST(MetadataObject, FirstAssociatedObjectIsAddedWithTheResultFalse) {
  const Object object = make("Job");
  const Object a = make("Table");
  const Object b = make("Table");
  EXPECT_FALSE(object->addAssociatedObject("Uses", a.get()));
  EXPECT_THAT(associated(*object, "Uses"), ElementsAre(a.get()));
  EXPECT_TRUE(object->addAssociatedObject("Uses", b.get()));
  EXPECT_FALSE(object->addAssociatedObject("Uses", a.get()));
  EXPECT_THAT(associated(*object, "Uses"), ElementsAre(a.get(), b.get()));
  EXPECT_FALSE(object->addAssociatedObject("Makes", a.get()));
  EXPECT_THAT(associated(*object, "Makes"), ElementsAre(a.get()));
}

TEST(MetadataObject, UnknownAssociationIsAnEmptyList) {
  const Object object = make("Job");
  const List list(object->getAssociatedObjects("Uses"));
  ASSERT_TRUE(list);
  EXPECT_FALSE(list->next());
}

TEST(MetadataObject, NoObjectIsNeitherAssociatedNorContained) {
  const Object object = make("Job");
  EXPECT_FALSE(object->addAssociatedObject("Uses", nullptr));
  EXPECT_FALSE(object->addContainedObject(nullptr));
  EXPECT_THAT(associated(*object, "Uses"), IsEmpty());
  EXPECT_EQ(write(*object).xml, "<Job/>");
}

TEST(MetadataObject, ContainsAnObjectOnce) {
  const Object object = make("Job");
  EXPECT_THAT(contained(*object), IsEmpty());
  RepositoryMetadataObject* a = createRepositoryMetadataObject("Step");
  RepositoryMetadataObject* b = createRepositoryMetadataObject("Step");
  EXPECT_TRUE(object->addContainedObject(a));
  EXPECT_FALSE(object->addContainedObject(a));
  EXPECT_TRUE(object->addContainedObject(b));
  EXPECT_THAT(contained(*object), ElementsAre(a, b));
}

TEST(MetadataObject, ListsAreSnapshots) {
  const Object object = make("Job");
  RepositoryMetadataObject* a = createRepositoryMetadataObject("Step");
  object->addContainedObject(a);
  const List list(object->getContainedObjects());
  object->addContainedObject(createRepositoryMetadataObject("Step"));
  EXPECT_THAT(rest(list.get()), ElementsAre(a));
}

TEST(MetadataObject, ManyObjectsStayUniqueAndInOrder) {
  EXPECT_TRUE(rc::check([] {
    const auto picks = *rc::gen::container<std::vector<unsigned>>(*rc::gen::inRange<std::size_t>(0, 100),
                                                                  rc::gen::inRange(0u, 40u));
    const Object object = make("Job");
    std::vector<Object> pool;
    for (int i = 0; i < 40; ++i)
      pool.push_back(make("Table"));
    std::vector<RepositoryMetadataObject*> expected;
    for (const unsigned pick : picks) {
      RepositoryMetadataObject* chosen = pool[pick].get();
      const bool isNew = std::find(expected.begin(), expected.end(), chosen) == expected.end();
      const bool isFirst = expected.empty();
      if (object->addAssociatedObject("Uses", chosen) != (isNew && !isFirst))
        return false;
      if (isNew)
        expected.push_back(chosen);
    }
    return associated(*object, "Uses") == expected;
  }));
}

TEST(MetadataObject, WritesAttributesContainedObjectsAndReferences) {
  const Object job = make("Job");
  job->setId("J1");
  job->addAttribute("name", "load");
  RepositoryMetadataObject* step = createRepositoryMetadataObject("Step");
  step->setId("S1");
  step->addAttribute("order", "1");
  job->addContainedObject(step);
  const Object table = make("Table");
  table->setId("T9");
  table->addAttribute("secret", "not written");
  job->addAssociatedObject("Uses", table.get());
  const Written written = write(*job);
  EXPECT_TRUE(written.result);
  EXPECT_EQ(written.xml,
            R"(<Job Id="J1" name="load"><Step Id="S1" order="1"/><Uses><Table ObjRef="T9"/></Uses></Job>)");
}

TEST(MetadataObject, WritesAssociationsInTheOrderOfTheirNamesAndTheValueAsText) {
  const Object job = make("Job");
  const Object a = make("Table");
  const Object b = make("File");
  job->addAssociatedObject("Uses", b.get());
  job->addAssociatedObject("Uses", a.get());
  job->addAssociatedObject("Makes", a.get());
  EXPECT_TRUE(job->setValue("a < b"));
  EXPECT_EQ(write(*job).xml, R"(<Job><Makes><Table ObjRef=""/></Makes><Uses><File ObjRef=""/>)"
                             R"(<Table ObjRef=""/></Uses>a &lt; b</Job>)");
}

TEST(MetadataObject, EmptyValueWritesNoText) {
  const Object job = make("Job");
  EXPECT_TRUE(job->setValue("text"));
  EXPECT_TRUE(job->setValue(""));
  EXPECT_EQ(write(*job).xml, "<Job/>");
}

TEST(MetadataObject, IsNotWrittenWithoutAnElement) { EXPECT_FALSE(make("Job")->toXML(nullptr)); }

TEST(MetadataObject, ResultOfWritingIsThatOfTheLastContainedObject) {
  struct Case {
    std::vector<bool> children;
    bool result;
  };
  for (const Case& c :
       {Case{{}, true}, Case{{false}, false}, Case{{true, false}, false}, Case{{false, true}, true}}) {
    const Object job = make("Job");
    for (const bool result : c.children)
      job->addContainedObject(new HostObject(nullptr, "", result));
    const Written written = write(*job);
    EXPECT_EQ(written.result, c.result) << c.children.size();
    std::string children;
    for (std::size_t i = 0; i < c.children.size(); ++i)
      children += "<Host/>";
    EXPECT_EQ(written.xml, c.children.empty() ? "<Job/>" : "<Job>" + children + "</Job>");
  }
}

TEST(MetadataObject, ResultOfAnInnerObjectCountsForTheWhole) {
  const Object job = make("Job");
  RepositoryMetadataObject* step = createRepositoryMetadataObject("Step");
  step->addContainedObject(new HostObject(nullptr, "", false));
  job->addContainedObject(step);
  EXPECT_FALSE(write(*job).result);
  job->addContainedObject(createRepositoryMetadataObject("Step"));
  EXPECT_TRUE(write(*job).result);
}

TEST(MetadataObject, AForeignObjectWritesItselfAndIsReleasedOnce) {
  int releases = 0;
  {
    const Object job = make("Job");
    EXPECT_TRUE(job->addContainedObject(new ForeignObject(&releases)));
    EXPECT_EQ(write(*job).xml, R"(<Job><Foreign own="yes"/></Job>)");
  }
  EXPECT_EQ(releases, 1);
}

TEST(MetadataObject, EndsWithWhatItContainsInOrder) {
  std::vector<std::string> ended;
  {
    const Object job = make("Job");
    RepositoryMetadataObject* step = new HostObject(&ended, "step");
    step->addContainedObject(new HostObject(&ended, "step.1"));
    step->addContainedObject(new HostObject(&ended, "step.2"));
    job->addContainedObject(step);
    job->addContainedObject(new HostObject(&ended, "last"));
  }
  EXPECT_THAT(ended, ElementsAre("step.1", "step.2", "step", "last"));
}

TEST(MetadataObject, LeavesAssociatedObjectsAlone) {
  std::vector<std::string> ended;
  const Object table(new HostObject(&ended, "table"));
  make("Job")->addAssociatedObject("Uses", table.get());
  EXPECT_THAT(ended, IsEmpty());
}

TEST(MetadataObject, EndsWithTheLastOfTwoParents) {
  std::vector<std::string> ended;
  auto* shared = new HostObject(&ended, "shared");
  Object first = make("Job");
  Object second = make("Job");
  EXPECT_TRUE(first->addContainedObject(shared));
  EXPECT_TRUE(second->addContainedObject(shared));
  first.reset();
  EXPECT_THAT(ended, IsEmpty());
  second.reset();
  EXPECT_THAT(ended, ElementsAre("shared"));
}

TEST(MetadataObject, ReleasingAContainedObjectLeavesItToItsParent) {
  std::vector<std::string> ended;
  auto* step = new HostObject(&ended, "step");
  {
    const Object job = make("Job");
    job->addContainedObject(step);
    step->release();
    EXPECT_THAT(ended, IsEmpty());
  }
  EXPECT_THAT(ended, ElementsAre("step"));
}

TEST(MetadataObject, NothingContainsItselfAtAnyDepth) {
  std::vector<std::string> ended;
  {
    const Object a(new HostObject(&ended, "a"));
    auto* b = new HostObject(&ended, "b");
    auto* c = new HostObject(&ended, "c");
    EXPECT_FALSE(a->addContainedObject(a.get()));
    EXPECT_TRUE(a->addContainedObject(b));
    EXPECT_TRUE(b->addContainedObject(c));
    EXPECT_FALSE(b->addContainedObject(a.get()));
    EXPECT_FALSE(c->addContainedObject(a.get()));
    EXPECT_FALSE(c->addContainedObject(b));
    EXPECT_TRUE(a->addContainedObject(c)) << "twice in the tree, but not in itself";
    EXPECT_THAT(contained(*a), ElementsAre(b, c));
    EXPECT_THAT(contained(*b), ElementsAre(c));
    EXPECT_THAT(contained(*c), IsEmpty());
    EXPECT_TRUE(write(*a).result);
  }
  EXPECT_THAT(ended, ElementsAre("a", "b", "c"));
}

TEST(MetadataObject, ContainsAnObjectOnceAmongMany) {
  const Object job = make("Job");
  std::vector<RepositoryMetadataObject*> steps;
  for (int i = 0; i < 40; ++i) {
    steps.push_back(createRepositoryMetadataObject("Step"));
    EXPECT_TRUE(job->addContainedObject(steps.back()));
    for (RepositoryMetadataObject* step : steps)
      EXPECT_FALSE(job->addContainedObject(step));
  }
  EXPECT_EQ(contained(*job), steps);
}

TEST(MetadataObject, WritesASharedObjectInFullAtEachOfItsPlaces) {
  const Object root = make("R");
  RepositoryMetadataObject* shared = createRepositoryMetadataObject("S");
  shared->addAttribute("a", "1");
  shared->addAssociatedObject("Uses", root.get());
  shared->setValue("v");
  shared->addContainedObject(createRepositoryMetadataObject("T"));
  for (const char* type : {"P", "Q"}) {
    RepositoryMetadataObject* parent = createRepositoryMetadataObject(type);
    root->addContainedObject(parent);
    parent->addContainedObject(shared);
  }
  EXPECT_EQ(write(*root).xml, R"(<R><P><S a="1"><T/><Uses><R ObjRef=""/></Uses>v</S></P>)"
                              R"(<Q><S a="1"><T/><Uses><R ObjRef=""/></Uses>v</S></Q></R>)");
}

// Levels of two objects, each of which is contained by both of the level above: 2 ** levels places in the last one.
void addSharedLevels(RepositoryMetadataObject& root, int levels, const auto& makeOne) {
  std::vector<RepositoryMetadataObject*> parents{&root};
  for (int level = 0; level < levels; ++level) {
    const std::vector<RepositoryMetadataObject*> pair{makeOne(), makeOne()};
    for (RepositoryMetadataObject* parent : parents)
      for (RepositoryMetadataObject* object : pair)
        parent->addContainedObject(object);
    parents = pair;
  }
}

std::size_t elementsBelow(const QvDomNode& root) {
  std::size_t count = 0;
  std::vector<QvDomNode> pending{root.getFirstChild(false)};
  while (!pending.empty()) {
    const QvDomNode node = pending.back();
    pending.pop_back();
    if (node.null())
      continue;
    ++count;
    pending.push_back(node.getNextSibling(false));
    pending.push_back(node.getFirstChild(false));
  }
  return count;
}

TEST(MetadataObject, ADocumentTakesSixteenMillionObjectsAndNoMore) {
  const Object root = make("L");
  addSharedLevels(*root, 3, [] { return createRepositoryMetadataObject("L"); }); // 14 places below the root
  for (const std::size_t others : {14U, 13U}) {
    MetadataWriting document; // with the root and others written already
    document.countObjects(16777216 - others);
    const Written written = write(*root);
    EXPECT_EQ(written.result, others == 14);
    document.countObjects();
    EXPECT_FALSE(write(*root).result) << "once too large, it stays so";
  }
  EXPECT_TRUE(write(*root).result);
}

TEST(MetadataObject, ADocumentTakesAsManyBytesAsAReader) {
  const Object root = make("L");
  root->addAttribute("a", "12"); //  a="12"
  root->addContainedObject(createRepositoryMetadataObject("L"));
  root->addAssociatedObject("U", root.get());
  root->setValue("x");
  // Counted are, beside the root's own tag: an attribute, an object, an association, its reference and a character.
  const std::size_t size = 7 + 4 + 4 + (4 + 10) + 1;
  for (const std::size_t left : {size, size - 1}) {
    MetadataWriting document;
    document.countBytes(QvDom::MaxSize - left);
    EXPECT_EQ(write(*root).result, left == size);
  }
}

// 2 ** 60 places: that they are too many is known after some ten thousand.
TEST(MetadataObject, AFewObjectsCannotMakeEndlessText) {
  const Object root = make("L");
  addSharedLevels(*root, 60, [] { return createRepositoryMetadataObject("L"); });
  QvDom document;
  ASSERT_TRUE(document.startNewDocument("L"));
  QvDomNode node = document.getRoot();
  EXPECT_FALSE(root->toXML(&node));
  EXPECT_LT(elementsBelow(node), 100000u);
}

TEST(MetadataObject, ManyPlacesOfAFewObjectsAreWritten) {
  const Object root = make("L");
  addSharedLevels(*root, 16, [] { return createRepositoryMetadataObject("L"); });
  QvDom document;
  ASSERT_TRUE(document.startNewDocument("L"));
  QvDomNode node = document.getRoot();
  EXPECT_TRUE(root->toXML(&node));
  EXPECT_EQ(elementsBelow(node), (std::size_t{1} << 17) - 2);
}

// Each of them writes itself, and what it contains, by a call.
TEST(MetadataObject, ObjectsOfAnApplicationsClassCannotMakeEndlessTextEither) {
  const Object root = make("L");
  addSharedLevels(*root, 60,
                  [] { return static_cast<RepositoryMetadataObject*>(new HostObject(nullptr, "")); });
  MetadataWriting document;
  document.countObjects(MetadataWriting::MaxObjects - 1000);
  EXPECT_FALSE(write(*root).result);
}

TEST(MetadataObject, WhatHasNoElementIsNotGoneInto) {
  const Object root = make("L");
  RepositoryMetadataObject* nameless = createRepositoryMetadataObject("no name");
  addSharedLevels(*nameless, 60, [] { return createRepositoryMetadataObject("L"); });
  root->addContainedObject(nameless);
  const Written written = write(*root);
  EXPECT_TRUE(written.result);
  EXPECT_EQ(written.xml, "<L/>");
}

// The change with memory running out at each of its allocations in turn; it answers how often it failed.
template<typename Change, typename Check>
std::size_t failuresOf(const Change& change, const Check& checkUnchanged) {
  for (long limit = 0;; ++limit) {
    Allocations::left = limit;
    bool failed = false;
    try {
      change();
    } catch (const std::bad_alloc&) {
      failed = true;
    }
    Allocations::left = -1;
    if (!failed)
      return static_cast<std::size_t>(limit);
    checkUnchanged();
  }
}

TEST(MetadataObject, AnIdThatThereIsNoMemoryForIsNotSet) {
  const Object object = make("Job");
  const QvbString id = "an id of more than sixteen bytes";
  const auto failures = failuresOf([&] { object->setId(id); },
                                   [&] {
                                     EXPECT_TRUE(object->getId().isEmpty());
                                     EXPECT_EQ(write(*object).xml, "<Job/>");
                                   });
  EXPECT_GT(failures, 0u);
  EXPECT_EQ(object->getId(), id);
  EXPECT_EQ(write(*object).xml, "<Job Id=\"" + str(id) + "\"/>");
}

TEST(MetadataObject, ItsOwnIdCanBeSetAgain) {
  const Object object = make("Job");
  object->setId("1");
  object->setId(object->getId());
  EXPECT_EQ(str(object->getId()), "1");
  EXPECT_EQ(write(*object).xml, R"(<Job Id="1"/>)");
}

TEST(MetadataObject, AnIdIsKnownBeforeItsAttributeIsAdded) {
  struct Watching : RepositoryMetadataObjectImpl {
    bool addAttribute(const QvbString& name, const QvbString& value) override {
      seen = str(name) + str(value) + str(getId());
      return RepositoryMetadataObjectImpl::addAttribute(name, value);
    }
    std::string seen;
  };
  const Released<Watching> object(new Watching);
  object->setId("1");
  EXPECT_EQ(object->seen, "Id11");
}

TEST(MetadataObject, AnAssociationThatThereIsNoMemoryForIsNotMade) {
  const QvbString name = "an association of more than sixteen bytes";
  const Object first = make("Table");
  const Object second = make("Table");
  const Object object = make("Job");
  bool result = true;
  const auto written = [&] { return write(*object).xml; };
  EXPECT_GT(failuresOf([&] { result = object->addAssociatedObject(name, first.get()); },
                       [&] { EXPECT_EQ(written(), "<Job/>"); }),
            1u);
  EXPECT_FALSE(result) << "it is the first one, however often it was tried";
  for (int i = 0; i < 40; ++i) {
    const auto before = associated(*object, name.asCstr());
    RepositoryMetadataObject* further = createRepositoryMetadataObject("Table");
    failuresOf([&] { result = object->addAssociatedObject(name, further); },
               [&] { EXPECT_EQ(associated(*object, name.asCstr()), before); });
    EXPECT_TRUE(result) << i;
    EXPECT_EQ(associated(*object, name.asCstr()).size(), before.size() + 1);
  }
  for (RepositoryMetadataObject* table : associated(*object, name.asCstr()))
    if (table != first.get())
      table->release();
}

TEST(MetadataObject, AnAttributeThatThereIsNoMemoryForIsNotAdded) {
  const Object object = make("Job");
  const QvbString name = "a";
  EXPECT_GT(
      failuresOf([&] { object->addAttribute(name, name); }, [&] { EXPECT_EQ(write(*object).xml, "<Job/>"); }),
      0u);
  EXPECT_EQ(write(*object).xml, R"(<Job a="a"/>)");
}

TEST(MetadataObject, WritingThatMemoryFailsCanBeTakenAgain) {
  const Object root = make("Job");
  root->setId("J1");
  addSharedLevels(*root, 4, [] { return createRepositoryMetadataObject("Step"); });
  const std::string expected = write(*root).xml;
  const QvbString type = root->getObjectType();
  std::string xml;
  const auto failures = failuresOf(
      [&] {
        QvDom document;
        if (!document.startNewDocument(type))
          throw std::bad_alloc();
        QvDomNode node = document.getRoot();
        root->toXML(&node);
        xml = str(document.createXML(false, node));
      },
      [&] { EXPECT_EQ(write(*root).xml, expected); });
  EXPECT_GT(failures, 3u);
  EXPECT_EQ(xml, expected);
}

TEST(MetadataObject, AnObjectThatThereIsNoMemoryToContainIsNotContained) {
  constexpr std::size_t count = 32; // the next one makes the sequence grow
  std::size_t failures = 0;
  for (long limit = 0; limit < 50; ++limit) {
    const Object other = make("Job");
    const Object job = make("Job");
    for (std::size_t i = 0; i < count; ++i)
      job->addContainedObject(createRepositoryMetadataObject("Step"));
    RepositoryMetadataObject* step = createRepositoryMetadataObject("Step");
    other->addContainedObject(step);
    bool added = false;
    Allocations::left = limit;
    try {
      added = job->addContainedObject(step);
    } catch (const std::bad_alloc&) {
      ++failures;
    }
    Allocations::left = -1;
    EXPECT_EQ(contained(*job).size(), count + added) << limit;
    EXPECT_EQ(job->addContainedObject(step), !added) << limit;
  }
  EXPECT_GT(failures, 0u);
  EXPECT_LT(failures, 50u);
}

TEST(MetadataObject, NoDepthIsTooDeepToWriteAndToEnd) {
  constexpr std::size_t depth = 300000;
  const Object root = make("L");
  RepositoryMetadataObject* parent = root.get();
  for (std::size_t i = 1; i < depth; ++i) {
    RepositoryMetadataObject* child = createRepositoryMetadataObject("L");
    parent->addContainedObject(child);
    parent = child;
  }
  QvDom document;
  ASSERT_TRUE(document.startNewDocument("L"));
  QvDomNode node = document.getRoot();
  EXPECT_TRUE(root->toXML(&node));
  EXPECT_EQ(elementsBelow(node), depth - 1);
}

TEST(MetadataObject, AGraphMayBeBuiltFromBelowAndTakenIntoAnother) {
  RepositoryMetadataObject* top = createRepositoryMetadataObject("L");
  for (int i = 0; i < 1000; ++i) {
    RepositoryMetadataObject* above = createRepositoryMetadataObject("L");
    ASSERT_TRUE(above->addContainedObject(top));
    top = above;
  }
  RepositoryMetadataObject* bottom = top;
  while (!contained(*bottom).empty())
    bottom = contained(*bottom).front();
  const Object root = make("R");
  EXPECT_TRUE(root->addContainedObject(top));
  EXPECT_FALSE(bottom->addContainedObject(root.get()));
  EXPECT_FALSE(bottom->addContainedObject(top));
  EXPECT_TRUE(root->addContainedObject(bottom));
}

TEST(MetadataObject, AttributesReadBackForAnyValues) {
  EXPECT_TRUE(rc::check([](const std::map<std::string, std::string>& pairs) {
    const Object object = make("Job");
    for (const auto& [name, value] : pairs)
      object->addAttribute(text(name), text(value));
    return std::all_of(pairs.begin(), pairs.end(), [&](const auto& pair) {
      QvbString value;
      return object->getAttribute(text(pair.first), &value) && str(value) == pair.second;
    });
  }));
}

struct ThreeObjects {
  ThreeObjects() {
    for (const char* id : {"a", "b", "c"}) {
      objects.push_back(make("Table"));
      objects.back()->setId(id);
      list->setLastRowElement(0, objects.back().get());
    }
  }
  std::vector<Object> objects;
  Released<RepositoryMetadataObjectListImpl> list{new RepositoryMetadataObjectListImpl};
};

TEST(MetadataObjectList, NewListHasNoRow) {
  const Released<RepositoryMetadataObjectListImpl> list(new RepositoryMetadataObjectListImpl);
  EXPECT_EQ(list->getValue(), nullptr);
  EXPECT_FALSE(list->next());
  EXPECT_FALSE(list->next());
  EXPECT_EQ(list->getValue(), nullptr);
}

TEST(MetadataObjectList, CursorWalksTheRowsAndStaysPastTheEnd) {
  ThreeObjects three;
  EXPECT_EQ(three.list->getValue(), nullptr);
  for (const Object& object : three.objects) {
    EXPECT_TRUE(three.list->next());
    EXPECT_EQ(three.list->getValue(), object.get());
  }
  EXPECT_FALSE(three.list->next());
  EXPECT_FALSE(three.list->next());
  EXPECT_EQ(three.list->getValue(), nullptr);
}

TEST(MetadataObjectList, HasOneColumn) {
  ThreeObjects three;
  three.list->next();
  EXPECT_EQ(three.list->getValue(0), three.objects[0].get());
  EXPECT_EQ(three.list->getValue(1), nullptr);
  EXPECT_EQ(three.list->getValue(static_cast<unsigned long>(-1)), nullptr);
}

TEST(MetadataObjectList, AddingARowDoesNothingAndAnElementIsARowWhateverItsColumn) {
  const Object object = make("Table");
  const Released<RepositoryMetadataObjectListImpl> list(new RepositoryMetadataObjectListImpl);
  EXPECT_TRUE(list->addRow());
  EXPECT_TRUE(list->addRow());
  list->setLastRowElement(7, object.get());
  list->setLastRowElement(0, object.get());
  EXPECT_THAT(rest(list.get()), ElementsAre(object.get(), object.get()));
}

TEST(MetadataObjectList, FindsAnIdInAnyCase) {
  ThreeObjects three;
  const Object same = make("Other");
  same->setId("B");
  const Object other = make("Table");
  other->setId("d");
  EXPECT_TRUE(three.list->contains(same.get()));
  EXPECT_FALSE(three.list->contains(other.get()));
  EXPECT_FALSE(three.list->contains(nullptr));
}

TEST(MetadataObjectList, SearchingMovesAnIterationInProgress) {
  ThreeObjects three;
  three.list->next();
  EXPECT_TRUE(three.list->contains(three.objects[1].get()));
  EXPECT_EQ(three.list->getValue(), three.objects[2].get());
  EXPECT_FALSE(three.list->next());
}

TEST(MetadataObjectList, SearchThatFindsNothingEndsAnIteration) {
  ThreeObjects three;
  three.list->next();
  EXPECT_FALSE(three.list->contains(make("Table").get()));
  EXPECT_EQ(three.list->getValue(), nullptr);
  EXPECT_FALSE(three.list->next());
}

TEST(MetadataObjectList, SearchBeforeTheFirstStepLeavesTheFirstStep) {
  ThreeObjects three;
  EXPECT_TRUE(three.list->contains(three.objects[0].get()));
  EXPECT_EQ(three.list->getValue(), three.objects[1].get());
  EXPECT_TRUE(three.list->next());
  EXPECT_EQ(three.list->getValue(), three.objects[0].get());
}

TEST(MetadataObjectList, CopiesTheRestOfAnotherListAndStartsAfresh) {
  ThreeObjects three;
  three.list->next();
  const Released<RepositoryMetadataObjectListImpl> copy(new RepositoryMetadataObjectListImpl);
  const Object first = make("Table");
  copy->setLastRowElement(0, first.get());
  copy->next();
  EXPECT_TRUE(copy->copyList(three.list.get()));
  EXPECT_THAT(rest(copy.get()), ElementsAre(first.get(), three.objects[1].get(), three.objects[2].get()));
}

TEST(MetadataObjectList, CopiedIntoItselfCopiesTheRowsThatWereThere) {
  const Object object = make("Table");
  const Released<RepositoryMetadataObjectListImpl> list(new RepositoryMetadataObjectListImpl({object.get()}));
  EXPECT_TRUE(list->copyList(list.get()));
  EXPECT_THAT(rest(list.get()), ElementsAre(object.get(), object.get()));
}

TEST(MetadataObjectList, ReleasingItLeavesTheObjects) {
  std::vector<std::string> ended;
  const Object object(new HostObject(&ended, "object"));
  { const List list(new RepositoryMetadataObjectListImpl({object.get()})); }
  EXPECT_THAT(ended, IsEmpty());
}

} // namespace
