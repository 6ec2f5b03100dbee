#include "qvreposconfigfile.h"

#include "support/allocations.h"
#include "support/tempdir.h"
#include "support/textio.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <algorithm>
#include <iterator>

namespace {

using Content = DefinitionFile::Content;

constexpr const char* declaration = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";

class DefinitionFormat : public ::testing::Test {
protected:
  std::string write(QvReposConfiguration& definition) const {
    QvbString error("untouched");
    EXPECT_TRUE(writeConfigurationContents(&definition, text(m_dir / "x.rcf"), &error));
    EXPECT_EQ(error, "untouched");
    return m_dir.read("x.rcf");
  }
  DefinitionFilePtr read(const std::string& xml) const {
    return readDefinitionFile(text(m_dir.write("x.rcf", xml)), QvReposConfigTypeUser);
  }
  // What is read from a file with these children of the root.
  DefinitionFilePtr readFields(const std::string& children) const {
    return read("<VaultRepositoryInfo Name='n'>" + children + "</VaultRepositoryInfo>");
  }

  TempDir m_dir;
};

TEST_F(DefinitionFormat, WritesAttributesAndElementsInTheirOrder) {
  QvReposConfigurationImpl definition;
  definition.setName("Sales");
  definition.setVaultPath("/data/vault/");
  definition.setUnifiedRepositoryConnect("DSN=Sales;QVXTYPE=GRVS;");
  definition.setUnifiedConnectionType(QvUnifiedReposConnectGRVS);
  definition.setUnifiedRepositoryPrefix("dbo.QV_");
  definition.setVaultLogFile("/var/log/sales.log");
  definition.setUnifiedRepositoryName("Sales store");
  definition.setUnifiedRepositoryVersion("2.1");
  definition.setRepositoryId("not written");
  definition.setActive(false);
  EXPECT_EQ(write(definition),
            std::string(declaration) +
                R"(<VaultRepositoryInfo Name="Sales" RepositoryType="Vault" IsActive="false">
  <VaultPath>/data/vault</VaultPath>
  <UnifiedRepositoryConnect>DSN=Sales;QVXTYPE=GRVS;</UnifiedRepositoryConnect>
  <UnifiedRepositoryPrefix>dbo.QV_</UnifiedRepositoryPrefix>
  <VaultLogFile>/var/log/sales.log</VaultLogFile>
  <UnifiedRepositoryName>Sales store</UnifiedRepositoryName>
  <UnifiedRepositoryType>GRVS</UnifiedRepositoryType>
  <UnifiedRepositoryVersion>2.1</UnifiedRepositoryVersion>
</VaultRepositoryInfo>
)");
}

TEST_F(DefinitionFormat, WritesEmptyElementsForMissingValues) {
  QvReposConfigurationImpl definition;
  EXPECT_EQ(write(definition), std::string(declaration) +
                                   R"(<VaultRepositoryInfo Name="" RepositoryType="Vault" IsActive="true">
  <VaultPath/>
  <UnifiedRepositoryConnect/>
  <UnifiedRepositoryPrefix/>
  <VaultLogFile/>
  <UnifiedRepositoryName/>
  <UnifiedRepositoryType>ODBC</UnifiedRepositoryType>
  <UnifiedRepositoryVersion/>
</VaultRepositoryInfo>
)");
}

TEST_F(DefinitionFormat, TheNameStandsInForAMissingUnifiedName) {
  for (const auto& unifiedName : {QvbString(), QvbString("")}) {
    QvReposConfigurationImpl definition;
    definition.setName("Sales");
    definition.setUnifiedRepositoryName(unifiedName);
    EXPECT_NE(write(definition).find("<UnifiedRepositoryName>Sales</UnifiedRepositoryName>"),
              std::string::npos);
  }
}

TEST_F(DefinitionFormat, WritesTheConnectionTypeAndNotItsText) {
  const struct {
    int type;
    const char* element;
  } cases[] = {{0, "<UnifiedRepositoryType>File</UnifiedRepositoryType>"},
               {1, "<UnifiedRepositoryType>ODBC</UnifiedRepositoryType>"},
               {2, "<UnifiedRepositoryType>GRVS</UnifiedRepositoryType>"},
               {3, "<UnifiedRepositoryType/>"},
               {-1, "<UnifiedRepositoryType/>"}};
  for (const auto& [type, element] : cases) {
    QvReposConfigurationImpl definition;
    definition.setUnifiedRepositoryConnectType("other");
    definition.setUnifiedConnectionType(static_cast<QvUnifiedReposConnectType>(type));
    EXPECT_NE(write(definition).find(element), std::string::npos) << element;
  }
}

TEST_F(DefinitionFormat, SaysWhichFileCannotBeWritten) {
  QvReposConfigurationImpl definition;
  const auto path = text(m_dir / "missing/x.rcf");
  QvbString error;
  EXPECT_FALSE(writeConfigurationContents(&definition, path, &error));
  EXPECT_EQ(str(error), "Error opening file " + str(path) + " for writing content.");
  EXPECT_FALSE(writeConfigurationContents(&definition, path, nullptr));
}

TEST_F(DefinitionFormat, ADocumentThatCannotBeStartedFailsWithoutAMessage) {
  QvReposConfigurationImpl definition;
  const auto path = text(m_dir / "x.rcf");
  QvbString error("untouched");
  Allocations::left = 1; // for the name of the root
  const bool written = writeConfigurationContents(&definition, path, &error);
  Allocations::left = -1;
  EXPECT_FALSE(written);
  EXPECT_EQ(str(error), "untouched");
}

TEST_F(DefinitionFormat, ReadsEveryField) {
  const auto file = read("<VaultRepositoryInfo Name='Sales' RepositoryType='Vault' IsActive='false'>"
                         "<VaultPath>/vault/</VaultPath>"
                         "<UnifiedRepositoryConnect>DSN=s;</UnifiedRepositoryConnect>"
                         "<UnifiedRepositoryPrefix>dbo.p</UnifiedRepositoryPrefix>"
                         "<VaultLogFile>/log</VaultLogFile>"
                         "<UnifiedRepositoryName>u</UnifiedRepositoryName>"
                         "<UnifiedRepositoryType>GRVS</UnifiedRepositoryType>"
                         "<UnifiedRepositoryVersion>2</UnifiedRepositoryVersion>"
                         "</VaultRepositoryInfo>");
  ASSERT_TRUE(file);
  EXPECT_EQ(file->content, Content::Definition);
  auto& definition = file->definition;
  EXPECT_EQ(definition.getName(), "Sales");
  EXPECT_FALSE(definition.isActive());
  EXPECT_EQ(definition.getVaultPath(), "/vault");
  EXPECT_EQ(definition.getUnifiedRepositoryConnect(), "DSN=s;");
  EXPECT_EQ(definition.getUnifiedRepositoryPrefix(), "dbo.p");
  EXPECT_EQ(definition.getVaultLogFile(), "/log");
  EXPECT_EQ(definition.getUnifiedRepositoryName(), "u");
  EXPECT_EQ(definition.getUnifiedRepositoryConnectType(), "GRVS");
  EXPECT_EQ(definition.getUnifiedConnectionType(), QvUnifiedReposConnectGRVS);
  EXPECT_EQ(definition.getUnifiedRepositoryVersion(), "2");
  EXPECT_EQ(definition.getType(), QvReposConfigTypeUser);
  EXPECT_EQ(definition.getFilename(), text(m_dir / "x.rcf"));
  EXPECT_TRUE(definition.getRepositoryId().isNull());
}

TEST_F(DefinitionFormat, TheTypeIsThatOfTheFolder) {
  const auto path = text(m_dir.write("x.rcf", "<VaultRepositoryInfo/>"));
  EXPECT_EQ(readDefinitionFile(path, QvReposConfigTypeSystem)->definition.getType(), QvReposConfigTypeSystem);
  EXPECT_EQ(readDefinitionFile(path, QvReposConfigTypeUser)->definition.getType(), QvReposConfigTypeUser);
}

TEST_F(DefinitionFormat, AMissingNameIsNullAndAnEmptyOneEmpty) {
  EXPECT_TRUE(read("<VaultRepositoryInfo/>")->definition.getName().isNull());
  const auto named = read("<VaultRepositoryInfo Name=''/>");
  EXPECT_TRUE(named->definition.getName().isEmpty());
  EXPECT_FALSE(named->definition.getName().isNull());
}

TEST_F(DefinitionFormat, OnlyTheExactWordFalseMakesADefinitionInactive) {
  const struct {
    const char* attribute;
    bool active;
  } cases[] = {{"IsActive='false'", false}, {"IsActive='FALSE'", true}, {"IsActive='False'", true},
               {"IsActive=' false'", true}, {"IsActive='true'", true},  {"IsActive='0'", true},
               {"IsActive='no'", true},     {"IsActive=''", true},      {"", true},
               {"isactive='false'", true},  {"ISACTIVE='false'", true}};
  for (const auto& [attribute, active] : cases)
    EXPECT_EQ(read("<VaultRepositoryInfo " + std::string(attribute) + "/>")->definition.isActive(), active)
        << attribute;
}

TEST_F(DefinitionFormat, ElementNamesAreReadInAnyCase) {
  const auto file = read("<vaultrepositoryinfo Name='n'><VAULTPATH>/v</VAULTPATH>"
                         "<unifiedrepositorytype>grvs</unifiedrepositorytype></vaultrepositoryinfo>");
  EXPECT_EQ(file->content, Content::Definition);
  EXPECT_EQ(file->definition.getVaultPath(), "/v");
  EXPECT_EQ(file->definition.getUnifiedRepositoryConnectType(), "grvs");
  EXPECT_EQ(file->definition.getUnifiedConnectionType(), QvUnifiedReposConnectGRVS);
}

TEST_F(DefinitionFormat, UnknownElementsAreIgnored) {
  const auto file = readFields("<Other>1</Other><VaultPath>/v</VaultPath><VaultPaths>2</VaultPaths>");
  EXPECT_EQ(file->definition.getVaultPath(), "/v");
}

TEST_F(DefinitionFormat, ARepeatedElementOverwritesTheEarlierOne) {
  const auto file =
      readFields("<VaultPath>/a</VaultPath><UnifiedRepositoryType>File</UnifiedRepositoryType>"
                 "<vaultpath>/b</vaultpath><UnifiedRepositoryType>GRVS</UnifiedRepositoryType>");
  EXPECT_EQ(file->definition.getVaultPath(), "/b");
  EXPECT_EQ(file->definition.getUnifiedRepositoryConnectType(), "GRVS");
  EXPECT_EQ(file->definition.getUnifiedConnectionType(), QvUnifiedReposConnectGRVS);
}

TEST_F(DefinitionFormat, AnEmptyElementOverwritesTheEarlierOne) {
  const auto file = readFields("<VaultLogFile>/a</VaultLogFile><VaultLogFile/>");
  EXPECT_TRUE(file->definition.getVaultLogFile().isEmpty());
}

TEST_F(DefinitionFormat, FieldsWithoutAnElementAreThoseOfANewRecord) {
  const auto file = read("<VaultRepositoryInfo/>");
  auto& definition = file->definition;
  EXPECT_TRUE(definition.getVaultPath().isNull());
  EXPECT_FALSE(definition.getUnifiedRepositoryConnect().isNull());
  EXPECT_TRUE(definition.getUnifiedRepositoryName().isNull());
}

TEST_F(DefinitionFormat, ADefinitionOneLevelDownGivesTheAttributesAndTheRootTheElements) {
  const auto file = read("<Definitions Name='outer' IsActive='true'><VaultPath>/root</VaultPath>"
                         "<VaultRepositoryInfo Name='first' IsActive='false'><VaultPath>/nested</VaultPath>"
                         "</VaultRepositoryInfo><VaultRepositoryInfo Name='second'/>"
                         "<UnifiedRepositoryType>File</UnifiedRepositoryType></Definitions>");
  EXPECT_EQ(file->content, Content::Definition);
  EXPECT_EQ(file->definition.getName(), "first");
  EXPECT_FALSE(file->definition.isActive());
  EXPECT_EQ(file->definition.getVaultPath(), "/root");
  EXPECT_EQ(file->definition.getUnifiedConnectionType(), QvUnifiedReposConnectFile);
}

TEST_F(DefinitionFormat, AnotherDocumentIsNoDefinition) {
  for (const auto* xml :
       {"<html/>", "<a><b><VaultRepositoryInfo Name='too deep'/></b></a>", "<VaultRepositoryInf/>"}) {
    const auto file = read(xml);
    ASSERT_TRUE(file) << xml;
    EXPECT_EQ(file->content, Content::NoDefinition) << xml;
    EXPECT_EQ(file->definition.getFilename(), text(m_dir / "x.rcf"));
  }
}

TEST_F(DefinitionFormat, ATextThatIsNotXmlIsMalformed) {
  for (const auto* xml :
       {"", "Sales", "<VaultRepositoryInfo>", "<VaultRepositoryInfo/><VaultRepositoryInfo/>"})
    EXPECT_EQ(read(xml)->content, Content::Malformed) << xml;
}

TEST_F(DefinitionFormat, AFileThatCannotBeReadSaysWhy) {
  const auto missing = readDefinitionFile(text(m_dir / "missing.rcf"), QvReposConfigTypeSystem);
  EXPECT_EQ(missing->content, Content::Unreadable);
  EXPECT_EQ(str(missing->reason), m_dir / "missing.rcf" + ": not found");
  const auto folder = readDefinitionFile(text(m_dir.path().string()), QvReposConfigTypeSystem);
  EXPECT_EQ(folder->content, Content::Unreadable);
  EXPECT_EQ(str(folder->reason), m_dir.path().string() + ": not supported");
}

TEST_F(DefinitionFormat, TheConnectionTypeFollowsItsText) {
  const struct {
    const char* element;
    QvbString connectType;
    QvUnifiedReposConnectType type;
  } cases[] = {
      {"<UnifiedRepositoryType>File</UnifiedRepositoryType>", "File", QvUnifiedReposConnectFile},
      {"<UnifiedRepositoryType>ODBC</UnifiedRepositoryType>", "ODBC", QvUnifiedReposConnectODBC},
      {"<UnifiedRepositoryType>GRVS</UnifiedRepositoryType>", "GRVS", QvUnifiedReposConnectGRVS},
      {"<UnifiedRepositoryType>file</UnifiedRepositoryType>", "file", QvUnifiedReposConnectFile},
      {"<UnifiedRepositoryType>Oracle</UnifiedRepositoryType>", "Oracle", QvUnifiedReposConnectODBC},
      {"<UnifiedRepositoryType> File</UnifiedRepositoryType>", " File", QvUnifiedReposConnectODBC},
      {"<UnifiedRepositoryType/>", "", QvUnifiedReposConnectODBC},
  };
  for (const auto& [element, connectType, type] : cases) {
    const auto file = readFields("<UnifiedRepositoryConnect>DSN=a;QVXTYPE=GRVS;</UnifiedRepositoryConnect>" +
                                 std::string(element));
    EXPECT_EQ(file->definition.getUnifiedRepositoryConnectType(), connectType) << element;
    EXPECT_EQ(file->definition.getUnifiedConnectionType(), type) << element;
  }
}

TEST_F(DefinitionFormat, WithoutATypeTheConnectionStringDecides) {
  const struct {
    const char* connect;
    const char* connectType;
    QvUnifiedReposConnectType type;
  } cases[] = {
      {"DSN=Sales;QVXTYPE=GRVS;", "GRVS", QvUnifiedReposConnectGRVS},
      {"DSN=Sales;QVXTYPE=ODBC;", "ODBC", QvUnifiedReposConnectODBC},
      {"DSN=Sales;QVXTYPE=grvs;", "ODBC", QvUnifiedReposConnectODBC},
      {"DSN=Sales;QVXTYPE=Oracle", "ODBC", QvUnifiedReposConnectODBC},
      {"DSN=Sales;QVXTYPE=;", "File", QvUnifiedReposConnectFile},
      {"DSN=Sales;", "File", QvUnifiedReposConnectFile},
      {"/data/sales.db", "File", QvUnifiedReposConnectFile},
      {"", "File", QvUnifiedReposConnectFile},
  };
  for (const auto& [connect, connectType, type] : cases) {
    const auto file =
        readFields("<UnifiedRepositoryConnect>" + std::string(connect) + "</UnifiedRepositoryConnect>");
    EXPECT_EQ(file->definition.getUnifiedRepositoryConnectType(), connectType) << connect;
    EXPECT_EQ(file->definition.getUnifiedConnectionType(), type) << connect;
  }
}

TEST_F(DefinitionFormat, WithoutATypeAndAConnectionStringItIsFileBased) {
  const auto file = read("<VaultRepositoryInfo/>");
  EXPECT_EQ(file->definition.getUnifiedRepositoryConnectType(), "File");
  EXPECT_EQ(file->definition.getUnifiedConnectionType(), QvUnifiedReposConnectFile);
}

TEST_F(DefinitionFormat, TheTextOfAnElementIsItsOwn) {
  const auto file = readFields("<VaultLogFile>/a<x>nested</x>/b<![CDATA[&]]>&amp;</VaultLogFile>");
  EXPECT_EQ(file->definition.getVaultLogFile(), "/a/b&&");
}

TEST_F(DefinitionFormat, ADocumentTypeDeclarationIsRefused) {
  const auto file = read("<!DOCTYPE VaultRepositoryInfo [<!ENTITY e SYSTEM 'file:///etc/passwd'>]>"
                         "<VaultRepositoryInfo Name='&e;'/>");
  EXPECT_EQ(file->content, Content::Malformed);
}

// A text of characters that XML can carry, those that need care more often than others.
rc::Gen<std::string> genValue() {
  const auto special = rc::gen::element<std::string>(
      "\r", "\n", "\t", "\r\n", "\"", "'", "&", "<", ">", "]]>", " ", "&amp;", "<!--", "\\", "/", ".",
      "\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x93\xA6", "\xEF\xBF\xBD", "\xC2\x85", "\xE2\x80\xA8");
  const auto plain = rc::gen::map(rc::gen::inRange(0x20, 0x7F),
                                  [](int character) { return std::string(1, static_cast<char>(character)); });
  const auto piece = rc::gen::oneOf(special, plain);
  return rc::gen::map(rc::gen::container<std::vector<std::string>>(piece), [](const auto& pieces) {
    std::string value;
    for (const auto& each : pieces)
      value += each;
    return value;
  });
}

using TextGetter = QvbString (QvReposConfiguration::*)();
constexpr TextGetter writtenTexts[] = {
    &QvReposConfiguration::getName,
    &QvReposConfiguration::getVaultPath,
    &QvReposConfiguration::getUnifiedRepositoryConnect,
    &QvReposConfiguration::getUnifiedRepositoryPrefix,
    &QvReposConfiguration::getVaultLogFile,
    &QvReposConfiguration::getUnifiedRepositoryName,
    &QvReposConfiguration::getUnifiedRepositoryVersion,
};

// A unified name that is given, so that the name does not stand in for it.
void fillWith(QvReposConfiguration& definition, const std::vector<std::string>& values) {
  definition.setName(text(values[0]));
  definition.setVaultPath(text(values[1]));
  definition.setUnifiedRepositoryConnect(text(values[2]));
  definition.setUnifiedRepositoryPrefix(text(values[3]));
  definition.setVaultLogFile(text(values[4]));
  definition.setUnifiedRepositoryName(text(values[5] + "u"));
  definition.setUnifiedRepositoryVersion(text(values[6]));
}

bool readsBackAs(QvReposConfiguration& read, QvReposConfiguration& written) {
  // What is left of a vault path once it is trimmed may end in back slashes, which reading trims.
  auto path = written.getVaultPath();
  trimFileSeperators(&path);
  written.setVaultPath(path);
  return read.isActive() == written.isActive() &&
         read.getUnifiedConnectionType() == written.getUnifiedConnectionType() &&
         read.getUnifiedRepositoryConnectType() ==
             getUnifiedReposConnectTypeName(written.getUnifiedConnectionType()) &&
         std::all_of(std::begin(writtenTexts), std::end(writtenTexts),
                     [&](auto get) { return (read.*get)() == (written.*get)(); });
}

TEST_F(DefinitionFormat, EveryValueReadsBackAsItWas) {
  EXPECT_TRUE(rc::check("every value reads back as it was", [this] {
    QvReposConfigurationImpl definition;
    fillWith(definition, *rc::gen::container<std::vector<std::string>>(7, genValue()));
    definition.setActive(*rc::gen::arbitrary<bool>());
    definition.setUnifiedConnectionType(
        *rc::gen::element(QvUnifiedReposConnectFile, QvUnifiedReposConnectODBC, QvUnifiedReposConnectGRVS));
    write(definition);
    const auto file = readDefinitionFile(text(m_dir / "x.rcf"), QvReposConfigTypeSystem);
    return file && file->content == Content::Definition && readsBackAs(file->definition, definition);
  }));
}

TEST_F(DefinitionFormat, LongValuesReadBackAsTheyWere) {
  std::string value = " ";
  while (value.size() < 100'000)
    value += "a\r\n\t\"<&>]]>\xE2\x82\xAC ";
  QvReposConfigurationImpl definition;
  fillWith(definition, std::vector<std::string>(7, value));
  write(definition);
  const auto file = readDefinitionFile(text(m_dir / "x.rcf"), QvReposConfigTypeSystem);
  ASSERT_TRUE(file);
  EXPECT_TRUE(readsBackAs(file->definition, definition));
}

TEST_F(DefinitionFormat, BlankValuesReadBackAsTheyWere) {
  for (const auto* value : {" ", "\n", "\t", "\r", "  \r\n  ", " a ", "\n\n"}) {
    QvReposConfigurationImpl definition;
    fillWith(definition, std::vector<std::string>(7, value));
    write(definition);
    const auto file = readDefinitionFile(text(m_dir / "x.rcf"), QvReposConfigTypeSystem);
    ASSERT_TRUE(file);
    EXPECT_TRUE(readsBackAs(file->definition, definition)) << testing::PrintToString(std::string(value));
  }
}

} // namespace
