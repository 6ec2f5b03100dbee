#include "qvreposres/qvresourceuri.h"

#include "guards.h"
#include "qvfilecacheimpl.h"
#include "qvreposres/qvfilecache.h"
#include "qvreposres/qvreposconfigmgr.h"
#include "qvreposres/qvreposobjecttypes.h"
#include "qvxbase/qvbconfig.h"
#include "support/allocations.h"
#include "support/logcapture.h"
#include "support/tempdir.h"
#include "support/textio.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace {

// Answers every request with the remote name behind "/cache/", or fails.
struct HostCache : FileAccessCacheManager {
  int getCacheFilename(ASSubject* subject, const QvbString& remoteName, QvbString* localFilename,
                       QvbString* errorText) override {
    lastSubject = subject;
    if (clearsOutputs) {
      localFilename->setNull();
      errorText->setNull();
    }
    if (result != 0) {
      if (writesError)
        *errorText = "the source is gone";
      return result;
    }
    *localFilename = text("/cache/" + str(remoteName));
    return 0;
  }
  int isModified(ASSubject*, const QvbString&, bool*, QvbString*) override { return 1; }
  int getModifiedDate(ASSubject*, const QvbString&, QvbDate*, QvbString*) override { return 4; }
  bool flush(bool) override { return true; }
  void release() override {}
  void setSourceProvider(FileAccessCacheSourceProvider*) override {}

  ASSubject* lastSubject = nullptr;
  int result = 0;
  bool writesError = true;
  bool clearsOutputs = false;
};

class Conversion : public testing::Test {
protected:
  Conversion() {
    qvbSetConfigOption("BASE/REPOS_SYS_PATH", text(m_folder / "sys"));
    qvbSetConfigOption("BASE/REPOS_USER_PATH", text(m_folder / "user"));
    m_folder.write("sys/.keep", "");
    m_folder.write("user/.keep", "");
  }
  ~Conversion() override {
    qvFileCacheShutdown();
    qvbClearConfigOptions();
  }

  void define(const char* name, const char* vaultPath) {
    const Released<QvReposConfigManager> manager(getRepositoryConfigurationManager());
    const Released<QvReposConfiguration> definition(
        manager->createConfiguration(name, QvReposConfigTypeSystem));
    definition->setVaultPath(vaultPath);
    QvbString error;
    ASSERT_TRUE(manager->saveConfiguration(definition.get(), &error)) << error;
  }
  // "(none)" when there is no conversion.
  static std::string toURI(const QvbString& filename) {
    QvbString reference = "(none)";
    const bool done = generateURIReferenceFromFilename(filename, &reference);
    EXPECT_EQ(done, reference.compare("(none)") != 0) << filename;
    return str(reference);
  }
  static std::string toFile(const QvbString& reference) {
    QvbString filename = "(none)";
    const bool done = generateFilenameFromURIReference(nullptr, reference, &filename);
    EXPECT_EQ(done, filename.compare("(none)") != 0) << reference;
    return str(filename);
  }

  const TempDir m_folder;
  HostCache m_cache; // outlives its place as the process's own
};

// What generateFilenameFromURIandRepository reports.
struct Report {
  bool done;
  std::string filename;
  bool isRelative;
  std::string message;

  bool operator==(const Report&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Report& report) {
  return out << '{' << report.done << ", " << report.filename << ", " << report.isRelative << ", "
             << report.message << '}';
}

Report convert(const QvbString& reference, const QvbString& repository = QvbString()) {
  QvbString filename = "before", message = "before";
  bool isRelative = true;
  const bool done =
      generateFilenameFromURIandRepository(nullptr, reference, repository, &filename, &isRelative, &message);
  // Without the optional outputs the answer is the same.
  QvbString again;
  EXPECT_EQ(generateFilenameFromURIandRepository(nullptr, reference, repository, &again, nullptr, nullptr),
            done);
  return {done, str(filename), isRelative, message.isNull() ? "(null)" : str(message)};
}

std::string vaultFile(const char* root, const char* reference) {
  const Released<QvURI> uri(getURIFromURIString(reference));
  QvbString filename = "(none)";
  const bool done = generateFilenameFromVaultPath(root, uri.get(), &filename);
  EXPECT_EQ(done, filename.compare("(none)") != 0) << reference;
  return str(filename);
}

} // namespace

TEST_F(Conversion, FindsTheRootOfADefinedRepository) {
  define("Main", "/srv/main");
  define("Rootless", "");
  QvbString root;
  ASSERT_TRUE(getRepositoryFilesystemRoot("Main", &root));
  EXPECT_EQ(root, "/srv/main");
  ASSERT_TRUE(getRepositoryFilesystemRoot("MAIN", &root));
  EXPECT_FALSE(getRepositoryFilesystemRoot("Rootless", &root));
  EXPECT_FALSE(getRepositoryFilesystemRoot("Unknown", &root));
  EXPECT_FALSE(getRepositoryFilesystemRoot(QvbString(), &root));
}

TEST_F(Conversion, LeavesNoRootBehindAFailure) {
  define("Rootless", "");
  for (const char* name : {"Rootless", "Unknown", ""}) {
    QvbString root = "before";
    EXPECT_FALSE(getRepositoryFilesystemRoot(name, &root));
    EXPECT_TRUE(root.isNull()) << name;
    qvbSetConfigOption("BASE/REPOS_FILE_ROOT", "");
  }
}

// Each copy of a definition drops some more of the separators at the end of its folder: there is one copy in a lookup by
// name, and two are on the way through the list of all.
TEST_F(Conversion, SeesTheFolderOfADefinitionAsTheLookupsHandItOut) {
  m_folder.write("sys/Deep.rcf", "<VaultRepositoryInfo Name='Deep'>"
                                 "<VaultPath>D:\\repo\\/\\/</VaultPath></VaultRepositoryInfo>");
  const Released<QvReposConfigManager> manager(getRepositoryConfigurationManager());
  const auto folderOf = [](QvReposConfiguration* definition) {
    return Released<QvReposConfiguration>(definition)->getVaultPath();
  };
  QvbString root;
  ASSERT_TRUE(getRepositoryFilesystemRoot("Deep", &root));
  EXPECT_EQ(root, folderOf(manager->getConfigurationByName("Deep")));
  const Released<QvReposConfigurationList> list(manager->getConfigurations());
  ASSERT_TRUE(list->next());
  const auto listed = folderOf(list->getValue());
  EXPECT_NE(str(listed), str(root));
  EXPECT_EQ(toURI(text(str(listed) + "/load.djf")), "qvr://Deep/load?type=ProcessJob");
}

TEST_F(Conversion, PutsTheCommonRootBeforeEveryDefinition) {
  define("Main", "/srv/main");
  qvbSetConfigOption("BASE/REPOS_FILE_ROOT", "/srv/repo");
  for (const char* name : {"Main", "Unknown", ""}) {
    QvbString root;
    ASSERT_TRUE(getRepositoryFilesystemRoot(name, &root)) << name;
    EXPECT_EQ(root, "/srv/repo");
  }
}

TEST_F(Conversion, GoesOnWithTheFolderThatARelativeCommonRootNamedFirst) {
  const auto here = std::filesystem::current_path();
  const ScopeExit goBack([&] { std::filesystem::current_path(here); });
  qvbSetConfigOption("BASE/REPOS_FILE_ROOT", "repo");
  QvbString root;
  ASSERT_TRUE(getRepositoryFilesystemRoot("Main", &root));
  EXPECT_EQ(str(root), (here / "repo").string());
  std::filesystem::current_path(m_folder / "sys");
  ASSERT_TRUE(getRepositoryFilesystemRoot("Main", &root));
  EXPECT_EQ(str(root), (here / "repo").string());
}

TEST_F(Conversion, TakesAnEmptyCommonRootForNone) {
  define("Main", "/srv/main");
  qvbSetConfigOption("BASE/REPOS_FILE_ROOT", "");
  QvbString root;
  ASSERT_TRUE(getRepositoryFilesystemRoot("Main", &root));
  EXPECT_EQ(root, "/srv/main");
}

TEST_F(Conversion, HasNoRootWithoutOptions) {
  qvbSetConfigAvailable(false);
  QvbString root;
  EXPECT_FALSE(getRepositoryFilesystemRoot("Main", &root));
  qvbSetConfigAvailable(true);
}

TEST_F(Conversion, TurnsBackSlashesOver) {
  QvbString out = "before";
  EXPECT_TRUE(fixFilesystemStringSlashes("C:\\data\\in.txt", &out));
  EXPECT_EQ(out, "C:/data/in.txt");
  EXPECT_FALSE(fixFilesystemStringSlashes("/data/in.txt", &out));
  EXPECT_EQ(out, "C:/data/in.txt");
}

TEST_F(Conversion, MakesTheReferenceOfAFile) {
  define("Wide", "/srv");
  define("Main", "/srv/repo");
  define("Twin", "/srv/repo");
  define("Rootless", "");
  define("Windows", "C:\\repo");
  define("Mixed", "D:\\repo\\/"); // kept with its back slash
  struct Case {
    const char* filename;
    const char* reference;
  };
  const Case cases[] = {
      {"/srv/repo/jobs/load.djf", "qvr://Main/jobs/load?type=ProcessJob"},
      {"/srv/repo/jobs/LOAD.DJF", "qvr://Main/jobs/LOAD?type=ProcessJob"},
      {"/srv/repo/a/b.txt", "qvr://Main/a/b.txt?type=File"},
      {"/srv/repo/load.djf", "qvr://Main/load?type=ProcessJob"},
      {"/srv/repo/names.chp.qkb", "qvr://Main/names?type=ChopTable"},
      {"/srv/repo/a/noextension", "qvr://Main/a/noextension?type=File"},
      {"/srv/repo/a/", "qvr://Main/a/?type=File"},
      {"/srv/repo/a\\b.djf", "qvr://Main/a/b?type=ProcessJob"},
      {"/srv/repo\\b.txt", "qvr://Main/b.txt?type=File"},
      {"/srv/other/load.djf", "qvr://Wide/other/load?type=ProcessJob"},
      {"/srv/repository/load.djf", "qvr://Wide/repository/load?type=ProcessJob"}, // not below /srv/repo
      {"/srvice/load.djf", "file:///srvice/load.djf"},
      {"C:\\repo\\jobs\\load.djf", "qvr://Windows/jobs/load?type=ProcessJob"},
      {"D:\\repo\\jobs\\load.djf", "qvr://Mixed/jobs/load?type=ProcessJob"},
      {"D:\\repo\\", "(none)"},
      {"C:\\other\\load.djf", "file:C:/other/load.djf"},
      {"/data/in.txt", "file:///data/in.txt"},
      {"/x/srv/repo/a.txt", "file:///x/srv/repo/a.txt"},
      {"data/in.txt", "file:data/in.txt"},
      {"/srv/repo", "(none)"}, // the folder itself has no path
      {"", "(none)"},
      {"http://host/in.txt", "http://host/in.txt"},
      {"qvr://Other/jobs/load?type=ProcessJob", "qvr://Other/jobs/load?type=ProcessJob"},
      {"://host/in.txt", "file:://host/in.txt"},
      {"a:b://host/in.txt", "file:a:b://host/in.txt"}, // "a" is a drive
      {"ab:c://host/in.txt", "ab:c://host/in.txt"},
      {"ab:c.txt", "file:ab:c.txt"},
  };
  for (const auto& [filename, reference] : cases)
    EXPECT_EQ(toURI(filename), reference) << filename;
  EXPECT_EQ(toURI(QvbString()), "(none)");
}

TEST_F(Conversion, SeesTheDefinitionsAsTheyAreEachTime) {
  EXPECT_EQ(toURI("/srv/repo/a.txt"), "file:///srv/repo/a.txt");
  define("Main", "/srv/repo");
  EXPECT_EQ(toURI("/srv/repo/a.txt"), "qvr://Main/a.txt?type=File");
  QvbString root;
  EXPECT_TRUE(getRepositoryFilesystemRoot("Main", &root));
  std::filesystem::remove(m_folder / "sys/Main.rcf");
  EXPECT_EQ(toURI("/srv/repo/a.txt"), "file:///srv/repo/a.txt");
  EXPECT_FALSE(getRepositoryFilesystemRoot("Main", &root));
}

TEST_F(Conversion, TellsOfHiddenDefinitionsOnceEachTime) {
  define("Main", "/srv/repo");
  m_folder.write("user/main.rcf",
                 "<VaultRepositoryInfo Name='MAIN'><VaultPath>/srv/repo/a</VaultPath></VaultRepositoryInfo>");
  const LogCapture log;
  EXPECT_EQ(toURI("/srv/repo/a/b.txt"), "qvr://Main/a/b.txt?type=File");
  EXPECT_EQ(log.lines("QV.Repos.QvReposRes.ReposConfigMgr").size(), 2U);
  QvbString root;
  EXPECT_TRUE(getRepositoryFilesystemRoot("main", &root));
  EXPECT_EQ(root, "/srv/repo");
  EXPECT_EQ(log.lines("QV.Repos.QvReposRes.ReposConfigMgr").size(), 4U);
}

TEST_F(Conversion, EncodesWhatAURIMayNotHold) {
  define("My Main", "/srv/my repo");
  EXPECT_EQ(toURI("/srv/my repo/a b/50%?.txt"), "qvr://My%20Main/a%20b/50%25%3F.txt?type=File");
  EXPECT_EQ(toURI("/data/a b#.txt"), "file:///data/a%20b%23.txt");
}

TEST_F(Conversion, MakesTheFileOfAReference) {
  define("Main", "/srv/main");
  struct Case {
    const char* reference;
    const char* filename;
  };
  const Case cases[] = {
      {"file:///data/a%20b.txt", "/data/a b.txt"},
      {"FILE:///data/in.txt", "/data/in.txt"},
      {"file:data/in.txt", "data/in.txt"},
      {"file://elsewhere/data/in.txt", "(none)"},
      {"qvr://Main/jobs/load?type=ProcessJob", "/srv/main/jobs/load.djf"},
      {"QVR://Main/jobs/load?type=ProcessJob", "/srv/main/jobs/load.djf"},
      {"qvr://Main/a/b.txt?type=File", "/srv/main/a/b.txt"},
      {"qvr://Unknown/jobs/load?type=ProcessJob", "(none)"},
      {"qvr:///jobs/load?type=ProcessJob", "(none)"},
      {"qvr://Main/jobs/load", "(none)"},
      {"ftp://host/in.txt", "(none)"},
      {"data/in.txt", "(none)"},
      {"", "(none)"},
  };
  for (const auto& [reference, filename] : cases)
    EXPECT_EQ(toFile(reference), filename) << reference;
  EXPECT_EQ(toFile(QvbString()), "(none)");
  EXPECT_FALSE(generateFilenameFromURIReference(nullptr, "file:///data/in.txt", nullptr));
}

TEST_F(Conversion, AsksTheFileCacheForRemoteFilesOnBehalfOfTheSubject) {
  ASSERT_EQ(setFileCacheManager(&m_cache), 0);
  const ReleasedSubject subject(qvbSubjectAccess());
  for (const char* reference : {"http://host/in.txt", "https://host/in.txt", "HTTPS://host/in.txt"}) {
    QvbString filename;
    m_cache.lastSubject = nullptr;
    ASSERT_TRUE(generateFilenameFromURIReference(subject.get(), reference, &filename));
    EXPECT_EQ(str(filename), "/cache/" + std::string(reference));
    EXPECT_EQ(m_cache.lastSubject, subject.get());
    EXPECT_EQ(convert(reference), (Report{true, "/cache/" + std::string(reference), false, "(null)"}));
  }
}

TEST_F(Conversion, PassesTheFileCachesErrorOn) {
  ASSERT_EQ(setFileCacheManager(&m_cache), 0);
  m_cache.result = 3;
  EXPECT_EQ(toFile("http://host/in.txt"), "(none)");
  EXPECT_EQ(convert("http://host/in.txt"), (Report{false, "", false, "the source is gone"}));
  m_cache.writesError = false;
  EXPECT_EQ(convert("http://host/in.txt"), (Report{false, "", false, "(null)"}));
}

TEST_F(Conversion, ReportsThatThereIsNoFileCache) {
  qvFileCacheShutdown();
  QvbString filename = "before", message = "before";
  bool isRelative = true;
  Allocations::failingNothrowSize = sizeof(FileAccessCacheImpl);
  EXPECT_FALSE(generateFilenameFromURIandRepository(nullptr, "http://host/in.txt", "", &filename, &isRelative,
                                                    &message));
  EXPECT_EQ(Allocations::failingNothrowSize, 0U);
  EXPECT_TRUE(filename.isNull());
  EXPECT_FALSE(isRelative);
  EXPECT_EQ(message, "No file cache available");
  qvFileCacheShutdown();
  Allocations::failingNothrowSize = sizeof(FileAccessCacheImpl);
  EXPECT_EQ(toFile("https://host/in.txt"), "(none)");
  EXPECT_EQ(Allocations::failingNothrowSize, 0U);
}

TEST_F(Conversion, TakesItsInputsForOutputs) {
  define("Main", "/srv/main");
  QvbString value = "C:\\a\\b";
  EXPECT_TRUE(fixFilesystemStringSlashes(value, &value));
  EXPECT_EQ(value, "C:/a/b");
  value = "Main";
  EXPECT_TRUE(getRepositoryFilesystemRoot(value, &value));
  EXPECT_EQ(value, "/srv/main");
  value = "/srv/main/load.djf";
  EXPECT_TRUE(generateURIReferenceFromFilename(value, &value));
  EXPECT_EQ(value, "qvr://Main/load?type=ProcessJob");
  EXPECT_TRUE(generateFilenameFromURIReference(nullptr, value, &value));
  EXPECT_EQ(value, "/srv/main/load.djf");
}

TEST_F(Conversion, TakesItsInputsForOutputsOfReports) {
  define("Main", "/srv/main");
  m_cache.clearsOutputs = true;
  ASSERT_EQ(setFileCacheManager(&m_cache), 0);
  const auto intoReference = [](QvbString reference, const QvbString& repository) {
    EXPECT_TRUE(
        generateFilenameFromURIandRepository(nullptr, reference, repository, &reference, nullptr, nullptr));
    return str(reference);
  };
  EXPECT_EQ(intoReference("file:///a", ""), "/a");
  EXPECT_EQ(intoReference("qvr://x/load?type=ProcessJob", "Main"), "/srv/main/load.djf");
  EXPECT_EQ(intoReference("http://host/a", ""), "/cache/http://host/a");
  QvbString repository = "Main", reference = "ftp://host/a", filename, remote = "http://host/a";
  EXPECT_TRUE(generateFilenameFromURIandRepository(nullptr, "qvr://x/load?type=ProcessJob", repository,
                                                   &repository, nullptr, nullptr));
  EXPECT_EQ(repository, "/srv/main/load.djf");
  EXPECT_FALSE(generateFilenameFromURIandRepository(nullptr, reference, "", &filename, nullptr, &reference));
  EXPECT_EQ(reference, "The URI ftp://host/a is not a supported format to convert into filename.");
  EXPECT_TRUE(generateFilenameFromURIReference(nullptr, remote, &remote));
  EXPECT_EQ(remote, "/cache/http://host/a");
}

TEST_F(Conversion, ReportsAMissingReference) {
  for (const QvbString& none : {QvbString(), QvbString("")})
    EXPECT_EQ(convert(none), (Report{false, "before", true,
                                     "The URI reference must be supplied to generate filename from URI."}));
}

TEST_F(Conversion, ReportsAMissingOutput) {
  QvbString message;
  bool isRelative = true;
  EXPECT_FALSE(
      generateFilenameFromURIandRepository(nullptr, "file:///a", "", nullptr, &isRelative, &message));
  EXPECT_EQ(message, "The output string must be supplied to output the filename from URI.");
  EXPECT_TRUE(isRelative);
  EXPECT_FALSE(generateFilenameFromURIandRepository(nullptr, "", "", nullptr, nullptr, &message));
  EXPECT_EQ(message, "The URI reference must be supplied to generate filename from URI.");
  EXPECT_FALSE(generateFilenameFromURIandRepository(nullptr, "file:///a", "", nullptr, nullptr, nullptr));
}

TEST_F(Conversion, TellsWhetherATextThatIsNoURIIsRelative) {
  EXPECT_EQ(convert("relative/path"), (Report{false, "", true, "(null)"}));
  EXPECT_EQ(convert("/absolute/path"), (Report{false, "", false, "(null)"}));
}

TEST_F(Conversion, TellsWhetherAFileIsRelative) {
  EXPECT_EQ(convert("file:///data/in.txt"), (Report{true, "/data/in.txt", false, "(null)"}));
  EXPECT_EQ(convert("file:data/in.txt"), (Report{true, "data/in.txt", true, "(null)"}));
  EXPECT_EQ(convert("file://elsewhere/in.txt"), (Report{false, "", false, "(null)"}));
}

TEST_F(Conversion, TakesTheRepositoryFromTheArgument) {
  define("Main", "/srv/main");
  define("Other", "/srv/other");
  EXPECT_EQ(convert("qvr://Main/jobs/load?type=ProcessJob", "Other"),
            (Report{true, "/srv/other/jobs/load.djf", false, "(null)"}));
  EXPECT_EQ(convert("qvr://Main/jobs/load", "Other"), (Report{false, "", false, "(null)"}));
  EXPECT_EQ(convert("qvr://Main/jobs/load?type=ProcessJob", "Unknown"), (Report{false, "", false, "(null)"}));
  EXPECT_EQ(convert("qvr://Main/jobs/load?type=ProcessJob"),
            (Report{false, "", false,
                    "No repository name was supplied to output the filename from URI and repository."}));
}

TEST_F(Conversion, NeedsNoRepositoryNameUnderACommonRoot) {
  qvbSetConfigOption("BASE/REPOS_FILE_ROOT", "/srv/repo");
  EXPECT_EQ(convert("qvr://Main/jobs/load?type=ProcessJob"),
            (Report{true, "/srv/repo/jobs/load.djf", false, "(null)"}));
}

TEST_F(Conversion, ReportsASchemeThatNamesNoFile) {
  EXPECT_EQ(convert("ftp://host/50%25.txt"),
            (Report{false, "", false,
                    "The URI ftp://host/50%25.txt is not a supported format to convert into filename."}));
}

TEST_F(Conversion, ReportsTheWholeReferenceBeyondAZeroByte) {
  using namespace std::string_literals;
  EXPECT_EQ(convert(text("ftp://host/a\0b"s)).message,
            "The URI ftp://host/a\0b is not a supported format to convert into filename."s);
}

TEST_F(Conversion, FindsAnObjectBelowTheRootByItsType) {
  struct Case {
    const char* reference;
    const char* filename;
  };
  const Case cases[] = {
      {"qvr://Main/jobs/load?type=ProcessJob", "/srv/jobs/load.djf"},
      {"qvr://Main/a/b.txt?type=File", "/srv/a/b.txt"},
      {"qvr://Main/a/b?type=Unknown", "/srv/a/b"},
      {"qvr://Main/a%5Cb?type=ProcessJob", "/srv/a/b.djf"}, // a back slash
      {"qvr://Main/jobs/load(ProcessJob)", "/srv/jobs/load.djf"},
      {"qvr://Main/jobs/load%20(ProcessJob)", "/srv/jobs/load .djf"}, // the name as it stands
      {"qvr://Main/jobs/load(x)(ProcessJob)", "/srv/jobs/load(x).djf"},
      {"qvr://Main/jobs/load(Unknown)", "/srv/jobs/load"},
      {"qvr://Main/jobs/load", "(none)"},
      {"qvr://Main/(ProcessJob)", "(none)"},
      {"qvr://Main/load(ProcessJob", "(none)"},
      {"qvr://Main/load)ProcessJob(", "(none)"},
      {"qvr://Main/load(ProcessJob).txt", "(none)"}, // a plain path
      {"qvr://Main/load(ProcessJob)%20", "(none)"},
      {"qvr://Main/load(ProcessJob)/", "(none)"},
      {"qvr://Main/load(ProcessJob).txt?type=File", "/srv/load(ProcessJob).txt"},
      {"qvr://Main", "(none)"},
  };
  for (const auto& [reference, filename] : cases)
    EXPECT_EQ(vaultFile("/srv", reference), filename) << reference;
}

TEST_F(Conversion, FindsNoFileOutsideTheRoot) {
  struct Case {
    const char* reference;
    const char* filename;
  };
  const Case cases[] = {
      {"qvr://Main/../x?type=ProcessJob", "(none)"},
      {"qvr://Main/..?type=Folder", "(none)"},
      {"qvr://Main/a/../../x?type=ProcessJob", "(none)"},
      {"qvr://Main/../srv/x?type=ProcessJob", "(none)"},  // on its way back
      {"qvr://Main/a%2F..%2F..%2Fx?type=File", "(none)"}, // encoded
      {"qvr://Main/a%5C..%5C..%5Cx?type=File", "(none)"}, // back slashes
      {"qvr://Main/.//./../x(ProcessJob)", "(none)"},     // steps to nowhere
      {"qvr://Main/x/..(Folder)", "/srv/x/.."},           // not above the root
      {"qvr://Main/a/../x?type=ProcessJob", "/srv/a/../x.djf"},
      {"qvr://Main/..?type=ProcessJob", "/srv/...djf"}, // a name
      {"qvr://Main/..x/y..?type=File", "/srv/..x/y.."},
      {"qvr://Main/a%00b?type=ProcessJob", "(none)"},
      {"qvr://Main/a%00b(ProcessJob)", "(none)"},
      {"qvr://Main/ab(Process%00Job)", "(none)"},
  };
  for (const auto& [reference, filename] : cases)
    EXPECT_EQ(vaultFile("/srv", reference), filename) << reference;
}

TEST_F(Conversion, ReportsAPathThatNamesNoFileOfTheRepository) {
  define("Main", "/srv/main");
  EXPECT_EQ(
      convert("qvr://Main/../x?type=File", "Main"),
      (Report{false, "", false,
              "The path of the URI qvr://Main/../x?type=File leads out of the folder of the repository."}));
  EXPECT_EQ(convert("qvr://Main/a%00b?type=File", "Main"),
            (Report{false, "", false, "The path of the URI qvr://Main/a%00b?type=File holds a zero byte."}));
  EXPECT_EQ(toFile("qvr://Main/../x?type=File"), "(none)");
  EXPECT_EQ(toFile("qvr://Main/a%00b?type=File"), "(none)");
}

TEST_F(Conversion, WritesNothingWhenMemoryIsShort) {
  define("Main", "/srv/main");
  EXPECT_EQ(toURI("/srv/main/a"), "qvr://Main/a?type=File"); // reads the definition
  struct Case {
    std::function<bool(QvbString*)> convert;
    const char* expected;
  };
  const std::vector<Case> cases{
      {[](QvbString* out) { return generateURIReferenceFromFilename("/srv/main/a/load.djf", out); },
       "qvr://Main/a/load?type=ProcessJob"},
      {[](QvbString* out) {
         return generateFilenameFromURIReference(nullptr, "qvr://Main/a/load?type=ProcessJob", out);
       },
       "/srv/main/a/load.djf"},
  };
  for (const auto& each : cases) {
    QvbString out = "before";
    withEverMoreMemory([&] { return each.convert(&out); }, [&] { EXPECT_EQ(out, "before"); });
    EXPECT_EQ(out, each.expected);
  }
}

namespace {

// A path of one to three names without separators, of every kind of character that a URI cares about.
std::string anyPath(const std::vector<unsigned char>& choices) {
  static const char* const pieces[] = {"a", "B", "0",        " ",    "%",  "?",   "#", "&",
                                       "=", "(", ")",        "+",    ":",  "@",   "~", "\"",
                                       "'", "<", "\xC3\xA4", "\xFF", "\n", "%20", "[", "x.y"};
  std::string path = "p";
  int folders = 0;
  for (const auto choice : choices) {
    if (choice > 240 && folders++ < 2)
      path += "/p";
    else
      path += pieces[choice % std::size(pieces)];
  }
  return path;
}

} // namespace

TEST_F(Conversion, ComesBackToObjectsAndFilesOfARepository) {
  define("My %Main", "/srv/my repo");
  const char* const types[] = {"ProcessJob", "DataJob", "ArchitectJob", "XMLSQLQuery",
                               "ChopTable",  "Rule",    "ProfileJob",   "EntityResolution"};
  EXPECT_TRUE(rc::check([&](const std::vector<unsigned char>& choices, unsigned char kind) {
    std::string suffix = kind % 3 == 0 ? ".txt" : "";
    if (kind % 3 == 1) {
      QvbString extension;
      if (!getFileExtensionForType(types[kind % std::size(types)], &extension))
        return false;
      suffix = "." + str(extension);
    }
    const auto filename = "/srv/my repo/" + anyPath(choices) + suffix;
    return toFile(text(toURI(text(filename)))) == filename;
  }));
}

TEST_F(Conversion, ComesBackToPlainFiles) {
  EXPECT_TRUE(rc::check([&](const std::vector<unsigned char>& choices, bool absolute) {
    const auto filename = (absolute ? "/" : "") + anyPath(choices) + ".djf";
    return toFile(text(toURI(text(filename)))) == filename;
  }));
}
