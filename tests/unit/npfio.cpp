#include "qvsfio/npfio.h"

#include "support/descriptors.h"
#include "support/faults.h"
#include "support/tempdir.h"
#include "support/textio.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace fs = std::filesystem;
using namespace std::string_literals;

namespace {

constexpr std::int64_t NoLimit = std::numeric_limits<std::int64_t>::max();

const QvbString ZeroInside(std::string_view("/tmp\0/x", 7));

struct CodeCase {
  int error;
  int code;
};

TEST(FileCodes, FollowFromErrno) {
  const CodeCase cases[] = {
      {0, NP_FIO_OK},
      {ENOENT, NP_FIO_NOT_FOUND},
      {ENOTDIR, NP_FIO_NOT_FOUND},
      {ELOOP, NP_FIO_NOT_FOUND},
      {ENAMETOOLONG, NP_FIO_NOT_FOUND},
      {EACCES, NP_FIO_ACCESS},
      {EPERM, NP_FIO_ACCESS},
      {EROFS, NP_FIO_ACCESS},
      {EISDIR, NP_FIO_UNSUPPORTED},
      {ENOTSUP, NP_FIO_UNSUPPORTED},
      {ENOSYS, NP_FIO_UNSUPPORTED},
      {EXDEV, NP_FIO_UNSUPPORTED},
      {ENXIO, NP_FIO_UNSUPPORTED},
      {ENODEV, NP_FIO_UNSUPPORTED},
      {ENOSPC, NP_FIO_REFUSED},
      {EDQUOT, NP_FIO_REFUSED},
      {EFBIG, NP_FIO_REFUSED},
      {EBUSY, NP_FIO_REFUSED},
      {ETXTBSY, NP_FIO_REFUSED},
      {EAGAIN, NP_FIO_REFUSED},
      {EMFILE, NP_FIO_REFUSED},
      {ENFILE, NP_FIO_REFUSED},
      {ENOMEM, NP_FIO_REFUSED},
      {EEXIST, NP_FIO_REFUSED},
      {ENOTEMPTY, NP_FIO_REFUSED},
      {EIO, NP_FIO_ERROR},
      {EINVAL, NP_FIO_ERROR},
      {-1, NP_FIO_ERROR},
  };
  for (const auto& c : cases)
    EXPECT_EQ(np_fio_code(c.error), c.code) << c.error;
}

TEST(FileCodes, HaveATextEach) {
  EXPECT_STREQ(np_fio_errdesc(NP_FIO_OK), "success");
  EXPECT_STREQ(np_fio_errdesc(NP_FIO_ERROR), "general error");
  EXPECT_STREQ(np_fio_errdesc(NP_FIO_NOT_FOUND), "not found");
  EXPECT_STREQ(np_fio_errdesc(NP_FIO_ACCESS), "access denied");
  EXPECT_STREQ(np_fio_errdesc(NP_FIO_PARTIAL), "only a part was transferred");
  EXPECT_STREQ(np_fio_errdesc(NP_FIO_UNSUPPORTED), "not supported");
  EXPECT_STREQ(np_fio_errdesc(NP_FIO_REFUSED), "refused or temporarily unavailable");
  EXPECT_STREQ(np_fio_errdesc(-1), "unknown error");
  EXPECT_STREQ(np_fio_errdesc(2), "unknown error");
}

TEST(JoiningIntoABuffer, PutsOneSlashBetween) {
  std::array<char, 32> buffer{};
  EXPECT_EQ(np_fio_pcat("/tmp/cache", "name", buffer.data(), buffer.size()), NP_FIO_OK);
  EXPECT_STREQ(buffer.data(), "/tmp/cache/name");
  EXPECT_EQ(np_fio_pcat("/tmp//", "//name", buffer.data(), buffer.size()), NP_FIO_OK);
  EXPECT_STREQ(buffer.data(), "/tmp/name");
  EXPECT_EQ(np_fio_pcat("", "name", buffer.data(), buffer.size()), NP_FIO_OK);
  EXPECT_STREQ(buffer.data(), "name");
  EXPECT_EQ(np_fio_pcat("/tmp", nullptr, buffer.data(), buffer.size()), NP_FIO_OK);
  EXPECT_STREQ(buffer.data(), "/tmp");
}

TEST(JoiningIntoABuffer, LeavesItEmptyWhenItIsTooSmall) {
  std::array<char, 8> buffer{};
  EXPECT_EQ(np_fio_pcat("abc", "def", buffer.data(), 8), NP_FIO_OK);
  EXPECT_EQ(np_fio_pcat("abc", "def", buffer.data(), 7), NP_FIO_ERROR);
  EXPECT_STREQ(buffer.data(), "");
  buffer[0] = 'x';
  EXPECT_EQ(np_fio_pcat("abc", "def", buffer.data(), 0), NP_FIO_ERROR);
  EXPECT_EQ(buffer[0], 'x') << "there is no byte to write to";
}

class Files : public testing::Test {
protected:
  QvbString path(const std::string& name) const { return text(m_folder / name); }
  // A handle that the test closes; null, with the code in `code`, on failure.
  NpFile* open(const std::string& name, int mode = NP_FIO_READ) {
    NpFile* file = nullptr;
    code = np_fio_open(path(name), mode, &file);
    return file;
  }

  TempDir m_folder;
  int code = NP_FIO_OK;
};

TEST_F(Files, AreReadInBlocksUntilTheEnd) {
  m_folder.write("a", std::string(10000, 'x'));
  NpFile* file = open("a");
  ASSERT_NE(file, nullptr);
  std::array<char, 4096> block{};
  for (const std::int64_t expected : {4096, 4096, 1808, 0, 0})
    EXPECT_EQ(np_fio_getb(file, block.data(), block.size()), expected);
  EXPECT_EQ(np_fio_getb(file, block.data(), 0), 0);
  EXPECT_EQ(np_fio_close(file), NP_FIO_OK);
}

// The system gives the memory map of a process in pieces.
TEST_F(Files, BlocksAreFilledThoughTheSystemGivesLess) {
  constexpr const char* Map = "/proc/self/smaps";
  std::array<char, 16384> block{};
  const int fd = ::open(Map, O_RDONLY | O_CLOEXEC);
  const auto piece = ::read(fd, block.data(), block.size());
  ::close(fd);
  ASSERT_GT(piece, 0);
  ASSERT_LT(piece, static_cast<ssize_t>(block.size()));
  NpFile* file = nullptr;
  ASSERT_EQ(np_fio_open(Map, NP_FIO_READ, &file), NP_FIO_OK);
  EXPECT_EQ(np_fio_getb(file, block.data(), block.size()), static_cast<std::int64_t>(block.size()));
  EXPECT_EQ(np_fio_close(file), NP_FIO_OK);
}

// Nobody holds the other end of the pipe: whoever waited for it would wait for ever.
TEST_F(Files, ThatAreNotRegularAreRefusedAtOnce) {
  ASSERT_EQ(mkfifo((m_folder / "pipe").c_str(), 0600), 0);
  fs::create_symlink("pipe", m_folder / "link");
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  std::strcpy(address.sun_path, "socket");
  const fs::path before = fs::current_path();
  fs::current_path(m_folder.path()); // its own path may be too long for the address
  ASSERT_EQ(::bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
  fs::current_path(before);
  const auto descriptors = openDescriptors();
  for (const auto& name : {m_folder / "pipe", m_folder / "link", m_folder / "socket",
                           m_folder.path().string(), std::string("/dev/zero"), std::string("/dev/null")}) {
    NpFile* file = nullptr;
    QvbString content("untouched");
    EXPECT_EQ(np_fio_open(text(name), NP_FIO_READ, &file), NP_FIO_UNSUPPORTED) << name;
    EXPECT_EQ(file, nullptr) << name;
    EXPECT_EQ(np_fio_readAll(text(name), NoLimit, &content), NP_FIO_UNSUPPORTED) << name;
    EXPECT_EQ(content, QvbString("untouched"));
    EXPECT_EQ(np_fio_stat(text(name), nullptr), NP_FIO_OK) << name;
  }
  EXPECT_EQ(openDescriptors(), descriptors);
  ::close(socket);
}

TEST_F(Files, ThatNoNameLeadsToAreNotFound) {
  fs::create_symlink("loop", m_folder / "loop");
  fs::create_symlink("missing", m_folder / "dangling");
  const std::string longest(255, 'n');
  m_folder.write(longest, "x");
  EXPECT_EQ(np_fio_stat(path(longest), nullptr), NP_FIO_OK);
  std::string deep = "x";
  while (deep.size() < 5000)
    deep += "/x";
  for (const std::string& name : {"loop"s, "loop/below"s, longest + 'n', "missing/file"s, deep}) {
    NpFile* file = nullptr;
    EXPECT_EQ(np_fio_stat(path(name), nullptr), NP_FIO_NOT_FOUND) << name;
    EXPECT_EQ(np_fio_open(path(name), NP_FIO_READ, &file), NP_FIO_NOT_FOUND) << name;
    EXPECT_EQ(np_fio_open(path(name), NP_FIO_REPLACE, &file), NP_FIO_NOT_FOUND) << name;
    EXPECT_EQ(np_fio_writeAll(path(name), "x"), NP_FIO_NOT_FOUND) << name;
    EXPECT_EQ(np_dir_create(path(name + "/below"), 8), NP_FIO_NOT_FOUND) << name;
    EXPECT_STREQ(np_fio_errdesc(np_fio_stat(path(name), nullptr)), "not found");
  }
  EXPECT_EQ(open("dangling"), nullptr);
  EXPECT_EQ(code, NP_FIO_NOT_FOUND);
}

TEST_F(Files, ThatCannotBeOpenedGiveNoHandle) {
  m_folder.write("file", "x");
  fs::create_directory(m_folder / "folder");
  const std::pair<const char*, int> cases[] = {
      {"missing", NP_FIO_NOT_FOUND},
      {"missing/file", NP_FIO_NOT_FOUND},
      {"file/below", NP_FIO_NOT_FOUND},
      {"folder", NP_FIO_UNSUPPORTED},
  };
  for (const auto& [name, expected] : cases) {
    NpFile* file = reinterpret_cast<NpFile*>(this);
    EXPECT_EQ(np_fio_open(path(name), NP_FIO_READ, &file), expected) << name;
    EXPECT_EQ(file, nullptr) << name;
  }
  for (const auto& nothing : {QvbString(), QvbString("")}) {
    NpFile* file = nullptr;
    EXPECT_EQ(np_fio_open(nothing, NP_FIO_READ, &file), NP_FIO_NOT_FOUND);
    EXPECT_EQ(np_fio_open(nothing, NP_FIO_REPLACE, &file), NP_FIO_NOT_FOUND);
  }
  for (const int mode : {-1, 0, 2, 85, 87}) {
    EXPECT_EQ(open("file", mode), nullptr) << mode;
    EXPECT_EQ(code, NP_FIO_UNSUPPORTED) << mode;
  }
}

TEST_F(Files, AreReadOrWrittenButNotBoth) {
  m_folder.write("a", "content");
  std::array<char, 8> block{};
  NpFile* reader = open("a");
  EXPECT_EQ(np_fio_putb(reader, "x", 1), -NP_FIO_UNSUPPORTED);
  EXPECT_EQ(np_fio_puts(reader, "x"), -NP_FIO_UNSUPPORTED);
  EXPECT_EQ(np_fio_close(reader), NP_FIO_OK);
  NpFile* writer = open("b", NP_FIO_REPLACE);
  EXPECT_EQ(np_fio_getb(writer, block.data(), block.size()), -NP_FIO_UNSUPPORTED);
  EXPECT_EQ(np_fio_close(writer), NP_FIO_OK);
}

TEST_F(Files, DescriptorsEndWithTheirHandlesAndAtExec) {
  m_folder.write("a", "content");
  const auto before = openDescriptors();
  NpFile* reader = open("a");
  NpFile* writer = open("b", NP_FIO_REPLACE);
  auto opened = openDescriptors();
  std::erase_if(opened, [&](int fd) { return before.contains(fd); });
  EXPECT_GE(opened.size(), 2U);
  for (const int fd : opened)
    EXPECT_TRUE(::fcntl(fd, F_GETFD) & FD_CLOEXEC) << fd;
  np_fio_close(reader);
  np_fio_close(writer);
  EXPECT_EQ(openDescriptors(), before);
}

TEST(ClosingNull, DoesNothing) {
  EXPECT_EQ(np_fio_close(nullptr), NP_FIO_OK);
  np_fio_discard(nullptr);
}

TEST_F(Files, ThatAreDiscardedLeaveTheOldOneAndNoTrace) {
  m_folder.write("a", "old");
  const auto before = openDescriptors();
  NpFile* writer = open("a", NP_FIO_REPLACE);
  EXPECT_EQ(np_fio_puts(writer, "new"), 3);
  np_fio_discard(writer);
  np_fio_discard(open("a"));
  EXPECT_EQ(m_folder.read("a"), "old");
  EXPECT_EQ(std::distance(fs::directory_iterator(m_folder.path()), {}), 1);
  EXPECT_EQ(openDescriptors(), before);
}

TEST_F(Files, AreNamedByUrisToo) {
  m_folder.write("with space", "content");
  const std::string folder = m_folder.path().string();
  QvbString content;
  for (const auto& uri : {"file://" + folder + "/with%20space", "FILE:" + folder + "/with%20space",
                          "File://localhost" + folder + "/with%20space"}) {
    EXPECT_EQ(np_fio_stat(text(uri), nullptr), NP_FIO_OK) << uri;
    content.setNull();
    EXPECT_EQ(np_fio_readAll(text(uri), NoLimit, &content), NP_FIO_OK) << uri;
    EXPECT_EQ(content, QvbString("content")) << uri;
  }
  EXPECT_EQ(np_fio_writeAll(text("file://" + folder + "/new%20one"), "new"), NP_FIO_OK);
  EXPECT_EQ(m_folder.read("new one"), "new");
  EXPECT_EQ(np_fio_unlink(text("file://" + folder + "/new%20one")), NP_FIO_OK);
  EXPECT_FALSE(fs::exists(m_folder / "new one"));
}

TEST_F(Files, OfUrisWithoutANativePathAreNotSupported) {
  for (const char* uri : {"file://elsewhere/etc/passwd", "file:///tmp/a%00b"}) {
    NpFile* file = nullptr;
    EXPECT_EQ(np_fio_open(uri, NP_FIO_READ, &file), NP_FIO_UNSUPPORTED) << uri;
    EXPECT_EQ(np_fio_stat(uri, nullptr), NP_FIO_UNSUPPORTED) << uri;
    EXPECT_EQ(np_fio_unlink(uri), NP_FIO_UNSUPPORTED) << uri;
    EXPECT_EQ(np_fio_writeAll(uri, "x"), NP_FIO_UNSUPPORTED) << uri;
  }
}

TEST_F(Files, PathsWithAZeroByteNameNothing) {
  m_folder.write("a", "old");
  const std::string cut = (m_folder / "a") + '\0' + "b";
  NpFile* file = nullptr;
  QvbString content("untouched");
  for (const auto& path : {text(cut), ZeroInside}) {
    EXPECT_EQ(np_fio_open(path, NP_FIO_READ, &file), NP_FIO_NOT_FOUND);
    EXPECT_EQ(np_fio_open(path, NP_FIO_REPLACE, &file), NP_FIO_NOT_FOUND);
    EXPECT_EQ(np_fio_stat(path, nullptr), NP_FIO_NOT_FOUND);
    EXPECT_EQ(np_fio_unlink(path), NP_FIO_NOT_FOUND);
    EXPECT_EQ(np_fio_readAll(path, NoLimit, &content), NP_FIO_NOT_FOUND);
    EXPECT_EQ(np_fio_writeAll(path, "new"), NP_FIO_NOT_FOUND);
  }
  EXPECT_EQ(content, QvbString("untouched"));
  EXPECT_EQ(m_folder.read("a"), "old");
}

TEST_F(Files, AreDescribedByTheirState) {
  m_folder.write("a", "content");
  fs::create_directory(m_folder / "folder");
  fs::create_symlink("a", m_folder / "link");
  ASSERT_EQ(mkfifo((m_folder / "fifo").c_str(), 0600), 0);
  const timespec times[] = {{0, UTIME_OMIT}, {1234567890, 123456789}};
  ASSERT_EQ(utimensat(AT_FDCWD, (m_folder / "a").c_str(), times, 0), 0);
  struct stat expected {};
  ASSERT_EQ(::stat((m_folder / "a").c_str(), &expected), 0);

  for (const char* name : {"a", "link"}) {
    NpFileStat stat{};
    ASSERT_EQ(np_fio_stat(path(name), &stat), NP_FIO_OK) << name;
    EXPECT_EQ(stat.kind, NpFileKind::File);
    EXPECT_EQ(stat.device, expected.st_dev);
    EXPECT_EQ(stat.inode, expected.st_ino);
    EXPECT_EQ(stat.size, 7);
    EXPECT_EQ(stat.modifiedSeconds, 1234567890);
    EXPECT_EQ(stat.modifiedNanoseconds, 123456789);
    EXPECT_EQ(stat.changedSeconds, expected.st_ctim.tv_sec);
    EXPECT_EQ(stat.changedNanoseconds, expected.st_ctim.tv_nsec);
  }
  NpFileStat stat{};
  ASSERT_EQ(np_fio_stat(path("folder"), &stat), NP_FIO_OK);
  EXPECT_EQ(stat.kind, NpFileKind::Directory);
  ASSERT_EQ(np_fio_stat(path("fifo"), &stat), NP_FIO_OK);
  EXPECT_EQ(stat.kind, NpFileKind::Other);
}

TEST_F(Files, ThatAreMissingAreNotFound) {
  fs::create_symlink("nowhere", m_folder / "dangling");
  for (const char* name : {"missing", "dangling", "missing/below"}) {
    NpFileStat stat{};
    stat.size = 3;
    EXPECT_EQ(np_fio_stat(path(name), &stat), NP_FIO_NOT_FOUND) << name;
    EXPECT_EQ(stat.size, 3) << name;
    EXPECT_EQ(np_fio_stat(path(name), nullptr), NP_FIO_NOT_FOUND) << name;
  }
  EXPECT_EQ(np_fio_stat(QvbString(), nullptr), NP_FIO_NOT_FOUND);
}

TEST_F(Files, AreRemovedButFoldersAreNot) {
  m_folder.write("a", "content");
  m_folder.write("target", "content");
  fs::create_symlink("target", m_folder / "link");
  fs::create_directory(m_folder / "folder");
  EXPECT_EQ(np_fio_unlink(path("a")), NP_FIO_OK);
  EXPECT_EQ(np_fio_unlink(path("a")), NP_FIO_NOT_FOUND);
  EXPECT_EQ(np_fio_unlink(path("link")), NP_FIO_OK);
  EXPECT_TRUE(fs::exists(m_folder / "target"));
  EXPECT_EQ(np_fio_unlink(path("folder")), NP_FIO_UNSUPPORTED);
  EXPECT_TRUE(fs::exists(m_folder / "folder"));
}

TEST_F(Files, AreReadWholeWhateverTheirBytes) {
  EXPECT_TRUE(rc::check([this](const std::string& bytes) {
    m_folder.write("a", bytes);
    QvbString content;
    return np_fio_readAll(path("a"), NoLimit, &content) == NP_FIO_OK && content.view() == bytes &&
           !content.isNull();
  }));
  for (const std::size_t size : {4095U, 4096U, 4097U, 100000U}) {
    m_folder.write("a", std::string(size, 'x'));
    QvbString content;
    EXPECT_EQ(np_fio_readAll(path("a"), NoLimit, &content), NP_FIO_OK);
    EXPECT_EQ(content.view(), std::string(size, 'x'));
  }
}

TEST_F(Files, UpToTheLimitAreReadWhole) {
  m_folder.write("a", std::string(5000, 'x'));
  QvbString content("untouched");
  EXPECT_EQ(np_fio_readAll(path("a"), 4999, &content), NP_FIO_REFUSED);
  EXPECT_EQ(content, QvbString("untouched"));
  EXPECT_EQ(np_fio_readAll(path("a"), 5000, &content), NP_FIO_OK);
  EXPECT_EQ(content.length(), 5000);
}

TEST_F(Files, ThatTellNoSizeAreReadWholeAndLimitedToo) {
  QvbString content;
  ASSERT_EQ(np_fio_readAll("/proc/self/status", NoLimit, &content), NP_FIO_OK);
  EXPECT_EQ(content.find("Name:"), 0);
  EXPECT_EQ(np_fio_readAll("/proc/self/status", 10, &content), NP_FIO_REFUSED);
  // one that grows as it is read, to more than the first step takes
  const std::string large(20000, 'x');
  m_folder.write("growing", "x");
  const Faults growing([&](QvbFaultPoint point, const std::string&) {
    if (point == QvbFaultPoint::FileRead)
      m_folder.write("growing", large);
    return 0;
  });
  EXPECT_EQ(np_fio_readAll(path("growing"), NoLimit, &content), NP_FIO_OK);
  EXPECT_EQ(content.view(), large);
}

TEST_F(Files, ThatCannotBeReadWholeLeaveTheContentAlone) {
  QvbString content("untouched");
  EXPECT_EQ(np_fio_readAll(path("missing"), NoLimit, &content), NP_FIO_NOT_FOUND);
  EXPECT_EQ(np_fio_readAll(path(""), NoLimit, &content), NP_FIO_UNSUPPORTED);
  m_folder.write("a", "x");
  {
    const Faults faults(QvbFaultPoint::FileRead, EIO);
    EXPECT_EQ(np_fio_readAll(path("a"), NoLimit, &content), NP_FIO_ERROR);
  }
  EXPECT_EQ(content, QvbString("untouched"));
}

} // namespace
