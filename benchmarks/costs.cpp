// What core operations cost, in figures that do not depend on the clock. scripts/costs counts the instructions of
// measured() under callgrind; run by itself the program prints the most bytes that were held on the heap meanwhile, less
// what the preparation held.
//   build/benchmark/bin/costs OPERATION       build/benchmark/bin/costs: the names of the operations
#include "qvreposres/qvfilecache.h"
#include "qvreposres/qvlineage.h"
#include "qvreposres/qvreposconfigmgr.h"
#include "qvreposres/qvreposserialize.h"
#include "qvreposres/qvresourcemgr.h"
#include "qvreposres/qvresourceuri.h"
#include "qvxbase/qvbconfig.h"
#include "qvxbase/qvbreleased.h"

#include <malloc.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <new>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace {

struct Heap {
  static inline std::size_t held = 0;
  static inline std::size_t most = 0;
};

} // namespace

// Kept out of line: the compiler takes an inlined half of the pair for a mismatch.
[[gnu::noinline]] void* operator new(std::size_t size) {
  void* memory = std::malloc(size);
  if (!memory)
    throw std::bad_alloc();
  Heap::held += malloc_usable_size(memory);
  Heap::most = std::max(Heap::most, Heap::held);
  return memory;
}
[[gnu::noinline]] void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  try {
    return operator new(size);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
  Heap::held -= malloc_usable_size(memory);
  std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept { operator delete(memory); }

// The name that callgrind is told to count in.
extern "C" [[gnu::noinline]] void measured(const std::function<void()>& work) {
  const std::size_t before = Heap::held;
  Heap::most = before;
  work();
  Heap::most -= before;
}

namespace {

class Folder {
public:
  Folder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "qvcosts.XXXXXX").string();
    if (!mkdtemp(pattern.data()))
      throw std::runtime_error("no temporary folder: " + pattern);
    path = pattern;
  }
  ~Folder() {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
  }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;

  std::string path;
};

std::string numbered(const char* text, int number) { return text + std::to_string(number); }

QvbString tableIdentity(QvResourceManager& manager, int number) {
  QvbString identity;
  manager.generateTableDataSourceResourceId("Warehouse", "", "", "dw", numbered("table_", number).c_str(),
                                            &identity);
  return identity;
}

std::vector<Released<QvResource>> tables(QvImpactAnalysis& store, int count) {
  const Released<QvResourceManager> manager(createQvResourceManager());
  std::vector<Released<QvResource>> made;
  for (int i = 0; i < count; ++i)
    made.emplace_back(store.createResource("table", "Table", tableIdentity(*manager, i)));
  return made;
}

void identities() {
  measured([] {
    const Released<QvResourceManager> manager(createQvResourceManager());
    for (int i = 0; i < 2'000; ++i) {
      QvbString dsn, type, catalog, schema, table;
      manager->getTableObjectFromResourceId(tableIdentity(*manager, i), &dsn, &type, &catalog, &schema,
                                            &table);
    }
  });
}

void resourceList() {
  const Released<QvImpactAnalysis> store(getQvLineageAnalysis());
  const auto resources = tables(*store, 10'000);
  measured([&] {
    const Released<QvResourceList> list(store->createResourceList());
    for (const auto& resource : resources)
      if (!list->contains(resource.get()) && list->addRow())
        list->setLastRowElement(0, resource.get());
  });
}

void lineage() {
  const Released<QvImpactAnalysis> source(getQvLineageAnalysis());
  const auto used = tables(*source, 2'000);
  measured([&] {
    const Released<QvImpactAnalysis> store(getQvLineageAnalysis());
    for (std::size_t i = 0; i < 500; ++i) {
      const Released<QvResourceList> list(store->createResourceList());
      for (std::size_t j = 0; j < 6; ++j)
        if (list->addRow())
          list->setLastRowElement(0, used[(i * 5 + j * 101) % used.size()].get());
      const Released<QvResource> job(store->createResource(
          "job", "ArchitectJob", numbered("/srv/jobs/job_", static_cast<int>(i)).c_str()));
      store->addDependentResources(job.get(), list.get());
    }
    QvbString xml;
    store->getLineageAsString(&xml, nullptr, true);
  });
}

void steps() {
  std::string step = "<SQLCreateTableSelect><DatabaseConnectionObject Name=\"Warehouse\" DbDACType=\"ODBC\"/>"
                     "<Create TargetName=\"dw.orders\"/><Query><From>";
  for (int i = 0; i < 1'000; ++i)
    step += "<SourceTable Name=\"t\" PathURI=\"qvd:///Warehouse?type=ODBC&amp;schema=dw&amp;table=" +
            numbered("table_", i) + "\"/>";
  step += "</From></Query></SQLCreateTableSelect>";
  const QvbString xml(step.c_str());
  measured([&] {
    const Released<QvImpactAnalysis> store(getQvLineageAnalysis());
    const Released<QvResourceManager> manager(createQvResourceManager());
    const Released<QvResourceList> list(store->createResourceList());
    manager->addSQLResourcesFromString(xml, store->getDefaultResourceFactory(), list.get());
  });
}

// Returns once the library takes the files for settled: one that changed within the last 3 s it reads at every look.
void writeDefinitions(const std::string& folder, int count) {
  for (int i = 0; i < count; ++i)
    std::ofstream(folder + "/" + numbered("definition_", i) + ".rcf")
        << "<VaultRepositoryInfo Name=\"" << numbered("Definition ", i)
        << R"(" RepositoryType="Vault" IsActive="true"><VaultPath>/srv/vault_)" << i
        << "</VaultPath><UnifiedRepositoryType>File</UnifiedRepositoryType></VaultRepositoryInfo>\n";
  std::this_thread::sleep_for(std::chrono::milliseconds(3'200));
}

void definitions() {
  const Folder folder;
  writeDefinitions(folder.path, 200);
  qvbSetConfigOption("BASE/REPOS_USER_PATH", folder.path.c_str());
  measured([] {
    const Released<QvReposConfigManager> manager(getRepositoryConfigurationManager());
    for (int i = 0; i < 20; ++i)
      const Released<QvReposConfiguration> found(
          manager->getConfigurationByName(numbered("Definition ", i * 10).c_str()));
  });
}

void metadata() {
  measured([] {
    QvbString xml;
    const auto context = [] {
      return Released<RepositorySerializationContext>(createRepositoryMetadataSerializationContext());
    };
    const auto writer = context();
    RepositoryMetadataObject* root = writer->getMetadataObject("Library", "L");
    for (int i = 0; i < 2'000; ++i) {
      RepositoryMetadataObject* job = writer->getMetadataObject("Job", numbered("J", i).c_str());
      job->addAttribute("Name", numbered("load_", i).c_str());
      root->addAssociatedObject("Jobs", job);
    }
    writer->serialize(root, &xml, nullptr, true);
    context()->deSerialize(xml, nullptr);
  });
}

void references() {
  const Folder folder;
  writeDefinitions(folder.path, 50);
  qvbSetConfigOption("BASE/REPOS_USER_PATH", folder.path.c_str());
  measured([] {
    for (int i = 0; i < 500; ++i) {
      QvbString uri, file;
      generateURIReferenceFromFilename(
          (numbered("/srv/vault_", i % 100) + numbered("/batch_jobs/load_", i) + ".djf").c_str(), &uri);
      generateFilenameFromURIReference(nullptr, uri, &file);
    }
  });
}

void cacheHits() {
  const Folder folder;
  const std::string path = folder.path + "/customers.djf";
  std::ofstream(path) << "<ProcessJob/>\n";
  qvbSetConfigOption("BASE/REMOTEFILECACHE_TIMEBETWEENCHECKS", "2000000000");
  const ReleasedSubject subject(qvbSubjectCreate("somebody", QvbString()));
  const QvbString name(("file://" + path).c_str());
  const auto get = [&] {
    QvbString local, error;
    getFileCache()->getCacheFilename(subject.get(), name, &local, &error);
  };
  get();
  measured([&] {
    for (int i = 0; i < 5'000; ++i)
      get();
  });
  qvFileCacheShutdown();
}

struct Operation {
  std::string_view name;
  void (*run)();
};
constexpr Operation operations[] = {
    {"identities", identities}, {"resource-list", resourceList}, {"lineage", lineage},
    {"steps", steps},           {"definitions", definitions},    {"metadata", metadata},
    {"references", references}, {"cache-hits", cacheHits},
};

} // namespace

int main(int count, char** arguments) {
  const std::string_view wanted = count > 1 ? arguments[1] : "";
  for (const auto& [name, run] : operations) {
    if (wanted.empty())
      std::printf("%s\n", name.data());
    if (name != wanted)
      continue;
    run();
    std::printf("%zu\n", Heap::most);
    return 0;
  }
  return wanted.empty() ? 0 : 2;
}
