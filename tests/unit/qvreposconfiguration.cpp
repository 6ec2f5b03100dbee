#include "qvreposconfiguration.h"

#include "guards.h"
#include "support/allocations.h"
#include "support/textio.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <vector>

namespace {

using Definition = QvReposConfiguration;
using Copy = Released<QvReposConfiguration>;

struct TextField {
  const char* name;
  QvbString (Definition::*get)();
  void (Definition::*set)(const QvbString&);
  bool isNullAtFirst;
};

constexpr TextField savedTextFields[] = {
    {"name", &Definition::getName, &Definition::setName, false},
    {"vault path", &Definition::getVaultPath, &Definition::setVaultPath, true},
    {"connect", &Definition::getUnifiedRepositoryConnect, &Definition::setUnifiedRepositoryConnect, false},
    {"connect type", &Definition::getUnifiedRepositoryConnectType,
     &Definition::setUnifiedRepositoryConnectType, true},
    {"prefix", &Definition::getUnifiedRepositoryPrefix, &Definition::setUnifiedRepositoryPrefix, false},
    {"unified name", &Definition::getUnifiedRepositoryName, &Definition::setUnifiedRepositoryName, true},
    {"version", &Definition::getUnifiedRepositoryVersion, &Definition::setUnifiedRepositoryVersion, true},
    {"filename", &Definition::getFilename, &Definition::setFilename, false},
    {"log file", &Definition::getVaultLogFile, &Definition::setVaultLogFile, false},
};
static_assert(std::size(savedTextFields) == definitionTextCount);
constexpr TextField repositoryId = {"repository id", &Definition::getRepositoryId,
                                    &Definition::setRepositoryId, true};

// Every field holds a value of its own.
void fill(Definition& definition) {
  for (const auto& field : savedTextFields)
    (definition.*field.set)(field.name);
  definition.setUnifiedRepositoryConnectType("GRVS");
  definition.setUnifiedConnectionType(QvUnifiedReposConnectFile);
  definition.setType(QvReposConfigTypeUser);
  definition.setActive(false);
  definition.setRepositoryId("42");
}

void expectCopy(Definition& copy, Definition& source) {
  for (const auto& field : savedTextFields)
    EXPECT_EQ((copy.*field.get)(), (source.*field.get)()) << field.name;
  EXPECT_EQ(copy.getType(), source.getType());
  EXPECT_EQ(copy.isActive(), source.isActive());
  EXPECT_TRUE(copy.getRepositoryId().isNull());
}

TEST(DefinitionRecord, StartsActiveSystemWideAndReachedThroughOdbc) {
  QvReposConfigurationImpl definition;
  EXPECT_TRUE(definition.isActive());
  EXPECT_EQ(definition.getType(), QvReposConfigTypeSystem);
  EXPECT_EQ(definition.getUnifiedConnectionType(), QvUnifiedReposConnectODBC);
}

TEST(DefinitionRecord, StartsWithNullAndEmptyTexts) {
  QvReposConfigurationImpl definition;
  for (const auto& field : savedTextFields) {
    EXPECT_TRUE((definition.*field.get)().isEmpty()) << field.name;
    EXPECT_EQ((definition.*field.get)().isNull(), field.isNullAtFirst) << field.name;
  }
  EXPECT_TRUE(definition.getRepositoryId().isNull());
}

TEST(DefinitionRecord, EachTextSetterReplacesItsFieldAlone) {
  for (const auto& changed : savedTextFields) {
    QvReposConfigurationImpl definition;
    fill(definition);
    (definition.*changed.set)("something else");
    for (const auto& field : savedTextFields)
      EXPECT_EQ((definition.*field.get)() == "something else", field.get == changed.get)
          << changed.name << " changed " << field.name;
    EXPECT_EQ(definition.getRepositoryId(), "42");
  }
}

TEST(DefinitionRecord, KeepsNullAndEmptyTextsApart) {
  QvReposConfigurationImpl definition;
  fill(definition);
  for (const auto& field : savedTextFields) {
    (definition.*field.set)(QvbString());
    EXPECT_TRUE((definition.*field.get)().isNull()) << field.name;
    (definition.*field.set)("");
    EXPECT_FALSE((definition.*field.get)().isNull()) << field.name;
  }
}

TEST(DefinitionRecord, KeepsTheRepositoryId) {
  QvReposConfigurationImpl definition;
  (definition.*repositoryId.set)("7");
  EXPECT_EQ((definition.*repositoryId.get)(), "7");
}

TEST(DefinitionRecord, KeepsTypeAndActiveFlagEvenOutsideTheEnumeration) {
  QvReposConfigurationImpl definition;
  definition.setType(static_cast<QvReposConfigType>(7));
  definition.setActive(false);
  definition.setUnifiedConnectionType(static_cast<QvUnifiedReposConnectType>(9));
  EXPECT_EQ(static_cast<int>(definition.getType()), 7);
  EXPECT_FALSE(definition.isActive());
  EXPECT_EQ(static_cast<int>(definition.getUnifiedConnectionType()), 9);
}

TEST(DefinitionRecord, ConnectionTypeAndItsTextAreKeptApart) {
  QvReposConfigurationImpl definition;
  definition.setUnifiedRepositoryConnectType("GRVS");
  EXPECT_EQ(definition.getUnifiedConnectionType(), QvUnifiedReposConnectODBC);
  definition.setUnifiedConnectionType(QvUnifiedReposConnectFile);
  EXPECT_EQ(definition.getUnifiedRepositoryConnectType(), "GRVS");
}

struct TrimCase {
  const char* path;
  const char* trimmed;
  bool changed;
};

constexpr TrimCase trimCases[] = {
    {"", "", false},
    {"/data/vault", "/data/vault", false},
    {"/data/", "/data", true},
    {"/data//", "/data", true},
    {"C:\\v\\", "C:\\v", true},
    {"C:\\v\\\\", "C:\\v", true},
    {"/v\\/", "/v\\", true},
    {"/v\\//", "/v\\", true},
    {"/v/\\", "/v", true},
    {"/v/\\/", "/v/\\", true},
    {"/", "", true},
    {"\\", "", true},
    {"/a b ", "/a b ", false},
    {"a", "a", false},
};

TEST(TrimFileSeparators, RemovesBackSlashesFirstAndSlashesSecond) {
  for (const auto& [path, trimmed, changed] : trimCases) {
    QvbString text(path);
    EXPECT_EQ(trimFileSeperators(&text), changed) << path;
    EXPECT_EQ(text, trimmed) << path;
  }
}

TEST(TrimFileSeparators, IsFalseForANullPath) {
  QvbString null;
  EXPECT_FALSE(trimFileSeperators(nullptr));
  EXPECT_FALSE(trimFileSeperators(&null));
  EXPECT_TRUE(null.isNull());
}

TEST(DefinitionRecord, TrimsTheVaultPathOnce) {
  for (const auto& [path, trimmed, changed] : trimCases) {
    QvReposConfigurationImpl definition;
    definition.setVaultPath(path);
    EXPECT_EQ(definition.getVaultPath(), trimmed) << path;
  }
}

TEST(DefinitionRecord, ACopyHasEverythingButTheRepositoryId) {
  QvReposConfigurationImpl definition;
  fill(definition);
  const Copy copy(definition.copyOf());
  expectCopy(*copy, definition);
  EXPECT_EQ(definition.getRepositoryId(), "42");
}

TEST(DefinitionRecord, ACopyIsIndependent) {
  QvReposConfigurationImpl definition;
  fill(definition);
  const Copy copy(definition.copyOf());
  copy->setName("other");
  copy->setActive(true);
  EXPECT_EQ(definition.getName(), "name");
  EXPECT_FALSE(definition.isActive());
}

TEST(DefinitionRecord, ACopyOfANewRecordKeepsItsNullTexts) {
  QvReposConfigurationImpl definition;
  const Copy copy(definition.copyOf());
  for (const auto& field : savedTextFields)
    EXPECT_EQ((copy.get()->*field.get)().isNull(), field.isNullAtFirst) << field.name;
}

// The source's path ends in a back slash, which the first trim kept.
TEST(DefinitionRecord, ACopyTrimsTheVaultPathAgain) {
  QvReposConfigurationImpl definition;
  definition.setVaultPath("/v\\/");
  EXPECT_EQ(Copy(definition.copyOf())->getVaultPath(), "/v");
}

TEST(DefinitionRecord, ACopyTakesItsConnectionTypeFromTheText) {
  const struct {
    QvbString text;
    QvUnifiedReposConnectType source;
    QvUnifiedReposConnectType copy;
  } cases[] = {
      {"File", QvUnifiedReposConnectGRVS, QvUnifiedReposConnectFile},
      {"ODBC", QvUnifiedReposConnectGRVS, QvUnifiedReposConnectODBC},
      {"GRVS", QvUnifiedReposConnectFile, QvUnifiedReposConnectGRVS},
      {"fILE", QvUnifiedReposConnectGRVS, QvUnifiedReposConnectFile},
      {"odbc", QvUnifiedReposConnectFile, QvUnifiedReposConnectODBC},
      {"grvs", QvUnifiedReposConnectFile, QvUnifiedReposConnectGRVS},
      {"Oracle", QvUnifiedReposConnectGRVS, QvUnifiedReposConnectODBC},
      {"", QvUnifiedReposConnectGRVS, QvUnifiedReposConnectGRVS},
      {QvbString(), QvUnifiedReposConnectFile, QvUnifiedReposConnectFile},
      {QvbString(), static_cast<QvUnifiedReposConnectType>(9), static_cast<QvUnifiedReposConnectType>(9)},
  };
  for (const auto& [connectType, source, expected] : cases) {
    QvReposConfigurationImpl definition;
    definition.setUnifiedRepositoryConnectType(connectType);
    definition.setUnifiedConnectionType(source);
    const Copy copy(definition.copyOf());
    EXPECT_EQ(copy->getUnifiedConnectionType(), expected) << connectType;
    EXPECT_EQ(copy->getUnifiedRepositoryConnectType(), connectType);
  }
}

TEST(DefinitionRecord, KeepsItsVaultPathWhenMemoryIsShortForAnother) {
  QvReposConfigurationImpl record;
  record.setVaultPath("/srv/old");
  const QvbString path("/srv/new/\\");
  const auto setPath = [&] {
    record.setVaultPath(path);
    return true;
  };
  EXPECT_EQ(withEverMoreMemory(setPath, [&] { EXPECT_EQ(record.getVaultPath(), "/srv/old"); }), 2);
  QvbString whole("/srv/new/\\");
  EXPECT_EQ(withEverMoreMemory([&] { return trimFileSeperators(&whole); }, [&] { EXPECT_EQ(whole, path); }),
            2);
  EXPECT_EQ(whole, "/srv/new");
}

TEST(DefinitionRecord, ConnectionTypesHaveNames) {
  EXPECT_STREQ(getUnifiedReposConnectTypeName(QvUnifiedReposConnectFile), "File");
  EXPECT_STREQ(getUnifiedReposConnectTypeName(QvUnifiedReposConnectODBC), "ODBC");
  EXPECT_STREQ(getUnifiedReposConnectTypeName(QvUnifiedReposConnectGRVS), "GRVS");
  EXPECT_STREQ(getUnifiedReposConnectTypeName(static_cast<QvUnifiedReposConnectType>(3)), "");
}

TEST(DefinitionRecord, ThePrefixSplitsAtItsFirstDot) {
  const struct {
    QvbString whole;
    QvbString prefix;
    QvbString schema;
  } cases[] = {
      {"", "", {}},          {QvbString(), QvbString(), {}},
      {"QV_", "QV_", {}},    {"dbo.QV_", "QV_", "dbo"},
      {"a.b.c", "b.c", "a"}, {".QV_", "QV_", ""},
      {"dbo.", "", "dbo"},   {".", "", ""},
  };
  for (const auto& [whole, prefix, schema] : cases) {
    QvReposConfigurationImpl definition;
    definition.setUnifiedRepositoryPrefix(whole);
    QvbString actualPrefix("old");
    QvbString actualSchema("old");
    definition.parseUnifiedRepositoryPrefixSchema(&actualPrefix, &actualSchema);
    EXPECT_EQ(actualPrefix, prefix) << whole;
    EXPECT_EQ(actualSchema, schema) << whole;
    EXPECT_EQ(actualSchema.isNull(), schema.isNull()) << whole;
  }
}

using List = Released<QvReposConfigurationListImpl>;

List newList() { return List(new QvReposConfigurationListImpl); }

void addNamed(QvReposConfigurationListImpl& list, const char* name) {
  QvReposConfigurationImpl definition;
  definition.setName(name);
  EXPECT_TRUE(list.addRow());
  list.setLastRowElement(&definition);
}

List listOf(std::initializer_list<const char*> names) {
  auto list = newList();
  for (const auto* name : names)
    addNamed(*list, name);
  return list;
}

// The names from the cursor on.
std::vector<std::string> readOn(QvReposConfigurationList& list) {
  std::vector<std::string> names;
  while (list.next())
    names.push_back(str(Copy(list.getValue())->getName()));
  return names;
}

using Names = std::vector<std::string>;

TEST(DefinitionList, AnEmptyOneHasNoRows) {
  const auto list = newList();
  EXPECT_EQ(list->getValue(), nullptr);
  EXPECT_FALSE(list->next());
  EXPECT_FALSE(list->next());
  EXPECT_EQ(list->getValue(), nullptr);
}

TEST(DefinitionList, IsReadRowByRow) {
  const auto list = listOf({"a", "b", "c"});
  EXPECT_EQ(list->getValue(), nullptr) << "before the first row";
  EXPECT_EQ(readOn(*list), (Names{"a", "b", "c"}));
  EXPECT_FALSE(list->next());
  EXPECT_EQ(list->getValue(), nullptr) << "past the last row";
}

TEST(DefinitionList, StaysAtItsEndWhateverIsAppended) {
  const auto list = listOf({"a"});
  EXPECT_EQ(readOn(*list), Names{"a"});
  addNamed(*list, "b");
  EXPECT_FALSE(list->next());
}

TEST(DefinitionList, HasOneColumn) {
  const auto list = listOf({"a"});
  ASSERT_TRUE(list->next());
  EXPECT_NE(Copy(list->getValue(0)), nullptr);
  EXPECT_EQ(list->getValue(1), nullptr);
  EXPECT_EQ(list->getValue(static_cast<unsigned long>(-1)), nullptr);
}

TEST(DefinitionList, HandsOutCopies) {
  const auto list = listOf({"a"});
  ASSERT_TRUE(list->next());
  const Copy first(list->getValue());
  first->setName("changed");
  EXPECT_EQ(Copy(list->getValue())->getName(), "a");
}

TEST(DefinitionList, ANewRowIsABlankDefinition) {
  const auto list = newList();
  EXPECT_TRUE(list->addRow());
  ASSERT_TRUE(list->next());
  const Copy row(list->getValue());
  QvReposConfigurationImpl blank;
  expectCopy(*row, blank);
  EXPECT_EQ(row->getUnifiedConnectionType(), QvUnifiedReposConnectODBC);
}

TEST(DefinitionList, ARowTakesOverWhatIsSaved) {
  QvReposConfigurationImpl definition;
  fill(definition);
  const auto list = newList();
  list->addRow();
  list->setLastRowElement(&definition);
  ASSERT_TRUE(list->next());
  const Copy row(list->getValue());
  expectCopy(*row, definition);
  EXPECT_EQ(row->getUnifiedConnectionType(), QvUnifiedReposConnectGRVS) << "as the text says";
}

TEST(DefinitionList, ARowDoesNotTakeOverTheConnectionType) {
  QvReposConfigurationImpl definition;
  definition.setUnifiedConnectionType(QvUnifiedReposConnectGRVS);
  const auto list = newList();
  list->addRow();
  list->setLastRowElement(&definition);
  ASSERT_TRUE(list->next());
  EXPECT_EQ(Copy(list->getValue())->getUnifiedConnectionType(), QvUnifiedReposConnectODBC);
}

TEST(DefinitionList, AppendsARowAsAddingAndSettingItDo) {
  QvReposConfigurationImpl definition;
  fill(definition);
  const auto list = listOf({"a"});
  list->append(&definition);
  EXPECT_EQ(readOn(*list), (Names{"a", "name"}));
}

TEST(DefinitionList, OnlyTheLastRowIsSet) {
  const auto list = listOf({"a", "b"});
  QvReposConfigurationImpl definition;
  definition.setName("c");
  list->setLastRowElement(&definition);
  EXPECT_EQ(readOn(*list), (Names{"a", "c"}));
}

TEST(DefinitionList, SettingTheLastRowOfAnEmptyOneLeavesItEmpty) {
  const auto list = newList();
  QvReposConfigurationImpl definition;
  list->setLastRowElement(&definition);
  EXPECT_FALSE(list->next());
}

TEST(DefinitionList, SettingARowToNoDefinitionLeavesIt) {
  const auto list = listOf({"a"});
  list->setLastRowElement(nullptr);
  EXPECT_EQ(readOn(*list), Names{"a"});
}

TEST(DefinitionList, AddingARowDoesNotMoveTheCursor) {
  const auto list = listOf({"a", "b"});
  ASSERT_TRUE(list->next());
  addNamed(*list, "c");
  EXPECT_EQ(Copy(list->getValue())->getName(), "a");
  EXPECT_EQ(readOn(*list), (Names{"b", "c"}));
}

TEST(DefinitionList, CopiesAllRowsOfAnotherOne) {
  const auto source = listOf({"b", "c"});
  const auto list = listOf({"a"});
  EXPECT_TRUE(list->copyList(source.get()));
  EXPECT_EQ(readOn(*list), (Names{"a", "b", "c"}));
}

TEST(DefinitionList, CopiesFromWhereTheCursorOfTheSourceStands) {
  const auto source = listOf({"a", "b", "c"});
  ASSERT_TRUE(source->next());
  ASSERT_TRUE(source->next());
  const auto list = newList();
  EXPECT_TRUE(list->copyList(source.get()));
  EXPECT_EQ(readOn(*list), Names{"c"});
}

TEST(DefinitionList, CopiedIntoItselfHasTheRowsThatWereThereTwice) {
  const auto list = listOf({"a", "b"});
  EXPECT_TRUE(list->copyList(list.get()));
  EXPECT_EQ(readOn(*list), (Names{"a", "b", "a", "b"}));
  const auto rest = listOf({"a", "b", "c"});
  ASSERT_TRUE(rest->next());
  EXPECT_TRUE(rest->copyList(rest.get()));
  EXPECT_EQ(readOn(*rest), (Names{"a", "b", "c", "b", "c"}));
}

TEST(DefinitionList, StartsAgainAfterCopyingIntoIt) {
  const auto list = listOf({"a"});
  EXPECT_EQ(readOn(*list), Names{"a"});
  EXPECT_TRUE(list->copyList(listOf({"b"}).get()));
  EXPECT_EQ(readOn(*list), (Names{"a", "b"}));
}

TEST(DefinitionList, CopiedRowsAreIndependentOfTheSource) {
  auto source = listOf({"a"});
  const auto list = newList();
  EXPECT_TRUE(list->copyList(source.get()));
  source.reset();
  EXPECT_EQ(readOn(*list), Names{"a"});
}

// Rows share blocks of memory, so the first ones may still find room.
TEST(DefinitionList, AddsNoRowWhenMemoryIsShort) {
  const auto list = listOf({"a"});
  std::size_t added = 0;
  Allocations::left = 0;
  while (added < 1000 && list->addRow())
    ++added;
  Allocations::left = -1;
  EXPECT_LT(added, 1000U);
  EXPECT_EQ(readOn(*list).size(), 1 + added);
}

// Hands out rows without end; memory runs short after the tenth.
class EndlessList final : public QvReposConfigurationList {
public:
  bool next() override { return true; }
  QvReposConfiguration* getValue() override {
    Allocations::left = -1;
    auto* row = new QvReposConfigurationImpl;
    if (++m_reads >= 10)
      Allocations::left = 0;
    return row;
  }
  void release() override {}
  bool addRow() override { return false; }
  void setLastRowElement(QvReposConfiguration*) override {}

private:
  int m_reads = 0;
};

TEST(DefinitionList, KeepsTheRowsCopiedBeforeMemoryRanShort) {
  EndlessList source;
  const auto list = newList();
  const bool copied = list->copyList(&source);
  Allocations::left = -1;
  EXPECT_FALSE(copied);
  EXPECT_GE(readOn(*list).size(), 10U);
}

TEST(DefinitionList, HasWholeRowsAloneWhereverMemoryRunsShortInACopy) {
  const Names names{"a", "b", "c"};
  bool copied = false;
  for (long allocations = 0; !copied; ++allocations) {
    const auto source = listOf({"a", "b", "c"});
    const auto list = newList();
    Allocations::left = allocations;
    EXPECT_NO_THROW(copied = list->copyList(source.get()));
    Allocations::left = -1;
    const auto rows = readOn(*list);
    EXPECT_EQ(rows, Names(names.begin(), names.begin() + static_cast<std::ptrdiff_t>(rows.size())));
  }
}

TEST(DefinitionList, LeavesARowAsItWasWhenMemoryIsShortForAnother) {
  QvReposConfigurationImpl source;
  source.setName("b");
  source.setVaultPath("/srv/b\\/"); // of which a copy has to cut another character
  const auto list = listOf({"a"});
  const auto setRow = [&] {
    list->setLastRowElement(&source);
    return true;
  };
  EXPECT_EQ(withEverMoreMemory(setRow, [&] { EXPECT_EQ(readOn(*list), Names{"a"}); }), 1);
}

} // namespace
