// Every operation of the disk fails in turn, and what was there before is still there afterwards.
#include "qvsfio/npfio.h"

#include "support/allocations.h"
#include "support/descriptors.h"
#include "support/faults.h"
#include "support/tempdir.h"
#include "support/textio.h"

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <sys/resource.h>
#include <sys/stat.h>

namespace fs = std::filesystem;

namespace {

using Point = QvbFaultPoint;

const QvbString NewText = "new";

int writeWhole(const QvbString& path) { return np_fio_writeAll(path, NewText); }

int writeThroughAHandle(const QvbString& path) {
  NpFile* file = nullptr;
  if (const int code = np_fio_open(path, NP_FIO_REPLACE, &file))
    return code;
  const auto written = np_fio_puts(file, NewText);
  const int code = np_fio_close(file);
  if (written < 0) {
    EXPECT_EQ(-written, code) << "closing reports what writing did";
  }
  return code;
}

int readWhole(const QvbString& path) {
  QvbString content;
  return np_fio_readAll(path, 100, &content);
}

int readThroughAHandle(const QvbString& path) {
  NpFile* file = nullptr;
  if (const int code = np_fio_open(path, NP_FIO_READ, &file))
    return code;
  std::array<char, 8> block{};
  const auto count = np_fio_getb(file, block.data(), block.size());
  const int code = np_fio_close(file);
  return count < 0 ? static_cast<int>(-count) : code;
}

int askForIt(const QvbString& path) { return np_fio_stat(path, nullptr); }

struct Operation {
  const char* name;
  int (*run)(const QvbString& path);
  std::vector<Point> points; // in the order that they are reached
};

const std::vector<Point> ReplacementPoints = {Point::DirOpen,  Point::FileOpen,  Point::FileWrite,
                                              Point::FileSync, Point::FileClose, Point::FileRename,
                                              Point::FileSync};

// What is a private copy is not flushed, and needs no exchange of names.
const Operation Replacements[] = {
    {"whole", writeWhole, ReplacementPoints},
    {"handle",
     writeThroughAHandle,
     {Point::DirOpen, Point::FileOpen, Point::FileWrite, Point::FileClose, Point::FileRename}}};

const Operation Others[] = {
    // one byte more than the file has is asked for: that it does not come is the end
    {"read whole", readWhole, {Point::FileOpen, Point::FileRead}},
    {"read handle",
     readThroughAHandle,
     {Point::FileOpen, Point::FileRead, Point::FileRead, Point::FileClose}},
    {"stat", askForIt, {Point::FileStat}},
    {"unlink", np_fio_unlink, {Point::FileUnlink}}};

const std::pair<int, int> Errors[] = {{ENOSPC, NP_FIO_REFUSED}, {EIO, NP_FIO_ERROR}, {EACCES, NP_FIO_ACCESS}};

// Fails the step of the given number, counted from 0, and lists the steps.
class FailingStep {
public:
  FailingStep(std::size_t step, int error)
      : m_faults([this, step, error](Point point, const std::string& subject) {
          m_points.push_back(point);
          m_subjects.push_back(subject);
          return m_points.size() - 1 == step ? error : 0;
        }) {}
  const std::vector<Point>& points() const { return m_points; }
  const std::vector<std::string>& subjects() const { return m_subjects; }

private:
  std::vector<Point> m_points;
  std::vector<std::string> m_subjects;
  Faults m_faults;
};

constexpr std::size_t NoStep = 1000;

class Disk : public testing::Test {
protected:
  QvbString path() const { return text(m_folder / "a"); }
  // Everything about the folder's files that a replacement could change.
  std::map<std::string, std::string> state() const {
    std::map<std::string, std::string> files;
    for (const auto& entry : fs::directory_iterator(m_folder.path())) {
      struct stat about {};
      EXPECT_EQ(::stat(entry.path().c_str(), &about), 0);
      const std::string name = entry.path().filename().string();
      files[name] =
          std::to_string(about.st_ino) + " " + std::to_string(about.st_mode) + " " + m_folder.read(name);
    }
    return files;
  }
  // Runs it with each of its steps failing in turn; afterwards all is as it was.
  void failEveryStep(const Operation& operation) {
    const auto before = state();
    const auto descriptors = openDescriptors();
    for (const auto& [error, code] : Errors)
      for (std::size_t step = 0; step < operation.points.size(); ++step) {
        const FailingStep failing(step, error);
        EXPECT_EQ(operation.run(path()), code) << operation.name << ", step " << step << ", errno " << error;
        EXPECT_EQ(state(), before) << operation.name << ", step " << step << ", errno " << error;
        EXPECT_EQ(openDescriptors(), descriptors) << operation.name << ", step " << step;
      }
  }
  void interruptEveryStep(const Operation& operation) {
    for (std::size_t step = 0; step < operation.points.size(); ++step) {
      m_folder.write("a", "old");
      const FailingStep interrupted(step, EINTR);
      EXPECT_EQ(operation.run(path()), NP_FIO_OK) << operation.name << ", step " << step;
    }
  }

  TempDir m_folder;
};

TEST_F(Disk, ReachesEveryStepOnceInOrder) {
  for (const auto* operations :
       {&Replacements[0], &Replacements[1], &Others[0], &Others[1], &Others[2], &Others[3]}) {
    m_folder.write("a", "old");
    const FailingStep none(NoStep, 0);
    EXPECT_EQ(operations->run(path()), NP_FIO_OK) << operations->name;
    EXPECT_EQ(none.points(), operations->points) << operations->name;
  }
}

TEST_F(Disk, NamesTheTargetAndItsFolderAsSubjects) {
  const std::string target = m_folder / "a";
  const std::string folder = m_folder.path().string();
  const FailingStep none(NoStep, 0);
  EXPECT_EQ(writeWhole(path()), NP_FIO_OK);
  // a name that is new has nothing to be exchanged with, and is renamed to instead
  EXPECT_EQ(none.subjects(),
            (std::vector<std::string>{folder, target, target, target, target, target, target, folder}));
}

TEST_F(Disk, KeepsTheOldFileWhicheverStepOfAReplacementFails) {
  m_folder.write("a", "old");
  fs::permissions(m_folder / "a", fs::perms(0640));
  for (const auto& operation : Replacements)
    failEveryStep(operation);
}

TEST_F(Disk, KeepsNoNewFileWhicheverStepOfMakingItFails) {
  Operation whole = Replacements[0];
  whole.points.insert(whole.points.end() - 1, Point::FileRename);
  failEveryStep(whole);
  failEveryStep(Replacements[1]);
  EXPECT_TRUE(fs::is_empty(m_folder.path()));
}

TEST_F(Disk, KeepsItsFilesWhicheverOtherStepFails) {
  m_folder.write("a", "old");
  for (const auto& operation : Others)
    failEveryStep(operation);
}

TEST_F(Disk, GoesOnAfterAnInterruptionOfEveryStep) {
  for (const auto& operation : Replacements)
    interruptEveryStep(operation);
  EXPECT_EQ(m_folder.read("a"), "new");
  for (const auto& operation : Others)
    interruptEveryStep(operation);
}

TEST_F(Disk, LosesNothingWhenOneWriteOfManyFails) {
  m_folder.write("a", "old");
  const auto before = state();
  NpFile* file = nullptr;
  ASSERT_EQ(np_fio_open(path(), NP_FIO_REPLACE, &file), NP_FIO_OK);
  EXPECT_EQ(np_fio_puts(file, "one"), 3);
  {
    const Faults full(Point::FileWrite, ENOSPC);
    EXPECT_EQ(np_fio_puts(file, "two"), -NP_FIO_REFUSED);
  }
  EXPECT_EQ(np_fio_puts(file, "three"), 5);
  EXPECT_EQ(np_fio_close(file), NP_FIO_REFUSED);
  EXPECT_EQ(state(), before);
}

TEST_F(Disk, WithoutExchangeOfNamesStillReplacesWhole) {
  m_folder.write("a", "old");
  for (const int unsupported : {EINVAL, ENOSYS}) {
    const FailingStep exchange(5, unsupported);
    EXPECT_EQ(writeWhole(path()), NP_FIO_OK);
    EXPECT_EQ(m_folder.read("a"), "new");
    EXPECT_EQ(state().size(), 1U);
  }
}

TEST_F(Disk, WithoutExchangeOfNamesKeepsTheNewFileWhenItsFolderCannotBeFlushed) {
  m_folder.write("a", "old");
  {
    const Faults faults([this, first = true](Point point, const std::string& subject) mutable {
      if (point == Point::FileRename && std::exchange(first, false))
        return EINVAL;
      return point == Point::FileSync && subject == m_folder.path() ? EIO : 0;
    });
    EXPECT_EQ(writeWhole(path()), NP_FIO_ERROR);
  }
  EXPECT_EQ(m_folder.read("a"), "new");
  EXPECT_EQ(state().size(), 1U);
}

TEST_F(Disk, KeepsTheOldFileBesideTheNewOneWhenItCannotBePutBack) {
  m_folder.write("a", "old");
  {
    const Faults faults([this, renames = 0](Point point, const std::string& subject) mutable {
      if (point == Point::FileRename)
        return ++renames == 1 ? 0 : EIO;
      return point == Point::FileSync && subject == m_folder.path() ? EACCES : 0;
    });
    EXPECT_EQ(writeWhole(path()), NP_FIO_ACCESS);
  }
  EXPECT_EQ(m_folder.read("a"), "new");
  const auto files = state();
  ASSERT_EQ(files.size(), 2U);
  const std::string aside = files.begin()->first;
  EXPECT_TRUE(aside.starts_with(".a.") && aside.ends_with(".tmp")) << aside;
  EXPECT_EQ(m_folder.read(aside), "old");
}

TEST_F(Disk, ThatFlushesNoFoldersIsNoFailure) {
  const Faults faults([this](Point point, const std::string& subject) {
    return point == Point::FileSync && subject == m_folder.path() ? EINVAL : 0;
  });
  EXPECT_EQ(writeWhole(path()), NP_FIO_OK);
  EXPECT_EQ(m_folder.read("a"), "new");
}

// Lets files grow to so many bytes while it lives: a write then ends short, and the next one fails.
class SizeLimit {
public:
  explicit SizeLimit(rlim_t bytes) : m_handler(std::signal(SIGXFSZ, SIG_IGN)) {
    getrlimit(RLIMIT_FSIZE, &m_before);
    const rlimit limited{bytes, m_before.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limited);
  }
  ~SizeLimit() {
    setrlimit(RLIMIT_FSIZE, &m_before);
    std::signal(SIGXFSZ, m_handler);
  }
  SizeLimit(const SizeLimit&) = delete;
  SizeLimit& operator=(const SizeLimit&) = delete;

private:
  rlimit m_before{};
  void (*m_handler)(int);
};

TEST_F(Disk, ThatEndsAWriteShortKeepsTheOldFile) {
  m_folder.write("a", "old");
  const auto before = state();
  int code = NP_FIO_OK;
  std::int64_t written = 0;
  {
    const SizeLimit limit(5000);
    NpFile* file = nullptr;
    ASSERT_EQ(np_fio_open(path(), NP_FIO_REPLACE, &file), NP_FIO_OK);
    written = np_fio_putb(file, std::string(10000, 'x').data(), 10000);
    code = np_fio_close(file);
  }
  EXPECT_EQ(written, -NP_FIO_REFUSED);
  EXPECT_EQ(code, NP_FIO_REFUSED);
  EXPECT_EQ(state(), before);
}

TEST_F(Disk, RefusesWhatThereIsNoMemoryFor) {
  const QvbString target = path();
  const QvbString uri = text("file://" + m_folder / "a");
  const QvbString folder = text(m_folder / "folder");
  std::array<char, 4096> made{};
  NpDir* directory = nullptr;
  const std::pair<const char*, std::function<int()>> operations[] = {
      {"whole", [&] { return writeWhole(target); }},
      {"handle", [&] { return writeThroughAHandle(target); }},
      {"read whole", [&] { return readWhole(target); }},
      {"read handle", [&] { return readThroughAHandle(target); }},
      {"stat", [&] { return np_fio_stat(target, nullptr); }},
      {"stat of a URI", [&] { return np_fio_stat(uri, nullptr); }},
      {"folder",
       [&] {
         const int code = np_dir_create(folder, 8);
         return code ? code : np_dir_unlink(folder);
       }},
      {"temporary folder",
       [&] {
         const int code = np_dir_tmpdir("npfio-faults-folder", made.data(), made.size(), &directory);
         np_dir_discard(directory);
         return code;
       }},
      {"join", [&] { return np_fio_pcat("/a", "b", made.data(), made.size()); }},
  };
  m_folder.write("a", "old");
  for (const auto& entry : operations) {
    const char* const name = entry.first;
    const auto& operation = entry.second;
    const auto descriptors = openDescriptors();
    int code = NP_FIO_OK;
    Allocations::failEach([&] { code = operation(); },
                          [&](long n) {
                            EXPECT_EQ(code, Allocations::failed ? NP_FIO_REFUSED : NP_FIO_OK)
                                << name << ", allocation " << n;
                            EXPECT_EQ(state().size(), 1U) << name << ", allocation " << n;
                            EXPECT_EQ(openDescriptors(), descriptors) << name << ", allocation " << n;
                          });
    EXPECT_EQ(code, NP_FIO_OK) << name;
  }
  EXPECT_EQ(m_folder.read("a"), "new");
  EXPECT_FALSE(fs::exists(fs::temp_directory_path() / "npfio-faults-folder"));
}

// What has to be cleaned up when memory has run out can be.
TEST_F(Disk, RemovesWithoutMemory) {
  m_folder.write("a", "old");
  fs::create_directory(m_folder / "folder");
  const QvbString file = path();
  const QvbString folder = text(m_folder / "folder");
  std::array<char, 4096> made{};
  NpDir* directory = nullptr;
  ASSERT_EQ(np_dir_tmpdir("npfio-faults-discarded", made.data(), made.size(), &directory), NP_FIO_OK);
  Allocations::left = 0;
  const int removed = np_fio_unlink(file) + np_dir_unlink(folder);
  np_dir_discard(directory);
  Allocations::left = -1;
  EXPECT_EQ(removed, NP_FIO_OK);
  EXPECT_TRUE(fs::is_empty(m_folder.path()));
  EXPECT_FALSE(fs::exists(made.data()));
  np_dir_discard(nullptr);
}

TEST_F(Disk, RefusesAHandleWhenDescriptorsRunOut) {
  m_folder.write("a", "old");
  const auto before = state();
  for (const int mode : {NP_FIO_READ, NP_FIO_REPLACE}) {
    const Faults faults(Point::FileOpen, EMFILE);
    NpFile* file = nullptr;
    EXPECT_EQ(np_fio_open(path(), mode, &file), NP_FIO_REFUSED);
    EXPECT_EQ(file, nullptr);
  }
  EXPECT_EQ(state(), before);
}

} // namespace
