#include "qvresource.h"

#include "support/allocations.h"
#include "support/recordingfactory.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <algorithm>
#include <cctype>
#include <functional>
#include <type_traits>

namespace {

Released<QvResourceListImpl> resourceList() { return Released<QvResourceListImpl>(new QvResourceListImpl); }
Released<QvStringListImpl> stringList(int columns) {
  return Released<QvStringListImpl>(new QvStringListImpl(columns));
}
Released<QvResourcePropertyListImpl> propertyList() {
  return Released<QvResourcePropertyListImpl>(new QvResourcePropertyListImpl);
}

void append(QvResourceList& list, const QvbString& identity) {
  QvResourceImpl resource;
  resource.setResourceIdentity(identity);
  ASSERT_TRUE(list.addRow());
  list.setLastRowElement(0, &resource);
}

void append(QvStringListImpl& list, const std::vector<const char*>& texts) {
  ASSERT_TRUE(list.addRow());
  for (std::size_t column = 0; column < texts.size(); ++column)
    list.setLastRowElement(column, texts[column]);
}

void append(QvResourcePropertyList& list, const char* key, const char* value) {
  ASSERT_TRUE(list.addRow());
  list.setLastRow(key, value);
}

bool contains(QvResourceList& list, const QvbString& identity) {
  QvResourceImpl resource;
  resource.setResourceIdentity(identity);
  return list.contains(&resource);
}

std::vector<std::string> identitiesFromCursor(QvResourceList& list) {
  std::vector<std::string> identities;
  while (list.next())
    identities.push_back(str(list.getValue()->getResourceIdentity()));
  return identities;
}

QvbDate someDate() {
  QvbDate date;
  date.assign(2026, 11, 21, 10, 15, 30, 250);
  return date;
}

// Every field differs from that of a new record.
void fill(HostResource& resource) {
  resource.id = "id";
  resource.name = "name";
  resource.type = "Table";
  resource.identity = "identity";
  resource.location = "/data";
  resource.date = someDate();
  resource.dependencyType = 2;
  resource.resolved = false;
  resource.isMacroValue = true;
}

} // namespace

TEST(ResourceRecord, StartsEmptyResolvedAndWithoutMacro) {
  QvResourceImpl record;
  EXPECT_TRUE(isEmptyText(record.getId()));
  EXPECT_TRUE(isEmptyText(record.getName()));
  EXPECT_TRUE(isEmptyText(record.getResourceType()));
  EXPECT_TRUE(isEmptyText(record.getResourceIdentity()));
  EXPECT_TRUE(isEmptyText(record.getResourceLocation()));
  EXPECT_TRUE(record.getAnalysisDate().isNull());
  EXPECT_EQ(record.getDependencyType(), 0);
  EXPECT_EQ(record.getProperties(), nullptr);
  EXPECT_TRUE(record.IsResolved());
  EXPECT_FALSE(record.IsResourceIdentityMacroValue());
}

TEST(ResourceRecord, ReadsBackWhatWasSet) {
  const auto properties = propertyList();
  QvResourceImpl record;
  record.setId("id");
  record.setName("name");
  record.setType("type");
  record.setResourceIdentity("identity");
  record.setResourceLocation("location");
  record.setAnalysisDate(someDate());
  record.setDependencyType(7);
  record.setProperties(properties.get());
  record.setResolved(false);
  record.setIdentityIsMacroValue(true);
  EXPECT_EQ(record.getId(), "id");
  EXPECT_EQ(record.getName(), "name");
  EXPECT_EQ(record.getResourceType(), "type");
  EXPECT_EQ(record.getResourceIdentity(), "identity");
  EXPECT_EQ(record.getResourceLocation(), "location");
  EXPECT_EQ(record.getAnalysisDate().compare(someDate()), 0);
  EXPECT_EQ(record.getDependencyType(), 7);
  EXPECT_EQ(record.getProperties(), properties.get());
  EXPECT_FALSE(record.IsResolved());
  EXPECT_TRUE(record.IsResourceIdentityMacroValue());
}

TEST(ResourceRecord, HasItsFieldsInTheDeclaredOrder) {
  QvResourceImpl record;
  const auto properties = propertyList();
  const auto* bytes = reinterpret_cast<const unsigned char*>(&record);
  const auto snapshot = [&] { return std::vector<unsigned char>(bytes, bytes + sizeof record); };
  const std::vector<std::function<void()>> settersInOrder{
      [&] { record.setType("type"); },
      [&] { record.setResourceIdentity("identity"); },
      [&] { record.setResourceLocation("location"); },
      [&] { record.setName("name"); },
      [&] { record.setId("id"); },
      [&] { record.setAnalysisDate(someDate()); },
      [&] { record.setDependencyType(7); },
      [&] { record.setProperties(properties.get()); },
      [&] { record.setResolved(false); },
      [&] { record.setIdentityIsMacroValue(true); },
  };
  std::ptrdiff_t last = 0;
  for (const auto& set : settersInOrder) {
    const auto before = snapshot();
    set();
    const auto after = snapshot();
    const auto changed = std::ranges::mismatch(before, after).in1 - before.begin();
    EXPECT_GT(changed, last);
    EXPECT_LT(changed, static_cast<std::ptrdiff_t>(sizeof record));
    last = changed;
  }
}

TEST(ResourceRecord, LeavesAListThatItOnlyRefersToAlone) {
  const auto properties = propertyList();
  append(*properties, "key", "value");
  auto* record = new QvResourceImpl;
  record->setProperties(properties.get());
  record->release();
  ASSERT_TRUE(properties->next());
  EXPECT_EQ(properties->getValue(), "value");
}

TEST(ResourceRecord, EndsWithAListOfItsOwn) { // the leak check watches
  auto* record = new QvResourceImpl;
  auto properties = propertyList();
  append(*properties, "key", "value");
  auto* list = properties.get();
  record->adoptProperties(std::move(properties));
  EXPECT_EQ(record->getProperties(), list);
  record->release();
}

TEST(ResourceRecord, EndsThroughItsInterface) {
  const auto live = std::make_shared<int>(0);
  QvResource* resource = new HostResource(live);
  resource->release();
  EXPECT_EQ(*live, 0);
  static_assert(std::has_virtual_destructor_v<QvResource>);
  static_assert(std::has_virtual_destructor_v<QvResourcePropertyList>);
  static_assert(!std::has_virtual_destructor_v<QvResourceList>);
}

TEST(Cursor, FindsNothingInAnEmptyList) {
  const auto resources = resourceList();
  const auto strings = stringList(2);
  const auto properties = propertyList();
  for (int pass = 0; pass < 3; ++pass) {
    EXPECT_EQ(resources->getValue(), nullptr);
    EXPECT_TRUE(isEmptyText(strings->getValue()));
    EXPECT_TRUE(isEmptyText(properties->getKey()));
    EXPECT_TRUE(isEmptyText(properties->getValue()));
    EXPECT_FALSE(resources->next());
    EXPECT_FALSE(strings->next());
    EXPECT_FALSE(properties->next());
  }
}

TEST(Cursor, VisitsEachRowOnceAndStaysPastTheLast) {
  const auto resources = resourceList();
  const auto strings = stringList(1);
  const auto properties = propertyList();
  for (const char* text : {"a", "b", "c"}) {
    append(*resources, text);
    append(*strings, {text});
    append(*properties, text, text);
  }
  for (const char* text : {"a", "b", "c"}) {
    ASSERT_TRUE(resources->next());
    ASSERT_TRUE(strings->next());
    ASSERT_TRUE(properties->next());
    EXPECT_EQ(resources->getValue()->getResourceIdentity(), text);
    EXPECT_EQ(strings->getValue(), text);
    EXPECT_EQ(properties->getKey(), text);
    EXPECT_EQ(properties->getValue(), text);
  }
  for (int pass = 0; pass < 2; ++pass) {
    EXPECT_FALSE(resources->next());
    EXPECT_FALSE(strings->next());
    EXPECT_FALSE(properties->next());
    EXPECT_EQ(resources->getValue(), nullptr);
    EXPECT_TRUE(isEmptyText(strings->getValue()));
    EXPECT_TRUE(isEmptyText(properties->getKey()));
    EXPECT_TRUE(isEmptyText(properties->getValue()));
  }
}

TEST(Cursor, IsNotMovedByANewRow) {
  const auto list = resourceList();
  append(*list, "a");
  ASSERT_TRUE(list->next());
  append(*list, "b");
  EXPECT_EQ(list->getValue()->getResourceIdentity(), "a");
  ASSERT_TRUE(list->next());
  EXPECT_FALSE(list->next());
  append(*list, "c");
  EXPECT_FALSE(list->next());
}

TEST(Cursor, FindsEmptyTextsInANewRow) {
  const auto resources = resourceList();
  const auto strings = stringList(2);
  const auto properties = propertyList();
  ASSERT_TRUE(resources->addRow() && resources->next());
  ASSERT_TRUE(strings->addRow() && strings->next());
  ASSERT_TRUE(properties->addRow() && properties->next());
  EXPECT_TRUE(isEmptyText(resources->getValue()->getResourceIdentity()));
  EXPECT_TRUE(isEmptyText(strings->getValue(0)));
  EXPECT_TRUE(isEmptyText(strings->getValue(1)));
  EXPECT_TRUE(isEmptyText(properties->getKey()));
  EXPECT_TRUE(isEmptyText(properties->getValue()));
}

TEST(Cursor, StartsAgainAfterAReset) {
  const auto list = resourceList();
  append(*list, "a");
  append(*list, "b");
  EXPECT_EQ(identitiesFromCursor(*list), (std::vector<std::string>{"a", "b"}));
  list->reset();
  EXPECT_EQ(list->getValue(), nullptr);
  EXPECT_EQ(identitiesFromCursor(*list), (std::vector<std::string>{"a", "b"}));
}

TEST(ResourceList, KeepsTheFieldsThatReadersUse) {
  const auto properties = propertyList();
  append(*properties, "key", "value");
  HostResource source;
  fill(source);
  source.properties = properties.get();
  const auto list = resourceList();
  ASSERT_TRUE(list->addRow());
  list->setLastRowElement(0, &source);
  ASSERT_TRUE(list->next());
  auto* copy = list->getValue();
  ASSERT_NE(copy, &source);
  EXPECT_EQ(copy->getId(), source.id);
  EXPECT_EQ(copy->getName(), source.name);
  EXPECT_EQ(copy->getResourceType(), source.type);
  EXPECT_EQ(copy->getResourceIdentity(), source.identity);
  EXPECT_EQ(copy->getResourceLocation(), source.location);
  EXPECT_EQ(copy->getAnalysisDate().compare(source.date), 0);
  EXPECT_FALSE(copy->IsResolved());
  EXPECT_TRUE(copy->IsResourceIdentityMacroValue());
  EXPECT_EQ(copy->getDependencyType(), 0);
  EXPECT_EQ(copy->getProperties(), nullptr);
  EXPECT_FALSE(properties->next()) << "the source's properties are read to their end";
}

TEST(ResourceList, AppendsPropertiesToAnElementThatHasAList) {
  const auto target = propertyList();
  const auto properties = propertyList();
  append(*properties, "a", "1");
  append(*properties, "b", "2");
  HostResource source;
  source.properties = properties.get();
  QvResourceImpl record;
  record.setProperties(target.get());
  record.copyFrom(source);
  ASSERT_TRUE(target->next());
  EXPECT_EQ(target->getKey(), "a");
  ASSERT_TRUE(target->next());
  EXPECT_EQ(target->getKey(), "b");
  EXPECT_EQ(target->getValue(), "2");
  EXPECT_FALSE(target->next());
}

TEST(ResourceList, WritesIntoTheLastRowWhateverTheColumn) {
  const auto list = resourceList();
  append(*list, "a");
  ASSERT_TRUE(list->addRow());
  HostResource source;
  source.identity = "b";
  list->setLastRowElement(99, &source);
  EXPECT_EQ(identitiesFromCursor(*list), (std::vector<std::string>{"a", "b"}));
}

TEST(ResourceList, StaysEmptyWhenAnElementIsSetWithoutARow) {
  const auto list = resourceList();
  HostResource source;
  list->setLastRowElement(0, &source);
  EXPECT_FALSE(list->next());
}

TEST(ResourceList, ReadsColumnsAsSigned32BitNumbers) {
  const auto list = resourceList();
  append(*list, "a");
  ASSERT_TRUE(list->next());
  EXPECT_NE(list->getValue(0), nullptr);
  EXPECT_EQ(list->getValue(1), nullptr);
  EXPECT_EQ(list->getValue(static_cast<unsigned long>(-1)), nullptr);
  EXPECT_EQ(list->getValue(0x80000000UL), nullptr);
  EXPECT_NE(list->getValue(0x100000000UL), nullptr);
}

TEST(ResourceList, KeepsTheAddressesOfItsRows) {
  const auto list = resourceList();
  append(*list, "first");
  ASSERT_TRUE(list->next());
  auto* first = list->getValue();
  for (int row = 0; row < 10000; ++row)
    append(*list, "row");
  EXPECT_EQ(first->getResourceIdentity(), "first");
  EXPECT_EQ(list->getValue(), first);
}

TEST(ResourceListContains, LeavesTheCursorOnTheRowAfterTheMatch) {
  const auto list = resourceList();
  for (const char* identity : {"a", "b", "c"})
    append(*list, identity);
  EXPECT_TRUE(contains(*list, "b"));
  ASSERT_NE(list->getValue(), nullptr);
  EXPECT_EQ(list->getValue()->getResourceIdentity(), "c");
  ASSERT_TRUE(list->next()) << "the cursor had not been started";
  EXPECT_EQ(list->getValue()->getResourceIdentity(), "a");
  EXPECT_TRUE(contains(*list, "a"));
  ASSERT_TRUE(list->next()) << "the cursor stays started";
  EXPECT_EQ(list->getValue()->getResourceIdentity(), "c");
}

TEST(ResourceListContains, LeavesTheCursorPastTheEndWithoutAMatchOrAfterTheLast) {
  const auto list = resourceList();
  append(*list, "a");
  append(*list, "b");
  for (const char* identity : {"b", "none"}) {
    list->reset();
    ASSERT_TRUE(list->next());
    EXPECT_EQ(contains(*list, identity), identity == std::string("b"));
    EXPECT_EQ(list->getValue(), nullptr);
    EXPECT_FALSE(list->next());
  }
}

TEST(ResourceListContains, IgnoresTheCaseOfAsciiLetters) {
  const auto list = resourceList();
  append(*list, "Orders\xC3\x84");
  append(*list, "last");
  EXPECT_TRUE(contains(*list, "oRDERS\xC3\x84"));
  EXPECT_FALSE(contains(*list, "orders\xC3\xA4"));
  EXPECT_TRUE(contains(*list, "LAST"));
}

TEST(ResourceListContains, FollowsTheLastRowThroughItsChanges) {
  const auto list = resourceList();
  ASSERT_TRUE(list->addRow());
  EXPECT_TRUE(contains(*list, ""));
  HostResource source;
  source.identity = "first";
  list->setLastRowElement(0, &source);
  EXPECT_TRUE(contains(*list, "first"));
  EXPECT_FALSE(contains(*list, ""));
  source.identity = "second";
  list->setLastRowElement(0, &source);
  EXPECT_FALSE(contains(*list, "first"));
  EXPECT_TRUE(contains(*list, "second"));
  append(*list, "third");
  EXPECT_FALSE(contains(*list, "first"));
  EXPECT_TRUE(contains(*list, "second"));
  EXPECT_TRUE(contains(*list, "third"));
}

TEST(ResourceListContains, FindsTheFirstOfEqualRows) {
  const auto list = resourceList();
  for (const char* identity : {"a", "A", "b", "a"})
    append(*list, identity);
  EXPECT_TRUE(contains(*list, "A"));
  EXPECT_EQ(str(list->getValue()->getResourceIdentity()), "A");
  EXPECT_TRUE(contains(*list, "b"));
  EXPECT_EQ(str(list->getValue()->getResourceIdentity()), "a");
}

TEST(ResourceListContains, AnswersAsAWalkOverTheRowsDoes) {
  EXPECT_TRUE(rc::check([](const std::vector<unsigned char>& choices, unsigned char wanted) {
    const auto identity = [](unsigned char choice) { return std::string(1, "aAbBcC"[choice % 6]); };
    const auto fold = [](std::string value) {
      value[0] = static_cast<char>(std::tolower(value[0]));
      return value;
    };
    const auto list = resourceList();
    for (const auto choice : choices)
      append(*list, text(identity(choice)));
    std::size_t row = 0;
    while (row < choices.size() && fold(identity(choices[row])) != fold(identity(wanted)))
      ++row;
    const bool found = contains(*list, text(identity(wanted)));
    auto* next = list->getValue();
    const bool onNextRow =
        next && row + 1 < choices.size() && str(next->getResourceIdentity()) == identity(choices[row + 1]);
    return found == (row < choices.size()) && (row + 1 < choices.size() ? onNextRow : !next);
  }));
}

TEST(ResourceList, KnowsItsLatestDataSourceByTheTextsItCameBy) {
  const auto list = resourceList();
  append(*list, "first");
  list->rememberDataSource("DSN=Sales", "ODBC", list->addUnlessListed("Sales", "Database", "sales"));
  append(*list, "last");
  EXPECT_FALSE(list->containsDataSource("DSN=Sales", ""));
  EXPECT_FALSE(list->containsDataSource("dsn=sales", "ODBC"));
  EXPECT_EQ(list->getValue(), nullptr);
  EXPECT_TRUE(list->containsDataSource("DSN=Sales", "ODBC"));
  EXPECT_EQ(list->getValue()->getResourceIdentity(), "last");
  list->rememberDataSource("Stock", "", list->addUnlessListed("", "Database", "LAST"));
  EXPECT_TRUE(list->containsDataSource("Stock", ""));
  EXPECT_EQ(list->getValue(), nullptr) << "past the end";
  EXPECT_FALSE(list->containsDataSource("DSN=Sales", "ODBC"));
}

TEST(ResourceList, ForgetsADataSourceWhoseRowIsSetAnew) {
  const auto list = resourceList();
  list->rememberDataSource("Sales", "", list->addUnlessListed("", "Database", "sales"));
  QvResourceImpl other("", "Database", "other");
  list->setLastRowElement(0, &other);
  EXPECT_FALSE(list->containsDataSource("Sales", ""));
  list->rememberDataSource("Other", "", 0);
  append(*list, "next");
  EXPECT_TRUE(list->containsDataSource("Other", ""));
  list->rememberDataSource("None", "", 2);
  EXPECT_FALSE(list->containsDataSource("None", ""));
}

TEST(ResourceListContains, HasNoResourceForNull) {
  const auto list = resourceList();
  append(*list, "");
  EXPECT_FALSE(list->contains(nullptr));
}

// A search that walked the rows would take hours.
TEST(ResourceListContains, TakesAMillionUniqueRows) {
  constexpr int rows = 1000000;
  const auto list = resourceList();
  QvResourceImpl resource;
  for (int row = 0; row < rows; ++row) {
    resource.setResourceIdentity(QvbString().assign(row));
    ASSERT_FALSE(list->contains(&resource));
    ASSERT_TRUE(list->addRow());
    list->setLastRowElement(0, &resource);
  }
  resource.setResourceIdentity(QvbString().assign(rows / 2));
  ASSERT_TRUE(list->contains(&resource));
  EXPECT_EQ(list->getValue()->getResourceIdentity(), QvbString().assign(rows / 2 + 1));
}

TEST(ResourceListCopy, ResetsTheSourceAndCopiesFromItsFirstRow) {
  const auto source = resourceList();
  append(*source, "b");
  append(*source, "c");
  ASSERT_TRUE(source->next());
  ASSERT_TRUE(source->next());
  const auto target = resourceList();
  append(*target, "a");
  ASSERT_TRUE(target->next());
  EXPECT_TRUE(target->copyList(source.get()));
  EXPECT_EQ(identitiesFromCursor(*target), (std::vector<std::string>{"a", "b", "c"}));
  EXPECT_EQ(source->getValue(), nullptr);
}

TEST(ResourceListCopy, OfItselfCopiesTheRowsThatWereThere) {
  const auto list = resourceList();
  append(*list, "a");
  append(*list, "b");
  ASSERT_TRUE(list->next());
  EXPECT_TRUE(list->copyList(list.get()));
  EXPECT_EQ(identitiesFromCursor(*list), (std::vector<std::string>{"a", "b", "a", "b"}));
  const auto empty = resourceList();
  EXPECT_TRUE(empty->copyList(empty.get()));
  EXPECT_FALSE(empty->next());
}

TEST(StringListCopy, OfItselfCopiesTheRowsThatWereThereFromItsCursorOn) {
  const auto list = stringList(1);
  for (const char* text : {"a", "b", "c"})
    append(*list, {text});
  ASSERT_TRUE(list->next());
  EXPECT_TRUE(list->copyList(list.get()));
  std::vector<std::string> texts;
  while (list->next())
    texts.push_back(str(list->getValue()));
  EXPECT_EQ(texts, (std::vector<std::string>{"a", "b", "c", "b", "c"}));
}

TEST(PropertyListCopy, OfItselfCopiesTheRowsThatWereThereFromItsCursorOn) {
  const auto list = propertyList();
  append(*list, "a", "1");
  append(*list, "b", "2");
  EXPECT_TRUE(list->copyList(list.get()));
  std::string keys;
  while (list->next())
    keys += str(list->getKey());
  EXPECT_EQ(keys, "abab");
}

TEST(StringListCopy, CopiesFromTheSourcesCursorOn) {
  const auto source = stringList(2);
  for (const char* text : {"a", "b", "c"})
    append(*source, {text, text});
  ASSERT_TRUE(source->next());
  const auto target = stringList(0);
  EXPECT_TRUE(target->copyList(source.get()));
  EXPECT_EQ(target->length(), 2U);
  EXPECT_EQ(target->getNumCols(), 2U);
  ASSERT_TRUE(target->next());
  EXPECT_EQ(target->getValue(0), "b");
  EXPECT_EQ(target->getValue(1), "b");
  ASSERT_TRUE(target->next());
  EXPECT_EQ(target->getValue(1), "c");
}

TEST(StringListCopy, KeepsTheWidthOfRowsThatWereThere) {
  const auto source = stringList(2);
  append(*source, {"b", "B"});
  const auto target = stringList(1);
  append(*target, {"a"});
  EXPECT_TRUE(target->copyList(source.get()));
  ASSERT_TRUE(target->next());
  EXPECT_EQ(target->getValue(0), "a");
  EXPECT_TRUE(target->getValue(1).isEmpty());
  ASSERT_TRUE(target->next());
  EXPECT_EQ(target->getValue(1), "B");
}

TEST(PropertyListCopy, CopiesFromTheSourcesCursorOnAndStartsAgain) {
  const auto source = propertyList();
  append(*source, "a", "1");
  append(*source, "b", "2");
  ASSERT_TRUE(source->next());
  const auto target = propertyList();
  EXPECT_FALSE(target->next());
  EXPECT_TRUE(target->copyList(source.get()));
  ASSERT_TRUE(target->next());
  EXPECT_EQ(target->getKey(), "b");
  EXPECT_EQ(target->getValue(), "2");
  EXPECT_FALSE(target->next());
}

TEST(PropertyList, OverwritesTheLastRowAlone) {
  const auto list = propertyList();
  list->setLastRow("none", "none");
  EXPECT_FALSE(list->next());
  const auto rows = propertyList();
  append(*rows, "a", "1");
  append(*rows, "b", "2");
  rows->setLastRow("c", "3");
  ASSERT_TRUE(rows->next());
  EXPECT_EQ(rows->getKey(), "a");
  ASSERT_TRUE(rows->next());
  EXPECT_EQ(rows->getKey(), "c");
  EXPECT_EQ(rows->getValue(), "3");
}

TEST(StringList, ReadsColumnsAsSigned32BitNumbers) {
  const auto list = stringList(2);
  append(*list, {"a", "b"});
  EXPECT_TRUE(list->getValue(0).isEmpty()) << "before the first next()";
  ASSERT_TRUE(list->next());
  EXPECT_EQ(list->getValue(), "a");
  EXPECT_EQ(list->getValue(1), "b");
  EXPECT_TRUE(list->getValue(list->getNumCols()).isEmpty());
  EXPECT_TRUE(list->getValue(static_cast<unsigned long>(-1)).isEmpty());
  EXPECT_EQ(list->getValue(0x100000001UL), "b");
}

TEST(StringList, HasNoColumnsUnlessTold) {
  const Released<QvStringListImpl> list(new QvStringListImpl);
  EXPECT_EQ(list->getNumCols(), 0U);
  EXPECT_EQ(stringList(-3)->getNumCols(), 0U);
  ASSERT_TRUE(list->addRow());
  list->setLastRowElement(0, "off the row");
  ASSERT_TRUE(list->next());
  EXPECT_TRUE(list->getValue().isEmpty());
  EXPECT_EQ(list->length(), 1U);
}

TEST(StringList, StaysEmptyWhenAnElementIsSetWithoutARow) {
  const auto list = stringList(1);
  list->setLastRowElement(0, "text");
  EXPECT_EQ(list->length(), 0U);
  EXPECT_FALSE(list->next());
}

TEST(StringListContains, ComparesTheFirstColumnWithoutCase) {
  const auto list = stringList(2);
  append(*list, {"a", "x"});
  append(*list, {"B", "y"});
  append(*list, {"c", "z"});
  QvbString wanted = "b";
  EXPECT_TRUE(list->contains(wanted));
  EXPECT_EQ(list->getValue(), "c");
  ASSERT_TRUE(list->next()) << "the cursor had not been started";
  EXPECT_EQ(list->getValue(), "a");
  wanted = "x";
  EXPECT_FALSE(list->contains(wanted));
  EXPECT_TRUE(list->getValue().isEmpty());
  EXPECT_FALSE(list->next());
}

TEST(StringListContains, FindsTheFirstOfEqualRows) {
  const auto list = stringList(1);
  for (const char* text : {"a", "A", "b"})
    append(*list, {text});
  QvbString wanted = "A";
  EXPECT_TRUE(list->contains(wanted));
  EXPECT_EQ(list->getValue(), "A") << "the row after the first match";
}

TEST(StringListContains, FollowsTheLastRowThroughItsChanges) {
  const auto list = stringList(1);
  append(*list, {"first"});
  QvbString first = "first", second = "second";
  EXPECT_TRUE(list->contains(first));
  list->setLastRowElement(0, second);
  EXPECT_FALSE(list->contains(first));
  append(*list, {"third"});
  EXPECT_FALSE(list->contains(first));
  EXPECT_TRUE(list->contains(second));
}

TEST(StringListContains, FindsNothingInRowsWithoutColumns) {
  const auto list = stringList(0);
  ASSERT_TRUE(list->addRow());
  ASSERT_TRUE(list->addRow());
  QvbString none("");
  EXPECT_FALSE(list->contains(none));
}

// A search that walked the rows would take hours.
TEST(StringListContains, TakesAMillionUniqueRows) {
  constexpr int rows = 1000000;
  const auto list = stringList(1);
  for (int row = 0; row < rows; ++row) {
    auto text = QvbString().assign(row);
    ASSERT_FALSE(list->contains(text));
    ASSERT_TRUE(list->addRow());
    list->setLastRowElement(0, text);
  }
  EXPECT_EQ(list->length(), static_cast<unsigned long>(rows));
}

namespace {

// Adds rows without memory until one is refused; the rows that were added.
template<class List>
int addRowsWithoutMemory(List& list) {
  Allocations::left = 0;
  int rows = 0;
  while (rows < 100000 && list.addRow())
    ++rows;
  Allocations::left = -1;
  return rows;
}

} // namespace

TEST(ShortMemory, RefusesARowAndKeepsTheOthers) {
  const auto resources = resourceList();
  append(*resources, "a");
  const int rows = addRowsWithoutMemory(*resources);
  EXPECT_LT(rows, 100000);
  append(*resources, "b");
  EXPECT_TRUE(contains(*resources, "A"));
  EXPECT_TRUE(contains(*resources, "b"));
  resources->reset();
  EXPECT_EQ(identitiesFromCursor(*resources).size(), static_cast<std::size_t>(rows) + 2);

  const auto strings = stringList(3);
  EXPECT_EQ(addRowsWithoutMemory(*strings), 0);
  EXPECT_EQ(strings->length(), 0U);
  const auto properties = propertyList();
  EXPECT_EQ(addRowsWithoutMemory(*properties), 0);
  EXPECT_FALSE(properties->next());
}

TEST(ShortMemory, LeavesAListOfTextsAsItWasWhicheverAllocationFails) {
  const auto list = stringList(1);
  append(*list, {"a"});
  QvbString a = "a", none = "";
  const auto isAsBefore = [&] {
    EXPECT_EQ(list->length(), 1U);
    EXPECT_TRUE(list->contains(a));
    EXPECT_FALSE(list->contains(none));
  };
  EXPECT_GE(withEverMoreMemory([&] { return list->addRow(); }, isAsBefore), 2);
  EXPECT_EQ(list->length(), 2U);
  EXPECT_TRUE(list->contains(a));
  EXPECT_TRUE(list->contains(none));
}

namespace {

template<class List>
bool copyWithoutMemory(List& target, List& source) {
  Allocations::left = 0;
  const bool copied = target.copyList(&source);
  Allocations::left = -1;
  return copied;
}

} // namespace

TEST(ShortMemory, EndsACopyWithTheRowsSoFar) {
  const auto properties = propertyList();
  append(*properties, "a", "1");
  const auto fewerProperties = propertyList();
  EXPECT_FALSE(copyWithoutMemory(*fewerProperties, *properties));
  EXPECT_FALSE(fewerProperties->next());

  const auto strings = stringList(1);
  append(*strings, {"a"});
  const auto fewerStrings = stringList(1);
  append(*fewerStrings, {"kept"});
  EXPECT_FALSE(copyWithoutMemory(*fewerStrings, *strings));
  EXPECT_EQ(fewerStrings->length(), 1U);
}

TEST(ShortMemory, EndsACopyOfResourcesWithTheRowsSoFar) {
  const auto source = resourceList();
  for (int row = 0; row < 100; ++row)
    append(*source, QvbString().assign(row));
  const auto target = resourceList();
  Allocations::left = 10;
  const bool copied = target->copyList(source.get());
  Allocations::left = -1;
  EXPECT_FALSE(copied);
  const auto rows = identitiesFromCursor(*target);
  EXPECT_GT(rows.size(), 0U);
  EXPECT_LT(rows.size(), 100U);
}
