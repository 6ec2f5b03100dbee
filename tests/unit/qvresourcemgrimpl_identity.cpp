#include "qvresourcemgrimpl.h"

#include "support/allocations.h"
#include "support/textio.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <optional>
#include <string>
#include <vector>

namespace {

class Identity : public testing::Test {
protected:
  const Released<QvResourceManager> m_manager{createQvResourceManager()};
  QvbString m_identity = "untouched";
};

// Texts that XML can carry: every character that matters to markup, white space, and more than one byte.
std::string xmlText(const std::vector<unsigned char>& choices) {
  static const char* const pieces[] = {"a",
                                       "Z",
                                       "0",
                                       "\"",
                                       "'",
                                       "&",
                                       "<",
                                       ">",
                                       "\n",
                                       "\t",
                                       "\r",
                                       " ",
                                       "]]>",
                                       "&amp;",
                                       "\xC3\xA4",
                                       "\xE2\x82\xAC",
                                       "<!--",
                                       "\x7F",
                                       "\xF0\x9F\x98\x80",
                                       "=",
                                       "\\",
                                       "&#10;",
                                       "<![CDATA[",
                                       "%s"};
  std::string text;
  for (const auto choice : choices)
    text += pieces[choice % std::size(pieces)];
  return text;
}

// The same, never empty and without the keys and separators of connection strings.
std::string requiredText(const std::vector<unsigned char>& choices) { return "x" + xmlText(choices); }

std::string hugeText() {
  std::string text;
  while (text.size() < 100 * 1024)
    text += "<]]>&\"'\r\n\t\xC3\xA4 text;";
  return text;
}

using Parts = std::vector<QvbString>;

// The parts of a table's identity, "before" where it has none, as the XML document says them; nothing for a text that is no
// such identity.
std::optional<Parts> tableAsDocument(const QvbString& identity) {
  QvDom document;
  if (!document.loadXML(identity))
    return std::nullopt;
  QvDomNode node = document.getRoot();
  while (!node.null() && !qvbEqualsIgnoreCase(node.getName().view(), "tabledatasource"))
    node = node.getFirstChild(false);
  if (node.null())
    return std::nullopt;
  Parts parts;
  for (const char* name : {"dsn", "dsntype", "catalog", "schema", "table"}) {
    const QvbString value = node.getAttributeValue(name);
    parts.push_back(value.isEmpty() ? "before" : value);
  }
  return parts;
}

// The same, as the manager says them.
std::optional<Parts> tableAsIdentity(QvResourceManager& manager, const QvbString& identity) {
  Parts parts(5, "before");
  const bool isTable =
      manager.getTableObjectFromResourceId(identity, &parts[0], &parts[1], &parts[2], &parts[3], &parts[4]);
  EXPECT_TRUE(isTable || parts == Parts(5, "before"));
  return isTable ? std::optional(parts) : std::nullopt;
}

using Choices = std::vector<unsigned char>;

} // namespace

TEST_F(Identity, OfAFileNamesFileAndItsNamePart) {
  QvbString name;
  ASSERT_TRUE(m_manager->generateFileResourceId("/data/in/customers.txt", name, &m_identity));
  EXPECT_EQ(name, "customers.txt");
  EXPECT_EQ(m_identity, "<morvaxeldocument class=\"fileresource\" version=\"1\"><resource>"
                        "<file filename=\"/data/in/customers.txt\" name=\"customers.txt\"/>"
                        "</resource></morvaxeldocument>");
}

TEST_F(Identity, OfAFileKeepsAGivenName) {
  QvbString name = "Customers";
  ASSERT_TRUE(m_manager->generateFileResourceId("/data/c.txt", name, &m_identity));
  EXPECT_EQ(name, "Customers");
  EXPECT_GE(m_identity.find("filename=\"/data/c.txt\" name=\"Customers\""), 0);
}

TEST_F(Identity, OfAFolderIsNamedByItsWholePath) {
  QvbString name;
  ASSERT_TRUE(m_manager->generateFileResourceId("/data/in/", name, &m_identity));
  EXPECT_EQ(name, "/data/in/");
}

TEST_F(Identity, OfATableCarriesTheShortDataSourceName) {
  ASSERT_TRUE(m_manager->generateTableDataSourceResourceId("DSN=Sales;QVXTYPE=ODBC;", "ODBC", "", "dbo",
                                                           "orders", &m_identity));
  EXPECT_EQ(m_identity, "<morvaxeldocument class=\"tableresource\" version=\"1\"><resource>"
                        "<tabledatasource dsn=\"Sales\" dsntype=\"ODBC\" schema=\"dbo\" table=\"orders\"/>"
                        "</resource></morvaxeldocument>");
}

TEST_F(Identity, OfATableOrdersCatalogBeforeSchema) {
  ASSERT_TRUE(m_manager->generateTableDataSourceResourceId("Sales", "", "cat", "dbo", "orders", &m_identity));
  EXPECT_GE(m_identity.find("<tabledatasource dsn=\"Sales\" dsntype=\"\" catalog=\"cat\" schema=\"dbo\" "
                            "table=\"orders\"/>"),
            0);
}

TEST_F(Identity, KeepsADataSourceThatHasNoShortForm) {
  ASSERT_TRUE(m_manager->generateTableDataSourceResourceId("DSN=;", "", "", "", "t", &m_identity));
  EXPECT_GE(m_identity.find("dsn=\"DSN=;\""), 0);
  ASSERT_TRUE(m_manager->generateTableDataSourceResourceId("", "", "", "", "t", &m_identity));
  EXPECT_GE(m_identity.find("<tabledatasource dsn=\"\" dsntype=\"\" table=\"t\"/>"), 0);
}

TEST_F(Identity, OfADataSourceCarriesNameAndType) {
  ASSERT_TRUE(m_manager->generateDataSourceResourceId("DSN=Sales;QVXTYPE=GRVS;", "GRVS", &m_identity));
  EXPECT_EQ(m_identity, "<morvaxeldocument class=\"datasourceresource\" version=\"1\"><resource>"
                        "<datasource dsn=\"Sales\" dsntype=\"GRVS\"/></resource></morvaxeldocument>");
}

TEST_F(Identity, OfAUnifiedObjectLeavesTheRepositoryOut) {
  ASSERT_TRUE(m_manager->generateUnifiedObjectResourceId("Main", "Profile", "42", QvbString(), &m_identity));
  EXPECT_EQ(m_identity, "<morvaxeldocument class=\"unifiedresource\" version=\"1\"><resource>"
                        "<unified type=\"Profile\" id=\"42\" uuid=\"\"/></resource></morvaxeldocument>");
  EXPECT_TRUE(m_manager->generateUnifiedObjectResourceId("", "", "", "uuid", &m_identity));
}

TEST_F(Identity, IsRefusedWithoutItsRequiredPart) {
  for (const QvbString& none : {QvbString(), QvbString("")}) {
    QvbString name;
    EXPECT_FALSE(m_manager->generateFileResourceId(none, name, &m_identity));
    EXPECT_TRUE(name.isNull());
    EXPECT_FALSE(m_manager->generateDataSourceResourceId(none, "ODBC", &m_identity));
    EXPECT_FALSE(m_manager->generateTableDataSourceResourceId("Sales", "ODBC", "c", "s", none, &m_identity));
    EXPECT_FALSE(m_manager->generateUnifiedObjectResourceId("Main", "Profile", none, none, &m_identity));
    EXPECT_EQ(m_identity, "untouched");
  }
}

TEST_F(Identity, KeepsCase) {
  QvbString name = "NaMe";
  ASSERT_TRUE(m_manager->generateFileResourceId("/Data/MiXed.TXT", name, &m_identity));
  EXPECT_GE(m_identity.find("filename=\"/Data/MiXed.TXT\" name=\"NaMe\""), 0);
}

TEST_F(Identity, ReadsBackAnyFile) {
  EXPECT_TRUE(rc::check([&](const Choices& file, const Choices& title) {
    const auto filename = text(requiredText(file));
    auto name = text(requiredText(title));
    QvbString identity, readFilename, readName;
    return m_manager->generateFileResourceId(filename, name, &identity) &&
           m_manager->getFilenameFromResourceId(identity, &readFilename, &readName) &&
           readFilename == filename && readName == name;
  }));
}

TEST_F(Identity, ReadsBackAnyUnifiedObject) {
  EXPECT_TRUE(rc::check([&](const Choices& a, const Choices& b, const Choices& c) {
    const auto type = text(xmlText(a));
    const auto id = text(requiredText(b));
    const auto uuid = text(xmlText(c));
    QvbString identity, readRepository = "mine", readType, readId, readUuid;
    return m_manager->generateUnifiedObjectResourceId("Main", type, id, uuid, &identity) &&
           m_manager->getUnifiedObjectFromResourceId(identity, &readRepository, &readType, &readId,
                                                     &readUuid) &&
           readRepository == "mine" && readType == type && readId == id && readUuid == uuid;
  }));
}

TEST_F(Identity, ReadsBackAnyTable) {
  EXPECT_TRUE(rc::check([&](const Choices& a, const Choices& b, const Choices& c, const Choices& d) {
    const auto dsn = text(xmlText(a));
    const auto catalog = text(xmlText(b));
    const auto schema = text(xmlText(c));
    const auto table = text(requiredText(d));
    QvbString identity, readDsn, readType, readCatalog, readSchema, readTable;
    return m_manager->generateTableDataSourceResourceId(dsn, "GRVS", catalog, schema, table, &identity) &&
           m_manager->getTableObjectFromResourceId(identity, &readDsn, &readType, &readCatalog, &readSchema,
                                                   &readTable) &&
           readDsn == dsn && readType == "GRVS" && readCatalog == catalog && readSchema == schema &&
           readTable == table;
  }));
}

TEST_F(Identity, ReadsBackAnyDataSourceInItsShortForm) {
  EXPECT_TRUE(rc::check([&](const Choices& a, const Choices& b) {
    const auto name = requiredText(a);
    const auto shortName = name.substr(0, name.find(';'));
    const auto dsntype = text(xmlText(b));
    QvbString identity, readDsn, readType;
    return m_manager->generateDataSourceResourceId(text("DSN=" + name + ";"), dsntype, &identity) &&
           m_manager->getDataSourceObjectFromResourceId(identity, &readDsn, &readType) &&
           str(readDsn) == shortName && readType == dsntype;
  }));
}

TEST_F(Identity, ReadsBackLongTexts) {
  const auto filename = text(hugeText());
  QvbString name = filename;
  ASSERT_TRUE(m_manager->generateFileResourceId(filename, name, &m_identity));
  QvbString readFilename, readName;
  ASSERT_TRUE(m_manager->getFilenameFromResourceId(m_identity, &readFilename, &readName));
  EXPECT_TRUE(readFilename == filename);
  EXPECT_TRUE(readName == filename);
}

TEST_F(Identity, OfAnotherKindIsRefusedWithUntouchedOutputs) {
  QvbString name;
  QvbString file, unified, table, dataSource;
  ASSERT_TRUE(m_manager->generateFileResourceId("f", name, &file));
  ASSERT_TRUE(m_manager->generateUnifiedObjectResourceId("", "t", "i", "u", &unified));
  ASSERT_TRUE(m_manager->generateTableDataSourceResourceId("d", "t", "c", "s", "t", &table));
  ASSERT_TRUE(m_manager->generateDataSourceResourceId("d", "t", &dataSource));
  const std::vector<QvbString> identities{file,          unified,  table,  dataSource,    QvbString(),
                                          QvbString(""), "no XML", "<a/>", "<a><b/></a>", "<unclosed>"};
  QvbString a = "a", b = "b", c = "c", d = "d", e = "e";
  for (std::size_t i = 0; i < identities.size(); ++i) {
    const auto& identity = identities[i];
    if (i != 0) {
      EXPECT_FALSE(m_manager->getFilenameFromResourceId(identity, &a, &b)) << identity;
    }
    if (i != 1) {
      EXPECT_FALSE(m_manager->getUnifiedObjectFromResourceId(identity, &a, &b, &c, &d)) << identity;
    }
    if (i != 2) {
      EXPECT_FALSE(m_manager->getTableObjectFromResourceId(identity, &a, &b, &c, &d, &e)) << identity;
    }
    if (i != 3) {
      EXPECT_FALSE(m_manager->getDataSourceObjectFromResourceId(identity, &a, &b)) << identity;
    }
  }
  EXPECT_EQ(str(a) + str(b) + str(c) + str(d) + str(e), "abcde");
}

TEST_F(Identity, MayBeReadIntoItself) {
  QvbString name = "n", dsn = "DSN=Sales;QVXTYPE=ODBC;";
  ASSERT_TRUE(m_manager->generateFileResourceId("/data/c.txt", name, &name));
  ASSERT_TRUE(m_manager->getFilenameFromResourceId(name, &name, &m_identity));
  EXPECT_EQ(name, "/data/c.txt");
  EXPECT_EQ(m_identity, "n");
  ASSERT_TRUE(m_manager->generateTableDataSourceResourceId(dsn, dsn, dsn, dsn, dsn, &dsn));
  QvbString dsntype;
  ASSERT_TRUE(m_manager->getTableObjectFromResourceId(dsn, &dsn, &dsntype, &name, &name, &name));
  EXPECT_EQ(dsn, "Sales");
  EXPECT_EQ(dsntype, "DSN=Sales;QVXTYPE=ODBC;");
  ASSERT_TRUE(m_manager->getNameFromDSN(dsntype, &dsntype));
  EXPECT_EQ(dsntype, "Sales");
  QvbString path = "/data/c.txt", type;
  ASSERT_TRUE(m_manager->getResourceTypeFromFilename(path, &path, &type));
  EXPECT_EQ(path, "c.txt");
}

TEST_F(Identity, IsReadByItsInnerElementAlone) {
  struct Case {
    const char* identity;
    bool found;
  };
  const Case cases[] = {
      {"<file filename='f'/>", true}, // the root itself
      {"<FILE filename='f'/>", true}, // in any case
      {"<any class='tableresource'><thing><deep><file filename='f'/></deep></thing></any>", true},
      {"<any>text<file filename='f'/></any>", true},                   // elements only
      {"<any><first/><file filename='f'/></any>", false},              // first children only
      {"<morvaxeldocument class='fileresource' version='1'/>", false}, // the class is no help
      {"<file FILENAME='f'/>", true},
  };
  for (const auto& [identity, found] : cases) {
    QvbString filename = "mine", name = "mine";
    EXPECT_EQ(m_manager->getFilenameFromResourceId(identity, &filename, &name), found) << identity;
    EXPECT_EQ(name, "mine") << identity;
  }
}

TEST_F(Identity, LeavesOutputsOfMissingAndEmptyAttributesAlone) {
  QvbString filename = "mine", name = "my name";
  EXPECT_TRUE(m_manager->getFilenameFromResourceId("<file filename=\"f\" name=\"\"/>", &filename, &name));
  EXPECT_EQ(filename, "f");
  EXPECT_EQ(name, "my name");
  QvbString dsn = "a", dsntype = "b", catalog = "c", schema = "d", table = "e";
  EXPECT_TRUE(m_manager->getTableObjectFromResourceId("<tabledatasource schema=\"s\" dsn=\"\"/>", &dsn,
                                                      &dsntype, &catalog, &schema, &table));
  EXPECT_EQ(str(dsn) + str(dsntype) + str(catalog) + str(schema) + str(table), "abcse");
}

TEST_F(Identity, CountsAsFoundWithoutAnyAttribute) {
  QvbString type = "t", id = "i", uuid = "u";
  EXPECT_TRUE(m_manager->getUnifiedObjectFromResourceId("<unified/>", nullptr, &type, &id, &uuid));
  EXPECT_EQ(str(type) + str(id) + str(uuid), "tiu");
}

TEST_F(Identity, SharesBytesThatXmlCannotCarry) {
  QvbString first, second, third;
  ASSERT_TRUE(m_manager->generateTableDataSourceResourceId("Sales", "", "", "", "t\x01", &first));
  ASSERT_TRUE(m_manager->generateTableDataSourceResourceId("Sales", "", "", "", "t\xFF", &second));
  ASSERT_TRUE(m_manager->generateTableDataSourceResourceId("Sales", "", "", "", "t", &third));
  EXPECT_EQ(first, second);
  EXPECT_NE(str(first), str(third));
}

// An identity says what the XML document says that it is, also where it is only nearly written as the library does.
TEST_F(Identity, SaysWhatItSaysAsADocument) {
  EXPECT_TRUE(rc::check([&](const std::vector<unsigned char>& choices, bool isPlain) {
    const auto part = [&] {
      return isPlain ? text("plain text " + std::to_string(choices.size())) : text(xmlText(choices));
    };
    QvbString identity;
    m_manager->generateTableDataSourceResourceId(part(), part(), part(), part(), text("t"), &identity);
    std::string changed = str(identity);
    for (int n = *rc::gen::inRange(0, 3); n > 0; --n) {
      const auto at = *rc::gen::inRange<std::size_t>(0, changed.size());
      const auto length = *rc::gen::element<std::size_t>(0, 0, 1, 1, 8);
      changed.replace(at, std::min(length, changed.size() - at),
                      *rc::gen::element<std::string>("", "\"", "'", "<", "&", "&amp;", " ", "\t", "\n",
                                                     "\x01", "\x7F", "\xC3\xA4", "\xFF", "/", ">",
                                                     " dsn=\"x\"", " table=\"y\"", "A", "<!-- -->",
                                                     std::string(1, '\0')));
    }
    RC_ASSERT(tableAsIdentity(*m_manager, text(changed)) == tableAsDocument(text(changed)));
  }));
}

TEST_F(Identity, SaysWhatItSaysAsADocumentWhateverIsCutOut) {
  ASSERT_TRUE(m_manager->generateTableDataSourceResourceId("D", "T", "C", "S", "t", &m_identity));
  const std::string whole = str(m_identity);
  for (std::size_t at = 0; at < whole.size(); ++at)
    for (std::size_t length = 1; length <= whole.size() - at; ++length) {
      const QvbString cut = text(std::string(whole).erase(at, length));
      ASSERT_EQ(tableAsIdentity(*m_manager, cut), tableAsDocument(cut)) << cut;
    }
}

TEST_F(Identity, WritesNothingWhenMemoryIsShort) {
  const QvbString filename = "/data/in/customers with a long name.txt";
  QvbString name;
  withEverMoreMemory([&] { return m_manager->generateFileResourceId(filename, name, &m_identity); },
                     [&] {
                       EXPECT_TRUE(name.isNull());
                       EXPECT_EQ(m_identity, "untouched");
                     });
  EXPECT_EQ(name, "customers with a long name.txt");
  QvbString readFilename, readName;
  withEverMoreMemory(
      [&] { return m_manager->getFilenameFromResourceId(m_identity, &readFilename, &readName); },
      [&] {
        EXPECT_TRUE(readFilename.isNull());
        EXPECT_TRUE(readName.isNull());
      });
  EXPECT_EQ(readFilename, filename);
  EXPECT_EQ(readName, name);
  QvbString path = filename, displayName, type;
  withEverMoreMemory([&] { return m_manager->getResourceTypeFromFilename(path, &displayName, &type); },
                     [&] {
                       EXPECT_TRUE(displayName.isNull());
                       EXPECT_TRUE(type.isNull());
                     });
  EXPECT_EQ(displayName, name);
  EXPECT_EQ(type, "File");
}

TEST(ConnectionString, GivesNameAndType) {
  struct Case {
    const char* dsn;
    const char* name; // null: none
    const char* type;
  };
  const Case cases[] = {
      {"DSN=Sales;QVXTYPE=ODBC;", "Sales", "ODBC"},
      {"DSN=Sales;QVXTYPE=ODBC", "Sales", "ODBC"},
      {"DSN=Sales", "Sales", nullptr},
      {"DSN=Sales;QVXTYPE=;", "Sales", nullptr},
      {"QVXTYPE=GRVS;DSN=", nullptr, "GRVS"},
      {"DSN=;", nullptr, nullptr},
      {"DSN=;DSN=b;", nullptr, nullptr}, // the first one counts
      {"XDSN=a;DSN=b;", "a", nullptr},   // wherever it stands
      {"dsn=Sales;qvxtype=ODBC;", nullptr, nullptr},
      {"Sales", nullptr, nullptr},
      {"", nullptr, nullptr},
      {"DSN= spaced name ;QVXTYPE= ;", " spaced name ", " "},
      {"DSN=a=b;", "a=b", nullptr},
  };
  const Released<QvResourceManager> manager(createQvResourceManager());
  for (const auto& [dsn, name, type] : cases) {
    QvbString readName = "mine", shortDsn = "mine", readType = "mine";
    EXPECT_EQ(manager->getNameFromDSN(dsn, &readName), name != nullptr) << dsn;
    EXPECT_EQ(manager->generateShortDSN(dsn, &shortDsn), name != nullptr) << dsn;
    EXPECT_EQ(manager->getDSNTypeFromDSN(dsn, &readType), type != nullptr) << dsn;
    EXPECT_EQ(readName, name ? name : "mine") << dsn;
    EXPECT_EQ(shortDsn, name ? name : "mine") << dsn;
    EXPECT_EQ(readType, type ? type : "mine") << dsn;
  }
}

TEST(ConnectionString, MayBeNull) {
  const Released<QvResourceManager> manager(createQvResourceManager());
  QvbString out = "mine";
  EXPECT_FALSE(manager->getNameFromDSN(QvbString(), &out));
  EXPECT_FALSE(manager->getDSNTypeFromDSN(QvbString(), &out));
  EXPECT_FALSE(manager->generateShortDSN(QvbString(), &out));
  EXPECT_EQ(out, "mine");
}

namespace {

// Reads another key, and every operation that needs a short form follows.
struct UidManager : QvResourceManagerImpl {
  bool getNameFromDSN(const QvbString& dsn, QvbString* name) override {
    return QvResourceManagerImpl::getNameFromDSN(text("DSN=" + str(dsn.mid(4))), name);
  }
};

} // namespace

TEST(ConnectionString, HasTheShortFormOfADerivedManagersNameParser) {
  const Released<QvResourceManager> manager(new UidManager);
  QvbString shortDsn, identity;
  ASSERT_TRUE(manager->generateShortDSN("UID=Sales;", &shortDsn));
  EXPECT_EQ(shortDsn, "Sales");
  ASSERT_TRUE(manager->generateDataSourceResourceId("UID=Sales;", "", &identity));
  EXPECT_GE(identity.find("dsn=\"Sales\""), 0);
}

// What such a parser succeeds with is taken, empty or not.
TEST(ConnectionString, IsWhatADerivedManagersNameParserSaysThoughItIsEmpty) {
  struct NamelessManager : QvResourceManagerImpl {
    bool getNameFromDSN(const QvbString&, QvbString* name) override {
      *name = "";
      return true;
    }
  };
  const Released<QvResourceManager> manager(new NamelessManager);
  QvbString identity;
  ASSERT_TRUE(manager->generateDataSourceResourceId("Sales", "ODBC", &identity));
  EXPECT_GE(identity.find("<datasource dsn=\"\" dsntype=\"ODBC\"/>"), 0);
  ASSERT_TRUE(manager->generateTableDataSourceResourceId("Sales", "ODBC", "", "", "t", &identity));
  EXPECT_GE(identity.find("<tabledatasource dsn=\"\" dsntype=\"ODBC\" table=\"t\"/>"), 0);
}

TEST(FileNames, GiveDisplayNameAndType) {
  struct Case {
    const char* filename;
    const char* name;
    const char* type;
  };
  const Case cases[] = {
      {"/jobs/load.djf", "load", "ProcessJob"}, {"/jobs/load.DJF", "load", "ProcessJob"},
      {"names.chp.qkb", "names", "ChopTable"},  {"/data/customers.txt", "customers.txt", "File"},
      {"/data/page.html", "page.html", "File"}, {"/data/customers", "customers", "File"},
      {"/a.b/customers", "customers", "File"},  {"a.b.txt", "a.b.txt", "File"},
      {"/jobs/a.b.ddf", "a.b", "DataJob"},
  };
  const Released<QvResourceManager> manager(createQvResourceManager());
  for (const auto& [filename, name, type] : cases) {
    QvbString path = filename, readName, readType;
    ASSERT_TRUE(manager->getResourceTypeFromFilename(path, &readName, &readType)) << filename;
    EXPECT_EQ(readName, name) << filename;
    EXPECT_EQ(readType, type) << filename;
    EXPECT_EQ(path, filename);
  }
}

TEST(FileNames, OfFoldersAndNothingHaveNoType) {
  const Released<QvResourceManager> manager(createQvResourceManager());
  for (const char* filename : {"", "/data/in/"}) {
    QvbString path = filename, name = "mine", type = "mine";
    EXPECT_FALSE(manager->getResourceTypeFromFilename(path, &name, &type)) << filename;
    EXPECT_EQ(name, "mine");
    EXPECT_EQ(type, "mine");
  }
}
