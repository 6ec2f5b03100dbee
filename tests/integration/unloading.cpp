// The library leaves the process as it found it: this program does not link it, a plugin brings it in and takes it along.
#include "support/descriptors.h"
#include "support/httpserver.h"
#include "support/tempdir.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>

#include <dlfcn.h>
#include <malloc.h>

#ifndef __has_feature
#define __has_feature(feature) 0
#endif

namespace {

constexpr const char* plugin = QV_BINARY_DIR "/tests/unloading_plugin.so";
constexpr int everyService = 0xff;
// A sanitizer has a heap of its own, in which it tells by itself what nobody holds any more.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || __has_feature(address_sanitizer)
constexpr int rounds = 30;
#else
constexpr int rounds = 1000;
#endif
// The smallest block is 32 bytes, so that one lost in each round is more than this. What threads that ended keep for the
// next ones counts as in use unless the environment of the test forbids it.
const std::size_t slack = (std::getenv("GLIBC_TUNABLES") ? 16 : 128) * std::size_t{1024};

std::set<std::string> mappedFiles() {
  std::set<std::string> files;
  std::ifstream maps("/proc/self/maps");
  for (std::string line; std::getline(maps, line);)
    if (const auto path = line.find('/'); path != std::string::npos)
      files.insert(line.substr(path));
  return files;
}

bool isMapped(const std::string& name) {
  for (const auto& file : mappedFiles())
    if (file.find("/" + name) != std::string::npos)
      return true;
  return false;
}

bool isLoaded(const char* library) {
  void* const found = ::dlopen(library, RTLD_NOW | RTLD_NOLOAD);
  if (found)
    ::dlclose(found);
  return found;
}

std::ptrdiff_t threads() {
  const std::filesystem::directory_iterator tasks("/proc/self/task");
  return std::distance(begin(tasks), end(tasks));
}

// What the process has of everything that a library could leave behind.
struct Footprint {
  std::size_t heap = ::mallinfo2().uordblks;
  std::set<std::string> files = mappedFiles();
  std::size_t descriptors = openDescriptors().size();
  std::ptrdiff_t runningThreads = threads();
};

void useOnce(const HttpServer& server) {
  void* const library = ::dlopen(plugin, RTLD_NOW | RTLD_LOCAL);
  ASSERT_TRUE(library) << ::dlerror();
  using Use = int(const char* folder, const char* job, const char* url, const char* tickets);
  const auto use = reinterpret_cast<Use*>(::dlsym(library, "useLibrary"));
  ASSERT_TRUE(use);
  ASSERT_EQ(use(QV_SOURCE_DIR "/examples", QV_SOURCE_DIR "/examples/repository/batch_jobs/clean_orders.djf",
                server.url("/job").c_str(), server.ticketServer().c_str()),
            everyService);
  ASSERT_EQ(::dlclose(library), 0);
}

// The server, which remembers its tickets, is gone at the end.
void use(int times) {
  HttpServer server;
  server.serveJob("/job", "2026-01-02T03:04:05.006", "jobs/load", server.url("/content"));
  server.serve("/content", "remote");
  server.addUser("alice", "a-secret");
  server.requireTickets();
  for (int i = 0; i < times; ++i)
    ASSERT_NO_FATAL_FAILURE(useOnce(server));
}

} // namespace

TEST(Unloading, TakesTheLibrariesOutOfTheProcess) {
  ASSERT_NO_FATAL_FAILURE(use(1));
  for (const char* library : {"libqvreposres.so.2", "libqvplatform.so.2"}) {
    EXPECT_FALSE(isLoaded(library)) << library;
    EXPECT_FALSE(isMapped(library)) << library;
  }
}

TEST(Unloading, LeavesTheProcessAsLargeAfterAThousandTimesAsAfterTen) {
  ASSERT_NO_FATAL_FAILURE(use(10));
  const Footprint early;
  ASSERT_NO_FATAL_FAILURE(use(rounds - 10));
  const Footprint late;
  EXPECT_LT(late.heap, early.heap + slack);
  EXPECT_EQ(late.files, early.files);
  EXPECT_EQ(late.descriptors, early.descriptors);
  EXPECT_EQ(late.runningThreads, early.runningThreads);
}
