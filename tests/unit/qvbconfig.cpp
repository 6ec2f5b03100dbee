#include "qvxbase/qvbconfig.h"

#include "qvsfio/npfio.h"

#include "qvxbase/qvbformat.h"
#include "support/allocations.h"
#include "support/logcapture.h"
#include "support/tempdir.h"
#include "support/textio.h"

#include <gmock/gmock.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <new>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// A process of one's own as far as options go: none set, and an option file that this names.
class Config : public testing::Test {
protected:
  ~Config() override {
    ::unsetenv("QV_CONFIG");
    ::unsetenv("QVTEST_OPTION");
    qvbClearConfigOptions();
    qvbSetConfigAvailable(true);
  }

  // A new name each time, since a file is read once under its name.
  std::string useFile(const std::string& content) {
    static int count = 0;
    std::string path = dir.write("options" + std::to_string(++count) + ".ini", content);
    ::setenv("QV_CONFIG", path.c_str(), 1);
    return path;
  }
  static QvbString option(const char* key) { return qvbGetConfigOption(key); }
  std::vector<LogLine> faults() const { return log.lines("QV.Base.Config"); }
  static LogLine fault(const std::string& text) {
    return {"QV.Base.Config", 5, "platform/qvxbase/qvbconfig", text};
  }

  TempDir dir;
  LogCapture log;
};

TEST_F(Config, HasNoValueForAKeyThatNobodySet) {
  EXPECT_TRUE(option("BASE/QVTEST").isNull());
  QvbConfigOptions* options = qvbGetConfigOptions(QvbString());
  QvbString value("old");
  EXPECT_FALSE(options->getOption(QvbString("BASE/QVTEST"), &value, 0));
  EXPECT_TRUE(value.isNull());
  EXPECT_FALSE(options->getOption(QvbString("BASE/QVTEST"), nullptr, 0));
  options->release();
}

TEST_F(Config, OffersOnlyTheStoreOfTheEmptyName) {
  EXPECT_NE(qvbGetConfigOptions(QvbString()), nullptr);
  EXPECT_NE(qvbGetConfigOptions(QvbString("")), nullptr);
  EXPECT_EQ(qvbGetConfigOptions(QvbString("other")), nullptr);
}

TEST_F(Config, IsNullWhileTheHostHasSwitchedItOff) {
  qvbSetConfigOption(QvbString("BASE/A"), QvbString("set"));
  qvbSetConfigAvailable(false);
  EXPECT_EQ(qvbGetConfigOptions(QvbString()), nullptr);
  EXPECT_TRUE(option("BASE/A").isNull());
  qvbSetConfigAvailable(true);
  EXPECT_EQ(option("BASE/A"), QvbString("set"));
}

TEST_F(Config, GivesTheHostsValuesUntilTheyAreTakenBack) {
  qvbSetConfigOption(QvbString("BASE/A"), QvbString("1"));
  qvbSetConfigOption(QvbString("BASE/B"), QvbString("2"));
  EXPECT_EQ(option("BASE/A"), QvbString("1"));
  qvbSetConfigOption(QvbString("BASE/A"), QvbString());
  EXPECT_TRUE(option("BASE/A").isNull());
  EXPECT_EQ(option("BASE/B"), QvbString("2"));
  qvbClearConfigOptions();
  EXPECT_TRUE(option("BASE/B").isNull());
}

TEST_F(Config, ReadsTheFileThatTheEnvironmentNames) {
  useFile("; comment\n# comment\n\nTOP = top\n[BASE]\nREPOS_SYS_PATH = /srv/sys ; note\nHASH=a#b\n"
          "[MDM]\r\nROOT: c:d\r\n\tINDENTED = own\nEMPTY=\nTWICE=1\nTWICE=2\nLAST=no line feed");
  EXPECT_EQ(option("TOP"), QvbString("top"));
  EXPECT_EQ(option("BASE/REPOS_SYS_PATH"), QvbString("/srv/sys"));
  EXPECT_EQ(option("BASE/HASH"), QvbString("a#b"));
  EXPECT_EQ(option("MDM/ROOT"), QvbString("c:d"));
  EXPECT_EQ(option("MDM/INDENTED"), QvbString("own"));
  EXPECT_FALSE(option("MDM/EMPTY").isNull());
  EXPECT_TRUE(option("MDM/EMPTY").isEmpty());
  EXPECT_EQ(option("MDM/TWICE"), QvbString("2"));
  EXPECT_EQ(option("MDM/LAST"), QvbString("no line feed"));
  EXPECT_TRUE(option("BASE/ROOT").isNull());
  EXPECT_THAT(faults(), IsEmpty());
}

TEST_F(Config, ReadsAFileThatBeginsWithAByteOrderMark) {
  useFile("\xef\xbb\xbf[BASE]\nA=1\n");
  EXPECT_EQ(option("BASE/A"), QvbString("1"));
  EXPECT_THAT(faults(), IsEmpty());
}

TEST_F(Config, KeepsValuesOfEveryLength) {
  for (const std::size_t length :
       {150U, 190U, 191U, 192U, 193U, 194U, 195U, 196U, 197U, 198U, 199U, 200U, 4096U}) {
    const QvbString path(std::string_view(std::string(length, 'x')));
    useFile(str(qvbStringFormat("[BASE]\nLONG = %S \t; note\nNEXT=1\n; %S=\n", &path, &path)));
    EXPECT_EQ(option("BASE/LONG"), path);
    EXPECT_EQ(option("BASE/NEXT"), QvbString("1"));
  }
  EXPECT_THAT(faults(), IsEmpty());
}

TEST_F(Config, ComparesKeysWithoutCase) {
  useFile("[Base]\nRepos_Sys_Path=file\n");
  qvbSetConfigOption(QvbString("Log/Level"), QvbString("3"));
  EXPECT_EQ(option("BASE/REPOS_SYS_PATH"), QvbString("file"));
  EXPECT_EQ(option("LOG/LEVEL"), QvbString("3"));
}

TEST_F(Config, PrefersTheHostToTheFileAndTheFileToTheEnvironment) {
  ::setenv("QVTEST_OPTION", "environment", 1);
  EXPECT_EQ(option("QVTEST_OPTION"), QvbString("environment"));
  useFile("QVTEST_OPTION=file\n");
  EXPECT_EQ(option("QVTEST_OPTION"), QvbString("file"));
  qvbSetConfigOption(QvbString("QVTEST_OPTION"), QvbString("host"));
  EXPECT_EQ(option("QVTEST_OPTION"), QvbString("host"));
}

TEST_F(Config, AsksTheEnvironmentOnlyForKeysWithoutASlash) {
  for (const char* key : {"QVTEST/OPTION", "/QVTEST_OPTION"}) {
    ::setenv(key, "environment", 1);
    EXPECT_TRUE(option(key).isNull()) << key;
    ::unsetenv(key);
  }
}

TEST_F(Config, TellsAnEmptyValueFromNone) {
  qvbSetConfigOption(QvbString("BASE/A"), QvbString(""));
  QvbString value;
  EXPECT_TRUE(qvbGetConfigOptions(QvbString())->getOption(QvbString("BASE/A"), &value, 0));
  EXPECT_FALSE(value.isNull());
}

TEST_F(Config, ReadsTheFileOnceAndAnotherOneWhenTheNameChanges) {
  const std::string path = useFile("[BASE]\nA=1\n");
  EXPECT_EQ(option("BASE/A"), QvbString("1"));
  dir.write(path.substr(path.rfind('/') + 1), "[BASE]\nA=2\n");
  EXPECT_EQ(option("BASE/A"), QvbString("1"));
  useFile("[BASE]\nA=3\n");
  EXPECT_EQ(option("BASE/A"), QvbString("3"));
  ::unsetenv("QV_CONFIG");
  EXPECT_TRUE(option("BASE/A").isNull());
  ::setenv("QV_CONFIG", "", 1);
  EXPECT_TRUE(option("BASE/A").isNull());
  EXPECT_THAT(faults(), IsEmpty());
}

TEST_F(Config, LogsAMalformedLineOnceAndKeepsTheOthers) {
  const std::string path = useFile("[BASE]\nA=1\nnonsense\nB=2\nmore nonsense\n");
  EXPECT_EQ(option("BASE/A"), QvbString("1"));
  EXPECT_EQ(option("BASE/B"), QvbString("2"));
  EXPECT_THAT(faults(), ElementsAre(fault(path + ":3: malformed option line")));
}

TEST_F(Config, LogsALongLineThatIsMalformed) {
  const std::string path =
      useFile("[BASE]\n" + std::string(500, 'x') + "\n[" + std::string(500, 'y') + "\nA=1\n");
  EXPECT_EQ(option("BASE/A"), QvbString("1"));
  EXPECT_THAT(faults(), ElementsAre(fault(path + ":2: malformed option line")));
}

TEST_F(Config, LogsAFileThatCannotBeReadOnce) {
  const std::string path = dir / "missing.ini";
  ::setenv("QV_CONFIG", path.c_str(), 1);
  ::setenv("QVTEST_OPTION", "environment", 1);
  EXPECT_TRUE(option("BASE/A").isNull());
  EXPECT_EQ(option("QVTEST_OPTION"), QvbString("environment"));
  EXPECT_THAT(faults(), ElementsAre(fault(
                            path + ": cannot read the option file: " + np_fio_errdesc(NP_FIO_NOT_FOUND))));
}

TEST_F(Config, TellsWhetherAFileCanBeRead) {
  QvbString fault;
  dir.write("good.ini", "[BASE]\nA=1\n");
  EXPECT_TRUE(qvbCheckConfigFile(QvbString((dir / "good.ini").c_str()), &fault));
  EXPECT_TRUE(fault.isNull());
  dir.write("bad.ini", "[BASE]\nnonsense\n");
  EXPECT_FALSE(qvbCheckConfigFile(QvbString((dir / "bad.ini").c_str()), &fault));
  EXPECT_EQ(str(fault), dir / "bad.ini:2: malformed option line");
  EXPECT_FALSE(qvbCheckConfigFile(QvbString((dir / "none.ini").c_str()), &fault));
  EXPECT_EQ(str(fault), dir / "none.ini: cannot read the option file: not found");
  EXPECT_TRUE(option("BASE/A").isNull());
  EXPECT_THAT(faults(), IsEmpty());
}

// The nth allocation fails; the file is read when there is memory again.
TEST_F(Config, AFileThatShortMemoryKeptFromBeingReadIsReadTheNextTime) {
  const std::string value(500, 'x');
  for (long allocations = 0;; ++allocations) {
    useFile("[BASE]\nA=" + value + "\nAN/OTHER/KEY/THAT/IS/LONG=1\n");
    Allocations::left = allocations;
    try {
      option("BASE/A");
    } catch (const std::bad_alloc&) {
      Allocations::left = 0;
    }
    const bool enough = Allocations::left > 0;
    Allocations::left = -1;
    ASSERT_EQ(str(option("BASE/A")), value) << allocations;
    ASSERT_THAT(faults(), IsEmpty()) << allocations;
    if (enough)
      break;
  }
}

TEST_F(Config, GivesANumberInItsRangeOrTheStandardOne) {
  constexpr const QvbNumberOption& level = QvbOptions::LogLevel;
  static_assert(level.standardNumber() == 4 && level.least == 1 && level.most == 6);
  const struct {
    const char* option; // null for none
    int value;
    bool isRefused;
  } cases[] = {{nullptr, 4, false}, {"1", 1, false}, {" 6", 6, false}, {"0", 4, true},
               {"7", 4, true},      {"", 4, true},   {"2 ", 4, true},  {"two", 4, true}};
  for (const auto& [option, value, isRefused] : cases) {
    qvbSetConfigOption(level.key, option);
    const QvbOptionNumber number = qvbGetConfigNumber(level);
    EXPECT_EQ(number.value, value) << (option ? option : "none");
    EXPECT_EQ(number.given.isNull(), option == nullptr);
    EXPECT_EQ(number.refused.isNull(), !isRefused);
    EXPECT_EQ(number.refused, isRefused ? QvbString(option) : QvbString());
  }
  qvbSetConfigOption(level.key, "2");
  qvbSetConfigAvailable(false);
  EXPECT_EQ(qvbGetConfigNumber(level).value, 4);
  qvbSetConfigAvailable(true);
}

class FolderOption : public Config {
protected:
  ~FolderOption() override { std::filesystem::current_path(m_before); }

  static constexpr const QvbFolderOption& Folder = QvbOptions::UserDefinitions;
  std::string folder(const char* value) const {
    qvbSetConfigOption(Folder.key, value);
    return str(qvbGetConfigFolder(Folder));
  }
  void go(const std::string& name) const {
    std::filesystem::create_directories(dir.path() / name);
    std::filesystem::current_path(dir.path() / name);
  }

private:
  const std::filesystem::path m_before = std::filesystem::current_path();
};

TEST_F(FolderOption, IsANativePath) {
  EXPECT_EQ(folder("/srv/a"), "/srv/a");
  EXPECT_EQ(folder("file:///srv/a%20b"), "/srv/a b");
  EXPECT_EQ(folder("file://host/srv"), "file://host/srv");
}

TEST_F(FolderOption, IsNullOrEmptyWhereTheOptionIs) {
  EXPECT_TRUE(qvbGetConfigFolder(Folder).isNull());
  EXPECT_EQ(folder(""), "");
  EXPECT_FALSE(qvbGetConfigFolder(Folder).isNull());
}

TEST_F(FolderOption, IsMadeAbsoluteWhenItIsFirstRead) {
  go("one");
  EXPECT_EQ(folder("defs"), dir / "one/defs");
  go("two");
  EXPECT_EQ(str(qvbGetConfigFolder(Folder)), dir / "one/defs");
  EXPECT_EQ(folder("defs"), dir / "two/defs") << "set anew";
  EXPECT_EQ(folder("other"), dir / "two/other");
  EXPECT_EQ(folder("file:defs"), dir / "two/defs");
}

TEST_F(FolderOption, StaysRelativeWhereTheProcessIsInAFolderThatIsGone) {
  go("gone");
  std::filesystem::remove(dir.path() / "gone");
  EXPECT_EQ(folder("defs"), "defs");
  go("one");
  EXPECT_EQ(str(qvbGetConfigFolder(Folder)), dir / "one/defs");
}

TEST_F(FolderOption, OfAFileIsMadeAbsoluteWhenItIsFirstRead) {
  useFile(std::string("[BASE]\nREPOS_USER_PATH=defs\n"));
  go("one");
  EXPECT_EQ(str(qvbGetConfigFolder(Folder)), dir / "one/defs");
  go("two");
  EXPECT_EQ(str(qvbGetConfigFolder(Folder)), dir / "one/defs");
  useFile(std::string("[BASE]\nREPOS_USER_PATH=other\n"));
  EXPECT_EQ(str(qvbGetConfigFolder(Folder)), dir / "two/other");
}

TEST_F(FolderOption, OfAnotherNameIsItsOwn) {
  go("one");
  EXPECT_EQ(folder("defs"), dir / "one/defs");
  go("two");
  qvbSetConfigOption(QvbOptions::SystemDefinitions.key, "defs");
  EXPECT_EQ(str(qvbGetConfigFolder(QvbOptions::SystemDefinitions)), dir / "two/defs");
}

TEST_F(Config, IsReadByManyThreadsWhileTheHostChangesIt) {
  const std::string path = useFile("[BASE]\nA=file\nnonsense\nB=file\n");
  std::atomic<int> wrong{0};
  std::array<std::thread, 4> readers;
  for (auto& reader : readers)
    reader = std::thread([&] {
      for (int n = 0; n < 500; ++n) {
        const QvbString value = option("BASE/A");
        wrong += value != QvbString("file") && value != QvbString("host");
        wrong += option("BASE/B") != QvbString("file");
      }
    });
  for (int n = 0; n < 500; ++n)
    qvbSetConfigOption(QvbString("BASE/A"), n % 2 ? QvbString("host") : QvbString());
  for (auto& reader : readers)
    reader.join();
  EXPECT_EQ(wrong, 0);
  EXPECT_THAT(faults(), ElementsAre(fault(path + ":3: malformed option line")));
}

} // namespace
