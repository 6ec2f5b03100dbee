// What the fuzz targets share: the check that ends a run, the input as text and fields, a bound on what an input may cost.
// For one source per program.
#pragma once

#include "qvxbase/qvbstring.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include <sanitizer/allocator_interface.h>
#include <unistd.h>

inline void require(bool holds) {
  if (!holds)
    std::abort();
}

inline QvbString textOf(const std::uint8_t* data, std::size_t size) {
  return QvbString(std::string_view(reinterpret_cast<const char*>(data), size));
}

// The input's lines, as many as asked for; those that it lacks are empty.
inline std::vector<QvbString> fieldsOf(const std::uint8_t* data, std::size_t size, std::size_t count) {
  std::vector<QvbString> fields(count, QvbString(""));
  std::string_view rest(reinterpret_cast<const char*>(data), size);
  for (auto& field : fields) {
    const std::size_t end = rest.find('\n');
    field = QvbString(rest.substr(0, end));
    if (end == std::string_view::npos)
      break;
    rest.remove_prefix(end + 1);
  }
  return fields;
}

// Controls and broken UTF-8, which XML cannot carry, come back as U+FFFD; a null text may come back as an empty one.
inline bool isSameInXml(const QvbString& read, const QvbString& written) {
  return read.view() == written.view() || read.view().find("\xef\xbf\xbd") != std::string_view::npos;
}

// What this process allocated so far, as the sanitizer's allocator tells.
struct Allocated {
  static inline std::size_t bytes = 0;
  static inline const int isCounted = __sanitizer_install_malloc_and_free_hooks(
      [](const volatile void*, std::size_t size) { bytes += size; }, [](const volatile void*) {});
};

// The work allocates no more than so many bytes for each byte of the input, and a fixed amount besides, which an XML reader
// that is renewed takes. What is made on first use does not count.
template<class Work>
void costsAtMost(std::size_t bytesEach, std::size_t size, const Work& work) {
  constexpr std::size_t Fixed = 4 << 20;
  static bool isFirst = true;
  const std::size_t before = Allocated::bytes;
  work();
  require(isFirst || Allocated::bytes - before <= Fixed + bytesEach * size);
  isFirst = false;
}

// A file of the process's own, in memory where the system has a place for that.
class FuzzFile {
public:
  explicit FuzzFile(const std::string& name) {
    const bool hasMemory = ::access("/dev/shm", W_OK) == 0;
    m_folder = std::string(hasMemory ? "/dev/shm" : "/tmp") + "/qvfuzz." + std::to_string(::getpid());
    require(std::system(("mkdir -p " + m_folder).c_str()) == 0);
    m_path = m_folder + "/" + name;
  }
  ~FuzzFile() {
    std::remove(m_path.c_str());
    ::rmdir(m_folder.c_str());
  }
  FuzzFile(const FuzzFile&) = delete;
  FuzzFile& operator=(const FuzzFile&) = delete;

  void write(std::string_view bytes) const {
    std::ofstream(m_path, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  }
  QvbString path() const { return QvbString(std::string_view(m_path)); }
  QvbString folder() const { return QvbString(std::string_view(m_folder)); }

private:
  std::string m_folder;
  std::string m_path;
};
