// Memory that runs out while metadata is read, written or looked up.
#include "qvreposerializecontextimpl.h"

#include "support/allocations.h"
#include "support/metadatafixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace {

using ::testing::ElementsAre;

// Calls with the first allocation failing, then the second one, and so on, until none fails any more. The call is made
// again in whatever state the failure left; it answers how often it failed.
long failuresOf(const std::function<bool()>& call, const std::function<void()>& checkAfterFailure) {
  for (long n = 0;; ++n) {
    Allocations::left = n;
    bool isDone = false;
    try {
      isDone = call();
    } catch (const std::bad_alloc&) {
    }
    const bool hasFailed = Allocations::left == 0;
    Allocations::left = -1;
    if (isDone)
      return n;
    EXPECT_TRUE(hasFailed);
    checkAfterFailure();
  }
}

// All that is known of the objects of a context.
std::string stateOf(RepositorySerializationContext& context) {
  const Object none(createRepositoryMetadataObject("None"));
  none->setId("?");
  return serialized(context, none.get());
}

constexpr const char* earlier = R"(<A Id="a" x="1" y="2"><B Id="b"/><Uses><T Id="t"/></Uses></A><D Id="d"/>)";
// Changes what was there in every way: attributes, contents, associations old and new, an id that passes to another
// type, and one that does so within the document.
constexpr const char* later = R"(<A Id="a" x="another value of some length" z="3"><C Id="c"><E Id="e"/></C>)"
                              R"(<Uses><T Id="t2"/><T Id="t3"/></Uses><Makes><T Id="t"/></Makes></A>)"
                              R"(<B Id="b"><F Id="d"/><G Id="e" v="w"/><B Id="c"><A Id="a"/></B></B>)";

TEST(MetadataMemory, ADocumentThatMemoryFailsLeavesTheContextAsItWas) {
  const LogCapture quiet;
  const Context expected = make();
  ASSERT_NE(read(*expected, earlier), nullptr);
  const Object expectedD(expected->getMetadataObject("D", "d"));
  ASSERT_NE(read(*expected, later), nullptr);

  const Context context = make();
  RepositoryMetadataObject* a = read(*context, earlier);
  const Object d(context->getMetadataObject("D", "d"));
  const auto before = stateOf(*context);
  const QvbString xml = text(document(later));
  RepositoryMetadataObject* first = nullptr;
  const auto failures = failuresOf([&] { return (first = context->deSerialize(xml, nullptr)) != nullptr; },
                                   [&] {
                                     ASSERT_EQ(stateOf(*context), before);
                                     ASSERT_EQ(context->getMetadataObject("A", "a"), a);
                                     ASSERT_EQ(context->getMetadataObject("D", "d"), d.get());
                                   });
  EXPECT_GT(failures, 100);
  EXPECT_EQ(first, a);
  EXPECT_EQ(stateOf(*context), stateOf(*expected));
  use(d.get());
}

// So many that they are looked up by an index, which has to forget what is taken back.
TEST(MetadataMemory, ManyAssociationsThatMemoryFailsAreTakenBack) {
  const LogCapture quiet;
  const auto uses = [](int from, int to) {
    std::string xml = "<A Id=\"a\"><Uses>";
    for (int i = from; i < to; ++i)
      xml += "<T Id=\"t" + std::to_string(i) + "\"/>";
    return xml + "</Uses></A>";
  };
  const Context expected = make(), context = make();
  ASSERT_NE(read(*expected, uses(0, 40).c_str()), nullptr);
  ASSERT_NE(read(*context, uses(0, 20).c_str()), nullptr);
  const auto before = stateOf(*context);
  const QvbString xml = text(document(uses(20, 40)));
  EXPECT_GT(failuresOf([&] { return context->deSerialize(xml, nullptr) != nullptr; },
                       [&] { ASSERT_EQ(stateOf(*context), before); }),
            20);
  EXPECT_EQ(stateOf(*context), stateOf(*expected));
}

TEST(MetadataMemory, OneElementThatMemoryFailsLeavesTheContextAsItWas) {
  const LogCapture quiet;
  const Released<RepositorySerializationContextImpl> context(new RepositorySerializationContextImpl);
  QvDom dom;
  ASSERT_TRUE(dom.loadXML(R"(<Job Id="J1" name="n"><Step Id="S1"/><Uses><Table Id="T1"/></Uses></Job>)"));
  QvDomNode node = dom.getRoot();
  const auto before = stateOf(*context);
  RepositoryMetadataObject* job = nullptr;
  EXPECT_GT(failuresOf(
                [&] {
                  QvbString rootId;
                  return (job = context->readObjectFromNode(&rootId, &node, nullptr)) != nullptr;
                },
                [&] { EXPECT_EQ(stateOf(*context), before); }),
            10);
  EXPECT_THAT(containedIn(job), ElementsAre("S1"));
  EXPECT_THAT(idsOf(job->getAssociatedObjects("Uses")), ElementsAre("T1"));
}

TEST(MetadataMemory, ALookupThatMemoryFailsMakesNothing) {
  const LogCapture quiet;
  const Context context = make();
  context->getMetadataObject("Job", "J1");
  const auto before = stateOf(*context);
  const QvbString type = "TableOfSomeMoreLengthThanFits"; // a name, so that objects of it are written
  const QvbString id = "an id of some more length than fits";
  const QvbString name = "attribute";
  const auto unchanged = [&] { EXPECT_EQ(stateOf(*context), before); };
  EXPECT_GT(
      failuresOf([&] { return context->getMetadataObjectByAttribute(type, name, id) != nullptr; }, unchanged),
      2);
  context->clear();
  context->getMetadataObject("Job", "J1");
  EXPECT_GT(failuresOf([&] { return context->getMetadataObject(type, id) != nullptr; }, unchanged), 2);
  RepositoryMetadataObject* job = nullptr;
  const Object displaced(context->getMetadataObject("Table", "x"));
  const auto withTable = stateOf(*context);
  EXPECT_GT(failuresOf([&] { return (job = context->getMetadataObject("Job", "x")) != nullptr; },
                       [&] { EXPECT_EQ(stateOf(*context), withTable); }),
            1);
  EXPECT_EQ(context->getMetadataObject("Job", "x"), job);
}

TEST(MetadataMemory, ASerializationThatMemoryFailsAppendsNothing) {
  const LogCapture quiet;
  const Context context = make();
  RepositoryMetadataObject* job = nightlyJob(*context);
  for (const bool relationships : {false, true}) {
    context->setSerializationOfRelationships(relationships);
    const auto expected = serialized(*context, job, true);
    QvbString xml = "before";
    EXPECT_GT(failuresOf([&] { return context->serialize(job, &xml, nullptr, true); },
                         [&] { ASSERT_EQ(xml, "before"); }),
              5);
    EXPECT_EQ(str(xml), "before" + expected);
  }
}

TEST(MetadataMemory, AnImportPropertyThatMemoryFailsIsNotSet) {
  const Context context = make();
  RepositoryMetadataObject* job = context->getMetadataObject("Job", "J1");
  const QvbString name = "a name of some more length than fits";
  const QvbString value = "a value";
  const auto isUnset = [&] {
    QvbString read = "preset";
    EXPECT_TRUE(context->getImportProperty(job, name, &read));
    EXPECT_EQ(read, "preset");
  };
  EXPECT_GT(failuresOf([&] { return context->addImportProperty(job, name, value); }, isUnset), 1);
  EXPECT_GT(failuresOf([&] { return context->addImportPropertyAsInt(job, "number", 123456); }, [] {}), 0);
}

TEST(MetadataMemory, AnObjectThatMemoryKeepsOutOfAnotherMayContainThatOne) {
  RepositoryMetadataObject *outer = nullptr, *inner = nullptr;
  const auto isAdded = [&] {
    const long left = std::exchange(Allocations::left, -1); // the objects are there before
    outer = createRepositoryMetadataObject("A");
    inner = createRepositoryMetadataObject("B");
    Allocations::left = left;
    return outer->addContainedObject(inner);
  };
  const auto isFree = [&] {
    EXPECT_TRUE(inner->addContainedObject(outer));
    inner->release();
  };
  EXPECT_GT(failuresOf(isAdded, isFree), 0);
  outer->release();
}

TEST(MetadataMemory, AContextEndsWithoutMemory) {
  const LogCapture log;
  for (const long n : {0, 1, 2}) {
    auto* context = createRepositoryMetadataSerializationContext();
    read(*context, earlier);
    Allocations::left = n;
    context->release();
    Allocations::left = -1;
  }
}

} // namespace
