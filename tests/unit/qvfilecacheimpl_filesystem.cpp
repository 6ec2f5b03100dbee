#include "qvfilecacheimpl_filesystem.h"

#include "support/faults.h"
#include "support/logcapture.h"
#include "support/tempdir.h"
#include "support/textio.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <limits>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

LogLine line(int level, const std::string& text) {
  return {"QV.FileAccessCache.FilesystemProvider", level, "src/qvfilecacheimpl", text};
}

class FilesystemSource : public testing::Test {
protected:
  std::vector<LogLine> logged() {
    auto lines = log.lines();
    log.clear();
    return lines;
  }
  int copy(const std::string& name) {
    return provider.updateLocalFileContent(nullptr, text(name), text(local), nullptr);
  }
  std::string summary(const std::string& name, const std::string& read, const std::string& wrote) const {
    return "Update local file content " + name + " to " + local + ", read " + read + ", wrote " + wrote;
  }
  // What is in the folder of copies, temporary files included.
  std::size_t copies() const {
    return static_cast<std::size_t>(
        std::distance(std::filesystem::directory_iterator(folder / "copies"), {}));
  }

  TempDir folder;
  const std::string source = folder.write("source.txt", "some bytes");
  const std::string missing = folder / "missing.txt";
  const std::string local = [this] {
    folder.write("copies/copy", "old copy");
    return folder / "copies/copy";
  }();
  LogCapture log;
  RemoteFilesystemFileProvider provider;
};

} // namespace

TEST_F(FilesystemSource, HasWhatTheFileSystemHas) {
  QvbString error;
  EXPECT_TRUE(provider.exists(nullptr, text(source), &error));
  EXPECT_THAT(logged(), ElementsAre(line(1, "The file " + source + " exists")));
  EXPECT_TRUE(provider.exists(nullptr, text("file://" + source), nullptr));
  EXPECT_THAT(logged(), ElementsAre(line(1, "The file file://" + source + " exists")));
  EXPECT_TRUE(error.isNull());
}

TEST_F(FilesystemSource, SaysNothingAboutAMissingFile) {
  QvbString error;
  EXPECT_FALSE(provider.exists(nullptr, text(missing), &error));
  EXPECT_TRUE(error.isNull());
  EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(FilesystemSource, TellsTheModificationDateInLocalTimeWithoutMilliseconds) {
  // 2026-11-21T13:45:30.987Z, in a zone three and a half hours behind
  const timespec times[2] = {{1795268730, 987654321}, {1795268730, 987654321}};
  ASSERT_EQ(::utimensat(AT_FDCWD, source.c_str(), times, 0), 0);
  std::tm expected{};
  ASSERT_NE(::localtime_r(&times[1].tv_sec, &expected), nullptr);
  QvbDate date;
  EXPECT_EQ(provider.getModifiedDate(nullptr, text(source), &date, nullptr, true), 0);
  int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0, millisecond = -1;
  date.getElements(&year, &month, &day, &hour, &minute, &second, &millisecond);
  EXPECT_THAT((std::vector{year, month, day, hour, minute, second, millisecond}),
              ElementsAre(expected.tm_year + 1900, expected.tm_mon + 1, expected.tm_mday, expected.tm_hour,
                          expected.tm_min, expected.tm_sec, 0));
  QvbDate again;
  EXPECT_EQ(provider.getModifiedDate(nullptr, text(source), &again, nullptr, false), 0);
  EXPECT_EQ(date.compare(again), 0);
  EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(FilesystemSource, LeavesTheDateAloneWhenThereIsNone) {
  QvbDate date;
  date.assign(2001, 2, 3, 4, 5, 6, 7);
  QvbString error;
  EXPECT_EQ(provider.getModifiedDate(nullptr, text(missing), &date, &error, true), 3);
  EXPECT_EQ(provider.getModifiedDate(nullptr, "file://elsewhere/a", &date, &error, true), 9);
  {
    const Faults faults(QvbFaultPoint::FileStat, EACCES);
    EXPECT_EQ(provider.getModifiedDate(nullptr, text(source), &date, &error, true), 4);
  }
  EXPECT_EQ(date.asString(false), "2001-02-03T04:05:06.007");
  EXPECT_TRUE(error.isNull());
  EXPECT_THAT(logged(), IsEmpty());
}

// A day so far away that its year is no int cannot be told.
TEST_F(FilesystemSource, LeavesTheDateAloneWhenTheCalendarEnds) {
  const timespec times[2] = {{std::numeric_limits<time_t>::max(), 0},
                             {std::numeric_limits<time_t>::max(), 0}};
  std::tm unused{};
  ASSERT_EQ(::localtime_r(&times[1].tv_sec, &unused), nullptr);
  ASSERT_EQ(::utimensat(AT_FDCWD, source.c_str(), times, 0), 0);
  struct stat kept {};
  ASSERT_EQ(::stat(source.c_str(), &kept), 0);
  QvbDate date;
  EXPECT_EQ(provider.getModifiedDate(nullptr, text(source), &date, nullptr, true), 0);
  // a file system with a smaller range keeps the last date that it knows
  EXPECT_EQ(date.isNull(), ::localtime_r(&kept.st_mtim.tv_sec, &unused) == nullptr);
}

TEST_F(FilesystemSource, CopiesEveryByteInBlocks) {
  struct Case {
    std::size_t size;
    int reads;
  };
  for (const auto& [size, reads] :
       {Case{1, 1}, Case{4095, 1}, Case{4096, 1}, Case{4097, 2}, Case{10000, 3}}) {
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < size; ++i)
      bytes[i] = static_cast<char>(i * 7 % 256);
    folder.write("source.txt", bytes);
    int writes = 0;
    {
      const Faults counting([&](QvbFaultPoint point, const std::string&) {
        writes += point == QvbFaultPoint::FileWrite;
        return 0;
      });
      EXPECT_EQ(copy(source), 0) << size;
    }
    EXPECT_EQ(writes, reads) << size;
    EXPECT_EQ(folder.read("copies/copy"), bytes) << size;
    EXPECT_THAT(logged(), ElementsAre(line(1, summary(source, std::to_string(size), std::to_string(size)))));
  }
}

TEST_F(FilesystemSource, MakesACopyThatOnlyItsOwnerReads) {
  std::filesystem::remove(local);
  EXPECT_EQ(copy("file://" + source), 0);
  struct stat copied {};
  ASSERT_EQ(::stat(local.c_str(), &copied), 0);
  EXPECT_EQ(copied.st_mode & 07777, 0600U);
  EXPECT_EQ(folder.read("copies/copy"), "some bytes");
}

TEST_F(FilesystemSource, FailsOnAMissingSource) {
  QvbString error;
  EXPECT_EQ(provider.updateLocalFileContent(nullptr, text(missing), text(local), &error), 1);
  EXPECT_THAT(logged(), ElementsAre(line(1, summary(missing, "0", "0"))));
  EXPECT_TRUE(error.isNull());
  EXPECT_EQ(folder.read("copies/copy"), "old copy");
}

TEST_F(FilesystemSource, FailsOnALocalFileThatCannotBeOpened) {
  const std::string nowhere = folder / "no/such/folder";
  EXPECT_EQ(provider.updateLocalFileContent(nullptr, text(source), text(nowhere), nullptr), 1);
  EXPECT_THAT(logged(), ElementsAre(line(1, "Update local file content " + source + " to " + nowhere +
                                                ", read 0, wrote 0")));
}

TEST_F(FilesystemSource, TakesAnEmptySourceForAFailedCopy) {
  folder.write("source.txt", "");
  EXPECT_EQ(copy(source), 1);
  EXPECT_THAT(logged(), ElementsAre(line(1, summary(source, "0", "0"))));
  // the copy is what the source is all the same
  EXPECT_EQ(folder.read("copies/copy"), "");
  EXPECT_EQ(copies(), 1U);
}

TEST_F(FilesystemSource, GoesOnAfterAFailedWriteAndKeepsTheOldCopy) {
  folder.write("source.txt", std::string(10000, 'x'));
  int writes = 0;
  {
    const Faults second([&](QvbFaultPoint point, const std::string&) {
      return point == QvbFaultPoint::FileWrite && ++writes == 2 ? ENOSPC : 0;
    });
    EXPECT_EQ(copy(source), 1);
  }
  EXPECT_EQ(writes, 3);
  // 4096 bytes, a refusal (-12) and 1808 bytes
  EXPECT_THAT(logged(), ElementsAre(line(2, "We had an issue writing bytes to: " + local),
                                    line(1, summary(source, "10000", "5892"))));
  EXPECT_EQ(folder.read("copies/copy"), "old copy");
  EXPECT_EQ(copies(), 1U);
}

TEST_F(FilesystemSource, KeepsTheOldCopyWhenEveryWriteFails) {
  {
    const Faults full(QvbFaultPoint::FileWrite, ENOSPC);
    EXPECT_EQ(copy(source), 1);
  }
  EXPECT_THAT(logged(), ElementsAre(line(2, "We had an issue writing bytes to: " + local),
                                    line(1, summary(source, "10", "-12"))));
  EXPECT_EQ(folder.read("copies/copy"), "old copy");
  EXPECT_EQ(copies(), 1U);
}

TEST_F(FilesystemSource, KeepsTheOldCopyWhenTheNewOneCannotTakeItsPlace) {
  for (const QvbFaultPoint point : {QvbFaultPoint::FileClose, QvbFaultPoint::FileRename}) {
    {
      const Faults faults([&](QvbFaultPoint at, const std::string& subject) {
        return at == point && subject == local ? EIO : 0;
      });
      EXPECT_EQ(copy(source), 1) << static_cast<int>(point);
    }
    EXPECT_THAT(logged(), ElementsAre(line(1, summary(source, "10", "10"))));
    EXPECT_EQ(folder.read("copies/copy"), "old copy");
    EXPECT_EQ(copies(), 1U);
  }
}

TEST_F(FilesystemSource, KeepsTheOldCopyWhenTheSourceCannotBeReadToItsEnd) {
  folder.write("source.txt", std::string(10000, 'x'));
  int reads = 0;
  {
    const Faults second([&](QvbFaultPoint point, const std::string&) {
      return point == QvbFaultPoint::FileRead && ++reads == 2 ? EIO : 0;
    });
    EXPECT_EQ(copy(source), 1);
  }
  EXPECT_THAT(logged(), ElementsAre(line(1, summary(source, "4096", "4096"))));
  EXPECT_EQ(folder.read("copies/copy"), "old copy");
  EXPECT_EQ(copies(), 1U);
}

TEST_F(FilesystemSource, CopiesNothingButRegularFiles) {
  const std::string pipe = folder / "pipe";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  for (const std::string& name : {pipe, std::string("/dev/zero"), folder.path().string()}) {
    EXPECT_TRUE(provider.exists(nullptr, text(name), nullptr));
    logged();
    EXPECT_EQ(copy(name), 1);
    EXPECT_THAT(logged(), ElementsAre(line(1, summary(name, "0", "0"))));
    EXPECT_EQ(folder.read("copies/copy"), "old copy");
  }
}

TEST_F(FilesystemSource, HasNoFileThatNoNameLeadsTo) {
  std::filesystem::create_symlink("loop", folder / "loop");
  QvbDate date;
  for (const std::string& name : {folder / "loop", folder / std::string(256, 'n')}) {
    EXPECT_FALSE(provider.exists(nullptr, text(name), nullptr));
    EXPECT_EQ(provider.getModifiedDate(nullptr, text(name), &date, nullptr, true), 3);
  }
}

TEST_F(FilesystemSource, HasNothingToFlush) {
  for (const bool flag : {false, true}) {
    EXPECT_TRUE(provider.flush(flag));
    EXPECT_THAT(logged(), ElementsAre(line(1, "Remote File system provider flushing cache.")));
  }
}

TEST_F(FilesystemSource, EndsWithItsRelease) {
  auto* released = new RemoteFilesystemFileProvider;
  released->release();
  EXPECT_THAT(logged(), IsEmpty());
}
