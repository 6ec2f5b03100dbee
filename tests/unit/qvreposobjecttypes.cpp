#include "qvreposres/qvreposobjecttypes.h"

#include "qvxbase/qvbconfig.h"
#include "support/allocations.h"
#include "support/textio.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <algorithm>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

namespace {

struct Row {
  const char* key;
  const char* value;
};

const Row typesOfExtensions[] = {
    {"djf", "ProcessJob"},
    {"dmc", "ArchitectJob"},
    {"ddf", "DataJob"},
    {"anc", "File"},
    {"chp.bfd", "ChopTable"},
    {"chp.qkb", "ChopTable"},
    {"dax.ueo", "DataExploration"},
    {"sri", "EntityResolution"},
    {"qvo", "FileDefinition"},
    {"qvl", "FileDefinitionLayout"},
    {"gmr.bfd", "Grammar"},
    {"gmr.qkb", "Grammar"},
    {"html", "File"},
    {"htm", "File"},
    {"qve", "MatchFile"},
    {"mdf", "MatchJob"},
    {"mre", "MatchReport"},
    {"pfi.ueo", "ProfileJob"},
    {"pfo", "ProfileReport"},
    {"phx.bfd", "Phonetics"},
    {"phx.qkb", "Phonetics"},
    {"qltykb.db", "QualityKnowledgeBase"},
    {"rgx.bfd", "Regex"},
    {"rgx.qkb", "Regex"},
    {"rul.ueo", "Rule"},
    {"zel", "ZELFile"},
    {"sch.bfd", "Scheme"},
    {"sch.qkb", "Scheme"},
    {"tbl", "TableTemplate"},
    {"tsk.ueo", "Task"},
    {"vcb.bfv", "Vocab"},
    {"vcb.qkv", "Vocab"},
    {"xsq", "XMLSQLQuery"},
    {"cmt.ueo", "CustomMetric"},
    {"cln.ueo", "Collection"},
    {"fld.ueo", "Field"},
    {"src.ueo", "Source"},
    {"wfs", "ProcessJobState"},
    {"met", "MDMEntityTemplate"},
    {"dim.ueo", "Dimension"},
    {"rpg.ueo", "Dashboard"},
    {"thd.ueo", "Threshold"},
};
static_assert(std::size(typesOfExtensions) == 42);

const Row extensionsOfTypes[] = {
    {"ProcessJob", "djf"},
    {"ArchitectJob", "dmc"},
    {"DataJob", "ddf"},
    {"XMLSQLQuery", "xsq"},
    {"AncestryFile", "anc"},
    {"ChopTable", "chp.qkb"},
    {"DataExploration", "dax.ueo"},
    {"EntityResolution", "sri"},
    {"FileDefinition", "qvo"},
    {"FileDefinitionLayout", "qvl"},
    {"Grammar", "gmr.qkb"},
    {"HTML", "html"},
    {"HTM", "htm"},
    {"MatchFile", "qve"},
    {"MatchJob", "mdf"},
    {"MatchReport", "mre"},
    {"ProfileJob", "pfi.ueo"},
    {"ProfileReport", "pfo"},
    {"Phonetics", "phx.qkb"},
    {"QualityKnowledgeBase", "qltykb.db"},
    {"Regex", "rgx.qkb"},
    {"Rule", "rul.ueo"},
    {"ZELFile", "zel"},
    {"Scheme", "sch.qkb"},
    {"TableTemplate", "tbl"},
    {"Task", "tsk.ueo"},
    {"Vocab", "vcb.qkv"},
    {"CustomMetric", "cmt.ueo"},
    {"Collection", "cln.ueo"},
    {"Field", "fld.ueo"},
    {"Source", "src.ueo"},
    {"ProcessJobState", "wfs"},
    {"MDMEntityTemplate", "met"},
    {"Dimension", "dim.ueo"},
    {"Dashboard", "rpg.ueo"},
    {"Threshold", "thd.ueo"},
};
static_assert(std::size(extensionsOfTypes) == 36);

const char* const twoPartExtensions[] = {
    "chp.bfd", "chp.qkb", "gmr.bfd", "gmr.qkb", "phx.bfd", "phx.qkb", "rgx.bfd", "rgx.qkb",
    "sch.bfd", "sch.qkb", "vcb.bfv", "vcb.qkv", "rul.ueo", "tsk.ueo", "pfi.ueo", "dax.ueo",
    "cmt.ueo", "src.ueo", "fld.ueo", "thd.ueo", "dim.ueo", "rpg.ueo",
};
static_assert(std::size(twoPartExtensions) == 22);

std::string upper(std::string text) {
  std::ranges::transform(text, text.begin(),
                         [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; });
  return text;
}

// The answer to an extension when the output is empty before.
QvbString typeOf(const std::string& extension) {
  QvbString type;
  EXPECT_TRUE(getTypeForFileExtension(text(extension), &type));
  return type;
}

struct Parts {
  QvbString extension, folder, name;
};

Parts partsOf(const QvbString& path) {
  Parts parts{"extension before", "folder before", "name before"};
  EXPECT_TRUE(getComponentsFromFilesystemPath(path, &parts.extension, &parts.folder, &parts.name));
  return parts;
}

// Options as the process started with them, before and after each test.
class RepositoryFolders : public testing::Test {
protected:
  void SetUp() override {
    qvbClearConfigOptions();
    unsetenv("QVEXEC_HOME");
  }
  void TearDown() override {
    SetUp();
    qvbSetConfigAvailable(true);
  }
};

} // namespace

TEST(ObjectTypes, AreGivenForEveryExtensionInAnyCase) {
  for (const Row& row : typesOfExtensions) {
    EXPECT_EQ(typeOf(row.key), row.value) << row.key;
    EXPECT_EQ(typeOf(upper(row.key)), row.value) << row.key;
  }
}

TEST(ObjectTypes, TellTheExtensionsThatTheyKnow) {
  std::vector<std::string> known;
  for (const auto* extension = getKnownFileExtensions(); *extension; ++extension)
    known.emplace_back(*extension);
  std::vector<std::string> expected;
  std::ranges::transform(typesOfExtensions, std::back_inserter(expected), &Row::key);
  std::ranges::sort(known);
  std::ranges::sort(expected);
  EXPECT_EQ(known, expected);
}

TEST(ObjectTypes, AreFileForAnUnknownOrEmptyExtension) {
  for (const char* extension : {"foo", "", "dj", "djff", ".djf", "chp", "qkb", "processjob"})
    EXPECT_EQ(typeOf(extension), "File") << extension;
}

TEST(ObjectTypes, OfAnUnknownExtensionLeaveATextThatIsThere) {
  QvbString type("Folder");
  EXPECT_TRUE(getTypeForFileExtension("foo", &type));
  EXPECT_EQ(type, "Folder");
}

TEST(ObjectTypes, OfAKnownExtensionReplaceATextThatIsThere) {
  QvbString type("Folder");
  EXPECT_TRUE(getTypeForFileExtension("djf", &type));
  EXPECT_EQ(type, "ProcessJob");
}

TEST(ObjectTypes, AreRefusedForANullExtension) {
  QvbString type;
  EXPECT_FALSE(getTypeForFileExtension(QvbString(), &type));
  EXPECT_TRUE(type.isNull());
}

TEST(ObjectTypes, MayReplaceTheExtensionItself) {
  QvbString both("djf");
  EXPECT_TRUE(getTypeForFileExtension(both, &both));
  EXPECT_EQ(both, "ProcessJob");
}

TEST(ObjectTypes, TakeAZeroByteInAnExtensionForAnyOtherByte) {
  EXPECT_EQ(typeOf(std::string("djf\0", 4)), "File");
  EXPECT_EQ(typeOf(std::string("\0djf", 4)), "File");
}

TEST(ObjectTypes, AreFileForExtensionsLongerThanAnyCompared) {
  for (const std::size_t length : {254U, 255U, 256U, 100000U})
    EXPECT_EQ(typeOf("djf" + std::string(length - 3, ' ')), "File") << length;
}

TEST(ObjectTypes, FoldAsciiLettersOnly) { EXPECT_EQ(typeOf("\xE4jf"), "File"); }

TEST(ObjectTypes, AreTheSameForEveryThread) {
  std::vector<std::thread> threads;
  std::vector<int> wrong(4);
  for (int& count : wrong)
    threads.emplace_back([&count] {
      for (const Row& row : typesOfExtensions) {
        QvbString type;
        count += !getTypeForFileExtension(row.key, &type) || !(type == row.value);
      }
      for (const Row& row : extensionsOfTypes) {
        QvbString extension;
        count += !getFileExtensionForType(row.key, &extension) || !(extension == row.value);
      }
    });
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_EQ(wrong, std::vector<int>(4));
}

TEST(FileExtensions, AreGivenForEveryType) {
  for (const Row& row : extensionsOfTypes) {
    QvbString extension("before");
    EXPECT_TRUE(getFileExtensionForType(row.key, &extension)) << row.key;
    EXPECT_EQ(extension, row.value) << row.key;
  }
}

// A type with an extension that leads to it needs one that it is given, and a name is split before all of it.
TEST(FileExtensions, OfEachTypeLeadBackToItAndAreSplitOffWhole) {
  const std::vector<std::string> splitInTheMiddle{"cln.ueo", "qltykb.db"};
  for (const auto* known = getKnownFileExtensions(); *known; ++known) {
    const std::string extension = *known;
    const QvbString type = typeOf(extension);
    const bool isWhole = std::ranges::find(splitInTheMiddle, extension) == splitInTheMiddle.end();
    EXPECT_EQ(str(partsOf(text("folder/name." + extension)).extension) == extension, isWhole) << extension;
    if (type == "File")
      continue;
    QvbString own;
    EXPECT_TRUE(getFileExtensionForType(type, &own)) << type;
    EXPECT_EQ(typeOf(str(own)), type);
  }
}

TEST(FileExtensions, AreRefusedForTypesWithoutOneAndLeaveTheOutput) {
  for (const QvbString& type :
       {QvbString("processjob"), QvbString("PROCESSJOB"), QvbString("File"), QvbString("Folder"),
        QvbString(""), QvbString(), QvbString("ProcessJob "), QvbString("ProcessJob\0", 11), QvbString("djf"),
        text("ProcessJob" + std::string(300, 'x'))}) {
    QvbString extension("before");
    EXPECT_FALSE(getFileExtensionForType(type, &extension)) << type;
    EXPECT_EQ(extension, "before") << type;
  }
}

TEST(RootFolders, AreFourInOrderThenNull) {
  const char* const* folders = getDefaultRepositoryRootFolders();
  for (const char* expected : {"data_services", "process_services", "batch_jobs", "foundations"})
    EXPECT_STREQ(*folders++, expected);
  EXPECT_EQ(*folders, nullptr);
}

TEST(Names, MayNotHoldTenCharacters) { EXPECT_STREQ(getInvalidNameChars(), "/\\:;,?*<>|"); }

TEST(Names, AreInvalidForExactlyThoseCharactersAnywhere) {
  const std::string invalid = "/\\:;,?*<>|";
  for (int byte = 0; byte < 256; ++byte) {
    const std::string character(1, static_cast<char>(byte));
    const bool expected = invalid.find(character) != std::string::npos;
    EXPECT_EQ(isInvalidCharInName(text(character)), expected) << byte;
    EXPECT_EQ(isInvalidCharInName(text("ab" + character)), expected) << byte;
    EXPECT_EQ(isInvalidCharInName(text(std::string("\0", 1) + character + "z")), expected) << byte;
  }
  EXPECT_FALSE(isInvalidCharInName(""));
  EXPECT_FALSE(isInvalidCharInName(QvbString()));
}

TEST(Names, AreNormalizedByAnUnderscoreForEachInvalidCharacter) {
  QvbString out("");
  EXPECT_TRUE(getNormalizedNameValue("a/b:c", &out));
  EXPECT_EQ(out, "a_b_c");
  out.setNull();
  EXPECT_TRUE(getNormalizedNameValue("/\\:;,?*<>|", &out));
  EXPECT_EQ(out, "__________");
}

TEST(Names, AreAppendedWhenNormalized) {
  QvbString out("x/");
  EXPECT_TRUE(getNormalizedNameValue("a/b", &out));
  EXPECT_EQ(out, "x/a_b");
  EXPECT_TRUE(getNormalizedNameValue(out, &out));
  EXPECT_EQ(out, "x/a_bx_a_b");
}

TEST(Names, AppendNothingWhenEmpty) {
  QvbString out;
  EXPECT_TRUE(getNormalizedNameValue("", &out));
  EXPECT_TRUE(out.isNull());
  out.assign("before");
  EXPECT_TRUE(getNormalizedNameValue("", &out));
  EXPECT_EQ(out, "before");
}

TEST(Names, AreNotNormalizedWhenTheyOrTheOutputAreNull) {
  QvbString out("before");
  EXPECT_FALSE(getNormalizedNameValue(QvbString(), &out));
  EXPECT_EQ(out, "before");
  EXPECT_FALSE(getNormalizedNameValue("name", nullptr));
}

TEST(Names, AreValidAndAsLongAsBeforeOnceNormalized) {
  EXPECT_TRUE(rc::check([](const std::string& name) {
    QvbString once;
    QvbString twice;
    if (!getNormalizedNameValue(text(name), &once) || !getNormalizedNameValue(text(str(once)), &twice))
      return false;
    return !isInvalidCharInName(once) && str(once).size() == name.size() && once == twice;
  }));
}

TEST(DirectoryPaths, EndInASlash) {
  EXPECT_TRUE(isDirectoryPath("/"));
  EXPECT_TRUE(isDirectoryPath("a/"));
  EXPECT_FALSE(isDirectoryPath("/a"));
  EXPECT_FALSE(isDirectoryPath("a\\"));
  EXPECT_FALSE(isDirectoryPath(""));
  EXPECT_FALSE(isDirectoryPath(QvbString()));
}

struct SplitCase {
  const char* path;
  bool simple;
  const char* base;
  const char* extension;
};

TEST(ExtensionSplit, FindsTheExtension) {
  const SplitCase cases[] = {
      {"names.CHP.QKB", false, "names", "CHP.QKB"},
      {"names.CHP.QKB", true, "names.CHP", "QKB"},
      {"a.b.txt", false, "a.b.txt", ""},
      {"a.b.txt", true, "a.b", "txt"},
      {"seven77", false, "seven77", ""},
      {"chp.qkb", false, "chp.qkb", ""},
      {"chp.qkb", true, "chp", "qkb"},
      {".chp.qkb", false, "", "chp.qkb"},
      {"six.tx", false, "six", "tx"},
      {"eight.tx", false, "eight", "tx"},
      {"list.cln.ueo", false, "list.cln", "ueo"},
      {"kb.qltykb.db", false, "kb.qltykb", "db"},
      {"a.rul.ueo.txt", false, "a.rul.ueo", "txt"},
      {"a.rul.ueo.rul.ueo", false, "a.rul.ueo", "rul.ueo"},
      {"arul.ueo", false, "arul", "ueo"},
      {"folder.d/name", false, "folder", "d/name"},
      {"folder.d/name", true, "folder", "d/name"},
      {"name", false, "name", ""},
      {"name", true, "name", ""},
      {"name.", false, "name", ""},
      {"name.", true, "name", ""},
      {".hidden", true, "", "hidden"},
      {"", false, "", ""},
      {"", true, "", ""},
  };
  for (const SplitCase& split : cases) {
    QvbString extension("before");
    EXPECT_EQ(parseFileExt(split.path, &extension, split.simple), split.base) << split.path << split.simple;
    EXPECT_EQ(extension, split.extension) << split.path << split.simple;
    EXPECT_FALSE(extension.isNull()) << split.path << split.simple;
    EXPECT_EQ(parseFileExt(split.path, nullptr, split.simple), split.base) << split.path << split.simple;
  }
}

TEST(ExtensionSplit, TakesEveryTwoPartExtensionInAnyCaseAsOne) {
  for (const std::string two : twoPartExtensions)
    for (const std::string& written : {two, upper(two)}) {
      QvbString extension;
      EXPECT_EQ(parseFileExt(text("Name." + written), &extension, false), "Name") << written;
      EXPECT_EQ(extension, text(written));
    }
}

TEST(ExtensionSplit, GivesANullPathBackWithAnEmptyExtension) {
  QvbString extension;
  EXPECT_TRUE(parseFileExt(QvbString(), &extension, false).isNull());
  EXPECT_TRUE(extension.isEmpty());
  EXPECT_FALSE(extension.isNull());
}

TEST(ExtensionSplit, MayReplaceThePathByItsExtension) {
  QvbString both("name.txt");
  EXPECT_EQ(parseFileExt(both, &both, true), "name");
  EXPECT_EQ(both, "txt");
  both.assign("name");
  EXPECT_EQ(parseFileExt(both, &both, true), "name");
  EXPECT_EQ(both, "");
}

TEST(ExtensionSplit, NeverSplitsSevenCharactersUnlessSimple) {
  EXPECT_TRUE(rc::check([] {
    const auto path = *rc::gen::container<std::string>(7, rc::gen::element('a', '.', '/', 'Z', '\0'));
    QvbString extension("before");
    return parseFileExt(text(path), &extension, false) == text(path) && extension.isEmpty();
  }));
}

// The two-part extensions are those whose text, with a dot before it, ends the path; a search that finds none passes for
// a match where the path is one character shorter than what was searched for.
TEST(ExtensionSplit, IsWhereTheSearchesOneAfterAnotherFindIt) {
  constexpr const char* dotted[] = {".chp.bfd", ".chp.qkb", ".gmr.bfd", ".gmr.qkb", ".phx.bfd", ".phx.qkb",
                                    ".rgx.bfd", ".rgx.qkb", ".sch.bfd", ".sch.qkb", ".vcb.bfv", ".vcb.qkv",
                                    ".rul.ueo", ".tsk.ueo", ".pfi.ueo", ".dax.ueo", ".cmt.ueo", ".src.ueo",
                                    ".fld.ueo", ".thd.ueo", ".dim.ueo", ".rpg.ueo"};
  const auto searched = [&](const std::string& path) {
    QvbString lower = text(path);
    lower.lowercase();
    for (const char* extension : dotted)
      if (lower.rfind(extension) == lower.length() - 8)
        return lower.rfind(extension);
    return text(path).rfind(".");
  };
  EXPECT_TRUE(rc::check([&] {
    std::string path = *rc::gen::container<std::string>(rc::gen::element('a', '.', '/', 'Z', '\0'));
    for (int parts = *rc::gen::inRange(0, 3); parts > 0; --parts)
      path += *rc::gen::element<std::string>(".chp.bfd", ".RUL.ueo", ".cln.ueo", "chp.qkb", ".Dim.Ueo", ".x");
    const auto split = searched(path);
    QvbString extension;
    const auto base = str(parseFileExt(text(path), &extension, false));
    return split < 0 ? base == path && extension.isEmpty()
                     : base == path.substr(0, static_cast<std::size_t>(split)) &&
                           str(extension) == path.substr(static_cast<std::size_t>(split) + 1);
  }));
}

TEST(ExtensionSplit, LosesNothingButTheDot) {
  EXPECT_TRUE(rc::check([](bool simple) {
    const auto start = *rc::gen::container<std::string>(rc::gen::element('a', '.', '/', 'Z', '\0'));
    const auto path = start + *rc::gen::element<std::string>("", ".txt", ".Chp.qkb", ".rul.ueo", "chp.bfd");
    QvbString extension;
    const std::string base = str(parseFileExt(text(path), &extension, simple));
    return base == path ? extension.isEmpty() : base + "." + str(extension) == path;
  }));
}

TEST(PathComponents, AreFolderNameAndExtension) {
  struct {
    const char* path;
    const char* folder;
    const char* name;
    const char* extension;
  } const cases[] = {
      {"/a/b/names.CHP.QKB", "/a/b", "names", "CHP.QKB"},
      {"/a/b/load.djf", "/a/b", "load", "djf"},
      {"load.djf", "folder before", "load", "djf"},
      {"/load.djf", "/", "load", "djf"},
      {"a.b.txt", "folder before", "a.b", "txt"},
      {"/x/a.b.txt", "/x", "a.b", "txt"},
      {"/folder.d/name", "/folder.d", "name", ""},
      {"/a/.hidden", "/a", "name before", "hidden"},
      {"/a/name.", "/a", "name", ""},
      {"chp.qkb", "folder before", "chp", "qkb"},
      {"/a/b/", "/a/b", "name before", "extension before"},
      {"/", "/", "name before", "extension before"},
  };
  for (const auto& expected : cases) {
    const Parts parts = partsOf(expected.path);
    EXPECT_EQ(parts.folder, expected.folder) << expected.path;
    EXPECT_EQ(parts.name, expected.name) << expected.path;
    EXPECT_EQ(parts.extension, expected.extension) << expected.path;
  }
}

TEST(PathComponents, AreRefusedForAnEmptyPathAndLeaveTheOutputs) {
  for (const QvbString& path : {QvbString(""), QvbString()}) {
    Parts parts{"e", "f", "n"};
    EXPECT_FALSE(getComponentsFromFilesystemPath(path, &parts.extension, &parts.folder, &parts.name));
    EXPECT_EQ(parts.extension, "e");
    EXPECT_EQ(parts.folder, "f");
    EXPECT_EQ(parts.name, "n");
  }
}

TEST(PathComponents, LeaveTheOutputsWhenMemoryIsShort) {
  const QvbString path = "/a folder/with a name that is long/customers.chp.qkb";
  Parts parts{"extension before", "folder before", "name before"};
  withEverMoreMemory(
      [&] { return getComponentsFromFilesystemPath(path, &parts.extension, &parts.folder, &parts.name); },
      [&] {
        EXPECT_EQ(str(parts.extension) + str(parts.folder) + str(parts.name),
                  "extension beforefolder beforename before");
      });
  EXPECT_EQ(parts.extension, "chp.qkb");
  EXPECT_EQ(parts.folder, "/a folder/with a name that is long");
  EXPECT_EQ(parts.name, "customers");
}

TEST(PathComponents, MayReplaceThePath) {
  QvbString path("/a/b.txt");
  QvbString extension;
  QvbString name;
  EXPECT_TRUE(getComponentsFromFilesystemPath(path, &extension, &path, &name));
  EXPECT_EQ(path, "/a");
  EXPECT_EQ(name, "b");
  EXPECT_EQ(extension, "txt");
}

TEST_F(RepositoryFolders, OfFoundationsIsAFolderOfTheNamelessRepository) {
  QvbString out("before");
  EXPECT_TRUE(getRepositoryFoundationsFolder(&out));
  EXPECT_EQ(out, "qvr:///foundations?type=Folder");
}

TEST_F(RepositoryFolders, OfMasterDataIsBelowFoundations) {
  QvbString out("before");
  EXPECT_TRUE(getMDMRepositoryRootFolder(&out));
  EXPECT_EQ(out, "qvr:///foundations/master_data?type=Folder");
}

TEST_F(RepositoryFolders, OfMasterDataIsTheOptionsWhenThatNamesAFolder) {
  struct {
    const char* option;
    const char* folder;
  } const cases[] = {{"mdm/root", "qvr:///mdm/root?type=Folder"},
                     {"/mdm", "qvr:///mdm?type=Folder"},
                     {"", "qvr:///foundations/master_data?type=Folder"},
                     {"/", "qvr:///foundations/master_data?type=Folder"}};
  for (const auto& expected : cases) {
    qvbSetConfigOption("MDM/REPOSITORY_ROOT_FOLDER", expected.option);
    QvbString out("before");
    EXPECT_TRUE(getMDMRepositoryRootFolder(&out)) << expected.option;
    EXPECT_EQ(out, expected.folder) << expected.option;
  }
}

TEST_F(RepositoryFolders, OfMasterDataNeedsNoOptions) {
  qvbSetConfigOption("MDM/REPOSITORY_ROOT_FOLDER", "mdm/root");
  qvbSetConfigAvailable(false);
  QvbString out("before");
  EXPECT_TRUE(getMDMRepositoryRootFolder(&out));
  EXPECT_EQ(out, "qvr:///foundations/master_data?type=Folder");
}

TEST_F(RepositoryFolders, OfTemplatesIsBelowTheHomeOfTheProduct) {
  for (const char* home : {"/opt/qv", "/opt/qv/", "/", "relative", "x"}) {
    qvbSetConfigOption("QVEXEC_HOME", home);
    QvbString out("before");
    EXPECT_TRUE(getMDMTemplateRootFolder(&out)) << home;
    std::string expected = home;
    if (!expected.ends_with('/'))
      expected += '/';
    EXPECT_EQ(out, text(expected + "share/mdm"));
  }
}

TEST_F(RepositoryFolders, OfTemplatesMayBeOfAnyLength) {
  const std::string home(100000, 'h');
  qvbSetConfigOption("QVEXEC_HOME", text(home));
  QvbString out;
  EXPECT_TRUE(getMDMTemplateRootFolder(&out));
  EXPECT_EQ(out, text(home + "/share/mdm"));
}

TEST_F(RepositoryFolders, OfTemplatesReadsTheEnvironment) {
  setenv("QVEXEC_HOME", "/opt/env", 1);
  QvbString out;
  EXPECT_TRUE(getMDMTemplateRootFolder(&out));
  EXPECT_EQ(out, "/opt/env/share/mdm");
}

TEST_F(RepositoryFolders, OfTemplatesIsNullWithoutAHome) {
  QvbString out("before");
  EXPECT_FALSE(getMDMTemplateRootFolder(&out));
  EXPECT_TRUE(out.isNull());
  qvbSetConfigOption("QVEXEC_HOME", "");
  out.assign("before");
  EXPECT_FALSE(getMDMTemplateRootFolder(&out));
  EXPECT_TRUE(out.isNull());
}

TEST_F(RepositoryFolders, OfTemplatesIsNullWithoutOptions) {
  qvbSetConfigOption("QVEXEC_HOME", "/opt/qv");
  qvbSetConfigAvailable(false);
  QvbString out("before");
  EXPECT_FALSE(getMDMTemplateRootFolder(&out));
  EXPECT_TRUE(out.isNull());
}
