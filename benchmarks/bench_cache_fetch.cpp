// First fetches of small files: the library into the folder of its cache; by hand, what keeps a reader from a copy that
// is not whole (a private file that then takes its name); and a plain copy, which any reader may see half of.
#include "bench.h"
#include "sourcefiles.h"

#include "qvreposres/qvfilecache.h"
#include "qvxbase/qvbreleased.h"

#include <array>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

// Fetches every file in each round; what was fetched goes again outside the measure.
template<typename Fetch, typename Clear>
void fetchAll(Bench& run, const SourceFiles& sources, const Fetch& fetch, const Clear& clear) {
  const int rounds = run.isShort ? 1 : 100;
  std::uintmax_t bytes = 0;
  for (int round = 0; round < rounds; ++round) {
    std::vector<fs::path> copies;
    run.measure([&] {
      for (std::size_t i = 0; i < sources.paths.size(); ++i)
        copies.push_back(fetch(i));
    });
    for (const fs::path& copy : copies)
      bytes += fs::file_size(copy);
    clear();
  }
  run.result = std::to_string(bytes) + " bytes";
}

void byLibrary(Bench& run) {
  const SourceFiles sources;
  const ReleasedSubject subject(qvbSubjectCreate("somebody", QvbString()));
  FileAccessCache* const cache = getFileCache();
  QvbString local, error;
  const auto fetch = [&](std::size_t i) {
    if (cache->getCacheFilename(subject.get(), sources.uris[i], &local, &error) != 0)
      throw std::runtime_error("no local copy of " + sources.paths[i].string());
    return fs::path(local.asCstr());
  };
  fetchAll(run, sources, fetch, [&] { cache->flush(false); });
  qvFileCacheShutdown();
}

class Descriptor {
public:
  Descriptor(const fs::path& path, int flags) : m_number(::open(path.c_str(), flags | O_CLOEXEC, 0600)) {
    if (m_number < 0)
      throw std::runtime_error("cannot open " + path.string());
  }
  ~Descriptor() { ::close(m_number); }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  operator int() const { return m_number; }

private:
  int m_number;
};

void emptyFolder(const fs::path& folder) {
  fs::remove_all(folder);
  fs::create_directory(folder);
}

void byHand(Bench& run) {
  const SourceFiles sources;
  const auto fetch = [&](std::size_t i) {
    fs::path copy = sources.copies() / std::to_string(i);
    const fs::path whole = copy;
    copy += ".tmp";
    struct stat entry {};
    const Descriptor from(sources.paths[i], O_RDONLY);
    if (::fstat(from, &entry) != 0 || !S_ISREG(entry.st_mode))
      throw std::runtime_error("no regular file: " + sources.paths[i].string());
    {
      const Descriptor to(copy, O_WRONLY | O_CREAT | O_EXCL);
      std::array<char, 4096> block;
      for (ssize_t count; (count = ::read(from, block.data(), block.size())) > 0;)
        if (::write(to, block.data(), static_cast<std::size_t>(count)) != count)
          throw std::runtime_error("cannot write " + copy.string());
    }
    fs::rename(copy, whole);
    return whole;
  };
  fetchAll(run, sources, fetch, [&] { emptyFolder(sources.copies()); });
}

void plainCopy(Bench& run) {
  const SourceFiles sources;
  const auto fetch = [&](std::size_t i) {
    fs::path copy = sources.copies() / std::to_string(i);
    fs::copy_file(sources.paths[i], copy);
    return copy;
  };
  fetchAll(run, sources, fetch, [&] { emptyFolder(sources.copies()); });
}

} // namespace

int main(int count, char** words) {
  return bench(count, words, {{"library", byLibrary}, {"by hand", byHand}, {"plain copy", plainCopy}});
}
