// Objects by id, the writing of documents, and what goes beside the objects.
#include "qvreposerializecontextimpl.h"

#include "qvxbase/qvbformat.h"
#include "qvxbase/qvuri.h"
#include "support/allocations.h"
#include "support/golden.h"
#include "support/metadatafixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

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

TEST(SerializationContext, AppendsAllOfADocumentOrNothingWhenMemoryIsShort) {
  const Context context = make();
  RepositoryMetadataObject* job = context->getMetadataObject("Job", "an id of more than sixteen bytes");
  for (const bool layout : {false, true}) {
    QvbString xml = "before";
    const long taken = withEverMoreMemory([&] { return context->serialize(job, &xml, nullptr, layout); },
                                          [&] { EXPECT_EQ(str(xml), "before"); });
    EXPECT_GT(taken, 0);
    EXPECT_EQ(str(xml), "before" + serialized(*context, job, layout));
  }
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

TEST(SerializationContext, AnObjectWhoseTypeIsNoNameLeavesTheRestOfTheDocument) {
  const Context context = make();
  context->getMetadataObject("Table", "2");
  RepositoryMetadataObject* nameless = context->getMetadataObject("not a name", "1");
  EXPECT_EQ(serialized(*context, nameless), declaration + document(R"(<Table Id="2"/>)"));
  EXPECT_EQ(serialized(*context, context->getMetadataObject("Table", "2")),
            declaration + document(R"(<Table Id="2"/>)"));
}

TEST(SerializationContext, WhatItsReaderWouldRefuseIsNotWritten) {
  const Context context = make();
  RepositoryMetadataObject* wide = context->getMetadataObject("Job", "1");
  for (int i = 0; i < 9999; ++i) // beside its id
    wide->addAttribute(text("a" + std::to_string(i)), "v");
  QvbString xml;
  EXPECT_TRUE(context->serialize(wide, &xml, nullptr, false));
  EXPECT_NE(make()->deSerialize(xml, nullptr), nullptr);
  wide->addAttribute("one-more", "v");
  xml = "before";
  EXPECT_FALSE(context->serialize(wide, &xml, nullptr, false));
  EXPECT_EQ(xml, "before");

  const Context deepContext = make();
  const Object top(deepContext->createMetadataObject("L"));
  RepositoryMetadataObject* bottom = top.get();
  for (int i = 2; i < 1000; ++i) { // below the root of the document
    RepositoryMetadataObject* next = deepContext->createMetadataObject("L");
    bottom->addContainedObject(next);
    bottom = next;
  }
  EXPECT_TRUE(deepContext->serialize(top.get(), &xml, nullptr, false));
  bottom->addContainedObject(deepContext->createMetadataObject("L"));
  xml = "before";
  EXPECT_FALSE(deepContext->serialize(top.get(), &xml, nullptr, true));
  EXPECT_EQ(xml, "before");
}

TEST(SerializationContext, TellsWhetherTheLayoutOfRelationshipsChanged) {
  const Context context = make();
  EXPECT_FALSE(context->setSerializationOfRelationships(false));
  EXPECT_TRUE(context->setSerializationOfRelationships(true));
  EXPECT_FALSE(context->setSerializationOfRelationships(true));
  EXPECT_TRUE(context->setSerializationOfRelationships(false));
}

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
    EXPECT_FALSE(objectInfo.isNull());
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
