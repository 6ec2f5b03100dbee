// The reading of documents: which objects they make, what contains what, and who ends it.
#include "qvreposerializecontextimpl.h"

#include "support/metadatafixture.h"
#include "support/xmltext.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <map>
#include <set>
#include <string>
#include <vector>

namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(SerializationContext, ReadsBackWhatItWrote) {
  const Context writer = make();
  const std::string xml = serialized(*writer, nightlyJob(*writer), true);
  const Context reader = make();
  RepositoryMetadataObject* job = reader->deSerialize(text(xml), nullptr);
  ASSERT_NE(job, nullptr);
  EXPECT_EQ(attribute(job, "name"), "nightly");
  EXPECT_THAT(containedIn(job), ElementsAre("S1"));
  EXPECT_THAT(idsOf(job->getAssociatedObjects("Uses")), ElementsAre("T9"));
  EXPECT_EQ(attribute(reader->getMetadataObject("Table", "T9"), "name"), "CUSTOMERS");
}

TEST(SerializationContext, AReferenceAndTheFullElementAreOneObject) {
  for (const char* content :
       {R"(<Job Id="1"><Uses><Table ObjRef="T9"/></Uses></Job><Table Id="T9" name="C"/>)",
        R"(<Table Id="T9" name="C"/><Job Id="1"><Uses><Table ObjRef="T9"/></Uses></Job>)"}) {
    const Context context = make();
    ASSERT_NE(read(*context, content), nullptr);
    const List used(context->getMetadataObject("Job", "1")->getAssociatedObjects("Uses"));
    ASSERT_TRUE(used->next());
    EXPECT_EQ(used->getValue(), context->getMetadataObject("Table", "T9"));
    EXPECT_EQ(attribute(used->getValue(), "name"), "C");
    EXPECT_EQ(attribute(used->getValue(), "ObjRef"), "(none)");
    EXPECT_FALSE(used->next());
  }
}

TEST(SerializationContext, FirstIdAttributeInAnyCaseIsTheId) {
  struct Case {
    const char* element;
    const char* id;
  };
  for (const Case& c : {Case{R"(<A Id="1" ObjRef="2"/>)", "1"}, Case{R"(<A x="0" OBJREF="2" Id="1"/>)", "2"},
                        Case{R"(<A iD="3" id="4"/>)", "3"}}) {
    const Context context = make();
    RepositoryMetadataObject* object = read(*context, c.element);
    ASSERT_NE(object, nullptr) << c.element;
    EXPECT_EQ(object->getId(), QvbString(c.id));
    EXPECT_EQ(attribute(object, "Id"), c.id);
    EXPECT_EQ(attribute(object, "ObjRef"), "(none)");
    EXPECT_EQ(attribute(object, "id"), "(none)");
  }
}

TEST(SerializationContext, AnElementWithoutAttributesIsAnAssociationNeverContained) {
  const Context context = make();
  RepositoryMetadataObject* job =
      read(*context,
           R"(<Job Id="1"><Uses><Table Id="2"/><File ObjRef="3"/></Uses><Nothing/><Step Id="4"/></Job>)");
  ASSERT_NE(job, nullptr);
  EXPECT_THAT(containedIn(job), ElementsAre("4"));
  EXPECT_THAT(idsOf(job->getAssociatedObjects("Uses")), ElementsAre("2", "3"));
  EXPECT_THAT(idsOf(job->getAssociatedObjects("Nothing")), IsEmpty());
}

TEST(SerializationContext, ElementTextIsNotReadBack) {
  const Context context = make();
  RepositoryMetadataObject* job = read(*context, R"(<Job Id="1">text</Job>)");
  EXPECT_EQ(serialized(*context, job), declaration + document(R"(<Job Id="1"/>)"));
}

TEST(SerializationContext, ReadsNothingFromTextsThatAreNoDocument) {
  const Context context = make();
  for (const QvbString& xml : {QvbString(), QvbString(""), QvbString("<broken"), text(document(""))})
    EXPECT_EQ(context->deSerialize(xml, nullptr), nullptr) << xml;
}

TEST(SerializationContext, RootIsTheContainerInAnyCase) {
  const LogCapture log;
  const Context context = make();
  RepositoryMetadataObject* first =
      context->deSerialize(R"(<MORVAXELdocument><A Id="1"/><B Id="2"/></MORVAXELdocument>)", nullptr);
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(first->getId(), QvbString("1"));
  EXPECT_THAT(log.lines(category), ElementsAre(line(1, "Reading root node: MORVAXELdocument")));
}

TEST(SerializationContext, ContainerIsFoundAlongFirstChildren) {
  const LogCapture log;
  const Context context = make();
  RepositoryMetadataObject* first = context->deSerialize(
      R"(<a><b><RepositoryMetadataObject><A Id="1"/></RepositoryMetadataObject></b></a>)", nullptr);
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(first->getId(), QvbString("1"));
  EXPECT_THAT(
      log.lines(category),
      ElementsAre(line(1, "Reading root node: a"), line(1, "Reading node: b"),
                  line(1, "Comparing node: b to \"RepositoryMetadataObject\""),
                  line(1, "Comparing node: RepositoryMetadataObject to \"RepositoryMetadataObject\"")));
}

TEST(SerializationContext, ContainerIsNotLookedForBesideFirstChildren) {
  const Context context = make();
  for (const char* xml : {R"(<a><b/><RepositoryMetadataObject><A Id="1"/></RepositoryMetadataObject></a>)",
                          R"(<RepositoryMetadataObject><A Id="1"/></RepositoryMetadataObject>)", "<a/>",
                          R"(<a><b><c/></b></a>)"})
    EXPECT_EQ(context->deSerialize(xml, nullptr), nullptr) << xml;
}

TEST(SerializationContext, ARootWithoutChildrenIsLoggedAsThat) {
  const LogCapture log;
  EXPECT_EQ(make()->deSerialize("<a/>", nullptr), nullptr);
  EXPECT_THAT(log.lines(category),
              ElementsAre(line(1, "Reading root node: a"), line(1, "Reading node: "),
                          line(2, "Cleared context to prepare for object export transaction.")));
}

TEST(SerializationContext, ObjectsThatADerivedContextRefusesAreLeftOut) {
  const LogCapture log;
  const Released<HostContext> context(new HostContext);
  RepositoryMetadataObject* job =
      read(*context,
           R"(<A Id="1"><Refused Id="2"/><Uses><Refused Id="3"/></Uses></A><Refused Id="4"/><B Id="5"/>)");
  ASSERT_NE(job, nullptr);
  EXPECT_THAT(containedIn(job), IsEmpty());
  EXPECT_THAT(idsOf(job->getAssociatedObjects("Uses")), IsEmpty());
  EXPECT_EQ(context->getMetadataObjectByAttribute("Refused", "a", "b"), nullptr);
  EXPECT_THAT(context->asked, ElementsAre("A", "Refused", "Refused", "Refused", "Refused"));
  EXPECT_THAT(log.lines(category), ElementsAre(line(1, "Reading root node: morvaxeldocument"),
                                               line(5, "Error reading object from node: ")));
}

TEST(SerializationContext, AnElementWithoutIdEndsTheReadingAtTopLevel) {
  for (const char* element : {"<Bad/>", R"(<Bad Id="" ObjRef="2"/>)", R"(<Bad name="x"/>)"}) {
    const LogCapture log;
    const Context context = make();
    QvbString message = "the caller's text";
    RepositoryMetadataObject* first = context->deSerialize(
        text(document(R"(<A Id="1"/>)" + std::string(element) + R"(<C Id="3"/>)")), &message);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first->getId(), QvbString("1"));
    EXPECT_EQ(message, QvbString("the caller's text"));
    EXPECT_EQ(serialized(*context, first), declaration + document(R"(<A Id="1"/>)"));
    EXPECT_THAT(log.lines(category),
                ElementsAre(line(1, "Reading root node: morvaxeldocument"),
                            line(2, "Object cannot be created as it has no Id: Bad"),
                            line(5, "Error reading object from node: the caller's text")));
  }
}

TEST(SerializationContext, FirstElementWithoutIdReadsNothing) {
  const LogCapture log;
  const Context context = make();
  EXPECT_EQ(read(*context, R"(<Bad Id=""/><A Id="1"/>)"), nullptr);
  EXPECT_THAT(log.lines(category), Contains(line(5, "Error reading object from node: ")));
}

TEST(SerializationContext, AnInnerElementWithoutIdIsLeftOut) {
  const LogCapture log;
  const Context context = make();
  RepositoryMetadataObject* job = read(
      *context, R"(<Job Id="1"><Bad x="1"/><Uses><Worse x="1"/><Table Id="2"/></Uses><Step Id="3"/></Job>)");
  ASSERT_NE(job, nullptr);
  EXPECT_THAT(containedIn(job), ElementsAre("3"));
  EXPECT_THAT(idsOf(job->getAssociatedObjects("Uses")), ElementsAre("2"));
  EXPECT_THAT(log.lines(category), ElementsAre(line(1, "Reading root node: morvaxeldocument"),
                                               line(2, "Object cannot be created as it has no Id: Bad"),
                                               line(2, "Object cannot be created as it has no Id: Worse")));
}

TEST(SerializationContext, ReadsOneElementForACaller) {
  const Released<RepositorySerializationContextImpl> context(new RepositorySerializationContextImpl);
  QvDom dom;
  ASSERT_TRUE(dom.loadXML(R"(<Job Id="J1" name="n"><Step Id="S1"/></Job>)"));
  QvDomNode node = dom.getRoot();
  QvbString rootId;
  RepositoryMetadataObject* job = context->readObjectFromNode(&rootId, &node, nullptr);
  ASSERT_NE(job, nullptr);
  EXPECT_EQ(rootId, QvbString("J1"));
  QvbString other = "kept";
  EXPECT_EQ(context->readObjectFromNode(&other, &node, nullptr), job);
  EXPECT_EQ(other, QvbString("kept"));
  EXPECT_EQ(context->readObjectFromNode(nullptr, &node, nullptr), job);
  EXPECT_THAT(containedIn(job), ElementsAre("S1"));
  QvDomNode missing;
  EXPECT_EQ(context->readObjectFromNode(&rootId, &missing, nullptr), nullptr);
  EXPECT_EQ(context->readObjectFromNode(&rootId, nullptr, nullptr), nullptr);
}

TEST(SerializationContext, ADocumentAsDeepAsXMLMayBeIsReadAndWritten) {
  std::string content;
  constexpr int depth = 998;
  for (int i = 0; i < depth; ++i)
    content += "<L Id=\"" + std::to_string(i) + "\">";
  for (int i = 0; i < depth; ++i)
    content += "</L>";
  const Context context = make();
  RepositoryMetadataObject* root = read(*context, content);
  ASSERT_NE(root, nullptr);
  EXPECT_THAT(containedIn(root), ElementsAre("1"));
  EXPECT_TRUE(context->serialize(root, nullptr, nullptr, false));
}

TEST(SerializationContext, ReadObjectsEndOnceAlthoughContainedAndMapped) {
  Context context = make();
  ASSERT_NE(read(*context, R"(<A Id="1"><B Id="2"><C Id="3"/></B><D Id="0"/></A>)"), nullptr);
  EXPECT_TRUE(context->clear());
  RepositoryMetadataObject* a = read(*context, R"(<A Id="1"><B Id="2"/></A><B Id="2" name="x"/>)");
  ASSERT_NE(a, nullptr);
  EXPECT_THAT(containedIn(a), ElementsAre("2"));
  context.reset();
}

TEST(SerializationContext, AnObjectInTwoParentsEndsWithThem) {
  const Context context = make();
  ASSERT_NE(read(*context, R"(<A Id="1"><C Id="3"/></A><B Id="2"><C Id="3"/></B>)"), nullptr);
  EXPECT_THAT(containedIn(context->getMetadataObject("A", "1")), ElementsAre("3"));
  EXPECT_THAT(containedIn(context->getMetadataObject("B", "2")), ElementsAre("3"));
}

std::string element(const std::string& id, const std::string& content = "") {
  return "<L Id=\"" + id + "\">" + content + "</L>";
}

// Two objects at each level, each contained by both of the level above.
std::string sharedLevels(int levels) {
  std::string content;
  for (int i = 0; i < levels; ++i) {
    const std::string next = std::to_string(i + 1);
    for (const char* side : {"a", "b"})
      content += element(side + std::to_string(i), element("a" + next) + element("b" + next));
  }
  return content;
}

TEST(SerializationContext, ObjectsUnderTwoParentsAtEveryLevelAreWrittenInFullAndReadBack) {
  constexpr int levels = 8;
  const Context context = make();
  const std::string xml = serialized(*context, read(*context, sharedLevels(levels)));
  const Context reader = make();
  ASSERT_NE(reader->deSerialize(text(xml), nullptr), nullptr);
  for (int i = 0; i < levels; ++i)
    for (const char* side : {"a", "b"})
      EXPECT_THAT(containedIn(reader->getMetadataObject("L", text(side + std::to_string(i)))),
                  ElementsAre("a" + std::to_string(i + 1), "b" + std::to_string(i + 1)));
  EXPECT_EQ(serialized(*reader, reader->getMetadataObject("L", "a0")), xml);
}

TEST(SerializationContext, AShortDocumentCannotMakeEndlessText) {
  const Context context = make();
  RepositoryMetadataObject* root = read(*context, sharedLevels(60));
  QvbString xml = "before";
  EXPECT_FALSE(context->serialize(root, &xml, nullptr, false));
  EXPECT_FALSE(context->serialize(root, nullptr, nullptr, false));
  EXPECT_EQ(xml, "before");
}

TEST(SerializationContext, WhatIsAssociatedMayContainWhatItIsAssociatedWith) {
  const Context context = make();
  RepositoryMetadataObject* job =
      read(*context, R"(<Job Id="1"><Uses><Folder Id="2"><Job ObjRef="1"/></Folder></Uses></Job>)");
  ASSERT_NE(job, nullptr);
  EXPECT_THAT(containedIn(context->getMetadataObject("Folder", "2")), ElementsAre("1"));
  EXPECT_THAT(containedIn(job), IsEmpty());
  EXPECT_EQ(serialized(*context, job),
            declaration +
                document(R"(<Job Id="1"><Uses><Folder ObjRef="2"/></Uses></Job>)"
                         R"(<Folder Id="2"><Job Id="1"><Uses><Folder ObjRef="2"/></Uses></Job></Folder>)"));
}

TEST(SerializationContext, NothingIsContainedInItselfByWayOfAnAssociation) {
  for (const char* content : {R"(<A Id="a"><B Id="b"><Uses><B Id="b"><A Id="a"/></B></Uses></B></A>)",
                              R"(<A Id="a"><Uses><B Id="b"><A Id="a"/></B></Uses><B Id="b"/></A>)"}) {
    const Context context = make();
    ASSERT_NE(read(*context, content), nullptr) << content;
    EXPECT_THAT(containedIn(context->getMetadataObject("A", "a")), ElementsAre("b")) << content;
    EXPECT_THAT(containedIn(context->getMetadataObject("B", "b")), IsEmpty()) << content;
  }
}

TEST(SerializationContext, ACircleThroughAnEarlierDocumentIsLeftOutOfTheLaterOne) {
  const Context context = make();
  ASSERT_NE(read(*context, R"(<A Id="a"><B Id="b"/></A>)"), nullptr);
  ASSERT_NE(read(*context, R"(<B Id="b"><C Id="c"><A Id="a"/></C><D Id="d"/></B>)"), nullptr);
  EXPECT_THAT(containedIn(context->getMetadataObject("A", "a")), ElementsAre("b"));
  EXPECT_THAT(containedIn(context->getMetadataObject("C", "c")), ElementsAre("a"));
  EXPECT_THAT(containedIn(context->getMetadataObject("B", "b")), ElementsAre("d"));
}

struct DocumentShape {
  const char* name;
  // The objects of a document of so many.
  std::string (*content)(int count);
};

std::string reference(int id) { return "<L ObjRef=\"" + std::to_string(id) + "\"/>"; }
std::string unit(int id, const std::string& content) { return element(std::to_string(id), content); }

const DocumentShape documentShapes[] = {
    {"a chain from the top",
     [](int count) {
       std::string content;
       for (int i = 0; i < count; ++i)
         content += unit(i, reference(i + 1));
       return content;
     }},
    {"a chain from the bottom",
     [](int count) {
       std::string content;
       for (int i = count; i > 0; --i)
         content += unit(i, reference(i + 1));
       return content;
     }},
    {"a large object that all take",
     [](int count) {
       std::string content;
       for (int i = 0; i < count / 2; ++i)
         content += unit(i, reference(i + 1));
       for (int i = count / 2 + 1; i < count; ++i)
         content += unit(i, reference(0));
       return content;
     }},
    {"what hangs from a chain takes a chain",
     [](int count) {
       std::string content;
       const int third = count / 3;
       for (int i = 0; i < third; ++i)
         content += unit(i, reference(i + 1)) + unit(count + i, reference(count + i + 1));
       for (int i = 0; i < third; ++i)
         content += unit(third, unit(3 * count + i, reference(count)));
       return content;
     }},
    {"diamonds",
     [](int count) {
       std::string content;
       for (int i = 0; i < count / 2; ++i)
         for (const int side : {2 * i, 2 * i + 1})
           content += unit(side, reference(2 * i + 2) + reference(2 * i + 3));
       return content;
     }},
    {"a chain whose every member would contain its first",
     [](int count) {
       std::string content;
       for (int i = 0; i < count; ++i)
         content += unit(i, reference(i + 1));
       for (int i = 0; i < count; ++i)
         content += unit(i, reference(i / 2));
       return content;
     }},
};

TEST(SerializationContext, TheContainmentsOfAnyDocumentCostNoMoreThanTheyAreMany) {
  constexpr int count = 3000;
  for (const auto& shape : documentShapes) {
    const Context context = make();
    const auto before = ContainmentNode::stepsSoFar();
    ASSERT_NE(read(*context, shape.content(count)), nullptr);
    EXPECT_LE(ContainmentNode::stepsSoFar() - before, 4u * count) << shape.name;
  }
}

TEST(SerializationContext, AnObjectThatACallersObjectContainsOutlivesTheContext) {
  Context context = make();
  const Object root(createRepositoryMetadataObject("Root"));
  RepositoryMetadataObject* job = context->getMetadataObject("Job", "J1");
  root->addContainedObject(job);
  context.reset();
  use(job);
}

TEST(SerializationContext, AnObjectOutlivesTheCallersObjectThatContainedIt) {
  const Context context = make();
  RepositoryMetadataObject* job = context->getMetadataObject("Job", "J1");
  {
    const Object root(createRepositoryMetadataObject("Root"));
    root->addContainedObject(job);
  }
  use(job);
}

TEST(SerializationContext, NothingIsReadAsContainedInItself) {
  struct Case {
    const char* content;
    std::map<std::string, std::vector<std::string>> contained; // by type, which is in lower case the id
  };
  const Case cases[] = {
      {R"(<A Id="a"><A Id="a"/></A>)", {{"A", {}}}},
      {R"(<A Id="a"><B Id="b"><A Id="a"/></B></A>)", {{"A", {"b"}}, {"B", {}}}},
      {R"(<A Id="a"><B Id="b"><A Id="a"><C Id="c"/></A></B></A>)", {{"A", {"c", "b"}}, {"B", {}}, {"C", {}}}},
      {R"(<A Id="a"><B Id="b"/></A><B Id="b"><A Id="a"/></B>)", {{"A", {"b"}}, {"B", {}}}},
      {R"(<A Id="a"><B Id="b"><C Id="c"/></B></A><C Id="c"><D Id="d"><A Id="a"/></D></C>)",
       {{"A", {"b"}}, {"B", {"c"}}, {"C", {"d"}}, {"D", {}}}},
      {R"(<A Id="a"><B Id="b"/></A><B Id="b"><C Id="c"><A Id="a"/></C><D Id="d"/></B>)",
       {{"A", {"b"}}, {"B", {"c", "d"}}, {"C", {}}}},
  };
  for (const Case& c : cases) {
    const Context context = make();
    RepositoryMetadataObject* first = read(*context, c.content);
    ASSERT_NE(first, nullptr) << c.content;
    for (const auto& [type, ids] : c.contained) {
      QvbString id = text(type);
      EXPECT_EQ(containedIn(context->getMetadataObject(text(type), id.lowercase())), ids)
          << c.content << type;
    }
    EXPECT_TRUE(context->serialize(first, nullptr, nullptr, false));
  }
}

TEST(SerializationContext, AnIdThatADocumentGivesToAnotherTypeLosesNoObject) {
  const Context context = make();
  RepositoryMetadataObject* inner =
      read(*context, R"(<A Id="1" x="y"><B Id="1"><C Id="2"/></B></A><B Id="1"/>)");
  ASSERT_NE(inner, nullptr);
  EXPECT_EQ(inner->getObjectType(), QvbString("B"));
  EXPECT_EQ(serialized(*context, inner), declaration + document(R"(<B Id="1"><C Id="2"/></B><C Id="2"/>)"));
}

TEST(SerializationContext, AnObjectOfAnEarlierDocumentThatLosesItsIdIsTheCallers) {
  Context context = make();
  const Object earlier(read(*context, R"(<A Id="1"/>)"));
  EXPECT_EQ(read(*context, R"(<B Id="1"/>)")->getObjectType(), QvbString("B"));
  context.reset();
  use(earlier.get());
}

// A document of few types and ids meets itself again and again.
std::string randomElement(int depth) {
  const int id = *rc::gen::inRange(0, 5);
  const char* type = *rc::gen::element("A", "B");
  std::string element = "<" + std::string(type) + " " + *rc::gen::element<std::string>("Id", "ObjRef", "x") +
                        "=\"" + std::to_string(id) + "\">";
  const int children = depth < 4 ? *rc::gen::inRange(0, 4) : 0;
  for (int i = 0; i < children; ++i) {
    const std::string child = randomElement(depth + 1);
    element += *rc::gen::arbitrary<bool>() ? child : "<Uses>" + child + "</Uses>";
  }
  return element + "</" + type + ">";
}

bool isAcyclic(RepositoryMetadataObject* object, std::set<RepositoryMetadataObject*>& path) {
  if (!path.insert(object).second)
    return false;
  const List list(object->getContainedObjects());
  while (list->next())
    if (!isAcyclic(list->getValue(), path))
      return false;
  path.erase(object);
  return true;
}

TEST(SerializationContext, ReadsAnyNestingWithoutCycleLeakOrSecondRelease) {
  const LogCapture quiet;
  EXPECT_TRUE(rc::check([] {
    const Context context = make();
    for (int i = 0; i < 2; ++i) {
      std::string content;
      for (int n = *rc::gen::inRange(1, 5); n > 0; --n)
        content += randomElement(0);
      // What an earlier document made is the caller's once it is displaced, so each document has a context's clear.
      context->clear();
      std::set<RepositoryMetadataObject*> path;
      RepositoryMetadataObject* first = read(*context, content);
      if (first && !(isAcyclic(first, path) && context->serialize(first, nullptr, nullptr, false)))
        return false;
    }
    return true;
  }));
}

// An object whose id, attribute and value are the text: the first two are read back by a context, the third by a reader
// of XML, since contexts leave it alone.
bool readsBack(const std::string& value) {
  const Context writer = make();
  RepositoryMetadataObject* object = writer->getMetadataObject("Job", text(value));
  object->addAttribute("a", text(value));
  object->setValue(text(value));
  const QvbString xml = text(serialized(*writer, object));
  const Context reader = make();
  RepositoryMetadataObject* copy = reader->deSerialize(xml, nullptr);
  QvDom dom;
  return copy && str(copy->getId()) == carriedByXml(value) && attribute(copy, "a") == carriedByXml(value) &&
         dom.loadXML(xml) && str(dom.getRoot().getFirstChild(false).getValue(false)) == carriedByXml(value);
}

TEST(SerializationContext, TextsReadBackWhateverTheyAre) {
  EXPECT_TRUE(rc::check([] { return readsBack(*hardXmlText()); }));
}

TEST(SerializationContext, HugeTextsReadBack) { EXPECT_TRUE(readsBack(hugeXmlText())); }

} // namespace
