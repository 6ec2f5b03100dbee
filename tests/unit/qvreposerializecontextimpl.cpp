#include "qvreposerializecontextimpl.h"

#include "guards.h"
#include "qvxbase/qvbformat.h"
#include "qvxbase/qvuri.h"
#include "support/golden.h"
#include "support/logcapture.h"
#include "support/textio.h"
#include "support/xmltext.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <map>
#include <set>
#include <string>
#include <tuple>
#include <vector>

namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Object = Released<RepositoryMetadataObject>;
using List = Released<RepositoryMetadataObjectList>;
using Context = Released<RepositorySerializationContext>;

constexpr const char* declaration = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>";
constexpr const char* category = "QV.Repos.QvReposRes.Serialize";

Context make() { return Context(createRepositoryMetadataSerializationContext()); }

LogLine line(int level, const std::string& text) {
  return {category, level, "src/qvreposerializecontextimpl", text};
}

std::string document(const std::string& content) {
  return "<morvaxeldocument class=\"RepositoryMetadataObject\" version=\"1.0\">" + content +
         "</morvaxeldocument>";
}

std::string serialized(RepositorySerializationContext& context, RepositoryMetadataObject* object,
                       bool layout = false) {
  QvbString xml;
  EXPECT_TRUE(context.serialize(object, &xml, nullptr, layout));
  return str(xml);
}

RepositoryMetadataObject* read(RepositorySerializationContext& context, const std::string& content) {
  return context.deSerialize(text(document(content)), nullptr);
}

std::vector<std::string> idsOf(RepositoryMetadataObjectList* list) {
  const List owned(list);
  std::vector<std::string> ids;
  while (owned->next())
    ids.push_back(str(owned->getValue()->getId()));
  return ids;
}

std::vector<std::string> containedIn(RepositoryMetadataObject* object) {
  return idsOf(object->getContainedObjects());
}

std::string attribute(RepositoryMetadataObject* object, const char* name) {
  QvbString value = "(none)";
  object->getAttribute(name, &value);
  return str(value);
}

// Whether the object is still there is for the address sanitizer to say.
void use(RepositoryMetadataObject* object) { EXPECT_TRUE(object->addAttribute("used", "yes")); }

TEST(SerializationContext, FindsTheObjectOfAnIdOrMakesIt) {
  const Context context = make();
  RepositoryMetadataObject* job = context->getMetadataObject("Job", "J1");
  ASSERT_NE(job, nullptr);
  EXPECT_EQ(job->getObjectType(), QvbString("Job"));
  EXPECT_EQ(job->getId(), QvbString("J1"));
  EXPECT_EQ(attribute(job, "Id"), "J1");
  EXPECT_EQ(context->getMetadataObject("JOB", "J1"), job);
  EXPECT_NE(context->getMetadataObject("Job", "j1"), job);
}

TEST(SerializationContext, FindingAloneMakesNothing) {
  const Released<RepositorySerializationContextImpl> context(new RepositorySerializationContextImpl);
  EXPECT_EQ(context->findMetadataObject("Job", "J1"), nullptr);
  RepositoryMetadataObject* job = context->getMetadataObject("Job", "J1");
  EXPECT_EQ(context->findMetadataObject("job", "J1"), job);
  EXPECT_EQ(context->findMetadataObject("Table", "J1"), nullptr);
  EXPECT_EQ(context->findMetadataObject("Job", "J2"), nullptr);
  EXPECT_EQ(serialized(*context, job), declaration + document(R"(<Job Id="J1"/>)"));
}

TEST(SerializationContext, AnotherTypeTakesTheIdAndTheEarlierObjectIsTheCallers) {
  Context context = make();
  RepositoryMetadataObject* job = context->getMetadataObject("Job", "1");
  RepositoryMetadataObject* table = context->getMetadataObject("Table", "1");
  EXPECT_NE(table, job);
  EXPECT_EQ(context->getMetadataObject("Table", "1"), table);
  EXPECT_EQ(serialized(*context, table), declaration + document(R"(<Table Id="1"/>)"));
  context->clear();
  use(job);
  context.reset();
  use(job);
  job->release();
}

TEST(SerializationContext, FindsAnObjectByAnAttributeInTheOrderOfIds) {
  const Context context = make();
  RepositoryMetadataObject* second = context->getMetadataObject("Job", "b");
  RepositoryMetadataObject* first = context->getMetadataObject("Job", "a");
  RepositoryMetadataObject* table = context->getMetadataObject("Table", "0");
  for (RepositoryMetadataObject* object : {second, first, table})
    object->addAttribute("name", "Load");
  EXPECT_EQ(context->getMetadataObjectByAttribute("JOB", "name", "load"), first);
  EXPECT_EQ(context->getMetadataObjectByAttribute("Table", "name", "LOAD"), table);
}

TEST(SerializationContext, MakesAnObjectByAnAttributeWithAFreshId) {
  const Context context = make();
  context->getMetadataObject("Job", "J1")->addAttribute("Name", "load");
  RepositoryMetadataObject* made = context->getMetadataObjectByAttribute("Job", "name", "load");
  ASSERT_NE(made, nullptr);
  EXPECT_EQ(made->getId().length(), 36);
  EXPECT_EQ(attribute(made, "name"), "load");
  EXPECT_EQ(context->getMetadataObject("Job", made->getId()), made);
  EXPECT_EQ(context->getMetadataObjectByAttribute("Job", "name", "load"), made);
}

TEST(SerializationContext, AnObjectMadeApartIsTheCallersAndHasNoId) {
  const Context context = make();
  const Object step(context->createMetadataObject("Step"));
  EXPECT_TRUE(step->getId().isEmpty());
  context->clear();
  use(step.get());
  EXPECT_EQ(context->getMetadataObject("Job", "J1")->getObjectType(), QvbString("Job"));
  EXPECT_EQ(serialized(*context, step.get()), declaration + document(R"(<Step used="yes"/><Job Id="J1"/>)"));
}

// A job with a step of its own and a table that it uses.
RepositoryMetadataObject* nightlyJob(RepositorySerializationContext& context) {
  RepositoryMetadataObject* job = context.getMetadataObject("Job", "J1");
  job->addAttribute("name", "nightly");
  RepositoryMetadataObject* table = context.getMetadataObject("Table", "T9");
  table->addAttribute("name", "CUSTOMERS");
  RepositoryMetadataObject* step = context.createMetadataObject("Step");
  step->setId("S1");
  job->addContainedObject(step);
  job->addAssociatedObject("Uses", table);
  return job;
}

TEST(SerializationContext, WritesADocumentWithLayout) {
  const Context context = make();
  const std::string xml = serialized(*context, nightlyJob(*context), true);
  EXPECT_EQ(xml, golden("metadata_document.xml", xml));
}

TEST(SerializationContext, WritesTheObjectItselfAsRootOfRelationships) {
  const Context context = make();
  RepositoryMetadataObject* job = nightlyJob(*context);
  context->setSerializationOfRelationships(true);
  const std::string xml = serialized(*context, job, true);
  EXPECT_EQ(xml, golden("metadata_relationships.xml", xml));
}

TEST(SerializationContext, NoLineFeedStandsBetweenDeclarationAndRootWithoutLayout) {
  const Context context = make();
  EXPECT_EQ(serialized(*context, nightlyJob(*context)),
            declaration + document(R"(<Job Id="J1" name="nightly"><Step Id="S1"/><Uses><Table ObjRef="T9"/>)"
                                   R"(</Uses></Job><Table Id="T9" name="CUSTOMERS"/>)"));
}

TEST(SerializationContext, OtherObjectsFollowInTheOrderOfTheirIdsWithoutTheMainOne) {
  const Context context = make();
  for (const char* id : {"c", "a", "B", "x"})
    context->getMetadataObject("Job", id);
  const Object main(createRepositoryMetadataObject("Main"));
  main->setId("X");
  EXPECT_EQ(serialized(*context, main.get()),
            declaration + document(R"(<Main Id="X"/><Job Id="B"/><Job Id="a"/><Job Id="c"/>)"));
}

TEST(SerializationContext, AppendsToWhatTheOutputHolds) {
  const Context context = make();
  QvbString xml = "before";
  QvbString message = "untouched";
  EXPECT_TRUE(context->serialize(context->getMetadataObject("Job", "1"), &xml, &message, false));
  EXPECT_EQ(str(xml), "before" + std::string(declaration) + document(R"(<Job Id="1"/>)"));
  EXPECT_EQ(message, QvbString("untouched"));
}

TEST(SerializationContext, WritesNothingWithoutAnOutput) {
  const Context context = make();
  EXPECT_TRUE(context->serialize(context->getMetadataObject("Job", "1"), nullptr, nullptr, true));
}

TEST(SerializationContext, DocumentThatCannotBeStartedFailsWithNothingAppended) {
  const Context context = make();
  context->setSerializationOfRelationships(true);
  QvbString xml = "before";
  EXPECT_FALSE(context->serialize(context->getMetadataObject("not a name", "1"), &xml, nullptr, false));
  EXPECT_FALSE(context->serialize(nullptr, &xml, nullptr, false));
  EXPECT_EQ(xml, QvbString("before"));
}

TEST(SerializationContext, TellsWhetherTheLayoutOfRelationshipsChanged) {
  const Context context = make();
  EXPECT_FALSE(context->setSerializationOfRelationships(false));
  EXPECT_TRUE(context->setSerializationOfRelationships(true));
  EXPECT_FALSE(context->setSerializationOfRelationships(true));
  EXPECT_TRUE(context->setSerializationOfRelationships(false));
}

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

// A context of an application's own, which has a say in what objects and properties there are.
struct HostContext : RepositorySerializationContextImpl {
  RepositoryMetadataObject* getMetadataObject(const QvbString& type, const QvbString& id) override {
    asked.push_back(str(type));
    return same(type, "Refused") ? nullptr : RepositorySerializationContextImpl::getMetadataObject(type, id);
  }
  bool addImportProperty(RepositoryMetadataObject*, const QvbString& name, const QvbString& value) override {
    asked.push_back(str(name) + "=" + str(value));
    return false;
  }
  bool getImportProperty(RepositoryMetadataObject*, const QvbString& name, QvbString* value) override {
    asked.push_back(str(name));
    *value = "12";
    return answers;
  }
  static bool same(const QvbString& a, const char* b) { return a.compare(b) == 0; }
  std::vector<std::string> asked;
  bool answers = true;
};

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

TEST(SerializationContext, NumbersGoThroughTheOperationsForTexts) {
  const Released<HostContext> context(new HostContext);
  const Object job(createRepositoryMetadataObject("Job"));
  EXPECT_FALSE(context->addImportPropertyAsInt(job.get(), "n", 7));
  int number = 0;
  EXPECT_TRUE(context->getImportPropertyAsInt(job.get(), "m", &number));
  EXPECT_EQ(number, 12);
  context->answers = false;
  number = 0;
  EXPECT_FALSE(context->getImportPropertyAsInt(job.get(), "m", &number));
  EXPECT_EQ(number, 0);
  EXPECT_THAT(context->asked, ElementsAre("n=7", "m", "m"));
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

TEST(SerializationContext, IdsUnderTwoParentsAtEveryLevelAreWrittenAsOftenAsTheyAreNested) {
  constexpr int levels = 60;
  std::string content;
  for (int i = 0; i < levels; ++i) {
    const std::string next = std::to_string(i + 1);
    for (const char* side : {"a", "b"})
      content += element(side + std::to_string(i), element("a" + next) + element("b" + next));
  }
  const Context context = make();
  const std::string xml = serialized(*context, read(*context, content));
  EXPECT_LT(xml.size(), static_cast<std::size_t>(levels) * levels * 4 * element("a00").size() * 2);
  const Context reader = make();
  ASSERT_NE(reader->deSerialize(text(xml), nullptr), nullptr);
  for (int i = 0; i < levels; ++i)
    for (const char* side : {"a", "b"})
      EXPECT_THAT(containedIn(reader->getMetadataObject("L", text(side + std::to_string(i)))),
                  ElementsAre("a" + std::to_string(i + 1), "b" + std::to_string(i + 1)));
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
    EXPECT_THAT(containedIn(context->getMetadataObject("B", "b")), ElementsAre("a")) << content;
    EXPECT_THAT(containedIn(context->getMetadataObject("A", "a")), IsEmpty()) << content;
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

TEST(SerializationContext, ImportPropertiesStayUnderTheIdOfTheirTime) {
  const Context context = make();
  RepositoryMetadataObject* job = context->getMetadataObject("Job", "J1");
  EXPECT_TRUE(context->addImportProperty(job, "state", "old"));
  EXPECT_TRUE(context->addImportProperty(job, "state", "new"));
  QvbString value;
  EXPECT_TRUE(context->getImportProperty(job, "state", &value));
  EXPECT_EQ(value, QvbString("new"));
  job->setId("J2");
  value = "preset";
  EXPECT_TRUE(context->getImportProperty(job, "state", &value));
  EXPECT_EQ(value, QvbString("preset"));
  EXPECT_EQ(serialized(*context, job), declaration + document(R"(<Job Id="J2"/>)"));
}

TEST(SerializationContext, AnImportPropertyThatIsNotSetOrEmptyLeavesTheOutput) {
  const Context context = make();
  RepositoryMetadataObject* job = context->getMetadataObject("Job", "J1");
  context->addImportProperty(job, "empty", "");
  for (const char* name : {"empty", "missing"}) {
    QvbString value = "preset";
    int number = 7;
    EXPECT_TRUE(context->getImportProperty(job, name, &value)) << name;
    EXPECT_TRUE(context->getImportPropertyAsInt(job, name, &number)) << name;
    EXPECT_EQ(value, QvbString("preset")) << name;
    EXPECT_EQ(number, 7) << name;
  }
}

TEST(SerializationContext, ImportPropertiesConvertToAndFromNumbers) {
  const Context context = make();
  RepositoryMetadataObject* job = context->getMetadataObject("Job", "J1");
  EXPECT_TRUE(context->addImportPropertyAsInt(job, "count", -42));
  QvbString value;
  int number = 0;
  EXPECT_TRUE(context->getImportProperty(job, "count", &value));
  EXPECT_TRUE(context->getImportPropertyAsInt(job, "count", &number));
  EXPECT_EQ(value, QvbString("-42"));
  EXPECT_EQ(number, -42);
  context->addImportProperty(job, "word", "no number");
  EXPECT_TRUE(context->getImportPropertyAsInt(job, "word", &number));
  EXPECT_EQ(number, 0);
}

TEST(SerializationContext, NoObjectHasNoImportProperties) {
  const Context context = make();
  QvbString value = "preset";
  int number = 7;
  EXPECT_FALSE(context->addImportProperty(nullptr, "a", "b"));
  EXPECT_FALSE(context->addImportPropertyAsInt(nullptr, "a", 1));
  EXPECT_FALSE(context->getImportProperty(nullptr, "a", &value));
  EXPECT_FALSE(context->getImportPropertyAsInt(nullptr, "a", &number));
  EXPECT_EQ(value, QvbString("preset"));
  EXPECT_EQ(number, 7);
}

struct Listener : RepositoryActionEvent {
  int actionLogged(RepositoryActionLogStatus status, const QvbString& objectInfo,
                   const QvbString& message) override {
    calls.emplace_back(status, str(objectInfo), str(message));
    return 17;
  }
  std::vector<std::tuple<int, std::string, std::string>> calls;
};

TEST(SerializationContext, AnActionReachesHandlerAndLogAtTheLevelOfItsStatus) {
  const std::pair<int, int> levels[] = {{0, 5}, {1, 4}, {2, 3}, {3, 2}, {4, 1}, {5, 3}, {-1, 3}};
  for (const auto& [status, level] : levels) {
    const LogCapture log;
    Listener listener;
    const Context context = make();
    EXPECT_TRUE(context->setEventHandler(&listener));
    EXPECT_EQ(context->logEvent(static_cast<RepositoryActionLogStatus>(status), "imported"), 17);
    EXPECT_THAT(listener.calls, ElementsAre(std::tuple(status, "", "imported")));
    EXPECT_THAT(log.lines(category), ElementsAre(line(level, "imported")));
  }
}

TEST(SerializationContext, AnActionWithoutHandlerIsLoggedAndAnswersZero) {
  const LogCapture log;
  Listener listener;
  const Context context = make();
  context->setEventHandler(&listener);
  EXPECT_TRUE(context->setEventHandler(nullptr));
  EXPECT_EQ(context->logEvent(RepositoryActionLogInfo, "done"), 0);
  EXPECT_THAT(listener.calls, IsEmpty());
  EXPECT_THAT(log.lines(category), ElementsAre(line(2, "done")));
}

TEST(SerializationContext, ThePerCentSignsOfAnActionAreTheLogsToRead) {
  const LogCapture log;
  Listener listener;
  const Context context = make();
  context->setEventHandler(&listener);
  context->logEvent(RepositoryActionLogSuccess, "100%% of %s and %n");
  EXPECT_THAT(listener.calls, ElementsAre(std::tuple(2, "", "100%% of %s and %n")));
  EXPECT_THAT(log.lines(category), ElementsAre(line(3, str(qvbStringFormat("100%% of %s and %n")))));
}

TEST(SerializationContext, EventObjectInfoIsTheRepositoryURIOfPathAndType) {
  Listener listener;
  const Context context = make();
  context->setEventHandler(&listener);
  EXPECT_TRUE(context->setEventObjectInfo("batch_jobs/load", "ProcessJob"));
  context->logEvent(RepositoryActionLogInfo, "a");
  EXPECT_TRUE(context->setEventObjectInfo("", "ProcessJob")); // no URI: the information stays
  context->logEvent(RepositoryActionLogInfo, "b");
  const Released<QvURI> uri(getReposURIFromComponents("", "batch_jobs/load", "ProcessJob"));
  const std::string info = str(uri->asString());
  EXPECT_EQ(info, "qvr:///batch_jobs/load?type=ProcessJob");
  EXPECT_THAT(listener.calls, ElementsAre(std::tuple(3, info, "a"), std::tuple(3, info, "b")));
}

TEST(SerializationContext, ClearingForgetsEverything) {
  const LogCapture log;
  Listener listener;
  const Context context = make();
  RepositoryMetadataObject* job = context->getMetadataObject("Job", "J1");
  context->addImportProperty(job, "a", "b");
  context->setEventHandler(&listener);
  context->setEventObjectInfo("path", "Job");
  EXPECT_TRUE(context->clear());
  EXPECT_THAT(log.lines(category),
              ElementsAre(line(2, "Cleared context to prepare for object export transaction.")));
  EXPECT_EQ(context->logEvent(RepositoryActionLogInfo, "x"), 0);
  EXPECT_THAT(listener.calls, IsEmpty());
  context->setEventHandler(&listener);
  context->logEvent(RepositoryActionLogInfo, "x");
  EXPECT_THAT(listener.calls, ElementsAre(std::tuple(3, "", "x")));
  RepositoryMetadataObject* again = context->getMetadataObject("Job", "J1");
  QvbString value = "preset";
  context->getImportProperty(again, "a", &value);
  EXPECT_EQ(value, QvbString("preset"));
  EXPECT_EQ(serialized(*context, again), declaration + document(R"(<Job Id="J1"/>)"));
}

TEST(SerializationContext, ClearingEndsTheObjectsInTheOrderOfTheirIds) {
  struct Ending : RepositoryMetadataObjectImpl {
    Ending(std::string* ids, const char* ownId) : ended(ids), id(ownId) {}
    ~Ending() override { *ended += id; }
    std::string* ended;
    const char* id;
  };
  std::string ended;
  const Context context = make();
  for (const char* id : {"c", "a", "b"})
    context->getMetadataObject("Job", id)->addContainedObject(new Ending(&ended, id));
  context->clear();
  EXPECT_EQ(ended, "abc");
}

TEST(SerializationContext, ClearingKeepsTheLayoutOfRelationships) {
  const Context context = make();
  context->setSerializationOfRelationships(true);
  context->clear();
  EXPECT_FALSE(context->setSerializationOfRelationships(true));
}

TEST(SerializationContext, ItsEndClearsIt) {
  const LogCapture log;
  make()->getMetadataObject("Job", "1");
  EXPECT_THAT(log.lines(category),
              ElementsAre(line(2, "Cleared context to prepare for object export transaction.")));
}

} // namespace
